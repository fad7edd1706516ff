// Running MAP and recall at five over the launches of all users, merged in
// time order, for plotting.
#ifndef NUVIK_TOOLS_REPLAY_CURVES_H_
#define NUVIK_TOOLS_REPLAY_CURVES_H_

#include <string>
#include <vector>

#include "replay/LaunchLog.h"
#include "replay/Replay.h"

namespace NuvikReplay {

struct Curve {
  std::string label;
  bool baseline = false;
  // After each launch: the means over every launch scored so far, NaN until
  // the first one.
  std::vector<double> map;
  std::vector<double> recall;
};

// Needs runs replayed with ReplayOptions::keepScores. Launches at the same
// time keep their order in the file.
std::vector<Curve> RunningCurves(const LaunchLog& log, const std::vector<RunResult>& runs);

}  // namespace NuvikReplay

#endif  // NUVIK_TOOLS_REPLAY_CURVES_H_
