"""Plays scenarios on the simulated headset by the clock of this machine."""

import os
import signal
import subprocess
import tempfile
import time

from corvid_trace.programs import DAEMON, SIMULATOR


class ClockPlayer:
    """As machine.Player, in real time: a play takes as long as its scenario."""

    def __init__(self, programs, progress=None):
        self._simulator = programs.find(SIMULATOR)
        self._daemon = programs.find(DAEMON)
        self._progress = progress

    def play(self, scenario, duration, start_wall=None):
        """Plays a scenario of so many seconds; (records, errors, exit status of the simulator)."""
        del start_wall  # the clock is this machine's
        # Short: the paths of its sockets may be 107 bytes long.
        with tempfile.TemporaryDirectory(prefix="corvid-", dir="/tmp") as work:
            path = os.path.join(work, "scenario")
            with open(path, "w", encoding="utf-8") as file:
                file.write(scenario)
            record = os.path.join(work, "record")
            with open(os.path.join(work, "errors"), "w+", encoding="utf-8") as errors:
                process = subprocess.Popen(
                    [self._simulator, "--root", os.path.join(work, "headset"), "--daemon",
                     self._daemon, "--record", record, "--no-dump", "--plain", path],
                    stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL, stderr=errors)
                status = self._wait(process, duration)
                errors.seek(0)
                said = errors.read().splitlines()
            lines = []
            if os.path.exists(record):
                # Who died while writing may leave half a character.
                with open(record, encoding="utf-8", errors="replace") as file:
                    lines = file.read().splitlines()
        return lines, said, status

    def _wait(self, process, duration):
        begun = time.monotonic()
        try:
            while True:
                try:
                    return process.wait(timeout=1)
                except subprocess.TimeoutExpired:
                    if self._progress:
                        self._progress.show(f"{time.monotonic() - begun:.0f} of {duration:.0f} s")
        except BaseException:
            process.send_signal(signal.SIGTERM)
            process.wait()
            raise
        finally:
            if self._progress:
                self._progress.clear()
