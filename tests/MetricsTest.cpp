// The quality metrics worked out by hand: recall at five of each launch in its
// own list, and the average precision of the list made five launches earlier.
#include <cmath>

#include <gtest/gtest.h>
#include <nuvik/Nuvik.h>

#include "TestUtil.h"

namespace NuvikPrediction {
namespace {

using testing::LaunchAll;

TEST(MetricsTest, RecallLooksAtTheFirstFiveOfTheLaunchsOwnList) {
  // Shares f6 e5 d4 c3 b2 a1: the list is f, e, d, c, b, a.
  Nuvik nuvik;
  LaunchAll(nuvik, {"f", "e", "d", "c", "b", "a", "f", "e", "d", "c", "b", "f", "e", "d", "c", "f", "e", "d", "f", "e"});
  EXPECT_EQ(nuvik.GetCountMetrics(), 15u);  // the first five launches are not scored
  LaunchAll(nuvik, {"f"});
  nuvik.ClearMetrics();
  EXPECT_EQ(nuvik.GetCountMetrics(), 0u);
  EXPECT_TRUE(std::isnan(nuvik.GetMapMetric()));  // the means divide unguarded
  EXPECT_TRUE(std::isnan(nuvik.GetRecallMetric()));
  LaunchAll(nuvik, {"d"});  // third in its list
  EXPECT_EQ(nuvik.GetNext(), (std::vector<std::string>{"f", "e", "d", "c", "b", "a"}));
  EXPECT_EQ(nuvik.GetSumRecall(), 1.0);
  LaunchAll(nuvik, {"a"});  // sixth in its list
  EXPECT_EQ(nuvik.GetNext()[5], "a");
  EXPECT_EQ(nuvik.GetSumRecall(), 1.0);
  EXPECT_EQ(nuvik.GetCountMetrics(), 2u);
  EXPECT_EQ(nuvik.GetRecallMetric(), 0.5);
}

TEST(MetricsTest, AveragePrecisionOfTheListMadeFiveLaunchesEarlier) {
  // Shares q4 x3 p2 s1 make the list q, x, p, s at the launch of the first "p".
  Nuvik nuvik;
  LaunchAll(nuvik, {"q", "x", "p", "q", "x", "s", "q", "p", "x", "q"});
  LaunchAll(nuvik, {"p", "p", "q", "p", "s"});
  nuvik.ClearMetrics();  // the history survives, so the next launch is scored at once
  LaunchAll(nuvik, {"z"});
  // Relevant {p, q, s}: hits at positions 1, 3 and 4 of q, x, p, s.
  const double expected = (1.0 / 1.0 + 2.0 / 3.0 + 3.0 / 4.0) / 3.0;
  EXPECT_EQ(nuvik.GetSumMap(), expected);
  EXPECT_EQ(nuvik.GetMapMetric(), expected);
  EXPECT_EQ(nuvik.GetCountMetrics(), 1u);

  // Nothing of the old list was launched since: the count rises, the sum does not.
  LaunchAll(nuvik, {"n1", "n2", "n3", "n4"});
  const double before = nuvik.GetSumMap();
  LaunchAll(nuvik, {"n5"});  // scores the list made at "z", which holds no n-app
  EXPECT_EQ(nuvik.GetSumMap(), before);
  EXPECT_EQ(nuvik.GetCountMetrics(), 6u);
}

}  // namespace
}  // namespace NuvikPrediction
