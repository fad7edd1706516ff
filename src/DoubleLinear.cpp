#include "DoubleLinear.h"

#include <algorithm>
#include <utility>

#include <json/value.h>

#include "Constants.h"
#include "JsonWriter.h"
#include "DomValue.h"

namespace NuvikPrediction {

namespace {

constexpr int kTransitionSteps = 10;
constexpr std::size_t kHistory = 10;
constexpr double kMinDenominator = 1e-9;
constexpr std::uint32_t kNowhere = UINT32_MAX;

// The pooled value of two fractions of one feature; a missing fraction is 0/0.
double Pool(const Linear::Fraction& first, const Linear::Fraction& second) {
  const double numerator = first.numerator + second.numerator;
  const double denominator = first.denominator + second.denominator;
  return denominator < kMinDenominator ? 0.0 : numerator / denominator;
}

}  // namespace

DoubleLinear::DoubleLinear()
    : Predictor(kDoubleLinearName), firstLinear(std::make_unique<Linear>()), secondLinear(std::make_unique<Linear>()) {}

void DoubleLinear::Update(const Updater& updater) {
  predictionValid = false;
  const std::string app = updater.app;
  const bool firstFull = firstLinear->IsFull();
  const bool secondFull = secondLinear->IsFull();
  if (firstFull && secondFull) {
    // Turnover: the younger stage becomes the first, the older one is dropped.
    std::swap(firstLinear, secondLinear);
    secondLinear = std::make_unique<Linear>();
    pooledStale = true;
    secondLinear->UpdateTime(lastTime);
    // Most recent first into a queue that pushes at the front: the new stage's
    // history is the survivor's reversed, a deliberate quirk.
    for (const std::string& name : firstLinear->GetLastLaunches()) secondLinear->UpdateLastLaunches(name);
    secondLinear->Update(updater);
    firstLinear->UpdateLastLaunches(app);
  } else if (firstFull) {
    secondLinear->Update(updater);
    firstLinear->UpdateLastLaunches(app);
  } else if (!secondFull) {
    firstLinear->Update(updater);
    secondLinear->UpdateLastLaunches(app);
  }
  // First stage not full but second full: only a loaded document gets here;
  // nothing is learned, by design.
}

void DoubleLinear::UpdateTime(const std::tm& time) {
  lastTime = time;
  firstLinear->UpdateTime(time);
  secondLinear->UpdateTime(time);
}

void DoubleLinear::RefreshPooledNames() const {
  if (!pooledStale && firstRevision == firstLinear->DictionaryRevision() &&
      secondRevision == secondLinear->DictionaryRevision()) {
    return;
  }
  auto names = std::make_shared<PooledNames>();
  const Linear& first = *firstLinear;
  const Linear& second = *secondLinear;
  pooledOfFirst.assign(first.NameCount(), kNowhere);
  pooledOfSecond.assign(second.NameCount(), kNowhere);
  auto inFirst = first.SlotsByName().begin();
  auto inSecond = second.SlotsByName().begin();
  const auto firstEnd = first.SlotsByName().end();
  const auto secondEnd = second.SlotsByName().end();
  while (inFirst != firstEnd || inSecond != secondEnd) {
    const bool takeFirst = inSecond == secondEnd || (inFirst != firstEnd && first.NameOf(*inFirst) <= second.NameOf(*inSecond));
    const bool takeSecond =
        inFirst == firstEnd || (inSecond != secondEnd && second.NameOf(*inSecond) <= first.NameOf(*inFirst));
    const auto position = static_cast<std::uint32_t>(names->names.size());
    names->names.push_back(takeFirst ? first.NameOf(*inFirst) : second.NameOf(*inSecond));
    names->first.push_back(takeFirst ? std::int64_t{*inFirst} : -1);
    names->second.push_back(takeSecond ? std::int64_t{*inSecond} : -1);
    if (takeFirst) pooledOfFirst[*inFirst++] = position;
    if (takeSecond) pooledOfSecond[*inSecond++] = position;
  }
  pooled = std::move(names);
  ++pooledRevision;
  pooledStale = false;
  firstRevision = first.DictionaryRevision();
  secondRevision = second.DictionaryRevision();
}

void DoubleLinear::RefreshPrediction() {
  if (predictionValid || firstLinear->HistorySize() < kHistory) return;
  RefreshPooledNames();
  ComputeScores(TimeSlot(lastTime.tm_hour, lastTime.tm_min), scores, scored);
  if (predictionNames != pooled) {
    predictionNames = pooled;
    ++predictionRevision;
  }
  predictionValid = true;
}

// The prediction holds the names that either stage counts, each adding its
// pooled features in the order counter, transitions, previous launches,
// time. A pooled value of 0 (from fractions that a name lacks in both stages)
// leaves a score as it is, so only the names a feature reaches are visited.
void DoubleLinear::ComputeScores(int slot, std::vector<double>& out, std::vector<std::uint8_t>& outScored) const {
  const Linear& first = *firstLinear;
  const Linear& second = *secondLinear;
  const PooledNames& names = *pooled;
  const std::size_t count = names.names.size();
  const FeatureWeights& weight = kFeatureWeights;
  out.assign(count, 0.0);
  outScored.assign(count, 0);

  const double firstCounter = first.CounterDenominator();
  const double secondCounter = second.CounterDenominator();
  for (std::size_t i = 0; i < count; ++i) {
    const std::int32_t* x = names.first[i] < 0 ? nullptr : first.CountOf(static_cast<std::uint32_t>(names.first[i]));
    const std::int32_t* y =
        names.second[i] < 0 ? nullptr : second.CountOf(static_cast<std::uint32_t>(names.second[i]));
    if (x == nullptr && y == nullptr) continue;
    outScored[i] = 1;
    out[i] += Pool(x == nullptr ? Linear::Fraction{} : Linear::Fraction{static_cast<double>(*x), firstCounter},
                      y == nullptr ? Linear::Fraction{} : Linear::Fraction{static_cast<double>(*y), secondCounter}) *
                 weight.counter;
  }

  firstFractions.resize(count);
  secondFractions.resize(count);
  reachedStamp.resize(count, 0);
  for (int k = 0; k < kTransitionSteps; ++k) {
    ++stamp;
    reached.clear();
    const auto reach = [&](std::uint32_t position, std::vector<Linear::Fraction>& fractions, double numerator,
                           double denominator) {
      if (reachedStamp[position] != stamp) {
        reachedStamp[position] = stamp;
        reached.push_back(position);
        firstFractions[position] = secondFractions[position] = Linear::Fraction{};
      }
      fractions[position] = Linear::Fraction{numerator, denominator};
    };
    first.ForEachTransition(k, [&](std::uint32_t slot, double numerator, double denominator) {
      reach(pooledOfFirst[slot], firstFractions, numerator, denominator);
    });
    second.ForEachTransition(k, [&](std::uint32_t slot, double numerator, double denominator) {
      reach(pooledOfSecond[slot], secondFractions, numerator, denominator);
    });
    for (const std::uint32_t i : reached) {
      if (outScored[i]) out[i] += Pool(firstFractions[i], secondFractions[i]) * weight.transition[k];
    }
  }

  // The previous-launch fractions pool to 1 for an application at that place
  // of either history (1/1 or 2/2) and to 0 for every other one.
  for (int k = 0; k < kTransitionSteps; ++k) {
    const std::int64_t x = first.PreviousSlot(k);
    const std::int64_t y = second.PreviousSlot(k);
    const std::uint32_t inFirst = x < 0 ? kNowhere : pooledOfFirst[static_cast<std::size_t>(x)];
    std::uint32_t inSecond = y < 0 ? kNowhere : pooledOfSecond[static_cast<std::size_t>(y)];
    if (inSecond == inFirst) inSecond = kNowhere;
    for (const std::uint32_t i : {inFirst, inSecond}) {
      if (i != kNowhere && outScored[i]) out[i] += 1.0 * weight.prev[k];
    }
  }

  const double firstTime = first.TimeNumerators(slot, firstNumerators);
  const double secondTime = second.TimeNumerators(slot, secondNumerators);
  for (std::size_t i = 0; i < count; ++i) {
    if (!outScored[i]) continue;
    const std::int64_t x = names.first[i];
    const std::int64_t y = names.second[i];
    out[i] += Pool(x < 0 ? Linear::Fraction{} : Linear::Fraction{firstNumerators[static_cast<std::size_t>(x)], firstTime},
                      y < 0 ? Linear::Fraction{}
                            : Linear::Fraction{secondNumerators[static_cast<std::size_t>(y)], secondTime}) *
                 weight.time;
  }
}

std::int64_t DoubleLinear::PositionIn(const PooledNames* names, const std::string& app) {
  if (names == nullptr) return -1;
  const auto it = std::lower_bound(names->names.begin(), names->names.end(), app);
  if (it == names->names.end() || *it != app) return -1;
  return it - names->names.begin();
}

std::map<std::string, double> DoubleLinear::Predict() {
  RefreshPrediction();
  std::map<std::string, double> result;
  for (std::size_t i = 0; i < scores.size(); ++i) {
    if (scored[i]) result.emplace_hint(result.end(), predictionNames->names[i], scores[i]);
  }
  return result;
}

double DoubleLinear::GetPrediction(const std::string& app) {
  RefreshPrediction();
  const std::int64_t position = PositionIn(predictionNames.get(), app);
  return position < 0 || !scored[static_cast<std::size_t>(position)] ? 0.0 : scores[static_cast<std::size_t>(position)];
}

void DoubleLinear::ScoreApps(const std::tm& time, const AppList& apps, double* result) {
  UpdateTime(time);
  RefreshPrediction();
  CopyScores(apps, positionOfApp, predictionNames.get(), predictionRevision, scores, scored, result);
}

// Without a valid prediction, RefreshPrediction would compute one for the
// time, unless the first stage's history is too short, when the last one stays.
void DoubleLinear::ScoreAppsAt(const std::tm& time, const AppList& apps, double* result) const {
  if (predictionValid || firstLinear->HistorySize() < kHistory) {
    CopyScores(apps, positionOfApp, predictionNames.get(), predictionRevision, scores, scored, result);
    return;
  }
  RefreshPooledNames();
  ComputeScores(TimeSlot(time.tm_hour, time.tm_min), scratchScores, scratchScored);
  CopyScores(apps, positionOfPooledApp, pooled.get(), pooledRevision, scratchScores, scratchScored, result);
}

void DoubleLinear::CopyScores(const AppList& apps, const AppListIndex<std::int64_t>& index, const PooledNames* names,
                              std::uint64_t revision, const std::vector<double>& source,
                              const std::vector<std::uint8_t>& sourceScored, double* result) {
  const auto& positionOf = index.Get(apps, revision, [names](const std::string& app) { return PositionIn(names, app); });
  for (std::size_t i = 0; i < positionOf.size(); ++i) {
    const auto position = static_cast<std::size_t>(positionOf[i]);
    result[i] = positionOf[i] < 0 || !sourceScored[position] ? 0.0 : source[position];
  }
}

Json::Value DoubleLinear::SerializeJson() const {
  Json::Value root(Json::objectValue);
  root[DoubleLinearKeys::kFirstLinear] = firstLinear->SerializeJson();
  root[DoubleLinearKeys::kSecondLinear] = secondLinear->SerializeJson();
  return root;
}

void DoubleLinear::WriteJson(JsonWriter& out) const {
  out.BeginObject();
  out.Key(DoubleLinearKeys::kFirstLinear);
  firstLinear->WriteJson(out);
  out.Key(DoubleLinearKeys::kSecondLinear);
  secondLinear->WriteJson(out);
  out.EndObject();
}

void DoubleLinear::ReseedSecondStage() {
  secondLinear = std::make_unique<Linear>();
  pooledStale = true;
  for (const std::string& name : firstLinear->GetLastLaunches()) secondLinear->UpdateLastLaunches(name);
}

template <typename Value>
bool DoubleLinear::ReadJson(const Value& value) {
  using namespace DoubleLinearKeys;
  if (value.empty() || !value.isObject()) return false;
  if (!value.isMember(kFirstLinear) || !value.isMember(kSecondLinear)) return false;
  const Value& first = value[kFirstLinear];
  pooledStale = true;
  if (first.empty() || !firstLinear->DeserializeJson(first)) return false;
  const Value& second = value[kSecondLinear];
  if (!second.empty() && secondLinear->DeserializeJson(second)) return true;
  // A missing or broken second stage restarts from the first stage's history;
  // unlike at turnover it is not given the last time.
  ReseedSecondStage();
  return true;
}

bool DoubleLinear::DeserializeJson(const Json::Value& value) { return ReadJson(value); }

bool DoubleLinear::DeserializeJson(const DomValue& value) { return ReadJson(value); }

}  // namespace NuvikPrediction
