"""Draws a benchmark's chart as SVG, with matplotlib: bars for cases, lines for sizes."""

import statistics

import matplotlib

matplotlib.use("svg")
matplotlib.rcParams.update({
    "svg.fonttype": "none", "svg.hashsalt": "torvane", "font.family": "sans-serif",
    "font.sans-serif": ["Helvetica", "Arial", "DejaVu Sans"], "font.size": 9,
    "axes.spines.top": False, "axes.spines.right": False, "axes.axisbelow": True,
})
from matplotlib import pyplot, ticker

from .benchmarks import sizeOf
from .table import OURS, number, quartiles

COLOURS = ["#1f6feb", "#c0c7d1", "#8b98a9", "#e0a458", "#9b72cf", "#5aa889"]
DASHES = ["-", "--", ":", "-."]
WIDTH = 9  # inches


def sidesOf(cases):
    return list(dict.fromkeys([OURS] + [side for measured in cases.values() for side in measured]))


def spreadOf(values):
    """Median, and its distances to the quartiles."""
    middle = statistics.median(values)
    low, high = quartiles(values)
    return middle, max(middle - low, 0), max(high - middle, 0)


def barLimit(medians):
    medians = sorted(medians)
    return min(medians[-1], 3 * medians[int(len(medians) * 0.8)])


def colourOf(sides, side):
    return COLOURS[sides.index(side) % len(COLOURS)]


def drawBar(axis, y, values, limit, colour):
    middle, below, above = spreadOf(values)
    isCut = middle > limit
    end = limit if isCut else min(middle + above, 1.4 * limit)
    axis.barh(y, min(middle, limit), 0.9, color=colour, xerr=None if isCut else [[below], [end - middle]],
              error_kw={"elinewidth": 0.8})
    axis.text(end, y, f"  {number(middle)}{' (cut)' if isCut else ''}", va="center", fontsize=7)


def drawBars(benchmark, cases):
    """One panel for each unit. Very long bars are cut, so that the others keep a visible length."""
    sides, panels = sidesOf(cases), {}
    for case in cases:
        panels.setdefault(benchmark.unitOf(case), []).append(case)
    heights = [sum(len(cases[case]) + 0.8 for case in panel) + 2 for panel in panels.values()]
    figure, axes = pyplot.subplots(len(panels), squeeze=False, figsize=(WIDTH, 0.17 * sum(heights) + 1),
                                   height_ratios=heights)
    for axis, ((unit, scale), panel) in zip(axes.flat, panels.items()):
        limit = barLimit([statistics.median(values) * scale for case in panel for values in cases[case].values()])
        y, ticks = 0, []
        for case in panel:
            ticks.append(y + (len(cases[case]) - 1) / 2)
            for side in sides:
                if side in cases[case]:
                    drawBar(axis, y, [value * scale for value in cases[case][side]], limit, colourOf(sides, side))
                    y += 1
            y += 0.8
        axis.set_yticks(ticks, panel)
        axis.set_xlim(0, 1.1 * max(text.get_position()[0] for text in axis.texts))
        axis.set_xlabel(unit)
        axis.invert_yaxis()
    return figure, [matplotlib.patches.Patch(color=colourOf(sides, side), label=side) for side in sides]


def drawLine(axis, points, scale, sides, side, dashes):
    middles, belows, aboves = zip(*(spreadOf([value * scale for value in values]) for _, values in points))
    axis.errorbar([size for size, _ in points], middles, [belows, aboves], marker="o", markersize=3, elinewidth=0.8,
                  linestyle=dashes, color=colourOf(sides, side))


def drawPanels(benchmark, cases, panels, nameOf):
    """A panel for what is varied, by {(varied, measured): {side: points}}; another dash for what else is measured.

    nameOf makes a size's label out of what is varied and the size.
    """
    sides = sidesOf(cases)
    varied = list(dict.fromkeys(what for what, _ in panels))
    kinds = list(dict.fromkeys(kind for _, kind in panels))
    used = [side for side in sides if any(side in curve for curve in panels.values())]
    figure, axes = pyplot.subplots(1, len(varied), squeeze=False, sharey=True, figsize=(WIDTH, 4.2))
    for axis, what in zip(axes.flat, varied):
        sizes = set()
        for (other, kind), curve in panels.items():
            for side, points in curve.items() if other == what else ():
                sizes.update(size for size, _ in points)
                drawLine(axis, points, benchmark.scale, sides, side, DASHES[kinds.index(kind) % len(DASHES)])
        axis.set_xscale("log")
        axis.set_yscale("log")
        axis.set_xticks(sorted(sizes), [nameOf(what, size) for size in sorted(sizes)], fontsize=8)
        axis.set_xticks([], minor=True)
        axis.set_xlabel(what)
        axis.yaxis.set_major_formatter(ticker.FuncFormatter(lambda value, _: f"{value:,g}"))
        axis.grid(axis="y", color="#e4e8ed")
    axes.flat[0].set_ylabel(benchmark.unit)
    line = matplotlib.lines.Line2D
    marks = [line([], [], color=colourOf(sides, side), label=side) for side in used]
    marks += [line([], [], color="black", linestyle=DASHES[i % len(DASHES)], label=kind)
              for i, kind in enumerate(kinds) if len(kinds) > 1]
    return figure, marks


def drawSizes(benchmark, cases):
    """The cases' names are a size and what is measured: "64 KiB read"."""
    panels, names = {}, {}
    for case, measured in cases.items():
        count, unit, *kind = case.split(" ", 2)
        names[sizeOf(case)] = f"{count} {unit}"
        for side, values in measured.items():
            panels.setdefault(("size", " ".join(kind)), {}).setdefault(side, []).append((sizeOf(case), values))
    return drawPanels(benchmark, cases, panels, lambda _, size: names[size])


def drawCurves(benchmark, cases):
    names = {sizeOf(case): case.split(",")[0] for case in cases if case[0].isdigit()}
    return drawPanels(benchmark, cases, benchmark.curvesOf(cases),
                      lambda varied, size: names[size] if varied == "size" else f"{size:g}")


def draw(benchmark, samples, path):
    cases = samples.values[benchmark.number]
    figure, marks = {"bars": drawBars, "lines": drawSizes, "curves": drawCurves}[benchmark.chartKind](benchmark, cases)
    figure.suptitle(f"{benchmark.title} ({'more' if benchmark.rate else 'less'} is better)", weight="bold")
    figure.tight_layout()
    figure.legend(handles=marks, loc="upper center", bbox_to_anchor=(0.5, 0), ncols=6, frameon=False)
    figure.savefig(path, bbox_inches="tight", metadata={"Date": None, "Creator": None})
    pyplot.close(figure)
