#include "MarkovChain3.h"

#include <cmath>
#include <deque>
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
using Scores = std::map<std::string, double>;

void Launch(MarkovChain3& markov, const std::string& app) { markov.Update(Updater{"", app, 8, 0}); }

void Launch(MarkovChain3& markov, std::initializer_list<const char*> apps) {
  for (const char* app : apps) Launch(markov, app);
}

std::string Member(const MarkovChain3& markov, const char* key) { return WriteJson(markov.SerializeJson()[key]); }

// The dense reading of the rules, every look-up inserting, for comparison.
class LiteralMarkov {
 public:
  void Update(const std::string& app) {
    Dict(app);
    if (last_.size() == 4) {
      for (int k = 0; k < 4; ++k) {
        const std::string& from = last_[3 - k];
        Dict(from);
        ++chain_[k][strToId_[from]][strToId_[app]];
        ++sums_[k][strToId_[from]];
      }
    }
    last_.push_back(app);
    if (last_.size() == 5) last_.pop_front();
  }

  Scores Predict() {
    Scores result;
    if (last_.size() < 4) return result;
    for (const std::string& app : last_) Dict(app);
    const int n = static_cast<int>(idToStr_.size());
    std::vector<double> scores(n, 0.0);
    double total = 0.0;
    for (int k = 0; k < 4; ++k) {
      const int i = strToId_[last_[3 - k]];
      const int sum = sums_[k][i];
      if (sum == 0) continue;
      for (int j = 0; j < static_cast<int>(strToId_.size()); ++j) {
        const double term = (static_cast<double>(chain_[k][i][j]) / static_cast<double>(sum)) / (k + 1.0);
        scores[j] += term;
        total += term;
      }
    }
    if (total == 0.0 && n > 0) {
      for (int a = 0; a < n; ++a) {
        for (int k = 0; k < 4; ++k) {
          for (int b = 0; b < n; ++b) {
            const double v = chain_[k][b][a];
            total += v;
            scores[a] += v;
          }
        }
      }
    }
    if (total != 0.0) {
      for (double& score : scores) score /= total;
    }
    for (int i = 0; i < n; ++i) result[idToStr_[i]] = scores[i];
    return result;
  }

 private:
  void Dict(const std::string& app) {
    if (strToId_.count(app)) return;
    const int id = static_cast<int>(strToId_.size());
    strToId_[app] = id;
    idToStr_[id] = app;
  }

  std::map<int, std::map<int, int>> chain_[4];
  std::map<int, int> sums_[4];
  std::map<std::string, int> strToId_;
  std::map<int, std::string> idToStr_;
  std::deque<std::string> last_;
};

TEST(MarkovChain3Test, CountsFromTheFifthLaunchAndFallsBackToTransitionsInto) {
  MarkovChain3 markov;
  EXPECT_EQ(markov.name, "markov_chain3_invalidate");
  EXPECT_EQ(WriteJson(markov.SerializeJson()), R"({"last":null,"markovChain":null,"strToId":null})");
  EXPECT_FALSE(markov.DeserializeJson(markov.SerializeJson()));

  Launch(markov, {"app1", "app2", "app3"});
  EXPECT_TRUE(markov.Predict().empty());
  Launch(markov, "app4");
  EXPECT_EQ(markov.Predict(), (Scores{{"app1", 0.0}, {"app2", 0.0}, {"app3", 0.0}, {"app4", 0.0}}));
  EXPECT_EQ(Member(markov, "markovChain"), "null");

  // No history entry has a row at its own step: every score comes from the fallback.
  Launch(markov, "app5");
  EXPECT_EQ(markov.Predict(),
            (Scores{{"app1", 0.0}, {"app2", 0.0}, {"app3", 0.0}, {"app4", 0.0}, {"app5", 1.0}}));
  EXPECT_EQ(Member(markov, "markovChain"),
            R"([{"appFrom":3,"appTo":4,"step":0,"value":1},{"appFrom":2,"appTo":4,"step":1,"value":1},)"
            R"({"appFrom":1,"appTo":4,"step":2,"value":1},{"appFrom":0,"appTo":4,"step":3,"value":1}])");
  EXPECT_EQ(markov.GetPrediction("app5"), 1.0);
  EXPECT_EQ(markov.GetPrediction("never"), 0.0);
  EXPECT_EQ(markov.Predict().count("never"), 0u);

  Launch(markov, "app6");
  EXPECT_EQ(Member(markov, "last"),
            R"([{"lastApp":"app3"},{"lastApp":"app4"},{"lastApp":"app5"},{"lastApp":"app6"}])");
  EXPECT_EQ(Member(markov, "strToId"),
            R"([{"app":"app1","id":0},{"app":"app2","id":1},{"app":"app3","id":2},)"
            R"({"app":"app4","id":3},{"app":"app5","id":4},{"app":"app6","id":5}])");
}

TEST(MarkovChain3Test, WeighsStepProbabilitiesByOneOverStep) {
  MarkovChain3 markov;
  Launch(markov, {"a", "b", "a", "b", "a", "c", "b"});
  // History b a c b: b -> a at step 0 (1 of 1), nothing from c at step 1,
  // a -> c at step 2 (1 of 1), b -> c at step 3 (1 of 1).
  const double total7 = 1.0 + 1.0 / 3.0 + 1.0 / 4.0;
  EXPECT_EQ(markov.Predict(), (Scores{{"a", 1.0 / total7}, {"b", 0.0}, {"c", (1.0 / 3.0 + 1.0 / 4.0) / total7}}));

  // History a c b a: a -> c at step 0, b -> c at step 1, nothing from c at
  // step 2, and a -> a, a -> b at step 3 (1 of 2 each).
  Launch(markov, "a");
  const double quarterOfHalf = (1.0 / 2.0) / 4.0;
  const double total8 = 1.0 + 0.5 + quarterOfHalf + quarterOfHalf;
  EXPECT_EQ(total8, 1.75);
  EXPECT_EQ(markov.Predict(),
            (Scores{{"a", quarterOfHalf / total8}, {"b", quarterOfHalf / total8}, {"c", 1.5 / total8}}));

  // A repeat is a transition to itself.
  MarkovChain3 repeats;
  Launch(repeats, {"x", "x", "x", "x", "x"});
  EXPECT_EQ(Member(repeats, "markovChain"),
            R"([{"appFrom":0,"appTo":0,"step":0,"value":1},{"appFrom":0,"appTo":0,"step":1,"value":1},)"
            R"({"appFrom":0,"appTo":0,"step":2,"value":1},{"appFrom":0,"appTo":0,"step":3,"value":1}])");
  EXPECT_EQ(repeats.Predict(), (Scores{{"x", 1.0}}));
}

TEST(MarkovChain3Test, CachedPredictionOutlivesTimeChangesAndLoadsUntilTheNextLaunch) {
  MarkovChain3 markov;
  Launch(markov, {"a", "b", "c", "d", "e"});
  const Scores before = markov.Predict();
  ASSERT_EQ(before.at("e"), 1.0);

  MarkovChain3 other;
  Launch(other, {"p", "q", "r", "s", "t"});
  ASSERT_TRUE(markov.DeserializeJson(other.SerializeJson()));
  markov.UpdateTime(At(20, 0));
  EXPECT_EQ(markov.Predict(), before);
  EXPECT_EQ(markov.GetPrediction("p"), 0.0);

  Launch(markov, "t");
  EXPECT_EQ(markov.Predict().count("e"), 0u);
  EXPECT_GT(markov.GetPrediction("t"), 0.0);
}

TEST(MarkovChain3Test, SparseIdsAfterALoad) {
  const char* document = R"({
    "last": [{"lastApp": "a"}, {"lastApp": "c"}, {"lastApp": "a"}, {"lastApp": "c"}],
    "markovChain": [{"step": 0, "appFrom": 2, "appTo": 0, "value": 1}],
    "strToId": [{"app": "a", "id": 0}, {"app": "c", "id": 2}]})";

  // An id without a name is scored under the empty name, which then joins
  // the ids, and "c" (id 2) is beyond the two ids counted.
  MarkovChain3 scored;
  ASSERT_TRUE(scored.DeserializeJson(ParseJson(document)));
  EXPECT_EQ(scored.Predict(), (Scores{{"", 0.0}, {"a", 1.0}}));

  // A new application takes id 2, the number of names, and with it id 2's
  // name; "c" keeps id 2 among the names.
  MarkovChain3 markov;
  ASSERT_TRUE(markov.DeserializeJson(ParseJson(document)));
  Launch(markov, "n");
  EXPECT_EQ(Member(markov, "strToId"), R"([{"app":"a","id":0},{"app":"c","id":2},{"app":"n","id":2}])");
  EXPECT_EQ(Member(markov, "markovChain"),
            R"([{"appFrom":2,"appTo":0,"step":0,"value":1},{"appFrom":2,"appTo":2,"step":0,"value":1},)"
            R"({"appFrom":0,"appTo":2,"step":1,"value":1},{"appFrom":2,"appTo":2,"step":2,"value":1},)"
            R"({"appFrom":0,"appTo":2,"step":3,"value":1}])");
  // Three names but two ids: the term for id 2 is skipped, half of the row is
  // left out and "a" takes all.
  EXPECT_EQ(markov.Predict(), (Scores{{"", 0.0}, {"a", 1.0}}));
  // Now three ids. History a c n a: no row for a at step 0; n and c share
  // id 2, whose rows are 2 -> 0 at step 1 and 2 -> 2 at step 2; 0 -> 2 at step 3.
  Launch(markov, "a");
  EXPECT_EQ(Member(markov, "last"),
            R"([{"lastApp":"a"},{"lastApp":"c"},{"lastApp":"n"},{"lastApp":"a"}])");
  const double total = 1.0 / 2.0 + 1.0 / 3.0 + 1.0 / 4.0;
  EXPECT_EQ(markov.Predict(), (Scores{{"", 0.0}, {"a", 0.5 / total}, {"n", (1.0 / 3.0 + 1.0 / 4.0) / total}}));
}

TEST(MarkovChain3Test, ReaderSkipsMalformedElementsAndKeepsLaterAssignments) {
  MarkovChain3 markov;
  ASSERT_TRUE(markov.DeserializeJson(ParseJson(R"({
    "last": [{"lastApp": "a"}, {"lastApp": 7}, 5, {"lastApp": "b"}, {"lastApp": "x"}, {"lastApp": "y"}],
    "markovChain": [
      {"step": 4, "appFrom": 9, "appTo": 9, "value": 1},
      {"step": 0, "appFrom": 9, "appTo": 9, "value": 0},
      {"step": 0, "appFrom": 9, "appTo": 9, "value": -1},
      {"step": 0, "appFrom": 9, "value": 1},
      [1], 3, null, {},
      {"step": 1.0, "appFrom": 1, "appTo": 0, "value": 2},
      {"step": 1, "appFrom": 1, "appTo": 0, "value": 4294967301},
      {"step": 2, "appFrom": 0, "appTo": 1, "value": 3},
      {"step": 2, "appFrom": 0, "appTo": 1, "value": 4294967296},
      {"step": 3, "appFrom": 0, "appTo": 0, "value": 18446744073709551615},
      {"step": 0, "appFrom": 0, "appTo": 1, "value": 1}],
    "strToId": [{"app": "a", "id": 0}, {"app": "b", "id": 1}, {"app": "b", "id": 5}, {"app": 3, "id": 2},
                {"app": "z", "id": -1}, 4]})")));
  // Only the first four places count, malformed ones included.
  EXPECT_EQ(Member(markov, "last"), R"([{"lastApp":"a"},{"lastApp":"b"}])");
  // Counts keep their low 32 bits; a later element replaces an earlier one,
  // and a count that ends up 0 is gone.
  EXPECT_EQ(Member(markov, "markovChain"),
            R"([{"appFrom":0,"appTo":1,"step":0,"value":1},{"appFrom":1,"appTo":0,"step":1,"value":5},)"
            R"({"appFrom":0,"appTo":0,"step":3,"value":18446744073709551615}])");
  // A repeated name takes the later id; both ids name it.
  EXPECT_EQ(Member(markov, "strToId"), R"([{"app":"a","id":0},{"app":"b","id":5}])");

  // A count of -1 wraps to 0 at the next transition and is no longer
  // written. History a b a a: b counts under its later id 5.
  Launch(markov, {"a", "a", "a"});
  EXPECT_EQ(Member(markov, "markovChain"),
            R"([{"appFrom":0,"appTo":0,"step":0,"value":1},{"appFrom":0,"appTo":1,"step":0,"value":1},)"
            R"({"appFrom":0,"appTo":0,"step":1,"value":1},{"appFrom":1,"appTo":0,"step":1,"value":5},)"
            R"({"appFrom":5,"appTo":0,"step":2,"value":1}])");
}

TEST(MarkovChain3Test, FailedLoadsKeepWhatTheEarlierStepsRead) {
  MarkovChain3 trained;
  Launch(trained, {"a", "b", "c", "d", "e"});
  const std::string saved = WriteJson(trained.SerializeJson());
  const char* newLast = R"("last": [{"lastApp": "q"}])";
  const char* newChain = R"("markovChain": [{"step": 0, "appFrom": 0, "appTo": 1, "value": 2}])";

  // A missing member or a bad "last": nothing changes.
  for (const std::string& rejected : {std::string(R"({"last": [{"lastApp": "q"}], "markovChain": 1})"),
                                      std::string(R"({"last": [], "markovChain": [1], "strToId": [1]})"),
                                      std::string(R"({"last": {"a": 1}, "markovChain": [1], "strToId": [1]})"),
                                      std::string("[1, 2, 3]"), std::string("{}")}) {
    EXPECT_FALSE(trained.DeserializeJson(ParseJson(rejected))) << rejected;
    EXPECT_EQ(WriteJson(trained.SerializeJson()), saved) << rejected;
  }
  // A bad "markovChain": only the history was replaced.
  MarkovChain3 atChain;
  Launch(atChain, {"a", "b", "c", "d", "e"});
  EXPECT_FALSE(
      atChain.DeserializeJson(ParseJson(std::string("{") + newLast + R"(, "markovChain": {}, "strToId": 1})")));
  EXPECT_EQ(Member(atChain, "last"), R"([{"lastApp":"q"}])");
  EXPECT_EQ(Member(atChain, "markovChain"), Member(trained, "markovChain"));
  EXPECT_EQ(Member(atChain, "strToId"), Member(trained, "strToId"));
  // A bad "strToId": history and transitions replaced, dictionary emptied.
  MarkovChain3 atDictionary;
  Launch(atDictionary, {"a", "b", "c", "d", "e"});
  EXPECT_FALSE(atDictionary.DeserializeJson(
      ParseJson(std::string("{") + newLast + ", " + newChain + R"(, "strToId": null})")));
  EXPECT_EQ(WriteJson(atDictionary.SerializeJson()),
            R"({"last":[{"lastApp":"q"}],"markovChain":[{"appFrom":0,"appTo":1,"step":0,"value":2}],"strToId":null})");

  // Rejected after reading everything: the row sums are not rebuilt. A fresh
  // predictor then has none, so only the fallback scores.
  const std::string document = R"({
    "last": [{"lastApp": "a"}, {"lastApp": "b"}, {"lastApp": "c"}, {"lastApp": "d"}],
    "markovChain": [{"step": 0, "appFrom": 3, "appTo": 0, "value": 1},
                    {"step": 0, "appFrom": 0, "appTo": 1, "value": 3} BAD],
    "strToId": [{"app": "a", "id": 0}, {"app": "b", "id": 1}, {"app": "c", "id": 2}, {"app": "d", "id": DUP}]})";
  const auto with = [&document](const std::string& bad, const std::string& dup) {
    std::string text = document;
    text.replace(text.find("BAD"), 3, bad);
    text.replace(text.find("DUP"), 3, dup);
    return ParseJson(text);
  };
  MarkovChain3 loaded;
  ASSERT_TRUE(loaded.DeserializeJson(with("", "3")));
  EXPECT_EQ(loaded.Predict(), (Scores{{"a", 1.0}, {"b", 0.0}, {"c", 0.0}, {"d", 0.0}}));
  MarkovChain3 unknownId;
  EXPECT_FALSE(unknownId.DeserializeJson(with(R"(, {"step": 1, "appFrom": 9, "appTo": 0, "value": 1})", "3")));
  EXPECT_EQ(unknownId.Predict(), (Scores{{"a", 0.25}, {"b", 0.75}, {"c", 0.0}, {"d", 0.0}}));
  // With d sharing id 2 there are three ids, so the row of id 3 is left out too.
  MarkovChain3 sharedId;
  EXPECT_FALSE(sharedId.DeserializeJson(with("", "2")));
  EXPECT_EQ(sharedId.Predict(), (Scores{{"a", 0.0}, {"b", 1.0}, {"d", 0.0}}));
}

TEST(MarkovChain3Test, MatchesTheDenseReadingAcrossASaveAndLoad) {
  std::mt19937 random(11);
  MarkovChain3 markov;
  LiteralMarkov literal;
  std::unique_ptr<MarkovChain3> loaded;
  int fresh = 0;
  int fallbacks = 0;
  for (int i = 0; i < 3000; ++i) {
    std::string app;
    if (i % 400 >= 390) {
      app = "new" + std::to_string(fresh++);  // bursts of new applications force the fallback
    } else {
      const double u = std::uniform_real_distribution<double>(0.0, 1.0)(random);
      app = "app" + std::to_string(static_cast<int>(30.0 * u * u));
    }
    markov.Update(Updater{"", app, 0, 0});
    literal.Update(app);
    if (loaded) loaded->Update(Updater{"", app, 0, 0});

    const Scores scores = markov.Predict();
    ASSERT_EQ(scores, literal.Predict()) << i;
    if (loaded) {
      ASSERT_EQ(loaded->Predict(), scores) << i;
    }
    double sum = 0.0;
    for (const auto& [name, score] : scores) {
      ASSERT_EQ(markov.GetPrediction(name), score);
      sum += score;
    }
    if (i >= 4) {  // from the fifth launch on, some count contributes
      ASSERT_NEAR(sum, 1.0, 1e-12) << i;
    }
    if (i % 400 == 393) {
      // Four new applications in a row: the fallback shares all i - 3
      // counted launches, four transitions each, and the newest has four.
      ASSERT_EQ(scores.at(app), 4.0 / (4.0 * (i - 3)));
      ++fallbacks;
    }

    if (i == 1500) {
      loaded = std::make_unique<MarkovChain3>();
      ASSERT_TRUE(loaded->DeserializeJson(ParseJson(WriteJson(markov.SerializeJson()))));
      ASSERT_EQ(WriteJson(loaded->SerializeJson()), WriteJson(markov.SerializeJson()));
    }
  }
  EXPECT_EQ(fallbacks, 7);
}

TEST(MarkovChain3Test, FacadeRanksLearnsAndSavesAMarkovSlot) {
  Nuvik nuvik(std::vector<std::string>{"stat_counter", "markov_chain3_invalidate"});
  for (const char* app : {"a", "b", "c", "d", "a", "b", "c", "d", "a", "b"}) nuvik.Update(app, At(9, 0));
  // Prepared at the last launch, after history b c d a: every step leads to b.
  EXPECT_EQ(nuvik.GetNext().front(), "b");
  EXPECT_EQ(nuvik.PrintNuvikInfo(), "NUVIK library 1.3 [ predictors list: stat_counter, markov_chain3_invalidate ]");

  std::stringstream document;
  document << nuvik;
  Nuvik copy;
  ASSERT_TRUE(document >> copy);
  for (const char* app : {"c", "d", "x", "a", "b", "c"}) {
    nuvik.Update(app, At(9, 0));
    copy.Update(app, At(9, 0));
    EXPECT_EQ(copy.GetAllWeights(), nuvik.GetAllWeights());
    EXPECT_EQ(copy.GetNext(), nuvik.GetNext());
  }
  std::stringstream again;
  again << copy;
  EXPECT_NE(again.str().find(R"("name":"markov_chain3_invalidate")"), std::string::npos);
}

}  // namespace
}  // namespace NuvikPrediction
