"""corvid-trace merge: joins the rows that parts of a sweep have written."""

import os

from corvid_trace import sweeping
from corvid_trace.arguments import add_command
from corvid_trace.errors import TraceError
from corvid_trace.output import refuse_overwriting

_DESCRIPTION = """\
Joins what the commands of a sweep's --jobs-file have written, on one machine or many, into the rows
(rows.csv, sweep.json) that the whole sweep would have written. Says which rows are missing.
"""

_EXAMPLES = """\
  corvid-trace merge sweep -o sweep
  corvid-trace merge desk1/sweep desk2/sweep -o sweep"""

# More numbers than that nobody reads.
_MOST_SHOWN = 10


def add_parser(subparsers):
    parser = add_command(subparsers, "merge", run, _DESCRIPTION, _EXAMPLES)
    parser.add_argument("parts", metavar="PART", nargs="+",
                        help="a file that a batch has written, or a folder of them")
    parser.add_argument("-o", "--output", metavar="FOLDER", required=True,
                        help="gets rows.csv and sweep.json")
    parser.add_argument("--force", action="store_true", help="write over them")
    parser.add_argument("--partial", action="store_true", help="join them though rows are missing")


def run(args):
    for name in (sweeping.SUMMARY, sweeping.TABLE):
        refuse_overwriting(os.path.join(args.output, name), args.force)
    paths = [path for part in args.parts for path in sweeping.parts_below(part)]
    if not paths:
        raise TraceError(f"{args.parts[0]}: there is no part of a sweep")
    plan, rows = _read_all(paths, args.output)
    missing = [number for number in range(plan.rows)
               if number not in rows or rows[number].get("error")]
    if missing and not args.partial:
        raise TraceError(f"{len(missing)} of {plan.rows} rows are missing or failed: "
                         f"{_numbers(missing)}; run their batches again, or --partial goes without")
    os.makedirs(args.output, exist_ok=True)
    sweeping.write_summary(args.output, plan, rows, args.force)
    return 0


def _read_all(paths, output):
    """(plan, rows) of all parts, with the results' paths as seen from `output`."""
    plan, rows = None, {}
    for path in paths:
        own, found, _ = sweeping.read_part(path)
        if plan is None:
            plan = own
        elif own.fingerprint() != plan.fingerprint():
            raise TraceError(f"{path}: this is a part of another sweep than {paths[0]}")
        for number, row in found.items():
            if not 0 <= number < plan.rows:
                raise TraceError(f"{path}: there is no row {number} in a sweep of {plan.rows}")
            if row.get("result"):
                at = os.path.join(os.path.dirname(path), row["result"])
                row["result"] = os.path.relpath(at, output)
            # Another part may have succeeded with what this one failed with.
            if number not in rows or rows[number].get("error"):
                rows[number] = {**row, "trace": plan.traces[number % len(plan.traces)]}
    return plan, rows


def _numbers(numbers):
    shown = ", ".join(map(str, numbers[:_MOST_SHOWN]))
    return shown + (", ..." if len(numbers) > _MOST_SHOWN else "")
