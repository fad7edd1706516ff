// nuvik.Suggestions: a launcher's row of suggested apps with Python types.
// Every call holds the object's mutex; a row holds it and then the facade's,
// always in that order, with the GIL released. Names cross with Python's
// "surrogateescape", as the document keeps them: bytes that are not UTF-8
// come back as U+DC80 to U+DCFF, and go in as the same bytes.
#include <exception>
#include <mutex>
#include <string>
#include <vector>

#include <nuvik/Suggestions.h>

#include "Bindings.h"

namespace py = pybind11;
using namespace pybind11::literals;
using NuvikPrediction::RowRequest;
using NuvikPrediction::Suggestions;

namespace NuvikPython {

namespace {

// A Suggestions object and the mutex that every call on it holds.
struct GuardedSuggestions {
  Suggestions suggestions;
  std::mutex mutex;
};

// The names as str, decoded with "surrogateescape".
py::list EscapedNames(const std::vector<std::string>& names) {
  py::list result;
  for (const std::string& name : names) {
    const auto text = py::reinterpret_steal<py::object>(
        PyUnicode_DecodeUTF8(name.data(), static_cast<Py_ssize_t>(name.size()), "surrogateescape"));
    if (!text) throw py::error_already_set();
    result.append(text);
  }
  return result;
}

}  // namespace

void BindSuggestions(py::module_& module) {
  py::class_<GuardedSuggestions>(
      module, "Suggestions",
      "The row of apps a launcher shows, from a facade's ranking for now: without the apps on screen, the\n"
      "dismissed ones and those not installed, filled up from a fallback list, optionally kept steady from\n"
      "one row to the next. Holds the dismissed apps and the last row, saved to a document of its own.\n"
      "Names that are not UTF-8 come and go with \"surrogateescape\", as the document writes them.")
      .def(py::init<>())
      .def(
          "row",
          [](GuardedSuggestions& self, Facade& model, py::handle time, py::handle count, py::handle exclude,
             py::handle installed, py::handle fallback, bool stable) {
            const std::tm when = TimeOfDay(time, "time");
            RowRequest request;
            request.count = Count(count, "count");
            request.exclude = StrList(exclude, "exclude", EscapedBytes);
            request.installed = StrList(installed, "installed", EscapedBytes);
            request.fallback = StrList(fallback, "fallback", EscapedBytes);
            request.stable = stable;
            std::vector<std::string> row;
            {
              const py::gil_scoped_release unlocked;
              const Lock lock(self.mutex);
              const Lock modelLock(model.mutex);
              row = self.suggestions.Row(model.nuvik, when, request);
            }
            return EscapedNames(row);
          },
          "model"_a, "time"_a, "count"_a = 5, "exclude"_a = py::tuple(), "installed"_a = py::tuple(),
          "fallback"_a = py::tuple(), "stable"_a = false,
          "The row for `time` (as in Nuvik.next_at): the first `count` apps of model.next_at(time) and then\n"
          "`fallback`, skipping empty names, repeats, the apps in `exclude`, the dismissed ones and, when\n"
          "`installed` is not empty, those not in it. With `stable`, the apps of the previous row that may\n"
          "still appear stay, in their slots when the row is full, unless a newcomer ranks\n"
          "Suggestions.STABLE_MARGIN places above them. The row becomes the previous row; the model is only\n"
          "read.")
      .def(
          "dismiss",
          [](GuardedSuggestions& self, py::handle app) {
            const std::string name = EscapedBytes(app, "app");
            const Lock lock(self.mutex);
            self.suggestions.Dismiss(name);
          },
          "app"_a, "Leaves `app` out of every row until it is restored; dismissed again, it is the most recent.")
      .def(
          "restore",
          [](GuardedSuggestions& self, py::handle app) {
            const std::string name = EscapedBytes(app, "app");
            const Lock lock(self.mutex);
            self.suggestions.Restore(name);
          },
          "app"_a, "Undoes dismiss(app); nothing happens for an app not dismissed.")
      .def(
          "dismissed",
          [](GuardedSuggestions& self) {
            std::vector<std::string> dismissed;
            {
              const Lock lock(self.mutex);
              dismissed = self.suggestions.Dismissed();
            }
            return EscapedNames(dismissed);
          },
          "The dismissed apps, most recently dismissed first.")
      .def(
          "clear_dismissed",
          [](GuardedSuggestions& self) {
            const Lock lock(self.mutex);
            self.suggestions.ClearDismissed();
          },
          "Restores every dismissed app.")
      .def(
          "save",
          [](GuardedSuggestions& self) { return SaveDocument(self.suggestions, self.mutex); },
          "The dismissed apps and the previous row as a JSON document (bytes), for load().")
      .def(
          "load",
          [](GuardedSuggestions& self, const py::bytes& data) { LoadDocument(self.suggestions, self.mutex, data); },
          "document"_a,
          "Reads a document written by save(): all or nothing, raising nuvik.FormatError and changing\n"
          "nothing when it is rejected.")
      .attr("STABLE_MARGIN") = Suggestions::kStableMargin;
}

}  // namespace NuvikPython
