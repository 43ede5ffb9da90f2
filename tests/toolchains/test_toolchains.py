#!/usr/bin/env python3
"""Tests of toolchains.py, but for what it builds and runs: the rows fit the presets and the
packages, and what is wrong is named."""

import json
import os
import re
import tempfile
import unittest
from unittest import mock

import toolchains


def packages(*lists):
    """The packages that the lists name."""
    found = set()
    for path in lists:
        with open(os.path.join(toolchains.ROOT, path), encoding="utf-8") as file:
            found |= {word for line in file for word in line.split("#")[0].split()}
    return found


class RowsTest(unittest.TestCase):

    def test_packages_in_the_lists_are_those_that_rows_need(self):
        needed = toolchains.packages_of([*toolchains.COMPILED, *toolchains.RUN])
        own = packages("tests/toolchains/packages.txt")
        self.assertEqual(needed - own - packages("packages.txt"), set(), "in no list")
        self.assertEqual(own - needed, set(), "in the list, but needed by no row")

    def test_rows_with_packages_of_their_own_are_rows(self):
        self.assertLessEqual(set(toolchains.OTHER_PACKAGES),
                             {*toolchains.COMPILED, *toolchains.RUN})

    def installed_for(self, *rows, refused="none"):
        """The packages that it installs for those rows, beside those of packages.txt, where none
        is installed yet and one is refused."""
        with tempfile.TemporaryDirectory() as folder:
            log = os.path.join(folder, "log")
            for program, text in (("dpkg-query", "exit 1"), ("sudo", 'exec "$@"'),
                                  ("apt-get", f'case " $* " in *" {refused} "*) exit 100 ;; esac; '
                                              f"echo \"$*\" >>'{log}'")):
                with open(os.path.join(folder, program), "w", encoding="utf-8") as file:
                    file.write(f"#!/bin/sh\n{text}\n")
                os.chmod(file.name, 0o755)
            path = f"{folder}:{os.environ['PATH']}"
            with mock.patch.dict(os.environ, PATH=path):
                toolchains.install(rows)
            with open(log, encoding="utf-8") as file:
                words = [word for line in file if " install " in line for word in line.split()]
        return {word for word in words[words.index("install"):]
                if word != "install" and not word.startswith("-")} - packages("packages.txt")

    def test_only_what_the_chosen_rows_need_is_installed(self):
        self.assertEqual(self.installed_for("gcc-c++20", "integer"), set())
        self.assertEqual(self.installed_for("clang-16"), {"clang-16"})
        self.assertEqual(self.installed_for("libcxx", "shadow-call-stack"),
                         {"googletest", "libc++-dev", "libc++abi-dev", "clang-14",
                          "g++-aarch64-linux-gnu"})

    def test_a_compiler_that_can_not_be_installed_keeps_none_from_other_rows(self):
        self.assertEqual(self.installed_for("clang-13", "clang-16", refused="clang-13"),
                         {"clang-16"})

    def test_each_row_that_runs_is_a_preset_with_its_compiler(self):
        with open(os.path.join(toolchains.ROOT, "CMakePresets.json"), encoding="utf-8") as file:
            presets = {preset["name"]: preset for preset in json.load(file)["configurePresets"]}

        def variable(name, key):
            preset = presets[name]
            value = preset.get("cacheVariables", {}).get(key)
            return value or variable(preset["inherits"], key)

        for row, programs in toolchains.RUN.items():
            with self.subTest(row):
                self.assertIn(row, presets)
                self.assertEqual(variable(row, "CMAKE_CXX_COMPILER"), programs[0])

    def test_each_compiled_row_has_a_standard_and_says_whether_it_generates_code(self):
        for row, (_, options) in toolchains.COMPILED.items():
            with self.subTest(row):
                self.assertEqual(len(re.findall(r"-std=c\+\+\d\d\b", options)), 1)
                self.assertEqual(len({"-c", "-fsyntax-only"} & set(options.split())), 1)

    def test_a_row_that_there_is_not_is_named_with_those_there_are(self):
        self.assertEqual(toolchains.check_names(["clang-16", "cfi"]), [])
        complaints = toolchains.check_names(["clang-16", "clang-12"])
        self.assertEqual(len(complaints), 1)
        self.assertIn("no row clang-12", complaints[0])
        self.assertIn("shadow-call-stack", complaints[0])

    def test_a_row_whose_compiler_is_missing_fails_with_its_name(self):
        with self.assertRaisesRegex(toolchains.Failure, "no-such-compiler is not installed"):
            toolchains.need("python3", "no-such-compiler")


class SourcesTest(unittest.TestCase):

    def setUp(self):
        holder = tempfile.TemporaryDirectory()
        self.addCleanup(holder.cleanup)
        self.root = holder.name
        self.build = os.path.join(self.root, "build")
        os.makedirs(os.path.join(self.build, "source-lists"))

    def write(self, path, text):
        path = os.path.join(self.root, path)
        os.makedirs(os.path.dirname(path), exist_ok=True)
        with open(path, "w", encoding="utf-8") as file:
            file.write(text)
        return path

    def compiled(self, *paths):
        """What the build says that it compiles."""
        options = (f"-I{self.root} -isystem /usr/include/x -DNAME='\"a b\"' -O2 -g1 -DNDEBUG -Wall "
                   "-std=c++17 -MD -MF x.d -o x.o -c")
        self.write("build/compile_commands.json", json.dumps([
            {"directory": self.build, "file": os.path.join(self.root, path),
             "command": f"g++ {options} {self.root}/{path}"} for path in paths]))
        return toolchains.sources_of(self.build, self.root)

    def test_options_that_a_row_has_its_own_of_are_left_out(self):
        sources = self.compiled("os/Poll.cpp", "host/log/HostLog.cpp", "tests/os/PollTest.cpp")
        self.assertEqual([source.path for source in sources], ["os/Poll.cpp"])
        self.assertEqual(sources[0].arguments,
                         [f"-I{self.root}", "-isystem", "/usr/include/x", '-DNAME="a b"', "-Wall"])

    def test_a_source_of_the_device_in_no_row_is_named(self):
        self.write("build/source-lists/libos", "os/CMakeLists.txt\nos/Poll.cpp\naudio/New.cpp\n")
        self.write("build/source-lists/tests", "tests/CMakeLists.txt\ntests/os/PollTest.cpp\n")
        paths = [source.path for source in self.compiled("os/Poll.cpp", "audio/New.cpp")]
        self.assertEqual(toolchains.left_out(self.build, paths), ["audio/New.cpp"])
        self.assertEqual(toolchains.left_out(self.build, [*paths, "audio/New.cpp"]), [])

    def compile(self, **texts):
        """Compiles the sources os/NAME.cpp together. Returns the complaints."""
        for name, text in texts.items():
            self.write(f"os/{name}.cpp", text)
        sources = [source._replace(arguments=["-Wall", "-Werror"])
                   for source in self.compiled(*(f"os/{name}.cpp" for name in texts))]
        return toolchains.compile_together("g++", ["-fsyntax-only", "-std=c++17"], sources,
                                           self.root)

    def test_sources_that_do_not_go_together_are_compiled_singly(self):
        text = "namespace {{ const int k = 1; }} int {}() {{ return k; }}\n"
        self.assertEqual(self.compile(a=text.format("a"), b=text.format("b")), [])

    def test_only_the_source_with_a_warning_is_complained_of(self):
        complaints = self.compile(a="int a() { return 1; }\n", b="int b() { int x; return 1; }\n",
                                  c="int c() { return 2; }\n")
        self.assertEqual([path for path, _ in complaints], ["os/b.cpp"])
        self.assertIn("unused variable", complaints[0][1])

    def test_sources_with_an_error_are_found_in_what_a_build_says(self):
        self.assertEqual(toolchains.failing_sources("/tree", """\
FAILED: client/libclient.a
In file included from /tree/build-cfi/client/Unity/unity_0_cxx.cxx:3:
/tree/client/Stats.cpp:13:19: error: redefinition of 'kMicrosecond'
/tree/client/Other.cpp:11:19: note: previous definition is here
/tree/client/Third.cpp:7:1: warning: unused
/tree/build-cfi/generated/All.cpp:1:1: error: redefinition
"""), {"client/Stats.cpp"})

    def test_of_a_build_that_failed_what_failed_is_shown(self):
        self.assertEqual(toolchains.failures_of_ninja("""\
ninja: Entering directory `build-cfi'
[1/3] Building CXX object os/Poll.cpp.o
[2/3] Linking CXX executable bin/os_test
FAILED: bin/os_test
undefined reference
[3/3] Building CXX object os/Log.cpp.o
"""), "FAILED: bin/os_test\nundefined reference\n")
        self.assertEqual(toolchains.failures_of_ninja("no such target\n"), "no such target\n")

    def test_of_tests_those_that_failed_are_shown(self):
        self.assertEqual(toolchains.failures_of_ctest("""\
Test project build-cfi/unit
        Start   1: cfi.Poll.One
        Start   2: cfi.Poll.Two
  1/2 Test   #1: cfi.Poll.One ...............   Passed    0.18 sec
  2/2 Test   #2: cfi.Poll.Two ...............***Failed    0.16 sec
PollTest.cpp:57: Failure
"""), """\
Test project build-cfi/unit
  2/2 Test   #2: cfi.Poll.Two ...............***Failed    0.16 sec
PollTest.cpp:57: Failure
""")


if __name__ == "__main__":
    unittest.main()
