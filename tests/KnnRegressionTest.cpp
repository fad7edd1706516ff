#include "KnnRegression.h"

#include <algorithm>
#include <climits>
#include <cmath>
#include <cstring>
#include <memory>
#include <random>
#include <sstream>

#include <gtest/gtest.h>
#include <nuvik/Nuvik.h>

#include "TestUtil.h"

namespace NuvikPrediction {
namespace {

using testing::At;
using testing::ParseJson;
using testing::WriteJson;

void Launch(KnnRegression& knn, const std::string& app, int hour, int minute) {
  knn.Update(Updater{"", app, hour, minute});
}

std::string Table(const KnnRegression& knn, Json::ArrayIndex index) {
  return WriteJson(knn.SerializeJson()["counters"][index]);
}

std::string Member(const KnnRegression& knn, const char* key) { return WriteJson(knn.SerializeJson()[key]); }

bool SameBits(double a, double b) { return std::memcmp(&a, &b, sizeof a) == 0; }

// The regression estimate summed slot by slot over the span, as written.
double SpanEstimate(const KnnRegression& knn, std::uint64_t id, int slot) {
  double numerator = 0.0;
  double denominator = 0.0;
  for (int j = std::max(slot, 26) - 26; j < std::min(slot, 261) + 27; ++j) {
    const double d = static_cast<double>(std::abs(slot - j)) / 26.0 * 26.0;
    numerator += (knn.CalculateFirstWeight(id, j, d) + knn.CalculateFirstWeight(id, j + 288, d));
    denominator += (knn.CalculateSecondWeight(j, d) + knn.CalculateSecondWeight(j + 288, d));
  }
  return numerator / denominator;
}

// A valid document with applications a (0) and b (1) and one pair in slot 100.
Json::Value Document() {
  Json::Value document = ParseJson(R"({"function": 1, "previous": [1, 0, 0],
      "strToId": [{"app": "a", "id": 0}, {"app": "b", "id": 1}]})");
  document["counters"].resize(576);
  document["counters"][100] = ParseJson(R"([{"value1": 1, "value2": 0, "value3": 2}])");
  return document;
}

TEST(KnnRegressionTest, KeepsTwoPairsPerGenerationAndRotates) {
  KnnRegression clamped;
  EXPECT_EQ(clamped.name, "knn_regression");
  Launch(clamped, "a", 25, -3);  // (23 * 60 + 0) / 5
  EXPECT_EQ(Table(clamped, 276), R"([{"value1":0,"value2":0,"value3":1}])");

  // app1 three times in slot 96, each after app2 in slot 84. Slot 84's older
  // generation is full after two pairs, so a repeat of one goes to the newer.
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
  EXPECT_EQ(knn.GetPrediction("a"), 0.0);
  Launch(knn, "a", 2, 10);  // slot 26
  Launch(knn, "b", 2, 15);  // slot 27
  knn.UpdateTime(At(0, 0));
  EXPECT_EQ(knn.GetPrediction("a"), 1.0);
  EXPECT_EQ(knn.GetPrediction("b"), 0.0);
  EXPECT_EQ(knn.GetPrediction("c"), 0.0);
  knn.UpdateTime(At(2, 15));
  EXPECT_EQ(knn.GetPrediction("a"), 0.5);
  knn.UpdateTime(At(12, 30));
  EXPECT_TRUE(std::isnan(knn.GetPrediction("a")));
  EXPECT_EQ(knn.GetPrediction("c"), 0.0);
  EXPECT_TRUE(knn.Predict().empty());

  KnnRegression late(KnnRegression::kUniform);
  Launch(late, "x", 21, 40);  // slot 260
  Launch(late, "y", 21, 45);  // slot 261
  late.UpdateTime(At(30, 99));  // clamped to slot 287
  EXPECT_EQ(late.GetPrediction("x"), 0.0);
  EXPECT_EQ(late.GetPrediction("y"), 1.0);
}

TEST(KnnRegressionTest, DistanceAddsPenaltiesForOtherApplications) {
  KnnRegression knn;  // triangular
  Launch(knn, "a", 8, 20);  // slot 100: (a, a) as the first pair
  Launch(knn, "b", 8, 20);  // slot 100: (b, a)
  Launch(knn, "a", 8, 35);  // slot 103: (a, b)
  // Now the launch before last is b and the newest a. At slot 101: (a, a) is
  // 26 + 1 away, (b, a) 1, (a, b) 26 + 2 + 13.
  knn.UpdateTime(At(8, 25));
  const double k27 = 1.0 - 27.0 / 66.0;
  const double k1 = 1.0 - 1.0 / 66.0;
  const double k41 = 1.0 - 41.0 / 66.0;
  const double all = (k27 + k1) + k41;
  EXPECT_EQ(knn.GetPrediction("a"), (k27 + k41) / all);
  EXPECT_EQ(knn.GetPrediction("b"), k1 / all);
  EXPECT_EQ(knn.CalculateFirstWeight(0, 100, 1.0), k27);
  EXPECT_EQ(knn.CalculateSecondWeight(100, 1.0), k27 + k1);
  EXPECT_EQ(knn.CalculateSecondWeight(100 + 288, 1.0), 0.0);
}

TEST(KnnRegressionTest, KernelsBySelector) {
  EXPECT_EQ(KnnRegression(1).ExecuteKernel(0.5), 1.0);
  EXPECT_EQ(KnnRegression(2).ExecuteKernel(0.5), 0.5625);
  EXPECT_EQ(KnnRegression(3).ExecuteKernel(0.5), 0.46142578125);  // 1.09375 * 0.75^3
  EXPECT_EQ(KnnRegression(4).ExecuteKernel(0.5), 0.3989422804014327 * std::exp(-0.125));
  for (std::int64_t triangular : {std::int64_t{0}, std::int64_t{-1}, std::int64_t{5}, std::int64_t{7}, INT64_MIN}) {
    EXPECT_EQ(KnnRegression(triangular).ExecuteKernel(0.5), 0.5) << triangular;
    EXPECT_EQ(KnnRegression(triangular).ExecuteKernel(-0.25), 0.75) << triangular;
  }
  EXPECT_EQ(KnnRegression().ExecuteKernel(0.5), 0.5);

  // The facade's selector is the parameter minus one, in 32-bit arithmetic,
  // saved bit for bit as unsigned.
  Nuvik nuvik(std::vector<int>{0, 4, 9, 8, INT_MIN, 2}, "knn_regression");
  std::stringstream text;
  text << nuvik;
  const Json::Value models = ParseJson(text.str())["models"];
  std::vector<std::string> functions;
  for (const Json::Value& model : models) functions.push_back(WriteJson(model["model"]["function"]));
  EXPECT_EQ(functions, (std::vector<std::string>{"18446744073709551615", "3", "8", "7", "2147483647", "1"}));
}

TEST(KnnRegressionTest, SavesAndReadsBackIntoAFreshPredictor) {
  KnnRegression fresh(-1);
  const Json::Value empty = fresh.SerializeJson();
  EXPECT_EQ(WriteJson(empty["function"]), "18446744073709551615");
  EXPECT_EQ(WriteJson(empty["previous"]), "[0,0,0]");
  EXPECT_TRUE(empty["strToId"].isNull());
  ASSERT_EQ(empty["counters"].size(), 576u);
  for (const Json::Value& table : empty["counters"]) EXPECT_TRUE(table.isNull());
  KnnRegression reader;
  EXPECT_FALSE(reader.DeserializeJson(empty));  // rejected at "strToId" after taking the kernel
  EXPECT_EQ(Member(reader, "function"), "18446744073709551615");

  KnnRegression trained(2);
  for (int i = 0; i < 40; ++i) Launch(trained, "app" + std::to_string(i % 7), 8 + i % 3, i);
  KnnRegression loaded;
  ASSERT_TRUE(loaded.DeserializeJson(ParseJson(WriteJson(trained.SerializeJson()))));
  EXPECT_EQ(WriteJson(loaded.SerializeJson()), WriteJson(trained.SerializeJson()));
  // The next id is one past the largest read.
  Launch(loaded, "new", 9, 0);
  EXPECT_NE(Member(loaded, "strToId").find(R"({"app":"new","id":7})"), std::string::npos);
}

TEST(KnnRegressionTest, ReaderChecksShapesAndKeepsWhatEarlierStepsRead) {
  // A load adds to what the predictor holds.
  KnnRegression merged;
  ASSERT_TRUE(merged.DeserializeJson(Document()));
  merged.UpdateTime(At(8, 20));
  EXPECT_EQ(merged.GetPrediction("b"), 1.0);
  Json::Value more = Document();
  more["counters"][101] = ParseJson(R"([{"value1": 0, "value2": 1, "value3": 2}])");
  ASSERT_TRUE(merged.DeserializeJson(more));
  EXPECT_EQ(merged.GetPrediction("b"), 0.5);

  // A missing member or a bad "function" changes nothing.
  KnnRegression knn(4);
  const std::string before = WriteJson(knn.SerializeJson());
  Json::Value missing = Document();
  missing.removeMember("counters");
  for (const Json::Value& rejected : {missing, ParseJson("[1]"), ParseJson("{}"), ParseJson("null")}) {
    EXPECT_FALSE(knn.DeserializeJson(rejected));
    EXPECT_EQ(WriteJson(knn.SerializeJson()), before);
  }
  for (const char* function : {"-1", "1.5", R"("1")", "null", "[]"}) {
    Json::Value document = Document();
    document["function"] = ParseJson(function);
    EXPECT_FALSE(knn.DeserializeJson(document)) << function;
    EXPECT_EQ(WriteJson(knn.SerializeJson()), before) << function;
  }

  // A bad "previous": the kernel was replaced.
  for (const char* previous : {"[1, 2]", "[1, 2, 3, 4]", "[]", "{}", "7"}) {
    Json::Value document = Document();
    document["function"] = 18446744073709551615u;
    document["previous"] = ParseJson(previous);
    KnnRegression rejecting;
    EXPECT_FALSE(rejecting.DeserializeJson(document)) << previous;
    EXPECT_EQ(Member(rejecting, "function"), "18446744073709551615") << previous;
    EXPECT_EQ(Member(rejecting, "previous"), "[0,0,0]") << previous;
  }

  // A bad "strToId": the recent ids were replaced too, skipping malformed ones.
  Json::Value noDictionary = Document();
  noDictionary["previous"] = ParseJson(R"([5, "x", 6])");
  noDictionary["strToId"] = ParseJson("{}");
  KnnRegression atDictionary;
  EXPECT_FALSE(atDictionary.DeserializeJson(noDictionary));
  EXPECT_EQ(Member(atDictionary, "previous"), "[5,6,null]");
  EXPECT_EQ(Member(atDictionary, "strToId"), "null");

  // Two names with one id: the entries stay, the next id does not move.
  Json::Value shared = Document();
  shared["strToId"] = ParseJson(R"([{"app": "a", "id": 4}, {"app": "b", "id": 4}, {"id": 9}, 3])");
  KnnRegression atSharedId;
  EXPECT_FALSE(atSharedId.DeserializeJson(shared));
  Launch(atSharedId, "c", 0, 0);
  EXPECT_EQ(Member(atSharedId, "strToId"), R"([{"app":"a","id":4},{"app":"b","id":4},{"app":"c","id":0}])");

  // 575 tables: the dictionary was read and the next id set.
  Json::Value short575 = Document();
  short575["counters"].resize(575);
  KnnRegression atCounters;
  EXPECT_FALSE(atCounters.DeserializeJson(short575));
  Launch(atCounters, "c", 0, 0);
  EXPECT_EQ(Member(atCounters, "strToId"), R"([{"app":"a","id":0},{"app":"b","id":1},{"app":"c","id":2}])");
  EXPECT_EQ(Table(atCounters, 100), "null");

  // A pair naming an unknown id fails after every pair was read.
  Json::Value unknown = Document();
  unknown["counters"][200] = ParseJson(R"([{"value1": 0, "value2": 9, "value3": 1}])");
  KnnRegression atVerify;
  EXPECT_FALSE(atVerify.DeserializeJson(unknown));
  EXPECT_EQ(Table(atVerify, 100), R"([{"value1":1,"value2":0,"value3":2}])");
  EXPECT_EQ(Table(atVerify, 200), R"([{"value1":0,"value2":9,"value3":1}])");

  // Malformed pairs and tables are skipped; a later duplicate replaces, a
  // zero count is kept, and no bound applies to a table read.
  Json::Value lenient = Document();
  lenient["counters"][0] = 5;
  lenient["counters"][1] = ParseJson(R"({"value1": 0})");
  lenient["counters"][100] = ParseJson(R"([{"value1": 1, "value2": 0, "value3": 2}, {"value1": 0, "value2": 0},
      {"value1": -1, "value2": 0, "value3": 1}, [], 7, null, {"value1": 1, "value2": 0, "value3": 0},
      {"value1": 0, "value2": 0, "value3": 4}, {"value1": 0, "value2": 1, "value3": 5.0}])");
  KnnRegression reader;
  ASSERT_TRUE(reader.DeserializeJson(lenient));
  EXPECT_EQ(Table(reader, 100), R"([{"value1":0,"value2":0,"value3":4},{"value1":0,"value2":1,"value3":5},)"
                                R"({"value1":1,"value2":0,"value3":0}])");
  EXPECT_EQ(Table(reader, 0), "null");
  EXPECT_EQ(Member(reader, "previous"), "[1,0,0]");
}

TEST(KnnRegressionTest, ShortRecentIdsReadAsZeroAndArePaddedWhenWritten) {
  Json::Value document = Document();
  document["function"] = 0;
  document["previous"] = ParseJson(R"(["x", [], {"a": 1}])");
  KnnRegression knn;
  ASSERT_TRUE(knn.DeserializeJson(document));
  EXPECT_EQ(Member(knn, "previous"), "[null,null,null]");
  // Both recent ids read as 0 (a): the pair (b, a) at slot 100 is 26 + 0 + 0 away.
  knn.UpdateTime(At(8, 20));
  EXPECT_EQ(knn.CalculateSecondWeight(100, 0.0), (1.0 - 26.0 / 66.0) * 2.0);
  EXPECT_EQ(knn.GetPrediction("b"), 1.0);

  Launch(knn, "b", 8, 20);
  EXPECT_EQ(Member(knn, "previous"), "[1,null,null]");
  EXPECT_EQ(Table(knn, 100), R"([{"value1":1,"value2":0,"value3":3}])");
  Launch(knn, "a", 8, 20);
  EXPECT_EQ(Member(knn, "previous"), "[1,0,null]");
}

TEST(KnnRegressionTest, FirstWeightRangeEndsAtTheWrappedNextId) {
  Json::Value document = Document();
  document["strToId"] = ParseJson(R"([{"app": "a", "id": 18446744073709551615}, {"app": "b", "id": 0}])");
  document["counters"][100] = ParseJson(R"([{"value1": 18446744073709551615, "value2": 0, "value3": 2},
      {"value1": 18446744073709551615, "value2": 18446744073709551615, "value3": 3}])");
  KnnRegression knn;
  ASSERT_TRUE(knn.DeserializeJson(document));
  // The next id wrapped to 0, so only the pair (a, 0) counts for a.
  EXPECT_EQ(knn.CalculateFirstWeight(UINT64_MAX, 100, 0.0), 2.0);
  EXPECT_EQ(knn.CalculateSecondWeight(100, 0.0), 5.0);
  knn.UpdateTime(At(8, 20));
  EXPECT_EQ(knn.GetPrediction("a"), 2.0 / 5.0);
}

TEST(KnnRegressionTest, MatchesTheSpanSumsAndALoadedCopyBitForBit) {
  std::mt19937 random(5);
  for (std::int64_t function : {0, 1, 2, 3, 4}) {
    KnnRegression knn(function);
    std::unique_ptr<KnnRegression> copy;
    std::vector<std::string> apps;
    int minute = 0;
    for (int i = 0; i < 1500; ++i) {
      const std::string app = "app" + std::to_string(random() % 20);
      minute += static_cast<int>(random() % 40);
      const std::tm time = At(minute / 60 % 24, minute % 60);
      knn.UpdateTime(time);
      if (copy) copy->UpdateTime(time);
      for (std::size_t id = 0; id < apps.size(); ++id) {
        const double score = knn.GetPrediction(apps[id]);
        ASSERT_TRUE(SameBits(score, SpanEstimate(knn, id, TimeSlot(time.tm_hour, time.tm_min)))) << i;
        ASSERT_TRUE(std::isnan(score) || (score >= 0.0 && score <= 1.0 + 1e-12)) << score;
        if (copy) {
          ASSERT_TRUE(SameBits(copy->GetPrediction(apps[id]), score)) << function << " " << i;
        }
      }
      Launch(knn, app, time.tm_hour, time.tm_min);
      if (copy) Launch(*copy, app, time.tm_hour, time.tm_min);
      if (std::find(apps.begin(), apps.end(), app) == apps.end()) apps.push_back(app);  // ids by first sight
      // Saved after an even number of launches: the reader leaves the ring
      // position at 0, which is where the original stands then.
      if (i == 799) {
        copy = std::make_unique<KnnRegression>();
        ASSERT_TRUE(copy->DeserializeJson(ParseJson(WriteJson(knn.SerializeJson()))));
      }
    }
    EXPECT_EQ(WriteJson(copy->SerializeJson()), WriteJson(knn.SerializeJson()));
  }
}

TEST(KnnRegressionTest, FacadeLearnsRanksAndSavesAKnnSlot) {
  Nuvik nuvik(std::vector<int>{1, 2}, std::vector<std::string>{"stat_counter", "knn_regression"});
  for (const char* app : {"mail", "news", "mail", "news", "maps", "mail"}) nuvik.Update(app, At(9, 0));
  nuvik.Update("news", At(9, 5));
  // Uniform kernel. Slot 108 rotated at maps and kept (mail, news),
  // (news, mail), (mail, maps), (maps, news): news launched one of four.
  EXPECT_EQ(nuvik.GetWeightSingle("news"), (1.0 / 4.0) * 0.9 + (2.0 / 6.0) * 0.1);
  EXPECT_EQ(nuvik.GetNext(), (std::vector<std::string>{"mail", "news", "maps"}));

  // Saved after an even number of launches, where a loaded copy starts.
  nuvik.Update("maps", At(9, 10));
  std::stringstream document;
  document << nuvik;
  Nuvik copy;
  ASSERT_TRUE(document >> copy);
  for (const char* app : {"mail", "news", "maps", "music"}) {
    nuvik.Update(app, At(10, 0));
    copy.Update(app, At(10, 0));
    EXPECT_EQ(copy.GetAllWeights(), nuvik.GetAllWeights());
    EXPECT_EQ(copy.GetNext(), nuvik.GetNext());
  }
}

}  // namespace
}  // namespace NuvikPrediction
