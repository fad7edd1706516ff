// The linear scorer: its tables learned launch by launch, its scores against
// the formula read literally on a random stream, and a reader that skips
// malformed elements, wraps loaded values in 32 bits and rejects unknown ids.
#include "Linear.h"

#include <array>
#include <random>
#include <vector>

#include <gtest/gtest.h>

#include "LinearReference.h"
#include "TestUtil.h"

namespace NuvikPrediction {
namespace {

using testing::At;
using testing::kLinearModel;
using testing::Launch;
using testing::Member;
using testing::ParseJson;
using testing::Scores;
using testing::W;
using testing::WriteJson;
using Names = std::vector<std::string>;

// Random launches of apps "app0" .. "app<apps - 1>" at random times.
void Train(Linear& linear, unsigned seed, unsigned apps = 12) {
  std::mt19937 random(seed);
  for (int i = 0; i < 300; ++i) Launch(linear, "app" + std::to_string(random() % apps), random() % 24, random() % 60);
}

TEST(LinearTest, TimeBucketsClampHourAndMinute) {
  const std::vector<std::array<int, 3>> cases = {{23, 59, 287}, {0, 0, 0},     {12, 34, 150},
                                                 {24, 60, 287}, {25, -3, 276}, {-1, 7, 1}};
  for (const auto& [hour, minute, bucket] : cases) {
    Linear linear;
    Launch(linear, "x", hour, minute);
    EXPECT_EQ(Member(linear, "timeBuckets"), R"([{"app":0,"bucket":)" + std::to_string(bucket) + R"(,"cnt":1}])")
        << hour << ":" << minute;
  }
}

TEST(LinearTest, LearnsEachLaunchAgainstTheHistoryBeforeIt) {
  Linear linear;
  Launch(linear, "b", 8, 5);  // no history yet: no transition
  Launch(linear, "a", 8, 0);
  Launch(linear, "a", 8, 4);
  EXPECT_EQ(WriteJson(linear.SerializeJson()),
            R"({"last":[{"lastApp":1},{"lastApp":1},{"lastApp":0}],)"
            R"("statCounter":[{"app":0,"cnt":1},{"app":1,"cnt":2}],)"
            R"("strToId":[{"app":"a","id":1},{"app":"b","id":0}],)"
            R"("timeBuckets":[{"app":1,"bucket":96,"cnt":2},{"app":0,"bucket":97,"cnt":1}],)"
            R"("transitions":[{"appFrom":0,"appTo":1,"cnt":1,"step":0},{"appFrom":1,"appTo":1,"cnt":1,"step":0},)"
            R"({"appFrom":0,"appTo":1,"cnt":1,"step":1}]})");

  // Ten launches, all in one bucket, fill the history: a9, the last, is a
  // tenth of all launches and of the time numerators. No transitions yet.
  Linear twelve;
  for (int i = 0; i < 10; ++i) Launch(twelve, "a" + std::to_string(i));
  EXPECT_EQ(twelve.GetPrediction("a9"), 0.175150083750486 + 0.1 * 8.13685531616211 + 0.1 * -8.58245544433594);
  EXPECT_EQ(twelve.GetPrediction("unknown"), 0.0);
  for (int i = 10; i < 12; ++i) Launch(twelve, "a" + std::to_string(i));
  EXPECT_EQ(twelve.GetLastLaunches(), (Names{"a11", "a10", "a9", "a8", "a7", "a6", "a5", "a4", "a3", "a2"}));
}

TEST(LinearTest, MatchesTheReferenceBitForBitOnARandomStream) {
  Linear linear;
  testing::ExpectMatchesReference(linear, false, 7, 700);
}

TEST(LinearTest, RoundTripReproducesEveryTableAndDropsTheCachedPrediction) {
  Linear trained;
  Linear other;
  Train(trained, 3);
  Train(other, 4, 20);  // more applications: stale rows that the load must drop
  other.Predict();
  ASSERT_TRUE(other.DeserializeJson(trained.SerializeJson()));
  EXPECT_EQ(WriteJson(other.SerializeJson()), WriteJson(trained.SerializeJson()));
  for (Linear* linear : {&trained, &other}) linear->UpdateTime(At(14, 30));
  EXPECT_EQ(other.Predict(), trained.Predict());
}

TEST(LinearTest, ReaderRejectsAMissingOrMalformedTableAndUnknownIds) {
  EXPECT_FALSE(Linear().DeserializeJson(Linear().SerializeJson()));  // nothing learned: null tables
  for (const char* value : {"null", "[1]", "{}"}) EXPECT_FALSE(Linear().DeserializeJson(ParseJson(value)));
  for (const char* key : {"last", "strToId", "transitions", "timeBuckets", "statCounter"}) {
    for (const char* value : {"", "null", "[]", R"({"a": 1})", "3"}) {  // "": member removed
      Json::Value document = ParseJson(kLinearModel);
      if (*value != '\0') document[key] = ParseJson(value);
      else document.removeMember(key);
      EXPECT_FALSE(Linear().DeserializeJson(document)) << key << "=" << value;
    }
  }
  for (const auto& [key, element] : {std::pair{"transitions", R"({"step":1,"appFrom":0,"appTo":7,"cnt":3})"},
                                     std::pair{"timeBuckets", R"({"bucket":98,"app":7,"cnt":3})"},
                                     std::pair{"statCounter", R"({"app":7,"cnt":3})"}}) {
    Json::Value document = ParseJson(kLinearModel);
    document[key].append(ParseJson(element));
    EXPECT_FALSE(Linear().DeserializeJson(document)) << key;
  }
}

TEST(LinearTest, ReadersSkipElementsThatDoNotQualify) {
  const std::map<std::string, std::vector<const char*>> skipped = {
      {"last", {R"({"lastApp": -1})", R"({"lastApp": "a"})", R"({"other": 0})", "2", "[1]"}},
      {"strToId", {R"({"app": "c", "id": -1})", R"({"app": 3, "id": 2})", R"({"app": "", "id": null})",
                   R"({"app": "d"})", "true"}},
      {"transitions", {R"({"step":10,"appFrom":0,"appTo":0,"cnt":5})", R"({"step":0,"appFrom":-1,"appTo":0,"cnt":5})",
                       R"({"step":0,"appFrom":0,"appTo":0})", R"({"step":0.5,"appFrom":0,"appTo":0,"cnt":5})",
                       "3", "[]", "null"}},
      {"timeBuckets", {R"({"bucket": 288, "app": 0, "cnt": 5})", R"({"bucket": 1, "app": "a", "cnt": 5})",
                       R"({"bucket": 1, "app": 0, "cnt": null})", "7"}},
      {"statCounter", {R"({"app": 0, "cnt": -4})", R"({"app": 1})", R"({"cnt": 1})", "{}", "[]", "null"}},
  };
  Json::Value document = ParseJson(kLinearModel);
  for (const auto& [key, elements] : skipped) {
    for (const char* element : elements) document[key].append(ParseJson(element));
  }
  Linear linear;
  ASSERT_TRUE(linear.DeserializeJson(document));
  EXPECT_EQ(WriteJson(linear.SerializeJson()), WriteJson(ParseJson(kLinearModel)));

  // The "statCounter" reader asks a bare value for its members.
  for (const char* element : {"5", R"("x")", "[1]", "true"}) {
    document = ParseJson(kLinearModel);
    document["statCounter"].append(ParseJson(element));
    EXPECT_THROW(Linear().DeserializeJson(document), Json::LogicError) << element;
  }
}

TEST(LinearTest, LoadedHistoryKeepsItsLengthAndUnknownIds) {
  Json::Value document = ParseJson(kLinearModel);
  document["last"].append(ParseJson(R"({"lastApp": 9})"));
  for (int i = 0; i < 9; ++i) document["last"].append(ParseJson(R"({"lastApp": 0})"));
  Linear linear;
  ASSERT_TRUE(linear.DeserializeJson(document));
  EXPECT_EQ(linear.GetLastLaunches(), (Names{"b", "a", "", "a", "a", "a", "a", "a", "a", "a", "a", "a"}));
  Launch(linear, "c");
  EXPECT_EQ(linear.GetLastLaunches(), (Names{"c", "b", "a", "", "a", "a", "a", "a", "a", "a", "a", "a"}));
  EXPECT_EQ(linear.SerializeJson()["transitions"].size(), 1u + 10u);
  EXPECT_EQ(linear.Predict().size(), 3u);
}

TEST(LinearTest, LoadedValuesWrapIn32BitsAndZeroSumsDivideByOne) {
  // The counts of the step-0 row of "a" and the launch counts each add up to
  // 0 (1 + -1); its step-2 row adds up to -1, which no fraction divides by.
  Json::Value document = ParseJson(R"({
    "strToId": [{"app": "a", "id": 0}, {"app": "b", "id": 1}],
    "transitions": [{"step": 0, "appFrom": 0, "appTo": 0, "cnt": 4294967295},
                    {"step": 0, "appFrom": 0, "appTo": 1, "cnt": 4294967297}, {"step":1,"appFrom":0,"appTo":1,"cnt":0},
                    {"step": 2, "appFrom": 0, "appTo": 1, "cnt": 4294967295}],
    "timeBuckets": [{"bucket": 0, "app": 0, "cnt": 0}],
    "statCounter": [{"app": 0, "cnt": 1}, {"app": 1, "cnt": 4294967295}]
  })");
  for (int i = 0; i < 10; ++i) document["last"].append(ParseJson(R"({"lastApp": 0})"));
  document["last"].append(ParseJson(R"({"lastApp": 4294967295})"));
  Linear linear;
  ASSERT_TRUE(linear.DeserializeJson(document));
  const Json::Value saved = linear.SerializeJson();
  EXPECT_EQ(WriteJson(saved["last"][10]), R"({"lastApp":-1})");
  EXPECT_EQ(WriteJson(saved["statCounter"]), R"([{"app":0,"cnt":1},{"app":1,"cnt":18446744073709551615}])");
  EXPECT_EQ(WriteJson(saved["timeBuckets"]), R"([{"app":0,"bucket":0,"cnt":0}])");
  EXPECT_EQ(WriteJson(saved["transitions"]), R"([{"appFrom":0,"appTo":0,"cnt":18446744073709551615,"step":0},)"
                                             R"({"appFrom":0,"appTo":1,"cnt":1,"step":0},)"  // no zero count
                                             R"({"appFrom":0,"appTo":1,"cnt":18446744073709551615,"step":2}])");
  double a = 0.0;
  for (int k = 0; k < 10; ++k) a += W("prev" + std::to_string(k));
  EXPECT_EQ(linear.Predict(), (Scores{{"a", a + W("counter")}, {"b", -W("counter")}}));
}

TEST(LinearTest, ALoadedNameWithTwoIdsScoresAsEachDirectionOfTheDictionarySays) {
  // "b" is read with id 1, then with id 2: it keeps id 2, and both ids name it.
  Json::Value document = ParseJson(R"({
    "strToId": [{"app": "a", "id": 0}, {"app": "b", "id": 1}, {"app": "b", "id": 2}],
    "transitions": [{"step": 0, "appFrom": 0, "appTo": 1, "cnt": 1}, {"step": 0, "appFrom": 0, "appTo": 2, "cnt": 3}],
    "timeBuckets": [{"bucket": 96, "app": 0, "cnt": 2}, {"bucket": 96, "app": 1, "cnt": 1},
                    {"bucket": 96, "app": 2, "cnt": 1}],
    "statCounter": [{"app": 0, "cnt": 2}, {"app": 1, "cnt": 5}, {"app": 2, "cnt": 7}]
  })");
  for (int i = 0; i < 10; ++i) document["last"].append(ParseJson(R"({"lastApp": 0})"));
  Linear linear;
  ASSERT_TRUE(linear.DeserializeJson(document));
  EXPECT_EQ(Member(linear, "strToId"), R"([{"app":"a","id":0},{"app":"b","id":2}])");
  linear.UpdateTime(At(8, 0));
  // Transitions reach names through ids (the later id of "b" wins), the time
  // feature adds both ids of "b", the counter takes the count of b's own id.
  double a = 0.0;
  for (int k = 0; k < 10; ++k) a += 1.0 * W("prev" + std::to_string(k));
  a += 2.0 / 4.0 * W("time");
  a += 2.0 / 14.0 * W("counter");
  const double b = 3.0 / 4.0 * W("transition0") + 2.0 / 4.0 * W("time") + 7.0 / 14.0 * W("counter");
  EXPECT_EQ(linear.Predict(), (Scores{{"a", a}, {"b", b}}));
  EXPECT_EQ(linear.GetPrediction("b"), b);

  // "c" is read with the id of "a": id 0 now names "c", while "a" keeps id 0
  // for its count.
  Json::Value takenOver = ParseJson(R"({
    "strToId": [{"app": "a", "id": 0}, {"app": "b", "id": 1}, {"app": "c", "id": 0}],
    "transitions": [{"step": 0, "appFrom": 1, "appTo": 0, "cnt": 1}],
    "timeBuckets": [{"bucket": 96, "app": 0, "cnt": 1}],
    "statCounter": [{"app": 0, "cnt": 1}, {"app": 1, "cnt": 1}]
  })");
  for (int i = 0; i < 10; ++i) takenOver["last"].append(ParseJson(R"({"lastApp": 1})"));
  Linear shared;
  ASSERT_TRUE(shared.DeserializeJson(takenOver));
  shared.UpdateTime(At(8, 0));
  double previous = 0.0;
  for (int k = 0; k < 10; ++k) previous += 1.0 * W("prev" + std::to_string(k));
  EXPECT_EQ(shared.Predict(), (Scores{{"a", 0.5 * W("counter")},
                                      {"b", previous + 0.5 * W("counter")},
                                      {"c", 1.0 * W("transition0") + 1.0 * W("time") + 0.5 * W("counter")}}));
}

TEST(LinearTest, AFarIdStaysFoundWhenTheTableOfNearIdsGrowsPastIt) {
  // Id 3000 is read first, too far for the table of ids; after 1100 names a
  // later id takes the table past it.
  Json::Value document = ParseJson(R"({
    "transitions": [{"step": 0, "appFrom": 0, "appTo": 3000, "cnt": 1}],
    "timeBuckets": [{"bucket": 0, "app": 3000, "cnt": 1}],
    "statCounter": [{"app": 3000, "cnt": 5}, {"app": 0, "cnt": 1}]
  })");
  Json::Value& names = document["strToId"];
  names.append(ParseJson(R"({"app": "far", "id": 3000})"));
  for (int i = 0; i < 1100; ++i) {
    names.append(ParseJson(R"({"app": "n)" + std::to_string(i) + R"(", "id": )" + std::to_string(i) + "}"));
  }
  names.append(ParseJson(R"({"app": "near", "id": 3001})"));
  for (int i = 0; i < 10; ++i) document["last"].append(ParseJson(R"({"lastApp": 0})"));
  Linear linear;
  ASSERT_TRUE(linear.DeserializeJson(document));
  linear.UpdateTime(At(0, 0));
  EXPECT_EQ(linear.GetPrediction("far"), 1.0 * W("transition0") + 1.0 * W("time") + 5.0 / 6.0 * W("counter"));
}

}  // namespace
}  // namespace NuvikPrediction
