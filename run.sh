#!/usr/bin/env bash
# Installs what is missing, builds, and follows a pedestrian through a real surveillance clip.
# With arguments: builds the same and passes them to csrt-track, such as ./run.sh track street.mp4 --box 412,230,64,48
set -euo pipefail
here=$(cd "$(dirname "$0")" && pwd)
called_from=$PWD
cd "$here"
. tools/install-deps.sh
. tools/fetch-clip.sh
csrt_install_dependencies
csrt_build csrt-track csrt_tracking_plugin csrt_tracking_plugin_fast

if [ $# -gt 0 ]; then
  cd "$called_from"
  exec "$here/build/bin/csrt-track" "$@"
fi

# The walker comes in from the right, passes behind the lamp post, turns, and passes it again on the way back.
if clip=$(csrt_fetch_clip); then
  target=(--start 240 --frames 160 --box "walker=664,268,38,108")
else
  echo "Without the clip: following a figure through a drawn scene instead." >&2
  clip=.cache/drawn_scene.avi
  build/bin/csrt-track draw-scene "$clip"
  target=(--box "figure=116,165,32,60")
fi
mkdir -p out
echo >&2
build/bin/csrt-track track "$clip" "${target[@]}" \
  --video out/track.mp4 --still out/track.png --records out/track.jsonl --report out/report.html
