"""What the tests of corvid-trace share. Run one by hand with PYTHONPATH=trace."""

import contextlib
import io
import json
import os
import pty
import subprocess
import sys
import tempfile
import unittest

from corvid_trace import cli

SOURCE = os.path.dirname(os.path.dirname(os.path.dirname(os.path.realpath(__file__))))
COMMAND = os.path.join(SOURCE, "trace", "corvid-trace")

HEADER = {"source": "import", "made_by": "a test", "label": "walk", "start_wall": None,
          "interfaces": {"sta": "wlan0"}, "properties": {}}

# A header's whole line, of a walk whose daemon controls the station's power.
CONTROLLED = {**HEADER, "type": "header", "format": "corvid-trace", "version": 1,
              "properties": {"persist.vendor.wifi.txpower.enable.sta": "true"}}


def sample(t, rssi=-50, frequency=5180, **more):
    """A sample of a connected station."""
    return {"type": "sample", "t": t, "p2p": None, **more,
            "sta": {"frequency_mhz": frequency, "rssi_dbm": rssi, "bandwidth_mhz": 80}}


def read_terminal(outside):
    """What was written to a terminal, until nobody has its other end any more."""
    text = b""
    with contextlib.suppress(OSError):  # is how that end shows
        while chunk := os.read(outside, 4096):
            text += chunk
    return text.decode()


class FilesTest(unittest.TestCase):
    """A test with a folder of its own."""

    def setUp(self):
        holder = tempfile.TemporaryDirectory(prefix="corvid-trace-")
        self.addCleanup(holder.cleanup)
        self.folder = holder.name

    def path(self, name):
        return os.path.join(self.folder, name)

    def write(self, name, content):
        """A file with these bytes, this text or, one a line, these JSON objects; its path."""
        if isinstance(content, list):
            content = "".join(json.dumps(line) + "\n" for line in content)
        if isinstance(content, str):
            content = content.encode()
        with open(self.path(name), "wb") as file:
            file.write(content)
        return self.path(name)

    def read(self, name):
        with open(self.path(name), encoding="utf-8") as file:
            return file.read()

    def run_command(self, *words, **options):
        """Runs `corvid-trace WORDS` in the test's folder; stdout and stderr are texts."""
        return subprocess.run([sys.executable, "-B", COMMAND, *words], cwd=self.folder, text=True,
                              capture_output=True, check=False, **options)

    def run_on_terminal(self, *words, **environment):
        """What `corvid-trace WORDS` writes when its standard output is a terminal."""
        outside, inside = pty.openpty()
        self.addCleanup(os.close, outside)
        clean = {name: value for name, value in os.environ.items() if name != "NO_COLOR"}
        with subprocess.Popen([sys.executable, "-B", COMMAND, *words], cwd=self.folder,
                              stdout=inside, env={**clean, **environment}) as process:
            os.close(inside)
            text = read_terminal(outside)
            self.assertEqual(process.wait(), 0)
        return text

    def run_here(self, *words):
        """Runs `corvid-trace WORDS` in this process, which is quicker, but not in the folder."""
        out, error = io.StringIO(), io.StringIO()
        with contextlib.redirect_stdout(out), contextlib.redirect_stderr(error):
            try:
                status = cli.main(list(words))
            except SystemExit as end:
                status = end.code
        return subprocess.CompletedProcess(words, status, out.getvalue(), error.getvalue())

    def assert_refused(self, done, status, *texts):
        """The command ended with `status`, and its errors name all of `texts`."""
        self.assertEqual(done.returncode, status, done.stderr)
        for text in texts:
            self.assertIn(text, done.stderr)
        self.assertNotIn("Traceback", done.stderr)
