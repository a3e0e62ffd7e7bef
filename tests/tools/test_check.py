"""check and check --repair."""

import base64
import io
import json
import os
import pathlib
import random
import re
import unittest
import zipfile

from support import EXAMPLE, METADATA_PART, MODEL_PART, SCHEMA, ToolTest, add_relationship

PAGE = pathlib.Path(__file__).parents[2] / "docs" / "qzapp-check.md"
PNG = (EXAMPLE / "screenshot.png").read_bytes()
THUMBNAIL = "http://schemas.openxmlformats.org/package/2006/relationships/metadata/thumbnail"


def replacing(item, old, new):
    """A change for rewrite(); `old` must be there."""
    def change(name, content):
        if name != item:
            return content
        if old.encode() not in content:
            raise AssertionError(f"{old} is not in {item}")
        return content.replace(old.encode(), new.encode() if isinstance(new, str) else new)
    return change


def setting(item, content):
    return lambda name, old: content if name == item else old


def damaged(data, dice):
    """The bytes with one to three pieces flipped, lost, blanked, doubled or foreign."""
    data = bytearray(data)
    for _ in range(dice.randint(1, 3)):
        at = dice.randrange(len(data) + 1)
        piece = slice(at, at + dice.choice([1, 4, 30, 500, len(data)]))
        new = dice.choice([b"", bytes(len(data[piece])), data[piece] * 2, dice.randbytes(8) + data[piece],
                           bytes(b ^ 1 << dice.randrange(8) for b in data[piece][:8]) + data[piece][8:]])
        data[piece] = new
    return bytes(data)


class Unseekable(io.RawIOBase):
    """A stream to which zipfile writes sizes and checksums behind the data."""

    def __init__(self, file):
        super().__init__()
        self.file = file

    def writable(self):
        return True

    def write(self, data):
        return self.file.write(data)


class CheckTest(ToolTest):
    def report(self, name, *args):
        """The JSON of one file; a run that fails must say nothing on standard error either."""
        result = self.run_tool("check", "--json", *args, name)
        self.assertEqual(result.stderr, b"", name)
        report = json.loads(result.stdout)
        checked = report.get("result", report)
        self.assertEqual(result.returncode, 1 if checked["errors"] else 0, report)
        return report

    def rules(self, name):
        return {f["rule"] for f in self.report(name)["findings"]}

    def flip(self, source, target, item_name):
        """Breaks the content of one item."""
        with zipfile.ZipFile(self.dir / source) as archive:
            item = archive.getinfo(item_name)
        data = bytearray(self.read(source))
        data[item.header_offset + 30 + len(item_name) + item.compress_size // 2] ^= 0x55
        return self.write(target, bytes(data))

    def without_directory(self, source, target):
        data = self.read(source)
        return self.write(target, data[:data.index(b"PK\1\2")])


class Check(CheckTest):
    def test_a_good_app_has_no_findings(self):
        self.create()
        self.assertEqual(self.ok("check", "--strict", "app.kvpkg"), "app.kvpkg: no findings\n")
        self.assertEqual(self.report("app.kvpkg"), {
            "file": "app.kvpkg", "errors": 0, "warnings": 0, "notes": 0, "findings": []})

    def test_each_departure_has_its_rule(self):
        self.create()
        core, rels, types = "docProps/core.xml", "_rels/.rels", "[Content_Types].xml"
        rows = [
            ({"name-missing"}, replacing(core, "<dc:title>Wärmefeld<", "<dc:title><")),
            ({"core-properties-rules"}, replacing(core, "<dc:title>", '<dc:title xml:lang="de">')),
            ({"core-properties-several"}, add_relationship(
                "http://schemas.openxmlformats.org/package/2006/relationships/metadata/"
                "core-properties", "korval/code.k")),
            ({"package-type"}, replacing(core, "vnd.quorvane.korval.app", "x")),
            ({"code-encoding"}, setting("korval/code.k", b"x = '\xff'")),
            ({"code-mark"}, setting("korval/code.k", b"\xef\xbb\xbfx = 1")),
            ({"model-empty"}, setting(MODEL_PART, b"")),
            ({"metadata-xml"}, setting(METADATA_PART, b"<metadata>")),
            ({"metadata-unknown"}, replacing(METADATA_PART, "</metadata>", "<more/></metadata>")),
            ({"metadata-twice"}, replacing(METADATA_PART, "</metadata>", "<uuid/></metadata>")),
            ({"metadata-default"}, lambda n, c: re.sub(b"<AppType>.*</AppType>", b"", c)
             if n == METADATA_PART else c),
            ({"metadata-item"}, lambda n, c: re.sub(b'<product id="[^"]*"', b"<product", c, count=1)
             if n == METADATA_PART else c),
            ({"screenshot-bytes"}, setting("metadata/appScreenshot.png", b"\xff\xd8\xff\0\0\xff\xd9")),
            ({"screenshot-cut"}, setting("metadata/appScreenshot.png", PNG[:-20])),
            ({"thumbnail-missing"}, replacing(rels, THUMBNAIL, SCHEMA + "/other")),
            ({"part-dangling"}, replacing(rels, "/korval/code.k", "/korval/gone.k")),
            ({"part-ambiguous"}, add_relationship(
                SCHEMA + "/lumenForge/app/2017/relationships/appMetadata", "korval/code.k")),
            ({"relationship-dangling"}, add_relationship("urn:x", "nowhere.xml")),
            ({"relationship-external"}, add_relationship(
                "urn:x", "http://example.com/\" TargetMode=\"External")),
            ({"relationships-entry"}, add_relationship("urn:x", "korval/code.k", "rId1")),
            ({"relationships-missing"}, lambda n, c: None if n == rels else c),
            ({"types-missing"}, lambda n, c: None if n == types else c),
            ({"types-entry"}, replacing(types, "</Types>", "<Default Extension=''/><X/></Types>")),
            ({"types-unused"}, replacing(
                types, "</Types>", "<Override PartName='/no' ContentType='a/b'/></Types>")),
            ({"model-missing"}, lambda n, c: None if n == MODEL_PART else c),
        ]
        for expected, change in rows:
            with self.subTest(expected):
                name = self.rewrite("app.kvpkg", "bad.kvpkg", change)
                self.assertLessEqual(expected, self.rules(name))

    def test_goes_on_behind_the_first_error(self):
        self.create()
        bad = self.rewrite("app.kvpkg", "bad.kvpkg", lambda n, c: {
            "[Content_Types].xml": c.replace(b"</Types>", b"<X/></Types>"),
            "_rels/.rels": c.replace(b"</Relationships>", b"<Relationship/></Relationships>"),
            "docProps/core.xml": c.replace("Wärmefeld".encode(), b""),
            "metadata/appScreenshot.png": b"GIF89a;"}.get(n, c))
        self.assertLessEqual({"types-entry", "relationships-entry", "name-missing",
                              "screenshot-bytes"}, self.rules(bad))

    def test_items_that_are_no_parts(self):
        self.create()
        with zipfile.ZipFile(self.dir / "app.kvpkg", "a") as package:
            for name in ("folder/", "a b", "untyped.zzz", "korval/code.k/x.xml"):
                package.writestr(name, b"" if name.endswith("/") else b"<x/>")
        found = [(f["rule"], f["part"]) for f in self.report("app.kvpkg")["findings"]]
        self.assertLessEqual({("item-folder", "folder/"), ("item-name", "a b"),
                              ("item-untyped", "/untyped.zzz")}, set(found))

    def test_damaged_bytes_are_told_item_by_item(self):
        self.create()
        self.flip("app.kvpkg", "bad.kvpkg", MODEL_PART)
        findings = self.report("bad.kvpkg")["findings"]
        self.assertEqual([(f["rule"], f["severity"], f["part"]) for f in findings],
                         [("item-damaged", "error", "/" + MODEL_PART)])
        self.assertIn("qzapp check --repair bad-repaired.kvpkg bad.kvpkg", findings[0]["fix"])
        # What cannot be read is not said to be empty, too.
        self.flip("app.kvpkg", "bad.kvpkg", "docProps/core.xml")
        self.assertEqual(self.rules("bad.kvpkg"), {"item-damaged"})

    def test_bytes_that_belong_to_nothing(self):
        whole = self.read(self.create())
        end = whole.rindex(b"PK\5\6")
        directory = int.from_bytes(whole[end + 16:end + 20], "little")
        moved = (directory + 3).to_bytes(4, "little")
        rows = [
            ({"zip-behind"}, whole + b"more"),
            ({"zip-gap"}, whole[:directory] + b"gap" + whole[directory:end + 16] + moved + whole[end + 20:]),
            ({"zip-end", "zip-gap"}, b"junk" + whole),
        ]
        for expected, data in rows:
            self.assertEqual(self.rules(self.write("odd.kvpkg", data)), expected)

    def test_a_refused_zip_file_tells_what_it_is_like(self):
        whole = self.read(self.create())
        for name, method in [("KORVAL/code.k", zipfile.ZIP_STORED), ("a.png", zipfile.ZIP_BZIP2)]:
            self.write(f"{method}.kvpkg", whole)
            with zipfile.ZipFile(self.dir / f"{method}.kvpkg", "a", method) as package:
                package.writestr(name, b"x")
        rows = [
            ("zip-end", whole[:-30]),
            ("zip-directory", whole.replace(b"PK\1\2", b"PK\1\3", 1)),
            ("zip-item", whole.replace(b"korval/code.k", b"korval/code.l", 1)),
            ("zip-names", self.read(f"{zipfile.ZIP_STORED}.kvpkg")),
            ("zip-unsupported", self.read(f"{zipfile.ZIP_BZIP2}.kvpkg")),
        ]
        for expected, data in rows:
            found = self.report(self.write("odd.kvpkg", data))["findings"]
            self.assertEqual([f["rule"] for f in found if f["rule"].startswith("zip-")][:1], [expected])

    def test_fixes_for_a_refused_file_name_the_repaired_one(self):
        self.create()
        cut = self.write("cut.kvpkg", self.read("app.kvpkg")[:20_000])
        fixes = {f["rule"]: f["fix"] for f in self.report(cut)["findings"]}
        self.assertEqual(fixes["model-missing"], "get the file again, or once it is repaired: qzapp edit "
                         "cut-repaired.kvpkg --model FILE")
        self.assertNotIn("name-missing", fixes)

    def test_the_fix_for_a_lost_model_works(self):
        self.create()
        self.rewrite("app.kvpkg", "bad.kvpkg", lambda n, c: None if n == MODEL_PART else c)
        fixes = {f["rule"]: f["fix"] for f in self.report("bad.kvpkg")["findings"]}
        self.assertEqual(fixes["model-missing"],
                         'get the file again, or "qzapp check --repair bad-repaired.kvpkg bad.kvpkg", '
                         "then qzapp edit bad-repaired.kvpkg --model FILE")
        report = self.report("bad.kvpkg", "--repair", "bad-repaired.kvpkg")
        fixes = {f["rule"]: f["fix"] for f in report["result"]["findings"]}
        self.assertEqual(fixes["model-missing"],
                         "get the file again, or qzapp edit bad-repaired.kvpkg --model FILE")
        self.ok("edit", "bad-repaired.kvpkg", "--model", EXAMPLE / "appModel.kvd")
        self.assertEqual(self.ok("check", "--strict", "bad-repaired.kvpkg"), "bad-repaired.kvpkg: no findings\n")

    def test_strict_and_several_files(self):
        self.create()
        self.rewrite("app.kvpkg", "warned.kvpkg", setting(MODEL_PART, b""))
        self.write("Wrong.KVPKG", self.read("app.kvpkg"))
        self.assertIn("1 warning", self.ok("check", "warned.kvpkg", "app.kvpkg"))
        self.assertEqual(self.run_tool("check", "--strict", "warned.kvpkg").returncode, 1)
        result = self.run_tool("check", "none.kvpkg", "Wrong.KVPKG", "app.kvpkg")
        self.assertEqual((result.returncode, result.stderr),
                         (1, b"qzapp: none.kvpkg: there is no such file; check the name\n"))
        self.assertIn(b"extension-case", result.stdout)
        self.assertTrue(result.stdout.endswith(b"app.kvpkg: no findings\n"))
        self.fails(2, 'check: FILE is required; see "qzapp check --help"', "check")
        self.fails(2, "--force: goes with --repair only; leave it out", "check", "--force", "app.kvpkg")

    def test_folders_and_standard_input(self):
        (self.dir / "d").mkdir()
        self.create("d/a.kvpkg")
        self.assertEqual(self.ok("check", "d"), "d/a.kvpkg: no findings\n")
        bad = self.rewrite("d/a.kvpkg", "d/b.kvpkg", setting(MODEL_PART, b""))
        (self.dir / "-").mkdir()  # to be called "./-"
        text = self.ok("check", "-", input=self.read(bad))
        self.assertTrue(text.startswith("standard input: 1 warning\n"), text)
        self.assertIn("fix: qzapp edit FILE --model FILE\n", text)
        self.assertIn("out.kvpkg: no findings\n", self.ok(
            "check", "--repair", "out.kvpkg", "-", input=b"junk" + self.read("d/a.kvpkg")))

    def test_any_other_package_and_what_is_no_package(self):
        self.create()
        self.write("any.docx", self.read("app.kvpkg"))
        with zipfile.ZipFile(self.dir / "other.zip", "w") as archive:
            archive.writestr("a.txt", "x")
        self.assertEqual([f["fix"] for f in self.report("other.zip")["findings"]],
                         ['see what it holds with "qzapp items"'])
        self.write("text.kvpkg", "hello")
        self.write("empty.kvpkg", "")
        self.ok("check", "--strict", "any.docx")
        for name in ("text.kvpkg", "empty.kvpkg"):
            self.assertEqual(self.rules(name), {"zip-end"})

    def test_text_apps(self):
        good = (EXAMPLE / "heatfield.k").read_text()
        uri = base64.b64encode(PNG).decode()
        section = "%[app:thumbnail]\n%{\n%s\n%}\n"
        details = "%[app:appDetails]\n%{\n<Name>N</Name><Author>A</Author><Summary>S</Summary>" \
                  "<Description>D</Description>%s\n%}\n"
        rows = [
            (set(), good),
            ({"appendix-missing"}, "x = 1"),
            ({"name-missing", "field-empty"}, "%[app:internalData]\n%{\n%}\n"),
            ({"text-encoding"}, details.replace("%s", "").encode() + b"\xff"),
            ({"text-mark"}, "\ufeff" + details.replace("%s", "")),
            ({"section-twice"}, details.replace("%s", "") * 2),
            ({"section-unknown"}, details.replace("%s", "") + "%[app:other]\n%{\n%}"),
            ({"section-open"}, details.replace("%s", "") + "%[app:internalData]\n%{\n"),
            ({"element-twice"}, details.replace("%s", "<Name>M</Name>")),
            ({"element-open"}, details.replace("%s", "<Version>1")),
            ({"element-prefix"}, details.replace("%s", "<Names>M</Names>")),
            ({"element-unknown"}, details.replace("%s", "<Colour>red</Colour>")),
            ({"thumbnail-base64"}, details.replace("%s", "") + section.replace(
                "%s", "<Thumbnail>data:image/png;base64,?</Thumbnail>")),
            ({"thumbnail-uri"}, details.replace("%s", "") + section.replace(
                "%s", "<Thumbnail> data:image/png;base64,AA</Thumbnail>")),
            ({"screenshot-format", }, details.replace("%s", "") + section.replace(
                "%s", f"<Thumbnail>data:image/webp;base64,{uri}</Thumbnail>")),
            ({"capture-value"}, details.replace("%s", "") + section.replace(
                "%s", f'<Thumbnail autoCapture="false">data:image/png;base64,{uri}</Thumbnail>')),
        ]
        for expected, text in rows:
            with self.subTest(expected):
                self.assertEqual(self.rules(self.write("app.k", text)), expected)

    def test_the_page_lists_the_rules(self):
        rules = json.loads(self.ok("check", "--rules", "--json"))["rules"]
        rows = re.findall(r"^\| `([a-z0-9-]+)` \| (\w+) \| (.*) \|$", PAGE.read_text(), re.M)
        self.assertEqual([(r["rule"], r["severity"], r["text"]) for r in rules], rows)


class Repair(CheckTest):
    def repaired(self, name):
        report = self.report(name, "--repair", "out.kvpkg", "--force")
        return report

    def contents(self, name, without=("[Content_Types].xml", "_rels/.rels")):
        with zipfile.ZipFile(self.dir / name) as archive:
            return {i: archive.read(i) for i in archive.namelist() if i not in without}

    def test_everything_comes_back_without_directory_or_tables(self):
        self.create()
        whole = self.read("app.kvpkg")
        rows = [
            self.without_directory("app.kvpkg", "cut.kvpkg"),
            self.write("front.kvpkg", b"junk" + whole),
            self.write("behind.kvpkg", whole + whole[-22:]),
            self.rewrite("app.kvpkg", "types.kvpkg",
                         lambda n, c: None if n == "[Content_Types].xml" else c),
            self.rewrite("app.kvpkg", "rels.kvpkg", lambda n, c: None if n == "_rels/.rels" else c),
            self.flip("app.kvpkg", "types2.kvpkg", "[Content_Types].xml"),
            self.flip("app.kvpkg", "rels2.kvpkg", "_rels/.rels"),
        ]
        for name in rows:
            with self.subTest(name):
                before = self.read(name)
                report = self.repaired(name)
                self.assertEqual((report["lost"], report["result"]["findings"]), ([], []))
                self.assertEqual(self.contents("out.kvpkg"), self.contents("app.kvpkg"))
                self.assertEqual(self.metadata("out.kvpkg"), self.metadata("app.kvpkg"))
                self.assertEqual(self.read(name), before)

    def test_what_is_damaged_is_lost_and_told(self):
        self.create()
        self.flip("app.kvpkg", "bad.kvpkg", "metadata/appScreenshot.png")
        report = self.repaired("bad.kvpkg")
        self.assertIn("/metadata/appScreenshot.png", [i["name"] for i in report["lost"]])
        self.assertEqual(report["result"]["errors"], 0)
        self.assertIsNone(self.info("out.kvpkg")["screenshot"])
        self.flip("app.kvpkg", "bad.kvpkg", MODEL_PART)
        report = self.repaired("bad.kvpkg")
        self.assertIn("model-missing", [f["rule"] for f in report["result"]["findings"]])

    def test_core_properties_keep_what_can_be_understood(self):
        self.create()
        self.rewrite("app.kvpkg", "bad.kvpkg", replacing(
            "docProps/core.xml", "<dc:title>", '<dc:title xml:lang="de">'))
        report = self.repaired("bad.kvpkg")
        self.assertEqual(report["result"]["errors"], 0)
        self.assertEqual(self.metadata("out.kvpkg"), self.metadata("app.kvpkg"))

    def test_foreign_content_is_kept(self):
        self.create()
        with zipfile.ZipFile(self.dir / "app.kvpkg", "a") as package:
            package.writestr("untyped.zzz", b"kept")
        self.rewrite("app.kvpkg", "bad.kvpkg", add_relationship(
            "urn:x", "http://example.com/\" TargetMode=\"External"))
        report = self.repaired("bad.kvpkg")
        self.assertEqual(report["lost"], [])
        self.assertEqual(self.contents("out.kvpkg")["untyped.zzz"], b"kept")
        links = json.loads(self.ok("parts", "--json", "out.kvpkg"))["relationships"]
        self.assertIn(("http://example.com/", True), [(r["target"], r["external"]) for r in links])

    def test_never_touches_a_file_that_is_there(self):
        self.create()
        self.write("text.kvpkg", "hello")
        self.write("app.k", "x")
        (self.dir / "link.kvpkg").symlink_to("app.kvpkg")
        before = self.names(), self.read("app.kvpkg")
        self.fails(1, "app.kvpkg: exists already; give --force to replace it",
                   "check", "--repair", "app.kvpkg", "text.kvpkg")
        self.fails(2, "--repair: link.kvpkg is the damaged file itself; give another name",
                   "check", "--repair", "link.kvpkg", "--force", "app.kvpkg")
        self.fails(1, "text.kvpkg: nothing in it can be read, so there is nothing to keep; get "
                   "the file again", "check", "--repair", "out.kvpkg", "text.kvpkg")
        self.fails(1, 'app.k: a text app is repaired in an editor; "qzapp check" says where',
                   "check", "--repair", "out.kvpkg", "app.k")
        self.fails(2, 'out.zip: the name of a packaged app must end in ".kvpkg"; choose another',
                   "check", "--repair", "out.zip", "app.kvpkg")
        self.assertEqual((self.names(), self.read("app.kvpkg")), before)

    def test_people_read_what_became_of_it(self):
        self.create()
        self.without_directory("app.kvpkg", "cut.kvpkg")
        text = self.ok("check", "--repair", "out.kvpkg", "cut.kvpkg")
        self.assertRegex(text, r"^wrote out\.kvpkg: \d kept, 0 lost, 0 mended\n"
                         r"  kept    /korval/code\.k, 11,130 bytes\n")
        self.assertTrue(text.endswith("out.kvpkg: no findings\n"))

    def test_whatever_the_damage_repair_ends_and_its_output_passes(self):
        self.create()
        self.ok("create", "plain.kvpkg", "--code", EXAMPLE / "code.k", "--model", EXAMPLE / "code.k")
        with open(self.dir / "later.kvpkg", "wb") as file, Unseekable(file) as stream, \
                zipfile.ZipFile(stream, "w", zipfile.ZIP_DEFLATED) as package:
            for name, content in self.contents("app.kvpkg", ()).items():
                package.writestr(name, content)
        for seed in range(int(os.environ.get("QZAPP_DAMAGE_ROUNDS", "40"))):
            with self.subTest(seed=seed):
                self.repair_damaged(random.Random(seed))

    def repair_damaged(self, dice):
        source = dice.choice(["app.kvpkg", "plain.kvpkg", "later.kvpkg"])
        known = self.contents(source, ())
        xml = dice.choice([n for n in known if n.endswith((".xml", ".rels"))])
        if dice.random() < 0.5:
            self.write("bad.kvpkg", damaged(self.read(source), dice))
        else:
            self.rewrite(source, "bad.kvpkg", setting(xml, damaged(known[xml], dice)))
            known.pop(xml)
        self.report("bad.kvpkg")
        result = self.run_tool("check", "--json", "--repair", "out.kvpkg", "--force", "bad.kvpkg")
        if b"nothing in it can be read" in result.stderr:
            return
        self.assertEqual(result.stderr, b"")
        report = json.loads(result.stdout)
        errors = {f["rule"] for f in report["result"]["findings"] if f["severity"] == "error"}
        self.assertLessEqual(errors, {"model-missing"} if report["lost"] else set())
        kept = self.contents("out.kvpkg")
        for name in known.keys() & kept.keys() - {"docProps/core.xml", "docProps/korval.xml"}:
            self.assertEqual(kept[name], known[name], name)


if __name__ == "__main__":
    unittest.main()
