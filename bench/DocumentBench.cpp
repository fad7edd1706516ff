// Save and load of the document of a ["markov_chain3_invalidate",
// "double_linear"] facade that knows 1000 applications and learned 100,000
// launches. The predictors learn directly (a facade would also rank every
// launch, which changes nothing that is saved), then the facade loads them.
#include <sstream>

#include <benchmark/benchmark.h>
#include <json/json.h>

#include "BenchUtil.h"
#include "DoubleLinear.h"
#include "MarkovChain3.h"

namespace NuvikPrediction::bench {
namespace {

constexpr int kApps = 1000;
constexpr int kLaunches = 100000;
const std::vector<std::string> kEnsemble = {"markov_chain3_invalidate", "double_linear"};

const std::string& TrainedDocument() {
  static const std::string document = [] {
    std::vector<std::unique_ptr<Predictor>> predictors;
    predictors.push_back(std::make_unique<MarkovChain3>());
    predictors.push_back(std::make_unique<DoubleLinear>());
    Json::Value root;
    Json::ArrayIndex app = 0;
    for (; app < kApps; ++app) root["knownApps"][app] = "app" + std::to_string(app);
    LaunchStream stream(kApps, 1);
    for (int i = 0; i < kLaunches; ++i) {
      const Item item = stream.Next();
      for (auto& predictor : predictors) predictor->Update(Updater{"", item.app, item.time.tm_hour, item.time.tm_min});
    }
    for (Json::ArrayIndex slot = 0; slot < predictors.size(); ++slot) {
      root["models"][slot]["name"] = predictors[slot]->name;
      root["models"][slot]["model"] = predictors[slot]->SerializeJson();
    }
    root["count"] = Json::UInt64{predictors.size()};
    root["version"] = 3;
    Json::StreamWriterBuilder builder;
    builder["indentation"] = "";
    return Json::writeString(builder, root);
  }();
  return document;
}

void Load(Nuvik& nuvik) {
  std::istringstream in(TrainedDocument());
  in >> nuvik;
  if (in.bad()) std::abort();
}

void BM_LoadDocument(benchmark::State& state) {
  TrainedDocument();  // built once, outside the timing
  for (auto _ : state) {
    Nuvik nuvik(kEnsemble);
    Load(nuvik);
  }
  state.counters["document_bytes"] = static_cast<double>(TrainedDocument().size());
}

void BM_SaveDocument(benchmark::State& state) {
  Nuvik nuvik(kEnsemble);
  Load(nuvik);
  std::size_t bytes = 0;
  for (auto _ : state) {
    std::ostringstream out;
    out << nuvik;
    bytes = out.str().size();
  }
  state.counters["document_bytes"] = static_cast<double>(bytes);
}

BENCHMARK(BM_LoadDocument)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_SaveDocument)->Unit(benchmark::kMillisecond);

}  // namespace
}  // namespace NuvikPrediction::bench
