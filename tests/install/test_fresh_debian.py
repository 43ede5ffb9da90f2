#!/usr/bin/env python3
"""The Debian package in a fresh Debian of this machine's release: what it needs comes with it, the
service starts under a systemd of its own, confined, and purging leaves nothing behind.

./test.sh --package runs it. It needs root and an archive that debootstrap reaches; the first run
unpacks a Debian of some 220 MB, which is kept. Status 77 where it can't run.
"""

import hashlib
import os
import re
import shutil
import signal
import subprocess
import sys
import tempfile
import time
import unittest

BUILD = os.environ["CORVID_BUILD"]
CACHE = os.path.join(os.environ.get("XDG_CACHE_HOME") or os.path.expanduser("~/.cache"),
                     "corvid-wifi-roots")
DAEMON = "vendor.corvid.hardware.wifi@1.0-service"
SERVICE = "corvid-wifi.service"
STATE = "/var/lib/corvid-wifi"
SCENARIO = "/usr/share/corvid-wifi/scenarios/power-group.scn"
# What a Debian that boots has beside the smallest one; man-db says whether it finds a page.
INCLUDED = "systemd,systemd-sysv,man-db"
LIMIT_S = 300
# Of 10 at worst. What is left is root, the power over interfaces, and the host's own network and /tmp.
EXPOSURE = 1.7
# What lintian may say: the sources name no licence and no address of their maintainers, and the empty
# library that stands in for libbacktrace spares a page (host/backtrace).
LINTIAN_KNOWN = {"bogus-mail-host", "bogus-mail-host-in-debian-changelog", "hardening-no-relro",
                 "no-copyright-file", "root-in-contact"}

# Starts the service where the simulator would start a daemon, and ends it with it.
STARTER = f"""#!/bin/sh
unset LD_PRELOAD
trap 'systemctl stop {SERVICE}; exit 0' TERM
systemctl start {SERVICE} || exit 1
sleep 1000 &
wait
"""


def skip(why):
    if os.environ.get("CORVID_PACKAGE") == "required":
        sys.exit(f"the package can't be tried: {why}")
    print(f"skipped: {why}")
    sys.exit(77)


def run(*words, **options):
    """Its output, both, and status."""
    options.setdefault("timeout", LIMIT_S)
    return subprocess.run(words, text=True, stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                          stderr=subprocess.STDOUT, check=False,
                          env={**os.environ, "DEBIAN_FRONTEND": "noninteractive", "LC_ALL": "C"},
                          **options)


def release():
    with open("/etc/os-release", encoding="utf-8") as file:
        return re.search(r"(?m)^VERSION_CODENAME=(\w+)", file.read()).group(1)


def fresh_system(folder):
    """Unpacks a fresh Debian there; made once, and kept for the next time."""
    name = hashlib.sha256(f"{release()} {INCLUDED}".encode()).hexdigest()[:16]
    kept = os.path.join(CACHE, f"fresh-{name}.tar")
    if not os.path.exists(kept):
        print("Unpacking a fresh Debian", flush=True)
        os.makedirs(CACHE, exist_ok=True)
        mirrors = run("apt-get", "indextargets", "--format", "$(REPO_URI)", "Created-By: Packages",
                      f"Release: {release()}")
        made = run("debootstrap", "--variant=minbase", f"--include={INCLUDED}", release(),
                   folder + ".first", *mirrors.stdout.split()[:1], timeout=1800)
        if made.returncode != 0:
            skip("debootstrap: " + made.stdout.strip().splitlines()[-1])
        subprocess.run(["tar", "-C", folder + ".first", "-cf", kept + ".part", "."], check=True)
        os.rename(kept + ".part", kept)
        shutil.rmtree(folder + ".first")
    os.mkdir(folder)
    subprocess.run(["tar", "-C", folder, "-xf", kept], check=True)


class Machine:
    """A Debian in a folder: programs run in it as in a chroot, or under its own systemd."""

    def __init__(self, root):
        self.root = root
        self.container = None
        self.leader = None
        for name in ("resolv.conf", "hosts"):
            shutil.copy(os.path.join("/etc", name), os.path.join(root, "etc", name))

    def path(self, path):
        return self.root + path

    def run(self, command, **options):
        """A command of the shell; its output, both, and status."""
        if self.leader:
            return run("nsenter", "-t", self.leader, "-a", "sh", "-c", command, **options)
        return run("unshare", "-m", "--propagation", "private", "sh", "-c",
                   'mount --bind /proc "$0/proc" && mount --bind /dev "$0/dev" && '
                   'exec chroot "$0" sh -c "$1"', self.root, command, **options)

    def boot(self):
        """Why it does not boot, or None once it runs."""
        self.container = subprocess.Popen(
            ["systemd-nspawn", "-D", self.root, "-M", os.path.basename(self.root), "-b",
             "--register=no", "--keep-unit", "--private-network", "--console=pipe"],
            stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True,
            env={**os.environ, "SYSTEMD_NSPAWN_UNIFIED_HIERARCHY": "1"})
        end = time.monotonic() + LIMIT_S
        while self.container.poll() is None and time.monotonic() < end:
            children = run("pgrep", "-P", str(self.container.pid), "-f", "systemd").stdout.split()
            if children:
                self.leader = children[0]
                state = self.run("systemctl is-system-running --wait").stdout.strip()
                if state in ("running", "degraded"):
                    return None
            time.sleep(0.2)
        why = f"not within {LIMIT_S} s"
        if self.container.poll() is not None:
            why = self.container.stdout.read().strip() or "it ended"
        self.halt()
        return "a container does not boot here: " + why

    def halt(self):
        if self.container is None:
            return
        self.container.terminate()
        try:
            self.container.wait(60)
        except subprocess.TimeoutExpired:
            if self.leader:
                os.kill(int(self.leader), signal.SIGKILL)
            self.container.kill()
            self.container.wait()
        self.container.stdout.close()
        self.container = self.leader = None

    def files(self):
        """Every path but what systems write as they run, and package management of what it did."""
        passing = ("./run", "./tmp", "./dev", "./proc", "./sys", "./var/log", "./var/cache",
                   "./var/lib/apt", "./var/lib/dpkg", "./var/lib/systemd", "./var/tmp")
        found = run("find", ".", "-xdev", cwd=self.root).stdout.split("\n")
        return {path for path in found if not path.startswith(passing)}


class FreshDebian(unittest.TestCase):
    """The tests go from one state of the machine to the next, in the order of their names."""

    @classmethod
    def setUpClass(cls):
        cls.folder = tempfile.mkdtemp(prefix="corvid-fresh.")
        cls.addClassCleanup(shutil.rmtree, cls.folder)
        cls.root = os.path.join(cls.folder, "root")
        fresh_system(cls.root)
        cls.machine = Machine(cls.root)
        cls.addClassCleanup(cls.machine.halt)
        subprocess.run(["cpack", "-G", "DEB", "-B", cls.folder], cwd=BUILD, check=True,
                       stdout=subprocess.DEVNULL)
        names = [name for name in os.listdir(cls.folder) if name.endswith(".deb")]
        cls.package = os.path.join(cls.folder, names[0])
        shutil.copy(cls.package, cls.machine.path("/corvid-wifi.deb"))

    def done(self, command, status=0):
        """What it prints; it must end with that status."""
        result = self.machine.run(command)
        self.assertEqual(result.returncode, status, f"{command}\n{result.stdout}")
        return result.stdout

    def property_of_service(self, name):
        return self.done(f"systemctl show -P {name} {SERVICE}").strip()

    def ask(self, words):
        return self.done(f"CORVID_WIFI_ROOT={STATE} corvid-wifi --wait --timeout 60 {words}")

    def restarted_after(self, before):
        """Waits until another process is the service."""
        end = time.monotonic() + LIMIT_S
        while time.monotonic() < end:
            process = self.property_of_service("MainPID")
            if process not in ("0", before):
                return process
            time.sleep(0.2)
        return self.fail(f"no new process of the service within {LIMIT_S} s")

    def test_1_lintian_has_nothing_new_to_say(self):
        if shutil.which("lintian") is None:
            self.skipTest("there is no lintian")
        said = run("lintian", "--allow-root", self.package).stdout
        tags = {line.split()[2] for line in said.splitlines() if line[:3] in ("E: ", "W: ")}
        self.assertLessEqual(tags, LINTIAN_KNOWN, said)

    def test_2_apt_installs_it_with_what_it_needs(self):
        updated = self.machine.run("apt-get -q update")
        if updated.returncode != 0:
            skip("apt-get update in the fresh Debian: " + updated.stdout.strip()[-200:])
        self.done("apt-get install -qy --no-install-recommends /corvid-wifi.deb")
        self.assertEqual(self.done("systemctl is-enabled " + SERVICE).strip(), "enabled")

    def test_3_programs_and_pages_are_there_where_systemd_does_not_run(self):
        for program in ("corvid-wifi", "corvid-sim"):
            self.assertRegex(self.done(program + " --version"), rf"^{program} \d+\.\d+\.\d+$")
        for page in ("corvid-wifi", "corvid-sim", "corvid-statsd", DAEMON):
            self.assertIn(page, self.done(f"man -w {page}"))
            self.assertIn("SYNOPSIS", self.done(f"man -P cat {page}"))
        played = self.done(f"corvid-sim --no-dump --speed 5 --daemon /usr/sbin/{DAEMON} {SCENARIO}")
        self.assertIn("8 expectations met", played)

    def test_4_daemon_says_why_it_does_not_start(self):
        said = self.done(f"CORVID_WIFI_ROOT=/nowhere {DAEMON}", status=1)
        self.assertIn("/nowhere/dev/hwbinder", said)

    def test_5_purging_it_leaves_nothing(self):
        self.done("apt-get purge -qy corvid-wifi")
        left = [path for path in self.machine.files() if "corvid" in path]
        self.assertEqual(left, ["./corvid-wifi.deb"])

    def test_6_service_starts_with_the_package_under_systemd(self):
        problem = self.machine.boot()
        if problem:
            skip(problem)
        type(self).before = self.machine.files()
        self.done("dpkg -i /corvid-wifi.deb")
        self.assertEqual(self.property_of_service("ActiveState"), "active")
        self.assertIn("no supplicant", self.ask("status"))
        self.assertEqual(self.done(f"systemd-analyze verify {SERVICE}"), "")

    def test_7_service_is_confined(self):
        said = self.done(f"systemd-analyze security --no-pager {SERVICE}")
        exposure = re.search(r"exposure level for \S+: ([0-9.]+)", said)
        self.assertLessEqual(float(exposure.group(1)), EXPOSURE, said)
        status = self.done(f"cat /proc/{self.property_of_service('MainPID')}/status")
        for kind in ("Prm", "Eff", "Bnd"):  # bit 12 is CAP_NET_ADMIN
            self.assertRegex(status, rf"(?m)^Cap{kind}:\s0000000000001000$")
        self.assertRegex(status, r"(?m)^NoNewPrivs:\s1$")
        self.assertRegex(status, r"(?m)^Seccomp:\s2$")

    def test_8_confined_service_does_all_that_a_scenario_expects(self):
        self.done(f"systemctl stop {SERVICE}")
        with open(self.machine.path("/starter"), "w", encoding="utf-8") as file:
            file.write(STARTER)
        os.chmod(file.name, 0o755)
        # The kernel's side of nl80211 is the simulator's.
        unit = f"/run/systemd/system/{SERVICE}.d"
        self.done(f"mkdir -p {unit} && printf '[Service]\\nEnvironment=LD_PRELOAD="
                  f"/usr/lib/corvid-wifi/libnl80211-redirect.so\\n' >{unit}/simulated.conf && "
                  "systemctl daemon-reload")
        played = self.done(f"corvid-sim --no-dump --root {STATE} --daemon /starter {SCENARIO}")
        self.assertIn("8 expectations met", played)
        self.done(f"rm -r {unit} /starter && systemctl daemon-reload && "
                  f"systemctl start {SERVICE}")

    def test_9_restarts_crashes_and_stops(self):
        first = self.property_of_service("MainPID")
        self.done(f"systemctl restart {SERVICE}")
        second = self.restarted_after(first)
        self.assertIn(f"process {second},", self.ask("status"))
        self.done(f"kill -SEGV {second}")
        third = self.restarted_after(second)
        self.assertIn(f"process {third},", self.ask("status"))
        self.done(f"systemctl stop {SERVICE}")
        self.assertEqual(self.property_of_service("Result"), "success")
        said = self.done(f"CORVID_WIFI_ROOT={STATE} corvid-wifi status", status=3)
        self.assertIn("not available", said)

    def test_a_upgrade_leaves_the_administrators_choice(self):
        self.done(f"systemctl disable --now {SERVICE}")
        self.done("dpkg -i /corvid-wifi.deb")
        self.assertEqual(self.property_of_service("ActiveState"), "inactive")
        self.done(f"systemctl enable --now {SERVICE}")
        before = self.property_of_service("MainPID")
        self.done("dpkg -i /corvid-wifi.deb")
        self.restarted_after(before)

    def test_b_package_stays_installed_where_the_service_can_not_start(self):
        self.done(f"systemctl stop {SERVICE} && rm -r {STATE} && touch {STATE}")
        self.assertIn("the service did not start", self.done("dpkg -i /corvid-wifi.deb"))
        self.done(f"rm {STATE} && systemctl restart {SERVICE}")

    def test_c_removal_stops_it_and_purging_leaves_nothing(self):
        self.done("dpkg --remove corvid-wifi")
        self.assertEqual(self.property_of_service("ActiveState"), "inactive")
        self.assertTrue(os.path.isdir(self.machine.path(STATE)))
        self.done("dpkg --purge corvid-wifi")
        self.assertEqual(self.machine.files() - self.before, set())


if __name__ == "__main__":
    if os.geteuid() != 0:
        skip("it needs root")
    for needed in ("debootstrap", "systemd-nspawn", "nsenter", "unshare"):
        if shutil.which(needed) is None:
            skip(f"there is no {needed}; tests/install/packages.txt names its package")
    unittest.main()
