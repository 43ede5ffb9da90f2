#!/usr/bin/env python3
"""Tests of replay by the clock, and of what it refuses."""

import contextlib
import json
import os
import subprocess
import sys
import time
import unittest

from corvid_trace.programs import DAEMON, Programs
from support import COMMAND, CONTROLLED, FilesTest, sample


def processes_with(mark):
    """The programs of all processes that have this in their environment."""
    found = []
    for number in filter(str.isdigit, os.listdir("/proc")):
        with contextlib.suppress(OSError):  # another user's, or it has ended
            with open(f"/proc/{number}/environ", "rb") as file:
                if mark.encode() in file.read().split(b"\0"):
                    found.append(os.readlink(f"/proc/{number}/exe"))
    return found


class ReplayTest(FilesTest):

    def setUp(self):
        super().setUp()
        self.write("walk", [CONTROLLED, sample(0, -45), sample(1, -50)])

    def test_real_time_needs_no_virtual_machine(self):
        done = self.run_command("replay", "walk", "--real-time", "-o", "result",
                                env={**os.environ, "PATH": "/nowhere"})
        self.assertEqual((done.returncode, done.stderr), (0, ""))
        records = [json.loads(line) for line in self.read("result").splitlines()]
        self.assertTrue(records[0]["result"])
        self.assertEqual([record["t"] for record in records if record["type"] == "sample"], [0, 1])
        powers = [record for record in records if record["type"] == "power"]
        self.assertEqual([(power["dbm"], power["step"]) for power in powers], [(20, "upper")])
        self.assertAlmostEqual(powers[0]["t"], 0, delta=0.5)

    def test_missing_virtual_machine_is_said_with_the_way_out(self):
        done = self.run_command("replay", "walk", "-o", "result",
                                env={**os.environ, "PATH": "/nowhere"})
        self.assert_refused(done, 1, "qemu-system-x86_64 is not installed", "--real-time")
        self.assertFalse(os.path.exists(self.path("result")))

    def test_power_control_that_is_off_is_said(self):
        self.write("walk", [{**CONTROLLED, "properties": {}}, sample(0, -45)])
        done = self.run_command("replay", "walk", "--real-time", "-o", "result")
        self.assertEqual(done.returncode, 0)
        self.assertIn("--set txpower.enable.sta=true", done.stderr)

    def test_result_is_not_written_over(self):
        self.write("result", "precious")
        done = self.run_command("replay", "walk", "--real-time", "-o", "result")
        self.assert_refused(done, 1, "result", "--force")
        self.assertEqual(self.read("result"), "precious")

    def test_folder_that_is_missing_is_named_before_the_replay(self):
        for command, *words in (("replay", "walk"), ("report", "walk")):
            done = self.run_command(command, *words, "-o", "nowhere/result",
                                    env={**os.environ, "PATH": "/nowhere"})
            self.assert_refused(done, 1, "nowhere/result: there is no folder nowhere")

    def test_same_property_twice_is_wrong_usage(self):
        done = self.run_command("replay", "walk", "--set", "dbm.lower=3", "--set",
                                "txpower.dbm.lower=4", "-o", "result")
        self.assert_refused(done, 2, "txpower.dbm.lower has a value already")

    def test_simulator_that_dies_in_the_middle_of_a_line_is_said(self):
        os.makedirs(self.path("build/bin"))
        real = Programs()
        for name in (DAEMON, "corvid-properties"):
            os.symlink(real.find(name), self.path("build/bin/" + name))
        # Its arguments are those of headset.py: --record is the fifth.
        self.write("build/bin/corvid-sim", "#!/bin/sh\nprintf '{\"t\":1,\"te\\303' >\"$6\"\nkill -9 $$\n")
        os.chmod(self.path("build/bin/corvid-sim"), 0o755)
        done = self.run_command("replay", "walk", "--real-time", "-o", "result",
                                env={**os.environ, "CORVID_BUILD": self.path("build")})
        self.assert_refused(done, 1, "walk: the play's record:1: the line is not whole",
                            "ended with status -9")
        self.assertFalse(os.path.exists(self.path("result")))

    def test_no_process_stays_after_a_signal_to_end(self):
        self.write("walk", [CONTROLLED, sample(0, -45), sample(600, -50)])
        mark = f"CORVID_TEST_MARK={self.folder}"
        name, value = mark.split("=")
        with subprocess.Popen([sys.executable, "-B", COMMAND, "replay", "walk", "--real-time", "-o",
                               "result"], cwd=self.folder, stderr=subprocess.PIPE, text=True,
                              env={**os.environ, name: value}) as process:
            while len(processes_with(mark)) < 3:  # the command, the simulator, the daemon
                self.assertIsNone(process.poll())
                time.sleep(0.01)
            process.terminate()
            _, said = process.communicate()
        self.assertEqual((process.returncode, said), (130, "corvid-trace: interrupted\n"))
        self.assertEqual(processes_with(mark), [])
        self.assertFalse(os.path.exists(self.path("result")))

    def test_setting_that_fits_several_properties_is_wrong_usage(self):
        done = self.run_command("replay", "walk", "--set", "upper=3", "-o", "result")
        self.assert_refused(done, 2, "several", "txpower.dbm.upper", "txpower.rssi.upper")

    def test_setting_out_of_range_is_wrong_usage(self):
        done = self.run_command("replay", "walk", "--set", "dbm.upper=200", "-o", "result")
        self.assert_refused(done, 2, "0 to 80")

    def test_trace_without_anything_to_replay_is_refused(self):
        self.write("walk", [CONTROLLED, {"type": "note", "t": 0, "text": "nothing"}])
        done = self.run_command("replay", "walk", "-o", "result")
        self.assert_refused(done, 1, "walk: there is nothing to replay")

    def test_table_is_answered_with_the_command_that_reads_it(self):
        self.write("walk", "time_s,rssi_dbm\n0,-50\n")
        done = self.run_command("replay", "walk", "-o", "result")
        self.assert_refused(done, 1, "walk:1: ", "corvid-trace import")

    def test_line_that_no_headset_can_play_is_named(self):
        self.write("walk", [CONTROLLED, sample(0, -45), sample(1, -45, 60000)])
        done = self.run_command("replay", "walk", "-o", "result")
        self.assert_refused(done, 1, "walk:3: the frequency is 60000 MHz")

    def test_build_that_is_missing_is_named(self):
        done = self.run_command("replay", "walk", "-o", "result",
                                env={**os.environ, "CORVID_BUILD": self.folder})
        self.assert_refused(done, 1, os.path.join(self.folder, "bin"), "CORVID_BUILD")


if __name__ == "__main__":
    unittest.main()
