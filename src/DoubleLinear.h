#ifndef NUVIK_DOUBLE_LINEAR_H_
#define NUVIK_DOUBLE_LINEAR_H_

#include <cstdint>
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
  void ScoreAppsAt(const std::tm& time, const AppList& apps, double* scores) const override;
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
  void RefreshPooledNames() const;
  // Recomputes the prediction exactly when Predict would.
  void RefreshPrediction();
  // The score of every pooled name for time slot `slot`, and whether it has one.
  void ComputeScores(int slot, std::vector<double>& out, std::vector<std::uint8_t>& outScored) const;
  // Position of `app` among `names` (which may be null); -1 when it is not there.
  static std::int64_t PositionIn(const PooledNames* names, const std::string& app);
  // result[i] = the score of apps.names[i] in a prediction over `names`.
  static void CopyScores(const AppList& apps, const AppListIndex<std::int64_t>& index, const PooledNames* names,
                         std::uint64_t revision, const std::vector<double>& source,
                         const std::vector<std::uint8_t>& sourceScored, double* result);
  // A fresh second stage whose history is the first stage's, reversed.
  void ReseedSecondStage();
  template <typename Value>
  bool ReadJson(const Value& value);

  std::unique_ptr<Linear> firstLinear;
  std::unique_ptr<Linear> secondLinear;
  bool predictionValid = false;
  std::tm lastTime{};

  // The pooled names of the current stages, valid while `pooledStale` is false
  // and the stages' dictionary revisions are the recorded ones: a cache of
  // what the stages determine, so const scoring may fill it.
  mutable std::shared_ptr<const PooledNames> pooled;
  mutable std::uint64_t pooledRevision = 0;
  mutable bool pooledStale = true;
  mutable std::uint64_t firstRevision = 0;
  mutable std::uint64_t secondRevision = 0;
  // Pooled position of each stage's name slots.
  mutable std::vector<std::uint32_t> pooledOfFirst;
  mutable std::vector<std::uint32_t> pooledOfSecond;

  // The last prediction: the names it was computed over, whether each has a
  // score (it is counted by a stage) and the score.
  std::shared_ptr<const PooledNames> predictionNames;
  std::vector<std::uint8_t> scored;
  std::vector<double> scores;
  std::uint64_t predictionRevision = 0;
  AppListIndex<std::int64_t> positionOfApp;

  // A prediction that is not kept, over the pooled names.
  mutable std::vector<double> scratchScores;
  mutable std::vector<std::uint8_t> scratchScored;
  AppListIndex<std::int64_t> positionOfPooledApp;

  // Scratch of a computation.
  mutable std::vector<double> firstNumerators;
  mutable std::vector<double> secondNumerators;
  mutable std::vector<Linear::Fraction> firstFractions;
  mutable std::vector<Linear::Fraction> secondFractions;
  mutable std::vector<std::uint32_t> reached;
  mutable std::vector<std::uint64_t> reachedStamp;
  mutable std::uint64_t stamp = 0;
};

}  // namespace NuvikPrediction

#endif  // NUVIK_DOUBLE_LINEAR_H_
