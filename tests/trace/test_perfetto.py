#!/usr/bin/env python3
"""Tests of corvid-trace perfetto."""

import json
import unittest

from result_lines import RESULT_LINE, command, end, event, no_link, power
from support import FilesTest, sample


class PerfettoTest(FilesTest):

    def events(self, *results):
        for index, records in enumerate(results):
            self.write(f"{index}.result", [RESULT_LINE, *records])
        names = [f"{index}.result" for index in range(len(results))]
        done = self.run_command("perfetto", *names, "-o", "trace.json", "--force")
        self.assertEqual((done.returncode, done.stderr), (0, ""))
        self._events = json.loads(self.read("trace.json"))["traceEvents"]
        return self._events

    def of_thread(self, name):
        """(phase, name, from, duration) of a thread's events, in microseconds."""
        thread, = [event["tid"] for event in self._events
                   if event["name"] == "thread_name" and event["args"]["name"] == name]
        return [(event["ph"], event["name"], event["ts"], event.get("dur"))
                for event in self._events if event.get("tid") == thread and event["ph"] != "M"]

    def test_signal_and_power_are_counters_on_the_traces_clock(self):
        events = self.events([sample(1000.25, -50), power(1000.5, 20),
                              power(1001, 0, accepted=False), sample(1001.25, -60), end(1002)])
        counters = [(event["name"], event["ts"], event["args"]["dBm"])
                    for event in events if event["ph"] == "C"]
        self.assertEqual(counters, [("signal", 1000250000, -50), ("signal", 1001250000, -60),
                                    ("power", 1000500000, 20)])

    def test_steps_links_and_channels_are_slices(self):
        self.events([sample(0), power(1, 20), power(2, 20), power(3, 0), sample(4, -50, 2412),
                     no_link(5), end(6)])
        self.assertEqual(self.of_thread("step"), [("X", "upper, 20 dBm", 1000000, 2000000),
                                                  ("X", "lower, 0 dBm", 3000000, 3000000)])
        self.assertEqual(self.of_thread("channel"), [("X", "5180 MHz", 0, 4000000),
                                                     ("X", "2412 MHz", 4000000, 1000000)])
        self.assertEqual(self.of_thread("link"), [("X", "linked", 0, 5000000)])

    def test_a_group_is_a_slice(self):
        self.events([event(1, "P2P-GROUP-STARTED p2p-wlan0-0 GO freq=5745", "p2p-wlan0-0"),
                     command(1, "DRIVER SET_TXPOWER 20"),
                     event(3, "P2P-GROUP-REMOVED p2p-wlan0-0 GO reason=REQUESTED"), end(4)])
        self.assertEqual(self.of_thread("P2P channel"), [("X", "5745 MHz", 1000000, 2000000)])

    def test_commands_and_events_are_instants(self):
        self.events([command(1, "DRIVER SET_TXPOWER 20"),
                     command(2, "DRIVER SET_TXPOWER 9", "FAIL"), command(3, "SIGNAL_POLL"),
                     event(4, "CTRL-EVENT-SCAN-RESULTS"),
                     {"type": "callback", "t": 5, "event": "onAssocStarted"}, end(6)])
        self.assertEqual(self.of_thread("power command"),
                         [("i", "DRIVER SET_TXPOWER 20", 1000000, None),
                          ("i", "DRIVER SET_TXPOWER 9 (refused)", 2000000, None)])
        self.assertEqual(self.of_thread("command"), [("i", "SIGNAL_POLL", 3000000, None)])
        self.assertEqual(self.of_thread("event"),
                         [("i", "wlan0 CTRL-EVENT-SCAN-RESULTS", 4000000, None)])
        self.assertEqual(self.of_thread("callback"), [("i", "onAssocStarted", 5000000, None)])

    def test_each_result_is_a_process(self):
        records = [sample(0), command(0, "DRIVER SET_TXPOWER 20"), end(1)]
        events = self.events(records, records)
        names = [(event["pid"], event["args"]["name"]) for event in events
                 if event["name"] == "process_name"]
        self.assertEqual(names, [(1, "Wi-Fi: 0"), (2, "Wi-Fi: 1")])
        self.assertEqual({event["pid"] for event in events}, {1, 2})

    def test_a_file_that_is_there_is_kept_without_force(self):
        self.write("a.result", [RESULT_LINE, end(1)])
        self.write("trace.json", "mine")
        self.assert_refused(self.run_command("perfetto", "a.result", "-o", "trace.json"), 1,
                            "trace.json", "--force")
        self.assertEqual(self.read("trace.json"), "mine")


if __name__ == "__main__":
    unittest.main()
