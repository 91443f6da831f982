#!/usr/bin/env python3
"""Turns the tables of docs/protocol.md into a C++ program that compares them with the wire records.

    tables.py PROTOCOL.MD BLOB.H OUTPUT.CPP

The program has a line for every row and every heading. That no member is missing follows from the sizes: the rows of
a table lie back to back, and end where the record does.
"""
import re
import sys

HEADINGS = (
    re.compile(r"^### `(?P<record>\w+)`, (?P<size>\d+) bytes$"),
    re.compile(r"^### (?P<number>\d+) `(?P<blob>\w+)`$"),
)
FIXED_PART = re.compile(r"^Fixed part: `(?P<record>\w+)`, (?P<size>\d+) bytes\.$")
ROW = re.compile(r"^\| 0x(?P<offset>[0-9A-F]+) \| (?P<size>\d+) \| [^|]* \| `(?P<field>\w+)` \|")
ENUMERATOR = re.compile(r"^    (?P<blob>\w+) = (?P<number>\d+),", re.M)


def fail(message):
    sys.exit(f"docs/protocol.md: {message}")


def main(protocol, header, output):
    checks = []
    documented = {}
    record, size, end = None, 0, 0

    def finish():
        if record and end != size:
            fail(f"the rows of {record} end at {end}, not at {size}")

    for line in open(protocol, encoding="utf-8"):
        line = line.rstrip("\n")
        if line.startswith("#"):
            finish()
            record = None
        for pattern in (*HEADINGS, FIXED_PART):
            match = pattern.match(line)
            if match and "blob" in match.groupdict():
                documented[match["blob"]] = int(match["number"])
            elif match:
                record, size, end = match["record"], int(match["size"]), 0
                checks.append(f'    Check("{record}", sizeof({record}), {size});')
                if pattern is FIXED_PART:
                    blob = list(documented)[-1]
                    checks.append(f'    CheckType<{record}>("{record}", {documented[blob]});')
        match = ROW.match(line)
        if match:
            offset, width, field = int(match["offset"], 16), int(match["size"]), match["field"]
            if record is None:
                fail(f"a row of no record: {line}")
            if offset != end:
                fail(f"{record}::{field} stands at {offset}, the row before ends at {end}")
            end = offset + width
            checks.append(f'    Check("{record}::{field}, offset", offsetof({record}, {field}), {offset});')
            checks.append(f'    Check("{record}::{field}, size", sizeof({record}::{field}), {width});')
    finish()

    text = open(header, encoding="utf-8").read()
    enumeration = text[text.index("enum class BlobType"):]
    enumeration = enumeration[:enumeration.index("};")]
    known = {match["blob"]: int(match["number"]) for match in ENUMERATOR.finditer(enumeration)}
    if known != documented:
        fail(f"the Blobs differ from the header's: {sorted(set(known.items()) ^ set(documented.items()))}")

    with open(output, "w", encoding="utf-8") as file:
        file.write('#include "tests/Protocol/Check.h"\n\nint main()\n{\n')
        file.write("\n".join(checks))
        file.write("\n    return Report();\n}\n")


main(*sys.argv[1:])
