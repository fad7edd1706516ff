// A literal reading of the facade's rules, built from its own predictors:
// every known application asked of every predictor one at a time, names in
// ordered maps and sets, the whole next list sorted at every launch and
// walked for the metrics, and the document written the way the facade wrote
// it before it wrote text directly: a jsoncpp tree of the predictors'
// SerializeJson() values, written by jsoncpp's compact writer.
#ifndef NUVIK_TESTS_REFERENCE_FACADE_H_
#define NUVIK_TESTS_REFERENCE_FACADE_H_

#include <algorithm>
#include <cmath>
#include <ctime>
#include <deque>
#include <map>
#include <memory>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include <json/json.h>
#include <nuvik/Nuvik.h>

#include "Constants.h"
#include "DoubleLinear.h"
#include "KnnRegression.h"
#include "Linear.h"
#include "MarkovChain3.h"
#include "StatCounter.h"

namespace NuvikPrediction::testing {

class ReferenceFacade {
 public:
  // The ensemble that Nuvik(config) builds.
  explicit ReferenceFacade(NuvikConfig config) : config(std::move(config)) {
    while (this->config.names.size() < this->config.params.size()) {
      this->config.names.push_back(this->config.names.empty() ? kStatCounterName : this->config.names.back());
    }
    for (std::size_t i = 0; i < this->config.params.size(); ++i) {
      predictors.push_back(Make(this->config.names[i], this->config.params[i]));
    }
  }

  // What Nuvik::Update(app, time) does, skipRepeats off: rank every known
  // application, score the metrics, teach every predictor.
  void Update(const std::string& app, const std::tm& time) {
    Prepare(time);
    if (recent.size() < 5) {
      lists.push_back(next);
      recent.push_back(app);
    } else {
      ++count;
      const auto top = next.begin() + static_cast<std::ptrdiff_t>(std::min<std::size_t>(next.size(), 5));
      if (std::find(next.begin(), top, app) != top) sumRecall += 1.0;
      lists.push_back(next);
      const std::set<std::string> relevant(recent.begin(), recent.end());
      double total = 0.0;
      int hits = 0;
      // A list names each application once: stop after the last relevant one.
      for (std::size_t i = 0; i < lists.front().size() && hits < static_cast<int>(relevant.size()); ++i) {
        if (relevant.count(lists.front()[i]) == 0) continue;
        ++hits;
        total += static_cast<double>(hits) / static_cast<double>(i + 1);
      }
      const double precision = total / (lists.front().empty() ? 5.0 : static_cast<double>(relevant.size()));
      lists.pop_front();
      recent.pop_front();
      recent.push_back(app);
      sumMap += precision;
    }
    for (const auto& predictor : predictors) predictor->Update(Updater{"", app, time.tm_hour, time.tm_min});
    knownApps.insert(app);
  }

  // What Nuvik::Clear does: configured slots rebuilt as configured, slots a
  // load added rebuilt from their own type.
  void Clear() {
    for (std::size_t i = 0; i < predictors.size(); ++i) {
      predictors[i] = i < config.params.size() ? Make(config.names[i], config.params[i]) : Make(predictors[i]->name, 1);
    }
  }

  // What Nuvik::DeserializeJson does; true when the document is accepted.
  // jsoncpp's exceptions pass through, leaving everything as it was.
  bool Load(const std::string& text) {
    Json::Value root;
    std::istringstream in(text);
    std::string errors;
    if (!Json::parseFromStream(Json::CharReaderBuilder(), in, &root, &errors)) return false;
    if (root.empty() || !root.isObject()) return false;
    for (const char* key : {"knownApps", "count", "models", "version"}) {
      if (!root.isMember(key)) return false;
    }
    const Json::Value& version = root["version"];
    if (version.empty() || !version.isUInt64() || version.asUInt64() != 3) return false;
    const Json::Value& apps = root["knownApps"];
    if (apps.empty() || !apps.isArray()) return false;
    std::set<std::string> loadedApps;
    for (const Json::Value& app : apps) {
      if (app.isString()) loadedApps.insert(app.asString());
    }
    const Json::Value& slots = root["count"];
    const Json::Value& models = root["models"];
    if (slots.empty() || !slots.isUInt64() || slots.asUInt64() == 0) return false;
    if (models.empty() || !models.isArray() || slots.asUInt64() != models.size()) return false;
    std::vector<std::unique_ptr<Predictor>> loaded;
    for (const Json::Value& entry : models) {
      if (entry.empty() || !entry.isObject() || !entry.isMember("name") || !entry.isMember("model")) return false;
      const Json::Value& model = entry["model"];
      if (model.empty() || (!model.isObject() && !model.isArray())) return false;
      const Json::Value& name = entry["name"];
      if (!name.isString() || !IsTypeName(name.asString())) return false;
      loaded.push_back(Make(name.asString(), 1));
      if (!loaded.back()->DeserializeJson(model)) return false;
    }
    predictors = std::move(loaded);
    if (!loadedApps.empty()) knownApps = std::move(loadedApps);
    return true;
  }

  // The document, as the facade's tree used to be built and written.
  std::string Save() const {
    Json::Value root;
    root["version"] = Json::UInt64{3};
    Json::Value apps;
    Json::ArrayIndex appIndex = 0;
    for (const std::string& app : knownApps) apps[appIndex++] = app;
    root["knownApps"] = std::move(apps);
    root["count"] = Json::UInt64{predictors.size()};
    Json::Value models;
    Json::ArrayIndex modelIndex = 0;
    for (const auto& predictor : predictors) {
      Json::Value& entry = models[modelIndex++];
      entry["name"] = predictor->name;
      entry["model"] = predictor->SerializeJson();
    }
    root["models"] = std::move(models);
    Json::StreamWriterBuilder builder;
    builder["indentation"] = "";
    return Json::writeString(builder, root);
  }

  std::map<std::string, int> priorities;
  // Answers of the last preparation and the metrics.
  std::map<std::string, double> weights;
  std::vector<std::string> next;
  double sumMap = 0.0;
  double sumRecall = 0.0;
  std::uint64_t count = 0;
  std::set<std::string> knownApps;

 private:
  static bool IsTypeName(const std::string& name) {
    return name == kLinearName || name == kDoubleLinearName || name == kKnnRegressionName ||
           name == kStatCounterName || name == kMarkovChain3Name;
  }

  static std::unique_ptr<Predictor> Make(const std::string& name, int param) {
    if (name == kKnnRegressionName) return std::make_unique<KnnRegression>(WrappingAdd(param, -1));
    if (name == kMarkovChain3Name) return std::make_unique<MarkovChain3>();
    if (name == kLinearName) return std::make_unique<Linear>();
    if (name == kDoubleLinearName) return std::make_unique<DoubleLinear>();
    return std::make_unique<StatCounter>();
  }

  void Prepare(const std::tm& time) {
    std::vector<std::pair<double, std::string>> ranked;
    for (const std::string& app : knownApps) {
      std::vector<double> scores(predictors.size());
      for (std::size_t i = 0; i < predictors.size(); ++i) {
        predictors[i]->UpdateTime(time);
        scores[i] = predictors[i]->GetPrediction(app);
        const auto priority = priorities.find(app);
        if (priority != priorities.end() && priority->second != 0) scores[i] += (1.0 / priority->second) * 0.6;
      }
      const double combined = scores.size() == 2 ? scores[1] * 0.9 + scores[0] * 0.1
                              : scores.size() == 1 ? scores[0]
                                                   : 0.0;
      ranked.emplace_back(combined, app);
      weights[app] = combined;
    }
    // Descending pairs; NaN below every number.
    std::sort(ranked.begin(), ranked.end(), [](const auto& a, const auto& b) {
      const bool aNan = std::isnan(a.first);
      const bool bNan = std::isnan(b.first);
      if (aNan != bNan) return bNan;
      if (!aNan && a.first != b.first) return a.first > b.first;
      return a.second > b.second;
    });
    next.clear();
    for (const auto& entry : ranked) next.push_back(entry.second);
  }

  NuvikConfig config;
  std::vector<std::unique_ptr<Predictor>> predictors;
  std::deque<std::string> recent;
  std::deque<std::vector<std::string>> lists;
};

}  // namespace NuvikPrediction::testing

#endif  // NUVIK_TESTS_REFERENCE_FACADE_H_
