// nuvik-replay: its pieces in process, then the executable as a user runs it.
#include <sys/wait.h>

#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <sstream>
#include <string>
#include <tuple>
#include <vector>

#include <gtest/gtest.h>
#include <nuvik/Nuvik.h>

#include "TestUtil.h"
#include "replay/Documents.h"
#include "replay/Errors.h"
#include "replay/LocalTime.h"
#include "replay/Replay.h"
#include "replay/Report.h"
#include "replay/SampleLog.h"

namespace NuvikReplay {
namespace {

using NuvikPrediction::Nuvik;
using Scores = std::tuple<std::uint64_t, double, double>;  // scored launches, sum of recall, sum of MAP

const std::vector<std::string> kEnsembles = {"stat_counter", "stat_counter,markov_chain3_invalidate",
                                             "knn_regression:5,linear"};
const std::string kSample = "'" NUVIK_SAMPLE_LOG "'";

Scores ScoresOf(const Nuvik& nuvik) { return {nuvik.GetCountMetrics(), nuvik.GetSumRecall(), nuvik.GetSumMap()}; }
Scores ScoresOf(const UserResult& user) { return {user.totals.scored, user.totals.sumRecall, user.totals.sumMap}; }

std::string Format(std::string_view text, std::optional<int> offset = std::nullopt) {
  const ParsedTime time = ParseLaunchTime(text, offset);
  return time.error.empty() ? FormatLocalTime(time.seconds) : time.error;
}

// Each user as "name: app@HH:MM:SS app@...".
std::vector<std::string> Users(const LaunchLog& log) {
  std::vector<std::string> texts;
  for (const UserLog& user : log.users) {
    std::string& text = texts.emplace_back(user.name + ":");
    for (const Launch& l : user.launches) text += " " + log.apps[l.app] + "@" + FormatLocalTime(l.time).substr(11);
  }
  return texts;
}

std::string ErrorOf(std::string_view text, ReadOptions options = {}) {
  try {
    ParseLaunchLog(text, "log.csv", options);
  } catch (const InputError& error) {
    return error.what();
  }
  return "no error";
}

std::string Read(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(in), {});
}

struct Outcome { int status; std::string output, errors; };

class ReplayTest : public ::testing::Test {
 protected:
  void SetUp() override {
    char pattern[] = "/tmp/nuvik-replay-test-XXXXXX";
    ASSERT_NE(mkdtemp(pattern), nullptr);
    directory_ = pattern;
  }
  void TearDown() override { std::filesystem::remove_all(directory_); }

  // Runs the executable with `arguments`, after `input` (empty, or a command ending in '|').
  Outcome Run(const std::string& arguments, const std::string& input = "") const {
    const std::string out = directory_ + "/stdout", err = directory_ + "/stderr";
    const int status = std::system((input + "'" NUVIK_REPLAY_BIN "' " + arguments + " >" + out + " 2>" + err).c_str());
    return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, Read(out), Read(err)};
  }

  std::string directory_;
};

TEST(LocalTimeTest, ParsesLocalTimestampsAndEpochSeconds) {
  for (const char* text : {"2024-02-29 23:59:58", "1969-12-31 23:59:59"}) EXPECT_EQ(Format(text), text);
  EXPECT_EQ(Format("2024-03-04 07:05"), "2024-03-04 07:05:00");
  EXPECT_EQ(Format("2024-03-04T07:05:09.250"), "2024-03-04 07:05:09");
  EXPECT_EQ(Format("1709535909", -5 * 3600), "2024-03-04 02:05:09");

  EXPECT_EQ(Format("2023-02-29 10:00"), "bad time '2023-02-29 10:00': no such date");
  EXPECT_EQ(Format("2024-03-04 24:00"), "bad time '2024-03-04 24:00': no such time of day");
  EXPECT_EQ(Format("1709535909"), "bad time '1709535909': epoch seconds need --utc-offset");
  for (const std::string text : {"2024-3-4 7:05", "2024-03-04 07:05:", "2024-03-04 07:05:09.", ""}) {
    EXPECT_EQ(Format(text), "bad time '" + text + "': expected YYYY-MM-DD HH:MM[:SS] or epoch seconds");
  }

  const std::pair<const char*, int> offsets[] = {{"+02:00", 7200}, {"-0530", -19800}, {"+05", 18000}, {"Z", 0}};
  for (const auto& [text, seconds] : offsets) EXPECT_EQ(ParseUtcOffset(text), seconds) << text;
  for (const char* bad : {"2", "+25:00", "+02:60", "+02:0"}) EXPECT_EQ(ParseUtcOffset(bad), std::nullopt) << bad;
}

TEST(LaunchLogTest, ReadsCsvAndTsvAndSeparatesUsers) {
  // Byte order mark, CRLF, columns in any order, an extra column, quoting,
  // a blank line, and users interleaved.
  const LaunchLog csv = ParseLaunchLog(
      "\xEF\xBB\xBF" "App,note,User,timestamp\r\nmail,,bob,2024-03-04 08:00\r\n"
      "\"maps, offline\",\"say \"\"hi\"\"\",ann,2024-03-04 08:01:30\r\n\r\n"
      " mail , x ,ann, 2024-03-04 08:02\r\nchat,,bob,2024-03-04 08:02\r\n",
      "log.csv", {});
  EXPECT_EQ(Users(csv), (std::vector<std::string>{"bob: mail@08:00:00 chat@08:02:00",
                                                  "ann: maps, offline@08:01:30 mail@08:02:00"}));
  EXPECT_EQ(csv.users[1].launches[1].order, 2u);  // file order across users

  ReadOptions epochs;
  epochs.utcOffsetSeconds = 3600;
  const LaunchLog tsv = ParseLaunchLog("timestamp\tapp\n1709535600\tmail\n1709535660\tmaps", "log.tsv", epochs);
  EXPECT_EQ(Users(tsv), std::vector<std::string>{": mail@08:00:00 maps@08:01:00"});
}

TEST(LaunchLogTest, ReportsBadInputWithFileLineAndReason) {
  const std::string header = "user,timestamp,app\nu,2024-03-04 08:00,mail\n";
  EXPECT_EQ(ErrorOf(header + "u,2024-03-04 08:01\n"), "log.csv:3: expected 3 columns, found 2");
  EXPECT_EQ(ErrorOf(header + "u,yesterday,mail\n"),
            "log.csv:3: bad time 'yesterday': expected YYYY-MM-DD HH:MM[:SS] or epoch seconds");
  EXPECT_EQ(ErrorOf(header + ",2024-03-04 08:01,mail\n"), "log.csv:3: empty user");
  EXPECT_EQ(ErrorOf(header + "u,2024-03-04 08:01,\"mail\n"), "log.csv:3: unterminated quoted field");
  EXPECT_EQ(ErrorOf(header + "v,2024-03-04 07:00,b\nu,2024-03-04 07:59,c\n"),
            "log.csv:4: time 2024-03-04 07:59:00 is earlier than 2024-03-04 08:00:00 on line 2 for user 'u'; "
            "the rows of each user must be in time order");
  EXPECT_EQ(ErrorOf("user,time,app\nu,2024-03-04 08:00,a\n"),
            "log.csv:1: the header must name the columns 'timestamp' and 'app' (and optionally 'user'); "
            "found 'user', 'time', 'app'");
  EXPECT_EQ(ErrorOf("app,timestamp,App\n"), "log.csv:1: the header names column 'app' twice");
  EXPECT_EQ(ErrorOf(""), "log.csv: empty log: expected a header line");
  EXPECT_EQ(ErrorOf("timestamp,app\n\n"), "log.csv: no launch to replay");

  // Skipped, a bad row neither stops the log nor moves a user's clock.
  ReadOptions skipping;
  skipping.skipBadRows = true;
  const LaunchLog log = ParseLaunchLog(
      header + "u,2024-03-04 09:00\nu,2024-03-04 07:00,b\nu,nope,c\nu,2024-03-04 08:30,d\n", "log.csv", skipping);
  EXPECT_EQ(Users(log), std::vector<std::string>{"u: mail@08:00:00 d@08:30:00"});
  EXPECT_EQ(log.badRows, 3u);
  ASSERT_EQ(log.badRowSamples.size(), 3u);
  EXPECT_EQ(log.badRowSamples[1].rfind("log.csv:4: time 2024-03-04 07:00:00 is earlier", 0), 0u);
}

TEST(LaunchLogTest, ReadsChosenUsersAndHandsLaunchesOn) {
  const std::string text = "user,timestamp,app\nu,2024-03-04 08:00,a\nv,nope,b\nw,2024-03-04 08:01,c\n"
                           "u,2024-03-04 07:00,d\nw,2024-03-04 08:02,e\n";
  // Other users' rows are skipped unchecked, even as bad rows; lines keep their numbers.
  ReadOptions chosen;
  chosen.readsUser = [](const std::string& user) { return user != "v"; };
  EXPECT_EQ(ErrorOf(text, chosen).rfind("log.csv:5: time 2024-03-04 07:00:00 is earlier", 0), 0u);

  std::vector<std::pair<std::size_t, std::uint32_t>> launches;  // user, order
  chosen.skipBadRows = true;
  chosen.onLaunch = [&launches](std::size_t user, const Launch& launch) { launches.emplace_back(user, launch.order); };
  const LaunchLog counted = ParseLaunchLog(text, "log.csv", chosen);
  EXPECT_EQ(launches, (std::vector<std::pair<std::size_t, std::uint32_t>>{{0, 0}, {1, 1}, {1, 2}}));
  EXPECT_EQ(Users(counted), (std::vector<std::string>{"u:", "w:"}));
  EXPECT_EQ(counted.launchCount, 3u);
  EXPECT_EQ(counted.badRows, 1u);
}

TEST(BaselineTest, ScoresAHandCheckedLog) {
  std::string text = "timestamp,app\n";
  for (const char app : std::string("aaabcdefafd")) text += "2024-03-04 08:00," + std::string(1, app) + "\n";
  const LaunchLog log = ParseLaunchLog(text, "hand", {});
  // Launches 6 to 11 are scored. Both lists at launch 9 hold f e d c b a in
  // some order: MRU puts a sixth (a miss), MFU first; at launch 10 both put f
  // second, at launch 11 d fourth. Average precisions, of the lists made at
  // launches 1 to 6: [] 0; [a] against {a b c d} 1/4; [a] against
  // {a b c d e} 1/5; [a] against {b c d e f} 0; the list of launch 5 against
  // {c d e f a}: MRU [b a] (1/2)/5, MFU [a b] 1/5; the list of launch 6
  // against {d e f a}: MRU [c b a] (1/3)/4, MFU [a c b] 1/4.
  ReplayOptions options;
  const UserResult mru = ReplayBaseline(log, log.users[0], Baseline::kMostRecentlyUsed, options);
  const UserResult mfu = ReplayBaseline(log, log.users[0], Baseline::kMostFrequentlyUsed, options);
  EXPECT_EQ(ScoresOf(mru), Scores(6, 2.0, 0.25 + 0.2 + 0.1 + 1.0 / 3.0 / 4.0));
  EXPECT_EQ(ScoresOf(mfu), Scores(6, 3.0, 0.25 + 0.2 + 0.2 + 0.25));
  EXPECT_EQ(mfu.knownApps, (std::vector<std::string>{"a", "b", "c", "d", "e", "f"}));
  // Ranks: MRU 2 and 4, MFU 1, 2 and 4.
  using Ranks = std::tuple<double, double, double, double, double>;  // hit@1, @3, @5, MRR@5, NDCG@5
  const auto ranks = [](const UserResult& user) {
    const Totals& t = user.totals;
    return Ranks(t.sumHit1, t.sumHit3, t.sumHit5, t.sumMrr5, t.sumNdcg5);
  };
  const double ndcg2 = 1.0 / std::log2(3.0);
  const double ndcg4 = 1.0 / std::log2(5.0);
  EXPECT_EQ(ranks(mru), Ranks(0.0, 1.0, 2.0, 0.5 + 0.25, ndcg2 + ndcg4));
  EXPECT_EQ(ranks(mfu), Ranks(1.0, 2.0, 3.0, 1.0 + 0.5 + 0.25, 1.0 + ndcg2 + ndcg4));
  EXPECT_DOUBLE_EQ(mfu.totals.Mrr5(), 1.75 / 6.0);

  // Without the two repeats of a, nine launches remain: a b c d e f a f d.
  // The lists agree; launches 8 and 9 hit, f second and d fourth, with
  // average precisions 0, 0, (1/2)/5 for [b a] and (1/3)/4 for [c b a].
  options.skipRepeats = true;
  for (const Baseline baseline : {Baseline::kMostRecentlyUsed, Baseline::kMostFrequentlyUsed}) {
    const UserResult user = ReplayBaseline(log, log.users[0], baseline, options);
    EXPECT_EQ(ScoresOf(user), Scores(4, 2.0, 0.1 + 1.0 / 3.0 / 4.0));
  }
}

TEST(BaselineTest, ProfilesHitsByLaunchIndexHourAndDay) {
  // MRU lists before launches 6 to 9: [a b] (b hits), [b a] (c is new),
  // [c b a] (a third), [a c b] (a first). Days count calendar dates from
  // 2024-03-04: launch 3, 70 minutes after the first, is on day 1.
  const LaunchLog log = ParseLaunchLog("timestamp,app\n2024-03-04 23:00,a\n2024-03-04 23:30,b\n"
                                       "2024-03-05 00:10,a\n2024-03-05 07:00,b\n2024-03-05 07:20,a\n"
                                       "2024-03-05 07:40,b\n2024-03-05 08:00,c\n2024-03-07 08:30,a\n"
                                       "2024-03-07 23:59,a\n",
                                       "hand", {});
  const UserResult mru = ReplayBaseline(log, log.users[0], Baseline::kMostRecentlyUsed, {});
  const Totals& t = mru.totals;
  EXPECT_EQ(std::make_tuple(t.sumHit1, t.sumHit3, t.sumHit5), std::make_tuple(1.0, 3.0, 3.0));  // third: in the top 3
  const RunProfile& profile = mru.profile;
  using Counts = std::vector<std::pair<std::uint64_t, std::uint64_t>>;  // scored, hits
  const auto counts = [](const auto& range) {
    Counts pairs;
    for (const HitCount& count : range) pairs.emplace_back(count.scored, count.hits);
    return pairs;
  };
  EXPECT_EQ(counts(profile.byLaunchIndex), (Counts{{4, 3}, {0, 0}, {0, 0}, {0, 0}}));
  Counts hours(24);
  hours[7] = {1, 1};
  hours[8] = {2, 1};
  hours[23] = {1, 1};
  EXPECT_EQ(counts(profile.byHour), hours);
  EXPECT_EQ(counts(profile.byDay), (Counts{{0, 0}, {2, 1}, {0, 0}, {2, 2}}));
  // Average precisions: [] 0; [a] against {a b} 1/2; [b a] and [a b]
  // against {a b c} 2/3 each.
  EXPECT_EQ(profile.firstDate * 86400, ParseLaunchTime("2024-03-04 00:00", {}).seconds);
  ASSERT_EQ(profile.byDate.size(), 4u);
  EXPECT_EQ(profile.byDate[1].scored, 2u);
  EXPECT_EQ(profile.byDate[1].sumMap, 0.5);
  EXPECT_EQ(profile.byDate[3].sumMap, 2.0 / 3.0 + 2.0 / 3.0);
  EXPECT_EQ(profile.byDate[3].sumRecall, 2.0);

  // Launch indexes count the user's rows: alternating apps, every scored launch hits.
  std::string text = "timestamp,app\n";
  for (int i = 0; i < 1010; ++i) text += std::string("2024-03-04 08:00,") + (i % 2 == 0 ? "a" : "b") + "\n";
  const LaunchLog alternating = ParseLaunchLog(text, "alternating", {});
  EXPECT_EQ(counts(ReplayBaseline(alternating, alternating.users[0], Baseline::kMostRecentlyUsed, {})
                       .profile.byLaunchIndex),
            (Counts{{45, 45}, {150, 150}, {800, 800}, {10, 10}}));
}

TEST(ReplayRowTest, ScoresTheRowBesideTheDockOnAHandCheckedLog) {
  std::string text = "timestamp,app\n";
  for (const char app : std::string("abacabda")) text += "2024-03-04 08:00," + std::string(1, app) + "\n";
  const LaunchLog log = ParseLaunchLog(text, "hand", {});
  // Rows of two beside a dock of two; launches 6 to 8 (b, d, a) are scored.
  // The dock, the most launched apps: [a c], [a b], [a b]. The lists:
  // stat_counter's (ties: greater name first) and MFU's [a c b], [a b c],
  // [a b d c]; MRU's [a c b], [b a c], [d b a c]; the lagging run's, those of
  // stat_counter one launch behind, [a c b], [a c b], [a b c]. So the rows
  // are [b], [c], [d c] (MRU, stat_counter, MFU) or [b], [c], [c] (lagging):
  // b is in the row, a in the dock, d in neither; churn 1 + 2 or 1 + 0. A
  // stable row keeps c in place at launch 8: [c d], churn 1 + 1.
  using Row = std::tuple<double, double, double, std::uint64_t>;  // row hits, dock or row hits, churn, churn count
  const auto rowsOf = [&log](bool stable) {
    ReplayOptions options;
    options.lagging = true;
    options.rowSize = 2;
    options.dockSize = 2;
    options.stableRow = stable;
    std::vector<Row> rows;
    for (const RunTotals& run : TotalsOf(Replay(log, {ParseEnsemble("stat_counter")}, options))) {
      const Totals& t = run.total;
      rows.emplace_back(t.sumRowHit, t.sumDockOrRowHit, t.sumChurn, t.churnCount);
    }
    return rows;
  };
  EXPECT_EQ(rowsOf(false), (std::vector<Row>{{1, 2, 3, 2}, {1, 2, 1, 2}, {1, 2, 3, 2}, {1, 2, 3, 2}}));
  EXPECT_EQ(rowsOf(true), (std::vector<Row>{{1, 2, 2, 2}, {1, 2, 1, 2}, {1, 2, 2, 2}, {1, 2, 2, 2}}));
}

TEST(ReplayProfileTest, EveryRunsProfileAddsUpToItsTotalsOnTheSampleLog) {
  const LaunchLog log = ReadLaunchLog(NUVIK_SAMPLE_LOG, {});
  std::vector<Ensemble> ensembles;
  for (const std::string& text : kEnsembles) ensembles.push_back(ParseEnsemble(text));
  ReplayOptions options;
  options.lagging = true;
  options.jobs = 2;
  for (const RunTotals& run : TotalsOf(Replay(log, ensembles, options))) {
    const auto expectSums = [&run](const auto& range, const char* what) {
      HitCount sum;
      for (const HitCount& count : range) {
        sum.scored += count.scored;
        sum.hits += count.hits;
      }
      EXPECT_EQ(sum.scored, run.total.scored) << run.label << ' ' << what;
      EXPECT_EQ(static_cast<double>(sum.hits), run.total.sumHit5) << run.label << ' ' << what;
    };
    expectSums(run.profile.byLaunchIndex, "by launch index");
    expectSums(run.profile.byHour, "by hour");
    expectSums(run.profile.byDay, "by day");
    ScoreSums dates;
    for (const ScoreSums& date : run.profile.byDate) {
      dates.scored += date.scored;
      dates.sumRecall += date.sumRecall;
    }
    EXPECT_EQ(dates.scored, run.total.scored);
    EXPECT_EQ(dates.sumRecall, run.total.sumRecall);
    EXPECT_EQ(run.profile.byDay.size(), run.profile.byDate.size());  // the users start on one day
  }
}

TEST_F(ReplayTest, SavedDocumentsContinueLikeTheFacadeAcrossALoad) {
  LaunchLog log = ParseLaunchLog(SampleLog(), "sample", {});
  log.users = {log.users[1]};  // one user: the target is the document itself
  const std::vector<Launch>& launches = log.users[0].launches;
  const auto half = launches.begin() + static_cast<std::ptrdiff_t>(launches.size() / 2);
  const UserLog first{"", {launches.begin(), half}};
  const UserLog second{"", {half, launches.end()}};
  const std::string path = directory_ + "/model.json";
  for (const std::string& text : kEnsembles) {
    const Ensemble ensemble = ParseEnsemble(text);
    ReplayOptions options;
    options.keepDocuments = true;
    WriteFileAtomically(path, ReplayUser(log, first, ensemble, options).document);
    options.loadTarget = path;
    const UserResult resumed = ReplayUser(log, second, ensemble, options);

    Nuvik facade(MakeConfig(ensemble, false, 0.05));
    for (const Launch& launch : first.launches) facade.Update(log.apps[launch.app], ToTm(launch.time));
    EXPECT_EQ(Read(path), SerializeDocument(facade)) << text;
    std::istringstream document(Read(path));
    Nuvik loaded(MakeConfig(ensemble, false, 0.05));
    ASSERT_TRUE(document >> loaded);
    for (const Launch& launch : second.launches) loaded.Update(log.apps[launch.app], ToTm(launch.time));
    EXPECT_EQ(resumed.document, SerializeDocument(loaded)) << text;
    EXPECT_EQ(ScoresOf(resumed), ScoresOf(loaded)) << text;
    EXPECT_TRUE(resumed.notes.empty());
  }
  std::filesystem::directory_iterator entries(directory_);
  EXPECT_EQ(std::distance(begin(entries), end(entries)), 1);  // no temporary file left
  EXPECT_FALSE(IsLoadable(SerializeDocument(Nuvik())));  // a facade that learned nothing
  EXPECT_FALSE(IsLoadable(std::string(2000, '[')));
}

TEST_F(ReplayTest, DocumentPathsAndSaveTargets) {
  EXPECT_EQ(DocumentPath("models/", "ann/b c", true), "models/ann%2Fb%20c.json");
  EXPECT_EQ(DocumentPath("models", "..", true), "models/%...json");
  EXPECT_THROW(WriteFileAtomically(directory_ + "/missing/model.json", "x"), InputError);
  EXPECT_THROW(PrepareSaveTarget(directory_, false), InputError);  // a directory, not a file
  WriteFileAtomically(directory_ + "/model.json", "x");
  EXPECT_THROW(PrepareSaveTarget(directory_ + "/model.json", true), InputError);  // a file, not a directory
}

TEST_F(ReplayTest, ReportsTheFacadesOwnMetricsPerUserOnTheSampleLog) {
  const std::string compare = " --compare " + kEnsembles[0] + " " + kEnsembles[1] + " " + kEnsembles[2];
  const Outcome run = Run(kSample + " --per-user --format json --jobs 2 --lagging" + compare);
  ASSERT_EQ(run.status, 0) << run.errors;
  EXPECT_EQ(run.errors, "");
  const Json::Value results = NuvikPrediction::testing::ParseJson(run.output)["results"];
  const LaunchLog log = ReadLaunchLog(NUVIK_SAMPLE_LOG, {});
  std::map<std::string, AppId> ids;
  for (AppId id = 0; id < log.apps.size(); ++id) ids[log.apps[id]] = id;
  const auto idsOf = [&ids](const std::vector<std::string>& names) {
    std::vector<AppId> list;
    for (const std::string& app : names) list.push_back(ids.at(app));
    return list;
  };
  ASSERT_EQ(results.size(), 8u);  // each ensemble, then its lagging run; the baselines
  for (Json::ArrayIndex r = 0; r < results.size(); ++r) {
    const bool ensemble = r < 6;
    const bool lagging = ensemble && r % 2 == 1;
    const Baseline baseline = r == 6 ? Baseline::kMostRecentlyUsed : Baseline::kMostFrequentlyUsed;
    EXPECT_EQ(results[r]["name"].asString(),
              ensemble ? kEnsembles[r / 2] + (lagging ? " (lagging)" : "") : BaselineLabel(baseline));
    double sumMap = 0.0;
    std::uint64_t scored = 0;
    for (Json::ArrayIndex u = 0; u < log.users.size(); ++u) {
      const Json::Value& user = results[r]["perUser"][u];
      Scores expected;
      if (ensemble) {
        // The baselines' metrics, given the facade's lists made for each
        // launch, and shown before it.
        Nuvik nuvik(MakeConfig(ParseEnsemble(kEnsembles[r / 2]), false, 0.05));
        RankingMetrics fresh, behind;
        for (const Launch& launch : log.users[u].launches) {
          behind.Add(idsOf(nuvik.GetNext()), launch.app);
          nuvik.Update(log.apps[launch.app], ToTm(launch.time));
          fresh.Add(idsOf(nuvik.GetNext()), launch.app);
        }
        const RankingMetrics& metrics = lagging ? behind : fresh;
        expected = Scores(metrics.count(), metrics.sumRecall(), metrics.sumMap());
        if (!lagging) {
          EXPECT_EQ(ScoresOf(nuvik), expected);
        }
        EXPECT_EQ(user["apps"].asUInt64(), nuvik.GetCountKnownApps());
      } else {
        expected = ScoresOf(ReplayBaseline(log, log.users[u], baseline, {}));
      }
      EXPECT_EQ(user["user"].asString(), log.users[u].name);
      EXPECT_EQ(Scores(user["scored"].asUInt64(), user["sumRecall"].asDouble(), user["sumMap"].asDouble()), expected);
      EXPECT_EQ(user["sumHit5"], user["sumRecall"]);
      scored += std::get<0>(expected);
      sumMap += std::get<2>(expected);
    }
    EXPECT_EQ(results[r]["sumMap"].asDouble(), sumMap);
    EXPECT_EQ(results[r]["map"].asDouble(), sumMap / static_cast<double>(scored));
    EXPECT_EQ(results[r]["hitAt5"], results[r]["recallAt5"]);
  }

  // Gzip on standard input gives the same numbers.
  const Outcome piped = Run("- --format json" + compare, "gzip -c " + kSample + " | ");
  ASSERT_EQ(piped.status, 0) << piped.errors;
  EXPECT_EQ(NuvikPrediction::testing::ParseJson(piped.output)["results"][1]["sumMap"], results[2]["sumMap"]);
  // The built-in log is the sample file; the table shows the same runs.
  const Outcome table = Run(compare);
  ASSERT_EQ(table.status, 0) << table.errors;
  EXPECT_EQ(table.output.rfind("sample-launches.csv (built in): " + std::to_string(log.launchCount) + " launches", 0),
            0u);
  EXPECT_NE(table.output.find("\nbaseline: most frequently used "), std::string::npos);
}

TEST_F(ReplayTest, TracesEachLaunchWithTheTopOfItsList) {
  const std::string log = directory_ + "/tiny.csv";
  WriteFileAtomically(log, "user,timestamp,app\nu,2024-03-04 08:00,b\nu,2024-03-04 08:01,a\n"
                           "u,2024-03-04 08:02,a\nu,2024-03-04 08:03,a\nu,2024-03-04 08:04,b");  // no final line break
  const Outcome run = Run(log + " --trace --skip-repeats");
  ASSERT_EQ(run.status, 0) << run.errors;
  EXPECT_EQ(run.output.substr(0, run.output.find("\n\n") + 1),
            "[stat_counter] u 2024-03-04 08:00:00 b (new) |\n"
            "[stat_counter] u 2024-03-04 08:01:00 a (new) | b\n"
            "[stat_counter] u 2024-03-04 08:02:00 a (repeat, skipped)\n"
            "[stat_counter] u 2024-03-04 08:03:00 a (repeat, skipped)\n"
            "[stat_counter] u 2024-03-04 08:04:00 b (#1) | b, a\n" +  // the facade skipped the repeats too
                log + ": 5 launches, 1 user, 2 apps\n");
}

TEST_F(ReplayTest, ReportsMistakesWithAReasonAndAnExitStatus) {
  EXPECT_EQ(Run("--bogus").status, 2);
  EXPECT_EQ(Run("--compare stat_counter,lineal").status, 2);
  EXPECT_EQ(Run("--stable").status, 2);  // needs --row
  EXPECT_EQ(Run("--row 2 --dock -1").errors.rfind("nuvik-replay: --dock: '-1' is not a count\n", 0), 0u);
  const std::string misplaced = Run("--compare stat_counter " + kSample).errors;
  EXPECT_EQ(misplaced.rfind("nuvik-replay: '" NUVIK_SAMPLE_LOG "' is no ensemble: put the log before", 0), 0u);
  EXPECT_EQ(Run(directory_ + "/missing.csv").errors,
            "nuvik-replay: cannot open '" + directory_ + "/missing.csv': No such file or directory\n");

  const std::string log = directory_ + "/bad.csv";
  WriteFileAtomically(log, "timestamp,app\n2024-03-04 08:00,a\n2024-03-04 08:01,\n2024-03-04 08:02,b\n");
  const Outcome bad = Run(log);
  EXPECT_EQ(bad.status, 1);
  EXPECT_EQ(bad.errors, "nuvik-replay: " + log + ":3: empty app\n");
  const Outcome skipped = Run(log + " --skip-bad-rows");
  EXPECT_EQ(skipped.status, 0);
  EXPECT_EQ(skipped.errors, "nuvik-replay: skipped 1 bad row:\n  " + log + ":3: empty app\n");
}

TEST_F(ReplayTest, SavesLoadsAndPlots) {
  const std::string models = directory_ + "/models";
  const Outcome saved = Run(kSample + " --save " + models + " --plot " + directory_ + "/plot.svg");
  ASSERT_EQ(saved.status, 0) << saved.errors;
  const std::string svg = Read(directory_ + "/plot.svg");
  EXPECT_EQ(svg.rfind("<svg ", 0), 0u);
  EXPECT_NE(svg.find(">baseline: most frequently used<"), std::string::npos);
  const Outcome loaded = Run(kSample + " --load " + models + " --save " + models);
  EXPECT_EQ(loaded.status, 0) << loaded.errors;
  EXPECT_EQ(loaded.errors, "");

  // A document that cannot be loaded stops the tool.
  const std::string user2 = models + "/user2.json";
  const auto loadError = [&] {
    const Outcome run = Run(kSample + " --load " + models);
    EXPECT_EQ(run.status, 1);
    return run.errors;
  };
  const std::string rejected = "nuvik-replay: " + user2 + ": document rejected: ";
  WriteFileAtomically(user2, "{\"count\":");
  EXPECT_EQ(loadError(), rejected + "not a saved model of this library, or damaged\n");
  WriteFileAtomically(user2, std::string(2000, '[') + std::string(2000, ']'));
  EXPECT_EQ(loadError().rfind(rejected, 0), 0u);  // the parser's own exception
  std::filesystem::remove(user2);
  EXPECT_EQ(loadError(), "nuvik-replay: cannot open document '" + user2 + "': No such file or directory\n");
  const Outcome unwritable = Run(kSample + " --save " + directory_ + "/no/such/dir");
  EXPECT_EQ(unwritable.output, "");  // checked before the replay
  EXPECT_EQ(unwritable.errors.rfind("nuvik-replay: cannot create directory '" + directory_ + "/no/such/dir'", 0), 0u);
}

}  // namespace
}  // namespace NuvikReplay
