"""What ./dev refuses, before it installs or builds anything, and what it accepts: Arguments.py SOURCES FOLDER.

A copy of the script runs in FOLDER, which is created anew. The programs that it calls are replaced by one that records the
call and fails, so a run that is refused has no calls, and one that is accepted gets no farther than its first ones.
"""
import os
import re
import shutil
import subprocess
import sys

SOURCES, FOLDER = sys.argv[1:]
PROGRAMS = ['apt-get', 'chmod', 'clang-format', 'clang-tidy', 'cmake', 'cpack', 'ctest', 'dpkg', 'dpkg-query', 'find', 'rm',
            'sudo', 'wine', 'wineserver']
END = ' ./dev help lists what there is.'

REFUSED = [
    (['frobnicate'], 'There is no command frobnicate.'),
    (['--frobnicate'], 'There is no command --frobnicate.'),
    (['Demo'], 'There is no command Demo.'),
    (['demo', 'foo'], 'There is no demo foo.'),
    (['demo', 'LiveReload'], 'There is no demo LiveReload.'),
    (['demo', '--foo'], '"./dev demo" has no option --foo.'),
    (['demo', '--watch', 'foo'], '"./dev demo" has no argument foo.'),
    (['demo', '--watch --sync'], '"./dev demo" has no option --watch --sync.'),
    (['demo', 'crash', 'x'], '"./dev demo crash" needs a number, not x.'),
    (['demo', 'crash', '0'], '"./dev demo crash" needs a number, not 0.'),
    (['demo', 'crash', '3', '4'], '"./dev demo crash" has no argument 4.'),
    (['demo', 'crash', '--sync'], '"./dev demo crash" has no option --sync.'),
    (['demo', 'restart', '3'], '"./dev demo restart" has no argument 3.'),
    (['demo', 'frames', '--verbose'], '"./dev demo frames" has no option --verbose.'),
    (['demo', 'modules', '--verbose'], '"./dev demo modules" has no option --verbose.'),
    (['demo', 'modules', 'c'], '"./dev demo modules" has no argument c.'),
    (['demo', 'c', '-v'], '"./dev demo c" has no option -v.'),
    (['test', 'Unit'], '"./dev test" has no argument Unit.'),
    (['build', 'windows'], '"./dev build" has no argument windows.'),
    (['build', 'native', '--fast'], '"./dev build" has no option --fast.'),
    (['package', 'x'], '"./dev package" has no argument x.'),
    (['bench', '--quack'], '"./dev bench" has no option --quack.'),
    (['bench', '5'], '"./dev bench" has no argument 5.'),
    (['bench', '--only'], '--only needs a value.'),
    (['soak', 'long'], '"./dev soak" needs a number, not long.'),
    (['soak', '1', '2'], '"./dev soak" has no argument 2.'),
    (['soak', '--seed=x'], '"./dev soak" needs a number for --seed, not x.'),
    (['faults', '--sample', 'some'], '"./dev faults" needs a number for --sample, not some.'),
    (['faults', '--only='], '--only needs a value.'),
    (['mutation', 'native'], '"./dev mutation" has no argument native.'),
    (['fuzz', '0'], '"./dev fuzz" needs a number, not 0.'),
    (['fuzz', 'COUNT'], '"./dev fuzz" needs a number, not COUNT.'),
    (['fuzz', '1.5'], '"./dev fuzz" needs a number, not 1.5.'),
    (['fuzz', '--Merge'], '"./dev fuzz" has no option --Merge.'),
    (['format', 'dev'], '"./dev format" has no argument dev.'),
    (['format', '--check=yes'], '"./dev format" has no option --check=yes.'),
    (['tidy', 'missing.cpp'], 'There is no file missing.cpp.'),
    (['tidy', 'FILE'], 'There is no file FILE.'),
    (['coverage', '--html'], '"./dev coverage" has no option --html.'),
    (['clean', ''], '"./dev clean" has no argument .'),
]

ACCEPTED = [
    ['demo'], ['demo', '--watch', '--sync', '--verbose'], ['demo', 'crash'], ['demo', 'crash', '12', '--verbose'],
    ['demo', 'restart'], ['demo', 'restart', '--verbose'], ['demo', 'frames'], ['demo', 'modules'], ['demo', 'c'],
    ['test'], ['build'], ['build', 'native', 'windows-x86', 'windows-x64', 'coverage'], ['package'], ['bench', '--quick', '--record'],
    ['bench', '--only', '5,4'], ['soak', '0.5'], ['soak', '60', '--only=reloads'], ['faults'], ['mutation'], ['fuzz'],
    ['fuzz', '60'], ['fuzz', '--merge'], ['format'], ['format', '--check'], ['tidy'], ['tidy', 'dev'], ['coverage'], ['clean'],
]

HELP = [[], ['help'], ['--help'], ['-h'], ['demo', '--help'], ['clean', '-h'], ['soak', 'help']]

# The scripts that do the work, whose options have to be accepted.
SCRIPTS = {'bench': 'benchmarks/run', 'soak': 'tests/Soak/soak', 'faults': 'tests/Faults/run', 'mutation': 'tests/Mutation/run'}


def options_of_scripts():
    runs = []
    for command, script in SCRIPTS.items():
        with open(f'{SOURCES}/{script}', encoding='utf-8') as file:
            found = re.findall(r'add_argument\("(--[a-z-]+)"(.*)\)', file.read())
        assert found, script
        for option, properties in found:
            runs.append([command, option] + ([] if 'store_true' in properties else ['1']))
    return runs


def run(arguments):
    """\\return the exit status, what was printed, and the programs that were called."""
    calls = f'{FOLDER}/calls'
    open(calls, 'w', encoding='utf-8').close()
    environment = {**os.environ, 'PATH': f'{FOLDER}/programs:' + os.environ['PATH']}
    done = subprocess.run([f'{FOLDER}/tree/dev', *arguments], env=environment, stdin=subprocess.DEVNULL, capture_output=True,
                          text=True, check=False)
    with open(calls, encoding='utf-8') as file:
        return done.returncode, done.stdout, done.stderr, file.read().split()


def main():
    shutil.rmtree(FOLDER, ignore_errors=True)
    os.makedirs(f'{FOLDER}/tree/tests')
    os.makedirs(f'{FOLDER}/programs')
    shutil.copy(f'{SOURCES}/dev', f'{FOLDER}/tree')
    for name in PROGRAMS:
        program = f'{FOLDER}/programs/{name}'
        with open(program, 'w', encoding='utf-8') as file:
            file.write(f'#!/bin/sh\necho {name} >> "{FOLDER}/calls"\nexit 9\n')
        os.chmod(program, 0o755)

    faults = []
    for arguments, sentence in REFUSED:
        actual = run(arguments)
        expected = (2, '', f'dev: {sentence}{END}\n', [])
        faults += [] if actual == expected else [f'{arguments}: {actual}\n    instead of {expected}']
    if sorted(os.listdir(f'{FOLDER}/tree')) != ['dev', 'tests']:
        faults.append(f'what was refused has left {os.listdir(f"{FOLDER}/tree")}')
    for arguments in HELP:
        status, output, errors, calls = run(arguments)
        if status != 0 or not output.startswith('./dev demo ') or errors or calls:
            faults.append(f'{arguments}: no help: {status} {errors!r} {calls}')
    for arguments in ACCEPTED + options_of_scripts():
        status, _, errors, calls = run(arguments)
        if status == 2 or not calls:
            faults.append(f'{arguments} is refused: {status} {errors!r} {calls}')
    sys.exit('\n'.join(faults) if faults else 0)


main()
