#!/usr/bin/env bash
# How many 1080p25 streams with one target each do two cores hold, decoding included? Sends real RTSP streams on this
# machine's loopback, follows a target in each with a `csrt-track track` of its own, all pinned to two processors, and
# writes age against number of streams: OUT/streams.json, OUT/streams.svg.
#   tools/streams-per-core.sh [--out DIR] [--seconds 12] [--most 9] [--realtime] [--engine opencv --engine fast]
# About four minutes. Other work on the machine makes ages worse, so that the load is written beside them; processor
# time per stream hardly depends on it. --realtime (root) goes before all other work. Needs a build; CSRT_BUILD names
# another build folder. Exit status: 0 measured, 1 something did not run or lost its target, 77 the senders are not
# installed.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
exec /usr/bin/python3 "$root/tools/lib/streams_per_core.py" --build "${CSRT_BUILD:-$root/build}" "$@"
