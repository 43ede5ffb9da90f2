#!/usr/bin/env python3
"""system_calls.py BUILD_FOLDER [GTEST_FILTER]

Measures which system calls the daemon makes over the tests of the whole daemon, by strace, and compares
them with its seccomp policy and lab/guest/host.policy: fails if one is in neither. What the policies
have beyond that is printed too. By hand: strace slows the daemon down, and a test about its time or
its processes may fail with it; the calls are counted all the same.
"""

import collections
import glob
import os
import re
import subprocess
import sys
import tempfile

ROOT = os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__))))
POLICIES = ("device/vendor.corvid.hardware.wifi@1.0-service.policy", "lab/guest/host.policy")
DAEMON = "vendor.corvid.hardware.wifi@1.0-service"
# What only the start of a program needs, before a policy is in force.
START = {"arch_prctl", "execve"}
SHARDS = 4


def allowed():
    """{system call: the policy that has it}"""
    calls = {}
    for policy in POLICIES:
        with open(os.path.join(ROOT, policy), encoding="utf-8") as file:
            for name in re.findall(r"^(\w+): 1$", file.read(), re.MULTILINE):
                calls[name] = policy
    return calls


def count(folder):
    """What strace has written of each daemon: {system call: how often}."""
    counted = collections.Counter()
    for path in glob.glob(os.path.join(folder, "calls.*")):
        with open(path, encoding="utf-8") as file:
            for line in file:
                words = line.split()
                if len(words) in (5, 6) and words[3].isdigit() and words[-1] != "total":
                    counted[words[-1]] += int(words[3])
    return counted


def run(build, tests, folder):
    """Every test with each daemon below strace. Returns the names of those that failed."""
    wrapper = os.path.join(folder, "daemon")
    with open(wrapper, "w", encoding="utf-8") as file:
        # The tracer is a process of its own (-D), so that the daemon keeps its number.
        file.write(f"#!/bin/sh\nexec strace -D -f -qq -c -o '{folder}'/calls.$$ "
                   f"'{build}/bin/{DAEMON}'\n")
    os.chmod(wrapper, 0o755)
    shards = [
        subprocess.Popen(
            [os.path.join(build, "bin/component_test"), f"--gtest_filter={tests}"],
            env={**os.environ, "CORVID_DAEMON": wrapper, "GTEST_TOTAL_SHARDS": str(SHARDS),
                 "GTEST_SHARD_INDEX": str(index)},
            stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.STDOUT,
            encoding="utf-8", errors="replace")
        for index in range(SHARDS)
    ]
    failed, passed = set(), 0
    for shard in shards:
        printed = shard.communicate()[0]
        failed.update(re.findall(r"^\[  FAILED  \] (\S+\.\S+?),? ", printed, re.MULTILINE))
        passed += len(re.findall(r"^\[       OK \]", printed, re.MULTILINE))
    print(f"{passed} tests passed, {len(failed)} failed under strace")
    return sorted(failed)


def main(build, tests="*"):
    policy = allowed()
    with tempfile.TemporaryDirectory(prefix="calls") as folder:
        for name in run(os.path.abspath(build), tests, folder):
            print(f"  failed: {name}")
        daemons = len(glob.glob(os.path.join(folder, "calls.*")))
        calls = count(folder)
    if not calls:
        sys.exit("strace has counted nothing")
    print(f"{sum(calls.values())} system calls of {daemons} daemons, {len(calls)} different ones")
    for name, times in calls.most_common():
        print(f"{times:9} {name:18} {policy.get(name, '(start)' if name in START else 'MISSING')}")
    unused = sorted(policy.keys() - calls.keys())
    print(f"allowed, and not made: {' '.join(unused)}")
    missing = sorted(calls.keys() - policy.keys() - START)
    if missing:
        sys.exit(f"made, and neither in {' nor in '.join(POLICIES)}: {' '.join(missing)}")


if __name__ == "__main__":
    main(*sys.argv[1:])
