"""The progress bar."""

import os
import pty
import signal
import subprocess
import time
import unittest

from support import QZAPP, ToolTest


class Progress(ToolTest):
    def start_long_work(self, errors):
        self.small("a.kvpkg")
        with open(self.dir / "big.kvd", "wb") as big:
            big.truncate(400 << 30)
        return subprocess.Popen([QZAPP, "create", "a.kvpkg", "--force", "--code", "s.k", "--model", "big.kvd"],
                                cwd=self.dir, stderr=errors, env={**os.environ, "TERM": "xterm"})

    def test_long_work_shows_a_bar_on_a_terminal_and_an_interrupt_leaves_nothing(self):
        main, side = pty.openpty()
        tool = self.start_long_work(side)
        os.close(side)
        before, seen, deadline = self.read("a.kvpkg"), b"", time.monotonic() + 60
        while b" left" not in seen and time.monotonic() < deadline:
            seen += os.read(main, 4096)
        self.assertRegex(seen, rb"\r\[-{20}\]   \d%  [\d.]+ [kMG]B of 429\.5 GB, [\d.]+ [kMG]B/s, [\d:]+ (s|min) left")
        tool.send_signal(signal.SIGINT)
        self.assertEqual(tool.wait(30), -signal.SIGINT)
        os.close(main)
        self.assertEqual(self.read("a.kvpkg"), before)
        self.assertEqual(self.names(), ["a.kvpkg", "big.kvd", "s.k", "s.kvd"])

    def test_nothing_is_shown_in_a_pipe(self):
        tool = self.start_long_work(subprocess.PIPE)
        time.sleep(2)
        tool.terminate()
        self.assertEqual(tool.communicate(timeout=30)[1], b"")


if __name__ == "__main__":
    unittest.main()
