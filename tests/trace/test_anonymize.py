#!/usr/bin/env python3
"""Tests of the stand-ins for names and addresses."""

import json
import unittest

from corvid_trace.anonymize import Anonymizer
from support import HEADER, FilesTest, sample


class TextTest(unittest.TestCase):

    def setUp(self):
        self.text = Anonymizer().text

    def test_same_address_gets_the_same_stand_in_however_it_is_written(self):
        self.assertEqual(self.text("bssid=A4:5E:60:01:02:03 reason=3"), "bssid=02:00:00:00:00:01 reason=3")
        self.assertEqual(self.text("a4:5e:60:01:02:04"), "02:00:00:00:00:02")
        self.assertEqual(self.text("to a4-5e-60-01-02-03."), "to 02:00:00:00:00:01.")

    def test_word_right_before_an_address_does_not_hide_it(self):
        self.assertEqual(self.text("BSSID:a4:5e:60:01:02:03 add:a4:5e:60:01:02:04"),
                         "BSSID:02:00:00:00:00:01 add:02:00:00:00:00:02")
        self.assertEqual(self.text("host:192.168.1.17 host:fe80::1."),
                         "host:198.18.0.1 host:2001:db8::1.")

    def test_address_that_is_a_stand_in_of_another_gets_its_own(self):
        self.assertEqual(self.text("02:00:00:00:00:02 02:00:00:00:00:01"),
                         "02:00:00:00:00:01 02:00:00:00:00:02")

    def test_addresses_of_nobody_are_kept(self):
        for text in ("ff:ff:ff:ff:ff:ff", "00:00:00:00:00:00", "127.0.0.1", "0.0.0.0", "::1"):
            self.assertEqual(self.text(text), text)

    def test_network_addresses_are_replaced(self):
        self.assertEqual(self.text("ip_address=192.168.1.17 via 192.168.1.1"),
                         "ip_address=198.18.0.1 via 198.18.0.2")
        self.assertEqual(self.text("fe80::a65e:60ff:fe01:203 fe80:0::a65e:60ff:fe01:203"),
                         "2001:db8::1 2001:db8::1")
        self.assertEqual(self.text("192.168.1.17"), "198.18.0.1")

    def test_what_only_looks_like_an_address_is_kept(self):
        for text in ("12:34:56", "at 01:02", "android.hardware@1.0::IWifi", "999.1.1.1", "1.2.3",
                     "1.2.3.4.5", "std::vector", "PTK=CCMP", "12:34:56:78"):
            self.assertEqual(self.text(text), text)

    def test_names_of_networks_and_devices_are_replaced(self):
        self.assertEqual(self.text('P2P-GROUP-STARTED p2p0 GO ssid="DIRECT-Ann \\" x" freq=5180'),
                         'P2P-GROUP-STARTED p2p0 GO ssid="ssid-1" freq=5180')
        self.assertEqual(self.text("(SSID='Ann's home' freq=5180 MHz)"),
                         "(SSID='ssid-2' freq=5180 MHz)")
        self.assertEqual(self.text("bssid=a4:5e:60:01:02:03\nssid=Ann's home\nid=0\n"),
                         "bssid=02:00:00:00:00:01\nssid=ssid-2\nid=0\n")
        self.assertEqual(self.text("name='Ann's phone' config_methods=0x188"),
                         "name='device-1' config_methods=0x188")

    def test_hidden_network_keeps_its_empty_name(self):
        self.assertEqual(self.text('ssid="" freq=1'), 'ssid="" freq=1')


class RecordTest(unittest.TestCase):

    def test_every_field_is_looked_at_at_any_depth(self):
        record = Anonymizer().record({
            "t": 1.5, "ssid": "Home", "more": [{"bssid": "a4:5e:60:01:02:03"}, "10.1.2.3", None],
            "a4:5e:60:01:02:03": True})
        self.assertEqual(record, {
            "t": 1.5, "ssid": "ssid-1", "more": [{"bssid": "02:00:00:00:00:01"}, "198.18.0.1", None],
            "02:00:00:00:00:01": True})

    def test_record_that_was_given_is_not_changed(self):
        given = {"list": ["10.1.2.3"]}
        Anonymizer().record(given)
        self.assertEqual(given, {"list": ["10.1.2.3"]})


class CommandTest(FilesTest):

    def anonymized(self, name, lines):
        done = self.run_command("import", self.write("input", lines), "--anonymize", "-o", name)
        self.assertEqual(done.returncode, 0, done.stderr)
        return self.read(name)

    def test_existing_trace_keeps_all_but_names_and_addresses(self):
        event = {"type": "supplicant", "t": 2, "interface": "wlan0",
                 "text": "CTRL-EVENT-CONNECTED - Connection to a4:5e:60:01:02:03 completed"}
        lines = [{"type": "header", "format": "corvid-trace", "version": 1, **HEADER,
                  "made_for": "10.1.2.3"}, sample(1), event]
        text = self.anonymized("one", lines)
        self.assertNotIn("a4:5e", text)
        self.assertNotIn("10.1.2.3", text)
        self.assertEqual(json.loads(text.splitlines()[1]), lines[1])
        self.assertEqual(text, self.anonymized("two", lines))

    def test_log_is_anonymized_while_it_is_imported(self):
        text = self.anonymized("one", (
            "1.000  7  7 I wpa_supplicant: wlan0: Trying to associate with a4:5e:60:01:02:03"
            " (SSID='Ann' freq=5180 MHz)\n"
            "2.000  7  7 I CorvidWifi: ScsManager: set IP 192.168.1.17\n"))
        for secret in ("a4:5e", "Ann", "192.168"):
            self.assertNotIn(secret, text)
        self.assertIn("freq=5180 MHz", text)


if __name__ == "__main__":
    unittest.main()
