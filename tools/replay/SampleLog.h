// The sample launch log (data/sample-launches.csv), built into the tool as
// its default input.
#ifndef NUVIK_TOOLS_REPLAY_SAMPLE_LOG_H_
#define NUVIK_TOOLS_REPLAY_SAMPLE_LOG_H_

#include <string_view>

namespace NuvikReplay {

std::string_view SampleLog();

}  // namespace NuvikReplay

#endif  // NUVIK_TOOLS_REPLAY_SAMPLE_LOG_H_
