// The results of a replay as one self-contained HTML page, for choosing an
// ensemble: the means with bootstrap intervals over users, how users spread,
// each run against the best ensemble and against most recently used user by
// user, how hits grow with a phone's history and vary over the day, the
// suggestion row's hit rate against its churn, and the running curves.
//
// The page holds inline CSS and SVG only: no script, nothing fetched. Its
// size does not grow with the number of users. It is well-formed XML.
#ifndef NUVIK_TOOLS_REPLAY_HTML_REPORT_H_
#define NUVIK_TOOLS_REPLAY_HTML_REPORT_H_

#include <iosfwd>
#include <string>
#include <vector>

#include "replay/Report.h"
#include "replay/Statistics.h"

namespace NuvikReplay {

// `options` is the replay's options as the reader should see them; `row`
// says that it was replayed with a suggestion row. Each run holds one Totals
// per user of `log`.
void WriteHtmlReport(std::ostream& out, const LogSummary& log, const std::string& options,
                     const std::vector<RunTotals>& runs, bool row, const BootstrapOptions& bootstrap = {});

}  // namespace NuvikReplay

#endif  // NUVIK_TOOLS_REPLAY_HTML_REPORT_H_
