#!/usr/bin/env python3
"""Tests of the settings of a replay: which properties there are, and what they may be."""

import unittest

from corvid_trace.errors import UsageError
from corvid_trace.programs import Programs
from corvid_trace.properties import Properties

PREFIX = "persist.vendor.wifi."


class PropertiesTest(unittest.TestCase):

    @classmethod
    def setUpClass(cls):
        cls.properties = Properties(Programs())

    def refused(self, call, *texts):
        with self.assertRaises(UsageError) as caught:
            call()
        for text in texts:
            self.assertIn(text, str(caught.exception))

    def test_whole_name_is_found(self):
        self.assertEqual(self.properties.find(PREFIX + "telemetry.enable"),
                         PREFIX + "telemetry.enable")

    def test_name_is_found_from_any_of_its_dots_on(self):
        for key in ("vendor.wifi.txpower.rssi.upper", "txpower.rssi.upper", "rssi.upper"):
            self.assertEqual(self.properties.find(key), PREFIX + "txpower.rssi.upper")

    def test_part_that_does_not_begin_behind_a_dot_is_no_name(self):
        self.refused(lambda: self.properties.find("ssi.upper"), "there is no such property")

    def test_several_that_fit_are_named(self):
        self.refused(lambda: self.properties.find("upper"), "several", PREFIX + "txpower.rssi.upper",
                     PREFIX + "txpower.dbm.upper", PREFIX + "txpower.rssi.middle.upper")

    def test_unknown_name_is_answered_with_those_near_it(self):
        self.refused(lambda: self.properties.find("rssi.uper.lower"), PREFIX + "txpower.rssi.lower")

    def test_flag_is_true_or_false(self):
        name = PREFIX + "txpower.enable.sta"
        self.assertEqual(self.properties.setting("enable.sta=1"), (name, "true"))
        self.assertEqual(self.properties.setting("enable.sta=FALSE"), (name, "false"))
        self.refused(lambda: self.properties.setting("enable.sta=yes"), "true or false")

    def test_signal_is_a_number_of_dbm_that_a_radio_can_have(self):
        self.assertEqual(self.properties.setting("txpower.rssi.upper=-57")[1], "-57")
        for value in ("5", "-128", "-5x", "", "strong", "-57.5"):
            self.refused(lambda word=value: self.properties.setting("txpower.rssi.upper=" + word),
                         "-127 to 0", "dBm")

    def test_power_is_not_negative(self):
        self.assertEqual(self.properties.setting("txpower.dbm.upper=18")[1], "18")
        for key in ("txpower.dbm.upper", "limit_low_dbm0"):
            self.refused(lambda name=key: self.properties.setting(name + "=-1"), "0 to 80")
            self.refused(lambda name=key: self.properties.setting(name + "=81"), "0 to 80")

    def test_other_number_has_the_range_of_its_type(self):
        self.assertEqual(self.properties.setting("rts_enable=-2147483648")[1], "-2147483648")
        self.refused(lambda: self.properties.setting("rts_enable=2147483648"), "2147483647")

    def test_word_without_a_value_is_refused(self):
        self.refused(lambda: self.properties.setting("txpower.rssi.upper"), "KEY=VALUE")

    def test_range_has_both_ends(self):
        self.assertEqual(self.properties.choices("txpower.rssi.upper=-60:-50:5"),
                         (PREFIX + "txpower.rssi.upper", ["-60", "-55", "-50"]))

    def test_range_goes_down_with_a_negative_step(self):
        self.assertEqual(self.properties.choices("dbm.lower=7:3:-2")[1], ["7", "5", "3"])

    def test_values_and_ranges_stand_in_one_list_without_doubles(self):
        self.assertEqual(self.properties.choices("dbm.lower=9,3:5,4")[1], ["9", "3", "4", "5"])

    def test_range_that_never_ends_is_refused(self):
        self.refused(lambda: self.properties.choices("dbm.lower=3:5:-1"), "never")
        self.refused(lambda: self.properties.choices("dbm.lower=3:5:0"), "never")
        self.refused(lambda: self.properties.choices("rts_enable=0:999999999:1"), "more than 10000")

    def test_range_is_of_whole_numbers(self):
        self.refused(lambda: self.properties.choices("dbm.lower=3:five"), "FROM:TO:STEP")

    def test_each_value_of_a_list_is_checked(self):
        self.refused(lambda: self.properties.choices("dbm.lower=3,x"), "dbm.lower=x")

    def test_thresholds_are_those_that_the_daemon_reads(self):
        controlled, thresholds = self.properties.in_force({
            PREFIX + "txpower.rssi.upper": "-51", PREFIX + "txpower.dbm.middle": "19",
            PREFIX + "txpower.unit.half.dbm": "true", PREFIX + "txpower.enable.sta": "true"})
        self.assertTrue(controlled)
        self.assertEqual(thresholds["rssi_upper"], -51)
        self.assertEqual(thresholds["dbm_middle"], 9)
        self.assertEqual(thresholds["rssi_lower"], -70)

    def test_station_power_is_off_unless_set(self):
        self.assertFalse(self.properties.in_force({})[0])


if __name__ == "__main__":
    unittest.main()
