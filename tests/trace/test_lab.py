#!/usr/bin/env python3
"""Tests of a scenario as a case of the lab, and of what is read from the lab's logs."""

import subprocess
import unittest

from corvid_trace.errors import TraceError
from corvid_trace.lab import Case, play_records

PREPARATION = """\
property persist.vendor.wifi.txpower.enable.sta "true"
supplicant start
"""


def lines(*timed):
    """The case's own lines, between its words and its end."""
    case = Case(PREPARATION + "".join(line + "\n" for line in timed) + "at 9000ms end\n")
    text = case.text()
    begin, end = text.index("property "), text.index("wait_until 9000")
    return text[begin:end].splitlines()[3:]


class CaseTest(unittest.TestCase):

    def test_preparation_sets_properties_and_starts_daemon_and_supplicant(self):
        text = Case(PREPARATION + "at 1000ms end\n").text()
        self.assertIn("\nproperty txpower.enable.sta true\nstart_daemon\nstart_supplicant\n", text)

    def test_first_connection_sets_the_clock_and_later_ones_keep_to_it(self):
        self.assertEqual(
            lines("at 1000ms connect freq=5180 width=80 rssi=-48", "at 2000ms disconnect",
                  "at 4000ms connect freq=2437 rssi=-60"),
            ["first_link 1000 5180 -48", "wait_until 2000", "wpa wlan0 disconnect >/dev/null",
             "next_link 4000 2437 -60"])

    def test_signal_and_channel_change_at_their_times(self):
        self.assertEqual(lines("at 1500ms rssi -60", "at 2000ms channel switch freq=5200 width=80"),
                         ["wait_until 1500", "hear -60", "switch_channel 2000 5200"])

    def test_properties_change_before_the_daemon_starts_again(self):
        self.assertEqual(
            lines("at 1000ms daemon stop", "at 2000ms unset persist.vendor.wifi.a",
                  'at 2000ms property persist.vendor.wifi.b "2"', "at 2000ms daemon start"),
            ["wait_until 1000", "stop_daemon", "rm -f /dev/__properties__/persist.vendor.wifi.a",
             "property b 2", "wait_until 2000", "start_daemon"])

    def test_daemon_stops_and_starts(self):
        self.assertEqual(lines("at 1000ms daemon stop", "at 2000ms daemon start"),
                         ["wait_until 1000", "stop_daemon", "wait_until 2000", "start_daemon"])

    def test_case_is_a_script_with_a_limit_behind_its_end(self):
        text = Case(PREPARATION + "at 1000ms connect freq=5180 rssi=-48\nat 61500ms end\n").text()
        self.assertIn("\n# limit: 361 s\n", text)
        done = subprocess.run(["sh", "-n"], input=text, text=True, capture_output=True, check=False)
        self.assertEqual((done.returncode, done.stderr), (0, ""))

    def test_lines_without_a_word_in_the_lab_are_left_away_and_told(self):
        case = Case(PREPARATION + "at 1000ms event wlan0 \"hello\"\nat 2000ms end\n")
        self.assertEqual(case.left_away, ["event wlan0 hello"])

    def test_group_starts_and_stops(self):
        self.assertEqual(lines("at 1000ms p2p start freq=5180", "at 2000ms p2p stop"),
                         ["group_starts 1000 5180", "group_stops 2000"])

    def test_channel_that_listens_for_radar_has_a_stand_in_on_its_band(self):
        for frequency, stand_in in ((5260, 5180), (5320, 5240), (5500, 5745), (5680, 5825),
                                    (5720, 5765)):
            self.assertEqual(lines(f"at 1000ms connect freq={frequency} rssi=-48"),
                             [f"first_link 1000 {stand_in} -48"])

    def test_frequency_that_the_access_point_cannot_have_is_refused(self):
        for frequency in (5955, 5190, 2484):
            with self.assertRaisesRegex(TraceError, f"{frequency} MHz.*5500 to 5825"):
                Case(f"at 1000ms connect freq={frequency} rssi=-48\n")

    def test_signal_that_the_radio_cannot_have_is_refused(self):
        with self.assertRaisesRegex(TraceError, "-104 dBm.*-100 to -1"):
            Case("at 1000ms rssi -104\n")


class LogTest(unittest.TestCase):

    def test_requests_of_the_daemon_are_commands_on_the_plays_clock(self):
        records = play_records(4000, 0, [
            "4312 wlan0 PING", "5312 wlan0 SIGNAL_POLL", "5390 wlan0 DRIVER SET_TXPOWER 9 -> OK"], [])
        self.assertEqual(records, [
            {"t": 1.312, "kind": "command", "socket": "wlan0", "text": "SIGNAL_POLL", "reply": ""},
            {"t": 1.39, "kind": "command", "socket": "wlan0", "text": "DRIVER SET_TXPOWER 9",
             "reply": "OK"}])

    def test_log_lines_are_put_on_the_same_clock_by_the_date(self):
        wall = 1_763_793_600_000  # 2025-11-22 06:40:00
        records = play_records(4000, wall, [], [
            "CorvidWifi I 11-22 06:40:09  1234  1235 StaManager: hello", "no line of the log"])
        self.assertEqual(records, [{"t": 5.0, "kind": "log", "level": "I", "tag": "CorvidWifi",
                                    "text": "StaManager: hello"}])


if __name__ == "__main__":
    unittest.main()
