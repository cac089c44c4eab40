#!/usr/bin/env bash
# Whole steps over several processes, timed with 1 and 2 processes (one
# thread each) and with 1 process of 2 threads, at about 1 and 4 million
# cells: a dune channel, periodic in x, side walls in y, TIMESTEP and the
# step's own list of routines (bench/mpi_step.cpp).
#
# This machine's speed wanders by 10-30 % from minute to minute, so the
# three runs are made in turn, REPEATS times (5 by default), and each
# 2-process and 2-thread figure is set against the 1-process run just
# before it.  Prints the Markdown tables of the first round's runs, then
# every round's whole steps, their ratios and the medians of the ratios.
#
#   bash bench/mpi.sh        (builds Release in build/ first)
set -euo pipefail

here="$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)"
root="$(cd "$here/.." && pwd)"
build="$root/build"
cmake -S "$root" -B "$build" -DCMAKE_BUILD_TYPE=Release >/dev/null
cmake --build "$build" --target riverles_mpi_bench -j "${JOBS:-2}" >/dev/null
# A container's root user, and more processes than cores where needed.
export OMPI_ALLOW_RUN_AS_ROOT=1 OMPI_ALLOW_RUN_AS_ROOT_CONFIRM=1
repeats="${REPEATS:-5}"
work="$(mktemp -d)"
trap 'rm -rf "$work"' EXIT
for size in "128 64 128 8" "256 128 128 3"; do
  : >"$work/times"
  for ((r = 1; r <= repeats; ++r)); do
    for run in "1 1" "2 1" "1 2"; do
      read -r procs threads <<<"$run"
      # One thread a process: the launcher's own binding of each process
      # to a core, as a user's run gets it; two threads: the process may
      # use both cores.
      bind=()
      ((threads > 1)) && bind=(--bind-to none)
      # The console of the steps (the divergence pause lists the cells
      # above its threshold while the flow settles) is left out.
      OMP_NUM_THREADS=$threads mpiexec -np "$procs" --oversubscribe "${bind[@]}" \
        "$build/bench/riverles_mpi_bench" $size </dev/null | grep -E '^\||cells' >"$work/out"
      if ((r == 1)); then
        cat "$work/out"
        echo
      fi
      grep -F '**whole step**' "$work/out" | awk -F'|' '{gsub(/[* ]/, "", $3); printf "%s ", $3}' >>"$work/times"
    done
    echo >>"$work/times"
  done
  read -r ni nj nk _ <<<"$size"
  echo "$ni x $nj x $nk cells: seconds per step, the three runs of each round in turn"
  echo
  python3 -c '
import statistics, sys
rows = [[float(x) for x in line.split()] for line in open(sys.argv[1]) if line.strip()]
print("| round | 1 process | 2 processes | 2 / 1 | 1 process, 2 threads | 2 threads / 1 |")
print("|---:|---:|---:|---:|---:|---:|")
for n, (a, b, c) in enumerate(rows, 1):
    print("| %d | %.4f | %.4f | %.2f | %.4f | %.2f |" % (n, a, b, b / a, c, c / a))
print("| **median** | %.4f | %.4f | **%.2f** | %.4f | **%.2f** |" % (
    statistics.median(r[0] for r in rows), statistics.median(r[1] for r in rows),
    statistics.median(r[1] / r[0] for r in rows), statistics.median(r[2] for r in rows),
    statistics.median(r[2] / r[0] for r in rows)))' "$work/times"
  echo
done
