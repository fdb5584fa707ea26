#!/usr/bin/env bash
# Installs the Debian packages liborx builds, tests and benchmarks with.
# Idempotent: packages already present are left alone, so it is cheap to run
# before every build. Run as root, or as a user with sudo.
#   scripts/install-deps.sh          install what is missing
#   scripts/install-deps.sh --list   print the package list, one per line
set -euo pipefail

packages=(
  # Build tools, the orx tool's command-line parser, pkg-config for hosts.
  cmake ninja-build g++ clang libclang-rt-14-dev libcli11-dev pkgconf
  # Codec libraries of the format plug-ins (each plug-in is skipped when missing).
  libpng-dev libjpeg62-turbo-dev libtiff-dev libopenexr-dev libwebp-dev
  # Tests and benchmarks (the benchmarks time OpenImageIO's kernels beside
  # ours when its development files are there).
  libgtest-dev libgmock-dev libbenchmark-dev libopenimageio-dev
  # Image tools the interoperability tests compare against (skipped when missing).
  openimageio-tools graphicsmagick imagemagick
  # OpenEXR's own tools make files for the fidelity tests, which read them
  # through OpenImageIO's Python module as well.
  openexr python3-openimageio
  # The Python package (cffi, numpy) and its tests, which compare with
  # OpenImageIO's module above; setuptools and wheel let pip install it offline.
  python3-cffi python3-numpy python3-pytest python3-setuptools python3-wheel
  # The one-node Slurm cluster the farm test runs frame sequences on.
  slurm-wlm munge
  # libtiff's tools make TIFF variants for them, PIL an ICC profile, and
  # libwebp's cwebp a WebP variant.
  libtiff-tools python3-pil webp
  # Line and branch coverage (scripts/coverage.sh).
  gcovr
)

if [ "${1:-}" = "--list" ]; then
  printf '%s\n' "${packages[@]}"
  exit 0
fi

missing=()
for p in "${packages[@]}"; do
  dpkg -s "$p" >/dev/null 2>&1 || missing+=("$p")
done
[ ${#missing[@]} -eq 0 ] && exit 0

sudo=()
[ "$(id -u)" -eq 0 ] || sudo=(sudo)
export DEBIAN_FRONTEND=noninteractive
"${sudo[@]}" apt-get update -qq
"${sudo[@]}" apt-get install -y -qq --no-install-recommends "${missing[@]}"
