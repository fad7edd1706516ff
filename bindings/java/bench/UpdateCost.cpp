// Nanoseconds per Nuvik::Update on the launch stream of UpdateCost.java, for
// comparing the Java call with the C++ one (see update-cost.sh).
//   nuvik-update-cost LAUNCHES PREDICTOR...
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <string>
#include <vector>

#include <nuvik/Nuvik.h>

namespace {

constexpr int kApps = 200;
constexpr int kWarmUp = 10000;

struct Launch {
  std::string app;
  std::tm time{};
};

// Skewed popularity and habitual successors, spread over the day; the same
// generator as UpdateCost.java.
std::vector<Launch> Stream(int count) {
  std::vector<Launch> launches;
  std::uint64_t state = 42;
  int last = 0;
  int minute = 0;
  for (int i = 0; i < count; ++i) {
    state = state * 6364136223846793005u + 1442695040888963407u;
    const auto r = static_cast<int>(state >> 33);
    const int app = r % 4 == 0 ? (r >> 2) % 23 * (r >> 7) % kApps : (last * 7 + 3 + (r >> 2) % 3) % kApps;
    last = app;
    minute += 1 + (r >> 4) % 30;
    Launch launch;
    launch.app = "app" + std::to_string(app);
    launch.time.tm_hour = minute / 60 % 24;
    launch.time.tm_min = minute % 60;
    launches.push_back(launch);
  }
  return launches;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 3) {
    std::fprintf(stderr, "usage: nuvik-update-cost LAUNCHES PREDICTOR...\n");
    return 2;
  }
  const int timed = std::atoi(argv[1]);
  const std::vector<Launch> launches = Stream(kWarmUp + timed);
  NuvikPrediction::Nuvik nuvik(std::vector<std::string>(argv + 2, argv + argc));
  for (int app = 0; app < kApps; ++app) nuvik.Update("app" + std::to_string(app), std::tm{});
  for (int i = 0; i < kWarmUp; ++i) nuvik.Update(launches[i].app, launches[i].time);
  const auto start = std::chrono::steady_clock::now();
  for (int i = kWarmUp; i < kWarmUp + timed; ++i) nuvik.Update(launches[i].app, launches[i].time);
  const std::chrono::duration<double, std::nano> elapsed = std::chrono::steady_clock::now() - start;
  std::printf("%.1f\n", elapsed.count() / timed);
  return 0;
}
