// Load of two documents by each path: simdjson first (falling back to
// jsoncpp), and jsoncpp alone, which is how every document was read before.
//   large: a ["markov_chain3_invalidate", "double_linear"] facade that knows
//          1000 applications and learned 100,000 launches (as DocumentBench);
//   u00:   the same ensemble after replaying user u00 of the shared
//          studentlife_u00_u02 log (skipped when the log is absent).
#include <fstream>
#include <sstream>

#include <benchmark/benchmark.h>
#include <json/json.h>

#include "BenchUtil.h"
#include "DoubleLinear.h"
#include "LoadPath.h"
#include "MarkovChain3.h"
#include "TrainedDocument.h"

namespace NuvikPrediction::bench {
namespace {

const std::vector<std::string> kEnsemble = {"markov_chain3_invalidate", "double_linear"};

std::string Save(const Nuvik& nuvik) {
  std::ostringstream out;
  out << nuvik;
  return out.str();
}

std::string LargeDocument() { return TrainedDocument(1000, 100000); }

// Rows "user,YYYY-MM-DD hh:mm:ss,app" of user u00, in local time.
std::string U00Document() {
  std::ifstream log(NUVIK_SHARED_DATA_DIR "/studentlife_u00_u02/launches.csv");
  if (!log) return "";
  Nuvik nuvik(kEnsemble);
  std::string line;
  std::getline(log, line);
  while (std::getline(log, line)) {
    const std::size_t first = line.find(',');
    const std::size_t second = line.find(',', first + 1);
    if (line.compare(0, first, "u00") != 0) continue;
    std::tm time{};
    time.tm_hour = std::stoi(line.substr(first + 12, 2));
    time.tm_min = std::stoi(line.substr(first + 15, 2));
    nuvik.Update(line.substr(second + 1), time);
  }
  return Save(nuvik);
}

void BM_Load(benchmark::State& state, const std::string& (*document)(), LoadPath path) {
  const std::string& text = document();
  if (text.empty()) {
    state.SkipWithError("the shared log is missing");
    return;
  }
  SetLoadPath(path);
  for (auto _ : state) {
    Nuvik nuvik(kEnsemble);
    std::istringstream in(text);
    in >> nuvik;
    if (in.bad()) std::abort();
  }
  SetLoadPath(LoadPath::kSimdjsonFirst);
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * text.size()));
  state.counters["document_bytes"] = static_cast<double>(text.size());
}

const std::string& Large() {
  static const std::string document = LargeDocument();
  return document;
}

const std::string& U00() {
  static const std::string document = U00Document();
  return document;
}

BENCHMARK_CAPTURE(BM_Load, large/jsoncpp, Large, LoadPath::kJsoncppOnly)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_Load, large/simdjson, Large, LoadPath::kSimdjsonFirst)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_Load, u00/jsoncpp, U00, LoadPath::kJsoncppOnly)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_Load, u00/simdjson, U00, LoadPath::kSimdjsonFirst)->Unit(benchmark::kMillisecond);

}  // namespace
}  // namespace NuvikPrediction::bench
