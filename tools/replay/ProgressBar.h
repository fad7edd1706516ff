// A progress bar on standard error, drawn from its own thread while the work
// runs elsewhere. It appears only on a terminal and only once the work has
// taken a second, so short runs stay quiet.
#ifndef NUVIK_TOOLS_REPLAY_PROGRESS_BAR_H_
#define NUVIK_TOOLS_REPLAY_PROGRESS_BAR_H_

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <thread>

namespace NuvikReplay {

class ProgressBar {
 public:
  // Shows `done` out of `total` launches until destroyed.
  ProgressBar(const std::atomic<std::uint64_t>& done, std::uint64_t total);
  ~ProgressBar();

  ProgressBar(const ProgressBar&) = delete;
  ProgressBar& operator=(const ProgressBar&) = delete;

 private:
  void Run();

  const std::atomic<std::uint64_t>& done_;
  std::uint64_t total_;
  std::mutex mutex_;
  std::condition_variable wake_;
  bool stop_ = false;
  std::thread thread_;
};

}  // namespace NuvikReplay

#endif  // NUVIK_TOOLS_REPLAY_PROGRESS_BAR_H_
