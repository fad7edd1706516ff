#ifndef NUVIK_PREDICTOR_H_
#define NUVIK_PREDICTOR_H_

#include <ctime>
#include <map>
#include <string>
#include <utility>

#include <json/value.h>

#include "Updater.h"

namespace NuvikPrediction {

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
  // Replaces the learned state; false rejects the value, after which the
  // predictor may be partly loaded and is discarded by the facade.
  virtual bool DeserializeJson(const Json::Value& value) = 0;
  // The same reader over a document parsed by simdjson.
  virtual bool DeserializeJson(const DomValue& value) = 0;
  virtual ~Predictor() = default;

  // Type name; one of the names in Constants.h.
  const std::string name;
};

}  // namespace NuvikPrediction

#endif  // NUVIK_PREDICTOR_H_
