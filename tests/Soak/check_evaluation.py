#!/usr/bin/env python3
"""Shows that the evaluation of a soak finds what has grown, and nothing else."""

import random
import sys

import evaluate

BASE = {"handles": 60, "threads": 9, "blocks": 10, "private": 30 << 20, "address": 1900 << 20}


def record(count=200, milliseconds=lambda i: 30, log=lambda i: 3000, noise=True, **growth):
    """Samples after every tenth round; `growth` is what each round adds to a measure."""
    samples = []
    time = logBytes = 0
    for i in range(count):
        time += 10 * milliseconds(i) / 1000 * (random.uniform(0.7, 1.6) if noise else 1)
        logBytes += 10 * log(i)
        sample = {"rounds": 10 * (i + 1), "time": time, "log": logBytes}
        for name, value in BASE.items():
            sample[name] = value + int(growth.get(name, 0) * 10 * i) + (random.randint(0, 2) if name == "blocks" else 0)
        samples.append(sample)
    return samples


def main():
    random.seed(1)
    life = {"handles left": 1, "threads left": 0, "private left": 1 << 20, "address left": 3 << 20, "time": 1.5}
    grown = {"handles": 0.01, "threads": 0.01, "blocks": 0.01, "private": 4096, "address": 4096}
    cases = [("flat", record(), None, "")]
    cases += [(name, record(**{name: rate}), None, name) for name, rate in grown.items()]
    cases += [
        ("log", record(log=lambda i: 3000 + 2 * i), None, "log"),
        ("slower", record(milliseconds=lambda i: 30 + i), None, "milliseconds"),
        ("late growth", record()[:150] + record(handles=1)[150:], None, "handles"),
        ("too few", record(count=11, handles=1), None, ""),
        ("as the control", record(handles=0.01), record(handles=0.01), ""),
        ("more than the control", record(handles=0.1), record(handles=0.01), "handles"),
    ]
    wrong = []
    for title, samples, control, expected in cases:
        faults = evaluate.findFaults(title, samples, control)
        if [fault.split("grown: ")[1].split()[0] for fault in faults] != ([expected] if expected else []):
            wrong.append(f"{title}: {faults}")
    if evaluate.findFaultsOfLives("lives", [life] * 30):
        wrong.append("lives without a fault")
    for name, most in evaluate.LEFT.items():
        if not evaluate.findFaultsOfLives("lives", [dict(life, **{name: most + 1})] * 30):
            wrong.append(f"lives: {name}")
    if not evaluate.findFaultsOfLives("lives", [dict(life, time=1.5 + i) for i in range(60)]):
        wrong.append("lives: time")
    slower = [dict(life, time=1.5 + i) for i in range(60)]
    if evaluate.findFaultsOfLives("lives", slower, [dict(life, time=0.2 * (1.5 + 10 * i)) for i in range(6)]):
        wrong.append("lives on a machine that gets slower")
    if not evaluate.findFaultsOfLives("lives", slower, [life] * 6):
        wrong.append("lives that get slower than their controls")
    sys.exit("\n".join(wrong) or 0)


main()
