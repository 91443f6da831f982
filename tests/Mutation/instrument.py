"""Finds the mutants of a source file and writes all of them into it, each behind a switch of its own.

A mutant is a small change that a test should notice: a statement that is left out, a condition that is negated, a constant
that is one more, two statements in the other order, a function that returns at once. Only the one whose number is chosen
when the program runs is on, so that one build has all of them. No edit adds a line: what the compiler rejects is found by its
line, and left out.
"""

import re
import shlex
from dataclasses import dataclass

from clang import cindex
from clang.cindex import CursorKind as Kind
from clang.cindex import TypeKind

FUNCTIONS = (Kind.FUNCTION_DECL, Kind.CXX_METHOD, Kind.CONSTRUCTOR, Kind.DESTRUCTOR, Kind.FUNCTION_TEMPLATE,
             Kind.CONVERSION_FUNCTION, Kind.LAMBDA_EXPR)
CONDITIONED = {Kind.IF_STMT: 0, Kind.WHILE_STMT: 0, Kind.CONDITIONAL_OPERATOR: 0}
STATEMENTS = (Kind.CALL_EXPR, Kind.BINARY_OPERATOR, Kind.COMPOUND_ASSIGNMENT_OPERATOR, Kind.UNARY_OPERATOR,
              Kind.UNEXPOSED_EXPR, Kind.CXX_DELETE_EXPR)
INTEGER = re.compile(rb"(0[xX][0-9a-fA-F]+|[0-9]+)[uUlL]*$")


@dataclass
class Mutant:
    number: int
    path: str
    line: int
    kind: str
    text: str    # of the source, without line breaks
    edits: list  # of (offset, order, text): at one place what closes comes first, by order, and the outermost opens first

    @property
    def key(self):
        return f"{self.path}: {self.kind}: {self.text}"


class File:
    def __init__(self, root, path, command):
        self.path = path
        self.bytes = (root / path).read_bytes()
        arguments = []
        words = shlex.split(command)
        for i, word in enumerate(words):
            if word in ("-isystem", "-idirafter"):
                arguments += words[i:i + 2]
            elif word.startswith(("-D", "-U", "-I", "-std=", "-m", "--target=", "-nostdlibinc")):
                arguments.append(word)
        language = ["-x", "c++"] if path.endswith(".h") else []
        self.unit = cindex.Index.create().parse(str(root / path), args=[*language, *arguments])
        self.name = str(root / path)
        self.mutants = []

    def slice(self, begin, end):
        return self.bytes[begin:end]

    def isHere(self, cursor):
        start, end = cursor.extent.start, cursor.extent.end
        return start.file is not None and start.file.name == self.name and end.file is not None \
            and end.file.name == self.name and end.offset > start.offset

    def add(self, kind, cursor, edits, begin=None, end=None):
        begin = cursor.extent.start.offset if begin is None else begin
        end = cursor.extent.end.offset if end is None else end
        text = " ".join(self.slice(begin, end).decode().split())
        self.mutants.append(Mutant(0, self.path, cursor.extent.start.line, kind, text[:160], edits))

    def find(self):
        self.visit(self.unit.cursor, None)
        return self.mutants

    def visit(self, cursor, function):
        for child in cursor.get_children():
            if cursor.kind == Kind.TRANSLATION_UNIT and not self.isHere(child):
                continue
            if child.kind in FUNCTIONS and self.isHere(child):
                words = self.slice(child.extent.start.offset, child.extent.end.offset).split(b"{")[0].split()
                if b"constexpr" in words or b"naked" in b" ".join(words):
                    continue
                self.visitFunction(child)
            elif function is not None:
                self.visitInside(child, function)
            else:
                self.visit(child, None)

    def visitFunction(self, function):
        bodies = [c for c in function.get_children() if c.kind == Kind.COMPOUND_STMT]
        for child in function.get_children():
            if child.kind != Kind.COMPOUND_STMT:
                continue
            if list(child.get_children()):
                result = function.result_type.spelling if function.kind != Kind.LAMBDA_EXPR else "?"
                # A function that calls nothing and returns at once is what other mutants show.
                value = "" if result == "void" or function.kind in (Kind.CONSTRUCTOR, Kind.DESTRUCTOR) else "{}"
                # What can't be made of nothing would only be rejected by the compiler.
                if result not in ("?", "auto") and "&" not in result and not result.startswith("Result<"):
                    at = child.extent.start.offset + 1
                    name = function.spelling
                    self.mutants.append(Mutant(0, self.path, child.extent.start.line, "return at once", name,
                                               [(at, 0, f" if (::TorvaneMutant(@)) return {value}; ")]))
            self.visitInside(child, function)

    def visitInside(self, cursor, function):
        if cursor.kind in FUNCTIONS and cursor.kind != Kind.LAMBDA_EXPR:
            return
        children = list(cursor.get_children())
        if cursor.kind == Kind.COMPOUND_STMT:
            self.visitCompound(children)
        if cursor.kind in CONDITIONED and children and self.isHere(children[0]):
            self.negate(children[0], function)
        if cursor.kind == Kind.RETURN_STMT and children and self.isHere(children[0]) \
                and children[0].type.get_canonical().spelling == "bool":
            self.negate(children[0], function)
        if cursor.kind == Kind.INTEGER_LITERAL:
            self.change(cursor)
        if cursor.kind in (Kind.CASE_STMT,):
            children = children[1:]  # the label has to be constant
        if cursor.kind == Kind.VAR_DECL and re.search(rb"\bconstexpr\b", self.slice(
                cursor.extent.start.offset, cursor.extent.end.offset)):
            return
        if cursor.kind == Kind.VAR_DECL and cursor.type.kind == TypeKind.CONSTANTARRAY:
            children = [c for c in children if c.kind != Kind.INTEGER_LITERAL]  # the array's size
        for child in children:
            self.visitInside(child, function)

    def negate(self, condition, function):
        if condition.kind in (Kind.DECL_STMT, Kind.VAR_DECL):
            return
        begin, end = condition.extent.start.offset, condition.extent.end.offset
        self.add("negate", condition, [(begin, 0, "(::TorvaneMutant(@) != static_cast<bool>("), (end, 1, "))")])

    def change(self, literal):
        begin, end = literal.extent.start.offset, literal.extent.end.offset
        if not self.isHere(literal) or not INTEGER.match(self.slice(begin, end)):
            return
        line = self.bytes[self.bytes.rfind(b"\n", 0, begin) + 1:self.bytes.find(b"\n", end)]
        context = line.strip().decode(errors="replace")
        self.add("one more", literal, [(begin, 0, "("), (end, 1, " + ::TorvaneMutant(@))")])
        self.mutants[-1].text += f" in {context[:140]}"

    def visitCompound(self, children):
        previous = None
        for child in children:
            if child.kind not in STATEMENTS or not self.isHere(child):
                previous = None
                continue
            begin, end = child.extent.start.offset, child.extent.end.offset
            semicolon = self.bytes.find(b";", end)
            if semicolon < 0 or self.slice(end, semicolon).strip():
                previous = None
                continue
            self.add("leave out", child, [(begin, 0, "if (!::TorvaneMutant(@)) ")], end=semicolon + 1)
            if previous is not None and depend(self.slice(*previous), self.slice(begin, semicolon + 1)):
                first, firstEnd = previous
                texts = [self.slice(begin, semicolon + 1), self.slice(first, firstEnd)]
                swapped = " ".join(" ".join(t.decode().split()) for t in texts)
                self.mutants.append(Mutant(0, self.path, child.extent.start.line, "swap",
                                           " ".join(self.slice(first, semicolon + 1).decode().split())[:160],
                                           [(first, -1, f"if (::TorvaneMutant(@)) {{ {swapped} }} else {{ "),
                                            (semicolon + 1, 2, " }")]))
                previous = None  # pairs don't overlap
            else:
                previous = (begin, semicolon + 1)


def depend(first, second):
    """Whether the order of two statements may count: both call something, or one uses what the other assigns."""
    if re.search(rb"\w\(", first) and re.search(rb"\w\(", second):
        return True
    for one, other in ((first, second), (second, first)):
        assigned = re.match(rb"(?:\+\+|--)?\s*([^=(]+?)\s*(?:[-+*/|&^]|<<|>>)?=[^=]", one) or \
            re.match(rb"(?:\+\+|--)([^;]+)", one)
        if assigned and re.search(rb"(?<!\w)" + re.escape(assigned.group(1).strip()) + rb"(?!\w)", other):
            return True
    return False


def write(root, path, original, mutants):
    """Writes the file with these mutants in it."""
    edits = sorted(((offset, order <= 0, order, index if order <= 0 else -index, text.replace("@", str(m.number)))
                    for index, m in enumerate(mutants) for offset, order, text in m.edits), key=lambda e: e[:4])
    out, at = [], 0
    for offset, _, _, _, text in edits:
        out += [original[at:offset], text.encode()]
        at = offset
    out.append(original[at:])
    if (root / path).read_bytes() != b"".join(out):
        (root / path).write_bytes(b"".join(out))
