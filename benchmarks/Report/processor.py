"""Keeps everything that takes part in a measurement on one processor."""

import contextlib
import os
from pathlib import Path


def findServers(prefix):
    """The processes of Wine's server for a prefix: their folder is named after the prefix's device and inode."""
    status = prefix.stat()
    name = f"server-{status.st_dev:x}-{status.st_ino:x}"
    for process in Path("/proc").glob("[0-9]*"):
        with contextlib.suppress(OSError):
            if os.path.basename(os.readlink(process / "cwd")) == name:
                yield int(process.name)


@contextlib.contextmanager
def oneProcessor(prefix):
    """For this process, what it starts, and Wine's server if it runs already; they get all of theirs back."""
    whole = os.sched_getaffinity(0)
    processes = [0, *findServers(prefix)]
    try:
        for process in processes:
            with contextlib.suppress(OSError):
                os.sched_setaffinity(process, {min(whole)})
        yield
    finally:
        for process in [0, *findServers(prefix)]:
            with contextlib.suppress(OSError):
                os.sched_setaffinity(process, whole)
