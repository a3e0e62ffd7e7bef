"""The progress bar, and info on a terminal."""

import os
import pty
import shutil
import signal
import subprocess
import time
import unittest

from support import EXAMPLE, QZAPP, ToolTest


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
        self.assertTrue(os.read(main, 1 << 16).endswith(b"\r\x1b[K"))
        os.close(main)
        self.assertEqual(self.read("a.kvpkg"), before)
        self.assertEqual(self.names(), ["a.kvpkg", "big.kvd", "s.k", "s.kvd"])

    def test_nothing_is_shown_in_a_pipe(self):
        tool = self.start_long_work(subprocess.PIPE)
        time.sleep(2)
        tool.terminate()
        self.assertEqual(tool.communicate(timeout=30)[1], b"")


class Terminal(ToolTest):
    def test_colours_are_for_terminals_and_wanted(self):
        self.small("a.kvpkg")
        self.assertNotIn("\x1b", self.ok("info", "a.kvpkg"))
        plain = self.on_terminal("info", "a.kvpkg", env={"NO_COLOR": "1"})[1]
        self.assertNotIn("\x1b", plain)
        colourful = self.on_terminal("info", "a.kvpkg")[1]
        self.assertIn("  \x1b[2mName\x1b[0m ", colourful)
        self.assertEqual(colourful.replace("\x1b[2m", "").replace("\x1b[1m", "").replace("\x1b[0m", ""), plain)

    def test_a_picture_is_drawn_by_another_program(self):
        self.create("a.kvpkg")
        tools = self.dir / "bin"
        tools.mkdir()
        drawer = tools / "chafa"
        drawer.write_text('#!/bin/sh\nfor file; do :; done\nexec /usr/bin/sha256sum <"$file"\n')
        drawer.chmod(0o755)
        status, text = self.on_terminal("info", "--picture", "a.kvpkg", env={"PATH": str(tools)})
        want = subprocess.run(["sha256sum"], stdin=open(EXAMPLE / "screenshot.png"), capture_output=True)
        self.assertEqual(status, 0, text)
        self.assertTrue(text.endswith(want.stdout.decode()), text)
        drawer.write_text("#!/bin/sh\nexit 3\n")
        self.assertIn("its screenshot cannot be drawn: chafa ended with status 3",
                      self.on_terminal("info", "--picture", "a.kvpkg", env={"PATH": str(tools)})[1])
        drawer.unlink()
        status, text = self.on_terminal("info", "--picture", "a.kvpkg", env={"PATH": str(tools)})
        self.assertEqual((status, text), (1, "qzapp: --picture: needs chafa or img2sixel to draw; install the "
                                          'package chafa, or get the picture with "qzapp extract --only '
                                          'screenshot"\n'))
        self.assertEqual(self.run_tool("info", "--picture", "a.kvpkg").returncode, 2)

    def test_a_folder_stands_for_its_apps(self):
        (self.dir / "d/e").mkdir(parents=True)
        self.small("d/b.kvpkg")
        shutil.copy(EXAMPLE / "heatfield.k", self.dir / "d/e/a.k")
        self.write("d/plain.k", "x")
        text = self.ok("info", "d", "d/plain.k")
        self.assertEqual([l.split(" (")[0] for l in text.splitlines() if l.endswith(" app)")],
                         ["d/b.kvpkg", "d/e/a.k", "d/plain.k"])
        (self.dir / "none").mkdir()
        self.fails(1, "none: holds no app; check the name", "info", "none")


if __name__ == "__main__":
    unittest.main()
