// Names, JSON keys, the default feature weights and the small arithmetic
// rules shared by the predictors.
#ifndef NUVIK_CONSTANTS_H_
#define NUVIK_CONSTANTS_H_

#include <algorithm>
#include <cstdint>
#include <map>
#include <string>

namespace NuvikPrediction {

// Predictor type names: they select a class in the factory, are each
// predictor's name and name its entry in the saved document.
inline const std::string kKnnRegressionName = "knn_regression";
inline const std::string kStatCounterName = "stat_counter";
inline const std::string kMarkovChain3Name = "markov_chain3_invalidate";
inline const std::string kLinearName = "linear";
inline const std::string kDoubleLinearName = "double_linear";

// Feature names of the linear family; "prev" and "transition" take a digit 0-9.
inline const std::string kCounterFeature = "counter";
inline const std::string kPrevFeature = "prev";
inline const std::string kTimeFeature = "time";
inline const std::string kTransitionFeature = "transition";

// JSON keys, one group per document.
namespace FacadeKeys {
inline const std::string kKnownApps = "knownApps";
inline const std::string kModels = "models";
inline const std::string kName = "name";
inline const std::string kModel = "model";
inline const std::string kVersion = "version";
inline const std::string kCount = "count";
}  // namespace FacadeKeys

namespace KnnKeys {
inline const std::string kFunction = "function";
inline const std::string kPrevious = "previous";
inline const std::string kStrToId = "strToId";
inline const std::string kApp = "app";
inline const std::string kId = "id";
inline const std::string kCounters = "counters";
inline const std::string kValue1 = "value1";
inline const std::string kValue2 = "value2";
inline const std::string kValue3 = "value3";
inline const std::string kValue4 = "value4";
}  // namespace KnnKeys

namespace StatCounterKeys {
inline const std::string kPopularity = "popularity";
inline const std::string kApp = "app";
}  // namespace StatCounterKeys

namespace MarkovKeys {
inline const std::string kMarkovChain = "markovChain";
inline const std::string kStep = "step";
inline const std::string kAppFrom = "appFrom";
inline const std::string kAppTo = "appTo";
inline const std::string kStrToId = "strToId";
inline const std::string kApp = "app";
inline const std::string kId = "id";
inline const std::string kValue = "value";
inline const std::string kLast = "last";
inline const std::string kLastApp = "lastApp";
}  // namespace MarkovKeys

namespace LinearKeys {
inline const std::string kLast = "last";
inline const std::string kLastApp = "lastApp";
inline const std::string kStrToId = "strToId";
inline const std::string kApp = "app";
inline const std::string kId = "id";
inline const std::string kTransitions = "transitions";
inline const std::string kStep = "step";
inline const std::string kAppFrom = "appFrom";
inline const std::string kAppTo = "appTo";
inline const std::string kCnt = "cnt";
inline const std::string kTimeBuckets = "timeBuckets";
inline const std::string kBucket = "bucket";
inline const std::string kBucketApp = "app";
inline const std::string kBucketCnt = "cnt";
inline const std::string kStatCounter = "statCounter";
inline const std::string kCounterApp = "app";
inline const std::string kCounterCnt = "cnt";
}  // namespace LinearKeys

namespace DoubleLinearKeys {
inline const std::string kFirstLinear = "firstLinear";
inline const std::string kSecondLinear = "secondLinear";
}  // namespace DoubleLinearKeys

// Weight of each linear feature. The negative "counter" weight is deliberate:
// a high share of all launches lowers a score.
inline const std::map<std::string, double> kDefaultWeights = {
    {kCounterFeature, -8.58245544433594},
    {kPrevFeature + "0", 0.175150083750486},
    {kPrevFeature + "1", 1.3157692193985},
    {kPrevFeature + "2", 1.08053588867188},
    {kPrevFeature + "3", 0.726512002944946},
    {kPrevFeature + "4", 0.561944544315338},
    {kPrevFeature + "5", 0.471533614397049},
    {kPrevFeature + "6", 0.438217550516129},
    {kPrevFeature + "7", 0.363152098655701},
    {kPrevFeature + "8", 0.393323588371277},
    {kPrevFeature + "9", 0.344266903400421},
    {kTimeFeature, 8.13685531616211},
    {kTransitionFeature + "0", 6.85354852676392},
    {kTransitionFeature + "1", 3.98550519943237},
    {kTransitionFeature + "2", -0.635280561447144},
    {kTransitionFeature + "3", 0.423706722259521},
    {kTransitionFeature + "4", -0.157447981834412},
    {kTransitionFeature + "5", 0.1603425770998},
    {kTransitionFeature + "6", 0.0120393266901374},
    {kTransitionFeature + "7", 0.117989115417004},
    {kTransitionFeature + "8", 0.0709828346967697},
    {kTransitionFeature + "9", 0.178104594349861},
};

// The default weights read once, by feature.
struct FeatureWeights {
  double transition[10];
  double prev[10];
  double time;
  double counter;
};

inline const FeatureWeights kFeatureWeights = [] {
  FeatureWeights weights{};
  for (int k = 0; k < 10; ++k) {
    weights.transition[k] = kDefaultWeights.at(kTransitionFeature + std::to_string(k));
    weights.prev[k] = kDefaultWeights.at(kPrevFeature + std::to_string(k));
  }
  weights.time = kDefaultWeights.at(kTimeFeature);
  weights.counter = kDefaultWeights.at(kCounterFeature);
  return weights;
}();

// Five-minute slots of the day.
inline constexpr int kSlotsPerDay = 288;

// Slot of a clock time; out-of-range hours and minutes are clamped.
inline int TimeSlot(int hour, int minute) {
  return (std::clamp(hour, 0, 23) * 60 + std::clamp(minute, 0, 59)) / 5;
}

// 32-bit counters wrap as two's complement.
inline std::int32_t WrappingAdd(std::int32_t a, std::int32_t b) {
  return static_cast<std::int32_t>(static_cast<std::uint32_t>(a) + static_cast<std::uint32_t>(b));
}

// Ids and counts read from a document keep their low 32 bits.
inline std::int32_t Narrow32(std::uint64_t value) {
  return static_cast<std::int32_t>(static_cast<std::uint32_t>(value));
}

}  // namespace NuvikPrediction

#endif  // NUVIK_CONSTANTS_H_
