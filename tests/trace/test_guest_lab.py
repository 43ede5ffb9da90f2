#!/usr/bin/env python3
"""Tests of replay in the lab."""

import json
import os

import guest
from support import CONTROLLED, SOURCE, FilesTest, sample


class GuestLabTest(FilesTest):

    def powers(self, walk, *words):
        """The power decisions, of a group's whatever its interface is called."""
        done = self.run_command("replay", walk, "-o", "result", "--force", *words)
        self.assertEqual(done.returncode, 0, done.stderr)
        records = [json.loads(line) for line in self.read("result").splitlines()]
        return [{**record, "interface": record["interface"].replace("p2p-wlan0-0", "p2p0")}
                for record in records if record["type"] == "power"]

    def assert_decides_alike(self, walk):
        simulated, real = self.powers(walk), self.powers(walk, "--on", "lab")
        self.assertListEqual([{**power, "t": 0} for power in real],
                             [{**power, "t": 0} for power in simulated])
        for one, other in zip(real, simulated):
            self.assertAlmostEqual(one["t"], other["t"], delta=0.5)

    def test_daemon_decides_on_a_real_stack_as_on_the_simulated_headset(self):
        # Through all steps; then the link is lost, and found again on the other band.
        walk = [sample(t, rssi) for t, rssi in enumerate(
            [-45] * 12 + [-62] * 5 + [-80] * 5 + [-62] * 3 + [-50] * 5)]
        walk += [{"type": "sample", "t": t, "sta": None, "p2p": None} for t in range(30, 36)]
        walk += [sample(t, -58, 2437) for t in range(36, 44)]
        self.assert_decides_alike(self.write("walk", [CONTROLLED, *walk]))

    def test_recorded_walks_are_decided_alike(self):
        for walk in ("stairway", "two-rooms"):
            with self.subTest(walk):
                self.assert_decides_alike(os.path.join(SOURCE, "trace", "walks", walk + ".jsonl"))


if __name__ == "__main__":
    guest.main()
