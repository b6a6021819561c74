#!/usr/bin/env bash
# check-first-host.sh: fails when code that a page explains is not that of its example: docs/first-host.md shows all of
# examples/minimal-host, line by line and blank lines aside; docs/guard.md the build file and the loop of
# examples/guarded-host.
set -euo pipefail
cd "$(dirname "$0")/.."

# blocks LANGUAGE PAGE: the blocks of that language on the page, in their order.
blocks() {
  awk -v begin="\`\`\`$1" '$0 == begin { inside = 1; next } /^```$/ { inside = 0 } inside && NF' "$2"
}

diff <(blocks cpp docs/first-host.md) <(grep -v '^//' examples/minimal-host/main.cpp | grep .)
diff <(blocks cmake docs/first-host.md) <(grep . examples/minimal-host/CMakeLists.txt)

section=$(mktemp)
trap 'rm -f "$section"' EXIT
awk '/^## / { inside = $0 == "## In a host of your own" } inside' docs/guard.md >"$section"
shown=$(blocks cpp "$section")
[ -n "$shown" ]
[[ "$(grep . examples/guarded-host/main.cpp)" == *"$shown"* ]] || {
  echo 'check-first-host.sh: docs/guard.md shows other code than examples/guarded-host/main.cpp has' >&2
  exit 1
}
diff <(blocks cmake "$section") <(grep . examples/guarded-host/CMakeLists.txt)
