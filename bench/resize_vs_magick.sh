#!/usr/bin/env bash
# Whole-process resize of a 3840x2160 RGBA 8-bit noise image to 1920x1080
# with Lanczos-3, single thread: orx resize (RLA in and out) against
# ImageMagick's convert -limit thread 1 -filter Lanczos (uncompressed TIFF in,
# since it reads no RLA file of more than one row).  Prints
# compare_commands.sh's table (ratios to orx).
#   bench/resize_vs_magick.sh [build dir, default build/release] [runs, default 3]
set -euo pipefail
build=${1:-build/release}
runs=${2:-3}
orx=$(realpath "$build/tools/orx")
here=$(cd "$(dirname "$0")" && pwd)
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cd "$work"
oiiotool --pattern noise:type=uniform:min=0:max=1 3840x2160 4 -d uint8 --compression none \
  -o uhd.tif
oiiotool uhd.tif -o uhd.rla
"$here/compare_commands.sh" "$runs" \
  "'$orx' resize uhd.rla hd.rla --size 1920x1080 --filter lanczos3" \
  "convert -limit thread 1 uhd.tif -filter Lanczos -resize 1920x1080! hd.tif"
