#!/usr/bin/env python3
"""Compares docs/protocol.md with the protocol's headers.

    tables.py PROTOCOL.MD FOLDER               compares names and types
    tables.py PROTOCOL.MD FOLDER OUTPUT.CPP    writes a program that compares numbers, offsets and sizes

FOLDER has the headers. The document has to contain every Blob, record and member of Blob.h, its log levels and exception
actions, the codes of ExceptionCodes.h and all constants of Names.h. The program compares the document's tables with the
compiled records and with the layouts of the recorder.
"""
import pathlib
import re
import sys

import headers

SECTIONS = {
    "Both ways": "both ways",
    "What a Bridge receives": "Agent to Bridge",
    "What a Bridge may send": "Bridge to Agent",
}
BLOB = re.compile(r"^### (?P<number>\d+) `(?P<blob>\w+)`$")
RECORD = re.compile(r"^(?:### |Fixed part: )`(?P<record>\w+)`, (?P<size>\d+) bytes\.?$")
VALUE = re.compile(r"^\| (?P<value>\w+) \| `(?P<name>\w+)` \|", re.M)
ROW = re.compile(r"^\| 0x(?P<offset>[0-9A-F]+) \| (?P<size>\d+) \| (?P<type>[^|]*) \| `(?P<field>\w+)` \|")

# As the document calls types. Those of its own have their name.
TYPES = {"AddressSlot": "address", "uint64_t": "u64", "uint32_t": "u32", "uint16_t": "u16", "uint8_t": "u8",
         "int32_t": "i32", "BlobType": "u32", "BlobLogLevel": "u32"}
UNTABLED = {"RelativeOffset", "AddressItem"}  # described by sentences
SENDERS = {"both ways": "Both", "Agent to Bridge": "Agent", "Bridge to Agent": "Bridge"}

# Records that the recorder's layouts have as kinds of fields, or not at all.
KINDS = {"BlobHeader", "RelativeOffset", "RelativeArray", "InlineText", "InlineWideText"}


def fail(message):
    sys.exit(f"docs/protocol.md: {message}")


def type_name(type, count):
    if count is None:
        return TYPES.get(type, type)
    return f"{count} bytes" if type in ("char", "uint8_t") else f"{TYPES[type]} × {count}"


class Document:
    """The Blobs and tables of the document."""

    def __init__(self, text):
        self.blobs = {}    # number, way and record by name
        self.records = {}  # size and rows (name, type, offset, size); each table of a record has to be the same
        self.way = self.blob = self.rows = None
        for line in text.splitlines():
            self.read(line)

    def read(self, line):
        heading = line.removeprefix("## ")
        if line.startswith("## "):
            self.way = SECTIONS.get(heading)
        if line.startswith("#"):
            self.rows = self.blob = None
        blob, record, row = BLOB.match(line), RECORD.match(line), ROW.match(line)
        if blob:
            self.blob = blob["blob"]
            self.blobs[self.blob] = [int(blob["number"]), self.way, None]
        elif record:
            if self.blob:
                self.blobs[self.blob][2] = record["record"]
            self.rows = []
            self.records.setdefault(record["record"], []).append((int(record["size"]), self.rows))
        elif row:
            if self.rows is None:
                fail(f"a row of no record: {line}")
            self.rows.append((row["field"], row["type"], int(row["offset"], 16), int(row["size"])))


def compare_names(document, text, known_blobs, known_records, names):
    ways = {name: (number, way) for name, (number, way, _) in document.blobs.items()}
    if ways != known_blobs:
        fail(f"the Blobs differ from the header's: {sorted(set(ways.items()) ^ set(known_blobs.items()))}")
    if set(document.records) != set(known_records) - UNTABLED:
        fail(f"the records differ from the header's: {sorted(set(document.records) ^ (set(known_records) - UNTABLED))}")
    for name, tables in document.records.items():
        expected = [(member, type_name(type, count)) for member, type, count in known_records[name].members]
        for _, rows in tables:
            if [row[:2] for row in rows] != expected:
                fail(f"the rows of {name} differ from its members {expected}")
    for name, (_, _, record) in document.blobs.items():
        if record and known_records[record].blob not in (None, name):
            fail(f"{record} is the fixed part of {known_records[record].blob}, not of {name}")
    for name, value in names.items():
        if not re.search(rf'(?<![\w\\]){re.escape(value)}(?!\w)', text):
            fail(f"{name}, {value}, is missing")


def compare_values(text, section, expected):
    """The rows "| value | `name` |" of a section have to be exactly those."""
    found = VALUE.findall(text.split(f"\n## {section}\n")[1].split("\n## ")[0])
    if found != expected:
        fail(f"{section}: {found} instead of {expected}")


def checks(document):
    for name, tables in document.records.items():
        for size, rows in tables:
            yield f'Check("{name}", sizeof({name}), {size});'
            for field, _, offset, width in rows:
                yield f'Check("{name}::{field}, offset", offsetof({name}, {field}), {offset});'
                yield f'Check("{name}::{field}, size", sizeof({name}::{field}), {width});'
            if name not in KINDS:
                fields = ", ".join(f'{{"{field}", {offset}, {width}}}' for field, _, offset, width in rows)
                yield f'CheckLayout("{name}", {size}, {{{fields}}});'
    for name, (number, way, record) in document.blobs.items():
        fixed = f'"{record}"' if record else "nullptr"
        yield f'CheckBlob("{name}", BlobType::{name}, {number}, Bridge::BlobSender::{SENDERS[way]}, {fixed});'


def main(protocol, folder, output=None):
    text, blob_text, names_text, codes_text = (
        pathlib.Path(path).read_text(encoding="utf-8")
        for path in (protocol, f"{folder}/Blob.h", f"{folder}/Names.h", f"{folder}/ExceptionCodes.h"))
    document = Document(text)
    if output is None:
        compare_names(document, text, headers.blobs(blob_text), headers.records(blob_text), headers.constants(names_text))
        compare_values(text, "Log levels", headers.enumerators(blob_text, "BlobLogLevel"))
        compare_values(text, "Exceptions",
                       headers.exception_codes(codes_text) + headers.enumerators(blob_text, "ExceptionAction"))
        return
    with open(output, "w", encoding="utf-8") as file:
        file.write('#include "tests/Protocol/Check.h"\n\nint main()\n{\n')
        file.writelines(f"    {check}\n" for check in checks(document))
        file.write(f"    CheckBlobCount({len(document.blobs)});\n    return Report();\n}}\n")


main(*sys.argv[1:])
