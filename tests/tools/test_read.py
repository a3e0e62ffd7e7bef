"""info, extract and convert."""

import json
import os
import signal
import pathlib
import shutil
import subprocess
import unittest

from support import EXAMPLE, FIELD_LIST, FIELDS, MODEL_PART, TOOL, ToolTest, without

TEXT_APP = """x = 1;
%[app:appDetails]
%{
<Name>T</Name>
%}
%[app:thumbnail]
%{
<Thumbnail autoCapture='false'>data:image/FORMAT;base64,AAEC</Thumbnail>
%}
"""
KINDS = {"code": "code.k", "model": "appModel.kvd", "screenshot": "screenshot.png"}


class ReadTest(ToolTest):
    def text_app(self, name="t.k"):
        shutil.copy(EXAMPLE / "heatfield.k", self.dir / name)
        return name


class Info(ReadTest):
    def test_people_get_aligned_text_without_controls(self):
        long = "word " * 40 + "end"
        self.small("a.kvpkg", "--set", "Name=a\u0085\u202eb\u007f", "--set", f"Summary={long}",
                   "--set", "Description=one\r\ntwo\n\nfour", "--set", "UserComponents=c1",
                   "--set", "UserComponents=c2")
        text = self.ok("info", "a.kvpkg")
        pad = " " * 33
        for part in ("a.kvpkg (packaged app)\n  Name" + " " * 27 + "a\\u0085\\u202Eb\\u007F\n",
                     f"one\n{pad}two\n\n{pad}four\n", f"c1\n{pad}c2\n",
                     "  Author" + " " * 25 + "(empty)\n", "  Screenshot" + " " * 21 + "(none)\n"):
            self.assertIn(part, text)

    def test_one_field(self):
        self.small("a.kvpkg", "--set", "Name= x\ny\u0085", "--set", "UserComponents=1", "--set",
                   "UserComponents=2")
        for field, text in (("Name", " x\ny\u0085\n"), ("UserComponents", "1\n2\n"), ("RequiredProducts", "")):
            self.assertEqual(self.ok("info", "--field", field, "a.kvpkg"), text)
        self.assertEqual(self.ok("info", "--field", "usercomponents", "a.kvpkg"), "1\n2\n")
        self.fails(2, f'info: --field: unknown metadata field "Title"; the fields are {FIELD_LIST}',
                   "info", "--field", "Title", "a.kvpkg")

    def test_a_table_for_programs_is_one_line_an_app_whatever_its_values_hold(self):
        value = "a\tb\r\nc\\d\u2028e\x1b"
        self.small("a.kvpkg", "--set", f"Name={value.replace(chr(27), '')}", "--set", "Version=1", "--set",
                   "UserComponents=x", "--set", "UserComponents=y")
        self.text_app("b.k")
        name = "a\\tb\\r\\nc\\\\d\\u2028e"
        self.assertEqual(self.ok("info", "--table", "a.kvpkg", "b.k"),
                         f"a.kvpkg\t{name}\t1\t\nb.k\tWärmefeld\t2.4.1\tZoë Lindqvist, Jiří Novák\n")
        self.assertEqual(self.ok("info", "--columns", "usercomponents,FORM,screenshot,name", "a.kvpkg"),
                         f"x, y\tpackaged\t(none)\t{name}\n")
        self.assertEqual(self.fails_like("none.k: there is no such file; check the name", "info", "--table", "none.k",
                                         "b.k").count(b"\n"), 1)
        self.fails(2, 'info: --columns: unknown column "Nam"; did you mean "Name"?', "info", "--columns", "Nam", "b.k")
        self.fails(2, "info: --table: cannot be given with --json, --field or --picture; leave one out", "info", "--table",
                   "--json", "b.k")

    def test_a_table_for_people_is_fitted_to_the_terminal(self):
        self.small("a.kvpkg", "--set", "Name=" + "日本語" * 30, "--set", "Author=one\n\ntwo", "--set", "Version=1")
        self.small("b.kvpkg", "--set", "Name=short", "--set", "Version=2")
        status, text = self.on_terminal("info", "--table", "a.kvpkg", "b.kvpkg", "none.k")
        self.assertEqual((status, text), (1, "qzapp: none.k: there is no such file; check the name\n"
                         f"File     Name{' ' * 49}  Version  Author\n"
                         f"a.kvpkg  {'日本語' * 8}日本…  1        one two\nb.kvpkg  short{' ' * 48}  2\n"))

    def test_bad_files_do_not_stop_the_others(self):
        self.small("good.kvpkg")
        self.write("good.k", "x")
        self.write("junk.kvpkg", b"PK\x05\x06junk")
        self.write("app.zip", "x")
        self.write("shot.k", TEXT_APP.replace("AAEC", "A*"))
        self.rewrite("good.kvpkg", "empty.kvpkg", without(MODEL_PART))
        os.mkfifo(self.dir / "fifo.k")
        with open(self.dir / "huge.k", "wb") as huge:
            huge.truncate(1 << 40)
        rows = [
            ("none.k", "there is no such file; check the name"),
            ("junk.kvpkg", ""),
            ("app.zip", 'expected a name ending in ".kvpkg" or ".k"; rename the file, or use "qzapp parts" for '
             "any other package"),
            ("empty.kvpkg", 'File is missing App Model part; "qzapp check" shows what can be saved'),
            ("\udcff.k", ""),
            ("fifo.k", "is not a regular file; copy its content into one"),
            ("huge.k", "1099511627776 bytes or more"),
            ("shot.k", "the screenshot in section app:thumbnail is damaged: "),
        ]
        result = self.run_tool("info", "--json", "good.kvpkg", *(name for name, _ in rows), "good.k")
        self.assertEqual(result.returncode, 1)
        records = [json.loads(line) for line in result.stdout.splitlines()]
        bad = {name.replace("\udcff", "\ufffd") for name, _ in rows}
        self.assertEqual([r["file"] for r in records], ["good.kvpkg", *(name.replace("\udcff", "\ufffd") for name, _ in rows), "good.k"])
        errors = result.stderr.decode().splitlines()
        told = [f"qzapp: {r['file']}: {r['error']}" for r in records if list(r) == ["file", "error"]]
        self.assertEqual((told, {r["file"] for r in records if "metadata" not in r}), (errors, bad))
        self.assertEqual(len(errors), len(rows), errors)
        for error, (name, message) in zip(errors, rows):
            self.assertTrue(error.startswith(f"qzapp: {name}: ".replace("\udcff", "\ufffd")), error)
            self.assertIn(message, error)

    def test_a_name_in_brackets_is_one_name(self):
        self.dir = self.dir / "top"  # not the folder of all temporary files, in case that "[..]" is taken for ".."
        self.dir.mkdir()
        names = ["[apps]", "[a,b]", "[..]", "[]", "[[apps]]"]
        for name in [*names, "apps", "a", "b"]:
            (self.dir / name).mkdir()
            self.small(f"{name}/x.kvpkg", "--set", f"Name={name}", "--set", "Summary=[a]")
        for arguments in (names, ["--", *names], ["apps", *names[1:], "a"]):
            expected = [name for name in arguments if name != "--"]
            seen = [json.loads(line) for line in self.ok("info", "--json", *arguments).splitlines()]
            self.assertEqual([app["file"] for app in seen], [f"{name}/x.kvpkg" for name in expected])
            self.assertEqual([app["metadata"]["Name"] for app in seen], expected)
            checked = [json.loads(line) for line in self.ok("check", "--json", *arguments).splitlines()]
            self.assertEqual([app["file"] for app in checked], [f"{name}/x.kvpkg" for name in expected])
        self.assertEqual(seen[0]["metadata"]["Summary"], "[a]")
        self.ok("edit", "a/x.kvpkg", "--set", "Name=b]", "--set=UserComponents=[c,d]", "--set", "UserComponents=[e]",
                "--model=[]/x.kvpkg", "--clear", "Summary")
        fields = self.metadata("a/x.kvpkg")
        self.assertEqual((fields["Name"], fields["UserComponents"], fields["Summary"]), ("b]", ["[c,d]", "[e]"], ""))
        for arguments, message in ((["[x]"], "[x]: there is no such file; check the name"),
                                   (["[x]", "--y]"], 'info: unknown option "--y]"; see "qzapp info --help"')):
            self.fails(2 if "--y]" in arguments else 1, message, "info", *arguments)
        self.fails(2, 'show: unexpected argument "[y]"; see "qzapp show --help"', "show", "[x]", "[y]")

    def test_a_file_whose_size_the_system_does_not_know_is_read_to_its_end(self):
        text = "%[app:appDetails]\n%{\n<Name>n</Name>\n%}\n"
        (self.dir / "apps").mkdir()
        os.symlink("/proc/self/environ", self.dir / "apps/e.k")  # of the size 0; the tool's own
        own = {"env": {"A": text}}
        os.symlink("/proc/version", self.dir / "v.k")
        os.symlink("/proc/version", self.dir / "v.png")
        version = pathlib.Path("/proc/version").read_text()
        for name in ("apps/e.k", "apps"):
            self.assertEqual(self.ok("info", "--field", "Name", name, **own), "n\n")
            self.assertNotIn("appendix-missing", self.ok("check", name, **own))
        self.assertIn(text, self.json("show", "apps/e.k", **own)["code"])
        self.small("a.kvpkg")
        self.ok("edit", "a.kvpkg", "--code", "/proc/version")
        self.fails(0, "warning: the screenshot: its bytes are not a png image", "edit", "a.kvpkg", "--screenshot", "v.png",
                   stdout=subprocess.DEVNULL)
        self.ok("convert", "v.k", "b.kvpkg", "--model", "s.kvd")
        for name, kind in (("a.kvpkg", "code"), ("a.kvpkg", "screenshot"), ("b.kvpkg", "code"), ("v.k", "code")):
            self.assertEqual(self.extracted(name, kind).decode(), version)
        self.ok("extract", "v.k", "-o", "out")
        self.assertEqual(self.read("out/code.k").decode(), version)
        self.ok("gallery", "apps", "-o", "v.html", **own)
        # Here the system gives a size that is too large.
        size = pathlib.Path("/sys/devices/system/cpu/online")
        self.fails(1, f"{size}: was changed while it was read; try again", "edit", "a.kvpkg", "--code", size)

    def test_an_app_may_come_from_standard_input(self):
        self.create()
        self.text_app()
        (self.dir / "tmp").mkdir()
        for name, verbs in [("app.kvpkg", ["info", "show", "check", "parts", "items"]),
                            ("t.k", ["info", "show", "check"])]:
            for verb in verbs:
                given = self.ok(verb, "-", input=self.read(name), env={"TMPDIR": str(self.dir / "tmp")})
                self.assertEqual(given, self.ok(verb, name).replace(name, "standard input"), verb)
        self.ok("diff", "-", "app.kvpkg", input=self.read("app.kvpkg"))
        self.ok("extract", "-", "-o", "out", input=self.read("app.kvpkg"))
        self.assertEqual(self.read("out/appModel.kvd"), (EXAMPLE / "appModel.kvd").read_bytes())
        self.ok("convert", "-", "c.kvpkg", "--model", "t.k", input=b"x = 1;\n")
        self.fails(2, "standard input: gives no name for the folder; name one with -o", "extract", "-", input=b"x")
        self.fails(2, "-: standard input can be only one of the files; name the others", "diff", "-", "-", input=b"x")
        self.assertEqual(self.names("tmp"), [])

    def test_output_that_cannot_be_written_is_an_error(self):
        self.small("a.kvpkg")
        self.write("b.k", "x = 1;\n")
        for args in (["info", "a.kvpkg"], ["--help"], ["parts", "a.kvpkg"]):
            with open("/dev/full", "wb") as full:
                self.fails(1, "standard output: cannot be written (No space left on device)", *args, stdout=full)
        reader, writer = os.pipe()
        os.close(reader)
        for args in (["info", "a.kvpkg"], ["diff", "a.kvpkg", "b.k"], ["check", "a.kvpkg"], ["--help"],
                     ["extract", "a.kvpkg", "--only", "model", "-o", "-"]):
            gone = self.run_tool(*args, stdout=writer)
            self.assertEqual((gone.returncode, gone.stderr), (-signal.SIGPIPE, b""), args)
        # Some parents have the signal ignored; then there is a message.
        gone = self.run_tool("info", "a.kvpkg", stdout=writer,
                             preexec_fn=lambda: signal.signal(signal.SIGPIPE, signal.SIG_IGN))
        self.assertEqual((gone.returncode, gone.stderr),
                         (1, b"qzapp: standard output: cannot be written (Broken pipe)\n"))
        os.close(writer)

    def test_what_is_saved_before_output_fails_is_told(self):
        self.small("a.kvpkg")
        self.write("t.k", "x = 1;\n")
        rows = [
            ("c.kvpkg", "create", "c.kvpkg", "--code", "s.k", "--model", "s.kvd"),
            ("t.kvpkg", "convert", "t.k", "t.kvpkg", "--model", "s.kvd"),
            ("a.kvpkg", "edit", "a.kvpkg", "--set", "Name=N"),
            ("r.kvpkg", "check", "--repair", "r.kvpkg", "a.kvpkg"),
            ("g.html", "gallery", ".", "-o", "g.html"),
            ("out", "extract", "a.kvpkg", "-o", "out"),
            ("out", "extract", "a.kvpkg", "-o", "out", "--force"),
        ]
        for saved, *args in rows:
            with open("/dev/full", "wb") as full:
                self.fails(3, f"{saved}: was saved; only the report is missing: standard output: cannot be written (No "
                           "space left on device)", *args, stdout=full)
            self.assertIn(saved, self.names())
        self.assertEqual(self.metadata("a.kvpkg")["Name"], "N")
        with open("/dev/full", "wb") as full:
            for args in (["edit", "a.kvpkg"], ["edit", "a.kvpkg", "--remove-screenshot"],
                         ["extract", "a.kvpkg", "--only", "code", "-o", "-"]):
                self.fails(1, "standard output: cannot be written (No space left on device)", *args, stdout=full)
            repair = [TOOL, "check", "--repair", "-", "a.kvpkg"]
            self.assertEqual(subprocess.run(repair, cwd=self.dir, stdout=subprocess.DEVNULL, stderr=full).returncode, 3)

    def test_help_and_version(self):
        self.assertRegex(self.ok("--version"), r"^qzapp \d+\.\d+\.\d+\nVerbs that read are .*\n$")
        for verb in ("create", "edit", "convert", "info", "show", "diff", "gallery", "extract", "parts", "items"):
            self.assertIn(verb, self.ok("--help"))
            text = self.ok(verb, "--help")
            self.assertIn(f"\n  qzapp {verb} ", text)


class Extract(ReadTest):
    def test_what_was_packed_goes_out_and_in_again(self):
        self.create("dir.name.kvpkg")
        names = [*KINDS.values(), "metadata.json"]
        self.assertEqual(self.ok("extract", "dir.name.kvpkg"), "".join(f"wrote dir.name/{n}\n" for n in names))
        for name in KINDS.values():
            self.assertEqual(self.read(f"dir.name/{name}"), (EXAMPLE / name).read_bytes())
        self.ok("create", "again.kvpkg", "--code", "dir.name/code.k", "--model",
                "dir.name/appModel.kvd", "--metadata", "dir.name/metadata.json")
        self.assertEqual(self.metadata("again.kvpkg"), self.metadata("dir.name.kvpkg"))
        self.assertEqual(self.names("dir.name"), sorted(names))

    def test_only_what_is_named_and_nothing_is_overwritten(self):
        self.create()
        self.ok("extract", "app.kvpkg", "-o", "a/b/c", "--only", "metadata,code")
        self.assertEqual(self.names("a/b/c"), ["code.k", "metadata.json"])
        self.write("a/b/c/metadata.json", "mine")
        (self.dir / "a/b/c/code.k").unlink()
        self.fails(1, "a/b/c/metadata.json: already exists; give --force to replace it",
                   "extract", "app.kvpkg", "-o", "a/b/c/")
        self.assertEqual(self.names("a/b/c"), ["metadata.json"])
        self.ok("extract", "app.kvpkg", "-o", "a/b/c", "--force")
        self.assertEqual(json.loads(self.read("a/b/c/metadata.json")), self.metadata("app.kvpkg"))
        (self.dir / "a/b/c/code.k").unlink()
        (self.dir / "a/b/c/code.k").symlink_to(self.dir / "elsewhere")
        self.fails(1, "a/b/c/code.k: is a symbolic link, which leads elsewhere; remove it",
                   "extract", "app.kvpkg", "-o", "a/b/c", "--force")

    def test_text_apps(self):
        self.ok("extract", self.text_app())
        self.assertEqual(self.names("t"), ["code.k", "metadata.json", "screenshot.png"])
        self.assertEqual(self.read("t/screenshot.png"), (EXAMPLE / "screenshot.png").read_bytes())
        for code in (self.read("t.k"), b"\xff\0\r\n"):
            self.write("odd.k", code)
            self.assertEqual(self.extracted("odd.k", "code"), code)

    def test_a_format_never_names_another_place(self):
        for format_name, written in [("../../evil", "screenshot.image"), ("x/y", "screenshot.image"),
                                     ("svg+xml", "screenshot.image"), ("WebP", "screenshot.WebP")]:
            self.write("t.k", TEXT_APP.replace("FORMAT", format_name))
            said = self.ok("extract", "t.k", "-o", "out", "--force", "--only", "screenshot")
            self.assertIn(f"wrote out/{written}\n", said)
            self.assertEqual(f'the screenshot\'s format "{format_name}" cannot be a file extension' in said,
                             written.endswith("image"))
            self.assertEqual(self.read(f"out/{written}"), b"\0\1\2")
        self.assertEqual(self.names(), ["out", "t.k"])

    def test_the_folder_without_a_name_is_never_another(self):
        (self.dir / "in").mkdir()
        for ending in (".kvpkg", ".k"):
            for stem in (".", "..", "in/", "in/.", "in/.."):
                name = stem + ending
                with self.subTest(name=name):
                    if ending == ".k":
                        self.write(name, "x = 1;\n")
                    else:
                        self.small(name)
                    before = self.names(), self.names("in")
                    self.fails(2, f"{name}: gives no name for the folder; name one with -o",
                               "extract", name)
                    self.assertEqual((self.names(), self.names("in")), before)
                    self.ok("extract", name, "-o", "out")
                    shutil.rmtree(self.dir / "out")
        self.small("....kvpkg")
        self.ok("extract", "....kvpkg")
        self.assertEqual(self.names("..."), ["appModel.kvd", "code.k", "metadata.json"])

    def test_failures_leave_no_directory(self):
        self.small("app.kvpkg")
        self.write("t.k", "x")
        names = self.names()
        rows = [
            (1, "t.k: has no model, because it is a text app; leave it out of --only", ["t.k", "--only", "model"]),
            (1, "t.k: has no screenshot; leave it out of --only", ["t.k", "--only", "screenshot"]),
            (2, 'extract: --only: "source" is not one of code, model, screenshot, metadata',
             ["t.k", "--only", "code,source"]),
            (2, "extract: --only: names nothing; name some of code, model, screenshot, metadata", ["t.k", "--only", ""]),
            (1, "t.k: exists and is not a directory; choose another with -o", ["app.kvpkg", "-o", "t.k"]),
        ]
        for status, message, args in rows:
            self.fails(status, message, "extract", *args)
        self.flip("app.kvpkg", "crc.kvpkg", MODEL_PART)
        self.fails_like(r"crc\.kvpkg: .*appModel\.kvd.*; leave model out with --only to get the rest",
                        "extract", "crc.kvpkg", "-o", "p/q")
        self.ok("edit", "app.kvpkg", "--model", "-", input=os.urandom(8 << 20))
        self.fails_like(r"app\.kvpkg: .*File too large.*", "extract", "app.kvpkg", limit="-f 2048")
        self.assertEqual(self.names(), sorted(names + ["crc.kvpkg"]))

    def test_one_thing_to_standard_output(self):
        self.create()
        for kind, name in KINDS.items():
            self.assertEqual(self.extracted("app.kvpkg", kind), (EXAMPLE / name).read_bytes())
        self.assertEqual(json.loads(self.extracted("app.kvpkg", "metadata")), self.metadata("app.kvpkg"))
        for only in ([], ["--only", "code,model"]):
            self.fails(2, "extract: -o -: standard output takes one kind; name one of code, model, screenshot, "
                       "metadata with --only", "extract", "app.kvpkg", "-o", "-", *only)
        self.flip("app.kvpkg", "crc.kvpkg", MODEL_PART)
        given = self.fails_like(".*", "extract", "crc.kvpkg", "--only", "model", "-o", "-")
        self.assertLess(len(given), (EXAMPLE / "appModel.kvd").stat().st_size)
        self.assertEqual(self.names(), ["app.kvpkg", "crc.kvpkg"])

    def test_a_terminal_gets_text_only(self):
        self.small("a.kvpkg")
        self.ok("edit", "a.kvpkg", "--code", "-", input=b"a\t1\x1b[2J\n")
        self.assertEqual(self.on_terminal("extract", "a.kvpkg", "--only", "code", "-o", "-"),
                         (0, "a\t1\\u001B[2J\n"))
        self.assertEqual(self.on_terminal("extract", "a.kvpkg", "--only", "model", "-o", "-"),
                         (1, "qzapp: standard output: appModel.kvd is not text for a terminal; send it to "
                          "a file or a program\n"))


class Convert(ReadTest):
    def test_the_example(self):
        self.write("m.kvd", "model")
        text = self.ok("convert", self.text_app(), "c.kvpkg", "--model", "m.kvd")
        self.assertRegex(text, '^wrote c.kvpkg\nnote: KORVALRelease "R2026a" is kept as legacy '
                         r"information; the new app reads as written by R\w+\n$")
        self.assertEqual(self.extracted("c.kvpkg", "code"), self.read("t.k"))
        self.assertEqual(self.extracted("c.kvpkg", "screenshot"), (EXAMPLE / "screenshot.png").read_bytes())
        want = {**json.loads((EXAMPLE / "metadata.json").read_text()), "KVPKGVersion": "1"}
        got = self.metadata("c.kvpkg")
        self.assertEqual({**got, **want}, got)
        self.assertEqual(self.json("parts", "c.kvpkg")["coreProperties"]["KORVALReleaseInfo"], "R2026a (legacy)")

    def test_what_is_lost_is_said_and_only_that(self):
        self.write("plain.k", "x = 1;\n")
        self.assertEqual(self.ok("convert", "plain.k", "p.kvpkg", "--model", "plain.k"), "wrote p.kvpkg\n")
        self.assertNotIn("legacy", self.json("parts", "p.kvpkg")["coreProperties"]["KORVALReleaseInfo"])
        self.write("odd.k", TEXT_APP.replace("FORMAT", "webp"))
        self.assertIn('note: the screenshot is left out: its format is "webp", and a packaged app holds '
                      "png, jpg, jpeg or gif\n", self.ok("convert", "odd.k", "o.kvpkg", "--model", "odd.k"))
        self.assertIsNone(self.json("info", "o.kvpkg")["screenshot"])

    def test_refusals(self):
        self.write("ok.k", "x")
        self.write("control.k", "%[app:appDetails]\n%{\n<Name>a\x01</Name>\n%}\n")
        self.small("a.kvpkg")
        rows = [
            (1, "control.k: Name: the character U+0001 at index 1 is not allowed in XML; remove it",
             ["control.k", "b.kvpkg"]),
            (1, "a.kvpkg: already exists; give --force to replace it", ["ok.k", "a.kvpkg"]),
            (1, 'a.kvpkg: expected a text app (".k"), found a packaged app; there is nothing to convert',
             ["a.kvpkg", "b.kvpkg"]),
        ]
        for status, message, args in rows:
            self.fails(status, message, "convert", *args, "--model", "ok.k")
        self.fails(1, "none: there is no such file; check the name", "convert", "ok.k", "b.kvpkg", "--model", "none")
        self.assertFalse((self.dir / "b.kvpkg").exists())
        self.ok("convert", "ok.k", "a.kvpkg", "--model", "ok.k", "--force")
