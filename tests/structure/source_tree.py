"""Finds the files of the source tree, and reports what a check has found."""

import os
import re
import sys

# The folders that the device builds; the others are a host's alone.
DEVICE_FOLDERS = ("os", "config", "client", "managers", "service", "tools")
# Those that the daemon is made of.
DAEMON_FOLDERS = DEVICE_FOLDERS[:-1]


def files(root):
    """Paths of all files, relative to root, without build folders and hidden ones but .ci."""
    found = []
    for folder, subfolders, names in os.walk(root):
        subfolders[:] = [
            name for name in subfolders
            if name == ".ci" or not (name.startswith(".") or name == "__pycache__" or
                                     name == "build" or name.startswith("build-"))
        ]
        for name in names:
            if name == ".git":
                continue  # a worktree's
            found.append(os.path.relpath(os.path.join(folder, name), root))
    return sorted(found)


def read(root, path):
    """A file's text; what is not UTF-8 in it is replaced. A check ends that needs one which is not
    there."""
    try:
        with open(os.path.join(root, path), encoding="utf-8", errors="replace") as file:
            return file.read()
    except FileNotFoundError:
        sys.exit(f"{path}: is missing")


def code(root, path):
    """The text of a C++ file without its comments; its lines keep their numbers."""
    return re.sub(r"//[^\n]*|/\*.*?\*/", lambda comment: re.sub(r"[^\n]", "", comment.group()),
                  read(root, path), flags=re.DOTALL)


def line_of(text, offset):
    """The number of the line that a match stands in."""
    return text.count("\n", 0, offset) + 1


def finish(complaints):
    """Prints what was found and ends the program: status 1 when there is anything."""
    for complaint in complaints:
        print(complaint, file=sys.stderr)
    sys.exit(1 if complaints else 0)
