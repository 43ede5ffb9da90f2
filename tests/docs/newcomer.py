"""A checkout as a newcomer has it after the first ./run.sh, in a folder of its own: the sources, and
build/ as it was built here. run.sh installs and builds nothing there."""

import os
import shutil
import subprocess
import tempfile

SOURCE = os.environ["CORVID_SOURCE"]
BUILD = os.environ["CORVID_BUILD"]

_SETUP = """
fail() {
    echo "${0##*/}: $*" >&2
    exit 1
}
install_packages() { :; }
build() { :; }
folder_of() { echo build; }
"""


class Checkout:
    def __init__(self):
        self.path = tempfile.mkdtemp(prefix="corvid-docs.")
        for name in os.listdir(SOURCE):
            if name not in ("cmake", "run.sh") and not name.startswith((".git", "build")):
                os.symlink(os.path.join(SOURCE, name), os.path.join(self.path, name))
        shutil.copy(os.path.join(SOURCE, "run.sh"), self.path)
        os.mkdir(os.path.join(self.path, "cmake"))
        with open(os.path.join(self.path, "cmake", "setup.sh"), "w", encoding="utf-8") as file:
            file.write(_SETUP)
        os.symlink(BUILD, os.path.join(self.path, "build"))

    def __enter__(self):
        return self

    def __exit__(self, *_):
        shutil.rmtree(self.path)

    def run(self, command, timeout=150, **environment):
        """What the shell command prints on both outputs, with its status."""
        return subprocess.run(
            ["bash", "-c", command], cwd=self.path, text=True, stdin=subprocess.DEVNULL,
            stdout=subprocess.PIPE, stderr=subprocess.STDOUT, timeout=timeout, check=False,
            env={**os.environ, **environment})
