#include "replay/LaunchLog.h"

#include <algorithm>
#include <cctype>

#include "replay/Errors.h"
#include "replay/LineReader.h"

namespace NuvikReplay {

namespace {

constexpr std::size_t kBadRowSamples = 5;
constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";

std::string_view Trim(std::string_view text) {
  const auto isBlank = [](char c) { return c == ' ' || c == '\t'; };
  while (!text.empty() && isBlank(text.front())) text.remove_prefix(1);
  while (!text.empty() && isBlank(text.back())) text.remove_suffix(1);
  return text;
}

// Splits a row on `delimiter`. A field may be quoted with '"', a doubled quote
// standing for one; blanks around fields are dropped. Returns an error text
// for a malformed quote.
std::string SplitFields(std::string_view line, char delimiter, std::vector<std::string>& fields) {
  fields.clear();
  std::size_t pos = 0;
  while (true) {
    while (pos < line.size() && line[pos] == ' ' && delimiter != ' ') ++pos;
    std::string field;
    if (pos < line.size() && line[pos] == '"') {
      ++pos;
      while (true) {
        if (pos >= line.size()) return "unterminated quoted field";
        if (line[pos] == '"') {
          if (pos + 1 < line.size() && line[pos + 1] == '"') {
            field += '"';
            pos += 2;
            continue;
          }
          ++pos;
          break;
        }
        field += line[pos++];
      }
      while (pos < line.size() && line[pos] == ' ') ++pos;
      if (pos < line.size() && line[pos] != delimiter) return "text after a closing quote";
    } else {
      const std::size_t end = std::min(line.find(delimiter, pos), line.size());
      field = Trim(line.substr(pos, end - pos));
      pos = end;
    }
    fields.push_back(std::move(field));
    if (pos >= line.size()) return {};
    ++pos;  // the delimiter
  }
}

char DetectDelimiter(std::string_view header) {
  for (const char candidate : {'\t', ',', ';'}) {
    if (header.find(candidate) != std::string_view::npos) return candidate;
  }
  return ',';
}

std::string Lowercase(std::string text) {
  for (char& c : text) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  return text;
}

std::string Plural(std::size_t count, const char* noun) {
  return std::to_string(count) + " " + noun + (count == 1 ? "" : "s");
}

}  // namespace

LaunchLogParser::LaunchLogParser(std::string source, ReadOptions options) : options_(options) {
  log_.source = std::move(source);
}

std::string LaunchLogParser::Where(std::size_t line) const { return log_.source + ":" + std::to_string(line); }

void LaunchLogParser::AddLine(std::string_view line) {
  ++lineNumber_;
  if (lineNumber_ == 1 && line.substr(0, kByteOrderMark.size()) == kByteOrderMark) {
    line.remove_prefix(kByteOrderMark.size());
  }
  if (!headerSeen_) {
    ParseHeader(line);
    headerSeen_ = true;
  } else if (!Trim(line).empty()) {
    ParseRow(line);
  }
}

void LaunchLogParser::ParseHeader(std::string_view line) {
  delimiter_ = DetectDelimiter(line);
  const std::string error = SplitFields(line, delimiter_, fields_);
  if (!error.empty()) throw InputError(Where(lineNumber_) + ": bad header: " + error);
  std::optional<std::size_t> time;
  std::optional<std::size_t> app;
  std::string found;
  for (std::size_t i = 0; i < fields_.size(); ++i) {
    const std::string name = Lowercase(fields_[i]);
    found += (i == 0 ? "" : ", ") + ("'" + fields_[i] + "'");
    std::optional<std::size_t>* column = name == "timestamp" ? &time
                                         : name == "app"     ? &app
                                         : name == "user"    ? &userColumn_
                                                             : nullptr;
    if (column == nullptr) continue;
    if (*column) throw InputError(Where(lineNumber_) + ": the header names column '" + name + "' twice");
    *column = i;
  }
  if (!time || !app) {
    throw InputError(Where(lineNumber_) + ": the header must name the columns 'timestamp' and 'app' (and " +
                     "optionally 'user'); found " + found);
  }
  timeColumn_ = *time;
  appColumn_ = *app;
  columnCount_ = fields_.size();
}

void LaunchLogParser::RejectRow(const std::string& reason) {
  const std::string message = Where(lineNumber_) + ": " + reason;
  if (!options_.skipBadRows) throw InputError(message);
  ++log_.badRows;
  if (log_.badRowSamples.size() < kBadRowSamples) log_.badRowSamples.push_back(message);
}

void LaunchLogParser::ParseRow(std::string_view line) {
  const std::string error = SplitFields(line, delimiter_, fields_);
  if (!error.empty()) return RejectRow(error);
  if (fields_.size() != columnCount_) {
    return RejectRow("expected " + Plural(columnCount_, "column") + ", found " + std::to_string(fields_.size()));
  }
  const std::string user = userColumn_ ? fields_[*userColumn_] : std::string();
  if (options_.readsUser && !options_.readsUser(user)) return;
  const ParsedTime time = ParseLaunchTime(fields_[timeColumn_], options_.utcOffsetSeconds);
  if (!time.error.empty()) return RejectRow(time.error);
  const std::string& app = fields_[appColumn_];
  if (app.empty()) return RejectRow("empty app");
  if (userColumn_ && user.empty()) return RejectRow("empty user");

  const auto [userEntry, newUser] = userIndex_.try_emplace(user, log_.users.size());
  if (newUser) {
    log_.users.push_back({user, {}});
    userStates_.push_back({time.seconds, lineNumber_});
  }
  UserState& state = userStates_[userEntry->second];
  if (time.seconds < state.lastTime) {
    return RejectRow("time " + FormatLocalTime(time.seconds) + " is earlier than " + FormatLocalTime(state.lastTime) +
                     " on line " + std::to_string(state.lastLine) +
                     (userColumn_ ? " for user '" + user + "'" : std::string()) +
                     "; the rows of each user must be in time order");
  }
  state = {time.seconds, lineNumber_};

  const auto [appEntry, newApp] = appIds_.try_emplace(app, static_cast<AppId>(log_.apps.size()));
  if (newApp) log_.apps.push_back(app);
  const Launch launch{time.seconds, appEntry->second, static_cast<std::uint32_t>(log_.launchCount)};
  if (options_.onLaunch) {
    options_.onLaunch(userEntry->second, launch);
  } else {
    log_.users[userEntry->second].launches.push_back(launch);
  }
  ++log_.launchCount;
}

LaunchLog LaunchLogParser::Finish() {
  if (!headerSeen_) throw InputError(log_.source + ": empty log: expected a header line");
  if (log_.launchCount == 0) throw InputError(log_.source + ": no launch to replay");
  return std::move(log_);
}

LaunchLog ParseLaunchLog(std::string_view text, const std::string& source, const ReadOptions& options) {
  LaunchLogParser parser(source, options);
  while (!text.empty()) {
    const std::size_t end = std::min(text.find('\n'), text.size());
    std::string_view line = text.substr(0, end);
    if (!line.empty() && line.back() == '\r') line.remove_suffix(1);
    parser.AddLine(line);
    text.remove_prefix(std::min(end + 1, text.size()));
  }
  return parser.Finish();
}

LaunchLog ReadLaunchLog(const std::string& path, const ReadOptions& options) {
  LineReader reader(path);
  LaunchLogParser parser(reader.name(), options);
  std::string line;
  while (reader.Next(line)) parser.AddLine(line);
  return parser.Finish();
}

}  // namespace NuvikReplay
