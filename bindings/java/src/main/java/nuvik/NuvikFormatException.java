package nuvik;

/**
 * Thrown by {@link Nuvik#load(byte[])} when the document is rejected: not JSON, truncated, of another version,
 * nested deeper than 1000 levels or holding tables of the wrong shape. The facade is unchanged after it.
 */
public final class NuvikFormatException extends Exception {
  private static final long serialVersionUID = 1L;

  public NuvikFormatException(String message) {
    super(message);
  }
}
