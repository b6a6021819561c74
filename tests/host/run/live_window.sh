#!/usr/bin/env bash
# live_window.sh CSRT_TRACK PLUGIN: a person at the live window, played by xdotool on a display of its own: drags the
# first box, pauses, steps, drags a new box, quits. Exit 77 (skipped) without Xvfb or xdotool.
set -euo pipefail
program=$1 plugin=$2
fail() { echo "live_window.sh: $*" >&2; exit 1; }
for tool in Xvfb xdotool; do
  command -v "$tool" >/dev/null || { echo "live_window.sh: $tool is missing" >&2; exit 77; }
done

room=$(mktemp -d)
export XDG_RUNTIME_DIR=$room # else the window library complains
pids=()
clean_up() {
  [ ${#pids[@]} -eq 0 ] || kill "${pids[@]}" 2>/dev/null || true
  rm -rf "$room"
}
trap clean_up EXIT

# until_true COMMAND...: gives a slow machine a minute.
until_true() {
  local turn
  for turn in $(seq 300); do
    if "$@" >/dev/null 2>&1; then return 0; fi
    sleep 0.2
  done
  fail "waited in vain for: $* (turn $turn); the program said: $(tr '\r' '\n' <"$room/complaints" | tail -n 3)"
}
records() { wc -l <"$room/records.jsonl"; }
more_than() { [ "$(records)" -gt "$1" ]; }
stands_still() {
  local before
  before=$(records)
  sleep 0.7
  [ "$(records)" -eq "$before" ]
}
drag() {  # drag X Y TO_X TO_Y
  xdotool mousemove "$1" "$2" mousedown 1
  xdotool mousemove $((($1 + $3) / 2)) $((($2 + $4) / 2)) mousemove "$3" "$4" mouseup 1
}

"$program" draw-scene "$room/scene.avi" --frames 200
# -noreset: without it the server starts over when its only client goes, and refuses the next one meanwhile.
Xvfb -noreset -displayfd 3 -screen 0 1024x768x24 3>"$room/display" 2>/dev/null &
pids+=($!)
until_true test -s "$room/display"
DISPLAY=:$(cat "$room/display")
export DISPLAY
: >"$room/records.jsonl"
"$program" track "$room/scene.avi" --show --pace source --plugin "$plugin" --records "$room/records.jsonl" --quiet \
  2>"$room/complaints" &
track=$!
pids+=("$track")

until_true xdotool search --name csrt-track
window=$(xdotool search --name csrt-track | head -n 1)
stands_still || fail "tracks before a box was given"
until_true eval 'drag 116 165 148 225; more_than 0'
grep -q '"frame":0' <<<"$(head -n 1 "$room/records.jsonl")" || fail "the first box does not count for the first frame"

xdotool windowfocus "$window" key space
until_true stands_still
paused=$(records)
[ "$paused" -lt 150 ] || fail "the pause came too late to try anything: $paused records"
xdotool key period
until_true more_than "$paused"
stands_still || fail "a step did not end in a pause"
[ "$(records)" -eq $((paused + 1)) ] || fail "one step gave $(($(records) - paused)) records"

drag 300 100 360 160
until_true more_than $((paused + 1))
sed -n "$((paused + 2))p" "$room/records.jsonl" | grep -q '"call":"init"' || fail "a dragged box did not start over"
xdotool key q
wait "$track" || fail "q ended with $?"
[ ! -s "$room/complaints" ] || fail "complained: $(cat "$room/complaints")"
