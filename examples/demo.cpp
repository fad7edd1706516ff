// Feeds a short morning routine to a facade and prints how it ranked the
// applications for the last launch, from what it had learned before it.
#include <iostream>

#include <nuvik/Nuvik.h>

namespace {

std::tm At(int hour, int minute) {
  std::tm time{};
  time.tm_hour = hour;
  time.tm_min = minute;
  return time;
}

}  // namespace

int main() {
  NuvikPrediction::Nuvik nuvik(std::vector<std::string>{"markov_chain3_invalidate", "linear"});
  const char* routine[] = {"alarm", "mail", "news", "chat", "maps", "music"};
  int minute = 0;
  for (int day = 0; day < 5; ++day) {
    for (const char* app : routine) nuvik.Update(app, At(7, minute++ % 60));
  }
  nuvik.Update("alarm", At(8, 0));

  std::cout << nuvik.PrintNuvikInfo() << "\n\nRanked for the launch at 08:00:\n";
  for (const std::string& app : nuvik.GetNext()) {
    std::cout << "  " << app << "  " << nuvik.GetWeightSingle(app) << "\n";
  }
  std::cout << "\nMAP " << nuvik.GetMapMetric() << ", recall@5 " << nuvik.GetRecallMetric() << " over "
            << nuvik.GetCountMetrics() << " scored launches\n";
}
