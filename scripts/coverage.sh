#!/usr/bin/env bash
# Line and branch coverage of the library, plug-ins and tool under the test
# suite. Builds the coverage preset, runs every test except the Slurm farm run
# (which drives the same tool commands the sequence tests already cover), and
# prints gcovr's totals; a per-file JSON summary goes to build/coverage/summary.json
# so two trees can be compared file by file.
#   scripts/coverage.sh            build, test, report
#   scripts/coverage.sh --report   report on the counters of the last run
set -euo pipefail
cd "$(dirname "$0")/.."
command -v gcovr >/dev/null || { echo "coverage: gcovr is missing (apt-get install gcovr)" >&2; exit 2; }

build=build/coverage
if [ "${1:-}" != "--report" ]; then
  cmake --preset coverage >/dev/null
  cmake --build --preset coverage
  find "$build" -name '*.gcda' -delete
  ctest --test-dir "$build" -j2 -E '^Farm\.' --output-on-failure
fi

filters=(--filter 'src/' --filter 'include/' --filter 'tools/' --filter 'plugins/'
         --exclude 'plugins/(tests|fuzz|bench)/')
common=(-r . "$build" "${filters[@]}" --exclude-unreachable-branches
        --exclude-throw-branches --gcov-ignore-parse-errors)
# One run writes the JSON and prints the totals; gcovr replaces its output
# file, so it must never be pointed at a device such as /dev/null.
gcovr "${common[@]}" --json-summary-pretty -o "$build/summary.json" --print-summary
