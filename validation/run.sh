#!/usr/bin/env bash
# The rough open-channel validation: the channel of validation/rough-channel.txt
# at two resolutions (96 x 48 x 32 cells, 60 s of flow, statistics from 20 s;
# and 48 x 24 x 16 cells, 30 s, statistics from 10 s), each with the
# corrections riverles-case writes and with the design's treatment
# (SolidRestItm 0, WallViscosityItm 0).  Each run is fitted against the log
# law, its intensities set against Nezu and Nakagawa's curves and its bed
# stress against the momentum balance (validation/loglaw_fit.py).
#
#   bash validation/run.sh [WORKDIR] [fine|coarse]
#
# Writes per run WORKDIR/RUN/{run.log,fit.log,profile.csv,profile.png,
# profile-intensities.png,profile-summary.txt} and the table of all runs as
# WORKDIR/table.md (printed).  About 25 minutes on two cores for both
# resolutions, 1 minute for the coarse one alone.  Needs the programs built
# (scripts/example.sh or scripts/setup.sh), pvpython with xvfb-run, and h5py
# for the bed stress.
set -euo pipefail
here="$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)"
root="$(cd "$here/.." && pwd)"
work="${1:-$(mktemp -d /tmp/riverles-validation.XXXXXX)}"
only="${2:-}"
mkdir -p "$work"
runner=""
command -v xvfb-run > /dev/null && runner="xvfb-run -a"

# run NAME TSTART EXTRA-LINES...: make the case from the description plus the
# extra lines, run it, fit it.
run() {
  local name="$1" tstart="$2"
  shift 2
  local dir="$work/$name"
  mkdir -p "$dir"
  { cat "$here/rough-channel.txt"; printf '%s\n' "$@"; } > "$dir/channel.txt"
  "$root/build/riverles-case" "$dir/channel.txt" "$dir/channel.cgn" 2> "$dir/case.log"
  echo "running $name in $dir ..."
  (cd "$dir" && OMP_NUM_THREADS="${OMP_NUM_THREADS:-2}" "$root/build/riverles" channel.cgn < /dev/null > run.log)
  local last
  last=$(ls "$dir"/channel_stats_*.cgns | tail -n 1)
  # Depth 0.1 over the bed at 0, roughness height 5 mm.
  $runner pvpython "$here/loglaw_fit.py" "$last" "$dir/channel_monitor.csv" 0.1 0.005 "$tstart" \
    "$dir/profile.png" "$dir/profile.csv" > "$dir/fit.log"
  cat "$dir/fit.log"
}

coarse=("nodes 49 25" "kmaxItm 4" "endtimeItm 30.0" "StatsStartItm 10.0")
runs=()
if [ "$only" != coarse ]; then
  run fine-corrected 20
  run fine-design 20 "SolidRestItm 0" "WallViscosityItm 0"
  runs+=(fine-design fine-corrected)
fi
if [ "$only" != fine ]; then
  run coarse-corrected 10 "${coarse[@]}"
  run coarse-design 10 "${coarse[@]}" "SolidRestItm 0" "WallViscosityItm 0"
  runs+=(coarse-design coarse-corrected)
fi

# The table: one column per run, the figures of each fit's summary.
{
  printf '| |'
  for r in "${runs[@]}"; do printf ' %s |' "$r"; done
  printf '\n|---|'
  for r in "${runs[@]}"; do printf -- '---|'; done
  printf '\n'
  for row in "force_x:mean force_x (m/s2)" "ustar_balance:u* from the momentum balance (m/s)" \
    "B_041:B with kappa 0.41 (law 8.5)" "kappa_free:kappa, kappa and B free" "B_free:B, kappa and B free" \
    "rms_from_law:rms of u/u* from the law" "bed_stress:plan mean MeanBedShearStressX (Pa)" \
    "balance_stress:momentum balance (Pa)" "wall_ustar_ratio:wall law's u* / balance's" \
    "urms_ratio:u'/u* over Nezu-Nakagawa (mean ratio)" "vrms_ratio:v'/u* over Nezu-Nakagawa" \
    "wrms_ratio:w'/u* over Nezu-Nakagawa" "urms_dev:u' rms relative difference" \
    "vrms_dev:v' rms relative difference" "wrms_dev:w' rms relative difference"; do
    key="${row%%:*}"
    printf '| %s |' "${row#*:}"
    for r in "${runs[@]}"; do
      printf ' %s |' "$(awk -v k="$key" '$1 == k { printf "%.4g", $2 }' "$work/$r/profile-summary.txt")"
    done
    printf '\n'
  done
} > "$work/table.md"
cat "$work/table.md"
