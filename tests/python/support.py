"""Uses the module qzapp as a program would, in a directory of its own for each test."""

import contextlib
import os
import pathlib
import subprocess
import sys
import tempfile
import unittest

import qzapp

EXAMPLE = pathlib.Path(os.environ["EXAMPLE"]).resolve()
PNG = (EXAMPLE / "screenshot.png").read_bytes()
MODEL = (EXAMPLE / "appModel.kvd").read_bytes()
TEXT_APP = """disp(1)
%[app:appDetails]
%{
<Name>Scope</Name>
%}
"""


class ModuleTest(unittest.TestCase):
    maxDiff = None

    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.dir = pathlib.Path(folder.name)
        before = os.getcwd()
        os.chdir(self.dir)
        self.addCleanup(os.chdir, before)

    def create(self, name="app.kvpkg", **content):
        content = {"metadata": {"name": "Atlas", "version": "1.0"}, "code": "disp(1)\n", "model": MODEL, **content}
        qzapp.create(name, **content).save()
        return name

    def names(self):
        return sorted(os.listdir("."))

    @contextlib.contextmanager
    def fails(self, kind, text, **attributes):
        """The block must raise exactly this type, with exactly this text and these attributes."""
        with self.assertRaises(kind) as caught:
            yield
        self.assertIs(type(caught.exception), kind)
        self.assertEqual(str(caught.exception), text)
        for name, value in attributes.items():
            self.assertEqual(getattr(caught.exception, name), value, name)

    def run_python(self, program, **options):
        """Runs a program of its own, to which signals can be sent."""
        return subprocess.Popen([sys.executable, "-c", program], cwd=self.dir, stdout=subprocess.PIPE,
                                stderr=subprocess.PIPE, **options)
