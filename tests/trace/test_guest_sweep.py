#!/usr/bin/env python3
"""Tests of sweeps in the machine."""

import json
import os
import pty
import signal
import subprocess
import sys
import time

import guest
from support import COMMAND, CONTROLLED, FilesTest, read_terminal, sample

VALUES = ("--set", "txpower.rssi.upper=-60,-50", "--set", "dbm.lower=3:5:1")
ROWS = 6


class GuestSweepTest(FilesTest):

    def setUp(self):
        super().setUp()
        self.write("walk", [CONTROLLED, *(sample(t, rssi) for t, rssi in enumerate(
            [-45] * 12 + [-57] * 6 + [-80] * 8))])

    def sweep(self, *words, folder="sweep"):
        done = self.run_command("sweep", "walk", *VALUES, "-o", folder, *words)
        self.assertEqual((done.returncode, done.stderr), (0, ""))
        return self.read(os.path.join(folder, "rows.csv"))

    def lines_of_part(self):
        path = self.path("sweep/part.jsonl")
        return self.read("sweep/part.jsonl").count("\n") if os.path.exists(path) else 0

    def test_sweep_that_is_interrupted_goes_on_and_ends_the_same(self):
        whole = self.sweep(folder="whole")
        for number in (signal.SIGINT, signal.SIGTERM):
            with subprocess.Popen(
                    [sys.executable, "-B", COMMAND, "sweep", "walk", *VALUES, "-o", "sweep",
                     "--jobs", "1", "--force"], cwd=self.folder, stderr=subprocess.PIPE) as process:
                while self.lines_of_part() != 1:  # until it has begun anew
                    self.assertIsNone(process.poll())
                    time.sleep(0.01)
                while self.lines_of_part() < 3:
                    self.assertIsNone(process.poll())
                    time.sleep(0.01)
                process.send_signal(number)
                _, said = process.communicate()
            self.assertEqual(process.returncode, 130, said)
            done = self.lines_of_part() - 1
            self.assertLess(done, ROWS)
            kept = self.read("sweep/part.jsonl")
            self.assertEqual(self.sweep(), whole)
            self.assertTrue(self.read("sweep/part.jsonl").startswith(kept))

    def test_commands_of_the_jobs_file_and_merge_give_the_same_rows(self):
        self.run_command("sweep", "walk", *VALUES, "-o", "parts", "--jobs-file", "jobs",
                         "--batch-size", "4", "--keep-results")
        jobs = self.read("jobs").splitlines()
        self.assertEqual(len(jobs), 2)
        for job in jobs:
            done = subprocess.run(["sh", "-c", job], cwd=self.folder, capture_output=True,
                                  env={**os.environ, "PYTHONDONTWRITEBYTECODE": "1"}, check=False)
            self.assertEqual((done.returncode, done.stderr), (0, b""))
        self.assertEqual(self.run_command("merge", "parts", "-o", "all").returncode, 0)
        alone = json.loads(self.read(self.path("all/sweep.json")))
        self.sweep()
        together = json.loads(self.read("sweep/sweep.json"))
        self.assertEqual(alone["points"], together["points"])
        self.assertEqual(alone["front"], together["front"])
        for row in alone["rows"]:
            self.assertTrue(os.path.exists(self.path(os.path.join("all", row["result"]))), row)

    def test_progress_is_shown_on_a_terminal_with_what_is_left(self):
        outside, inside = pty.openpty()
        self.addCleanup(os.close, outside)
        with subprocess.Popen([sys.executable, "-B", COMMAND, "sweep", "walk", *VALUES, "-o", "sweep"],
                              cwd=self.folder, stderr=inside) as process:
            os.close(inside)
            shown = read_terminal(outside)
            self.assertEqual(process.wait(), 0)
        self.assertRegex(shown, r"\[#{10} {10}\] 3 of 6 replays, \d+ s left")

    def test_rows_measure_what_their_settings_do(self):
        self.sweep()
        points = json.loads(self.read("sweep/sweep.json"))["points"]
        name = "persist.vendor.wifi.txpower.dbm.lower"
        energies = {point["settings"][name]: point["measures"]["energy_mws"]
                    for point in points
                    if point["settings"]["persist.vendor.wifi.txpower.rssi.upper"] == "-60"}
        self.assertLess(energies["3"], energies["4"])
        self.assertLess(energies["4"], energies["5"])

    def test_finished_sweep_replays_nothing_again(self):
        first = self.sweep()
        self.assertEqual(self.sweep("--jobs", "1"), first)
        self.assertEqual(self.lines_of_part(), 1 + ROWS)


if __name__ == "__main__":
    guest.main()
