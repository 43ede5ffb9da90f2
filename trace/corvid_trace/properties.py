"""The daemon's system properties: which there are, what they may be, and what they come to."""

import json
import os
import re
import subprocess
import tempfile

from corvid_trace.errors import TraceError, UsageError

_INT_MIN, _INT_MAX = -(1 << 31), (1 << 31) - 1
_UNSIGNED_MAX = (1 << 32) - 1

# What makes sense in the properties whose names end so: (end of the name, lowest, highest, unit).
_RANGES = (
    (re.compile(r"rssi(_|\.|$)"), -127, 0, "dBm"),
    (re.compile(r"dbm[01.]|dbm$"), 0, 80, "dBm, or half dBm"),
)

# More values in one --set would be a slip of the pen rather than a sweep.
_MOST_VALUES = 10_000


def _shown(names):
    return ", ".join(names)


class Properties:
    """The list of the daemon's properties, as its program corvid-properties prints it."""

    def __init__(self, programs):
        self._program = programs.find("corvid-properties")
        self._types = {entry["name"]: entry["type"] for entry in self._run()["properties"]}

    def __contains__(self, name):
        return name in self._types

    def _run(self, root=None):
        environment = dict(os.environ)
        if root is not None:
            environment["CORVID_WIFI_ROOT"] = root
        done = subprocess.run([self._program], env=environment, capture_output=True, text=True,
                              check=False)
        if done.returncode != 0:
            raise TraceError(f"{self._program} failed: {done.stderr.strip()}")
        return json.loads(done.stdout)

    def in_force(self, settings):
        """(whether the station's power is controlled, thresholds) with `settings`, {name: value}."""
        with tempfile.TemporaryDirectory(prefix="corvid-properties-") as root:
            folder = os.path.join(root, "dev", "__properties__")
            os.makedirs(folder)
            for name, value in settings.items():
                with open(os.path.join(folder, name), "w", encoding="utf-8") as file:
                    file.write(value + "\n")
            values = self._run(root)
        return values["station_power"], values["thresholds"]

    def find(self, key):
        """The full name of the property that `key` is, in full or from one of its dots on."""
        if key in self._types:
            return key
        fitting = [name for name in self._types if name.endswith("." + key)]
        if len(fitting) == 1:
            return fitting[0]
        if fitting:
            raise UsageError(f"--set {key}: several properties end so: {_shown(fitting)}")
        part = key.split(".")[-1].lower()
        near = [name for name in self._types if part and part in name] or list(self._types)
        raise UsageError(f"--set {key}: there is no such property; there are: {_shown(near)}")

    def check(self, name, value):
        """The value as the daemon reads it; a UsageError says what is allowed."""
        kind = self._types[name]
        if kind == "bool":
            word = value.lower()
            if word not in ("true", "false", "1", "0"):
                raise UsageError(f"--set {name}={value}: allowed is true or false")
            return "true" if word in ("true", "1") else "false"
        lowest, highest = (0, _UNSIGNED_MAX) if kind == "unsigned" else (_INT_MIN, _INT_MAX)
        unit = ""
        for pattern, low, high, unit_of_it in _RANGES:
            if pattern.search(name):
                lowest, highest, unit = max(low, lowest), high, f" ({unit_of_it})"
                break
        if not re.fullmatch(r"[+-]?[0-9]{1,10}", value) or not lowest <= int(value) <= highest:
            raise UsageError(f"--set {name}={value}: allowed is a whole number from {lowest} to "
                             f"{highest}{unit}")
        return str(int(value))

    def setting(self, word):
        """(full name, value) of a word KEY=VALUE."""
        name, value = self._split(word)
        return name, self.check(name, value)

    def settings(self, words):
        """{full name: value} of words KEY=VALUE."""
        return _by_name(words, self.setting)

    def choices_of(self, words):
        """{full name: values} of words KEY=VALUES."""
        return _by_name(words, self.choices)

    def choices(self, word):
        """(full name, values) of a word KEY=VALUE,VALUE,... or KEY=FROM:TO:STEP."""
        name, text = self._split(word)
        values = []
        for part in text.split(","):
            values += _range(name, part) if ":" in part else [part]
            if len(values) > _MOST_VALUES:
                raise UsageError(f"--set {word}: more than {_MOST_VALUES} values")
        checked = [self.check(name, value) for value in values]
        return name, list(dict.fromkeys(checked))

    def _split(self, word):
        key, equals, value = word.partition("=")
        if not equals or not key:
            raise UsageError(f"--set {word}: allowed is KEY=VALUE, such as txpower.rssi.upper=-57")
        return self.find(key), value


def _by_name(words, read):
    settings = {}
    for word in words:
        name, value = read(word)
        if name in settings:
            raise UsageError(f"--set {word}: {name} has a value already")
        settings[name] = value
    return settings


def _range(name, text):
    match = re.fullmatch(r"([+-]?\d{1,10}):([+-]?\d{1,10})(?::([+-]?\d{1,10}))?", text)
    if not match:
        raise UsageError(f"--set {name}={text}: a range is FROM:TO:STEP in whole numbers, such as "
                         "-60:-50:1")
    first, last, step = (int(part) for part in (match[1], match[2], match[3] or "1"))
    if step == 0 or (last - first) * step < 0:
        raise UsageError(f"--set {name}={text}: a step of {step} never comes from {first} to {last}")
    if abs(last - first) // abs(step) >= _MOST_VALUES:
        raise UsageError(f"--set {name}={text}: more than {_MOST_VALUES} values")
    return [str(value) for value in range(first, last + (1 if step > 0 else -1), step)]
