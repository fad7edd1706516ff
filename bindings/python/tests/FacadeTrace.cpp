// Feeds a facade of the predictors named by the first argument (comma
// separated, with an optional second argument of parameters) and a
// Suggestions object the lines of standard input:
//   app hour minute      a launch; prints the next list and every weight
//   !row hour minute count stable exclude installed fallback
//                        prints a row (lists comma separated, "-" for none)
//   !dismiss app, !restore app
//                        prints the dismissed applications
// then the metrics and both saved documents. test_facade.py prints the same
// through the Python package.
#include <cmath>
#include <cstdio>
#include <iostream>
#include <sstream>
#include <string>
#include <vector>

#include <nuvik/Nuvik.h>
#include <nuvik/Suggestions.h>

namespace {

std::vector<std::string> Split(const std::string& text) {
  std::vector<std::string> parts;
  std::istringstream in(text);
  for (std::string part; std::getline(in, part, ',');) parts.push_back(part);
  return parts;
}

// A list of the trace: comma separated, "-" for none.
std::vector<std::string> List(const std::string& text) {
  return text == "-" ? std::vector<std::string>{} : Split(text);
}

std::tm Clock(int hour, int minute) { return std::tm{0, minute, hour, 1, 0, 100, 0, 0, 0, 0, nullptr}; }

void Print(const char* label, const std::vector<std::string>& apps) {
  std::cout << label << ':';
  for (const std::string& app : apps) std::cout << ' ' << app;
  std::cout << '\n';
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
    std::cerr << "usage: nuvik_facade_trace NAMES [PARAMS] < commands\n";
    return 2;
  }
  std::vector<int> params;
  if (argc > 2) {
    for (const std::string& param : Split(argv[2])) params.push_back(std::stoi(param));
  }
  NuvikPrediction::Nuvik nuvik = argc > 2 ? NuvikPrediction::Nuvik(params, Split(argv[1]))
                                          : NuvikPrediction::Nuvik(Split(argv[1]));
  NuvikPrediction::Suggestions suggestions;
  for (std::string line; std::getline(std::cin, line);) {
    std::istringstream in(line);
    std::string word;
    int hour = 0;
    int minute = 0;
    in >> word;
    if (word == "!row") {
      NuvikPrediction::RowRequest request;
      std::string exclude;
      std::string installed;
      std::string fallback;
      in >> hour >> minute >> request.count >> request.stable >> exclude >> installed >> fallback;
      request.exclude = List(exclude);
      request.installed = List(installed);
      request.fallback = List(fallback);
      Print("row", suggestions.Row(nuvik, Clock(hour, minute), request));
    } else if (word == "!dismiss" || word == "!restore") {
      std::string app;
      in >> app;
      if (word == "!dismiss") {
        suggestions.Dismiss(app);
      } else {
        suggestions.Restore(app);
      }
      Print("dismissed", suggestions.Dismissed());
    } else if (in >> hour >> minute) {
      nuvik.Update(word, Clock(hour, minute));
      Print("next", nuvik.GetNext());
      std::cout << "weights:";
      for (const auto& [name, weight] : nuvik.GetAllWeights()) std::cout << ' ' << name << '=' << Number(weight);
      std::cout << '\n';
    }
  }
  std::cout << "metrics: " << nuvik.GetCountMetrics() << ' ' << Number(nuvik.GetSumMap()) << ' '
            << Number(nuvik.GetSumRecall()) << ' ' << Number(nuvik.GetMapMetric()) << ' '
            << Number(nuvik.GetRecallMetric()) << ' ' << nuvik.GetCountKnownApps() << '\n';
  nuvik.SerializeJson(std::cout);
  std::cout << '\n';
  suggestions.SerializeJson(std::cout);
  std::cout << '\n';
  return 0;
}
