#ifndef NUVIK_BENCH_BENCH_UTIL_H_
#define NUVIK_BENCH_BENCH_UTIL_H_

#include <ctime>
#include <random>
#include <string>
#include <vector>

#include <nuvik/Nuvik.h>

namespace NuvikPrediction::bench {

// A launch stream over `apps` applications with a skewed popularity and
// habitual successors, spread over the day.
class LaunchStream {
 public:
  LaunchStream(int apps, unsigned seed) : random_(seed), apps_(apps) {}

  Item Next() {
    const int app = random_() % 4 == 0 ? Popular() : (last_ * 7 + 3 + static_cast<int>(random_() % 3)) % apps_;
    last_ = app;
    minute_ += 1 + static_cast<int>(random_() % 30);
    Item item;
    item.app = "app" + std::to_string(app);
    item.time.tm_hour = (minute_ / 60) % 24;
    item.time.tm_min = minute_ % 60;
    return item;
  }

  // Launches every application once, so that all of them are known.
  void Cover(Nuvik& nuvik) {
    for (int app = 0; app < apps_; ++app) nuvik.Update("app" + std::to_string(app), std::tm{});
  }

 private:
  int Popular() {
    // Roughly Zipf-like: low ids are launched far more often.
    std::uniform_real_distribution<double> uniform(0.0, 1.0);
    const double u = uniform(random_);
    return static_cast<int>(static_cast<double>(apps_) * u * u * u) % apps_;
  }

  std::mt19937 random_;
  int apps_;
  int last_ = 0;
  int minute_ = 0;
};

}  // namespace NuvikPrediction::bench

#endif  // NUVIK_BENCH_BENCH_UTIL_H_
