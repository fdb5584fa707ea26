#!/usr/bin/env bash
# Peak memory of resizing a 16384 x 16384 RGBA 8-bit RLA file to 4096 x 4096
# with orx resize: the filter holds only the rows its kernel spans, so the
# peak must stay under the bound (16 MiB by default); exits 1 when it does
# not.  Too large for CI (the input is about 1 GiB of pixels).
#   bench/resize_memory.sh [build dir, default build/release] [bound in MiB]
set -euo pipefail
build=${1:-build/release}
bound=${2:-16}
orx=$(realpath "$build/tools/orx")
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cd "$work"
"$orx" pattern big.rla --size 16384x16384 --matte
/usr/bin/time -v "$orx" resize big.rla small.rla --size 4096x4096 2> time.txt
peak_kib=$(awk -F: '/Maximum resident set size/ {gsub(/ /, "", $2); print $2}' time.txt)
wall=$(awk -F': ' '/Elapsed \(wall clock\)/ {print $2}' time.txt)
echo "orx resize 16384x16384 -> 4096x4096: peak $((peak_kib / 1024)) MiB, wall $wall"
if [ "$((peak_kib / 1024))" -ge "$bound" ]; then
  echo "peak above the bound of $bound MiB" >&2
  exit 1
fi
