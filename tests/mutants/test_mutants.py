#!/usr/bin/env python3
"""Tests of mutants.py, but for what it builds and runs."""

import json
import os
import tempfile
import unittest

import mutants

SOURCE = """\
void A::first() {
    MutexLock lock(mutex_);
    if (a < b) {
        call(a);
    }
}

void A::second() {
    MutexLock lock(mutex_);
    call(a,
         b);
}
"""


class MutantsTest(unittest.TestCase):

    def setUp(self):
        holder = tempfile.TemporaryDirectory()
        self.addCleanup(holder.cleanup)
        self.root = holder.name
        self.write("client/A.cpp", SOURCE)

    def write(self, path, text):
        path = os.path.join(self.root, path)
        os.makedirs(os.path.dirname(path), exist_ok=True)
        with open(path, "w", encoding="utf-8") as file:
            file.write(text)
        return path

    def apply(self, **mutant):
        return mutants.apply(self.root, {"file": "client/*.cpp", **mutant})

    def read(self, text):
        return mutants.read_list(self.write("list.toml", text))

    def assert_refused(self, text, reason):
        with self.assertRaisesRegex(mutants.UsageError, reason):
            self.read(text)


class ApplyTest(MutantsTest):

    def test_a_text_is_replaced_whatever_its_white_space(self):
        path, before, after = self.apply(find="call(a, b);", replace="call(b);")
        self.assertEqual((path, before), ("client/A.cpp", SOURCE))
        self.assertEqual(after, SOURCE.replace("call(a,\n         b);", "call(b);"))

    def test_a_regular_expression_gives_its_groups(self):
        self.assertIn("if (b < a)", self.apply(regex=r"(\w) < (\w)", replace=r"\2 < \1")[2])

    def test_a_text_that_is_there_twice_does_not_apply(self):
        self.assertIsNone(self.apply(find="MutexLock lock(mutex_);", replace=""))

    def test_in_chooses_one_of_two(self):
        mutant = {"in": "A::second(", "find": "MutexLock lock(mutex_);", "replace": ""}
        after = self.apply(**mutant)[2]
        self.assertIn("MutexLock", after[:after.index("A::second")])
        self.assertNotIn("MutexLock", after[after.index("A::second"):])

    def test_in_ends_where_its_function_ends(self):
        self.assertIsNone(self.apply(**{"in": "A::first(", "find": "call(a, b);", "replace": ""}))

    def test_another_place_is_tried_when_the_first_is_gone(self):
        self.write("managers/B.cpp", "limit = 3;\n")
        mutant = {"find": "limit = 3;", "replace": "limit = 4;", "or": [{"file": "managers/B.cpp"}]}
        self.assertEqual(self.apply(**mutant)[0], "managers/B.cpp")

    def test_a_change_that_changes_nothing_does_not_apply(self):
        self.assertIsNone(self.apply(find="a < b", replace="a < b"))


class ListTest(MutantsTest):
    TESTS = "[tests]\nclient = ['client']\n"
    MUTANT = "[[mutant]]\nname = 'A'\nfile = 'client/A.cpp'\nfind = 'a'\nreplace = 'b'\n"

    def test_a_right_list_is_read(self):
        found, tests = self.read(self.TESTS + self.MUTANT)
        self.assertEqual([mutant["name"] for mutant in found], ["A"])
        self.assertEqual(tests, {"client": ["client"]})

    def test_wrong_lists_are_refused(self):
        for text, reason in (
                ("x = [", "Invalid value"),
                (self.TESTS, "no mutants"),
                (self.TESTS + self.MUTANT + self.MUTANT, "taken"),
                (self.TESTS + self.MUTANT + "color = 'red'\n", "unknown color"),
                (self.TESTS + self.MUTANT + "regex = 'a'\n", "find or regex"),
                (self.TESTS + self.MUTANT.replace("replace", "# "), "needs replace"),
                (self.TESTS + self.MUTANT.replace("find = 'a'", "regex = '('"), "missing"),
                (self.MUTANT, "no tests are given"),
                ("[other]\n" + self.MUTANT, "unknown other")):
            with self.subTest(reason):
                self.assert_refused(text, reason)

    def test_a_list_that_is_not_there_is_refused(self):
        with self.assertRaises(mutants.UsageError):
            mutants.read_list(os.path.join(self.root, "none.toml"))


class ReportTest(unittest.TestCase):

    def test_what_died_and_survives_now_is_told(self):
        before = {"a": {"outcome": mutants.KILLED}, "b": {"outcome": mutants.SURVIVED},
                  "c": {"outcome": mutants.KILLED_BY_COMPILER}}
        now = {"a": {"outcome": mutants.SURVIVED}, "b": {"outcome": mutants.SURVIVED},
               "c": {"outcome": mutants.KILLED}}
        self.assertEqual(mutants.compare(before, now), ["a: killed before, survived now"])

    def test_ctest_names_what_fails_and_what_is_skipped_is_no_failure(self):
        line = " 3/9 Test  #5: Poll.A ......{}  0.01 sec"
        self.assertEqual(mutants.FAILED_TEST.search(line.format("***Failed"))[1], "Poll.A")
        self.assertEqual(mutants.FAILED_TEST.search(line.format("***Timeout"))[2], "Timeout")
        self.assertIsNone(mutants.FAILED_TEST.search(line.format("***Skipped")))
        self.assertIsNone(mutants.FAILED_TEST.search(line.format("   Passed")))

    def test_locks_are_checked_with_the_files_own_options(self):
        self.assertEqual(
            mutants.analysis_of("/usr/bin/ccache /usr/bin/c++ -DA -Wall -MD -MF a.d -o a.o -c a.cpp"),
            ["clang++", "-fsyntax-only", "-Wthread-safety", "-Werror", "-DA", "a.cpp"])

    def test_template_is_checked_where_it_is_instantiated(self):
        holder = tempfile.TemporaryDirectory()
        self.addCleanup(holder.cleanup)
        build = mutants.Build(holder.name, 1)
        sources = {
            "client/Box.h": """
                class __attribute__((capability("mutex"))) Mutex {};
                template <typename T> struct Box {
                    T get() { return value; }
                    Mutex mutex;
                    T value __attribute__((guarded_by(mutex)));
                };""",
            "client/Holder.h": '#include "client/Box.h"\n',
            "client/Includes.cpp": '#include "client/Box.h"\n',
            "client/Uses.cpp": """#include "client/Holder.h"
                int use(Box<int>& box) { return box.get(); }""",
        }
        for path, text in sources.items():
            mutants.write_file(os.path.join(build.tree, path), text.encode())
        units = [os.path.join(build.tree, path) for path in sources if path.endswith(".cpp")]
        mutants.write_file(os.path.join(build.path, "compile_commands.json"), json.dumps(
            [{"file": unit, "directory": build.tree, "command": f"c++ -I. -c {unit}"}
             for unit in units]).encode())
        self.assertEqual(build.compiled_units("client/Box.h", units), set(units))
        self.assertTrue(build.check_locks("client/Box.h"))
        self.assertFalse(build.check_locks("client/Includes.cpp"))


if __name__ == "__main__":
    unittest.main()
