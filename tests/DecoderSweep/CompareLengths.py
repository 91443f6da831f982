#!/usr/bin/env python3
"""Compares the lengths of the instruction decoder with those of objdump over the code of whole libraries.

CompareLengths.py OBJDUMP MINIMUM LIBRARY... -- DECODER_SWEEP...

The code sections of each library are disassembled by objdump, from their start and at every symbol. The decoder has
to give the same length at each address, except where objdump finds no instruction. Fails on any difference, and if
there are fewer than MINIMUM instructions in all.
"""

import collections
import re
import subprocess
import sys

from Decoding import LIMIT, LONGEST, decode

FWAIT = 0x9B
LINE = re.compile(rb"^ *([0-9a-f]+):\t([0-9a-f ]+?) *(?:\t(.*))?$")


def disassemble(objdump, library):
    """Address, bytes and text of each instruction, in their order."""
    output = subprocess.run([objdump, "-d", "-M", "intel", "--insn-width=%d" % LONGEST, library],
                            stdout=subprocess.PIPE, check=True, timeout=LIMIT).stdout
    for line in output.splitlines():
        match = LINE.match(line)
        if match:
            address, code, text = int(match.group(1), 16), bytes.fromhex(match.group(2).decode()), match.group(3) or b""
            if code[0] == FWAIT and len(code) > 1:
                # To the disassembler a part of the next instruction, to the processor one of its own.
                yield address, code[:1], b"fwait"
                address, code = address + 1, code[1:]
            yield address, code, text


def main():
    objdump, minimum = sys.argv[1], int(sys.argv[2])
    separator = sys.argv.index("--")
    libraries, sweep = sys.argv[3:separator], sys.argv[separator + 1:]
    different = 0
    by_length = collections.Counter()
    for library in libraries:
        instructions = list(disassemble(objdump, library))
        stream = b"".join(code for _, code, _ in instructions)
        records, position = [], 0
        for _, code, _ in instructions:
            records.append(stream[position:position + LONGEST].ljust(LONGEST, b"\xcc"))
            position += len(code)
        for (address, code, text), record, length in zip(instructions, records, decode(sweep, records)):
            if b"(bad)" in text:
                continue
            by_length[len(code)] += 1
            if length != len(code):
                different += 1
                if different <= 50:
                    print("%s %x: %s  %s: %d and not %d" % (library, address, record.hex(" "),
                                                           text.decode(errors="replace"), length, len(code)))
    total = sum(by_length.values())
    print("%d instructions compared, %d different; by length: %s"
          % (total, different, ", ".join("%d: %d" % item for item in sorted(by_length.items()))))
    if total < minimum:
        sys.exit("fewer than %d instructions" % minimum)
    if different:
        sys.exit(1)


if __name__ == "__main__":
    main()
