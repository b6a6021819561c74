#!/usr/bin/env bash
# man-page.sh PROGRAM OUTPUT: writes the manual page of csrt-track from its own help texts.
set -euo pipefail
program=$1
output=$2
extra=$(mktemp)
trap 'rm -f "$extra"' EXIT

# subcommands [COMMAND]: of the program, or of one of its commands.
subcommands() { "$program" "$@" --help | sed -n '/^Subcommands:/,/^$/ s/^  \([a-z][a-z-]*\).*/\1/p'; }

help_section() {
  printf '.SS "%s"\n.nf\n' "$*"
  "$program" "$@" --help | sed -e 's/\\/\\\\/g' -e 's/-/\\-/g' -e "s/^\\([.']\\)/\\\\\\&\\1/"
  printf '.fi\n'
}

# One section with every subcommand's help, as the program prints it.
{
  echo '[OPTIONS OF THE COMMANDS]'
  for name in $(subcommands); do
    help_section "$name"
    for inner in $(subcommands "$name"); do help_section "$name" "$inner"; done
  done
} >"$extra"
help2man --no-info --name='follow targets through a video, and judge how well' --include="$extra" --no-discard-stderr --output="$output" "$program"
# help2man takes headings of one word and a colon for subsections, and fills the examples into one paragraph.
sed -i -e 's/^\.SS "Subcommands:"/.SH COMMANDS/' -e 's/^\.SS "Exit status:"/.SH "EXIT STATUS"/' \
  -e '/^\.SH EXAMPLES/,/^\.S[HS]/ { s/^\.IP$/.nf/; /^\.SH "EXIT STATUS"/ i .fi
}' "$output"
