// What the scored launches of one user add to a run beyond MAP and recall:
// the rank measures of Totals, and where the hits fall (RunProfile).
#ifndef NUVIK_TOOLS_REPLAY_SCORE_TALLY_H_
#define NUVIK_TOOLS_REPLAY_SCORE_TALLY_H_

#include <cstddef>
#include <cstdint>

#include "replay/LaunchLog.h"
#include "replay/LocalTime.h"
#include "replay/Totals.h"

namespace NuvikReplay {

class ScoreTally {
 public:
  // Adds to `totals` and to `profile`, the user's own, empty; both must
  // outlive the tally. Days count from the date of the user's first launch.
  ScoreTally(const UserLog& user, Totals& totals, RunProfile& profile);

  // A scored launch: its index among the user's launches (from 1), its time,
  // the launched application's RankAtFive in its list and the average
  // precision it added. Days later than kProfileDays after the first launch,
  // or dated outside the years 1 to 9999, are left out of the profile's days
  // and dates, which keeps it small whatever the timestamps.
  void Add(std::size_t index, LocalSeconds time, std::size_t rank, double averagePrecision);

  static constexpr std::int64_t kProfileDays = 3653;  // ten years

 private:
  Totals& totals_;
  RunProfile& profile_;
  std::int64_t firstDate_;
};

}  // namespace NuvikReplay

#endif  // NUVIK_TOOLS_REPLAY_SCORE_TALLY_H_
