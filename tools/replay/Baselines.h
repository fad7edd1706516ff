// Reference rankings computed by the tool itself: the applications seen so
// far, most recently used first (MRU) or most launched first (MFU, ties
// broken by the more recent last launch).
#ifndef NUVIK_TOOLS_REPLAY_BASELINES_H_
#define NUVIK_TOOLS_REPLAY_BASELINES_H_

#include <cstdint>
#include <string>
#include <vector>

#include "replay/LaunchLog.h"

namespace NuvikReplay {

enum class Baseline { kMostRecentlyUsed, kMostFrequentlyUsed };

std::string BaselineLabel(Baseline baseline);

class BaselineRanker {
 public:
  explicit BaselineRanker(Baseline baseline) : baseline_(baseline) {}

  // The ranking for the next launch: every application learned so far.
  const std::vector<AppId>& Ranking();

  void Learn(AppId app);

  std::size_t appCount() const { return ranking_.size(); }

 private:
  struct Usage {
    std::uint64_t launches = 0;
    std::uint64_t lastLaunch = 0;  // launch number, counted from 1
  };

  Baseline baseline_;
  std::vector<AppId> ranking_;  // MRU: always in order; MFU: sorted on demand
  std::vector<Usage> usage_;    // by application id
  std::uint64_t launches_ = 0;
};

}  // namespace NuvikReplay

#endif  // NUVIK_TOOLS_REPLAY_BASELINES_H_
