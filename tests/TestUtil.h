#ifndef NUVIK_TESTS_TEST_UTIL_H_
#define NUVIK_TESTS_TEST_UTIL_H_

#include <ctime>
#include <sstream>
#include <string>

#include <json/json.h>

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

}  // namespace NuvikPrediction::testing

#endif  // NUVIK_TESTS_TEST_UTIL_H_
