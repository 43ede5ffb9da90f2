"""What the commands' options have in common."""

import argparse
import textwrap

_STATUS = ("exit status: 0 done, 1 something is wrong with a file or what it says, 2 wrong usage,\n"
           "130 interrupted by Ctrl-C or SIGTERM")


def add_command(subparsers, name, run, description, examples):
    """The parser of a command, whose run(args) returns the exit status. `examples` is for --help."""
    if "\n" not in description:
        description = textwrap.fill(description, 80)
    parser = subparsers.add_parser(
        name, description=description, epilog=f"examples:\n{examples}\n\n{_STATUS}",
        formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.set_defaults(run=run)
    return parser


def add_output_options(parser, what, metavar="FILE"):
    """-o/--output and --force, as args.output and args.force."""
    parser.add_argument("-o", "--output", metavar=metavar, required=True,
                        help=f"{what} goes here; - is standard output")
    parser.add_argument("--force", action="store_true", help=f"write over {metavar}")
