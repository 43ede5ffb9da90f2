"""The platform's log, the daemon's on a host, and the supplicant's own, as text with times.

Which lines are looked at: those with the daemon's tag and those of the supplicant. What both say of
the link is put together.
"""

import re

from corvid_trace.importing import daemon_log
from corvid_trace.importing.clock import CalendarClock, TraceClock, origin_of, zone_of
from corvid_trace.importing.lines import shortened
from corvid_trace.importing.link import Link, without_secrets

NAME = "log"
SUPPLICANT_TAG = "wpa_supplicant"

# logcat -v threadtime | year (with zone and uid, if asked for), and -v epoch | monotonic.
_TAIL = (r" +(?:[\w-]+ +)??(?P<pid>\d+) +(?P<tid>\d+) (?P<level>[VDIWEFS]) "
         r"(?P<tag>[^:]*?) *: ?(?P<text>.*)")
_CALENDAR = re.compile(
    r"(?:(?P<year>\d{4})-)?(?P<month>\d\d)-(?P<day>\d\d) (?P<time>\d\d:\d\d:\d\d\.\d{3,9})"
    r"(?: (?P<zone>[+-]\d{4}))?" + _TAIL, re.DOTALL)
_SECONDS = re.compile(r" *(?P<seconds>\d{1,12}\.\d{3,9})" + _TAIL, re.DOTALL)
# The daemon's standard error on a host, and the lab's daemon.log.
_HOST = re.compile(
    r"(?P<tag>[\w.-]+) (?P<level>[VDIWEFS]) (?P<month>\d\d)-(?P<day>\d\d) "
    r"(?P<time>\d\d:\d\d:\d\d) +(?P<pid>\d+) +(?P<tid>\d+) (?P<text>.*)", re.DOTALL)
# wpa_supplicant -t: the lab's supplicant.log.
_SUPPLICANT = re.compile(r"(?P<seconds>\d{9,10}\.\d{6}): (?P<text>.*)", re.DOTALL)
_FORMS = (_CALENDAR, _SECONDS, _SUPPLICANT, _HOST)

# What logcat itself says between two lines.
_DIVIDER = "--------- "

# Of the supplicant's lines, those that are events: wpa_supplicant writes them as they are sent.
_EVENT = re.compile(
    r"(?P<interface>[A-Za-z][\w.-]*): (?P<text>(?:CTRL-EVENT-|P2P-|AP-|WPS-|SME: |WPA: |"
    r"Trying to |Associated with ).*)", re.DOTALL)


def looks_so(line):
    return any(form.match(line) for form in _FORMS) or line.startswith(_DIVIDER)


def records(lines, header, problems, options):
    """See the package. Lines of other programs are left away; they are no problems."""
    parser = LogParser(problems, options)
    reader = LogReader(header, problems, options)
    for number, text in lines:
        line = parser.parse(number, text)
        if line and lines.cut and reader.reads(line):
            problems.add(number, "the file ends inside this line; it is left away")
        elif line:
            yield from reader.records(number, line)


class LogLine:
    """A line's parts and its time in seconds; `origin` says since when."""

    __slots__ = ("seconds", "origin", "tag", "level", "pid", "text")

    def __init__(self, fields, seconds, origin):
        self.seconds = seconds
        self.origin = origin
        self.tag = fields.get("tag", SUPPLICANT_TAG)
        self.level = fields.get("level", "I")
        self.pid = fields.get("pid")
        self.text = fields["text"]


class LogParser:
    """Takes the lines of one file apart."""

    def __init__(self, problems, options):
        self._problems = problems
        self._calendar = CalendarClock(options.year, options.zone)

    def parse(self, number, text):
        """A LogLine, or None for a line that is none."""
        match = next((found for found in (form.match(text) for form in _FORMS) if found), None)
        if match is None:
            if text.strip() and not text.startswith(_DIVIDER):
                self._problems.add(number, f"this is no line of a log: {shortened(text)}")
            return None
        fields = match.groupdict()
        if "seconds" in fields:
            seconds = float(fields["seconds"])
            return LogLine(fields, seconds, origin_of(seconds))
        year = int(fields["year"]) if fields.get("year") else None
        zone = zone_of(fields["zone"]) if fields.get("zone") else None
        try:
            seconds = self._calendar.seconds(int(fields["month"]), int(fields["day"]),
                                             fields["time"], year, zone)
        except ValueError as error:
            self._problems.add(number, f"there is no such time: {error}")
            return None
        return LogLine(fields, seconds, self._calendar.origin(year, zone))


class LogReader:
    """Makes records of the lines of one log, or of several in the order of their times."""

    def __init__(self, header, problems, options):
        self._clock = TraceClock(header, problems)
        self._link = Link(options.sta_interface)
        self._daemon = daemon_log.DaemonLog(self._link, problems)
        header["interfaces"] = {"sta": options.sta_interface}

    def reads(self, line):
        """Whether a LogLine is of one of the programs that are looked at."""
        return line.tag in (daemon_log.TAG, SUPPLICANT_TAG)

    def records(self, number, line):
        """Those of one LogLine; `number` names it in problems."""
        if line.tag == daemon_log.TAG:
            t = self._clock.at(number, line.seconds, line.origin)
            return self._daemon.records(number, t, line.level.replace("S", "F"), line.text,
                                        line.pid)
        if line.tag == SUPPLICANT_TAG:
            event = _EVENT.match(line.text)
            if event:
                return self._event(self._clock.at(number, line.seconds, line.origin), event)
        return []

    def _event(self, t, event):
        interface, text = event["interface"], without_secrets(event["text"])
        made = [{"type": "supplicant", "t": t, "interface": interface, "text": text}]
        self._link.event(interface, text)
        sample = self._link.sample(t, always=text.startswith("CTRL-EVENT-SIGNAL-CHANGE "))
        return made + [sample] if sample else made
