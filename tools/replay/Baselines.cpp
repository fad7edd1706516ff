#include "replay/Baselines.h"

#include <algorithm>

namespace NuvikReplay {

std::string BaselineLabel(Baseline baseline) {
  return baseline == Baseline::kMostRecentlyUsed ? "baseline: most recently used" : "baseline: most frequently used";
}

const std::vector<AppId>& BaselineRanker::Ranking() {
  if (baseline_ == Baseline::kMostFrequentlyUsed) {
    std::sort(ranking_.begin(), ranking_.end(), [this](AppId a, AppId b) {
      const Usage& x = usage_[a];
      const Usage& y = usage_[b];
      return x.launches != y.launches ? x.launches > y.launches : x.lastLaunch > y.lastLaunch;
    });
  }
  return ranking_;
}

void BaselineRanker::Learn(AppId app) {
  if (app >= usage_.size()) usage_.resize(app + 1);
  Usage& usage = usage_[app];
  if (usage.launches == 0) {
    ranking_.insert(ranking_.begin(), app);
  } else if (baseline_ == Baseline::kMostRecentlyUsed) {
    const auto at = std::find(ranking_.begin(), ranking_.end(), app);
    std::rotate(ranking_.begin(), at, at + 1);
  }
  ++usage.launches;
  usage.lastLaunch = ++launches_;
}

}  // namespace NuvikReplay
