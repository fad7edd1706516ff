package nuvik;

import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertTrue;

import java.util.ArrayList;
import java.util.List;
import java.util.concurrent.atomic.AtomicReference;
import org.junit.jupiter.api.Test;

class LifetimeTest {
  @Test
  void droppedInstancesAreFreedOnceCollected() throws InterruptedException {
    long before = settledLiveObjects();
    for (int i = 0; i < 1000; ++i) {
      new Nuvik("linear").update("app" + i, 12, 0);
      new Suggestions().dismiss("app" + i);
    }
    assertTrue(liveObjects() > before);
    long deadline = System.nanoTime() + 20_000_000_000L;
    while (liveObjects() > before && System.nanoTime() < deadline) {
      System.gc();
      Thread.sleep(10);
    }
    assertEquals(before, liveObjects());
  }

  @Test
  void eightThreadsShareOneInstance() throws InterruptedException {
    RowRequest request = RowRequest.builder().count(4).stable(true).build();
    try (Nuvik nuvik = new Nuvik("markov_chain3_invalidate", "linear"); Suggestions suggestions = new Suggestions()) {
      long[] launches = new long[8];
      AtomicReference<Throwable> failure = new AtomicReference<>();
      long deadline = System.nanoTime() + 1_000_000_000L;
      List<Thread> threads = new ArrayList<>();
      for (int t = 0; t < launches.length; ++t) {
        final int id = t;
        Thread thread = new Thread(() -> {
          try {
            for (int i = 0; System.nanoTime() < deadline; ++i) {
              nuvik.update("app" + (id * 7 + i) % 40, i % 24, i % 60);
              ++launches[id];
              if (i % 16 == 0) nuvik.next();
              // A row holds the suggestions' lock, then the facade's.
              if (i % 16 == 8) suggestions.row(nuvik, i % 24, 0, request);
              if (i % 64 == 0) nuvik.allWeights();
              if (i % 128 == 127) nuvik.load(nuvik.save());
            }
          } catch (Throwable e) {
            failure.compareAndSet(null, e);
          }
        });
        threads.add(thread);
        thread.start();
      }
      for (Thread thread : threads) thread.join();
      if (failure.get() != null) throw new AssertionError(failure.get());
      long total = 0;
      for (long count : launches) total += count;
      // Every launch from the sixth on is scored.
      assertTrue(total > 5);
      assertEquals(total - 5, nuvik.countMetrics());
    }
  }

  private static long liveObjects() {
    return Nuvik.liveNativeFacades() + Suggestions.liveNativeObjects();
  }

  // Collects whatever earlier tests dropped, then reads the count.
  private static long settledLiveObjects() throws InterruptedException {
    long previous = -1;
    for (long current = liveObjects(); current != previous; current = liveObjects()) {
      previous = current;
      System.gc();
      Thread.sleep(50);
    }
    return previous;
  }
}
