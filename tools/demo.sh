#!/usr/bin/env bash
# A short demonstration of the orx tool on files it makes itself: write a
# test image, describe it, stream it through the "pipe" format (an RLA stream
# through a shell command) and prove with diff that nothing changed.
set -euo pipefail
orx=${ORX:-"$(dirname "$0")/../build/release/tools/orx"}
dir=$(mktemp -d)
trap 'rm -rf "$dir"' EXIT

run() {
  echo "\$ orx $*"
  "$orx" "$@"
  echo
}

run pattern "$dir/demo.rla" --size 640x360 --type int16 --matte
run info "$dir/demo.rla"
run copy "$dir/demo.rla" "|cat > $dir/streamed.pipe"
run diff "$dir/demo.rla" "|cat $dir/streamed.pipe"
