#ifndef NUVIK_KNN_REGRESSION_H_
#define NUVIK_KNN_REGRESSION_H_

#include <array>
#include <cstddef>
#include <cstdint>
#include <map>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "Constants.h"
#include "Predictor.h"

namespace NuvikPrediction {

// Kernel regression over the time of day. Every five-minute slot keeps a few
// (launched, previous) application pairs in two generations; an application
// scores the kernel-weighted count of the pairs it launched within 26 slots
// of the current one, over that of all pairs there. The distance of a pair
// mixes the slot distance with penalties for applications that differ from
// the recent ones. Predict() is always empty.
class KnnRegression final : public Predictor {
 public:
  // Kernel selectors; any other value is the triangular kernel.
  static constexpr std::int64_t kUniform = 1;
  static constexpr std::int64_t kEpanechnikov = 2;
  static constexpr std::int64_t kTriweight = 3;
  static constexpr std::int64_t kGaussian = 4;

  // Triangular kernel, as loaded models start.
  KnnRegression();
  explicit KnnRegression(std::int64_t function);

  void Update(const Updater& updater) override;
  // Sets the slot that GetPrediction looks around.
  void UpdateTime(const std::tm& time) override;
  std::map<std::string, double> Predict() override;
  // 0.0 for an unknown application; NaN when no pair lies in the span.
  double GetPrediction(const std::string& app) override;
  // {"counters" (576 tables), "function", "previous" (3 ids), "strToId"};
  // empty tables and an empty dictionary are null, which this reader rejects.
  Json::Value SerializeJson() const override;
  void WriteJson(JsonWriter& out) const override;
  // Adds the dictionary and the pairs read to those held. False rejects the
  // value and may leave it partly read: the kernel, the recent ids, the
  // dictionary, then the pairs.
  bool DeserializeJson(const Json::Value& value) override;
  void ScoreApps(const std::tm& time, const AppList& apps, double* scores) override;
  void ScoreAppsAt(const std::tm& time, const AppList& apps, double* scores) const override;
  bool DeserializeJson(const DomValue& value) override;

  // Kernel-weighted count, at slot distance `distance`, of the pairs of
  // counters[table] (0..575) from (id, 0) to (id, nextId), those that
  // launched `id`; and of all its pairs.
  double CalculateFirstWeight(std::uint64_t id, int table, double distance) const;
  double CalculateSecondWeight(int table, double distance) const;
  double ExecuteKernel(double u) const;

  // True when `model` is a non-empty object with the four members.
  template <typename Value>
  bool CheckModelJson(const Value& model) const;
  // True when every id in `used` is in `known`.
  static bool VerifyDeserialization(const std::set<std::uint64_t>& used, const std::set<std::uint64_t>& known);

 private:
  // (launched application, application launched before it) -> count.
  using PairCounts = std::map<std::pair<std::uint64_t, std::uint64_t>, std::uint64_t>;

  static constexpr std::size_t kPreviousSize = 3;
  static constexpr std::size_t kTables = 2 * kSlotsPerDay;

  // Readers of the array members, adding to what is held; malformed
  // elements are skipped. Each returns the ids it saw.
  template <typename Value>
  std::set<std::uint64_t> DeserializeStrToId(const Value& dictionary);
  template <typename Value>
  std::set<std::uint64_t> DeserializeCounters(const Value& tables);
  template <typename Value>
  bool ReadJson(const Value& model);

  double WeightedSum(PairCounts::const_iterator first, PairCounts::const_iterator last, double distance) const;
  // The kernel-weighted count of all `pairs`; byLaunched gets, for each
  // launched application in id order, that of its pairs (those the first
  // weight takes).
  double SumByLaunched(const PairCounts& pairs, double distance,
                       std::vector<std::pair<std::uint64_t, double>>& byLaunched) const;
  // Scaled distance of a pair from the present, `slots` slots away.
  static double Distance(std::uint64_t launched, std::uint64_t preceding, std::uint64_t launchedBefore,
                         std::uint64_t newest, double slots);
  // Fills the span cache for `slot` unless it holds that slot's sums.
  void RefreshSpan(int slot) const;
  // A lenient load may leave `previous` short: missing entries read as 0,
  // and writing one pads with zeros up to it.
  std::uint64_t PreviousAt(std::int32_t index) const;
  void SetPrevious(std::int32_t index, std::uint64_t id);

  // The entry of `previous` that the next launch overwrites; 0 or 1. After a
  // launch it holds the launch before the newest, the other entry the newest.
  std::int32_t previousIndex = 0;
  std::int32_t currentBucket = 0;
  std::uint64_t nextId = 0;
  std::int64_t function;
  // Only entries 0 and 1 are learned; entry 2 is kept for the document.
  std::vector<std::uint64_t> previous = std::vector<std::uint64_t>(kPreviousSize, 0);
  // counters[b] is the older generation of slot b, counters[b + 288] the
  // newer; learning keeps at most two pairs in each.
  std::array<PairCounts, kTables> counters;
  std::map<std::string, std::uint64_t> strToId;

  // The regression's sums over the span around `spanSlot`, shared by every
  // prediction for that slot until a launch or a load: the numerator of each
  // application with a pair there, and the denominator. A cache of what the
  // tables and the slot determine, so const scoring may fill it.
  mutable bool spanValid = false;
  mutable int spanSlot = 0;
  mutable std::vector<std::pair<std::uint64_t, double>> spanNumerators;  // by id
  mutable double spanDenominator = 0.0;
  // Scratch of RefreshSpan.
  mutable std::vector<std::pair<std::uint64_t, double>> gains;
  mutable std::vector<std::pair<std::uint64_t, double>> olderWeights;
  mutable std::vector<std::pair<std::uint64_t, double>> newerWeights;

  // Changes whenever the dictionary gains a name.
  std::uint64_t dictionaryRevision = 0;
  struct AppId {
    bool known;
    std::uint64_t id;
  };
  AppListIndex<AppId> idOfApp;
  // (id, position in the facade's list) of the known applications, by id,
  // built for generation `appsByIdGeneration` of idOfApp.
  mutable std::vector<std::pair<std::uint64_t, std::size_t>> appsById;
  mutable std::uint64_t appsByIdGeneration = 0;
};

}  // namespace NuvikPrediction

#endif  // NUVIK_KNN_REGRESSION_H_
