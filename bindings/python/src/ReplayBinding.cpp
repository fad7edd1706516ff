// nuvik-replay's engine for nuvik.replay and nuvik.fleet: logs parsed by the
// tool's own reader, replays by its own Replay, reports by its own Report.
// Results travel as plain tuples of totals, the sums first, then the means:
//   (users, launches, scored, apps, sum_map, sum_recall, seconds, sum_hit1, sum_hit3, sum_hit5, sum_mrr5,
//    sum_ndcg5, sum_row_hit, sum_dock_or_row_hit, sum_churn, churn_count[, map, recall_at_5, hit_at_1, hit_at_3,
//    hit_at_5, mrr_at_5, ndcg_at_5, row_hit, dock_or_row_hit, churn, us_per_launch])
// and each run's profile as a dict of lists (see ToDict).
#include <algorithm>
#include <cstdint>
#include <optional>
#include <set>
#include <sstream>
#include <string>
#include <unordered_map>
#include <vector>

#include <pybind11/numpy.h>
#include <pybind11/stl.h>

#include "Bindings.h"
#include "replay/Documents.h"
#include "replay/Ensemble.h"
#include "replay/Errors.h"
#include "replay/HtmlReport.h"
#include "replay/LaunchLog.h"
#include "replay/LocalTime.h"
#include "replay/Replay.h"
#include "replay/Report.h"

namespace py = pybind11;
using namespace pybind11::literals;
using namespace NuvikReplay;

namespace NuvikPython {

namespace {

constexpr std::size_t kBadRowSamples = 5;

using Codes = py::array_t<std::int64_t, py::array::c_style | py::array::forcecast>;

std::vector<Ensemble> Ensembles(const py::iterable& texts) {
  std::vector<Ensemble> ensembles;
  for (const py::handle text : texts) {
    try {
      ensembles.push_back(ParseEnsemble(Utf8(text, "an ensemble")));
    } catch (const UsageError& error) {
      throw py::value_error(error.what());
    }
  }
  if (ensembles.empty()) throw py::value_error("no ensemble to replay");
  return ensembles;
}

ReadOptions Reading(const std::optional<std::string>& utcOffset, bool skipBadRows) {
  ReadOptions options;
  options.skipBadRows = skipBadRows;
  if (utcOffset) {
    options.utcOffsetSeconds = ParseUtcOffset(*utcOffset);
    if (!options.utcOffsetSeconds) {
      throw py::value_error("bad utc_offset '" + *utcOffset + "': expected +HH:MM, -HH:MM, +HH or Z");
    }
  }
  return options;
}

// row: the suggestion row's size, none for no row.
ReplayOptions Replaying(bool skipRepeats, double killThreshold, bool lagging, std::optional<std::size_t> row,
                        std::size_t dock, bool stable) {
  if (row == std::size_t{0}) throw py::value_error("row must be at least 1");
  if (!row && (dock != 0 || stable)) throw py::value_error("dock and stable need a row");
  ReplayOptions options;
  options.skipRepeats = skipRepeats;
  options.killThreshold = killThreshold;
  options.lagging = lagging;
  options.rowSize = row.value_or(0);
  options.dockSize = dock;
  options.stableRow = stable;
  return options;
}

py::tuple ToTuple(const Totals& t) {
  return py::make_tuple(t.users, t.launches, t.scored, t.apps, t.sumMap, t.sumRecall, t.seconds, t.sumHit1, t.sumHit3,
                        t.sumHit5, t.sumMrr5, t.sumNdcg5, t.sumRowHit, t.sumDockOrRowHit, t.sumChurn, t.churnCount,
                        t.Map(), t.Recall(), t.Hit1(), t.Hit3(), t.Hit5(), t.Mrr5(), t.Ndcg5(), t.RowHit(),
                        t.DockOrRowHit(), t.Churn(), t.MicrosPerLaunch());
}

Totals FromTuple(const py::handle value) {
  const py::tuple t = py::reinterpret_borrow<py::tuple>(value);
  Totals totals;
  totals.users = t[0].cast<std::size_t>();
  totals.launches = t[1].cast<std::uint64_t>();
  totals.scored = t[2].cast<std::uint64_t>();
  totals.apps = t[3].cast<std::size_t>();
  totals.sumMap = t[4].cast<double>();
  totals.sumRecall = t[5].cast<double>();
  totals.seconds = t[6].cast<double>();
  totals.sumHit1 = t[7].cast<double>();
  totals.sumHit3 = t[8].cast<double>();
  totals.sumHit5 = t[9].cast<double>();
  totals.sumMrr5 = t[10].cast<double>();
  totals.sumNdcg5 = t[11].cast<double>();
  totals.sumRowHit = t[12].cast<double>();
  totals.sumDockOrRowHit = t[13].cast<double>();
  totals.sumChurn = t[14].cast<double>();
  totals.churnCount = t[15].cast<std::uint64_t>();
  return totals;
}

template <typename Counts>
py::list ToList(const Counts& counts) {
  py::list list;
  for (const HitCount& count : counts) list.append(py::make_tuple(count.scored, count.hits));
  return list;
}

// A profile as {"by_launch_index": [(scored, hits)] * 4, "by_hour": [...] * 24, "by_day": [...],
// "first_date": days since 1970-01-01, "by_date": [(scored, sum_map, sum_recall)] from first_date}.
py::dict ToDict(const RunProfile& profile) {
  py::list byDate;
  for (const ScoreSums& sums : profile.byDate) byDate.append(py::make_tuple(sums.scored, sums.sumMap, sums.sumRecall));
  return py::dict("by_launch_index"_a = ToList(profile.byLaunchIndex), "by_hour"_a = ToList(profile.byHour),
                  "by_day"_a = ToList(profile.byDay), "first_date"_a = profile.firstDate, "by_date"_a = byDate);
}

std::vector<HitCount> CountsFrom(const py::handle list, const char* key, std::size_t size) {
  std::vector<HitCount> counts;
  for (const py::handle entry : list) {
    const py::sequence count = entry.cast<py::sequence>();
    if (count.size() != 2) throw py::value_error(std::string("a profile's ") + key + " holds (scored, hits) pairs");
    counts.push_back({count[0].cast<std::uint64_t>(), count[1].cast<std::uint64_t>()});
  }
  if (size != 0 && counts.size() != size) {
    throw py::value_error(std::string("a profile's ") + key + " has " + std::to_string(size) + " entries");
  }
  return counts;
}

RunProfile ProfileFrom(const py::handle value) {
  const py::dict dict = value.cast<py::dict>();
  RunProfile profile;
  const std::vector<HitCount> byLaunchIndex = CountsFrom(dict["by_launch_index"], "by_launch_index", 4);
  std::copy(byLaunchIndex.begin(), byLaunchIndex.end(), profile.byLaunchIndex.begin());
  const std::vector<HitCount> byHour = CountsFrom(dict["by_hour"], "by_hour", 24);
  std::copy(byHour.begin(), byHour.end(), profile.byHour.begin());
  profile.byDay = CountsFrom(dict["by_day"], "by_day", 0);
  profile.firstDate = dict["first_date"].cast<std::int64_t>();
  for (const py::handle entry : dict["by_date"]) {
    const py::sequence sums = entry.cast<py::sequence>();
    if (sums.size() != 3) throw py::value_error("a profile's by_date holds (scored, sum_map, sum_recall) triples");
    profile.byDate.push_back({sums[0].cast<std::uint64_t>(), sums[1].cast<double>(), sums[2].cast<double>()});
  }
  return profile;
}

// The log's figures and every run's, per user in the log's order of users.
py::dict Results(const LaunchLog& log, const std::vector<RunResult>& runs) {
  py::list users;
  for (const UserLog& user : log.users) users.append(py::str(user.name));
  py::list results;
  for (const RunResult& run : runs) {
    std::set<std::string> apps;
    py::list perUser;
    for (const UserResult& user : run.users) {
      apps.insert(user.knownApps.begin(), user.knownApps.end());
      perUser.append(ToTuple(TotalOf(user)));
    }
    results.append(py::dict("label"_a = run.label, "baseline"_a = run.baseline, "apps"_a = apps, "users"_a = perUser,
                            "profile"_a = ToDict(run.profile)));
  }
  const LogSummary summary = SummaryOf(log);
  const py::object none = py::none();
  return py::dict("source"_a = log.source, "launches"_a = log.launchCount, "apps"_a = log.apps.size(),
                  "bad_rows"_a = log.badRows, "bad_row_samples"_a = log.badRowSamples, "users"_a = users,
                  "runs"_a = results,
                  "first_launch"_a = log.launchCount == 0 ? none : py::int_(summary.firstLaunch),
                  "last_launch"_a = log.launchCount == 0 ? none : py::int_(summary.lastLaunch));
}

py::dict ReplayLog(const LaunchLog& log, const std::vector<Ensemble>& ensembles, const ReplayOptions& options) {
  std::vector<RunResult> runs;
  {
    const py::gil_scoped_release unlocked;
    runs = Replay(log, ensembles, options);
  }
  return Results(log, runs);
}

LaunchLog ParseText(const py::handle text, const std::string& source, const ReadOptions& reading) {
  const std::string csv = Utf8(text, "the log");
  try {
    const py::gil_scoped_release unlocked;
    return ParseLaunchLog(csv, source, reading);
  } catch (const InputError& error) {
    throw py::value_error(error.what());
  }
}

py::dict ReplayText(const py::handle text, const std::string& source, const py::iterable& ensembleTexts,
                    bool skipRepeats, double killThreshold, const std::optional<std::string>& utcOffset,
                    bool skipBadRows, bool lagging, std::optional<std::size_t> row, std::size_t dock,
                    bool stable) {
  const std::vector<Ensemble> ensembles = Ensembles(ensembleTexts);
  const ReplayOptions replaying = Replaying(skipRepeats, killThreshold, lagging, row, dock, stable);
  const LaunchLog log = ParseText(text, source, Reading(utcOffset, skipBadRows));
  return ReplayLog(log, ensembles, replaying);
}

// A log as columns: every launch's user and app as codes into the name lists,
// its local time and its position in the log, grouped by user.
py::dict Columns(const LaunchLog& log) {
  const auto size = static_cast<py::ssize_t>(log.launchCount);
  Codes users(size), apps(size), times(size), orders(size);
  auto user = users.mutable_unchecked<1>();
  auto app = apps.mutable_unchecked<1>();
  auto time = times.mutable_unchecked<1>();
  auto order = orders.mutable_unchecked<1>();
  py::ssize_t row = 0;
  py::list userNames;
  for (std::size_t u = 0; u < log.users.size(); ++u) {
    userNames.append(py::str(log.users[u].name));
    for (const Launch& launch : log.users[u].launches) {
      user(row) = static_cast<std::int64_t>(u);
      app(row) = launch.app;
      time(row) = launch.time;
      order(row) = launch.order;
      ++row;
    }
  }
  return py::dict("source"_a = log.source, "launches"_a = log.launchCount, "bad_rows"_a = log.badRows,
                  "bad_row_samples"_a = log.badRowSamples, "user_names"_a = userNames, "app_names"_a = log.apps,
                  "user"_a = users, "app"_a = apps, "time"_a = times, "order"_a = orders);
}

py::dict ParseColumns(const py::handle text, const std::string& source, const std::optional<std::string>& utcOffset,
                      bool skipBadRows) {
  return Columns(ParseText(text, source, Reading(utcOffset, skipBadRows)));
}

// A log file's users in order of first appearance and the launches of each, counted, not kept. Reports its bad
// rows as ParseColumns does.
py::dict IndexFile(const std::string& path, const std::optional<std::string>& utcOffset, bool skipBadRows) {
  ReadOptions reading = Reading(utcOffset, skipBadRows);
  std::vector<std::size_t> launches;
  reading.onLaunch = [&launches](std::size_t user, const Launch&) {
    if (user >= launches.size()) launches.resize(user + 1);
    ++launches[user];
  };
  LaunchLog log;
  try {
    const py::gil_scoped_release unlocked;
    log = ReadLaunchLog(path, reading);
  } catch (const InputError& error) {
    throw py::value_error(error.what());
  }
  py::list users;
  for (const UserLog& user : log.users) users.append(py::str(user.name));
  return py::dict("launches"_a = log.launchCount, "bad_rows"_a = log.badRows, "bad_row_samples"_a = log.badRowSamples,
                  "users"_a = users, "user_launches"_a = launches);
}

// The launches of some users, read from log files that together are one log, in order: only these users' rows
// are parsed and kept. A launch earlier than one of its user in an earlier file is dropped and reported; other
// bad rows are skipped unreported (IndexFile reports them).
struct UsersLog {
  LaunchLog log;
  std::size_t peakLaunches = 0;  // held at once while reading
};

UsersLog ReadUsers(const std::vector<std::string>& paths, const std::vector<std::string>& userNames,
                   ReadOptions reading) {
  UsersLog result;
  LaunchLog& log = result.log;
  std::unordered_map<std::string, std::size_t> userIndex;
  for (const std::string& name : userNames) {
    if (userIndex.try_emplace(name, log.users.size()).second) log.users.push_back({name, {}});
  }
  reading.skipBadRows = true;
  reading.readsUser = [&userIndex](const std::string& user) { return userIndex.count(user) != 0; };
  std::unordered_map<std::string, AppId> appIds;
  for (const std::string& path : paths) {
    const LaunchLog file = ReadLaunchLog(path, reading);
    result.peakLaunches = std::max(result.peakLaunches, log.launchCount + file.launchCount);
    std::vector<std::pair<std::uint32_t, std::string>> dropped;  // by position in the file
    for (const UserLog& fileUser : file.users) {
      UserLog& user = log.users[userIndex.at(fileUser.name)];
      for (const Launch& launch : fileUser.launches) {
        if (!user.launches.empty() && launch.time < user.launches.back().time) {
          dropped.emplace_back(launch.order, path + ": time " + FormatLocalTime(launch.time) + " of user '" +
                                                 user.name + "' is earlier than that of a row in an earlier log; " +
                                                 "the rows of each user must be in time order");
          continue;
        }
        const auto [app, added] = appIds.try_emplace(file.apps[launch.app], static_cast<AppId>(log.apps.size()));
        if (added) log.apps.push_back(file.apps[launch.app]);
        user.launches.push_back({launch.time, app->second, static_cast<std::uint32_t>(log.launchCount++)});
      }
    }
    std::sort(dropped.begin(), dropped.end());
    log.badRows += dropped.size();
    for (std::size_t i = 0; i < dropped.size() && log.badRowSamples.size() < kBadRowSamples; ++i) {
      log.badRowSamples.push_back(std::move(dropped[i].second));
    }
  }
  return result;
}

py::dict ReplayFiles(const std::vector<std::string>& paths, const std::vector<std::string>& userNames,
                     const py::iterable& ensembleTexts, bool skipRepeats, double killThreshold,
                     const std::optional<std::string>& utcOffset, bool skipBadRows, bool lagging,
                     std::optional<std::size_t> row, std::size_t dock, bool stable) {
  const std::vector<Ensemble> ensembles = Ensembles(ensembleTexts);
  const ReplayOptions replaying = Replaying(skipRepeats, killThreshold, lagging, row, dock, stable);
  const ReadOptions reading = Reading(utcOffset, skipBadRows);
  UsersLog users;
  std::vector<RunResult> runs;
  try {
    const py::gil_scoped_release unlocked;
    users = ReadUsers(paths, userNames, reading);
    if (users.log.badRows == 0 || skipBadRows) {
      runs = Replay(users.log, ensembles, replaying);
    }
  } catch (const InputError& error) {
    throw py::value_error(error.what());
  }
  if (users.log.badRows != 0 && !skipBadRows) throw py::value_error(users.log.badRowSamples.front());
  py::dict result = Results(users.log, runs);
  result["app_names"] = users.log.apps;
  result["peak_launches"] = users.peakLaunches;
  return result;
}

// Launches given as columns in log order, already checked.
py::dict ReplayColumns(const Codes& users, const std::vector<std::string>& userNames, const Codes& apps,
                       const std::vector<std::string>& appNames, const Codes& times, const py::iterable& ensembleTexts,
                       bool skipRepeats, double killThreshold, bool lagging, std::optional<std::size_t> row,
                       std::size_t dock, bool stable) {
  const std::vector<Ensemble> ensembles = Ensembles(ensembleTexts);
  const ReplayOptions replaying = Replaying(skipRepeats, killThreshold, lagging, row, dock, stable);
  const auto user = users.unchecked<1>();
  const auto app = apps.unchecked<1>();
  const auto time = times.unchecked<1>();
  if (app.shape(0) != user.shape(0) || time.shape(0) != user.shape(0)) {
    throw py::value_error("columns differ in length");
  }
  LaunchLog log;
  log.apps = appNames;
  std::vector<std::size_t> userIndex(userNames.size(), SIZE_MAX);
  for (py::ssize_t row = 0; row < user.shape(0); ++row) {
    if (user(row) < 0 || static_cast<std::size_t>(user(row)) >= userNames.size() || app(row) < 0 ||
        static_cast<std::size_t>(app(row)) >= appNames.size()) {
      throw py::value_error("a code has no name");
    }
    std::size_t& index = userIndex[static_cast<std::size_t>(user(row))];
    if (index == SIZE_MAX) {
      index = log.users.size();
      log.users.push_back({userNames[static_cast<std::size_t>(user(row))], {}});
    }
    log.users[index].launches.push_back(
        {time(row), static_cast<AppId>(app(row)), static_cast<std::uint32_t>(log.launchCount)});
    ++log.launchCount;
  }
  return ReplayLog(log, ensembles, replaying);
}

[[noreturn]] void RaiseOSError(const std::string& message) {
  PyErr_SetString(PyExc_OSError, message.c_str());
  throw py::error_already_set();
}

// Runs as (label, baseline, apps, per-user tuples, profile); per-user totals are added up in the order given.
std::vector<RunTotals> ToRunTotals(const py::iterable& runs) {
  std::vector<RunTotals> totals;
  for (const py::handle run : runs) {
    const py::tuple entry = py::reinterpret_borrow<py::tuple>(run);
    RunTotals& totalsOfRun = totals.emplace_back();
    totalsOfRun.label = entry[0].cast<std::string>();
    totalsOfRun.baseline = entry[1].cast<bool>();
    for (const py::handle user : py::reinterpret_borrow<py::iterable>(entry[3])) {
      totalsOfRun.users.push_back(FromTuple(user));
    }
    totalsOfRun.total = AddUp(totalsOfRun.users, entry[2].cast<std::size_t>());
    totalsOfRun.profile = ProfileFrom(entry[4]);
  }
  return totals;
}

}  // namespace

void BindReplay(py::module_& module) {
  module.def("replay_text", &ReplayText, "text"_a, "source"_a, "ensembles"_a, "skip_repeats"_a, "kill_threshold"_a,
             "utc_offset"_a, "skip_bad_rows"_a, "lagging"_a = false, "row"_a = py::none(), "dock"_a = 0,
             "stable"_a = false, "Parses a CSV or TSV log held in a str and replays it.");
  module.def("parse_columns", &ParseColumns, "text"_a, "source"_a, "utc_offset"_a, "skip_bad_rows"_a,
             "Parses a CSV or TSV log held in a str into columns grouped by user.");
  module.def("index_file", &IndexFile, "path"_a, "utc_offset"_a, "skip_bad_rows"_a,
             "Reads a log file's users and their launch counts, keeping no launch.");
  module.def("replay_files", &ReplayFiles, "paths"_a, "users"_a, "ensembles"_a, "skip_repeats"_a, "kill_threshold"_a,
             "utc_offset"_a, "skip_bad_rows"_a, "lagging"_a = false, "row"_a = py::none(), "dock"_a = 0,
             "stable"_a = false, "Replays some users of log files read as one log, parsing and keeping only their rows.");
  module.def("replay_columns", &ReplayColumns, "user"_a, "user_names"_a, "app"_a, "app_names"_a, "time"_a,
             "ensembles"_a, "skip_repeats"_a, "kill_threshold"_a, "lagging"_a = false, "row"_a = py::none(),
             "dock"_a = 0, "stable"_a = false, "Replays launches given as columns in log order.");
  module.def(
      "add_up",
      [](const py::iterable& users, std::size_t apps) {
        std::vector<Totals> totals;
        for (const py::handle user : users) totals.push_back(FromTuple(user));
        return ToTuple(AddUp(totals, apps));
      },
      "users"_a, "apps"_a, "Adds up per-user totals in the order given.");
  module.def(
      "add_profiles",
      [](const py::iterable& profiles) {
        RunProfile total;
        for (const py::handle profile : profiles) total.Add(ProfileFrom(profile));
        return ToDict(total);
      },
      "profiles"_a, "Adds up run profiles.");
  module.def(
      "report",
      [](const std::string& format, const std::string& source, std::size_t launches, std::size_t apps,
         std::size_t badRows, std::vector<std::string> userNames, const py::iterable& runs, bool perUser, bool row) {
        const LogSummary log{source, launches, apps, badRows, std::move(userNames)};
        const std::vector<RunTotals> totals = ToRunTotals(runs);
        ReportOptions options;
        options.perUser = perUser;
        options.row = row;
        std::ostringstream out;
        if (format == "json") {
          PrintJson(out, log, totals, options);
        } else {
          PrintTables(out, log, totals, options);
        }
        return out.str();
      },
      "format"_a, "source"_a, "launches"_a, "apps"_a, "bad_rows"_a, "user_names"_a, "runs"_a, "per_user"_a,
      "row"_a = false,
      "nuvik-replay's table or JSON from per-user totals.");
  module.def(
      "write_html_report",
      [](const std::string& path, const std::string& source, std::size_t launches, std::size_t apps,
         std::size_t badRows, std::vector<std::string> userNames, LocalSeconds firstLaunch, LocalSeconds lastLaunch,
         const std::string& options, const py::iterable& runs, bool row) {
        LogSummary log;
        log.source = source;
        log.launchCount = launches;
        log.appCount = apps;
        log.badRows = badRows;
        log.userNames = std::move(userNames);
        log.firstLaunch = firstLaunch;
        log.lastLaunch = lastLaunch;
        const std::vector<RunTotals> totals = ToRunTotals(runs);
        std::string error;
        {
          const py::gil_scoped_release unlocked;
          std::ostringstream page;
          WriteHtmlReport(page, log, options, totals, row);
          try {
            WriteFileAtomically(path, page.str());
          } catch (const InputError& failed) {
            error = failed.what();
          }
        }
        if (!error.empty()) RaiseOSError(error);
      },
      "path"_a, "source"_a, "launches"_a, "apps"_a, "bad_rows"_a, "user_names"_a, "first_launch"_a, "last_launch"_a,
      "options"_a, "runs"_a, "row"_a,
      "Writes nuvik-replay's HTML report from per-user totals and profiles, atomically.");
  module.def(
      "prepare_file_target",
      [](const std::string& path) {
        try {
          PrepareFileTarget(path);
        } catch (const InputError& error) {
          RaiseOSError(error.what());
        }
      },
      "path"_a, "Raises OSError unless a file can be written at path.");
}

}  // namespace NuvikPython
