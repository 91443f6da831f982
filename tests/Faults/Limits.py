"""Which of the known limitations an outcome is. Each rule: functions or bad company, outcomes, the limitation's name in
docs/architecture.md. What matches no rule is a fault."""

import re

ANY_WAIT = r"(hang|blocked): .*"
LINK_ENDS = [  # the receiver or the sender thread ends by itself, and the Bridge doesn't know
    (r"hang: reload", "Reload without an end"),
    (r"hang: restart", "Restart without an answer"),
    (r"(hang|blocked): exceptions", "Undecided exception"),
    (r"blocked: enabling", "Link that ends on one side"),
]

RULES = [
    # The error code takes the place of the handle. It is one of the host's here.
    (r"CreateEventW.*|CreateSemaphoreW", r"changed: (closed|signalled) the host's handle 0x5A8(; .*)?",
     "Object that can't be created"),
    (r"CreateEventW.*|CreateSemaphoreW", ANY_WAIT, "Object that can't be created"),
    # A module of a list that can't be read is waited for, but never sent.
    (r"CreateFileMappingW|CreateFileW|GetModuleFileNameW|MapViewOfFile", r"blocked: enabling", "Module that can't be read"),
    # What startup resolves is called without a look, but for one function.
    (r"(GetModuleHandleA|GetProcAddress).*", r"crash: 0xC0000005 .*", "Missing function of the OS"),
    # Code is written whether or not its page could be made writable, and executed whether or not it is executable again.
    (r"VirtualProtect", r"crash: 0xC0000005 .*", "Refused page protection"),
    # Nobody looks at what the heaps return.
    (r"(HeapAlloc|HeapCreate).*", r"crash: 0xC0000005 .*", "Memory"),
]


def add(functions, outcomes):
    RULES.extend((functions, outcome, name) for outcome, name in outcomes)


add(r"(ReadFile|WriteFile).*", LINK_ENDS)
add(r"(ReleaseSemaphore|WaitForSingleObject|SetEvent).*", [*LINK_ENDS[:3], (ANY_WAIT, "Failed wait")])
add(r"WaitForSingleObject.*", [(r"changed: the Agent still runs", "Failed wait")])
add(r"_beginthreadex.*", [(ANY_WAIT, "Thread that can't be started")])
add(r"(agent-bridge|heartbeat) mutex is owned all the time", [(ANY_WAIT, "Owned mutex")])
add(r"bridge pipe has a client that .*", [(r"hang: enabling", "Silent client")])
add(r"Bridge stops reading.*", [(r"blocked: .*", "Bridge that stops reading")])
add(r"Bridge sends garbage", LINK_ENDS)
add(r"Bridge answers another's exception", [(r"crash: 0xC0000005 in exceptions", "Trusted Blobs")])


def find(what, outcome):
    """\\return the name of a limitation; None if there is none."""
    for functions, outcomes, name in RULES:
        if re.fullmatch(functions, what) and re.fullmatch(outcomes, outcome):
            return name
    return None


def missingNames(architecture):
    """The names that the document doesn't have."""
    listed = set(re.findall(r"^\| ([^|]+?) \|", architecture.partition("## Known limitations")[2], re.MULTILINE))
    return sorted({name for _, _, name in RULES} - listed)
