"""Puts together what single lines tell of the station's link and the P2P group."""

import re

RSSI_DBM = range(-120, 1)
FREQUENCIES_MHZ = range(2400, 7126)
WIDTHS = {"20": 20, "40": 40, "80": 80, "160": 160, "80+80": "80+80"}

_TRYING = re.compile(r"(?:SME: )?Trying to (?:authenticate|associate) with .* freq=(\d{1,9}) MHz\)")
_FREQUENCY = re.compile(r"\bfreq=(\d{1,9})\b")
_WIDTH = re.compile(r"\b(?:ch_)?width=(80\+80|\d+)")
_INTERFACE = re.compile(r"\bifname=(\S+)")
_SIGNAL = re.compile(r"\bsignal=(-?\d{1,9})\b")
_GROUP = re.compile(r"P2P-GROUP-(STARTED|REMOVED) (\S+)")

# The secrets of a group, which the supplicant's events tell.
_SECRETS = ((re.compile(r'passphrase="[^"]*"'), 'passphrase="*"'),
            (re.compile(r"\bpsk=[0-9a-fA-F]{64}\b"), "psk=*"))


def without_secrets(text):
    """The text of an event without passphrases and keys; no trace is to hold one."""
    if "passphrase=" in text or "psk=" in text:
        for pattern, stand_in in _SECRETS:
            text = pattern.sub(stand_in, text)
    return text


class Link:
    """The link and the group as far as they are known. Each change answers whether it was one."""

    def __init__(self, station="wlan0"):
        self.station = station
        self._connected = False
        self._coming = None  # the frequency of the association under way
        self._sta = {"frequency_mhz": None, "rssi_dbm": None, "bandwidth_mhz": None}
        self._p2p = None
        self._group = None  # the group's interface
        self._written = None

    def connect(self):
        """The width and the signal of an earlier link say nothing about this one."""
        self._connected = True
        self._sta = {"frequency_mhz": self._coming, "rssi_dbm": None, "bandwidth_mhz": None}

    def disconnect(self):
        self._connected = False
        self._coming = None

    def poll(self, frequency, rssi, width=None):
        """A sample of the link, which is there."""
        if not self._connected:
            self._coming = frequency
            self.connect()
        if frequency != self._sta["frequency_mhz"]:
            self._sta["bandwidth_mhz"] = None
        self._sta.update(frequency_mhz=frequency, rssi_dbm=rssi)
        if width is not None:
            self._sta["bandwidth_mhz"] = width

    def switch(self, frequency, width=None):
        """The access point has moved."""
        self._sta.update(frequency_mhz=frequency, bandwidth_mhz=width)

    def group(self, frequency, width=None, interface=None):
        """The group is on this channel, or with None gone."""
        if frequency is None:
            self._p2p = self._group = None
            return
        self._group = interface or self._group
        self._p2p = {"frequency_mhz": frequency, "bandwidth_mhz": width}

    def event(self, interface, text):
        """An event of the supplicant on the socket of an interface."""
        match = _GROUP.match(text)
        if match:
            found = _FREQUENCY.search(text) if match[1] == "STARTED" else None
            self.group(int(found[1]) if found else None, interface=match[2])
            return
        if text.startswith("CTRL-EVENT-CHANNEL-SWITCH "):
            self._channel_switch(interface, text)
        if interface != self.station:
            return
        if text.startswith("CTRL-EVENT-CONNECTED"):
            self.connect()
        elif text.startswith("CTRL-EVENT-DISCONNECTED"):
            self.disconnect()
        elif text.startswith("CTRL-EVENT-SIGNAL-CHANGE "):
            found = _SIGNAL.search(text)
            if found and int(found[1]) in RSSI_DBM:
                self._sta["rssi_dbm"] = int(found[1])
        else:
            found = _TRYING.match(text)
            if found:
                self._coming = int(found[1])

    def _channel_switch(self, interface, text):
        frequency = _FREQUENCY.search(text)
        if not frequency:
            return
        width = _WIDTH.search(text)
        width = WIDTHS.get(width[1]) if width else None
        named = _INTERFACE.search(text)
        if (named[1] if named else interface) == self.station:
            self.switch(int(frequency[1]), width)
        elif self._p2p:
            self.group(int(frequency[1]), width)

    def sample(self, t, always=False):
        """The record of a sample, or None: nothing has changed since the last one (but `always`).

        A link whose frequency nobody has told yet is none.
        """
        sta = dict(self._sta) if self._connected and self._sta["frequency_mhz"] else None
        now = (sta, dict(self._p2p) if self._p2p else None)
        if now == self._written and not always:
            return None
        self._written = now
        return {"type": "sample", "t": t, "sta": now[0], "p2p": now[1]}
