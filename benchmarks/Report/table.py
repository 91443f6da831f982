"""Medians, ratios and their spread, and how costs grow, as text and as Markdown."""

import math
import re
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
    cases = f" for the {benchmark.goalCases}" if benchmark.goalCases else ""
    return f"goal: {sign} {benchmark.goal:g} against {' and '.join(benchmark.goalBaselines)}{cases}{start}"


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


def exponentOf(points):
    """The slope of the line through the logarithms: 1 if the cost is proportional to the size, 0 if it stays the same."""
    xs = [math.log(size) for size, _ in points]
    ys = [math.log(statistics.median(values)) for _, values in points]
    middleX, middleY = statistics.mean(xs), statistics.mean(ys)
    return sum((x - middleX) * (y - middleY) for x, y in zip(xs, ys)) / sum((x - middleX) ** 2 for x in xs)


def growthOf(benchmark, samples):
    """A table of exponents, headings first: one row a curve, one column a side. Empty where nothing is varied."""
    curves = benchmark.curvesOf(samples.values.get(benchmark.number, {}))
    sides = list(dict.fromkeys(side for curve in curves.values() for side in curve))
    rows = [[f"{measured}, by {varied}"] +
            [f"{exponentOf(curve[side]):.2f}" if len(curve.get(side, [])) > 1 else "" for side in sides]
            for (varied, measured), curve in curves.items()]
    return [["fitted exponent", *sides]] + rows if rows else []


# Calls that stay within their process, unless a lock is contended.
LOCAL_CALLS = ["AcquireSRWLockExclusive", "EnterCriticalSection", "GetCurrentProcess", "GetCurrentProcessId",
               "GetLastError", "GetTickCount64", "HeapAlloc", "HeapFree", "LeaveCriticalSection", "QueryPerformanceFrequency",
               "ReleaseSRWLockExclusive", "TlsGetValue", "WakeAllConditionVariable"]


def callsOf(benchmark, samples):
    """A table of the calls of the OS in one run, headings first: one row a function, one column a side."""
    calls = samples.calls.get(benchmark.number, {})
    sides = list(dict.fromkeys(side for counts in calls.values() for side in counts))
    rows = [[place, call] + [str(counts.get(side, 0)) for side in sides]
            for (place, call), counts in sorted(calls.items()) if call not in LOCAL_CALLS and any(counts.values())]
    return [["program", "calls of the OS", *sides]] + rows if rows else []


def furtherOf(benchmark, samples):
    return [growthOf(benchmark, samples), callsOf(benchmark, samples)]


def alignedLines(lines):
    widths = [max(len(line[i]) for line in lines) for i in range(len(lines[0]))]
    return ["   " + "  ".join(cell.ljust(width) for cell, width in zip(line, widths)).rstrip() for line in lines]


def asText(benchmark, rows, further):
    """further: tables that follow, each of which may be empty."""
    title = f"{benchmark.number}. {benchmark.title} ({roundWords(benchmark, rows)})"
    body = alignedLines([headings(benchmark)] + [cells(row) for row in rows])
    return "\n".join([title] + body + [line for lines in further if lines for line in ["", *alignedLines(lines)]])


def markdownLines(lines, rule):
    return ["| " + " | ".join(line) + " |" for line in [lines[0], rule, *lines[1:]]]


def asMarkdown(benchmark, rows, further, run):
    allocations = ["--:"] if benchmark.allocations else []
    head = [f"![{benchmark.title}](benchmarks/{benchmark.chart})", "",
            f"{roundWords(benchmark, rows)}. Measured on {run['date']} ({run['processor']}), sources of {run['commit']}.", ""]
    body = markdownLines([headings(benchmark)] + [cells(row) for row in rows],
                         ["---", "--:", "---", "--:", "--:", "--:", *allocations, "---"])
    tail = [line for lines in further if lines
            for line in ["", *markdownLines(lines, [ruleOf(lines[1], i) for i in range(len(lines[0]))])]]
    return "\n".join(head + body + tail)


def ruleOf(line, column):
    """Numbers are aligned to the right."""
    return "--:" if re.fullmatch(r"[-\d.,]+", line[column]) else "---"
