#!/usr/bin/env bash
# Builds the project on Debian 13 (OpenCV 4.10, gcc 14) in a root of its own under .cache, warnings as errors, and
# runs the tests there, and the check of the engine's answers. The root is kept: only the first run downloads.
#
# usage: tools/platform-debian13.sh [CTEST_OPTION...]
#        tools/platform-debian13.sh --engine [ENGINE_EQUALITY_OPTION...]   builds and checks the engine alone
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
# shellcheck source=tools/lib/debian.sh
. "$root/tools/lib/debian.sh"

os=$root/.cache/debian13
debian_root "$os" trixie main
install_in_root "$os" "${csrt_packages[@]}"
export ROOT_BINDS="$root:/src"
in_root "$os" cmake -S /src -B /build "${csrt_configure[@]}"
# shellcheck source=tools/fetch-clip.sh
. "$root/tools/fetch-clip.sh"
clip=()
(cd "$root" && csrt_fetch_clip) >/dev/null || clip=(--no-clip)
equality=(/src/tools/engine-equality.sh --build /build "${clip[@]}")
if [ "${1-}" = --engine ]; then
  shift
  in_root "$os" cmake --build /build --target engine_equality csrt-track csrt_tracking_plugin csrt_tracking_plugin_fast
  in_root "$os" "${equality[@]}" "$@"
  exit
fi
in_root "$os" cmake --build /build
in_root "$os" "${equality[@]}"
in_root "$os" ctest --test-dir /build --output-on-failure "$@"
