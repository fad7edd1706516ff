// The facades the facade-level benchmarks time: every ensemble of one slot
// and every two-slot pair of the five types, trained until every application
// has been launched and the histories, transitions and time buckets are full.
#ifndef NUVIK_BENCH_TRAINED_FACADE_H_
#define NUVIK_BENCH_TRAINED_FACADE_H_

#include <cstdint>
#include <string>
#include <vector>

#include <benchmark/benchmark.h>

#include "BenchUtil.h"

namespace NuvikPrediction::bench {

inline const std::vector<std::vector<std::string>>& EveryEnsemble() {
  static const std::vector<std::vector<std::string>> ensembles = [] {
    const std::vector<std::string> types = {"stat_counter", "linear", "double_linear", "markov_chain3_invalidate",
                                            "knn_regression"};
    std::vector<std::vector<std::string>> all;
    for (const std::string& type : types) all.push_back({type});
    for (const std::string& first : types) {
      for (const std::string& second : types) all.push_back({first, second});
    }
    return all;
  }();
  return ensembles;
}

// Benchmark arguments naming every ensemble of EveryEnsemble().
inline std::vector<std::int64_t> EveryEnsembleArgs() {
  return benchmark::CreateDenseRange(0, static_cast<std::int64_t>(EveryEnsemble().size()) - 1, 1);
}

// A facade of ensemble state.range(0) that knows state.range(1) applications,
// each launched once and then ten times more on average; the benchmark is
// labelled with the ensemble.
class TrainedFacade {
 public:
  explicit TrainedFacade(benchmark::State& state)
      : nuvik(Names(state)), stream(static_cast<int>(state.range(1)), 1) {
    stream.Cover(nuvik);
    for (int i = 0; i < 10 * static_cast<int>(state.range(1)); ++i) nuvik.Update(stream.Next());
    std::string label;
    for (const std::string& name : Names(state)) label += (label.empty() ? "" : ",") + name;
    state.SetLabel(label);
  }

  Nuvik nuvik;
  LaunchStream stream;

 private:
  static const std::vector<std::string>& Names(const benchmark::State& state) {
    return EveryEnsemble()[static_cast<std::size_t>(state.range(0))];
  }
};

}  // namespace NuvikPrediction::bench

#endif  // NUVIK_BENCH_TRAINED_FACADE_H_
