// Ensembles named on the command line: "name[:param],name[:param]...", one
// predictor slot per name.
#ifndef NUVIK_TOOLS_REPLAY_ENSEMBLE_H_
#define NUVIK_TOOLS_REPLAY_ENSEMBLE_H_

#include <string>
#include <string_view>
#include <vector>

#include <nuvik/Nuvik.h>

namespace NuvikReplay {

struct Ensemble {
  std::string label;  // names joined by ',', each with ":param" unless the parameter is 1
  std::vector<std::string> names;
  std::vector<int> params;
};

// The predictor type names the library documents.
const std::vector<std::string>& PredictorTypeNames();

// Throws UsageError for an unknown type name or a malformed parameter.
Ensemble ParseEnsemble(std::string_view text);

// --predictors with a separate --params list "1,1" (empty: parameters from
// the names, else one per name).
Ensemble ParseEnsemble(std::string_view names, std::string_view params);

NuvikPrediction::NuvikConfig MakeConfig(const Ensemble& ensemble, bool skipRepeats, double killThreshold);

}  // namespace NuvikReplay

#endif  // NUVIK_TOOLS_REPLAY_ENSEMBLE_H_
