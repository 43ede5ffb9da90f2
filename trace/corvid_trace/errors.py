"""What ends a command of corvid-trace with a message for people."""


class TraceError(Exception):
    """Something is wrong with what a file holds, or with where it is to go: exit status 1."""


class UsageError(Exception):
    """The command line is wrong: exit status 2. The message says what is allowed."""


class FormatError(TraceError):
    """A line of a file is not what it has to be."""

    def __init__(self, path, line, what):
        super().__init__(f"{path}:{line}: {what}")
        self.path = path
        self.line = line
        self.what = what
