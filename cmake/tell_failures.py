#!/usr/bin/env python3
"""tell_failures.py REPORT

Prints what the failed tests of ctest's report (--output-junit) said of their failure: GoogleTest's
failed expectations, or else the last lines. ctest prints a test's output where it ends, thousands
of lines ahead of the summary, and whoever gets a log's end alone should see why a run failed.
"""

import os
import re
import sys
import xml.etree.ElementTree

MAX_TESTS = 10
MAX_EXPECTATIONS = 3  # of a test
MAX_LINES = 12        # of an expectation, or the last ones of a test without any
MAX_WIDTH = 300       # of a line


def why(output):
    """The lines of a test's output that tell why it failed."""
    lines = [line[:MAX_WIDTH] for line in output.splitlines() if line.strip()]
    # "FILE:LINE: Failure", or "unknown file: Failure" for an exception, and what is wrong, until
    # GoogleTest's next word.
    expectations = []
    inside = False
    for line in lines:
        if re.search(r"(:\d+|^unknown file): Failure$", line):
            expectations.append([])
            inside = True
        elif line.startswith("["):
            inside = False
        if inside:
            expectations[-1].append(line)
    if not expectations:
        return lines[-MAX_LINES:] or ["it said nothing: was it killed, or too slow?"]
    return [line for expectation in expectations[:MAX_EXPECTATIONS]
            for line in expectation[:MAX_LINES]]


def failed(case):
    """Whether it ran and failed, or could not be run. What is skipped did neither."""
    skipped = case.find("skipped")
    return case.get("status") == "fail" or (
        skipped is not None and skipped.get("message").startswith("Unable to find executable"))


def tell(report):
    cases = [case for case in xml.etree.ElementTree.parse(report).getroot().iter("testcase")
             if failed(case)]
    for case in cases[:MAX_TESTS]:
        reason = case.find("failure")
        message = "" if reason is None else reason.get("message").strip()
        print(f"\n{case.get('name')} failed after {float(case.get('time')):.1f} s:",
              *message.splitlines(), *why(case.findtext("system-out", "")), sep="\n  ")
    if len(cases) > MAX_TESTS:
        print(f"\n{len(cases) - MAX_TESTS} more tests failed.")


if __name__ == "__main__":
    if len(sys.argv) != 2:
        sys.exit(__doc__)
    try:
        tell(sys.argv[1])
    except (OSError, xml.etree.ElementTree.ParseError) as error:
        sys.exit(f"{os.path.basename(__file__)}: {sys.argv[1]}: {error}")
