#include <pybind11/pybind11.h>

#include "Bindings.h"

PYBIND11_MODULE(_nuvik, module) {
  module.doc() =
      "Nuvik's facade, its suggestions row and nuvik-replay's engine; use the nuvik package rather than this module.";
  NuvikPython::BindFacade(module);
  NuvikPython::BindSuggestions(module);
  NuvikPython::BindReplay(module);
}
