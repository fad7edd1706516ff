#include "DoubleLinear.h"

#include <cstring>
#include <memory>
#include <random>
#include <sstream>
#include <vector>

#include <gtest/gtest.h>
#include <nuvik/Nuvik.h>

#include "Constants.h"
#include "Linear.h"
#include "LinearReference.h"
#include "TestUtil.h"

namespace NuvikPrediction {
namespace {

using testing::At;
using testing::ParseJson;
using testing::ReferenceLinear;
using testing::SameBits;
using testing::Scores;
using testing::W;
using testing::WriteJson;
using Names = std::vector<std::string>;

Updater Launched(const std::string& app, int hour = 9, int minute = 0) { return Updater{"", app, hour, minute}; }

std::string Stage(const DoubleLinear& model, const char* key) { return WriteJson(model.SerializeJson()[key]); }

// The two-stage rules driven by hand on two plain Linear stages, pooled with
// plain lookups.
class ShadowDoubleLinear {
 public:
  void Update(const Updater& updater) {
    const bool firstFull = first->IsFull();
    const bool secondFull = second->IsFull();
    if (firstFull && secondFull) {
      std::swap(first, second);
      second = std::make_unique<Linear>();
      second->UpdateTime(lastTime);
      for (const std::string& name : first->GetLastLaunches()) second->UpdateLastLaunches(name);
      second->Update(updater);
      first->UpdateLastLaunches(updater.app);
    } else if (firstFull) {
      second->Update(updater);
      first->UpdateLastLaunches(updater.app);
    } else if (!secondFull) {
      first->Update(updater);
      second->UpdateLastLaunches(updater.app);
    }
  }

  void UpdateTime(const std::tm& time) {
    lastTime = time;
    first->UpdateTime(time);
    second->UpdateTime(time);
  }

  Scores Predict() const {
    Scores scores;
    if (first->GetLastLaunches().size() < 10) return scores;
    const auto c1 = first->PredictCounter();
    const auto c2 = second->PredictCounter();
    for (const auto& entry : c1) scores[entry.first] = 0.0;
    for (const auto& entry : c2) scores[entry.first] = 0.0;
    Pool(scores, c1, c2, "counter");
    for (int k = 0; k < 10; ++k) {
      Pool(scores, first->PredictTransition(k), second->PredictTransition(k), "transition" + std::to_string(k));
    }
    for (int k = 0; k < 10; ++k) {
      Pool(scores, first->PredictPrevious(k), second->PredictPrevious(k), "prev" + std::to_string(k));
    }
    const int slot = TimeSlot(lastTime.tm_hour, lastTime.tm_min);
    Pool(scores, first->PredictTime(slot), second->PredictTime(slot), "time");
    return scores;
  }

  std::unique_ptr<Linear> first = std::make_unique<Linear>();
  std::unique_ptr<Linear> second = std::make_unique<Linear>();
  std::tm lastTime{};

 private:
  static void Pool(Scores& scores, const Linear::FeatureResult& x, const Linear::FeatureResult& y,
                   const std::string& key) {
    const double weight = W(key);
    for (auto& [app, score] : scores) {
      Linear::Fraction a;
      Linear::Fraction b;
      if (x.count(app) != 0) a = x.at(app);
      if (y.count(app) != 0) b = y.at(app);
      const double n = a.numerator + b.numerator;
      const double d = a.denominator + b.denominator;
      score += (d < 1e-9 ? 0.0 : n / d) * weight;
    }
  }
};

TEST(DoubleLinearTest, StartsWithTwoEmptyStages) {
  DoubleLinear model;
  EXPECT_EQ(model.name, "double_linear");
  EXPECT_TRUE(model.Predict().empty());
  EXPECT_EQ(model.GetPrediction("a"), 0.0);
  const std::string empty = R"({"last":null,"statCounter":null,"strToId":null,"timeBuckets":null,"transitions":null})";
  EXPECT_EQ(WriteJson(model.SerializeJson()), R"({"firstLinear":)" + empty + R"(,"secondLinear":)" + empty + "}");
  DoubleLinear reader;
  EXPECT_FALSE(reader.DeserializeJson(model.SerializeJson()));
}

TEST(DoubleLinearTest, FirstStageLearnsWhileTheSecondMirrorsTheHistory) {
  DoubleLinear model;
  for (const char* app : {"b", "a", "b"}) model.Update(Launched(app, 8, 0));
  Linear expected;
  for (const char* app : {"b", "a", "b"}) expected.Update(Launched(app, 8, 0));
  EXPECT_EQ(Stage(model, "firstLinear"), WriteJson(expected.SerializeJson()));
  EXPECT_EQ(Stage(model, "secondLinear"),
            R"({"last":[{"lastApp":0},{"lastApp":1},{"lastApp":0}],"statCounter":null,)"
            R"("strToId":[{"app":"a","id":1},{"app":"b","id":0}],"timeBuckets":null,"transitions":null})");
}

TEST(DoubleLinearTest, NoScoresUntilTheFirstStageHasTenLaunches) {
  DoubleLinear model;
  for (int i = 0; i < 9; ++i) model.Update(Launched("a" + std::to_string(i)));
  EXPECT_TRUE(model.Predict().empty());
  for (int i = 0; i < 9; ++i) EXPECT_EQ(model.GetPrediction("a" + std::to_string(i)), 0.0);
  model.Update(Launched("a9"));
  EXPECT_EQ(model.Predict().size(), 10u);
}

TEST(DoubleLinearTest, PoolsTheStagesBitForBitInTheFirstPhase) {
  // Before the first stage is full, the second holds only the history: it adds
  // 1/1 to each previous-launch indicator and one to every time denominator.
  std::mt19937 random(11);
  DoubleLinear model;
  ShadowDoubleLinear shadow;
  ReferenceLinear reference;
  int minute = 0;
  for (int step = 0; step < 600; ++step) {
    minute += 1 + static_cast<int>(random() % 40);
    const std::tm now = At((minute / 60) % 24, minute % 60);
    model.UpdateTime(now);
    shadow.UpdateTime(now);
    const Scores scores = model.Predict();
    ASSERT_TRUE(SameBits(shadow.Predict(), scores)) << step;
    ASSERT_TRUE(SameBits(reference.Predict(TimeSlot(now.tm_hour, now.tm_min), true), scores)) << step;
    // Another time between two launches changes nothing.
    model.UpdateTime(At(now.tm_hour + 6, 0));
    for (const auto& [app, score] : scores) ASSERT_EQ(model.GetPrediction(app), score);
    ASSERT_TRUE(SameBits(scores, model.Predict()));
    model.UpdateTime(now);
    const int app = random() % 3 == 0 ? static_cast<int>(random() % 30) : static_cast<int>(random() % 6);
    const Updater launch = Launched("app" + std::to_string(app), now.tm_hour, now.tm_min);
    model.Update(launch);
    shadow.Update(launch);
    reference.Launch(launch.app, launch.hour, launch.minute);
  }
}

TEST(DoubleLinearTest, RecomputesWithTheLastTimeNotTheLaunchTime) {
  DoubleLinear model;
  ReferenceLinear reference;
  for (int i = 0; i < 12; ++i) {
    model.Update(Launched("a" + std::to_string(i % 4), 8, i));
    reference.Launch("a" + std::to_string(i % 4), 8, i);
  }
  model.UpdateTime(At(8, 30));
  model.Update(Launched("a1", 20, 0));
  reference.Launch("a1", 20, 0);
  EXPECT_TRUE(SameBits(reference.Predict(TimeSlot(8, 30), true), model.Predict()));
}

TEST(DoubleLinearTest, TurnsOverWhenBothStagesAreFull) {
  DoubleLinear model;
  ShadowDoubleLinear shadow;
  const auto both = [&](const Updater& launch) {
    model.Update(launch);
    shadow.Update(launch);
  };
  const auto check = [&](const char* where) {
    const Json::Value document = model.SerializeJson();
    EXPECT_EQ(WriteJson(document["firstLinear"]), WriteJson(shadow.first->SerializeJson())) << where;
    EXPECT_EQ(WriteJson(document["secondLinear"]), WriteJson(shadow.second->SerializeJson())) << where;
    EXPECT_TRUE(SameBits(shadow.Predict(), model.Predict())) << where;
  };
  model.UpdateTime(At(7, 45));
  shadow.UpdateTime(At(7, 45));
  for (int i = 0; i <= 5000; ++i) both(Launched("f" + std::to_string(i), i / 60 % 24, i % 60));
  const auto counted = [&](const char* stage) {
    const Json::Value counts = model.SerializeJson()[stage]["statCounter"];
    return counts.isNull() ? 0u : counts.size();
  };
  EXPECT_EQ(counted("firstLinear"), 5001u);
  EXPECT_EQ(counted("secondLinear"), 0u);
  check("first stage full");

  // The second stage learns; an application known only to its counter is scored.
  both(Launched("s0", 6, 0));
  const Scores early = model.Predict();
  EXPECT_EQ(early.count("s0"), 1u);
  EXPECT_EQ(counted("firstLinear"), 5001u);
  EXPECT_EQ(counted("secondLinear"), 1u);
  check("second stage learning");

  for (int i = 1; i <= 5000; ++i) both(Launched("s" + std::to_string(i), i / 60 % 24, i % 60));
  EXPECT_EQ(counted("secondLinear"), 5001u);
  check("both full");

  // Turnover: the stage that learned "f" is discarded; the new second stage
  // starts from last time and the survivor's history reversed, then learns.
  const Json::Value survivor = model.SerializeJson()["secondLinear"];
  model.UpdateTime(At(13, 7));
  shadow.UpdateTime(At(13, 7));
  both(Launched("t", 13, 7));
  Linear expectedFirst;
  ASSERT_TRUE(expectedFirst.DeserializeJson(survivor));
  expectedFirst.UpdateLastLaunches("t");
  const Json::Value turned = model.SerializeJson();
  EXPECT_EQ(WriteJson(turned["firstLinear"]), WriteJson(expectedFirst.SerializeJson()));
  Linear expectedSecond;
  for (int i = 5000; i >= 4991; --i) expectedSecond.UpdateLastLaunches("s" + std::to_string(i));
  expectedSecond.Update(Launched("t", 13, 7));
  EXPECT_EQ(WriteJson(turned["secondLinear"]), WriteJson(expectedSecond.SerializeJson()));
  Names reversed;
  for (int i = 4991; i <= 4999; ++i) reversed.push_back("s" + std::to_string(i));
  reversed.insert(reversed.begin(), "t");
  EXPECT_EQ(expectedSecond.GetLastLaunches(), reversed);
  const Scores after = model.Predict();
  EXPECT_EQ(after.count("f0"), 0u);
  EXPECT_EQ(after.count("t"), 1u);
  EXPECT_EQ(after.size(), 5002u);
  check("after turnover");

  // A round trip of the turned-over model predicts the same.
  DoubleLinear loaded;
  ASSERT_TRUE(loaded.DeserializeJson(model.SerializeJson()));
  loaded.UpdateTime(At(13, 7));
  EXPECT_TRUE(SameBits(after, loaded.Predict()));
  both(Launched("s17", 13, 9));
  loaded.Update(Launched("s17", 13, 9));
  EXPECT_TRUE(SameBits(model.Predict(), loaded.Predict()));
  check("after one more launch");
}

const char* kStage = R"({
  "last": [{"lastApp": 1}, {"lastApp": 0}],
  "strToId": [{"app": "a", "id": 0}, {"app": "b", "id": 1}],
  "transitions": [{"step": 0, "appFrom": 0, "appTo": 1, "cnt": 2}],
  "timeBuckets": [{"bucket": 96, "app": 0, "cnt": 1}],
  "statCounter": [{"app": 0, "cnt": 1}, {"app": 1, "cnt": 2}]
})";

Json::Value Document(const char* first, const char* second) {
  Json::Value document(Json::objectValue);
  document["firstLinear"] = ParseJson(first);
  document["secondLinear"] = ParseJson(second);
  return document;
}

TEST(DoubleLinearTest, ReaderRejectsABrokenFirstStage) {
  const std::string broken = R"({"last": null, "strToId": [], "transitions": [], "timeBuckets": [], "statCounter": []})";
  for (const char* value : {"null", "[]", "{}", "[1]", "3"}) {
    DoubleLinear model;
    EXPECT_FALSE(model.DeserializeJson(ParseJson(value))) << value;
  }
  for (const char* first : {"null", "{}", "[]", broken.c_str(), R"({"last": [{"lastApp": 0}]})"}) {
    DoubleLinear model;
    EXPECT_FALSE(model.DeserializeJson(Document(first, kStage))) << first;
  }
  Json::Value withoutSecond(Json::objectValue);
  withoutSecond["firstLinear"] = ParseJson(kStage);
  DoubleLinear model;
  EXPECT_FALSE(model.DeserializeJson(withoutSecond));
  Json::Value withoutFirst(Json::objectValue);
  withoutFirst["secondLinear"] = ParseJson(kStage);
  EXPECT_FALSE(model.DeserializeJson(withoutFirst));
}

TEST(DoubleLinearTest, ReaderReplacesAnEmptyOrBrokenSecondStage) {
  for (const char* second : {"null", "{}", "[]", R"({"last": []})", "7"}) {
    DoubleLinear model;
    for (int i = 0; i < 12; ++i) model.Update(Launched("old" + std::to_string(i)));
    ASSERT_TRUE(model.DeserializeJson(Document(kStage, second))) << second;
    Linear first;
    ASSERT_TRUE(first.DeserializeJson(ParseJson(kStage)));
    EXPECT_EQ(Stage(model, "firstLinear"), WriteJson(first.SerializeJson()));
    // A fresh stage seeded with the first stage's history, reversed.
    EXPECT_EQ(Stage(model, "secondLinear"),
              R"({"last":[{"lastApp":1},{"lastApp":0}],"statCounter":null,)"
              R"("strToId":[{"app":"a","id":1},{"app":"b","id":0}],"timeBuckets":null,"transitions":null})")
        << second;  // b then a pushed: b gets id 0, a id 1, and a ends up most recent
  }
  DoubleLinear model;
  ASSERT_TRUE(model.DeserializeJson(Document(kStage, kStage)));
  EXPECT_EQ(Stage(model, "secondLinear"), Stage(model, "firstLinear"));
}

// Builds a DoubleLinear document whose two stages both load: each a Linear
// trained on its own launches.
Json::Value TwoTrainedStages() {
  Linear first;
  Linear second;
  for (int i = 0; i < 14; ++i) first.Update(Launched("b" + std::to_string(i % 3), 9, i));
  for (int i = 0; i < 11; ++i) second.Update(Launched("c" + std::to_string(i % 4), 10, i));
  Json::Value document(Json::objectValue);
  document["firstLinear"] = first.SerializeJson();
  document["secondLinear"] = second.SerializeJson();
  return document;
}

TEST(DoubleLinearTest, LoadingKeepsTheCachedPredictionUntilTheNextLaunch) {
  DoubleLinear model;
  for (int i = 0; i < 12; ++i) model.Update(Launched("a" + std::to_string(i % 5)));
  const Scores cached = model.Predict();
  ASSERT_FALSE(cached.empty());
  const Json::Value document = TwoTrainedStages();
  ASSERT_TRUE(model.DeserializeJson(document));
  EXPECT_TRUE(SameBits(cached, model.Predict()));  // valid until the next launch
  EXPECT_EQ(WriteJson(model.SerializeJson()), WriteJson(document));

  DoubleLinear fresh;
  ASSERT_TRUE(fresh.DeserializeJson(document));
  for (DoubleLinear* each : {&model, &fresh}) {
    each->Update(Launched("b1", 9, 30));
    each->UpdateTime(At(9, 40));
  }
  const Scores scores = fresh.Predict();
  EXPECT_EQ(scores.count("c3"), 1u);  // known to the second stage's counter only
  EXPECT_TRUE(SameBits(scores, model.Predict()));
}

TEST(DoubleLinearTest, FirstPhaseDocumentReloadsWithAReseededSecondStage) {
  // Before the first stage is full the second stage only mirrors the history:
  // its count tables are written as null, which its reader rejects, so a reload
  // builds a fresh second stage from the first stage's history, reversed
  // (Parts 2.3 and 2.4). The reloaded model therefore need not predict like
  // the saved one; it predicts like that reseeded pair.
  DoubleLinear model;
  for (int i = 0; i < 15; ++i) model.Update(Launched("a" + std::to_string(i % 6), 9, i));
  const Json::Value document = model.SerializeJson();
  EXPECT_TRUE(document["secondLinear"]["statCounter"].isNull());

  DoubleLinear loaded;
  ASSERT_TRUE(loaded.DeserializeJson(document));
  EXPECT_EQ(Stage(loaded, "firstLinear"), WriteJson(document["firstLinear"]));
  Linear first;
  ASSERT_TRUE(first.DeserializeJson(document["firstLinear"]));
  Linear reseeded;
  for (const std::string& name : first.GetLastLaunches()) reseeded.UpdateLastLaunches(name);
  EXPECT_EQ(Stage(loaded, "secondLinear"), WriteJson(reseeded.SerializeJson()));
  EXPECT_NE(Stage(loaded, "secondLinear"), WriteJson(document["secondLinear"]));
}

TEST(DoubleLinearTest, AFullSecondStageBesideANonFullFirstLearnsNothing) {
  Json::Value second = ParseJson(kStage);
  second["strToId"] = Json::Value();
  second["statCounter"] = Json::Value();
  for (int id = 0; id <= 5000; ++id) {
    Json::Value name(Json::objectValue);
    name["app"] = "x" + std::to_string(id);
    name["id"] = id;
    second["strToId"].append(name);
    Json::Value count(Json::objectValue);
    count["app"] = id;
    count["cnt"] = 1;
    second["statCounter"].append(count);
  }
  Json::Value document(Json::objectValue);
  document["firstLinear"] = ParseJson(kStage);
  document["secondLinear"] = second;
  DoubleLinear model;
  ASSERT_TRUE(model.DeserializeJson(document));
  const std::string before = WriteJson(model.SerializeJson());
  model.Update(Launched("new"));
  EXPECT_EQ(WriteJson(model.SerializeJson()), before);
}

TEST(DoubleLinearTest, ZeroDenominatorSumsContributeNothing) {
  // A transition row whose counts cancel (-1 + 1) in the only stage that has
  // one, and launch counts of zero.
  Json::Value first = ParseJson(R"({
    "strToId": [{"app": "a", "id": 0}, {"app": "b", "id": 1}],
    "transitions": [{"step": 0, "appFrom": 0, "appTo": 0, "cnt": 4294967295},
                    {"step": 0, "appFrom": 0, "appTo": 1, "cnt": 1}],
    "timeBuckets": [{"bucket": 0, "app": 0, "cnt": 0}],
    "statCounter": [{"app": 0, "cnt": 0}, {"app": 1, "cnt": 0}]
  })");
  for (int i = 0; i < 10; ++i) first["last"].append(ParseJson(R"({"lastApp": 0})"));
  Json::Value document(Json::objectValue);
  document["firstLinear"] = first;
  document["secondLinear"] = Json::Value();
  DoubleLinear model;
  ASSERT_TRUE(model.DeserializeJson(document));
  double a = 0.0;
  a += 0.0 * W("counter");
  a += 0.0 * W("transition0");
  for (int k = 0; k < 10; ++k) a += 1.0 * W("prev" + std::to_string(k));
  EXPECT_TRUE(SameBits((Scores{{"a", a}, {"b", 0.0}}), model.Predict()));
}

// ------------------------------------------------------- through the facade

TEST(LinearFamilyFacadeTest, FactoryBuildsTheLinearClasses) {
  Nuvik nuvik(Names{"linear", "double_linear"});
  EXPECT_EQ(nuvik.PrintNuvikInfo(), "NUVIK library 1.3 [ predictors list: linear, double_linear ]");
  Nuvik mixed(Names{"linear", "nonsense"});
  EXPECT_EQ(mixed.PrintNuvikInfo(), "NUVIK library 1.3 [ predictors list: linear, stat_counter ]");
  Nuvik cleared(Names{"double_linear", "linear"});
  for (int i = 0; i < 15; ++i) cleared.Update("a" + std::to_string(i % 4), At(9, i));
  cleared.Clear();
  EXPECT_EQ(cleared.PrintNuvikInfo(), "NUVIK library 1.3 [ predictors list: double_linear, linear ]");
  std::stringstream document;
  document << cleared;
  // Cleared predictors learned nothing: their null tables make the document unreadable.
  Nuvik reader;
  document >> reader;
  EXPECT_TRUE(document.bad());
}

TEST(LinearFamilyFacadeTest, DocumentWithABrokenDoubleLinearIsRejected) {
  Nuvik nuvik(Names{"linear", "double_linear"});
  for (int i = 0; i < 30; ++i) nuvik.Update("a" + std::to_string(i % 7), At(9, i));
  std::stringstream saved;
  saved << nuvik;
  Json::Value document = ParseJson(saved.str());
  document["models"][1]["model"]["firstLinear"]["last"] = Json::Value();
  std::stringstream broken(WriteJson(document));
  Nuvik reader(Names{"stat_counter"});
  broken >> reader;
  EXPECT_TRUE(broken.bad());
  EXPECT_EQ(reader.PrintNuvikInfo(), "NUVIK library 1.3 [ predictors list: stat_counter ]");

  std::stringstream good(saved.str());
  good >> reader;
  ASSERT_FALSE(good.fail());
  EXPECT_EQ(reader.PrintNuvikInfo(), "NUVIK library 1.3 [ predictors list: linear, double_linear ]");
}

// What the reader builds from a DoubleLinear sub-document: the first
// stage as saved; the second as saved when it loads, else a fresh stage fed
// the first stage's history (most recent first); last time zero.
std::unique_ptr<ShadowDoubleLinear> LoadPathTwin(const Json::Value& document) {
  auto twin = std::make_unique<ShadowDoubleLinear>();
  EXPECT_TRUE(twin->first->DeserializeJson(document["firstLinear"]));
  if (document["secondLinear"].empty() || !twin->second->DeserializeJson(document["secondLinear"])) {
    twin->second = std::make_unique<Linear>();
    for (const std::string& name : twin->first->GetLastLaunches()) twin->second->UpdateLastLaunches(name);
  }
  return twin;
}

double Blend(const Scores& slot0, const Scores& slot1, const std::string& app) {
  const auto first = slot0.find(app);
  const auto second = slot1.find(app);
  return (second == slot1.end() ? 0.0 : second->second) * 0.9 + (first == slot0.end() ? 0.0 : first->second) * 0.1;
}

// A long random stream through a facade with a "linear" and a "double_linear"
// slot. Stand-alone twins receive exactly the calls the facade makes and must
// explain its weights bit for bit. At checkpoints each slot's sub-document is
// loaded into a fresh predictor, which must then predict bit for bit like:
// - for "linear", the original;
// - for "double_linear", the pair that its reader builds (LoadPathTwin). This
//   stream never fills a stage (that takes 5001 applications), so the saved
//   second stage has null count tables, is rejected and is reseeded; the
//   exact round trip of a model whose second stage has learned is covered by
//   TurnsOverWhenBothStagesAreFull.
// A second facade loads the whole document at the first checkpoint and must
// blend the reloaded predictors' scores.
TEST(LinearFamilyFacadeTest, ReloadedSubDocumentsPredictBitForBit) {
  Nuvik nuvik(Names{"linear", "double_linear"});
  Linear linearTwin;
  DoubleLinear doubleTwin;
  struct Reloaded {
    std::unique_ptr<Linear> linear;
    std::unique_ptr<DoubleLinear> doubleLinear;
    std::unique_ptr<ShadowDoubleLinear> expectedDouble;
    Scores linearScores;
    Scores doubleScores;
  };
  std::vector<Reloaded> reloaded;
  std::unique_ptr<Nuvik> facadeCopy;
  std::mt19937 random(2024);
  int minute = 0;
  bool anyKnown = false;
  for (int step = 0; step < 3000; ++step) {
    minute += 1 + static_cast<int>(random() % 45);
    const std::tm now = At((minute / 60) % 24, minute % 60);
    const int id = random() % 4 == 0 ? static_cast<int>(random() % 60)
                                     : static_cast<int>((static_cast<unsigned>(step) * 7 + random() % 3) % 12);
    const std::string app = "app" + std::to_string(id);

    // What the facades ask while preparing their lists (only once an
    // application is known).
    Scores linearScores;
    Scores doubleScores;
    if (anyKnown) {
      linearTwin.UpdateTime(now);
      doubleTwin.UpdateTime(now);
      linearScores = linearTwin.Predict();
      doubleScores = doubleTwin.Predict();
      for (Reloaded& copy : reloaded) {
        copy.linear->UpdateTime(now);
        copy.doubleLinear->UpdateTime(now);
        copy.expectedDouble->UpdateTime(now);
        copy.linearScores = copy.linear->Predict();
        copy.doubleScores = copy.doubleLinear->Predict();
        ASSERT_TRUE(SameBits(linearScores, copy.linearScores)) << step;
        ASSERT_TRUE(SameBits(copy.expectedDouble->Predict(), copy.doubleScores)) << step;
      }
    }
    const std::map<std::string, double> known = nuvik.GetAllWeights();
    const std::map<std::string, double> knownToCopy = facadeCopy ? facadeCopy->GetAllWeights() : Scores{};

    nuvik.Update(app, now);
    if (facadeCopy) facadeCopy->Update(app, now);
    const Updater launch{"", app, now.tm_hour, now.tm_min};
    linearTwin.Update(launch);
    doubleTwin.Update(launch);
    for (Reloaded& copy : reloaded) {
      copy.linear->Update(launch);
      copy.doubleLinear->Update(launch);
      copy.expectedDouble->Update(launch);
    }

    // The weights each facade prepared for this launch: 0.9 × slot 1 + 0.1 × slot 0.
    for (const auto& entry : known) {
      const double expected = Blend(linearScores, doubleScores, entry.first);
      const double actual = nuvik.GetWeightSingle(entry.first);
      ASSERT_EQ(std::memcmp(&expected, &actual, sizeof(double)), 0) << step << " " << entry.first;
    }
    for (const auto& entry : knownToCopy) {
      const double expected = Blend(reloaded.front().linearScores, reloaded.front().doubleScores, entry.first);
      const double actual = facadeCopy->GetWeightSingle(entry.first);
      ASSERT_EQ(std::memcmp(&expected, &actual, sizeof(double)), 0) << step << " " << entry.first;
    }
    anyKnown = true;

    if (step % 750 == 749) {
      std::stringstream saved;
      saved << nuvik;
      const Json::Value document = ParseJson(saved.str());
      const Json::Value& models = document["models"];
      ASSERT_EQ(models.size(), 2u);
      ASSERT_EQ(models[0]["name"].asString(), "linear");
      ASSERT_EQ(models[1]["name"].asString(), "double_linear");
      ASSERT_EQ(WriteJson(models[0]["model"]), WriteJson(linearTwin.SerializeJson()));
      ASSERT_EQ(WriteJson(models[1]["model"]), WriteJson(doubleTwin.SerializeJson()));
      Reloaded copy;
      copy.linear = std::make_unique<Linear>();
      ASSERT_TRUE(copy.linear->DeserializeJson(models[0]["model"]));
      ASSERT_EQ(WriteJson(copy.linear->SerializeJson()), WriteJson(models[0]["model"]));
      copy.doubleLinear = std::make_unique<DoubleLinear>();
      ASSERT_TRUE(copy.doubleLinear->DeserializeJson(models[1]["model"]));
      ASSERT_EQ(WriteJson(copy.doubleLinear->SerializeJson()["firstLinear"]),
                WriteJson(models[1]["model"]["firstLinear"]));
      copy.expectedDouble = LoadPathTwin(models[1]["model"]);
      reloaded.push_back(std::move(copy));
      if (!facadeCopy) {
        facadeCopy = std::make_unique<Nuvik>(Names{"stat_counter"});
        saved.seekg(0);
        saved >> *facadeCopy;
        ASSERT_FALSE(saved.fail());
        ASSERT_EQ(facadeCopy->PrintNuvikInfo(), nuvik.PrintNuvikInfo());
      }
    }
  }
  EXPECT_EQ(reloaded.size(), 4u);
  EXPECT_FALSE(nuvik.GetNext().empty());
}

}  // namespace
}  // namespace NuvikPrediction
