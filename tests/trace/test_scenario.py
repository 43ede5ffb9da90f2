#!/usr/bin/env python3
"""Tests of the scenario that a trace becomes."""

import random
import subprocess
import unittest

from corvid_trace.errors import FormatError
from corvid_trace.format import Record
from corvid_trace.programs import Programs
from corvid_trace.scenario import ScenarioMaker, quoted
from odd_walks import odd_text, odd_walk
from support import FilesTest, sample

HEADER = {"interfaces": {"sta": "wlan0"}}


def maker(*records, header=None, properties=()):
    return ScenarioMaker("walk", header or HEADER,
                         [Record(record, number) for number, record in enumerate(records, 2)],
                         properties)


def lines(*records, header=None):
    """The timed lines of the scenario, but for the last: (ms, text)."""
    timed = []
    for line in maker(*records, header=header).text({}).splitlines():
        if line.startswith("at "):
            _, time, text = line.split(" ", 2)
            timed.append((int(time[:-2]), text))
    return timed[:-1]


def without_link(t):
    return {"type": "sample", "t": t, "sta": None, "p2p": None}


def with_group(t, frequency):
    return {"type": "sample", "t": t, "sta": None,
            "p2p": frequency and {"frequency_mhz": frequency, "bandwidth_mhz": None}}


def event(t, text, interface="wlan0"):
    return {"type": "supplicant", "t": t, "interface": interface, "text": text}


def switch(t, frequency, is_p2p=False):
    return {"type": "callback", "t": t, "event": "onChannelSwitch", "frequency": frequency,
            "width": 80, "isP2p": is_p2p}


class StationTest(unittest.TestCase):

    def test_first_sample_with_a_link_connects_a_second_after_the_start(self):
        self.assertEqual(lines(sample(500.0, -48)), [(1000, "connect freq=5180 width=80 rssi=-48")])

    def test_signal_changes_half_way_between_two_samples(self):
        self.assertEqual(lines(sample(0, -48), sample(1, -50), sample(3, -55))[1:],
                         [(1500, "rssi -50"), (3000, "rssi -55")])

    def test_signal_of_a_rare_sample_begins_five_seconds_before_it(self):
        self.assertEqual(lines(sample(0, -48), sample(60, -50))[1:], [(56000, "rssi -50")])

    def test_same_signal_is_not_set_again(self):
        self.assertEqual(len(lines(sample(0, -48), sample(1, -48))), 1)

    def test_sample_without_a_link_disconnects(self):
        self.assertEqual(lines(sample(0), without_link(1), without_link(2), sample(3))[1:],
                         [(2000, "disconnect"), (4000, "connect freq=5180 width=80 rssi=-50")])

    def test_frequency_that_changes_without_a_word_is_another_access_point(self):
        self.assertEqual(lines(sample(0), sample(1, frequency=2437))[1:],
                         [(2000, "connect freq=2437 width=80 rssi=-50")])

    def test_channel_switch_is_played_when_its_callback_came(self):
        self.assertEqual(
            lines(sample(0), switch(0.5, 5240), sample(1, frequency=5240))[1:],
            [(1500, "channel switch freq=5240 width=80")])

    def test_sample_that_comes_before_its_callback_switches(self):
        self.assertEqual(
            lines(sample(0), sample(1, frequency=5240), switch(1.1, 5240))[1:],
            [(2000, "channel switch freq=5240 width=80")])

    def test_events_connect_and_disconnect_at_their_times(self):
        self.assertEqual(
            lines(event(0, "CTRL-EVENT-CONNECTED - Connection to 02:aa:00:00:00:07 completed"),
                  sample(1, -60, 2437),
                  event(1.5, "CTRL-EVENT-DISCONNECTED bssid=02:aa:00:00:00:07 reason=4")),
            [(1000, "connect freq=2437 width=80 rssi=-60 bssid=02:aa:00:00:00:07"),
             (2500, "disconnect reason=4 by=ap")])

    def test_disconnection_by_the_headset_stays_one(self):
        self.assertIn("disconnect reason=3", [text for _, text in lines(
            sample(0), event(1, "CTRL-EVENT-DISCONNECTED reason=3 locally_generated=1"))])

    def test_channel_that_no_radio_has_is_refused_with_its_line(self):
        with self.assertRaisesRegex(FormatError, "walk:3: .*900 MHz.*2400 to 7200"):
            lines(sample(0), sample(1, frequency=900))

    def test_signal_that_no_radio_has_is_refused_with_its_line(self):
        with self.assertRaisesRegex(FormatError, "walk:2: .*-120.*-110 to 0"):
            lines(sample(0, -120))


class GroupTest(unittest.TestCase):

    def test_group_starts_moves_and_stops_with_the_samples(self):
        self.assertEqual(
            lines(with_group(0, 2437), with_group(1, 5180), with_group(2, None)),
            [(1000, "p2p start freq=2437"), (2000, "p2p switch freq=5180"), (3000, "p2p stop")])

    def test_group_that_ends_before_it_is_up_ends_when_it_is(self):
        self.assertEqual(
            lines(event(0, "P2P-GROUP-STARTED p2p0 GO freq=2437", "p2p0"),
                  event(0.05, "P2P-GROUP-REMOVED p2p0 GO reason=REQUESTED", "p2p0")),
            [(1000, "p2p start freq=2437"), (1200, "p2p stop reason=REQUESTED")])

    def test_p2p_device_of_the_headset_is_there_from_the_start(self):
        text = maker(sample(0), header={"interfaces": {"sta": "wlan0", "p2p": "p2p0"}}).text({})
        self.assertIn("supplicant start p2p=p2p0\n", text)

    def test_callback_of_a_group_moves_it(self):
        self.assertEqual(lines(with_group(0, 2437), switch(5, 5180, True))[1:],
                         [(6000, "p2p switch freq=5180 width=80")])


class OtherTest(unittest.TestCase):

    def test_daemon_stops_and_starts_and_samples_in_between_do_not_count(self):
        self.assertEqual(
            lines(sample(0), {"type": "daemon", "t": 1, "state": "ended"}, without_link(2),
                  {"type": "daemon", "t": 3, "state": "started"}, sample(4))[1:],
            [(2000, "daemon stop"), (4000, "daemon start")])

    def restarted(self, properties, settings, changes=None, known=("a", "b", "c"), ended=True):
        """The scenario's lines between the daemon's end, if it was seen, and its start."""
        records = [sample(0), {"type": "daemon", "t": 1, "state": "ended"},
                   {"type": "daemon", "t": 3, "state": "started", "properties": properties}]
        if not ended:
            del records[1]
        text = maker(*records, properties=known).text(settings, changes).splitlines()
        return text[text.index(next(line for line in text if "daemon stop" in line)):-1]

    def test_properties_that_changed_at_a_restart_are_set_before_the_daemon_starts(self):
        self.assertEqual(self.restarted({"a": "1", "b": "3"}, {"a": "1", "b": "2", "c": "x"}),
                         ["at 2000ms daemon stop", "at 4000ms unset c", 'at 4000ms property b "3"',
                          "at 4000ms daemon start"])

    def test_property_that_was_set_for_the_play_stays_at_a_restart(self):
        for properties in ({"a": "5"}, {}):
            self.assertEqual(self.restarted(properties, {"a": "1"}, {"a": "9"}),
                             ["at 2000ms daemon stop", "at 4000ms daemon start"])

    def test_property_of_no_daemon_is_not_set_at_a_restart(self):
        self.assertEqual(self.restarted({"odd name": "5"}, {}),
                         ["at 2000ms daemon stop", "at 4000ms daemon start"])

    def test_daemon_that_started_with_other_properties_has_ended_unseen(self):
        self.assertEqual(self.restarted({"a": "2"}, {"a": "1"}, ended=False),
                         ["at 4000ms daemon stop", 'at 4500ms property a "2"',
                          "at 4500ms daemon start"])

    def test_supplicant_that_ends_is_there_again_for_the_next_link(self):
        self.assertEqual(
            lines(sample(0), event(1, "CTRL-EVENT-TERMINATING "), without_link(1), sample(2))[1:],
            [(2000, "supplicant terminate"), (3000, "supplicant start"),
             (3000, "connect freq=5180 width=80 rssi=-50")])

    def test_regulatory_change_told_twice_is_played_once(self):
        self.assertEqual(
            lines(sample(0), event(1, "CTRL-EVENT-REGDOM-CHANGE init=USER type=COUNTRY alpha2=DE"),
                  {"type": "callback", "t": 1.1, "event": "onRegdomUpdated", "init": "USER",
                   "regdomType": "COUNTRY", "alpha2": "DE"})[1:],
            [(2000, "regdom init=USER type=COUNTRY alpha2=DE")])

    def test_other_events_are_played_as_they_were(self):
        self.assertEqual(lines(sample(0), event(1, 'CTRL-EVENT-X "a" \\ #b\n'))[1:],
                         [(2000, 'event wlan0 "CTRL-EVENT-X \\"a\\" \\\\ #b\\x0a"')])

    def test_properties_come_first(self):
        self.assertTrue(maker(sample(0)).text({"persist.vendor.wifi.a": "1"}).startswith(
            'property persist.vendor.wifi.a "1"\nsupplicant start\n'))

    def test_daemon_that_is_started_at_once_is_given_time_to_end(self):
        self.assertEqual(
            lines(sample(0), {"type": "daemon", "t": 1, "state": "ended"},
                  {"type": "daemon", "t": 1, "state": "started"}, sample(4))[1:],
            [(2000, "daemon stop"), (2500, "daemon start")])

    def test_walk_of_more_than_two_weeks_is_refused_with_its_line(self):
        with self.assertRaisesRegex(FormatError, "walk:3: .*1209600 s at most"):
            lines(sample(0), sample(1.3e6))

    def test_time_of_the_play_becomes_the_traces(self):
        self.assertEqual(maker(sample(500.0)).trace_time(3.25), 502.25)


class SimulatorTest(FilesTest):
    """What the simulator itself says of a scenario."""

    def test_simulator_understands_all_that_is_made(self):
        text = maker(
            sample(0), sample(1, -60), switch(1, 5200), sample(2, -60, 5200),
            event(3, "CTRL-EVENT-DISCONNECTED bssid=02:00:00:00:00:01 reason=4"),
            event(4, 'odd "text" \\ \x01\u00e4'), with_group(5, 2437), with_group(6, 5180),
            with_group(7, None), {"type": "daemon", "t": 8, "state": "ended"},
            {"type": "daemon", "t": 9, "state": "started", "properties": {"log.tag.CorvidWifi": "V"}},
            {"type": "callback", "t": 9, "event": "onAssocStarted"},
            event(10, "CTRL-EVENT-REGDOM-CHANGE init=CORE type=WORLD"),
            event(11, "CTRL-EVENT-TERMINATING"), sample(12),
            properties=("log.tag.CorvidWifi",),
        ).text({"persist.vendor.wifi.txpower.enable.sta": "true"})
        self.assertIn("unset persist.vendor.wifi.txpower.enable.sta", text)
        path = self.write("scenario", text)
        done = subprocess.run([Programs().find("corvid-sim"), "--check", path], text=True,
                              capture_output=True, check=False)
        self.assertEqual((done.returncode, done.stderr), (0, ""), text)

    def test_simulator_understands_what_any_trace_becomes(self):
        for seed in range(100):
            text = maker(*odd_walk(seed)).text({"persist.vendor.wifi.a": odd_text(random.Random(seed))})
            path = self.write("scenario", text)
            done = subprocess.run([Programs().find("corvid-sim"), "--check", path], text=True,
                                  capture_output=True, check=False)
            # It may warn of the property.
            self.assertEqual(done.returncode, 0, f"seed {seed}\n{done.stderr}\n{text}")

    def test_word_keeps_every_byte(self):
        self.assertEqual(quoted('a"b\\c\n\u00e4'), '"a\\"b\\\\c\\x0a\\xc3\\xa4"')


if __name__ == "__main__":
    unittest.main()
