// Running MAP and recall at five of ranked lists, with the facade's own
// definitions, for rankings that are not a facade's (the baselines).
//
// Each launch brings the list ranked for it before it is learned. The first
// five launches only fill the history. From the sixth on, a launch adds its
// recall (1 when it is among the first five of its list) and the average
// precision of the list made five launches earlier against the distinct
// applications of the five launches since that list (that one included).
#ifndef NUVIK_TOOLS_REPLAY_RANKING_METRICS_H_
#define NUVIK_TOOLS_REPLAY_RANKING_METRICS_H_

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <vector>

#include "replay/LaunchLog.h"

namespace NuvikReplay {

// The place of `app` among the first five of `list`, counted from 1; 0 when
// it is not there.
template <typename App>
std::size_t RankAtFive(const std::vector<App>& list, const App& app) {
  const std::size_t top = std::min<std::size_t>(list.size(), 5);
  for (std::size_t i = 0; i < top; ++i) {
    if (list[i] == app) return i + 1;
  }
  return 0;
}

// What one launch added to the metrics.
struct LaunchScore {
  bool scored = false;
  std::size_t rank = 0;  // RankAtFive of its list
  double averagePrecision = 0.0;

  bool hit() const { return rank != 0; }  // recall at five
};

class RankingMetrics {
 public:
  LaunchScore Add(const std::vector<AppId>& list, AppId app);

  std::uint64_t count() const { return count_; }
  double sumMap() const { return sumMap_; }
  double sumRecall() const { return sumRecall_; }

 private:
  static constexpr std::size_t kWindow = 5;

  std::deque<AppId> recent_;              // the last launches, oldest first
  std::deque<std::vector<AppId>> lists_;  // the list made at each of them
  std::uint64_t count_ = 0;
  double sumMap_ = 0.0;
  double sumRecall_ = 0.0;
};

}  // namespace NuvikReplay

#endif  // NUVIK_TOOLS_REPLAY_RANKING_METRICS_H_
