"""Runs a tool, which TOOL names, as a user would, in a directory of its own for each test."""

import fcntl
import itertools
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

TOOL = pathlib.Path(os.environ["TOOL"])
EXAMPLE = pathlib.Path(os.environ["EXAMPLE"])
DOCS = pathlib.Path(__file__).parents[2] / "docs"

FIELDS = ["Name", "Summary", "Author", "Version", "Description", "ScreenshotMode", "KVPKGVersion",
          "MinimumSupportedKORVALRelease", "KORVALRelease", "Uuid", "AppType", "RequiredProducts",
          "UserComponents", "ImageRelativePaths"]
FIELD_LIST = ", ".join(FIELDS)
SCHEMA = "http://schemas.quorvane.com"
MODEL_PART = "lumenforge/appModel.kvd"
METADATA_PART = "metadata/appMetadata.xml"


def why_not():
    """Why system calls cannot be watched here; empty when they can."""
    run = subprocess.run(["strace", "-o", os.devnull, "true"], capture_output=True, text=True)
    return run.stderr if run.returncode else ""


class ToolTest(unittest.TestCase):
    maxDiff = None

    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.dir = pathlib.Path(folder.name)

    def run_tool(self, *args, tool=TOOL, limit=None, env={}, **options):
        """`limit` is a bound of the shell, such as "-s 128"."""
        options = {"stdout": subprocess.PIPE, **options}
        if "input" not in options and "stdin" not in options:
            options["stdin"] = subprocess.DEVNULL
        shell = ["sh", "-c", f'ulimit {limit} && exec "$0" "$@"'] if limit else []
        return subprocess.run([*shell, tool, *args], cwd=self.dir, env={**os.environ, **env}, timeout=120,
                              stderr=subprocess.PIPE, **options)

    def with_faults(self, call, fault, *args):
        """Runs with the first such system call failing, then with the second, and so on, as often as one fails."""
        for number in itertools.count(1):
            run = subprocess.run(["strace", "-f", "-qq", "-o", "faults", "-e", f"trace={call}", "-e",
                                  f"inject={call}:error={fault}:when={number}", TOOL, *args], cwd=self.dir,
                                 stdin=subprocess.DEVNULL, capture_output=True, timeout=120)
            if b"(INJECTED)" not in self.read("faults"):
                return
            yield number, run

    def on_terminal(self, *args, columns=80, env={}):
        """Exit status and output of a run whose standard streams are a terminal."""
        main, side = pty.openpty()
        fcntl.ioctl(side, termios.TIOCSWINSZ, struct.pack("HHHH", 24, columns, 0, 0))
        environment = {**os.environ, "TERM": "xterm-256color", **env}
        with subprocess.Popen([TOOL, *args], cwd=self.dir, env=environment, stdin=side, stdout=side,
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

    def json(self, *args, **options):
        return json.loads(self.ok(args[0], "--json", *args[1:], **options))

    def fails(self, status, message, *args, **options):
        """A run that must fail with exactly this line, and print nothing else."""
        result = self.run_tool(*args, **options)
        self.assertEqual((result.returncode, result.stderr.decode(errors="backslashreplace")),
                         (status, f"qzapp: {message}\n"), args)
        self.assertIn(result.stdout, (b"", None))

    def fails_like(self, pattern, *args, status=1, **options):
        """Standard output of a run that must fail with one line that matches."""
        result = self.run_tool(*args, **options)
        self.assertEqual(result.returncode, status, args)
        self.assertRegex(result.stderr.decode(), rf"^qzapp: {pattern}\n$")
        return result.stdout

    def write(self, name, content):
        (self.dir / name).write_bytes(content if isinstance(content, bytes) else content.encode())
        return name

    def read(self, name):
        return (self.dir / name).read_bytes()

    def names(self, folder="."):
        return sorted(p.name for p in (self.dir / folder).iterdir())

    def create(self, name="app.kvpkg", *more):
        """The example app, packed."""
        self.ok("create", name, "--code", EXAMPLE / "code.k", "--model", EXAMPLE / "appModel.kvd",
                "--metadata", EXAMPLE / "metadata.json", "--screenshot",
                EXAMPLE / "screenshot.png", *more)
        return name

    def small(self, name="small.kvpkg", *more):
        """An app with nothing that is not required; of doubtful values the tool may warn."""
        self.write("s.k", "x = 1;\n")
        self.write("s.kvd", b"\0\1\2model")
        run = self.run_tool("create", name, "--code", "s.k", "--model", "s.kvd", *more)
        self.assertEqual(run.returncode, 0, run.stderr)
        return name

    def metadata(self, name):
        return self.json("info", name)["metadata"]

    def extracted(self, name, kind):
        """The bytes that go to standard output."""
        result = self.run_tool("extract", name, "--only", kind, "-o", "-")
        self.assertEqual((result.returncode, result.stderr), (0, b""))
        return result.stdout

    def items(self, name):
        with zipfile.ZipFile(self.dir / name) as package:
            return {item: package.read(item) for item in package.namelist()}

    def flip(self, source, target, item_name):
        """Breaks the content of one item."""
        with zipfile.ZipFile(self.dir / source) as package:
            item = package.getinfo(item_name)
        data = bytearray(self.read(source))
        name_and_fields = data[item.header_offset + 26:item.header_offset + 30]
        start = item.header_offset + 30 + sum(struct.unpack("<HH", name_and_fields))
        data[start + item.compress_size // 2] ^= 0x55
        return self.write(target, bytes(data))

    def rewrite(self, source, target, change):
        """Copies a package through Python's zip writer; change(name, bytes) returns the new bytes."""
        with zipfile.ZipFile(self.dir / target, "w", zipfile.ZIP_DEFLATED) as new:
            for name, old in self.items(source).items():
                content = change(name, old)
                if content is not None:
                    new.writestr(name, content)
        return target


    def signed(self, source, target):
        """A copy with the parts of a digital signature, as other programs make them; nothing is signed."""
        kind = "http://schemas.openxmlformats.org/package/2006/relationships/digital-signature/"
        media = "application/vnd.openxmlformats-package.digital-signature-"
        types = f'<Default Extension="sigs" ContentType="{media}origin"/>' + "".join(
            f'<Override PartName="/_xmlsignatures/{name}" ContentType="{media}{what}"/>'
            for name, what in (("sig1.xml", "xmlsignature+xml"), ("one.cer", "certificate"))) + "</Types>"
        link = ('<Relationships xmlns="http://schemas.openxmlformats.org/package/2006/relationships">'
                '<Relationship Id="r" Type="{}" Target="{}"/></Relationships>')
        self.rewrite(source, target, lambda name, content: add_relationship(
            kind + "origin", "_xmlsignatures/origin.sigs")(name, replacing(
                "[Content_Types].xml", "</Types>", types)(name, content)))
        with zipfile.ZipFile(self.dir / target, "a") as package:
            package.writestr("_xmlsignatures/origin.sigs", b"")
            package.writestr("_xmlsignatures/_rels/origin.sigs.rels", link.format(kind + "signature", "sig1.xml"))
            package.writestr("_xmlsignatures/sig1.xml", b"<Signature/>")
            package.writestr("_xmlsignatures/_rels/sig1.xml.rels", link.format(kind + "certificate", "one.cer"))
            package.writestr("_xmlsignatures/one.cer", b"certificate")
        return target


# Changes for rewrite()

def without(item):
    return lambda name, content: None if name == item else content


def setting(item, new):
    return lambda name, content: new if name == item else content


def replacing(item, old, new):
    """`old` must be there."""
    def change(name, content):
        if name != item:
            return content
        if old.encode() not in content:
            raise AssertionError(f"{old} is not in {item}")
        return content.replace(old.encode(), new.encode())
    return change


def add_relationship(kind, target, name="rIdExtra"):
    entry = f'<Relationship Id="{name}" Type="{kind}" Target="{target}"/></Relationships>'
    return replacing("_rels/.rels", "</Relationships>", entry)
