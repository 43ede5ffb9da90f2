#!/usr/bin/env python3
"""check_android_bp.py SOURCE_TREE SOURCE_LISTS

The Android.bp files build what CMake builds: every module with sources has a source list that
CMake has written, with the same files, and the other way round. Every source file of the device's
folders is in one of them. Each property is one that the module's type knows (soong.py), and what a
module names of this tree, another module or a file, is there. A module has the libraries whose headers
its sources include, this tree's and the platform's, each header in a folder is of a module or the system,
and a module has exceptions if its sources use them. Every program and library is the vendor's and built
with SANITIZERS, every test is in a suite and has one main, and what is generated has the name that is
included. bpfmt accepts every Android.bp file and would not change it.
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

BY_HEADERS = "by HEADERS in tests/structure/check_android_bp.py"

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


def by_name(parsed):
    """{module name: its properties}."""
    return {properties.get("name"): properties for _, _, properties in parsed}


def setting(modules, name, *keys):
    """What a module or its defaults set a property to, a map's by its keys; None: nothing."""
    value = modules.get(name, {})
    for key in keys:
        value = value.get(key) if isinstance(value, dict) else None
    if value is not None:
        return value
    for defaults in modules.get(name, {}).get("defaults", []):
        value = setting(modules, defaults, *keys)
        if value is not None:
            return value
    return None


def listed(modules, name, *keys):
    """What a module and its defaults have in these lists."""
    properties = modules.get(name, {})
    return {value for key in keys for value in properties.get(key, [])}.union(
        *(listed(modules, defaults, *keys) for defaults in properties.get("defaults", [])))


def unset(parsed):
    """Complaints about modules with code whose properties are not what each of ours has, by itself
    or by its defaults."""
    wanted = [(("vendor",), True), (("sanitize", "never"), None),
              *((("sanitize", sanitizer), True) for sanitizer in SANITIZERS)]
    modules = by_name(parsed)
    complaints = []
    for path, kind, properties in parsed:
        if kind not in ("cc_binary", "cc_fuzz", "cc_test", "cc_library", "cc_library_shared",
                        "cc_library_static"):
            continue
        name = properties.get("name")
        for keys, value in wanted:
            found = setting(modules, name, *keys)
            if found != value:
                complaints.append(f"{path}: {name}: {'.'.join(keys)} is {describe(found)}, not "
                                  f"{describe(value)}, here or in its defaults")
    return complaints


def describe(value):
    return "unset" if value is None else str(value).lower()


def entries(root, parsed, modules):
    """Complaints about tests with two main functions, or none."""
    complaints = []
    for path, kind, properties in parsed:
        name = properties.get("name")
        if kind == "cc_test" and name in modules:
            own = next((source for source in modules[name][1]
                        if os.path.exists(os.path.join(root, source)) and
                        re.search(r"^int main\(", source_tree.code(root, source), re.MULTILINE)),
                       None)
            if own and properties.get("gtest") is not False:
                complaints.append(f"{path}: {name} has the main of {own} and GoogleTest's: gtest is "
                                  "not false")
            elif not own and properties.get("gtest") is False:
                complaints.append(f"{path}: {name}: gtest is false, but no source of its has a main")
    return complaints


def not_generated(parsed):
    """Complaints about headers that a genrule is included for, but does not make."""
    modules = by_name(parsed)
    places = {properties.get("name"): path for path, kind, properties in parsed
              if kind == "genrule"}
    return [
        f"{places[module]}: {module} has {modules[module].get('out')} in out, but it is included as "
        f"<{header}>, {BY_HEADERS}"
        for header, module in HEADERS.items()
        if module in places and header not in modules[module].get("out", [])
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


def with_libraries(modules, name):
    """A module with the static libraries that it links, and those that they are made of."""
    return {name}.union(*(with_libraries(modules, library)
                          for library in listed(modules, name, "static_libs", "whole_static_libs")
                          if library in modules))


def unlinked(root, parsed, modules):
    """Complaints about libraries and exceptions that a module's sources use, but it lacks. What a
    header of this tree declares is in the module that has the source of that name."""
    properties_of = by_name(parsed)
    home = {os.path.splitext(source)[0]: name
            for name, (_, sources) in modules.items() for source in sources}
    complaints = []
    for name, (path, sources) in modules.items():
        linked = listed(properties_of, name, "shared_libs", "static_libs", "header_libs",
                        "generated_headers")
        throwing = "-fexceptions" in listed(properties_of, name, "cppflags")
        missing = {}
        for file in all_files(root, sources):
            owner = home.get(os.path.splitext(file)[0], name)
            if owner not in with_libraries(properties_of, name):
                missing[owner] = f"its sources include {file}"
            text = source_tree.code(root, file)
            for header in re.findall(r"^#include <(.*)>", text, re.MULTILINE):
                libraries = [library for begin, library in HEADERS.items()
                             if header.startswith(begin)]
                missing.update((library, f"{file} includes <{header}>, its header {BY_HEADERS}")
                               for library in libraries if library not in linked)
                if "/" in header and not libraries and not header.startswith(SYSTEM_HEADERS):
                    complaints.append(f"{path}: {name}: {file} includes <{header}>, which no "
                                      f"module has {BY_HEADERS}")
            if not throwing and re.search(r"\b(?:try \{|throw[ ;])", text):
                missing["cppflags: -fexceptions"] = f"{file} uses exceptions"
        complaints += [f"{path}: {name} lacks {what}, but {why}"
                       for what, why in sorted(missing.items())]
    return complaints


def suites(parsed):
    """Complaints about tests that no suite has."""
    modules = by_name(parsed)
    return [
        f"{path}: {properties['name']} is not in the test suite {suite}"
        for path, kind, properties in parsed if kind == "cc_test"
        for suite in ("device-tests", *(("vts",) if properties["name"].startswith("Vts") else ()))
        if suite not in listed(modules, properties["name"], "test_suites")
    ]


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
    complaints += unset(parsed) + suites(parsed) + unlinked(root, parsed, modules)
    complaints += entries(root, parsed, modules) + not_generated(parsed)
    return complaints + compare(modules, lists) + unlisted(root, modules, lists) + formatting(root)


if __name__ == "__main__":
    source_tree.finish(check(sys.argv[1], sys.argv[2]))
