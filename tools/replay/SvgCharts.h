// The report's pictures besides the running curves: lines over a shared x
// axis, box plots and paired differences with a row per run, and one point
// per run. Each run keeps the style StrokesOf gave it among all the runs of
// the report, passed beside it.
#ifndef NUVIK_TOOLS_REPLAY_SVG_CHARTS_H_
#define NUVIK_TOOLS_REPLAY_SVG_CHARTS_H_

#include <iosfwd>
#include <string>
#include <vector>

#include "replay/Statistics.h"
#include "replay/SvgFigure.h"

namespace NuvikReplay {

// A panel of lines, one per run, through points at the same x values.
struct LinePanel {
  std::string title;
  Axis x;
  Axis y;
  double width = 500;
  std::vector<double> xs;
  std::vector<std::vector<double>> values;  // per run, one per x; NaN leaves a gap
  bool markers = false;
};

// The panels side by side, then a legend of the runs.
void WriteLineCharts(std::ostream& out, const std::vector<LinePanel>& panels, const std::vector<RunKey>& runs,
                     const std::vector<Stroke>& strokes);

// A panel with a box plot per run over the x axis: the box from the first
// to the third quartile, a bar at the median, whiskers from the 5th to the
// 95th percentile and a diamond at the mean.
struct BoxPanel {
  std::string title;
  Axis x;
  std::vector<Spread> spreads;  // per run; nothing is drawn without a value
};

// The panels side by side, the runs named on the left.
void WriteBoxPlots(std::ostream& out, const std::vector<BoxPanel>& panels, const std::vector<RunKey>& runs,
                   const std::vector<Stroke>& strokes);

// Per run, against a reference: the mean difference with its interval on an
// axis through zero, and a bar of the shares of users better, equal and
// worse. `runs` and `strokes` are those compared, in order.
void WritePairedChart(std::ostream& out, const std::string& difference, const std::vector<RunKey>& runs,
                      const std::vector<Stroke>& strokes, const std::vector<PairedComparison>& comparisons);

// One point per run at (xs[r], ys[r]), labelled; NaN leaves a run out. A
// run drawn dashed (a baseline, a lagging run) is a ring.
void WriteScatter(std::ostream& out, const Axis& x, const Axis& y, const std::vector<RunKey>& runs,
                  const std::vector<Stroke>& strokes, const std::vector<double>& xs, const std::vector<double>& ys);

}  // namespace NuvikReplay

#endif  // NUVIK_TOOLS_REPLAY_SVG_CHARTS_H_
