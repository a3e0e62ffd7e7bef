"""The types of the package: its own code, the stubs against the module, and programs that use it."""

import os
import pathlib
import subprocess
import sys
import tempfile
import unittest

import qzapp

SOURCE = pathlib.Path(os.environ["QZAPP_SOURCE"])

# What a checker must accept, and what it must not: each line with "# wrong" is an error.
PROGRAM = """
import pathlib
import qzapp

app: qzapp.App = qzapp.open(pathlib.Path("a.kvpkg"))
qzapp.open(b"bytes")
name: str | None = app.metadata.name
products: list[str] | None = app.metadata.RequiredProducts
count: int = app.metadata.name  # wrong
with qzapp.edit("a.kvpkg", drop_signature=True) as draft:
    draft.metadata.version = "2"
    draft.metadata.Version = 2  # wrong
    draft.code = b""  # wrong
    draft.model = b""
for record in qzapp.scan("."):
    path: str = record.path
for finding in qzapp.check("a.kvpkg"):
    finding.severity = "note"  # wrong
try:
    qzapp.open(1)  # wrong
except qzapp.NotFound as error:
    number: int | None = error.errno
    advice: str | None = error.advice
"""


class Types(unittest.TestCase):
    def mypy(self, *args, module="mypy"):
        with tempfile.TemporaryDirectory() as cache:
            return subprocess.run([sys.executable, "-m", module, *args], capture_output=True, text=True,
                                  env={**os.environ, "MYPY_CACHE_DIR": cache, "PYTHONDEVMODE": ""})

    def test_the_package_is_strictly_typed(self):
        run = self.mypy("--strict", SOURCE / "python/qzapp")
        self.assertEqual(run.returncode, 0, run.stdout + run.stderr)

    def test_the_stub_is_that_of_the_module(self):
        stub = (SOURCE / "python/qzapp/_native.pyi").read_text()
        from qzapp import _native
        for name, value in vars(_native).items():
            if not name.startswith("_"):
                self.assertRegex(stub, rf"\b{name}\b")
            if isinstance(value, type):
                for member in vars(value):
                    if not member.startswith("_"):
                        self.assertRegex(stub, rf"def {member}\(")
        for name in [line.split("(")[0].split()[1] for line in stub.splitlines() if line.startswith("def ")]:
            self.assertTrue(hasattr(_native, name), name)

    def test_programs_are_checked(self):
        with tempfile.TemporaryDirectory() as folder:
            program = pathlib.Path(folder) / "program.py"
            program.write_text(PROGRAM)
            run = self.mypy("--strict", program)
        expected = [number for number, line in enumerate(PROGRAM.splitlines(), 1) if line.endswith("# wrong")]
        found = [int(line.split(":")[1]) for line in run.stdout.splitlines() if ": error:" in line]
        self.assertEqual(found, expected, run.stdout + run.stderr)

    def test_everything_public_says_what_it_is_for(self):
        for name in qzapp.__all__:
            value = getattr(qzapp, name)
            self.assertTrue(value.__doc__, name)
            self.assertFalse(value.__doc__.startswith(name + "("), f"{name}: the docstring is only the signature")
            for member, found in vars(value).items() if isinstance(value, type) else ():
                if not member.startswith("_") and (callable(found) or isinstance(found, property)):
                    self.assertTrue(found.__doc__ or any(getattr(base, member, None) for base in value.__mro__[1:]),
                                    f"{name}.{member}")


if __name__ == "__main__":
    unittest.main()
