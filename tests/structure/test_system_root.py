#!/usr/bin/env python3
"""Tests of cmake/system-root.sh: apt downloads from a mirror in a folder, with packages of a file each."""

import hashlib
import os
import shutil
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
        with open(os.path.join(cls.whole_mirror, "release", "Packages"), "wb") as packages:
            for name, file in (("g++", "usr/bin/g++"), ("first-dev", LIBRARY),
                               ("second-dev", "usr/include/second.h")):
                packages.write(cls.add_package(holder.name, name, file))
        with open(os.path.join(cls.whole_mirror, "updates", "Packages"), "w", encoding="utf-8"):
            pass
        for suite in SUITES:
            with open(os.path.join(cls.whole_mirror, suite, "Packages"), "rb") as packages:
                text = packages.read()
            with open(os.path.join(cls.whole_mirror, suite, "Release"), "w",
                      encoding="utf-8") as release:
                release.write(f"SHA256:\n {hashlib.sha256(text).hexdigest()} {len(text)} Packages\n")

    @classmethod
    def add_package(cls, folder, name, file):
        """Puts a package with that file into the mirror. Returns its entry in the list."""
        tree = os.path.join(folder, name)
        os.makedirs(os.path.join(tree, "DEBIAN"))
        control = (f"Package: {name}\nVersion: 1\nArchitecture: all\n"
                   "Maintainer: none <none@localhost>\nDescription: one file\n")
        with open(os.path.join(tree, "DEBIAN", "control"), "w", encoding="utf-8") as out:
            out.write(control)
        os.makedirs(os.path.dirname(os.path.join(tree, file)))
        with open(os.path.join(tree, file), "w", encoding="utf-8") as out:
            out.write(name)
        path = os.path.join(cls.whole_mirror, "release", name + ".deb")
        subprocess.run(["dpkg-deb", "--root-owner-group", "-Znone", "-b", tree, path], check=True,
                       stdout=subprocess.DEVNULL)
        with open(path, "rb") as deb:
            content = deb.read()
        return (f"{control}Filename: ./{name}.deb\nSize: {len(content)}\n"
                f"SHA256: {hashlib.sha256(content).hexdigest()}\n\n").encode()

    def setUp(self):
        holder = tempfile.TemporaryDirectory()
        self.addCleanup(holder.cleanup)
        self.folder = holder.name
        self.roots = os.path.join(self.folder, "roots")
        self.mirror = os.path.join(self.folder, "mirror")
        shutil.copytree(self.whole_mirror, self.mirror)
        self.write("sources.list", "".join(
            f"deb [trusted=yes] copy:{self.mirror}/{suite} ./\n" for suite in SUITES))
        self.write("apt.conf", f'Dir::Etc::SourceList "{self.folder}/sources.list";\n'
                   'Dir::Etc::SourceParts "/dev/null";\n')
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

    def test_root_has_the_files_of_the_packages(self):
        root = self.make_root(self.clone)
        self.assertTrue(os.path.isfile(os.path.join(root, "usr/bin/g++")))
        self.assertTrue(os.path.isfile(os.path.join(root, "usr/lib/some-machine/liblog.so.0")))
        self.assertEqual(sorted(os.listdir(self.roots)), sorted([os.path.basename(root), "lock"]))

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
