"""What a terminal of some width shows, and what a pipe gets instead."""

import re
import unicodedata

from support import ToolTest

VERBS = re.compile(r"^  ([a-z-]+) {2,}\S", re.M)


def width(line):
    """The columns that a line takes."""
    return sum(0 if unicodedata.combining(c) else 2 if unicodedata.east_asian_width(c) in "WF" else 1
               for c in line)


def without_colours(text):
    return re.sub(r"\x1b\[\d*m", "", text)


class TerminalTest(ToolTest):
    def verbs(self):
        listed = self.ok("--help").split("\nVerbs:\n")[1].split("\n\n")[0]
        return VERBS.findall(listed)

    def test_help_fits_and_breaks_no_word(self):
        words = {verb: self.ok("help", verb).split() for verb in self.verbs()}
        self.assertIn("edit", words)
        for columns, widest in ((40, 40), (80, 80), (200, 100)):
            for verb, expected in words.items():
                text = self.on_terminal("help", verb, columns=columns)[1]
                self.assertEqual(text.split(), expected)
                self.assertNotRegex(self.ok("help", verb), r"\S {2,}\S.*\n {28}", "a line end in a description")
                body, _, examples = text.partition("\nExample")
                # Usage and commands are to be copied.
                wide = [line for line in body.splitlines() if width(line) > widest and " " in line.strip()
                        and not re.match("Usage:|  [^ -]", line)]
                self.assertEqual(wide, [], (verb, columns))
                self.assertLessEqual(max(map(width, examples.splitlines()), default=0), 80, verb)

    def test_variables_are_laid_out_like_options(self):
        for columns, expected in ((40, "  NO_COLOR\n      If set, output on a terminal has\n      no colours\n"),
                                  (80, "  NO_COLOR                  If set, output on a terminal has no colours\n")):
            self.assertIn(expected, self.on_terminal("help", columns=columns)[1])

    def test_a_pipe_gets_no_line_broken(self):
        summary = "word" + " word" * 59
        self.small("a.kvpkg", "--set", f"Summary={summary}")
        self.assertIn(f"  Summary                        {summary}\n", self.ok("info", "a.kvpkg"))
        self.assertIn("  --threads N               Work on at most N threads; otherwise one for each processor, up to 8\n",
                      self.ok("help", "info"))
        self.assertRegex(self.ok("help", "edit"), r"(?m)^What you do not name stays as it is\. .{100,}$")

    def test_sheets_fit(self):
        self.small("a.kvpkg", "--set", "Name=山田", "--set", "Summary=" + "word " * 60)
        for columns in (40, 80):
            for args in (["info"], ["check"], ["parts"], ["items"])[:4 if columns == 80 else 2]:
                status, text = self.on_terminal(*args, "a.kvpkg", columns=columns)
                self.assertEqual(status, 0)
                wide = [line for line in without_colours(text).splitlines() if width(line) > columns
                        # a single word, or what is to be copied
                        and " " in line.strip() and "fix: " not in line]
                self.assertEqual(wide, [], (args, columns))

    def test_values_stand_below_labels_on_a_narrow_terminal(self):
        self.small("a.kvpkg", "--set", "Name=Atlas")
        self.assertIn("\n  Name\n    Atlas\n", without_colours(self.on_terminal("info", "a.kvpkg", columns=59)[1]))
        self.assertRegex(without_colours(self.on_terminal("info", "a.kvpkg", columns=60)[1]), r"\n  Name +Atlas\n")

    def test_a_table_wraps_its_last_column_or_puts_columns_below(self):
        self.small("a.kvpkg", "--set", "Author=山田 太郎", "--set", "Summary=word" + " word" * 19)
        _, text = self.on_terminal("parts", "a.kvpkg")
        self.assertRegex(text, r"\n/korval/code\.k +\d+ +\d+\n    application/vnd\.quorvane\.korval\.code\n")
        self.assertRegex(text, r"\ndescription {14}word( word)+\n {25}word( word)+\n")
        self.assertRegex(text, r"\ncreator {18}山田 太郎\n")
        _, wide = self.on_terminal("parts", "a.kvpkg", columns=200)
        self.assertEqual(wide, self.ok("parts", "a.kvpkg"))
        self.assertRegex(wide, r"\n/korval/code\.k +application/vnd\.quorvane\.korval\.code +\d+ +\d+\n")
