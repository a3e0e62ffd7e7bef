"""docs/qzapp-json.md: what it shows is what the verbs print."""

import json
import pathlib
import re
import unittest

from support import FIELDS, ToolTest

PAGE = pathlib.Path(__file__).parents[2] / "docs/qzapp-json.md"


def examples():
    """The example of each verb, with the page's metadata where it says "as above"."""
    blocks = re.findall(r"^## (\w+)\n.*?^```json\n(.*?)^```", PAGE.read_text(), re.M | re.S)
    found = {verb: json.loads(block) for verb, block in blocks}
    for example in found.values():
        if example.get("metadata") == {}:
            example["metadata"] = found["metadata"]
    return found


class Json(ToolTest):
    def same_form(self, documented, printed, where):
        """The same keys in the same order, and the same types; lists by their first items."""
        self.assertIs(type(printed), type(documented), where)
        if isinstance(documented, dict):
            self.assertEqual(list(printed), list(documented), where)
            for key in documented:
                self.same_form(documented[key], printed[key], f"{where}.{key}")
        elif isinstance(documented, list) and documented and printed:
            self.same_form(documented[0], printed[0], where + "[0]")

    def test_the_documented_objects_are_what_is_printed(self):
        self.create("a.kvpkg")
        self.create("b.kvpkg")
        self.write("shot.png", b"\x89PNG\r\n\x1a\n")
        self.ok("edit", "b.kvpkg", "--set", "Version=9", "--code", "-", "--screenshot", "shot.png",
                input=b"x\n")
        runs = {"info": ["a.kvpkg"], "show": ["a.kvpkg"], "diff": ["a.kvpkg", "b.kvpkg"],
                "parts": ["a.kvpkg"], "items": ["a.kvpkg"]}
        documented = examples()
        self.assertEqual(list(documented["metadata"]), FIELDS)
        self.assertEqual(list(documented), ["metadata", *runs])
        for verb, files in runs.items():
            printed = json.loads(self.run_tool(verb, "--json", *files).stdout)
            self.same_form(documented[verb], printed, verb)


if __name__ == "__main__":
    unittest.main()
