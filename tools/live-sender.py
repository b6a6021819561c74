#!/usr/bin/python3
"""Sends a test stream on this machine, for checks of live sources. Ends by itself.

  live-sender.py rtsp PORT SECONDS [--clip FILE.mp4] [--user NAME:PASSWORD] [--late-caps]
  live-sender.py rtp PORT SECONDS
  live-sender.py ts PORT SECONDS

Without a clip the picture is drawn: a patterned target on a textured ground, and at the top the time at which it was
drawn as a row of 48 squares (milliseconds since 1970, black 0, white 1, the highest bit first) with their complement
below. Prints "ready" when it listens or sends. Needs python3-gi, GStreamer and, for rtsp, gir1.2-gst-rtsp-server-1.0.
"""
import argparse
import sys
import time

import gi

gi.require_version("Gst", "1.0")
from gi.repository import GLib, Gst  # noqa: E402

WIDTH, HEIGHT, FPS = 640, 360, 25
BITS, SIDE = 48, 12
MOST_REFUSED = 100  # pictures in a row
RAW = f"video/x-raw,format=GRAY8,width={WIDTH},height={HEIGHT},framerate={FPS}/1"
ENCODE = "videoconvert ! video/x-raw,format=I420 ! x264enc tune=zerolatency speed-preset=ultrafast " \
         "bitrate=4000 key-int-max=25"


class Picture:
    """Draws the frames; the n-th one always has its target in the same place."""

    def __init__(self):
        state, ground = 7, bytearray(WIDTH * HEIGHT)
        for row in range(0, HEIGHT, 8):
            line = bytearray(WIDTH)
            for column in range(0, WIDTH, 8):
                state = (state * 1103515245 + 12345) & 0x7FFFFFFF
                line[column:column + 8] = bytes([70 + (state >> 16) % 50]) * 8
            for y in range(row, min(row + 8, HEIGHT)):
                ground[y * WIDTH:(y + 1) * WIDTH] = line
        self.ground = bytes(ground)

    def target(self, number):
        """Left, top, width, height of the target in a frame: it goes to and fro."""
        way = WIDTH - 160
        step = (number * 2) % (2 * way)
        return 40 + (step if step < way else 2 * way - step), 160, 48, 64

    def draw(self, number):
        frame = bytearray(self.ground)
        x, y, w, h = self.target(number)
        for row in range(h):
            line = b"".join(bytes([230 if (row // 8 + column // 8) % 2 else 15]) for column in range(w))
            at = (y + row) * WIDTH + x
            frame[at:at + w] = line
        now = int(time.time() * 1000)
        bits = [now >> (BITS - 1 - i) & 1 for i in range(BITS)]
        plain = b"".join(bytes([235 if bit else 16]) * SIDE for bit in bits)
        other = b"".join(bytes([16 if bit else 235]) * SIDE for bit in bits)
        for row in range(SIDE):
            frame[row * WIDTH:row * WIDTH + len(plain)] = plain
            frame[(row + SIDE) * WIDTH:(row + SIDE) * WIDTH + len(other)] = other
        return bytes(frame)


class Drawer:
    """Feeds an appsrc at the frames' rate, without falling behind when it is late."""

    def __init__(self, picture):
        self.picture, self.number, self.sources = picture, 0, {}
        GLib.timeout_add(1000 // FPS, self.tick)

    def add(self, source):
        self.sources[source] = 0

    def tick(self):
        if self.sources:
            data = self.picture.draw(self.number)
            for source in list(self.sources):
                taken = source.emit("push-buffer", Gst.Buffer.new_wrapped(data)) == Gst.FlowReturn.OK
                # One that has just been made takes nothing yet; one that nobody watches any more never will.
                self.sources[source] = 0 if taken else self.sources[source] + 1
                if self.sources[source] > MOST_REFUSED:
                    del self.sources[source]
        self.number += 1
        return True


def source_text():
    return f"appsrc name=src is-live=true do-timestamp=true format=time max-buffers=2 leaky-type=downstream caps={RAW}"


def serve_rtsp(options, drawer):
    gi.require_version("GstRtspServer", "1.0")
    from gi.repository import GstRtspServer
    server = GstRtspServer.RTSPServer()
    server.set_address("127.0.0.1")
    server.set_service(str(options.port))
    factory = GstRtspServer.RTSPMediaFactory()
    if options.clip:
        factory.set_launch(f'( filesrc location="{options.clip}" ! qtdemux ! h264parse ! '
                           'rtph264pay name=pay0 pt=96 config-interval=-1 )')
        factory.set_shared(False)
    else:
        factory.set_launch(f"( {source_text()} ! {ENCODE} ! rtph264pay name=pay0 pt=96 config-interval=-1 )")
        factory.set_shared(True)
        factory.connect("media-configure", lambda _, media: drawer.add(media.get_element().get_by_name("src")))
    if options.user:
        name, password = options.user.split(":")
        auth, token = GstRtspServer.RTSPAuth(), GstRtspServer.RTSPToken()
        token.set_string("media.factory.role", name)
        auth.add_basic(GstRtspServer.RTSPAuth.make_basic(name, password), token)
        server.set_auth(auth)
        permissions = GstRtspServer.RTSPPermissions()
        for what in ("media.factory.access", "media.factory.construct"):
            permissions.add_permission_for_role(name, what, True)
        factory.set_permissions(permissions)
    server.get_mount_points().add_factory("/test", factory)
    if server.attach(None) == 0:
        sys.exit("live-sender.py: the port is in use")
    return server


def send(options, drawer):
    last = {"rtp": "rtph264pay config-interval=-1 pt=96 ! udpsink",
            "ts": "h264parse config-interval=-1 ! mpegtsmux alignment=7 ! udpsink"}[options.kind]
    pipeline = Gst.parse_launch(f"{source_text()} ! {ENCODE} ! {last} host=127.0.0.1 port={options.port} sync=false")
    drawer.add(pipeline.get_by_name("src"))
    pipeline.set_state(Gst.State.PLAYING)
    return pipeline


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("kind", choices=["rtsp", "rtp", "ts"])
    parser.add_argument("port", type=int)
    parser.add_argument("seconds", type=float)
    parser.add_argument("--clip")
    parser.add_argument("--user")
    options = parser.parse_args()
    Gst.init(None)
    drawer = Drawer(Picture())
    kept = serve_rtsp(options, drawer) if options.kind == "rtsp" else send(options, drawer)
    loop = GLib.MainLoop()
    GLib.timeout_add(int(options.seconds * 1000), loop.quit)
    print("ready", flush=True)
    loop.run()
    del kept


main()
