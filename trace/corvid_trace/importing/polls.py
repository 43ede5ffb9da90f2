"""A loop of `wpa_cli signal_poll` with a time before each answer, or before each of its lines.

    while sleep 1; do date +%s.%N; wpa_cli -i wlan0 signal_poll; done > polls.txt
"""

import re

from corvid_trace.importing.clock import UNKNOWN, CalendarClock, TraceClock, origin_of, zone_of
from corvid_trace.importing.lines import shortened
from corvid_trace.importing.link import FREQUENCIES_MHZ, RSSI_DBM, WIDTHS, Link

NAME = "polls"

_SECONDS = re.compile(r"\[?\s*(\d{1,12}(?:[.,]\d{1,9})?)\]?(?:\s+\d+\.\d+)?:?")  # /proc/uptime has two
_CALENDAR = re.compile(
    r"(\d{4})-(\d\d)-(\d\d)[T ](\d\d:\d\d:\d\d)(?:[.,](\d+))?(?:\s*(Z|UTC|[+-]\d\d:?\d\d))?")
# date without an option, in English.
_DATE = re.compile(r"(?:Mon|Tue|Wed|Thu|Fri|Sat|Sun) (\w{3}) +(\d\d?) (\d\d:\d\d:\d\d)( [AP]M)? "
                   r"(\w+) (\d{4})")
_CLOCK = re.compile(r"(\d\d:\d\d:\d\d)(?:[.,](\d+))?")
_MONTHS = "Jan Feb Mar Apr May Jun Jul Aug Sep Oct Nov Dec".split()
_VALUE = re.compile(r"([A-Z][A-Z0-9_]*)=(.*)")
_DAY_S = 24 * 3600.0


def looks_so(line):
    return line.startswith("RSSI=") or " RSSI=" in line


def records(lines, header, problems, options):
    """See the package."""
    header["interfaces"] = {"sta": options.sta_interface}
    loop = _Loop(header, problems, options)
    for number, text in lines:
        yield from loop.line(number, text)
    yield from loop.end()


class _Loop:
    """Collects the lines of one answer, and makes a sample of it when the next begins."""

    def __init__(self, header, problems, options):
        self._problems = problems
        self._clock = TraceClock(header, problems)
        self._calendar = CalendarClock(options.year, options.zone)
        self._link = Link(options.sta_interface)
        self._time = None  # (line, seconds, origin) of the answer under way
        self._answer = {}
        self._days = 0.0
        self._last_clock = None

    def line(self, number, text):
        text = text.strip()
        if not text or text.startswith(("Selected interface", ">")):
            return
        time, rest = self._time_of(number, text)
        value = _VALUE.fullmatch(rest)
        known = value or rest in ("FAIL", "")
        if not known:
            self._problems.add(number, "this is neither a time nor a line of signal_poll: " +
                               shortened(text))
            return
        # A line with its own time goes on with the answer, but RSSI, the first one, begins another.
        begins = (rest in ("", "FAIL") if time else rest == "FAIL" and self._answer) or (
            value and value[1] == "RSSI" and bool(self._answer))
        if begins:
            yield from self.end()
        if time and (begins or self._time is None):
            self._time = (number, *time)
        if rest == "":
            return
        if self._time is None:
            if rest == "FAIL" or value[1] == "RSSI":
                self._problems.add(number, "no time stands before this answer")
            return
        self._answer["FAIL" if rest == "FAIL" else value[1]] = value[2] if value else ""

    def end(self):
        """The sample of the answer under way."""
        time, answer = self._time, self._answer
        self._time, self._answer = None, {}
        if time is None:
            return
        line, seconds, origin = time
        if not answer:
            self._problems.add(line, "no answer follows this time")
            return
        if "FAIL" in answer:
            self._link.disconnect()
        elif not self._poll(line, answer):
            return
        yield self._link.sample(self._clock.at(line, seconds, origin), always=True)

    def _poll(self, line, answer):
        try:
            rssi, frequency = int(answer.get("RSSI", "")), int(answer.get("FREQUENCY", ""))
        except ValueError:
            self._problems.add(line, "the answer to this poll lacks RSSI or FREQUENCY")
            return False
        if rssi not in RSSI_DBM or frequency not in FREQUENCIES_MHZ:
            self._problems.add(line, f"no signal can be {rssi} dBm on {frequency} MHz")
            return False
        width = answer.get("WIDTH", "").removesuffix(" MHz").removesuffix(" (no HT)")
        self._link.poll(frequency, rssi, WIDTHS.get(width))
        return True

    def _time_of(self, number, text):
        """(seconds, origin) at the beginning of a line, or None, and the rest of the line."""
        for pattern, read in ((_CALENDAR, self._calendar_time), (_DATE, self._date),
                              (_CLOCK, self._clock_time), (_SECONDS, self._seconds)):
            match = pattern.match(text)
            if match and (match.end() == len(text) or text[match.end()].isspace()):
                try:
                    return read(match), text[match.end():].strip()
                except ValueError as error:
                    self._problems.add(number, f"there is no such time: {error}")
                    return None, text[match.end():].strip()
        return None, text

    def _seconds(self, match):
        seconds = float(match[1].replace(",", "."))
        return seconds, origin_of(seconds)

    def _calendar_time(self, match):
        zone = zone_of(match[6]) if match[6] else None
        seconds = self._calendar.seconds(int(match[2]), int(match[3]),
                                         f"{match[4]}.{match[5] or 0}", int(match[1]), zone)
        return seconds, self._calendar.origin(int(match[1]), zone)

    def _date(self, match):
        if match[1] not in _MONTHS:
            raise ValueError(f"no month is called {match[1]}")
        hour, rest = match[3][:2], match[3][2:]
        if match[4]:
            hour = f"{int(hour) % 12 + (12 if match[4] == ' PM' else 0):02}"
        zone = zone_of(match[5])
        seconds = self._calendar.seconds(_MONTHS.index(match[1]) + 1, int(match[2]), hour + rest,
                                         int(match[6]), zone)
        return seconds, self._calendar.origin(int(match[6]), zone)

    def _clock_time(self, match):
        """A time without a day: midnight begins the next one."""
        hour, minute, second = match[1].split(":")
        seconds = int(hour) * 3600 + int(minute) * 60 + float(f"{second}.{match[2] or 0}")
        if self._last_clock is not None and self._last_clock - seconds > _DAY_S / 2:
            self._days += _DAY_S
        self._last_clock = seconds
        return seconds + self._days, UNKNOWN
