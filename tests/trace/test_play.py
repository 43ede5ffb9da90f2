#!/usr/bin/env python3
"""A play of the simulator, imported and drawn, as ./run.sh does it at its end."""

import json
import os
import subprocess
import unittest

from support import SOURCE, FilesTest

BUILD = os.environ.get("CORVID_BUILD", os.path.join(SOURCE, "build"))
PROGRAMS = os.path.join(BUILD, "bin")


class PlayTest(FilesTest):

    def test_a_play_becomes_a_page_with_thresholds_and_steps(self):
        subprocess.run(
            [os.path.join(PROGRAMS, "corvid-sim"), "--daemon",
             os.path.join(PROGRAMS, "vendor.corvid.hardware.wifi@1.0-service"), "--no-dump",
             "--record", self.path("record"), "--speed", "10",
             os.path.join(SOURCE, "sim/scenarios/power-walk.scn")],
            stdout=subprocess.DEVNULL, check=True)
        self.run_command("import", "record", "-o", "walk.result")
        done = self.run_command("compare", "--json", "walk.result")
        values = json.loads(done.stdout)["results"][0]["measures"]
        for key in ("time_upper_s", "time_middle_s", "time_lower_s", "energy_mws"):
            self.assertGreater(values[key], 0, key)
        done = self.run_command("report", "walk.result", "-o", "walk.html")
        self.assertEqual((done.returncode, done.stderr), (0, ""))
        self.assertIn('"rssi_upper":-55', self.read("walk.html"))


if __name__ == "__main__":
    unittest.main()
