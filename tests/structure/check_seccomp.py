#!/usr/bin/env python3
"""check_seccomp.py SOURCE_TREE BUILD_FOLDER

The device's seccomp policy allows the system calls of each function of the C library that the daemon's
own code uses, whether a test calls it or not, those of others in the daemon's process (LIBRARIES), and
no more. The functions are read from the compiled sources. One that is neither in CALLS nor in NO_CALLS,
nor called like a system call, is a complaint. Of C++'s library only what CALLS has is known. What a
host's libraries call, tests/component/system_calls.py measures; what only a device's do is known by
reading. The lab's own policy has only what the device's has not. Ends with status 77 if the daemon is
not built.
"""

import glob
import os
import re
import subprocess
import sys

import source_tree

POLICY = "device/vendor.corvid.hardware.wifi@1.0-service.policy"
HOST_POLICY = "lab/guest/host.policy"
# arm64 has the system calls of this header, and no older ones.
HEADER = "/usr/include/asm-generic/unistd.h"
THIS = "tests/structure/check_seccomp.py"

# The system calls of functions that are not called like the only one they make.
CALLS = {
    "abort": "tgkill", "access": "faccessat", "chmod": "fchmodat", "chown": "fchownat",
    "closedir": "close", "creat": "openat", "dup2": "dup3", "epoll_wait": "epoll_pwait",
    "eventfd": "eventfd2", "fopen": "openat", "fork": "clone", "fprintf": "write",
    "fputc": "write", "fputs": "write", "free": "madvise munmap", "fstat": "newfstatat",
    "fwrite": "write", "getrlimit": "prlimit64",
    # The file of time zones has UTC too.
    "gmtime_r": "close lseek openat read", "if_nametoindex": "close ioctl socket",
    "inotify_init": "inotify_init1", "lstat": "newfstatat", "mkdir": "mkdirat",
    "open": "openat", "opendir": "openat", "pipe": "pipe2", "poll": "ppoll",
    "pthread_cond_clockwait": "futex", "pthread_cond_wait": "futex", "pthread_create": "clone",
    "pthread_exit": "exit", "pthread_kill": "tgkill", "pthread_mutex_lock": "futex",
    "pthread_mutex_unlock": "futex", "pthread_once": "futex", "pthread_rwlock_rdlock": "futex",
    "pthread_rwlock_unlock": "futex", "pthread_rwlock_wrlock": "futex",
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

# Functions and variables without a system call; which of them a source has also depends on the
# compiler.
NO_CALLS = set("""
    atoi atol bcmp ether_aton_r htonl htons inet_pton isalnum isalpha isdigit isprint isspace
    isxdigit memchr memcmp memcpy memmove memset ntohl ntohs sigaddset sigdelset sigemptyset
    sigfillset sigismember snprintf sscanf stderr strcasecmp strchr strcmp strcpy strerror strlen
    strncasecmp strncmp strncpy strnlen strrchr strstr strtol strtoll strtoul strtoull tolower
    toupper vsnprintf
""".split())

# The system calls that others in the daemon's process make, and who.
LIBRARIES = {
    "bind": "libnl and libwpa_client give their sockets an address",
    "connect": "libwpa_client connects to the supplicant, liblog to logd",
    "eventfd2": "libursaos makes the descriptor that wakes a loop",
    "exit_group": "the C library, when main() returns or a signal's default ends the process",
    "fchmodat": "libwpa_client opens its own socket to the supplicant's group",
    "fchownat": "libwpa_client gives its own socket to the supplicant's group",
    "fstat": "bionic's streams and opendir() ask what they have opened",
    "getrandom": "the C library's allocator and hashes seed themselves",
    "getsockname": "libnl asks for the address that bind() has given",
    "getsockopt": "libnl asks for the protocol of its socket",
    "getuid": "liblog tells logd who writes",
    "mmap": "the allocator's memory, threads' stacks, hwbinder's buffer",
    "mprotect": "the allocator's memory, the guard of a thread's stack",
    "mremap": "bionic's allocator, for large blocks",
    "pipe2": "bionic's crash handler talks with crash_dump",
    "prctl": "bionic names a thread and its mappings",
    "recvmsg": "libnl receives",
    "restart_syscall": "the kernel, after a stop in the midst of a wait",
    "rt_sigreturn": "the kernel, when a signal's handler returns",
    "rt_tgsigqueueinfo": "bionic's crash handler passes the signal on",
    "sched_yield": "bionic's allocator waits for a lock",
    "sendmsg": "libnl sends",
    "set_tid_address": "bionic, when a detached thread ends",
    "sigaltstack": "bionic gives each thread a stack for signals",
    "unlinkat": "libwpa_client removes its own socket",
    "wait4": "bionic's crash handler waits for crash_dump",
    "writev": "liblog writes to logd",
}

# What comes before the daemon's main() where the policy is in force by then. The policy has each
# behind a "#".
START = {
    "execve": "minijail0 executes the daemon",
    "faccessat": "bionic's linker looks for libraries",
    "fstatfs": "bionic's linker asks where a library lies",
    "pread64": "bionic's linker reads a library's headers",
    "readlinkat": "bionic's linker finds the program's own path",
    "sched_getaffinity": "bionic's allocator counts processors",
}

# How functions are called that are not looked up: of the compiler, and of libraries that are measured.
OTHERS = ("_", "atrace_", "genl", "nl_", "nla_", "nlmsg_", "wpa_ctrl_")


def system_calls():
    """The names of arm64's system calls."""
    with open(HEADER, encoding="utf-8") as file:
        return set(re.findall(r"^#define __NR(?:3264)?_(\w+) ", file.read(), re.MULTILINE))


def calls_of(function, known):
    """The system calls that a function makes, or None if that is not known."""
    function = re.sub(r"^__(\w+)_chk$", r"\1", function)  # with the size of its buffer
    for name, calls in CALLS.items():
        if function == name or name.startswith("_Z") and function.startswith(name):
            return calls.split()
    if function in known:
        return [function]
    return [] if function in NO_CALLS or function.startswith(OTHERS) else None


def functions(library):
    """What each object of a library calls: [(name of its source, function)]."""
    printed = subprocess.run(["nm", "-A", "--undefined-only", library], stdin=subprocess.DEVNULL,
                             capture_output=True, text=True, check=True).stdout
    return re.findall(r":([\w.]+)\.o:\s+U ([\w]+)", printed)


def read_policy(root, known, complaints):
    """The allowed calls, and those behind a "#", which an integrator takes away: {call: line}."""
    allowed = {}
    later = {}
    for number, line in enumerate(source_tree.read(root, POLICY).splitlines(), 1):
        if not line or re.match(r"#(?!\w)", line):
            continue
        match = re.fullmatch(r"#?(\w+): 1", line)
        call = match and match.group(1)
        if not match:
            complaints.append(f"{POLICY}:{number}: is no 'CALL: 1'")
        elif call not in known:
            complaints.append(f"{POLICY}:{number}: {HEADER} has no system call {call}")
        elif call in allowed or call in later:
            complaints.append(f"{POLICY}:{number}: {call} is there twice")
        else:
            (later if line.startswith("#") else allowed)[call] = number
    return allowed, later


def beside_sources(has, own, table, name, mark):
    """Complaints about calls that one of the policy and a table here has and the other has not."""
    found = [f"{POLICY}:{has[call]}: {mark}{call}: no source of the daemon calls it, and {name} in "
             f"{THIS} names nobody else" for call in has.keys() - own - table.keys()]
    return found + [f"{POLICY}: lacks {mark}{call}, but {name} in {THIS} has it: {table[call]}"
                    for call in table.keys() - own - has.keys()]


def check(root, build, libraries=None, start=None):
    """The complaints, or None if the daemon is not built."""
    known = system_calls()
    complaints = []
    allowed, later = read_policy(root, known, complaints)
    own = set()
    for folder in source_tree.DAEMON_FOLDERS:
        library = os.path.join(build, f"lib/libcorvidwifi_{folder}.a")
        if not os.path.exists(library):
            return None
        for source, function in functions(library):
            paths = sorted(glob.glob(f"{folder}/**/{source}", root_dir=root, recursive=True))
            caller = f"{' or '.join(paths) or source} calls {function}()"
            calls = calls_of(function, known)
            if calls is None:
                complaints.append(f"{POLICY}: {caller}; say in {THIS} which system calls that makes")
            complaints += [f"{POLICY}: lacks {call}, but {caller}"
                           for call in calls or [] if call not in allowed]
            own.update(calls or [])
    complaints += beside_sources(allowed, own, LIBRARIES if libraries is None else libraries,
                                 "LIBRARIES", "")
    complaints += beside_sources(later, own, START if start is None else start, "START", "#")
    host = source_tree.read(root, HOST_POLICY)
    complaints += [f"{HOST_POLICY}: {call} is already allowed at {POLICY}:{allowed[call]}"
                   for call in re.findall(r"^(\w+): 1$", host, re.MULTILINE) if call in allowed]
    return sorted(set(complaints))


if __name__ == "__main__":
    found = check(sys.argv[1], sys.argv[2])
    if found is None:
        print("the daemon is not built")
        sys.exit(77)
    source_tree.finish(found)
