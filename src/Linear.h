#ifndef NUVIK_LINEAR_H_
#define NUVIK_LINEAR_H_

#include <cstdint>
#include <deque>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "Predictor.h"

namespace NuvikPrediction {

// Linear scorer over 22 launch features (Parts 2.1 to 2.3): transition
// probabilities from each of the ten last launches, indicators of those ten
// launches, a triangular time-of-day kernel and the share of all launches,
// weighted with the default weight table of Constants.h. Every table is keyed
// by a dense application id; counts are 32-bit and wrap.
class Linear : public Predictor {
 public:
  // One feature's raw estimate for one application; its value is
  // numerator / denominator, or 0.0 when the denominator is below 1e-9.
  struct Fraction {
    double numerator = 0.0;
    double denominator = 0.0;
  };
  using FeatureResult = std::map<std::string, Fraction>;

  Linear();

  // Learns one launch: counts it against the history as it stood before it,
  // then pushes it onto the history. Clears the cached prediction.
  void Update(const Updater& updater) override;
  // Moves the current time bucket; keeps the cached prediction.
  void UpdateTime(const std::tm& time) override;
  // Score of every known application: computed once the history holds ten
  // launches, then cached until the next Update. A fresh map each call.
  std::map<std::string, double> Predict() override;
  // Score of one application, from the same cache as Predict (without copying
  // it); 0.0 for an application without a score.
  double GetPrediction(const std::string& app) override;
  // {"last", "statCounter", "strToId", "timeBuckets", "transitions"}, each null
  // when empty, which this reader rejects.
  Json::Value SerializeJson() const override;
  // Loads a model object; false rejects it, possibly after some tables were
  // already replaced.
  bool DeserializeJson(const Json::Value& value) override;
  bool DeserializeJson(const DomValue& value) override;

  // Gives app an id if it has none.
  void UpdateDict(const std::string& app);
  // Records app as the most recent launch without learning from it.
  void UpdateLastLaunches(const std::string& app);
  // Names of the history, most recent first; an id without a name (only
  // possible after loading) yields an empty string.
  std::vector<std::string> GetLastLaunches() const;
  // Same as UpdateTime, from an hour and a minute.
  void UpdateTimeInternal(int hour, int minute);
  // True when more than 5000 applications have a launch count.
  bool IsFull() const;

  // Feature estimates per application. PredictTransition reads lastLaunches[k];
  // when the history is shorter than k + 1 (only possible when a caller asks
  // outside Predict) it answers as if position k held no known application.
  FeatureResult PredictTransition(int k) const;
  // The previous-launch feature k is 1/1 for the application at position k of
  // the history and 0/0 for every other one, which adds nothing to a score, so
  // it is given as that application's name alone: null when the history is
  // shorter than k + 1 or the id there has no name.
  const std::string* PreviousLaunch(int k) const;
  FeatureResult PredictTime(int bucket) const;
  FeatureResult PredictCounter() const;
  // Adds value × kDefaultWeights.at(key) of every entry of result to prediction.
  void AddPredictionResult(const FeatureResult& result, std::string key);

  // One member of the model object each (null when empty).
  Json::Value SerializeTransitions() const;
  Json::Value SerializeTimeBuckets() const;
  Json::Value SerializeLastLaunches() const;
  Json::Value SerializeAppToId() const;
  Json::Value SerializeStatCounter() const;
  template <typename Value>
  bool CheckModelJson(const Value& value) const;
  // Each fills one table from an array, skipping elements that do not qualify,
  // and returns the ids (as read, before narrowing) the accepted elements name.
  template <typename Value>
  std::set<std::uint64_t> DeserializeLastLaunches(const Value& array);
  template <typename Value>
  std::set<std::uint64_t> DeserializeStrToId(const Value& array);
  template <typename Value>
  std::set<std::uint64_t> DeserializeTransitions(const Value& array);
  template <typename Value>
  std::set<std::uint64_t> DeserializeTimeBuckets(const Value& array);
  // Asks an element for its members without testing that it is an object: an
  // element that is neither an object nor empty raises Json::LogicError.
  template <typename Value>
  std::set<std::uint64_t> DeserializeCounter(const Value& array);
  bool VerifyDeserialization(const std::set<std::uint64_t>& known, const std::set<std::uint64_t>& transitionIds,
                             const std::set<std::uint64_t>& bucketIds,
                             const std::set<std::uint64_t>& counterIds) const;
  void CalculateSumTransitions();

 private:
  static constexpr std::size_t kHistory = 10;

  // Recomputes prediction exactly when Predict would.
  void RefreshPrediction();
  template <typename Value>
  bool ReadJson(const Value& value);

  std::deque<std::int32_t> lastLaunches;
  std::map<std::string, std::int32_t> strToId;
  std::map<std::int32_t, std::string> idToStr;
  std::vector<std::map<std::int32_t, std::map<std::int32_t, std::int32_t>>> transitions;
  std::vector<std::map<std::int32_t, std::int32_t>> sumTransitions;
  std::vector<std::map<std::int32_t, std::int32_t>> timeBuckets;
  std::map<std::int32_t, std::int32_t> statCounter;
  std::map<std::string, double> prediction;
  int currentBucket = 0;
  bool predictionValid = false;
};

}  // namespace NuvikPrediction

#endif  // NUVIK_LINEAR_H_
