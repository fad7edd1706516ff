#include "replay/SvgPlot.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <iterator>
#include <ostream>

namespace NuvikReplay {

namespace {

constexpr double kPlotLeft = 80;
constexpr double kPlotRight = 780;
constexpr double kLegendLeft = 810;
constexpr double kPanelTop[] = {70, 400};
constexpr double kPanelHeight = 260;
constexpr double kHeight = 720;
constexpr std::size_t kMaxPoints = 800;
constexpr double kLegendCharWidth = 7.6;  // of the 13 px legend font, generously

const char* const kColors[] = {"#1f77b4", "#ff7f0e", "#2ca02c", "#d62728", "#9467bd",
                               "#8c564b", "#e377c2", "#17becf", "#bcbd22", "#393b79"};
const char* const kBaselineDashes[] = {"7 4", "2 3"};

std::string Escape(const std::string& text) {
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
    } else {
      escaped += c;
    }
  }
  return escaped;
}

std::string Number(double value) {
  char text[32];
  std::snprintf(text, sizeof text, "%.1f", value);
  return text;
}

std::string Label(double value, int decimals) {
  char text[32];
  std::snprintf(text, sizeof text, "%.*f", decimals, value);
  return text;
}

// A step of 1, 2 or 5 times a power of ten giving at most `maxTicks` ticks.
double NiceStep(double span, int maxTicks) {
  const double raw = span / maxTicks;
  const double power = std::pow(10.0, std::floor(std::log10(raw)));
  for (const double factor : {1.0, 2.0, 5.0, 10.0}) {
    if (factor * power >= raw) return factor * power;
  }
  return 10.0 * power;
}

struct Range {
  double low;
  double high;
};

// The values after the noisy first tenth of the launches, widened to tenths.
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

void WritePanel(std::ostream& out, int panel, const char* name, const std::vector<Curve>& curves,
                std::size_t launches) {
  const bool recall = panel == 1;
  const double top = kPanelTop[panel];
  const double bottom = top + kPanelHeight;
  const Range range = ValueRange(curves, recall);
  const auto x = [&](double launch) {
    return kPlotLeft + (kPlotRight - kPlotLeft) * launch / std::max<double>(1.0, static_cast<double>(launches));
  };
  const auto y = [&](double value) { return bottom - kPanelHeight * (value - range.low) / (range.high - range.low); };

  out << "<text x=\"" << kPlotLeft << "\" y=\"" << top - 10 << "\" font-size=\"15\" font-weight=\"bold\">" << name
      << "</text>\n";
  const double valueStep = NiceStep(range.high - range.low, 6);
  for (double value = range.low; value <= range.high + 1e-9; value += valueStep) {
    out << "<line x1=\"" << kPlotLeft << "\" x2=\"" << kPlotRight << "\" y1=\"" << Number(y(value)) << "\" y2=\""
        << Number(y(value)) << "\" stroke=\"#e4e4e4\"/>\n"
        << "<text x=\"" << kPlotLeft - 8 << "\" y=\"" << Number(y(value) + 4)
        << "\" font-size=\"12\" text-anchor=\"end\">" << Label(value, valueStep < 0.1 ? 2 : 1) << "</text>\n";
  }
  const double launchStep = NiceStep(std::max<double>(1.0, static_cast<double>(launches)), 8);
  for (double launch = 0; launch <= static_cast<double>(launches) + 1e-9; launch += launchStep) {
    out << "<line x1=\"" << Number(x(launch)) << "\" x2=\"" << Number(x(launch)) << "\" y1=\"" << bottom << "\" y2=\""
        << bottom + 5 << "\" stroke=\"#333\"/>\n"
        << "<text x=\"" << Number(x(launch)) << "\" y=\"" << bottom + 19
        << "\" font-size=\"12\" text-anchor=\"middle\">" << Label(launch, 0) << "</text>\n";
  }
  out << "<rect x=\"" << kPlotLeft << "\" y=\"" << top << "\" width=\"" << kPlotRight - kPlotLeft << "\" height=\""
      << kPanelHeight << "\" fill=\"none\" stroke=\"#333\"/>\n"
      << "<text x=\"" << (kPlotLeft + kPlotRight) / 2 << "\" y=\"" << bottom + 38
      << "\" font-size=\"12\" text-anchor=\"middle\">launches, all users in time order</text>\n"
      << "<text transform=\"translate(" << kPlotLeft - 50 << " " << (top + bottom) / 2
      << ") rotate(-90)\" font-size=\"12\" text-anchor=\"middle\">" << name << " (running mean)</text>\n"
      << "<clipPath id=\"panel" << panel << "\"><rect x=\"" << kPlotLeft << "\" y=\"" << top << "\" width=\""
      << kPlotRight - kPlotLeft << "\" height=\"" << kPanelHeight << "\"/></clipPath>\n"
      << "<g clip-path=\"url(#panel" << panel << ")\" fill=\"none\" stroke-width=\"1.8\">\n";

  std::size_t ensemble = 0;
  std::size_t baseline = 0;
  for (const Curve& curve : curves) {
    const std::vector<double>& values = recall ? curve.recall : curve.map;
    const std::size_t step = std::max<std::size_t>(1, (values.size() + kMaxPoints - 1) / kMaxPoints);
    out << "<polyline stroke=\"" << (curve.baseline ? "#444" : kColors[ensemble % std::size(kColors)]) << '"';
    if (curve.baseline) out << " stroke-dasharray=\"" << kBaselineDashes[baseline % 2] << '"';
    out << " points=\"";
    for (std::size_t i = 0; i < values.size(); ++i) {
      const bool sampled = (i + 1) % step == 0 || i + 1 == values.size();
      if (sampled && !std::isnan(values[i])) {
        out << Number(x(static_cast<double>(i + 1))) << ',' << Number(y(values[i])) << ' ';
      }
    }
    out << "\"/>\n";
    ++(curve.baseline ? baseline : ensemble);
  }
  out << "</g>\n";
}

void WriteLegend(std::ostream& out, const std::vector<Curve>& curves) {
  double top = kPanelTop[0];
  out << "<text x=\"" << kLegendLeft << "\" y=\"" << top - 10 << "\" font-size=\"15\" font-weight=\"bold\">"
      << "ensembles</text>\n";
  std::size_t ensemble = 0;
  std::size_t baseline = 0;
  for (const Curve& curve : curves) {
    top += 22;
    out << "<line x1=\"" << kLegendLeft << "\" x2=\"" << kLegendLeft + 30 << "\" y1=\"" << top - 4 << "\" y2=\""
        << top - 4 << "\" stroke-width=\"2.5\" stroke=\""
        << (curve.baseline ? "#444" : kColors[ensemble % std::size(kColors)]) << '"';
    if (curve.baseline) out << " stroke-dasharray=\"" << kBaselineDashes[baseline % 2] << '"';
    out << "/>\n<text x=\"" << kLegendLeft + 38 << "\" y=\"" << top << "\" font-size=\"13\">" << Escape(curve.label)
        << "</text>\n";
    ++(curve.baseline ? baseline : ensemble);
  }
}

}  // namespace

void WriteSvgPlot(std::ostream& out, const std::string& title, const std::vector<Curve>& curves) {
  const std::size_t launches = curves.empty() ? 0 : curves.front().map.size();
  std::size_t longestLabel = 0;
  for (const Curve& curve : curves) longestLabel = std::max(longestLabel, curve.label.size());
  const double width = std::max(1000.0, kLegendLeft + 38 + kLegendCharWidth * static_cast<double>(longestLabel) + 20);
  out << "<svg xmlns=\"http://www.w3.org/2000/svg\" width=\"" << Number(width) << "\" height=\"" << kHeight
      << "\" viewBox=\"0 0 " << Number(width) << ' ' << kHeight << "\" font-family=\"sans-serif\">\n"
      << "<rect width=\"100%\" height=\"100%\" fill=\"white\"/>\n"
      << "<text x=\"" << Number(width / 2)
      << "\" y=\"30\" font-size=\"18\" font-weight=\"bold\" text-anchor=\"middle\">" << Escape(title) << "</text>\n";
  WritePanel(out, 0, "MAP", curves, launches);
  WritePanel(out, 1, "recall@5", curves, launches);
  WriteLegend(out, curves);
  out << "</svg>\n";
}

}  // namespace NuvikReplay
