"""Makes the simulated headset's scenario of a trace.

Samples say what was true at their time: the signal changes half-way between two of them, so that
each holds on both sides of its time, and a sample of the daemon then finds what the recording found,
though it comes a few milliseconds earlier or later. Links, channels and groups change at the time of
the sample that first shows it, or of the event or callback that tells of it.
"""

import bisect
import math
import re

from corvid_trace.errors import FormatError

# The trace begins so long after the daemon's start, s: time for it to attach.
LEAD = 1.0

# The play ends so long after the trace, s. The daemon samples every 5 s from the connection on, and
# that is usually a time of the trace: not a moment to end at.
_REST = 0.5

# A signal begins at most so long before its sample, s: what was between rarer samples nobody knows.
_LONGEST_BEFORE = 5.0

# A channel switch that an event or callback tells of within so many seconds of the sample that shows
# it is the same one.
_SAME_CHANGE = 3.0

# A group's socket is there before it is up; so soon it can neither move nor end, s.
_GROUP_UP = 0.2

_LOWEST_DBM, _HIGHEST_DBM = -110, 0
_LOWEST_MHZ, _HIGHEST_MHZ = 2400, 7200

# The simulated station's interface, whatever the recorded one was called.
STATION = "wlan0"

# A daemon that was told to end has ended after so long, s.
_DAEMON_END = 0.5

# A longer walk is more likely a wrong time than a walk, s.
_LONGEST = 14 * 24 * 3600

_FREQUENCY = re.compile(r"\bfreq=([0-9]{1,5})\b")
_WIDTH = re.compile(r"\b(?:ch_)?width=(20|40|80\+80|80|160)\b")
_INTERFACE = re.compile(r"\bifname=(\S+)")
_REASON_CODE = re.compile(r"\breason=([0-9]{1,4})\b")
_REASON = re.compile(r"\breason=([A-Za-z0-9_-]{1,40})")
_BSSID = re.compile(r"((?:[0-9a-f]{2}:){5}[0-9a-f]{2})", re.IGNORECASE)

# What the simulated supplicant says by itself when something happens.
_SAID_ANYWAY = ("SME: Trying to", "Trying to associate", "Associated with", "WPA: Key negotiation",
                "CTRL-EVENT-SUBNET-STATUS-UPDATE", "CTRL-EVENT-STARTED-CHANNEL-SWITCH", "AP-ENABLED",
                "AP-DISABLED", "CTRL-EVENT-DSCP-POLICY", "CTRL-EVENT-ASSOC-STARTED")

_REGDOM_WORD = re.compile(r"[A-Za-z0-9_]{1,40}\Z")


def quoted(text):
    """A word of a scenario with these characters."""
    escaped = text.replace("\\", "\\\\").replace('"', '\\"')
    return '"' + "".join(
        c if " " <= c <= "~" else "".join(f"\\x{byte:02x}" for byte in c.encode(errors="replace"))
        for c in escaped) + '"'


def _property_lines(before, after):
    """What makes of the properties `before` those `after`."""
    return ([f"unset {name}" for name in before if name not in after] +
            [f"property {name} {quoted(value)}" for name, value in after.items()
             if before.get(name) != value])


class _Station:
    """What the simulated station does; None for what nobody has said."""

    def __init__(self):
        self.connected = False
        self.frequency = None
        self.width = None
        self.rssi = None


class ScenarioMaker:
    """Turns a trace's records, a list, into the lines of a scenario.

    Of the properties that change in the trace, those of other names than `properties` holds are left away.
    """

    def __init__(self, path, header, records, properties=()):
        self._path = path
        self._properties = properties
        self._records = records
        self.station_name = (header.get("interfaces") or {}).get("sta", STATION)
        group = (header.get("interfaces") or {}).get("p2p") or ""
        self._p2p_device = "p2p0" if group == "p2p0" else None
        self.start = records[0]["t"] if records else 0.0
        self.end = records[-1]["t"] if records else 0.0
        if self.end - self.start > _LONGEST:
            raise self._wrong(records[-1], f"t is {self.end}, {self.end - self.start:.0f} s after the "
                                           f"first line; a replay is of {_LONGEST} s at most")
        self._lines = []  # (time on the trace's clock, number, text)
        self._restarts = {}  # the properties that are set from a line on, by its number
        self._station = _Station()
        self._group = None  # (frequency, width)
        self._group_ready = 0.0
        self._daemon_runs = True
        self._daemon_ready = -math.inf
        self._supplicant_runs = True
        self._last_sample = None
        self._regdom = None
        self._switches = self._announced_switches()
        self._linked = [record for record in records
                        if record["type"] == "sample" and record.get("sta")]
        self._linked_times = [record["t"] for record in self._linked]

    @property
    def duration(self):
        """How long the play takes, s."""
        return LEAD + self.end - self.start + _REST

    def text(self, settings, changes=None):
        """The scenario with these properties set, of which `changes` stay whatever the trace says."""
        changes = changes or {}
        settings = {**settings, **changes}
        if not self._lines:
            for record in self._records:
                handler = getattr(self, "_on_" + record["type"], None)
                if handler:
                    handler(record["t"], record)
            self._lines.sort(key=lambda line: line[:2])
        prepare = [f"property {name} {quoted(value)}" for name, value in settings.items()]
        prepare.append("supplicant start" + (f" p2p={self._p2p_device}" if self._p2p_device else ""))
        timed = []
        for t, number, text in self._lines:
            ms = round((t - self.start + LEAD) * 1000)
            if number in self._restarts:
                wanted = {name: value for name, value in self._restarts[number].items()
                          if name in self._properties} | changes
                timed += [(ms, line) for line in _property_lines(settings, wanted)]
                settings = wanted
            timed.append((ms, text))
        # What had to wait for something may come behind the trace's end.
        end = max([round(self.duration * 1000), *(ms for ms, _ in timed[-1:])])
        return "\n".join([*prepare, *(f"at {ms}ms {text}" for ms, text in [*timed, (end, "end")]), ""])

    def trace_time(self, played):
        """The time on the trace's clock of a time of the play, s."""
        return round(played - LEAD + self.start, 3)

    def _add(self, t, text):
        self._lines.append((max(t, self.start), len(self._lines), text))

    def _wrong(self, record, what):
        return FormatError(self._path, getattr(record, "line", 0), what)

    def _checked_frequency(self, record, frequency):
        if not _LOWEST_MHZ <= frequency <= _HIGHEST_MHZ:
            raise self._wrong(record, f"the frequency is {frequency} MHz; the simulated headset has "
                                      f"{_LOWEST_MHZ} to {_HIGHEST_MHZ}")
        return frequency

    def _announced_switches(self):
        """The frequencies of the channel switches that events and callbacks tell of: (t, MHz)."""
        switches = []
        for record in self._records:
            frequency = None
            if record["type"] == "callback" and record.get("event") == "onChannelSwitch":
                frequency = record.get("frequency")
            elif record["type"] == "supplicant" and "CHANNEL-SWITCH" in record["text"]:
                found = _FREQUENCY.search(record["text"])
                frequency = int(found[1]) if found else None
            if frequency is not None:
                switches.append((record["t"], frequency))
        return switches

    # The station.

    def _connect(self, t, frequency, width, rssi, bssid=None):
        self._start_supplicant(t)
        self._station.connected = True
        self._station.frequency, self._station.width = frequency, width
        if rssi is not None:
            self._station.rssi = rssi
        text = f"connect freq={frequency}" + (f" width={width}" if width else "")
        if self._station.rssi is not None:
            text += f" rssi={self._station.rssi}"
        self._add(t, text + (f" bssid={bssid}" if bssid else ""))

    def _disconnect(self, t, more=""):
        if self._station.connected:
            self._station.connected = False
            self._add(t, "disconnect" + more)

    def _switch(self, t, frequency, width):
        if self._station.connected and frequency != self._station.frequency:
            self._station.frequency = frequency
            self._station.width = width or self._station.width
            self._add(t, f"channel switch freq={frequency}" + (f" width={width}" if width else ""))

    def _is_announced(self, t, frequency):
        return any(abs(at - t) <= _SAME_CHANGE and told == frequency for at, told in self._switches)

    def _on_sample(self, t, record):
        if not self._daemon_runs:
            return
        last, self._last_sample = self._last_sample, t
        station = record.get("sta")
        if station is None:
            self._disconnect(t)
        else:
            self._on_station(t, last, record, station)
        self._on_group(t, record)

    def _on_station(self, t, last, record, station):
        frequency = self._checked_frequency(record, station["frequency_mhz"])
        rssi = station.get("rssi_dbm")
        if rssi is not None and not _LOWEST_DBM <= rssi <= _HIGHEST_DBM:
            raise self._wrong(record, f"sta.rssi_dbm is {rssi}; the simulated headset has "
                                      f"{_LOWEST_DBM} to {_HIGHEST_DBM}")
        width = station.get("bandwidth_mhz")
        if not self._station.connected:
            self._connect(t, frequency, width, rssi)
            return
        if rssi is not None and rssi != self._station.rssi:
            self._station.rssi = rssi
            middle = t if last is None else max((t + last) / 2, t - _LONGEST_BEFORE)
            self._add(middle, f"rssi {rssi}")
        if frequency != self._station.frequency:
            if self._is_announced(t, frequency):
                self._switch(t, frequency, width)
            else:
                # Nobody told of a switch: the station has gone to another access point.
                self._connect(t, frequency, width, rssi)

    def _near_sample(self, t):
        """The station in the first sample from `t` on that shows a link, or in the last one."""
        at = bisect.bisect_left(self._linked_times, t)
        return self._linked[min(at, len(self._linked) - 1)]["sta"] if self._linked else {}

    # P2P.

    def _on_group(self, t, record):
        group = record.get("p2p")
        if group is None:
            self._stop_group(t)
        else:
            frequency = self._checked_frequency(record, group["frequency_mhz"])
            self._start_group(t, frequency, group.get("bandwidth_mhz"))
            self._switch_group(t, frequency, group.get("bandwidth_mhz"))

    def _start_group(self, t, frequency, width):
        if self._group is None:
            self._start_supplicant(t)
            t = max(t, self._group_ready)
            self._group = frequency
            self._group_ready = t + _GROUP_UP
            self._add(t, f"p2p start freq={frequency}" + (f" width={width}" if width else ""))

    def _switch_group(self, t, frequency, width):
        if self._group is not None and frequency != self._group:
            self._group = frequency
            self._add(max(t, self._group_ready),
                      f"p2p switch freq={frequency}" + (f" width={width}" if width else ""))

    def _stop_group(self, t, more=""):
        if self._group is not None:
            self._group = None
            t = max(t, self._group_ready)
            self._group_ready = t + _GROUP_UP
            self._add(t, "p2p stop" + more)

    # What else the trace tells.

    def _on_daemon(self, t, record):
        runs = record["state"] == "started"
        properties = record.get("properties") if runs else None
        if properties is not None and self._daemon_runs:
            self._run_daemon(t, False)  # nobody saw it end, yet it has started with others
        if runs != self._daemon_runs:
            self._run_daemon(t, runs)
            if properties is not None:
                self._restarts[len(self._lines) - 1] = properties

    def _run_daemon(self, t, runs):
        self._daemon_runs = runs
        t = max(t, self._daemon_ready)
        self._daemon_ready = t if runs else t + _DAEMON_END
        self._add(t, "daemon start" if runs else "daemon stop")

    def _on_callback(self, t, record):
        event = record["event"]
        if event == "onChannelSwitch":
            frequency = self._checked_frequency(record, record["frequency"])
            width = record.get("width")
            width = width if width in (20, 40, 80, 160) else None
            if record.get("isP2p"):
                self._switch_group(t, frequency, width)
            else:
                self._switch(t, frequency, width)
        elif event == "onAssocStarted":
            if self._supplicant_runs:
                self._add(t, f"assoc started ifname={STATION}")
        elif event == "onRegdomUpdated":
            self._change_regdom(t, record.get("init", ""), record.get("regdomType", ""),
                                record.get("alpha2"))

    def _change_regdom(self, t, init, kind, country):
        if not self._supplicant_runs or not all(map(_REGDOM_WORD.match, (init, kind))):
            return
        last, self._regdom = self._regdom, (t, init, kind)
        if last and last[1:] == (init, kind) and t - last[0] <= _SAME_CHANGE:
            return  # event and callback of the same change
        known = country and _REGDOM_WORD.match(country) and kind == "COUNTRY"
        self._add(t, f"regdom init={init} type={kind}" + (f" alpha2={country}" if known else ""))

    def _start_supplicant(self, t):
        if not self._supplicant_runs:
            self._supplicant_runs = True
            self._add(t, "supplicant start" + (f" p2p={self._p2p_device}" if self._p2p_device else ""))

    def _on_supplicant(self, t, record):
        text = record["text"]
        named = _INTERFACE.search(text)
        interface = named[1] if named else record["interface"]
        on_station = interface == self.station_name
        if text.startswith("CTRL-EVENT-TERMINATING"):
            self._terminate(t)
        elif text.startswith("P2P-GROUP-STARTED"):
            self._on_group_started(t, record)
        elif text.startswith("P2P-GROUP-REMOVED"):
            reason = _REASON.search(text)
            self._stop_group(t, f" reason={reason[1]}" if reason else "")
        elif text.startswith(("CTRL-EVENT-CHANNEL-SWITCH", "AP-CSA-FINISHED")):
            self._on_switched(t, record, on_station)
        elif on_station and text.startswith("CTRL-EVENT-CONNECTED"):
            self._on_connected(t, text)
        elif on_station and text.startswith("CTRL-EVENT-DISCONNECTED"):
            self._on_disconnected(t, text)
        elif text.startswith("CTRL-EVENT-REGDOM-CHANGE"):
            fields = dict(word.split("=", 1) for word in text.split() if "=" in word)
            self._change_regdom(t, fields.get("init", ""), fields.get("type", ""),
                                fields.get("alpha2"))
        elif on_station and self._supplicant_runs and not text.startswith(_SAID_ANYWAY):
            self._add(t, f"event {STATION} {quoted(text)}")

    def _terminate(self, t):
        if self._supplicant_runs:
            self._supplicant_runs = False
            self._station.connected = False
            if self._group is not None:
                t = max(t, self._group_ready)
                self._group = None
            self._add(t, "supplicant terminate")

    def _on_group_started(self, t, record):
        frequency = _FREQUENCY.search(record["text"])
        if frequency:
            frequency = self._checked_frequency(record, int(frequency[1]))
            self._start_group(t, frequency, None)
            self._switch_group(t, frequency, None)

    def _on_switched(self, t, record, on_station):
        frequency = _FREQUENCY.search(record["text"])
        width = _WIDTH.search(record["text"])
        width = width[1] if width else None
        if frequency:
            frequency = self._checked_frequency(record, int(frequency[1]))
            (self._switch if on_station else self._switch_group)(t, frequency, width)

    def _on_connected(self, t, text):
        bssid = _BSSID.search(text)
        near = self._near_sample(t)
        self._connect(t, near.get("frequency_mhz") or self._station.frequency or 5180,
                      near.get("bandwidth_mhz") or self._station.width, near.get("rssi_dbm"),
                      bssid[1] if bssid else None)

    def _on_disconnected(self, t, text):
        reason = _REASON_CODE.search(text)
        self._disconnect(t, (f" reason={reason[1]}" if reason else "") +
                         ("" if "locally_generated=1" in text else " by=ap"))
