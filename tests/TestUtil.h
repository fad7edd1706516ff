// Helpers shared by the suites: clock times, JSON text, predictors taught and
// read, facades saved and loaded, doubles by their bits, the ensembles of one
// and two slots, and a launch stream with habits.
#ifndef NUVIK_TESTS_TEST_UTIL_H_
#define NUVIK_TESTS_TEST_UTIL_H_

#include <cstdint>
#include <cstring>
#include <ctime>
#include <initializer_list>
#include <map>
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

// Teaches a facade the launches of `apps` in turn, all at noon.
inline void LaunchAll(Nuvik& nuvik, std::initializer_list<const char*> apps) {
  for (const char* app : apps) nuvik.Update(app, At(12, 0));
}

// One member of a predictor's document, as compact text.
template <typename Predictor>
std::string Member(const Predictor& predictor, const char* key) {
  return WriteJson(predictor.SerializeJson()[key]);
}

// The document of a facade or of a Suggestions.
template <typename Saved>
std::string Save(const Saved& saved) {
  std::ostringstream out;
  out << saved;
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

// Doubles by their bits, so that NaN compares equal to NaN.
inline std::vector<std::uint64_t> Bits(const std::vector<double>& values) {
  std::vector<std::uint64_t> bits(values.size());
  if (!values.empty()) std::memcpy(bits.data(), values.data(), values.size() * sizeof(double));
  return bits;
}

inline std::map<std::string, std::uint64_t> Bits(const std::map<std::string, double>& weights) {
  std::map<std::string, std::uint64_t> bits;
  for (const auto& [app, weight] : weights) std::memcpy(&bits[app], &weight, sizeof weight);
  return bits;
}

// Every predictor type alone, then every ordered pair of them.
inline std::vector<std::vector<std::string>> Ensembles() {
  const std::vector<std::string> types = {"stat_counter", "linear", "double_linear", "markov_chain3_invalidate",
                                          "knn_regression"};
  std::vector<std::vector<std::string>> ensembles;
  for (const std::string& type : types) ensembles.push_back({type});
  for (const std::string& first : types) {
    for (const std::string& second : types) ensembles.push_back({first, second});
  }
  return ensembles;
}

// Launches of "app0" .. "app<apps - 1>": a third drawn with a strong bias to
// the first ones, the rest a habitual successor of the previous one, at times
// that drift through the day.
class HabitStream {
 public:
  explicit HabitStream(unsigned seed, int apps = 30) : random_(seed), apps_(apps) {}

  // The next launch's application; Time() is its time.
  std::string Next() {
    const double u = std::uniform_real_distribution<double>(0.0, 1.0)(random_);
    last_ = random_() % 3 == 0 ? static_cast<int>(apps_ * u * u * u) % apps_
                               : (last_ * 7 + 3 + static_cast<int>(random_() % 2)) % apps_;
    minute_ += 1 + static_cast<int>(random_() % 25);
    return "app" + std::to_string(last_);
  }
  std::tm Time() const { return At(minute_ / 60 % 24, minute_ % 60); }

  // Gives every facade the same next launch.
  void Next(const std::vector<Nuvik*>& facades) {
    const std::string app = Next();
    for (Nuvik* nuvik : facades) nuvik->Update(app, Time());
  }

 private:
  std::mt19937 random_;
  int apps_;
  int last_ = 0;
  int minute_ = 0;
};

}  // namespace NuvikPrediction::testing

#endif  // NUVIK_TESTS_TEST_UTIL_H_
