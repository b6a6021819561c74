#!/usr/bin/env bash
# package.sh [--check]: builds the Debian packages into build/package.
# --check builds them twice and compares every byte, and runs lintian over them. CMAKE_CXX_COMPILER_LAUNCHER=ccache in
# the environment makes the second build short: it then repeats linking and packing, but not compiling.
set -euo pipefail
cd "$(dirname "$0")/.."

# Times inside the packages are the changelog's, so that the same sources give the same bytes.
SOURCE_DATE_EPOCH=$(date -d "$(dpkg-parsechangelog -l packaging/debian/changelog -S Date)" +%s)
export SOURCE_DATE_EPOCH

# Paths inside the packages begin at the source tree, also where ccache hands the compiler relative ones (../..).
build_packages() {  # build_packages FOLDER
  local flags="-ffile-prefix-map=$PWD=. -ffile-prefix-map=$PWD/$1=. -ffile-prefix-map=../..=."
  flags+=" -D_FORTIFY_SOURCE=2 -fstack-protector-strong"
  cmake -S . -B "$1" -G Ninja -DPython3_EXECUTABLE=/usr/bin/python3 -DCMAKE_BUILD_TYPE=Release \
    -DCMAKE_INSTALL_PREFIX=/usr -DCSRT_BUILD_TESTS=OFF \
    -DCMAKE_CXX_FLAGS="$flags" \
    -DCMAKE_SHARED_LINKER_FLAGS="-Wl,-z,relro,-z,now" -DCMAKE_EXE_LINKER_FLAGS="-Wl,-z,relro,-z,now" >/dev/null
  cmake --build "$1"
  (cd "$1" && find . -name '*.deb' -delete && cpack -G DEB >/dev/null)
}

build_packages build/package
if [ "${1:-}" = --check ]; then
  first=$(mktemp -d)
  trap 'rm -rf "$first"' EXIT
  cp build/package/*.deb "$first"
  rm -rf build/package
  build_packages build/package
  for deb in "$first"/*.deb; do
    cmp "$deb" "build/package/$(basename "$deb")"
  done
  echo "package.sh: two builds gave the same bytes"
  lintian --fail-on error,warning --tag-display-limit 0 build/package/*.deb
  echo "package.sh: lintian has nothing to say"
fi
ls build/package/*.deb
