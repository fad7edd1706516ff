// nuvik-sample-log: writes a synthetic launch log ("user,timestamp,app") of a
// few phone users: daily routines around wake-up, commute, work, lunch,
// evening and bedtime, app-to-app habits (camera then photos, maps then
// music, ...) and slower weekends. The same seed gives the same log on every
// platform: the generator draws raw 32-bit outputs from std::mt19937 and maps
// them itself, never through the standard distributions.
#include <algorithm>
#include <array>
#include <cstdint>
#include <fstream>
#include <iostream>
#include <optional>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include <CLI/CLI.hpp>

#include "replay/LocalTime.h"

namespace {

using NuvikReplay::LocalSeconds;

class Random {
 public:
  explicit Random(std::uint32_t seed) : engine_(seed) {}

  std::uint32_t Bits() { return static_cast<std::uint32_t>(engine_()); }

  // Uniform in [0, bound), by rejection of the incomplete last block.
  std::uint32_t Below(std::uint32_t bound) {
    const std::uint64_t range = std::uint64_t{1} << 32;
    const std::uint64_t limit = range - range % bound;
    std::uint64_t value;
    do {
      value = Bits();
    } while (value >= limit);
    return static_cast<std::uint32_t>(value % bound);
  }

  int Between(int low, int high) { return low + static_cast<int>(Below(static_cast<std::uint32_t>(high - low + 1))); }

  double Unit() { return Bits() / 4294967296.0; }

  bool Chance(double probability) { return Unit() < probability; }

  // About normal with mean 0 and deviation 1: twelve uniforms less six.
  double Normal() {
    double sum = 0.0;
    for (int i = 0; i < 12; ++i) sum += Unit();
    return sum - 6.0;
  }

  // An index drawn with the given weights; their sum must be positive.
  std::size_t Pick(const std::vector<double>& weights) {
    double total = 0.0;
    for (const double weight : weights) total += weight;
    double target = Unit() * total;
    for (std::size_t i = 0; i < weights.size(); ++i) {
      if (target < weights[i]) return i;
      target -= weights[i];
    }
    return weights.size() - 1;
  }

 private:
  std::mt19937 engine_;
};

enum Role {
  kClock, kMessenger, kSms, kMail, kNews, kWeather, kMusic, kPodcasts, kMaps, kTransit, kCalendar, kWorkChat, kBrowser,
  kSocial, kVideo, kCamera, kPhotos, kGames, kFitness, kShopping, kFood, kBank, kNotes, kReading, kPhone, kSettings,
  kRoleCount
};

struct RoleApps {
  std::vector<const char*> candidates;
  double presence;  // chance that a user has an app of this role at all
  int count;        // apps a user picks among the candidates
};

const std::array<RoleApps, kRoleCount> kCatalogue = {{
    {{"com.google.android.deskclock"}, 1.0, 1},
    {{"com.whatsapp", "org.telegram.messenger", "org.thoughtcrime.securesms", "com.facebook.orca"}, 1.0, 2},
    {{"com.google.android.apps.messaging"}, 0.9, 1},
    {{"com.google.android.gm", "com.microsoft.office.outlook"}, 1.0, 1},
    {{"bbc.mobile.news.ww", "com.nytimes.android", "com.google.android.apps.magazines"}, 0.7, 1},
    {{"com.weather.Weather", "com.accuweather.android"}, 0.6, 1},
    {{"com.spotify.music", "com.google.android.apps.youtube.music", "deezer.android.app"}, 0.9, 1},
    {{"com.google.android.apps.podcasts", "au.com.shiftyjelly.pocketcasts"}, 0.5, 1},
    {{"com.google.android.apps.maps", "com.waze"}, 1.0, 1},
    {{"com.citymapper.app.release", "com.ubercab"}, 0.6, 1},
    {{"com.google.android.calendar"}, 0.9, 1},
    {{"com.Slack", "com.microsoft.teams"}, 0.8, 1},
    {{"com.android.chrome", "org.mozilla.firefox"}, 1.0, 1},
    {{"com.instagram.android", "com.twitter.android", "com.reddit.frontpage", "com.facebook.katana",
      "com.zhiliaoapp.musically"}, 1.0, 2},
    {{"com.google.android.youtube", "com.netflix.mediaclient"}, 1.0, 2},
    {{"com.google.android.GoogleCamera"}, 1.0, 1},
    {{"com.google.android.apps.photos"}, 1.0, 1},
    {{"com.king.candycrushsaga", "com.supercell.clashroyale", "com.nianticlabs.pokemongo"}, 0.5, 1},
    {{"com.strava", "com.google.android.apps.fitness"}, 0.5, 1},
    {{"com.amazon.mShop.android.shopping"}, 0.8, 1},
    {{"com.ubercab.eats", "com.deliveroo.orderapp"}, 0.6, 1},
    {{"com.paypal.android.p2pmobile"}, 0.7, 1},
    {{"com.google.android.keep"}, 0.5, 1},
    {{"com.amazon.kindle"}, 0.4, 1},
    {{"com.google.android.dialer"}, 1.0, 1},
    {{"com.android.settings"}, 1.0, 1},
}};

using Weights = std::vector<std::pair<Role, double>>;

// What tends to follow an app of a role.
const std::array<Weights, kRoleCount> kHabits = [] {
  std::array<Weights, kRoleCount> habits;
  habits[kClock] = {{kWeather, 3}, {kMessenger, 3}, {kNews, 2}, {kMail, 1}};
  habits[kWeather] = {{kNews, 2}, {kMessenger, 2}, {kCalendar, 1}};
  habits[kNews] = {{kSocial, 2}, {kBrowser, 2}, {kMessenger, 1}};
  habits[kCamera] = {{kPhotos, 5}, {kMessenger, 2}, {kSocial, 2}};
  habits[kPhotos] = {{kSocial, 4}, {kMessenger, 4}};
  habits[kMaps] = {{kMusic, 4}, {kPodcasts, 2}, {kMessenger, 1}};
  habits[kTransit] = {{kMusic, 3}, {kPodcasts, 2}, {kMaps, 2}};
  habits[kMail] = {{kCalendar, 4}, {kWorkChat, 2}, {kBrowser, 2}};
  habits[kCalendar] = {{kMail, 2}, {kWorkChat, 3}, {kMaps, 1}};
  habits[kWorkChat] = {{kMail, 3}, {kBrowser, 2}, {kCalendar, 1}};
  habits[kMessenger] = {{kSocial, 2}, {kBrowser, 1}, {kCamera, 1}, {kPhone, 1}, {kMessenger, 1}};
  habits[kSms] = {{kMessenger, 2}, {kPhone, 1}};
  habits[kSocial] = {{kMessenger, 3}, {kSocial, 2}, {kVideo, 1}, {kBrowser, 1}};
  habits[kBrowser] = {{kMessenger, 2}, {kNotes, 1}, {kShopping, 1}};
  habits[kFood] = {{kBank, 2}, {kMessenger, 2}};
  habits[kShopping] = {{kBank, 3}, {kBrowser, 2}};
  habits[kFitness] = {{kMusic, 4}, {kMessenger, 1}};
  habits[kVideo] = {{kSocial, 2}, {kMessenger, 2}};
  habits[kGames] = {{kMessenger, 1}, {kVideo, 1}};
  habits[kPhone] = {{kMessenger, 2}, {kCalendar, 1}};
  return habits;
}();

struct User {
  std::string name;
  std::array<std::vector<std::string>, kRoleCount> apps;  // favourite first
  std::array<double, kRoleCount> taste{};                 // personal weight of each role
  int wakeMinute = 0;
  int weekendDelay = 0;
  int sleepMinute = 0;
  bool commuter = false;
  double activity = 1.0;
};

struct Event {
  LocalSeconds time;
  const std::string* app;
};

User MakeUser(Random& random, long long number) {
  User user;
  user.name = "user" + std::to_string(number);
  for (int role = 0; role < kRoleCount; ++role) {
    const RoleApps& catalogue = kCatalogue[role];
    user.taste[role] = 0.5 + random.Unit();
    if (!random.Chance(catalogue.presence)) continue;
    std::vector<const char*> candidates = catalogue.candidates;
    for (int i = 0; i < catalogue.count && !candidates.empty(); ++i) {
      const std::size_t pick = random.Below(static_cast<std::uint32_t>(candidates.size()));
      user.apps[role].push_back(candidates[pick]);
      candidates.erase(candidates.begin() + static_cast<std::ptrdiff_t>(pick));
    }
  }
  user.wakeMinute = random.Between(6 * 60, 8 * 60);
  user.weekendDelay = random.Between(60, 150);
  user.sleepMinute = random.Between(22 * 60 + 15, 24 * 60 + 30);
  user.commuter = random.Chance(0.8);
  user.activity = 0.7 + 0.7 * random.Unit();
  return user;
}

class DayWriter {
 public:
  DayWriter(Random& random, const User& user, LocalSeconds midnight, std::vector<Event>& events)
      : random_(random), user_(user), midnight_(midnight), events_(events) {}

  // A session of a few launches from about `minute` on, starting in `context`.
  void Session(double minute, const Weights& context, int meanLength = 2, double jitterMinutes = 8) {
    LocalSeconds time = midnight_ + static_cast<LocalSeconds>((minute + random_.Normal() * jitterMinutes) * 60);
    std::optional<Role> role = PickRole(context);
    const int length = std::max(1, random_.Between(1, 2 * meanLength - 1));
    for (int i = 0; i < length && role; ++i) {
      events_.push_back({time, &PickApp(*role)});
      time += random_.Between(10, 240);
      const std::optional<Role> habit = random_.Chance(0.65) ? PickRole(kHabits[*role]) : std::nullopt;
      role = habit ? habit : PickRole(context);
    }
  }

  // Short sessions every `every` minutes or so over a stretch of the day.
  void Stretch(int from, int to, double every, const Weights& context) {
    for (double minute = from + random_.Unit() * every; minute < to; minute += every * (0.5 + random_.Unit())) {
      if (random_.Chance(std::min(1.0, 0.6 * user_.activity))) Session(minute, context, 2, 3);
    }
  }

 private:
  std::optional<Role> PickRole(const Weights& weights) {
    std::vector<double> chances;
    double total = 0.0;
    for (const auto& [role, weight] : weights) {
      chances.push_back(user_.apps[role].empty() ? 0.0 : weight * user_.taste[role]);
      total += chances.back();
    }
    if (total <= 0.0) return std::nullopt;
    return weights[random_.Pick(chances)].first;
  }

  const std::string& PickApp(Role role) {
    const std::vector<std::string>& apps = user_.apps[role];
    return apps.size() == 1 || random_.Chance(0.7)
               ? apps[0]
               : apps[1 + random_.Below(static_cast<std::uint32_t>(apps.size() - 1))];
  }

  Random& random_;
  const User& user_;
  LocalSeconds midnight_;
  std::vector<Event>& events_;
};

void WriteWeekday(DayWriter& day, const User& user, Random& random) {
  const int wake = user.wakeMinute;
  day.Session(wake, {{kClock, 1}}, 4, 6);
  int workStart = wake + 90;
  if (user.commuter) {
    const int leave = wake + random.Between(45, 75);
    day.Session(leave, {{kMaps, 2}, {kTransit, 3}, {kMusic, 3}, {kPodcasts, 2}}, 3, 4);
    day.Session(leave + 20, {{kMessenger, 3}, {kSocial, 3}, {kNews, 2}}, 2, 5);
    workStart = leave + 45;
  }
  const Weights work = {{kMail, 4}, {kWorkChat, 4}, {kCalendar, 2}, {kBrowser, 2}, {kMessenger, 2}, {kPhone, 1}};
  day.Stretch(workStart, 12 * 60, 35, work);
  const Weights lunch = {{kSocial, 4}, {kMessenger, 4}, {kNews, 2}, {kVideo, 1}, {kFood, 1}, {kShopping, 1}};
  day.Session(12 * 60 + 30, lunch, 3, 15);
  day.Stretch(13 * 60 + 30, 17 * 60 + 30, 45, work);
  const int home = 17 * 60 + 45 + random.Between(0, 45);
  if (user.commuter) day.Session(home, {{kMusic, 3}, {kPodcasts, 2}, {kTransit, 2}, {kMessenger, 2}}, 3, 4);
  const Weights evening = {{kVideo, 4},    {kSocial, 3},  {kMessenger, 3}, {kGames, 2},
                           {kShopping, 1}, {kReading, 1}, {kCamera, 1},    {kBrowser, 1}};
  if (random.Chance(0.25)) day.Session(19 * 60 + 15, {{kFood, 1}}, 2, 20);
  day.Stretch(19 * 60, user.sleepMinute - 30, 50, evening);
  day.Session(user.sleepMinute, {{kMessenger, 2}, {kSocial, 2}, {kReading, 1}}, 2, 10);
  day.Session(user.sleepMinute + 10, {{kClock, 1}}, 1, 10);
}

void WriteWeekend(DayWriter& day, const User& user, Random& random, bool saturday) {
  const int wake = user.wakeMinute + user.weekendDelay;
  day.Session(wake, {{kMessenger, 3}, {kNews, 2}, {kWeather, 2}, {kSocial, 2}}, 3, 20);
  if (saturday && random.Chance(0.7)) day.Session(wake + 60, {{kFitness, 1}}, 3, 15);
  day.Stretch(wake + 60, 13 * 60, 60, {{kSocial, 3}, {kMessenger, 3}, {kVideo, 2}, {kGames, 2}, {kShopping, 1}});
  if (random.Chance(0.6)) {
    const int outing = 14 * 60 + random.Between(0, 120);
    day.Session(outing, {{kMaps, 1}}, 3, 10);
    day.Session(outing + 60, {{kCamera, 1}}, 4, 20);
  }
  day.Stretch(13 * 60, user.sleepMinute - 30, 55,
              {{kVideo, 4}, {kSocial, 3}, {kMessenger, 3}, {kGames, 2}, {kFood, 1}, {kReading, 1}, {kBrowser, 1}});
  day.Session(user.sleepMinute + 30, {{kMessenger, 1}, {kSocial, 1}}, 2, 15);
  day.Session(user.sleepMinute + 40, {{kClock, 1}}, 1, 10);
}

std::vector<Event> WriteUser(Random& random, const User& user, LocalSeconds start, int days) {
  std::vector<Event> events;
  for (int d = 0; d < days; ++d) {
    const LocalSeconds midnight = start + static_cast<LocalSeconds>(d) * 86400;
    DayWriter day(random, user, midnight, events);
    const int weekday = NuvikReplay::ToTm(midnight).tm_wday;
    if (weekday == 0 || weekday == 6) {
      WriteWeekend(day, user, random, weekday == 6);
    } else {
      WriteWeekday(day, user, random);
    }
    if (random.Chance(0.15)) day.Session(random.Between(10 * 60, 20 * 60), {{kSettings, 1}, {kBank, 1}}, 1, 30);
  }
  std::stable_sort(events.begin(), events.end(), [](const Event& a, const Event& b) { return a.time < b.time; });
  return events;
}

}  // namespace

int main(int argc, char** argv) {
  int users = 4;
  int firstUser = 1;
  int days = 28;
  std::uint32_t seed = 1;
  std::string start = "2024-03-04";
  std::string output;
  CLI::App app{"Writes a synthetic launch log (user,timestamp,app) to standard output.", "nuvik-sample-log"};
  app.add_option("--users", users, "Number of users")->check(CLI::Range(1, 10000000))->capture_default_str();
  app.add_option("--first-user", firstUser, "Number in the first user's name (userN), to write a fleet in parts")
      ->check(CLI::Range(1, 1000000000))
      ->capture_default_str();
  app.add_option("--days", days, "Number of days")->check(CLI::Range(1, 3650))->capture_default_str();
  app.add_option("--seed", seed, "Seed of the random generator")->capture_default_str();
  app.add_option("--start", start, "First day, YYYY-MM-DD")->capture_default_str();
  app.add_option("-o,--output", output, "Write to this file instead of standard output");
  CLI11_PARSE(app, argc, argv);

  const NuvikReplay::ParsedTime first = NuvikReplay::ParseLaunchTime(start + " 00:00", std::nullopt);
  if (!first.error.empty()) {
    std::cerr << "nuvik-sample-log: bad --start '" << start << "': expected YYYY-MM-DD\n";
    return 2;
  }
  std::ofstream file;
  if (!output.empty()) {
    file.open(output, std::ios::binary);
    if (!file) {
      std::cerr << "nuvik-sample-log: cannot write '" << output << "'\n";
      return 1;
    }
  }
  std::ostream& out = output.empty() ? std::cout : file;
  Random random(seed);
  out << "user,timestamp,app\n";
  for (int u = 0; u < users; ++u) {
    const User user = MakeUser(random, static_cast<long long>(firstUser) + u);
    for (const Event& event : WriteUser(random, user, first.seconds, days)) {
      out << user.name << ',' << NuvikReplay::FormatLocalTime(event.time) << ',' << *event.app << '\n';
    }
  }
  out.flush();
  if (!out) {
    std::cerr << "nuvik-sample-log: write error\n";
    return 1;
  }
  return 0;
}
