#!/usr/bin/env bash
# Cross-builds the project for 64-bit Arm against Debian 12's arm64 packages, runs the tests under qemu, and compares
# the boxes of fixed scenes with this machine's: every side within 1 pixel; and checks the engine's answers. The packages lie unpacked in a folder
# under .cache with an apt state of its own; this machine's apt learns nothing of the other architecture.
#
# usage: tools/platform-arm64.sh [CTEST_OPTION...]
#        tools/platform-arm64.sh --engine [ENGINE_EQUALITY_OPTION...]   builds and checks the engine alone
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
# shellcheck source=tools/lib/debian.sh
. "$root/tools/lib/debian.sh"

need_programs g++-aarch64-linux-gnu:aarch64-linux-gnu-g++ qemu-user:qemu-aarch64 dpkg-dev:dpkg-source
sysroot=$root/.cache/arm64/sysroot
mkdir -p "$root/.cache/arm64"
debian_sysroot "$sysroot" arm64 bookworm libc6-dev libstdc++-12-dev "${csrt_libraries[@]}"

build=$root/build-arm64
cmake -S "$root" -B "$build" "${csrt_configure[@]}" "-DCSRT_SYSROOT=$sysroot" \
  "-DCMAKE_TOOLCHAIN_FILE=$root/cmake/aarch64-linux-gnu.cmake"
# A few starts only: emulated, a step of OpenCV's tracker takes most of a second.
equality=("$root/tools/engine-equality.sh" --build "$build" --isa best --starts 22 --frames 12)
export CSRT_EMULATOR="qemu-aarch64 -L $sysroot"
if [ "${1-}" = --engine ]; then
  shift
  cmake --build "$build" --target engine_equality csrt-track csrt_tracking_plugin csrt_tracking_plugin_fast
  "${equality[@]}" "$@"
  exit
fi
cmake --build "$build"
"${equality[@]}"
# Left out: tests that build with this machine's compiler or start what was built without the emulator.
ctest --test-dir "$build" --output-on-failure --label-exclude '^native$' "$@"

native=$root/build-arm64-reference
cmake -S "$root" -B "$native" "${csrt_configure[@]}" -DCSRT_BUILD_HOST=OFF
cmake --build "$native" --target scene_boxes
"$native/bin/scene_boxes" >"$build/boxes-here.txt"
qemu-aarch64 -L "$sysroot" "$build/bin/scene_boxes" >"$build/boxes-arm64.txt"
"$root/tools/lib/compare-boxes.sh" "$build/boxes-here.txt" "$build/boxes-arm64.txt"
