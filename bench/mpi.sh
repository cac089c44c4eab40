#!/usr/bin/env bash
# Whole steps over several processes, timed with 1 and 2 processes (one
# thread each) and with 1 process of 2 threads, at about 1 and 4 million
# cells: a dune channel, periodic in x, side walls in y, TIMESTEP and the
# step's own list of routines (bench/mpi_step.cpp).  Prints the Markdown
# tables of each run.
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
for size in "128 64 128 6" "256 128 128 3"; do
  for run in "1 1" "2 1" "1 2"; do
    read -r procs threads <<<"$run"
    # The console of the steps (the divergence pause lists the cells above
    # its threshold while the flow settles) is left out.
    OMP_NUM_THREADS=$threads mpiexec -np "$procs" --oversubscribe --bind-to none \
      "$build/bench/riverles_mpi_bench" $size </dev/null | grep -E '^\||cells'
    echo
  done
done
