"""What tools/streams-per-core.sh does: processor time of a stream, and the age of its pictures as streams are added."""
import argparse
import json
import os
import shutil
import signal
import subprocess
import sys
import tempfile
import time

from live_senders import SENDER, free_port

TICK = os.sysconf("SC_CLK_TCK")
SETTLE_S = 3.0  # connecting, the decoder's first picture, the tracker's start
FPS = 25.0
FIGURE = 116, 165, 32, 60  # where draw-scene's figure begins
BOX = ",".join(str(3 * value) for value in FIGURE)
# A stream is held while hardly a picture is left out and the oldest ones are not much older than a few pictures.
MOST_DROPPED, OLDEST_MS = 0.01, 200.0


def share(values, part):
    ordered = sorted(values)
    return ordered[min(len(ordered) - 1, int(part * len(ordered)))] if ordered else float("nan")


def processor_s(pid):
    """Processor time that a process and its threads have used, seconds."""
    with open(f"/proc/{pid}/stat") as file:
        fields = file.read().rsplit(")", 1)[1].split()
    return (int(fields[11]) + int(fields[12])) / TICK


def busy_s(processors):
    """Processor time that anybody used on these processors, seconds."""
    total = 0
    with open("/proc/stat") as file:
        for line in file:
            name, *values = line.split()
            if name.startswith("cpu") and name[3:].isdigit() and int(name[3:]) in processors:
                total += sum(map(int, values[:8])) - int(values[3]) - int(values[4])
    return total / TICK


def make_clip(track, room, seconds, before):
    """1920x1080, 25 a second, H.264 of 6 Mbit/s with a camera's noise, a key picture a second. A figure sways slowly, so
    that nobody loses it where pictures are left out: a lost target costs less, or more."""
    small, ground, figure, clip = (os.path.join(room, name) for name in ("s.avi", "ground.png", "figure.png", "c.mp4"))
    quiet = [*before, "ffmpeg", "-nostdin", "-loglevel", "error", "-y"]
    x, y, w, h = FIGURE
    subprocess.run([track, "draw-scene", small, "--frames", "100"], check=True, stdout=subprocess.DEVNULL)
    subprocess.run([*quiet, "-i", small, "-vf", f"select=eq(n\\,0),crop={w}:{h}:{x}:{y},scale={3 * w}:{3 * h}",
                    "-frames:v", "1", figure], check=True)
    subprocess.run([*quiet, "-i", small, "-vf", "select=eq(n\\,99),scale=1920:1080", "-frames:v", "1", ground],
                   check=True)
    subprocess.run([*quiet, "-loop", "1", "-framerate", "25", "-i", ground, "-loop", "1", "-framerate", "25", "-i",
                    figure, "-filter_complex", f"[0][1]overlay=x={3 * x}+60*sin(t/2):y={3 * y},noise=alls=6:allf=t",
                    "-t", str(seconds), "-c:v", "libx264", "-preset", "veryfast", "-pix_fmt", "yuv420p", "-b:v", "6M",
                    "-maxrate", "6M", "-bufsize", "3M", "-bf", "0", "-g", "25", clip], check=True)
    return clip


class Streams:
    """So many runs at once, each on a stream of its own; all end with the object."""

    def __init__(self, options, engine, count, clip, room):
        self.port, self.room, self.runs, self.files = free_port(), room, [], []
        lasts = SETTLE_S + options.seconds + 10
        self.sender = subprocess.Popen([*options.before, SENDER, "rtsp", str(self.port), str(lasts + 30), "--clip", clip],
                                       stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, text=True)
        if self.sender.stdout.readline().strip() != "ready":
            raise RuntimeError("the sender did not start")
        for number in range(count):
            records = os.path.join(room, f"{engine}-{count}-{number}.jsonl")
            self.files.append(records)
            what = ["--box", BOX, "--engine", engine, "--records", records] if engine != "none" else [
                "--control", os.path.join(room, f"control-{count}-{number}")]
            self.runs.append(subprocess.Popen(
                [*options.before, "taskset", "-c", ",".join(map(str, options.processors)), options.track,
                 "track",
                 f"rtsp://127.0.0.1:{self.port}/test", *what, "--quiet"], stdin=subprocess.DEVNULL))

    def __enter__(self):
        return self

    def __exit__(self, *_):
        for process in [*self.runs, self.sender]:
            if process.poll() is None:
                process.send_signal(signal.SIGTERM)
        for process in [*self.runs, self.sender]:
            try:
                process.wait(timeout=10)
            except subprocess.TimeoutExpired:
                process.kill()
                process.wait()
        self.sender.stdout.close()

    def ended(self):
        return [process.returncode for process in self.runs if process.poll() is not None]


def lines_since(path, at_byte):
    with open(path, "rb") as file:
        file.seek(at_byte)
        data = file.read()
    return [json.loads(line) for line in data[:data.rfind(b"\n") + 1].splitlines()]


def measure(options, engine, count, clip, room):
    """One point: ages, drops and processor time while `count` streams run."""
    with Streams(options, engine, count, clip, room) as streams:
        time.sleep(SETTLE_S)
        if streams.ended():
            raise RuntimeError(f"a run ended with status {streams.ended()[0]}")
        sizes = [os.path.getsize(path) if os.path.exists(path) else 0 for path in streams.files]
        begin, busy, sent = time.monotonic(), busy_s(options.processors), processor_s(streams.sender.pid)
        used = [processor_s(run.pid) for run in streams.runs]
        time.sleep(options.seconds)
        if streams.ended():
            raise RuntimeError(f"a run ended with status {streams.ended()[0]}")
        took = time.monotonic() - begin
        used = [processor_s(run.pid) - before for run, before in zip(streams.runs, used)]
        sent = processor_s(streams.sender.pid) - sent
        others = busy_s(options.processors) - busy - sum(used) - sent
        records = [lines_since(path, size) for path, size in zip(streams.files, sizes) if os.path.exists(path)]
    point = {"engine": engine, "streams": count, "seconds": round(took, 2),
             "processor_s_per_stream_s": round(sum(used) / count / took, 4),
             "sender_s_per_stream_s": round(sent / count / took, 4),
             "others_share": round(max(0.0, others) / took / len(options.processors), 3)}
    if engine == "none":
        options.decoding = sum(used) / count / took
        return point
    calls = [record for run in records for record in run if record.get("call") == "update"]
    ages = [record["age_ms"] for record in calls]
    dropped = sum(record["dropped"] for record in calls)
    halves = [[r["age_ms"] for r in run[:len(run) // 2] if "age_ms" in r] + [0.0] for run in records]
    later = [[r["age_ms"] for r in run[len(run) // 2:] if "age_ms" in r] + [0.0] for run in records]
    point.update({"calls": len(calls), "rate_per_stream": round(len(calls) / count / took, 2),
                  "dropped_share": round(dropped / max(1, dropped + len(calls)), 4),
                  "age_p50_ms": round(share(ages, 0.5), 1), "age_p95_ms": round(share(ages, 0.95), 1),
                  "age_growth_ms": round(max(share(b, 0.5) - share(a, 0.5) for a, b in zip(halves, later)), 1),
                  "tracked_share": round(sum(r["state"] == "tracked" for r in calls) / max(1, len(calls)), 3),
                  "update_p50_ms": round(share([r["update_ms"] for r in calls], 0.5), 2)})
    # A picture that was left out was decoded all the same; one that was not, was tracked as well.
    tracking = (sum(used) - options.decoding * count * took) / max(1, len(calls))
    point["full_rate_s_per_stream_s"] = round(options.decoding + FPS * tracking, 4)
    if point["tracked_share"] < 0.95:
        raise RuntimeError(f"the target was tracked on {point['tracked_share']:.0%} of the pictures only: the times mean "
                           "nothing")
    point["held"] = point["dropped_share"] <= MOST_DROPPED and point["age_p95_ms"] <= OLDEST_MS
    return point


def svg(points, cores):
    """Age against number of streams; the number that processor time allows as a vertical line."""
    colours = {"opencv": "#b3541e", "fast": "#1e6fb3"}
    drawn = [p for p in points if p["engine"] in colours]
    most = max(p["streams"] for p in drawn)
    width, height, left, top, right, bottom = 640, 390, 64, 84, 20, 52
    ceiling = max(max(p["age_p95_ms"] for p in drawn) * 1.1, 100.0)

    def x(streams):
        return left + (width - left - right) * streams / (most + 0.5)

    def y(age):
        return height - bottom - (height - top - bottom) * min(age, ceiling) / ceiling

    step = next(s for s in (10, 20, 50, 100, 200, 500, 1000, 2000, 5000, 1e9) if ceiling / s <= 8)
    parts = [f'<svg xmlns="http://www.w3.org/2000/svg" viewBox="0 0 {width} {height}" font-family="sans-serif" '
             'font-size="12">', '<rect width="100%" height="100%" fill="#fff"/>',
             f'<text x="{left}" y="18" font-size="13">Age of a picture when its answer is ready, 1080p25, one target a '
             f'stream, {cores} cores</text>']
    age = 0
    while age <= ceiling:
        parts.append(f'<line x1="{left}" x2="{width - right}" y1="{y(age):.1f}" y2="{y(age):.1f}" stroke="#ddd"/>'
                     f'<text x="{left - 6}" y="{y(age) + 4:.1f}" text-anchor="end">{age}</text>')
        age += step
    for n in range(1, most + 1):
        parts.append(f'<text x="{x(n):.1f}" y="{height - bottom + 18}" text-anchor="middle">{n}</text>')
    parts.append(f'<text x="{(left + width) / 2:.0f}" y="{height - 14}" text-anchor="middle">streams</text>'
                 f'<text x="14" y="{(top + height - bottom) / 2:.0f}" text-anchor="middle" transform="rotate(-90 14 '
                 f'{(top + height - bottom) / 2:.0f})">milliseconds</text>')
    for row, engine in enumerate(colours):
        own = [p for p in drawn if p["engine"] == engine]
        if not own:
            continue
        colour, room = colours[engine], cores / own[0]["full_rate_s_per_stream_s"]
        for key, dash in (("age_p95_ms", ""), ("age_p50_ms", ' stroke-dasharray="5 4"')):
            path = " ".join(f'{x(p["streams"]):.1f},{y(p[key]):.1f}' for p in own)
            parts.append(f'<polyline points="{path}" fill="none" stroke="{colour}" stroke-width="2"{dash}/>')
        parts += [f'<circle cx="{x(p["streams"]):.1f}" cy="{y(p["age_p95_ms"]):.1f}" r="4" '
                  f'fill="{colour if p["held"] else "#fff"}" stroke="{colour}" stroke-width="2"/>' for p in own]
        if room <= most + 0.5:
            parts.append(f'<line x1="{x(room):.1f}" x2="{x(room):.1f}" y1="{top}" y2="{height - bottom}" '
                         f'stroke="{colour}" stroke-dasharray="2 3"/>')
        parts.append(f'<text x="{left + 10}" y="{36 + 16 * row}" fill="{colour}">{engine}: by processor time '
                     f'{room:.1f} streams</text>')
    parts.append(f'<text x="{left + 10}" y="68" fill="#555">whole line: 95 of 100 below it; broken: half; filled '
                 'points: held</text></svg>')
    return "\n".join(parts) + "\n"


def missing():
    lacking = [program for program in ("ffmpeg", "taskset") if shutil.which(program) is None]
    test = "import gi; gi.require_version('GstRtspServer', '1.0'); from gi.repository import GstRtspServer, Gst; " \
           "Gst.init(None); assert Gst.ElementFactory.find('avdec_h264')"
    if subprocess.run(["/usr/bin/python3", "-c", test], capture_output=True).returncode != 0:
        lacking.append("python3-gi with gir1.2-gst-rtsp-server-1.0 and gstreamer1.0-libav")
    return lacking


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--build", required=True)
    parser.add_argument("--out", default=".")
    parser.add_argument("--seconds", type=float, default=12.0)
    parser.add_argument("--most", type=int, default=9)
    parser.add_argument("--engine", action="append", choices=["opencv", "fast"])
    parser.add_argument("--processors", default="0,1")
    parser.add_argument("--realtime", action="store_true", help="before all other work of the machine; needs root")
    options = parser.parse_args()
    options.processors = [int(number) for number in options.processors.split(",")]
    options.before = ["chrt", "-r", "1"] if options.realtime else []
    options.track = os.path.join(options.build, "bin", "csrt-track")
    if missing():
        print("skipped: not installed: " + ", ".join(missing()))
        sys.exit(77)
    os.makedirs(options.out, exist_ok=True)
    cores, points = len(options.processors), []
    with tempfile.TemporaryDirectory() as room:
        clip = make_clip(options.track, room, SETTLE_S + options.seconds + 12, options.before)
        # OpenCV's tracker needs several times as long: fewer streams show where it ends.
        plan = [("none", 1)] + [(engine, n) for engine in options.engine or ["opencv", "fast"]
                                for n in range(1, (options.most + 1) // 2 + 1 if engine == "opencv" else options.most + 1)]
        for engine, count in plan:
            point = measure(options, engine, count, clip, room)
            point["load"] = round(os.getloadavg()[0], 1)
            points.append(point)
            print(json.dumps(point), flush=True)
    with open(os.path.join(options.out, "streams.json"), "w") as file:
        json.dump({"cores": cores, "realtime": options.realtime, "points": points}, file, indent=1)
    with open(os.path.join(options.out, "streams.svg"), "w") as file:
        file.write(svg(points, cores))
    for engine in ("opencv", "fast"):
        own = [p for p in points if p["engine"] == engine]
        if own:
            held = next((p["streams"] - 1 for p in own if not p["held"]), own[-1]["streams"])
            cost = own[0]["full_rate_s_per_stream_s"]
            print(f"{engine}: {cost:.3f} s of processor time a second of stream, {options.decoding:.3f} of it without a "
                  f"target: {cores / cost:.1f} streams on {cores} cores; {held} held in this run")


main()
