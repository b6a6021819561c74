"""Checks of sources other than cameras over RTSP and UDP, each with a real sender, and of what cannot be received."""
import json
import os
import re
import shutil
import socket
import subprocess
import tempfile
import threading
import time

from klv_stream import with_stream_type
from live_senders import (HttpCamera, MuteServer, Sender, certificate, free_port, own_sender, test_picture,
                          wait_until_listening)

MJPEG = "multipart/x-mixed-replace;boundary=ffmpeg"


class SourceChecks:
    def judge_receiving(self, name, address, *more, program=None):
        """Fifteen frames, however long a busy machine takes for them."""
        done = subprocess.run([program or self.probe_program, address, "20", "--frames", "15", *more],
                              capture_output=True, text=True, timeout=50)
        lines = [json.loads(line) for line in done.stdout.splitlines()]
        decoder = lines[-1].get("decoder") if lines else ""
        self.judge(name, len(self.frames_of(lines)) == 15,
                   f"{len(self.frames_of(lines))} frames, decoder {decoder} {done.stderr.strip()}")

    def http(self):
        for name, codec, kind, form in (("MJPEG", "mjpeg", MJPEG, "mpjpeg"),
                                        ("MPEG-TS", "h264", "video/mp2t", "mpegts")):
            port = free_port()
            with Sender(*test_picture(30, codec, "-f", form, "-content_type", kind, "-listen", "1",
                                      f"http://127.0.0.1:{port}/cam"), ready=False):
                wait_until_listening(port)
                self.judge_receiving(f"{name} over HTTP from ffmpeg", f"http://127.0.0.1:{port}/cam")
        with HttpCamera(test_picture(30, "mjpeg", "-f", "mpjpeg", "-"), MJPEG, user="anna:secret") as camera:
            place = f"127.0.0.1:{camera.port}"
            self.judge_receiving("MJPEG over HTTP with a password", f"http://anna:secret@{place}/cam")
            self.expect_sentence("HTTP, wrong password", f"http://anna:guess@{place}/cam", word="password")
            self.expect_sentence("HTTP, wrong path", f"http://anna:secret@{place}/other", word="cannot receive")
        with MuteServer() as mute:
            self.expect_sentence("HTTP, a server that says nothing", f"http://127.0.0.1:{mute.port}/cam",
                                 "--connect-timeout", "2", word="cannot receive")
            self.expect_sentence("RTSP, a server that says nothing", f"rtsp://127.0.0.1:{mute.port}/cam",
                                 "--connect-timeout", "2", word="cannot receive")
        if shutil.which("openssl") is None:
            self.say("HTTPS: not tried, there is no openssl to make a certificate")
            return
        with tempfile.TemporaryDirectory() as room:
            command = test_picture(30, "h264", "-f", "mpegts", "-")
            with HttpCamera(command, "video/mp2t", tls=certificate(room)) as camera:
                self.judge_receiving("MPEG-TS over HTTPS", f"https://127.0.0.1:{camera.port}/cam")

    def sdp(self):
        port = free_port(socket.SOCK_DGRAM)
        with tempfile.TemporaryDirectory() as room:
            path = os.path.join(room, "camera.sdp")
            with Sender(*test_picture(30, "h264", "-sdp_file", path, "-f", "rtp", f"rtp://127.0.0.1:{port}"),
                        ready=False):
                end = time.time() + 10
                while time.time() < end and not (os.path.exists(path) and os.path.getsize(path) > 0):
                    time.sleep(0.05)
                self.judge_receiving("an SDP file", path)
            self.expect_sentence("no such SDP file", os.path.join(room, "none.sdp"), word="there is no file")
            with open(path, "w", encoding="ascii") as file:
                file.write("hello\n")
            self.expect_sentence("an SDP file that is none", path, "--connect-timeout", "3", word="cannot receive")

    def fed(self, data_from, *more, address="-"):
        """csrt-track with a stream on its standard input."""
        with Sender(*data_from, ready=False, text=False) as sender:
            return subprocess.run([self.track_program, "track", address, "--box", "300,160,48,64", "--records", "-",
                                   *more], capture_output=True, text=True, timeout=60, stdin=sender.process.stdout)

    def stdin(self):
        done = self.fed(test_picture(3, "h264", "-f", "mpegts", "-"))
        records = done.stdout.splitlines()
        last = json.loads(records[-1])["frame"] if records else -1
        # A machine that is busy drops frames between the records; none is lost before the tracker has its choice.
        self.judge("standard input", done.returncode == 0 and last == 74 and len(records) > 5,
                   f"exit {done.returncode}, {len(records)} records, the last of frame {last} "
                   f"{done.stderr.strip()[-200:]}")
        done = self.fed(["head", "-c", "300000", "/dev/urandom"], "--quiet", "--connect-timeout", "5")
        self.judge("garbage on standard input", done.returncode == 3 and len(done.stderr.strip().splitlines()) == 1,
                   f"exit {done.returncode}: {done.stderr.strip()}")
        done = self.fed(["true"], "--quiet", "--connect-timeout", "5")
        self.judge("nothing on standard input", done.returncode == 3 and len(done.stderr.strip().splitlines()) == 1,
                   f"exit {done.returncode}: {done.stderr.strip()}")

    def pipeline(self):
        """Of one's own: followed to its end, with an error in the middle, and without the sink that is asked for."""
        source = "videotestsrc is-live=true num-buffers=40 ! video/x-raw,width=640,height=360,framerate=25/1"
        done = self.track("", "--gstreamer", f"{source} ! appsink name=out")
        self.judge("a pipeline", done.returncode == 0 and len(done.stdout.splitlines()) > 5,
                   f"exit {done.returncode}, {len(done.stdout.splitlines())} records {done.stderr.strip()}")
        self.expect_sentence("a pipeline without the sink", "", "--gstreamer", f"{source} ! fakesink", word="appsink")
        self.expect_sentence("a pipeline that breaks", "", "--gstreamer",
                             f"{source} ! identity error-after=1 ! appsink name=out", word="cannot receive")
        # No device here: what is there and is no camera must not be taken for one.
        self.expect_sentence("no such camera", "/dev/video97", word="there is no camera")

    def alone(self):
        """RTSP without GStreamer: the other module takes it."""
        port = free_port()
        with tempfile.TemporaryDirectory() as room, own_sender("rtsp", port, 50):
            for folder, name in (("bin", "live_probe"), ("lib", "libcsrt_live_av.so")):
                os.mkdir(os.path.join(room, folder))
                shutil.copy(os.path.join(self.options.build, folder, name), os.path.join(room, folder, name))
            program = os.path.join(room, "bin", "live_probe")
            address = f"rtsp://127.0.0.1:{port}/test"
            self.judge_receiving("RTSP without GStreamer", address, program=program)
            self.judge_receiving("RTSP over UDP without GStreamer", address, "--udp", program=program)

    def decoder(self):
        """A stream that nothing here decodes: of a kind that is rare, and with the decoders put away."""
        with tempfile.TemporaryDirectory() as room:
            path = os.path.join(room, "x.ts")
            quick = [word for word in test_picture(1, "h264") if word != "-re"]
            subprocess.run([*quick, "-f", "mpegts", path], check=True)
            with open(path, "rb") as file:
                data, _ = with_stream_type(file.read(), 0x1B, 0xD4)  # AVS3
            with open(path, "wb") as file:
                file.write(data)
            done = self.fed(["cat", path], "--quiet")
            self.judge("no decoder for MPEG-TS", done.returncode == 3 and "no decoder" in done.stderr and
                       len(done.stderr.strip().splitlines()) == 1, f"exit {done.returncode}: {done.stderr.strip()}")
        find = "import gi; gi.require_version('Gst', '1.0'); from gi.repository import Gst; Gst.init(None); " \
               "able = Gst.ElementFactory.list_filter(Gst.ElementFactory.list_get_elements(" \
               "Gst.ELEMENT_FACTORY_TYPE_DECODER, Gst.Rank.MARGINAL), Gst.Caps.from_string('video/x-h264'), " \
               "Gst.PadDirection.SINK, False); print(','.join(f.get_name() + ':NONE' for f in able))"
        ranks = subprocess.run(["/usr/bin/python3", "-c", find], capture_output=True, text=True).stdout.strip()
        port = free_port()
        with own_sender("rtsp", port, 20):
            self.expect_sentence("no decoder for RTSP", f"rtsp://127.0.0.1:{port}/test", word="no decoder",
                                 environment={"GST_PLUGIN_FEATURE_RANK": ranks})

    def jumps(self):
        """Time stamps that jump an hour ahead and back again: counted; the run's own time does neither."""
        port, begin, first = free_port(socket.SOCK_DGRAM), time.time(), threading.Event()
        process = subprocess.Popen([self.track_program, "track", f"udp://127.0.0.1:{port}", "--box", "300,160,48,64",
                                    "--records", "-", "--give-up", "2"], stdout=subprocess.PIPE, stderr=subprocess.PIPE,
                                   text=True, stdin=subprocess.DEVNULL)
        out = []

        def read():
            for line in process.stdout:
                out.append(line)
                first.set()

        reader = threading.Thread(target=read)
        reader.start()
        try:
            for offset, seconds in ((0, 30), (3600, 2), (0, 2)):
                with Sender(*test_picture(seconds, "h264", "-g", "10", "-output_ts_offset", str(offset), "-f", "mpegts",
                                          f"udp://127.0.0.1:{port}?pkt_size=1316"), ready=False) as sender:
                    if seconds == 30:  # until it is received, and a second more
                        first.wait(timeout=20)
                        time.sleep(1)
                    else:
                        sender.process.wait(timeout=20)
            said = process.stderr.read()
            process.wait(timeout=30)
        finally:
            if process.poll() is None:
                process.kill()
            process.wait(timeout=5)
            reader.join(timeout=5)
            process.stdout.close()
            process.stderr.close()
        records = [json.loads(line) for line in out]
        times = [record["time_s"] for record in records if record["call"] != "none"]
        gone = [record for record in records if record["call"] == "none" and record["no_signal"]]
        grows = all(a < b for a, b in zip(times, times[1:]))
        whole = times[-1] - times[0] if times else 0
        jumps = re.search(r"(\d+) jumps of its time stamps", said)
        self.judge("time stamps that jump and go back",
                   process.returncode == 0 and len(times) > 20 and grows and whole < time.time() - begin and
                   jumps and int(jumps[1]) >= 2 and gone and "no signal for" in said,
                   f"{len(times)} frames over {whole:.1f} s, exit {process.returncode}: {said.strip()[-160:]}")
