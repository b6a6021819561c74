#!/usr/bin/env bash
# ground_station.sh CSRT_TRACK PLUGIN FOLDER: npm's node-mavlink as the ground station of `csrt-track serve`, started
# before the camera and after it. Loopback only. Exit 77 (skipped) with a reason where there is no npm or no registry.
set -euo pipefail
program=$1 plugin=$2
here=$(cd "$(dirname "$0")" && pwd)
# shellcheck source=tests/mavlink/npm_packages.sh
. "$here/npm_packages.sh"
npm_packages "$3" node-mavlink@2

room=$(mktemp -d)
camera="" station=""
finish() {
  for process in $camera $station; do kill "$process" 2>/dev/null || true; done
  wait 2>/dev/null || true
  rm -rf "$room"
}
trap finish EXIT
"$program" draw-scene "$room/scene.avi" --frames 1500 >/dev/null

# serve PORT: the camera, for at most 60 seconds.
serve() {
  "$program" serve "$room/scene.avi" --plugin "$plugin" --mavlink "udp:127.0.0.1:$1" --seconds 60 --quiet \
    --stream-uri rtsp://127.0.0.1:8554/track &
  camera=$!
}
port=$((20000 + $$ % 20000))
echo "== the station first"
node "$here/ground_station.js" "$port" &
station=$!
sleep 0.5
serve "$port"
wait "$station"
station=""
kill "$camera"
wait "$camera" || true

echo "== the camera first"
serve "$((port + 1))"
sleep 1.5
node "$here/ground_station.js" "$((port + 1))" brief
