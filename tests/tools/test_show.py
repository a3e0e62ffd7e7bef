"""show and diff, and git with them."""

import hashlib
import json
import os
import shutil
import subprocess
import unittest
import zipfile

from support import EXAMPLE, MODEL_PART, TOOL, ToolTest, why_not


def sha256(content):
    return hashlib.sha256(content if isinstance(content, bytes) else content.encode()).hexdigest()


class Show(ToolTest):
    def test_a_whole_app_as_text(self):
        self.small("a.kvpkg", "--set", "Name=N\x85", "--set", "Description=one\ntwo", "--set",
                   "RequiredProducts=p 1", "--set", "RequiredProducts=p 2")
        text = self.ok("show", "--text", "a.kvpkg")
        self.assertTrue(text.startswith("form: packaged\n\n[metadata]\nName: N\\u0085\nSummary:\n"))
        self.assertIn("\nDescription: one\n  | two\n", text)
        self.assertIn("\nRequiredProducts:\n  - p 1\n  - p 2\nUserComponents:\n", text)
        self.assertIn(f"\n/{MODEL_PART}  application/vnd.quorvane.korval.lumenForge.appModel+kvd  "
                      f"8 bytes  sha256:{sha256(self.read('s.kvd'))}\n", text)
        self.assertTrue(text.endswith("\n[code]\nx = 1;\n"))
        shutil.copy(self.dir / "a.kvpkg", self.dir / "b.kvpkg")
        self.assertEqual(self.ok("show", "b.kvpkg"), text)

    def test_each_line_of_code_is_a_line_without_controls(self):
        long = "y" * 3000
        for code, shown in [
                ("a\tb\x1b\r\nc\r\n", "[code, lines end in CR LF]\na\tb\\u001B\nc\n"),
                ("a\r\nb\n", "[code]\na\\u000D\nb\n"),
                ("", "[code]\n"),
                ("a", "[code]\na\n\\ No line end at the end of the code\n"),
                (long + "\n", f"[code]\n{'y' * 120}... (3,000 bytes, sha256:{sha256(long)})\n")]:
            self.assertTrue(self.ok("show", self.write("t.k", code)).endswith(shown), code[:20])

    def test_what_cannot_be_read_shows_in_its_place(self):
        self.flip(self.create(), "bad.kvpkg", MODEL_PART)
        said = self.fails_like(rf"bad\.kvpkg: /{MODEL_PART}: .*", "show", "bad.kvpkg")
        self.assertEqual(self.ok("show", "--text", "bad.kvpkg"), said.decode())
        text = self.ok("show", "--text", self.write("junk.kvpkg", "junk"))
        app = json.loads(self.run_tool("show", "--json", "junk.kvpkg").stdout)
        self.assertEqual([e["what"] for e in app["errors"]], ["app"])
        self.assertRegex(text, r"^form: packaged\n\ncannot be read: .+\n$")
        self.fails(1, "none.kvpkg: there is no such file; check the name", "show", "--text", "none.kvpkg")

    @unittest.skipIf(why_not(), f"ptrace is not permitted here: {why_not().strip()}")
    def test_text_for_git_is_right_or_none_when_the_system_fails(self):
        self.small("a.kvpkg")
        self.write("t.k", "x = 1;\n%[app:appDetails]\n%{\n<Name>N</Name>\n%}\n")
        for name in ("a.kvpkg", "t.k"):
            text = self.ok("show", "--text", name)
            for call, fault in (("pread64", "EIO"), ("openat", "EMFILE"), ("fcntl", "EMFILE")):
                for number, run in self.with_faults(call, fault, "show", "--text", name):
                    self.assertEqual(run.stdout.decode(), "" if run.returncode else text, (name, call, number, run))
                    self.assertTrue(run.stderr or run.returncode == 0, (name, call, number, run))

    def test_text_for_git_is_right_or_none_without_memory(self):
        self.write("large", "x = 1;\n" * 3_000_000)
        self.small("a.kvpkg")
        self.ok("edit", "a.kvpkg", "--code", "large")
        text = self.ok("show", "--text", "a.kvpkg")
        for mebibytes in range(60, 240, 20):
            run = self.run_tool("show", "--text", "a.kvpkg", limit=f"-v {mebibytes << 10}")
            self.assertTrue(run.stdout.decode() == ("" if run.returncode else text), (mebibytes, run.stdout[:400]))


class Diff(ToolTest):
    def diff(self, *args):
        result = self.run_tool("diff", *args)
        self.assertEqual(result.stderr, b"", args)
        return result.returncode, result.stdout.decode()

    def test_the_same_content_is_the_same_app(self):
        self.create("a.kvpkg")
        self.ok("create", "b.kvpkg", "--code", EXAMPLE / "code.k", "--model", EXAMPLE / "appModel.kvd",
                "--metadata", EXAMPLE / "metadata.json", env={"SOURCE_DATE_EPOCH": "1000000000"})
        self.ok("edit", "b.kvpkg", "--screenshot", EXAMPLE / "screenshot.png")
        self.assertNotEqual(self.read("a.kvpkg"), self.read("b.kvpkg"))
        self.assertEqual(self.diff("a.kvpkg", "b.kvpkg"), (0, ""))

    def test_items_that_are_no_parts_count(self):
        self.small("a.kvpkg")
        for name, content in (("b", b"more"), ("c", b"less"), ("d", None)):
            shutil.copy(self.dir / "a.kvpkg", self.dir / f"{name}.kvpkg")
            with zipfile.ZipFile(self.dir / f"{name}.kvpkg", "a") as package:
                package.comment = b"no difference"
                package.writestr("folder/", b"")
                if content:
                    package.writestr("notes.zzz", content)
                    package.writestr("no part name.", b"the same")
        self.assertEqual(self.diff("a.kvpkg", "d.kvpkg"), (0, ""))
        status, text = self.diff("b.kvpkg", "c.kvpkg")
        self.assertEqual(status, 1)
        self.assertTrue(text.endswith(
            f"\nparts\n-   /notes.zzz  without a content type  4 bytes  sha256:{sha256(b'more')}\n"
            f"+   /notes.zzz  without a content type  4 bytes  sha256:{sha256(b'less')}\n"), text)
        self.assertEqual([part["name"] for part in json.loads(self.diff("--json", "a.kvpkg", "b.kvpkg")[1])["parts"]],
                         ["/notes.zzz", "no part name."])

    def test_bytes_in_front_count(self):
        self.small("a.kvpkg")
        front = "bytes in front of the zip file"

        def beginning_with(program, *more):
            self.write("new", program)
            with zipfile.ZipFile(self.dir / "new", "a") as package:
                for item, content in [*self.items("a.kvpkg").items(), *more]:
                    package.writestr(item, content)
            return self.read("new")
        named = (front, b"the same")  # an item, which must not hide the bytes
        self.write("named.kvpkg", beginning_with(b"", named))
        rows = [("a", "front", beginning_with(b"#!/bin/sh\n"), b"#!/bin/sh\n"),
                ("named", "both", beginning_with(b"#!", named), b"#!")]
        for one, other, content, added in rows:
            with self.subTest(other):
                self.write(f"{other}.kvpkg", content)
                status, text = self.diff(f"{one}.kvpkg", f"{other}.kvpkg")
                self.assertEqual((status, text.splitlines()[2:]), (1, [
                    "parts", f"+   {front}  without a content type  {len(added)} bytes  sha256:{sha256(added)}"]))
                self.assertIn(f"\n{front}    {len(added)} bytes  sha256:{sha256(added)}\n",
                              self.ok("show", f"{other}.kvpkg"))
                self.assertEqual(self.diff(f"{other}.kvpkg", f"{other}.kvpkg"), (0, ""))

    def test_what_differs_is_shown(self):
        self.small("a.kvpkg", "--set", "Version=1", "--set", "Description=one\ntwo", "--set",
                   "UserComponents=x", "--set", "UserComponents=y", "--set", "RequiredProducts=p",
                   "--set", "RequiredProducts=q")
        shutil.copy(self.dir / "a.kvpkg", self.dir / "b.kvpkg")
        self.ok("edit", "b.kvpkg", "--set", "Version=2", "--clear", "Description", "--set",
                "UserComponents=y", "--set", "UserComponents=z", "--set", "RequiredProducts=q", "--set",
                "RequiredProducts=p", "--code", "-", input=b"x = 1;\ny = 2;\n")
        model = os.urandom(9)
        self.ok("edit", "b.kvpkg", "--model", "-", input=model)
        status, text = self.diff("a.kvpkg", "b.kvpkg")
        self.assertEqual(status, 1)
        self.assertTrue(text.startswith(
            "--- a.kvpkg (packaged app)\n+++ b.kvpkg (packaged app)\nmetadata\n-   Version: 1\n"
            "+   Version: 2\n-   Description: one\n-     | two\n+   Description:\n"
            "    RequiredProducts has the same items in another order\n"
            "-   UserComponents: x\n+   UserComponents: z\nparts\n"), text)
        self.assertRegex(text, rf"\n-   /{MODEL_PART}  \S+  8 bytes  sha256:{sha256(self.read('s.kvd'))}\n"
                         rf"\+   /{MODEL_PART}  \S+  9 bytes  sha256:{sha256(model)}\n")
        self.assertTrue(text.endswith("\ncode\n@@ -1 +1,2 @@\n x = 1;\n+y = 2;\n"), text)
        changes = json.loads(self.diff("--json", "a.kvpkg", "b.kvpkg")[1])
        self.assertEqual((changes["same"], changes["metadata"]["Version"]), (False, {"a": "1", "b": "2"}))
        self.assertIn("\x1b[32m+y = 2;\x1b[0m\n", self.on_terminal("diff", "a.kvpkg", "b.kvpkg")[1])

    def test_a_text_app_against_a_packaged_one(self):
        shutil.copy(EXAMPLE / "heatfield.k", self.dir / "t.k")
        self.ok("convert", "t.k", "p.kvpkg", "--model", "t.k")
        release = self.metadata("p.kvpkg")["KORVALRelease"]
        self.assertEqual(self.diff("t.k", "p.kvpkg"), (
            1, "--- t.k (text app)\n+++ p.kvpkg (packaged app)\nmetadata\n-   KORVALRelease: R2026a\n"
            f"+   KORVALRelease: {release}\n"
            "note: not compared, because a text app has none: model and other parts; KVPKGVersion\n"))
        self.ok("edit", "p.kvpkg", "--remove-screenshot")
        self.assertRegex(self.diff("t.k", "p.kvpkg")[1], r"\nscreenshot\n-   png  26,098 bytes  sha256:\w+\n")

    def test_bytes_that_do_not_show_differ_and_a_missing_program_is_named(self):
        self.write("u.k", b"\xfe\n")
        self.write("v.k", b"\xff\n")
        self.assertTrue(self.diff("u.k", "v.k")[1].endswith("code\n    differs in bytes that do not show\n"))
        self.write("w.k", "2\n")
        result = self.run_tool("diff", "u.k", "w.k", env={"PATH": str(self.dir)})
        self.assertEqual(result.returncode, 1)
        self.assertIn(b"    differs; install GNU diff", result.stdout)

    def test_trouble_is_neither_same_nor_different(self):
        self.flip(self.create("a.kvpkg"), "bad.kvpkg", MODEL_PART)
        self.assertEqual(self.run_tool("diff", "bad.kvpkg", "bad.kvpkg").returncode, 2)
        self.fails(2, "none.k: there is no such file; check the name", "diff", "a.kvpkg", "none.k")

    def test_code_of_which_every_line_differs_on_a_small_stack(self):
        for name in ("a", "b"):
            self.write(f"{name}.k", "".join(f"{name}{i}\n" for i in range(200_000)))
        result = self.run_tool("diff", "a.k", "b.k", limit="-s 128")
        self.assertEqual((result.returncode, result.stdout.count(b"\n")), (1, 400_004))

    def test_code_beyond_the_bound_only_differs(self):
        self.small("a.kvpkg")
        rows = [(250_001 * b"\n", "250,001 bytes, 250001 lines"),
                ((1 << 24) * b"x" + b"\n", "16,777,217 bytes, 1 line")]
        for code, facts in rows:
            self.ok("edit", self.small("b.kvpkg", "--force"), "--code", "-", input=code)
            status, text = self.diff("a.kvpkg", "b.kvpkg")
            self.assertEqual(status, 1)
            self.assertTrue(text.endswith(
                f"\ncode\n-   7 bytes, 1 line  sha256:{sha256(b'x = 1;' + bytes([10]))}\n"
                f"+   {facts}  sha256:{sha256(code)}\n"
                "    differs; too long to show where (more than 16 MiB or 250000 lines)\n"), text[-300:])
            self.assertIsNone(json.loads(self.diff("--json", "a.kvpkg", "b.kvpkg")[1])["code"]["diff"])


class Git(ToolTest):
    def environment(self):
        return {**os.environ, "HOME": str(self.dir), "GIT_CONFIG_NOSYSTEM": "1", "GIT_PAGER": "cat",
                "PATH": f"{TOOL.parent}:{os.environ['PATH']}"}

    def git(self, *args):
        return subprocess.run(["git", "-c", "user.name=a", "-c", "user.email=a@example.org", *args], cwd=self.dir,
                              env=self.environment(), check=True, capture_output=True).stdout.decode()

    def set_up(self):
        """A repository as the documents describe it, with an app."""
        self.git("init", "-q", "-b", "main")
        self.ok("git-setup", env=self.environment())
        self.small("a.kvpkg", "--set", "Version=1")

    def test_an_apps_text_does_not_depend_on_its_name(self):
        self.set_up()
        self.git("config", "core.ignoreCase", "true")
        app = self.read("a.kvpkg")
        (self.dir / "a.kvpkg").unlink()
        # git keeps the first text of a content, here that of the name that sorts first.
        for name in (os.fsdecode(b"\xff.kvpkg"), "-x.kvpkg", "B.KVPKG", "z.kvpkg"):
            self.write(name, app)
        self.git("add", ".")
        for diff in (self.git("diff", "--cached"), self.git("commit", "-qm", "one") or self.git("log", "-p")):
            self.assertEqual(diff.count("\n+Version: 1\n"), 4)
        self.write("-x.kvpkg", app[:-40])
        self.assertIn("\n-Version: 1\n", self.git("diff"))

    def test_an_escape_in_a_text_is_not_what_it_escapes(self):
        for name, title in ("a.kvpkg", "a\tb"), ("b.kvpkg", "a\\u0009b"):
            self.create(name)
            self.ok("edit", name, "--set", "Name=" + title)
        self.assertNotEqual(*([line for line in self.ok("show", "--text", name).splitlines() if "title" in line]
                              for name in ("a.kvpkg", "b.kvpkg")))

    def test_apps_show_as_text_in_diff_and_log(self):
        self.set_up()
        self.git("add", ".")
        self.git("commit", "-q", "-m", "one")
        self.ok("edit", "a.kvpkg", "--set", "Version=2", "--code", "-", input=b"x = 2;\n")
        for change in ("\n-Version: 1\n+Version: 2\n", "\n-x = 1;\n+x = 2;\n"):
            self.assertIn(change, self.git("diff"))
        self.write("a.kvpkg", self.read("a.kvpkg")[:-40])
        self.git("commit", "-qam", "damaged")
        log = self.git("log", "-p", "--", "a.kvpkg")
        self.assertIn("\n+cannot be read: ", log)
        self.assertIn("\n+Version: 1\n", log)
