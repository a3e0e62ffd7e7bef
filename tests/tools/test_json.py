"""docs/qzapp-json.md: what it shows is what the verbs print."""

import copy
import json
import os
import re
import shutil

import jsonschema

from support import DOCS, EXAMPLE, FIELDS, METADATA_PART, MODEL_PART, ToolTest, replacing, setting


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
        self.write("shot.png", (EXAMPLE / "screenshot.png").read_bytes() + b"\n")
        self.ok("edit", "b.kvpkg", "--set", "Version=9", "--code", "-", "--screenshot", "shot.png", input=b"x\n")
        self.create("c.kvpkg")
        self.ok("edit", "c.kvpkg", "--set", "Version=8")
        page = (DOCS / "qzapp-json.md").read_text()
        blocks = dict(re.findall(r"^## (\w+)\n.*?^```json\n(.*?)^```", page, re.M | re.S))
        documented = {verb: json.loads(block) for verb, block in blocks.items()}
        self.assertEqual(list(documented), ["metadata", "info", "show", "diff", "merge", "index", "find", "parts", "items"])
        metadata = documented.pop("metadata")
        self.assertEqual(list(metadata), FIELDS)
        for verb, example in documented.items():
            if example.get("metadata") == {}:  # "as above"
                example["metadata"] = metadata
            files = {"diff": ["a.kvpkg", "b.kvpkg"],
                     "merge": ["a.kvpkg", "b.kvpkg", "c.kvpkg", "-o", "out.kvpkg"],
                     "index": [".", "-d", "apps.db"], "find": ["-d", "apps.db", "--limit", "1"]}.get(verb, ["a.kvpkg"])
            self.same_form(example, json.loads(self.run_tool(verb, "--json", *files).stdout), verb)


SCHEMAS = {path.name: json.loads(path.read_text()) for path in (DOCS / "schemas").iterdir()}


def bundled(schema, name):
    """The schema with what its references lead to in their place, and no key allowed that it does not list."""
    if isinstance(schema, list):
        return [bundled(entry, name) for entry in schema]
    if not isinstance(schema, dict):
        return schema
    if "$ref" in schema:
        file, _, pointer = schema["$ref"].partition("#")
        target = SCHEMAS[file or name]
        for key in pointer.split("/")[1:]:
            target = target[key]
        return bundled(target, file or name)
    closed = {key: bundled(value, name) for key, value in schema.items() if key not in ("$defs", "$id")}
    if "properties" in schema and schema.get("type") == "object":
        closed["additionalProperties"] = False
    return closed


def leaves(value, path=()):
    if isinstance(value, (dict, list)) and value:
        for key, entry in value.items() if isinstance(value, dict) else enumerate(value):
            yield from leaves(entry, (*path, key))
    else:
        yield path


def with_wrong_type(value, path):
    changed = copy.deepcopy(value)
    *folders, last = path
    place = changed
    for key in folders:
        place = place[key]
    place[last] = {"wrong": 1}
    return changed


class Schemas(ToolTest):
    def outputs(self):
        """What each verb prints, whatever it finds: its name, and a list of objects."""
        self.create("a.kvpkg")
        self.small("b.kvpkg")
        self.write("t.k", (EXAMPLE / "heatfield.k").read_bytes())
        self.flip("a.kvpkg", "bad.kvpkg", MODEL_PART)
        self.rewrite("a.kvpkg", "odd.kvpkg", setting("korval/code.k", b"\xff"))
        self.rewrite("a.kvpkg", "props.kvpkg", replacing("docProps/core.xml", "<cp:version>", "<cp:version x='1'>"))
        self.rewrite("a.kvpkg", "meta.kvpkg", setting(METADATA_PART, b"<metadata>"))
        apps = ["a.kvpkg", "b.kvpkg", "t.k", "bad.kvpkg", "odd.kvpkg", "props.kvpkg", "meta.kvpkg"]
        runs = [("info", [*apps, "none.k"]), ("check", [*apps, "none.k"]), ("check", ["--rules"]),
                ("check", ["--repair", "out.kvpkg", "bad.kvpkg"])]
        runs += [("show", [app]) for app in apps]
        runs += [("diff", ["a.kvpkg", app]) for app in apps]
        runs += [(verb, [*options, app]) for verb in ("parts", "items") for options in ([], ["--verify"])
                 for app in apps if app.endswith(".kvpkg")]
        for side, model in (("ours", b"ours"), ("theirs", b"theirs")):
            self.write("model", model)
            shutil.copy(self.dir / "b.kvpkg", self.dir / f"{side}.kvpkg")
            self.ok("edit", f"{side}.kvpkg", "--set", f"Version={side}", "--model", "model", "--code", "-",
                    input=model)
        runs += [("merge", ["b.kvpkg", "ours.kvpkg", f"{side}.kvpkg", "-o", f"merged-{side}.kvpkg"])
                 for side in ("ours", "theirs")]
        for name in "twin.kvpkg", "lab/b.kvpkg":
            (self.dir / "lab").mkdir(exist_ok=True)
            shutil.copy(self.dir / "b.kvpkg", self.dir / name)
        (self.dir / "loose.k").symlink_to("none.k")
        self.ok("index", "lab", "-d", "lab.db")
        os.mkfifo(self.dir / "wait.k")
        (self.dir / "lab" / os.fsdecode(b"\xff.kvpkg")).write_bytes(self.read("a.kvpkg"))
        (self.dir / "apps.KVPKG").write_bytes(self.read("a.kvpkg"))
        runs += [("index", [".", "-d", "apps.db"]), ("index", ["--merge", "lab.db", "-d", "apps.db"]),
                 ("index", ["--status", "-d", "apps.db"]), ("find", ["-d", "apps.db"])]
        found = {"metadata": [json.loads(self.extracted("a.kvpkg", "metadata"))]}
        for verb, arguments in runs:
            lines = self.run_tool(verb, "--json", *arguments).stdout.decode().splitlines()
            self.assertTrue(lines, (verb, arguments))
            found.setdefault(verb, []).extend(map(json.loads, lines))
        return found

    def test_each_output_follows_the_schema_of_its_verb(self):
        outputs = self.outputs()
        self.assertEqual({f"{verb}.schema.json" for verb in outputs} | {"common.schema.json"}, set(SCHEMAS))
        for verb, values in outputs.items():
            name = f"{verb}.schema.json"
            jsonschema.Draft202012Validator.check_schema(SCHEMAS[name])
            validator = jsonschema.Draft202012Validator(bundled(SCHEMAS[name], name))
            wrong = {}
            for value in values:
                errors = [error.message for error in validator.iter_errors(value)]
                self.assertEqual(errors, [], (verb, value))
                # One place of each kind is enough.
                wrong.update({tuple(0 if isinstance(key, int) else key for key in path): (value, path)
                              for path in leaves(value)})
            for value, path in wrong.values():
                self.assertFalse(validator.is_valid(with_wrong_type(value, path)), (verb, path))
        self.assertTrue(any("error" in value for value in outputs["info"]))
        self.assertTrue(any("error" in value for value in outputs["check"]))

    def test_a_verb_has_json_and_a_schema_or_the_page_says_why_not(self):
        page = (DOCS / "qzapp-json.md").read_text()
        (without,) = re.findall(r"^\| (`.*`) \| none", page, re.M)
        verbs = re.findall(r"^  ([a-z-]+) ", self.ok("--help").split("Verbs:\n")[1].split("\n\n")[0], re.M)
        self.assertTrue(verbs)
        for verb in verbs:
            has_json = "--json" in self.ok(verb, "--help")
            self.assertEqual((has_json, f"{verb}.schema.json" in SCHEMAS, f"`{verb}`" in without),
                             (True, True, False) if has_json else (False, False, True), verb)
