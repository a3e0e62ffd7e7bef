"""What check prints for scripts, for code scanning and for GitHub Actions."""

import json
import pathlib
import re
import urllib.parse
import zipfile

import jsonschema

from support import DOCS, MODEL_PART, ToolTest, setting

SARIF = json.loads((pathlib.Path(__file__).parent / "schemas/sarif-2.1.0-rtm.5.json").read_text())
ODD = "a b,c:d%#?\u00e4{0}.kvpkg"


class CiTest(ToolTest):
    def apps(self):
        """A folder with an app of each kind, and a name with what the formats must escape."""
        (self.dir / "apps").mkdir()
        good = self.create("apps/good.kvpkg")
        self.rewrite(good, f"apps/{ODD}", setting(MODEL_PART, b""))
        self.flip(good, "apps/wrong.kvpkg", MODEL_PART)
        self.signed(good, "apps/noted.kvpkg")
        (self.dir / "apps/dangling.kvpkg").symlink_to("nowhere")
        return "apps"

    def log(self, *args):
        result = self.run_tool("check", "--sarif", *args)
        log = json.loads(result.stdout)
        jsonschema.Draft4Validator(SARIF).validate(log)
        return log, result


class Check(CiTest):
    MESSAGE = "apps/dangling.kvpkg: there is no such file; check the name"
    TOTAL = "5 files: 1 without findings, 1 with notes, 1 with warnings, 1 with errors, 1 not read\n"

    def test_several_files_end_in_a_total(self):
        result = self.run_tool("check", self.apps())
        self.assertEqual(result.stderr.decode(), f"qzapp: {self.MESSAGE}\n")
        self.assertTrue(result.stdout.decode().endswith(f"\n{self.TOTAL}"), result.stdout)
        self.assertEqual(self.ok("check", "apps/good.kvpkg"), "apps/good.kvpkg: no findings\n")
        self.assertEqual(self.ok("check", "apps/good.kvpkg", "apps/good.kvpkg").splitlines()[-1],
                         "2 files: 2 without findings")

    def test_quiet_says_nothing_about_what_is_good(self):
        self.apps()
        self.assertEqual(self.ok("check", "-q", "apps/good.kvpkg", "apps/noted.kvpkg"), "")
        for args in ([], ["--json"]):
            result = self.run_tool("check", "--quiet", *args, "apps")
            text = result.stdout.decode()
            self.assertEqual((result.returncode, "good" in text, "noted" in text, "package-signed" in text, "5 files"
                              in text), (1, False, False, False, False), text)
            self.assertIn("wrong.kvpkg", text)
            self.assertIn("model-empty", text)
        self.signed("apps/good.kvpkg", "signed.kvpkg")
        self.rewrite("signed.kvpkg", "both.kvpkg", setting(MODEL_PART, b""))
        self.assertTrue(self.ok("check", "-q", "both.kvpkg").startswith("both.kvpkg: 1 warning\n"))
        report = json.loads(self.ok("check", "-q", "--json", "both.kvpkg"))
        self.assertEqual((report["notes"], [f["rule"] for f in report["findings"]]), (1, ["model-empty"]))

    def test_a_file_that_cannot_be_read_has_its_record(self):
        result = self.run_tool("check", "--json", self.apps(), "none.kvpkg", "-")
        failed = [r for r in map(json.loads, result.stdout.splitlines()) if "error" in r]
        self.assertEqual(failed, [
            {"file": "apps/dangling.kvpkg", "error": "there is no such file; check the name"},
            {"file": "none.kvpkg", "error": "there is no such file; check the name"},
            {"file": "standard input", "error": "is empty; check the program that writes to it"}])
        self.assertEqual(result.stderr.decode(), "".join(f"qzapp: {r['file']}: {r['error']}\n" for r in failed))

    def test_one_format_at_a_time(self):
        self.apps()
        for args, message in [
            (["--json", "--sarif"], "check: --format: give one of --format, --json and --sarif; leave the others out"),
            (["--format", "xml"], 'check: --format: unknown format "xml"; use one of text, json, sarif, github'),
            (["--format", "srif"], 'check: --format: unknown format "srif"; did you mean "sarif"?'),
            (["--sarif", "--rules"], "check: --rules: goes with the formats text and json; leave --format or --sarif out"),
        ]:
            self.fails(2, message, "check", *args, "apps/good.kvpkg")
        for short, name in (["--json"], "json"), (["--sarif"], "sarif"), ([], "text"):
            self.assertEqual(self.run_tool("check", *short, "apps").stdout,
                             self.run_tool("check", "--format", name, "apps").stdout)


class Sarif(CiTest):
    def test_is_what_code_scanning_takes(self):
        log, result = self.log(self.apps())
        self.assertEqual(result.returncode, 1)
        (run,) = log["runs"]
        rules = run["tool"]["driver"]["rules"]
        self.assertEqual([rule["id"] for rule in rules], [r["rule"] for r in self.json("check", "--rules")["rules"]])
        for rule in rules:
            self.assertTrue(all(rule[key]["text"] for key in ("shortDescription", "fullDescription", "help")), rule)
        found = {}
        for entry in run["results"]:
            rule = rules[entry["ruleIndex"]]
            self.assertEqual((rule["id"], rule["defaultConfiguration"]["level"]), (entry["ruleId"], entry["level"]))
            (location,) = entry["locations"]
            physical = location["physicalLocation"]
            uri = physical["artifactLocation"]["uri"]
            self.assertRegex(uri, r"^apps/[A-Za-z0-9._~%-]+$")
            self.assertEqual(physical["region"], {"startLine": 1})
            found[urllib.parse.unquote(uri)] = entry["ruleId"]
        self.assertEqual(found, {"apps/dangling.kvpkg": "not-readable", f"apps/{ODD}": "model-empty",
                                 "apps/noted.kvpkg": "package-signed", "apps/wrong.kvpkg": "item-damaged"})
        jsonschema.Draft4Validator(SARIF).validate(log)
        wrong = {**log, "runs": [{**run, "results": [{**run["results"][0], "level": "bad"}]}]}
        self.assertFalse(jsonschema.Draft4Validator(SARIF).is_valid(wrong))

    def test_absolute_names_and_no_findings(self):
        self.rewrite(self.create(), "bad.kvpkg", setting(MODEL_PART, b""))
        log, _ = self.log(self.dir / "bad.kvpkg", "./bad.kvpkg")
        uris = [r["locations"][0]["physicalLocation"]["artifactLocation"]["uri"] for r in log["runs"][0]["results"]]
        self.assertEqual(uris, [(self.dir / "bad.kvpkg").as_uri(), "bad.kvpkg"])
        log, result = self.log("app.kvpkg")
        self.assertEqual((log["runs"][0]["results"], result.returncode), ([], 0))

    def test_findings_are_recognised_in_the_next_version(self):
        def fingerprints(name):
            results = self.log(name)[0]["runs"][0]["results"]
            return [(r["ruleId"], r["partialFingerprints"]["primaryLocationLineHash"]) for r in results]
        self.rewrite(self.create(), "a.kvpkg", lambda name, old: {
            MODEL_PART: b"", "korval/code.k": b"\xff"}.get(name, old))
        self.rewrite("app.kvpkg", "b.kvpkg", lambda name, old: {
            MODEL_PART: b"", "korval/code.k": b"more\xff"}.get(name, old))
        self.assertEqual(fingerprints("a.kvpkg"), fingerprints("b.kvpkg"))
        with zipfile.ZipFile(self.dir / "a.kvpkg", "a") as package:
            for i in range(30):
                package.writestr(f"stray/{i}.zzz", b"")
        all_of_them = fingerprints("a.kvpkg")
        self.assertEqual(len(set(all_of_them)), len(all_of_them))

    def test_messages_are_text_of_bounded_length(self):
        long = "\U0001f600" * 600
        part = f"p/{{0}}[x](http://a)/{'x' * 900}"
        self.create()
        with zipfile.ZipFile(self.dir / "app.kvpkg", "a") as package:
            package.writestr(f"odd/{long}//", b"")
            package.writestr(part + ".zzz", b"")
        texts = [r["message"]["text"] for r in self.log("app.kvpkg")[0]["runs"][0]["results"]]
        self.assertTrue(texts)
        for text in texts:
            self.assertLessEqual(len(text.encode("utf-16-le")) // 2, 1010)
            self.assertNotRegex(text, r"(?<!\\)\[x(?<!\\)\]\(")
        self.assertTrue(any("{{0}}" in text for text in texts), texts)

    def test_no_more_results_than_code_scanning_takes(self):
        self.create()
        (self.dir / "d").mkdir()
        with zipfile.ZipFile(self.dir / "app.kvpkg", "a") as package:
            for i in range(11):
                package.writestr(f"stray/{i}.zzz", b"")
        for i in range(2274):  # of eleven results each: 25,014
            (self.dir / f"d/{i}.kvpkg").hardlink_to(self.dir / "app.kvpkg")
        log, result = self.log("d")
        self.assertEqual(len(log["runs"][0]["results"]), 25_000)
        self.assertRegex(result.stderr.decode(), "^qzapp: check: the SARIF log has the first 25000 results, .* lacks 14;")


class Github(CiTest):
    def test_each_finding_is_an_annotation(self):
        lines = self.run_tool("check", "--format", "github", self.apps()).stdout.decode().splitlines()
        self.assertEqual(lines.pop() + "\n", Check.TOTAL)
        name = ODD.replace("%", "%25").replace(":", "%3A").replace(",", "%2C")
        commands = [re.fullmatch(r"::(\w+) file=([^,:]+),title=([a-z-]+)::(.+)", line).groups()[:3] for line in lines]
        self.assertEqual(commands, [
            ("warning", f"apps/{name}", "model-empty"), ("error", "apps/dangling.kvpkg", "not-readable"),
            ("notice", "apps/noted.kvpkg", "package-signed"), ("error", "apps/wrong.kvpkg", "item-damaged")])

    def test_no_name_makes_a_command_of_its_own(self):
        name = "x\n::error::y%0A.kvpkg"
        self.write(name, "hello")
        (line,) = self.run_tool("check", "--format", "github", name).stdout.decode().splitlines()
        self.assertTrue(line.startswith("::error file=x\\u000A%3A%3Aerror%3A%3Ay%250A.kvpkg,title=zip-end::"), line)


class PreCommit(CiTest):
    def hook(self, name):
        """The arguments of a hook, and the pattern of the files that it is for."""
        hooks = (DOCS.parent / ".pre-commit-hooks.yaml").read_text()
        found = re.search(rf"^- id: {name}\n(?:  .*\n)*?  entry: qzapp (.*)\n(?:  .*\n)*?  files: '(.*)'$", hooks, re.M)
        return found[1].split(), found[2]

    def test_a_hook_repacks_apps_and_leaves_what_is_none(self):
        arguments, pattern = self.hook("qzapp-repack")
        self.apps()
        self.write("apps/none.kvpkg", "no app")
        names = ["apps/good.kvpkg", f"apps/{ODD}", "apps/none.kvpkg"]
        self.assertTrue(all(re.search(pattern, name) for name in names))
        self.ok(*arguments, *names)
        self.assertEqual(self.read("apps/none.kvpkg"), b"no app")
        with zipfile.ZipFile(self.dir / "apps/good.kvpkg") as package:
            self.assertEqual({item.compress_type for item in package.infolist()}, {zipfile.ZIP_STORED})

    def test_the_hook_refuses_apps_with_errors(self):
        entry, pattern = self.hook("qzapp-check")
        self.apps()
        self.write("--repair=x.kvpkg", self.read("apps/good.kvpkg"))
        for name, status in ("--repair=x.kvpkg", 0), ("apps/good.kvpkg", 0), (f"apps/{ODD}", 0), ("apps/wrong.kvpkg", 1):
            self.assertTrue(re.search(pattern, name))
            self.assertEqual(self.run_tool(*entry, name).returncode, status, name)
        self.assertFalse((self.dir / "x.kvpkg").exists(), "a file's name is no option")
        self.assertEqual([bool(re.search(pattern, name)) for name in ("a.k", "a.KVPKG", "a.ok", "a.kvpkg.txt")],
                         [True, True, False, False])
