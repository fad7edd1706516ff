#ifndef NUVIK_PREDICTOR_H_
#define NUVIK_PREDICTOR_H_

#include <cstdint>
#include <ctime>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include <json/value.h>

#include "Updater.h"

namespace NuvikPrediction {

class JsonWriter;

// The facade's known applications in name order. `revision` changes whenever
// the list does, so that a predictor may keep what it derives from the names
// until then.
struct AppList {
  const std::vector<const std::string*>& names;
  std::uint64_t revision;
};
class DomValue;

// Interface of every predictor of the ensemble. The facade calls, per launch,
// UpdateTime and GetPrediction for every known application (before the launch
// is learned), then Update once.
class Predictor {
 public:
  explicit Predictor(std::string typeName) : name(std::move(typeName)) {}
  Predictor(const Predictor&) = delete;
  Predictor& operator=(const Predictor&) = delete;

  // Learns one launch.
  virtual void Update(const Updater& updater) = 0;
  // Sets the time at which the next questions are asked; called often with
  // the same time, so it must stay cheap.
  virtual void UpdateTime(const std::tm& time) = 0;
  // Score of every application the predictor knows.
  virtual std::map<std::string, double> Predict() = 0;
  // Score of one application; 0.0 for one never seen. Higher is likelier.
  virtual double GetPrediction(const std::string& app) = 0;
  // The whole learned state.
  virtual Json::Value SerializeJson() const = 0;
  // Writes the text that jsoncpp's compact writer makes of SerializeJson(),
  // without building the value.
  virtual void WriteJson(JsonWriter& out) const = 0;
  // Replaces the learned state; false rejects the value, after which the
  // predictor may be partly loaded and is discarded by the facade.
  virtual bool DeserializeJson(const Json::Value& value) = 0;
  // scores[i] = the score of apps.names[i], exactly as UpdateTime(time)
  // followed by GetPrediction for each application in turn would give. The
  // list is never empty.
  virtual void ScoreApps(const std::tm& time, const AppList& apps, double* scores) = 0;
  // The scores that ScoreApps(time, apps, scores) would give now, changing
  // nothing that a later call can tell: what the predictor saves, predicts or
  // caches stays as it was. Only caches that are pure functions of the state
  // may be filled.
  virtual void ScoreAppsAt(const std::tm& time, const AppList& apps, double* scores) const = 0;
  // The same reader over a document parsed by simdjson.
  virtual bool DeserializeJson(const DomValue& value) = 0;
  virtual ~Predictor() = default;

  // Type name; one of the names in Constants.h.
  const std::string name;
};

// What a predictor derives from the facade's application list: one value per
// application, rebuilt only when the list or the predictor's own revision
// (its dictionary, say) has changed since.
template <typename T>
class AppListIndex {
 public:
  // `find(name)` gives the value of one application.
  template <typename Find>
  const std::vector<T>& Get(const AppList& apps, std::uint64_t ownRevision, Find find) const {
    if (!valid_ || appsRevision_ != apps.revision || ownRevision_ != ownRevision) {
      values_.clear();
      values_.reserve(apps.names.size());
      for (const std::string* app : apps.names) values_.push_back(find(*app));
      valid_ = true;
      appsRevision_ = apps.revision;
      ownRevision_ = ownRevision;
      ++generation_;
    }
    return values_;
  }

  // Changes whenever Get rebuilds the values.
  std::uint64_t generation() const { return generation_; }

 private:
  // A cache of what the arguments determine, so Get may fill it from a const
  // caller.
  mutable bool valid_ = false;
  mutable std::uint64_t generation_ = 0;
  mutable std::uint64_t appsRevision_ = 0;
  mutable std::uint64_t ownRevision_ = 0;
  mutable std::vector<T> values_;
};

}  // namespace NuvikPrediction

#endif  // NUVIK_PREDICTOR_H_
