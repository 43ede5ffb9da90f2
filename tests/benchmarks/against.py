#!/usr/bin/env python3
"""against.py FOLDER ROUNDS

Compares the tables of two builds, which ran in turns: FOLDER/before.N and FOLDER/after.N for each
round N. Prints a line per row, and ends with status 1 if a row is worse beyond the noise or could not
be measured on one of the sides, with 2 if there is no row.

A round gives each row a quotient, ratio after by ratio before. If nothing had changed, it would be
above 1 as often as below. A row is marked when so many rounds agree that chance would let them in
less than one row of a hundred (the sign test, on both sides): all of 8, or 11 of 12. Rounds in which
the ratios are equal don't count.
"""

import math
import re
import statistics
import sys

CHANCE = 0.01
# name, ratio or "-", target or "-"
ROW = re.compile(r"^(\S.*?)\s+(\d+\.\d{3}|-)\s+(\d+\.\d{2}|-)(?:\s|$)")


def ratios(text):
    """{name: ratio} of a report's tables; None for a row that could not be measured."""
    found = {}
    for line in text.splitlines():
        match = ROW.match(line)
        if match:
            found[match[1]] = None if match[2] == "-" else float(match[2])
    return found


def quotient(before, after):
    if before == after:
        return 1.0
    return after / before if before else math.inf


def chance(agreeing, disagreeing):
    """How likely a fair coin shows one side that seldom, whichever side it is."""
    rounds = agreeing + disagreeing
    fewer = min(agreeing, disagreeing)
    return min(1.0, 2 * sum(math.comb(rounds, n) for n in range(fewer + 1)) / 2 ** rounds)


def verdict(quotients):
    """"better", "worse", or "" for what may be noise. Smaller ratios are better."""
    above = sum(value > 1 for value in quotients)
    below = sum(value < 1 for value in quotients)
    if chance(above, below) >= CHANCE:
        return ""
    return "worse" if above > below else "better"


def quartiles(values):
    if len(values) == 1:
        return values[0], values[0]
    if math.inf in values:
        return min(values), max(values)
    lower, _, upper = statistics.quantiles(values, n=4, method="inclusive")
    return lower, upper


class Row:
    """One row of both sides in all rounds."""

    def __init__(self, name, before, after):
        self.name = name
        self.missing = ""
        for side, tables in (("before", before), ("after", after)):
            if not any(name in table for table in tables):
                self.missing = "new" if side == "before" else "gone"
            elif any(table.get(name) is None for table in tables):
                self.missing = self.missing or f"not measured {side}"
        pairs = [(old.get(name), new.get(name)) for old, new in zip(before, after)]
        self.before = [old for old, _ in pairs if old is not None]
        self.after = [new for _, new in pairs if new is not None]
        self.quotients = [quotient(old, new) for old, new in pairs
                          if old is not None and new is not None]
        self.verdict = self.missing or verdict(self.quotients)

    def fails(self):
        return self.verdict == "worse" or self.verdict.startswith("not measured")

    def line(self):
        def median(values):
            return f"{statistics.median(values):7.3f}" if values else f"{'-':>7}"
        spread = ""
        if self.quotients:
            spread = "{:.3f} to {:.3f}".format(*quartiles(self.quotients))
        return (f"{self.name:<58} {median(self.before)} {median(self.after)} "
                f"{median(self.quotients)}  {spread:<16} {self.verdict}").rstrip()


def compare(before, after):
    """The rows of two lists of tables, in the order of the later commit's; what is gone comes last."""
    names = dict.fromkeys(name for table in after + before for name in table)
    return [Row(name, before, after) for name in names]


def main(folder, rounds):
    sides = []
    for side in ("before", "after"):
        tables = []
        for number in range(1, rounds + 1):
            with open(f"{folder}/{side}.{number}", encoding="utf-8") as file:
                tables.append(ratios(file.read()))
        sides.append(tables)
    rows = compare(*sides)
    if not rows:
        print("against.py: no ratio was measured", file=sys.stderr)
        return 2
    print(f"\n{'':<58} {'before':>7} {'after':>7} {'after /':>7}  quartiles of the")
    print(f"{'':<58} {'':>7} {'':>7} {'before':>7}  rounds' quotients")
    for row in rows:
        print(row.line())
    if chance(rounds, 0) >= CHANCE:
        print(f"\nNothing can be marked: {rounds} rounds are too few to tell a change from noise.")
    return 1 if any(row.fails() for row in rows) else 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1], int(sys.argv[2])))
