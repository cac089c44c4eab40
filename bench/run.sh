#!/usr/bin/env bash
# Benchmark of the solver: one command.
#
#   bash bench/run.sh              build Release in build/, run the harness,
#                                  write bench/RESULTS.md
#   bash bench/run.sh --baseline   the same, and make this run the reference:
#                                  its figures go to bench/before.md and
#                                  bench/before.csv (commit them)
#   bash bench/run.sh --quick      only the small states (a check of the
#                                  harness, a few seconds)
#
# RESULTS.md = machine and build header, the tables of this run (with a
# before/after column against bench/before.csv), then the earlier figures of
# bench/before.md.  The run takes a few minutes on two cores; keep the machine
# otherwise idle for figures worth comparing.
set -euo pipefail

here="$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)"
root="$(cd "$here/.." && pwd)"
build="$root/build"
jobs="${JOBS:-2}"
# The OpenMP wait policy is the runtime's default, as in a run of the
# solver (a thread waits spinning for a while, then sleeps); with "passive"
# every parallel region pays for waking its threads.  Set OMP_WAIT_POLICY
# yourself to measure otherwise; the header records it.

baseline=0
quick=()
for a in "$@"; do
  case "$a" in
    --baseline) baseline=1 ;;
    --quick) quick=(--quick) ;;
    *) echo "usage: bash bench/run.sh [--baseline] [--quick]" >&2; exit 2 ;;
  esac
done

cmake -S "$root" -B "$build" -DCMAKE_BUILD_TYPE=Release >/dev/null
cmake --build "$build" --target riverles_bench -j "$jobs"

tables="$build/bench-tables.md"
csv="$build/bench-current.csv"
log="$build/bench-console.log"
before_csv=()
[[ -f "$here/before.csv" && $baseline -eq 0 ]] && before_csv=("$here/before.csv")

# The solver's console lines go to the log; stdin is empty, so a pause for
# the operator returns at once.
"$build/bench/riverles_bench" "$tables" "$csv" "${before_csv[@]}" "${quick[@]}" </dev/null >"$log"
# Console lines of the solver per state and phase (between the harness's
# markers).
pauses=$(awk '/^#bench /{sub(/^#bench /, ""); key=$0; order[++n]=key; c[key]=0; next}
              {c[key]++}
              END{for (i=1;i<=n;i++) printf "| %s | %d |\n", order[i], c[order[i]]}' "$log")
npause=$(grep -vc '^#bench ' "$log" || true)

cpu=$(grep -m1 'model name' /proc/cpuinfo | sed 's/.*: //')
cores=$(nproc)
cxx=$(grep -m1 '^CMAKE_CXX_COMPILER:' "$build/CMakeCache.txt" | sed 's/.*=//')
cxxver=$("$cxx" --version | head -1)
flags=$(grep -m1 '^CMAKE_CXX_FLAGS_RELEASE:' "$build/CMakeCache.txt" | sed 's/.*=//')
rev=$(git -C "$root" rev-parse --short HEAD 2>/dev/null || echo unknown)
srcrev=$(git -C "$root" log -1 --format=%h -- src 2>/dev/null || echo unknown)
dirty=$(git -C "$root" status --porcelain -- src 2>/dev/null | grep -q . && echo " (src modified)" || true)

header() {
  cat <<EOF
- Date: $(date -u '+%Y-%m-%d %H:%M UTC')
- Code: commit $rev, last change under src/ in $srcrev$dirty
- Machine: $cpu, $cores cores (nproc), $(free -g | awk '/^Mem:/{print $2}') GiB memory
- Compiler: $cxxver
- Flags: $flags -ffp-contract=off -fopenmp (Release)
- Threads: 1, and all ($cores) via omp_set_num_threads; OMP_WAIT_POLICY=${OMP_WAIT_POLICY:-unset (the runtime default)}
- Console lines of the solver during the run: $npause (see the end)

States, built in memory: x periodic, side walls (yBoundItm 1), free-slip top
(zBoundItm 0); plan cells 4 mm x 4 mm, 0.1 of water over kmax cells; CFL step
0.3, Smagorinsky 0.1, grain 1 mm (BedItm 1), V cycle, 2+2 sweeps, kpoismax 20,
eps 1e-4, target mean velocity 0.2. *flat*: flat bed at zmin = 0. *dunes*:
sine dunes along x, z = 0.01 + 0.01 sin(2 pi x / L), L about 0.25 (a whole
number of dunes in the length), box bottom at zmin = 0.005, so crests stand
above the bottom and troughs below it. Developed flow, synthetic: a log-law
mean streamwise velocity above the local bed (zero below it), plus uniform
noise of +-10 % of the local mean on u, v and w; the old velocities equal
the new ones; then 3 real steps (TIMESTEP, time += dt, ADVANCE) with all
threads before timing, so that flags, nut and the pressure are consistent.
Timed steps: each step = TIMESTEP + ADVANCE, every routine timed through the
step timer hook, summed over its calls in a step; the tables give the median
over the timed steps.
EOF
}

console() {
  cat <<EOF
### Console lines of the solver

DIVERGENCE prints the indices of every cell whose divergence after the
correction exceeds 0.01 and waits for a line of input; stdin is empty here, so
each wait ends at once, but the lines and their flushes are part of the time
of DIVERGENCE. The synthetic noise leaves such cells in the first steps after
a build; the timed phases should have none.

| state | phase | lines |
|---|---|---:|
$pauses
EOF
}

{
  echo "# Benchmark results"
  echo
  header
  echo
  echo "## This run"
  echo
  cat "$tables"
  echo
  console
} >"$build/bench-current.md"

if [[ $baseline -eq 1 ]]; then
  { echo "# Reference figures"; echo; header; echo; cat "$tables"; echo; console; } >"$here/before.md"
  cp "$csv" "$here/before.csv"
fi

{
  cat "$build/bench-current.md"
  if [[ -f "$here/analysis.md" ]]; then
    echo
    cat "$here/analysis.md"
  fi
  if [[ -f "$here/before.md" ]]; then
    echo
    echo "## Earlier figures (bench/before.md)"
    echo
    # Demote the headings of the earlier file by one level.
    sed -e 's/^# .*//' -e 's/^##/###/' "$here/before.md"
  fi
} >"$here/RESULTS.md"

echo "wrote $here/RESULTS.md"
