#ifndef NUVIK_MARKOV_CHAIN3_H_
#define NUVIK_MARKOV_CHAIN3_H_

#include <array>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "Predictor.h"

namespace NuvikPrediction {

// Transition counts from each of the four most recent launches. An
// application scores the transition probabilities into it from the recent
// launches, step k weighted 1 / (k + 1), normalised to sum 1; when none of
// the recent launches was ever followed by anything, it scores the number of
// transitions into it instead. The prediction is cached until the next
// launch is learned. Counts and row sums wrap as 32-bit two's complement.
class MarkovChain3 final : public Predictor {
 public:
  MarkovChain3();

  void Update(const Updater& updater) override;
  // Time of day plays no part; the cached prediction stays valid.
  void UpdateTime(const std::tm& time) override;
  // Empty while the history holds fewer than four launches; otherwise every
  // known application.
  std::map<std::string, double> Predict() override;
  double GetPrediction(const std::string& app) override;
  // {"last", "markovChain", "strToId"}; each member null when empty, which
  // this reader rejects.
  Json::Value SerializeJson() const override;
  void WriteJson(JsonWriter& out) const override;
  // False rejects the value and may leave it partly read: the history first,
  // then the transitions, then the dictionary.
  bool DeserializeJson(const Json::Value& value) override;
  void ScoreApps(const std::tm& time, const AppList& apps, double* scores) override;
  void ScoreAppsAt(const std::tm& time, const AppList& apps, double* scores) const override;
  bool DeserializeJson(const DomValue& value) override;

  // Gives `app` the next id unless it has one. After loading sparse ids the
  // new id may already name another application, which it takes over in the
  // id-to-name direction.
  void UpdateDict(const std::string& app);

  // True when `model` is a non-empty object with the three members.
  template <typename Value>
  bool CheckModelJson(const Value& model) const;
  // True when every id in `used` is in `known`.
  static bool VerifyDeserialization(const std::set<std::uint64_t>& used, const std::set<std::uint64_t>& known);

 private:
  static constexpr std::size_t kSteps = 4;

  // Count of one transition. A row holds only non-zero counts, in ascending
  // target order, so memory follows the transitions actually seen.
  struct Transition {
    std::int32_t to;
    std::int32_t count;
  };
  using TransitionRow = std::vector<Transition>;

  // Readers of the array members, into emptied tables; malformed elements
  // are skipped. Each returns the ids it saw, untruncated.
  template <typename Value>
  std::set<std::uint64_t> DeserializeMarkovStat(const Value& chain);
  template <typename Value>
  std::set<std::uint64_t> DeserializeStrToId(const Value& dictionary);
  template <typename Value>
  bool ReadJson(const Value& model);
  void CalculateSumAfterDeserialization();

  void CountTransition(std::size_t step, std::int32_t from, std::int32_t to);
  // Recomputes `prediction` unless it is valid.
  void RefreshPrediction();
  // The score of every id below the number of named ids, into `scores`; every
  // name of the history must have an id.
  void ComputeScoresById(std::vector<double>& scores) const;
  // result[i] = the score in `prediction` of apps.names[i].
  void CopyPrediction(const AppList& apps, double* result) const;
  // A predictor with the same tables and history and no cached prediction.
  std::unique_ptr<MarkovChain3> CopyOfTables() const;
  // True when the dictionary's two directions pair the names one to one with
  // the ids 0 .. n - 1.
  bool IsDense() const;
  // Empties `prediction`, whose entries then change.
  void ClearPrediction();
  void AddStepProbabilities(std::vector<double>& scores, double& total) const;
  void AddTransitionsInto(std::vector<double>& scores, double& total) const;

  bool predictionValid = false;
  // markovChain[k][from] lists the applications launched while `from` was
  // the (k + 1)-th most recent launch.
  std::array<std::map<std::int32_t, TransitionRow>, kSteps> markovChain;
  // Row sums of markovChain; not saved, rebuilt after a load.
  std::array<std::map<std::int32_t, std::int32_t>, kSteps> sumMarkovChain;
  std::map<std::string, std::int32_t> strToId;
  std::map<std::int32_t, std::string> idToStr;
  std::map<std::string, double> prediction;
  // The entry of `prediction` that each id's score goes to, while the names
  // of the ids stay as they were when `prediction` was built; emptied when
  // they may have changed.
  std::vector<double*> predictionSlots;
  // Changes whenever `prediction` loses or gains entries.
  std::uint64_t predictionRevision = 0;
  // The entry of `prediction` of each application of the facade's list; null
  // when it has none.
  AppListIndex<const double*> predictionOfApp;
  // Scores by id, scratch of every computation.
  mutable std::vector<double> scoreById;
  // True while IsDense() holds: learning keeps it, a load tells it anew.
  bool denseDictionary = true;
  // Changes whenever the dictionary gains a name or is loaded.
  std::uint64_t dictionaryRevision = 0;
  // The id of each application of the facade's list; -1 when it has none.
  AppListIndex<std::int64_t> idOfApp;
  // Oldest first; at most four names.
  std::deque<std::string> lastLaunches;
};

}  // namespace NuvikPrediction

#endif  // NUVIK_MARKOV_CHAIN3_H_
