#ifndef NUVIK_DOUBLE_LINEAR_H_
#define NUVIK_DOUBLE_LINEAR_H_

#include <ctime>
#include <map>
#include <memory>
#include <string>

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
  // Score of one application from the same cache as Predict (without copying
  // it); 0.0 for an application without a score.
  double GetPrediction(const std::string& app) override;
  // {"firstLinear": ..., "secondLinear": ...}, each a Linear model object.
  Json::Value SerializeJson() const override;
  // False when the object or its first stage is rejected; a missing-in-value
  // or rejected second stage is replaced by a fresh one seeded with the first
  // stage's history (reversed).
  bool DeserializeJson(const Json::Value& value) override;
  bool DeserializeJson(const DomValue& value) override;

 private:
  // Recomputes prediction exactly when Predict would.
  void RefreshPrediction();
  // Adds the pooled fractions of one feature for every application in apps.
  void Combine(const std::map<std::string, Linear::Fraction>& first,
               const std::map<std::string, Linear::Fraction>& second, const std::string& key);
  // Adds the previous-launch feature, given by the name at that place of each
  // stage's history.
  void AddPreviousLaunch(const std::string* first, const std::string* second, const std::string& key);
  // A fresh second stage whose history is the first stage's, reversed.
  void ReseedSecondStage();
  template <typename Value>
  bool ReadJson(const Value& value);

  std::map<std::string, double> prediction;
  std::unique_ptr<Linear> firstLinear;
  std::unique_ptr<Linear> secondLinear;
  bool predictionValid = false;
  std::tm lastTime{};
};

}  // namespace NuvikPrediction

#endif  // NUVIK_DOUBLE_LINEAR_H_
