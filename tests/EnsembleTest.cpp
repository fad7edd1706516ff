// The facade against a literal reading of its rules (ReferenceFacade), on
// long launch streams over 1000 applications for every ensemble of one slot
// and every two-slot pair.
#include <gtest/gtest.h>
#include <nuvik/Nuvik.h>

#include "ReferenceFacade.h"
#include "TestUtil.h"

namespace NuvikPrediction {
namespace {

using Names = std::vector<std::string>;
using testing::Bits;
using testing::ReferenceFacade;

void Check(const Nuvik& nuvik, const ReferenceFacade& literal, int launch) {
  ASSERT_EQ(nuvik.GetNext(), literal.next) << "launch " << launch;
  ASSERT_EQ(Bits(nuvik.GetAllWeights()), Bits(literal.weights)) << "launch " << launch;
  ASSERT_EQ(nuvik.GetCountMetrics(), literal.count) << "launch " << launch;
  ASSERT_EQ(nuvik.GetSumMap(), literal.sumMap) << "launch " << launch;
  ASSERT_EQ(nuvik.GetSumRecall(), literal.sumRecall) << "launch " << launch;
}

void Compare(const Names& types, const std::vector<int>& params, int apps, int launches, unsigned seed) {
  SCOPED_TRACE(types.front() + (types.size() > 1 ? "," + types.back() : ""));
  Nuvik nuvik(params, types);
  ReferenceFacade literal(NuvikConfig(params, types));
  testing::HabitStream stream(seed, apps);
  const auto launch = [&](const std::string& app, const std::tm& time) {
    nuvik.Update(app, time);
    literal.Update(app, time);
  };
  for (int app = 0; app < apps; ++app) launch("app" + std::to_string(app), testing::At(app / 60 % 24, app % 60));
  for (int i = 0; i < launches; ++i) {
    const std::string app = stream.Next();
    launch(app, stream.Time());
    if (i % 25 == 0) Check(nuvik, literal, i);
    if (i == launches / 3) {
      const std::vector<std::pair<std::string, int>> lifted = {
          {"app7", 1}, {"app3", -2}, {"app7", 3}, {"never.launched", 1}};
      nuvik.SetAppsPriority(lifted);
      for (const auto& [app, priority] : lifted) literal.priorities[app] = priority;
    }
    if (i == launches / 2) {
      nuvik.Clear();
      literal.Clear();
    }
    if (i == 2 * launches / 3) {
      nuvik.ResetPriority();
      literal.priorities.clear();
    }
  }
  Check(nuvik, literal, launches);
}

TEST(EnsembleTest, EveryEnsembleOfOneOrTwoSlotsMatchesTheLiteralFacadeAtAThousandApps) {
  unsigned seed = 1;
  for (const Names& types : testing::Ensembles()) {
    if (types.size() == 1) Compare(types, {3}, 1000, 600, 1);
    else Compare(types, {5, 1}, 1000, 250, ++seed);
  }
}

TEST(EnsembleTest, SmallVocabulariesAndThreeSlotsMatchTheLiteralFacade) {
  // Few applications: ties, repeats and the kernel regression's NaN scores.
  Compare({"knn_regression", "markov_chain3_invalidate"}, {2, 1}, 6, 3000, 7);
  Compare({"stat_counter", "double_linear", "knn_regression"}, {1, 1, 4}, 12, 1500, 8);
  Compare({"linear", "knn_regression"}, {1, 0}, 40, 3000, 9);
}

}  // namespace
}  // namespace NuvikPrediction
