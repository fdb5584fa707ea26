#!/bin/sh
# One slice of a frame sequence per element of a Slurm job array:
#   sbatch --array=0-19 --cpus-per-task=8 farm-job.sh COMMAND IN OUT FRAMES [OPTION...]
# for instance
#   sbatch --array=0-19 --cpus-per-task=8 farm-job.sh copy \
#     /shots/s010/plate.####.exr /shots/s010/png/plate.####.png 1001-1400
# Each element converts its own slice of FRAMES (--chunk auto) on the cores
# it was given, leaves the frames that are already complete (so submitting
# the array again does only what is missing), goes on past a failed frame
# and writes its summary as JSON to its own file, orx-JOB_INDEX.json, and
# its messages to orx-JOB_INDEX.log.  ORX names the tool when it is not on
# PATH (sbatch passes the submitting shell's environment on).
#SBATCH --job-name=orx
#SBATCH --output=%x-%A_%a.json
#SBATCH --error=%x-%A_%a.log
set -eu
command=$1 in=$2 out=$3 frames=$4
shift 4
exec "${ORX:-orx}" "$command" "$in" "$out" --frames "$frames" --chunk auto \
  --skip-existing --keep-going --json -j "${SLURM_CPUS_PER_TASK:-1}" "$@"
