#!/usr/bin/env python3
"""Compares the image reader with llvm-readobj over whole folders of image files.

CompareImages.py IMAGE_SWEEP LLVM_READOBJ MINIMUM FOLDER...

Every file of the folders that starts with "MZ" is read by both. Headers, section fields and the names of the
imported modules, in their order, have to be the same. Fails on any difference, and if there are fewer than
MINIMUM files of either bitness.
"""

import os
import re
import subprocess
import sys

LIMIT = 300  # seconds that a program may take
MACHINE_32 = "14c"
MACHINE_64 = "8664"


def find_images(folders):
    images = set()
    for folder in folders:
        for name in os.listdir(folder):
            path = os.path.realpath(os.path.join(folder, name))
            if os.path.isfile(path):
                with open(path, "rb") as file:
                    if file.read(2) == b"MZ":
                        images.add(path)
    return sorted(images)


def run(command):
    result = subprocess.run(command, stdout=subprocess.PIPE, stderr=subprocess.PIPE, timeout=LIMIT)
    if result.returncode != 0:
        sys.exit("%s failed with %d:\n%s" % (command[0], result.returncode,
                                              result.stderr.decode(errors="replace")[-4000:]))
    return result.stdout.decode("latin-1")


def read_with_sweep(program, paths):
    """The program's own lines, by file."""
    images = {}
    for line in run([program] + paths).splitlines():
        if line.startswith("file "):
            lines = images.setdefault(line[5:], [])
        else:
            lines.append(line)
    return images


def read_with_readobj(program, paths):
    """The same lines, made from the other tool's report."""
    images = {}
    output = run([program, "--file-headers", "--sections", "--coff-imports"] + paths)
    for report in re.split(r"^File: ", output, flags=re.MULTILINE)[1:]:
        path, report = report.split("\n", 1)

        def number(key, text):
            value = re.search(r"^ *%s: (?:.*\((0x[0-9A-F]+)\)|(\S+))$" % key, text, re.MULTILINE)
            return int(value.group(1) or value.group(2), 0)

        lines = images.setdefault(path, [])
        lines.append("machine %x" % number("Machine", report))
        lines.append("timestamp %x" % number("TimeDateStamp", report))
        lines.append("base %x" % number("ImageBase", report))
        lines.append("size %x" % number("SizeOfImage", report))
        for section in re.findall(r"^  Section \{$(.*?)^  \}$", report, re.MULTILINE | re.DOTALL):
            characteristics = re.search(r"Characteristics \[ \((0x[0-9A-F]+)\)", section).group(1)
            lines.append("section %x %x %x %x %x" % (number("VirtualAddress", section),
                                                     number("VirtualSize", section),
                                                     number("PointerToRawData", section),
                                                     number("RawDataSize", section),
                                                     int(characteristics, 16)))
        for name in re.findall(r"^Import \{\n  Name: (.*)$", report, re.MULTILINE):
            lines.append("import %d %s" % (len(name), name))
    return images


def main():
    sweep, readobj, minimum, folders = sys.argv[1], sys.argv[2], int(sys.argv[3]), sys.argv[4:]
    paths = find_images(folders)
    ours = read_with_sweep(sweep, paths)
    theirs = read_with_readobj(readobj, paths)

    different = 0
    for path in paths:
        if ours.get(path) != theirs.get(path):
            different += 1
            print("%s differs" % path)
            for mark, lines, others in (("-", ours, theirs), ("+", theirs, ours)):
                for line in lines.get(path) or ["nothing"]:
                    if line not in (others.get(path) or []):
                        print("  %s %s" % (mark, line))

    counts = {machine: sum("machine " + machine in lines for lines in ours.values())
              for machine in (MACHINE_32, MACHINE_64)}
    kinds = {kind: sum(line.startswith(kind) for lines in ours.values() for line in lines)
             for kind in ("section", "import")}
    print("%d files compared (%d 32-bit, %d 64-bit; %d sections, %d imports), %d different"
          % (len(paths), counts[MACHINE_32], counts[MACHINE_64], kinds["section"], kinds["import"], different))
    if min(counts.values()) < minimum:
        sys.exit("fewer than %d files of one bitness in %s" % (minimum, " ".join(folders)))
    sys.exit(1 if different else 0)


if __name__ == "__main__":
    main()
