"""Traces that nobody has recorded: right in their form, and senseless in what they tell."""

import random

_TEXTS = ("CTRL-EVENT-CONNECTED - Connection to 02:00:00:00:00:01 completed", "CTRL-EVENT-CONNECTED",
          "CTRL-EVENT-DISCONNECTED bssid=02:00:00:00:00:01 reason=4", "CTRL-EVENT-DISCONNECTED",
          "CTRL-EVENT-DISCONNECTED reason=99999999 locally_generated=1",
          "CTRL-EVENT-DISCONNECTED reason=none", "CTRL-EVENT-TERMINATING ",
          "CTRL-EVENT-CHANNEL-SWITCH freq=5200 width=80", "CTRL-EVENT-CHANNEL-SWITCH freq=2412 width=7",
          "CTRL-EVENT-CHANNEL-SWITCH freq=5180 ifname=p2p0 ch_width=80 MHz",
          "CTRL-EVENT-REGDOM-CHANGE init=USER type=COUNTRY alpha2=DE", "CTRL-EVENT-REGDOM-CHANGE init=",
          "CTRL-EVENT-REGDOM-CHANGE init=\u00e4 type=WORLD", "P2P-GROUP-STARTED p2p0 GO freq=2437",
          "P2P-GROUP-STARTED p2p0", "P2P-GROUP-REMOVED p2p0 GO reason=REQUESTED",
          "P2P-GROUP-REMOVED reason=\"#", "AP-CSA-FINISHED freq=5180 dfs=0", "CTRL-EVENT-BSS-ADDED 1",
          "", " ", "#", "\"")


def odd_text(chance):
    """A text of any characters, those among them that no UTF-8 has."""
    return "".join(chr(chance.choice((chance.randrange(32, 127), chance.randrange(0x300), 0xd800)))
                   for _ in range(chance.randrange(60)))


def _link(chance):
    return chance.choice((None, {"frequency_mhz": chance.choice((2412, 5180, 5200, 5955)),
                                 "rssi_dbm": chance.choice((None, -110, -80, -60, -40, 0)),
                                 "bandwidth_mhz": chance.choice((None, 20, 160, "80+80"))}))


def odd_walk(seed):
    """Forty records in any order, some at the same time; the same for the same seed."""
    chance = random.Random(seed)
    t = chance.choice((0.0, 1e6))
    records = [{"type": "sample", "t": t, "sta": _link(chance), "p2p": None}]
    for _ in range(40):
        t += chance.choice((0, 0, 0.001, 0.1, 1, 3))
        records.append({"t": t, **chance.choice((
            {"type": "sample", "sta": _link(chance), "p2p": _link(chance)},
            {"type": "supplicant", "interface": chance.choice(("wlan0", "p2p0", "x")),
             "text": chance.choice((*_TEXTS, odd_text(chance)))},
            {"type": "daemon", "state": chance.choice(("started", "ended"))},
            {"type": "callback", "event": "onChannelSwitch", "frequency": 5745, "width": 3,
             "isP2p": chance.random() < 0.5},
            {"type": "callback", "event": "onAssocStarted"},
            {"type": "callback", "event": "onRegdomUpdated", "init": odd_text(chance),
             "regdomType": chance.choice(("COUNTRY", odd_text(chance))), "alpha2": "XZ"},
            {"type": "note", "text": odd_text(chance)}))})
    return records
