#!/usr/bin/env python3
"""docs/trace-format.md describes every field that a writer may set, and its example is one."""

import json
import os
import re
import unittest

from corvid_trace import format as trace_format
from support import SOURCE


def read_document():
    with open(os.path.join(SOURCE, "docs", "trace-format.md"), encoding="utf-8") as file:
        return file.read()


def section(text, title):
    return text.split(f"\n## {title}\n", 1)[1].split("\n## ", 1)[0]


def rows(text):
    """The cells of the tables in a section, in which an empty first cell is that of the row above."""
    last = ""
    for line in text.splitlines():
        if line.startswith("| ") and not line.startswith("|---"):
            cells = [cell.strip() for cell in line.strip("|").split(" | ")]
            last = cells[0].strip("` |") or last
            yield [last] + cells[1:]


class DocumentTest(unittest.TestCase):

    def setUp(self):
        self.text = read_document()

    def test_example_is_a_trace(self):
        lines = [json.loads(line) for line in re.findall(r"^    (\{.*\})$", self.text, re.MULTILINE)]
        self.assertGreater(len(lines), 4)
        self.assertIsNone(trace_format.wrong_with_header(lines[0]))
        for line in lines[1:]:
            self.assertIsNone(trace_format.wrong_with_record(line), line)

    def test_every_field_of_the_header_has_its_row(self):
        documented = {row[0] for row in rows(section(self.text, "Header"))} - {"field"}
        self.assertLessEqual(set(trace_format.HEADER) | {"type"}, documented)
        # The others are a recording's own.
        self.assertEqual(documented - set(trace_format.HEADER) - {"type"}, {"tool_version", "interval_s", "service"})

    def test_every_type_has_its_rows(self):
        documented = {}
        for title in ("Records of a trace", "Records of a result"):
            for row in rows(section(self.text, title)):
                if row[0] != "type" and row[0] in trace_format.RECORDS:
                    documented.setdefault(row[0], set()).add(row[1].strip("`"))
        self.assertEqual(documented,
                         {kind: set(fields) for kind, fields in trace_format.RECORDS.items()})

    def test_every_callback_is_named_with_its_fields(self):
        row = next(row for row in rows(section(self.text, "Records of a trace"))
                   if row[0] == "callback")
        for event, fields in trace_format.CALLBACKS.items():
            for name in (event, *fields):
                self.assertIn(f"`{name}`", row[2])


if __name__ == "__main__":
    unittest.main()
