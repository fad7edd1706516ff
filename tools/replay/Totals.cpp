#include "replay/Totals.h"

#include <algorithm>

namespace NuvikReplay {

namespace {

void AddCounts(HitCount& to, const HitCount& from) {
  to.scored += from.scored;
  to.hits += from.hits;
}

}  // namespace

void RunProfile::Add(const RunProfile& other) {
  for (std::size_t i = 0; i < byLaunchIndex.size(); ++i) AddCounts(byLaunchIndex[i], other.byLaunchIndex[i]);
  for (std::size_t i = 0; i < byHour.size(); ++i) AddCounts(byHour[i], other.byHour[i]);
  if (byDay.size() < other.byDay.size()) byDay.resize(other.byDay.size());
  for (std::size_t i = 0; i < other.byDay.size(); ++i) AddCounts(byDay[i], other.byDay[i]);
  if (other.byDate.empty()) return;
  if (byDate.empty()) {
    firstDate = other.firstDate;
  } else if (other.firstDate < firstDate) {
    byDate.insert(byDate.begin(), static_cast<std::size_t>(firstDate - other.firstDate), ScoreSums{});
    firstDate = other.firstDate;
  }
  const auto offset = static_cast<std::size_t>(other.firstDate - firstDate);
  if (byDate.size() < offset + other.byDate.size()) byDate.resize(offset + other.byDate.size());
  for (std::size_t i = 0; i < other.byDate.size(); ++i) {
    ScoreSums& to = byDate[offset + i];
    to.scored += other.byDate[i].scored;
    to.sumMap += other.byDate[i].sumMap;
    to.sumRecall += other.byDate[i].sumRecall;
  }
}

}  // namespace NuvikReplay
