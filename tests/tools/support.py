"""Runs the qzapp binary as a user would, in a directory of its own for each test."""

import json
import os
import pathlib
import subprocess
import tempfile
import unittest
import zipfile

QZAPP = os.environ["QZAPP"]
EXAMPLE = pathlib.Path(os.environ["QZAPP_EXAMPLE"])

FIELDS = ["Name", "Summary", "Author", "Version", "Description", "ScreenshotMode", "KVPKGVersion",
          "MinimumSupportedKORVALRelease", "KORVALRelease", "Uuid", "AppType", "RequiredProducts",
          "UserComponents", "ImageRelativePaths"]
FIELD_LIST = ", ".join(FIELDS)
SCHEMA = "http://schemas.quorvane.com"
MODEL_PART = "lumenforge/appModel.kvd"
METADATA_PART = "metadata/appMetadata.xml"


class ToolTest(unittest.TestCase):
    maxDiff = None

    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.dir = pathlib.Path(folder.name)

    def run_tool(self, *args, **options):
        environment = {**os.environ, **options.pop("env", {})}
        options.setdefault("stdout", subprocess.PIPE)
        return subprocess.run([QZAPP, *args], cwd=self.dir, env=environment, timeout=120,
                              stdin=subprocess.DEVNULL, stderr=subprocess.PIPE, **options)

    def ok(self, *args, **options):
        """Standard output of a run that must succeed and say nothing on standard error."""
        result = self.run_tool(*args, **options)
        self.assertEqual((result.returncode, result.stderr.decode()), (0, ""), args)
        return result.stdout.decode()

    def fails(self, status, message, *args, **options):
        """A run that must fail with exactly this line, and print nothing else."""
        result = self.run_tool(*args, **options)
        self.assertEqual((result.returncode, result.stderr.decode(errors="backslashreplace")),
                         (status, f"qzapp: {message}\n"), args)
        self.assertIn(result.stdout, (b"", None))

    def write(self, name, content):
        path = self.dir / name
        path.write_bytes(content if isinstance(content, bytes) else content.encode())
        return name

    def read(self, name):
        return (self.dir / name).read_bytes()

    def names(self):
        return sorted(p.name for p in self.dir.iterdir())

    def create(self, name="app.kvpkg", *more):
        """The example app, packed."""
        self.ok("create", name, "--code", EXAMPLE / "code.k", "--model", EXAMPLE / "appModel.kvd",
                "--metadata", EXAMPLE / "metadata.json", "--screenshot",
                EXAMPLE / "screenshot.png", *more)
        return name

    def small(self, name="small.kvpkg", *more):
        """An app with nothing that is not required."""
        self.write("s.k", "x = 1;\n")
        self.write("s.kvd", b"\0\1\2model")
        self.ok("create", name, "--code", "s.k", "--model", "s.kvd", *more)
        return name

    def info(self, name):
        return json.loads(self.ok("info", "--json", name))

    def metadata(self, name):
        return self.info(name)["metadata"]

    def rewrite(self, source, target, change):
        """Copies a package through Python's zip writer; change(name, bytes) returns the new bytes."""
        with zipfile.ZipFile(self.dir / source) as old, \
                zipfile.ZipFile(self.dir / target, "w", zipfile.ZIP_DEFLATED) as new:
            for item in old.infolist():
                content = change(item.filename, old.read(item))
                if content is not None:
                    new.writestr(item.filename, content)
        return target


def add_relationship(kind, target, name="rIdExtra"):
    """A change for rewrite() that adds a package relationship."""
    def change(item, content):
        if item != "_rels/.rels":
            return content
        entry = f'<Relationship Id="{name}" Type="{kind}" Target="{target}"/></Relationships>'
        return content.decode().replace("</Relationships>", entry).encode()
    return change
