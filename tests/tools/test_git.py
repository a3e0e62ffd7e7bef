"""repack, merge and git-setup, and git with them."""

import hashlib
import itertools
import random
import shutil
import struct
import subprocess
import unittest
import zipfile

from support import EXAMPLE, MODEL_PART, TOOL, ToolTest, replacing, setting, why_not

# The records by which a reader that searches for them finds an archive without items in this content.
OTHER_ARCHIVE = b"model" + b"PK\6\6" + struct.pack("<QHHIIQQQQ", 44, 45, 45, 0, 0, 0, 0, 0, 0) + b"PK\6\7" + bytes(16)
EARLIEST = (1980, 1, 1, 0, 0, 0)


def plain_package(target, parts, method=zipfile.ZIP_STORED):
    """A package that is none of an app, made by Python's zip writer."""
    types = ('<?xml version="1.0"?><Types xmlns="http://schemas.openxmlformats.org/package/2006/content-types">'
             '<Default Extension="rels" ContentType="application/vnd.openxmlformats-package.relationships+xml"/>'
             '<Default Extension="bin" ContentType="application/octet-stream"/></Types>')
    with zipfile.ZipFile(target, "w", method) as package:
        for name, content in (("[Content_Types].xml", types), *parts):
            package.writestr(name, content)


class Repack(ToolTest):
    def repack(self, how, source, target="out.kvpkg"):
        self.assertEqual(self.ok("repack", how, source, target, "--force"), f"wrote {target}\n")
        return self.read(target)

    def test_the_same_content_gives_the_same_bytes(self):
        self.create("a.kvpkg")
        self.rewrite("a.kvpkg", "other.kvpkg", lambda name, content: content)
        for how, method in (("--store", zipfile.ZIP_STORED), ("--deflate", zipfile.ZIP_DEFLATED)):
            first = self.repack(how, "a.kvpkg", f"{how[2:]}.kvpkg")
            for source in ("other.kvpkg", "store.kvpkg", f"{how[2:]}.kvpkg"):
                self.assertEqual(self.repack(how, source), first, (how, source))
            result = self.run_tool("repack", how, "-", "-", input=self.read("a.kvpkg"))
            self.assertEqual((result.stdout, result.stderr), (first, b""))
            with zipfile.ZipFile(self.dir / "out.kvpkg") as package:
                facts = [(item.filename, item.compress_type, item.date_time, item.extra)
                         for item in package.infolist()]
            self.assertEqual(facts, [(name, method, EARLIEST, b"") for name in sorted(self.items("a.kvpkg"))])
            self.assertEqual(self.ok("check", "--strict", "out.kvpkg"), "out.kvpkg: no findings\n")
            self.ok("diff", "a.kvpkg", "out.kvpkg")

    def test_stored_bytes_are_those_of_every_version(self):
        # If this fails, histories in which one version stored an app grow with the next: see docs/qzapp-git.md.
        names = ["b.bin", "A.bin", "folder/", "folder/empty.bin", "_rels/none.bin", "gr\u00fc\u00dfe.bin"]
        parts = [(name, b"" if name.endswith(("/", "empty.bin")) else name.encode() * 50_000) for name in names]
        plain_package(self.dir / "plain.zip", [*parts, ("nested.bin", OTHER_ARCHIVE)], zipfile.ZIP_DEFLATED)
        stored = self.repack("--store", "plain.zip", "out.zip")
        self.assertEqual(hashlib.sha256(stored).hexdigest(),
                         "67360a807672dea568d282b12cf0f397c0b24b5b699c9c56344f9e3abbf875a6")
        with zipfile.ZipFile(self.dir / "out.zip") as package:
            self.assertIsNone(package.testzip())
            methods = {item.filename: item.compress_type for item in package.infolist()}
        self.assertEqual([name for name, method in methods.items() if method], ["nested.bin"])

    def test_what_would_be_taken_for_another_archive_is_deflated(self):
        random.seed(1)
        noise = random.randbytes(3 << 20)
        for content in (OTHER_ARCHIVE, noise + OTHER_ARCHIVE, OTHER_ARCHIVE * 300, b"PK\5" + OTHER_ARCHIVE):
            parts = [("a.bin", b"first"), ("m.bin", content), ("z.bin", b"last")]
            plain_package(self.dir / "stored.zip", parts)
            self.fails_like(r"stored\.zip: .*", "parts", "stored.zip")
            plain_package(self.dir / "deflated.zip", parts, zipfile.ZIP_DEFLATED)
            for how in ("--store", "--deflate"):
                first = self.repack(how, "deflated.zip", "first.zip")
                self.assertEqual(self.repack(how, "first.zip", "second.zip"), first)
                self.assertEqual(self.items("first.zip"), self.items("deflated.zip"))
                self.ok("parts", "--verify", "first.zip")
                with zipfile.ZipFile(self.dir / "first.zip") as package:
                    self.assertEqual([item.filename for item in package.infolist()],
                                     ["[Content_Types].xml", "a.bin", "m.bin", "z.bin"])

    def test_what_goes_is_said(self):
        self.create("a.kvpkg")
        stored = self.repack("--store", "a.kvpkg")
        shutil.copy(self.dir / "a.kvpkg", self.dir / "b.kvpkg")
        with zipfile.ZipFile(self.dir / "b.kvpkg", "w") as package:
            for number, (name, content) in enumerate(self.items("a.kvpkg").items()):
                item = zipfile.ZipInfo(name)
                item.comment = b"c" * (number < 2)
                item.extra = b"UT\5\0\1\0\0\0\0" * (number == 3)
                package.writestr(item, content)
            package.comment = b"comment"
        self.write("b.kvpkg", self.read("b.kvpkg") + b"\0\0\0")
        result = self.run_tool("repack", "--store", "b.kvpkg", "-")
        self.assertEqual((result.returncode, result.stdout), (0, stored))
        self.assertEqual(result.stderr.decode(), "".join(f"qzapp: note: b.kvpkg: left out {what}\n" for what in (
            "3 bytes in front of, between or after the items", "the comment of the zip file",
            "the comments of 2 items", "the extra fields of 1 item")))

    def test_what_is_refused_passes_a_filter(self):
        self.create("a.kvpkg")
        self.signed("a.kvpkg", "signed.kvpkg")
        self.flip("a.kvpkg", "damaged.kvpkg", MODEL_PART)
        self.write("cut.kvpkg", self.read("a.kvpkg")[:-30])
        self.write("text.kvpkg", "not a package")
        self.write("zip.kvpkg", b"PK\5\6" + bytes(18))
        for name, why in (("signed.kvpkg", "is signed, and stays as it was signed; .*"), ("cut.kvpkg", ".*"),
                          ("damaged.kvpkg", f"{MODEL_PART}: .*"), ("text.kvpkg", "is not a zip file but text; .*"),
                          ("zip.kvpkg", ".*")):
            with self.subTest(name):
                self.fails_like(rf"{name}: {why}", "repack", "--store", name, "out.kvpkg")
                self.fails_like(rf"{name}: {why}", "repack", "--store", name, "-")
                content = self.read(name)
                result = self.run_tool("repack", "--store", "--or-unchanged", "-", "-", input=content)
                self.assertEqual((result.returncode, result.stdout, result.stderr), (0, content, b""))
        result = self.run_tool("repack", "--store", "--or-unchanged", "-", "-", input=b"")
        self.assertEqual((result.returncode, result.stdout, result.stderr), (0, b"", b""))
        self.assertNotIn("out.kvpkg", self.names())

    def test_a_file_is_replaced_only_if_asked_and_may_be_its_own_copy(self):
        self.create("a.kvpkg")
        self.write("b.kvpkg", "other")
        self.fails(1, "b.kvpkg: already exists; give --force to replace it", "repack", "--store", "a.kvpkg", "b.kvpkg")
        self.fails(1, "a.kvpkg: already exists; give --force to replace it", "repack", "--store", "a.kvpkg", "a.kvpkg")
        stored = self.repack("--store", "a.kvpkg", "b.kvpkg")
        self.assertEqual(self.repack("--store", "a.kvpkg", "a.kvpkg"), stored)
        self.assertEqual(self.names(), ["a.kvpkg", "b.kvpkg"])
        for arguments in (["a.kvpkg", "-"], ["--store", "--deflate", "a.kvpkg", "-"]):
            self.fails(2, "repack: give one of --store and --deflate", "repack", *arguments)
        self.fails(2, '--or-unchanged: only goes with "-" as OUT; leave it out', "repack", "--store",
                   "--or-unchanged", "a.kvpkg", "c.kvpkg")

    def test_memory_does_not_grow_with_a_part(self):
        with open(self.dir / "model", "wb") as model:
            model.truncate(500 << 20)
        self.write("s.k", "x = 1;\n")
        self.ok("create", "big.kvpkg", "--code", "s.k", "--model", "model")
        (self.dir / "model").unlink()
        for how in ("--store", "--deflate"):
            self.ok("repack", how, "big.kvpkg", "out.kvpkg", "--force", limit=f"-v {400 << 10}")
        self.ok("check", "out.kvpkg")

    @unittest.skipIf(why_not(), f"ptrace is not permitted here: {why_not().strip()}")
    def test_a_failing_system_leaves_nothing_half_done(self):
        self.create("a.kvpkg")
        stored = self.repack("--store", "a.kvpkg")
        (self.dir / "out.kvpkg").unlink()
        content = self.read("a.kvpkg")
        for call, fault in (("pwrite64", "ENOSPC"), ("openat", "EMFILE"), ("pread64", "EIO")):
            for number, run in self.with_faults(call, fault, "repack", "--store", "a.kvpkg", "out.kvpkg"):
                if run.returncode == 127:  # the program did not start
                    continue
                left = [name for name in self.names() if name != "faults"]
                self.assertIn((run.returncode, left), ((0, ["a.kvpkg", "out.kvpkg"]), (1, ["a.kvpkg"])),
                              (call, number, run))
                if run.returncode == 0:
                    self.assertEqual(self.read("out.kvpkg"), stored, (call, number))
                    (self.dir / "out.kvpkg").unlink()
            if (self.dir / "out.kvpkg").exists():
                (self.dir / "out.kvpkg").unlink()
            for number, run in self.with_faults(call, fault, "repack", "--store", "--or-unchanged", "a.kvpkg", "-"):
                self.assertTrue(run.returncode != 0 or run.stdout in (stored, content), (call, number, run.stderr))
                self.assertTrue(run.returncode == 0 or run.stderr, (call, number))


if __name__ == "__main__":
    unittest.main()
