// GetNextAt and GetWeightsAt: the ranking for now, which must equal the list
// of the next update at that time and must change nothing. One facade is
// asked before every call, its twin never; both follow one stream of
// launches, priorities, Clear, loads and metric resets.
#include <random>

#include <gtest/gtest.h>
#include <nuvik/Nuvik.h>

#include "TestUtil.h"

namespace NuvikPrediction {
namespace {

using testing::At;
using testing::Bits;
using testing::Load;
using testing::Save;
using Names = std::vector<std::string>;

// Every answer that a later call could observe.
void ExpectSame(const Nuvik& asked, const Nuvik& quiet, const Names& probe, bool documents) {
  ASSERT_EQ(asked.GetNext(), quiet.GetNext());
  ASSERT_EQ(Bits(asked.GetAllWeights()), Bits(quiet.GetAllWeights()));
  ASSERT_EQ(Bits(asked.GetWeights(probe)), Bits(quiet.GetWeights(probe)));
  ASSERT_EQ(asked.GetCountMetrics(), quiet.GetCountMetrics());
  ASSERT_EQ(Bits(std::vector<double>{asked.GetSumMap(), asked.GetSumRecall()}),
            Bits(std::vector<double>{quiet.GetSumMap(), quiet.GetSumRecall()}));
  if (documents) {
    ASSERT_EQ(Save(asked), Save(quiet));
  }
}

// Applications of a few dozen names launched in habits, at times that are
// now and then out of range, with repeats; every other seed skips repeats.
void Follow(const Names& types, unsigned seed) {
  SCOPED_TRACE(types.front() + (types.size() > 1 ? "," + types.back() : ""));
  const bool skipRepeats = seed % 2 == 0;
  NuvikConfig config(types, skipRepeats, 60, 0.5, 0.05);
  config.params.assign(types.size(), 1 + static_cast<int>(seed % 5));
  Nuvik asked(config);
  Nuvik quiet(config);
  std::mt19937 random(seed);
  const auto pick = [&](int n) { return static_cast<int>(random() % static_cast<unsigned>(n)); };
  const Names probe = {"app1", "app7", "app30", "never.launched", ""};
  std::vector<std::string> documents;
  std::string lastAccepted;
  int last = 0;
  int minute = 0;
  for (int i = 0; i < 900; ++i) {
    last = pick(5) == 0 ? last : pick(3) == 0 ? pick(36) : (last * 7 + 3 + pick(2)) % 36;
    const std::string app = "app" + std::to_string(last);
    minute += 1 + pick(40);
    const std::tm time = pick(20) == 0 ? At(pick(40) - 8, pick(90) - 15) : At(minute / 60 % 24, minute % 60);

    const std::tm other = At(pick(24), pick(60));
    asked.GetNextAt(other);
    asked.GetNextAt(other, 3);
    asked.GetWeightsAt(other, probe);
    const Names next = asked.GetNextAt(time);
    const std::size_t count = static_cast<std::size_t>(pick(static_cast<int>(next.size()) + 3));
    const Names top = asked.GetNextAt(time, count);
    const std::vector<double> weights = asked.GetWeightsAt(time, probe);
    asked.GetNextAt(other, 1);

    asked.Update(app, time);
    quiet.Update(app, time);
    if (!skipRepeats || app != lastAccepted) {
      lastAccepted = app;
      ASSERT_EQ(asked.GetNext(), next) << "launch " << i;
      ASSERT_EQ(top, Names(next.begin(), next.begin() + static_cast<std::ptrdiff_t>(std::min(count, next.size()))));
      ASSERT_EQ(Bits(asked.GetWeights(probe)), Bits(weights)) << "launch " << i;
    }
    ExpectSame(asked, quiet, probe, i % 50 == 0);

    switch (pick(60)) {
      case 0: {
        const std::vector<std::pair<std::string, int>> priorities = {
            {"app" + std::to_string(pick(36)), pick(7) - 3}, {"never.launched", 2}, {"app" + std::to_string(pick(36)), 0}};
        asked.SetAppsPriority(priorities);
        quiet.SetAppsPriority(priorities);
        break;
      }
      case 1:
        asked.ResetPriority();
        quiet.ResetPriority();
        break;
      case 2:
        asked.Clear();
        quiet.Clear();
        break;
      case 3:
        documents.push_back(Save(quiet));
        break;
      case 4:
        if (!documents.empty()) {
          const std::string& document = documents[static_cast<std::size_t>(pick(static_cast<int>(documents.size())))];
          ASSERT_EQ(Load(asked, document), Load(quiet, document));
        }
        break;
      case 5:
        asked.ClearMetrics();
        quiet.ClearMetrics();
        break;
      default:
        break;
    }
  }
  ExpectSame(asked, quiet, probe, true);
}

TEST(NextAtTest, EveryEnsembleRanksForNowAsItsNextUpdateWillAndChangesNothing) {
  unsigned seed = 1;
  for (const Names& types : testing::Ensembles()) Follow(types, seed++);
  Follow({"linear", "markov_chain3_invalidate", "knn_regression"}, seed);
}

// A loaded Markov chain whose history names applications that its dictionary
// lacks, and whose dictionary gives two ids one name, repairs the dictionary
// at its first prediction; asking for now must not.
TEST(NextAtTest, LoadedChainRepairsItsDictionaryOnlyWhenAnUpdateComes) {
  const std::string document =
      R"({"count":1,"knownApps":["a","b","x"],"models":[{"model":{"last":[{"lastApp":"x"},{"lastApp":"a"},)"
      R"({"lastApp":"b"},{"lastApp":"y"}],"markovChain":[{"appFrom":0,"appTo":1,"step":0,"value":3},)"
      R"({"appFrom":1,"appTo":0,"step":3,"value":2}],"strToId":[{"app":"a","id":1},{"app":"b","id":1},)"
      R"({"app":"b","id":0}]},"name":"markov_chain3_invalidate"}],"version":3})";
  Nuvik asked(std::string("markov_chain3_invalidate"));
  Nuvik quiet(std::string("markov_chain3_invalidate"));
  ASSERT_TRUE(Load(asked, document));
  ASSERT_TRUE(Load(quiet, document));
  const Names probe = {"a", "b", "x", "y", ""};
  const Names next = asked.GetNextAt(At(7, 0));
  const std::vector<double> weights = asked.GetWeightsAt(At(7, 0), probe);
  EXPECT_EQ(Save(asked), Save(quiet));
  asked.Update("a", At(7, 0));
  quiet.Update("a", At(7, 0));
  EXPECT_EQ(asked.GetNext(), next);
  EXPECT_EQ(Bits(asked.GetWeights(probe)), Bits(weights));
  ExpectSame(asked, quiet, probe, true);
}

}  // namespace
}  // namespace NuvikPrediction
