# Picks the Python interpreter for the package: NUVIK_PYTHON when given, else
# the first of Python3_EXECUTABLE, python3 on PATH and /usr/bin/python3 that
# imports pybind11 (a virtualenv or pyenv python3 often lacks the system's
# packages). Sets NUVIK_PYTHON_FOUND and Python3_EXECUTABLE.
set(NUVIK_PYTHON "" CACHE FILEPATH "Python interpreter to build, install and test the package with")
set(NUVIK_PYTHON_FOUND OFF)
if(NUVIK_PYTHON)
  set(candidates ${NUVIK_PYTHON})
else()
  find_program(NUVIK_PATH_PYTHON3 NAMES python3)
  set(candidates ${Python3_EXECUTABLE} ${NUVIK_PATH_PYTHON3} /usr/bin/python3)
endif()
foreach(candidate IN LISTS candidates)
  if(NOT EXISTS "${candidate}")
    continue()
  endif()
  execute_process(COMMAND ${candidate} -c "import pybind11; print(pybind11.get_cmake_dir(), end='')"
    RESULT_VARIABLE status OUTPUT_VARIABLE cmake_dir ERROR_QUIET)
  if(status EQUAL 0)
    set(Python3_EXECUTABLE ${candidate} CACHE FILEPATH "Python interpreter" FORCE)
    set(pybind11_DIR ${cmake_dir} CACHE PATH "pybind11's CMake package" FORCE)
    set(NUVIK_PYTHON_FOUND ON)
    break()
  endif()
endforeach()
if(NUVIK_PYTHON AND NOT NUVIK_PYTHON_FOUND)
  message(WARNING "NUVIK_PYTHON=${NUVIK_PYTHON} cannot import pybind11: the Python package is not built")
endif()
