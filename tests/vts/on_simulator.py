#!/usr/bin/env python3
"""on_simulator.py BUILD_FOLDER LINE ... [-- OPTION ...]

Runs the interface's tests against the daemon on the simulated headset, on which the lines have been
played; the last starts the daemon, if none does. The options are the test program's; a command in
them reaches the simulator by the descriptor SIMULATOR. With --change, and only then, requests that
can't be undone come to the supplicant or the kernel.
"""

import json
import os
import subprocess
import sys
import tempfile
import threading
import time

DAEMON = "vendor.corvid.hardware.wifi@1.0-service"
PROGRAM = "VtsHalCorvidWifiV1_0TargetTest"
# How the records of what a client's call changed begin.
CHANGES = {
    "command": ("DRIVER SET_ELNABYPASS_MODE", "DRIVER MCC_QUOTA", "CORVID_P2P_CHAN_SWITCH"),
    "netlink": ("VENDOR", "FRAME"),
}


def played(simulator, lines):
    """Plays the lines, each when the one before is answered; says what was refused."""
    for number, line in enumerate(lines, 1):
        simulator.stdin.write(line + "\n")
        simulator.stdin.flush()
        for text in simulator.stdout:
            record = json.loads(text)
            if record["kind"] == "error":
                sys.exit(f"corvid-sim refused '{line}': {record['text']}")
            if record["kind"] == "ok" and record["line"] == number:
                break


def served(programs, environment):
    """Whether the service is there before two minutes are over; emulated, it starts slowly."""
    end = time.monotonic() + 120
    while time.monotonic() < end:
        if subprocess.run([os.path.join(programs, "corvid-wifi"), "call", "getP2pInfo"],
                          env=environment, capture_output=True, check=False).returncode == 0:
            return True
        time.sleep(0.05)
    return False


def changes(records):
    """What was asked of the radio, of the simulator's records up to their end."""
    found = []
    for text in records:
        record = json.loads(text)
        if record["text"].startswith(CHANGES.get(record["kind"], ())):
            found.append(record["text"])
    return found


def main(build, arguments):
    end = arguments.index("--") if "--" in arguments else len(arguments)
    lines, options = arguments[:end], arguments[end + 1:]
    programs = os.path.join(build, "bin")
    with tempfile.TemporaryDirectory() as root:
        environment = dict(os.environ, CORVID_WIFI_ROOT=root)
        with subprocess.Popen(
            [os.path.join(programs, "corvid-sim"), "--control", "--root", root, "--daemon",
             os.path.join(programs, DAEMON)],
            stdin=subprocess.PIPE, stdout=subprocess.PIPE, text=True) as simulator:
            played(simulator, lines + ["daemon start"] * ("daemon start" not in lines))
            if not served(programs, environment):
                sys.exit("the daemon does not serve")
            # They are read all the time, so that the simulator does not wait for a reader.
            asked = []
            reader = threading.Thread(target=lambda: asked.extend(changes(simulator.stdout)))
            reader.start()
            control = simulator.stdin.fileno()
            status = subprocess.run(
                [os.path.join(programs, PROGRAM),
                 *(option.replace("SIMULATOR", str(control)) for option in options)],
                env=environment, pass_fds=[control], check=False).returncode
            simulator.stdin.close()
            reader.join()
    if bool(asked) != ("--change" in options):
        sys.exit(f"what can't be undone was asked for: {asked}")
    sys.exit(status)


if __name__ == "__main__":
    main(sys.argv[1], sys.argv[2:])
