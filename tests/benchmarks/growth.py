#!/usr/bin/env python3
"""How the daemon's cost grows: measures it, and draws it into docs/growth/.

Each plot is a file of figures (NAME.dat) and a picture of them (NAME.png). Costs are processor time of
the daemon, all threads and its part of the kernel included, and each is the lowest of several rounds:
what else the machine does only adds. Needs everything built, and gnuplot-nox to draw; all of it takes
about six minutes. "soak" is not measured here: it reads what `lab/lab.sh soak 24h` has written.
"""

import argparse
import contextlib
import json
import os
import re
import selectors
import shutil
import socket
import subprocess
import sys
import tempfile
import threading
import time

SOURCE = os.path.dirname(os.path.dirname(os.path.dirname(os.path.realpath(__file__))))
BUILD = os.environ.get("CORVID_BUILD", os.path.join(SOURCE, "build"))
DAEMON = "vendor.corvid.hardware.wifi@1.0-service"

# All that are sent to the driver, but for per-chain limits in place of the power's steps.
FEATURES = (
    "cmd.cs.p2p.ecsa", "cmd.cs.p2p.corvid", "cmd.elna.bypass.mode", "cmd.noa.p2p", "cmd.mcc.quota",
    "cmd.mcc.p2p.increase.bw", "devparams.enable", "frequency.block.enable", "mipiclock.enable",
    "scs.enable", "txchain.enable.p2p", "txchain.qualcomm", "txpower.enable.sta",
    "txpower.enable.p2p", "txpower.enable.handtracking", "telemetry.enable",
    "powerjump.detect.enable", "im3.mitigation.band2g")

CONNECTED = "<3>CTRL-EVENT-CONNECTED - Connection to 02:00:00:00:01:00 completed [id=0 id_str=]"
BSS_LINE = "<3>CTRL-EVENT-BSS-ADDED 123 00:11:22:33:44:55"
SCAN_RESULTS = "<3>CTRL-EVENT-SCAN-RESULTS "
REGDOM = "<3>CTRL-EVENT-REGDOM-CHANGE init=USER type=COUNTRY alpha2=%s"


class Failure(Exception):
    """What could not be measured, and why."""


class Supplicant:
    """The station's control socket: answers all that the daemon asks, on a thread of its own."""

    def __init__(self, path):
        self._socket = socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM)
        self._socket.bind(path)
        self._monitor = None
        self._attached = threading.Event()
        threading.Thread(target=self._serve, daemon=True).start()

    def _serve(self):
        while True:
            request, sender = self._socket.recvfrom(4096)
            if request == b"ATTACH":
                self._monitor = sender
            answer = b"OK\n"
            if request == b"SIGNAL_POLL":
                answer = b"RSSI=-50\nLINKSPEED=780\nNOISE=9999\nFREQUENCY=5180\n"
            with contextlib.suppress(OSError):  # the daemon has ended
                self._socket.sendto(answer, sender)
            if request == b"ATTACH":
                self._attached.set()

    def wait(self):
        if not self._attached.wait(60):
            raise Failure("the daemon did not attach to the supplicant's socket")

    def send(self, event):
        """Waits while the daemon's queue is full."""
        self._socket.sendto(event.encode(), self._monitor)


class Headset(contextlib.ExitStack):
    """A folder for the device's root with a supplicant, a statistics service and the daemon."""

    def __init__(self):
        super().__init__()
        self.root = tempfile.mkdtemp(prefix="corvid-growth-")
        self.callback(shutil.rmtree, self.root)
        try:
            self._start_all()
        except BaseException:
            self.close()
            raise

    def _start_all(self):
        for folder in ("dev/hwbinder", "dev/__properties__", "data/vendor/wifi/wpa/sockets"):
            os.makedirs(os.path.join(self.root, folder))
        for feature in FEATURES:
            self.set_property("persist.vendor.wifi." + feature, "true")
        self.supplicant = Supplicant(os.path.join(self.root, "data/vendor/wifi/wpa/sockets/wlan0"))
        statistics_service = self.start(["corvid-statsd"], stdout=subprocess.PIPE)
        if statistics_service.stdout.readline() != b"ready\n":
            raise Failure("corvid-statsd did not start")
        self.log = os.path.join(self.root, "log")
        with open(self.log, "wb") as log:
            self.daemon = self.start([DAEMON], stderr=log)
        self.supplicant.wait()

    def path(self, *names):
        return os.path.join(self.root, *names)

    def set_property(self, name, value):
        new = self.path("dev", ".new")
        with open(new, "w", encoding="ascii") as file:
            file.write(value)
        os.rename(new, self.path("dev", "__properties__", name))

    def start(self, command, **options):
        program = os.path.join(BUILD, "bin", command[0])
        if not os.path.exists(program):
            raise Failure(f"{program} is not built")
        process = subprocess.Popen([program, *command[1:]], stdin=subprocess.DEVNULL,
                                   env={**os.environ, "CORVID_WIFI_ROOT": self.root}, **options)
        self.callback(process.wait)
        self.callback(process.kill)
        return process

    def processor(self):
        """Seconds that the daemon's threads have used, those that have ended too."""
        # The clock of another process, as clock_getcpuclockid makes it.
        return time.clock_gettime((~self.daemon.pid << 3) | 2)

    def log_size(self):
        return os.path.getsize(self.log)


class Clients:
    """Registered clients of the service, a process each."""

    def __init__(self, headset):
        self._headset = headset
        self._selector = headset.enter_context(selectors.DefaultSelector())
        self._outputs = []

    def grow_to(self, count):
        while len(self._outputs) < count:
            client = self._headset.start(["corvid-wifi", "monitor"], stdout=subprocess.PIPE)
            os.set_blocking(client.stdout.fileno(), False)
            self._selector.register(client.stdout, selectors.EVENT_READ)
            self._outputs.append(client.stdout)
            self.wait_for_lines([client.stdout])

    def wait_for_lines(self, outputs=None):
        """Until each has written one more line."""
        waiting = set(outputs or self._outputs)
        while waiting:
            ready = self._selector.select(60)
            if not ready:
                raise Failure(f"{len(waiting)} clients were not called back")
            for key, _ in ready:
                if key.fileobj in waiting and key.fileobj.read(4096):
                    waiting.discard(key.fileobj)


def benchmark(name, short):
    """[(argument, ns of a processor)] of a benchmark with a range."""
    program = os.path.join(BUILD, "bin", "growth_benchmarks")
    if not os.path.exists(program):
        raise Failure(f"{program} is not built")
    repetitions, least = (1, "0.001") if short else (20, "0.02")
    output = subprocess.run(
        [program, f"--benchmark_filter=^{name}/", "--benchmark_format=json",
         f"--benchmark_min_time={least}", f"--benchmark_repetitions={repetitions}"],
        stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, check=True).stdout
    times = {}
    for run in json.loads(output)["benchmarks"]:
        if run["run_type"] == "iteration":
            times.setdefault(int(run["name"].split("/")[1]), []).append(run["cpu_time"])
    return [(argument, min(values)) for argument, values in times.items()]


def subscribers(short):
    yield from benchmark("subscribers", short)


def interfaces(short):
    for count, time_ns in benchmark("interfaces", short):
        yield count, time_ns / 1000


_CALLBACKS = 10  # of each client, in a round


def clients(short):
    counts, rounds = ((1, 2), 1) if short else ((1, 2, 5, 10, 20, 50, 100, 150, 200), 20)
    with Headset() as headset:
        registered = Clients(headset)
        for count in counts:
            registered.grow_to(count)
            costs = []
            for _ in range(rounds):
                start = headset.processor()
                for number in range(_CALLBACKS):
                    headset.supplicant.send(REGDOM % ("US", "CA")[number % 2])
                    registered.wait_for_lines()
                time.sleep(0.05)  # a client writes its line before it answers the daemon
                costs.append(headset.processor() - start)
            yield count, min(costs) / _CALLBACKS * 1e6


def paced(send, rate, share, seconds):
    """Sends events, `share` of them such as a manager waits for; returns events a second."""
    start = time.monotonic()
    sent = 0
    matter = 0
    while (now := time.monotonic() - start) < seconds:
        due = int(now * rate) + 1
        # A queue of the daemon's that is full makes this late; it does not catch up in one go.
        for _ in range(min(due - sent, 1000)):
            sent += 1
            if int(sent * share) > matter:
                matter += 1
                send(SCAN_RESULTS)
            else:
                send(BSS_LINE)
        pause = (sent + 1) / rate - (time.monotonic() - start)
        if pause > 0:
            time.sleep(min(max(pause, 0.001), seconds))
    return sent / (time.monotonic() - start)


SHARES = (0, 1, 10, 50, 100)


def events(short):
    """The events a second that were reached, and percent of a processor, for each share."""
    rates = (1000,) if short else (1, 10, 100, 1000, 10000, 100000)
    with Headset() as headset:

        def one_round(rate, share, seconds):
            start, begin = headset.processor(), time.monotonic()
            reached = paced(headset.supplicant.send, rate, share / 100, seconds)
            return reached, 100 * (headset.processor() - start) / (time.monotonic() - begin)

        for rate in rates:
            rounds, seconds = (1, 0.05) if short else (3, 4) if rate == 1 else (5, 1)
            row = []
            for share in SHARES:
                # What it costs and not what was reached: a busy machine sends less.
                row += min((one_round(rate, share, seconds) for _ in range(rounds)),
                           key=lambda result: result[1] / result[0])
            yield (rate, *row)


LEVELS = "VDIWES"


def levels(short):
    """For each level: processor time of a connection with every feature on, and bytes of log."""
    rounds, connections = (1, 2) if short else (8, 8)
    with Headset() as headset:
        for number, level in enumerate(LEVELS):
            headset.set_property("log.tag.CorvidWifi", level)
            time.sleep(1.5)  # the daemon looks once a second
            size = headset.log_size()
            costs = []
            for _ in range(rounds):
                start = headset.processor()
                for _ in range(connections):
                    headset.supplicant.send(CONNECTED)
                    time.sleep(0.1)  # its threads come to rest
                costs.append(headset.processor() - start)
            yield (number, min(costs) * 1e6 / connections,
                   (headset.log_size() - size) / rounds / connections, level)


MEASUREMENT = re.compile(r"after (\d+) min: (\d+) descriptors, (\d+) threads, (\d+) kB, "
                         r"(\d+) bytes in use,")


def soak(_short):
    """Hours, descriptors, threads, anonymous kB and bytes in use at the end of each hour."""
    path = os.path.join(BUILD, "lab-runs", "soak", "output.log")
    try:
        with open(path, encoding="utf-8") as file:
            found = MEASUREMENT.findall(file.read())
    except FileNotFoundError as error:
        raise Failure(f"there is no {path}: `lab/lab.sh soak 24h` writes it") from error
    if not found:
        raise Failure(f"{path} has no measurement")
    for minutes, descriptors, threads, memory, in_use in found:
        yield int(minutes) / 60, int(descriptors), int(threads), int(memory), int(in_use)


class Plot:
    """What is measured, and gnuplot's words for it."""

    def __init__(self, measure, columns, script):
        self.measure = measure
        self.columns = columns
        self.script = script


PLOTS = {
    "subscribers": Plot(
        subscribers, "subscribers, ns of a trigger",
        'set xlabel "subscribers"; set ylabel "ns of a processor, a trigger"; '
        'set xrange [0:64]; plot DATA using 1:2 with linespoints notitle'),
    "clients": Plot(
        clients, "registered clients, us of the daemon for a callback to all of them",
        'set xlabel "registered clients"; set ylabel "us of a processor, an event"; '
        'plot DATA using 1:2 with linespoints notitle'),
    "events": Plot(
        events, "events a second asked for; for each share of %s %% that matter: events a second "
        "reached, %% of a processor" % ", ".join(map(str, SHARES)),
        'set logscale xy; set xlabel "events a second"; set ylabel "% of a processor"; '
        'set key top left; set rmargin 5; plot ' + ", ".join(
            f'DATA using {2 * number + 2}:{2 * number + 3} with linespoints title "{share} % matter"'
            for number, share in enumerate(SHARES))),
    "interfaces": Plot(
        interfaces, "interfaces in the kernel's dump, us of the client for finding the last",
        'set xlabel "interfaces in the dump"; set ylabel "us of a processor, a look-up"; '
        'plot DATA using 1:2 with linespoints notitle'),
    "levels": Plot(
        levels, "place, us of the daemon for a connection, bytes of log for it, level",
        'set xlabel "log level"; set ylabel "us of a processor, a connection"; set y2tics; '
        'set y2label "bytes of log"; set ytics nomirror; set yrange [0:]; set y2range [0:]; '
        'set xrange [-0.5:5.5]; set key bottom left; plot DATA using 1:2:xtic(4) with linespoints title "processor", '
        'DATA using 1:3 axes x1y2 with linespoints title "log"'),
    "soak": Plot(
        soak, "hours, descriptors, threads, kB of anonymous memory, bytes that are allocated",
        'set xlabel "hours"; set ylabel "kB"; set yrange [0:]; set y2range [0:40]; '
        'set y2tics; set ytics nomirror; set key bottom right; '
        'plot DATA using 1:4 with linespoints title "anonymous memory", '
        'DATA using 1:($5/1024) with linespoints title "allocated", '
        'DATA using 1:2 axes x1y2 with lines title "descriptors (right)", '
        'DATA using 1:3 axes x1y2 with lines title "threads (right)"'),
}


def text_of(value):
    return f"{value:.4g}" if isinstance(value, float) and value < 1000 else (
        f"{value:.0f}" if isinstance(value, float) else str(value))


def write(path, plot, short):
    with open(path + ".new", "w", encoding="utf-8") as file:
        print(f"# {plot.columns}", file=file)
        for row in plot.measure(short):
            print(*map(text_of, row), file=file, flush=True)
    os.rename(path + ".new", path)


def draw(data, picture, script):
    subprocess.run(
        ["gnuplot", "-e", 'set terminal pngcairo size 560,320 font "sans,10" noenhanced'
         f'; set output "{picture}"; set grid; DATA="{data}"; {script}'], check=True)


def main():
    parser = argparse.ArgumentParser(description=__doc__,
                                     formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("names", nargs="*", metavar="NAME", help=", ".join(PLOTS))
    parser.add_argument("--folder", default=os.path.join(SOURCE, "docs", "growth"),
                        help="where figures and pictures go (default: docs/growth)")
    parser.add_argument("--draw-only", action="store_true", help="the figures that are there")
    parser.add_argument("--smoke", action="store_true",
                        help="a moment of each, no picture: whether it still runs")
    arguments = parser.parse_args()
    for name in arguments.names:
        if name not in PLOTS:
            parser.error(f"there is no plot '{name}'; plots: {', '.join(PLOTS)}")
    if not arguments.smoke and not shutil.which("gnuplot"):
        print("growth.py: there is no gnuplot: it is in the package gnuplot-nox", file=sys.stderr)
        return 2
    os.makedirs(arguments.folder, exist_ok=True)
    for name in arguments.names or PLOTS:
        data = os.path.join(arguments.folder, name + ".dat")
        try:
            if not arguments.draw_only:
                write(data, PLOTS[name], arguments.smoke)
            if not arguments.smoke:
                draw(data, os.path.join(arguments.folder, name + ".png"), PLOTS[name].script)
        except Failure as error:
            print(f"growth.py: {name}: {error}", file=sys.stderr)
            return 1
        print(data)
    return 0


if __name__ == "__main__":
    sys.exit(main())
