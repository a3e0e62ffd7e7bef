"""One allocation fails, also where a library must not fail and takes memory all the same."""

import os
import shutil
import unittest

from support import TOOL, ToolTest

# About as many allocations are made before main(), by the tool and by the host.
MAIN, HOST_MAIN = 1000, 50


class Memory(ToolTest):
    def outcomes(self, step, *args, tool=TOOL, number=MAIN):
        """Exit status and standard error with an allocation failing, then a later one, until none does."""
        unhurt = 0
        while unhurt < 40:
            run = self.run_tool(*args, tool=tool, env={"LD_PRELOAD": os.environ["FAILING_MALLOC"],
                                                       "QZ_FAILING_ALLOCATION": str(number)})
            unhurt = 0 if run.returncode else unhurt + 1
            yield number, run.returncode, run.stderr.decode()
            number += step

    def test_what_lacks_memory_says_so_and_leaves_all_or_nothing(self):
        self.create("whole.kvpkg")
        self.write("bad.kvpkg", self.read("whole.kvpkg")[:-1])
        self.write("t.k", "x = 1;\n")
        self.write("m.kvd", "model")
        (self.dir / "apps").mkdir()
        shutil.copy(self.dir / "whole.kvpkg", self.dir / "apps")
        inputs = self.names()
        for step, out, *command in ((25, "out.kvpkg", "check", "--json", "--repair", "out.kvpkg", "bad.kvpkg"),
                                    (7, "out.kvpkg", "convert", "t.k", "out.kvpkg", "--model", "m.kvd"),
                                    (97, "out.html", "gallery", "apps", "-o", "out.html")):
            failures = 0
            for number, status, errors in self.outcomes(step, *command):
                with self.subTest(command=command, number=number):
                    self.assertIn(status, (0, 1, 3))
                    # A gallery shows an app that cannot be read, and says so.
                    is_there = status != 1 or "apps/whole.kvpkg: " in errors
                    self.assertEqual(self.names(), sorted([*inputs, *([out] if is_there else [])]), errors)
                    self.assertTrue(status != 1 or "memory" in errors, errors)
                failures += status == 1
                (self.dir / out).unlink(missing_ok=True)
            self.assertGreater(failures, 20)

    def test_the_host_says_so_too(self):
        statuses = set()
        for number, status, errors in self.outcomes(7, "classes", tool=TOOL.parent / "qzhost", number=HOST_MAIN):
            self.assertTrue(status == 0 or "memory" in errors, (number, status, errors))
            statuses.add(status)
        self.assertEqual(statuses, {0, 1})


if __name__ == "__main__":
    unittest.main()
