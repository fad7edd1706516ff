#ifndef NUVIK_TESTS_LINEAR_REFERENCE_H_
#define NUVIK_TESTS_LINEAR_REFERENCE_H_

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "Constants.h"

namespace NuvikPrediction::testing {

using Scores = std::map<std::string, double>;

inline double W(const std::string& key) { return kDefaultWeights.at(key); }

// Bit-for-bit equality of two score maps.
inline ::testing::AssertionResult SameBits(const Scores& expected, const Scores& actual) {
  if (expected.size() != actual.size()) {
    return ::testing::AssertionFailure() << "sizes " << expected.size() << " and " << actual.size();
  }
  for (auto e = expected.begin(), a = actual.begin(); e != expected.end(); ++e, ++a) {
    if (e->first != a->first) return ::testing::AssertionFailure() << "names " << e->first << " and " << a->first;
    if (std::memcmp(&e->second, &a->second, sizeof(double)) != 0) {
      return ::testing::AssertionFailure() << e->first << ": " << e->second << " and " << a->second;
    }
  }
  return ::testing::AssertionSuccess();
}

// An independent scorer straight from the scoring formula, recomputed from the
// raw launch list every time.
class ReferenceLinear {
 public:
  void Launch(const std::string& app, int hour, int minute) { launches.push_back({app, TimeSlot(hour, minute)}); }

  // DoubleLinear in its first phase pools the same statistics with a second
  // stage that only mirrors the history: previous-launch fractions 2/2, and
  // one more in every time denominator.
  Scores Predict(int bucket, bool firstPhaseOfDouble = false) const {
    Scores scores;
    if (launches.size() < 10) return scores;
    std::map<std::string, int> counts;
    for (const auto& launch : launches) ++counts[launch.first];
    std::vector<std::string> history;
    for (std::size_t i = 0; i < 10; ++i) history.push_back(launches[launches.size() - 1 - i].first);

    std::vector<std::map<std::string, std::pair<int, int>>> transitions(10);
    for (int k = 0; k < 10; ++k) {
      int sum = 0;
      std::map<std::string, int> followers;
      for (std::size_t j = static_cast<std::size_t>(k) + 1; j < launches.size(); ++j) {
        if (launches[j - 1 - static_cast<std::size_t>(k)].first != history[static_cast<std::size_t>(k)]) continue;
        ++sum;
        ++followers[launches[j].first];
      }
      for (const auto& [app, n] : followers) transitions[static_cast<std::size_t>(k)][app] = {n, sum};
    }

    std::map<std::string, double> time;
    for (const auto& entry : counts) time[entry.first] = 0.0;
    for (int d = -25; d <= 25; ++d) {
      const int slot = (bucket + 288 + d) % 288;
      std::map<std::string, int> inSlot;
      for (const auto& launch : launches) {
        if (launch.second == slot) ++inSlot[launch.first];
      }
      for (const auto& [app, n] : inSlot) time[app] += (1.0 + std::abs(d) / -26.0) * n;
    }
    double sum = 0.0;
    for (const auto& entry : time) sum += entry.second;
    const double timeDenominator = std::max(sum, 1.0) + (firstPhaseOfDouble ? 1.0 : 0.0);

    const double total = static_cast<double>(launches.size());
    for (const auto& [app, count] : counts) {
      double score = 0.0;
      if (firstPhaseOfDouble) score += (count / total) * W("counter");
      for (int k = 0; k < 10; ++k) {
        const auto& row = transitions[static_cast<std::size_t>(k)];
        const auto it = row.find(app);
        if (it != row.end()) score += (double(it->second.first) / it->second.second) * W("transition" + std::to_string(k));
        else if (firstPhaseOfDouble) score += 0.0 * W("transition" + std::to_string(k));
      }
      for (int k = 0; k < 10; ++k) {
        score += (history[static_cast<std::size_t>(k)] == app ? 1.0 : 0.0) * W("prev" + std::to_string(k));
      }
      score += (time.at(app) / timeDenominator) * W("time");
      if (!firstPhaseOfDouble) score += (count / total) * W("counter");
      scores[app] = score;
    }
    return scores;
  }

 private:
  std::vector<std::pair<std::string, int>> launches;
};

}  // namespace NuvikPrediction::testing

#endif  // NUVIK_TESTS_LINEAR_REFERENCE_H_
