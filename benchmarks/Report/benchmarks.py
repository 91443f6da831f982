"""What is measured: one entry a benchmark. Everything else here uses this table."""

import re
from dataclasses import dataclass, field


@dataclass
class Benchmark:
    number: int
    name: str  # of the chart's file
    title: str
    unit: str  # of the values as shown
    scale: float  # shown value = measured value * scale; measured in seconds per item, or bytes per second
    rate: bool  # True: more is better
    ratio: str  # "speed": how many times as fast as the baseline; "cost": how many times as slow
    goal: float = None  # of the ratio; a minimum for "speed", a maximum for "cost"
    goalBaselines: list = field(default_factory=list)  # which baselines the goal applies to
    goalFrom: float = 0  # the smallest size that the goal applies to
    goalCases: str = ""  # the end of the names of the cases that the goal applies to
    program: str = "FunctionBenchmarks"
    rounds: int = 11
    quickRounds: int = 2
    chartKind: str = "bars"  # or "lines", where the cases are sizes; "curves", where several sizes are varied
    oneProcessor: bool = False  # where threads wait for each other all the time
    allocations: bool = False  # whether the program also counts the allocations of one run, for each side
    ways: tuple = ((),)  # the program runs once with each of these arguments
    recorded: bool = False  # each side is a run of its own in each round, ours with a recording of its traffic
    # By case: (unit, scale) where it isn't the benchmark's; such a case needs no baseline.
    units: dict = field(default_factory=dict)

    @property
    def chart(self):
        return f"{self.name}.svg"

    def ratioOf(self, ours, baseline):
        """Both as measured: seconds, or bytes per second."""
        return ours / baseline if self.rate == (self.ratio == "speed") else baseline / ours

    def unitOf(self, case):
        """The unit in which a case is shown, and what brings measured values into it."""
        return self.units.get(case, (self.unit, self.scale))

    def meetsGoal(self, ratio):
        return ratio >= self.goal if self.ratio == "speed" else ratio <= self.goal

    def hasGoal(self, case, baseline):
        return (baseline in self.goalBaselines and case.endswith(self.goalCases) and
                (self.goalFrom == 0 or sizeOf(case) >= self.goalFrom))

    def curvesOf(self, cases):
        """Where several sizes are varied: the points of each curve, by what is varied and what is measured, and by side.

        A point is a size and the measured values, one a round.
        """
        curves = {}
        for case, sides in cases.items() if self.chartKind == "curves" else ():
            point = re.fullmatch(r"\d+ (\w+), (.+)", case)
            if point:
                varied = "size" if point[1] in UNITS else point[1].rstrip("s") + "s"
                for side, values in sides.items():
                    curves.setdefault((varied, point[2]), {}).setdefault(side, []).append((sizeOf(case), values))
        for sides in curves.values():
            for points in sides.values():
                points.sort()
        return curves


UNITS = {"KiB": 1024, "MiB": 1024 ** 2, "KB": 1e3, "MB": 1e6}


def sizeOf(case):
    """The size at the start of a case's name, in bytes or as a count."""
    count, unit = (case.replace(",", "").split() + [""])[:2]
    return float(count) * UNITS.get(unit, 1)


NANOSECONDS = 1e9
MICROSECONDS = 1e6
KIBIBYTES = ("KiB", 1 / 1024)

BENCHMARKS = [
    Benchmark(1, "echo-round-trip", "From an EchoRequest to its EchoReply", "µs", MICROSECONDS,
              rate=False, ratio="cost", goal=1.1, goalBaselines=["relay"], program="ProcessBenchmarks",
              oneProcessor=True),
    Benchmark(2, "memory-transfer", "Reading and writing the host's memory", "MB/s", 1e-6,
              rate=True, ratio="speed", goal=0.9, goalBaselines=["bare pipe"], goalFrom=64 * 1024,
              program="ProcessBenchmarks", oneProcessor=True, chartKind="lines"),
    Benchmark(3, "message-queue", "A message into the queue, and out of it", "µs", MICROSECONDS,
              rate=False, ratio="cost", program="ProcessBenchmarks", rounds=7, quickRounds=1),
    Benchmark(4, "log-record", "A log record to the file", "µs", MICROSECONDS,
              rate=False, ratio="cost", goal=1.3, goalBaselines=["bare WriteFile"]),
    Benchmark(5, "allocation", "Allocating and freeing a block", "ns", NANOSECONDS,
              rate=False, ratio="speed", goal=3, goalBaselines=["HeapAlloc"]),
    Benchmark(6, "json-reading", "Reading a JSON document", "MB/s", 1e-6,
              rate=True, ratio="speed", goal=1, goalBaselines=["RapidJSON", "nlohmann"], allocations=True),
    Benchmark(7, "module-path-set", "A set of module paths: for each path", "ns", NANOSECONDS,
              rate=False, ratio="speed", goal=1, goalBaselines=["unordered_set"]),
    Benchmark(8, "module-enabling", "Enabling a module, one of many", "µs", MICROSECONDS,
              rate=False, ratio="cost", goal=2, goalBaselines=["mapping"], program="ProcessBenchmarks",
              oneProcessor=True),
    Benchmark(9, "patch-loading", "Loading a patch", "µs", MICROSECONDS,
              rate=False, ratio="cost", goal=1.2, goalBaselines=["bare load"], program="ProcessBenchmarks",
              oneProcessor=True, rounds=101, quickRounds=5),
    Benchmark(10, "startup-and-idle", "An Agent at its start, at its end and at rest", "ms", 1e3,
              rate=False, ratio="cost", goal=1, goalBaselines=["limit"], program="ProcessBenchmarks",
              units={"the shutdown call": ("ms", 1e3),
                     "idling": ("% of a core", 100), "the library's file": KIBIBYTES, "the library's image": KIBIBYTES,
                     "committed memory": KIBIBYTES, "reserved memory": KIBIBYTES, "resident memory": KIBIBYTES}),
    Benchmark(11, "exception-handling", "An exception, from the fault to the resumed thread", "µs", MICROSECONDS,
              rate=False, ratio="cost", program="ProcessBenchmarks", oneProcessor=True, rounds=1001, quickRounds=20),
    Benchmark(12, "recording", "Reading 16 bytes of the host, with the traffic recorded", "µs", MICROSECONDS,
              rate=False, ratio="cost", goal=1.1, goalBaselines=["no recording"], program="ProcessBenchmarks",
              recorded=True),
    Benchmark(13, "reload", "What a reload costs its host", "ms", 1e3,
              rate=False, ratio="cost", goal=1.1, goalBaselines=["same calls"], goalCases="pause",
              program="ProcessBenchmarks", oneProcessor=True, quickRounds=1, chartKind="curves",
              ways=((), ("--synchronized",))),
]
