"""Every command that check proposes as a fix works, and mends what it is proposed for."""

import os
import re
import subprocess
import zipfile

from support import EXAMPLE, METADATA_PART, MODEL_PART, SCHEMA, TOOL, add_relationship, replacing, setting, without
from test_check import CORE, HOST, RELS, SHOT, TYPES, CheckTest

WORDS = {"FILE": "new.k", "IMAGE": "new.png", "NAME": "Name", "VERSION": "9.9", "ITEM": "Core",
         "VALUE": "5b1c1c0e-8f0f-4c43-9a63-2f0d6f3f7f11"}
UUID = re.compile(rb"<uuid>[^<]*</uuid>")


def without_link(target):
    """Removes the relationship that leads to a part."""
    def change(name, content):
        return re.sub(rb'<Relationship [^>]*"/?' + target.encode() + rb'"[^>]*/>', b"", content) if name == RELS else content
    return change


def with_uuid(uuid):
    return lambda name, content: UUID.sub(b"<uuid>" + uuid + b"</uuid>", content) if name == METADATA_PART else content


ROWS = [
    ("item-damaged", None),
    ("item-slices", None),
    ("zip-behind", None),
    ("zip-gap", None),
    ("types-missing", without(TYPES)),
    ("types-entry", replacing(TYPES, "</Types>", "<X/></Types>")),
    ("relationships-missing", without(RELS)),
    ("relationships-entry", replacing(RELS, "</Relationships>", "<Relationship/></Relationships>")),
    ("relationship-dangling", add_relationship("urn:x", "nowhere.xml")),
    ("core-properties-rules", replacing(CORE, "<cp:version>", "<cp:version x='1'>")),
    ("core-properties-missing", without_link(CORE)),
    ("host-properties-missing", without_link(HOST)),
    ("model-missing", without(MODEL_PART)),
    ("model-unlinked", without_link(MODEL_PART)),
    ("model-empty", setting(MODEL_PART, b"")),
    ("code-missing", without_link("korval/code.k")),
    ("code-ambiguous", add_relationship(SCHEMA + "/korval/2026/relationships/code", "korval/code.k")),
    ("code-encoding", setting("korval/code.k", b"\xff")),
    ("metadata-missing", lambda name, content: None if name == METADATA_PART else without_link(METADATA_PART)(name, content)),
    ("metadata-xml", setting(METADATA_PART, b"<metadata>")),
    ("metadata-twice", replacing(METADATA_PART, "<uuid>", "<uuid></uuid><uuid>")),
    ("metadata-item", replacing(METADATA_PART, 'id="KORVAL"', "")),
    ("core-properties-several", add_relationship(
        "http://schemas.openxmlformats.org/package/2006/relationships/metadata/core-properties", "docProps/korval.xml")),
    ("part-ambiguous", add_relationship(SCHEMA + "/lumenForge/app/2017/relationships/appMetadata", "korval/code.k")),
    ("part-dangling", replacing(RELS, "/korval/code.k", "/korval/gone.k")),
    ("part-type", replacing(TYPES, "application/vnd.quorvane.korval.code", "text/plain")),
    ("part-type", replacing(TYPES, "image/png", "image/x")),
    ("package-type", replacing(CORE, "vnd.quorvane.korval.app", "x")),
    ("name-missing", replacing(CORE, "Wärmefeld", "")),
    ("field-empty", with_uuid(b"")),
    ("screenshot-bytes", setting(SHOT, b"GIF89a;")),
    ("screenshot-cut", setting(SHOT, b"\x89PNG\r\n\x1a\n")),
    ("screenshot-mode", replacing(METADATA_PART, ">manual<", ">none<")),
    ("mode-value", replacing(METADATA_PART, ">manual<", ">Manual<")),
    ("version-value", replacing(METADATA_PART, "<KVPKGVersion>1", "<KVPKGVersion>one")),
    ("uuid-value", with_uuid(b"{none}")),
    ("release-value", replacing(METADATA_PART, "<minimumSupportedKORVALRelease>R", "<minimumSupportedKORVALRelease>r")),
    ("release-value", replacing(HOST, "<release>R", "<release>Release ")),
    ("thumbnail-missing", lambda name, content: re.sub(rb'<Relationship [^>]*metadata/thumbnail"[^>]*/>', b"", content)
     if name == RELS else content),
]


class Fixes(CheckTest):
    def setUp(self):
        super().setUp()
        (self.dir / "bin").mkdir()
        (self.dir / "bin" / "qzapp").symlink_to(TOOL)
        self.environment = {**os.environ, "PATH": f"{self.dir / 'bin'}:{os.environ['PATH']}"}
        self.create("good.kvpkg")
        for name, source in ("new.k", "code.k"), ("new.png", "screenshot.png"):
            self.write(name, (EXAMPLE / source).read_bytes())

    def sh(self, command):
        ran = subprocess.run(["sh", "-c", command], cwd=self.dir, env=self.environment, capture_output=True)
        self.assertEqual((ran.returncode, ran.stderr), (0, b""), command)

    def spoilt(self, rule, change, name):
        """An app that breaks the rule."""
        if rule == "item-damaged":
            return self.flip("good.kvpkg", name, SHOT)
        if rule == "zip-behind":
            return self.write(name, self.read("good.kvpkg") + bytes(4))
        if rule == "zip-gap":
            with open(self.dir / name, "wb") as file:
                file.write(b"in front")
                with zipfile.ZipFile(file, "w") as package:
                    for item, content in self.items("good.kvpkg").items():
                        package.writestr(item, content)
            return name
        if rule == "item-slices":
            model = bytes(range(256)) * (5 << 12)
            self.ok("edit", "good.kvpkg", "--model", self.write("large.kvd", model))
            with zipfile.ZipFile(self.dir / "good.kvpkg") as old, \
                    zipfile.ZipFile(self.dir / name, "w", zipfile.ZIP_DEFLATED) as new:
                for info in old.infolist():
                    content = old.read(info)
                    new.writestr(info, content[::-1] if info.filename == MODEL_PART else content)
            return name
        return self.rewrite("good.kvpkg", name, change)

    def mend(self, rule, name):
        """Does what the finding proposes, and returns the name of the file that is then good."""
        found = [f for f in self.report(name)["findings"] if f["rule"] == rule]
        self.assertTrue(found, f"{rule} is not found in {name}: {self.rules(name)}")
        fix = found[0]["fix"]
        words, command = re.fullmatch(r"(?:(.*?): )?(qzapp .*)", fix).groups(default="")
        if "once it is repaired" in words:
            self.sh(f"qzapp check --repair {name.split('.')[0]}-repaired.kvpkg {name} || true")
        if "once it is renamed" in words:
            (self.dir / name).rename(self.dir / name.lower())
        for word, value in WORDS.items():
            command = re.sub(rf"\b{word}\b", value, command)
        # A repair of what is not an app any more ends with 1, because something is still missing.
        self.sh(command)
        return re.findall(r"qzapp (?:check --repair|edit) (\S+)", command)[-1]

    def test_each_mends_what_it_is_proposed_for(self):
        for extension in ("kvpkg", "KVPKG"):
            for rule, change in ROWS:
                with self.subTest(rule=rule, extension=extension):
                    name = self.spoilt(rule, change, f"bad.{extension}")
                    mended = self.mend(rule, name)
                    self.assertNotIn(rule, self.rules(mended))
                    for made in ("bad.kvpkg", "bad.KVPKG", "bad-repaired.kvpkg"):
                        (self.dir / made).unlink(missing_ok=True)

    def test_of_a_signed_app_says_that_the_signature_goes(self):
        self.rewrite("good.kvpkg", "odd.kvpkg", with_uuid(b"{none}"))
        self.signed("odd.kvpkg", "signed.kvpkg")
        self.assertEqual(self.mend("uuid-value", "signed.kvpkg"), "signed.kvpkg")
        self.assertEqual(self.rules("signed.kvpkg"), set())

    def test_for_another_package_edits_nothing(self):
        """edit takes only names that end in ".kvpkg"."""
        for rule, change in ROWS:
            with self.subTest(rule=rule):
                name = self.spoilt(rule, change, "bad.zip")
                for finding in self.report(name)["findings"]:
                    self.assertNotIn("edit", finding["fix"])
                    command = re.search(r"qzapp .*", finding["fix"])
                    if command:
                        self.sh(command[0])
                        self.assertNotIn(rule, self.rules("bad-repaired.zip"))
                        (self.dir / "bad-repaired.zip").unlink()


class DoubtfulValues(CheckTest):
    def test_are_warned_of_when_they_are_set_and_noted_by_check(self):
        rows = [("ScreenshotMode", "Auto", "auto, manual or none", "mode-value"),
                ("KVPKGVersion", "one", "1, the version of the format", "version-value"),
                ("Uuid", "5b1c1c0e", "a UUID", "uuid-value"),
                ("MinimumSupportedKORVALRelease", "2026b", "a release, such as R2026b", "release-value")]
        self.small("a.kvpkg")
        for field, value, expected, rule in rows:
            for verb in ("edit", "a.kvpkg"), ("create", "b.kvpkg", "--force", "--code", "s.k", "--model", "s.kvd"):
                ran = self.run_tool(*verb, "--set", f"{field}={value}")
                self.assertEqual((ran.returncode, ran.stderr.decode()), (
                    0, f'qzapp: warning: {field} "{value}" is not {expected}\n'))
                self.assertEqual(self.metadata(verb[1])[field], value)
                notes = {f["rule"]: f["severity"] for f in self.report(verb[1])["findings"]}
                self.assertEqual(notes.get(rule), "note")
        self.ok("edit", "b.kvpkg", "--set", "ScreenshotMode=none", "--set", "KVPKGVersion=1", "--set", "Uuid=", "--set",
                "MinimumSupportedKORVALRelease=", "--set", "KORVALRelease=R2025a")
        self.ok("edit", "b.kvpkg", "--set", "Uuid=5B1C1C0E-8F0F-4c43-9a63-2f0d6f3f7f11")
        self.assertFalse({rule for *_, rule in rows} & self.rules("b.kvpkg"))

    def test_a_screenshot_that_is_no_image_is_warned_of(self):
        self.small("a.kvpkg")
        for name, content, doubt in (("shot.png", b"text", "its bytes are not a png image"),
                                     ("shot.PNG", b"GIF89a;", "is declared as png, but its bytes are a gif image"),
                                     ("shot.png", (EXAMPLE / "screenshot.png").read_bytes()[:60],
                                      "the image has no end; after 60 bytes it seems cut off"),
                                     ("shot.jpeg", b"", "the image is empty")):
            ran = self.run_tool("edit", "a.kvpkg", "--screenshot", self.write(name, content))
            self.assertEqual((ran.returncode, ran.stderr.decode()), (
                0, f"qzapp: warning: the screenshot: {doubt}\n"))
            self.assertEqual(self.extracted("a.kvpkg", "screenshot"), content)
        self.ok("edit", "a.kvpkg", "--screenshot", self.write("a.JPEG", b"\xff\xd8\xff\xe0\xff\xd9"))

    def test_of_a_text_app(self):
        text = ("%[app:internalData]\n%{\n<AppId>x</AppId><KORVALRelease>now</KORVALRelease>"
                "<MinimumSupportedKORVALRelease>R2025a</MinimumSupportedKORVALRelease>\n%}\n")
        self.write("t.k", text)
        found = [(f["rule"], f["fix"]) for f in self.report("t.k")["findings"] if f["rule"].endswith("-value")]
        self.assertEqual(found, [("uuid-value", "correct <AppId> in section app:internalData"),
                                 ("release-value", "correct <KORVALRelease> in section app:internalData")])
        ran = self.run_tool("convert", "t.k", "c.kvpkg", "--model", "t.k")
        self.assertEqual((ran.returncode, ran.stderr.decode()), (
            0, 'qzapp: warning: KORVALRelease "now" is not a release, such as R2026b\n'
            'qzapp: warning: Uuid "x" is not a UUID\n'))
