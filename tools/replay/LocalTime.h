// Launch times as seconds of local wall-clock time since 1970-01-01 00:00:00.
// No time zone is involved: the facade reads only the local hour and minute.
#ifndef NUVIK_TOOLS_REPLAY_LOCAL_TIME_H_
#define NUVIK_TOOLS_REPLAY_LOCAL_TIME_H_

#include <cstdint>
#include <ctime>
#include <optional>
#include <string>
#include <string_view>

namespace NuvikReplay {

using LocalSeconds = std::int64_t;

struct ParsedTime {
  LocalSeconds seconds = 0;
  std::string error;  // empty on success
};

// Accepts "YYYY-MM-DD HH:MM[:SS[.fraction]]" ('T' may stand for the space) as
// local time, or integer seconds since the Unix epoch, which need the offset
// of local time from UTC.
ParsedTime ParseLaunchTime(std::string_view text, std::optional<int> utcOffsetSeconds);

// "+HH:MM", "-HH:MM", "+HHMM", "+HH" or "Z"; seconds east of UTC.
std::optional<int> ParseUtcOffset(std::string_view text);

std::tm ToTm(LocalSeconds time);

// The calendar date of `time` as days since 1970-01-01.
std::int64_t DateOf(LocalSeconds time);

// "YYYY-MM-DD HH:MM:SS".
std::string FormatLocalTime(LocalSeconds time);

}  // namespace NuvikReplay

#endif  // NUVIK_TOOLS_REPLAY_LOCAL_TIME_H_
