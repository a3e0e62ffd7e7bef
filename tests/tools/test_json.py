"""docs/qzapp-json.md: what it shows is what the verbs print."""

import json
import re
import unittest

from support import DOCS, FIELDS, ToolTest


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
        self.ok("edit", "b.kvpkg", "--set", "Version=9", "--code", "-", "--screenshot", "shot.png", input=b"x\n")
        page = (DOCS / "qzapp-json.md").read_text()
        blocks = dict(re.findall(r"^## (\w+)\n.*?^```json\n(.*?)^```", page, re.M | re.S))
        documented = {verb: json.loads(block) for verb, block in blocks.items()}
        self.assertEqual(list(documented), ["metadata", "info", "show", "diff", "parts", "items"])
        metadata = documented.pop("metadata")
        self.assertEqual(list(metadata), FIELDS)
        for verb, example in documented.items():
            if example.get("metadata") == {}:  # "as above"
                example["metadata"] = metadata
            files = ["a.kvpkg", "b.kvpkg"] if verb == "diff" else ["a.kvpkg"]
            self.same_form(example, json.loads(self.run_tool(verb, "--json", *files).stdout), verb)
