"""Verbs that read confine themselves before they look at a file: see CageTest.cpp for what that keeps them
from."""

import collections
import ctypes
import os
import re
import shutil
import struct
import subprocess
import unittest
import zlib

from support import EXAMPLE, TOOL, ToolTest, why_not

# The kernel's answer to "landlock_create_ruleset", as a program that knows nothing of ours asks for it.
VERSION = ctypes.CDLL(None).syscall(444, None, ctypes.c_size_t(0), 1)
# What a process has called that is in a cage.
CONFINED = ["PR_SET_NO_NEW_PRIVS, 1"] + ["landlock_restrict_self.*= 0$"] * (VERSION > 0)
CALLS = "openat,pread64,read,mmap,copy_file_range,clone,clone3,fork,vfork,execve,prctl,landlock_restrict_self"


def watched(*options):
    """The command that has strace run a program, and its environment."""
    # Leaks cannot be looked for in a process that is watched.
    return ["strace", "-f", "-qq", "-o", "log", *options], {**os.environ, "ASAN_OPTIONS": "detect_leaks=0"}


def large_picture():
    """A PNG image that no pipe takes whole."""
    def chunk(kind, data):
        return struct.pack(">I", len(data)) + kind + data + struct.pack(">I", zlib.crc32(kind + data))
    return (b"\x89PNG\r\n\x1a\n" + chunk(b"IHDR", struct.pack(">IIBBBBB", 1, 1, 8, 0, 0, 0, 0)) +
            chunk(b"tEXt", b"k\0" + bytes(1 << 20)) + chunk(b"IDAT", zlib.compress(b"\0\0")) + chunk(b"IEND", b""))


class CageTest(ToolTest):
    def apps(self):
        self.create("a.kvpkg")
        shutil.copy(EXAMPLE / "heatfield.k", self.dir / "b.k")
        for name, field in ("c", "Name"), ("d", "Author"):
            shutil.copy(self.dir / "a.kvpkg", self.dir / f"{name}.kvpkg")
            self.ok("edit", f"{name}.kvpkg", "--set", f"{field}=X", "--set", "Version=9")
        self.write("c.k", "x = 1;\n" + self.read("b.k").decode())
        self.write("d.k", self.read("b.k").decode() + "% end\n")
        for folder in ("apps/below", "else", "there"):
            (self.dir / folder).mkdir(parents=True)
        shutil.copy(self.dir / "a.kvpkg", self.dir / "apps/below")
        shutil.copy(self.dir / "b.k", self.dir / "else")
        (self.dir / "apps/link.k").symlink_to("../else/b.k")
        (self.dir / "link").symlink_to("apps")
        for number in range(40):
            os.link(self.dir / "a.kvpkg", self.dir / f"n{number}.kvpkg")

    ROWS = [["info", "a.kvpkg", "b.k"], ["info", "link"], ["info", *(f"n{n}.kvpkg" for n in range(40))],
            ["check", "a.kvpkg", "b.k"], ["check", "apps", "a.kvpkg"], ["show", "a.kvpkg"],
            ["show", "--text", "b.k"], ["diff", "a.kvpkg", "b.k"], ["parts", "--verify", "a.kvpkg"],
            ["items", "--verify", "a.kvpkg"], ["extract", "a.kvpkg"], ["extract", "a.kvpkg", "-o", "new/deep"],
            ["extract", "a.kvpkg", "-o", "there"], ["extract", "a.kvpkg", "-o", "there", "--force"],
            ["extract", "b.k", "--only", "code", "-o", "-"],
            ["extract", "a.kvpkg", "--only", "screenshot", "--thumbnail", "-o", "-"],
            ["gallery", "apps", "-o", "g.html"], ["gallery", "link", "-o", "g.html", "--force"],
            ["gallery", "apps", "-o", "-"], ["index", "apps", "--rescan", "-d", "c.db"], ["repack", "--store", "--force", "a.kvpkg", "packed.kvpkg"],
            ["repack", "--store", "--or-unchanged", "a.kvpkg", "-"], ["repack", "--deflate", "--in-place", "c.kvpkg"],
            ["merge", "--store", "a.kvpkg", "c.kvpkg", "d.kvpkg", "-o", "c.kvpkg"],
            ["merge", "b.k", "c.k", "d.k", "-o", "c.k"]]

    @unittest.skipIf(why_not(), f"ptrace is not permitted here: {why_not().strip()}")
    def test_a_file_is_looked_at_by_a_confined_process_only(self):
        self.apps()
        app = re.compile(r"<[^>]*\.(k|kvpkg)>")
        for row in self.ROWS:
            strace, environment = watched("-y", "-e", f"trace={CALLS}")
            run = subprocess.run([*strace, TOOL, *row], cwd=self.dir, env=environment, capture_output=True)
            self.assertEqual((run.returncode, run.stderr), (1 if row[0] == "diff" else 0, b""), row)
            confined, looked = collections.defaultdict(set), 0  # the first for each process
            log = self.read("log").decode(errors="replace")
            threads = set(re.findall(r"parent_tid=\[(\d+)\]", log))  # of a process that was confined by then
            for line in log.splitlines():
                process, call = line.split(None, 1)
                is_confined = process in threads or confined[process] == set(CONFINED)
                confined[process].update(mark for mark in CONFINED if re.search(mark, call))
                if re.match(r"pread64|read|mmap|copy_file_range", call) and app.search(call):
                    looked += 1
                    self.assertTrue(is_confined, (row, line))
                if "CLONE_THREAD" in call:
                    self.assertTrue(is_confined, (row, line))
            self.assertGreater(looked, 0, row)

    @unittest.skipIf(why_not(), f"ptrace is not permitted here: {why_not().strip()}")
    def test_what_an_older_kernel_lacks_costs_nothing_but_the_cage(self):
        """The answers of such kernels: versions that know less, no such call, and not to be asked."""
        self.apps()
        faults = [(f"retval={number}", f"(Landlock {number})") for number in range(1, max(VERSION, 0))]
        faults += [(f"error={error}", "Verbs that read are not confined: this kernel has no Landlock")
                   for error in ("ENOSYS", "EOPNOTSUPP", "EPERM")]
        for fault, told in faults:
            for row in [["--version"], *self.ROWS]:
                if "there" in row and "--force" not in row:
                    shutil.rmtree(self.dir / "there")
                    (self.dir / "there").mkdir()
                for made in ("a", "new"):
                    shutil.rmtree(self.dir / made, ignore_errors=True)
                (self.dir / "g.html").unlink(missing_ok=True)
                strace, environment = watched("-e", "trace=landlock_create_ruleset", "-e",
                                              f"inject=landlock_create_ruleset:{fault}:when=1")
                run = subprocess.run([*strace, TOOL, *row], cwd=self.dir, env=environment, capture_output=True)
                self.assertEqual((run.returncode, run.stderr), (1 if row[0] == "diff" else 0, b""), (fault, row))
                if row[0] == "--version":
                    self.assertIn(told, run.stdout.decode())

    def test_the_version_tells_what_the_kernel_confines(self):
        told = self.ok("--version").splitlines()[1]
        if VERSION <= 0:
            print("this kernel has no cage")
            self.assertEqual(told, "Verbs that read are not confined: this kernel has no Landlock")
            return
        kinds = ["files"] + ["TCP"] * (VERSION >= 4) + ["signals"] * (VERSION >= 6)
        note = " (but not where files are written)" if VERSION == 1 else ""
        self.assertEqual(told, "Verbs that read are confined by this kernel: " +
                         ", ".join(kinds).replace("files", "files" + note) + f" (Landlock {VERSION})")

    def limits(self, *args, limit=None):
        """The limits of a process that waits for somebody to read what it writes."""
        shell = ["sh", "-c", f'ulimit {limit} && exec "$0" "$@"'] if limit else []
        tool = subprocess.Popen([*shell, TOOL, *args], cwd=self.dir, stdout=subprocess.PIPE, stderr=subprocess.PIPE)
        tool.stdout.read(1)
        # So much has been written by now that it cannot have ended.
        with open(f"/proc/{tool.pid}/limits") as file:
            limits = dict(re.findall(r"^(Max .*?)  +(\w+)", file.read(), re.M))
        tool.communicate(timeout=60)
        self.assertEqual(tool.returncode, 0)
        return limits

    def test_processor_time_is_limited_for_thumbnails_and_memory_never(self):
        self.write("p.png", large_picture())
        self.small("a.kvpkg", "--screenshot", "p.png")
        args = ["extract", "a.kvpkg", "--only", "screenshot", "-o", "-"]
        without = self.limits(*args)
        thumbnail = self.limits(*args, "--thumbnail")
        self.assertEqual(thumbnail.pop("Max cpu time"), "20")
        self.assertEqual(without.pop("Max cpu time"), "unlimited")
        self.assertEqual(thumbnail, without)
        self.assertEqual(self.limits(*args, "--thumbnail", limit="-S -t 7")["Max cpu time"], "7")

    def test_files_are_read_wherever_they_are(self):
        self.apps()
        expected = self.ok("show", "a.kvpkg")
        (self.dir / "chain.kvpkg").symlink_to("link/below/a.kvpkg")
        os.mkdir(self.dir / "gone")
        for script in ('show chain.kvpkg', 'show "$PWD/link/below/a.kvpkg"', 'show - <a.kvpkg',
                       'show - <chain.kvpkg', 'TMPDIR=/nowhere show a.kvpkg',
                       'cd apps && show ../a.kvpkg', 'cd link/below && show a.kvpkg',
                       'a=$PWD/a.kvpkg && cd gone && rmdir ../gone && show "$a"'):
            verb = script.replace("show", '"$0" show')
            run = subprocess.run(["sh", "-c", verb, TOOL], cwd=self.dir, capture_output=True, text=True)
            self.assertEqual((run.stdout, run.stderr), (expected, ""), script)
        names = [f"n{number}.kvpkg" for number in range(40)]
        lines = self.ok("check", *names, "apps", "-", input=self.read("b.k")).splitlines()
        self.assertEqual((len(lines), lines[-1]), (44, "43 files: 43 without findings"))
        for verb in ("parts", "items", "check"):
            with open(self.dir / "a.kvpkg", "rb") as file:
                self.ok(verb, "/dev/stdin", stdin=file)


if __name__ == "__main__":
    unittest.main()
