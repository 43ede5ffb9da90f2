#!/usr/bin/env python3
"""Tests of corvid-trace plot."""

import re
import unittest

from result_lines import RESULT_LINE, command, end, power
from support import FilesTest, sample


class PlotTest(FilesTest):

    def setUp(self):
        super().setUp()
        lines = [RESULT_LINE, power(0, 20), sample(0, -50)]
        lines += [sample(t, -50 - t // 4) for t in range(1, 100)]
        lines += [power(25, 0), power(50, 10, False), power(75, 10), end(100)]
        self.write("walk.result", [lines[0], *sorted(lines[1:], key=lambda line: line["t"])])

    def plot(self, *words, **options):
        done = self.run_command("plot", *words, "walk.result", encoding="utf-8", **options)
        self.assertEqual((done.returncode, done.stderr), (0, ""))
        return done.stdout.splitlines()

    def row(self, lines, head):
        return next(line[8:] for line in lines if line[:8].strip() == head)

    def test_each_step_has_its_share_of_the_columns(self):
        steps = self.row(self.plot(), "power")
        self.assertEqual(steps, "█" * 18 + "▂" * 36 + "▅" * 18)

    def test_a_refused_command_is_marked_at_its_time(self):
        self.assertEqual(self.row(self.plot(), "refused"), " " * 36 + "x")

    def test_the_signal_falls_from_left_to_right(self):
        lines = self.plot()
        self.assertIn("-50 ┤", lines[1])
        self.assertIn("-74 ┤", lines[14])
        points = [line.index("•") for line in lines[1:15] if "•" in line]
        self.assertEqual(points, sorted(points))
        self.assertEqual(lines[14].rstrip()[-1], "•")

    def test_no_line_is_wider_than_asked(self):
        for width in (40, 57, 80, 200):
            self.assertLessEqual(max(map(len, self.plot("--width", str(width)))), width)
        self.assert_refused(self.run_command("plot", "--width", "39", "walk.result"), 2, "40")

    def test_a_terminal_without_the_letters_gets_others(self):
        lines = self.plot(env={"PYTHONIOENCODING": "ascii", "PATH": "/usr/bin:/bin"})
        self.assertTrue("".join(lines).isascii())
        self.assertEqual(self.row(lines, "power"), "#" * 18 + "_" * 36 + "=" * 18)

    def test_colors_only_on_a_terminal_that_wants_them(self):
        self.assertNotIn("\x1b", "".join(self.plot()))
        colored = self.run_on_terminal("plot", "walk.result", PYTHONIOENCODING="utf-8")
        self.assertIn("\x1b[31m", colored)
        plain = self.run_on_terminal("plot", "walk.result", PYTHONIOENCODING="utf-8", NO_COLOR="1")
        self.assertNotIn("\x1b", plain)
        self.assertEqual(re.sub(r"\x1b\[\d+m", "", colored), plain)

    def test_absurd_numbers_are_drawn(self):
        self.write("walk.result", [
            {**RESULT_LINE, "thresholds": {"rssi_upper": "much", "rssi_lower": -4e9}},
            sample(0, -2000000000), command(1, "DRIVER SET_TXPOWER 4294967295"),
            sample(2, 2000000000), end(1e15)])
        self.assertLessEqual(max(map(len, self.plot())), 80)

    def test_a_result_without_signal_says_so(self):
        self.write("walk.result", [RESULT_LINE, command(1, "DRIVER SET_TXPOWER 20"), end(2)])
        lines = self.plot()
        self.assertIn("no signal", lines[1])
        self.assertEqual(self.row(lines, "power"), "█" * 72)


if __name__ == "__main__":
    unittest.main()
