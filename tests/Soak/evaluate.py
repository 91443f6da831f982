"""Compares the samples of a soak: the first tenth of a run with the last."""

from statistics import median

MEBIBYTE = 1 << 20

# What may be more at the end than at the beginning: (absolute, share of the value at the beginning).
#   handles        nothing in a round leaves one open; 3 for what the OS closes late
#   threads        none
#   blocks         the Agent's; the sender may still have the last few, and an echo be on its way
#   private, address
#                  Pools take chunks of 1 MiB for each of 128 sizes and keep them, and a longer queue than ever before
#                  takes another one; only what grows with the rounds is a leak, and `blocks` counts that exactly
#   log            bytes per round: times and numbers get more digits
#   milliseconds   per round; the machine has other work. What gets slower with the number of rounds gets slower by more
TOLERANCES = {
    "handles": (3, 0),
    "threads": (0, 0),
    "blocks": (6, 0),
    "private": (4 * MEBIBYTE, 0.02),
    "address": (4 * MEBIBYTE, 0),
    "log": (64, 0.02),
    "milliseconds": (20, 2.0),
}

# What an ended Agent may leave in its process: (most, why)
#   handles        those that libraries of the OS keep which the Agent has used
#   address        the same libraries; the Agent's own heaps have 256 MiB
LEFT = {"handles left": 12, "threads left": 0, "private left": 16 * MEBIBYTE, "address left": 32 * MEBIBYTE}

LEAST = 12          # samples, below which tenths say nothing
WARM_UP = 6         # samples at least, until all kinds of messages and their sizes have come
SHORT = 60          # seconds: in a shorter run the machine's other work decides about the time of a round
WATCHDOG_WAIT = 0.5 # seconds that the Agent waits before it helps a load; a lock of the host's decides how often


def perRound(samples):
    """Log bytes and milliseconds of a round, in place of what they have come to."""
    series = []
    for before, after in zip(samples, samples[1:]):
        rounds = after["rounds"] - before["rounds"]
        entry = dict(after)
        entry["log"] = (after["log"] - before["log"]) / rounds
        waited = (after.get("watchdog", 0) - before.get("watchdog", 0)) * WATCHDOG_WAIT
        entry["milliseconds"] = (after["time"] - before["time"] - waited) * 1000 / rounds
        series.append(entry)
    return series


def tenths(series):
    """The first tenth after a warm-up of a twentieth, and the last."""
    warm = series[max(WARM_UP, len(series) // 20):]
    size = min(max(3, len(warm) // 10), len(warm) // 2)
    return warm[:size], warm[-size:]


def compare(samples, control=None):
    """Each measure with its medians, and whether it has grown: {name: (first, last, grown)}. Empty for too few samples.

    What the control grows by in as many rounds isn't the Agent's, if it is more than the tolerance.
    """
    series = perRound(samples)
    if len(series) < LEAST:
        return {}
    first, last = tenths(series)
    controlled = compare(control) if control else {}
    result = {}
    for name, (absolute, share) in TOLERANCES.items():
        begin = median(entry[name] for entry in first)
        end = median(entry[name] for entry in last)
        allowed = absolute + share * begin
        if name == "milliseconds" and samples[-1]["time"] - samples[0]["time"] < SHORT:
            allowed = float("inf")
        if controlled and controlled[name][2]:
            rounds = samples[-1]["rounds"] / max(1, control[-1]["rounds"])
            allowed += (controlled[name][1] - controlled[name][0]) * max(1.0, rounds)
        result[name] = (begin, end, end - begin > allowed)
    return result


def findFaults(title, samples, control=None):
    """In words; empty if there are none."""
    values = compare(samples, control)
    return [f"{title}: grown: {name} {formatCell(name, values)}" for name in values if values[name][2]]


def firstAndLast(lives, name):
    """Medians of the first and the last tenth."""
    size = max(1, len(lives) // 10)
    return median(life[name] for life in lives[:size]), median(life[name] for life in lives[-size:])


def compareLives(lives, controls=()):
    """Medians of the first and the last tenth of lives, each in a process of its own, and whether they are too much.

    By as much as the controls' times have grown meanwhile the machine has become slower.
    """
    result = {}
    for name, most in LEFT.items():
        begin, end = firstAndLast(lives, name)
        result[name] = (begin, end, max(begin, end) > most)
    begin, end = (1000 * seconds for seconds in firstAndLast(lives, "time"))
    slower = 1.0
    if controls:
        firstControl, lastControl = firstAndLast(controls, "time")
        slower = max(1.0, lastControl / firstControl)
    absolute, share = TOLERANCES["milliseconds"]
    result["milliseconds"] = (begin, end, len(lives) >= 30 and end > slower * (absolute + (1 + share) * begin))
    return result


def findFaultsOfLives(title, lives, controls=()):
    values = compareLives(lives, controls)
    return [f"{title}: too much: {name} {formatCell(name, values)}" for name in values if values[name][2]]


def formatCell(name, values):
    if name not in values:
        return "-"
    begin, end, grown = values[name]
    if name == "blocks" and begin < 0:
        return "-"
    if name.split()[0] in ("private", "address"):
        begin, end = begin / MEBIBYTE, end / MEBIBYTE
    digits = 1 if name.split()[0] in ("private", "milliseconds") else 0
    return f"{begin:.{digits}f} > {end:.{digits}f}{' !' if grown else ''}"


def formatTable(rows, heads):
    """Rows of texts under heads, in columns."""
    widths = [max(len(row[i]) for row in [heads, *rows]) for i in range(len(heads))]
    lines = ["  ".join(cell.ljust(width) for cell, width in zip(row, widths)).rstrip() for row in [heads, *rows]]
    lines.insert(1, "  ".join("-" * width for width in widths))
    return "\n".join(lines)
