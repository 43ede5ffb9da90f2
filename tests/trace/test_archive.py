#!/usr/bin/env python3
"""Tests of the archive that the replaying machine boots."""

import shutil
import subprocess
import sys
import unittest

from corvid_trace.archive import Archive, libraries_of
from support import FilesTest


class ArchiveTest(FilesTest):

    @unittest.skipUnless(shutil.which("cpio"), "cpio is not installed")
    def test_cpio_unpacks_what_was_packed(self):
        archive = Archive()
        archive.folder("dev")
        archive.file("bin/program", b"#!/bin/sh\necho hello\n", executable=True)
        archive.file("bin/data", bytes(range(256)) * 3)
        subprocess.run(["cpio", "-idm", "--quiet"], input=archive.bytes(), cwd=self.folder,
                       check=True)
        done = subprocess.run([self.path("bin/program")], capture_output=True, check=True)
        self.assertEqual(done.stdout, b"hello\n")
        with open(self.path("bin/data"), "rb") as file:
            self.assertEqual(file.read(), bytes(range(256)) * 3)

    def test_folder_is_packed_once_and_before_what_is_in_it(self):
        archive = Archive()
        archive.file("a/b/one", b"")
        archive.file("a/b/two", b"")
        # A name stands behind 13 numbers of 8 digits each.
        names = [entry[13 * 8:].split(b"\0")[0] for entry in archive.bytes().split(b"070701")[1:]]
        self.assertEqual(names, [b"a", b"a/b", b"a/b/one", b"a/b/two", b"TRAILER!!!"])

    def test_libraries_of_a_program_include_its_loader(self):
        names = [path.rsplit("/", 1)[-1] for path in libraries_of([sys.executable])]
        self.assertIn("libc.so.6", names)
        self.assertTrue(any(name.startswith("ld-linux") for name in names), names)


if __name__ == "__main__":
    unittest.main()
