"""Runs the notebook of examples/ in a directory of its own, and looks at what its cells show. It needs packages
that other tests do not, so scripts/test --long runs it."""

import os
import pathlib
import shutil
import unittest

import nbclient
import nbformat

from support import EXAMPLE, ModuleTest

NOTEBOOK = pathlib.Path(__file__).resolve().parents[2] / "examples/notebook/apps.ipynb"


class Notebook(ModuleTest):
    def test_every_cell_shows_what_it_is_for(self):
        for file in EXAMPLE.iterdir():
            shutil.copy(file, self.dir)
        notebook = nbformat.read(NOTEBOOK, as_version=4)
        nbclient.NotebookClient(notebook, timeout=120, resources={"metadata": {"path": self.dir}}).execute()
        shown = [cell.outputs[-1].data if cell.outputs else {} for cell in notebook.cells]
        self.assertEqual(len(shown), 5)
        self.assertIn("image/png", shown[0])
        self.assertIn("<table", shown[2]["text/html"])
        self.assertRegex(shown[2]["text/plain"], "heat2.kvpkg +Heat Field +2.0")
        self.assertRegex(shown[3]["text/plain"], r"Core +2\nFilters +1\nSignals +2")
        self.assertIn("field-empty", shown[4]["text/plain"])


if __name__ == "__main__":
    os.environ["PYTHONPATH"] = str(pathlib.Path(os.environ["PYTHONPATH"]).resolve())  # for the kernel
    unittest.main()
