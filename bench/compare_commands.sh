#!/usr/bin/env bash
# Times whole commands against each other: each command given (one shell
# string each) runs RUNS times, in turn with the others so that a machine
# whose speed drifts slows them all alike, after one warm-up run each.
# Prints, per command, the median, minimum and maximum wall milliseconds, the
# median peak resident memory (GNU time, /usr/bin/time, Debian package
# "time") and the ratio of its median wall time to the first command's.
# --before runs a command, untimed, before every run (to remove the outputs
# of the last one, say).
#   bench/compare_commands.sh [--before 'COMMAND'] RUNS 'COMMAND A' 'COMMAND B' ...
set -euo pipefail
before=true
if [ "$1" = --before ]; then
  before=$2
  shift 2
fi
runs=$1
shift
commands=("$@")
log=$(mktemp)
trap 'rm -f "$log" "$log.peak"' EXIT

median() { sort -g | awk '{v[NR] = $1} END {print (NR % 2) ? v[(NR + 1) / 2] : (v[NR / 2] + v[NR / 2 + 1]) / 2}'; }

for c in "${!commands[@]}"; do  # warm-up, which also checks that each command works
  bash -c "$before"
  if ! bash -c "${commands[$c]}" >"$log" 2>&1; then
    echo "command $((c + 1)) failed: ${commands[$c]}" >&2
    cat "$log" >&2
    exit 1
  fi
done
: >"$log"
for ((r = 0; r < runs; r++)); do
  for c in "${!commands[@]}"; do
    bash -c "$before"
    start=$(date +%s%N)
    /usr/bin/time -f "%M" -o "$log.peak" bash -c "${commands[$c]}" >/dev/null 2>&1 ||
      echo "command $((c + 1)) failed: ${commands[$c]}" >&2
    end=$(date +%s%N)
    echo "$c $(((end - start) / 1000)) $(cat "$log.peak")" >>"$log"
  done
done

first=""
printf '%-4s %9s %9s %9s %10s %7s  %s\n' "" "median ms" min max "peak MiB" ratio command
for c in "${!commands[@]}"; do
  walls=$(awk -v c="$c" '$1 == c {print $2 / 1000}' "$log")
  med=$(median <<<"$walls")
  min=$(sort -g <<<"$walls" | head -1)
  max=$(sort -g <<<"$walls" | tail -1)
  peak=$(awk -v c="$c" '$1 == c {print $3 / 1024}' "$log" | median)
  first=${first:-$med}
  printf '%-4s %9.1f %9.1f %9.1f %10.1f %7.3f  %s\n' "$((c + 1))" "$med" "$min" "$max" "$peak" \
    "$(awk -v a="$med" -v b="$first" 'BEGIN {print a / b}')" "${commands[$c]}"
done
