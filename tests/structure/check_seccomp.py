#!/usr/bin/env python3
"""check_seccomp.py SOURCE_TREE BUILD_FOLDER

The device's seccomp policy allows the system calls of each function of the C library that the daemon's
own code uses, also where no test comes by: the functions are read from the compiled sources. What the
daemon's libraries call is only measured (tests/component/system_calls.py). Ends with status 77 if the
daemon is not built.
"""

import glob
import os
import re
import subprocess
import sys

import source_tree

POLICY = "device/vendor.corvid.hardware.wifi@1.0-service.policy"
FOLDERS = ("os", "config", "client", "managers", "service")
# arm64 has the system calls of this header, and no older ones.
HEADER = "/usr/include/asm-generic/unistd.h"

# The system call of functions that are not called like it.
CALLS = {
    "abort": "tgkill", "access": "faccessat", "chmod": "fchmodat", "chown": "fchownat",
    "creat": "openat", "dup2": "dup3", "epoll_wait": "epoll_pwait", "eventfd": "eventfd2",
    "fopen": "openat", "fork": "clone", "fstat": "newfstatat", "getrlimit": "prlimit64",
    "inotify_init": "inotify_init1", "lstat": "newfstatat", "mkdir": "mkdirat",
    "open": "openat", "opendir": "openat", "pipe": "pipe2", "poll": "ppoll",
    "pthread_cond_clockwait": "futex", "pthread_cond_wait": "futex", "pthread_create": "clone",
    "pthread_exit": "exit", "pthread_kill": "tgkill", "pthread_mutex_lock": "futex",
    "pthread_sigmask": "rt_sigprocmask", "raise": "tgkill", "readdir": "getdents64",
    "readlink": "readlinkat", "recv": "recvfrom", "rename": "renameat", "rmdir": "unlinkat",
    "select": "pselect6", "send": "sendto", "setrlimit": "prlimit64",
    "sigaction": "rt_sigaction", "signal": "rt_sigaction", "sigpending": "rt_sigpending",
    "sigtimedwait": "rt_sigtimedwait", "sleep": "nanosleep", "stat": "newfstatat",
    "symlink": "symlinkat", "unlink": "unlinkat", "usleep": "nanosleep",
    # std::thread's constructor and the streams of files
    "_ZNSt6thread15_M_start_thread": "clone", "_ZNSt13basic_filebuf": "openat",
    "_ZNSt14basic_ifstream": "openat", "_ZNSt14basic_ofstream": "openat",
}


def system_calls():
    """The names of arm64's system calls."""
    with open(HEADER, encoding="utf-8") as file:
        return set(re.findall(r"^#define __NR(?:3264)?_(\w+) ", file.read(), re.MULTILINE))


def call_of(function, known):
    """The system call that a function makes, or None."""
    for name, call in CALLS.items():
        if function == name or name.startswith("_Z") and function.startswith(name):
            return call
    return function if function in known else None


def functions(library):
    """What each object of a library calls: [(name of its source, function)]."""
    printed = subprocess.run(["nm", "-A", "--undefined-only", library], stdin=subprocess.DEVNULL,
                             capture_output=True, text=True, check=True).stdout
    return re.findall(r":([\w.]+)\.o:\s+U ([\w]+)", printed)


def check(root, build):
    """The complaints, or None if the daemon is not built."""
    known = system_calls()
    complaints = []
    allowed = set()
    for number, line in enumerate(source_tree.read(root, POLICY).splitlines(), 1):
        if not line or line.startswith("#"):
            continue
        match = re.fullmatch(r"(\w+): 1", line)
        call = match and match.group(1)
        if not match:
            complaints.append(f"{POLICY}:{number}: is no 'CALL: 1'")
        elif call not in known:
            complaints.append(f"{POLICY}:{number}: {HEADER} has no system call {call}")
        elif call in allowed:
            complaints.append(f"{POLICY}:{number}: {call} is there twice")
        allowed.add(call)
    for folder in FOLDERS:
        library = os.path.join(build, f"lib/libcorvidwifi_{folder}.a")
        if not os.path.exists(library):
            return None
        for source, function in functions(library):
            call = call_of(function, known)
            if call is not None and call not in allowed:
                paths = glob.glob(f"{folder}/**/{source}", root_dir=root, recursive=True)
                complaints.append(f"{POLICY}: lacks {call}, but {''.join(paths) or source} calls "
                                  f"{function}()")
    return sorted(set(complaints))


if __name__ == "__main__":
    found = check(sys.argv[1], sys.argv[2])
    if found is None:
        print("the daemon is not built")
        sys.exit(77)
    source_tree.finish(found)
