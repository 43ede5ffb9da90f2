#!/usr/bin/env python3
"""check_tidy.py SOURCE_TREE BUILD_FOLDER SOURCE

clang-tidy has nothing to say about a source, and about the headers of the tree that it includes. A
source that passed is not looked at again until it, one of those headers, the way it is compiled,
the checks or clang-tidy itself changes.
"""

import hashlib
import json
import os
import subprocess
import sys

import source_tree


def compile_command(build, source):
    """How the source is compiled, and into which object; None when it isn't."""
    with open(os.path.join(build, "compile_commands.json"), encoding="utf-8") as file:
        for entry in json.load(file):
            if os.path.realpath(entry["file"]) == os.path.realpath(source):
                command = entry["command"]
                return command, command.rpartition(" -o ")[2].split(" ")[0]
    return None


def included_files(root, build, target):
    """The tree's files that went into an object, as ninja has noted them."""
    result = subprocess.run(["ninja", "-C", build, "-t", "deps", target], text=True,
                            capture_output=True, check=True)
    paths = (os.path.realpath(os.path.join(build, line.strip()))
             for line in result.stdout.splitlines()[1:] if line.strip())
    return sorted(path for path in set(paths) if path.startswith(os.path.realpath(root) + os.sep))


def fingerprint(root, command, paths):
    """A text that changes with everything that the outcome depends on."""
    version = subprocess.run(["clang-tidy", "--version"], text=True, capture_output=True,
                             check=True).stdout
    digest = hashlib.sha256((version + command).encode())
    for path in [os.path.join(root, ".clang-tidy"), *paths]:
        with open(path, "rb") as file:
            digest.update(hashlib.sha256(file.read()).digest())
    return digest.hexdigest()


def check(root, build, source):
    source = os.path.join(root, source)
    found = compile_command(build, source)
    if found is None:
        return [f"{source}: is not compiled in {build}"]
    command, target = found
    now = fingerprint(root, command, [source, *included_files(root, build, target)])
    stamp = os.path.join(build, "tidy", os.path.relpath(source, root))
    try:
        with open(stamp, encoding="utf-8") as file:
            if file.read() == now:
                return []
    except FileNotFoundError:
        pass
    result = subprocess.run(["nice", "-n", "10", "clang-tidy", "--quiet", "-p", build, source], text=True,
                            capture_output=True, check=False)
    if result.returncode != 0:
        return [result.stdout or result.stderr]
    os.makedirs(os.path.dirname(stamp), exist_ok=True)
    with open(stamp, "w", encoding="utf-8") as file:
        file.write(now)
    return []


if __name__ == "__main__":
    source_tree.finish(check(*sys.argv[1:]))
