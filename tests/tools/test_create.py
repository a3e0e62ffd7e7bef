"""create, and what all verbs do with wrong command lines."""

import json
import os
import pty
import signal
import subprocess
import unittest

from support import EXAMPLE, FIELD_LIST, FIELDS, MODEL_PART, TOOL, ToolTest

VERBS = "create, edit, convert, info, show, diff, gallery, extract, parts, items, check, index, find, merge, git-setup, repack"


class Create(ToolTest):
    def test_what_goes_in_comes_out_and_other_programs_accept_it(self):
        out = self.create()
        want = json.loads((EXAMPLE / "metadata.json").read_text())
        got = self.metadata(out)
        self.assertEqual(list(got), FIELDS)
        self.assertEqual({**got, **want}, got)
        self.assertEqual(self.json("info", out)["screenshot"], {
            "format": "png", "bytes": (EXAMPLE / "screenshot.png").stat().st_size})
        items = self.items(out)
        self.assertEqual(items[MODEL_PART], (EXAMPLE / "appModel.kvd").read_bytes())
        for name, content in items.items():
            if name.endswith((".xml", ".rels")):
                subprocess.run(["xmllint", "--noout", "-"], input=content, check=True)
        for command in (["unzip", "-tq", out], ["bsdtar", "-tf", out]):
            subprocess.run(command, cwd=self.dir, check=True, capture_output=True)

    def test_fields_have_defaults_and_the_command_line_goes_before_the_file(self):
        odd = "  a=b \"q\" ]]> <&>\t𝄞\r\nzwei\r"
        self.write("m.json", '{"Name": "file", "Author": "file", "UserComponents": ["file"]}')
        out = self.small("o.kvpkg", "--metadata", "m.json", "--set", f"Name={odd}", "--set", "UserComponents=",
                         "--set", "UserComponents=-x", "--set", "UserComponents=[a,b]")
        got = self.metadata(out)
        self.assertEqual((got["Name"], got["Author"]), (odd, "file"))
        self.assertEqual(got["UserComponents"], ["", "-x", "[a,b]"])
        self.assertEqual([got[f] for f in ("Version", "AppType", "KVPKGVersion", "ScreenshotMode")],
                         ["1.0", "Standard", "1", "auto"])
        self.assertIsNone(self.json("info", out)["screenshot"])

    def test_source_date_epoch_fixes_the_bytes(self):
        for name in ("a.kvpkg", "b.kvpkg"):
            self.ok("create", name, "--code", EXAMPLE / "code.k", "--model", EXAMPLE / "appModel.kvd",
                    env={"SOURCE_DATE_EPOCH": "1000000000"})
        self.assertEqual(self.read("a.kvpkg"), self.read("b.kvpkg"))
        self.assertEqual(self.json("parts", "a.kvpkg")["coreProperties"]["modified"], "2001-09-09T01:46:40Z")

    def test_an_existing_file_is_replaced_only_by_force(self):
        self.small("a.kvpkg")
        (self.dir / "link.kvpkg").symlink_to("nowhere")
        before = self.read("a.kvpkg")
        for name in ("a.kvpkg", "link.kvpkg"):
            self.fails(1, f"{name}: already exists; give --force to replace it", "create", name,
                       "--code", "s.k", "--model", "s.kvd")
        self.assertEqual(self.read("a.kvpkg"), before)
        self.create("a.kvpkg", "--force")
        self.assertEqual(self.metadata("a.kvpkg")["Name"], "Wärmefeld")

    def test_no_output_takes_the_place_of_an_input(self):
        inputs = {"c.k": b"x = 1;\n", "m.kvd": b"model", "m.json": b"{}", "s.png": (EXAMPLE / "screenshot.png").read_bytes(),
                  "e/code.k": b"y = 2;\n"}
        (self.dir / "e").mkdir()
        for name, content in inputs.items():
            self.write(name, content)
        rows = [(args, name, link) for args, names in (
            (["create", "o.kvpkg", "--force", "--code", "c.k", "--model", "m.kvd", "--metadata", "m.json",
              "--screenshot", "s.png"], ["c.k", "m.kvd", "m.json", "s.png"]),
            (["convert", "c.k", "o.kvpkg", "--force", "--model", "m.kvd"], ["c.k", "m.kvd"]),
        ) for name in names for link in (os.symlink, os.link)]
        for args, name, link in rows:
            with self.subTest(args=args[0], name=name, link=link):
                link(self.dir / name, self.dir / "o.kvpkg")
                self.fails(2, f"o.kvpkg: is the same file as the input {name}; name another file", *args)
                if name != "s.png":
                    with open(self.dir / name, "rb") as standard_input:
                        self.fails(2, "o.kvpkg: is the same file as the input standard input; name another file",
                                   *("-" if arg == name else arg for arg in args), stdin=standard_input)
                self.assertEqual(self.read(name), inputs[name])
                (self.dir / "o.kvpkg").unlink()
        (self.dir / "e/metadata.json").hardlink_to(self.dir / "e/code.k")
        self.fails(2, "e/metadata.json: is the same file as the input e/code.k; name another file", "extract", "e/code.k", "-o",
                   "e", "--force", "--only", "metadata")
        self.assertEqual(self.names("e"), ["code.k", "metadata.json"])
        self.small("a.kvpkg")
        self.fails(2, "a.kvpkg: is the same file as the input a.kvpkg; name another file", "edit", "a.kvpkg", "--model", "a.kvpkg")
        before = self.read("a.kvpkg")
        for name in ("a.kvpkg", "-"):
            for args in (["repack", "--store", name, "-"], ["check", "--repair", "-", name], ["extract", name, "-o", "-", "--only", "code"],
                         ["create", "-", "--model", name, "--code", "c.k"]):
                with self.subTest(args), open(self.dir / "a.kvpkg", "r+b") as file:
                    result = self.run_tool(*args, stdin=file, stdout=file)
                    self.assertEqual(result.stderr.decode(), "qzapp: standard output: is the same file as the input "
                                     f"{'standard input' if name == '-' else name}; name another file\n")
                    self.assertEqual((result.returncode, self.read("a.kvpkg")), (2, before))

    def test_wrong_command_lines(self):
        self.write("c.k", "x")
        create = ["create", "a.kvpkg", "--code", "c.k", "--model", "c.k"]
        rows = [
            (create[:4], 'create: --model is required; see "qzapp create --help"'),
            ([*create, "--set", "Kind=x"], f'create: --set: unknown metadata field "Kind"; the fields are {FIELD_LIST}'),
            ([*create, "--set", "autor=x"], 'create: --set: unknown metadata field "autor"; did you mean "Author"?'),
            (["info", "--table=Name", "x.k"], 'info: --table takes no value; see "qzapp info --help"'),
            ([*create, "--set"], 'create: --set needs a value: --set FIELD=VALUE; see "qzapp create --help"'),
            ([*create, "--code", "c.k"], 'create: --code is given 2 times; give it once; see "qzapp create --help"'),
            ([*create, "--set", "Name=a", "--set"],
             'create: --set needs a value: --set FIELD=VALUE; see "qzapp create --help"'),
            ([*create, "--set", "--model"], 'create: --set needs a value: --set FIELD=VALUE; see "qzapp create --help"'),
            (["create", "a.kvpkg", "--code", "--model", "c.k"],
             'create: --code needs a value: --code FILE; see "qzapp create --help"'),
            (["info", "--"], 'info: FILE is required; see "qzapp info --help"'),
            (["diff", "--", "a", "b", "c"], 'diff: unexpected argument "c"; see "qzapp diff --help"'),
            (["diff", "a", "--", "b", "-c"], 'diff: unexpected argument "-c"; see "qzapp diff --help"'),
            (["--threads", "2", "info", "c.k"], '"--threads" stands before the verb; put it behind "info"'),
            (["--", "info"], f'expected a verb, one of {VERBS}; see "qzapp --help"'),
            (["check", "--", "c.k", "--json"], 'check: "--json" stands behind "--", so it is taken for a file, and there '
                                               'is none of that name; put it before "--"'),
            (["create", b"\xff.kvpkg", *create[2:]],
             "\ufffd.kvpkg: the file's name is not valid UTF-8 at byte 0; rename the file"),
            (["pack"], f'unknown verb "pack"; the verbs are {VERBS}; see "qzapp --help"'),
            (["chekc"], 'unknown verb "chekc"; did you mean "check"?'),
            (["pack", "--help"], f'unknown verb "pack"; the verbs are {VERBS}; see "qzapp --help"'),
            (["help", "inof"], 'unknown verb "inof"; did you mean "info"?'),
            (["items", "--vers", "a.kvpkg"], 'items: unknown option "--vers"; see "qzapp items --help"'),
            (["items", "--JSN=x", "a.kvpkg"], 'items: unknown option "--JSN=x"; did you mean "--json"?'),
        ]
        for args, message in rows:
            self.fails(2, message, *args)
        self.assertEqual(self.names(), ["c.k"])

    def test_what_stands_behind_two_dashes_is_a_file(self):
        names = ["a.kvpkg", "-b.kvpkg", "--json.kvpkg", "[c].kvpkg"]
        self.small("a.kvpkg")
        for name in names[1:]:
            self.write(name, self.read("a.kvpkg"))
        for before in range(2):
            self.assertEqual(self.ok("info", "--field", "AppType", *names[:before], "--", *names[before:]),
                             "Standard\n" * 4)

    def test_help_and_version(self):
        self.assertRegex(self.ok("--version"), r"^qzapp \d+\.\d+\.\d+\nVerbs that read are .*\n$")
        self.assertEqual(self.ok("-V"), self.ok("--version"))
        self.assertEqual(self.ok("help"), self.ok("--help"))
        for verb in VERBS.split(", "):
            self.assertIn(f"\n  {verb} ", self.ok("--help"))
            self.assertIn(f"\n  qzapp {verb} ", self.ok("help", verb))
            self.assertEqual(self.ok("help", verb, "--threads"), self.ok(verb, "--help"))

    def test_bad_inputs_leave_nothing_behind(self):
        self.write("c.k", "x")
        self.write("bad.k", b"line\nab\xe2\x82")
        self.write("s", b"RIFF\0\0\0\0WEBP")
        (self.dir / "d").mkdir()
        before = self.names()
        rows = [
            ("--code", "no.k", "no.k: there is no such file; check the name"),
            ("--code", "bad.k", "bad.k: not valid UTF-8 at byte 7 (line 2, column 3); save it as UTF-8"),
            ("--model", "d", "d: is a directory; give the name of a file"),
            ("--model", "/dev/zero", "/dev/zero: is not a regular file; copy its content into one"),
            ("--screenshot", "c.k", "c.k: neither its name nor its first bytes are those of an image in one of the formats "
             "png, jpg, jpeg and gif; convert it first"),
            ("--screenshot", "s", "s: is a WebP image, and a packaged app holds png, jpg, jpeg or gif; convert it first"),
        ]
        for option, value, message in rows:
            args = {"--code": "c.k", "--model": "c.k", option: value}
            self.fails(1, message, "create", "a.kvpkg", *(arg for pair in args.items() for arg in pair))
        self.assertEqual(self.names(), before)

    def test_metadata_files_are_judged_field_by_field(self):
        self.write("c.k", "x")
        rows = [
            ('{"name": "x"}', 'unknown metadata field "name"; did you mean "Name"?'),
            ('{"Name": "x", "Name": "x"}', '"Name" is given twice; give it once'),
            ('{"UserComponents": ["x", {}]}',
             '"UserComponents" must be an array of strings, found an object in the array'),
            ("[" * 200000, "expected an object of metadata fields, found an array"),
            ('{"Name": "x \\" y",\n "Author" "y"}', 'not valid JSON at line 2, column 11: unexpected "y"'),
        ]
        args = ["create", "a.kvpkg", "--code", "c.k", "--model", "c.k", "--metadata", "m.json"]
        for text, message in rows:
            self.write("m.json", text)
            self.fails(1, f"m.json: {message}", *args)
        self.assertEqual(self.names(), ["c.k", "m.json"])

    def test_whatever_an_app_holds_comes_out_and_goes_in_again(self):
        self.small("a.kvpkg")
        for field in ("Description", "Summary"):  # in parts of their own
            self.write("m.json", json.dumps({field: '"' * (7 << 20)}))
            self.ok("edit", "a.kvpkg", "--metadata", "m.json")
        self.ok("extract", "a.kvpkg", "-o", "out", "--only", "metadata")
        self.assertGreater((self.dir / "out/metadata.json").stat().st_size, 27 << 20)
        self.small("b.kvpkg", "--metadata", "out/metadata.json")
        self.assertEqual(self.items("b.kvpkg")["metadata/appMetadata.xml"],
                         self.items("a.kvpkg")["metadata/appMetadata.xml"])

    def test_one_input_may_be_standard_input(self):
        self.write("c.k", "x = 1;\n")
        model = os.urandom(1 << 20)
        self.ok("create", "a.kvpkg", "--code", "c.k", "--model", "-", input=model)
        self.assertEqual(self.extracted("a.kvpkg", "model"), model)
        self.ok("edit", "a.kvpkg", "--code", "-", input=b"y = 2;\r\n")
        self.ok("edit", "a.kvpkg", "--metadata", "-", input=b'{"Name": "in"}')
        self.assertEqual(self.extracted("a.kvpkg", "code"), b"y = 2;\r\n")
        self.assertEqual(self.metadata("a.kvpkg")["Name"], "in")
        before, names = self.read("a.kvpkg"), self.names()
        rows = [
            (2, "-: standard input can be only one of the files; name the others", ["--code", "-", "--model", "-"], b"x"),
            (1, "standard input: is empty; check the program that writes to it", ["--model", "-"], b""),
        ]
        for status, message, args, given in rows:
            self.fails(status, message, "edit", "a.kvpkg", *args, input=given)
        self.assertEqual((self.read("a.kvpkg"), self.names()), (before, names))

    def test_content_may_come_from_pipes(self):
        model = os.urandom(3 << 20)
        gif = b"GIF89a" + bytes(100) + b";"
        self.write("m", model)
        self.write("s", gif)
        (self.dir / "sent.gif").write_bytes(gif)
        os.mkfifo(self.dir / "fifo")
        os.mkfifo(self.dir / "shot.JPG")
        command = """cat m > fifo & cat s > shot.JPG &
            "$0" create a.kvpkg --code <(echo 'x = 1;') --model fifo --metadata <(echo '{"Name": "N"}') --set \
            Summary=@<(echo S) --screenshot <(cat s) && "$0" edit a.kvpkg --screenshot shot.JPG && wait"""
        run = subprocess.run(["bash", "-c", command, TOOL], cwd=self.dir, capture_output=True, timeout=60)
        self.assertEqual((run.stdout, run.stderr),
                         (b"wrote a.kvpkg\nedited a.kvpkg\n",
                          b"qzapp: warning: the screenshot: is declared as jpg, but its bytes are a gif image\n"))
        got = self.metadata("a.kvpkg")
        self.assertEqual((got["Name"], got["Summary"]), ("N", "S"))
        self.assertEqual(self.extracted("a.kvpkg", "code"), b"x = 1;\n")
        self.assertEqual(self.extracted("a.kvpkg", "model"), model)
        self.assertEqual(self.json("info", "a.kvpkg")["screenshot"], {"format": "jpg", "bytes": len(gif)})
        self.ok("edit", "a.kvpkg", "--screenshot", "-", input=gif)
        self.assertEqual(self.json("info", "a.kvpkg")["screenshot"]["format"], "gif")
        before = self.read("a.kvpkg")
        for command, message in [
            ('"$0" edit a.kvpkg --model <(true)', r"/dev/fd/\d+: is empty; check the program that writes to it"),
            ('TMPDIR=none "$0" edit a.kvpkg --model <(cat m)',
             r"/dev/fd/\d+: cannot be kept in none \(.*\); name a folder with room in TMPDIR"),
            ('ulimit -f 1024; "$0" edit a.kvpkg --model <(cat m)',  # in blocks of 1024 bytes
             r"/dev/fd/\d+: cannot be kept in .* \(File too large\); name a folder with room in TMPDIR"),
        ]:
            run = subprocess.run(["bash", "-c", command, TOOL], cwd=self.dir, capture_output=True, timeout=60)
            self.assertEqual((run.returncode, run.stdout), (1, b""))
            self.assertRegex(run.stderr.decode(), f"^qzapp: {message}\n$")
        self.assertEqual(self.read("a.kvpkg"), before)

    def test_a_pipe_is_kept_on_disk_and_not_in_memory(self):
        self.small("a.kvpkg")
        peaks = []
        for size in ("1M", "300M"):
            command = f'exec "$0" edit --threads 1 a.kvpkg --model <(head -c {size} /dev/zero)'
            tool = subprocess.Popen(["bash", "-c", command, TOOL], cwd=self.dir, stdout=subprocess.DEVNULL)
            _, status, usage = os.wait4(tool.pid, 0)
            tool.returncode = os.waitstatus_to_exitcode(status)
            self.assertEqual(tool.returncode, 0)
            peaks.append(usage.ru_maxrss >> 10)
        self.assertLess(peaks[1] - peaks[0], 100, peaks)

    def test_a_new_package_may_go_to_standard_output(self):
        self.write("c.k", "x = 1;\n")
        model = self.write("m.kvd", os.urandom(1 << 20))
        (self.dir / "tmp").mkdir()
        epoch = {"SOURCE_DATE_EPOCH": "1000000000", "TMPDIR": "tmp"}
        self.ok("create", "file.kvpkg", "--code", "c.k", "--model", model, env=epoch)
        damaged = self.write("damaged.kvpkg", self.read("file.kvpkg")[:-100])
        self.write("t.k", (EXAMPLE / "heatfield.k").read_bytes())
        rows = [  # the verb, with what it says on standard error
            ("", lambda out: ["create", out, "--code", "c.k", "--model", model]),
            ("", lambda out: ["create", out, "--force", "--code", "c.k", "--model", model]),
            ('note: KORVALRelease "R20.*\n', lambda out: ["convert", "t.k", out, "--model", model]),
            ("wrote standard output: .* kept(.*\n)*", lambda out: ["check", "--repair", out, damaged]),
            (r'\{"file":"damaged.kvpkg","out":"standard output",.*\n', lambda out: ["check", "--json", "--repair", out, damaged]),
        ]
        for said, command in rows:
            with self.subTest(command=command("-")):
                (self.dir / "want.kvpkg").unlink(missing_ok=True)
                want = self.run_tool(*command("want.kvpkg"), env=epoch)
                run = self.run_tool(*command("-"), env=epoch)
                self.assertEqual((run.returncode, run.stdout), (want.returncode, self.read("want.kvpkg")))
                self.assertRegex(run.stderr.decode(), rf"^{said}$")
                self.assertNotIn("edit 'standard", run.stderr.decode())
                with open("/dev/full", "wb") as full:
                    self.fails_like(r"standard output: cannot be written \(No space left on device\)", *command("-"), env=epoch,
                                    stdout=full)
                status, text = self.on_terminal(*command("-"), env=epoch)
                self.assertEqual((status, text), (1, "qzapp: standard output: a package is not text for a terminal; send it "
                                                  "to a file or a program\n"))
                for limit, folder in ("", "none"), ("-f 100", "tmp"):
                    self.fails_like(rf"standard output: cannot be kept in {folder} \(.*\); name a folder with room in TMPDIR",
                                    *command("-"), limit=limit, env={"TMPDIR": folder})
                self.assertEqual(self.names("tmp"), [])
        self.fails_like("bad: not valid UTF-8.*", "create", "-", "--code", self.write("bad", b"\xff"), "--model", model)

    def test_a_small_stack_is_enough(self):
        self.ok("create", "s.kvpkg", "--code", EXAMPLE / "code.k", "--model", EXAMPLE / "appModel.kvd",
                "--metadata", EXAMPLE / "metadata.json", limit="-s 128")

    def test_long_work_shows_a_bar_and_an_interrupt_leaves_the_old_app(self):
        self.small("a.kvpkg")
        with open(self.dir / "big.kvd", "wb") as big:
            big.truncate(400 << 30)
        before, names = self.read("a.kvpkg"), self.names()
        main, side = pty.openpty()
        tool = subprocess.Popen([TOOL, "create", "a.kvpkg", "--force", "--code", "s.k", "--model", "big.kvd"],
                                cwd=self.dir, stderr=side, env={**os.environ, "TERM": "xterm"})
        seen = b""
        while b" left" not in seen:
            seen += os.read(main, 4096)
        tool.send_signal(signal.SIGINT)
        self.assertEqual(tool.wait(timeout=30), -signal.SIGINT)
        self.assertEqual((self.read("a.kvpkg"), self.names()), (before, names))
        self.assertRegex(seen, rb"\r\[-{20}\]   \d%  [\d.]+ [kMG]B of 429\.5 GB, [\d.]+ [kMG]B/s, [\d:]+ (s|min) left")
        self.assertTrue(os.read(main, 1 << 16).endswith(b"\r\x1b[K"))
        os.close(main)
        os.close(side)
