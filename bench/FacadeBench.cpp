// Cost through the public API, for every ensemble of one slot and every
// two-slot pair of the five types, at 100, 200 and 1000 known applications:
// of one launch (rank every known application, score the metrics, teach every
// predictor) and of the ranking for now, GetNextAt, for a row of five and for
// the whole list. Before timing, every application has been launched and the
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

// A facade of ensemble state.range(0) that knows state.range(1) applications.
class TrainedFacade {
 public:
  explicit TrainedFacade(benchmark::State& state)
      : nuvik(kEnsembles[static_cast<std::size_t>(state.range(0))]), stream(static_cast<int>(state.range(1)), 1) {
    const int apps = static_cast<int>(state.range(1));
    stream.Cover(nuvik);
    for (int i = 0; i < kWarmUpPerApp * apps; ++i) nuvik.Update(stream.Next());
    std::string label;
    for (const std::string& name : kEnsembles[static_cast<std::size_t>(state.range(0))]) {
      label += (label.empty() ? "" : ",") + name;
    }
    state.SetLabel(label);
  }

  Nuvik nuvik;
  LaunchStream stream;
};

void BM_Launch(benchmark::State& state) {
  TrainedFacade trained(state);
  for (auto _ : state) trained.nuvik.Update(trained.stream.Next());
}

// The ranking a launcher asks for between two launches, at the time of the next.
void BM_NextAt(benchmark::State& state) {
  TrainedFacade trained(state);
  const std::size_t count = static_cast<std::size_t>(state.range(2));
  for (auto _ : state) {
    state.PauseTiming();
    const Item item = trained.stream.Next();
    trained.nuvik.Update(item);
    const std::tm time = trained.stream.Next().time;
    state.ResumeTiming();
    benchmark::DoNotOptimize(trained.nuvik.GetNextAt(time, count));
  }
}

const auto kEnsembleArgs = benchmark::CreateDenseRange(0, static_cast<int64_t>(kEnsembles.size()) - 1, 1);

BENCHMARK(BM_Launch)->ArgsProduct({kEnsembleArgs, {100, 200, 1000}})->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_NextAt)->ArgsProduct({kEnsembleArgs, {200, 1000}, {5, 1000}})->Unit(benchmark::kMicrosecond);

}  // namespace
}  // namespace NuvikPrediction::bench
