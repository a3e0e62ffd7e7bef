"""show and diff."""

import hashlib
import shutil
import unittest

from support import EXAMPLE, MODEL_PART, ToolTest


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
        for part in ("metadata", "screenshot", "parts", "code"):
            self.assertIn(f"\n[{part}]\ncannot be read: ", text)


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

    def test_what_differs_is_shown(self):
        self.small("a.kvpkg", "--set", "Version=1", "--set", "Description=one\ntwo", "--set", "UserComponents=x",
                   "--set", "UserComponents=y", "--set", "RequiredProducts=p", "--set", "RequiredProducts=q")
        shutil.copy(self.dir / "a.kvpkg", self.dir / "b.kvpkg")
        self.ok("edit", "b.kvpkg", "--set", "Version=2", "--clear", "Description", "--set",
                "UserComponents=y", "--set", "UserComponents=z", "--set", "RequiredProducts=q", "--set",
                "RequiredProducts=p", "--code", "-", input=b"x = 1;\ny = 2;\n")
        self.ok("edit", "b.kvpkg", "--model", "-", input=b"different")
        status, text = self.diff("a.kvpkg", "b.kvpkg")
        self.assertEqual(status, 1)
        self.assertTrue(text.startswith(
            "--- a.kvpkg (packaged app)\n+++ b.kvpkg (packaged app)\nmetadata\n-   Version: 1\n"
            "+   Version: 2\n-   Description: one\n-     | two\n+   Description:\n"
            "    RequiredProducts has the same items in another order\n"
            "-   UserComponents: x\n+   UserComponents: z\nparts\n"), text)
        self.assertRegex(text, rf"\n-   /{MODEL_PART}  \S+  8 bytes  sha256:{sha256(self.read('s.kvd'))}\n"
                         rf"\+   /{MODEL_PART}  \S+  9 bytes  sha256:{sha256(b'different')}\n")
        self.assertTrue(text.endswith("\ncode\n@@ -1 +1,2 @@\n x = 1;\n+y = 2;\n"), text)

    def test_bytes_that_do_not_show_differ(self):
        self.write("u.k", b"\xfe\n")
        self.write("v.k", b"\xff\n")
        status, text = self.diff("u.k", "v.k")
        self.assertEqual(status, 1)
        self.assertTrue(text.endswith("code\n    differs in bytes that do not show\n"))

    def test_trouble_is_neither_same_nor_different(self):
        self.flip(self.create("a.kvpkg"), "bad.kvpkg", MODEL_PART)
        self.assertEqual(self.run_tool("diff", "bad.kvpkg", "bad.kvpkg").returncode, 2)
        self.fails(2, "none.k: there is no such file; check the name", "diff", "a.kvpkg", "none.k")

    def test_code_of_which_every_line_differs_on_a_small_stack(self):
        for name in ("a", "b"):
            self.write(f"{name}.k", "".join(f"{name}{i}\n" for i in range(200_000)))
        result = self.run_tool("diff", "a.k", "b.k", limit="-s 128")
        self.assertEqual((result.returncode, result.stdout.count(b"\n")), (1, 400_004))
