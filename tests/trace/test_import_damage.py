#!/usr/bin/env python3
"""Whatever is damaged in a file, import ends well or with an error, and what it writes is a trace."""

import contextlib
import io
import os
import random
import unittest

from corvid_trace import cli
from corvid_trace.format import read_trace, wrong_with_header, wrong_with_record
from support import SOURCE, FilesTest

LOG = """\
--------- beginning of main
1763793600.100  100  101 I CorvidWifi: StaManager: STA event(CONNECTED)
1763793600.200  7  7 I wpa_supplicant: wlan0: Trying to associate with 02:00:00:00:01:00 (SSID='a' freq=2437 MHz)
1763793600.300  7  7 I wpa_supplicant: p2p0: P2P-GROUP-STARTED p2p0 GO ssid="DIRECT-x" freq=5180 passphrase="x"
11-22 06:40:05.250  100  102 I CorvidWifi: TxPowerManager: StaManager event(CONNECTED) rssi:-58 freq:5180
2025-11-22 06:40:05.260 +0000  100  102 I CorvidWifi: TxPowerManager: STA cmd:DRIVER SET_TXPOWER 9 reply:OK
CorvidWifi I 11-22 06:40:10   131   264 TelemetryEventLogger: Report STA Manager event: freq:5180 rssi:-48
1763793610.900000: wlan0: CTRL-EVENT-CHANNEL-SWITCH freq=5745 ifname=p2p0 width=80
"""
POLLS = """\
1763793600.25
RSSI=-50
FREQUENCY=5180
WIDTH=80 MHz
Sat Nov 22 06:40:00 UTC 2025
FAIL
2025-11-22T06:40:00,5+00:00 RSSI=-50
23:59:59 FREQUENCY=2437
12345.67 23456.78
RSSI=-51
FREQUENCY=5180
"""
TABLE = "time_s,rssi_dbm,freq_mhz,width_mhz\n0,-50,5180,80\n1,-60,2437,20\n2,,,\n3,-51,5180,80+80\n"
PLAY = """\
{"t":0.1,"kind":"line","text":"property a.b \\"c d\\"","line":1}
{"t":0.0,"kind":"program","text":"the daemon was started","pid":7}
{"t":1.0,"kind":"event","socket":"wlan0","text":"<3>CTRL-EVENT-CONNECTED - x","monitors":1}
{"t":1.5,"kind":"command","socket":"wlan0","text":"SIGNAL_POLL","reply":"RSSI=-50\\nFREQUENCY=5180\\n"}
{"t":2.5,"kind":"atom","text":"","atom":{"atomId":1,"values":[{"int":2}]}}
{"t":3.0,"kind":"callback","text":"","callback":{"event":"onRegdomUpdated","init":"","type":"","alpha2":""}}
"""
# What takes the place of a few bytes.
PIECES = [piece.encode() for piece in (
    "\0", "9" * 400, "9" * 5000, "-", ".", '"', "{", "}", "[", "\n", "\r", " ", ":", "1e999", "NaN",
    "\u2028", "\ufeff", "99:99:99", "0000-00-00", "null", "true", "\\u0000", "\\ud800", "-1", "٣",
    "²")] + [b"\xff", b"\xe2\x80"]
FORMATS = ("log", "polls", "csv", "simulator", "trace")
ROUNDS = 1200


class DamageTest(FilesTest):

    def damaged(self, choose, content):
        content = bytearray(content)
        for _ in range(choose.randint(1, 8)):
            place = choose.randrange(len(content) + 1)
            kind = choose.random()
            if kind < 0.5:
                content[place:place + choose.randint(0, 4)] = choose.choice(PIECES)
            elif kind < 0.75:
                del content[place:place + choose.randint(1, 40)]
            else:
                content[place:place] = content[max(0, place - 60):place]
        return bytes(content)

    def test_damaged_files_end_well_or_with_an_error(self):
        with open(os.path.join(SOURCE, "trace", "walks", "lab.jsonl"), "rb") as file:
            trace = file.read(2500)
        sources = [text.encode() for text in (LOG, POLLS, TABLE, PLAY)] + [trace]
        choose = random.Random(1)
        written = 0
        for number in range(ROUNDS):
            source = choose.choice(sources)
            content = self.damaged(choose, source)
            words = ["import", self.write("input", content), "-o", self.path("trace"), "--force"]
            words += choose.choice([[], ["--anonymize"], ["--format", choose.choice(FORMATS)]])
            with self.subTest(number=number, words=words, content=content), \
                    contextlib.redirect_stderr(io.StringIO()), \
                    contextlib.redirect_stdout(io.StringIO()):
                status = cli.main(words)
                self.assertIn(status, (0, 1))
                if status == 0:
                    written += 1
                    header, records = read_trace(self.path("trace"))
                    self.assertIsNone(wrong_with_header(header))
                    # What is read from a trace may be a later version's.
                    wrong = [wrong_with_record(record, source is not trace) for record in records]
                    self.assertEqual([what for what in wrong if what], [])
        self.assertGreater(written, ROUNDS / 4)
        self.assertLess(written, ROUNDS)


if __name__ == "__main__":
    unittest.main()
