"""gallery --folder."""

import base64
import hashlib
import json
import os
import pathlib
import re
import resource
import shutil
import signal
import sqlite3
import subprocess
import time
import unittest
import urllib.parse

from support import DOCS, EXAMPLE, TOOL, ToolTest, why_not

ATTACK = """</style></script><script>alert(1)</script><img src=x onerror="alert(1)">' " & {title} <!-- ]);alert(1)//"""
SEARCH = DOCS.parent / "tools/qzapp/gallery/search.js"
COLUMNS = re.search(r"COLUMNS = (\[.*?\]);", SEARCH.read_text(), re.S)[1]


class GalleryFolder(ToolTest):
    def setUp(self):
        super().setUp()
        (self.dir / "apps/sub").mkdir(parents=True)
        self.create("apps/a.kvpkg")
        shutil.copy(EXAMPLE / "heatfield.k", self.dir / "apps/sub/t#1?%.k")

    def apps(self, folder="g"):
        """The apps of a gallery by the names of their files, read as the page does."""
        columns = json.loads(COLUMNS)
        apps = {}
        for number, (size, integrity, name) in enumerate(self.pieces(folder), 1):
            piece = self.read(f"{folder}/data/{name}.js")
            hashed = "sha256-" + base64.b64encode(hashlib.sha256(piece).digest()).decode()
            self.assertEqual(integrity, hashed)
            rows = re.fullmatch(rf"galleryPiece\({number},(\[.*\])\);\n", piece.decode(), re.S)[1]
            self.assertEqual(len(json.loads(rows)), size)
            apps |= {row[4]: dict(zip(columns, row)) for row in json.loads(rows)}
        return apps

    def pieces(self, folder="g"):
        page = self.read(f"{folder}/index.html").decode()
        return json.loads(re.search('id="pieces">(.*?)</script>', page)[1])

    def files(self, folder="g"):
        return sorted(str(path.relative_to(self.dir / folder)) for path in (self.dir / folder).rglob("*")
                      if path.is_file())

    def test_holds_a_page_data_and_each_picture_once(self):
        self.assertEqual(self.ok("gallery", "apps", "--folder", "-o", "g"),
                         "wrote g with 2 apps; open g/index.html\n")
        page = self.read("g/index.html").decode()
        policy = re.search('Content-Security-Policy" content="(.*?)"', page)[1]
        for tag in "style", "script":
            content = re.findall(rf"<{tag}>(.*?)</{tag}>", page, re.S)
            hashes = [base64.b64encode(hashlib.sha256(text.encode()).digest()).decode() for text in content]
            self.assertEqual(re.findall(rf"{tag}-src [^;]*?'sha256-(.*?)'", policy), hashes)
        self.assertIn("default-src 'none'", policy)
        self.assertNotRegex(policy, "unsafe|https?:|data:|\\*")
        self.assertNotRegex(page, "https?://|@import|url\\(| style=| on[a-z]+=")
        self.assertLess(len(page), 60_000)
        apps = self.apps()
        self.assertEqual(sorted(apps), ["a.kvpkg", "sub/t#1?%.k"])
        pictures = {app["picture"] for app in apps.values()}
        self.assertEqual(self.files(), sorted([f"data/{self.pieces()[0][2]}.js", "index.html", *pictures]))
        picture = self.read("g/" + pictures.pop())
        self.assertEqual(picture[:3], b"\xff\xd8\xff")
        app = apps["sub/t#1?%.k"]
        self.assertEqual([app[column] for column in ("name", "width", "height", "original")],
                         ["Wärmefeld", 480, 300, "640 × 400 pixels"])
        for app in apps.values():
            self.assertRegex(app["link"], "^[A-Za-z0-9._~/%-]+$")
            self.assertTrue((self.dir / "g" / urllib.parse.unquote(app["link"])).samefile(
                self.dir / "apps" / app["file"]))
        # The same apps give the same bytes.
        self.ok("gallery", "apps", "--folder", "-o", "h")
        for name in self.files():
            self.assertEqual(self.read("g/" + name), self.read("h/" + name))
        self.assertEqual(self.names(), ["apps", "g", "h"])

    def test_links_lead_from_any_place_to_the_files(self):
        (self.dir / "a b").mkdir()
        shutil.copy(self.dir / "apps/a.kvpkg", self.dir / "a b/javascript:alert(1).kvpkg")
        os.symlink("apps", self.dir / "link")
        for out in "apps/g", "new", "link/sub/g":
            self.ok("gallery", "link", "a b/javascript:alert(1).kvpkg", "--folder", "-o", out)
            apps = self.apps(out)
            self.assertEqual(len(apps), 3)
            for app in apps.values():
                self.assertRegex(app["link"], r"^\.\./[A-Za-z0-9._~/%-]+$")
                target = (self.dir / out).resolve() / urllib.parse.unquote(app["link"])
                self.assertTrue(target.samefile(self.dir / app["file"]), app)

    def test_nothing_in_an_app_can_run(self):
        sets = [x for f in ("Name", "Author", "Version", "Summary", "Description", "RequiredProducts")
                for x in ("--set", f"{f}={ATTACK}")]
        self.write("shot.png", "<svg xmlns='http://www.w3.org/2000/svg' onload='alert(1)'/>")
        self.small("apps/b.kvpkg", *sets, "--screenshot", "shot.png")
        self.write("apps/<img src=x>d.kvpkg", "junk")
        self.write("apps/e.k", f"%[app:appDetails]\n%{{\n<Name>{'n' * 5000}</Name>\n"
                   f"<Description>{'d' * 50_000}</Description>\n%}}\n")
        result = self.run_tool("gallery", "apps", "--folder", "-o", "g", "--title", ATTACK)
        self.assertEqual(result.returncode, 1)
        page = self.read("g/index.html").decode()
        self.assertEqual((page.count("<script"), page.count("<img"), page.count("<style")), (2, 0, 1))
        apps = self.apps()
        self.assertEqual((apps["b.kvpkg"]["name"], apps["b.kvpkg"]["products"]), (ATTACK, [ATTACK]))
        self.assertIn("not a PNG, JPEG or GIF", apps["b.kvpkg"]["picture"])
        self.assertNotIn("width", {k for k, v in apps["b.kvpkg"].items() if k == "width" and v})
        self.assertIn("not", apps["<img src=x>d.kvpkg"]["failure"])
        self.assertLess(len(apps["e.k"]["name"]) + len(apps["e.k"]["description"]), 22_000)
        self.assertLess(len(self.files()), 6)

    def test_a_damaged_picture_costs_that_picture(self):
        whole = (EXAMPLE / "screenshot.png").read_bytes()
        self.write("cut.png", whole[:-500])
        self.small("apps/cut.kvpkg", "--screenshot", "cut.png")
        self.ok("gallery", "apps", "--folder", "-o", "g")
        apps = self.apps()
        self.assertEqual(apps["cut.kvpkg"]["picture"], "The screenshot is not shown: it is damaged")
        self.assertEqual(apps["a.kvpkg"]["width"], 480)

    def test_a_catalogue_gives_the_same_gallery_without_reading_apps(self):
        self.write("apps/bad.kvpkg", "no package")
        self.run_tool("gallery", "apps", "--folder", "-o", "g")
        self.ok("index", "apps", "-d", "c.db")
        for path in (self.dir / "apps").rglob("*.k*"):
            path.write_bytes(b"changed since")
        self.assertEqual(self.ok("gallery", "-d", "c.db", "--folder", "-o", "h"),
                         "wrote h with 2 apps; open h/index.html\n")
        read = {str(self.dir / "apps" / name): app for name, app in self.apps("g").items()}
        known = self.apps("h")
        self.assertEqual(known.keys(), read.keys())
        for name, app in known.items():
            self.assertEqual(app | {"file": ""}, read[name] | {"file": ""})
        self.assertEqual([self.read(f"h/{name}") for name in self.files("h") if name.startswith("pictures/")],
                         [self.read(f"g/{name}") for name in self.files("g") if name.startswith("pictures/")])
        page = self.ok("gallery", "-d", "c.db", "-o", "-")
        self.assertEqual((page.count("data:image/"), page.count("bad.kvpkg")), (2, 1))
        # The paths of another machine lead nowhere here.
        self.ok("index", "--merge", "c.db", "-d", "all.db")
        self.ok("gallery", "-d", "all.db", "--folder", "-o", "i")
        self.assertEqual({app.get("link") for app in self.apps("i").values()}, {""})
        # A picture of a stranger that is none is left out, and so is a link to what is no app.
        with sqlite3.connect(self.dir / "c.db") as database:
            database.execute("UPDATE pictures SET bytes = x'3C3C'")
            database.execute("UPDATE files SET path = CAST('/etc/passwd' || id AS BLOB)")
        self.ok("gallery", "-d", "c.db", "--folder", "-o", "j")
        self.assertEqual([name for name in self.files("j") if name.startswith("pictures/")], [])
        self.assertEqual({app.get("link", "") for app in self.apps("j").values()}, {""})
        for names in (), ("apps", "-d", "c.db"):
            self.assertEqual(self.run_tool("gallery", *names, "-o", "k").returncode, 2)

    def test_replaces_nothing_but_a_gallery(self):
        self.ok("gallery", "apps", "--folder", "-o", "g")
        self.fails(1, "g: already exists; give --force to replace it", "gallery", "apps", "--folder", "-o", "g")
        (self.dir / "apps/a.kvpkg").unlink()
        self.ok("gallery", "apps", "--folder", "-o", "g", "--force")
        self.assertEqual(list(self.apps()), ["sub/t#1?%.k"])
        # What is not of a gallery stays, and so does the gallery.
        for strange in ("notes.txt", "data/x.js", "data/1.css", "pictures/ab/a.svg", "pictures/abc/a.png", ".git/x"):
            with self.subTest(strange):
                (self.dir / "g" / strange).parent.mkdir(exist_ok=True, parents=True)
                self.write("g/" + strange, "mine")
                before = self.files()
                name = re.escape(strange.split("/")[-1]) if "abc" not in strange and ".git" not in strange else ""
                self.fails_like(rf'g: holds ".*{name}", which is not of a gallery; .*',
                                "gallery", "apps", "--folder", "-o", "g", "--force")
                self.assertEqual(self.files(), before)
                (self.dir / "g" / strange).unlink()
                shutil.rmtree(self.dir / "g/.git", ignore_errors=True)
                shutil.rmtree(self.dir / "g/pictures/abc", ignore_errors=True)
        os.symlink("g", self.dir / "link")
        (self.dir / "empty").mkdir()
        for name, reason in (("apps", "is not a gallery; nothing is replaced, choose another folder"),
                             ("link", "is a symbolic link; name the folder that it leads to"),
                             ("apps/sub/t#1?%.k", "exists and is not a folder; choose another with -o"),
                             (".", "cannot be replaced; name a folder in it")):
            self.fails(1, f"{name}: {reason}", "gallery", "apps", "--folder", "-o", name, "--force")
        self.ok("gallery", "apps", "--folder", "-o", "empty")
        self.assertEqual(self.names(), ["apps", "empty", "g", "link"])

    def test_leaves_nothing_when_it_fails(self):
        self.ok("gallery", "apps", "--folder", "-o", "g")
        before = {name: self.read("g/" + name) for name in self.files()}
        (self.dir / "apps/sub/t#1?%.k").unlink()
        # A full disk, as the process that writes meets it: with the page, or with the largest picture.
        largest = max(before, key=lambda name: len(before[name]))
        self.assertTrue(largest.startswith("pictures/"))
        for limit in 1000, len(before[largest]) - 1:
            self.fails_like(".*File too large", "gallery", "apps", "--folder", "-o", "g", "--force",
                            preexec_fn=lambda limit=limit: resource.setrlimit(resource.RLIMIT_FSIZE, (limit, limit)))
            self.assertEqual({name: self.read("g/" + name) for name in self.files()}, before)
        self.fails(1, "nothing: there is no such file; check the name", "gallery", "nothing", "--folder", "-o", "h")
        self.assertEqual(self.names(), ["apps", "g"])

    @unittest.skipIf(why_not(), why_not())
    def test_a_signal_waits_until_the_old_gallery_is_removed(self):
        self.ok("gallery", "apps", "--folder", "-o", "g")
        old = (self.dir / "g").stat().st_ino
        tracer = subprocess.Popen(["strace", "-f", "-qq", "-o", "/dev/null", "-e", "inject=unlinkat:delay_enter=100000", TOOL,
                                   "gallery", "apps", "--folder", "-o", "g", "--force"], cwd=self.dir)
        while (self.dir / "g").stat().st_ino == old and tracer.poll() is None:
            time.sleep(0.001)
        tool = pathlib.Path(f"/proc/{tracer.pid}/task/{tracer.pid}/children").read_text().split()[0]
        os.kill(int(tool), signal.SIGTERM)
        self.assertEqual((tracer.wait(), self.names()), (-signal.SIGTERM, ["apps", "g"]))

    def test_many_apps_are_in_pieces_in_the_order_of_their_names(self):
        text = "w" * 900
        for number in range(700):
            self.write(f"apps/n{number}.k", f"%[app:appDetails]\n%{{\n<Name>App {number}</Name>\n"
                       f"<Summary>{text}</Summary>\n%}}\n")
        self.ok("gallery", "apps", "--folder", "-o", "g")
        sizes = [self.dir.joinpath("g/data", name).stat().st_size for name in sorted(os.listdir(self.dir / "g/data"))]
        self.assertEqual(len(sizes), len(self.pieces()))
        self.assertGreater(len(sizes), 2)
        self.assertLess(sizes[0], 60_000)
        self.assertLess(max(sizes), 300_000)
        names = [app["name"] for app in self.apps().values()]
        self.assertEqual(names, [f"App {number}" for number in range(700)] + ["Wärmefeld"] * 2)

    @unittest.skipUnless(shutil.which("node"), "node is not installed")
    def test_search_puts_names_first_and_marks_hits(self):
        program = """
        const s = require(process.argv[1]);
        const row = (name, summary, author, products, release) =>
          [name, author, "1", summary, "f.k", "../f.k", "", 0, 0, "", release, "", products];
        const apps = [row("Plate", "Watch heat spread", "Zoë", ["Signals"], "R1"), null,
          row("Wärmefeld heat", "", "Ann", [], "R2"), row("Heat", "of a plate", "Zoë", ["Signals", "Maps"], "R2"),
          row("Other", "nothing", "heat", [], "R1")].map((each) => each && s.appOf(each));
        const find = (query, filter = {}) => s.find(apps, s.wordsOf(query), filter);
        console.log(JSON.stringify([
          find("HEAT"), find("plate heat"), find("warme"), find("zoe"), find("", { author: "Zoë" }),
          find("", { product: "Maps" }), find("heat", { release: "R1" }), find("  "), find("none"),
          s.marked("Wärmefeld ärm", s.wordsOf("ARM")), s.marked("ﬁx", ["f"]), s.marked("a b", []),
          s.marked("\\u{1F600}heat", ["heat"]), s.marked("<b>", ["<"]),
          ["../a%20b/c.k", "a.k", "javascript:x", "//host/x", "/x", "", "a b"].map(s.isLink),
        ]));"""
        told = json.loads(subprocess.run(["node", "-e", program, SEARCH], check=True, capture_output=True).stdout)
        self.assertEqual(told, [
            [2, 3, 0, 4], [0, 3], [2], [0, 3], [0, 3], [3], [0, 4], [0, 2, 3, 4], [],
            [["W", False], ["ärm", True], ["efeld ", False], ["ärm", True]], [["ﬁ", True], ["x", False]],
            [["a b", False]], [["\U0001F600", False], ["heat", True]], [["<", True], ["b>", False]],
            [True, True, False, False, False, False, False]])


if __name__ == "__main__":
    unittest.main()
