"""The simulator's --record file: what happened, and what the daemon did about it."""

import json
import re
import shlex

from corvid_trace.importing.clock import BOOT, TraceClock
from corvid_trace.importing.lines import shortened
from corvid_trace.importing.link import (FREQUENCIES_MHZ, RSSI_DBM, WIDTHS, Link, without_secrets)

NAME = "simulator"

_TAG = re.compile(r"<\d+>")
_STARTED = "the daemon was started"
_CALLBACK_FIELDS = {"onChannelSwitch": ("frequency", "width", "isP2p"), "onAssocStarted": (),
                    "onRegdomUpdated": ("init", "type", "alpha2")}


def looks_so(line):
    record = _parse(line)
    return isinstance(record, dict) and "kind" in record and "t" in record


def _parse(line):
    try:
        return json.loads(line)
    except (ValueError, RecursionError):
        return None


def _text(value):
    """The record has each byte as the character of its number."""
    return value.encode("latin-1").decode("utf-8", "backslashreplace")


def records(lines, header, problems, options):
    """See the package. Time is counted from the daemon's start; what prepares it is not kept."""
    header["interfaces"] = {"sta": options.sta_interface}
    header["result"] = True
    header["settings"] = header["properties"]
    play = _Play(header, problems, options)
    for number, line in lines:
        record = _parse(line)
        if not isinstance(record, dict):
            problems.add(number, f"this is no record of the simulator: {shortened(line)}")
            continue
        try:
            yield from play.records(number, record)
        except (KeyError, TypeError, ValueError, AttributeError) as error:
            problems.add(number, f"this record lacks something: {type(error).__name__} {error}")


class _Play:
    """Makes records of what was played."""

    def __init__(self, header, problems, options):
        self._header = header
        self._problems = problems
        self._clock = TraceClock(header, problems)
        self._link = Link(options.sta_interface)
        self._started = False

    def records(self, number, record):
        kind, text = record["kind"], _text(record["text"])
        if not self._started:
            if kind == "line":
                self._prepare(text)
            if kind != "program" or text != _STARTED:
                return []
            self._started = True
        made = getattr(self, "_" + kind, self._nothing)(number, record, text)
        polled = kind == "command" and text == "SIGNAL_POLL"
        # Only what is written moves the clock.
        if not made and not polled:
            return []
        t = self._clock.at(number, float(record["t"]), BOOT)
        made = [{"type": made[0], "t": t, **made[1]}] if made else []
        sample = self._link.sample(t, always=polled)
        return made + [sample] if sample else made

    def _prepare(self, text):
        """A property that is set before the daemon's start is the header's."""
        words = shlex.split(text) if text.startswith("property ") else []
        if len(words) == 3:
            self._header["properties"][words[1]] = words[2]

    # One function per kind of record: the type and the fields of what it becomes, or None.

    def _nothing(self, _number, _record, _text):
        return None

    def _program(self, _number, _record, text):
        if not text.startswith("the daemon "):
            return None
        return "daemon", {"state": "started" if text == _STARTED else "ended"}

    def _event(self, _number, record, text):
        event = without_secrets(_TAG.sub("", text, count=1))
        self._link.event(record["socket"], event)
        return "supplicant", {"interface": record["socket"], "text": event}

    def _command(self, number, record, text):
        reply = record["reply"]
        reply = None if reply is None else without_secrets(_text(reply).removesuffix("\n"))
        if text == "SIGNAL_POLL" and record["socket"] == self._link.station:
            self._poll(number, reply or "")
        return "command", {"interface": record["socket"], "text": text, "reply": reply}

    def _poll(self, number, reply):
        fields = dict(line.partition("=")[::2] for line in reply.split("\n"))
        if "RSSI" not in fields:
            return  # refused: the commands tell
        rssi, frequency = int(fields["RSSI"]), int(fields["FREQUENCY"])
        if rssi not in RSSI_DBM or frequency not in FREQUENCIES_MHZ:
            self._problems.add(number, f"no signal can be {rssi} dBm on {frequency} MHz")
            return
        width = fields.get("WIDTH", "").removesuffix(" MHz")
        self._link.poll(frequency, rssi, WIDTHS.get(width))

    def _netlink(self, _number, record, text):
        return "netlink", {"text": text, "answer": record["answer"]}

    def _atom(self, _number, record, _text):
        return "atom", {"atomId": record["atom"]["atomId"], "values": record["atom"]["values"]}

    def _log(self, _number, record, text):
        return "log", {"level": record["level"], "tag": record["tag"], "text": text}

    def _callback(self, _number, record, _text):
        callback = record["callback"]
        fields = _CALLBACK_FIELDS.get(callback["event"])
        if fields is None:
            return None
        # The field "type" would be the record's.
        return "callback", {"event": callback["event"], **{
            "regdomType" if name == "type" else name: callback[name] for name in fields}}

    def _say(self, _number, _record, text):
        return "note", {"text": text}

    def _line(self, _number, _record, text):
        # The daemon reads properties while it runs.
        return ("note", {"text": text}) if text.startswith(("property ", "unset ")) else None
