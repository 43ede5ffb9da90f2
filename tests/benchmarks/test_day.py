"""lab/day.py makes its bill of what the guest has written."""

import os
import subprocess
import sys
import tempfile
import unittest

SOURCE = os.path.dirname(os.path.dirname(os.path.dirname(os.path.realpath(__file__))))
DAY = os.path.join(SOURCE, "lab", "day.py")

BILL = """\
{account} before 143 20000000
{account} before 146 1000000
{account} after 143 20000000
{account} after 146 301000000
{account} daemon-ms 1000
{account} supplicant-ms 20100
{account} answers-ns 100000000
{account} log-bytes 700000
{account} samples 5760
{account} bare-sample-ns 20000
{account} connections 63 roams 60 scans {scans} sessions 3
"""

THREADS = """\
  tasks:
    CorvidWifiManager: 143
    StaManager.onStaConnected: 146
"""


def histogram(*lines, dropped=0):
    return "# event histogram\n\n" + "\n".join(lines) + f"\n\nTotals:\n    Dropped: {dropped}\n"


class Bill(unittest.TestCase):
    def setUp(self):
        holder = tempfile.TemporaryDirectory(prefix="corvid-day-")
        self.addCleanup(holder.cleanup)
        self.timed = os.path.join(holder.name, "timed")
        self.counted = os.path.join(holder.name, "counted")
        os.mkdir(self.timed)
        os.mkdir(self.counted)
        self.write(self.timed, "bill", BILL.format(account="timed", scans=1920))
        self.write(self.timed, "threads", THREADS)
        self.write(self.counted, "bill", BILL.format(account="counted", scans=1920))
        self.write(self.counted, "daemon-calls", histogram(
            "{ common_pid:        146, id: sys_recvfrom                  [ 45] } hitcount:        300",
            "{ common_pid:       1316, id: sys_recvfrom                  [ 45] } hitcount:        100",
            "{ common_pid:       1316, id: sys_rseq                      [334] } hitcount:          1"))
        self.write(self.counted, "daemon-bytes", histogram(
            "{ id: sys_write                     [  1] } hitcount:        201  ret:      19248",
            "{ id: sys_sendmsg                   [ 46] } hitcount:         39  ret:       8532",
            "{ id: sys_sendto                    [ 44] } hitcount:        259  ret:       5768"))
        self.write(self.counted, "daemon-sleeps", histogram(
            "{ prev_pid:        146 } hitcount:         85",
            "{ prev_pid:       1316 } hitcount:         15",
            "{ prev_pid:         15 } hitcount:          8"))
        self.write(self.counted, "supplicant-calls", histogram(
            "{ common_pid:        155, id: sys_recvmsg                   [ 47] } hitcount:       7312"))
        self.write(self.counted, "supplicant-bytes", histogram(
            "{ id: sys_recvmsg                   [ 47] } hitcount:       7312  ret:    4934232"))
        self.write(self.counted, "supplicant-sleeps", histogram("{ prev_pid:        155 } hitcount:       9"))

    @staticmethod
    def write(folder, name, text):
        with open(os.path.join(folder, name + ".log"), "w", encoding="utf-8") as file:
            file.write(text)

    def day(self):
        return subprocess.run([sys.executable, "-B", DAY, self.timed, self.counted],
                              stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True, check=False)

    def rows(self):
        result = self.day()
        self.assertEqual((result.returncode, result.stderr), (0, ""))
        return {line[:50].strip(): line[50:].split() for line in result.stdout.splitlines()}

    def test_labs_own_answers_are_not_in_the_supplicants_time(self):
        self.assertEqual(self.rows()["processor time, s"], ["1.00", "20.00"])
        self.assertIn("  of the supplicant's                                     5.0 %", self.day().stdout)

    def test_floor_is_the_bare_samples_of_the_whole_day(self):
        self.assertEqual(self.rows()["a C program that only samples, 5760 times, s"], ["0.12"])

    def test_counts_are_sums_over_the_processs_threads(self):
        rows = self.rows()
        self.assertEqual(rows["system calls"], ["401", "7312"])
        self.assertEqual(rows["recvfrom"], ["400", "0"])
        self.assertEqual(rows["bytes written (log, files, eventfds)"], ["19248", "0"])
        self.assertEqual(rows["bytes sent (sockets, netlink)"], ["14300", "0"])

    def test_sleeps_of_other_processes_are_not_counted(self):
        self.assertEqual(self.rows()["times woken"], ["100", "9"])

    def test_threads_have_their_part_of_the_day_without_their_start(self):
        rows = self.rows()
        self.assertEqual(rows["main: clients' calls"], ["0", "0.00"])
        self.assertEqual(rows["listener: the supplicant's events"], ["85", "0.30"])
        self.assertEqual(rows["1 that have ended: samples, sensors"], ["15", "0.70"])

    def test_day_that_did_not_come_to_its_end_is_an_error(self):
        os.remove(os.path.join(self.counted, "daemon-sleeps.log"))
        result = self.day()
        self.assertEqual(result.returncode, 1)
        self.assertIn("the day was not played to its end", result.stderr)

    def test_days_that_differ_are_no_bill(self):
        self.write(self.counted, "bill", BILL.format(account="counted", scans=1919))
        self.assertEqual(self.day().stderr, "day.py: the two days were not the same\n")

    def test_counts_that_the_kernel_dropped_are_an_error(self):
        self.write(self.counted, "daemon-sleeps", histogram("{ prev_pid: 146 } hitcount: 1", dropped=2))
        self.assertEqual(self.day().stderr, "day.py: daemon-sleeps: the kernel's table was too small\n")


if __name__ == "__main__":
    unittest.main()
