#!/usr/bin/env bash
# Does this tree answer on a video as another revision does, call by call and line by line?
#   bench/compare_answers.sh REVISION VIDEO
set -euo pipefail
if [ $# -ne 2 ]; then
  echo "usage: bench/compare_answers.sh REVISION VIDEO" >&2
  exit 2
fi
revision=$(git rev-parse --verify "$1^{commit}")
video=$(realpath "$2")
cd "$(dirname "$0")/.."
here=$PWD
out=$here/build/answers
mkdir -p "$out"

build() { # FOLDER BUILD_FOLDER
  cmake -S "$1" -B "$2" -G Ninja -DCMAKE_BUILD_TYPE=Release -DCSRT_BUILD_BENCH=ON -DCSRT_BUILD_TESTS=OFF \
    -DCSRT_BUILD_HOST=OFF -DPython3_EXECUTABLE=/usr/bin/python3 >/dev/null
  cmake --build "$2" -t answers -j"$(nproc)" >/dev/null
}

# The log has the time of a search in it, and nothing else that may differ.
answers() { # PROGRAM
  "$1" "$video" | sed -E 's/total=.*\| patches/patches/'
}

rm -rf "$out/other"
git worktree prune
git worktree add --detach "$out/other" "$revision" >/dev/null 2>&1
trap 'git -C "$here" worktree remove --force "$out/other"' EXIT
mkdir -p "$out/other/bench"
cp "$here/bench/answers.cpp" "$out/other/bench/"
grep -qs "add_executable(answers" "$out/other/bench/CMakeLists.txt" || cat >>"$out/other/bench/CMakeLists.txt" <<'CMAKE'
find_package(OpenCV REQUIRED COMPONENTS videoio)
add_executable(answers answers.cpp)
target_link_libraries(answers PRIVATE csrt_tracking_core opencv_videoio)
CMAKE
build "$out/other" "$out/build-other"
build "$here" "$out/build-this"
answers "$out/build-other/bin/answers" >"$out/other.txt" &
answers "$out/build-this/bin/answers" >"$out/this.txt"
wait
if cmp "$out/other.txt" "$out/this.txt"; then
  echo "the same: $(wc -l <"$out/this.txt") lines, $(grep -c 'timing-' "$out/this.txt") searches of which" \
    "$(grep -c 'timing-success' "$out/this.txt") found the target"
else
  diff "$out/other.txt" "$out/this.txt" | head -20
  exit 1
fi
