package nuvik;

import java.lang.ref.Reference;
import java.util.function.LongConsumer;

/**
 * A C++ object owned by one Java object ({@link Nuvik}, {@link Suggestions}): its address, the lock that serialises
 * the calls on it, and its freeing, exactly once, by {@link #close()} or by the {@link NativeReaper} once this object
 * is unreachable. The owner holds the only reference to it, so that it becomes unreachable with the owner, and every
 * call keeps it reachable until the native code returns.
 */
final class NativeObject {
  /** A native call that answers a value. */
  interface Call<T, E extends Exception> {
    T on(long address) throws E;
  }

  /** A native call that answers nothing. */
  interface Action<E extends Exception> {
    void on(long address) throws E;
  }

  private final Object lock = new Object();
  private final String closedMessage;
  private long address;  // guarded by lock; 0 once closed
  private final NativeReaper.Handle handle;

  /** Owns {@code address}, which {@code delete} frees; once closed, calls throw "{@code name} is closed". */
  NativeObject(long address, LongConsumer delete, String name) {
    this.address = address;
    this.closedMessage = name + " is closed";
    this.handle = NativeReaper.track(this, address, delete);
  }

  /**
   * Runs {@code call} on the address, holding the lock.
   *
   * @throws IllegalStateException once closed
   */
  <T, E extends Exception> T call(Call<T, E> call) throws E {
    synchronized (lock) {
      try {
        return call.on(open());
      } finally {
        Reference.reachabilityFence(this);
      }
    }
  }

  /** As {@link #call(Call)}, for a call that answers nothing. */
  <E extends Exception> void run(Action<E> action) throws E {
    synchronized (lock) {
      try {
        action.on(open());
      } finally {
        Reference.reachabilityFence(this);
      }
    }
  }

  /** As {@link #call(Call)}, but answers {@code whenClosed} once closed. */
  <T> T callIfOpen(Call<T, RuntimeException> call, T whenClosed) {
    synchronized (lock) {
      try {
        return address == 0 ? whenClosed : call.on(address);
      } finally {
        Reference.reachabilityFence(this);
      }
    }
  }

  /** Frees the native object; waits for a call in progress on another thread. Closing again does nothing. */
  void close() {
    synchronized (lock) {
      address = 0;
      handle.free();
    }
  }

  private long open() {
    if (address == 0) throw new IllegalStateException(closedMessage);
    return address;
  }
}
