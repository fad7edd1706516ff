// Suggestions: the row of applications a launcher shows, built from a facade's
// ranking for now.
//
// A launcher shows a few applications, not the whole ranked list, and leaves
// out those its user does not want there: applications already on screen
// (the dock, the first home page), applications the user dismissed ("don't
// suggest"), applications not installed. Before the model knows enough, a
// fallback list (the platform's usage statistics, a default set) fills the
// row. Optionally the row is kept steady from one call to the next, so that
// an application stays where the user's thumb expects it.
//
// A Suggestions object holds the dismissed applications and the last row it
// made; both are saved to and loaded from a small JSON document of its own,
// beside the facade's. It reads a facade only through Nuvik::GetNextAt and
// changes nothing in it. Like a facade, it must be used from one thread at a
// time.
#ifndef NUVIK_SUGGESTIONS_H_
#define NUVIK_SUGGESTIONS_H_

#include <cstddef>
#include <ctime>
#include <iosfwd>
#include <string>
#include <string_view>
#include <unordered_set>
#include <vector>

#include "nuvik/Nuvik.h"

namespace NuvikPrediction {

// What a row is asked for. An application is eligible for the row when its
// name is not empty, it is not in `exclude`, not dismissed, in `installed`
// (when `installed` is not empty) and not already in the row.
struct RowRequest {
  std::size_t count = 5;                 // the row's size
  std::vector<std::string> exclude;      // already on screen: dock, first page, pinned
  std::vector<std::string> installed;    // when not empty, only these may appear
  std::vector<std::string> fallback;     // fills the slots the ranking leaves, in order
  bool stable = false;                   // keep the previous row's apps in place (see Row)
};

class NUVIK_EXPORT Suggestions {
 public:
  // How many places higher a newcomer must rank to take the slot of an
  // application of the previous row, in a stable row.
  static constexpr std::size_t kStableMargin = 3;

  // The row for `now`: the ranking is model.GetNextAt(now) followed by the
  // request's fallback, and its eligible applications, in that order, are the
  // candidates; an application's rank is its position among them. Without
  // `stable`, the row is the first request.count candidates. It is shorter
  // only when there are fewer candidates.
  //
  // With `stable`, the previous row (the last one this object made, cut to
  // request.count slots; a shorter one leaves the slots after it free) is the
  // starting point. Its applications that are still candidates keep their
  // slots; the others' slots are free, as are those of a name's repeats.
  // Then the first request.count candidates that are not in the previous
  // row, the newcomers, come in, best first: each takes the first free slot,
  // or, when none is left, the slot of the kept application ranked last,
  // provided that it ranks at least kStableMargin places below the newcomer;
  // the first newcomer that cannot come in ends the process. Free slots left
  // (too few candidates) close up. So the row holds as many applications as
  // without `stable`, and an application of the previous row that is still a
  // candidate stays in it, in its slot when the row is full, unless a
  // newcomer of the default row outranks it by kStableMargin places.
  //
  // Either way the row becomes the previous row. The model is only read.
  std::vector<std::string> Row(const Nuvik& model, const std::tm& now, const RowRequest& request);
  // The same rules over a ranking the caller holds, best first (a search's
  // results, another ranker's list).
  std::vector<std::string> Row(const std::vector<std::string>& ranking, const RowRequest& request);

  // "Don't suggest": `app` appears in no row until it is restored. Dismissing
  // an application again makes it the most recent.
  void Dismiss(const std::string& app);
  // The undo of Dismiss; nothing happens for an application not dismissed.
  void Restore(const std::string& app);
  // The dismissed applications, most recently dismissed first.
  std::vector<std::string> Dismissed() const;
  void ClearDismissed();

  // Writes the dismissed applications and the previous row as one line of
  // JSON. Names of any bytes come back exactly: valid UTF-8 is written as it
  // is, any other byte b as the escape of the lone surrogate U+DC00 + b.
  std::ostream& SerializeJson(std::ostream& os) const;
  // Reads a document written by SerializeJson, replacing both lists. All or
  // nothing: on rejection (not such a document, or another version) badbit
  // is set on `is` and nothing changes.
  std::istream& DeserializeJson(std::istream& is);

 private:
  // A name met while making a row: what the request says of it. Names are
  // viewed, not copied, in an open-addressing table whose storage is kept
  // from one row to the next.
  struct NameEntry {
    std::string_view name;
    std::size_t previousSlot;  // its slot in the previous row, while it may keep it
    unsigned flags;            // zero for an unused entry
  };
  class NUVIK_LOCAL NameTable {
   public:
    // Empties the table, with room for `names` entries.
    void Reset(std::size_t names);
    // The entry of `name`, added when missing.
    NameEntry& Get(std::string_view name);

   private:
    // Where `name` is in `entries`, or where it goes.
    static NameEntry& Probe(std::vector<NameEntry>& entries, std::string_view name);
    std::vector<NameEntry> entries_;
    std::vector<NameEntry> spare_;
    std::size_t size_ = 0;
  };
  // A candidate and its rank; for a slot of the row, a null name is a free slot.
  struct Ranked {
    const std::string* name;
    std::size_t rank;
  };

  // Makes the row from `ranking`, then the fallback. When `ranking` is only
  // a prefix of the whole (`whole` false), returns false if it does not
  // settle the row.
  NUVIK_LOCAL bool MakeRow(const std::vector<std::string>& ranking, bool whole, const RowRequest& request,
                           std::vector<std::string>& row);
  NUVIK_LOCAL bool IsEligible(const std::string& app, const NameEntry& entry, bool anyInstalled) const;

  std::vector<std::string> dismissed_;  // least recent first
  std::unordered_set<std::string> dismissedNames_;
  std::vector<std::string> previousRow_;
  // Scratch of MakeRow.
  NameTable names_;
  std::vector<Ranked> slots_;
  std::vector<Ranked> newcomers_;
  std::vector<std::size_t> keptSlots_;
};

NUVIK_EXPORT std::ostream& operator<<(std::ostream& os, const Suggestions& suggestions);
NUVIK_EXPORT std::istream& operator>>(std::istream& is, Suggestions& suggestions);

}  // namespace NuvikPrediction

#endif  // NUVIK_SUGGESTIONS_H_
