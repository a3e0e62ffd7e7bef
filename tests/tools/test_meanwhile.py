"""What other programs, and signals, do while the tool is at work."""

import contextlib
import json
import os
import pathlib
import re
import shutil
import signal
import subprocess
import threading
import time
import unittest

from support import EXAMPLE, MODEL_PART, TOOL, ToolTest, why_not

MEGABYTE = 1 << 20
MIXED = "was changed while it was read; try again"
FILES = ("code.k", "appModel.kvd", "metadata.json")


@contextlib.contextmanager
def meanwhile(action):
    """Repeats the action beside what is done here."""
    ended = threading.Event()

    def repeat():
        while not ended.is_set():
            action()
    thread = threading.Thread(target=repeat)
    thread.start()
    try:
        yield
    finally:
        ended.set()
        thread.join()


class MeanwhileTest(ToolTest):
    def version(self, number, model_size=200_000):
        self.write("code", f"v = {number};\n")
        self.write("model", str(number).encode() * model_size)
        self.ok("create", f"v{number}.kvpkg", "--code", "code", "--model", "model", "--set", f"Name={number}",
                "--force")
        return f"v{number}.kvpkg"

    def large(self, size=64 * MEGABYTE):
        """An app that takes some time to extract."""
        self.small("app.kvpkg")
        self.ok("edit", "app.kvpkg", "--model", "-", input=os.urandom(size))

    def start(self, *args):
        return subprocess.Popen([TOOL, *args], cwd=self.dir, stdout=subprocess.DEVNULL, stderr=subprocess.PIPE)

    def when_working(self, folder, action, *args):
        """Runs the tool, with the action once it has made its private folder; status and message."""
        tool = self.start(*args)
        while not list((self.dir / folder).glob(".qzapp-*")) and tool.poll() is None:
            time.sleep(0.0005)
        action(tool)
        message = tool.communicate(timeout=60)[1].decode()
        return tool.returncode, message


class OneVersion(MeanwhileTest):
    def test_a_file_that_is_replaced_is_read_as_one_version(self):
        versions = [self.version(number) for number in (1, 2)]

        def replace():
            for version in versions:
                shutil.copy(self.dir / version, self.dir / "new")
                os.rename(self.dir / "new", self.dir / "app.kvpkg")
        replace()
        with meanwhile(replace):
            for _ in range(30):
                self.ok("extract", "app.kvpkg", "-o", "out", "--force")
                seen = {self.read("out/code.k").decode()[4], chr(self.read("out/appModel.kvd")[0]),
                        json.loads(self.read("out/metadata.json"))["Name"]}
                shown = self.json("show", "app.kvpkg")
                model, = (part["sha256"] for part in shown["parts"] if part["name"] == f"/{MODEL_PART}")
                whole = (shown["metadata"]["Name"], shown["code"][4], model)
                self.assertEqual(len(seen), 1)
                self.assertIn(whole, self.wholes(versions))

    def wholes(self, versions):
        if not hasattr(self, "known"):
            self.known = []
            for number, version in enumerate(versions, 1):
                parts = self.json("show", version)["parts"]
                self.known += [(str(number), str(number), part["sha256"]) for part in parts
                               if part["name"] == f"/{MODEL_PART}"]
        return self.known

    def test_a_file_that_is_rewritten_in_place_is_not_taken_for_one(self):
        self.large(16 * MEGABYTE)
        before, failures = self.names(), 0
        with meanwhile(lambda: (os.utime(self.dir / "app.kvpkg"), time.sleep(0.001))):
            for _ in range(5):
                result = self.run_tool("extract", "app.kvpkg")
                failures += result.returncode
                if result.returncode:
                    self.assertEqual(result.stderr.decode(), f"qzapp: app.kvpkg: {MIXED}\n")
                    self.assertEqual(self.names(), before)
        self.assertGreater(failures, 2)

    def test_no_value_of_a_file_that_is_rewritten_is_printed(self):
        self.write("app.k", "x" * (32 * MEGABYTE))
        with meanwhile(lambda: (os.utime(self.dir / "app.k"), time.sleep(0.001))):
            for args in ([], ["--field", "Name"], ["--columns", "Name"]):
                self.fails(1, f"app.k: {MIXED}", "info", *args, "app.k")
            record = self.fails_like(f"app.k: {MIXED}", "info", "--json", "app.k")
            self.assertEqual(json.loads(record), {"file": "app.k", "error": MIXED})

    @unittest.skipIf(why_not(), f"ptrace is not permitted here: {why_not().strip()}")
    def test_each_file_is_opened_once(self):
        self.create("one.kvpkg")
        shutil.copy(EXAMPLE / "heatfield.k", self.dir / "two.k")
        os.mkdir(self.dir / "apps")
        shutil.copy(self.dir / "one.kvpkg", self.dir / "apps/one.kvpkg")
        shutil.copy(self.dir / "two.k", self.dir / "apps/two.k")
        self.write("model.kvd", "model")
        self.write("damaged.kvpkg", self.read("one.kvpkg")[:-9])
        rows = [
            ["extract", "one.kvpkg", "-o", "out"], ["show", "one.kvpkg"], ["diff", "one.kvpkg", "two.k"],
            ["convert", "two.k", "new.kvpkg", "--model", "model.kvd"], ["info", "one.kvpkg", "two.k"],
            ["check", "one.kvpkg", "damaged.kvpkg", "two.k"], ["gallery", "apps", "-o", "g.html"],
            ["info", "apps"], ["check", "apps"], ["parts", "--verify", "one.kvpkg"],
            ["items", "--verify", "one.kvpkg"], ["check", "--repair", "mended.kvpkg", "damaged.kvpkg"],
            ["create", "c.kvpkg", "--code", "two.k", "--model", "model.kvd", "--screenshot", "shot.png"],
            ["edit", "c.kvpkg", "--model", "damaged.kvpkg"],
        ]
        shutil.copy(EXAMPLE / "screenshot.png", self.dir / "shot.png")
        inputs = {"one.kvpkg", "two.k", "model.kvd", "damaged.kvpkg", "apps/one.kvpkg", "apps/two.k", "shot.png"}
        for row in rows:
            subprocess.run(["strace", "-f", "-qq", "-e", "trace=openat,open", "-o", "log", TOOL, *row], cwd=self.dir,
                           capture_output=True)
            opened = re.findall(r'open(?:at\(AT_FDCWD, |\()"([^"]+)".*= \d+$', self.read("log").decode(), re.M)
            opened = [name for name in opened if name in inputs]
            named = {name for name in row if name in inputs} or {"apps/one.kvpkg", "apps/two.k"}
            self.assertEqual(sorted(opened), sorted(named), row)


class WhatWasChecked(MeanwhileTest):
    def test_a_model_that_comes_and_goes_is_taken_whole_or_not(self):
        self.version(1)
        self.write("m", b"new" * 1000)

        def flicker():
            os.rename(self.dir / "m", self.dir / "away")
            os.rename(self.dir / "away", self.dir / "m")
        made = 0
        with meanwhile(flicker):
            for _ in range(40):
                for args in (["create", "app.kvpkg", "--force", "--code", "code"], ["edit", "v1.kvpkg"]):
                    result = self.run_tool(*args, "--model", "m")
                    if result.returncode == 0:
                        made += 1
                        self.assertEqual(self.extracted(args[1], "model"), b"new" * 1000)
        self.assertGreater(made, 10)

    @unittest.skipIf(why_not(), f"ptrace is not permitted here: {why_not().strip()}")
    def test_a_model_that_cannot_be_opened_any_more_is_no_empty_one(self):
        self.version(1)
        self.write("m", b"2" * 200_000)  # as long as the old one
        made = 0
        for call, fault in (("openat", "EACCES"), ("openat", "EIO"), ("fcntl", "EMFILE")):
            for number in range(1, 5):
                shutil.copy(self.dir / "v1.kvpkg", self.dir / "app.kvpkg")
                for args in (["create", "app.kvpkg", "--force", "--code", "code"], ["edit", "app.kvpkg"]):
                    before = self.read("app.kvpkg")
                    run = subprocess.run(["strace", "-f", "-qq", "-o", "log", "-P", "m", "-e",
                                          f"inject={call}:error={fault}:when={number}", TOOL, *args, "--model", "m"],
                                         cwd=self.dir, capture_output=True)
                    row = (call, fault, number, args[0], run)
                    if run.returncode == 0:
                        made += 1
                        self.assertEqual(self.extracted("app.kvpkg", "model"), b"2" * 200_000, row)
                    else:
                        self.assertEqual(self.read("app.kvpkg"), before, row)
        self.assertGreater(made, 3)

    @unittest.skipIf(why_not(), f"ptrace is not permitted here: {why_not().strip()}")
    def test_a_repaired_copy_is_in_its_place_only_if_all_went_well(self):
        self.small("app.kvpkg")
        self.write("out.kvpkg", "old")
        failed = []
        for number, run in self.with_faults("openat", "EMFILE", "check", "--repair", "out.kvpkg", "--force", "app.kvpkg"):
            isNew = self.read("out.kvpkg") != b"old"
            self.assertEqual(isNew, run.returncode == 0, (number, run))
            failed += [number] * (not isNew)
            self.write("out.kvpkg", "old")
        self.assertGreater(len(failed), 5)

    @unittest.skipIf(why_not(), why_not())
    def test_an_edit_is_of_the_file_that_was_compared(self):
        self.write("c.k", "x = 1;\n")
        # Another program replaces the app once the edit has opened it, or has begun to make the new one.
        for delay, hasBegun in ((["-P", "app.kvpkg", "-e", "inject=openat:delay_exit=500000:when=1"], self.has_opened),
                                (["-e", "inject=mkdirat:delay_exit=500000"], lambda _: list(self.dir.glob(".qzapp-*")))):
            with self.subTest(delay):
                (self.dir / self.version(1)).rename(self.dir / "app.kvpkg")
                self.version(2)
                tool = subprocess.Popen(["strace", "-f", "-qq", "-o", "/dev/null", *delay, TOOL, "edit", "app.kvpkg", "--set",
                                         "Name=1", "--code", "c.k"], cwd=self.dir, stderr=subprocess.PIPE, stdout=subprocess.PIPE)
                while not hasBegun(tool.pid) and tool.poll() is None:
                    time.sleep(0.0005)
                os.rename(self.dir / "v2.kvpkg", self.dir / "app.kvpkg")
                output, message = tool.communicate(timeout=60)
                self.assertEqual((tool.returncode, output), (1, b""), message)
                self.assertRegex(message.decode(), "qzapp: app.kvpkg: someone else .*\n$")
                self.assertEqual((self.metadata("app.kvpkg")["Name"], self.extracted("app.kvpkg", "code")),
                                 ("2", b"v = 2;\n"))

    def has_opened(self, tracer):
        """Whether the program that is traced holds the app open."""
        with contextlib.suppress(FileNotFoundError):
            for child in pathlib.Path(f"/proc/{tracer}/task/{tracer}/children").read_text().split():
                if any(os.readlink(link) == str(self.dir / "app.kvpkg") for link in pathlib.Path(f"/proc/{child}/fd").iterdir()):
                    return True
        return False

    @unittest.skipIf(why_not(), why_not())
    def test_what_another_saves_once_a_file_was_opened_is_not_replaced(self):
        self.small("app.kvpkg")
        shutil.copy(self.dir / "app.kvpkg", self.dir / "base.kvpkg")
        self.ok("edit", "base.kvpkg", "--set", "Author=Theirs")
        theirs = self.read("base.kvpkg")
        shutil.copy(self.dir / "app.kvpkg", self.dir / "base.kvpkg")
        for number, args in enumerate([("merge", "base.kvpkg", "app.kvpkg", "-", "-o", "app.kvpkg", "--force"),
                                       ("repack", "--store", "--force", "-", "app.kvpkg")]):
            tool = subprocess.Popen([TOOL, *args], cwd=self.dir, stdin=subprocess.PIPE, stdout=subprocess.DEVNULL,
                                    stderr=subprocess.PIPE)
            while not list(self.dir.glob(".qzapp-*")) and tool.poll() is None:
                time.sleep(0.001)
            self.ok("edit", "app.kvpkg", "--set", f"Version={number}")
            message = tool.communicate(theirs, timeout=60)[1].decode()
            self.assertRegex(message, r"^qzapp: app\.kvpkg: someone else created, changed or removed the file ")
            self.assertEqual(self.metadata("app.kvpkg")["Version"], str(number))

    def test_a_full_disk_has_one_text_whatever_is_being_written(self):
        self.small("a.kvpkg")
        self.write("c.k", "y = 2;\n")
        failed = 0
        for args in (["create", "new.kvpkg", "--force", "--code", "c.k", "--model", "c.k"], ["edit", "a.kvpkg", "--set", "Name=N"],
                     ["edit", "a.kvpkg", "--code", "c.k", "--model", "c.k"], ["extract", "a.kvpkg", "--force", "-o", "new"],
                     ["convert", "c.k", "new.kvpkg", "--force", "--model", "c.k"], ["gallery", "a.kvpkg", "--force", "-o", "new.html"],
                     ["check", "a.kvpkg", "--force", "--repair", "new.kvpkg"]):
            for call in "pwrite64", "copy_file_range":
                self.small("a.kvpkg", "--force")  # or the edit would have nothing to change
                for number, run in self.with_faults(call, "ENOSPC", *args):
                    if run.returncode == 0:  # it was tried in another way
                        continue
                    self.assertRegex(run.stderr.decode(), r"^qzapp: [\w./]+: cannot write: No space left on device(;.*)?\n$",
                                     (args, call, number))
                    failed += 1
        self.assertGreater(failed, 20)


    @unittest.skipIf(why_not(), why_not())
    def test_a_file_that_cannot_be_read_is_named_once_and_as_the_user_named_it(self):
        self.small("a.kvpkg")
        self.write("c.k", "x = 1;\n")
        for args in (["edit", "a.kvpkg", "--set", "Name=N"], ["edit", "a.kvpkg", "--model", "c.k"],
                     ["extract", "a.kvpkg", "--force", "-o", "new"], ["gallery", "a.kvpkg", "--force", "-o", "new.html"],
                     ["check", "a.kvpkg", "--force", "--repair", "new.kvpkg"], ["parts", "--verify", "a.kvpkg"],
                     ["convert", "c.k", "new.kvpkg", "--force", "--model", "c.k"], ["info", "a.kvpkg"], ["info", "c.k"],
                     ["diff", "a.kvpkg", "c.k"], ["show", "a.kvpkg"]):
            for number, run in self.with_faults("pread64", "EIO", *args):
                for line in run.stderr.decode().splitlines():
                    self.assertNotRegex(line, r"/proc/|([\w.]+\.\w+): .*\1", (args, number))


class ExtractMeanwhile(MeanwhileTest):
    def plant(self, _):
        (self.dir / "out/metadata.json").symlink_to(self.dir / "victim")

    def test_what_others_put_there_is_neither_followed_nor_replaced(self):
        self.large()
        self.write("victim", "theirs")
        for names in ([], FILES[:2]):
            shutil.rmtree(self.dir / "out", ignore_errors=True)
            (self.dir / "out").mkdir()
            for name in names:
                self.write(f"out/{name}", f"old {name}")
                os.chmod(self.dir / "out" / name, 0o640)
            self.assertEqual(self.when_working("out", self.plant, "extract", "app.kvpkg", "-o", "out", "--force"), (
                1, "qzapp: out/metadata.json: was made, changed or removed by another program meanwhile; nothing "
                "is written, try again\n"))
            self.assertEqual(self.read("victim"), b"theirs")
            self.assertEqual(self.names("out"), sorted([*names, "metadata.json"]))
            for name in names:
                self.assertEqual(self.read(f"out/{name}"), f"old {name}".encode())

    def test_a_folder_that_appears_is_left_alone(self):
        self.large()
        status, message = self.when_working(".", lambda _: (self.dir / "out").mkdir(), "extract", "app.kvpkg", "-o",
                                            "out/deep")
        self.assertEqual((status, message), (1, "qzapp: out/deep: was made by another program meanwhile; try again\n"))
        self.assertEqual((self.names(), self.names("out")), (["app.kvpkg", "out", "s.k", "s.kvd"], []))

    def test_a_signal_leaves_nothing(self):
        self.large()
        (self.dir / "there").mkdir()
        self.write("there/code.k", "old")
        before = self.names()
        for args, folder in ((["-o", "a/b/c"], "."), (["-o", "there", "--force"], "there")):
            for number in (signal.SIGTERM, signal.SIGINT, signal.SIGHUP):
                status, _ = self.when_working(folder, lambda tool: tool.send_signal(number), "extract", "app.kvpkg",
                                              *args)
                self.assertEqual(status, -number)
                self.assertEqual((self.names(), self.names("there")), (before, ["code.k"]))
        self.assertEqual(self.read("there/code.k"), b"old")

    @unittest.skipIf(why_not(), f"ptrace is not permitted here: {why_not().strip()}")
    def test_a_rename_that_fails_takes_the_others_back(self):
        self.small("app.kvpkg")
        (self.dir / "out").mkdir()
        for old in ([], FILES[:2], FILES):
            for fault in ("error=EIO", "signal=SIGTERM:error=EIO"):
                for number in (1, 2, 3):
                    for name in FILES:
                        (self.dir / "out" / name).unlink(missing_ok=True)
                    for name in old:
                        self.write(f"out/{name}", f"old {name}")
                    run = subprocess.run(["strace", "-f", "-qq", "-o", "log", "-e", "trace=renameat2", "-e",
                                          f"inject=renameat2:{fault}:when={number}", TOOL, "extract", "app.kvpkg",
                                          "-o", "out", "--force"], cwd=self.dir, capture_output=True)
                    self.assertNotEqual(run.returncode, 0)
                    self.assertEqual(self.names("out"), sorted(old), (old, fault, number, run))
                    for name in old:
                        self.assertEqual(self.read(f"out/{name}"), f"old {name}".encode())

    @unittest.skipIf(why_not(), f"ptrace is not permitted here: {why_not().strip()}")
    def test_one_that_cannot_be_taken_back_does_not_keep_the_others_from_it(self):
        self.small("app.kvpkg")
        (self.dir / "out").mkdir()
        for name in FILES:
            self.write(f"out/{name}", f"old {name}")
        run = subprocess.run(["strace", "-f", "-qq", "-o", "log", "-e", "trace=renameat2", "-e",
                              "inject=renameat2:error=EIO:when=3..4", TOOL, "extract", "app.kvpkg", "-o", "out",
                              "--force"], cwd=self.dir, capture_output=True)
        kept, = (name for name in os.listdir(self.dir / "out") if name.startswith("."))
        self.assertRegex(run.stderr.decode(), "^qzapp: out: holds only some of the new files, because of this: .*; the files "
                         rf"that they replaced are in its folder {re.escape(kept)}\n$")
        new = [name for name in FILES if self.read(f"out/{name}") != f"old {name}".encode()]
        self.assertEqual(len(new), 1, run)
        self.assertEqual(self.read(f"out/{kept}/{new[0]}"), f"old {new[0]}".encode())

    @unittest.skipIf(why_not(), f"ptrace is not permitted here: {why_not().strip()}")
    def test_a_file_system_with_plain_renames_only_is_enough(self):
        self.small("app.kvpkg")
        for folder in ("new/folder", "new/folder"):  # the second time it is there
            run = subprocess.run(["strace", "-f", "-qq", "-o", "log", "-e", "trace=renameat2", "-e",
                                  "inject=renameat2:error=EINVAL:when=1+2", TOOL, "extract", "app.kvpkg", "-o", folder,
                                  "--force"], cwd=self.dir, capture_output=True)
            self.assertEqual((run.returncode, run.stderr), (0, b""))
            self.assertEqual(self.names(folder), sorted(FILES))
            self.assertEqual(self.read(f"{folder}/appModel.kvd"), b"\0\1\2model")

    def test_a_link_is_a_folder_only_by_name(self):
        self.small("app.kvpkg")
        (self.dir / "elsewhere").mkdir()
        (self.dir / "app").symlink_to("elsewhere")
        self.fails(1, "app: is a symbolic link, which leads elsewhere; name a folder with -o", "extract", "app.kvpkg")
        self.ok("extract", "app.kvpkg", "-o", "app")
        self.assertEqual(self.names("elsewhere"), sorted(FILES))

    @unittest.skipIf(os.getuid() != 0, "only root can make links for others")
    def test_no_link_that_another_user_put_into_a_directory_for_all_is_followed(self):
        self.small("app.kvpkg")
        for folder in ("all", "victim"):
            (self.dir / folder).mkdir()
        link = self.dir / "all/link"
        link.symlink_to("../victim")
        (self.dir / "own").symlink_to("all/link/")
        (self.dir / "all").chmod(0o1777)
        os.lchown(link, 65534, 65534)
        for folder in ("all/link", "all/link/", "own", "all/link/new"):
            self.fails(1, f"{folder}: is another user's symbolic link, in a directory where everybody may put one "
                       "(choose another with -o): Permission denied", "extract", "app.kvpkg", "-o", folder, "--force")
        self.assertEqual(self.names("victim"), [])
        os.lchown(link, 0, 0)
        for folder in ("all/link", "own", "own/new"):
            self.ok("extract", "app.kvpkg", "-o", folder, "--force")
        self.assertEqual(self.names("victim"), sorted([*FILES, "new"]))


class Interrupted(MeanwhileTest):
    @unittest.skipIf(why_not(), f"ptrace is not permitted here: {why_not().strip()}")
    def test_a_private_folder_that_is_filled_as_fast_as_it_is_emptied_is_left(self):
        self.small("app.kvpkg")
        self.ok("extract", "app.kvpkg", "-o", "out")
        run = subprocess.run(["strace", "-f", "-qq", "-o", "log", "-e", "trace=unlinkat", "-e",
                              "inject=unlinkat:retval=0", TOOL, "extract", "app.kvpkg", "-o", "out", "--force"],
                             cwd=self.dir, capture_output=True, timeout=60)
        left, = (name for name in self.names("out") if name not in FILES)
        self.assertEqual((run.returncode, run.stderr.decode()), (0, self.left(f"out/{left}")))

    def left(self, folder):
        return f"qzapp: {self.dir.resolve()}/{folder}: this folder for temporary files cannot be removed; remove it\n"

    @unittest.skipIf(why_not(), f"ptrace is not permitted here: {why_not().strip()}")
    def test_a_private_folder_that_cannot_be_removed_is_told(self):
        self.small("app.kvpkg")
        self.ok("extract", "app.kvpkg", "-o", "out")
        for folder, *args in (("out", "extract", "app.kvpkg", "-o", "out", "--force"),
                              (".", "edit", "app.kvpkg", "--set", "Name=N"),
                              (".", "create", "new.kvpkg", "--code", "s.k", "--model", "s.kvd")):
            run = subprocess.run(["strace", "-f", "-qq", "-o", "/dev/null", "-e", "trace=unlinkat", "-e",
                                  "inject=unlinkat:error=EPERM", TOOL, *args], cwd=self.dir, capture_output=True)
            left, = (name for name in self.names(folder) if name.startswith(".qzapp-"))
            self.assertEqual((run.returncode, run.stderr.decode()), (0, self.left(os.path.normpath(f"{folder}/{left}"))))
            shutil.rmtree(self.dir / folder / left)
        self.assertEqual(self.metadata("app.kvpkg")["Name"], "N")

    @unittest.skipIf(why_not(), f"ptrace is not permitted here: {why_not().strip()}")
    def test_a_folder_that_was_put_in_the_place_of_the_private_one_is_left_alone(self):
        self.small("app.kvpkg")
        (self.dir / "out").mkdir()
        existing, new, edit = (("out", "extract", "app.kvpkg", "-o", "out"), (".", "extract", "app.kvpkg", "-o", "new"),
                               (".", "edit", "app.kvpkg", "--set", "Name=N"))
        rows = [("holds a file", row) for row in (existing, new, edit)]
        rows += [("is open to all", row) for row in (existing, edit)]
        if os.getuid() == 0:
            rows += [("is another user's", row) for row in (existing, new, edit)]
        for theirs, (folder, *args) in rows:
            with self.subTest(theirs, args=args):
                self.exchange(theirs, folder, args)

        # after it was opened and before it is renamed
        self.exchange("is open to all", new[0], new[1:], "renameat2:delay_enter")

    def exchange(self, theirs, folder, args, moment="mkdirat:delay_exit"):
        before, old = self.read("app.kvpkg"), self.names()
        other = self.dir / "theirs"
        other.mkdir(mode=0o700)
        if theirs == "holds a file":
            self.write("theirs/file", "theirs")
        elif theirs == "is open to all":
            other.chmod(0o777)
        else:
            os.chown(other, 65534, 65534)
        with subprocess.Popen(["strace", "-f", "-qq", "-o", "/dev/null", "-e", f"trace={moment.split(':')[0]}", "-e",
                               f"inject={moment}=500000", TOOL, *args], cwd=self.dir,
                              stdout=subprocess.DEVNULL, stderr=subprocess.PIPE) as run:
            while not (made := list((self.dir / folder).glob(".qzapp-*"))):
                self.assertIsNone(run.poll())
                time.sleep(0.0005)
            time.sleep(0.2)  # until the tool waits
            made[0].rename(self.dir / "moved")
            other.rename(made[0])
            message = run.communicate(timeout=60)[1].decode()
        self.assertEqual(run.returncode, 1)
        self.assertRegex(message, "^qzapp: (out|new|app.kvpkg): another program put a folder in the place of a new "
                         r"one; try again: File exists\n$")
        if theirs == "holds a file":
            self.assertEqual((made[0] / "file").read_text(), "theirs")
            shutil.rmtree(made[0])
        (self.dir / "moved").rmdir()
        self.assertEqual((self.read("app.kvpkg"), self.names(), self.names("out")), (before, old, []))

    def test_private_folders_go_wherever_a_link_leads_by_then(self):
        self.write("c.k", "x")
        with open(self.dir / "big", "wb") as big:
            big.truncate(400 << 30)
        for folder in ("a", "b"):
            (self.dir / folder).mkdir()
        (self.dir / "link").symlink_to("a")

        def switch(tool):
            (self.dir / "other").symlink_to("b")
            os.rename(self.dir / "other", self.dir / "link")
            tool.send_signal(signal.SIGINT)
        status, _ = self.when_working("a", switch, "create", "link/x.kvpkg", "--code", "c.k", "--model", "big")
        self.assertEqual((status, self.names("a"), self.names("b")), (-signal.SIGINT, [], []))
