#include "Linear.h"

#include <algorithm>
#include <cstdlib>
#include <utility>

#include <json/value.h>

#include "Constants.h"
#include "DomValue.h"
#include "JsonFields.h"

namespace NuvikPrediction {

namespace {

constexpr std::size_t kTransitionSteps = 10;
constexpr std::size_t kFullApplications = 5000;
constexpr int kTimeKernelReach = 25;
constexpr double kMinDenominator = 1e-9;

// A 32-bit id or count as the unsigned 64-bit JSON integer of the document,
// widened with sign extension.
Json::UInt64 Widen(std::int32_t value) { return static_cast<Json::UInt64>(static_cast<Json::Int64>(value)); }

}  // namespace

Linear::Linear()
    : Predictor(kLinearName),
      transitions(kTransitionSteps),
      sumTransitions(kTransitionSteps),
      timeBuckets(kSlotsPerDay) {}

// ---------------------------------------------------------------- learning

void Linear::UpdateDict(const std::string& app) {
  if (strToId.count(app) != 0) return;
  const auto id = static_cast<std::int32_t>(strToId.size());
  strToId[app] = id;
  idToStr[id] = app;
}

void Linear::UpdateLastLaunches(const std::string& app) {
  UpdateDict(app);
  lastLaunches.push_front(strToId[app]);
  if (lastLaunches.size() > kHistory) lastLaunches.pop_back();
}

std::vector<std::string> Linear::GetLastLaunches() const {
  std::vector<std::string> names;
  names.reserve(lastLaunches.size());
  for (const std::int32_t id : lastLaunches) {
    const auto it = idToStr.find(id);
    names.push_back(it == idToStr.end() ? std::string() : it->second);
  }
  return names;
}

void Linear::UpdateTimeInternal(int hour, int minute) { currentBucket = TimeSlot(hour, minute); }

void Linear::UpdateTime(const std::tm& time) { UpdateTimeInternal(time.tm_hour, time.tm_min); }

bool Linear::IsFull() const { return statCounter.size() > kFullApplications; }

void Linear::Update(const Updater& updater) {
  predictionValid = false;
  UpdateDict(updater.app);
  const std::int32_t launched = strToId[updater.app];
  const std::size_t steps = std::min(lastLaunches.size(), kTransitionSteps);
  for (std::size_t k = 0; k < steps; ++k) {
    const std::int32_t previous = lastLaunches[k];
    std::int32_t& count = transitions[k][previous][launched];
    count = WrappingAdd(count, 1);
    std::int32_t& sum = sumTransitions[k][previous];
    sum = WrappingAdd(sum, 1);
  }
  currentBucket = TimeSlot(updater.hour, updater.minute);
  std::int32_t& inBucket = timeBuckets[static_cast<std::size_t>(currentBucket)][launched];
  inBucket = WrappingAdd(inBucket, 1);
  std::int32_t& launches = statCounter[launched];
  launches = WrappingAdd(launches, 1);
  UpdateLastLaunches(updater.app);
}

// -------------------------------------------------------------- prediction

Linear::FeatureResult Linear::PredictTransition(int k) const {
  FeatureResult result;
  if (k < 0 || static_cast<std::size_t>(k) >= kTransitionSteps || static_cast<std::size_t>(k) >= lastLaunches.size()) {
    return result;
  }
  const auto step = static_cast<std::size_t>(k);
  const std::int32_t previous = lastLaunches[step];
  const auto row = transitions[step].find(previous);
  if (row == transitions[step].end() || row->second.empty()) return result;
  const auto sum = sumTransitions[step].find(previous);
  for (const auto& [launched, count] : row->second) {
    const auto name = idToStr.find(launched);
    if (sum == sumTransitions[step].end() || name == idToStr.end()) continue;
    result[name->second] = Fraction{static_cast<double>(count), static_cast<double>(sum->second)};
  }
  return result;
}

const std::string* Linear::PreviousLaunch(int k) const {
  if (k < 0 || static_cast<std::size_t>(k) >= lastLaunches.size()) return nullptr;
  const auto it = idToStr.find(lastLaunches[static_cast<std::size_t>(k)]);
  return it == idToStr.end() ? nullptr : &it->second;
}

Linear::FeatureResult Linear::PredictTime(int bucket) const {
  FeatureResult result;
  for (const auto& entry : strToId) result.emplace_hint(result.end(), entry.first, Fraction{});
  for (int d = -kTimeKernelReach; d <= kTimeKernelReach; ++d) {
    const int slot = ((bucket + kSlotsPerDay + d) % kSlotsPerDay + kSlotsPerDay) % kSlotsPerDay;
    const double weight = 1.0 + static_cast<double>(std::abs(d)) / -26.0;
    for (const auto& [id, count] : timeBuckets[static_cast<std::size_t>(slot)]) {
      const auto name = idToStr.find(id);
      if (name == idToStr.end()) continue;
      result[name->second].numerator += weight * static_cast<double>(count);
    }
  }
  double sum = 0.0;
  for (const auto& entry : result) sum += entry.second.numerator;
  const double denominator = std::max(sum, 1.0);
  for (auto& entry : result) entry.second.denominator = denominator;
  return result;
}

Linear::FeatureResult Linear::PredictCounter() const {
  std::int32_t total = 0;
  for (const auto& entry : statCounter) total = WrappingAdd(total, entry.second);
  const auto denominator = static_cast<double>(std::max(total, std::int32_t{1}));
  FeatureResult result;
  for (const auto& [name, id] : strToId) {
    const auto count = statCounter.find(id);
    if (count == statCounter.end()) continue;
    result.emplace_hint(result.end(), name, Fraction{static_cast<double>(count->second), denominator});
  }
  return result;
}

void Linear::AddPredictionResult(const FeatureResult& result, std::string key) {
  const double weight = kDefaultWeights.at(key);
  // Both maps are in name order: one merged walk instead of a lookup per name.
  auto position = prediction.begin();
  for (const auto& [name, fraction] : result) {
    const double value =
        fraction.denominator < kMinDenominator ? 0.0 : fraction.numerator / fraction.denominator;
    while (position != prediction.end() && position->first < name) ++position;
    if (position == prediction.end() || position->first != name) position = prediction.emplace_hint(position, name, 0.0);
    position->second += value * weight;
  }
}

void Linear::RefreshPrediction() {
  if (lastLaunches.size() < kHistory || predictionValid) return;
  prediction.clear();
  for (const auto& entry : strToId) prediction.emplace_hint(prediction.end(), entry.first, 0.0);
  for (int k = 0; k < static_cast<int>(kTransitionSteps); ++k) {
    AddPredictionResult(PredictTransition(k), kTransitionFeature + std::to_string(k));
  }
  // Every named id also has its name in strToId, so the previous launch is
  // already in prediction; the zero fractions of the others change nothing
  // (a score that starts at +0.0 stays unchanged when ±0.0 is added).
  for (int k = 0; k < static_cast<int>(kTransitionSteps); ++k) {
    if (const std::string* name = PreviousLaunch(k)) {
      prediction[*name] += 1.0 * kDefaultWeights.at(kPrevFeature + std::to_string(k));
    }
  }
  AddPredictionResult(PredictTime(currentBucket), kTimeFeature);
  AddPredictionResult(PredictCounter(), kCounterFeature);
  predictionValid = true;
}

std::map<std::string, double> Linear::Predict() {
  RefreshPrediction();
  return prediction;
}

double Linear::GetPrediction(const std::string& app) {
  RefreshPrediction();
  const auto it = prediction.find(app);
  return it == prediction.end() ? 0.0 : it->second;
}

// ------------------------------------------------------------- persistence

Json::Value Linear::SerializeTransitions() const {
  Json::Value result;
  Json::ArrayIndex index = 0;
  for (std::size_t step = 0; step < transitions.size(); ++step) {
    for (const auto& [from, row] : transitions[step]) {
      for (const auto& [to, count] : row) {
        if (count == 0) continue;
        Json::Value& element = result[index++];
        element[LinearKeys::kStep] = Json::UInt64{step};
        element[LinearKeys::kAppFrom] = Widen(from);
        element[LinearKeys::kAppTo] = Widen(to);
        element[LinearKeys::kCnt] = Widen(count);
      }
    }
  }
  return result;
}

Json::Value Linear::SerializeTimeBuckets() const {
  Json::Value result;
  Json::ArrayIndex index = 0;
  for (std::size_t bucket = 0; bucket < timeBuckets.size(); ++bucket) {
    for (const auto& [id, count] : timeBuckets[bucket]) {
      Json::Value& element = result[index++];
      element[LinearKeys::kBucket] = Json::UInt64{bucket};
      element[LinearKeys::kBucketApp] = Widen(id);
      element[LinearKeys::kBucketCnt] = Widen(count);
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
  for (const auto& [app, id] : strToId) {
    Json::Value& element = result[index++];
    element[LinearKeys::kApp] = app;
    element[LinearKeys::kId] = Widen(id);
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
  std::set<std::uint64_t> ids;
  if (!array.isArray()) return ids;
  for (const Value& element : array) {
    if (!HasUnsignedMembers(element, LinearKeys::kLastApp)) continue;
    const std::uint64_t id = element[LinearKeys::kLastApp].asUInt64();
    lastLaunches.push_back(Narrow32(id));
    ids.insert(id);
  }
  return ids;
}

template <typename Value>
std::set<std::uint64_t> Linear::DeserializeStrToId(const Value& array) {
  std::set<std::uint64_t> ids;
  if (!array.isArray()) return ids;
  for (const Value& element : array) {
    if (!IsNonEmptyObject(element) || !HasStringMember(element, LinearKeys::kApp) ||
        !HasUnsignedMember(element, LinearKeys::kId)) {
      continue;
    }
    const Value& app = element[LinearKeys::kApp];
    const Value& id = element[LinearKeys::kId];
    const std::int32_t narrowed = Narrow32(id.asUInt64());
    strToId[app.asString()] = narrowed;
    idToStr[narrowed] = app.asString();
    ids.insert(id.asUInt64());
  }
  return ids;
}

template <typename Value>
std::set<std::uint64_t> Linear::DeserializeTransitions(const Value& array) {
  std::set<std::uint64_t> ids;
  if (!array.isArray()) return ids;
  for (const Value& element : array) {
    if (!HasUnsignedMembers(element, LinearKeys::kStep, LinearKeys::kAppFrom, LinearKeys::kAppTo, LinearKeys::kCnt)) continue;
    const std::uint64_t step = element[LinearKeys::kStep].asUInt64();
    if (step >= kTransitionSteps) continue;
    const std::uint64_t from = element[LinearKeys::kAppFrom].asUInt64();
    const std::uint64_t to = element[LinearKeys::kAppTo].asUInt64();
    transitions[step][Narrow32(from)][Narrow32(to)] = Narrow32(element[LinearKeys::kCnt].asUInt64());
    ids.insert(from);
    ids.insert(to);
  }
  return ids;
}

template <typename Value>
std::set<std::uint64_t> Linear::DeserializeTimeBuckets(const Value& array) {
  std::set<std::uint64_t> ids;
  if (!array.isArray()) return ids;
  for (const Value& element : array) {
    if (!HasUnsignedMembers(element, LinearKeys::kBucketApp, LinearKeys::kBucketCnt, LinearKeys::kBucket)) continue;
    const std::uint64_t bucket = element[LinearKeys::kBucket].asUInt64();
    if (bucket >= static_cast<std::uint64_t>(kSlotsPerDay)) continue;
    const std::uint64_t app = element[LinearKeys::kBucketApp].asUInt64();
    timeBuckets[bucket][Narrow32(app)] = Narrow32(element[LinearKeys::kBucketCnt].asUInt64());
    ids.insert(app);
  }
  return ids;
}

template <typename Value>
std::set<std::uint64_t> Linear::DeserializeCounter(const Value& array) {
  std::set<std::uint64_t> ids;
  if (!array.isArray()) return ids;
  for (const Value& element : array) {
    if (element.empty()) continue;
    // Deliberately no isObject() test: on anything but an object this member
    // lookup raises Json::LogicError. A missing member reads as null.
    const Value& app = element[LinearKeys::kCounterApp];
    const Value& count = element[LinearKeys::kCounterCnt];
    if (!app.isUInt64() || !count.isUInt64()) continue;
    statCounter[Narrow32(app.asUInt64())] = Narrow32(count.asUInt64());
    ids.insert(app.asUInt64());
  }
  return ids;
}

bool Linear::VerifyDeserialization(const std::set<std::uint64_t>& known, const std::set<std::uint64_t>& transitionIds,
                                   const std::set<std::uint64_t>& bucketIds,
                                   const std::set<std::uint64_t>& counterIds) const {
  for (const std::set<std::uint64_t>* ids : {&transitionIds, &bucketIds, &counterIds}) {
    if (!std::includes(known.begin(), known.end(), ids->begin(), ids->end())) return false;
  }
  return true;
}

void Linear::CalculateSumTransitions() {
  for (std::size_t step = 0; step < transitions.size() && step < sumTransitions.size(); ++step) {
    for (const auto& [from, row] : transitions[step]) {
      std::int32_t sum = 0;
      for (const auto& entry : row) sum = WrappingAdd(sum, entry.second);
      sumTransitions[step][from] = sum;
    }
  }
}

template <typename Value>
bool Linear::ReadJson(const Value& value) {
  predictionValid = false;
  if (!CheckModelJson(value)) return false;

  const Value& last = value[LinearKeys::kLast];
  if (last.empty() || !last.isArray()) return false;
  lastLaunches.clear();
  DeserializeLastLaunches(last);  // history ids are deliberately not verified

  const Value& names = value[LinearKeys::kStrToId];
  if (names.empty() || !names.isArray()) return false;
  strToId.clear();
  idToStr.clear();
  const std::set<std::uint64_t> known = DeserializeStrToId(names);

  const Value& steps = value[LinearKeys::kTransitions];
  if (steps.empty() || !steps.isArray()) return false;
  transitions.assign(kTransitionSteps, {});
  const std::set<std::uint64_t> transitionIds = DeserializeTransitions(steps);

  const Value& buckets = value[LinearKeys::kTimeBuckets];
  if (buckets.empty() || !buckets.isArray()) return false;
  timeBuckets.assign(kSlotsPerDay, {});
  const std::set<std::uint64_t> bucketIds = DeserializeTimeBuckets(buckets);

  const Value& counts = value[LinearKeys::kStatCounter];
  if (counts.empty() || !counts.isArray()) return false;
  statCounter.clear();
  const std::set<std::uint64_t> counterIds = DeserializeCounter(counts);

  const bool ok = VerifyDeserialization(known, transitionIds, bucketIds, counterIds);
  if (ok) {
    sumTransitions.assign(kTransitionSteps, {});
    CalculateSumTransitions();
  }
  return ok;
}

bool Linear::DeserializeJson(const Json::Value& value) { return ReadJson(value); }

bool Linear::DeserializeJson(const DomValue& value) { return ReadJson(value); }

}  // namespace NuvikPrediction
