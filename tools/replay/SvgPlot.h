// An SVG picture of running MAP and recall at five, one line per run, with
// axes, a legend and a title.
#ifndef NUVIK_TOOLS_REPLAY_SVG_PLOT_H_
#define NUVIK_TOOLS_REPLAY_SVG_PLOT_H_

#include <functional>
#include <iosfwd>
#include <string>
#include <vector>

#include "replay/Curves.h"

namespace NuvikReplay {

// Where the points of the curves lie: point i at x = first + i, on an axis
// starting at `low`.
struct CurveAxis {
  std::string title = "launches, all users in time order";
  double first = 1.0;
  double low = 0.0;
  std::function<std::string(double)> tickText;  // default: whole numbers
};

// `id` names the picture's clip paths, unique within a page holding several
// pictures.
void WriteSvgPlot(std::ostream& out, const std::string& title, const std::vector<Curve>& curves,
                  const CurveAxis& axis = {}, const std::string& id = "panel");

}  // namespace NuvikReplay

#endif  // NUVIK_TOOLS_REPLAY_SVG_PLOT_H_
