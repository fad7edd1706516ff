// The facade's own rules worked out by hand: configuration, slots, ranking
// from the state before each launch, repeats, the combination rule,
// priorities and NaN scores.
#include <cmath>
#include <tuple>

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
  EXPECT_EQ(std::make_tuple(none.countLimit, none.weightThreshold, none.killThreshold, none.skipRepeats),
            std::make_tuple(60ul, 0.5, 0.05, false));
  const NuvikConfig repeated({3, 5, 7}, Names{"linear"});
  EXPECT_EQ(repeated.names, (Names{"linear", "linear", "linear"}));
  EXPECT_EQ(repeated.params, (Params{3, 5, 7}));
  EXPECT_EQ(NuvikConfig({2}, Names{"linear", "stat_counter"}).params, (Params{2, 1}));
  EXPECT_EQ(NuvikConfig(Names{"a", "b"}, true, 7, 0.25, 0.125).params, (Params{1, 1}));
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
  EXPECT_EQ(nuvik.GetSoonWeight({0.2, 0.4}), 0.38000000000000006);
  EXPECT_EQ(nuvik.GetSoonWeight({0.7}), 0.7);
  EXPECT_EQ(nuvik.GetSoonWeight({}), 0.0);
  EXPECT_EQ(nuvik.GetSoonWeight({1, 1, 1}), 0.0);

  // A priority lifts every slot's score before the rule combines them.
  Nuvik one;
  for (const char* app : {"a", "b", "c", "d", "e"}) Launch(one, app);
  one.SetAppsPriority({{"a", 1}, {"b", 3}, {"b", 2}, {"c", 3}, {"d", -1}, {"e", 0}});
  Launch(one, "f");
  const double share = 1.0 / 5.0;
  EXPECT_EQ(one.GetNext(), (Names{"a", "b", "c", "e", "d"}));
  EXPECT_EQ(one.GetWeightSingle("a"), share + (1.0 / 1.0) * 0.6);
  EXPECT_EQ(one.GetWeightSingle("b"), share + (1.0 / 2.0) * 0.6);
  EXPECT_EQ(one.GetWeightSingle("c"), share + (1.0 / 3.0) * 0.6);
  EXPECT_EQ(one.GetWeightSingle("d"), share + (1.0 / -1.0) * 0.6);
  EXPECT_EQ(one.GetWeightSingle("e"), share);

  one.ResetPriority();
  Launch(one, "g");
  EXPECT_EQ(one.GetWeightSingle("a"), 1.0 / 6.0);
  EXPECT_EQ(one.GetNext(), (Names{"f", "e", "d", "c", "b", "a"}));
}

TEST(NuvikTest, NaNScoresRankLastInDescendingNameOrder) {
  // A counter loaded with zero counts scores 0 / 0 for those applications.
  Nuvik nuvik;
  ASSERT_TRUE(testing::Load(
      nuvik, R"({"count":1,"version":3,"knownApps":["a","b","c","d"],)"
             R"("models":[{"name":"stat_counter","model":[{"app":"b","popularity":0},{"app":"d","popularity":0}]}]})"));
  Launch(nuvik, "x");
  EXPECT_EQ(nuvik.GetNext(), (Names{"c", "a", "d", "b"}));
  EXPECT_TRUE(std::isnan(nuvik.GetWeightSingle("d")));
}

}  // namespace
}  // namespace NuvikPrediction
