"""The cases of the doctor's tests. Each but the good ones makes one mistake."""
import dataclasses

GOOD_FILES = {
    'Host.exe': 'samples/PlainC/PlainC.exe',
    'TVN_Agent_x86.dll': 'TVN_Agent_x86.dll',
    'TVN_Agent_Bridge_x64.exe': 'TVN_Agent_Bridge_x64.exe',
}
# A busy machine can take longer to start a Bridge than the 2 seconds of the default.
PATIENT = {'global_preferences.json': '{"Network": {"timeout": 30000}}'}
HASTY = {'global_preferences.json': '{"Network": {"timeout": 300}}'}
HOST = '{app}\\Host.exe'
LIBRARY = '{app}\\TVN_Agent_x86.dll'
BRIDGE = '{app}\\TVN_Agent_Bridge_x64.exe'
PREFERENCES = '{folder}\\Broker\\global_preferences.json'
NO_LIBRARY = [f'problem  TVN_Agent_x86.dll isn\'t beside the program, in {{app}}, and the OS\'s search finds none either. '
              'Copy it there from the package\'s folder bin.']
NO_BRIDGE = ['problem  TVN_Agent_Bridge_x64.exe isn\'t where the Agent starts it, in {app}. '
             'Copy your Bridge there, or the default Bridge from the package\'s folder bin.']
NO_VERSION = [f'warning  {BRIDGE} doesn\'t say which version of Torvane it is for. '
              'Run with --try: the two compare their versions when they connect.']


@dataclasses.dataclass
class Case:
    name: str
    status: int
    lines: list  # all that aren't ok, in order, with * for any string; None: whatever they are
    files: dict = dataclasses.field(default_factory=dict)  # name beside the host: what is built; None: missing
    path_files: dict = dataclasses.field(default_factory=dict)  # likewise, in a folder of PATH
    preferences: dict = dataclasses.field(default_factory=dict)  # name in the Broker's folder: content
    logs: dict = dataclasses.field(default_factory=dict)  # name: content, the newest first
    log_folder: bool = True
    arguments: tuple = (HOST,)
    environment: dict = dataclasses.field(default_factory=dict)
    ok: tuple = ()  # some of the lines that are ok
    errors: tuple = ()  # all lines on standard error
    makes_log_folder: bool = False


def missing_import(kind, importer, name, remedy):
    return [f'problem  {importer} imports {name}{kind}, which isn\'t found. {remedy}']


def version_mistake(words, remedy):
    return [f'problem  The trial connection has failed, after * ms: {words} {remedy}']


def log_line(text, explanation):
    return f'warning  The log {{logs}}\\log_windows_agent_*.txt has the line "{text}": {explanation}'


def record(level, text):
    return f'\r\n     0.01 | {level} | {"Agent_Windows.cpp(37)":>43} | {text}'


TRIAL = (HOST, '--try')
NOT_CONNECTED = ('The Bridge hasn\'t connected in time, or has ended. Start the Bridge by itself to see what it says. On a slow '
                 'machine give "timeout" of "Network" in the Broker\'s preferences more milliseconds.')
OTHER_VERSION = 'The Bridge isn\'t of the library\'s version. Take library and Bridge from the same package.'

CASES = [
    # ---- A host that connects ----
    Case("Good", 0, [], preferences=PATIENT, ok=(
        f'ok       {HOST} is a 32-bit program.',
        f'ok       {LIBRARY} is 32-bit.',
        f'ok       {BRIDGE} is 64-bit.',
        'ok       Library and Bridge have the version *.*.*.',
        f'ok       All libraries that {HOST} imports are found.',
        f'ok       All libraries that {LIBRARY} imports are found.',
        f'ok       All libraries that {BRIDGE} imports are found.',
        'ok       The Agent writes its log to the folder {logs}.',
        f'ok       The preferences {PREFERENCES} are read.',
        'ok       The Agent waits 30000 ms for each of the Bridge\'s two connections (with the preferences in '
        '{folder}\\Broker).',
        'ok       There is no log of an Agent yet.')),
    Case("GoodTrial", 0, [], preferences=PATIENT, arguments=TRIAL,
         ok=('ok       The trial connection has succeeded, after * ms.',)),
    Case("ImportsAreFoundBesideTheHostAndInThePath", 0, [],
         files={'Host.exe': 'doctor/HostOf-Middle.exe', 'Middle.dll': 'doctor/Middle.dll'},
         path_files={'Absent.dll': 'doctor/Absent.dll'}),

    # ---- The host ----
    Case("HostMissing", 1, ['problem  {app}\\None.exe can\'t be opened: *, error 2. Give the path of the program\'s .exe file.'],
         arguments=('{app}\\None.exe',)),
    Case("HostNoProgram", 1, [f'problem  {HOST} isn\'t a Windows program. Give the path of the program\'s .exe file.'],
         files={'Host.exe': 'Broker/global_preferences.json'}),
    Case("HostIsLibrary", 1, [f'problem  {LIBRARY} is a library. Give the .exe file of the program that loads it.'],
         arguments=(LIBRARY,)),
    Case("Host64Bit", 1, [f'problem  {HOST} is a 64-bit (x64) program: it can\'t load the Agent, which is for 32-bit (x86) '
                          'programs. Build the program for 32 bits: -A Win32 with Visual Studio\'s generators of CMake, '
                          'i686-w64-mingw32 with MinGW.'],
         files={'Host.exe': 'blobs.exe'}),

    # ---- Library and Bridge ----
    Case("LibraryMissing", 1, NO_LIBRARY, files={'TVN_Agent_x86.dll': None}),
    Case("LibraryInThePath", 1,
         ['warning  TVN_Agent_x86.dll isn\'t beside the program; the OS\'s search finds {folder}\\path\\TVN_Agent_x86.dll. '
          'Copy it to the program\'s folder: TvnHostLoad without a path looks nowhere else.',
          NO_BRIDGE[0].replace('{app}', '{folder}\\path')],
         files={'TVN_Agent_x86.dll': None}, path_files={'TVN_Agent_x86.dll': 'TVN_Agent_x86.dll'}),
    Case("LibraryNotOfThisSize", 1, [f'problem  {LIBRARY} is a 64-bit (x64) program, and has to be a 32-bit (x86) library. '
                                     'Take TVN_Agent_x86.dll from the package\'s folder bin.',
                                     'warning  There was no trial connection, since the library can\'t be loaded. '
                                     'Correct that first.'],
         files={'TVN_Agent_x86.dll': 'blobs.exe'}, arguments=TRIAL),
    Case("BridgeMissing", 1, NO_BRIDGE, files={'TVN_Agent_Bridge_x64.exe': None}),
    Case("BridgeMissingTrial", 1, [
        *NO_BRIDGE,
        'problem  The trial connection has failed, after * ms: the Bridge wasn\'t started, has ended, or hasn\'t connected in '
        'time. The lines of the trial\'s log say which of these. Start the Bridge by itself to see what it says.',
        log_line('Failed to spawn bridge process', 'The Bridge couldn\'t be started. Check that TVN_Agent_Bridge_x64.exe is '
                 'beside the library and that this user may run it.')],
         files={'TVN_Agent_Bridge_x64.exe': None}, preferences=PATIENT, arguments=TRIAL),
    Case("Bridge32Bit", 1, [f'problem  {BRIDGE} is a 32-bit (x86) program, and has to be a 64-bit (x64) program. Build your '
                            'Bridge for 64 bits, or take the default Bridge from the package\'s folder bin.'],
         files={'TVN_Agent_Bridge_x64.exe': 'samples/PlainC/PlainC.exe'}),
    Case("OtherVersion", 1, ['problem  The library has the version *.*.*, the Bridge the version 2.3.0. '
                             'Take both from the same package.'],
         files={'TVN_Agent_Bridge_x64.exe': 'doctor/OldBridge.exe'}),
    Case("NoVersion", 0, NO_VERSION, files={'TVN_Agent_Bridge_x64.exe': 'doctor/Bridge.exe'}),

    # ---- Imports ----
    Case("ImportOfHost", 1, missing_import('', HOST, 'Absent.dll', 'Copy Absent.dll to {app}.'),
         files={'Host.exe': 'doctor/HostOf-Absent.exe'}),
    Case("ImportOfAnImport", 1, missing_import('', '{app}\\Middle.dll', 'Absent.dll', 'Copy Absent.dll to {app}.'),
         files={'Host.exe': 'doctor/HostOf-Middle.exe', 'Middle.dll': 'doctor/Middle.dll'}),
    Case("ImportOfMinGW", 1, missing_import(
        ' of the MinGW runtime', HOST, 'libstdc++-6.dll',
        'Link it statically (-static), or copy libstdc++-6.dll from the compiler\'s folder to {app}.'),
         files={'Host.exe': 'doctor/HostOf-libstdc++-6.exe'}),
    Case("ImportOfVisualC", 1, missing_import(
        ' of the Visual C++ runtime', HOST, 'vcruntime140_7.dll',
        'Link it statically (/MT), or install the Visual C++ Redistributable for the same word size.'),
         files={'Host.exe': 'doctor/HostOf-vcruntime140_7.exe'}),
    Case("ImportOfVisualCDebug", 1, missing_import(
        ' of Visual C++\'s debug runtime', HOST, 'msvcp140_7d.dll',
        'Build without the debug runtime (/MD or /MT): it comes with Visual Studio only.'),
         files={'Host.exe': 'doctor/HostOf-msvcp140_7d.exe'}),
    Case("ImportOfOtherSize", 1, [f'problem  {HOST} imports Absent.dll, which is found for another word size only: '
                                  '{app}\\Absent.dll. Copy one that fits to {app}.'],
         files={'Host.exe': 'doctor/HostOf-Absent.exe', 'Absent.dll': 'doctor/libwinpthread-1.dll'}),
    Case("ImportOfLibrary", 1,
         [f'warning  {LIBRARY} doesn\'t say which version of Torvane it is for. Run with --try: the two compare their versions '
          'when they connect.',
          *missing_import(' of the MinGW runtime', LIBRARY, 'libstdc++-6.dll', 'Link it statically (-static), or copy '
                          'libstdc++-6.dll from the compiler\'s folder to {app}.'),
          'problem  The library can\'t be used: the Agent\'s library, or one that it needs, isn\'t there: '
          f'{LIBRARY}. Take library and doctor from the same package.'],
         files={'TVN_Agent_x86.dll': 'doctor/ImportingAgent.dll'}, arguments=TRIAL),
    Case("ImportOfBridge", 1, NO_VERSION + missing_import(
        ' of the MinGW runtime', BRIDGE, 'libwinpthread-1.dll',
        'Link it statically (-static), or copy libwinpthread-1.dll from the compiler\'s folder to {app}.'),
         files={'TVN_Agent_Bridge_x64.exe': 'doctor/ImportingBridge.exe'}),
    Case("ImportOfBridgeIsFound", 0, NO_VERSION,
         files={'TVN_Agent_Bridge_x64.exe': 'doctor/ImportingBridge.exe', 'libwinpthread-1.dll': 'doctor/libwinpthread-1.dll'},
         ok=(f'ok       All libraries that {BRIDGE} imports are found.',)),

    # ---- The log's folder ----
    Case("NoLogFolder", 0, ['warning  The folder of the Agent\'s log isn\'t there, and the Agent doesn\'t make it: {logs}. '
                            'Run with --make-log-folder, or make it yourself.'], log_folder=False),
    Case("MakesTheLogFolder", 0, [], log_folder=False, arguments=(HOST, '--make-log-folder'), makes_log_folder=True,
         ok=('ok       The folder of the Agent\'s log has been made: {logs}.',)),

    # ---- Preferences ----
    Case("NoPreferences", 0, [], ok=('ok       The Agent waits 2000 ms for each of the Bridge\'s two connections (the default: '
                                     '{folder}\\Broker has no preferences).',)),
    Case("TheLastPreferencesCount", 0, [], preferences={
        'global_preferences_override.json': '{"Network": {"timeout": 700.9}}',
        'global_preferences_default.json': '{"Network": {"timeout": 900}}',
        'global_preferences.json': '{"Network": {"timeout": 800, "timeout": "x"}, "General": 1}'},
         ok=('ok       The Agent waits 700 ms *',)),
    Case("MalformedPreferences", 0, [f'warning  The preferences {PREFERENCES} aren\'t JSON at line 3, column 5; the Agent '
                                     'ignores them. Correct them there. Comments and a byte order mark at the start aren\'t '
                                     'JSON either.'],
         preferences={'global_preferences.json': '{\n  "Network":\n    timeout: 900}\n'},
         ok=('ok       The Agent waits 2000 ms *',)),
    Case("ByteOrderMark", 0, [f'warning  The preferences {PREFERENCES} aren\'t JSON at line 1, column 1; the Agent ignores '
                              'them. *'], preferences={'global_preferences.json': '\ufeff{"Network": {"timeout": 900}}'}),
    Case("EmptyPreferences", 0, [f'warning  The preferences {PREFERENCES} are empty; the Agent ignores them. '
                                 'Write an object into them, or delete them.'],
         preferences={'global_preferences.json': ''}),
    Case("PreferencesWithoutAnObject", 1, [
        f'problem  The root of the preferences {PREFERENCES} isn\'t an object; the Agent faults when it reads them. '
        'Put what they hold into braces.',
        'problem  The trial\'s process has ended by itself, with 0xC0000005. Look at the last lines of the trial\'s log.'],
         preferences={'global_preferences.json': '["Network"]'}, arguments=TRIAL),
    Case("NoTime", 1, ['problem  The time-out in the preferences {folder}\\Broker is -5 ms, which leaves the Bridge no time to '
                       'connect. Give the number timeout of the object Network some seconds, for example 2000.'],
         preferences={'global_preferences.json': '{"Network": {"timeout": -5}}'}),

    # ---- Trials with Bridges that make a mistake ----
    Case("BridgeNeverConnects", 1, NO_VERSION + [
        'problem  The trial connection has failed, after * ms: the Bridge wasn\'t started, has ended, or hasn\'t connected in '
        'time. The lines of the trial\'s log say which of these. Start the Bridge by itself to see what it says.',
        log_line('Failed to wait for sender pipe', NOT_CONNECTED),
        log_line('Failed to wait for receiver pipe', NOT_CONNECTED)],
         files={'TVN_Agent_Bridge_x64.exe': 'doctor/Bridge.exe'}, preferences=HASTY, arguments=TRIAL,
         environment={'TORVANE_TEST_MISTAKE': 'never connects'}),
    Case("BridgeOfAnotherVersion", 1, NO_VERSION + version_mistake(
        'the Bridge is of another version.', 'Take library and Bridge from the same package.') + [
            log_line('Version mismatch detected: Broker running API version 2.3.0, expected API version *', OTHER_VERSION)],
         files={'TVN_Agent_Bridge_x64.exe': 'doctor/Bridge.exe'}, preferences=PATIENT, arguments=TRIAL,
         environment={'TORVANE_TEST_MISTAKE': 'other version'}),
    Case("BridgeWithAnotherFirstMessage", 1, NO_VERSION + version_mistake(
        'the Bridge\'s first message wasn\'t its version.', 'Take a Bridge of this version.') + [
            log_line('Received unexpected Version blob type', OTHER_VERSION)],
         files={'TVN_Agent_Bridge_x64.exe': 'doctor/Bridge.exe'}, preferences=PATIENT, arguments=TRIAL,
         environment={'TORVANE_TEST_MISTAKE': 'other first message'}),
    Case("BridgeThatSaysNothing", 1, NO_VERSION + [
        'problem  The trial connection had no result within 9000 ms: most likely the Bridge has connected and doesn\'t send its '
        'version. Correct your Bridge: it has to send Version first, without waiting for the Agent\'s.'],
         files={'TVN_Agent_Bridge_x64.exe': 'doctor/Bridge.exe'}, arguments=TRIAL,
         environment={'TORVANE_TEST_MISTAKE': 'silent'}),
    Case("BridgeOfYourOwn", 0, NO_VERSION, files={'TVN_Agent_Bridge_x64.exe': 'doctor/Bridge.exe'}, preferences=PATIENT,
         arguments=TRIAL, ok=('ok       The trial connection has succeeded, after * ms.',)),

    # ---- The newest log ----
    Case("LogWithErrors", 0, [
        log_line('Failed to load patch from C:\\a b\\1.dll', 'A patch library couldn\'t be loaded. Check that it is there, is '
                 '32-bit, and that its own imports are found; the line that begins with Error: has the OS\'s reason.'),
        log_line('Cannot create event for latch', 'The OS couldn\'t create an object that the Agent needs; hot reload doesn\'t '
                 'work in this process. Look for a leak of handles in the program, or another process with an object of that '
                 'name, and start it again.'),
        'warning  The log {logs}\\log_windows_agent_7.txt has the line "Something | else", which the doctor doesn\'t know. It is '
        'of another version than the doctor, or of what is loaded into the program.'],
         logs={'log_windows_agent_7.txt': record('DBG', 'Failed to create thread') +
               record('ERR', 'Failed to load patch from C:\\a b\\1.dll') + record('PNC', 'Cannot create event for latch') +
               record('ERR', 'Something | else') + record('SCS', 'Pipes connected'),
               'log_windows_agent_9.txt': record('ERR', 'Out of memory')}),
    Case("LogWithARepeatedError", 0, [log_line('Unknown blob type 77', '*'), log_line('Out of memory', '*')],
         logs={'log_windows_agent_7.txt': record('ERR', 'Out of memory') + record('ERR', 'Unknown blob type 77') +
               record('ERR', 'Out of memory')}),
    Case("LogOfHealth", 0, [],
         logs={'log_windows_agent_7.txt': record('DBG', 'x') + record('ERR', 'Failed to find process heap critical section')},
         ok=('ok       The log {logs}\\log_windows_agent_7.txt has the line "Failed to find process heap critical section", which '
             'is no fault: *',)),
    Case("LogWithoutErrors", 0, [], logs={'log_windows_agent_7.txt': record('DBG', 'x')},
         ok=('ok       The log {logs}\\log_windows_agent_7.txt has no Error or Panic line.',)),

    # ---- The command line ----
    Case("Nothing", 2, [], arguments=(),
         errors=('torvane-doctor: Give the path of the program to check. See torvane-doctor --help.',)),
    Case("TwoPrograms", 2, [], arguments=(HOST, 'Other.exe'),
         errors=('torvane-doctor: Give one program only; the second one is "Other.exe". See torvane-doctor --help.',)),
    Case("UnknownOption", 2, [], arguments=(HOST, '--tri'),
         errors=('torvane-doctor: There is no option "--tri". See torvane-doctor --help.',)),
    Case("Help", 0, None, arguments=('--help',),
         ok=('torvane-doctor HOST [--try] [--make-log-folder]', 'Exit status: 0  with --try: the trial has connected, and there is no problem besides. *')),
    Case("Version", 0, ['torvane-doctor *.*.*'], arguments=('--version',)),
]
