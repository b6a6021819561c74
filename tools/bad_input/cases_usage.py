"""Usage: words and numbers that cannot be, boxes, help, standard output, a full disk."""
from case import Case
from material import BOX, CLIP_BOX

COMMANDS = {
    "track": (0, 2, 3, 4, 5, 6, 129, 130, 143),
    "evaluate": (0, 2, 3, 4, 6, 129, 130, 143),
    "compare": (0, 1, 2, 6),
    "merge": (0, 1, 2, 6),
    "tune": (0, 2, 3, 4, 6, 129, 130, 143),
    "simulate": (0, 1, 2, 4, 5, 6, 129, 130, 143),
    "replay": (0, 1, 2, 3, 4, 6, 129, 130, 143),
    "config": (0, 1, 2, 6),
    "config check": (0, 1, 2, 6),
    "config preset": (0, 2, 6),
    "schema": (0, 2, 6),
    "doctor": (0, 1, 2, 4, 6),
    "draw-scene": (0, 2, 6, 129, 130, 143),
}


def names(statuses):
    def check(folder, result):
        text = result.out[result.out.find("Exit status:"):]
        missing = [s for s in statuses if f" {s} " not in text and f" {s}:" not in text and f"({s}:" not in text]
        return f"the help does not name {missing}" if missing else None
    return check


def words():
    group = "wrong usage"

    def one(name, args, *says, status=2):
        return Case(group, name, args, status, says)

    track = ["track", "frames", "--box", BOX, "--quiet"]
    cases = [
        one("a command misspelt", ["trak"], "did you mean 'track'"),
        one("a command misspelt, with its options", ["trak", "w.mkv", "--box", BOX], "did you mean 'track'"),
        one("help of a command misspelt", ["trak", "--help"], "did you mean 'track'"),
        one("short help of a command misspelt", ["evalute", "-h"], "did you mean 'evaluate'"),
        one("a command that is like none", ["xyzzy"], "no command 'xyzzy'"),
        one("an inner command misspelt", ["config", "chekc"], "did you mean 'check'"),
        one("no command", []),
        one("no inner command", ["config"]),
        one("an option misspelt", track + ["--recrods", "r"], "--recrods"),
        one("no source", ["track", "--box", BOX], "source"),
        one("no box", ["track", "frames"], "--box"),
        one("an option without its value", track + ["--records"], "--records"),
        one("an option twice", track + ["--records", "a", "--records", "b"], "--records"),
        one("three numbers for a box", ["track", "frames", "--box", "1,2,3"], "'1,2,3'"),
        one("words for a box", ["track", "frames", "--box", "a,b,c,d"], "a,b,c,d"),
        one("an empty box", ["track", "frames", "--box", "10,10,0,5"], "10,10,0,5"),
        one("a negative box", ["track", "frames", "--box", "10,10,-3,5"], "10,10,-3,5"),
        one("a box with a number too large", ["track", "frames", "--box", "99999999999,1,2,3"], "99999999999"),
        one("one name for two boxes", ["track", "frames", "--box", "a=1,1,9,9", "--box", "a=2,2,9,9"], "'a'"),
        one("a negative start", track + ["--start", "-1"], "--start"),
        one("a word for a number of frames", track + ["--frames", "many"], "many"),
        one("a negative number of frames", track + ["--frames", "-2"], "--frames"),
        one("a negative rate", track + ["--fps", "-3"], "--fps"),
        one("a rate that is no number", track + ["--fps", "nan"], "--fps"),
        one("no threads", track + ["--threads", "0"], "--threads 0"),
        one("too many threads", track + ["--threads", "100000"], "--threads"),
        one("a pace that there is not", track + ["--pace", "brisk"], "'brisk'"),
        one("a still that is no picture", track + ["--still", "a.xyz"], "--still", "a.xyz"),
        one("a report onto a folder", track + ["--report", "empty"], "--report", "empty"),
        one("records onto a folder", track + ["--records", "empty"], "--records", "empty"),
        one("an output in no such folder", track + ["--report", "nowhere/r.html"], "--report", "nowhere"),
        one("a shard of nothing", ["evaluate", "otb", "--shard", "3/2"], "--shard '3/2'"),
        one("a negative tolerance", ["compare", "result.json", "result.json", "--tolerance", "-1"], "tolerance"),
        one("a scenario that there is not", ["simulate", "nowhere"], "nowhere"),
        one("a negative seed", ["simulate", "moment.json", "--seed", "-1"], "--seed"),
        one("two outputs on standard output", ["simulate", "moment.json", "--records", "-", "--summary", "-"],
            "standard output"),
        one("no time to search", ["tune", "otb", "--budget", "0", "--out", "o"], "--budget"),
        one("a drawn video without frames", ["draw-scene", "d.avi", "--frames", "0"], "--frames"),
        one("a drawn sign as wide as the picture", ["draw-scene", "d.avi", "--sign", "640"], "--sign"),
        one("a saved run that is steered by hand", ["track", "frames", "--show", "--save-run", "s"], "--show"),
    ]
    cases += [Case("help", f"{command} --help", command.split() + ["--help"], 0, ("Exit status:",), check=names(exits))
              for command, exits in COMMANDS.items()]
    return cases


def boxes():
    group = "boxes"

    def one(name, box, *says, status=5):
        return Case(group, name, ["track", "frames", "--box", box, "--quiet"], status, says)

    return [
        one("outside", "9000,1,5,5", "9000,1,5,5", "160x120"),
        one("beside the picture on the left", "-50,1,5,5", "-50,1,5,5", "160x120"),
        one("one pixel", "50,50,1,1", "50,50,1,1", "160x120"),
        one("one pixel wide", "50,50,1,20", "50,50,1,20", "160x120"),
        one("one pixel high", "50,50,20,1", "50,50,20,1", "160x120"),
        one("one pixel that begins at its place", "0,0,1,1", "0,0,1,1", "160x120"),
        Case(group, "one pixel for a simulated target", ["evaluate", "frames", "--truth", "t.txt"], 0,
             ("did not start",), prepare=lambda f: open(f + "/t.txt", "w").write("50,50,1,1\n" * 6), one_line=False),
        one("the whole picture", "0,0,160,120", status=0),
        one("over the edge", "150,100,30,30", status=0),
    ]


def outputs():
    full = [(f"track {option}", ["track", "frames", "--box", BOX, "--quiet", option, "/dev/full"])
            for option in ("--records", "--report")]
    full += [(f"evaluate {option}", ["evaluate", "otb", "--quiet", option, "/dev/full"])
             for option in ("--json", "--html")]
    full += [(f"simulate {option}", ["simulate", "moment.json", "--quiet", option, "/dev/full"])
             for option in ("--records", "--summary", "--clip-metadata")]
    full += [("merge --json", ["merge", "result.json", "--json", "/dev/full"])]
    cases = [Case("full disk", name, args, 6, ("/dev/full",)) for name, args in full]
    for words_ in ("--help", "--version", "config defaults", "config schema", "schema records", "simulate --list",
                   "compare result.json result.json", f"track w.mkv --box {CLIP_BOX} --frames 2 --quiet --records -"):
        cases.append(Case("full disk", f"standard output of {words_.split(' --')[0] or words_}", [], 6,
                          ("standard output",), shell=f'"$CSRT" {words_} >/dev/full'))
    return cases


def cases():
    return words() + boxes() + outputs()
