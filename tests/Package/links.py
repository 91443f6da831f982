"""The documents of an unpacked package name nothing that isn't in it: links.py PACKAGE

Links have to lead to a file, and paths in code to one from the package's folder or the document's. The project's own tools and
folders aren't there."""
import re
import sys
from pathlib import Path

package = Path(sys.argv[1])
LINK = re.compile(r'\]\((?!https?:|#)([^)#]+)(?:#[^)]*)?\)')
PATH = re.compile(r'`((?:bin|docs|include|lib|licenses|samples|bridge|src|tests|tools|cmake|build)/[^`\s*‹]+)`')
OURS = re.compile(r'\./dev\b|\bTORVANE_BUILD_TESTS\b|<!--|\btests/')
# Made by the commands of the README.
BUILT = re.compile(r'(samples-)?build/')

faults = []
documents = sorted(package.rglob('*.md'))
for document in documents:
    text = document.read_text()
    name = document.relative_to(package)
    for target in LINK.findall(text):
        if not (document.parent / target).exists():
            faults.append(f'{name} links to {target}')
    for path in PATH.findall(text):
        places = (package / path, package / 'include' / path, document.parent / path)
        if not BUILT.match(path) and not any(place.exists() for place in places):
            faults.append(f'{name} names {path}')
    faults += [f'{name} has {match}' for match in OURS.findall(text)]

if len(documents) < 7:
    faults.append(f'there are only {len(documents)} documents')
sys.exit('\n'.join(faults) or 0)
