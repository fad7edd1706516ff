// What a replay adds up to: sums and counts per user and per run, and where
// in a user's history and in the day the hits fall.
#ifndef NUVIK_TOOLS_REPLAY_TOTALS_H_
#define NUVIK_TOOLS_REPLAY_TOTALS_H_

#include <array>
#include <cstddef>
#include <cstdint>
#include <vector>

namespace NuvikReplay {

// What a run adds up to over the scored launches of some users. Each launch
// is scored on the list ranked for it from everything learned before it (the
// list recall@5 scores); `rank` below is the launched application's place in
// it, counted from 1.
struct Totals {
  std::size_t users = 0;
  std::uint64_t launches = 0;
  std::uint64_t scored = 0;
  std::size_t apps = 0;
  double sumMap = 0.0;
  double sumRecall = 0.0;
  double seconds = 0.0;
  double sumHit1 = 0.0;   // rank 1
  double sumHit3 = 0.0;   // rank <= 3
  double sumHit5 = 0.0;   // rank <= 5; equals sumRecall
  double sumMrr5 = 0.0;   // 1 / rank when rank <= 5
  double sumNdcg5 = 0.0;  // 1 / log2(rank + 1) when rank <= 5
  // With a suggestion row (--row): the launched application in the row, in
  // the dock or the row, and the positions at which the row differs from the
  // one shown before the previous launch, over the scored launches after a
  // user's first.
  double sumRowHit = 0.0;
  double sumDockOrRowHit = 0.0;
  double sumChurn = 0.0;
  std::uint64_t churnCount = 0;

  // Means over the scored launches, NaN when none was scored.
  double Map() const { return sumMap / static_cast<double>(scored); }
  double Recall() const { return sumRecall / static_cast<double>(scored); }
  double Hit1() const { return sumHit1 / static_cast<double>(scored); }
  double Hit3() const { return sumHit3 / static_cast<double>(scored); }
  double Hit5() const { return sumHit5 / static_cast<double>(scored); }
  double Mrr5() const { return sumMrr5 / static_cast<double>(scored); }
  double Ndcg5() const { return sumNdcg5 / static_cast<double>(scored); }
  double RowHit() const { return sumRowHit / static_cast<double>(scored); }
  double DockOrRowHit() const { return sumDockOrRowHit / static_cast<double>(scored); }
  double Churn() const { return sumChurn / static_cast<double>(churnCount); }
  double MicrosPerLaunch() const { return seconds * 1e6 / static_cast<double>(launches); }
};

// Scored launches and hits at five of one group of launches.
struct HitCount {
  std::uint64_t scored = 0;
  std::uint64_t hits = 0;
};

// Scored launches and the sums of their average precision and recall.
struct ScoreSums {
  std::uint64_t scored = 0;
  double sumMap = 0.0;
  double sumRecall = 0.0;
};

// Where in a user's history and in the day a run's hits fall, added up over
// users: what the report's pictures show. Counts are exact in any order of
// adding; the sums of `byDate` are for plotting only.
struct RunProfile {
  // Launch index since the user's first launch (counted from 1): 1-50,
  // 51-200, 201-1000, later.
  std::array<HitCount, 4> byLaunchIndex{};
  // Hour of the launch's local time.
  std::array<HitCount, 24> byHour{};
  // Whole days since the user's first launch (by calendar date).
  std::vector<HitCount> byDay;
  // Calendar date of the launch, as days since 1970-01-01, from `firstDate`.
  std::int64_t firstDate = 0;
  std::vector<ScoreSums> byDate;

  // Adds `other` in.
  void Add(const RunProfile& other);
};

}  // namespace NuvikReplay

#endif  // NUVIK_TOOLS_REPLAY_TOTALS_H_
