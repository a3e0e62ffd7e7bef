"""parts and items."""

import json
import unittest
import zipfile

from support import MODEL_PART, ToolTest, add_relationship, setting

PROPERTIES = ["title", "description", "creator", "version", "contentType", "modified",
              "contentTypeFriendlyName", "KORVALRelease", "KORVALReleaseInfo"]


class Listings(ToolTest):
    def test_parts_of_any_package(self):
        self.rewrite(self.create(), "any.docx", add_relationship("urn:x", "../y.png\" TargetMode=\"External"))
        listing = self.json("parts", "--verify", "any.docx")
        with zipfile.ZipFile(self.dir / "any.docx") as archive:
            for part in listing["parts"]:
                item = archive.getinfo(part["name"][1:])
                self.assertEqual((part["size"], part["compressedSize"]), (item.file_size, item.compress_size))
        self.assertIn("/" + MODEL_PART, [p["name"] for p in listing["parts"]])
        self.assertIn({"id": "rIdExtra", "type": "urn:x", "target": "../y.png", "external": True},
                      listing["relationships"])
        properties = listing["coreProperties"]
        self.assertEqual((properties["title"], properties["contentTypeFriendlyName"]),
                         ("Wärmefeld", "KORVAL App"))
        self.assertRegex(properties["modified"], r"^\d{4}-\d\d-\d\dT\d\d:\d\d:\d\dZ$")
        text = self.ok("parts", "--verify", "any.docx")
        self.assertRegex(text, r"\n/lumenforge/appModel\.kvd +application/\S+ +\d+ +\d+  ok\n")
        self.assertIn("../y.png (external)", text)

    def test_absent_properties_are_null(self):
        types = ('<Types xmlns="http://schemas.openxmlformats.org/package/2006/content-types">'
                 '<Default Extension="t" ContentType="text/plain"/></Types>')
        with zipfile.ZipFile(self.dir / "bare.zip", "w") as package:
            package.writestr("[Content_Types].xml", types)
            package.writestr("a.t", "x" * 100)
        self.assertEqual(self.json("parts", "bare.zip"), {
            "parts": [{"name": "/a.t", "contentType": "text/plain", "size": 100, "compressedSize": 100}],
            "relationships": [], "coreProperties": dict.fromkeys(PROPERTIES)})

    def test_damage_is_told_part_by_part(self):
        self.flip(self.create(), "bad.kvpkg", MODEL_PART)
        error = r"bad\.kvpkg: /?lumenforge/appModel\.kvd: .*"
        for verb in ("parts", "items"):
            self.ok(verb, "bad.kvpkg")
            self.fails_like(error, verb, "--verify", "bad.kvpkg")
            entries = json.loads(self.fails_like(error, verb, "--verify", "--json", "bad.kvpkg"))[verb]
            self.assertEqual([e["name"].lstrip("/") for e in entries if "error" in e], [MODEL_PART])

    def test_core_properties_that_break_the_rules(self):
        self.rewrite(self.create(), "bad.kvpkg", setting("docProps/core.xml", b"<!DOCTYPE x><x/>"))
        listing = json.loads(self.fails_like(r"bad\.kvpkg: /docProps/core\.xml: .*", "parts", "--json",
                                             "--verify", "bad.kvpkg"))
        self.assertEqual(list(listing["coreProperties"]), ["error"])
        self.assertGreater(len(listing["parts"]), 3)

    def test_items_of_any_zip(self):
        with zipfile.ZipFile(self.dir / "any.zip", "w") as archive:
            archive.writestr("folder/", "")
            archive.writestr("caf\xe9 \x1b[31m", "hello")
            archive.writestr("big", "a" * 5000, zipfile.ZIP_DEFLATED)
            known = archive.infolist()
        # A name that is no UTF-8, as an old program would have stored it.
        data = self.read("any.zip").replace("caf\xe9".encode(), b"caf\x82\x81")
        self.write("old.zip", data.replace(b"\x00\x08\x00\x00", b"\x00\x00\x00\x00"))
        self.assertEqual(self.json("items", "--verify", "any.zip")["items"], [
            {"name": item.filename, "method": method, "size": item.file_size,
             "compressedSize": item.compress_size, "crc32": item.CRC, "offset": item.header_offset}
            for item, method in zip(known, ("stored", "stored", "deflated"))])
        self.assertIn("café \\u001B[31m  stored", self.ok("items", "any.zip"))
        self.assertIn("caf", self.ok("items", "--json", "old.zip"))

    def test_what_is_no_zip_prints_no_json(self):
        self.write("text", "hello")
        for verb in ("parts", "items"):
            self.assertEqual(self.fails_like("text: .*", verb, "--json", "text"), b"")
            self.fails(1, "none: there is no such file; check the name", verb, "--json", "none")
