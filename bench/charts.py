"""Charts as SVG text for the pages, without any library. Times are milliseconds of processor time."""

import math

WIDTH, HEIGHT = 560, 320
LEFT, RIGHT, TOP, BOTTOM = 56, 130, 30, 46
TICKS = [0.2, 0.5, 1, 2, 5, 10, 20, 50, 100, 200]
BROWN, BLUE, GREEN, GREY = "#b5562a", "#2a6db5", "#3d8a4e", "#777777"


def text(x, y, words, anchor="start", colour="black"):
    """Words at a place; x, y in the picture's units."""
    return f'<text x="{x:.1f}" y="{y:.1f}" text-anchor="{anchor}" fill="{colour}">{words}</text>'


def picture(width, height, parts):
    """A whole SVG file of these parts on white."""
    return "\n".join([
        f'<svg xmlns="http://www.w3.org/2000/svg" viewBox="0 0 {width} {height}" font-family="sans-serif" font-size="12">',
        f'<rect width="{width}" height="{height}" fill="white"/>', *parts, "</svg>", ""])


def line_chart(title, places, labels, curves, unit, colours):
    """Both axes logarithmic. curves: name -> milliseconds at each place; colours: name -> colour."""
    low, high = min(places), max(places)
    values = [value for curve in curves.values() for value in curve]
    bottom = max(tick for tick in TICKS if tick <= min(values))
    top = min(tick for tick in TICKS if tick >= max(values))

    def x(place):
        return LEFT + (WIDTH - LEFT - RIGHT) * math.log(place / low) / math.log(high / low)

    def y(value):
        return HEIGHT - BOTTOM - (HEIGHT - TOP - BOTTOM) * math.log(value / bottom) / math.log(top / bottom)

    parts = [text(LEFT, 18, title)]
    for tick in TICKS:
        if bottom <= tick <= top:
            parts.append(f'<line x1="{LEFT}" x2="{WIDTH - RIGHT}" y1="{y(tick):.1f}" y2="{y(tick):.1f}" stroke="#ddd"/>')
            parts.append(text(LEFT - 8, y(tick) + 4, f"{tick:g}", "end"))
    for place, label in zip(places, labels):
        parts.append(text(x(place), HEIGHT - BOTTOM + 18, label, "middle"))
    parts.append(text((LEFT + WIDTH - RIGHT) / 2, HEIGHT - 8, unit, "middle"))
    for name, curve in curves.items():
        points = " ".join(f"{x(place):.1f},{y(value):.1f}" for place, value in zip(places, curve))
        parts.append(f'<polyline points="{points}" fill="none" stroke="{colours[name]}" stroke-width="2"/>')
        for place, value in zip(places, curve):
            parts.append(f'<circle cx="{x(place):.1f}" cy="{y(value):.1f}" r="3" fill="{colours[name]}"/>')
    for name, height in labels_apart({name: y(curve[-1]) for name, curve in curves.items()}).items():
        parts.append(text(WIDTH - RIGHT + 10, height + 4, f"{name}, {curves[name][-1]:.1f} ms", colour=colours[name]))
    return picture(WIDTH, HEIGHT, parts)


def labels_apart(heights, least=15):
    """The heights of labels, moved so that none covers another; name -> height."""
    placed, last = {}, -math.inf
    for name, height in sorted(heights.items(), key=lambda item: item[1]):
        last = max(height, last + least)
        placed[name] = last
    return placed


def bar_chart(title, rows, series, colours, top, tick, unit, note="", behind=90):
    """Bars side by side. rows: (label, {series: (value, low, high, words)}); low and high may be None: no whisker;
    a value of None: no bar, only the words. behind: room for the words of the longest bar."""
    left, width, row_height = 190, 640, 18 * len(series) + 14
    height = 62 + row_height * len(rows) + (22 if note else 0)
    scale = (width - left - behind) / top
    parts = [text(14, 18, title)]
    place = left
    for name in series:
        parts.append(f'<rect x="{place}" y="27" width="10" height="10" fill="{colours[name]}"/>')
        parts.append(text(place + 15, 36, name))
        place += 30 + 7 * len(name)
    for step in range(int(round(top / tick)) + 1):
        x = left + step * tick * scale
        parts.append(f'<line x1="{x:.1f}" x2="{x:.1f}" y1="46" y2="{46 + row_height * len(rows)}" stroke="#ddd"/>')
        parts.append(text(x, 46 + row_height * len(rows) + 14, f"{step * tick:g}{unit if step else ''}", "middle"))
    for number, (label, bars) in enumerate(rows):
        y = 52 + number * row_height
        parts.append(text(left - 8, y + 9 * len(series) + 2, label, "end"))
        for name in series:
            value, low, high, words = bars[name]
            end = left
            if value is not None:
                end = left + max(value, 0) * scale
                parts.append(f'<rect x="{left}" y="{y}" width="{max(end - left, 1):.1f}" height="14" fill="{colours[name]}"/>')
            if low is not None:
                a, b = left + low * scale, left + high * scale
                parts.append(f'<path d="M{a:.1f} {y + 4}v6M{a:.1f} {y + 7}H{b:.1f}M{b:.1f} {y + 4}v6" stroke="black" fill="none"/>')
                end = max(end, b)
            parts.append(text(end + 6, y + 11, words))
            y += 18
    if note:
        parts.append(text(14, height - 6, note, colour=GREY))
    return picture(width, height, parts)
