#!/usr/bin/env bash
# Instructions per step of OpenCV's tracker and of the engine, counted by valgrind: those of a long run less those of a
# short one, so that start and drawing do not count. Needs valgrind; benchmarks built by ./bench.sh or `cmake --preset bench`.
#
# usage: bench/engine_instructions.sh [FOLDER_OF_PROGRAMS] [STEPS [WIDTH HEIGHT BOX]]
set -euo pipefail
cd "$(dirname "$0")/.."
programs=${1:-build/bench/bin}
steps=${2:-8}
[ $# -lt 2 ] || shift
[ $# -lt 1 ] || shift
command -v valgrind >/dev/null || { echo "engine_instructions.sh: valgrind is missing" >&2; exit 2; }
out=$(mktemp -d)
trap 'rm -rf "$out"' EXIT

counted() {  # counted WHO STEPS [WIDTH HEIGHT BOX]
  valgrind --tool=callgrind --callgrind-out-file="$out/callgrind" "$programs/engine_steps" "$@" 2>&1 >/dev/null |
    sed -n 's/.*Collected : \([0-9]*\).*/\1/p'
}
per_step() {
  local who=$1 long short
  shift
  short=$(counted "$who" 1 "$@")
  long=$(counted "$who" $((steps + 1)) "$@")
  echo $(((long - short) / steps))
}

opencv=$(per_step opencv "$@")
for set in best baseline; do
  if [ "$set" = baseline ]; then export CSRT_ENGINE_ISA=baseline; fi
  engine=$(per_step engine "$@")
  awk -v a="$opencv" -v b="$engine" -v set="$set" 'BEGIN {
    printf "instructions per step: OpenCV %.1f million, engine (%s) %.1f million, ratio %.3f\n", a / 1e6, set, b / 1e6, b / a }'
done
