// Save and load of two documents of a ["markov_chain3_invalidate",
// "double_linear"] facade:
//   synthetic  1000 applications, 100,000 launches. The predictors learn
//              directly (a facade would also rank every launch, which changes
//              nothing that is saved), then the facade loads them.
//   real_log   user u00 of the shared StudentLife log replayed through the
//              facade; read from $NUVIK_SHARED_DATA or the shared data beside
//              the source tree, skipped when absent.
// Saving is timed twice on the same state: the facade's direct writer, and
// the jsoncpp tree that the facade used to build and write ("Tree", kept by
// the tests' reference facade), both checked to give the same bytes first.
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <sstream>

#include <benchmark/benchmark.h>
#include <json/json.h>

#include "BenchUtil.h"
#include "DoubleLinear.h"
#include "MarkovChain3.h"
#include "ReferenceFacade.h"
#include "TrainedDocument.h"

namespace NuvikPrediction::bench {
namespace {

constexpr int kApps = 1000;
constexpr int kLaunches = 100000;
const std::vector<std::string> kEnsemble = {"markov_chain3_invalidate", "double_linear"};
const char* const kRealLog = "studentlife_u00_u02/launches.csv";

std::string BuildSyntheticDocument() { return TrainedDocument(kApps, kLaunches); }

std::string RealLogPath() {
  const char* directory = std::getenv("NUVIK_SHARED_DATA");
  return std::string(directory != nullptr ? directory : NUVIK_SHARED_DATA) + "/" + kRealLog;
}

// A facade, the reference that follows it with the old tree writer, and the
// document of their state.
struct Subject {
  Subject() : nuvik(kEnsemble), reference(NuvikConfig(kEnsemble, false, 60, 0.5, 0.05)) {}

  Nuvik nuvik;
  testing::ReferenceFacade reference;
  std::string document;
};

void LoadInto(Nuvik& nuvik, const std::string& document) {
  std::istringstream in(document);
  in >> nuvik;
  if (in.bad()) std::abort();
}

// Both writers must give the same bytes.
void Check(Subject& subject) {
  std::ostringstream out;
  out << subject.nuvik;
  subject.document = out.str();
  if (subject.reference.Save() != subject.document) std::abort();
}

std::unique_ptr<Subject> BuildSynthetic() {
  auto subject = std::make_unique<Subject>();
  const std::string document = BuildSyntheticDocument();
  LoadInto(subject->nuvik, document);
  if (!subject->reference.Load(document)) std::abort();
  Check(*subject);
  return subject;
}

// User u00 of the real log, launch by launch; null when the log is absent.
std::unique_ptr<Subject> BuildRealLog() {
  std::ifstream log(RealLogPath());
  if (!log) return nullptr;
  auto subject = std::make_unique<Subject>();
  std::string line;
  std::getline(log, line);  // header: user,timestamp,app
  while (std::getline(log, line)) {
    if (line.rfind("u00,", 0) != 0) continue;
    const std::size_t comma = line.find(',', 4);
    std::tm time{};
    if (comma == std::string::npos ||
        std::sscanf(line.c_str() + 4, "%d-%d-%d %d:%d:%d", &time.tm_year, &time.tm_mon, &time.tm_mday, &time.tm_hour,
                    &time.tm_min, &time.tm_sec) != 6) {
      continue;
    }
    time.tm_year -= 1900;
    time.tm_mon -= 1;
    const std::string app = line.substr(comma + 1);
    subject->nuvik.Update(app, time);
    subject->reference.Update(app, time);
  }
  Check(*subject);
  return subject;
}

// The subject named by the benchmark's argument, built once; null (with the
// benchmark skipped) when the real log is absent.
Subject* Fetch(benchmark::State& state) {
  const bool realLog = state.range(0) != 0;
  state.SetLabel(realLog ? "real_log" : "synthetic");
  static std::unique_ptr<Subject> subjects[2];
  static bool built[2] = {false, false};
  if (!built[realLog]) subjects[realLog] = realLog ? BuildRealLog() : BuildSynthetic();
  built[realLog] = true;
  Subject* subject = subjects[realLog].get();
  if (subject == nullptr) {
    state.SkipWithError(("real log not found at " + RealLogPath() + "; set NUVIK_SHARED_DATA").c_str());
  }
  return subject;
}

void Report(benchmark::State& state, std::size_t bytes) {
  state.counters["document_bytes"] = static_cast<double>(bytes);
  state.counters["speed"] = benchmark::Counter(static_cast<double>(bytes), benchmark::Counter::kIsIterationInvariantRate);
}

void BM_LoadDocument(benchmark::State& state) {
  const Subject* subject = Fetch(state);
  if (subject == nullptr) return;
  for (auto _ : state) {
    Nuvik nuvik(kEnsemble);
    LoadInto(nuvik, subject->document);
  }
  Report(state, subject->document.size());
}

void BM_SaveDocument(benchmark::State& state) {
  const Subject* subject = Fetch(state);
  if (subject == nullptr) return;
  for (auto _ : state) {
    std::ostringstream out;
    out << subject->nuvik;
    benchmark::DoNotOptimize(out);
  }
  Report(state, subject->document.size());
}

void BM_SaveDocumentTree(benchmark::State& state) {
  const Subject* subject = Fetch(state);
  if (subject == nullptr) return;
  for (auto _ : state) benchmark::DoNotOptimize(subject->reference.Save());
  Report(state, subject->document.size());
}

BENCHMARK(BM_LoadDocument)->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_SaveDocumentTree)->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_SaveDocument)->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond);

}  // namespace
}  // namespace NuvikPrediction::bench
