#!/usr/bin/env python3
"""Tests of reading and writing traces."""

import json
import os
import unittest

from corvid_trace.errors import FormatError, TraceError
from corvid_trace.format import MAX_LINE, TraceWriter, read_trace
from support import HEADER, FilesTest, sample

FIRST_LINE = {"type": "header", "format": "corvid-trace", "version": 1}


class ReadTest(FilesTest):

    def read_all(self, content):
        """Header, records and what was complained of, as (line, words)."""
        complaints = []
        header, records = read_trace(self.write("walk", content),
                                     lambda path, line, what: complaints.append((line, what)))
        return header, list(records), complaints

    def assert_error(self, content, line, what):
        with self.assertRaises(FormatError) as caught:
            self.read_all(content)
        self.assertEqual(caught.exception.line, line)
        self.assertIn(what, caught.exception.what)
        self.assertIn(f"walk:{line}: ", str(caught.exception))

    def test_unknown_fields_and_types_are_passed_on(self):
        header, records, _ = self.read_all([
            {**FIRST_LINE, "weather": "dry"}, {"type": "step", "t": 1, "foot": "left"},
            sample(2, speed=1.5)])
        self.assertEqual(header["weather"], "dry")
        self.assertEqual(records[0], {"type": "step", "t": 1, "foot": "left"})
        self.assertEqual(records[1]["speed"], 1.5)

    def test_records_know_their_line_and_blank_lines_count(self):
        lines = [json.dumps(FIRST_LINE), "", json.dumps(sample(1)), "  ", json.dumps(sample(2))]
        records = self.read_all("\n".join(lines) + "\n")[1]
        self.assertEqual([record.line for record in records], [3, 5])

    def test_lines_may_end_as_another_system_ends_them(self):
        content = json.dumps(FIRST_LINE) + "\r\n" + json.dumps(sample(1)) + "\r\n"
        self.assertEqual(self.read_all(content)[1], [sample(1)])

    def test_last_line_that_is_cut_is_left_away_and_said(self):
        _, records, complaints = self.read_all(
            json.dumps(FIRST_LINE) + "\n" + json.dumps(sample(1)) + "\n" + json.dumps(sample(2))[:9])
        self.assertEqual(records, [sample(1)])
        self.assertEqual([line for line, _ in complaints], [3])

    def test_last_line_without_its_end_counts_when_it_is_whole(self):
        _, records, complaints = self.read_all(json.dumps(FIRST_LINE) + "\n" + json.dumps(sample(1)))
        self.assertEqual((records, complaints), ([sample(1)], []))

    def test_line_that_is_cut_in_the_middle_is_an_error(self):
        self.assert_error(json.dumps(FIRST_LINE) + '\n{"type":"no\n' + json.dumps(sample(1)), 2,
                          "no JSON object")

    def test_empty_file_is_an_error(self):
        self.assert_error("", 1, "empty")

    def test_other_files_are_an_error(self):
        self.assert_error(b"\x7fELF\x02\x01\x01\0\n\xff\xfe", 1, "no JSON object")
        self.assert_error("12\n", 1, "no JSON object")
        self.assert_error("[" * 100000 + "\n", 1, "no JSON object")
        self.assert_error([{"type": "header", "format": "other", "version": 1}], 1, "corvid-trace")

    def test_later_version_is_an_error_that_says_which_can_be_read(self):
        self.assert_error([{**FIRST_LINE, "version": 2}], 1, "reads version 1")

    def test_line_without_an_end_does_not_fill_the_memory(self):
        self.assert_error(json.dumps(FIRST_LINE) + "\n" + "x" * (MAX_LINE + 1), 2, "longer than")

    def test_time_that_decreases_is_an_error(self):
        self.assert_error([FIRST_LINE, sample(2), sample(1.5)], 3, "never decrease")

    def test_wrong_field_is_named_with_what_is_allowed(self):
        wrong = sample(1)
        wrong["sta"]["bandwidth_mhz"] = 30
        self.assert_error([FIRST_LINE, wrong], 2, 'sta.bandwidth_mhz is 30; allowed is one of 20')
        self.assert_error([FIRST_LINE, {"type": "daemon", "t": 1, "state": "gone"}], 2,
                          'allowed is one of "started", "ended"')
        self.assert_error([FIRST_LINE, {"type": "note", "text": ""}], 2, "t is missing")
        self.assert_error([FIRST_LINE, {"type": "note", "t": "1", "text": ""}], 2, 't is "1"')
        self.assert_error([FIRST_LINE, {"type": "note", "t": True, "text": ""}], 2, "t is true")
        self.assert_error([FIRST_LINE, {"t": 1}], 2, "type is null")
        self.assert_error([FIRST_LINE, {"type": "callback", "t": 1, "event": "onChannelSwitch"}], 2,
                          "frequency is missing")

    def test_numbers_beyond_json_are_an_error(self):
        self.assert_error(json.dumps(FIRST_LINE) + '\n{"type":"note","t":NaN,"text":""}\n', 2, "NaN")
        self.assert_error(json.dumps(FIRST_LINE) + '\n{"type":"note","t":1e999,"text":""}\n', 2, "t is")


class WriteTest(FilesTest):

    def test_written_trace_is_read_as_it_was(self):
        lines = [sample(1), sample(1, wall=1763793600.25), {
            "type": "supplicant", "t": 2, "interface": "wlan0", "text": 'CTRL "ä" \x01'}]
        with TraceWriter(self.path("walk"), HEADER) as writer:
            for line in lines:
                writer.write(line)
        header, records = read_trace(self.path("walk"))
        self.assertEqual(header, {**FIRST_LINE, **HEADER})
        self.assertEqual(list(records), lines)

    def assert_error(self, what, record, header=HEADER):
        with self.assertRaisesRegex(FormatError, what):
            with TraceWriter(self.path("walk"), header) as writer:
                writer.write(sample(5))
                writer.write(record)
        self.assertEqual(os.listdir(self.folder), [])

    def test_record_that_breaks_the_format_leaves_no_file(self):
        self.assert_error("allowed is one of sample", {"type": "step", "t": 6})
        self.assert_error("never decrease", sample(4))
        self.assert_error("allowed is a number", sample(float("nan")))
        self.assert_error("sta is missing", {"type": "sample", "t": 6})
        self.assert_error("only a result", {"type": "command", "t": 6, "interface": "wlan0",
                                            "text": "PING", "reply": None})
        self.assert_error("event is", {"type": "callback", "t": 6, "event": "onRain"})

    def test_header_without_a_field_leaves_no_file(self):
        self.assert_error("label is missing", sample(6), {
            name: value for name, value in HEADER.items() if name != "label"})

    def test_result_may_have_what_the_daemon_did(self):
        with TraceWriter(self.path("walk"), {**HEADER, "result": True}) as writer:
            writer.write({"type": "power", "t": 1, "interface": "wlan0", "dbm": 20, "step": "upper",
                          "accepted": True})
        self.assertEqual(len(list(read_trace(self.path("walk"))[1])), 1)

    def test_file_that_is_there_is_kept_unless_forced(self):
        self.write("walk", "mine")
        with self.assertRaisesRegex(TraceError, "--force"):
            TraceWriter(self.path("walk"), HEADER)
        self.assertEqual(self.read("walk"), "mine")
        with TraceWriter(self.path("walk"), HEADER, force=True):
            self.assertEqual(self.read("walk"), "mine")
        self.assertNotEqual(self.read("walk"), "mine")

    def test_full_disk_is_said_and_leaves_nothing(self):
        with self.assertRaises(OSError) as caught:
            with TraceWriter("/dev/full", HEADER) as writer:
                writer.write(sample(1))
        self.assertEqual(caught.exception.filename, "/dev/full")


class CommandLineTest(FilesTest):

    def test_help_lists_the_commands_and_the_exit_statuses(self):
        done = self.run_command("--help")
        self.assertEqual((done.returncode, done.stderr), (0, ""))
        self.assertIn("exit status", done.stdout)

    def test_wrong_command_says_what_is_allowed(self):
        self.assert_refused(self.run_command("fly"), 2, "fly", "choose from", "--help")
        self.assert_refused(self.run_command(), 2, "COMMAND")


if __name__ == "__main__":
    unittest.main()
