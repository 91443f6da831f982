#!/usr/bin/env python3
"""Compares the lengths of the instruction decoder with an assembler's listing.

CompareListing.py LLVM_MC INSTRUCTIONS -- DECODER_SWEEP...

The assembly source INSTRUCTIONS is assembled, and each of its instructions decoded, whatever follows it. Fails
on any difference, and unless there are instructions of every length from 1 to 15.
"""

import collections
import re
import subprocess
import sys

from Decoding import LIMIT, LONGEST, decode

EXTENSIONS = "+avx,+avx2,+avx512f,+avx512bw,+fma,+aes,+bmi,+tbm,+lwp,+popcnt,+lzcnt,+rtm,+sse4.2"
LINE = re.compile(r"^\t(.*?)\s*[#;] encoding: \[(.*)\]$")
PREFIXES = ("xacquire", "xrelease", "rep", "repne", "lock", "data16")
FILLINGS = (0x00, 0x66, 0x90, 0xCC, 0xF0, 0xFF)


def assemble(assembler, source):
    """Text and bytes of each instruction."""
    listing = subprocess.run([assembler, "--triple=i386", "--output-asm-variant=1", "-mattr=" + EXTENSIONS,
                              "--show-encoding", source], stdout=subprocess.PIPE, check=True, timeout=LIMIT).stdout
    text, code = "", b""
    for line in listing.decode().splitlines():
        match = LINE.match(line)
        if match:
            text += match.group(1).expandtabs(1) + " "
            code += bytes(int(byte, 16) for byte in match.group(2).split(","))
            if match.group(1) not in PREFIXES: # those have lines of their own
                yield text, code
                text, code = "", b""


def main():
    assembler, source, separator = sys.argv[1:4]
    if separator != "--":
        sys.exit(__doc__)
    instructions = list(assemble(assembler, source))
    different = 0
    for filling in FILLINGS:
        records = [code.ljust(LONGEST, bytes([filling])) for _, code in instructions]
        for (text, code), length in zip(instructions, decode(sys.argv[4:], records)):
            if length != len(code):
                different += 1
                print("%s  %swith %02x after it: %d and not %d" % (code.hex(" "), text, filling, length, len(code)))
    by_length = collections.Counter(len(code) for _, code in instructions)
    print("%d instructions compared, %d times different; by length: %s"
          % (len(instructions), different, ", ".join("%d: %d" % item for item in sorted(by_length.items()))))
    if sorted(by_length) != list(range(1, LONGEST + 1)):
        sys.exit("not every length is there")
    if different:
        sys.exit(1)


if __name__ == "__main__":
    main()
