"""docs/qzapp-json.md: what it shows is what the verbs print."""

import json
import re
import unittest

from support import DOCS, FIELDS, ToolTest


# What a terminal acts on, or what ends a line for some readers.
ACTED_ON = "\x1b\x7f\x80\x9b\x9f\u061c\u200e\u200f\u2028\u2029\u202a\u202e\u2066\u2069\ufeff"


class Json(ToolTest):
    def test_what_a_terminal_acts_on_is_escaped_and_keeps_its_value(self):
        value = f"a{ACTED_ON[1:]}b\tc"
        self.small("a.kvpkg", "--set", f"Name={value}", "--set", f"RequiredProducts={value}")
        self.ok("edit", "a.kvpkg", "--code", "-", input=f"x{ACTED_ON}\n".encode())
        for verb in ("info", "show"):
            text = self.ok(verb, "--json", "a.kvpkg")
            self.assertFalse(set(text) & set(ACTED_ON), verb)
            metadata = json.loads(text)["metadata"]
            self.assertEqual((metadata["Name"], metadata["RequiredProducts"]), (value, [value]))
        self.assertIn("\\u202E", text)
        self.assertEqual(json.loads(text)["code"], f"x{ACTED_ON}\n")
        self.ok("extract", "a.kvpkg", "-o", "out")
        self.assertEqual(json.loads(self.read("out/metadata.json"))["Name"], value)

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
