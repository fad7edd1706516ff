#include "replay/SvgPlot.h"

#include <algorithm>
#include <cmath>
#include <ostream>

#include "replay/SvgFigure.h"

namespace NuvikReplay {

namespace {

constexpr double kPlotLeft = 80;
constexpr double kPlotRight = 780;
constexpr double kLegendLeft = 810;
constexpr double kPanelTop[] = {70, 400};
constexpr double kPanelHeight = 260;
constexpr double kHeight = 720;
constexpr std::size_t kMaxPoints = 800;

struct Range {
  double low;
  double high;
};

// The values after the noisy first tenth of the points, widened to tenths.
Range ValueRange(const std::vector<Curve>& curves, bool recall) {
  double low = 1.0;
  double high = 0.0;
  for (const Curve& curve : curves) {
    const std::vector<double>& values = recall ? curve.recall : curve.map;
    for (std::size_t i = values.size() / 10; i < values.size(); ++i) {
      if (std::isnan(values[i])) continue;
      low = std::min(low, values[i]);
      high = std::max(high, values[i]);
    }
  }
  if (low > high) return {0.0, 1.0};
  low = std::max(0.0, std::floor(low * 10.0 - 1e-9) / 10.0);
  high = std::min(1.0, std::ceil(high * 10.0 + 1e-9) / 10.0);
  return {low, std::max(high, low + 0.1)};
}

void WritePanel(std::ostream& out, int panelIndex, const char* name, const std::vector<Curve>& curves,
                const std::vector<Stroke>& strokes, const CurveAxis& axis, const std::string& id) {
  const bool recall = panelIndex == 1;
  const std::size_t points = curves.empty() ? 0 : curves.front().map.size();
  const Range range = ValueRange(curves, recall);
  Panel panel;
  panel.left = kPlotLeft;
  panel.top = kPanelTop[panelIndex];
  panel.width = kPlotRight - kPlotLeft;
  panel.height = kPanelHeight;
  panel.x.title = axis.title;
  panel.x.low = axis.low;
  panel.x.high = std::max(axis.low + 1.0, axis.first + static_cast<double>(points) - 1.0);
  panel.x.step = NiceStep(panel.x.high - panel.x.low, 8);
  panel.x.tickText = axis.tickText ? axis.tickText : [](double value) { return Decimals(value, 0); };
  panel.y.title = std::string(name) + " (running mean)";
  panel.y.low = range.low;
  panel.y.high = range.high;
  panel.y.step = NiceStep(range.high - range.low, 6);
  panel.y.grid = true;

  WritePanelTitle(out, panel, name);
  WriteAxes(out, panel);
  WriteMarksStart(out, panel, id + std::to_string(panelIndex));
  for (std::size_t c = 0; c < curves.size(); ++c) {
    const std::vector<double>& values = recall ? curves[c].recall : curves[c].map;
    const std::size_t step = std::max<std::size_t>(1, (values.size() + kMaxPoints - 1) / kMaxPoints);
    std::vector<double> xs;
    std::vector<double> ys;
    for (std::size_t i = 0; i < values.size(); ++i) {
      if ((i + 1) % step != 0 && i + 1 != values.size()) continue;
      xs.push_back(axis.first + static_cast<double>(i));
      ys.push_back(values[i]);
    }
    WriteLine(out, panel, xs, ys, strokes[c], false);
  }
  WriteMarksEnd(out);
}

}  // namespace

void WriteSvgPlot(std::ostream& out, const std::string& title, const std::vector<Curve>& curves, const CurveAxis& axis,
                  const std::string& id) {
  std::vector<RunKey> runs;
  for (const Curve& curve : curves) runs.push_back({curve.label, curve.baseline});
  const std::vector<Stroke> strokes = StrokesOf(runs);
  const double width = std::max(1000.0, kLegendLeft + LegendWidth(runs) + 20);
  WriteSvgStart(out, width, kHeight, title);
  WritePanel(out, 0, "MAP", curves, strokes, axis, id);
  WritePanel(out, 1, "recall@5", curves, strokes, axis, id);
  WriteLegend(out, kLegendLeft, kPanelTop[0], "ensembles", runs, strokes);
  WriteSvgEnd(out);
}

}  // namespace NuvikReplay
