#!/bin/bash
# Runs the flat-channel example and hands its case file to outside readers:
# cgnscheck (no errors, no warnings at levels 1 and 2), ParaView's CGNS
# reader (one time step per result, the six arrays) and its Tecplot reader
# (the node grid and the five fields of a Tecplot file); then riverles-view
# makes its pictures of the run, which must not be empty.
#   check_example.sh RIVERLES RIVERLES_CASE SOURCE_DIR
set -uo pipefail
riverles=$1 casetool=$2 src=$3
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
fail() { echo "FAILED: $*"; exit 1; }

# The example with Tecplot files at t = 2 and 4 as well.
{ cat "$src/examples/flat-channel.txt"; printf 'TecplotItm 1\ndtTecplotItm 2.0\n'; } > "$work/flat.txt"
"$casetool" "$work/flat.txt" "$work/flat.cgn" || fail "riverles-case"
(cd "$work" && "$riverles" flat.cgn < /dev/null > run.log) || fail "riverles exit status $?"
results=$(( $(grep -c '^Writing Orva output' "$work/run.log") + 1 ))
echo "riverles: $(grep -c '^Step Number' "$work/run.log") steps, $results results"

if command -v cgnscheck > /dev/null; then
  for level in 1 2; do
    cgnscheck -w$level "$work/flat.cgn" > "$work/check$level.log" 2>&1
    # Shown problems start with "WARNING:" or "ERROR:"; the closing count
    # line must report none shown.
    if grep -Eq '^ *(WARNING|ERROR)' "$work/check$level.log" ||
       ! grep -Eq '(^| )0 shown|^checking complete' "$work/check$level.log" ||
       grep -Eq '[1-9][0-9]* errors?' "$work/check$level.log" ||
       grep -Eq '\(([1-9][0-9]*) shown\)' "$work/check$level.log"; then
      cat "$work/check$level.log"
      fail "cgnscheck level $level"
    fi
  done
  echo "cgnscheck: no errors, no warnings at levels 1 and 2"
else
  echo "cgnscheck not installed (Debian package cgns-convert): skipped"
fi

if command -v pvpython > /dev/null; then
  # The ParaView steps share one virtual X server: a server started for each
  # step may find the display of the one before not yet free.
  cat > "$work/pv.sh" <<EOF
set -u
pvpython "$src/tests/pv_check_case.py" "$work/flat.cgn" "$results" "$work/flat2.plt" ||
  { echo "FAILED: ParaView readers"; exit 1; }
# The standard pictures of the run (its statistics included), not empty.
"$src/scripts/riverles-view" "$work/flat.cgn" "$work/pictures" > "$work/view.log" 2>&1 ||
  { cat "$work/view.log"; echo "FAILED: riverles-view"; exit 1; }
pvpython "$src/tests/pv_check_images.py" "$work"/pictures/{section,plan,vortices,profile,bedstress,depth-averaged}.png ||
  { echo "FAILED: riverles-view pictures"; exit 1; }
# What riverles-paraview loads into ParaView: the .cgn through the CGNS
# reader, every result and array.
RIVERLES_CASE="$work/flat.cgn" pvpython "$src/scripts/paraview_open.py" > "$work/open.log" 2>&1 &&
  grep -q "results, arrays Coherent, Pressure, Velocity, Vorticity" "$work/open.log" ||
  { cat "$work/open.log"; echo "FAILED: riverles-paraview's opening"; exit 1; }
EOF
  if command -v xvfb-run > /dev/null; then
    # The search for a free display starts at a number of this run's own:
    # two suites at once (a developer's and a build's) both starting at
    # :99 could take the same one.
    # Two suites at once (a developer's beside a build's) may still race
    # for one display, and the loser's clients find no X server: once more
    # then, elsewhere.
    if ! xvfb-run -a -n $((100 + $$ % 400)) bash "$work/pv.sh" > "$work/pv.log" 2>&1; then
      grep -qs "bad X server connection" "$work/pv.log" "$work"/*.log || { cat "$work/pv.log"; exit 1; }
      echo "the virtual X server dropped its connection: once more"
      xvfb-run -a -n $((500 + $$ % 400)) bash "$work/pv.sh" > "$work/pv.log" 2>&1 || { cat "$work/pv.log"; exit 1; }
    fi
    cat "$work/pv.log"
  else
    bash "$work/pv.sh" || exit 1
  fi
else
  echo "pvpython not installed (Debian package python3-paraview): skipped"
fi
echo "outside readers: OK"
