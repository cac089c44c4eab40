#!/bin/bash
# Started by the MPI launcher: with one process a run is the run without
# the launcher (the same console, the same results, bit for bit); with 2, 3
# and 4 it is the run of one process to 1e-6 (console, results, saved states
# and a restart from them on another count, Tecplot, statistics, monitor log
# and probes), over cases of every boundary and wall option.
#   check_launch.sh MPIEXEC RIVERLES RIVERLES_CASE SOURCE_DIR RESULTS_CLOSE
set -uo pipefail
mpiexec=$1 riverles=$2 casetool=$3 src=$4 results_close=$5
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
fail() { echo "FAILED: $*"; exit 1; }

{ grep -v '^endtimeItm' "$src/examples/flat-channel.txt"; printf 'endtimeItm 0.6\n'; } > "$work/flat.txt"
for d in plain launched; do
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
diffs=$(cd "$work" && cgnsdiff -d -f plain/flat.cgn launched/flat.cgn 2>&1)
[ -z "$diffs" ] || fail "the results differ under the launcher: $(head -5 <<<"$diffs")"
echo "one process under the launcher: console and $n results identical"

# Several processes: the flat channel on 2 and 4, the dune bed on 2, the
# pressure solved tightly (the relaxation order at the process edges changes
# the last digits, as threads do): the same status blocks, each step's time
# step and time within 1e-6 relative, every result value within 1e-6.
{ grep -v '^endtimeItm' "$src/examples/flat-channel.txt"
  printf 'endtimeItm 0.3\nMonitorItm 0\nStopNonFiniteItm 0\nStatisticsItm 0\nepsItm 1e-10\nkpoismaxItm 200\n'; } > "$work/tight.txt"
{ grep -v '^endtimeItm\|^OTimeItm\|^MonitorItm\|^StatisticsItm\|^StopNonFiniteItm\|^HotoutItm\|^TecplotItm' "$src/examples/dune-bed.txt"
  printf 'endtimeItm 0.1\nOTimeItm 0.04\nMonitorItm 0\nStopNonFiniteItm 0\nStatisticsItm 0\nepsItm 1e-10\nkpoismaxItm 200\n'; } > "$work/dunes.txt"
same_run() {  # directory of the one-process run, directory of the other
  python3 - "$1/out.txt" "$2/out.txt" 2>&1 <<'PY' || return 1
import sys
def blocks(path):
    out = []
    for line in open(path):
        if line.startswith("Time Step") or line.startswith("Time  "):
            out.append(float(line.split("=")[1]))
    return out
a, b = blocks(sys.argv[1]), blocks(sys.argv[2])
if len(a) != len(b) or not a:
    sys.exit("%d status blocks against %d" % (len(a) // 2, len(b) // 2))
worst = max(abs(x - y) / abs(x) for x, y in zip(a, b))
if worst > 1e-6:
    sys.exit("a time step or time differs by %.2g relative" % worst)
PY
  # The same tree, and every field of every result within 1e-6 of its
  # largest value (the pressure, some 1e4 Pa, to its own size).
  local d
  d=$(cd "$work" && cgnsdiff -f "$1/case.cgn" "$2/case.cgn" 2>&1)
  [ -z "$d" ] || { echo "$d" | head -3; return 1; }
  "$results_close" "$1/case.cgn" "$2/case.cgn" 1e-6 || return 1
}
# Cases of the other options, the plan counts odd: periodic y cut across
# (2 x 2 blocks), a W cycle, the smooth inverse-distance wall law (A); side
# walls, a no-slip top, the smooth trilinear law, 3 blocks (B); the rough
# inverse-distance law (C).
for c in A:28:22:0:0:1:0:2 B:28:14:1:1:0:0:1 C:33:9:1:0:1:2:1; do
  IFS=: read -r name nx ny yb zb ibm bed gamma <<<"$c"
  { grep -v '^nodes\|^extent\|^endtimeItm\|^MonitorItm\|^StatisticsItm\|^StopNonFiniteItm\|^HotoutItm\|^TecplotItm' "$src/examples/dune-bed.txt"
    printf 'nodes %s %s\nextent 1.0 %s\nyBoundItm %s\nzBoundItm %s\niIBMItm %s\nBedItm %s\nRoughItm 5.0\n' \
      "$nx" "$ny" "$(python3 -c "print(($ny - 1) / 27)")" "$yb" "$zb" "$ibm" "$bed"
    printf 'iCycleItm %s\nigammaItm %s\n' "$((gamma == 1))" "$gamma"
    printf 'timetypeItm 1\ntimestepItm 0.01\nendtimeItm 0.1\nOTimeItm 0.03\nMonitorItm 0\nStopNonFiniteItm 0\nStatisticsItm 0\nepsItm 1e-10\nkpoismaxItm 200\n'; } > "$work/opt$name.txt"
done
# Steep dunes through the box with the smooth trilinear law and periodic
# sides: image points near x = 0 wrap across the periodic face to the far
# end of the box, others march past the halo of a cut (their owners sample
# them); two results before the end.
printf '%s\n' 'nodes 33 17' 'extent 1.0 0.5' 'bed dunes 0.05 0.125 0.3 0.02' 'zminItm -0.06' 'zmaxItm 0.11' \
  'kmaxItm 4' 'yBoundItm 0' 'dischargeItm 0.01' 'timetypeItm 0' 'cflItm 0.2' 'iIBMItm 0' 'BedItm 0' \
  'endtimeItm 0.05' 'OTimeItm 0.02' 'epsItm 1e-13' 'kpoismaxItm 300' 'MonitorItm 0' 'StatisticsItm 0' \
  'StopNonFiniteItm 0' > "$work/steep.txt"
# The pool-riffle example (a surveyed bed).
cp "$src/examples/pool-riffle.asc" "$work/"
{ grep -v '^endtimeItm\|^OTimeItm\|^MonitorItm\|^StatisticsItm\|^StopNonFiniteItm' "$src/examples/pool-riffle.txt"
  printf 'timetypeItm 1\ntimestepItm 0.05\nendtimeItm 0.5\nOTimeItm 0.15\nMonitorItm 0\nStopNonFiniteItm 0\nStatisticsItm 0\nepsItm 1e-10\nkpoismaxItm 200\n'; } > "$work/pool.txt"
# An open reach over dunes between side walls, ten steps: the inflow
# generator on the blocks at the inlet, the outflow on those at the outlet,
# 2 x 2 blocks on 4 processes (the inlet's rows cut); and on 2 threads.
printf '%s\n' 'nodes 25 33' 'extent 0.96 0.64' 'bed dunes 0.01 0.32 0.0 0.01' 'zminItm -0.01' 'zmaxItm 0.11' \
  'kmaxItm 4' 'dischargeItm 0.012' 'timetypeItm 1' 'timestepItm 0.02' 'endtimeItm 0.2' 'OTimeItm 0.06' 'open' \
  'epsItm 1e-10' 'kpoismaxItm 200' 'MonitorItm 0' 'StatisticsItm 0' 'StopNonFiniteItm 0' > "$work/open.txt"
# Runs the case of description DESC.txt in folder NAME on NP processes
# (of THREADS threads, 1 unless given).
launch() {  # DESC NAME NP [THREADS]
  mkdir -p "$work/$2"
  "$casetool" "$work/$1.txt" "$work/$2/case.cgn" > /dev/null || fail "riverles-case $1"
  (cd "$work/$2" && OMP_NUM_THREADS=${4:-1} "$mpiexec" -n "$3" --oversubscribe "$riverles" case.cgn < /dev/null > out.txt 2> err.txt) ||
    fail "$1 on $3 processes: $(tail -3 "$work/$2/err.txt")"
}
launch open open-t2 1 2
for run in open:1 open:2 open:4 tight:1 tight:2 tight:4 dunes:1 dunes:2 steep:1 steep:2 steep:4 optA:1 optA:4 optB:1 optB:3 optC:1 optC:2 pool:1 pool:4; do
  desc=${run%%:*} np=${run##*:}
  launch "$desc" "$desc-$np" "$np"
  if [ "$run" = open:1 ]; then
    why=$(same_run "$work/open-1" "$work/open-t2") || fail "the open reach on 2 threads against one: $why"
    echo "open reach on 2 threads: the run of one thread to 1e-6"
  fi
  [ "$np" = 1 ] && continue
  why=$(same_run "$work/$desc-1" "$work/$desc-$np") || fail "$desc on $np processes against one: $why"
  echo "$desc on $np processes: the run of one process to 1e-6 ($(grep -c '^Step Number' "$work/$desc-$np/out.txt") steps, $(ls "$work/$desc-$np"/case.cgn.results/FlowSolution*.cgns | wc -l) results)"
done

# Two output files of runs on different process counts: the same records,
# each quantity within 1e-6 of its largest value.  Saved states and Tecplot
# files by runs of lines of one width (each column a quantity); CSV files by
# column (a probe's u, v, w, p together over all probes; wall seconds,
# Poisson cycles and the divergence follow the relaxation order and are left
# out); accumulators beside a saved state by array (the first sample's time
# and the time averaged over and the mean driving force to 1e-6).
close_files() {  # FILE1 FILE2 (relative to the work folder)
  python3 - "$work/$1" "$work/$2" 2>&1 <<'PY'
import csv, struct, sys
def quantities(path):
    if path.endswith(".csv"):
        rows = list(csv.reader(open(path)))
        groups = {}
        for c, name in enumerate(rows[0]):
            if name not in ("wall_seconds", "poisson_cycles", "max_divergence"):
                groups.setdefault(name.rstrip("0123456789"), []).append(c)
        return rows[0], [[float(r[c]) for r in rows[1:] for c in cols] for cols in groups.values()]
    if path.endswith(".stats"):
        b = open(path, "rb").read()
        I, J, K = struct.unpack("3i", b[8:20])
        n3, n2 = (I + 2) * (J + 2) * (K + 2), (I + 2) * (J + 2)
        count = 14 * n3 + 10 * n2
        v = struct.unpack("%dd" % count, b[52:52 + 8 * count])
        out, at = [struct.unpack("d", b[n:n + 8]) for n in (28, 36, 44)], 0
        for n in [n3] * 14 + [n2] * 10:
            out.append(v[at:at + n]); at += n
        # The save's step and time close the file.
        step, time = struct.unpack("=id", b[52 + 8 * count:])
        out.append((time,))
        return (b[:28], step, len(b) - 52 - 8 * count), out
    segs, width = [], None
    for line in open(path):
        try:
            t = [float(x) for x in line.split()]
        except ValueError:
            continue  # a Tecplot header
        if len(t) != width:
            segs.append([]); width = len(t)
        segs[-1].append(t)
    return [(len(s), len(s[0])) for s in segs], [[r[c] for r in s] for s in segs for c in range(len(s[0]))]
(ka, a), (kb, b) = quantities(sys.argv[1]), quantities(sys.argv[2])
if ka != kb or [len(x) for x in a] != [len(y) for y in b]:
    sys.exit("the records differ in shape")
for n, (x, y) in enumerate(zip(a, b)):
    big = max(max(abs(v) for v in x), 1e-300)
    worst = max(abs(p - q) for p, q in zip(x, y)) / big
    if worst > 1e-6:
        sys.exit("quantity %d differs by %.2g of its largest value" % (n + 1, worst))
PY
}
same_files() {  # FOLDER1 FOLDER2 PATTERN...: the same files in both, each close
  local f n=0
  for f in $(cd "$work/$1" && ls ${@:3}); do
    n=$((n + 1))
    if [[ $f == *.cgns ]]; then
      d=$(cd "$work" && cgnsdiff -d -t1e-6 "$1/$f" "$2/$f" 2>&1)
      [ -z "$d" ] || { echo "$f: $(head -3 <<<"$d")"; return 1; }
    else
      d=$(close_files "$1/$f" "$2/$f") || { echo "$f: $d"; return 1; }
    fi
  done
  echo "$n"
}

# Saved states, Tecplot files and statistics (the files and the
# accumulators kept beside the saved state): written on two processes, the
# files of one process to 1e-6; a restart from the two processes' state on
# four and on one: the same run, the same files.
{ cat "$work/tight.txt"; printf 'HotoutItm 1\ndtHotoutItm 0.15\noutfileItm state\nTecplotItm 1\ndtTecplotItm 0.1\n'
  printf 'StatisticsItm 1\nStatsStartItm 0.05\ndtStatsItm 0.1\n'; } > "$work/save.txt"
launch save save-1 1
launch save save-2 2
n=$(same_files save-1 save-2 state.dat state.stats 'state*.plt' 'state_stats_*.cgns') || fail "two processes: $n"
[ "$n" = 8 ] || fail "one process wrote $n of the 8 files (state, accumulators, 3 Tecplot, 3 statistics)"
{ grep -v '^endtimeItm' "$work/save.txt"
  printf 'endtimeItm 0.45\nHotstartItm 1\nStartfileItm %s\nTimeInitialItm 1\n' "$work/save-2/state.dat"; } > "$work/restart.txt"
launch restart restart-1 1
launch restart restart-4 4
saved=$(head -1 "$work/save-2/state.dat" | cut -d' ' -f1)
[ "$(grep -m1 '^Step Number' "$work/restart-4/out.txt")" = "Step Number        = $((saved + 1))" ] ||
  fail "the restart on four processes does not go on from step $saved"
why=$(same_run "$work/restart-1" "$work/restart-4") || fail "restart on four processes against one: $why"
grep -q 'statistics continue from' "$work/restart-4/err.txt" || fail "the restart on four did not continue the statistics"
n=$(same_files restart-1 restart-4 'state*.plt' 'state_stats_*.cgns') || fail "the restart on four: $n"
echo "saved state, Tecplot and statistics files on two processes: those of one process to 1e-6; restarted on four: the restart on one to 1e-6"

# The monitor log and probes: written once, by the first process, with the
# values of one process to 1e-6; the health warning printed once.  Probes on
# both sides of the cuts of four blocks (x = 0.25, 0.5, 0.75), at the box's
# faces and in the bed.
printf '# x y z\n0.25 0.15 0.05\n0.5 0.1 0.02\n0.74 0.2 0.08\n0.0 0.0 0.0\n1.0 0.3 0.1\n0.3 0.15 -0.005\n' > "$work/probes.txt"
{ grep -v '^MonitorItm' "$work/tight.txt"
  printf 'MonitorItm 1\nVelocityLimitItm 1.2\nProbeFileItm %s\noutfileItm mon\n' "$work/probes.txt"; } > "$work/mon.txt"
launch mon mon-1 1
launch mon mon-4 4
n=$(same_files mon-1 mon-4 mon_monitor.csv mon_probes.csv) || fail "four processes: $n"
warn() { grep 'warning: |' "$1" | sed 's/ = [0-9.e+-]* is/ is/'; }
[ "$(warn "$work/mon-1/err.txt" | wc -l)" = 1 ] || fail "the velocity warning of one process: $(cat "$work/mon-1/err.txt")"
[ "$(warn "$work/mon-4/err.txt")" = "$(warn "$work/mon-1/err.txt")" ] ||
  fail "the velocity warning on four processes: $(grep warning "$work/mon-4/err.txt")"
echo "monitor log and probes on four processes: those of one to 1e-6, the warning once and the same"

# The image-point march's warning: once for the run, with the count of one
# process (a forcing point in the reach of two blocks counted once; before,
# each process warned with its own count, 20 and 30 for 50 here).  A spike
# through the lid breaks the march of the trilinear law.
python3 -c "
for j in range(5):
    for i in range(9):
        x, y = 0.1 * i, 0.1 * j
        print(x, y, 0.5 if 0.25 < x < 0.55 and 0.05 < y < 0.35 else 0.02)" > "$work/spike.xyz"
printf '%s\n' 'nodes 9 5' 'extent 0.8 0.4' "bed xyz $work/spike.xyz" 'zminItm 0.0' 'zmaxItm 0.2' 'kmaxItm 3' \
  'yBoundItm 1' 'BedItm 1' 'iIBMItm 0' 'timetypeItm 1' 'timestepItm 0.01' 'endtimeItm 0.05' 'iPerturbItm 1' \
  'amplitudeItm 0.01' 'StopFailedItm 0' 'MonitorItm 0' 'StatisticsItm 0' > "$work/spike.txt"
launch spike spike-1 1
launch spike spike-2 2
march() { grep 'image-point march' "$1" | sed 's/ (first: .*)//'; }
[ -n "$(march "$work/spike-1/err.txt")" ] || fail "the spike gave no march warning: $(cat "$work/spike-1/err.txt")"
[ "$(march "$work/spike-2/err.txt")" = "$(march "$work/spike-1/err.txt")" ] ||
  fail "the march warning on 2 processes: $(grep 'image-point' "$work/spike-2/err.txt")"
echo "the march warning on 2 processes: once, the count of one process"

# A count that cannot split the plan (4 processes on the spike's 8 x 4) is
# refused before the case is touched: its results stay as they were.
before=$(cd "$work/spike-1" && ls case.cgn.results | sort | tr '\n' ' ')
(cd "$work/spike-1" && OMP_NUM_THREADS=1 "$mpiexec" -n 4 --oversubscribe "$riverles" case.cgn < /dev/null > refused.txt 2> refused.err) &&
  fail "4 processes on an 8 x 4 plan were not refused"
grep -q "4 processes cannot share a plan of 8 x 4 columns.*the case is left as it was" "$work/spike-1/refused.err" ||
  fail "the refusal: $(cat "$work/spike-1/refused.err")"
[ "$(cd "$work/spike-1" && ls case.cgn.results | sort | tr '\n' ' ')" = "$before" ] ||
  fail "the refused run changed the case's results: $before"
echo "a refused process count leaves the case as it was"

# Processes given different cases (here by the launcher; a case rewritten
# while they open it does the same): before, each ran its own end time and
# the run hung at the first collective call where they parted.  Now all stop
# with the read error and say why.
{ grep -v '^endtimeItm' "$work/tight.txt"; printf 'endtimeItm 0.5\n'; } > "$work/longer.txt"
mkdir -p "$work/split"
"$casetool" "$work/tight.txt" "$work/split/a.cgn" > /dev/null && "$casetool" "$work/longer.txt" "$work/split/b.cgn" > /dev/null ||
  fail "riverles-case for the split launch"
(cd "$work/split" && OMP_NUM_THREADS=1 timeout 120 "$mpiexec" -n 1 "$riverles" a.cgn : -n 1 "$riverles" b.cgn \
  < /dev/null > out.txt 2> err.txt)
status=$?
[ "$status" != 0 ] && [ "$status" != 124 ] || fail "processes with different cases: exit status $status"
grep -qx 'Error in reading the cgn file ...' "$work/split/out.txt" || fail "different cases: $(cat "$work/split/out.txt")"
grep -q 'read different cases' "$work/split/err.txt" || fail "different cases: $(cat "$work/split/err.txt")"
echo "processes given different cases stop at once with the read error"
