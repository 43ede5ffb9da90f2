#!/usr/bin/env python3
"""check_toolchains.py BUILD_FOLDER [CONFIGURATION ...]

Compiles the daemon's own sources, without a warning, as the platform's toolchains do: clang of several
ages, libc++ in the place of libstdc++, other standards, and the code generation that an image asks
for. Says how long each took. A compiler that is not installed is named and left out. By hand: it takes
minutes for each.
"""

import concurrent.futures
import json
import os
import shlex
import shutil
import subprocess
import sys
import tempfile
import time

DEVICE_FOLDERS = ("os", "config", "client", "managers", "service", "tools")

# Name: compiler, options. Where code is generated, not only read, the options say so by "-c".
CONFIGURATIONS = {
    "gcc-c++20": ("g++", "-fsyntax-only -std=c++20"),
    "clang-13": ("clang++-13", "-fsyntax-only -std=c++17"),
    "clang-14-strict": ("clang++-14", "-fsyntax-only -std=c++17 -pedantic"),
    "clang-14-no-rtti": ("clang++-14", "-fsyntax-only -std=c++17 -fno-rtti"),
    "clang-16": ("clang++-16", "-fsyntax-only -std=c++17"),
    "clang-19-c++20": ("clang++-19", "-fsyntax-only -std=c++20"),
    "libc++": ("clang++-14", "-fsyntax-only -std=c++17 -stdlib=libc++"),
    "fortify": ("clang++-14", "-c -std=c++17 -O2 -D_FORTIFY_SOURCE=2 -ftrapv"),
    "gcc-fortify": ("g++", "-c -std=c++17 -O2 -D_FORTIFY_SOURCE=2 -ftrapv"),
    "cfi": ("clang++-14", "-c -std=c++17 -O1 -fsanitize=cfi -flto=thin -fvisibility=hidden"),
    "integer-overflow": (
        "clang++-14", "-c -std=c++17 -O1 -fsanitize=signed-integer-overflow,"
        "unsigned-integer-overflow -fsanitize-trap=all"),
}


def commands(build):
    """The daemon's sources: [(path, folder, the compiler's arguments but for -o, -c and the like)]."""
    with open(os.path.join(build, "compile_commands.json"), encoding="utf-8") as file:
        entries = json.load(file)
    root = os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__))))
    found = []
    for entry in entries:
        path = os.path.relpath(os.path.join(entry["directory"], entry["file"]), root)
        if path.split(os.sep)[0] not in DEVICE_FOLDERS:
            continue
        arguments = shlex.split(entry["command"])
        # Behind launcher and compiler.
        arguments = arguments[next(i for i, word in enumerate(arguments)
                                   if word.startswith("-")):]
        kept = []
        skip = False
        for word in arguments:
            if skip:
                skip = False
            elif word in ("-o", "-c", "-MF", "-MT", "-E", "env"):
                skip = word in ("-o", "-MF", "-MT", "-E")
            elif word != entry["file"] and not word.startswith(("-std=", "-O", "-g", "-MD")) and \
                    word not in ("-Wno-attributes", "-DNDEBUG"):
                kept.append(word)
        found.append((path, entry["directory"], [
            word for word in kept if word.startswith("-") or kept[kept.index(word) - 1] in
            ("-isystem", "-include")], entry["file"]))
    return found


def compile_one(compiler, options, command, out):
    path, folder, arguments, source = command
    clang = ["-Wthread-safety"] if "clang" in compiler else ["-Wno-attributes"]
    result = subprocess.run(
        ["nice", compiler, *arguments, *clang, *options, source,
         *(["-o", out] if "-c" in options else [])],
        cwd=folder, stdin=subprocess.DEVNULL, capture_output=True, text=True, check=False)
    return path, result.returncode, result.stderr


def check(build, names):
    complaints = []
    known = commands(build)
    if not known:
        complaints.append(f"{build}: compiles nothing of the daemon's")
    for name in names:
        compiler, options = CONFIGURATIONS[name]
        if shutil.which(compiler) is None:
            print(f"{name}: {compiler} is not installed")
            continue
        start = time.monotonic()
        with tempfile.TemporaryDirectory() as folder, \
                concurrent.futures.ThreadPoolExecutor(os.cpu_count()) as pool:
            results = list(pool.map(
                lambda item, compiler=compiler, options=options, folder=folder: compile_one(
                    compiler, options.split(), item[1], os.path.join(folder, f"{item[0]}.o")),
                enumerate(known)))
        failed = [(path, text) for path, status, text in results if status != 0]
        print(f"{name}: {len(results) - len(failed)} of {len(results)} sources, "
              f"{time.monotonic() - start:.0f} s", flush=True)
        complaints += [f"{name}: {path}:\n{text}" for path, text in failed]
    return complaints


if __name__ == "__main__":
    for complaint in (found := check(sys.argv[1], sys.argv[2:] or list(CONFIGURATIONS))):
        print(complaint, file=sys.stderr)
    sys.exit(1 if found else 0)
