"""`cmake --install` puts everything in its place, and what is installed works from there."""

import json
import os
import pty
import re
import select
import shutil
import signal
import subprocess
import tempfile
import time
import unittest

from newcomer import BUILD, SOURCE

DAEMON = "vendor.corvid.hardware.wifi@1.0-service"


class Install(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.destination = tempfile.mkdtemp(prefix="corvid-install.")
        subprocess.run(["cmake", "--install", BUILD, "--prefix", "/usr"], check=True,
                       stdout=subprocess.DEVNULL, env={**os.environ, "DESTDIR": cls.destination})

    @classmethod
    def tearDownClass(cls):
        shutil.rmtree(cls.destination)

    def path(self, *parts):
        return os.path.join(self.destination, "usr", *parts)

    def run_installed(self, *words):
        return subprocess.run([self.path("bin", words[0]), *words[1:]], text=True, timeout=120,
                              stdout=subprocess.PIPE, stderr=subprocess.STDOUT, check=False)

    def test_everything_is_in_its_place(self):
        for parts in (("sbin", DAEMON), ("bin", "corvid-wifi"), ("bin", "corvid-sim"),
                      ("bin", "corvid-statsd"), ("share", "man", "man1", "corvid-wifi.1"),
                      ("share", "man", "man1", "corvid-sim.1"),
                      ("share", "man", "man8", DAEMON + ".8"),
                      ("share", "bash-completion", "completions", "corvid-wifi"),
                      ("share", "zsh", "vendor-completions", "_corvid-wifi"),
                      ("lib", "systemd", "system", "corvid-wifi.service")):
            self.assertTrue(os.path.exists(self.path(*parts)), parts)

    def test_nothing_leads_back_to_the_build(self):
        for program in ("corvid-wifi", "corvid-sim", "corvid-statsd"):
            section = subprocess.run(["readelf", "-d", self.path("bin", program)], text=True,
                                     stdout=subprocess.PIPE, check=True).stdout
            self.assertNotIn(BUILD, section)

    def test_installed_simulator_plays_with_the_installed_daemon(self):
        result = self.run_installed(
            "corvid-sim", "--daemon", self.path("sbin", DAEMON), "--speed", "5", "--no-dump",
            self.path("share", "corvid-wifi", "scenarios", "power-group.scn"))
        self.assertEqual(result.returncode, 0, result.stdout)
        self.assertIn("8 expectations met", result.stdout)

    def test_man_page_and_completion_have_each_word_and_option(self):
        about = json.loads(self.run_installed("corvid-wifi", "--help", "--json").stdout)
        with open(self.path("share", "man", "man1", "corvid-wifi.1"), encoding="utf-8") as file:
            page = file.read().replace("\\-", "-")
        with open(self.path("share", "zsh", "vendor-completions", "_corvid-wifi"),
                  encoding="utf-8") as file:
            zsh = file.read()
        for word in about["words"]:
            self.assertIn("\n.B " + word["name"], page)
            self.assertIn("'" + word["name"] + ":", zsh)
        for option in about["options"] + [o for word in about["words"] for o in word["options"]]:
            self.assertIn("\n.B " + option["name"], page)
            self.assertIn("'" + option["name"] + "[", zsh)

    def test_daemons_page_lists_each_property(self):
        with open(self.path("share", "man", "man8", DAEMON + ".8"), encoding="utf-8") as file:
            page = file.read().replace("\\-", "-")
        with open(os.path.join(SOURCE, "docs", "properties.md"), encoding="utf-8") as file:
            listed = re.findall(r"(?m)^\| `(persist[^`]+)` \| \w+ \| ([^|]+) \| `([^`]+)` \| [^|]+ \| (.*) \|$",
                                file.read())
        self.assertGreater(len(listed), 40)
        for name, values, default, meaning in listed:
            entry = page.partition(f"\n.B {name}\n")[2].partition("\n")[0]
            self.assertIn(meaning, entry, name)
            self.assertIn(f"default {default}, ", entry, name)
            self.assertIn(f"({values}, ", entry, name)

    def test_each_page_has_each_variable_that_the_program_reads(self):
        for page, folders in (("man1/corvid-wifi.1", ("tools", "host/log", "host/root")),
                              ("man1/corvid-sim.1", ("sim", "host/log")),
                              ("man1/corvid-statsd.1", ("host/stats", "host/log", "host/root")),
                              (f"man8/{DAEMON}.8", ("os", "config", "client", "managers", "service",
                                                    "host/log", "host/root", "host/hidl"))):
            with open(self.path("share", "man", page), encoding="utf-8") as file:
                described = file.read().partition(".SH ENVIRONMENT")[2].partition(".SH ")[0]
            found = subprocess.run(
                ["grep", "-rhoE", "--include=*.cpp", r'getenv\("[A-Z_]+"', *folders], cwd=SOURCE,
                text=True, stdout=subprocess.PIPE, check=True).stdout
            for name in set(re.findall('"(.+)"', found)):
                self.assertIn(name, described, page)

    def test_pages_of_the_simulator_and_the_daemon_are_complete(self):
        about = json.loads(self.run_installed("corvid-sim", "--help-json").stdout)
        with open(self.path("share", "man", "man1", "corvid-sim.1"), encoding="utf-8") as file:
            page = file.read().replace("\\-", "-")
        for option in about["options"]:
            self.assertIn("\n.B " + option["name"], page)
        with open(self.path("share", "man", "man8", DAEMON + ".8"), encoding="utf-8") as file:
            self.assertIn("\n.B log.tag.CorvidWifi\n", file.read())

    def test_everything_has_the_version_of_the_one_file(self):
        with open(os.path.join(SOURCE, "version.txt"), encoding="utf-8") as file:
            version = file.read().strip()
        for program in ("corvid-wifi", "corvid-sim"):
            self.assertEqual(self.run_installed(program, "--version").stdout,
                             f"{program} {version}\n")
        for page in (("man1", "corvid-wifi.1"), ("man1", "corvid-sim.1"), ("man8", DAEMON + ".8")):
            with open(self.path("share", "man", *page), encoding="utf-8") as file:
                self.assertIn(f' "" "{version}"\n', file.readline())
        with open(self.path("sbin", DAEMON), "rb") as file:
            self.assertIn(version.encode() + b"\0", file.read())

    def complete(self, *words):
        script = (f". {self.path('share', 'bash-completion', 'completions', 'corvid-wifi')}; "
                  f"COMP_WORDS=(corvid-wifi {' '.join(words)}); COMP_CWORD={len(words)}; "
                  '_corvid_wifi; echo "${COMPREPLY[*]}"')
        return subprocess.run(["bash", "-c", script], text=True, check=True,
                              stdout=subprocess.PIPE).stdout.split()

    def test_bash_completes_words_and_their_options(self):
        self.assertEqual(self.complete("st"), ["sta", "status"])
        self.assertEqual(self.complete("bugreport", "--an"), ["--anonymize"])
        self.assertEqual(self.complete("dump", "--js"), ["--json"])
        self.assertEqual(self.complete("--timeout", "5", "bugreport", "--an"), ["--anonymize"])
        self.assertEqual(self.complete("--timeout", "5", "st"), ["sta", "status"])

    def test_bash_completes_methods_and_sections(self):
        self.assertEqual(self.complete("call", "startC"), ["startCsa"])
        self.assertEqual(self.complete("debug", "sta", "netl"), ["netlink"])

    def typed_into_zsh(self, line, wanted, limit=60):
        """What zsh shows for a typed line, until `wanted` is in it or the time is over."""
        process, terminal = pty.fork()
        if process == 0:
            os.execvpe("zsh", ["zsh", "-f"], {**os.environ, "TERM": "dumb", "HOME": self.destination})
        shown = ""
        try:
            folder = self.path("share", "zsh", "vendor-completions")
            os.write(terminal, f"fpath=({folder} $fpath); autoload -Uz compinit; compinit -u -D; "
                     "PS1='re''ady> '\n".encode())
            end = time.monotonic() + limit
            sent = False
            while time.monotonic() < end and not (sent and wanted in shown):
                if select.select([terminal], [], [], 1)[0]:
                    shown += os.read(terminal, 4096).decode(errors="replace")
                if not sent and "ready> " in shown:
                    shown = ""
                    os.write(terminal, line.encode())
                    sent = True
        finally:
            os.close(terminal)
            os.kill(process, signal.SIGKILL)
            os.waitpid(process, 0)
        return shown

    def test_zsh_completes_commands_arguments_and_options(self):
        for line, wanted in (("corvid-wifi stat\t", "corvid-wifi status"),
                             ("corvid-wifi call startC\t", "call startCsa"),
                             ("corvid-wifi bugreport --anon\t", "--anonymize"),
                             ("corvid-wifi debug sta netl\t", "sta netlink"),
                             ("corvid-sim --reco\t", "corvid-sim --record")):
            self.assertIn(wanted, self.typed_into_zsh(line, wanted), line)

    def test_unit_starts_the_daemon_where_it_is_installed(self):
        with open(self.path("lib", "systemd", "system", "corvid-wifi.service"),
                  encoding="utf-8") as file:
            unit = file.read()
        # systemd looks for it in the usual folders, whatever the prefix.
        self.assertRegex(unit, rf"(?m)^ExecStart={DAEMON}$")


    def test_unit_leaves_the_daemon_what_the_device_leaves_it(self):
        with open(self.path("lib", "systemd", "system", "corvid-wifi.service"),
                  encoding="utf-8") as file:
            unit = dict(line.split("=", 1) for line in file.read().splitlines()
                        if "=" in line and not line.startswith("#"))
        with open(os.path.join(SOURCE, "device", DAEMON + ".rc"), encoding="utf-8") as file:
            init = file.read()
        for name, pattern in (("CapabilityBoundingSet", r"capabilities (\w+)$"),
                              ("LimitNOFILE", r"rlimit nofile (\d+) \d+$"),
                              ("MemoryMax", r"memcg.limit_in_bytes (\d+)$"),
                              ("RestartSec", r"restart_period (\d+)$")):
            wanted = re.search(rf"(?m)^ +{pattern}", init).group(1)
            given = unit[name].replace("CAP_", "").replace("32M", str(32 << 20))
            self.assertEqual(given, wanted, name)
        allowed = unit["SystemCallFilter"].split()
        for policy in (f"device/{DAEMON}.policy", "lab/guest/host.policy"):
            with open(os.path.join(SOURCE, policy), encoding="utf-8") as file:
                calls = re.findall(r"(?m)^(\w+): 1$", file.read())
            self.assertGreater(len(calls), 10)
            self.assertLessEqual(set(calls), set(allowed), policy)


class Package(unittest.TestCase):
    def test_package_names_what_it_needs_and_holds_what_works(self):
        with tempfile.TemporaryDirectory(prefix="corvid-package.") as folder:
            subprocess.run(["cpack", "-G", "DEB", "-B", folder], cwd=BUILD, check=True,
                           stdout=subprocess.DEVNULL)
            package = os.path.join(folder, next(n for n in os.listdir(folder) if n.endswith(".deb")))
            needs = subprocess.run(["dpkg-deb", "-f", package, "Depends"], text=True, check=True,
                                   stdout=subprocess.PIPE).stdout
            for library in ("libnl-3-200", "libnl-genl-3-200", "android-liblog", "libevent"):
                self.assertIn(library, needs)
            self.assertNotIn("backtrace", needs)
            control = os.path.join(folder, "control")
            subprocess.run(["dpkg-deb", "-e", package, control], check=True)
            for script in ("postinst", "prerm", "postrm"):
                self.assertTrue(os.access(os.path.join(control, script), os.X_OK), script)
            subprocess.run(["dpkg-deb", "-x", package, folder], check=True)
            programs = os.path.join(folder, "usr")
            result = subprocess.run(
                [os.path.join(programs, "bin", "corvid-sim"), "--no-dump", "--speed", "5",
                 "--daemon", os.path.join(programs, "sbin", DAEMON),
                 os.path.join(programs, "share", "corvid-wifi", "scenarios", "power-group.scn")],
                text=True, timeout=120, stdout=subprocess.PIPE, stderr=subprocess.STDOUT,
                check=False)
            self.assertIn("8 expectations met", result.stdout)

    def told_to_systemd(self, script, *arguments, runs=True):
        """What a script of the package calls systemctl with."""
        with tempfile.TemporaryDirectory(prefix="corvid-package.") as folder:
            log = os.path.join(folder, "log")
            with open(os.path.join(folder, "systemctl"), "w", encoding="utf-8") as file:
                file.write(f'#!/bin/sh\necho "$*" >>{log}\n')
            os.chmod(file.name, 0o755)
            environment = {**os.environ, "PATH": f"{folder}:{os.environ['PATH']}",
                           "CORVID_STATE": os.path.join(folder, "state"),
                           "SYSTEMD_RUNS": folder if runs else os.path.join(folder, "none")}
            subprocess.run([os.path.join(SOURCE, "cmake", "debian", script), *arguments],
                           check=True, env=environment)
            if not os.path.exists(log):
                return []
            with open(log, encoding="utf-8") as file:
                return file.read().splitlines()

    def test_new_package_enables_and_starts_the_service(self):
        told = self.told_to_systemd("postinst", "configure", "")
        self.assertEqual(told[0], "--quiet enable corvid-wifi.service")
        self.assertEqual(told[-1], "restart corvid-wifi.service")

    def test_new_package_starts_nothing_where_systemd_does_not_run(self):
        self.assertEqual(self.told_to_systemd("postinst", "configure", "", runs=False),
                         ["--quiet enable corvid-wifi.service"])

    def test_upgrade_leaves_it_to_the_administrator_whether_it_is_enabled(self):
        told = self.told_to_systemd("postinst", "configure", "0.9")
        self.assertNotIn("--quiet enable corvid-wifi.service", told)
        self.assertEqual(told[-1], "restart corvid-wifi.service")

    def test_removal_stops_the_service_and_an_upgrade_does_not(self):
        self.assertEqual(self.told_to_systemd("prerm", "remove")[-1], "stop corvid-wifi.service")
        self.assertEqual(self.told_to_systemd("prerm", "upgrade", "2.0"), [])

    def test_service_stays_enabled_until_the_package_is_purged(self):
        # dpkg tells postinst the version that was configured last, also after a removal.
        for arguments in (("prerm", "remove"), ("postrm", "remove"),
                          ("postinst", "configure", "1.0")):
            self.assertNotIn("disable", " ".join(self.told_to_systemd(*arguments)))
        self.assertIn("--quiet disable corvid-wifi.service",
                      self.told_to_systemd("postrm", "purge"))


if __name__ == "__main__":
    unittest.main()
