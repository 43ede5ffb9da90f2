"""corvid-trace sweep: replays traces with every combination of settings."""

import concurrent.futures
import os
import re
import shlex
import sys
import threading
import time

from corvid_trace import measures, sweeping
from corvid_trace.arguments import add_command
from corvid_trace.compare import add_below
from corvid_trace.errors import TraceError, UsageError
from corvid_trace.format import TraceWriter
from corvid_trace.machine import Player
from corvid_trace.output import OutputFile, Progress, refuse_overwriting
from corvid_trace.programs import Programs
from corvid_trace.properties import Properties
from corvid_trace.replaying import Trace

_DEFAULT_FRONT = "energy_mws,below_not_upper_s"
_DEFAULT_BATCH_SIZE = 50
_MOST_ROWS = 1_000_000

_DESCRIPTION = """\
Replays traces with every combination of the values that --set gives, in virtual machines on all
processors, and measures each replay as `corvid-trace compare` does. FOLDER gets a row per replay
(rows.csv, sweep.json), and in sweep.json the front: the combinations that no other beats in one of two
measures without being worse in the other.

A sweep that was interrupted goes on where it was when the same command is given again.
"""

_EXAMPLES = """\
  corvid-trace sweep walk.jsonl --set txpower.rssi.upper=-60:-50:1 --set dbm.lower=3,5,7 -o sweep
  corvid-trace report sweep -o sweep.html
  corvid-trace sweep fleet/*.jsonl --set rssi.lower=-75:-65 -o sweep --jobs-file jobs
  parallel --sshlogin desk1,desk2 --workdir . <jobs && corvid-trace merge sweep -o sweep"""


def add_parser(subparsers):
    parser = add_command(subparsers, "sweep", run, _DESCRIPTION, _EXAMPLES)
    parser.add_argument("traces", metavar="TRACE", nargs="+")
    parser.add_argument("--set", dest="settings", metavar="KEY=VALUES", action="append",
                        required=True, help="values of a property: 3,5,7 or FROM:TO:STEP, or both")
    parser.add_argument("-o", "--output", metavar="FOLDER", required=True,
                        help="rows go there, and what is needed to go on after an interruption")
    parser.add_argument("--force", action="store_true", help="begin anew in FOLDER")
    add_below(parser)
    parser.add_argument("--front", metavar="A,B", default=_DEFAULT_FRONT,
                        help="the two measures of the front (default: %(default)s)")
    parser.add_argument("--jobs", type=int, metavar="N", default=os.cpu_count(),
                        help="replays at a time (default: %(default)s, one per processor)")
    parser.add_argument("--keep-results", action="store_true",
                        help=f"keep each replay's result in FOLDER/{sweeping.RESULTS}")
    parser.add_argument("--jobs-file", metavar="FILE",
                        help="replay nothing: write one command per batch, for GNU parallel or a "
                             "batch system; `corvid-trace merge` joins what they write")
    parser.add_argument("--batch-size", type=int, metavar="N", default=_DEFAULT_BATCH_SIZE,
                        help="replays in each batch of --jobs-file (default: %(default)s)")
    parser.add_argument("--batch", metavar="I/N", help="only the I-th of N batches")


def run(args):
    for name, value in (("--jobs", args.jobs), ("--batch-size", args.batch_size)):
        if value < 1:
            raise UsageError(f"{name} {value}: allowed is a number above 0")
    batch = _batch(args.batch) if args.batch else None
    programs = Programs()
    properties = Properties(programs)
    front = _front(args.front)
    settings = properties.choices_of(args.settings)
    traces = [Trace(path, properties) for path in args.traces]
    plan = sweeping.Plan(args.traces, [trace.digest() for trace in traces], settings, args.below,
                         front)
    if plan.rows > _MOST_ROWS:
        raise UsageError(f"{plan.rows} replays; a sweep has at most {_MOST_ROWS}")
    if args.jobs_file:
        return _write_jobs(args, plan)
    return _Sweep(args, plan, traces, programs, properties).run(batch)


def _front(words):
    front = tuple(words.split(","))
    if len(front) != 2 or front[0] == front[1]:
        raise UsageError(f"--front {words}: allowed is two measures, such as {_DEFAULT_FRONT}")
    for key in front:
        if measures.find(key) is None:
            raise UsageError(f"--front {words}: there is no measure {key}; there are: "
                             f"{', '.join(measures.KEYS)}")
    return front


def _batch(word):
    match = re.fullmatch(r"([1-9]\d{0,6})/([1-9]\d{0,6})", word)
    if not match or int(match[1]) > int(match[2]):
        raise UsageError(f"--batch {word}: allowed is I/N with I from 1 to N, such as 3/12")
    return int(match[1]), int(match[2])


def _write_jobs(args, plan):
    count = -(-plan.rows // args.batch_size)
    build = os.environ.get("CORVID_BUILD")
    with OutputFile(args.jobs_file, args.force) as file:
        for number in range(1, count + 1):
            words = ["env", f"CORVID_BUILD={build}"] if build else []
            words += [sys.argv[0], "sweep", *args.traces]
            for word in args.settings:
                words += ["--set", word]
            words += ["--below", str(args.below), "--front", args.front, "--jobs", "1",
                      "--batch", f"{number}/{count}", "-o", args.output]
            words += ["--keep-results"] if args.keep_results else []
            file.write(shlex.join(words) + "\n")
    return 0


class _Sweep:
    """The replays of a sweep, or of a batch of it."""

    def __init__(self, args, plan, traces, programs, properties):
        self._args = args
        self._plan = plan
        self._traces = traces
        self._programs = programs
        self._properties = properties
        self._player = None
        self._progress = Progress()
        self._done = 0
        self._asked = 0
        self._begun = None
        self._stopped = threading.Event()

    def run(self, batch):
        wanted = self._plan.batch(*batch) if batch else range(self._plan.rows)
        path = sweeping.part_path(self._args.output, batch)
        self._refuse_foreign(path, batch)
        with sweeping.Part(path, self._plan, self._args.force) as part:
            missing = [number for number in wanted if number not in part.rows]
            if missing:
                try:
                    self._player = self._player_or_nothing(part)
                    self._replay(part, missing)
                finally:
                    self._progress.clear()
            rows = part.rows
        failed = sorted(number for number in rows if rows[number].get("error"))
        if not batch:
            sweeping.write_summary(self._args.output, self._plan, rows)
        if failed:
            raise TraceError(f"{path}: {len(failed)} of {len(wanted)} replays failed; the first, "
                             f"{failed[0]}: {rows[failed[0]]['error']}")
        return 0

    def _refuse_foreign(self, path, batch):
        """A sweep that only begins doesn't write over what another one has left in its folder."""
        # Batches share their folder.
        if not batch and not sweeping.is_begun(path):
            for name in (sweeping.TABLE, sweeping.SUMMARY, sweeping.RESULTS):
                refuse_overwriting(os.path.join(self._args.output, name), self._args.force)

    def _player_or_nothing(self, part):
        """A Player; where there can be none, no file of a sweep that never began stays."""
        try:
            return Player(self._programs, self._progress)
        except TraceError:
            part.forget()
            raise

    def _replay(self, part, missing):
        self._asked = len(missing)
        self._begun = time.monotonic()
        self._show()
        executor = concurrent.futures.ThreadPoolExecutor(self._args.jobs)
        futures = [executor.submit(self._row, number) for number in missing]
        try:
            for future in concurrent.futures.as_completed(futures):
                part.add(future.result())
                self._done += 1
                self._show()
        except BaseException:
            self._stopped.set()
            for future in futures:
                future.cancel()
            self._player.stop()
            raise
        finally:
            executor.shutdown()

    def _show(self):
        left = ""
        if self._done:
            seconds = (time.monotonic() - self._begun) / self._done * (self._asked - self._done)
            left = f", {_duration(seconds)} left"
        width = 20
        bar = "#" * (width * self._done // self._asked)
        self._progress.show(f"[{bar:<{width}}] {self._done} of {self._asked} replays{left}")

    def _row(self, number):
        """Replays one row; what it measures, or why it failed."""
        place, changes = self._plan.row(number)
        trace = self._traces[place]
        row = {"id": number, "trace": trace.path, "settings": changes,
               "measures": dict.fromkeys(measures.KEYS), "result": None}
        try:
            header, records = trace.play(self._player, changes, "corvid-trace sweep")
        except TraceError as error:
            if self._stopped.is_set():
                raise
            return {**row, "error": str(error)}
        row["measures"] = measures.measure(header, records, self._plan.below)
        if self._args.keep_results:
            row["result"] = self._keep(number, header, records)
        return row

    def _keep(self, number, header, records):
        digits = len(str(self._plan.rows - 1))
        name = os.path.join(sweeping.RESULTS, f"{number:0{max(digits, 4)}}.jsonl")
        path = os.path.join(self._args.output, name)
        os.makedirs(os.path.dirname(path), exist_ok=True)
        with TraceWriter(path, header, force=True) as writer:
            for record in records:
                writer.write(record)
        return name


def _duration(seconds):
    minutes, seconds = divmod(round(seconds), 60)
    hours, minutes = divmod(minutes, 60)
    if hours:
        return f"{hours} h {minutes:02} min"
    return f"{minutes} min {seconds:02} s" if minutes else f"{seconds} s"
