#!/usr/bin/env bash
# ground_station.sh CSRT_TRACK PLUGIN FOLDER [real-time]: npm's node-mavlink as the ground station of `csrt-track serve`,
# started before the camera and after it. Loopback only. The station hands the camera its time, so that the speed of the
# machine does not matter; with "real-time" the figures are those of this machine. Exit 77 (skipped) with a reason where
# there is no npm or no registry.
set -euo pipefail
program=$1 plugin=$2 pace=${4:-handed-over}
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
clock="link"
[ "$pace" = real-time ] && clock=machine

# serve PORT: the camera, for at most four minutes.
serve() {
  "$program" serve "$room/scene.avi" --plugin "$plugin" --mavlink "udp:127.0.0.1:$1" --clock "$clock" --fps 8 --seconds 240 \
    --quiet \
    --stream-uri rtsp://127.0.0.1:8554/track &
  camera=$!
}
port=$((20000 + $$ % 20000))
echo "== the station first"
node "$here/ground_station.js" "$port" "$pace" &
station=$!
sleep 0.5
serve "$port"
wait "$station"
station=""
kill "$camera"
wait "$camera" || true

echo "== the camera first"
serve "$((port + 1))"
sleep 1.5  # long enough to have begun on most machines; it does not matter
node "$here/ground_station.js" "$((port + 1))" brief "$pace"
