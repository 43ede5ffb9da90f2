#!/usr/bin/env python3
"""Tests of cmake/cross/run_tests.py, on build folders with nothing but ctest's list of tests."""

import contextlib
import io
import os
import platform
import sys
import tempfile
import unittest

sys.path.insert(0, os.path.join(os.path.dirname(os.path.realpath(__file__)), "../../cmake/cross"))
import run_tests  # noqa: E402


class RunTestsTest(unittest.TestCase):

    def setUp(self):
        holder = tempfile.TemporaryDirectory()
        self.addCleanup(holder.cleanup)
        self.root = holder.name

    def build(self, folder, **tests):
        """A build folder. A test is named by its suite and is passed, failed or skipped."""
        statuses = {"passes": 0, "fails": 1, "skips": 77}
        folder = os.path.join(self.root, folder)
        os.mkdir(folder)
        with open(os.path.join(folder, "CTestTestfile.cmake"), "w", encoding="utf-8") as file:
            for name, outcome in tests.items():
                name = name.replace("__", "/").replace("_", ".")
                file.write(f"add_test([=[{name}]=] sh -c \"exit {statuses[outcome]}\")\n"
                           f"set_tests_properties([=[{name}]=] PROPERTIES SKIP_RETURN_CODE 77)\n")
        return folder

    def run_tests(self, gcc_folder, folder, lines="", machine="arm64", options=()):
        """Returns the status of the tests and the last line said."""
        said = io.StringIO()
        with contextlib.redirect_stdout(said):
            status = run_tests.run(machine, gcc_folder, folder, lines, list(options))
        return status, said.getvalue().splitlines()[-1]

    def assert_refused(self, message, *arguments, **named):
        with self.assertRaises(run_tests.Error) as caught:
            self.run_tests(*arguments, **named)
        self.assertEqual(str(caught.exception), message)

    def test_figures_are_those_of_the_run(self):
        gcc = self.build("gcc", A_One="passes", A_Two="passes", B_One="skips", C_One="passes",
                         Q__D_One__1="passes", lab_A="passes")
        arm = self.build("arm", aarch64_A_One="passes", aarch64_A_Two="passes",
                         aarch64_B_One="skips", aarch64_C_One="fails",
                         aarch64_Q__D_One__1="fails")
        lines = ("# A comment.\n\nlab.*  all  not compiled\nC.One  arm64  a reason\n"
                 "Q/D.One  all  another\n")
        self.assertEqual(self.run_tests(gcc, arm, lines),
                         (0, "arm64: 2 tests passed, 0 failed, 1 were skipped as they are by the "
                             "gcc build, 2 were left out"))

    def test_failure_is_told(self):
        gcc = self.build("gcc", A_One="passes")
        arm = self.build("arm", aarch64_A_One="fails")
        status, line = self.run_tests(gcc, arm)
        self.assertNotEqual(status, 0)
        self.assertIn(" 1 failed", line)

    def test_options_select_tests(self):
        gcc = self.build("gcc", A_One="passes", B_One="passes", C_One="passes")
        arm = self.build("arm", arm_A_One="passes", arm_B_One="fails", arm_C_One="fails")
        status, line = self.run_tests(gcc, arm, machine="armhf",
                                      options=["--exclude", "C", "-R", "A|C"])
        self.assertEqual(status, 0)
        self.assertIn(" 1 tests passed", line)

    def test_selection_of_no_test_fails(self):
        gcc = self.build("gcc", A_One="passes")
        arm = self.build("arm", aarch64_A_One="passes")
        status, _ = self.run_tests(gcc, arm, options=["-R", "Typo"])
        self.assertNotEqual(status, 0)
        status, _ = self.run_tests(gcc, arm, options=["-N"])
        self.assertEqual(status, 0)

    def test_option_that_would_replace_the_list_is_refused(self):
        for option in ("-E", "-EB", "--exclude-regex"):
            self.assert_refused("-E behind -- would replace left-out.txt's; give it before",
                                self.build("gcc" + option, A_One="passes"),
                                self.build("arm" + option, aarch64_A_One="passes"),
                                options=["-j", "2", option, "B"])

    def test_list_of_one_machine_is_not_that_of_another(self):
        gcc = self.build("gcc", A_One="passes")
        arm = self.build("arm", arm_A_One="fails")
        status, _ = self.run_tests(gcc, arm, "A.One  arm64  a reason", machine="armhf")
        self.assertNotEqual(status, 0)

    def test_entry_leaves_out_no_test_whose_name_goes_on(self):
        gcc = self.build("gcc", A_One="passes", A_OneMore="passes")
        arm = self.build("arm", aarch64_A_One="fails", aarch64_A_OneMore="fails")
        status, _ = self.run_tests(gcc, arm, "A.One  all  a reason")
        self.assertNotEqual(status, 0)

    def test_test_that_is_not_compiled_for_the_machine_must_be_listed(self):
        self.assert_refused("A.Two: neither compiled for this machine nor in left-out.txt",
                            self.build("gcc", A_One="passes", A_Two="passes"),
                            self.build("arm", aarch64_A_One="passes"))

    def test_test_that_only_the_machine_has_is_refused(self):
        self.assert_refused("A.Two: not in the gcc build",
                            self.build("gcc", A_One="passes"),
                            self.build("arm", aarch64_A_One="passes", aarch64_A_Two="passes"))

    def test_entry_without_a_test_is_refused(self):
        self.assert_refused("left-out.txt: there is no test A.Gone",
                            self.build("gcc", A_One="passes"),
                            self.build("arm", aarch64_A_One="passes"), "A.Gone  all  a reason")

    @unittest.skipUnless(platform.machine() == "x86_64", "the list is that of amd64's tests")
    def test_list_alone_is_checked_too(self):
        lines = "A.One  all  a reason\nA.Gone  armhf  another"
        with self.assertRaisesRegex(run_tests.Error, "^left-out.txt: there is no test A.Gone$"):
            run_tests.check(self.build("gcc", A_One="passes"), lines)
        self.assertEqual(run_tests.check(self.build("whole", A_One="passes", A_Gone="passes"),
                                         lines), 0)
        with contextlib.redirect_stdout(io.StringIO()):
            self.assertEqual(run_tests.check(self.build("part", A_One="passes",
                                                        A_IsNotBuilt="fails"), lines), 77)

    def test_skip_that_the_gcc_build_does_not_make_is_refused(self):
        self.assert_refused("skipped, but not by the gcc build: A.One",
                            self.build("gcc", A_One="passes"),
                            self.build("arm", aarch64_A_One="skips"))

    def test_line_that_is_no_entry_is_refused(self):
        with self.assertRaisesRegex(run_tests.Error, "A.One all: not NAME MACHINES REASON"):
            run_tests.read_list("A.One all", "arm64")
        with self.assertRaisesRegex(run_tests.Error, "no machine arm"):
            run_tests.read_list("A.One arm a reason", "arm64")

    def test_parameter_that_is_printed_otherwise_is_the_same_test(self):
        self.assertEqual(run_tests.bare("arm.Q/A.One/1  # GetParam() = 8-byte object", "arm."),
                         "Q/A.One/1")


if __name__ == "__main__":
    unittest.main()
