"""Results as commands take them: read from files, with short names, and what sets them apart."""

import os
import sys

from corvid_trace.errors import FormatError, TraceError
from corvid_trace.format import read_trace
from corvid_trace.programs import Programs
from corvid_trace.properties import Properties
from corvid_trace.timeline import Timeline

# In front of every property of the daemon; people leave it away.
PROPERTY_PREFIX = "persist.vendor.wifi."


class Result:
    """A result's file, its short name and its Timeline."""

    def __init__(self, path, name, timeline):
        self.path = path
        self.name = name
        self.timeline = timeline


def load(paths):
    """The Results of these files, each with a name of its own. FormatError for a mere trace."""
    return [Result(path, name, load_timeline(path))
            for path, name in zip(paths, short_names(paths))]


def load_timeline(path):
    """The Timeline of one file. FormatError when nothing that the daemon did is in it."""
    header, records = read_trace(path)
    if "thresholds" not in header and "settings" in header:
        header["thresholds"] = _thresholds(header["settings"])
    timeline = Timeline(header, records)
    if not header.get("result") and not timeline.commands and not timeline.power:
        raise FormatError(path, 1, "this is a trace, without the daemon's commands; "
                                   "corvid-trace replay makes a result of it")
    return timeline


def _thresholds(settings):
    """What the settings of an imported result come to; nothing where the daemon is not built."""
    try:
        properties = Properties(Programs())
        # The names come from a file, and each is to be the name of a property's file.
        known = {name: value for name, value in settings.items() if name in properties}
        return properties.in_force(known)[1]
    except TraceError as error:
        print(f"without thresholds: {error}", file=sys.stderr)
        return {}


def short_names(paths):
    """File names without their last ending; with as many folders as it takes to differ."""
    parts = [os.path.splitext(path)[0].split(os.sep) for path in paths]
    names = ["/".join(part[-1:]) for part in parts]
    for length in range(2, max(map(len, parts), default=0) + 1):
        if len(set(names)) == len(names):
            break
        names = ["/".join(part[-length:]) if names.count(name) > 1 else name
                 for part, name in zip(parts, names)]
    # The same file twice.
    return [name if names.index(name) == index else f"{name} ({names[:index].count(name) + 1})"
            for index, name in enumerate(names)]


def short_property(name):
    return name[len(PROPERTY_PREFIX):] if name.startswith(PROPERTY_PREFIX) else name


def differing_settings(results):
    """{property: its value per result, or None}, of the properties that are not all alike."""
    names = sorted({name for result in results for name in result.timeline.settings})
    values = {name: [result.timeline.settings.get(name) for result in results] for name in names}
    return {name: of for name, of in values.items() if len(set(of)) > 1}
