#!/usr/bin/env bash
# Installs a build tree into a fresh prefix and uses it as a host would:
# builds the example host (examples/host.c) against it with find_package,
# with pkg-config and with plain compiler flags and runs each build; then
# moves the prefix elsewhere and runs the installed orx tool from there,
# which must find its library and the plug-ins in lib/orx/plugins on its own.
#   scripts/check-install.sh BUILD_DIR [PLUGIN.so]
# PLUGIN.so is a format plug-in (key "tgood") to install beside the library.
set -euo pipefail
src=$(cd "$(dirname "$0")/.." && pwd)
build=$(cd "$1" && pwd)
plugin=${2:-}
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
host=$src/examples/host.c

step() { echo "-- $*"; }
fail() { echo "check-install: $*" >&2; exit 1; }

step "install into $work/prefix"
cmake --install "$build" --prefix "$work/prefix" >/dev/null
lib=$(find "$work/prefix" -name liborx.so -print -quit)
[ -n "$lib" ] || fail "no liborx.so under the prefix"
libdir=$(dirname "$lib")

step "find_package(orx)"
cmake -S "$src/tests/install" -B "$work/cmake" -G Ninja -DCMAKE_BUILD_TYPE=Release \
  -DCMAKE_PREFIX_PATH="$work/prefix" -DORX_CONSUMER_SOURCE="$host" >/dev/null
cmake --build "$work/cmake" >/dev/null
"$work/cmake/consumer" "$work/a.rla"

step "pkg-config"
export PKG_CONFIG_PATH=$libdir/pkgconfig
pkg-config --atleast-version=0.1 orx || fail "pkg-config does not find orx 0.1 or later"
# shellcheck disable=SC2046
cc -std=c99 -o "$work/pc" "$host" $(pkg-config --cflags --libs orx) -Wl,-rpath,"$libdir"
"$work/pc" "$work/a.rla" "$work/b.rla"

step "plain flags"
cc -std=c99 -o "$work/plain" "$host" -I"$work/prefix/include" -L"$libdir" -lorx
LD_LIBRARY_PATH=$libdir "$work/plain" "$work/b.rla" "$work/c.rla"

step "the installed tool, moved to another prefix"
mv "$work/prefix" "$work/moved"
orx=$work/moved/bin/orx
libdir=${libdir/#$work\/prefix/$work/moved}
found=$(ldd "$orx" | awk '/liborx/ { print $3 }')
[ "$(readlink -f "$found")" = "$(readlink -f "$libdir/liborx.so")" ] ||
  fail "the tool loads ${found:-no liborx} instead of the one in $libdir"
"$orx" diff "$work/a.rla" "$work/c.rla" >/dev/null || fail "the copies differ"
if [ -n "$plugin" ]; then
  mkdir -p "$libdir/orx/plugins"
  cp "$plugin" "$libdir/orx/plugins/"
  env -u ORX_PLUGIN_PATH "$orx" formats | grep -q '^tgood ' || fail "the installed plug-in is not loaded"
fi

# The Python package, with the interpreter the tests use when it has numpy
# and cffi: it finds the moved library and plug-ins beside itself.
python=/usr/bin/python3
if [ -x "$python" ] && "$python" -c "import numpy, cffi" 2>/dev/null; then
  step "the installed Python package"
  site=$(find "$work/moved" -type d -path '*/dist-packages' -print -quit)
  [ -f "$site/orx/__init__.py" ] || fail "no Python package under the prefix"
  (cd "$work" && env -u ORX_LIBRARY -u ORX_PLUGIN_PATH PYTHONPATH="$site" "$python" -c '
import orx, sys
assert orx.read("a.rla").shape == (16, 64, 3), "the copy reads back differently"
assert str(orx.library_path).startswith(sys.argv[1]), orx.library_path
if len(sys.argv) > 2:
    assert "tgood" in [k for k, _, _ in orx.formats()], "the installed plug-in is not loaded"
' "$work/moved" ${plugin:+with-plugin}) || fail "the installed Python package does not work"
fi
echo "check-install: ok"
