"""Compares the payloads that a natvis file shows with the records of Blob.h: Blobs.py BLOB.H NATVIS

Every record that is the fixed part of one Blob has to be shown for this Blob, and for no other.
"""
import re
import sys
from pathlib import Path
from xml.etree import ElementTree

sys.path.insert(0, str(Path(__file__).resolve().parent.parent / "Protocol"))
import headers

SPACE = "{http://schemas.microsoft.com/vstudio/debugger/natvis/2010}"


def shown(natvis):
    """Pairs of Blob and record."""
    for item in ElementTree.parse(natvis).getroot().iterfind(f'{SPACE}Type[@Name="Torvane::BlobHeader"]//{SPACE}Item'):
        record = re.fullmatch(r"\*\(Torvane::(\w+)\*\)\(this \+ 1\)", item.text)
        for blob in re.findall(r"Torvane::BlobType::(\w+)", item.attrib.get("Condition", "")):
            yield blob, record and record[1]


def main(blob_header, natvis):
    records = headers.records(Path(blob_header).read_text())
    pairs = set(shown(natvis))
    expected = {(record.blob, name) for name, record in records.items() if record.blob}
    missing = expected - pairs
    wrong = {(blob, name) for blob, name in pairs - expected if name not in records or records[name].blob}
    print(f"{len(pairs)} payloads; missing: {sorted(missing) or 'none'}; wrong: {sorted(wrong) or 'none'}")
    return 1 if missing or wrong or not pairs else 0


sys.exit(main(*sys.argv[1:]))
