#!/usr/bin/env python3
"""check_attributes.py SOURCE_TREE BUILD_FOLDER

The device's sources ask by __has_attribute for an attribute that not every compiler knows: each file
that uses one that is asked for somewhere asks for it, and those that ask compile for a compiler that
knows none of them.
"""

import json
import os
import re
import shlex
import subprocess
import sys

import source_tree

QUESTION = re.compile(r"__has_attribute\((\w+)\)")


def device_files(root):
    return [path for path in source_tree.files(root)
            if path.split(os.sep)[0] in source_tree.DEVICE_FOLDERS and
            path.endswith((".h", ".cpp"))]


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
    texts = {path: source_tree.read(root, path) for path in device_files(root)}
    if not texts:
        return [f"{root}: there are no sources"]
    asked = {name for text in texts.values() for name in QUESTION.findall(text)}
    complaints = []
    for path, text in texts.items():
        for name in sorted(asked - set(QUESTION.findall(text))):
            if re.search(rf"(__attribute__|\[\[).*\b{name}\b", text):
                complaints.append(f"{path}: uses {name} without asking by __has_attribute whether "
                                  "the compiler knows it")
    commands = {os.path.realpath(command["file"]): command for command in
                json.loads(source_tree.read(build, "compile_commands.json"))}
    for path, text in texts.items():
        if not QUESTION.search(text):
            continue
        source = os.path.splitext(path)[0] + ".cpp"
        command = commands.get(os.path.realpath(os.path.join(root, source)))
        error = f"{build} compiles no {source}" if command is None else compile_error(command)
        if error:
            complaints.append(f"{path}: for a compiler that knows none of the attributes that it "
                              f"asks for: {error}")
    return complaints


if __name__ == "__main__":
    source_tree.finish(check(sys.argv[1], sys.argv[2]))
