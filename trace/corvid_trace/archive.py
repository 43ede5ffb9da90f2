"""The file system of the machine that replays: an archive as the kernel wants its first folder."""

import contextlib
import os
import re
import subprocess
import tempfile

from corvid_trace.errors import TraceError
from corvid_trace.programs import DAEMON, SIMULATOR

GUEST = "replay-guest"
_PROGRAMS = (SIMULATOR, DAEMON, "corvid-statsd", "corvid-wifi")
_REDIRECT = "libnl80211-redirect.so"

# Debian's libraries bring these, though nothing of ours calls them: an unpacker that every start
# would load, and the reader of stack traces that needs it. The build has an empty stand-in.
_LEFT_OUT = "7z.so"
_STAND_IN = "libbacktrace.so.0"

_FOLDERS = ("dev", "proc", "tmp")

# Everything that a play usually does, once, before the snapshot is taken.
WARM_UP = """\
property persist.vendor.wifi.txpower.enable.sta true
property persist.vendor.wifi.telemetry.enable true
supplicant start
at 1s connect freq=5180MHz width=80MHz rssi=-45dBm
at 8s rssi -60dBm
at 12s channel switch freq=5200MHz width=80MHz
at 14s p2p start freq=5200MHz
at 16s p2p stop
at 20s disconnect
at 21s end
"""


def _cpio_entry(name, mode, data, number):
    """One entry of the "newc" format: sizes in hexadecimal, name and data padded to four bytes."""
    name = name.encode() + b"\0"
    fields = (number, mode, 0, 0, 1, 0, len(data), 0, 0, 0, 0, len(name), 0)
    head = b"070701" + b"".join(b"%08x" % field for field in fields) + name
    return head + b"\0" * (-len(head) % 4) + data + b"\0" * (-len(data) % 4)


class Archive:
    """An archive that is put together from bytes; entries stand in the order in which they came."""

    def __init__(self):
        self._folders = set()
        self._parts = []

    def folder(self, path):
        """Adds a folder and those above it."""
        parts = path.split("/")
        for end in range(1, len(parts) + 1):
            folder = "/".join(parts[:end])
            if folder and folder not in self._folders:
                self._folders.add(folder)
                self._add(folder, 0o040755, b"")

    def file(self, path, data, executable=False):
        self.folder(os.path.dirname(path))
        self._add(path, 0o100755 if executable else 0o100644, data)

    def _add(self, path, mode, data):
        self._parts.append(_cpio_entry(path, mode, data, len(self._parts) + 1))

    def bytes(self):
        return b"".join(self._parts) + _cpio_entry("TRAILER!!!", 0, b"", 0)


def libraries_of(paths):
    """The shared libraries that programs load, as {path where the loader looks: file}."""
    done = subprocess.run(["ldd", *paths], capture_output=True, text=True, check=False,
                          env={**os.environ, "LC_ALL": "C"})
    found = {}
    for line in done.stdout.splitlines():
        if "not found" in line:
            raise TraceError(f"a library is missing: {line.strip()}")
        match = re.match(r"\s*(?:\S+ => )?(/\S+) \(0x", line)
        if match:
            found[match[1]] = os.path.realpath(match[1])
    return found


def guest_files(programs):
    """What the guest holds, as {path in the guest: file here}."""
    files = {"init": programs.find(GUEST)}
    for name in _PROGRAMS:
        files["bin/" + name] = programs.find(name)
    files["bin/" + _REDIRECT] = programs.find(_REDIRECT, "lib")
    stand_in = programs.find(_STAND_IN, "lib")
    for path, file in libraries_of(list(files.values())[1:]).items():
        name = os.path.basename(path)
        if name != _LEFT_OUT:
            files[path.lstrip("/")] = stand_in if name == _STAND_IN else file
    return files


def _stripped(path):
    """A program without what only a debugger reads; as it is where there is no strip."""
    with tempfile.NamedTemporaryFile(prefix="corvid-stripped-") as copy:
        with contextlib.suppress(FileNotFoundError):
            done = subprocess.run(["strip", "--strip-unneeded", "-o", copy.name, path],
                                  capture_output=True, check=False)
            if done.returncode == 0:
                path = copy.name
        with open(path, "rb") as file:
            return file.read()


def guest_archive(files):
    """The archive of guest_files()."""
    archive = Archive()
    for folder in _FOLDERS:
        archive.folder(folder)
    for path, file in files.items():
        archive.file(path, _stripped(file), executable=True)
    archive.file("warm-up.scn", WARM_UP.encode())
    return archive.bytes()
