#!/usr/bin/env bash
# A sequence conversion on this machine and through a Slurm job array on a
# one-node cluster of it (scripts/local-farm.sh, as root): FRAMES frames of
# 1920x1080 RGBA 16-bit RLA (grainy, as renders are) copied to 8-bit by
# `orx copy --frames` on one thread and on every core, by the job script of
# docs/sequences.md as an array of ELEMENTS single-core elements, by the
# same array over a list of one frame (its elements do nothing: what is
# left is the scheduler's own time), and by `oiiotool --frames`.  Prints
# compare_commands.sh's table (ratios to orx -j 1), then frames per second
# per core and the scheduler's time per element.
# Needs about 5 GB of disk beside the build.
#   bench/sequence_farm.sh [build dir, default build/release] [runs, default 3] [frames, default 200] [elements, default 8]
set -euo pipefail
build=${1:-build/release}
runs=${2:-3}
frames=${3:-200}
elements=${4:-8}
export ORX
ORX=$(realpath "$build/tools/orx")
here=$(cd "$(dirname "$0")" && pwd)
src=$(dirname "$here")
cores=$(nproc)
work=$(mktemp -d -p "${TMPDIR:-/tmp}")
export ORX_FARM_DIR=$work/cluster
trap '"$src/scripts/local-farm.sh" stop >/dev/null 2>&1 || true; rm -rf "$work"' EXIT
cd "$work"
cluster=$("$src/scripts/local-farm.sh" start)
eval "$cluster"
"$ORX" pattern in.0001.rla --size 1920x1080 --type int16 --matte
for ((f = 2; f <= frames; f++)); do cp in.0001.rla "$(printf 'in.%04d.rla' "$f")"; done

# Submits the array and returns when its last element has ended: squeue
# asked every 0.1 s, since `sbatch --wait` looks at 2, 10, 42... seconds.
cat >array.sh <<END
#!/bin/sh
job=\$(sbatch --parsable --array=0-$((elements - 1)) '$src/examples/farm-job.sh' "\$@") || exit 1
while [ -n "\$(squeue -h -r -j "\$job" -o %i 2>/dev/null)" ]; do sleep 0.1; done
! grep -L '"failed": \[\]' orx-"\$job"_*.json | grep -q .  # every element complete
END
chmod +x array.sh
array="./array.sh copy in.####.rla"
"$here/compare_commands.sh" --before 'rm -f a.* b.* c.* d.* e.* orx-*; sync' "$runs" \
  "'$ORX' copy in.####.rla a.####.rla --frames 1-$frames --depth int8 -j 1" \
  "'$ORX' copy in.####.rla b.####.rla --frames 1-$frames --depth int8 -j $cores" \
  "$array c.####.rla 1-$frames --depth int8" \
  "$array d.####.rla 1 --depth int8" \
  "oiiotool --frames 1-$frames in.#.rla -d uint8 -o e.#.rla" | tee table

median() { awk -v n="$1" '$1 == n { print $2 }' table; }
echo
awk -v f="$frames" -v c="$cores" -v e="$elements" -v one="$(median 1)" -v all="$(median 2)" \
  -v farm="$(median 3)" -v empty="$(median 4)" 'BEGIN {
  printf "frames/s per core: -j 1 %.2f, -j %d %.2f, job array %.2f\n", f / one, c, f / all / c, f / farm / c
  printf "scheduler time per element (%d elements, %d at a time): %.2f s\n", e, c, empty * c / e
}'
