#include "StatCounter.h"

#include "Constants.h"
#include "DomValue.h"

namespace NuvikPrediction {

StatCounter::StatCounter() : Predictor(kStatCounterName) {}

void StatCounter::Update(const Updater& updater) {
  ++total;
  ++counts[updater.app];
}

void StatCounter::UpdateTime(const std::tm&) {}

std::map<std::string, double> StatCounter::Predict() {
  std::map<std::string, double> result;
  for (const auto& entry : counts) {
    result.emplace_hint(result.end(), entry.first, GetPrediction(entry.first));
  }
  return result;
}

double StatCounter::GetPrediction(const std::string& app) {
  const auto it = counts.find(app);
  if (it == counts.end()) return 0.0;
  return static_cast<double>(it->second) / static_cast<double>(total);
}

Json::Value StatCounter::SerializeJson() const {
  Json::Value result;
  Json::ArrayIndex index = 0;
  for (const auto& [app, count] : counts) {
    Json::Value& element = result[index++];
    element[StatCounterKeys::kApp] = app;
    element[StatCounterKeys::kPopularity] = Json::UInt64{count};
  }
  return result;
}

template <typename Value>
bool StatCounter::ReadJson(const Value& value) {
  if (value.empty() || !value.isArray()) return false;
  total = 0;
  for (const Value& element : value) {
    if (!element.empty() && element.isObject() && !element.isMember(StatCounterKeys::kApp) &&
        !element.isMember(StatCounterKeys::kPopularity)) {
      continue;
    }
    // Member lookup on anything but an object or null throws Json::LogicError.
    const Value& app = element[StatCounterKeys::kApp];
    const Value& popularity = element[StatCounterKeys::kPopularity];
    if (app.isNull() || popularity.isNull() || !app.isString() || !popularity.isUInt64()) continue;
    const auto count = static_cast<std::uint32_t>(popularity.asUInt64());
    counts[app.asString()] = count;
    total += count;
  }
  return true;
}

bool StatCounter::DeserializeJson(const Json::Value& value) { return ReadJson(value); }

bool StatCounter::DeserializeJson(const DomValue& value) { return ReadJson(value); }

}  // namespace NuvikPrediction
