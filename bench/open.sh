#!/usr/bin/env bash
# Cost of the open reach's inflow and outflow per step: the channel of
# validation/open-channel.txt (96 x 16 x 16 cells) and the example reach
# (examples/open-reach.txt, 240 x 40 x 32), each run as an open reach and
# as the periodic box (`detrend`), 10 s of flow, then 50 steps timed on the
# final state by riverles_open_bench.  Prints a table (microseconds a step).
#
#   bash bench/open.sh [THREADS]
set -euo pipefail
here="$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)"
root="$(cd "$here/.." && pwd)"
threads="${1:-2}"
cmake -S "$root" -B "$root/build" -DCMAKE_BUILD_TYPE=Release > /dev/null
cmake --build "$root/build" --target riverles_open_bench riverles-case -j 2 > /dev/null
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cp "$root/examples/open-reach.asc" "$work/"
echo "| case | cells | box | step | open faces | boundaries | pressure solve (cycles) |"
echo "|---|---|---|---|---|---|---|"
for c in "channel:$root/validation/open-channel.txt" "reach:$root/examples/open-reach.txt"; do
  name=${c%%:*} desc=${c#*:}
  for box in open periodic; do
    { grep -v '^open\|^endtimeItm\|^StatsStartItm\|^dtStatsItm\|^OTimeItm' "$desc"
      if [ "$box" = open ]; then grep '^open' "$desc" || echo open; else echo detrend; fi
      printf 'endtimeItm 10.0\nOTimeItm 10.0\nStatisticsItm 0\nMonitorItm 0\n'; } > "$work/$name-$box.txt"
    (cd "$work" && "$root/build/riverles-case" "$name-$box.txt" "$name-$box.cgn" 2> /dev/null)
    line=$(cd "$work" && OMP_NUM_THREADS=$threads "$root/build/bench/riverles_open_bench" "$name-$box.cgn" 50 < /dev/null 2> /dev/null)
    IFS=, read -r cells th step faces bnd pois cyc <<< "$line"
    echo "| $name | $cells | $box | $step | $faces | $bnd | $pois ($cyc) |"
  done
done
