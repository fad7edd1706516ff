// Pieces of the nuvik._nuvik extension module.
#ifndef NUVIK_BINDINGS_PYTHON_BINDINGS_H_
#define NUVIK_BINDINGS_PYTHON_BINDINGS_H_

#include <string>

#include <pybind11/pybind11.h>

namespace NuvikPython {

// UTF-8 bytes of a str; raises UnicodeEncodeError (lone surrogates) and
// TypeError for anything but a str.
std::string Utf8(pybind11::handle text, const char* what);

// nuvik.Nuvik and nuvik.FormatError.
void BindFacade(pybind11::module_& module);

// The replay engine: replay_text, index_file, replay_files, parse_columns, replay_columns, add_up,
// report.
void BindReplay(pybind11::module_& module);

}  // namespace NuvikPython

#endif  // NUVIK_BINDINGS_PYTHON_BINDINGS_H_
