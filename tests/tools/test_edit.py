"""edit."""

import os
import unittest

from support import EXAMPLE, METADATA_PART, MODEL_PART, SCHEMA, ToolTest, add_relationship, replacing


class Edit(ToolTest):
    def test_what_is_not_named_stays(self):
        self.create()
        before, record = self.items("app.kvpkg"), self.metadata("app.kvpkg")
        self.ok("edit", "app.kvpkg", "--set", "Version=3", "--clear", "Description")
        self.assertEqual(self.metadata("app.kvpkg"), {**record, "Version": "3", "Description": ""})
        after = self.items("app.kvpkg")
        self.assertLessEqual({name for name in before if before[name] != after[name]},
                             {METADATA_PART, "docProps/core.xml", "docProps/korval.xml"})

    def test_every_kind_of_content(self):
        self.create()
        record = self.metadata("app.kvpkg")
        self.write("new.k", "y = 2;\n")
        self.write("new.kvd", b"other model")
        self.write("new.GIF", b"GIF89a")
        for args in (["--code", "new.k"], ["--model", "new.kvd"], ["--screenshot", "new.GIF"]):
            self.assertEqual(self.ok("edit", "app.kvpkg", *args), "edited app.kvpkg\n")
        self.assertEqual(self.extracted("app.kvpkg", "code"), b"y = 2;\n")
        self.assertEqual(self.extracted("app.kvpkg", "model"), b"other model")
        self.assertEqual(self.json("info", "app.kvpkg")["screenshot"], {"format": "gif", "bytes": 6})
        self.ok("edit", "app.kvpkg", "--code", EXAMPLE / "code.k", "--remove-screenshot", "--set", "Name=N")
        self.assertEqual(self.extracted("app.kvpkg", "code"), (EXAMPLE / "code.k").read_bytes())
        self.assertIsNone(self.json("info", "app.kvpkg")["screenshot"])
        self.assertEqual(self.metadata("app.kvpkg"), {**record, "Name": "N"})
        self.ok("check", "--strict", "app.kvpkg")
        self.assertEqual(self.names(), ["app.kvpkg", "new.GIF", "new.k", "new.kvd"])

    def test_a_default_that_was_read_does_not_become_a_value(self):
        self.small("a.kvpkg")
        self.rewrite("a.kvpkg", "b.kvpkg", replacing(METADATA_PART, "<AppType>Standard</AppType>", ""))
        self.ok("edit", "b.kvpkg", "--set", "Author=A", "--set", "UserComponents=u")
        self.ok("edit", "b.kvpkg", "--clear", "Author")
        got = self.metadata("b.kvpkg")
        self.assertEqual((got["Author"], got["UserComponents"]), ("", ["u"]))
        self.assertIsNone(self.json("parts", "b.kvpkg")["coreProperties"]["version"])

    def test_what_was_cleared_stays_empty_and_lists_are_kept(self):
        self.small("a.kvpkg", "--set", "RequiredProducts=1", "--set", "RequiredProducts=2", "--set",
                   "ImageRelativePaths=p")
        texts = ["ScreenshotMode", "KVPKGVersion", "MinimumSupportedKORVALRelease", "AppType", "Version"]
        self.ok("edit", "a.kvpkg", *(word for text in texts for word in ("--clear", text)))
        self.ok("edit", "a.kvpkg", "--set", "Author=A")
        got = self.metadata("a.kvpkg")
        self.assertEqual([got[text] for text in texts], [""] * len(texts))
        self.assertEqual((got["RequiredProducts"], got["ImageRelativePaths"]), (["1", "2"], ["p"]))

    def test_nothing_to_do_changes_nothing(self):
        self.small("a.kvpkg")
        before = self.read("a.kvpkg")
        self.assertEqual(self.ok("edit", "a.kvpkg", "--remove-screenshot"),
                         "a.kvpkg: has no screenshot; nothing changed\n")
        self.assertEqual(self.read("a.kvpkg"), before)

    def test_several_metadata_or_screenshot_relationships_are_refused(self):
        self.create()
        base = SCHEMA + "/lumenForge/app/2017/relationships/"
        rows = [
            ("appMetadata", ["--set", "Name=x"], "has 2 metadata relationships, so its metadata cannot be "
             "told and would be lost; create the app anew"),
            ("appScreenshot", ["--code", EXAMPLE / "code.k", "--remove-screenshot"],
             "has 2 screenshot relationships, so the screenshot cannot be told; create the app anew"),
        ]
        for kind, args, message in rows:
            self.rewrite("app.kvpkg", "two.kvpkg", add_relationship(base + kind, "/x"))
            before = self.read("two.kvpkg")
            self.fails(1, f"two.kvpkg: {message}", "edit", "two.kvpkg", *args)
            self.assertEqual(self.read("two.kvpkg"), before)

    def test_a_failing_edit_changes_nothing(self):
        self.create()
        self.write("bad.k", b"\xff")
        self.write("m.json", '{"Summary": "\\u0000"}')
        before, names = self.read("app.kvpkg"), self.names()
        for pattern, *args in [
            (r"bad\.k: not valid UTF-8.*", "--code", "bad.k", "--set", "Name=x"),
            (r"app\.kvpkg: .*Summary.*", "--code", EXAMPLE / "code.k", "--metadata", "m.json"),
            (r"none: there is no such file.*", "--set", "Name=x", "--model", "none"),
        ]:
            self.fails_like(pattern, "edit", "app.kvpkg", *args)
        self.assertEqual((self.read("app.kvpkg"), self.names()), (before, names))

    def test_without_standard_output_no_file_takes_its_place(self):
        self.small("a.kvpkg")
        self.fails(1, "standard output: cannot be written (Bad file descriptor)", "edit", "a.kvpkg", "--set",
                   "Name=M", stdout=None, preexec_fn=lambda: os.close(1))
        self.assertEqual(self.metadata("a.kvpkg")["Name"], "M")

    def test_wrong_targets(self):
        self.write("t.k", "x")
        self.write("junk.kvpkg", "no zip")
        self.fails(1, 't.k: expected a packaged app (".kvpkg"), found a text app; make one of it with "qzapp convert"',
                   "edit", "t.k", "--set", "Name=x")
        for args in (["--set", "Name=x"], ["--code", "t.k"], []):
            self.fails_like(r"junk\.kvpkg: .*", "edit", "junk.kvpkg", *args)
        self.assertEqual(self.read("junk.kvpkg"), b"no zip")
