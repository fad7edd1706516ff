// nuvik-replay: replays launch logs through Nuvik ensembles and compares their
// ranking measures and time per launch with two simple baselines.
#include <atomic>
#include <charconv>
#include <cstddef>
#include <iostream>
#include <sstream>
#include <string>
#include <vector>

#include <nuvik/Nuvik.h>
#include <CLI/CLI.hpp>

#include "replay/Curves.h"
#include "replay/Documents.h"
#include "replay/Ensemble.h"
#include "replay/Errors.h"
#include "replay/HtmlReport.h"
#include "replay/LaunchLog.h"
#include "replay/ProgressBar.h"
#include "replay/Replay.h"
#include "replay/Report.h"
#include "replay/SampleLog.h"
#include "replay/SvgPlot.h"

namespace NuvikReplay {
namespace {

constexpr const char* kProgram = "nuvik-replay";
constexpr const char* kSampleName = "sample-launches.csv (built in)";

constexpr const char* kFooter = R"(Input
  CSV or TSV (told apart by the header), plain or gzip, '-' for standard input.
  The header names the columns: 'timestamp' and 'app' are required, 'user' is
  optional (each user is replayed through a facade of its own); other columns
  are ignored. Timestamps are local time, YYYY-MM-DD HH:MM[:SS], or integer
  seconds since the Unix epoch together with --utc-offset. The rows of one user
  must be in time order. Without a log the built-in sample log is replayed.

Ensembles
  One slot per predictor type name, separated by commas; 'name:N' sets the
  slot's parameter (the kernel of knn_regression). Type names: stat_counter,
  linear, double_linear, markov_chain3_invalidate, knn_regression. With two
  slots the second dominates; with three or more every score is 0.0.
  Put the log before --compare, or end the list with '--'.

Metrics (summed over users)
  The list for a launch is ranked before the launch is learned and holds every
  app seen before it. The first five launches of each user only warm up.
  MAP: mean average precision of the list made five launches earlier against
  the distinct apps launched since (that launch included); recall@5: share of
  scored launches found among the first five of their list (the facade's own).
  hit@1, hit@3, hit@5: share found first, among the first three, among the
  first five (hit@5 equals recall@5). MRR@5: mean of 1/rank, NDCG@5: mean of
  1/log2(rank + 1), where the launch ranks among the first five, else 0.
  With --lagging, after each ensemble a run '<ensemble> (lagging)' scores the
  list GetNext() showed before each launch, ranked one launch behind.
  With --row K, before each launch every run shows the row of K apps a
  launcher would: its ranking (an ensemble's at the launch's time) without the
  dock, the user's N most launched apps so far (--dock N). row hit: share of
  scored launches found in the row; dock|row: in the dock or the row; churn:
  positions at which the row differs from the one before the previous launch,
  per scored launch from the second on.
  Baselines, with the same definitions: most recently used first; most
  frequently used first, ties broken by the more recent last launch.
  µs/launch: time spent learning and ranking, per launch.

Exit status: 0 on success, 1 for bad input or a failed save, 2 for a usage error.)";

struct Options {
  std::string log;
  std::string predictors = "stat_counter";
  std::string params;
  std::vector<std::string> compare;
  bool skipRepeats = false;
  double killThreshold = 0.05;
  std::string utcOffset;
  bool skipBadRows = false;
  bool perUser = false;
  std::string format = "table";
  bool trace = false;
  std::string save;
  std::string load;
  std::string plot;
  std::string report;
  std::string commandLine;  // shown in the report
  unsigned jobs = 1;
  bool lagging = false;
  std::size_t row = 0;
  std::size_t dock = 0;
  bool stable = false;
};

std::vector<Ensemble> Ensembles(const Options& options) {
  std::vector<Ensemble> ensembles;
  if (options.compare.empty()) {
    ensembles.push_back(ParseEnsemble(options.predictors, options.params));
  } else {
    for (const std::string& text : options.compare) {
      if (options.log.empty() && text.find_first_of("./") != std::string::npos) {
        throw UsageError("'" + text + "' is no ensemble: put the log before --compare, or end the list with --");
      }
      ensembles.push_back(ParseEnsemble(text));
    }
  }
  if (ensembles.size() > 1 && (!options.save.empty() || !options.load.empty())) {
    throw UsageError("--save and --load work with one ensemble, not with --compare of several");
  }
  for (const Ensemble& ensemble : ensembles) {
    if (ensemble.names.size() > 2) {
      std::cerr << kProgram << ": note: '" << ensemble.label
                << "' has three or more slots, so every combined score is 0.0\n";
    }
  }
  return ensembles;
}

LaunchLog ReadLog(const Options& options) {
  ReadOptions read;
  read.skipBadRows = options.skipBadRows;
  if (!options.utcOffset.empty()) {
    read.utcOffsetSeconds = ParseUtcOffset(options.utcOffset);
    if (!read.utcOffsetSeconds) {
      throw UsageError("bad --utc-offset '" + options.utcOffset + "': expected +HH:MM, -HH:MM, +HH or Z");
    }
  }
  if (options.log.empty()) return ParseLaunchLog(SampleLog(), kSampleName, read);
  return ReadLaunchLog(options.log, read);
}

std::string BaseName(const std::string& path) { return path.substr(path.rfind('/') + 1); }

// The command as a shell would take it back: arguments quoted where needed.
std::string CommandLine(int argc, char** argv) {
  static constexpr const char* kPlain = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789_-+=:,./@%";
  std::string line = kProgram;
  for (int i = 1; i < argc; ++i) {
    const std::string argument = argv[i];
    line += ' ';
    if (!argument.empty() && argument.find_first_not_of(kPlain) == std::string::npos) {
      line += argument;
      continue;
    }
    line += '\'';
    for (const char c : argument) line += c == '\'' ? std::string("'\\''") : std::string(1, c);
    line += '\'';
  }
  return line;
}

// A count of at least `least`, in decimal digits that fit a std::size_t.
CLI::Validator AtLeast(std::size_t least) {
  return CLI::Validator(
      [least](std::string& text) -> std::string {
        std::size_t value = 0;
        const char* end = text.data() + text.size();
        const auto [stop, error] = std::from_chars(text.data(), end, value);
        if (text.empty() || text[0] == '-' || error == std::errc::invalid_argument || stop != end) {
          return "'" + text + "' is not a count";
        }
        if (error == std::errc::result_out_of_range) return "'" + text + "' is too large";
        if (value < least) return "expected at least " + std::to_string(least) + ", not " + text;
        return std::string();
      },
      "");
}

int Run(const Options& options) {
  const std::vector<Ensemble> ensembles = Ensembles(options);
  const LaunchLog log = ReadLog(options);
  if (log.badRows > 0) {
    std::cerr << kProgram << ": skipped " << log.badRows << " bad row" << (log.badRows == 1 ? "" : "s")
              << (log.badRows > log.badRowSamples.size() ? ", the first:" : ":") << "\n";
    for (const std::string& sample : log.badRowSamples) std::cerr << "  " << sample << "\n";
  }
  const bool onePerUser = log.users.size() > 1;
  if (!options.save.empty()) PrepareSaveTarget(options.save, onePerUser);
  for (const std::string* file : {&options.plot, &options.report}) {
    if (!file->empty()) PrepareFileTarget(*file);
  }

  ReplayOptions replay;
  replay.skipRepeats = options.skipRepeats;
  replay.killThreshold = options.killThreshold;
  replay.jobs = options.jobs;
  replay.lagging = options.lagging;
  replay.rowSize = options.row;
  replay.dockSize = options.dock;
  replay.stableRow = options.stable;
  replay.keepScores = !options.plot.empty();
  replay.keepDocuments = !options.save.empty();
  replay.loadTarget = options.load;
  replay.trace = options.trace ? &std::cout : nullptr;
  std::atomic<std::uint64_t> progress{0};
  replay.progress = &progress;
  std::vector<RunResult> runs;
  {
    const ProgressBar bar(progress, options.trace ? 0 : log.launchCount * (ensembles.size() + 2));
    runs = Replay(log, ensembles, replay);
  }
  for (const RunResult& run : runs) {
    for (const UserResult& user : run.users) {
      for (const std::string& note : user.notes) std::cerr << kProgram << ": note: " << note << "\n";
    }
  }

  ReportOptions report;
  report.perUser = options.perUser;
  report.row = options.row != 0;
  if (options.format == "json") {
    PrintJson(std::cout, log, runs, report);
  } else {
    PrintTables(std::cout, log, runs, report);
  }
  std::cout.flush();

  if (!options.save.empty()) {
    for (std::size_t u = 0; u < log.users.size(); ++u) {
      WriteFileAtomically(DocumentPath(options.save, log.users[u].name, onePerUser), runs[0].users[u].document);
    }
  }
  if (!options.plot.empty()) {
    std::ostringstream svg;
    WriteSvgPlot(svg,
                 "Running MAP and recall@5 on " + BaseName(log.source) + " (" + std::to_string(log.launchCount) +
                     " launches, " + std::to_string(log.users.size()) + " users)",
                 RunningCurves(log, runs));
    WriteFileAtomically(options.plot, svg.str());
  }
  if (!options.report.empty()) {
    std::ostringstream html;
    WriteHtmlReport(html, SummaryOf(log), options.commandLine, TotalsOf(runs), report.row);
    WriteFileAtomically(options.report, html.str());
  }
  return 0;
}

}  // namespace
}  // namespace NuvikReplay

int main(int argc, char** argv) {
  using namespace NuvikReplay;
  Options options;
  CLI::App app{
      "Replays launch logs through Nuvik ensembles and reports MAP, recall@5, hit@k, MRR@5, NDCG@5\n"
      "and time per launch, next to most-recently-used and most-frequently-used baselines.",
      kProgram};
  app.add_option("log", options.log, "Launch log (CSV or TSV, plain or gzip; '-' reads standard input)");
  CLI::Option* predictors =
      app.add_option("--predictors", options.predictors, "One ensemble: type names separated by commas")
          ->capture_default_str();
  CLI::Option* params = app.add_option("--params", options.params, "Slot parameters for --predictors, e.g. 1,5");
  CLI::Option* compare = app.add_option("--compare", options.compare, "Several ensembles, replayed on the same log");
  compare->excludes(predictors)->excludes(params);
  app.add_flag("--skip-repeats", options.skipRepeats, "Ignore a launch of the app launched just before");
  app.add_option("--kill-threshold", options.killThreshold, "Kill-list threshold of the facade")->capture_default_str();
  app.add_option("--utc-offset", options.utcOffset, "Local time offset for epoch timestamps, e.g. +02:00");
  app.add_flag("--skip-bad-rows", options.skipBadRows, "Count and skip malformed rows instead of stopping");
  app.add_flag("--lagging", options.lagging, "After each ensemble, score the list GetNext() showed before each launch");
  CLI::Option* row = app.add_option("--row", options.row, "Score the row of K suggestions a launcher would show")
                         ->type_name("K")
                         ->check(AtLeast(1));
  app.add_option("--dock", options.dock, "With --row: leave the user's N most launched apps to a dock beside it")
      ->type_name("N")
      ->check(AtLeast(0))
      ->needs(row);
  app.add_flag("--stable", options.stable, "With --row: keep the previous row's apps in place")->needs(row);
  app.add_flag("--per-user", options.perUser, "Add a table per user");
  app.add_option("--format", options.format, "Output format")
      ->check(CLI::IsMember({"table", "json"}))
      ->capture_default_str();
  app.add_flag("--trace", options.trace, "Print each launch with the top five of its list (one job)");
  app.add_option("--save", options.save, "Save each user's document after the replay (a directory for several users)");
  app.add_option("--load", options.load, "Start from saved documents (as written by --save)");
  app.add_option("--plot", options.plot, "Write an SVG of the running MAP and recall@5");
  app.add_option("--report", options.report,
                 "Write a self-contained HTML report: intervals over users, paired comparisons, learning, hours");
  app.add_option("--jobs", options.jobs, "Replays to run in parallel")
      ->check(CLI::Range(1u, 256u))
      ->capture_default_str();
  app.set_version_flag("--version", std::string(kProgram) + " (" + NuvikPrediction::Nuvik().GetLibraryInfo() + ")");
  app.footer(kFooter);

  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    if (error.get_exit_code() == 0) return app.exit(error);
    std::cerr << kProgram << ": " << error.what() << "\nRun '" << kProgram << " --help' for usage.\n";
    return 2;
  }
  options.commandLine = CommandLine(argc, argv);
  try {
    return Run(options);
  } catch (const UsageError& error) {
    std::cerr << kProgram << ": " << error.what() << "\nRun '" << kProgram << " --help' for usage.\n";
    return 2;
  } catch (const std::exception& error) {
    std::cerr << kProgram << ": " << error.what() << "\n";
    return 1;
  }
}
