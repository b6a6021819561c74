"""Files: an output that is an input or another output, what an earlier run left, two writers, names of any bytes."""
import json
import os

from case import Case, write
from material import BOX, CLIP_BOX, EARLIER

TRACK = ["track", "w.mkv", "--box", CLIP_BOX, "--frames", "3", "--quiet"]
PICTURES = ["track", "frames", "--box", BOX, "--quiet"]
EVALUATE = ["evaluate", "otb", "--quiet"]
TABLE = ["evaluate", "frames", "--truth", "truth.csv", "--quiet"]
TUNE = ["tune", "otb", "--budget", "0.001", "--brackets", "1", "--quiet"]


def link(target, name):
    return lambda folder: os.symlink(target, os.path.join(folder, name))


def hard_link(target, name):
    return lambda folder: os.link(os.path.join(folder, target), os.path.join(folder, name))


def both(*steps):
    def prepare(folder):
        for step in steps:
            step(folder)
    return prepare


def same_file():
    def one(name, args, says, keeps, prepare=None):
        return Case("one file for two things", name, args, 2, tuple(says), tuple(keeps), prepare=prepare)

    cases = [one(f"{option} over the source", TRACK + [option, "w.mkv"], (option, "source", "w.mkv"), ["w.mkv"])
             for option in ("--records", "--video", "--report")]
    cases += [
        one("--still over the source", ["track", "frames/003.png", "--box", BOX, "--still", "frames/003.png"],
            ("--still", "source"), ["frames"]),
        one("--save-run over the source", TRACK + ["--save-run", "w.mkv"], ("--save-run", "w.mkv"), ["w.mkv"]),
        one("--save-run into the source folder", PICTURES + ["--save-run", "frames"], ("--save-run", "frames"),
            ["frames"]),
        one("the source by another way of writing", TRACK + ["--records", "./frames/../w.mkv"], ("--records", "source"),
            ["w.mkv"]),
        one("the source by a symbolic link", TRACK + ["--report", "l.html"], ("--report", "source"), ["w.mkv"],
            link("w.mkv", "l.html")),
        one("the source by a hard link", TRACK + ["--records", "h.jsonl"], ("--records", "source"), ["w.mkv"],
            hard_link("w.mkv", "h.jsonl")),
        one("the video over a hard link of the source", TRACK + ["--video", "h.mkv"], ("--video", "source"),
            ["w.mkv", "h.mkv"], hard_link("w.mkv", "h.mkv")),
        one("records over the configuration", TRACK + ["--config", "c.json", "--records", "c.json"],
            ("--config", "--records"), ["c.json"]),
        one("report over the truth", TRACK + ["--truth", "truth.csv", "--report", "truth.csv"],
            ("--truth", "--report"), ["truth.csv"]),
        one("records over the metadata", TRACK + ["--metadata", "meta.csv", "--records", "meta.csv"],
            ("--metadata", "--records"), ["meta.csv"]),
        one("report over a link to the configuration", TRACK + ["--config", "c.json", "--report", "l"],
            ("--config", "--report"), ["c.json"], link("c.json", "l")),
        one("the still over a picture of the folder", PICTURES + ["--still", "frames/002.png"],
            ("--still", "source"), ["frames"]),
        one("the still over a picture of the pattern", ["track", "frames/%03d.png", "--box", BOX, "--still",
                                                        "frames/005.png"], ("--still", "source"), ["frames"]),
        one("the still over a hard link of a picture", PICTURES + ["--still", "h.png"], ("--still", "source"),
            ["frames", "h.png"], hard_link("frames/004.png", "h.png")),
        one("records over the plug-in", PICTURES + ["--plugin", "p.so", "--records", "p.so"],
            ("--plugin", "--records"), ["p.so"], lambda f: write(f, "p.so", "a plug-in")),
        one("video and records, one new file", TRACK + ["--video", "a.mp4", "--records", "./a.mp4"],
            ("--video", "--records"), []),
        one("report and records, one new file", TRACK + ["--report", "a", "--records", "empty/../a"],
            ("--report", "--records"), []),
        one("video and report, one earlier file", TRACK + ["--video", "earlier.mp4", "--report", "earlier.mp4"],
            ("--video", "--report"), ["earlier.mp4"]),
        one("records and report by a linked folder", TRACK + ["--records", "empty/r", "--report", "l/r"],
            ("--records", "--report"), [], link("empty", "l")),
        one("records and report by a link to nothing", TRACK + ["--records", "new", "--report", "l"],
            ("--records", "--report"), [], link("new", "l")),
        one("records inside the saved run", TRACK + ["--save-run", "s", "--records", "s/records.jsonl"],
            ("--save-run", "--records"), []),
        one("a still inside the saved run", TRACK + ["--save-run", "empty", "--still", "empty/a.png"],
            ("--save-run", "--still"), ["empty"]),
        one("evaluate over the truth it found", EVALUATE + ["--json", "otb/groundtruth_rect.txt"],
            ("--json", "otb"), ["otb"]),
        one("evaluate over a picture", EVALUATE + ["--html", "otb/img/0003.png"], ("--html",), ["otb"]),
        one("evaluate over the truth given", TABLE + ["--html", "truth.csv"], ("--html", "--truth"), ["truth.csv"]),
        one("evaluate over the video", ["evaluate", "w.mkv", "--truth", "boxes.txt", "--json", "w.mkv"],
            ("--json", "w.mkv"), ["w.mkv"]),
        one("evaluate over the configuration", EVALUATE + ["--config", "c.json", "--json", "c.json"],
            ("--json", "--config"), ["c.json"]),
        one("evaluate, one file for both", EVALUATE + ["--json", "r", "--html", "./r"], ("--json", "--html"), []),
        one("merge over a part", ["merge", "part1.json", "part2.json", "--json", "part1.json"],
            ("--json", "part1.json"), ["part1.json"]),
        one("merge, the page over a part", ["merge", "part1.json", "part2.json", "--html", "part2.json"],
            ("--html", "part2.json"), ["part2.json"]),
        one("merge, one file for both", ["merge", "part1.json", "--json", "a", "--html", "a"], ("--json", "--html"), []),
        one("simulate over the scenario", ["simulate", "moment.json", "--records", "moment.json"],
            ("--records", "scenario"), ["moment.json"]),
        one("simulate, the summary over the configuration",
            ["simulate", "moment.json", "--config", "c.json", "--summary", "c.json"], ("--summary", "--config"),
            ["c.json"]),
        one("simulate, video and clip", ["simulate", "moment.json", "--video", "a.avi", "--clip", "a.avi"],
            ("--video", "--clip"), []),
        one("simulate, records and metadata", ["simulate", "moment.json", "--records", "a", "--clip-metadata", "a"],
            ("--records", "--clip-metadata"), []),
        one("grid over a picture of the folder", ["grid", "frames", "--out", "frames/002.png"], ("--out", "source"),
            ["frames"]),
        one("grid over a hard link of a picture", ["grid", "frames", "--out", "h.png"], ("--out", "source"),
            ["frames", "h.png"], hard_link("frames/004.png", "h.png")),
        one("serve, records over the source", ["serve", "w.mkv", "--mavlink", "udp:127.0.0.1:14999", "--records", "w.mkv"],
            ("--records", "source"), ["w.mkv"]),
        one("serve, records over the configuration", ["serve", "w.mkv", "--mavlink", "udp:127.0.0.1:14999", "--config",
                                                      "c.json", "--records", "c.json"], ("--records", "--config"),
            ["c.json"]),
        one("replay over the saved records", ["replay", "saved", "--records", "saved/records.jsonl"],
            ("--records", "saved"), ["saved"]),
        one("replay over a saved picture", ["replay", "saved", "--records", "saved/frames/00000002.png"],
            ("--records", "saved"), ["saved"]),
        one("tune over its configuration", TUNE + ["--config", "empty/best.json", "--out", "empty"],
            ("--out", "--config"), ["empty"], lambda f: write(f, "empty/best.json", "{}")),
        one("tune over its truth", ["tune", "frames", "--truth", "empty/report.md", "--budget", "0.001", "--out",
                                    "empty"], ("--out", "--truth"), ["empty"],
            lambda f: write(f, "empty/report.md", "40,30,24,24\n" * 6)),
    ]
    return cases


OUTPUTS = ["--records", "earlier.jsonl", "--report", "earlier.html", "--still", "earlier.png", "--video", "earlier.mp4"]
OLD = ("earlier.jsonl", "earlier.html", "earlier.png", "earlier.mp4")


def earlier_files():
    def one(name, args, status, says, keeps=OLD, prepare=None, **more):
        return Case("what an earlier run wrote", name, args, status, tuple(says), tuple(keeps), prepare=prepare, **more)

    track = ["track", "w.mkv", "--quiet"]
    mixed = OUTPUTS[:6] + ["--video", "earlier.txt"]
    return [
        one("unknown kind of video", track + ["--box", CLIP_BOX] + mixed, 2, ["earlier.txt"], OLD[:3] + ("earlier.txt",)),
        one("unknown kind of still", track + ["--box", CLIP_BOX] + OUTPUTS + ["--still", "a.xyz"], 2, []),
        one("start at the end", track + ["--box", CLIP_BOX, "--start", "12"] + OUTPUTS, 3, ["--start 12"]),
        one("start behind the end", track + ["--box", CLIP_BOX, "--start", "99"] + OUTPUTS, 3, ["--start 99"]),
        one("box refused", track + ["--box", "9000,1,5,5"] + OUTPUTS, 5, ["9000,1,5,5"]),
        one("both boxes refused", track + ["--box", "a=9000,1,5,5", "--box", "b=-50,1,5,5"] + OUTPUTS, 5, ["'a'"],
            one_line=False),
        one("no plug-in", track + ["--box", CLIP_BOX, "--plugin", "none.so"] + OUTPUTS, 4, ["none.so"]),
        one("no source", ["track", "none.mkv", "--box", CLIP_BOX] + OUTPUTS, 3, ["none.mkv"]),
        one("a bad truth", track + ["--box", CLIP_BOX, "--truth", "c.json"] + OUTPUTS, 2, ["c.json"]),
        one("a bad configuration", track + ["--box", CLIP_BOX, "--config", "truth.csv"] + OUTPUTS, 2, ["truth.csv"]),
        one("bad metadata", track + ["--box", CLIP_BOX, "--metadata", "truth.csv"] + OUTPUTS, 2, ["truth.csv"]),
        one("the first picture damaged", ["track", "frames", "--box", BOX] + OUTPUTS, 3, ["000.png"],
            prepare=lambda f: write(f, "frames/000.png", "no picture")),
        one("save-run cannot be made", track + ["--box", CLIP_BOX, "--save-run", "w.avi/x"] + OUTPUTS, 2, ["w.avi/x"]),
        one("records cannot be made", track + ["--box", CLIP_BOX, "--records", "w.avi/x"] + OUTPUTS[2:], 2, ["w.avi/x"],
            OLD[1:]),
        one("a box refused, then the right one to the same folder", [], 0, keeps=(), says=(),
            shell='"$CSRT" track w.mkv --box 9000,1,5,5 --save-run s 2>/dev/null; [ $? = 5 ] && '
                  f'"$CSRT" track w.mkv --box {CLIP_BOX} --frames 3 --save-run s && "$CSRT" replay s'),
        one("evaluate without a plug-in", ["evaluate", "otb", "--json", "earlier.json", "--plugin", "none.so"], 4,
            ["none.so"], ["earlier.json"]),
        one("evaluate without its source", ["evaluate", "none.avi", "--truth", "boxes.txt", "--json", "earlier.json"], 3,
            ["none.avi"], ["earlier.json"]),
        one("evaluate with a damaged picture", ["evaluate", "otb", "--quiet", "--json", "earlier.json", "--html",
                                                "earlier.html"], 3, ["0003.png"], ["earlier.json", "earlier.html"],
            prepare=lambda f: write(f, "otb/img/0003.png", "no picture")),
        one("merge of something else", ["merge", "part1.json", "c.json", "--json", "earlier.json", "--html",
                                        "earlier.html"], 2, ["c.json"], ["earlier.json", "earlier.html"]),
        one("simulate without a plug-in", ["simulate", "moment.json", "--plugin", "none.so", "--records",
                                           "earlier.jsonl", "--video", "earlier.mp4", "--summary", "earlier.json"], 4,
            ["none.so"], ["earlier.jsonl", "earlier.mp4", "earlier.json"]),
        one("simulate with an unknown kind of video", ["simulate", "moment.json", "--records", "earlier.jsonl", "--clip",
                                                       "earlier.txt"], 2, ["earlier.txt"],
            ["earlier.jsonl", "earlier.txt"]),
        one("draw-scene of an unknown kind", ["draw-scene", "earlier.txt"], 2, ["earlier.txt"], ["earlier.txt"]),
        one("replay of a damaged run", ["replay", "saved", "--records", "earlier.jsonl"], 3, ["00000003.png"],
            ["earlier.jsonl"], prepare=lambda f: os.remove(f + "/saved/frames/00000003.png")),
        one("a run that works replaces them all", ["track", "w.mkv", "--box", CLIP_BOX, "--frames", "3", "--quiet"] +
            OUTPUTS, 0, [], (), leaves=OLD, check=lambda f, r: all_new(f)),
        one("an output by a link keeps the link", TRACK + ["--report", "l.html"], 0, [], (),
            prepare=link("earlier.html", "l.html"),
            check=lambda f, r: None if os.path.islink(f + "/l.html") and b"</html>" in read(f, "earlier.html")
            else "the link is gone or its file is not new"),
        one("the mode of a file stays", TRACK + ["--report", "earlier.html"], 0, [], (),
            prepare=lambda f: os.chmod(f + "/earlier.html", 0o640),
            check=lambda f, r: None if os.stat(f + "/earlier.html").st_mode & 0o777 == 0o640 else "another mode"),
    ]


def read(folder, name):
    with open(os.path.join(folder, name), "rb") as file:
        return file.read()


def all_new(folder):
    old = [name for name in OLD if read(folder, name) == EARLIER.encode()]
    return f"{old} are still the earlier ones" if old else None


def two_writers():
    slow = f'"$CSRT" track w.mkv --box {CLIP_BOX} --quiet --pace source --fps 1 '
    wait = "for i in $(seq 1000); do [ -s %s ] && break; sleep 0.01; done; "
    end = 's=$?; kill -TERM $first; wait $first; [ $? = 143 ] && exit $s; exit 99'
    group = "two writers"

    def second(name, output, watched):
        return Case(group, name, [], 2, tuple(output.split()), one_line=True,
                    shell=slow + f"{output} & first=$!; " + wait % watched +
                    f'"$CSRT" track w.avi --box {CLIP_BOX} --frames 3 --quiet {output}; ' + end)

    return [
        second("the same records", "--records r.jsonl", "r.jsonl"),
        second("the same saved run", "--save-run s", "s/records.jsonl"),
        Case(group, "records of a simulation that is under way", [], 2, ("--records", "r.jsonl"),
             shell=slow + "--records r.jsonl & first=$!; " + wait % "r.jsonl" +
             '"$CSRT" simulate moment.json --quiet --records r.jsonl; ' + end),
        Case(group, "a saved run into a folder that is not empty", TRACK + ["--save-run", "otb"], 2,
             ("--save-run", "not empty"), ("otb",)),
        Case(group, "a saved run over a saved run", TRACK + ["--save-run", "saved"], 2, ("--save-run", "saved"),
             ("saved",)),
        Case(group, "a saved run into an empty folder", TRACK + ["--save-run", "empty"], 0, (),
             leaves=("empty/run.json", "empty/records.jsonl")),
        Case(group, "one after the other", [], 0, (), shell=f'for i in 1 2; do "$CSRT" {" ".join(TRACK)} '
             '--records r.jsonl || exit; done; [ $(wc -l <r.jsonl) = 3 ]'),
        Case(group, "records of a pipe are not locked", [], 0, (),
             shell=f'"$CSRT" {" ".join(TRACK)} --records >(cat >r.jsonl) && sleep 0.2; [ $(wc -l <r.jsonl) = 3 ]'),
    ]


ODD = b"caf\xe9"


def odd_names():
    group = "names that are not UTF-8"

    def records_say(folder, result):
        lines = [json.loads(line) for line in read(folder, "r.jsonl").splitlines()]
        return None if lines and lines[0]["target"] == "caf\\xE9" else f"the records hold {lines[:1]}"

    def odd_source(folder):
        os.rename(folder + "/w.mkv", os.fsencode(folder) + b"/" + ODD + b".mkv")

    def page_says(folder, result):
        return None if b"caf\\\\xE9.mkv" in read(folder, "r.html") else "the report does not name its source"

    source = ["track", ODD + b".mkv", "--box", CLIP_BOX, "--frames", "3", "--quiet"]
    return [
        Case(group, "the source of a report", source + ["--report", "r.html"], 0, (), leaves=("r.html",),
             prepare=odd_source, check=page_says),
        Case(group, "the source of a saved run", source + ["--save-run", "s"], 0, (), leaves=("s/run.json",),
             prepare=odd_source),
        Case(group, "the target of records and report", TRACK[:2] + ["--frames", "3", "--quiet", "--box",
                                                                    ODD + b"=" + CLIP_BOX.encode(), "--records",
                                                                    "r.jsonl", "--report", "r.html"], 0, (),
             leaves=("r.jsonl", "r.html"), check=records_say),
        Case(group, "every output", TRACK + ["--records", ODD + b".jsonl", "--report", ODD + b".html", "--video",
                                             ODD + b".avi", "--still", ODD + b".png"], 0, (),
             leaves=tuple(ODD + e for e in (b".jsonl", b".html", b".avi", b".png"))),
        Case(group, "the source of an evaluation", ["evaluate", ODD + b".mkv", "--truth", "boxes.txt", "--quiet",
                                                    "--json", "r.json", "--html", "r.html"], 0, (),
             leaves=("r.json", "r.html"), prepare=odd_source),
        Case(group, "saved and repeated", [], 0, ("identical",), shell='mv w.mkv $\'caf\\xe9.mkv\' && '
             f'"$CSRT" track $\'caf\\xe9.mkv\' --box $\'caf\\xe9={CLIP_BOX}\' --frames 3 --quiet --save-run '
             '$\'r\\xe9\' && "$CSRT" replay $\'r\\xe9\''),
        Case(group, "a configuration value", TRACK + ["--set", b"csrt.window_function=" + ODD], 2, ("--set",)),
        Case(group, "a file that is not there", ["track", ODD, "--box", BOX], 3, ("there is no file",)),
        Case(group, "a scenario with such a title", ["simulate", "s.json", "--quiet", "--summary", "o.json"], 2,
             ("s.json",), prepare=lambda f: write(f, "s.json", b'{"title": "caf\xe9", "duration_s": 0.2}')),
    ]


def cases():
    return same_file() + earlier_files() + two_writers() + odd_names()
