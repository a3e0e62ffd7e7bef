"""Reads the whole corpus under strace, in one process and with each verb of the tool that reads, and
proves that nothing is touched but the file that was named, and that no socket is made."""

import os
import pathlib
import re
import shlex
import subprocess
import tempfile
import unittest

CORPUS = os.environ["HOSTILE_CORPUS"]
QZAPP = os.environ["QZAPP"]
BUILD = pathlib.Path(QZAPP).resolve().parent.parent

# What else a process may look at.
SYSTEM_FILES = [
    r"/etc/ld\.so\.(cache|preload)",               # the loader looks up the shared libraries in it
    r"(/usr)?/lib(64)?/.*\.so[.0-9]*",             # the shared libraries; ICU's data is one of them
    rf"{BUILD}/lib/(.*/)?lib[\w+]+\.so[.0-9]*",     # our own, beside which it looks for all of them
    rf"{BUILD}/lib/(glibc-hwcaps|tls|x86_64)(/.*)?",  # folders in which it looks for faster ones
    r"/proc/self/fd/\d+",                          # gives its name to a file that is written without one
    r"/proc/self/fd/\d+/[^/]+",                    # no file: names one that is open
    r"/proc/self/exe",                             # tells the loader where the program's libraries are
    rf"{BUILD}/bin/qzapp",                         # what that leads to
    r"/proc/self/io",                              # how much was read, for the progress bar
    r"/proc/self/cgroup",                          # tells the control group, and
    r"/sys/fs/cgroup/(.*/)?cpu\.max",              # this how many processors it may use
    r"/proc/self",                                 # what the process may still read once it is confined,
    r"/dev/urandom",                               # and this
    r"/dev/null",                                  # stands in for a standard stream that is closed
    r"/etc/gnutls/config",                         # Xerces is linked to a library that looks for it
    r"/usr/lib/locale/.*",                         # the C library's locale
]
# What is made beside its place first, and everything in it.
PRIVATE = re.compile(r"/\.qzapp-\d+-[0-9a-f]{8}(/.*)?$")
CALL = re.compile(r"^(\d+) +(\w+)\((.*)$")
# A text, and the folder that it is relative to where the call names one.
TEXT = re.compile(r'(?:\w+<([^>]*)>(?:\(deleted\))?, )?"((?:[^"\\]|\\.)*)"')
NETWORK = {"socket", "socketpair", "connect", "bind", "sendto", "sendmsg"}
EXTRACTED = re.compile(r"code\.k|appModel\.kvd|metadata\.json|screenshot\.[0-9A-Za-z]{1,16}")


def why_not():
    """Why system calls cannot be watched here; empty when they can."""
    run = subprocess.run(["strace", "-o", os.devnull, "true"], capture_output=True, text=True)
    return run.stderr if run.returncode else ""


@unittest.skipIf(why_not(), f"ptrace is not permitted here: {why_not().strip()}")
class IsolationTest(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.top = pathlib.Path(folder.name).resolve()
        self.files = self.top / "files"
        self.files.mkdir()
        subprocess.run([CORPUS, "--write", self.files], stdout=subprocess.DEVNULL, check=True)

    def calls(self, script, program):
        """Each call on files or the network that `program` makes when a shell runs the script: its
        arguments, the call's name, and the paths in it."""
        log = self.top / "log"
        subprocess.run(["strace", "-f", "--seccomp-bpf", "-qq", "-y", "-s", "4096", "-e", "trace=%file,%network,clone3",
                        "-o", log, "sh", "-c", script],
                       stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL, cwd=self.top)
        running = {}
        lines = log.read_text(errors="backslashreplace").splitlines()
        started = (re.match(r"(\d+) .*parent_tid=\[(\d+)\]", line) for line in lines)
        starter = {match[2]: match[1] for match in started if match}  # of each thread
        for line in lines:
            if not (match := CALL.match(line)):
                continue
            pid, call, rest = match.groups()
            pid = starter.get(pid, pid)
            texts = [[text.encode().decode("unicode_escape") for text in pair]
                     for pair in TEXT.findall(rest)]
            if call == "execve":
                running[pid] = [text for _, text in texts[2:]] if texts[0][1] == program else None
            elif running.get(pid) is not None:
                yield running[pid], call, [os.path.normpath(self.top / folder / text)
                                           for folder, text in texts]

    def may_touch(self, path, named):
        path = PRIVATE.sub("", path)
        on_the_way = any(f"{name}/".startswith(f"{path.rstrip('/')}/") for name in named)
        below = any(path.startswith(f"{name}/") for name in named)
        return on_the_way or below or any(re.fullmatch(rule, path) for rule in SYSTEM_FILES)

    def strange(self, calls, seen):
        """The calls that touch what their process was not given; adds what they touch to `seen`."""
        for arguments, call, paths in calls:
            named = [os.path.normpath(self.top / argument) for argument in arguments]
            seen.update(paths)
            if call in NETWORK or not all(self.may_touch(path, named) for path in paths):
                yield call, paths

    def test_the_library_opens_no_other_file(self):
        seen = set()
        calls = self.calls(f'exec "{CORPUS}" --read scratch files/*', CORPUS)
        self.assertEqual(list(self.strange(calls, seen)), [])
        self.assertLessEqual({str(file) for file in self.files.iterdir()}, seen)

    def test_the_tool_opens_no_other_file_and_writes_only_where_it_was_told(self):
        seen = set()
        # Starting the tool takes far longer than reading a file, and every file has been read above.
        some = sorted(file.name for file in self.files.iterdir())[::4]
        script = "".join(f'"{QZAPP}" {verb}; ' for verb in
                         ('info "$f"', 'parts --verify "$f"', 'extract "$f" -o "out/${f#files/}"'))
        files = " ".join(shlex.quote(f"files/{name}") for name in some)
        calls = self.calls(f"for f in {files}; do {script} done", QZAPP)
        self.assertEqual(list(self.strange(calls, seen))[:9], [])
        self.assertLessEqual({str(self.files / name) for name in some}, seen)
        self.assertEqual({path.name for path in self.top.iterdir()}, {"files", "log", "out"})
        extracted = [path for path in (self.top / "out").rglob("*") if not path.is_dir()]
        self.assertGreater(len(extracted), 75)
        for path in extracted:
            self.assertTrue(path.is_file() and not path.is_symlink(), path)
            self.assertRegex(str(path.relative_to(self.top / "out")), rf"^[^/]+/({EXTRACTED.pattern})$")


if __name__ == "__main__":
    unittest.main()
