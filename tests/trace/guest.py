"""What tests in the replaying machine share."""

import os
import sys
import unittest

from corvid_trace.machine import NoMachine, Player
from corvid_trace.programs import Programs

# ctest takes this status for a test that was skipped.
_SKIPPED = 77


def main():
    """As unittest.main(); skipped where the machine can't run, unless CORVID_LAB is "required"."""
    try:
        Player(Programs())
    except NoMachine as error:
        print(error)
        sys.exit(1 if os.environ.get("CORVID_LAB") == "required" else _SKIPPED)
    unittest.main()
