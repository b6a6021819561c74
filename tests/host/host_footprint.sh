#!/usr/bin/env bash
# host_footprint.sh CSRT_TRACK PLUGIN: watches the program's system calls. It opens no socket, and writes nowhere but
# where it was told. Exit 77 (skipped) where system calls cannot be watched.
set -euo pipefail
program=$1 plugin=$2
fail() { echo "host_footprint.sh: $*" >&2; exit 1; }
strace -o /dev/null true 2>/dev/null || { echo "host_footprint.sh: strace is missing or not permitted" >&2; exit 77; }

room=$(mktemp -d)
trap 'rm -rf "$room"' EXIT
mkdir "$room"/{home,tmp,work,told}
export HOME=$room/home TMPDIR=$room/tmp
unset XDG_CACHE_HOME XDG_CONFIG_HOME XDG_DATA_HOME
cd "$room/work"
"$program" draw-scene "$room/scene.avi" --frames 8

watched() {  # watched ARGUMENT...: runs the program and keeps its calls in $room/calls
  strace -f -qq -o "$room/calls" -e trace=socket,connect,bind,creat,open,openat,mkdir,mkdirat,rename,renameat,renameat2,unlink,unlinkat,link,linkat,symlink,symlinkat,truncate \
    "$program" "$@" >"$room/answer" || fail "$* ended with $?"
  ! grep -E '(socket|connect|bind)\(' "$room/calls" || fail "$*: asked for the network"
}
# Calls that change something, without those on places that hold no files and those that failed.
changes() {
  grep -E 'O_WRONLY|O_RDWR|O_CREAT|(creat|mkdir(at)?|rename(at2?)?|unlink(at)?|(sym)?link(at)?|truncate)\(' "$room/calls" |
    grep -Ev '"/(dev|proc|sys)/|= -1 E' || true
}

for arguments in "config preset fast" "schema records" \
  "track $room/scene.avi --plugin $plugin --box 116,165,32,60"; do
  read -ra words <<<"$arguments"
  watched "${words[@]}"
  [ -s "$room/answer" ] || fail "$arguments: no answer"
  [ -z "$(changes)" ] || fail "$arguments: wrote unasked: $(changes)"
done

watched doctor --plugin "$plugin"
probed=$(changes | grep -v '"\./\.csrt-track-doctor-' || true)  # it tries the folder out, and tidies up
[ -z "$probed" ] || fail "doctor wrote elsewhere: $probed"

watched track "$room/scene.avi" --plugin "$plugin" --box 116,165,32,60 --records "$room/told/r.jsonl" \
  --report "$room/told/r.html" --video "$room/told/v.avi" --still "$room/told/s.png" --save-run "$room/told/run"
grep -q "\"$room/told/r.html" <<<"$(changes)" || fail "the report's file was not seen: the watch does not work"
elsewhere=$(changes | grep -v "\"$room/told/" || true)
[ -z "$elsewhere" ] || fail "wrote where it was not told: $elsewhere"
left=$(find "$room/home" "$room/tmp" "$room/work" -mindepth 1)
[ -z "$left" ] || fail "left behind: $left"
