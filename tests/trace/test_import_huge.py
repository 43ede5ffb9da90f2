#!/usr/bin/env python3
"""Import reads a file of any size in little memory."""

import os
import resource
import subprocess
import sys
import unittest

from corvid_trace.format import read_trace
from support import COMMAND, FilesTest


class HugeFileTest(FilesTest):

    SIZE = 100_000_000
    MEMORY = 200 << 20

    def run_limited(self, write):
        """Imports what write(file) makes as a log, in little memory."""
        with open(self.path("huge"), "wb") as file:
            write(file)
        return subprocess.run(
            [sys.executable, "-B", COMMAND, "import", "huge", "--format", "log", "-o", "trace"],
            cwd=self.folder, capture_output=True, text=True, check=False,
            preexec_fn=lambda: resource.setrlimit(resource.RLIMIT_AS, (self.MEMORY, self.MEMORY)))

    def test_log_of_100_mb_is_read_in_little_memory(self):
        other = b"1763793600.000  900  901 I Other: nothing about it at all, %04d\n"
        block = b"".join(other % n for n in range(10000))
        def write(file):
            for n in range(self.SIZE // len(block) + 1):
                file.write(block)
                file.write(b"17637936%02d.000  1  1 I CorvidWifi: X: rssi:-50 freq:5180\n" % n)
        done = self.run_limited(write)
        self.assertEqual(done.returncode, 0, done.stderr)
        self.assertGreater(os.path.getsize(self.path("huge")), self.SIZE)
        self.assertGreater(sum(1 for record in read_trace(self.path("trace"))[1]
                               if record["type"] == "sample"), 100)

    def test_line_of_100_mb_is_passed_over(self):
        def write(file):
            for _ in range(100):
                file.write(b"x" * (self.SIZE // 100))
            file.write(b"\n1.000  1  1 I CorvidWifi: X: rssi:-50 freq:5180\n")
        done = self.run_limited(write)
        self.assertEqual(done.returncode, 0, done.stderr)
        self.assertIn("huge:1: the line is longer", done.stderr)
        self.assertIn("1 sample", done.stderr)

    def test_binary_of_100_mb_is_refused(self):
        noise = os.urandom(1 << 20)
        done = self.run_limited(lambda file: [file.write(noise) for _ in range(96)])
        self.assert_refused(done, 1, "nothing in it")


if __name__ == "__main__":
    unittest.main()
