"""Runs the qzapp binary as a user would, in a directory of its own for each test."""

import fcntl
import json
import os
import pathlib
import pty
import struct
import subprocess
import tempfile
import termios
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
        if "input" not in options:
            options["stdin"] = subprocess.DEVNULL
        return subprocess.run([QZAPP, *args], cwd=self.dir, env=environment, timeout=120,
                              stderr=subprocess.PIPE, **options)

    def on_terminal(self, *args, env={}):
        """Exit status and output of a run whose standard streams are a terminal of 80 columns."""
        main, side = pty.openpty()
        fcntl.ioctl(side, termios.TIOCSWINSZ, struct.pack("HHHH", 24, 80, 0, 0))
        environment = {**os.environ, "TERM": "xterm-256color", **env}
        with subprocess.Popen([QZAPP, *args], cwd=self.dir, env=environment, stdin=side, stdout=side,
                              stderr=side) as tool:
            os.close(side)
            output = b""
            while True:
                try:
                    output += os.read(main, 1 << 16)
                except OSError:  # the other end is closed
                    break
        os.close(main)
        return tool.returncode, output.decode().replace("\r\n", "\n")

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

    def extracted(self, name, kind):
        """The bytes that go to standard output."""
        result = self.run_tool("extract", name, "--only", kind, "-o", "-")
        self.assertEqual((result.returncode, result.stderr), (0, b""))
        return result.stdout

    def damage_model(self, source, target):
        with zipfile.ZipFile(self.dir / source) as package:
            item = package.getinfo(MODEL_PART)
        data = bytearray(self.read(source))
        start = item.header_offset + 30 + len(item.filename) + int.from_bytes(
            data[item.header_offset + 28:item.header_offset + 30], "little")
        data[start + item.compress_size // 2] ^= 0x55
        return self.write(target, bytes(data))

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
