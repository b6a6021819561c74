#!/usr/bin/env bash
# compare_table.sh TABLE_PROGRAM FOLDER: compares our table of messages with npm's mavlink-mappings, which is installed
# into FOLDER with node-mavlink. Exit 77 (skipped) with a reason where there is no npm or no registry.
set -euo pipefail
here=$(cd "$(dirname "$0")" && pwd)
# shellcheck source=tests/mavlink/npm_packages.sh
. "$here/npm_packages.sh"
npm_packages "$2" node-mavlink@2 # brings the mavlink-mappings that go with it
"$1" | node "$here/compare_table.js"
