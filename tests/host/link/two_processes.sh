#!/usr/bin/env bash
# two_processes.sh CSRT_TRACK PLUGIN [real-time]: `csrt-track simulate --mavlink` and `csrt-track serve`, each a process,
# hold a car that drives with 8 degrees a second, say where it is on the ground, and find that the gimbal's angles are
# 80 ms late; video through a pipe, everything else through the protocol. Loopback only. Simulated time, handed over
# with TIMESYNC, so that the speed of the machine does not matter; with "real-time" the machine's clock counts, and the
# figures are those of this machine.
set -euo pipefail
program=$1 plugin=$2 pace=${3:-lock-step}
room=$(mktemp -d)
server="" flight=""
finish() {
  for process in $server $flight; do kill "$process" 2>/dev/null || true; done
  wait 2>/dev/null || true
  rm -rf "$room"
}
trap finish EXIT
simulate_options=() serve_options=()
if [ "$pace" = lock-step ]; then
  simulate_options=(--lock-step)
  serve_options=(--clock link --pace video)
fi

# run NAME STALE_S: a flight whose angles come STALE_S late.
run() {
  local name=$1 stale=$2
  mkfifo "$room/$name-video"
  cat >"$room/$name.json" <<JSON
{ "title": "A car drives by", "duration_s": 9, "fps": 25,
  "camera": { "hfov_deg": 60, "delay_s": 0.04, "video_delay_s": 0.1, "tilt_deg": -25 },
  "target": { "look": "car", "size_deg": [4, 2], "path": [
    { "t_s": 0, "pan_deg": 5, "tilt_deg": -30 }, { "t_s": 1.5, "pan_deg": 5, "tilt_deg": -30 },
    { "t_s": 21.5, "pan_deg": 165, "tilt_deg": -30 }] },
  "metadata": { "noise_deg": 0.02, "delay_s": $stale }, "config": {} }
JSON
  local port=$((20000 + $$ % 20000))
  "$program" simulate "$room/$name.json" --mavlink "udp-listen:$port" --video-pipe "$room/$name-video" \
    --summary "$room/$name-summary.json" --platform 47.4,8.5,520,100,90 "${simulate_options[@]}" &
  flight=$!
  "$program" serve "$room/$name-video" --mavlink "udp:$port" --plugin "$plugin" --records "$room/$name-records.jsonl" \
    --ground "${serve_options[@]}" &
  server=$!
  wait "$flight"
  flight=""
  wait "$server"
  server=""
}
run prompt 0
run stale 0.08

python3 - "$room" <<'PYTHON'
import json, math, sys
failures = []
def check(holds, what):
    print("ok  " if holds else "FAIL", what)
    if not holds:
        failures.append(what)

def read(name):
    summary = json.load(open(f"{sys.argv[1]}/{name}-summary.json"))
    records = [json.loads(line) for line in open(f"{sys.argv[1]}/{name}-records.jsonl")]
    print(name, json.dumps(summary), "records:", len(records))
    return summary, records

summary, records = read("prompt")
check(summary["judged_frames"] >= 100, "the gimbal is turned in good time")
check(summary["pan_error_rms_deg"] <= 0.2, f"the car is followed within 0.2 degrees ({summary['pan_error_rms_deg']:.3f})")
# Of the 5 degrees at the beginning, and what the tracker's box is off.
check(summary["overshoot_deg"] <= 0.05 * 5 + 0.2, f"the gimbal stays behind the car ({summary['overshoot_deg']:.3f})")
check(records[-1]["state"] in ("tracked", "rebuilt"), "the car is tracked at the end")

# The car is on flat ground 100 m below, 30 degrees below the horizon; the vehicle's nose points east.
inside = places = 0
for record in records:
    if "lat_deg" not in record.get("ground", {}):
        continue
    places += 1
    ground, t = record["ground"], record["time_s"]
    azimuth = math.radians(90 + 5 + 8 * max(0.0, t - 1.5))
    reach = 100 / math.tan(math.radians(30))
    north, east = reach * math.cos(azimuth), reach * math.sin(azimuth)
    metres = math.pi / 180 * 6371000
    off_north = (ground["lat_deg"] - 47.4) * metres - north
    off_east = (ground["lon_deg"] - 8.5) * metres * math.cos(math.radians(47.4)) - east
    turn = math.radians(ground["azimuth_deg"])
    along = off_north * math.cos(turn) + off_east * math.sin(turn)
    across = -off_north * math.sin(turn) + off_east * math.cos(turn)
    inside += (along / ground["major_m"]) ** 2 + (across / ground["minor_m"]) ** 2 <= 1
    check(abs(ground["alt_m"] - 420) < 0.1, "the ground is 100 m below") if places == 1 else None
check(places >= 100, f"records say where the car is ({places})")
check(inside >= 0.95 * places, f"it is inside the ellipse ({inside} of {places})")

summary, records = read("stale")
found = [record["angles_stale_ms"] for record in records if "angles_stale_ms" in record]
check(found and abs(found[-1] - 80) <= 20, f"angles 80 ms behind the picture are noticed ({found[-1] if found else None})")
check(summary["pan_error_rms_deg"] <= 0.3, f"and made good ({summary['pan_error_rms_deg']:.3f})")
sys.exit(1 if failures else 0)
PYTHON
