# Resolves simdjson into NUVIK_SIMDJSON_TARGET.
#
# The system package (Debian's libsimdjson-dev) comes first. Where there is
# none, as on Android, simdjson is built from source as a static library linked
# into libnuvik.so, whose version script keeps its symbols private:
#   -DNUVIK_SIMDJSON_SOURCE_DIR=<simdjson source tree>   use a local checkout
#   -DNUVIK_FETCH_SIMDJSON=ON                            fetch the pinned release
set(NUVIK_SIMDJSON_VERSION 3.0.1)
set(NUVIK_SIMDJSON_SOURCE_DIR "" CACHE PATH "simdjson source tree, used when no simdjson package is found")
option(NUVIK_FETCH_SIMDJSON "Fetch simdjson ${NUVIK_SIMDJSON_VERSION} when no simdjson package is found" OFF)

find_package(simdjson CONFIG QUIET)
if(TARGET simdjson::simdjson)
  set(NUVIK_SIMDJSON_TARGET simdjson::simdjson)
  set(NUVIK_SIMDJSON_BUNDLED OFF)
  return()
endif()

if(NOT NUVIK_SIMDJSON_SOURCE_DIR AND NOT NUVIK_FETCH_SIMDJSON)
  message(FATAL_ERROR
    "simdjson not found. Install libsimdjson-dev, or configure with "
    "-DNUVIK_SIMDJSON_SOURCE_DIR=<simdjson source tree> or -DNUVIK_FETCH_SIMDJSON=ON.")
endif()

# Only the static library; plain variables override simdjson's options under
# policy CMP0077. Threads serve only simdjson's document streams, unused here.
set(CMAKE_POLICY_DEFAULT_CMP0077 NEW)
set(SIMDJSON_DEVELOPER_MODE OFF)
set(SIMDJSON_ENABLE_THREADS OFF)
set(BUILD_SHARED_LIBS OFF)

if(NUVIK_SIMDJSON_SOURCE_DIR)
  add_subdirectory(${NUVIK_SIMDJSON_SOURCE_DIR} ${CMAKE_BINARY_DIR}/_deps/simdjson-build EXCLUDE_FROM_ALL)
else()
  include(FetchContent)
  FetchContent_Declare(simdjson
    GIT_REPOSITORY https://github.com/simdjson/simdjson.git
    GIT_TAG v${NUVIK_SIMDJSON_VERSION}
    GIT_SHALLOW TRUE)
  FetchContent_GetProperties(simdjson)
  if(NOT simdjson_POPULATED)
    FetchContent_Populate(simdjson)
    add_subdirectory(${simdjson_SOURCE_DIR} ${simdjson_BINARY_DIR} EXCLUDE_FROM_ALL)
  endif()
endif()

set_property(TARGET simdjson PROPERTY POSITION_INDEPENDENT_CODE ON)
set(NUVIK_SIMDJSON_TARGET simdjson)
set(NUVIK_SIMDJSON_BUNDLED ON)
