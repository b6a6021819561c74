#!/usr/bin/env bash
# coverage.sh [TEST...]: which lines and branches of src/, config/ and common/ the tests reach. Builds without optimisation in
# build/coverage and runs all tests, or only those named (such as sw_json_test); prints a table with the lines that were
# not reached and writes build/coverage/report/index.html.
set -euo pipefail
cd "$(dirname "$0")/.."
# shellcheck source=tools/install-deps.sh
. tools/install-deps.sh
csrt_install_dependencies
command -v gcovr >/dev/null || csrt_die 'missing: apt-get install --no-install-recommends gcovr'

build=build/coverage
cmake -S . -B "$build" -G Ninja -DPython3_EXECUTABLE=/usr/bin/python3 -DCMAKE_BUILD_TYPE=Debug \
  -DCMAKE_CXX_FLAGS='--coverage -O0 -fno-inline' >/dev/null
if [ $# -gt 0 ]; then
  cmake --build "$build" --target "$@"
  wanted=(-R "^($(IFS='|'; echo "$*"))\$")
else
  cmake --build "$build"
  wanted=()
fi
find "$build" -name '*.gcda' -delete # counts of an earlier run
ctest --test-dir "$build" --output-on-failure --parallel "$(nproc)" "${wanted[@]}"

# Branches that only an exception takes are the compiler's, not ours: one for nearly every call.
report=(gcovr --root . --filter 'src/' --filter 'config/' --filter 'common/' --exclude-throw-branches --exclude-unreachable-branches)
mkdir -p "$build/report"
"${report[@]}" --html-details "$build/report/index.html" "$build"
"${report[@]}" "$build"
"${report[@]}" --branches "$build" | tail -n 3
