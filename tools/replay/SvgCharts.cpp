#include "replay/SvgCharts.h"

#include <algorithm>
#include <cmath>
#include <ostream>

namespace NuvikReplay {

namespace {

constexpr double kMarginLeft = 80;  // room for the y axis' ticks and title
constexpr double kPanelGap = 90;
constexpr double kPanelTop = 40;
constexpr double kLineHeight = 260;
constexpr double kMarginBottom = 50;  // room for the x axis' ticks and title
constexpr double kRowHeight = 24;
constexpr double kBoxPanelWidth = 330;
constexpr double kDifferencePanelWidth = 380;
constexpr double kSharesPanelWidth = 260;
constexpr double kRowsGap = 40;
constexpr double kLabelSpacing = 15;

const char* const kShareColours[] = {"#59a14f", "#bab0ac", "#e15759"};  // better, equal, worse
const char* const kShareNames[] = {"better", "equal", "worse"};

// Panels with a row per run: the runs' labels on the left.
double RowLabelsWidth(const std::vector<RunKey>& runs) {
  double widest = 0.0;
  for (const RunKey& run : runs) widest = std::max(widest, TextWidth(run.label));
  return widest + 24;
}

double RowsHeight(std::size_t runs) { return kRowHeight * static_cast<double>(std::max<std::size_t>(runs, 1)); }

double RowCentre(const Panel& panel, std::size_t row) {
  return panel.top + kRowHeight * (static_cast<double>(row) + 0.5);
}

void WriteRowLabels(std::ostream& out, const Panel& panel, const std::vector<RunKey>& runs) {
  for (std::size_t r = 0; r < runs.size(); ++r) {
    out << "<text x=\"" << Coordinate(panel.left - 10) << "\" y=\"" << Coordinate(RowCentre(panel, r) + 4.5)
        << "\" font-size=\"13\" text-anchor=\"end\">" << EscapeXml(runs[r].label) << "</text>\n";
  }
}

// A panel of rows: no y ticks, the x axis with grid lines.
Panel RowsPanel(double left, double width, std::size_t runs, const Axis& x) {
  Panel panel;
  panel.left = left;
  panel.top = kPanelTop;
  panel.width = width;
  panel.height = RowsHeight(runs);
  panel.x = x;
  panel.x.grid = true;
  panel.y.step = 0.0;
  return panel;
}

void WriteRect(std::ostream& out, double x1, double x2, double y, double height, const std::string& attributes) {
  out << "<rect x=\"" << Coordinate(std::min(x1, x2)) << "\" y=\"" << Coordinate(y - height / 2) << "\" width=\""
      << Coordinate(std::fabs(x2 - x1)) << "\" height=\"" << Coordinate(height) << "\" " << attributes << "/>\n";
}

void WriteSegment(std::ostream& out, double x1, double x2, double y1, double y2, const std::string& colour,
                  double width) {
  out << "<line x1=\"" << Coordinate(x1) << "\" x2=\"" << Coordinate(x2) << "\" y1=\"" << Coordinate(y1) << "\" y2=\""
      << Coordinate(y2) << "\" stroke=\"" << colour << "\" stroke-width=\"" << Decimals(width, 1) << "\"/>\n";
}

void WriteBox(std::ostream& out, const Panel& panel, double y, const Spread& spread, const std::string& colour) {
  WriteSegment(out, panel.X(spread.p5), panel.X(spread.p95), y, y, colour, 1.5);
  for (const double end : {spread.p5, spread.p95})
    WriteSegment(out, panel.X(end), panel.X(end), y - 4, y + 4, colour, 1.5);
  WriteRect(out, panel.X(spread.q1), panel.X(spread.q3), y, 14,
            "fill=\"" + colour + "\" fill-opacity=\"0.25\" stroke=\"" + colour + "\"");
  WriteSegment(out, panel.X(spread.median), panel.X(spread.median), y - 7, y + 7, colour, 3);
  const double x = panel.X(spread.mean);
  out << "<path d=\"M" << Coordinate(x) << ' ' << Coordinate(y - 5) << " L" << Coordinate(x + 5) << ' ' << Coordinate(y)
      << " L" << Coordinate(x) << ' ' << Coordinate(y + 5) << " L" << Coordinate(x - 5) << ' ' << Coordinate(y)
      << " Z\" fill=\"white\" stroke=\"" << colour << "\" stroke-width=\"1.5\"/>\n";
}

// An axis over the differences and zero, at a nice step.
Axis DifferenceAxis(const std::string& title, const std::vector<PairedComparison>& comparisons) {
  double low = 0.0;
  double high = 0.0;
  for (const PairedComparison& comparison : comparisons) {
    for (const double value :
         {comparison.meanDifference.low, comparison.meanDifference.high, comparison.meanDifference.value}) {
      if (std::isnan(value)) continue;
      low = std::min(low, value);
      high = std::max(high, value);
    }
  }
  if (high - low < 1e-9) {
    low -= 0.01;
    high += 0.01;
  }
  Axis axis = AxisThrough(title, low, high, 6);
  axis.tickText = [decimals = DecimalsFor(axis.step)](double value) {
    if (std::fabs(value) < 1e-12) return std::string("0");
    return (value > 0 ? "+" : "\u2212") + Decimals(std::fabs(value), decimals);
  };
  return axis;
}

}  // namespace

void WriteLineCharts(std::ostream& out, const std::vector<LinePanel>& panels, const std::vector<RunKey>& runs,
                     const std::vector<Stroke>& strokes) {
  double right = kMarginLeft;
  for (const LinePanel& line : panels) right += line.width + kPanelGap;
  const double legendLeft = right - kPanelGap + 30;
  WriteSvgStart(
      out, legendLeft + LegendWidth(runs) + 20,
      std::max(kPanelTop + kLineHeight + kMarginBottom, kPanelTop + 22 * static_cast<double>(runs.size()) + 20), "");
  double left = kMarginLeft;
  for (const LinePanel& line : panels) {
    Panel panel;
    panel.left = left;
    panel.top = kPanelTop;
    panel.width = line.width;
    panel.height = kLineHeight;
    panel.x = line.x;
    panel.y = line.y;
    WritePanelTitle(out, panel, line.title);
    WriteAxes(out, panel);
    WriteMarksStart(out, panel);
    for (std::size_t r = 0; r < line.values.size() && r < strokes.size(); ++r) {
      WriteLine(out, panel, line.xs, line.values[r], strokes[r], line.markers);
    }
    WriteMarksEnd(out);
    left += line.width + kPanelGap;
  }
  WriteLegend(out, legendLeft, kPanelTop, "ensembles", runs, strokes);
  WriteSvgEnd(out);
}

void WriteBoxPlots(std::ostream& out, const std::vector<BoxPanel>& panels, const std::vector<RunKey>& runs,
                   const std::vector<Stroke>& strokes) {
  const double labels = RowLabelsWidth(runs);
  const double width = labels + static_cast<double>(panels.size()) * (kBoxPanelWidth + kRowsGap) + 10;
  WriteSvgStart(out, width, kPanelTop + RowsHeight(runs.size()) + kMarginBottom, "");
  for (std::size_t p = 0; p < panels.size(); ++p) {
    const BoxPanel& boxes = panels[p];
    const Panel panel =
        RowsPanel(labels + static_cast<double>(p) * (kBoxPanelWidth + kRowsGap), kBoxPanelWidth, runs.size(), boxes.x);
    WritePanelTitle(out, panel, boxes.title);
    WriteAxes(out, panel);
    if (p == 0) WriteRowLabels(out, panel, runs);
    WriteMarksStart(out, panel);
    for (std::size_t r = 0; r < runs.size() && r < boxes.spreads.size(); ++r) {
      if (boxes.spreads[r].count > 0) WriteBox(out, panel, RowCentre(panel, r), boxes.spreads[r], strokes[r].colour);
    }
    WriteMarksEnd(out);
  }
  WriteSvgEnd(out);
}

void WritePairedChart(std::ostream& out, const std::string& difference, const std::vector<RunKey>& runs,
                      const std::vector<Stroke>& strokes, const std::vector<PairedComparison>& comparisons) {
  const double labels = RowLabelsWidth(runs);
  const double width = labels + kDifferencePanelWidth + kRowsGap + kSharesPanelWidth + 20;
  WriteSvgStart(out, width, kPanelTop + RowsHeight(runs.size()) + kMarginBottom, "");

  const Panel differences =
      RowsPanel(labels, kDifferencePanelWidth, runs.size(), DifferenceAxis(difference, comparisons));
  WritePanelTitle(out, differences, "mean difference per user, 95% interval");
  WriteAxes(out, differences);
  WriteRowLabels(out, differences, runs);
  WriteSegment(out, differences.X(0.0), differences.X(0.0), differences.top, differences.Bottom(), "#333", 1.2);
  WriteMarksStart(out, differences);
  for (std::size_t r = 0; r < runs.size() && r < comparisons.size(); ++r) {
    const Interval& interval = comparisons[r].meanDifference;
    const double y = RowCentre(differences, r);
    if (!std::isnan(interval.low)) {
      WriteSegment(out, differences.X(interval.low), differences.X(interval.high), y, y, strokes[r].colour, 2.5);
    }
    if (!std::isnan(interval.value)) {
      out << "<circle cx=\"" << Coordinate(differences.X(interval.value)) << "\" cy=\"" << Coordinate(y)
          << "\" r=\"4.5\" fill=\"" << strokes[r].colour << "\"/>\n";
    }
  }
  WriteMarksEnd(out);

  Axis percent;
  percent.title = "share of users";
  percent.step = 0.25;
  percent.tickText = [](double value) { return Decimals(value * 100, 0) + "%"; };
  const Panel shares = RowsPanel(differences.Right() + kRowsGap, kSharesPanelWidth, runs.size(), percent);
  double key = shares.left;
  for (std::size_t s = 0; s < 3; ++s) {
    out << "<rect x=\"" << Coordinate(key) << "\" y=\"" << Coordinate(shares.top - 20)
        << "\" width=\"11\" height=\"11\" fill=\"" << kShareColours[s] << "\"/>\n<text x=\"" << Coordinate(key + 15)
        << "\" y=\"" << Coordinate(shares.top - 10) << "\" font-size=\"13\">" << kShareNames[s] << "</text>\n";
    key += 15 + TextWidth(kShareNames[s]) + 12;
  }
  WriteAxes(out, shares);
  WriteMarksStart(out, shares);
  for (std::size_t r = 0; r < runs.size() && r < comparisons.size(); ++r) {
    const PairedComparison& comparison = comparisons[r];
    if (comparison.users == 0) continue;
    const std::size_t counts[] = {comparison.better, comparison.equal, comparison.worse};
    double from = 0.0;
    for (std::size_t s = 0; s < 3; ++s) {
      const double share = static_cast<double>(counts[s]) / static_cast<double>(comparison.users);
      if (share > 0.0) {
        WriteRect(out, shares.X(from), shares.X(from + share), RowCentre(shares, r), kRowHeight - 6,
                  std::string("fill=\"") + kShareColours[s] + "\"");
      }
      if (share * shares.width >= 36) {
        out << "<text x=\"" << Coordinate(shares.X(from + share / 2)) << "\" y=\""
            << Coordinate(RowCentre(shares, r) + 4.5) << "\" font-size=\"12\" text-anchor=\"middle\" fill=\""
            << (s == 1 ? "#222" : "white") << "\">" << Decimals(share * 100, 0) << "%</text>\n";
      }
      from += share;
    }
  }
  WriteMarksEnd(out);
  WriteSvgEnd(out);
}

void WriteScatter(std::ostream& out, const Axis& x, const Axis& y, const std::vector<RunKey>& runs,
                  const std::vector<Stroke>& strokes, const std::vector<double>& xs, const std::vector<double>& ys) {
  Panel panel;
  panel.left = kMarginLeft;
  panel.top = kPanelTop;
  panel.width = 480;
  panel.height = std::max(kLineHeight + 60, kLabelSpacing * static_cast<double>(runs.size()));
  panel.x = x;
  panel.y = y;
  panel.x.grid = true;
  panel.y.grid = true;
  // Labels in a column right of the panel, in the order of their points'
  // heights and apart enough to read, each joined to its point.
  struct Label {
    double y;
    std::size_t run;
  };
  std::vector<Label> labels;
  double labelsWidth = 0.0;
  for (std::size_t r = 0; r < runs.size() && r < xs.size() && r < ys.size(); ++r) {
    if (std::isnan(xs[r]) || std::isnan(ys[r])) continue;
    labels.push_back({panel.Y(ys[r]), r});
    labelsWidth = std::max(labelsWidth, TextWidth(runs[r].label));
  }
  std::stable_sort(labels.begin(), labels.end(), [](const Label& a, const Label& b) { return a.y < b.y; });
  for (std::size_t i = 1; i < labels.size(); ++i) labels[i].y = std::max(labels[i].y, labels[i - 1].y + kLabelSpacing);
  if (!labels.empty()) labels.back().y = std::min(labels.back().y, panel.Bottom());
  for (std::size_t i = labels.size(); i-- > 1;)
    labels[i - 1].y = std::min(labels[i - 1].y, labels[i].y - kLabelSpacing);
  const double labelLeft = panel.Right() + 60;

  WriteSvgStart(out, labelLeft + labelsWidth + 20, panel.Bottom() + kMarginBottom, "");
  WriteAxes(out, panel);
  WriteMarksStart(out, panel);
  for (const Label& label : labels) {
    const std::size_t r = label.run;
    const Stroke& stroke = strokes[r];
    out << "<line x1=\"" << Coordinate(panel.X(xs[r])) << "\" y1=\"" << Coordinate(panel.Y(ys[r])) << "\" x2=\""
        << Coordinate(labelLeft - 6) << "\" y2=\"" << Coordinate(label.y) << "\" stroke=\"#bbb\"/>\n"
        << "<circle cx=\"" << Coordinate(panel.X(xs[r])) << "\" cy=\"" << Coordinate(panel.Y(ys[r]))
        << "\" r=\"5\" stroke-width=\"2\" stroke=\"" << stroke.colour << "\" fill=\""
        << (stroke.dashes.empty() ? stroke.colour : "white") << "\"/>\n<text x=\"" << Coordinate(labelLeft) << "\" y=\""
        << Coordinate(label.y + 4) << "\" font-size=\"12\">" << EscapeXml(runs[r].label) << "</text>\n";
  }
  WriteMarksEnd(out);
  WriteSvgEnd(out);
}

}  // namespace NuvikReplay
