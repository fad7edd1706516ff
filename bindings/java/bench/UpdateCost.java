import java.util.Arrays;
import nuvik.Nuvik;
import nuvik.NuvikConfig;

/**
 * Cost of Nuvik.update through Java against Nuvik::Update called from C++, at 200 known applications, in one process:
 * two facades of the same ensemble learn the same launches in alternating blocks, so that both sides see the same
 * machine load. Prints the medians over blocks of 50 launches, then the cost of a call that the facade skips at once
 * (a repeated launch with skipRepeats), which is the binding's own cost per call.
 * Arguments: LAUNCHES PREDICTOR... (LAUNCHES launches warm up, the next LAUNCHES are timed).
 */
public final class UpdateCost {
  private static final int APPS = 200;
  private static final int BLOCK = 50;

  static {
    System.loadLibrary("nuvik_update_cost");
  }

  private static native void cppPrepare(String[] predictors, String[] apps, int[] hours, int[] minutes);

  private static native long cppRun(int from, int to);

  private static native double cppSkippedCall(int calls);

  // Nanoseconds per call over `calls` repeats of one launch that the facade skips: the binding's own cost.
  private static double javaSkippedCall(int calls) {
    try (Nuvik nuvik = new Nuvik(NuvikConfig.builder().skipRepeats(true).build())) {
      nuvik.update("app0", 8, 0);
      long start = System.nanoTime();
      for (int i = 0; i < calls; ++i) nuvik.update("app0", 8, 0);
      return (System.nanoTime() - start) / (double) calls;
    }
  }

  private static double median(double[] values) {
    double[] sorted = values.clone();
    Arrays.sort(sorted);
    int middle = sorted.length / 2;
    return sorted.length % 2 == 1 ? sorted[middle] : (sorted[middle - 1] + sorted[middle]) / 2;
  }

  public static void main(String[] args) {
    int timed = Integer.parseInt(args[0]);
    String[] predictors = Arrays.copyOfRange(args, 1, args.length);
    // Every application once, then random launches mixed with habitual successors, spread over the day.
    int count = APPS + 2 * timed;
    String[] apps = new String[count];
    int[] hours = new int[count];
    int[] minutes = new int[count];
    long state = 42;
    int last = 0;
    int minute = 0;
    for (int i = 0; i < count; ++i) {
      state = state * 6364136223846793005L + 1442695040888963407L;
      int r = (int) (state >>> 33);
      int app = i < APPS ? i : r % 4 == 0 ? (r >> 2) % APPS : (last * 7 + 3 + (r >> 2) % 3) % APPS;
      last = app;
      minute += 1 + (r >> 4) % 30;
      apps[i] = "app" + app;
      hours[i] = minute / 60 % 24;
      minutes[i] = minute % 60;
    }
    cppPrepare(predictors, apps, hours, minutes);
    try (Nuvik nuvik = new Nuvik(predictors)) {
      int warmedUp = APPS + timed;
      for (int i = 0; i < warmedUp; ++i) nuvik.update(apps[i], hours[i], minutes[i]);
      cppRun(0, warmedUp);
      int blocks = (count - warmedUp + BLOCK - 1) / BLOCK;
      double[] javaBlocks = new double[blocks];
      double[] cppBlocks = new double[blocks];
      double[] ratios = new double[blocks];
      for (int b = 0; b < blocks; ++b) {
        int from = warmedUp + b * BLOCK;
        int to = Math.min(from + BLOCK, count);
        // Which side runs first alternates: the second one of a pair tends to run a little faster.
        if (b % 2 == 1) cppBlocks[b] = cppRun(from, to) / (double) (to - from);
        long start = System.nanoTime();
        for (int i = from; i < to; ++i) nuvik.update(apps[i], hours[i], minutes[i]);
        javaBlocks[b] = (System.nanoTime() - start) / (double) (to - from);
        if (b % 2 == 0) cppBlocks[b] = cppRun(from, to) / (double) (to - from);
        ratios[b] = javaBlocks[b] / cppBlocks[b];
      }
      // Medians over blocks: a block that the scheduler interrupted does not count.
      System.out.printf("%-32s %6d launches  per update: C++ %9.1f ns  Java %9.1f ns  Java/C++ %.3f%n",
          String.join(",", predictors), timed, median(cppBlocks), median(javaBlocks), median(ratios));
    }
    int calls = 1_000_000;
    for (int round = 0; round < 3; ++round) javaSkippedCall(calls);  // warm-up
    System.out.printf("%-32s %7d calls   per call:   C++ %9.1f ns  Java %9.1f ns%n", "skipped repeat (stat_counter)",
        calls, cppSkippedCall(calls), javaSkippedCall(calls));
  }
}
