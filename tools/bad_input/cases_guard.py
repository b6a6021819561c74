"""A guard beside the tracker, over pictures and boxes that it cannot make much of: it says so, and takes nothing away.
And a saved run whose guard cannot be had."""
import json
import os
import subprocess

from case import Case, write
from cases_sources import lines_of, smaller
from material import BOX, picture

WATCHED = ["track", "frames", "--quiet", "--guard", "colour", "--records", "r.jsonl", "--report", "r.html", "--box"]


def without_colour(folder):
    for number in range(6):
        write(folder, f"frames/{number:03}.png", picture(number, colour=False))


def judged(folder):
    return [r for r in lines_of(folder) if "guard" in r]


def grey_is_said(folder, result):
    records = judged(folder)
    return None if records and all(r["guard"].get("colourless") for r in records) else "no word of the missing colour"


def other_size_is_said(folder, result):
    record = lines_of(folder)[3]
    fits = record["guard"]["state"] == "unguarded" and "size" in record["guard"]["reason"]
    return None if fits else f"of the other size it says {record['guard']}"


def nothing_is_taken_away(box):
    """Every frame in which the tracker alone sees the target is seen with the guard too, in the same box."""
    def check(folder, result):
        subprocess.run([os.environ["CSRT_PROGRAM"], "track", "frames", "--quiet", "--records", "alone.jsonl", "--box", box],
                       cwd=folder, check=False, capture_output=True)
        told = [[(r["state"], r.get("box")) for r in lines_of(folder, name)] for name in ("alone.jsonl", "r.jsonl")]
        return None if told[0] == told[1] else f"without: {told[0]}; with: {told[1]}"
    return check


def saved_with(guard):
    def prepare(folder):
        with open(os.path.join(folder, "saved/run.json"), encoding="utf-8") as file:
            about = json.load(file)
        write(folder, "saved/run.json", json.dumps(dict(about, guard=guard)))
        write(folder, "net.onnx", "this is no network")
    return prepare


def replays():
    network = {"which": "network", "model_sha256": "a" * 64}

    def one(name, guard, status, says, args=()):
        return Case("guard", "replay, " + name, ["replay", "saved", *args], status, says, prepare=saved_with(guard))
    return [
        one("a guard there is not", {"which": "dog"}, 3, ("run.json", "'dog'")),
        one("a guard that is a number", {"which": 7}, 3, ("run.json", "damaged")),
        one("a guard that is a list", [], 3, ("run.json", "damaged")),
        one("a network of no sum", {"which": "network"}, 3, ("run.json", "damaged")),
        one("a network of half a sum", dict(network, model_sha256="abc"), 3, ("run.json", "damaged")),
        one("a network without its file", network, 2, ("--guard-model", "a" * 64)),
        one("a network's file that is not there", network, 2, ("none.onnx", "not there"), ["--guard-model", "none.onnx"]),
        one("another network's file", network, 2, ("net.onnx", "a" * 64), ["--guard-model", "net.onnx"]),
        one("a network for a run without", {"which": "colour"}, 2, ("--guard-model",), ["--guard-model", "net.onnx"]),
        one("over the network's file", network, 2, ("net.onnx", "--records"),
            ["--guard-model", "net.onnx", "--records", "net.onnx"]),
        Case("guard", "a run with a guard is repeated", [], 0, ("identical",), one_line=False,
             shell=f'"$CSRT" track frames --box {BOX} --guard colour --quiet --save-run s && "$CSRT" replay s'),
    ]


def cases():
    group = "guard"
    return [
        Case(group, "pictures without colour", WATCHED + [BOX], 0, (), prepare=without_colour, check=grey_is_said,
             leaves=("r.html",)),
        Case(group, "a picture of another size", WATCHED + [BOX], 0, (), prepare=smaller, check=other_size_is_said,
             leaves=("r.html",)),
        Case(group, "a box as large as the picture", WATCHED + ["0,0,160,120"], 0, (),
             check=nothing_is_taken_away("0,0,160,120")),
        Case(group, "a box of six pixels", WATCHED + ["46,38,6,6"], 0, (), check=nothing_is_taken_away("46,38,6,6")),
        Case(group, "a box half outside", WATCHED + ["-12,30,24,24"], 0, (), check=nothing_is_taken_away("-12,30,24,24")),
        Case(group, "a box outside", WATCHED + ["500,30,24,24"], 5, ("outside",)),
        Case(group, "a box of no number", WATCHED + ["nan,30,24,24"], 2, ("nan,30,24,24",)),
        Case(group, "a guard there is not", ["track", "frames", "--box", BOX, "--guard", "dog"], 2, ("--guard 'dog'",)),
        *replays(),
    ]
