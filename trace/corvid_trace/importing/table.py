"""A table with a header line: time_s,rssi_dbm and, if there is more than one channel, freq_mhz.

Every row has as many cells as the header line; nothing is guessed for one that has not.
"""

import csv
import math

from corvid_trace.errors import FormatError
from corvid_trace.importing.clock import FIRST_EPOCH
from corvid_trace.importing.lines import shortened
from corvid_trace.importing.link import FREQUENCIES_MHZ, RSSI_DBM, WIDTHS, Link

NAME = "csv"
NEEDED = ("time_s", "rssi_dbm")
OPTIONAL = ("freq_mhz", "width_mhz")
DEFAULT_FREQUENCY_MHZ = 5180


def _cells(line, delimiter):
    try:
        return [cell.strip() for cell in next(csv.reader([line], delimiter=delimiter), [])]
    except csv.Error as error:
        raise ValueError(f"this is no row of a table: {error}") from error


def _columns(line):
    """(names, delimiter) of a header line."""
    line = line.removeprefix("\ufeff")
    delimiter = max(",;\t", key=line.count)
    return [name.lower() for name in _cells(line, delimiter)], delimiter


def looks_so(line):
    try:
        names, _ = _columns(line)
    except ValueError:
        return False
    return all(name in names for name in NEEDED)


def records(lines, header, problems, options):
    """See the package. The first row connects; a row without rssi_dbm is a time without a link."""
    lines = iter(lines)
    number, first = next(lines, (1, ""))
    try:
        names, delimiter = _columns(first)
    except ValueError as error:
        raise FormatError(options.path, number, str(error)) from error
    missing = [name for name in NEEDED if name not in names]
    if missing:
        raise FormatError(options.path, number, f"the header line lacks {' and '.join(missing)}; "
                          f"allowed are {', '.join(NEEDED + OPTIONAL)}")
    for name in names:
        if name not in NEEDED + OPTIONAL:
            problems.add(number, f"the column {shortened(name)} is not read; allowed are "
                                 f"{', '.join(NEEDED + OPTIONAL)}")
    for name in sorted({name for name in names if names.count(name) > 1}):
        problems.add(number, f"the column {shortened(name)} is there more than once; the first counts")
    if "freq_mhz" not in names:
        problems.tell(f"there is no column freq_mhz; {DEFAULT_FREQUENCY_MHZ} MHz is taken")
    header["interfaces"] = {"sta": options.sta_interface}
    link = Link(options.sta_interface)
    start = last = None
    for number, text in lines:
        if not text.strip():
            continue
        try:
            t = _row(_by_name(names, _cells(text, delimiter)), link)
        except ValueError as error:
            problems.add(number, str(error))
            continue
        if last is not None and t < last:
            problems.add(number, f"time_s is {t}, after a row with {last}; times never decrease")
            continue
        if start is None:
            start = t if t >= FIRST_EPOCH else 0.0
            header["start_wall"] = start or None
        last = t
        yield link.sample(round(t - start, 6), always=True)


def _by_name(names, cells):
    if len(cells) != len(names):
        raise ValueError(f"the row has {len(cells)} cells; the header line has {len(names)}")
    # Of a name that is there twice the first cell stays.
    return dict(zip(reversed(names), reversed(cells)))


def _number(row, name):
    text = row[name]
    try:
        value = float(text)
    except ValueError:
        value = math.nan
    if not math.isfinite(value):
        raise ValueError(f"{name} is {shortened(text)}; allowed is a number")
    return value


def _row(row, link):
    """Tells the link what a row says; its time. Raises ValueError before anything is changed."""
    t = _number(row, "time_s")
    if not row["rssi_dbm"]:
        link.disconnect()
        return t
    rssi = _number(row, "rssi_dbm")
    frequency = _number(row, "freq_mhz") if "freq_mhz" in row else DEFAULT_FREQUENCY_MHZ
    width = row.get("width_mhz") or None
    if not RSSI_DBM[0] <= rssi <= RSSI_DBM[-1]:
        raise ValueError(f"rssi_dbm is {rssi:g}; allowed is {RSSI_DBM[0]} to {RSSI_DBM[-1]}")
    if frequency not in FREQUENCIES_MHZ:
        raise ValueError(f"freq_mhz is {frequency:g}; allowed is a whole number from "
                         f"{FREQUENCIES_MHZ[0]} to {FREQUENCIES_MHZ[-1]}")
    if width is not None and width not in WIDTHS:
        raise ValueError(f"width_mhz is {shortened(width)}; allowed is {', '.join(WIDTHS)}")
    link.poll(int(frequency), round(rssi), WIDTHS.get(width))
    return t
