// Helpers shared by the suites: clock times, JSON text, predictors taught and
// read, facades saved and loaded, and a launch stream with habits.
#ifndef NUVIK_TESTS_TEST_UTIL_H_
#define NUVIK_TESTS_TEST_UTIL_H_

#include <cstdint>
#include <ctime>
#include <random>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <json/json.h>
#include <nuvik/Nuvik.h>

namespace NuvikPrediction::testing {

inline std::tm At(int hour, int minute) {
  std::tm time{};
  time.tm_hour = hour;
  time.tm_min = minute;
  return time;
}

inline Json::Value ParseJson(const std::string& text) {
  Json::Value value;
  std::istringstream in(text);
  Json::CharReaderBuilder builder;
  std::string errors;
  if (!Json::parseFromStream(builder, in, &value, &errors)) throw std::runtime_error(errors);
  return value;
}

inline std::string WriteJson(const Json::Value& value) {
  Json::StreamWriterBuilder builder;
  builder["indentation"] = "";
  return Json::writeString(builder, value);
}

// Teaches a predictor one launch.
template <typename Predictor>
void Launch(Predictor& predictor, const std::string& app, int hour = 8, int minute = 0) {
  predictor.Update({"", app, hour, minute});
}

// One member of a predictor's document, as compact text.
template <typename Predictor>
std::string Member(const Predictor& predictor, const char* key) {
  return WriteJson(predictor.SerializeJson()[key]);
}

inline std::string Save(const Nuvik& nuvik) {
  std::ostringstream out;
  out << nuvik;
  return out.str();
}

// Loads `text`; true when the facade accepted it.
inline bool Load(Nuvik& nuvik, const std::string& text) {
  std::istringstream in(text);
  in >> nuvik;
  return !in.bad();
}

// The document of a stat_counter facade after launches of a, b, a.
inline constexpr const char* kCounterDocument =
    R"({"count":1,"knownApps":["a","b"],"models":[{"model":[{"app":"a","popularity":2},)"
    R"({"app":"b","popularity":1}],"name":"stat_counter"}],"version":3})";

// Launches of thirty applications, mostly a fixed successor of the previous
// one, sometimes a random one, at times that drift through the day.
class HabitStream {
 public:
  explicit HabitStream(unsigned seed) : random_(seed) {}

  // Gives every facade the same next launch.
  void Next(const std::vector<Nuvik*>& facades) {
    const std::uint32_t draw = random_();
    last_ = draw % 4 == 0 ? static_cast<int>(draw / 4 % 30) : (last_ * 7 + 3) % 30;
    minute_ += 1 + static_cast<int>(random_() % 50);
    for (Nuvik* nuvik : facades) nuvik->Update("app" + std::to_string(last_), At(minute_ / 60 % 24, minute_ % 60));
  }

 private:
  std::mt19937 random_;
  int last_ = 0;
  int minute_ = 0;
};

}  // namespace NuvikPrediction::testing

#endif  // NUVIK_TESTS_TEST_UTIL_H_
