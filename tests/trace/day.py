#!/usr/bin/env python3
"""day.py [FOLDER]: makes the result of a day and its page, and says what the page costs."""

import json
import math
import os
import subprocess
import sys
import tempfile
import time

import browser
from result_lines import RESULT_LINE, command, end, power
from support import COMMAND, sample

SECONDS = 24 * 3600
_WALK = 600  # seconds from the access point and back
_FRAMES = 60

# Milliseconds from a turn of the wheel to the next frame: half of them to zoom in, half out.
_ZOOM = """(async () => {
  const plots = document.querySelector('.plots'), box = plots.getBoundingClientRect();
  const took = [];
  for (let i = 0; i < %(frames)d; ++i) {
    const begin = performance.now();
    plots.dispatchEvent(new WheelEvent('wheel', {deltaY: i < %(frames)d / 2 ? -60 : 60,
      ctrlKey: true, clientX: box.left + box.width / 2, clientY: box.top + 100, bubbles: true,
      cancelable: true}));
    await new Promise((done) => requestAnimationFrame(done));
    took.push(performance.now() - begin);
  }
  took.sort((a, b) => a - b);
  return [took[%(frames)d >> 1], took[took.length - 1]];
})()"""


def lines():
    """A day of walking to and fro: a sample each second, a poll every five, a step as it is due."""
    dbm = None
    for second in range(SECONDS):
        rssi = round(-62 + 17 * math.cos(2 * math.pi * second / _WALK)
                     + 2 * math.sin(second * 1.7) + 1.5 * math.sin(second * 0.37))
        yield sample(second, rssi)
        if second % 5 == 0:
            yield command(second, "SIGNAL_POLL", f"RSSI={rssi}\nLINKSPEED=800\nNOISE=-92\n"
                                                 "FREQUENCY=5180\nWIDTH=80 MHz\n")
            due = 20 if rssi < -70 else 10 if rssi < -60 else 0
            if due != dbm:
                dbm = due
                yield command(second, f"DRIVER SET_TXPOWER {dbm}")
                yield power(second, dbm)
    yield end(SECONDS)


def write_result(path):
    with open(path, "w", encoding="utf-8") as file:
        for line in (RESULT_LINE, *lines()):
            file.write(json.dumps(line) + "\n")


def make_page(result, page):
    """Seconds that the page takes."""
    begin = time.monotonic()
    subprocess.run([sys.executable, "-B", COMMAND, "report", result, "-o", page, "--force"],
                   check=True)
    return time.monotonic() - begin


def main():
    with tempfile.TemporaryDirectory() as holder:
        folder = sys.argv[1] if len(sys.argv) > 1 else holder
        result, page = os.path.join(folder, "day.result"), os.path.join(folder, "day.html")
        write_result(result)
        print(f"result            {os.path.getsize(result) / 1e6:5.1f} MB")
        print(f"page made in      {make_page(result, page):5.1f} s")
        print(f"page              {os.path.getsize(page) / 1e6:5.1f} MB")
        with browser.Browser() as shown:
            print(f"loaded in         {shown.open(page):5.2f} s")
            middle, longest = shown.run(_ZOOM % {"frames": _FRAMES})
            print(f"a frame of a zoom {middle:5.0f} ms (the longest {longest:.0f} ms)")


if __name__ == "__main__":
    main()
