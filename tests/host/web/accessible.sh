#!/usr/bin/env bash
# accessible.sh CSRT_TRACK PLUGIN FOLDER: npm's axe-core looks at the page, light and dark, on a laptop and a phone, with
# everything unfolded. Loopback only. Exit 77 (skipped) with a reason where there is no npm, registry or Chromium.
set -euo pipefail
here=$(cd "$(dirname "$0")" && pwd)
# shellcheck source=tests/mavlink/npm_packages.sh
. "$here/../../mavlink/npm_packages.sh"
npm_packages "$3" axe-core@4
exec python3 "$here/accessible.py" "$1" "$2" "$3/node_modules/axe-core/axe.min.js"
