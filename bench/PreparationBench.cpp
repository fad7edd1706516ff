// The ranking for now against the preparation that every launch makes today,
// side by side on the same facades: GetNextAt(time, 5) and GetNextAt(time)
// beside the facade's own PrepareLists(time), for every ensemble of one slot
// and every two-slot pair at 200 and 1000 known applications. Each call
// follows a launch, so no prediction is cached.
#include <benchmark/benchmark.h>

#include "TrainedFacade.h"

namespace NuvikPrediction {

class PreparationBench {
 public:
  static void Prepare(Nuvik& nuvik, const std::tm& time) { nuvik.PrepareLists(time); }
};

namespace bench {
namespace {

// Calls `rank` at the time of the next launch, after each launch. The launch
// has just run a preparation; a ranking for now, half a day away, runs too,
// so that both paths start as warm.
template <typename Rank>
void Measure(benchmark::State& state, Rank rank) {
  TrainedFacade trained(state);
  for (auto _ : state) {
    state.PauseTiming();
    trained.nuvik.Update(trained.stream.Next());
    const std::tm time = trained.stream.Next().time;
    std::tm away = time;
    away.tm_hour = (time.tm_hour + 12) % 24;
    benchmark::DoNotOptimize(trained.nuvik.GetNextAt(away, 5));
    state.ResumeTiming();
    rank(trained.nuvik, time);
  }
}

void BM_Preparation(benchmark::State& state) {
  Measure(state, [](Nuvik& nuvik, const std::tm& time) { PreparationBench::Prepare(nuvik, time); });
}

void BM_NextAtFive(benchmark::State& state) {
  Measure(state, [](Nuvik& nuvik, const std::tm& time) { benchmark::DoNotOptimize(nuvik.GetNextAt(time, 5)); });
}

void BM_NextAtAll(benchmark::State& state) {
  Measure(state, [](Nuvik& nuvik, const std::tm& time) { benchmark::DoNotOptimize(nuvik.GetNextAt(time)); });
}

BENCHMARK(BM_Preparation)->ArgsProduct({EveryEnsembleArgs(), {200, 1000}})->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_NextAtFive)->ArgsProduct({EveryEnsembleArgs(), {200, 1000}})->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_NextAtAll)->ArgsProduct({EveryEnsembleArgs(), {200, 1000}})->Unit(benchmark::kMicrosecond);

}  // namespace
}  // namespace bench
}  // namespace NuvikPrediction
