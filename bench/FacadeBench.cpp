// Cost through the public API, for every ensemble of one slot and every
// two-slot pair of the five types, at 100, 200 and 1000 known applications:
// of one launch (rank every known application, score the metrics, teach every
// predictor) and of the ranking for now, GetNextAt, for a row of five and for
// the whole list. Before timing, every application has been launched and the
// stream has run long enough to fill the histories, transitions and time
// buckets.
#include <benchmark/benchmark.h>

#include "TrainedFacade.h"

namespace NuvikPrediction::bench {
namespace {

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

BENCHMARK(BM_Launch)->ArgsProduct({EveryEnsembleArgs(), {100, 200, 1000}})->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_NextAt)->ArgsProduct({EveryEnsembleArgs(), {200, 1000}, {5, 1000}})->Unit(benchmark::kMicrosecond);

}  // namespace
}  // namespace NuvikPrediction::bench
