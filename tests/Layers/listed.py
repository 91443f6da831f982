#!/usr/bin/env python3
"""Checks that each test source is named by the CMakeLists.txt of its folder or of one above: listed.py ROOT FOLDER...

A file that no list names isn't compiled, and nothing else reports that. Names the files that are missing, and fails if
there is one.
"""
import re
import sys
from pathlib import Path


def is_listed(file, root):
    for folder in file.parents:
        names = folder / 'CMakeLists.txt'
        path = file.relative_to(folder).as_posix()
        if names.is_file() and re.search(rf'(?<![\w./-]){re.escape(path)}\b', names.read_text(encoding='utf-8')):
            return True
        if folder == root:
            return False


def main():
    root = Path(sys.argv[1]).resolve()
    files = sorted(file for folder in sys.argv[2:] for file in (root / folder).rglob('*Test.cpp'))
    missing = [file for file in files if not is_listed(file, root)]
    for file in missing:
        print(f'{file.relative_to(root)}: no CMakeLists.txt names this file')
    print(f'{len(missing)} of {len(files)} test sources are missing from the lists')
    return 1 if missing or not files else 0


sys.exit(main())
