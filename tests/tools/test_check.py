"""check and check --repair."""

import json
import os
import random
import re
import resource
import subprocess
import unittest
import zipfile

from support import (DOCS, EXAMPLE, METADATA_PART, MODEL_PART, SCHEMA, TOOL, ToolTest, add_relationship, replacing,
                     setting, without)

CORE, HOST, RELS, TYPES, SHOT = ("docProps/core.xml", "docProps/korval.xml", "_rels/.rels", "[Content_Types].xml",
                                 "metadata/appScreenshot.png")


def damaged(content, dice):
    data = bytearray(content)
    for _ in range(dice.randint(1, 3)):
        at = dice.randrange(len(data) + 1)
        piece = slice(at, at + dice.choice([1, 4, 30, 500, len(data)]))
        flipped = bytes(byte ^ 1 << dice.randrange(8) for byte in data[piece][:1]) + data[piece][1:]
        data[piece] = dice.choice([b"", bytes(len(data[piece])), data[piece] * 2, dice.randbytes(8), flipped])
    return bytes(data)


def processor_time():
    used = resource.getrusage(resource.RUSAGE_CHILDREN)
    return used.ru_utime + used.ru_stime


class CheckTest(ToolTest):
    def report(self, name, *args):
        """The JSON of one file; a run that fails must say nothing on standard error either."""
        result = self.run_tool("check", "--json", *args, name)
        self.assertEqual(result.stderr, b"", name)
        report = json.loads(result.stdout)
        self.assertEqual(result.returncode, 1 if report.get("result", report)["errors"] else 0, report)
        return report

    def rules(self, name):
        return {f["rule"] for f in self.report(name)["findings"]}


class Check(CheckTest):
    def test_a_good_app_has_no_findings(self):
        self.create()
        self.assertEqual(self.report("app.kvpkg"), {
            "file": "app.kvpkg", "errors": 0, "warnings": 0, "notes": 0, "findings": []})

    def test_each_departure_has_its_rule(self):
        self.create()
        rows = [
            ("package-type", replacing(CORE, "vnd.quorvane.korval.app", "x")),
            ("code-encoding", setting("korval/code.k", b"x = '\xff'")),
            ("code-conflict", setting("korval/code.k", b"%%%%\n<<<<<<<< ours\r\n1\n========\r\n2\n>>>>>>>> theirs")),
            ("model-empty", setting(MODEL_PART, b"")),
            ("model-missing", without(MODEL_PART)),
            ("metadata-xml", setting(METADATA_PART, b"<metadata>")),
            ("part-dangling", replacing(RELS, "/korval/code.k", "/korval/gone.k")),
            ("part-ambiguous", add_relationship(
                SCHEMA + "/lumenForge/app/2017/relationships/appMetadata", "korval/code.k")),
            ("relationship-dangling", add_relationship("urn:x", "nowhere.xml")),
            ("relationships-missing", without(RELS)),
            ("types-missing", without(TYPES)),
        ]
        for expected, change in rows:
            self.assertIn(expected, self.rules(self.rewrite("app.kvpkg", "bad.kvpkg", change)))

    def test_each_of_several_parts_of_a_kind_is_of_the_app(self):
        code = add_relationship(f"{SCHEMA}/korval/2026/relationships/code", "korval/code.k")
        self.assertEqual(self.rules(self.rewrite(self.create(), "bad.kvpkg", code)), {"code-ambiguous"})
        self.assertIn("part-unknown", self.rules(self.rewrite("app.kvpkg", "bad.kvpkg", replacing(
            RELS, f"{SCHEMA}/korval/2026/relationships/code", "urn:x"))))

    def test_an_edit_mends_a_metadata_element_that_occurs_twice(self):
        twice = replacing(METADATA_PART, "<uuid>", "<uuid>5b1c1c0e-8f0f-4c43-9a63-2f0d6f3f7f11</uuid><uuid>")
        (found,) = self.report(self.rewrite(self.create(), "bad.kvpkg", twice))["findings"]
        self.assertEqual(found["rule"], "metadata-twice")
        self.ok("edit", "bad.kvpkg", "--set", "Version=9")
        self.assertEqual((self.rules("bad.kvpkg"), self.metadata("bad.kvpkg")["Uuid"]), (set(), "5b1c1c0e-8f0f-4c43-9a63-2f0d6f3f7f11"))

    def test_signatures_are_found_and_not_verified(self):
        self.assertEqual(self.report(self.signed(self.create(), "signed.kvpkg"))["findings"], [{
            "rule": "package-signed", "severity": "note", "part": "", "fix": "", "count": 1,
            "text": '1 digital signature, which qzapp does not verify; an edit needs "--drop-signature"'}])

    def test_goes_on_behind_the_first_error(self):
        bad = self.rewrite(self.create(), "bad.kvpkg", lambda name, content: {
            TYPES: content.replace(b"</Types>", b"<X/></Types>"),
            RELS: content.replace(b"</Relationships>", b"<Relationship/></Relationships>"),
            CORE: content.replace("Wärmefeld".encode(), b""), SHOT: b"GIF89a;"}.get(name, content))
        self.assertLessEqual({"types-entry", "relationships-entry", "name-missing", "screenshot-bytes"},
                             self.rules(bad))

    def test_core_properties_that_lead_nowhere_are_reported_and_made(self):
        rows = [('Target="docProps/core.xml"', 'Target="docProps/gone.xml"'),
                ('Target="docProps/core.xml"', 'Target="http://a/core.xml" TargetMode="External"')]
        self.create()
        for old, new in rows:
            self.assertIn(old, self.items("app.kvpkg")[RELS].decode().replace('"/docProps', '"docProps'))
            change = lambda name, content: (content.replace(b'"/docProps', b'"docProps').replace(
                old.encode(), new.encode()) if name == RELS else content)
            self.rewrite("app.kvpkg", "bad.kvpkg", change)
            self.assertIn("relationship-dangling", self.rules("bad.kvpkg"), new)
            self.assertEqual(self.metadata("bad.kvpkg")["Version"], "1.0")
            self.ok("edit", "bad.kvpkg", "--set", "Name=again")
            self.assertEqual(self.metadata("bad.kvpkg")["Name"], "again")

    def test_damaged_bytes_are_reported_item_by_item(self):
        self.flip(self.create(), "bad.kvpkg", MODEL_PART)
        (found,) = self.report("bad.kvpkg")["findings"]
        self.assertEqual((found["rule"], found["severity"], found["part"]),
                         ("item-damaged", "error", "/" + MODEL_PART))
        self.assertIn("qzapp check --repair bad-repaired.kvpkg bad.kvpkg", found["fix"])

    def test_a_table_of_slices_that_another_program_kept_for_other_data_is_noted(self):
        model = bytes(range(256)) * (5 << 12)  # of five slices
        self.create()
        self.ok("edit", "app.kvpkg", "--model", self.write("large.kvd", model))
        self.assertEqual(self.rules("app.kvpkg"), set())
        with zipfile.ZipFile(self.dir / "app.kvpkg") as old, \
                zipfile.ZipFile(self.dir / "bad.kvpkg", "w", zipfile.ZIP_DEFLATED) as new:
            for info in old.infolist():
                content = old.read(info)
                new.writestr(info, content[::-1] if info.filename == MODEL_PART else content)
        (found,) = self.report("bad.kvpkg")["findings"]
        self.assertEqual((found["rule"], found["part"]), ("item-slices", "/" + MODEL_PART))
        extracted = self.run_tool("extract", "bad.kvpkg", "--only", "model", "-o", "-")
        self.assertEqual((extracted.returncode, extracted.stdout == model[::-1]), (0, True))

    def test_a_zip_file_that_is_odd_or_refused_breaks_its_rule(self):
        whole = self.read(self.create())
        rows = [
            ("zip-behind", whole + bytes(4)),
            ("zip-end", whole + b"more"),
            ("zip-end", b"junk" + whole),
            ("zip-end", b"hello"),
            ("zip-directory", whole.replace(b"PK\1\2", b"PK\1\3", 1)),
            ("zip-item", whole.replace(b"korval/code.k", b"korval/code.l", 1)),
        ]
        for expected, data in rows:
            found = self.report(self.write("odd.kvpkg", data))["findings"]
            self.assertEqual([f["rule"] for f in found if f["rule"].startswith("zip-")][:1], [expected])

    def test_a_lost_model_is_mended_by_repair_and_edit(self):
        self.rewrite(self.create(), "bad.kvpkg", without(MODEL_PART))
        self.report("bad.kvpkg", "--repair", "bad-repaired.kvpkg")
        self.ok("edit", "bad-repaired.kvpkg", "--model", EXAMPLE / "appModel.kvd")
        self.assertEqual(self.ok("check", "--strict", "bad-repaired.kvpkg"), "bad-repaired.kvpkg: no findings\n")

    def test_strict_several_files_folders_and_standard_input(self):
        (self.dir / "d").mkdir()
        self.create("d/app.kvpkg")
        self.rewrite("d/app.kvpkg", "warned.kvpkg", setting(MODEL_PART, b""))
        self.assertIn("1 warning", self.ok("check", "warned.kvpkg", "d"))
        self.assertEqual(self.run_tool("check", "--strict", "warned.kvpkg").returncode, 1)
        said = self.fails_like("none.kvpkg: there is no such file; check the name", "check", "none.kvpkg", "d")
        self.assertTrue(said.endswith(b"d/app.kvpkg: no findings\n2 files: 1 without findings, 1 not read\n"), said)
        text = self.ok("check", "-", input=self.read("warned.kvpkg"))
        self.assertTrue(text.startswith("standard input: 1 warning\n"), text)

    def test_answers_do_not_depend_on_threads(self):
        for i in range(20):
            self.create(f"{i}.kvpkg")
            if i % 3 == 0: self.write(f"{i}.kvpkg", "no app")
        for verb in ["check", "info"]:
            one, four = (self.run_tool(verb, "--json", "--threads", n, ".") for n in "14")
            self.assertEqual((one.returncode, one.stdout, one.stderr), (1, four.stdout, four.stderr))
        one, four = (self.run_tool("gallery", "--threads", n, ".", "-o", "-") for n in "14")
        self.assertEqual((one.returncode, one.stdout, one.stderr), (1, four.stdout, four.stderr))
        self.assertEqual(one.stderr.count(b"kvpkg: "), 7)
        for wrong in ["0", "257", "two", "-1"]:
            self.fails_like(f'check: --threads: expected a number from 1 to 256, found "{wrong}"; see .*',
                            "check", "--threads", wrong, ".", status=2)

    def test_text_apps(self):
        details = "%[app:appDetails]\n%{\n<Name>N</Name><Author>A</Author><Summary>S</Summary>" \
                  "<Description>D</Description>\n%}\n"
        rows = [
            (set(), (EXAMPLE / "heatfield.k").read_text()),
            ({"appendix-missing"}, "x = 1"),
            ({"appendix-missing"}, "GIF89a = 1; BZh = 2;\n"),
            ({"text-encoding"}, details.encode() + b"\xff"),
            ({"code-conflict"}, "<<<<<<<\n<<<<<<< ours\n1\n=======\n2\n>>>>>>> theirs\n" + details),
            (set(), "<<<<<<< a\n========\n>>>>>>> b\n=======\n>>>>>>>b\n>>>>>>>> b\n >>>>>>> b\n" + details),
            ({"section-twice"}, details * 2),
            ({"section-open"}, details + "%[app:internalData]\n%{\n"),
            ({"element-twice"}, details.replace("\n%}", "<Name>M</Name>\n%}")),
            ({"element-open"}, details.replace("\n%}", "<Version>1\n%}")),
            ({"thumbnail-base64"}, details + "%[app:thumbnail]{<Thumbnail>data:image/png;base64,?</Thumbnail>%}"),
        ]
        for expected, text in rows:
            self.assertEqual(self.rules(self.write("app.k", text)), expected)

    def test_a_file_of_another_kind_is_called_by_its_name(self):
        self.create()
        with zipfile.ZipFile(self.dir / "x.zip", "w") as package:
            package.writestr("letter.txt", b"hello")
        rename = 'if it is a packaged app, give it a name that ends in ".kvpkg"'
        rows = [
            ("a.kvpkg", (EXAMPLE / "screenshot.png").read_bytes(), "zip-end",
             "is not a zip file but a PNG image; choose another file"),
            ("a.kvpkg", b"hello", "zip-end", "is not a zip file but text; choose another file"),
            ("a.kvpkg", b"", "zip-end", "is empty; get the file again from where it came from"),
            ("a.kvpkg", self.read("x.zip"), "app-missing", None),
            ("a.k", self.read("app.kvpkg"), "text-kind", f"is a zip file, not a text app; {rename}"),
            ("a.k", (EXAMPLE / "screenshot.png").read_bytes(), "text-kind",
             "is a PNG image, not a text app; choose another file"),
            *(("a.k", "\ufeffx = 1;\n".encode(encoding), "text-kind",
               "is text in UTF-16, not a text app; save it as UTF-8") for encoding in ("utf-16-le", "utf-16-be")),
        ]
        for name, content, rule, message in rows:
            (found,) = [f for f in self.report(self.write(name, content))["findings"] if f["rule"] == rule]
            self.assertNotIn(";", found["text"])  # advice is the fix
            if message:
                self.fails(1, f"{name}: {message}", "info", name)

    def test_a_code_that_readers_refuse_as_too_large(self):
        self.rewrite(self.create(), "bad.kvpkg", setting("korval/code.k", b" " * ((1 << 28) + 1)))
        (found,) = self.report("bad.kvpkg")["findings"]
        self.assertEqual((found["rule"], found["text"]),
                         ("code-large", "has 268435457 bytes; it may have at most 268435456"))
        self.fails_like(".* 268435457 bytes are more than the 268435456 that can be read; .*", "extract", "bad.kvpkg", "--only", "code", "-o", "-")

    def test_a_zip_file_of_another_kind_is_one_finding(self):
        relationships = (b'<Relationships xmlns="http://schemas.openxmlformats.org/package/2006/relationships">'
                         b'<Relationship Id="r" Type="urn:document" Target="word/gone.xml"/></Relationships>')
        types = (b'<Types xmlns="http://schemas.openxmlformats.org/package/2006/content-types"><Default '
                 b'Extension="xml" ContentType="application/xml"/></Types>')
        archive = {"META-INF/": b"", "META-INF/MANIFEST.MF": b"1", "a b.txt": b"2", "x/y": b"3"}
        office = {TYPES: types, RELS: relationships, "word/styles.xml": b"<a/>", CORE: b"<coreProperties/>", **archive}
        rows = [("a.jar", archive, "types-missing"), ("a.kvpkg", archive, "app-missing"),
                ("a.KVPKG", {}, "app-missing"), ("b.kvpkg", office, "app-missing")]
        for name, items, rule in rows:
            with zipfile.ZipFile(self.dir / name, "w") as package:
                for item, content in items.items():
                    package.writestr(item, content)
            found = [f["rule"] for f in self.report(name)["findings"] if f["rule"] != "extension-case"]
            self.assertEqual(found, [rule], name)
        self.flip("a.jar", "bad.jar", "META-INF/MANIFEST.MF")
        self.assertEqual(self.rules("bad.jar"), {"item-damaged", "types-missing"})

    def test_ten_findings_of_a_rule_are_shown_and_the_others_counted(self):
        self.create()
        with zipfile.ZipFile(self.dir / "app.kvpkg", "a") as package:
            for i in range(5009):
                package.writestr(f"stray/{i}.zzz", b"")
                package.writestr(f"folder{i}/", b"")
        report = self.report("app.kvpkg")
        found = report["findings"]
        self.assertEqual((report["warnings"], report["notes"]), (5009, 5009))
        self.assertEqual([f["rule"] for f in found], ["item-untyped"] * 11 + ["item-folder"] * 11)
        self.assertEqual([f["part"] for f in found[:11]], [*(f"/stray/{i}.zzz" for i in range(10)), ""])
        self.assertEqual({(f["text"], f["count"]) for f in (found[10], found[21])}, {("… and 4,999 more", 4999)})
        self.assertEqual(sum(f["count"] for f in found), 10018)
        text = self.ok("check", "app.kvpkg")
        self.assertTrue(text.startswith("app.kvpkg: 5,009 warnings, 5,009 notes\n"), text)
        self.assertIn("  warning  item-untyped\n    … and 4,999 more\n", text)
        self.create("small.kvpkg")
        with zipfile.ZipFile(self.dir / "small.kvpkg", "a") as package:
            for i in range(10):
                package.writestr(f"stray/{i}.zzz", b"")
        self.assertEqual([f["count"] for f in self.report("small.kvpkg")["findings"]], [1] * 10)
        said = self.ok("check", "--repair", "out.kvpkg", "app.kvpkg")
        self.assertIn("  … and 5,005 more, which --json lists\n", said)
        self.assertIn("  … and 10,008 more, which --json lists\n", said)

    def test_a_terminal_shows_severities_in_colours(self):
        self.rewrite(self.create(), "bad.kvpkg", lambda name, old: {
            MODEL_PART: b"", METADATA_PART: old.replace(b"<uuid>", b"<later/><uuid>"), "korval/code.k": b"\xff"}.get(
                name, old))
        status, text = self.on_terminal("check", ".")
        for part in ("\x1b[1m./bad.kvpkg\x1b[0m: \x1b[1;31m1 error\x1b[0m, ", "  \x1b[1;31merror\x1b[0m    code-encoding",
                     "  \x1b[33mwarning\x1b[0m  model-empty", "  \x1b[36mnote\x1b[0m     metadata-unknown"):
            self.assertIn(part, text)
        self.assertTrue(text.endswith("2 files: 1 without findings, \x1b[1;31m1 with errors\x1b[0m\n"), text)
        plain = self.run_tool("check", ".").stdout.decode()
        self.assertNotIn("\x1b", plain + self.on_terminal("check", ".", env={"NO_COLOR": "1"})[1])
        self.assertEqual(status, 1)

    def test_a_fix_is_one_line_that_a_shell_takes(self):
        self.flip(self.create(), "bad.kvpkg", SHOT)
        damaged = self.read("bad.kvpkg")
        (self.dir / "bin").mkdir()
        (self.dir / "bin" / "qzapp").symlink_to(TOOL)
        environment = {**os.environ, "PATH": f"{self.dir / 'bin'}:{os.environ['PATH']}"}
        stems = ["plain", "a long name of many words " * 6, "it's", 'quo"te', "$(touch x)", "`touch x`", "-dash", "two\nlines",
                 "tab\t'", "Wärme", "\u202e100% \\n\\0", "*", "[a]", "~", "#;&|", "\x1b[2J",
                 "", ".", ".."]
        for stem in stems:
            with self.subTest(stem=stem):
                name = f"{stem}.kvpkg"
                self.write(name, damaged)
                before = set(self.names())
                status, text = self.on_terminal("check", "--", name, env={"NO_COLOR": "1"})
                fixes = [line.removeprefix("    fix: ") for line in text.split("\n") if "fix: " in line]
                command = fixes[0].removeprefix("get the file again, or: ")
                self.assertEqual((status, command.startswith("qzapp check --repair ")), (1, True), text)
                ran = subprocess.run(["sh", "-c", command], cwd=self.dir, env=environment, capture_output=True)
                self.assertEqual((ran.returncode, ran.stderr), (0, b""), command)
                made = f"{stem}-repaired.kvpkg" if stem else "repaired.kvpkg"
                self.assertEqual(set(self.names()) - before, {made})

    def test_the_page_lists_the_rules(self):
        rules = self.json("check", "--rules")["rules"]
        rows = re.findall(r"^\| `([a-z0-9-]+)` \| (\w+) \| (.*) \|$", (DOCS / "qzapp-check.md").read_text(), re.M)
        self.assertEqual([(r["rule"], r["severity"], r["text"]) for r in rules], rows)


class Repair(CheckTest):
    def repaired(self, name):
        return self.report(name, "--repair", "out.kvpkg", "--force")

    def contents(self, name):
        """What is in a package but its tables, which a repair makes anew."""
        return {item: content for item, content in self.items(name).items() if item not in (TYPES, RELS)}

    def test_no_name_of_another_item_takes_the_place_of_a_part(self):
        good = self.items(self.create())
        for odd in ("korval\\code.k", "korval/code.k;1", "korval/code%2ek", "korval/code.k/sub", "C:korval", "_rels",
                    "_rels/.rels/x", "[Content_Types].xml/x", "lumenforge/appModel.kvd/[0].piece"):
            with zipfile.ZipFile(self.dir / "odd.kvpkg", "w") as new:
                for name, content in {odd: b"evil", **good}.items():
                    new.writestr(name, content)
            report = self.repaired("odd.kvpkg")
            self.assertEqual([lost["name"].lstrip("/") for lost in report["lost"]], [odd])
            self.assertEqual(self.contents("out.kvpkg"), self.contents("app.kvpkg"), odd)

    def test_a_transfer_as_text_is_undone(self):
        self.write("bad.kvpkg", self.read(self.create()).replace(b"\n", b"\r\n"))
        cause = self.report("bad.kvpkg")["findings"][0]["text"]
        self.assertIn("a transfer as text put a carriage return in front of each line feed: ", cause)
        report = self.repaired("bad.kvpkg")
        self.assertEqual((report["lost"], self.contents("out.kvpkg")), ([], self.contents("app.kvpkg")))
        self.assertIn("carriage returns", report["mended"][0])
        quiet = self.report("bad.kvpkg", "--repair", "out.kvpkg", "--force", "-q")
        self.assertEqual((quiet["mended"], quiet["result"]["findings"]), (report["mended"], []))

    def test_content_types_are_given_by_relationships_where_names_are_others(self):
        self.create()
        moved = "korval/code.k", "src/prog.k"
        with zipfile.ZipFile(self.dir / "bad.kvpkg", "w") as new:
            for name, old in self.items("app.kvpkg").items():
                if name != TYPES:
                    new.writestr(name.replace(*moved), old.replace(*(path.encode() for path in moved)))
        self.repaired("bad.kvpkg")
        self.assertEqual(self.rules("out.kvpkg"), {"part-name"})

    def test_takes_what_readers_could_take_for_two_packages(self):
        self.create()
        whole = self.read("app.kvpkg")
        kept = self.items("app.kvpkg")
        end = whole.rindex(b"PK\5\6")
        offset = int.from_bytes(whole[end + 16:end + 20], "little")

        def packed(other=None, **facts):
            """With facts of the first item changed, and another item."""
            with zipfile.ZipFile(self.dir / "bad.kvpkg", "w") as package:
                for name, content in kept.items():
                    info = zipfile.ZipInfo(name)
                    for fact, value in (facts if name == MODEL_PART else {}).items():
                        setattr(info, fact, value)
                    package.writestr(info, content)
                if other:
                    package.writestr(other, b"other")
            return self.read("bad.kvpkg")

        rows = {
            "junk after the end": whole + b"more",
            "a gap before the directory": whole[:offset] + b"gap" + whole[offset:end + 16]
                                          + (offset + 3).to_bytes(4, "little") + whole[end + 20:],
            "a disk number": whole[:end + 4] + b"\xFF\xFF" + whole[end + 6:],
            "a record in an extra field": packed(extra=b"\7\0\x16\0PK\5\6" + bytes(18)),
            "a record in a comment": packed(comment=b"PK\5\6" + bytes(18)),
            "a disk's label": packed(external_attr=8),
            "a version number": packed(other=MODEL_PART + ";1"),
            "a drive": packed(other="C:" + MODEL_PART),
            "content of a folder": packed(other="folder/"),
            "an item in an item": packed(other=MODEL_PART + "/x"),
        }
        for why, data in rows.items():
            self.write("bad.kvpkg", data)
            self.assertNotEqual(self.run_tool("parts", "bad.kvpkg").returncode, 0, why)
            self.repaired("bad.kvpkg")
            self.ok("parts", "--verify", "out.kvpkg")
            self.assertEqual(self.contents("out.kvpkg")[MODEL_PART], kept[MODEL_PART], why)

    def test_everything_comes_back_without_directory_or_tables(self):
        whole = self.read(self.create())
        rows = [
            self.write("cut.kvpkg", whole[:whole.index(b"PK\1\2")]),
            self.write("front.kvpkg", b"junk" + whole),
            self.write("behind.kvpkg", whole + whole[-22:]),
            self.rewrite("app.kvpkg", "types.kvpkg", without(TYPES)),
            self.flip("app.kvpkg", "rels.kvpkg", RELS),
        ]
        for name in rows:
            before = self.read(name)
            report = self.repaired(name)
            self.assertEqual((report["lost"], report["result"]["findings"]), ([], []), name)
            self.assertEqual(self.contents("out.kvpkg"), self.contents("app.kvpkg"))
            self.assertEqual(self.metadata("out.kvpkg"), self.metadata("app.kvpkg"))
            self.assertEqual(self.read(name), before)
        text = self.ok("check", "--repair", "again.kvpkg", "cut.kvpkg")
        self.assertRegex(text, r"^wrote again\.kvpkg: \d kept, 0 lost, 0 mended\n")

    def test_a_flipped_name_in_the_directory_loses_nothing(self):
        self.create()
        whole, known = self.read("app.kvpkg"), self.items("app.kvpkg")
        directory = whole.index(b"PK\1\2")
        for name in known:
            start = whole.index(name.encode(), directory)
            for at, bit in ((0, 0x20), (len(name) // 2, 0x01), (len(name) - 1, 0x80)):
                with self.subTest(name=name, at=at):
                    data = bytearray(whole)
                    data[start + at] ^= bit
                    report = self.repaired(self.write("bad.kvpkg", bytes(data)))
                    self.assertEqual((report["lost"], report["result"]["findings"]), ([], []))
                    self.assertEqual(self.contents("out.kvpkg"), self.contents("app.kvpkg"))
                    if name not in (TYPES, RELS):
                        (mended,) = report["mended"]
                        self.assertTrue(mended.startswith(f"used the name /{name}, because the package refers to it; "))

    def test_of_several_relationships_the_one_that_is_meant_stays(self):
        self.create()
        metadata, shot = (f"{SCHEMA}/lumenForge/app/2017/relationships/app{kind}" for kind in
                          ("Metadata", "Screenshot"))
        xml, gif = self.items("app.kvpkg")[METADATA_PART], b"GIF89a;"
        rows = [  # type, target, what the part there holds
            (metadata, "/" + METADATA_PART, None),
            (metadata, "/nowhere.xml", None),
            (metadata, "/metadata/second.xml", xml),
            (metadata, "/korval/code.k", None),
            (shot, "/" + SHOT, None),
            (shot, "/" + MODEL_PART, None),
            (shot, "/nowhere.png", None),
            (shot, "/metadata/appScreenshot.gif", gif),
            (shot, "http://example.com/x.png\" TargetMode=\"External", None),
        ]
        before = self.metadata("app.kvpkg")
        for kind, target, content in rows:
            for place in ("<Relationship ", "</Relationships>"):  # in front of the good one and behind it
                with self.subTest(target=target, place=place):
                    entry = f'<Relationship Id="rIdExtra" Type="{kind}" Target="{target}"/>'
                    self.rewrite("app.kvpkg", "bad.kvpkg", lambda name, old: {
                        RELS: old.replace(place.encode(), (entry + place).encode(), 1),
                        TYPES: old.replace(b"</Types>", b'<Default Extension="gif" ContentType="image/gif"/>'
                                           b"</Types>")}.get(name, old))
                    if content is not None:
                        with zipfile.ZipFile(self.dir / "bad.kvpkg", "a") as package:
                            package.writestr(target[1:], content)
                    report = self.repaired("bad.kvpkg")
                    is_idle = target.endswith(".gif")
                    lost, *more = [item["name"] for item in report["lost"]]
                    self.assertTrue(lost.startswith("relationship "), lost)
                    self.assertEqual(more, [target] if is_idle else [])
                    links = self.json("parts", "out.kvpkg")["relationships"]
                    (meant,) = [r["target"] for r in links if r["type"] == kind]
                    self.assertEqual(meant, "/" + (METADATA_PART if kind == metadata else SHOT))
                    if content is not None:
                        self.assertEqual(self.items("out.kvpkg").get(target[1:]), None if is_idle else content)
                    self.assertEqual(self.metadata("out.kvpkg"), before)
                    self.assertLessEqual(self.items("app.kvpkg").keys(), self.items("out.kvpkg").keys())
                    self.ok("edit", "out.kvpkg", "--set", "Version=9.9", "--screenshot", EXAMPLE / "screenshot.png")
                    self.assertEqual(self.metadata("out.kvpkg"), {**before, "Version": "9.9"})
                    self.assertEqual(self.extracted("out.kvpkg", "screenshot"),
                                     (EXAMPLE / "screenshot.png").read_bytes())
                    self.write("shot.gif", gif)
                    self.ok("edit", "out.kvpkg", "--screenshot", "shot.gif")

    def test_a_part_of_several_kinds_becomes_one_of_the_likeliest(self):
        self.create()
        rows = [  # the name and the type of what becomes odd, and the edit that then was refused
            ("korval/code.k", "application/vnd.quorvane.korval.code", "--code", EXAMPLE / "code.k"),
            (METADATA_PART, "application/vnd.quorvane.korval.lumenForge.appMetadata+xml", "--set", "Version=9.9"),
        ]
        for item, its_type, *edit in rows:
            with self.subTest(item=item):
                def change(name, old):
                    old = old.replace(its_type.encode(), b"text/plain").replace(item.encode(), b"odd/part.txt")
                    return old.replace(SHOT.encode(), b"odd/part.txt") if name == RELS else old
                self.rewrite("app.kvpkg", "bad.kvpkg", change)
                with zipfile.ZipFile(self.dir / "bad.kvpkg") as package:
                    contents = {n: package.read(n) for n in package.namelist()}
                with zipfile.ZipFile(self.dir / "bad.kvpkg", "w") as package:
                    for name, content in contents.items():
                        package.writestr("odd/part.txt" if name == item else name, content)
                refusal = self.run_tool("edit", "bad.kvpkg", *edit)
                self.assertEqual(refusal.returncode, 1)
                self.assertIn(b"qzapp check --repair", refusal.stderr)
                self.repaired("bad.kvpkg")
                self.ok("edit", "out.kvpkg", *edit)
                self.assertEqual(self.extracted("out.kvpkg", "screenshot"), self.extracted("app.kvpkg", "screenshot"))

    def test_reports_what_it_did_and_nothing_else(self):
        self.create()
        with zipfile.ZipFile(self.dir / "app.kvpkg", "a") as package:
            package.comment = b"a comment"
        rows = [
            (lambda name, old: old, [], []),
            (replacing(CORE, "<cp:version>", "<cp:version x='1'>"), ["/" + CORE], []),
            (replacing(RELS, "</Relationships>", "<Relationship/></Relationships>"), [], ["an entry of /_rels/.rels"]),
            (replacing(TYPES, "</Types>", "<X/></Types>"), [], ["an entry of [Content_Types].xml"]),
        ]
        for change, rewritten, lost in rows:
            report = self.repaired(self.rewrite("app.kvpkg", "bad.kvpkg", change))
            self.assertEqual([item["name"] for item in report["lost"]], lost)
            same = {"/" + name for name, content in self.contents("out.kvpkg").items()
                    if content == self.items("bad.kvpkg")[name]}
            self.assertEqual({part["name"] for part in report["kept"]}, same)
            self.assertLessEqual(len(report["mended"]), 1)
        self.assertEqual(self.repaired("app.kvpkg")["mended"], ["left out the comment of the zip file"])
        self.create("front.kvpkg")
        with zipfile.ZipFile(self.dir / "front.kvpkg") as package:
            contents = {name: package.read(name) for name in package.namelist()}
        with open(self.dir / "front.kvpkg", "wb") as file:
            file.write(b"#!/bin/run\n")
            with zipfile.ZipFile(file, "w") as package:
                for name, content in contents.items():
                    package.writestr(name, content)
        self.assertEqual(self.repaired("front.kvpkg")["mended"], ["left out 11 bytes before the first item"])

    def test_properties_that_can_be_read_stay_as_they_are(self):
        self.create()
        self.ok("edit", "app.kvpkg", "--set", "KORVALRelease=R2020a")
        typed = '<Override PartName="/docProps/other.xml" ' \
                'ContentType="application/vnd.openxmlformats-package.core-properties+xml"/></Types>'
        self.rewrite("app.kvpkg", "whole.kvpkg", lambda name, old: replacing(TYPES, "</Types>", typed)(name, replacing(
            HOST, "</hostProperties>", '<later xmlns="urn:later">&#169;</later></hostProperties>')(name, old)))
        record = self.metadata("whole.kvpkg")
        with zipfile.ZipFile(self.dir / "whole.kvpkg", "a") as package:
            package.writestr("docProps/other.xml", package.read(CORE).replace(record["Name"].encode(), b"Other"))
        whole = self.items("whole.kvpkg")
        with_other = add_relationship("http://schemas.openxmlformats.org/package/2006/relationships/metadata/"
                                      "core-properties", "/docProps/other.xml")
        spoilt_core = replacing(CORE, "<cp:version>", "<cp:version x='1'>")
        mended = "rewrote the {}, keeping only {}".format
        of_core = mended("core properties", "name, summary, author, version, content type")
        of_host = mended("host properties", "friendly name, release, release info")
        # `release` twice, of which readers take neither.
        spoilt_host = replacing(HOST, "<releaseInfo", "<release>R1</release><releaseInfo")
        rows = [
            (spoilt_core, {HOST}, [of_core]),
            (spoilt_host, {CORE}, [of_host]),
            (lambda name, old: spoilt_core(name, spoilt_host(name, old)), set(), [of_core, of_host]),
            (lambda name, old: spoilt_core(name, with_other(name, old)), {HOST, "docProps/other.xml"}, []),
            (with_other, {HOST, CORE}, []),
        ]
        for change, same, text in rows:
            self.rewrite("whole.kvpkg", "bad.kvpkg", change)
            report, after = self.repaired("bad.kvpkg"), self.items("out.kvpkg")
            self.assertEqual(report["mended"], text)
            self.assertEqual({name: after[name] for name in same}, {name: whole[name] for name in same})
            self.assertLessEqual({"/" + name for name in same}, {part["name"] for part in report["kept"]})
            name = "Other" if "docProps/other.xml" in same else record["Name"]
            self.assertEqual(self.metadata("out.kvpkg"), {**record, "Name": name})
            self.assertEqual(self.json("parts", "out.kvpkg")["coreProperties"]["KORVALReleaseInfo"], "R2020a (legacy)")

    def test_refuses_what_is_no_app(self):
        for name in ("x.kvpkg", "x.zip", "office.kvpkg"):
            with zipfile.ZipFile(self.dir / name, "w") as package:
                package.writestr("letter.txt", b"hello")
                if name == "office.kvpkg":
                    package.writestr(TYPES, b'<Types xmlns="http://schemas.openxmlformats.org/package/2006/'
                                     b'content-types"><Default Extension="xml" ContentType="application/xml"/></Types>')
                    package.writestr(CORE, b"<coreProperties/>")
        what = "so there is nothing to repair"
        for name in ("x.kvpkg", "office.kvpkg"):
            self.fails(1, f"{name}: holds nothing of an app, {what}; choose another file, and see what this one is "
                       'with "qzapp items"', "check", "--repair", "out.kvpkg", name)
        self.fails(1, f'x.zip: is not a package, {what}; see what it holds with "qzapp items"',
                   "check", "--repair", "out.zip", "x.zip")
        self.assertFalse({"out.kvpkg", "out.zip"} & set(self.names()))

    def test_what_is_damaged_is_lost_and_told(self):
        self.flip(self.create(), "bad.kvpkg", SHOT)
        report = self.repaired("bad.kvpkg")
        self.assertIn("/" + SHOT, [i["name"] for i in report["lost"]])
        self.assertEqual(report["result"]["errors"], 0)
        self.assertIsNone(self.json("info", "out.kvpkg")["screenshot"])

    def test_what_is_foreign_is_kept(self):
        self.rewrite(self.create(), "bad.kvpkg", add_relationship(
            "urn:x", "http://example.com/\" TargetMode=\"External"))
        with zipfile.ZipFile(self.dir / "bad.kvpkg", "a") as package:
            package.writestr("untyped.zzz", b"kept")
        self.assertEqual(self.repaired("bad.kvpkg")["lost"], [])
        self.assertEqual(self.contents("out.kvpkg")["untyped.zzz"], b"kept")
        links = self.json("parts", "out.kvpkg")["relationships"]
        self.assertIn(("http://example.com/", True), [(r["target"], r["external"]) for r in links])

    def test_never_touches_a_file_that_is_there(self):
        self.create()
        self.write("text.kvpkg", "hello")
        self.write("none.kvpkg", b"PK\5\6" + bytes(18))
        (self.dir / "link.kvpkg").symlink_to("app.kvpkg")
        before = self.names(), self.read("app.kvpkg")
        rows = [
            (1, "app.kvpkg: already exists; give --force to replace it", "app.kvpkg", "text.kvpkg"),
            (2, "link.kvpkg: is the same file as the input app.kvpkg; name another file", "link.kvpkg", "--force",
             "app.kvpkg"),
            (1, "none.kvpkg: holds no items, so there is nothing to keep; get the file again", "out.kvpkg", "none.kvpkg"),
            (1, "text.kvpkg: is not a zip file but text; choose another file; nothing in it can be read, so there is "
             "nothing to keep", "out.kvpkg", "text.kvpkg"),
        ]
        for status, message, *args in rows:
            self.fails(status, message, "check", "--repair", *args)
        for name in ("app.kvpkg", "link.kvpkg"):
            with open(self.dir / "app.kvpkg", "rb") as standard_input:
                self.fails(2, f"{name}: is the same file as the input standard input; name another file", "check", "--repair",
                           name, "--force", "-", stdin=standard_input)
        self.assertEqual((self.names(), self.read("app.kvpkg")), before)

    def test_whatever_the_damage_repair_ends_and_its_output_passes(self):
        whole = self.read(self.create())
        known = self.contents("app.kvpkg")
        texts = [name for name in known if name.endswith((".xml", ".rels"))]
        for seed in range(int(os.environ.get("QZAPP_DAMAGE_ROUNDS", "40"))):
            with self.subTest(seed=seed):
                dice = random.Random(seed)
                if seed % 2 == 0:
                    self.repair_damaged(self.write("bad.kvpkg", damaged(whole, dice)), known)
                    continue
                text = dice.choice(texts)  # with a checksum that is right
                self.rewrite("app.kvpkg", "bad.kvpkg", setting(text, damaged(known[text], dice)))
                self.repair_damaged("bad.kvpkg", {**known, text: None})

    def repair_damaged(self, name, known):
        self.report(name)
        result = self.run_tool("check", "--json", "--repair", "out.kvpkg", "--force", name)
        if b"nothing in it can be read" in result.stderr:
            return
        self.assertEqual(result.stderr, b"")
        report = json.loads(result.stdout)
        errors = {f["rule"] for f in report["result"]["findings"] if f["severity"] == "error"}
        is_lost = report["lost"] or MODEL_PART.encode() not in self.read(name)
        self.assertLessEqual(errors, {"model-missing"} if is_lost else set())
        for item, content in self.contents("out.kvpkg").items():
            if item not in (CORE, HOST):
                self.assertIn(known.get(item), (content, None), item)


class Cost(CheckTest):
    def test_is_linear_in_parts_and_relationships(self):
        types = ('<Types xmlns="http://schemas.openxmlformats.org/package/2006/content-types">'
                 '<Default Extension="xml" ContentType="application/xml"/><Default Extension="rels" '
                 'ContentType="application/vnd.openxmlformats-package.relationships+xml"/></Types>')
        standard = "http://schemas.openxmlformats.org/package/2006/relationships/metadata"
        kinds = [f"{SCHEMA}/lumenForge/app/2017/relationships/appScreenshot", f"{standard}/thumbnail",
                 f"{standard}/core-propertieZ"]
        links = "".join(f'<Relationship Id="r{i}" Type="{kinds[i % 3]}" Target="p/{i}.xml"/>' for i in range(60_000))
        relationships = ('<Relationships xmlns="http://schemas.openxmlformats.org/package/2006/relationships">'
                         f"{links}</Relationships>")
        with zipfile.ZipFile(self.dir / "app.kvpkg", "w") as package:
            for name, content in {TYPES: types, RELS: relationships, MODEL_PART: "m"}.items():
                package.writestr(name, content, zipfile.ZIP_DEFLATED)
            for i in range(10_000):
                package.writestr(f"p/{i}.xml", b"x")
        for args in (["check"], ["check", "--repair", "out.kvpkg"], ["diff", "app.kvpkg"], ["parts", "--verify"]):
            with self.subTest(args=args):
                start = processor_time()
                self.run_tool(*args, "app.kvpkg")
                self.assertLess(processor_time() - start, 12)
