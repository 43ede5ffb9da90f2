"""growth.py still measures what its plots show, and refuses what it cannot draw."""

import os
import subprocess
import sys
import tempfile
import unittest

SCRIPT = os.path.join(os.path.dirname(os.path.abspath(__file__)), "growth.py")

# A column, counted from 0, that is more than nothing, and how many rows a moment's run gives. Of the
# events it is the rate that was reached: in so short a time the daemon may not have come to run.
MEASURED = {"subscribers": (1, 7), "clients": (1, 2), "events": (1, 1), "interfaces": (1, 9),
            "levels": (2, 6)}

SOAK = """\
# 3619.70 after 60 min: 23 descriptors, 4 threads, 1024 kB, 166648 bytes in use, 9 files in /tmp; 22 events
# 7219.70 after 120 min: 24 descriptors, 5 threads, 1028 kB, 166640 bytes in use, 9 files in /tmp; 22 events
"""


class Growth(unittest.TestCase):
    def setUp(self):
        holder = tempfile.TemporaryDirectory(prefix="corvid-growth-")
        self.addCleanup(holder.cleanup)
        self.folder = holder.name

    def growth(self, *words, **environment):
        return subprocess.run(
            [sys.executable, "-B", SCRIPT, "--smoke", "--folder", self.folder, *words],
            stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True, check=False,
            env={**os.environ, **environment})

    def rows(self, name):
        with open(os.path.join(self.folder, name + ".dat"), encoding="utf-8") as file:
            return [line.split() for line in file if not line.startswith("#")]

    def test_every_plot_but_the_soak_is_measured_here(self):
        result = self.growth(*MEASURED)
        self.assertEqual((result.returncode, result.stderr), (0, ""))
        for name, (column, count) in MEASURED.items():
            with self.subTest(name):
                rows = self.rows(name)
                self.assertEqual(len(rows), count)
                self.assertGreater(max(float(row[column]) for row in rows), 0)
        self.assertEqual([row[3] for row in self.rows("levels")], list("VDIWES"))

    def test_soak_is_read_from_its_own_record(self):
        folder = os.path.join(self.folder, "lab-runs", "soak")
        os.makedirs(folder)
        with open(os.path.join(folder, "output.log"), "w", encoding="utf-8") as file:
            file.write(SOAK)
        self.assertEqual(self.growth("soak", CORVID_BUILD=self.folder).returncode, 0)
        self.assertEqual(self.rows("soak"), [["1", "23", "4", "1024", "166648"],
                                             ["2", "24", "5", "1028", "166640"]])

    def test_soak_without_a_record_is_an_error_that_names_the_command(self):
        result = self.growth("soak", CORVID_BUILD=self.folder)
        self.assertEqual(result.returncode, 1)
        self.assertIn("`lab/lab.sh soak 24h` writes it", result.stderr)

    def test_program_that_is_not_built_is_an_error_that_names_it(self):
        for name, program in (("levels", "corvid-statsd"), ("subscribers", "growth_benchmarks")):
            result = self.growth(name, CORVID_BUILD=self.folder)
            self.assertEqual(result.returncode, 1)
            self.assertIn(f"/bin/{program} is not built", result.stderr)

    def test_headset_that_cannot_start_leaves_no_folder(self):
        self.growth("levels", CORVID_BUILD=self.folder, TMPDIR=self.folder)
        self.assertEqual([name for name in os.listdir(self.folder) if name.startswith("corvid")], [])

    def test_plot_that_is_none_is_refused(self):
        result = self.growth("memory")
        self.assertEqual(result.returncode, 2)
        self.assertIn("there is no plot 'memory'", result.stderr)


if __name__ == "__main__":
    unittest.main()
