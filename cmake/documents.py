#!/usr/bin/env python3
"""documents.py man|bash|zsh DESCRIPTION.json OUT
documents.py complete DESCRIPTION.json OUT VERSION [PROPERTIES.json]

Makes a man page, or a completion for bash or zsh, of the table that a program prints of itself. A
table that stands in a file is completed first: with the version, and with the daemon's properties
as corvid-properties prints them.
"""

import json
import sys


def roff(text):
    """Text as troff takes it: no line of it is a command, and a dash is one that can be typed."""
    text = text.replace("\\", "\\e").replace("-", "\\-")
    return "\n".join("\\&" + line if line.startswith((".", "'")) else line
                     for line in text.split("\n"))


def head(option):
    return option["name"] + (" " + option["value"] if option["value"] else "")


def man(about):
    section = about.get("section", "1")
    out = [f'.TH {about["name"].upper()} {section} "" "{about["version"]}"',
           ".SH NAME", roff(f'{about["name"]} - {about["summary"]}'), ".SH SYNOPSIS"]
    for usage in about["usage"]:
        out += [".B " + roff(usage), ".br"]
    for paragraph in about.get("description", []):
        out += [".SH DESCRIPTION" if paragraph is about["description"][0] else ".PP",
                roff(paragraph)]
    if about.get("words"):
        out.append(".SH COMMANDS")
        for word in about["words"]:
            out += [".TP", ".B " + roff((word["name"] + " " + word["arguments"]).strip()),
                    roff(word["what"])]
            for option in word["options"]:
                out += [".RS", ".TP", ".B " + roff(head(option)), roff(option["what"]), ".RE"]
    for title, entries in (("OPTIONS", about["options"]), ("EXIT STATUS", about["statuses"]),
                           ("ENVIRONMENT", about["environment"]), ("FILES", about.get("files", [])),
                           ("PROPERTIES", about.get("properties", []))):
        if entries:
            out.append(".SH " + title)
        for entry in entries:
            out += [".TP", ".B " + roff(head({"value": "", **entry})), roff(entry["what"])]
    return "\n".join(out) + "\n"


def bash(about):
    name = about["name"]
    function = "_" + name.replace("-", "_")
    common = " ".join(option["name"] for option in about["options"])
    valued = "|".join(option["name"] for option in about["options"] if option["value"])
    cases = "".join(
        f'        {word["name"]}) words+=" '
        f'{" ".join([o["name"] for o in word["options"]] + word["choices"])}" ;;\n'
        for word in about["words"] if word["options"] or word["choices"])
    words = " ".join(word["name"] for word in about["words"])
    first = f"""    local word i
    for ((i = 1; i < COMP_CWORD; ++i)); do
        case ${{COMP_WORDS[i]}} in {valued or "--"}) ((++i)) ;; -*) ;; *) word=${{COMP_WORDS[i]}} && break ;; esac
    done
    [ -n "$word" ] || words+=" {words}"
    case $word in
{cases}        *) ;;
    esac
""" if about["words"] else ""
    return f"""# bash completion of {name}
{function}() {{
    local current=${{COMP_WORDS[COMP_CWORD]}} before=${{COMP_WORDS[COMP_CWORD - 1]}} words="{common}"
    case $before in {valued or "--"}) mapfile -t COMPREPLY < <(compgen -f -- "$current") && return ;; esac
{first}    mapfile -t COMPREPLY < <(compgen -W "$words" -- "$current")
    [ ${{#COMPREPLY[@]}} -gt 0 ] || mapfile -t COMPREPLY < <(compgen -f -- "$current")
}}
complete -o filenames -F {function} {name}
"""


def quoted(text):
    return "'" + text.replace("'", "'\\''") + "'"


def zsh(about):
    def described(option):
        text = option["what"].replace("[", "(").replace("]", ")").replace(":", ";")
        value = f":{option['value']}:_files" if option["value"] else ""
        return quoted(f"{option['name']}[{text}]{value}")

    def arguments(specifications):
        return "_arguments " + " \\\n        ".join(specifications)

    common = [described(option) for option in about["options"]]
    lines = [f"#compdef {about['name']}"]
    if not about["words"]:
        return "\n".join([*lines, arguments([*common, "'*:file:_files'"])]) + "\n"
    words = " ".join(quoted(f"{word['name']}:{word['what'].replace(':', ';')}")
                     for word in about["words"])
    lines += ["local curcontext=$curcontext state line",
              f"local -a words_known=({words})",
              arguments(["-C", *common, "'1:command:->command'", "'*::argument:->argument'"]),
              "case $state in",
              "    command) _describe command words_known ;;",
              "    argument) case $words[1] in"]
    for word in about["words"]:
        own = [described(option) for option in word["options"]] + common
        rest = f"'*:argument:({' '.join(word['choices'])})'" if word["choices"] else "'*:file:_files'"
        lines.append(f"        {word['name']}) {arguments([*own, rest])} ;;")
    return "\n".join([*lines, "    esac ;;", "esac"]) + "\n"


def values(entry):
    if entry["type"] == "bool":
        return "true or false"
    lowest, highest = entry["lowest"], entry["highest"]
    if highest == 2147483647:
        return f"{lowest} and more"
    return f"{lowest} to {highest}" if highest - lowest > 1 else \
        " or ".join(str(value) for value in range(lowest, highest + 1))


def complete(about):
    """The table, with the version, and an entry for each property that is listed."""
    about["version"] = sys.argv[4]
    if len(sys.argv) > 5:
        with open(sys.argv[5], encoding="utf-8") as file:
            listed = json.load(file)["properties"]
        about["properties"] += [
            {"name": entry["name"],
             "what": f"{entry['meaning']} ({values(entry)}, default {entry['default']}, a change takes "
                     f"effect: {entry['effect']})"} for entry in listed]
    return json.dumps(about)


if __name__ == "__main__":
    with open(sys.argv[2], encoding="utf-8") as file:
        description = json.load(file)
    with open(sys.argv[3], "w", encoding="utf-8") as file:
        kinds = {"man": man, "bash": bash, "zsh": zsh, "complete": complete}
        file.write(kinds[sys.argv[1]](description))
