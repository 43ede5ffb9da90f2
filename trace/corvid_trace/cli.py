"""The command line: finds the module of a command and runs it."""

import argparse
import importlib
import os
import signal
import sys

from corvid_trace.errors import TraceError, UsageError

# Each command's module has add_parser(subparsers), which names its run(args) by
# set_defaults(run=...). Only the module that is asked for is loaded: some need large libraries.
COMMANDS = {
    "import": ("import_", "makes a trace of logs, polls, tables and the simulator's records"),
    "replay": ("replay", "lets the daemon live a trace, and writes down what it does"),
    "compare": ("compare", "says how results differ: power, time on each step, changes"),
    "sweep": ("sweep", "replays traces with every combination of settings"),
    "merge": ("merge", "joins the rows that parts of a sweep have written"),
    "report": ("report", "draws results in one HTML file"),
    "perfetto": ("perfetto", "makes counters and slices for the platform's trace viewer"),
    "plot": ("plot", "draws a result in the terminal"),
}

# Exit statuses; scripts rely on them.
SUCCESS = 0
TROUBLE = 1
USAGE = 2
INTERRUPTED = 130

EPILOG = """\
exit status: 0 done, 1 something is wrong with a file or with what it says, 2 wrong usage,
130 interrupted by Ctrl-C or SIGTERM

'corvid-trace COMMAND --help' has the options of a command, with examples.
docs/trace-format.md describes traces and results.
"""


class Parser(argparse.ArgumentParser):
    """Ends with one line and where to read on, as the other tools do."""

    def error(self, message):
        print(f"{self.prog}: {message}\nTry: {self.prog} --help", file=sys.stderr)
        sys.exit(USAGE)


def _parser(asked):
    """The parser of all commands; only the one that is `asked` knows its own options."""
    parser = Parser(
        prog="corvid-trace", epilog=EPILOG, formatter_class=argparse.RawDescriptionHelpFormatter,
        description="Works on recorded walks of a headset: a walk is recorded once, and settings "
                    "of the daemon are tried on it at the desk.")
    subparsers = parser.add_subparsers(metavar="COMMAND", required=True, parser_class=Parser)
    for name, (module, summary) in COMMANDS.items():
        if name == asked:
            importlib.import_module(f"corvid_trace.{module}").add_parser(subparsers)
        else:
            subparsers.add_parser(name, help=summary)
    return parser


def main(words):
    """Runs the command line `words`; the exit status."""
    asked = next((word for word in words if not word.startswith("-")), None)
    args = _parser(asked).parse_args(words)
    # As Ctrl-C: what a command has started ends with it.
    signal.signal(signal.SIGTERM, signal.default_int_handler)
    try:
        status = args.run(args)
        sys.stdout.flush()
        return status
    except UsageError as error:
        print(f"corvid-trace {asked}: {error}\nTry: corvid-trace {asked} --help", file=sys.stderr)
        return USAGE
    except TraceError as error:
        print(f"corvid-trace: {error}", file=sys.stderr)
    except BrokenPipeError:
        # The reader has seen enough. Nothing may be written at the end either.
        os.dup2(os.open(os.devnull, os.O_WRONLY), sys.stdout.fileno())
    except OSError as error:
        where = f"{error.filename}: " if error.filename else ""
        print(f"corvid-trace: {where}{error.strerror or error}", file=sys.stderr)
    except KeyboardInterrupt:
        print("corvid-trace: interrupted", file=sys.stderr)
        return INTERRUPTED
    return TROUBLE
