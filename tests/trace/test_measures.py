#!/usr/bin/env python3
"""Tests of the measures: each on a result of a few lines whose numbers are known."""

import unittest

from corvid_trace import measures
from result_lines import RESULT, command, end, event, no_link, power
from support import sample

def measure(*records, **options):
    return measures.measure(RESULT, sorted(records, key=lambda record: record["t"]), **options)


class PowerTest(unittest.TestCase):

    def test_time_and_energy_of_each_step_add_up(self):
        values = measure(sample(100), power(100, 20), power(110, 10), power(130, 0), end(200))
        self.assertEqual((values["time_upper_s"], values["time_middle_s"], values["time_lower_s"]),
                         (10, 20, 70))
        self.assertEqual(values["linked_s"], 100)
        self.assertAlmostEqual(values["energy_mws"], 10 * 100 + 20 * 10 + 70 * 1)
        self.assertAlmostEqual(values["mean_mw"], 12.7)
        self.assertAlmostEqual(values["mean_dbm"], 4.0)

    def test_percentiles_are_weighted_with_the_time(self):
        values = measure(sample(0), power(0, 20), power(4, 10), power(60, 0), end(100))
        self.assertEqual((values["p5_dbm"], values["p50_dbm"], values["p95_dbm"]), (0, 10, 10))
        self.assertAlmostEqual(values["p95_mw"], 10)
        values = measure(sample(0), power(0, 20), power(6, 0), end(100))
        self.assertEqual(values["p95_dbm"], 20)

    def test_time_without_a_link_counts_nowhere(self):
        values = measure(sample(0), power(0, 20), event(10, "CTRL-EVENT-DISCONNECTED bssid=x"),
                         sample(90), end(100))
        self.assertEqual(values["linked_s"], 20)
        self.assertEqual(values["time_upper_s"], 20)
        self.assertAlmostEqual(values["energy_mws"], 2000)

    def test_a_sample_without_station_ends_the_link(self):
        self.assertEqual(measure(sample(0), power(0, 20), no_link(10), end(30))["linked_s"], 10)

    def test_power_before_the_first_command_is_not_known(self):
        values = measure(sample(0), power(40, 10), end(100))
        self.assertEqual((values["time_other_s"], values["time_middle_s"]), (40, 60))
        self.assertAlmostEqual(values["energy_mws"], 600)
        self.assertAlmostEqual(values["mean_mw"], 10)

    def test_a_refused_command_leaves_the_power_as_it_was(self):
        values = measure(sample(0), power(0, 10), power(50, 20, accepted=False), end(100))
        self.assertEqual((values["time_middle_s"], values["changes"]), (100, 0))
        self.assertEqual(values["power_commands"], 2)

    def test_a_result_without_any_power_has_none(self):
        values = measure(sample(0), end(10))
        for key in ("energy_mws", "mean_mw", "mean_dbm", "p50_dbm", "p95_mw"):
            self.assertIsNone(values[key], key)
        self.assertEqual(values["time_other_s"], 10)

    def test_without_power_records_the_commands_say_it(self):
        values = measure(sample(0), command(0, "DRIVER SET_TXPOWER 20", "OK\n"),
                         command(30, "DRIVER SET_TXPOWER 0"),
                         command(40, "DRIVER SET_TXPOWER 10", "FAIL\n"),
                         command(50, "DRIVER SET_TXPOWER 12", interface="p2p-wlan0-0"), end(100))
        self.assertEqual((values["time_upper_s"], values["time_lower_s"]), (30, 70))
        self.assertEqual((values["power_commands"], values["group_power_commands"]), (3, 1))

    def test_the_power_of_the_group_is_not_the_stations(self):
        values = measure(sample(0), power(0, 20), power(5, 12, interface="p2p-wlan0-0"), end(10))
        self.assertEqual((values["time_upper_s"], values["group_power_commands"]), (10, 1))

    def test_power_of_no_step_counts_apart(self):
        self.assertEqual(measure(sample(0), power(0, 17), end(10))["time_other_s"], 10)


class ChangesTest(unittest.TestCase):

    def test_only_a_new_power_is_a_change(self):
        values = measure(sample(0), power(0, 20), power(10, 20), power(20, 0), end(120))
        self.assertEqual((values["power_commands"], values["changes"]), (3, 1))
        self.assertEqual(values["changes_per_min"], 0.5)

    def test_a_reversal_is_a_change_back_within_30_seconds(self):
        values = measure(sample(0), power(0, 20), power(100, 0), power(130, 20),
                         power(160.5, 0), end(300))
        self.assertEqual(values["reversals"], 1)

    def test_two_changes_in_one_direction_are_no_reversal(self):
        self.assertEqual(
            measure(sample(0), power(0, 20), power(5, 10), power(10, 0), end(20))["reversals"], 0)

    def test_commands_without_an_answer_or_refused_have_failed(self):
        values = measure(sample(0), command(0, "SIGNAL_POLL", None), command(1, "X", "FAIL-BUSY\n"),
                         command(2, "Y", "UNKNOWN COMMAND\n"), command(3, "Z", "OK\n"),
                         command(4, "STATUS", ""), end(5))
        self.assertEqual(values["failed_commands"], 3)

    def test_chain_limits_are_counted(self):
        limit = "DRIVER SET_PER_CHAIN_TX_PWR_LIMIT band 0 chain 1 power 20"
        self.assertEqual(measure(sample(0), command(1, limit), end(2))["chain_commands"], 1)


class WeakSignalTest(unittest.TestCase):

    def test_time_below_the_signal_is_told_by_step(self):
        values = measure(sample(0, -60), power(0, 0), sample(10, -76), power(14, 10),
                         power(20, 20), sample(30, -75), end(40))
        self.assertEqual((values["below_s"], values["below_lower_s"], values["below_middle_s"],
                          values["below_upper_s"], values["below_not_upper_s"]),
                         (20, 4, 6, 10, 10))

    def test_the_signal_is_what_the_caller_says(self):
        self.assertEqual(measure(sample(0, -60), end(10), below=-50)["below_s"], 10)

    def test_a_fall_counts_until_the_upper_step(self):
        values = measure(sample(0, -60), power(0, 0), sample(10, -80), power(13, 20),
                         sample(20, -60), power(22, 0), sample(30, -80), power(35, 20), end(40))
        self.assertEqual((values["falls"], values["falls_missed"]), (2, 0))
        self.assertEqual((values["to_upper_mean_s"], values["to_upper_max_s"]), (4, 5))

    def test_a_fall_on_the_upper_step_takes_no_time(self):
        values = measure(sample(0, -70), power(0, 20), sample(10, -80), end(40))
        self.assertEqual((values["falls"], values["to_upper_max_s"]), (1, 0))

    def test_a_signal_that_comes_back_first_is_a_missed_fall(self):
        values = measure(sample(0, -60), power(0, 0), sample(10, -80), sample(12, -60),
                         power(13, 20), end(40))
        self.assertEqual((values["falls"], values["falls_missed"]), (1, 1))
        self.assertIsNone(values["to_upper_mean_s"])

    def test_a_link_that_is_lost_ends_the_fall(self):
        values = measure(sample(0, -60), power(0, 0), sample(10, -80), no_link(12),
                         power(13, 20), sample(20, -80), end(40))
        self.assertEqual((values["falls"], values["falls_missed"]), (1, 1))

    def test_a_link_that_begins_weak_is_no_fall(self):
        self.assertEqual(measure(sample(0, -80), power(2, 20), end(40))["falls"], 0)

    def test_a_link_of_unknown_signal_is_not_weak(self):
        values = measure(sample(0, None), power(0, 20), end(10))
        self.assertEqual((values["below_s"], values["linked_s"]), (0, 10))


class ListTest(unittest.TestCase):

    def test_every_measure_is_there_even_for_nothing(self):
        values = measure()
        self.assertEqual(tuple(values), measures.KEYS)
        self.assertEqual(values["linked_s"], 0)

    def test_find_knows_every_key_and_no_other(self):
        for key in measures.KEYS:
            self.assertEqual(measures.find(key).key, key)
        self.assertIsNone(measures.find("speed"))


class ParetoTest(unittest.TestCase):

    @staticmethod
    def front(points, first="energy_mws", second="below_not_upper_s"):
        rows = [{"measures": {first: x, second: y}} for x, y in points]
        return [(row["measures"][first], row["measures"][second])
                for row in measures.pareto(rows, first, second)]

    def test_rows_that_another_beats_are_left_out(self):
        self.assertEqual(self.front([(3, 3), (1, 9), (2, 5), (2, 6), (4, 3), (9, 1)]),
                         [(1, 9), (2, 5), (3, 3), (9, 1)])

    def test_equal_rows_stay_together(self):
        self.assertEqual(self.front([(1, 1), (1, 1), (2, 1)]), [(1, 1), (1, 1)])

    def test_a_measure_that_is_better_high_is_turned_around(self):
        self.assertEqual(self.front([(1, 5), (2, 9), (3, 7)], second="time_lower_s"),
                         [(1, 5), (2, 9)])

    def test_rows_without_a_value_are_left_out(self):
        self.assertEqual(self.front([(None, 1), (2, 2)]), [(2, 2)])


if __name__ == "__main__":
    unittest.main()
