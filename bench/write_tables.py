#!/usr/bin/env python3
"""Turns the results of the benchmarks into the tables of docs/performance.md.

write_tables.py RESULTS PAGE     writes the tables between the page's two marks
write_tables.py --keep RESULTS PAGE
                                 so too, but a table without any result keeps what the page says
write_tables.py --check RESULTS  only says whether every benchmark ran without an error
"""

import json
import pathlib
import re
import sys

BEGIN = "<!-- tables written by bench.sh: begin -->"
END = "<!-- tables written by bench.sh: end -->"


def load(folder):
    results = {}
    for path in sorted(pathlib.Path(folder).glob("*.json")):
        results[path.stem] = json.loads(path.read_text())
    if not results:
        sys.exit(f"write_tables.py: no results in {folder}")
    return results


def errors(results):
    for program, result in results.items():
        for run in result["benchmarks"]:
            if run.get("error_occurred"):
                yield f"{program}: {run['name']}: {run.get('error_message', 'failed')}"


def arguments(run):
    """The arguments in a benchmark's name: BM_X/w:640/h:360 gives {'w': '640', 'h': '360'}."""
    return dict(re.findall(r"/([a-z_]+):(\d+)", run["name"]))


def runs_of(results, program, benchmark):
    runs = results.get(program, {}).get("benchmarks", [])
    return [run for run in runs if run["name"].split("/")[0] == benchmark]


def number(value):
    if isinstance(value, str):
        return value
    if value >= 1000:
        return f"{value:,.0f}"
    if value >= 100:
        return f"{value:.0f}"
    return f"{value:.3g}" if value < 1 else f"{value:.3f}" if value < 10 else f"{value:.1f}"


def table(header, rows):
    if not rows:
        return ["Not measured here.", ""]
    lines = ["| " + " | ".join(header) + " |", "|" + "---|" * len(header)]
    lines += ["| " + " | ".join(number(cell) for cell in row) + " |" for row in rows]
    return lines + [""]


def frame(run):
    given = arguments(run)
    return f"{given['w']} x {given['h']}"


def counts(run, names):
    return [f"{run[name]:,.0f}" for name in names]


def counters(run, names):
    return [run[name] for name in names]


def wall_and_cpu(run, name):
    """Median and 95th percentile of processor time, then of wall time."""
    return counters(run, [f"{name}_cpu_ms", f"{name}_cpu_p95_ms", f"{name}_ms", f"{name}_p95_ms"])


def machine(results):
    context = results.get("update_bench", next(iter(results.values())))["context"]
    load = context.get("load_avg") or [0.0]
    processor = "unknown"
    for line in pathlib.Path("/proc/cpuinfo").read_text().splitlines():
        if line.startswith("model name"):
            processor = line.split(":", 1)[1].strip()
            break
    return [
        f"{context['num_cpus']} cores ({processor}), OpenCV {context.get('opencv')}, compiler {context.get('compiler')},"
        f" images for matching in {context.get('images')} memory, release build, one thread."
        f" Load of the machine when it began: {load[0]:.1f}.",
        "",
    ]


def times(results):
    header = ["frame", "what", "CPU median ms", "CPU p95", "wall median ms", "wall p95"]
    lines = ["### A tracked frame beside the bare tracker's step on the same crop", ""]
    rows, ratios = [], []
    for run in runs_of(results, "update_bench", "BM_UpdateTracked"):
        rows.append([frame(run), "update()", *wall_and_cpu(run, "update")])
        rows.append([frame(run), "bare step", *wall_and_cpu(run, "bare")])
        ratios.append([frame(run), *counters(run, ["ratio", "ratio_same_call"])])
    lines += table(header, rows)
    lines += table(["frame", "update() : bare step, pair by pair", "update() : the tracker's step inside it"], ratios)

    lines += ["### The log on and off: what a tracked frame adds to the tracker's step (CPU ms)", ""]
    rows = [[*counters(run, ["around_off_cpu_ms", "around_off_cpu_p95_ms", "around_on_cpu_ms", "around_on_cpu_p95_ms"])]
            for run in runs_of(results, "update_bench", "BM_UpdateDebug")]
    lines += table(["off, median", "p95", "on, median", "p95"], rows)

    lines += ["### A small target in a large frame", ""]
    rows = []
    for run in runs_of(results, "update_bench", "BM_SmallTarget"):
        given = arguments(run)
        rows.append([frame(run), f"{given['box_w']} x {given['box_h']}",
                     *counters(run, ["update_cpu_ms", "whole_frame_cpu_ms", "update_ms", "update_p95_ms",
                                     "whole_frame_ms", "whole_frame_p95_ms", "faster", "of_small_frame"])])
    lines += table(["frame", "box", "update() CPU ms", "bare CSRT, whole frame, CPU ms", "update() wall ms", "p95",
                    "bare wall ms", "p95", "times faster", "of its time at 640 x 360"], rows)

    lines += ["### Frames on which the target is lost", ""]
    rows = []
    kinds = [("tracked", "tracked"), ("searched", "searched for in vain"), ("found", "searched for and found"),
             ("back", "found after it was gone")]
    for run in runs_of(results, "update_bench", "BM_UpdateLost"):
        for key, words in kinds:
            rows.append([frame(run), words, *wall_and_cpu(run, key), run[f"{key}_cpu_ms"] / run["tracked_cpu_ms"]])
    lines += table(header + ["of a tracked frame, CPU"], rows)
    return lines


def search(results):
    lines = ["### A search, stage by stage (CPU ms, median)", ""]
    names = ["grey", "shrink", "shrink_by_opencv", "match", "fine", "validate", "start", "whole", "step"]
    rows = [[frame(run), *counters(run, [f"{name}_cpu_ms" for name in names]), run["whole_in_steps"]]
            for run in runs_of(results, "redetect_bench", "BM_RedetectStages")]
    return lines + table(["frame", "grey", "shrink", "(cv::resize)", "match", "fine", "likeness", "tracker start",
                          "whole search", "a tracked frame", "search : tracked frame"], rows)


def others(results):
    lines = ["### Starting", ""]
    rows = [[frame(run), *counters(run, ["init_cpu_ms", "refined_cpu_ms", "bare_whole_frame_cpu_ms", "init_ms",
                                         "init_p95_ms"])]
            for run in runs_of(results, "init_bench", "BM_Init")]
    lines += table(["frame", "init() CPU ms", "with refinement", "bare CSRT, whole frame", "init() wall ms", "p95"], rows)

    lines += ["### The shrink of a whole frame to 320 rows", ""]
    rows = [[frame(run), *counters(run, ["shrink_cpu_ms", "opencv_cpu_ms", "faster"])]
            for run in runs_of(results, "image_bench", "BM_ShrinkFrame")]
    lines += table(["frame", "CPU ms", "cv::resize CPU ms", "times faster"], rows)

    lines += ["### Memory at its peak, over the idle process", ""]
    rows = [[frame(run), *counters(run, ["plugin_MB", "bare_MB"]), f"{run['more_MB']:+.1f}", run["ratio"]]
            for run in runs_of(results, "memory_bench", "BM_PeakMemory")]
    lines += table(["frame", "plug-in MB", "bare CSRT MB", "difference MB", "ratio"], rows)

    lines += ["### Allocations on a tracked frame", ""]
    rows = [[frame(run), *counts(run, ["plugin", "plugin_bytes", "plugin_most_bytes", "csrt"])]
            for run in runs_of(results, "allocation_bench", "BM_AllocationsTracked")]
    lines += table(["frame", "by the plug-in", "bytes, median", "bytes, most", "by CSRT in the same call"], rows)
    for run in runs_of(results, "allocation_bench", "BM_AllocationsOfTheRecord"):
        record, size = counts(run, ["record", "record_bytes"])
        lines += [f"{record} of them, {size} bytes, are the record that leaves.", ""]

    lines += ["### Several targets, each in its thread", ""]
    rows = [[arguments(run)["targets"], *counters(run, ["throughput", "best_throughput", "cpu_per_frame",
                                                        "locks_per_frame", "waits_per_frame"])]
            for run in runs_of(results, "threads_bench", "BM_Threads")]
    lines += table(["targets", "throughput : one target's, median round", "best round", "CPU per frame : alone",
                    "locks per frame", "waits per frame"], rows)
    return lines


def engine(results):
    lines = ["### The engine beside OpenCV's tracker", ""]
    rows = []
    for benchmark, what in [("BM_EngineClip", "step, clip"), ("BM_EngineStep", "step, drawn"), ("BM_EngineInit", "init()")]:
        for run in runs_of(results, "engine_bench", benchmark):
            given = arguments(run)
            scene = (f"walker at {given['percent']} %" if "percent" in given else f"{frame(run)}, box {given['box']}")
            rows.append([what, scene, *counters(run, ["opencv_cpu_ms", "engine_cpu_ms", "ratio", "engine_cpu_p95_ms"]),
                         f"{run['opencv_faults']:.0f} and {run['engine_faults']:.0f}"])
    sets = sorted({run.get("label", "") for run in runs_of(results, "engine_bench", "BM_EngineStep")} - {""})
    lines += [f"Engine with {', '.join(sets) or 'no instruction set named'}; the same boxes on every frame.", ""]
    lines += table(["what", "scene", "OpenCV CPU ms", "engine CPU ms", "ratio, pair by pair", "engine p95",
                    "page faults"], rows)

    lines += ["### The plug-in with the engine, beside OpenCV's bare CSRT", ""]
    rows = []
    for run in runs_of(results, "fast_update_bench", "BM_SmallTarget"):
        given = arguments(run)
        rows.append([frame(run), f"{given['box_w']} x {given['box_h']}",
                     *counters(run, ["update_cpu_ms", "whole_frame_cpu_ms", "faster", "of_small_frame"])])
    lines += table(["frame", "box", "update() CPU ms", "bare CSRT, whole frame, CPU ms", "times faster",
                    "of its time at 640 x 360"], rows)
    rows = [[frame(run), *counters(run, ["update_cpu_ms", "update_cpu_p95_ms", "of_small_frame"])]
            for run in runs_of(results, "fast_update_bench", "BM_WholeFrame")]
    lines += ["Without a window (`roi.enable` off):", ""]
    lines += table(["frame", "update() CPU ms", "p95", "of its time at 640 x 360"], rows)
    rows = []
    for run in runs_of(results, "fast_update_bench", "BM_UpdateLost"):
        rows.append([frame(run), *counters(run, [f"{kind}_cpu_ms" for kind in ("tracked", "searched", "found", "back")])])
    lines += ["Frames on which the target is lost, CPU ms:", ""]
    lines += table(["frame", "tracked", "searched for in vain", "searched for and found", "found after it was gone"], rows)
    rows = [[frame(run), *counters(run, ["plugin_MB", "bare_MB"]), run["ratio"]]
            for run in runs_of(results, "fast_memory_bench", "BM_PeakMemory")]
    lines += ["Memory at its peak, over the idle process:", ""]
    lines += table(["frame", "plug-in MB", "bare CSRT MB", "ratio"], rows)
    rows = [[frame(run), *counts(run, ["plugin", "plugin_bytes", "csrt"])]
            for run in runs_of(results, "fast_allocation_bench", "BM_AllocationsTracked")]
    lines += ["Allocations on a tracked frame:", ""]
    lines += table(["frame", "by the plug-in", "bytes, median", "by the engine in the same call"], rows)
    return lines


def small_things(results):
    """Every benchmark that has no table of its own, as Google Benchmark reports it."""
    shown = {"update_bench", "redetect_bench", "init_bench", "memory_bench", "allocation_bench", "threads_bench",
             "engine_bench"}
    rows = []
    for program, result in results.items():
        for run in result["benchmarks"]:
            if program in shown or program.startswith("fast_") or run["name"].startswith("BM_ShrinkFrame") or run.get("error_occurred"):
                continue
            name = re.sub(r"/(iterations:\d+|process_time|manual_time|real_time)", "", run["name"])
            rows.append([program, name, f"{number(run['cpu_time'])} {run['time_unit']}"])
    return ["### Everything else", ""] + table(["program", "benchmark", "CPU time"], rows)


def sections(lines):
    """Tables by their heading, in order; what stands before the first has the heading ''."""
    found = {"": []}
    for line in lines:
        if line.startswith("### "):
            found[line] = []
        found[list(found)[-1]].append(line)
    return found


def measured(lines):
    """A table has rows: more than its header and the line under it."""
    return sum(line.startswith("|") for line in lines) > 2


def kept(lines, old):
    """The sections of `lines` with a row, saying where they were measured; the page's instead of those without."""
    before = sections(old)
    after = sections(lines)
    machine_line = after[""][0]
    result = list(before.get("", after[""]))
    for heading, new in after.items():
        if not heading:
            continue
        if measured(new):
            result += [heading, "", f"Measured apart from the others: {machine_line}", *new[1:]]
        else:
            result += before.get(heading, [])
    return result if result[-1] == "" else [*result, ""]


def write(results, page, keep):
    text = pathlib.Path(page).read_text()
    if text.count(BEGIN) != 1 or text.count(END) != 1:
        sys.exit(f"write_tables.py: {page} lacks the marks that the tables stand between")
    lines = machine(results) + times(results) + search(results) + others(results) + engine(results) + small_things(results)
    before, rest = text.split(BEGIN)
    old, after = rest.split(END)
    if keep:
        lines = kept(lines, old.strip("\n").split("\n"))
    pathlib.Path(page).write_text(before + BEGIN + "\n\n" + "\n".join(lines) + END + after)


def main(arguments_given):
    check = "--check" in arguments_given
    keep = "--keep" in arguments_given
    rest = [argument for argument in arguments_given if argument not in ("--check", "--keep")]
    if len(rest) != (1 if check else 2):
        sys.exit(__doc__)
    results = load(rest[0])
    failed = list(errors(results))
    for line in failed:
        print(line, file=sys.stderr)
    if not check:
        write(results, rest[1], keep)
    sys.exit(1 if failed else 0)


if __name__ == "__main__":
    main(sys.argv[1:])
