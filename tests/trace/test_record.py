#!/usr/bin/env python3
"""What corvid-wifi records keeps the format, and what it shows meanwhile on a terminal."""

import os
import pty
import subprocess
import unittest

from corvid_trace.format import read_trace, wrong_with_header, wrong_with_record
from support import FilesTest, read_terminal

BIN = os.path.join(os.environ["CORVID_BUILD"], "bin")


class RecordTest(FilesTest):

    def setUp(self):
        super().setUp()
        os.makedirs(self.path("dev/hwbinder"))
        self.environment = {**os.environ, "CORVID_WIFI_ROOT": self.folder}
        self.service = subprocess.Popen([os.path.join(BIN, "fake-wifi-service")], text=True,
                                        stdin=subprocess.PIPE, stdout=subprocess.PIPE,
                                        env=self.environment)
        self.addCleanup(self.service.wait)
        self.addCleanup(self.service.stdout.close)
        self.addCleanup(self.service.stdin.close)
        self.assertEqual(self.service.stdout.readline(), "ready\n")

    def tell(self, line):
        self.service.stdin.write(line + "\n")
        self.service.stdin.flush()
        self.assertEqual(self.service.stdout.readline(), "ok\n")

    def record(self, *options, stderr=subprocess.PIPE):
        return subprocess.run([os.path.join(BIN, "corvid-wifi"), "record", self.path("walk.jsonl"),
                               "--interval", "100ms", *options], env=self.environment, text=True,
                              stdout=subprocess.PIPE, stderr=stderr, check=False)

    def test_recording_keeps_the_format(self):
        self.tell("sta 5180 -58 4")
        self.tell("p2p 2437 17")
        self.assertEqual(self.record("--until", "250ms").returncode, 0)
        header, records = read_trace(self.path("walk.jsonl"))
        self.assertIsNone(wrong_with_header(header))
        records = list(records)
        self.assertEqual([record["type"] for record in (records[0], records[1], records[-1])],
                         ["daemon", "sample", "end"])
        for record in records:
            self.assertIsNone(wrong_with_record(record), record)
        self.assertEqual(records[1]["sta"]["bandwidth_mhz"], "80+80")
        self.assertIsNone(records[1]["p2p"]["bandwidth_mhz"])

    def test_terminal_shows_one_line_that_is_written_over(self):
        self.tell("sta 5180 -58 3")
        reading, writing = pty.openpty()
        self.addCleanup(os.close, reading)
        try:
            done = self.record("--until", "250ms", stderr=writing)
        finally:
            os.close(writing)
        shown = read_terminal(reading)
        self.assertEqual((done.returncode, done.stdout), (0, ""))
        self.assertIn("\r\x1b[K0 s, 1 samples: 5180 MHz, -58 dBm", shown)
        self.assertIn("\r\x1b[Kcorvid-wifi: ", shown)

    def test_pipe_gets_no_progress(self):
        done = self.record("--until", "250ms")
        self.assertNotIn("\x1b", done.stderr)
        self.assertNotIn("\r", done.stderr)


if __name__ == "__main__":
    unittest.main()
