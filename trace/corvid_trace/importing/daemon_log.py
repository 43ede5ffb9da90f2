"""What the daemon's log lines tell of a walk: the link, commands and its own starts."""

import re

from corvid_trace.importing.link import FREQUENCIES_MHZ, RSSI_DBM, WIDTHS
from corvid_trace.importing.lines import shortened

TAG = "CorvidWifi"

_SIGNAL = re.compile(r"rssi:(-?\d{1,9}) freq:(-?\d{1,9})\b")
_REPORTED = re.compile(r"freq:(-?\d{1,9}) rssi:(-?\d{1,9})\b")
_COMMAND = re.compile(r"(?:(STA|P2P) )?cmd:(.*) reply:(.*)", re.DOTALL)
_P2P_FREQUENCY = re.compile(r"P2P Freq:-?\d+ newFreq:(-?\d{1,9})\b")
_SWITCH = re.compile(r"\[P2P\] freq:(\d{1,9}) width:(\d+)")


class DaemonLog:
    """Turns lines into records, and tells `link` what they say of it."""

    def __init__(self, link, problems, p2p_interface="p2p0"):
        self._link = link
        self._problems = problems
        self._interfaces = {"STA": link.station, "P2P": p2p_interface, None: link.station}
        self._pid = None

    def records(self, line, t, level, text, pid=None):
        """The records of one line with the tag TAG: what it tells, the line, a changed link."""
        made = []
        if pid is not None and pid != self._pid:
            if self._pid is not None:
                made.append({"type": "daemon", "t": t, "state": "ended"})
            made.append({"type": "daemon", "t": t, "state": "started"})
            self._pid = pid
        source, colon, message = text.partition(": ")
        polled = False
        if colon:
            told = self._told(line, source, message)
            polled = told == "poll"
            if isinstance(told, dict):
                made.append({"type": told.pop("type"), "t": t, **told})
        made.append({"type": "log", "t": t, "level": level, "tag": TAG, "text": text})
        sample = self._link.sample(t, always=polled)
        if sample:
            made.append(sample)
        return made

    def _told(self, line, source, message):
        """A record without its time, "poll" for a sample of the link, or None."""
        if "rssi:" in message:
            found = _SIGNAL.search(message) or _REPORTED.search(message)
            if found and found.re is _SIGNAL:
                return self._poll(line, int(found[1]), int(found[2]))
            if found:
                return self._poll(line, int(found[2]), int(found[1]))
            if "cmd:" not in message:
                self._problems.add(line, f"no signal can be read in {shortened(message)}")
                return None
        if "cmd:" in message:
            found = _COMMAND.search(message)
            if found:
                return {"type": "command", "interface": self._interfaces[found[1]],
                        "text": found[2], "reply": found[3]}
        if source == "StaManager" and message.startswith("STA event("):
            self._station_event(message[len("STA event("):])
        elif message.startswith("P2P event(DISCONNECTED"):
            self._link.group(None)
        elif message.startswith("P2P Freq:"):
            found = _P2P_FREQUENCY.match(message)
            if found and int(found[1]) in FREQUENCIES_MHZ:
                self._link.group(int(found[1]))
        elif source == "ChannelSwitchManager" and message.startswith("["):
            found = _SWITCH.match(message)
            if found and int(found[1]) in FREQUENCIES_MHZ:
                self._link.group(int(found[1]), WIDTHS.get(found[2]))
        return None

    def _poll(self, line, rssi, frequency):
        if rssi == -1 and frequency == -1:
            return None  # what the daemon says when it does not know
        if rssi not in RSSI_DBM or frequency not in FREQUENCIES_MHZ:
            self._problems.add(line, f"no signal can be {rssi} dBm on {frequency} MHz")
            return None
        self._link.poll(frequency, rssi)
        return "poll"

    def _station_event(self, event):
        if event.startswith("CONNECTED"):
            self._link.connect()
        elif event.startswith("DISCONNECTED"):
            self._link.disconnect()
        elif event.startswith("CHANNEL_SWITCH-"):
            # The event's text, as the supplicant's own socket has it.
            self._link.event(self._link.station, "CTRL-EVENT-CHANNEL-SWITCH " +
                             event[len("CHANNEL_SWITCH-"):].removesuffix(")"))
