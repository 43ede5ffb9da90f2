"""What the report's page draws of a result: numbers in columns, small enough for a day's trace.

Times are whole milliseconds since the result's first line; a column of them holds the differences
from one to the next. Texts stand once in a list and are named by their place in it, and so do the
signals, since all runs of a sweep over a trace have the same.
"""

import json

from corvid_trace.results import short_property
from corvid_trace.timeline import STEPS, is_refused

# Commands that only ask. A day has thousands of them; they get a lane of their own.
_POLLS = ("SIGNAL_POLL", "STATUS", "PING")
_MAX_TEXT = 400
_EVENT_LANES = ("event", "callback", "atom", "netlink", "daemon", "note")

# The lanes of marks below the curves, from top to bottom.
LANES = ("power", "command", *_EVENT_LANES, "poll")


class PageData:
    """The data of all runs of a page."""

    def __init__(self):
        self._texts = _Once()
        self._signals = _Once()
        self._runs = []

    def add(self, result, values, settings):
        """Adds a run: a Result, its measures and the settings that set it apart."""
        timeline = result.timeline
        wall = timeline.header.get("start_wall")
        self._runs.append({
            "name": result.name,
            "label": timeline.label,
            "start": timeline.start,
            "wall": wall,
            "duration": _ms(timeline, timeline.end),
            "thresholds": timeline.thresholds,
            "settings": {short_property(name): value for name, value in settings.items()},
            "energy": values["energy_mws"],
            "changes": values["changes"],
            "failed": values["failed_commands"],
            "signal": self._signals.place(_signal(timeline)),
            "station": _channels(timeline, _station_channels(timeline)),
            "group": _channels(timeline, timeline.group),
            "power": _powers(timeline, timeline.power),
            "groupPower": _powers(timeline, timeline.group_power),
            "chains": [[_ms(timeline, t), *limits] for t, *limits in timeline.chain_limits()],
            "lanes": self._lanes(timeline),
        })

    def as_object(self):
        return {"texts": self._texts.all, "signals": self._signals.all, "runs": self._runs}

    def _lanes(self, timeline):
        lanes = {lane: [] for lane in LANES}
        for t, interface, text, reply in timeline.commands:
            lane = ("power" if text.startswith("DRIVER SET_TXPOWER") else
                    "poll" if text in _POLLS else "command")
            answer = "no answer" if reply is None else " ".join(reply.split())
            lanes[lane].append((t, f"{interface}: {text} → {answer or 'nothing'}",
                                is_refused(reply)))
        for t, kind, text in timeline.events:
            lanes[kind].append((t, text, False))
        return [self._lane(timeline, lane, marks) for lane, marks in lanes.items() if marks]

    def _lane(self, timeline, lane, marks):
        return {"kind": lane, "t": _steps(_ms(timeline, t) for t, _, _ in marks),
                "text": [self._texts.place(_cut(text)) for _, text, _ in marks],
                "refused": [index for index, (_, _, refused) in enumerate(marks) if refused]}


class _Once:
    """A list in which each value stands once."""

    def __init__(self):
        self.all = []
        self._places = {}

    def place(self, value):
        key = value if isinstance(value, str) else json.dumps(value)
        if key not in self._places:
            self._places[key] = len(self.all)
            self.all.append(value)
        return self._places[key]


def _cut(text):
    return text if len(text) <= _MAX_TEXT else text[:_MAX_TEXT - 1] + "…"


def _ms(timeline, t):
    return round((t - timeline.start) * 1000)


def _steps(times):
    """Differences from one time to the next; the first from 0."""
    steps = []
    last = 0
    for t in times:
        steps.append(t - last)
        last = t
    return steps


def _signal(timeline):
    """The signal, dBm; null without a link or when nobody knows. The last one holds to the end."""
    times = [_ms(timeline, signal.t) for signal in timeline.signal]
    values = [signal.rssi if signal.connected else None for signal in timeline.signal]
    if times and times[-1] < _ms(timeline, timeline.end):
        times.append(_ms(timeline, timeline.end))
        values.append(values[-1])
    return {"t": _steps(times), "dbm": values}


def _station_channels(timeline):
    return [(signal.t, signal.frequency if signal.connected else None, signal.width)
            for signal in timeline.signal]


def _channels(timeline, changes):
    """[from, to, MHz, width] for each stretch of time on one channel."""
    stretches = []
    for t, frequency, width in changes:
        at = _ms(timeline, t)
        last = stretches[-1] if stretches else None
        if last and last[1] is None:
            if frequency == last[2] and (width == last[3] or width is None):
                continue
            last[1] = at
        if frequency is not None:
            stretches.append([at, None, frequency, width])
    if stretches and stretches[-1][1] is None:
        stretches[-1][1] = _ms(timeline, timeline.end)
    return stretches


def _powers(timeline, powers):
    """[time, dBm, number of the step or -1, 1 for accepted]."""
    return [[_ms(timeline, power.t), power.dbm,
             STEPS.index(power.step) if power.step in STEPS else -1, int(power.accepted)]
            for power in powers]
