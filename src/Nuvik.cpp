#include "nuvik/Nuvik.h"

#include <algorithm>
#include <cmath>
#include <istream>
#include <ostream>
#include <streambuf>

#include <json/json.h>

#include "Constants.h"
#include "DomDocument.h"
#include "DoubleLinear.h"
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

struct RankedApp {
  double score;
  std::size_t nameRank;    // position of the name in name order
  const std::string* app;  // points into knownApps
};

// Descending order of (score, name): among equal scores the greater name comes
// first, and NaN scores rank below every number, tying among themselves, so
// that sorting gets a strict weak order.
bool RanksHigher(const RankedApp& a, const RankedApp& b) {
  const bool aNan = std::isnan(a.score);
  const bool bNan = std::isnan(b.score);
  if (aNan != bNan) return bNan;
  if (!aNan && a.score != b.score) return a.score > b.score;
  return a.nameRank > b.nameRank;
}

double Combine(const std::vector<double>& scores) {
  if (scores.size() == 2) return scores[1] * 0.9 + scores[0] * 0.1;
  if (scores.size() == 1) return scores[0];
  return 0.0;
}

// Average precision of `list` against the distinct applications of `launched`.
double AveragePrecision(const std::vector<std::string>& list, const std::deque<std::string>& launched) {
  const std::set<std::string> relevant(launched.begin(), launched.end());
  double total = 0.0;
  int hits = 0;
  for (std::size_t i = 0; i < list.size(); ++i) {
    if (relevant.count(list[i]) == 0) continue;
    ++hits;
    total += static_cast<double>(hits) / static_cast<double>(i + 1);
  }
  const double divisor = list.empty() ? 5.0 : static_cast<double>(relevant.size());
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
  UpdateModel(item);
  knownApps.insert(item.app);
}

void Nuvik::Update(const std::string& app, const std::tm& time) { Update(Item{app, time, ""}); }

void Nuvik::UpdateModel(const Item& item) {
  const Updater updater{item.tag, item.app, item.time.tm_hour, item.time.tm_min};
  UpdateMetrics(item);
  for (const auto& predictor : predictors) predictor->Update(updater);
}

void Nuvik::PrepareLists(const std::tm& time) {
  std::vector<RankedApp> ranked;
  ranked.reserve(knownApps.size());
  std::vector<double> scores(predictors.size());
  auto weight = weights.begin();
  for (const std::string& app : knownApps) {
    const auto priority = priorities.find(app);
    const bool lifted = priority != priorities.end() && priority->second != 0;
    for (std::size_t i = 0; i < predictors.size(); ++i) {
      predictors[i]->UpdateTime(time);
      scores[i] = predictors[i]->GetPrediction(app);
      if (lifted) scores[i] += (1.0 / static_cast<double>(priority->second)) * kPriorityScale;
    }
    const double combined = Combine(scores);
    ranked.push_back({combined, ranked.size(), &app});
    // Applications come in key order, so each one lands right after the previous.
    weight = std::next(weights.insert_or_assign(weight, app, combined));
  }
  std::sort(ranked.begin(), ranked.end(), RanksHigher);
  nextList.clear();
  for (const RankedApp& entry : ranked) nextList.push_back(*entry.app);
  // The next list places every known application, which leaves none for the
  // soon and kill lists.
  soonList.clear();
  killList.clear();
}

std::vector<std::string> Nuvik::GetNext() const { return nextList; }

std::vector<std::string> Nuvik::GetSoon() const { return soonList; }

std::vector<std::string> Nuvik::GetKill() const { return killList; }

double Nuvik::GetSoonWeight(const std::vector<double>& scores) const { return Combine(scores); }

double Nuvik::GetWeightSingle(const std::string& app) const {
  const auto it = weights.find(app);
  return it == weights.end() ? 0.0 : it->second;
}

double Nuvik::GetWeightSingleDet(const std::string& app) const {
  const auto it = weights.find(app);
  return it == weights.end() ? -1.0 : it->second;
}

std::vector<double> Nuvik::GetWeights(const std::vector<std::string>& apps) const {
  std::vector<double> result;
  result.reserve(apps.size());
  for (const std::string& app : apps) result.push_back(GetWeightSingle(app));
  return result;
}

std::map<std::string, double> Nuvik::GetAllWeights() const {
  std::map<std::string, double> result;
  for (const std::string& app : knownApps) result.emplace_hint(result.end(), app, GetWeightSingle(app));
  return result;
}

void Nuvik::ResetPriority() { priorities.clear(); }

void Nuvik::SetAppsPriority(const std::vector<std::pair<std::string, int>>& list) {
  for (const auto& [app, priority] : list) priorities[app] = priority;
}

void Nuvik::UpdateMetrics(const Item& item) {
  PrepareLists(item.time);
  const std::size_t seen = recentLaunches.size();
  if (seen < kMetricsWindow) {
    pastNextLists[seen] = nextList;
    recentLaunches.push_back(item.app);
    return;
  }
  ++countMetrics;
  const std::size_t top = std::max<std::size_t>(std::min<std::size_t>(nextList.size(), 5), 1);
  if (!nextList.empty() && std::find(nextList.begin(), nextList.begin() + top, item.app) != nextList.begin() + top) {
    sumRecall += 1.0;
  }
  pastNextLists[kMetricsWindow] = nextList;
  const double precision = AveragePrecision(pastNextLists[0], recentLaunches);
  std::rotate(pastNextLists.begin(), pastNextLists.begin() + 1, pastNextLists.end());
  recentLaunches.pop_front();
  recentLaunches.push_back(item.app);
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

std::ostream& Nuvik::SerializeJson(std::ostream& os) const {
  Json::Value root;
  root[FacadeKeys::kVersion] = Json::UInt64{kDocumentVersion};
  Json::Value apps;  // stays null when there are none
  Json::ArrayIndex appIndex = 0;
  for (const std::string& app : knownApps) apps[appIndex++] = app;
  root[FacadeKeys::kKnownApps] = std::move(apps);
  root[FacadeKeys::kCount] = Json::UInt64{predictors.size()};
  Json::Value models;
  Json::ArrayIndex modelIndex = 0;
  for (const auto& predictor : predictors) {
    if (predictorTypes.count(predictor->name) == 0) continue;
    Json::Value& entry = models[modelIndex++];
    entry[FacadeKeys::kName] = predictor->name;
    entry[FacadeKeys::kModel] = predictor->SerializeJson();
  }
  root[FacadeKeys::kModels] = std::move(models);

  Json::StreamWriterBuilder builder;
  builder["indentation"] = "";
  const std::unique_ptr<Json::StreamWriter> writer(builder.newStreamWriter());
  writer->write(root, &os);
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
  if (!loadedApps.empty()) knownApps = std::move(loadedApps);
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
