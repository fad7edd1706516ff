// Uses only the installed public headers, without jsoncpp on the include path.
#include <nuvik/Nuvik.h>
#include <nuvik/Suggestions.h>

#include <iostream>
#include <sstream>

int main() {
  NuvikPrediction::Nuvik nuvik;
  std::tm time{};
  for (const char* app : {"mail", "chat", "mail"}) nuvik.Update(app, time);
  std::stringstream document;
  document << nuvik;
  NuvikPrediction::Nuvik loaded;
  NuvikPrediction::Suggestions suggestions;
  NuvikPrediction::RowRequest request;
  request.exclude = {"mail"};
  if (!(document >> loaded) || nuvik.GetNext() != std::vector<std::string>{"mail", "chat"} ||
      suggestions.Row(nuvik, time, request) != std::vector<std::string>{"chat"}) {
    std::cerr << "consumer: unexpected result\n";
    return 1;
  }
  std::cout << loaded.PrintNuvikInfo() << '\n';
  return 0;
}
