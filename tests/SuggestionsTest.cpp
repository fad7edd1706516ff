#include <algorithm>
#include <limits>
#include <map>
#include <random>
#include <sstream>

#include <gtest/gtest.h>
#include <nuvik/Suggestions.h>

#include "TestUtil.h"

namespace NuvikPrediction {
namespace {

using testing::At;
using testing::Save;
using Names = std::vector<std::string>;

constexpr std::size_t kAll = std::numeric_limits<std::size_t>::max();

RowRequest Request(std::size_t count, Names exclude = {}, Names installed = {}, Names fallback = {},
                   bool stable = false) {
  RowRequest request;
  request.count = count;
  request.exclude = std::move(exclude);
  request.installed = std::move(installed);
  request.fallback = std::move(fallback);
  request.stable = stable;
  return request;
}

RowRequest Stable(std::size_t count) { return Request(count, {}, {}, {}, true); }

bool Listed(const Names& list, const std::string& app) { return std::find(list.begin(), list.end(), app) != list.end(); }

// The candidates as the rules state them: the eligible names of the ranking,
// then of the fallback, each once.
Names Candidates(const Names& ranking, const RowRequest& request, const Names& dismissed) {
  Names candidates;
  for (const Names* list : {&ranking, &request.fallback}) {
    for (const std::string& app : *list) {
      if (app.empty() || Listed(request.exclude, app) || Listed(dismissed, app) || Listed(candidates, app) ||
          (!request.installed.empty() && !Listed(request.installed, app))) {
        continue;
      }
      candidates.push_back(app);
    }
  }
  return candidates;
}

TEST(SuggestionsTest, RowsLeaveOutWhatTheRequestAndTheUserLeaveOut) {
  Suggestions suggestions;
  const Names ranking = {"a", "b", "", "c", "d", "e"};
  EXPECT_EQ(suggestions.Row(ranking, Request(3)), (Names{"a", "b", "c"}));
  suggestions.Dismiss("d");
  EXPECT_EQ(suggestions.Row(ranking, Request(3, {"b"})), (Names{"a", "c", "e"}));
  EXPECT_EQ(suggestions.Row(ranking, Request(3, {}, {"e", "c", "x"})), (Names{"c", "e"}));
  // The fallback fills what the ranking leaves, under the same rules.
  EXPECT_EQ(suggestions.Row(ranking, Request(4, {}, {"e", "c", "x"}, {"d", "x", "e", "y"})), (Names{"c", "e", "x"}));
  EXPECT_EQ(suggestions.Row({"a"}, Request(3, {}, {}, {"b", "a", "c", "d"})), (Names{"a", "b", "c"}));
  EXPECT_EQ(suggestions.Row(ranking, Request(kAll)), (Names{"a", "b", "c", "e"}));
  EXPECT_EQ(suggestions.Row(ranking, Request(0)), Names{});
  // Repeats anywhere are harmless.
  EXPECT_EQ(suggestions.Row({"a", "a", "b", "a"}, Request(4, {"x", "b", "x"}, {"c", "a", "c", "a"}, {"c", "a", "c"})),
            (Names{"a", "c"}));

  // A model that knows nothing ranks nothing: the fallback alone.
  const Nuvik empty;
  EXPECT_EQ(suggestions.Row(empty, At(9, 0), Request(2, {"x"}, {}, {"x", "y", "d", "z"})), (Names{"y", "z"}));

  // A model's row is its ranking's: wherever the eligible applications sit.
  Nuvik model;
  for (const char* app : {"a", "b", "b", "c", "c", "c", "d", "d", "d", "d", ""}) model.Update(app, At(9, 0));
  ASSERT_EQ(model.GetNextAt(At(9, 0)), (Names{"d", "c", "b", "a", ""}));
  EXPECT_EQ(suggestions.Row(model, At(9, 0), Request(2, {"c"})), (Names{"b", "a"}));
  EXPECT_EQ(suggestions.Row(model, At(9, 0), Request(2, {}, {"a", "x"}, {"x", "y"})), (Names{"a", "x"}));
  EXPECT_EQ(suggestions.Row(model, At(9, 0), Request(kAll, {}, {}, {"", "e", "a"})), (Names{"c", "b", "a", "e"}));
}

TEST(SuggestionsTest, StableRowsKeepThePreviousAppsInTheirSlots) {
  Suggestions suggestions;
  EXPECT_EQ(suggestions.Row({"a", "b", "c", "d", "e", "f", "g"}, Request(3)), (Names{"a", "b", "c"}));
  // Ranks d0 a1 e2 f3 b4 g5 c6: d is 6 places above c and takes its slot;
  // e is only 2 places above b.
  EXPECT_EQ(suggestions.Row({"d", "a", "e", "f", "b", "g", "c"}, Stable(3)), (Names{"a", "b", "d"}));
  EXPECT_EQ(suggestions.Row({"a", "x", "y", "z", "b", "d"}, Stable(3)), (Names{"a", "b", "x"}));
  // The margin: exactly kStableMargin places is enough.
  static_assert(Suggestions::kStableMargin == 3);
  EXPECT_EQ(suggestions.Row({"p", "q"}, Request(2)), (Names{"p", "q"}));
  EXPECT_EQ(suggestions.Row({"n", "p", "q"}, Stable(2)), (Names{"p", "q"}));
  EXPECT_EQ(suggestions.Row({"n", "p", "x", "q"}, Stable(2)), (Names{"p", "n"}));
  // A longer row leaves its new slots free; a shorter one cuts the previous.
  EXPECT_EQ(suggestions.Row({"a", "b", "p", "c", "n"}, Stable(4)), (Names{"p", "n", "a", "b"}));
  EXPECT_EQ(suggestions.Row({"a", "b", "c", "d", "e", "p", "n"}, Stable(2)), (Names{"b", "a"}));
  // Without enough candidates, free slots close up.
  EXPECT_EQ(suggestions.Row({"a"}, Stable(3)), (Names{"a"}));
  // An application the user dismisses, or no longer ranks, frees its slot.
  EXPECT_EQ(suggestions.Row({"x", "y", "z"}, Request(3)), (Names{"x", "y", "z"}));
  suggestions.Dismiss("y");
  EXPECT_EQ(suggestions.Row({"w", "z", "x"}, Stable(3)), (Names{"x", "w", "z"}));
  EXPECT_EQ(suggestions.Row({"v", "w", "z"}, Stable(3)), (Names{"v", "w", "z"}));
  // Kept applications the row holds twice (a loaded document): the first stays.
  std::istringstream document(R"({"dismissed":[],"row":["a","a","","b"],"version":1})");
  ASSERT_TRUE(document >> suggestions);
  EXPECT_EQ(suggestions.Row({"c", "a", "b"}, Stable(4)), (Names{"a", "c", "b"}));

  // The model's row, kept from one call to the next.
  Nuvik model;
  for (const char* app : {"a", "b", "b", "c", "c", "c"}) model.Update(app, At(9, 0));
  EXPECT_EQ(suggestions.Row(model, At(9, 0), Request(2)), (Names{"c", "b"}));
  for (int i = 0; i < 4; ++i) model.Update("a", At(9, 0));
  ASSERT_EQ(model.GetNextAt(At(9, 0)), (Names{"a", "c", "b"}));
  EXPECT_EQ(suggestions.Row(model, At(9, 0), Stable(2)), (Names{"c", "b"}));
  EXPECT_EQ(suggestions.Row(model, At(9, 0), Request(1, {"c"}, {}, {}, true)), (Names{"a"}));
}

// Launches at random times, with requests of every kind; the row from the
// model must be the row from its whole ranking, the default row its
// candidates' first ones, and a stable row must keep the previous row's
// applications but for newcomers kStableMargin places above them.
TEST(SuggestionsTest, RandomStreamsFollowTheRules) {
  std::mt19937 random(11);
  const auto pick = [&](std::size_t n) { return static_cast<std::size_t>(random() % n); };
  const auto app = [&] { return "app" + std::to_string(pick(3) == 0 ? pick(8) : pick(60)); };
  const auto some = [&](std::size_t most) {
    Names names(pick(most + 1));
    for (std::string& name : names) name = pick(10) == 0 ? std::string() : app();
    return names;
  };

  Nuvik model(Names{"stat_counter", "markov_chain3_invalidate"});
  Suggestions fromModel;
  Suggestions fromRanking;
  Names previous;
  std::map<std::string, int> outcomes;
  for (int launch = 0; launch < 3000; ++launch) {
    const std::tm now = At(static_cast<int>(pick(24)), static_cast<int>(pick(60)));
    model.Update(app(), now);
    if (pick(4) == 0) {
      const std::string dismissed = app();
      for (Suggestions* suggestions : {&fromModel, &fromRanking}) suggestions->Dismiss(dismissed);
    }
    if (pick(3) == 0) {
      const std::string restored = app();
      for (Suggestions* suggestions : {&fromModel, &fromRanking}) suggestions->Restore(restored);
    }
    RowRequest request;
    request.count = pick(8);
    request.exclude = some(6);
    if (pick(4) == 0) request.installed = some(60);
    request.fallback = some(4);
    request.stable = pick(3) != 0;

    const Names ranking = model.GetNextAt(now);
    const Names row = fromModel.Row(model, now, request);
    ASSERT_EQ(row, fromRanking.Row(ranking, request)) << "launch " << launch;
    const Names candidates = Candidates(ranking, request, fromModel.Dismissed());
    const Names defaultRow(candidates.begin(), candidates.begin() + std::min(request.count, candidates.size()));
    ASSERT_EQ(row.size(), defaultRow.size());
    if (!request.stable) {
      ASSERT_EQ(row, defaultRow);
    } else {
      const auto rank = [&](const std::string& name) {
        return static_cast<std::size_t>(std::find(candidates.begin(), candidates.end(), name) - candidates.begin());
      };
      for (const std::string& name : row) ASSERT_LT(rank(name), candidates.size());
      // The previous row, cut to the request's slots, and the best newcomer
      // of the default row, if any.
      const Names kept(previous.begin(), previous.begin() + std::min(previous.size(), request.count));
      std::size_t best = candidates.size();
      for (const std::string& name : defaultRow) {
        if (!Listed(kept, name)) best = std::min(best, rank(name));
      }
      for (std::size_t slot = 0; slot < kept.size(); ++slot) {
        const std::string& name = kept[slot];
        if (rank(name) == candidates.size()) continue;
        const auto position = std::find(row.begin(), row.end(), name);
        if (position == row.end()) {
          ASSERT_GE(rank(name), best + Suggestions::kStableMargin) << name << " at launch " << launch;
          ++outcomes["replaced"];
        } else if (row.size() == request.count) {
          ASSERT_EQ(position - row.begin(), static_cast<std::ptrdiff_t>(slot)) << name << " at launch " << launch;
          ++outcomes["kept in its slot"];
        }
      }
    }
    for (std::size_t i = 0; i < row.size(); ++i) ASSERT_FALSE(Listed(Names(row.begin(), row.begin() + i), row[i]));
    previous = row;
  }
  EXPECT_GT(outcomes["replaced"], 100);
  EXPECT_GT(outcomes["kept in its slot"], 1000);
  EXPECT_EQ(Save(fromModel), Save(fromRanking));
}

TEST(SuggestionsTest, DismissedApplicationsComeBackWhenRestored) {
  Suggestions suggestions;
  EXPECT_EQ(Save(suggestions), R"({"dismissed":[],"row":[],"version":1})");
  const Names ranking = {"a", "b", "c", "d"};
  for (const char* app : {"b", "a", "c", "b"}) suggestions.Dismiss(app);  // b again: now the most recent
  EXPECT_EQ(suggestions.Dismissed(), (Names{"b", "c", "a"}));
  EXPECT_EQ(suggestions.Row(ranking, Request(2)), Names{"d"});
  const std::string saved = Save(suggestions);
  EXPECT_EQ(saved, R"({"dismissed":["b","c","a"],"row":["d"],"version":1})");

  suggestions.Dismiss("x");
  suggestions.Restore("x");  // the undo
  suggestions.Restore("y");  // never dismissed: nothing happens
  EXPECT_EQ(Save(suggestions), saved);
  suggestions.Restore("c");
  EXPECT_EQ(suggestions.Dismissed(), (Names{"b", "a"}));
  EXPECT_EQ(suggestions.Row(ranking, Request(2)), (Names{"c", "d"}));
  suggestions.ClearDismissed();
  EXPECT_EQ(suggestions.Dismissed(), Names{});
  EXPECT_EQ(suggestions.Row(ranking, Request(2)), (Names{"a", "b"}));
}

TEST(SuggestionsTest, DocumentsKeepEveryByteAndRejectionsChangeNothing) {
  const Names odd = {"q\"\\/\n\t\b\f\r\x01\x1f\x7f",
                     std::string("nul\0byte", 8),
                     "caf\xc3\xa9 \xe2\x82\xac \xf0\x9f\x98\x80",  // valid UTF-8 of 2, 3 and 4 bytes
                     "\x80\xff\xc0\xaf\xe2\x82",                   // stray, overlong, cut short
                     "\xed\xa0\x80\xf4\x90\x80\x80",               // a surrogate, above U+10FFFF
                     "\xed\xb2\x80\xed\xb3\xbf",                   // what an escaped byte decodes into
                     "\\udc80",
                     ""};
  Suggestions original;
  Names ranking = odd;
  std::reverse(ranking.begin(), ranking.end());
  ASSERT_EQ(original.Row(ranking, Request(kAll)).size(), odd.size() - 1);  // all but the empty name
  for (const std::string& name : odd) original.Dismiss(name);

  const std::string saved = Save(original);
  EXPECT_EQ(saved.rfind(R"({"dismissed":["","\\udc80","\udced\udcb2\udc80\udced\udcb3\udcbf",)", 0), 0u);
  EXPECT_NE(saved.find(R"("q\"\\/\n\t\b\f\r\u0001\u001f)" "\x7f\""), std::string::npos);
  EXPECT_NE(saved.find(R"("nul\u0000byte")"), std::string::npos);
  EXPECT_NE(saved.find("\"caf\xc3\xa9 \xe2\x82\xac \xf0\x9f\x98\x80\""), std::string::npos);
  EXPECT_NE(saved.find(R"("\udc80\udcff\udcc0\udcaf\udce2\udc82")"), std::string::npos);

  Suggestions loaded;
  std::istringstream in(saved);
  ASSERT_TRUE(in >> loaded);
  EXPECT_EQ(loaded.Dismissed(), ranking);  // most recent first
  EXPECT_EQ(Save(loaded), saved);

  // Repeated dismissed names count once, where most recent; unknown members are ignored.
  std::istringstream repeated(R"({"dismissed":["a","b","a"],"extra":{},"row":["a","a"],"version":1})");
  ASSERT_TRUE(repeated >> loaded);
  EXPECT_EQ(loaded.Dismissed(), (Names{"a", "b"}));
  EXPECT_EQ(Save(loaded), R"({"dismissed":["a","b"],"row":["a","a"],"version":1})");

  const std::string before = Save(loaded);
  const std::string valid = R"({"dismissed":["x"],"row":["y"],"version":1})";
  Names rejected = {"", "garbage", "[]", "null", "1", valid + "x", valid + valid,
                    R"({"dismissed":"x","row":[],"version":1})",
                    R"({"dismissed":[1],"row":[],"version":1})",
                    R"({"dismissed":[],"row":null,"version":1})",
                    R"({"dismissed":[],"row":[["y"]],"version":1})",
                    R"({"dismissed":[],"row":[],"version":"1"})",
                    R"({"dismissed":[],"row":[],"version":2})",
                    R"({"dismissed":[],"row":[],"version":-1})",
                    R"({"dismissed":[],"row":[]})",
                    R"({"row":[],"version":1})",
                    R"({"dismissed":[],"dismissed":[],"row":[],"version":1})",
                    R"({"dismissed":["\ud800"],"row":[],"version":1})",
                    std::string(100000, '[')};
  for (std::size_t length = 0; length < valid.size(); ++length) rejected.push_back(valid.substr(0, length));
  for (const std::string& text : rejected) {
    std::istringstream bad(text);
    EXPECT_FALSE(bad >> loaded) << text.substr(0, 80);
    EXPECT_TRUE(bad.bad());
    EXPECT_EQ(Save(loaded), before) << text.substr(0, 80);
  }
  std::istringstream good(valid + " \n");
  EXPECT_TRUE(good >> loaded);
  EXPECT_EQ(Save(loaded), valid);
}

}  // namespace
}  // namespace NuvikPrediction
