#include <unistd.h>
#include <zlib.h>

#include <cstdio>
#include <fstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "replay/Errors.h"
#include "replay/LaunchLog.h"
#include "replay/LocalTime.h"

namespace NuvikReplay {
namespace {

std::string Format(std::string_view text, std::optional<int> offset = std::nullopt) {
  const ParsedTime time = ParseLaunchTime(text, offset);
  return time.error.empty() ? FormatLocalTime(time.seconds) : time.error;
}

// Each user as "name: app@HH:MM:SS app@...".
std::vector<std::string> Users(const LaunchLog& log) {
  std::vector<std::string> users;
  for (const UserLog& user : log.users) {
    std::string text = user.name + ":";
    for (const Launch& launch : user.launches) {
      text += " " + log.apps[launch.app] + "@" + FormatLocalTime(launch.time).substr(11);
    }
    users.push_back(text);
  }
  return users;
}

std::string ErrorOf(std::string_view text, ReadOptions options = {}) {
  try {
    ParseLaunchLog(text, "log.csv", options);
  } catch (const InputError& error) {
    return error.what();
  }
  return "no error";
}

TEST(LocalTimeTest, ParsesLocalTimestampsAndEpochSeconds) {
  const ParsedTime leapDay = ParseLaunchTime("2024-02-29 23:59:58", std::nullopt);
  ASSERT_EQ(leapDay.error, "");
  const std::tm tm = ToTm(leapDay.seconds);
  EXPECT_EQ(tm.tm_year, 124);
  EXPECT_EQ(tm.tm_mon, 1);
  EXPECT_EQ(tm.tm_mday, 29);
  EXPECT_EQ(tm.tm_hour, 23);
  EXPECT_EQ(tm.tm_min, 59);
  EXPECT_EQ(tm.tm_sec, 58);
  EXPECT_EQ(tm.tm_wday, 4);  // a Thursday
  EXPECT_EQ(tm.tm_yday, 59);

  EXPECT_EQ(Format("2024-03-04 07:05"), "2024-03-04 07:05:00");
  EXPECT_EQ(Format("2024-03-04T07:05:09.250"), "2024-03-04 07:05:09");
  EXPECT_EQ(Format("1969-12-31 23:59:59"), "1969-12-31 23:59:59");
  EXPECT_EQ(ToTm(-1).tm_wday, 3);
  EXPECT_EQ(Format("1709535909", -5 * 3600), "2024-03-04 02:05:09");
  EXPECT_EQ(Format("0", 2 * 3600), "1970-01-01 02:00:00");

  EXPECT_EQ(Format("2023-02-29 10:00"), "bad time '2023-02-29 10:00': no such date");
  EXPECT_EQ(Format("2024-03-04 24:00"), "bad time '2024-03-04 24:00': no such time of day");
  EXPECT_EQ(Format("2024-3-4 7:05"), "bad time '2024-3-4 7:05': expected YYYY-MM-DD HH:MM[:SS] or epoch seconds");
  EXPECT_EQ(Format("2024-03-04 07:05:"),
            "bad time '2024-03-04 07:05:': expected YYYY-MM-DD HH:MM[:SS] or epoch seconds");
  EXPECT_EQ(Format(""), "bad time '': expected YYYY-MM-DD HH:MM[:SS] or epoch seconds");
  EXPECT_EQ(Format("1709535909"), "bad time '1709535909': epoch seconds need --utc-offset");

  EXPECT_EQ(ParseUtcOffset("+02:00"), 7200);
  EXPECT_EQ(ParseUtcOffset("-0530"), -19800);
  EXPECT_EQ(ParseUtcOffset("+05"), 18000);
  EXPECT_EQ(ParseUtcOffset("Z"), 0);
  EXPECT_EQ(ParseUtcOffset("2"), std::nullopt);
  EXPECT_EQ(ParseUtcOffset("+25:00"), std::nullopt);
  EXPECT_EQ(ParseUtcOffset("+02:60"), std::nullopt);
}

TEST(LaunchLogTest, ReadsCsvAndTsvAndSeparatesUsers) {
  // Byte order mark, CRLF, columns in any order, an extra column, quoting,
  // blank lines, and users interleaved.
  const LaunchLog csv = ParseLaunchLog(
      "\xEF\xBB\xBF"
      "App,note,User,timestamp\r\n"
      "mail,,bob,2024-03-04 08:00\r\n"
      "\"maps, offline\",\"say \"\"hi\"\"\",ann,2024-03-04 08:01:30\r\n"
      "\r\n"
      " mail , x ,ann, 2024-03-04 08:02\r\n"
      "chat,,bob,2024-03-04 08:02\r\n",
      "log.csv", {});
  EXPECT_EQ(Users(csv), (std::vector<std::string>{"bob: mail@08:00:00 chat@08:02:00",
                                                  "ann: maps, offline@08:01:30 mail@08:02:00"}));
  EXPECT_EQ(csv.apps, (std::vector<std::string>{"mail", "maps, offline", "chat"}));
  EXPECT_EQ(csv.launchCount, 4u);
  EXPECT_EQ(csv.users[1].launches[1].order, 2u);  // file order across users

  const LaunchLog tsv = ParseLaunchLog("timestamp\tapp\n1709535600\tmail\n1709535660\tmaps", "log.tsv",
                                       {std::optional<int>(3600), false});
  EXPECT_EQ(Users(tsv), std::vector<std::string>{": mail@08:00:00 maps@08:01:00"});
}

TEST(LaunchLogTest, ReportsBadRowsWithFileLineAndReason) {
  const std::string header = "user,timestamp,app\n";
  const std::string good = "u,2024-03-04 08:00,mail\n";
  EXPECT_EQ(ErrorOf(header + good + "u,2024-03-04 08:01\n"), "log.csv:3: expected 3 columns, found 2");
  EXPECT_EQ(ErrorOf(header + good + "u,2024-03-04 08:01,mail,x\n"), "log.csv:3: expected 3 columns, found 4");
  EXPECT_EQ(ErrorOf(header + "u,yesterday,mail\n"),
            "log.csv:2: bad time 'yesterday': expected YYYY-MM-DD HH:MM[:SS] or epoch seconds");
  EXPECT_EQ(ErrorOf(header + good + "u,2024-03-04 08:01,\n"), "log.csv:3: empty app");
  EXPECT_EQ(ErrorOf(header + good + ",2024-03-04 08:01,mail\n"), "log.csv:3: empty user");
  EXPECT_EQ(ErrorOf(header + good + "u,2024-03-04 08:01,\"mail\n"), "log.csv:3: unterminated quoted field");
  EXPECT_EQ(ErrorOf(header + "u,2024-03-04 09:00,a\nv,2024-03-04 07:00,b\nu,2024-03-04 08:59,c\n"),
            "log.csv:4: time 2024-03-04 08:59:00 is earlier than 2024-03-04 09:00:00 on line 2 for user 'u'; "
            "the rows of each user must be in time order");

  // Skipped, a bad row neither stops the log nor moves a user's clock.
  const LaunchLog log = ParseLaunchLog(
      header + good + "u,2024-03-04 09:00\nu,2024-03-04 07:00,b\n" + "u,nope,c\n" + "u,2024-03-04 08:30,d\n", "log.csv",
      {std::nullopt, true});
  EXPECT_EQ(Users(log), std::vector<std::string>{"u: mail@08:00:00 d@08:30:00"});
  EXPECT_EQ(log.badRows, 3u);
  ASSERT_EQ(log.badRowSamples.size(), 3u);
  EXPECT_EQ(log.badRowSamples[1].rfind("log.csv:4: time 2024-03-04 07:00:00 is earlier", 0), 0u);
}

TEST(LaunchLogTest, RejectsBadHeadersAndEmptyLogs) {
  EXPECT_EQ(ErrorOf("user,time,app\nu,2024-03-04 08:00,a\n"),
            "log.csv:1: the header must name the columns 'timestamp' and 'app' (and optionally 'user'); "
            "found 'user', 'time', 'app'");
  EXPECT_EQ(ErrorOf("app,timestamp,App\n"), "log.csv:1: the header names column 'app' twice");
  EXPECT_EQ(ErrorOf(""), "log.csv: empty log: expected a header line");
  EXPECT_EQ(ErrorOf("timestamp,app\n\n"), "log.csv: no launch to replay");
  EXPECT_EQ(ErrorOf("timestamp,app\n2024-03-04 08:00,\n", {std::nullopt, true}), "log.csv: no launch to replay");
}

TEST(LaunchLogTest, ReadsPlainAndGzipFiles) {
  char directory[] = "/tmp/nuvik-log-test-XXXXXX";
  ASSERT_NE(mkdtemp(directory), nullptr);
  const std::string text = "timestamp,app\n2024-03-04 08:00,mail\n2024-03-04 08:01,maps";  // no final newline
  const std::string plain = std::string(directory) + "/plain.csv";
  const std::string packed = std::string(directory) + "/packed.csv.gz";
  std::ofstream(plain) << text;
  gzFile file = gzopen(packed.c_str(), "wb");
  ASSERT_NE(file, nullptr);
  gzwrite(file, text.data(), static_cast<unsigned>(text.size()));
  gzclose(file);

  for (const std::string& path : {plain, packed}) {
    const LaunchLog log = ReadLaunchLog(path, {});
    EXPECT_EQ(log.source, path);
    EXPECT_EQ(Users(log), std::vector<std::string>{": mail@08:00:00 maps@08:01:00"});
  }
  const std::string missing = std::string(directory) + "/missing.csv";
  EXPECT_THROW(
      {
        try {
          ReadLaunchLog(missing, {});
        } catch (const InputError& error) {
          EXPECT_EQ(std::string(error.what()), "cannot open '" + missing + "': No such file or directory");
          throw;
        }
      },
      InputError);
  EXPECT_THROW(ReadLaunchLog(directory, {}), InputError);

  std::remove(plain.c_str());
  std::remove(packed.c_str());
  rmdir(directory);
}

}  // namespace
}  // namespace NuvikReplay
