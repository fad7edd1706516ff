#ifndef NUVIK_TESTS_LINEAR_REFERENCE_H_
#define NUVIK_TESTS_LINEAR_REFERENCE_H_

#include <algorithm>
#include <cstdlib>
#include <map>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "Constants.h"
#include "TestUtil.h"

namespace NuvikPrediction::testing {

using Scores = std::map<std::string, double>;

inline double W(const std::string& key) { return kDefaultWeights.at(key); }

// A small document of a linear model over "a" and "b", which the reader accepts.
inline constexpr const char* kLinearModel = R"({
  "last": [{"lastApp": 1}, {"lastApp": 0}],
  "strToId": [{"app": "a", "id": 0}, {"app": "b", "id": 1}],
  "transitions": [{"step": 0, "appFrom": 0, "appTo": 1, "cnt": 2}],
  "timeBuckets": [{"bucket": 96, "app": 0, "cnt": 1}, {"bucket": 97, "app": 1, "cnt": 2}],
  "statCounter": [{"app": 0, "cnt": 1}, {"app": 1, "cnt": 2}]
})";

// Scores straight from the formula, recomputed from the raw launch list.
// pooled: as a DoubleLinear whose second stage only mirrors the history, which
// leaves every previous-launch value alone and adds one to the time denominator.
class ReferenceLinear {
 public:
  void Launch(const std::string& app, int hour, int minute) { launches.emplace_back(app, TimeSlot(hour, minute)); }

  Scores Predict(int bucket, bool pooled = false) const {
    Scores scores;
    const std::size_t n = launches.size();
    if (n < 10) return scores;
    std::map<std::string, int> counts;
    std::map<int, std::map<std::string, int>> bySlot;
    for (const auto& [app, slot] : launches) {
      ++counts[app];
      ++bySlot[slot][app];
    }
    std::map<std::string, double> time;
    for (int d = -25; d <= 25; ++d) {
      for (const auto& [app, c] : bySlot[(bucket + 288 + d) % 288]) time[app] += (1.0 + std::abs(d) / -26.0) * c;
    }
    double sum = 0.0;
    for (const auto& entry : time) sum += entry.second;
    const double timeDenominator = std::max(sum, 1.0) + (pooled ? 1.0 : 0.0);
    // followers[k][c]: launches of c while the application now k + 1 launches ago stood there.
    std::vector<std::map<std::string, int>> followers(10);
    std::vector<int> totals(10);
    for (std::size_t k = 0; k < 10; ++k) {
      for (std::size_t j = k + 1; j < n; ++j) {
        if (launches[j - 1 - k].first != launches[n - 1 - k].first) continue;
        ++totals[k];
        ++followers[k][launches[j].first];
      }
    }
    for (const auto& [app, count] : counts) {
      const double share = count / static_cast<double>(n) * W("counter");
      double score = pooled ? share : 0.0;
      for (std::size_t k = 0; k < 10; ++k) {
        const auto it = followers[k].find(app);
        if (it != followers[k].end()) score += double(it->second) / totals[k] * W("transition" + std::to_string(k));
      }
      for (std::size_t k = 0; k < 10; ++k) {
        score += (launches[n - 1 - k].first == app ? 1.0 : 0.0) * W("prev" + std::to_string(k));
      }
      score += time[app] / timeDenominator * W("time");
      scores[app] = pooled ? score : score + share;
    }
    return scores;
  }

 private:
  std::vector<std::pair<std::string, int>> launches;
};

// Feeds `model` and the reference one random stream, comparing the scores
// before every launch bit for bit, by Predict and by GetPrediction.
template <typename Model>
void ExpectMatchesReference(Model& model, bool pooled, unsigned seed, int launches) {
  std::mt19937 random(seed);
  ReferenceLinear reference;
  for (int step = 0, minute = 0; step < launches; ++step) {
    minute += 1 + static_cast<int>(random() % 40);
    const int hour = minute / 60 % 24;
    model.UpdateTime(At(hour, minute % 60));  // the scores use this time, not that of the last launch
    const Scores scores = model.Predict();
    ASSERT_EQ(scores, reference.Predict(TimeSlot(hour, minute % 60), pooled)) << step;
    model.UpdateTime(At(hour + 5, 0));  // the cache outlives a change of time
    ASSERT_EQ(model.Predict(), scores) << step;
    for (const auto& [app, score] : scores) ASSERT_EQ(model.GetPrediction(app), score) << step;
    const std::string app = "app" + std::to_string(random() % 3 == 0 ? random() % 30 : random() % 6);
    Launch(model, app, hour, minute % 60);
    reference.Launch(app, hour, minute % 60);
  }
}

}  // namespace NuvikPrediction::testing

#endif  // NUVIK_TESTS_LINEAR_REFERENCE_H_
