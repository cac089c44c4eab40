#!/usr/bin/env bash
# Start-up of a run, in steps: a 128 x 64 x 64 dune case (524,288 cells),
# run from a fresh case file 5 times in a row with 1 thread, then 5 times
# with all threads, then 5 times without OMP_NUM_THREADS (the run chooses).
# For each run: the seconds from the process start to the
# first status block, less one step (the median of steps 2..6), is the
# start-up; it is given in seconds and in steps of that run, then the
# medians of the five.  Prints a Markdown table.
#
# On a virtual machine, memory that no process has used for a while may
# first have to be fetched by the host: the first run of a series can then
# spend several tenths of a second more in the system's clearing of pages.
# The median leaves such a run out.
#
#   bash bench/startup.sh        (builds Release in build/ first)
set -euo pipefail

here="$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)"
root="$(cd "$here/.." && pwd)"
build="$root/build"
cmake -S "$root" -B "$build" -DCMAKE_BUILD_TYPE=Release >/dev/null
cmake --build "$build" --target riverles riverles-case -j "${JOBS:-2}" >/dev/null

work="$(mktemp -d)"
trap 'rm -rf "$work"' EXIT
cat >"$work/dunes.txt" <<'CASE'
nodes 129 65
extent 1.0 0.5
bed dunes 0.01 0.25 0.0 0.01
zminItm -0.01
zmaxItm 0.11
kmaxItm 6
dischargeItm 0.01
endtimeItm 0.04
OTimeItm 10.0
CASE

# Seconds from the process start to each status block's first line.
cat >"$work/stamp.py" <<'PY'
import subprocess, sys, time
t0 = time.monotonic()
p = subprocess.Popen(sys.argv[1:], stdout=subprocess.PIPE, stderr=subprocess.DEVNULL,
                     stdin=subprocess.DEVNULL, text=True)
for line in p.stdout:
    if line.startswith("Step Number"):
        print("%.4f" % (time.monotonic() - t0))
p.wait()
PY
# One run's start-up and step from its stamps; then the table rows.
cat >"$work/rows.py" <<'PY'
import statistics, sys
t = sys.argv[1]
runs = []
for line in sys.stdin:
    at = [float(x) for x in line.split()]
    step = statistics.median(at[k + 1] - at[k] for k in range(0, 6))
    runs.append((at[0] - step, step))
for start, step in runs:
    print("| %s | %.3f | %.4f | %.1f |" % (t, start, step, start / step))
print("| %s, median | %.3f | %.4f | **%.1f** |" % (t, statistics.median(s for s, _ in runs),
      statistics.median(d for _, d in runs), statistics.median(s / d for s, d in runs)))
PY

echo "| threads | start-up (s) | step (s) | start-up (steps) |"
echo "|---|---:|---:|---:|"
# "default": no OMP_NUM_THREADS, the run measures the idle cores itself.
for t in 1 "$(nproc)" default; do
  for rep in 1 2 3 4 5; do
    rm -rf "$work/case.cgn" "$work/case.cgn.results"
    (cd "$work" && "$build/riverles-case" dunes.txt case.cgn >/dev/null)
    if [ "$t" = default ]; then
      at=$(cd "$work" && env -u OMP_NUM_THREADS python3 stamp.py "$build/riverles" case.cgn | tr '\n' ' ')
    else
      at=$(cd "$work" && OMP_NUM_THREADS=$t python3 stamp.py "$build/riverles" case.cgn | tr '\n' ' ')
    fi
    if (($(wc -w <<<"$at") < 7)); then
      echo "the run ended before its seventh step" >&2
      exit 1
    fi
    echo "$at"
  done | python3 "$work/rows.py" "$t"
done
