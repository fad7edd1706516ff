#include "replay/LocalTime.h"

#include <cstdio>

namespace NuvikReplay {

namespace {

constexpr std::int64_t kSecondsPerDay = 86400;

// Days since 1970-01-01 of a proleptic Gregorian date.
std::int64_t DaysFromCivil(std::int64_t year, int month, int day) {
  year -= month <= 2 ? 1 : 0;
  const std::int64_t era = (year >= 0 ? year : year - 399) / 400;
  const std::int64_t yearOfEra = year - era * 400;
  const std::int64_t dayOfYear = (153 * (month > 2 ? month - 3 : month + 9) + 2) / 5 + day - 1;
  const std::int64_t dayOfEra = yearOfEra * 365 + yearOfEra / 4 - yearOfEra / 100 + dayOfYear;
  return era * 146097 + dayOfEra - 719468;
}

struct CivilDate {
  std::int64_t year;
  int month;  // 1 to 12
  int day;    // 1 to 31
};

CivilDate CivilFromDays(std::int64_t days) {
  days += 719468;
  const std::int64_t era = (days >= 0 ? days : days - 146096) / 146097;
  const std::int64_t dayOfEra = days - era * 146097;
  const std::int64_t yearOfEra = (dayOfEra - dayOfEra / 1460 + dayOfEra / 36524 - dayOfEra / 146096) / 365;
  const std::int64_t dayOfYear = dayOfEra - (365 * yearOfEra + yearOfEra / 4 - yearOfEra / 100);
  const std::int64_t shiftedMonth = (5 * dayOfYear + 2) / 153;
  const int day = static_cast<int>(dayOfYear - (153 * shiftedMonth + 2) / 5 + 1);
  const int month = static_cast<int>(shiftedMonth < 10 ? shiftedMonth + 3 : shiftedMonth - 9);
  return {yearOfEra + era * 400 + (month <= 2 ? 1 : 0), month, day};
}

bool IsLeapYear(std::int64_t year) { return year % 4 == 0 && (year % 100 != 0 || year % 400 == 0); }

int DaysInMonth(std::int64_t year, int month) {
  static constexpr int kDays[] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
  return month == 2 && IsLeapYear(year) ? 29 : kDays[month - 1];
}

std::int64_t FloorDiv(std::int64_t a, std::int64_t b) { return a / b - ((a % b != 0) && ((a < 0) != (b < 0))); }

std::int64_t FloorMod(std::int64_t a, std::int64_t b) { return a - FloorDiv(a, b) * b; }

bool IsDigit(char c) { return c >= '0' && c <= '9'; }

// Reads exactly `width` digits at `pos`.
bool ReadDigits(std::string_view text, std::size_t& pos, std::size_t width, int& value) {
  if (pos + width > text.size()) return false;
  value = 0;
  for (std::size_t i = 0; i < width; ++i) {
    const char c = text[pos + i];
    if (!IsDigit(c)) return false;
    value = value * 10 + (c - '0');
  }
  pos += width;
  return true;
}

bool Expect(std::string_view text, std::size_t& pos, char c) {
  if (pos >= text.size() || text[pos] != c) return false;
  ++pos;
  return true;
}

bool IsEpochSeconds(std::string_view text) {
  if (!text.empty() && text.front() == '-') text.remove_prefix(1);
  if (text.empty() || text.size() > 15) return false;
  for (const char c : text) {
    if (!IsDigit(c)) return false;
  }
  return true;
}

ParsedTime Failure(std::string_view text, const char* reason) {
  return {0, "bad time '" + std::string(text) + "': " + reason};
}

}  // namespace

ParsedTime ParseLaunchTime(std::string_view text, std::optional<int> utcOffsetSeconds) {
  if (IsEpochSeconds(text)) {
    if (!utcOffsetSeconds) return Failure(text, "epoch seconds need --utc-offset");
    return {std::stoll(std::string(text)) + *utcOffsetSeconds, {}};
  }
  static constexpr const char* kExpected = "expected YYYY-MM-DD HH:MM[:SS] or epoch seconds";
  std::size_t pos = 0;
  int year = 0, month = 0, day = 0, hour = 0, minute = 0, second = 0;
  if (!ReadDigits(text, pos, 4, year) || !Expect(text, pos, '-') || !ReadDigits(text, pos, 2, month) ||
      !Expect(text, pos, '-') || !ReadDigits(text, pos, 2, day)) {
    return Failure(text, kExpected);
  }
  if (pos >= text.size() || (text[pos] != ' ' && text[pos] != 'T')) return Failure(text, kExpected);
  ++pos;
  if (!ReadDigits(text, pos, 2, hour) || !Expect(text, pos, ':') || !ReadDigits(text, pos, 2, minute)) {
    return Failure(text, kExpected);
  }
  if (pos < text.size()) {
    if (!Expect(text, pos, ':') || !ReadDigits(text, pos, 2, second)) return Failure(text, kExpected);
    if (pos < text.size() && text[pos] == '.') {
      ++pos;
      if (pos == text.size()) return Failure(text, kExpected);
      while (pos < text.size() && IsDigit(text[pos])) ++pos;
    }
    if (pos != text.size()) return Failure(text, kExpected);
  }
  if (month < 1 || month > 12 || day < 1 || day > DaysInMonth(year, month)) return Failure(text, "no such date");
  if (hour > 23 || minute > 59 || second > 59) return Failure(text, "no such time of day");
  const std::int64_t days = DaysFromCivil(year, month, day);
  return {days * kSecondsPerDay + hour * 3600 + minute * 60 + second, {}};
}

std::optional<int> ParseUtcOffset(std::string_view text) {
  if (text == "Z" || text == "z") return 0;
  if (text.empty() || (text.front() != '+' && text.front() != '-')) return std::nullopt;
  const int sign = text.front() == '-' ? -1 : 1;
  std::size_t pos = 1;
  int hours = 0;
  int minutes = 0;
  if (!ReadDigits(text, pos, 2, hours)) return std::nullopt;
  if (pos < text.size()) {
    if (text[pos] == ':') ++pos;
    if (!ReadDigits(text, pos, 2, minutes) || pos != text.size()) return std::nullopt;
  }
  if (hours > 18 || minutes > 59) return std::nullopt;
  return sign * (hours * 3600 + minutes * 60);
}

std::tm ToTm(LocalSeconds time) {
  const std::int64_t days = FloorDiv(time, kSecondsPerDay);
  const std::int64_t secondOfDay = time - days * kSecondsPerDay;
  const CivilDate date = CivilFromDays(days);
  std::tm result{};
  result.tm_year = static_cast<int>(date.year - 1900);
  result.tm_mon = date.month - 1;
  result.tm_mday = date.day;
  result.tm_hour = static_cast<int>(secondOfDay / 3600);
  result.tm_min = static_cast<int>(secondOfDay / 60 % 60);
  result.tm_sec = static_cast<int>(secondOfDay % 60);
  result.tm_wday = static_cast<int>(FloorMod(days + 4, 7));  // 1970-01-01 was a Thursday
  result.tm_yday = static_cast<int>(days - DaysFromCivil(date.year, 1, 1));
  result.tm_isdst = -1;
  return result;
}

std::int64_t DateOf(LocalSeconds time) { return FloorDiv(time, kSecondsPerDay); }

std::string FormatLocalTime(LocalSeconds time) {
  const std::tm tm = ToTm(time);
  char text[40];
  std::snprintf(text, sizeof text, "%04d-%02d-%02d %02d:%02d:%02d", tm.tm_year + 1900, tm.tm_mon + 1, tm.tm_mday,
                tm.tm_hour, tm.tm_min, tm.tm_sec);
  return text;
}

}  // namespace NuvikReplay
