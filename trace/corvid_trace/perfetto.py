"""corvid-trace perfetto: a result as counters, slices and instants of the trace-event format."""

import json

from corvid_trace.arguments import add_command, add_output_options
from corvid_trace.output import OutputFile, refuse_overwriting
from corvid_trace.results import load
from corvid_trace.timeline import is_refused

EXAMPLES = """\
  corvid-trace perfetto walk.result -o walk.json
  corvid-trace perfetto now.result upper-60.result -o both.json"""

_THREADS = ("step", "channel", "P2P channel", "link")
_INSTANTS = ("power command", "command", "event", "callback", "atom", "netlink", "daemon", "note")


def add_parser(subparsers):
    parser = add_command(
        subparsers, "perfetto", run,
        "Makes a file that the platform's trace viewer opens: signal and power as counters, steps, "
        "channels and links as slices, events and commands as instants. Its times are those of the "
        "result: CLOCK_MONOTONIC of the headset that recorded the walk, so that it lines up with a "
        "system trace on that clock.", EXAMPLES)
    add_output_options(parser, "the trace events", "TRACE.json")
    parser.add_argument("results", nargs="+", metavar="RESULT")


def run(args):
    refuse_overwriting(args.output, args.force or args.output == "-")
    results = load(args.results)
    with OutputFile(args.output, args.force) as file:
        file.write('{"displayTimeUnit":"ms","traceEvents":[')
        separator = "\n"
        for process, result in enumerate(results, start=1):
            for event in events(result.timeline, result.name, process):
                file.write(separator + json.dumps(event, ensure_ascii=False,
                                                  separators=(",", ":")))
                separator = ",\n"
        file.write("\n]}\n")
    return 0


def events(timeline, name, process):
    """The events of one result, a process of its own in the viewer."""
    yield from _names(name, process)
    for counter, values in _counters(timeline).items():
        for t, value in values:
            yield {"ph": "C", "name": counter, "pid": process, "ts": _us(t),
                   "args": {"dBm": value}}
    for thread, slices in zip(_THREADS, _slices(timeline)):
        for since, to, words, fields in slices:
            yield {"ph": "X", "name": words, "pid": process, "tid": _thread(thread),
                   "ts": _us(since), "dur": _us(to) - _us(since), "args": fields}
    for thread, t, words, fields in _instants(timeline):
        yield {"ph": "i", "s": "t", "name": words, "pid": process, "tid": _thread(thread),
               "ts": _us(t), "args": fields}


def _us(t):
    return round(t * 1e6)


def _thread(name):
    return (_THREADS + _INSTANTS).index(name) + 1


def _names(name, process):
    yield {"ph": "M", "name": "process_name", "pid": process, "args": {"name": f"Wi-Fi: {name}"}}
    for thread in _THREADS + _INSTANTS:
        number = _thread(thread)
        yield {"ph": "M", "name": "thread_name", "pid": process, "tid": number,
               "args": {"name": thread}}
        yield {"ph": "M", "name": "thread_sort_index", "pid": process, "tid": number,
               "args": {"sort_index": number}}


def _counters(timeline):
    """A counter has no gaps in the viewer: without a link the signal stays where it was."""
    counters = {
        "signal": [(signal.t, signal.rssi) for signal in timeline.signal
                   if signal.rssi is not None],
        "power": [(power.t, power.dbm) for power in timeline.power if power.accepted],
        "P2P power": [(power.t, power.dbm) for power in timeline.group_power if power.accepted],
    }
    for chain in (0, 1):
        counters[f"limit of chain {chain} as sent"] = [
            (t, dbm) for t, of, dbm, accepted in timeline.chains if accepted and of == chain]
    return counters


def _slices(timeline):
    """Slices for each of _THREADS: (from, to, name, fields)."""
    yield list(_stretches([(power.t, power) for power in timeline.power if power.accepted],
                          timeline.end, _step))
    yield list(_stretches([(signal.t, (signal.frequency, signal.width) if signal.connected
                            else None) for signal in timeline.signal], timeline.end, _channel))
    yield list(_stretches([(t, (frequency, width)) for t, frequency, width in timeline.group],
                          timeline.end, _channel))
    yield list(_stretches([(signal.t, signal.connected) for signal in timeline.signal],
                          timeline.end, lambda linked: ("linked", {}) if linked else None))


def _step(power):
    words = f"{power.step}, {power.dbm} dBm" if power.step else f"{power.dbm} dBm"
    return words, {"dBm": power.dbm}


def _channel(channel):
    if channel is None or channel[0] is None:
        return None
    frequency, width = channel
    fields = {"MHz": frequency} if width is None else {"MHz": frequency, "width": width}
    return f"{frequency} MHz", fields


def _stretches(changes, end, describe):
    """(from, to, name, fields) of each stretch of one description; none where that is None."""
    since, current = None, None
    for t, value in changes:
        described = describe(value)
        if described == current:
            continue
        if current is not None:
            yield (since, t, *current)
        since, current = t, described
    if current is not None:
        yield (since, end, *current)


def _instants(timeline):
    for t, interface, text, reply in timeline.commands:
        thread = "power command" if text.startswith("DRIVER SET_TXPOWER") else "command"
        words = f"{text} (refused)" if is_refused(reply) else text
        yield thread, t, words, {"interface": interface, "reply": reply}
    for t, kind, text in timeline.events:
        yield kind, t, text, {}
