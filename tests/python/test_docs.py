"""The examples of docs/python.md, which are run in order, with the app of examples/."""

import doctest
import os
import pathlib
import shutil
import unittest

from support import EXAMPLE, ModuleTest

PAGE = pathlib.Path(os.environ["QZAPP_SOURCE"]) / "docs/python.md"


class Page(ModuleTest):
    def test_the_examples_do_what_they_say(self):
        for file in EXAMPLE.iterdir():
            shutil.copy(file, self.dir)
        result = doctest.testfile(str(PAGE), module_relative=False, optionflags=doctest.ELLIPSIS)
        self.assertEqual(result.failed, 0)
        self.assertGreater(result.attempted, 20)


if __name__ == "__main__":
    unittest.main()
