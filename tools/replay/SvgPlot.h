// An SVG picture of running MAP and recall at five, one line per run, with
// axes, a legend and a title.
#ifndef NUVIK_TOOLS_REPLAY_SVG_PLOT_H_
#define NUVIK_TOOLS_REPLAY_SVG_PLOT_H_

#include <iosfwd>
#include <string>
#include <vector>

#include "replay/Curves.h"

namespace NuvikReplay {

void WriteSvgPlot(std::ostream& out, const std::string& title, const std::vector<Curve>& curves);

}  // namespace NuvikReplay

#endif  // NUVIK_TOOLS_REPLAY_SVG_PLOT_H_
