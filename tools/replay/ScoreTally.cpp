#include "replay/ScoreTally.h"

#include <cmath>

namespace NuvikReplay {

namespace {

constexpr std::int64_t kFirstDate = -719162;  // 0001-01-01
constexpr std::int64_t kLastDate = 2932896;   // 9999-12-31

std::size_t LaunchIndexBucket(std::size_t index) {
  if (index <= 50) return 0;
  if (index <= 200) return 1;
  return index <= 1000 ? 2 : 3;
}

void Count(HitCount& count, bool hit) {
  ++count.scored;
  count.hits += hit ? 1 : 0;
}

}  // namespace

ScoreTally::ScoreTally(const UserLog& user, Totals& totals, RunProfile& profile)
    : totals_(totals), profile_(profile), firstDate_(user.launches.empty() ? 0 : DateOf(user.launches[0].time)) {
  profile_.firstDate = firstDate_;
}

void ScoreTally::Add(std::size_t index, LocalSeconds time, std::size_t rank, double averagePrecision) {
  const bool hit = rank != 0;
  if (hit) {
    totals_.sumHit1 += rank == 1 ? 1.0 : 0.0;
    totals_.sumHit3 += rank <= 3 ? 1.0 : 0.0;
    totals_.sumHit5 += 1.0;
    totals_.sumMrr5 += 1.0 / static_cast<double>(rank);
    totals_.sumNdcg5 += 1.0 / std::log2(static_cast<double>(rank) + 1.0);
  }

  Count(profile_.byLaunchIndex[LaunchIndexBucket(index)], hit);
  Count(profile_.byHour[static_cast<std::size_t>(ToTm(time).tm_hour)], hit);
  const std::int64_t date = DateOf(time);
  const std::int64_t day = date - firstDate_;
  if (day < 0 || day >= kProfileDays || date < kFirstDate || date > kLastDate) return;
  const auto dayIndex = static_cast<std::size_t>(day);
  if (profile_.byDay.size() <= dayIndex) profile_.byDay.resize(dayIndex + 1);
  Count(profile_.byDay[dayIndex], hit);
  if (profile_.byDate.size() <= dayIndex) profile_.byDate.resize(dayIndex + 1);
  ScoreSums& sums = profile_.byDate[dayIndex];
  ++sums.scored;
  sums.sumMap += averagePrecision;
  sums.sumRecall += hit ? 1.0 : 0.0;
}

}  // namespace NuvikReplay
