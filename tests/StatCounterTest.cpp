#include "StatCounter.h"

#include <gtest/gtest.h>

#include "TestUtil.h"

namespace NuvikPrediction {
namespace {

using testing::ParseJson;
using testing::WriteJson;

void Launch(StatCounter& counter, const std::string& app) { counter.Update(Updater{"", app, 8, 0}); }

TEST(StatCounterTest, ScoresShareOfLaunchesAndWritesCountsInNameOrder) {
  StatCounter counter;
  EXPECT_EQ(counter.name, "stat_counter");
  EXPECT_EQ(counter.GetPrediction("a"), 0.0);
  EXPECT_TRUE(counter.Predict().empty());
  EXPECT_TRUE(counter.SerializeJson().isNull());

  Launch(counter, "mail");
  Launch(counter, "clock");
  Launch(counter, "mail");
  EXPECT_EQ(counter.GetPrediction("mail"), 2.0 / 3.0);
  EXPECT_EQ(counter.GetPrediction("clock"), 1.0 / 3.0);
  EXPECT_EQ(counter.GetPrediction("camera"), 0.0);
  EXPECT_EQ(counter.Predict(), (std::map<std::string, double>{{"clock", 1.0 / 3.0}, {"mail", 2.0 / 3.0}}));
  EXPECT_EQ(WriteJson(counter.SerializeJson()),
            R"([{"app":"clock","popularity":1},{"app":"mail","popularity":2}])");
}

TEST(StatCounterTest, ReaderRejectsOnlyEmptyOrNonArrayValues) {
  StatCounter counter;
  Launch(counter, "kept");
  for (const char* rejected : {"null", "[]", "{}", R"({"app":"a","popularity":1})", "7", R"("x")"}) {
    EXPECT_FALSE(counter.DeserializeJson(ParseJson(rejected))) << rejected;
    EXPECT_EQ(counter.GetPrediction("kept"), 1.0) << rejected;
  }
}

TEST(StatCounterTest, ReaderSkipsMalformedElementsAndMergesCounts) {
  StatCounter counter;
  Launch(counter, "old");
  const Json::Value document = ParseJson(R"([
    {"app": "a", "popularity": 3.0},
    {"app": "b", "popularity": 4294967297},
    {"app": "c", "popularity": -1},
    {"app": "d", "popularity": 2.5},
    {"app": "e", "popularity": "4"},
    {"app": 5, "popularity": 4},
    {"app": "f"},
    {"other": 1},
    {},
    null,
    {"app": "a", "popularity": 2}
  ])");
  ASSERT_TRUE(counter.DeserializeJson(document));
  // total = 3 + 1 + 2: the overwritten count of "a" still counts; "old" keeps its entry.
  EXPECT_EQ(counter.Predict(), (std::map<std::string, double>{
                                   {"a", 2.0 / 6.0}, {"b", 1.0 / 6.0}, {"old", 1.0 / 6.0}}));
}

TEST(StatCounterTest, ReaderRaisesOnElementsThatAreNeitherObjectsNorNull) {
  StatCounter counter;
  EXPECT_THROW(counter.DeserializeJson(ParseJson(R"([{"app": "a", "popularity": 1}, 5])")), Json::LogicError);
  EXPECT_THROW(counter.DeserializeJson(ParseJson(R"([[]])")), Json::LogicError);
}

}  // namespace
}  // namespace NuvikPrediction
