#!/usr/bin/env python3
"""check_words.py SOURCE_TREE

What slips into a tree by accident: paths of somebody's own machine, private keys, what a merge left
behind, and notes to oneself. The patterns are written so that they don't find themselves.
"""

import re
import sys

import source_tree

PATTERNS = (
    (re.compile(r"(?<![\w.})\]-])/(?:home|root|Users|work|mnt|media|opt|srv|Volumes)/[\w.]"),
     "a path of one machine"),
    (re.compile(r"\b[A-Z]:\\Users\\"), "a path of one machine"),
    (re.compile(r"-----BEGIN [A-Z ]*PRIVATE KE[Y]-----"), "a private key"),
    (re.compile(r"^(?:<{7}|>{7}|\|{7})(?: |$)", re.MULTILINE), "left behind by a merge"),
    (re.compile(r"\b(?:TOD[O]|FIXM[E]|XX[X]|HAC[K]|WI[P]|TB[DC]|NOCOMMI[T])\b"),
     "a note to oneself"),
    (re.compile(r"\b(?:tod[o]|fixm[e]|Tod[o]|Fixm[e]):"), "a note to oneself"),
    (re.compile(r"\bDO NOT (?:SUBMI[T]|COMMI[T]|MERG[E])\b"), "a note to oneself"),
)

LEFTOVER = re.compile(r"\.(?:orig|rej)$")


def check(root):
    complaints = []
    read = 0
    for path in source_tree.files(root):
        if LEFTOVER.search(path):
            complaints.append(f"{path}: left behind by a merge")
            continue
        if "/corpus/" in path:
            continue  # inputs of fuzz targets hold anything
        text = source_tree.read(root, path)
        if "\0" in text:
            continue  # not a text
        read += 1
        for pattern, what in PATTERNS:
            for match in pattern.finditer(text):
                line = source_tree.line_of(text, match.start())
                complaints.append(f"{path}:{line}: {match.group()!r}: {what}")
    if read == 0:
        complaints.append(f"{root}: there are no files")
    return complaints


if __name__ == "__main__":
    source_tree.finish(check(sys.argv[1]))
