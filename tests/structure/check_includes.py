#!/usr/bin/env python3
"""check_includes.py SOURCE_TREE

Who may include what. A folder of the daemon includes its own headers and those of the folders below
it, always by their path from the root; the platform's headers by the device's own names; and of
other libraries only the folder's own. None of them knows of host/. Nor does tests/vts, which knows the
interface alone.
"""

import os
import re
import sys

import source_tree

# The project's folders that a folder may include besides itself.
MAY_INCLUDE = {
    "os": (),
    "config": (),
    "client": ("os",),
    "managers": ("client", "config", "os"),
    "service": ("managers", "client", "config", "os"),
    "tools": (),
    "host": (),
    "sim": ("host",),
    "trace": (),
    "tests/vts": (),
}

# Not a rule of a whole folder: the event descriptor posts to a Poll, a host finds the device's paths
# elsewhere, and the lists of properties and of their defaults are the daemon's own.
EXCEPTIONS = {("host/eventfd/", "os/Poll.h"), ("host/root/", "os/DevicePath.h"),
              ("trace/properties.cpp", "config/CorvidWifiProperties.h"),
              ("trace/properties.cpp", "managers/TxPowerSettings.h")}

# The libraries that a folder of the daemon may include, as the beginnings of their headers' names.
_EVERYWHERE = ("android-base/",)
LIBRARIES = {
    "os": ("cutils/trace.h", "log/"),
    "config": ("sys/system_properties.h",),
    "client": ("gsl/", "netlink/", "ursa/os/EventFd.h", "wpa_ctrl.h"),
    "managers": (
        "android/frameworks/stats/1.0/",
        "gsl/",
        "hidl/",
        "ursa/os/EventFd.h",
        "utils/",
        "vrsensors/",
    ),
    "service": (
        "corvid_build_info.h",
        "cutils/native_handle.h",
        "hidl/",
        "hwbinder/",
        "utils/",
        "vendor/corvid/hardware/wifi/",
        "vrsensors/",
    ),
    "tools": (
        "cutils/native_handle.h",
        "hidl/",
        "nlohmann/json.hpp",
        "sys/system_properties.h",
        "utils/",
        "vendor/corvid/hardware/wifi/",
    ),
    "tests/vts": ("cutils/native_handle.h", "gtest/", "hidl/", "vendor/corvid/hardware/wifi/"),
}

# Headers of C, C++ and the kernel: no folder, or one of these.
_SYSTEM = ("arpa/", "linux/", "net/", "netinet/", "sys/")

# Headers without a folder, or with one of the system's, that are not the system's.
_LIBRARY_HEADERS = ("wpa_ctrl.h", "sys/system_properties.h")

_FOLDERS = tuple(MAY_INCLUDE) + ("tests",)
_INCLUDE = re.compile(r'^[ \t]*#[ \t]*include[ \t]*([<"])([^>"\n]+)[>"]', re.MULTILINE)


def _folder_of(path):
    return "tests/vts" if path.startswith("tests/vts/") else path.split("/")[0]


def _is_system(header):
    return header not in _LIBRARY_HEADERS and ("/" not in header or header.startswith(_SYSTEM))


def _complaint(root, path, quoted, header):
    """What is wrong with one include, or None."""
    folder = _folder_of(path)
    target = _folder_of(header) if "/" in header else None
    if ".." in header.split("/"):
        return "includes go by the path from the root, not by .."

    if quoted and target in _FOLDERS:
        if target == "host" and folder in LIBRARIES:
            return "the host platform's headers are included by the device's own names"
        if folder == "tests" or target == folder or target in MAY_INCLUDE[folder]:
            if folder in LIBRARIES and not os.path.exists(os.path.join(root, header)):
                return "there is no such file"
            return None
        if any(path.startswith(who) and header == what for who, what in EXCEPTIONS):
            return None
        allowed = ", ".join(f"{name}/" for name in (folder,) + MAY_INCLUDE[folder])
        return f"{folder}/ may include {allowed} only"

    if folder not in LIBRARIES:
        return None  # host/, sim/ and tests/ include libraries as they like
    if quoted:
        return "the project's own headers are included by their path from the root"
    if target in MAY_INCLUDE and not _is_system(header):
        return "the project's own headers are included with quotation marks"
    if _is_system(header) or header.startswith(_EVERYWHERE + LIBRARIES[folder]):
        return None
    return f"{folder}/ may not use this library; LIBRARIES in check_includes.py says what it may"


def check(root):
    complaints = []
    sources = 0
    for path in source_tree.files(root):
        if _folder_of(path) not in _FOLDERS or not path.endswith((".h", ".hpp", ".c", ".cpp")):
            continue
        sources += 1
        text = source_tree.read(root, path)
        for match in _INCLUDE.finditer(text):
            wrong = _complaint(root, path, match.group(1) == '"', match.group(2))
            if wrong:
                line = source_tree.line_of(text, match.start(2))
                complaints.append(f"{path}:{line}: {match.group(2)}: {wrong}")
    if sources == 0:
        complaints.append(f"{root}: there are no sources")
    return complaints


if __name__ == "__main__":
    source_tree.finish(check(sys.argv[1]))
