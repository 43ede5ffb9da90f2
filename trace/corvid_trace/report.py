"""corvid-trace report: results, or a sweep, drawn in one HTML file that needs no network."""

import html
import json
import os

from corvid_trace import compare, measures, sweep_page
from corvid_trace.arguments import add_command, add_output_options
from corvid_trace.errors import TraceError, UsageError
from corvid_trace.output import OutputFile, check_output
from corvid_trace.page_data import PageData
from corvid_trace.results import differing_settings, load, short_property

EXAMPLES = """\
  corvid-trace report walk.result -o walk.html
  corvid-trace report now.result upper-60.result upper-50.result -o upper.html
  corvid-trace report sweep.json -o sweep.html"""

# Debian's libjs-dygraphs.
LIBRARY = "/usr/share/javascript/dygraphs"
_PAGE = os.path.join(os.path.dirname(os.path.abspath(__file__)), "page")


def add_parser(subparsers):
    parser = add_command(
        subparsers, "report", run,
        "Draws results above each other on one time axis: signal and thresholds, power, channels, "
        "events and commands, and the table of `compare`. Of a sweep's rows (JSON) it draws heat "
        "map and front, with the runs behind them. The page is one file and needs no network.",
        EXAMPLES)
    add_output_options(parser, "the page", "PAGE")
    compare.add_below(parser, "; a sweep has its own")
    parser.add_argument("--runs", type=int, metavar="N", default=sweep_page.DEFAULT_RUNS,
                        help="of a sweep, put at most this many runs into the page, those "
                             "of the front first (default: %(default)s)")
    parser.add_argument("--title", help="the page's title (default: the names of the results)")
    parser.add_argument("results", nargs="+", metavar="RESULT")


def run(args):
    if args.runs < 0:
        raise UsageError(f"--runs is {args.runs}; allowed is a number from 0")
    check_output(args.output, args.force or args.output == "-")
    sweep = sweep_page.read(args.results[0])
    if sweep and len(args.results) > 1:
        raise UsageError("a sweep is drawn alone, without other files")
    if sweep:
        page = sweep_page.content(sweep, args.runs)
        title = args.title or "Sweep: " + ", ".join(sweep.varied_names)
    else:
        page = content(load(args.results), args.below)
        title = args.title or ", ".join(run["name"] for run in page["data"]["runs"][:4])
    with OutputFile(args.output, args.force) as file:
        file.write(html_of(title, page))
    return 0


def content(results, below):
    """The page's data and its static parts, of results."""
    differing = differing_settings(results)
    values = [measures.measure_timeline(result.timeline, below) for result in results]
    data = PageData()
    for index, result in enumerate(results):
        data.add(result, values[index], {name: of[index] for name, of in differing.items()})
    return {"data": data.as_object(), "top": "",
            "bottom": _table(results, values, differing, below)}


def html_of(title, page):
    """The whole page. `page` has `data`, and the HTML `top` and `bottom` of the runs."""
    parts = {
        "title": html.escape(title),
        "library_css": _read(os.path.join(LIBRARY, "dygraph.min.css")),
        "css": _read(os.path.join(_PAGE, "report.css")),
        "library": _read(os.path.join(LIBRARY, "dygraph.min.js")),
        "script": _read(os.path.join(_PAGE, "report.js")),
        "sweep_script": _read(os.path.join(_PAGE, "sweep.js")) if page["top"] else "",
        "data": script_json(page["data"]),
        "top": page["top"],
        "bottom": page["bottom"],
    }
    # In one pass: what a part holds is not looked at.
    template = _read(os.path.join(_PAGE, "report.html")).split("@@")
    return "".join(parts[piece] if index % 2 else piece for index, piece in enumerate(template))


def script_json(value):
    """JSON that can stand in a <script>: nothing in it ends the element."""
    text = json.dumps(value, ensure_ascii=False, separators=(",", ":"))
    return (text.replace("<", "\\u003c").replace("\u2028", "\\u2028")
            .replace("\u2029", "\\u2029"))


def _read(path):
    try:
        with open(path, encoding="utf-8") as file:
            text = file.read()
    except FileNotFoundError:
        if path.startswith(LIBRARY):
            raise TraceError(f"{path} is missing; it comes with Debian's package "
                             "libjs-dygraphs") from None
        raise
    # A browser's tools would look for the maps on the network.
    return "\n".join(line for line in text.splitlines() if "sourceMappingURL=" not in line)


def _table(results, values, differing, below):
    """The table of `compare` and the settings that differ, as HTML."""
    heads = "".join(f'<th scope="col">{html.escape(result.name)}</th>' for result in results)
    rows = []
    for name, of in differing.items():
        cells = "".join(f"<td>{html.escape('default' if value is None else value)}</td>"
                        for value in of)
        rows.append(f'<tr class="setting"><th scope="row">{html.escape(short_property(name))}</th>'
                    f"<td></td>{cells}</tr>")
    differences = [compare.differences(values[0], of) for of in values]
    for measure in compare.shown_measures(values):
        cells = "".join(_cell(measure, of[measure.key], difference[measure.key])
                        for of, difference in zip(values, differences))
        title = html.escape(measure.title.format(below=below))
        rows.append(f'<tr><th scope="row">{title}</th><td class="unit">{measure.unit}</td>'
                    f"{cells}</tr>")
    return ('<section id="compare"><h2>Measures</h2><div class="wide"><table class="measures">'
            f'<thead><tr><th scope="col">measure</th><th></th>{heads}</tr></thead>'
            f'<tbody>{"".join(rows)}</tbody></table></div></section>')


def _cell(measure, value, difference):
    verdict = {1: "better", -1: "worse"}.get(compare.verdict(measure, difference), "same")
    signed = compare.signed(difference)
    note = f' <span class="{verdict}">{signed}</span>' if signed else ""
    return f"<td>{compare.number(value)}{note}</td>"
