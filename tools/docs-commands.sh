#!/usr/bin/env bash
# docs-commands.sh [--list]: runs every sh block of README.md, CONTRIBUTING.md and docs/, each in a shell of its own, in
# the source tree as a reader would; the program must be built (./test.sh or ./run.sh). Blocks marked "not run" are
# named with their reason. --list only says what would be run.
set -euo pipefail
cd "$(dirname "$0")/.."
. tools/lib/doc-blocks.sh

blocks=build/docs-commands
doc_blocks "$blocks" README.md CONTRIBUTING.md docs/*.md
for reason in "$blocks"/*.skipped; do
  echo "not run: $(basename "$reason" .skipped): $(cat "$reason")"
done
if [ "${1:-}" = --list ]; then
  ls "$blocks"/*.sh
  exit
fi

export PATH="$PWD/build/bin:$PATH"
command -v csrt-track >/dev/null || { echo 'docs-commands.sh: build/bin/csrt-track is not built' >&2; exit 2; }
for name in street.mp4 frames; do
  [ ! -e "$name" ] || { echo "docs-commands.sh: $name is in the way" >&2; exit 2; }
done

# What the blocks leave beside the sources goes when they are done: new names that a block mentions, and no other file
# that somebody may have made meanwhile.
here_now() {
  find . -mindepth 1 -maxdepth 1 -printf '%f\n'
}
before=$(here_now)
# shellcheck disable=SC2317  # called by the trap
clean_up() {
  local name
  rm -rf street.mp4 frames
  here_now | grep -Fxv "$before" | while read -r name; do
    if grep -qFw -- "$name" "$blocks"/*.sh; then rm -rf "${name:?}"; fi
  done || true
}
trap clean_up EXIT

doc_material csrt-track >"$blocks/material.log" 2>&1 || { cat "$blocks/material.log" >&2; exit 1; }
failed=0
for block in "$blocks"/*.sh; do
  echo "== $(basename "$block" .sh)"
  if ! bash -euo pipefail "$block" >"$block.log" 2>&1 </dev/null; then
    cat "$block" "$block.log" >&2
    echo "docs-commands.sh: $(basename "$block" .sh) failed; above: the block and what it said" >&2
    failed=1
  fi
done
exit "$failed"
