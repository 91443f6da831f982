"""What the default Bridge and a sample's say when they are started by hand: Messages.py BIN WINE-PREFIX FOLDER VERSION.

FOLDER is created anew. Each row is a run: what it shows, program, arguments, environment, exit status, standard output,
standard error. A * is any string.
"""
import os
import re
import shutil
import subprocess
import sys

BIN, PREFIX, FOLDER, VERSION = sys.argv[1:]
WINDOWS_FOLDER = 'Z:' + FOLDER.replace('/', '\\')
DEFAULT = 'TVN_Agent_Bridge_x64.exe'
CRASH = 'Crash/TVN_Agent_Bridge_x64.exe'
NO_HOST = 'The process id of a host is missing. An Agent starts its Bridge by itself; --help says more.'
HELP = '''TVN_Agent_Bridge_x64 PROCESS-ID *
TVN_Agent_Bridge_x64 --watch FOLDER PROCESS-ID *
*
TORVANE_BRIDGE_WATCH=FOLDER *loads each patch library that appears in FOLDER and routes the host's functions to it
TORVANE_BRIDGE_RECORDING=FILE *
TORVANE_BRIDGE_SCENARIO=NAME *
*
Exit status: 0 success, 1 *, 2 *, 64 wrong usage, 73 *

A watching Bridge loads each *
'''


def no_scenario(name, others):
    return f'This Bridge has no scenario "{name}", which TORVANE_BRIDGE_SCENARIO names; it has {others}.'


def no_recording(name):
    return (f'The recording {name}, which TORVANE_BRIDGE_RECORDING names, can\'t be created: check its name, and that its folder '
            'exists and can be written.')


def recording(name):
    return {'TORVANE_BRIDGE_RECORDING': name}


def scenario(name):
    return {'TORVANE_BRIDGE_SCENARIO': name}


MISSING = WINDOWS_FOLDER + '\\missing\\r.jsonl'
ROWS = [
    ('no argument', DEFAULT, [], {}, 64, '', NO_HOST),
    ('help', DEFAULT, ['--help'], {}, 0, HELP, ''),
    ('help of a sample', CRASH, ['--help'], {}, 0, HELP, ''),
    ('help with a mistake elsewhere', DEFAULT, ['--help'], scenario('Nothing'), 0, HELP, ''),
    ('version', DEFAULT, ['--version'], {}, 0, f'TVN_Agent_Bridge_x64 {VERSION}\n', ''),
    ('an unknown option', DEFAULT, ['--frobnicate', '4'], {}, 64, '',
     'There is no option --frobnicate; --help lists what there is.'),
    ('help and more', DEFAULT, ['--help', '4'], {}, 64, '', 'There is no option --help; --help lists what there is.'),
    ('no number', DEFAULT, ['Host.exe'], {}, 64, '', '"Host.exe" isn\'t a process id.'),
    ('a number and more', DEFAULT, ['4x'], {}, 64, '', '"4x" isn\'t a process id.'),
    ('the number 0', DEFAULT, ['0'], {}, 64, '', '"0" isn\'t a process id.'),
    ('too great a number', DEFAULT, ['4294967297'], {}, 64, '', '"4294967297" isn\'t a process id.'),
    ('an argument with a blank', DEFAULT, ['a b'], {}, 64, '', '"a b" isn\'t a process id.'),
    ('two numbers', DEFAULT, ['4', '5'], {}, 64, '', 'The argument "5" is one too many.'),
    ('watch without a folder', DEFAULT, ['--watch'], {}, 64, '', 'The option --watch needs a folder.'),
    ('watch without a host', DEFAULT, ['--watch', 'C:\\new patches'], {}, 64, '', NO_HOST),
    ('an unknown scenario', DEFAULT, ['4'], scenario('Nothing'), 64, '', no_scenario('Nothing', 'none')),
    ('an unknown scenario and no host', DEFAULT, [], scenario('Nothing'), 64, '', no_scenario('Nothing', 'none')),
    ('a scenario in other letters', CRASH, ['4'], scenario('crash'), 64, '', no_scenario('crash', 'Crash')),
    ('a very long scenario', CRASH, ['4'], scenario('x' * 300), 64, '', no_scenario('x' * 300, 'Crash')),
    ('a scenario without a host', CRASH, [], scenario('Crash'), 64, '', NO_HOST),
    ('no folder for the recording', DEFAULT, ['4'], recording(MISSING), 73, '', no_recording(MISSING)),
    ('no name for the recording', DEFAULT, ['4'], recording(WINDOWS_FOLDER + '\\'), 73, '', no_recording(WINDOWS_FOLDER + '\\')),
    ('no host and no recording', DEFAULT, [], recording(MISSING), 64, '', NO_HOST),
    ('a process without an Agent', DEFAULT, ['4'], {}, 1, '', 'the pipe \\\\.\\pipe\\TVN_Agent4 can\'t be opened, error 2'),
]


def fits(text, expected):
    return re.fullmatch(re.escape(expected).replace(r'\*', '.*'), text.replace('\r', ''), re.DOTALL)


def run(program, arguments, environment):
    environment = {**os.environ, 'WINEPREFIX': PREFIX, 'WINEDEBUG': '-all', 'LC_ALL': 'C.UTF-8',
                   'WINEDLLOVERRIDES': 'mscoree,mshtml,winemenubuilder.exe=', **environment}
    # Not pipes: processes that Wine starts would keep them open.
    with open(f'{FOLDER}/output', 'w+b') as output, open(f'{FOLDER}/errors', 'w+b') as errors:
        status = subprocess.run(['wine', f'{BIN}/{program}', *arguments], env=environment, stdin=subprocess.DEVNULL,
                                stdout=output, stderr=errors, check=False).returncode
        texts = []
        for file in (output, errors):
            file.seek(0)
            texts.append(file.read().decode('utf-8'))
    return status, *texts


def main():
    shutil.rmtree(FOLDER, ignore_errors=True)
    os.makedirs(FOLDER)
    run(DEFAULT, ['--version'], {})  # what Wine prints at its start isn't ours
    faults = []
    for name, program, arguments, environment, *expected in ROWS:
        if expected[2]:
            expected[2] = f'TVN_Agent_Bridge_x64: {expected[2]}\n'
        actual = run(program, arguments, environment)
        if actual[0] != expected[0] or not fits(actual[1], expected[1]) or not fits(actual[2], expected[2]):
            faults.append(f'{name}: {actual}\n    instead of {tuple(expected)}')
    faults += [f'{file} is left' for file in os.listdir(FOLDER) if file not in ('output', 'errors')]
    print(len(ROWS), 'runs')
    sys.exit('\n'.join(faults) if faults else 0)


main()
