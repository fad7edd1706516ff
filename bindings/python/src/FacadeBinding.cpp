// nuvik.Nuvik: the facade with Python types. Every call holds the facade's
// mutex (a facade is used from one thread at a time); learning and loading
// release the GIL.
#include <climits>
#include <ctime>
#include <mutex>
#include <optional>
#include <sstream>
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
using NuvikPrediction::Nuvik;
using NuvikPrediction::NuvikConfig;

namespace NuvikPython {

std::string Utf8(py::handle text, const char* what) {
  if (!PyUnicode_Check(text.ptr())) {
    throw py::type_error(std::string(what) + " must be a str, not " + Py_TYPE(text.ptr())->tp_name);
  }
  Py_ssize_t size = 0;
  const char* data = PyUnicode_AsUTF8AndSize(text.ptr(), &size);
  if (data == nullptr) throw py::error_already_set();
  return std::string(data, static_cast<std::size_t>(size));
}

namespace {

// A saved document that the facade rejected.
class FormatError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

struct Facade {
  explicit Facade(const NuvikConfig& config) : nuvik(config) {}

  Nuvik nuvik;
  std::mutex mutex;
};

using Lock = std::lock_guard<std::mutex>;

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

void Learn(Facade& facade, py::handle app, int hour, int minute, py::handle tag) {
  Item item;
  item.app = Utf8(app, "app");
  item.time.tm_hour = hour;
  item.time.tm_min = minute;
  if (!tag.is_none()) item.tag = Utf8(tag, "tag");
  const py::gil_scoped_release unlocked;
  const Lock lock(facade.mutex);
  facade.nuvik.Update(item);
}

// The hour and minute of a datetime.datetime or datetime.time.
std::pair<int, int> TimeOfDay(py::handle when) {
  const py::module_ datetime = py::module_::import("datetime");
  if (!py::isinstance(when, datetime.attr("datetime")) && !py::isinstance(when, datetime.attr("time"))) {
    throw py::type_error(std::string("when must be a datetime.datetime or datetime.time, not ") +
                         Py_TYPE(when.ptr())->tp_name);
  }
  return {when.attr("hour").cast<int>(), when.attr("minute").cast<int>()};
}

}  // namespace

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
           "kill_threshold"_a = 0.05, "count_limit"_a = 60, "weight_threshold"_a = 0.5)
      .def(
          "update",
          [](Facade& facade, py::handle app, py::handle hour, py::handle minute, py::handle tag) {
            Learn(facade, app, ToInt(hour, "hour"), ToInt(minute, "minute"), tag);
          },
          "app"_a, "hour"_a, "minute"_a, "tag"_a = py::none())
      .def(
          "update",
          [](Facade& facade, py::handle app, py::handle when, py::handle tag) {
            const auto [hour, minute] = TimeOfDay(when);
            Learn(facade, app, hour, minute, tag);
          },
          "app"_a, "when"_a, "tag"_a = py::none())
      .def("clear",
           [](Facade& facade) {
             const py::gil_scoped_release unlocked;
             const Lock lock(facade.mutex);
             facade.nuvik.Clear();
           })
      .def("next", [](Facade& facade) { const Lock lock(facade.mutex); return facade.nuvik.GetNext(); })
      .def("soon", [](Facade& facade) { const Lock lock(facade.mutex); return facade.nuvik.GetSoon(); })
      .def("kill", [](Facade& facade) { const Lock lock(facade.mutex); return facade.nuvik.GetKill(); })
      .def(
          "weight",
          [](Facade& facade, py::handle app) {
            const std::string name = Utf8(app, "app");
            const Lock lock(facade.mutex);
            return facade.nuvik.GetWeightSingle(name);
          },
          "app"_a)
      .def(
          "weight_det",
          [](Facade& facade, py::handle app) {
            const std::string name = Utf8(app, "app");
            const Lock lock(facade.mutex);
            return facade.nuvik.GetWeightSingleDet(name);
          },
          "app"_a)
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
           })
      .def(
          "soon_weight",
          [](Facade& facade, const std::vector<double>& scores) {
            const Lock lock(facade.mutex);
            return facade.nuvik.GetSoonWeight(scores);
          },
          "scores"_a)
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
          "priorities"_a)
      .def("reset_priority",
           [](Facade& facade) {
             const Lock lock(facade.mutex);
             facade.nuvik.ResetPriority();
           })
      .def_property_readonly("count_metrics", [](Facade& facade) {
        const Lock lock(facade.mutex);
        return facade.nuvik.GetCountMetrics();
      })
      .def_property_readonly("map_metric",
                             [](Facade& facade) { const Lock lock(facade.mutex); return facade.nuvik.GetMapMetric(); })
      .def_property_readonly("recall_metric", [](Facade& facade) {
        const Lock lock(facade.mutex);
        return facade.nuvik.GetRecallMetric();
      })
      .def_property_readonly("sum_map",
                             [](Facade& facade) { const Lock lock(facade.mutex); return facade.nuvik.GetSumMap(); })
      .def_property_readonly("sum_recall",
                             [](Facade& facade) { const Lock lock(facade.mutex); return facade.nuvik.GetSumRecall(); })
      .def_property_readonly("count_known_apps", [](Facade& facade) {
        const Lock lock(facade.mutex);
        return facade.nuvik.GetCountKnownApps();
      })
      .def("clear_metrics",
           [](Facade& facade) {
             const Lock lock(facade.mutex);
             facade.nuvik.ClearMetrics();
           })
      .def("save",
           [](Facade& facade) {
             std::ostringstream document;
             {
               const Lock lock(facade.mutex);
               facade.nuvik.SerializeJson(document);
             }
             return py::bytes(document.str());
           })
      .def(
          "load",
          [](Facade& facade, const py::bytes& data) {
            std::istringstream document(std::string{data});
            std::string rejection;
            {
              const py::gil_scoped_release unlocked;
              const Lock lock(facade.mutex);
              try {
                facade.nuvik.DeserializeJson(document);
                if (document.bad()) rejection = "the document was rejected";
              } catch (const std::exception& error) {
                rejection = std::string("the document was rejected: ") + error.what();
              }
            }
            if (!rejection.empty()) throw FormatError(rejection);
          },
          "document"_a)
      .def("library_info",
           [](Facade& facade) { const Lock lock(facade.mutex); return facade.nuvik.GetLibraryInfo(); })
      .def("__repr__", [](Facade& facade) { const Lock lock(facade.mutex); return facade.nuvik.PrintNuvikInfo(); });
}

}  // namespace NuvikPython
