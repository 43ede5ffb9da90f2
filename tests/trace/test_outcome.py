#!/usr/bin/env python3
"""Tests of what becomes of the simulator's records in a result."""

import json
import math
import unittest

from corvid_trace import outcome
from corvid_trace.errors import FormatError, TraceError
from support import sample

STEPS = {"dbm_upper": 20, "dbm_middle": 9, "dbm_lower": 5}
ALWAYS = [(-math.inf, STEPS)]


def made_of(*records):
    return list(outcome.records_of([json.dumps(record) for record in records],
                                   lambda played: played + 100, ALWAYS))


def command(t, text, reply="OK\n"):
    return {"t": t, "kind": "command", "socket": "wlan0", "text": text, "reply": reply}


class OutcomeTest(unittest.TestCase):

    def test_command_keeps_its_text_and_loses_the_end_of_the_replys_line(self):
        self.assertEqual(made_of(command(1, "SIGNAL_POLL", "RSSI=-50\nFREQUENCY=5180\n")), [
            {"type": "command", "t": 101, "interface": "wlan0", "text": "SIGNAL_POLL",
             "reply": "RSSI=-50\nFREQUENCY=5180"}])

    def test_stations_interface_has_the_traces_name(self):
        lines = [json.dumps(command(1, "SIGNAL_POLL"))]
        records = list(outcome.records_of(lines, float, ALWAYS, "wlan1"))
        self.assertEqual(records[0]["interface"], "wlan1")

    def test_power_command_is_a_decision_with_its_step(self):
        self.assertEqual(made_of(command(1, "DRIVER SET_TXPOWER 9"))[1], {
            "type": "power", "t": 101, "interface": "wlan0", "dbm": 9, "step": "middle",
            "accepted": True})

    def test_line_that_the_simulator_did_not_end_is_named(self):
        lines = [json.dumps(command(1, "PING")), '{"t":1.5,"kind":"comm']
        with self.assertRaisesRegex(FormatError, "record:2: the line is not whole"):
            list(outcome.records_of(lines, float, ALWAYS))

    def test_power_of_no_step_has_none(self):
        self.assertIsNone(made_of(command(1, "DRIVER SET_TXPOWER 12"))[1]["step"])

    def test_power_has_the_name_of_its_step_after_a_restart_with_other_ones(self):
        lines = [json.dumps(command(t, "DRIVER SET_TXPOWER 9")) for t in (1, 2)]
        other = {**STEPS, "dbm_middle": 12, "dbm_lower": 9}
        records = outcome.records_of(lines, float, [*ALWAYS, (1.5, other)])
        self.assertEqual([record["step"] for record in records if record["type"] == "power"],
                         ["middle", "lower"])

    def test_power_of_several_steps_is_the_highest(self):
        self.assertEqual(outcome.step_of(9, {**STEPS, "dbm_upper": 9}), "upper")

    def test_power_that_the_driver_refuses_is_not_accepted(self):
        for reply in ("FAIL\n", None, "UNKNOWN COMMAND\n"):
            self.assertFalse(made_of(command(1, "DRIVER SET_TXPOWER 9", reply))[1]["accepted"])

    def test_atoms_logs_and_kernel_requests_are_kept(self):
        self.assertEqual(
            made_of({"t": 1, "kind": "atom", "text": "...",
                     "atom": {"reverseDomainName": "x", "atomId": 7, "values": [{"int": 1}]}},
                    {"t": 2, "kind": "log", "text": "hello", "level": "I", "tag": "CorvidWifi"},
                    {"t": 3, "kind": "netlink", "text": "vendor", "answer": "ok", "hex": "00"}),
            [{"type": "atom", "t": 101, "atomId": 7, "values": [{"int": 1}]},
             {"type": "log", "t": 102, "level": "I", "tag": "CorvidWifi", "text": "hello"},
             {"type": "netlink", "t": 103, "text": "vendor", "answer": "ok"}])

    def test_play_that_failed_is_an_error(self):
        with self.assertRaisesRegex(TraceError, "the daemon was killed"):
            made_of({"t": 1, "kind": "error", "text": "the daemon was killed"})

    def test_result_that_is_replayed_leaves_its_own_decisions_behind(self):
        records = [sample(1), made_of(command(1, "DRIVER SET_TXPOWER 9"))[1]]
        self.assertEqual(outcome.own_records(records), records[:1])

    def test_traces_lines_come_before_what_follows_them(self):
        played = [{"type": "log", "t": 2}, {"type": "log", "t": 1}]
        self.assertEqual(list(outcome.merged([sample(1), sample(2)], played)),
                         [sample(1), played[1], sample(2), played[0]])


if __name__ == "__main__":
    unittest.main()
