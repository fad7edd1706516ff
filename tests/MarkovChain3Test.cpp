// The Markov chain over the last four launches: step probabilities weighed
// by one over the step, the fallback to transitions into each application,
// sparse ids after a load, and a reader that skips malformed elements.
#include "MarkovChain3.h"

#include <deque>
#include <random>

#include <gtest/gtest.h>

#include "TestUtil.h"

namespace NuvikPrediction {
namespace {

using testing::Member;
using testing::ParseJson;
using testing::WriteJson;
using Scores = std::map<std::string, double>;

void Launch(MarkovChain3& markov, std::initializer_list<const char*> apps) {
  for (const char* app : apps) testing::Launch(markov, app);
}

// The dense reading of the rules, every look-up inserting, for a stream with dense ids.
struct LiteralMarkov {
  std::map<int, std::map<int, int>> chain[4];
  std::map<int, int> sums[4];
  std::map<std::string, int> ids;
  std::deque<std::string> last;

  void Update(const std::string& app) {
    ids.emplace(app, static_cast<int>(ids.size()));
    for (int k = 0; last.size() == 4 && k < 4; ++k) {
      ++chain[k][ids[last[3 - k]]][ids[app]];
      ++sums[k][ids[last[3 - k]]];
    }
    last.push_back(app);
    if (last.size() == 5) last.pop_front();
  }

  Scores Predict() {
    if (last.size() < 4) return {};
    const int n = static_cast<int>(ids.size());
    std::vector<double> scores(n, 0.0);
    double total = 0.0;
    for (int k = 0; k < 4; ++k) {
      const int i = ids[last[3 - k]];
      for (int j = 0; sums[k][i] != 0 && j < n; ++j) {
        const double term = (static_cast<double>(chain[k][i][j]) / sums[k][i]) / (k + 1.0);
        scores[j] += term;
        total += term;
      }
    }
    const bool fallback = total == 0.0;
    for (int a = 0; fallback && a < n; ++a) {
      for (int k = 0; k < 4; ++k) {
        for (int b = 0; b < n; ++b) {
          total += chain[k][b][a];
          scores[a] += chain[k][b][a];
        }
      }
    }
    Scores result;
    for (const auto& [app, id] : ids) result[app] = total == 0.0 ? 0.0 : scores[id] / total;
    return result;
  }
};

TEST(MarkovChain3Test, CountsFromTheFifthLaunchAndFallsBackToTransitionsInto) {
  MarkovChain3 markov;
  EXPECT_EQ(WriteJson(markov.SerializeJson()), R"({"last":null,"markovChain":null,"strToId":null})");
  EXPECT_FALSE(markov.DeserializeJson(markov.SerializeJson()));
  Launch(markov, {"app1", "app2", "app3"});
  EXPECT_TRUE(markov.Predict().empty());
  Launch(markov, {"app4"});
  EXPECT_EQ(markov.Predict(), (Scores{{"app1", 0.0}, {"app2", 0.0}, {"app3", 0.0}, {"app4", 0.0}}));
  // No history entry has a row at its own step: app5 takes all by the fallback.
  Launch(markov, {"app5"});
  EXPECT_EQ(markov.Predict(), (Scores{{"app1", 0.0}, {"app2", 0.0}, {"app3", 0.0}, {"app4", 0.0}, {"app5", 1.0}}));
  EXPECT_EQ(Member(markov, "markovChain"),
            R"([{"appFrom":3,"appTo":4,"step":0,"value":1},{"appFrom":2,"appTo":4,"step":1,"value":1},)"
            R"({"appFrom":1,"appTo":4,"step":2,"value":1},{"appFrom":0,"appTo":4,"step":3,"value":1}])");
  EXPECT_EQ(markov.GetPrediction("never"), 0.0);
  EXPECT_EQ(Member(markov, "strToId").find("never"), std::string::npos);

  // The cached prediction outlives time changes and loads, until the next launch.
  MarkovChain3 other;
  Launch(other, {"p", "q", "r", "s", "t"});
  ASSERT_TRUE(markov.DeserializeJson(other.SerializeJson()));
  markov.UpdateTime(testing::At(20, 0));
  EXPECT_EQ(markov.GetPrediction("app5"), 1.0);
  Launch(markov, {"app6"});
  EXPECT_EQ(markov.Predict().count("app5"), 0u);
  EXPECT_EQ(Member(markov, "last"), R"([{"lastApp":"r"},{"lastApp":"s"},{"lastApp":"t"},{"lastApp":"app6"}])");
}

TEST(MarkovChain3Test, WeighsStepProbabilitiesByOneOverStep) {
  MarkovChain3 markov;
  Launch(markov, {"a", "b", "a", "b", "a", "c", "b"});
  // History b a c b: b -> a at step 0, none from c at step 1, a -> c at 2, b -> c at 3.
  const double total7 = 1.0 + 1.0 / 3.0 + 1.0 / 4.0;
  EXPECT_EQ(markov.Predict(), (Scores{{"a", 1.0 / total7}, {"b", 0.0}, {"c", (1.0 / 3.0 + 1.0 / 4.0) / total7}}));
  // History a c b a: a -> c at 0, b -> c at 1, none from c at 2, a -> a and a -> b at 3 (half each).
  Launch(markov, {"a"});
  const double eighth = (1.0 / 2.0) / 4.0;
  EXPECT_EQ(markov.Predict(), (Scores{{"a", eighth / 1.75}, {"b", eighth / 1.75}, {"c", 1.5 / 1.75}}));

  MarkovChain3 repeats;  // a repeat is a transition to itself
  Launch(repeats, {"x", "x", "x", "x", "x"});
  EXPECT_EQ(repeats.Predict(), (Scores{{"x", 1.0}}));
}

TEST(MarkovChain3Test, SparseIdsAfterALoad) {
  MarkovChain3 markov;
  ASSERT_TRUE(markov.DeserializeJson(ParseJson(R"({"markovChain": [{"step": 0, "appFrom": 2, "appTo": 0, "value": 1}],
    "last": [{"lastApp": "a"}, {"lastApp": "c"}, {"lastApp": "a"}, {"lastApp": "c"}],
    "strToId": [{"app": "a", "id": 0}, {"app": "c", "id": 2}]})")));
  // Id 1 has no name and scores under "", which then counts as an id; at first "c" (id 2) is beyond the ids counted.
  EXPECT_EQ(markov.Predict(), (Scores{{"", 0.0}, {"a", 1.0}}));
  Launch(markov, {"a"});
  EXPECT_EQ(markov.Predict(), (Scores{{"", 0.0}, {"a", 1.0}, {"c", 0.0}}));
  // "n" takes id 2, the number of names, and with it id 2's name; "c" keeps id 2.
  Launch(markov, {"n"});
  EXPECT_EQ(Member(markov, "strToId"), R"([{"app":"a","id":0},{"app":"c","id":2},{"app":"n","id":2}])");
  EXPECT_EQ(markov.Predict(), (Scores{{"", 0.0}, {"a", 1.0}, {"n", 0.0}}));
}

TEST(MarkovChain3Test, ReaderSkipsMalformedElementsAndKeepsLaterAssignments) {
  MarkovChain3 markov;
  ASSERT_TRUE(markov.DeserializeJson(ParseJson(R"({
    "last": [{"lastApp": "a"}, {"lastApp": 7}, 5, {"lastApp": "b"}, {"lastApp": "x"}, {"lastApp": "y"}],
    "markovChain": [
      {"step": 4, "appFrom": 9, "appTo": 9, "value": 1}, {"step": 0, "appFrom": 9, "appTo": 9, "value": 0},
      {"step": 0, "appFrom": 9, "appTo": 9, "value": -1}, {"step": 0, "appFrom": 9, "value": 1}, 3,
      {"step": 1.0, "appFrom": 1, "appTo": 0, "value": 2}, {"step": 1, "appFrom": 1, "appTo": 0, "value": 4294967301},
      {"step": 3, "appFrom": 0, "appTo": 0, "value": 18446744073709551615}],
    "strToId": [{"app": "a", "id": 0}, {"app": "b", "id": 1}, {"app": "b", "id": 5}, {"app": 3, "id": 2}]})")));
  EXPECT_EQ(Member(markov, "last"), R"([{"lastApp":"a"},{"lastApp":"b"}])");
  EXPECT_EQ(Member(markov, "strToId"), R"([{"app":"a","id":0},{"app":"b","id":5}])");
  // History a b a a: counts keep their low 32 bits, so the -1 wraps to 0 and goes; b counts as id 5.
  Launch(markov, {"a", "a", "a"});
  EXPECT_EQ(Member(markov, "markovChain"),
            R"([{"appFrom":0,"appTo":0,"step":0,"value":1},{"appFrom":0,"appTo":0,"step":1,"value":1},)"
            R"({"appFrom":1,"appTo":0,"step":1,"value":5},{"appFrom":5,"appTo":0,"step":2,"value":1}])");
}

TEST(MarkovChain3Test, ReaderRejectsMissingOrEmptyTablesUnknownAndSharedIds) {
  const char* const base = R"({"last": [{"lastApp": "a"}],
      "markovChain": [{"step": 0, "appFrom": 0, "appTo": 1, "value": 2}],
      "strToId": [{"app": "a", "id": 0}, {"app": "b", "id": 1}]})";
  ASSERT_TRUE(MarkovChain3().DeserializeJson(ParseJson(base)));
  EXPECT_FALSE(MarkovChain3().DeserializeJson(ParseJson("[1, 2, 3]")));
  for (const auto& [key, value] : std::vector<std::pair<const char*, const char*>>{
           {"last", ""}, {"markovChain", ""}, {"strToId", ""},  // "": member removed
           {"last", "[]"}, {"last", R"({"lastApp": "a"})"}, {"markovChain", "{}"}, {"markovChain", "[]"},
           {"strToId", "null"}, {"strToId", "[]"},
           {"markovChain", R"([{"step": 0, "appFrom": 9, "appTo": 0, "value": 1}])"},
           {"strToId", R"([{"app": "a", "id": 0}, {"app": "b", "id": 1}, {"app": "c", "id": 1}])"}}) {
    Json::Value document = ParseJson(base);
    if (*value != '\0') document[key] = ParseJson(value);
    else document.removeMember(key);
    EXPECT_FALSE(MarkovChain3().DeserializeJson(document)) << key << "=" << value;
  }
}

TEST(MarkovChain3Test, MatchesTheDenseReading) {
  std::mt19937 random(11);
  MarkovChain3 markov;
  LiteralMarkov literal;
  int fresh = 0;
  for (int i = 0; i < 3000; ++i) {
    // Skewed draws, with bursts of new applications that force the fallback.
    const double u = std::uniform_real_distribution<double>(0.0, 1.0)(random);
    const std::string app = i % 400 >= 390 ? "new" + std::to_string(fresh++) : "app" + std::to_string(int(30 * u * u));
    markov.Update(Updater{"", app, 0, 0});
    literal.Update(app);
    const Scores scores = markov.Predict();
    ASSERT_EQ(scores, literal.Predict()) << i;
    for (const auto& [name, score] : scores) ASSERT_EQ(markov.GetPrediction(name), score);
    // Four new applications in a row: the newest has 4 of the 4 * (i - 3) transitions.
    if (i % 400 == 393) {
      ASSERT_EQ(scores.at(app), 4.0 / (4.0 * (i - 3)));
    }
  }
}

}  // namespace
}  // namespace NuvikPrediction
