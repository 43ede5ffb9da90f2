#!/usr/bin/env python3
"""check_properties.py SOURCE_TREE [--write]

The list of properties in config/CorvidWifiProperties.h agrees with the code (each is used; default
and the time at which a change takes effect are those of the code) and with what is made of it:
docs/properties.md and device/sepolicy/property_contexts. --write makes these two anew. The lab's cases
and the tests of the interface set none that is not listed.
"""

import os
import re
import sys

import property_list
import source_tree
from property_list import LIST, MADE, PREFIX

FEATURES = "config/FeatureList.h"

# Where properties are set by name, and nothing complains at run time of one that does not exist.
SETTERS = ("lab/", "tests/vts/")
# "property scs.enable true", with or without the prefix, or a list of features for a loop
_SET = re.compile(rf"{re.escape(PREFIX)}(?P<full>[a-z][\w.]*)|"
                  r"\bproperty (?P<short>(?!persist\.)[a-z]\w*\.[\w.]+)|"
                  r"\bfor(?:each\()?\s*feature (?:in )?(?P<list>[^;)]*)")

_CALL = re.compile(r"(?P<once>ReadOnce<\w+>\s*\w*\s*\{\s*)?(?:Sysprop::)?\bcorvid_wifi_"
                   r"(?P<accessor>\w+)\s*(?:\(\s*(?P<argument>[^()]*)\)|,\s*(?P<fallback>[^}]*)\})")


def uses(root):
    """Where the code reads a property: {accessor: [(place, default, whether it is kept)]}."""
    found = {}
    for path in source_tree.files(root):
        if path.split(os.sep)[0] not in source_tree.DEVICE_FOLDERS or path == LIST or \
                not path.endswith((".cpp", ".h")):
            continue
        text = source_tree.read(root, path)
        for match in _CALL.finditer(text):
            default = (match["argument"] or match["fallback"] or "").strip()
            place = f"{path}:{source_tree.line_of(text, match.start('accessor'))}"
            found.setdefault(match["accessor"], []).append((place, default, bool(match["once"])))
    return found


def switches(root):
    """The accessors in the list of features, each with its place."""
    text = source_tree.read(root, FEATURES)
    return {
        match.group(1): f"{FEATURES}:{source_tree.line_of(text, match.start())}"
        for match in re.finditer(r"\bproperty::(\w+)", text)
    }


def as_default(text):
    return {"true": "on", "false": "off"}.get(text, text)


def with_code(properties, reads, features):
    """Complaints about the list and the code."""
    complaints = []
    for entry in properties:
        here = f"{LIST}:{entry.line}: {entry.name}"
        places = reads.get(entry.accessor, [])
        for place, default, kept in places:
            if entry.type != "bool" and default == "false":
                default = "0"  # a number whose default is a flag
            if as_default(default) != entry.default:
                complaints.append(f"{here} has default {entry.default}, but {place} falls back to "
                                  f"{as_default(default)}")
            if kept and entry.effect not in ("restart", "first use"):
                complaints.append(f"{here} is said to take effect '{entry.effect}', but {place} "
                                  "keeps its first value")
        if entry.accessor in features:
            if entry.effect in ("at once", "first use"):
                complaints.append(f"{here} is said to take effect '{entry.effect}', but "
                                  f"{features[entry.accessor]} reads it at the start")
        elif not places:
            complaints.append(f"{here} is used neither by the code nor in {FEATURES}")
        elif entry.effect == "both":
            complaints.append(f"{here} is said to take effect 'both', but it is no switch in "
                              f"{FEATURES}")
    known = {entry.accessor for entry in properties}
    for accessor, places in reads.items():
        if accessor not in known:
            complaints.append(f"{places[0][0]}: reads {accessor}, which is not in {LIST}")
    for names in (lambda entry: entry.name, lambda entry: entry.accessor):
        listed = [names(entry) for entry in properties]
        for name in sorted({name for name in listed if listed.count(name) > 1}):
            complaints.append(f"{LIST}: {name} is there twice")
    return complaints


def set_by_name(root, properties):
    """Complaints about names that are set and not listed."""
    known = {entry.name for entry in properties}
    complaints = []
    for path in source_tree.files(root):
        text = source_tree.read(root, path) if path.startswith(SETTERS) else ""
        for match in _SET.finditer(text):
            place = f"{path}:{source_tree.line_of(text, match.start())}"
            # A sentence may end with one.
            names = [name.rstrip(".") for name in
                     re.findall(r"[\w.]+", match["full"] or match["short"] or match["list"])]
            complaints += [f"{place}: sets {name}, which is not in {LIST}"
                           for name in names if PREFIX + name not in known]
    return complaints


def difference(path, old, new):
    """The first lines in which a made file differs."""
    old, new = old.splitlines(), new.splitlines()
    for number in range(max(len(old), len(new))):
        is_line = old[number] if number < len(old) else "missing"
        to_be = new[number] if number < len(new) else "no such line"
        if is_line != to_be:
            return (f"{path}:{number + 1}: does not agree with {LIST}: is {is_line!r}, is to be "
                    f"{to_be!r} (tests/structure/check_properties.py . --write)")
    return None


def check(root, write=False):
    complaints = []
    properties = property_list.parse(source_tree.read(root, LIST), complaints)
    if not properties and not complaints:
        complaints.append(f"{LIST}: lists no properties")
    complaints += with_code(properties, uses(root), switches(root))
    complaints += set_by_name(root, properties)
    for path, make in MADE.items():
        file = os.path.join(root, path)
        if write:
            os.makedirs(os.path.dirname(file), exist_ok=True)
            with open(file, "w", encoding="utf-8") as out:
                out.write(make(properties))
        elif not os.path.exists(file):
            complaints.append(f"{path}: is missing; it is made of {LIST} "
                              "(tests/structure/check_properties.py . --write)")
        else:
            complaint = difference(path, source_tree.read(root, path), make(properties))
            if complaint:
                complaints.append(complaint)
    return complaints


if __name__ == "__main__":
    source_tree.finish(check(sys.argv[1], "--write" in sys.argv[2:]))
