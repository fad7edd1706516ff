// The direct writer against jsoncpp's: strings and values written both ways,
// and every document the facades here can reach, written by the facade and
// by the tree-building reference, compared byte for byte. The documents hold
// integers, strings and nulls only, no floating-point number.
#include <climits>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <iomanip>
#include <random>
#include <sstream>

#include <gtest/gtest.h>
#include <json/json.h>
#include <nuvik/Nuvik.h>

#include "JsonWriter.h"
#include "ReferenceFacade.h"
#include "TestUtil.h"

namespace NuvikPrediction {
namespace {

using testing::At;
using testing::Ensembles;
using testing::ReferenceFacade;
using testing::Save;
using Names = std::vector<std::string>;

std::string Quoted(const std::string& value) {
  std::string out;
  AppendQuotedString(out, value);
  return out;
}

// Writes a jsoncpp value through JsonWriter, members in jsoncpp's order.
void WriteValue(JsonWriter& out, const Json::Value& value) {
  switch (value.type()) {
    case Json::nullValue: out.Null(); break;
    case Json::intValue: out.Int64(value.asInt64()); break;
    case Json::uintValue: out.UInt64(value.asUInt64()); break;
    case Json::stringValue: out.String(value.asString()); break;
    case Json::arrayValue:
      out.BeginArray();
      for (const Json::Value& element : value) WriteValue(out, element);
      out.EndArray();
      break;
    case Json::objectValue:
      out.BeginObject();
      for (const std::string& key : value.getMemberNames()) {
        out.Key(key);
        WriteValue(out, value[key]);
      }
      out.EndObject();
      break;
    default: FAIL() << "no such value in a document";
  }
}

// Bytes from 0x80 on three times in four: UTF-8 lead and continuation bytes, valid or not.
std::string RandomBytes(std::mt19937_64& random, std::size_t maxLength) {
  std::string text(random() % (maxLength + 1), '\0');
  for (char& byte : text) {
    const auto bits = random();
    byte = static_cast<char>((bits & 3) != 0 ? 0x80 | (bits >> 8) : bits >> 8);
  }
  return text;
}

TEST(JsonWriterTest, QuotesStringsExactlyAsJsoncpp) {
  // Worked out by hand from the rules in JsonWriter.h.
  EXPECT_EQ(Quoted("a\"b\\c/\b\f\n\r\t"), R"("a\"b\\c/\b\f\n\r\t")");
  EXPECT_EQ(Quoted(std::string("\0\x01\x1f\x7f", 4)), "\"\\u0000\\u0001\\u001f\x7f\"");
  EXPECT_EQ(Quoted("caf\xC3\xA9 \xE4\xB8\xAD \xF0\x9F\x98\x80"), R"("caf\u00e9 \u4e2d \ud83d\ude00")");
  EXPECT_EQ(Quoted("\xC3\x22x"), R"("\u00e2x")");               // continuation bits taken from '"'
  EXPECT_EQ(Quoted("\x9F\xBF"), R"("\u07ff")");                 // a continuation byte leads
  EXPECT_EQ(Quoted("\xC0\x80\xE0\x80\x80"), R"("\ufffd\ufffd")");  // overlong forms
  EXPECT_EQ(Quoted("\xED\xA0\x80"), R"("\ufffd")");             // a surrogate
  EXPECT_EQ(Quoted("\xE2\x82"), R"("\ufffd\ufffd")");           // cut short: one byte at a time
  EXPECT_EQ(Quoted("\xF8\x41"), R"("\ufffdA")");
  EXPECT_EQ(Quoted("\xF4\x90\x80\x80"), R"("\ud800\udc00")");   // U+110000, masked
  EXPECT_EQ(Quoted("\xF7\xBF\xBF\xBF"), R"("\udbbf\udfff")");

  Json::StreamWriterBuilder builder;
  builder["indentation"] = "";
  const std::unique_ptr<Json::StreamWriter> writer(builder.newStreamWriter());
  std::ostringstream jsoncpp;
  std::size_t differences = 0;
  const auto compare = [&](const std::string& text) {
    jsoncpp.str("");
    writer->write(Json::Value(text), &jsoncpp);
    if (jsoncpp.str() != Quoted(text) && differences++ < 5) ADD_FAILURE() << ::testing::PrintToString(text);
  };
  for (int first = 0; first < 256; ++first) {
    compare(std::string(1, static_cast<char>(first)));
    for (int second = 0; second < 256; ++second) {
      compare(std::string{static_cast<char>(first), static_cast<char>(second)});
    }
  }
  std::mt19937_64 random(1);
  for (int i = 0; i < 1000000; ++i) compare(RandomBytes(random, 12));
  EXPECT_EQ(differences, 0u);
}

Json::Value RandomValue(std::mt19937_64& random, int depth) {
  switch (random() % (depth > 0 ? 7 : 5)) {
    case 0: return Json::Value();
    case 1: return Json::Value(Json::UInt64{random() >> (random() % 64)});
    case 2: return Json::Value(static_cast<Json::Int64>(random()));
    case 3: return Json::Value(RandomBytes(random, random() % 8 == 0 ? 70000 : 10));
    case 4: return Json::Value(random() % 2 == 0 ? Json::arrayValue : Json::objectValue);
    case 5: {
      Json::Value array(Json::arrayValue);
      for (auto n = random() % 6; n > 0; --n) array.append(RandomValue(random, depth - 1));
      return array;
    }
    default: {
      Json::Value object(Json::objectValue);
      for (auto n = random() % 6; n > 0; --n) object[RandomBytes(random, 4)] = RandomValue(random, depth - 1);
      return object;
    }
  }
}

TEST(JsonWriterTest, WritesValuesExactlyAsJsoncppAcrossChunks) {
  std::mt19937_64 random(2);
  Json::Value values(Json::arrayValue);
  values.append(Json::UInt64{UINT64_MAX});
  values.append(Json::Int64{INT64_MIN});
  values.append(Json::Int64{-1});
  values.append(0u);
  for (int i = 0; i < 300; ++i) values.append(RandomValue(random, 4));
  std::ostringstream direct;
  JsonWriter out(direct);
  WriteValue(out, values);
  out.Flush();
  const std::string expected = testing::WriteJson(values);
  EXPECT_GT(expected.size(), std::size_t{1} << 18);  // several chunks
  EXPECT_EQ(direct.str(), expected);
}

// Application names that any escaping mistake would show; with random bytes.
Names OddNames(std::mt19937_64& random) {
  Names names = {"", "plain", "quote\"d", "back\\slash", "sl/ash", "caf\xC3\xA9", "\xF0\x9F\x98\x80",
                 "\x80 lone", "cut short \xE2\x82", "\xC0\x80 overlong", "\x7F del", "c\x01",
                 std::string(1, '\0'), std::string("nul\0in", 6)};
  for (int i = 0; i < 10; ++i) names.push_back(RandomBytes(random, 6));
  return names;
}

// Facade and reference side by side, fed the same calls.
struct Pair {
  explicit Pair(const NuvikConfig& config) : nuvik(config), reference(config) {}

  void Update(const std::string& app, const std::tm& time) {
    nuvik.Update(app, time);
    reference.Update(app, time);
  }

  // Loads `text` into both; true when both accepted it. jsoncpp's
  // exceptions escape from both or from neither.
  bool Load(const std::string& text) {
    const auto outcome = [](auto load) {
      try {
        return load() ? "accepted" : "rejected";
      } catch (const Json::Exception&) {
        return "threw";
      }
    };
    const std::string fromNuvik = outcome([&] { return testing::Load(nuvik, text); });
    EXPECT_EQ(fromNuvik, outcome([&] { return reference.Load(text); }));
    return fromNuvik == "accepted";
  }

  void ExpectSameDocument() const { EXPECT_EQ(Save(nuvik), reference.Save()); }

  Nuvik nuvik;
  ReferenceFacade reference;
};

void Train(Pair& pair, std::mt19937_64& random, int launches, const Names& names) {
  int minute = static_cast<int>(random() % 1440);
  for (int i = 0; i < launches; ++i) {
    minute = (minute + static_cast<int>(random() % 90)) % 1440;
    pair.Update(names[random() % names.size()], At(minute / 60, minute % 60));
  }
}

TEST(DocumentWriterTest, TrainedFacadesOfEveryTypeAndPairWithOddNames) {
  std::mt19937_64 random(3);
  const Names names = OddNames(random);
  for (const Names& ensemble : Ensembles()) {
    SCOPED_TRACE(::testing::PrintToString(ensemble));
    Pair pair(NuvikConfig(ensemble, false, 60, 0.5, 0.05));
    pair.ExpectSameDocument();  // untrained: null members
    Train(pair, random, 3, names);
    pair.ExpectSameDocument();  // histories still short
    Train(pair, random, 250, names);
    pair.ExpectSameDocument();
  }
}

TEST(DocumentWriterTest, KernelSelectorsAndEmptyEnsembles) {
  // The kernel selector is the parameter minus one in 32 bits.
  Pair knn(NuvikConfig({0, INT32_MIN, 5}, "knn_regression"));
  knn.ExpectSameDocument();
  const std::string saved = Save(knn.nuvik);
  for (const char* selector : {"18446744073709551615", "2147483647", "4"}) {
    EXPECT_NE(saved.find(R"("function":)" + std::string(selector)), std::string::npos) << selector;
  }
  std::mt19937_64 random(4);
  Train(knn, random, 40, OddNames(random));
  knn.ExpectSameDocument();

  NuvikConfig none({1}, "stat_counter");
  none.params.clear();
  Pair empty(none);
  empty.ExpectSameDocument();
  Train(empty, random, 5, {"a"});
  empty.ExpectSameDocument();
  EXPECT_EQ(Save(empty.nuvik), R"({"count":0,"knownApps":["a"],"models":null,"version":3})");

  // A field width pads the opening bracket only, as it did with jsoncpp.
  std::ostringstream padded;
  padded << std::setw(6) << std::setfill('*') << knn.nuvik << 5;
  EXPECT_EQ(padded.str(), "*****" + knn.reference.Save() + "5");
}

// Ids and counts beyond 32 bits, which narrow on loading and come back sign-extended.
std::string ExtremesDocument() {
  Json::Value root = testing::ParseJson(
      R"({"count":4,"knownApps":["a",7,"b","\u0000"],"version":3,"models":[{"name":"linear","model":)"
      R"({"last":[{"lastApp":2147483648},{"lastApp":4294967295},{"lastApp":0}],)"
      R"("statCounter":[{"app":4294967295,"cnt":4294967295}],"strToId":[{"app":"a","id":0},{"app":"z","id":4294967295}],)"
      R"("timeBuckets":[{"app":4294967295,"bucket":287,"cnt":2147483648}],)"
      R"("transitions":[{"appFrom":0,"appTo":4294967295,"cnt":4294967296,"step":9},)"
      R"({"appFrom":4294967295,"appTo":0,"cnt":3,"step":0}]}},)"
      R"({"name":"stat_counter","model":[{"app":"a","popularity":4294967298},{"app":"b"},null]},)"
      R"({"name":"markov_chain3_invalidate","model":{"last":[{"lastApp":"a"},{"lastApp":"\u0000x"},3],)"
      R"("markovChain":[{"appFrom":4294967295,"appTo":0,"step":3,"value":4294967297}],)"
      R"("strToId":[{"app":"a","id":0},{"app":"b","id":4294967295}]}},)"
      R"({"name":"knn_regression","model":{"function":18446744073709551615,"previous":[5,"x",null],)"
      R"("strToId":[{"app":"a","id":0},{"app":"b","id":18446744073709551615}]}}]})");
  Json::Value& counters = root["models"][3]["model"]["counters"];
  counters.resize(576);
  counters[575] = testing::ParseJson(R"([{"value1":18446744073709551615,"value2":0,"value3":18446744073709551615}])");
  return testing::WriteJson(root);
}

TEST(DocumentWriterTest, ExtremeValuesAfterLoading) {
  Pair pair(NuvikConfig({1}, "stat_counter"));
  ASSERT_TRUE(pair.Load(ExtremesDocument()));
  pair.ExpectSameDocument();
  const std::string saved = Save(pair.nuvik);
  const std::string linear =
      R"({"last":[{"lastApp":-2147483648},{"lastApp":-1},{"lastApp":0}],)"
      R"("statCounter":[{"app":18446744073709551615,"cnt":18446744073709551615}],)"
      R"("strToId":[{"app":"a","id":0},{"app":"z","id":18446744073709551615}],)"
      R"("timeBuckets":[{"app":18446744073709551615,"bucket":287,"cnt":18446744071562067968}],)"
      R"("transitions":[{"appFrom":18446744073709551615,"appTo":0,"cnt":3,"step":0}]})";
  EXPECT_NE(saved.find(linear), std::string::npos) << saved;
  EXPECT_NE(saved.find(R"("previous":[5,null,null])"), std::string::npos);
  EXPECT_NE(saved.find(R"([{"app":"a","popularity":2}])"), std::string::npos);

  std::mt19937_64 random(5);
  Train(pair, random, 30, {"a", "b", "new", std::string(1, '\0')});
  pair.ExpectSameDocument();
}

TEST(DocumentWriterTest, CorpusDocumentsLoadedAndSavedAgain) {
  std::mt19937_64 random(6);
  std::size_t accepted = 0;
  for (const auto& file : std::filesystem::directory_iterator(NUVIK_FUZZ_CORPUS)) {
    std::ifstream in(file.path(), std::ios::binary);
    const std::string text((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    for (const Names& ensemble : Ensembles()) {
      SCOPED_TRACE(file.path().filename().string() + " " + ::testing::PrintToString(ensemble));
      Pair pair(NuvikConfig(ensemble, false, 60, 0.5, 0.05));
      Train(pair, random, 2, {"a", "b"});
      accepted += pair.Load(text) ? 1 : 0;
      pair.ExpectSameDocument();
      Train(pair, random, 12, {"a", "b", "c", "\xF0\x9F\x98\x80"});
      pair.ExpectSameDocument();
      // The result saved and loaded again, into a facade of another shape.
      Pair again(NuvikConfig({1}, "stat_counter"));
      again.Load(Save(pair.nuvik));
      again.ExpectSameDocument();
    }
  }
  EXPECT_GT(accepted, 0u);
}

}  // namespace
}  // namespace NuvikPrediction
