#!/usr/bin/env python3
"""Tests of replay with the recorded walks that come with corvid-trace."""

import concurrent.futures
import glob
import json
import os

import guest
from support import SOURCE, FilesTest

WALKS = sorted(glob.glob(os.path.join(SOURCE, "trace", "walks", "*.jsonl")))


class GuestWalksTest(FilesTest):

    def decisions(self, walk, *words):
        """The commands of a replay and what came back, and the times of those that set a power."""
        result = f"{os.path.basename(walk)}{''.join(words)}"
        done = self.run_command("replay", walk, "-o", result, *words)
        self.assertEqual((done.returncode, done.stderr), (0, ""))
        records = [json.loads(line) for line in self.read(result).splitlines()]
        commands = [(record["interface"], record["text"], record["reply"]) for record in records
                    if record["type"] == "command"]
        return commands, [record["t"] for record in records if record["type"] == "power"]

    def test_daemon_decides_in_virtual_time_as_in_real_time(self):
        self.assertGreaterEqual(len(WALKS), 4)
        with concurrent.futures.ThreadPoolExecutor(len(WALKS)) as executor:
            by_the_clock = list(executor.map(
                lambda walk: self.decisions(walk, "--real-time"), WALKS))
        for walk, (commands, times) in zip(WALKS, by_the_clock):
            with self.subTest(os.path.basename(walk)):
                virtual_commands, virtual_times = self.decisions(walk)
                self.assertListEqual(virtual_commands, commands)
                self.assertGreater(len(times), 5)
                for virtual, real in zip(virtual_times, times):
                    self.assertAlmostEqual(virtual, real, delta=0.5)


if __name__ == "__main__":
    guest.main()
