#!/usr/bin/env python3
"""check_android_bp.py SOURCE_TREE SOURCE_LISTS

The Android.bp files build what CMake builds: every module with sources has a source list that
CMake has written, with the same files, and the other way round. Every source file of the device's
folders is in one of them. Each property is one that the module's type knows (soong.py), and what a
module names of this tree, another module or a file, is there. A module has the libraries whose headers
its sources include, each header in a folder is of a module or the system, and a module has exceptions if
its sources use them. Every program and library is built with SANITIZERS,
every test is in a suite. bpfmt accepts every Android.bp file and would not change it.
"""

import glob
import os
import re
import shutil
import subprocess
import sys

import blueprint
import soong
import source_tree

# The properties that name modules, with the types that such a module may have.
LINKED = ("cc_library", "cc_library_static")
NAMING = {
    "defaults": ("cc_defaults",),
    "header_libs": ("cc_library_headers",),
    "shared_libs": ("cc_library", "cc_library_shared", "hidl_interface"),
    "static_libs": LINKED,
    "whole_static_libs": LINKED,
    "generated_headers": ("genrule",),
    "init_rc": ("filegroup",),
    "vintf_fragments": ("filegroup",),
}

# The modules that have these headers, by the beginning of their names.
HEADERS = {
    "android-base/": "libbase",
    "android/frameworks/stats/1.0/": "android.frameworks.stats@1.0",
    "android/log.h": "liblog",
    "corvid_wifi_version.h": "corvidwifi_version",
    "cutils/": "libcutils",
    "filesystem": "libc++fs",
    "gmock/": "libgmock",
    "gsl/": "gsl",
    "hidl/": "libhidlbase",
    "hwbinder/": "libhidlbase",
    "log/": "liblog",
    "netlink/": "libnl",
    "nlohmann/": "nlohmann-json",
    "ursa/": "libursaos",
    "utils/": "libutils",
    "vendor/corvid/hardware/wifi/1.0/": "vendor.corvid.hardware.wifi@1.0",
    "vrsensors/": "libvrsensors-hidlwrapper",
    "wpa_ctrl.h": "libwpa_client",
}

# The folders of headers that need no module: of the C library and the kernel, and of GoogleTest, which
# every cc_test has.
SYSTEM_HEADERS = ("arpa/", "gtest/", "linux/", "net/", "netinet/", "sys/")

# What the platform builds its own vendor daemons with.
SANITIZERS = ("cfi", "integer_overflow")


def parse(root, complaints):
    """Every module: [(path of the Android.bp, type, properties)]."""
    modules = []
    for path in source_tree.files(root):
        if os.path.basename(path) != "Android.bp":
            continue
        try:
            modules += [(path, *module)
                        for module in blueprint.parse(source_tree.read(root, path))]
        except blueprint.Error as error:
            complaints.append(f"{path}: {error}")
    return modules


def module_sources(parsed, complaints):
    """The sources of each module with any: {module name: (its Android.bp, [paths relative to root])}."""
    modules = {}
    for path, kind, properties in parsed:
        if "srcs" not in properties or kind in ("filegroup", "genrule"):
            continue
        name = properties.get("name")
        if kind == "cc_defaults" or name is None:
            complaints.append(f"{path}: {kind} {name} has srcs; they belong into a named "
                              "module, where they can be compared")
        elif name in modules:
            complaints.append(f"{path}: there is another module {name} in {modules[name][0]}")
        else:
            modules[name] = (path, [
                os.path.normpath(os.path.join(os.path.dirname(path), source))
                for source in properties["srcs"]
            ])
    return modules


def unknown_properties(parsed):
    """Complaints about what Soong would not take."""
    return [
        f"{path}: {properties.get('name')}: {complaint} (by tests/structure/soong.py)"
        for path, kind, properties in parsed
        for complaint in soong.complaints(kind, properties)
    ]


def missing_modules(parsed):
    """Complaints about modules of this tree that are named, but not there or of another type. Which
    the platform's are is not known here: ours have the product in their name."""
    types = {properties.get("name"): (kind, path) for path, kind, properties in parsed}
    complaints = []
    for path, _, properties in parsed:
        here = f"{path}: {properties.get('name')}"
        for naming, allowed in NAMING.items():
            for name in properties.get(naming, []):
                name = name.lstrip(":")
                kind, place = types.get(name, (None, None))
                if kind is None:
                    if naming == "defaults" or "corvid" in name:
                        complaints.append(f"{here} has {name} in {naming}, but no Android.bp has "
                                          "a module of that name")
                elif kind not in allowed:
                    complaints.append(f"{here} has {name} in {naming}, but in {place} it is a "
                                      f"{kind}")
    return complaints


def missing_files(root, parsed):
    """Complaints about files beside an Android.bp that it names, but that are not there."""
    return [
        f"{path}: {properties.get('name')} has {name} in {naming}, but there is no "
        f"{os.path.join(os.path.dirname(path), name)}"
        for path, _, properties in parsed
        for naming in ("srcs", "corpus", "data")
        for name in properties.get(naming, [])
        if not name.startswith(":") and
        not glob.glob(os.path.join(root, os.path.dirname(path), name))
    ]


def unsanitized(parsed):
    """Complaints about modules with code that neither they nor their defaults sanitize."""
    modules = {properties.get("name"): properties for _, _, properties in parsed}

    def has(name, sanitizer):
        properties = modules.get(name, {})
        value = properties.get("sanitize", {}).get(sanitizer)
        return value if value is not None else any(
            has(defaults, sanitizer) for defaults in properties.get("defaults", []))

    return [
        f"{path}: {properties['name']}: sanitize.{sanitizer} is not true, here or in its defaults"
        for path, kind, properties in parsed
        if kind in ("cc_binary", "cc_fuzz", "cc_library_static", "cc_test")
        for sanitizer in SANITIZERS if not has(properties["name"], sanitizer)
    ]


def all_files(root, sources):
    """The sources with the tree's own headers that they include, directly or by another."""
    found = []
    ahead = [source for source in sources if os.path.exists(os.path.join(root, source))]
    while ahead:
        path = ahead.pop()
        if path not in found:
            found.append(path)
            ahead += [header for header in re.findall(r'^#include "(.*)"',
                                                      source_tree.read(root, path), re.MULTILINE)
                      if os.path.exists(os.path.join(root, header))]
    return found


def unlinked(root, parsed, modules):
    """Complaints about libraries and exceptions that a module's sources use, but it lacks."""
    properties_of = {properties.get("name"): properties for _, _, properties in parsed}

    def of(name, *keys):
        properties = properties_of.get(name, {})
        return {value for key in keys for value in properties.get(key, [])}.union(
            *(of(defaults, *keys) for defaults in properties.get("defaults", [])))

    complaints = []
    for name, (path, sources) in modules.items():
        linked = of(name, "shared_libs", "static_libs", "header_libs", "generated_headers")
        throwing = "-fexceptions" in of(name, "cppflags")
        missing = {}
        for file in all_files(root, sources):
            text = source_tree.code(root, file)
            for header in re.findall(r"^#include <(.*)>", text, re.MULTILINE):
                libraries = [library for begin, library in HEADERS.items()
                             if header.startswith(begin)]
                missing.update((library, f"{file} includes <{header}>")
                               for library in libraries if library not in linked)
                if "/" in header and not libraries and not header.startswith(SYSTEM_HEADERS):
                    complaints.append(f"{path}: {name}: {file} includes <{header}>, but no module "
                                      "has that (by HEADERS in tests/structure/check_android_bp.py)")
            if not throwing and re.search(r"\b(?:try \{|throw[ ;])", text):
                missing["cppflags: -fexceptions"] = f"{file} uses exceptions"
        complaints += [f"{path}: {name} lacks {what}, but {why}"
                       for what, why in sorted(missing.items())]
    return complaints


def suites(parsed):
    """Complaints about tests that no suite has."""
    defaults = {properties.get("name"): properties for _, kind, properties in parsed
                if kind == "cc_defaults"}
    complaints = []
    for path, kind, properties in parsed:
        if kind != "cc_test":
            continue
        name = properties.get("name")
        inherited = [suite for other in properties.get("defaults", [])
                     for suite in defaults.get(other, {}).get("test_suites", [])]
        for suite in ("device-tests", *(("vts",) if name.startswith("Vts") else ())):
            if suite not in properties.get("test_suites", []) + inherited:
                complaints.append(f"{path}: {name} is not in the test suite {suite}")
    return complaints


def source_lists(folder):
    """What CMake has written: {target's name: (its CMakeLists.txt, [paths relative to the tree])}."""
    lists = {}
    for name in sorted(os.listdir(folder)):
        place, *sources = source_tree.read(folder, name).split()
        lists[name] = (place, sources)
    return lists


def compare(modules, lists):
    """Complaints about modules and source lists that differ."""
    complaints = []
    for name in sorted(modules.keys() | lists.keys()):
        if name not in lists:
            complaints.append(f"{modules[name][0]}: {name} is built by no CMakeLists.txt; add the "
                              "target with device_target(TARGET)")
        elif name not in modules:
            complaints.append(f"{lists[name][0]}: {name} is a device's target, but no Android.bp "
                              "has a module with that name and srcs")
        else:
            blueprint_file, device = modules[name]
            cmake_file, host = lists[name]
            for source in sorted(set(host) - set(device)):
                complaints.append(f"{blueprint_file}: {name} lacks {source}, which {cmake_file} has")
            for source in sorted(set(device) - set(host)):
                complaints.append(f"{cmake_file}: {name} lacks {source}, which {blueprint_file} has")
            for source in sorted({s for s in device if device.count(s) > 1}):
                complaints.append(f"{blueprint_file}: {name} has {source} twice")
    return complaints


def unlisted(root, *builds):
    """Complaints about sources of the device's folders that nothing builds."""
    listed = {source for build in builds for _, sources in build.values() for source in sources}
    return [
        f"{path}: neither an Android.bp nor a CMakeLists.txt has this source"
        for path in source_tree.files(root)
        if path.split(os.sep)[0] in source_tree.DEVICE_FOLDERS + ("interface",) and
        path.endswith((".cpp", ".c", ".hal")) and path not in listed
    ]


def formatting(root):
    """What bpfmt has to say about the Android.bp files."""
    if shutil.which("bpfmt") is None:
        return ["bpfmt is not installed: apt-get install blueprint-tools"]
    complaints = []
    for path in source_tree.files(root):
        if os.path.basename(path) != "Android.bp":
            continue
        result = subprocess.run(["bpfmt", "-d", os.path.join(root, path)],
                                stdin=subprocess.DEVNULL, capture_output=True, text=True,
                                check=False)
        if result.returncode != 0:
            complaints.append(f"{path}: bpfmt does not accept it:\n{result.stderr}")
        elif result.stdout:
            complaints.append(f"{path}: not formatted, run bpfmt -w on it:\n{result.stdout}")
    return complaints


def check(root, lists_folder):
    complaints = []
    parsed = parse(root, complaints)
    modules = module_sources(parsed, complaints)
    lists = source_lists(lists_folder)
    if not modules or not lists:
        complaints.append(f"found {len(modules)} modules and {len(lists)} source lists: there is "
                          "nothing to compare")
    complaints += unknown_properties(parsed) + missing_modules(parsed) + missing_files(root, parsed)
    complaints += unsanitized(parsed) + suites(parsed) + unlinked(root, parsed, modules)
    return complaints + compare(modules, lists) + unlisted(root, modules, lists) + formatting(root)


if __name__ == "__main__":
    source_tree.finish(check(sys.argv[1], sys.argv[2]))
