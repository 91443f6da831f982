"""Compiles all that a natvis file names: Compile.py NATVIS COMPILER [ARGUMENT...]

Each type becomes a base class, and each expression a statement in a member function of a class derived from it, so a
type, a member or an enumerator that isn't there is an error of the compiler's.
"""
import re
import subprocess
import sys
import xml.etree.ElementTree as ElementTree

NAMESPACE = '{http://schemas.microsoft.com/vstudio/debugger/natvis/2010}'
HEADERS = ('Agent/Communication/Blob.h', 'Shared/Container/Array.h', 'Shared/Container/DynamicArray.h',
           'Shared/Container/OwnedString.h', 'Shared/Foundation/FixedString.h', 'Shared/Foundation/Result.h',
           'Shared/Memory/Allocation.h', 'Shared/Process/ModuleIdentity.h')
EXPRESSIONS = {'Item', 'ExpandedItem', 'Size', 'ValuePointer', 'Exec', 'LoopCondition'}
# Elements that hold others, or what is no expression.
CONTAINERS = {'Type', 'Expand', 'ArrayItems', 'Synthetic'}
FORMAT = re.compile(r',(\[(?P<count>[^\]]*)\])?(?P<letters>[a-z]*!?)$')


def split(expression):
    """The expressions in one with its format: `pointer,[length]s` holds `pointer` and `length`."""
    match = FORMAT.search(expression)
    if not match:
        return [expression]
    return [expression[:match.start()], *filter(None, [match['count']])]


def of_display(text):
    """The expressions in braces; doubled braces are text."""
    plain = text.replace('{{', '').replace('}}', '')
    if plain.count('{') != plain.count('}'):
        raise ValueError(f'braces that don\'t match: {text}')
    return [part for inner in re.findall(r'\{([^{}]*)\}', plain) for part in split(inner)]


def expressions(element):
    """All expressions in a type's element."""
    found = []
    for child in element.iter():
        tag = child.tag.removeprefix(NAMESPACE)
        if 'Condition' in child.attrib:
            found.append(child.attrib['Condition'])
        if tag == 'DisplayString':
            found += of_display(child.text)
        elif tag in EXPRESSIONS:
            found += split(child.text.strip())
        elif tag not in CONTAINERS:
            raise ValueError(f'an element that this check doesn\'t know: {tag}')
    return found


def generate(root):
    """The source file, and how many types and expressions are in it."""
    lines = [f'#include "{header}"' for header in HEADERS]
    count = 0
    types = root.findall(f'{NAMESPACE}Type')
    for number, element in enumerate(types):
        name = element.attrib['Name'].replace('*', 'int')
        # The parentheses keep an assignment or a second statement out.
        lines += [f'struct Type{number} : {name}', '{', '    void Use()', '    {']
        for expression in expressions(element):
            lines.append(f'        (void)({expression});')
            count += 1
        lines += ['    }', '};']
    return '\n'.join(lines) + '\n', len(types), count


def main(natvis, *compiler):
    source, types, count = generate(ElementTree.parse(natvis).getroot())
    if types == 0 or count == 0:
        raise ValueError(f'{natvis} names nothing')
    result = subprocess.run([*compiler, '-fsyntax-only', '-x', 'c++', '-'], input=source, text=True)
    print(f'{types} types, {count} expressions')
    return result.returncode


if __name__ == '__main__':
    sys.exit(main(*sys.argv[1:]))
