"""parts and items."""

import json
import unittest
import zipfile

from support import MODEL_PART, ToolTest, add_relationship


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
        self.assertEqual(listing["coreProperties"]["title"], "Wärmefeld")
        text = self.ok("parts", "--verify", "any.docx")
        self.assertRegex(text, r"\n/lumenforge/appModel\.kvd +application/\S+ +\d+ +\d+  ok\n")
        self.assertIn("../y.png (external)", text)

    def test_damage_is_told_part_by_part(self):
        self.flip(self.create(), "bad.kvpkg", MODEL_PART)
        error = r"bad\.kvpkg: /?lumenforge/appModel\.kvd: .*"
        for verb in ("parts", "items"):
            self.ok(verb, "bad.kvpkg")
            self.fails_like(error, verb, "--verify", "bad.kvpkg")
            entries = json.loads(self.fails_like(error, verb, "--verify", "--json", "bad.kvpkg"))[verb]
            self.assertEqual([e["name"].lstrip("/") for e in entries if "error" in e], [MODEL_PART])

    def test_items_of_any_zip(self):
        with zipfile.ZipFile(self.dir / "any.zip", "w") as archive:
            archive.writestr("folder/", "")
            archive.writestr("caf\xe9 \x1b[31m", "hello")
            archive.writestr("big", "a" * 5000, zipfile.ZIP_DEFLATED)
            known = archive.infolist()
        self.assertEqual(self.json("items", "--verify", "any.zip")["items"], [
            {"name": item.filename, "method": method, "size": item.file_size,
             "compressedSize": item.compress_size, "crc32": item.CRC, "offset": item.header_offset}
            for item, method in zip(known, ("stored", "stored", "deflated"))])
        self.assertIn("café \\u001B[31m  stored", self.ok("items", "any.zip"))

    def test_what_is_no_zip_prints_no_json(self):
        self.write("text", "hello")
        for verb in ("parts", "items"):
            self.assertEqual(self.fails_like("text: .*", verb, "--json", "text"), b"")
