#!/usr/bin/env bash
# Developer entry point.
#   ./dev.sh demo       build nuvik-replay, then compare ensembles on the sample log
#   ./dev.sh test       build, then run the unit tests
#   ./dev.sh sanitize   build with AddressSanitizer + UBSan, then run the unit tests
#   ./dev.sh python     build the Python package for Debian's python3, then run its pytest suite
#   ./dev.sh deps       install the Debian packages the build needs
set -euo pipefail
cd "$(dirname "$0")"

# The native architecture's simdjson: the aarch64 cross build may have installed the arm64 one in its place.
NATIVE_ARCH=$(dpkg --print-architecture 2>/dev/null || true)
PACKAGES=(cmake make g++ pkg-config libjsoncpp-dev libgtest-dev libcli11-dev zlib1g-dev
  "libsimdjson-dev${NATIVE_ARCH:+:$NATIVE_ARCH}")
# The Python package; they belong to Debian's interpreter, /usr/bin/python3 (NUVIK_PYTHON overrides it).
PYTHON_PACKAGES=(python3-dev python3-pybind11 pybind11-dev python3-numpy python3-pandas python3-dask
  python3-distributed python3-pytest)
NUVIK_PYTHON=${NUVIK_PYTHON:-/usr/bin/python3}
JOBS=$(nproc 2>/dev/null || echo 2)
# The five predictors alone, then two-slot ensembles (the second slot dominates).
DEMO_ENSEMBLES=(stat_counter linear double_linear markov_chain3_invalidate knn_regression
  stat_counter,markov_chain3_invalidate knn_regression,markov_chain3_invalidate
  markov_chain3_invalidate,double_linear)

deps() {
  [ $# -gt 0 ] || set -- "${PACKAGES[@]}"
  local packages=("$@")
  command -v dpkg-query >/dev/null || { echo "not a Debian system: install ${packages[*]} by hand" >&2; return 0; }
  local missing=() package
  for package in "${packages[@]}"; do
    dpkg-query -W -f='${Status}' "$package" 2>/dev/null | grep -q 'install ok installed' || missing+=("$package")
  done
  [ ${#missing[@]} -eq 0 ] && return 0
  echo "installing: ${missing[*]}" >&2
  local sudo=""
  [ "$(id -u)" -eq 0 ] || sudo=sudo
  $sudo apt-get update -qq
  DEBIAN_FRONTEND=noninteractive $sudo apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null
}

configure() {
  local dir=$1
  shift
  cmake -S . -B "$dir" -DNUVIK_WERROR=ON "$@" >/dev/null
}

build() {
  configure "$@"
  cmake --build "$1" -j "$JOBS"
}

case "${1:-}" in
  deps) deps ;;
  demo)
    deps
    configure build -DCMAKE_BUILD_TYPE=Release
    cmake --build build -j "$JOBS" --target nuvik-replay
    ./build/tools/nuvik-replay data/sample-launches.csv --compare "${DEMO_ENSEMBLES[@]}"
    ;;
  test)
    deps
    build build
    # The Python suite runs with ./dev.sh python.
    ctest --test-dir build --output-on-failure -j "$JOBS" -LE python
    ;;
  python)
    deps
    deps "${PYTHON_PACKAGES[@]}"
    build build -DNUVIK_BUILD_PYTHON=ON -DNUVIK_PYTHON="$NUVIK_PYTHON"
    ctest --test-dir build --output-on-failure -j "$JOBS" -L python
    ;;
  sanitize)
    deps
    # The Python module cannot load a sanitized library into an ordinary interpreter.
    build build-sanitize -DNUVIK_SANITIZE=ON -DNUVIK_BUILD_PYTHON=OFF -DCMAKE_BUILD_TYPE=RelWithDebInfo
    ASAN_OPTIONS=detect_leaks=1:abort_on_error=1 UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1 \
      ctest --test-dir build-sanitize --output-on-failure -j "$JOBS"
    ;;
  *)
    sed -n '2,7s/^# \{0,1\}//p' "$0" >&2
    exit 2
    ;;
esac
