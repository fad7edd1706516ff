// Cost of one launch through the public API (rank every known application,
// score the metrics, teach every predictor) for every ensemble of one slot
// and every two-slot pair of the five types, at 100, 200 and 1000 known
// applications. Before timing, every application has been launched and the
// stream has run long enough to fill the histories, transitions and time
// buckets.
#include <benchmark/benchmark.h>

#include "BenchUtil.h"

namespace NuvikPrediction::bench {
namespace {

const std::vector<std::string> kTypes = {"stat_counter", "linear", "double_linear", "markov_chain3_invalidate",
                                         "knn_regression"};

std::vector<std::vector<std::string>> Ensembles() {
  std::vector<std::vector<std::string>> ensembles;
  for (const std::string& type : kTypes) ensembles.push_back({type});
  for (const std::string& first : kTypes) {
    for (const std::string& second : kTypes) ensembles.push_back({first, second});
  }
  return ensembles;
}

const std::vector<std::vector<std::string>> kEnsembles = Ensembles();

// Launches after every application has been launched once, per application.
constexpr int kWarmUpPerApp = 10;

void BM_Launch(benchmark::State& state) {
  const std::vector<std::string>& names = kEnsembles[static_cast<std::size_t>(state.range(0))];
  const int apps = static_cast<int>(state.range(1));
  Nuvik nuvik(names);
  LaunchStream stream(apps, 1);
  stream.Cover(nuvik);
  for (int i = 0; i < kWarmUpPerApp * apps; ++i) nuvik.Update(stream.Next());
  for (auto _ : state) nuvik.Update(stream.Next());
  std::string label;
  for (const std::string& name : names) label += (label.empty() ? "" : ",") + name;
  state.SetLabel(label);
}

BENCHMARK(BM_Launch)
    ->ArgsProduct({benchmark::CreateDenseRange(0, static_cast<int64_t>(kEnsembles.size()) - 1, 1), {100, 200, 1000}})
    ->Unit(benchmark::kMicrosecond);

}  // namespace
}  // namespace NuvikPrediction::bench
