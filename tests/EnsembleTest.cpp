// The facade against a literal reading of its rules (ReferenceFacade), on
// long launch streams over 1000 applications for every ensemble of one slot
// and every two-slot pair.
#include <cstring>
#include <random>

#include <gtest/gtest.h>
#include <nuvik/Nuvik.h>

#include "ReferenceFacade.h"
#include "TestUtil.h"

namespace NuvikPrediction {
namespace {

using Names = std::vector<std::string>;
using testing::ReferenceFacade;

std::map<std::string, std::uint64_t> Bits(const std::map<std::string, double>& weights) {
  std::map<std::string, std::uint64_t> bits;
  for (const auto& [app, weight] : weights) std::memcpy(&bits[app], &weight, sizeof weight);
  return bits;
}

// Zipf-like popularity with habitual successors, moving through the day.
class Stream {
 public:
  Stream(int apps, unsigned seed) : random(seed), apps(apps) {}

  std::string Next() {
    const double u = std::uniform_real_distribution<double>(0.0, 1.0)(random);
    last = random() % 3 == 0 ? static_cast<int>(apps * u * u * u) % apps : (last * 7 + 3 + static_cast<int>(random() % 2)) % apps;
    minute += 1 + static_cast<int>(random() % 25);
    return "app" + std::to_string(last);
  }
  std::tm Time() const { return testing::At(minute / 60 % 24, minute % 60); }

 private:
  std::mt19937 random;
  int apps;
  int last = 0;
  int minute = 0;
};

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
  Stream stream(apps, seed);
  const auto launch = [&](const std::string& app, const std::tm& time) {
    nuvik.Update(app, time);
    literal.Update(app, time);
  };
  for (int app = 0; app < apps; ++app) launch("app" + std::to_string(app), testing::At(app / 60 % 24, app % 60));
  for (int i = 0; i < launches; ++i) {
    launch(stream.Next(), stream.Time());
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

const Names kTypes = {"stat_counter", "linear", "double_linear", "markov_chain3_invalidate", "knn_regression"};

TEST(EnsembleTest, EverySingleSlotMatchesTheLiteralFacadeAtAThousandApps) {
  for (const std::string& type : kTypes) Compare({type}, {3}, 1000, 600, 1);
}

TEST(EnsembleTest, EveryPairMatchesTheLiteralFacadeAtAThousandApps) {
  unsigned seed = 2;
  for (const std::string& first : kTypes) {
    for (const std::string& second : kTypes) Compare({first, second}, {5, 1}, 1000, 250, seed++);
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
