#!/usr/bin/env python3
"""toolchains.py [ROW ...]

Builds the daemon as the platform's toolchains do, one row for each: compilers of several ages,
other standards, libc++ in the place of libstdc++, and the code generation that an image asks for.
Some rows compile the daemon's sources, without a warning; the others also run the unit tests of its
folders. Without a ROW all of them. Installs what the rows need (packages.txt beside this file has
it all). Prints a line for each row, and ends with status 1 if one failed.

The sources of a folder are compiled as one, which takes an eighth of the time; that each has the
includes it needs is shown by the other builds.
"""

import collections
import concurrent.futures
import json
import os
import re
import shlex
import shutil
import subprocess
import sys
import tempfile
import time

ROOT = os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__))))
sys.path.insert(0, os.path.join(ROOT, "tests", "structure"))

from source_tree import DEVICE_FOLDERS  # beside the other checks of the tree

# Rows that compile: compiler and options. Where code is generated, not only read, they have "-c".
COMPILED = {
    "gcc-c++20": ("g++", "-fsyntax-only -std=c++20"),
    "gcc-fortify": ("g++", "-c -std=c++17 -O2 -D_FORTIFY_SOURCE=2 -ftrapv"),
    "clang-13": ("clang++-13", "-fsyntax-only -std=c++17"),
    "clang-14-strict": ("clang++-14", "-fsyntax-only -std=c++17 -pedantic"),
    "clang-14-no-rtti": ("clang++-14", "-fsyntax-only -std=c++17 -fno-rtti"),
    "clang-16": ("clang++-16", "-fsyntax-only -std=c++17"),
    "clang-19": ("clang++-19", "-fsyntax-only -std=c++17"),
    # It can't run: Debian's libraries for arm64 write to x18, the shadow stack's register.
    "shadow-call-stack": (
        "clang++-14", "--target=aarch64-linux-gnu -c -std=c++17 -O2 -fsanitize=shadow-call-stack "
        "-ffixed-x18"),
}

# Rows that also run, each a preset of CMakePresets.json: the programs that it needs.
RUN = {
    "libcxx": ("clang++",),
    "integer": ("clang++",),
    "cfi": ("clang++", "ld.lld", "llvm-ar"),
    "fortify": ("clang++-19",),
}

# The packages that rows need beside those of their programs.
OTHER_PACKAGES = {
    "shadow-call-stack": ("g++-aarch64-linux-gnu",),
    "libcxx": ("googletest", "libc++-dev", "libc++abi-dev"),
    "cfi": ("googletest",),
}

# What the sources include that the build makes, as targets.
GENERATED = ("vendor.corvid.hardware.wifi-1.0", "android.frameworks.stats-1.0", "build_info")

# The folders whose unit tests they run: the daemon's, and what stands for the device.
TESTED_FOLDERS = (*DEVICE_FOLDERS, "host")

Source = collections.namedtuple("Source", "path directory arguments file")


class Failure(Exception):
    """Why a row failed."""


def run(*command, **options):
    """Runs it. Returns output and errors as one text, or fails with that."""
    result = subprocess.run(command, stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                            stderr=subprocess.STDOUT, text=True, check=False, **options)
    if result.returncode != 0:
        raise Failure(result.stdout)
    return result.stdout


def run_shell(function, *arguments):
    """Runs a function of cmake/setup.sh."""
    return run("bash", "-c", 'set -eu; . cmake/setup.sh; "$@"', "toolchains.py", function,
               *arguments, cwd=ROOT)


def package_of(program):
    """Which package of Debian brings it."""
    return {"ld.lld": "lld", "llvm-ar": "llvm"}.get(program, program.replace("clang++", "clang"))


def packages_of(names):
    """What those rows need, a part of packages.txt's included."""
    found = set()
    for name in names:
        programs = RUN[name] if name in RUN else COMPILED[name][:1]
        found |= {*map(package_of, programs), *OTHER_PACKAGES.get(name, ())}
    return found


def install(names):
    """Installs what those rows need, and says so: each row's by itself, so that where a compiler
    can't be installed only its rows fail."""
    def install_list(path):
        subprocess.run(["bash", "-c", '. cmake/setup.sh; install_packages "$1"', "toolchains.py", path],
                       cwd=ROOT, stdin=subprocess.DEVNULL, check=False)

    install_list("packages.txt")
    for name in names:
        with tempfile.NamedTemporaryFile("w", encoding="utf-8") as file:
            file.write("\n".join(sorted(packages_of([name]))))
            file.flush()
            install_list(file.name)


def need(*programs):
    """Fails with the first of them that is not installed."""
    for program in programs:
        if shutil.which(program) is None:
            raise Failure(f"{program} is not installed\n")


# What the compiled rows do.


def sources_of(build, root=ROOT):
    """The daemon's sources as a build folder compiles them, but without what a row has its own of:
    standard, optimization, output."""
    with open(os.path.join(build, "compile_commands.json"), encoding="utf-8") as file:
        entries = json.load(file)
    found = []
    for entry in entries:
        path = os.path.relpath(os.path.join(entry["directory"], entry["file"]), root)
        if path.split(os.sep)[0] not in DEVICE_FOLDERS:
            continue
        kept = []
        words = iter(shlex.split(entry["command"])[1:])
        for word in words:
            if word in ("-isystem", "-include"):
                kept += [word, next(words)]
            elif word in ("-o", "-MF", "-MT"):
                next(words)
            elif word.startswith("-") and word not in ("-c", "-DNDEBUG", "-Wno-attributes") and \
                    not word.startswith(("-std=", "-O", "-g", "-MD")):
                kept.append(word)
        found.append(Source(path, entry["directory"], kept, entry["file"]))
    return found


def left_out(build, compiled):
    """The sources that the device builds (of build/source-lists) and that are not compiled."""
    wanted = set()
    lists = os.path.join(build, "source-lists")
    for name in os.listdir(lists):
        with open(os.path.join(lists, name), encoding="utf-8") as file:
            wanted |= {line.strip() for line in file if line.strip().endswith((".cpp", ".c"))}
    return sorted(path for path in wanted - set(compiled) if not path.startswith("tests/"))


def compile_together(compiler, options, sources, folder):
    """Compiles sources of one folder as one, or, where they do not go together (two have a constant
    of one name), in halves. Returns what single ones are complained of: [(path, text)]."""
    arguments = max((source.arguments for source in sources), key=len)
    file = sources[0].file
    if len(sources) > 1:
        file = os.path.join(folder, f"{sources[0].path.replace('/', '_')}_{len(sources)}.cpp")
        with open(file, "w", encoding="utf-8") as out:
            for source in sources:
                out.write(f'#include "{os.path.join(source.directory, source.file)}"\n')
    warnings = "-Wthread-safety" if "clang" in compiler else "-Wno-attributes"
    try:
        run(compiler, *arguments, warnings, *options, file,
            *(["-o", os.path.join(folder, "one.o")] if "-c" in options else []),
            cwd=sources[0].directory)
        return []
    except Failure as failure:
        if len(sources) == 1:
            return [(sources[0].path, str(failure))]
    middle = len(sources) // 2
    return [complaint for half in (sources[:middle], sources[middle:])
            for complaint in compile_together(compiler, options, half, folder)]


def compile_row(name, sources):
    """Returns the row's figure."""
    compiler, options = COMPILED[name]
    need(compiler)
    with tempfile.TemporaryDirectory() as folder:
        failed = []
        for part in DEVICE_FOLDERS:
            together = [source for source in sources if source.path.split(os.sep)[0] == part]
            if together:
                failed += compile_together(compiler, options.split(), together, folder)
    if failed:
        raise Failure("".join(f"{path}:\n{text}" for path, text in failed))
    return f"{len(sources)} sources"


# What the rows that run do.


def failing_sources(root, output):
    """Of the sources that a build compiled as one, those that an error is in."""
    return {match.group(1) for match in
            re.finditer(rf"^{re.escape(root)}/(?!build)([^:\n]+\.cpp):\d+:\d+: error: ", output,
                        re.MULTILINE)}


def failures_of_ninja(output):
    """What is about the commands that failed."""
    parts = re.split(r"^(?=\[\d+/\d+\] |FAILED: )", output, flags=re.MULTILINE)
    return "".join(part for part in parts if part.startswith("FAILED: ")) or output


def failures_of_ctest(output):
    """The same of tests."""
    return "".join(line for line in output.splitlines(keepends=True) if not
                   re.match(r" +Start +\d+: | *\d+/\d+ Test +#\d+: .* Passed +[\d.]+ sec$", line))


def known_separate():
    """The sources that the rows so far have compiled by themselves."""
    found = set()
    for row in RUN:
        cache = os.path.join(ROOT, f"build-{row}", "CMakeCache.txt")
        if os.path.exists(cache):
            with open(cache, encoding="utf-8") as file:
                names = re.search(r"^CORVID_SEPARATE:STRING=(.*)$", file.read(), re.MULTILINE)
            found |= set(names.group(1).split(";") if names else ())
    return {path for path in found if os.path.isfile(os.path.join(ROOT, path))}


def build_together(folder, preset, targets):
    """Builds, with the sources of each library compiled as one. Those that do not go together with
    others are compiled by themselves; only what fails then is a failure."""
    run_shell("drop_foreign", folder)
    separate = known_separate()
    while True:
        run("cmake", "--preset", preset, "-DCMAKE_UNITY_BUILD=ON",
            "-DCMAKE_UNITY_BUILD_BATCH_SIZE=0",
            "-DCORVID_SEPARATE=" + ";".join(sorted(separate)), cwd=ROOT)
        try:
            run("ninja", "-C", folder, "-k", "0", *targets, cwd=ROOT)
            return
        except Failure as failure:
            failing = failing_sources(ROOT, str(failure))
            if failing <= separate:
                raise Failure(failures_of_ninja(str(failure))) from None
            separate |= failing


def built_sources(folder, targets):
    """The sources that the targets are made of."""
    found = set()
    for path in run("ninja", "-C", folder, "-t", "inputs", *targets, cwd=ROOT).splitlines()[1:]:
        path = os.path.join(ROOT, folder, path)
        if re.search(r"/Unity/unity_\d+_cxx\.cxx$", path):
            with open(path, encoding="utf-8") as file:
                found |= set(re.findall(r'#include "(.*)"', file.read()))
        elif path.endswith(".cpp"):
            found.add(path)
    return {os.path.relpath(path, ROOT) for path in found}


def run_row(name):
    """Returns the row's figures."""
    need(*RUN[name])
    print(f"{name}: building and testing takes some minutes", flush=True)
    folder = f"build-{name}"
    targets = [f"tests/{part}/all" for part in TESTED_FOLDERS] + [
        "corvid-wifi-service", "corvidwifi_unit_test"]
    build_together(folder, name, targets)
    sources = built_sources(folder, targets)
    missing = left_out(os.path.join(ROOT, folder), sources)
    if missing:
        raise Failure("".join(f"{path} is in the build, but not in this row\n" for path in missing))
    unit = os.path.join(ROOT, folder, "unit")
    os.makedirs(unit, exist_ok=True)
    with open(os.path.join(unit, "CTestTestfile.cmake"), "w", encoding="utf-8") as file:
        for part in TESTED_FOLDERS:
            file.write(f'subdirs("../tests/{part}")\n')
    try:
        output = run("ctest", "--test-dir", unit, "-j", str(4 * os.cpu_count()),
                     "--output-on-failure", "--no-label-summary")
    except Failure as failure:
        raise Failure(failures_of_ctest(str(failure))) from None
    total = int(re.search(r"tests failed out of (\d+)", output).group(1))
    skipped = len(re.findall(r"\(Skipped\)$", output, re.MULTILINE))
    device = sum(path.split(os.sep)[0] in DEVICE_FOLDERS for path in sources)
    return f"{device} sources, {total - skipped} of {total} tests"


# The rows.


def check_names(names):
    """A complaint for each name that is no row's."""
    rows = (*COMPILED, *RUN)
    return [f"there is no row {name}; the rows are {', '.join(rows)}"
            for name in names if name not in rows]


def report(name, function, *arguments):
    """Runs a row and prints what came of it. Returns whether it passed."""
    start = time.monotonic()
    try:
        result, text = function(name, *arguments), ""
    except Failure as failure:
        result, text = "FAILED", f"{failure}\n"
    print(f"{text}{name}: {result}, {time.monotonic() - start:.0f} s", flush=True)
    return not text


def compile_rows(names):
    """Returns those that passed."""
    run_shell("build", "gcc", *GENERATED)
    sources = sources_of("build")
    missing = left_out("build", [source.path for source in sources])
    if missing:
        sys.exit("\n".join(f"toolchains.py: {path} is in the build, but in no row"
                           for path in missing))
    with concurrent.futures.ThreadPoolExecutor(os.cpu_count()) as pool:
        passed = pool.map(lambda name: report(name, compile_row, sources), names)
        return [name for name, good in zip(names, passed) if good]


def main(names):
    complaints = check_names(names)
    if complaints:
        sys.exit("\n".join(f"toolchains.py: {complaint}" for complaint in complaints))
    names = names or [*COMPILED, *RUN]
    start = time.monotonic()
    os.chdir(ROOT)
    install(names)
    compiled = [name for name in names if name in COMPILED]
    passed = compile_rows(compiled) if compiled else []
    passed += [name for name in names if name in RUN and report(name, run_row)]
    failed = [name for name in names if name not in passed]
    used = os.times()
    print(f"{len(passed)} of {len(names)} rows passed" +
          (f", not {', '.join(failed)}" if failed else "") + f", {time.monotonic() - start:.0f} s, "
          f"{used.children_user + used.children_system:.0f} s of processors")
    sys.exit(1 if failed else 0)


if __name__ == "__main__":
    try:
        main(sys.argv[1:])
    except Failure as failure:
        sys.exit(str(failure))
