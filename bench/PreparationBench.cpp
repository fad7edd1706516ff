// The ranking for now against the preparation that every launch makes today,
// side by side on the same facades: GetNextAt(time, 5) and GetNextAt(time)
// beside the facade's own PrepareLists(time), for every ensemble of one slot
// and every two-slot pair at 200 and 1000 known applications. Each call
// follows a launch, so no prediction is cached.
#include <benchmark/benchmark.h>

#include "BenchUtil.h"

namespace NuvikPrediction {

class PreparationBench {
 public:
  static void Prepare(Nuvik& nuvik, const std::tm& time) { nuvik.PrepareLists(time); }
};

namespace bench {
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

// Calls `rank` at the time of the next launch, after each launch.
template <typename Rank>
void Measure(benchmark::State& state, Rank rank) {
  const std::vector<std::string>& names = kEnsembles[static_cast<std::size_t>(state.range(0))];
  const int apps = static_cast<int>(state.range(1));
  Nuvik nuvik(names);
  LaunchStream stream(apps, 1);
  stream.Cover(nuvik);
  for (int i = 0; i < 10 * apps; ++i) nuvik.Update(stream.Next());
  for (auto _ : state) {
    state.PauseTiming();
    nuvik.Update(stream.Next());
    const std::tm time = stream.Next().time;
    state.ResumeTiming();
    rank(nuvik, time);
  }
  std::string label;
  for (const std::string& name : names) label += (label.empty() ? "" : ",") + name;
  state.SetLabel(label);
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

const auto kArgs = benchmark::CreateDenseRange(0, static_cast<int64_t>(kEnsembles.size()) - 1, 1);
BENCHMARK(BM_Preparation)->ArgsProduct({kArgs, {200, 1000}})->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_NextAtFive)->ArgsProduct({kArgs, {200, 1000}})->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_NextAtAll)->ArgsProduct({kArgs, {200, 1000}})->Unit(benchmark::kMicrosecond);

}  // namespace
}  // namespace bench
}  // namespace NuvikPrediction
