#!/usr/bin/env bash
# The open reach against the periodic box: the channel of
# validation/open-channel.txt run periodic (300 s, statistics from 20 s) and
# open (50 flow-throughs, 615 s, statistics from 60 s; with the recycled
# inflow and with synthetic eddies), compared by
# validation/open_compare.py: the mean profile and the intensities of the
# open reach at stations from 5 depths behind the inlet to the outlet
# against the periodic box's, the discharge at the inlet and the outlet at
# every step, and the divergence and the intensities by the outlet over the
# run.  About 8 minutes on two cores.  Needs the programs built and h5py
# (Debian's python3-h5py) for /usr/bin/python3.
#
#   bash validation/open.sh [WORKDIR]
set -euo pipefail
here="$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)"
root="$(cd "$here/.." && pwd)"
work="${1:-$(mktemp -d /tmp/riverles-open.XXXXXX)}"
mkdir -p "$work"

# run NAME LINES...: the channel plus the lines, made and run in WORKDIR/NAME.
run() {
  local name="$1"
  shift
  local dir="$work/$name"
  mkdir -p "$dir"
  { cat "$here/open-channel.txt"; printf '%s\n' "$@"; } > "$dir/channel.txt"
  "$root/build/riverles-case" "$dir/channel.txt" "$dir/channel.cgn" 2> "$dir/case.log"
  echo "running $name in $dir ..."
  (cd "$dir" && OMP_NUM_THREADS="${OMP_NUM_THREADS:-2}" "$root/build/riverles" channel.cgn < /dev/null > run.log)
}

run periodic detrend "endtimeItm 300.0" "StatsStartItm 20.0" "dtStatsItm 280.0"
run open open "endtimeItm 615.0" "StatsStartItm 60.0" "dtStatsItm 555.0"
run eddies open "InflowTurbulenceItm 1" "endtimeItm 615.0" "StatsStartItm 60.0" "dtStatsItm 555.0"
{ echo "## recycled inflow (the default)"
  /usr/bin/python3 "$here/open_compare.py" "$work/periodic" "$work/open"
  echo
  echo "## synthetic eddies (InflowTurbulenceItm 1)"
  /usr/bin/python3 "$here/open_compare.py" "$work/periodic" "$work/eddies"; } | tee "$work/summary.txt"
