#!/bin/bash
# Sets everything up, builds and runs all tests: a release build with every
# test (including the outside readers on the example case), and a debug
# build with every array index checked and the sanitizers on, running them all
# again.
set -euo pipefail
cd "$(dirname "$0")/.."
jobs=$(nproc)

scripts/setup.sh --tests Release build
(cd build && ctest --output-on-failure -j"$jobs")

# The checked build: every array index checked, AddressSanitizer and
# UndefinedBehaviorSanitizer on, over the whole suite and the example runs.
scripts/setup.sh --tests Debug build-debug -DRIVERLES_SANITIZE=ON
(cd build-debug && ASAN_OPTIONS=detect_leaks=0 ctest --output-on-failure -j"$jobs")
