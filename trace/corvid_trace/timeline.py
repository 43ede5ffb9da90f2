"""A result as values over time: signal, power, chain limits, channels, and what happened when."""

import re

from corvid_trace.importing.link import WIDTHS

STEPS = ("upper", "middle", "lower")

_POWER = re.compile(r"DRIVER SET_TXPOWER (\d+)$")
_CHAIN_LIMIT = re.compile(r"DRIVER SET_PER_CHAIN_TX_PWR_LIMIT band \d+ chain (\d) power (\d+)$")
_FREQUENCY = re.compile(r"\bfreq=(\d+)")
_WIDTH = re.compile(r"\b(?:ch_)?width=(80\+80|\d+)")
_INTERFACE = re.compile(r"\bifname=(\S+)")


def is_refused(reply):
    """Whether a command did nothing: no answer, FAIL... or UNKNOWN COMMAND."""
    return reply is None or reply.startswith(("FAIL", "UNKNOWN COMMAND"))


class Signal:
    """The station's link from `t` on. Without a link only `t` is set."""

    __slots__ = ("t", "connected", "rssi", "frequency", "width")

    def __init__(self, t, connected=False, rssi=None, frequency=None, width=None):
        self.t = t
        self.connected = connected
        self.rssi = rssi
        self.frequency = frequency
        self.width = width


class Power:
    """A power command: dBm as sent, and its step's name or None."""

    __slots__ = ("t", "dbm", "step", "accepted")

    def __init__(self, t, dbm, step, accepted):
        self.t = t
        self.dbm = dbm
        self.step = step
        self.accepted = accepted


class Timeline:
    """A result, read once. Times are those of the trace; every list is in the order of time.

    `signal` holds Signals, `power` and `group_power` Powers of the station and of the P2P group,
    `chains` (t, chain, dBm as sent, accepted), `group` (t, MHz or None, width or None), `commands`
    (t, interface, text, reply), `events` (t, kind, text).
    """

    def __init__(self, header, records):
        self.header = header
        # Whoever wrote the file: what is no number is no threshold.
        self.thresholds = {name: value for name, value in (header.get("thresholds") or {}).items()
                           if isinstance(value, (bool, int, float))}
        self.settings = header.get("settings") or header.get("properties") or {}
        self.label = header.get("label") or ""
        interfaces = header.get("interfaces") or {}
        self.station = interfaces.get("sta", "wlan0")
        self.start = None
        self.end = None
        self.signal = []
        self.group = []
        self.chains = []
        self.commands = []
        self.events = []
        self.power = []
        self.group_power = []
        # Older results and plays have only the commands.
        self._from_commands = ([], [])
        handlers = {"sample": self._sample, "supplicant": self._supplicant,
                    "command": self._command, "power": self._power, "callback": self._callback,
                    "daemon": self._daemon, "atom": self._atom, "netlink": self._netlink,
                    "note": self._note, "end": self._end}
        for record in records:
            t = record["t"]
            if self.start is None:
                self.start = t
            self.end = t
            handler = handlers.get(record["type"])
            if handler:
                handler(t, record)
        if self.start is None:
            self.start = self.end = 0.0
        if not self.power and not self.group_power:
            self.power, self.group_power = self._from_commands

    @property
    def duration(self):
        return self.end - self.start

    def step_of(self, dbm):
        """The name of the step with this power, or None."""
        return next((step for step in STEPS if self.thresholds.get("dbm_" + step) == dbm), None)

    def chain_limits(self):
        """(t, limit of chain 0, limit of chain 1) after each accepted command, None for unknown."""
        limits = [None, None]
        after = []
        for t, chain, dbm, accepted in self.chains:
            if accepted and chain < len(limits):
                limits[chain] = dbm
                after.append((t, *limits))
        return after

    def segments(self):
        """(from, to, Signal, Power in force or None) between all changes, where there is a link.

        A signal holds until the next one. Power holds until the next accepted command; before the
        first one nobody knows it.
        """
        changes = [(signal.t, 0, signal) for signal in self.signal]
        changes += [(power.t, 1, power) for power in self.power if power.accepted]
        changes.sort(key=lambda change: change[:2])
        changes.append((self.end, 2, None))
        signal, power, since = None, None, self.start
        for t, which, value in changes:
            if signal is not None and signal.connected and t > since:
                yield since, t, signal, power
            since = t
            if which == 0:
                signal = value
            elif which == 1:
                power = value

    # One record each.

    def _sample(self, t, record):
        station = record.get("sta")
        if station is None:
            if not self.signal or self.signal[-1].connected:
                self.signal.append(Signal(t))
        else:
            self.signal.append(Signal(t, True, station.get("rssi_dbm"),
                                      station.get("frequency_mhz"), station.get("bandwidth_mhz")))
        group = record.get("p2p")
        if group is None:
            self._group_is(t, None, None)
        else:
            self._group_is(t, group.get("frequency_mhz"), group.get("bandwidth_mhz"))

    def _group_is(self, t, frequency, width):
        last = self.group[-1] if self.group else (None, None, None)
        if frequency == last[1] and width is None:
            return
        if (frequency, width) != last[1:]:
            self.group.append((t, frequency, width))

    def _supplicant(self, t, record):
        text = record["text"]
        interface = record["interface"]
        self.events.append((t, "event", f"{interface} {text}"))
        on_station = interface == self.station
        if text.startswith("CTRL-EVENT-CONNECTED") and on_station:
            if not self.signal or not self.signal[-1].connected:
                self.signal.append(Signal(t, True))
        elif text.startswith(("CTRL-EVENT-DISCONNECTED", "CTRL-EVENT-TERMINATING")) and on_station:
            if self.signal and self.signal[-1].connected:
                self.signal.append(Signal(t))
        elif text.startswith("CTRL-EVENT-CHANNEL-SWITCH"):
            self._switched(t, interface, text)
        elif text.startswith("P2P-GROUP-STARTED"):
            self._group_is(t, *_channel(text))
        elif text.startswith("P2P-GROUP-REMOVED"):
            self._group_is(t, None, None)

    def _switched(self, t, interface, text):
        named = _INTERFACE.search(text)
        frequency, width = _channel(text)
        if frequency is None:
            return
        if (named.group(1) if named else interface) != self.station:
            # It may be of an access point, too: only a group that is there moves.
            if self.group and self.group[-1][1] is not None:
                self._group_is(t, frequency, width)
        elif self.signal and self.signal[-1].connected:
            last = self.signal[-1]
            self.signal.append(Signal(t, True, last.rssi, frequency, width or last.width))

    def _command(self, t, record):
        interface, text, reply = record["interface"], record["text"], record.get("reply")
        reply = reply if reply is None else reply.rstrip("\n")
        self.commands.append((t, interface, text, reply))
        accepted = not is_refused(reply)
        power = _POWER.match(text)
        if power:
            dbm = int(power.group(1))
            of = self._from_commands[0 if interface == self.station else 1]
            of.append(Power(t, dbm, self.step_of(dbm), accepted))
            return
        limit = _CHAIN_LIMIT.match(text)
        if limit:
            self.chains.append((t, int(limit.group(1)), int(limit.group(2)), accepted))

    def _power(self, t, record):
        of = self.power if record["interface"] == self.station else self.group_power
        of.append(Power(t, record["dbm"], record.get("step"), record["accepted"]))

    def _callback(self, t, record):
        fields = ", ".join(f"{name}: {value}" for name, value in record.items()
                           if name not in ("type", "t", "wall", "event"))
        self.events.append((t, "callback", f"{record['event']} {fields}".rstrip()))

    def _daemon(self, t, record):
        self.events.append((t, "daemon", f"daemon {record['state']}"))

    def _atom(self, t, record):
        values = " ".join(str(next(iter(value.values()), "")) if isinstance(value, dict)
                          else str(value) for value in record["values"])
        self.events.append((t, "atom", f"{record['atomId']}: {values}"))

    def _netlink(self, t, record):
        text, answer = record.get("text", ""), record.get("answer", "")
        self.events.append((t, "netlink", f"{text} → {answer}"))

    def _note(self, t, record):
        self.events.append((t, "note", record["text"]))

    def _end(self, t, record):
        self.events.append((t, "note", f"end of the trace: {record['reason']}"))


def _channel(text):
    frequency = _FREQUENCY.search(text)
    width = _WIDTH.search(text)
    return int(frequency[1]) if frequency else None, WIDTHS.get(width[1]) if width else None
