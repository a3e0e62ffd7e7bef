"""parts and items."""

import json
import unittest
import zipfile

from support import MODEL_PART, ToolTest, add_relationship

PROPERTIES = ["title", "description", "creator", "version", "contentType", "modified",
              "contentTypeFriendlyName", "KORVALRelease", "KORVALReleaseInfo"]


class Listings(ToolTest):
    def item(self, package, name):
        with zipfile.ZipFile(self.dir / package) as archive:
            return archive.getinfo(name)

    def damaged(self, source, target, item_name):
        item = self.item(source, item_name)
        data = bytearray(self.read(source))
        data[item.header_offset + 30 + len(item_name) + item.compress_size // 2] ^= 0x55
        return self.write(target, bytes(data))

    def test_parts_of_any_package(self):
        self.create()
        self.rewrite("app.kvpkg", "any.docx", lambda name, data: add_relationship(
            "urn:x", "../y.png\" TargetMode=\"External")(name, data))
        listing = json.loads(self.ok("parts", "--json", "--verify", "any.docx"))
        self.assertEqual(list(listing), ["parts", "relationships", "coreProperties"])
        for part in listing["parts"]:
            self.assertEqual(list(part), ["name", "contentType", "size", "compressedSize"])
            item = self.item("any.docx", part["name"][1:])
            self.assertEqual((part["size"], part["compressedSize"]),
                             (item.file_size, item.compress_size))
        self.assertIn("/" + MODEL_PART, [p["name"] for p in listing["parts"]])
        self.assertIn({"id": "rIdExtra", "type": "urn:x", "target": "../y.png", "external": True},
                      listing["relationships"])
        properties = listing["coreProperties"]
        self.assertEqual(list(properties), PROPERTIES)
        self.assertEqual((properties["title"], properties["contentTypeFriendlyName"]),
                         ("Wärmefeld", "KORVAL App"))
        self.assertRegex(properties["modified"], r"^\d{4}-\d\d-\d\dT\d\d:\d\d:\d\dZ$")
        text = self.ok("parts", "--verify", "any.docx")
        self.assertRegex(text, r"\n/lumenforge/appModel\.kvd +application/\S+ +\d+ +\d+  ok\n")
        self.assertIn("../y.png (external)", text)

    def test_absent_properties_are_null(self):
        with zipfile.ZipFile(self.dir / "bare.zip", "w") as package:
            package.writestr("[Content_Types].xml", '<Types xmlns="http://schemas.openxmlformats.org/'
                             'package/2006/content-types"><Default Extension="rels" ContentType="'
                             'application/vnd.openxmlformats-package.relationships+xml"/>'
                             '<Default Extension="t" ContentType="text/plain"/></Types>')
            package.writestr("a.t", "x" * 100)
        listing = json.loads(self.ok("parts", "--json", "bare.zip"))
        self.assertEqual(listing, {
            "parts": [{"name": "/a.t", "contentType": "text/plain", "size": 100, "compressedSize": 100}],
            "relationships": [], "coreProperties": dict.fromkeys(PROPERTIES)})

    def test_damage_is_told_part_by_part(self):
        self.create()
        self.damaged("app.kvpkg", "bad.kvpkg", MODEL_PART)
        for args in (["parts", "--json"], ["items", "--json"], ["parts"], ["items"]):
            self.ok(*args, "bad.kvpkg")
            result = self.run_tool(*args, "--verify", "bad.kvpkg")
            self.assertEqual(result.returncode, 1, args)
            self.assertRegex(result.stderr.decode(),
                             r"^qzapp: bad\.kvpkg: /?lumenforge/appModel\.kvd: [^\n]*\n$")
            if "--json" in args:
                entries = json.loads(result.stdout)[args[0]]
                self.assertEqual([e["name"].lstrip("/") for e in entries if "error" in e], [MODEL_PART])

    def test_core_properties_that_break_the_rules(self):
        self.create()
        self.rewrite("app.kvpkg", "bad.kvpkg", lambda name, data: b"<!DOCTYPE x><x/>"
                     if name == "docProps/core.xml" else data)
        result = self.run_tool("parts", "--json", "--verify", "bad.kvpkg")
        self.assertEqual(result.returncode, 1)
        listing = json.loads(result.stdout)
        self.assertEqual(list(listing["coreProperties"]), ["error"])
        self.assertGreater(len(listing["parts"]), 3)
        self.assertRegex(result.stderr.decode(), r"^qzapp: bad\.kvpkg: /docProps/core\.xml: [^\n]*\n$")

    def test_items_of_any_zip(self):
        with zipfile.ZipFile(self.dir / "any.zip", "w") as archive:
            archive.writestr("folder/", "")
            archive.writestr("caf\xe9 \x1b[31m", "hello")
            archive.writestr("big", "a" * 5000, zipfile.ZIP_DEFLATED)
        # A name that is no UTF-8, as an old program would have stored it.
        data = self.read("any.zip").replace("caf\xe9".encode(), b"caf\x82\x81")
        self.write("old.zip", data.replace(b"\x00\x08\x00\x00", b"\x00\x00\x00\x00"))
        items = json.loads(self.ok("items", "--json", "--verify", "any.zip"))["items"]
        self.assertEqual([list(i) for i in items],
                         [["name", "method", "size", "compressedSize", "crc32", "offset"]] * 3)
        with zipfile.ZipFile(self.dir / "any.zip") as archive:
            for item, known in zip(items, archive.infolist()):
                self.assertEqual(
                    (item["name"], item["size"], item["compressedSize"], item["crc32"], item["offset"]),
                    (known.filename, known.file_size, known.compress_size, known.CRC,
                     known.header_offset))
        self.assertEqual([i["method"] for i in items], ["stored", "stored", "deflated"])
        self.assertIn("café \\u001B[31m  stored", self.ok("items", "any.zip"))
        self.assertIn("caf", self.ok("items", "--json", "old.zip"))

    def test_what_is_no_zip_prints_no_json(self):
        self.write("text", "hello")
        self.write("empty", "")
        for verb in ("parts", "items"):
            for name in ("text", "empty"):
                result = self.run_tool(verb, "--json", name)
                self.assertEqual((result.returncode, result.stdout), (1, b""))
                self.assertRegex(result.stderr.decode(), rf"^qzapp: {name}: [^\n]*\n$")
            self.fails(1, "none: there is no such file; check the name", verb, "--json", "none")


if __name__ == "__main__":
    unittest.main()
