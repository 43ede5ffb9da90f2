#!/usr/bin/env python3
"""Tests of cmake/tell_failures.py, on reports that ctest writes."""

import contextlib
import io
import os
import re
import subprocess
import sys
import tempfile
import unittest

sys.path.insert(0, os.path.join(os.path.dirname(os.path.realpath(__file__)), "../../cmake"))
import tell_failures  # noqa: E402

GTEST = """\
Running main() from gtest_main.cc
[ RUN      ] A.One
../tests/ATest.cpp:12: Failure
Value of: a
  Actual: false

[  INFO ] ../tests/Headset.cpp:64:: The last of what happened:
line   connect
../tests/ATest.cpp:14: Failure
Expected: (after) <= (before), actual: 19 vs 17

unknown file: Failure
C++ exception with description "out of range" thrown in the test body.

[  FAILED  ] A.One (3 ms)
"""


class TellFailuresTest(unittest.TestCase):

    def setUp(self):
        holder = tempfile.TemporaryDirectory()
        self.addCleanup(holder.cleanup)
        self.root = holder.name
        self.tests = []

    def path(self, name):
        return os.path.join(self.root, name)

    def add(self, name, output="", status=0, **properties):
        """A test of the run that prints something and ends with a status."""
        with open(self.path(f"output{len(self.tests)}"), "w", encoding="utf-8") as file:
            file.write(output)
        self.tests.append(f"add_test([=[{name}]=] sh -c \"cat '{file.name}'; exit {status}\")\n")
        for key, value in properties.items():
            self.tests.append(
                f"set_tests_properties([=[{name}]=] PROPERTIES {key} [=[{value}]=])\n")

    def told(self):
        with open(self.path("CTestTestfile.cmake"), "w", encoding="utf-8") as file:
            file.writelines(self.tests)
        report = self.path("report.xml")
        subprocess.run(["ctest", "--output-junit", report], cwd=self.root, check=False,
                       stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        said = io.StringIO()
        with contextlib.redirect_stdout(said):
            tell_failures.tell(report)
        return re.sub(r"after [0-9.]+ s:", "after N s:", said.getvalue()).splitlines()

    def test_of_gtest_the_failed_expectations_are_told(self):
        self.add("A.One", GTEST, 1)
        self.assertEqual(self.told()[1:], [
            "A.One failed after N s:",
            "  ../tests/ATest.cpp:12: Failure", "  Value of: a", "    Actual: false",
            "  ../tests/ATest.cpp:14: Failure",
            "  Expected: (after) <= (before), actual: 19 vs 17",
            "  unknown file: Failure",
            "  C++ exception with description \"out of range\" thrown in the test body."])

    def test_of_others_the_last_lines_are_told(self):
        self.add("script", "".join(f"line {i}\n" for i in range(100)), 1)
        self.assertEqual(self.told()[1:],
                         ["script failed after N s:", *(f"  line {i}" for i in range(88, 100))])

    def test_missed_text_is_told_with_the_output(self):
        self.add("A.Text", "something else\n", PASS_REGULAR_EXPRESSION="a word")
        told = self.told()
        self.assertIn("Regex=[a word", told[2])
        self.assertEqual(told[-1], "  something else")

    def test_silence_is_told(self):
        self.add("A.Silent", status=1)
        self.assertEqual(self.told()[2], "  it said nothing: was it killed, or too slow?")

    def test_program_that_is_not_there_is_told(self):
        self.tests.append("add_test(A.Missing /nowhere/program)\n")
        self.assertEqual(self.told()[1:], ["A.Missing failed after N s:",
                                           "  Unable to find executable: /nowhere/program"])

    def test_what_passed_or_was_skipped_is_not(self):
        self.add("A.Passed", "a:1: Failure\n")
        self.add("A.Skipped", "b:1: Failure\n", 77, SKIP_RETURN_CODE="77")
        self.assertEqual(self.told(), [])

    def test_after_ten_tests_only_their_number_is_told(self):
        for i in range(12):
            self.add(f"A.Test{i}", "a:1: Failure\n", 1)
        told = self.told()
        self.assertEqual(sum(line.endswith("failed after N s:") for line in told), 10)
        self.assertEqual(told[-1], "2 more tests failed.")


if __name__ == "__main__":
    unittest.main()
