# Resolves jsoncpp into NUVIK_JSONCPP_TARGET.
#
# The system package (Debian's libjsoncpp-dev) comes first. Where there is none,
# as on Android, jsoncpp is built from source as a static library linked into
# libnuvik.so, whose version script keeps its symbols private:
#   -DNUVIK_JSONCPP_SOURCE_DIR=<jsoncpp source tree>   use a local checkout
#   -DNUVIK_FETCH_JSONCPP=ON                           fetch the pinned release
set(NUVIK_JSONCPP_VERSION 1.9.5)
set(NUVIK_JSONCPP_SOURCE_DIR "" CACHE PATH "jsoncpp source tree, used when no jsoncpp package is found")
option(NUVIK_FETCH_JSONCPP "Fetch jsoncpp ${NUVIK_JSONCPP_VERSION} when no jsoncpp package is found" OFF)

find_package(jsoncpp CONFIG QUIET)
if(TARGET JsonCpp::JsonCpp)
  set(NUVIK_JSONCPP_TARGET JsonCpp::JsonCpp)
  set(NUVIK_JSONCPP_BUNDLED OFF)
  return()
endif()

if(NOT NUVIK_JSONCPP_SOURCE_DIR AND NOT NUVIK_FETCH_JSONCPP)
  message(FATAL_ERROR
    "jsoncpp not found. Install libjsoncpp-dev, or configure with "
    "-DNUVIK_JSONCPP_SOURCE_DIR=<jsoncpp source tree> or -DNUVIK_FETCH_JSONCPP=ON.")
endif()

# Only the static library, nothing installed or tested; plain variables
# override jsoncpp's options under policy CMP0077.
set(CMAKE_POLICY_DEFAULT_CMP0077 NEW)
set(JSONCPP_WITH_TESTS OFF)
set(JSONCPP_WITH_POST_BUILD_UNITTEST OFF)
set(JSONCPP_WITH_PKGCONFIG_SUPPORT OFF)
set(JSONCPP_WITH_CMAKE_PACKAGE OFF)
set(BUILD_SHARED_LIBS OFF)
set(BUILD_STATIC_LIBS ON)
set(BUILD_OBJECT_LIBS OFF)

if(NUVIK_JSONCPP_SOURCE_DIR)
  add_subdirectory(${NUVIK_JSONCPP_SOURCE_DIR} ${CMAKE_BINARY_DIR}/_deps/jsoncpp-build EXCLUDE_FROM_ALL)
else()
  include(FetchContent)
  FetchContent_Declare(jsoncpp
    GIT_REPOSITORY https://github.com/open-source-parsers/jsoncpp.git
    GIT_TAG ${NUVIK_JSONCPP_VERSION}
    GIT_SHALLOW TRUE)
  FetchContent_GetProperties(jsoncpp)
  if(NOT jsoncpp_POPULATED)
    FetchContent_Populate(jsoncpp)
    add_subdirectory(${jsoncpp_SOURCE_DIR} ${jsoncpp_BINARY_DIR} EXCLUDE_FROM_ALL)
  endif()
endif()

set_property(TARGET jsoncpp_static PROPERTY POSITION_INDEPENDENT_CODE ON)
set(NUVIK_JSONCPP_TARGET jsoncpp_static)
set(NUVIK_JSONCPP_BUNDLED ON)
