#include "replay/Replay.h"

#include <algorithm>
#include <chrono>
#include <mutex>
#include <numeric>
#include <optional>
#include <ostream>
#include <thread>
#include <unordered_map>

#include <nuvik/Nuvik.h>

#include "replay/Documents.h"
#include "replay/Errors.h"
#include "replay/LocalTime.h"
#include "replay/RowTally.h"
#include "replay/ScoreTally.h"

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

// The log's ids of the names a user's facade lists: those of the user's
// launches, and ids past the log's for names the user never launches (known
// from a loaded document).
class UserAppIds {
 public:
  UserAppIds(const LaunchLog& log, const UserLog& user) : next_(static_cast<AppId>(log.apps.size())) {
    for (const Launch& launch : user.launches) ids_.emplace(log.apps[launch.app], launch.app);
  }

  std::vector<AppId> Of(const std::vector<std::string>& names) {
    std::vector<AppId> ids;
    ids.reserve(names.size());
    for (const std::string& name : names) {
      const auto [entry, added] = ids_.try_emplace(name, next_);
      if (added) ++next_;
      ids.push_back(entry->second);
    }
    return ids;
  }

 private:
  std::unordered_map<std::string, AppId> ids_;
  AppId next_;
};

// A run scored by RankingMetrics on lists the tool holds: a baseline's own,
// or the lists a facade showed one launch behind.
class ListRun {
 public:
  ListRun(const LaunchLog& log, const UserLog& user, UserResult& result, const ReplayOptions& options)
      : user_(user), result_(result), tally_(user, result.totals, result.profile), keepScores_(options.keepScores) {
    if (options.rowSize != 0) rows_.emplace(log, options.rowSize, options.dockSize, options.stableRow);
    if (keepScores_) result_.scores.reserve(user.launches.size());
  }

  bool showsRow() const { return rows_.has_value(); }

  // Before an accepted launch: the row made from `ranking`, best first.
  void ShowRow(const std::vector<std::string>& ranking) { rows_->Show(ranking); }

  // The user's launch `index` (from 0), accepted, ranked in `list`.
  void Score(std::size_t index, const std::vector<AppId>& list) {
    const Launch& launch = user_.launches[index];
    const LaunchScore score = metrics_.Add(list, launch.app);
    if (score.scored) tally_.Add(index + 1, launch.time, score.rank, score.averagePrecision);
    if (rows_) rows_->Launch(launch.app, score.scored, result_.totals);
    if (keepScores_) result_.scores.push_back(score);
  }
  // A launch skipped as a repeat.
  void Skip() {
    if (keepScores_) result_.scores.emplace_back();
  }

  void Finish() {
    result_.totals.users = 1;
    result_.totals.launches = user_.launches.size();
    result_.totals.scored = metrics_.count();
    result_.totals.sumMap = metrics_.sumMap();
    result_.totals.sumRecall = metrics_.sumRecall();
  }

 private:
  const UserLog& user_;
  UserResult& result_;
  RankingMetrics metrics_;
  ScoreTally tally_;
  std::optional<RowTally> rows_;
  bool keepScores_;
};

}  // namespace

UserResult ReplayUser(const LaunchLog& log, const UserLog& user, const Ensemble& ensemble,
                      const ReplayOptions& options, UserResult* lagging) {
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
  ScoreTally tally(user, result.totals, result.profile);
  std::optional<RowTally> rows;
  if (options.rowSize != 0) rows.emplace(log, options.rowSize, options.dockSize, options.stableRow);
  std::optional<ListRun> behind;
  std::optional<UserAppIds> ids;
  if (lagging != nullptr) {
    *lagging = UserResult();
    behind.emplace(log, user, *lagging, options);
    ids.emplace(log, user);
  }
  ProgressReporter progress(options.progress);
  Clock::duration busy{};
  const std::string* lastApp = nullptr;
  std::vector<std::string> shown;  // what GetNext() answers: the list of the last accepted launch
  if (options.keepScores) result.scores.reserve(user.launches.size());
  for (std::size_t i = 0; i < user.launches.size(); ++i) {
    const Launch& launch = user.launches[i];
    const std::string& app = log.apps[launch.app];
    const bool skipped = options.skipRepeats && lastApp != nullptr && *lastApp == app;
    const std::uint64_t countBefore = nuvik.GetCountMetrics();
    const double mapBefore = nuvik.GetSumMap();
    const std::tm time = ToTm(launch.time);
    if (!skipped && rows) rows->Show(nuvik, time);
    if (!skipped && behind && behind->showsRow()) behind->ShowRow(shown);

    const Clock::time_point start = Clock::now();
    nuvik.Update(app, time);
    busy += Clock::now() - start;

    LaunchScore score;
    if (skipped) {
      if (behind) behind->Skip();
    } else {
      lastApp = &app;
      std::vector<std::string> next = nuvik.GetNext();
      score = {nuvik.GetCountMetrics() != countBefore, RankAtFive(next, app), nuvik.GetSumMap() - mapBefore};
      if (score.scored) tally.Add(i + 1, launch.time, score.rank, score.averagePrecision);
      if (rows) rows->Launch(launch.app, score.scored, result.totals);
      if (behind) behind->Score(i, ids->Of(shown));
      shown = std::move(next);
    }
    if (options.keepScores) result.scores.push_back(score);
    if (options.trace != nullptr) TraceLaunch(*options.trace, ensemble.label, user, launch, app, skipped, shown);
    progress.Tick();
  }
  Totals& totals = result.totals;
  totals.users = 1;
  totals.launches = user.launches.size();
  totals.scored = nuvik.GetCountMetrics();
  totals.sumMap = nuvik.GetSumMap();
  totals.sumRecall = nuvik.GetSumRecall();
  totals.seconds = Seconds(busy);
  for (const auto& entry : nuvik.GetAllWeights()) result.knownApps.push_back(entry.first);
  totals.apps = result.knownApps.size();
  if (behind) {
    behind->Finish();
    lagging->totals.seconds = totals.seconds;
    lagging->totals.apps = totals.apps;
    lagging->knownApps = result.knownApps;
  }
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
  UserResult result;
  ListRun run(log, user, result, options);
  std::vector<std::string> names;
  ProgressReporter progress(options.progress);
  Clock::duration busy{};
  std::optional<AppId> lastApp;
  for (std::size_t i = 0; i < user.launches.size(); ++i) {
    const AppId app = user.launches[i].app;
    if (options.skipRepeats && lastApp == app) {
      run.Skip();
    } else {
      const Clock::time_point start = Clock::now();
      const std::vector<AppId>& ranking = ranker.Ranking();
      busy += Clock::now() - start;
      if (run.showsRow()) {
        names.clear();
        for (const AppId ranked : ranking) names.push_back(log.apps[ranked]);
        run.ShowRow(names);
      }
      run.Score(i, ranking);
      const Clock::time_point learning = Clock::now();
      ranker.Learn(app);
      busy += Clock::now() - learning;
      lastApp = app;
    }
    progress.Tick();
  }
  run.Finish();
  result.totals.seconds = Seconds(busy);
  for (const AppId app : ranker.Ranking()) result.knownApps.push_back(log.apps[app]);
  std::sort(result.knownApps.begin(), result.knownApps.end());
  result.totals.apps = result.knownApps.size();
  return result;
}

std::vector<RunResult> Replay(const LaunchLog& log, const std::vector<Ensemble>& ensembles,
                              const ReplayOptions& options) {
  const Baseline baselines[] = {Baseline::kMostRecentlyUsed, Baseline::kMostFrequentlyUsed};
  // One replay per ensemble and baseline: replay r fills runs[firstRun[r]]
  // and, for an ensemble with options.lagging, the lagging run after it.
  std::vector<RunResult> runs;
  std::vector<std::size_t> firstRun;
  for (const Ensemble& ensemble : ensembles) {
    firstRun.push_back(runs.size());
    runs.push_back({ensemble.label, false, {}, {}});
    if (options.lagging) runs.push_back({ensemble.label + " (lagging)", false, {}, {}});
  }
  for (const Baseline baseline : baselines) {
    firstRun.push_back(runs.size());
    runs.push_back({BaselineLabel(baseline), true, {}, {}});
  }
  const std::size_t userCount = log.users.size();
  for (RunResult& run : runs) run.users.resize(userCount);

  // Task t replays user t % userCount through replay t / userCount. With
  // several jobs the longest users go first, so that the last task to end is
  // short.
  const unsigned jobs = options.trace != nullptr ? 1 : std::max(1u, options.jobs);
  std::vector<std::size_t> tasks(firstRun.size() * userCount);
  std::iota(tasks.begin(), tasks.end(), 0);
  if (jobs > 1) {
    std::stable_sort(tasks.begin(), tasks.end(), [&](std::size_t a, std::size_t b) {
      return log.users[a % userCount].launches.size() > log.users[b % userCount].launches.size();
    });
  }
  std::vector<std::string> errors(tasks.size());
  std::atomic<std::size_t> next{0};
  std::atomic<bool> failed{false};
  // Each user's profile joins its run's as soon as the user is replayed.
  std::mutex profiles;
  const auto addProfile = [&profiles](RunResult& run, UserResult& user) {
    const std::lock_guard<std::mutex> lock(profiles);
    run.profile.Add(user.profile);
    user.profile = RunProfile();
  };
  const auto work = [&] {
    while (!failed) {
      const std::size_t i = next++;
      if (i >= tasks.size()) return;
      const std::size_t task = tasks[i];
      const std::size_t replay = task / userCount;
      const std::size_t u = task % userCount;
      RunResult& run = runs[firstRun[replay]];
      try {
        if (replay >= ensembles.size()) {
          run.users[u] = ReplayBaseline(log, log.users[u], baselines[replay - ensembles.size()], options);
        } else if (options.lagging) {
          RunResult& lagging = runs[firstRun[replay] + 1];
          run.users[u] = ReplayUser(log, log.users[u], ensembles[replay], options, &lagging.users[u]);
          addProfile(lagging, lagging.users[u]);
        } else {
          run.users[u] = ReplayUser(log, log.users[u], ensembles[replay], options);
        }
        addProfile(run, run.users[u]);
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
