#!/usr/bin/env bash
# The row kernels of the pipeline, whole process and single thread, each
# against the nearest operation of the peers on the machine in one run:
# quantize (float to 8-bit), gamma (8-bit re-encoding), colour transform (a
# 3x3 matrix on float RGB), the display chain (cast, colour, clamp,
# quantize, gamma of an image that fits the framebuffer), mipmap generation
# (the box reduction of every level) and texture lookups (through
# OpenImageIO's texture system and orx's, each from its own texture of the
# same pixels).  orx and oiiotool read the same RLA file; vips, ImageMagick
# and Pillow an uncompressed TIFF of the same pixels.  Peers that are not
# installed are left out.  Prints, per operation, compare_commands.sh's
# table, then one line each: orx's median, the fastest peer's, their ratio.
#   bench/row_kernels_vs_peers.sh [build dir, default build/release] [runs, default 5] [WxH]
set -euo pipefail
build=${1:-build/release}
runs=${2:-5}
size=${3:-2048x2048}
orx=$(realpath "$build/tools/orx")
here=$(cd "$(dirname "$0")" && pwd)
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cd "$work"
export OMP_NUM_THREADS=1 VIPS_CONCURRENCY=1 MAGICK_THREAD_LIMIT=1
py=/usr/bin/python3
have() { command -v "$1" >/dev/null; }
has_pil() { "$py" -c 'import PIL' 2>/dev/null; }

oiiotool --pattern noise:type=uniform:min=0:max=1 "$size" 4 -d uint8 --compression none -o in8.tif
oiiotool in8.tif -o in8.rla
oiiotool in8.tif -d float --compression none -o inf.tif
oiiotool inf.tif -o inf.rla
oiiotool --pattern noise:type=uniform:min=0:max=1 1280x1024 4 -d uint8 -o fb8.rla
oiiotool fb8.rla --compression none -o fb8.tif

summary=()
# run NAME COMMAND... : the first command is orx's.
run() {
  local name=$1
  shift
  echo "== $name"
  local table
  table=$("$here/compare_commands.sh" --before 'rm -f o.* o_*' "$runs" "$@")
  echo "$table"
  summary+=("$(awk -v n="$name" 'NR == 2 {orx = $2} NR > 2 && (best == "" || $2 < best) {best = $2}
    END {printf "%-18s %8.1f ms %8.1f ms %5.2f\n", n, orx, best, best ? orx / best : 0}' <<<"$table")")
}

# Quantize: float samples to 8-bit codes.
cmds=("'$orx' copy --depth int8 inf.rla o.rla" "oiiotool --threads 1 inf.rla -d uint8 -o o.rla")
have vips && cmds+=("vips linear inf.tif o.tif 255 0 --uchar")
have convert && cmds+=("convert inf.tif -depth 8 o.tif")
run quantize "${cmds[@]}"

# Gamma: 8-bit codes re-encoded to gamma 2.2 through a table.
cmds=("'$orx' copy --gamma 2.2 in8.rla o.rla" "oiiotool --threads 1 in8.rla --powc 0.4545 -d uint8 -o o.rla")
have vips && cmds+=("vips gamma in8.tif o.tif --exponent 2.2")
have convert && cmds+=("convert in8.tif -gamma 2.2 o.tif")
has_pil && cmds+=("$py -c \"from PIL import Image; i = Image.open('in8.tif'); i.point([min(255, int(255 * (v % 256 / 255) ** 0.4545 + 0.5)) for v in range(1024)]).save('o.tif')\"")
run gamma "${cmds[@]}"

# Colour transform: float RGB to other primaries, a 3x3 matrix per pixel.
cmds=("'$orx' copy --depth float --primaries pal inf.rla o.rla"
      "oiiotool --threads 1 inf.rla --ccmatrix 0.9,0.1,0,0.05,0.9,0.05,0,0.1,0.9 -o o.rla")
have vips && cmds+=("vips recomb inf.tif o.tif mat.txt")
printf '4 4\n0.9 0.1 0 0\n0.05 0.9 0.05 0\n0 0.1 0.9 0\n0 0 0 1\n' >mat.txt
have convert && cmds+=("convert inf.tif -color-matrix '0.9 0.1 0 0.05 0.9 0.05 0 0.1 0.9' o.tif")
run colour "${cmds[@]}"

# Display: an 8-bit image that fits the default framebuffer (1280x1024),
# linearised, moved to the framebuffer's primaries, clamped, quantized and
# gamma-encoded.
cmds=("'$orx' copy --display default fb8.rla o.rla"
      "oiiotool --threads 1 fb8.rla --ccmatrix 0.9,0.1,0,0.05,0.9,0.05,0,0.1,0.9 --clamp:min=0:max=1 --powc 0.4545 -d uint8 -o o.rla")
have vips && cmds+=("vips colourspace fb8.tif o.tif scrgb")
have convert && cmds+=("convert fb8.tif -color-matrix '0.9 0.1 0 0.05 0.9 0.05 0 0.1 0.9' -gamma 2.2 -depth 8 o.tif")
run display "${cmds[@]}"

# Mipmap: every level of a box-filtered texture, written as one file.
cmds=("'$orx' maketx in8.rla o.rla" "maketx --threads 1 --filter box in8.tif -o o.tx")
has_pil && cmds+=("$py -c \"
from PIL import Image
i = Image.open('in8.tif'); levels = [i]
while i.size != (1, 1):
    i = i.reduce((2 if i.size[0] > 1 else 1, 2 if i.size[1] > 1 else 1)); levels.append(i)
levels[0].save('o.tif', save_all=True, append_images=levels[1:])\"")
run mipmap "${cmds[@]}"

# In memory, where an orx_bench binary is given (ORX_BENCH, from the bench
# preset): the same kernels without the files, against OpenImageIO's, and
# texture lookups (orx's texture against OpenImageIO's TextureSystem on the
# same texels), which no command line times.
if [ -n "${ORX_BENCH:-}" ]; then
  pairs=("quantize (memory):BM_OpQuantizeFloatTo8:BM_OiioConvertFloatTo8"
         "cast (memory):BM_OpCast8ToFloat:BM_OiioConvert8ToFloat"
         "colour (memory):BM_RgbTransformFloat:BM_OiioColorMatrixFloat"
         "lookups (memory):BM_TextureLookup:BM_OiioTextureLookup")
  filter=$(printf '%s\n' "${pairs[@]}" | awk -F: '{printf "%s%s|%s", (NR > 1 ? "|" : ""), $2, $3}')
  "$ORX_BENCH" --benchmark_filter="^($filter)\$" --benchmark_repetitions="$((runs > 1 ? runs : 2))" \
    --benchmark_report_aggregates_only=true --benchmark_format=csv 2>/dev/null >mem.csv
  for p in "${pairs[@]}"; do
    IFS=: read -r name ours theirs <<<"$p"
    summary+=("$(awk -F, -v n="$name" -v a="\"${ours}_median\"" -v b="\"${theirs}_median\"" \
      '$1 == a {x = $4; u = $5} $1 == b {y = $4; v = $5}
       END {printf "%-18s %8.1f %-2s %8.1f %-2s %5.2f\n", n, x, u, y, v, (y && u == v) ? x / y : 0}' mem.csv)")
  done
fi

echo
printf '%-18s %11s %11s %5s\n' operation orx "best peer" ratio
printf '%s\n' "${summary[@]}"
