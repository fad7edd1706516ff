#ifndef NUVIK_UPDATER_H_
#define NUVIK_UPDATER_H_

#include <string>

namespace NuvikPrediction {

// What every predictor learns from one accepted launch. Hour and minute are
// copied from the caller's time unchecked.
struct Updater {
  std::string tag;
  std::string app;
  int hour;
  int minute;
};

}  // namespace NuvikPrediction

#endif  // NUVIK_UPDATER_H_
