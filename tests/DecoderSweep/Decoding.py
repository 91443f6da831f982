"""Runs the program that asks the instruction decoder for lengths."""

import subprocess
import sys

LONGEST = 15
LIMIT = 300  # seconds that a program may take


def decode(sweep, records):
    """The length of the instruction at the start of each record of 15 bytes, 0 where there is none.

    sweep is the program after all that has to precede it.
    """
    lengths = subprocess.run(sweep, input=b"".join(records), stdout=subprocess.PIPE, check=True,
                             timeout=LIMIT).stdout
    if len(lengths) != len(records):
        sys.exit("%d lengths for %d records" % (len(lengths), len(records)))
    return lengths
