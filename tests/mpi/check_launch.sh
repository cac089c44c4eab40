#!/bin/bash
# Started by the MPI launcher: with one process a run is the run without
# the launcher (the same console, the same results, bit for bit); with two
# it stops at once, before touching the case, with one note on standard
# error and nothing on standard output.
#   check_launch.sh MPIEXEC RIVERLES RIVERLES_CASE SOURCE_DIR
set -uo pipefail
mpiexec=$1 riverles=$2 casetool=$3 src=$4
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
fail() { echo "FAILED: $*"; exit 1; }

{ grep -v '^endtimeItm' "$src/examples/flat-channel.txt"; printf 'endtimeItm 0.6\n'; } > "$work/flat.txt"
for d in plain launched two; do
  mkdir -p "$work/$d"
  "$casetool" "$work/flat.txt" "$work/$d/flat.cgn" > /dev/null || fail "riverles-case"
done
(cd "$work/plain" && OMP_NUM_THREADS=1 "$riverles" flat.cgn < /dev/null > out.txt 2> err.txt) || fail "plain run"
(cd "$work/launched" && OMP_NUM_THREADS=1 "$mpiexec" -n 1 "$riverles" flat.cgn < /dev/null > out.txt 2> err.txt) ||
  fail "run under the launcher: $(cat "$work/launched/err.txt")"
cmp -s "$work/plain/out.txt" "$work/launched/out.txt" || fail "the console differs under the launcher"
# The results through the CGNS library, every value exactly (HDF5 may leave
# unused bytes of its own differing between two files of the same data).
n=$(ls "$work"/plain/flat.cgn.results/FlowSolution*.cgns | wc -l)
[ "$n" -ge 2 ] || fail "only $n results"
if command -v cgnsdiff > /dev/null; then
  diffs=$(cd "$work" && cgnsdiff -d -f plain/flat.cgn launched/flat.cgn 2>&1)
  [ -z "$diffs" ] || fail "the results differ under the launcher: $(head -5 <<<"$diffs")"
  echo "one process under the launcher: console and $n results identical"
else
  echo "one process under the launcher: console identical (cgnsdiff not installed: results not compared)"
fi

before=$(md5sum < "$work/two/flat.cgn")
(cd "$work/two" && OMP_NUM_THREADS=1 "$mpiexec" -n 2 --oversubscribe "$riverles" flat.cgn < /dev/null > out.txt 2> err.txt)
status=$?
[ $status -ne 0 ] || fail "two processes: exit status 0"
[ -s "$work/two/out.txt" ] && fail "two processes: standard output not empty: $(head -3 "$work/two/out.txt")"
[ "$(grep -c 'started on 2 processes' "$work/two/err.txt")" = 1 ] || fail "two processes: note: $(cat "$work/two/err.txt")"
[ "$(md5sum < "$work/two/flat.cgn")" = "$before" ] || fail "two processes: the case changed"
[ -e "$work/two/flat.cgn.results" ] && fail "two processes: results written"
echo "two processes: refused (status $status), one note, case untouched"
