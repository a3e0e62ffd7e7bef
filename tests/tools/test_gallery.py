"""gallery."""

import base64
import hashlib
import html.parser
import os
import re
import shutil
import unittest

from support import EXAMPLE, ToolTest

ATTACK = """</style></script><script>alert(1)</script><img src=x onerror="alert(1)">' " & {title} <!-- """


class Page(html.parser.HTMLParser):
    """What a browser would make of a page: elements with their attributes, and the texts by class and tag."""

    def __init__(self, text):
        super().__init__()
        self.elements, self.texts, self.inside = [], {}, None
        self.feed(text)

    def handle_starttag(self, tag, attributes):
        self.elements.append((tag, dict(attributes)))
        self.inside = dict(attributes).get("class", tag)

    def handle_endtag(self, tag):
        self.inside = None

    def handle_data(self, data):
        if self.inside:
            self.texts.setdefault(self.inside, []).append(data)

    def attributes(self, tag):
        return [attributes for name, attributes in self.elements if name == tag]


class Gallery(ToolTest):
    def setUp(self):
        super().setUp()
        (self.dir / "apps/sub/.git").mkdir(parents=True)
        self.create("apps/a.kvpkg")
        shutil.copy(self.dir / "apps/a.kvpkg", self.dir / "apps/sub/.git/hidden.kvpkg")
        shutil.copy(EXAMPLE / "heatfield.k", self.dir / "apps/sub/t.k")
        self.write("apps/sub/function.k", "function y = f(x)\n")
        os.symlink("..", self.dir / "apps/sub/loop")

    def test_all_apps_are_on_one_page_that_needs_nothing_else(self):
        self.assertEqual(self.ok("gallery", "apps", "-o", "g.html"),
                         "wrote g.html with 2 apps\n")
        text = self.read("g.html").decode()
        page = Page(text)
        self.assertEqual(page.texts["file"], ["a.kvpkg", "sub/t.k"])
        self.assertEqual(page.texts["name"], ["Wärmefeld"] * 2)
        picture = base64.b64encode((EXAMPLE / "screenshot.png").read_bytes()).decode()
        self.assertEqual([a["src"] for a in page.attributes("img")], ["data:image/png;base64," + picture] * 2)
        self.assertNotRegex(re.sub("base64,[^\"]*", "", text), "https?:|@import|url\\(")
        self.assertIn("2 apps", [text.strip() for text in page.texts["p"]])
        self.fails(1, "g.html: already exists; give --force to replace it", "gallery", "apps", "-o", "g.html")

    def test_a_page_never_takes_the_place_of_an_app(self):
        os.symlink("apps/a.kvpkg", self.dir / "link.html")
        before = self.read("apps/a.kvpkg")
        for name in ("apps/a.kvpkg", "new.KVPKG", "apps/sub/t.k", "link.html"):
            self.fails(2, f"{name}: is, or leads to, the name of an app; choose another for the page, such as apps.html",
                       "gallery", "apps", "--force", "-o", name)
        self.assertEqual((self.read("apps/a.kvpkg"), self.names()), (before, ["apps", "link.html"]))
        source = (EXAMPLE / "heatfield.k").read_bytes()
        held = {"copy.html": before, "text.html": source, "program.html": b"#!/bin/sh\necho unpack\n" + before,
                "far.html": b"<p>" * 2_000_000 + before, "cut.html": before[len(before) // 2:]}
        for name, content in held.items():
            self.write(name, content)
            self.fails(2, f"{name}: holds an app; choose another file for the page, such as apps.html",
                       "gallery", "apps", "--force", "-o", name)
            self.assertEqual(self.read(name), content)
        # A page that only shows what an app is made of is no app.
        self.write("apps/p.k", "%[app:appDetails]\n%{\n<Name>PK\3\4 PK\1\2 PK\5\6</Name>\n%}\n")
        self.write("page.html", b"<p>" + source)
        for _ in range(2):
            self.ok("gallery", "apps", "--force", "-o", "page.html")

    def test_what_cannot_be_listed_or_leads_nowhere_is_told(self):
        os.symlink("nowhere", self.dir / "apps/gone.kvpkg")
        os.symlink("loop.k", self.dir / "apps/loop.k")
        (self.dir / "apps/closed").mkdir()
        (self.dir / "apps/names/deep").mkdir(parents=True)
        self.small("apps/names/b.kvpkg")
        self.write("apps/names/c.txt", "")
        self.write("g.html", "<p>the old page")
        # Rights do not keep everybody out.
        closed = {"preexec_fn": lambda: os.setuid(65534)} if os.getuid() == 0 else {}
        self.dir.chmod(0o777)
        (self.dir / "g.html").chmod(0o666)
        links = ["apps/gone.kvpkg: there is no such file; check the name",
                 "apps/loop.k: cannot be opened (Too many levels of symbolic links)",
                 "apps/names/b.kvpkg: may not be read; check its permissions"]
        folder = "cannot be listed (Permission denied); check its permissions"
        (self.dir / "apps/closed").chmod(0)
        (self.dir / "apps/names").chmod(0o444)  # names can be read, but nothing can be looked at or opened
        result = self.run_tool("gallery", "apps", "-o", "g.html", "--force", **closed)
        told = "".join(f"qzapp: {text}\n" for text in [*links, f"apps/closed: {folder}", f"apps/names/deep: {folder}"])
        self.assertEqual((result.returncode, result.stderr.decode()), (1, told))
        page = Page(self.read("g.html").decode())
        self.assertEqual(page.texts["reason"], [*(text.split(": ", 1)[1] for text in links), folder, folder])
        for verb in ("info", "check"):
            result = self.run_tool(verb, "apps", **closed)
            self.assertEqual((result.returncode, sorted(result.stderr.decode().splitlines(True))),
                             (1, sorted(told.splitlines(True))))
        (self.dir / "apps").chmod(0o311)
        before = self.read("g.html")
        self.fails(1, f"apps: {folder}", "gallery", "apps", "-o", "g.html", "--force", **closed)
        self.assertEqual(self.read("g.html"), before)
        (self.dir / "apps").chmod(0o755)
        for name in ("closed", "names"):
            (self.dir / "apps" / name).chmod(0o755)

    def test_nothing_in_an_app_can_run(self):
        clean = Page(self.ok("gallery", "apps/sub", "-o", "-"))
        sets = [x for f in ("Name", "Author", "Version", "Description") for x in ("--set", f"{f}={ATTACK}")]
        self.write("shot.png", "<svg xmlns='http://www.w3.org/2000/svg' onload='alert(1)'/>")
        self.small("apps/b.kvpkg", *sets, "--screenshot", "shot.png")
        self.write("apps/c.k", "%[app:appDetails]\n%{\n<Name>" + ATTACK.replace("</", "< /") + "</Name>\n%}\n")
        self.write("apps/<script>d.kvpkg", "junk")
        page = Page(self.fails_like(".*", "gallery", "apps", "-o", "-", "--title", ATTACK).decode())
        self.assertEqual((len(page.texts["file"]), len(page.texts["reason"])), (4, 1))
        for tag in ("script", "style", "meta"):
            self.assertEqual(len(page.attributes(tag)), len(clean.attributes(tag)), tag)
        self.assertEqual(len(page.attributes("img")), 2)
        for _, attributes in page.elements:
            self.assertFalse([name for name in attributes if name.startswith("on") or name == "style"])
        self.assertIn(ATTACK, page.texts["name"])
        (policy,) = (a["content"] for a in page.attributes("meta") if "http-equiv" in a)
        for tag in ("script", "style"):
            digest = base64.b64encode(hashlib.sha256("".join(page.texts[tag]).encode()).digest()).decode()
            self.assertIn(f"{tag}-src 'sha256-{digest}'", policy)
        self.assertIn("default-src 'none'", policy)
