#ifndef NUVIK_DOUBLE_LINEAR_H_
#define NUVIK_DOUBLE_LINEAR_H_

#include <ctime>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "Linear.h"
#include "Predictor.h"

namespace NuvikPrediction {

// Two-stage linear predictor: two Linear models cover consecutive
// stretches of history. The first stage learns until it is full, then the
// second; when both are full the older one is dropped and a fresh second stage
// starts. Scores pool the two stages' raw feature fractions (numerators added,
// denominators added) before dividing and weighting.
class DoubleLinear : public Predictor {
 public:
  DoubleLinear();

  // Exactly one stage learns the launch; the other only records it in its
  // history. Clears the cached prediction.
  void Update(const Updater& updater) override;
  // Keeps the time for the next recomputation and passes it to both stages;
  // keeps the cached prediction.
  void UpdateTime(const std::tm& time) override;
  // Combined score of every application either stage counts; recomputed only
  // when the first stage's history holds ten launches and a launch was learned
  // since the last computation. A fresh map each call.
  std::map<std::string, double> Predict() override;
  // Score of one application from the same cache; 0.0 for one without a score.
  double GetPrediction(const std::string& app) override;
  // {"firstLinear": ..., "secondLinear": ...}, each a Linear model object.
  Json::Value SerializeJson() const override;
  void WriteJson(JsonWriter& out) const override;
  // False when the object or its first stage is rejected; a missing-in-value
  // or rejected second stage is replaced by a fresh one seeded with the first
  // stage's history (reversed). Keeps the cached prediction.
  bool DeserializeJson(const Json::Value& value) override;
  void ScoreApps(const std::tm& time, const AppList& apps, double* scores) override;
  bool DeserializeJson(const DomValue& value) override;

 private:
  // The names of both stages in name order, each with its slot in either
  // stage (-1 where the stage lacks it).
  struct PooledNames {
    std::vector<std::string> names;
    std::vector<std::int64_t> first;
    std::vector<std::int64_t> second;
  };

  // Rebuilds the pooled names when a stage's dictionary changed.
  void RefreshPooledNames();
  // Recomputes the prediction exactly when Predict would.
  void RefreshPrediction();
  // Position of `app` among the names of the prediction; -1 when it has no score.
  std::int64_t ScoredPosition(const std::string& app) const;
  // A fresh second stage whose history is the first stage's, reversed.
  void ReseedSecondStage();
  template <typename Value>
  bool ReadJson(const Value& value);

  std::unique_ptr<Linear> firstLinear;
  std::unique_ptr<Linear> secondLinear;
  bool predictionValid = false;
  std::tm lastTime{};

  // The pooled names of the current stages, valid while `pooledStale` is false
  // and the stages' dictionary revisions are the recorded ones.
  std::shared_ptr<const PooledNames> pooled;
  bool pooledStale = true;
  std::uint64_t firstRevision = 0;
  std::uint64_t secondRevision = 0;
  // Pooled position of each stage's name slots.
  std::vector<std::uint32_t> pooledOfFirst;
  std::vector<std::uint32_t> pooledOfSecond;

  // The last prediction: the names it was computed over, whether each has a
  // score (it is counted by a stage) and the score.
  std::shared_ptr<const PooledNames> predictionNames;
  std::vector<bool> scored;
  std::vector<double> scores;
  std::uint64_t predictionRevision = 0;
  AppListIndex<std::int64_t> positionOfApp;

  // Scratch of a recomputation.
  std::vector<double> firstNumerators;
  std::vector<double> secondNumerators;
  std::vector<Linear::Fraction> firstFractions;
  std::vector<Linear::Fraction> secondFractions;
  std::vector<std::uint32_t> reached;
  std::vector<std::uint64_t> reachedStamp;
  std::uint64_t stamp = 0;
};

}  // namespace NuvikPrediction

#endif  // NUVIK_DOUBLE_LINEAR_H_
