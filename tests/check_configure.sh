#!/bin/bash
# MPI is optional: a configure where the MPI compiler wrapper names an
# include folder without mpi.h (the runtime without its development files)
# succeeds and says it builds without MPI; the same build folder configured
# again with a wrapper whose headers are there takes MPI in.
#   check_configure.sh SOURCE_DIR
set -uo pipefail
src=$1
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
fail() { echo "FAILED: $*"; exit 1; }

mkdir -p "$work/bin"
printf '#!/bin/sh\necho "gcc -I%s/missing/include -L%s/missing/lib -lmpi"\n' "$work" "$work" > "$work/bin/mpicc"
chmod +x "$work/bin/mpicc"
out=$(cmake -S "$src" -B "$work/build" -DMPI_C_COMPILER="$work/bin/mpicc" 2>&1) ||
  fail "the configure stopped: $(grep -m3 -i error <<<"$out")"
grep -q "riverles: building without MPI: .*names no folder that holds mpi.h" <<<"$out" ||
  fail "no word of building without MPI: $(tail -5 <<<"$out")"
grep -q "RIVERLES_MPI" "$work/build/CMakeFiles/riverles_core.dir/flags.make" && fail "MPI is compiled in"
echo "configured without MPI where its headers are missing"

real=$(command -v mpicc) || { echo "no MPI installed here: the second half is skipped"; exit 0; }
out=$(cmake -S "$src" -B "$work/build" -DMPI_C_COMPILER="$real" 2>&1) || fail "the second configure stopped"
grep -q "building without MPI" <<<"$out" && fail "MPI was not taken in: $(grep 'without MPI' <<<"$out")"
grep -q "RIVERLES_MPI" "$work/build/CMakeFiles/riverles_core.dir/flags.make" || fail "MPI is not compiled in"
echo "the same build folder configured again with the headers present: MPI taken in"
