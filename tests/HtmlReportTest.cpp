// nuvik-replay's HTML report: its statistics worked by hand, and pages of
// synthetic results at the edges (nothing scored, one user, a large fleet).
#include <gtest/gtest.h>

#include <cmath>
#include <initializer_list>
#include <random>
#include <sstream>
#include <string>
#include <tuple>
#include <vector>

#include "replay/HtmlReport.h"
#include "replay/Statistics.h"

namespace NuvikReplay {
namespace {

constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();

// Whether `page` is well-formed XML as far as its tags and entities go:
// every element closed in order, every '&' an entity XML knows.
std::string MalformedPart(const std::string& page) {
  std::vector<std::string> open;
  for (std::size_t at = page.find_first_of("<&"); at != std::string::npos; at = page.find_first_of("<&", at + 1)) {
    if (page[at] == '&') {
      const std::size_t end = page.find(';', at);
      const std::string entity = page.substr(at, end == std::string::npos ? 8 : end - at + 1);
      if (entity != "&amp;" && entity != "&lt;" && entity != "&gt;" && entity != "&quot;" && entity != "&#39;") {
        return "entity " + entity;
      }
      continue;
    }
    const std::size_t end = page.find('>', at);
    if (end == std::string::npos) return "unclosed tag at " + std::to_string(at);
    const std::string tag = page.substr(at + 1, end - at - 1);
    if (tag.empty() || tag[0] == '!' || tag.back() == '/') continue;
    const std::string name = tag.substr(tag[0] == '/', tag.find_first_of(" \n") - (tag[0] == '/'));
    if (tag[0] != '/') {
      open.push_back(name);
    } else if (open.empty() || open.back() != name) {
      return "</" + name + "> closes <" + (open.empty() ? std::string() : open.back()) + ">";
    } else {
      open.pop_back();
    }
  }
  return open.empty() ? "" : "<" + open.back() + "> left open";
}

// Well-formed, and without a number that failed to print as one.
void ExpectWellFormed(const std::string& page) {
  EXPECT_EQ(MalformedPart(page), "");
  for (const char* number : {"nan", "NaN", "inf"}) EXPECT_EQ(page.find(number), std::string::npos) << number;
}

void ExpectParts(const std::string& page, std::initializer_list<const char*> parts) {
  for (const char* part : parts) EXPECT_NE(page.find(part), std::string::npos) << part;
}

std::size_t Occurrences(const std::string& text, const std::string& part) {
  std::size_t count = 0;
  for (std::size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1)) ++count;
  return count;
}

Totals User(std::uint64_t launches, std::uint64_t scored, double sumMap, double sumHit1) {
  Totals user;
  user.users = 1;
  user.launches = launches;
  user.scored = scored;
  user.sumMap = sumMap;
  user.sumRecall = sumHit1;
  user.sumHit1 = sumHit1;
  user.sumHit3 = sumHit1;
  user.sumHit5 = sumHit1;
  user.seconds = 1e-6 * static_cast<double>(launches);
  return user;
}

RunTotals RunOf(const std::string& label, bool baseline, std::vector<Totals> users) {
  RunTotals run;
  run.label = label;
  run.baseline = baseline;
  run.users = std::move(users);
  run.total = AddUp(run.users, 3);
  return run;
}

using Bounds = std::tuple<double, double, double>;  // value, low, high
Bounds BoundsOf(const Interval& interval) { return {interval.value, interval.low, interval.high}; }

std::string Page(const LogSummary& log, const std::vector<RunTotals>& runs, bool row = false,
                 const BootstrapOptions& options = {}) {
  std::ostringstream out;
  WriteHtmlReport(out, log, "--compare a<b&c", runs, row, options);
  return out.str();
}

TEST(StatisticsTest, BootstrapsRatiosOfSumsOverUsers) {
  // Two users: a resample is both of one (2/8 or 12/16) or one of each
  // (7/12), so the 2.5th and 97.5th percentiles are the single users' ratios.
  // A third user with nothing to count changes nothing but the draws.
  for (const RatioOfSums& two : {RatioOfSums{{1, 6}, {4, 8}}, RatioOfSums{{1, 6, 0}, {4, 8, 0}}}) {
    EXPECT_EQ(BoundsOf(BootstrapRatios({two}).front()), Bounds(7.0 / 12.0, 0.25, 0.75));
  }
  // Four users, one counting 1 in 1 and three 0 in 1: a resample is worth
  // (draws of the first) / 4, at least 3/4 in 5.1% of resamples and 1 in 0.4%,
  // 0 in 31.6%; so the interval is [0, 3/4].
  EXPECT_EQ(BoundsOf(BootstrapRatios({{{1, 0, 0, 0}, {1, 1, 1, 1}}}).front()), Bounds(0.25, 0.0, 0.75));

  // Every user at the same rate: every resample too. Ratios see the same
  // resamples, together or alone.
  std::mt19937_64 random(7);
  std::uniform_real_distribution<double> uniform(0.0, 1.0);
  RatioOfSums noisy;
  RatioOfSums flat;
  for (int u = 0; u < 50; ++u) {
    noisy.denominator.push_back(1 + u % 7);
    noisy.numerator.push_back(uniform(random) * noisy.denominator.back());
    flat.denominator.push_back(2);
    flat.numerator.push_back(1);
  }
  const std::vector<Interval> both = BootstrapRatios({flat, noisy});
  EXPECT_EQ(BoundsOf(both[0]), Bounds(0.5, 0.5, 0.5));
  const Interval together = both[1];
  EXPECT_EQ(BoundsOf(together), BoundsOf(BootstrapRatios({noisy}).front()));
  EXPECT_LT(together.low, together.value);
  EXPECT_LT(together.value, together.high);

  // Nothing counted: no value and no interval.
  const Interval none = BootstrapRatios({{{0, 0}, {0, 0}}}).front();
  EXPECT_TRUE(std::isnan(none.value) && std::isnan(none.low) && std::isnan(none.high));
  EXPECT_TRUE(std::isnan(BootstrapRatios({{{}, {}}}).front().low));
}

TEST(StatisticsTest, ComparesRunsUserByUser) {
  // Users 0 to 3: the run is better, equal, unknown, worse than the reference.
  const std::vector<std::vector<double>> values = {{0.5, 0.4, kNaN, 0.3}, {0.4, 0.4, 0.2, 0.5}, {0.4, 0.4, 0.2, 0.5}};
  const std::vector<PairedComparison> comparisons = ComparePaired(values, {{0, 1}, {2, 1}});
  const PairedComparison& c = comparisons[0];
  using Counts = std::tuple<std::size_t, std::size_t, std::size_t, std::size_t>;  // users, better, equal, worse
  EXPECT_EQ(Counts(c.users, c.better, c.equal, c.worse), Counts(3, 1, 1, 1));
  // User 2, left out of this pair, is resampled for the other one.
  EXPECT_EQ(c.meanDifference.value, ((0.0 + (0.5 - 0.4)) + (0.4 - 0.4) + 0.0 + (0.3 - 0.5)) / 3.0);
  EXPECT_GE(c.meanDifference.low, 0.3 - 0.5);
  EXPECT_LE(c.meanDifference.high, 0.5 - 0.4);
  EXPECT_LT(c.meanDifference.low, c.meanDifference.high);
  // A run against its equal: all users equal, no difference in any resample.
  EXPECT_EQ(comparisons[1].equal, 4u);
  EXPECT_EQ(comparisons[1].meanDifference.low, 0.0);
  EXPECT_EQ(comparisons[1].meanDifference.high, 0.0);

  const Spread spread = SpreadOf({5, kNaN, 1, 4, 2, 3});
  EXPECT_EQ(std::make_tuple(spread.count, spread.mean, spread.median, spread.q1, spread.q3),
            std::make_tuple(std::size_t{5}, 3.0, 3.0, 2.0, 4.0));
  EXPECT_DOUBLE_EQ(spread.p5, 1.2);
  EXPECT_DOUBLE_EQ(spread.p95, 4.8);
  EXPECT_TRUE(std::isnan(SpreadOf({kNaN}).median));
}

TEST(HtmlReportTest, SaysSoWhenNothingIsScoredAndHandlesOneUser) {
  LogSummary log;
  log.source = "one & only.csv";
  log.launchCount = 5;
  log.appCount = 3;
  log.userNames = {"u"};
  log.firstLaunch = 1709535600;
  log.lastLaunch = 1709535600 + 4 * 60;
  const std::string empty = Page(
      log, {RunOf("a<b", false, {User(5, 0, 0, 0)}), RunOf("baseline: most recently used", true, {User(5, 0, 0, 0)})});
  ExpectWellFormed(empty);
  ExpectParts(empty, {"No launch was scored", "<h1>Ensembles replayed on one &amp; only.csv</h1>", "<td>a&lt;b</td>",
                      "<code>--compare a&lt;b&amp;c</code>",
                      "2024-03-04 07:00 to 2024-03-04 07:04 (local time, 1 calendar day)"});
  EXPECT_EQ(empty.find("<svg"), std::string::npos);  // no empty figure

  // One user: every resample is that user, so every interval is a point.
  log.launchCount = 40;
  RunTotals ensemble = RunOf("e", false, {User(40, 35, 14, 7)});
  RunTotals lagging = RunOf("e (lagging)", false, {User(40, 35, 10.5, 7)});
  RunTotals recent = RunOf("baseline: most recently used", true, {User(40, 35, 7, 3.5)});
  for (RunTotals* run : {&ensemble, &lagging, &recent}) {
    run->profile.byLaunchIndex[0] = {35, 20};
    run->profile.byHour[7] = {35, 20};
    run->profile.byDay = {{30, 18}, {5, 2}};
    run->profile.firstDate = 19786;
    run->profile.byDate = {{30, run->total.sumMap * 0.8, 18}, {5, run->total.sumMap * 0.2, 2}};
  }
  const std::string one = Page(log, {ensemble, lagging, recent});
  ExpectWellFormed(one);
  // Not its lagging run is the best ensemble.
  ExpectParts(one, {"<td class=\"best\"><span class=\"value\">0.4000</span><span class=\"ci\">0.4000\u20130.4000",
                    "Best ensemble: <strong>e</strong>",
                    "<td>\u22120.1000</td><td>\u22120.1000 to \u22120.1000</td><td>0 (0.0%)</td><td>0 (0.0%)</td>"
                    "<td>1 (100.0%)</td>"});
  EXPECT_EQ(Occurrences(one, "<svg"), 6u);  // per user, two comparisons, learning, hours, running curves
  EXPECT_EQ(Occurrences(one, "<g class=\"marks\""), 11u);
  EXPECT_EQ(one.find("Suggestion row"), std::string::npos);  // replayed without one
}

TEST(HtmlReportTest, StaysSmallForTwentyThousandUsers) {
  constexpr std::size_t kUsers = 20000;
  std::mt19937_64 random(11);
  std::uniform_int_distribution<std::uint64_t> launches(1, 2000);
  std::uniform_real_distribution<double> rate(0.0, 1.0);
  LogSummary log;
  log.source = "fleet/a.csv.gz, fleet/b.csv.gz, fleet/c.csv.gz";
  log.appCount = 5000;
  log.firstLaunch = 1672531200;
  log.lastLaunch = log.firstLaunch + 400 * 86400;
  std::vector<RunTotals> runs;
  for (int r = 0; r < 18; ++r) {
    const bool baseline = r >= 16;
    std::vector<Totals> users;
    for (std::size_t u = 0; u < kUsers; ++u) {
      const std::uint64_t count = launches(random);
      const std::uint64_t scored = count > 5 ? count - 5 : 0;
      Totals user = User(count, scored, rate(random) * static_cast<double>(scored),
                         std::floor(rate(random) * static_cast<double>(scored)));
      user.sumRowHit = user.sumHit1;
      user.sumChurn = 0.5 * static_cast<double>(scored);
      user.churnCount = scored;
      users.push_back(user);
    }
    RunTotals run = RunOf(baseline ? "baseline " + std::to_string(r)
                                   : "ensemble " + std::to_string(r / 2) + (r % 2 == 1 ? " (lagging)" : ""),
                          baseline, std::move(users));
    for (HitCount& count : run.profile.byLaunchIndex) count = {1000, 400};
    for (HitCount& count : run.profile.byHour) count = {1000, 400};
    run.profile.byDay.assign(400, {1000, 400});
    run.profile.firstDate = 19358;
    run.profile.byDate.assign(400, {1000, 300.0, 400.0});
    runs.push_back(std::move(run));
  }
  log.launchCount = static_cast<std::size_t>(AddUp(runs[0].users, 0).launches);
  log.userNames.resize(kUsers);
  // The page's size does not depend on the number of resamples.
  const std::string page = Page(log, runs, true, {20, 1});
  EXPECT_LT(page.size(), 2u << 20);
  ExpectWellFormed(page);
  ExpectParts(page, {"Suggestion row", "<h1>Ensembles replayed on a.csv.gz and 2 more files</h1>"});
}

}  // namespace
}  // namespace NuvikReplay
