#!/usr/bin/env bash
# restart_pause_test.sh SCRIPT: the pauses between failed runs grow, end somewhere, and begin over when they should.
# No time is waited: `sleep` and `date` are stand-ins that write down and answer.
set -euo pipefail
script=$1
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
mkdir "$work/bin" "$work/run"
# shellcheck disable=SC2016
printf '#!/bin/sh\necho "$1" >>"%s/slept"\n' "$work" >"$work/bin/sleep"
printf '#!/bin/sh\ncat "%s/now"\n' "$work" >"$work/bin/date"
chmod +x "$work/bin/sleep" "$work/bin/date"
export PATH="$work/bin:$PATH" RUNTIME_DIRECTORY="$work/run"

fail() { echo "restart_pause_test.sh: $1" >&2; exit 1; }
at() { echo "$1" >"$work/now"; }
before() { : >"$work/slept"; "$script" before >/dev/null || fail "'before' fails"; }
after() { SERVICE_RESULT=$1 "$script" after || fail "'after' fails"; }
slept() { [ "$(cat "$work/slept")" = "$1" ] || fail "$2: waited '$(cat "$work/slept")' instead of '$1'"; }

at 1000000
before; slept '' 'the first start'
after exit-code
for expected in 1 2 4 8 16 32 64 128 256 300 300; do
  before; slept "$expected" 'a failed run after the other'
  after exit-code
done
before; at 1000599; after signal
before; slept 300 'a run just below ten minutes'
at 1002000; after core-dump
before; slept 1 'a run of ten minutes that failed'
after exit-code
before; slept 2 'failed again'
after success
before; slept '' 'stopped by a person'
after exit-code
at 5; after exit-code
before; slept 2 'the clock was set back meanwhile'
at 99000000000; after exit-code
before; slept 4 'the clock was set far ahead meanwhile'
echo 'nonsense' >"$work/run/failures"
before; slept '' 'a damaged count'
echo '' >"$work/run/began"; after exit-code
before; slept 1 'a damaged beginning'
rm -r "$work/run"
before 2>/dev/null; slept '' 'its folder is gone'
after exit-code 2>/dev/null
if "$script" sideways 2>/dev/null; then fail 'a wrong word is taken'; fi
echo 'restart_pause_test.sh: the pauses grow from 1 s to 300 s and begin over'
