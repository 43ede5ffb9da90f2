"""corvid-trace compare: what results cost and achieve, and how they differ from the first one."""

import json
import shutil
import sys

from corvid_trace import measures
from corvid_trace.arguments import add_command
from corvid_trace.output import wants_color
from corvid_trace.results import differing_settings, load, short_property

EXAMPLES = """\
  corvid-trace compare now.result upper-60.result
  corvid-trace compare --below -72 *.result
  corvid-trace compare --json now.result upper-60.result | jq .results[1].differences"""

# Left out of the table when every result has 0: most results know nothing of them.
_ONLY_IF_ANY = ("time_other_s", "below_other_s", "chain_commands", "group_power_commands")

_GREEN, _RED, _PLAIN = "\x1b[32m", "\x1b[31m", "\x1b[0m"


def add_parser(subparsers):
    parser = add_command(
        subparsers, "compare", run,
        "Measures results: power, energy, time on each step, changes, and how a weak signal fares. "
        "The number behind a value is its difference from the first result. docs/tuning.md says "
        "what each measure is.", EXAMPLES)
    add_below(parser)
    parser.add_argument("--json", action="store_true", help="one JSON object in place of the table")
    parser.add_argument("results", nargs="+", metavar="RESULT")


def add_below(parser, more=""):
    parser.add_argument("--below", type=int, metavar="DBM", default=measures.DEFAULT_BELOW,
                        help="the signal, dBm, under which a link counts as weak "
                             f"(default: %(default)s{more})")


def run(args):
    results = load(args.results)
    values = [measures.measure_timeline(result.timeline, args.below) for result in results]
    if args.json:
        print(json.dumps(as_json(results, values, args.below), ensure_ascii=False, indent=2))
    else:
        color = wants_color(sys.stdout)
        for line in table(results, values, args.below, _width(), color):
            print(line)
    return 0


def _width():
    return shutil.get_terminal_size().columns if sys.stdout.isatty() else 100


def differences(first, values):
    """By key, how values differ from the first result's; None where one of the two is missing."""
    return {key: None if value is None or first[key] is None else round(value - first[key], 6)
            for key, value in values.items()}


def as_json(results, values, below):
    return {
        "below_dbm": below,
        "settings_that_differ": differing_settings(results),
        "results": [
            {"file": result.path, "name": result.name, "label": result.timeline.label,
             "measures": of, "differences": differences(values[0], of)}
            for result, of in zip(results, values)],
    }


def shown_measures(values):
    """The measures that at least one result has."""
    return [measure for measure in measures.MEASURES
            if any(of[measure.key] is not None for of in values)
            and not (measure.key in _ONLY_IF_ANY and not any(of[measure.key] for of in values))]


def number(value):
    """At most three places behind the point, and no more digits than mean something."""
    if value is None:
        return "-"
    if abs(value) >= 1e9:
        return f"{value:.3g}"
    if isinstance(value, int):
        return str(value)
    places = 0 if abs(value) >= 1000 else 1 if abs(value) >= 10 else 2
    text = f"{value:.{places}f}"
    return text.rstrip("0").rstrip(".") if "." in text else text


def signed(difference):
    """A difference as text; empty for none."""
    if not difference:
        return ""
    text = number(difference)
    if text.strip("-0.") == "":
        return ""
    return text if text.startswith("-") else "+" + text


def verdict(measure, difference):
    """1 better, -1 worse, 0 neither."""
    if not difference or measure.better is None:
        return 0
    return 1 if (difference < 0) == (measure.better == "low") else -1


def table(results, values, below, width, color=False):
    """The lines of a table not wider than `width`, if one result can be; in blocks if need be."""
    rows = _rows(results, values, below)
    heads = max([len(row[0]) for row in rows] + [len("measure")]) + 1
    columns = [_Column(result.name, index, rows) for index, result in enumerate(results)]
    lines = []
    rest = columns[1:]
    while True:
        block, room = [columns[0]], width - heads - columns[0].width
        while rest and (len(block) == 1 or rest[0].width <= room):
            room -= rest[0].width
            block.append(rest.pop(0))
        if lines:
            lines.append("")
        lines.append(_line("measure", [column.head() for column in block], heads))
        for row in rows:
            if row[0]:
                lines.append(_line(row[0], [column.cell(row, color) for column in block], heads))
            else:
                lines.append("")
        if not rest:
            return lines


def _line(head, cells, width):
    return (head.ljust(width) + "".join(cells)).rstrip()


def _rows(results, values, below):
    """(title, [(value, difference, verdict) per result]); an empty title is a blank line."""
    rows = [(short_property(name), [("default" if value is None else value, "", 0) for value in of])
            for name, of in differing_settings(results).items()]
    if rows:
        rows.append(("", []))
    for measure in shown_measures(values):
        title = measure.title.format(below=below)
        cells = []
        for of in values:
            difference = differences(values[0], of)[measure.key]
            cells.append((number(of[measure.key]), signed(difference),
                          verdict(measure, difference)))
        rows.append((f"{title}, {measure.unit}" if measure.unit else title, cells))
    return rows


class _Column:
    """The values and differences of one result."""

    def __init__(self, name, index, rows):
        self._index = index
        cells = [row[1][index] for row in rows if row[1]]
        self._values = max(len(cell[0]) for cell in cells)
        self._differences = max(len(cell[1]) for cell in cells)
        self._name = name
        if index and self._differences:
            self._differences += 1
        self.width = max(self._values + self._differences, min(len(name), 24)) + 2

    def head(self):
        room = self.width - 2
        name = self._name if len(self._name) <= room else self._name[:room - 1] + "…"
        return "  " + name.rjust(room)

    def cell(self, row, color):
        value, difference, good = row[1][self._index]
        paint = {1: _GREEN, -1: _RED}.get(good) if color else None
        text = difference.rjust(self._differences)
        return (value.rjust(self.width - self._differences)
                + (f"{paint}{text}{_PLAIN}" if paint else text))
