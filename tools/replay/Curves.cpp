#include "replay/Curves.h"

#include <algorithm>
#include <cstdint>
#include <limits>

namespace NuvikReplay {

namespace {

struct LaunchRef {
  LocalSeconds time;
  std::uint32_t order;
  std::uint32_t user;
  std::uint32_t index;  // within the user's launches
};

std::vector<LaunchRef> MergedOrder(const LaunchLog& log) {
  std::vector<LaunchRef> merged;
  merged.reserve(log.launchCount);
  for (std::uint32_t u = 0; u < log.users.size(); ++u) {
    const auto& launches = log.users[u].launches;
    for (std::uint32_t i = 0; i < launches.size(); ++i) merged.push_back({launches[i].time, launches[i].order, u, i});
  }
  std::sort(merged.begin(), merged.end(), [](const LaunchRef& a, const LaunchRef& b) {
    return a.time != b.time ? a.time < b.time : a.order < b.order;
  });
  return merged;
}

}  // namespace

std::vector<Curve> RunningCurves(const LaunchLog& log, const std::vector<RunResult>& runs) {
  const std::vector<LaunchRef> merged = MergedOrder(log);
  std::vector<Curve> curves;
  for (const RunResult& run : runs) {
    Curve curve{run.label, run.baseline, {}, {}};
    curve.map.reserve(merged.size());
    curve.recall.reserve(merged.size());
    double sumMap = 0.0;
    double sumRecall = 0.0;
    std::uint64_t scored = 0;
    for (const LaunchRef& launch : merged) {
      const LaunchScore& score = run.users[launch.user].scores[launch.index];
      if (score.scored) {
        ++scored;
        sumMap += score.averagePrecision;
        sumRecall += score.hit() ? 1.0 : 0.0;
      }
      const double count = scored == 0 ? std::numeric_limits<double>::quiet_NaN() : static_cast<double>(scored);
      curve.map.push_back(sumMap / count);
      curve.recall.push_back(sumRecall / count);
    }
    curves.push_back(std::move(curve));
  }
  return curves;
}

DatedCurves CurvesByDate(const std::vector<RunTotals>& runs) {
  DatedCurves dated;
  std::int64_t lastDate = 0;  // past the end
  bool any = false;
  for (const RunTotals& run : runs) {
    const RunProfile& profile = run.profile;
    if (profile.byDate.empty()) continue;
    const auto end = profile.firstDate + static_cast<std::int64_t>(profile.byDate.size());
    dated.firstDate = any ? std::min(dated.firstDate, profile.firstDate) : profile.firstDate;
    lastDate = any ? std::max(lastDate, end) : end;
    any = true;
  }
  for (const RunTotals& run : runs) {
    Curve curve{run.label, run.baseline, {}, {}};
    double sumMap = 0.0;
    double sumRecall = 0.0;
    std::uint64_t scored = 0;
    for (std::int64_t date = dated.firstDate; date < lastDate; ++date) {
      const std::int64_t index = date - run.profile.firstDate;
      if (index >= 0 && index < static_cast<std::int64_t>(run.profile.byDate.size())) {
        const ScoreSums& sums = run.profile.byDate[static_cast<std::size_t>(index)];
        scored += sums.scored;
        sumMap += sums.sumMap;
        sumRecall += sums.sumRecall;
      }
      const double count = scored == 0 ? std::numeric_limits<double>::quiet_NaN() : static_cast<double>(scored);
      curve.map.push_back(sumMap / count);
      curve.recall.push_back(sumRecall / count);
    }
    dated.curves.push_back(std::move(curve));
  }
  return dated;
}

}  // namespace NuvikReplay
