#!/usr/bin/env bash
# guarded_host_check.sh PROGRAM VIDEO: the example host of the guard on the drawn scene with a sign of 90 pixels
# (csrt-track draw-scene --sign 90). There the figure is hidden in frames 102 to 131, and its left edge is at 116 + 2 i.
set -euo pipefail
program=$1 video=$2
fail() { echo "guarded_host_check.sh: $1" >&2; exit 1; }

alone=$("$program" "$video" 116,165,32,60 --alone) || fail "$program --alone fails"
awk '$1 >= 150 && $3 == "seen"' <<<"$alone" | grep -q . &&
  fail 'the tracker alone finds the figure again: this shows nothing of the guard'

guarded=$("$program" "$video" 116,165,32,60) || fail "$program fails"
[ "$(wc -l <<<"$guarded")" -eq 199 ] || fail 'other than one line per frame'
awk -F'[ ,]' '
  function far() { middle = $4 + $6 / 2; return middle < 116 + 2 * $1 || middle > 148 + 2 * $1 }
  $1 < 90 && $2 != "agreed" { print "not agreed with while the figure is in sight: " $0; exit 1 }
  $1 >= 105 && $1 <= 130 && $3 == "seen" { print "called seen while it is hidden: " $0; exit 1 }
  $2 == "reacquired" { if (far()) { print "found elsewhere: " $0; exit 1 } found = 1 }
  $1 >= 170 && ($3 != "seen" || far()) { print "not followed after it came back: " $0; exit 1 }
  $1 == 199 && !found { print "never reacquired"; exit 1 }' <<<"$guarded" >&2 || fail 'the guard did not hold the figure'
