#!/usr/bin/env bash
# check-first-host.sh: fails when the code that docs/first-host.md explains is not that of examples/minimal-host, line by
# line and blank lines aside.
set -euo pipefail
cd "$(dirname "$0")/.."

# blocks LANGUAGE: the blocks of that language on the page, in their order.
blocks() {
  awk -v begin="\`\`\`$1" '$0 == begin { inside = 1; next } /^```$/ { inside = 0 } inside && NF' docs/first-host.md
}

diff <(blocks cpp) <(grep -v '^//' examples/minimal-host/main.cpp | grep .)
diff <(blocks cmake) <(grep . examples/minimal-host/CMakeLists.txt)
