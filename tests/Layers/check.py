#!/usr/bin/env python3
"""Checks the includes of product sources against a table: check.py TABLE ROOT

The format of the table is described in layers.txt. Every product source of ROOT belongs to one of its lines, and the table
has no cycle. In addition, no header below src/ or include/ declares an extern variable. Prints file and line of each
breach, and fails if there is one.
"""
import re
import sys
from graphlib import CycleError, TopologicalSorter
from pathlib import Path

INCLUDE_FOLDERS = ('src', 'include', '.')
SOURCES = {'.h', '.c', '.cpp', '.S'}
# Unit tests and their headers, which are in the same folder as what they test.
TEST = re.compile(r'Test\.cpp$|^Test[A-Z]\w*\.h$')
INCLUDE = re.compile(r'^[ \t]*#[ \t]*include[ \t]*("[^"]+"|<[^>]+>)', re.MULTILINE)
COMMENT = re.compile(r'//[^\n]*|/\*.*?\*/', re.DOTALL)
EXTERN = re.compile(r'\bextern\s+(?!"C"\s*\{|template\b)(?:"C"\s*)?([^;{}]*)[;{]')
SPECIFIER = re.compile(r'\b(?:__declspec|__attribute__|alignas)\s*\((?:[^()]|\([^()]*\))*\)')


def covers(name, path):
    return path.startswith(name) and path[len(name):len(name) + 1] in ('', '/', '.')


class Table:
    def __init__(self, file):
        self.lines = {}
        groups = {}
        for line in file.read_text(encoding='utf-8').splitlines():
            words = line.split()
            if not words or words[0] == '#':
                continue
            rows = {'->': self.lines, '=': groups}[words[1]]
            rows.setdefault(words[0], set()).update(
                name for word in words[2:] for name in groups.get(word, {word}))

    def line_of(self, path):
        return max((name for name in self.lines if covers(name, path)), key=len, default=None)

    def allows(self, line, path):
        """A folder with a line of its own means that line, without the units of the folder that have other lines."""
        target = self.line_of(path)
        return any(covers(name, path) and (name == target or name not in self.lines)
                   for name in self.lines[line] | {line})

    def unknown_names(self):
        for line, names in self.lines.items():
            for name in sorted(names):
                if not (name.startswith('<') or self.line_of(name) or any(covers(name, other) for other in self.lines)):
                    yield f'{line} -> {name}: no line covers this name'

    def cycle(self):
        """A list of lines in which each is allowed by the next one, with the first line at its end again; or None."""
        graph = {line: {other for other in self.lines if self.allows(line, other)} | set(map(self.line_of, names))
                 for line, names in sorted(self.lines.items())}
        try:
            TopologicalSorter({line: sorted(others - {line, None}) for line, others in graph.items()}).prepare()
        except CycleError as error:
            return error.args[1]
        return None


def resolve(root, file, name):
    """The path of an included file in the table's terms, or None."""
    for folder in (file.parent, *(root / folder for folder in INCLUDE_FOLDERS)):
        if (folder / name).is_file():
            return in_terms_of_includes(root, (folder / name).resolve())
    return None


def in_terms_of_includes(root, file):
    path = file.relative_to(root).as_posix()
    return re.sub(r'^(src|include)/', '', path)


def include_breaches(table, root, file, text):
    path = in_terms_of_includes(root, file)
    line = table.line_of(path)
    if line is None:
        yield 1, 'no line of the table covers this file'
        return
    system_headers = {name for name in table.lines[line] if name.startswith('<')}
    for match in INCLUDE.finditer(text):
        number = text.count('\n', 0, match.start()) + 1
        target = resolve(root, file, match.group(1)[1:-1])
        if target:
            if not table.allows(line, target):
                yield number, f'{line} may not include {target}'
        elif match.group(1).startswith('"'):
            yield number, f'{match.group(1)} is not a file of the project'
        elif system_headers and match.group(1) not in system_headers:
            yield number, f'{line} may not include {match.group(1)}'


def extern_breaches(text):
    for match in EXTERN.finditer(text):
        # A function has parentheses after its name; those of a function pointer come before it.
        declaration = SPECIFIER.sub('', match.group(1))
        if '(' not in declaration or re.search(r'^[^(]*\(\s*(?:__\w+\s+)?[*&]', declaration):
            yield text.count('\n', 0, match.start()) + 1, f'extern variable: {" ".join(declaration.split())}'


def breaches(table, root):
    tops = {name.split('/')[0] for name in table.lines}
    folders = [root / 'src', root / 'include', *(root / top for top in sorted(tops))]
    files = sorted({file for folder in folders if folder.is_dir() for file in folder.rglob('*')
                    if file.suffix in SOURCES and not TEST.search(file.name)})
    if not files:
        yield f'{root}: no sources'
    for file in files:
        # Comments are blanked, so that lines keep their numbers.
        text = COMMENT.sub(lambda match: re.sub(r'[^\n]', ' ', match.group()), file.read_text(encoding='utf-8'))
        found = list(include_breaches(table, root, file, text))
        if file.suffix == '.h' and file.relative_to(root).parts[0] in ('src', 'include'):
            found += extern_breaches(text)
        yield from (f'{file.relative_to(root)}:{number}: {what}' for number, what in sorted(found))


def main():
    table = Table(Path(sys.argv[1]))
    found = list(breaches(table, Path(sys.argv[2]).resolve()))
    found += (f'{sys.argv[1]}: {what}' for what in table.unknown_names())
    cycle = table.cycle()
    if cycle:
        found.append(f'{sys.argv[1]}: a cycle: {" <- ".join(cycle)}')
    print(*found, f'{len(found)} breaches', sep='\n')
    return 1 if found else 0


sys.exit(main())
