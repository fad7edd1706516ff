// Cost of a launcher's row of 5 through the public API, beside the ranking
// prefixes it is compared with: GetNextAt for the row's 5 applications, and
// for the 76 a row asks for (5, plus the 20 excluded, the 50 dismissed and an
// empty name that may sit among them). 200 known applications, the 20
// excluded being the most launched ones, as a dock holds; each call asks at
// a time 7 minutes after the last. The model has learned a long launch
// stream first.
#include <benchmark/benchmark.h>

#include <nuvik/Suggestions.h>

#include "BenchUtil.h"

namespace NuvikPrediction::bench {
namespace {

const std::vector<std::vector<std::string>> kEnsembles = {{"stat_counter"},
                                                          {"markov_chain3_invalidate", "linear"}};
constexpr int kApps = 200;
constexpr int kExcluded = 20;
constexpr int kDismissed = 50;
constexpr std::size_t kRowSize = 5;
constexpr std::size_t kRowReach = kRowSize + kExcluded + kDismissed + 1;

class Launcher {
 public:
  explicit Launcher(const std::vector<std::string>& names) : model_(names) {
    LaunchStream stream(kApps, 1);
    stream.Cover(model_);
    for (int i = 0; i < 10 * kApps; ++i) model_.Update(stream.Next());
    request_.count = kRowSize;
    for (int app = 0; app < kExcluded; ++app) request_.exclude.push_back(Name(app));
    for (int app = 0; app < kDismissed; ++app) suggestions_.Dismiss(Name(kExcluded + 3 * app));
  }

  const Nuvik& model() const { return model_; }
  Suggestions& suggestions() { return suggestions_; }
  RowRequest& request() { return request_; }

  // The next time of day to ask at.
  const std::tm& Now() {
    minute_ = (minute_ + 7) % (24 * 60);
    now_.tm_hour = minute_ / 60;
    now_.tm_min = minute_ % 60;
    return now_;
  }

 private:
  static std::string Name(int app) { return "app" + std::to_string(app); }

  Nuvik model_;
  Suggestions suggestions_;
  RowRequest request_;
  std::tm now_{};
  int minute_ = 0;
};

void Label(benchmark::State& state, const std::vector<std::string>& names) {
  std::string label;
  for (const std::string& name : names) label += (label.empty() ? "" : ",") + name;
  state.SetLabel(label);
}

void BM_NextAt(benchmark::State& state) {
  const std::vector<std::string>& names = kEnsembles[static_cast<std::size_t>(state.range(0))];
  Launcher launcher(names);
  const auto count = static_cast<std::size_t>(state.range(1));
  for (auto _ : state) benchmark::DoNotOptimize(launcher.model().GetNextAt(launcher.Now(), count));
  Label(state, names);
}

void BM_Row(benchmark::State& state) {
  const std::vector<std::string>& names = kEnsembles[static_cast<std::size_t>(state.range(0))];
  Launcher launcher(names);
  launcher.request().stable = state.range(1) != 0;
  for (auto _ : state) {
    benchmark::DoNotOptimize(launcher.suggestions().Row(launcher.model(), launcher.Now(), launcher.request()));
  }
  Label(state, names);
}

const std::vector<int64_t> kEnsembleIndexes =
    benchmark::CreateDenseRange(0, static_cast<int64_t>(kEnsembles.size()) - 1, 1);
// Second argument: how many applications to rank.
BENCHMARK(BM_NextAt)->ArgsProduct({kEnsembleIndexes, {kRowSize, kRowReach}})->Unit(benchmark::kMicrosecond);
// Second argument: 1 for a stable row.
BENCHMARK(BM_Row)->ArgsProduct({kEnsembleIndexes, {0, 1}})->Unit(benchmark::kMicrosecond);

}  // namespace
}  // namespace NuvikPrediction::bench
