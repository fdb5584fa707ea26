#!/usr/bin/env bash
# Mipmap generation, whole process, single thread: `orx maketx` against
# OpenImageIO's `maketx --threads 1` on the same 4096 x 4096 RGBA 8-bit noise
# image (uncompressed TIFF for maketx; the same pixels as RLA for orx, which
# reads RLA without plug-ins).  Prints farm-bench's table (wall seconds and
# peak memory, A = orx, B = maketx).
#   bench/maketx_vs_oiio.sh [build dir, default build/release] [runs, default 3]
set -euo pipefail
build=${1:-build/release}
runs=${2:-3}
orx=$(realpath "$build/tools/orx")
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cd "$work"
oiiotool --pattern noise:type=uniform:min=0:max=1 4096x4096 4 -d uint8 --compression none \
  -o noise.tif
oiiotool noise.tif -o noise.rla
farm-bench -n "$runs" --timeout 600 --vs "maketx --threads 1 noise.tif -o out.tx" \
  -- "$orx" maketx noise.rla out.rla
