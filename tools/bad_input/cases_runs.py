"""Runs that are cut short by a signal, and plug-ins that cannot be used."""
import os
import signal
import time

from case import Case, wait_for_lines, write
from material import BOX, CLIP_BOX

SLOW = ["track", "w.mkv", "--box", CLIP_BOX, "--pace", "source", "--fps", "10"]
ALL = ["--records", "r.jsonl", "--video", "v.mp4", "--report", "r.html", "--still", "s.png", "--save-run", "s"]


def send(number, watched="r.jsonl", lines=3, times=1):
    def act(folder, process):
        wait_for_lines(watched, lines, process, folder)
        for _ in range(times):
            process.send_signal(number)
    return act


def send_after(number, seconds):
    def act(folder, process):
        time.sleep(seconds)
        process.send_signal(number)
    return act


def text(folder, name):
    with open(os.path.join(folder, name), encoding="utf-8", errors="replace") as file:
        return file.read()


def whole(folder, result):
    records = text(folder, "r.jsonl")
    if not records.endswith("}\n") or records.count("\n") >= 12:
        return f"the records are not whole or the run was over: {records.count(chr(10))} lines"
    if "</html>" not in text(folder, "r.html"):
        return "the report is not whole"
    if b"moov" not in open(os.path.join(folder, "v.mp4"), "rb").read():
        return "the video has no index: it cannot be played"
    return None


def signals():
    group = "signals"
    cases = [Case(group, f"track, {name}", SLOW + ALL, 128 + number, ("interrupted",), while_running=send(number),
                  leaves=("v.mp4", "r.html", "s.png", "s/run.json"), check=whole, one_line=False)
             for name, number in (("SIGHUP", signal.SIGHUP), ("SIGTERM", signal.SIGTERM), ("SIGINT", signal.SIGINT))]
    long = '{"duration_s": 600, "title": "long", "frame": {"width": 160, "height": 120}, ' \
           '"target": {"path": [{"pan_deg": 2, "tilt_deg": 0}]}}'
    cases += [
        Case(group, "track, SIGHUP twice", SLOW + ALL, 129, (), while_running=send(signal.SIGHUP, times=2),
             leaves=("v.mp4", "r.html"), check=whole, one_line=False),
        Case(group, "track under nohup goes on", [], 0, (), one_line=False,
             shell=f'trap "" HUP; exec "$CSRT" {" ".join(SLOW)} --quiet --records r.jsonl --frames 8',
             while_running=send(signal.SIGHUP),
             check=lambda f, r: None if text(f, "r.jsonl").count("\n") == 8 else "the run was cut short"),
        Case(group, "a saved run that is cut short replays", [], 0, ("identical",), one_line=False,
             shell=f'"$CSRT" {" ".join(SLOW)} --quiet --save-run s & '
                   'until [ "$(cat s/records.jsonl 2>/dev/null | wc -l)" -ge 3 ]; do sleep 0.02; done; '
                   'kill -HUP $!; wait $!; [ $? = 129 ] && "$CSRT" replay s'),
        Case(group, "simulate, SIGHUP", ["simulate", "long.json", "--records", "r.jsonl", "--summary", "s.json",
                                         "--video", "v.mp4"], 129, ("interrupted",), while_running=send(signal.SIGHUP),
             prepare=lambda f: write(f, "long.json", long), leaves=("s.json", "v.mp4"), one_line=False,
             check=lambda f, r: None if '"interrupted"' in text(f, "s.json") else "the summary does not say so"),
        Case(group, "evaluate, SIGINT", ["evaluate", "w.mkv", "--truth", "t.txt", "--pace", "source", "--fps", "4",
                                         "--json", "r.json"], 130, ("interrupted",),
             prepare=lambda f: write(f, "t.txt", "116,165,32,60\n" * 12), while_running=send_after(signal.SIGINT, 1.5),
             leaves=("r.json",), one_line=False,
             check=lambda f, r: None if '"interrupted"' in text(f, "r.json") else "the result does not say so"),
        Case(group, "replay, SIGHUP", [], 129, ("interrupted",), one_line=False,
             shell='sed -i \'s/"pace": "video"/"pace": "source"/; s/"fps": 25.0/"fps": 2.0/\' saved/run.json; '
                   'sed -i -E \'s/"time_s":0\\.([0-9]+)/"time_s":9\\1/\' saved/frames.jsonl; '
                   '"$CSRT" replay saved & sleep 1; kill -HUP $!; wait $!'),
    ]
    cases += [Case(group, f"draw-scene, {name}", ["draw-scene", "d.mp4", "--frames", "100000"], 128 + number, (),
                   while_running=send_after(number, 0.8), leaves=("d.mp4",), one_line=False)
              for name, number in (("SIGINT", signal.SIGINT), ("SIGTERM", signal.SIGTERM), ("SIGHUP", signal.SIGHUP))]
    return cases


def cut_plugin(folder):
    """The first 60,000 bytes of the plug-in that lies beside the program; tests know no other place."""
    library = os.path.join(os.path.dirname(os.path.dirname(os.environ["CSRT_PROGRAM"])), "lib",
                           "libcsrt_tracking_plugin.so")
    with open(library, "rb") as file:
        write(folder, "cut.so", file.read()[:60000])


def plugins():
    group = "plug-ins"
    track = ["track", "frames", "--box", BOX, "--quiet", "--plugin"]
    cut = {
        "track": track + ["cut.so", "--records", "earlier.jsonl"],
        "evaluate": ["evaluate", "otb", "--plugin", "cut.so", "--json", "earlier.jsonl"],
        "simulate": ["simulate", "moment.json", "--plugin", "cut.so", "--records", "earlier.jsonl"],
        "tune": ["tune", "otb", "--plugin", "cut.so", "--budget", "1", "--out", "empty"],
        "replay": ["replay", "saved", "--plugin", "cut.so", "--records", "earlier.jsonl"],
    }
    cases = [Case(group, f"{name} with one cut short", args, 4, ("cut.so", "is cut short"), ("earlier.jsonl",),
                  prepare=cut_plugin) for name, args in cut.items()]
    cases += [
        Case(group, "doctor with one cut short", ["doctor", "--plugin", "cut.so"], 4, (), one_line=False,
             prepare=cut_plugin, check=lambda f, r: None if "cut short" in r.out else "does not say so"),
        Case(group, "a text", track + ["truth.csv"], 4, ("truth.csv", "not a library")),
        Case(group, "a folder", track + ["frames"], 4, ("frames", "folder")),
        Case(group, "none", track + ["none.so"], 4, ("none.so", "does not exist")),
        Case(group, "an empty file", track + ["e.so"], 4, ("e.so", "empty"), prepare=lambda f: write(f, "e.so", "")),
        Case(group, "a few bytes of the right kind", track + ["e.so"], 4, ("e.so",),
             prepare=lambda f: write(f, "e.so", b"\x7fELF\2\1\1")),
        Case(group, "a device", track + ["/dev/zero"], 4, ("/dev/zero", "not a regular file")),
        Case(group, "one that may not be read", track + ["p.so"], 4, ("p.so", "ermission denied"), not_root=True,
             prepare=lambda f: (write(f, "p.so", "x"), os.chmod(f + "/p.so", 0))),
    ]
    return cases


def cases():
    return signals() + plugins()
