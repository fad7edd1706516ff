// The kernel regression over the time of day: pairs kept per slot in two
// generations, scores worked out by hand and against plain per-slot sums, and
// a reader that skips malformed elements and rejects what it cannot use.
#include "KnnRegression.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <random>

#include <gtest/gtest.h>

#include "TestUtil.h"

namespace NuvikPrediction {
namespace {

using testing::At;
using testing::Launch;
using testing::Member;
using testing::ParseJson;
using testing::WriteJson;

std::string Table(const KnnRegression& knn, int i) { return WriteJson(knn.SerializeJson()["counters"][i]); }

// Applications a (0) and b (1), the pair (b, a) counted twice in slot 100, and `key` set to `value`.
Json::Value Document(const char* key = "function", const char* value = "1") {
  Json::Value document = ParseJson(R"({"function": 1, "previous": [1, 0, 0],
      "strToId": [{"app": "a", "id": 0}, {"app": "b", "id": 1}]})");
  document["counters"].resize(576);
  document["counters"][100] = ParseJson(R"([{"value1": 1, "value2": 0, "value3": 2}])");
  document[key] = ParseJson(value);
  return document;
}

TEST(KnnRegressionTest, KeepsTwoPairsPerGenerationAndRotates) {
  KnnRegression clamped;
  Launch(clamped, "a", 25, -3);  // (23 * 60 + 0) / 5
  EXPECT_EQ(Table(clamped, 276), R"([{"value1":0,"value2":0,"value3":1}])");

  // app1 three times in slot 96, each after app2 in slot 84, whose older
  // generation is full after two pairs: a repeat of one goes to the newer.
  KnnRegression knn;
  for (int minute : {0, 2, 4}) {
    Launch(knn, "app2", 7, 0);
    Launch(knn, "app1", 8, minute);
  }
  EXPECT_EQ(Table(knn, 96), R"([{"value1":1,"value2":0,"value3":3}])");
  EXPECT_EQ(Table(knn, 96 + 288), "null");
  EXPECT_EQ(Table(knn, 84), R"([{"value1":0,"value2":0,"value3":1},{"value1":0,"value2":1,"value3":1}])");
  EXPECT_EQ(Table(knn, 84 + 288), R"([{"value1":0,"value2":1,"value3":1}])");

  // Five distinct pairs in one slot: p3 and p4 replace p1 and p2, p5 starts anew.
  KnnRegression rotating;
  for (const char* app : {"a", "b", "c", "d", "e"}) Launch(rotating, app, 10, 3);
  EXPECT_EQ(Table(rotating, 120), R"([{"value1":2,"value2":1,"value3":1},{"value1":3,"value2":2,"value3":1}])");
  EXPECT_EQ(Table(rotating, 120 + 288), R"([{"value1":4,"value2":3,"value3":1}])");
  EXPECT_EQ(Member(rotating, "previous"), "[4,3,0]");
}

TEST(KnnRegressionTest, SpanCoversTwentySixSlotsEachWayWithinTheDay) {
  KnnRegression knn(KnnRegression::kUniform);
  Launch(knn, "a", 2, 10);  // slot 26
  Launch(knn, "b", 2, 15);  // slot 27
  knn.UpdateTime(At(0, 0));
  EXPECT_EQ(knn.GetPrediction("a"), 1.0);
  EXPECT_EQ(knn.GetPrediction("b"), 0.0);
  knn.UpdateTime(At(2, 15));
  EXPECT_EQ(knn.GetPrediction("a"), 0.5);
  knn.UpdateTime(At(12, 30));
  EXPECT_TRUE(std::isnan(knn.GetPrediction("a")));
  EXPECT_EQ(knn.GetPrediction("c"), 0.0);

  KnnRegression late(KnnRegression::kUniform);
  Launch(late, "x", 21, 40);  // slot 260
  Launch(late, "y", 21, 45);  // slot 261
  late.UpdateTime(At(30, 99));  // clamped to slot 287
  EXPECT_EQ(late.GetPrediction("x"), 0.0);
  EXPECT_EQ(late.GetPrediction("y"), 1.0);
}

TEST(KnnRegressionTest, DistanceAddsPenaltiesForOtherApplicationsAndKernelsBySelector) {
  KnnRegression knn;  // triangular
  Launch(knn, "a", 8, 20);  // slot 100: (a, a) as the first pair
  Launch(knn, "b", 8, 20);  // slot 100: (b, a)
  Launch(knn, "a", 8, 35);  // slot 103: (a, b)
  // Launch before last b, newest a. From slot 101: (a, a) is 26 + 1 away, (b, a) 1, (a, b) 26 + 2 + 13.
  knn.UpdateTime(At(8, 25));
  const double k27 = 1.0 - 27.0 / 66.0;
  const double k1 = 1.0 - 1.0 / 66.0;
  const double k41 = 1.0 - 41.0 / 66.0;
  EXPECT_EQ(knn.GetPrediction("a"), (k27 + k41) / ((k27 + k1) + k41));
  EXPECT_EQ(knn.GetPrediction("b"), k1 / ((k27 + k1) + k41));

  EXPECT_EQ(KnnRegression(1).ExecuteKernel(0.5), 1.0);
  EXPECT_EQ(KnnRegression(2).ExecuteKernel(0.5), 0.5625);
  EXPECT_EQ(KnnRegression(3).ExecuteKernel(0.5), 0.46142578125);  // 1.09375 * 0.75^3
  EXPECT_EQ(KnnRegression(4).ExecuteKernel(0.5), 0.3989422804014327 * std::exp(-0.125));
  for (std::int64_t triangular : {0, -1, 5, 7}) {
    EXPECT_EQ(KnnRegression(triangular).ExecuteKernel(-0.25), 0.75) << triangular;
  }
}

TEST(KnnRegressionTest, ReaderRejectsMalformedTablesUnknownAndSharedIds) {
  // A fresh model writes nulls, which its reader rejects.
  const Json::Value empty = KnnRegression(-1).SerializeJson();
  Json::Value expected = ParseJson(R"({"function": 18446744073709551615, "previous": [0, 0, 0], "strToId": null})");
  expected["counters"].resize(576);
  EXPECT_EQ(WriteJson(empty), WriteJson(expected));

  ASSERT_TRUE(KnnRegression().DeserializeJson(Document()));
  Json::Value missing = Document();
  missing.removeMember("counters");
  Json::Value short575 = Document();
  short575["counters"].resize(575);
  Json::Value unknown = Document();
  unknown["counters"][1] = ParseJson(R"([{"value1": 0, "value2": 9, "value3": 1}])");
  for (const Json::Value& rejected :
       {empty, missing, short575, unknown, ParseJson("[1]"), Document("function", "-1"), Document("function", "1.5"),
        Document("previous", "[1, 2]"), Document("previous", "[1, 2, 3, 4]"), Document("strToId", "{}"),
        Document("strToId", R"([{"app": "a", "id": 0}, {"app": "b", "id": 1}, {"app": "c", "id": 1}])")}) {
    EXPECT_FALSE(KnnRegression().DeserializeJson(rejected)) << WriteJson(rejected);
  }
}

TEST(KnnRegressionTest, ReaderSkipsMalformedElements) {
  Json::Value lenient = Document("previous", R"([1, "x", 2])");
  lenient["strToId"].append(ParseJson(R"({"app": "z"})"));
  lenient["counters"][0] = 5;
  lenient["counters"][100] = ParseJson(R"([{"value1": 1, "value2": 0, "value3": 2}, {"value1": 0, "value2": 0},
      {"value1": -1, "value2": 0, "value3": 1}, 7, {"value1": 1, "value2": 0, "value3": 0},
      {"value1": 0, "value2": 0, "value3": 4}, {"value1": 0, "value2": 1, "value3": 5.0}])");
  KnnRegression knn;
  ASSERT_TRUE(knn.DeserializeJson(lenient));
  EXPECT_EQ(Member(knn, "previous") + Member(knn, "strToId"), R"([1,2,null][{"app":"a","id":0},{"app":"b","id":1}])");
  // A later duplicate replaces, a zero count is kept, and no bound of two applies.
  EXPECT_EQ(Table(knn, 100), R"([{"value1":0,"value2":0,"value3":4},{"value1":0,"value2":1,"value3":5},)"
                             R"({"value1":1,"value2":0,"value3":0}])");
  EXPECT_EQ(Table(knn, 0), "null");

  // Fewer than two recent ids: the missing ones read as 0. A new name takes
  // the id after the greatest one read.
  Json::Value sparse = Document("previous", R"(["x", [], {}])");
  sparse["strToId"].append(ParseJson(R"({"app": "c", "id": 5})"));
  KnnRegression shortIds;
  ASSERT_TRUE(shortIds.DeserializeJson(sparse));
  Launch(shortIds, "b", 8, 20);
  EXPECT_EQ(Table(shortIds, 100), R"([{"value1":1,"value2":0,"value3":3}])");
  Launch(shortIds, "d", 8, 20);
  EXPECT_EQ(Member(shortIds, "strToId"),
            R"([{"app":"a","id":0},{"app":"b","id":1},{"app":"c","id":5},{"app":"d","id":6}])");

  // A recent id that names no application pairs with the next launch; the
  // pair lies beyond the next id, so it counts in the denominator only.
  KnnRegression unnamed;
  ASSERT_TRUE(unnamed.DeserializeJson(Document("previous", "[1, 9, 0]")));
  Launch(unnamed, "a", 8, 20);
  unnamed.UpdateTime(At(8, 20));
  EXPECT_EQ(unnamed.GetPrediction("a"), 0.0);
  EXPECT_EQ(unnamed.GetPrediction("b"), 2.0 / 3.0);
}

bool SameBits(double a, double b) { return std::memcmp(&a, &b, sizeof a) == 0; }

TEST(KnnRegressionTest, SpanCacheMatchesPlainPerSlotSumsBitForBit) {
  std::mt19937 random(5);
  for (std::int64_t function : {0, 1, 2, 3, 4}) {
    KnnRegression knn(function);
    std::vector<std::string> apps;  // by id
    int minute = 0;
    for (int i = 0; i < 1500; ++i) {
      minute += static_cast<int>(random() % 40);
      const std::tm time = At(minute / 60 % 24, minute % 60);
      knn.UpdateTime(time);
      const int s = TimeSlot(time.tm_hour, time.tm_min);
      for (std::uint64_t id = 0; id < apps.size(); ++id) {
        double num = 0.0;
        double den = 0.0;
        for (int j = std::max(s, 26) - 26; j < std::min(s, 261) + 27; ++j) {
          const double d = static_cast<double>(std::abs(s - j)) / 26.0 * 26.0;
          num += (knn.CalculateFirstWeight(id, j, d) + knn.CalculateFirstWeight(id, j + 288, d));
          den += (knn.CalculateSecondWeight(j, d) + knn.CalculateSecondWeight(j + 288, d));
        }
        const double score = knn.GetPrediction(apps[id]);
        ASSERT_TRUE(SameBits(score, num / den)) << function << " " << i;
        ASSERT_TRUE(std::isnan(score) || (score >= 0.0 && score <= 1.0 + 1e-12)) << score;
      }
      const std::string app = "app" + std::to_string(random() % 20);
      Launch(knn, app, time.tm_hour, time.tm_min);
      if (std::find(apps.begin(), apps.end(), app) == apps.end()) apps.push_back(app);
    }
  }
}

}  // namespace
}  // namespace NuvikPrediction
