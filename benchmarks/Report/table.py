"""Medians, ratios and their spread, as text and as Markdown."""

import statistics

OURS = "ours"


def quartiles(values):
    if len(values) < 2:
        return values[0], values[0]
    lower, _, upper = statistics.quantiles(values, n=4, method="inclusive")
    return lower, upper


class Row:
    """A case of a figure against one rival, if it has one. The ratio is taken within each round, before the median."""

    def __init__(self, figure, case, ours, name="", rival=None):
        self.figure = figure
        self.case = case
        self.rivalName = name
        self.unit, scale = figure.unitOf(case)
        self.ours = statistics.median(ours) * scale
        self.rival = None
        self.rounds = len(ours)
        self.allocations = ""
        if rival is None:
            return
        self.rival = statistics.median(rival) * scale
        ratios = [figure.ratioOf(a, b) for a, b in zip(ours, rival)]
        self.ratio = statistics.median(ratios)
        self.spread = quartiles(ratios)
        self.goal = figure.meetsGoal(self.ratio) if figure.hasGoal(case, name) else None


def rowsOf(figure, samples):
    rows = []
    for case, sides in samples.values.get(figure.number, {}).items():
        if len(sides) == 1:
            rows.append(Row(figure, case, sides[OURS]))
        for name, rival in sides.items():
            if name != OURS:
                row = Row(figure, case, sides[OURS], name, rival)
                if figure.allocations:
                    ours, theirs = (samples.allocations[figure.number, case, side] for side in (OURS, name))
                    row.allocations = f"{ours:,} to {theirs:,}"
                rows.append(row)
    return rows


def number(value):
    """Three significant digits, without an exponent."""
    if value >= 100:
        return f"{value:,.0f}"
    if value >= 10:
        return f"{value:.1f}"
    return f"{value:.2f}" if value >= 0.1 else f"{value:.3f}"


def goalWords(figure):
    if figure.goal is None:
        return ""
    sign = "at least" if figure.ratio == "speed" else "at most"
    start = f", from {figure.goalFrom // 1024} KiB" if figure.goalFrom else ""
    return f"goal: {sign} {figure.goal:g} against {' and '.join(figure.goalRivals)}{start}"


def ratioWords(figure):
    return "times as fast" if figure.ratio == "speed" else "times as long"


def cells(row):
    unit = f" {row.unit}" if row.figure.units else ""
    if row.rival is None:
        return [row.case, number(row.ours) + unit, "", "", "", "", ""]
    allocations = [row.allocations] if row.figure.allocations else []
    return [row.case, number(row.ours) + unit, row.rivalName, number(row.rival) + unit, number(row.ratio),
            f"{number(row.spread[0])} to {number(row.spread[1])}", *allocations,
            {None: "", True: "met", False: "missed"}[row.goal]]


def headings(figure):
    unit = "" if figure.units else f", {figure.unit}"
    allocations = ["allocations"] if figure.allocations else []
    return ["case", f"ours{unit}", "rival", f"rival{unit}", ratioWords(figure), "spread", *allocations, "goal"]


def roundWords(figure, rows):
    rounds = " or ".join(str(count) for count in sorted({row.rounds for row in rows}))
    return f"{rounds} rounds; {goalWords(figure) or 'no goal'}"


def asText(figure, rows):
    lines = [headings(figure)] + [cells(row) for row in rows]
    widths = [max(len(line[i]) for line in lines) for i in range(len(lines[0]))]
    title = f"{figure.number}. {figure.title} ({roundWords(figure, rows)})"
    body = ["  ".join(cell.ljust(width) for cell, width in zip(line, widths)).rstrip() for line in lines]
    return "\n".join([title] + ["   " + line for line in body])


def asMarkdown(figure, rows):
    allocations = ["--:"] if figure.allocations else []
    rule = ["---", "--:", "---", "--:", "--:", "--:", *allocations, "---"]
    lines = [headings(figure), rule] + [cells(row) for row in rows]
    head = [f"![{figure.title}](benchmarks/{figure.picture})", "", f"{roundWords(figure, rows)}.", ""]
    return "\n".join(head + ["| " + " | ".join(line) + " |" for line in lines])
