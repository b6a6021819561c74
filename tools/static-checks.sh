#!/usr/bin/env bash
# Reads the code without running it: layout (clang-format), which room includes which and how many declarations say what
# they are (rooms), mistakes (clang-tidy, cppcheck), shell scripts (shellcheck); and compiles the CUDA source against
# OpenCV's real headers. Any finding is an error.
#
# usage: tools/static-checks.sh [format] [rooms] [tidy] [tidy-plugin] [cppcheck] [shell] [cuda]   default: all
# tidy takes about 40 minutes of processor time, most of it in the headers of the host program's libraries;
# tidy-plugin looks at src/, config/ and common/ alone.
# BUILD names a configured build folder for clang-tidy (default: build-tidy, configured here).
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
# shellcheck source=tools/lib/debian.sh
. "$root/tools/lib/debian.sh"
cd "$root"

check_format() {
  git ls-files -z '*.cpp' '*.h' | xargs -0 clang-format --dry-run -Werror
}

check_rooms() {
  tools/check-rooms.py && tools/count-documented.py --check
}

# The plug-in, its library and its host program; tests are left to the compilers' warnings and the sanitizers.
check_tidy() {
  local build=${BUILD:-build-tidy} folders=${1:-src|config|common|ocula|gimbal|mavlink|host}
  [ -e "$build/compile_commands.json" ] ||
    cmake -S . -B "$build" -G Ninja -DCSRT_BUILD_TESTS=OFF -DPython3_EXECUTABLE=/usr/bin/python3 >/dev/null
  sed -n 's/^ *"file": "\(.*\)",\{0,1\}$/\1/p' "$build/compile_commands.json" | grep -E "^$root/($folders)/" |
    sort -u | xargs -r -n 1 -P "$(nproc)" clang-tidy --quiet -p "$build"
}

check_tidy-plugin() {
  check_tidy 'src|config|common'
}

check_cppcheck() {
  git ls-files 'src/*.cpp' 'config/*.cpp' 'common/*.cpp' 'ocula/*.cpp' 'gimbal/*.cpp' 'mavlink/*.cpp' 'host/*.cpp' |
    xargs cppcheck --quiet --std=c++17 --language=c++ --enable=warning,performance,portability --inline-suppr \
      --suppress=missingInclude --suppress=missingIncludeSystem --suppress=unmatchedSuppression --suppress=cppcheckError \
      -I include -I src -I config -I common -j "$(nproc)" --error-exitcode=1
}

check_shell() {
  git ls-files | while read -r file; do
    case $(head -c 40 "$file" | tr -d '\0' | head -n 1) in '#!'*sh) printf '%s\0' "$file" ;; esac
  done | xargs -0 shellcheck -x
}

check_cuda() {
  tools/cuda-headers.sh
  cmake -S . -B build-tidy -G Ninja -DCSRT_BUILD_TESTS=OFF -DCSRT_WARNINGS_AS_ERRORS=ON \
    "-DCSRT_CUDA_HEADERS=$root/.cache/opencv-cuda-headers" -DPython3_EXECUTABLE=/usr/bin/python3 >/dev/null &&
    cmake --build build-tidy --target csrt_cuda_compile_check
}

csrt_packages+=(clang-format clang-tidy cppcheck shellcheck)
csrt_install_dependencies
failed=()
for check in "${@:-format rooms tidy cppcheck shell cuda}"; do
  for one in $check; do
    case $one in format | rooms | tidy | tidy-plugin | cppcheck | shell | cuda) ;; *) fail "no such check: $one" ;; esac
    note "$one"
    "check_$one" || failed+=("$one")
  done
done
[ ${#failed[@]} -eq 0 ] || fail "findings of: ${failed[*]}"
