#!/usr/bin/env python3
"""Tests of corvid-trace import: every source, well-formed and hostile."""

import json
import os
import unittest

from corvid_trace.format import read_trace
from support import HEADER, FilesTest, sample


def link(rssi, frequency=5180, width=None):
    return {"frequency_mhz": frequency, "rssi_dbm": rssi, "bandwidth_mhz": width}


class ImportTest(FilesTest):

    def convert(self, content, *options, name="input"):
        """What `import` did with a file: its run. The trace is "trace"."""
        return self.run_here("import", self.write(name, content), "-o", self.path("trace"), *options)

    def imported(self, content, *options, status=0):
        """Header and records of what a file became; what it said is self.said."""
        done = self.convert(content, *options, "--force")
        self.assertEqual(done.returncode, status, done.stderr)
        self.said = done.stderr
        header, records = read_trace(self.path("trace"))
        return header, list(records)

    def only(self, records, kind):
        return [record for record in records if record["type"] == kind]

    def samples(self, content, *options):
        """(time, station, group) of each sample."""
        return [(record["t"], record["sta"], record["p2p"])
                for record in self.only(self.imported(content, *options)[1], "sample")]

    def assert_unread(self, *lines):
        """The lines that were named are these, in this order."""
        named = [line.split(":")[1] for line in self.said.splitlines()
                 if "read as" not in line and "MHz is taken" not in line]
        self.assertEqual(named, [str(line) for line in lines], self.said)


class LogTest(ImportTest):

    EPOCH = ("--------- beginning of main\n"
             "1763793600.100  100  101 I CorvidWifi: StaManager: STA event(CONNECTED)\n"
             "1763793600.200  900  901 D SomethingElse: rssi:-10 freq:1\n"
             "1763793605.250  100  102 I CorvidWifi: TxPowerManager: StaManager event(CONNECTED)"
             " rssi:-58 freq:5180\n"
             "1763793605.260  100  102 I CorvidWifi: TxPowerManager: STA cmd:DRIVER SET_TXPOWER 9"
             " reply:OK\n")

    def test_signal_and_command_of_the_daemon_are_read(self):
        header, records = self.imported(self.EPOCH)
        self.assertEqual(header["start_wall"], 1763793600.1)
        self.assertTrue(header["result"])
        self.assertEqual(self.only(records, "sample")[-1]["sta"], link(-58))
        self.assertEqual(self.only(records, "sample")[-1]["t"], 5.15)
        self.assertEqual(self.only(records, "command"), [
            {"type": "command", "t": 5.16, "interface": "wlan0", "text": "DRIVER SET_TXPOWER 9",
             "reply": "OK"}])
        self.assertEqual(len(self.only(records, "log")), 3)
        self.assert_unread()

    def test_last_line_that_the_file_ends_in_is_named_and_left_away(self):
        cut = self.EPOCH.removesuffix("K\n")
        self.assertEqual(self.only(self.imported(cut)[1], "command"), [])
        self.assert_unread(5)
        self.imported(self.EPOCH + "1763793606.000  9  9 D SomethingElse: cu")
        self.assert_unread()

    def test_every_form_of_a_time_gives_the_same_walk(self):
        expected = self.samples(self.EPOCH)
        for stamps, options in (
                (("11-22 06:40:00.100 ", "11-22 06:40:00.200 ", "11-22 06:40:05.250 ",
                  "11-22 06:40:05.260 "), ()),
                (("2025-11-22 06:40:00.100 ", "2025-11-22 06:40:00.200 ", "2025-11-22 06:40:05.250 ",
                  "2025-11-22 06:40:05.260 "), ()),
                (("2025-11-22 07:40:00.100 +0100 ", "2025-11-22 07:40:00.200 +0100 ",
                  "2025-11-22 06:40:05.250 +0000 ", "2025-11-22 06:40:05.260 +0000 "), ()),
                (("2025-11-22 06:40:00.100000 +0000  wifi ", "2025-11-22 06:40:00.200000 +0000  1010 ",
                  "2025-11-22 06:40:05.250000 +0000  wifi ",
                  "2025-11-22 06:40:05.260000 +0000  wifi "), ())):
            lines = self.EPOCH.splitlines()
            text = "\n".join([lines[0]] + [stamp + line.split(None, 1)[1]
                                           for stamp, line in zip(stamps, lines[1:])]) + "\n"
            self.assertEqual(self.samples(text, *options), expected, stamps[0])
            self.assert_unread()

    def test_wall_time_is_known_only_with_year_and_zone(self):
        line = "11-22 07:40:00.100  100  101 I CorvidWifi: X: rssi:-58 freq:5180\n"
        self.assertIsNone(self.imported(line)[0]["start_wall"])
        self.assertIsNone(self.imported("2025-" + line)[0]["start_wall"])
        self.assertIsNone(self.imported(line, "--year", "2025")[0]["start_wall"])
        self.assertEqual(self.imported(line, "--year", "2025", "--zone", "+0100")[0]["start_wall"],
                         1763793600.1)
        self.assertEqual(self.imported("2025-" + line, "--zone", "+01:00")[0]["start_wall"],
                         1763793600.1)

    def test_times_since_the_start_are_kept(self):
        samples = self.samples("  812.500  100  101 I CorvidWifi: X: rssi:-58 freq:5180\n")
        self.assertEqual(samples, [(812.5, link(-58), None)])

    def test_log_without_years_goes_on_in_january(self):
        samples = self.samples("12-31 23:59:59.500  1  1 I CorvidWifi: X: rssi:-58 freq:5180\n"
                               "01-01 00:00:04.500  1  1 I CorvidWifi: X: rssi:-59 freq:5180\n")
        self.assertEqual([t for t, _, _ in samples][-1] - samples[0][0], 5)
        self.assert_unread()

    def test_supplicant_tells_frequency_roam_and_end(self):
        samples = self.samples(
            "1000.000  7  7 I wpa_supplicant: wlan0: Trying to associate with 02:00:00:00:01:00"
            " (SSID='a freq=1 b' freq=2437 MHz)\n"
            "1000.100  7  7 I wpa_supplicant: wlan0: CTRL-EVENT-CONNECTED - Connection to x\n"
            "1001.000  7  7 I wpa_supplicant: wlan0: CTRL-EVENT-SIGNAL-CHANGE above=0 signal=-71 "
            "noise=9999 txrate=6000\n"
            "1002.000  7  7 I wpa_supplicant: wlan0: CTRL-EVENT-CHANNEL-SWITCH freq=2462 "
            "ht_enabled=1 ch_offset=0 ch_width=20 MHz cf1=2462 cf2=0\n"
            "1003.000  7  7 I wpa_supplicant: wlan0: Trying to associate with 02:00:00:00:01:01"
            " (SSID='a' freq=5500 MHz)\n"
            "1003.100  7  7 I wpa_supplicant: wlan0: CTRL-EVENT-CONNECTED - Connection to y\n"
            "1004.000  7  7 I wpa_supplicant: wlan0: CTRL-EVENT-DISCONNECTED bssid=y reason=3\n")
        self.assertEqual(samples, [
            (1000.0, None, None), (1000.1, link(None, 2437), None), (1001.0, link(-71, 2437), None),
            (1002.0, link(-71, 2462, 20), None), (1003.1, link(None, 5500), None),
            (1004.0, None, None)])

    def test_group_comes_moves_and_goes(self):
        samples = self.samples(
            "1.000  7  7 I wpa_supplicant: p2p0: P2P-GROUP-STARTED p2p0 GO ssid=\"DIRECT-x\" "
            "freq=5180 passphrase=\"geheim77\" go_dev_addr=02:00:00:00:00:09\n"
            "2.000  7  7 I wpa_supplicant: wlan0: CTRL-EVENT-CHANNEL-SWITCH freq=5745 ifname=p2p0 "
            "width=80\n"
            "3.000  7  7 I wpa_supplicant: p2p0: P2P-GROUP-REMOVED p2p0 GO reason=REQUESTED\n")
        self.assertEqual([group for _, _, group in samples], [
            {"frequency_mhz": 5180, "bandwidth_mhz": None},
            {"frequency_mhz": 5745, "bandwidth_mhz": 80}, None])
        self.assertNotIn("geheim77", self.read("trace"))

    def test_another_process_of_the_daemon_is_a_restart(self):
        _, records = self.imported("1.000  100  1 I CorvidWifi: a\n2.000  100  2 I CorvidWifi: b\n"
                                   "3.000  200  1 I CorvidWifi: c\n")
        self.assertEqual([(record["t"], record["state"]) for record in
                          self.only(records, "daemon")],
                         [(1.0, "started"), (3.0, "ended"), (3.0, "started")])

    def test_log_of_the_supplicant_alone_is_no_result(self):
        header, _ = self.imported("1.000  7  7 I wpa_supplicant: wlan0: CTRL-EVENT-SCAN-RESULTS \n")
        self.assertFalse(header["result"])

    def test_lines_that_are_none_are_named(self):
        cut = self.EPOCH + "1763793606.1"
        samples = self.samples("\x1b[31mgarbage\n" + cut)
        self.assertEqual(samples[-1][1], link(-58))
        self.assert_unread(1, 7)
        self.assertNotIn("\x1b", self.said)

    def test_impossible_values_are_named(self):
        self.imported("1.000  1  1 I CorvidWifi: X: rssi:-58 freq:5180\n"
                      "2.000  1  1 I CorvidWifi: X: rssi:17 freq:5180\n"
                      "3.000  1  1 I CorvidWifi: X: rssi:-50 freq:99999999999999999999\n"
                      "4.000  1  1 I CorvidWifi: X: rssi:-1 freq:-1\n"
                      "5.000  1  1 I CorvidWifi: X: rssi:strong\n"
                      f"5.000  1  1 I CorvidWifi: X: rssi:-50 freq:{'9' * 5000}\n"
                      "13-41 25:00:00.000  1  1 I CorvidWifi: y\n")
        self.assert_unread(2, 3, 5, 6, 7)

    def test_clock_that_was_set_is_named_and_the_time_goes_on(self):
        lines = [f"{t}.000  1  1 I CorvidWifi: X: rssi:-{50 + i} freq:5180\n" for i, t in
                 enumerate((100, 101, 1763793600, 1763793602, 1763793500, 1763793503))]
        samples = self.samples("".join(lines))
        self.assertEqual([t for t, _, _ in samples], [100, 101, 101, 103, 103, 106])
        self.assert_unread(3, 5)

    def test_lines_a_little_out_of_order_are_kept(self):
        samples = self.samples("5.900  1  1 I CorvidWifi: X: rssi:-58 freq:5180\n"
                               "5.200  1  1 I CorvidWifi: X: rssi:-59 freq:5180\n")
        self.assertEqual([(t, sta["rssi_dbm"]) for t, sta, _ in samples], [(5.9, -58), (5.9, -59)])
        self.assert_unread()

    def test_daemon_on_a_host_is_read(self):
        samples = self.samples(
            "CorvidWifi I 11-21 13:47:18   131   264 TxPowerManager: StaManager event(CONNECTED)"
            " rssi:-75 freq:5180\n")
        self.assertEqual(samples[0][1], link(-75))


class LabTest(ImportTest):

    SUPPLICANT = ("1763793600.100000: wlan0: Trying to associate with 02:00:00:00:01:00"
                  " (SSID='lab' freq=5180 MHz)\n"
                  "1763793600.200000: wlan0: CTRL-EVENT-CONNECTED - Connection to x\n"
                  "1763793610.900000: wlan0: CTRL-EVENT-DISCONNECTED bssid=x reason=3\n")
    DAEMON = ("CorvidWifi D 11-22 06:40:00   131   131 service: Starting native wifi service.\n"
              "CorvidWifi I 11-22 06:40:00   131   264 StaManager: STA event(CONNECTED)\n"
              "CorvidWifi I 11-22 06:40:10   131   264 X: rssi:-66 freq:5180\n"
              "CorvidWifi I 11-22 06:40:10   131   264 StaManager: STA event(DISCONNECTED-x)\n")

    def folder_of_logs(self, **logs):
        os.makedirs(self.path("run"))
        for name, content in logs.items():
            self.write(f"run/{name}.log", content)
        return self.path("run")

    def test_both_logs_are_put_together(self):
        folder = self.folder_of_logs(supplicant=self.SUPPLICANT, daemon=self.DAEMON)
        done = self.run_command("import", folder, "-o", "trace")
        self.assertEqual(done.returncode, 0, done.stderr)
        header, records = read_trace(self.path("trace"))
        self.assertEqual((header["source"], header["start_wall"]), ("lab", 1763793600.0))
        told = [record["text"][:28] if record["type"] in ("supplicant", "log") else
                record.get("sta") for record in records if record["type"] != "daemon"]
        self.assertEqual(told, [
            "service: Starting native wif", None, "Trying to associate with 02:",
            "CTRL-EVENT-CONNECTED - Conne", link(None), "StaManager: STA event(CONNEC",
            "X: rssi:-66 freq:5180", link(-66), "CTRL-EVENT-DISCONNECTED bssi", None,
            "StaManager: STA event(DISCON"])

    def test_line_that_is_none_is_named_with_its_file(self):
        folder = self.folder_of_logs(supplicant=self.SUPPLICANT + "oops\n", daemon=self.DAEMON)
        done = self.run_command("import", folder, "-o", "trace")
        self.assertIn("run/supplicant.log:4: ", done.stderr)

    def test_folder_without_logs_is_refused(self):
        self.assert_refused(self.run_command("import", self.folder_of_logs(), "-o", "trace"), 1,
                            "supplicant.log")


class SimulatorTest(ImportTest):

    def play(self, *records):
        return [{"t": 0.1, "kind": "line", "text": "property a.b \"c d\"", "line": 1},
                {"t": 0.2, "kind": "command", "socket": "wlan0", "text": "PING", "reply": None},
                {"t": 0.0, "kind": "program", "text": "the daemon was started", "pid": 7}, *records]

    def test_play_becomes_a_result(self):
        header, records = self.imported(self.play(
            {"t": 1.0, "kind": "event", "socket": "wlan0", "text": "<3>Trying to associate with x "
             "(SSID='\u00c3\u00a4' freq=5180 MHz)", "monitors": 1},
            {"t": 1.0, "kind": "event", "socket": "wlan0", "text": "<3>CTRL-EVENT-CONNECTED - x"},
            {"t": 1.5, "kind": "command", "socket": "wlan0", "text": "SIGNAL_POLL",
             "reply": "RSSI=-50\nFREQUENCY=5180\nWIDTH=80+80 MHz\n"},
            {"t": 2.0, "kind": "command", "socket": "wlan0", "text": "SIGNAL_POLL", "reply": None},
            {"t": 2.2, "kind": "netlink", "text": "vendor", "answer": "error -16", "hex": "00"},
            {"t": 2.5, "kind": "atom", "text": "", "atom": {"atomId": 1, "values": [{"int": 2}]}},
            {"t": 3.0, "kind": "callback", "text": "", "callback": {
                "event": "onRegdomUpdated", "init": "USER", "type": "COUNTRY", "alpha2": "US"}},
            {"t": 3.5, "kind": "callback", "text": "", "callback": {"event": "registered"}},
            {"t": 4.0, "kind": "program", "text": "the daemon was killed by signal 9"}))
        self.assertEqual((header["source"], header["result"], header["properties"]),
                         ("scenario", True, {"a.b": "c d"}))
        self.assertEqual([record["type"] for record in records], [
            "daemon", "sample", "supplicant", "supplicant", "sample", "command", "sample", "command",
            "sample", "netlink", "atom", "callback", "daemon"])
        self.assertIn("'ä'", records[2]["text"])
        self.assertEqual(records[6]["sta"], link(-50, width="80+80"))
        self.assertEqual(records[11], {"type": "callback", "t": 3.0, "event": "onRegdomUpdated",
                                       "init": "USER", "regdomType": "COUNTRY", "alpha2": "US"})
        self.assertEqual(records[12]["state"], "ended")

    def test_records_that_lack_something_are_named(self):
        self.imported(self.play({"t": 1, "kind": "event", "text": "x"}, {"t": 1, "kind": 5}, [],
                                {"t": "x", "kind": "say", "text": "x"},
                                {"t": 1, "kind": "say", "text": "\u4e00"},
                                {"t": 1, "kind": "command", "socket": "wlan0", "text": "SIGNAL_POLL",
                                 "reply": "RSSI=x\n"},
                                {"t": 1, "kind": "say", "text": "good"}))
        self.assert_unread(4, 5, 6, 7, 8, 9)


class PollsTest(ImportTest):

    ANSWER = "RSSI={}\nLINKSPEED=866\nNOISE=9999\nFREQUENCY=5180\nWIDTH=80 MHz\n"

    def test_every_form_of_a_time_is_read(self):
        for first, second in (
                ("1763793600.25", "1763793601.25"), ("2025-11-22 06:40:00", "2025-11-22 06:40:01"),
                ("2025-11-22T06:40:00,5+00:00", "2025-11-22T06:40:01,5+00:00"),
                ("Sat Nov 22 06:40:00 UTC 2025", "Sat Nov 22 06:40:01 UTC 2025"),
                ("Sat Nov 22 11:59:59 AM CET 2025", "Sat Nov 22 12:00:00 PM CET 2025"),
                ("12345.67 23456.78", "12346.67 23457.00"), ("23:59:59.5", "00:00:00.5")):
            samples = self.samples(first + "\n" + self.ANSWER.format(-50) + second +
                                   "\nSelected interface 'wlan0'\n" + self.ANSWER.format(-51))
            self.assertEqual([sta for _, sta, _ in samples], [link(-50, width=80),
                                                              link(-51, width=80)], first)
            self.assertAlmostEqual(samples[1][0] - samples[0][0], 1.0, msg=first)
            self.assert_unread()

    def test_time_may_stand_before_each_line(self):
        text = "".join(f"176379360{n}.25 {line}\n" for n in (0, 1)
                       for line in self.ANSWER.format(-50 - n).splitlines())
        samples = self.samples(text)
        self.assertEqual([(t, sta["rssi_dbm"]) for t, sta, _ in samples], [(0.0, -50), (1.0, -51)])

    def test_fail_is_a_time_without_a_link(self):
        samples = self.samples("100\n" + self.ANSWER.format(-50) + "101\nFAIL\n102\n" +
                               self.ANSWER.format(-51))
        self.assertEqual([sta and sta["rssi_dbm"] for _, sta, _ in samples], [-50, None, -51])

    def test_answers_without_a_time_or_a_signal_are_named(self):
        self.imported(self.ANSWER.format(-50) + "100\n" + self.ANSWER.format(-51) +
                      "101\n102\nRSSI=-9999\nFREQUENCY=0\n103\nRSSI=-5x\nhello\n104\n" +
                      self.ANSWER.format(-52))
        self.assert_unread(1, 12, 13, 18, 16)


class TableTest(ImportTest):

    def test_rows_become_samples_and_the_first_connects(self):
        samples = self.samples("time_s,rssi_dbm,freq_mhz\n0,-50,5180\n1.5,-60.4,2437\n")
        self.assertEqual(samples, [(0.0, link(-50), None), (1.5, link(-60, 2437), None)])

    def test_without_a_frequency_all_is_on_channel_36(self):
        samples = self.samples("\ufefftime_s;rssi_dbm\r\n0;-50\r\n")
        self.assertEqual(samples, [(0.0, link(-50), None)])

    def test_row_without_a_signal_is_a_time_without_a_link(self):
        samples = self.samples("time_s,rssi_dbm,width_mhz\n0,-50,80\n1,,\n2,-51,\n")
        self.assertEqual([sta for _, sta, _ in samples], [link(-50, width=80), None, link(-51)])

    def test_times_since_1970_are_wall_time(self):
        header, records = self.imported("time_s,rssi_dbm\n1763793600,-50\n1763793601,-51\n")
        self.assertEqual(header["start_wall"], 1763793600)
        self.assertEqual([record["t"] for record in records], [0, 1])

    def test_rows_that_cannot_be_are_named(self):
        self.imported("time_s,rssi_dbm,freq_mhz,mood\n0,-50,5180,good\nx,-50,5180,\n1,5,5180,\n"
                      "2,nan,5180,\n3,-50,5180.5,\n4,-50,1,\n-1,-50,5180,\n6,-50,inf,\n7,-51,5180,\n")
        self.assert_unread(1, 3, 4, 5, 6, 7, 8, 9)

    def test_row_with_another_number_of_cells_than_the_header_line_is_named(self):
        samples = self.samples("time_s,rssi_dbm,freq_mhz\n0,-50,5180\n1\n2,-51\n3,-52,5180,80\n"
                               "4,,\n5,-53,5200\n")
        self.assertEqual([t for t, _, _ in samples], [0, 4, 5])
        self.assert_unread(3, 4, 5)

    def test_frequency_that_is_missing_in_a_row_with_a_signal_is_named(self):
        samples = self.samples("time_s,rssi_dbm,freq_mhz\n0,-50,2437\n1,-51,\n2,-52,2437\n")
        self.assertEqual(samples, [(0, link(-50, 2437), None), (2, link(-52, 2437), None)])
        self.assert_unread(3)

    def test_column_that_is_there_twice_is_named_and_the_first_counts(self):
        samples = self.samples("time_s,rssi_dbm,freq_mhz,rssi_dbm\n0,-50,5180,-70\n")
        self.assertEqual(samples, [(0, link(-50), None)])
        self.assert_unread(1)

    def test_channel_that_is_taken_for_want_of_a_column_is_said_once(self):
        self.samples("time_s,rssi_dbm\n0,-50\n1,-51\n", "--strict")
        self.assertEqual(self.said.count("there is no column freq_mhz; 5180 MHz is taken"), 1)
        self.samples("time_s,rssi_dbm,freq_mhz\n0,-50,2437\n")
        self.assertNotIn("is taken", self.said)

    def test_header_line_that_lacks_a_column_is_refused(self):
        self.assert_refused(self.convert("seconds,rssi_dbm\n0,-50\n", "--format", "csv"), 1,
                            "input:1: ", "time_s", "freq_mhz")


class CommandTest(ImportTest):

    CSV = "time_s,rssi_dbm\n0,-50\n"

    def test_trace_is_kept_unless_forced(self):
        self.write("trace", "mine")
        self.assert_refused(self.convert(self.CSV), 1, "trace: ", "--force")
        self.assertEqual(self.read("trace"), "mine")
        self.assertEqual(self.convert(self.CSV, "--force").returncode, 0)

    def test_standard_input_and_output_can_be_pipes(self):
        done = self.run_command("import", "-", "-o", "-", input=self.CSV)
        self.assertEqual(done.returncode, 0, done.stderr)
        self.assertEqual([json.loads(line)["type"] for line in done.stdout.splitlines()],
                         ["header", "sample"])

    def test_half_of_a_surrogate_pair_passes(self):
        lines = [{"type": "header", "format": "corvid-trace", "version": 1, **HEADER},
                 {"type": "note", "t": 1, "text": "\ud800"}]
        path = self.write("input", lines)
        self.assertEqual(self.imported(lines)[1], lines[1:])
        done = self.run_command("import", path, "-o", "-")
        self.assertEqual((done.returncode, json.loads(done.stdout.splitlines()[1])),
                         (0, lines[1]), done.stderr)

    def test_file_that_tells_nothing_is_refused_with_what_is_allowed(self):
        for content in (b"", b"\x00\xff\xfe" * 1000, b"hello\nworld\n", b"{}\n"):
            self.assert_refused(self.convert(content), 1, "--format", "simulator")
        self.assertFalse(os.path.exists(self.path("trace")))

    def test_file_without_anything_to_read_makes_no_trace(self):
        self.assert_refused(self.convert("1.000  1  1 I Other: x\n"), 1, "nothing in it")
        self.assert_refused(self.convert("time_s,rssi_dbm\n"), 1, "nothing in it")
        self.assertFalse(os.path.exists(self.path("trace")))

    def test_strict_makes_no_trace_when_a_line_is_left(self):
        self.assert_refused(self.convert(self.CSV + "x\n", "--strict"), 1, "input:3: ", "1 lines")
        self.assertFalse(os.path.exists(self.path("trace")))

    def test_many_lines_that_are_none_are_counted(self):
        self.imported(self.CSV + "x\n" * 1000)
        self.assertLess(len(self.said.splitlines()), 30)
        self.assertIn("1000 lines could not be read", self.said)
        self.imported(self.CSV + "x\n" * 1000, "--show-all")
        self.assertGreater(len(self.said.splitlines()), 1000)

    def test_missing_file_is_named(self):
        self.assert_refused(self.run_command("import", "nowhere", "-o", "trace"), 1, "nowhere")

    def test_full_disk_is_named(self):
        done = self.run_command("import", self.write("input", self.CSV), "-o", "/dev/full")
        self.assert_refused(done, 1, "/dev/full", "No space left")

    def test_wrong_zone_and_year_are_wrong_usage(self):
        self.assert_refused(self.convert(self.CSV, "--zone", "here"), 2, "here", "+HHMM")
        self.assert_refused(self.convert(self.CSV, "--year", "25"), 2, "1970")

    def test_properties_come_from_getprop_or_assignments(self):
        self.write("list", "[persist.vendor.wifi.scs.enable]: [true]\n[ro.serial]: [secret]\n"
                           "persist.vendor.wifi.a=b c\n")
        header, _ = self.imported(self.CSV, "--properties", self.path("list"))
        self.assertEqual(header["properties"], {"persist.vendor.wifi.scs.enable": "true",
                                                "persist.vendor.wifi.a": "b c"})
        # What the daemon did, it did with them.
        header, _ = self.imported("1.000  1  1 I CorvidWifi: X: y\n", "--properties",
                                  self.path("list"))
        self.assertEqual(header["settings"], header["properties"])
        self.write("list", "persist\n")
        self.assert_refused(self.convert(self.CSV, "--properties", self.path("list"), "--force"), 1,
                            "list:1: ")

    def test_trace_is_imported_as_it_is(self):
        lines = [{"type": "header", "format": "corvid-trace", "version": 1, **HEADER, "more": 1},
                 sample(3, extra=True), {"type": "step", "t": 4, "foot": "left"}]
        header, records = self.imported(lines, "--label", "another")
        self.assertEqual(header, {**lines[0], "label": "another"})
        self.assertEqual(records, lines[1:])

    def test_trace_whose_last_line_is_cut_is_imported_and_the_line_named(self):
        self.imported(json.dumps({"type": "header", "format": "corvid-trace", "version": 1,
                                  **HEADER}) + "\n" + json.dumps(sample(1)) + '\n{"type":"no')
        self.assert_unread(3)


if __name__ == "__main__":
    unittest.main()
