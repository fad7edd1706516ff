// The predictors of a facade, followed from outside call for call, and its
// document written the way the facade wrote it before it wrote text
// directly: a jsoncpp tree of the predictors' SerializeJson() values, written
// by jsoncpp's compact writer.
#ifndef NUVIK_TESTS_REFERENCE_FACADE_H_
#define NUVIK_TESTS_REFERENCE_FACADE_H_

#include <ctime>
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
  explicit ReferenceFacade(NuvikConfig config) {
    while (config.names.size() < config.params.size()) {
      config.names.push_back(config.names.empty() ? kStatCounterName : config.names.back());
    }
    for (std::size_t i = 0; i < config.params.size(); ++i) {
      predictors.push_back(Make(config.names[i], config.params[i]));
    }
  }

  // What Nuvik::Update(app, time) does to the predictors, skipRepeats off:
  // every predictor scores every known application, then learns the launch.
  void Update(const std::string& app, const std::tm& time) {
    for (const std::string& known : knownApps) {
      for (const auto& predictor : predictors) {
        predictor->UpdateTime(time);
        predictor->GetPrediction(known);
      }
    }
    for (const auto& predictor : predictors) predictor->Update(Updater{"", app, time.tm_hour, time.tm_min});
    knownApps.insert(app);
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
    const Json::Value& count = root["count"];
    const Json::Value& models = root["models"];
    if (count.empty() || !count.isUInt64() || count.asUInt64() == 0) return false;
    if (models.empty() || !models.isArray() || count.asUInt64() != models.size()) return false;
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

  std::set<std::string> knownApps;
  std::vector<std::unique_ptr<Predictor>> predictors;
};

}  // namespace NuvikPrediction::testing

#endif  // NUVIK_TESTS_REFERENCE_FACADE_H_
