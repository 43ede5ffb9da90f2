#!/usr/bin/env python3
"""Tests of replay in virtual time, in the machine."""

import json
import os

import guest
import odd_walks
from support import CONTROLLED, FilesTest, sample

# Down and up through all steps, a lost link, and another access point, in 40 s.
WALK = [sample(t, rssi) for t, rssi in enumerate(
    [-45] * 12 + [-62] * 5 + [-80] * 5 + [-62] * 3 + [-50] * 5)]
WALK += [{"type": "sample", "t": 30, "sta": None, "p2p": None}]
WALK += [sample(t, -58, 2437) for t in range(32, 40)]


class GuestReplayTest(FilesTest):

    def replay(self, *words, walk=None):
        self.write("walk", [CONTROLLED, *(walk or WALK)])
        done = self.run_command("replay", "walk", "-o", "result", "--force", *words)
        self.assertEqual((done.returncode, done.stderr), (0, ""))
        return self.read("result")

    @staticmethod
    def of_type(result, kind):
        return [record for record in map(json.loads, result.splitlines())
                if record["type"] == kind]

    def decisions(self, result):
        return [(record["interface"], record["text"], record["reply"])
                for record in self.of_type(result, "command")]

    def test_same_trace_gives_the_same_result_to_the_byte(self):
        first = self.replay()
        for _ in range(4):
            self.assertEqual(self.replay(), first)

    def test_daemon_decides_as_in_real_time_and_at_the_same_times(self):
        virtual, real = self.replay(), self.replay("--real-time")
        self.assertListEqual(self.decisions(virtual), self.decisions(real))
        for fast, slow in zip(self.of_type(virtual, "power"), self.of_type(real, "power")):
            self.assertEqual({**fast, "t": 0}, {**slow, "t": 0})
            self.assertAlmostEqual(fast["t"], slow["t"], delta=0.5)

    def test_power_follows_the_signal(self):
        powers = self.of_type(self.replay(), "power")
        self.assertEqual([(round(power["t"]), power["dbm"], power["step"]) for power in powers],
                         [(0, 20, "upper"), (5, 20, "upper"), (10, 5, "lower"),
                          (15, 9, "middle"), (20, 20, "upper"), (25, 5, "lower"),
                          (30, 20, "upper"), (32, 20, "upper"), (37, 20, "upper")])

    def test_setting_changes_what_the_daemon_does(self):
        result = self.replay("--set", "txpower.dbm.lower=3", "--set", "dbm.upper=18")
        powers = [power["dbm"] for power in self.of_type(result, "power")]
        self.assertIn(3, powers)
        self.assertIn(18, powers)
        self.assertNotIn(5, powers)
        header = json.loads(result.splitlines()[0])
        self.assertEqual(header["thresholds"]["dbm_lower"], 3)
        self.assertEqual(header["settings"]["persist.vendor.wifi.txpower.dbm.upper"], "18")

    def test_atoms_tell_the_time_of_the_trace(self):
        self.write("walk", [{**CONTROLLED, "start_wall": 1_700_000_000}, *WALK])
        done = self.run_command("replay", "walk", "-o", "result", "--set", "telemetry.enable=true")
        self.assertEqual(done.returncode, 0)
        first = self.of_type(self.read("result"), "atom")[0]["values"][0]["int"]
        begun = 1_700_000_000_000 & 0xFFFFFFFF
        begun -= (begun & 0x80000000) << 1
        self.assertLess(abs(first - begun), 10_000)

    def test_result_is_replayed_as_its_trace(self):
        first = self.replay()
        self.write("again", first)
        done = self.run_command("replay", "again", "-o", "result", "--force")
        self.assertEqual((done.returncode, done.stderr), (0, ""))
        self.assertEqual(self.read("result"), first)

    def test_emulator_that_fails_is_quoted(self):
        path = self.write("qemu-system-x86_64", "#!/bin/sh\necho no memory for the guest >&2\nexit 1\n")
        os.chmod(path, 0o755)
        self.write("walk", [CONTROLLED, *WALK])
        done = self.run_command(
            "replay", "walk", "-o", "result",
            env={**os.environ, "PATH": f"{self.folder}:{os.environ['PATH']}"})
        self.assert_refused(done, 1, "no memory for the guest", "--real-time")

    def test_walk_that_makes_no_sense_is_played_to_its_end(self):
        for seed in range(5):
            with self.subTest(seed=seed):
                walk = odd_walks.odd_walk(seed)
                result = self.replay(walk=walk)
                self.assertEqual(len(self.of_type(result, "note")),
                                 sum(record["type"] == "note" for record in walk))

    def test_daemon_that_is_restarted_follows_the_link_again(self):
        walk = [sample(t, -50) for t in range(8)]
        walk += [{"type": "daemon", "t": 8, "state": "ended"},
                 {"type": "daemon", "t": 10, "state": "started"}]
        walk += [sample(t, -50) for t in range(11, 20)]
        starts = [record["t"] for record in self.of_type(self.replay(walk=walk), "log")
                  if record["text"] == "service: Starting native wifi service."]
        self.assertEqual([round(t) for t in starts], [-1, 10])

    def test_daemon_that_is_restarted_with_other_properties_obeys_them(self):
        properties = {**CONTROLLED["properties"], "persist.vendor.wifi.txpower.dbm.upper": "18"}
        walk = [*(sample(t, -50) for t in range(8)), {"type": "daemon", "t": 8, "state": "ended"},
                {"type": "daemon", "t": 10, "state": "started", "properties": properties},
                {"type": "sample", "t": 12, "sta": None, "p2p": None},
                *(sample(t, -50) for t in range(13, 20))]
        powers = [(power["t"] > 9, power["dbm"], power["step"]) for power in
                  self.of_type(self.replay(walk=walk), "power")]
        self.assertEqual(sorted(set(powers)), [(False, 20, "upper"), (True, 18, "upper")])

        result = self.replay("--set", "dbm.upper=17", walk=walk)
        self.assertEqual({power["dbm"] for power in self.of_type(result, "power")}, {17})


if __name__ == "__main__":
    guest.main()
