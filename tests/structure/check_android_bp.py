#!/usr/bin/env python3
"""check_android_bp.py SOURCE_TREE SOURCE_LISTS

The Android.bp files build what CMake builds: every module with sources has a source list that
CMake has written, with the same files, and the other way round. Every source file of the device's
folders is in one of them. bpfmt accepts every Android.bp file and would not change it.
"""

import os
import shutil
import subprocess
import sys

import blueprint
import source_tree


def module_sources(root, complaints):
    """The sources of each module with any: {module name: [paths relative to root]}."""
    modules = {}
    for path in source_tree.files(root):
        if os.path.basename(path) != "Android.bp":
            continue
        folder = os.path.dirname(path)
        try:
            parsed = blueprint.parse(source_tree.read(root, path))
        except blueprint.Error as error:
            complaints.append(f"{path}: {error}")
            continue
        for kind, properties in parsed:
            if "srcs" not in properties or kind == "filegroup":
                continue
            name = properties.get("name")
            if kind == "cc_defaults" or name is None:
                complaints.append(f"{path}: {kind} {name} has srcs; they belong into a named "
                                  "module, where they can be compared")
            elif name in modules:
                complaints.append(f"{path}: there is another module {name}")
            else:
                modules[name] = [
                    os.path.normpath(os.path.join(folder, source))
                    for source in properties["srcs"]
                ]
    return modules


def source_lists(folder):
    """What CMake has written: {target's name: [paths relative to the source tree]}."""
    return {
        name: source_tree.read(folder, name).split()
        for name in sorted(os.listdir(folder))
    }


def compare(modules, lists):
    """Complaints about modules and source lists that differ."""
    complaints = []
    for name in sorted(modules.keys() | lists.keys()):
        if name not in lists:
            complaints.append(f"{name}: a module of an Android.bp that CMake does not build; "
                              "add the target with device_target(TARGET)")
        elif name not in modules:
            complaints.append(f"{name}: built by CMake as a device's target, but no Android.bp "
                              "has a module with that name and srcs")
        else:
            device, host = modules[name], lists[name]
            for source in sorted(set(host) - set(device)):
                complaints.append(f"{name}: {source} is missing in the Android.bp")
            for source in sorted(set(device) - set(host)):
                complaints.append(f"{name}: {source} is missing in the CMakeLists.txt")
            for source in sorted({s for s in device if device.count(s) > 1}):
                complaints.append(f"{name}: {source} is twice in the Android.bp")
    return complaints


def unlisted(root, lists):
    """Complaints about sources of the device's folders that nothing builds."""
    listed = {source for sources in lists.values() for source in sources}
    return [
        f"{path}: no target that the device builds too has this source"
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
    modules = module_sources(root, complaints)
    lists = source_lists(lists_folder)
    if not modules or not lists:
        complaints.append(f"found {len(modules)} modules and {len(lists)} source lists: there is "
                          "nothing to compare")
    return complaints + compare(modules, lists) + unlisted(root, lists) + formatting(root)


if __name__ == "__main__":
    source_tree.finish(check(sys.argv[1], sys.argv[2]))
