"""What tools/cameras-check.sh does: three runs, two faults, and what the records of the others say."""
import argparse
import json
import os
import signal
import subprocess
import sys
import tempfile
import time

from live_senders import free_port, own_sender

BOX = "40,160,48,64"
FRAMES = 40        # that a camera must have worked through for a step to count
UPDATES = 150      # after which the scripted plug-in aborts
LIMIT_S = 120.0    # of waiting for one thing, on a machine that is busy


class Camera:
    """A sender and a run on it. `script`: answers of the scripted plug-in, else the real one."""

    def __init__(self, check, name, script=""):
        self.check, self.name, self.script = check, name, script
        self.port = free_port()
        self.records = os.path.join(check.room, name + ".jsonl")
        self.sender = own_sender("rtsp", self.port, 600)
        self.run = None

    def start(self):
        plugin = ["--plugin", self.check.fake, "--set", "fake.script=" + self.script] if self.script else []
        self.run = subprocess.Popen(
            [self.check.track, "track", f"rtsp://127.0.0.1:{self.port}/test", "--box", BOX, "--control",
             os.path.join(self.check.sockets, self.name), "--records", self.records, "--quiet", "--connect-timeout", "60",
             *plugin], stdin=subprocess.DEVNULL, stderr=subprocess.DEVNULL)

    def read(self):
        if not os.path.exists(self.records):
            return []
        with open(self.records, "rb") as file:
            data = file.read()
        return [json.loads(line) for line in data[:data.rfind(b"\n") + 1].splitlines()]

    def frames(self):
        return sum(record["call"] != "none" for record in self.read())

    def end(self):
        if self.run is not None and self.run.poll() is None:
            self.run.send_signal(signal.SIGTERM)
            try:
                self.run.wait(timeout=20)
            except subprocess.TimeoutExpired:
                self.run.kill()
                self.run.wait()
        self.sender.end()


def gaps(records):
    """What is missing between records of one run: a silence, or a picture that was neither worked on nor counted."""
    found, last = [], None
    for record in records:
        if record["call"] == "none":
            found.append(f"no picture after frame {record['frame']}")
        elif last is not None and record["frame"] != last + 1 + record["dropped"]:
            found.append(f"frame {record['frame']} after {last}, {record['dropped']} counted as left out")
        if record["call"] != "none":
            last = record["frame"]
    return found


class Check:
    def __init__(self, build, room):
        self.room, self.failed = room, False
        self.track = os.path.join(build, "bin", "csrt-track")
        self.fake = os.path.join(build, "lib", "libfake_plugin.so")
        self.sockets = os.path.join(room, "sockets")
        os.mkdir(self.sockets)

    def judge(self, name, holds, figures):
        self.failed = self.failed or not holds
        print(f"{name}: {'ok' if holds else 'NOT OK'}: {figures}", flush=True)

    def until(self, what, call):
        end = time.monotonic() + LIMIT_S
        while time.monotonic() < end:
            if call():
                return
            time.sleep(0.1)
        raise RuntimeError(f"waited {LIMIT_S:.0f} s in vain for {what}")

    def status(self):
        """Exit status, and each camera's state or fault."""
        done = subprocess.run([self.track, "status", "--json", "--dir", self.sockets, "--limit", "20"],
                              capture_output=True, text=True, timeout=60)
        cameras = json.loads(done.stdout)["cameras"]
        return done.returncode, {camera["camera"]: camera.get("state") or camera["fault"] for camera in cameras}

    def go_on(self, *cameras):
        """All of these get so many frames further."""
        goals = {camera.name: camera.frames() + FRAMES for camera in cameras}
        for camera in cameras:
            self.until(f"{FRAMES} more frames of {camera.name}", lambda c=camera: c.frames() >= goals[c.name])

    def run(self):
        gate, yard = Camera(self, "gate"), Camera(self, "yard")
        door = Camera(self, "door", "t" * UPDATES + "A")
        cameras = [gate, yard, door]
        try:
            for camera in cameras:
                camera.start()
            self.until("all pictures", lambda: all(camera.frames() > 5 for camera in cameras))
            self.until("all being well", lambda: self.status()[0] == 0)
            status, states = self.status()
            # Each has followed its target; where in its picture a sender is by now, nobody knows.
            tracked = all(any(record["state"] == "tracked" for record in camera.read()) for camera in cameras)
            self.judge("all well", status == 0 and len(states) == len(cameras) and tracked, f"exit {status}, {states}")
            self.plugin_aborts(door, gate, yard)
            self.sender_dies(gate, door, yard)
        finally:
            for camera in cameras:
                camera.end()

    def plugin_aborts(self, ill, *others):
        self.until("the abort", lambda: ill.run.poll() is not None)
        before = {other.name: other.frames() for other in others}
        self.go_on(*others)
        status, states = self.status()
        self.judge("plug-in aborted", ill.run.returncode == -signal.SIGABRT and status == 1 and
                   states["door"].startswith("is not running"), f"exit {status}, {states}")
        for other in others:
            records = other.read()
            self.judge(f"{other.name} meanwhile", not gaps(records) and other.run.poll() is None,
                       f"{len(records)} records, {len(records) - before[other.name]} after the abort, "
                       f"{sum(r['dropped'] for r in records if 'dropped' in r)} pictures left out and counted; "
                       f"{'; '.join(gaps(records)) or 'no gap'}")
        # As systemd does; what the ended run left must not be in its way.
        ill.script, ill.records = "", ill.records + ".2"
        ill.start()
        self.until("the run that was started again", lambda: ill.frames() > 5)
        self.until("all being well again", lambda: self.status()[0] == 0)
        states = self.status()[1]
        self.judge("started again", len(states) == 3, f"{states}")

    def sender_dies(self, ill, *others):
        ill.sender.end()
        self.until("the word that no picture comes", lambda: ill.read()[-1]["call"] == "none")
        self.go_on(*others)
        status, states = self.status()
        self.judge("sender killed", status == 1 and states[ill.name] == "no signal" and ill.run.poll() is None,
                   f"exit {status}, {states}")
        ill.sender = own_sender("rtsp", ill.port, 600)
        self.go_on(ill)
        self.until("all being well again", lambda: self.status()[0] == 0)
        self.judge("sender back", True, f"{self.status()[1]}")
        for other in others:
            records = other.read()
            self.judge(f"{other.name} meanwhile", not gaps(records) and other.run.poll() is None,
                       f"{len(records)} records, {'; '.join(gaps(records)) or 'no gap'}")


def missing(build):
    test = "import gi; gi.require_version('GstRtspServer', '1.0'); from gi.repository import GstRtspServer, Gst; " \
           "Gst.init(None); assert Gst.ElementFactory.find('x264enc') and Gst.ElementFactory.find('avdec_h264')"
    if subprocess.run(["/usr/bin/python3", "-c", test], capture_output=True).returncode != 0:
        return "python3-gi with gir1.2-gst-rtsp-server-1.0, gstreamer1.0-plugins-ugly and gstreamer1.0-libav"
    fake = os.path.join(build, "lib", "libfake_plugin.so")
    return "" if os.path.exists(fake) else fake


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--build", required=True)
    options = parser.parse_args()
    if missing(options.build):
        print("skipped: not there: " + missing(options.build))
        sys.exit(77)
    with tempfile.TemporaryDirectory() as room:
        check = Check(options.build, room)
        check.run()
    sys.exit(1 if check.failed else 0)


main()
