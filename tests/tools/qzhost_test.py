"""Runs qzhost, which loads the library at run time, on text apps.

The environment names what to run: QZHOST, EXAMPLES (the folder of sample apps), LEAKY_MODULE,
FAILING_MODULE.
"""

import json
import os
import pathlib
import subprocess
import tempfile
import unittest

QZHOST = os.environ["QZHOST"]
SAMPLE = pathlib.Path(os.environ["EXAMPLES"], "heatfield")

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


def qzhost(*arguments, **options):
    return subprocess.run([QZHOST, *map(str, arguments)], capture_output=True, timeout=60, **options)


class QzhostTest(unittest.TestCase):
    def setUp(self):
        directory = tempfile.TemporaryDirectory()
        self.addCleanup(directory.cleanup)
        self.directory = pathlib.Path(directory.name)

    def write(self, name, text):
        file = self.directory / name
        file.write_text(text, encoding="utf-8")
        return file

    def output(self, *arguments):
        result = qzhost(*arguments)
        self.assertEqual((result.returncode, result.stderr), (0, b""))
        return result.stdout.decode()

    def test_lists_the_registered_class(self):
        listing = json.loads(self.output("classes", "--json"))
        (namespace,) = listing["namespaces"]
        (described,) = namespace["classes"]
        self.assertEqual(namespace["name"], NAMESPACE)
        self.assertEqual(described["name"], "KAppMetadataReader")
        self.assertEqual(described["fullName"], NAMESPACE + ".KAppMetadataReader")
        self.assertEqual(described["description"],
                         "Used to read metadata and screenshots from KAPP files")
        expected = {name: value for value, names in CLASS_DEFAULTS for name in names.split()}
        self.assertEqual(repr(sorted(described["attributes"].items())),
                         repr(sorted(expected.items())))
        self.assertEqual(
            [(method["name"], method["inputs"], method["outputs"], method["attributes"]["isStatic"])
             for method in described["methods"]],
            [(NAMESPACE + ".KAppMetadataReader", ["TarvoFactoryString scalar"], ["handle"], True),
             ("readMetadata", [], ["any"], False),
             ("readScreenshotAsBytes", ["handle"], ["uint8", "char"], False)])
        self.assertIn("method readMetadata\n      () -> (any)\n", self.output("classes"))

    def test_reads_the_sample(self):
        screenshot = self.directory / "out.png"
        metadata = json.loads(
            self.output("read", SAMPLE / "heatfield.k", "--json", "--screenshot", screenshot))
        self.assertEqual(screenshot.read_bytes(), (SAMPLE / "screenshot.png").read_bytes())
        self.assertEqual(list(metadata)[:3] + list(metadata)[-1:],
                         ["Name", "Summary", "Author", "ImageRelativePaths"])
        self.assertEqual(len(metadata), 14)
        self.assertEqual(metadata["Name"], "Wärmefeld")
        self.assertEqual(metadata["RequiredProducts"], ["KORVAL", "Signal & Field Kit"])

    def test_displays_the_struct_on_one_line_a_field(self):
        app = self.write("demo.k", "%[app:appDetails]{\n<Name>a\nb\x1b[2J</Name>\n%}\n")
        lines = self.output("read", app).splitlines()
        self.assertEqual(lines[0], "  1x1 struct with fields:")
        self.assertEqual(lines[2].strip(), r"Name: 'a\u000Ab\u001B[2J'")
        self.assertIn("UserComponents: {0x0 cell}", [line.strip() for line in lines])
        self.assertEqual(lines[-1], "  no screenshot")

    def test_writes_no_file_without_a_screenshot(self):
        app = self.write("demo.k", "x = 1;\n")
        result = qzhost("read", app, "--screenshot", self.directory / "out.png")
        self.assertEqual(result.returncode, 0)
        self.assertIn(b"demo.k has no screenshot; ", result.stderr)
        self.assertEqual(sorted(self.directory.iterdir()), [app])

    def test_prints_host_errors_with_their_identifiers(self):
        bad = self.write("bad.k", "%[app:thumbnail]{\n<Thumbnail>data:image/png;base64,A</Thumbnail>\n%}")
        rows = [
            ("nein, ü.k", "InvalidFileName: 'nein, ü.k' is not a valid app file name or does not exist."),
            ("a.kvpkg", "InvalidFileExtension: 'a.kvpkg' does not have the extension of an app file."),
            ("\x1b[2J\n.k",
             r"InvalidFileName: '\u001B[2J\u000A.k' is not a valid app file name or does not exist."),
            ("a.K", "InvalidFileExtensionCase: The extension of 'a.K' must be in lower case."),
            (bad.name, f"LoadFailed: The app file '{bad.resolve()}' could not be loaded."),
        ]
        for name, message in rows:
            with self.subTest(name):
                result = qzhost("read", name, cwd=self.directory)
                self.assertEqual(result.returncode, 1)
                self.assertEqual(result.stderr.decode(), f"{CATALOG}:{message}\n")
                self.assertEqual(result.stdout, b"")

    def test_refuses_a_wrong_command_line(self):
        for arguments in ([], ["read"], ["forget"], ["classes", "extra"], ["read", b"\xff.k"],
                          ["read", "a.k", "--screenshot"]):
            with self.subTest(arguments):
                result = subprocess.run([QZHOST, *arguments], capture_output=True, timeout=60)
                self.assertEqual(result.returncode, 2)
                self.assertTrue(result.stderr.startswith(b"qzhost: "))

    def test_says_what_is_wrong_with_a_library(self):
        text = self.write("text.so", "text")
        for library, message in (
                (self.directory / "none.so", "none.so: cannot open"), (text, "text.so: "),
                (os.environ["LEAKY_MODULE"], "namespaces 0, objects 0, arrays 1"),
                (os.environ["FAILING_MODULE"],
                 "failing_module.so: KVInitialize_libqzappserialization failed: no licence\n")):
            with self.subTest(library):
                result = qzhost("--library", library, "classes")
                self.assertEqual(result.returncode, 1)
                self.assertIn(message, result.stderr.decode())

    def test_reports_output_that_cannot_be_written(self):
        with open("/dev/full", "wb") as full:
            result = subprocess.run([QZHOST, "classes"], stdout=full, stderr=subprocess.PIPE)
        self.assertEqual(result.returncode, 1)
        self.assertIn(b"writing to standard output", result.stderr)


if __name__ == "__main__":
    unittest.main()
