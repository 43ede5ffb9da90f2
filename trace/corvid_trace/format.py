"""Reads and writes traces and results (docs/trace-format.md describes them).

Reading forgives what a later or a stricter writer may have added: unknown fields and record types
are passed on as they are. Writing does not: a record that breaks the format raises FormatError.
"""

import json
import math
import sys

from corvid_trace.errors import FormatError
from corvid_trace.output import OutputFile

FORMAT = "corvid-trace"
VERSION = 1
SOURCES = ("record", "import", "scenario", "lab")

# A line longer than this is no record; reading it whole could take any amount of memory.
MAX_LINE = 1 << 20


class Record(dict):
    """A record with the number of the line that it was read from."""

    __slots__ = ("line",)

    def __init__(self, fields, line):
        super().__init__(fields)
        self.line = line


class Kind:
    """What a value may be: a test, and the words for a person who got it wrong."""

    def __init__(self, words, test):
        self.words = words
        self.test = test

    def or_null(self):
        return Kind(self.words + " or null", lambda value: value is None or self.test(value))


def _is_number(value):
    return isinstance(value, (int, float)) and not isinstance(value, bool) and math.isfinite(value)


def _is_integer(value):
    return isinstance(value, int) and not isinstance(value, bool)


def one_of(*choices):
    words = ", ".join(json.dumps(choice) for choice in choices)
    return Kind(f"one of {words}", lambda value: value in choices and not isinstance(value, bool))


TEXT = Kind("a text", lambda value: isinstance(value, str))
NUMBER = Kind("a number", _is_number)
INTEGER = Kind("a whole number", _is_integer)
FREQUENCY = Kind("a frequency in MHz, a whole number above 0",
                 lambda value: _is_integer(value) and value > 0)
WIDTH = one_of(20, 40, 80, 160, "80+80")
BOOLEAN = Kind("true or false", lambda value: isinstance(value, bool))
TEXTS = Kind("an object of texts", lambda value: isinstance(value, dict) and all(
    isinstance(text, str) for text in value.values()))
LIST = Kind("a list", lambda value: isinstance(value, list))
OBJECT = Kind("an object", lambda value: isinstance(value, dict))

# Fields by name: (kind, whether a writer must set it).
_REQUIRED, _OPTIONAL = True, False

HEADER = {
    "format": (one_of(FORMAT), _REQUIRED),
    "version": (one_of(VERSION), _REQUIRED),
    "source": (one_of(*SOURCES), _REQUIRED),
    "made_by": (TEXT, _REQUIRED),
    "label": (TEXT, _REQUIRED),
    "start_wall": (NUMBER.or_null(), _REQUIRED),
    "interfaces": (TEXTS, _REQUIRED),
    "properties": (TEXTS, _REQUIRED),
    "result": (BOOLEAN, _OPTIONAL),
    "settings": (TEXTS, _OPTIONAL),
    "station_power": (BOOLEAN, _OPTIONAL),
    "thresholds": (OBJECT, _OPTIONAL),
}

# The fields that tell what a file is; without any other it can still be read.
_NEEDED_TO_READ = ("format", "version")

_STATION = {
    "frequency_mhz": (FREQUENCY, _REQUIRED),
    "rssi_dbm": (INTEGER.or_null(), _REQUIRED),
    "bandwidth_mhz": (WIDTH.or_null(), _REQUIRED),
}
_GROUP = {
    "frequency_mhz": (FREQUENCY, _REQUIRED),
    "bandwidth_mhz": (WIDTH.or_null(), _REQUIRED),
}

RECORDS = {
    "sample": {"sta": (_STATION, _REQUIRED), "p2p": (_GROUP, _REQUIRED)},
    "callback": {"event": (TEXT, _REQUIRED)},
    "daemon": {"state": (one_of("started", "ended"), _REQUIRED), "properties": (TEXTS, _OPTIONAL)},
    "supplicant": {"interface": (TEXT, _REQUIRED), "text": (TEXT, _REQUIRED)},
    "note": {"text": (TEXT, _REQUIRED)},
    "end": {"reason": (TEXT, _REQUIRED)},
    # What only a result has.
    "command": {"interface": (TEXT, _REQUIRED), "text": (TEXT, _REQUIRED),
                "reply": (TEXT.or_null(), _REQUIRED)},
    "netlink": {"text": (TEXT, _REQUIRED), "answer": (TEXT, _REQUIRED)},
    "atom": {"atomId": (INTEGER, _REQUIRED), "values": (LIST, _REQUIRED)},
    "log": {"level": (one_of(*"VDIWEF"), _REQUIRED), "tag": (TEXT, _REQUIRED),
            "text": (TEXT, _REQUIRED)},
    "power": {"interface": (TEXT, _REQUIRED), "dbm": (INTEGER, _REQUIRED),
              "step": (one_of("upper", "middle", "lower").or_null(), _REQUIRED),
              "accepted": (BOOLEAN, _REQUIRED)},
}

# The fields of a callback, by its event.
CALLBACKS = {
    "onChannelSwitch": {"frequency": (INTEGER, _REQUIRED), "width": (INTEGER, _REQUIRED),
                        "isP2p": (BOOLEAN, _REQUIRED)},
    "onAssocStarted": {},
    # The callback's "type" would be the record's.
    "onRegdomUpdated": {"init": (TEXT, _REQUIRED), "regdomType": (TEXT, _REQUIRED),
                        "alpha2": (TEXT, _REQUIRED)},
}

_RESULT_ONLY = ("command", "netlink", "atom", "log", "power")


def _shown(value):
    text = json.dumps(value, ensure_ascii=False)
    return text if len(text) <= 60 else text[:57] + "..."


def _wrong_field(fields, name, table, where=""):
    """What is wrong with one field, or None. A table in a table is an object or null."""
    kind = table[name][0]
    value = fields[name]
    if isinstance(kind, Kind):
        return None if kind.test(value) else (
            f"{where}{name} is {_shown(value)}; allowed is {kind.words}")
    if value is None:
        return None
    if not isinstance(value, dict):
        return f"{where}{name} is {_shown(value)}; allowed is an object or null"
    return _wrong(value, kind, f"{where}{name}.")


def _wrong(fields, table, where=""):
    """What is wrong with `fields`, or None. What the table doesn't name is not looked at."""
    for name, (_, required) in table.items():
        if name not in fields:
            if required:
                return f"{where}{name} is missing"
            continue
        wrong = _wrong_field(fields, name, table, where)
        if wrong:
            return wrong
    return None


def wrong_with_header(header, strict=True):
    """What is wrong with a header, or None. Without `strict`, most fields may be missing."""
    if header.get("type") != "header":
        return f'type is {_shown(header.get("type"))}; the first line has "type":"header"'
    version = header.get("version")
    if header.get("format") == FORMAT and _is_integer(version) and version > VERSION:
        return f"version is {version}; this program reads version {VERSION}"
    table = HEADER if strict else {
        name: (kind, name in _NEEDED_TO_READ) for name, (kind, _) in HEADER.items()}
    return _wrong(header, table)


def wrong_with_record(record, strict=True):
    """What is wrong with a record, or None. Without `strict`, types of later versions may be."""
    kind = record.get("type")
    if not isinstance(kind, str) or kind == "header":
        return f"type is {_shown(kind)}; allowed is one of {', '.join(RECORDS)}"
    for name in ("t", "wall"):
        if name in record and not _is_number(record[name]):
            return f"{name} is {_shown(record[name])}; allowed is a number of seconds"
    if "t" not in record:
        return "t is missing: seconds on the trace's clock"
    if kind not in RECORDS:
        return f"type is {_shown(kind)}; allowed is one of {', '.join(RECORDS)}" if strict else None
    wrong = _wrong(record, RECORDS[kind])
    if wrong or kind != "callback":
        return wrong
    event = record["event"]
    if event not in CALLBACKS:
        return (f"event is {_shown(event)}; allowed is one of {', '.join(CALLBACKS)}"
                if strict else None)
    return _wrong(record, CALLBACKS[event])


def _refuse_constant(name):
    raise ValueError(f"{name} is no number that JSON has")


def _parse(text):
    """The object of one line, or a text that says why there is none."""
    try:
        value = json.loads(text.decode("utf-8"), parse_constant=_refuse_constant)
    except json.JSONDecodeError as error:
        return f"this is no JSON object: {error.msg} at column {error.colno}"
    except (ValueError, RecursionError) as error:
        return f"this is no JSON object: {error}"
    return value if isinstance(value, dict) else "this is no JSON object"


def complain_to_stderr(path, line, what):
    print(f"{path}:{line}: {what}", file=sys.stderr)


def _lines(file, path):
    """(number, line without its end, whether it had one) of each line that is not blank."""
    number = 0
    while True:
        line = file.readline(MAX_LINE + 1)
        if not line:
            return
        number += 1
        if len(line) > MAX_LINE:
            raise FormatError(path, number, f"the line is longer than {MAX_LINE} bytes")
        if line.strip():
            yield number, line.rstrip(b"\r\n"), line.endswith(b"\n")


def read_trace(path, complain=complain_to_stderr, file=None):
    """Opens a trace or a result ("-": standard input): its header and an iterator of its Records.

    `file` is the binary file where it is open already; it is closed at the end. Raises FormatError for
    a line that is none, and OSError. A last line that was cut off in the middle, as by a headset that
    lost its power, is left away: `complain(path, line, what)`.
    """
    if file is None:
        file = sys.stdin.buffer if path == "-" else open(path, "rb")
    lines = _lines(file, path)
    try:
        number, text, _ = next(lines, (1, None, True))
        if text is None:
            raise FormatError(path, 1, "the file is empty; the first line has to be a header")
        header = _parse(text)
        wrong = header if isinstance(header, str) else wrong_with_header(header, strict=False)
        if wrong:
            raise FormatError(path, number, wrong)
    except BaseException:
        if file is not sys.stdin.buffer:
            file.close()
        raise
    return Record(header, number), _records(file, lines, path, complain)


def _records(file, lines, path, complain):
    last = -math.inf
    try:
        for number, text, whole in lines:
            record = _parse(text)
            if isinstance(record, str):
                if not whole:
                    complain(path, number, "the last line is cut off; it is left away")
                    return
                raise FormatError(path, number, record)
            wrong = wrong_with_record(record, strict=False)
            if not wrong and record["t"] < last:
                wrong = f"t is {record['t']}, after a line with {last}; times never decrease"
            if wrong:
                raise FormatError(path, number, wrong)
            last = record["t"]
            yield Record(record, number)
    finally:
        if file is not sys.stdin.buffer:
            file.close()


def to_line(fields):
    """One line of a file, without its end."""
    return json.dumps(fields, ensure_ascii=False, separators=(",", ":"), allow_nan=False)


class TraceWriter:
    """Writes a trace, or a result when its header has "result": true. Use it in a `with`.

    The file is whole or not there: it gets its name at the end of the `with`, and none after an
    exception. A record that breaks the format raises FormatError, which names the line.
    """

    def __init__(self, path, header, force=False):
        self._line = 1
        self._last = -math.inf
        self._path = path
        header = {"type": "header", "format": FORMAT, "version": VERSION, **header}
        self._result = header.get("result", False)
        self._require(wrong_with_header(header))
        self._file = OutputFile(path, force)
        self._put(header)

    def write(self, record, strict=True):
        """Appends a record; its "t" may not be less than that of the one before.

        Without `strict`, its type may be a later version's: for a record that was read.
        """
        wrong = wrong_with_record(record, strict)
        if not wrong and record["type"] in _RESULT_ONLY and not self._result:
            wrong = f'type is {_shown(record["type"])}, which only a result may have'
        if not wrong and record["t"] < self._last:
            wrong = f"t is {record['t']}, after a line with {self._last}; times never decrease"
        self._require(wrong)
        self._last = record["t"]
        self._put(record)

    def _require(self, wrong):
        if wrong:
            raise FormatError(self._path, self._line, wrong)

    def _put(self, fields):
        self._file.write(to_line(fields) + "\n")
        self._line += 1

    def __enter__(self):
        return self

    def __exit__(self, kind, error, trace):
        self._file.close(keep=kind is None)
