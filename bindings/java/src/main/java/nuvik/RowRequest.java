package nuvik;

import java.util.Arrays;
import java.util.Collections;
import java.util.List;
import java.util.Objects;

/**
 * What a {@link Suggestions} row is asked for. An application is eligible for the row when its name is not empty, it
 * is not in {@link #exclude()}, not dismissed, in {@link #installed()} (when that is not empty) and not already in
 * the row. Immutable.
 *
 * <pre>{@code
 * RowRequest request = RowRequest.builder().count(4).exclude(dock).fallback("com.example.camera").stable(true).build();
 * }</pre>
 */
public final class RowRequest {
  private final int count;
  private final String[] exclude;
  private final String[] installed;
  private final String[] fallback;
  private final boolean stable;

  private RowRequest(Builder builder) {
    count = builder.count;
    exclude = builder.exclude;
    installed = builder.installed;
    fallback = builder.fallback;
    stable = builder.stable;
  }

  /** A builder with the defaults: count 5, empty lists, not stable. */
  public static Builder builder() {
    return new Builder();
  }

  /** The row's size (default 5). */
  public int count() {
    return count;
  }

  /** Applications already on screen (the dock, the first page, pinned ones), left out of the row. Unmodifiable. */
  public List<String> exclude() {
    return Collections.unmodifiableList(Arrays.asList(exclude));
  }

  /** When not empty, only these applications may appear. Unmodifiable. */
  public List<String> installed() {
    return Collections.unmodifiableList(Arrays.asList(installed));
  }

  /** Applications that fill, in order, the slots the ranking leaves. Unmodifiable. */
  public List<String> fallback() {
    return Collections.unmodifiableList(Arrays.asList(fallback));
  }

  /** Whether the previous row's applications keep their places (default false); see {@link Suggestions}. */
  public boolean stable() {
    return stable;
  }

  String[] excludeArray() {
    return exclude;
  }

  String[] installedArray() {
    return installed;
  }

  String[] fallbackArray() {
    return fallback;
  }

  @Override
  public String toString() {
    return "RowRequest[count " + count + ", exclude " + Arrays.toString(exclude) + ", installed "
        + Arrays.toString(installed) + ", fallback " + Arrays.toString(fallback) + ", stable " + stable + "]";
  }

  /** Builds a {@link RowRequest}; every setter may be left out. The lists are copied. */
  public static final class Builder {
    private int count = 5;
    private String[] exclude = {};
    private String[] installed = {};
    private String[] fallback = {};
    private boolean stable;

    private Builder() {}

    /**
     * The row's size.
     *
     * @throws IllegalArgumentException if {@code value} is negative
     */
    public Builder count(int value) {
      if (value < 0) throw new IllegalArgumentException("count must not be negative: " + value);
      count = value;
      return this;
    }

    /** Applications already on screen, left out of the row. */
    public Builder exclude(List<String> apps) {
      exclude = copy(apps);
      return this;
    }

    /** As {@link #exclude(List)}. */
    public Builder exclude(String... apps) {
      return exclude(Arrays.asList(apps));
    }

    /** The installed applications; when not empty, only these may appear. */
    public Builder installed(List<String> apps) {
      installed = copy(apps);
      return this;
    }

    /** As {@link #installed(List)}. */
    public Builder installed(String... apps) {
      return installed(Arrays.asList(apps));
    }

    /** Applications that fill, in order, the slots the ranking leaves. */
    public Builder fallback(List<String> apps) {
      fallback = copy(apps);
      return this;
    }

    /** As {@link #fallback(List)}. */
    public Builder fallback(String... apps) {
      return fallback(Arrays.asList(apps));
    }

    /** Whether the previous row's applications keep their places. */
    public Builder stable(boolean value) {
      stable = value;
      return this;
    }

    /** The request as set so far; the builder may go on to build others. */
    public RowRequest build() {
      return new RowRequest(this);
    }

    private static String[] copy(List<String> apps) {
      String[] copy = apps.toArray(new String[0]);
      for (String app : copy) Objects.requireNonNull(app, "app");
      return copy;
    }
  }
}
