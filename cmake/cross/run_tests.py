#!/usr/bin/env python3
"""run_tests.py MACHINE GCC-FOLDER FOLDER [--exclude REGEX] [CTEST-OPTION ...]
run_tests.py --check GCC-FOLDER

Runs the tests of the build in FOLDER, which was compiled for MACHINE, except those of left-out.txt.
Fails too if a test of GCC-FOLDER is neither there nor in the list, or if a test is skipped that
GCC-FOLDER does not skip.

With --check it looks only whether GCC-FOLDER has the tests that left-out.txt names. Its status is 77
if that cannot be told: they are not built, or not amd64's.
"""

import fnmatch
import os
import platform
import re
import subprocess
import sys
import tempfile
import xml.etree.ElementTree

LIST = os.path.join(os.path.dirname(os.path.realpath(__file__)), "left-out.txt")
MACHINES = {"arm64": "aarch64.", "armhf": "arm."}  # and the prefix of its tests


class Error(Exception):
    pass


class Entry:
    """A line of the list: NAME MACHINES REASON. Name: of a test or of a parameterized test, or a
    pattern with *. Machines: one, or all."""

    def __init__(self, line):
        try:
            self.name, self.machines, self.reason = line.split(None, 2)
        except ValueError:
            raise Error(f"{line}: not NAME MACHINES REASON")
        if self.machines not in ("all", *MACHINES):
            raise Error(f"{line}: no machine {self.machines}")

    def matches(self, test):
        return fnmatch.fnmatchcase(test, self.name) or fnmatch.fnmatchcase(test, self.name + "/*")

    def regex(self):
        return re.escape(self.name).replace(r"\*", ".*")


def read_list(text, machine=None):
    """The entries that are of a machine; without one, all."""
    entries = [Entry(line) for line in text.splitlines() if line and not line.startswith("#")]
    return [entry for entry in entries if machine is None or entry.machines in ("all", machine)]


def bare(name, prefix=""):
    """A test's name without what stands for its build and without the text of its parameter."""
    if not name.startswith(prefix):
        raise Error(f"{name}: its name does not begin with {prefix}")
    return name[len(prefix):].split("  # GetParam()")[0]


def entries_without_a_test(entries, here):
    return [f"left-out.txt: there is no test {entry.name}" for entry in entries
            if not any(entry.matches(test) for test in here)]


def complaints(entries, here, there):
    """What is wrong with the list, given the names of the tests in the gcc build (here) and in the
    other machine's (there)."""
    found = entries_without_a_test(entries, here)
    found += [f"{test}: neither compiled for this machine nor in left-out.txt" for test in here
              if test not in there and not any(entry.matches(test) for entry in entries)]
    found += [f"{test}: not in the gcc build" for test in there if test not in here]
    return found


def tests_of(folder, prefix=""):
    listing = subprocess.run(["ctest", "--test-dir", folder, "-N"], check=True, text=True,
                             stdout=subprocess.PIPE).stdout
    return {bare(name, prefix)
            for name in re.findall(r"^ *Test *#[0-9]+: (.*)$", listing, re.MULTILINE)}


def outcomes(file, prefix=""):
    """The outcome of each test in ctest's report: passed, failed or skipped."""
    found = {}
    for case in xml.etree.ElementTree.parse(file).getroot().iter("testcase"):
        outcome = ("skipped" if case.find("skipped") is not None else
                   "passed" if case.get("status") == "run" else "failed")
        found[bare(case.get("name"), prefix)] = outcome
    return found


def with_outcome(outcome, found):
    return sorted(test for test in found if found[test] == outcome)


def ctest(folder, *options):
    return subprocess.run(["ctest", "--test-dir", folder, "--no-label-summary", *options],
                          stdin=subprocess.DEVNULL, check=False).returncode


def run(machine, gcc_folder, folder, list_text, options):
    """Returns ctest's status."""
    exclude = ""
    if options[:1] == ["--exclude"]:
        exclude, options = "|" + options[1], options[2:]
    # ctest takes the last of several, which would put an end to the list.
    if any(re.match("-E|--exclude-regex", option) for option in options):
        raise Error("-E behind -- would replace left-out.txt's; give it before")
    prefix = MACHINES[machine]
    entries = read_list(list_text, machine)
    here, there = tests_of(gcc_folder), tests_of(folder, prefix)
    wrong = complaints(entries, here, there)
    if wrong:
        raise Error("\n".join(wrong))

    left_out = [test for test in there if any(entry.matches(test) for entry in entries)]
    say(f"{machine}: the gcc build has {len(here)} tests; {len(here - there)} of them are not "
        f"compiled for {machine}, {len(left_out)} are left out:",
        *(f"{entry.name}: {entry.reason}" for entry in entries))
    with tempfile.TemporaryDirectory() as work:
        report = os.path.join(work, "report.xml")
        names = "|".join(entry.regex() for entry in entries)
        status = ctest(folder, "--output-on-failure", "--no-tests=error", "--output-junit", report,
                       "-E", f"^{re.escape(prefix)}({names})(/.*)?(  #.*)?${exclude}", *options)
        found = outcomes(report, prefix)
        if not found:  # with -N, or because no name matches
            return status
        skipped = with_outcome("skipped", found)
        if skipped:
            say("Skipped; now by the gcc build:", *skipped)
            names = "|".join(map(re.escape, skipped))
            ctest(gcc_folder, "--output-junit", report, "-R", f"^({names})(  #.*)?$")
            unlike = sorted(set(skipped) - set(with_outcome("skipped", outcomes(report))))
            if unlike:
                raise Error("skipped, but not by the gcc build: " + ", ".join(unlike))
    say(f"{machine}: {len(with_outcome('passed', found))} tests passed, "
        f"{len(with_outcome('failed', found))} failed, {len(skipped)} were skipped as they are by "
        f"the gcc build, {len(left_out)} were left out")
    return status


def check(gcc_folder, list_text):
    """What --check does. Returns the status."""
    if platform.machine() != "x86_64":
        say("the list is that of amd64's tests")
        return 77
    here = tests_of(gcc_folder)
    if any(test.endswith(".IsNotBuilt") for test in here):
        say("some programs are not built, so nobody knows their tests")
        return 77
    wrong = entries_without_a_test(read_list(list_text), here)
    if wrong:
        raise Error("\n".join(wrong))
    return 0


def say(line, *items):
    print(line, *items, sep="\n  ", flush=True)


def main(machine, gcc_folder, *rest):
    with open(LIST, encoding="utf-8") as file:
        list_text = file.read()
    if machine == "--check":
        return check(gcc_folder, list_text)
    folder, *options = rest
    return run(machine, gcc_folder, folder, list_text, options)


if __name__ == "__main__":
    try:
        sys.exit(main(*sys.argv[1:]))
    except Error as error:
        sys.exit(f"{os.path.basename(__file__)}: {error}")
