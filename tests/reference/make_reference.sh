#!/bin/bash
# Writes the reference of the regression test: the console output and the
# saved state of the dune example over about 20 steps with one thread.
# Only for a deliberate change of results; speed-ups must leave it as it is.
#   tests/reference/make_reference.sh BUILD_DIR
set -euo pipefail
here=$(cd "$(dirname "$0")" && pwd)
build=$(cd "$1" && pwd)
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cat "$here/../../examples/dune-bed.txt" "$here/dune-regression.txt" > "$work/case.txt"
"$build/riverles-case" "$work/case.txt" "$work/case.cgn"
(cd "$work" && OMP_NUM_THREADS=1 "$build/riverles" case.cgn < /dev/null > console.log)
cp "$work/console.log" "$here/dune-regression.console"
cp "$work/state.dat" "$here/dune-regression.state"
wc -l "$here/dune-regression.console" "$here/dune-regression.state"
