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
To look at them: riverles-paraview out/$example.cgn  (needs the Debian package
'paraview'): ParaView opens the case with its CGNS reader, every array ticked, at
the last result; step through time with the animation buttons. (ParaView's own
File > Open does not know the .cgn extension: choose "All Files" and the "CGNS
Series Reader".) Pictures without ParaView's window: riverles-view out/$example.cgn
The programs are commands now: riverles, riverles-case, riverles-view,
riverles-paraview (links in /usr/local/bin).
MSG
