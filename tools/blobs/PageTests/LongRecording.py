"""Writes a recording of any length: a real reload and real exceptions, then a Bridge that reads memory all day.

Usage: LongRecording.py <folder of recordings> <exchanges> <file>
"""

import json
import pathlib
import random
import struct
import sys

HOST = 260


def line(number, seconds, direction, kind, name, payload, fields):
    """As the recorder formats it."""
    header = struct.pack("<II", len(payload), kind)
    return (f'{{"blob":{number},"time":{seconds:.6f},"host":{HOST},"direction":"{direction}","type":{kind},"name":"{name}",'
            f'"size":{len(payload)},"fields":{fields},"bytes":"{(header + payload).hex()}"}}\n')


def read_memory(token, dice):
    address = 0x401000 + dice.randrange(1 << 20) * 16
    data = struct.pack("<IIQ", dice.randrange(1 << 16), dice.randrange(200), 0)
    question = struct.pack("<QQQIIQQ", 0, 16, 1, 16, 0, token, address)
    answer = struct.pack("<QIIQ", 16, 16, 0, token) + data
    return ((25, "ReadMemory", question, f'{{"unread00":"0000000000000000","elementSize":16,"elementCount":1,'
                                         f'"addresses":["0x{address:08X}"],"token":"0x{token:08X}"}}'),
            (26, "ReadMemoryResult", answer, f'{{"totalSize":16,"data":"{data.hex()}","token":"0x{token:08X}"}}'))


def echo(token):
    return ((74, "EchoRequest", struct.pack("<QQ", 0, token), f'{{"unread00":"0000000000000000","token":"0x{token:08X}"}}'),
            (75, "EchoReply", struct.pack("<Q", token), f'{{"token":"0x{token:08X}"}}'))


def log(level, text):
    payload = struct.pack("<II", level, 4) + text.encode() + b"\0"
    return 10, "LogNarrow", payload, f'{{"level":{level},"text":"{text}"}}'


def write(examples, exchanges, path):
    """Returns how many Blobs there are."""
    dice = random.Random(1)
    number = 0
    clock = 0.0

    def add(file, direction, blob):
        nonlocal number
        number += 1
        file.write(line(number, clock, direction, *blob))

    with open(path, "w", encoding="utf-8", newline="\n") as file:
        for name in ("reload.jsonl", "crash.jsonl"):
            first, *lines = pathlib.Path(examples, name).read_text(encoding="utf-8").splitlines()
            if number == 0:
                file.write(first + "\n")
            begin = clock
            for text in lines:
                number += 1
                blob = json.loads(text)
                clock = begin + blob["time"]
                blob.update(blob=number, time=round(clock, 6), host=HOST)
                file.write(json.dumps(blob, separators=(",", ":")) + "\n")
        for token in range(exchanges):
            clock += dice.randrange(40, 240) / 1e6 + (0.5 if token % 5000 == 0 else 0)
            question, answer = echo(token) if token % 10 == 0 else read_memory(token, dice)
            add(file, "toAgent", question)
            clock += dice.randrange(30, 130) / 1e6 + (0.004 if dice.randrange(1000) == 0 else 0)
            add(file, "fromAgent", answer)
            if token % 500 == 499:
                isError = token % 5000 == 4999
                add(file, "fromAgent", log(4 if isError else 3, f"Frame {token // 500} took {dice.randrange(17, 90)} ms"))
    return number


if __name__ == "__main__":
    print(write(sys.argv[1], int(sys.argv[2]), sys.argv[3]))
