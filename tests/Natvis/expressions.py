#!/usr/bin/env python3
"""Turns the expressions of a natvis file into C++ that compiles if every type and member in them exists.

    expressions.py FILE.NATVIS OUTPUT.CPP

Each expression becomes a statement of a class that is derived from its type, where members are known by name as they
are to a debugger.
"""
import re
import sys
import xml.etree.ElementTree as ElementTree

SPACE = "{http://schemas.microsoft.com/vstudio/debugger/natvis/2010}"
SPECIFIER = re.compile(r",\s*(s8|su|s|x|en|na|d|!)$")
WHOLE = {SPACE + name for name in ("Item", "StringView", "Size", "ValuePointer", "ExpandedItem")}


def braced(text):
    """The expressions between single braces of a DisplayString; doubled braces stand for themselves."""
    return re.findall(r"\{([^{}]+)\}", text.replace("{{", "").replace("}}", ""))


def expressions(element):
    for part in element.iter():
        if "Condition" in part.attrib:
            yield part.attrib["Condition"]
        if part.tag == SPACE + "DisplayString":
            yield from braced(part.text)
        elif part.tag in WHOLE:
            yield part.text


def main(source, output):
    lines = ['#include "tests/Natvis/Types.h"', ""]
    types = ElementTree.parse(source).getroot().findall(SPACE + "Type")
    if not types:
        sys.exit(f"{source}: there is no type")
    for number, element in enumerate(types):
        name = element.attrib["Name"].replace("<*>", "<uint32_t>")
        lines += [f"struct Shown{number} : {name}", "{", "    void Show()", "    {"]
        lines += [f"        (void)({SPECIFIER.sub('', expression)});" for expression in expressions(element)]
        lines += ["    }", "};", ""]
    with open(output, "w", encoding="utf-8") as file:
        file.write("\n".join(lines))


main(*sys.argv[1:])
