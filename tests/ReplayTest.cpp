#include <dirent.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <fstream>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <nuvik/Nuvik.h>

#include "replay/Documents.h"
#include "replay/Errors.h"
#include "replay/LaunchLog.h"
#include "replay/RankingMetrics.h"
#include "replay/Replay.h"
#include "replay/Report.h"
#include "replay/SampleLog.h"

namespace NuvikReplay {
namespace {

using NuvikPrediction::Nuvik;

// Ensembles whose results must not matter to these tests: they hold whatever
// the library builds for these names.
const char* const kEnsembles[] = {"stat_counter", "stat_counter,markov_chain3_invalidate", "knn_regression:5,linear"};

LaunchLog SampleLaunches() { return ParseLaunchLog(SampleLog(), "sample", {}); }

// The same launches fed to a facade directly.
void Feed(Nuvik& nuvik, const LaunchLog& log, const std::vector<Launch>& launches) {
  for (const Launch& launch : launches) nuvik.Update(log.apps[launch.app], ToTm(launch.time));
}

std::string Read(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(in), {});
}

class TemporaryDirectory {
 public:
  TemporaryDirectory() {
    char pattern[] = "/tmp/nuvik-replay-test-XXXXXX";
    path_ = mkdtemp(pattern);
  }
  ~TemporaryDirectory() {
    for (const std::string& name : Entries()) std::remove((path_ + "/" + name).c_str());
    rmdir(path_.c_str());
  }
  const std::string& path() const { return path_; }
  std::vector<std::string> Entries() const {
    std::vector<std::string> names;
    DIR* directory = opendir(path_.c_str());
    while (const dirent* entry = readdir(directory)) {
      const std::string name = entry->d_name;
      if (name != "." && name != "..") names.push_back(name);
    }
    closedir(directory);
    std::sort(names.begin(), names.end());
    return names;
  }

 private:
  std::string path_;
};

TEST(RankingMetricsTest, ScoresTheFacadesOwnListsLikeTheFacade) {
  const LaunchLog log = SampleLaunches();
  std::map<std::string, AppId> ids;
  for (AppId id = 0; id < log.apps.size(); ++id) ids[log.apps[id]] = id;
  for (const char* text : kEnsembles) {
    Nuvik nuvik(MakeConfig(ParseEnsemble(text), false, 0.05));
    RankingMetrics metrics;
    for (const Launch& launch : log.users[0].launches) {
      nuvik.Update(log.apps[launch.app], ToTm(launch.time));
      std::vector<AppId> list;
      for (const std::string& app : nuvik.GetNext()) list.push_back(ids.at(app));  // made for this launch
      metrics.Add(list, launch.app);
    }
    EXPECT_EQ(metrics.count(), nuvik.GetCountMetrics()) << text;
    EXPECT_EQ(metrics.sumRecall(), nuvik.GetSumRecall()) << text;
    EXPECT_EQ(metrics.sumMap(), nuvik.GetSumMap()) << text;
  }
}

TEST(BaselineTest, ScoresAHandCheckedLog) {
  const LaunchLog log = ParseLaunchLog(
      "timestamp,app\n2024-03-04 08:00,a\n2024-03-04 08:01,a\n2024-03-04 08:02,a\n2024-03-04 08:03,b\n"
      "2024-03-04 08:04,c\n2024-03-04 08:05,d\n2024-03-04 08:06,e\n2024-03-04 08:07,f\n2024-03-04 08:08,a\n"
      "2024-03-04 08:09,f\n",
      "hand", {});
  // Launches 6 to 10 are scored. Both lists at launch 9 hold f e d c b a in
  // some order: MRU puts a sixth (a miss), MFU first. Average precisions, of
  // the lists made at launches 1 to 5: [] 0; [a] against {a b c d} 1/4;
  // [a] against {a b c d e} 1/5; [a] against {b c d e f} 0; and the list of
  // launch 5 against {c d e f a}: MRU [b a] (1/2)/5, MFU [a b] 1/5.
  ReplayOptions options;
  const UserResult mru = ReplayBaseline(log, log.users[0], Baseline::kMostRecentlyUsed, options);
  EXPECT_EQ(mru.scored, 5u);
  EXPECT_EQ(mru.sumRecall, 1.0);
  EXPECT_DOUBLE_EQ(mru.sumMap, 0.25 + 0.2 + 0.1);
  const UserResult mfu = ReplayBaseline(log, log.users[0], Baseline::kMostFrequentlyUsed, options);
  EXPECT_EQ(mfu.scored, 5u);
  EXPECT_EQ(mfu.sumRecall, 2.0);
  EXPECT_DOUBLE_EQ(mfu.sumMap, 0.25 + 0.2 + 0.2);
  EXPECT_EQ(mfu.launches, 10u);
  EXPECT_EQ(mfu.knownApps, (std::vector<std::string>{"a", "b", "c", "d", "e", "f"}));

  // Without the two repeats of a, eight launches remain; the lists agree and
  // only the last launch hits, its list of launch 3 [b a] giving (1/2)/5.
  options.skipRepeats = true;
  for (const Baseline baseline : {Baseline::kMostRecentlyUsed, Baseline::kMostFrequentlyUsed}) {
    const UserResult skipping = ReplayBaseline(log, log.users[0], baseline, options);
    EXPECT_EQ(skipping.launches, 10u);
    EXPECT_EQ(skipping.scored, 3u);
    EXPECT_EQ(skipping.sumRecall, 1.0);
    EXPECT_DOUBLE_EQ(skipping.sumMap, 0.1);
  }
}

TEST(ReplayTest, ReportsTheFacadesOwnMetricsForEachUserSeparately) {
  // The sample log with its users interleaved row by row in time order.
  std::istringstream sample{std::string(SampleLog())};
  std::string header;
  std::getline(sample, header);
  std::vector<std::pair<std::string, std::string>> rows;  // (time, row)
  for (std::string row; std::getline(sample, row);) rows.emplace_back(row.substr(row.find(',') + 1, 19), row);
  std::stable_sort(rows.begin(), rows.end(), [](const auto& a, const auto& b) { return a.first < b.first; });
  std::string interleaved = header + "\n";
  for (const auto& row : rows) interleaved += row.second + "\n";
  const LaunchLog log = ParseLaunchLog(interleaved, "interleaved", {});
  ASSERT_GT(log.users.size(), 1u);

  std::vector<Ensemble> ensembles;
  for (const char* text : kEnsembles) ensembles.push_back(ParseEnsemble(text));
  for (const bool skipRepeats : {false, true}) {
    ReplayOptions options;
    options.skipRepeats = skipRepeats;
    options.jobs = 2;
    const std::vector<RunResult> runs = Replay(log, ensembles, options);
    ASSERT_EQ(runs.size(), ensembles.size() + 2);
    for (std::size_t e = 0; e < ensembles.size(); ++e) {
      EXPECT_EQ(runs[e].label, ensembles[e].label);
      Totals expected;
      for (std::size_t u = 0; u < log.users.size(); ++u) {
        Nuvik nuvik(MakeConfig(ensembles[e], skipRepeats, 0.05));
        Feed(nuvik, log, log.users[u].launches);
        const UserResult& user = runs[e].users[u];
        EXPECT_EQ(user.launches, log.users[u].launches.size());
        EXPECT_EQ(user.scored, nuvik.GetCountMetrics());
        EXPECT_EQ(user.sumMap, nuvik.GetSumMap());
        EXPECT_EQ(user.sumRecall, nuvik.GetSumRecall());
        EXPECT_EQ(user.knownApps.size(), nuvik.GetCountKnownApps());
        expected.scored += nuvik.GetCountMetrics();
        expected.sumMap += nuvik.GetSumMap();
        expected.sumRecall += nuvik.GetSumRecall();
      }
      const Totals totals = TotalOf(runs[e]);
      EXPECT_EQ(totals.users, log.users.size());
      EXPECT_EQ(totals.launches, log.launchCount);
      EXPECT_EQ(totals.apps, log.apps.size());
      EXPECT_EQ(totals.scored, expected.scored);
      EXPECT_EQ(totals.sumMap, expected.sumMap);
      EXPECT_EQ(totals.sumRecall, expected.sumRecall);
      EXPECT_EQ(totals.Map(), expected.sumMap / static_cast<double>(expected.scored));
    }
    for (std::size_t b = ensembles.size(); b < runs.size(); ++b) EXPECT_TRUE(runs[b].baseline);
  }
}

TEST(ReplayTest, SavedDocumentsContinueLikeTheFacadeAcrossALoad) {
  LaunchLog log = SampleLaunches();
  log.users = {log.users[1]};  // one user: the target is the document itself
  const UserLog& user = log.users[0];
  const std::size_t half = user.launches.size() / 2;
  const UserLog first{user.name, {user.launches.begin(), user.launches.begin() + half}};
  const UserLog second{user.name, {user.launches.begin() + half, user.launches.end()}};
  TemporaryDirectory directory;
  const std::string path = directory.path() + "/model.json";

  for (const char* text : kEnsembles) {
    const Ensemble ensemble = ParseEnsemble(text);
    ReplayOptions options;
    options.keepDocuments = true;
    WriteFileAtomically(path, ReplayUser(log, first, ensemble, options).document);
    options.loadTarget = path;
    const UserResult resumed = ReplayUser(log, second, ensemble, options);

    Nuvik before(MakeConfig(ensemble, false, 0.05));
    Feed(before, log, first.launches);
    std::stringstream document;
    document << before;
    EXPECT_EQ(Read(path), document.str());
    Nuvik after(MakeConfig(ensemble, false, 0.05));
    ASSERT_TRUE(document >> after);
    Feed(after, log, second.launches);
    EXPECT_EQ(resumed.document, SerializeDocument(after)) << text;
    EXPECT_EQ(resumed.sumMap, after.GetSumMap()) << text;
    EXPECT_EQ(resumed.scored, after.GetCountMetrics()) << text;
    EXPECT_TRUE(resumed.notes.empty());
  }
  EXPECT_EQ(directory.Entries(), std::vector<std::string>{"model.json"});  // no temporary left
  EXPECT_TRUE(IsLoadable(Read(path)));
  EXPECT_FALSE(IsLoadable(SerializeDocument(Nuvik())));  // a facade that learned nothing
  EXPECT_FALSE(IsLoadable(std::string(2000, '[')));
}

TEST(ReplayTest, RejectedDocumentsAreErrorsNotFreshStarts) {
  LaunchLog log = SampleLaunches();
  TemporaryDirectory directory;
  const auto errorOf = [&](const std::string& target) -> std::string {
    ReplayOptions options;
    options.loadTarget = target;
    try {
      Replay(log, {ParseEnsemble("stat_counter")}, options);
    } catch (const InputError& error) {
      return error.what();
    }
    return "loaded";
  };
  // With several users the target is a directory of one document per user.
  EXPECT_EQ(errorOf(directory.path()),
            "cannot open document '" + directory.path() + "/user1.json': No such file or directory");

  log.users.resize(1);
  const std::string path = directory.path() + "/model.json";
  const std::string rejected = path + ": document rejected: not a saved model of this library, or damaged";
  WriteFileAtomically(path, "");
  EXPECT_EQ(errorOf(path), rejected);
  WriteFileAtomically(path, "{\"version\": 2}");
  EXPECT_EQ(errorOf(path), rejected);
  WriteFileAtomically(path, std::string(2000, '[') + std::string(2000, ']'));
  EXPECT_EQ(errorOf(path).rfind(path + ": document rejected: ", 0), 0u);  // the parser's own exception
}

TEST(DocumentsTest, PathsAndAtomicWrites) {
  EXPECT_EQ(DocumentPath("model.json", "u1", false), "model.json");
  EXPECT_EQ(DocumentPath("models", "u1", true), "models/u1.json");
  EXPECT_EQ(DocumentPath("models/", "ann/b c", true), "models/ann%2Fb%20c.json");
  EXPECT_EQ(DocumentPath("models", "..", true), "models/%...json");

  TemporaryDirectory directory;
  const std::string path = directory.path() + "/out.txt";
  WriteFileAtomically(path, "old");
  WriteFileAtomically(path, "new");
  EXPECT_EQ(Read(path), "new");
  EXPECT_THROW(WriteFileAtomically(directory.path() + "/missing/out.txt", "x"), InputError);
  EXPECT_THROW(PrepareSaveTarget(directory.path(), false), InputError);  // a directory, not a file
  EXPECT_THROW(PrepareSaveTarget(path, true), InputError);               // a file, not a directory
  EXPECT_THROW(PrepareSaveTarget(directory.path() + "/a/b", true), InputError);
  PrepareSaveTarget(directory.path() + "/per-user", true);
  EXPECT_EQ(directory.Entries(), (std::vector<std::string>{"out.txt", "per-user"}));
  rmdir((directory.path() + "/per-user").c_str());
}

}  // namespace
}  // namespace NuvikReplay
