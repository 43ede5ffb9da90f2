#!/usr/bin/env python3
"""The walks that come with the project are whole, and say where they come from."""

import glob
import os
import re
import subprocess
import unittest

from corvid_trace.format import read_trace, wrong_with_header, wrong_with_record
from support import SOURCE, FilesTest

WALKS = os.path.join(SOURCE, "trace", "walks")


def walks():
    return sorted(glob.glob(os.path.join(WALKS, "*.jsonl")))


class WalksTest(FilesTest):

    def setUp(self):
        super().setUp()
        self.assertGreaterEqual(len(walks()), 3)

    def test_each_keeps_the_format_as_a_writer_must(self):
        for path in walks():
            header, records = read_trace(path)
            self.assertIsNone(wrong_with_header(header), path)
            records = list(records)
            self.assertEqual([(record.line, wrong_with_record(record)) for record in records
                              if wrong_with_record(record)], [], path)
            self.assertEqual(records[-1]["type"], "end", path)
            self.assertGreater(sum(record["type"] == "sample" for record in records), 60, path)

    def test_each_is_labelled_with_the_file_that_was_played(self):
        for path in walks():
            header, _ = read_trace(path)
            self.assertIn(header["source"], ("scenario", "lab"), path)
            played = re.search(r"played from (\S+)$", header["label"])
            self.assertTrue(played, path)
            self.assertTrue(any(os.path.exists(os.path.join(folder, played[1]))
                                for folder in (WALKS, SOURCE)), path)

    def test_each_scenario_can_be_played_and_was_recorded(self):
        simulator = os.path.join(os.environ["CORVID_BUILD"], "bin", "corvid-sim")
        scenarios = sorted(glob.glob(os.path.join(WALKS, "*.scn")))
        for path in scenarios:
            done = subprocess.run([simulator, "--check", path], capture_output=True, text=True,
                                  check=False)
            self.assertEqual(done.returncode, 0, done.stderr)
            self.assertTrue(os.path.exists(os.path.splitext(path)[0] + ".jsonl"), path)

    def test_walks_show_what_they_are_for(self):
        def stations(name):
            _, records = read_trace(os.path.join(WALKS, name))
            return [record["sta"] for record in records if record["type"] == "sample"]

        rooms = [sta["rssi_dbm"] for sta in stations("two-rooms.jsonl") if sta]
        self.assertGreater(max(rooms), -50)
        self.assertLess(min(rooms), -70)
        stairs = stations("stairway.jsonl")
        self.assertLess(min(sta["rssi_dbm"] for sta in stairs if sta), -80)
        # The link breaks on the way, not only at the end.
        broken = [n for n, sta in enumerate(stairs) if sta is None]
        self.assertTrue(any(any(stairs[:n]) and any(stairs[n:]) for n in broken))
        lab = stations("lab.jsonl")
        self.assertEqual({sta["frequency_mhz"] for sta in lab if sta}, {5180, 5240})
        roam = stations("roam.jsonl")
        bands = [sta["frequency_mhz"] < 5000 for sta in roam if sta]
        changes = [n for n in range(1, len(bands)) if bands[n] != bands[n - 1]]
        self.assertEqual(len(changes), 2)
        self.assertTrue(all(roam[roam.index(next(filter(None, roam))):-10]))


if __name__ == "__main__":
    unittest.main()
