#!/usr/bin/env python3
"""Tests of replay with the recorded walks that come with corvid-trace."""

import concurrent.futures
import glob
import json
import os
import threading
import time

import guest
from support import SOURCE, FilesTest

WALKS = sorted(glob.glob(os.path.join(SOURCE, "trace", "walks", "*.jsonl")))


class Lateness:
    """How much later than it wanted a thread woke at worst, s, while this was entered."""

    def __init__(self):
        self.longest = 0.0
        self._ended = threading.Event()
        self._thread = threading.Thread(target=self._watch)

    def _watch(self):
        wanted = 0.05
        before = time.monotonic()
        while not self._ended.wait(wanted):
            now = time.monotonic()
            self.longest = max(self.longest, now - before - wanted)
            before = now

    def __enter__(self):
        self._thread.start()
        return self

    def __exit__(self, *_):
        self._ended.set()
        self._thread.join()


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
        virtual = {walk: self.decisions(walk) for walk in WALKS}
        left = WALKS
        for last in (False, False, True):
            with Lateness() as lateness, \
                    concurrent.futures.ThreadPoolExecutor(len(left)) as executor:
                by_the_clock = list(executor.map(
                    lambda walk: self.decisions(walk, "--real-time", "--force"), left))
            # On a machine that stands still for longer the daemon finds another sample.
            may_repeat = lateness.longest > 0.1 and not last
            differing = []
            for walk, (commands, times) in zip(left, by_the_clock):
                virtual_commands, virtual_times = virtual[walk]
                if may_repeat and virtual_commands != commands:
                    differing.append(walk)
                    continue
                with self.subTest(os.path.basename(walk)):
                    self.assertListEqual(virtual_commands, commands)
                    self.assertGreater(len(times), 5)
                    for virtual_time, real in zip(virtual_times, times):
                        self.assertAlmostEqual(virtual_time, real, delta=0.5)
            left = differing
            if not left:
                break


if __name__ == "__main__":
    guest.main()
