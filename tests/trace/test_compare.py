#!/usr/bin/env python3
"""Tests of corvid-trace compare."""

import json
import unittest

from corvid_trace import compare, results
from result_lines import RESULT_LINE, end, power
from support import FilesTest, sample

PREFIX = "persist.vendor.wifi."


class CompareTest(FilesTest):

    def result(self, name, changed_at, **settings):
        """Ten seconds on the upper step, then the lower one."""
        settings = {PREFIX + key: value for key, value in settings.items()}
        return self.write(name, [{**RESULT_LINE, "settings": settings}, sample(0), power(0, 20),
                                 power(changed_at, 0), end(100)])

    def rows(self, *words):
        """The lines of the table that are not blank."""
        done = self.run_command("compare", *words)
        self.assertEqual((done.returncode, done.stderr), (0, ""))
        return [line for line in done.stdout.splitlines() if line]

    def test_values_stand_with_their_difference_from_the_first(self):
        self.result("a.result", 10)
        self.result("b.result", 30)
        lines = self.rows("a.result", "b.result")
        self.assertEqual(lines[0].split(), ["measure", "a", "b"])
        self.assertIn(["time", "on", "the", "upper", "step,", "s", "10", "30", "+20"],
                      [line.split() for line in lines])
        self.assertIn(["energy", "proxy,", "mW·s", "1090", "3070", "+1980"],
                      [line.split() for line in lines])
        self.assertIn(["time", "with", "a", "link,", "s", "100", "100"],
                      [line.split() for line in lines])

    def test_only_settings_that_differ_are_shown(self):
        self.result("a.result", 10, same="1", changed="2")
        self.result("b.result", 10, same="1", changed="3", new="x")
        lines = [line.split() for line in self.rows("a.result", "b.result")]
        self.assertEqual(lines[1:3], [["changed", "2", "3"], ["new", "default", "x"]])

    def test_json_has_measures_and_differences_as_numbers(self):
        self.result("a.result", 10, key="1")
        self.result("b.result", 30, key="2")
        done = self.run_command("compare", "--json", "--below", "-40", "a.result", "b.result")
        answer = json.loads(done.stdout)
        self.assertEqual(answer["below_dbm"], -40)
        self.assertEqual(answer["settings_that_differ"], {PREFIX + "key": ["1", "2"]})
        first, second = answer["results"]
        self.assertEqual((first["measures"]["below_s"], second["differences"]["time_upper_s"]),
                         (100, 20))
        self.assertIsNone(second["differences"]["to_upper_max_s"])

    def test_many_results_come_in_blocks_of_the_width(self):
        names = [self.result(f"{index}.result", 10 + index) for index in range(12)]
        loaded = results.load(names)
        values = [compare.measures.measure_timeline(result.timeline) for result in loaded]
        lines = compare.table(loaded, values, -75, 80)
        self.assertLessEqual(max(map(len, lines)), 80)
        heads = [line.split()[1:] for line in lines if line.startswith("measure")]
        self.assertGreater(len(heads), 1)
        for head in heads:
            self.assertEqual(head[0], "0")
        self.assertEqual(sum((head[1:] for head in heads), []), [str(n) for n in range(1, 12)])

    def test_files_of_one_name_are_told_apart_by_their_folders(self):
        self.assertEqual(results.short_names(["now/flat.result", "new/flat.result", "c.result"]),
                         ["now/flat", "new/flat", "c"])
        self.assertEqual(results.short_names(["a.result", "a.result"]), ["a", "a (2)"])

    def test_a_trace_is_refused_with_what_to_do(self):
        self.write("walk.jsonl", [{**RESULT_LINE, "result": False}, sample(0), end(10)])
        self.assert_refused(self.run_command("compare", "walk.jsonl"), 1,
                            "walk.jsonl:1: ", "corvid-trace replay")

    def test_a_bad_line_is_named(self):
        self.write("bad.result", json.dumps(RESULT_LINE) + "\n{\n" + json.dumps(end(1)) + "\n")
        self.assert_refused(self.run_command("compare", "bad.result"), 1, "bad.result:2: ")

    def test_a_missing_file_is_named(self):
        self.assert_refused(self.run_command("compare", "none.result"), 1, "none.result")

    def test_wrong_usage_is_status_2(self):
        self.assert_refused(self.run_command("compare"), 2, "RESULT")
        self.assert_refused(self.run_command("compare", "--below", "x", "a"), 2, "--below")

    def test_colors_only_on_a_terminal_that_wants_them(self):
        self.result("a.result", 10)
        self.result("b.result", 30)
        words = ("compare", "a.result", "b.result")
        self.assertIn("\x1b[31m", self.run_on_terminal(*words))
        self.assertNotIn("\x1b", self.run_on_terminal(*words, NO_COLOR="1"))
        self.assertNotIn("\x1b", self.run_command(*words).stdout)


if __name__ == "__main__":
    unittest.main()
