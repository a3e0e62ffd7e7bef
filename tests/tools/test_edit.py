"""edit."""

import json
import os
import re
import unittest
import zipfile

from support import EXAMPLE, METADATA_PART, MODEL_PART, SCHEMA, ToolTest, add_relationship, replacing

RELS, TYPES = "_rels/.rels", "[Content_Types].xml"


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
        self.write("new.GIF", b"GIF89a;")
        for args in (["--code", "new.k"], ["--model", "new.kvd"], ["--screenshot", "new.GIF"]):
            self.assertEqual(self.ok("edit", "app.kvpkg", *args), "edited app.kvpkg\n")
        self.assertEqual(self.extracted("app.kvpkg", "code"), b"y = 2;\n")
        self.assertEqual(self.extracted("app.kvpkg", "model"), b"other model")
        self.assertEqual(self.json("info", "app.kvpkg")["screenshot"], {"format": "gif", "bytes": 7})
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

    def test_an_edit_that_changes_nothing_leaves_the_file_alone(self):
        self.create("a.kvpkg", "--set", "RequiredProducts=1", "--set", "RequiredProducts=2", "--set",
                    "KORVALRelease=R2020a")
        self.small("default.kvpkg")  # its Version is one that readers assume
        self.ok("extract", "a.kvpkg", "-o", "out")
        self.ok("extract", "default.kvpkg", "-o", "default", "--only", "metadata")
        (self.dir / "out/code.k").write_bytes((EXAMPLE / "code.k").read_bytes())
        record = self.metadata("a.kvpkg")
        rows = [
            ("a", ["--code", "out/code.k"]), ("a", ["--model", "out/appModel.kvd"]),
            ("a", ["--screenshot", "out/screenshot.png"]),
            ("a", [word for field in ("Name", "Description", "AppType", "Version")
                   for word in ("--set", f"{field}={record[field]}")]),
            ("a", ["--set", "RequiredProducts=1", "--set", "RequiredProducts=2"]),
            ("a", ["--set", "KORVALRelease=R2020a"]),  # it is there as legacy information
            ("default", ["--metadata", "default/metadata.json"]), ("default", ["--clear", "Author"]),
            ("default", ["--clear", "KORVALRelease"]), ("default", ["--set", "AppType=Standard"]),
            ("a", ["--set", "KORVALRelease=R2020a", "--code", "out/code.k", "--model", "out/appModel.kvd", "--screenshot",
                   "out/screenshot.png"]),
        ]
        for name, args in rows:
            with self.subTest(name=name, args=args):
                path = self.dir / f"{name}.kvpkg"
                before, folder = path.stat(), self.dir.stat()
                self.assertEqual(self.ok("edit", path.name, *args), f"{path.name}: is already as asked; nothing changed\n")
                after = path.stat()
                for each in "st_ino", "st_mtime_ns", "st_ctime_ns":
                    self.assertEqual(getattr(after, each), getattr(before, each))
                self.assertEqual(self.dir.stat().st_mtime_ns, folder.st_mtime_ns)
        self.assertEqual(self.ok("edit", "default.kvpkg", "--remove-screenshot", "--drop-signature", "--clear", "Name"),
                         "default.kvpkg: has neither a screenshot nor a signature, and is already as asked; nothing changed\n")

    def test_an_edit_that_changes_little_is_made(self):
        self.create("a.kvpkg", "--set", "RequiredProducts=1", "--set", "RequiredProducts=2", "--set",
                    "KORVALRelease=R2020a")
        host = self.metadata("a.kvpkg")["KORVALRelease"]
        code, model, shot = ((EXAMPLE / name).read_bytes() for name in ("code.k", "appModel.kvd", "screenshot.png"))
        large = os.urandom(600_000)
        self.write("large.kvd", large)
        self.ok("edit", "a.kvpkg", "--model", "large.kvd")
        before = self.read("a.kvpkg")

        def parts():
            return self.json("parts", "a.kvpkg")["coreProperties"]
        rows = [
            (["--code", self.write("c.k", code + b"\n")], lambda: self.extracted("a.kvpkg", "code") == code + b"\n"),
            *((["--model", self.write(f"{number}.kvd", other)],
               lambda other=other: self.extracted("a.kvpkg", "model") == other)
              for number, other in enumerate((large[:-1] + bytes([large[-1] ^ 1]), large + b"x", large[:-1]))),
            (["--screenshot", self.write("s.png", shot + b"x")],
             lambda: self.extracted("a.kvpkg", "screenshot") == shot + b"x"),
            (["--screenshot", self.write("s.jpg", shot)],
             lambda: self.json("info", "a.kvpkg")["screenshot"]["format"] == "jpg"),
            (["--set", "RequiredProducts=2", "--set", "RequiredProducts=1"],
             lambda: self.metadata("a.kvpkg")["RequiredProducts"] == ["2", "1"]),
            (["--set", f"KORVALRelease={host}"], lambda: parts()["KORVALReleaseInfo"] == host),
            (["--clear", "KORVALRelease"], lambda: parts()["KORVALReleaseInfo"] == host),
            (["--set", "KORVALRelease=R2020a", "--set", "Name=N", "--code", EXAMPLE / "code.k"],
             lambda: parts()["KORVALReleaseInfo"] == "R2020a (legacy)" and self.metadata("a.kvpkg")["Name"] == "N"),
        ]
        for args, is_made in rows:
            with self.subTest(args=args):
                self.write("a.kvpkg", before)
                run = self.run_tool("edit", "a.kvpkg", *args)  # it warns of a PNG image that is named s.jpg
                self.assertEqual(run.returncode, 0)
                self.assertRegex(run.stdout, rb"^edited a\.kvpkg\n")
                self.assertTrue(is_made())
        # What cannot be read is not there, whatever its size.
        self.write("a.kvpkg", before)
        self.flip("a.kvpkg", "bad.kvpkg", MODEL_PART)
        self.ok("edit", "bad.kvpkg", "--model", "large.kvd")
        self.assertEqual(self.extracted("bad.kvpkg", "model"), large)

    def test_a_named_default_becomes_a_value(self):
        self.small("a.kvpkg")
        self.rewrite("a.kvpkg", "b.kvpkg", replacing(METADATA_PART, "<AppType>Standard</AppType>", ""))
        for assignment in "AppType=Standard", "Version=1.0":
            self.assertEqual(self.ok("edit", "b.kvpkg", "--set", assignment), "edited b.kvpkg\n")
            self.assertIn("nothing changed", self.ok("edit", "b.kvpkg", "--set", assignment))
        self.assertIn(b"<AppType>Standard</AppType>", self.items("b.kvpkg")[METADATA_PART])
        self.assertEqual(self.json("parts", "b.kvpkg")["coreProperties"]["version"], "1.0")

    def test_items_of_lists(self):
        self.small("a.kvpkg", *(word for n in "xyx" for word in ("--set", f"RequiredProducts={n}")))
        self.write("items", "u\r\n\nv w\nx")
        already, absent = 'a.kvpkg: RequiredProducts already holds "y"\n', 'a.kvpkg: RequiredProducts does not hold '
        rows = [
            (["--add", "requiredproducts=z", "--add", "RequiredProducts=y"], "edited a.kvpkg\n" + already, ["x", "y", "x", "z"]),
            (["--add", "RequiredProducts=y"], "a.kvpkg: is already as asked; nothing changed\n" + already,
             ["x", "y", "x", "z"]),
            (["--remove", "RequiredProducts=x", "--add", "RequiredProducts=q"], "edited a.kvpkg\n", ["y", "z", "q"]),
            (["--remove", "RequiredProducts=absent", "--remove", "RequiredProducts=Q"],
             f'a.kvpkg: is already as asked; nothing changed\n{absent}"absent"\n{absent}"Q"; did you mean "q"?\n', ["y", "z", "q"]),
            (["--add", "RequiredProducts=@items", "--remove", "RequiredProducts=z"], "edited a.kvpkg\n",
             ["y", "q", "u", "v w", "x"]),
            (["--metadata", "m.json", "--add", "RequiredProducts=2"], "edited a.kvpkg\n", ["1", "2"]),
            (["--set", "RequiredProducts=@items", "--set", "RequiredProducts=@@"], "edited a.kvpkg\n",
             ["u", "v w", "x", "@"]),
        ]
        self.write("m.json", '{"RequiredProducts": ["1"]}')
        for args, report, items in rows:
            with self.subTest(args=args):
                self.assertEqual(self.ok("edit", "a.kvpkg", *args), report)
                self.assertEqual(self.metadata("a.kvpkg")["RequiredProducts"], items)
        before = self.read("a.kvpkg")
        replaced = "RequiredProducts is set or cleared as well, which replaces the whole list; leave one out"
        for message, *args in [
            ("edit: --add: Name is a text, not a list; give --set Name=VALUE, which replaces it", "--add", "Name=x"),
            (f"edit: --add: {replaced}", "--add", "RequiredProducts=a", "--set", "RequiredProducts=b"),
            (f"edit: --remove: {replaced}", "--remove", "RequiredProducts=a", "--clear", "RequiredProducts"),
            ('edit: --remove: "a" is added to RequiredProducts as well; leave one out', "--add", "RequiredProducts=a", "--remove",
             "RequiredProducts=a"),
            ('edit: --add: expected Field=Value, found "a"', "--add", "a"),
        ]:
            self.fails(2, message, "edit", "a.kvpkg", *args)
        self.assertEqual(self.read("a.kvpkg"), before)

    def test_values_from_files(self):
        self.small("a.kvpkg")
        for content, value in [("a\n", "a"), ("a\r\n", "a"), ("a\n\n", "a\n"), (" ä\nb ", " ä\nb "), ("", ""), ("@x", "@x")]:
            with self.subTest(content=content):
                self.write("text", content)
                self.ok("edit", "a.kvpkg", "--set", "Description=@text", "--set", "Name=@@text", "--set", "Author=x@y")
                got = self.metadata("a.kvpkg")
                self.assertEqual((got["Description"], got["Name"], got["Author"]), (value, "@text", "x@y"))
        self.ok("edit", "a.kvpkg", "--set", "Summary=@-", input=b"in\n")
        self.assertEqual(self.metadata("a.kvpkg")["Summary"], "in")
        self.write("bad", b"a\xff")
        self.write("large", "x" * ((16 << 20) + 1))
        before = self.read("a.kvpkg")
        for status, message, *args in [
            (1, 'no: there is no such file; check the name (for the text "@no" write "@@no")', "--set", "Name=@no"),
            (1, "bad: not valid UTF-8 at byte 1 (line 1, column 2); save it as UTF-8", "--set", "Name=@bad"),
            (1, "large: holds 16,777,217 bytes, more than the limit of 16,777,216 bytes", "--add", "UserComponents=@large"),
            (2, 'edit: --set: expected the name of a file behind "@"; "@@" is the text "@"', "--set", "Name=@"),
            (2, "-: standard input can be only one of the files; name the others", "--set", "Name=@-", "--code", "-"),
        ]:
            self.fails(status, message, "edit", "a.kvpkg", *args, input=b"x")
        self.assertEqual(self.read("a.kvpkg"), before)

    def test_each_of_several_files_is_edited_by_itself(self):
        for name in "ab":
            self.small(f"{name}.kvpkg", "--set", f"RequiredProducts={name}")
        (self.dir / "link.kvpkg").symlink_to("a.kvpkg")
        self.write("junk.kvpkg", "no zip")
        run = self.run_tool("edit", "a.kvpkg", "junk.kvpkg", "--add", "RequiredProducts=b", "t.k", "none.kvpkg",
                            "./a.kvpkg", "b.kvpkg", "link.kvpkg", "--code", "-", input=b"y = 1;\n")
        self.assertEqual((run.returncode, run.stdout.decode()),
                         (1, 'edited a.kvpkg\nedited b.kvpkg\nb.kvpkg: RequiredProducts already holds "b"\n'))
        self.assertRegex(run.stderr.decode(), r"^qzapp: junk\.kvpkg: is not a zip.*\nqzapp: t\.k: expected a packaged .*\n"
                         r"qzapp: none\.kvpkg: there is no such file; check the name\n$")
        self.assertTrue((self.dir / "link.kvpkg").is_symlink())
        for name, products in ("a", ["a", "b"]), ("b", ["b"]):
            self.assertEqual(self.metadata(f"{name}.kvpkg")["RequiredProducts"], products)
            self.assertEqual(self.extracted(f"{name}.kvpkg", "code"), b"y = 1;\n")
        # What is wrong for one of them is found before any is edited.
        before = self.read("a.kvpkg")
        self.fails(2, "b.kvpkg: is the same file as the input b.kvpkg; name another file", "edit", "a.kvpkg", "b.kvpkg",
                   "--model", "b.kvpkg")
        self.fails(1, "no: there is no such file; check the name", "edit", "a.kvpkg", "b.kvpkg", "--model", "no")
        self.assertEqual(self.read("a.kvpkg"), before)
        with open("/dev/full", "wb") as full:
            self.fails_like("b.kvpkg: was saved; only the report is missing: .*", "edit", "a.kvpkg", "b.kvpkg",
                            "--add", "RequiredProducts=a", status=3, stdout=full)
            self.assertEqual(self.metadata("b.kvpkg")["RequiredProducts"], ["b", "a"])
            self.fails_like("a.kvpkg: was saved; only the report is missing: .*", "edit", "a.kvpkg", "b.kvpkg", "--set",
                            "Name=N", status=3, stdout=full)
        self.assertEqual(self.metadata("b.kvpkg")["Name"], "N")

    def test_a_metadata_edit_keeps_what_later_hosts_have_put_there(self):
        self.small("a.kvpkg", *(word for n in "xxy" for word in ("--set", f"RequiredProducts={n}")))
        self.rewrite("a.kvpkg", "b.kvpkg", lambda name, content: content if name != METADATA_PART else content.replace(
            b'<product id="x"/>', b'<product id="x" n="1"/>', 1).replace(b"</metadata>", b"<new/></metadata>"))
        self.ok("edit", "b.kvpkg", "--set", "Name=N", "--set", "UserComponents=u")
        text = self.items("b.kvpkg")[METADATA_PART]
        self.assertIn(b'<product id="x" n="1"/><product id="x"/><product id="y"/>', text.replace(
            b'n="1" id="x"', b'id="x" n="1"'))
        self.assertTrue(text.endswith(b"</userComponents><new/></metadata>"), text)

    def test_what_is_ambiguous_or_would_spoil_something_else_is_refused_until_it_is_repaired(self):
        self.create()
        record = self.metadata("app.kvpkg")
        app = SCHEMA + "/lumenForge/app/2017/relationships/"
        core = "http://schemas.openxmlformats.org/package/2006/relationships/metadata/core-properties"
        code = SCHEMA + "/korval/2026/relationships/code"
        copy = ": qzapp check --repair bad-repaired.kvpkg bad.kvpkg"
        sets = {"metadata": ["--set", "Version=9"], "code": ["--code", EXAMPLE / "code.k"],
                "screenshot": ["--screenshot", EXAMPLE / "screenshot.png"], "none": ["--remove-screenshot"]}

        def leads(kind, to):
            part = {"appMetadata": "metadata/appMetadata.xml", "appScreenshot": "metadata/appScreenshot.png"}[kind]
            return replacing(RELS, f'{app}{kind}" Target="/{part}"', f'{app}{kind}" Target="{to}"')
        several = "has 2 {} relationships, and qzapp cannot tell which one is right; make a copy that has one" + copy
        spoils = r'/_rels/\.rels: relationship ".*" of type ".*" leads to the app\'s model, /lumenforge/appModel\.kvd, ' \
            "which this change would destroy; remove the relationship, or let it target a part of its own, or make a copy without it" + copy
        rows = [
            (add_relationship(app + "appMetadata", "/x"), "metadata", several.format("metadata")),
            (add_relationship(app + "appMetadata", "/" + METADATA_PART), "metadata", several.format("metadata")),
            (add_relationship(core, "/" + MODEL_PART), "metadata", several.format("core properties")),
            (add_relationship(code, "/" + METADATA_PART), "code", several.format("code")),
            (add_relationship(app + "appScreenshot", "/" + MODEL_PART), "screenshot", several.format("screenshot")),
            (add_relationship(app + "appScreenshot", "/x"), "none", several.format("screenshot")),
            (leads("appMetadata", "/" + MODEL_PART), "metadata", spoils),
            (leads("appScreenshot", "/" + MODEL_PART), "none", spoils),
            (leads("appScreenshot", "/x"), "screenshot", r"has a part /metadata/appScreenshot\.png, but no screenshot "
             "relationship leads to it, so it may be something else; make a copy in which it is the screenshot" + copy),
        ]
        for change, what, message in rows:
            with self.subTest(message=message, what=what):
                self.rewrite("app.kvpkg", "bad.kvpkg", change)
                before = self.read("bad.kvpkg")
                self.fails_like(r"bad\.kvpkg: " + message, "edit", "bad.kvpkg", *sets[what])
                self.assertEqual(self.read("bad.kvpkg"), before)
                for other in sets.keys() - {what} - ({"screenshot", "none"} if what in ("screenshot", "none") else set()):
                    self.rewrite("app.kvpkg", "other.kvpkg", change)
                    self.ok("edit", "other.kvpkg", *sets[other])
                    self.assertEqual(self.items("other.kvpkg")[MODEL_PART], self.items("app.kvpkg")[MODEL_PART])
                self.ok("check", "--repair", "bad-repaired.kvpkg", "--force", "bad.kvpkg")
                self.assertEqual(self.metadata("bad-repaired.kvpkg"), record)
                self.assertEqual(self.json("info", "bad-repaired.kvpkg")["screenshot"],
                                 self.json("info", "app.kvpkg")["screenshot"])
                self.ok("edit", "bad-repaired.kvpkg", *sets[what])

    def test_a_release_of_another_host_is_kept_if_it_is_given(self):
        host = self.metadata(self.small("a.kvpkg"))["KORVALRelease"]
        self.rewrite("a.kvpkg", "b.kvpkg", lambda name, content: content.replace(host.encode(), b"R2020a")
                     if name == "docProps/korval.xml" else content)
        self.assertEqual(self.metadata("b.kvpkg")["KORVALRelease"], "R2020a")
        before = self.read("b.kvpkg")
        self.assertIn("nothing changed", self.ok("edit", "b.kvpkg", "--set", "KORVALRelease=R2020a"))
        self.assertIn("nothing changed", self.ok("edit", "b.kvpkg", "--clear", "KORVALRelease"))
        self.assertEqual(self.read("b.kvpkg"), before)
        self.ok("edit", "b.kvpkg", "--set", "KORVALRelease=R2020a", "--set", "Name=N")
        properties = self.json("parts", "b.kvpkg")["coreProperties"]
        self.assertEqual((properties["KORVALRelease"], properties["KORVALReleaseInfo"]), (host, "R2020a (legacy)"))

    def test_what_has_a_usual_name_blocks_no_edit_for_good(self):
        self.create()
        app = SCHEMA + "/lumenForge/app/2017/relationships/"
        shot, metadata, model = "/metadata/appScreenshot.png", "/" + METADATA_PART, "/" + MODEL_PART
        thumbnail = "http://schemas.openxmlformats.org/package/2006/relationships/metadata/thumbnail"
        foreign = '<Relationship Id="f" Type="urn:f" Target="{}"/>'

        def linked(without, *more):
            """A package without the relationships to the part or of the type, and with more."""
            return lambda name, content: content if name != RELS else re.sub(
                rf'<Relationship [^>]*"{without}"[^>]*/>', "", content.decode()).replace(
                "</Relationships>", "".join(more) + "</Relationships>").encode()
        elsewhere = f'<Relationship Id="e" Type="{app}appScreenshot" Target="/media/s.gif"/>'
        sets = {"screenshot": ["--screenshot", EXAMPLE / "screenshot.png"], "metadata": ["--set", "Version=9"],
                "model": ["--model", EXAMPLE / "appModel.kvd"]}
        rows = [  # what is set, and whether that works without a repair
            ("screenshot", linked(shot, elsewhere, foreign.format(shot)), True),
            ("screenshot", linked(shot, elsewhere), True),
            ("screenshot", linked(shot, foreign.format(shot)), True),
            ("screenshot", linked(app + "appScreenshot"), False),  # is the thumbnail
            ("metadata", linked(metadata), False),
            ("metadata", linked(metadata, foreign.format(metadata)), False),
            ("model", linked(model, foreign.format(model)), False),
            *((what, lambda name, content: None if name == RELS else content, False) for what in sets),
        ]
        for what, change, works in rows:
            self.rewrite("app.kvpkg", "bad.kvpkg", lambda name, old: change(name, old) if name != TYPES else
                         old.replace(b"</Types>", b'<Default Extension="gif" ContentType="image/gif"/></Types>'))
            with zipfile.ZipFile(self.dir / "bad.kvpkg", "a") as package:
                package.writestr("media/s.gif", b"GIF89a")
            before, edited = self.items("bad.kvpkg"), "bad.kvpkg"
            with self.subTest(what=what, rels=before.get(RELS)):
                if works:
                    self.write("first.png", (EXAMPLE / "screenshot.png").read_bytes() + b"\n")
                    for args in ["--screenshot", "first.png"], sets[what]:  # then to a package of its own making
                        self.assertEqual(self.ok("edit", "bad.kvpkg", *args), "edited bad.kvpkg\nbad.kvpkg: /metadata/"
                                         "appScreenshot.png is something else and stays; the new screenshot is /metadata/"
                                         "appScreenshot.1.png\n")
                else:
                    part = {"screenshot": shot, "metadata": metadata, "model": model}[what]
                    self.fails(1, f"bad.kvpkg: has a part {part}, but no {what} relationship leads to it, so it may "
                               f"be something else; make a copy in which it is the {what}: qzapp check --repair "
                               "bad-repaired.kvpkg bad.kvpkg", "edit", "bad.kvpkg", *sets[what])
                    self.assertEqual(self.items("bad.kvpkg"), before)
                    edited = "bad-repaired.kvpkg"
                    self.ok("check", "--repair", edited, "--force", "bad.kvpkg")
                    self.ok("edit", edited, *sets[what])
                changing = {RELS, TYPES, "docProps/core.xml", "docProps/korval.xml", METADATA_PART, "media/s.gif"}
                self.assertLessEqual({item for item in before.items() if item[0] not in changing},
                                     set(self.items(edited).items()))
                # Only the old screenshot goes.
                self.assertEqual("media/s.gif" in self.items(edited), elsewhere.encode() not in before.get(RELS, b""))
                self.assertEqual(self.extracted(edited, "screenshot"), (EXAMPLE / "screenshot.png").read_bytes())
                links = {link["type"]: link["target"] for link in self.json("parts", edited)["relationships"]}
                self.assertEqual("urn:f" in links, b"urn:f" in before.get(RELS, b""))
                self.assertEqual(links[thumbnail], links[app + "appScreenshot"])

    def test_an_item_without_a_type_is_never_written_over(self):
        self.create()
        sets = {"screenshot": ["--screenshot", EXAMPLE / "screenshot.png"], "metadata": ["--set", "Version=9"],
                "model": ["--model", EXAMPLE / "appModel.kvd"], "code": ["--code", EXAMPLE / "code.k"]}
        record = self.metadata("app.kvpkg")

        def untyped(item, linked, new_name=None):
            """A package whose content types lack one part, with or without the relationships to it."""
            def change(name, content):
                if name == TYPES:
                    content = re.sub(rf'<Override PartName="/{item}"[^>]*/>'.encode(), b"", content)
                if name == RELS and not linked:
                    content = re.sub(rf'<Relationship [^>]*"/{item}"/>'.encode(), b"", content)
                return content.replace(item.encode(), new_name.encode()) if name == RELS and new_name else content
            self.rewrite("app.kvpkg", "bad.kvpkg", change)
            with zipfile.ZipFile(self.dir / "renamed.kvpkg", "w") as package:
                for name, content in self.items("bad.kvpkg").items():
                    package.writestr(new_name if name == item and new_name else name, content)
            (self.dir / "renamed.kvpkg").rename(self.dir / "bad.kvpkg")
            return f"/{new_name or item}"
        rows = [(what, item, linked, None) for linked in (True, False) for what, item in (
            ("screenshot", "metadata/appScreenshot.png"), ("metadata", "docProps/core.xml"),
            ("metadata", "docProps/korval.xml"), ("metadata", METADATA_PART), ("model", MODEL_PART),
            ("code", "korval/code.k"))]
        rows += [("metadata", "docProps/core.xml", True, "docProps/mine.prop"),
                 ("metadata", "docProps/core.xml", False, "docProps/CORE.xml"),
                 ("code", "korval/code.k", True, "korval/mine.q"), ("code", "korval/code.k", False, "korval/CODE.K")]
        for what, item, linked, new_name in rows:
            with self.subTest(item=item, linked=linked, new_name=new_name):
                shown = untyped(item, linked, new_name)
                before = self.items("bad.kvpkg")
                self.assertNotIn(shown, [part["name"] for part in self.json("parts", "bad.kvpkg")["parts"]])
                usual = shown if linked else f"/{item}"
                self.fails_like(rf".*{re.escape(usual)}\"?,? (which )?has no content type and so is not a part.*; give it one "
                                r"in \[Content_Types\].xml.* or make a copy in which it has one: qzapp check --repair "
                                r"bad-repaired\.kvpkg bad\.kvpkg", "edit", "bad.kvpkg", *sets[what])
                self.assertEqual(self.items("bad.kvpkg"), before)
                for other in sets.keys() - {what} - ({"metadata"} if what == "model" else set()):
                    untyped(item, linked, new_name)
                    self.ok("edit", "bad.kvpkg", *sets[other])
                    self.assertEqual(self.items("bad.kvpkg")[shown[1:]], before[shown[1:]], other)
                untyped(item, linked, new_name)
                self.ok("check", "--repair", "bad-repaired.kvpkg", "--force", "bad.kvpkg")
                self.assertEqual(self.metadata("bad-repaired.kvpkg"), record)
                self.assertNotIn("warning", self.ok("check", "bad-repaired.kvpkg"))
                self.ok("edit", "bad-repaired.kvpkg", *sets[what])
        # The screenshot is another one, and the item something else.
        self.rewrite("app.kvpkg", "bad.kvpkg", lambda name, content: content.replace(
            b"metadata/appScreenshot.png", b"media/s.png") if name in (TYPES, RELS) else content)
        with zipfile.ZipFile(self.dir / "bad.kvpkg", "a") as package:
            package.writestr("media/s.png", b"old")
            package.writestr("metadata/appScreenshot.1.PNG", b"also no part")
        self.assertEqual(self.ok("edit", "bad.kvpkg", *sets["screenshot"]), "edited bad.kvpkg\nbad.kvpkg: /metadata/"
                         "appScreenshot.png is something else and stays; the new screenshot is /metadata/appScreenshot.2.png\n")
        self.assertEqual(self.items("bad.kvpkg")["metadata/appScreenshot.1.PNG"], b"also no part")

    def test_an_external_screenshot_is_no_part_to_remove(self):
        self.rewrite(self.create(), "bad.kvpkg", replacing(
            RELS, '/appScreenshot" Target="/metadata/appScreenshot.png"',
            f'/appScreenshot" Target="/{MODEL_PART}" TargetMode="External"'))
        self.ok("edit", "bad.kvpkg", "--remove-screenshot")
        self.assertEqual(self.items("bad.kvpkg")[MODEL_PART], self.items("app.kvpkg")[MODEL_PART])

    def test_signatures_go_only_when_asked(self):
        self.signed(self.create(), "signed.kvpkg")
        self.ok("check", "--strict", "signed.kvpkg")
        before = self.read("signed.kvpkg")
        code = ["--code", self.write("new.k", "y = 2;\n")]
        self.assertEqual(self.ok("edit", "signed.kvpkg", "--code", EXAMPLE / "code.k"),
                         "signed.kvpkg: is already as asked; nothing changed\n")
        for args in (["--set", "Name=N"], code, ["--remove-screenshot"]):
            self.fails(1, "signed.kvpkg: is signed, and no signature would be valid after an edit; add --drop-signature "
                       "to remove the signatures", "edit", "signed.kvpkg", *args)
        self.write("bad.json", '{"Summary": "\\u0000"}')
        self.fails_like(".*Summary.*", "edit", "signed.kvpkg", "--drop-signature", "--metadata", "bad.json")
        self.assertEqual(self.read("signed.kvpkg"), before)
        for args in ([], ["--set", "Name=N", *code], ["--remove-screenshot"], ["--code", EXAMPLE / "code.k"]):
            self.write("signed.kvpkg", before)
            self.assertEqual(self.ok("edit", "signed.kvpkg", "--drop-signature", *args), "edited signed.kvpkg\n")
            self.assertEqual([n for n in self.items("signed.kvpkg") if n.startswith("_xml")], [])
            self.assertNotIn(b"digital-signature", self.items("signed.kvpkg")[RELS])
            self.assertNotIn(b"_xmlsignatures", self.items("signed.kvpkg")["[Content_Types].xml"])
            self.ok("check", "--strict", "signed.kvpkg")
        self.assertEqual(self.ok("edit", "app.kvpkg", "--drop-signature"), "app.kvpkg: is not signed; nothing changed\n")

    def test_no_part_of_the_app_goes_as_a_signature(self):
        media = "application/vnd.openxmlformats-package.digital-signature-origin"
        self.rewrite(self.signed(self.create(), "signed.kvpkg"), "bad.kvpkg", lambda name, content: {
            RELS: content.replace(b"_xmlsignatures/origin.sigs", MODEL_PART.encode()),
            "[Content_Types].xml": re.sub(rb'(kvd"|appMetadata.xml") ContentType="[^"]*"',
                                          rb'\1 ContentType="' + media.encode() + b'"', content)}.get(name, content))
        self.assertIn(media.encode() + b'"/><Override PartName="/meta', self.items("bad.kvpkg")["[Content_Types].xml"])
        self.ok("edit", "bad.kvpkg", "--drop-signature")
        self.assertLessEqual({MODEL_PART, METADATA_PART}, self.items("bad.kvpkg").keys())
        types = self.items("app.kvpkg")["[Content_Types].xml"].decode()
        own = re.search('appMetadata.xml" ContentType="([^"]*)', types)[1]
        for name in ("origin", "xmlsignature+xml"):
            self.rewrite("app.kvpkg", "odd.kvpkg", replacing("[Content_Types].xml", own, media.replace("origin", name)))
            self.assertEqual(self.ok("edit", "odd.kvpkg", "--drop-signature"),
                             "odd.kvpkg: is not signed; nothing changed\n")
            self.assertNotIn("digital signature", self.run_tool("check", "odd.kvpkg").stdout.decode())

    def test_another_thumbnail_is_told(self):
        thumbnail = "http://schemas.openxmlformats.org/package/2006/relationships/metadata/thumbnail"
        self.rewrite(self.small("a.kvpkg"), "b.kvpkg", lambda name, content: add_relationship(
            thumbnail, "/media/t.png")(name, replacing("[Content_Types].xml", "</Types>", (
                '<Default Extension="png" ContentType="image/png"/></Types>'))(name, content)))
        with zipfile.ZipFile(self.dir / "b.kvpkg", "a") as package:
            package.writestr("media/t.png", b"other")
        shot = EXAMPLE / "screenshot.png"
        self.assertEqual(self.ok("edit", "b.kvpkg", "--screenshot", shot),
                         "edited b.kvpkg\nb.kvpkg: /media/t.png is no longer the thumbnail, because the screenshot is; "
                         "the picture stays in the file\n")
        self.assertEqual(self.items("b.kvpkg")["media/t.png"], b"other")
        self.write("new.gif", b"GIF89a;")
        self.assertEqual(self.ok("edit", "b.kvpkg", "--screenshot", "new.gif"), "edited b.kvpkg\n")

    def test_a_release_is_kept_as_legacy_information_through_edits(self):
        def release():
            properties = self.json("parts", "a.kvpkg")["coreProperties"]
            return properties["KORVALRelease"], properties["KORVALReleaseInfo"]
        self.small("a.kvpkg")
        host = self.metadata("a.kvpkg")["KORVALRelease"]
        kept = f"edited a.kvpkg\na.kvpkg: KORVALRelease is {host}, the release of the host that saves"
        self.assertEqual(self.ok("edit", "a.kvpkg", "--set", "KORVALRelease=R2020a"),
                         f"{kept}; R2020a is kept as legacy information\n")
        self.assertEqual(self.ok("edit", "a.kvpkg", "--set", "Name=N"), "edited a.kvpkg\n")
        self.assertEqual(release(), (host, "R2020a (legacy)"))
        # A record has the release that readers find.
        record = {**self.metadata("a.kvpkg"), "Summary": "S"}
        self.assertEqual(record["KORVALRelease"], host)
        for done in ("edited a.kvpkg\n", "a.kvpkg: is already as asked; nothing changed\n"):
            self.assertEqual(self.ok("edit", "a.kvpkg", "--metadata", self.write("m.json", json.dumps(record))), done)
            self.assertEqual(release(), (host, "R2020a (legacy)"))
        self.assertEqual(self.ok("edit", "a.kvpkg", "--clear", "KORVALRelease"), kept + "\n")
        self.assertEqual(release(), (host, host))
        self.ok("edit", "a.kvpkg", "--set", "KORVALRelease=R2020a")
        self.assertEqual(self.ok("edit", "a.kvpkg", "--set", f"KORVALRelease={host}"), "edited a.kvpkg\n")
        self.assertEqual(release(), (host, host))

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
        self.fails(3, "a.kvpkg: was saved; only the report is missing: standard output: cannot be written (Bad file "
                   "descriptor)", "edit", "a.kvpkg", "--set", "Name=M", stdout=None, preexec_fn=lambda: os.close(1))
        self.assertEqual(self.metadata("a.kvpkg")["Name"], "M")

    def test_wrong_targets(self):
        self.write("t.k", "x")
        self.write("junk.kvpkg", "no zip")
        self.fails(1, 't.k: expected a packaged app (".kvpkg"), found a text app; "qzapp convert" makes a packaged app of it',
                   "edit", "t.k", "--set", "Name=x")
        for args in (["--set", "Name=x"], ["--code", "t.k"], []):
            self.fails_like(r"junk\.kvpkg: .*", "edit", "junk.kvpkg", *args)
        self.assertEqual(self.read("junk.kvpkg"), b"no zip")
