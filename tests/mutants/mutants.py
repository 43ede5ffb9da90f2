#!/usr/bin/env python3
"""Changes the daemon one place at a time and sees whether a test notices. README.md says how."""

import argparse
import contextlib
import datetime
import glob
import json
import os
import re
import shlex
import shutil
import signal
import subprocess
import sys
import time
import tomllib

HERE = os.path.dirname(os.path.abspath(__file__))
ROOT = os.path.dirname(os.path.dirname(HERE))

# What may stand in the list: of a mutant, and of another place in which its code may be.
PLACE_KEYS = {"file", "files", "in", "find", "regex", "replace"}
MUTANT_KEYS = PLACE_KEYS | {"name", "compiler", "or"}
REQUIRED_KEYS = ("name", "find|regex", "replace", "file|files")

KILLED = "killed"
KILLED_BY_COMPILER = "killed by the compiler"
SURVIVED = "survived"
DOES_NOT_BUILD = "does not build"
DOES_NOT_APPLY = "does not apply"
OUTCOMES = (KILLED, KILLED_BY_COMPILER, SURVIVED, DOES_NOT_BUILD, DOES_NOT_APPLY)


# A line of ctest; what is skipped has another word there.
FAILED_TEST = re.compile(r"Test\s+#\d+: (\S+) \.*\s*\*\*\*(Failed|Timeout|Exception|Not Run)")


class UsageError(Exception):
    """What the caller can mend: an option, the list, a tree that does not pass its own tests."""


# The list


def read_list(path):
    """The mutants of a list, checked, and which tests belong to which folder of sources."""
    try:
        with open(path, "rb") as file:
            content = tomllib.load(file)
    except (OSError, tomllib.TOMLDecodeError) as error:
        raise UsageError(f"{path}: {error}") from error
    unknown = set(content) - {"tests", "mutant"}
    if unknown:
        raise UsageError(f"{path}: unknown {', '.join(sorted(unknown))}")
    tests = content.get("tests", {})
    mutants = content.get("mutant", [])
    if not mutants:
        raise UsageError(f"{path}: there are no mutants")
    names = set()
    for number, mutant in enumerate(mutants, 1):
        where = f"{path}: mutant {number} ({mutant.get('name', 'without a name')})"
        check_keys(where, mutant, MUTANT_KEYS)
        if mutant.get("name") in names:
            raise UsageError(f"{where}: the name is taken")
        names.add(mutant.get("name"))
        for place in places_of(mutant):
            check_keys(where, place, MUTANT_KEYS)
            check_place(where, place, tests)
    return mutants, tests


def check_keys(where, table, allowed):
    unknown = set(table) - allowed
    if unknown:
        raise UsageError(f"{where}: unknown {', '.join(sorted(unknown))}")


def check_place(where, place, tests):
    for required in REQUIRED_KEYS:
        if sum(key in place for key in required.split("|")) != 1:
            raise UsageError(f"{where}: needs {required.replace('|', ' or ')}, one of them")
    for file in files_of(place):
        if folder_of(file) not in tests:
            raise UsageError(f"{where}: no tests are given for the folder of {file}")
    try:
        pattern_of(place)
    except re.error as error:
        raise UsageError(f"{where}: {error}") from error


def places_of(mutant):
    """Where the mutant may be applied: as the list has it, then its other places in turn. Another
    place has what it does not say from the first."""
    first = {key: value for key, value in mutant.items() if key != "or"}
    found = [first]
    for other in mutant.get("or", []):
        place = dict(first)
        for either, instead in (("file", "files"), ("files", "file"), ("find", "regex"),
                                ("regex", "find")):
            if either in other:
                place.pop(instead, None)
        place.update(other)
        found.append(place)
    return found


def files_of(place):
    return place["files"] if "files" in place else [place["file"]]


def existing_files(tree, place):
    """The files of a place that are there: each name in the list may be a pattern."""
    found = set()
    for pattern in files_of(place):
        found.update(glob.glob(pattern, root_dir=tree))
    return sorted(found)


def folder_of(path):
    return path.split("/")[0]


def pattern_of(place):
    """`find` is a text whose white space may be any; `regex` is what it says."""
    if "regex" in place:
        return re.compile(place["regex"], re.MULTILINE)
    return re.compile(r"\s+".join(re.escape(word) for word in place["find"].split()))


# Applying


def region_of(text, start):
    """Where to look: the whole file, or from the first place of `start` to the next line that
    begins with a closing brace and has the indentation of the line where `start` is."""
    if start is None:
        return 0, len(text)
    words = r"\s+".join(re.escape(word) for word in start.split())
    found = re.search(words, text)
    if found is None:
        return None
    line = text.rfind("\n", 0, found.start()) + 1
    indentation = re.match(r"[ ]*", text[line:]).group()
    end = re.compile(rf"^{indentation}\}}", re.MULTILINE).search(text, found.end())
    return found.start(), end.end() if end else len(text)


def apply(tree, mutant):
    """The path, the text before and the text after; None where no place fits, or not once only."""
    for place in places_of(mutant):
        pattern = pattern_of(place)
        found = []
        for path in existing_files(tree, place):
            with open(os.path.join(tree, path), encoding="utf-8") as file:
                text = file.read()
            region = region_of(text, place.get("in"))
            if region is not None:
                found += [(path, text, match)
                          for match in pattern.finditer(text, region[0], region[1])]
        if len(found) == 1:
            path, text, match = found[0]
            new = match.expand(place["replace"]) if "regex" in place else place["replace"]
            after = text[:match.start()] + new + text[match.end():]
            if after != text:
                return path, text, after
    return None


# The copy and its build


def run(command, **options):
    return subprocess.run(command, text=True, errors="replace", stdin=subprocess.DEVNULL,
                          stdout=subprocess.PIPE, stderr=subprocess.STDOUT, check=False, **options)


def copy_tree(source, copy):
    """Brings the copy up to date. A file that has not changed keeps its time, so that it is not
    compiled again."""
    listed = subprocess.run(["git", "-C", source, "ls-files", "-z", "--cached", "--others",
                             "--exclude-standard"], capture_output=True, check=False)
    if listed.returncode != 0:
        raise UsageError(f"{source} is no git checkout")
    wanted = {os.fsdecode(path) for path in listed.stdout.split(b"\0") if path}
    wanted = {path for path in wanted if os.path.isfile(os.path.join(source, path))}
    for folder, _, names in os.walk(copy):
        for name in names:
            path = os.path.join(folder, name)
            if os.path.relpath(path, copy) not in wanted:
                os.remove(path)
    for path in wanted:
        write_file(os.path.join(copy, path), read_bytes(os.path.join(source, path)))
        shutil.copymode(os.path.join(source, path), os.path.join(copy, path))


def read_bytes(path):
    try:
        with open(path, "rb") as file:
            return file.read()
    except FileNotFoundError:
        return None


def write_file(path, content):
    if read_bytes(path) != content:
        os.makedirs(os.path.dirname(path), exist_ok=True)
        with open(path, "wb") as file:
            file.write(content)


class Build:
    """A build of the copy by gcc, without optimization: quick to compile."""

    def __init__(self, folder, jobs):
        self.tree = os.path.join(folder, "tree")
        self.path = os.path.join(folder, "build")
        self.jobs = jobs
        self.targets = set()

    def configure(self):
        result = run(["cmake", "-G", "Ninja", "-S", self.tree, "-B", self.path,
                      "-DCMAKE_BUILD_TYPE=Debug", "-DCMAKE_CXX_FLAGS_DEBUG=",
                      "-DCMAKE_C_FLAGS_DEBUG=", "-DCORVID_WERROR=OFF"])
        if result.returncode != 0:
            raise UsageError(f"cmake fails:\n{result.stdout}")
        listed = run(["ninja", "-C", self.path, "-t", "targets", "all"])
        self.targets = {line.partition(":")[0] for line in listed.stdout.splitlines()}

    def make(self, suite):
        """What a suite of tests needs. Returns what the compiler says when it fails, else None."""
        target = f"tests/{suite}/all"
        if target not in self.targets:
            raise UsageError(f"there are no tests in tests/{suite}")
        result = run(["ninja", "-C", self.path, "-j", str(self.jobs), target])
        return None if result.returncode == 0 else result.stdout

    def test(self, suite, subject):
        """The first test that fails, or None: first those whose names begin with the subject's,
        then the others. Tests that fail beside others but not alone count as passed: on a busy
        machine some do."""
        for choice in (["-R", f"^{subject}"], ["-E", f"^{subject}"]):
            failed = self.first_failure(suite, choice)
            if failed is not None:
                return failed
        return None

    def first_failure(self, suite, choice):
        """Runs chosen tests of a suite until one fails."""
        folder = os.path.join(self.path, "tests", suite)
        command = ["ctest", "--test-dir", folder, "-j", str(max(8, 4 * self.jobs)), *choice]
        process = subprocess.Popen(command, text=True, errors="replace", stdin=subprocess.DEVNULL,
                                   stdout=subprocess.PIPE, stderr=subprocess.STDOUT,
                                   start_new_session=True)
        try:
            for line in process.stdout:
                found = FAILED_TEST.search(line)
                if found and (found[2] == "Timeout" or self.fails_alone(folder, found[1])):
                    return found[1]
            return None
        finally:
            with contextlib.suppress(ProcessLookupError):
                os.killpg(process.pid, signal.SIGKILL)
            process.wait()
            self.end_leftovers()

    @staticmethod
    def fails_alone(folder, name):
        shown = run(["ctest", "--test-dir", folder, "--show-only=json-v1",
                     "-R", f"^{re.escape(name)}$"])
        test = json.loads(shown.stdout)["tests"][0]
        properties = {entry["name"]: entry["value"] for entry in test["properties"]}
        try:
            return run(test["command"], cwd=properties.get("WORKING_DIRECTORY", folder),
                       timeout=properties.get("TIMEOUT", 120)).returncode != 0
        except subprocess.TimeoutExpired:
            return True

    def end_leftovers(self):
        """What a test that was stopped has left running."""
        programs = os.path.join(os.path.realpath(self.path), "")
        for pid in filter(str.isdigit, os.listdir("/proc")):
            try:
                if os.readlink(f"/proc/{pid}/exe").startswith(programs):
                    os.kill(int(pid), signal.SIGKILL)
            except OSError:
                continue  # it has ended, or is not ours

    def check_locks(self, path):
        """Whether clang's thread-safety analysis refuses the file, or what includes a header."""
        with open(os.path.join(self.path, "compile_commands.json"), encoding="utf-8") as file:
            commands = json.load(file)
        units = self.compiled_units(path, [entry["file"] for entry in commands])
        if not units:
            raise UsageError(f"{path} is not compiled, nor included where it stands")
        # A template is analysed where it is instantiated, which is not wherever it is included.
        for entry in sorted(commands, key=lambda entry: entry["file"]):
            if entry["file"] in units:
                result = run(analysis_of(entry["command"]), cwd=entry["directory"])
                if result.returncode != 0 and "-Wthread-safety" in result.stdout:
                    return True
        return False

    def compiled_units(self, path, units):
        """The source itself, or those of the daemon that include the header, if only by others."""
        own = os.path.join(self.tree, path)
        if own in units:
            return {own}
        units = {unit: read_text(unit) for unit in units
                 if unit.startswith(self.tree) and "/tests/" not in unit[len(self.tree):]}
        headers = {header: read_text(os.path.join(self.tree, header))
                   for header in glob.glob("**/*.h", root_dir=self.tree, recursive=True)}
        found = set()
        wanted = [path]
        for header in wanted:
            include = f'#include "{header}"'
            found |= {unit for unit, text in units.items() if include in text}
            wanted += [other for other, text in headers.items()
                       if other not in wanted and include in text]
        return found


def read_text(path):
    with open(path, encoding="utf-8", errors="replace") as file:
        return file.read()


def analysis_of(command):
    """The command that compiled a file, by clang, and without a result."""
    words = shlex.split(command)
    compiler = next(i for i, word in enumerate(words) if os.path.basename(word) != "ccache")
    words = words[compiler + 1:]
    kept = []
    skip = False
    for word in words:
        if skip:
            skip = False
        elif word in ("-o", "-MF", "-MT", "-MQ"):
            skip = True
        elif word not in ("-c", "-MD", "-MMD") and not word.startswith("-W"):
            kept.append(word)
    return ["clang++", "-fsyntax-only", "-Wthread-safety", "-Werror", *kept]


# The run


def judge(build, mutant, suites, applied):
    """The outcome, and by what."""
    path = applied[0]
    subject = re.sub("Manager$", "", mutant["name"].partition(".")[0])
    if mutant.get("compiler") and build.check_locks(path):
        return KILLED_BY_COMPILER, []
    for suite in suites:
        complaint = build.make(suite)
        if complaint is not None:
            return DOES_NOT_BUILD, [line for line in complaint.splitlines() if "error:" in line][:1]
        failed = build.test(suite, subject)
        if failed is not None:
            return KILLED, [failed]
    return SURVIVED, []


def prepare(build, suites):
    """The tree itself must pass, or every mutant would be killed."""
    for suite in sorted(suites):
        complaint = build.make(suite)
        if complaint is not None:
            raise UsageError(f"tests/{suite} does not build:\n{complaint}")
        failed = build.test(suite, ".")
        if failed is not None:
            raise UsageError(f"{failed} fails without any mutant")


def read_results(path):
    try:
        with open(path, encoding="utf-8") as file:
            return json.load(file)["mutants"]
    except (OSError, ValueError, KeyError, TypeError) as error:
        raise UsageError(f"{path}: no results: {error}") from error


def save(results, path):
    if path:
        with open(path + ".new", "w", encoding="utf-8") as file:
            json.dump(results, file, indent=1)
            file.write("\n")
        os.replace(path + ".new", path)


def say(text):
    print(f"{datetime.datetime.now():%H:%M:%S} {text}", flush=True)


def run_mutants(options, mutants, tests):
    folder = os.path.abspath(options.work)
    build = Build(folder, options.jobs)
    copy_tree(options.source, build.tree)
    results = {"mutants": {}}
    if options.resume and os.path.exists(options.results):
        results["mutants"] = read_results(options.results)
    changes = {}
    suites = {}
    for mutant in mutants:
        name = mutant["name"]
        applied = apply(build.tree, mutant)
        if name in results["mutants"]:
            continue
        if applied is None:
            results["mutants"][name] = {"outcome": DOES_NOT_APPLY}
            say(f"{DOES_NOT_APPLY}: {name}")
            continue
        changes[name] = applied
        suites[name] = tests[folder_of(applied[0])]
    if changes:
        build.configure()
        if not options.trust:
            say("building, and running the tests without any mutant")
            prepare(build, {suite for needed in suites.values() for suite in needed})
    for mutant in mutants:
        name = mutant["name"]
        if name not in changes:
            continue
        path, before, after = changes[name]
        file = os.path.join(build.tree, path)
        began = time.monotonic()
        try:
            write_file(file, after.encode())
            outcome, by = judge(build, mutant, suites[name], changes[name])
        finally:
            write_file(file, before.encode())
        seconds = round(time.monotonic() - began, 1)
        results["mutants"][name] = {"file": path, "outcome": outcome, "by": by,
                                    "seconds": seconds}
        say(f"{outcome}: {name} ({seconds} s) {' '.join(by)}")
        save(results, options.results)
    save(results, options.results)
    return results


def list_mutants(source, mutants):
    """Names each mutant and its file. Returns the exit status: 1 when one does not apply."""
    status = 0
    for mutant in mutants:
        applied = apply(source, mutant)
        print(f"{mutant['name']:58} {applied[0] if applied else DOES_NOT_APPLY}")
        if applied is None:
            status = 1
    return status


def summary(results):
    counts = {outcome: 0 for outcome in OUTCOMES}
    for result in results.values():
        counts[result["outcome"]] += 1
    return f"{len(results)} mutants: " + ", ".join(
        f"{count} {outcome}" for outcome, count in counts.items() if count)


def compare(before, results):
    """Complaints: what died before, and survives or is not tried now."""
    died = (KILLED, KILLED_BY_COMPILER)
    return [f"{name}: {old['outcome']} before, {results[name]['outcome']} now"
            for name, old in before.items()
            if name in results and old["outcome"] in died and results[name]["outcome"] not in died]


def parse_options(arguments):
    parser = argparse.ArgumentParser(
        description="Changes the daemon one place at a time, and runs the tests each time.",
        allow_abbrev=False)
    parser.add_argument("--list", action="store_true", help="names the mutants and the file that each changes; fails when one "
                             "does not apply")
    parser.add_argument("--only", metavar="TEXT", action="append",
                        help="only mutants whose names or files contain TEXT; may be repeated")
    parser.add_argument("--jobs", type=int, default=os.cpu_count(), metavar="N",
                        help="compilers at a time (default: one per "
                             "processor)")
    parser.add_argument("--results", metavar="FILE", help="writes the outcomes as JSON")
    parser.add_argument("--resume", action="store_true",
                        help="leaves out what --results has already")
    parser.add_argument("--compare", metavar="FILE",
                        help="the results of an earlier run: fails when a mutant that died survives")
    parser.add_argument("--source", metavar="FOLDER", default=ROOT,
                        help="the checkout that is changed, in a copy (default: this one)")
    parser.add_argument("--work", metavar="FOLDER", default=os.path.join(ROOT, "build-mutants"),
                        help="for the copy and its build (default: build-mutants)")
    parser.add_argument("--mutants", metavar="FILE", default=os.path.join(HERE, "mutants.toml"),
                        help="the list (default: the one beside this script)")
    parser.add_argument("--trust", action="store_true",
                        help="does not run the tests without any mutant first")
    options = parser.parse_args(arguments)
    if options.jobs < 1:
        parser.error("--jobs must be 1 or more")
    if options.resume and not options.results:
        parser.error("--resume needs --results")
    if options.compare and not os.path.isfile(options.compare):
        parser.error(f"there is no file {options.compare}")
    if options.results and not os.path.isdir(os.path.dirname(os.path.abspath(options.results))):
        parser.error(f"there is no folder for {options.results}")
    return options


def main(arguments):
    options = parse_options(arguments)
    signal.signal(signal.SIGTERM, lambda *_: sys.exit(3))  # with what is running
    try:
        mutants, tests = read_list(options.mutants)
        if options.only:
            mutants = [mutant for mutant in mutants
                       if any(text in mutant["name"] or
                              any(text in file for place in places_of(mutant)
                                  for file in files_of(place))
                              for text in options.only)]
            if not mutants:
                raise UsageError(f"no mutant's name or file contains {' or '.join(options.only)}")
        if options.list:
            return list_mutants(options.source, mutants)
        before = read_results(options.compare) if options.compare else {}
        results = run_mutants(options, mutants, tests)["mutants"]
    except UsageError as error:
        print(f"mutants.py: {error}", file=sys.stderr)
        return 2
    print(summary(results))
    complaints = compare(before, results)
    for complaint in complaints:
        print(complaint)
    return 1 if complaints else 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
