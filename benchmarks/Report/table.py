"""Medians, ratios and their spread, as text and as Markdown."""

import statistics

OURS = "ours"


def quartiles(values):
    if len(values) < 2:
        return values[0], values[0]
    lower, _, upper = statistics.quantiles(values, n=4, method="inclusive")
    return lower, upper


class Row:
    """A case of a benchmark and one baseline, if it has one. The ratio is taken in each round, before the median."""

    def __init__(self, benchmark, case, ours, name="", baseline=None):
        self.benchmark = benchmark
        self.case = case
        self.baselineName = name
        self.unit, scale = benchmark.unitOf(case)
        self.ours = statistics.median(ours) * scale
        self.baseline = None
        self.rounds = len(ours)
        self.allocations = ""
        if baseline is None:
            return
        self.baseline = statistics.median(baseline) * scale
        ratios = [benchmark.ratioOf(a, b) for a, b in zip(ours, baseline)]
        self.ratio = statistics.median(ratios)
        self.spread = quartiles(ratios)
        self.goal = benchmark.meetsGoal(self.ratio) if benchmark.hasGoal(case, name) else None


def rowsOf(benchmark, samples):
    rows = []
    for case, sides in samples.values.get(benchmark.number, {}).items():
        if len(sides) == 1:
            rows.append(Row(benchmark, case, sides[OURS]))
        for name, baseline in sides.items():
            if name != OURS:
                row = Row(benchmark, case, sides[OURS], name, baseline)
                if benchmark.allocations:
                    ours, theirs = (samples.allocations[benchmark.number, case, side] for side in (OURS, name))
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


def goalWords(benchmark):
    if benchmark.goal is None:
        return ""
    sign = "at least" if benchmark.ratio == "speed" else "at most"
    start = f", from {benchmark.goalFrom // 1024} KiB" if benchmark.goalFrom else ""
    return f"goal: {sign} {benchmark.goal:g} against {' and '.join(benchmark.goalBaselines)}{start}"


def ratioWords(benchmark):
    return "times as fast" if benchmark.ratio == "speed" else "times as long"


def cells(row):
    unit = f" {row.unit}" if row.benchmark.units else ""
    if row.baseline is None:
        return [row.case, number(row.ours) + unit, "", "", "", "", ""]
    allocations = [row.allocations] if row.benchmark.allocations else []
    return [row.case, number(row.ours) + unit, row.baselineName, number(row.baseline) + unit, number(row.ratio),
            f"{number(row.spread[0])} to {number(row.spread[1])}", *allocations,
            {None: "", True: "met", False: "missed"}[row.goal]]


def headings(benchmark):
    unit = "" if benchmark.units else f", {benchmark.unit}"
    allocations = ["allocations"] if benchmark.allocations else []
    return ["case", f"ours{unit}", "baseline", f"baseline{unit}", ratioWords(benchmark), "spread", *allocations, "goal"]


def roundWords(benchmark, rows):
    rounds = " or ".join(str(count) for count in sorted({row.rounds for row in rows}))
    return f"{rounds} rounds; {goalWords(benchmark) or 'no goal'}"


def asText(benchmark, rows):
    lines = [headings(benchmark)] + [cells(row) for row in rows]
    widths = [max(len(line[i]) for line in lines) for i in range(len(lines[0]))]
    title = f"{benchmark.number}. {benchmark.title} ({roundWords(benchmark, rows)})"
    body = ["  ".join(cell.ljust(width) for cell, width in zip(line, widths)).rstrip() for line in lines]
    return "\n".join([title] + ["   " + line for line in body])


def asMarkdown(benchmark, rows):
    allocations = ["--:"] if benchmark.allocations else []
    rule = ["---", "--:", "---", "--:", "--:", "--:", *allocations, "---"]
    lines = [headings(benchmark), rule] + [cells(row) for row in rows]
    head = [f"![{benchmark.title}](benchmarks/{benchmark.chart})", "", f"{roundWords(benchmark, rows)}.", ""]
    return "\n".join(head + ["| " + " | ".join(line) + " |" for line in lines])
