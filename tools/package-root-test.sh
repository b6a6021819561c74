#!/usr/bin/env bash
# package-root-test.sh: tries the Debian packages of build/package (made by tools/package.sh, which runs when there are
# none) in a fresh root of this machine's release: installs them with apt, tracks with csrt-track, builds and runs the
# smallest host by CMake and by pkg-config, runs what the documentation shows of csrt-track, removes the packages, and
# fails where a file is left. Needs root; downloads about 300 MB the first time.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
cd "$root"
# shellcheck source=tools/lib/debian.sh
. "$root/tools/lib/debian.sh"
# shellcheck source=tools/lib/doc-blocks.sh
. "$root/tools/lib/doc-blocks.sh"

release=$(debian_release)
base=$root/.cache/debian-$release
os=$root/.cache/package-root
archives=$root/.cache/debian-$release-archives
ls build/package/*.deb >/dev/null 2>&1 || tools/package.sh

debian_root "$base" "$release" main
rm -rf "$os"
cp -a "$base" "$os"
mkdir -p "$archives/partial"
cp -r tests/package_root "$os/trial"
cp build/package/*.deb "$os/trial"
cp -r examples/minimal-host examples/engine examples/guarded-host tests/install/guarded_host_check.sh "$os/trial"
doc_blocks "$os/trial/blocks" README.md docs/csrt-track.md
cp tools/lib/doc-blocks.sh "$os/trial"
export ROOT_BINDS="$archives:/var/cache/apt/archives"
in_root "$os" bash /trial/trial.sh
