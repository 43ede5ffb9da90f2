"""The page of a sweep: heat map, front, and the runs behind their points."""

import html
import json
import os

from corvid_trace import compare, measures
from corvid_trace.errors import FormatError, TraceError
from corvid_trace.page_data import PageData
from corvid_trace.results import Result, load_timeline, short_names, short_property

FORMAT = "corvid-sweep"
DEFAULT_RUNS = 200
# A sweep's file is read as a whole.
_MAX_SIZE = 1 << 30

# What the table of the front shows beside the two measures that make it.
_TABLE_MEASURES = ("energy_mws", "mean_dbm", "time_upper_s", "changes", "reversals",
                   "below_not_upper_s", "to_upper_max_s", "failed_commands")

_TOP = """\
<section class="sweep" id="sweep">
<div class="choice" id="choice"></div>
<div class="pictures">
<figure><figcaption id="heat-title"></figcaption><div class="wide" id="heat"></div></figure>
<figure><figcaption id="front-title"></figcaption><div id="front"></div></figure>
</div>
<div id="point" aria-live="polite"></div>
</section>
"""


class Sweep:
    """The rows and the front of a sweep, as its sweep.json has them."""

    def __init__(self, path, content):
        self.folder = os.path.dirname(path)
        self.below = content.get("below", measures.DEFAULT_BELOW)
        try:
            self.values = dict(content["settings"])
            self.traces = list(content["traces"])
            self.rows = {row["id"]: row for row in content["rows"]}
            self.points = [{"settings": dict(point["settings"]), "rows": list(point["rows"]),
                            "measures": dict(point["measures"])} for point in content["points"]]
            self.front_measures = list(content["front"]["measures"])
            self.front = list(content["front"]["points"])
            self._check()
        except (KeyError, TypeError, ValueError, IndexError, AttributeError) as error:
            raise FormatError(path, 1, f"this is no sweep that corvid-trace wrote: {error!r}") \
                from error

    def _check(self):
        for index in self.front:
            self.points[index]["measures"]
        for point in self.points:
            for row in point["rows"]:
                self.rows[row].get("result")
        if len(self.front_measures) != 2 or None in map(measures.find, self.front_measures):
            raise ValueError(self.front_measures)

    @property
    def parameter_names(self):
        return [short_property(name) for name in self.values]

    @property
    def varied_names(self):
        """Those of the settings that have more than one value."""
        return [short_property(name) for name, values in self.values.items() if len(values) > 1]


def read(path):
    """The Sweep in this file, or in this folder's sweep.json; None when it holds something else."""
    if os.path.isdir(path):
        folder, path = path, os.path.join(path, "sweep.json")
        if not os.path.exists(path):
            raise TraceError(f"{folder}: there is no sweep.json in this folder; corvid-trace sweep writes "
                             "it at its end, and corvid-trace merge of a sweep's parts")
    if not os.path.isfile(path):
        return None  # a pipe can be read only once, and what is missing the next one names
    with open(path, "rb") as file:
        # A result's first line is an object of its own; a sweep may have one line or many.
        if b'"type"' in file.readline(4096).replace(b" ", b"")[:20]:
            return None
        file.seek(0)
        text = file.read(_MAX_SIZE)
    try:
        content = json.loads(text)
    except (ValueError, RecursionError):
        return None
    if not isinstance(content, dict) or content.get("format") != FORMAT:
        return None
    return Sweep(path, content)


def content(sweep, most_runs):
    """The page's data and its static parts."""
    data = PageData()
    runs = _add_runs(data, sweep, most_runs)
    page = data.as_object()
    page["sweep"] = {
        "traces": sweep.traces,
        "traceNames": short_names(sweep.traces),
        "settings": {short_property(name): values for name, values in sweep.values.items()},
        "measures": [{"key": measure.key, "title": measure.title.format(below=sweep.below),
                      "unit": measure.unit, "better": measure.better}
                     for measure in measures.MEASURES
                     if any(point["measures"].get(measure.key) is not None
                            for point in sweep.points)],
        "points": [_point(sweep, point, runs) for point in sweep.points],
        "front": {"measures": sweep.front_measures, "points": sweep.front},
    }
    return {"data": page, "top": _TOP, "bottom": _table(sweep)}


def _add_runs(data, sweep, most):
    """Puts runs into the page, those of the front first: {row id: place in the page's runs}."""
    order = [row for index in sweep.front for row in sweep.points[index]["rows"]]
    order += [row for point in sweep.points for row in point["rows"]]
    names = dict(zip(sweep.traces, short_names(sweep.traces)))
    runs = {}
    for row_id in dict.fromkeys(order):
        if len(runs) == most:
            break
        row = sweep.rows[row_id]
        if row.get("result"):
            path = os.path.join(sweep.folder, row["result"])
            timeline = load_timeline(path)
            timeline.label = ""  # the settings, which stand beside it
            runs[row_id] = len(runs)
            data.add(Result(path, names[row["trace"]], timeline), row["measures"],
                     row["settings"])
    return runs


def _point(sweep, point, runs):
    """A combination: its values in the order of the settings, its measures, its runs by trace."""
    rows = [sweep.rows[row] for row in point["rows"]]
    return {
        "values": [point["settings"][name] for name in sweep.values],
        "measures": point["measures"],
        "byTrace": {row["trace"]: row["measures"] for row in rows},
        "runs": [runs[row["id"]] for row in rows if row["id"] in runs],
        "files": [row["result"] for row in rows if row.get("result")],
    }


def _table(sweep):
    """The front as a table, one row per point."""
    keys = list(dict.fromkeys([*sweep.front_measures, *_TABLE_MEASURES]))
    shown = [measures.find(key) for key in keys]
    heads = [f'<th scope="col">{html.escape(name)}</th>' for name in sweep.parameter_names]
    for measure in shown:
        unit = f" {measure.unit}" if measure.unit else ""
        heads.append(f'<th scope="col">{html.escape(measure.title.format(below=sweep.below))}'
                     f'<span class="unit">{unit}</span></th>')
    rows = []
    for index in sweep.front:
        point = sweep.points[index]
        cells = [f"<td>{html.escape(str(point['settings'][name]))}</td>" for name in sweep.values]
        cells += [f"<td>{compare.number(point['measures'].get(measure.key))}</td>"
                  for measure in shown]
        rows.append(f'<tr><th scope="row"><a href="#point-{index}">{index}</a></th>'
                    f"{''.join(cells)}</tr>")
    return ('<section id="compare"><h2>The front</h2><div class="wide">'
            '<table class="measures front"><thead><tr><th scope="col">point</th>'
            f'{"".join(heads)}</tr></thead><tbody>{"".join(rows)}</tbody></table></div></section>')
