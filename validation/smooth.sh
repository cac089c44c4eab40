#!/usr/bin/env bash
# The smooth-wall validation: the open channel of validation/smooth-channel.txt
# at Re_tau = 180 against the direct simulation of Moser, Kim and Mansour
# (validation/data/mkm-chan180.csv), with the design's treatment
# (SolidRestItm 0, WallViscosityItm 0) and with what riverles-case writes.
# A trip first (2.5 times the discharge, 150 s, the design's treatment),
# then both runs continue its state at time 0, one thread each, side by side.
#
#   bash validation/smooth.sh [WORKDIR]
#
# Writes WORKDIR/{trip,design,corrected}/ and in the last two fit.log,
# profile.csv, profile.png, profile-stresses.png, profile-summary.txt; the
# table of both as WORKDIR/table.md (printed).  About 40 minutes on two
# cores.  Needs the programs built, pvpython with xvfb-run.
set -euo pipefail
here="$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)"
root="$(cd "$here/.." && pwd)"
work="${1:-$(mktemp -d /tmp/riverles-smooth.XXXXXX)}"
mkdir -p "$work/trip" "$work/design" "$work/corrected"
runner=""
command -v xvfb-run > /dev/null && runner="xvfb-run -a"

# The trip: what it changes of the case, appended (later lines win).
{ cat "$here/smooth-channel.txt"
  printf '%s\n' "dischargeItm 2.2167e-3" "amplitudeItm 0.03" "endtimeItm 150.0" "StatisticsItm 0" \
    "HotoutItm 1" "dtHotoutItm 150.0" "SolidRestItm 0" "WallViscosityItm 0"; } > "$work/trip/channel.txt"
"$root/build/riverles-case" "$work/trip/channel.txt" "$work/trip/channel.cgn" 2> "$work/trip/case.log"
echo "tripping the channel in $work/trip ..."
(cd "$work/trip" && OMP_NUM_THREADS=2 "$root/build/riverles" channel.cgn < /dev/null > run.log)

restart=("HotstartItm 1" "StartfileItm $work/trip/channel.dat" "TimeInitialItm 0")
{ cat "$here/smooth-channel.txt"; printf '%s\n' "${restart[@]}" "SolidRestItm 0" "WallViscosityItm 0"; } \
  > "$work/design/channel.txt"
{ cat "$here/smooth-channel.txt"; printf '%s\n' "${restart[@]}"; } > "$work/corrected/channel.txt"
for r in design corrected; do
  "$root/build/riverles-case" "$work/$r/channel.txt" "$work/$r/channel.cgn" 2> "$work/$r/case.log"
  echo "running $r in $work/$r ..."
  (cd "$work/$r" && OMP_NUM_THREADS=1 "$root/build/riverles" channel.cgn < /dev/null > run.log 2> errors.log) &
done
wait
for r in design corrected; do
  last=$(ls "$work/$r"/channel_stats_*.cgns | tail -n 1)
  # Depth 0.1, viscosity 1e-6, width 0.3141593, statistics from 400 s.
  $runner pvpython "$here/smooth_fit.py" "$last" "$work/$r/channel_monitor.csv" 0.1 1e-6 0.3141593 400 \
    "$work/$r/profile.png" "$work/$r/profile.csv" > "$work/$r/fit.log"
  echo "$r:"
  cat "$work/$r/fit.log"
done

{
  printf '| | DNS | design | corrected |\n|---|---|---|---|\n'
  for row in "re_tau:Re_tau from the momentum balance:178" "ub_plus:bulk velocity U_b+:15.68" \
    "cf:skin friction 2 (u*/U_b)^2:8.14e-3" "urms_peak:u' peak / u*:2.658" "urms_peak_yplus:its z+:15.3" \
    "uw_peak:-u'w' peak / u*^2:0.723" "uw_peak_yplus:its z+:30" "U_rms_diff:rms difference of U+ over the depth:0" \
    "urms_rms_diff:rms difference of u'+:0" "wrms_rms_diff:rms difference of w'+ (wall-normal):0" \
    "vrms_rms_diff:rms difference of v'+ (spanwise):0" "uw_rms_diff:rms difference of -u'w'+:0" \
    "first_node_yplus:first node above the wall, z+:"; do
    key="${row%%:*}"; rest="${row#*:}"
    printf '| %s | %s |' "${rest%%:*}" "${rest#*:}"
    for r in design corrected; do
      printf ' %s |' "$(awk -v k="$key" '$1 == k { printf "%.4g", $2 }' "$work/$r/profile-summary.txt")"
    done
    printf '\n'
  done
} > "$work/table.md"
cat "$work/table.md"
