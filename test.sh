#!/usr/bin/env bash
# Installs what is missing, builds, runs all tests. Arguments go to ctest, such as -R window_geometry.
set -euo pipefail
cd "$(dirname "$0")"
. tools/install-deps.sh
csrt_packages+=(openssl locales)  # compared with, and a decimal comma: tests skip without them
csrt_install_dependencies
# shellcheck disable=SC2119  # the arguments are for ctest, not for the build
csrt_build
ctest --test-dir build --output-on-failure --parallel "$(nproc)" "$@"
