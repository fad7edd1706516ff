#include "replay/Replay.h"

#include <algorithm>
#include <chrono>
#include <numeric>
#include <optional>
#include <ostream>
#include <thread>

#include <nuvik/Nuvik.h>

#include "replay/Documents.h"
#include "replay/Errors.h"
#include "replay/LocalTime.h"

namespace NuvikReplay {

namespace {

using Clock = std::chrono::steady_clock;

constexpr std::uint64_t kProgressStep = 1024;
constexpr std::size_t kTraceTop = 5;

double Seconds(Clock::duration duration) { return std::chrono::duration<double>(duration).count(); }

// Adds to the shared progress counter in steps, to keep threads off one cache line.
class ProgressReporter {
 public:
  explicit ProgressReporter(std::atomic<std::uint64_t>* counter) : counter_(counter) {}
  ~ProgressReporter() { Flush(); }

  void Tick() {
    if (++pending_ == kProgressStep) Flush();
  }

 private:
  void Flush() {
    if (counter_ != nullptr && pending_ != 0) counter_->fetch_add(pending_, std::memory_order_relaxed);
    pending_ = 0;
  }

  std::atomic<std::uint64_t>* counter_;
  std::uint64_t pending_ = 0;
};

void TraceLaunch(std::ostream& trace, const std::string& label, const UserLog& user, const Launch& launch,
                 const std::string& app, bool skipped, const std::vector<std::string>& list) {
  trace << '[' << label << "] ";
  if (!user.name.empty()) trace << user.name << ' ';
  trace << FormatLocalTime(launch.time) << ' ' << app;
  if (skipped) {
    trace << " (repeat, skipped)\n";
    return;
  }
  const auto at = std::find(list.begin(), list.end(), app);
  if (at == list.end()) {
    trace << " (new)";
  } else {
    trace << " (#" << (at - list.begin() + 1) << ')';
  }
  trace << " |";
  for (std::size_t i = 0; i < std::min(list.size(), kTraceTop); ++i) trace << (i == 0 ? " " : ", ") << list[i];
  trace << '\n';
}

}  // namespace

UserResult ReplayUser(const LaunchLog& log, const UserLog& user, const Ensemble& ensemble,
                      const ReplayOptions& options) {
  NuvikPrediction::Nuvik nuvik(MakeConfig(ensemble, options.skipRepeats, options.killThreshold));
  UserResult result;
  if (!options.loadTarget.empty()) {
    const std::string path = DocumentPath(options.loadTarget, user.name, log.users.size() > 1);
    const std::string configured = nuvik.PrintNuvikInfo();
    LoadDocument(nuvik, path);
    if (nuvik.PrintNuvikInfo() != configured) {
      result.notes.push_back(path +
                             ": the document's predictors replace the configured ones: " + nuvik.PrintNuvikInfo());
    }
  }
  ProgressReporter progress(options.progress);
  Clock::duration busy{};
  const std::string* lastApp = nullptr;
  if (options.keepScores) result.scores.reserve(user.launches.size());
  for (const Launch& launch : user.launches) {
    const std::string& app = log.apps[launch.app];
    const bool skipped = options.skipRepeats && lastApp != nullptr && *lastApp == app;
    const std::uint64_t countBefore = nuvik.GetCountMetrics();
    const double mapBefore = nuvik.GetSumMap();
    const double recallBefore = nuvik.GetSumRecall();
    const std::tm time = ToTm(launch.time);

    const Clock::time_point start = Clock::now();
    nuvik.Update(app, time);
    busy += Clock::now() - start;

    if (!skipped) lastApp = &app;
    if (options.keepScores) {
      const bool scored = nuvik.GetCountMetrics() != countBefore;
      result.scores.push_back({scored, nuvik.GetSumRecall() != recallBefore, nuvik.GetSumMap() - mapBefore});
    }
    if (options.trace != nullptr) {
      TraceLaunch(*options.trace, ensemble.label, user, launch, app, skipped, nuvik.GetNext());
    }
    progress.Tick();
  }
  result.launches = user.launches.size();
  result.scored = nuvik.GetCountMetrics();
  result.sumMap = nuvik.GetSumMap();
  result.sumRecall = nuvik.GetSumRecall();
  result.seconds = Seconds(busy);
  for (const auto& entry : nuvik.GetAllWeights()) result.knownApps.push_back(entry.first);
  if (options.keepDocuments) {
    result.document = SerializeDocument(nuvik);
    if (!IsLoadable(result.document)) {
      result.notes.push_back("the document of " +
                             (user.name.empty() ? std::string("the log") : "user '" + user.name + "'") +
                             " cannot be loaded back: its predictors learned too little");
    }
  }
  return result;
}

UserResult ReplayBaseline(const LaunchLog& log, const UserLog& user, Baseline baseline, const ReplayOptions& options) {
  BaselineRanker ranker(baseline);
  RankingMetrics metrics;
  UserResult result;
  ProgressReporter progress(options.progress);
  Clock::duration busy{};
  std::optional<AppId> lastApp;
  if (options.keepScores) result.scores.reserve(user.launches.size());
  for (const Launch& launch : user.launches) {
    LaunchScore score;
    if (!options.skipRepeats || lastApp != launch.app) {
      const Clock::time_point start = Clock::now();
      score = metrics.Add(ranker.Ranking(), launch.app);
      ranker.Learn(launch.app);
      busy += Clock::now() - start;
      lastApp = launch.app;
    }
    if (options.keepScores) result.scores.push_back(score);
    progress.Tick();
  }
  result.launches = user.launches.size();
  result.scored = metrics.count();
  result.sumMap = metrics.sumMap();
  result.sumRecall = metrics.sumRecall();
  result.seconds = Seconds(busy);
  for (const AppId app : ranker.Ranking()) result.knownApps.push_back(log.apps[app]);
  std::sort(result.knownApps.begin(), result.knownApps.end());
  return result;
}

std::vector<RunResult> Replay(const LaunchLog& log, const std::vector<Ensemble>& ensembles,
                              const ReplayOptions& options) {
  const Baseline baselines[] = {Baseline::kMostRecentlyUsed, Baseline::kMostFrequentlyUsed};
  std::vector<RunResult> runs;
  for (const Ensemble& ensemble : ensembles) runs.push_back({ensemble.label, false, {}});
  for (const Baseline baseline : baselines) runs.push_back({BaselineLabel(baseline), true, {}});
  const std::size_t userCount = log.users.size();
  for (RunResult& run : runs) run.users.resize(userCount);

  // Task t replays user t % userCount through run t / userCount. With several
  // jobs the longest users go first, so that the last task to end is short.
  const unsigned jobs = options.trace != nullptr ? 1 : std::max(1u, options.jobs);
  std::vector<std::size_t> tasks(runs.size() * userCount);
  std::iota(tasks.begin(), tasks.end(), 0);
  if (jobs > 1) {
    std::stable_sort(tasks.begin(), tasks.end(), [&](std::size_t a, std::size_t b) {
      return log.users[a % userCount].launches.size() > log.users[b % userCount].launches.size();
    });
  }
  std::vector<std::string> errors(tasks.size());
  std::atomic<std::size_t> next{0};
  std::atomic<bool> failed{false};
  const auto work = [&] {
    while (!failed) {
      const std::size_t i = next++;
      if (i >= tasks.size()) return;
      const std::size_t task = tasks[i];
      const std::size_t runIndex = task / userCount;
      const UserLog& user = log.users[task % userCount];
      try {
        runs[runIndex].users[task % userCount] =
            runIndex < ensembles.size() ? ReplayUser(log, user, ensembles[runIndex], options)
                                        : ReplayBaseline(log, user, baselines[runIndex - ensembles.size()], options);
      } catch (const std::exception& error) {
        errors[task] = error.what();
        failed = true;
      }
    }
  };
  std::vector<std::thread> helpers;
  for (unsigned j = 1; j < std::min<std::size_t>(jobs, tasks.size()); ++j) helpers.emplace_back(work);
  work();
  for (std::thread& helper : helpers) helper.join();

  for (const std::string& error : errors) {
    if (!error.empty()) throw InputError(error);
  }
  return runs;
}

}  // namespace NuvikReplay
