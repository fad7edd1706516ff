package nuvik;

import java.time.LocalTime;
import java.util.List;
import java.util.Objects;

/**
 * The row of applications a launcher shows, built from a facade's ranking for now: the Java face of the C++ class
 * {@code NuvikPrediction::Suggestions} in {@code libnuvik.so}.
 *
 * <p>A launcher shows a few applications, not the whole ranked list, and leaves out those its user does not want
 * there: applications already on screen, applications the user dismissed ({@link #dismiss(String)}), applications
 * not installed. Before the model knows enough, a fallback list fills the row. Optionally the row is kept steady from
 * one call to the next, so that an application stays where the user's thumb expects it. What a row is asked for is a
 * {@link RowRequest}.
 *
 * <p>An instance holds the dismissed applications and the last row it made; both are saved to and loaded from a small
 * JSON document of its own ({@link #save()}), beside the facade's. It reads a facade only through
 * {@link Nuvik#nextAt(int, int)} and changes nothing in it.
 *
 * <p>Threads and lifetime are as for {@link Nuvik}: the calls on one instance are serialised on its lock;
 * {@link #close()} frees the native object at once (closing twice does nothing), an instance never closed is freed
 * some time after it becomes unreachable, and every call after {@code close()} throws {@link IllegalStateException}.
 * A row for a facade holds this instance's lock, then the facade's, for the whole native call. Names cross as UTF-8,
 * as for {@link Nuvik}; null arguments throw {@link NullPointerException}.
 */
public final class Suggestions implements AutoCloseable {
  static {
    System.loadLibrary("nuvik_jni");
  }

  /**
   * How many places higher a newcomer must rank to take the slot of an application of the previous row, in a stable
   * row: the C++ {@code Suggestions::kStableMargin}.
   */
  public static final int STABLE_MARGIN = 3;

  private final NativeObject peer;

  /** No dismissed application and no previous row. */
  public Suggestions() {
    peer = new NativeObject(nCreate(), Suggestions::nDelete, "Suggestions");
  }

  /**
   * The row for {@code hour:minute}. The ranking is {@code model.nextAt(hour, minute)} followed by the request's
   * fallback, and its eligible applications (see {@link RowRequest}), in that order, are the candidates; an
   * application's rank is its position among them. Without {@link RowRequest#stable()}, the row is the first
   * {@link RowRequest#count()} candidates; it is shorter only when there are fewer candidates.
   *
   * <p>With {@code stable}, the previous row (the last one this instance made, cut to {@code count} slots; a shorter
   * one leaves the slots after it free) is the starting point. Its applications that are still candidates keep their
   * slots; the others' slots are free, as are those of a name's repeats. Then the first {@code count} candidates that
   * are not in the previous row, the newcomers, come in, best first: each takes the first free slot, or, when none is
   * left, the slot of the kept application ranked last, provided that it ranks at least {@link #STABLE_MARGIN} places
   * below the newcomer; the first newcomer that cannot come in ends the process. Free slots left (too few candidates)
   * close up. So the row holds as many applications as without {@code stable}, and an application of the previous
   * row that is still a candidate stays in it, in its slot when the row is full, unless a newcomer of the default row
   * outranks it by {@link #STABLE_MARGIN} places.
   *
   * <p>Either way the row becomes the previous row; the facade is only read. Hour and minute are passed on as they
   * are, as {@link Nuvik#update(String, int, int)} passes them. Unmodifiable.
   */
  public List<String> row(Nuvik model, int hour, int minute, RowRequest request) {
    Objects.requireNonNull(model, "model");
    Objects.requireNonNull(request, "request");
    return peer.call(address -> model.withFacade(facade -> Nuvik.list(nRowAt(address, facade, hour, minute,
        request.count(), request.excludeArray(), request.installedArray(), request.fallbackArray(),
        request.stable()))));
  }

  /** {@link #row(Nuvik, int, int, RowRequest)} at {@code now}'s hour and minute. */
  public List<String> row(Nuvik model, LocalTime now, RowRequest request) {
    return row(model, now.getHour(), now.getMinute(), request);
  }

  /**
   * The same rules over a ranking the caller holds, best first (a search's results, another ranker's list). The row
   * becomes the previous row. Unmodifiable.
   */
  public List<String> row(List<String> ranking, RowRequest request) {
    String[] names = ranking.toArray(new String[0]);
    for (String name : names) Objects.requireNonNull(name, "app");
    Objects.requireNonNull(request, "request");
    return peer.call(address -> Nuvik.list(nRowOf(address, names, request.count(), request.excludeArray(),
        request.installedArray(), request.fallbackArray(), request.stable())));
  }

  /** "Don't suggest": {@code app} appears in no row until it is restored. Dismissing it again makes it the latest. */
  public void dismiss(String app) {
    Objects.requireNonNull(app, "app");
    peer.run(address -> nDismiss(address, app));
  }

  /** The undo of {@link #dismiss(String)}; nothing happens for an application not dismissed. */
  public void restore(String app) {
    Objects.requireNonNull(app, "app");
    peer.run(address -> nRestore(address, app));
  }

  /** The dismissed applications, most recently dismissed first. Unmodifiable. */
  public List<String> dismissed() {
    return peer.call(address -> Nuvik.list(nDismissed(address)));
  }

  /** Restores every dismissed application. */
  public void clearDismissed() {
    peer.run(Suggestions::nClearDismissed);
  }

  /** The dismissed applications and the previous row as one line of JSON (UTF-8). */
  public byte[] save() {
    return peer.call(Suggestions::nSave);
  }

  /**
   * Replaces the dismissed applications and the previous row by those of a document written by {@link #save()}.
   * All or nothing.
   *
   * @throws NuvikFormatException if the document is rejected (not such a document, or of another version); nothing
   *     has changed then
   */
  public void load(byte[] document) throws NuvikFormatException {
    Objects.requireNonNull(document, "document");
    peer.run(address -> nLoad(address, document));
  }

  /** Frees the native object; waits for a call in progress on another thread. Closing again does nothing. */
  @Override
  public void close() {
    peer.close();
  }

  /** Native objects created and not yet freed, across all instances. */
  static long liveNativeObjects() {
    return nLiveObjects();
  }

  private static native long nCreate();
  private static native void nDelete(long address);
  private static native long nLiveObjects();
  private static native String[] nRowAt(long address, long model, int hour, int minute, int count, String[] exclude,
      String[] installed, String[] fallback, boolean stable);
  private static native String[] nRowOf(long address, String[] ranking, int count, String[] exclude,
      String[] installed, String[] fallback, boolean stable);
  private static native void nDismiss(long address, String app);
  private static native void nRestore(long address, String app);
  private static native String[] nDismissed(long address);
  private static native void nClearDismissed(long address);
  private static native byte[] nSave(long address);
  private static native void nLoad(long address, byte[] document) throws NuvikFormatException;
}
