"""Does what the package's README shows in its ten minutes: ten_minutes.py PACKAGE FOLDER HEADING COMPILER RUN...

In an empty FOLDER it writes the sources and runs the commands below HEADING exactly as they are written, but for the compiler's
name, and for the host's command, before which RUN comes. The host's output has to change, and no number may be lost."""
import os
import re
import shutil
import signal
import subprocess
import sys
import time
from pathlib import Path
from textwrap import dedent

LIMIT = 120  # seconds, for each wait
FILE = re.compile(r'^`(?P<name>\S+)`\n\n```\w+\n(?P<text>.*?)^```$', re.M | re.S)
COMMANDS = re.compile(r'^   ```sh\n(?P<text>.*?)^   ```$', re.M | re.S)
CLANG = '''#!/bin/sh
gcc=$(dirname "$(i686-w64-mingw32-g++ -print-file-name=libgcc.a)")
platform=$(dirname "$(dirname "$(i686-w64-mingw32-g++ -print-file-name=libkernel32.a)")")
exec clang++ --target=i686-w64-windows-gnu -fuse-ld=lld -Wno-unused-command-line-argument -nostdlibinc \\
    -isystem "$gcc/include/c++" -isystem "$gcc/include/c++/i686-w64-mingw32" -idirafter "$platform/include" \\
    -B"$gcc" -L"$gcc" "$@"
'''


def wait_for(condition, what):
    end = time.monotonic() + LIMIT
    while not (found := condition()):
        if time.monotonic() > end:
            sys.exit(f'{what} did not come within {LIMIT} seconds')
        time.sleep(0.1)
    return found


def main(package, folder, heading, compiler, *run):
    package, folder = Path(package).resolve(), Path(folder).resolve()
    readme = (package / 'README.md').read_text()
    section = readme.partition(f'### {heading}\n')[2].partition('\n### ')[0]
    blocks = [dedent(match['text']) for match in COMMANDS.finditer(section)]
    assert len(blocks) == 3, f'{heading} has {len(blocks)} blocks of commands'

    shutil.rmtree(folder, ignore_errors=True)
    work = folder / 'agent' / 'work'
    tools = folder / 'tools'
    for place in (work, tools, folder / 'agent' / 'Broker'):
        place.mkdir(parents=True)
    # A busy machine can need longer for the Bridge than a host waits: what the README points to.
    for place in ('Broker', 'agent/Broker'):
        (folder / place).mkdir(exist_ok=True)
        shutil.copy(package / 'samples' / 'global_preferences.json', folder / place)
    (tools / 'i686-w64-mingw32-clang++').write_text(CLANG)
    (tools / 'i686-w64-mingw32-clang++').chmod(0o755)
    for match in FILE.finditer(readme):
        (work / match['name']).write_text(match['text'])

    environment = dict(os.environ, TORVANE=str(package), PATH=f'{tools}:{os.environ["PATH"]}')
    build, start, change = (block.replace('i686-w64-mingw32-g++', compiler) for block in blocks)

    def shell(commands):
        subprocess.run(['sh', '-e', '-c', commands], cwd=work, env=environment, check=True, stdin=subprocess.DEVNULL)

    shell(build)
    command = re.sub(r'^(\S+=\S+) (\S+)$', lambda match: f'export {match[1]}\nexec {" ".join(run)} {match[2]}', start.strip())
    assert command != start.strip(), f'the host is not started by: {start}'
    output = work / 'output.txt'
    with output.open('wb') as stream:
        host = subprocess.Popen(['sh', '-e', '-c', command], cwd=work, env=environment, stdin=subprocess.DEVNULL,
                                stdout=stream, stderr=subprocess.STDOUT)
    try:
        def find(words):
            return re.findall(rf'^{words}, number (\d+)\r?$', output.read_text(errors='replace'), re.M)

        wait_for(lambda: find('hello'), 'the first greeting')
        # What was there when the Bridge began to watch isn't loaded, and a connection takes its time.
        wait_for(lambda: list(work.rglob('bridge.log')), 'the Bridge\'s log')
        shell(''.join(re.findall(r'^CXX=.*\n', build)) + change)
        wait_for(lambda: len(find('good morning')) >= 2, 'the changed greeting')
        numbers = [int(number) for number in find('hello') + find('good morning')]
        assert numbers == list(range(1, len(numbers) + 1)), f'numbers are missing or twice: {numbers}'
        assert host.poll() is None, 'the host has ended'
    finally:
        host.send_signal(signal.SIGKILL)
        host.wait()
        print(output.read_text(errors='replace'))
        for log in work.rglob('bridge.log'):
            print(log.read_text(errors='replace'))


if __name__ == '__main__':
    main(*sys.argv[1:])
