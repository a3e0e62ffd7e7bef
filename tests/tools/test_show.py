"""show and diff, and git with them."""

import hashlib
import json
import os
import pathlib
import shutil
import subprocess
import unittest

from support import EXAMPLE, FIELDS, MODEL_PART, QZAPP, ToolTest


def sha256(content):
    return hashlib.sha256(content if isinstance(content, bytes) else content.encode()).hexdigest()


class Show(ToolTest):
    def test_a_whole_app_as_text(self):
        self.small("a.kvpkg", "--set", "Name=N\x85", "--set", "Description=one\ntwo", "--set",
                   "RequiredProducts=p 1", "--set", "RequiredProducts=p 2")
        text = self.ok("show", "--text", "a.kvpkg")
        self.assertEqual(text, self.ok("show", "a.kvpkg"))
        self.assertTrue(text.startswith("form: packaged\n\n[metadata]\nName: N\\u0085\nSummary:\n"))
        self.assertIn("\nDescription: one\n  | two\n", text)
        self.assertIn("\nRequiredProducts:\n  - p 1\n  - p 2\nUserComponents:\n", text)
        model = self.read("s.kvd")
        self.assertIn(f"\n/{MODEL_PART}  application/vnd.quorvane.korval.lumenForge.appModel+kvd  "
                      f"{len(model)} bytes  sha256:{sha256(model)}\n", text)
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
            self.write("t.k", code)
            self.assertTrue(self.ok("show", "t.k").endswith(shown), code[:20])

    def test_what_cannot_be_read_shows_in_its_place(self):
        self.create()
        self.damage_model("app.kvpkg", "bad.kvpkg")
        self.write("junk.kvpkg", "junk")
        result = self.run_tool("show", "bad.kvpkg")
        self.assertEqual(result.returncode, 1)
        self.assertRegex(result.stderr.decode(), rf"^qzapp: bad\.kvpkg: /{MODEL_PART}: .*\n$")
        self.assertEqual(self.ok("show", "--text", "bad.kvpkg"), result.stdout.decode())
        text = self.ok("show", "--text", "junk.kvpkg")
        for part in ("metadata", "screenshot", "parts", "code"):
            self.assertIn(f"\n[{part}]\ncannot be read: ", text)
        self.fails(1, "none.kvpkg: there is no such file; check the name", "show", "--text", "none.kvpkg")

    def test_json(self):
        self.create()
        app = json.loads(self.ok("show", "--json", "app.kvpkg"))
        self.assertEqual(list(app["metadata"]), FIELDS)
        self.assertEqual(app["code"].encode(), (EXAMPLE / "code.k").read_bytes())
        self.assertEqual(app["screenshot"]["sha256"], sha256((EXAMPLE / "screenshot.png").read_bytes()))
        self.assertEqual(app["errors"], [])
        self.write("junk.kvpkg", "junk")
        bad = json.loads(self.run_tool("show", "--json", "junk.kvpkg").stdout)
        self.assertEqual(list(bad), list(app))
        self.assertEqual([e["what"] for e in bad["errors"]], ["metadata", "screenshot", "parts", "code"])


class Diff(ToolTest):
    def diff(self, *args):
        result = self.run_tool("diff", *args)
        self.assertEqual(result.stderr, b"", args)
        return result.returncode, result.stdout.decode()

    def test_the_same_content_is_the_same_app(self):
        old = {"SOURCE_DATE_EPOCH": "1000000000"}
        self.create("a.kvpkg")
        self.ok("create", "b.kvpkg", "--code", EXAMPLE / "code.k", "--model", EXAMPLE / "appModel.kvd",
                "--metadata", EXAMPLE / "metadata.json", env=old)
        self.ok("edit", "b.kvpkg", "--screenshot", EXAMPLE / "screenshot.png", env=old)
        self.assertNotEqual(self.read("a.kvpkg"), self.read("b.kvpkg"))
        self.assertEqual(self.diff("a.kvpkg", "b.kvpkg"), (0, ""))

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
        self.assertFalse(changes["same"])
        self.assertEqual(changes["metadata"]["Version"], {"a": "1", "b": "2"})
        self.assertEqual(changes["code"]["diff"], "@@ -1 +1,2 @@\n x = 1;\n+y = 2;\n")
        status, text = self.on_terminal("diff", "a.kvpkg", "b.kvpkg")
        self.assertIn("\x1b[32m+y = 2;\x1b[0m\n", text)
        self.assertNotIn("\x1b", self.on_terminal("diff", "a.kvpkg", "b.kvpkg", env={"NO_COLOR": "1"})[1])

    def test_a_text_app_against_a_packaged_one(self):
        shutil.copy(EXAMPLE / "heatfield.k", self.dir / "t.k")
        self.write("m.kvd", "model")
        self.ok("convert", "t.k", "p.kvpkg", "--model", "m.kvd")
        note = "note: a text app has no model and other parts and no KVPKGVersion; they are not compared\n"
        release = self.metadata("p.kvpkg")["KORVALRelease"]
        self.assertEqual(self.diff("t.k", "p.kvpkg"), (
            1, "--- t.k (text app)\n+++ p.kvpkg (packaged app)\nmetadata\n-   KORVALRelease: R2026a\n"
            f"+   KORVALRelease: {release}\n" + note))
        self.ok("edit", "p.kvpkg", "--remove-screenshot")
        self.assertRegex(self.diff("t.k", "p.kvpkg")[1], r"\nscreenshot\n-   png  26,098 bytes  sha256:\w+\n")
        self.write("u.k", self.read("t.k").replace(b"\r", b"") + b"\xfe\n")
        self.write("v.k", self.read("t.k").replace(b"\r", b"") + b"\xff\n")
        self.assertTrue(self.diff("u.k", "v.k")[1].endswith("code\n    differs in bytes that do not show\n"))

    def test_trouble_is_neither_same_nor_different(self):
        self.create("a.kvpkg")
        self.damage_model("a.kvpkg", "bad.kvpkg")
        self.assertEqual(self.run_tool("diff", "bad.kvpkg", "bad.kvpkg").returncode, 2)
        self.fails(2, "none.k: there is no such file; check the name", "diff", "a.kvpkg", "none.k")

    def test_without_the_program_it_says_what_to_install(self):
        self.write("a.k", "1\n")
        self.write("b.k", "2\n")
        result = self.run_tool("diff", "a.k", "b.k", env={"PATH": str(self.dir)})
        self.assertEqual(result.returncode, 1)
        self.assertIn(b"    differs; install GNU diff", result.stdout)

    def test_code_of_which_every_line_differs(self):
        self.write("a.k", "".join(f"a{i}\n" for i in range(200_000)))
        self.write("b.k", "".join(f"b{i}\n" for i in range(200_000)))
        command = f"ulimit -s 128 && exec '{QZAPP}' diff a.k b.k"
        result = subprocess.run(["bash", "-c", command], cwd=self.dir, capture_output=True, timeout=60)
        self.assertEqual((result.returncode, result.stdout.count(b"\n")), (1, 400_004))


class Git(ToolTest):
    def git(self, *args):
        environment = {**os.environ, "HOME": str(self.dir), "GIT_CONFIG_NOSYSTEM": "1", "GIT_PAGER": "cat",
                       "PATH": f"{pathlib.Path(QZAPP).parent}:{os.environ['PATH']}"}
        return subprocess.run(["git", *args], cwd=self.dir, env=environment, check=True,
                              capture_output=True).stdout.decode()

    def test_apps_show_as_text_in_diff_and_log(self):
        readme = (pathlib.Path(__file__).parents[2] / "docs/qzapp-git.md").read_text()
        attribute, *config = [l[4:] for l in readme.splitlines() if l.startswith("    ")][:4]
        self.git("init", "-q", "-b", "main")
        self.git("config", "user.name", "a")
        self.git("config", "user.email", "a@example.org")
        self.write(".gitattributes", attribute + "\n")
        with open(self.dir / ".git/config", "a") as file:
            file.write("\n".join(config) + "\n")
        self.small("a.kvpkg", "--set", "Version=1")
        self.git("add", ".")
        self.git("commit", "-q", "-m", "one")
        self.ok("edit", "a.kvpkg", "--set", "Version=2", "--code", "-", input=b"x = 2;\n")
        self.assertIn("\n-Version: 1\n+Version: 2\n", self.git("diff"))
        self.assertIn("\n-x = 1;\n+x = 2;\n", self.git("diff"))
        self.git("commit", "-qam", "two")
        self.write("a.kvpkg", self.read("a.kvpkg")[:-40])
        self.git("commit", "-qam", "damaged")
        log = self.git("log", "-p", "--", "a.kvpkg")
        self.assertIn("\n+cannot be read: ", log)
        self.assertIn("\n-x = 1;\n+x = 2;\n", log)
        self.assertIn("\n+Version: 1\n", log)


if __name__ == "__main__":
    unittest.main()
