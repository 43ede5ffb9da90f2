"""Reads lines of any file, and keeps account of what could not be read."""

import sys

# What is longer is no line of a log; reading it whole could take any amount of memory.
MAX_LINE = 1 << 16


class Problems:
    """Says what could not be read, by line: the first ones at once, the others by their number."""

    SHOWN = 20

    def __init__(self, path, show_all=False, out=None):
        self.count = 0
        self._path = path
        self._limit = None if show_all else self.SHOWN
        self._out = out

    def add(self, line, what):
        """`line` is a number, or a text with the file's name where there are several files."""
        self.count += 1
        if self._limit is None or self.count <= self._limit:
            place = line if isinstance(line, str) else f"{self._path}:{line}"
            self._say(f"{place}: {what}")

    def tell(self, what):
        """Says what people should know of the file, which is no problem."""
        self._say(f"{self._path}: {what}")

    def finish(self):
        if self._limit is not None and self.count > self._limit:
            self._say(f"{self._path}: {self.count - self._limit} more of these; --show-all names "
                      "them all")

    def _say(self, text):
        # A log may hold anything, also what a terminal would obey.
        text = "".join(c if c.isprintable() else f"\\x{ord(c):02x}" for c in text)
        print(text, file=self._out or sys.stderr)


class Lines:
    """The lines of a binary file as (number, text). Bytes that are not UTF-8 stand as \\xHH."""

    def __init__(self, file, problems):
        self._file = file
        self._problems = problems
        self._number = 0
        # Whether the line that came last lacks its end: the file may be cut there.
        self.cut = False

    def __iter__(self):
        while True:
            line = self._file.readline(MAX_LINE)
            if not line:
                return
            self._number += 1
            if len(line) == MAX_LINE and not line.endswith(b"\n"):
                number = self._number
                while line and not line.endswith(b"\n"):
                    line = self._file.readline(MAX_LINE)
                self._problems.add(number, f"the line is longer than {MAX_LINE} bytes")
                continue
            if b"\0" in line:
                self._problems.add(self._number, "this is no line of a text")
                continue
            self.cut = not line.endswith(b"\n")
            yield self._number, line.decode("utf-8", "backslashreplace").rstrip("\r\n")


def shortened(text):
    """A piece of a line for a message."""
    return repr(text if len(text) <= 60 else text[:57] + "...")
