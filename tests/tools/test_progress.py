"""The progress bar, interrupts, and info on a terminal."""

import os
import pty
import shutil
import signal
import subprocess
import time
import unittest

from support import EXAMPLE, TOOL, ToolTest


class Progress(ToolTest):
    def interrupt_long_work(self, number, errors, seen_enough):
        """Standard error of a run that would take hours, and that leaves the old file and nothing else."""
        self.small("a.kvpkg")
        with open(self.dir / "big.kvd", "wb") as big:
            big.truncate(400 << 30)
        before, names = self.read("a.kvpkg"), self.names()
        tool = subprocess.Popen([TOOL, "create", "a.kvpkg", "--force", "--code", "s.k", "--model", "big.kvd"],
                                cwd=self.dir, stderr=errors, env={**os.environ, "TERM": "xterm"})
        seen_enough()
        tool.send_signal(number)
        said = tool.communicate(timeout=30)[1]
        self.assertEqual(tool.returncode, -number)
        self.assertEqual((self.read("a.kvpkg"), self.names()), (before, names))
        return said

    def test_long_work_shows_a_bar_on_a_terminal(self):
        main, side = pty.openpty()
        seen = b""

        def read_bar():
            nonlocal seen
            while b" left" not in seen:
                seen += os.read(main, 4096)

        self.interrupt_long_work(signal.SIGINT, side, read_bar)
        self.assertRegex(seen, rb"\r\[-{20}\]   \d%  [\d.]+ [kMG]B of 429\.5 GB, [\d.]+ [kMG]B/s, [\d:]+ (s|min) left")
        self.assertTrue(os.read(main, 1 << 16).endswith(b"\r\x1b[K"))
        os.close(main)
        os.close(side)

    def test_nothing_is_shown_in_a_pipe(self):
        said = self.interrupt_long_work(signal.SIGTERM, subprocess.PIPE, lambda: time.sleep(2))
        self.assertEqual(said, b"")


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
        (self.dir / "bin").mkdir()
        picture = ["info", "--picture", "a.kvpkg"]
        path = {"PATH": str(self.dir / "bin")}
        self.assertEqual(self.on_terminal(*picture, env=path),
                         (1, "qzapp: --picture: needs chafa or img2sixel to draw; install the package chafa, or "
                          'get the picture with "qzapp extract --only screenshot"\n'))
        drawer = self.dir / "bin/chafa"
        drawer.write_text('#!/bin/sh\nfor file; do :; done\nexec /usr/bin/cmp "$file" "$EXAMPLE/screenshot.png"\n')
        drawer.chmod(0o755)
        self.assertEqual(self.on_terminal(*picture, env=path)[0], 0)
        self.assertEqual(self.run_tool(*picture).returncode, 2)

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
