"""report.sh --against: the comparison of two builds' tables, and the script around it."""

import os
import shutil
import signal
import subprocess
import sys
import tempfile
import unittest

import against

HERE = os.path.dirname(os.path.abspath(__file__))

TABLE = """\
                                                             ratio  target
Poll, 1 ready / bare epoll loop                              {poll:.3f}    1.06  ok   439 ns against 422 ns
At rest, wake-ups in 10 s                                    0.000    0.00  ok
At rest, PSS / idle wpa_supplicant                               -       -  not measured: does not run here
Start to attached monitor / C program, less the wait         2.133       -       2.7 ms against 1.3 ms
"""

# What stands for cmake: "builds" programs that print their tree's table, and note that they ran.
CMAKE = """\
#!/bin/sh
[ "$1" = -S ] || exit 0
[ ! -e "$2/does-not-build" ] || { echo "error: no such thing"; exit 1; }
if [ -e "$2/hangs" ]; then
    exec 3>"$BUILDING"
    echo building >&3
    sleep 1000 &
    wait
fi
mkdir -p "$2/build-benchmark/bin"
cat >"$2/build-benchmark/bin/corvid_benchmarks" <<END
#!/bin/sh
echo $(cat "$2/name") "\\$*" >>"$ORDER"
cat "$2/table"
END
cp /bin/true "$2/build-benchmark/bin/nl80211_benchmark"
chmod +x "$2/build-benchmark/bin/corvid_benchmarks"
"""


def row(before, after):
    """A row of these ratios, a round each."""
    return against.compare([{"row": ratio} for ratio in before], [{"row": ratio} for ratio in after])[0]


class Tables(unittest.TestCase):
    def test_rows_are_read_with_and_without_target(self):
        self.assertEqual(against.ratios(TABLE.format(poll=1.04)), {
            "Poll, 1 ready / bare epoll loop": 1.04,
            "At rest, wake-ups in 10 s": 0.0,
            "At rest, PSS / idle wpa_supplicant": None,
            "Start to attached monitor / C program, less the wait": 2.133})

    def test_row_whose_name_fills_its_column_is_read(self):
        name = "n" * 70
        self.assertEqual(against.ratios(f"{name}   1.000    2.00  ok\n"), {name: 1.0})


class Comparison(unittest.TestCase):
    def test_row_that_is_slower_in_each_of_8_rounds_is_worse(self):
        self.assertEqual(row([1.0] * 8, [1.01] * 8).verdict, "worse")

    def test_row_that_is_faster_in_each_of_8_rounds_is_better(self):
        self.assertEqual(row([1.0] * 8, [0.99] * 8).verdict, "better")

    def test_row_that_disagrees_in_one_of_8_rounds_is_noise(self):
        self.assertEqual(row([1.0] * 8, [1.5] * 7 + [0.99]).verdict, "")

    def test_row_that_disagrees_in_one_of_12_rounds_is_marked(self):
        self.assertEqual(row([1.0] * 12, [1.5] * 11 + [0.99]).verdict, "worse")

    def test_7_rounds_are_too_few_to_mark(self):
        self.assertEqual(row([1.0] * 7, [2.0] * 7).verdict, "")

    def test_equal_rounds_dont_count(self):
        self.assertEqual(row([1.0] * 9, [1.1] * 8 + [1.0]).verdict, "worse")
        self.assertEqual(row([1.0] * 8, [1.1] * 7 + [1.0]).verdict, "")

    def test_noise_is_of_the_rounds_pairs_not_of_the_sides(self):
        # A machine that gets busier from round to round, and a change of 1 % in each.
        before = [1.0, 1.1, 1.2, 1.3, 1.4, 1.5, 1.6, 1.7]
        self.assertEqual(row(before, [ratio * 1.01 for ratio in before]).verdict, "worse")

    def test_zero_that_stays_zero_is_unchanged(self):
        unchanged = row([0.0] * 8, [0.0] * 8)
        self.assertEqual((unchanged.quotients[0], unchanged.verdict), (1.0, ""))

    def test_zero_that_becomes_something_is_worse(self):
        changed = row([0.0] * 8, [2.0] * 8)
        self.assertEqual(changed.verdict, "worse")
        self.assertIn("inf", changed.line())

    def test_row_of_one_side_is_shown_and_no_failure(self):
        added, gone = against.compare([{"gone": 1.0}], [{"added": 2.0}])
        self.assertEqual((added.name, added.verdict, added.fails()), ("added", "new", False))
        self.assertEqual((gone.name, gone.verdict, gone.fails()), ("gone", "gone", False))

    def test_row_that_could_not_be_measured_once_is_a_failure(self):
        lost = row([1.0, None], [1.0, 1.0])
        self.assertEqual((lost.verdict, lost.fails()), ("not measured before", True))
        lost = row([1.0, 1.0], [None, 1.0])
        self.assertEqual((lost.verdict, lost.fails()), ("not measured after", True))

    def test_line_has_medians_and_the_quartiles_of_the_quotients(self):
        line = row([1.0] * 5, [1.1, 1.2, 1.3, 1.4, 1.5]).line()
        self.assertEqual(line.split(), ["row", "1.000", "1.300", "1.300", "1.200", "to", "1.400"])


class Script(unittest.TestCase):
    """report.sh in a repository of its own, with a cmake that builds nothing."""

    def setUp(self):
        self.holder = tempfile.mkdtemp()
        self.addCleanup(shutil.rmtree, self.holder)
        self.tree = os.path.join(self.holder, "repository")
        benchmarks = os.path.join(self.tree, "tests", "benchmarks")
        os.makedirs(benchmarks)
        for name in ("report.sh", "against.py"):
            shutil.copy(os.path.join(HERE, name), benchmarks)
        programs = os.path.join(self.holder, "programs")
        os.mkdir(programs)
        self.write(os.path.join(programs, "cmake"), CMAKE)
        os.chmod(os.path.join(programs, "cmake"), 0o755)
        self.temporary = os.path.join(self.holder, "temporary")
        os.mkdir(self.temporary)
        self.order = os.path.join(self.holder, "order")
        self.environment = {
            "PATH": programs + ":" + os.environ["PATH"], "TMPDIR": self.temporary, "ORDER": self.order,
            "HOME": self.holder, "BUILDING": os.path.join(self.holder, "building"),
            **{f"GIT_{who}_{what}": "name" for who in ("AUTHOR", "COMMITTER")
               for what in ("NAME", "EMAIL")}}
        self.git("init", "--quiet")
        self.write(os.path.join(self.tree, ".gitignore"), "build-benchmark\n")
        self.commit("before", poll=1.0)
        self.commit("after", poll=1.2)

    def write(self, path, text):
        with open(path, "w", encoding="utf-8") as file:
            file.write(text)

    def git(self, *words):
        return subprocess.run(["git", *words], cwd=self.tree, env=self.environment, check=True,
                              stdout=subprocess.PIPE, text=True).stdout

    def commit(self, name, poll, **files):
        self.write(os.path.join(self.tree, "name"), name + "\n")
        self.write(os.path.join(self.tree, "table"), TABLE.format(poll=poll))
        for file in files.values():
            self.write(os.path.join(self.tree, file), "")
        self.git("add", ".")
        self.git("commit", "--quiet", "-m", f"{name} it")

    def report(self, *words):
        return subprocess.run([os.path.join(self.tree, "tests", "benchmarks", "report.sh"), *words],
                              env=self.environment, stdout=subprocess.PIPE, stderr=subprocess.PIPE,
                              text=True, check=False)

    def assert_nothing_is_left(self):
        self.assertEqual(os.listdir(self.temporary), [])
        self.assertEqual(len(self.git("worktree", "list").splitlines()), 1)

    def test_both_sides_are_run_in_turns_and_compared(self):
        result = self.report("--against", "HEAD~1", "--rounds", "8", "--benchmark_min_time=3")
        self.assertRegex(result.stdout, r"(?m)^Poll, .* 1\.000   1\.200   1\.200  1\.200 to 1\.200 +worse$")
        self.assertRegex(result.stdout, r"(?m)^before: \w+ before it$")
        self.assertRegex(result.stdout, r"(?m)^after:  \w+ after it$")
        self.assertEqual(result.returncode, 1)
        with open(self.order, encoding="utf-8") as file:
            order = file.read().splitlines()
        self.assertEqual([line.split()[0] for line in order], ["before", "after", "after", "before"] * 4)
        self.assertEqual(set(line.split(" ", 1)[1] for line in order), {"--table --benchmark_min_time=3"})
        self.assert_nothing_is_left()

    def test_changed_tree_is_run_as_it_stands_and_named(self):
        table = TABLE.format(poll=0.5).replace("       -       -  not measured", "   1.000       -")
        self.write(os.path.join(self.tree, "table"), table)
        self.git("commit", "--quiet", "-am", "faster")
        self.write(os.path.join(self.tree, "table"), table.replace("0.500", "0.250"))
        result = self.report("--against", "HEAD", "--rounds", "8")
        self.assertIn("faster and what is not committed: 1 files\n", result.stdout)
        self.assertRegex(result.stdout, r"(?m)^Poll, .* 0\.500   0\.250   0\.500 .* better$")
        self.assertEqual(result.returncode, 0, result.stdout)

    def test_commit_that_is_none_is_an_error_that_names_it(self):
        result = self.report("--against", "no-such")
        self.assertEqual((result.returncode, result.stderr), (2, "report.sh: there is no commit no-such\n"))
        self.assert_nothing_is_left()

    def test_commit_that_does_not_build_is_an_error_with_the_builds_last_words(self):
        self.commit("broken", 1.0, file="does-not-build")
        result = self.report("--against", "HEAD")
        self.assertEqual(result.returncode, 2)
        self.assertRegex(result.stderr, r"error: no such thing\n.*broken it could not be built\n")
        self.assert_nothing_is_left()

    def test_wrong_arguments_are_refused(self):
        for words, reason in ((["--against"], "--against needs a value"),
                              (["--against", "HEAD", "--rounds", "0"], "--rounds is '0'"),
                              (["--against", "HEAD", "--rounds", "many"], "--rounds is 'many'"),
                              (["--agains", "HEAD"], "there is no option --agains")):
            result = self.report(*words)
            self.assertEqual(result.returncode, 2, words)
            self.assertIn(reason, result.stderr)

    def test_interrupted_while_it_builds_it_leaves_nothing(self):
        self.commit("slow", 1.0, file="hangs")
        os.mkfifo(self.environment["BUILDING"])
        for how, status in ((signal.SIGINT, 130), (signal.SIGTERM, 143)):
            script = [os.path.join(self.tree, "tests", "benchmarks", "report.sh"), "--against", "HEAD"]
            with subprocess.Popen(script, env=self.environment, stdout=subprocess.DEVNULL,
                                  stderr=subprocess.DEVNULL, start_new_session=True) as process:
                with open(self.environment["BUILDING"], encoding="utf-8") as building:
                    building.readline()
                    process.send_signal(how)
                    self.assertEqual(process.wait(), status)
                    building.read()  # until the last process of the build has ended
            self.assert_nothing_is_left()


if __name__ == "__main__":
    sys.exit(unittest.main())
