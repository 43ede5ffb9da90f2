#!/usr/bin/env python3
"""check_integration.py SOURCE_TREE

docs/integration.md names each file of device/, each library, module, command and vendor command, and
nothing that is not there: no file, property, service, event, reply, or line of the log. A complaint
names the page and the place in the tree.
"""

import os
import re
import sys

import check_device
import source_tree
from check_device import DEVICE_MATRIX, ENTRY, FRAMEWORK_MATRIX, OBJECT, PAGE, SCRIPT, SOCKETS

# What prints on two sheets of A4, at 10 points.
MOST_WORDS = 1100
PROPERTIES = "config/CorvidWifiProperties.h"
EVENTS = "client/WpaEvents.cpp"
LIBRARY = "client/Android.bp"
# Where the tree lies in the platform's, as the page has it.
CLONE = "vendor/corvid/wifi/"

# A command to the radio, as a literal begins and as the page has it.
_COMMAND = r"(?:DRIVER |CORVID_P2P_|P2P_)[A-Z0-9_]+"
_LOG = re.compile(r"\b(WIFI|WPA)_LOG(?:[DIWE])?\(\s*(?:\w+, )*((?:\"[^\"\n]*\"\s*)+)")
_FORMATS = {"d": r"-?\d+", "u": r"\d+", "s": r".*"}


def code_files(root):
    return [path for path in source_tree.files(root)
            if path.split(os.sep)[0] in source_tree.DAEMON_FOLDERS and path.endswith((".cpp", ".h"))]


def of_format(text):
    """The regular expression of what printf() makes of a format, or scanf() takes."""
    pieces = re.split(r"%[-0-9.*l]*([dus])", text)
    return "".join(_FORMATS[piece] if index % 2 else re.escape(piece)
                   for index, piece in enumerate(pieces))


def literals(text):
    return "".join(re.findall(r'"([^"]*)"', text))


def log_lines(root):
    """What can stand in the log: {source's name: [regular expression]}, WPA_LOG's below "". Without the
    formats that have no text of their own."""
    found = {}
    for path in code_files(root):
        for kind, text in _LOG.findall(source_tree.code(root, path)):
            name = os.path.basename(path).rpartition(".")[0] if kind == "WIFI" else ""
            if re.search(r"\w", re.sub("%.", "", literals(text))):
                found.setdefault(name, []).append(of_format(literals(text)))
    return found


def rest_of_expression(text):
    """What is put together with a literal that ends where the text begins: by "+" up to the end of the
    argument or statement, by "<<" up to the end of the function."""
    depth = 0
    for offset, mark in enumerate(text):
        if mark == "(":
            depth += 1
        elif mark == ")" and depth > 0:
            depth -= 1
        elif mark == ")" and not re.match(r"\)\s*\+", text[offset:]) or \
                mark == "," and depth == 0 or mark == ";":
            return text[:offset]
    return text


def commands(root):
    """What the daemon sends to radios: [(place, name, regular expression)]."""
    found = []
    for path in code_files(root):
        text = source_tree.code(root, path)
        for match in re.finditer(rf'"({_COMMAND})( [^"]*)"', text):
            rest = text[match.end():]
            if text[:match.start()].endswith("<< "):
                rest = rest[:rest.find("return")].rstrip("} \n")
            else:
                rest = rest_of_expression(rest)
            rest = re.split(rf'"{_COMMAND}', rest)[0]
            # A value stands where an expression does.
            pieces = re.split(r'"([^"]*)"', rest)
            pattern = re.escape(match.group(1) + match.group(2)) + "".join(
                re.escape(piece) if index % 2 else r"\S+" if re.search(r"\w", piece) else ""
                for index, piece in enumerate(pieces))
            place = f"{path}:{source_tree.line_of(text, match.start())}"
            found.append((place, match.group(1), pattern))
    return found


def check_commands(root, page, complaints):
    """The page's commands are the daemon's, and it has each of those."""
    sent = commands(root)
    if not sent:
        complaints.append(f"managers/: sends no commands to compare with {PAGE}")
    shown = re.findall(rf"`(?:ifname=\w+ )?({_COMMAND}[^`]*)`|cmd:({_COMMAND}.*?) reply:", page)
    for command in sorted({one or other for one, other in shown}):
        name = re.match(_COMMAND, command).group()
        if not any(re.fullmatch(pattern, command) for _, _, pattern in sent):
            places = [place for place, of_code, _ in sent if of_code == name]
            complaints.append(f"{PAGE}: shows the command '{command}', but "
                              f"{' and '.join(places) or 'no source'} sends "
                              f"{'another text' if places else 'it'}")
    for place, name, _ in sent:
        if not re.search(rf"[` ]{name}\b", page):
            complaints.append(f"{PAGE}: does not show {name}, which {place} sends")
    for path in code_files(root):
        for vendor, command in re.findall(r"VendorId = (0x\w+);(?:\s*constexpr \w+ \w+ = (\d+);)?",
                                          source_tree.code(root, path)):
            shown = f"| {vendor}, {command}"
            if shown not in page:
                complaints.append(f"{PAGE}: does not have '{shown}', the vendor command of {path}")


def check_texts(root, page, facts, complaints):
    """Lines of the log, replies and events."""
    lines = log_lines(root)
    shown = re.findall(r"^- `([^`]+)`", page.partition("Lines of the log")[2].partition("\n## ")[0],
                       re.MULTILINE)
    if not shown:
        complaints.append(f"{PAGE}: shows no '- `LINE`' below 'Lines of the log', to compare with the "
                          "code")
    for text in shown:
        name, _, message = text.partition(": ")
        if text.startswith("["):
            name, message = "", text.partition("] ")[2]
        message = re.sub(r"\.\.\.$", "some text", message)
        if not any(re.fullmatch(pattern, message) for pattern in lines.get(name, [])):
            complaints.append(f"{PAGE}: shows '{text}' of the log, but no "
                              f"{name + '.cpp' if name else 'WPA_LOG()'} writes that")
    everything = "".join(source_tree.code(root, path) for path in code_files(root))
    for name, equals in re.findall(r"`(SIGNAL_POLL|STATUS|\w+(?==`))(=?)`", page):
        if not re.search(rf'"{name}(?:{equals})?"', everything):
            complaints.append(f"{PAGE}: names {name}{equals}, which no source in client/ or managers/ "
                              "sends to the supplicant or looks for in its replies")
    formats = [of_format(text) for path in code_files(root)
               for text in re.findall(r'sscanf\([^,]*, "([^"]*)"', source_tree.code(root, path))]
    for event, values in re.findall(r"`(CTRL-EVENT-[A-Z-]+)( [^`]*)?`", page):
        if f'"{event} "' not in facts.text(EVENTS):
            complaints.append(f"{PAGE}: names {event}, which {EVENTS} does not have")
        elif values and not any(re.fullmatch(pattern, values.strip()) for pattern in formats):
            complaints.append(f"{PAGE}: shows '{event}{values}', but no sscanf() in client/ or "
                              "managers/ reads these values")


def check_modules(root, page, facts, complaints):
    """Modules are named with their libraries; what the page has the product install is built."""
    built = {}
    for path in source_tree.files(root):
        if os.path.basename(path) != "Android.bp":
            continue
        for kind, properties in facts.modules(path):
            if kind in ("cc_binary", "cc_test"):
                if "name" in properties:
                    built[properties["name"]] = path
                else:
                    complaints.append(f"{path}: a {kind} has no name")
            for library in [library for kind in ("shared_libs", "static_libs", "header_libs",
                                                 "interfaces")
                            for library in properties.get(kind, [])]:
                if f"`{library}`" not in page and "corvid" not in library:
                    complaints.append(f"{PAGE}: does not name {library}, which {path} needs")
    products = " ".join(re.findall(r"PRODUCT_PACKAGES\w* \+= (.*)", page)).split()
    started = re.findall(r"/data/nativetest\d*/vendor/(\S+)/\S+", page)
    complaints += [f"{PAGE}: names {name}, which no Android.bp builds"
                   for name in sorted(set(products + started) - built.keys())]
    complaints += [f"{PAGE}: does not install {name}, which {built[name]} builds"
                   for name in sorted(built.keys() - set(products))]


def check_names(root, page, facts, complaints):
    """Files, properties, services and the sockets' folder."""
    for path in source_tree.files(root):
        if not path.startswith("device/") or os.path.basename(path) == "Android.bp":
            continue
        folder = os.path.dirname(path)
        if path not in page and not (folder != "device" and folder in page):
            complaints.append(f"{PAGE}: does not say what {path} is for")
    named = re.findall(r"`((?:client|device|docs|interface|lab|managers|service|sim|tests|tools)/"
                       rf"[\w@./-]+)`|\b{CLONE}([\w@./-]+)", page)
    for path in sorted({one or other for one, other in named}):
        if not os.path.exists(os.path.join(root, path)):
            complaints.append(f"{PAGE}: names {path}, which is not there")
    for variable, path in (("DEVICE_FRAMEWORK_COMPATIBILITY_MATRIX_FILE", FRAMEWORK_MATRIX),
                           ("DEVICE_MATRIX_FILE", DEVICE_MATRIX)):
        if not re.search(rf"^ *{variable} \+= {CLONE}{re.escape(path)}$", page, re.MULTILINE):
            complaints.append(f"{PAGE}: does not add {CLONE}{path} to {variable}, for which {path} is")
    properties = facts.text(PROPERTIES)
    for name in re.findall(r"`((?:cmd|devparams|powerjump|scs|telemetry|txchain|txpower)\.[\w.]+)`|"
                           r"persist\.vendor\.wifi\.([\w.]+)", page):
        name = name[0] or name[1]
        if f'"{name}"' not in properties:
            complaints.append(f"{PAGE}: names the property {name}, which {PROPERTIES} does not have")
    match = re.search(r"^service (\S+)", facts.text(SCRIPT), re.MULTILINE)
    if match and f"ctl.restart {match.group(1)}" not in page:
        complaints.append(f"{PAGE}: does not restart {match.group(1)}, the service of {SCRIPT}")
    served = check_device.joined(facts.interface_module, "::", facts.interface, "/", facts.instance)
    for name in sorted(set(re.findall(r"\S+@[\d.]+::\w+/\w+", page))):
        if served and name != served:
            complaints.append(f"{PAGE}: asks for {name}, but {ENTRY} registers {served}, by {OBJECT}")
    check_sockets(page, facts, complaints)


def check_sockets(page, facts, complaints):
    """The page, and what it says of the supplicant's library, have the folder of its sockets."""
    folder = (facts.sockets or "").rstrip("/")
    for place, text, name in ((PAGE, page, "ctrl_interface="),
                              (LIBRARY, facts.text(LIBRARY), "CONFIG_CTRL_IFACE_CLIENT_DIR=")):
        match = re.search(name + r'"?([\w/.-]+)', text)
        if not match or match.group(1) != folder:
            complaints.append(f"{place}: {name}{match.group(1) if match else ''} is not the folder in "
                              f"which {SOCKETS} looks for sockets, {folder}")
    for path in sorted(set(re.findall(r"/data/vendor/[\w/]+", page))):
        if not f"{folder}/".startswith(f"{path}/"):
            complaints.append(f"{PAGE}: names {path}, which is not above {folder}, in which {SOCKETS} "
                              "looks for sockets")


def check(root):
    complaints = []
    facts = check_device.Facts(root, complaints)
    page = facts.text(PAGE)
    words = len(page.split())
    if words > MOST_WORDS:
        complaints.append(f"{PAGE}: has {words} words; with more than {MOST_WORDS} it does not print "
                          "on two sheets")
    check_names(root, page, facts, complaints)
    check_modules(root, page, facts, complaints)
    check_commands(root, page, complaints)
    check_texts(root, page, facts, complaints)
    return list(dict.fromkeys(complaints))


if __name__ == "__main__":
    source_tree.finish(check(sys.argv[1]))
