#!/usr/bin/env python3
"""check_hal_frozen.py SOURCE_TREE

interface/current.txt records the hash of each .hal file that has shipped, as hidl-gen prints it, and
the platform's build refuses one that differs. Each recorded file is as it was, and a package is
recorded as a whole or, while it has not shipped, not at all. The Android.bp files have the platform's
build look in interface/, and into that record.
"""

import os
import re
import shutil
import subprocess
import sys
import tempfile

import check_android_bp
import source_tree

RECORD = "interface/current.txt"
ROOT = "vendor.corvid.hardware"
_HASH = re.compile(r"^([0-9a-f]{64}) (\S+@\d+\.\d+::\w+)$")


def package(folder, version):
    """The name of the package in interface/FOLDER/VERSION."""
    return f"{ROOT}.{folder.replace('/', '.')}@{version}"


def packages(root):
    """Each package with its files: {"wifi@1.0": {"IWifi": "interface/wifi/1.0/IWifi.hal"}}."""
    found = {}
    for path in source_tree.files(root):
        match = re.fullmatch(r"interface/(.+)/(\d+\.\d+)/(\w+)\.hal", path)
        if match:
            folder, version, stem = match.groups()
            found.setdefault(package(folder, version), {})[stem] = path
    return found


def hashes_now(root, package):
    """What hidl-gen makes of the files: {"vendor...@1.0::IWifi": hash}."""
    with tempfile.TemporaryDirectory() as folder:
        # A root without the record: with it hidl-gen wants that of android.hidl.base too.
        for entry in os.listdir(os.path.join(root, "interface")):
            source = os.path.join(os.path.abspath(root), "interface", entry)
            if os.path.isdir(source):
                os.symlink(source, os.path.join(folder, entry))
        platform = os.path.join(os.path.abspath(root), "host/hidl/hal")
        printed = subprocess.run(
            ["hidl-gen", "-R", "-L", "hash", "-p", "/", "-r", f"{ROOT}:{folder}",
             "-r", f"android.hidl:{platform}", package],
            stdin=subprocess.DEVNULL, capture_output=True, text=True, check=False).stdout
    return {match.group(2): match.group(1)
            for match in map(_HASH.match, printed.splitlines()) if match}


def recorded(root, complaints):
    """What has shipped: {"vendor...@1.0::IWifi": (hash, line)}."""
    found = {}
    if not os.path.exists(os.path.join(root, RECORD)):
        complaints.append(f"{RECORD}: is missing; it records what has shipped")
        return found
    for number, line in enumerate(source_tree.read(root, RECORD).splitlines(), 1):
        line = re.sub(r"\s*#.*", "", line)
        if not line:
            continue
        match = _HASH.match(line)
        if not match:
            complaints.append(f"{RECORD}:{number}: is no line of 'hidl-gen -L hash'")
        elif match.group(2) in found:
            complaints.append(f"{RECORD}:{number}: {match.group(2)} is recorded twice")
        else:
            found[match.group(2)] = (match.group(1), number)
    return found


def wrong_modules(root):
    """Complaints about Android.bp files by which the build would not find the packages or RECORD."""
    complaints = []
    first_root = None  # there is none in an image whose own one has taken over the packages
    for path, kind, properties in check_android_bp.parse(root, complaints):
        match = re.fullmatch(r"interface/(?:(.+)/([^/]+)/)?Android\.bp", path)
        wanted = {}
        if match and kind == "hidl_package_root":
            wanted = {"name": ROOT, "use_current": True}
            if first_root is not None:
                complaints.append(f"{path}: there is another hidl_package_root in {first_root}")
            first_root = path
        elif match and kind == "hidl_interface":
            wanted = {"name": package(*match.groups("")), "root": ROOT}
        complaints += [f"{path}: {name} of {kind} is {properties.get(name)}, not {value}"
                       for name, value in wanted.items() if properties.get(name) != value]
    return complaints


def check(root):
    if shutil.which("hidl-gen") is None:
        return ["hidl-gen is not installed: apt-get install hidl-gen"]
    complaints = wrong_modules(root)
    record = recorded(root, complaints)
    known = set()
    for package_name, files in packages(root).items():
        frozen = any(name.startswith(package_name + "::") for name in record)
        now = hashes_now(root, package_name)
        for stem, path in sorted(files.items()):
            name = f"{package_name}::{stem}"
            known.add(name)
            if name not in now:
                complaints.append(f"{path}: hidl-gen prints no hash of it")
            elif frozen and name not in record:
                complaints.append(f"{path}: its package is frozen, but {RECORD} has no {name}: a "
                                  "new file belongs into the package's next version")
            elif frozen and record[name][0] != now[name]:
                complaints.append(
                    f"{path}: its hash {now[name][:12]}... is not the {record[name][0][:12]}... of "
                    f"{RECORD}:{record[name][1]}. It has shipped: a change, even of a comment, "
                    "belongs into the package's next version (docs/architecture.md, \"How the "
                    "interface grows\")")
    for name, (_, number) in record.items():
        if name not in known:
            complaints.append(f"{RECORD}:{number}: there is no .hal file of {name} in interface/")
    if not record and not complaints:
        complaints.append(f"{RECORD}: records nothing")
    return complaints


if __name__ == "__main__":
    source_tree.finish(check(sys.argv[1]))
