// Heap held by predictors and facades after a long launch stream, counted
// exactly by replacing the global operator new and delete of this program.
#include <cstddef>
#include <cstdlib>
#include <new>

#include <benchmark/benchmark.h>

#include "BenchUtil.h"
#include "DoubleLinear.h"
#include "KnnRegression.h"
#include "Linear.h"
#include "MarkovChain3.h"
#include "StatCounter.h"

namespace {

std::size_t liveBytes = 0;
std::size_t liveBlocks = 0;

// Every block starts with its requested size, padded to keep the alignment.
constexpr std::size_t kHeader = alignof(std::max_align_t);

}  // namespace

void* operator new(std::size_t size) {
  void* block = std::malloc(size + kHeader);
  if (block == nullptr) throw std::bad_alloc();
  *static_cast<std::size_t*>(block) = size;
  liveBytes += size;
  ++liveBlocks;
  return static_cast<char*>(block) + kHeader;
}

void operator delete(void* pointer) noexcept {
  if (pointer == nullptr) return;
  void* block = static_cast<char*>(pointer) - kHeader;
  liveBytes -= *static_cast<std::size_t*>(block);
  --liveBlocks;
  std::free(block);
}

void operator delete(void* pointer, std::size_t) noexcept { operator delete(pointer); }

namespace NuvikPrediction::bench {
namespace {

// Learns range(1) launches over range(0) applications, then fills the
// prediction cache once, as the facade's next launch would.
void BM_MarkovChainMemory(benchmark::State& state) {
  const int apps = static_cast<int>(state.range(0));
  const int launches = static_cast<int>(state.range(1));
  for (auto _ : state) {
    LaunchStream stream(apps, 1);
    const std::size_t bytesBefore = liveBytes;
    const std::size_t blocksBefore = liveBlocks;
    auto markov = std::make_unique<MarkovChain3>();
    for (int i = 0; i < launches; ++i) {
      const Item item = stream.Next();
      markov->Update(Updater{"", item.app, item.time.tm_hour, item.time.tm_min});
    }
    const std::size_t learned = liveBytes - bytesBefore;
    benchmark::DoNotOptimize(markov->GetPrediction("app0"));
    const std::size_t cached = liveBytes - bytesBefore;
    const std::size_t blocks = liveBlocks - blocksBefore;

    state.PauseTiming();
    const auto transitions = static_cast<double>(markov->SerializeJson()["markovChain"].size());
    state.counters["transitions"] = transitions;
    state.counters["bytes_learned"] = static_cast<double>(learned);
    state.counters["bytes_with_cache"] = static_cast<double>(cached);
    state.counters["blocks_with_cache"] = static_cast<double>(blocks);
    state.counters["bytes_per_transition"] = static_cast<double>(learned) / transitions;
    markov.reset();
    state.ResumeTiming();
  }
}

// Heap of one predictor after 100,000 launches over 1000 applications and
// one scoring of every application, as the facade's next launch would do.
template <typename P>
void BM_PredictorMemory(benchmark::State& state) {
  constexpr int kApps = 1000;
  constexpr int kLaunches = 100000;
  for (auto _ : state) {
    LaunchStream stream(kApps, 1);
    const std::size_t bytesBefore = liveBytes;
    auto predictor = std::make_unique<P>();
    for (int app = 0; app < kApps; ++app) predictor->Update(Updater{"", "app" + std::to_string(app), 0, 0});
    Item item;
    for (int i = 0; i < kLaunches; ++i) {
      item = stream.Next();
      predictor->Update(Updater{"", item.app, item.time.tm_hour, item.time.tm_min});
    }
    double sum = 0.0;
    for (int app = 0; app < kApps; ++app) {
      predictor->UpdateTime(item.time);
      sum += predictor->GetPrediction("app" + std::to_string(app));
    }
    benchmark::DoNotOptimize(sum);
    state.counters["heap_bytes"] = static_cast<double>(liveBytes - bytesBefore);
    state.PauseTiming();
    predictor.reset();
    state.ResumeTiming();
  }
}

BENCHMARK_TEMPLATE(BM_PredictorMemory, StatCounter)->Iterations(1)->Unit(benchmark::kMillisecond);
BENCHMARK_TEMPLATE(BM_PredictorMemory, Linear)->Iterations(1)->Unit(benchmark::kMillisecond);
BENCHMARK_TEMPLATE(BM_PredictorMemory, DoubleLinear)->Iterations(1)->Unit(benchmark::kMillisecond);
BENCHMARK_TEMPLATE(BM_PredictorMemory, MarkovChain3)->Iterations(1)->Unit(benchmark::kMillisecond);
BENCHMARK_TEMPLATE(BM_PredictorMemory, KnnRegression)->Iterations(1)->Unit(benchmark::kMillisecond);

// Heap of a one-slot facade through the public API after 100,000 launches
// over 1000 applications.
void BM_FacadeMemory(benchmark::State& state) {
  static const char* const kTypes[] = {"stat_counter", "linear", "double_linear", "markov_chain3_invalidate",
                                       "knn_regression"};
  const std::string type = kTypes[state.range(0)];
  for (auto _ : state) {
    LaunchStream stream(1000, 1);
    const std::size_t bytesBefore = liveBytes;
    auto nuvik = std::make_unique<Nuvik>(type);
    stream.Cover(*nuvik);
    for (int i = 0; i < 100000; ++i) nuvik->Update(stream.Next());
    state.counters["heap_bytes"] = static_cast<double>(liveBytes - bytesBefore);
    state.PauseTiming();
    nuvik.reset();
    state.ResumeTiming();
  }
  state.SetLabel(type);
}

BENCHMARK(BM_FacadeMemory)->DenseRange(0, 4)->Iterations(1)->Unit(benchmark::kMillisecond);

BENCHMARK(BM_MarkovChainMemory)
    ->Args({100, 100000})
    ->Args({1000, 100000})
    ->Iterations(1)
    ->Unit(benchmark::kMillisecond);

}  // namespace
}  // namespace NuvikPrediction::bench
