// A predictor's own share of one facade launch: UpdateTime and GetPrediction
// for every known application, then Update, at 100 and 1000 applications.
#include <memory>
#include <set>
#include <string>

#include <benchmark/benchmark.h>

#include "BenchUtil.h"
#include "DoubleLinear.h"
#include "KnnRegression.h"
#include "Linear.h"
#include "MarkovChain3.h"

namespace NuvikPrediction::bench {
namespace {

Updater ToUpdater(const Item& item) { return Updater{"", item.app, item.time.tm_hour, item.time.tm_min}; }

template <typename P>
void BM_PredictorLaunch(benchmark::State& state) {
  const int apps = static_cast<int>(state.range(0));
  auto predictor = std::make_unique<P>();
  std::set<std::string> known;
  for (int app = 0; app < apps; ++app) {
    Item item;
    item.app = "app" + std::to_string(app);
    predictor->Update(ToUpdater(item));
    known.insert(item.app);
  }
  LaunchStream stream(apps, 1);
  for (int i = 0; i < 2000; ++i) predictor->Update(ToUpdater(stream.Next()));
  for (auto _ : state) {
    const Item item = stream.Next();
    double sum = 0.0;
    for (const std::string& app : known) {
      predictor->UpdateTime(item.time);
      sum += predictor->GetPrediction(app);
    }
    benchmark::DoNotOptimize(sum);
    predictor->Update(ToUpdater(item));
  }
}

BENCHMARK_TEMPLATE(BM_PredictorLaunch, Linear)->Arg(100)->Arg(1000)->Unit(benchmark::kMicrosecond);
BENCHMARK_TEMPLATE(BM_PredictorLaunch, DoubleLinear)->Arg(100)->Arg(1000)->Unit(benchmark::kMicrosecond);
BENCHMARK_TEMPLATE(BM_PredictorLaunch, MarkovChain3)->Arg(100)->Arg(1000)->Unit(benchmark::kMicrosecond);
BENCHMARK_TEMPLATE(BM_PredictorLaunch, KnnRegression)->Arg(100)->Arg(1000)->Unit(benchmark::kMicrosecond);

}  // namespace
}  // namespace NuvikPrediction::bench
