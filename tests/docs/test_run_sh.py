"""run.sh reads its options itself, before anything is installed or built."""

import os
import re
import unittest

from newcomer import Checkout, SOURCE


class RunSh(unittest.TestCase):
    def setUp(self):
        self.checkout = Checkout()
        self.addCleanup(self.checkout.__exit__)

    def run_sh(self, words, **environment):
        return self.checkout.run("./run.sh " + words, **environment)

    def test_unknown_option_is_named(self):
        result = self.run_sh("--spede 2 x")
        self.assertEqual(result.returncode, 1)
        self.assertIn("there is no option --spede", result.stdout)
        self.assertIn("--speed", result.stdout)

    def test_option_without_its_value_is_named(self):
        result = self.run_sh("--speed")
        self.assertEqual((result.returncode, "--speed needs a value" in result.stdout), (1, True))

    def test_second_scenario_is_refused(self):
        result = self.run_sh("power-walk p2p-link")
        self.assertEqual(result.returncode, 1)
        self.assertIn("only one scenario can be played", result.stdout)

    def test_scenario_that_is_not_there_is_named(self):
        result = self.run_sh("power-wlak")
        self.assertEqual(result.returncode, 1)
        self.assertIn("there is no scenario power-wlak", result.stdout)

    def test_every_option_of_the_simulator_is_taken(self):
        help_text = self.checkout.run("build/bin/corvid-sim --help").stdout
        options = re.findall(r"^  (--[a-z-]+)( [A-Z]+)?", help_text, re.MULTILINE)
        self.assertGreater(len(options), 8)
        value = {"--root": "r", "--daemon": "/bin/true", "--record": "r.jsonl", "--speed": "2",
                 "--log": "D"}
        for option, has_value in options:
            if option == "--help":
                continue
            for form in ((f"{option} {value[option]}", f"{option}={value[option]}")
                         if has_value else (option,)):
                # The scenario that is not there ends it, or there is none to be played.
                result = self.run_sh(form + " nowhere")
                self.assertNotIn("there is no option", result.stdout, form)
                self.assertRegex(result.stdout, "there is no scenario nowhere|is not played", form)

    def test_list_has_whole_sentences(self):
        lines = self.run_sh("--list").stdout.splitlines()
        folder = os.path.join(SOURCE, "sim", "scenarios")
        names = sorted(name[:-4] for name in os.listdir(folder))
        self.assertEqual([line.split(":")[0] for line in lines], names)
        for line in lines:
            self.assertRegex(line, r"^[a-z0-9-]+: [A-Z].*[.!?]$")

    def test_log_tags_of_the_caller_show_more(self):
        words = "--plain --no-dump --speed 2 power-group"
        less = self.run_sh(words, ANDROID_LOG_TAGS="").stdout
        more = self.run_sh(words, ANDROID_LOG_TAGS="CorvidWifi:V").stdout
        self.assertNotIn("log I ", less)
        self.assertIn("log I ", more)
        self.assertIn("\n8 expectations met\n", more)

    def test_play_ends_with_its_report(self):
        words = "--plain --no-dump --speed 2 power-group"
        result = self.run_sh(f"{words} --report page.html")
        self.assertEqual(result.returncode, 0, result.stdout)
        page = os.path.join(self.checkout.path, "page.html")
        self.assertEqual(result.stdout.splitlines()[-1], f"Report: {page}")
        with open(page, encoding="utf-8") as file:
            self.assertIn("DRIVER SET_TXPOWER", file.read())
        again = self.run_sh(f"{words} --report page.html")
        self.assertEqual((again.returncode, again.stdout), (1, f"run.sh: {page} is there already\n"))
        self.assertNotIn("Report:", self.run_sh(f"{words} --no-report").stdout)

    def test_report_that_another_play_has_made_meanwhile_is_written_over(self):
        name = os.path.basename(self.checkout.path)  # the folder of reports is shared
        page = os.path.join(self.checkout.path, f"build/reports/{name}.html")
        self.addCleanup(lambda: os.path.exists(page) and os.remove(page))
        # The signal comes long before the scenario's end.
        script = f"""
            cp sim/scenarios/power-walk.scn {name}.scn
            ./run.sh --plain --no-dump {name}.scn >said 2>&1 &
            until grep -q SET_TXPOWER said; do sleep 0.05; done
            echo another >build/reports/{name}.html
            kill %1
            wait
            cat said build/reports/{name}.html"""
        said = self.checkout.run(script).stdout
        self.assertIn(f"\nReport: build/reports/{name}.html\n<!", said)

    def test_signal_ends_the_play(self):
        # When the daemon has been told its first power, and long before the scenario's end.
        script = """
            ./run.sh --plain --no-dump --report page.html power-walk >said &
            until grep -q SET_TXPOWER said; do sleep 0.05; done
            kill %1
            wait
            cat said"""
        said = self.checkout.run(script).stdout
        self.assertIn("\nReport: ", said)
        self.assertNotIn("and comes back", said)
        self.assertNotIn("expectations met", said)

    def test_paths_are_the_callers(self):
        result = self.checkout.run("mkdir here && cd here && ../run.sh --plain --no-dump "
                                   "--speed 2 --record r.jsonl ../sim/scenarios/kernel-trouble.scn")
        self.assertEqual(result.returncode, 0, result.stdout)
        self.assertTrue(os.path.exists(os.path.join(self.checkout.path, "here", "r.jsonl")))


if __name__ == "__main__":
    unittest.main()
