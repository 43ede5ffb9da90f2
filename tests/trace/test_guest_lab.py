#!/usr/bin/env python3
"""Tests of replay in the lab."""

import json

import guest
from support import HEADER, FilesTest, sample

ENABLED = {**HEADER, "type": "header", "format": "corvid-trace", "version": 1,
           "properties": {"persist.vendor.wifi.txpower.enable.sta": "true"}}


class GuestLabTest(FilesTest):

    def powers(self, *words):
        done = self.run_command("replay", "walk", "-o", "result", "--force", *words)
        self.assertEqual((done.returncode, done.stderr), (0, ""))
        return [record for record in map(json.loads, self.read("result").splitlines())
                if record["type"] == "power"]

    def test_daemon_decides_on_a_real_stack_as_on_the_simulated_headset(self):
        # Through all steps; then the link is lost, and found again on the other band.
        walk = [sample(t, rssi) for t, rssi in enumerate(
            [-45] * 12 + [-62] * 5 + [-80] * 5 + [-62] * 3 + [-50] * 5)]
        walk += [{"type": "sample", "t": t, "sta": None, "p2p": None} for t in range(30, 36)]
        walk += [sample(t, -58, 2437) for t in range(36, 44)]
        self.write("walk", [ENABLED, *walk])
        simulated, real = self.powers(), self.powers("--on", "lab")
        self.assertListEqual([{**power, "t": 0} for power in real],
                             [{**power, "t": 0} for power in simulated])
        for one, other in zip(real, simulated):
            self.assertAlmostEqual(one["t"], other["t"], delta=0.5)


if __name__ == "__main__":
    guest.main()
