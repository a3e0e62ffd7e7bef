"""Checks each file of the corpus, and proves that it costs time and memory in proportion to what the file holds."""

import os
import pathlib
import subprocess
import tempfile
import unittest

CORPUS = os.environ["HOSTILE_CORPUS"]
QZAPP = os.environ["QZAPP"]


class CheckTest(unittest.TestCase):
    def check(self, file):
        """Exit status, seconds of processor time and most bytes of memory."""
        with subprocess.Popen([QZAPP, "check", file], stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL) as tool:
            _, status, used = os.wait4(tool.pid, 0)
            tool.returncode = os.waitstatus_to_exitcode(status)
        return tool.returncode, used.ru_utime + used.ru_stime, used.ru_maxrss * 1024

    def test_costs_no_more_than_the_file_holds(self):
        with tempfile.TemporaryDirectory() as folder:
            files = pathlib.Path(folder)
            written = subprocess.run([CORPUS, "--write", files], check=True, stdout=subprocess.PIPE, text=True).stdout
            (files / "empty.k").write_bytes(b"")
            _, _, least = self.check(files / "empty.k")
            for content, name in (line.split(" ", 1) for line in written.splitlines()):
                with self.subTest(file=name):
                    status, seconds, memory = self.check(files / name)
                    self.assertIn(status, (0, 1))
                    self.assertLess(seconds, 0.5 + 2e-6 * int(content))
                    self.assertLess(memory, least + (2 << 20) + 80 * int(content))


if __name__ == "__main__":
    unittest.main()
