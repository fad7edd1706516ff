#ifndef NUVIK_LINEAR_H_
#define NUVIK_LINEAR_H_

#include <array>
#include <cstdint>
#include <deque>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "Predictor.h"

namespace NuvikPrediction {

// Linear scorer over 22 launch features: transition probabilities from each
// of the ten last launches, indicators of those ten launches, a triangular
// time-of-day kernel and the share of all launches, weighted with the default
// weight table of Constants.h. Every table is keyed by an application id;
// counts are 32-bit and wrap.
//
// Scores are computed per name slot: every name of the dictionary has one, in
// order of first sight. The transition and time features reach a name through
// the id-to-name direction of the dictionary and the counter feature through
// the name-to-id direction, so that a loaded dictionary whose names and ids do
// not pair up one to one still scores as its two directions say.
class Linear : public Predictor {
 public:
  // One feature's raw estimate for one application; its value is
  // numerator / denominator, or 0.0 when the denominator is below 1e-9.
  struct Fraction {
    double numerator = 0.0;
    double denominator = 0.0;
  };

  Linear();

  // Learns one launch: counts it against the history as it stood before it,
  // then pushes it onto the history. Clears the cached prediction.
  void Update(const Updater& updater) override;
  // Moves the current time bucket; keeps the cached prediction.
  void UpdateTime(const std::tm& time) override;
  // Score of every known application: computed once the history holds ten
  // launches, then cached until the next Update. A fresh map each call.
  std::map<std::string, double> Predict() override;
  // Score of one application from the same cache; 0.0 for one without a score.
  double GetPrediction(const std::string& app) override;
  // {"last", "statCounter", "strToId", "timeBuckets", "transitions"}, each null
  // when empty, which this reader rejects.
  Json::Value SerializeJson() const override;
  void WriteJson(JsonWriter& out) const override;
  // Loads a model object; false rejects it, possibly after some tables were
  // already replaced. Drops the cached prediction.
  bool DeserializeJson(const Json::Value& value) override;
  void ScoreApps(const std::tm& time, const AppList& apps, double* scores) override;
  void ScoreAppsAt(const std::tm& time, const AppList& apps, double* scores) const override;
  bool DeserializeJson(const DomValue& value) override;

  // Gives app an id if it has none.
  void UpdateDict(const std::string& app);
  // Records app as the most recent launch without learning from it.
  void UpdateLastLaunches(const std::string& app);
  // Names of the history, most recent first; an id without a name (only
  // possible after loading) yields an empty string.
  std::vector<std::string> GetLastLaunches() const;
  std::size_t HistorySize() const { return lastLaunches.size(); }
  // Same as UpdateTime, from an hour and a minute.
  void UpdateTimeInternal(int hour, int minute);
  // True when more than 5000 applications have a launch count.
  bool IsFull() const;

  // Name slots.
  std::size_t NameCount() const { return slotNames.size(); }
  const std::string& NameOf(std::uint32_t slot) const { return *slotNames[slot]; }
  // Every slot, in name order.
  const std::vector<std::uint32_t>& SlotsByName() const { return slotsByName; }
  // Changes whenever the dictionary gains a name or is loaded.
  std::uint64_t DictionaryRevision() const { return dictionaryRevision; }

  // The features of the next prediction, by name slot. Transition k calls
  // visit(slot, numerator, denominator) for every name that followed the
  // application k + 1 launches back, in ascending id order; a name reached
  // through two ids keeps the later one.
  template <typename Visit>
  void ForEachTransition(int k, Visit&& visit) const;
  // The name slot of the application k + 1 launches back; -1 when the history
  // is shorter or that id has no name.
  std::int64_t PreviousSlot(int k) const;
  // The kernel-weighted launch counts around `bucket` of every name into
  // numerators (sized to NameCount()); returns their common denominator.
  double TimeNumerators(int bucket, std::vector<double>& numerators) const;
  // The launch count of a name's id, or null when it has none, over the
  // denominator max(total launches, 1).
  const std::int32_t* CountOf(std::uint32_t slot) const { return countOfId[idOfSlot[slot]]; }
  double CounterDenominator() const;

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
  static constexpr std::size_t kSteps = 10;

  // One count of a table keyed by application id.
  struct Cell {
    std::int32_t id;
    std::int32_t count;
  };
  // Cells in ascending id order.
  using Cells = std::vector<Cell>;
  // The launches that followed one application at one distance, and their sum.
  struct Row {
    std::int32_t sum = 0;
    Cells cells;
  };
  struct NameEntry {
    std::int32_t id;
    std::uint32_t slot;
  };

  // The index of every id the dictionary names, in order of first sight;
  // ids 0, 1, 2, ... are looked up directly.
  class IdIndex {
   public:
    static constexpr std::uint32_t kNone = UINT32_MAX;
    // An id the table holds no index for may have gone to the map before the
    // table grew past it.
    std::uint32_t Find(std::int32_t id) const {
      if (id >= 0 && static_cast<std::size_t>(id) < direct.size()) {
        const std::uint32_t index = direct[static_cast<std::size_t>(id)];
        if (index != kNone) return index;
      }
      return others.empty() ? kNone : FindOther(id);
    }
    // The index of `id`, added when new.
    std::uint32_t Add(std::int32_t id);
    std::size_t size() const { return ids.size(); }
    std::int32_t IdAt(std::uint32_t index) const { return ids[index]; }
    void Clear();

   private:
    std::uint32_t FindOther(std::int32_t id) const;

    std::vector<std::uint32_t> direct;
    std::map<std::int32_t, std::uint32_t> others;
    std::vector<std::int32_t> ids;
  };

  static Cell& CellOf(Cells& cells, std::int32_t id);
  // Name slot of an id (id-to-name direction); -1 when it has none.
  std::int64_t SlotOfId(std::int32_t id) const {
    if (static_cast<std::uint32_t>(id) < identityIds) return id;
    const std::uint32_t index = ids.Find(id);
    return index == IdIndex::kNone ? -1 : slotOfId[index];
  }
  // Sets the name of `id` (id-to-name direction).
  void NameId(std::int32_t id, std::uint32_t slot);
  std::uint32_t AddNameSlot(const std::string* name);
  // Rebuilds what derives from the tables after they were replaced.
  void IndexLoadedTables();
  // Recomputes the prediction exactly when Predict would.
  void RefreshPrediction();
  // The score of every name slot for time bucket `bucket`, into `out`.
  void ComputeScores(int bucket, std::vector<double>& out) const;
  // result[i] = the score in `source` of apps.names[i]; 0.0 past the first
  // `scored` slots.
  void CopyScores(const AppList& apps, const std::vector<double>& source, std::size_t scored,
                  double* result) const;
  template <typename Value>
  bool ReadJson(const Value& value);

  std::deque<std::int32_t> lastLaunches;
  std::map<std::string, NameEntry> strToId;
  IdIndex ids;
  // By id index: the name slot of the id (-1: none) and its launch count.
  std::vector<std::int64_t> slotOfId;
  std::vector<const std::int32_t*> countOfId;
  // By name slot: the name, and the id index of the name's id.
  std::vector<const std::string*> slotNames;
  std::vector<std::uint32_t> idOfSlot;
  std::vector<std::uint32_t> slotsByName;
  // Every id below it names the slot of the same number, as learning assigns
  // them: SlotOfId needs no look-up there.
  std::uint32_t identityIds = 0;
  // True when two ids name the same slot (only after loading).
  bool sharedNames = false;
  std::uint64_t dictionaryRevision = 0;

  std::array<std::map<std::int32_t, Row>, kSteps> transitions;
  std::vector<Cells> timeBuckets;
  std::map<std::int32_t, std::int32_t> statCounter;
  std::int32_t launchTotal = 0;
  int currentBucket = 0;

  // The last prediction: a score for each of the first `scoredSlots` slots.
  std::vector<double> scores;
  std::size_t scoredSlots = 0;
  bool predictionValid = false;
  AppListIndex<std::int64_t> slotOfApp;
  // Scratch of ComputeScores and of a prediction that is not kept.
  mutable std::vector<double> timeNumerators;
  mutable std::vector<double> scratchScores;
  // Scratch of ForEachTransition for shared names: the last cell per slot.
  mutable std::vector<std::uint64_t> lastCellStamp;
  mutable std::uint64_t cellStamp = 0;
};

template <typename Visit>
void Linear::ForEachTransition(int k, Visit&& visit) const {
  if (k < 0 || static_cast<std::size_t>(k) >= kSteps || static_cast<std::size_t>(k) >= lastLaunches.size()) return;
  const auto& table = transitions[static_cast<std::size_t>(k)];
  const auto row = table.find(lastLaunches[static_cast<std::size_t>(k)]);
  if (row == table.end()) return;
  const Cells& cells = row->second.cells;
  const auto denominator = static_cast<double>(row->second.sum);
  if (!sharedNames) {
    for (const Cell& cell : cells) {
      const std::int64_t slot = SlotOfId(cell.id);
      if (slot >= 0) visit(static_cast<std::uint32_t>(slot), static_cast<double>(cell.count), denominator);
    }
    return;
  }
  // Mark the last cell of each slot, then visit only those.
  lastCellStamp.resize(slotNames.size(), 0);
  const std::uint64_t base = cellStamp;
  for (std::size_t i = 0; i < cells.size(); ++i) {
    const std::int64_t slot = SlotOfId(cells[i].id);
    if (slot >= 0) lastCellStamp[static_cast<std::size_t>(slot)] = base + 1 + i;
  }
  for (std::size_t i = 0; i < cells.size(); ++i) {
    const std::int64_t slot = SlotOfId(cells[i].id);
    if (slot >= 0 && lastCellStamp[static_cast<std::size_t>(slot)] == base + 1 + i) {
      visit(static_cast<std::uint32_t>(slot), static_cast<double>(cells[i].count), denominator);
    }
  }
  cellStamp = base + cells.size() + 1;
}

}  // namespace NuvikPrediction

#endif  // NUVIK_LINEAR_H_
