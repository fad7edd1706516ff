#include "StatCounter.h"

#include "Constants.h"
#include "JsonWriter.h"
#include "DomValue.h"

namespace NuvikPrediction {

StatCounter::StatCounter() : Predictor(kStatCounterName) {}

void StatCounter::Update(const Updater& updater) {
  ++total;
  const auto [entry, added] = counts.try_emplace(updater.app, 0);
  ++entry->second;
  if (added) ++revision;
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

void StatCounter::ScoreApps(const std::tm& time, const AppList& apps, double* scores) {
  ScoreAppsAt(time, apps, scores);
}

void StatCounter::ScoreAppsAt(const std::tm&, const AppList& apps, double* scores) const {
  const auto& countOf = countOfApp.Get(apps, revision, [this](const std::string& app) -> const std::uint32_t* {
    const auto it = counts.find(app);
    return it == counts.end() ? nullptr : &it->second;
  });
  const auto denominator = static_cast<double>(total);
  for (std::size_t i = 0; i < countOf.size(); ++i) {
    scores[i] = countOf[i] == nullptr ? 0.0 : static_cast<double>(*countOf[i]) / denominator;
  }
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

void StatCounter::WriteJson(JsonWriter& out) const {
  ArrayOrNull array(out);
  for (const auto& [app, count] : counts) {
    array.Element().BeginObject();
    out.Key(StatCounterKeys::kApp);
    out.String(app);
    out.Key(StatCounterKeys::kPopularity);
    out.UInt64(count);
    out.EndObject();
  }
  array.End();
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
    if (counts.insert_or_assign(app.asString(), count).second) ++revision;
    total += count;
  }
  return true;
}

bool StatCounter::DeserializeJson(const Json::Value& value) { return ReadJson(value); }

bool StatCounter::DeserializeJson(const DomValue& value) { return ReadJson(value); }

}  // namespace NuvikPrediction
