// Replays a launch log, one facade per user, through ensembles of predictors
// and through the two baselines, and collects each user's metrics.
#ifndef NUVIK_TOOLS_REPLAY_REPLAY_H_
#define NUVIK_TOOLS_REPLAY_REPLAY_H_

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <iosfwd>
#include <string>
#include <vector>

#include "replay/Baselines.h"
#include "replay/Ensemble.h"
#include "replay/LaunchLog.h"
#include "replay/RankingMetrics.h"
#include "replay/Totals.h"

namespace NuvikReplay {

struct UserResult {
  // One user (users 1); launches count those dropped by skipRepeats; seconds
  // are those spent learning and ranking, the tool's own work excluded.
  Totals totals;
  RunProfile profile;                  // Replay moves it into RunResult::profile
  std::vector<std::string> knownApps;  // at the end of the replay
  std::string document;                // with ReplayOptions::keepDocuments
  std::vector<std::string> notes;      // what the user should know about this replay
  std::vector<LaunchScore> scores;     // one per launch, with ReplayOptions::keepScores
};

struct RunResult {
  std::string label;
  bool baseline = false;
  std::vector<UserResult> users;  // parallel to LaunchLog::users
  RunProfile profile;             // over all users
};

struct ReplayOptions {
  bool skipRepeats = false;
  double killThreshold = 0.05;
  unsigned jobs = 1;  // replays running at once; each facade stays on one thread
  bool lagging = false;  // after each ensemble's run, one of the lists GetNext() showed before each launch
  // With a row size, every run also scores the suggestion row a launcher
  // would show before each accepted launch (see RowTally), made by one
  // Suggestions object per user and run from the run's own ranking, beside a
  // dock of the user's dockSize most launched applications.
  std::size_t rowSize = 0;
  std::size_t dockSize = 0;
  bool stableRow = false;  // keep the previous row's applications in place
  bool keepScores = false;
  bool keepDocuments = false;
  std::string loadTarget;                          // documents to start from (see DocumentPath); empty: fresh facades
  std::ostream* trace = nullptr;                   // per launch: the app and the top five; one job
  std::atomic<std::uint64_t>* progress = nullptr;  // launches replayed so far, all runs together
};

// One run per ensemble, in order, each followed with options.lagging by its
// lagging run ("<label> (lagging)"), then the most recently used and the most
// frequently used baselines. Throws InputError for a document that cannot be
// loaded.
std::vector<RunResult> Replay(const LaunchLog& log, const std::vector<Ensemble>& ensembles,
                              const ReplayOptions& options);

// One user of the log through a fresh facade of `ensemble`. Each accepted
// launch is scored on the list ranked for it, which GetNext() answers right
// after the launch is learned; its row is ranked at the launch's time, before
// it. With `lagging`, the same replay also fills the lagging run: each launch
// scored, by RankingMetrics, on the list GetNext() showed before it, its row
// made from that list. The rows stay out of the time measured.
UserResult ReplayUser(const LaunchLog& log, const UserLog& user, const Ensemble& ensemble,
                      const ReplayOptions& options, UserResult* lagging = nullptr);

// One user of the log through a baseline, with the same metric definitions
// and the same skipRepeats rule as the facade.
UserResult ReplayBaseline(const LaunchLog& log, const UserLog& user, Baseline baseline, const ReplayOptions& options);

}  // namespace NuvikReplay

#endif  // NUVIK_TOOLS_REPLAY_REPLAY_H_
