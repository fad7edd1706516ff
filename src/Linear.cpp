#include "Linear.h"

#include <algorithm>
#include <cstdlib>
#include <utility>

#include <json/value.h>

#include "Constants.h"
#include "DomValue.h"
#include "JsonFields.h"
#include "JsonWriter.h"

namespace NuvikPrediction {

namespace {

constexpr std::size_t kFullApplications = 5000;
constexpr int kTimeKernelReach = 25;
constexpr double kMinDenominator = 1e-9;

// A 32-bit id or count as the unsigned 64-bit JSON integer of the document,
// widened with sign extension.
Json::UInt64 Widen(std::int32_t value) { return static_cast<Json::UInt64>(static_cast<Json::Int64>(value)); }

double Value(double numerator, double denominator) {
  return denominator < kMinDenominator ? 0.0 : numerator / denominator;
}

// Weight of a launch d buckets away from the current one: 1 at d = 0 down to
// 1/26 at |d| = 25.
struct TimeKernel {
  double weights[2 * kTimeKernelReach + 1];
  TimeKernel() {
    for (int d = -kTimeKernelReach; d <= kTimeKernelReach; ++d) {
      weights[d + kTimeKernelReach] = 1.0 + static_cast<double>(std::abs(d)) / -26.0;
    }
  }
};

const TimeKernel kTimeKernel;

}  // namespace

// ---------------------------------------------------------------- ids

std::uint32_t Linear::IdIndex::FindOther(std::int32_t id) const {
  const auto it = others.find(id);
  return it == others.end() ? kNone : it->second;
}

std::uint32_t Linear::IdIndex::Add(std::int32_t id) {
  const std::uint32_t found = Find(id);
  if (found != kNone) return found;
  const auto index = static_cast<std::uint32_t>(ids.size());
  // Ids are dense in practice; far outliers (only from a loaded document)
  // go to the map instead of a huge table.
  if (id >= 0 && static_cast<std::size_t>(id) <= 2 * ids.size() + 1024) {
    if (direct.size() <= static_cast<std::size_t>(id)) direct.resize(static_cast<std::size_t>(id) + 1, kNone);
    direct[static_cast<std::size_t>(id)] = index;
  } else {
    others.emplace(id, index);
  }
  ids.push_back(id);
  return index;
}

void Linear::IdIndex::Clear() {
  direct.clear();
  others.clear();
  ids.clear();
}

Linear::Linear() : Predictor(kLinearName), timeBuckets(kSlotsPerDay) {}

void Linear::NameId(std::int32_t id, std::uint32_t slot) {
  const std::uint32_t index = ids.Add(id);
  if (slotOfId.size() < ids.size()) {
    slotOfId.resize(ids.size(), -1);
    countOfId.resize(ids.size(), nullptr);
  }
  slotOfId[index] = slot;
  const auto number = static_cast<std::uint32_t>(id);
  if (number < identityIds && slot != number) identityIds = number;
  while (identityIds < UINT32_MAX && SlotOfId(static_cast<std::int32_t>(identityIds)) == identityIds) ++identityIds;
}

std::uint32_t Linear::AddNameSlot(const std::string* name) {
  const auto slot = static_cast<std::uint32_t>(slotNames.size());
  slotNames.push_back(name);
  idOfSlot.push_back(0);
  const auto position = std::lower_bound(slotsByName.begin(), slotsByName.end(), *name,
                                         [this](std::uint32_t other, const std::string& key) {
                                           return *slotNames[other] < key;
                                         });
  slotsByName.insert(position, slot);
  return slot;
}

// ---------------------------------------------------------------- learning

Linear::Cell& Linear::CellOf(Cells& cells, std::int32_t id) {
  auto cell = std::lower_bound(cells.begin(), cells.end(), id, [](const Cell& c, std::int32_t key) { return c.id < key; });
  if (cell == cells.end() || cell->id != id) cell = cells.insert(cell, Cell{id, 0});
  return *cell;
}

void Linear::UpdateDict(const std::string& app) {
  if (strToId.count(app) != 0) return;
  const auto id = static_cast<std::int32_t>(strToId.size());
  const auto entry = strToId.emplace(app, NameEntry{id, 0}).first;
  const std::uint32_t slot = AddNameSlot(&entry->first);
  entry->second.slot = slot;
  // The id may already name another application (only after loading sparse
  // ids): it is taken over in the id-to-name direction.
  NameId(id, slot);
  idOfSlot[slot] = ids.Find(id);
  ++dictionaryRevision;
}

void Linear::UpdateLastLaunches(const std::string& app) {
  UpdateDict(app);
  lastLaunches.push_front(strToId.find(app)->second.id);
  if (lastLaunches.size() > kHistory) lastLaunches.pop_back();
}

std::vector<std::string> Linear::GetLastLaunches() const {
  std::vector<std::string> names;
  names.reserve(lastLaunches.size());
  for (const std::int32_t id : lastLaunches) {
    const std::int64_t slot = SlotOfId(id);
    names.push_back(slot < 0 ? std::string() : NameOf(static_cast<std::uint32_t>(slot)));
  }
  return names;
}

void Linear::UpdateTimeInternal(int hour, int minute) { currentBucket = TimeSlot(hour, minute); }

void Linear::UpdateTime(const std::tm& time) { UpdateTimeInternal(time.tm_hour, time.tm_min); }

bool Linear::IsFull() const { return statCounter.size() > kFullApplications; }

void Linear::Update(const Updater& updater) {
  predictionValid = false;
  UpdateDict(updater.app);
  const std::int32_t launched = strToId.find(updater.app)->second.id;
  const std::size_t steps = std::min(lastLaunches.size(), kSteps);
  for (std::size_t k = 0; k < steps; ++k) {
    Row& row = transitions[k][lastLaunches[k]];
    Cell& cell = CellOf(row.cells, launched);
    cell.count = WrappingAdd(cell.count, 1);
    row.sum = WrappingAdd(row.sum, 1);
  }
  currentBucket = TimeSlot(updater.hour, updater.minute);
  Cell& inBucket = CellOf(timeBuckets[static_cast<std::size_t>(currentBucket)], launched);
  inBucket.count = WrappingAdd(inBucket.count, 1);
  const auto [count, added] = statCounter.try_emplace(launched, 0);
  count->second = WrappingAdd(count->second, 1);
  if (added) countOfId[ids.Find(launched)] = &count->second;
  launchTotal = WrappingAdd(launchTotal, 1);
  UpdateLastLaunches(updater.app);
}

// -------------------------------------------------------------- prediction

std::int64_t Linear::PreviousSlot(int k) const {
  if (k < 0 || static_cast<std::size_t>(k) >= lastLaunches.size()) return -1;
  return SlotOfId(lastLaunches[static_cast<std::size_t>(k)]);
}

double Linear::TimeNumerators(int bucket, std::vector<double>& numerators) const {
  numerators.assign(slotNames.size(), 0.0);
  int slot = ((bucket + kSlotsPerDay - kTimeKernelReach) % kSlotsPerDay + kSlotsPerDay) % kSlotsPerDay;
  for (int d = -kTimeKernelReach; d <= kTimeKernelReach; ++d, slot = slot + 1 == kSlotsPerDay ? 0 : slot + 1) {
    const double weight = kTimeKernel.weights[d + kTimeKernelReach];
    for (const Cell& cell : timeBuckets[static_cast<std::size_t>(slot)]) {
      const std::int64_t name = SlotOfId(cell.id);
      if (name >= 0) numerators[static_cast<std::size_t>(name)] += weight * static_cast<double>(cell.count);
    }
  }
  // Summed in name order.
  double sum = 0.0;
  for (const std::uint32_t name : slotsByName) sum += numerators[name];
  return std::max(sum, 1.0);
}

double Linear::CounterDenominator() const { return static_cast<double>(std::max(launchTotal, std::int32_t{1})); }

void Linear::RefreshPrediction() {
  if (lastLaunches.size() < kHistory || predictionValid) return;
  ComputeScores(currentBucket, scores);
  scoredSlots = scores.size();
  predictionValid = true;
}

// Every score starts at +0.0 and only ever adds finite terms, so it is never
// -0.0, and a feature that gives a name the value 0 (adding +0.0 or -0.0)
// leaves its score as it is: only the names a feature reaches are visited.
// Each score adds its features in the order transitions, previous launches,
// time, counter.
void Linear::ComputeScores(int bucket, std::vector<double>& out) const {
  const FeatureWeights& weight = kFeatureWeights;
  out.assign(slotNames.size(), 0.0);
  for (int k = 0; k < static_cast<int>(kSteps); ++k) {
    ForEachTransition(k, [&](std::uint32_t slot, double numerator, double denominator) {
      out[slot] += Value(numerator, denominator) * weight.transition[k];
    });
  }
  for (int k = 0; k < static_cast<int>(kSteps); ++k) {
    const std::int64_t slot = PreviousSlot(k);
    if (slot >= 0) out[static_cast<std::size_t>(slot)] += 1.0 * weight.prev[k];
  }
  const double timeDenominator = TimeNumerators(bucket, timeNumerators);
  for (std::size_t slot = 0; slot < out.size(); ++slot) {
    if (timeNumerators[slot] != 0.0) out[slot] += Value(timeNumerators[slot], timeDenominator) * weight.time;
  }
  const double counterDenominator = CounterDenominator();
  for (std::size_t slot = 0; slot < out.size(); ++slot) {
    const std::int32_t* count = CountOf(static_cast<std::uint32_t>(slot));
    if (count != nullptr) out[slot] += Value(static_cast<double>(*count), counterDenominator) * weight.counter;
  }
}

std::map<std::string, double> Linear::Predict() {
  RefreshPrediction();
  std::map<std::string, double> result;
  for (const std::uint32_t slot : slotsByName) {
    if (slot < scoredSlots) result.emplace_hint(result.end(), NameOf(slot), scores[slot]);
  }
  return result;
}

double Linear::GetPrediction(const std::string& app) {
  RefreshPrediction();
  const auto entry = strToId.find(app);
  return entry == strToId.end() || entry->second.slot >= scoredSlots ? 0.0 : scores[entry->second.slot];
}

void Linear::ScoreApps(const std::tm& time, const AppList& apps, double* result) {
  UpdateTime(time);
  RefreshPrediction();
  CopyScores(apps, scores, scoredSlots, result);
}

// Without a valid prediction, RefreshPrediction would compute one for the
// time's bucket, unless the history is too short, when the last one stays.
void Linear::ScoreAppsAt(const std::tm& time, const AppList& apps, double* result) const {
  if (predictionValid || lastLaunches.size() < kHistory) {
    CopyScores(apps, scores, scoredSlots, result);
    return;
  }
  ComputeScores(TimeSlot(time.tm_hour, time.tm_min), scratchScores);
  CopyScores(apps, scratchScores, scratchScores.size(), result);
}

void Linear::CopyScores(const AppList& apps, const std::vector<double>& source, std::size_t scored,
                        double* result) const {
  const auto& slotOf = slotOfApp.Get(apps, dictionaryRevision, [this](const std::string& app) -> std::int64_t {
    const auto entry = strToId.find(app);
    return entry == strToId.end() ? -1 : entry->second.slot;
  });
  for (std::size_t i = 0; i < slotOf.size(); ++i) {
    const std::int64_t slot = slotOf[i];
    result[i] = slot >= 0 && static_cast<std::size_t>(slot) < scored ? source[static_cast<std::size_t>(slot)] : 0.0;
  }
}

// ------------------------------------------------------------- persistence

Json::Value Linear::SerializeTransitions() const {
  Json::Value result;
  Json::ArrayIndex index = 0;
  for (std::size_t step = 0; step < kSteps; ++step) {
    for (const auto& [from, row] : transitions[step]) {
      for (const Cell& cell : row.cells) {
        if (cell.count == 0) continue;
        Json::Value& element = result[index++];
        element[LinearKeys::kStep] = Json::UInt64{step};
        element[LinearKeys::kAppFrom] = Widen(from);
        element[LinearKeys::kAppTo] = Widen(cell.id);
        element[LinearKeys::kCnt] = Widen(cell.count);
      }
    }
  }
  return result;
}

Json::Value Linear::SerializeTimeBuckets() const {
  Json::Value result;
  Json::ArrayIndex index = 0;
  for (std::size_t bucket = 0; bucket < timeBuckets.size(); ++bucket) {
    for (const Cell& cell : timeBuckets[bucket]) {
      Json::Value& element = result[index++];
      element[LinearKeys::kBucket] = Json::UInt64{bucket};
      element[LinearKeys::kBucketApp] = Widen(cell.id);
      element[LinearKeys::kBucketCnt] = Widen(cell.count);
    }
  }
  return result;
}

Json::Value Linear::SerializeLastLaunches() const {
  Json::Value result;
  Json::ArrayIndex index = 0;
  for (const std::int32_t id : lastLaunches) result[index++][LinearKeys::kLastApp] = Json::Int{id};
  return result;
}

Json::Value Linear::SerializeAppToId() const {
  Json::Value result;
  Json::ArrayIndex index = 0;
  for (const auto& [app, entry] : strToId) {
    Json::Value& element = result[index++];
    element[LinearKeys::kApp] = app;
    element[LinearKeys::kId] = Widen(entry.id);
  }
  return result;
}

Json::Value Linear::SerializeStatCounter() const {
  Json::Value result;
  Json::ArrayIndex index = 0;
  for (const auto& [id, count] : statCounter) {
    Json::Value& element = result[index++];
    element[LinearKeys::kCounterApp] = Widen(id);
    element[LinearKeys::kCounterCnt] = Widen(count);
  }
  return result;
}

Json::Value Linear::SerializeJson() const {
  Json::Value root(Json::objectValue);
  root[LinearKeys::kTransitions] = SerializeTransitions();
  root[LinearKeys::kTimeBuckets] = SerializeTimeBuckets();
  root[LinearKeys::kLast] = SerializeLastLaunches();
  root[LinearKeys::kStrToId] = SerializeAppToId();
  root[LinearKeys::kStatCounter] = SerializeStatCounter();
  return root;
}

// The text of SerializeJson(), members in key order, each table as its
// Serialize function above builds it.
void Linear::WriteJson(JsonWriter& out) const {
  using namespace LinearKeys;
  out.BeginObject();

  out.Key(kLast);
  ArrayOrNull last(out);
  for (const std::int32_t id : lastLaunches) {
    last.Element().BeginObject();
    out.Key(kLastApp);
    out.Int64(id);
    out.EndObject();
  }
  last.End();

  out.Key(kStatCounter);
  ArrayOrNull counter(out);
  for (const auto& [id, count] : statCounter) {
    counter.Element().BeginObject();
    out.Key(kCounterApp);
    out.UInt64(Widen(id));
    out.Key(kCounterCnt);
    out.UInt64(Widen(count));
    out.EndObject();
  }
  counter.End();

  out.Key(kStrToId);
  WriteDictionary(out, strToId, [](const NameEntry& entry) { return Widen(entry.id); });

  out.Key(kTimeBuckets);
  ArrayOrNull buckets(out);
  for (std::size_t bucket = 0; bucket < timeBuckets.size(); ++bucket) {
    for (const Cell& cell : timeBuckets[bucket]) {
      buckets.Element().BeginObject();
      out.Key(kBucketApp);
      out.UInt64(Widen(cell.id));
      out.Key(kBucket);
      out.UInt64(bucket);
      out.Key(kBucketCnt);
      out.UInt64(Widen(cell.count));
      out.EndObject();
    }
  }
  buckets.End();

  out.Key(kTransitions);
  ArrayOrNull steps(out);
  for (std::size_t step = 0; step < transitions.size(); ++step) {
    for (const auto& [from, row] : transitions[step]) {
      for (const Cell& cell : row.cells) {
        if (cell.count == 0) continue;
        steps.Element().BeginObject();
        out.Key(kAppFrom);
        out.UInt64(Widen(from));
        out.Key(kAppTo);
        out.UInt64(Widen(cell.id));
        out.Key(kCnt);
        out.UInt64(Widen(cell.count));
        out.Key(kStep);
        out.UInt64(step);
        out.EndObject();
      }
    }
  }
  steps.End();

  out.EndObject();
}

template <typename Value>
bool Linear::CheckModelJson(const Value& value) const {
  if (value.empty() || !value.isObject()) return false;
  for (const std::string* key : {&LinearKeys::kLast, &LinearKeys::kTransitions, &LinearKeys::kTimeBuckets,
                                 &LinearKeys::kStatCounter, &LinearKeys::kStrToId}) {
    if (!value.isMember(*key)) return false;
  }
  return true;
}

template <typename Value>
std::set<std::uint64_t> Linear::DeserializeLastLaunches(const Value& array) {
  std::set<std::uint64_t> read;
  if (!array.isArray()) return read;
  for (const Value& element : array) {
    if (!HasUnsignedMembers(element, LinearKeys::kLastApp)) continue;
    const std::uint64_t id = element[LinearKeys::kLastApp].asUInt64();
    lastLaunches.push_back(Narrow32(id));
    read.insert(id);
  }
  return read;
}

// Names and ids are assigned one element at a time, each direction
// overwriting what it held: a repeated name takes the later id, a repeated id
// the later name.
template <typename Value>
std::set<std::uint64_t> Linear::DeserializeStrToId(const Value& array) {
  std::set<std::uint64_t> read;
  if (!array.isArray()) return read;
  for (const Value& element : array) {
    if (!IsNonEmptyObject(element) || !HasStringMember(element, LinearKeys::kApp) ||
        !HasUnsignedMember(element, LinearKeys::kId)) {
      continue;
    }
    const std::uint64_t id = element[LinearKeys::kId].asUInt64();
    const std::int32_t narrowed = Narrow32(id);
    const auto [entry, added] = strToId.try_emplace(element[LinearKeys::kApp].asString(), NameEntry{narrowed, 0});
    if (added) entry->second.slot = AddNameSlot(&entry->first);
    entry->second.id = narrowed;
    NameId(narrowed, entry->second.slot);
    idOfSlot[entry->second.slot] = ids.Find(narrowed);
    read.insert(id);
  }
  return read;
}

template <typename Value>
std::set<std::uint64_t> Linear::DeserializeTransitions(const Value& array) {
  std::set<std::uint64_t> read;
  if (!array.isArray()) return read;
  for (const Value& element : array) {
    if (!HasUnsignedMembers(element, LinearKeys::kStep, LinearKeys::kAppFrom, LinearKeys::kAppTo, LinearKeys::kCnt)) continue;
    const std::uint64_t step = element[LinearKeys::kStep].asUInt64();
    if (step >= kSteps) continue;
    const std::uint64_t from = element[LinearKeys::kAppFrom].asUInt64();
    const std::uint64_t to = element[LinearKeys::kAppTo].asUInt64();
    CellOf(transitions[step][Narrow32(from)].cells, Narrow32(to)).count =
        Narrow32(element[LinearKeys::kCnt].asUInt64());
    read.insert(from);
    read.insert(to);
  }
  return read;
}

template <typename Value>
std::set<std::uint64_t> Linear::DeserializeTimeBuckets(const Value& array) {
  std::set<std::uint64_t> read;
  if (!array.isArray()) return read;
  for (const Value& element : array) {
    if (!HasUnsignedMembers(element, LinearKeys::kBucketApp, LinearKeys::kBucketCnt, LinearKeys::kBucket)) continue;
    const std::uint64_t bucket = element[LinearKeys::kBucket].asUInt64();
    if (bucket >= static_cast<std::uint64_t>(kSlotsPerDay)) continue;
    const std::uint64_t app = element[LinearKeys::kBucketApp].asUInt64();
    CellOf(timeBuckets[bucket], Narrow32(app)).count = Narrow32(element[LinearKeys::kBucketCnt].asUInt64());
    read.insert(app);
  }
  return read;
}

template <typename Value>
std::set<std::uint64_t> Linear::DeserializeCounter(const Value& array) {
  std::set<std::uint64_t> read;
  if (!array.isArray()) return read;
  for (const Value& element : array) {
    if (element.empty()) continue;
    // Deliberately no isObject() test: on anything but an object this member
    // lookup raises Json::LogicError. A missing member reads as null.
    const Value& app = element[LinearKeys::kCounterApp];
    const Value& count = element[LinearKeys::kCounterCnt];
    if (!app.isUInt64() || !count.isUInt64()) continue;
    statCounter[Narrow32(app.asUInt64())] = Narrow32(count.asUInt64());
    read.insert(app.asUInt64());
  }
  return read;
}

bool Linear::VerifyDeserialization(const std::set<std::uint64_t>& known, const std::set<std::uint64_t>& transitionIds,
                                   const std::set<std::uint64_t>& bucketIds,
                                   const std::set<std::uint64_t>& counterIds) const {
  for (const std::set<std::uint64_t>* read : {&transitionIds, &bucketIds, &counterIds}) {
    if (!std::includes(known.begin(), known.end(), read->begin(), read->end())) return false;
  }
  return true;
}

void Linear::CalculateSumTransitions() {
  for (auto& table : transitions) {
    for (auto& entry : table) {
      Row& row = entry.second;
      row.sum = 0;
      for (const Cell& cell : row.cells) row.sum = WrappingAdd(row.sum, cell.count);
    }
  }
}

void Linear::IndexLoadedTables() {
  countOfId.assign(ids.size(), nullptr);
  launchTotal = 0;
  for (auto& [id, count] : statCounter) {
    const std::uint32_t index = ids.Find(id);
    if (index != IdIndex::kNone) countOfId[index] = &count;
    launchTotal = WrappingAdd(launchTotal, count);
  }
  std::vector<bool> named(slotNames.size(), false);
  sharedNames = false;
  for (const std::int64_t slot : slotOfId) {
    if (slot < 0) continue;
    if (named[static_cast<std::size_t>(slot)]) sharedNames = true;
    named[static_cast<std::size_t>(slot)] = true;
  }
  ++dictionaryRevision;
}

template <typename Value>
bool Linear::ReadJson(const Value& value) {
  predictionValid = false;
  scoredSlots = 0;
  if (!CheckModelJson(value)) return false;
  // However the reading ends, the derived tables follow what was read.
  struct Reindex {
    Linear& linear;
    ~Reindex() { linear.IndexLoadedTables(); }
  } reindex{*this};

  const Value& last = value[LinearKeys::kLast];
  if (last.empty() || !last.isArray()) return false;
  lastLaunches.clear();
  DeserializeLastLaunches(last);  // history ids are deliberately not verified

  const Value& names = value[LinearKeys::kStrToId];
  if (names.empty() || !names.isArray()) return false;
  strToId.clear();
  ids.Clear();
  identityIds = 0;
  slotOfId.clear();
  countOfId.clear();
  slotNames.clear();
  idOfSlot.clear();
  slotsByName.clear();
  const std::set<std::uint64_t> known = DeserializeStrToId(names);

  const Value& steps = value[LinearKeys::kTransitions];
  if (steps.empty() || !steps.isArray()) return false;
  for (auto& table : transitions) table.clear();
  const std::set<std::uint64_t> transitionIds = DeserializeTransitions(steps);

  const Value& buckets = value[LinearKeys::kTimeBuckets];
  if (buckets.empty() || !buckets.isArray()) return false;
  timeBuckets.assign(kSlotsPerDay, {});
  const std::set<std::uint64_t> bucketIds = DeserializeTimeBuckets(buckets);

  const Value& counts = value[LinearKeys::kStatCounter];
  if (counts.empty() || !counts.isArray()) return false;
  countOfId.assign(ids.size(), nullptr);
  statCounter.clear();
  const std::set<std::uint64_t> counterIds = DeserializeCounter(counts);

  const bool ok = VerifyDeserialization(known, transitionIds, bucketIds, counterIds);
  if (ok) CalculateSumTransitions();
  return ok;
}

bool Linear::DeserializeJson(const Json::Value& value) { return ReadJson(value); }

bool Linear::DeserializeJson(const DomValue& value) { return ReadJson(value); }

}  // namespace NuvikPrediction
