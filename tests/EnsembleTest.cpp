// The facade against a literal reading of its rules, on long launch streams
// over 1000 applications for every ensemble of one slot and every two-slot
// pair: the literal facade asks its own predictors for one application at a
// time, keeps names in ordered maps and sets, sorts the whole next list at
// every launch and walks it for the metrics.
#include <algorithm>
#include <cmath>
#include <cstring>
#include <deque>
#include <memory>
#include <random>
#include <set>

#include <gtest/gtest.h>
#include <nuvik/Nuvik.h>

#include "DoubleLinear.h"
#include "KnnRegression.h"
#include "Linear.h"
#include "MarkovChain3.h"
#include "StatCounter.h"
#include "TestUtil.h"

namespace NuvikPrediction {
namespace {

using Names = std::vector<std::string>;

std::unique_ptr<Predictor> Make(const std::string& type, int param) {
  if (type == "linear") return std::make_unique<Linear>();
  if (type == "double_linear") return std::make_unique<DoubleLinear>();
  if (type == "markov_chain3_invalidate") return std::make_unique<MarkovChain3>();
  if (type == "knn_regression") return std::make_unique<KnnRegression>(param - 1);
  return std::make_unique<StatCounter>();
}

class LiteralFacade {
 public:
  LiteralFacade(const Names& types, const std::vector<int>& params) {
    for (std::size_t i = 0; i < types.size(); ++i) predictors.push_back(Make(types[i], params[i]));
  }

  void Update(const std::string& app, const std::tm& time) {
    Prepare(time);
    if (recent.size() < 5) {
      lists.push_back(next);
      recent.push_back(app);
    } else {
      ++count;
      const auto top = next.begin() + static_cast<std::ptrdiff_t>(std::max<std::size_t>(std::min<std::size_t>(next.size(), 5), 1));
      if (!next.empty() && std::find(next.begin(), top, app) != top) sumRecall += 1.0;
      lists.push_back(next);
      const std::set<std::string> relevant(recent.begin(), recent.end());
      double total = 0.0;
      int hits = 0;
      // A list names each application once: stop after the last relevant one.
      for (std::size_t i = 0; i < lists.front().size() && hits < static_cast<int>(relevant.size()); ++i) {
        if (relevant.count(lists.front()[i]) == 0) continue;
        ++hits;
        total += static_cast<double>(hits) / static_cast<double>(i + 1);
      }
      const double precision = total / (lists.front().empty() ? 5.0 : static_cast<double>(relevant.size()));
      lists.pop_front();
      recent.pop_front();
      recent.push_back(app);
      sumMap += precision;
    }
    for (const auto& predictor : predictors) predictor->Update(Updater{"", app, time.tm_hour, time.tm_min});
    known.insert(app);
  }

  void Clear(const Names& types, const std::vector<int>& params) {
    for (std::size_t i = 0; i < types.size(); ++i) predictors[i] = Make(types[i], params[i]);
  }

  std::map<std::string, int> priorities;
  std::map<std::string, double> weights;
  Names next;
  double sumMap = 0.0;
  double sumRecall = 0.0;
  std::uint64_t count = 0;
  std::set<std::string> known;

 private:
  void Prepare(const std::tm& time) {
    std::vector<std::pair<double, std::string>> ranked;
    for (const std::string& app : known) {
      std::vector<double> scores(predictors.size());
      for (std::size_t i = 0; i < predictors.size(); ++i) {
        predictors[i]->UpdateTime(time);
        scores[i] = predictors[i]->GetPrediction(app);
        const auto priority = priorities.find(app);
        if (priority != priorities.end() && priority->second != 0) scores[i] += (1.0 / priority->second) * 0.6;
      }
      const double combined = scores.size() == 2 ? scores[1] * 0.9 + scores[0] * 0.1
                              : scores.size() == 1 ? scores[0]
                                                   : 0.0;
      ranked.emplace_back(combined, app);
      weights[app] = combined;
    }
    // Descending pairs; NaN below every number.
    std::sort(ranked.begin(), ranked.end(), [](const auto& a, const auto& b) {
      const bool aNan = std::isnan(a.first);
      const bool bNan = std::isnan(b.first);
      if (aNan != bNan) return bNan;
      if (!aNan && a.first != b.first) return a.first > b.first;
      return a.second > b.second;
    });
    next.clear();
    for (const auto& entry : ranked) next.push_back(entry.second);
  }

  std::vector<std::unique_ptr<Predictor>> predictors;
  std::deque<std::string> recent;
  std::deque<Names> lists;
};

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

void Check(const Nuvik& nuvik, const LiteralFacade& literal, int launch) {
  ASSERT_EQ(nuvik.GetNext(), literal.next) << "launch " << launch;
  ASSERT_EQ(Bits(nuvik.GetAllWeights()), Bits(literal.weights)) << "launch " << launch;
  ASSERT_EQ(nuvik.GetCountMetrics(), literal.count) << "launch " << launch;
  ASSERT_EQ(nuvik.GetSumMap(), literal.sumMap) << "launch " << launch;
  ASSERT_EQ(nuvik.GetSumRecall(), literal.sumRecall) << "launch " << launch;
}

void Compare(const Names& types, const std::vector<int>& params, int apps, int launches, unsigned seed) {
  SCOPED_TRACE(types.front() + (types.size() > 1 ? "," + types.back() : ""));
  Nuvik nuvik(params, types);
  LiteralFacade literal(types, params);
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
      literal.Clear(types, params);
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
