"""Texts: nesting and size of JSON, values of the configuration, truth, metadata, results."""
import json
import os

from case import Case, contents, write
from material import BOX, CLIP_BOX

TRACK = ["track", "frames", "--box", BOX, "--quiet"]


def deep(name, depth, text=None):
    """A file with an object or a list in a list in a list ..."""
    body = text or '{"roi": %s}'
    return lambda folder: write(folder, name, body.replace("%s", "[" * depth + "]" * depth))


def deep_objects(name, depth):
    return lambda folder: write(folder, name, '{"a":' * depth + "1" + "}" * depth)


def many_keys(name, count):
    return lambda folder: write(folder, name, json.dumps({f"unknown_key_{i}": i for i in range(count)}, indent=1))


def nesting():
    group = "deep and large JSON"
    says = ("nested too deeply",)
    cases = [Case(group, f"config check, lists {depth:,} deep", ["config", "check", "d.json"], 2, says,
                  prepare=deep("d.json", depth)) for depth in (50000, 100000, 150000)]
    cases += [
        Case(group, "config check, objects 100,000 deep", ["config", "check", "d.json"], 2, says,
             prepare=deep_objects("d.json", 100000)),
        Case(group, "config check, brackets that never close", ["config", "check", "d.json"], 2, ("d.json",),
             prepare=lambda f: write(f, "d.json", "[" * 200000)),
        Case(group, "config check, brackets in a text", ["config", "check", "d.json"], 1, ("unknown",), one_line=False,
             prepare=lambda f: write(f, "d.json", '{"unknown": "' + "[" * 100000 + '"}')),
        Case(group, "track --config", TRACK + ["--config", "d.json"], 2, says, prepare=deep("d.json", 100000)),
        Case(group, "track --config and --set", TRACK + ["--config", "d.json", "--set", "roi.min_size=64"], 2, says,
             prepare=deep_objects("d.json", 100000)),
        Case(group, "track --set", TRACK + ["--set", "redetect.scale_list=" + "[" * 30000 + "]" * 30000], 2, says),
        Case(group, "evaluate --config", ["evaluate", "otb", "--config", "d.json"], 2, says,
             prepare=deep("d.json", 100000)),
        Case(group, "tune --config", ["tune", "otb", "--config", "d.json", "--budget", "1", "--out", "o"], 2, says,
             prepare=deep("d.json", 100000)),
        Case(group, "simulate --config", ["simulate", "moment.json", "--config", "d.json"], 2, says,
             prepare=deep("d.json", 100000)),
        Case(group, "a scenario", ["simulate", "d.json"], 2, says, prepare=deep("d.json", 100000, '{"target": %s}')),
        Case(group, "a result to compare", ["compare", "d.json", "result.json"], 2, says,
             prepare=deep("d.json", 100000, '{"schema": %s}')),
        Case(group, "a part to merge", ["merge", "part1.json", "d.json"], 2, says,
             prepare=deep("d.json", 100000, '{"schema": %s}')),
        Case(group, "a saved run", ["replay", "saved"], 3, says, prepare=deep("saved/run.json", 100000)),
        Case(group, "metadata", TRACK + ["--metadata", "d.json"], 2, says,
             prepare=deep("d.json", 100000, '{"frame": 0, "pan_deg": %s}')),
        Case(group, "20,000 unknown keys", ["config", "check", "d.json"], 1, ("unknown_key_19999",),
             prepare=many_keys("d.json", 20000), one_line=False),
        Case(group, "200,000 unknown keys", ["config", "check", "d.json"], 1, ("unknown_key_199999",),
             prepare=many_keys("d.json", 200000), one_line=False),
        Case(group, "200,000 unknown keys and --set", TRACK + ["--config", "d.json", "--set", "roi.min_size=64"], 0,
             (), prepare=many_keys("d.json", 200000), one_line=False),
        Case(group, "a key of a megabyte", ["config", "check", "d.json"], 1, ("does not know",), one_line=False,
             prepare=lambda f: write(f, "d.json", json.dumps({"k" * 1000000: 1}))),
    ]
    return cases


def sets():
    group = "configuration values"
    bad = {
        "csrt.template_size=abc": "not a",
        "csrt.template_size=nan": "not a",
        "csrt.template_size=99999": "outside",
        "csrt.template_size=12.5": "whole number",
        "csrt.template_size=": "not a",
        "redetect.scale_list=[1,2": "not a list",
        "redetect.scale_list=abc": "not a list",
        "csrt.padding=1e400": "not a",
        "csrt.padding=inf": "not a",
        "csrt.use_hog=maybe": "true or false",
        "csrt.window_function=foo": "hann, cheb and kaiser",
        "roi.min_size=-5": "outside",
        "roi=5": "roi",
        "roi.min_sise=64": "did you mean 'roi.min_size'",
    }
    cases = [Case(group, f"--set {text}", TRACK + ["--set", text], 2, ("--set", says)) for text, says in bad.items()]
    cases += [
        Case(group, "--set that is right", TRACK + ["--set", "csrt.template_size=60"], 0, ()),
        Case(group, "all features off", TRACK + ["--set", "csrt.use_hog=false", "--set", "csrt.use_color_names=false",
                                                 "--set", "csrt.use_rgb=false", "--set", "csrt.use_gray=false"], 2,
             ("tracking cannot start",)),
        Case(group, "evaluate --set", ["evaluate", "otb", "--set", "csrt.template_size=abc"], 2, ("--set", "not a")),
        Case(group, "tune --set", ["tune", "otb", "--set", "roi.min_size=-5", "--budget", "1", "--out", "o"], 2,
             ("--set", "outside")),
        Case(group, "simulate --set, no such key", ["simulate", "moment.json", "--set", "roi.min_sise=64"], 2,
             ("--set", "did you mean 'roi.min_size'")),
        Case(group, "simulate --set, no such value", ["simulate", "moment.json", "--set", "csrt.template_size=abc"], 2,
             ("--set", "not a")),
        Case(group, "config check of padding 0", ["config", "check", "v.json"], 1, ("csrt.padding", "cannot start"),
             prepare=lambda f: write(f, "v.json", '{"csrt": {"padding": 0}}'), one_line=False),
        Case(group, "config check of a foreign window", ["config", "check", "v.json"], 1,
             ("csrt.window_function", "cannot start"), one_line=False,
             prepare=lambda f: write(f, "v.json", '{"csrt": {"window_function": "foo"}}')),
        Case(group, "a start that is refused names picture, box and key", TRACK + ["--config", "v.json"], 5,
             ("160x120", BOX, "csrt.window_function"), one_line=False,
             prepare=lambda f: write(f, "v.json", '{"csrt": {"window_function": "foo"}}')),
        Case(group, "a start with padding 0 names the key",
             ["track", "w.mkv", "--box", CLIP_BOX, "--quiet", "--config", "v.json"], 5,
             ("640x360", CLIP_BOX, "csrt.padding"), one_line=False,
             prepare=lambda f: write(f, "v.json", '{"csrt": {"padding": 0}}')),
        Case(group, "a configuration with a byte-order mark", ["config", "check", "v.json"], 0, (),
             prepare=lambda f: write(f, "v.json", b'\xef\xbb\xbf{"roi": {"min_size": 64}}')),
        Case(group, "no JSON", ["config", "check", "truth.csv"], 2, ("truth.csv:1:1", "not JSON")),
        Case(group, "a list", TRACK + ["--config", "v.json"], 2, ("v.json", "not an object"),
             prepare=lambda f: write(f, "v.json", "[1]")),
        Case(group, "no such preset", TRACK + ["--preset", "fats"], 2, ("'fats'", "fast")),
        Case(group, "an unknown group", ["config", "check", "v.json"], 1, ("does not know",), one_line=False,
             prepare=lambda f: write(f, "v.json", '{"rio": {"min_size": 64}}')),
    ]
    return cases


def results():
    group = "results"

    def result(name, **changes):
        def prepare(folder):
            with open(os.path.join(folder, "result.json"), encoding="utf-8") as file:
                data = json.load(file)
            data.update(changes)
            write(folder, name, json.dumps(data))
        return prepare

    def unjudged(folder):
        write(folder, "t.csv", "frame,id,x,y,w,h\n" + "".join(f"{i},a,{38 + 2 * i},30,24,24\n" for i in range(1, 7)) +
              "6,late,50,30,24,24\n")

    return [
        Case(group, "merge with a shard missing", ["merge", "part1.json", "part2.json", "--json", "m.json"], 1,
             ("3/3", "missing"), leaves=("m.json",), one_line=False),
        Case(group, "merge with the first shard alone", ["merge", "part1.json"], 1, ("2/3", "3/3", "missing"),
             one_line=False),
        Case(group, "merge of all shards", [], 0, (), shell='"$CSRT" evaluate frames --truth truth.csv --shard 3/3 '
             '--quiet --json part3.json && "$CSRT" merge part1.json part2.json part3.json --json m.json',
             leaves=("m.json",)),
        Case(group, "merge of what is no shard", ["merge", "result.json"], 0, ()),
        Case(group, "merge of the same part twice", ["merge", "part1.json", "part1.json"], 2, ("part1.json", "both")),
        Case(group, "merge of parts of different divisions", [], 2, ("1/3", "2/2"),
             shell='"$CSRT" evaluate frames --truth truth.csv --shard 2/2 --quiet --json other.json && '
             '"$CSRT" merge part1.json other.json'),
        Case(group, "two shards that write one file", [], 1, ("missing",), one_line=False,
             shell='for i in 1 2; do "$CSRT" evaluate frames --truth truth.csv --shard $i/2 --quiet --json one.json & done; '
                   'wait; "$CSRT" merge one.json --json m.json', leaves=("one.json", "m.json")),
        Case(group, "a shard into a folder that holds no more", [], 6, ("out/1.json", "File too large"),
             shell='mkdir out && echo kept >out/other.json; ulimit -f 1; '
                   '"$CSRT" evaluate frames --truth truth.csv --shard 1/2 --quiet --json out/1.json',
             leaves_not=("out/1.json",), leaves=("out/other.json",)),
        Case(group, "shards by machines whose clocks are apart", [], 1, (), one_line=False,
             shell='"$CSRT" merge part1.json part2.json --json a.json; touch -d 1990-01-01 part1.json; '
                   'touch -d 2050-01-01 part2.json; "$CSRT" merge part1.json part2.json --json b.json',
             check=lambda f, r: None if contents(f + "/a.json") == contents(f + "/b.json") else "the results differ"),
        Case(group, "a target with no judged frame", ["evaluate", "frames", "--truth", "t.csv"], 0, (),
             prepare=unjudged, one_line=False,
             check=lambda f, r: None if any("late" in line and " - " in line and "0.000" not in line
                                            for line in r.out.splitlines()) else r.out[-600:]),
        Case(group, "compare with another version", ["compare", "result.json", "v.json"], 2, ("v.json", "version"),
             prepare=result("v.json", version=99)),
        Case(group, "compare with a damaged one", ["compare", "result.json", "v.json"], 2, ("v.json", "damaged"),
             prepare=result("v.json", targets=[{"sequence": 5}])),
        Case(group, "compare with something else", ["compare", "result.json", "c.json"], 2, ("c.json", "not a result")),
        Case(group, "compare with nothing", ["compare", "result.json", "none.json"], 2, ("none.json",)),
        Case(group, "replay of an empty folder", ["replay", "empty"], 3, ("run.json",)),
        Case(group, "replay without a picture", ["replay", "saved"], 3, ("00000002.png",),
             prepare=lambda f: os.remove(f + "/saved/frames/00000002.png")),
        Case(group, "replay with a cut line", ["replay", "saved"], 3, ("records.jsonl",),
             prepare=lambda f: write(f, "saved/records.jsonl", '{"schema":')),
    ]


def truth():
    group = "truth"

    def one(name, text, status, says, args=(), **more):
        return Case(group, name, ["evaluate", "frames", "--truth", "t.txt", "--quiet", *args], status, tuple(says),
                    prepare=lambda f: write(f, "t.txt", text), **more)

    rows = [f"{40 + 2 * i},30,24,24" for i in range(6)]
    return [
        one("three values", "1,2,3\n", 2, ["t.txt", "row 1", "3 values"]),
        one("a word in a row", "40,30,24,24\n40,thirty,24,24\n", 2, ["t.txt", "row 2"]),
        one("inf in a row", "40,30,24,24\n40,inf,24,24\n", 2, ["t.txt", "row 2"]),
        one("nothing", "", 2, ["t.txt"]),
        one("marked twice", "frame,id,x,y,w,h\n1,a,1,2,3,4\n1,a,1,2,3,4\n", 2, ["t.txt", "row 3", "twice"]),
        one("five values in a table of six", "frame,id,x,y,w,h\n1,a,1,2,3\n", 2, ["t.txt", "row 2"]),
        one("a byte-order mark", b"\xef\xbb\xbf" + "\n".join(rows).encode(), 0, []),
        one("line ends of another system", "\r\n".join(rows) + "\r\n", 0, []),
        one("a format that there is not", "\n".join(rows), 2, ["--format", "'coco'"], ["--format", "coco"]),
        Case(group, "none at all", ["evaluate", "frames"], 2, ("frames", "--truth")),
        Case(group, "a file that is not there", ["evaluate", "frames", "--truth", "none.txt"], 2, ("none.txt",)),
        Case(group, "a folder", ["evaluate", "frames", "--truth", "empty"], 2, ("empty", "folder")),
        Case(group, "a device without an end", ["evaluate", "frames", "--truth", "/dev/zero"], 2, ("/dev/zero",)),
        Case(group, "one too many", ["evaluate", "otb", "--truth", "boxes.txt"], 2, ("boxes.txt", "no sequence")),
        Case(group, "for the report of nobody", TRACK + ["--truth", "truth.csv"], 2, ("--truth", "--report")),
        Case(group, "a target that nobody marks", ["evaluate", "frames", "--truth", "truth.csv", "--targets", "z"], 2,
             ("'z'",)),
    ]


def metadata():
    group = "metadata"

    def one(name, text, says, status=2):
        return Case(group, name, TRACK + ["--metadata", "m.csv"], status, tuple(says),
                    prepare=lambda f: write(f, "m.csv", text))

    return [
        one("no column for the frame", "pan_deg\n1\n", ["m.csv", "line 1", "frame"]),
        one("an unknown column", "frame,pan_dge\n0,1\n", ["m.csv", "line 1", "pan_dge"]),
        one("a word for a number", "frame,pan_deg\n0,left\n", ["m.csv", "line 2", "left"]),
        one("a frame twice", "frame,pan_deg\n0,1\n0,2\n", ["m.csv", "line 3", "twice"]),
        one("a value too many", "frame,pan_deg\n0,1,2\n", ["m.csv", "line 2", "3 values"]),
        one("a heading alone", "frame,pan_deg\n", ["m.csv", "no row"]),
        one("half a line of JSON", '{"frame": 0, "pan_deg": 1}\n{"frame": 1,\n', ["m.csv", "line 2", "JSON"]),
        one("a byte-order mark", b"\xef\xbb\xbfframe,pan_deg\n0,1\n", [], 0),
    ]


def cases():
    return nesting() + sets() + results() + truth() + metadata()
