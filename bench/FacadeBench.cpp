// Cost of one launch (prepare lists, score metrics, teach every predictor)
// for each ensemble, at 100 and 1000 known applications.
#include <benchmark/benchmark.h>

#include "BenchUtil.h"

namespace NuvikPrediction::bench {
namespace {

const std::vector<std::vector<std::string>> kEnsembles = {
    {"stat_counter"},
    {"linear"},
    {"double_linear"},
    {"markov_chain3_invalidate"},
    {"knn_regression"},
    {"stat_counter", "linear"},
    {"stat_counter", "double_linear"},
    {"stat_counter", "markov_chain3_invalidate"},
    {"stat_counter", "knn_regression"},
    {"markov_chain3_invalidate", "double_linear"},
};

void BM_Launch(benchmark::State& state) {
  const std::vector<std::string>& names = kEnsembles[static_cast<std::size_t>(state.range(0))];
  const int apps = static_cast<int>(state.range(1));
  Nuvik nuvik(names);
  LaunchStream stream(apps, 1);
  stream.Cover(nuvik);
  for (int i = 0; i < 2000; ++i) nuvik.Update(stream.Next());
  for (auto _ : state) nuvik.Update(stream.Next());
  std::string label;
  for (const std::string& name : names) label += (label.empty() ? "" : ",") + name;
  state.SetLabel(label);
}

BENCHMARK(BM_Launch)
    ->ArgsProduct({benchmark::CreateDenseRange(0, static_cast<int64_t>(kEnsembles.size()) - 1, 1), {100, 1000}})
    ->Unit(benchmark::kMicrosecond);

}  // namespace
}  // namespace NuvikPrediction::bench
