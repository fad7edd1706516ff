// Errors the tool reports to its user: a usage error is a mistake on the
// command line, an input error is bad data in a file.
#ifndef NUVIK_TOOLS_REPLAY_ERRORS_H_
#define NUVIK_TOOLS_REPLAY_ERRORS_H_

#include <stdexcept>

namespace NuvikReplay {

class UsageError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

class InputError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

}  // namespace NuvikReplay

#endif  // NUVIK_TOOLS_REPLAY_ERRORS_H_
