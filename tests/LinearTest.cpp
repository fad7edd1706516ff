#include "Linear.h"

#include <algorithm>
#include <cstring>
#include <random>
#include <vector>

#include <gtest/gtest.h>

#include "Constants.h"
#include "LinearReference.h"
#include "TestUtil.h"

namespace NuvikPrediction {
namespace {

using testing::At;
using testing::ParseJson;
using testing::WriteJson;
using Names = std::vector<std::string>;
using testing::ReferenceLinear;
using testing::SameBits;
using testing::Scores;
using testing::W;

void Launch(Linear& linear, const std::string& app, int hour = 9, int minute = 0) {
  linear.Update(Updater{"tag", app, hour, minute});
}

// Launches "a0".."a<n-1>" once each, in order, at 09:00.
void LaunchDistinct(Linear& linear, int count, const std::string& prefix = "a") {
  for (int i = 0; i < count; ++i) Launch(linear, prefix + std::to_string(i));
}

std::string Member(const Linear& linear, const std::string& key) { return WriteJson(linear.SerializeJson()[key]); }

// ------------------------------------------------------------ state, update

TEST(LinearTest, StartsEmpty) {
  Linear linear;
  EXPECT_EQ(linear.name, "linear");
  EXPECT_TRUE(linear.Predict().empty());
  EXPECT_EQ(linear.GetPrediction("a"), 0.0);
  EXPECT_TRUE(linear.GetLastLaunches().empty());
  EXPECT_FALSE(linear.IsFull());
  EXPECT_EQ(WriteJson(linear.SerializeJson()),
            R"({"last":null,"statCounter":null,"strToId":null,"timeBuckets":null,"transitions":null})");
  // A model that learned nothing cannot be read back: "last" is null.
  Linear reader;
  EXPECT_FALSE(reader.DeserializeJson(linear.SerializeJson()));
}

TEST(LinearTest, TimeBucketsClampHourAndMinute) {
  const std::vector<std::pair<std::tm, int>> cases = {
      {At(23, 59), 287}, {At(0, 0), 0}, {At(12, 34), 150}, {At(24, 60), 287}, {At(25, -3), 276}, {At(-1, 7), 1}};
  for (const auto& [time, bucket] : cases) {
    Linear linear;
    Launch(linear, "x", time.tm_hour, time.tm_min);
    EXPECT_EQ(Member(linear, "timeBuckets"), R"([{"app":0,"bucket":)" + std::to_string(bucket) + R"(,"cnt":1}])")
        << time.tm_hour << ":" << time.tm_min;
  }
}

TEST(LinearTest, FirstLaunchCountsButAddsNoTransition) {
  Linear linear;
  Launch(linear, "mail", 8, 0);
  EXPECT_EQ(Member(linear, "transitions"), "null");
  EXPECT_EQ(Member(linear, "timeBuckets"), R"([{"app":0,"bucket":96,"cnt":1}])");
  EXPECT_EQ(Member(linear, "statCounter"), R"([{"app":0,"cnt":1}])");
  EXPECT_EQ(Member(linear, "last"), R"([{"lastApp":0}])");
  EXPECT_EQ(Member(linear, "strToId"), R"([{"app":"mail","id":0}])");
  EXPECT_EQ(linear.GetLastLaunches(), Names{"mail"});
}

TEST(LinearTest, WritesEveryTableInItsOrder) {
  Linear linear;
  Launch(linear, "b", 8, 0);
  Launch(linear, "a", 8, 3);
  Launch(linear, "b", 8, 4);
  EXPECT_EQ(WriteJson(linear.SerializeJson()),
            R"({"last":[{"lastApp":0},{"lastApp":1},{"lastApp":0}],)"
            R"("statCounter":[{"app":0,"cnt":2},{"app":1,"cnt":1}],)"
            R"("strToId":[{"app":"a","id":1},{"app":"b","id":0}],)"
            R"("timeBuckets":[{"app":0,"bucket":96,"cnt":2},{"app":1,"bucket":96,"cnt":1}],)"
            R"("transitions":[{"appFrom":0,"appTo":1,"cnt":1,"step":0},{"appFrom":1,"appTo":0,"cnt":1,"step":0},)"
            R"({"appFrom":0,"appTo":0,"cnt":1,"step":1}]})");
}

TEST(LinearTest, HistoryKeepsTheTenNewestLaunchesNewestFirst) {
  Linear linear;
  LaunchDistinct(linear, 12);
  EXPECT_EQ(linear.GetLastLaunches(), (Names{"a11", "a10", "a9", "a8", "a7", "a6", "a5", "a4", "a3", "a2"}));
  // Launch j (0-based) counts min(j, 10) transitions: 1 + 2 + ... + 10 + 10.
  const Json::Value transitions = linear.SerializeJson()["transitions"];
  ASSERT_EQ(transitions.size(), 65u);
  // The last elements are the two of step 9: a0 -> a10 and a1 -> a11.
  EXPECT_EQ(WriteJson(transitions[63]), R"({"appFrom":0,"appTo":10,"cnt":1,"step":9})");
  EXPECT_EQ(WriteJson(transitions[64]), R"({"appFrom":1,"appTo":11,"cnt":1,"step":9})");
  // Nothing has yet followed the application now at any distance k + 1.
  for (int k = 0; k < 10; ++k) EXPECT_TRUE(linear.PredictTransition(k).empty()) << k;
  // A cycle of ten: after twenty launches a0 stands at distance 10 and was
  // followed there once, by a0 itself (launch 10); a9 at distance 1 by a0 once.
  Linear cycle;
  for (int i = 0; i < 20; ++i) Launch(cycle, "a" + std::to_string(i % 10));
  EXPECT_EQ(cycle.GetLastLaunches().back(), "a0");
  const auto step9 = cycle.PredictTransition(9);
  ASSERT_EQ(step9.size(), 1u);
  EXPECT_EQ(step9.at("a0").numerator, 1.0);
  EXPECT_EQ(step9.at("a0").denominator, 1.0);
  const auto step0 = cycle.PredictTransition(0);
  ASSERT_EQ(step0.size(), 1u);
  EXPECT_EQ(step0.at("a0").numerator, 1.0);
  EXPECT_EQ(step0.at("a0").denominator, 1.0);
}

TEST(LinearTest, RepeatedLaunchCountsASelfTransition) {
  Linear linear;
  Launch(linear, "x");
  Launch(linear, "x");
  EXPECT_EQ(Member(linear, "transitions"), R"([{"appFrom":0,"appTo":0,"cnt":1,"step":0}])");
  const auto result = linear.PredictTransition(0);
  ASSERT_EQ(result.count("x"), 1u);
  EXPECT_EQ(result.at("x").numerator, 1.0);
  EXPECT_EQ(result.at("x").denominator, 1.0);
}

TEST(LinearTest, TransitionFractionsUseTheRowSums) {
  Linear linear;
  for (const char* app : {"p", "a", "p", "a", "p", "b", "p"}) Launch(linear, app);
  const auto result = linear.PredictTransition(0);  // p was followed by a twice and b once
  ASSERT_EQ(result.size(), 2u);
  EXPECT_EQ(result.at("a").numerator, 2.0);
  EXPECT_EQ(result.at("a").denominator, 3.0);
  EXPECT_EQ(result.at("b").numerator, 1.0);
  EXPECT_EQ(result.at("b").denominator, 3.0);
}

TEST(LinearTest, IsFullAboveFiveThousandApplications) {
  Linear linear;
  LaunchDistinct(linear, 5000);
  EXPECT_FALSE(linear.IsFull());
  Launch(linear, "a0");  // a known application does not change it
  EXPECT_FALSE(linear.IsFull());
  Launch(linear, "extra");
  EXPECT_TRUE(linear.IsFull());
}

TEST(LinearTest, DictionaryAndHistoryOperations) {
  Linear linear;
  linear.UpdateDict("b");
  linear.UpdateDict("a");
  linear.UpdateDict("b");
  EXPECT_EQ(Member(linear, "strToId"), R"([{"app":"a","id":1},{"app":"b","id":0}])");
  EXPECT_EQ(Member(linear, "statCounter"), "null");
  linear.UpdateLastLaunches("c");  // registers the name first
  linear.UpdateLastLaunches("a");
  EXPECT_EQ(linear.GetLastLaunches(), (Names{"a", "c"}));
  EXPECT_EQ(Member(linear, "strToId"), R"([{"app":"a","id":1},{"app":"b","id":0},{"app":"c","id":2}])");
  EXPECT_EQ(Member(linear, "transitions"), "null");  // recording learns nothing
  for (int i = 0; i < 11; ++i) linear.UpdateLastLaunches("z");
  EXPECT_EQ(linear.GetLastLaunches(), Names(10, "z"));
}

// -------------------------------------------------------------- prediction

TEST(LinearTest, NoScoresBeforeTenLaunches) {
  Linear linear;
  LaunchDistinct(linear, 9);
  EXPECT_TRUE(linear.Predict().empty());
  for (int i = 0; i < 9; ++i) EXPECT_EQ(linear.GetPrediction("a" + std::to_string(i)), 0.0);
  Launch(linear, "a9");
  EXPECT_EQ(linear.Predict().size(), 10u);
}

TEST(LinearTest, TenDistinctLaunchesScoreExactly) {
  Linear linear;
  LaunchDistinct(linear, 10);
  // The most recent application gets prev0's weight from the ten previous-launch features.
  double previous = 0.0;
  for (int k = 0; k < 10; ++k) {
    const auto result = linear.PredictPrevious(k);
    ASSERT_EQ(result.size(), 10u);
    const auto& fraction = result.at("a9");
    const double value = fraction.denominator < 1e-9 ? 0.0 : fraction.numerator / fraction.denominator;
    previous += value * W("prev" + std::to_string(k));
  }
  EXPECT_EQ(previous, 0.175150083750486);
  EXPECT_EQ(previous, W("prev0"));

  // No application ever followed the one now at distance k + 1, so no
  // transition feature; every application has one launch in the same bucket.
  const Scores scores = linear.Predict();
  for (int i = 0; i < 10; ++i) {
    const int k = 9 - i;  // a<i> is lastLaunches[9 - i]
    double expected = 0.0;
    expected += 1.0 * W("prev" + std::to_string(k));
    expected += 0.1 * W("time");
    expected += 0.1 * W("counter");
    EXPECT_EQ(scores.at("a" + std::to_string(i)), expected) << i;
  }
  EXPECT_EQ(linear.GetPrediction("a9"), scores.at("a9"));
  EXPECT_EQ(linear.GetPrediction("unknown"), 0.0);
}

TEST(LinearTest, TimeKernelIsTriangularAndWrapsAroundMidnight) {
  Linear linear;
  Launch(linear, "morning", 8, 0);   // bucket 96
  Launch(linear, "evening", 22, 0);  // bucket 264
  Launch(linear, "late", 21, 55);    // bucket 263

  const auto at0700 = linear.PredictTime(TimeSlot(7, 0));  // d = +12 for morning
  EXPECT_EQ(at0700.at("morning").numerator, 1.0 + 12.0 / -26.0);
  EXPECT_EQ(at0700.at("morning").denominator, 1.0);  // max(S, 1)
  EXPECT_EQ(at0700.at("evening").numerator, 0.0);

  const auto at1010 = linear.PredictTime(TimeSlot(10, 10));  // d = -26: outside the kernel
  EXPECT_EQ(at1010.at("morning").numerator, 0.0);
  EXPECT_EQ(at1010.size(), 3u);

  const auto at0005 = linear.PredictTime(TimeSlot(0, 5));  // bucket 1 reaches back to 264
  EXPECT_EQ(at0005.at("evening").numerator, 1.0 + 25.0 / -26.0);
  EXPECT_EQ(at0005.at("late").numerator, 0.0);

  const auto at0800 = linear.PredictTime(TimeSlot(8, 0));
  EXPECT_EQ(at0800.at("morning").numerator, 1.0);

  // Normalised by the sum of numerators once it exceeds 1.
  Linear busy;
  Launch(busy, "x", 8, 0);
  Launch(busy, "x", 8, 5);
  Launch(busy, "y", 8, 10);
  const auto shares = busy.PredictTime(TimeSlot(8, 5));
  const double x = 1.0 + 1.0 / -26.0 + 1.0;
  const double y = 1.0 + 1.0 / -26.0;
  EXPECT_EQ(shares.at("x").numerator, x);
  EXPECT_EQ(shares.at("x").denominator, x + y);
  EXPECT_EQ(shares.at("y").denominator, x + y);
}

TEST(LinearTest, CounterFeatureIsTheShareOfLaunches) {
  Linear linear;
  for (const char* app : {"a", "b", "a"}) Launch(linear, app);
  linear.UpdateDict("c");  // known without a count: no entry
  const auto result = linear.PredictCounter();
  ASSERT_EQ(result.size(), 2u);
  EXPECT_EQ(result.at("a").numerator, 2.0);
  EXPECT_EQ(result.at("a").denominator, 3.0);
  EXPECT_EQ(result.at("b").numerator, 1.0);
}

TEST(LinearTest, CacheSurvivesUpdateTimeButNotUpdate) {
  Linear linear;
  for (int i = 0; i < 10; ++i) Launch(linear, "a" + std::to_string(i % 4), 8, i);
  linear.UpdateTime(At(8, 0));
  const Scores morning = linear.Predict();
  linear.UpdateTime(At(20, 0));
  EXPECT_TRUE(SameBits(morning, linear.Predict()));
  EXPECT_EQ(linear.GetPrediction("a1"), morning.at("a1"));

  // Recomputed at the next launch with the bucket of that launch.
  Launch(linear, "a1", 20, 0);
  const Scores evening = linear.Predict();
  Linear fresh;
  for (int i = 0; i < 10; ++i) Launch(fresh, "a" + std::to_string(i % 4), 8, i);
  Launch(fresh, "a1", 20, 0);
  EXPECT_TRUE(SameBits(fresh.Predict(), evening));
  // The time feature now sees nothing near 20:00.
  EXPECT_EQ(linear.PredictTime(TimeSlot(20, 0)).at("a0").numerator, 0.0);
}

TEST(LinearTest, AddPredictionResultWeightsAndAddsNewNames) {
  Linear linear;
  linear.AddPredictionResult({{"x", {1.0, 4.0}}, {"y", {3.0, 0.0}}}, "time");
  linear.AddPredictionResult({{"x", {1.0, 1.0}}, {"z", {2.0, 1e-10}}}, "counter");
  // With fewer than ten launches in the history Predict returns the map as it stands.
  double x = 0.0;
  x += 0.25 * W("time");
  x += 1.0 * W("counter");
  EXPECT_TRUE(SameBits((Scores{{"x", x}, {"y", 0.0}, {"z", 0.0}}), linear.Predict()));
  EXPECT_EQ(linear.GetPrediction("x"), x);

  // Ten recorded launches: recomputed from the tables, which hold only the history.
  for (int i = 0; i < 10; ++i) linear.UpdateLastLaunches("x");
  double recomputed = 0.0;
  for (int k = 0; k < 10; ++k) recomputed += 1.0 * W("prev" + std::to_string(k));
  EXPECT_TRUE(SameBits((Scores{{"x", recomputed}}), linear.Predict()));
}

TEST(LinearTest, MatchesTheFormulaBitForBitOnARandomStream) {
  std::mt19937 random(7);
  Linear linear;
  ReferenceLinear reference;
  int minute = 0;
  Scores last;
  for (int step = 0; step < 700; ++step) {
    minute += 1 + static_cast<int>(random() % 40);
    const int hour = (minute / 60) % 24;
    const std::tm now = At(hour, minute % 60);
    linear.UpdateTime(now);
    const Scores scores = linear.Predict();
    if (step >= 10) {
      ASSERT_TRUE(SameBits(reference.Predict(TimeSlot(now.tm_hour, now.tm_min)), scores)) << step;
      // Further questions at another time answer from the cache.
      linear.UpdateTime(At(hour + 5, 0));
      for (const auto& [app, score] : scores) ASSERT_EQ(linear.GetPrediction(app), score);
    } else {
      ASSERT_TRUE(scores.empty());
    }
    const int app = random() % 3 == 0 ? static_cast<int>(random() % 30) : static_cast<int>(random() % 6);
    const std::string name = "app" + std::to_string(app);
    linear.Update(Updater{"", name, hour, minute % 60});
    reference.Launch(name, hour, minute % 60);
  }
}

// ------------------------------------------------------------- persistence

void Train(Linear& linear, unsigned seed, int launches = 300) {
  std::mt19937 random(seed);
  for (int i = 0; i < launches; ++i) {
    Launch(linear, "app" + std::to_string(random() % 12), static_cast<int>(random() % 24),
           static_cast<int>(random() % 60));
  }
}

TEST(LinearTest, RoundTripReproducesEveryTable) {
  Linear trained;
  Train(trained, 3);
  trained.UpdateTime(At(14, 30));
  const Scores before = trained.Predict();
  const Json::Value document = trained.SerializeJson();

  Linear loaded;
  ASSERT_TRUE(loaded.DeserializeJson(document));
  EXPECT_EQ(WriteJson(loaded.SerializeJson()), WriteJson(document));
  EXPECT_EQ(loaded.GetLastLaunches(), trained.GetLastLaunches());
  for (int k = 0; k < 10; ++k) {  // sumTransitions rebuilt: same fractions
    const auto expected = trained.PredictTransition(k);
    const auto actual = loaded.PredictTransition(k);
    ASSERT_EQ(expected.size(), actual.size());
    for (const auto& [app, fraction] : expected) {
      EXPECT_EQ(actual.at(app).numerator, fraction.numerator);
      EXPECT_EQ(actual.at(app).denominator, fraction.denominator);
    }
  }
  loaded.UpdateTime(At(14, 30));
  EXPECT_TRUE(SameBits(before, loaded.Predict()));

  // Loading into a trained model replaces it and drops its cache.
  Linear other;
  Train(other, 4);
  other.UpdateTime(At(14, 30));
  other.Predict();
  ASSERT_TRUE(other.DeserializeJson(document));
  EXPECT_TRUE(SameBits(before, other.Predict()));
}

const char* kValidModel = R"({
  "last": [{"lastApp": 1}, {"lastApp": 0}],
  "strToId": [{"app": "a", "id": 0}, {"app": "b", "id": 1}],
  "transitions": [{"step": 0, "appFrom": 0, "appTo": 1, "cnt": 2}],
  "timeBuckets": [{"bucket": 96, "app": 0, "cnt": 1}, {"bucket": 97, "app": 1, "cnt": 2}],
  "statCounter": [{"app": 0, "cnt": 1}, {"app": 1, "cnt": 2}]
})";

TEST(LinearTest, ReaderRejectsMissingOrEmptyMembers) {
  Linear linear;
  ASSERT_TRUE(linear.DeserializeJson(ParseJson(kValidModel)));
  EXPECT_FALSE(linear.DeserializeJson(ParseJson("null")));
  EXPECT_FALSE(linear.DeserializeJson(ParseJson("{}")));
  EXPECT_FALSE(linear.DeserializeJson(ParseJson("[1]")));
  for (const char* key : {"last", "strToId", "transitions", "timeBuckets", "statCounter"}) {
    for (const char* replacement : {"null", "[]", "{}", R"({"a":1})", "3", R"("x")"}) {
      Json::Value document = ParseJson(kValidModel);
      document[key] = ParseJson(replacement);
      Linear reader;
      EXPECT_FALSE(reader.DeserializeJson(document)) << key << " = " << replacement;
    }
    Json::Value document = ParseJson(kValidModel);
    document.removeMember(key);
    Linear reader;
    EXPECT_FALSE(reader.DeserializeJson(document)) << "without " << key;
  }
}

TEST(LinearTest, ReaderSkipsMalformedElements) {
  Json::Value document = ParseJson(kValidModel);
  for (const char* element : {R"({"step": 10, "appFrom": 0, "appTo": 0, "cnt": 5})",
                              R"({"step": 0, "appFrom": -1, "appTo": 0, "cnt": 5})",
                              R"({"step": 0, "appFrom": 0, "appTo": 0})", "3", "[]", "null",
                              R"({"step": 0.5, "appFrom": 0, "appTo": 0, "cnt": 5})"}) {
    document["transitions"].append(ParseJson(element));
  }
  for (const char* element : {R"({"bucket": 288, "app": 0, "cnt": 5})", R"({"bucket": 1, "app": "a", "cnt": 5})",
                              R"({"bucket": 1, "app": 0, "cnt": null})", "7"}) {
    document["timeBuckets"].append(ParseJson(element));
  }
  for (const char* element : {R"({"lastApp": -1})", R"({"lastApp": "a"})", R"({"other": 0})", "2", "[1]"}) {
    document["last"].append(ParseJson(element));
  }
  for (const char* element : {R"({"app": "c", "id": -1})", R"({"app": 3, "id": 2})", R"({"app": "", "id": null})",
                              R"({"app": "d"})", "true"}) {
    document["strToId"].append(ParseJson(element));
  }
  for (const char* element : {R"({"app": 0, "cnt": -4})", R"({"app": 1})", R"({"cnt": 1})", R"({})", "[]",
                              "null"}) {
    document["statCounter"].append(ParseJson(element));
  }
  Linear linear;
  ASSERT_TRUE(linear.DeserializeJson(document));
  Linear plain;
  ASSERT_TRUE(plain.DeserializeJson(ParseJson(kValidModel)));
  EXPECT_EQ(WriteJson(linear.SerializeJson()), WriteJson(plain.SerializeJson()));
}

TEST(LinearTest, CounterReaderRaisesOnElementsThatAreNotObjects) {
  // The "statCounter" reader asks for members without testing that
  // the element is an object; jsoncpp raises its logic error.
  for (const char* element : {"5", R"("x")", "[1]", "true"}) {
    Json::Value document = ParseJson(kValidModel);
    document["statCounter"].append(ParseJson(element));
    Linear linear;
    EXPECT_THROW(linear.DeserializeJson(document), Json::LogicError) << element;
  }
}

TEST(LinearTest, UnknownIdsFailTheLoadAfterReplacingTheTables) {
  Linear linear;
  Train(linear, 5);
  Json::Value document = ParseJson(kValidModel);
  document["statCounter"].append(ParseJson(R"({"app": 7, "cnt": 3})"));
  EXPECT_FALSE(linear.DeserializeJson(document));
  EXPECT_EQ(Member(linear, "statCounter"), R"([{"app":0,"cnt":1},{"app":1,"cnt":2},{"app":7,"cnt":3}])");
  EXPECT_EQ(Member(linear, "strToId"), R"([{"app":"a","id":0},{"app":"b","id":1}])");

  for (const char* key : {"transitions", "timeBuckets"}) {
    Json::Value broken = ParseJson(kValidModel);
    broken[key].append(ParseJson(R"({"step": 1, "bucket": 1, "appFrom": 0, "appTo": 9, "app": 9, "cnt": 1})"));
    Linear reader;
    EXPECT_FALSE(reader.DeserializeJson(broken)) << key;
  }

  // History ids are not verified.
  Json::Value history = ParseJson(kValidModel);
  history["last"].append(ParseJson(R"({"lastApp": 9})"));
  Linear reader;
  ASSERT_TRUE(reader.DeserializeJson(history));
  EXPECT_EQ(reader.GetLastLaunches(), (Names{"b", "a", ""}));
}

TEST(LinearTest, LoadedHistoryKeepsItsLength) {
  Json::Value document = ParseJson(kValidModel);
  document["last"] = Json::Value();
  for (int i = 0; i < 12; ++i) document["last"].append(ParseJson(i % 2 == 0 ? R"({"lastApp": 0})" : R"({"lastApp": 1})"));
  Linear linear;
  ASSERT_TRUE(linear.DeserializeJson(document));
  EXPECT_EQ(linear.GetLastLaunches().size(), 12u);
  Launch(linear, "c");
  const Names history = linear.GetLastLaunches();
  ASSERT_EQ(history.size(), 12u);
  EXPECT_EQ(history.front(), "c");
  // Ten transition steps were counted from the twelve-entry history.
  EXPECT_EQ(linear.SerializeJson()["transitions"].size(), 1u + 10u);
  EXPECT_EQ(linear.Predict().size(), 3u);
}

TEST(LinearTest, ThirtyTwoBitValuesAreWidenedWithTheirSign) {
  Json::Value document = ParseJson(kValidModel);
  document["statCounter"][0]["cnt"] = Json::UInt64{4294967295u};  // -1 as a 32-bit count
  document["last"][0]["lastApp"] = Json::UInt64{4294967295u};
  document["transitions"].append(ParseJson(R"({"step": 0, "appFrom": 0, "appTo": 0, "cnt": 4294967298})"));
  Linear linear;
  ASSERT_TRUE(linear.DeserializeJson(document));
  EXPECT_EQ(Member(linear, "statCounter"), R"([{"app":0,"cnt":18446744073709551615},{"app":1,"cnt":2}])");
  EXPECT_EQ(Member(linear, "last"), R"([{"lastApp":-1},{"lastApp":0}])");
  EXPECT_EQ(Member(linear, "transitions"),
            R"([{"appFrom":0,"appTo":0,"cnt":2,"step":0},{"appFrom":0,"appTo":1,"cnt":2,"step":0}])");
}

TEST(LinearTest, ZeroSumsGiveZeroFeaturesAndUnitDenominators) {
  // Counts that sum to zero: a row of transitions whose counts cancel, and
  // launch counts of zero.
  Json::Value document = ParseJson(R"({
    "strToId": [{"app": "a", "id": 0}, {"app": "b", "id": 1}],
    "transitions": [{"step": 0, "appFrom": 0, "appTo": 0, "cnt": 4294967295},
                    {"step": 0, "appFrom": 0, "appTo": 1, "cnt": 1}],
    "timeBuckets": [{"bucket": 0, "app": 0, "cnt": 0}],
    "statCounter": [{"app": 0, "cnt": 0}, {"app": 1, "cnt": 0}]
  })");
  for (int i = 0; i < 10; ++i) document["last"].append(ParseJson(R"({"lastApp": 0})"));
  Linear linear;
  ASSERT_TRUE(linear.DeserializeJson(document));
  const auto transition = linear.PredictTransition(0);
  EXPECT_EQ(transition.at("a").numerator, -1.0);
  EXPECT_EQ(transition.at("a").denominator, 0.0);
  const auto counter = linear.PredictCounter();
  EXPECT_EQ(counter.at("a").numerator, 0.0);
  EXPECT_EQ(counter.at("a").denominator, 1.0);
  const Scores scores = linear.Predict();
  double a = 0.0;
  for (int k = 0; k < 10; ++k) a += 1.0 * W("prev" + std::to_string(k));
  EXPECT_TRUE(SameBits((Scores{{"a", a}, {"b", 0.0}}), scores));
}

}  // namespace
}  // namespace NuvikPrediction
