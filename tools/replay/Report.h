// The results of a replay as a table for people or as JSON for machines.
#ifndef NUVIK_TOOLS_REPLAY_REPORT_H_
#define NUVIK_TOOLS_REPLAY_REPORT_H_

#include <cstdint>
#include <iosfwd>
#include <string>
#include <vector>

#include "replay/LaunchLog.h"
#include "replay/Replay.h"
#include "replay/Totals.h"

namespace NuvikReplay {

// Sums and counts of every user added up; an application counts once.
Totals TotalOf(const RunResult& run);
Totals TotalOf(const UserResult& user);

// Per-user totals added up in order, the way TotalOf adds a run's users;
// `apps` is the number of distinct applications among them.
Totals AddUp(const std::vector<Totals>& users, std::size_t apps);

// What a report says of the log and of each run, so that results gathered
// elsewhere (several processes, several machines) print like a local replay.
struct LogSummary {
  std::string source;
  std::size_t launchCount = 0;
  std::size_t appCount = 0;
  std::size_t badRows = 0;
  std::vector<std::string> userNames;
  // Local time of the earliest and the latest launch.
  LocalSeconds firstLaunch = 0;
  LocalSeconds lastLaunch = 0;
};

struct RunTotals {
  std::string label;
  bool baseline = false;
  Totals total;
  std::vector<Totals> users;  // parallel to LogSummary::userNames
  RunProfile profile;         // over all users
};

LogSummary SummaryOf(const LaunchLog& log);
std::vector<RunTotals> TotalsOf(const std::vector<RunResult>& runs);

struct ReportOptions {
  bool perUser = false;  // each user's figures too
  bool row = false;      // the suggestion row's measures (replayed with a row)
};

// One table of every run over all users, then with perUser one per user.
void PrintTables(std::ostream& out, const LaunchLog& log, const std::vector<RunResult>& runs,
                 const ReportOptions& options);
void PrintTables(std::ostream& out, const LogSummary& log, const std::vector<RunTotals>& runs,
                 const ReportOptions& options);

// The same as JSON; without options.row the row's fields are absent.
void PrintJson(std::ostream& out, const LaunchLog& log, const std::vector<RunResult>& runs,
               const ReportOptions& options);
void PrintJson(std::ostream& out, const LogSummary& log, const std::vector<RunTotals>& runs,
               const ReportOptions& options);

}  // namespace NuvikReplay

#endif  // NUVIK_TOOLS_REPLAY_REPORT_H_
