// Feeds arbitrary bytes to the document reader of facades of every predictor
// type, then drives whatever was loaded: launches, queries and a save whose
// output is read back. Beside the facade, a reference follows its predictors
// and writes the document as a jsoncpp tree; every document the facade writes
// must be byte for byte the reference's, or the target aborts.
#include <cstdint>
#include <cstdlib>
#include <sstream>
#include <string>
#include <vector>

#include <json/json.h>
#include <nuvik/Nuvik.h>

#include "ReferenceFacade.h"

namespace {

using NuvikPrediction::Nuvik;
using NuvikPrediction::NuvikConfig;
using NuvikPrediction::testing::ReferenceFacade;

const std::vector<std::vector<std::string>> kEnsembles = {
    {"stat_counter"},
    {"linear"},
    {"double_linear"},
    {"markov_chain3_invalidate"},
    {"knn_regression"},
    {"markov_chain3_invalidate", "double_linear"},
};

std::string Save(const Nuvik& nuvik) {
  std::ostringstream out;
  out << nuvik;
  return out.str();
}

void ExpectSameDocument(const Nuvik& nuvik, const ReferenceFacade& reference) {
  if (Save(nuvik) != reference.Save()) std::abort();
}

// Loads `text` into both; they must agree on accepting it or on the
// exception that escapes.
void Load(Nuvik& nuvik, ReferenceFacade& reference, const std::string& text) {
  std::istringstream in(text);
  bool nuvikThrew = false;
  try {
    in >> nuvik;
  } catch (const Json::Exception&) {
    // jsoncpp's own errors (nesting limit, member lookup on a bare value) may
    // pass through; the facade must stay usable.
    nuvikThrew = true;
  }
  bool referenceThrew = false;
  bool accepted = false;
  try {
    accepted = reference.Load(text);
  } catch (const Json::Exception&) {
    referenceThrew = true;
  }
  if (nuvikThrew != referenceThrew || (!nuvikThrew && accepted == in.bad())) std::abort();
}

void Drive(Nuvik& nuvik, ReferenceFacade& reference) {
  std::tm time{};
  for (const char* app : {"a", "b", "a", ""}) {
    time.tm_min += 7;
    nuvik.Update(app, time);
    reference.Update(app, time);
  }
  for (const std::string& app : nuvik.GetNext()) nuvik.GetWeightSingle(app);
  nuvik.GetAllWeights();
  nuvik.PrintNuvikInfo();
  ExpectSameDocument(nuvik, reference);

  const NuvikConfig defaults({1}, "stat_counter");
  Nuvik reloaded(defaults);
  ReferenceFacade reloadedReference(defaults);
  Load(reloaded, reloadedReference, Save(nuvik));
  ExpectSameDocument(reloaded, reloadedReference);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string input(reinterpret_cast<const char*>(data), size);
  // Each length exercises a different ensemble, so that every input stays cheap.
  const NuvikConfig config(kEnsembles[size % kEnsembles.size()], false, 60, 0.5, 0.05);
  Nuvik nuvik(config);
  ReferenceFacade reference(config);
  Load(nuvik, reference, input);
  ExpectSameDocument(nuvik, reference);
  Drive(nuvik, reference);
  return 0;
}
