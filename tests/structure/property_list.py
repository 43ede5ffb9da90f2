"""The list of properties in config/CorvidWifiProperties.h, and what is made of it."""

import collections
import re

LIST = "config/CorvidWifiProperties.h"
PREFIX = "persist.vendor.wifi."

# As the platform's property_contexts names the types.
CONTEXT_TYPES = {"bool": "bool", "int": "int", "unsigned": "uint"}
EFFECTS = {"Restart": "restart", "FirstUse": "first use", "AtOnce": "at once", "Both": "both"}

Property = collections.namedtuple("Property", "type accessor name line meaning default range effect")

_ENTRY = re.compile(r"""
    \b[PF]\(\s*(?P<type>\w+)\s*,\s*(?P<accessor>\w+)\s*,\s*"(?P<name>[^"]*)"\s*,
    \s*(?P<default>-?\w+)\s*,\s*(?P<range>\w+)\s*,\s*(?P<effect>\w+)\s*,\s*(?P<meaning>"[^"]+"(?:\s*"[^"]+")*)\s*\)
    | \b(?P<other>[PF]\([^,]*,[^,]*,[^,)]*)""", re.VERBOSE)
_RANGE = re.compile(r"PropertyRange k(\w+)\{(-?\d+), (-?\d+),")


def parse(text, complaints):
    """The properties in their order. What can't be read is complained of."""
    begin = re.search(r"#define CORVID_WIFI_PROPERTIES\(P, F\)", text)
    if not begin:
        complaints.append(f"{LIST}: there is no CORVID_WIFI_PROPERTIES")
        return []
    end = re.compile(r"[^\\]\n").search(text, begin.end())
    ranges = {name: (int(lowest), int(highest)) for name, lowest, highest in _RANGE.findall(text)}
    macro = text[begin.end():end.end() if end else len(text)].replace("\\\n", " \n")
    found = []
    for match in _ENTRY.finditer(macro):
        line = text.count("\n", 0, begin.end() + match.end()) + 1
        if match["other"] or match["effect"] not in EFFECTS:
            complaints.append(f"{LIST}:{line}: {match.group()!r} lacks its default, range, meaning "
                              f"or {' or '.join(EFFECTS)}")
        elif match["range"] not in ranges:
            complaints.append(f"{LIST}:{line}: there is no PropertyRange k{match['range']}")
        elif match["type"] not in CONTEXT_TYPES:
            complaints.append(f"{LIST}:{line}: {match['name']} has type {match['type']}, not "
                              f"{' or '.join(CONTEXT_TYPES)}")
        else:
            default = {"true": "on", "false": "off"}.get(match["default"], match["default"])
            meaning = "".join(re.findall(r'"([^"]+)"', match["meaning"]))
            found.append(Property(match["type"], match["accessor"], PREFIX + match["name"], line,
                                  meaning, default, ranges[match["range"]],
                                  EFFECTS[match["effect"]]))
    return found


def shown_values(entry):
    if entry.type == "bool":
        return "true or false"
    lowest, highest = entry.range
    if highest == 2147483647:
        return f"{lowest} and more"
    return f"{lowest} to {highest}" if highest - lowest > 1 else \
        " or ".join(str(value) for value in range(lowest, highest + 1))


def shown_default(entry):
    return "`" + {"on": "true", "off": "false"}.get(entry.default, entry.default) + "`"


_BEFORE_TABLE = """# System properties

These are the daemon's tunable values. `setprop` on the device, or `property` in the lab, sets one; it
survives a reboot. A value that does not parse counts as not set. The daemon checks only the type: the
driver is sent any value of that type. `corvid-wifi props set` refuses one outside the values below.

| type | what parses |
|---|---|
| bool | `true`, `false`, `1`, `0` |
| int | -2147483648 to 2147483647, also hexadecimal: `0x1F` |
| uint | 0 to 4294967295, also hexadecimal |

The daemon also accepts other cases (`TRUE`), and white space before a number. The device's init is
stricter: it refuses a value that does not fit the type in `device/sepolicy/property_contexts`.

| "takes effect" | a change takes effect |
|---|---|
| restart | when the daemon starts next |
| first use | at once, if the daemon has not used the property yet; else when it starts next |
| at once | at the next use |
| both | at the next use, if the feature was on when the daemon started; else when it starts next |

This page and `device/sepolicy/property_contexts` are generated from `config/CorvidWifiProperties.h` by
`tests/structure/check_properties.py . --write`.

| property | type | values | default | takes effect | meaning |
|---|---|---|---|---|---|
"""


def documentation(properties):
    """docs/properties.md"""
    table = [
        f"| `{entry.name}` | {CONTEXT_TYPES[entry.type]} | {shown_values(entry)} | "
        f"{shown_default(entry)} | {entry.effect} | {entry.meaning} |" for entry in properties
    ]
    return _BEFORE_TABLE + "\n".join(table) + "\n"


def contexts(properties):
    """device/sepolicy/property_contexts"""
    lines = [
        "# Who may read and set the daemon's properties, and which values init takes for them.",
        "# Made of config/CorvidWifiProperties.h by tests/structure/check_properties.py --write.",
    ]
    width = max((len(entry.name) for entry in properties), default=0)
    lines += [
        f"{entry.name:<{width}} u:object_r:vendor_corvid_wifi_prop:s0 exact "
        f"{CONTEXT_TYPES[entry.type]}" for entry in properties
    ]
    return "\n".join(lines) + "\n"


MADE = {
    "docs/properties.md": documentation,
    "device/sepolicy/property_contexts": contexts,
}
