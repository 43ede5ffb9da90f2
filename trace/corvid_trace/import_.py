"""corvid-trace import: makes a trace of what people have already."""

import collections
import contextlib
import itertools
import os
import sys

from corvid_trace import format as trace_format
from corvid_trace.anonymize import Anonymizer
from corvid_trace.arguments import add_command, add_output_options
from corvid_trace.errors import TraceError, UsageError
from corvid_trace.importing import lab, logs, polls, simulator, table
from corvid_trace.importing.clock import zone_of
from corvid_trace.importing.daemon_log import TAG
from corvid_trace.importing.lines import Lines, Problems, shortened
from corvid_trace.output import Progress

DESCRIPTION = """\
Makes a trace of a log, of polls of the signal, of a table or of a play of the simulator. What could
not be read is named on standard error, by line. What is read is told by the file itself:

  trace      a trace or a result: to anonymize it
  log        logcat -v epoch, threadtime, year (also with zone and uid) or monotonic, with lines of
             CorvidWifi and wpa_supplicant; the daemon's standard error; wpa_supplicant -t
  lab        a folder of logs of the lab
  simulator  corvid-sim --record FILE
  polls      a loop of wpa_cli signal_poll with times
  csv        time_s,rssi_dbm,freq_mhz[,width_mhz]; without freq_mhz all is on 5180 MHz

Times without a year or a zone, as of logcat -v threadtime, make a trace without wall time, unless
--year and --zone say what they are."""

EXAMPLES = """\
  adb logcat -v epoch -d CorvidWifi:D wpa_supplicant:D '*:S' > walk.txt
  corvid-trace import walk.txt -o walk.jsonl
  corvid-trace import logcat.txt --year 2025 --zone +0100 --anonymize -o walk.jsonl
  adb shell getprop > properties.txt
  corvid-trace import walk.txt --properties properties.txt -o walk.jsonl
  corvid-trace import build/lab-runs/power-walk -o lab.jsonl
  corvid-trace import - -o - < polls.txt"""

SOURCES = (simulator, table, logs, polls)
FORMATS = ("trace", lab.NAME) + tuple(source.NAME for source in SOURCES)

# Where the walk comes from that such a file holds, as the header says it.
_SOURCE_OF = {lab.NAME: "lab", simulator.NAME: "scenario"}

# So many bytes decide what a file is.
_LOOKED_AT = 1 << 16

# Of all properties, those that the daemon reads.
_PROPERTY_PREFIXES = ("persist.vendor.wifi.", "log.tag.CorvidWifi", "debug.sensors.")


def add_parser(subparsers):
    parser = add_command(subparsers, "import", run, DESCRIPTION, EXAMPLES)
    parser.add_argument("path", metavar="FILE", help="what to import; - is standard input")
    add_output_options(parser, "the trace", "TRACE")
    parser.add_argument("--format", choices=FORMATS, help="what FILE is, if it does not tell")
    parser.add_argument("--anonymize", action="store_true",
                        help="stand-ins for SSIDs, MAC and IP addresses")
    parser.add_argument("--label", help="what people call the walk (default: FILE's name)")
    parser.add_argument("--source", choices=trace_format.SOURCES,
                        help="where the walk comes from, if FILE does not tell (default: import)")
    parser.add_argument("--properties", metavar="LIST",
                        help="the daemon's properties: lines of getprop, or NAME=VALUE")
    parser.add_argument("--sta-interface", metavar="NAME", default="wlan0",
                        help="the station's interface (default: wlan0)")
    parser.add_argument("--year", type=int, help="of times without one")
    parser.add_argument("--zone", help="of times without one: Z, +0100")
    parser.add_argument("--strict", action="store_true",
                        help="no trace when anything could not be read")
    parser.add_argument("--show-all", action="store_true",
                        help=f"name every line that could not be read, not only {Problems.SHOWN}")


def run(args):
    if args.zone is not None:
        zone = zone_of(args.zone)
        if zone is None:
            raise UsageError(f"--zone is {shortened(args.zone)}; allowed is Z or +HHMM")
        args.zone = zone
    if args.year is not None and not 1970 <= args.year <= 9999:
        raise UsageError(f"--year is {args.year}; allowed is 1970 to 9999")
    problems = Problems(args.path, args.show_all)
    header = {"source": "import", "made_by": "corvid-trace import", "label": _label(args),
              "start_wall": None, "interfaces": {}, "properties": {}}
    if args.properties:
        header["properties"] = _properties(args.properties)
    with contextlib.ExitStack() as stack:
        name, records = _open(args, header, problems, stack)
        header["source"] = args.source or _SOURCE_OF.get(name, "import")
        counts = _write(args, header, records, problems)
    if not counts:
        raise TraceError(f"{args.path}: nothing in it could be read as {name}")
    _summarize(args, name, counts, problems)
    return 0


def _label(args):
    if args.label is not None:
        return args.label
    name = os.path.basename(os.path.normpath(args.path)) if args.path != "-" else "standard input"
    return os.path.splitext(name)[0]


def _properties(path):
    """Name and value of each line "[name]: [value]" or "name=value"; the daemon's only."""
    properties = {}
    with open(path, encoding="utf-8", errors="backslashreplace") as file:
        for number, line in enumerate(file, 1):
            line = line.strip()
            if not line or line.startswith("#"):
                continue
            name, separator, value = (line[1:-1].partition("]: [") if line.startswith("[")
                                      else line.partition("="))
            if not separator:
                raise trace_format.FormatError(path, number, "allowed is [NAME]: [VALUE] or "
                                               "NAME=VALUE")
            if name.strip().startswith(_PROPERTY_PREFIXES):
                properties[name.strip()] = value.strip()
    return properties


def _open(args, header, problems, stack):
    """What the file is, and its records."""
    if args.format == lab.NAME or (args.format is None and os.path.isdir(args.path)):
        header["result"] = True
        return lab.NAME, lab.records(args.path, header, problems, args)
    file = sys.stdin.buffer if args.path == "-" else stack.enter_context(
        open(args.path, "rb", buffering=_LOOKED_AT))
    beginning = file.peek(_LOOKED_AT)
    kind = args.format or _recognize(args.path, beginning)
    if kind == "trace":
        return kind, _trace(args, header, problems, file)
    source = next(source for source in SOURCES if source.NAME == kind)
    if source is logs:
        header["result"] = _may_hold(file, TAG.encode())
    return kind, source.records(Lines(file, problems), header, problems, args)


def _recognize(path, beginning):
    """What a file is, by its first line that any source knows."""
    for line in beginning.decode("utf-8", "backslashreplace").splitlines():
        if line.startswith('{"type":') and trace_format.FORMAT in line:
            return "trace"
        for source in SOURCES:
            if source.looks_so(line):
                return source.NAME
    raise TraceError(f"{path}: the file does not tell what it is; --format does: "
                     f"{', '.join(FORMATS)}")


def _may_hold(file, word):
    """Whether a file that can be read twice holds a word; of others it is not known."""
    if not file.seekable():
        return True
    start, rest = file.tell(), b""
    while True:
        block = file.read(_LOOKED_AT)
        if not block or word in rest + block:
            file.seek(start)
            return bool(block)
        rest = block[-len(word):]


def _trace(args, header, problems, file):
    """A trace as it is. Its own header counts, but for what the command line says."""
    read, records = trace_format.read_trace(
        args.path, lambda _, line, what: problems.add(line, what), file)
    given = {}
    if args.label is not None:
        given["label"] = args.label
    if args.source is not None:
        given["source"] = args.source
    if args.properties:
        given["properties"] = header["properties"]
    header.update({**read, **given})
    yield from records


def _write(args, header, records, problems):
    """Writes the trace; how many records of each type it has."""
    anonymizer = Anonymizer() if args.anonymize else None
    counts = collections.Counter()
    progress = Progress()
    # The header is complete when there is a record.
    first = next(records, None)
    if first is None:
        return counts
    if header.get("result") and args.properties:
        header["settings"] = header["properties"]
    if anonymizer:
        header = anonymizer.record(header)
    try:
        with trace_format.TraceWriter(args.output, header, args.force) as writer:
            for record in itertools.chain((first,), records):
                writer.write(anonymizer.record(record) if anonymizer else record, strict=False)
                counts[record["type"]] += 1
                if counts.total() % 10000 == 0:
                    progress.show(f"{counts.total()} records")
            if args.strict and problems.count:
                raise TraceError(f"{args.path}: {problems.count} lines could not be read; without "
                                 "--strict the others make a trace")
    finally:
        progress.clear()
        problems.finish()
    return counts


def _summarize(args, name, counts, problems):
    parts = [f"{count} {kind}" for kind, count in sorted(counts.items())]
    unread = f"; {problems.count} lines could not be read" if problems.count else ""
    print(f"{args.path}: read as {name}: {', '.join(parts)}{unread}", file=sys.stderr)
