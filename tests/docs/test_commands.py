"""Every command that a document shows in a block of its own does what the text beside it promises.

A block is a run of lines indented by four blanks. Its commands begin with one of PROGRAMS; what stands
behind two blanks or a # is explanation. Each must be named in CHECKS, with what shows that it is
true, and each check must have its command.
"""

import os
import re
import subprocess
import unittest

from newcomer import BUILD, Checkout, SOURCE

PROGRAMS = ("./run.sh", "./test.sh", "build/bin/", "corvid-", "cmake", "ninja", "ctest", "lab/lab.sh",
            "tests/", "trace/", "timeout ", "export ", "mkdir ", "man ", "dpkg ", "sudo ", "apt")


def documents():
    for folder, subfolders, names in os.walk(SOURCE):
        subfolders[:] = [name for name in subfolders
                         if not name.startswith((".", "build")) and name != "__pycache__"]
        for name in names:
            if name.endswith(".md"):
                yield os.path.relpath(os.path.join(folder, name), SOURCE)


def blocks(path):
    """The blocks of a document: each a list of lines without their indentation."""
    with open(os.path.join(SOURCE, path), encoding="utf-8") as file:
        lines = file.read().split("\n")
    block = []
    for index, line in enumerate(lines + ["end"]):
        continues = not line and block and index + 1 < len(lines) and lines[index + 1][:4] == "    "
        if line.startswith("    ") or continues:
            block.append(line[4:])
        elif block:
            yield block
            block = []


def command_of(line):
    """The command that a line of a block is, or None."""
    if not line.startswith(PROGRAMS) or line.split()[0].endswith(":"):
        return None  # a program's message begins with its name too
    return re.split(r"\s{2,}|\s#", line)[0].strip()


def shown_commands():
    return [(path, command) for path in sorted(documents()) for block in blocks(path)
            for command in map(command_of, block) if command]


def timeline_lines(text):
    """(time, words) of each line of a timeline."""
    found = []
    for line in text.splitlines():
        match = re.match(r"\s*(\d+\.\d{3})  (.*)", line)
        if match:
            found.append((float(match[1]), " ".join(match[2].split())))
    return found


def same_line(shown, played):
    """Whether two lines are the same but for 2 dB of the signal."""
    signal = re.compile(r"RSSI=(-?\d+)")
    if signal.sub("", shown) != signal.sub("", played):
        return False
    return all(abs(int(one) - int(other)) <= 2
               for one, other in zip(signal.findall(shown), signal.findall(played)))


class Commands(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.checkout = Checkout()

    @classmethod
    def tearDownClass(cls):
        cls.checkout.__exit__()

    def run_well(self, command, **environment):
        result = self.checkout.run(command, **environment)
        self.assertEqual(result.returncode, 0, result.stdout)
        return result.stdout

    def test_every_command_is_checked_and_every_check_is_used(self):
        shown = {command for _, command in shown_commands()}
        self.assertGreater(len(shown), 15)
        self.assertEqual(sorted(shown - set(CHECKS)), [], "shown in a document, checked by nobody")
        self.assertEqual(sorted(set(CHECKS) - shown), [], "checked, shown nowhere")

    def test_run_sh_plays_what_the_readme_shows(self):
        shown = [line for block in blocks("README.md") for line in timeline_lines("\n".join(block))]
        self.assertGreater(len(shown), 30)
        played = timeline_lines(self.run_well("./run.sh --plain"))
        # The README leaves lines out, and changes none. A busy machine makes them late, and a signal
        # that rises or falls is another one by then.
        position = 0
        for time, words in shown:
            found = next((place for place in range(position, len(played))
                          if same_line(words, played[place][1])), None)
            self.assertIsNotNone(found, f"{time} {words} is not played behind the line before")
            self.assertLess(abs(played[found][0] - time), 1.5, words)
            position = found + 1

    def test_run_sh_ends_with_the_expectations(self):
        output = self.run_well("./run.sh --speed 5 --plain power-walk")
        self.assertIn("\n7 expectations met\n", output)
        self.assertIn("TxPowerManager", output.partition("scenario               end\n")[2], "the dump")

    def test_talking_to_a_running_daemon_gives_what_the_readme_shows(self):
        block = next(block for block in blocks("README.md") if any("talk" in line for line in block))
        root = os.path.join(self.checkout.path, "headset")
        script = "\n".join(line for line in block if command_of(line))
        script = script.replace("/tmp/headset", root).replace("/tmp/timeline", root + ".timeline")
        result = self.checkout.run(script + "\nkill %1\nwait")
        promised = [line for line in block if line.startswith("{")]
        self.assertEqual(len(promised), 3)
        position = 0
        for line in promised:
            self.assertIn(line + "\n", result.stdout[position:])
            position = result.stdout.index(line + "\n", position)
        self.assertIn("startCsa CHANNEL BANDWIDTH\n", result.stdout)
        self.assertNotIn("corvid-wifi:", result.stdout, "a complaint of the client")

    def test_simulator_plays_the_readmes_command(self):
        command = next(command for _, command in shown_commands()
                       if command.startswith("corvid-sim --daemon"))
        output = self.run_well(f"PATH=$PWD/build/bin:$PATH {command} --plain --speed 5")
        self.assertIn("expectations met\n", output)

    def test_ninja_and_ctest_find_what_is_named(self):
        for command in ("ninja -C build", "ninja -C build managers_test"):
            self.run_well(command.replace("-C build", "-n -C build"))
        for command in ("ctest --test-dir build -j4 -R TxPower", "ctest --test-dir build -j8 -R TxPower"):
            output = self.run_well(command + " -N")
            self.assertIn("TxPowerManagerTest.", output)
        presets = self.run_well("cmake --list-presets")
        self.assertIn('"gcc"', presets)
        self.run_well("build/bin/managers_test --gtest_filter='TxPowerManagerTest.*' "
                      "--gtest_list_tests | grep -q TxPowerManagerTest")

    def test_ctest_alone_fails_where_a_program_is_not_built(self):
        # The same rule for each test program: it is in the file that ctest reads.
        folder = os.path.join(BUILD, "tests", "managers")
        with open(os.path.join(folder, "managers_test_not_built.cmake"), encoding="utf-8") as file:
            rule = file.read()
        self.assertIn("TxPowerManagerTest.IsNotBuilt", rule)

    def test_lab_has_the_words_that_its_readme_names(self):
        usage = self.run_well("lab/lab.sh help")
        for command in (command for _, command in shown_commands() if command.startswith("lab/")):
            self.assertIn("lab/lab.sh " + command.split()[1], usage)
        self.assertRegex(self.run_well("lab/lab.sh list"), r"(?m)^power-walk\t")

    def test_field_guide_shows_what_status_says(self):
        def pattern(line):
            # Numbers and folders are of one run.
            line = re.sub(r"behind \S*?/data/", "behind /data/", line.replace("trouble", "").strip())
            return re.sub(r"\d+(\.\d+)?", "N", line)

        with open(os.path.join(SOURCE, "docs", "field-guide.md"), encoding="utf-8") as file:
            guide = file.read()
        shown = [pattern(line) for line in re.findall(r"(?m)^    (?:trouble   |          )(.*)", guide)]
        self.assertEqual(len(shown), 8)
        said = set()
        for name in sorted(os.listdir(os.path.join(SOURCE, "sim", "scenarios"))):
            if name.startswith("broken-"):
                output = self.run_well(f"./run.sh --plain --no-dump --speed 3 {name[:-4]}")
                trouble = re.search(r"(?m)^trouble   .*\n(          .*\n)*", output)
                said.update(pattern(line) for line in trouble[0].splitlines())
        for line in shown:
            self.assertIn(line, said)

    def test_field_guides_commands_answer(self):
        root = os.path.join(self.checkout.path, "field")
        words = [command for path, command in shown_commands()
                 if path == "docs/field-guide.md" and command.startswith("corvid-wifi ")]
        self.assertGreater(len(words), 4)
        asked = "; ".join(
            f"echo ASKED {word}; timeout -s INT 2 build/bin/{word}; echo STATUS $?" for word in words)
        result = self.checkout.run(
            f"./run.sh --root {root} talk >/dev/null & export CORVID_WIFI_ROOT={root}; "
            f"build/bin/corvid-wifi --wait status >/dev/null; sleep 1; {asked}; kill %1; wait")
        statuses = re.findall(r"(?m)^STATUS (\d+)", result.stdout)
        # Those that go on until Ctrl-C get one.
        self.assertEqual([s for s in statuses if s not in ("0", "124")], [], result.stdout)
        self.assertIn("link      5180 MHz", result.stdout)
        self.assertIn("{\"event\":\"registered\",\"time\":", result.stdout)
        self.assertIn("persist.vendor.wifi.txpower.enable.sta", result.stdout)
        self.assertIn("written: corvid-wifi-", result.stdout)

    def test_debug_takes_what_its_usage_names(self):
        self.assertIn("\n  debug [NAME ...] ", self.run_well("build/bin/corvid-wifi --help"))
        # Wrong words are refused before the service is looked for; these are not.
        result = self.checkout.run("build/bin/corvid-wifi debug sockets netlink --json",
                                   CORVID_WIFI_ROOT=self.checkout.path)
        self.assertEqual(result.returncode, 3, result.stdout)

    def test_test_sh_takes_the_options_that_are_named(self):
        usage = self.run_well("./test.sh --help")
        for option in ("--all", "-R", "-L"):
            self.assertIn("  " + option, usage)


# What shows that a command does what the document says: a test above, or another one of the suite.
_PLAYED = Commands.test_run_sh_plays_what_the_readme_shows
_TALK = Commands.test_talking_to_a_running_daemon_gives_what_the_readme_shows
_BUILD = Commands.test_ninja_and_ctest_find_what_is_named
_LAB = Commands.test_lab_has_the_words_that_its_readme_names
_FIELD = Commands.test_field_guides_commands_answer
_MUTANTS = "structure.MutantsScriptWorks"
_TUNING = "trace.guest_tuning, in the virtual machine"
_REPLAY = "trace.guest_replay, in the virtual machine"
_SWEEP = "trace.guest_sweep, in the virtual machine"
CHECKS = {
    "./run.sh": _PLAYED,
    "./test.sh": Commands.test_test_sh_takes_the_options_that_are_named,
    "./run.sh --root /tmp/headset talk >/tmp/timeline &": _TALK,
    "export CORVID_WIFI_ROOT=/tmp/headset": _TALK,
    "build/bin/corvid-wifi --wait dump": _TALK,
    "build/bin/corvid-wifi call --list": _TALK,
    "build/bin/corvid-wifi call startCsa 149 80": _TALK,
    "timeout 12 build/bin/corvid-wifi monitor": _TALK,
    "corvid-sim --daemon build/bin/vendor.corvid.hardware.wifi@1.0-service "
    "sim/scenarios/first-steps.scn": Commands.test_simulator_plays_the_readmes_command,
    "cmake --preset gcc && ninja -C build": _BUILD,
    "cmake --preset gcc": _BUILD,
    "ctest --test-dir build -j4 -R TxPower": _BUILD,
    "ctest --test-dir build -j8 -R TxPower": _BUILD,
    "ninja -C build managers_test": _BUILD,
    "build/bin/managers_test --gtest_filter='TxPowerManagerTest.*'": _BUILD,
    "tests/benchmarks/report.sh": "its programs: benchmarks",
    "tests/benchmarks/report.sh --against main": "benchmarks.against",
    "corvid-trace replay two-rooms.jsonl -o now.result": _TUNING,
    "corvid-trace replay two-rooms.jsonl --set txpower.rssi.lower=-74 -o lower-74.result": _TUNING,
    "corvid-trace plot now.result": _TUNING,
    "corvid-trace compare --below -70 now.result lower-74.result": _TUNING,
    "corvid-trace report now.result lower-74.result -o two.html": _TUNING,
    "corvid-trace perfetto lower-74.result -o lower-74.json": _TUNING,
    "corvid-trace sweep two-rooms.jsonl stairway.jsonl --below -70 --keep-results \\": _TUNING,
    "corvid-trace report sweep -o sweep.html": _TUNING,
    "corvid-trace replay walk.jsonl -o now.result": _REPLAY,
    "corvid-trace replay walk.jsonl --set txpower.rssi.upper=-57 -o warm.result": _REPLAY,
    "corvid-trace compare now.result warm.result": "trace.compare",
    "corvid-trace sweep walk.jsonl --set txpower.rssi.upper=-60:-50:1 --set dbm.lower=3,5,7 "
    "-o sweep": _SWEEP,
    "corvid-trace sweep fleet/*.jsonl --set rssi.lower=-75:-65 -o sweep --jobs-file jobs": _SWEEP,
    "corvid-trace merge sweep -o sweep": _SWEEP,
    "corvid-trace import hour.csv -o hour.jsonl": "trace.import",
    "corvid-wifi debug [NAME ...] [--json]": Commands.test_debug_takes_what_its_usage_names,
    "corvid-wifi status": _FIELD,
    "corvid-wifi watch": _FIELD,
    "corvid-wifi history": _FIELD,
    "corvid-wifi monitor --all --timestamps": _FIELD,
    "corvid-wifi props txpower": _FIELD,
    "corvid-wifi bugreport --anonymize": _FIELD,
    "lab/lab.sh build": _LAB,
    "lab/lab.sh play FILE": _LAB,
    "lab/lab.sh test": _LAB,
    "lab/lab.sh test power-walk": _LAB,
    "lab/lab.sh soak 24h": _LAB,
    "lab/lab.sh day": _LAB,
    "tests/benchmarks/growth.py": "benchmarks.growth",
    "lab/lab.sh shell": _LAB,
    "lab/lab.sh log power-walk": _LAB,
    "tests/mutants/mutants.py": _MUTANTS,
    "tests/mutants/mutants.py --only TxPower": _MUTANTS,
    "tests/mutants/mutants.py --list": _MUTANTS,
    "tests/mutants/mutants.py --results now.json --compare before.json": _MUTANTS,
}


if __name__ == "__main__":
    unittest.main()
