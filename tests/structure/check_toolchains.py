#!/usr/bin/env python3
"""check_toolchains.py BUILD_FOLDER [CONFIGURATION ...]

Compiles the daemon's own sources, without a warning, as the platform's toolchains do: clang of several
ages, libc++ in the place of libstdc++, other standards, and the code generation that an image asks
for. Says how long each took. A compiler that is not installed is named and left out. The sources of a
folder are compiled as one, which takes much less time; that each has the includes it needs is
shown by the other builds. By hand.
"""

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
    # With the folder of an arm64 build.
    "shadow-call-stack": (
        "clang++-14", "--target=aarch64-linux-gnu -c -std=c++17 -O2 -fsanitize=shadow-call-stack "
        "-ffixed-x18"),
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


def compile_together(compiler, options, sources, folder):
    """Compiles sources of one folder as one, or, where they do not go together (two have a constant of
    one name), in halves. Returns what single ones are complained of: [(path, text)]."""
    directory, arguments = sources[0][1], max((source[2] for source in sources), key=len)
    file = sources[0][3]
    if len(sources) > 1:
        file = os.path.join(folder, f"{sources[0][0].replace('/', '_')}_{len(sources)}.cpp")
        with open(file, "w", encoding="utf-8") as out:
            for _, there, _, source in sources:
                out.write(f'#include "{os.path.join(there, source)}"\n')
    clang = ["-Wthread-safety"] if "clang" in compiler else ["-Wno-attributes"]
    result = subprocess.run(
        ["nice", compiler, *arguments, *clang, *options, file,
         *(["-o", f"{file}.o" if len(sources) > 1 else os.path.join(folder, "one.o")]
           if "-c" in options else [])],
        cwd=directory, stdin=subprocess.DEVNULL, capture_output=True, text=True, check=False)
    if result.returncode == 0:
        return []
    if len(sources) == 1:
        return [(sources[0][0], result.stderr)]
    middle = len(sources) // 2
    return [complaint for half in (sources[:middle], sources[middle:])
            for complaint in compile_together(compiler, options, half, folder)]


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
        failed = []
        with tempfile.TemporaryDirectory() as folder:
            for part in DEVICE_FOLDERS:
                sources = [source for source in known if source[0].split(os.sep)[0] == part]
                if sources:
                    failed += compile_together(compiler, options.split(), sources, folder)
        print(f"{name}: {len(known) - len(failed)} of {len(known)} sources, "
              f"{time.monotonic() - start:.0f} s", flush=True)
        complaints += [f"{name}: {path}:\n{text}" for path, text in failed]
    return complaints


if __name__ == "__main__":
    for complaint in (found := check(sys.argv[1], sys.argv[2:] or
                                      [name for name in CONFIGURATIONS
                                       if name != "shadow-call-stack"])):
        print(complaint, file=sys.stderr)
    sys.exit(1 if found else 0)
