"""What is installed beside the tool: completions, the thumbnailer, man pages."""
import gzip
import os
import pathlib
import shlex
import subprocess
import unittest
import xml.etree.ElementTree as ElementTree

from support import EXAMPLE, QZAPP as TOOL, ToolTest

QZAPP = pathlib.Path(TOOL)

SHARE = pathlib.Path(__file__).parents[2] / "tools/qzapp/share"
COMPLETIONS = SHARE / "completions"
ENVIRONMENT = {**os.environ, "PATH": f"{QZAPP.parent}:{os.environ['PATH']}"}

BASH = """
. /usr/share/bash-completion/bash_completion
. {script}
COMP_WORDS=({words}) COMP_LINE='{line}' COMP_POINT={length} COMP_CWORD={last}
_qzapp qzapp
printf '%s\\n' "${{COMPREPLY[@]}}"
"""


def run(*command, cwd=None):
    return subprocess.run(command, cwd=cwd, env=ENVIRONMENT, check=True, capture_output=True,
                          text=True).stdout


def bash(line):
    words = line.split(" ")
    return run("bash", "-c", BASH.format(
        script=COMPLETIONS / "qzapp.bash", words=shlex.join(words), line=line, length=len(line),
        last=len(words) - 1), cwd=EXAMPLE).split()


def fish(line):
    script = f"source {COMPLETIONS}/qzapp.fish; complete -C '{line}'"
    return [choice.split("\t")[0] for choice in run("fish", "-c", script, cwd=EXAMPLE).splitlines()]


def zsh(*arguments):
    functions = (COMPLETIONS / "qzapp.zsh").read_text().replace('_qzapp "$@"', "")
    script = functions + "_qzapp_described " + shlex.join(arguments)
    return run("zsh", "-f", "-c", script).splitlines()


class Share(ToolTest):
    def test_completions_follow_the_help(self):
        for complete in bash, fish:
            with self.subTest(complete.__name__):
                self.assertIn("convert", complete("qzapp con"))
                self.assertNotIn("edit", complete("qzapp con"))
                self.assertLessEqual({"--set", "--screenshot"}, set(complete("qzapp edit --s")))
                self.assertIn("heatfield.k", complete("qzapp info heat"))
        self.assertIn("convert:Make a packaged app of a text app", zsh("Verbs"))
        self.assertIn("--set:Set one field; goes before --metadata. Repeat it for the items of a list",
                      zsh("[A-Z][a-z]+", "edit"))

    def test_the_thumbnailer_gives_the_apps_picture(self):
        entry = (SHARE / "desktop/qzapp.thumbnailer").read_text()
        command = next(line[5:] for line in entry.splitlines() if line.startswith("Exec="))
        picture = (EXAMPLE / "screenshot.png").read_bytes()
        for app in self.dir / self.create(), EXAMPLE / "heatfield.k":
            out = self.dir / "thumbnail.png"
            run(*(word.replace("%i", str(app)).replace("%o", str(out))
                  for word in shlex.split(command)))
            self.assertEqual(out.read_bytes(), picture)

    def test_the_file_types_are_those_of_the_thumbnailer(self):
        types = [kind.get("type") for kind in
                 ElementTree.parse(SHARE / "desktop/qzapp.xml").getroot()]
        self.assertIn("MimeType=" + "".join(f"{name};" for name in types),
                      (SHARE / "desktop/qzapp.thumbnailer").read_text())

    def test_each_verb_has_a_man_page(self):
        pages = QZAPP.parents[1] / "man"
        verbs = bash("qzapp ")
        self.assertGreaterEqual(len(verbs), 7)
        for verb in verbs:
            page = gzip.open(pages / f"qzapp-{verb}.1.gz", "rt").read()
            self.assertIn(f".TH QZAPP-{verb.upper()} ", page)
            self.assertIn("help", page)


if __name__ == "__main__":
    unittest.main()
