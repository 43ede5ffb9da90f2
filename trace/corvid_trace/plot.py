"""corvid-trace plot: signal and steps in a terminal."""

import sys

from corvid_trace import measures
from corvid_trace.arguments import add_command
from corvid_trace.compare import number
from corvid_trace.errors import UsageError
from corvid_trace.output import wants_color
from corvid_trace.results import load
from corvid_trace.timeline import STEPS

EXAMPLES = """\
  corvid-trace plot walk.result
  corvid-trace plot --width 120 now.result upper-60.result"""

_LEAST_WIDTH = 40
_HEIGHT = 14  # rows of the signal
_AXIS = 8  # columns left of the curves

_COLORS = {"upper": "\x1b[31m", "middle": "\x1b[33m", "lower": "\x1b[32m", "signal": "\x1b[36m",
           "threshold": "\x1b[2m"}
_PLAIN = "\x1b[0m"

# What the signal and the steps are drawn with; a terminal without these letters gets the others.
_UNICODE = {"point": "•", "range": "│", "threshold": "┄", "axis": "┤", "upper": "█",
            "middle": "▅", "lower": "▂", "other": "?", "refused": "x"}
_ASCII = {"point": "o", "range": "|", "threshold": "-", "axis": "|", "upper": "#", "middle": "=",
          "lower": "_", "other": "?", "refused": "x"}


def add_parser(subparsers):
    parser = add_command(
        subparsers, "plot", run,
        "Draws signal and power steps in the terminal. A column shows all signals of its time: the "
        "last as a point, the others as a line. Colours only on a terminal, and not with NO_COLOR.",
        EXAMPLES)
    parser.add_argument("--width", type=int, default=80, metavar="COLUMNS",
                        help="columns (default: %(default)s)")
    parser.add_argument("results", nargs="+", metavar="RESULT")


def run(args):
    if args.width < _LEAST_WIDTH:
        raise UsageError(f"--width is {args.width}; allowed is a number from {_LEAST_WIDTH}")
    for place, result in enumerate(load(args.results)):
        if place:
            print()
        for line in plot(result, args.width, _letters(sys.stdout), wants_color(sys.stdout)):
            print(line)
    return 0


def _letters(stream):
    try:
        "".join(_UNICODE.values()).encode(stream.encoding or "ascii")
    except UnicodeEncodeError:
        return _ASCII
    return _UNICODE


def plot(result, width, letters=None, color=False):
    """The lines of a result's plot, none wider than `width`."""
    return _Plot(result, width, letters or _UNICODE, color).lines()


class _Plot:
    """One result, cut into columns of equal time."""

    def __init__(self, result, width, letters, color):
        self._result = result
        self._timeline = result.timeline
        self._width = width
        self._columns = width - _AXIS
        self._letters = letters
        self._color = color

    def lines(self):
        yield self._title()
        yield from self._signal_rows()
        steps, refused = self._step_columns()
        yield "power".rjust(_AXIS - 1) + " " + self._painted_steps(steps)
        if "x" in refused:
            yield "refused".rjust(_AXIS - 1) + " " + "".join(refused).rstrip()
        yield self._times()
        yield self._key(set(steps))

    def _title(self):
        values = measures.measure_timeline(self._timeline)
        words = [_elapsed(self._timeline.duration), f"{values['changes']} changes"]
        if values["energy_mws"] is not None:
            words.append(f"{number(values['energy_mws'])} mW·s")
        text = f"{self._result.name}: {', '.join(words)}"
        if self._letters is _ASCII:
            text = text.replace("·", "").encode("ascii", "replace").decode()
        return text if len(text) <= self._width else text[:self._width - 3] + "..."

    def _column(self, t):
        share = (t - self._timeline.start) / (self._timeline.duration or 1)
        return min(max(int(share * self._columns), 0), self._columns - 1)

    def _signal_columns(self):
        """For each column (lowest, highest, last) of its time, or None."""
        columns = [None] * self._columns
        last_column, last_signal = 0, None
        for signal in [*self._timeline.signal, None]:
            column = self._columns if signal is None else self._column(signal.t)
            if last_signal is not None and last_signal.rssi is not None:
                # A signal holds until the next one.
                for between in range(last_column + 1, column):
                    columns[between] = (last_signal.rssi,) * 3
            if signal is None:
                break
            if signal.rssi is not None:
                known = columns[column] or (signal.rssi,) * 3
                columns[column] = (min(known[0], signal.rssi), max(known[1], signal.rssi),
                                   signal.rssi)
            last_column, last_signal = column, signal
        return columns

    def _signal_rows(self):
        columns = self._signal_columns()
        known = [column for column in columns if column]
        if not known:
            yield "no signal".rjust(_AXIS)
            return
        low = min(column[0] for column in known)
        high = max(column[1] for column in known)
        step = max((high - low) / (_HEIGHT - 1), 1)
        limits = self._timeline.thresholds
        thresholds = {round((high - limits[name]) / step) for name in
                      ("rssi_upper", "rssi_middle_upper", "rssi_middle_lower", "rssi_lower")
                      if name in limits}
        rows = min(_HEIGHT, int((high - low) / step) + 1)
        for row in range(rows):
            head = f"{_short(round(high - row * step))} {self._letters['axis']}".rjust(_AXIS - 1)
            head += " "
            yield (head + self._signal_row(columns, high, step, row, row in thresholds)).rstrip()

    def _signal_row(self, columns, high, step, row, threshold):
        cells = []
        for column in columns:
            if column and round((high - column[2]) / step) == row:
                cells.append(("signal", self._letters["point"]))
            elif column and (round((high - column[1]) / step) <= row
                             <= round((high - column[0]) / step)):
                cells.append(("signal", self._letters["range"]))
            else:
                cells.append(("threshold", self._letters["threshold"]) if threshold
                             else (None, " "))
        return self._paint(cells)

    def _step_columns(self):
        """For each column the step at its end, None for unknown; and where commands were refused."""
        steps = [None] * self._columns
        refused = [" "] * self._columns
        column, step = 0, None
        for power in self._timeline.power:
            at = self._column(power.t)
            if not power.accepted:
                refused[at] = self._letters["refused"]
                continue
            steps[column:at] = [step] * (at - column)
            column, step = at, power.step if power.step in STEPS else "other"
        steps[column:] = [step] * (self._columns - column)
        return steps, refused

    def _painted_steps(self, steps):
        return self._paint([(step, self._letters[step] if step else " ")
                            for step in steps]).rstrip()

    def _paint(self, cells):
        """Letters in their colours; an escape sequence only where the colour changes."""
        text, current = [], None
        for kind, letter in cells:
            wanted = _COLORS.get(kind) if self._color else None
            if wanted != current:
                text.append((_PLAIN if current else "") + (wanted or ""))
                current = wanted
            text.append(letter)
        return "".join(text) + (_PLAIN if current else "")

    def _times(self):
        """The time below every eighteenth column; the last ends with the line."""
        line = [" "] * self._width
        marks = max(self._columns // 18, 1)
        for mark in range(marks + 1):
            text = _elapsed(self._timeline.duration * mark / marks)
            at = _AXIS + (self._columns - 1) * mark // marks
            at = min(at, self._width - len(text))
            line[at:at + len(text)] = text
        return "".join(line).rstrip()

    def _key(self, steps):
        entries = []
        for step in STEPS:
            if step in steps:
                dbm = self._timeline.thresholds.get("dbm_" + step)
                entries.append((step, self._letters[step],
                                step if dbm is None else f"{step} {dbm} dBm"))
        if self._timeline.thresholds:
            entries.append(("threshold", self._letters["threshold"] * 3, "thresholds, dBm"))
        text, length = " " * _AXIS, _AXIS
        for kind, letters, words in entries:
            length += len(letters) + len(words) + 3
            if length > self._width:
                break
            text += f"{self._paint([(kind, letters)])} {words}  "
        return text.rstrip()


def _short(dbm):
    """A number that fits beside the axis."""
    text = str(dbm)
    return text if len(text) <= 5 else f"{dbm:.0e}".replace("e+0", "e").replace("e+", "e")


def _elapsed(seconds):
    seconds = round(seconds)
    hours, rest = divmod(seconds, 3600)
    minutes, seconds = divmod(rest, 60)
    return f"{hours}:{minutes:02}:{seconds:02}" if hours else f"{minutes}:{seconds:02}"
