"""Reads Android.bp files as far as the daemon's use the language: modules, maps, lists, strings,
numbers, booleans and comments. Variables and "+" are not read: a list that a test compares should
stand where it is used."""

import re

_TOKEN = re.compile(
    r"""(?P<skip>\s+|//[^\n]*|/\*.*?\*/)
      | (?P<string>"(?:[^"\\]|\\.)*")
      | (?P<number>-?\d+)
      | (?P<word>[A-Za-z_]\w*)
      | (?P<mark>[{}\[\]:,])""", re.VERBOSE | re.DOTALL)


class Error(Exception):
    """The text is not what this module reads."""


class _Reader:

    def __init__(self, text):
        self.tokens = []
        offset = 0
        while offset < len(text):
            match = _TOKEN.match(text, offset)
            if not match:
                line = text.count("\n", 0, offset) + 1
                raise Error(f"line {line}: can't read {text[offset:offset + 10]!r}")
            if match.lastgroup != "skip":
                self.tokens.append((match.lastgroup, match.group()))
            offset = match.end()
        self.tokens.append(("end", "the end of the file"))
        self.next = 0

    def peek(self):
        return self.tokens[self.next]

    def take(self, text=None, kind=None):
        found = self.tokens[self.next]
        if (text is not None and found[1] != text) or (kind is not None and found[0] != kind):
            raise Error(f"expected {text or 'a ' + kind}, found {found[1]}")
        self.next += 1
        return found[1]

    def map(self):
        properties = {}
        self.take("{")
        while self.peek()[1] != "}":
            name = self.take(kind="word")
            self.take(":")
            if name in properties:
                raise Error(f"property {name} is given twice")
            properties[name] = self.value()
            if self.peek()[1] != "}":
                self.take(",")
        self.take("}")
        return properties

    def value(self):
        kind, text = self.peek()
        if text == "{":
            return self.map()
        if text == "[":
            items = []
            self.take("[")
            while self.peek()[1] != "]":
                items.append(self.value())
                if self.peek()[1] != "]":
                    self.take(",")
            self.take("]")
            return items
        if kind == "string":
            return self.take()[1:-1]
        if kind == "number":
            return int(self.take())
        if text in ("true", "false"):
            return self.take() == "true"
        raise Error(f"expected a value, found {text}")


def parse(text):
    """The modules of an Android.bp file, each as (type, properties), in their order."""
    reader = _Reader(text)
    modules = []
    while reader.peek()[0] != "end":
        kind = reader.take(kind="word")
        modules.append((kind, reader.map()))
    return modules
