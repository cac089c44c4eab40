#!/bin/bash
# Installs what riverles needs on a Debian machine (as root) and builds it.
#   scripts/setup.sh [--tests] [BUILD_TYPE] [BUILD_DIR] [CMAKE OPTIONS...]
# --tests also installs the outside readers the tests use (cgnscheck,
# ParaView's Python, a virtual X server) and builds the tests; without it
# only riverles and riverles-case are built.
set -euo pipefail
cd "$(dirname "$0")/.."

with_tests=0
if [ "${1:-}" = "--tests" ]; then with_tests=1; shift; fi
build_type=${1:-Release}
build_dir=${2:-build}
shift $(( $# < 2 ? $# : 2 ))  # the rest goes to CMake

pkgs="g++ cmake make libcgns-dev libhdf5-dev libgtest-dev googletest libopenmpi-dev openmpi-bin"
[ $with_tests = 1 ] && pkgs="$pkgs cgns-convert python3-paraview xvfb xauth"
missing=""
for p in $pkgs; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || missing="$missing $p"
done
if [ -n "$missing" ]; then
  echo "Installing:$missing"
  export DEBIAN_FRONTEND=noninteractive
  apt-get update -qq
  apt-get install -y -qq $missing > /dev/null
fi

cmake -S . -B "$build_dir" -DCMAKE_BUILD_TYPE="$build_type" "$@" > /dev/null
# Without --tests only the two programs are built (a first run comes sooner).
if [ $with_tests = 1 ]; then
  cmake --build "$build_dir" -j"$(nproc)"
else
  cmake --build "$build_dir" -j"$(nproc)" --target riverles riverles-case
fi

# The programs as commands: links in /usr/local/bin where it can be written
# (as root, or with a user's own PATH entry there).
if [ -w /usr/local/bin ]; then
  for prog in "$build_dir/riverles" "$build_dir/riverles-case" scripts/riverles-view scripts/riverles-paraview; do
    ln -sf "$(readlink -f "$prog")" "/usr/local/bin/$(basename "$prog")"
  done
else
  echo "Note: /usr/local/bin is not writable: run the programs as $build_dir/riverles, $build_dir/riverles-case," \
       "scripts/riverles-view and scripts/riverles-paraview (or add those folders to PATH)"
fi
