#!/usr/bin/env bash
# The README agrees with the build: its package list is the install script's,
# its CMake version is cmake_minimum_required's, and its "Using the library"
# program compiles as printed and reads an image.
#   check_readme.sh SOURCE_DIR LIBRARY_DIR HOST_EXAMPLE
set -euo pipefail
src=$1 libdir=$2 host=$3
readme=$src/README.md
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

# The first fenced block after a heading.
block() { awk -v h="$1" '$0 == h { on = 1 } on && /^```/ { if (in_block) exit; in_block = 1; next } in_block' "$readme"; }

listed=$(block "## Requirements" | tr -s ' \n' ' ' | sed 's/ $//')
installed=$("$src/scripts/install-deps.sh" --list | tr '\n' ' ' | sed 's/ $//')
[ "$listed" = "$installed" ] || { echo "README lists: $listed"; echo "script installs: $installed"; exit 1; }

wanted=$(sed -n 's/^cmake_minimum_required(VERSION \([0-9.]*\)).*/\1/p' "$src/CMakeLists.txt")
grep -q "CMake $wanted or later" "$readme" || { echo "README does not say CMake $wanted or later"; exit 1; }

block "## Using the library" > "$work/snippet.c"
cc -std=c99 -Wall -Wextra -Werror -I"$src/include" -o "$work/snippet" "$work/snippet.c" \
  -L"$libdir" -lorx -Wl,-rpath,"$libdir"
(cd "$work" && "$host" image.rla >/dev/null)
"$work/snippet" "$work/image.rla" | grep -q "^64 x 16, 3 colour channels of 8 bits$"
if "$work/snippet" "$work/missing.rla" 2>"$work/err"; then exit 1; fi
grep -q "status -5" "$work/err"
