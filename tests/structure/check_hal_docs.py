#!/usr/bin/env python3
"""check_hal_docs.py SOURCE_TREE

Whoever calls the service reads the .hal files: every interface, type, field and method has a doc
comment, and a method's names each parameter and says what is returned.
"""

import re
import sys

import source_tree

_TOKEN = re.compile(
    r"""(?P<doc>/\*\*.*?\*/)
      | (?P<comment>/\*.*?\*/|//[^\n]*)
      | (?P<string>"(?:[^"\\\n]|\\.)*")
      | (?P<word>[\w.@:]+)
      | (?P<mark>[^\s\w])""", re.VERBOSE | re.DOTALL)

_TYPES = ("interface", "struct", "union", "safe_union", "enum")


def _declarations(text):
    """Yields each declaration that ends with ";" or opens a block, as (line, doc comment or None,
    words, kinds of the blocks around it). Bodies of enumerations are left out."""
    doc = None
    words = []
    line = 0
    blocks = []
    for match in _TOKEN.finditer(text):
        token = match.group()
        in_enum = bool(blocks) and blocks[-1] == "enum"
        if match.lastgroup == "doc":
            if not words:
                doc = token
            continue
        if match.lastgroup == "comment":
            continue
        if token == "}":
            blocks.pop()
            words, doc = ["}"], None  # up to the ";" after it
            continue
        if in_enum:
            continue
        if token in ("{", ";"):
            if words and words[0] != "}":
                yield line, doc, words, tuple(blocks)
            if token == "{":
                blocks.append(next((word for word in words if word in _TYPES), "?"))
            words, doc = [], None
            continue
        if not words:
            line = source_tree.line_of(text, match.start())
        words.append(token)


def _parameters(words):
    """The names in the first parentheses: the word before each "," and before the ")"."""
    names = []
    depth = 0
    for previous, word in zip(words, words[1:]):
        if depth == 1 and word in (",", ")") and previous != "(":
            names.append(previous)
        depth += {"(": 1, "<": 1, ")": -1, ">": -1}.get(word, 0)
        if depth == 0 and word == ")":
            break
    return names


def complaints_about(path, text):
    complaints = []
    found = 0
    for line, doc, words, blocks in _declarations(text):
        if words[0] in ("package", "import"):
            continue
        found += 1
        if words[0] in _TYPES:
            what = " ".join(words[:2])
        elif "(" in words:
            what = words[words.index("(") - 1]
        else:
            what = words[-1]  # a field's type comes first
        if doc is None:
            complaints.append(f"{path}:{line}: {what} has no doc comment")
            continue
        if "(" not in words or not blocks or blocks[-1] != "interface":
            continue
        for name in _parameters(words):
            if not re.search(rf"@param\s+{name}\b", doc):
                complaints.append(f"{path}:{line}: {what}: the doc comment has no @param {name}")
        if "generates" in words and "@return" not in doc:
            complaints.append(f"{path}:{line}: {what}: the doc comment has no @return")
    if found == 0:
        complaints.append(f"{path}: declares nothing")
    return complaints


def check(root):
    complaints = []
    paths = [
        path for path in source_tree.files(root)
        if path.startswith("interface/") and path.endswith(".hal")
    ]
    if not paths:
        complaints.append(f"{root}: there are no .hal files in interface/")
    for path in paths:
        complaints += complaints_about(path, source_tree.read(root, path))
    return complaints


if __name__ == "__main__":
    source_tree.finish(check(sys.argv[1]))
