// What every SVG picture of the tool is drawn with: escaping, numbers, axes
// with their ticks, the runs' line styles, lines, markers and the legend.
#ifndef NUVIK_TOOLS_REPLAY_SVG_FIGURE_H_
#define NUVIK_TOOLS_REPLAY_SVG_FIGURE_H_

#include <functional>
#include <iosfwd>
#include <limits>
#include <string>
#include <vector>

namespace NuvikReplay {

// Text for XML, HTML and SVG, in elements and in quoted attribute values.
std::string EscapeXml(const std::string& text);

// `value` with `decimals` decimals.
std::string Decimals(double value, int decimals);

// A coordinate in the picture: one decimal.
std::string Coordinate(double value);

// A step of 1, 2 or 5 times a power of ten giving at most `maxTicks` ticks
// over `span`.
double NiceStep(double span, int maxTicks);

// Who a line or a mark stands for.
struct RunKey {
  std::string label;
  bool baseline = false;
};

struct Stroke {
  std::string colour;
  std::string dashes;  // stroke-dasharray; empty for a solid line
};

// Whether a run's label is that of a lagging run, "<ensemble> (lagging)":
// one scoring the list shown before each launch.
bool IsLagging(const std::string& label);

// The style of each run, the same in every picture: ensembles take the
// palette's colours in turn; baselines are dark grey, dashed two ways; a
// lagging run, labelled "<ensemble> (lagging)", has its ensemble's colour,
// dotted.
std::vector<Stroke> StrokesOf(const std::vector<RunKey>& runs);

struct Axis {
  std::string title;
  double low = 0.0;
  double high = 1.0;
  // Ticks fall `step` apart from `firstTick` (from `low` when NaN) up to
  // `high`; none without a step.
  double step = 0.1;
  double firstTick = std::numeric_limits<double>::quiet_NaN();
  bool grid = false;  // a line across the panel at each tick
  // Tick text of a value; by default the value with as many decimals as the
  // step needs.
  std::function<std::string(double)> tickText;
};

// An axis through `low` and `high`, widened to whole steps of at most
// `maxTicks` ticks.
Axis AxisThrough(const std::string& title, double low, double high, int maxTicks);

// The decimals that tick texts `step` apart need.
int DecimalsFor(double step);

// A rectangle of the picture in which values are drawn, and its axes.
struct Panel {
  double left = 0.0;
  double top = 0.0;
  double width = 0.0;
  double height = 0.0;
  Axis x;
  Axis y;

  double X(double value) const;
  double Y(double value) const;
  double Bottom() const { return top + height; }
  double Right() const { return left + width; }
};

// The opening tag of a picture of `width` by `height` with a white ground
// and, when not empty, a title centred on top.
void WriteSvgStart(std::ostream& out, double width, double height, const std::string& title);
void WriteSvgEnd(std::ostream& out);

// A bold heading above the panel.
void WritePanelTitle(std::ostream& out, const Panel& panel, const std::string& text);

// Ticks, tick texts and the title of each axis (y grid, x tick marks, or
// grid lines where asked), then the panel's frame. Without a title or a step
// an axis draws nothing.
void WriteAxes(std::ostream& out, const Panel& panel);

// A line through the points (xs[i], ys[i]); NaN values break it. With
// `markers`, a dot at each point.
void WriteLine(std::ostream& out, const Panel& panel, const std::vector<double>& xs, const std::vector<double>& ys,
               const Stroke& stroke, bool markers);

// The group of a panel's marks, the shapes that draw values (class
// "marks"); with a clip id, clipped to the panel's rectangle.
void WriteMarksStart(std::ostream& out, const Panel& panel, const std::string& clipId = "");
void WriteMarksEnd(std::ostream& out);

// A line swatch and the label of each run, one under the other, below a
// bold `title` at (left, top).
void WriteLegend(std::ostream& out, double left, double top, const std::string& title, const std::vector<RunKey>& runs,
                 const std::vector<Stroke>& strokes);

// The width of a legend of `runs` with its swatches, and of text of the
// legend's size.
double LegendWidth(const std::vector<RunKey>& runs);
double TextWidth(const std::string& text);

}  // namespace NuvikReplay

#endif  // NUVIK_TOOLS_REPLAY_SVG_FIGURE_H_
