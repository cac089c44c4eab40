#!/bin/bash
# Sets everything up, writes an example case and runs it end to end.
#   scripts/example.sh [flat-channel|dune-bed]
set -euo pipefail
cd "$(dirname "$0")/.."
example=${1:-flat-channel}

scripts/setup.sh Release build

mkdir -p out
rm -rf "out/$example.cgn" "out/$example.cgn.results"
build/riverles-case "examples/$example.txt" "out/$example.cgn"
echo "Running riverles on out/$example.cgn ..."
start=$(date +%s%N)
# The examples are small (4,096 cells): one thread runs them fastest, and
# keeps a busy laptop responsive.  Set OMP_NUM_THREADS to choose otherwise.
(cd out && OMP_NUM_THREADS="${OMP_NUM_THREADS:-1}" ../build/riverles "$example.cgn" < /dev/null > "$example.log")
end=$(date +%s%N)
grep -v "^Writing" "out/$example.log" | tail -n 7
ms=$(( (end - start) / 1000000 ))
printf 'Run time: %d.%03d s; console log in out/%s.log\n' $((ms / 1000)) $((ms % 1000)) "$example"
ls -l "out/$example.cgn"; du -sh "out/$example.cgn.results"
cat <<MSG

The results are in out/$example.cgn: a time series of the velocity (VelocityX/Y/Z,
shown by ParaView as the vector Velocity), Pressure, Vorticity and Coherent (the Q
criterion) on the 3-D node grid, beside the input grid and its Elevation (the case
links the bulk data, which lies in out/$example.cgn.results/).
To look at them: paraview out/$example.cgn  (Debian package 'paraview'); in the
reader's properties keep the base ResultBase selected, tick the point arrays
(they are offered unticked), press Apply, and step through time.
MSG
