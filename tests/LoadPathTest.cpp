// The simdjson load path against the jsoncpp one: every document gives the
// same outcome (acceptance, stream state, escaping exception, loaded state),
// whichever simdjson implementation runs; documents outside what simdjson
// reads exactly like jsoncpp are handed over.
#include <sstream>

#include <gtest/gtest.h>
#include <json/json.h>
#include <nuvik/Nuvik.h>
#include <simdjson.h>

#include "DomDocument.h"
#include "LoadPath.h"
#include "TestUtil.h"

namespace NuvikPrediction {
namespace {

using testing::Save;
using Names = std::vector<std::string>;

constexpr const char* kCounter = testing::kCounterDocument;

struct Outcome {
  std::string escaped;  // name of the Json exception that escaped, if any
  std::ios_base::iostate state{};
  std::string saved;
  std::string apps;  // known applications, byte for byte (the writer replaces invalid UTF-8)
};

Outcome Load(const std::string& text, LoadPath path, const Names& ensemble = {"linear"}) {
  SetLoadPath(path);
  Nuvik nuvik(ensemble);
  std::istringstream in(text);
  Outcome outcome;
  try {
    in >> nuvik;
  } catch (const Json::RuntimeError&) {
    outcome.escaped = "RuntimeError";
  } catch (const Json::LogicError&) {
    outcome.escaped = "LogicError";
  }
  SetLoadPath(LoadPath::kSimdjsonFirst);
  outcome.state = in.rdstate();
  outcome.saved = Save(nuvik);
  for (const auto& [app, weight] : nuvik.GetAllWeights()) outcome.apps += app + "|";
  return outcome;
}

// Both paths, under every simdjson implementation this CPU runs, agree on
// `text`; returns their outcome.
Outcome LoadBothWays(const std::string& text, const Names& ensemble = {"linear"}) {
  const Outcome expected = Load(text, LoadPath::kJsoncppOnly, ensemble);
  const simdjson::implementation* const chosen = simdjson::get_active_implementation();
  for (const simdjson::implementation* implementation : simdjson::get_available_implementations()) {
    if (!implementation->supported_by_runtime_system()) continue;
    simdjson::get_active_implementation() = implementation;
    const Outcome actual = Load(text, LoadPath::kSimdjsonFirst, ensemble);
    EXPECT_EQ(actual.escaped, expected.escaped) << implementation->name() << ": " << text;
    EXPECT_EQ(actual.state, expected.state) << implementation->name() << ": " << text;
    EXPECT_EQ(actual.saved, expected.saved) << implementation->name() << ": " << text;
    EXPECT_EQ(actual.apps, expected.apps) << implementation->name() << ": " << text;
  }
  simdjson::get_active_implementation() = chosen;
  return expected;
}

bool SimdjsonTakes(const std::string& text) {
  DomDocument document;
  return document.Parse(text);
}

std::string Replace(std::string text, const std::string& from, const std::string& to) {
  const std::size_t at = text.find(from);
  if (at == std::string::npos) throw std::logic_error("no " + from);
  return text.replace(at, from.size(), to);
}

// The counter document with its first element's name (also among the known
// applications) or popularity replaced.
std::string WithApp(const std::string& app) {
  return Replace(Replace(kCounter, R"("app":"a")", R"("app":)" + app), R"(["a")", "[" + app);
}
std::string WithPopularity(const std::string& count) {
  return Replace(kCounter, R"("popularity":2)", R"("popularity":)" + count);
}

// The popularity of `app` in the saved document of a stat_counter facade.
std::string SavedCounter(const Outcome& outcome) {
  const Json::Value root = testing::ParseJson(outcome.saved);
  std::string result;
  for (const Json::Value& element : root["models"][0]["model"]) {
    result += element["app"].asString() + "=" + std::to_string(element["popularity"].asUInt64()) + ";";
  }
  return result;
}

struct Case {
  std::string text;
  std::string counter;  // loaded counts, or the exception, or "rejected"
  std::string apps = "a|b|";
};

// Each case read by simdjson (or left to jsoncpp) loads alike both ways.
void ExpectLoads(const std::vector<Case>& cases, bool simdjsonTakes) {
  for (const Case& each : cases) {
    EXPECT_EQ(SimdjsonTakes(each.text), simdjsonTakes) << each.text;
    const Outcome outcome = LoadBothWays(each.text, {"stat_counter"});
    const bool loaded = outcome.escaped.empty() && !(outcome.state & std::ios_base::badbit);
    EXPECT_EQ(!outcome.escaped.empty() ? outcome.escaped : loaded ? SavedCounter(outcome) : "rejected", each.counter)
        << each.text;
    EXPECT_EQ(outcome.state & ~std::ios_base::badbit, std::ios_base::goodbit) << each.text;  // only badbit is set
    // A rejected document leaves the facade without known applications.
    EXPECT_EQ(outcome.apps, loaded ? each.apps : "") << each.text;
  }
}

TEST(LoadPathTest, DocumentsSimdjsonReadsExactlyLikeJsoncpp) {
  const std::vector<Case> cases = {
      {kCounter, "a=2;b=1;"},
      {kCounter + std::string(" \n\t\r"), "a=2;b=1;"},
      {WithPopularity("-0"), "a=0;b=1;"},
      {WithPopularity("-9223372036854775808"), "b=1;"},
      {WithPopularity("18446744073709551615"), "a=4294967295;b=1;"},
      {WithApp(R"("\u00e9\/\\\"\ud83d\ude00\u0000")"), "b=1;" + std::string("\xc3\xa9/\\\"\xf0\x9f\x98\x80\0=2;", 13),
       "b|" + std::string("\xc3\xa9/\\\"\xf0\x9f\x98\x80\0|", 11)},
      {Replace(kCounter, R"("app":"a")", R"("\u0061pp":"a")"), "a=2;b=1;"},
  };
  ExpectLoads(cases, true);
}

TEST(LoadPathTest, DocumentsLeftToJsoncpp) {
  const std::string deep = std::string(1100, '[') + std::string(1100, ']');
  const std::vector<Case> cases = {
      {"/* saved */ " + std::string(kCounter) + " // end", "a=2;b=1;"},
      {Replace(kCounter, R"("popularity":1})", R"("popularity":1},)"), "a=2;b=1;"},
      {kCounter + std::string(" ]trailing"), "a=2;b=1;"},
      {std::string(kCounter) + '\0', "a=2;b=1;"},
      {"\xEF\xBB\xBF" + std::string(kCounter), "a=2;b=1;"},
      {WithPopularity("2,\"popularity\":7"), "a=7;b=1;"},
      {Replace(kCounter, R"("version":3)", R"("version":2,"version":3)"), "a=2;b=1;"},
      {Replace(kCounter, R"("version":3)", R"("version":3,"version":2)"), "rejected"},
      {WithPopularity("2.0"), "a=2;b=1;"},
      {WithPopularity("2e0"), "a=2;b=1;"},
      {WithPopularity("-0.0"), "a=0;b=1;"},
      {WithPopularity("2.5"), "b=1;"},
      {WithPopularity("18446744073709551616"), "b=1;"},
      {WithPopularity("-9223372036854775809"), "b=1;"},
      {WithPopularity("1e400"), "rejected"},
      {WithPopularity("02"), "a=2;b=1;"},
      {WithApp(R"("\udc00")"), "b=1;\xef\xbf\xbd=2;", "b|\xed\xb0\x80|"},
      {WithApp(R"("\ud800\u0041")"), "b=1;\xf0\x90\x81\x81=2;", "b|\xf0\x90\x81\x81|"},
      {WithApp(R"("\ud800")"), "rejected"},
      {WithApp("\"\xff\""), "b=1;\xef\xbf\xbd=2;", "b|\xff|"},
      {WithApp("\"\x01\""), "\x01=2;b=1;", "\x01|b|"},
      {Replace(kCounter, R"("version":3)", R"("version":3,"deep":)" + std::string(100, '[') + std::string(100, ']')),
       "a=2;b=1;"},
      {Replace(kCounter, R"("version":3)", R"("version":3,"deep":)" + deep), "RuntimeError"},
      {"", "rejected"},
      {"{", "rejected"},
  };
  ExpectLoads(cases, false);
}

TEST(LoadPathTest, ReadersFallBackWhereJsoncppThrows) {
  const std::string linear = R"({"last":[{"lastApp":0}],"statCounter":[7,{"app":0,"cnt":1}],)"
                             R"("strToId":[{"app":"a","id":0}],"timeBuckets":[{"app":0,"bucket":1,"cnt":1}],)"
                             R"("transitions":[{"step":0,"appFrom":0,"appTo":0,"cnt":1}]})";
  for (const std::string& models : {
           std::string(R"([{"name":"stat_counter","model":[{"app":"a","popularity":1},[]]}])"),
           std::string(R"([{"name":"stat_counter","model":["a"]}])"),
           R"([{"name":"linear","model":)" + linear + "}]",
           R"([{"name":"double_linear","model":{"firstLinear":)" + linear + R"(,"secondLinear":null}}])",
       }) {
    const std::string text = R"({"count":1,"knownApps":["a"],"version":3,"models":)" + models + "}";
    EXPECT_TRUE(SimdjsonTakes(text)) << text;
    EXPECT_EQ(LoadBothWays(text).escaped, "LogicError") << text;
  }
}

TEST(LoadPathTest, TrainedDocumentsOfEveryTypeLoadIdentically) {
  unsigned seed = 1;
  for (const Names& names : testing::Ensembles()) {
    Nuvik nuvik(names);
    testing::HabitStream stream(seed++);
    for (int i = 0; i < 600; ++i) stream.Next({&nuvik});
    const std::string saved = Save(nuvik);
    ASSERT_TRUE(SimdjsonTakes(saved));
    EXPECT_EQ(LoadBothWays(saved).state, std::ios_base::goodbit);
  }
}

// The stream is read before either path parses it: one path is enough.
TEST(LoadPathTest, StreamIsReadLikeJsoncppReadsIt) {
  Nuvik nuvik;
  // A stream already failed is read all the same; its flags are kept.
  std::istringstream failed(kCounter);
  failed.setstate(std::ios_base::failbit | std::ios_base::eofbit);
  failed >> nuvik;
  EXPECT_EQ(failed.rdstate(), std::ios_base::failbit | std::ios_base::eofbit);
  EXPECT_EQ(nuvik.GetCountKnownApps(), 2u);

  // The whole buffer is consumed, past the end of the document.
  std::istringstream tail(std::string(kCounter) + " tail");
  tail >> nuvik;
  EXPECT_EQ(tail.rdstate(), std::ios_base::goodbit);
  EXPECT_EQ(tail.rdbuf()->sgetc(), std::char_traits<char>::eof());

  std::istream detached(nullptr);
  detached.clear();
  detached >> nuvik;
  EXPECT_EQ(detached.rdstate(), std::ios_base::badbit);

  // A rejection adds badbit to the flags, and throws when the stream asks for it.
  std::istringstream garbage("{");
  garbage.setstate(std::ios_base::eofbit);
  garbage >> nuvik;
  EXPECT_EQ(garbage.rdstate(), std::ios_base::badbit | std::ios_base::eofbit);
  std::istringstream throwing("{");
  throwing.exceptions(std::ios_base::badbit);
  EXPECT_THROW(throwing >> nuvik, std::ios_base::failure);
}

}  // namespace
}  // namespace NuvikPrediction
