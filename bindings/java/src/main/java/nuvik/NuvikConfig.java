package nuvik;

import java.util.Arrays;
import java.util.Objects;

/**
 * Configuration of a facade: one predictor slot per type name, with the integer parameter of the same index.
 * The lists are normalised as the C++ configuration does it: with {@code params} given, an empty name list becomes
 * {@code stat_counter}, missing parameters are 1 and missing names repeat the last one; without {@code params},
 * every name gets parameter 1. Immutable.
 *
 * <pre>{@code
 * NuvikConfig config = NuvikConfig.builder().predictors("knn_regression").params(5).skipRepeats(true).build();
 * }</pre>
 */
public final class NuvikConfig {
  private final String[] predictors;
  private final int[] params;
  private final boolean skipRepeats;
  private final double killThreshold;
  private final long countLimit;
  private final double weightThreshold;

  private NuvikConfig(Builder builder) {
    Object[] normalised = Nuvik.normalize(builder.predictors, builder.params);
    predictors = (String[]) normalised[0];
    params = (int[]) normalised[1];
    skipRepeats = builder.skipRepeats;
    killThreshold = builder.killThreshold;
    countLimit = builder.countLimit;
    weightThreshold = builder.weightThreshold;
  }

  public static Builder builder() {
    return new Builder();
  }

  /** Slot type names, normalised. */
  public String[] predictors() {
    return predictors.clone();
  }

  /** Slot parameters, normalised; as many as {@link #predictors()}. */
  public int[] params() {
    return params.clone();
  }

  /** Ignore a launch of the same application as the last accepted one (default false). */
  public boolean skipRepeats() {
    return skipRepeats;
  }

  /** Kill-list threshold on the first slot's score (default 0.05). */
  public double killThreshold() {
    return killThreshold;
  }

  /** Stored only (default 60). */
  public long countLimit() {
    return countLimit;
  }

  /** Stored only (default 0.5). */
  public double weightThreshold() {
    return weightThreshold;
  }

  @Override
  public String toString() {
    return "NuvikConfig" + Arrays.toString(predictors) + Arrays.toString(params);
  }

  /** Builds a {@link NuvikConfig}; every setter may be left out. */
  public static final class Builder {
    private String[] predictors = {};
    private int[] params;
    private boolean skipRepeats;
    private double killThreshold = 0.05;
    private long countLimit = 60;
    private double weightThreshold = 0.5;

    private Builder() {}

    public Builder predictors(String... names) {
      predictors = names.clone();
      for (String name : predictors) Objects.requireNonNull(name, "predictor name");
      return this;
    }

    public Builder params(int... values) {
      params = values.clone();
      return this;
    }

    public Builder skipRepeats(boolean value) {
      skipRepeats = value;
      return this;
    }

    public Builder killThreshold(double value) {
      killThreshold = value;
      return this;
    }

    /** @throws IllegalArgumentException if {@code value} is negative */
    public Builder countLimit(long value) {
      if (value < 0) throw new IllegalArgumentException("countLimit must not be negative: " + value);
      countLimit = value;
      return this;
    }

    public Builder weightThreshold(double value) {
      weightThreshold = value;
      return this;
    }

    public NuvikConfig build() {
      return new NuvikConfig(this);
    }
  }
}
