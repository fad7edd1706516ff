// Pieces of the nuvik._nuvik extension module.
#ifndef NUVIK_BINDINGS_PYTHON_BINDINGS_H_
#define NUVIK_BINDINGS_PYTHON_BINDINGS_H_

#include <cstddef>
#include <ctime>
#include <mutex>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

#include <nuvik/Nuvik.h>
#include <pybind11/pybind11.h>

namespace NuvikPython {

// A facade and the mutex that every call on it holds.
struct Facade {
  explicit Facade(const NuvikPrediction::NuvikConfig& config) : nuvik(config) {}

  NuvikPrediction::Nuvik nuvik;
  std::mutex mutex;
};

using Lock = std::lock_guard<std::mutex>;

// A saved document that was rejected; raised as nuvik.FormatError.
class FormatError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// The document that `object` writes with SerializeJson, as bytes, under `mutex`.
template <typename Object>
pybind11::bytes SaveDocument(const Object& object, std::mutex& mutex) {
  std::ostringstream document;
  {
    const Lock lock(mutex);
    object.SerializeJson(document);
  }
  return pybind11::bytes(document.str());
}

// Reads `data` into `object` with DeserializeJson, under `mutex` and without
// the GIL; raises FormatError when it is rejected (the object is unchanged).
template <typename Object>
void LoadDocument(Object& object, std::mutex& mutex, const pybind11::bytes& data) {
  std::istringstream document(std::string{data});
  std::string rejection;
  {
    const pybind11::gil_scoped_release unlocked;
    const Lock lock(mutex);
    try {
      object.DeserializeJson(document);
      if (document.bad()) rejection = "the document was rejected";
    } catch (const std::exception& error) {
      rejection = std::string("the document was rejected: ") + error.what();
    }
  }
  if (!rejection.empty()) throw FormatError(rejection);
}

// UTF-8 bytes of a str; raises UnicodeEncodeError (lone surrogates) and
// TypeError for anything but a str.
std::string Utf8(pybind11::handle text, const char* what);

// The bytes of a str with Python's "surrogateescape": U+DC80 to U+DCFF stand
// for the bytes 0x80 to 0xFF that are not part of UTF-8. Raises
// UnicodeEncodeError (other lone surrogates) and TypeError as Utf8 does.
std::string EscapedBytes(pybind11::handle text, const char* what);

// The names of an iterable of str, each through `bytesOf`; raises TypeError
// for a str itself, which would otherwise be read as its characters.
std::vector<std::string> StrList(pybind11::handle texts, const char* what,
                                 std::string (*bytesOf)(pybind11::handle, const char*) = Utf8);

// A time of day with the hour and minute of an (hour, minute) pair of ints, a
// datetime.time or a datetime.datetime (pandas.Timestamp included: its own
// wall-clock time, a tz-aware one not converted). Raises TypeError for
// anything else, OverflowError for an int beyond a C int and ValueError for
// pandas.NaT.
std::tm TimeOfDay(pybind11::handle time, const char* what);

// A non-negative int as a count of applications; raises TypeError for
// anything but an int and ValueError when negative. A count beyond size_t
// means all of them.
std::size_t Count(pybind11::handle count, const char* what);

// nuvik.Nuvik and nuvik.FormatError.
void BindFacade(pybind11::module_& module);

// nuvik.Suggestions, after BindFacade.
void BindSuggestions(pybind11::module_& module);

// The replay engine: replay_text, index_file, replay_files, parse_columns, replay_columns, add_up,
// report.
void BindReplay(pybind11::module_& module);

}  // namespace NuvikPython

#endif  // NUVIK_BINDINGS_PYTHON_BINDINGS_H_
