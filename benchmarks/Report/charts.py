"""Draws a benchmark's chart as SVG: bars for cases, lines for sizes."""

import math
import statistics
from html import escape

from .benchmarks import sizeOf
from .table import OURS, number, quartiles

COLOURS = ["#1f6feb", "#c0c7d1", "#8b98a9", "#e0a458", "#9b72cf", "#5aa889"]
FONT = "font-family='Helvetica,Arial,sans-serif'"
WIDTH = 860


def colourOf(sides, side):
    return COLOURS[sides.index(side) % len(COLOURS)]


def text(x, y, words, size=12, anchor="start", colour="#24292f", weight="normal"):
    return (f"<text x='{x:.1f}' y='{y:.1f}' {FONT} font-size='{size}' text-anchor='{anchor}' fill='{colour}' "
            f"font-weight='{weight}'>{escape(words)}</text>")


def legend(sides, y):
    parts, x = [], 20
    for side in sides:
        parts.append(f"<rect x='{x}' y='{y - 10}' width='12' height='12' fill='{colourOf(sides, side)}'/>")
        parts.append(text(x + 17, y, side))
        x += 17 + 8 * len(side) + 22
    return parts


def frame(benchmark, sides, height, parts):
    better = "more is better" if benchmark.rate else "less is better"
    unit = "" if benchmark.units else f"{benchmark.unit}, "
    head = [f"<svg xmlns='http://www.w3.org/2000/svg' width='{WIDTH}' height='{height:.0f}' "
            f"viewBox='0 0 {WIDTH} {height:.0f}'>",
            f"<rect width='{WIDTH}' height='{height:.0f}' fill='#ffffff'/>",
            text(20, 28, f"{benchmark.title} ({unit}{better})", 16, weight="bold")]
    return "\n".join(head + legend(sides, 54) + parts + ["</svg>"]) + "\n"


def sidesOf(cases):
    sides = [OURS]
    for measured in cases.values():
        sides += [side for side in measured if side not in sides]
    return sides


def barLimit(medians):
    medians = sorted(medians)
    return min(medians[-1], 3 * medians[int(len(medians) * 0.8)])


def drawBars(benchmark, cases):
    """Very long bars are cut, so that the others keep a visible length. Each unit has a scale of its own."""
    sides = sidesOf(cases)
    medians = {}
    for case, measured in cases.items():
        unit, scale = benchmark.unitOf(case)
        medians.setdefault(unit, []).extend(statistics.median(values) * scale for values in measured.values())
    limits = {unit: barLimit(values) for unit, values in medians.items()}
    left, right, thickness = 210, WIDTH - (115 if benchmark.units else 80), 13
    parts, y = [], 76
    for case, measured in cases.items():
        unit, scale = benchmark.unitOf(case)
        limit = limits[unit]
        parts.append(text(left - 10, y + thickness * len(measured) / 2 + 4, case, anchor="end"))
        for side in sides:
            if side not in measured:
                continue
            values = [value * scale for value in measured[side]]
            middle = statistics.median(values)
            place = lambda value: left + (right - left) * min(value, limit) / limit
            parts.append(f"<rect x='{left}' y='{y}' width='{max(place(middle) - left, 1):.1f}' "
                         f"height='{thickness - 2}' fill='{colourOf(sides, side)}'/>")
            low, high = quartiles(values)
            parts.append(f"<path d='M{place(low):.1f} {y + 5.5}H{place(high):.1f}' stroke='#24292f'/>")
            mark = (f" {unit}" if benchmark.units else "") + (" (cut)" if middle > limit else "")
            parts.append(text(max(place(middle), place(high)) + 5, y + 10, number(middle) + mark, 11))
            y += thickness
        y += 10
    return frame(benchmark, sides, y + 10, parts)


def drawLines(benchmark, cases):
    """A line for each side, and for each kind of case that follows the size in the cases' names."""
    sides, points = sidesOf(cases), {}
    for case, measured in cases.items():
        size, unit, *kind = case.split(" ", 2)
        for side in sides:
            if side in measured:
                values = [value * benchmark.scale for value in measured[side]]
                points.setdefault((side, *kind), []).append((sizeOf(case), values))
    labels = {sizeOf(case): " ".join(case.split(" ", 2)[:2]) for case in cases}
    xs = [math.log(x) for x in labels]
    ys = [math.log(value) for line in points.values() for _, values in line for value in quartiles(values)]
    left, right, top, bottom = 80, WIDTH - 130, 80, 380
    spanX, spanY = max(max(xs) - min(xs), 1e-9), max(max(ys) - min(ys), 1e-9)
    placeX = lambda x: left + (right - left) * (math.log(x) - min(xs)) / spanX
    placeY = lambda y: bottom - (bottom - top) * (math.log(y) - min(ys)) / spanY
    parts = [f"<path d='M{left} {top}V{bottom}H{right}' fill='none' stroke='#8b98a9'/>"]
    for power in range(math.floor(min(ys) / math.log(10)), math.ceil(max(ys) / math.log(10)) + 1):
        if min(ys) <= power * math.log(10) <= max(ys):
            y = placeY(10.0 ** power)
            parts.append(f"<path d='M{left} {y:.1f}H{right}' stroke='#e4e8ed'/>")
            parts.append(text(left - 8, y + 4, f"{10.0 ** power:,g}", 11, "end"))
    parts += [text(placeX(size), bottom + 18, label, 10, "middle") for size, label in labels.items()]
    kinds = list(dict.fromkeys(key[1:] for key in points))
    labelled = []
    for (side, *kind), line in points.items():
        colour = colourOf(sides, side)
        dashes = "" if kinds.index(tuple(kind)) == 0 else " stroke-dasharray='6 4'"
        path = "M" + "L".join(f"{placeX(x):.1f} {placeY(statistics.median(values)):.1f}" for x, values in line)
        parts.append(f"<path d='{path}' fill='none' stroke='{colour}' stroke-width='2'{dashes}/>")
        for x, values in line:
            low, high = quartiles(values)
            parts.append(f"<circle cx='{placeX(x):.1f}' cy='{placeY(statistics.median(values)):.1f}' r='3' "
                         f"fill='{colour}'/>")
            parts.append(f"<path d='M{placeX(x):.1f} {placeY(low):.1f}V{placeY(high):.1f}' stroke='{colour}'/>")
        if side == OURS and kind:
            y = max([placeY(statistics.median(line[-1][1])) + 4] + [taken + 12 for taken in labelled])
            labelled.append(y)
            parts.append(text(right + 8, y, ", ".join([side, *kind]), 11))
    return frame(benchmark, sides, bottom + 40, parts)


def draw(benchmark, samples):
    cases = samples.values[benchmark.number]
    return drawLines(benchmark, cases) if benchmark.chartKind == "lines" else drawBars(benchmark, cases)
