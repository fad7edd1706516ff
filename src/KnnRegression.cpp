#include "KnnRegression.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>

#include "DomValue.h"
#include "JsonFields.h"
#include "JsonWriter.h"

namespace NuvikPrediction {

namespace {

// Pairs a generation holds before the next one takes new pairs.
constexpr std::size_t kPairsPerGeneration = 2;
// Slots on either side of the current one that a prediction looks at.
constexpr int kSpan = 26;
// Distance penalties for a launched application other than the launch before
// last, and for a preceding application other than the newest launch.
constexpr double kLaunchedPenalty = 26.0;
constexpr double kPrecedingPenalty = 13.0;
constexpr double kDistanceScale = 66.0;

}  // namespace

KnnRegression::KnnRegression() : KnnRegression(0) {}

KnnRegression::KnnRegression(std::int64_t function) : Predictor(kKnnRegressionName), function(function) {}

void KnnRegression::Update(const Updater& updater) {
  spanValid = false;
  const int slot = TimeSlot(updater.hour, updater.minute);
  currentBucket = slot;
  PairCounts& older = counters[static_cast<std::size_t>(slot)];
  PairCounts& newer = counters[static_cast<std::size_t>(slot + kSlotsPerDay)];
  PairCounts* target = &older;
  if (older.size() == kPairsPerGeneration) {
    // A full older generation is frozen, even for a repeat of its pairs,
    // until the newer one fills up and replaces it.
    if (newer.size() == kPairsPerGeneration) {
      older = std::move(newer);
      newer.clear();
    }
    target = &newer;
  }

  const auto [entry, added] = strToId.try_emplace(updater.app, nextId);
  if (added) {
    ++nextId;
    ++dictionaryRevision;
  }
  const std::int32_t before = (previousIndex + 1) % 2;
  SetPrevious(previousIndex, entry->second);
  // The very first launch pairs with the initial 0, its own id.
  ++(*target)[{PreviousAt(previousIndex), PreviousAt(before)}];
  previousIndex = before;
}

void KnnRegression::UpdateTime(const std::tm& time) { currentBucket = TimeSlot(time.tm_hour, time.tm_min); }

std::map<std::string, double> KnnRegression::Predict() { return {}; }

double KnnRegression::GetPrediction(const std::string& app) {
  const auto entry = strToId.find(app);
  if (entry == strToId.end()) return 0.0;
  RefreshSpan(currentBucket);
  const auto numerator =
      std::lower_bound(spanNumerators.begin(), spanNumerators.end(), entry->second,
                       [](const std::pair<std::uint64_t, double>& gain, std::uint64_t id) { return gain.first < id; });
  const bool found = numerator != spanNumerators.end() && numerator->first == entry->second;
  // NaN when no pair lies in the span, on purpose.
  return (found ? numerator->second : 0.0) / spanDenominator;
}

void KnnRegression::ScoreApps(const std::tm& time, const AppList& apps, double* scores) {
  UpdateTime(time);
  ScoreAppsAt(time, apps, scores);
}

void KnnRegression::ScoreAppsAt(const std::tm& time, const AppList& apps, double* scores) const {
  RefreshSpan(TimeSlot(time.tm_hour, time.tm_min));
  const auto& idOf = idOfApp.Get(apps, dictionaryRevision, [this](const std::string& app) {
    const auto entry = strToId.find(app);
    return entry == strToId.end() ? AppId{false, 0} : AppId{true, entry->second};
  });
  if (appsByIdGeneration != idOfApp.generation()) {
    appsById.clear();
    for (std::size_t i = 0; i < idOf.size(); ++i) {
      if (idOf[i].known) appsById.emplace_back(idOf[i].id, i);
    }
    std::sort(appsById.begin(), appsById.end());
    appsByIdGeneration = idOfApp.generation();
  }
  // A known application without pairs in the span scores 0.0 / denominator.
  for (std::size_t i = 0; i < idOf.size(); ++i) scores[i] = idOf[i].known ? 0.0 / spanDenominator : 0.0;
  auto app = appsById.begin();
  for (const auto& [id, numerator] : spanNumerators) {
    while (app != appsById.end() && app->first < id) ++app;
    for (; app != appsById.end() && app->first == id; ++app) scores[app->second] = numerator / spanDenominator;
  }
}

// For slots j = max(0, s - 26) .. min(287, s + 26) ascending, an application
// x gains (first weight of x in both generations of j) and the denominator
// (second weight of both). Where x has no pair the gain is 0.0 + 0.0, which
// leaves its sum (never below +0.0: every kernel is positive on the span) as
// it is; so only the applications with a pair in j gain. Each pair's kernel
// term is computed once and summed, in key order, into both weights.
void KnnRegression::RefreshSpan(int slot) const {
  if (spanValid && spanSlot == slot) return;
  gains.clear();
  spanDenominator = 0.0;
  const int first = std::max(slot, kSpan) - kSpan;
  const int end = std::min(slot, kSlotsPerDay - 1 - kSpan) + kSpan + 1;
  for (int j = first; j < end; ++j) {
    // Equals the slot distance, except that 15 becomes 14.999999999999998.
    const double distance = static_cast<double>(std::abs(slot - j)) / 26.0 * 26.0;
    const double older = SumByLaunched(counters[static_cast<std::size_t>(j)], distance, olderWeights);
    const double newer = SumByLaunched(counters[static_cast<std::size_t>(j + kSlotsPerDay)], distance, newerWeights);
    // Both lists are in id order: merge them.
    auto a = olderWeights.begin();
    auto b = newerWeights.begin();
    while (a != olderWeights.end() || b != newerWeights.end()) {
      const bool takeA = b == newerWeights.end() || (a != olderWeights.end() && a->first <= b->first);
      const bool takeB = a == olderWeights.end() || (b != newerWeights.end() && b->first <= a->first);
      const std::uint64_t id = takeA ? a->first : b->first;
      gains.emplace_back(id, (takeA ? (a++)->second : 0.0) + (takeB ? (b++)->second : 0.0));
    }
    spanDenominator += (older + newer);
  }
  // Each application adds its gains slot by slot.
  std::stable_sort(gains.begin(), gains.end(),
                   [](const auto& x, const auto& y) { return x.first < y.first; });
  spanNumerators.clear();
  for (const auto& [id, gain] : gains) {
    if (spanNumerators.empty() || spanNumerators.back().first != id) spanNumerators.emplace_back(id, 0.0);
    spanNumerators.back().second += gain;
  }
  spanSlot = slot;
  spanValid = true;
}

double KnnRegression::SumByLaunched(const PairCounts& pairs, double distance,
                                    std::vector<std::pair<std::uint64_t, double>>& byLaunched) const {
  const std::uint64_t launchedBefore = PreviousAt(previousIndex);
  const std::uint64_t newest = PreviousAt((previousIndex + 1) % 2);
  byLaunched.clear();
  double sum = 0.0;
  for (const auto& [key, count] : pairs) {
    const auto& [launched, preceding] = key;
    const double term = ExecuteKernel(Distance(launched, preceding, launchedBefore, newest, distance)) *
                        static_cast<double>(count);
    sum += term;
    if (byLaunched.empty() || byLaunched.back().first != launched) byLaunched.emplace_back(launched, 0.0);
    // The first weight takes the pairs from (x, 0) to (x, nextId).
    if (preceding <= nextId) byLaunched.back().second += term;
  }
  return sum;
}

double KnnRegression::CalculateFirstWeight(std::uint64_t id, int table, double distance) const {
  const PairCounts& pairs = counters[static_cast<std::size_t>(table)];
  return WeightedSum(pairs.lower_bound({id, 0}), pairs.upper_bound({id, nextId}), distance);
}

double KnnRegression::CalculateSecondWeight(int table, double distance) const {
  const PairCounts& pairs = counters[static_cast<std::size_t>(table)];
  return WeightedSum(pairs.begin(), pairs.end(), distance);
}

double KnnRegression::WeightedSum(PairCounts::const_iterator first, PairCounts::const_iterator last,
                                  double distance) const {
  const std::uint64_t launchedBefore = PreviousAt(previousIndex);
  const std::uint64_t newest = PreviousAt((previousIndex + 1) % 2);
  double sum = 0.0;
  for (auto it = first; it != last; ++it) {
    const auto& [launched, preceding] = it->first;
    sum += ExecuteKernel(Distance(launched, preceding, launchedBefore, newest, distance)) *
           static_cast<double>(it->second);
  }
  return sum;
}

double KnnRegression::Distance(std::uint64_t launched, std::uint64_t preceding, std::uint64_t launchedBefore,
                               std::uint64_t newest, double slots) {
  return ((launched == launchedBefore ? 0.0 : kLaunchedPenalty) + slots +
          (preceding == newest ? 0.0 : kPrecedingPenalty)) /
         kDistanceScale;
}

double KnnRegression::ExecuteKernel(double u) const {
  switch (function) {
    case kUniform:
      return 1.0;
    case kEpanechnikov:
      return 0.75 * (1.0 - u * u);
    case kTriweight:
      return 1.09375 * std::pow(1.0 - u * u, 3.0);
    case kGaussian:
      return 0.3989422804014327 * std::exp(u * (u * -0.5));
    default:
      return 1.0 - std::abs(u);
  }
}

std::uint64_t KnnRegression::PreviousAt(std::int32_t index) const {
  const auto i = static_cast<std::size_t>(index);
  return i < previous.size() ? previous[i] : 0;
}

void KnnRegression::SetPrevious(std::int32_t index, std::uint64_t id) {
  const auto i = static_cast<std::size_t>(index);
  if (previous.size() <= i) previous.resize(i + 1, 0);
  previous[i] = id;
}

Json::Value KnnRegression::SerializeJson() const {
  using namespace KnnKeys;
  Json::Value result(Json::objectValue);
  // Bit for bit: -1 is written as 18446744073709551615.
  result[kFunction] = static_cast<Json::UInt64>(function);

  Json::Value recent(Json::arrayValue);
  recent.resize(kPreviousSize);  // entries missing after a lenient load stay null
  for (Json::ArrayIndex i = 0; i < previous.size(); ++i) recent[i] = Json::UInt64{previous[i]};
  result[kPrevious] = std::move(recent);

  Json::Value dictionary;  // null while empty
  Json::ArrayIndex index = 0;
  for (const auto& [app, id] : strToId) {
    Json::Value& element = dictionary[index++];
    element[kApp] = app;
    element[kId] = Json::UInt64{id};
  }
  result[kStrToId] = std::move(dictionary);

  Json::Value tables(Json::arrayValue);
  tables.resize(kTables);  // empty tables stay null
  for (Json::ArrayIndex i = 0; i < kTables; ++i) {
    Json::ArrayIndex pairIndex = 0;
    for (const auto& [key, count] : counters[i]) {
      Json::Value& element = tables[i][pairIndex++];
      element[kValue1] = Json::UInt64{key.first};
      element[kValue2] = Json::UInt64{key.second};
      element[kValue3] = Json::UInt64{count};
    }
  }
  result[kCounters] = std::move(tables);
  return result;
}

// The text of SerializeJson(), members in key order.
void KnnRegression::WriteJson(JsonWriter& out) const {
  using namespace KnnKeys;
  out.BeginObject();

  out.Key(kCounters);
  out.BeginArray();
  for (const PairCounts& pairs : counters) {
    ArrayOrNull table(out);
    for (const auto& [key, count] : pairs) {
      table.Element().BeginObject();
      out.Key(kValue1);
      out.UInt64(key.first);
      out.Key(kValue2);
      out.UInt64(key.second);
      out.Key(kValue3);
      out.UInt64(count);
      out.EndObject();
    }
    table.End();
  }
  out.EndArray();

  out.Key(kFunction);
  out.UInt64(static_cast<std::uint64_t>(function));

  out.Key(kPrevious);
  out.BeginArray();
  for (std::size_t i = 0; i < std::max(previous.size(), kPreviousSize); ++i) {
    if (i < previous.size()) {
      out.UInt64(previous[i]);
    } else {
      out.Null();
    }
  }
  out.EndArray();

  out.Key(kStrToId);
  WriteDictionary(out, strToId, [](std::uint64_t id) { return id; });

  out.EndObject();
}

template <typename Value>
bool KnnRegression::CheckModelJson(const Value& model) const {
  using namespace KnnKeys;
  return IsNonEmptyObject(model) && model.isMember(kFunction) && model.isMember(kPrevious) &&
         model.isMember(kStrToId) && model.isMember(kCounters);
}

template <typename Value>
bool KnnRegression::ReadJson(const Value& model) {
  using namespace KnnKeys;
  spanValid = false;
  if (!CheckModelJson(model)) return false;

  const Value& kernel = model[kFunction];
  if (!kernel.isUInt64()) return false;
  function = static_cast<std::int64_t>(kernel.asUInt64());

  const Value& recent = model[kPrevious];
  if (!IsNonEmptyArray(recent) || recent.size() != kPreviousSize) return false;
  previous.clear();
  for (const Value& id : recent) {
    if (id.isUInt64()) previous.push_back(id.asUInt64());
  }

  const Value& dictionary = model[kStrToId];
  if (!IsNonEmptyArray(dictionary)) return false;
  const std::set<std::uint64_t> known = DeserializeStrToId(dictionary);
  // Fewer ids than names means two names share an id.
  if (known.size() < strToId.size()) return false;
  if (!known.empty()) nextId = *known.rbegin() + 1;

  const Value& tables = model[kCounters];
  if (!IsNonEmptyArray(tables) || tables.size() != kTables) return false;
  const std::set<std::uint64_t> used = DeserializeCounters(tables);
  return VerifyDeserialization(used, known);
}

bool KnnRegression::DeserializeJson(const Json::Value& value) { return ReadJson(value); }

bool KnnRegression::DeserializeJson(const DomValue& value) { return ReadJson(value); }

template <typename Value>
std::set<std::uint64_t> KnnRegression::DeserializeStrToId(const Value& dictionary) {
  using namespace KnnKeys;
  std::set<std::uint64_t> known;
  for (const Value& element : dictionary) {
    if (!IsNonEmptyObject(element) || !HasStringMember(element, kApp) || !HasUnsignedMember(element, kId)) continue;
    const std::uint64_t id = element[kId].asUInt64();
    known.insert(id);
    strToId[element[kApp].asString()] = id;
    ++dictionaryRevision;
  }
  return known;
}

template <typename Value>
std::set<std::uint64_t> KnnRegression::DeserializeCounters(const Value& tables) {
  using namespace KnnKeys;
  std::set<std::uint64_t> used;
  for (typename Value::ArrayIndex i = 0; i < kTables; ++i) {
    const Value& table = tables[i];
    if (!IsNonEmptyArray(table)) continue;
    for (const Value& element : table) {
      if (!HasUnsignedMembers(element, kValue1, kValue2, kValue3)) continue;
      const std::uint64_t launched = element[kValue1].asUInt64();
      const std::uint64_t preceding = element[kValue2].asUInt64();
      used.insert(launched);
      used.insert(preceding);
      counters[i][{launched, preceding}] = element[kValue3].asUInt64();
    }
  }
  return used;
}

bool KnnRegression::VerifyDeserialization(const std::set<std::uint64_t>& used,
                                          const std::set<std::uint64_t>& known) {
  return std::includes(known.begin(), known.end(), used.begin(), used.end());
}

}  // namespace NuvikPrediction
