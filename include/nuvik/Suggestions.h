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
  // candidates. Without `stable`, the row is the first request.count
  // candidates. It is shorter only when fewer applications are eligible.
  //
  // With `stable`, the previous row (the last one this object made) is the
  // starting point. Its applications that are still candidates keep their
  // slots; the others' slots are free. Then the first request.count
  // candidates that are not in the previous row, the newcomers, come in,
  // best first: each takes the first free slot, or, when none is left, the
  // slot of the kept application with the lowest rank, provided that it
  // ranks at least kStableMargin places below the newcomer (ranks count
  // candidates); the first newcomer that cannot come in ends the process.
  // Free slots left (too few candidates) close up. So an application of the
  // previous row that stays eligible keeps its slot until a newcomer of the
  // default row outranks it by kStableMargin places.
  //
  // Either way the row becomes the previous row.
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
  // JSON.
  std::ostream& SerializeJson(std::ostream& os) const;
  // Reads a document written by SerializeJson. All or nothing: on rejection
  // badbit is set on `is` and nothing changes.
  std::istream& DeserializeJson(std::istream& is);

 private:
  std::vector<std::string> dismissed_;  // most recent first
  std::vector<std::string> previousRow_;
};

NUVIK_EXPORT std::ostream& operator<<(std::ostream& os, const Suggestions& suggestions);
NUVIK_EXPORT std::istream& operator>>(std::istream& is, Suggestions& suggestions);

}  // namespace NuvikPrediction

#endif  // NUVIK_SUGGESTIONS_H_
