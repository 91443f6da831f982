"""The document docs/fault-table.md: written from the outcomes of a campaign, read to compare a run with it."""

import re

INTRODUCTION = """# Fault table

Renewed by `./dev faults`; don't edit it. Each run is a process of its own: a 32-bit host with the library, and the Bridge
that its Agent spawns. The host lives a whole life: startup, connection, calls, enabling, automatic handling, a reload,
exceptions, disabling, a restart and shutdown. Its state is compared before and after.

An outcome is one of these:

- *as specified*: every call of the host came back, shutdown too, and nothing of the host's has changed. "Without" names
  the phases whose work wasn't done. An Error or Panic line of the log reports that, unless "nothing in the log" is added.
- *connection failed*: that is the status which the host gets, and its calls came back.
- *limit*: one of the [known limitations](architecture.md#known-limitations), by its name. After the name comes what was
  seen: a *blocked* phase ended when the Bridge did, a *hang* didn't.

Anything else is a fault, and `./dev faults` fails.
"""
CALLS = """
## Calls that fail

Of each function, its 1st, 2nd, … call fails; from the 30th on every tenth. Calls are counted over all threads, in the order
in which they are made, so that the number of a call can differ by some between two runs. "(restart)" means the life of a
host that its restart ends, counted from the restart on.

| Function | Calls | Outcome |
|---|---|---|
"""
COMPANY = """
## Bad company

Another process has the name before the Agent starts, or the Bridge misbehaves.

| Who | Outcome |
|---|---|
"""


def nameOf(item):
    return f"{item[1]} (restart)" if item[0] == "restart" else item[1]


def words(calls, allCalls):
    """Ranges of the calls that have failed: 3–7 for those of them from the 3rd to the 7th."""
    ranges = []
    for call in allCalls:
        if call not in calls:
            ranges.append([])
        elif ranges and ranges[-1]:
            ranges[-1].append(call)
        else:
            ranges.append([call])
    return ", ".join(f"{part[0]}–{part[-1]}" if part[1:] else str(part[0]) for part in ranges if part)


def write(path, results, functions):
    """\\param results pairs of an item, (life, function, call) or ("company", name), and its outcome."""
    rows = {}
    for item, outcome in results:
        if item[0] != "company" and outcome.fired:
            rows.setdefault(nameOf(item), []).append((item[2], str(outcome)))
    lines = []
    for name in sorted(rows):
        calls = [call for call, _ in sorted(rows[name])]
        for outcome in dict.fromkeys(outcome for _, outcome in sorted(rows[name])):
            those = {call for call, found in rows[name] if found == outcome}
            lines.append(f"| {name} | {words(those, calls)} | {outcome} |")
    company = [f"| {item[1]} | {outcome} |" for item, outcome in results if item[0] == "company"]
    reasons = {}
    for name, reason in functions:
        if reason:
            reasons.setdefault(reason, []).append(name)
        elif name not in rows and f"{name} (restart)" not in rows:
            reasons.setdefault("isn't called in these lives", []).append(name)
    left = [f"- {reason}: {', '.join(sorted(names))}" for reason, names in sorted(reasons.items())]
    path.write_text(INTRODUCTION + CALLS + "\n".join(lines) + "\n" + COMPANY + "\n".join(company) +
                    "\n\n## Functions that don't fail here\n\n" + "\n".join(left) + "\n")


def read(path):
    """\return the outcomes of each function and company."""
    table = {}
    for name, outcome in re.findall(r"^\| ([^|]+) \|(?: [0-9–, ]+ \|)? ([^|]+) \|$", path.read_text(), re.MULTILINE):
        table.setdefault(name, set()).add(outcome)
    return {name: outcomes for name, outcomes in table.items() if name not in ("Who", "Function")}
