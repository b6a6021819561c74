#!/usr/bin/env bash
# Fetches the headers of OpenCV's CUDA modules, so that the CUDA source of this plug-in is compiled (not linked) on
# machines without CUDA: no distribution packages those modules, but Debian's opencv source package holds them.
#
# usage: tools/cuda-headers.sh [FOLDER]     FOLDER: .cache/opencv-cuda-headers unless named
# Then:  cmake -DCSRT_CUDA_HEADERS=FOLDER ... && cmake --build BUILD --target csrt_cuda_compile_check
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
# shellcheck source=tools/lib/debian.sh
. "$root/tools/lib/debian.sh"

modules=(cudev cudaarithm cudafilters cudaimgproc cudawarping)
folder=${1:-$root/.cache/opencv-cuda-headers}
[ ! -e "$folder/complete" ] || { note "already there: $folder"; exit 0; }
need_programs dpkg:dpkg xz-utils:xz

state=$root/.cache/apt-source
private_apt "$state" "$(dpkg --print-architecture)" "$(debian_release)" main
export APT_CONFIG=$state/apt.conf
apt-get -qq update
# The one tarball that matters, checked against the archive's index.
read -r uri file _ hash < <(apt-get -qq source --print-uris opencv | grep -F .orig-contrib.tar. | tr -d "'")
[ -n "${hash:-}" ] || fail "the opencv source package holds no contrib tarball any more"
mkdir -p "$state/sources"
contrib=$state/sources/$file
/usr/lib/apt/apt-helper download-file "$uri" "$contrib" "$hash"

rm -rf "$folder"
mkdir -p "$folder/unpacked"
patterns=()
for module in "${modules[@]}"; do patterns+=("*/modules/$module/include/*"); done
tar -xf "$contrib" -C "$folder/unpacked" --wildcards "${patterns[@]}"
mkdir -p "$folder/include"
for module in "${modules[@]}"; do
  cp -R "$folder"/unpacked/*/modules/"$module"/include/. "$folder/include/"
done
rm -rf "$folder/unpacked" "$state/sources"
touch "$folder/complete"
note "headers of ${modules[*]}: $folder/include"
