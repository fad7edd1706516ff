#include "DoubleLinear.h"

#include <utility>
#include <vector>

#include <json/value.h>

#include "Constants.h"
#include "DomValue.h"

namespace NuvikPrediction {

namespace {

constexpr int kTransitionSteps = 10;
constexpr std::size_t kHistory = 10;
constexpr double kMinDenominator = 1e-9;

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

void DoubleLinear::Combine(const std::map<std::string, Linear::Fraction>& first,
                           const std::map<std::string, Linear::Fraction>& second, const std::string& key) {
  const double weight = kDefaultWeights.at(key);
  // prediction holds exactly the application set; all three maps are in name
  // order, so one merged walk finds each application's two fractions.
  auto inFirst = first.begin();
  auto inSecond = second.begin();
  for (auto& [app, score] : prediction) {
    while (inFirst != first.end() && inFirst->first < app) ++inFirst;
    while (inSecond != second.end() && inSecond->first < app) ++inSecond;
    const Linear::Fraction x = inFirst != first.end() && inFirst->first == app ? inFirst->second : Linear::Fraction{};
    const Linear::Fraction y =
        inSecond != second.end() && inSecond->first == app ? inSecond->second : Linear::Fraction{};
    const double numerator = x.numerator + y.numerator;
    const double denominator = x.denominator + y.denominator;
    const double value = denominator < kMinDenominator ? 0.0 : numerator / denominator;
    score += value * weight;
  }
}

// Pooled, the previous-launch fractions give 1 to an application at that
// place of either history (1/1 or 2/2) and 0 to every other one, which leaves
// its score as it is.
void DoubleLinear::AddPreviousLaunch(const std::string* first, const std::string* second, const std::string& key) {
  const double weight = kDefaultWeights.at(key);
  if (second != nullptr && first != nullptr && *second == *first) second = nullptr;
  for (const std::string* name : {first, second}) {
    if (name == nullptr) continue;
    const auto entry = prediction.find(*name);
    if (entry != prediction.end()) entry->second += 1.0 * weight;
  }
}

void DoubleLinear::RefreshPrediction() {
  // Checking the flag first skips building the name list; both tests are
  // free of side effects, so the order does not matter.
  if (predictionValid || firstLinear->GetLastLaunches().size() < kHistory) return;
  prediction.clear();
  const auto firstCounter = firstLinear->PredictCounter();
  const auto secondCounter = secondLinear->PredictCounter();
  for (const auto& entry : firstCounter) prediction.emplace_hint(prediction.end(), entry.first, 0.0);
  for (const auto& entry : secondCounter) prediction.emplace(entry.first, 0.0);
  Combine(firstCounter, secondCounter, kCounterFeature);
  for (int k = 0; k < kTransitionSteps; ++k) {
    Combine(firstLinear->PredictTransition(k), secondLinear->PredictTransition(k),
            kTransitionFeature + std::to_string(k));
  }
  for (int k = 0; k < kTransitionSteps; ++k) {
    AddPreviousLaunch(firstLinear->PreviousLaunch(k), secondLinear->PreviousLaunch(k),
                      kPrevFeature + std::to_string(k));
  }
  const int slot = TimeSlot(lastTime.tm_hour, lastTime.tm_min);
  Combine(firstLinear->PredictTime(slot), secondLinear->PredictTime(slot), kTimeFeature);
  predictionValid = true;
}

std::map<std::string, double> DoubleLinear::Predict() {
  RefreshPrediction();
  return prediction;
}

double DoubleLinear::GetPrediction(const std::string& app) {
  RefreshPrediction();
  const auto it = prediction.find(app);
  return it == prediction.end() ? 0.0 : it->second;
}

Json::Value DoubleLinear::SerializeJson() const {
  Json::Value root(Json::objectValue);
  root[DoubleLinearKeys::kFirstLinear] = firstLinear->SerializeJson();
  root[DoubleLinearKeys::kSecondLinear] = secondLinear->SerializeJson();
  return root;
}

void DoubleLinear::ReseedSecondStage() {
  secondLinear = std::make_unique<Linear>();
  for (const std::string& name : firstLinear->GetLastLaunches()) secondLinear->UpdateLastLaunches(name);
}

template <typename Value>
bool DoubleLinear::ReadJson(const Value& value) {
  using namespace DoubleLinearKeys;
  if (value.empty() || !value.isObject()) return false;
  if (!value.isMember(kFirstLinear) || !value.isMember(kSecondLinear)) return false;
  const Value& first = value[kFirstLinear];
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
