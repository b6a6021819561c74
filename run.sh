#!/usr/bin/env bash
# Installs what is missing, builds, and follows a pedestrian through a real surveillance clip: once by the plug-in alone,
# which loses him, and once with the guard, which holds him.
# With arguments: builds the same and passes them to csrt-track, such as ./run.sh track street.mp4 --box 412,230,64,48
set -euo pipefail
here=$(cd "$(dirname "$0")" && pwd)
called_from=$PWD
cd "$here"
. tools/install-deps.sh
. tools/fetch-clip.sh
csrt_install_dependencies
csrt_build csrt-track csrt_tracking_plugin csrt_tracking_plugin_fast side_by_side

if [ $# -gt 0 ]; then
  cd "$called_from"
  exec "$here/build/bin/csrt-track" "$@"
fi

# The walker comes in from the right, goes away up the road between others, and comes back to where he began.
if clip=$(csrt_fetch_clip); then
  target=(--start 20 --frames 341 --box "walker=694,276,36,110")
else
  echo "Without the clip: following a figure through a drawn scene instead." >&2
  clip=.cache/drawn_scene.avi
  build/bin/csrt-track draw-scene "$clip" --sign 90
  target=(--box "figure=116,165,32,60")
fi
mkdir -p out
printf '\nThe plug-in alone:\n'
build/bin/csrt-track track "$clip" "${target[@]}" --guard off --video out/alone.mp4
printf '\nThe same with the guard, which starts it over where it finds the target:\n'
build/bin/csrt-track track "$clip" "${target[@]}" --guard colour \
  --video out/track.mp4 --still out/track.png --records out/track.jsonl --report out/report.html
build/bin/side_by_side out/alone.mp4 'the plug-in alone' out/track.mp4 'with --guard colour' \
  out/side-by-side.mp4 out/side-by-side.png
printf '\nboth, beside one another  %s\n                          %s\n' "$here/out/side-by-side.mp4" "$here/out/side-by-side.png"
