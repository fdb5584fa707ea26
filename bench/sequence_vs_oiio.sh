#!/usr/bin/env bash
# A sequence conversion, whole processes: 100 frames of 1920x1080 RGBA 16-bit
# RLA (grainy noise, as renders have) copied with `orx copy --frames` on one
# thread and on two, and with `oiiotool --frames` (its default threads) on the
# same frames, each run writing new files.  Prints compare_commands.sh's table
# (ratios to orx -j 1).
# Needs about 5 GB of disk beside the build.
#   bench/sequence_vs_oiio.sh [build dir, default build/release] [runs, default 3] [frames, default 100]
set -euo pipefail
build=${1:-build/release}
runs=${2:-3}
frames=${3:-100}
orx=$(realpath "$build/tools/orx")
here=$(cd "$(dirname "$0")" && pwd)
work=$(mktemp -d -p "${TMPDIR:-/tmp}")
trap 'rm -rf "$work"' EXIT
cd "$work"
oiiotool --pattern noise:type=gaussian:mean=0.5:stddev=0.05 1920x1080 4 -d uint16 \
  --compression none -o grain.tif
"$orx" copy grain.tif in.0001.rla  # oiiotool marks 16-bit RLA channels in a way the reader refuses
for ((f = 2; f <= frames; f++)); do cp in.0001.rla "$(printf 'in.%04d.rla' "$f")"; done
# Each run writes afresh: replacing the last run's files would time the file
# system's freeing of them too.
"$here/compare_commands.sh" --before 'rm -f a.* b.* c.*; sync' "$runs" \
  "'$orx' copy in.####.rla a.####.rla --frames 1-$frames -j 1" \
  "'$orx' copy in.####.rla b.####.rla --frames 1-$frames -j 2" \
  "oiiotool --frames 1-$frames in.#.rla -o c.#.rla"
