"""The lab's shell as somebody uses it: on a terminal, with the words that the README and the shell's own
greeting show. Status 77 where the lab can't run."""

import os
import pty
import re
import select
import sys
import time

from newcomer import BUILD, SOURCE

BOOT_S = 300
ANSWER_S = 120
PROMPT = r"lab# (\x1b\[6n)*$"


class Shell:
    def __init__(self):
        self.process, self.terminal = pty.fork()
        if self.process == 0:
            os.execve(os.path.join(SOURCE, "lab", "lab.sh"), ["lab.sh", "shell"],
                      {**os.environ, "CORVID_BUILD": BUILD, "CORVID_LAB": "optional"})
        self.unread = ""

    def read_to(self, pattern, limit):
        """What the shell prints up to the pattern."""
        end = time.monotonic() + limit
        while not re.search(pattern, self.unread):
            if not select.select([self.terminal], [], [], max(0, end - time.monotonic()))[0]:
                raise AssertionError(f"no {pattern} within {limit} s:\n{self.unread}")
            try:
                self.unread += os.read(self.terminal, 65536).decode(errors="replace")
            except OSError:
                print(self.unread)
                sys.exit(os.waitstatus_to_exitcode(os.waitpid(self.process, 0)[1]) or 1)
        text, self.unread = self.unread, ""
        return text.replace("\r", "")

    def ask(self, command):
        os.write(self.terminal, (command + "\n").encode())
        return self.read_to(PROMPT, ANSWER_S)


def machines():
    """The QEMU processes of this build folder's lab, by their RAM disk."""
    found = set()
    for pid in filter(str.isdigit, os.listdir("/proc")):
        try:
            with open(f"/proc/{pid}/cmdline", "rb") as file:
                words = file.read().decode(errors="replace").split("\0")
        except OSError:
            continue
        if "qemu" in words[0] and any(os.path.join(BUILD, "lab-runs", ".disk") in w for w in words):
            found.add(pid)
    return found


def expect(condition, what):
    if not condition:
        raise AssertionError(what)


def main():
    before = machines()
    shell = Shell()
    greeting = shell.read_to(PROMPT, BOOT_S)
    mine = machines() - before
    expect(mine, "no machine runs")
    hint = re.search(r"wpa p2p0 p2p_group_add freq=\d+", greeting)[0]

    expect("lab#" in shell.ask("signal -75; traffic"), "signal")
    said = shell.ask("call getStaInfo")
    expect('{"frequency":5180,"rssi":-75,"bandwidth":3}' in said, said)
    said = shell.ask("for i in $(seq 60); do grep -q reply:OK /lab/log/daemon.log && break; sleep 1; "
                     "done; grep SET_TXPOWER /lab/log/daemon.log")
    expect("TxPowerManager: STA cmd:DRIVER SET_TXPOWER 20 reply:OK" in said, said)

    # The greeting's own hint works right after the boot.
    shell.ask(hint)
    said = shell.ask("for i in $(seq 60); do grep -q P2P-GROUP-STARTED /lab/log/p2p.log && break; "
                     "sleep 1; done; grep -c P2P-GROUP-STARTED /lab/log/p2p.log")
    expect(re.search(r"(?m)^[1-9]", said), said)

    said = shell.ask("tcpdump --version; strace -V | head -n 1")
    expect("tcpdump version" in said and "strace -- version" in said, said)
    said = shell.ask("sleep 1 & sleep 3; echo after")
    expect("Done" not in said and "[1]" not in said, "job noise: " + said)

    os.close(shell.terminal)
    end = time.monotonic() + 30
    while mine & machines() and time.monotonic() < end:
        time.sleep(0.2)
    expect(not mine & machines(), "the machine outlives its terminal")
    print("ok")


if __name__ == "__main__":
    main()
