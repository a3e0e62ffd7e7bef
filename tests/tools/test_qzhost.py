"""qzhost, which loads the library at run time. LEAKY_MODULE and FAILING_MODULE name other modules for it."""

import json
import os
import subprocess
import unittest

from support import EXAMPLE, FIELDS, TOOL, ToolTest

NAMESPACE = "lumenforge.internal.serialization"
CATALOG = "KORVAL:lumenforge:lumenforge"
CLASS_DEFAULTS = [
    (0, "getAccess getConnectAccess getConnectivity getArrayNature"),
    (None, "getModule"),
    (False, """isHidden isAbstract isSealed isEnumeration isHandleCompatible isFullNameDisplayed
        isCompatibleInexactProperties useClassDefaultsOnLoad isPropertyTruncationAllowed
        arePropertiesCaseInsensitive areClassFunctionsAllowed areExtensionMethodsAllowed
        usesRootRecords doEventsHaveSeparateNamespace doesInexactPropertyNameIssueWarning
        usesCustomChildrenList allowInstanceUpdates isIDConsistent"""),
    (True, "areChildrenSaved isConstructedOnLoad isDestructible isLocked willAllocateData"),
]
METHOD_DEFAULTS = [
    (0, "getMemberAccess"),
    (None, "getDescription getDetailedDescription"),
    (False, "isStatic isAbstract isSealed isExplicit doesMethodOverrideAllSignatures"),
    (True, "isLookupScope isFirstArgDispatch isVisible isDestructible isLocked"),
]


def shown(attributes):
    """As text, in which False is not 0."""
    return repr(sorted(attributes.items()))


def shown_defaults(defaults):
    return shown({name: value for value, names in defaults for name in names.split()})


class QzhostTest(ToolTest):
    def refused(self, status, message, *args, **options):
        result = self.run_tool(*args, **options)
        self.assertEqual((result.returncode, result.stdout or b""), (status, b""), args)
        self.assertIn(message, result.stderr.decode())

    def test_lists_the_registered_class(self):
        (namespace,) = self.json("classes")["namespaces"]
        (described,) = namespace["classes"]
        self.assertEqual((namespace["name"], described["name"], described["fullName"]),
                         (NAMESPACE, "KAppMetadataReader", NAMESPACE + ".KAppMetadataReader"))
        self.assertEqual(described["description"], "Used to read metadata and screenshots from KAPP files")
        self.assertEqual(
            [(method["name"], method["inputs"], method["outputs"], method["attributes"]["isStatic"])
             for method in described["methods"]],
            [(NAMESPACE + ".KAppMetadataReader", ["TarvoFactoryString scalar"], ["handle"], True),
             ("readMetadata", [], ["any"], False),
             ("readScreenshotAsBytes", ["handle"], ["uint8", "char"], False)])
        self.assertEqual(shown(described["attributes"]), shown_defaults(CLASS_DEFAULTS))
        for method in described["methods"][1:]:
            self.assertEqual(shown(method["attributes"]), shown_defaults(METHOD_DEFAULTS))
        self.assertIn("method readMetadata\n      () -> (any)\n", self.ok("classes"))

    def test_reads_the_sample(self):
        metadata = self.json("read", EXAMPLE / "heatfield.k", "--screenshot", "out.png")
        self.assertEqual(self.read("out.png"), (EXAMPLE / "screenshot.png").read_bytes())
        self.assertEqual(list(metadata), FIELDS)
        self.assertEqual(metadata["Name"], "Wärmefeld")
        self.assertEqual(metadata["RequiredProducts"], ["KORVAL", "Signal & Field Kit"])

    def test_replaces_nothing_unasked_and_never_the_app(self):
        sample = (EXAMPLE / "heatfield.k").read_bytes()
        picture = (EXAMPLE / "screenshot.png").read_bytes()
        self.write("app.k", sample)
        self.write("note.txt", b"a note")
        (self.dir / "symbolic.k").symlink_to("app.k")
        (self.dir / "hard.k").hardlink_to(self.dir / "app.k")
        (self.dir / "to-note").symlink_to("note.txt")
        for out in ("app.k", "./app.k", "symbolic.k", "hard.k"):
            for force in ([], ["--force"]):
                self.refused(1, f"qzhost: {out}: is the app that is read", "read", "app.k", "--screenshot", out, *force)
        self.refused(1, "is the app that is read", "read", "symbolic.k", "--screenshot", "app.k", "--force")
        for out in ("note.txt", "to-note"):
            self.refused(1, f"qzhost: {out}: already exists; give --force to replace it\n",
                         "read", "app.k", "--screenshot", out)
        self.assertEqual((self.read("app.k"), self.read("note.txt")), (sample, b"a note"))
        self.ok("read", "app.k", "--screenshot", "to-note", "--force")
        self.assertEqual((self.read("app.k"), self.read("note.txt")), (sample, picture))
        self.assertEqual(sorted(entry.name for entry in self.dir.iterdir()),
                         ["app.k", "hard.k", "note.txt", "symbolic.k", "to-note"])

    def test_displays_the_struct_on_one_line_a_field(self):
        app = self.write("demo.k", "%[app:appDetails]{\n<Name>a\nb\x1b[2J</Name>\n%}\n")
        lines = [line.strip() for line in self.ok("read", app).splitlines()]
        self.assertEqual((lines[0], lines[2]), ("1x1 struct with fields:", r"Name: 'a\u000Ab\u001B[2J'"))
        self.assertIn("UserComponents: {0x0 cell}", lines)
        self.assertEqual(lines[-1], "no screenshot")

    def test_escapes_what_a_terminal_acts_on(self):
        name = "a\x7f\x9b\u202e\u2028b"
        app = self.write("demo.k", f"%[app:appDetails]{{\n<Name>{name}</Name>\n%}}\n")
        shown = r"a\u007F\u009B\u202E\u2028b"
        self.assertIn(f"Name: '{shown}'", self.ok("read", app))
        text = self.ok("read", "--json", app)
        self.assertIn(f'"Name": "{shown}"', text)
        self.assertEqual(json.loads(text)["Name"], name)
        self.refused(1, f"'{shown}.kvpkg'", "read", name + ".kvpkg")

    def test_prints_host_errors_with_their_identifiers(self):
        bad = self.write("bad.k", "%[app:thumbnail]{\n<Thumbnail>data:image/png;base64,A</Thumbnail>\n%}")
        rows = [
            ("nein, ü.k", "InvalidFileName: 'nein, ü.k' is not a valid app file name or does not exist."),
            ("a.kvpkg", "InvalidFileExtension: 'a.kvpkg' does not have the extension of an app file."),
            ("a.K", "InvalidFileExtensionCase: The extension of 'a.K' must be in lower case."),
            (bad, f"LoadFailed: The app file '{self.dir.resolve() / bad}' could not be loaded."),
        ]
        for name, message in rows:
            self.refused(1, f"{CATALOG}:{message}\n", "read", name)

    def test_fails_as_ever_where_nobody_can_be_told(self):
        with open("/dev/full", "wb") as full:
            result = subprocess.run([TOOL, "read", "missing.k"], cwd=self.dir, stderr=full, check=False)
        self.assertEqual(result.returncode, 1)

    def test_writes_nothing_that_it_cannot_report(self):
        app = EXAMPLE / "heatfield.k"
        for args in (["--version"], ["--help"], ["classes"], ["read", app, "--screenshot", "out.png"]):
            with open("/dev/full", "wb") as full:
                result = subprocess.run([TOOL, *args], cwd=self.dir, stdout=full, stderr=subprocess.PIPE, check=False)
            self.assertEqual((result.returncode, result.stderr),
                             (1, b"qzhost: writing to standard output: No space left on device\n"), args)
        self.assertFalse((self.dir / "out.png").exists())

    def test_refuses_a_wrong_command_line(self):
        for args in ([], ["read"], ["forget"], ["read", b"\xff.k"]):
            self.refused(2, "qzhost: ", *args)

    def test_says_what_is_wrong_with_a_library(self):
        for library, message in (
                ("none.so", "none.so: cannot open"),
                (os.environ["LEAKY_MODULE"], "namespaces 0, objects 0, arrays 1"),
                (os.environ["FAILING_MODULE"],
                 "failing_module.so: KVInitialize_libqzappserialization failed: no licence\n")):
            self.refused(1, message, "--library", self.dir / library, "classes")
