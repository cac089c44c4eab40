#!/bin/bash
# Sets everything up, builds and runs all tests: a release build with every
# test (including the outside readers on the example case), and a debug
# build, in which every array index is checked, running the unit and run tests.
set -euo pipefail
cd "$(dirname "$0")/.."
jobs=$(nproc)

scripts/setup.sh --tests Release build
(cd build && ctest --output-on-failure -j"$jobs")

scripts/setup.sh Debug build-debug
(cd build-debug && ctest --output-on-failure -j"$jobs" -E example_case_outside_readers)
