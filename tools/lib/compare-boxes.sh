#!/usr/bin/env bash
# Compares two outputs of scene_boxes: the same lines, every number within 1 of the other.
#
# usage: tools/lib/compare-boxes.sh ONE OTHER
set -euo pipefail
awk -v other="$2" '
  function fail(text) { printf "line %d: %s\n  one:   %s\n  other: %s\n", NR, text, $0, line; failed = 1; exit }
  {
    if ((getline line < other) <= 0) fail("the other ends here")
    count = split(line, fields, " ")
    if (count != NF) fail("another kind of answer")
    for (i = 1; i <= NF; ++i) {
      if ($i ~ /^-?[0-9]+$/ && fields[i] ~ /^-?[0-9]+$/) {
        difference = $i > fields[i] ? $i - fields[i] : fields[i] - $i
        if (difference > 1) fail("more than 1 pixel apart")
        if (difference > largest) largest = difference
      } else if ($i != fields[i]) fail("another kind of answer")
    }
  }
  END {
    if (!failed && (getline line < other) > 0) { print "the other goes on after line " NR; failed = 1 }
    if (!failed && NR == 0) { print "nothing to compare"; failed = 1 }
    if (!failed) printf "%d answers, largest difference %d\n", NR, largest
    exit failed
  }' "$1"
