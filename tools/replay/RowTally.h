// The suggestion row of one user and run: before each accepted launch, the
// row a launcher would show beside a dock of the user's most launched
// applications, scored against the launch.
#ifndef NUVIK_TOOLS_REPLAY_ROW_TALLY_H_
#define NUVIK_TOOLS_REPLAY_ROW_TALLY_H_

#include <cstddef>
#include <ctime>
#include <string>
#include <vector>

#include <nuvik/Nuvik.h>
#include <nuvik/Suggestions.h>

#include "replay/Baselines.h"
#include "replay/LaunchLog.h"
#include "replay/Totals.h"

namespace NuvikReplay {

class RowTally {
 public:
  // A row of `size` applications beside a dock of `dockSize`; `stable` keeps
  // the previous row's applications in place.
  RowTally(const LaunchLog& log, std::size_t size, std::size_t dockSize, bool stable);

  // The row before the next launch: from the facade's ranking at `time`, or
  // from a ranking held, best first.
  void Show(const NuvikPrediction::Nuvik& nuvik, const std::tm& time);
  void Show(const std::vector<std::string>& ranking);

  // Scores the row shown (when the launch is scored) and learns the launch
  // into the dock. Churn counts the positions at which the row differs from
  // the one shown before the previous launch, from the second scored launch on.
  void Launch(AppId app, bool scored, Totals& totals);

 private:
  void ExcludeDock();

  const LaunchLog& log_;
  std::size_t dockSize_;
  NuvikPrediction::Suggestions suggestions_;
  NuvikPrediction::RowRequest request_;  // its exclude list is the dock
  BaselineRanker dock_{Baseline::kMostFrequentlyUsed};
  std::vector<std::string> row_;
  std::vector<std::string> previousRow_;
  bool scoredBefore_ = false;
};

}  // namespace NuvikReplay

#endif  // NUVIK_TOOLS_REPLAY_ROW_TALLY_H_
