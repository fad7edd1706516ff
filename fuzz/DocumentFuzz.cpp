// Feeds arbitrary bytes to the document reader of facades of every predictor
// type, then drives whatever was loaded: launches, queries and a save whose
// output is read back.
#include <cstdint>
#include <sstream>
#include <string>
#include <vector>

#include <json/json.h>
#include <nuvik/Nuvik.h>

namespace {

using NuvikPrediction::Nuvik;

const std::vector<std::vector<std::string>> kEnsembles = {
    {"stat_counter"},
    {"linear"},
    {"double_linear"},
    {"markov_chain3_invalidate"},
    {"knn_regression"},
    {"markov_chain3_invalidate", "double_linear"},
};

void Drive(Nuvik& nuvik) {
  std::tm time{};
  for (const char* app : {"a", "b", "a", ""}) {
    time.tm_min += 7;
    nuvik.Update(app, time);
  }
  for (const std::string& app : nuvik.GetNext()) nuvik.GetWeightSingle(app);
  nuvik.GetAllWeights();
  nuvik.PrintNuvikInfo();

  std::stringstream saved;
  saved << nuvik;
  Nuvik reloaded;
  saved >> reloaded;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string input(reinterpret_cast<const char*>(data), size);
  // Each length exercises a different ensemble, so that every input stays cheap.
  Nuvik nuvik(kEnsembles[size % kEnsembles.size()]);
  std::istringstream in(input);
  try {
    in >> nuvik;
  } catch (const Json::Exception&) {
    // jsoncpp's own errors (nesting limit, member lookup on a bare value) may
    // pass through; the facade must stay usable.
  }
  Drive(nuvik);
  return 0;
}
