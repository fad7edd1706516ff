// The results of a replay as a table for people or as JSON for machines.
#ifndef NUVIK_TOOLS_REPLAY_REPORT_H_
#define NUVIK_TOOLS_REPLAY_REPORT_H_

#include <cstdint>
#include <iosfwd>
#include <vector>

#include "replay/LaunchLog.h"
#include "replay/Replay.h"

namespace NuvikReplay {

struct Totals {
  std::size_t users = 0;
  std::uint64_t launches = 0;
  std::uint64_t scored = 0;
  std::size_t apps = 0;
  double sumMap = 0.0;
  double sumRecall = 0.0;
  double seconds = 0.0;

  // Means over the scored launches, NaN when none was scored.
  double Map() const { return sumMap / static_cast<double>(scored); }
  double Recall() const { return sumRecall / static_cast<double>(scored); }
  double MicrosPerLaunch() const { return seconds * 1e6 / static_cast<double>(launches); }
};

// Sums and counts of every user added up; an application counts once.
Totals TotalOf(const RunResult& run);
Totals TotalOf(const UserResult& user);

// One table of every run over all users, then with perUser one per user.
void PrintTables(std::ostream& out, const LaunchLog& log, const std::vector<RunResult>& runs, bool perUser);

void PrintJson(std::ostream& out, const LaunchLog& log, const std::vector<RunResult>& runs, bool perUser);

}  // namespace NuvikReplay

#endif  // NUVIK_TOOLS_REPLAY_REPORT_H_
