// Runs the nuvik-replay executable as a user would.
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <json/json.h>
#include <nuvik/Nuvik.h>

#include "replay/LaunchLog.h"
#include "replay/Replay.h"

namespace NuvikReplay {
namespace {

struct Outcome {
  int status;
  std::string output;  // standard output
  std::string errors;  // standard error
};

std::string Read(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(in), {});
}

std::string Quote(const std::string& text) { return "'" + text + "'"; }

class ReplayCliTest : public ::testing::Test {
 protected:
  void SetUp() override {
    char pattern[] = "/tmp/nuvik-cli-test-XXXXXX";
    ASSERT_NE(mkdtemp(pattern), nullptr);
    directory_ = pattern;
  }
  void TearDown() override { std::system(("rm -rf " + Quote(directory_)).c_str()); }

  // Runs the tool with `arguments` (already quoted for the shell).
  Outcome Run(const std::string& arguments, const std::string& input = "") const {
    const std::string errors = directory_ + "/stderr";
    const std::string command = input + Quote(NUVIK_REPLAY_BIN) + " " + arguments + " 2>" + Quote(errors);
    FILE* pipe = popen(command.c_str(), "r");
    std::string output;
    char buffer[4096];
    for (std::size_t n; (n = std::fread(buffer, 1, sizeof buffer, pipe)) > 0;) output.append(buffer, n);
    const int status = pclose(pipe);
    return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, output, Read(errors)};
  }

  std::string Write(const std::string& name, const std::string& content) const {
    const std::string path = directory_ + "/" + name;
    std::ofstream(path, std::ios::binary) << content;
    return path;
  }

  std::string directory_;
};

Json::Value Parse(const std::string& text) {
  Json::Value value;
  std::istringstream in(text);
  std::string errors;
  EXPECT_TRUE(Json::parseFromStream(Json::CharReaderBuilder(), in, &value, &errors)) << errors << text;
  return value;
}

TEST_F(ReplayCliTest, ComparesEnsemblesOnTheSampleLogWithTheFacadesOwnNumbers) {
  const char* const ensembles[] = {"stat_counter", "stat_counter,markov_chain3_invalidate", "knn_regression:5,linear"};
  std::string compare;
  for (const char* ensemble : ensembles) compare += std::string(" ") + ensemble;
  const Outcome run = Run(Quote(NUVIK_SAMPLE_LOG) + " --per-user --format json --jobs 2 --compare" + compare);
  ASSERT_EQ(run.status, 0) << run.errors;
  EXPECT_EQ(run.errors, "");
  const Json::Value report = Parse(run.output);

  const LaunchLog log = ReadLaunchLog(NUVIK_SAMPLE_LOG, {});
  EXPECT_EQ(report["launches"].asUInt64(), log.launchCount);
  EXPECT_EQ(report["users"].asUInt64(), log.users.size());
  EXPECT_EQ(report["apps"].asUInt64(), log.apps.size());
  const Json::Value& results = report["results"];
  ASSERT_EQ(results.size(), 5u);
  for (Json::ArrayIndex r = 0; r < results.size(); ++r) {
    const Json::Value& result = results[r];
    const bool baseline = r >= 3;
    EXPECT_EQ(result["baseline"].asBool(), baseline);
    ASSERT_EQ(result["perUser"].size(), log.users.size());
    double sumMap = 0.0;
    std::uint64_t scored = 0;
    for (Json::ArrayIndex u = 0; u < log.users.size(); ++u) {
      const Json::Value& user = result["perUser"][u];
      EXPECT_EQ(user["user"].asString(), log.users[u].name);
      EXPECT_EQ(user["launches"].asUInt64(), log.users[u].launches.size());
      UserResult expected;
      if (baseline) {
        const Baseline kind = r == 3 ? Baseline::kMostRecentlyUsed : Baseline::kMostFrequentlyUsed;
        expected = ReplayBaseline(log, log.users[u], kind, {});
      } else {
        EXPECT_EQ(result["name"].asString(), ensembles[r]);
        NuvikPrediction::Nuvik nuvik(MakeConfig(ParseEnsemble(ensembles[r]), false, 0.05));
        for (const Launch& launch : log.users[u].launches) nuvik.Update(log.apps[launch.app], ToTm(launch.time));
        expected.scored = nuvik.GetCountMetrics();
        expected.sumMap = nuvik.GetSumMap();
        expected.sumRecall = nuvik.GetSumRecall();
      }
      EXPECT_EQ(user["scored"].asUInt64(), expected.scored);
      EXPECT_EQ(user["sumMap"].asDouble(), expected.sumMap);
      EXPECT_EQ(user["sumRecall"].asDouble(), expected.sumRecall);
      sumMap += expected.sumMap;
      scored += expected.scored;
    }
    EXPECT_EQ(result["sumMap"].asDouble(), sumMap);
    EXPECT_EQ(result["scored"].asUInt64(), scored);
    EXPECT_EQ(result["map"].asDouble(), sumMap / static_cast<double>(scored));
    EXPECT_GT(result["microsPerLaunch"].asDouble(), 0.0);
  }

  // The built-in log is the sample file; the table shows the same runs.
  const Outcome table = Run("--compare" + compare);
  ASSERT_EQ(table.status, 0) << table.errors;
  EXPECT_EQ(table.output.rfind("sample-launches.csv (built in): " + std::to_string(log.launchCount) + " launches", 0),
            0u);
  for (const char* row : {"ensemble ", "\nstat_counter,markov_chain3_invalidate ", "\nbaseline: most recently used ",
                          "\nbaseline: most frequently used "}) {
    EXPECT_NE(table.output.find(row), std::string::npos) << row;
  }
  // Gzip on standard input gives the same numbers.
  const Outcome piped = Run("- --format json --compare" + compare, "gzip -c " + Quote(NUVIK_SAMPLE_LOG) + " | ");
  ASSERT_EQ(piped.status, 0) << piped.errors;
  EXPECT_EQ(Parse(piped.output)["results"][1]["sumMap"], results[1]["sumMap"]);
}

TEST_F(ReplayCliTest, TracesEachLaunchWithTheTopOfItsList) {
  const std::string log = Write("tiny.csv",
                                "user,timestamp,app\nu,2024-03-04 08:00,a\nu,2024-03-04 08:01,b\n"
                                "u,2024-03-04 08:02,a\nu,2024-03-04 08:03,a\n");
  const Outcome run = Run(Quote(log) + " --trace --skip-repeats");
  ASSERT_EQ(run.status, 0) << run.errors;
  EXPECT_EQ(run.output.substr(0, run.output.find("\n\n") + 1),
            "[stat_counter] u 2024-03-04 08:00:00 a (new) |\n"
            "[stat_counter] u 2024-03-04 08:01:00 b (new) | a\n"
            "[stat_counter] u 2024-03-04 08:02:00 a (#2) | b, a\n"  // equal shares: the greater name first
            "[stat_counter] u 2024-03-04 08:03:00 a (repeat, skipped)\n" +
                log + ": 4 launches, 1 user, 2 apps\n");
}

TEST_F(ReplayCliTest, ReportsMistakesWithAReasonAndAnExitStatus) {
  const Outcome unknown = Run("--bogus");
  EXPECT_EQ(unknown.status, 2);
  EXPECT_EQ(unknown.errors,
            "nuvik-replay: The following argument was not expected: --bogus\nRun 'nuvik-replay --help' for usage.\n");
  EXPECT_EQ(Run("--compare stat_counter,lineal").status, 2);
  const Outcome misplaced = Run("--compare stat_counter " + Quote(NUVIK_SAMPLE_LOG));
  EXPECT_EQ(misplaced.status, 2);
  EXPECT_EQ(misplaced.errors.rfind("nuvik-replay: '" NUVIK_SAMPLE_LOG "' is no ensemble: put the log before", 0), 0u);

  const std::string missing = directory_ + "/missing.csv";
  const Outcome absent = Run(Quote(missing));
  EXPECT_EQ(absent.status, 1);
  EXPECT_EQ(absent.errors, "nuvik-replay: cannot open '" + missing + "': No such file or directory\n");

  const std::string log = Write("bad.csv",
                                "timestamp,app\n2024-03-04 08:00,a\n2024-03-04 08:01,\n"
                                "2024-03-04 08:02,b\n");
  const Outcome bad = Run(Quote(log));
  EXPECT_EQ(bad.status, 1);
  EXPECT_EQ(bad.output, "");
  EXPECT_EQ(bad.errors, "nuvik-replay: " + log + ":3: empty app\n");
  const Outcome skipped = Run(Quote(log) + " --skip-bad-rows --format json");
  EXPECT_EQ(skipped.status, 0);
  EXPECT_EQ(skipped.errors, "nuvik-replay: skipped 1 bad row:\n  " + log + ":3: empty app\n");
  EXPECT_EQ(Parse(skipped.output)["badRows"].asUInt64(), 1u);
}

TEST_F(ReplayCliTest, SavesLoadsAndPlots) {
  const std::string models = directory_ + "/models";
  const std::string plot = directory_ + "/plot.svg";
  const Outcome saved = Run(Quote(NUVIK_SAMPLE_LOG) + " --save " + Quote(models) + " --plot " + Quote(plot));
  ASSERT_EQ(saved.status, 0) << saved.errors;
  for (const char* user : {"user1", "user2", "user3", "user4"}) {
    EXPECT_EQ(Read(models + "/" + user + ".json").rfind("{\"count\":1,", 0), 0u) << user;
  }
  const std::string svg = Read(plot);
  EXPECT_EQ(svg.rfind("<svg ", 0), 0u);
  for (const char* text : {"Running MAP and recall@5 on sample-launches.csv", ">stat_counter<",
                           ">baseline: most frequently used<", "<polyline", "</svg>"}) {
    EXPECT_NE(svg.find(text), std::string::npos) << text;
  }

  const Outcome loaded = Run(Quote(NUVIK_SAMPLE_LOG) + " --load " + Quote(models) + " --save " + Quote(models));
  EXPECT_EQ(loaded.status, 0) << loaded.errors;
  EXPECT_EQ(loaded.errors, "");

  Write("models/user2.json", "{\"count\":");
  const Outcome rejected = Run(Quote(NUVIK_SAMPLE_LOG) + " --load " + Quote(models));
  EXPECT_EQ(rejected.status, 1);
  EXPECT_EQ(rejected.errors, "nuvik-replay: " + models +
                                 "/user2.json: document rejected: not a saved model of this library, or damaged\n");
  const Outcome unwritable = Run(Quote(NUVIK_SAMPLE_LOG) + " --save " + Quote(directory_ + "/no/such/dir"));
  EXPECT_EQ(unwritable.status, 1);
  EXPECT_EQ(unwritable.output, "");  // checked before the replay
  EXPECT_EQ(unwritable.errors.rfind("nuvik-replay: cannot create directory '" + directory_ + "/no/such/dir'", 0), 0u);
}

}  // namespace
}  // namespace NuvikReplay
