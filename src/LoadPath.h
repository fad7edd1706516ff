// Which parser Nuvik::DeserializeJson uses on the calling thread. Documents go
// to simdjson first, falling back to jsoncpp for anything it cannot read
// exactly as jsoncpp would; tests and the differential fuzzer force jsoncpp
// alone to compare the two paths.
#ifndef NUVIK_LOAD_PATH_H_
#define NUVIK_LOAD_PATH_H_

namespace NuvikPrediction {

enum class LoadPath { kSimdjsonFirst, kJsoncppOnly };

void SetLoadPath(LoadPath path);
LoadPath GetLoadPath();

}  // namespace NuvikPrediction

#endif  // NUVIK_LOAD_PATH_H_
