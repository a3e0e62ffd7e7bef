import json
import os
import shutil
import signal
import subprocess
import time
import unittest
import zipfile

from support import EXAMPLE, FIELD_LIST, FIELDS, MODEL_PART, QZAPP, ToolTest

VERBS = "create, edit, convert, info, show, diff, gallery, extract, parts, items, check"


class Create(ToolTest):
    def test_what_goes_in_comes_out(self):
        out = self.create()
        want = json.loads((EXAMPLE / "metadata.json").read_text())
        got = self.metadata(out)
        self.assertEqual(list(got), FIELDS)
        self.assertEqual({**got, **want}, got)
        self.assertEqual(self.info(out)["screenshot"], {
            "format": "png", "bytes": (EXAMPLE / "screenshot.png").stat().st_size})
        with zipfile.ZipFile(self.dir / out) as package:
            self.assertEqual(package.read(MODEL_PART), (EXAMPLE / "appModel.kvd").read_bytes())

    def test_other_programs_accept_the_file(self):
        out = self.create()
        with zipfile.ZipFile(self.dir / out) as package:
            self.assertIsNone(package.testzip())
            xml = [n for n in package.namelist() if n.endswith((".xml", ".rels"))]
            package.extractall(self.dir / "all")
        self.assertGreaterEqual(len(xml), 4)
        for command in (["unzip", "-tq", out], ["bsdtar", "-tf", out],
                        ["xmllint", "--noout", *(f"all/{n}" for n in xml)]):
            subprocess.run(command, cwd=self.dir, check=True, capture_output=True)

    def test_defaults_and_odd_values(self):
        odd = "  a=b \"q\" ]]> <&>\t𝄞\r\nzwei\r"
        out = self.small("o.kvpkg", "--set", f"Name={odd}", "--set", "Summary=",
                         "--set", "UserComponents=", "--set", "UserComponents=-x", "--set",
                         "UserComponents=[a,b]")
        got = self.metadata(out)
        self.assertEqual(got["Name"], odd)
        self.assertEqual(got["UserComponents"], ["", "-x", "[a,b]"])
        self.assertEqual([got[f] for f in ("Version", "AppType", "KVPKGVersion", "ScreenshotMode")],
                         ["1.0", "Standard", "1", "auto"])
        self.assertIsNone(self.info(out)["screenshot"])

    def test_the_command_line_goes_before_the_metadata_file(self):
        self.write("m.json", '{"Name": "file", "Author": "file", "UserComponents": ["file"]}')
        out = self.small("m.kvpkg", "--metadata", "m.json", "--set", "Name=line", "--set",
                         "UserComponents=line")
        got = self.metadata(out)
        self.assertEqual((got["Name"], got["Author"], got["UserComponents"]),
                         ("line", "file", ["line"]))

    def test_source_date_epoch_fixes_the_bytes(self):
        for name in ("a.kvpkg", "b.kvpkg"):
            self.ok("create", name, "--code", EXAMPLE / "code.k", "--model", EXAMPLE / "appModel.kvd",
                    env={"SOURCE_DATE_EPOCH": "1000000000"})
        self.assertEqual(self.read("a.kvpkg"), self.read("b.kvpkg"))
        parts = json.loads(self.ok("parts", "--json", "a.kvpkg"))
        self.assertEqual(parts["coreProperties"]["modified"], "2001-09-09T01:46:40Z")
        self.fails(2, 'SOURCE_DATE_EPOCH: expected seconds since 1970, found "soon"; correct or unset it',
                   "info", "a.kvpkg", env={"SOURCE_DATE_EPOCH": "soon"})

    def test_an_existing_file_is_replaced_only_by_force(self):
        self.small("a.kvpkg")
        before = self.read("a.kvpkg")
        os.chmod(self.dir / "a.kvpkg", 0o640)
        (self.dir / "link.kvpkg").symlink_to("nowhere")
        for name in ("a.kvpkg", "link.kvpkg"):
            self.fails(1, f"{name}: exists already; give --force to replace it", "create", name,
                       "--code", "s.k", "--model", "s.kvd")
        self.assertEqual(self.read("a.kvpkg"), before)
        self.create("a.kvpkg", "--force")
        self.assertEqual((self.dir / "a.kvpkg").stat().st_mode & 0o777, 0o640)
        self.assertEqual(self.metadata("a.kvpkg")["Name"], "Wärmefeld")

    def test_wrong_command_lines(self):
        self.write("c.k", "x")
        self.write("m.kvd", "m")
        rest = ["--code", "c.k", "--model", "m.kvd"]
        rows = [
            (["create", "a.zip", *rest], 'a.zip: the name of a packaged app must end in ".kvpkg"; choose another'),
            (["create", ".kvpkg", *rest], '.kvpkg: the name of a packaged app must end in ".kvpkg"; choose another'),
            (["create", "a.kvpkg", "--code", "c.k"],
             'create: --model is required; see "qzapp create --help"'),
            (["create", "a.kvpkg", *rest, "--set", "Name"],
             '--set: expected Field=Value, found "Name"'),
            (["create", "a.kvpkg", *rest, "--set", "name=x"],
             f'--set: "name" is no metadata field; the fields are {FIELD_LIST}'),
            (["create", "a.kvpkg", *rest, "--set", "Name=x", "--set", "Name=y"],
             "--set: Name is given twice and is no list; give one value"),
            (["create", "a.kvpkg", *rest, "--set", b"Name=a\xff"],
             '--set: "a\ufffd" is not valid UTF-8 at byte 1; use a UTF-8 locale'),
            (["create", b"\xff.kvpkg", *rest],
             "\ufffd.kvpkg: the file's name is not valid UTF-8 at byte 0; rename the file"),
            (["pack"], f'"pack" is no verb; the verbs are {VERBS}; see "qzapp --help"'),
            (["--vers"], '"--vers" is no option; see "qzapp --help"'),
            (["info", "--jsn"], 'info: "--jsn" is no option; see "qzapp info --help"'),
            (["items", "a.kvpkg", "-"], 'items: "-" is one argument too many; see "qzapp items --help"'),
            (["show", "a.k", "b.k"], 'show: "b.k" is one argument too many; see "qzapp show --help"'),
            ([], f'a verb is missing, one of {VERBS}; see "qzapp --help"'),
        ]
        for args, message in rows:
            with self.subTest(args=args):
                self.fails(2, message, *args)
        self.assertEqual(self.names(), ["c.k", "m.kvd"])

    def test_bad_inputs_leave_nothing_behind(self):
        self.write("c.k", "x")
        self.write("m.kvd", "m")
        self.write("bad.k", b"line\nab\xe2\x82")
        self.write("shot.bmp", "")
        (self.dir / "folder").mkdir()
        os.mkfifo(self.dir / "fifo")
        before = self.names()
        good = {"--code": "c.k", "--model": "m.kvd"}
        rows = [
            ("--code", "no.k", "no.k: there is no such file; check the name"),
            ("--code", "bad.k",
             "bad.k: not valid UTF-8 at byte 7 (line 2, column 3); save it as UTF-8"),
            ("--code", "folder", "folder: is a directory; give the name of a file"),
            ("--code", "fifo", "fifo: is not a regular file; copy its content into one"),
            ("--model", "no.kvd", "no.kvd: there is no such file; check the name"),
            ("--model", "fifo", "fifo: is not a regular file; copy its content into one"),
            ("--screenshot", "shot.bmp", "shot.bmp: expected an image whose name ends in .png, "
             ".jpg, .jpeg or .gif; convert it first"),
        ]
        for option, value, message in rows:
            with self.subTest(option=option, value=value):
                args = [a for pair in {**good, option: value}.items() for a in pair]
                self.fails(1, message, "create", "a.kvpkg", *args)
        self.assertEqual(self.names(), before)

    def test_text_that_xml_cannot_hold_is_refused_by_field(self):
        self.write("m.json", '{"Author": "a\\u0001"}')
        self.small("ok.kvpkg")
        before = self.names()
        result = self.run_tool("create", "a.kvpkg", "--code", "s.k", "--model", "s.kvd",
                               "--metadata", "m.json")
        self.assertEqual(result.returncode, 1)
        self.assertRegex(result.stderr.decode(), r"^qzapp: a\.kvpkg: .*Author.*\n$")
        self.assertNotIn(".qzapp-", result.stderr.decode())
        self.assertEqual(self.names(), before)

    def test_metadata_files_are_judged_field_by_field(self):
        self.write("c.k", "x")
        rows = [
            ('{"name": "x"}', f'"name" is no metadata field; the fields are {FIELD_LIST}'),
            ('{"Name": "x", "Name": "x"}', '"Name" is given twice; give it once'),
            ('{"Name": 1}', '"Name" must be a string, found a number'),
            ('{"Name": null}', '"Name" must be a string, found null'),
            ('{"Name": ["x"]}', '"Name" must be a string, found an array'),
            ('{"UserComponents": "x"}', '"UserComponents" must be an array of strings, found a string'),
            ('{"UserComponents": ["x", {}]}',
             '"UserComponents" must be an array of strings, found an object in the array'),
            ('["Name"]', "expected an object of metadata fields, found an array"),
            ('{"Name": "x",\n "Author" "y"}', 'not valid JSON at line 2, column 11: unexpected "y"'),
            ('{"Name": "x \\" y",\n "Author": "z"\n ;}', "not valid JSON at line 3, column 2: unexpected ;"),
            ('{"Name": "x"} trux', "not valid JSON at line 1, column 15: unexpected trux"),
            ('{"Name": "x"', "not valid JSON at line 1, column 13: unexpected end of the file"),
            ("", "not valid JSON at line 1, column 1: unexpected end of the file"),
            (b'{"Name": "\xff"}', "not valid UTF-8 at byte 10 (line 1, column 11); save it as UTF-8"),
            ('{"Name": "\\ud800"}', None),
            ("[" * 200000, "expected an object of metadata fields, found an array"),
        ]
        for text, message in rows:
            with self.subTest(text=text[:40]):
                self.write("m.json", text)
                args = ["create", "a.kvpkg", "--code", "c.k", "--model", "c.k", "--metadata", "m.json"]
                if message:
                    self.fails(1, f"m.json: {message}", *args)
                else:
                    self.assertEqual(self.run_tool(*args).returncode, 1)
        self.assertEqual(self.names(), ["c.k", "m.json"])

    def test_one_input_may_be_standard_input(self):
        self.write("c.k", "x = 1;\n")
        model = os.urandom(1 << 20)
        self.ok("create", "a.kvpkg", "--code", "c.k", "--model", "-", input=model)
        self.assertEqual(self.extracted("a.kvpkg", "model"), model)
        self.ok("edit", "a.kvpkg", "--code", "-", input="y = 2;\r\n".encode())
        self.ok("edit", "a.kvpkg", "--metadata", "-", input=b'{"Name": "in"}')
        self.assertEqual(self.extracted("a.kvpkg", "code"), b"y = 2;\r\n")
        self.assertEqual(self.metadata("a.kvpkg")["Name"], "in")
        self.ok("convert", "c.k", "b.kvpkg", "--model", "-", input=model)
        self.assertEqual(self.extracted("b.kvpkg", "model"), model)
        before, names = self.read("a.kvpkg"), self.names()
        rows = [
            (2, "-: standard input can be one file only; name the others",
             ["--code", "-", "--model", "-"], b"x"),
            (1, "standard input: holds nothing; check the program that writes to it",
             ["--model", "-"], b""),
            (1, "standard input: not valid UTF-8 at byte 1 (line 1, column 2); save it as UTF-8",
             ["--code", "-"], b"x\xff"),
        ]
        for status, message, args, given in rows:
            self.fails(status, message, "edit", "a.kvpkg", *args, input=given)
        self.fails(1, "standard input: cannot be kept in none (No such file or directory); name a folder "
                   "with room in TMPDIR", "edit", "a.kvpkg", "--code", "-", input=b"x", env={"TMPDIR": "none"})
        self.assertEqual((self.read("a.kvpkg"), self.names()), (before, names))

    def test_a_small_stack_is_enough(self):
        command = f"ulimit -s 128 && exec '{QZAPP}' create s.kvpkg --code '{EXAMPLE}/code.k' " \
                  f"--model '{EXAMPLE}/appModel.kvd' --metadata '{EXAMPLE}/metadata.json'"
        subprocess.run(["bash", "-c", command], cwd=self.dir, check=True, capture_output=True)


class Interrupted(ToolTest):
    def test_a_full_disk_and_signals_leave_the_old_file(self):
        self.small("a.kvpkg")
        before = self.read("a.kvpkg")
        with open(self.dir / "big.kvd", "wb") as big:
            big.write(os.urandom(8 << 20))
        command = f"ulimit -f 2048; exec '{QZAPP}' create a.kvpkg --force --code s.k --model big.kvd"
        result = subprocess.run(["bash", "-c", command], cwd=self.dir, capture_output=True)
        self.assertEqual(result.returncode, 1, result.stderr)
        self.assertRegex(result.stderr.decode(), r"^qzapp: a\.kvpkg: .*File too large.*\n$")
        self.assertEqual(self.read("a.kvpkg"), before)
        self.assertEqual(self.names(), ["a.kvpkg", "big.kvd", "s.k", "s.kvd"])

    def test_a_full_disk_names_the_reason_when_extracting(self):
        self.write("big.kvd", os.urandom(8 << 20))
        self.write("s.k", "x")
        self.ok("create", "a.kvpkg", "--code", "s.k", "--model", "big.kvd")
        result = subprocess.run(["bash", "-c", f"ulimit -f 2048; exec '{QZAPP}' extract a.kvpkg"],
                                cwd=self.dir, capture_output=True)
        self.assertEqual(result.returncode, 1)
        self.assertRegex(result.stderr.decode(), r"^qzapp: a\.kvpkg: .*File too large.*\n$")
        self.assertEqual(self.names(), ["a.kvpkg", "big.kvd", "s.k"])

    def test_kill_leaves_the_old_file_or_the_new(self):
        self.create("old.kvpkg")
        self.write("big.kvd", os.urandom(24 << 20))
        rest = ["--model", "big.kvd", "--set", "Name=new"]
        for args in [["create", "a.kvpkg", "--force", "--code", EXAMPLE / "code.k", *rest],
                     ["edit", "a.kvpkg", *rest],
                     ["edit", "a.kvpkg", "--code", EXAMPLE / "code.k", "--remove-screenshot", *rest]]:
            shutil.copy(self.dir / "old.kvpkg", self.dir / "a.kvpkg")
            start = time.monotonic()
            self.ok(*args)
            whole = time.monotonic() - start
            for part in (0.3, 0.5, 0.7, 0.9):
                shutil.copy(self.dir / "old.kvpkg", self.dir / "a.kvpkg")
                tool = subprocess.Popen([QZAPP, *args], cwd=self.dir, stdout=subprocess.DEVNULL)
                time.sleep(whole * part)
                tool.kill()
                tool.wait()
                if self.read("a.kvpkg") != self.read("old.kvpkg"):
                    self.ok("parts", "--verify", "a.kvpkg")
                    self.assertEqual(self.metadata("a.kvpkg")["Name"], "new")

    def test_signals_remove_the_working_file(self):
        self.small("a.kvpkg")
        before, names = self.read("a.kvpkg"), self.names() + ["big.kvd"]
        with open(self.dir / "big.kvd", "wb") as big:
            big.truncate(40 << 30)  # takes long enough to be interrupted
        for number in (signal.SIGINT, signal.SIGTERM):
            tool = subprocess.Popen([QZAPP, "create", "a.kvpkg", "--force", "--code", "s.k", "--model",
                                     "big.kvd"], cwd=self.dir)
            deadline = time.monotonic() + 30
            while not list(self.dir.glob(".qzapp-*")) and time.monotonic() < deadline:
                time.sleep(0.01)
            tool.send_signal(number)
            self.assertEqual(tool.wait(30), -number)
            self.assertEqual(self.read("a.kvpkg"), before)
            self.assertEqual(self.names(), sorted(names))


if __name__ == "__main__":
    unittest.main()
