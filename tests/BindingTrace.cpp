// The C++ side of the Java and Python conformance tests, through the public
// API only: for a facade of the predictors named by the first argument (comma
// separated, with an optional second argument of parameters), prints a launch
// stream with the facade's answers after every step and a suggestions row
// before it, then both saved documents. Each binding repeats every command and
// must print the same answers. Names and documents are printed as hexadecimal
// UTF-8 bytes, doubles as the hexadecimal of their bits.
#include <cinttypes>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <iostream>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include <nuvik/Nuvik.h>
#include <nuvik/Suggestions.h>

namespace {

using NuvikPrediction::Nuvik;
using NuvikPrediction::RowRequest;
using NuvikPrediction::Suggestions;

std::string Hex(const std::string& bytes) {
  static const char kDigits[] = "0123456789abcdef";
  std::string hex;
  for (unsigned char byte : bytes) {
    hex.push_back(kDigits[byte >> 4]);
    hex.push_back(kDigits[byte & 15]);
  }
  return hex;
}

std::string Bits(double value) {
  std::uint64_t bits;
  std::memcpy(&bits, &value, sizeof bits);
  char text[17];
  std::snprintf(text, sizeof text, "%016" PRIx64, bits);
  return text;
}

// Names with non-ASCII characters, one outside the BMP, one with U+0000, and a
// pair whose UTF-8 byte order differs from Java's String order.
std::vector<std::string> Apps() {
  std::vector<std::string> apps = {"caf\xc3\xa9", "\xf0\x9f\x98\x80 chat", std::string("nul\0byte", 8),
                                   "\xef\xbd\x9ewave", "\xe6\x97\xa5\xe6\x9c\xac"};
  for (int i = 0; i < 19; ++i) apps.push_back("com.example.app" + std::to_string(i));
  return apps;
}

// Each name as a space and its hexadecimal, so that an empty name shows too.
void PrintNames(const std::vector<std::string>& names) {
  for (const std::string& name : names) std::cout << ' ' << Hex(name);
}

// Rows of sizes 0 to 6, runs of stable rows, screens, installed sets, and a
// fallback with an empty name, a repeat and applications the ranking holds.
RowRequest RequestAt(int step, const std::vector<std::string>& apps) {
  RowRequest request;
  request.stable = step / 40 % 2 == 1;
  request.count = request.stable ? (step % 10 == 0 ? 2 : 4) : static_cast<std::size_t>(step % 7);
  if (step % 4 == 0) request.exclude = {apps[step % apps.size()], apps[step * 3 % apps.size()]};
  if (step % 5 == 1) {
    for (std::size_t i = 0; i < apps.size(); i += 2) request.installed.push_back(apps[i]);
    request.installed.push_back("fallback.app");
  }
  request.fallback = {"fallback.app", "", apps[0], "fallback.app", apps[5]};
  return request;
}

// Dismissals ('d'), restorations ('r', 9 is never dismissed) and clearing ('c')
// at chosen steps, each followed by the dismissed list.
void ChangeDismissed(int step, const std::vector<std::string>& apps, Suggestions& suggestions) {
  static const struct {
    int step;
    char change;
    std::size_t app;
  } kChanges[] = {{60, 'd', 1}, {70, 'd', 2}, {75, 'd', 1}, {90, 'r', 2}, {95, 'r', 9}, {130, 'd', 7},
                  {200, 'c', 0}, {220, 'd', 0}};
  for (const auto& [at, change, app] : kChanges) {
    if (at != step) continue;
    if (change == 'd') suggestions.Dismiss(apps[app]), std::cout << "dismiss " << Hex(apps[app]);
    if (change == 'r') suggestions.Restore(apps[app]), std::cout << "restore " << Hex(apps[app]);
    if (change == 'c') suggestions.ClearDismissed(), std::cout << "cleardismissed";
    std::cout << "\ndismissed";
    PrintNames(suggestions.Dismissed());
    std::cout << '\n';
  }
}

void PrintState(const Nuvik& nuvik, const std::vector<std::string>& probes) {
  std::cout << "next";
  PrintNames(nuvik.GetNext());
  std::cout << "\nweights";
  for (const auto& [app, weight] : nuvik.GetAllWeights()) std::cout << ' ' << Hex(app) << ' ' << Bits(weight);
  for (const std::string& app : probes) {
    std::cout << "\nprobe " << Hex(app) << ' ' << Bits(nuvik.GetWeightSingle(app)) << ' '
              << Bits(nuvik.GetWeightSingleDet(app));
  }
  std::cout << "\nmetrics " << nuvik.GetCountMetrics() << ' ' << Bits(nuvik.GetSumMap()) << ' '
            << Bits(nuvik.GetSumRecall()) << ' ' << Bits(nuvik.GetMapMetric()) << ' '
            << Bits(nuvik.GetRecallMetric()) << ' ' << nuvik.GetCountKnownApps() << '\n';
}

std::vector<std::string> Split(const std::string& text) {
  std::vector<std::string> parts;
  std::istringstream in(text);
  for (std::string part; std::getline(in, part, ',');) parts.push_back(part);
  return parts;
}

}  // namespace

int main(int argc, char** argv) {
  const std::string predictors = argc > 1 ? argv[1] : "markov_chain3_invalidate,linear";
  const std::vector<std::string> names = Split(predictors);
  std::vector<int> params;
  if (argc > 2) {
    for (const std::string& param : Split(argv[2])) params.push_back(std::stoi(param));
  }
  const std::vector<std::string> apps = Apps();
  const std::vector<std::string> probes = {apps[1], apps[2], "never launched"};
  Nuvik nuvik = argc > 2 ? Nuvik(params, names) : Nuvik(names);
  Suggestions suggestions;
  std::cout << "predictors " << predictors << (argc > 2 ? std::string(" ") + argv[2] : "") << '\n';
  std::uint64_t state = 12345;
  const auto random = [&state](std::uint64_t bound) {
    state = state * 6364136223846793005u + 1442695040888963407u;
    return (state >> 33) % bound;
  };
  std::size_t last = 0;
  int minute = 0;
  for (int step = 0; step < 400; ++step) {
    if (step == 150) {
      const std::vector<std::pair<std::string, int>> priorities = {{apps[3], 2}, {apps[0], -1}, {apps[3], 5}};
      nuvik.SetAppsPriority(priorities);
      std::cout << "priority";
      for (const auto& [app, priority] : priorities) std::cout << ' ' << Hex(app) << ' ' << priority;
      std::cout << '\n';
    }
    if (step == 250) nuvik.ResetPriority(), std::cout << "reset\n";
    if (step == 300) nuvik.Clear(), std::cout << "clear\n";
    if (step == 350) nuvik.ClearMetrics(), std::cout << "clearmetrics\n";
    last = random(3) == 0 ? random(apps.size()) : (last * 7 + 3 + random(2)) % apps.size();
    minute += 1 + static_cast<int>(random(40));
    // Every 50th launch carries a time outside the day, which the facade takes as it is.
    const int hour = step % 50 == 49 ? 30 : (minute / 60) % 24;
    const int minuteOfHour = step % 50 == 49 ? -7 : minute % 60;
    std::tm time{};
    time.tm_hour = hour;
    time.tm_min = minuteOfHour;
    // Every third row is asked for another time than the launch's.
    std::tm rowTime = time;
    if (step % 3 == 2) rowTime.tm_hour = (hour + 5) % 24;
    ChangeDismissed(step, apps, suggestions);
    const RowRequest request = RequestAt(step, apps);
    std::cout << "row " << rowTime.tm_hour << ' ' << rowTime.tm_min << ' ' << request.count << ' ' << request.stable
              << '|';
    PrintNames(request.exclude);
    std::cout << '|';
    PrintNames(request.installed);
    std::cout << '|';
    PrintNames(request.fallback);
    std::cout << '|';
    PrintNames(suggestions.Row(nuvik, rowTime, request));
    std::cout << '\n';
    nuvik.Update(apps[last], time);
    std::cout << "launch " << Hex(apps[last]) << ' ' << hour << ' ' << minuteOfHour << '\n';
    PrintState(nuvik, probes);
  }
  std::ostringstream document;
  nuvik.SerializeJson(document);
  std::cout << "document " << Hex(document.str()) << '\n';
  std::ostringstream saved;
  suggestions.SerializeJson(saved);
  std::cout << "suggestions " << Hex(saved.str()) << '\n';
  return std::cout.flush() ? 0 : 1;
}
