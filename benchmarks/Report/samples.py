"""Runs the programs and collects what they measured, round by round."""

import json
import os
import subprocess
import tempfile


class Samples:
    """Values by benchmark, case and side, in the order in which the cases came; one value a round.

    For some benchmarks also how often one run allocates, by the three together; or how often one run calls each function of
    the OS: the least counts of some runs, by benchmark, program and function, and side.
    """

    def __init__(self):
        self.values = {}
        self.allocations = {}
        self.calls = {}

    def add(self, benchmark, case, side, value):
        self.values.setdefault(benchmark, {}).setdefault(case, {}).setdefault(side, []).append(value)

    def addAllocations(self, benchmark, case, side, count):
        self.allocations[benchmark, case, side] = count

    def addCalls(self, benchmark, place, call, side, count):
        counts = self.calls.setdefault(benchmark, {}).setdefault((place, call), {})
        counts[side] = min(count, counts.get(side, count))

    def toJson(self):
        entries = []
        for benchmark, cases in self.values.items():
            for case, sides in cases.items():
                for side, values in sides.items():
                    entry = {"benchmark": benchmark, "case": case, "side": side, "values": values}
                    if (benchmark, case, side) in self.allocations:
                        entry["allocations"] = self.allocations[benchmark, case, side]
                    entries.append(entry)
        return entries

    def callsToJson(self):
        return [{"benchmark": benchmark, "place": place, "call": call, "counts": counts}
                for benchmark, calls in self.calls.items() for (place, call), counts in calls.items()]


def run(command, environment=None):
    done = subprocess.run(command, stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True,
                          timeout=600, env=environment)
    if done.returncode != 0:
        raise SystemExit(f"benchmarks: {' '.join(command)} ended with {done.returncode}:\n{done.stdout}{done.stderr}")
    return done.stdout


def runFunctions(emulator, program, benchmark, quick, samples):
    """One run of Google Benchmark is one round: ours and the baselines take turns, case by case."""
    rounds = benchmark.quickRounds if quick else benchmark.rounds
    arguments = [f"--benchmark={benchmark.number}", "--benchmark_format=json"] + (["--quick"] if quick else [])
    for _ in range(rounds):
        output = run(emulator + [program] + arguments)
        for entry in json.loads(output[output.index("{"):])["benchmarks"]:
            number, case, side = entry["name"].split("/iterations:")[0].split("|")
            if "error_message" in entry:
                raise SystemExit(f"benchmarks: {entry['name']}: {entry['error_message']}")
            value = entry["bytes_per_second"] if benchmark.rate else 1 / entry["items_per_second"]
            samples.add(int(number), case, side, value)
            if benchmark.allocations:
                samples.addAllocations(int(number), case, side, int(entry["allocations"]))


def runProcesses(emulator, program, benchmark, quick, samples):
    """A program of ours does all rounds itself and prints a line of JSON for each value."""
    rounds = benchmark.quickRounds if quick else benchmark.rounds
    command = emulator + [program, f"--benchmark={benchmark.number}"] + (["--quick"] if quick else [])
    if benchmark.recorded:
        for round in range(rounds):
            runBothWays(command, benchmark, round, samples)
    else:
        for way in benchmark.ways:
            collect(run(command + [f"--rounds={rounds}", *way]), benchmark, samples)


def collect(output, benchmark, samples):
    for line in output.splitlines():
        entry = json.loads(line)
        if "call" in entry:
            samples.addCalls(benchmark.number, entry["place"], entry["call"], entry["side"], entry["count"])
            continue
        samples.add(benchmark.number, entry["case"], entry["side"], entry["value"])


def runBothWays(command, benchmark, round, samples):
    """A run with a recording and one without; which is first changes with each round."""
    with tempfile.TemporaryDirectory() as folder:
        recording = "Z:" + folder.replace("/", "\\") + "\\recording.jsonl"
        ways = [{"TORVANE_BRIDGE_RECORDING": recording}, {}]
        for way in ways if round % 2 == 0 else ways[::-1]:
            collect(run(command, {**os.environ, **way}), benchmark, samples)
