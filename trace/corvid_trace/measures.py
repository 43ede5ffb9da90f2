"""What a result costs and what it achieves, in numbers that can be compared between settings.

Times, power and energy count only while the station has a link; commands always. docs/tuning.md
explains each measure.
"""

import collections

from corvid_trace.timeline import STEPS, Timeline, is_refused

Measure = collections.namedtuple("Measure", "key title unit better")

# In the order in which they are shown. `better` is "low", "high" or None.
MEASURES = (
    Measure("linked_s", "time with a link", "s", None),
    Measure("energy_mws", "energy proxy", "mW·s", "low"),
    Measure("mean_mw", "mean power", "mW", "low"),
    Measure("mean_dbm", "mean power", "dBm", "low"),
    Measure("p5_dbm", "power, 5th percentile", "dBm", None),
    Measure("p50_dbm", "power, median", "dBm", None),
    Measure("p95_dbm", "power, 95th percentile", "dBm", None),
    Measure("p5_mw", "power, 5th percentile", "mW", None),
    Measure("p50_mw", "power, median", "mW", None),
    Measure("p95_mw", "power, 95th percentile", "mW", None),
    Measure("time_upper_s", "time on the upper step", "s", "low"),
    Measure("time_middle_s", "time on the middle step", "s", None),
    Measure("time_lower_s", "time on the lower step", "s", "high"),
    Measure("time_other_s", "time on no known step", "s", None),
    Measure("power_commands", "power commands", "", "low"),
    Measure("changes", "changes of the power", "", "low"),
    Measure("changes_per_min", "changes of the power", "1/min", "low"),
    Measure("reversals", "reversals within 30 s", "", "low"),
    Measure("below_s", "time below {below} dBm", "s", None),
    Measure("below_upper_s", "below {below} dBm, upper step", "s", None),
    Measure("below_middle_s", "below {below} dBm, middle step", "s", "low"),
    Measure("below_lower_s", "below {below} dBm, lower step", "s", "low"),
    Measure("below_other_s", "below {below} dBm, no known step", "s", "low"),
    Measure("below_not_upper_s", "below {below} dBm, not upper step", "s", "low"),
    Measure("falls", "falls below {below} dBm", "", None),
    Measure("falls_missed", "falls without the upper step", "", "low"),
    Measure("to_upper_mean_s", "from a fall to the upper step, mean", "s", "low"),
    Measure("to_upper_max_s", "from a fall to the upper step, longest", "s", "low"),
    Measure("chain_commands", "chain limit commands", "", "low"),
    Measure("group_power_commands", "P2P power commands", "", "low"),
    Measure("failed_commands", "commands that failed", "", "low"),
)
KEYS = tuple(measure.key for measure in MEASURES)
_BY_KEY = {measure.key: measure for measure in MEASURES}

DEFAULT_BELOW = -75
REVERSAL_S = 30.0


def find(key):
    """The Measure with this key, or None."""
    return _BY_KEY.get(key)


def measure(header, records, below=DEFAULT_BELOW):
    """Every measure of a result by its key; None where the result does not say it."""
    return measure_timeline(Timeline(header, records), below)


def measure_timeline(timeline, below=DEFAULT_BELOW):
    """As measure(), of a Timeline. A link with a signal under `below`, dBm, counts as weak."""
    segments = list(timeline.segments())
    linked = sum(to - since for since, to, _, _ in segments)
    refused = sum(is_refused(reply) for _, _, _, reply in timeline.commands)
    values = dict.fromkeys(KEYS)
    values.update(linked_s=linked, power_commands=len(timeline.power),
                  chain_commands=len(timeline.chains),
                  group_power_commands=len(timeline.group_power), failed_commands=refused)
    values.update(_of_power(segments))
    values.update(_of_changes(timeline.power, linked))
    values.update(_of_weak_signal(segments, below))
    values.update(_of_falls(segments, below))
    return {key: round(value, 6) if isinstance(value, float) else value
            for key, value in values.items()}


def milliwatts(dbm):
    # A property can be any number, and the daemon sends it: no more than a float holds, and its
    # products with any time.
    return 10.0 ** min(dbm / 10, 200)


def _step(power):
    return power.step if power is not None and power.step in STEPS else "other"


def _of_power(segments):
    """Time on each step, energy, mean and percentiles, weighted with the time."""
    on_step = dict.fromkeys((*STEPS, "other"), 0.0)
    on_dbm = collections.Counter()
    for since, to, _, power in segments:
        on_step[_step(power)] += to - since
        if power is not None:
            on_dbm[power.dbm] += to - since
    values = {f"time_{step}_s": time for step, time in on_step.items()}
    known = sum(on_dbm.values())
    if known:
        energy = sum(milliwatts(dbm) * time for dbm, time in on_dbm.items())
        values.update(energy_mws=energy, mean_mw=energy / known,
                      mean_dbm=sum(dbm * time for dbm, time in on_dbm.items()) / known)
        for percent in (5, 50, 95):
            dbm = _percentile(on_dbm, known * percent / 100)
            values[f"p{percent}_dbm"] = dbm
            values[f"p{percent}_mw"] = milliwatts(dbm)
    return values


def _percentile(on_dbm, share):
    """The power that is not exceeded for `share` seconds."""
    passed = 0.0
    for dbm in sorted(on_dbm):
        passed += on_dbm[dbm]
        if passed >= share - 1e-9:
            return dbm
    return max(on_dbm)


def _of_changes(powers, linked):
    changes = []  # (t, difference)
    current = None
    for power in powers:
        if not power.accepted:
            continue
        if current is not None and power.dbm != current:
            changes.append((power.t, power.dbm - current))
        current = power.dbm
    reversals = sum((last > 0) != (now > 0) and t - before <= REVERSAL_S
                    for (before, last), (t, now) in zip(changes, changes[1:]))
    return {"changes": len(changes), "reversals": reversals,
            "changes_per_min": len(changes) * 60 / linked if linked else None}


def _is_weak(signal, below):
    return signal.rssi is not None and signal.rssi < below


def _of_weak_signal(segments, below):
    on_step = dict.fromkeys((*STEPS, "other"), 0.0)
    for since, to, signal, power in segments:
        if _is_weak(signal, below):
            on_step[_step(power)] += to - since
    values = {f"below_{step}_s": time for step, time in on_step.items()}
    values["below_s"] = sum(on_step.values())
    values["below_not_upper_s"] = values["below_s"] - on_step["upper"]
    return values


def _of_falls(segments, below):
    """How long the upper step takes when the signal falls below `below`.

    A fall without the upper step until the signal is back, or the link gone, is missed; it has no
    time and counts apart. A link that begins with a weak signal is no fall.
    """
    delays = []
    falls = 0
    strong = False  # in this link, and not yet fallen
    fell = None  # when, while no upper step has followed
    ended = None
    for since, to, signal, power in segments:
        if ended is not None and since > ended:
            strong, fell = False, None  # the link was lost in between
        ended = to
        if not _is_weak(signal, below):
            strong, fell = strong or signal.rssi is not None, None
            continue
        if strong:
            strong, fell = False, since
            falls += 1
        if fell is not None and _step(power) == "upper":
            delays.append(since - fell)
            fell = None
    return {"falls": falls, "falls_missed": falls - len(delays),
            "to_upper_mean_s": sum(delays) / len(delays) if delays else None,
            "to_upper_max_s": max(delays) if delays else None}


def pareto(rows, first, second):
    """The rows that no other row beats in one of two measures without losing in the other.

    `rows` have their measures by key in row["measures"]; rows without one of the two are left out.
    The front is in the order of the first measure.
    """
    better = [(key, -1 if _BY_KEY[key].better == "high" else 1) for key in (first, second)]
    points = []
    for row in rows:
        values = [row["measures"].get(key) for key, _ in better]
        if None not in values:
            points.append((tuple(value * sign for value, (_, sign) in zip(values, better)), row))
    points.sort(key=lambda point: point[0])
    front = []
    best = None
    for position, row in points:
        # Equal points are all on the front.
        if best is None or position[1] < best[1] or position == best:
            front.append(row)
            best = position
    return front
