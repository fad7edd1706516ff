#include "nuvik/Nuvik.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <istream>
#include <ostream>
#include <streambuf>

#include <json/json.h>

#include "Constants.h"
#include "DomDocument.h"
#include "DoubleLinear.h"
#include "JsonWriter.h"
#include "KnnRegression.h"
#include "Linear.h"
#include "LoadPath.h"
#include "MarkovChain3.h"
#include "Predictor.h"
#include "StatCounter.h"
#include "Updater.h"

namespace NuvikPrediction {

namespace {

constexpr std::uint64_t kDocumentVersion = 3;
constexpr std::size_t kMetricsWindow = 5;
constexpr double kPriorityScale = 0.6;

thread_local LoadPath loadPath = LoadPath::kSimdjsonFirst;

// The characters an ostream writes, appended to a string.
class StringSink : public std::streambuf {
 public:
  std::string& text() { return text_; }

 protected:
  int_type overflow(int_type c) override {
    if (traits_type::eq_int_type(c, traits_type::eof())) return traits_type::not_eof(c);
    text_.push_back(traits_type::to_char_type(c));
    return c;
  }
  std::streamsize xsputn(const char* s, std::streamsize count) override {
    text_.append(s, static_cast<std::size_t>(count));
    return count;
  }

 private:
  std::string text_;
};

// The whole buffer of `is`, whatever the stream's state, read as
// Json::parseFromStream reads it (`std::ostream << is.rdbuf()`), with room
// after it for simdjson to read past the end.
std::string ReadWhole(std::istream& is) {
  StringSink sink;
  std::ostream out(&sink);
  out << is.rdbuf();
  std::string& text = sink.text();
  text.reserve(text.size() + DomDocument::kPadding);
  return std::move(text);
}

// Orders scores as unsigned integers: higher scores give greater keys, -0.0
// ties with +0.0 and NaN ranks below every number, tying with other NaNs.
std::uint64_t RankKey(double score) {
  if (std::isnan(score)) return 0;
  if (score == 0.0) score = 0.0;
  std::uint64_t bits;
  std::memcpy(&bits, &score, sizeof bits);
  return bits >> 63 != 0 ? ~bits : bits | (std::uint64_t{1} << 63);
}


template <typename Ranked>
bool RanksHigher(const Ranked& a, const Ranked& b) {
  return a.key != b.key ? a.key > b.key : a.rank > b.rank;
}

// Position of `entry` in its sorted list: the number of entries that rank
// higher, counted up to `limit`.
template <typename Ranked>
std::size_t Position(const std::vector<Ranked>& list, const Ranked& entry, std::size_t limit) {
  std::size_t position = 0;
  for (const Ranked& other : list) {
    if (RanksHigher(other, entry) && ++position >= limit) break;
  }
  return position;
}

// Average precision of `list` (as sorted) against the distinct applications of
// `launched`: the hits, in list order, each add hits so far / (position + 1).
template <typename Ranked, typename Id>
double AveragePrecision(const std::vector<Ranked>& list, const std::deque<Id>& launched) {
  Id relevant[kMetricsWindow];
  std::size_t count = 0;
  for (const Id app : launched) {
    if (std::find(relevant, relevant + count, app) == relevant + count) relevant[count++] = app;
  }
  const Ranked* hits[kMetricsWindow];
  std::size_t found = 0;
  for (const Ranked& entry : list) {
    if (std::find(relevant, relevant + count, entry.app) != relevant + count) hits[found++] = &entry;
  }
  std::size_t positions[kMetricsWindow] = {};
  for (const Ranked& entry : list) {
    for (std::size_t h = 0; h < found; ++h) positions[h] += RanksHigher(entry, *hits[h]) ? 1 : 0;
  }
  for (std::size_t h = 1; h < found; ++h) {  // a handful: insertion sort
    for (std::size_t j = h; j > 0 && positions[j - 1] > positions[j]; --j) std::swap(positions[j - 1], positions[j]);
  }
  double total = 0.0;
  for (std::size_t h = 0; h < found; ++h) total += static_cast<double>(h + 1) / static_cast<double>(positions[h] + 1);
  const double divisor = list.empty() ? 5.0 : static_cast<double>(count);
  return total / divisor;
}

}  // namespace

NuvikConfig::NuvikConfig(const std::vector<int>& params, const std::string& name)
    : NuvikConfig(params, std::vector<std::string>(params.size(), name)) {}

NuvikConfig::NuvikConfig(const std::vector<int>& params, const std::vector<std::string>& names)
    : params(params),
      names(names),
      countLimit(60),
      weightThreshold(0.5),
      killThreshold(0.05),
      skipRepeats(false) {
  if (this->names.empty()) this->names.push_back(kStatCounterName);
  if (this->params.size() < this->names.size()) this->params.resize(this->names.size(), 1);
  while (this->names.size() < this->params.size()) this->names.push_back(this->names.back());
}

NuvikConfig::NuvikConfig(std::vector<std::string> names, bool skipRepeats, unsigned long countLimit,
                         double weightThreshold, double killThreshold)
    : NuvikConfig(std::vector<int>(names.size(), 1), names) {
  this->countLimit = countLimit;
  this->weightThreshold = weightThreshold;
  this->killThreshold = killThreshold;
  this->skipRepeats = skipRepeats;
}

Nuvik::Nuvik() : Nuvik(std::vector<int>{1}, kStatCounterName) {}

Nuvik::Nuvik(const std::string& name) : Nuvik(std::vector<int>{1}, name) {}

Nuvik::Nuvik(int param, const std::string& name) : Nuvik(std::vector<int>{param}, name) {}

Nuvik::Nuvik(const std::vector<int>& params, const std::string& name) : Nuvik(NuvikConfig(params, name)) {}

Nuvik::Nuvik(const std::vector<int>& params, const std::vector<std::string>& names)
    : Nuvik(NuvikConfig(params, names)) {}

Nuvik::Nuvik(const std::vector<std::string>& names) : Nuvik(NuvikConfig(names, false, 60, 0.5, 0.05)) {}

Nuvik::Nuvik(const NuvikConfig& config)
    : pastNextLists(kMetricsWindow + 1),
      config(config),
      predictorNames(config.names),
      predictorTypes{kLinearName, kDoubleLinearName, kKnnRegressionName, kStatCounterName, kMarkovChain3Name},
      predictorParams(config.params) {
  // A caller may have edited the fields to hold fewer names than parameters.
  while (predictorNames.size() < predictorParams.size()) {
    predictorNames.push_back(predictorNames.empty() ? kStatCounterName : predictorNames.back());
  }
  predictors.resize(predictorParams.size());
  for (std::size_t i = 0; i < predictors.size(); ++i) {
    predictors[i] = PredictorFactory(predictorNames[i], predictorParams[i]);
  }
}

Nuvik::~Nuvik() = default;

std::unique_ptr<Predictor> Nuvik::PredictorFactory(const std::string& name, int param) const {
  if (name == kStatCounterName) return std::make_unique<StatCounter>();
  // The kernel selector is param - 1 in 32-bit arithmetic: INT_MIN wraps to INT_MAX.
  if (name == kKnnRegressionName) return std::make_unique<KnnRegression>(WrappingAdd(param, -1));
  if (name == kMarkovChain3Name) return std::make_unique<MarkovChain3>();
  if (name == kLinearName) return std::make_unique<Linear>();
  if (name == kDoubleLinearName) return std::make_unique<DoubleLinear>();
  // Unknown names fall back to the popularity counter.
  return std::make_unique<StatCounter>();
}

void Nuvik::Clear() {
  // After a load the ensemble may hold more slots than the configuration;
  // those are rebuilt from their own type with parameter 1.
  const std::size_t configured = std::min(predictorNames.size(), predictorParams.size());
  for (std::size_t i = 0; i < predictors.size(); ++i) {
    predictors[i] = i < configured ? PredictorFactory(predictorNames[i], predictorParams[i])
                                   : PredictorFactory(predictors[i]->name, 1);
  }
}

void Nuvik::Update(const Item& item) {
  if (config.skipRepeats && item.app == lastItem.app) return;
  lastItem = item;
  const AppId app = IdOf(item.app);
  UpdateModel(item, app);
  if (!known[app]) AddKnownApp(app);
}

void Nuvik::Update(const std::string& app, const std::tm& time) { Update(Item{app, time, ""}); }

void Nuvik::UpdateModel(const Item& item, AppId app) {
  const Updater updater{item.tag, item.app, item.time.tm_hour, item.time.tm_min};
  UpdateMetrics(item, app);
  for (const auto& predictor : predictors) predictor->Update(updater);
}

Nuvik::AppId Nuvik::IdOf(const std::string& app) {
  const auto it = appIds.find(app);
  if (it != appIds.end()) return it->second;
  const auto id = static_cast<AppId>(appNames.size());
  appNames.push_back(app);
  appIds.emplace(appNames.back(), id);
  known.push_back(false);
  weighted.push_back(false);
  weights.push_back(0.0);
  priorities.push_back(0);
  nameRank.push_back(0);
  return id;
}

bool Nuvik::FindId(const std::string& app, AppId& id) const {
  const auto it = appIds.find(app);
  if (it == appIds.end()) return false;
  id = it->second;
  return true;
}

void Nuvik::AddKnownApp(AppId app) {
  known[app] = true;
  const std::string& name = appNames[app];
  const auto position = std::lower_bound(knownNames.begin(), knownNames.end(), name,
                                         [](const std::string* other, const std::string& key) { return *other < key; });
  const auto index = static_cast<std::size_t>(position - knownNames.begin());
  knownNames.insert(position, &name);
  knownApps.insert(knownApps.begin() + static_cast<std::ptrdiff_t>(index), app);
  for (std::size_t i = index; i < knownApps.size(); ++i) nameRank[knownApps[i]] = static_cast<std::uint32_t>(i);
  ++knownRevision;
}

void Nuvik::ReplaceKnownApps(const std::set<std::string>& apps) {
  for (const AppId app : knownApps) known[app] = false;
  knownApps.clear();
  knownNames.clear();
  for (const std::string& name : apps) {
    const AppId app = IdOf(name);
    known[app] = true;
    nameRank[app] = static_cast<std::uint32_t>(knownApps.size());
    knownApps.push_back(app);
    knownNames.push_back(&appNames[app]);
  }
  ++knownRevision;
}

void Nuvik::PrepareLists(const std::tm& time) {
  const std::size_t count = knownApps.size();
  if (count == 0) {
    nextList.clear();
    return;
  }
  // Each slot scores every application at once: the same as asking it for one
  // application after the other, since no slot sees another.
  const AppList apps{knownNames, knownRevision};
  slotScores.resize(count * predictors.size());
  for (std::size_t slot = 0; slot < predictors.size(); ++slot) {
    predictors[slot]->ScoreApps(time, apps, slotScores.data() + slot * count);
  }
  nextList.resize(count);
  CombineScores(slotScores, [this](std::size_t i, double combined) {
    const AppId app = knownApps[i];
    weights[app] = combined;
    weighted[app] = true;
    nextList[i] = RankedApp{RankKey(combined), static_cast<std::uint32_t>(i), app};
  });
}

// Priorities lift every slot's score before the combination rule. Only one
// or two slots are read: any other number of slots combines to 0.0. The last
// name comes first.
template <typename Use>
void Nuvik::CombineScores(const std::vector<double>& scores, Use use) const {
  const std::size_t count = knownApps.size();
  const auto bonus = [this](std::size_t i) {
    const int priority = priorities[knownApps[i]];
    return priority == 0 ? 0.0 : (1.0 / static_cast<double>(priority)) * kPriorityScale;
  };
  if (predictors.size() == 1) {
    for (std::size_t i = count; i-- > 0;) {
      const double lift = bonus(i);
      use(i, lift == 0.0 ? scores[i] : scores[i] + lift);
    }
  } else if (predictors.size() == 2) {
    for (std::size_t i = count; i-- > 0;) {
      const double lift = bonus(i);
      const double first = lift == 0.0 ? scores[i] : scores[i] + lift;
      const double second = lift == 0.0 ? scores[count + i] : scores[count + i] + lift;
      use(i, second * 0.9 + first * 0.1);
    }
  } else {
    for (std::size_t i = count; i-- > 0;) use(i, 0.0);
  }
}

// The scores of every slot at `time`, as PrepareLists(time) gets them, from
// predictors that change nothing; not asked when the rule ignores them.
const std::vector<double>& Nuvik::SlotScoresAt(const std::tm& time) const {
  const std::size_t count = knownApps.size();
  if (count == 0 || (predictors.size() != 1 && predictors.size() != 2)) return slotScores;
  const AppList apps{knownNames, knownRevision};
  slotScores.resize(count * predictors.size());
  for (std::size_t slot = 0; slot < predictors.size(); ++slot) {
    predictors[slot]->ScoreAppsAt(time, apps, slotScores.data() + slot * count);
  }
  return slotScores;
}

std::vector<std::string> Nuvik::GetNext() const {
  std::vector<RankedApp> sorted = nextList;
  return Names(sorted, sorted.size());
}

std::vector<std::string> Nuvik::Names(std::vector<RankedApp>& list, std::size_t count) const {
  count = std::min(count, list.size());
  const auto end = list.begin() + static_cast<std::ptrdiff_t>(count);
  const auto higher = [](const RankedApp& a, const RankedApp& b) { return RanksHigher(a, b); };
  if (count == list.size()) {
    std::sort(list.begin(), list.end(), higher);
  } else {
    std::nth_element(list.begin(), end, list.end(), higher);
    std::sort(list.begin(), end, higher);
  }
  std::vector<std::string> names;
  names.reserve(count);
  for (auto entry = list.begin(); entry != end; ++entry) names.push_back(appNames[entry->app]);
  return names;
}

std::vector<std::string> Nuvik::GetNextAt(const std::tm& time) const { return GetNextAt(time, knownApps.size()); }

std::vector<std::string> Nuvik::GetNextAt(const std::tm& time, std::size_t count) const {
  constexpr std::size_t kShortRow = 32;
  count = std::min(count, knownApps.size());
  std::vector<RankedApp>& list = nextListAt;
  list.clear();
  if (count == 0) return {};
  if (count > kShortRow || count == knownApps.size()) {
    CombineScores(SlotScoresAt(time), [this, &list](std::size_t i, double combined) {
      list.push_back(RankedApp{RankKey(combined), static_cast<std::uint32_t>(i), knownApps[i]});
    });
    return Names(list, count);
  }
  // A short row out of many, kept in rank order as the scores come, the last
  // name first: an application then ranks below every one kept with the same
  // key, so most cost one comparison with the lowest of the row.
  list.resize(count);
  std::size_t kept = 0;
  CombineScores(SlotScoresAt(time), [this, &list, &kept, count](std::size_t i, double combined) {
    const std::uint64_t key = RankKey(combined);
    if (kept == count) {
      if (key <= list[count - 1].key) return;
      --kept;
    }
    std::size_t j = kept++;
    for (; j > 0 && list[j - 1].key < key; --j) list[j] = list[j - 1];
    list[j] = RankedApp{key, static_cast<std::uint32_t>(i), knownApps[i]};
  });
  std::vector<std::string> names;
  names.reserve(count);
  for (const RankedApp& entry : list) names.push_back(appNames[entry.app]);
  return names;
}

std::vector<double> Nuvik::GetWeightsAt(const std::tm& time, const std::vector<std::string>& apps) const {
  std::vector<double> combined(knownApps.size());
  CombineScores(SlotScoresAt(time), [&combined](std::size_t i, double score) { combined[i] = score; });
  std::vector<double> result;
  result.reserve(apps.size());
  for (const std::string& app : apps) {
    AppId id;
    if (!FindId(app, id)) {
      result.push_back(0.0);
    } else {
      result.push_back(known[id] ? combined[nameRank[id]] : weighted[id] ? weights[id] : 0.0);
    }
  }
  return result;
}

// The next list places every known application, which leaves none for the
// soon and kill lists.
std::vector<std::string> Nuvik::GetSoon() const { return {}; }

std::vector<std::string> Nuvik::GetKill() const { return {}; }

double Nuvik::GetSoonWeight(const std::vector<double>& scores) const {
  if (scores.size() == 2) return scores[1] * 0.9 + scores[0] * 0.1;
  if (scores.size() == 1) return scores[0];
  return 0.0;
}

double Nuvik::GetWeightSingle(const std::string& app) const {
  AppId id;
  return FindId(app, id) && weighted[id] ? weights[id] : 0.0;
}

double Nuvik::GetWeightSingleDet(const std::string& app) const {
  AppId id;
  return FindId(app, id) && weighted[id] ? weights[id] : -1.0;
}

std::vector<double> Nuvik::GetWeights(const std::vector<std::string>& apps) const {
  std::vector<double> result;
  result.reserve(apps.size());
  for (const std::string& app : apps) result.push_back(GetWeightSingle(app));
  return result;
}

std::map<std::string, double> Nuvik::GetAllWeights() const {
  std::map<std::string, double> result;
  for (const AppId app : knownApps) {
    result.emplace_hint(result.end(), appNames[app], weighted[app] ? weights[app] : 0.0);
  }
  return result;
}

void Nuvik::ResetPriority() { std::fill(priorities.begin(), priorities.end(), 0); }

void Nuvik::SetAppsPriority(const std::vector<std::pair<std::string, int>>& list) {
  for (const auto& [app, priority] : list) priorities[IdOf(app)] = priority;
}

void Nuvik::UpdateMetrics(const Item& item, AppId app) {
  PrepareLists(item.time);
  const std::size_t seen = recentLaunches.size();
  if (seen < kMetricsWindow) {
    pastNextLists[seen] = nextList;
    recentLaunches.push_back(app);
    return;
  }
  ++countMetrics;
  const std::size_t top = std::max<std::size_t>(std::min<std::size_t>(nextList.size(), 5), 1);
  if (known[app] && Position(nextList, nextList[nameRank[app]], top) < top) sumRecall += 1.0;
  pastNextLists[kMetricsWindow] = nextList;
  const double precision = AveragePrecision(pastNextLists[0], recentLaunches);
  std::rotate(pastNextLists.begin(), pastNextLists.begin() + 1, pastNextLists.end());
  recentLaunches.pop_front();
  recentLaunches.push_back(app);
  sumMap += precision;
}

std::uint64_t Nuvik::GetCountMetrics() const { return countMetrics; }

void Nuvik::ClearMetrics() {
  sumMap = 0.0;
  sumRecall = 0.0;
  countMetrics = 0;
}

double Nuvik::GetMapMetric() const { return sumMap / static_cast<double>(countMetrics); }

double Nuvik::GetRecallMetric() const { return sumRecall / static_cast<double>(countMetrics); }

double Nuvik::GetSumMap() const { return sumMap; }

double Nuvik::GetSumRecall() const { return sumRecall; }

std::uint64_t Nuvik::GetCountKnownApps() const { return knownApps.size(); }

// Writes the text that jsoncpp's compact writer makes of the document's
// value, without building it: members in key order, empty collections as
// null. The document holds integers (unsigned, and signed for Linear's
// history), strings and nulls; no floating-point number.
std::ostream& Nuvik::SerializeJson(std::ostream& os) const {
  using namespace FacadeKeys;
  JsonWriter out(os);
  out.BeginObject();
  out.Key(kCount);
  out.UInt64(predictors.size());
  out.Key(kKnownApps);
  ArrayOrNull apps(out);
  for (const std::string* app : knownNames) apps.Element().String(*app);
  apps.End();
  out.Key(kModels);
  ArrayOrNull models(out);
  for (const auto& predictor : predictors) {
    if (predictorTypes.count(predictor->name) == 0) continue;
    models.Element().BeginObject();
    out.Key(kModel);
    predictor->WriteJson(out);
    out.Key(kName);
    out.String(predictor->name);
    out.EndObject();
  }
  models.End();
  out.Key(kVersion);
  out.UInt64(kDocumentVersion);
  out.EndObject();
  out.Flush();
  return os;
}

void SetLoadPath(LoadPath path) { loadPath = path; }

LoadPath GetLoadPath() { return loadPath; }

std::istream& Nuvik::DeserializeJson(std::istream& is) {
  const std::string text = ReadWhole(is);

  std::vector<std::unique_ptr<Predictor>> loaded;
  std::set<std::string> loadedApps;
  bool accepted = false;
  bool readByDom = false;
  if (loadPath == LoadPath::kSimdjsonFirst) {
    DomDocument document;
    if (document.Parse(text)) {
      accepted = ProcessJson(document.Root(), loaded, loadedApps);
      readByDom = !document.unsupported();
    }
  }
  if (!readByDom) {
    loaded.clear();
    loadedApps.clear();
    Json::Value root;
    std::string errors;
    const std::unique_ptr<Json::CharReader> reader(Json::CharReaderBuilder().newCharReader());
    accepted = reader->parse(text.data(), text.data() + text.size(), &root, &errors) &&
               ProcessJson(root, loaded, loadedApps);
  }
  if (!accepted) {
    is.setstate(std::ios_base::badbit);
    return is;
  }
  predictors = std::move(loaded);
  // A list that held no names keeps the applications already known.
  if (!loadedApps.empty()) ReplaceKnownApps(loadedApps);
  return is;
}

template <typename Value>
bool Nuvik::ProcessJson(const Value& root, std::vector<std::unique_ptr<Predictor>>& loaded,
                        std::set<std::string>& loadedApps) const {
  using namespace FacadeKeys;
  if (root.empty() || !root.isObject()) return false;
  if (!root.isMember(kKnownApps) || !root.isMember(kCount) || !root.isMember(kModels) ||
      !root.isMember(kVersion)) {
    return false;
  }
  const Value& version = root[kVersion];
  if (version.empty() || !version.isUInt64() || version.asUInt64() != kDocumentVersion) return false;
  const Value& apps = root[kKnownApps];
  if (apps.empty() || !apps.isArray()) return false;
  for (const Value& app : apps) {
    if (app.isString()) loadedApps.insert(app.asString());
  }
  loaded = ParsePredictors(root[kModels], root[kCount]);
  return !loaded.empty();
}

template <typename Value>
std::vector<std::unique_ptr<Predictor>> Nuvik::ParsePredictors(const Value& models, const Value& count) const {
  if (count.empty() || !count.isUInt64() || count.asUInt64() == 0) return {};
  if (models.empty() || !models.isArray() || count.asUInt64() != models.size()) return {};
  std::vector<std::unique_ptr<Predictor>> result;
  for (const Value& entry : models) {
    std::unique_ptr<Predictor> predictor = ParsePredictor(entry);
    if (!predictor) return {};
    result.push_back(std::move(predictor));
  }
  return result;
}

template <typename Value>
std::unique_ptr<Predictor> Nuvik::ParsePredictor(const Value& entry) const {
  using namespace FacadeKeys;
  if (entry.empty() || !entry.isObject() || !entry.isMember(kName) || !entry.isMember(kModel)) return nullptr;
  const Value& model = entry[kModel];
  if (model.empty() || (!model.isObject() && !model.isArray())) return nullptr;
  const Value& name = entry[kName];
  if (!name.isString() || predictorTypes.count(name.asString()) == 0) return nullptr;
  // Parameter 1 is every type's default construction; the model carries the rest.
  std::unique_ptr<Predictor> predictor = PredictorFactory(name.asString(), 1);
  if (!predictor->DeserializeJson(model)) return nullptr;
  return predictor;
}

std::string Nuvik::GetLibraryInfo() const { return "NUVIK library 1." + std::to_string(kDocumentVersion); }

std::string Nuvik::PrintNuvikInfo() const {
  std::string list;
  for (const auto& predictor : predictors) list += (list.empty() ? "" : ", ") + predictor->name;
  return GetLibraryInfo() + " [ predictors list: " + list + " ]";
}

std::ostream& operator<<(std::ostream& os, const Nuvik& nuvik) { return nuvik.SerializeJson(os); }

std::istream& operator>>(std::istream& is, Nuvik& nuvik) { return nuvik.DeserializeJson(is); }

}  // namespace NuvikPrediction
