"""Finds a natvis file in a PDB, and its types among those of the PDB: Find.py LLVM-PDBUTIL PDB NATVIS"""
import re
import subprocess
import sys
import tempfile
from pathlib import Path
from xml.sax.saxutils import unescape

LIMIT = 300  # seconds that a program may take


def embedded(pdbutil, pdb):
    """The bytes of the PDB's only natvis file."""
    streams = subprocess.run([pdbutil, 'dump', '-streams', pdb], check=True, capture_output=True, text=True,
                             timeout=LIMIT).stdout
    found = re.findall(r'Stream +(\d+) .*Named Stream "/src/files/.*\.natvis"', streams)
    if len(found) != 1:
        raise ValueError(f'{len(found)} natvis files in {pdb}')
    with tempfile.TemporaryDirectory() as folder:
        out = Path(folder) / 'natvis'
        subprocess.run([pdbutil, 'export', f'-stream={found[0]}', f'-out={out}', pdb], check=True,
                       stdout=subprocess.DEVNULL, timeout=LIMIT)
        return out.read_bytes()


def main(pdbutil, pdb, natvis):
    if embedded(pdbutil, pdb) != Path(natvis).read_bytes():
        raise ValueError('the PDB contains another natvis file')
    types = subprocess.run([pdbutil, 'dump', '-types', pdb], check=True, capture_output=True, text=True,
                           timeout=LIMIT).stdout
    known = set()
    for record in re.split(r'\n +0x[0-9A-F]+ \| ', types):
        named = re.match(r'LF_(?:STRUCTURE|CLASS|ENUM) .*`(Torvane::[^`]*)`', record)
        if named and 'options: forward ref' not in record:  # a declaration has no members
            known.add(named[1])
    # Templates have arguments in place of the star.
    text = unescape(Path(natvis).read_text())
    missing = [name for name in sorted(set(re.findall(r'Torvane::\w+(?:<[\w*]+>)?', text)))
               if not any(re.fullmatch(re.escape(name).replace(r'\*', '.*'), one) for one in known)]
    print(f'{len(known)} types in the PDB; not among them: {", ".join(missing) or "none"}')
    return 1 if missing else 0


if __name__ == '__main__':
    sys.exit(main(*sys.argv[1:]))
