package nuvik;

import java.io.ByteArrayOutputStream;
import java.io.IOException;
import java.io.InputStream;
import java.io.OutputStream;
import java.time.LocalTime;
import java.util.Arrays;
import java.util.Collections;
import java.util.LinkedHashMap;
import java.util.List;
import java.util.Map;
import java.util.Objects;

/**
 * On-device prediction of the next application launch: the Java face of the C++ facade {@code NuvikPrediction::Nuvik}
 * in {@code libnuvik.so}, through {@code libnuvik_jni.so}.
 *
 * <p>Feed it every launch with {@link #update(String, int, int)}; ask it at any moment for the ranked list of likely
 * next applications ({@link #next()}, or {@link #nextAt(int, int)} for now), per-application scores and the running
 * quality metrics of its own ranking. {@link Suggestions} turns the ranking into a launcher's row.
 * Predictor type names: {@code stat_counter} (the default), {@code linear}, {@code double_linear},
 * {@code markov_chain3_invalidate}, {@code knn_regression}; an unknown name builds a {@code stat_counter}.
 *
 * <p>Threads: an instance may be called from several threads at once. The calls on one instance are serialised
 * (each holds the instance's lock for its whole native call), so a long call such as {@link #load(byte[])} delays
 * the others; separate instances never wait for each other.
 *
 * <p>Lifetime: the native facade belongs to this object. {@link #close()} frees it at once (closing twice does
 * nothing); an instance that is never closed is freed by a daemon thread some time after it becomes unreachable.
 * Every call after {@code close()} throws {@link IllegalStateException}, except {@link #toString()}.
 *
 * <p>Names cross as UTF-8: any Java string, including characters outside the BMP and U+0000, reaches the library
 * as its standard UTF-8 bytes and comes back unchanged; a lone surrogate becomes U+FFFD. A name that the library
 * holds as bytes that are not UTF-8 (only possible from C++ callers) comes back with one U+FFFD per bad byte.
 *
 * <p>Null arguments throw {@link NullPointerException}; a C++ allocation failure throws {@link OutOfMemoryError}.
 */
public final class Nuvik implements AutoCloseable {
  static {
    System.loadLibrary("nuvik_jni");
  }

  private final NativeObject peer;

  /** One {@code stat_counter} slot. */
  public Nuvik() {
    this(nCreateDefault());
  }

  /** One slot per type name, each with parameter 1 and the default thresholds; no name gives a {@code stat_counter}. */
  public Nuvik(String... predictors) {
    this(nCreateNamed(nonNullElements(predictors, "predictor name")));
  }

  public Nuvik(NuvikConfig config) {
    this(nCreateConfigured(config.predictors(), config.params(), config.skipRepeats(), config.killThreshold(),
        config.countLimit(), config.weightThreshold()));
  }

  private Nuvik(long address) {
    this.peer = new NativeObject(address, Nuvik::nDelete, "Nuvik");
  }

  /**
   * Learns one launch at {@code hour:minute} local time. The lists and weights are first prepared from the state
   * before the launch and the metrics score them against {@code app}; then every predictor learns the launch. Hour
   * and minute are passed on as they are, whatever their range, as the C++ call takes them.
   */
  public void update(String app, int hour, int minute) {
    Objects.requireNonNull(app, "app");
    peer.run(address -> nUpdate(address, app, hour, minute));
  }

  /** As {@link #update(String, int, int)}, keeping {@code tag} (free text that no predictor reads). */
  public void update(String app, int hour, int minute, String tag) {
    Objects.requireNonNull(app, "app");
    Objects.requireNonNull(tag, "tag");
    peer.run(address -> nUpdateTagged(address, app, hour, minute, tag));
  }

  public void update(String app, LocalTime time) {
    update(app, time.getHour(), time.getMinute());
  }

  /** Rebuilds every predictor empty; known applications, weights, lists, priorities and metrics are kept. */
  public void clear() {
    peer.run(Nuvik::nClear);
  }

  /** Every known application, best first, as ranked at the start of the last accepted launch. Unmodifiable. */
  public List<String> next() {
    return list(peer.call(Nuvik::nNext));
  }

  /**
   * The ranking for now, for a launcher drawing its suggestions between two launches: every known application, best
   * first, ranked at {@code hour:minute} from everything learned so far. {@link #next()} is one launch behind; this
   * is exactly the list that it will answer after the next accepted {@link #update(String, int, int)} at that time
   * (same scores, priorities and ties), as long as nothing else changes the facade in between. Hour and minute are
   * passed on as they are, as {@code update} passes them.
   *
   * <p>Changes nothing: every other answer, now and after any later call (lists, weights, metrics, saved documents),
   * is the same as that of a facade never asked. Unmodifiable.
   */
  public List<String> nextAt(int hour, int minute) {
    return list(peer.call(address -> nNextAt(address, hour, minute)));
  }

  /**
   * The first {@code count} applications of {@link #nextAt(int, int)} (all of them when fewer are known), without
   * ordering the rest; changes nothing. Unmodifiable.
   *
   * @throws IllegalArgumentException if {@code count} is negative
   */
  public List<String> nextAt(int hour, int minute, int count) {
    if (count < 0) throw new IllegalArgumentException("count must not be negative: " + count);
    return list(peer.call(address -> nNextAtFirst(address, hour, minute, count)));
  }

  /** {@link #nextAt(int, int)} at {@code time}'s hour and minute; changes nothing. */
  public List<String> nextAt(LocalTime time) {
    return nextAt(time.getHour(), time.getMinute());
  }

  /**
   * {@link #nextAt(int, int, int)} at {@code time}'s hour and minute; changes nothing.
   *
   * @throws IllegalArgumentException if {@code count} is negative
   */
  public List<String> nextAt(LocalTime time, int count) {
    return nextAt(time.getHour(), time.getMinute(), count);
  }

  /** Always empty in this version of the library. */
  public List<String> soon() {
    return list(peer.call(Nuvik::nSoon));
  }

  /** Always empty in this version of the library. */
  public List<String> kill() {
    return list(peer.call(Nuvik::nKill));
  }

  /** Combined score of {@code app} from the last preparation; 0.0 for an application without one. */
  public double weight(String app) {
    Objects.requireNonNull(app, "app");
    return peer.call(address -> nWeight(address, app));
  }

  /** As {@link #weight(String)}, but -1.0 for an application without a score. */
  public double weightDet(String app) {
    Objects.requireNonNull(app, "app");
    return peer.call(address -> nWeightDet(address, app));
  }

  /** {@link #weight(String)} of each application, in order. */
  public double[] weights(List<String> apps) {
    String[] names = nonNullElements(apps.toArray(new String[0]), "app");
    return peer.call(address -> nWeights(address, names));
  }

  /**
   * What {@link #weights(List)} will answer after the next accepted {@link #update(String, int, int)} at
   * {@code hour:minute}: for each application, in order, its combined score at that time if it is known, else its
   * weight from the last preparation, else 0.0. Hour and minute are passed on as they are. Changes nothing, as
   * {@link #nextAt(int, int)}.
   */
  public double[] weightsAt(int hour, int minute, List<String> apps) {
    String[] names = nonNullElements(apps.toArray(new String[0]), "app");
    return peer.call(address -> nWeightsAt(address, hour, minute, names));
  }

  /** {@link #weightsAt(int, int, List)} at {@code time}'s hour and minute; changes nothing. */
  public double[] weightsAt(LocalTime time, List<String> apps) {
    return weightsAt(time.getHour(), time.getMinute(), apps);
  }

  /**
   * One entry per known application, in the order of the C++ map: byte order of the UTF-8 names, which differs from
   * {@link String#compareTo} for characters outside the BMP. Unmodifiable.
   */
  public Map<String, Double> allWeights() {
    Object[] namesAndWeights = peer.call(Nuvik::nAllWeights);
    String[] names = (String[]) namesAndWeights[0];
    double[] weights = (double[]) namesAndWeights[1];
    Map<String, Double> all = new LinkedHashMap<>(names.length * 4 / 3 + 1);
    for (int i = 0; i < names.length; ++i) all.put(names[i], weights[i]);
    return Collections.unmodifiableMap(all);
  }

  /** The rule that combines per-slot scores: two give s[1] * 0.9 + s[0] * 0.1, one gives s[0], others 0.0. */
  public double soonWeight(double... scores) {
    Objects.requireNonNull(scores, "scores");
    return peer.call(address -> nSoonWeight(address, scores));
  }

  /**
   * Lifts (positive) or lowers (negative) applications by (1 / priority) * 0.6 on every slot's score from the next
   * launch on; 0 means none. A later pair for the same application wins.
   */
  public void setAppsPriority(List<Map.Entry<String, Integer>> priorities) {
    String[] apps = new String[priorities.size()];
    int[] values = new int[apps.length];
    int i = 0;
    for (Map.Entry<String, Integer> entry : priorities) {
      apps[i] = Objects.requireNonNull(entry.getKey(), "app");
      values[i++] = Objects.requireNonNull(entry.getValue(), "priority");
    }
    peer.run(address -> nSetAppsPriority(address, apps, values));
  }

  public void resetPriority() {
    peer.run(Nuvik::nResetPriority);
  }

  /** Launches scored so far: every launch from the sixth on, until {@link #clearMetrics()}. */
  public long countMetrics() {
    return peer.call(Nuvik::nCountMetrics);
  }

  /** Resets the sums and the count; scoring resumes at once. */
  public void clearMetrics() {
    peer.run(Nuvik::nClearMetrics);
  }

  /** Mean average precision of the next lists; NaN before the first scored launch. */
  public double mapMetric() {
    return peer.call(Nuvik::nMapMetric);
  }

  /** Mean recall at five of the next lists; NaN before the first scored launch. */
  public double recallMetric() {
    return peer.call(Nuvik::nRecallMetric);
  }

  public double sumMap() {
    return peer.call(Nuvik::nSumMap);
  }

  public double sumRecall() {
    return peer.call(Nuvik::nSumRecall);
  }

  public long countKnownApps() {
    return peer.call(Nuvik::nCountKnownApps);
  }

  /**
   * The learned state as one line of JSON (UTF-8). A facade that has learned nothing writes a document that
   * {@link #load(byte[])} rejects.
   */
  public byte[] save() {
    return peer.call(Nuvik::nSave);
  }

  /** Writes {@link #save()} to {@code out}, which stays open. */
  public void save(OutputStream out) throws IOException {
    Objects.requireNonNull(out, "out");
    out.write(save());
  }

  /**
   * Replaces the predictors (and, when the document names any, the known applications) by those of a document
   * written by {@link #save()}. All or nothing.
   *
   * @throws NuvikFormatException if the document is rejected; the facade is then unchanged
   */
  public void load(byte[] document) throws NuvikFormatException {
    Objects.requireNonNull(document, "document");
    peer.run(address -> nLoad(address, document));
  }

  /** Reads {@code in} to its end, then loads it as {@link #load(byte[])} does; {@code in} stays open. */
  public void load(InputStream in) throws IOException, NuvikFormatException {
    Objects.requireNonNull(in, "in");
    ByteArrayOutputStream document = new ByteArrayOutputStream();
    byte[] buffer = new byte[8192];
    for (int read; (read = in.read(buffer)) != -1; ) document.write(buffer, 0, read);
    load(document.toByteArray());
  }

  /** "NUVIK library 1.3". */
  public String libraryInfo() {
    return peer.call(Nuvik::nLibraryInfo);
  }

  /**
   * The predictors line, "NUVIK library 1.3 [ predictors list: linear, double_linear ]"; "Nuvik (closed)" once
   * closed.
   */
  @Override
  public String toString() {
    return peer.callIfOpen(Nuvik::nDescribe, "Nuvik (closed)");
  }

  /** Frees the native facade; waits for a call in progress on another thread. Closing again does nothing. */
  @Override
  public void close() {
    peer.close();
  }

  /** Runs {@code call} on the native facade, holding its lock: how {@link Suggestions} reads the facade. */
  <T> T withFacade(NativeObject.Call<T, RuntimeException> call) {
    return peer.call(call);
  }

  /** {@code names} as an unmodifiable list. */
  static List<String> list(String[] names) {
    return Collections.unmodifiableList(Arrays.asList(names));
  }

  private static String[] nonNullElements(String[] values, String what) {
    for (String value : values) Objects.requireNonNull(value, what);
    return values;
  }

  /** Native facades created and not yet freed, across all instances. */
  static long liveNativeFacades() {
    return nLiveFacades();
  }

  /** {String[] names, int[] params} normalised by the C++ configuration; params may be null. */
  static Object[] normalize(String[] names, int[] params) {
    return nNormalize(names, params);
  }

  private static native long nCreateDefault();
  private static native long nCreateNamed(String[] names);
  private static native long nCreateConfigured(String[] names, int[] params, boolean skipRepeats,
      double killThreshold, long countLimit, double weightThreshold);
  private static native Object[] nNormalize(String[] names, int[] params);
  private static native void nDelete(long address);
  private static native long nLiveFacades();
  private static native void nUpdate(long address, String app, int hour, int minute);
  private static native void nUpdateTagged(long address, String app, int hour, int minute, String tag);
  private static native void nClear(long address);
  private static native String[] nNext(long address);
  private static native String[] nNextAt(long address, int hour, int minute);
  private static native String[] nNextAtFirst(long address, int hour, int minute, int count);
  private static native String[] nSoon(long address);
  private static native String[] nKill(long address);
  private static native double nWeight(long address, String app);
  private static native double nWeightDet(long address, String app);
  private static native double[] nWeights(long address, String[] apps);
  private static native double[] nWeightsAt(long address, int hour, int minute, String[] apps);
  private static native Object[] nAllWeights(long address);
  private static native double nSoonWeight(long address, double[] scores);
  private static native void nSetAppsPriority(long address, String[] apps, int[] priorities);
  private static native void nResetPriority(long address);
  private static native long nCountMetrics(long address);
  private static native void nClearMetrics(long address);
  private static native double nMapMetric(long address);
  private static native double nRecallMetric(long address);
  private static native double nSumMap(long address);
  private static native double nSumRecall(long address);
  private static native long nCountKnownApps(long address);
  private static native byte[] nSave(long address);
  private static native void nLoad(long address, byte[] document) throws NuvikFormatException;
  private static native String nLibraryInfo(long address);
  private static native String nDescribe(long address);
}
