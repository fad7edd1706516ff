// A launch log read from CSV or TSV: a header naming the columns "timestamp"
// and "app" (required) and "user" (optional, one facade per user), then one
// launch per row. Rows of one user must be in time order.
#ifndef NUVIK_TOOLS_REPLAY_LAUNCH_LOG_H_
#define NUVIK_TOOLS_REPLAY_LAUNCH_LOG_H_

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "replay/LocalTime.h"

namespace NuvikReplay {

using AppId = std::uint32_t;

struct Launch {
  LocalSeconds time;
  AppId app;            // index into LaunchLog::apps
  std::uint32_t order;  // position among all launches of the log, in file order
};

struct UserLog {
  std::string name;              // empty when the log has no user column
  std::vector<Launch> launches;  // in time order
};

struct LaunchLog {
  std::string source;             // the file name shown in messages
  std::vector<std::string> apps;  // by id, in order of first sight
  std::vector<UserLog> users;     // in order of first sight
  std::size_t launchCount = 0;
  std::size_t badRows = 0;                 // rows skipped with ReadOptions::skipBadRows
  std::vector<std::string> badRowSamples;  // the first few, as "file:line: reason"
};

struct ReadOptions {
  std::optional<int> utcOffsetSeconds;  // needed for epoch timestamps
  bool skipBadRows = false;             // otherwise the first bad row throws
  // When set, the rows of the users it rejects are skipped unchecked; their
  // lines still count.
  std::function<bool(const std::string& user)> readsUser;
  // When set, each launch goes to it (with its user's index into
  // LaunchLog::users) instead of into the log.
  std::function<void(std::size_t user, const Launch& launch)> onLaunch;
};

// Builds a log from its lines. A bad row (wrong column count, bad time, empty
// app or user, a time earlier than the user's previous row) throws InputError
// naming file, line and reason, or is counted and skipped with skipBadRows.
// A bad header always throws.
class LaunchLogParser {
 public:
  LaunchLogParser(std::string source, ReadOptions options);

  // One line, without its line ending.
  void AddLine(std::string_view line);

  // Throws InputError when the log holds no launch.
  LaunchLog Finish();

 private:
  struct UserState {
    LocalSeconds lastTime;
    std::size_t lastLine;
  };

  void ParseHeader(std::string_view line);
  void ParseRow(std::string_view line);
  void RejectRow(const std::string& reason);
  std::string Where(std::size_t line) const;

  ReadOptions options_;
  LaunchLog log_;
  std::size_t lineNumber_ = 0;
  bool headerSeen_ = false;
  char delimiter_ = ',';
  std::size_t columnCount_ = 0;
  std::size_t timeColumn_ = 0;
  std::size_t appColumn_ = 0;
  std::optional<std::size_t> userColumn_;
  std::vector<std::string> fields_;
  std::unordered_map<std::string, AppId> appIds_;
  std::unordered_map<std::string, std::size_t> userIndex_;
  std::vector<UserState> userStates_;
};

// Parses a whole log held in memory.
LaunchLog ParseLaunchLog(std::string_view text, const std::string& source, const ReadOptions& options);

// Reads a log from a file, or from standard input for "-"; gzip is inflated.
LaunchLog ReadLaunchLog(const std::string& path, const ReadOptions& options);

}  // namespace NuvikReplay

#endif  // NUVIK_TOOLS_REPLAY_LAUNCH_LOG_H_
