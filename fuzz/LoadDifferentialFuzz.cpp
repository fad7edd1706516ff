// Reads the same bytes with simdjson first (falling back to jsoncpp) and with
// jsoncpp alone, and aborts on any difference: acceptance, the stream's
// state, the exception that escapes, and the saved document and known
// applications of the facade. Each input runs under one of the
// simdjson implementations this CPU supports, so that no result depends on
// which one the library would pick.
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <sstream>
#include <string>
#include <vector>

#include <json/json.h>
#include <nuvik/Nuvik.h>
#include <simdjson.h>

#include "LoadPath.h"

namespace {

using NuvikPrediction::LoadPath;
using NuvikPrediction::Nuvik;

const std::vector<std::vector<std::string>> kEnsembles = {
    {"stat_counter"},
    {"linear"},
    {"markov_chain3_invalidate", "double_linear"},
    {"knn_regression", "stat_counter"},
};

enum class Escaped { kNothing, kRuntimeError, kLogicError, kOtherJsonError };

struct Outcome {
  Escaped escaped = Escaped::kNothing;
  std::ios_base::iostate state{};
  std::string saved;
  std::vector<std::string> apps;  // byte for byte, which saving does not keep for invalid UTF-8

  bool operator==(const Outcome& other) const {
    return escaped == other.escaped && state == other.state && saved == other.saved && apps == other.apps;
  }
};

std::string Save(const Nuvik& nuvik) {
  std::ostringstream out;
  out << nuvik;
  return out.str();
}

Outcome Load(const std::string& input, const std::vector<std::string>& ensemble, LoadPath path) {
  NuvikPrediction::SetLoadPath(path);
  Nuvik nuvik(ensemble);
  std::istringstream in(input);
  Outcome outcome;
  try {
    in >> nuvik;
  } catch (const Json::RuntimeError&) {
    outcome.escaped = Escaped::kRuntimeError;
  } catch (const Json::LogicError&) {
    outcome.escaped = Escaped::kLogicError;
  } catch (const Json::Exception&) {
    outcome.escaped = Escaped::kOtherJsonError;
  }
  NuvikPrediction::SetLoadPath(LoadPath::kSimdjsonFirst);
  outcome.state = in.rdstate();
  outcome.saved = Save(nuvik);
  for (const auto& [app, weight] : nuvik.GetAllWeights()) outcome.apps.push_back(app);
  return outcome;
}

const std::vector<const simdjson::implementation*>& SupportedImplementations() {
  static const std::vector<const simdjson::implementation*> supported = [] {
    std::vector<const simdjson::implementation*> result;
    for (const simdjson::implementation* implementation : simdjson::get_available_implementations()) {
      if (implementation->supported_by_runtime_system()) result.push_back(implementation);
    }
    return result;
  }();
  return supported;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string input(reinterpret_cast<const char*>(data), size);
  const std::vector<std::string>& ensemble = kEnsembles[size % kEnsembles.size()];
  const auto& implementations = SupportedImplementations();
  simdjson::get_active_implementation() = implementations[size / kEnsembles.size() % implementations.size()];
  if (!(Load(input, ensemble, LoadPath::kSimdjsonFirst) == Load(input, ensemble, LoadPath::kJsoncppOnly))) {
    std::fprintf(stderr, "the two load paths differ (simdjson implementation %s)\n",
                 simdjson::get_active_implementation()->name().c_str());
    std::abort();
  }
  return 0;
}
