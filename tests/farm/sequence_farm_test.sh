#!/usr/bin/env bash
# A frame sequence through a real scheduler: a one-node Slurm cluster
# (scripts/local-farm.sh) runs the job script of docs/sequences.md
# (examples/farm-job.sh) as an array of 8 elements over 200 frames of
# 1920x1080 16-bit RGBA.  The farm's outputs are byte for byte those of one
# local -j 1 run; an element cancelled mid-way leaves no partial output
# under a real name and submitting the array again completes exactly the
# missing frames; a corrupt input fails its element (exit 2) and is named in
# that element's JSON summary.
#   sequence_farm_test.sh SOURCE_DIR ORX
# Skipped (77) without slurm-wlm and munge or without root, except in CI
# (CI=true), where the install script provides them and the test must run.
# Takes about 4.5 GB under $TMPDIR while it runs, and removes it.
set -euo pipefail
src=$1
export ORX=$2
frames=200 elements=8 broken=42 cancelled=5

# The job script docs/sequences.md shows is the one this test runs.
diff <(awk '$0 == "### A Slurm job array" { on = 1 } on && /^```/ { if (in_block) exit; in_block = 1; next } in_block' \
  "$src/docs/sequences.md") "$src/examples/farm-job.sh" || {
  echo "FAIL: docs/sequences.md does not show examples/farm-job.sh as it is"
  exit 1
}

skip() {
  if [[ ${CI:-} =~ ^(true|True|TRUE|1)$ ]]; then
    echo "FAIL: $* (CI must run this test; scripts/install-deps.sh installs slurm-wlm and munge)"
    exit 1
  fi
  echo "skipped: $*"
  exit 77
}
for tool in sbatch scancel squeue scontrol slurmctld slurmd munged; do
  command -v $tool >/dev/null || skip "$tool is not installed"
done
[ "$(id -u)" -eq 0 ] || skip "the local cluster runs as root"

work=$(mktemp -d "${TMPDIR:-/tmp}/orx-farm-test.XXXXXX")
export ORX_FARM_DIR=$work/cluster
# The cluster goes, with the frames, however the test ends.
trap '"$src/scripts/local-farm.sh" stop >/dev/null 2>&1 || true; rm -rf "$work"' EXIT
trap 'exit 1' INT TERM HUP
trap 'echo "FAIL: line $LINENO: $BASH_COMMAND"' ERR
cd "$work"
fail() {
  echo "FAIL: $*"
  tail -n 20 cluster/log/*.log orx-*.log 2>/dev/null
  exit 1
}
cluster=$("$src/scripts/local-farm.sh" start) || fail "the cluster did not start"
eval "$cluster"
since() { echo "$(($(date +%s%N) / 1000000 - $1))ms"; }
now() { echo $(($(date +%s%N) / 1000000)); }
name() { printf 'in.%04d.rla' "$1"; }
# From the controller's log: the time from job $1's first element starting
# to its last one ending (sbatch --wait only looks at 2, 10, 42... seconds).
makespan() {
  awk -v job="JobId=$1_" 'index($0, job) && /Allocate|backfill: Started|_job_complete.*done/ {
    split(substr($1, 13, 12), t, ":"); s = t[1] * 3600 + t[2] * 60 + t[3]
    if (first == "") first = s; last = s } END { printf "%.1fs", last - first }' cluster/log/slurmctld.log
}
# Field $2 of the JSON summary (one line) in file $1: a number or a list.
field() { sed -n "s/.*\"$2\": \(\[[^]]*\]\|[0-9]*\).*/\1/p" "$1"; }

# Every frame its own picture: the pattern, shifted by the frame number.
t=$(now)
"$ORX" pattern base.rla --size 2120x1080 --type int16 --matte
seq 1 $frames | xargs -P 2 -I @ sh -c '"$ORX" copy base.rla "$(printf in.%04d.rla @)" --crop @,0,$((@ + 1920)),1080'
rm base.rla
echo "inputs: $frames frames in $(since "$t")"

# The conversion every run does, and what a local run on one thread makes of it.
convert=(copy in.####.rla out.####.rla 1-$frames --depth int8)
t=$(now)
"$ORX" "${convert[0]}" "${convert[1]}" ref.####.rla --frames "${convert[3]}" "${convert[@]:4}" -j 1 2>/dev/null
echo "local -j 1: $frames frames in $(since "$t")"
# Their checksums under the farm's names stand for them (half the disk).
sha256sum ref.*.rla | sed 's/ref\./out./' >ref.sum
rm ref.*.rla

# The farm, with one corrupt input and one element cancelled while it works.
mv "$(name $broken)" good.rla
head -c 100000 good.rla >"$(name $broken)"
submit() { timeout 600 sbatch --parsable --array=0-$((elements - 1)) --chdir="$work" "$@" \
  "$src/examples/farm-job.sh" "${convert[@]}"; }
# Watched through squeue rather than `sbatch --wait`, which looks at 2, 10,
# 42... seconds; the second run waits with it.
t=$(now)
job=$(submit) || fail "no job was submitted"
first=$((frames * cancelled / elements + 1)) last=$((frames * (cancelled + 1) / elements))
for _ in $(seq 6000); do
  done_frames=$(find . -maxdepth 1 -name 'out.*' | awk -F. -v a=$first -v b=$last '$3 + 0 >= a && $3 + 0 <= b' | wc -l)
  [ "$done_frames" -ge 2 ] && break
  sleep 0.05
done
[ "$done_frames" -lt $((last - first + 1)) ] || fail "element $cancelled ended before it was cancelled"
scancel "${job}_$cancelled"
for _ in $(seq 3000); do
  [ -z "$(squeue -h -r -j "$job" -o %i)" ] && break
  sleep 0.2
done
echo "farm ($elements elements, element $cancelled cancelled): $(since "$t"), elements running for $(makespan "$job")"

state() { scontrol show job "${job}_$1" | tr ' ' '\n' | sed -n "s/^$2=//p" | head -n 1; }
[ "$(state $cancelled JobState)" = CANCELLED ] || fail "element $cancelled is $(state $cancelled JobState)"
broken_element=$(((broken - 1) * elements / frames))
for ((e = 0; e < elements; e++)); do
  summary=orx-${job}_$e.json
  if [ $e -eq $cancelled ]; then
    continue
  elif [ $e -eq $broken_element ]; then
    [ "$(state $e ExitCode)" = 2:0 ] || fail "element $e with the corrupt frame exited $(state $e ExitCode)"
    [ "$(field "$summary" failed)" = "[$broken]" ] || fail "$summary: $(cat "$summary")"
    [ "$(field "$summary" written)" = $((frames / elements - 1)) ] || fail "$summary: $(cat "$summary")"
  else
    [ "$(state $e ExitCode)" = 0:0 ] || fail "element $e exited $(state $e ExitCode)"
    [ "$(field "$summary" written)" = $((frames / elements)) ] || fail "$summary: $(cat "$summary")"
  fi
done
# The summaries, read as docs/sequences.md reads them, name the cancelled
# element and the failed frame.
[ "$(grep -L . orx-"$job"_*.json)" = "orx-${job}_$cancelled.json" ] || fail "elements without a summary: $(grep -L . orx-"$job"_*.json)"
[ "$(grep -H -v '"failed": \[\]' orx-"$job"_*.json | grep -c .)" = 1 ] || fail "failures: $(grep -H -v '"failed": \[\]' orx-"$job"_*.json)"
# Outputs under their real names are whole, and nothing else is left.
find . -maxdepth 1 -name 'out.*' -exec sha256sum {} + | sed 's|  \./|  |' | sort >got.sum
[ -z "$(comm -23 got.sum <(sort ref.sum))" ] || fail "outputs that differ from the local run's: $(comm -23 got.sum <(sort ref.sum))"
missing=$(($(wc -l <ref.sum) - $(wc -l <got.sum)))
leftovers=$(find . -maxdepth 1 -name '.orx-*' | wc -l)
[ "$leftovers" -eq 0 ] || fail "temporary files left: $(find . -maxdepth 1 -name '.orx-*')"
[ $missing -gt 1 ] || fail "the cancelled element left nothing to do"

# The array again, the corrupt frame repaired: only the missing frames are written.
mv good.rla "$(name $broken)"
t=$(now)
rerun=$(submit --wait) || fail "the second run failed: $(cat orx-*.log)"
echo "rerun: $missing missing frames in $(since "$t"), elements running for $(makespan "$rerun")"
written=0
for ((e = 0; e < elements; e++)); do
  written=$((written + $(field "orx-${rerun}_$e.json" written)))
  [ "$(field "orx-${rerun}_$e.json" failed)" = "[]" ] || fail "orx-${rerun}_$e.json: $(cat "orx-${rerun}_$e.json")"
done
[ $written -eq $missing ] || fail "the rerun wrote $written frames, $missing were missing"
find . -maxdepth 1 -name 'out.*' -exec sha256sum {} + | sed 's|  \./|  |' | sort >got.sum
diff <(sort ref.sum) got.sum || fail "the outputs are not those of the local run"
echo "passed"
