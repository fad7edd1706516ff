#ifndef NUVIK_STAT_COUNTER_H_
#define NUVIK_STAT_COUNTER_H_

#include <cstdint>
#include <map>
#include <string>

#include "Predictor.h"

namespace NuvikPrediction {

// Popularity counter: scores an application by its share of all launches.
// Counts and total wrap modulo 2^32.
class StatCounter : public Predictor {
 public:
  StatCounter();

  void Update(const Updater& updater) override;
  void UpdateTime(const std::tm& time) override;
  std::map<std::string, double> Predict() override;
  double GetPrediction(const std::string& app) override;
  // An array of {"app", "popularity"} in name order; null when nothing was counted.
  Json::Value SerializeJson() const override;
  void WriteJson(JsonWriter& out) const override;
  // Merges the counts read into the current ones and sets the total to their
  // sum. Malformed elements are skipped; an element that is neither an object
  // nor null raises Json::LogicError.
  bool DeserializeJson(const Json::Value& value) override;
  void ScoreApps(const std::tm& time, const AppList& apps, double* scores) override;
  void ScoreAppsAt(const std::tm& time, const AppList& apps, double* scores) const override;
  bool DeserializeJson(const DomValue& value) override;

 private:
  template <typename Value>
  bool ReadJson(const Value& value);

  std::uint32_t total = 0;
  std::map<std::string, std::uint32_t> counts;
  // Changes whenever `counts` gains an entry.
  std::uint64_t revision = 0;
  // The count of each application of the facade's list; null when it has none.
  AppListIndex<const std::uint32_t*> countOfApp;
};

}  // namespace NuvikPrediction

#endif  // NUVIK_STAT_COUNTER_H_
