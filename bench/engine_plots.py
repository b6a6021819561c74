#!/usr/bin/env python3
"""Draws what a step costs against the frame's size and the box's, from engine_bench's JSON.

engine_plots.py RESULT.json FOLDER   writes engine-frame.svg and engine-box.svg into FOLDER
"""

import json
import math
import pathlib
import re
import sys

WIDTH, HEIGHT = 560, 320
LEFT, RIGHT, TOP, BOTTOM = 56, 130, 30, 46
COLOURS = {"OpenCV": "#b5562a", "engine": "#2a6db5"}
TICKS = [0.2, 0.5, 1, 2, 5, 10, 20, 50, 100, 200]


def steps_of(result):
    """(width, height, box, milliseconds of OpenCV, of the engine) of every drawn scene."""
    rows = []
    for run in result["benchmarks"]:
        given = dict(re.findall(r"/([a-z_]+):(\d+)", run["name"]))
        if run["name"].startswith("BM_EngineStep/") and not run.get("error_occurred"):
            rows.append((int(given["w"]), int(given["h"]), int(given["box"]), run["opencv_cpu_ms"], run["engine_cpu_ms"]))
    return rows


def chart(title, places, labels, curves, unit):
    """One chart as SVG: both axes logarithmic. curves: name -> milliseconds at each place."""
    low, high = min(places), max(places)
    values = [value for curve in curves.values() for value in curve]
    bottom = max(tick for tick in TICKS if tick <= min(values))
    top = min(tick for tick in TICKS if tick >= max(values))

    def x(place):
        return LEFT + (WIDTH - LEFT - RIGHT) * math.log(place / low) / math.log(high / low)

    def y(value):
        return HEIGHT - BOTTOM - (HEIGHT - TOP - BOTTOM) * math.log(value / bottom) / math.log(top / bottom)

    svg = [f'<svg xmlns="http://www.w3.org/2000/svg" viewBox="0 0 {WIDTH} {HEIGHT}" font-family="sans-serif" font-size="12">',
           f'<rect width="{WIDTH}" height="{HEIGHT}" fill="white"/>', f'<text x="{LEFT}" y="18">{title}</text>']
    for tick in TICKS:
        if bottom <= tick <= top:
            svg.append(f'<line x1="{LEFT}" x2="{WIDTH - RIGHT}" y1="{y(tick):.1f}" y2="{y(tick):.1f}" stroke="#ddd"/>')
            svg.append(f'<text x="{LEFT - 8}" y="{y(tick) + 4:.1f}" text-anchor="end">{tick:g}</text>')
    for place, label in zip(places, labels):
        svg.append(f'<text x="{x(place):.1f}" y="{HEIGHT - BOTTOM + 18}" text-anchor="middle">{label}</text>')
    svg.append(f'<text x="{(LEFT + WIDTH - RIGHT) / 2}" y="{HEIGHT - 8}" text-anchor="middle">{unit}</text>')
    for name, curve in curves.items():
        points = " ".join(f"{x(place):.1f},{y(value):.1f}" for place, value in zip(places, curve))
        svg.append(f'<polyline points="{points}" fill="none" stroke="{COLOURS[name]}" stroke-width="2"/>')
        for place, value in zip(places, curve):
            svg.append(f'<circle cx="{x(place):.1f}" cy="{y(value):.1f}" r="3" fill="{COLOURS[name]}"/>')
        svg.append(f'<text x="{WIDTH - RIGHT + 10}" y="{y(curve[-1]) + 4:.1f}" fill="{COLOURS[name]}">'
                   f'{name}, {curve[-1]:.1f} ms</text>')
    return "\n".join(svg + ["</svg>", ""])


def main(arguments):
    if len(arguments) != 2:
        sys.exit(__doc__)
    rows = steps_of(json.loads(pathlib.Path(arguments[0]).read_text()))
    folder = pathlib.Path(arguments[1])
    by_frame = sorted((row for row in rows if row[2] == 60 and row[0] * 9 == row[1] * 16), key=lambda row: row[0])
    by_box = sorted((row for row in rows if row[:2] == (1280, 720)), key=lambda row: row[2])
    if len(by_frame) < 2 or len(by_box) < 2:
        sys.exit(f"engine_plots.py: {arguments[0]} lacks the drawn scenes")
    folder.joinpath("engine-frame.svg").write_text(
        chart("A step against the frame, box 60 x 60: processor time, ms", [row[0] for row in by_frame],
              [row[0] for row in by_frame], {"OpenCV": [row[3] for row in by_frame], "engine": [row[4] for row in by_frame]},
              "frame width, pixels (16:9)"))
    folder.joinpath("engine-box.svg").write_text(
        chart("A step against the box, frame 1280 x 720: processor time, ms", [row[2] for row in by_box],
              [row[2] for row in by_box], {"OpenCV": [row[3] for row in by_box], "engine": [row[4] for row in by_box]},
              "side of the box, pixels"))


if __name__ == "__main__":
    main(sys.argv[1:])
