// Uses only the installed public header, without jsoncpp on the include path.
#include <nuvik/Nuvik.h>

#include <iostream>
#include <sstream>

int main() {
  NuvikPrediction::Nuvik nuvik;
  std::tm time{};
  for (const char* app : {"mail", "chat", "mail"}) nuvik.Update(app, time);
  std::stringstream document;
  document << nuvik;
  NuvikPrediction::Nuvik loaded;
  if (!(document >> loaded) || nuvik.GetNext() != std::vector<std::string>{"mail", "chat"}) {
    std::cerr << "consumer: unexpected result\n";
    return 1;
  }
  std::cout << loaded.PrintNuvikInfo() << '\n';
  return 0;
}
