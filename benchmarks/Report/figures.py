"""What is measured: one entry a figure. Everything else here goes by this table."""

from dataclasses import dataclass, field


@dataclass
class Figure:
    number: int
    title: str
    unit: str  # of the values as shown
    scale: float  # shown value = measured value * scale; measured in seconds per item, or bytes per second
    rate: bool  # True: more is better
    ratio: str  # "speed": how many times as fast as the rival; "cost": how many times as slow
    goal: float = None  # of the ratio; at least that for "speed", at most that for "cost"
    goalRivals: list = field(default_factory=list)  # which rivals the goal speaks of
    goalFrom: float = 0  # the smallest size that the goal speaks of
    program: str = "FunctionBenchmarks"
    rounds: int = 11
    quickRounds: int = 2
    chart: str = "bars"  # or "lines", where the cases are sizes
    oneProcessor: bool = False  # where threads wait for each other all the time, and where each runs would decide
    allocations: bool = False  # whether the program also counts the allocations of one run, for each side
    units: dict = field(default_factory=dict)  # by case: (unit, scale) where it isn't the figure's; needs no rival

    @property
    def picture(self):
        return f"figure-{self.number}.svg"

    def ratioOf(self, ours, rival):
        """Both as measured: seconds, or bytes per second."""
        return ours / rival if self.rate == (self.ratio == "speed") else rival / ours

    def unitOf(self, case):
        """The unit in which a case is shown, and what brings measured values into it."""
        return self.units.get(case, (self.unit, self.scale))

    def meetsGoal(self, ratio):
        return ratio >= self.goal if self.ratio == "speed" else ratio <= self.goal

    def hasGoal(self, case, rival):
        return rival in self.goalRivals and (self.goalFrom == 0 or sizeOf(case) >= self.goalFrom)


def sizeOf(case):
    """The size that a case's name begins with, in bytes or in pieces."""
    count, unit = (case.replace(",", "").split() + [""])[:2]
    return float(count) * {"KiB": 1024, "MiB": 1024 ** 2, "KB": 1e3, "MB": 1e6}.get(unit, 1)


NANOSECONDS = 1e9
MICROSECONDS = 1e6
KIBIBYTES = ("KiB", 1 / 1024)

FIGURES = [
    Figure(1, "From an EchoRequest to its EchoReply", "µs", MICROSECONDS, rate=False, ratio="cost", goal=1.1,
           goalRivals=["relay"], program="ProcessBenchmarks", oneProcessor=True),
    Figure(2, "Reading and writing the host's memory", "MB/s", 1e-6, rate=True, ratio="speed", goal=0.9,
           goalRivals=["bare pipe"], goalFrom=64 * 1024, program="ProcessBenchmarks", oneProcessor=True,
           chart="lines"),
    Figure(3, "A message into the queue, and out of it", "µs", MICROSECONDS, rate=False, ratio="cost",
           program="ProcessBenchmarks", rounds=7, quickRounds=1),
    Figure(4, "A log record to the file", "µs", MICROSECONDS, rate=False, ratio="cost", goal=1.3,
           goalRivals=["bare WriteFile"]),
    Figure(5, "Allocating and freeing a block", "ns", NANOSECONDS, rate=False, ratio="speed", goal=3,
           goalRivals=["HeapAlloc"]),
    Figure(6, "Reading a JSON document", "MB/s", 1e-6, rate=True, ratio="speed", goal=1,
           goalRivals=["RapidJSON", "nlohmann"], allocations=True),
    Figure(7, "A set of module paths: for each path", "ns", NANOSECONDS, rate=False, ratio="speed", goal=1,
           goalRivals=["unordered_set"]),
    Figure(8, "Enabling a module, one of many", "µs", MICROSECONDS, rate=False, ratio="cost", goal=2,
           goalRivals=["mapping"], program="ProcessBenchmarks", oneProcessor=True),
    Figure(9, "Loading a patch", "µs", MICROSECONDS, rate=False, ratio="cost", goal=1.2,
           goalRivals=["bare load"], program="ProcessBenchmarks", oneProcessor=True, rounds=101, quickRounds=5),
    Figure(10, "An Agent at its start, at its end and at rest", "ms", 1e3, rate=False, ratio="cost", goal=1,
           goalRivals=["limit"], program="ProcessBenchmarks",
           units={"the shutdown call": ("ms", 1e3), "idling": ("% of a core", 100),
                  "the library's file": KIBIBYTES, "the library's image": KIBIBYTES,
                  "committed memory": KIBIBYTES, "reserved memory": KIBIBYTES, "resident memory": KIBIBYTES}),
    Figure(11, "An exception, from the fault to the resumed thread", "µs", MICROSECONDS, rate=False, ratio="cost",
           program="ProcessBenchmarks", oneProcessor=True, rounds=1001, quickRounds=20),
]
