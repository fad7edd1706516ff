#include "replay/Statistics.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>
#include <unordered_map>

namespace NuvikReplay {

namespace {

constexpr double kLowPercentile = 0.025;
constexpr double kHighPercentile = 0.975;

// Uniform indices below `n`, the same on every platform (the standard
// distributions are not): SplitMix64's numbers, multiplied by `n` and
// shifted, rejecting the few products that would favour some indices.
class IndexDraws {
 public:
  IndexDraws(std::uint64_t seed, std::uint32_t n) : state_(seed), n_(n), threshold_((0u - n) % n) {}

  std::uint32_t Next() {
    std::uint64_t product = (NextNumber() >> 32) * n_;
    while (static_cast<std::uint32_t>(product) < threshold_) product = (NextNumber() >> 32) * n_;
    return static_cast<std::uint32_t>(product >> 32);
  }

 private:
  std::uint64_t NextNumber() {
    std::uint64_t z = (state_ += 0x9e3779b97f4a7c15u);
    z = (z ^ (z >> 30)) * 0xbf58476d1ce4e5b9u;
    z = (z ^ (z >> 27)) * 0x94d049bb133111ebu;
    return z ^ (z >> 31);
  }

  std::uint64_t state_;
  std::uint32_t n_;
  std::uint32_t threshold_;
};

Interval PercentileInterval(std::vector<double> values) {
  Interval interval;
  values.erase(std::remove_if(values.begin(), values.end(), [](double v) { return std::isnan(v); }), values.end());
  if (values.empty()) return interval;
  std::sort(values.begin(), values.end());
  interval.low = Quantile(values, kLowPercentile);
  interval.high = Quantile(values, kHighPercentile);
  return interval;
}

// The distinct vectors among some: the scored launches of every run, say,
// are summed once.
class DistinctColumns {
 public:
  std::size_t Add(const std::vector<double>& values) {
    std::uint64_t hash = 14695981039346656037u;  // FNV-1a over the values' bits
    for (const double value : values) {
      std::uint64_t bits;
      std::memcpy(&bits, &value, sizeof bits);
      hash = (hash ^ bits) * 1099511628211u;
    }
    const auto [first, last] = byHash_.equal_range(hash);
    for (auto entry = first; entry != last; ++entry) {
      if (*columns_[entry->second] == values) return entry->second;
    }
    byHash_.emplace(hash, columns_.size());
    columns_.push_back(&values);
    return columns_.size() - 1;
  }

  const std::vector<const std::vector<double>*>& columns() const { return columns_; }

 private:
  std::vector<const std::vector<double>*> columns_;
  std::unordered_multimap<std::uint64_t, std::size_t> byHash_;
};

}  // namespace

std::vector<Interval> BootstrapRatios(const std::vector<RatioOfSums>& ratios, const BootstrapOptions& options) {
  DistinctColumns distinct;
  std::vector<std::pair<std::size_t, std::size_t>> ratioColumns;  // numerator, denominator
  for (const RatioOfSums& ratio : ratios) {
    ratioColumns.emplace_back(distinct.Add(ratio.numerator), distinct.Add(ratio.denominator));
  }
  const std::vector<const std::vector<double>*>& columnValues = distinct.columns();
  std::size_t users = 0;
  for (const std::vector<double>* values : columnValues) users = std::max(users, values->size());
  const std::size_t columns = columnValues.size();
  // User by user, every column side by side: a resample adds each drawn
  // user's row once per draw.
  std::vector<double> rows(users * columns, 0.0);
  for (std::size_t c = 0; c < columns; ++c) {
    for (std::size_t u = 0; u < columnValues[c]->size(); ++u) rows[u * columns + c] = (*columnValues[c])[u];
  }
  std::vector<double> sums(columns, 0.0);
  const auto ratioOfSums = [&](std::size_t r) {
    const double denominator = sums[ratioColumns[r].second];
    return denominator != 0.0 ? sums[ratioColumns[r].first] / denominator : std::nan("");
  };

  std::vector<Interval> intervals(ratios.size());
  for (std::size_t u = 0; u < users; ++u) {
    for (std::size_t c = 0; c < columns; ++c) sums[c] += rows[u * columns + c];
  }
  for (std::size_t r = 0; r < ratios.size(); ++r) intervals[r].value = ratioOfSums(r);
  if (users == 0 || users > std::numeric_limits<std::uint32_t>::max()) return intervals;

  std::vector<std::vector<double>> resampled(ratios.size(), std::vector<double>(options.resamples));
  std::vector<std::uint32_t> draws(users);
  IndexDraws random(options.seed, static_cast<std::uint32_t>(users));
  for (std::size_t b = 0; b < options.resamples; ++b) {
    std::fill(draws.begin(), draws.end(), 0);
    for (std::size_t i = 0; i < users; ++i) ++draws[random.Next()];
    std::fill(sums.begin(), sums.end(), 0.0);
    for (std::size_t u = 0; u < users; ++u) {
      if (draws[u] == 0) continue;
      const double weight = draws[u];
      const double* row = &rows[u * columns];
      for (std::size_t c = 0; c < columns; ++c) sums[c] += weight * row[c];
    }
    for (std::size_t r = 0; r < ratios.size(); ++r) resampled[r][b] = ratioOfSums(r);
  }
  for (std::size_t r = 0; r < ratios.size(); ++r) {
    const Interval percentiles = PercentileInterval(std::move(resampled[r]));
    intervals[r].low = percentiles.low;
    intervals[r].high = percentiles.high;
  }
  return intervals;
}

std::vector<PairedComparison> ComparePaired(const std::vector<std::vector<double>>& values,
                                            const std::vector<std::pair<std::size_t, std::size_t>>& pairs,
                                            const BootstrapOptions& options) {
  std::size_t users = 0;
  for (const std::vector<double>& run : values) users = std::max(users, run.size());
  const auto known = [&](std::size_t run, std::size_t u) {
    return run < values.size() && u < values[run].size() && !std::isnan(values[run][u]);
  };
  const auto compared = [&](const std::pair<std::size_t, std::size_t>& pair, std::size_t u) {
    return known(pair.first, u) && known(pair.second, u);
  };
  // The users compared in any pair; the mean difference is a ratio of sums
  // over them, each pair counting only its own users.
  std::vector<std::size_t> kept;
  for (std::size_t u = 0; u < users; ++u) {
    if (std::any_of(pairs.begin(), pairs.end(), [&](const auto& pair) { return compared(pair, u); })) {
      kept.push_back(u);
    }
  }
  std::vector<PairedComparison> comparisons(pairs.size());
  std::vector<RatioOfSums> differences(pairs.size());
  for (std::size_t p = 0; p < pairs.size(); ++p) {
    PairedComparison& comparison = comparisons[p];
    for (const std::size_t u : kept) {
      const bool counted = compared(pairs[p], u);
      const double difference = counted ? values[pairs[p].first][u] - values[pairs[p].second][u] : 0.0;
      differences[p].numerator.push_back(difference);
      differences[p].denominator.push_back(counted ? 1.0 : 0.0);
      if (!counted) continue;
      ++comparison.users;
      ++(difference > 0.0 ? comparison.better : difference < 0.0 ? comparison.worse : comparison.equal);
    }
  }
  const std::vector<Interval> intervals = BootstrapRatios(differences, options);
  for (std::size_t p = 0; p < pairs.size(); ++p) comparisons[p].meanDifference = intervals[p];
  return comparisons;
}

double Quantile(const std::vector<double>& sorted, double p) {
  const double position = p * static_cast<double>(sorted.size() - 1);
  const auto below = static_cast<std::size_t>(std::floor(position));
  if (below + 1 >= sorted.size()) return sorted.back();
  return sorted[below] + (position - static_cast<double>(below)) * (sorted[below + 1] - sorted[below]);
}

Spread SpreadOf(std::vector<double> values) {
  values.erase(std::remove_if(values.begin(), values.end(), [](double v) { return std::isnan(v); }), values.end());
  Spread spread;
  spread.count = values.size();
  if (values.empty()) return spread;
  std::sort(values.begin(), values.end());
  double sum = 0.0;
  for (const double value : values) sum += value;
  spread.mean = sum / static_cast<double>(values.size());
  spread.p5 = Quantile(values, 0.05);
  spread.q1 = Quantile(values, 0.25);
  spread.median = Quantile(values, 0.5);
  spread.q3 = Quantile(values, 0.75);
  spread.p95 = Quantile(values, 0.95);
  return spread;
}

}  // namespace NuvikReplay
