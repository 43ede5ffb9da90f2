"""What replay and sweep share: a trace that is read once, and plays of it with settings."""

import hashlib
import math

from corvid_trace import format as trace_format
from corvid_trace import outcome
from corvid_trace.errors import FormatError, TraceError
from corvid_trace.results import short_property
from corvid_trace.scenario import ScenarioMaker


class Trace:
    """A trace with its scenario."""

    def __init__(self, path, properties):
        self.path = path
        try:
            self.header, records = trace_format.read_trace(path)
        except FormatError as error:
            raise FormatError(path, error.line, f"{error.what} ('corvid-trace import' makes traces of "
                                                "logs and tables)") from error
        self.records = outcome.own_records(records)
        if not any(record["type"] in ("sample", "supplicant") for record in self.records):
            raise TraceError(f"{path}: there is nothing to replay: no sample and no event")
        self._maker = ScenarioMaker(path, self.header, self.records, properties)
        self._properties = properties
        self.recorded = self._known(self.header.get("properties") or {})

    @property
    def duration(self):
        """How long a play takes, s."""
        return self._maker.duration

    def digest(self):
        """Changes with what is replayed."""
        return hashlib.sha256(self.scenario({}).encode()).hexdigest()[:16]

    def settings(self, changes):
        """The properties that are set in a play: the recorded ones, and the changes to them."""
        return {**self.recorded, **changes}

    def scenario(self, changes):
        return self._maker.text(self.recorded, changes)

    def play(self, player, changes, made_by, label=None):
        """Plays the trace; (header, records) of the result."""
        settings = self.settings(changes)
        station_power, thresholds = self._properties.in_force(settings)
        changed = [(t, self._properties.in_force(later)[1]) for t, later in self._restarts(changes)]
        lines, errors, status = player.play(
            self.scenario(changes), self.duration, self.header.get("start_wall"))
        ended = f"the simulated headset ended with status {status}" + (
            ": " + " ".join(errors) if errors else "")
        try:
            played = list(outcome.records_of(lines, self._maker.trace_time,
                                             [(-math.inf, thresholds), *changed],
                                             self._maker.station_name))
        except FormatError as error:
            raise TraceError(f"{self.path}: {error}; {ended}") from error
        if status != 0:
            raise TraceError(f"{self.path}: {ended}")
        header = {"source": "import", "start_wall": None, "interfaces": {}, "properties": {},
                  **self.header, "made_by": made_by, "result": True, "settings": settings,
                  "thresholds": thresholds, "station_power": station_power,
                  "label": label or self.label(changes)}
        return header, list(outcome.merged(self.records, played))

    def _restarts(self, changes):
        """(t, properties set from then on) where the trace's daemon starts with others."""
        for record in self.records:
            if record["type"] != "daemon" or record["state"] != "started":
                continue
            properties = record.get("properties")
            if properties is not None:
                yield record["t"], self._known(properties) | changes

    def _known(self, recorded):
        return {name: value for name, value in recorded.items() if name in self._properties}

    def label(self, changes):
        """The trace's label, with what was changed."""
        label = self.header.get("label") or self.path
        if not changes:
            return label
        return f"{label} ({', '.join(f'{short_property(name)}={value}' for name, value in changes.items())})"
