#!/usr/bin/env bash
# Builds the project on Debian 13 (OpenCV 4.10, gcc 14) in a root of its own under .cache, warnings as errors, and
# runs the tests there. The root is kept: only the first run downloads.
#
# usage: tools/platform-debian13.sh [CTEST_OPTION...]
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
# shellcheck source=tools/lib/debian.sh
. "$root/tools/lib/debian.sh"

os=$root/.cache/debian13
debian_root "$os" trixie main
install_in_root "$os" "${csrt_packages[@]}"
export ROOT_BINDS="$root:/src"
in_root "$os" cmake -S /src -B /build "${csrt_configure[@]}"
in_root "$os" cmake --build /build
in_root "$os" ctest --test-dir /build --output-on-failure "$@"
