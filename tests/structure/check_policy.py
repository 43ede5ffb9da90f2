#!/usr/bin/env python3
"""check_policy.py SOURCE_TREE

The SELinux policy in device/sepolicy compiles, against the stand-ins in tests/sepolicy for what the
platform declares. The daemon may do what is listed here and nothing else, and a rule that gives it
more does not compile. Each rule has above it the source and the word that need it ("# os/Poll.cpp:
epoll_wait"), and each call that needs a rule is named above one. The contexts agree with the policy,
the init script and the interface; init gives the daemon the policy's capabilities.
"""

import os
import re
import shutil
import subprocess
import sys
import tempfile

import check_device
import source_tree

POLICY = "device/sepolicy"
STAND_INS = "tests/sepolicy"
DAEMON = "hal_corvid_wifi_default"
SERVICE = "hal_corvid_wifi_hwservice"
PROPERTIES = "vendor_corvid_wifi_prop"

# The files that label something, and the type that each gives.
CONTEXTS = {
    "file_contexts": f"{DAEMON}_exec",
    "hwservice_contexts": SERVICE,
    "property_contexts": PROPERTIES,
}

# What the daemon may: {target and class: permissions}. The policy gives exactly this.
MAY = {
    # init starts it; its own process and sockets
    f"{DAEMON}_exec:file": "entrypoint execute getattr map open read",
    f"{DAEMON}:process": "fork sigkill signal sigstop",
    "init:process": "sigchld",
    "crash_dump:process": "sigchld transition",
    f"{DAEMON}:unix_dgram_socket":
        "append bind connect create getattr getopt ioctl lock read setattr setopt shutdown write",
    # its service, and its clients' callbacks
    f"{SERVICE}:hwservice_manager": "add find",
    "hidl_base_hwservice:hwservice_manager": "add",
    "hal_corvid_wifi_client:binder": "call transfer",
    "hal_corvid_wifi_client:fd": "use",
    # a bug report's pipe, and what the report tells of the process
    "dumpstate:fifo_file": "write",
    f"{DAEMON}:dir": "getattr open read search",
    f"{DAEMON}:file": "getattr open read",
    "hwbinder_device:chr_file": "ioctl map open read write",
    "hwservicemanager:binder": "call transfer",
    "hwservicemanager_prop:file": "getattr map open read",
    # its properties, which it never sets
    f"{PROPERTIES}:file": "getattr map open read",
    # the supplicant's sockets
    "vendor_data_file:dir": "search",
    "wpa_data_file:dir": "add_name getattr open read remove_name search watch write",
    "wpa_data_file:sock_file": "create getattr setattr unlink write",
    "hal_wifi_supplicant_server:unix_dgram_socket": "sendto",
    # nl80211
    f"{DAEMON}:netlink_generic_socket":
        "append bind connect create getattr getopt lock read setattr setopt shutdown write",
    f"{DAEMON}:capability": "net_admin",
    f"{DAEMON}:udp_socket": "create ioctl",
    # the statistics service
    "fwk_stats_hwservice:hwservice_manager": "find",
    "stats_service_server:binder": "call transfer",
    "stats_service_server:fd": "use",
    # the sensor service
    "hal_vrsensors_hwservice:hwservice_manager": "find",
    "hal_vrsensors_server:binder": "call transfer",
    "hal_vrsensors_server:fd": "use",
    # in debug builds, every domain's
    "su:binder": "call transfer",
}

# What other domains may with the daemon's types, and its clients with any type: {source, target and
# class: permissions}. The policy gives exactly this.
OTHERS_MAY = {
    f"init {DAEMON}_exec:file": "execute getattr map open read",
    f"init {DAEMON}:process": "transition",
    f"vendor_init {PROPERTIES}:file": "getattr map open read",
    f"vendor_init {PROPERTIES}:property_service": "set",
    f"hal_corvid_wifi_client {DAEMON}:binder": "call transfer",
    f"hal_corvid_wifi_client {SERVICE}:hwservice_manager": "find",
    f"hwservicemanager {DAEMON}:binder": "call transfer",
    f"hal_wifi_supplicant_server {DAEMON}:unix_dgram_socket": "sendto",
    f"hal_corvid_wifi_client {DAEMON}:fd": "use",
    # in answer to the daemon's calls
    "hal_vrsensors_server hal_vrsensors_client:binder": "transfer",
    f"stats_service_server {DAEMON}:binder": "transfer",
}
# A bug report is a client, and in tests/sepolicy an app.
CLIENTS = {"dumpstate", "headset_app"}

# What a neverallow forbids: rules with these do not compile in any image.
FORBIDDEN = {
    f"{DAEMON} default_prop:property_service": "set",
    f"{DAEMON} {PROPERTIES}:property_service": "set",
    f"{DAEMON} {DAEMON}:capability":
        "chown dac_override fowner kill net_bind_service net_raw setgid setuid sys_admin sys_nice "
        "sys_ptrace",
    f"{DAEMON} {DAEMON}:capability2": "block_suspend mac_admin syslog wake_alarm",
    f"{DAEMON} {DAEMON}:netlink_route_socket": "create nlmsg_read nlmsg_write write",
    f"{DAEMON} {DAEMON}:packet_socket": "create read write",
    f"{DAEMON} {DAEMON}:rawip_socket": "create read write",
    f"{DAEMON} {DAEMON}:tcp_socket": "accept connect create listen",
    f"{DAEMON} {DAEMON}:udp_socket": "bind connect write",
    f"{DAEMON} wpa_data_file:file":
        "append create execute getattr ioctl link map open read rename setattr unlink write",
    f"{DAEMON} vendor_data_file:file": "append create execute link rename unlink write",
    f"{DAEMON} vendor_data_file:dir": "add_name create remove_name write",
    f"{DAEMON} vendor_data_file:sock_file": "create unlink write",
    f"{DAEMON} vendor_shell_exec:file": "execute_no_trans",
    f"{DAEMON} vendor_file:file": "execute_no_trans",
    f"{DAEMON} shell:process": "dyntransition transition",
    f"{DAEMON} crash_dump:process": "ptrace sigkill signal sigstop",
    f"{DAEMON} {DAEMON}:process": "ptrace",
    f"{DAEMON} hal_wifi_supplicant_default:process": "ptrace sigkill signal sigstop",
    f"{DAEMON} init:process": "ptrace sigkill signal sigstop",
    f"{DAEMON} hal_wifi_hwservice:hwservice_manager": "add find",
    f"{DAEMON} hidl_base_hwservice:hwservice_manager": "find",
    f"{DAEMON} hal_vrsensors_hwservice:hwservice_manager": "add",
    f"{DAEMON} fwk_stats_hwservice:hwservice_manager": "add",
    f"{DAEMON} untrusted_app:binder": "call transfer",
    f"{DAEMON} hal_wifi_supplicant_default:binder": "call transfer",
    f"shell {DAEMON}:process": "dyntransition transition",
    f"untrusted_app {SERVICE}:hwservice_manager": "find",
    f"headset_app {SERVICE}:hwservice_manager": "add",
    f"headset_app {PROPERTIES}:property_service": "set",
}

# Calls that SELinux decides on. A source that makes one is named above a rule.
DECIDED = re.compile(
    r"(?:(?<![\w.>:])|\bstd::|(?<!\w)::)(accept4?|access|bind|chmod|chown|connect|creat|"
    r"create(?:Camera|Controller)Provider|dlopen|exec[lv]\w*|faccessat|fopen|freopen|genl_connect|"
    r"getaddrinfo|if_nametoindex|inotify_add_watch|ioctl|kill|lstat|mkdir|mkfifo|mkd?o?s?temp|"
    r"nl_connect|open|opendir|openat|popen|posix_spawnp?|ptrace|readlink|rename|rmdir|"
    r"sched_setscheduler|setTransportErrorAction|setpriority|socket|stat|statx|symlink|system|"
    r"truncate|unlink|unlinkat|wpa_ctrl_open|__system_property_\w+|SetProperty)\("
    r"|\b(getService|tryGetService|registerAsService)\(|(?<!<)\b(i?o?fstream|filebuf)\b"
    # also behind a name of its own: "namespace fs = std::filesystem;"
    r"|(?<!<)\b(filesystem)\b(?!::path\b)")

# The kinds of statement that the policy may have, and whether each gives somebody something: then it
# has a reason above it. No other kind may be there: MAY shows nothing of permissive, dontaudit and
# type_transition.
STATEMENTS = {
    "allow": True,
    "add_hwservice(": True,
    "binder_call(": True,
    "get_prop(": True,
    "hal_client_domain(": True,
    "hwbinder_use(": True,
    "init_daemon_domain(": True,
    "set_prop(": True,
    "neverallow": False,
    "type": False,
    "hal_attribute(": False,
    "vendor_internal_prop(": False,
}

_COMMENT = re.compile(r"# ([\w./-]+/[\w.-]+): (\w+)$")
# A macro with its arguments, or a word and what follows it up to the semicolon.
_STATEMENT = re.compile(r"(\w+\()[^()]*\)|(\w+|[^\s;])[^;]*")


def te_files(root):
    """Those of the folder itself; the platform's build does not look below it."""
    return [path for path in source_tree.files(root)
            if os.path.dirname(path) == POLICY and path.endswith(".te")]


def statements(text):
    """{line: [(kind, statement)]} of a file of the policy, by the lines that they begin in."""
    text = re.sub(r"#.*", "", text)
    found = {}
    for match in _STATEMENT.finditer(text):
        found.setdefault(source_tree.line_of(text, match.start()), []).append(
            (match.group(1) or match.group(2), " ".join(match.group().split())))
    return found


def source_of(root):
    """The whole policy in the order that checkpolicy wants, in two parts: a rule may stand between
    them. #line says of each part which file it is from, so that complaints name that. Raises
    CalledProcessError if m4 cannot expand the macros."""
    def text(path):
        return f'#line 1 "{path}"\n{source_tree.read(root, path)}'
    expanded = subprocess.run(["m4", "-s", f"{STAND_INS}/macros", f"{POLICY}/attributes",
                               f"{STAND_INS}/platform.te", *te_files(root)], cwd=root,
                              stdin=subprocess.DEVNULL, capture_output=True, text=True, check=True)
    # After '#line 1 "FILE"' checkpolicy takes the next line for the second one, after '#line 1' not.
    return tuple(re.sub('^#line 1 ".*"$', r"\g<0>\n#line 1", part, flags=re.MULTILINE) for part in
                 (text(f"{STAND_INS}/classes") + expanded.stdout, text(f"{STAND_INS}/contexts")))


def compile_policy(source, binary, more=""):
    """What checkpolicy complains of; nothing if the policy compiles."""
    conf = binary + ".conf"
    with open(conf, "w", encoding="utf-8") as file:
        file.write(source[0] + more + "\n" + source[1])
    result = subprocess.run(["checkpolicy", "-M", "-c", "30", "-o", binary, conf],
                            stdin=subprocess.DEVNULL, capture_output=True, text=True, check=False)
    if result.returncode == 0:
        return None
    return result.stderr.strip() or "checkpolicy failed"


def allowed(binary, *options):
    """What sesearch finds: [(source, target, class, set of permissions)]."""
    printed = subprocess.run(["sesearch", "-A", *options, binary], stdin=subprocess.DEVNULL,
                             capture_output=True, text=True, check=True).stdout
    return [(source, target, kind, set((many or one).split()))
            for source, target, kind, many, one in re.findall(
                r"^allow (\S+) (\S+):(\S+) (?:\{ (.+?) \}|(\S+));$", printed, re.MULTILINE)]


def differences(may, wanted, who):
    """Complaints about permissions that are given and not listed, or the other way round; both are
    {key: permissions}."""
    complaints = []
    for key in sorted(may.keys() | wanted.keys()):
        listed = set(wanted.get(key, "").split())
        given = may.get(key, set())
        complaints += [f"{POLICY}: gives {who}{key} {permission}, which "
                       "tests/structure/check_policy.py does not list"
                       for permission in sorted(given - listed)]
        complaints += [f"{POLICY}: does not give {who}{key} {permission}, which "
                       "tests/structure/check_policy.py lists"
                       for permission in sorted(listed - given)]
    return complaints


def rights_of_daemon(binary):
    """{target and class: set of permissions}."""
    may = {}
    for _, target, kind, permissions in allowed(binary, "-s", DAEMON):
        may.setdefault(f"{target}:{kind}", set()).update(permissions)
    return may


def check_capabilities(root, may):
    """Those that init gives the daemon are those that the policy does."""
    of_policy = may.get(f"{DAEMON}:capability", set()) | may.get(f"{DAEMON}:capability2", set())
    for _, words, body in check_device.sections(source_tree.read(root, check_device.SCRIPT)):
        for line, option in body:
            if words[0] == "service" and option[0] == "capabilities":
                of_script = {name.lower() for name in option[1:]}
                if of_script != of_policy:
                    return [f"{check_device.SCRIPT}:{line}: the capabilities are "
                            f"{sorted(of_script)}, but {POLICY} allows {sorted(of_policy)}"]
    return []


def check_others(binary):
    """What other domains may with the daemon's types, and its clients at all."""
    may = {}
    for options in (("-rt", "-t", f"^({'|'.join((DAEMON, *CONTEXTS.values()))})$"),
                    ("-ds", "-s", "hal_corvid_wifi_client")):
        for source, target, kind, permissions in allowed(binary, *options):
            if source != DAEMON:
                may.setdefault(f"{source} {target}:{kind}", set()).update(permissions)
    complaints = differences(may, OTHERS_MAY, "")
    members = subprocess.run(["seinfo", "-a", "hal_corvid_wifi_client", "-x", binary],
                             stdin=subprocess.DEVNULL, capture_output=True, text=True,
                             check=True).stdout
    clients = set(re.findall(r"^\t+(\w+)$", members, re.MULTILINE))
    if clients != CLIENTS:
        complaints.append(f"{POLICY}: clients are {sorted(clients)}, not {sorted(CLIENTS)}")
    return complaints


def check_neverallows(source, binary):
    """Compiles all that is forbidden at once: checkpolicy names each rule that a neverallow hits."""
    more = "\n".join(f"allow {key} {{ {permissions} }};" for key, permissions in FORBIDDEN.items())
    error = compile_policy(source, binary, more) or ""
    hit = {}
    for key, permissions in re.findall(r"violated by allow (\S+ \S+) \{ (.+?) \};", error):
        hit.setdefault(key, set()).update(permissions.split())
    return [f"{POLICY}: no neverallow forbids 'allow {key} {permission};'"
            for key, permissions in FORBIDDEN.items()
            for permission in permissions.split() if permission not in hit.get(key, ())]


def is_own(text, word):
    """Whether a source defines or declares a function that is called like one of the system's."""
    # "Door::open("
    member = rf"\b(?!std\b)\w+::{word}\("
    # "bool open(" and "std::vector<T>& open(", but not "return open("
    declared = rf"\b(?!(?:return|else|do|throw)\b)\w+[>&*]* {word}\("
    return re.search(f"{member}|{declared}", text)


def check_statements(root, path, named):
    """Statements that nobody expects or needs. Adds (source, word) of each reason to `named`."""
    complaints = []
    text = source_tree.read(root, path)
    found = statements(text)
    reasons = []
    in_comment = False
    for number, line in enumerate(text.splitlines(), 1):
        if line.startswith("#"):
            if not in_comment:
                reasons = []
            in_comment = True
            match = _COMMENT.match(line)
            if match:
                reasons.append((number, *match.groups()))
            continue
        in_comment = False
        if not line:
            reasons = []
        for kind, statement in found.get(number, []):
            if kind not in STATEMENTS:
                complaints.append(f"{path}:{number}: '{statement}' is none of the STATEMENTS in "
                                  "tests/structure/check_policy.py")
            elif STATEMENTS[kind] and "corvid_wifi" not in statement:
                complaints.append(f"{path}:{number}: '{statement}' gives others what is not the "
                                  "daemon's")
            elif STATEMENTS[kind] and not reasons:
                complaints.append(f"{path}:{number}: '{statement}' has no '# SOURCE: WORD' above it "
                                  "that says which code needs it")
            for place, source, word in reasons if STATEMENTS.get(kind) else []:
                named.add((source, word))
                if not os.path.exists(os.path.join(root, source)):
                    complaints.append(f"{path}:{place}: there is no {source}")
                elif not re.search(rf"\b{word}\b", source_tree.code(root, source)):
                    complaints.append(f"{path}:{place}: a rule for {word} in {source}, which has "
                                      "no such word")
    return complaints


def check_reasons(root):
    """Rules without code and code without rules."""
    complaints = []
    named = set()
    for path in (f"{POLICY}/attributes", *te_files(root)):
        complaints += check_statements(root, path, named)
    for path in source_tree.files(root):
        if path.split(os.sep)[0] not in source_tree.DAEMON_FOLDERS or \
                not path.endswith((".cpp", ".h")):
            continue
        text = source_tree.code(root, path)
        for match in DECIDED.finditer(text):
            word = next(group for group in match.groups() if group)
            # "::open(" and "std::rename(" are the system's, whatever the source has of its own.
            may_be_own = match.group(1) and match.group() == f"{word}("
            if not (may_be_own and is_own(text, word)) and (path, word) not in named:
                complaints.append(f"{path}:{source_tree.line_of(text, match.start())}: {word} "
                                  f"needs a rule, but none in {POLICY} has '# {path}: {word}' "
                                  "above it")
    return sorted(set(complaints))


def labelled(root):
    """{file of contexts: what it has to label}: what the init script starts and serves, as regular
    expression and name. check_properties.py compares the properties."""
    script = source_tree.read(root, check_device.SCRIPT)
    program = re.search(r"^service \S+ /vendor(/\S+)", script, re.MULTILINE)
    served = re.search(r"^\s+interface (\S+)@[\d.]+(::\w+) ", script, re.MULTILINE)
    return {
        "file_contexts":
            [r"/(vendor|system/vendor)" + program.group(1).replace(".", r"\.")] if program else [],
        "hwservice_contexts": [served.group(1) + served.group(2)] if served else [],
    }


def check_contexts(root):
    """Contexts against the policy's types, the init script and the interface."""
    complaints = []
    for path in source_tree.files(root):
        if path.startswith(POLICY + "/") and path not in (
                f"{POLICY}/attributes", *te_files(root), *(f"{POLICY}/{name}" for name in CONTEXTS)):
            complaints.append(f"{path}: tests/structure/check_policy.py knows no such file of a "
                              "policy")
    wanted_keys = labelled(root)
    for name, wanted in CONTEXTS.items():
        path = f"{POLICY}/{name}"
        keys = []
        for number, line in enumerate(source_tree.read(root, path).splitlines(), 1):
            words = line.partition("#")[0].split()
            if not words:
                continue
            keys.append(words[0])
            match = re.fullmatch(r"u:object_r:(\w+):s0", words[1] if len(words) > 1 else "")
            if not match:
                complaints.append(f"{path}:{number}: is no 'KEY u:object_r:TYPE:s0'")
            elif match.group(1) != wanted:
                complaints.append(f"{path}:{number}: {words[0]} is {match.group(1)}, but the rules "
                                  f"in {POLICY} are about {wanted}")
        if name in wanted_keys and keys != wanted_keys[name]:
            complaints.append(f"{path}: labels {keys}, but {check_device.SCRIPT} has "
                              f"{wanted_keys[name]}")
    return complaints


def check(root, thorough=True):
    for tool, package in (("m4", "m4"), ("checkpolicy", "checkpolicy"), ("sesearch", "setools")):
        if shutil.which(tool) is None:
            return [f"{tool} is not installed: apt-get install {package}"]
    if not te_files(root):
        return [f"{POLICY}: there is no policy"]
    missing = [f"{POLICY}/{name}" for name in ("attributes", *CONTEXTS)
               if not os.path.exists(os.path.join(root, POLICY, name))]
    if missing:
        return [f"{path}: is not there, but tests/structure/check_policy.py looks for it"
                for path in missing]
    complaints = check_reasons(root) + check_contexts(root)
    try:
        source = source_of(root)
    except subprocess.CalledProcessError as error:
        return complaints + [f"{POLICY}: does not compile: {error.stderr.strip()}"]
    with tempfile.TemporaryDirectory() as folder:
        binary = os.path.join(folder, "policy")
        error = compile_policy(source, binary)
        if error:
            complaints.append(f"{POLICY}: does not compile: {error}")
        else:
            may = rights_of_daemon(binary)
            complaints += differences(may, MAY, f"{DAEMON} ") + check_capabilities(root, may)
            if thorough:
                complaints += check_others(binary)
                complaints += check_neverallows(source, os.path.join(folder, "wider"))
    return complaints


if __name__ == "__main__":
    source_tree.finish(check(sys.argv[1]))
