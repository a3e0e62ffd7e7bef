import json
import os
import unittest
import zipfile

from support import EXAMPLE, METADATA_PART, MODEL_PART, SCHEMA, ToolTest, add_relationship


class Edit(ToolTest):
    def items(self, name):
        """What stands in the zip file for each item, byte for byte."""
        data = self.read(name)
        with zipfile.ZipFile(self.dir / name) as package:
            found = {}
            for item in package.infolist():
                start = item.header_offset + 30 + len(item.filename.encode()) + int.from_bytes(
                    data[item.header_offset + 28:item.header_offset + 30], "little")
                found[item.filename] = (item.date_time, item.CRC,
                                        data[start:start + item.compress_size])
            return found

    def test_what_is_not_named_stays(self):
        self.create()
        before, record = self.items("app.kvpkg"), self.metadata("app.kvpkg")
        self.ok("edit", "app.kvpkg", "--set", "Version=3", "--clear", "Description")
        self.assertEqual(self.metadata("app.kvpkg"), {**record, "Version": "3", "Description": ""})
        after = self.items("app.kvpkg")
        changed = {name for name in before if before[name] != after[name]}
        self.assertIn(METADATA_PART, changed)
        self.assertNotIn(MODEL_PART, changed)
        self.assertFalse([n for n in changed if "Screenshot" in n or n.endswith(".k")], changed)

    def test_every_kind_of_content(self):
        self.create()
        record = self.metadata("app.kvpkg")
        self.write("new.k", "y = 2;\n")
        self.write("new.kvd", b"other model")
        self.write("new.GIF", b"GIF89a")
        for args, check in [
            (["--code", "new.k"], lambda: self.code() == "y = 2;\n"),
            (["--model", "new.kvd"], lambda: self.part(MODEL_PART) == b"other model"),
            (["--screenshot", "new.GIF"],
             lambda: self.info("app.kvpkg")["screenshot"] == {"format": "gif", "bytes": 6}),
            (["--code", EXAMPLE / "code.k", "--remove-screenshot", "--set", "Name=N"],
             lambda: self.info("app.kvpkg")["screenshot"] is None),
        ]:
            self.assertEqual(self.ok("edit", "app.kvpkg", *args), "edited app.kvpkg\n")
            self.assertTrue(check(), args)
        self.assertEqual(self.metadata("app.kvpkg"), {**record, "Name": "N"})
        listing = json.loads(self.ok("parts", "--json", "--verify", "app.kvpkg"))
        self.assertFalse([r for r in listing["relationships"] if "humbnail" in r["type"]])
        self.assertEqual(self.names(), ["app.kvpkg", "new.GIF", "new.k", "new.kvd"])

    def test_another_hard_link_keeps_the_old_app(self):
        self.create()
        os.link(self.dir / "app.kvpkg", self.dir / "link.kvpkg")
        before = self.read("link.kvpkg")
        self.ok("edit", "app.kvpkg", "--code", EXAMPLE / "code.k", "--set", "Name=N")
        self.assertEqual(self.read("link.kvpkg"), before)
        self.assertEqual(self.metadata("app.kvpkg")["Name"], "N")
        self.assertEqual(self.names(), ["app.kvpkg", "link.kvpkg"])

    def code(self):
        self.ok("extract", "app.kvpkg", "-o", "out", "--only", "code", "--force")
        text = self.read("out/code.k").decode()
        (self.dir / "out/code.k").unlink()
        (self.dir / "out").rmdir()
        return text

    def part(self, name):
        with zipfile.ZipFile(self.dir / "app.kvpkg") as package:
            return package.read(name)

    def test_a_default_that_was_read_does_not_become_a_value(self):
        self.small("a.kvpkg")
        # A package without the element: readers supply "Standard", and the file must not get it.
        self.rewrite("a.kvpkg", "b.kvpkg", lambda name, data: data.replace(
            b"<AppType>Standard</AppType>", b"") if name == METADATA_PART else data)
        self.ok("edit", "b.kvpkg", "--set", "Author=A", "--set", "UserComponents=u")
        self.ok("edit", "b.kvpkg", "--clear", "Author")
        got = self.metadata("b.kvpkg")
        self.assertEqual((got["Author"], got["UserComponents"]), ("", ["u"]))
        listing = json.loads(self.ok("parts", "--json", "b.kvpkg"))
        self.assertEqual(listing["coreProperties"]["creator"], "")
        self.assertIsNone(listing["coreProperties"]["version"])

    def test_a_text_that_was_cleared_stays_empty(self):
        self.small("a.kvpkg")
        texts = ["ScreenshotMode", "KVPKGVersion", "MinimumSupportedKORVALRelease", "AppType",
                 "Version"]
        self.ok("edit", "a.kvpkg", *(word for text in texts for word in ("--clear", text)))
        self.ok("edit", "a.kvpkg", "--set", "Author=A")
        got = self.metadata("a.kvpkg")
        self.assertEqual([got[text] for text in texts], [""] * len(texts))

    def test_lists_are_kept_replaced_and_cleared(self):
        self.small("a.kvpkg", "--set", "RequiredProducts=1", "--set", "RequiredProducts=2",
                   "--set", "ImageRelativePaths=p")
        self.ok("edit", "a.kvpkg", "--set", "Name=x")
        self.ok("edit", "a.kvpkg", "--set", "RequiredProducts=3", "--clear", "ImageRelativePaths")
        got = self.metadata("a.kvpkg")
        self.assertEqual((got["Name"], got["RequiredProducts"], got["ImageRelativePaths"]),
                         ("x", ["3"], []))

    def test_nothing_to_do_changes_nothing(self):
        self.small("a.kvpkg")
        before = self.read("a.kvpkg")
        self.assertEqual(self.ok("edit", "a.kvpkg"), "a.kvpkg: nothing to change; say what with an "
                         'option, see "qzapp edit --help"\n')
        self.assertEqual(self.ok("edit", "a.kvpkg", "--remove-screenshot"),
                         "a.kvpkg: has no screenshot; nothing changed\n")
        self.assertEqual(self.read("a.kvpkg"), before)

    def test_several_metadata_or_screenshot_relationships_are_refused(self):
        self.create()
        base = SCHEMA + "/lumenForge/app/2017/relationships/"
        self.rewrite("app.kvpkg", "m.kvpkg", add_relationship(base + "appMetadata", "/x.xml"))
        self.rewrite("app.kvpkg", "s.kvpkg", add_relationship(base + "appScreenshot", "/x.png"))
        rows = [
            ("m.kvpkg", ["--set", "Name=x"], "has 2 metadata relationships, so its metadata cannot be "
             "told and would be lost; create the app anew"),
            ("s.kvpkg", ["--remove-screenshot"], "has 2 screenshot relationships, so the screenshot "
             "cannot be told; create the app anew"),
        ]
        for name, args, message in rows:
            before = self.read(name)
            self.fails(1, f"{name}: {message}", "edit", name, *args)
            self.fails(1, f"{name}: {message}", "edit", name, *args, "--code", EXAMPLE / "code.k")
            self.assertEqual(self.read(name), before)

    def test_a_failing_edit_changes_nothing(self):
        self.create()
        self.write("bad.k", b"\xff")
        self.write("m.json", '{"Summary": "\\u0000"}')
        before, names = self.read("app.kvpkg"), self.names()
        for args, pattern in [
            (["--code", "bad.k", "--set", "Name=x"], r"bad\.k: not valid UTF-8"),
            (["--code", EXAMPLE / "code.k", "--metadata", "m.json"], r"app\.kvpkg: .*Summary"),
            (["--remove-screenshot", "--metadata", "m.json"], r"app\.kvpkg: .*Summary"),
            (["--set", "Name=x", "--model", "none"], r"none: there is no such file"),
        ]:
            result = self.run_tool("edit", "app.kvpkg", *args)
            self.assertEqual(result.returncode, 1, args)
            self.assertRegex(result.stderr.decode(), rf"^qzapp: {pattern}.*\n$")
        self.assertEqual((self.read("app.kvpkg"), self.names()), (before, names))

    def test_links_modes_and_closed_streams(self):
        self.small("a.kvpkg")
        os.chmod(self.dir / "a.kvpkg", 0o604)
        (self.dir / "link.kvpkg").symlink_to("a.kvpkg")
        self.ok("edit", "link.kvpkg", "--code", EXAMPLE / "code.k", "--set", "Name=L")
        self.assertTrue((self.dir / "link.kvpkg").is_symlink())
        self.assertEqual((self.dir / "a.kvpkg").stat().st_mode & 0o777, 0o604)
        # Without standard output the next file opened could take its place.
        result = self.run_tool("edit", "a.kvpkg", "--set", "Name=M", stdout=None,
                               preexec_fn=lambda: os.close(1))
        self.assertEqual(result.returncode, 1)
        self.assertEqual(result.stderr.decode(),
                         "qzapp: standard output: cannot be written (Bad file descriptor)\n")
        self.assertEqual(self.metadata("a.kvpkg")["Name"], "M")

    def test_wrong_targets(self):
        self.write("t.k", "x")
        self.write("junk.kvpkg", "no zip")
        (self.dir / "d.kvpkg").mkdir()
        rows = [
            (1, "t.k", 't.k: expected a packaged app (".kvpkg"), found a text app; make one of it with '
             '"qzapp convert"'),
            (1, "none.kvpkg", "none.kvpkg: there is no such file; check the name"),
            (1, "d.kvpkg", "d.kvpkg: is a directory; give the name of a file"),
            (1, "A.KVPKG", "A.KVPKG: the extension must be in lower case; rename the file"),
        ]
        for status, name, message in rows:
            self.fails(status, message, "edit", name, "--set", "Name=x")
        for args in (["--set", "Name=x"], ["--code", "t.k"], []):
            result = self.run_tool("edit", "junk.kvpkg", *args)
            self.assertEqual(result.returncode, 1)
            self.assertRegex(result.stderr.decode(), r"^qzapp: junk\.kvpkg: .*\n$")
        self.assertEqual(self.read("junk.kvpkg"), b"no zip")
        self.small("a.kvpkg")
        self.fails(2, "--clear: Name is set as well; leave one out", "edit", "a.kvpkg", "--set", "Name=x",
                   "--clear", "Name")


if __name__ == "__main__":
    unittest.main()
