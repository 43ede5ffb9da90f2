#!/usr/bin/env python3
"""Tests of a sweep's plan and files, of merge, and of what both refuse."""

import json
import os
import shlex
import unittest
import unittest.mock

from corvid_trace import measures, sweeping
from corvid_trace.errors import FormatError, TraceError
from corvid_trace.programs import Programs
from corvid_trace.properties import Properties
from corvid_trace.replaying import Trace
from corvid_trace.sweeping import Part, Plan
from support import COMMAND, HEADER, FilesTest, sample

UPPER, LOWER = "persist.vendor.wifi.txpower.rssi.upper", "persist.vendor.wifi.txpower.dbm.lower"
FRONT = ("energy_mws", "below_not_upper_s")


def a_plan(**changes):
    fields = {"traces": ["one.jsonl", "two.jsonl"], "digests": ["1", "2"],
              "settings": {UPPER: ["-60", "-55", "-50"], LOWER: ["3", "5"]}, "below": -75,
              "front": FRONT, **changes}
    return Plan(**fields)


def a_row(plan, number, **more):
    trace, settings = plan.row(number)
    values = {**dict.fromkeys(measures.KEYS), "energy_mws": 100.0 - number,
              "below_not_upper_s": float(number), "linked_s": 10.0, "mean_mw": float(number)}
    return {"id": number, "trace": plan.traces[trace], "settings": settings, "measures": values,
            "result": None, **more}


class PlanTest(unittest.TestCase):

    def test_every_combination_is_replayed_over_every_trace_once(self):
        plan = a_plan()
        rows = [plan.row(number) for number in range(plan.rows)]
        self.assertEqual(len({(trace, *settings.values()) for trace, settings in rows}), 12)
        self.assertEqual(rows[0], (0, {UPPER: "-60", LOWER: "3"}))
        self.assertEqual(rows[1], (1, {UPPER: "-60", LOWER: "3"}))
        self.assertEqual(rows[2], (0, {UPPER: "-60", LOWER: "5"}))
        self.assertEqual(rows[11], (1, {UPPER: "-50", LOWER: "5"}))

    def test_batches_have_every_row_once(self):
        plan = a_plan()
        for count in (1, 2, 5, 12, 40):
            rows = [row for number in range(1, count + 1) for row in plan.batch(number, count)]
            self.assertEqual(rows, list(range(12)))

    def test_plan_is_the_same_wherever_its_traces_are(self):
        self.assertEqual(a_plan(traces=["/far/one.jsonl", "two.jsonl"]).fingerprint(),
                         a_plan().fingerprint())

    def test_plan_is_another_with_other_traces_values_or_measures(self):
        for change in ({"digests": ["1", "3"]}, {"settings": {UPPER: ["-60"]}}, {"below": -70},
                       {"front": ("energy_mws", "changes")}):
            self.assertNotEqual(a_plan(**change).fingerprint(), a_plan().fingerprint(), change)

    def test_plan_is_read_as_it_was_written(self):
        read = Plan.of_object(json.loads(json.dumps(a_plan().as_object())))
        self.assertEqual(read.fingerprint(), a_plan().fingerprint())


class PartTest(FilesTest):

    def part(self, plan=None, force=False):
        return Part(self.path("part.jsonl"), plan or a_plan(), force)

    def test_rows_are_there_again_after_an_interruption(self):
        with self.part() as part:
            part.add(a_row(a_plan(), 3))
        with self.part() as part:
            self.assertEqual(part.rows, {3: a_row(a_plan(), 3)})

    def test_row_that_was_cut_off_is_forgotten_and_written_anew(self):
        with self.part() as part:
            part.add(a_row(a_plan(), 3))
            part.add(a_row(a_plan(), 4))
        with open(self.path("part.jsonl"), "r+b") as file:
            file.truncate(os.path.getsize(self.path("part.jsonl")) - 10)
        with self.part() as part:
            self.assertEqual(list(part.rows), [3])
            part.add(a_row(a_plan(), 4))
        with self.part() as part:
            self.assertEqual(list(part.rows), [3, 4])

    def test_failed_row_is_tried_again(self):
        with self.part() as part:
            part.add(a_row(a_plan(), 3, error="no luck"))
        with self.part() as part:
            self.assertEqual(part.rows, {})

    def test_other_sweep_in_the_same_folder_is_refused(self):
        with self.part():
            pass
        with self.assertRaisesRegex(TraceError, "--force begins anew"), self.part(a_plan(below=-70)):
            pass

    def test_force_begins_anew(self):
        with self.part() as part:
            part.add(a_row(a_plan(), 3))
        with self.part(a_plan(below=-70), force=True) as part:
            self.assertEqual(part.rows, {})

    def test_two_sweeps_do_not_write_one_file(self):
        with self.part(), self.assertRaisesRegex(TraceError, "another sweep"), self.part():
            pass

    def test_file_that_is_no_part_is_refused_with_its_line(self):
        self.write("part.jsonl", "walk\n")
        with self.assertRaisesRegex(FormatError, "part.jsonl:1: "), self.part():
            pass


class SummaryTest(FilesTest):

    def summary(self, plan, rows):
        sweeping.write_summary(self.folder, plan, {row["id"]: row for row in rows})
        return json.loads(self.read("sweep.json"))

    def test_point_is_a_combination_over_its_traces(self):
        plan = a_plan()
        points = self.summary(plan, [a_row(plan, number) for number in range(12)])["points"]
        self.assertEqual(len(points), 6)
        self.assertEqual(points[1]["rows"], [2, 3])
        self.assertEqual(points[1]["settings"], {UPPER: "-60", LOWER: "5"})
        self.assertEqual(points[1]["measures"]["energy_mws"], 98 + 97)

    def test_mean_over_traces_counts_by_the_time_with_a_link(self):
        plan = a_plan()
        rows = [a_row(plan, 0), a_row(plan, 1)]
        rows[1]["measures"]["linked_s"] = 30.0
        self.assertEqual(sweeping.points_of(rows)[0]["measures"]["mean_mw"], 0.75)

    def test_longest_delay_over_traces_is_the_longest_of_them(self):
        plan = a_plan()
        rows = [a_row(plan, 0), a_row(plan, 1)]
        rows[0]["measures"]["to_upper_max_s"] = 4.0
        rows[1]["measures"]["to_upper_max_s"] = 3.0
        self.assertEqual(sweeping.points_of(rows)[0]["measures"]["to_upper_max_s"], 4.0)

    def test_front_leaves_out_what_another_combination_beats(self):
        plan = a_plan(traces=["one.jsonl"], digests=["1"])
        rows = [a_row(plan, number) for number in range(6)]
        rows[2]["measures"]["energy_mws"] = 99.5  # and more time below than row 0
        summary = self.summary(plan, rows)
        self.assertEqual(summary["front"], {"measures": list(FRONT), "points": [5, 4, 3, 1, 0]})

    def test_combination_with_a_failed_replay_is_no_point(self):
        plan = a_plan()
        rows = [a_row(plan, number) for number in range(4)]
        rows[1]["error"] = "no luck"
        summary = self.summary(plan, rows)
        self.assertEqual([point["rows"] for point in summary["points"]], [[2, 3]])
        self.assertEqual(len(summary["rows"]), 4)

    def test_table_has_a_line_per_row_with_settings_by_their_short_names(self):
        plan = a_plan()
        self.summary(plan, [a_row(plan, number) for number in range(12)])
        lines = self.read("rows.csv").splitlines()
        self.assertEqual(len(lines), 13)
        self.assertTrue(lines[0].startswith("id,trace,txpower.rssi.upper,txpower.dbm.lower,"))
        self.assertTrue(lines[3].startswith("2,one.jsonl,-60,5,"))


class MergeTest(FilesTest):

    def setUp(self):
        super().setUp()
        self.plan = a_plan()

    def batch(self, number, of, folder="sweep", plan=None, **more):
        plan = plan or self.plan
        path = self.path(sweeping.part_path(folder, (number, of)))
        with Part(path, plan) as part:
            for row in plan.batch(number, of):
                part.add(a_row(plan, row, **more))

    def test_batches_of_two_machines_are_joined_in_the_order_of_their_rows(self):
        self.batch(1, 3, "here")
        self.batch(2, 3, "there")
        self.batch(3, 3, "here")
        done = self.run_command("merge", "there", "here", "-o", "all")
        self.assertEqual((done.returncode, done.stderr), (0, ""))
        rows = json.loads(self.read("all/sweep.json"))["rows"]
        self.assertEqual(rows, [a_row(self.plan, number) for number in range(12)])

    def test_missing_rows_are_named(self):
        self.batch(1, 3)
        self.batch(3, 3)
        self.assert_refused(self.run_command("merge", "sweep", "-o", "all"), 1, "4 of 12 rows",
                            "4, 5, 6, 7")

    def test_partial_goes_without_them(self):
        self.batch(1, 3)
        self.assertEqual(self.run_command("merge", "sweep", "-o", "all", "--partial").returncode, 0)
        self.assertEqual(len(json.loads(self.read("all/sweep.json"))["rows"]), 4)

    def test_failed_row_counts_as_missing_unless_another_part_has_it(self):
        self.batch(1, 1, "bad", error="no luck")
        self.assert_refused(self.run_command("merge", "bad", "-o", "all"), 1, "12 of 12")
        self.batch(1, 1, "good")
        self.assertEqual(self.run_command("merge", "bad", "good", "-o", "all").returncode, 0)

    def test_parts_of_different_sweeps_are_not_joined(self):
        self.batch(1, 2)
        self.batch(2, 2, plan=a_plan(below=-70))
        self.assert_refused(self.run_command("merge", "sweep", "-o", "all"), 1, "another sweep")

    def test_results_are_found_from_the_merged_folder(self):
        self.batch(1, 1, "desk1/sweep", result="results/0000.jsonl")
        self.assertEqual(self.run_command("merge", "desk1/sweep", "-o", "all").returncode, 0)
        self.assertEqual(json.loads(self.read("all/sweep.json"))["rows"][0]["result"],
                         "../desk1/sweep/results/0000.jsonl")

    def test_nothing_is_written_over(self):
        self.batch(1, 1)
        self.assertEqual(self.run_command("merge", "sweep", "-o", "all").returncode, 0)
        self.assert_refused(self.run_command("merge", "sweep", "-o", "all"), 1, "--force")
        self.assertEqual(self.run_command("merge", "sweep", "-o", "all", "--force").returncode, 0)

    def test_folder_without_parts_is_refused(self):
        os.makedirs(self.path("sweep"))
        self.assert_refused(self.run_command("merge", "sweep", "-o", "all"), 1, "no part")


class CommandTest(FilesTest):

    def setUp(self):
        super().setUp()
        self.write("walk", [{**HEADER, "type": "header", "format": "corvid-trace", "version": 1},
                            sample(0), sample(1)])

    def sweep(self, *words, **environment):
        return self.run_command("sweep", "walk", "-o", "sweep", *words,
                                env={**os.environ, **environment})

    def test_jobs_file_has_a_command_of_its_own_for_each_batch(self):
        done = self.sweep("--set", "rssi.upper=-60:-51:1", "--set", "dbm.lower=3,5", "--below",
                          "-72", "--jobs-file", "jobs", "--batch-size", "8",
                          CORVID_BUILD=Programs().folder)
        self.assertEqual((done.returncode, done.stderr), (0, ""))
        jobs = [shlex.split(line) for line in self.read("jobs").splitlines()]
        self.assertEqual(len(jobs), 3)
        self.assertEqual(jobs[2], [
            "env", f"CORVID_BUILD={Programs().folder}", COMMAND, "sweep", "walk", "--set", "rssi.upper=-60:-51:1", "--set", "dbm.lower=3,5", "--below",
            "-72", "--front", "energy_mws,below_not_upper_s", "--jobs", "1", "--batch", "3/3",
            "-o", "sweep"])

    def test_missing_virtual_machine_is_said_with_the_way_out_and_nothing_is_begun(self):
        done = self.sweep("--set", "dbm.lower=3", PATH="/nowhere")
        self.assert_refused(done, 1, "qemu-system-x86_64 is not installed",
                            "corvid-trace replay --real-time")
        self.assertFalse(os.path.exists(self.path("sweep/part.jsonl")))

    def test_rows_that_were_there_before_stay_without_the_machine(self):
        # The plan of the very sweep, with one of two rows.
        with unittest.mock.patch("corvid_trace.sweep.Player", side_effect=TraceError("no machine")):
            for row in (None, 0):
                path = self.path("sweep/part.jsonl")
                plan = Plan([self.path("walk")], [self.digest()], {LOWER: ["3", "4"]}, -75, FRONT)
                if row is not None:
                    with Part(path, plan) as part:
                        part.add(a_row(plan, row))
                done = self.run_here("sweep", self.path("walk"), "--set", "dbm.lower=3,4", "-o",
                                     self.path("sweep"))
                self.assert_refused(done, 1, "no machine")
                self.assertEqual(os.path.exists(path), row is not None)

    def test_digest_changes_with_a_recorded_property(self):
        digests = set()
        for value in ("3", "4"):
            self.write("walk", [{**HEADER, "type": "header", "format": "corvid-trace", "version": 1,
                                 "properties": {LOWER: value}}, sample(0), sample(1)])
            digests.add(self.digest())
        self.assertEqual(len(digests), 2)

    def digest(self):
        return Trace(self.path("walk"), Properties(Programs())).digest()

    def test_what_another_sweep_has_left_is_not_written_over(self):
        os.makedirs(self.path("sweep"))
        for name in ("rows.csv", "sweep.json", "results"):
            self.write(os.path.join("sweep", name), "precious")
            done = self.sweep("--set", "dbm.lower=3", PATH="/nowhere")
            self.assert_refused(done, 1, os.path.join("sweep", name), "--force")
            self.assertEqual(os.listdir(self.path("sweep")), [name])
            done = self.sweep("--set", "dbm.lower=3", "--force", PATH="/nowhere")
            self.assert_refused(done, 1, "is not installed")
            os.unlink(self.path(os.path.join("sweep", name)))

    def test_jobs_file_is_not_written_over(self):
        self.write("jobs", "precious")
        self.assert_refused(self.sweep("--set", "dbm.lower=3", "--jobs-file", "jobs"), 1, "--force")

    def test_same_property_twice_is_wrong_usage(self):
        self.assert_refused(self.sweep("--set", "dbm.lower=3", "--set", "txpower.dbm.lower=4"), 2,
                            "txpower.dbm.lower has a value already")

    def test_front_needs_two_known_measures(self):
        self.assert_refused(self.sweep("--set", "dbm.lower=3", "--front", "energy_mws"), 2,
                            "two measures")
        self.assert_refused(self.sweep("--set", "dbm.lower=3", "--front", "energy_mws,speed"), 2,
                            "speed", "below_not_upper_s")

    def test_batch_is_one_of_their_number(self):
        for word in ("0/3", "4/3", "3", "1/x"):
            self.assert_refused(self.sweep("--set", "dbm.lower=3", "--batch", word), 2, "I/N")

    def test_no_replay_at_a_time_is_wrong_usage(self):
        self.assert_refused(self.sweep("--set", "dbm.lower=3", "--jobs", "0"), 2, "above 0")


if __name__ == "__main__":
    unittest.main()
