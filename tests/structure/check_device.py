#!/usr/bin/env python3
"""check_device.py SOURCE_TREE

What device/ tells init and the VINTF manifest agrees with the code: names, paths, instance, groups, the
supplicant's socket folder. A complaint names both places. The XML files keep to vintf.xsd.
"""

import os
import re
import shutil
import subprocess
import sys
import xml.etree.ElementTree

import blueprint
import source_tree

DAEMON = "vendor.corvid.hardware.wifi@1.0-service"
SCRIPT = f"device/{DAEMON}.rc"
MANIFEST = f"device/{DAEMON}.xml"
FRAMEWORK_MATRIX = "device/framework_compatibility_matrix.xml"
DEVICE_MATRIX = "device/device_compatibility_matrix.xml"
MODULES = "service/Android.bp"
DEVICE_MODULES = "device/Android.bp"
INTERFACE = "interface/wifi/1.0/Android.bp"
ENTRY = "service/service.cpp"
OBJECT = "service/CorvidWifiService.h"
SOCKETS = "client/WpaClient.cpp"
INDEXES = "client/Nl80211Client.cpp"
SWITCHES = "config/FeatureSwitches.cpp"
REPORT = "tools/BugReport.cpp"
STATISTICS = "managers/support/TelemetryEventLogger.cpp"
STATISTICS_HEADER = "managers/support/TelemetryEventLogger.h"
FILE_CONTEXTS = "device/sepolicy/file_contexts"
NUMBERS = "lab/programs/confine.c"
WORDS = "lab/guest/words.sh"
PAGE = "docs/integration.md"
SCHEMA = os.path.join(os.path.dirname(os.path.abspath(__file__)), "vintf.xsd")

# Service options of Android 11's init, with the least and the most arguments that each takes.
OPTIONS = {
    "capabilities": (0, 40), "class": (1, 9), "console": (0, 1), "critical": (0, 0),
    "disabled": (0, 0), "enter_namespace": (2, 2), "file": (2, 2), "group": (1, 12),
    "interface": (2, 2), "ioprio": (2, 2), "keycodes": (1, 9), "memcg.limit_in_bytes": (1, 1),
    "memcg.limit_percent": (1, 1), "memcg.limit_property": (1, 1),
    "memcg.soft_limit_in_bytes": (1, 1), "memcg.swappiness": (1, 1), "namespace": (1, 2),
    "oneshot": (0, 0), "onrestart": (1, 99), "oom_score_adjust": (1, 1), "override": (0, 0),
    "priority": (1, 1), "reboot_on_failure": (1, 1), "restart_period": (1, 1), "rlimit": (3, 3),
    "seclabel": (1, 1), "setenv": (2, 2), "shutdown": (1, 1), "sigstop": (0, 0),
    "socket": (3, 6), "stdio_to_kmsg": (0, 0), "task_profiles": (1, 9),
    "timeout_period": (1, 1), "updatable": (0, 0), "user": (1, 1), "writepid": (1, 9),
}

_RESOURCES = ("as core cpu data fsize locks memlock msgqueue nice nofile nproc rss rtprio rttime "
              "sigpending stack").replace(" ", "|")
# Those that this check compares with the code, or whose arguments the script's comment explains. Any
# other is added here together with what it is compared with.
COMPARED = {"capabilities", "class", "disabled", "group", "interface", "memcg.limit_in_bytes",
            "oneshot", "priority", "restart_period", "rlimit", "seclabel", "user"}

# What the arguments of some look like.
ARGUMENTS = {
    "memcg.limit_in_bytes": r"\d+",
    "priority": r"-?1?\d|-20",
    "restart_period": r"\d+",
    "rlimit": rf"(?:{_RESOURCES}) (?:\d+|unlimited|-1) (?:\d+|unlimited|-1)",
}


def parts(text, separator):
    """What stands before and behind the last separator; nothing if the text is not known."""
    return (None, None) if text is None else tuple(text.rsplit(separator, 1))


def joined(*pieces):
    """One text; None if a piece is not known, of which there is a complaint already."""
    return None if None in pieces else "".join(pieces)


class Facts:
    """What the code says; each with the place where it says so."""

    def __init__(self, root, complaints):
        self.root = root
        self.complaints = complaints
        self.interface_module = self.of_module(INTERFACE, "hidl_interface", "name")
        self.package, self.version = parts(self.interface_module, "@")
        self.binary = self.of_module(MODULES, "cc_binary", "name")
        self.install = self.of_module(MODULES, "cc_binary", "relative_install_path")
        self.script = self.of_module(MODULES, "cc_binary", "init_rc")
        self.fragments = self.of_module(MODULES, "cc_binary", "vintf_fragments")
        self.instance = self.found(ENTRY, r'registerAsService\("(\w+)"\)')
        self.interface = self.found(OBJECT, r"class CorvidWifiService : public (\w+)")
        self.sockets = self.found(SOCKETS, r'devicePath\("([^"]+)"\)')
        self.asks_for_indexes = "if_nametoindex(" in self.text(INDEXES)
        self.report_sockets = self.found(REPORT, r'sockets = rooted\("([^"]+)"\)')
        self.statistics = self.found(STATISTICS, r"(I\w+)::tryGetService\(")
        instance = self.found(STATISTICS, r'::tryGetService\(((?:"\w+")?)\)')
        self.statistics_instance = None if instance is None else instance.strip('"') or "default"
        folder = self.found(STATISTICS_HEADER, r"#include <(android/[\w./]+)/I\w+\.h>")
        self.statistics_package, self.statistics_version = parts(folder, "/")
        if folder is not None:
            self.statistics_package = self.statistics_package.replace("/", ".")

    def text(self, path):
        if not os.path.exists(os.path.join(self.root, path)):
            self.complaints.append(f"{path}: is missing")
            return ""
        return source_tree.read(self.root, path)

    def found(self, path, pattern):
        match = re.search(pattern, self.text(path))
        if match:
            return match.group(1)
        self.complaints.append(f"{path}: has nothing like {pattern}, which device/ is compared with")
        return None

    def modules(self, path):
        """Those of an Android.bp file; none if it can't be read."""
        try:
            return blueprint.parse(self.text(path))
        except blueprint.Error as error:
            self.complaints.append(f"{path}: {error}")
            return []

    def of_module(self, path, kind, key):
        for module_kind, properties in self.modules(path):
            if module_kind == kind and key in properties:
                return properties[key]
        self.complaints.append(f"{path}: no {kind} has {key}")
        return None


def sections(text):
    """An init script's: [(line, words of the head, [(line, words)])]."""
    found = []
    for number, line in enumerate(text.splitlines(), 1):
        words = line.partition("#")[0].split()
        if not words:
            continue
        if words[0] in ("service", "on", "import"):
            found.append((number, words, []))
        elif found:
            found[-1][2].append((number, words))
        else:
            found.append((number, ["?"], [(number, words)]))
    return found


class Comparison:

    def __init__(self):
        self.complaints = []

    def same(self, here, what, is_now, there, to_be):
        """Complains, of both places, unless the two are equal or one is not known."""
        if is_now is not None and to_be is not None and is_now != to_be:
            self.complaints.append(f"{here}: {what} is {is_now!r}, but {there} has {to_be!r}")


def check_options(path, section, compare):
    """The options of one service; returns those that init takes as {name: [(line, arguments)]}."""
    options = {}
    for line, words in section[2]:
        name, arguments = words[0], words[1:]
        least, most = OPTIONS.get(name, (None, None))
        if least is None:
            compare.complaints.append(f"{path}:{line}: init knows no option {name}")
            continue
        if not least <= len(arguments) <= most:
            compare.complaints.append(f"{path}:{line}: {name} takes {least} to {most} arguments")
            continue
        if not re.fullmatch(ARGUMENTS.get(name, ".*"), " ".join(arguments)):
            compare.complaints.append(f"{path}:{line}: {name} takes no {' '.join(arguments)!r}")
        elif name not in COMPARED:
            compare.complaints.append(f"{path}:{line}: nothing compares {name} with the code; add it "
                                      "to tests/structure/check_device.py")
        if name in options:
            compare.complaints.append(f"{path}:{line}: {name} is already given at "
                                      f"{path}:{options[name][0][0]}")
        options.setdefault(name, []).append((line, arguments))
    return options


def check_start(options, compare):
    """When init starts the service, and that it does so again."""
    line, arguments = options["class"][0]
    if arguments != ["hal"]:
        compare.complaints.append(f"{SCRIPT}:{line}: the class is {' '.join(arguments)!r}; {SWITCHES} "
                                  "reads persistent properties at the start, and class hal starts "
                                  "when they are there")
    for option in ("disabled", "oneshot"):
        if option in options:
            compare.complaints.append(f"{SCRIPT}:{options[option][0][0]}: with {option}, init does "
                                      f"not start the service again that {ENTRY} ends when it can't "
                                      "register")


def check_user(facts, options, compare):
    """The lab has a number for the user, the one that it gives to what the daemon's user owns; the
    page names the user. init starts the service in the policy's domain."""
    line, (user,) = options["user"][0]
    here = f"{SCRIPT}:{line}: the user is {user!r}"
    numbers = dict(re.findall(r'\{"(\w+)", (\d+)\}', facts.text(NUMBERS)))
    number = facts.found(WORDS, r"(?m)^wifi=(\d+)$")
    if user not in numbers:
        compare.complaints.append(f"{here}, but kIds in {NUMBERS} has no such user")
    elif number is not None and numbers[user] != number:
        compare.complaints.append(f"{here}, which is {numbers[user]} in {NUMBERS}, but {WORDS} has "
                                  f"wifi={number}")
    if f"as user `{user}`" not in facts.text(PAGE):
        compare.complaints.append(f"{here}, but {PAGE} does not say that the supplicant runs as user "
                                  f"`{user}`")
    if "seclabel" in options:
        compare.complaints.append(f"{SCRIPT}:{options['seclabel'][0][0]}: with seclabel the daemon has "
                                  f"another domain than that which {FILE_CONTEXTS} leads to")


def check_groups(facts, options, group, compare):
    """The service has the folder's group, that of AF_INET sockets if it needs one, and no other."""
    line, groups = options["group"][0]
    needed = [group, "inet"] if facts.asks_for_indexes else [group]
    if group not in groups:
        compare.complaints.append(f"{SCRIPT}:{line}: the service has not the group {group} of the "
                                  f"folder in which {SOCKETS} looks for sockets")
    elif sorted(groups) != sorted(needed):
        compare.complaints.append(
            f"{SCRIPT}:{line}: the groups are {' '.join(groups)!r}, but beside that of the sockets' "
            f"folder {INDEXES} needs {'inet' if facts.asks_for_indexes else 'none'}, for "
            "if_nametoindex()")


def check_folders_above(folders, wanted, compare):
    """The script makes the folders above that of the sockets, and lets the service through."""
    owner = folders[wanted][1][1]
    above = os.path.dirname(wanted)
    while above not in ("/data/vendor", "/"):
        line, (mode, its_owner, _) = folders.get(above, (0, ("", "", "")))
        if not line:
            compare.complaints.append(f"{SCRIPT}: makes no folder {above}, above the one in which "
                                      f"{SOCKETS} looks for sockets")
        elif its_owner != owner and not re.search("[1357]$", mode):
            compare.complaints.append(f"{SCRIPT}:{line}: {above} is {its_owner}'s with mode {mode}: "
                                      f"{SOCKETS} does not get to the sockets below it")
        above = os.path.dirname(above)


def made_folders(parsed, compare):
    """What the script has init make: {folder: (line, [mode, owner, group])}. It does nothing else."""
    folders = {}
    for head, words, commands in parsed:
        if words[0] == "service":
            continue
        if words != ["on", "post-fs-data"]:
            compare.complaints.append(f"{SCRIPT}:{head}: nothing compares '{' '.join(words)}' with the "
                                      "code; add it to tests/structure/check_device.py")
            continue
        for line, (command, *arguments) in commands:
            if command != "mkdir" or len(arguments) != 4:
                compare.complaints.append(f"{SCRIPT}:{line}: is no 'mkdir FOLDER MODE OWNER GROUP'")
            elif arguments[0] in folders:
                compare.complaints.append(f"{SCRIPT}:{line}: {arguments[0]} is already made at "
                                          f"{SCRIPT}:{folders[arguments[0]][0]}")
            else:
                folders[arguments[0]] = (line, arguments[1:])
    return folders


def check_script(facts, compare):
    """The init script."""
    parsed = sections(facts.text(SCRIPT))
    services = [section for section in parsed if section[1][0] == "service"]
    if len(services) != 1:
        compare.complaints.append(f"{SCRIPT}: has {len(services)} services, not one")
        return
    line, (_, *words), _ = services[0]
    if len(words) < 2:
        compare.complaints.append(f"{SCRIPT}:{line}: is no 'service NAME PATH'")
        return
    if len(words) > 2:
        compare.complaints.append(f"{SCRIPT}:{line}: the service has arguments, which nothing compares "
                                  "with the code")
    options = check_options(SCRIPT, services[0], compare)
    compare.same(f"{SCRIPT}:{line}", "the program", words[1], MODULES,
                 joined("/vendor/bin/", facts.install, "/", facts.binary))
    for option in ("interface", "user", "group", "class", "capabilities"):
        if option not in options:
            compare.complaints.append(f"{SCRIPT}:{line}: the service has no {option}")
            return
    line, arguments = options["interface"][0]
    compare.same(f"{SCRIPT}:{line}", "the interface", arguments[0], f"{INTERFACE} and {OBJECT}",
                 joined(facts.interface_module, "::", facts.interface))
    compare.same(f"{SCRIPT}:{line}", "the instance", arguments[1], ENTRY, facts.instance)

    check_start(options, compare)
    check_user(facts, options, compare)

    user = options["user"][0][1][0]
    folders = made_folders(parsed, compare)
    wanted = (facts.sockets or "").rstrip("/")
    for place, folder in ((SOCKETS, wanted), (REPORT, facts.report_sockets)):
        if folder not in folders:
            compare.complaints.append(f"{SCRIPT}: makes no folder {folder} on post-fs-data, with "
                                      f"mode, owner and group; {place} looks for sockets there")
    if wanted not in folders:
        return
    line, (mode, owner, group) = folders[wanted]
    if not re.fullmatch("0?7[0-7]0", mode):
        compare.complaints.append(f"{SCRIPT}:{line}: the folder's mode is {mode}; {SOCKETS} follows "
                                  "it as its owner, and the sockets are for owner and group only")
    if owner != user:
        compare.same(f"{SCRIPT}:{line}", "the folder's owner", owner,
                     f"{SCRIPT}:{options['user'][0][0]} (user)", user)
        return
    check_groups(facts, options, group, compare)
    check_folders_above(folders, wanted, compare)


def check_references(facts, compare):
    """The modules that install script and manifest."""
    for key, path, value in (("init_rc", SCRIPT, facts.script),
                             ("vintf_fragments", MANIFEST, facts.fragments)):
        name = os.path.basename(path)
        if value is None:
            continue
        compare.same(MODULES, key, value, DEVICE_MODULES, [f":{name}"])
        groups = [properties for kind, properties in facts.modules(DEVICE_MODULES)
                  if kind == "filegroup" and properties.get("name") == name]
        if [group.get("srcs") for group in groups] != [[name]]:
            compare.complaints.append(f"{DEVICE_MODULES}: no filegroup {name} holds {path}, which "
                                      f"{MODULES} names as {key}")


def tree_of(facts, path, compare):
    text = facts.text(path)
    try:
        return xml.etree.ElementTree.fromstring(text)
    except xml.etree.ElementTree.ParseError as error:
        compare.complaints.append(f"{path}: {error}")
        return None


def check_listed(path, root, what, place, there, to_be, compare):
    """Everything that stands at a place of an XML file is this one text."""
    listed = [element.text for element in root.findall(place)]
    compare.same(path, what, ", ".join(text or "" for text in listed), there, to_be)


def check_vintf(facts, compare):
    """Manifest and matrices, beside the schema."""
    root = tree_of(facts, MANIFEST, compare)
    if root is not None:
        compare.same(MANIFEST, "the type", root.get("type"), "a device's manifest", "device")
        check_listed(MANIFEST, root, "the package", "hal/name", INTERFACE, facts.package, compare)
        check_listed(MANIFEST, root, "the service", "hal/fqname",
                     f"{INTERFACE}, {OBJECT} and {ENTRY}",
                     joined("@", facts.version, "::", facts.interface, "/", facts.instance), compare)
    for path, side, wanted in (
            (FRAMEWORK_MATRIX, "framework", (("package", "hal/name", INTERFACE, facts.package),
                                             ("version", "hal/version", INTERFACE, facts.version),
                                             ("interface", "hal/interface/name", OBJECT,
                                              facts.interface),
                                             ("instance", "hal/interface/instance", ENTRY,
                                              facts.instance))),
            (DEVICE_MATRIX, "device", (("package", "hal/name", STATISTICS_HEADER,
                                        facts.statistics_package),
                                       ("version", "hal/version", STATISTICS_HEADER,
                                        facts.statistics_version),
                                       ("interface", "hal/interface/name", STATISTICS,
                                        facts.statistics),
                                       ("instance", "hal/interface/instance", STATISTICS,
                                        facts.statistics_instance)))):
        root = tree_of(facts, path, compare)
        if root is None:
            continue
        compare.same(path, "the type", root.get("type"), "its use", side)
        for what, place, there, to_be in wanted:
            check_listed(path, root, f"the {what}", place, there, to_be, compare)
        for hal in root.findall("hal"):
            if hal.get("optional") != "true":
                compare.complaints.append(f"{path}: {hal.findtext('name')} is not optional: an "
                                          "image without it would not pass")


def check_schema(root, compare):
    if shutil.which("xmllint") is None:
        compare.complaints.append("xmllint is not installed: apt-get install libxml2-utils")
        return
    for path in source_tree.files(root):
        if path.startswith("device/") and path.endswith(".xml"):
            result = subprocess.run(
                ["xmllint", "--noout", "--schema", SCHEMA, os.path.join(root, path)],
                stdin=subprocess.DEVNULL, capture_output=True, text=True, check=False)
            if result.returncode != 0:
                compare.complaints.append(f"{path}: does not keep to tests/structure/vintf.xsd:\n"
                                          f"{result.stderr}")


def check(root):
    compare = Comparison()
    facts = Facts(root, compare.complaints)
    check_script(facts, compare)
    check_references(facts, compare)
    check_vintf(facts, compare)
    check_schema(root, compare)
    # A file that several facts are from is missed once.
    return list(dict.fromkeys(compare.complaints))


if __name__ == "__main__":
    source_tree.finish(check(sys.argv[1]))
