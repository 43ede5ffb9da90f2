"""Files that a command writes, and what it shows of its progress."""

import os
import sys
import tempfile

from corvid_trace.errors import TraceError


class OutputFile:
    """A text file that is whole or not there. "-" is standard output; use it in a `with`.

    The text goes to a file beside `path`, which gets its name at the end. What is no file (a pipe,
    a terminal) is written to as it is. A file that is there already is a TraceError, but for `force`.
    """

    def __init__(self, path, force=False):
        self._path = path
        self._temporary = None
        self._own = path != "-"
        # A half of a surrogate pair, which JSON may hold, stays as it is escaped there.
        options = {"encoding": "utf-8", "newline": "", "errors": "backslashreplace"}
        if not self._own:
            self._file = sys.stdout
            self._file.reconfigure(**options)
        elif os.path.exists(path) and not os.path.isfile(path):
            self._file = open(path, "w", **options)
        else:
            check_output(path, force)
            folder, name = os.path.split(os.path.abspath(path))
            descriptor, self._temporary = tempfile.mkstemp(prefix=f".{name}.", dir=folder)
            # As open() would have made it: mkstemp lets nobody else read it.
            mask = os.umask(0)
            os.umask(mask)
            os.fchmod(descriptor, 0o666 & ~mask)
            self._file = open(descriptor, "w", **options)

    def write(self, text):
        try:
            self._file.write(text)
        except OSError as error:
            error.filename = self._path
            raise

    def close(self, keep=True):
        """Ends the file; without `keep` nothing is left of it."""
        try:
            if self._own:
                self._file.close()
            elif keep:
                self._file.flush()
        except OSError as error:
            if keep:
                error.filename = self._path
                self._forget()
                raise
        if keep and self._temporary:
            os.replace(self._temporary, self._path)
            self._temporary = None
        self._forget()

    def _forget(self):
        if self._temporary:
            os.unlink(self._temporary)
            self._temporary = None

    def __enter__(self):
        return self

    def __exit__(self, kind, error, trace):
        self.close(keep=kind is None)


def refuse_overwriting(path, force):
    """Raises TraceError when `path` is there already and `force` is not given."""
    if not force and os.path.lexists(path):
        raise TraceError(f"{path}: the file is there already; --force writes over it")


def check_output(path, force):
    """Raises TraceError when a file can't be written at `path`, before the work for it is done."""
    refuse_overwriting(path, force)
    folder = os.path.dirname(path) or "."
    if not os.path.isdir(folder):
        raise TraceError(f"{path}: there is no folder {folder}")


def wants_color(stream):
    """Whether escape sequences may go to a stream: a terminal, and NO_COLOR is not set."""
    return stream.isatty() and not os.environ.get("NO_COLOR")


class Progress:
    """One line on standard error that is written over; nothing when that is no terminal."""

    def __init__(self):
        self._shown = sys.stderr.isatty()
        self._length = 0

    def show(self, text):
        if self._shown:
            sys.stderr.write("\r" + text.ljust(self._length))
            sys.stderr.flush()
            self._length = len(text)

    def clear(self):
        if self._length:
            sys.stderr.write("\r" + " " * self._length + "\r")
            sys.stderr.flush()
            self._length = 0
