#include "DoubleLinear.h"

#include <vector>

#include <gtest/gtest.h>

#include "LinearReference.h"
#include "TestUtil.h"

namespace NuvikPrediction {
namespace {

using testing::At;
using testing::kLinearModel;
using testing::ParseJson;
using testing::Scores;
using testing::W;
using testing::WriteJson;

Updater Launched(const std::string& app, int hour = 9, int minute = 0) { return Updater{"", app, hour, minute}; }

TEST(DoubleLinearTest, FirstPhaseMatchesTheReferenceBitForBit) {
  DoubleLinear model;
  testing::ExpectMatchesReference(model, true, 11, 600);
}

TEST(DoubleLinearTest, PoolsBothStagesFractionsExactly) {
  // "a" is known to both stages' counters, "b" to the first's, "c" to the
  // second's; "d" has a name in the second stage but no count, so no score.
  Json::Value document = ParseJson(R"({"firstLinear": {
      "last": [{"lastApp": 0}],
      "strToId": [{"app": "a", "id": 0}, {"app": "b", "id": 1}],
      "transitions": [{"appFrom": 0, "appTo": 1, "cnt": 1, "step": 0}],
      "timeBuckets": [{"app": 0, "bucket": 96, "cnt": 1}],
      "statCounter": [{"app": 0, "cnt": 3}, {"app": 1, "cnt": 1}]}, "secondLinear": {
      "last": [{"lastApp": 1}],
      "strToId": [{"app": "a", "id": 1}, {"app": "c", "id": 0}, {"app": "d", "id": 2}],
      "transitions": [{"appFrom": 1, "appTo": 0, "cnt": 2, "step": 0}],
      "timeBuckets": [{"app": 0, "bucket": 96, "cnt": 1}],
      "statCounter": [{"app": 0, "cnt": 2}, {"app": 1, "cnt": 1}]}})");
  for (int i = 0; i < 9; ++i) document["firstLinear"]["last"].append(ParseJson(R"({"lastApp": 0})"));
  DoubleLinear model;
  ASSERT_TRUE(model.DeserializeJson(document));
  EXPECT_EQ(WriteJson(model.SerializeJson()), WriteJson(document));
  model.UpdateTime(At(8, 0));
  // Pooled fractions of a: counter 4/7, transition0 0/0, prev0 2/2, prev1..9 1/1, time 1/2.
  double a = 4.0 / 7 * W("counter");
  for (int k = 0; k < 10; ++k) a += W("prev" + std::to_string(k));
  a += 0.5 * W("time");
  const double b = 1.0 / 4 * W("counter") + W("transition0");
  const double c = 2.0 / 3 * W("counter") + W("transition0") + W("time");
  EXPECT_EQ(model.Predict(), (Scores{{"a", a}, {"b", b}, {"c", c}}));

  // Loading keeps a cached prediction until the next launch.
  DoubleLinear cached;
  for (int i = 0; i < 10; ++i) cached.Update(Launched("x"));
  const Scores before = cached.Predict();
  ASSERT_TRUE(cached.DeserializeJson(document));
  EXPECT_EQ(cached.Predict(), before);
}

Json::Value Document(const char* first, const char* second) {
  Json::Value document(Json::objectValue);
  if (first != nullptr) document["firstLinear"] = ParseJson(first);
  if (second != nullptr) document["secondLinear"] = ParseJson(second);
  return document;
}

TEST(DoubleLinearTest, ReaderNeedsTheFirstStageAndReseedsABrokenSecond) {
  EXPECT_FALSE(DoubleLinear().DeserializeJson(DoubleLinear().SerializeJson()));
  for (const char* value : {"null", "[1]", "3"}) EXPECT_FALSE(DoubleLinear().DeserializeJson(ParseJson(value)));
  EXPECT_FALSE(DoubleLinear().DeserializeJson(Document(kLinearModel, nullptr)));
  EXPECT_FALSE(DoubleLinear().DeserializeJson(Document(nullptr, kLinearModel)));
  for (const char* first : {"null", "{}", R"({"last": [{"lastApp": 0}]})"}) {
    EXPECT_FALSE(DoubleLinear().DeserializeJson(Document(first, kLinearModel))) << first;
  }
  for (const char* second : {"null", "{}", "7", R"({"last": []})"}) {
    DoubleLinear model;
    for (int i = 0; i < 12; ++i) model.Update(Launched("old" + std::to_string(i)));
    ASSERT_TRUE(model.DeserializeJson(Document(kLinearModel, second))) << second;
    const Json::Value loaded = model.SerializeJson();
    EXPECT_EQ(WriteJson(loaded["firstLinear"]), WriteJson(ParseJson(kLinearModel)));
    // A fresh stage given the first stage's history (b, a) in that order.
    EXPECT_EQ(WriteJson(loaded["secondLinear"]),
              R"({"last":[{"lastApp":1},{"lastApp":0}],"statCounter":null,)"
              R"("strToId":[{"app":"a","id":1},{"app":"b","id":0}],"timeBuckets":null,"transitions":null})")
        << second;
  }
}

TEST(DoubleLinearTest, StagesLearnInTurnAndTurnOverWhenBothAreFull) {
  DoubleLinear model;
  Linear first;  // the stages as they should be
  Linear second;
  const auto launch = [&](const std::string& app, Linear& learner, Linear& recorder) {
    model.Update(Launched(app));
    learner.Update(Launched(app));
    recorder.UpdateLastLaunches(app);
  };
  // 5001 applications in 5002 launches: fullness counts applications.
  for (int i = 0; i <= 5001; ++i) launch("f" + std::to_string(i == 5000 ? 0 : i), first, second);
  for (int i = 0; i <= 5000; ++i) launch("s" + std::to_string(i), second, first);
  const Json::Value full = model.SerializeJson();
  EXPECT_EQ(WriteJson(full["firstLinear"]), WriteJson(first.SerializeJson()));
  EXPECT_EQ(WriteJson(full["secondLinear"]), WriteJson(second.SerializeJson()));

  // The first stage is dropped; a fresh one gets the survivor's history reversed.
  Linear fresh;
  for (int i = 5000; i >= 4991; --i) fresh.UpdateLastLaunches("s" + std::to_string(i));
  launch("t", fresh, second);
  const Json::Value turned = model.SerializeJson();
  EXPECT_EQ(WriteJson(turned["firstLinear"]), WriteJson(second.SerializeJson()));
  EXPECT_EQ(WriteJson(turned["secondLinear"]), WriteJson(fresh.SerializeJson()));
  EXPECT_EQ(model.Predict().size(), 5002u);  // s0 .. s5000 and t

  // A full second stage beside a first that is not full learns nothing.
  Json::Value quirk = full;
  quirk["firstLinear"] = ParseJson(kLinearModel);
  DoubleLinear loaded;
  ASSERT_TRUE(loaded.DeserializeJson(quirk));
  loaded.Update(Launched("new"));
  EXPECT_EQ(WriteJson(loaded.SerializeJson()), WriteJson(quirk));
}

}  // namespace
}  // namespace NuvikPrediction
