// nuvik.Nuvik: the facade with Python types. Every call holds the facade's
// mutex (a facade is used from one thread at a time); learning, ranking for a
// time and loading release the GIL.
#include <algorithm>
#include <climits>
#include <ctime>
#include <limits>
#include <optional>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include <nuvik/Nuvik.h>
#include <pybind11/stl.h>

#include "Bindings.h"

namespace py = pybind11;
using namespace pybind11::literals;
using NuvikPrediction::Item;
using NuvikPrediction::NuvikConfig;

namespace NuvikPython {

namespace {

// A Python int that fits a C int; bool counts as an int, as in Python.
int ToInt(py::handle value, const char* what) {
  if (!PyLong_Check(value.ptr())) {
    throw py::type_error(std::string(what) + " must be an int, not " + Py_TYPE(value.ptr())->tp_name);
  }
  int overflow = 0;
  const long long number = PyLong_AsLongLongAndOverflow(value.ptr(), &overflow);
  if (number == -1 && PyErr_Occurred()) throw py::error_already_set();
  if (overflow != 0 || number < INT_MIN || number > INT_MAX) {
    throw std::overflow_error(std::string(what) + " does not fit a C int");
  }
  return static_cast<int>(number);
}

std::vector<std::string> Names(py::handle predictors) {
  if (PyUnicode_Check(predictors.ptr())) return {Utf8(predictors, "a predictor name")};
  std::vector<std::string> names;
  for (const py::handle name : py::iter(predictors)) names.push_back(Utf8(name, "a predictor name"));
  return names;
}

NuvikConfig MakeConfig(py::handle predictors, py::handle params, bool skipRepeats, double killThreshold,
                       unsigned long countLimit, double weightThreshold) {
  std::vector<std::string> names = Names(predictors);
  if (params.is_none()) return NuvikConfig(std::move(names), skipRepeats, countLimit, weightThreshold, killThreshold);
  std::vector<int> values;
  for (const py::handle param : py::iter(params)) values.push_back(ToInt(param, "a parameter"));
  NuvikConfig config(values, names);
  config.skipRepeats = skipRepeats;
  config.killThreshold = killThreshold;
  config.countLimit = countLimit;
  config.weightThreshold = weightThreshold;
  return config;
}

std::tm Clock(int hour, int minute) {
  std::tm time{};
  time.tm_hour = hour;
  time.tm_min = minute;
  return time;
}

void Learn(Facade& facade, py::handle app, const std::tm& time, py::handle tag) {
  Item item;
  item.app = Utf8(app, "app");
  item.time = time;
  if (!tag.is_none()) item.tag = Utf8(tag, "tag");
  const py::gil_scoped_release unlocked;
  const Lock lock(facade.mutex);
  facade.nuvik.Update(item);
}

}  // namespace

std::string Utf8(py::handle text, const char* what) {
  if (!PyUnicode_Check(text.ptr())) {
    throw py::type_error(std::string(what) + " must be a str, not " + Py_TYPE(text.ptr())->tp_name);
  }
  Py_ssize_t size = 0;
  const char* data = PyUnicode_AsUTF8AndSize(text.ptr(), &size);
  if (data == nullptr) throw py::error_already_set();
  return std::string(data, static_cast<std::size_t>(size));
}

std::string EscapedBytes(py::handle text, const char* what) {
  if (!PyUnicode_Check(text.ptr())) {
    throw py::type_error(std::string(what) + " must be a str, not " + Py_TYPE(text.ptr())->tp_name);
  }
  const auto bytes =
      py::reinterpret_steal<py::object>(PyUnicode_AsEncodedString(text.ptr(), "utf-8", "surrogateescape"));
  if (!bytes) throw py::error_already_set();
  return std::string(PyBytes_AS_STRING(bytes.ptr()), static_cast<std::size_t>(PyBytes_GET_SIZE(bytes.ptr())));
}

std::vector<std::string> StrList(py::handle texts, const char* what, std::string (*bytesOf)(py::handle, const char*)) {
  if (PyUnicode_Check(texts.ptr())) throw py::type_error(std::string(what) + " must be an iterable of str, not a str");
  std::vector<std::string> names;
  for (const py::handle text : py::iter(texts)) {
    if (!PyUnicode_Check(text.ptr())) {
      throw py::type_error(std::string(what) + " must hold str, not " + Py_TYPE(text.ptr())->tp_name);
    }
    names.push_back(bytesOf(text, what));
  }
  return names;
}

std::tm TimeOfDay(py::handle time, const char* what) {
  if (PyTuple_Check(time.ptr()) || PyList_Check(time.ptr())) {
    const py::sequence pair = py::reinterpret_borrow<py::sequence>(time);
    if (pair.size() != 2) throw py::type_error(std::string(what) + " must be an (hour, minute) pair");
    return Clock(ToInt(pair[0], "hour"), ToInt(pair[1], "minute"));
  }
  const py::module_ datetime = py::module_::import("datetime");
  if (!py::isinstance(time, datetime.attr("datetime")) && !py::isinstance(time, datetime.attr("time"))) {
    throw py::type_error(std::string(what) + " must be an (hour, minute) pair, a datetime.time or a " +
                         "datetime.datetime, not " + Py_TYPE(time.ptr())->tp_name);
  }
  const py::object hour = time.attr("hour");
  const py::object minute = time.attr("minute");
  if (!PyLong_Check(hour.ptr()) || !PyLong_Check(minute.ptr())) {
    throw py::value_error(std::string(what) + " has no hour and minute (NaT)");
  }
  return Clock(ToInt(hour, "hour"), ToInt(minute, "minute"));
}

std::size_t Count(py::handle count, const char* what) {
  if (!PyLong_Check(count.ptr())) {
    throw py::type_error(std::string(what) + " must be an int, not " + Py_TYPE(count.ptr())->tp_name);
  }
  int overflow = 0;
  const long long number = PyLong_AsLongLongAndOverflow(count.ptr(), &overflow);
  if (number == -1 && PyErr_Occurred()) throw py::error_already_set();
  if (overflow > 0) return std::numeric_limits<std::size_t>::max();
  if (overflow < 0 || number < 0) throw py::value_error(std::string(what) + " must not be negative");
  return static_cast<std::size_t>(
      std::min<unsigned long long>(static_cast<unsigned long long>(number), std::numeric_limits<std::size_t>::max()));
}

void BindFacade(py::module_& module) {
  auto& formatError = py::register_exception<FormatError>(module, "FormatError", PyExc_ValueError);
  formatError.attr("__module__") = "nuvik";
  formatError.attr("__doc__") = "A saved document was rejected; the facade is unchanged.";

  py::class_<Facade>(module, "Nuvik", "Learns app launches online and ranks the apps likely to be launched next.")
      .def(py::init(
               [](py::object predictors, py::object params, bool skipRepeats, double killThreshold,
                  unsigned long countLimit, double weightThreshold) {
                 return new Facade(
                     MakeConfig(predictors, params, skipRepeats, killThreshold, countLimit, weightThreshold));
               }),
           "predictors"_a = py::make_tuple("stat_counter"), "params"_a = py::none(), "skip_repeats"_a = false,
           "kill_threshold"_a = 0.05, "count_limit"_a = 60, "weight_threshold"_a = 0.5,
           "A facade of one predictor per name in `predictors` (one str is one name), each with the parameter of\n"
           "the same index in `params` (1 by default). skip_repeats ignores a launch of the previous app.")
      .def(
          "update",
          [](Facade& facade, py::handle app, py::handle hour, py::handle minute, py::handle tag) {
            Learn(facade, app, Clock(ToInt(hour, "hour"), ToInt(minute, "minute")), tag);
          },
          "app"_a, "hour"_a, "minute"_a, "tag"_a = py::none(),
          "Learns one launch of `app` at hour:minute, local time; `tag` is kept with the last launch.")
      .def(
          "update",
          [](Facade& facade, py::handle app, py::handle when, py::handle tag) {
            Learn(facade, app, TimeOfDay(when, "when"), tag);
          },
          "app"_a, "when"_a, "tag"_a = py::none(),
          "Learns one launch of `app` at `when`, an (hour, minute) pair, a datetime.time or a datetime.datetime\n"
          "(a pandas.Timestamp too: its own wall-clock hour and minute).")
      .def("clear",
           [](Facade& facade) {
             const py::gil_scoped_release unlocked;
             const Lock lock(facade.mutex);
             facade.nuvik.Clear();
           },
           "Rebuilds every predictor empty; known apps, weights, lists, priorities and metrics are kept.")
      .def(
          "next", [](Facade& facade) { const Lock lock(facade.mutex); return facade.nuvik.GetNext(); },
          "Every known app, best first, as ranked before the last accepted launch was learned (next_at ranks\n"
          "for now).")
      .def(
          "next_at",
          [](Facade& facade, py::handle time, py::handle count) {
            const std::tm when = TimeOfDay(time, "time");
            const std::optional<std::size_t> first =
                count.is_none() ? std::nullopt : std::optional<std::size_t>(Count(count, "count"));
            const py::gil_scoped_release unlocked;
            const Lock lock(facade.mutex);
            return first ? facade.nuvik.GetNextAt(when, *first) : facade.nuvik.GetNextAt(when);
          },
          "time"_a, "count"_a = py::none(),
          "The ranking for now: every known app ranked at `time` from everything learned so far, best first,\n"
          "exactly what next() will answer after the next accepted update at that time. `time` is an\n"
          "(hour, minute) pair, a datetime.time or a datetime.datetime (a pandas.Timestamp too: its own\n"
          "wall-clock hour and minute). With `count`, only the first `count` apps. Changes nothing.")
      .def(
          "weights_at",
          [](Facade& facade, py::handle time, py::handle apps) {
            const std::tm when = TimeOfDay(time, "time");
            const std::vector<std::string> names = StrList(apps, "apps");
            const py::gil_scoped_release unlocked;
            const Lock lock(facade.mutex);
            return facade.nuvik.GetWeightsAt(when, names);
          },
          "time"_a, "apps"_a,
          "The weight of each of `apps` (a list of floats in their order), exactly what weight() will answer\n"
          "after the next accepted update at `time` (as in next_at): a known app's score at `time`, another\n"
          "app's last weight, else 0.0. Changes nothing.")
      .def(
          "soon", [](Facade& facade) { const Lock lock(facade.mutex); return facade.nuvik.GetSoon(); },
          "Always empty in this version.")
      .def(
          "kill", [](Facade& facade) { const Lock lock(facade.mutex); return facade.nuvik.GetKill(); },
          "Always empty in this version.")
      .def(
          "weight",
          [](Facade& facade, py::handle app) {
            const std::string name = Utf8(app, "app");
            const Lock lock(facade.mutex);
            return facade.nuvik.GetWeightSingle(name);
          },
          "app"_a, "The app's combined score from the last ranking; 0.0 for an app without one.")
      .def(
          "weight_det",
          [](Facade& facade, py::handle app) {
            const std::string name = Utf8(app, "app");
            const Lock lock(facade.mutex);
            return facade.nuvik.GetWeightSingleDet(name);
          },
          "app"_a, "The app's combined score from the last ranking; -1.0 for an app without one.")
      .def("weights",
           [](Facade& facade) {
             std::map<std::string, double> weights;
             {
               const Lock lock(facade.mutex);
               weights = facade.nuvik.GetAllWeights();
             }
             py::dict result;
             for (const auto& [app, weight] : weights) result[py::str(app)] = weight;
             return result;
           },
           "Every known app's combined score from the last ranking, in name order.")
      .def(
          "soon_weight",
          [](Facade& facade, const std::vector<double>& scores) {
            const Lock lock(facade.mutex);
            return facade.nuvik.GetSoonWeight(scores);
          },
          "scores"_a, "Per-slot scores combined: two give s[1] * 0.9 + s[0] * 0.1, one gives s[0], others 0.0.")
      .def(
          "set_apps_priority",
          [](Facade& facade, py::iterable pairs) {
            std::vector<std::pair<std::string, int>> list;
            for (const py::handle pair : pairs) {
              if (!PyTuple_Check(pair.ptr()) && !PyList_Check(pair.ptr())) {
                throw py::type_error("priorities must be (app, priority) pairs");
              }
              const py::sequence entry = py::reinterpret_borrow<py::sequence>(pair);
              if (entry.size() != 2) throw py::type_error("priorities must be (app, priority) pairs");
              list.emplace_back(Utf8(entry[0], "app"), ToInt(entry[1], "priority"));
            }
            const Lock lock(facade.mutex);
            facade.nuvik.SetAppsPriority(list);
          },
          "priorities"_a,
          "(app, priority) pairs: each lifts (positive) or lowers (negative) the app by (1 / priority) * 0.6 on\n"
          "every slot's score from the next ranking on; 0 means none, and a later pair for an app wins.")
      .def("reset_priority",
           [](Facade& facade) {
             const Lock lock(facade.mutex);
             facade.nuvik.ResetPriority();
           },
           "Drops every priority.")
      .def_property_readonly(
          "count_metrics", [](Facade& facade) { const Lock lock(facade.mutex); return facade.nuvik.GetCountMetrics(); },
          "How many launches the quality measures scored (from the sixth launch on).")
      .def_property_readonly(
          "map_metric", [](Facade& facade) { const Lock lock(facade.mutex); return facade.nuvik.GetMapMetric(); },
          "Mean average precision of the next lists; NaN before the first scored launch.")
      .def_property_readonly(
          "recall_metric", [](Facade& facade) { const Lock lock(facade.mutex); return facade.nuvik.GetRecallMetric(); },
          "Mean recall at five of the next lists; NaN before the first scored launch.")
      .def_property_readonly(
          "sum_map", [](Facade& facade) { const Lock lock(facade.mutex); return facade.nuvik.GetSumMap(); },
          "The sum behind map_metric.")
      .def_property_readonly(
          "sum_recall", [](Facade& facade) { const Lock lock(facade.mutex); return facade.nuvik.GetSumRecall(); },
          "The sum behind recall_metric.")
      .def_property_readonly(
          "count_known_apps",
          [](Facade& facade) { const Lock lock(facade.mutex); return facade.nuvik.GetCountKnownApps(); },
          "How many apps the facade knows (launched, or listed by a loaded document).")
      .def(
          "clear_metrics",
          [](Facade& facade) {
            const Lock lock(facade.mutex);
            facade.nuvik.ClearMetrics();
          },
          "Resets the quality measures' sums and count; scoring resumes at once.")
      .def("save", [](Facade& facade) { return SaveDocument(facade.nuvik, facade.mutex); },
           "The learned state (known apps and every predictor) as one line of JSON, in bytes. A facade that\n"
           "has seen no launch writes a document that load() rejects.")
      .def(
          "load",
          [](Facade& facade, const py::bytes& data) { LoadDocument(facade.nuvik, facade.mutex, data); },
          "document"_a,
          "Reads a document written by save(): the predictors and, when it names any, the known apps. All or\n"
          "nothing: a rejected document raises nuvik.FormatError and changes nothing.")
      .def(
          "library_info", [](Facade& facade) { const Lock lock(facade.mutex); return facade.nuvik.GetLibraryInfo(); },
          "The library's name and version.")
      .def("__repr__", [](Facade& facade) { const Lock lock(facade.mutex); return facade.nuvik.PrintNuvikInfo(); });
}

}  // namespace NuvikPython
