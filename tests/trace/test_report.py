#!/usr/bin/env python3
"""Tests of corvid-trace report: the page as a file, and in a browser without network."""

import itertools
import json
import os
import re
import shlex
import unittest

import browser
import day
from corvid_trace import measures, page_data
from corvid_trace.results import Result
from corvid_trace.timeline import Timeline
from result_lines import RESULT_LINE, command, end, event, no_link, power
from support import FilesTest, sample

PREFIX = "persist.vendor.wifi.txpower."
HOSTILE = '</script><img src=x onerror="alert(1)">&<b>'


def walk(upper_at=30, **header):
    """Records and header of a minute's walk away: 11 marks, three channels, a refused command."""
    first = {**RESULT_LINE, "start_wall": 1763793600.0, **header}
    lines = [event(100, "CTRL-EVENT-CONNECTED - Connection to 02:00:00:00:01:00 completed")]
    for second in range(60):
        rssi = -50 - second // 2
        lines.append(sample(101 + second, rssi, 5180 if second < 40 else 2412))
        if second % 20 == 0:
            lines.append(command(101 + second, "SIGNAL_POLL", f"RSSI={rssi}\nFREQUENCY=5180\n"))
        if second == 5:
            lines += [command(106, "DRIVER SET_TXPOWER 0"), power(106, 0)]
        if second == upper_at:
            t = 101 + second
            lines += [command(t, "DRIVER SET_TXPOWER 20", "FAIL"), power(t, 20, False),
                      command(t + 0.5, "DRIVER SET_TXPOWER 20"), power(t + 0.5, 20)]
    lines += [event(160, "CTRL-EVENT-CHANNEL-SWITCH freq=2437 ifname=wlan0 width=20"),
              {"type": "atom", "t": 160, "atomId": 7, "values": [{"string": "A"}, {"int": 1}]},
              command(160, "DRIVER SET_OTHER 1", None), no_link(161), end(165)]
    return sorted(lines, key=lambda line: line["t"]), first


class PageTest(FilesTest):
    """A test that makes pages."""

    maxDiff = 2000

    def result(self, name, upper_at=30, **header):
        records, first = walk(upper_at, **header)
        return self.write(name, [first, *records])

    def page(self, *words):
        """Makes page.html; its path."""
        done = self.run_command("report", *words, "-o", "page.html")
        self.assertEqual((done.returncode, done.stdout, done.stderr), (0, "", ""))
        return self.path("page.html")

    def data(self):
        text = self.read("page.html")
        return json.loads(re.search(r'<script id="data"[^>]*>(.*?)</script>', text, re.S).group(1))


class FileTest(PageTest):

    def test_the_data_has_what_the_result_has(self):
        self.page(self.result("a.result"))
        data = self.data()
        run, = data["runs"]
        signal = data["signals"][run["signal"]]
        self.assertEqual((len(signal["dbm"]), signal["dbm"][-1]), (64, None))
        self.assertEqual(sum(signal["t"]), 65000)
        self.assertEqual(run["power"], [[6000, 0, 2, 1], [31000, 20, 0, 0], [31500, 20, 0, 1]])
        self.assertEqual(run["station"], [[1000, 41000, 5180, 80], [41000, 60000, 2412, 80],
                                          [60000, 61000, 2437, 20]])
        lanes = {lane["kind"]: lane for lane in run["lanes"]}
        self.assertEqual({kind: len(lane["t"]) for kind, lane in lanes.items()},
                         {"power": 3, "command": 1, "event": 2, "atom": 1, "note": 1, "poll": 3})
        self.assertEqual(lanes["power"]["refused"], [1])
        self.assertEqual(data["texts"][lanes["command"]["text"][0]],
                         "wlan0: DRIVER SET_OTHER 1 → no answer")

    def test_the_table_stands_in_the_page_without_a_script(self):
        self.page(self.result("a.result", settings={PREFIX + "x": "1"}),
                  self.result("b.result", upper_at=40, settings={PREFIX + "x": "2"}))
        text = self.read("page.html")
        self.assertIn('<tr class="setting"><th scope="row">txpower.x</th>', text)
        self.assertIn('<td>19.5 <span class="better">-10</span></td>', text)

    def test_results_with_one_signal_have_it_once(self):
        self.page(self.result("a.result"), self.result("b.result", upper_at=40))
        data = self.data()
        self.assertEqual((len(data["signals"]), len(data["runs"])), (1, 2))

    def test_nothing_in_a_result_ends_the_script(self):
        records, first = walk(label=HOSTILE)
        self.write("a.result", [first, event(100, HOSTILE), *records])
        self.page("--title", HOSTILE, "a.result")
        text = self.read("page.html")
        self.assertNotIn("<img", text)
        self.assertEqual(self.data()["runs"][0]["label"], HOSTILE)

    def test_the_page_loads_nothing(self):
        self.page(self.result("a.result"))
        text = self.read("page.html")
        self.assertIn("default-src 'none'", text)
        self.assertNotRegex(text, r'(?:src|href)="(?!data:|#)')
        self.assertNotIn("sourceMappingURL", text)

    def test_chain_limits_are_drawn_as_sent(self):
        limit = "DRIVER SET_PER_CHAIN_TX_PWR_LIMIT band 0 chain {} power {}"
        records = [sample(0), command(1, limit.format(0, 13)), command(2, limit.format(1, 20)),
                   command(3, limit.format(0, 20), "FAIL"), end(4)]
        run = self.added(records)["runs"][0]
        self.assertEqual(run["chains"], [[1000, 13, None], [2000, 13, 20]])

    def test_a_group_lasts_from_its_start_to_its_removal(self):
        records = [sample(0), event(1, "P2P-GROUP-STARTED p2p-wlan0-0 GO freq=5745", "p2p-wlan0-0"),
                   event(2, "CTRL-EVENT-CHANNEL-SWITCH freq=2412 ifname=p2p-wlan0-0 width=20"),
                   event(3, "P2P-GROUP-REMOVED p2p-wlan0-0 GO reason=REQUESTED"), end(4)]
        self.assertEqual(self.added(records)["runs"][0]["group"],
                         [[1000, 2000, 5745, None], [2000, 3000, 2412, 20]])

    def test_channel_switch_of_another_interface_begins_no_group(self):
        records = [sample(0), event(1, "CTRL-EVENT-CHANNEL-SWITCH freq=2412 ifname=wlan1 width=20"),
                   end(2)]
        self.assertEqual(self.added(records)["runs"][0]["group"], [])

    def test_width_of_two_channels_apart_stays_one(self):
        records = [sample(0), event(1, "CTRL-EVENT-CHANNEL-SWITCH freq=5500 ch_width=80+80 MHz"),
                   end(2)]
        self.assertEqual(Timeline(RESULT_LINE, records).signal[-1].width, "80+80")

    @staticmethod
    def added(records):
        timeline = Timeline(RESULT_LINE, records)
        data = page_data.PageData()
        data.add(Result("x", "x", timeline), measures.measure_timeline(timeline), {})
        return data.as_object()

    def test_a_file_that_is_there_is_kept_without_force(self):
        self.result("a.result")
        self.write("page.html", "mine")
        self.assert_refused(self.run_command("report", "a.result", "-o", "page.html"), 1,
                            "page.html", "--force")
        self.assertEqual(self.read("page.html"), "mine")
        self.assertEqual(
            self.run_command("report", "a.result", "-o", "page.html", "--force").returncode, 0)
        self.assertIn("<!DOCTYPE html>", self.read("page.html"))

    def test_standard_output_gets_the_page_alone(self):
        done = self.run_command("report", self.result("a.result"), "-o", "-")
        self.assertTrue(done.stdout.startswith("<!DOCTYPE html>"))
        self.assertEqual(done.stderr, "")

    def test_wrong_words_and_files_are_named(self):
        self.assert_refused(self.run_command("report", "a.result"), 2, "-o")
        self.assert_refused(self.run_command("report", "a.result", "-o", "p", "--runs", "-1"), 2,
                            "--runs")
        self.assert_refused(self.run_command("report", "none.result", "-o", "p"), 1, "none.result")
        self.write("bad.result", "\x00\x01 no JSON\n")
        self.assert_refused(self.run_command("report", "bad.result", "-o", "p"), 1,
                            "bad.result:1: ")
        self.assertFalse(os.path.exists(self.path("p")))

    def test_folder_without_a_sweep_is_told_what_is_missing(self):
        os.makedirs(self.path("sweep"))
        self.assert_refused(self.run_command("report", "sweep", "-o", "p"), 1,
                            "sweep: there is no sweep.json")


class DayTest(PageTest):

    def test_the_page_of_a_day_takes_seconds_and_stays_small(self):
        day.write_result(self.path("day.result"))
        before = os.times()
        day.make_page(self.path("day.result"), self.path("page.html"))
        after = os.times()
        # Of the processor, so that others on the machine count for nothing.
        self.assertLess(after.children_user + after.children_system
                        - before.children_user - before.children_system, 10)
        self.assertLess(os.path.getsize(self.path("page.html")), 15e6)
        data = self.data()
        self.assertEqual(len(data["signals"][0]["dbm"]), day.SECONDS + 1)


@unittest.skipUnless(browser.find() or os.environ.get("CORVID_LAB") == "required",
                     "there is no chromium here")
class BrowserTest(PageTest):
    """A test that opens its page in the browser, which all tests of a class share."""

    @classmethod
    def setUpClass(cls):
        cls.browser = browser.Browser()
        cls.addClassCleanup(cls.browser.close)

    def open(self, path, fragment="", **screen):
        self.browser.screen(**screen)
        self.browser.open(path, fragment)
        return self.browser

    def assert_quiet(self, page):
        self.assertEqual(page.complaints, [])
        self.assertEqual([url for url in page.requests if not url.startswith(("file:", "data:"))],
                         [])

    @staticmethod
    def window(page):
        return page.run("document.getElementById('window').textContent")

    @staticmethod
    def box(page, selector):
        return page.run(f"(() => {{ const box = document.querySelector({json.dumps(selector)})"
                        ".getBoundingClientRect();"
                        "return [box.left, box.top, box.width, box.height]; })()")

    @staticmethod
    def marks(page):
        return [int(count) for count in page.run(
            "[...document.querySelectorAll('.lanes')].map((panel) => panel.dataset.marks)")]

    def place(self, page, t, kind=None):
        """Where a time stands in the first run; in the lane of a kind or else on the signal."""
        left, top, width, height = self.box(page, ".panel.lanes" if kind else ".panel.signal")
        first, last = page.run("window.corvidReport.shown()")
        x = left + 84 + (t - first) / (last - first) * (width - 84 - 14)
        if kind is None:
            return x, top + height / 2
        kinds = ["station"] + page.run(
            "window.corvidReport.data.runs[0].lanes.map((lane) => lane.kind)")
        return x, top + (kinds.index(kind) + 0.5) * 20

    def tip(self, page, t, kind=None):
        page.mouse("mouseMoved", *self.place(page, t, kind))
        page.settle()
        return page.run("document.getElementById('tip').hidden ? '' : "
                        "document.getElementById('tip').innerText")



class RunsTest(BrowserTest):

    def test_it_opens_without_network_and_without_a_complaint(self):
        page = self.open(self.page(self.result("a.result"), self.result("b.result")))
        self.assertEqual(page.run("document.querySelectorAll('.run').length"), 2)
        self.assertEqual(page.run("document.querySelector('.signal').dataset.thresholds"), "4")
        self.assert_quiet(page)

    def test_every_mark_of_the_window_is_drawn(self):
        page = self.open(self.page(self.result("a.result")))
        self.assertEqual(self.marks(page), [3 + 11])  # three channels
        page.drag(self.place(page, 30.2), self.place(page, 34))
        self.assertEqual(self.marks(page), [1 + 2])
        self.assert_quiet(page)

    def test_the_pointer_shows_values_and_the_text_of_marks(self):
        page = self.open(self.page(self.result("a.result")))
        text = self.tip(page, 20.1)
        self.assertIn("signal -59 dBm", text)
        self.assertIn("power 0 dBm (lower)", text)
        self.assertIn("channel 36 (5180 MHz, 5 GHz, 80 MHz wide)", text)
        self.assertIn("2025-11-22 06:40:20", text)
        text = self.tip(page, 31.2, "power")
        self.assertIn("wlan0: DRIVER SET_TXPOWER 20 → FAIL", text)
        self.assertIn("wlan0: DRIVER SET_TXPOWER 20 → OK", text)
        self.assertIn("7: A 1", self.tip(page, 60, "atom"))
        self.assertNotIn("DRIVER", self.tip(page, 20.1, "event"))

    def test_dragging_zooms_and_a_double_click_shows_all(self):
        page = self.open(self.page(self.result("a.result"), self.result("b.result")))
        everything = self.window(page)
        self.assertEqual(everything, "0:00 – 1:05")
        page.drag(self.place(page, 20), self.place(page, 40))
        self.assertEqual(self.window(page), "0:20 – 0:40")
        page.click(*self.place(page, 30), count=2)
        self.assertEqual(self.window(page), everything)

    def test_shift_keys_and_buttons_move_and_zoom(self):
        page = self.open(self.page(self.result("a.result")))
        page.drag(self.place(page, 20), self.place(page, 44))
        page.drag(self.place(page, 30), self.place(page, 36), modifiers=8)
        self.assertEqual(self.window(page), "0:14 – 0:38")
        page.key("ArrowRight")
        self.assertEqual(self.window(page), "0:20 – 0:44")
        page.key("+")
        self.assertEqual(self.window(page), "0:26 – 0:38")
        left, top, width, height = self.box(page, "[data-do=all]")
        page.click(left + width / 2, top + height / 2)
        self.assertEqual(self.window(page), "0:00 – 1:05")

    def test_the_wheel_zooms_only_with_ctrl(self):
        page = self.open(self.page(self.result("a.result")))
        x, y = self.place(page, 30)
        page.mouse("mouseWheel", x, y, deltaX=0, deltaY=-200)
        page.settle()
        self.assertEqual(self.window(page), "0:00 – 1:05")
        x, y = self.place(page, 30)
        page.mouse("mouseWheel", x, y, deltaX=0, deltaY=-600, modifiers=2)
        page.settle()
        first, last = page.run("window.corvidReport.shown()")
        self.assertLess(last - first, 20)
        self.assertAlmostEqual((30 - first) / (last - first), 30 / 65, delta=0.03)

    def test_a_fragment_names_the_window(self):
        page = self.open(self.page(self.result("a.result")), "#t=10-30")
        self.assertEqual(self.window(page), "0:10 – 0:30")

    def test_no_text_is_cut_or_too_small_on_two_screens_in_light_and_dark(self):
        path = self.page(self.result("a.result", label="A walk through a flat"),
                         self.result("b.result", settings={PREFIX + "rssi.upper": "-60"}))
        backs = set()
        for width in (1280, 2560):
            for dark in (False, True):
                page = self.open(path, width=width, height=1000, dark=dark)
                self.assert_quiet(page)
                self.assertLessEqual(page.run("document.documentElement.scrollWidth"), width)
                self.assertGreaterEqual(page.run(
                    "Math.min(...[...document.querySelectorAll('.run *, #bar *, td, th')]"
                    ".filter((one) => one.textContent.trim())"
                    ".map((one) => parseFloat(getComputedStyle(one).fontSize)))"), 12)
                # A chart's widest part is the whole card but for its edges.
                self.assertGreater(self.box(page, ".panel.signal")[2], width * 0.93)
                self.assertGreater(page.run(_CONTRAST), 4.5)
                backs.add(page.run("getComputedStyle(document.body).backgroundColor"))
        self.assertEqual(len(backs), 2)

    def test_the_colours_follow_the_system_while_the_page_is_open(self):
        page = self.open(self.page(self.result("a.result")))
        page.drag(self.place(page, 20), self.place(page, 40))
        before = page.run(_PIXELS)
        page.color_scheme("dark")
        page.settle()
        self.assertNotEqual(page.run(_PIXELS), before)
        self.assertEqual(self.window(page), "0:20 – 0:40")
        self.assert_quiet(page)

    def test_a_result_without_signal_or_thresholds_is_drawn(self):
        self.write("a.result", [{**RESULT_LINE, "thresholds": {}}, event(1, "X"),
                                command(2, "DRIVER SET_TXPOWER 20"), end(3)])
        page = self.open(self.page("a.result"))
        self.assertEqual(self.marks(page), [3])
        self.assertIn("no signal known", self.tip(page, 1.5))
        self.assert_quiet(page)

    def test_absurd_numbers_are_drawn(self):
        self.write("a.result", [
            {**RESULT_LINE, "start_wall": 1e300,
             "thresholds": {"rssi_upper": "much", "rssi_lower": -4e9, "dbm_upper": 4294967295}},
            sample(0, -2000000000), command(1, "DRIVER SET_TXPOWER 4294967295"),
            sample(2, 2000000000, 4000000000), sample(1e15), end(1e15)])
        page = self.open(self.page("a.result"))
        self.assertEqual(self.marks(page), [5])
        self.assertIn("power 4294967295 dBm", self.tip(page, 5e14))
        self.assert_quiet(page)

    def test_a_hostile_text_is_shown_as_text(self):
        records, first = walk(label=HOSTILE)
        self.write("a.result", [first, event(99, HOSTILE), *records])
        page = self.open(self.page("a.result"))
        self.assertEqual(page.run("document.querySelectorAll('img').length"), 0)
        self.assertEqual(page.run("document.querySelector('.label').textContent"), HOSTILE)
        self.assert_quiet(page)

    def test_a_long_trace_is_thinned_but_keeps_its_extremes(self):
        lines = [RESULT_LINE]
        for second in range(20000):
            lines.append(sample(second, -90 if second == 12345 else -60 - second % 3))
        self.write("a.result", [*lines, command(20000, "DRIVER SET_TXPOWER 20"), end(20001)])
        page = self.open(self.page("a.result"))
        drawn = page.run("window.corvidReport.rows(0)")
        self.assertLessEqual(len(drawn), 3900)
        self.assertIn([12345, -90], drawn)
        self.assertEqual(page.run("document.querySelector('.signal').dataset.rows"),
                         str(len(drawn)))
        page.drag(self.place(page, 12000), self.place(page, 12700))
        first, last = page.run("window.corvidReport.shown()")
        self.assertAlmostEqual(len(page.run("window.corvidReport.rows(0)")), last - first, delta=4)


class SweepTest(BrowserTest):

    UPPER, LOWER = PREFIX + "rssi.upper", PREFIX + "rssi.lower"

    def sweep(self, traces=("flat.jsonl",), keep=True, more=()):
        """A sweep of three values by two, over traces; the later the upper step, the cheaper."""
        settings = {PREFIX + name: values for name, values in more}
        settings.update({self.UPPER: ["-60", "-57", "-54"], self.LOWER: ["-70", "-75"]})
        os.makedirs(self.path("sweep/results"), exist_ok=True)
        rows, points = [], []
        for combination in itertools.product(*settings.values()):
            of = dict(zip(settings, combination))
            ids = []
            for trace in traces:
                result = f"results/{len(rows):04}.jsonl"
                records, first = walk(25 + 4 * (len(points) % 6), settings=of)
                self.write("sweep/" + result, [first, *records])
                ids.append(len(rows))
                rows.append({"id": len(rows), "trace": trace, "settings": of,
                             "measures": measures.measure(first, records),
                             "result": result if keep else None})
            points.append({"settings": of, "rows": ids,
                           "measures": {key: sum(rows[row]["measures"][key] or 0 for row in ids)
                                        for key in measures.KEYS}})
        keys = ["energy_mws", "to_upper_max_s"]
        front = measures.pareto([{**point, "place": place} for place, point in enumerate(points)],
                                *keys)
        self.write("sweep/sweep.json", json.dumps(
            {"format": "corvid-sweep", "version": 1, "below": -75, "traces": list(traces),
             "settings": settings, "rows": rows, "points": points,
             "front": {"measures": keys, "points": [point["place"] for point in front]}}))
        return "sweep"

    @staticmethod
    def point(page):
        return page.run("document.querySelector('#point h2').textContent")

    def click(self, page, selector):
        page.run(f"document.querySelector({json.dumps(selector)})"
                 ".scrollIntoView({block: 'center'})")
        left, top, width, height = self.box(page, selector)
        page.click(left + width / 2, top + height / 2)

    def test_heat_map_and_front_have_every_point(self):
        page = self.open(self.page(self.sweep()))
        self.assertEqual(page.run("document.querySelectorAll('#heat button').length"), 6)
        self.assertEqual(page.run("document.querySelectorAll('#front circle').length"), 6)
        self.assert_quiet(page)

    def test_heat_map_and_front_fit_two_screens(self):
        path = self.page(self.sweep())
        for width in (1280, 2560):
            page = self.open(path, width=width, dark=width == 2560)
            self.assertLessEqual(page.run("document.documentElement.scrollWidth"), width)
            self.assertGreaterEqual(page.run(
                "Math.min(...[...document.querySelectorAll('.sweep text, .sweep td, .sweep th')]"
                ".map((one) => parseFloat(getComputedStyle(one).fontSize)))"), 12)
            self.assertGreater(self.box(page, "#front svg")[2], width * 0.4)
            self.assert_quiet(page)

    def test_each_point_leads_to_its_run(self):
        page = self.open(self.page(self.sweep()))
        self.click(page, "#heat [data-point='4']")
        self.assertTrue(self.point(page).startswith("Point 4"))
        self.assertEqual(page.run("location.hash"), "#point-4")
        chips = "[...document.querySelectorAll('.run .chip')].map((chip) => chip.textContent)"
        self.assertEqual(page.run(chips),
                         ["txpower.rssi.upper = -54", "txpower.rssi.lower = -70"])
        self.click(page, "#front [data-point='1'] circle")
        self.assertEqual(page.run(chips),
                         ["txpower.rssi.upper = -60", "txpower.rssi.lower = -75"])
        self.assertEqual(self.marks(page), [14])
        self.assert_quiet(page)

    def test_a_fragment_names_the_point(self):
        page = self.open(self.page(self.sweep()), "#point-3")
        self.assertTrue(self.point(page).startswith("Point 3"))

    def test_a_trace_can_be_looked_at_alone(self):
        page = self.open(self.page(self.sweep(("flat.jsonl", "stairs.jsonl"))))
        value = "Number(document.querySelector('#heat [data-point=\"0\"]').textContent)"
        both = page.run(value)
        self.assertEqual(page.run("document.querySelectorAll('.run').length"), 2)
        page.run("(() => { const list = document.querySelectorAll('#choice select')[1];"
                 "list.value = 'stairs.jsonl'; list.dispatchEvent(new Event('change')); })()")
        page.settle()
        self.assertAlmostEqual(page.run(value), both / 2, delta=1)
        self.assertEqual(page.run("document.querySelector('.run h2').textContent"), "stairs")
        self.assert_quiet(page)

    def test_of_three_settings_the_third_is_chosen(self):
        page = self.open(self.page(self.sweep(more=[("dbm.lower", ["3", "5"])])), "#point-0")
        points = ("[...document.querySelectorAll('#heat button')]"
                  ".map((button) => Number(button.dataset.point))")
        # Right is dbm.lower, down rssi.upper; the points have the first rssi.lower.
        self.assertEqual(sorted(page.run(points)), [0, 2, 4, 6, 8, 10])
        page.run("location.hash = 'point-1'")
        page.settle()
        self.assertEqual(sorted(page.run(points)), [1, 3, 5, 7, 9, 11])

    def test_a_setting_of_one_value_takes_no_side_of_the_heat_map(self):
        page = self.open(self.page(self.sweep(more=[("enable.sta", ["true"])])))
        self.assertEqual(page.run("document.querySelectorAll('#heat button').length"), 6)
        self.assertEqual(page.run("document.querySelectorAll('#choice select').length"), 1)

    def test_without_the_runs_it_says_how_to_make_one(self):
        page = self.open(self.page(self.sweep(keep=False)))
        self.assertIn("corvid-trace replay flat.jsonl --set txpower.rssi.upper=",
                      page.run("document.querySelector('#point code').textContent"))
        self.assertEqual(page.run("document.querySelectorAll('.run').length"), 0)
        self.assert_quiet(page)

    def test_shown_command_quotes_what_a_shell_would_take_apart(self):
        trace = "a walk $(of) Ann's.jsonl"
        page = self.open(self.page(self.sweep(traces=(trace,), keep=False)))
        shown = page.run("document.querySelector('#point code').textContent")
        self.assertEqual(shlex.split(shown)[2], trace)

    def test_only_so_many_runs_as_wanted_are_in_the_page(self):
        self.page(self.sweep(), "--runs", "2")
        data = self.data()
        self.assertEqual(len(data["runs"]), 2)
        for place, point in enumerate(data["sweep"]["points"]):
            if place in data["sweep"]["front"]["points"][:2]:
                self.assertEqual(len(point["runs"]), 1)

    def test_a_broken_sweep_is_named(self):
        self.write("s.json", json.dumps({"format": "corvid-sweep", "settings": {}}))
        self.assert_refused(self.run_command("report", "s.json", "-o", "p"), 1, "s.json:1: ")
        self.sweep()
        self.assert_refused(self.run_command("report", "sweep", "sweep", "-o", "p"), 2, "alone")


_PIXELS = """(() => {
  const canvas = document.querySelector('.signal canvas');
  return canvas.toDataURL();
})()"""

# The least contrast, as the accessibility guidelines count it, of text against its card.
_CONTRAST = """(() => {
  const light = (text) => {
    const parts = text.match(/[\\d.]+/g).slice(0, 3).map((part) => part / 255)
      .map((c) => c <= 0.03928 ? c / 12.92 : Math.pow((c + 0.055) / 1.055, 2.4));
    return 0.2126 * parts[0] + 0.7152 * parts[1] + 0.0722 * parts[2];
  };
  const card = light(getComputedStyle(document.querySelector('.run')).backgroundColor);
  const texts = document.querySelectorAll('.run h2, .label, .facts, .key, .dygraph-axis-label, td span');
  return Math.min(...[...texts].map((one) => {
    const ink = light(getComputedStyle(one).color);
    return (Math.max(ink, card) + 0.05) / (Math.min(ink, card) + 0.05);
  }));
})()"""


if __name__ == "__main__":
    unittest.main()
