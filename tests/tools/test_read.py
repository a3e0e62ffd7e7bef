"""info, extract and convert."""

import json
import os
import shutil
import unittest
import zipfile

from support import EXAMPLE, FIELD_LIST, FIELDS, MODEL_PART, ToolTest

TEXT_APP = """x = 1;
%[app:appDetails]
%{
<Name>T</Name>
%}
%[app:internalData]
%{
<KORVALRelease>R2020a</KORVALRelease>
%}
%[app:thumbnail]
%{
<Thumbnail autoCapture='false'>data:image/FORMAT;base64,AAEC</Thumbnail>
%}
"""
WRONG_NAME = ('expected a name ending in ".kvpkg" or ".k"; rename the file, or use "qzapp parts" for any '
              "other package")


class Info(ToolTest):
    def test_json_of_both_forms(self):
        self.create()
        shutil.copy(EXAMPLE / "heatfield.k", self.dir / "text.k")
        lines = [json.loads(l) for l in self.ok("info", "--json", "app.kvpkg", "text.k").splitlines()]
        packaged, text = lines
        self.assertEqual([list(line) for line in lines],
                         [["file", "form", "metadata", "screenshot"]] * 2)
        self.assertEqual([(l["file"], l["form"]) for l in lines],
                         [("app.kvpkg", "packaged"), ("text.k", "text")])
        self.assertEqual(list(text["metadata"]), FIELDS)
        self.assertEqual(text["screenshot"], packaged["screenshot"])
        differing = {f for f in FIELDS if text["metadata"][f] != packaged["metadata"][f]}
        self.assertEqual(differing, {"KORVALRelease", "KVPKGVersion"})

    def test_people_get_aligned_text_without_controls(self):
        long = "word " * 40 + "end"
        self.small("a.kvpkg", "--set", "Name=a\u0085\u202eb\u007f", "--set", f"Summary={long}",
                   "--set", "Description=one\r\ntwo\n\nfour", "--set", "UserComponents=c1",
                   "--set", "UserComponents=c2")
        text = self.ok("info", "a.kvpkg")
        pad = " " * 33
        self.assertIn("a.kvpkg (packaged app)\n  Name" + " " * 27 + "a\\u0085\\u202Eb\\u007F\n", text)
        self.assertIn(f"one\n{pad}two\n\n{pad}four\n", text)
        self.assertIn(f"c1\n{pad}c2\n", text)
        self.assertIn("  Author" + " " * 25 + "(empty)\n", text)
        self.assertIn("  Screenshot" + " " * 21 + "(none)\n", text)
        self.assertLessEqual(max(map(len, text.splitlines())), 100)

    def test_one_field(self):
        self.small("a.kvpkg", "--set", "Name= x\ny\u0085", "--set", "UserComponents=1", "--set",
                   "UserComponents=2")
        self.assertEqual(self.ok("info", "--field", "Name", "a.kvpkg"), " x\ny\u0085\n")
        self.assertEqual(self.ok("info", "--field", "UserComponents", "a.kvpkg"), "1\n2\n")
        self.assertEqual(self.ok("info", "--field", "RequiredProducts", "a.kvpkg"), "")
        self.fails(2, f'--field: "Nome" is no metadata field; the fields are {FIELD_LIST}',
                   "info", "--field", "Nome", "a.kvpkg")

    def test_bad_files_do_not_stop_the_others(self):
        self.small("good.kvpkg")
        self.write("good.k", "x")
        self.write("junk.kvpkg", b"PK\x05\x06junk")
        self.write("cut.kvpkg", self.read("good.kvpkg")[:-30])
        self.write("app.zip", "x")
        self.write("shot.k", TEXT_APP.replace("AAEC", "A*").replace("FORMAT", "png"))
        self.rewrite("good.kvpkg", "empty.kvpkg",
                     lambda name, data: None if name == MODEL_PART else data)
        os.mkfifo(self.dir / "fifo.k")
        with open(self.dir / "huge.k", "wb") as huge:
            huge.truncate(1 << 40)
        result = self.run_tool("info", "--json", "none.k", "junk.kvpkg", "good.kvpkg", "cut.kvpkg",
                               "app.zip", "empty.kvpkg", b"\xff.k", "fifo.k", "huge.k", "shot.k",
                               "good.k")
        self.assertEqual(result.returncode, 1)
        self.assertEqual([json.loads(l)["file"] for l in result.stdout.splitlines()],
                         ["good.kvpkg", "good.k"])
        errors = result.stderr.decode().splitlines()
        self.assertEqual(len(errors), 9, errors)
        self.assertEqual([e.split(": ")[1] for e in errors],
                         ["none.k", "junk.kvpkg", "cut.kvpkg", "app.zip", "empty.kvpkg", "\ufffd.k",
                          "fifo.k", "huge.k", "shot.k"])
        for error in ["qzapp: none.k: there is no such file; check the name",
                      f"qzapp: app.zip: {WRONG_NAME}",
                      'qzapp: empty.kvpkg: File is missing App Model part; "qzapp check" tells what can be '
                      "saved",
                      "qzapp: fifo.k: is not a regular file; copy its content into one"]:
            self.assertIn(error, errors)
        self.assertRegex(errors[-2], "1099511627776 bytes or more, .* check that it is a text app$")
        self.assertRegex(errors[-1], "the screenshot in section app:thumbnail is damaged: .*1")

    def test_an_app_may_come_from_standard_input(self):
        self.create()
        shutil.copy(EXAMPLE / "heatfield.k", self.dir / "t.k")
        (self.dir / "tmp").mkdir()
        temporary = {"TMPDIR": str(self.dir / "tmp")}
        for name, verbs in [("app.kvpkg", ["info", "show", "check", "parts", "items"]),
                            ("t.k", ["info", "show", "check"])]:
            for verb in verbs:
                given = self.ok(verb, "-", input=self.read(name), env=temporary)
                self.assertEqual(given, self.ok(verb, name).replace(name, "standard input"), verb)
        self.ok("diff", "-", "app.kvpkg", input=self.read("app.kvpkg"))
        self.ok("extract", "-", "-o", "out", input=self.read("app.kvpkg"))
        self.assertEqual(self.read("out/appModel.kvd"), (EXAMPLE / "appModel.kvd").read_bytes())
        self.ok("convert", "-", "c.kvpkg", "--model", "t.k", "--force", input=b"x = 1;\n")
        rows = [
            ("standard input: has no name for a folder; name one with -o", ["extract", "-"]),
            ("-: standard input can be one file only; name the others", ["diff", "-", "-"]),
            ("-: standard input can be one file only; name the others",
             ["convert", "-", "d.kvpkg", "--model", "-"]),
        ]
        for message, args in rows:
            self.fails(2, message, *args, input=self.read("t.k"))
        self.assertEqual(os.listdir(self.dir / "tmp"), [])

    def test_output_that_cannot_be_written_is_an_error(self):
        self.small("a.kvpkg")
        for args in (["info", "a.kvpkg"], ["--help"], ["info", "--help"], ["parts", "a.kvpkg"]):
            with open("/dev/full", "wb") as full:
                result = self.run_tool(*args, stdout=full)
            self.assertEqual((result.returncode, result.stderr.decode()),
                             (1, "qzapp: standard output: cannot be written "
                              "(No space left on device)\n"), args)
        reader, writer = os.pipe()
        os.close(reader)
        result = self.run_tool("info", "a.kvpkg", stdout=writer)
        os.close(writer)
        self.assertEqual((result.returncode, result.stderr.decode()),
                         (1, "qzapp: standard output: cannot be written (Broken pipe)\n"))

    def test_help_and_version(self):
        self.assertRegex(self.ok("--version"), r"^qzapp \d+\.\d+\.\d+\n$")
        for verb in ("create", "edit", "convert", "info", "show", "diff", "gallery", "extract", "parts", "items"):
            self.assertIn(verb, self.ok("--help"))
            text = self.ok(verb, "--help")
            self.assertIn(f"\n  qzapp {verb} ", text)
            self.assertLessEqual(max(map(len, text.splitlines())), 100, verb)


class Extract(ToolTest):
    def test_what_was_packed_goes_out_and_in_again(self):
        self.create("dir.name.kvpkg")
        said = self.ok("extract", "dir.name.kvpkg")
        names = ["code.k", "appModel.kvd", "screenshot.png", "metadata.json"]
        self.assertEqual(said, "".join(f"wrote dir.name/{n}\n" for n in names))
        for name in names[:3]:
            self.assertEqual(self.read(f"dir.name/{name}"), (EXAMPLE / name).read_bytes())
        self.ok("create", "again.kvpkg", "--code", "dir.name/code.k", "--model",
                "dir.name/appModel.kvd", "--metadata", "dir.name/metadata.json", "--screenshot",
                "dir.name/screenshot.png")
        self.assertEqual(self.metadata("again.kvpkg"), self.metadata("dir.name.kvpkg"))
        self.assertEqual(sorted(os.listdir(self.dir / "dir.name")), sorted(names))

    def test_only_what_is_named_and_nothing_is_overwritten(self):
        self.create()
        self.ok("extract", "app.kvpkg", "-o", "a/b/c", "--only", "metadata,code")
        self.assertEqual(sorted(os.listdir(self.dir / "a/b/c")), ["code.k", "metadata.json"])
        self.write("a/b/c/metadata.json", "mine")
        (self.dir / "a/b/c/code.k").unlink()
        self.fails(1, "a/b/c/metadata.json: exists already; give --force to replace it",
                   "extract", "app.kvpkg", "-o", "a/b/c/")
        self.assertEqual(os.listdir(self.dir / "a/b/c"), ["metadata.json"])
        self.ok("extract", "app.kvpkg", "-o", "a/b/c", "--force")
        (self.dir / "a/b/c/code.k").unlink()
        (self.dir / "a/b/c/code.k").symlink_to(self.dir / "elsewhere")
        self.fails(1, "a/b/c/code.k: is a symbolic link, which leads elsewhere; remove it",
                   "extract", "app.kvpkg", "-o", "a/b/c", "--force")
        self.assertEqual(json.loads(self.read("a/b/c/metadata.json"))["Name"], "Wärmefeld")

    def test_text_apps(self):
        shutil.copy(EXAMPLE / "heatfield.k", self.dir / "t.k")
        self.ok("extract", "t.k")
        self.assertEqual(sorted(os.listdir(self.dir / "t")),
                         ["code.k", "metadata.json", "screenshot.png"])
        self.assertEqual(self.read("t/code.k"), self.read("t.k"))
        self.assertEqual(self.read("t/screenshot.png"), (EXAMPLE / "screenshot.png").read_bytes())
        self.write("odd.k", b"\xff\0\r\n")
        self.ok("extract", "odd.k", "--only", "code")
        self.assertEqual(self.read("odd/code.k"), b"\xff\0\r\n")

    def test_a_format_never_names_another_place(self):
        for format_name, written in [("../../evil", "screenshot.image"), ("x/y", "screenshot.image"),
                                     ("svg+xml", "screenshot.image"), ("WebP", "screenshot.WebP")]:
            self.write("t.k", TEXT_APP.replace("FORMAT", format_name))
            said = self.ok("extract", "t.k", "-o", "out", "--force", "--only", "screenshot")
            self.assertIn(f"wrote out/{written}\n", said)
            if written.endswith("image"):
                self.assertIn(f'note: the screenshot\'s format "{format_name}" is no file extension', said)
            self.assertEqual(self.read(f"out/{written}"), b"\0\1\2")
        self.assertEqual(self.names(), ["out", "t.k"])

    def test_failures_leave_no_directory(self):
        self.create()
        self.write("t.k", "x")
        self.rewrite("app.kvpkg", "nocode.kvpkg",
                     lambda name, data: None if name.endswith(".k") else data)
        self.write("file", "x")
        names = self.names()
        rows = [
            (1, "t.k: has no model, being a text app; leave it out of --only",
             ["t.k", "--only", "model"]),
            (1, "t.k: has no screenshot; leave it out of --only", ["t.k", "--only", "screenshot"]),
            (2, '--only: "source" is not one of code, model, screenshot, metadata',
             ["t.k", "--only", "code,source"]),
            (2, "--only: names nothing; name some of code, model, screenshot, metadata", ["t.k", "--only", ""]),
            (1, "file: is there already and is no directory; choose another with -o",
             ["app.kvpkg", "-o", "file"]),
        ]
        for status, message, args in rows:
            self.fails(status, message, "extract", *args)
        self.damage_model("app.kvpkg", "crc.kvpkg")
        result = self.run_tool("extract", "crc.kvpkg", "-o", "p/q")
        self.assertEqual(result.returncode, 1)
        self.assertRegex(result.stderr.decode(), r"^qzapp: crc\.kvpkg: .*appModel\.kvd.*; leave model out with "
                         r"--only to get the rest\n$")
        self.ok("extract", "crc.kvpkg", "-o", "rest", "--only", "code,metadata")
        shutil.rmtree(self.dir / "rest")
        self.assertEqual(self.names(), sorted(names + ["crc.kvpkg"]))

    def test_one_thing_to_standard_output(self):
        self.create()
        for kind, name in [("code", "code.k"), ("model", "appModel.kvd"), ("screenshot", "screenshot.png")]:
            self.assertEqual(self.extracted("app.kvpkg", kind), (EXAMPLE / name).read_bytes())
        self.assertEqual(json.loads(self.extracted("app.kvpkg", "metadata")), self.metadata("app.kvpkg"))
        shutil.copy(EXAMPLE / "heatfield.k", self.dir / "t.k")
        self.assertEqual(self.extracted("t.k", "code"), self.read("t.k"))
        for only in ([], ["--only", "code,model"]):
            self.fails(2, "-o -: standard output takes one thing; name one of code, model, screenshot, "
                       "metadata with --only", "extract", "app.kvpkg", "-o", "-", *only)
        self.damage_model("app.kvpkg", "crc.kvpkg")
        result = self.run_tool("extract", "crc.kvpkg", "--only", "model", "-o", "-")
        self.assertEqual(result.returncode, 1)
        self.assertLess(len(result.stdout), (EXAMPLE / "appModel.kvd").stat().st_size)
        self.assertEqual(self.names(), ["app.kvpkg", "crc.kvpkg", "t.k"])

    def test_a_terminal_gets_text_only(self):
        self.small("a.kvpkg")
        self.ok("edit", "a.kvpkg", "--code", "-", input=b"a\t1\x1b[2J\n")
        self.assertEqual(self.on_terminal("extract", "a.kvpkg", "--only", "code", "-o", "-"),
                         (0, "a\t1\\u001B[2J\n"))
        self.assertEqual(self.on_terminal("extract", "a.kvpkg", "--only", "model", "-o", "-"),
                         (1, "qzapp: standard output: appModel.kvd is no text for a terminal; send it to "
                          "a file or a program\n"))


class Convert(ToolTest):
    def test_the_example(self):
        self.write("m.kvd", "model")
        text = self.ok("convert", EXAMPLE / "heatfield.k", "c.kvpkg", "--model", "m.kvd")
        self.assertRegex(text, '^wrote c.kvpkg\nnote: KORVALRelease "R2026a" is kept as release info '
                         r"only: a packaged app reads as written by R\w+\n$")
        self.ok("extract", "c.kvpkg", "-o", "out")
        self.assertEqual(self.read("out/code.k"), (EXAMPLE / "heatfield.k").read_bytes())
        self.assertEqual(self.read("out/screenshot.png"), (EXAMPLE / "screenshot.png").read_bytes())
        want = {**json.loads((EXAMPLE / "metadata.json").read_text()), "KVPKGVersion": "1"}
        got = json.loads(self.read("out/metadata.json"))
        self.assertEqual({**got, **want}, got)
        parts = json.loads(self.ok("parts", "--json", "c.kvpkg"))
        self.assertEqual(parts["coreProperties"]["KORVALReleaseInfo"], "R2026a (legacy)")

    def test_what_is_lost_is_said_and_only_that(self):
        self.write("plain.k", "x = 1;\n")
        self.assertEqual(self.ok("convert", "plain.k", "p.kvpkg", "--model", "plain.k"),
                         "wrote p.kvpkg\n")
        parts = json.loads(self.ok("parts", "--json", "p.kvpkg"))
        self.assertNotIn("legacy", parts["coreProperties"]["KORVALReleaseInfo"])
        self.write("odd.k", TEXT_APP.replace("FORMAT", "webp"))
        self.assertIn('note: the screenshot has the format "webp" and is left out: a packaged app holds '
                      "png, jpg, jpeg or gif\n", self.ok("convert", "odd.k", "o.kvpkg", "--model", "odd.k"))
        self.assertIsNone(self.info("o.kvpkg")["screenshot"])

    def test_refusals(self):
        self.write("bad.k", b"x\xff")
        self.write("ok.k", "x")
        self.write("control.k", "%[app:appDetails]\n%{\n<Name>a\x01</Name>\n%}\n")
        self.small("a.kvpkg")
        rows = [
            (1, "bad.k: not valid UTF-8 at byte 1 (line 1, column 2); save it as UTF-8",
             ["bad.k", "b.kvpkg", "--model", "ok.k"]),
            (1, "control.k: Name: the character U+0001 at index 1 cannot stand in XML; remove it",
             ["control.k", "b.kvpkg", "--model", "ok.k"]),
            (1, "a.kvpkg: exists already; give --force to replace it",
             ["ok.k", "a.kvpkg", "--model", "ok.k"]),
            (1, 'a.kvpkg: expected a text app (".k"), found a packaged app; there is nothing to convert',
             ["a.kvpkg", "b.kvpkg", "--model", "ok.k"]),
            (1, "none: there is no such file; check the name",
             ["ok.k", "b.kvpkg", "--model", "none"]),
            (2, 'b: the name of a packaged app must end in ".kvpkg"; choose another', ["ok.k", "b", "--model", "ok.k"]),
        ]
        for status, message, args in rows:
            self.fails(status, message, "convert", *args)
        self.assertFalse((self.dir / "b.kvpkg").exists())
        self.ok("convert", "ok.k", "a.kvpkg", "--model", "ok.k", "--force")


if __name__ == "__main__":
    unittest.main()
