#!/usr/bin/env python3
"""Draws what a step costs against the frame's size and the box's, from engine_bench's JSON.

engine_plots.py RESULT.json FOLDER   writes engine-frame.svg and engine-box.svg into FOLDER
"""

import json
import pathlib
import re
import sys

from charts import BLUE, BROWN, line_chart

COLOURS = {"OpenCV": BROWN, "engine": BLUE}


def steps_of(result):
    """(width, height, box, milliseconds of OpenCV, of the engine) of every drawn scene."""
    rows = []
    for run in result["benchmarks"]:
        given = dict(re.findall(r"/([a-z_]+):(\d+)", run["name"]))
        if run["name"].startswith("BM_EngineStep/") and not run.get("error_occurred"):
            rows.append((int(given["w"]), int(given["h"]), int(given["box"]), run["opencv_cpu_ms"], run["engine_cpu_ms"]))
    return rows


def main(arguments):
    if len(arguments) != 2:
        sys.exit(__doc__)
    rows = steps_of(json.loads(pathlib.Path(arguments[0]).read_text()))
    folder = pathlib.Path(arguments[1])
    by_frame = sorted((row for row in rows if row[2] == 60 and row[0] * 9 == row[1] * 16), key=lambda row: row[0])
    by_box = sorted((row for row in rows if row[:2] == (1280, 720)), key=lambda row: row[2])
    if len(by_frame) < 2 or len(by_box) < 2:
        sys.exit(f"engine_plots.py: {arguments[0]} lacks the drawn scenes")
    for name, title, chosen, places, unit in (
            ("engine-frame", "A step against the frame, box 60 x 60: processor time, ms", by_frame, [row[0] for row in by_frame],
             "frame width, pixels (16:9)"),
            ("engine-box", "A step against the box, frame 1280 x 720: processor time, ms", by_box, [row[2] for row in by_box],
             "side of the box, pixels")):
        curves = {"OpenCV": [row[3] for row in chosen], "engine": [row[4] for row in chosen]}
        folder.joinpath(name + ".svg").write_text(line_chart(title, places, places, curves, unit, COLOURS))


if __name__ == "__main__":
    main(sys.argv[1:])
