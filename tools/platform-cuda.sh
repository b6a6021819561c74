#!/usr/bin/env bash
# Builds the project with its CUDA backend against the OpenCV that tools/opencv-cuda.sh made, in the same Debian 13
# root, and runs the tests there. Without a device everything runs on the processor and the tests labelled gpu skip.
#
# usage: tools/platform-cuda.sh [--prefix FOLDER] [CTEST_OPTION...]     FOLDER inside the root: /opt/opencv-cuda
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
# shellcheck source=tools/lib/debian.sh
. "$root/tools/lib/debian.sh"

prefix=/opt/opencv-cuda
if [ "${1:-}" = --prefix ]; then
  prefix=${2:?--prefix needs a folder}
  shift 2
fi
os=$root/.cache/debian13-cuda
debian_root "$os" trixie "main contrib non-free non-free-firmware"
[ -e "$os$prefix/lib/cmake/opencv4/OpenCVConfig.cmake" ] ||
  fail "no OpenCV with CUDA under $os$prefix: build it with tools/opencv-cuda.sh, or unpack one built before"
# Debian's own OpenCV stays away: two versions in one process would not end well.
packages=()
for package in "${csrt_packages[@]}"; do [[ $package == libopencv-* ]] || packages+=("$package"); done
install_in_root "$os" "${packages[@]}" nvidia-cuda-toolkit libjpeg-dev libpng-dev zlib1g-dev \
  libavcodec-dev libavformat-dev libavutil-dev libswscale-dev libdc1394-dev

export ROOT_BINDS="$root:/src"
in_root "$os" cmake -S /src -B /build/csrt "${csrt_configure[@]}" -DCSRT_CUDA=ON -DCSRT_BUILD_BENCH=ON \
  "-DOpenCV_DIR=$prefix/lib/cmake/opencv4"
in_root "$os" cmake --build /build/csrt
in_root "$os" env "LD_LIBRARY_PATH=$prefix/lib" ctest --test-dir /build/csrt --output-on-failure "$@"
