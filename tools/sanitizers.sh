#!/usr/bin/env bash
# Builds everything with a sanitizer and runs all tests; any report fails its test.
#
# usage: tools/sanitizers.sh [address|core|thread] [CTEST_OPTION...]     address and thread without a name
#
# address: address, undefined behaviour and leaks, in build/dev; thread: data races and deadlocks, in build/tsan.
# core: as address, but only the plug-in and the tests that link it, in build/dev-core: the short form.
set -euo pipefail
cd "$(dirname "$0")/.."
# shellcheck source=tools/install-deps.sh
. tools/install-deps.sh
csrt_packages+=(openssl locales) # tests skip without them
csrt_install_dependencies

case ${1:-} in
  address) presets=(dev) ;;
  core) presets=(dev-core) ;;
  thread) presets=(tsan) ;;
  '') presets=(dev tsan) ;;
  *) csrt_die "unknown sanitizer '$1': address, core or thread" ;;
esac
[ $# -gt 0 ] && shift

read -ra options <<<"${CSRT_CMAKE_OPTIONS:-}"
for preset in "${presets[@]}"; do
  echo "== $preset" >&2
  cmake --preset "$preset" "${options[@]}" >/dev/null
  cmake --build --preset "$preset"
  ctest --preset "$preset" --parallel "$(nproc)" "$@"
done
