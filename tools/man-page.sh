#!/usr/bin/env bash
# man-page.sh PROGRAM OUTPUT: writes the manual page of csrt-track from its own help texts.
set -euo pipefail
program=$1
output=$2
extra=$(mktemp)
trap 'rm -f "$extra"' EXIT

subcommands() { "$program" --help | sed -n '/^Subcommands:/,$ s/^  \([a-z][a-z-]*\).*/\1/p'; }

# One section with every subcommand's help, as the program prints it.
{
  echo '[SUBCOMMANDS]'
  for name in $(subcommands); do
    printf '.SS %s\n.nf\n' "$name"
    "$program" "$name" --help | sed -e 's/\\/\\\\/g' -e 's/-/\\-/g' -e "s/^\\([.']\\)/\\\\\\&\\1/"
    printf '.fi\n'
  done
} >"$extra"
help2man --no-info --name='track a target in a video' --include="$extra" --no-discard-stderr --output="$output" "$program"
