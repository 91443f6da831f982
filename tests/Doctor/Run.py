"""Runs one case of Cases.py: makes the host's folder with its mistake, runs the doctor, and compares what it prints.

Run.py BIN WINE-PREFIX FOLDER NAME: the folder of the built programs, the prefix whose Windows is used, the folder for what is
made here, the case.
"""
import glob
import os
import re
import shutil
import subprocess
import sys

import Cases

LOGS = 'AppData/Local/Torvane 2/Logs'


def make_prefix(prefix, base):
    """A prefix of its own for the log folder; Windows itself is that of the base."""
    if os.path.exists(f'{prefix}/ready'):
        return
    shutil.rmtree(prefix, ignore_errors=True)
    os.makedirs(f'{prefix}/dosdevices')
    os.makedirs(f'{prefix}/drive_c/users')
    for name in os.listdir(base):
        if name.endswith('.reg') or name == '.update-timestamp':
            shutil.copy(f'{base}/{name}', prefix)
    for name in os.listdir(f'{base}/drive_c'):
        if name != 'users':
            os.symlink(f'{base}/drive_c/{name}', f'{prefix}/drive_c/{name}')
    for user in os.listdir(f'{base}/drive_c/users'):
        os.makedirs(f'{prefix}/drive_c/users/{user}/AppData/Local')
    os.symlink('../drive_c', f'{prefix}/dosdevices/c:')
    os.symlink('/', f'{prefix}/dosdevices/z:')
    open(f'{prefix}/ready', 'w').close()


def log_folders(prefix):
    users = f'{prefix}/drive_c/users'
    return [f'{users}/{user}/{LOGS}' for user in os.listdir(users) if user != 'Public']


def make_logs(prefix, case):
    for folder in log_folders(prefix):
        shutil.rmtree(os.path.dirname(folder), ignore_errors=True)
        if case.log_folder:
            os.makedirs(folder)
            for age, (name, text) in enumerate(case.logs.items()):
                with open(f'{folder}/{name}', 'w', encoding='utf-8', newline='') as log:
                    log.write(text)
                os.utime(f'{folder}/{name}', (1600000000 - 100 * age,) * 2)


def make_host(folder, bin_folder, case):
    shutil.rmtree(folder, ignore_errors=True)
    os.makedirs(f'{folder}/app/x86')
    os.makedirs(f'{folder}/path')
    for name, source in {**Cases.GOOD_FILES, **case.files}.items():
        if source is not None:
            shutil.copy(f'{bin_folder}/{source}', f'{folder}/app/x86/{name}')
    for name, text in case.preferences.items():
        os.makedirs(f'{folder}/Broker', exist_ok=True)
        with open(f'{folder}/Broker/{name}', 'wb') as preferences:
            preferences.write(text.encode('utf-8'))


def run(bin_folder, prefix, folder, case):
    windows_folder = 'Z:' + folder.replace('/', '\\')
    environment = {**os.environ, 'WINEPREFIX': prefix, 'WINEDEBUG': '-all', 'LC_ALL': 'C.UTF-8',
                   'WINEDLLOVERRIDES': 'mscoree,mshtml,winemenubuilder.exe=', 'WINEPATH': windows_folder + '\\path',
                   **case.environment}
    arguments = [argument.replace('{app}', windows_folder + '\\app\\x86') for argument in case.arguments]
    quiet = {'stdin': subprocess.DEVNULL, 'stdout': subprocess.DEVNULL, 'stderr': subprocess.DEVNULL}
    subprocess.run(['wineserver', '-p30'], env=environment, **quiet)  # the next case needs it
    subprocess.run(['wine', 'cmd', '/c', 'exit'], env=environment, **quiet)  # what Wine prints at its start isn't ours
    for name in case.path_files:
        shutil.copy(f'{bin_folder}/{case.path_files[name]}', f'{folder}/path/{name}')
    with open(f'{folder}/output', 'wb') as output, open(f'{folder}/errors', 'wb') as errors:
        status = subprocess.run(['wine', f'{bin_folder}/torvane-doctor.exe', *arguments], env=environment,
                                stdin=subprocess.DEVNULL, stdout=output, stderr=errors, check=False).returncode
    with open(f'{folder}/output', encoding='utf-8') as output, open(f'{folder}/errors', encoding='utf-8') as errors:
        return status, output.read().splitlines(), errors.read().splitlines()


def running(program):
    """The ids of the processes that have a file as their program."""
    ids = []
    for process in glob.glob('/proc/[0-9]*'):
        try:
            with open(f'{process}/maps', encoding='utf-8', errors='replace') as maps:
                ids += [os.path.basename(process)] if program in maps.read() else []
        except OSError:
            continue  # it has ended, or isn't ours
    return ids


def expression(line, folder):
    windows_folder = 'Z:' + folder.replace('/', '\\')
    line = line.replace('{app}', windows_folder + '\\app\\x86').replace('{folder}', windows_folder)
    logs = re.escape('C:\\users\\') + r'[^\\]+' + re.escape('\\' + LOGS.replace('/', '\\'))
    return re.escape(line).replace(r'\*', '.*').replace(re.escape('{logs}'), logs) + '$'


def compare(what, lines, expected, folder):
    """Each line fits its expected one, and no line is left over."""
    faults = [f'{what}: {line!r} came, and {wanted!r} was expected' for line, wanted in zip(lines, expected)
              if not re.match(expression(wanted, folder), line)]
    faults += [f'{what}: {line!r} came in addition' for line in lines[len(expected):]]
    faults += [f'{what}: {line!r} is missing' for line in expected[len(lines):]]
    return faults


def main():
    bin_folder, base, work, name = sys.argv[1:]
    case = next(case for case in Cases.CASES if case.name == name)
    prefix = f'{work}/prefix'
    folder = f'{work}/{name}'
    make_prefix(prefix, base)
    make_logs(prefix, case)
    make_host(folder, bin_folder, case)
    status, output, errors = run(bin_folder, prefix, folder, case)
    print('\n'.join(output + errors), f'\nexit status {status}')
    # Everything but what is in order is expected line by line; of that, the lines that the case names.
    notable = [line for line in output if not line.startswith('ok ')]
    faults = [] if case.lines is None else compare('output', notable, case.lines, folder)
    faults += compare('errors', errors, case.errors, folder)
    faults += [f'{line!r} is missing' for line in case.ok
               if not any(re.match(expression(line, folder), printed) for printed in output)]
    faults += [] if status == case.status else [f'exit status {status}, and {case.status} was expected']
    if case.makes_log_folder and not any(os.path.isdir(logs) for logs in log_folders(prefix)):
        faults.append('the log folder was not made')
    faults += [f'process {process} still runs' for process in running(f'{folder}/app/x86/TVN_Agent_Bridge_x64.exe')]
    sys.exit('\n'.join(faults) if faults else 0)


main()
