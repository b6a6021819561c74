"""Checks of what the camera says beside its pictures: written, read back by others, and read from streams."""
import json
import os
import socket
import subprocess
import tempfile
import threading
import time

from klv_stream import code_of, degrees_of, split_packets, stream_types, to_synchronous
from live_senders import Sender, free_port, own_sender

FRAMES = 50


def pan_at(number):
    return -10 + number * 0.5


class CameraChecks:
    def read_by_ffmpeg(self, path):
        """The packets in a file as ffmpeg hands them out, as bytes."""
        return subprocess.run(["ffmpeg", "-nostdin", "-loglevel", "quiet", "-i", path, "-map", "0:d", "-c", "copy",
                               "-f", "data", "-"], capture_output=True, check=False, timeout=30).stdout

    def read_by_gstreamer(self, path):
        """The same of GStreamer's tsdemux, which knows asynchronous packets alone in the version of Debian 12."""
        out = path + ".klv"
        subprocess.run(["gst-launch-1.0", "-q", "filesrc", f"location={path}", "!", "tsdemux", "!", "meta/x-klv", "!",
                        "filesink", f"location={out}"], check=False, timeout=30)
        with open(out, "rb") as file:
            return file.read()

    def written_scene(self, room):
        """A drawn scene with directions, written with --klv-out. @return its path and what was complained of"""
        scene, table, stream = (os.path.join(room, name) for name in ("scene.avi", "m.csv", "x.ts"))
        subprocess.run([self.track_program, "draw-scene", scene, "--frames", str(FRAMES)], check=True,
                       capture_output=True)
        with open(table, "w", encoding="ascii") as rows:
            rows.write("frame,pan_deg,tilt_deg,hfov_deg,vfov_deg,sensor_lat_deg,sensor_lon_deg,sensor_alt_m,"
                       "measured_slant_range_m\n")
            rows.writelines(f"{n},{pan_at(n)},{-20 - n * 0.1},60,33.75,47.5,-8.25,1500,1000\n" for n in range(FRAMES))
        done = subprocess.run([self.track_program, "track", scene, "--box", "116,165,32,60", "--metadata", table,
                               "--klv-out", stream, "--quiet"], capture_output=True, text=True)
        return stream, done.stderr.strip()

    def klv(self):
        """What is written beside the video is read back by others byte for byte."""
        with tempfile.TemporaryDirectory() as room:
            stream, said = self.written_scene(room)
            by_ffmpeg, by_gst = self.read_by_ffmpeg(stream), self.read_by_gstreamer(stream)
            packets = split_packets(by_ffmpeg)
            right = [abs(degrees_of(packet, 18) - pan_at(n) % 360) < 1e-4 for n, packet in enumerate(packets)]
            with open(stream, "rb") as data:
                types = stream_types(data.read())
            self.judge("KLV read back byte for byte",
                       by_ffmpeg == by_gst and len(packets) == FRAMES and all(right) and 0x06 in types,
                       f"{len(packets)} packets, {len(by_ffmpeg)} bytes by ffmpeg, {len(by_gst)} by tsdemux {said}")
            # 1000 m along a line 20 degrees down, first to the north-west: the ground 342 m below.
            first = packets[0] if packets else b""
            north, east = degrees_of(first, 23) - 47.5, degrees_of(first, 24) + 8.25
            height = code_of(first, 25) / 65535 * 19900 - 900 if first else 0
            self.judge("the frame's centre is filled in",
                       abs(north - 0.00832) < 1e-4 and abs(east + 0.00217) < 1e-4 and abs(height - 1158) < 1,
                       f"{north:+.5f} and {east:+.5f} degrees away, {height:.0f} m high")

    def simulated(self):
        """The same of `simulate --clip`."""
        with tempfile.TemporaryDirectory() as room:
            path, table = os.path.join(room, "clip.ts"), os.path.join(room, "clip.jsonl")
            scenario = os.path.join(room, "short.json")
            with open(scenario, "w", encoding="ascii") as text:
                json.dump({"duration_s": 1, "title": "short", "target": {"path": [{"pan_deg": 5, "tilt_deg": -5}]},
                           "config": {"preposition": {"enabled": True}}}, text)
            done = subprocess.run([self.track_program, "simulate", scenario, "--clip", path, "--clip-metadata", table,
                                   "--quiet"], capture_output=True, text=True, timeout=120)
            by_ffmpeg, by_gst = self.read_by_ffmpeg(path), self.read_by_gstreamer(path)
            packets = split_packets(by_ffmpeg)
            with open(table, encoding="utf-8") as rows:
                wanted = [json.loads(row)["pan_deg"] % 360 for row in rows if row.strip()]
            right = [abs((degrees_of(packet, 18) - pan + 180) % 360 - 180) < 1e-4
                     for packet, pan in zip(packets, wanted)]
            self.judge("KLV of a simulated flight",
                       by_ffmpeg == by_gst and len(packets) == len(wanted) > 10 and all(right),
                       f"{len(packets)} packets for {len(wanted)} frames, {len(by_ffmpeg)} bytes by ffmpeg, "
                       f"{len(by_gst)} by tsdemux {done.stderr.strip()}")

    def synchronous(self):
        """Packets in a stream: asynchronous as written, and synchronous (stream type 0x15); then one in five broken."""
        with tempfile.TemporaryDirectory() as room:
            asynchronous, said = self.written_scene(room)
            with open(asynchronous, "rb") as file:
                data = file.read()
            changed = os.path.join(room, "y.ts")
            with open(changed, "wb") as file:
                file.write(to_synchronous(data))
            with open(changed, "rb") as file:
                types = stream_types(file.read())
            by_ffmpeg = self.read_by_ffmpeg(changed)
            count = len(split_packets(by_ffmpeg))
            self.judge("synchronous KLV is what others take it for",
                       0x15 in types and 0x06 not in types and count == FRAMES,
                       f"types {', '.join(hex(kind) for kind in types)}, {count} packets {said}")
            for name, path in (("asynchronous", asynchronous), ("synchronous", changed)):
                port = free_port(socket.SOCK_DGRAM)
                with Sender("ffmpeg", "-nostdin", "-loglevel", "quiet", "-re", "-stream_loop", "3", "-i", path, "-map",
                            "0", "-c", "copy", "-f", "mpegts", f"udp://127.0.0.1:{port}?pkt_size=1316", ready=False):
                    lines, said = self.probe(f"udp://127.0.0.1:{port}", 3)
                end = lines[-1] if lines else {}
                self.judge(f"{name} KLV in a stream", end.get("packets", 0) > 5 and end.get("packets_refused") == 0 and
                           any("camera" in line for line in lines),
                           f"{end.get('packets')} packets, {end.get('packets_refused')} refused, "
                           f"{sum('camera' in line for line in lines)} frames with a direction {said}")
                with open(path, "rb") as file:
                    whole = subprocess.run([self.probe_program, "-", "10"], stdin=file, capture_output=True, text=True,
                                           timeout=40)
                end = json.loads(whole.stdout.splitlines()[-1]) if whole.stdout else {}
                self.judge(f"{name} KLV of a whole file", end.get("packets") == FRAMES == end.get("decoded"),
                           f"{end.get('packets')} packets, {end.get('decoded')} pictures {whole.stderr.strip()}")
            self.broken_packets(room, data)

    def broken_packets(self, room, data):
        """Every fifth packet has one bit wrong: counted, never used."""
        broken, count, at = bytearray(data), 0, 0
        while (at := data.find(bytes.fromhex("060E2B34020B0101"), at + 1)) >= 0:
            count += 1
            if count % 5 == 0:
                broken[at + 40] ^= 1
        path = os.path.join(room, "z.ts")
        with open(path, "wb") as file:
            file.write(broken)
        with open(path, "rb") as file:
            done = subprocess.run([self.probe_program, "-", "10"], stdin=file, capture_output=True, text=True,
                                  timeout=40)
        end = json.loads(done.stdout.splitlines()[-1]) if done.stdout else {}
        self.judge("KLV with a wrong checksum", end.get("packets_refused") == count // 5 and
                   end.get("packets") == count - count // 5,
                   f"{end.get('packets')} good, {end.get('packets_refused')} refused of {count}")

    def sidecar(self):
        """A file that grows while the run goes on: the plug-in says where to point the camera, waits, and starts when
        the file says that it looks there; a line that is none is counted."""
        port, at_target, stop = free_port(), threading.Event(), threading.Event()
        with tempfile.TemporaryDirectory() as room, own_sender("rtsp", port, 30):
            path = os.path.join(room, "camera.jsonl")

            def write():
                with open(path, "w", encoding="ascii", buffering=1) as file:
                    file.write("this is no line of it\n")
                    while not stop.wait(0.02):
                        pan, tilt = (29.75, -1.125) if at_target.is_set() else (5, 0)
                        file.write(json.dumps({"unix_s": time.time(), "pan_deg": pan, "tilt_deg": tilt, "hfov_deg": 60,
                                               "vfov_deg": 33.75, "tarvex.follow_me_enabled_command": 1}) + "\n")

            thread = threading.Thread(target=write)
            thread.start()
            while not os.path.exists(path):
                time.sleep(0.01)
            process = subprocess.Popen([self.track_program, "track", f"rtsp://127.0.0.1:{port}/test", "--box",
                                        "560,160,48,64", "--set", "preposition.enabled=true", "--metadata", path,
                                        "--records", "-", "--frames", "100"], stdout=subprocess.PIPE,
                                       stderr=subprocess.PIPE, text=True, stdin=subprocess.DEVNULL)
            records = []
            try:
                for line in process.stdout:
                    records.append(json.loads(line))
                    if len(records) == 20:
                        at_target.set()
                status = process.wait(timeout=20)
                said = process.stderr.read().strip()
            finally:
                stop.set()
                thread.join(timeout=2)
                if process.poll() is None:
                    process.kill()
                process.wait(timeout=5)
                process.stdout.close()
                process.stderr.close()
            first = records[0]["outputs"] if records else []
            asked = [out["value"] for out in first if out["name"] == "gimbal_preposition.v1"]
            waited = [record["state"] for record in records[:20]].count("waiting")
            states = {record["state"] for record in records[40:]}
            pan = asked[0].get("target_pan_deg", 0) if asked else 0
            self.judge("a sidecar that grows", status == 0 and abs(pan - 29.75) < 0.2 and waited == 20 and
                       "waiting" not in states and states and "1 line of the metadata not understood" in said,
                       f"asked for pan {pan:.2f}, waited {waited} of 20 frames, then {' '.join(sorted(states))}; "
                       f"{said[-60:]}")
