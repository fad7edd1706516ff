// Nuvik: on-device prediction of the next application launch.
//
// The caller feeds a Nuvik facade the stream of application launches, one at a
// time, and asks it at any moment for the ranked list of applications likely
// to be launched next, per-application scores and running quality measures of
// its own ranking. The facade learns online through an ensemble of predictors
// chosen by type name:
//
//   "stat_counter"               share of all launches (the default)
//   "linear"                     weighted sum of 22 launch features
//   "double_linear"              two linear stages over consecutive histories
//   "markov_chain3_invalidate"   transitions from the last four launches
//   "knn_regression"             kernel regression over the time of day
//
// An unknown type name silently builds a "stat_counter".
//
// The whole learned state is written to and read from one JSON document
// through caller-supplied streams. The library holds no threads, prints
// nothing and opens no file. A facade must be used from one thread at a time:
// no call, not even a const one, may run while another call on the same
// facade runs, since queries use internal caches and scratch space.
#ifndef NUVIK_NUVIK_H_
#define NUVIK_NUVIK_H_

#include <cstdint>
#include <ctime>
#include <deque>
#include <iosfwd>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <vector>

#define NUVIK_EXPORT __attribute__((visibility("default")))
#define NUVIK_LOCAL __attribute__((visibility("hidden")))

namespace NuvikPrediction {

class Predictor;

// One observed launch.
struct Item {
  std::string app;   // application name; compared byte for byte
  std::tm time{};    // local time of the launch; only tm_hour and tm_min are used
  std::string tag;   // free text kept with the last launch; no predictor reads it
};

// Configuration of a facade: one predictor slot per entry of `names`, with the
// integer parameter of the same index in `params`. Every constructor
// normalises the lists: an empty name list becomes {"stat_counter"}, missing
// parameters are 1 and missing names repeat the last name, so both lists end
// up with the same length, at least 1.
struct NUVIK_EXPORT NuvikConfig {
  // params.size() slots, all of type `name`.
  NuvikConfig(const std::vector<int>& params, const std::string& name);
  NuvikConfig(const std::vector<int>& params, const std::vector<std::string>& names);
  // One slot per name, each with parameter 1.
  NuvikConfig(std::vector<std::string> names, bool skipRepeats, unsigned long countLimit,
              double weightThreshold, double killThreshold);

  std::vector<int> params;          // slot parameter; only "knn_regression" reads it
                                    // (kernel: 1 triangular, 2 uniform,
                                    // 3 Epanechnikov, 4 triweight, 5 Gaussian)
  std::vector<std::string> names;   // slot type names
  unsigned long countLimit;         // stored only (default 60)
  double weightThreshold;           // stored only (default 0.5)
  double killThreshold;             // kill-list threshold on the first slot's score (0.05)
  bool skipRepeats;                 // ignore a launch of the previous application (false)
};

class NUVIK_EXPORT Nuvik {
 public:
  // Nuvik() is one "stat_counter"; the other forms build
  // Nuvik(NuvikConfig(params, name or names)). Nuvik(names) gives every slot
  // parameter 1 and the default thresholds.
  Nuvik();
  explicit Nuvik(const std::string& name);
  Nuvik(int param, const std::string& name);
  Nuvik(const std::vector<int>& params, const std::string& name);
  Nuvik(const std::vector<int>& params, const std::vector<std::string>& names);
  explicit Nuvik(const std::vector<std::string>& names);
  // Builds one predictor per parameter. A configuration whose fields were
  // edited to hold fewer names than parameters repeats the last name (or
  // uses "stat_counter"); one without parameters holds no predictors.
  explicit Nuvik(const NuvikConfig& config);
  ~Nuvik();

  Nuvik(const Nuvik&) = delete;
  Nuvik& operator=(const Nuvik&) = delete;

  // Learns one launch. First the ranked lists and weights are prepared for
  // item.time from the state before the launch, and the quality metrics score
  // them against item.app; then every predictor learns the launch. With
  // skipRepeats, a launch of the same application as the last accepted one is
  // ignored entirely.
  void Update(const Item& item);
  void Update(const std::string& app, const std::tm& time);

  // Rebuilds every predictor empty. Known applications, weights, lists,
  // priorities and metrics are kept.
  void Clear();

  // Answers from the lists prepared at the start of the last accepted launch.
  // GetNext lists every known application, best first (equal scores: the
  // greater name first; NaN scores last). GetSoon and GetKill are always empty
  // in this version.
  std::vector<std::string> GetNext() const;
  std::vector<std::string> GetSoon() const;
  std::vector<std::string> GetKill() const;

  // Rankings for now, for a launcher drawing its suggestions between two
  // launches. GetNext() is one launch behind: it was ranked before the last
  // launch was learned. GetNextAt(time) ranks every known application at
  // `time` from everything learned so far: exactly the list that GetNext()
  // will answer after the next accepted Update at `time` (same scores,
  // priorities, ties and NaN order), as long as nothing else changes the
  // facade in between.
  //
  // These calls change nothing: every other answer, now and after any later
  // calls (lists, weights, metrics, saved documents), is the same to the bit
  // as that of a facade never asked. Though const, they use the facade's
  // scratch space: like every call, they must not run while another call on
  // the same facade runs.
  std::vector<std::string> GetNextAt(const std::tm& time) const;
  // The first `count` applications of GetNextAt(time) (all of them when fewer
  // are known), without ordering the rest.
  std::vector<std::string> GetNextAt(const std::tm& time, std::size_t count) const;
  // What GetWeights(apps) will answer after the next accepted Update at
  // `time`: the combined score at `time` of each known application, the
  // weight from the last preparation of any other one that has one, else 0.0.
  std::vector<double> GetWeightsAt(const std::tm& time, const std::vector<std::string>& apps) const;

  // The combination rule applied to per-slot scores: two scores give
  // s[1] * 0.9 + s[0] * 0.1, one score gives s[0], any other count 0.0.
  double GetSoonWeight(const std::vector<double>& scores) const;
  // Combined score from the last preparation; 0.0 for an application without
  // one (GetWeightSingleDet: -1.0).
  double GetWeightSingle(const std::string& app) const;
  double GetWeightSingleDet(const std::string& app) const;
  std::vector<double> GetWeights(const std::vector<std::string>& apps) const;
  // One entry per known application.
  std::map<std::string, double> GetAllWeights() const;

  // Priorities lift (positive) or lower (negative) an application by
  // (1 / priority) * 0.6 on every slot's score from the next preparation on;
  // 0 means none. A later pair for the same application wins.
  void ResetPriority();
  void SetAppsPriority(const std::vector<std::pair<std::string, int>>& list);

  // Quality of the next list. From the sixth launch on, each launch adds its
  // recall at five (was it among the first five of its list) and the average
  // precision of the list made five launches earlier against the distinct
  // applications launched since. The means divide by the count unguarded
  // (NaN before the first scored launch). ClearMetrics resets the sums and the
  // count but keeps the history, so scoring resumes at once.
  std::uint64_t GetCountMetrics() const;
  void ClearMetrics();
  double GetMapMetric() const;
  double GetRecallMetric() const;
  double GetSumMap() const;
  double GetSumRecall() const;
  std::uint64_t GetCountKnownApps() const;

  // Writes the learned state (known applications and every predictor) as one
  // line of JSON. A facade that has seen no launch writes a document that its
  // own reader rejects.
  std::ostream& SerializeJson(std::ostream& os) const;
  // Reads a document written by SerializeJson. All or nothing: on rejection
  // badbit is set on `is` and the facade is unchanged. On success the
  // predictors are replaced by those of the document and, when the document
  // names any, so are the known applications. Configuration, priorities,
  // metrics, lists, weights and the last launch are neither saved nor read.
  // jsoncpp's own exceptions may pass through: Json::RuntimeError for nesting
  // deeper than 1000 levels, Json::LogicError where a predictor's table holds
  // a bare value in place of an object.
  std::istream& DeserializeJson(std::istream& is);

  // "NUVIK library 1.3"
  std::string GetLibraryInfo() const;
  // "NUVIK library 1.3 [ predictors list: linear, double_linear ]"
  std::string PrintNuvikInfo() const;

 private:
  // Times a preparation alone, beside GetNextAt.
  friend class PreparationBench;

  using AppId = std::uint32_t;
  // One application of a next list, which ranks by descending (key, rank):
  // its score as a ranking key, then its position in name order. The lists
  // are kept unsorted; positions are counted when asked for.
  struct RankedApp {
    std::uint64_t key;
    std::uint32_t rank;
    AppId app;
  };

  NUVIK_LOCAL std::unique_ptr<Predictor> PredictorFactory(const std::string& name, int param) const;
  NUVIK_LOCAL void UpdateModel(const Item& item, AppId app);
  NUVIK_LOCAL void UpdateMetrics(const Item& item, AppId app);
  NUVIK_LOCAL void PrepareLists(const std::tm& time);
  // Calls use(i, score) with the combined score of every known application
  // in name order (i), from every slot's scores of them, slot after slot.
  template <typename Use>
  NUVIK_LOCAL void CombineScores(const std::vector<double>& scores, Use use) const;
  NUVIK_LOCAL const std::vector<double>& SlotScoresAt(const std::tm& time) const;
  // The names of the first `count` entries of `list` in rank order, which it
  // sorts as far as needed.
  NUVIK_LOCAL std::vector<std::string> Names(std::vector<RankedApp>& list, std::size_t count) const;
  // Readers of a parsed document (a Json::Value or a DomValue); they change nothing.
  template <typename Value>
  NUVIK_LOCAL bool ProcessJson(const Value& root, std::vector<std::unique_ptr<Predictor>>& loaded,
                               std::set<std::string>& loadedApps) const;
  template <typename Value>
  NUVIK_LOCAL std::vector<std::unique_ptr<Predictor>> ParsePredictors(const Value& models, const Value& count) const;
  template <typename Value>
  NUVIK_LOCAL std::unique_ptr<Predictor> ParsePredictor(const Value& entry) const;
  // The id of `app`, given one when it has none; an id alone does not make it known.
  NUVIK_LOCAL AppId IdOf(const std::string& app);
  // The id of `app`; false when it has none.
  NUVIK_LOCAL bool FindId(const std::string& app, AppId& id) const;
  NUVIK_LOCAL void AddKnownApp(AppId app);
  NUVIK_LOCAL void ReplaceKnownApps(const std::set<std::string>& apps);

  // Every application the facade has met (launched, loaded, given a priority
  // or asked for) has an id, in order of first sight; ids live as long as the
  // facade. The names never move, so that views of them stay valid.
  std::deque<std::string> appNames;
  std::unordered_map<std::string_view, AppId> appIds;
  // By id: whether the application is known (launched, or listed by a loaded
  // document), its weight from the last preparation, if any, and its priority.
  std::vector<bool> known;
  std::vector<bool> weighted;
  std::vector<double> weights;
  std::vector<int> priorities;
  // The known applications in name order, as ids and as names, with the
  // position of each id in that order.
  std::vector<AppId> knownApps;
  std::vector<const std::string*> knownNames;
  std::vector<std::uint32_t> nameRank;
  std::uint64_t knownRevision = 0;

  // The metrics: the applications of the last launches, oldest first, and the
  // next list made at each of them (entry 5: scratch for the current one).
  std::deque<AppId> recentLaunches;
  double sumMap = 0.0;
  double sumRecall = 0.0;
  std::uint64_t countMetrics = 0;
  std::vector<std::vector<RankedApp>> pastNextLists;

  NuvikConfig config;
  std::vector<std::string> predictorNames;
  std::set<std::string> predictorTypes;
  std::vector<int> predictorParams;
  std::vector<std::unique_ptr<Predictor>> predictors;
  Item lastItem;
  // The next list of the last preparation, in name order.
  std::vector<RankedApp> nextList;

  // Scratch of a preparation and of the rankings for now: every slot's
  // scores, and a ranking for now.
  mutable std::vector<double> slotScores;
  mutable std::vector<RankedApp> nextListAt;
};

NUVIK_EXPORT std::ostream& operator<<(std::ostream& os, const Nuvik& nuvik);
NUVIK_EXPORT std::istream& operator>>(std::istream& is, Nuvik& nuvik);

}  // namespace NuvikPrediction

#endif  // NUVIK_NUVIK_H_
