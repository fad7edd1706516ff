// Heap held by a MarkovChain3 after a long launch stream, counted exactly by
// replacing the global operator new and delete of this program.
#include <cstddef>
#include <cstdlib>
#include <new>

#include <benchmark/benchmark.h>

#include "BenchUtil.h"
#include "MarkovChain3.h"

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

BENCHMARK(BM_MarkovChainMemory)
    ->Args({100, 100000})
    ->Args({1000, 100000})
    ->Iterations(1)
    ->Unit(benchmark::kMillisecond);

}  // namespace
}  // namespace NuvikPrediction::bench
