#include "MarkovChain3.h"

#include <algorithm>
#include <numeric>
#include <tuple>

#include "Constants.h"
#include "DomValue.h"
#include "JsonFields.h"
#include "JsonWriter.h"

namespace NuvikPrediction {

MarkovChain3::MarkovChain3() : Predictor(kMarkovChain3Name) {}

void MarkovChain3::Update(const Updater& updater) {
  predictionValid = false;
  UpdateDict(updater.app);
  if (lastLaunches.size() == kSteps) {
    const std::int32_t to = strToId.find(updater.app)->second;
    for (std::size_t step = 0; step < kSteps; ++step) {
      const std::string& from = lastLaunches[kSteps - 1 - step];
      UpdateDict(from);
      CountTransition(step, strToId.find(from)->second, to);
    }
  }
  lastLaunches.push_back(updater.app);
  if (lastLaunches.size() > kSteps) lastLaunches.pop_front();
}

void MarkovChain3::UpdateTime(const std::tm&) {}

std::map<std::string, double> MarkovChain3::Predict() {
  RefreshPrediction();
  return prediction;
}

double MarkovChain3::GetPrediction(const std::string& app) {
  // The class is final, so this is the cached Predict() without copying it.
  RefreshPrediction();
  const auto it = prediction.find(app);
  return it == prediction.end() ? 0.0 : it->second;
}

void MarkovChain3::ScoreApps(const std::tm&, const AppList& apps, double* result) {
  RefreshPrediction();
  CopyPrediction(apps, result);
}

void MarkovChain3::CopyPrediction(const AppList& apps, double* result) const {
  const auto& predictionOf =
      predictionOfApp.Get(apps, predictionRevision, [this](const std::string& app) -> const double* {
        const auto it = prediction.find(app);
        return it == prediction.end() ? nullptr : &it->second;
      });
  for (std::size_t i = 0; i < predictionOf.size(); ++i) result[i] = predictionOf[i] == nullptr ? 0.0 : *predictionOf[i];
}

void MarkovChain3::ScoreAppsAt(const std::tm& time, const AppList& apps, double* result) const {
  if (predictionValid) {
    CopyPrediction(apps, result);
    return;
  }
  if (lastLaunches.size() < kSteps) {
    std::fill(result, result + apps.names.size(), 0.0);
    return;
  }
  const bool historyNamed = std::all_of(lastLaunches.begin(), lastLaunches.end(),
                                        [this](const std::string& app) { return strToId.count(app) != 0; });
  if (!historyNamed || !denseDictionary) {
    // A computation would first repair the dictionary (only after some
    // loads): it runs on a copy of the tables.
    CopyOfTables()->ScoreApps(time, apps, result);
    return;
  }
  ComputeScoresById(scoreById);
  const auto& idOf = idOfApp.Get(apps, dictionaryRevision, [this](const std::string& app) -> std::int64_t {
    const auto it = strToId.find(app);
    return it == strToId.end() ? -1 : it->second;
  });
  for (std::size_t i = 0; i < idOf.size(); ++i) {
    result[i] = idOf[i] < 0 ? 0.0 : scoreById[static_cast<std::size_t>(idOf[i])];
  }
}

std::unique_ptr<MarkovChain3> MarkovChain3::CopyOfTables() const {
  auto copy = std::make_unique<MarkovChain3>();
  copy->markovChain = markovChain;
  copy->sumMarkovChain = sumMarkovChain;
  copy->strToId = strToId;
  copy->idToStr = idToStr;
  copy->lastLaunches = lastLaunches;
  return copy;
}

void MarkovChain3::UpdateDict(const std::string& app) {
  if (strToId.count(app) != 0) return;
  const std::int32_t id = Narrow32(strToId.size());
  strToId.emplace(app, id);
  idToStr[id] = app;
  predictionSlots.clear();
  ++dictionaryRevision;
}

void MarkovChain3::CountTransition(std::size_t step, std::int32_t from, std::int32_t to) {
  const auto row = markovChain[step].try_emplace(from).first;
  TransitionRow& cells = row->second;
  auto cell = std::lower_bound(cells.begin(), cells.end(), to,
                               [](const Transition& cell, std::int32_t id) { return cell.to < id; });
  if (cell == cells.end() || cell->to != to) cell = cells.insert(cell, Transition{to, 0});
  cell->count = WrappingAdd(cell->count, 1);
  // Only a loaded negative count can wrap round to zero; it goes like any zero cell.
  if (cell->count == 0) {
    cells.erase(cell);
    if (cells.empty()) markovChain[step].erase(row);
  }
  std::int32_t& sum = sumMarkovChain[step][from];
  sum = WrappingAdd(sum, 1);
}

void MarkovChain3::RefreshPrediction() {
  if (predictionValid) return;
  if (lastLaunches.size() < kSteps) {
    if (!prediction.empty()) ClearPrediction();
    return;
  }
  // After a load the history may name applications the dictionary lacks.
  for (const std::string& app : lastLaunches) UpdateDict(app);
  ComputeScoresById(scoreById);
  const std::size_t count = scoreById.size();
  if (predictionSlots.size() == count) {
    // Same names as last time: refill the entries in id order.
    for (std::size_t id = 0; id < count; ++id) *predictionSlots[id] = scoreById[id];
  } else {
    ClearPrediction();
    for (std::size_t id = 0; id < count; ++id) {
      // Inserting look-up: an id without a name (only after a sparse load) is
      // scored under the empty name, which then counts as a known id.
      const auto entry = prediction.insert_or_assign(idToStr[static_cast<std::int32_t>(id)], scoreById[id]).first;
      predictionSlots.push_back(&entry->second);
    }
  }
  predictionValid = true;
}

void MarkovChain3::ComputeScoresById(std::vector<double>& scores) const {
  const std::size_t count = idToStr.size();
  scores.assign(count, 0.0);
  double total = 0.0;
  AddStepProbabilities(scores, total);
  if (total == 0.0 && count > 0) AddTransitionsInto(scores, total);
  if (total != 0.0) {
    for (double& score : scores) score /= total;
  }
}

void MarkovChain3::ClearPrediction() {
  ++predictionRevision;
  prediction.clear();
  predictionSlots.clear();
}

// Adds ((count / S) / (k + 1)) for every target of the step-k row of the
// k-th most recent launch, S being the row sum. Zero counts are not stored:
// their term is +0.0 or -0.0, and adding either to a sum that started at
// +0.0 never changes it. Targets run over the ids below both dictionary
// sizes, in ascending order.
void MarkovChain3::AddStepProbabilities(std::vector<double>& scores, double& total) const {
  const auto limit = static_cast<std::int64_t>(std::min(strToId.size(), scores.size()));
  for (std::size_t step = 0; step < kSteps; ++step) {
    const std::int32_t from = strToId.find(lastLaunches[kSteps - 1 - step])->second;
    const auto sum = sumMarkovChain[step].find(from);
    if (sum == sumMarkovChain[step].end() || sum->second == 0) continue;
    const auto row = markovChain[step].find(from);
    if (row == markovChain[step].end()) continue;
    const auto rowSum = static_cast<double>(sum->second);
    const auto weight = static_cast<double>(step + 1);
    for (const Transition& cell : row->second) {
      if (cell.to < 0) continue;
      if (cell.to >= limit) break;
      const double term = (static_cast<double>(cell.count) / rowSum) / weight;
      scores[static_cast<std::size_t>(cell.to)] += term;
      total += term;
    }
  }
}

// Every application scores the number of transitions into it, summed in
// (target, step, source) order with sources and targets below the number of
// ids. The sums are of integer-valued doubles, so skipping the zero cells
// changes no bit; bucketing the stored cells by target while walking steps
// and sources in ascending order keeps the order of the rest, at a cost
// linear in the cells stored.
void MarkovChain3::AddTransitionsInto(std::vector<double>& scores, double& total) const {
  const auto limit = static_cast<std::int64_t>(scores.size());
  const auto forEachCell = [&](auto&& visit) {
    for (const auto& table : markovChain) {
      for (auto row = table.lower_bound(0); row != table.end() && row->first < limit; ++row) {
        for (const Transition& cell : row->second) {
          if (cell.to < 0) continue;
          if (cell.to >= limit) break;
          visit(cell);
        }
      }
    }
  };
  std::vector<std::size_t> begin(scores.size() + 1, 0);
  forEachCell([&](const Transition& cell) { ++begin[static_cast<std::size_t>(cell.to) + 1]; });
  std::partial_sum(begin.begin(), begin.end(), begin.begin());
  std::vector<std::int32_t> counts(begin.back());
  std::vector<std::size_t> next(begin.begin(), begin.end() - 1);
  forEachCell([&](const Transition& cell) { counts[next[static_cast<std::size_t>(cell.to)]++] = cell.count; });
  for (std::size_t to = 0; to < scores.size(); ++to) {
    for (std::size_t i = begin[to]; i < begin[to + 1]; ++i) {
      const auto value = static_cast<double>(counts[i]);
      total += value;
      scores[to] += value;
    }
  }
}

Json::Value MarkovChain3::SerializeJson() const {
  using namespace MarkovKeys;
  Json::Value last;  // each member stays null while empty
  Json::ArrayIndex index = 0;
  for (const std::string& app : lastLaunches) last[index++][kLastApp] = app;

  Json::Value chain;
  index = 0;
  for (std::size_t step = 0; step < kSteps; ++step) {
    for (const auto& [from, cells] : markovChain[step]) {
      for (const Transition& cell : cells) {
        Json::Value& element = chain[index++];
        element[kStep] = Json::UInt64{step};
        element[kAppFrom] = static_cast<Json::UInt64>(from);
        element[kAppTo] = static_cast<Json::UInt64>(cell.to);
        element[kValue] = static_cast<Json::UInt64>(cell.count);
      }
    }
  }

  Json::Value dictionary;
  index = 0;
  for (const auto& [app, id] : strToId) {
    Json::Value& element = dictionary[index++];
    element[kApp] = app;
    element[kId] = static_cast<Json::UInt64>(id);
  }

  Json::Value result(Json::objectValue);
  result[kLast] = std::move(last);
  result[kMarkovChain] = std::move(chain);
  result[kStrToId] = std::move(dictionary);
  return result;
}

// The text of SerializeJson(), members in key order.
void MarkovChain3::WriteJson(JsonWriter& out) const {
  using namespace MarkovKeys;
  out.BeginObject();

  out.Key(kLast);
  ArrayOrNull last(out);
  for (const std::string& app : lastLaunches) {
    last.Element().BeginObject();
    out.Key(kLastApp);
    out.String(app);
    out.EndObject();
  }
  last.End();

  out.Key(kMarkovChain);
  ArrayOrNull chain(out);
  for (std::size_t step = 0; step < kSteps; ++step) {
    for (const auto& [from, cells] : markovChain[step]) {
      for (const Transition& cell : cells) {
        chain.Element().BeginObject();
        out.Key(kAppFrom);
        out.UInt64(static_cast<std::uint64_t>(from));
        out.Key(kAppTo);
        out.UInt64(static_cast<std::uint64_t>(cell.to));
        out.Key(kStep);
        out.UInt64(step);
        out.Key(kValue);
        out.UInt64(static_cast<std::uint64_t>(cell.count));
        out.EndObject();
      }
    }
  }
  chain.End();

  out.Key(kStrToId);
  WriteDictionary(out, strToId, [](std::int32_t id) { return static_cast<std::uint64_t>(id); });

  out.EndObject();
}

template <typename Value>
bool MarkovChain3::CheckModelJson(const Value& model) const {
  using namespace MarkovKeys;
  return IsNonEmptyObject(model) && model.isMember(kStrToId) && model.isMember(kMarkovChain) &&
         model.isMember(kLast);
}

template <typename Value>
bool MarkovChain3::ReadJson(const Value& model) {
  using namespace MarkovKeys;
  if (!CheckModelJson(model)) return false;

  const Value& last = model[kLast];
  if (!IsNonEmptyArray(last)) return false;
  lastLaunches.clear();
  // A malformed element still uses up one of the four places.
  using ArrayIndex = typename Value::ArrayIndex;
  const ArrayIndex places = std::min(last.size(), ArrayIndex{kSteps});
  for (ArrayIndex i = 0; i < places; ++i) {
    const Value& element = last[i];
    if (IsNonEmptyObject(element) && HasStringMember(element, kLastApp)) {
      lastLaunches.push_back(element[kLastApp].asString());
    }
  }

  const Value& chain = model[kMarkovChain];
  if (!IsNonEmptyArray(chain)) return false;
  for (auto& table : markovChain) table.clear();
  const std::set<std::uint64_t> used = DeserializeMarkovStat(chain);

  strToId.clear();
  idToStr.clear();
  predictionSlots.clear();
  ++dictionaryRevision;
  denseDictionary = false;
  const Value& dictionary = model[kStrToId];
  if (!IsNonEmptyArray(dictionary)) return false;
  const std::set<std::uint64_t> known = DeserializeStrToId(dictionary);
  // Fewer ids than names means two names shared an id.
  if (known.size() < strToId.size() || known.size() < idToStr.size()) return false;
  if (!VerifyDeserialization(used, known)) return false;
  CalculateSumAfterDeserialization();
  denseDictionary = IsDense();
  return true;
}

bool MarkovChain3::DeserializeJson(const Json::Value& value) { return ReadJson(value); }

bool MarkovChain3::DeserializeJson(const DomValue& value) { return ReadJson(value); }

template <typename Value>
std::set<std::uint64_t> MarkovChain3::DeserializeMarkovStat(const Value& chain) {
  using namespace MarkovKeys;
  struct LoadedCell {
    std::uint64_t step;
    std::int32_t from;
    std::int32_t to;
    std::int32_t count;
    auto Key() const { return std::tie(step, from, to); }
  };
  std::vector<LoadedCell> loaded;
  std::set<std::uint64_t> used;
  for (const Value& element : chain) {
    if (!HasUnsignedMembers(element, kStep, kAppFrom, kAppTo, kValue)) continue;
    const std::uint64_t step = element[kStep].asUInt64();
    const std::uint64_t value = element[kValue].asUInt64();
    if (step >= kSteps || value == 0) continue;
    const std::uint64_t from = element[kAppFrom].asUInt64();
    const std::uint64_t to = element[kAppTo].asUInt64();
    loaded.push_back(LoadedCell{step, Narrow32(from), Narrow32(to), Narrow32(value)});
    used.insert(from);
    used.insert(to);
  }
  // A later element for a cell replaces an earlier one: sort by cell, keep
  // document order within a cell and take the last of each run. Rows are then
  // built in ascending order by appending.
  std::stable_sort(loaded.begin(), loaded.end(),
                   [](const LoadedCell& a, const LoadedCell& b) { return a.Key() < b.Key(); });
  for (std::size_t i = 0; i < loaded.size(); ++i) {
    const LoadedCell& cell = loaded[i];
    if (i + 1 < loaded.size() && loaded[i + 1].Key() == cell.Key()) continue;
    if (cell.count == 0) continue;  // a value whose low 32 bits are zero
    auto& table = markovChain[cell.step];
    table.try_emplace(table.end(), cell.from)->second.push_back(Transition{cell.to, cell.count});
  }
  return used;
}

template <typename Value>
std::set<std::uint64_t> MarkovChain3::DeserializeStrToId(const Value& dictionary) {
  using namespace MarkovKeys;
  std::set<std::uint64_t> known;
  for (const Value& element : dictionary) {
    if (!IsNonEmptyObject(element) || !HasStringMember(element, kApp) || !HasUnsignedMember(element, kId)) continue;
    const std::uint64_t id = element[kId].asUInt64();
    const std::string app = element[kApp].asString();
    known.insert(id);
    strToId[app] = Narrow32(id);
    idToStr[Narrow32(id)] = app;
  }
  return known;
}

bool MarkovChain3::IsDense() const {
  if (idToStr.size() != strToId.size()) return false;
  if (!idToStr.empty() && (idToStr.begin()->first != 0 || idToStr.rbegin()->first != Narrow32(idToStr.size() - 1))) {
    return false;
  }
  for (const auto& [id, app] : idToStr) {
    const auto named = strToId.find(app);
    if (named == strToId.end() || named->second != id) return false;
  }
  return true;
}

bool MarkovChain3::VerifyDeserialization(const std::set<std::uint64_t>& used, const std::set<std::uint64_t>& known) {
  return std::includes(known.begin(), known.end(), used.begin(), used.end());
}

// Sums, for every known source, its cells whose target is known. Pairs
// without a stored cell would add zero, so only stored cells are visited.
void MarkovChain3::CalculateSumAfterDeserialization() {
  for (std::size_t step = 0; step < kSteps; ++step) {
    auto& sums = sumMarkovChain[step];
    sums.clear();
    for (const auto& [from, cells] : markovChain[step]) {
      if (idToStr.count(from) == 0) continue;
      std::int32_t sum = 0;
      for (const Transition& cell : cells) {
        if (idToStr.count(cell.to) != 0) sum = WrappingAdd(sum, cell.count);
      }
      sums.emplace_hint(sums.end(), from, sum);
    }
  }
}

}  // namespace NuvikPrediction
