#!/usr/bin/env bash
# Builds OpenCV with its CUDA modules, which no distribution packages, from Debian 13's own opencv source and CUDA
# toolkit (non-free), inside a Debian 13 root under .cache. Hours on two cores; started again, it goes on where it was.
#
# usage: tools/opencv-cuda.sh [--arch LIST] [--prefix FOLDER] [--jobs N] [--step configure|build|install]
#   --arch    compute capabilities, comma separated: 8.7 for an embedded board, 9.0 for a data-centre card (default)
#   --prefix  where it is installed, inside the root (default /opt/opencv-cuda)
#   --jobs    compilers at a time (default: one per core)
#   --step    the last step to do (default install)
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
# shellcheck source=tools/lib/debian.sh
. "$root/tools/lib/debian.sh"

arch=9.0 prefix=/opt/opencv-cuda jobs=$(nproc) last=install
while [ $# -gt 0 ]; do
  case $1 in
    --arch) arch=${2:?--arch needs a list} ;;
    --prefix) prefix=${2:?--prefix needs a folder} ;;
    --jobs) jobs=${2:?--jobs needs a number} ;;
    --step) last=${2:?--step needs configure, build or install} ;;
    *) sed -n '2,/^set/{/^#/s/^# \{0,1\}//p}' "$0"; exit 2 ;;
  esac
  shift 2
done
case $last in configure | build | install) ;; *) fail "no such step: $last" ;; esac

# What the plug-in, its host program and tests use, and what those modules need themselves.
modules=core,imgproc,imgcodecs,videoio,tracking,ximgproc,cudev,cudaarithm,cudafilters,cudaimgproc,cudawarping
modules+=,video,calib3d,features2d,flann,plot
# The free source package comes without third-party code: system libraries where there are some, off where not.
options=(
  -DCMAKE_BUILD_TYPE=Release -DCMAKE_C_COMPILER=gcc-13 -DCMAKE_CXX_COMPILER=g++-13
  "-DCMAKE_INSTALL_PREFIX=$prefix" "-DBUILD_LIST=$modules" -DOPENCV_EXTRA_MODULES_PATH=/build/opencv/contrib/modules
  -DWITH_CUDA=ON "-DCUDA_ARCH_BIN=$arch" -DCUDA_ARCH_PTX= -DCUDA_HOST_COMPILER=/usr/bin/g++-13 -DWITH_CUBLAS=ON
  -DWITH_CUFFT=ON -DWITH_CUDNN=OFF -DWITH_NVCUVID=OFF -DWITH_NVCUVENC=OFF -DOPENCV_DNN_CUDA=OFF
  -DBUILD_JPEG=OFF -DBUILD_PNG=OFF -DBUILD_ZLIB=OFF -DWITH_PROTOBUF=OFF -DWITH_OPENJPEG=OFF -DWITH_JASPER=OFF
  -DWITH_OPENEXR=OFF -DWITH_TIFF=OFF -DWITH_WEBP=OFF -DWITH_QUIRC=OFF -DWITH_FLATBUFFERS=OFF -DWITH_ADE=OFF
  -DWITH_IPP=OFF -DWITH_ITT=OFF -DWITH_LAPACK=OFF -DWITH_GTK=OFF -DWITH_FFMPEG=ON
  -DBUILD_TESTS=OFF -DBUILD_PERF_TESTS=OFF -DBUILD_EXAMPLES=OFF -DBUILD_DOCS=OFF -DBUILD_opencv_apps=OFF
  -DBUILD_JAVA=OFF -DBUILD_opencv_python3=OFF
)
packages=(gcc-13 g++-13 cmake ninja-build patch pkg-config python3 xz-utils nvidia-cuda-toolkit libjpeg-dev libpng-dev
  zlib1g-dev libavcodec-dev libavformat-dev libavutil-dev libswscale-dev libdc1394-dev)

os=$root/.cache/debian13-cuda
build=/build/opencv-sm${arch//[.,]/}
debian_root "$os" trixie "main contrib non-free non-free-firmware"
install_in_root "$os" "${packages[@]}"

if [ ! -e "$os/build/opencv/.complete" ]; then
  note "fetching the source"
  # The tarballs one by one, checked against the archive's index: mirrors have been seen without the .dsc file that
  # apt-get source would begin with.
  # shellcheck disable=SC2016  # expanded inside the root
  in_root "$os" bash -euc '
    rm -rf /build/opencv /build/source && mkdir -p /build/opencv/contrib /build/source && cd /build/source
    apt-get -qq update
    apt-get -qq source --print-uris opencv | grep -F .tar. | tr -d "\047" | while read -r uri file size hash; do
      /usr/lib/apt/apt-helper download-file "$uri" "$file" "$hash"
    done
    tar -xf opencv_*.orig.tar.* --strip-components 1 -C /build/opencv
    tar -xf opencv_*.orig-contrib.tar.* --strip-components 1 -C /build/opencv/contrib
    tar -xf opencv_*.debian.tar.* -C /build/opencv
    cd /build/opencv
    grep -v "^#" debian/patches/series | while read -r file rest; do patch -s -p1 <"debian/patches/$file"; done
    rm -rf /build/source && touch /build/opencv/.complete' >"$os.source.log" 2>&1 ||
    fail "the source could not be fetched: see $os.source.log"
fi
note "configuring $build for $arch"
in_root "$os" cmake -S /build/opencv -B "$build" -G Ninja "${options[@]}" >"$os.configure.log" 2>&1 ||
  fail "configuring failed: see $os.configure.log"
grep -E 'NVIDIA CUDA|NVIDIA GPU arch|Dis?abled:|To be built' "$os.configure.log" >&2 || true
[ "$last" != configure ] || exit 0
note "building with $jobs at a time: stop and start again as you like"
in_root "$os" nice -n 10 ninja -C "$build" -j "$jobs"
[ "$last" != build ] || exit 0
in_root "$os" ninja -C "$build" install >"$os.install-opencv.log"
note "installed: $os$prefix"
