#!/usr/bin/env python3
"""Tests of cmake/system-root.sh: apt downloads from a mirror in a folder, of packages with one file."""

import hashlib
import os
import re
import shutil
import socket
import subprocess
import tempfile
import unittest

SOURCE = os.path.dirname(os.path.dirname(os.path.dirname(os.path.realpath(__file__))))
SUITES = ("release", "updates")
LIBRARY = "usr/lib/some-machine/android/liblog.so.0"


class SystemRootTest(unittest.TestCase):

    @classmethod
    def setUpClass(cls):
        holder = tempfile.TemporaryDirectory()
        cls.addClassCleanup(holder.cleanup)
        cls.whole_mirror = os.path.join(holder.name, "mirror")
        for suite in SUITES:
            os.makedirs(os.path.join(cls.whole_mirror, suite))
        for suite, name, file in (("release", "g++", "usr/bin/g++"),
                                  ("release", "first-dev", LIBRARY),
                                  ("updates", "second-dev", "usr/include/second.h")):
            cls.add_package(holder.name, suite, name, file)
        for suite in SUITES:
            with open(os.path.join(cls.whole_mirror, suite, "Packages"), "rb") as packages:
                text = packages.read()
            with open(os.path.join(cls.whole_mirror, suite, "Release"), "w",
                      encoding="utf-8") as release:
                release.write(f"SHA256:\n {hashlib.sha256(text).hexdigest()} {len(text)} Packages\n")

    @classmethod
    def add_package(cls, folder, suite, name, file):
        """Puts a package with that file into the mirror."""
        tree = os.path.join(folder, name)
        os.makedirs(os.path.join(tree, "DEBIAN"))
        control = (f"Package: {name}\nVersion: 1\nArchitecture: all\n"
                   "Maintainer: none <none@localhost>\nDescription: one file\n")
        with open(os.path.join(tree, "DEBIAN", "control"), "w", encoding="utf-8") as out:
            out.write(control)
        os.makedirs(os.path.dirname(os.path.join(tree, file)))
        with open(os.path.join(tree, file), "w", encoding="utf-8") as out:
            out.write(name)
        path = os.path.join(cls.whole_mirror, suite, name + ".deb")
        subprocess.run(["dpkg-deb", "--root-owner-group", "-Znone", "-b", tree, path], check=True,
                       stdout=subprocess.DEVNULL)
        with open(path, "rb") as deb:
            content = deb.read()
        with open(os.path.join(cls.whole_mirror, suite, "Packages"), "a",
                  encoding="utf-8") as packages:
            packages.write(f"{control}Filename: ./{name}.deb\nSize: {len(content)}\n"
                           f"SHA256: {hashlib.sha256(content).hexdigest()}\n\n")

    def setUp(self):
        holder = tempfile.TemporaryDirectory()
        self.addCleanup(holder.cleanup)
        self.folder = holder.name
        self.roots = os.path.join(self.folder, "roots")
        self.mirror = os.path.join(self.folder, "mirror")
        shutil.copytree(self.whole_mirror, self.mirror)
        self.sources = "".join(f"deb [trusted=yes] copy:{self.mirror}/{suite} ./\n"
                               for suite in SUITES)
        self.write("sources.list", self.sources)
        self.write("apt.conf", f'Dir::Etc::SourceList "{self.folder}/sources.list";\n'
                   'Dir::Etc::SourceParts "/dev/null";\nAcquire::Retries "0";\n'
                   'Acquire::http::Proxy::127.0.0.1 "DIRECT";\n')
        self.clone = self.add_clone("clone", "first-dev")

    def write(self, name, text):
        path = os.path.join(self.folder, name)
        with open(path, "w", encoding="utf-8") as file:
            file.write(text)
        return path

    def add_clone(self, name, *packages):
        """A clone with that list of packages."""
        clone = os.path.join(self.folder, name)
        os.mkdir(clone)
        os.symlink(os.path.join(SOURCE, "cmake"), os.path.join(clone, "cmake"))
        self.write(os.path.join(name, "packages.txt"), "\n".join(packages) + "\n")
        return clone

    def run_shell(self, clone, commands):
        """Runs them behind the functions, as test.sh does."""
        return subprocess.run(
            ["bash", "-euo", "pipefail", "-c",
             f". cmake/setup.sh; . cmake/system-root.sh; {commands}", "test.sh"],
            cwd=clone, stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.STDOUT,
            text=True, check=False,
            env={**os.environ, "CORVID_SYSTEM_ROOTS": self.roots, "LC_ALL": "C",
                 "APT_CONFIG": os.path.join(self.folder, "apt.conf")})

    def make_root(self, clone, machine="arm64", unused_since="14 days ago"):
        """Returns the root's folder."""
        made = self.run_shell(clone, f"roots_unused_since='{unused_since}'; make_root {machine} "
                                     f">&2; echo; root_folder {machine}")
        self.assertEqual(made.returncode, 0, made.stdout)
        return made.stdout.splitlines()[-1]

    def a_moment_later(self):
        """Waits until a file that changes now is newer than all before. Returns a time between, as
        find reads it."""
        border = os.stat(self.write("border", "")).st_ctime_ns
        while os.stat(self.write("probe", "")).st_ctime_ns <= border:
            pass
        return f"@{border // 10**9}.{border % 10**9:09}"

    def test_variables_of_the_script_that_sources_it_stay(self):
        def variables(path, begin):
            with open(os.path.join(SOURCE, path), encoding="utf-8") as file:
                return set(re.findall(rf"{begin}(\w+)\+?=", file.read(), re.MULTILINE))
        own = variables("cmake/system-root.sh", "^")
        self.assertIn("system_roots", own)
        self.assertEqual(own & variables("test.sh", r"^\s*"), set())

    def test_root_has_the_files_of_the_packages(self):
        root = self.make_root(self.clone)
        self.assertTrue(os.path.isfile(os.path.join(root, "usr/bin/g++")))
        self.assertTrue(os.path.isfile(os.path.join(root, "usr/lib/some-machine/liblog.so.0")))
        self.assertEqual(sorted(os.listdir(self.roots)), sorted([os.path.basename(root), "lock"]))

    def assert_made_with_what_there_is(self, missing):
        """It says which list is missing, each time that the root is used, until it was removed."""
        for _ in range(2):
            made = self.run_shell(self.clone, "make_root arm64; echo; root_folder arm64")
            self.assertEqual(made.returncode, 0, made.stdout)
            self.assertIn("The libraries of arm64 may be old", made.stdout)
            self.assertIn(missing, made.stdout)
            root = made.stdout.splitlines()[-1]
            self.assertIn(f"remove {root}.", made.stdout)
            self.assertTrue(os.path.isfile(os.path.join(root, LIBRARY)))
        shutil.rmtree(root)
        shutil.rmtree(self.mirror)
        shutil.copytree(self.whole_mirror, self.mirror)
        self.write("sources.list", self.sources)
        made = self.run_shell(self.clone, "make_root arm64")
        self.assertEqual((made.returncode, made.stdout), (0, "Downloading the libraries of arm64\n"))

    def test_root_without_one_of_the_lists_says_so(self):
        os.remove(os.path.join(self.mirror, "updates", "Packages"))
        self.assert_made_with_what_there_is(f"{self.mirror}/updates/./Packages")

    def test_root_with_a_list_that_is_newer_than_its_mirror_says_says_so(self):
        with open(os.path.join(self.mirror, "updates", "Packages"), "a", encoding="utf-8") as file:
            file.write("\n")
        self.assert_made_with_what_there_is(f"{self.mirror}/updates/./Packages")

    def test_root_without_a_mirror_that_may_come_back_says_so(self):
        # That is no more than a warning to apt.
        with socket.socket() as unheard:
            unheard.bind(("127.0.0.1", 0))
            address = f"http://127.0.0.1:{unheard.getsockname()[1]}/updates"
            self.write("sources.list", self.sources + f"deb [trusted=yes] {address} ./\n")
            self.assert_made_with_what_there_is(address)

    def assert_not_made(self, missing):
        """And the next try makes it when the mirror is whole."""
        made = self.run_shell(self.clone, "make_root arm64")
        self.assertEqual(made.returncode, 1, made.stdout)
        self.assertIn("the packages of arm64 could not be downloaded", made.stdout.splitlines()[-1])
        self.assertIn(missing, made.stdout.splitlines()[-1])
        shutil.rmtree(self.mirror)
        shutil.copytree(self.whole_mirror, self.mirror)
        self.make_root(self.clone)

    def test_root_is_not_made_without_one_of_the_packages(self):
        os.remove(os.path.join(self.mirror, "release", "first-dev.deb"))
        self.assert_not_made(f"{self.mirror}/release/./first-dev.deb")

    def test_root_is_not_made_without_the_list_that_has_a_package(self):
        os.remove(os.path.join(self.mirror, "release", "Packages"))
        self.assert_not_made("first-dev")

    def test_root_that_is_there_is_not_made_again(self):
        root = self.make_root(self.clone)
        shutil.rmtree(self.mirror)
        self.assertEqual(self.make_root(self.clone), root)

    def test_root_of_another_list_is_removed_when_it_is_unused(self):
        other = self.make_root(self.add_clone("other", "first-dev", "second-dev"))
        os.mkdir(other + ".work")
        os.makedirs(os.path.join(self.roots, "removed", "by", "a", "run", "that", "was", "killed"))
        root = self.make_root(self.clone, unused_since=self.a_moment_later())
        self.assertEqual(sorted(os.listdir(self.roots)), sorted([os.path.basename(root), "lock"]))

    def test_half_removed_root_does_not_count_as_one(self):
        other = self.make_root(self.add_clone("other", "first-dev", "second-dev"))
        made = self.run_shell(self.clone, f"""
            rm() {{ [ ! -e "$2" ] || [ "$2" != "$system_roots/removed" ] && command rm "$@"; }}
            roots_unused_since={self.a_moment_later()}
            make_root arm64""")
        self.assertEqual(made.returncode, 1, made.stdout)
        self.assertFalse(os.path.exists(other))
        self.assertEqual(os.listdir(os.path.join(self.roots, "removed")), [os.path.basename(other)])

    def test_root_of_another_list_stays_for_days(self):
        other = self.make_root(self.add_clone("other", "first-dev", "second-dev"))
        # As old as the packages are.
        os.utime(other, (0, 0))
        root = self.make_root(self.clone)
        self.assertNotEqual(root, other)
        self.assertTrue(os.path.isdir(other))

    def test_root_of_another_list_stays_when_it_was_used_since(self):
        other_clone = self.add_clone("other", "first-dev", "second-dev")
        other = self.make_root(other_clone)
        unused_since = self.a_moment_later()
        self.make_root(other_clone)
        self.make_root(self.clone, unused_since=unused_since)
        self.assertTrue(os.path.isdir(other))

    def test_root_of_another_machine_stays(self):
        other = self.make_root(self.clone, "armhf")
        self.write("roots/fresh.tar", "")
        self.make_root(self.clone, unused_since=self.a_moment_later())
        self.assertTrue(os.path.isdir(other))
        self.assertTrue(os.path.isfile(os.path.join(self.roots, "fresh.tar")))

    def test_root_that_was_just_made_stays(self):
        self.assertTrue(os.path.isdir(self.make_root(self.clone, unused_since="tomorrow")))


if __name__ == "__main__":
    unittest.main()
