#include "replay/HtmlReport.h"

#include <algorithm>
#include <cmath>
#include <iterator>
#include <limits>
#include <ostream>

#include <nuvik/Nuvik.h>

#include "replay/Baselines.h"
#include "replay/Curves.h"
#include "replay/LocalTime.h"
#include "replay/SvgCharts.h"
#include "replay/SvgFigure.h"
#include "replay/SvgPlot.h"

namespace NuvikReplay {

namespace {

constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();
constexpr std::int64_t kSecondsPerDay = 86400;
constexpr const char* kNone = "\u2013";  // shown for a value that does not exist
constexpr const char* kNoProfile = "These results hold no profile of where the hits fall.";
const char* const kLaunchIndexBuckets[] = {"1\u201350", "51\u2013200", "201\u20131,000", "later"};

constexpr const char* kStyle = R"(
body { font-family: system-ui, -apple-system, "Segoe UI", Roboto, Helvetica, Arial, sans-serif; color: #222;
       max-width: 1200px; margin: 24px auto; padding: 0 16px; line-height: 1.45; }
h1 { font-size: 24px; margin: 0 0 12px; }
h2 { font-size: 19px; margin: 36px 0 8px; padding-bottom: 4px; border-bottom: 1px solid #ddd; }
p, figcaption { font-size: 14px; max-width: 940px; }
p.note, figcaption { color: #555; }
dl.facts { display: grid; grid-template-columns: max-content auto; gap: 2px 16px; font-size: 14px; margin: 0; }
dl.facts dt { color: #555; }
dl.facts dd { margin: 0; }
div.table { overflow-x: auto; }
table { border-collapse: collapse; font-size: 14px; font-variant-numeric: tabular-nums; margin: 8px 0; }
th, td { padding: 4px 7px; text-align: right; border-bottom: 1px solid #e6e6e6; vertical-align: top; }
th:first-child, td:first-child { text-align: left; }
th { border-bottom: 2px solid #bbb; }
td span.ci { display: block; color: #777; font-size: 11px; white-space: nowrap; }
td.best { font-weight: bold; background: #e9f4e4; }
tr.baselines td { border-top: 2px solid #bbb; }
figure { margin: 12px 0 20px; }
svg { max-width: 100%; height: auto; }
code { font-size: 13px; background: #f3f3f3; padding: 1px 4px; }
)";

// A mean of the summary table: a sum over launches divided by the scored
// launches or, per launch, by all launches.
struct Measure {
  const char* name;
  double Totals::*sum;
  bool perLaunch;
  double scale;
  int decimals;
  bool lowerIsBetter;
};

const Measure kMeasures[] = {
    {"MAP", &Totals::sumMap, false, 1.0, 4, false},
    {"recall@5", &Totals::sumRecall, false, 1.0, 4, false},
    {"hit@1", &Totals::sumHit1, false, 1.0, 4, false},
    {"hit@3", &Totals::sumHit3, false, 1.0, 4, false},
    {"MRR@5", &Totals::sumMrr5, false, 1.0, 4, false},
    {"NDCG@5", &Totals::sumNdcg5, false, 1.0, 4, false},
    {"\u00b5s/launch", &Totals::seconds, true, 1e6, 2, true},
};

double Denominator(const Totals& totals, const Measure& measure) {
  return static_cast<double>(measure.perLaunch ? totals.launches : totals.scored);
}

// As the text table computes it: NaN without a launch to count.
double MeanOf(const Totals& totals, const Measure& measure) {
  return measure.scale * (totals.*measure.sum) / Denominator(totals, measure);
}

std::string Value(double value, int decimals) { return std::isnan(value) ? kNone : Decimals(value, decimals); }

std::string Signed(double value, int decimals) {
  if (std::isnan(value)) return kNone;
  const std::string text = Decimals(std::fabs(value), decimals);
  if (text.find_first_not_of("0.") == std::string::npos) return text;
  return (value < 0 ? "\u2212" : "+") + text;
}

std::string Count(std::uint64_t count) {
  std::string digits = std::to_string(count);
  for (std::size_t i = digits.size(); i > 3; i -= 3) digits.insert(i - 3, ",");
  return digits;
}

std::string Share(std::size_t count, std::size_t of) {
  return Count(count) + " (" + Decimals(100.0 * static_cast<double>(count) / static_cast<double>(of), 1) + "%)";
}

// A log's name for a title: its file's base name, or the first of several
// (listed with ", ") and how many more.
std::string ShortName(const std::string& source) {
  const std::size_t comma = source.find(", ");
  const std::string first = source.substr(0, comma);
  std::string name = first.substr(first.rfind('/') + 1);
  if (comma == std::string::npos) return name;
  std::size_t more = 0;
  for (std::size_t at = comma; at != std::string::npos; at = source.find(", ", at + 2)) ++more;
  return name + " and " + std::to_string(more) + (more == 1 ? " more file" : " more files");
}

std::string Date(std::int64_t days) { return FormatLocalTime(days * kSecondsPerDay).substr(0, 10); }

std::int64_t DayOf(LocalSeconds time) {
  return time >= 0 ? time / kSecondsPerDay : -((-time + kSecondsPerDay - 1) / kSecondsPerDay);
}

double Rate(const HitCount& count) {
  return count.scored == 0 ? kNaN : static_cast<double>(count.hits) / static_cast<double>(count.scored);
}

// A user's own mean of a sum over the scored launches; NaN without one.
double UserMean(const Totals& user, double Totals::*sum) {
  return user.scored == 0 ? kNaN : (user.*sum) / static_cast<double>(user.scored);
}

std::vector<double> UserMeans(const RunTotals& run, double Totals::*sum) {
  std::vector<double> means;
  for (const Totals& user : run.users) means.push_back(UserMean(user, sum));
  return means;
}

Axis ShareAxis(const std::string& title) {
  Axis axis;
  axis.title = title;
  axis.step = 0.2;
  return axis;
}

// An axis from zero (or below it) through the values and `atLeast`.
Axis ValueAxis(const std::string& title, const std::vector<double>& values, double atLeast) {
  double low = 0.0;
  double high = atLeast;
  for (const double value : values) {
    if (std::isnan(value)) continue;
    low = std::min(low, value);
    high = std::max(high, value);
  }
  return AxisThrough(title, low, high, 6);
}

class Page {
 public:
  Page(std::ostream& out, const LogSummary& log, const std::string& options, const std::vector<RunTotals>& runs,
       bool row, const BootstrapOptions& bootstrap)
      : out_(out), log_(log), options_(options), runs_(runs), row_(row), bootstrap_(bootstrap) {
    for (const RunTotals& run : runs) keys_.push_back({run.label, run.baseline});
    strokes_ = StrokesOf(keys_);
    for (const RunTotals& run : runs) scored_ += run.total.scored;
    for (std::size_t u = 0; u < log.userNames.size(); ++u) {
      const auto scored = [u](const RunTotals& run) { return u < run.users.size() && run.users[u].scored > 0; };
      if (std::any_of(runs.begin(), runs.end(), scored)) ++scoredUsers_;
    }
    for (std::size_t r = 0; r < runs.size(); ++r) {
      const bool candidate = !runs[r].baseline && !IsLagging(runs[r].label) && runs[r].total.scored > 0;
      if (candidate && (best_ == kNoRun || runs[r].total.Map() > runs[best_].total.Map())) best_ = r;
      if (runs[r].baseline && runs[r].label == BaselineLabel(Baseline::kMostRecentlyUsed)) mostRecent_ = r;
    }
  }

  void Write() {
    out_ << "<!DOCTYPE html>\n<html xmlns=\"http://www.w3.org/1999/xhtml\" lang=\"en\">\n<head>\n"
         << "<meta charset=\"utf-8\"/>\n"
         << "<meta http-equiv=\"Content-Security-Policy\" content=\"default-src 'none'; style-src 'unsafe-inline'\"/>\n"
         << "<meta name=\"viewport\" content=\"width=device-width, initial-scale=1\"/>\n"
         << "<title>nuvik-replay: " << EscapeXml(log_.source) << "</title>\n<style>" << kStyle << "</style>\n"
         << "</head>\n<body>\n";
    WriteHeader();
    WriteSummary();
    if (scored_ == 0) {
      out_ << "<p><strong>No launch was scored</strong>, so there is nothing more to show: each user's first five "
              "launches only warm the ranking up, and scoring starts at the sixth.</p>\n";
    } else {
      WriteDistributions();
      WritePaired();
      WriteLearning();
      WriteHours();
      if (row_) WriteRow();
      WriteRunning();
    }
    out_ << "</body>\n</html>\n";
  }

 private:
  static constexpr std::size_t kNoRun = static_cast<std::size_t>(-1);

  void WriteHeader() {
    out_ << "<h1>Ensembles replayed on " << EscapeXml(ShortName(log_.source)) << "</h1>\n<dl class=\"facts\">\n"
         << "<dt>log</dt><dd>" << EscapeXml(log_.source) << "</dd>\n"
         << "<dt>users</dt><dd>" << Count(log_.userNames.size()) << " (" << Count(scoredUsers_)
         << " with a scored launch)</dd>\n"
         << "<dt>launches</dt><dd>" << Count(log_.launchCount);
    if (log_.badRows > 0) out_ << " (" << Count(log_.badRows) << " bad rows skipped)";
    out_ << "</dd>\n<dt>apps</dt><dd>" << Count(log_.appCount) << "</dd>\n";
    if (log_.launchCount > 0) {
      const auto days = static_cast<std::uint64_t>(DayOf(log_.lastLaunch) - DayOf(log_.firstLaunch) + 1);
      out_ << "<dt>dates</dt><dd>" << FormatLocalTime(log_.firstLaunch).substr(0, 16) << " to "
           << FormatLocalTime(log_.lastLaunch).substr(0, 16) << " (local time, " << Count(days)
           << (days == 1 ? " calendar day)" : " calendar days)") << "</dd>\n";
    }
    out_ << "<dt>options</dt><dd><code>" << EscapeXml(options_.empty() ? "(defaults)" : options_) << "</code></dd>\n"
         << "<dt>library</dt><dd>" << EscapeXml(NuvikPrediction::Nuvik().GetLibraryInfo()) << "</dd>\n</dl>\n";
  }

  void WriteSummary() {
    std::vector<RatioOfSums> ratios;
    for (const RunTotals& run : runs_) {
      for (const Measure& measure : kMeasures) {
        RatioOfSums& ratio = ratios.emplace_back();
        for (const Totals& user : run.users) {
          ratio.numerator.push_back(user.*measure.sum);
          ratio.denominator.push_back(Denominator(user, measure));
        }
      }
    }
    const std::vector<Interval> intervals = BootstrapRatios(ratios, bootstrap_);
    constexpr std::size_t kCount = std::size(kMeasures);
    std::vector<double> best(kCount, kNaN);
    for (const RunTotals& run : runs_) {
      for (std::size_t m = 0; m < kCount; ++m) {
        const double mean = MeanOf(run.total, kMeasures[m]);
        if (std::isnan(mean)) continue;
        if (std::isnan(best[m]) || (kMeasures[m].lowerIsBetter ? mean < best[m] : mean > best[m])) best[m] = mean;
      }
    }

    out_ << "<h2 id=\"summary\">Summary</h2>\n<p class=\"note\">Means over the scored launches of all users, as "
            "<code>nuvik-replay</code> prints them (a user's first five launches only warm up). Under each, its 95% "
            "interval: the 2.5th to 97.5th percentile of the mean over "
         << Count(bootstrap_.resamples)
         << " resamples of the users, drawn with replacement from a fixed seed, each mean a ratio of sums like the "
            "table's. Bold: the best of the column (highest; lowest for \u00b5s/launch, the time spent learning and "
            "ranking per launch).</p>\n<div class=\"table\"><table id=\"summary-table\">\n"
            "<tr><th>run</th><th>users</th><th>launches</th>";
    for (const Measure& measure : kMeasures) out_ << "<th>" << measure.name << "</th>";
    out_ << "</tr>\n";
    for (std::size_t r = 0; r < runs_.size(); ++r) {
      const RunTotals& run = runs_[r];
      const bool firstBaseline = run.baseline && (r == 0 || !runs_[r - 1].baseline);
      out_ << (firstBaseline ? "<tr class=\"baselines\">" : "<tr>") << "<td>" << EscapeXml(run.label) << "</td><td>"
           << Count(run.total.users) << "</td><td>" << Count(run.total.launches) << "</td>";
      for (std::size_t m = 0; m < kCount; ++m) {
        const Measure& measure = kMeasures[m];
        const double mean = MeanOf(run.total, measure);
        const Interval& interval = intervals[r * kCount + m];
        out_ << (!std::isnan(mean) && mean == best[m] ? "<td class=\"best\">" : "<td>") << "<span class=\"value\">"
             << Value(mean, measure.decimals) << "</span>";
        if (!std::isnan(interval.low)) {
          out_ << "<span class=\"ci\">" << Value(measure.scale * interval.low, measure.decimals) << "\u2013"
               << Value(measure.scale * interval.high, measure.decimals) << "</span>";
        }
        out_ << "</td>";
      }
      out_ << "</tr>\n";
    }
    out_ << "</table></div>\n";
  }

  void WriteDistributions() {
    BoxPanel hit1{"hit@1 per user", ShareAxis("the user's hit@1"), {}};
    BoxPanel map{"MAP per user", ShareAxis("the user's MAP"), {}};
    for (const RunTotals& run : runs_) {
      hit1.spreads.push_back(SpreadOf(UserMeans(run, &Totals::sumHit1)));
      map.spreads.push_back(SpreadOf(UserMeans(run, &Totals::sumMap)));
    }
    out_ << "<h2 id=\"users\">Per user</h2>\n<figure>\n";
    WriteBoxPlots(out_, {hit1, map}, keys_, strokes_);
    out_ << "<figcaption>Each user's own hit@1 and MAP, for the " << Count(scoredUsers_)
         << " users with a scored launch; each user counts once, however many launches they have. Box: first to "
            "third quartile; bar: median; whiskers: 5th to 95th percentile; diamond: mean over users.</figcaption>\n"
            "</figure>\n";
  }

  void WritePaired() {
    out_ << "<h2 id=\"paired\">User by user</h2>\n";
    if (best_ == kNoRun) {
      out_ << "<p>No ensemble has a scored launch to compare.</p>\n";
      return;
    }
    out_ << "<p class=\"note\">Metric: MAP, each user's own (their sum of average precisions over their scored "
            "launches). Best ensemble: <strong>"
         << EscapeXml(runs_[best_].label)
         << "</strong>, the ensemble with the highest MAP over all launches in the summary (baselines and lagging "
            "runs are not candidates). For each other run: the mean over users of the run's MAP minus the "
            "reference's, with its 95% paired bootstrap interval (users resampled, each with both values), and the "
            "shares of users for whom the run is better, equal or worse. Users without a scored launch in both "
            "runs are left out. An interval clear of zero is a difference the spread among users does not explain; "
            "the shares tell whether it holds for most users or comes from a few.</p>\n";
    std::vector<std::vector<double>> values;
    for (const RunTotals& run : runs_) values.push_back(UserMeans(run, &Totals::sumMap));
    WriteComparisons("against the best ensemble, " + runs_[best_].label, best_, values);
    if (mostRecent_ != kNoRun) WriteComparisons("against " + runs_[mostRecent_].label, mostRecent_, values);
  }

  void WriteComparisons(const std::string& heading, std::size_t reference,
                        const std::vector<std::vector<double>>& values) {
    std::vector<std::pair<std::size_t, std::size_t>> pairs;
    std::vector<RunKey> keys;
    std::vector<Stroke> strokes;
    for (std::size_t r = 0; r < runs_.size(); ++r) {
      if (r == reference) continue;
      pairs.emplace_back(r, reference);
      keys.push_back(keys_[r]);
      strokes.push_back(strokes_[r]);
    }
    if (pairs.empty()) return;
    const std::vector<PairedComparison> comparisons = ComparePaired(values, pairs, bootstrap_);
    out_ << "<h3>" << EscapeXml(heading) << "</h3>\n<figure>\n";
    WritePairedChart(out_, "MAP per user: run minus " + runs_[reference].label, keys, strokes, comparisons);
    out_ << "</figure>\n<div class=\"table\"><table>\n<tr><th>run</th><th>users compared</th><th>mean difference</th>"
            "<th>95% interval</th><th>better</th><th>equal</th><th>worse</th></tr>\n";
    for (std::size_t p = 0; p < pairs.size(); ++p) {
      const PairedComparison& c = comparisons[p];
      out_ << "<tr><td>" << EscapeXml(keys[p].label) << "</td><td>" << Count(c.users) << "</td><td>"
           << Signed(c.meanDifference.value, 4) << "</td><td>";
      if (std::isnan(c.meanDifference.low)) {
        out_ << kNone;
      } else {
        out_ << Signed(c.meanDifference.low, 4) << " to " << Signed(c.meanDifference.high, 4);
      }
      out_ << "</td>";
      for (const std::size_t count : {c.better, c.equal, c.worse}) {
        out_ << "<td>" << (c.users == 0 ? kNone : Share(count, c.users)) << "</td>";
      }
      out_ << "</tr>\n";
    }
    out_ << "</table></div>\n";
  }

  void WriteLearning() {
    LinePanel byIndex;
    byIndex.title = "by launch index";
    byIndex.width = 300;
    byIndex.x.title = "launches since the user's first";
    byIndex.x.low = -0.5;
    byIndex.x.high = std::size(kLaunchIndexBuckets) - 0.5;
    byIndex.x.firstTick = 0.0;
    byIndex.x.step = 1.0;
    byIndex.x.tickText = [](double value) {
      const long bucket = std::lround(value);
      return bucket >= 0 && bucket < static_cast<long>(std::size(kLaunchIndexBuckets)) ? kLaunchIndexBuckets[bucket]
                                                                                       : "";
    };
    byIndex.y = ShareAxis("hit@5");
    byIndex.y.grid = true;
    byIndex.markers = true;
    for (std::size_t b = 0; b < std::size(kLaunchIndexBuckets); ++b) byIndex.xs.push_back(static_cast<double>(b));

    LinePanel byDay;
    byDay.title = "by day";
    byDay.width = 520;
    byDay.x.title = "whole days since the user's first launch";
    std::size_t days = 0;
    for (const RunTotals& run : runs_) days = std::max(days, run.profile.byDay.size());
    byDay.x.high = std::max(1.0, static_cast<double>(days) - 1.0);
    byDay.x.step = NiceStep(byDay.x.high, 8);
    byDay.y = byIndex.y;
    byDay.markers = days <= 31;
    for (std::size_t d = 0; d < days; ++d) byDay.xs.push_back(static_cast<double>(d));

    bool any = false;
    for (const RunTotals& run : runs_) {
      std::vector<double>& index = byIndex.values.emplace_back();
      for (const HitCount& count : run.profile.byLaunchIndex) {
        index.push_back(Rate(count));
        any = any || count.scored > 0;
      }
      std::vector<double>& day = byDay.values.emplace_back(days, kNaN);
      for (std::size_t d = 0; d < run.profile.byDay.size(); ++d) day[d] = Rate(run.profile.byDay[d]);
    }
    out_ << "<h2 id=\"learning\">Learning on a new phone</h2>\n";
    if (!any) {
      out_ << "<p>" << kNoProfile << "</p>\n";
      return;
    }
    out_ << "<figure>\n";
    WriteLineCharts(out_, {byIndex, byDay}, keys_, strokes_);
    out_ << "<figcaption>hit@5 (the launched app among the first five of the list ranked for it) of all users' "
            "scored launches, by the launch's index in its user's history and by whole days since the user's first "
            "launch (calendar dates). A new phone starts on the left; scoring starts at the sixth launch."
            "</figcaption>\n</figure>\n";
  }

  void WriteHours() {
    LinePanel hours;
    hours.title = "hit@5 by hour";
    hours.width = 620;
    hours.x.title = "hour of the launch (local time)";
    hours.x.high = 23.0;
    hours.x.step = 3.0;
    hours.y = ShareAxis("hit@5");
    hours.y.grid = true;
    hours.markers = true;
    for (int h = 0; h < 24; ++h) hours.xs.push_back(h);
    bool any = false;
    for (const RunTotals& run : runs_) {
      std::vector<double>& values = hours.values.emplace_back();
      for (const HitCount& count : run.profile.byHour) {
        values.push_back(Rate(count));
        any = any || count.scored > 0;
      }
    }
    out_ << "<h2 id=\"hours\">Time of day</h2>\n";
    if (!any) {
      out_ << "<p>" << kNoProfile << "</p>\n";
      return;
    }
    out_ << "<figure>\n";
    WriteLineCharts(out_, {hours}, keys_, strokes_);
    out_ << "<figcaption>hit@5 of all users' scored launches in each hour of the day, local time.</figcaption>\n"
            "</figure>\n";
  }

  void WriteRow() {
    std::vector<double> hits;
    std::vector<double> churns;
    for (const RunTotals& run : runs_) {
      hits.push_back(run.total.RowHit());
      churns.push_back(run.total.churnCount == 0 ? kNaN : run.total.Churn());
    }
    out_ << "<h2 id=\"row\">Suggestion row</h2>\n";
    bool any = false;
    for (std::size_t r = 0; r < runs_.size(); ++r) any = any || !(std::isnan(hits[r]) || std::isnan(churns[r]));
    if (any) {
      Axis churn = ValueAxis("churn: row positions changed per launch", churns, 0.5);
      Axis hit = ValueAxis("row hit rate", hits, 0.5);
      hit.high = std::min(hit.high, 1.0);
      out_ << "<figure>\n";
      WriteScatter(out_, churn, hit, keys_, strokes_, churns, hits);
      out_ << "<figcaption>Per run, the share of scored launches whose app was in the suggestion row shown for "
              "it, against churn: the positions at which the row differs from the one shown before the previous "
              "launch, per launch. Up and left is better.</figcaption>\n</figure>\n";
    }
    out_ << "<div class=\"table\"><table>\n"
            "<tr><th>run</th><th>row hit</th><th>dock or row hit</th><th>churn</th></tr>\n";
    for (const RunTotals& run : runs_) {
      out_ << "<tr><td>" << EscapeXml(run.label) << "</td><td>" << Value(run.total.RowHit(), 4) << "</td><td>"
           << Value(run.total.DockOrRowHit(), 4) << "</td><td>"
           << Value(run.total.churnCount == 0 ? kNaN : run.total.Churn(), 3) << "</td></tr>\n";
    }
    out_ << "</table></div>\n";
  }

  void WriteRunning() {
    const DatedCurves dated = CurvesByDate(runs_);
    out_ << "<h2 id=\"running\">Running MAP and recall@5</h2>\n";
    const auto drawn = [](const Curve& curve) { return !curve.map.empty() && !std::isnan(curve.map.back()); };
    if (std::none_of(dated.curves.begin(), dated.curves.end(), drawn)) {
      out_ << "<p>" << kNoProfile << "</p>\n";
      return;
    }
    CurveAxis axis;
    axis.title = "date of the launch, all users";
    axis.first = static_cast<double>(dated.firstDate);
    axis.low = axis.first;
    axis.tickText = [](double day) { return Date(std::llround(day)); };
    out_ << "<figure>\n";
    WriteSvgPlot(out_, "", dated.curves, axis, "running");
    out_ << "<figcaption>The means over all users' launches scored up to the end of each date, as the summary "
            "table's; the first tenth of the dates is left out of the value range.</figcaption>\n</figure>\n";
  }

  std::ostream& out_;
  const LogSummary& log_;
  const std::string& options_;
  const std::vector<RunTotals>& runs_;
  const bool row_;
  const BootstrapOptions bootstrap_;
  std::vector<RunKey> keys_;
  std::vector<Stroke> strokes_;
  std::uint64_t scored_ = 0;
  std::size_t scoredUsers_ = 0;
  std::size_t best_ = kNoRun;
  std::size_t mostRecent_ = kNoRun;
};

}  // namespace

void WriteHtmlReport(std::ostream& out, const LogSummary& log, const std::string& options,
                     const std::vector<RunTotals>& runs, bool row, const BootstrapOptions& bootstrap) {
  Page(out, log, options, runs, row, bootstrap).Write();
}

}  // namespace NuvikReplay
