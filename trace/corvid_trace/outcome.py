"""Makes the records of a result of what the simulated headset has recorded."""

import bisect
import heapq
import json
import re

from corvid_trace.errors import FormatError, TraceError
from corvid_trace.scenario import STATION

_POWER = re.compile(r"DRIVER SET_TXPOWER (\d+)$")

# Records that a play brings forth: a result that is replayed leaves its own behind.
RESULT_TYPES = ("command", "netlink", "atom", "log", "power")


def step_of(dbm, thresholds):
    """The step with this power, None if there is none; the highest where several have it."""
    for step in ("upper", "middle", "lower"):
        if thresholds["dbm_" + step] == dbm:
            return step
    return None


def power_of(t, interface, text, reply, thresholds):
    """The power record that a command is, or None."""
    match = _POWER.match(text)
    if not match:
        return None
    dbm = int(match[1])
    return {"type": "power", "t": t, "interface": interface, "dbm": dbm,
            "step": step_of(dbm, thresholds),
            "accepted": reply is not None and reply.startswith("OK")}


def records_of(lines, trace_time, thresholds, station=STATION):
    """The result's records in the simulator's, in the order of time.

    `trace_time` turns seconds of the play into those of the trace, where the station's interface is
    called `station`. `thresholds` is [(t, thresholds from then on), ...] in the order of time, the
    first before everything. Raises TraceError when the play went wrong: a line of the scenario
    failed, the daemon ended, or a line is not whole.
    """
    since = [t for t, _ in thresholds]
    for number, line in enumerate(lines, 1):
        try:
            played = json.loads(line)
        except ValueError as error:
            raise FormatError("the play's record", number, f"the line is not whole: {error}") from error
        kind, text = played["kind"], played["text"]
        # A record of the preparation has the time since another start.
        t = trace_time(played["t"])
        if kind == "command":
            interface = station if played["socket"] == STATION else played["socket"]
            command = {"type": "command", "t": t, "interface": interface, "text": text,
                       "reply": _line(played.get("reply"))}
            yield command
            power = power_of(t, interface, text, command["reply"],
                             thresholds[bisect.bisect(since, t) - 1][1])
            if power:
                yield power
        elif kind == "netlink":
            yield {"type": "netlink", "t": t, "text": text, "answer": played.get("answer", "")}
        elif kind == "atom":
            yield {"type": "atom", "t": t, "atomId": played["atom"]["atomId"],
                   "values": played["atom"]["values"]}
        elif kind == "log":
            yield {"type": "log", "t": t, "level": played["level"], "tag": played["tag"],
                   "text": text}
        elif kind == "error":
            raise TraceError(f"the play failed: {text}")


def _line(reply):
    return reply[:-1] if reply is not None and reply.endswith("\n") else reply


def own_records(records):
    """The trace's own lines."""
    return [record for record in records if record["type"] not in RESULT_TYPES]


def merged(own, played):
    """Both in the order of time; at the same time the trace's own line comes first."""
    return heapq.merge(own, sorted(played, key=lambda record: record["t"]),
                       key=lambda record: record["t"])
