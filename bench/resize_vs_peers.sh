#!/usr/bin/env bash
# Whole-process resize of a 3840x2160 RGBA 8-bit noise image to 1920x1080
# with Lanczos-3, single thread, in one run against the other resizers on
# the machine: libvips through sharp (when SHARP_DIR names a directory whose
# node_modules holds it: `npm install sharp` there), Debian's vips command
# line, Pillow (/usr/bin/python3) and ImageMagick.  Each reads an
# uncompressed file of its own (orx: RLA; the others: TIFF) and writes one.
# Peers that are not installed are left out; BASELINE_BUILD names another
# build directory whose orx runs too (an earlier version, say).  With
# SIZES=1 (the default for the 3840x2160 source) orx also resizes, in the
# same run, 16-bit and float versions of the source to half size, a source
# twice as large (7680x4320) to the same size and the source to twice its
# size, all Lanczos-3.  Prints compare_commands.sh's table: medians and the
# ratio of each to the first command (orx on the 8-bit source).  Every run
# writes a new file: the outputs of the last are removed, untimed, before
# it.  Replacing a file costs a flush of its data on ext4 (rename or
# truncation over an existing file), which would otherwise be timed for
# some programs and not others, and grows with the output's size.
#   bench/resize_vs_peers.sh [build dir, default build/release] [runs, default 7] [WxH source]
set -euo pipefail
build=${1:-build/release}
runs=${2:-7}
size=${3:-3840x2160}
orx=$(realpath "$build/tools/orx")
here=$(cd "$(dirname "$0")" && pwd)
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cd "$work"
w=${size%x*}
h=${size#*x}
dw=$((w / 2))
dh=$((h / 2))
oiiotool --pattern noise:type=uniform:min=0:max=1 "$size" 4 -d uint8 --compression none -o in.tif
oiiotool in.tif -o in.rla
# orx resize, by this build and (when given) the baseline's: arguments after
# the program, the output named after the build.
orx_cases=("in.rla %s.rla --size ${dw}x${dh}")
if [ "${SIZES:-$([ "$size" = 3840x2160 ] && echo 1 || echo 0)}" = 1 ]; then
  "$orx" copy in.rla in16.rla --depth int16
  "$orx" copy in.rla inf.rla --depth float
  oiiotool --pattern noise:type=uniform:min=0:max=1 $((2 * w))x$((2 * h)) 4 -d uint8 -o in2x.rla
  orx_cases+=("in16.rla %s16.rla --size ${dw}x${dh}" "inf.rla %sf.rla --size ${dw}x${dh}"
              "in2x.rla %s2x.rla --size ${dw}x${dh}" "in.rla %sup.rla --size $((2 * w))x$((2 * h))")
fi
orx_command() {  # program, case, output name
  # shellcheck disable=SC2059
  echo "'$1' resize $(printf "$2" "$3") --filter lanczos3"
}
commands=("$(orx_command "$orx" "${orx_cases[0]}" out)")
if [ -n "${BASELINE_BUILD:-}" ]; then
  commands+=("$(orx_command "$(realpath "$BASELINE_BUILD/tools/orx")" "${orx_cases[0]}" base)")
fi
if [ -n "${SHARP_DIR:-}" ] && [ -d "$SHARP_DIR/node_modules/sharp" ]; then
  cat >sharp.js <<JS
const sharp = require('$SHARP_DIR/node_modules/sharp');
sharp.concurrency(1);
sharp.cache(false);
sharp('in.tif').resize($dw, $dh, {kernel: 'lanczos3', fit: 'fill'}).toFile('sharp.tif');
JS
  commands+=("node sharp.js")
fi
if command -v vips >/dev/null; then
  commands+=("VIPS_CONCURRENCY=1 vips resize in.tif vips.tif 0.5 --kernel lanczos3")
fi
if /usr/bin/python3 -c 'import PIL' 2>/dev/null; then
  cat >pil.py <<PY
from PIL import Image
Image.open('in.tif').resize(($dw, $dh), Image.LANCZOS).save('pil.tif')
PY
  commands+=("/usr/bin/python3 pil.py")
fi
if command -v convert >/dev/null; then
  commands+=("convert -limit thread 1 in.tif -filter Lanczos -resize ${dw}x${dh}! magick.tif")
fi
for c in "${orx_cases[@]:1}"; do
  commands+=("$(orx_command "$orx" "$c" out)")
  if [ -n "${BASELINE_BUILD:-}" ]; then
    commands+=("$(orx_command "$(realpath "$BASELINE_BUILD/tools/orx")" "$c" base)")
  fi
done
"$here/compare_commands.sh" --before 'rm -f out*.rla base*.rla sharp.tif vips.tif pil.tif magick.tif' \
  "$runs" "${commands[@]}"
