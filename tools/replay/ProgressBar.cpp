#include "replay/ProgressBar.h"

#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <string>

namespace NuvikReplay {

namespace {

constexpr auto kQuietStart = std::chrono::seconds(1);
constexpr auto kRedraw = std::chrono::milliseconds(200);
constexpr int kBarWidth = 30;

}  // namespace

ProgressBar::ProgressBar(const std::atomic<std::uint64_t>& done, std::uint64_t total) : done_(done), total_(total) {
  if (isatty(STDERR_FILENO) != 0 && total_ > 0) thread_ = std::thread(&ProgressBar::Run, this);
}

ProgressBar::~ProgressBar() {
  if (!thread_.joinable()) return;
  {
    const std::lock_guard<std::mutex> lock(mutex_);
    stop_ = true;
  }
  wake_.notify_one();
  thread_.join();
}

void ProgressBar::Run() {
  const auto start = std::chrono::steady_clock::now();
  bool drawn = false;
  std::unique_lock<std::mutex> lock(mutex_);
  while (!wake_.wait_for(lock, kRedraw, [this] { return stop_; })) {
    const std::chrono::duration<double> elapsed = std::chrono::steady_clock::now() - start;
    if (elapsed < kQuietStart) continue;
    const double fraction = std::min(1.0, static_cast<double>(done_.load()) / static_cast<double>(total_));
    const int filled = static_cast<int>(fraction * kBarWidth);
    std::fprintf(stderr, "\rreplaying [%s%s] %3d%%  %llu/%llu launches  %.0f s ", std::string(filled, '#').c_str(),
                 std::string(kBarWidth - filled, '.').c_str(), static_cast<int>(fraction * 100),
                 static_cast<unsigned long long>(done_.load()), static_cast<unsigned long long>(total_),
                 elapsed.count());
    std::fflush(stderr);
    drawn = true;
  }
  if (drawn) std::fprintf(stderr, "\r\033[K");
}

}  // namespace NuvikReplay
