#!/usr/bin/env bash
# Are the engine's answers OpenCV's? First both trackers side by side: the clip, drawn scenes, both cut, enlarged and
# grey, folders of pictures, jittered boxes, parameter sets; with the best instruction set of this processor and with
# its family's smallest. Then the two plug-ins: every record and every log line of every shipped scenario and of the
# clip that run.sh follows. Exit status: 0 when nothing differs, 1 when something does, 2 when nothing could be compared.
#
#   tools/engine-equality.sh [--short] [--pictures FOLDER]... [--build FOLDER] [--isa best|baseline|both] [--no-clip]
#                            [--plugins-only] [--starts N] [--frames N] [--seed N]
#
# --short takes well under a minute: few starts, and one scenario. --plugins-only leaves out the first part. --build names a folder that is built already. Built
# for another processor: CSRT_EMULATOR names what starts the programs, such as "qemu-aarch64 -L sysroot".
set -euo pipefail
called_from=$PWD
cd "$(dirname "$0")/.."
root=$PWD
. tools/install-deps.sh
. tools/fetch-clip.sh

short=no build='' isa=both clip=yes trackers=yes
arguments=()
while [ $# -gt 0 ]; do
  option=$1
  shift
  case $option in
  --short) short=yes arguments+=(--short) ;;
  --no-clip) clip=no ;;
  --plugins-only) trackers=no ;;
  --pictures | --build | --isa | --starts | --frames | --seed)
    [ $# -gt 0 ] || csrt_die "$option needs a value"
    value=$1
    shift
    case $option in
    --pictures) arguments+=(--pictures "$(cd "$called_from" && realpath "$value")") ;;
    --build) build=$(cd "$called_from" && realpath "$value") ;;
    --isa) isa=$value ;;
    *) arguments+=("$option" "$value") ;;
    esac
    ;;
  *) csrt_die "'$option' is not an option; the head of this script has them" ;;
  esac
done
case $isa in
best | baseline) sets=("$isa") ;;
both) sets=(best baseline) ;;
*) csrt_die "--isa is best, baseline or both" ;;
esac

if [ -z "$build" ]; then
  csrt_install_dependencies
  csrt_build engine_equality csrt-track csrt_tracking_plugin csrt_tracking_plugin_fast
  build=$root/build
fi
clip_file=
if [ "$clip" = yes ] && [ "$short" = no ]; then
  clip_file=$(csrt_fetch_clip) || echo "Without the clip: its part is left out." >&2
  [ -z "$clip_file" ] || arguments+=(--clip "$clip_file")
fi
read -ra emulator <<<"${CSRT_EMULATOR-}"
program() {
  local name=$1
  shift
  "${emulator[@]}" "$build/bin/$name" "$@"
}

# with_set SET COMMAND...: with the best instruction set, or with the smallest.
with_set() {
  local set=$1
  shift
  if [ "$set" = baseline ]; then CSRT_ENGINE_ISA=baseline "$@"; else "$@"; fi
}

out=$(mktemp -d)
trap 'rm -rf "$out"' EXIT
status=0
compared=0

# answers NAME PLUGIN COMMAND...: one line per record, without times and the engine's name, and every log line.
answers() {
  local name=$1 plugin=$2
  shift 2
  local code=0
  program csrt-track "$@" --quiet --plugin "$build/lib/$plugin" --records "$out/records" --debug 2>"$out/log" || code=$?
  # A missed expectation of a scenario (1) is an answer as well.
  [ "$code" -le 1 ] || { cat "$out/log" >&2; csrt_die "$name ended with status $code"; }
  sed -E 's/"update_ms":[^,]*,//; s/"engine":"[a-z]*",//' "$out/records" >"$out/$name"
  sed -E 's/total=.*\| patches/patches/' "$out/log" >>"$out/$name"  # the log of a search has its time in it
}

# same WHAT COMMAND...: the command's answers from both plug-ins.
same() {
  local what=$1 set
  shift
  answers opencv libcsrt_tracking_plugin.so "$@"
  [ -s "$out/opencv" ] || csrt_die "$what gave no records"
  for set in "${sets[@]}"; do
    with_set "$set" answers fast libcsrt_tracking_plugin_fast.so "$@"
    compared=$((compared + $(wc -l <"$out/opencv")))
    if cmp -s "$out/opencv" "$out/fast"; then
      printf 'plug-in, %-10s %-20s the same: %5d records and log lines\n' "$set" "$what" "$(wc -l <"$out/opencv")"
    else
      printf 'plug-in, %-10s %-20s DIFFERENT: %s lines\n' "$set" "$what" "$(diff "$out/opencv" "$out/fast" | grep -c '^[<>]')"
      diff "$out/opencv" "$out/fast" | head -n 4 | cut -c 1-300 || true
      status=1
    fi
  done
}

for set in "${sets[@]}"; do
  [ "$trackers" = yes ] || break
  echo "== trackers side by side, $set instruction set"
  code=0
  with_set "$set" program engine_equality "${arguments[@]}" || code=$?
  [ "$code" -le 1 ] || exit "$code"
  [ "$code" -eq 0 ] || status=1
done

echo "== the whole plug-in"
if [ "$short" = yes ]; then
  scenarios=(occlusion)
else
  mapfile -t scenarios < <(program csrt-track simulate --list | cut -d ' ' -f 1)
fi
for scenario in "${scenarios[@]}"; do
  same "$scenario" simulate "$scenario"
done
if [ -n "$clip_file" ]; then
  same "the clip" track "$clip_file" --start 240 --frames 160 --box "walker=664,268,38,108"
fi

if [ "$status" -eq 0 ]; then
  echo "equal: no coordinate, no record and no log line differs ($compared lines of the plug-in compared)"
else
  echo "NOT equal: see above"
fi
exit "$status"
