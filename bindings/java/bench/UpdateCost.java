import java.util.Arrays;
import nuvik.Nuvik;

/**
 * Nanoseconds per Nuvik.update on the launch stream of UpdateCost.cpp, for comparing the Java call with the C++ one
 * (see update-cost.sh). Arguments: LAUNCHES PREDICTOR...
 */
public final class UpdateCost {
  private static final int APPS = 200;
  private static final int WARM_UP = 10000;

  public static void main(String[] args) {
    int timed = Integer.parseInt(args[0]);
    int count = WARM_UP + timed;
    String[] apps = new String[count];
    int[] hours = new int[count];
    int[] minutes = new int[count];
    long state = 42;
    int last = 0;
    int minute = 0;
    for (int i = 0; i < count; ++i) {
      state = state * 6364136223846793005L + 1442695040888963407L;
      int r = (int) (state >>> 33);
      int app = r % 4 == 0 ? (r >> 2) % 23 * (r >> 7) % APPS : (last * 7 + 3 + (r >> 2) % 3) % APPS;
      last = app;
      minute += 1 + (r >> 4) % 30;
      apps[i] = "app" + app;
      hours[i] = minute / 60 % 24;
      minutes[i] = minute % 60;
    }
    try (Nuvik nuvik = new Nuvik(Arrays.copyOfRange(args, 1, args.length))) {
      for (int app = 0; app < APPS; ++app) nuvik.update("app" + app, 0, 0);
      for (int i = 0; i < WARM_UP; ++i) nuvik.update(apps[i], hours[i], minutes[i]);
      long start = System.nanoTime();
      for (int i = WARM_UP; i < count; ++i) nuvik.update(apps[i], hours[i], minutes[i]);
      System.out.printf("%.1f%n", (System.nanoTime() - start) / (double) timed);
    }
  }
}
