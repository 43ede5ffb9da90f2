"""corvid-trace replay: lets the daemon live a trace, and writes down what it does."""

import sys

from corvid_trace.arguments import add_command, add_output_options
from corvid_trace.format import TraceWriter
from corvid_trace.headset import ClockPlayer
from corvid_trace.lab import LabPlayer
from corvid_trace.machine import Player
from corvid_trace.output import Progress, check_output
from corvid_trace.programs import Programs
from corvid_trace.properties import Properties
from corvid_trace.replaying import Trace

_DESCRIPTION = """\
Feeds a trace to the unmodified daemon on the simulated headset, and writes what the daemon does: the
trace's lines, and with them its commands, power decisions, atoms and log, on the trace's clock.

A replay runs in a virtual machine whose clock jumps over idle time, so that an hour takes seconds, and
the same trace gives the same result. The daemon's properties are the trace's own, and what --set says.
"""

_EXAMPLES = """\
  corvid-trace replay walk.jsonl -o result.jsonl
  corvid-trace replay walk.jsonl --set txpower.rssi.upper=-57 --set dbm.lower=7 -o warm.jsonl
  corvid-trace replay walk.jsonl --real-time -o result.jsonl
  corvid-trace replay walk.jsonl --on lab -o result.jsonl"""


def add_parser(subparsers):
    parser = add_command(subparsers, "replay", run, _DESCRIPTION, _EXAMPLES)
    parser.add_argument("trace", metavar="TRACE", help="a trace, or a result to be replayed")
    parser.add_argument("--set", dest="settings", metavar="KEY=VALUE", action="append", default=[],
                        help="a property of the daemon, by its name or from any of its dots on")
    where = parser.add_mutually_exclusive_group()
    where.add_argument("--real-time", action="store_true",
                       help="by the clock, without a virtual machine: takes as long as the trace")
    where.add_argument("--on", choices=("headset", "lab"), default="headset",
                       help="headset: the simulated one (the default); lab: a real kernel's Wi-Fi "
                            "stack, supplicant and access point")
    parser.add_argument("--label", metavar="TEXT", help="the result's name in tables and pictures")
    add_output_options(parser, "the result", "RESULT")


def run(args):
    check_output(args.output, args.force)
    programs = Programs()
    properties = Properties(programs)
    changes = properties.settings(args.settings)
    trace = Trace(args.trace, properties)
    progress = Progress()
    try:
        player = _player(args, programs, progress)
        progress.show(f"replaying {trace.duration:.0f} s")
        header, records = trace.play(player, changes, "corvid-trace replay", args.label)
    finally:
        progress.clear()
    with TraceWriter(args.output, header, args.force) as writer:
        for record in records:
            writer.write(record)
    if not header["station_power"]:
        print("corvid-trace: txpower.enable.sta is not set: the daemon has left the station's "
              "power alone (--set txpower.enable.sta=true)", file=sys.stderr)
    if args.on == "lab" and player.left_away:
        print(f"corvid-trace: the lab has no word for {len(player.left_away)} lines of the walk; the "
              f"first: {player.left_away[0]}", file=sys.stderr)
    return 0


def _player(args, programs, progress):
    if args.on == "lab":
        return LabPlayer(programs)
    return (ClockPlayer if args.real_time else Player)(programs, progress)
