"""What has become of a host, read from what it has printed."""

import re

import Limits

STATUSES = {2: "unexpected version Blob", 3: "other version"}  # besides 0 and 1
usualErrors = set()  # what is reported in each life: the search for the heap's lock, the patch that isn't there
LIVED = 42  # the exit code of a host that came to its end


class Outcome:
    """kind is "as specified", "connection failed" or "limit"; everything else is a fault."""

    def __init__(self, kind, detail="", lost=(), places=(), fired=True):
        self.kind = kind
        self.detail = detail
        self.lost = lost
        self.places = places
        self.fired = fired
        self.errors = set()  # that the log reports

    @property
    def isFault(self):
        return self.kind not in ("as specified", "connection failed", "limit")

    def __str__(self):
        lost = f", without {', '.join(self.lost)}" if self.lost else ""
        if self.kind == "as specified":
            return self.kind + lost + (f", {self.detail}" if self.detail else "")
        return self.kind + (f": {self.detail}" if self.detail else "") + lost


class Report:
    """The lines of a host, by their first words."""

    def __init__(self, lines):
        self.values = {}
        for line in lines:
            key, _, rest = line.partition(" ")
            self.values.setdefault(key, []).append(rest)

    def __contains__(self, key):
        return key in self.values

    def all(self, key):
        return self.values.get(key, [])

    def first(self, key):
        return self.values[key][0]

    def phases(self, result):
        return tuple(words.rsplit(" ", 1)[0] for words in self.all("phase") if words.endswith(f" {result}"))


def findErrors(log):
    lines = re.findall(r"\| (?:ERR|PNC) \|[^|]*\| (.*)", log)
    return {re.sub(r"0x[0-9A-F]+|\d+", "#", line) for line in lines}


def judge(item, code, report, errors):
    """\return the outcome as it was seen, without regard to the known limitations."""
    if "crash" in report:
        return Outcome("crash", re.sub(r" at 0x\w+", "", report.first("crash")))
    if "hang" in report or code is None:
        return Outcome("hang", report.first("hang") if "hang" in report else "the process")
    if "end" not in report and code == 0 and item[0] == "restart" and report.phases("ok")[-1:] == ("connection",):
        return Outcome("as specified")  # a restarted process ends with 0, and says nothing more
    if "end" not in report or code != LIVED:
        return Outcome("ended", f"with {code}")
    if "state" in report:
        return Outcome("changed", "; ".join(sorted(set(report.all("state")))))
    if "blocked" in report:
        return Outcome("blocked", report.first("blocked"))
    status = int(report.first("status"))
    if status != 0:
        return Outcome("connection failed", STATUSES.get(status, ""))
    lost = report.phases("lost")
    reported = errors - usualErrors
    return Outcome("as specified", "" if reported or not lost else "nothing in the log", lost)


def read(item, code, lines, log, placesOf):
    report = Report(lines)
    outcome = judge(item, code, report, findErrors(log))
    outcome.errors = findErrors(log)
    outcome.fired = "fired" in report or item[0] == "company"
    if outcome.isFault:
        limit = Limits.find(item[1] if len(item) > 1 else "", str(outcome))
        if limit is not None:
            return Outcome("limit", f"*{limit}* ({outcome})", (), (), outcome.fired)
        for key in ("failed", "crashed"):
            outcome.places += tuple(f"{key} {place}" for place in placesOf(report.all(key)))
    return outcome
