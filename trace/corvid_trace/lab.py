"""Plays scenarios in the lab: on the kernel's Wi-Fi stack, a real supplicant and access point.

The scenario becomes a case of the lab (lab/README.md). Its clock begins when the station has connected
first, which on a real stack takes its time; later connections are begun as much earlier as the first
one took. What the lab has no word for is left away, and said.
"""

import calendar
import json
import os
import re
import shlex
import shutil
import subprocess
import tempfile
import time

from corvid_trace.errors import TraceError
from corvid_trace.machine import QEMU
from corvid_trace.programs import SOURCE
from corvid_trace.results import PROPERTY_PREFIX

# Where the lab's access point may be without listening for radar first, MHz.
_CHANNELS = (range(2412, 2463, 5), range(5180, 5241, 20), range(5745, 5826, 20))

# Where it would have to listen for a minute, and what stands in for it: (channels, first stand-in, MHz).
_RADAR_CHANNELS = ((range(5260, 5321, 20), 5180), (range(5500, 5581, 20), 5745),
                   (range(5600, 5681, 20), 5745), (range(5700, 5721, 20), 5745))

# What the simulated radio takes, dBm.
_SIGNALS = range(-100, 0)

# An access point that moves to another frequency is down so long before, ms.
_ACCESS_POINT_START = 1500

# The guest ends a case that takes so much longer than it should, s.
_OVERTIME = 300

# What the daemon asks; the rest of the supplicant's requests are the case's own.
_OF_THE_DAEMON = ("DRIVER ", "SIGNAL_POLL", "CORVID_")

_WORDS = """\
# a replayed walk
# limit: {limit} s

# Milliseconds since the machine's start, in $now.
read_clock() {{
    local up rest
    # In hundredths of a second, and never below one second: no zero in front.
    read -r up rest </proc/uptime
    now=$((${{up%.*}}${{up#*.}} * 10))
}}

# wait_until MS: on the play's clock.
wait_until() {{
    read_clock
    [ $((begin + $1 - now)) -le 0 ] || usleep $(((begin + $1 - now) * 1000))
}}

# move_access_point MHZ
move_access_point() {{
    [ "${{place:-}}" != "$1" ] || return 0
    [ -z "${{place:-}}" ] || stop_access_point
    start_access_point "$1" 20
    # In whose power the signal is counted.
    iw dev wlan1 set txpower fixed 0
    place=$1
}}

# hear DBM: the signal, without starting a program.
hear() {{ printf '0x%x' "$1" >/sys/kernel/debug/ieee80211/phy1/hwsim/rx_rssi; }}

# first_link MS MHZ DBM: the play's clock is MS when the station has connected.
first_link() {{
    local asked
    move_access_point "$2"
    hear "$3"
    read_clock
    asked=$now
    connect
    expect sta "CTRL-EVENT-CONNECTED"
    read_clock
    begin=$((now - $1))
    latency=$((now - asked))
}}

# next_link MS MHZ DBM: as nearly as can be at MS.
next_link() {{
    if [ "$place" != "$2" ]; then
        wait_until $(($1 - latency - {start}))
        move_access_point "$2"
    fi
    wait_until $(($1 - latency))
    hear "$3"
    connect
}}

# switch_channel MS MHZ
switch_channel() {{
    wait_until "$1"
    hostapd_cli -p /tmp/access-point -i wlan1 chan_switch 5 "$2" >/dev/null
    frequency=$2
    place=$2
}}

# group_starts MS MHZ: on the link's channel, or nowhere: the radio has one.
group_starts() {{
    wait_until "$1"
    wpa p2p0 p2p_group_add freq="$2" >/dev/null
}}

group_stops() {{
    wait_until "$1"
    wpa p2p0 p2p_group_remove p2p0 >/dev/null
}}

stop_daemon() {{
    kill "$daemon"
    wait "$daemon" 2>/dev/null
}}

read_clock
begin=$now
"""

_END = """\
wait_until {end}
read_clock
echo "$begin $(($(date +%s) * 1000 - now))" >/lab/log/play.log
"""


class Case:
    """A case made of a scenario's lines."""

    def __init__(self, scenario):
        self.left_away = []
        self._lines = []
        self._linked_once = False
        self._end = 0
        self._handlers = {"property": self._set, "unset": self._unset, "supplicant": self._run_supplicant,
                          "connect": self._connect, "disconnect": self._disconnect,
                          "rssi": self._hear, "channel": self._switch, "daemon": self._run_daemon,
                          "p2p start": self._start_group, "p2p stop": self._stop_group,
                          "end": self._end_here}
        for line in scenario.splitlines():
            words = shlex.split(line)
            at = None
            if words[0] == "at":
                at = int(words[1][:-len("ms")])
                words = words[2:]
            handler = self._handlers.get(words[0]) or self._handlers.get(" ".join(words[:2]))
            if handler is None:
                self.left_away.append(" ".join(words))
            else:
                handler(at, words)

    def text(self):
        return (_WORDS.format(limit=self._end // 1000 + _OVERTIME, start=_ACCESS_POINT_START) +
                "\n".join(self._lines) + "\n" + _END.format(end=self._end))

    def _add(self, at, *lines):
        self._lines += [f"wait_until {at}", *lines]

    # In front of all, or before the daemon starts again at the same time.

    def _set(self, _, words):
        name = words[1][len(PROPERTY_PREFIX):]
        self._lines.append(f"property {name} {shlex.quote(words[2])}")

    def _unset(self, _, words):
        self._lines.append(f"rm -f /dev/__properties__/{shlex.quote(words[1])}")

    def _run_supplicant(self, at, words):
        if at is None:
            self._lines += ["start_daemon", "start_supplicant"]
        else:
            self._add(at, "terminate_supplicant" if words[1] == "terminate" else "start_supplicant")

    def _connect(self, at, words):
        options = _options(words)
        word = "next_link" if self._linked_once else "first_link"
        self._linked_once = True
        self._lines.append(f"{word} {at} {_frequency(options)} {_signal(options.get('rssi', -50))}")

    def _disconnect(self, at, _):
        self._add(at, "wpa wlan0 disconnect >/dev/null")

    def _hear(self, at, words):
        self._add(at, f"hear {_signal(words[1])}")

    def _switch(self, at, words):
        self._lines.append(f"switch_channel {at} {_frequency(_options(words))}")

    def _start_group(self, at, words):
        self._lines.append(f"group_starts {at} {_frequency(_options(words))}")

    def _stop_group(self, at, _):
        self._lines.append(f"group_stops {at}")

    def _run_daemon(self, at, words):
        self._add(at, "start_daemon" if words[1] == "start" else "stop_daemon")

    def _end_here(self, at, _):
        self._end = at


def _options(words):
    return dict(word.split("=", 1) for word in words if "=" in word)


def _frequency(options):
    frequency = int(options["freq"])
    for channels, stand_in in _RADAR_CHANNELS:
        if frequency in channels:
            return stand_in + frequency - channels[0]
    if not any(frequency in channels for channels in _CHANNELS):
        raise TraceError(f"the lab's access point can't be on {frequency} MHz; it can be on 2412 to "
                         "2462, and on channels of 20 MHz from 5180 to 5320 and from 5500 to 5825")
    return frequency


def _signal(text):
    if int(text) not in _SIGNALS:
        raise TraceError(f"the lab's radio can't have a signal of {text} dBm; it has {_SIGNALS[0]} to "
                         f"{_SIGNALS[-1]}")
    return int(text)


# "1234 wlan0 SIGNAL_POLL" or "1234 wlan0 DRIVER SET_TXPOWER 9 -> OK"
_REQUEST = re.compile(r"(\d+) (\S+) (.*?)(?: -> (.*))?$")

# As liblog prints it: "CorvidWifi I 11-21 09:43:52  1234  1235 StaManager: hello".
_LOG_LINE = re.compile(r"(\S+) ([VDIWEF]) (\d\d-\d\d \d\d:\d\d:\d\d) +\d+ +\d+ (.*)$")


def play_records(begin, wall, requests, log):
    """What the lab's logs say, as records of the simulator: a list of objects in the order of time.

    `begin` is when the play's clock was 0, ms since the machine's start, and `wall` when the machine
    started, ms since 1970. The daemon's log has whole seconds.
    """
    records = []
    for line in requests:
        match = _REQUEST.match(line)
        if match and match[3].startswith(_OF_THE_DAEMON):
            # An answer that the log lacks was the supplicant's own.
            records.append({"t": (int(match[1]) - begin) / 1000, "kind": "command",
                            "socket": match[2], "text": match[3], "reply": match[4] or ""})
    year = time.gmtime(wall / 1000).tm_year
    for line in log:
        match = _LOG_LINE.match(line)
        if match:
            at = calendar.timegm(time.strptime(f"{year}-{match[3]}", "%Y-%m-%d %H:%M:%S"))
            records.append({"t": (at * 1000 - wall - begin) / 1000, "kind": "log",
                            "level": match[2], "tag": match[1], "text": match[4]})
    records.sort(key=lambda record: record["t"])
    return records


class LabPlayer:
    """As machine.Player, in the lab."""

    def __init__(self, programs):
        if shutil.which(QEMU) is None:
            raise TraceError(f"the lab can't run: {QEMU} is not installed (Debian's package "
                             "qemu-system-x86)")
        self._folder = programs.folder
        self.left_away = []

    def play(self, scenario, duration, start_wall=None):
        """Plays a scenario of so many seconds; (records, errors, exit status of the lab)."""
        del duration, start_wall  # the case has its length, and the machine a clock of its own
        case = Case(scenario)
        self.left_away = case.left_away
        with tempfile.TemporaryDirectory(prefix="corvid-lab-") as work:
            # Its name is the case's: two replays at a time need two.
            name = f"replay-{os.path.basename(work)}"
            path = os.path.join(work, name + ".sh")
            with open(path, "w", encoding="utf-8") as file:
                file.write(case.text())
            status, said = _run([os.path.join(SOURCE, "lab", "lab.sh"), "play", path],
                                {**os.environ, "CORVID_BUILD": self._folder})
        logs = os.path.join(self._folder, "lab-runs", name)
        try:
            if status != 0:
                raise TraceError("the lab's play failed: " + " | ".join(said.splitlines()[-5:]))
            begin, wall = map(int, _read(logs, "play")[0].split())
            records = play_records(begin, wall, _read(logs, "requests"), _read(logs, "daemon"))
        finally:
            shutil.rmtree(logs, ignore_errors=True)
        return [json.dumps(record) for record in records], [], 0


def _run(command, environment):
    """(status, output with the errors behind) of a command, which is told to end when this one is."""
    with subprocess.Popen(command, env=environment, text=True, stdin=subprocess.DEVNULL,
                          stdout=subprocess.PIPE, stderr=subprocess.PIPE) as process:
        try:
            out, errors = process.communicate()
        except BaseException:
            # It ends its machines, which a kill would leave behind.
            process.terminate()
            process.communicate()
            raise
    return process.returncode, out + errors


def _read(folder, name):
    with open(os.path.join(folder, name + ".log"), encoding="utf-8", errors="replace") as file:
        return file.read().splitlines()
