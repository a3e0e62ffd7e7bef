"""repack, merge and git-setup, and git with them."""

import hashlib
import json
import os
import random
import re
import shutil
import signal
import struct
import subprocess
import time
import unittest
import zipfile

from support import (EXAMPLE, METADATA_PART, MODEL_PART, TOOL, ToolTest, add_relationship, replacing, setting, why_not,
                     without)

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

    def test_names_mean_what_they_meant(self):
        """Names that are not ASCII and have no flag mean what they do on the system that the record names."""
        plain_package(self.dir / "a.zip", [("XX.t", "text")])
        self.write("a.kvpkg", self.read("a.zip").replace(b"XX.t", b"\xc3\xbc.t"))
        self.repack("--store", "a.kvpkg")
        before, after = (subprocess.run(["unzip", "-Z1", self.dir / name], capture_output=True).stdout.splitlines()
                         for name in ("a.kvpkg", "out.kvpkg"))
        self.assertEqual(sorted(before), sorted(after))

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
        self.write("stub.kvpkg", b"#!/bin/sh\nexit 0\n")
        with zipfile.ZipFile(self.dir / "a.kvpkg") as package, zipfile.ZipFile(self.dir / "stub.kvpkg", "a") as stub:
            for item in package.infolist():
                stub.writestr(item.filename, package.read(item))
        content = self.read("stub.kvpkg")
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
        self.fails(2, 'repack: --or-unchanged: only goes with "-" as OUT, or with --in-place', "repack", "--store",
                   "--or-unchanged", "a.kvpkg", "c.kvpkg")

    def test_files_in_their_places(self):
        self.create("a.kvpkg")
        stored = self.repack("--store", "a.kvpkg")
        shutil.copy(self.dir / "a.kvpkg", self.dir / "-b].kvpkg")
        (self.dir / "link.kvpkg").symlink_to("a.kvpkg")
        self.write("bad.kvpkg", "text")
        result = self.run_tool("repack", "--store", "--in-place", "out.kvpkg", "./-b].kvpkg", "bad.kvpkg", "link.kvpkg")
        self.assertEqual(result.stdout.decode(),
                         "out.kvpkg: nothing to change\nrepacked ./-b].kvpkg\nrepacked link.kvpkg\n")
        self.assertRegex(result.stderr.decode(), r"^qzapp: bad\.kvpkg: is not a zip file but text; .*\n$")
        self.assertEqual(result.returncode, 1)
        for name in ("a.kvpkg", "-b].kvpkg", "out.kvpkg"):
            self.assertEqual(self.read(name), stored)
        self.assertTrue((self.dir / "link.kvpkg").is_symlink())
        self.ok("repack", "--store", "--or-unchanged", "--in-place", "bad.kvpkg")
        self.assertEqual(self.read("bad.kvpkg"), b"text")
        self.fails(2, "repack: --in-place: takes all files; leave IN and OUT out", "repack", "--store", "a.kvpkg",
                   "--in-place", "a.kvpkg")
        self.fails(2, 'repack: IN and OUT are required; see "qzapp repack --help"', "repack", "--store", "a.kvpkg")

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


CODE = "".join(f"line {number}\n" for number in range(20))
SCREENSHOT = "metadata/appScreenshot.png"
CODE_PART = "korval/code.k"
CODE_TYPE = "application/vnd.quorvane.korval.code"
EXTRA = "http://example.org/extra"


class Merge(ToolTest):
    def setUp(self):
        super().setUp()
        self.write("code", CODE)
        self.ok("create", "base.kvpkg", "--code", "code", "--model", EXAMPLE / "appModel.kvd", "--metadata",
                EXAMPLE / "metadata.json", "--screenshot", EXAMPLE / "screenshot.png")

    def edited(self, name, *options, source="base.kvpkg"):
        if source != name:
            shutil.copy(self.dir / source, self.dir / name)
        if options:
            self.ok("edit", name, *options)
        return name

    def changed(self, name, *changes, source="base.kvpkg"):
        for change in changes:
            self.rewrite(source, name, change)
            source = name + ".source"
            shutil.copy(self.dir / name, self.dir / source)
        return name

    def merge(self, status=0, base="base.kvpkg", ours="ours.kvpkg", theirs="theirs.kvpkg", out="out.kvpkg", more=()):
        """The conflicts, as (what, name)."""
        result = self.run_tool("merge", "--json", base, ours, theirs, "-o", out, "--force", *more)
        self.assertEqual((result.returncode, result.stderr.decode()), (status, ""))
        merged = json.loads(result.stdout)
        self.assertEqual((merged["out"], bool(merged["conflicts"])), (out, status == 1))
        if out.endswith(".kvpkg"):
            self.assertNotIn("error", self.ok("check", out))
        return [(each["what"], each["name"]) for each in merged["conflicts"]]

    def test_changes_of_both_sides(self):
        self.edited("ours.kvpkg", "--set", "Name=Ours", "--code", self.write("c", "first\n" + CODE))
        self.edited("theirs.kvpkg", "--set", "Author=Theirs", "--set", "Name=Ours", "--code",
                    self.write("c", CODE + "last\n"), "--model", self.write("m", "model"))
        self.assertEqual(self.merge(), [])
        wanted = {**self.metadata("base.kvpkg"), "Name": "Ours", "Author": "Theirs"}
        self.assertEqual(self.metadata("out.kvpkg"), wanted)
        self.assertEqual(self.extracted("out.kvpkg", "code").decode(), "first\n" + CODE + "last\n")
        self.assertEqual(self.extracted("out.kvpkg", "model"), b"model")
        self.assertEqual(self.extracted("out.kvpkg", "screenshot"), (EXAMPLE / "screenshot.png").read_bytes())

    def test_each_field_goes_by_the_side_that_changed_it(self):
        self.edited("base.kvpkg", "--set", "Summary=base")
        ours = {"Summary": "ours", "Name": "ours", "Version": "7", "Description": "one"}
        theirs = {"Summary": "theirs", "Author": "theirs", "Version": "7", "Description": ""}
        for name, fields in (("ours.kvpkg", ours), ("theirs.kvpkg", theirs)):
            self.edited(name, *(option for field, value in fields.items() for option in ("--set", f"{field}={value}")))
        self.assertEqual(self.merge(1), [("field", "Summary"), ("field", "Description")])
        merged = self.metadata("out.kvpkg")
        self.assertEqual(merged, {**self.metadata("base.kvpkg"), **ours, "Author": "theirs"})

    def test_lists_are_sets_in_an_order(self):
        rows = [  # base, ours, theirs, merged, whether their order is in conflict
            ("a b c", "a b c d", "a x b c", "a x b c d", 0),
            ("a b c", "a c", "a b c d", "a c d", 0),
            ("a b c", "b c", "a b", "b", 0),
            ("a b c", "a b c", "c b a", "c b a", 0),
            ("a b c", "a b c o", "c b a", "c o b a", 0),
            ("a b c", "c b a t", "a b c", "c b a t", 0),
            ("a b c", "b a c", "a c b", "b a c", 1),
            ("", "a b", "b c", "a b c", 0),
            ("a", "a x", "a y", "a x y", 0),
            ("a b", "", "a b c", "c", 0),
        ]
        for base, ours, theirs, merged, conflict in rows:
            with self.subTest(f"{base}: {ours} + {theirs}"):
                for name, items in (("b.kvpkg", base), ("ours.kvpkg", ours), ("theirs.kvpkg", theirs)):
                    options = [option for item in items.split() for option in ("--set", f"RequiredProducts={item}")]
                    # Another field, so that the record as a whole has changed on both sides.
                    self.edited(name, *(options or ["--clear", "RequiredProducts"]), "--set", f"Summary={name[0]}")
                self.ok("edit", "theirs.kvpkg", "--set", "Summary=o", "--set", "Author=t")
                self.assertEqual(self.merge(conflict, base="b.kvpkg"), [("field", "RequiredProducts")] * conflict)
                self.assertEqual(self.metadata("out.kvpkg")["RequiredProducts"], merged.split())

    def test_conflicts_are_named_and_ours_is_kept(self):
        # Each row: what makes ours and theirs of the base, the conflict, and the item that ours keeps.
        code = lambda text: setting(CODE_PART, text.encode())
        rows = [
            ([setting(MODEL_PART, b"o")], [setting(MODEL_PART, b"t")], [("part", "/" + MODEL_PART)], MODEL_PART),
            ([setting(MODEL_PART, b"o")], [setting(MODEL_PART, b"o")], [], MODEL_PART),
            ([code("o\n" + CODE)], [code("t\n" + CODE)], [("lines", "code")], None),
            ([replacing("[Content_Types].xml", "image/png", "image/x-o")],
             [replacing("[Content_Types].xml", "image/png", "image/x-t")], [("part", "/" + SCREENSHOT)], SCREENSHOT),
            ([add_relationship(EXTRA, "o.bin", "rIdO")], [add_relationship(EXTRA, "t.bin", "rIdO")], [], None),
            ([replacing(METADATA_PART, "</metadata>", "<later>o</later></metadata>")],
             [replacing(METADATA_PART, "</metadata>", "<later>t</later></metadata>")],
             [("metadata", "/" + METADATA_PART)], METADATA_PART),
            ([replacing(METADATA_PART, "</uuid>", "1</uuid>")],
             [replacing(METADATA_PART, "</metadata>", "<later>t</later></metadata>")],
             [("metadata", "/" + METADATA_PART)], METADATA_PART),
            ([code("o\n" + CODE)], [code(CODE + "t\n"), replacing("[Content_Types].xml", CODE_TYPE, CODE_TYPE + "2")],
             [("part", "/" + CODE_PART)], CODE_PART),
        ]
        for ours, theirs, conflicts, kept in rows:
            self.changed("ours.kvpkg", *ours)
            self.changed("theirs.kvpkg", *theirs)
            with self.subTest(conflicts):
                self.assertEqual(self.merge(1 if conflicts else 0), conflicts)
                if kept:
                    self.assertEqual(self.items("out.kvpkg")[kept], self.items("ours.kvpkg")[kept])
        self.changed("ours.kvpkg", code("o\n" + CODE))
        self.changed("theirs.kvpkg", code("t\n" + CODE))
        self.merge(1, more=["--marker-size", "9"])
        self.assertEqual(self.extracted("out.kvpkg", "code").decode(),
                         f"{'<' * 9} ours\no\n{'=' * 9}\nt\n{'>' * 9} theirs\n{CODE}")
        sheet = self.run_tool("merge", "base.kvpkg", "ours.kvpkg", "theirs.kvpkg", "-o", "out.kvpkg", "--force")
        self.assertEqual(sheet.stdout.decode(), "merged out.kvpkg with 1 conflict\ncode: both changed the same lines; "
                         "look for the marks \"<<<<<<<\"\n")

    def test_parts_come_and_go(self):
        self.edited("ours.kvpkg", "--set", "Name=Ours")
        self.edited("theirs.kvpkg", "--remove-screenshot")
        self.assertEqual(self.merge(), [])
        self.assertNotIn(SCREENSHOT, self.items("out.kvpkg"))
        self.assertEqual(self.metadata("out.kvpkg")["Name"], "Ours")
        # A new part with a new relationship.
        self.edited("bare.kvpkg", "--remove-screenshot")
        self.edited("ours.kvpkg", "--set", "Name=Ours", source="bare.kvpkg")
        self.edited("theirs.kvpkg", "--screenshot", EXAMPLE / "screenshot.png", source="bare.kvpkg")
        self.assertEqual(self.merge(base="bare.kvpkg"), [])
        self.assertEqual(self.extracted("out.kvpkg", "screenshot"), (EXAMPLE / "screenshot.png").read_bytes())
        # Two new screenshots of different formats: one is the app's, and the other is not left behind.
        gif = self.write("s.gif", b"GIF89a\1\0\1\0\0\0\0,\0\0\0\0\1\0\1\0\0\2\2D\1\0;")
        self.edited("ours.kvpkg", "--screenshot", gif, source="bare.kvpkg")
        self.assertEqual({what for what, _ in self.merge(1, base="bare.kvpkg")}, {"relationship"})
        self.assertNotIn(SCREENSHOT, self.items("out.kvpkg"))
        self.assertEqual(self.extracted("out.kvpkg", "screenshot"), self.read("s.gif"))
        # Theirs deletes what ours has changed, and the other way round.
        self.changed("ours.kvpkg", setting(SCREENSHOT, b"changed"))
        self.edited("theirs.kvpkg", "--remove-screenshot")
        self.assertEqual(self.merge(1), [("part", "/" + SCREENSHOT)])
        self.assertEqual(self.extracted("out.kvpkg", "screenshot"), b"changed")
        self.assertEqual(self.merge(1, ours="theirs.kvpkg", theirs="ours.kvpkg"), [("part", "/" + SCREENSHOT)])
        self.assertNotIn(SCREENSHOT, self.items("out.kvpkg"))
        # Theirs deletes what ours has come to need.
        self.changed("ours.kvpkg", add_relationship(EXTRA, "/" + SCREENSHOT))
        self.edited("theirs.kvpkg", "--remove-screenshot")
        self.assertIn(("part", "/" + SCREENSHOT), self.merge(1))
        self.assertIn(SCREENSHOT, self.items("out.kvpkg"))
        # Ours has deleted what theirs has come to need.
        self.edited("ours.kvpkg", "--remove-screenshot")
        self.changed("theirs.kvpkg", add_relationship(EXTRA, "/" + SCREENSHOT))
        self.assertEqual(self.merge(1), [("relationship", EXTRA)])
        self.assertNotIn(SCREENSHOT, self.items("out.kvpkg"))

    def test_attributes_of_later_hosts(self):
        part = METADATA_PART
        self.edited("plain.kvpkg", "--set", "Description=Text", "--set", "RequiredProducts=A", "--set", "RequiredProducts=B")
        self.changed("base.kvpkg", replacing(part, "<description>", '<description xml:lang="en">'),
                     replacing(part, '<product id="A"', '<product since="1" id="A"'), source="plain.kvpkg")
        conflict = [("metadata", "/" + part)]
        rows = [  # what theirs changes, and the conflict, if ours changes another field
            (replacing(part, '"en"', '"de"'), conflict),
            (replacing(part, ">Text<", ">New<"), conflict),  # it would be written without its language
            (replacing(part, ' xml:lang="en"', ""), conflict),
            (replacing(part, 'since="1"', 'since="2"'), conflict),
            (replacing(part, "<componentProducts>", '<componentProducts a="b">'), conflict),
            (replacing(part, '<product id="B"/>', '<product id="B"/><product id="C" since="1"/>'), conflict),
            (replacing(part, '<product id="B"/>', '<product id="B"/><product id="C"/>'), []),
            (replacing(part, '<product since="1" id="A"/>', ""), []),
            (replacing(part, '<product since="1" id="A"/>', '<product id="A" since="1"/>'), []),
        ]
        self.edited("ours.kvpkg", "--set", "Author=Ours")
        for change, conflicts in rows:
            self.changed("theirs.kvpkg", change, replacing("docProps/core.xml", "<dc:title>", "<dc:title>Their "))
            with self.subTest(theirs=self.items("theirs.kvpkg")[part]):
                self.assertEqual(self.merge(len(conflicts)), conflicts)
                merged = self.metadata("out.kvpkg")
                self.assertEqual((merged["Author"], merged["Name"][:6]), ("Ours", "Their "))
                # What ours has changed stays with ours.
                self.assertEqual(self.merge(0, ours="theirs.kvpkg", theirs="ours.kvpkg"), [])

    def grown(self, name, items, *changes):
        """The base with further items, all with a content type, and the changes."""
        types = ('<Default Extension="bin" ContentType="a/b"/>'
                 if b'Extension="bin"' not in self.items("base.kvpkg")["[Content_Types].xml"] else "")
        self.changed(name, replacing("[Content_Types].xml", "</Types>", types + "</Types>"), *changes)
        with zipfile.ZipFile(self.dir / name, "a") as package:
            for item, content in items.items():
                package.writestr(item, content)

    def test_relationships_lead_to_parts_that_are_there(self):
        def relationships(target):
            return ('<Relationships xmlns="http://schemas.openxmlformats.org/package/2006/relationships">'
                    f'<Relationship Id="r" Type="{EXTRA}" Target="{target}"/></Relationships>')
        shutil.copy(self.dir / "base.kvpkg", self.dir / "app.kvpkg")
        self.grown("all.kvpkg", {"p/x.bin": "x", "p/y.bin": "y", "p/_rels/y.bin.rels": relationships("x.bin")},
                   *(add_relationship(EXTRA, f"/p/{name}.bin", "r" + name) for name in "xy"))
        shutil.copy(self.dir / "all.kvpkg", self.dir / "base.kvpkg")
        no_x, no_y = ([without(f"p/{name}.bin"),
                       replacing("_rels/.rels", f'<Relationship Id="r{name}" Type="{EXTRA}" Target="/p/{name}.bin"/>', "")]
                      for name in "xy")
        no_y.append(without("p/_rels/y.bin.rels"))
        links = [add_relationship(EXTRA + "2", f"/p/{name}.bin", f"n{name}") for name in "xy"]
        code_links = {"korval/_rels/code.k.rels": relationships("/p/x.bin")}
        rows = [
            # Theirs deletes what a part of ours has come to need, or what has come to have relationships.
            (code_links, [], {}, no_x + [without("p/_rels/y.bin.rels")], [("part", "/p/x.bin")], {"p/x.bin"}, set()),
            ({"p/_rels/x.bin.rels": relationships("y.bin")}, [], {}, no_x, [("part", "/p/x.bin")], {"p/x.bin"}, set()),
            # What both leave dangling is no conflict.
            ({}, [], {}, no_x, [], set(), {"p/x.bin"}),
            # Ours has deleted what theirs has come to need.
            ({}, no_x + [without("p/_rels/y.bin.rels")], code_links, [], [("part", "/korval/_rels/code.k.rels")], set(), {"p/x.bin"}),
            ({}, no_x, {"p/_rels/x.bin.rels": relationships("y.bin")}, [], [("part", "/p/_rels/x.bin.rels")], set(),
             {"p/_rels/x.bin.rels"}),
            ({}, no_x + no_y, {}, links, [("relationship", EXTRA + "2")], set(), {"p/x.bin"}),
            # A name that the other side has for a folder.
            ({"p/z.bin": "z"}, [], {"p/z.bin/a.bin": "a"}, [], [("part", "/p/z.bin/a.bin")], {"p/z.bin"}, {"p/z.bin/a.bin"}),
            ({"p/z.bin/a.bin": "a"}, [], {"p/z.bin": "z"}, [], [("part", "/p/z.bin")], {"p/z.bin/a.bin"}, {"p/z.bin"}),
        ]
        for ours, ours_changes, theirs, theirs_changes, conflicts, kept, gone in rows:
            self.grown("ours.kvpkg", ours, *ours_changes)
            self.grown("theirs.kvpkg", {**theirs, "p/new.bin": "theirs"}, *theirs_changes)
            with self.subTest(conflicts=conflicts, ours=list(ours), theirs=list(theirs)):
                self.assertEqual(self.merge(1 if conflicts else 0), conflicts)
                items = set(self.items("out.kvpkg"))
                self.assertLessEqual(kept | {"p/new.bin"}, items)
                self.assertEqual(gone & items, set())

    def test_a_metadata_part_that_one_side_lacks(self):
        link = re.search(rb'<Relationship [^>]*appMetadata"[^>]*/>', self.items("base.kvpkg")["_rels/.rels"])[0].decode()
        self.changed("theirs.kvpkg", without(METADATA_PART), replacing("_rels/.rels", link, ""))
        self.edited("ours.kvpkg", "--set", "Name=Ours", "--set", "Uuid=5b1c1c0e-8f0f-4c43-9a63-2f0d6f3f7f12")
        self.assertEqual(self.merge(1), [("part", "/" + METADATA_PART)])
        self.assertEqual(self.metadata("out.kvpkg"), self.metadata("ours.kvpkg"))

    def test_what_later_hosts_put_in_stays(self):
        self.changed("ours.kvpkg", replacing(METADATA_PART, "</metadata>", "<later a='1'>o</later></metadata>"))
        self.edited("theirs.kvpkg", "--set", "Uuid=5b1c1c0e-8f0f-4c43-9a63-2f0d6f3f7f12")
        self.merge()
        self.assertIn(b'<later a="1">o</later>', self.items("out.kvpkg")[METADATA_PART])
        self.assertEqual(self.metadata("out.kvpkg")["Uuid"], "5b1c1c0e-8f0f-4c43-9a63-2f0d6f3f7f12")
        # The whole part is taken if ours has not changed it.
        self.edited("ours.kvpkg", "--model", self.write("m", "model"))
        self.changed("theirs.kvpkg", replacing(METADATA_PART, "</metadata>", "<later a='1'>t</later></metadata>"))
        self.merge()
        self.assertIn(b"<later a='1'>t</later>", self.items("out.kvpkg")[METADATA_PART])

    def test_a_side_without_changes_gives_the_other_as_it_is(self):
        self.edited("ours.kvpkg", "--set", "Name=Ours")
        self.signed("ours.kvpkg", "signed.kvpkg")
        for ours, theirs in (("base.kvpkg", "signed.kvpkg"), ("signed.kvpkg", "base.kvpkg"),
                             ("signed.kvpkg", "signed.kvpkg")):
            self.merge(ours=ours, theirs=theirs)
            self.assertEqual(self.read("out.kvpkg"), self.read("signed.kvpkg"), (ours, theirs))
        # A save without a change is none either.
        self.edited("same.kvpkg", "--set", "Version=" + self.metadata("base.kvpkg")["Version"])
        self.merge(ours="same.kvpkg", theirs="ours.kvpkg")
        self.assertEqual(self.metadata("out.kvpkg"), self.metadata("ours.kvpkg"))
        self.edited("theirs.kvpkg", "--set", "Author=Theirs")
        for sides in (["signed.kvpkg", "theirs.kvpkg"], ["theirs.kvpkg", "signed.kvpkg"]):
            self.fails_like(r"signed\.kvpkg: is signed, .*", "merge", "base.kvpkg", *sides, "-o", "new.kvpkg", status=2)

    def test_without_a_base(self):
        self.write("none.kvpkg", "")
        self.edited("ours.kvpkg", "--set", "Name=Ours")
        self.edited("theirs.kvpkg", "--set", "Name=Theirs")
        self.assertEqual(self.merge(1, base="none.kvpkg"), [("field", "Name")])
        self.write("none.k", "")
        self.write("o.k", "x = 1;\n")
        self.write("t.k", "x = 2;\n")
        self.assertEqual(self.merge(1, "none.k", "o.k", "t.k", "out.k"), [("lines", "code")])

    def test_text_apps_are_merged_by_lines(self):
        base = (EXAMPLE / "heatfield.k").read_text()
        version = next(line for line in base.splitlines() if line.startswith("<Version>"))
        name = next(line for line in base.splitlines() if line.startswith("<Name>"))
        self.write("base.k", base)
        self.write("ours.k", "% ours\n" + base.replace(name, "<Name>Ours</Name>"))
        self.write("theirs.k", base.replace(version, "<Version>9</Version>"))
        self.assertEqual(self.merge(0, "base.k", "ours.k", "theirs.k", "out.k"), [])
        self.assertEqual(self.read("out.k").decode(),
                         "% ours\n" + base.replace(name, "<Name>Ours</Name>").replace(version, "<Version>9</Version>"))
        self.write("ours.k", base.replace(version, "<Version>8</Version>"))
        self.assertEqual(self.merge(1, "base.k", "ours.k", "theirs.k", "out.k"),
                         [("lines", "code"), ("field", "Version")])
        self.assertEqual(self.read("out.k").decode(), base.replace(
            version, "<<<<<<< ours\n<Version>8</Version>\n=======\n<Version>9</Version>\n>>>>>>> theirs"))
        self.write("ours.k", "\0ours" + base)
        self.write("theirs.k", "\0theirs" + base)
        self.assertEqual(self.merge(1, "base.k", "ours.k", "theirs.k", "out.k"), [("text", "code")])
        self.assertEqual(self.read("out.k"), self.read("ours.k"))

    def test_no_app_gets_two_screenshots(self):
        self.write("b.png", (EXAMPLE / "screenshot.png").read_bytes() + b"x")
        self.write("x.gif", b"GIF89a" + bytes(100) + b";")
        self.write("none.kvpkg", "")
        self.edited("ours.kvpkg", "--screenshot", "b.png")
        self.edited("theirs.kvpkg", "--screenshot", "x.gif")
        links = [("relationship", type_) for type_ in (
            "http://schemas.openxmlformats.org/package/2006/relationships/metadata/thumbnail",
            "http://schemas.quorvane.com/lumenForge/app/2017/relationships/appScreenshot")]
        for base, ours, theirs, conflicts, kept in [
                ("base.kvpkg", "ours.kvpkg", "theirs.kvpkg", links + [("part", "/" + SCREENSHOT)], "png"),
                ("base.kvpkg", "theirs.kvpkg", "ours.kvpkg", [("part", "/" + SCREENSHOT)], "gif"),
                ("none.kvpkg", "ours.kvpkg", "theirs.kvpkg", links, "png"),
                ("none.kvpkg", "theirs.kvpkg", "ours.kvpkg", links, "gif")]:
            with self.subTest(base=base, ours=ours):
                self.assertEqual(self.merge(1, base, ours, theirs), conflicts)
                pictures = [name for name in self.items("out.kvpkg") if "Screenshot" in name]
                self.assertEqual(pictures, ["metadata/appScreenshot." + kept])
                self.assertEqual(self.extracted("out.kvpkg", "screenshot"), self.extracted(ours, "screenshot"))

    def test_a_release_that_was_set_by_hand_is_merged(self):
        def legacy_release():
            return re.search(rb'legacy="true">([^<]*)', self.items("out.kvpkg")["docProps/korval.xml"])[1]
        self.edited("ours.kvpkg", "--set", "Name=Ours")
        self.edited("theirs.kvpkg", "--set", "KORVALRelease=R2020a", "--set", "Author=Theirs")
        self.merge()
        self.assertEqual(legacy_release(), b"R2020a")
        self.assertEqual(self.metadata("out.kvpkg")["Name"], "Ours")
        self.edited("ours.kvpkg", "--set", "KORVALRelease=R2021b")
        self.assertEqual(self.merge(1), [("field", "KORVALRelease")])
        self.assertEqual(legacy_release(), b"R2021b")

    def test_a_lost_report_is_not_trouble(self):
        self.edited("ours.kvpkg", "--set", "Name=Ours")
        self.edited("theirs.kvpkg", "--set", "Author=Theirs")
        with open("/dev/full", "wb") as full:
            run = self.run_tool("merge", "base.kvpkg", "ours.kvpkg", "theirs.kvpkg", "-o", "out.kvpkg", stdout=full)
        self.assertEqual(run.returncode, 3)
        self.assertEqual(self.metadata("out.kvpkg")["Author"], "Theirs")

    def test_trouble_changes_nothing(self):
        self.edited("ours.kvpkg", "--set", "Name=Ours")
        self.edited("theirs.kvpkg", "--set", "Author=Theirs")
        self.flip("theirs.kvpkg", "bad.kvpkg", MODEL_PART)
        self.write("text.kvpkg", "text")
        before = self.names()
        files = ["base.kvpkg", "ours.kvpkg", "theirs.kvpkg"]
        for arguments, message in [
                ((*files[:2], "bad.kvpkg", "-o", "ours.kvpkg"), r"bad\.kvpkg: .*"),
                ((files[0], "text.kvpkg", files[2], "-o", "text.kvpkg"), r"text\.kvpkg: .*"),
                ((files[0], files[0], "bad.kvpkg", "-o", "out.kvpkg"), r"bad\.kvpkg: .*"),
                ((files[0], "text.kvpkg", files[0], "-o", "out.kvpkg", "--store"), r"text\.kvpkg: .*"),
                ((*files, "-o", "theirs.kvpkg", "--force"), r"theirs\.kvpkg: is the same file as the input .*"),
                ((*files, "-o", "bad.kvpkg"), r"bad\.kvpkg: already exists; .*"),
                (("none.kvpkg", *files[1:], "-o", "out.kvpkg"), r"none\.kvpkg: there is no such file; .*"),
                ((*files, "-o", "none/out.kvpkg"), r"none/out\.kvpkg: .*"),
                ((*files, "-o", "out.kvpkg", "--marker-size", "0"), r"merge: .*"),
                ((*files, "-o", "-"), r"merge: OUT is a file, .*"),
                ((*files, "-o", "out.zip"), r"out\.zip: expected a name ending in \"\.kvpkg\", as OURS does"),
                ((*files[:2], "s.k", "-o", "out.kvpkg"), r"s\.k: is of another form than OURS; .*"),
                ((*files, "-o", "out.kvpkg", "--path", "a.kvpkg", "--json"), r"merge: --json: cannot be given with --path; .*"),
                (("s.k", "s.k", "s.k", "-o", "out.k"), r"s\.k: there is no such file; .*")]:
            contents = {name: self.read(name) for name in before}
            with self.subTest(arguments):
                self.fails_like(message, "merge", *arguments, status=2)
                self.assertEqual({name: self.read(name) for name in self.names()}, contents)

    def test_a_program_that_fails_is_trouble(self):
        (self.dir / "bin").mkdir()
        self.write("bin/git", "#!/bin/sh\necho 'no can do' >&2\nexit 255\n")
        (self.dir / "bin/git").chmod(0o755)
        self.changed("ours.kvpkg", setting(CODE_PART, b"o\n"))
        self.changed("theirs.kvpkg", setting(CODE_PART, b"t\n"))
        run = self.run_tool("merge", "base.kvpkg", "ours.kvpkg", "theirs.kvpkg", "-o", "out.kvpkg",
                            env={"PATH": str(self.dir / "bin")})
        self.assertEqual((run.returncode, run.stderr),
                         (2, b"qzapp: merge: the lines of the code cannot be merged: git: no can do\n"))

    def test_inputs_may_be_pipes(self):
        self.edited("ours.kvpkg", "--set", "Name=Ours")
        self.edited("theirs.kvpkg", "--set", "Author=Theirs")
        line = (f"{TOOL} merge <(cat base.kvpkg) ours.kvpkg - -o out.kvpkg <theirs.kvpkg && "
                f"{TOOL} repack --store <(cat out.kvpkg) again.kvpkg && "
                f"{TOOL} merge /dev/null ours.kvpkg ours.kvpkg -o same.kvpkg")
        run = subprocess.run(["bash", "-c", line], cwd=self.dir, capture_output=True, text=True)
        self.assertEqual((run.returncode, run.stderr), (0, ""))
        self.assertEqual(self.metadata("again.kvpkg")["Author"], "Theirs")
        self.assertEqual(self.read("same.kvpkg"), self.read("ours.kvpkg"))

    def test_ours_may_be_the_file_to_write_and_is_packed_as_asked(self):
        self.edited("ours.kvpkg", "--set", "Name=Ours")
        self.edited("theirs.kvpkg", "--set", "Author=Theirs")
        for name in ("base", "ours", "theirs"):
            shutil.copy(self.dir / f"{name}.kvpkg", self.dir / name)
        self.ok("merge", "base", "ours", "theirs", "-o", "ours", "--path", b"-odd]\xff.kvpkg", "--store")
        self.assertEqual(self.names().count("ours"), 1)
        self.ok("merge", "base.kvpkg", "ours.kvpkg", "theirs.kvpkg", "-o", "o", "--path", "k")
        shutil.copy(self.dir / "ours", self.dir / "out.kvpkg")
        self.ok("repack", "--store", "out.kvpkg", "again.kvpkg")
        self.assertEqual(self.read("again.kvpkg"), self.read("out.kvpkg"))
        merged = self.metadata("out.kvpkg")
        self.assertEqual((merged["Name"], merged["Author"]), ("Ours", "Theirs"))

    @unittest.skipIf(why_not(), f"ptrace is not permitted here: {why_not().strip()}")
    def test_a_failing_system_leaves_ours_or_the_result(self):
        self.edited("ours.kvpkg", "--set", "Name=Ours", "--code", self.write("c", "first\n" + CODE))
        self.edited("theirs.kvpkg", "--set", "Author=Theirs", "--code", self.write("c", CODE + "last\n"))
        ours = self.read("ours.kvpkg")
        before = self.names()
        for call, fault in (("pwrite64", "ENOSPC"), ("linkat", "EIO"), ("fsync", "EIO"), ("renameat", "EIO"),
                            ("rename", "EIO")):
            for number, run in self.with_faults(call, fault, "merge", "base.kvpkg", "ours.kvpkg", "theirs.kvpkg", "-o",
                                                "ours.kvpkg", "--store"):
                self.assertEqual([name for name in self.names() if name != "faults"], before, (call, number))
                if run.returncode == 0:
                    self.assertEqual(self.metadata("ours.kvpkg")["Author"], "Theirs", (call, number))
                else:
                    self.assertEqual((run.returncode, run.stdout), (2, b""), (call, number, run.stderr))
                    self.assertTrue(run.stderr, (call, number))
                self.write("ours.kvpkg", ours)

    def test_a_signal_leaves_nothing(self):
        with open(self.dir / "model", "wb") as model:
            model.truncate(100 << 20)
        self.edited("ours.kvpkg", "--set", "Name=Ours", "--model", "model")
        self.edited("theirs.kvpkg", "--set", "Author=Theirs")
        before = self.names()
        ours = self.read("ours.kvpkg")
        for delay in (0.02, 0.1, 0.2, 0.4):
            with subprocess.Popen([TOOL, "merge", "base.kvpkg", "ours.kvpkg", "theirs.kvpkg", "-o", "ours.kvpkg",
                                   "--store"], cwd=self.dir, stdout=subprocess.DEVNULL) as tool:
                time.sleep(delay)
                tool.send_signal(signal.SIGTERM)
            time.sleep(0.2)
            self.assertEqual(self.names(), before, delay)
            self.assertIn(tool.returncode, (0, -signal.SIGTERM))
            if not tool.returncode or self.read("ours.kvpkg") != ours:  # the new file was in its place already
                merged = self.ok("info", "ours.kvpkg")
                self.assertTrue("Ours" in merged and "Theirs" in merged, delay)
            self.write("ours.kvpkg", ours)


ODD = ["-dash.kvpkg", "a b.kvpkg", "$(touch pwned).kvpkg", "'single' \"double\".kvpkg", "semi;touch pwned;.kvpkg",
       "line\nbreak.kvpkg", "%P %A.kvpkg", "[x].kvpkg", "\u00fc\u4e2d.kvpkg", "`touch pwned`.kvpkg", "b\\n.kvpkg"]


class Git(ToolTest):
    """git itself, in repositories that were set up."""

    def setUp(self):
        super().setUp()
        (self.dir / "home").mkdir()
        self.repository = "r"
        self.environment = {
            "HOME": str(self.dir / "home"), "GIT_CONFIG_NOSYSTEM": "1", "PATH": f"{TOOL.parent}:{os.environ['PATH']}",
            **{f"GIT_{who}_{what}": "a@b" for who in ("AUTHOR", "COMMITTER") for what in ("NAME", "EMAIL")}}
        self.git("init", "-q", "-b", "main", "r", within=".")
        self.create("r/a.kvpkg")
        shutil.copy(EXAMPLE / "heatfield.k", self.dir / "r/t.k")

    def git(self, *arguments, status=0, within=None):
        run = subprocess.run(["git", *arguments], cwd=self.dir / (within or self.repository), capture_output=True,
                             env={**os.environ, **self.environment})
        self.assertEqual(run.returncode, status, (arguments, run))
        self.said = run.stderr.decode()
        return run.stdout.decode()

    def set_up(self, *options):
        run = self.run_tool("git-setup", *options, env=self.environment, cwd=self.dir / self.repository)
        self.assertEqual((run.returncode, run.stderr), (0, b""))
        return run.stdout.decode()

    def run_tool(self, *arguments, cwd=None, **options):
        if cwd is None:
            return super().run_tool(*arguments, **options)
        return subprocess.run([TOOL, *arguments], cwd=cwd, env={**os.environ, **options["env"]}, capture_output=True)

    def commit(self, message="c"):
        self.git("add", "-A")
        self.git("commit", "-q", "-m", message)

    def edit(self, *options, name="a.kvpkg"):
        self.ok("edit", f"r/{name}", *options)

    def test_set_up_shown_run_twice_and_undone(self):
        nothing = (self.dir / "r/.git/config").read_bytes()
        shown = self.set_up("--print")
        self.assertFalse((self.dir / "r/.gitattributes").exists())
        self.assertEqual((self.dir / "r/.git/config").read_bytes(), nothing)
        self.assertIn("added lines to .gitattributes", self.set_up())
        lines = self.read("r/.gitattributes").decode().splitlines()[1:]
        for line in lines:
            self.assertIn(line + "\n", shown)
        configuration = (self.dir / "r/.git/config").read_bytes()
        # The commands that --print shows do the same.
        commands = [line for line in shown.splitlines() if line.startswith("git config")]
        (self.dir / "r/.git/config").write_bytes(nothing)
        subprocess.run(["sh", "-e", "-c", "\n".join(commands)], cwd=self.dir / "r", check=True,
                       env={**os.environ, **self.environment})
        self.assertEqual((self.dir / "r/.git/config").read_bytes(), configuration)
        (self.dir / "r/below").mkdir()
        self.repository = "r/below"
        self.assertEqual(self.set_up(), "nothing to change\n")
        self.assertIn("removed the configuration", self.set_up("--undo"))
        self.assertFalse((self.dir / "r/.gitattributes").exists())
        self.assertNotIn(b"qzapp", (self.dir / "r/.git/config").read_bytes())
        self.assertEqual(self.set_up("--undo"), "nothing to change\n")
        # What is not from here stays; what leads to another copy of the tool goes.
        self.set_up()
        self.git("config", "merge.qzapp.name", "mine")
        self.git("config", "diff.qzapp.textconv", "/old/qzapp show --text --")
        self.assertIn('note: merge.qzapp.name is "mine", which is yours and stays', self.set_up("--undo"))
        self.assertEqual(self.git("config", "--get-regexp", "qzapp"), "merge.qzapp.name mine\n")
        self.git("config", "--unset", "merge.qzapp.name")
        for outside, why in ((self.dir, b"git refuses: fatal: not a git repository "),
                             (self.dir / "r/.git", b"there are no files of a repository here; ")):
            run = self.run_tool("git-setup", cwd=outside, env=self.environment)
            self.assertEqual((run.returncode, run.stderr.count(b"\n")), (1, 1), run.stderr)
            self.assertIn(why, run.stderr)

    def test_lines_of_others_stay(self):
        ours = self.set_up() and self.read("r/.gitattributes").decode()
        self.set_up("--undo")
        for before, is_noted in [
                ("*.txt text", False),
                ("*.kvpkg diff=qzapp\n", False),
                ("*.kvpkg filter=lfs diff=lfs merge=lfs -text\n*.k -merge\n", True),
                ("[attr]app filter=lfs\n*.kvpkg app\n", True),
                ("*.kvpkg binary\n", True),
                ("apps/*.kvpkg filter=lfs\n", False),
                ("\ufeff*.kvpkg -filter\n", True),
                ("# *.kvpkg diff=qzapp\r\n", False),
                ("*.png binary\n" + ours, False)]:
            with self.subTest(before):
                self.write("r/.gitattributes", before)
                rest = before.replace(ours, "")
                of_others = self.git("check-attr", "-a", "app.kvpkg", "app.k", "apps/a.kvpkg")
                said = self.set_up()
                after = self.read("r/.gitattributes").decode()
                self.assertEqual(after, before if ours in before else ours.join(re.match("(\ufeff?)(.*)", before, re.S).groups()))
                self.assertEqual("note: lines of yours" in said, is_noted, said)
                if ours not in before:
                    self.assertLessEqual(set(of_others.splitlines()),
                                         set(self.git("check-attr", "-a", "app.kvpkg", "app.k", "apps/a.kvpkg").splitlines()))
                self.set_up("--undo")
                self.assertEqual(self.read("r/.gitattributes").decode(), rest)
        self.write("r/.gitattributes", "")
        self.write("r/.git/info/attributes", "*.kvpkg -filter\n")
        self.assertIn("note: lines of yours", self.set_up())
        # What fails first leaves all as it was.
        self.set_up("--undo")
        self.write("r/.git/config.lock", "")
        run = self.run_tool("git-setup", cwd=self.dir / "r", env=self.environment)
        self.assertRegex(run.stderr.decode(), r"\Aqzapp: git config: git: error: could not lock config file .*\n\Z")
        self.assertFalse((self.dir / "r/.gitattributes").exists())
        (self.dir / "r/.git/config.lock").unlink()
        self.write("elsewhere", "mine")
        (self.dir / "r/.gitattributes").symlink_to("../elsewhere")
        run = self.run_tool("git-setup", cwd=self.dir / "r", env=self.environment)
        self.assertEqual((run.returncode, self.read("elsewhere")), (1, b"mine"))

    def test_no_hook_runs(self):
        for hook in ("reference-transaction", "post-index-change", "fsmonitor"):
            path = self.dir / "r/.git/hooks" / hook
            path.parent.mkdir(exist_ok=True)
            path.write_text("#!/bin/sh\ntouch $GIT_DIR/pwned ../pwned pwned\n")
            path.chmod(0o755)
        self.git("config", "core.fsmonitor", ".git/hooks/fsmonitor")
        self.git("update-ref", "refs/notes/textconv/qzapp", self.git("hash-object", "-w", "t.k").strip())
        for path in [*self.dir.rglob("pwned")]:
            path.unlink()
        self.set_up()
        self.set_up("--undo")
        self.assertEqual([*self.dir.rglob("pwned")], [])
        self.git("rev-parse", "-q", "--verify", "refs/notes/textconv/qzapp", status=1)

    def test_the_filter_stores_apps_and_passes_the_rest(self):
        self.set_up()
        contents = {"garbage.kvpkg": b"garbage", "empty.kvpkg": b"", "cut.kvpkg": self.read("r/a.kvpkg")[:-9],
                    "lines.kvpkg": b"one\r\ntwo\r\n", "signed.kvpkg": b""}
        self.signed("r/a.kvpkg", "signed.kvpkg")
        contents["signed.kvpkg"] = self.read("signed.kvpkg")
        for name, content in contents.items():
            self.write(f"r/{name}", content)
        for name in ODD:
            shutil.copy(self.dir / "r/a.kvpkg", self.dir / "r" / name)
        os.link(self.dir / "r/a.kvpkg", os.fsencode(self.dir / "r") + b"/\xff.kvpkg")
        self.commit()
        self.assertEqual(self.said, "")
        for name, content in contents.items():
            stored = subprocess.run(["git", "show", f"HEAD:{name}"], cwd=self.dir / "r", capture_output=True).stdout
            self.assertEqual(stored, content, name)
        self.ok("repack", "--store", "r/a.kvpkg", "stored.kvpkg")
        blob = subprocess.run(["git", "show", "HEAD:a.kvpkg"], cwd=self.dir / "r", capture_output=True).stdout
        self.assertEqual(blob, self.read("stored.kvpkg"))
        for name in ODD:
            self.assertEqual(self.git("rev-parse", f"HEAD:{name}"), self.git("rev-parse", "HEAD:a.kvpkg"), name)
        self.assertEqual([*self.dir.rglob("pwned")], [])
        # Packed otherwise, there is nothing to commit.
        self.ok("repack", "--deflate", "r/a.kvpkg", "r/a.kvpkg", "--force")
        self.assertEqual(self.git("diff"), "")
        self.git("add", "-A")
        self.assertEqual(self.git("status", "--short"), "")
        # Without qzapp, git says so and adds what there is.
        self.environment["PATH"] = "/usr/bin:/bin"
        self.edit("--set", "Name=Other")
        self.commit()
        self.assertEqual(self.git("status", "--short"), "")

    def test_the_filter_stores_no_more_than_git_can_hold(self):
        with open(self.dir / "zeros", "wb") as zeros:
            zeros.truncate(80 << 20)
        self.ok("create", "large.kvpkg", "--code", "r/t.k", "--model", "zeros")
        with open(self.dir / "large.kvpkg", "rb") as app:
            passed = self.run_tool("repack", "--store", "--or-unchanged", "-", "-", stdin=app)
        self.assertEqual(passed.stdout, self.read("large.kvpkg"))
        self.ok("repack", "--store", "large.kvpkg", "stored.kvpkg")

    def test_the_filter_ends_with_git(self):
        self.write("random", os.urandom(1 << 20))
        self.ok("create", "a.kvpkg", "--code", "r/t.k", "--model", "random")
        output, into = os.pipe()
        with open(self.dir / "a.kvpkg", "rb") as app:
            # git leaves the end open in the filter from which it reads itself.
            tool = subprocess.Popen([TOOL, "repack", "--store", "--or-unchanged", "-", "-"], stdin=app, stdout=into,
                                    pass_fds=[output])
        os.close(into)
        os.close(output)
        self.assertNotEqual(tool.wait(timeout=60), 0)

    def test_a_repository_is_normalised_once(self):
        self.commit()
        self.set_up()
        self.git("add", "--renormalize", ".")
        self.commit()
        blob = subprocess.run(["git", "show", "HEAD:a.kvpkg"], cwd=self.dir / "r", capture_output=True).stdout
        self.ok("repack", "--store", "r/a.kvpkg", "stored.kvpkg")
        self.assertEqual(blob, self.read("stored.kvpkg"))
        self.assertEqual(self.git("diff", "HEAD^", "--", "a.kvpkg"), "")

    def branches(self, ours, theirs, name="a.kvpkg"):
        """Two branches with an edit each; the first is checked out."""
        self.git("checkout", "-q", "-b", "side")
        self.edit(*theirs, name=name)
        self.commit("theirs")
        self.git("checkout", "-q", "main")
        self.edit(*ours, name=name)
        self.commit("ours")

    def name_and_author(self, name="a.kvpkg"):
        fields = self.metadata(f"r/{name}")
        return fields["Name"], fields["Author"]

    def test_merge_rebase_cherry_pick_stash_and_gc(self):
        self.set_up()
        self.commit()
        self.branches(["--set", "Name=Ours"], ["--set", "Author=Theirs"])
        start = self.git("rev-parse", "main").strip()
        for command in (["merge", "-q", "-m", "m", "side"], ["cherry-pick", "side"], ["rebase", "-q", "side"]):
            with self.subTest(command[0]):
                self.git(*command)
                self.assertEqual(self.name_and_author(), ("Ours", "Theirs"))
                # What the driver wrote is what the filter would.
                self.git("add", "--renormalize", ".")
                self.assertEqual(self.git("status", "--short"), "")
                self.git("reset", "-q", "--hard", start)
        self.edit("--set", "Version=7")
        self.git("stash")
        self.git("merge", "-q", "-m", "m", "side")
        self.git("stash", "pop")
        self.assertEqual((self.name_and_author(), self.metadata("r/a.kvpkg")["Version"]), (("Ours", "Theirs"), "7"))
        self.commit()
        self.git("gc", "-q")
        self.git("fsck", "--strict")
        self.git("clone", "-q", "r", "clone", within=".")
        self.assertEqual(self.ok("check", "--strict", "clone/a.kvpkg"), "clone/a.kvpkg: no findings\n")
        # A clone without the set-up works, and merges as git does with binary files.
        self.assertEqual(self.git("status", "--short", within="clone"), "")
        self.repository = "clone"
        self.set_up()
        self.assertEqual(self.git("status", "--short"), "")
        self.assertEqual(self.git("log", "-p", "-1", "--format=").count("+Version: 7"), 1)

    def test_conflicts_are_left_to_people(self):
        self.set_up()
        for name in ODD:
            shutil.copy(self.dir / "r/a.kvpkg", self.dir / "r" / name)
        self.commit()
        for name in ["a.kvpkg", *ODD]:
            self.ok("edit", str(self.dir / "r" / name), "--set", "Name=Ours", "--set", "Author=Ours")
        self.commit()
        self.git("checkout", "-q", "-b", "side", "HEAD^")
        for name in ["a.kvpkg", *ODD]:
            self.ok("edit", str(self.dir / "r" / name), "--set", "Name=Theirs", "--set", "Version=7")
        self.commit()
        self.git("checkout", "-q", "main")
        self.git("merge", "side", status=1)
        self.assertIn('qzapp: a.kvpkg: field Name: ours is kept (ours "Ours", theirs "Theirs")\n', self.said)
        self.assertEqual([*self.dir.rglob("pwned")], [])
        unmerged = set(self.git("diff", "-z", "--name-only", "--diff-filter=U").split("\0"))
        self.assertEqual(unmerged, {"", "a.kvpkg", *ODD})
        for name in ["a.kvpkg", *ODD]:
            fields = self.metadata(str(self.dir / "r" / name))
            self.assertEqual((fields["Name"], fields["Author"], fields["Version"]), ("Ours", "Ours", "7"), name)
        self.commit()
        # What cannot be merged is a conflict, too.
        self.write("r/a.kvpkg", "garbage")
        self.commit()
        self.git("checkout", "-q", "side")
        self.edit("--set", "Name=More")
        self.commit()
        self.assertIn("CONFLICT", self.git("merge", "main", status=1))
        self.assertEqual(self.metadata("r/a.kvpkg")["Name"], "More")

    def test_rerere_replays_nothing_over_another_model(self):
        self.set_up()
        self.git("config", "rerere.enabled", "true")
        self.git("config", "rerere.autoUpdate", "true")
        self.write("m1", struct.pack("<2000d", *range(2000)))
        self.write("m2", struct.pack("<2000d", *range(700), 1.5, *range(701, 2000)))
        # Not in the first line, whose marks would not be at the start of a line of the package.
        for name, text in ("c", ""), ("o", "o\n"), ("t", "t\n"), ("both", "both\n"):
            self.write(name, "first\n" + text + CODE)
        self.edit("--model", "m1", "--code", "c")
        self.commit()
        self.branches(("--code", "o"), ("--code", "t"))
        self.git("merge", "side", status=1)
        self.edit("--code", "both")
        self.commit("merged")
        self.git("reset", "-q", "--hard", "HEAD^")
        self.edit("--model", "m2")
        self.commit("m2")
        self.git("merge", "side", status=1)
        self.assertEqual(self.items("r/a.kvpkg")[MODEL_PART], self.read("m2"))

    def test_a_merge_of_branches_that_merged_each_other(self):
        self.set_up()
        self.edit("--set", "Version=1", "--set", "RequiredProducts=P")
        self.commit()
        self.branches(("--set", "Version=2", "--remove", "RequiredProducts=P"), ("--set", "Author=A"))
        first = self.git("rev-parse", "main").strip()
        self.git("merge", "-q", "side", "-m", "side into main")
        self.git("checkout", "-q", "side")
        self.git("merge", "-q", first, "-m", "main into side")
        self.edit("--set", "Name=Z")
        self.commit()
        self.git("checkout", "-q", "main")
        self.edit("--set", "Version=1", "--add", "RequiredProducts=P")
        self.commit()
        self.git("merge", "side", "-m", "again")
        fields = self.metadata("r/a.kvpkg")
        self.assertEqual([fields[name] for name in ("Name", "Author", "Version", "RequiredProducts")],
                         ["Z", "A", "1", ["P"]])

    def test_both_add_an_app(self):
        self.set_up()
        self.commit()
        for branch, name in (("side", "Theirs"), ("main", "Ours")):
            self.git("checkout", "-q", *(["-b"] if branch == "side" else []), branch)
            shutil.copy(self.dir / "r/a.kvpkg", self.dir / "r/new.kvpkg")
            self.edit("--set", f"Name={name}", name="new.kvpkg")
            self.commit()
        self.git("merge", "side", status=1)
        self.assertIn("field Name", self.said)
        self.assertEqual(self.name_and_author("new.kvpkg")[0], "Ours")

    def test_a_diff_is_quiet_about_what_a_save_changes(self):
        self.set_up()
        self.commit()
        relationships = self.items("r/a.kvpkg")["_rels/.rels"].decode()
        entries = relationships.split("<Relationship ")
        last, end = entries[-1].split("/>", 1)
        turned = "<Relationship ".join([entries[0], last + "/>", *entries[1:-1]]) + end
        self.rewrite("r/a.kvpkg", "new.kvpkg", setting("_rels/.rels", turned.encode()))
        os.replace(self.dir / "new.kvpkg", self.dir / "r/a.kvpkg")
        self.ok("edit", "r/a.kvpkg", "--set", "Uuid=5b1c1c0e-8f0f-4c43-9a63-2f0d6f3f7f12",
                env={"SOURCE_DATE_EPOCH": "1900000000"})
        changed = [line for line in self.git("diff", "-U0", "--", "a.kvpkg").splitlines() if line[0] in "+-"][2:]
        self.assertEqual([line.split()[0] for line in changed],
                         ["-Uuid:", "+Uuid:", "-/metadata/appMetadata.xml", "+/metadata/appMetadata.xml"])
        self.rewrite("r/a.kvpkg", "new.kvpkg", add_relationship(EXTRA, "x.bin"))
        os.replace(self.dir / "new.kvpkg", self.dir / "r/a.kvpkg")
        self.assertIn(f"+  | {EXTRA} leads to x.bin\n", self.git("diff", "--", "a.kvpkg"))

    def test_history_is_small(self):
        random.seed(2)
        sizes = {}
        numbers = [random.random() for _ in range(50_000)]
        for how in ("with", "without"):
            self.repository = how
            self.git("init", "-q", "-b", "main", how, within=".")
            if how == "with":
                self.set_up()
            values = list(numbers)
            for commit in range(8):
                for _ in range(25):
                    values[random.randrange(len(values))] = random.random()
                self.write("m", struct.pack(f"<{len(values)}d", *values))
                self.small("new.kvpkg") if commit == 0 else None
                self.ok("edit", "new.kvpkg", "--model", "m")
                shutil.copy(self.dir / "new.kvpkg", self.dir / how / "a.kvpkg")
                self.commit()
            (self.dir / "new.kvpkg").unlink()
            self.git("gc", "-q", "--aggressive")
            sizes[how] = sum(file.stat().st_size for file in (self.dir / how / ".git/objects").rglob("*")
                             if file.is_file())
        self.assertLess(sizes["with"] * 4, sizes["without"])


if __name__ == "__main__":
    unittest.main()
