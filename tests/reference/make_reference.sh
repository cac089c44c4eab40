#!/bin/bash
# Remakes the references of the regression test (console and checksums of
# each case, one thread).  Only for a deliberate change of results: speed-ups
# and clean-ups must leave them as they are.
#   tests/reference/make_reference.sh BUILD_DIR
set -euo pipefail
cd "$1"
RIVERLES_UPDATE_REFERENCE=1 ./riverles_tests --gtest_filter='Regression.*'
