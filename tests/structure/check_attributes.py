"""Checks how the daemon's sources use attributes that not every compiler knows, of which some are
asked for by __has_attribute: each use is behind the question, and the sources compile for a compiler
that knows none of them."""

import json
import os
import re
import shlex
import subprocess
import sys

from source_tree import DEVICE_FOLDERS

QUESTION = re.compile(r"__has_attribute\((\w+)\)")


def read(path):
    with open(path, encoding="utf-8") as file:
        return file.read()


def daemon_files(root):
    for folder in DEVICE_FOLDERS:
        for where, _, names in os.walk(os.path.join(root, folder)):
            for name in sorted(names):
                if name.endswith((".h", ".cpp")):
                    yield os.path.join(where, name)


def compile_error(command):
    """What the compiler says where it takes each question for no; empty if nothing."""
    words = shlex.split(command["command"])
    while os.path.basename(words[0]) in ("cmake", "ccache", "env") or "=" in words[0] or (
            words[0] == "-E"):
        del words[0]
    output = words.index("-o")
    del words[output:output + 2]
    # A compiler may warn of a macro that is its own.
    words += ["-fsyntax-only", "-w", "-Wno-error", "-D__has_attribute(name)=0"]
    result = subprocess.run(words, cwd=command["directory"], capture_output=True, text=True,
                            check=False)
    return result.stderr if result.returncode != 0 else ""


def check(root, build):
    """The complaints."""
    texts = {path: read(path) for path in daemon_files(root)}
    asked = {name for text in texts.values() for name in QUESTION.findall(text)}
    complaints = []
    for path, text in texts.items():
        for name in sorted(asked - set(QUESTION.findall(text))):
            if re.search(rf"(__attribute__|\[\[).*\b{name}\b", text):
                complaints.append(f"{os.path.relpath(path, root)}: uses {name} without asking"
                                  " by __has_attribute whether the compiler knows it")
    commands = json.loads(read(os.path.join(build, "compile_commands.json")))
    for path, text in texts.items():
        if not QUESTION.search(text):
            continue
        source = os.path.splitext(path)[0] + ".cpp"
        command = next((command for command in commands
                        if os.path.realpath(command["file"]) == os.path.realpath(source)), None)
        error = "no source of its name is compiled" if command is None else compile_error(command)
        if error:
            complaints.append(f"{os.path.relpath(path, root)}: for a compiler that knows none of"
                              f" the attributes that it asks for: {error}")
    return complaints


def main(root, build):
    complaints = check(root, build)
    for complaint in complaints:
        print(complaint)
    return 1 if complaints else 0


if __name__ == "__main__":
    sys.exit(main(*sys.argv[1:]))
