#include "replay/SvgFigure.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <iterator>
#include <ostream>
#include <string>
#include <utility>

namespace NuvikReplay {

namespace {

const char* const kColours[] = {"#1f77b4", "#ff7f0e", "#2ca02c", "#d62728", "#9467bd",
                                "#8c564b", "#e377c2", "#17becf", "#bcbd22", "#393b79"};
constexpr const char* kBaselineColour = "#444";
const char* const kBaselineDashes[] = {"7 4", "2 3"};
constexpr const char* kLaggingSuffix = " (lagging)";
constexpr const char* kLaggingDashes = "1.5 2.5";
constexpr double kLegendCharWidth = 7.6;  // of the 13 px legend font, generously
constexpr double kLegendSwatch = 38;

std::string TickText(const Axis& axis, double value) {
  return axis.tickText ? axis.tickText(value) : Decimals(value, DecimalsFor(axis.step));
}

// Tick values from low to high; none without a step.
std::vector<double> Ticks(const Axis& axis) {
  std::vector<double> ticks;
  if (!(axis.step > 0.0)) return ticks;
  const double first = std::isnan(axis.firstTick) ? axis.low : axis.firstTick;
  for (int i = 0; first + i * axis.step <= axis.high + axis.step * 1e-6; ++i) ticks.push_back(first + i * axis.step);
  return ticks;
}

}  // namespace

std::string EscapeXml(const std::string& text) {
  std::string escaped;
  for (const char c : text) {
    if (c == '&') {
      escaped += "&amp;";
    } else if (c == '<') {
      escaped += "&lt;";
    } else if (c == '>') {
      escaped += "&gt;";
    } else if (c == '"') {
      escaped += "&quot;";
    } else if (static_cast<unsigned char>(c) < 0x20 && c != '\t' && c != '\n' && c != '\r') {
      escaped += ' ';  // not allowed in XML, even escaped
    } else {
      escaped += c;
    }
  }
  return escaped;
}

std::string Decimals(double value, int decimals) {
  char text[64];
  std::snprintf(text, sizeof text, "%.*f", decimals, value);
  return text;
}

std::string Coordinate(double value) { return Decimals(value, 1); }

double NiceStep(double span, int maxTicks) {
  const double raw = span / maxTicks;
  const double power = std::pow(10.0, std::floor(std::log10(raw)));
  for (const double factor : {1.0, 2.0, 5.0, 10.0}) {
    if (factor * power >= raw) return factor * power;
  }
  return 10.0 * power;
}

bool IsLagging(const std::string& label) {
  const std::size_t suffix = std::strlen(kLaggingSuffix);
  return label.size() > suffix && label.compare(label.size() - suffix, suffix, kLaggingSuffix) == 0;
}

std::vector<Stroke> StrokesOf(const std::vector<RunKey>& runs) {
  std::vector<Stroke> strokes(runs.size());
  std::size_t ensemble = 0;
  std::size_t baseline = 0;
  for (std::size_t r = 0; r < runs.size(); ++r) {
    if (runs[r].baseline) {
      strokes[r] = {kBaselineColour, kBaselineDashes[baseline++ % std::size(kBaselineDashes)]};
      continue;
    }
    const std::string& label = runs[r].label;
    if (IsLagging(label)) {
      const std::string ensembleLabel = label.substr(0, label.size() - std::strlen(kLaggingSuffix));
      const auto of = std::find_if(runs.begin(), runs.begin() + static_cast<std::ptrdiff_t>(r),
                                   [&](const RunKey& run) { return !run.baseline && run.label == ensembleLabel; });
      if (of != runs.begin() + static_cast<std::ptrdiff_t>(r)) {
        strokes[r] = {strokes[static_cast<std::size_t>(of - runs.begin())].colour, kLaggingDashes};
        continue;
      }
    }
    strokes[r] = {kColours[ensemble++ % std::size(kColours)], ""};
  }
  return strokes;
}

Axis AxisThrough(const std::string& title, double low, double high, int maxTicks) {
  Axis axis;
  axis.title = title;
  axis.step = NiceStep(high - low, maxTicks);
  axis.low = std::floor(low / axis.step + 1e-9) * axis.step;
  axis.high = std::ceil(high / axis.step - 1e-9) * axis.step;
  return axis;
}

int DecimalsFor(double step) { return std::max(0, static_cast<int>(std::ceil(-std::log10(step) - 1e-9))); }

double Panel::X(double value) const { return left + width * (value - x.low) / (x.high - x.low); }
double Panel::Y(double value) const { return top + height - height * (value - y.low) / (y.high - y.low); }

void WriteSvgStart(std::ostream& out, double width, double height, const std::string& title) {
  out << "<svg xmlns=\"http://www.w3.org/2000/svg\" width=\"" << Coordinate(width) << "\" height=\""
      << Coordinate(height) << "\" viewBox=\"0 0 " << Coordinate(width) << ' ' << Coordinate(height)
      << "\" font-family=\"sans-serif\">\n"
      << "<rect width=\"100%\" height=\"100%\" fill=\"white\"/>\n";
  if (!title.empty()) {
    out << "<text x=\"" << Coordinate(width / 2)
        << "\" y=\"30\" font-size=\"18\" font-weight=\"bold\" text-anchor=\"middle\">" << EscapeXml(title)
        << "</text>\n";
  }
}

void WriteSvgEnd(std::ostream& out) { out << "</svg>\n"; }

void WritePanelTitle(std::ostream& out, const Panel& panel, const std::string& text) {
  out << "<text x=\"" << Coordinate(panel.left) << "\" y=\"" << Coordinate(panel.top - 10)
      << "\" font-size=\"15\" font-weight=\"bold\">" << EscapeXml(text) << "</text>\n";
}

void WriteAxes(std::ostream& out, const Panel& panel) {
  for (const double value : Ticks(panel.y)) {
    const std::string y = Coordinate(panel.Y(value));
    if (panel.y.grid) {
      out << "<line x1=\"" << Coordinate(panel.left) << "\" x2=\"" << Coordinate(panel.Right()) << "\" y1=\"" << y
          << "\" y2=\"" << y << "\" stroke=\"#e4e4e4\"/>\n";
    }
    out << "<text x=\"" << Coordinate(panel.left - 8) << "\" y=\"" << Coordinate(panel.Y(value) + 4)
        << "\" font-size=\"12\" text-anchor=\"end\">" << EscapeXml(TickText(panel.y, value)) << "</text>\n";
  }
  for (const double value : Ticks(panel.x)) {
    const std::string x = Coordinate(panel.X(value));
    out << "<line x1=\"" << x << "\" x2=\"" << x << "\" y1=\"" << Coordinate(panel.x.grid ? panel.top : panel.Bottom())
        << "\" y2=\"" << Coordinate(panel.Bottom() + 5) << "\" stroke=\"" << (panel.x.grid ? "#e4e4e4" : "#333")
        << "\"/>\n"
        << "<text x=\"" << x << "\" y=\"" << Coordinate(panel.Bottom() + 19)
        << "\" font-size=\"12\" text-anchor=\"middle\">" << EscapeXml(TickText(panel.x, value)) << "</text>\n";
  }
  out << "<rect x=\"" << Coordinate(panel.left) << "\" y=\"" << Coordinate(panel.top) << "\" width=\""
      << Coordinate(panel.width) << "\" height=\"" << Coordinate(panel.height)
      << "\" fill=\"none\" stroke=\"#333\"/>\n";
  if (!panel.x.title.empty()) {
    out << "<text x=\"" << Coordinate(panel.left + panel.width / 2) << "\" y=\"" << Coordinate(panel.Bottom() + 38)
        << "\" font-size=\"12\" text-anchor=\"middle\">" << EscapeXml(panel.x.title) << "</text>\n";
  }
  if (!panel.y.title.empty()) {
    out << "<text transform=\"translate(" << Coordinate(panel.left - 50) << ' '
        << Coordinate(panel.top + panel.height / 2) << ") rotate(-90)\" font-size=\"12\" text-anchor=\"middle\">"
        << EscapeXml(panel.y.title) << "</text>\n";
  }
}

void WriteLine(std::ostream& out, const Panel& panel, const std::vector<double>& xs, const std::vector<double>& ys,
               const Stroke& stroke, bool markers) {
  using Point = std::pair<double, double>;
  std::vector<std::vector<Point>> pieces(1);  // between NaN values
  for (std::size_t i = 0; i < xs.size() && i < ys.size(); ++i) {
    if (std::isnan(xs[i]) || std::isnan(ys[i])) {
      if (!pieces.back().empty()) pieces.emplace_back();
    } else {
      pieces.back().emplace_back(panel.X(xs[i]), panel.Y(ys[i]));
    }
  }
  for (const std::vector<Point>& piece : pieces) {
    if (piece.size() < 2) continue;
    out << "<polyline fill=\"none\" stroke-width=\"1.8\" stroke=\"" << stroke.colour << '"';
    if (!stroke.dashes.empty()) out << " stroke-dasharray=\"" << stroke.dashes << '"';
    out << " points=\"";
    for (const Point& point : piece) out << Coordinate(point.first) << ',' << Coordinate(point.second) << ' ';
    out << "\"/>\n";
  }
  // A point standing alone is a dot even without markers.
  for (const std::vector<Point>& piece : pieces) {
    if (!markers && piece.size() != 1) continue;
    for (const Point& point : piece) {
      out << "<circle cx=\"" << Coordinate(point.first) << "\" cy=\"" << Coordinate(point.second)
          << "\" r=\"3\" fill=\"" << stroke.colour << "\"/>\n";
    }
  }
}

void WriteMarksStart(std::ostream& out, const Panel& panel, const std::string& clipId) {
  if (clipId.empty()) {
    out << "<g class=\"marks\">\n";
    return;
  }
  out << "<clipPath id=\"" << EscapeXml(clipId) << "\"><rect x=\"" << Coordinate(panel.left) << "\" y=\""
      << Coordinate(panel.top) << "\" width=\"" << Coordinate(panel.width) << "\" height=\"" << Coordinate(panel.height)
      << "\"/></clipPath>\n"
      << "<g class=\"marks\" clip-path=\"url(#" << EscapeXml(clipId) << ")\">\n";
}

void WriteMarksEnd(std::ostream& out) { out << "</g>\n"; }

void WriteLegend(std::ostream& out, double left, double top, const std::string& title, const std::vector<RunKey>& runs,
                 const std::vector<Stroke>& strokes) {
  out << "<text x=\"" << Coordinate(left) << "\" y=\"" << Coordinate(top - 10)
      << "\" font-size=\"15\" font-weight=\"bold\">" << EscapeXml(title) << "</text>\n";
  for (std::size_t r = 0; r < runs.size(); ++r) {
    top += 22;
    out << "<line x1=\"" << Coordinate(left) << "\" x2=\"" << Coordinate(left + 30) << "\" y1=\"" << Coordinate(top - 4)
        << "\" y2=\"" << Coordinate(top - 4) << "\" stroke-width=\"2.5\" stroke=\"" << strokes[r].colour << '"';
    if (!strokes[r].dashes.empty()) out << " stroke-dasharray=\"" << strokes[r].dashes << '"';
    out << "/>\n<text x=\"" << Coordinate(left + kLegendSwatch) << "\" y=\"" << Coordinate(top)
        << "\" font-size=\"13\">" << EscapeXml(runs[r].label) << "</text>\n";
  }
}

double TextWidth(const std::string& text) {
  std::size_t characters = 0;
  for (const char c : text) characters += (static_cast<unsigned char>(c) & 0xC0) != 0x80 ? 1 : 0;
  return kLegendCharWidth * static_cast<double>(characters);
}

double LegendWidth(const std::vector<RunKey>& runs) {
  double widest = TextWidth("ensembles");
  for (const RunKey& run : runs) widest = std::max(widest, kLegendSwatch + TextWidth(run.label));
  return widest;
}

}  // namespace NuvikReplay
