"""Lines of small results, for the tests of what reads them."""

from support import HEADER

THRESHOLDS = {"rssi_upper": -55, "rssi_middle_upper": -60, "rssi_middle_lower": -65,
              "rssi_lower": -70, "dbm_upper": 20, "dbm_middle": 10, "dbm_lower": 0, "dbm_p2p": 12}
RESULT = {**HEADER, "result": True, "settings": {}, "thresholds": THRESHOLDS}
RESULT_LINE = {"type": "header", "format": "corvid-trace", "version": 1, **RESULT}
_STEPS = {20: "upper", 10: "middle", 0: "lower"}


def power(t, dbm, accepted=True, interface="wlan0"):
    return {"type": "power", "t": t, "interface": interface, "dbm": dbm,
            "step": _STEPS.get(dbm), "accepted": accepted}


def command(t, text, reply="OK", interface="wlan0"):
    return {"type": "command", "t": t, "interface": interface, "text": text, "reply": reply}


def event(t, text, interface="wlan0"):
    return {"type": "supplicant", "t": t, "interface": interface, "text": text}


def end(t):
    return {"type": "end", "t": t, "reason": "duration"}


def no_link(t):
    return {"type": "sample", "t": t, "sta": None, "p2p": None}
