"""A sweep's plan, the files that its parts write, and what they come to together."""

import csv
import fcntl
import hashlib
import io
import itertools
import json
import math
import os

from corvid_trace import measures
from corvid_trace.errors import FormatError, TraceError
from corvid_trace.output import OutputFile
from corvid_trace.results import short_property

FORMAT = "corvid-sweep"
PART_FORMAT = "corvid-sweep-part"
VERSION = 1

SUMMARY = "sweep.json"
TABLE = "rows.csv"
RESULTS = "results"
_PART = "part"
_ENDING = ".jsonl"


class Plan:
    """Every combination of settings with every trace. A row is one of them, by its number."""

    def __init__(self, traces, digests, settings, below, front):
        self.traces = traces
        self.digests = digests
        self.settings = settings
        self.below = below
        self.front = front

    @property
    def rows(self):
        return self.combinations * len(self.traces)

    @property
    def combinations(self):
        return math.prod(map(len, self.settings.values()))

    def row(self, number):
        """(place of the trace, {property: value}) of a row. The last setting changes fastest."""
        combination, trace = divmod(number, len(self.traces))
        changes = {}
        for name, values in reversed(self.settings.items()):
            combination, place = divmod(combination, len(values))
            changes[name] = values[place]
        return trace, {name: changes[name] for name in self.settings}

    def batch(self, number, of):
        """The rows of the `number`th of so many batches, counted from 1."""
        return range(self.rows * (number - 1) // of, self.rows * number // of)

    def as_object(self):
        return {"traces": self.traces, "digests": self.digests, "settings": self.settings,
                "below": self.below, "front": list(self.front)}

    @staticmethod
    def of_object(fields):
        return Plan(list(fields["traces"]), list(fields["digests"]),
                    {name: list(values) for name, values in fields["settings"].items()},
                    int(fields["below"]), tuple(fields["front"]))

    def fingerprint(self):
        """The same for plans with the same rows, wherever their traces are."""
        same = {**self.as_object(), "traces": [os.path.basename(path) for path in self.traces]}
        return hashlib.sha256(json.dumps(same).encode()).hexdigest()[:16]


def part_path(folder, batch=None):
    """The file of a batch, (number, of), or of a whole sweep."""
    if batch is None:
        return os.path.join(folder, _PART + _ENDING)
    number, of = batch
    return os.path.join(folder, f"{_PART}-{number:0{len(str(of))}}-of-{of}{_ENDING}")


def is_begun(path):
    """Whether a part's file is there, with its plan at least."""
    return os.path.isfile(path) and os.path.getsize(path) > 0


def parts_below(path):
    """The part files of a folder, or the one file that `path` is."""
    if not os.path.isdir(path):
        return [path]
    return sorted(os.path.join(path, name) for name in os.listdir(path)
                  if name.startswith(_PART) and name.endswith(_ENDING))


class Part:
    """A part's file: a line with the plan, and one for each row that is done. Use it in a `with`.

    Rows are there as soon as they are added; what an interruption has cut off is forgotten.
    """

    def __init__(self, path, plan, force=False):
        self._path = path
        self._plan = plan
        self._force = force
        self._file = None
        self.rows = {}

    def __enter__(self):
        os.makedirs(os.path.dirname(self._path) or ".", exist_ok=True)
        self._file = open(self._path, "a+", encoding="utf-8")
        try:
            fcntl.flock(self._file, fcntl.LOCK_EX | fcntl.LOCK_NB)
        except BlockingIOError as error:
            self._file.close()
            raise TraceError(f"{self._path}: another sweep is writing it") from error
        try:
            self._take_up()
        except BaseException:
            self._file.close()
            raise
        return self

    def __exit__(self, *_):
        self._file.close()

    def _take_up(self):
        if self._force:
            self._file.truncate(0)
        if not is_begun(self._path):
            self._put({"format": PART_FORMAT, "version": VERSION, **self._plan.as_object()})
            return
        plan, self.rows, length = read_part(self._path)
        if plan.fingerprint() != self._plan.fingerprint():
            raise TraceError(f"{self._path}: a sweep of other traces, settings or measures was begun "
                             "there; name another folder, or --force begins anew")
        # A failed replay is tried again.
        self.rows = {number: row for number, row in self.rows.items() if not row.get("error")}
        self._file.truncate(length)

    def forget(self):
        """Removes the file when no row is in it."""
        if not self.rows:
            os.unlink(self._path)

    def add(self, row):
        self.rows[row["id"]] = row
        self._put(row)

    def _put(self, fields):
        self._file.write(json.dumps(fields, ensure_ascii=False, separators=(",", ":")) + "\n")
        self._file.flush()


def read_part(path):
    """(Plan, {number: row}, length of what is whole, bytes) of a part's file."""
    plan, rows, length = None, {}, 0
    with open(path, "rb") as file:
        for number, line in enumerate(file, 1):
            if not line.endswith(b"\n"):
                break  # cut off by an interruption
            try:
                fields = json.loads(line)
                if plan is None:
                    if fields["format"] != PART_FORMAT or fields["version"] != VERSION:
                        raise ValueError(fields["format"])
                    plan = Plan.of_object(fields)
                else:
                    rows[int(fields["id"])] = fields
            except (ValueError, KeyError, TypeError, AttributeError, RecursionError) as error:
                raise FormatError(path, number, "this is no line that corvid-trace sweep wrote: "
                                                f"{error!r}") from error
            length += len(line)
    if plan is None:
        raise FormatError(path, 1, "the file is empty; corvid-trace sweep begins it with its plan")
    return plan, rows, length


def write_summary(folder, plan, rows, force=True):
    """Writes a folder's sweep.json and rows.csv of all rows, {number: row}."""
    ordered = [rows[number] for number in sorted(rows)]
    for name, text in ((TABLE, _table(plan, ordered)), (SUMMARY, _summary(plan, ordered))):
        with OutputFile(os.path.join(folder, name), force) as file:
            file.write(text)


def _table(plan, rows):
    text = io.StringIO()
    writer = csv.writer(text, lineterminator="\n")
    writer.writerow(["id", "trace", *map(short_property, plan.settings), *measures.KEYS, "result",
                     "error"])
    for row in rows:
        writer.writerow([row["id"], row["trace"],
                         *(row["settings"][name] for name in plan.settings),
                         *(_blank(row["measures"].get(key)) for key in measures.KEYS),
                         _blank(row["result"]), _blank(row.get("error"))])
    return text.getvalue()


def _blank(value):
    return "" if value is None else value


def _summary(plan, rows):
    points = points_of(rows)
    places = {id(point): place for place, point in enumerate(points)}
    front = [places[id(point)] for point in measures.pareto(points, *plan.front)]
    return json.dumps({"format": FORMAT, "version": VERSION, "below": plan.below,
                       "traces": plan.traces, "settings": plan.settings, "rows": rows,
                       "points": points,
                       "front": {"measures": list(plan.front), "points": front}},
                      ensure_ascii=False, indent=1) + "\n"


def points_of(rows):
    """One point per combination of settings, over all its traces; none where a replay failed."""
    points = []
    by_settings = itertools.groupby(rows, key=lambda row: row["settings"])
    for settings, group in by_settings:
        group = list(group)
        if not any(row.get("error") for row in group):
            points.append({"settings": settings, "rows": [row["id"] for row in group],
                           "measures": {measure.key: _over_traces(measure, group)
                                        for measure in measures.MEASURES}})
    return points


# Of these a number over several traces is the largest, and of the others with a unit of "s" the sum.
_LARGEST = ("to_upper_max_s",)
_MEANS = ("to_upper_mean_s",)
_SUMS = ("s", "mW·s", "")


def _over_traces(measure, rows):
    """A measure of several traces: sums of times, energies and counts, means of the rest."""
    known = [row for row in rows if row["measures"].get(measure.key) is not None]
    values = [row["measures"][measure.key] for row in known]
    if not values:
        return None
    if measure.key in _LARGEST:
        return max(values)
    if measure.unit in _SUMS and measure.key not in _MEANS:
        return round(sum(values), 6)
    weights = [_weight(measure, row["measures"]) for row in known]
    total = sum(weights)
    if total == 0:
        return None
    return round(sum(value * weight for value, weight in zip(values, weights)) / total, 6)


def _weight(measure, values):
    """What a trace's mean counts for among those of others."""
    if measure.key in _MEANS:
        return (values.get("falls") or 0) - (values.get("falls_missed") or 0)
    return values.get("linked_s") or 0
