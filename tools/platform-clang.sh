#!/usr/bin/env bash
# Builds the project with clang 14 on this machine, warnings as errors, and runs the tests.
#
# usage: tools/platform-clang.sh [--build-only | CTEST_OPTION...]
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
# shellcheck source=tools/lib/debian.sh
. "$root/tools/lib/debian.sh"

need_programs clang-14:clang++-14 cmake:cmake ninja-build:ninja
build=$root/build-clang
cmake -S "$root" -B "$build" "${csrt_configure[@]}" -DCMAKE_CXX_COMPILER=clang++-14
cmake --build "$build"
[ "${1-}" = --build-only ] || ctest --test-dir "$build" --output-on-failure "$@"
