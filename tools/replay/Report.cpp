#include "replay/Report.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <ostream>
#include <set>
#include <string>

namespace NuvikReplay {

namespace {

struct Row {
  std::string label;
  Totals totals;
  bool baseline;
};

// Terminal columns taken by UTF-8 text: every byte but continuation bytes.
std::size_t DisplayWidth(const std::string& text) {
  std::size_t width = 0;
  for (const char c : text) width += (static_cast<unsigned char>(c) & 0xC0) != 0x80 ? 1 : 0;
  return width;
}

std::string Pad(const std::string& text, std::size_t width, bool right) {
  const std::string padding(width > DisplayWidth(text) ? width - DisplayWidth(text) : 0, ' ');
  return right ? padding + text : text + padding;
}

std::string Fixed(double value, int decimals) {
  if (std::isnan(value)) return "-";
  char text[64];
  std::snprintf(text, sizeof text, "%.*f", decimals, value);
  return text;
}

std::string Plural(std::size_t count, const char* one, const char* many) {
  return std::to_string(count) + " " + (count == 1 ? one : many);
}

std::string UserName(const std::string& name) { return name.empty() ? "(no user column)" : name; }

void PrintTable(std::ostream& out, const std::vector<Row>& rows, bool withRow) {
  std::vector<std::string> headers = {"ensemble", "users", "launches", "scored", "apps", "MAP", "recall@5", "hit@1",
                                      "MRR@5"};
  if (withRow) headers.insert(headers.end(), {"row hit", "dock|row", "churn"});
  headers.push_back("µs/launch");
  const std::size_t columns = headers.size();
  std::vector<std::vector<std::string>> cells;
  for (const Row& entry : rows) {
    const Totals& t = entry.totals;
    std::vector<std::string> line = {entry.label,           std::to_string(t.users), std::to_string(t.launches),
                                     std::to_string(t.scored), std::to_string(t.apps), Fixed(t.Map(), 4),
                                     Fixed(t.Recall(), 4),  Fixed(t.Hit1(), 4),      Fixed(t.Mrr5(), 4)};
    if (withRow) line.insert(line.end(), {Fixed(t.RowHit(), 4), Fixed(t.DockOrRowHit(), 4), Fixed(t.Churn(), 3)});
    line.push_back(Fixed(t.MicrosPerLaunch(), 2));
    cells.push_back(std::move(line));
  }
  std::vector<std::size_t> widths(columns);
  for (std::size_t c = 0; c < columns; ++c) {
    widths[c] = DisplayWidth(headers[c]);
    for (const auto& line : cells) widths[c] = std::max(widths[c], DisplayWidth(line[c]));
  }
  std::size_t total = 0;
  for (std::size_t c = 0; c < columns; ++c) total += widths[c] + (c == 0 ? 0 : 2);
  const auto printLine = [&](const std::vector<std::string>& line) {
    for (std::size_t c = 0; c < columns; ++c) out << (c == 0 ? "" : "  ") << Pad(line[c], widths[c], c != 0);
    out << '\n';
  };
  printLine(headers);
  for (std::size_t r = 0; r < rows.size(); ++r) {
    if (rows[r].baseline && (r == 0 || !rows[r - 1].baseline)) out << std::string(total, '-') << '\n';
    printLine(cells[r]);
  }
}

// JSON text of a string: quotes and backslashes escaped, control bytes as \u00XX.
std::string JsonString(const std::string& text) {
  std::string quoted = "\"";
  for (const char c : text) {
    if (c == '"' || c == '\\') {
      quoted += '\\';
      quoted += c;
    } else if (static_cast<unsigned char>(c) < 0x20) {
      char escape[8];
      std::snprintf(escape, sizeof escape, "\\u%04x", static_cast<unsigned>(c));
      quoted += escape;
    } else {
      quoted += c;
    }
  }
  return quoted + '"';
}

// Round-trip precision; NaN (nothing scored) is null.
std::string JsonNumber(double value) {
  if (!std::isfinite(value)) return "null";
  char text[64];
  std::snprintf(text, sizeof text, "%.17g", value);
  return text;
}

std::string JsonTotals(const Totals& t, bool row) {
  std::string json = "\"launches\": " + std::to_string(t.launches) + ", \"scored\": " + std::to_string(t.scored) +
                     ", \"apps\": " + std::to_string(t.apps) + ", \"map\": " + JsonNumber(t.Map()) +
                     ", \"recallAt5\": " + JsonNumber(t.Recall()) + ", \"hitAt1\": " + JsonNumber(t.Hit1()) +
                     ", \"hitAt3\": " + JsonNumber(t.Hit3()) + ", \"hitAt5\": " + JsonNumber(t.Hit5()) +
                     ", \"mrrAt5\": " + JsonNumber(t.Mrr5()) + ", \"ndcgAt5\": " + JsonNumber(t.Ndcg5()) +
                     ", \"sumMap\": " + JsonNumber(t.sumMap) + ", \"sumRecall\": " + JsonNumber(t.sumRecall) +
                     ", \"sumHit1\": " + JsonNumber(t.sumHit1) + ", \"sumHit3\": " + JsonNumber(t.sumHit3) +
                     ", \"sumHit5\": " + JsonNumber(t.sumHit5) + ", \"sumMrr5\": " + JsonNumber(t.sumMrr5) +
                     ", \"sumNdcg5\": " + JsonNumber(t.sumNdcg5);
  if (row) {
    json += ", \"rowHit\": " + JsonNumber(t.RowHit()) + ", \"dockOrRowHit\": " + JsonNumber(t.DockOrRowHit()) +
            ", \"churn\": " + JsonNumber(t.Churn()) + ", \"sumRowHit\": " + JsonNumber(t.sumRowHit) +
            ", \"sumDockOrRowHit\": " + JsonNumber(t.sumDockOrRowHit) + ", \"sumChurn\": " + JsonNumber(t.sumChurn) +
            ", \"churnCount\": " + std::to_string(t.churnCount);
  }
  return json + ", \"microsPerLaunch\": " + JsonNumber(t.MicrosPerLaunch());
}

}  // namespace

Totals TotalOf(const UserResult& user) { return user.totals; }

Totals AddUp(const std::vector<Totals>& users, std::size_t apps) {
  Totals totals;
  for (const Totals& user : users) {
    totals.users += user.users;
    totals.launches += user.launches;
    totals.scored += user.scored;
    totals.sumMap += user.sumMap;
    totals.sumRecall += user.sumRecall;
    totals.seconds += user.seconds;
    totals.sumHit1 += user.sumHit1;
    totals.sumHit3 += user.sumHit3;
    totals.sumHit5 += user.sumHit5;
    totals.sumMrr5 += user.sumMrr5;
    totals.sumNdcg5 += user.sumNdcg5;
    totals.sumRowHit += user.sumRowHit;
    totals.sumDockOrRowHit += user.sumDockOrRowHit;
    totals.sumChurn += user.sumChurn;
    totals.churnCount += user.churnCount;
  }
  totals.apps = apps;
  return totals;
}

Totals TotalOf(const RunResult& run) {
  std::vector<Totals> users;
  std::set<std::string> apps;
  for (const UserResult& user : run.users) {
    users.push_back(TotalOf(user));
    apps.insert(user.knownApps.begin(), user.knownApps.end());
  }
  return AddUp(users, apps.size());
}

LogSummary SummaryOf(const LaunchLog& log) {
  LogSummary summary;
  summary.source = log.source;
  summary.launchCount = log.launchCount;
  summary.appCount = log.apps.size();
  summary.badRows = log.badRows;
  bool dated = false;
  for (const UserLog& user : log.users) {
    summary.userNames.push_back(user.name);
    if (user.launches.empty()) continue;
    const LocalSeconds first = user.launches.front().time;
    const LocalSeconds last = user.launches.back().time;
    summary.firstLaunch = dated ? std::min(summary.firstLaunch, first) : first;
    summary.lastLaunch = dated ? std::max(summary.lastLaunch, last) : last;
    dated = true;
  }
  return summary;
}

std::vector<RunTotals> TotalsOf(const std::vector<RunResult>& runs) {
  std::vector<RunTotals> totals;
  for (const RunResult& run : runs) {
    RunTotals& entry = totals.emplace_back();
    entry.label = run.label;
    entry.baseline = run.baseline;
    entry.total = TotalOf(run);
    for (const UserResult& user : run.users) entry.users.push_back(TotalOf(user));
    entry.profile = run.profile;
  }
  return totals;
}

void PrintTables(std::ostream& out, const LaunchLog& log, const std::vector<RunResult>& runs,
                 const ReportOptions& options) {
  PrintTables(out, SummaryOf(log), TotalsOf(runs), options);
}

void PrintJson(std::ostream& out, const LaunchLog& log, const std::vector<RunResult>& runs,
               const ReportOptions& options) {
  PrintJson(out, SummaryOf(log), TotalsOf(runs), options);
}

void PrintTables(std::ostream& out, const LogSummary& log, const std::vector<RunTotals>& runs,
                 const ReportOptions& options) {
  out << log.source << ": " << Plural(log.launchCount, "launch", "launches") << ", "
      << Plural(log.userNames.size(), "user", "users") << ", " << Plural(log.appCount, "app", "apps") << "\n\n";
  std::vector<Row> rows;
  for (const RunTotals& run : runs) rows.push_back({run.label, run.total, run.baseline});
  PrintTable(out, rows, options.row);
  if (!options.perUser) return;
  for (std::size_t u = 0; u < log.userNames.size(); ++u) {
    out << "\nuser: " << UserName(log.userNames[u]) << "\n";
    rows.clear();
    for (const RunTotals& run : runs) rows.push_back({run.label, run.users[u], run.baseline});
    PrintTable(out, rows, options.row);
  }
}

void PrintJson(std::ostream& out, const LogSummary& log, const std::vector<RunTotals>& runs,
               const ReportOptions& options) {
  out << "{\n  \"source\": " << JsonString(log.source) << ",\n  \"launches\": " << log.launchCount
      << ",\n  \"users\": " << log.userNames.size() << ",\n  \"apps\": " << log.appCount
      << ",\n  \"badRows\": " << log.badRows << ",\n  \"results\": [";
  for (std::size_t r = 0; r < runs.size(); ++r) {
    const RunTotals& run = runs[r];
    out << (r == 0 ? "\n" : ",\n") << "    {\"name\": " << JsonString(run.label)
        << ", \"baseline\": " << (run.baseline ? "true" : "false") << ", \"users\": " << run.users.size() << ", "
        << JsonTotals(run.total, options.row);
    if (options.perUser) {
      out << ",\n     \"perUser\": [";
      for (std::size_t u = 0; u < run.users.size(); ++u) {
        out << (u == 0 ? "\n" : ",\n") << "       {\"user\": " << JsonString(log.userNames[u]) << ", "
            << JsonTotals(run.users[u], options.row) << "}";
      }
      out << "]";
    }
    out << "}";
  }
  out << "\n  ]\n}\n";
}

}  // namespace NuvikReplay
