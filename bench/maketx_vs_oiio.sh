#!/usr/bin/env bash
# Mipmap generation, whole process, single thread: `orx maketx` against
# OpenImageIO's `maketx --threads 1` on the same 4096 x 4096 RGBA 8-bit noise
# image (uncompressed TIFF for maketx; the same pixels as RLA for orx, which
# reads RLA without plug-ins).  Prints compare_commands.sh's table (wall
# seconds and peak memory; ratios to orx).
#   bench/maketx_vs_oiio.sh [build dir, default build/release] [runs, default 3]
set -euo pipefail
build=${1:-build/release}
runs=${2:-3}
orx=$(realpath "$build/tools/orx")
here=$(cd "$(dirname "$0")" && pwd)
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cd "$work"
oiiotool --pattern noise:type=uniform:min=0:max=1 4096x4096 4 -d uint8 --compression none \
  -o noise.tif
oiiotool noise.tif -o noise.rla
"$here/compare_commands.sh" "$runs" "'$orx' maketx noise.rla out.rla" \
  "maketx --threads 1 noise.tif -o out.tx"
