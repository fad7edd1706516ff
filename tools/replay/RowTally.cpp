#include "replay/RowTally.h"

#include <algorithm>

namespace NuvikReplay {

namespace {

bool Contains(const std::vector<std::string>& names, const std::string& name) {
  return std::find(names.begin(), names.end(), name) != names.end();
}

// The positions at which the rows differ; a position held in one row only
// differs, one held in neither does not.
std::size_t Differences(const std::vector<std::string>& a, const std::vector<std::string>& b) {
  std::size_t count = 0;
  for (std::size_t i = 0; i < std::max(a.size(), b.size()); ++i) {
    const bool inA = i < a.size();
    const bool inB = i < b.size();
    if (inA != inB || (inA && a[i] != b[i])) ++count;
  }
  return count;
}

}  // namespace

RowTally::RowTally(const LaunchLog& log, std::size_t size, std::size_t dockSize, bool stable)
    : log_(log), dockSize_(dockSize) {
  request_.count = size;
  request_.stable = stable;
}

void RowTally::ExcludeDock() {
  const std::vector<AppId>& ranking = dock_.Ranking();
  request_.exclude.clear();
  const std::size_t size = std::min(dockSize_, ranking.size());
  for (std::size_t i = 0; i < size; ++i) request_.exclude.push_back(log_.apps[ranking[i]]);
}

void RowTally::Show(const NuvikPrediction::Nuvik& nuvik, const std::tm& time) {
  ExcludeDock();
  row_ = suggestions_.Row(nuvik, time, request_);
}

void RowTally::Show(const std::vector<std::string>& ranking) {
  ExcludeDock();
  row_ = suggestions_.Row(ranking, request_);
}

void RowTally::Launch(AppId app, bool scored, Totals& totals) {
  if (scored) {
    const std::string& name = log_.apps[app];
    const bool inRow = Contains(row_, name);
    totals.sumRowHit += inRow ? 1.0 : 0.0;
    totals.sumDockOrRowHit += inRow || Contains(request_.exclude, name) ? 1.0 : 0.0;
    if (scoredBefore_) {
      totals.sumChurn += static_cast<double>(Differences(row_, previousRow_));
      ++totals.churnCount;
    }
    scoredBefore_ = true;
  }
  previousRow_ = std::move(row_);
  row_.clear();
  dock_.Learn(app);
}

}  // namespace NuvikReplay
