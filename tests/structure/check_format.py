#!/usr/bin/env python3
"""check_format.py SOURCE_TREE

Every C and C++ source looks as .clang-format says.
"""

import subprocess
import sys

import source_tree


def check(root):
    paths = [path for path in source_tree.files(root) if path.endswith((".c", ".cpp", ".h"))]
    if not paths:
        return [f"{root}: there are no sources"]
    result = subprocess.run(["clang-format", "--dry-run", "-Werror", *paths], cwd=root, text=True,
                            capture_output=True, check=False)
    complaints = [line for line in result.stderr.splitlines() if "error:" in line]
    if result.returncode != 0 and not complaints:
        complaints = [result.stderr]
    return complaints


if __name__ == "__main__":
    source_tree.finish(check(sys.argv[1]))
