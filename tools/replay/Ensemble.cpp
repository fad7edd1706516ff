#include "replay/Ensemble.h"

#include <algorithm>
#include <charconv>

#include "replay/Errors.h"

namespace NuvikReplay {

namespace {

std::vector<std::string_view> SplitOnComma(std::string_view text) {
  std::vector<std::string_view> parts;
  while (true) {
    const std::size_t comma = text.find(',');
    parts.push_back(text.substr(0, comma));
    if (comma == std::string_view::npos) return parts;
    text.remove_prefix(comma + 1);
  }
}

int ParseParam(std::string_view text, std::string_view context) {
  int value = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
  if (text.empty() || error != std::errc() || end != text.data() + text.size()) {
    throw UsageError("bad predictor parameter '" + std::string(text) + "' in '" + std::string(context) +
                     "': expected an integer");
  }
  return value;
}

std::string JoinedTypeNames() {
  std::string joined;
  for (const std::string& name : PredictorTypeNames()) joined += (joined.empty() ? "" : ", ") + name;
  return joined;
}

void Relabel(Ensemble& ensemble) {
  ensemble.label.clear();
  for (std::size_t i = 0; i < ensemble.names.size(); ++i) {
    ensemble.label += (i == 0 ? "" : ",") + ensemble.names[i];
    if (ensemble.params[i] != 1) ensemble.label += ":" + std::to_string(ensemble.params[i]);
  }
}

}  // namespace

const std::vector<std::string>& PredictorTypeNames() {
  static const std::vector<std::string> kNames = {"stat_counter", "linear", "double_linear", "markov_chain3_invalidate",
                                                  "knn_regression"};
  return kNames;
}

Ensemble ParseEnsemble(std::string_view text) {
  Ensemble ensemble;
  for (const std::string_view slot : SplitOnComma(text)) {
    const std::size_t colon = slot.find(':');
    const std::string name(slot.substr(0, colon));
    const auto& known = PredictorTypeNames();
    if (std::find(known.begin(), known.end(), name) == known.end()) {
      throw UsageError("unknown predictor '" + name + "' in '" + std::string(text) + "'; choose from " +
                       JoinedTypeNames());
    }
    ensemble.names.push_back(name);
    ensemble.params.push_back(colon == std::string_view::npos ? 1 : ParseParam(slot.substr(colon + 1), text));
  }
  Relabel(ensemble);
  return ensemble;
}

Ensemble ParseEnsemble(std::string_view names, std::string_view params) {
  Ensemble ensemble = ParseEnsemble(names);
  if (params.empty()) return ensemble;
  const std::vector<std::string_view> values = SplitOnComma(params);
  if (values.size() != ensemble.names.size()) {
    throw UsageError("--params gives " + std::to_string(values.size()) + " values for " +
                     std::to_string(ensemble.names.size()) + " predictors");
  }
  for (std::size_t i = 0; i < values.size(); ++i) ensemble.params[i] = ParseParam(values[i], params);
  Relabel(ensemble);
  return ensemble;
}

NuvikPrediction::NuvikConfig MakeConfig(const Ensemble& ensemble, bool skipRepeats, double killThreshold) {
  NuvikPrediction::NuvikConfig config(ensemble.names, skipRepeats, 60, 0.5, killThreshold);
  config.params = ensemble.params;
  return config;
}

}  // namespace NuvikReplay
