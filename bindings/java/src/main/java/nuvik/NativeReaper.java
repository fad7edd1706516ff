package nuvik;

import java.lang.ref.PhantomReference;
import java.lang.ref.ReferenceQueue;
import java.util.Set;
import java.util.concurrent.ConcurrentHashMap;
import java.util.function.LongConsumer;

/**
 * Frees the C++ object of a {@link NativeObject} that was never closed, once the Java object is unreachable: a
 * phantom reference queue drained by one daemon thread (java.lang.ref.Cleaner needs Android API 33).
 */
final class NativeReaper {
  private static final ReferenceQueue<Object> QUEUE = new ReferenceQueue<>();
  // Keeps every handle reachable until it is freed, so that it can be enqueued at all.
  private static final Set<Handle> PENDING = ConcurrentHashMap.newKeySet();

  static {
    Thread reaper = new Thread(NativeReaper::drain, "nuvik-reaper");
    reaper.setDaemon(true);
    reaper.start();
  }

  private NativeReaper() {}

  /** The native address owned by one Java object; freed exactly once, by {@link #free} or by the reaper. */
  static final class Handle extends PhantomReference<Object> {
    private final LongConsumer delete;
    private long address;

    private Handle(Object owner, long address, LongConsumer delete) {
      super(owner, QUEUE);
      this.delete = delete;
      this.address = address;
    }

    synchronized void free() {
      if (address != 0) {
        delete.accept(address);
        address = 0;
      }
      clear();
      PENDING.remove(this);
    }
  }

  /** Frees {@code address} with {@code delete} once {@code owner} is unreachable, unless freed before. */
  static Handle track(Object owner, long address, LongConsumer delete) {
    Handle handle = new Handle(owner, address, delete);
    PENDING.add(handle);
    return handle;
  }

  private static void drain() {
    while (true) {
      try {
        ((Handle) QUEUE.remove()).free();
      } catch (InterruptedException e) {
        // A daemon thread: keep draining until the process ends.
      }
    }
  }
}
