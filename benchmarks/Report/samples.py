"""Runs the programs and collects what they measured, round by round."""

import json
import subprocess


class Samples:
    """Values by figure, case and side, in the order in which the cases came; one value a round.

    For some figures also how often one run allocates, by the three together.
    """

    def __init__(self):
        self.values = {}
        self.allocations = {}

    def add(self, figure, case, side, value):
        self.values.setdefault(figure, {}).setdefault(case, {}).setdefault(side, []).append(value)

    def addAllocations(self, figure, case, side, count):
        self.allocations[figure, case, side] = count

    def toJson(self):
        entries = []
        for figure, cases in self.values.items():
            for case, sides in cases.items():
                for side, values in sides.items():
                    entry = {"figure": figure, "case": case, "side": side, "values": values}
                    if (figure, case, side) in self.allocations:
                        entry["allocations"] = self.allocations[figure, case, side]
                    entries.append(entry)
        return entries

    @staticmethod
    def fromJson(entries):
        samples = Samples()
        for entry in entries:
            for value in entry["values"]:
                samples.add(entry["figure"], entry["case"], entry["side"], value)
            if "allocations" in entry:
                samples.addAllocations(entry["figure"], entry["case"], entry["side"], entry["allocations"])
        return samples


def run(command):
    done = subprocess.run(command, stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True,
                          timeout=600)
    if done.returncode != 0:
        raise SystemExit(f"benchmarks: {' '.join(command)} ended with {done.returncode}:\n{done.stdout}{done.stderr}")
    return done.stdout


def runFunctions(emulator, program, figure, quick, samples):
    """One run of Google Benchmark is one round: ours and the rivals take turns, case by case."""
    rounds = figure.quickRounds if quick else figure.rounds
    arguments = [f"--figure={figure.number}", "--benchmark_format=json"] + (["--quick"] if quick else [])
    for _ in range(rounds):
        output = run(emulator + [program] + arguments)
        for entry in json.loads(output[output.index("{"):])["benchmarks"]:
            number, case, side = entry["name"].split("/iterations:")[0].split("|")
            if "error_message" in entry:
                raise SystemExit(f"benchmarks: {entry['name']}: {entry['error_message']}")
            value = entry["bytes_per_second"] if figure.rate else 1 / entry["items_per_second"]
            samples.add(int(number), case, side, value)
            if figure.allocations:
                samples.addAllocations(int(number), case, side, int(entry["allocations"]))


def runProcesses(emulator, program, figure, quick, samples):
    """A program of ours does all rounds itself and prints a line of JSON for each value."""
    rounds = figure.quickRounds if quick else figure.rounds
    output = run(emulator + [program, f"--figure={figure.number}", f"--rounds={rounds}"] +
                 (["--quick"] if quick else []))
    for line in output.splitlines():
        entry = json.loads(line)
        samples.add(figure.number, entry["case"], entry["side"], entry["value"])
