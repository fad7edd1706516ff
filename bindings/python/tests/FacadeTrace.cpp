// Feeds launches "app hour minute" from standard input to a facade of the
// predictors named by the first argument (comma separated, with an optional
// second argument of parameters) and prints, per launch, the next list and
// every weight; then the metrics and the saved document. test_facade.py
// prints the same through the Python package.
#include <cmath>
#include <cstdio>
#include <iostream>
#include <sstream>
#include <string>
#include <vector>

#include <nuvik/Nuvik.h>

namespace {

std::vector<std::string> Split(const std::string& text) {
  std::vector<std::string> parts;
  std::istringstream in(text);
  for (std::string part; std::getline(in, part, ',');) parts.push_back(part);
  return parts;
}

// As Python prints it: NaN without a sign.
std::string Number(double value) {
  if (std::isnan(value)) return "nan";
  char text[64];
  std::snprintf(text, sizeof text, "%.17g", value);
  return text;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 2) {
    std::cerr << "usage: nuvik_facade_trace NAMES [PARAMS] < launches\n";
    return 2;
  }
  std::vector<int> params;
  if (argc > 2) {
    for (const std::string& param : Split(argv[2])) params.push_back(std::stoi(param));
  }
  NuvikPrediction::Nuvik nuvik = argc > 2 ? NuvikPrediction::Nuvik(params, Split(argv[1]))
                                          : NuvikPrediction::Nuvik(Split(argv[1]));
  std::string app;
  int hour = 0;
  int minute = 0;
  while (std::cin >> app >> hour >> minute) {
    nuvik.Update(app, std::tm{0, minute, hour, 1, 0, 100, 0, 0, 0, 0, nullptr});
    std::cout << "next:";
    for (const std::string& name : nuvik.GetNext()) std::cout << ' ' << name;
    std::cout << "\nweights:";
    for (const auto& [name, weight] : nuvik.GetAllWeights()) std::cout << ' ' << name << '=' << Number(weight);
    std::cout << '\n';
  }
  std::cout << "metrics: " << nuvik.GetCountMetrics() << ' ' << Number(nuvik.GetSumMap()) << ' '
            << Number(nuvik.GetSumRecall()) << ' ' << Number(nuvik.GetMapMetric()) << ' '
            << Number(nuvik.GetRecallMetric()) << ' ' << nuvik.GetCountKnownApps() << '\n';
  nuvik.SerializeJson(std::cout);
  std::cout << '\n';
  return 0;
}
