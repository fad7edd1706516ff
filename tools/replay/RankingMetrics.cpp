#include "replay/RankingMetrics.h"

#include <algorithm>

namespace NuvikReplay {

namespace {

// Average precision of `list` against the distinct applications of `launched`;
// the whole list counts.
double AveragePrecision(const std::vector<AppId>& list, const std::deque<AppId>& launched) {
  std::vector<AppId> relevant(launched.begin(), launched.end());
  std::sort(relevant.begin(), relevant.end());
  relevant.erase(std::unique(relevant.begin(), relevant.end()), relevant.end());
  double total = 0.0;
  int hits = 0;
  for (std::size_t i = 0; i < list.size(); ++i) {
    if (!std::binary_search(relevant.begin(), relevant.end(), list[i])) continue;
    ++hits;
    total += static_cast<double>(hits) / static_cast<double>(i + 1);
  }
  const double divisor = list.empty() ? 5.0 : static_cast<double>(relevant.size());
  return total / divisor;
}

}  // namespace

LaunchScore RankingMetrics::Add(const std::vector<AppId>& list, AppId app) {
  LaunchScore score;
  if (recent_.size() == kWindow) {
    score.scored = true;
    score.rank = RankAtFive(list, app);
    score.averagePrecision = AveragePrecision(lists_.front(), recent_);
    ++count_;
    if (score.hit()) sumRecall_ += 1.0;
    sumMap_ += score.averagePrecision;
    recent_.pop_front();
    lists_.pop_front();
  }
  recent_.push_back(app);
  lists_.push_back(list);
  return score;
}

}  // namespace NuvikReplay
