// The popularity counter: shares of all launches, its document, and a reader
// that rejects only an empty or non-array value and skips malformed elements.
#include "StatCounter.h"

#include <gtest/gtest.h>

#include "TestUtil.h"

namespace NuvikPrediction {
namespace {

using testing::Launch;
using testing::ParseJson;
using testing::WriteJson;
using Scores = std::map<std::string, double>;

TEST(StatCounterTest, ScoresShareOfLaunchesAndWritesCountsInNameOrder) {
  StatCounter counter;
  EXPECT_TRUE(counter.SerializeJson().isNull());
  for (const char* app : {"mail", "clock", "mail"}) Launch(counter, app);
  EXPECT_EQ(counter.Predict(), (Scores{{"clock", 1.0 / 3.0}, {"mail", 2.0 / 3.0}}));
  EXPECT_EQ(counter.GetPrediction("camera"), 0.0);
  EXPECT_EQ(WriteJson(counter.SerializeJson()), R"([{"app":"clock","popularity":1},{"app":"mail","popularity":2}])");
}

TEST(StatCounterTest, ReaderRejectsOnlyEmptyOrNonArrayValuesAndMergesCounts) {
  StatCounter counter;
  Launch(counter, "old");
  for (const char* rejected : {"null", "[]", "{}", R"({"app":"a","popularity":1})", "7", R"("x")"}) {
    EXPECT_FALSE(counter.DeserializeJson(ParseJson(rejected))) << rejected;
    EXPECT_EQ(counter.GetPrediction("old"), 1.0) << rejected;
  }
  ASSERT_TRUE(counter.DeserializeJson(ParseJson(R"([
    {"app": "a", "popularity": 3.0}, {"app": "b", "popularity": 4294967297}, {"app": "c", "popularity": -1},
    {"app": "d", "popularity": 2.5}, {"app": "e", "popularity": "4"}, {"app": 5, "popularity": 4},
    {"app": "f"}, {"other": 1}, {}, null, {"app": "a", "popularity": 2}
  ])")));
  // total = 3 + 1 + 2: the overwritten count of "a" still counts; "old" keeps its entry.
  EXPECT_EQ(counter.Predict(), (Scores{{"a", 2.0 / 6.0}, {"b", 1.0 / 6.0}, {"old", 1.0 / 6.0}}));
}

}  // namespace
}  // namespace NuvikPrediction
