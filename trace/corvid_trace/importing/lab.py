"""The folder of logs that a case of the lab leaves: the daemon's and the supplicant's."""

import contextlib
import datetime
import math
import os

from corvid_trace.errors import TraceError
from corvid_trace.importing.clock import EPOCH, zone_of
from corvid_trace.importing.lines import Lines
from corvid_trace.importing.logs import LogParser, LogReader

NAME = "lab"
_DAEMON, _SUPPLICANT = "daemon.log", "supplicant.log"

# Lines of the daemon, and the supplicant's event that each answers.
_ANSWERS = (
    ("StaManager: STA event(CONNECTED", "CTRL-EVENT-CONNECTED"),
    ("StaManager: STA event(DISCONNECTED", "CTRL-EVENT-DISCONNECTED"),
    ("StaManager: STA event(CHANNEL_SWITCH", "CTRL-EVENT-CHANNEL-SWITCH"),
    ("P2P event(CONNECTED", "P2P-GROUP-STARTED"),
    ("P2P event(DISCONNECTED", "P2P-GROUP-REMOVED"),
)


def records(folder, header, problems, options):
    """The records of both logs, put together by their times.

    The daemon's lines have whole seconds only. Within one, a line that answers an event of the
    supplicant comes after it; the others come first.
    """
    with contextlib.ExitStack() as files:
        def opened(name):
            path = os.path.join(folder, name)
            return _Log(path, files.enter_context(open(path, "rb")), problems, options)

        names = [name for name in (_SUPPLICANT, _DAEMON)
                 if os.path.exists(os.path.join(folder, name))]
        if not names:
            raise TraceError(f"{folder}: the folder has neither {_SUPPLICANT} nor {_DAEMON}")
        reader = LogReader(header, problems, options)
        for place, line in _in_order([opened(name) for name in names]):
            yield from reader.records(place, line)


class _Log:
    """One log: the line that is next, its place and its whole second, which never decreases."""

    def __init__(self, path, file, problems, options):
        options.zone = options.zone or zone_of("UTC")  # the guest's
        self._path = path
        self._lines = iter(Lines(file, problems))
        self._parser = LogParser(problems, options)
        self.line = None
        self.second = -math.inf
        self.advance()
        # The supplicant's times, which are read first, tell what the daemon's leave away.
        if options.year is None and self.line and self.line.origin == EPOCH:
            options.year = datetime.datetime.fromtimestamp(self.line.seconds, options.zone).year

    def advance(self):
        """Goes to the next line; `line` is None behind the last."""
        self.line = None
        for number, text in self._lines:
            self.place = f"{self._path}:{number}"
            self.line = self._parser.parse(self.place, text)
            if self.line:
                self.second = max(self.second, math.floor(self.line.seconds))
                return


def _in_order(logs):
    """(place, line) of one or two logs, of which the first is the supplicant's."""
    second, told = None, set()  # the events of this second that the supplicant has told
    while left := [log for log in logs if log.line]:
        log = min(left, key=lambda log: log.second)
        if log.second != second:
            second, told = log.second, set()
        if len(left) == 2 and left[0].second == left[1].second:
            event = next((event for answer, event in _ANSWERS if answer in left[1].line.text), None)
            log = left[0] if event and event not in told else left[1]
        told.update(event for _, event in _ANSWERS if event in log.line.text)
        yield log.place, log.line
        log.advance()
