#!/usr/bin/env bash
# Sends real streams on this machine's loopback and measures how live sources are followed: age of the pictures, loss,
# return, reconnection, wrong input. Ends by itself; every sender is bounded.
#   tools/live-check.sh              all checks, about 9 minutes, judged by the figures of docs/live.md
#   tools/live-check.sh rtsp killed  these alone
#   tools/live-check.sh --short ...  a few seconds each; only what must hold on any machine is judged, no times
# Needs a build (build/bin/live_probe and csrt-track); CSRT_BUILD names another build folder. Exit status: 0 all is
# well, 1 something is not, 77 the senders are not installed.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
exec /usr/bin/python3 -B "$root/tools/lib/live_check.py" --build "${CSRT_BUILD:-$root/build}" "$@"
