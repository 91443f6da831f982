"""Compares the doctor's tables of sentences with what they are about.

Texts.py SOURCES IMAGE CHECK [ARGUMENT]: the project's folder, the image (or the folder of images) that the check concerns, the
check's name, and what else it needs.
"""
import glob
import re
import subprocess
import sys

STRING = r'((?:"(?:[^"\\]|\\.)*"\s*)+)'


def read(path):
    with open(path, encoding='utf-8') as file:
        return file.read()


def value(literals):
    """Of adjacent string literals."""
    return ''.join(re.findall(r'"((?:[^"\\]|\\.)*)"', literals)).replace('\\"', '"').replace('\\\\', '\\')


def findings(sources):
    """Name, severity, text and remedy of each."""
    rows = re.findall(rf'\{{Finding::(\w+), Severity::(\w+),\s*{STRING},\s*{STRING}\}}',
                      read(f'{sources}/tools/doctor/Findings.cpp'))
    named = len(re.findall(r'\{Finding::', read(f'{sources}/tools/doctor/Findings.cpp')))
    assert len(rows) == named > 40, f'{len(rows)} of {named} rows are understood'
    return [(name, severity, value(text), value(remedy)) for name, severity, text, remedy in rows]


def explained(sources):
    """The formats of the doctor's table of log lines, with meaning and remedy."""
    code = read(f'{sources}/tools/doctor/LogTexts.cpp')
    explanations = {name: (value(meaning), value(remedy)) for name, meaning, remedy in
                    re.findall(rf'constexpr Explanation (\w+) = \{{\s*{STRING},\s*{STRING}(?:,\s*true)?\}};', code)}
    rows = re.findall(rf'^    \{{{STRING}, (\w+)\}},', code, re.M)
    assert len(rows) > 70 and len(explanations) > 20, 'the table is not understood'
    return [(value(text), *explanations[name]) for text, name in rows]


def logged(sources):
    """The formats of the Agent's sources that are written at Error or Panic level."""
    formats = set()
    for path in glob.glob(f'{sources}/src/**/*', recursive=True):
        if not path.endswith(('.h', '.cpp')) or path.endswith('Test.cpp'):
            continue
        code = re.sub(r'^\s*//.*', '', read(path), flags=re.M)
        formats.update(value(text) for text in re.findall(
            rf'\bLog(?:Error|Panic|LastError)\((?:TVN_HERE|file, line),\s*{STRING}', code))
        # What follows an object's name is logged if the object can't be created.
        formats.update(value(re.findall(STRING, statement)[-1])
                       for statement in re.findall(r'\bExpect(?:Or)?\(([^;{]*"[^;]*);', code))
        formats.update(value(text) for text in re.findall(rf'GatherNamedModules\([^;]*?{STRING}\)', code))
    assert len(formats) > 70, 'the sources are not understood'
    return formats


def pattern(text):
    """What stands for a placeholder in a document is anything on the same line."""
    return '.+?'.join(re.escape(piece) for piece in re.split(r'%[1-9]', text))


def log_texts_are_the_agents(sources, image, _):
    with open(image, 'rb') as file:
        content = file.read()
    return [f'the Agent has no text {text!r}' for text, _, _ in explained(sources)
            if text.encode() + b'\0' not in content]


def agents_log_texts_are_explained(sources, _image, _):
    known = {text for text, _, _ in explained(sources)}
    return [f'the doctor has no explanation of {text!r}' for text in sorted(logged(sources) - known)]


def document_has_each_line(sources, _image, _):
    document = read(f'{sources}/docs/troubleshooting.md')
    faults = []
    for name, severity, text, remedy in findings(sources):
        if severity != 'Ok' and not name.startswith('LogLine'):
            faults += [f'{name}: the document lacks {part!r}' for part in (text, remedy)
                       if not re.search(pattern(part), document)]
    for row in explained(sources):
        line = next((line for line in document.splitlines() if f'`{row[0]}`' in line), '')
        faults += [f'the document lacks {part!r} for {row[0]!r}' for part in row if part not in line]
    return faults


def imports_the_system_only(_sources, image, arguments):
    listing = subprocess.run([arguments[0], '--coff-imports', image], check=True, capture_output=True, text=True).stdout
    names = re.findall(r'^  Name: (\S+)', listing, re.M)
    system = r'(kernel32|ole32|shell32|version|ucrtbase|api-ms-win-crt-[a-z0-9-]+)\.dll'
    assert names, listing
    return [f'{name} is imported' for name in names if not re.fullmatch(system, name, re.I)]


def programs_have_versions(_sources, bin_folder, arguments):
    """Each of the package and each sample has the project's version and a description."""
    expected = ['TVN_Agent_x86.dll', 'TVN_Agent_Bridge_x64.exe', 'blobs.exe', 'torvane-doctor.exe',
                'samples/PlainC/PlainC.exe', 'samples/PlainC/TVN_Agent_Bridge_x64.exe']
    found = [path for folder in ('samples', 'Crash', 'LiveReload', 'Restart')
             for path in glob.glob(f'{bin_folder}/{folder}/**/*.exe', recursive=True)]
    faults = []
    for path in sorted({f'{bin_folder}/{name}' for name in expected} | set(found)):
        with open(path, 'rb') as file:
            content = file.read().decode('utf-16-le', 'replace')
        strings = dict(re.findall(r'(FileDescription|ProductName|ProductVersion)\0+([^\0]+)', content))
        if strings.get('ProductVersion') != arguments[0] or strings.get('ProductName') != 'Torvane' or len(strings) != 3:
            faults.append(f'{path} has {strings}')
    return faults


CHECKS = {
    'LogTextsAreTheAgents': log_texts_are_the_agents,
    'AgentsLogTextsAreExplained': agents_log_texts_are_explained,
    'DocumentHasEachLine': document_has_each_line,
    'ImportsTheSystemOnly': imports_the_system_only,
    'ProgramsHaveVersions': programs_have_versions,
}


def main():
    faults = CHECKS[sys.argv[3]](sys.argv[1], sys.argv[2], sys.argv[4:])
    sys.exit('\n'.join(faults) if faults else 0)


if __name__ == '__main__':
    main()
