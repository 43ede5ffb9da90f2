"""The virtual machine in which replays run in the time of the processor instead of the clock's.

QEMU emulates it and counts its instructions, 2 ns each; when the guest only waits, the clock jumps to
the next timer. A snapshot of the booted guest is kept, and every replay begins in it: no boot, and the
same state each time, so that the same trace gives the same commands at the same times.
"""

import contextlib
import fcntl
import hashlib
import json
import os
import shlex
import shutil
import socket
import subprocess
import tempfile
import threading
import time

from corvid_trace import archive
from corvid_trace.errors import TraceError
from corvid_trace.output import Progress
from corvid_trace.programs import SOURCE

QEMU = "qemu-system-x86_64"

# Beside emulation's costs this leaves out what wakes an idle kernel: each wake-up ends a jump of the
# clock. Programs lie at the same addresses each time, or they would be translated anew.
_KERNEL_OPTIONS = ("console=ttyS0 quiet loglevel=4 panic=-1 random.trust_cpu=on no_timer_check "
                   "mitigations=off init_on_alloc=0 apparmor=0 cryptomgr.notests norandmaps "
                   "tsc=reliable nowatchdog idle=halt transparent_hugepage=never")

_MACHINE = ("-machine", "pc", "-accel", "tcg,thread=single", "-icount", "shift=1,sleep=off",
            "-rtc", "clock=vm,base=2026-01-01T00:00:00", "-seed", "1", "-cpu", "qemu64,+rdrand",
            "-m", "256", "-smp", "1", "-nodefaults", "-no-reboot", "-display", "none",
            "-device", "pvpanic", "-action", "panic=pause")

# Booting takes three seconds of a processor, restoring a tenth; on a busy machine many times that.
_PATIENCE = 300.0

# The guest ends a play that takes so much longer than it should, s of its own time.
_OVERTIME = 60

# When the guest's clock begins where the trace does not say, s since 1970.
_SOME_DAY = 1_767_225_600

# Each build of the programs has a snapshot of its own, 100 MB. The latest ones are kept, and those that
# somebody has used within so many seconds.
_KEPT = 3
_IN_USE = 3600


class NoMachine(TraceError):
    """Why replays in virtual time can't run here."""

    def __init__(self, why):
        super().__init__(f"replay in virtual time can't run: {why}; 'corvid-trace replay "
                         "--real-time' replays one trace by the clock, without a virtual machine")


class Qemu:
    """One machine, and its monitor. Use it in a `with`: the machine ends there at the latest."""

    def __init__(self, folder, arguments):
        self.console = os.path.join(folder, "console")
        ours, theirs = socket.socketpair()
        with theirs:
            self._process = subprocess.Popen(
                [QEMU, *_MACHINE, "-serial", f"file:{self.console}",
                 "-chardev", f"socket,id=monitor,fd={theirs.fileno()}",
                 "-mon", "chardev=monitor,mode=control", *arguments],
                pass_fds=[theirs.fileno()], stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL,
                stderr=subprocess.PIPE, start_new_session=True)
        ours.settimeout(_PATIENCE)
        self._socket = ours
        self._monitor = ours.makefile("rw", encoding="utf-8")

    def __enter__(self):
        try:
            self._read()  # the greeting
            self.command("qmp_capabilities")
        except BaseException:
            self.__exit__()
            raise
        return self

    def end(self):
        """Ends it at once, whatever it does; from any thread."""
        self._process.kill()

    def __exit__(self, *_):
        self.end()
        self._process.wait()
        self._process.stderr.close()
        with contextlib.suppress(OSError):
            self._monitor.close()
        self._socket.close()

    def _read(self):
        try:
            line = self._monitor.readline()
        except (TimeoutError, ConnectionError) as error:
            raise NoMachine(f"{QEMU} doesn't answer ({error})") from error
        if not line:
            self._process.kill()
            said = self._process.stderr.read().decode(errors="replace").strip()
            raise NoMachine(f"{QEMU} has ended: {said or 'without a word'}")
        return json.loads(line)

    def command(self, name, **arguments):
        """Does a command of the monitor; what that returns."""
        with contextlib.suppress(OSError):  # it has ended, which the answer says better
            self._monitor.write(json.dumps({"execute": name, "arguments": arguments}) + "\n")
            self._monitor.flush()
        while True:
            answer = self._read()
            if "return" in answer:
                return answer["return"]
            if "error" in answer:
                raise NoMachine(f"{QEMU}: {name}: {answer['error'].get('desc')}")

    def wait_until(self, done, what):
        """Asks `done()` now and then until it says yes."""
        deadline = time.monotonic() + _PATIENCE
        pause = 0.005
        while not done():
            if time.monotonic() > deadline:
                raise NoMachine(f"{what} takes too long; the console's last lines: "
                                f"{_tail(self.console)}")
            time.sleep(pause)
            pause = min(pause * 1.5, 0.1)

    def is_paused(self):
        return self.command("query-status")["status"] == "guest-panicked"

    def wait_for_end(self):
        """Until the guest has ended its machine; the guest's own limit sees to it that it does."""
        self._process.wait()


def _tail(path):
    with contextlib.suppress(OSError), open(path, encoding="utf-8", errors="replace") as file:
        return " | ".join(file.read().splitlines()[-5:]) or "none"
    return "none"


def _lab(command):
    """Runs a line of shell with the lab's recipe of the guest's image; its output."""
    done = subprocess.run(["bash", "-euo", "pipefail", "-c",
                           f". cmake/setup.sh; . lab/image.sh; {command}"],
                          cwd=SOURCE, capture_output=True, text=True, check=False)
    if done.returncode != 0:
        raise NoMachine(f"the guest's kernel: {done.stderr.strip() or done.stdout.strip()}")
    return done.stdout.strip()


class Player:
    """Plays scenarios in virtual time. Any number of threads may play at once."""

    def __init__(self, programs, progress=None):
        """`progress` tells what takes seconds, once after a build."""
        if shutil.which(QEMU) is None:
            raise NoMachine(f"{QEMU} is not installed (Debian's package qemu-system-x86)")
        if not os.path.exists(os.path.join(programs.folder, "bin", archive.GUEST)):
            programs.find(archive.DAEMON)
            raise NoMachine(f"{archive.GUEST} is not built: the guest is a PC, on amd64 only")
        self._progress = progress or Progress()
        self._files = archive.guest_files(programs)
        image = _lab("image_folder")
        self._kernel = os.path.join(image, "vmlinux")
        if not os.path.exists(self._kernel):
            self._progress.show("downloading the guest's kernel")
            _lab("build_image")
        self._folder = os.path.join(os.path.dirname(image), "replay-" + self._fingerprint())
        self._machines = set()
        self._lock = threading.Lock()
        self._stopped = False
        self._make_snapshot()

    def stop(self):
        """Ends all plays, which then fail; no other begins."""
        with self._lock:
            self._stopped = True
            for machine in self._machines:
                machine.end()

    @contextlib.contextmanager
    def _running(self, qemu):
        """For the time of a play: stop() finds its machine."""
        with self._lock:
            if self._stopped:
                raise TraceError("the replay was stopped")
            self._machines.add(qemu)
        try:
            yield
        finally:
            with self._lock:
                self._machines.discard(qemu)

    def _fingerprint(self):
        """Changes with everything that the snapshot holds."""
        version = subprocess.run([QEMU, "--version"], capture_output=True, check=False).stdout
        digest = hashlib.sha256(version)
        digest.update(repr((_MACHINE, _KERNEL_OPTIONS, archive.WARM_UP, self._kernel)).encode())
        for path, file in self._files.items():
            digest.update(path.encode())
            with open(file, "rb") as content:
                digest.update(hashlib.sha256(content.read()).digest())
        return digest.hexdigest()[:16]

    def _make_snapshot(self):
        os.makedirs(self._folder, exist_ok=True)
        with open(os.path.join(self._folder, "lock"), "w", encoding="utf-8") as lock:
            fcntl.flock(lock, fcntl.LOCK_EX)
            if not os.path.exists(self._snapshot):
                self._progress.show("making the guest's snapshot")
                self._boot()
                self._progress.clear()
        os.utime(self._folder)
        self._remove_old()

    @property
    def _snapshot(self):
        return os.path.join(self._folder, "snapshot")

    @property
    def _disk(self):
        return os.path.join(self._folder, "disk")

    def _boot(self):
        new = os.path.join(self._folder, "new")
        with open(self._disk, "wb") as file:
            file.write(archive.guest_archive(self._files))
        with tempfile.TemporaryDirectory(prefix="corvid-replay-") as work:
            with self._qemu(work, "", _SOME_DAY, 1) as qemu:
                qemu.wait_until(qemu.is_paused, "the guest's start")
                qemu.command("migrate", uri=f"exec:cat >{shlex.quote(new)}")
                states = ("completed", "failed", "cancelled")
                qemu.wait_until(lambda: qemu.command("query-migrate").get("status") in states,
                                "the snapshot")
                if qemu.command("query-migrate")["status"] != "completed":
                    raise NoMachine("there is no snapshot of the guest")
        os.replace(new, self._snapshot)

    def _remove_old(self):
        cache = os.path.dirname(self._folder)
        folders = [os.path.join(cache, name) for name in os.listdir(cache)
                   if name.startswith("replay-")]
        ages = {}
        for folder in folders:
            with contextlib.suppress(FileNotFoundError):  # another replay removes it too
                ages[folder] = time.time() - os.stat(folder).st_mtime
        for folder in sorted(ages, key=ages.get)[_KEPT:]:
            if ages[folder] > _IN_USE:
                shutil.rmtree(folder, ignore_errors=True)

    def _qemu(self, work, scenario, wall, limit, *more):
        configuration = {"scenario": scenario, "options": f"wall {wall} limit {limit}\n"}
        arguments = []
        for name, text in configuration.items():
            path = os.path.join(work, name)
            with open(path, "w", encoding="utf-8") as file:
                file.write(text)
            # QEMU takes a comma for the next option unless it is doubled.
            arguments += ["-fw_cfg", f"name=opt/corvid/{name},file={path.replace(',', ',,')}"]
        return Qemu(work, ["-kernel", self._kernel, "-initrd", self._disk,
                           "-append", _KERNEL_OPTIONS, *arguments,
                           "-debugcon", f"file:{os.path.join(work, 'output')}", *more])

    def play(self, scenario, duration, start_wall=None):
        """Plays a scenario of so many seconds; the lines of the simulator's records, and of errors.

        Records are JSON; returns (records, errors, exit status of the simulator).
        """
        wall = int(start_wall if start_wall is not None else _SOME_DAY)
        os.utime(self._folder)
        with tempfile.TemporaryDirectory(prefix="corvid-replay-") as work:
            with self._qemu(work, scenario, wall, int(duration) + _OVERTIME,
                            "-incoming", f"exec:cat {shlex.quote(self._snapshot)}") as qemu, \
                    self._running(qemu):
                qemu.wait_until(qemu.is_paused, "restoring the guest")
                qemu.command("cont")
                qemu.wait_for_end()
            with open(os.path.join(work, "output"), encoding="utf-8", errors="replace") as file:
                lines = file.read().splitlines()
            if not lines or not lines[-1].startswith("end "):
                raise TraceError("the virtual machine has ended in the middle of the play; its "
                                 f"console's last lines: {_tail(os.path.join(work, 'console'))}")
        errors = [line[2:] for line in lines if line.startswith("! ")]
        return ([line for line in lines[:-1] if not line.startswith("! ")], errors,
                int(lines[-1].split()[1]))
