// Statistics of per-user results: bootstrap intervals over users, paired
// comparisons of two runs user by user, and the spread of per-user values.
//
// Resamples draw users with replacement from a fixed seed, so the same
// results always give the same intervals.
#ifndef NUVIK_TOOLS_REPLAY_STATISTICS_H_
#define NUVIK_TOOLS_REPLAY_STATISTICS_H_

#include <cstddef>
#include <cstdint>
#include <limits>
#include <utility>
#include <vector>

namespace NuvikReplay {

// A value measured on all users and its 95% bootstrap interval: the 2.5th
// and 97.5th percentiles of the value measured on the resamples.
struct Interval {
  double value = std::numeric_limits<double>::quiet_NaN();
  double low = std::numeric_limits<double>::quiet_NaN();
  double high = std::numeric_limits<double>::quiet_NaN();
};

struct BootstrapOptions {
  std::size_t resamples = 1000;
  std::uint64_t seed = 0x6e75766b;
};

// sum(numerator) / sum(denominator) over users: how the tool's means are
// taken from their users' sums and counts.
struct RatioOfSums {
  std::vector<double> numerator;    // one per user
  std::vector<double> denominator;  // one per user, in the same order
};

// Each ratio with its interval. A resample draws as many users as there are,
// with replacement; every ratio sees the same resamples. A resample whose
// denominator is zero has no value and is left out; with none left, or no
// user, the interval is NaN, and so is the value when the whole denominator
// is zero. A ratio holding fewer users than another counts nothing for the
// users it lacks.
std::vector<Interval> BootstrapRatios(const std::vector<RatioOfSums>& ratios, const BootstrapOptions& options = {});

// A run against a reference, user by user.
struct PairedComparison {
  Interval meanDifference;  // mean over the users compared of (run - reference)
  std::size_t users = 0;    // compared
  std::size_t better = 0;   // run above reference
  std::size_t equal = 0;
  std::size_t worse = 0;
};

// `values` holds per-user values of several runs, users in the same order;
// each pair is (run, reference) as indices into it. A user with NaN on
// either side is left out of that pair. The intervals resample the users
// compared in any pair, each user's values kept together, and all pairs see
// the same resamples.
std::vector<PairedComparison> ComparePaired(const std::vector<std::vector<double>>& values,
                                            const std::vector<std::pair<std::size_t, std::size_t>>& pairs,
                                            const BootstrapOptions& options = {});

// The value at fraction `p` of sorted values, interpolated linearly between
// the two nearest at position p * (size - 1). `sorted` must not be empty.
double Quantile(const std::vector<double>& sorted, double p);

// How per-user values spread; NaN values are left out, and with none left
// every field but `count` is NaN.
struct Spread {
  std::size_t count = 0;
  double mean = std::numeric_limits<double>::quiet_NaN();
  double p5 = std::numeric_limits<double>::quiet_NaN();
  double q1 = std::numeric_limits<double>::quiet_NaN();
  double median = std::numeric_limits<double>::quiet_NaN();
  double q3 = std::numeric_limits<double>::quiet_NaN();
  double p95 = std::numeric_limits<double>::quiet_NaN();
};

Spread SpreadOf(std::vector<double> values);

}  // namespace NuvikReplay

#endif  // NUVIK_TOOLS_REPLAY_STATISTICS_H_
