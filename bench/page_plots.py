#!/usr/bin/env python3
"""Draws the pictures of docs/performance.md, redetection.md, presets.md and guard.md from what the benchmarks wrote.

page_plots.py frames UPDATE.json FAST_UPDATE.json FOLDER   frame-time.svg, from update_bench and fast_update_bench
page_plots.py recovery RECOVERY.json FOLDER                recovery.svg, from recovery_comparison --json
page_plots.py presets FOLDER NAME=RESULT.json ...          presets.svg, from `csrt-track evaluate --json` of each preset
page_plots.py guard WALKERS.json FOLDER                    guard-walkers.svg, from `guard_comparison walkers --json`
"""

import json
import pathlib
import random
import re
import sys

from charts import BLUE, BROWN, GREEN, GREY, bar_chart, line_chart

ON_TARGET = 0.3  # overlap, as evaluate counts it
RESAMPLES = 2000
LONG_RUN = 30  # frames


def read(path):
    return json.loads(pathlib.Path(path).read_text())


def small_targets(result):
    """Frame width -> the benchmark's figures, box 60 x 60."""
    found = {}
    for run in result["benchmarks"]:
        given = dict(re.findall(r"/([a-z_]+):(\d+)", run["name"]))
        if run["name"].startswith("BM_SmallTarget/") and given.get("box_w") == "60" and not run.get("error_occurred"):
            found[int(given["w"])] = run
    return found


def frames(plain, fast, folder):
    plain, fast = small_targets(read(plain)), small_targets(read(fast))
    widths = sorted(set(plain) & set(fast))
    if len(widths) < 2:
        sys.exit("page_plots.py: the results lack BM_SmallTarget in two frame sizes")
    names = ("bare CSRT", "plug-in", "with the engine")
    curves = {names[0]: [plain[w]["whole_frame_cpu_ms"] for w in widths],
              names[1]: [plain[w]["update_cpu_ms"] for w in widths],
              names[2]: [fast[w]["update_cpu_ms"] for w in widths]}
    pathlib.Path(folder, "frame-time.svg").write_text(line_chart(
        "One update, target 60 x 60: processor time, ms", widths, widths, curves, "frame width, pixels (16:9)",
        dict(zip(names, (BROWN, GREEN, BLUE)))))


def recovery(path, folder):
    scenes = [scene for scene in read(path)["scenes"] if scene["comes_back"]]
    longest = max(scene["frames_watched"] for scene in scenes)

    def bar(scene, who):
        after = scene[who]["held_after"]
        return (None, None, None, f"never, in {scene['frames_watched']} frames") if after is None else (after, None, None, str(after))

    rows = [(scene["name"].removesuffix(", back elsewhere"), {"plug-in": bar(scene, "plugin"), "bare CSRT": bar(scene, "bare")})
            for scene in scenes]
    worst = max([value for _, bars in rows for value, *_ in bars.values() if value is not None] + [5])
    top = min(longest, (int(worst) // 5 + 2) * 5)
    pathlib.Path(folder, "recovery.svg").write_text(bar_chart(
        "Frames from the return until the target is held again", rows, ("plug-in", "bare CSRT"),
        {"plug-in": BLUE, "bare CSRT": BROWN}, top, 5, ""))


def share_on_target(targets):
    marks = [mark for target in targets for mark in target["marks"] if not mark[2]]
    return sum(mark[5] >= ON_TARGET for mark in marks) / len(marks)


def interval(targets):
    """95 % of the shares when targets are drawn anew; the same for the same results."""
    chance = random.Random(1)
    shares = sorted(share_on_target(chance.choices(targets, k=len(targets))) for _ in range(RESAMPLES))
    return shares[int(0.025 * RESAMPLES)], shares[int(0.975 * RESAMPLES)]


def presets(folder, results):
    rows = []
    for given in results:
        name, path = given.split("=", 1)
        result = read(path)
        for tracker, overall in result["overall"].items():
            targets = [target for target in result["targets"] if target["tracker"] == tracker]
            low, high = interval(targets)
            share, wrong = overall["on_target"], overall["seen_elsewhere"]
            rows.append((name if tracker == "plugin" else "bare CSRT", {
                "on target": (100 * share, 100 * low, 100 * high, f"{100 * share:.0f} %, held {overall['held_at_end']} of {overall['targets']}"),
                "wrong": (100 * wrong, None, None, f"{100 * wrong:.0f} %")}))
    pathlib.Path(folder, "presets.svg").write_text(bar_chart(
        "Walkers: share of the marks on target; share of the frames called seen that lie elsewhere", rows,
        ("on target", "wrong"), {"on target": BLUE, "wrong": GREY}, 100, 20, " %",
        "Whiskers: 95 % interval when the walkers are drawn anew."))


def guard(path, folder):
    """A walker's share on target over all starts, without and with the guard, the defaults of the first engine."""
    groups = read(path)["walkers"]["groups"]
    names = {"off": "without the guard", "colour": "with it"}
    chosen = {group["guard"]: group["walks"] for group in groups
              if group["engine"] == groups[0]["engine"] and group["preset"] == "defaults" and group["guard"] in names}
    if set(chosen) != set(names):
        sys.exit("page_plots.py: the result lacks the defaults without or with the guard")

    def bar(walker, kind):
        walks = [walk for walk in chosen[kind] if walk["target"] == walker]
        held, longest = sum(walk["held"] for walk in walks), max(walk["longest_wrong_run"] for walk in walks)
        share = 100 * sum(walk["on_target"] for walk in walks) / sum(walk["marks"] for walk in walks)
        return share, None, None, f"{share:.0f} %, held {held} of {len(walks)}" + (f", wrong for {longest} frames" if longest > LONG_RUN else "")

    walkers = sorted({walk["target"] for walk in chosen["off"]}, key=lambda name: (len(name), name))
    rows = [(f"walker {walker}", {names[kind]: bar(walker, kind) for kind in names}) for walker in walkers]
    pathlib.Path(folder, "guard-walkers.svg").write_text(bar_chart(
        "Walkers: share of the marks on target, all starts together", rows, tuple(names.values()),
        dict(zip(names.values(), (BROWN, BLUE))), 100, 20, " %",
        f"Wrong: called seen while elsewhere for more than {LONG_RUN} frames in a row, the longest such run of all starts.",
        behind=220))


def main(arguments):
    what, *rest = arguments or [""]
    if what == "frames" and len(rest) == 3:
        frames(*rest)
    elif what == "recovery" and len(rest) == 2:
        recovery(*rest)
    elif what == "guard" and len(rest) == 2:
        guard(*rest)
    elif what == "presets" and len(rest) >= 2 and all("=" in given for given in rest[1:]):
        presets(rest[0], rest[1:])
    else:
        sys.exit(__doc__)


if __name__ == "__main__":
    main(sys.argv[1:])
