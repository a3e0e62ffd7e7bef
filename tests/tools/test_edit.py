"""edit."""

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
                    for _ in range(2):  # the second time, to a package of its own making
                        self.assertEqual(self.ok("edit", "bad.kvpkg", *sets[what]), "edited bad.kvpkg\nbad.kvpkg: /metadata/"
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
        for args in (["--set", "Name=N"], ["--code", EXAMPLE / "code.k"], ["--remove-screenshot"]):
            self.fails(1, "signed.kvpkg: is signed, and no signature would be valid after an edit; add --drop-signature "
                       "to remove the signatures", "edit", "signed.kvpkg", *args)
        self.write("bad.json", '{"Summary": "\\u0000"}')
        self.fails_like(".*Summary.*", "edit", "signed.kvpkg", "--drop-signature", "--metadata", "bad.json")
        self.assertEqual(self.read("signed.kvpkg"), before)
        for args in ([], ["--set", "Name=N", "--code", EXAMPLE / "code.k"], ["--remove-screenshot"]):
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
        self.assertEqual(self.ok("edit", "b.kvpkg", "--screenshot", shot), "edited b.kvpkg\n")

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
        self.assertEqual(self.ok("edit", "a.kvpkg", "--clear", "KORVALRelease"), kept + "\n")
        self.assertEqual(release(), (host, host))
        self.assertEqual(self.ok("edit", "a.kvpkg", "--set", f"KORVALRelease={host}"), "edited a.kvpkg\n")

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
