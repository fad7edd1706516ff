#include "replay/Report.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <iterator>
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

std::string UserName(const UserLog& user) { return user.name.empty() ? "(no user column)" : user.name; }

void PrintTable(std::ostream& out, const std::vector<Row>& rows) {
  static const char* const kHeaders[] = {"ensemble", "users", "launches", "scored",
                                         "apps",     "MAP",   "recall@5", "µs/launch"};
  constexpr std::size_t kColumns = sizeof kHeaders / sizeof kHeaders[0];
  std::vector<std::vector<std::string>> cells;
  for (const Row& row : rows) {
    const Totals& t = row.totals;
    cells.push_back({row.label, std::to_string(t.users), std::to_string(t.launches), std::to_string(t.scored),
                     std::to_string(t.apps), Fixed(t.Map(), 4), Fixed(t.Recall(), 4), Fixed(t.MicrosPerLaunch(), 2)});
  }
  std::size_t widths[kColumns];
  for (std::size_t c = 0; c < kColumns; ++c) {
    widths[c] = DisplayWidth(kHeaders[c]);
    for (const auto& line : cells) widths[c] = std::max(widths[c], DisplayWidth(line[c]));
  }
  std::size_t total = 0;
  for (std::size_t c = 0; c < kColumns; ++c) total += widths[c] + (c == 0 ? 0 : 2);
  const auto printLine = [&](const std::vector<std::string>& line) {
    for (std::size_t c = 0; c < kColumns; ++c) out << (c == 0 ? "" : "  ") << Pad(line[c], widths[c], c != 0);
    out << '\n';
  };
  printLine(std::vector<std::string>(std::begin(kHeaders), std::end(kHeaders)));
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

std::string JsonTotals(const Totals& t) {
  return "\"launches\": " + std::to_string(t.launches) + ", \"scored\": " + std::to_string(t.scored) +
         ", \"apps\": " + std::to_string(t.apps) + ", \"map\": " + JsonNumber(t.Map()) +
         ", \"recallAt5\": " + JsonNumber(t.Recall()) + ", \"sumMap\": " + JsonNumber(t.sumMap) +
         ", \"sumRecall\": " + JsonNumber(t.sumRecall) + ", \"microsPerLaunch\": " + JsonNumber(t.MicrosPerLaunch());
}

}  // namespace

Totals TotalOf(const UserResult& user) {
  return {1, user.launches, user.scored, user.knownApps.size(), user.sumMap, user.sumRecall, user.seconds};
}

Totals TotalOf(const RunResult& run) {
  Totals totals;
  std::set<std::string> apps;
  for (const UserResult& user : run.users) {
    ++totals.users;
    totals.launches += user.launches;
    totals.scored += user.scored;
    totals.sumMap += user.sumMap;
    totals.sumRecall += user.sumRecall;
    totals.seconds += user.seconds;
    apps.insert(user.knownApps.begin(), user.knownApps.end());
  }
  totals.apps = apps.size();
  return totals;
}

void PrintTables(std::ostream& out, const LaunchLog& log, const std::vector<RunResult>& runs, bool perUser) {
  out << log.source << ": " << Plural(log.launchCount, "launch", "launches") << ", "
      << Plural(log.users.size(), "user", "users") << ", " << Plural(log.apps.size(), "app", "apps") << "\n\n";
  std::vector<Row> rows;
  for (const RunResult& run : runs) rows.push_back({run.label, TotalOf(run), run.baseline});
  PrintTable(out, rows);
  if (!perUser) return;
  for (std::size_t u = 0; u < log.users.size(); ++u) {
    out << "\nuser: " << UserName(log.users[u]) << "\n";
    rows.clear();
    for (const RunResult& run : runs) rows.push_back({run.label, TotalOf(run.users[u]), run.baseline});
    PrintTable(out, rows);
  }
}

void PrintJson(std::ostream& out, const LaunchLog& log, const std::vector<RunResult>& runs, bool perUser) {
  out << "{\n  \"source\": " << JsonString(log.source) << ",\n  \"launches\": " << log.launchCount
      << ",\n  \"users\": " << log.users.size() << ",\n  \"apps\": " << log.apps.size()
      << ",\n  \"badRows\": " << log.badRows << ",\n  \"results\": [";
  for (std::size_t r = 0; r < runs.size(); ++r) {
    const RunResult& run = runs[r];
    out << (r == 0 ? "\n" : ",\n") << "    {\"name\": " << JsonString(run.label)
        << ", \"baseline\": " << (run.baseline ? "true" : "false") << ", \"users\": " << run.users.size() << ", "
        << JsonTotals(TotalOf(run));
    if (perUser) {
      out << ",\n     \"perUser\": [";
      for (std::size_t u = 0; u < run.users.size(); ++u) {
        out << (u == 0 ? "\n" : ",\n") << "       {\"user\": " << JsonString(log.users[u].name) << ", "
            << JsonTotals(TotalOf(run.users[u])) << "}";
      }
      out << "]";
    }
    out << "}";
  }
  out << "\n  ]\n}\n";
}

}  // namespace NuvikReplay
