"""Replaces what tells who or where somebody is by stand-ins: the same for the same, in one trace.

Replaced are MAC addresses (BSSIDs among them), IP addresses, SSIDs and the names of P2P devices,
in whatever field they stand. The n-th address that comes up becomes the n-th stand-in, so that the
same trace gives the same stand-ins each time; they tell nothing of what they stand for.
"""

import ipaddress
import re

# Rather one too many than one too few: a word may stand right before an address.
_V6 = re.compile(r"(?<![0-9A-Za-z])(?=[0-9A-Fa-f]|::)(?:[0-9A-Fa-f]{0,4}:){2,7}"
                 r"(?:\d{1,3}(?:\.\d{1,3}){3}|[0-9A-Fa-f]{0,4})(?![\w:])")
_V4 = re.compile(r"(?<![\w.])\d{1,3}(?:\.\d{1,3}){3}(?![\w]|\.\d)")
_MAC = re.compile(r"(?<![0-9A-Fa-f])[0-9A-Fa-f]{2}(?:[:-][0-9A-Fa-f]{2}){5}(?![0-9A-Fa-f])")

# Groups: before, the name, after. The supplicant escapes " and \ in what it quotes.
_NAMES = (
    (re.compile(r'(\bssid=")((?:[^"\\]|\\.)*)(")', re.IGNORECASE), "ssid"),
    (re.compile(r"(\bssid=')(.*?)('(?= freq=|\)| |$))", re.IGNORECASE), "ssid"),
    (re.compile(r"(^ssid=)([^'\"\n].*)($)", re.IGNORECASE | re.MULTILINE), "ssid"),
    (re.compile(r"(\bname=')(.*?)('(?= \w+=|\)| |$))"), "device"),
)
_FIELDS = {"ssid": "ssid", "device_name": "device"}

_SPECIAL_MACS = ("00:00:00:00:00:00", "ff:ff:ff:ff:ff:ff")


class Anonymizer:
    """Knows the stand-ins that it has given; one per trace."""

    def __init__(self):
        self._given = {}

    def record(self, fields):
        """A copy of a record or a header with stand-ins in it."""
        return self._value("", fields)

    def _value(self, name, value):
        if isinstance(value, str):
            kind = _FIELDS.get(name.lower())
            return self._name(kind, value) if kind else self.text(value)
        if isinstance(value, dict):
            return {self.text(key): self._value(key, item) for key, item in value.items()}
        if isinstance(value, list):
            return [self._value(name, item) for item in value]
        return value

    def text(self, text):
        """A text with stand-ins in it."""
        if "=" in text:
            for pattern, kind in _NAMES:
                text = pattern.sub(
                    lambda match, kind=kind: match[1] + self._name(kind, match[2]) + match[3], text)
        # In this order: what stands for one is not taken for another.
        if ":" in text:
            text = _V6.sub(self._ip, text)
        if "." in text:
            text = _V4.sub(self._ip, text)
        if ":" in text or "-" in text:
            text = _MAC.sub(self._mac, text)
        return text

    def _stand_in(self, kind, value):
        """The number of a value among those of its kind, from 1."""
        known = self._given.setdefault(kind, {})
        return known.setdefault(value, len(known) + 1)

    def _name(self, kind, value):
        # A hidden network has none.
        return f"{kind}-{self._stand_in(kind, value)}" if value else value

    def _mac(self, match):
        mac = match[0].lower().replace("-", ":")
        if mac in _SPECIAL_MACS:
            return match[0]
        # Locally administered: no maker has it.
        digits = f"0200{self._stand_in('mac', mac):08x}"
        return ":".join(digits[i:i + 2] for i in range(0, 12, 2))

    def _ip(self, match):
        try:
            address = ipaddress.ip_address(match[0])
        except ValueError:
            return match[0]  # a time of day, a version
        if address.is_unspecified or address.is_loopback:
            return match[0]
        # Of networks that are for documents and measurements: no host has one of these.
        network = "198.18.0.0" if address.version == 4 else "2001:db8::"
        kind = f"v{address.version}"
        return str(ipaddress.ip_address(network) + self._stand_in(kind, address))
