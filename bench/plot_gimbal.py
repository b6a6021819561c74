#!/usr/bin/env python3
"""Draws what gimbal_loop measured: gimbal_loop --json loop.json && bench/plot_gimbal.py loop.json docs/pictures

Writes gimbal-steps.svg (the gimbal's angle after a step, both followers, each video delay) and gimbal-overshoot.svg
(overshoot by video delay). Needs nothing but Python.
"""
import json
import sys

PREDICTING, PLAIN, GRID, TEXT = "#1668a8", "#c8641e", "#d8d8d8", "#333333"


def line(points, colour, width=1.8, dashes=""):
    path = " ".join(f"{x:.1f},{y:.1f}" for x, y in points)
    return (f'<polyline points="{path}" fill="none" stroke="{colour}" stroke-width="{width}"'
            + (f' stroke-dasharray="{dashes}"' if dashes else "") + "/>")


def text(x, y, words, anchor="start", size=12, colour=TEXT):
    return f'<text x="{x:.1f}" y="{y:.1f}" text-anchor="{anchor}" font-size="{size}" fill="{colour}">{words}</text>'


def picture(width, height, parts):
    return (f'<svg xmlns="http://www.w3.org/2000/svg" width="{width}" height="{height}" '
            f'viewBox="0 0 {width} {height}" font-family="sans-serif"><rect width="100%" height="100%" fill="white"/>\n'
            + "\n".join(parts) + "\n</svg>\n")


def steps(cells):
    parts = [text(20, 24, "A step of 20 degrees: where the gimbal looks (rate limit 60 °/s, encoder noise 0.1°)", size=14),
             line([(50, 42), (80, 42)], PREDICTING), text(86, 46, "predicting"),
             line([(170, 42), (200, 42)], PLAIN), text(206, 46, "proportional and integral")]
    for i, cell in enumerate(cells):
        left, top = 50 + (i % 2) * 390, 70 + (i // 2) * 230
        wide, high, longest, highest = 340, 180, 6.0, 42.0
        place = lambda t, a: (left + t / longest * wide, top + high - max(0.0, min(highest, a)) / highest * high)
        for degrees in (0, 10, 20, 30, 40):
            y = place(0, degrees)[1]
            parts.append(line([(left, y), (left + wide, y)], GRID, 1))
            parts.append(text(left - 6, y + 4, degrees, "end", 10))
        for seconds in range(0, 7):
            parts.append(text(place(seconds, 0)[0], top + high + 14, f"{seconds} s", "middle", 10))
        parts.append(line([place(0, 20), place(longest, 20)], TEXT, 1, "4 3"))
        for name, colour in (("proportional", PLAIN), ("predicting", PREDICTING)):
            parts.append(line([place(t, a) for t, a in cell["curves"][name]], colour))
        parts.append(text(left + wide - 4, top + 14, f"video {1000 * cell['video_s']:.0f} ms late", "end", 12))
    return picture(820, 530, parts)


def overshoot(cells):
    parts = [text(20, 24, "Overshoot on a step of 20 degrees, worst of rate limits and encoder noise", size=14)]
    left, top, wide, high = 60, 50, 520, 240
    for percent in (0, 25, 50, 75, 100):
        y = top + high - percent / 100 * high
        parts.append(line([(left, y), (left + wide, y)], GRID, 1))
        parts.append(text(left - 6, y + 4, f"{percent} %", "end", 10))
    for i, video_s in enumerate(sorted({cell["video_s"] for cell in cells})):
        x = left + 40 + i * 125
        for shift, name, colour in ((0, "predicting", PREDICTING), (42, "proportional", PLAIN)):
            worst = max(cell[name]["overshoot"] for cell in cells if cell["video_s"] == video_s)
            tall = min(1.0, worst) * high
            parts.append(f'<rect x="{x + shift}" y="{top + high - tall:.1f}" width="36" height="{tall:.1f}" fill="{colour}"/>')
            above = max(tall, 0.05 * high) if worst < 0.1 else tall  # not on the line of the limit
            parts.append(text(x + shift + 18, top + high - above - 4, f"{100 * worst:.1f}", "middle", 10))
        parts.append(text(x + 39, top + high + 16, f"video {1000 * video_s:.0f} ms", "middle"))
    y = top + high - 0.05 * high
    parts.append(line([(left, y), (left + wide, y)], TEXT, 1, "4 3"))
    parts.append(text(left + wide + 6, y + 4, "limit 5 %", size=10))
    parts.append(text(left + wide + 6, top + 14, "predicting", colour=PREDICTING))
    parts.append(text(left + wide + 6, top + 32, "proportional", colour=PLAIN))
    return picture(700, 330, parts)


def main():
    if len(sys.argv) != 3:
        sys.exit("plot_gimbal.py LOOP_JSON FOLDER")
    with open(sys.argv[1], encoding="utf-8") as file:
        cells = json.load(file)
    for name, drawn in (("gimbal-steps", steps([cell for cell in cells if "curves" in cell])),
                        ("gimbal-overshoot", overshoot(cells))):
        with open(f"{sys.argv[2]}/{name}.svg", "w", encoding="utf-8") as file:
            file.write(drawn)


main()
