"""Turns the times of a file into those of a trace, which never decrease."""

import datetime
import re

# Lines of several threads overtake each other by less.
OUT_OF_ORDER_S = 1.0
# A headset sleeps, but no walk pauses for so long: somebody has set the clock.
LEAP_S = 12 * 3600.0
# Seconds since 1970 are more, and seconds since a start less: 1 January 2000.
FIRST_EPOCH = 946684800.0


# What seconds of a file are counted from: 1970, UTC; the start of the machine; nobody knows.
EPOCH, BOOT, UNKNOWN = "epoch", "boot", "unknown"


def origin_of(seconds):
    """EPOCH or BOOT, for seconds of one of the two."""
    return EPOCH if seconds >= FIRST_EPOCH else BOOT


class TraceClock:
    """Seconds of the file to seconds of the trace.

    Times since the machine's start stay as they are. Others become seconds since the first line,
    whose time goes into the header as start_wall if it is since 1970. A clock that is set back or far
    ahead is reported as a problem, and the trace's time goes on from where it was.
    """

    def __init__(self, header, problems):
        self._header = header
        self._problems = problems
        self._offset = 0.0
        self._last = None

    def at(self, line, seconds, origin):
        """The trace's time of a line."""
        if self._last is None:
            if origin == EPOCH:
                self._header["start_wall"] = seconds
            if origin != BOOT:
                self._offset = -seconds
            self._last = seconds + self._offset
        t = seconds + self._offset
        step = t - self._last
        if step < -OUT_OF_ORDER_S or step > LEAP_S:
            self._problems.add(line, f"the clock was set {'back' if step < 0 else 'ahead'} by "
                                     f"{abs(step):.3f} s; the times go on without this leap")
            self._offset -= step
        if step < 0 or step > LEAP_S:
            t = self._last
        self._last = t
        return round(t, 6)


class CalendarClock:
    """Stamps of a calendar to seconds. Without a year only their differences mean something."""

    def __init__(self, year, zone):
        # A leap year, so that no day of any year is refused.
        self._year = year or 2024
        self._has_year = year is not None
        self._zone = zone
        self._month = None

    def seconds(self, month, day, time, year=None, zone=None):
        """Raises ValueError for a day or a time that does not exist. `time` is HH:MM:SS[.f]."""
        if year is None:
            # A log without years that goes on in January was not written backwards.
            if self._month == 12 and month == 1:
                self._year += 1
            self._month = month
        hour, minute, second = time.split(":")
        whole, _, fraction = second.partition(".")
        moment = datetime.datetime(year or self._year, month, day, int(hour), int(minute),
                                   int(whole), tzinfo=zone or self._zone or datetime.timezone.utc)
        return moment.timestamp() + (float("0." + fraction) if fraction else 0.0)

    def origin(self, year=None, zone=None):
        """What seconds() are counted from: EPOCH when year and zone are known."""
        has_year = year is not None or self._has_year
        return EPOCH if has_year and (zone or self._zone) is not None else UNKNOWN


_OFFSET = re.compile(r"([+-])(\d\d):?(\d\d)$")


def zone_of(text):
    """The time zone "Z", "UTC", "GMT", "+0100" or "+01:00"; None for another text."""
    if text in ("Z", "UTC", "GMT"):
        return datetime.timezone.utc
    match = _OFFSET.match(text)
    if not match or int(match[2]) > 23 or int(match[3]) > 59:
        return None
    offset = datetime.timedelta(hours=int(match[2]), minutes=int(match[3]))
    return datetime.timezone(-offset if match[1] == "-" else offset)
