#!/usr/bin/env bash
# The log-law validation: builds the rough open channel of
# validation/rough-channel.txt, runs it (60 s of flow, a few minutes on two
# cores), and fits its mean profile against the log law.
#
#   bash validation/run.sh [WORKDIR]
#
# Prints the fitted von Karman constant and roughness function; writes the
# profile (loglaw-profile.csv) and its plot (loglaw-profile.png) into WORKDIR
# (default: a fresh folder under /tmp).  Needs the programs built (scripts/
# example.sh or scripts/setup.sh) and pvpython with xvfb-run.
set -euo pipefail
here="$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)"
root="$(cd "$here/.." && pwd)"
work="${1:-$(mktemp -d /tmp/riverles-validation.XXXXXX)}"
mkdir -p "$work"
"$root/build/riverles-case" "$here/rough-channel.txt" "$work/channel.cgn"
echo "running the rough channel in $work ..."
(cd "$work" && OMP_NUM_THREADS="${OMP_NUM_THREADS:-2}" "$root/build/riverles" channel.cgn < /dev/null > run.log)
last=$(ls "$work"/riverles_stats_*.cgns | tail -n 1)
runner=""
command -v xvfb-run > /dev/null && runner="xvfb-run -a"
# Depth 0.1 over the bed at 0, roughness height 5 mm, statistics from 20 s.
$runner pvpython "$here/loglaw_fit.py" "$last" "$work/riverles_monitor.csv" 0.1 0.005 20 \
  "$work/loglaw-profile.png" "$work/loglaw-profile.csv"
