#!/usr/bin/env python3
"""day.py TIMED COUNTED

Prints the bill of a day that lab/cases/day.sh has played two times: processor time from the logs in
the folder TIMED, counts from those in COUNTED (the kernel's counters cost time themselves).
"""

import os
import re
import sys

SENT = ("sendto", "sendmsg")
WRITTEN = ("write", "writev")

THREAD = re.compile(r"\{ (?:common_pid|prev_pid): +(\d+)(?:,| \})")
CALL = re.compile(r"id: sys_(\w+) +\[ *\d+\] \} hitcount: +(\d+)(?: +ret: +(\d+))?")
HITS = re.compile(r"hitcount: +(\d+)")


class Incomplete(Exception):
    """What a log lacks."""


def read(folder, name):
    path = os.path.join(folder, name + ".log")
    try:
        with open(path, encoding="utf-8") as file:
            return file.read()
    except FileNotFoundError as error:
        raise Incomplete(f"there is no {path}: the day was not played to its end") from error


def bill(folder, account):
    """The figures {name: number}, and {thread: ns} of those that were there at the end."""
    figures, before, after = {}, {}, {}
    for line in read(folder, "bill").splitlines():
        words = line.split()
        if words[0] != account:
            continue
        if words[1] in ("before", "after"):
            (before if words[1] == "before" else after)[int(words[2])] = int(words[3])
        else:
            figures.update(zip(words[1::2], map(int, words[2::2])))
    if not figures:
        raise Incomplete(f"{folder} has no account '{account}'")
    return figures, {thread: spent_ns - before.get(thread, 0) for thread, spent_ns in after.items()}


class Counts:
    """What the kernel counted of one process."""

    def __init__(self, folder, process):
        self.calls = {}  # by name
        self.bytes = {}  # by name, of those that returned a length
        self.sleeps = {}  # by thread
        self.threads = set()
        for line in self._lines(folder, process + "-calls"):
            name, hits, _ = CALL.search(line).groups()
            self.calls[name] = self.calls.get(name, 0) + int(hits)
            self.threads.add(int(THREAD.search(line)[1]))
        for line in self._lines(folder, process + "-bytes"):
            name, _, sum_of_results = CALL.search(line).groups()
            self.bytes[name] = int(sum_of_results)
        for line in self._lines(folder, process + "-sleeps"):
            thread = int(THREAD.search(line)[1])
            if thread in self.threads:  # the filter lets those pass, too, that it switches to
                self.sleeps[thread] = int(HITS.search(line)[1])

    @staticmethod
    def _lines(folder, name):
        text = read(folder, name)
        if re.search(r"Dropped: 0$", text, re.MULTILINE) is None:
            raise Incomplete(f"{name}: the kernel's table was too small")
        return [line for line in text.splitlines() if line.startswith("{")]

    def sum_of(self, names):
        return sum(self.bytes.get(name, 0) for name in names)


def roles(threads_log):
    """{thread: what it does}, as far as the daemon tells."""
    tasks = dict(re.findall(r"(?m)^ +(\w+(?:\.\w+)?): (\d+)$", threads_log))
    known = {}
    for task, role in (("CorvidWifiManager", "main: clients' calls"),
                       ("StaManager.onStaConnected", "listener: the supplicant's events"),
                       ("CoexManager.dispatcher", "dispatcher: cameras and controllers")):
        if task in tasks:
            known[int(tasks[task])] = role
    return known


def table(timed_folder, counted_folder):
    """The lines of the bill."""
    timed, timed_threads = bill(timed_folder, "timed")
    counted, counted_threads = bill(counted_folder, "counted")
    happened = ("connections", "roams", "scans", "sessions")
    if [timed[name] for name in happened] != [counted[name] for name in happened]:
        raise Incomplete("the two days were not the same")
    daemon, supplicant = Counts(counted_folder, "daemon"), Counts(counted_folder, "supplicant")
    daemon_ms = timed["daemon-ms"]
    supplicant_ms = timed["supplicant-ms"] - timed["answers-ns"] / 1e6

    yield ("{connections} connections, {roams} of them roams, {scans} scans, {sessions} P2P sessions"
           .format(**timed))
    yield ""
    row = "{:<50} {:>12} {:>15}".format
    yield row("", "the daemon", "wpa_supplicant")
    yield row("processor time, s", f"{daemon_ms / 1000:.2f}", f"{supplicant_ms / 1000:.2f}")
    yield row("  of the supplicant's", f"{100 * daemon_ms / supplicant_ms:.1f} %", "")
    samples, bare_ms = timed["samples"], timed["samples"] * timed["bare-sample-ns"] / 1e6
    yield row(f"a C program that only samples, {samples} times, s", f"{bare_ms / 1000:.2f}", "")
    yield row("  of the supplicant's", f"{100 * bare_ms / supplicant_ms:.1f} %", "")
    yield row("times woken", sum(daemon.sleeps.values()), sum(supplicant.sleeps.values()))
    yield row("system calls", sum(daemon.calls.values()), sum(supplicant.calls.values()))
    yield row("bytes logged", counted["log-bytes"], "")
    yield row("bytes written (log, files, eventfds)", daemon.sum_of(WRITTEN), supplicant.sum_of(WRITTEN))
    yield row("bytes sent (sockets, netlink)", daemon.sum_of(SENT), supplicant.sum_of(SENT))
    yield ""

    yield row("the daemon's threads", "woken", "processor, s")
    known = roles(read(timed_folder, "threads"))
    ended_ms = daemon_ms
    # A thread that lives all the day has the same number in both guests.
    for thread, spent_ns in sorted(timed_threads.items()):
        ended_ms -= spent_ns / 1e6
        yield row(known.get(thread, f"thread {thread}"), daemon.sleeps.get(thread, 0),
                  f"{spent_ns / 1e9:.2f}")
    ended = daemon.threads - set(counted_threads)
    yield row(f"{len(ended)} that have ended: samples, sensors",
              sum(daemon.sleeps.get(thread, 0) for thread in ended), f"{ended_ms / 1000:.2f}")
    yield ""

    yield row("system calls, the most frequent", "the daemon", "wpa_supplicant")
    for name in sorted(daemon.calls, key=daemon.calls.get, reverse=True)[:12]:
        yield row(name, daemon.calls[name], supplicant.calls.get(name, 0))


def main(folders):
    try:
        for line in table(*folders):
            print(line.rstrip())
    except Incomplete as error:
        print(f"day.py: {error}", file=sys.stderr)
        return 1
    return 0


if __name__ == "__main__":
    if len(sys.argv) != 3:
        sys.exit(__doc__)
    sys.exit(main(sys.argv[1:]))
