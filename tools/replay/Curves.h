// Running MAP and recall at five over the launches of all users, merged in
// time order, for plotting.
#ifndef NUVIK_TOOLS_REPLAY_CURVES_H_
#define NUVIK_TOOLS_REPLAY_CURVES_H_

#include <cstdint>
#include <string>
#include <vector>

#include "replay/LaunchLog.h"
#include "replay/Replay.h"
#include "replay/Report.h"

namespace NuvikReplay {

struct Curve {
  std::string label;
  bool baseline = false;
  // After each launch (or date): the means over every launch scored so far,
  // NaN until the first one.
  std::vector<double> map;
  std::vector<double> recall;
};

// Needs runs replayed with ReplayOptions::keepScores. Launches at the same
// time keep their order in the file.
std::vector<Curve> RunningCurves(const LaunchLog& log, const std::vector<RunResult>& runs);

// The same means at the end of each calendar date, from the runs' profiles:
// point i of every curve is the date firstDate + i (days since 1970-01-01).
struct DatedCurves {
  std::int64_t firstDate = 0;
  std::vector<Curve> curves;
};

DatedCurves CurvesByDate(const std::vector<RunTotals>& runs);

}  // namespace NuvikReplay

#endif  // NUVIK_TOOLS_REPLAY_CURVES_H_
