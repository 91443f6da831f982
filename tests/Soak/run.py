"""Runs a process of the soak and watches it."""

import json
import subprocess
import time

# Longer than every wait of a host and its Bridge that has a limit of its own.
HANG = 100       # seconds without a sample
ROWS = 10   # of `BoardMemory::phases`
WIDTH = 48
FAULT = 464


class Board:
    """What a host and its Bridge have noted, from the file that they map (Board.h)."""

    def __init__(self, path):
        data = path.read_bytes() if path.exists() else b""
        data = data.ljust(ROWS * WIDTH + FAULT, b"\0")
        texts = [data[i * WIDTH:(i + 1) * WIDTH] for i in range(ROWS)]
        self.phases = [text.split(b"\0")[0].decode("ascii", "replace") for text in texts]
        self.fault = data[ROWS * WIDTH:ROWS * WIDTH + FAULT].split(b"\0")[0].decode("utf-8", "replace")

    def describe(self):
        names = [f"thread {i}" for i in range(ROWS - 2)] + ["main thread", "Bridge"]
        return "; ".join(f"{name}: {phase}" for name, phase in zip(names, self.phases) if phase)


def asWindows(path):
    return "Z:" + str(path).replace("/", "\\")


class Host:
    """A host's process. `lines` are what it has printed."""

    count = 0

    def __init__(self, settings, campaign, kind, seconds, lifeTime=0, patient=True):
        Host.count += 1
        self.board = settings.work / f"board{Host.count}"
        self.output = settings.work / f"output{Host.count}"
        self.lines = []
        self.rest = ""
        self.lastLine = time.monotonic()
        folder = settings.work / ("patient" if patient else "impatient")
        with open(self.output, "w") as output:
            self.process = subprocess.Popen(
                ["wine", asWindows(settings.programs / "SoakHost.exe"), campaign, kind, f"{seconds:.1f}",
                 str(settings.random.getrandbits(31)), str(lifeTime), asWindows(self.board), asWindows(folder)],
                stdin=subprocess.DEVNULL, stdout=output, stderr=subprocess.STDOUT, start_new_session=True,
                env=settings.environment)
        self.reader = open(self.output, errors="replace")
        self.fault = None

    def poll(self):
        """Takes what was printed. Returns whether the process has ended."""
        ended = self.process.poll() is not None
        text = self.rest + self.reader.read()
        *lines, self.rest = text.split("\n")
        for line in lines:
            self.lastLine = time.monotonic()
            try:
                self.lines.append(json.loads(line))
            except ValueError:
                self.fault = self.fault or f"has printed: {line}"
        board = Board(self.board)
        quiet = time.monotonic() - self.lastLine
        if not ended and quiet > HANG:
            self.fault = f"{board.fault and board.fault + '; '}hangs: {board.describe()}"
            self.process.kill()  # alone: its children can be Wine's own, which others need; its Bridge ends with it
            self.process.wait()
            ended = True
        elif ended and not (self.lines and self.lines[-1].get("end")):
            self.fault = self.fault or board.fault or f"has ended at a wrong moment: {board.describe()}"
        elif ended:
            self.fault = self.fault or board.fault or None
        if ended:
            self.reader.close()
        return ended

    def wait(self):
        while not self.poll():
            time.sleep(0.2)
        return self

    def samples(self):
        return [line for line in self.lines if "time" in line]
