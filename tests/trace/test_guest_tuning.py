#!/usr/bin/env python3
"""Types what docs/tuning.md shows, and compares what comes with what stands there."""

import os
import re
import shlex
import shutil

import guest
from support import SOURCE, FilesTest

PAGE = os.path.join(SOURCE, "docs", "tuning.md")
WALKS = os.path.join(SOURCE, "trace", "walks")


def steps():
    """(command, the lines shown behind it) for each command of corvid-trace on the page."""
    with open(PAGE, encoding="utf-8") as file:
        text = file.read().replace("\\\n", "")
    found = []
    for line in text.splitlines():
        if line.startswith("    corvid-trace "):
            found.append((line.strip(), []))
        elif line.startswith("    ") and found:
            found[-1][1].append(line.strip())
        elif line:
            found.append(("", []))  # a block ends with the text behind it
    return [step for step in found if step[0]]


def is_alike(shown, written):
    """Whether two lines have the same words. The daemon's next build takes a millisecond more here
    and less there, so that a number may differ by a little."""
    shown, written = shown.split(), written.split()
    return len(shown) == len(written) and all(map(_is_alike, shown, written))


def _is_alike(shown, written):
    if shown == written:
        return True
    try:
        return abs(float(shown) - float(written)) <= max(0.02, abs(float(shown)) * 0.002)
    except ValueError:
        return False


class TuningPageTest(FilesTest):

    def test_the_page_shows_what_its_commands_write(self):
        for name in ("two-rooms.jsonl", "stairway.jsonl"):
            shutil.copy(os.path.join(WALKS, name), self.folder)
        shown_lines = 0
        for command, shown in steps():
            # Two values of each property show as well as six that the command is right.
            command = re.sub(r"=(-\d+):(-\d+):\d+", r"=\1,\2", command)
            done = self.run_command(*shlex.split(command)[1:], encoding="utf-8")
            self.assertEqual((done.returncode, done.stderr), (0, ""), command)
            written = iter(done.stdout.splitlines())
            for line in shown:
                if line not in ("", "..."):
                    self.assertTrue(any(is_alike(line, other) for other in written),
                                    f"{command} does not write, here: {line}\n{done.stdout}")
                    shown_lines += 1
        self.assertGreater(shown_lines, 25)
        for name in ("two.html", "sweep.html", "lower-74.json"):
            self.assertTrue(os.path.exists(self.path(name)), name)


if __name__ == "__main__":
    guest.main()
