#include <cmath>
#include <random>
#include <sstream>

#include <gtest/gtest.h>
#include <nuvik/Nuvik.h>

#include "TestUtil.h"

namespace NuvikPrediction {
namespace {

using testing::At;
using Names = std::vector<std::string>;
using Params = std::vector<int>;

std::string Slots(const Nuvik& nuvik) {
  const std::string info = nuvik.PrintNuvikInfo();
  const std::string head = "NUVIK library 1.3 [ predictors list: ";
  EXPECT_EQ(info.rfind(head, 0), 0u) << info;
  return info.substr(head.size());
}

void Launch(Nuvik& nuvik, const std::string& app) { nuvik.Update(app, At(9, 0)); }

TEST(NuvikConfigTest, NormalisesNamesAndParameters) {
  const NuvikConfig none({}, Names{});
  EXPECT_EQ(none.names, Names{"stat_counter"});
  EXPECT_EQ(none.params, Params{1});
  EXPECT_EQ(none.countLimit, 60u);
  EXPECT_EQ(none.weightThreshold, 0.5);
  EXPECT_EQ(none.killThreshold, 0.05);
  EXPECT_FALSE(none.skipRepeats);

  const NuvikConfig repeated({3, 5, 7}, Names{"linear"});
  EXPECT_EQ(repeated.names, (Names{"linear", "linear", "linear"}));
  EXPECT_EQ(repeated.params, (Params{3, 5, 7}));

  const NuvikConfig padded({2}, Names{"linear", "stat_counter"});
  EXPECT_EQ(padded.params, (Params{2, 1}));

  const NuvikConfig full(Names{"a", "b"}, true, 7, 0.25, 0.125);
  EXPECT_EQ(full.names, (Names{"a", "b"}));
  EXPECT_EQ(full.params, (Params{1, 1}));
  EXPECT_EQ(full.countLimit, 7u);
  EXPECT_EQ(full.weightThreshold, 0.25);
  EXPECT_EQ(full.killThreshold, 0.125);
  EXPECT_TRUE(full.skipRepeats);
}

TEST(NuvikTest, ConstructorsBuildOneSlotPerParameter) {
  EXPECT_EQ(Slots(Nuvik()), "stat_counter ]");
  EXPECT_EQ(Slots(Nuvik(std::string("linear"))), "linear ]");
  EXPECT_EQ(Slots(Nuvik(Params{}, "linear")), "stat_counter ]");
  EXPECT_EQ(Slots(Nuvik(Params{4, 9}, "knn_regression")), "knn_regression, knn_regression ]");
  EXPECT_EQ(Slots(Nuvik(Names{"linear", "nonsense"})), "linear, stat_counter ]");
  EXPECT_EQ(Slots(Nuvik(Params{2}, Names{"double_linear", "markov_chain3_invalidate"})),
            "double_linear, markov_chain3_invalidate ]");

  // Fields edited after normalisation: missing names repeat the last one.
  NuvikConfig edited({1}, "markov_chain3_invalidate");
  edited.params = {1, 1, 1};
  EXPECT_EQ(Slots(Nuvik(edited)), "markov_chain3_invalidate, markov_chain3_invalidate, markov_chain3_invalidate ]");
  edited.names.clear();
  EXPECT_EQ(Slots(Nuvik(edited)), "stat_counter, stat_counter, stat_counter ]");
  edited.params.clear();
  Nuvik empty(edited);
  EXPECT_EQ(empty.PrintNuvikInfo(), "NUVIK library 1.3 [ predictors list:  ]");
  EXPECT_EQ(empty.GetLibraryInfo(), "NUVIK library 1.3");

  // Without predictors every combined score is 0.0 and names decide.
  for (const char* app : {"b", "c", "a", "b"}) Launch(empty, app);
  EXPECT_EQ(empty.GetNext(), (Names{"c", "b", "a"}));
  EXPECT_EQ(empty.GetWeightSingleDet("a"), 0.0);
}

TEST(NuvikTest, LaunchIsRankedOnlyFromTheStateBeforeIt) {
  Nuvik nuvik;
  Launch(nuvik, "a");
  EXPECT_TRUE(nuvik.GetNext().empty());
  EXPECT_EQ(nuvik.GetWeightSingle("a"), 0.0);
  EXPECT_EQ(nuvik.GetWeightSingleDet("a"), -1.0);
  EXPECT_EQ(nuvik.GetCountKnownApps(), 1u);

  Launch(nuvik, "b");
  EXPECT_EQ(nuvik.GetNext(), Names{"a"});
  EXPECT_EQ(nuvik.GetWeightSingleDet("a"), 1.0);
  EXPECT_EQ(nuvik.GetWeightSingleDet("b"), -1.0);

  Launch(nuvik, "b");
  EXPECT_EQ(nuvik.GetNext(), (Names{"b", "a"}));  // equal shares: greater name first
  Launch(nuvik, "c");
  EXPECT_EQ(nuvik.GetNext(), (Names{"b", "a"}));
  EXPECT_EQ(nuvik.GetAllWeights(), (std::map<std::string, double>{{"a", 1.0 / 3.0}, {"b", 2.0 / 3.0}, {"c", 0.0}}));
  EXPECT_EQ(nuvik.GetWeights({"b", "zzz", "a"}), (std::vector<double>{2.0 / 3.0, 0.0, 1.0 / 3.0}));
  EXPECT_TRUE(nuvik.GetSoon().empty());
  EXPECT_TRUE(nuvik.GetKill().empty());

  // Clear forgets what the predictors learned, but not the weights and lists.
  nuvik.Clear();
  EXPECT_EQ(nuvik.GetAllWeights().size(), 3u);
  EXPECT_EQ(nuvik.GetWeightSingle("b"), 2.0 / 3.0);
  Launch(nuvik, "a");
  EXPECT_EQ(nuvik.GetAllWeights(), (std::map<std::string, double>{{"a", 0.0}, {"b", 0.0}, {"c", 0.0}}));
  EXPECT_EQ(nuvik.GetNext(), (Names{"c", "b", "a"}));
}

TEST(NuvikTest, SkipRepeatsDropsARepeatBeforeAnythingChanges) {
  Nuvik skipping(NuvikConfig(Names{"stat_counter"}, true, 60, 0.5, 0.05));
  Nuvik counting(Names{"stat_counter"});
  for (Nuvik* nuvik : {&skipping, &counting}) {
    Launch(*nuvik, "");  // equals the empty last launch: skipped when filtering
    for (const char* app : {"a", "a", "b", "a", "a", "a", "b", "c"}) Launch(*nuvik, app);
  }
  EXPECT_EQ(skipping.GetCountKnownApps(), 3u);
  EXPECT_EQ(counting.GetCountKnownApps(), 4u);
  EXPECT_EQ(skipping.GetWeightSingle("a"), 2.0 / 4.0);
  EXPECT_EQ(counting.GetWeightSingle("a"), 5.0 / 8.0);
  EXPECT_EQ(skipping.GetCountMetrics(), 0u);  // only five launches were accepted
  EXPECT_EQ(counting.GetCountMetrics(), 4u);
}

TEST(NuvikTest, CombinationRuleAndPriorities) {
  const Nuvik nuvik;
  EXPECT_EQ(nuvik.GetSoonWeight({0.2, 0.4}), 0.4 * 0.9 + 0.2 * 0.1);
  EXPECT_EQ(nuvik.GetSoonWeight({0.2, 0.4}), 0.38000000000000006);
  EXPECT_EQ(nuvik.GetSoonWeight({0.7}), 0.7);
  EXPECT_EQ(nuvik.GetSoonWeight({}), 0.0);
  EXPECT_EQ(nuvik.GetSoonWeight({1, 1, 1}), 0.0);

  Nuvik one;
  Nuvik two(Params{1, 1}, "stat_counter");
  Nuvik three(Params{1, 1, 1}, "stat_counter");
  for (Nuvik* n : {&one, &two, &three}) {
    for (const char* app : {"a", "b", "c", "d", "e"}) Launch(*n, app);
    n->SetAppsPriority({{"a", 1}, {"b", 3}, {"b", 2}, {"c", 3}, {"d", -1}, {"e", 0}});
    Launch(*n, "f");
  }
  const double share = 1.0 / 5.0;
  EXPECT_EQ(one.GetNext(), (Names{"a", "b", "c", "e", "d"}));
  EXPECT_EQ(one.GetWeightSingle("a"), share + (1.0 / 1.0) * 0.6);
  EXPECT_EQ(one.GetWeightSingle("b"), share + (1.0 / 2.0) * 0.6);
  EXPECT_EQ(one.GetWeightSingle("c"), share + (1.0 / 3.0) * 0.6);
  EXPECT_EQ(one.GetWeightSingle("d"), share + (1.0 / -1.0) * 0.6);
  EXPECT_EQ(one.GetWeightSingle("e"), share);
  const double lifted = share + 0.6;
  EXPECT_EQ(two.GetWeightSingle("a"), lifted * 0.9 + lifted * 0.1);
  EXPECT_EQ(three.GetWeightSingle("a"), 0.0);
  EXPECT_EQ(three.GetNext(), (Names{"e", "d", "c", "b", "a"}));

  one.ResetPriority();
  Launch(one, "g");
  EXPECT_EQ(one.GetWeightSingle("a"), 1.0 / 6.0);
  EXPECT_EQ(one.GetNext(), (Names{"f", "e", "d", "c", "b", "a"}));
}

TEST(NuvikTest, NaNScoresRankLastInDescendingNameOrder) {
  // A counter loaded with zero counts scores 0 / 0 for those applications.
  Nuvik nuvik;
  std::istringstream document(
      R"({"count":1,"version":3,"knownApps":["a","b","c","d"],)"
      R"("models":[{"name":"stat_counter","model":[{"app":"b","popularity":0},{"app":"d","popularity":0}]}]})");
  ASSERT_TRUE(document >> nuvik);
  Launch(nuvik, "x");
  EXPECT_EQ(nuvik.GetNext(), (Names{"c", "a", "d", "b"}));
  EXPECT_TRUE(std::isnan(nuvik.GetWeightSingle("d")));
}

TEST(NuvikTest, RandomStreamKeepsRankingInvariants) {
  std::mt19937 random(7);
  Nuvik nuvik(Params{1, 1}, "stat_counter");
  std::map<std::string, int> launches;
  int total = 0;
  for (int i = 0; i < 2000; ++i) {
    if (i % 500 == 250) nuvik.SetAppsPriority({{"app3", static_cast<int>(random() % 5) - 2}});
    const std::string app = "app" + std::to_string(random() % 40);
    Launch(nuvik, app);
    const std::vector<std::string> next = nuvik.GetNext();
    ASSERT_EQ(next.size(), launches.size());
    for (std::size_t k = 1; k < next.size(); ++k) {
      const double before = nuvik.GetWeightSingle(next[k - 1]);
      const double after = nuvik.GetWeightSingle(next[k]);
      ASSERT_TRUE(before > after || (before == after && next[k - 1] > next[k]));
    }
    if (launches.count("app5")) {
      const double share = static_cast<double>(launches["app5"]) / total;
      ASSERT_EQ(nuvik.GetWeightSingle("app5"), share * 0.9 + share * 0.1);
    }
    ++launches[app];
    ++total;
  }
  EXPECT_EQ(nuvik.GetCountKnownApps(), launches.size());
  EXPECT_EQ(nuvik.GetCountMetrics(), 2000u - 5u);
  EXPECT_LE(nuvik.GetSumRecall(), 1995.0);
  EXPECT_GT(nuvik.GetRecallMetric(), 0.0);
}

}  // namespace
}  // namespace NuvikPrediction
