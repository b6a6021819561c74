#!/usr/bin/env bash
# Breaks src/, config/ and common/ in about a hundred small ways, one at a time, and says which of them the tests notice; fails
# below 90 %. The list and what reads it lie in tools/mutation.
#
# usage: tools/mutation.sh [--jobs N] [--only NUMBER...]
set -euo pipefail
cd "$(dirname "$0")/.."
# shellcheck source=tools/install-deps.sh
. tools/install-deps.sh
csrt_packages+=(openssl locales) # tests skip without them, and a skipped test notices nothing
csrt_install_dependencies
PYTHONDONTWRITEBYTECODE=1 exec python3 tools/mutation/check.py "$@"
