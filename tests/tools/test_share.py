"""What is installed beside the tool: completions, the thumbnailer, man pages."""

import gzip
import os
import re
import shlex
import struct
import subprocess
import unittest
import zlib
import xml.etree.ElementTree as ElementTree

from support import DOCS, EXAMPLE, TOOL, ToolTest

SHARE = DOCS.parent / "tools/qzapp/share"
COMPLETIONS = SHARE / "completions"
LISTS = ["RequiredProducts", "UserComponents", "ImageRelativePaths"]
BASH = """
. /usr/share/bash-completion/bash_completion
. {script}
COMP_WORDS=({words}) COMP_LINE='{line}' COMP_POINT={length} COMP_CWORD={last}
_qzapp qzapp
printf '%s\\n' "${{COMPREPLY[@]}}"
"""


def run(*command):
    environment = {**os.environ, "PATH": f"{TOOL.parent}:{os.environ['PATH']}"}
    return subprocess.run(command, cwd=EXAMPLE, env=environment, check=True, capture_output=True, text=True).stdout


def bash(line):
    words = line.split(" ")
    return run("bash", "-c", BASH.format(script=COMPLETIONS / "qzapp.bash", words=shlex.join(words), line=line,
                                         length=len(line), last=len(words) - 1)).split()


def fish(line):
    choices = run("fish", "-c", f"source {COMPLETIONS}/qzapp.fish; complete -C '{line}'")
    return [choice.split("\t")[0] for choice in choices.splitlines()]


def zsh_function(*call):
    functions = (COMPLETIONS / "qzapp.zsh").read_text().replace('_qzapp "$@"', "")
    return run("zsh", "-f", "-c", functions + shlex.join(call)).splitlines()


def zsh(*arguments):
    return zsh_function("_qzapp_described", *arguments)


def man_page(name):
    """Its lines on 80 columns. Nothing in it may make the formatter complain."""
    page = gzip.open(TOOL.parents[1] / f"man/{name}.1.gz").read()
    shown = subprocess.run(["groff", "-man", "-Kutf8", "-Tutf8", "-P-cbou", "-rLL=80n", "-ww"], input=page, check=True,
                           capture_output=True)
    if shown.stderr:
        raise AssertionError(f"{name}: {shown.stderr.decode()}")
    return shown.stdout.decode().splitlines()


class Share(ToolTest):
    def test_completions_follow_the_help(self):
        for complete in bash, fish:
            with self.subTest(complete.__name__):
                self.assertIn("convert", complete("qzapp con"))
                self.assertNotIn("edit", complete("qzapp con"))
                self.assertLessEqual({"--set", "--screenshot"}, set(complete("qzapp edit --s")))
                self.assertIn("heatfield.k", complete("qzapp info heat"))
                self.assertEqual(set(complete("qzapp edit --clear U")), {"Uuid", "UserComponents"})
                self.assertEqual(complete("qzapp info --field Auth"), ["Author"])
                self.assertEqual(complete("qzapp edit --set Auth"), ["Author="])
                self.assertEqual(set(complete("qzapp edit --add ")), {f"{name}=" for name in LISTS})
                self.assertEqual(complete("qzapp extract --only mo"), ["model"])
                self.assertEqual(complete("qzapp extract --only model,co"), ["model,code"])
                self.assertEqual(complete("qzapp info --columns Name,F"), ["Name,File", "Name,Form"])
                self.assertEqual(complete("qzapp check --format s"), ["sarif"])
                self.assertEqual(complete("qzapp help con"), ["convert"])
        self.assertEqual(zsh_function("_qzapp_fields", "List"), [" ".join(LISTS)])
        self.assertEqual(zsh_function("_qzapp_values", "check", "format"), ["text json sarif github"])
        self.assertIn("convert:Make a packaged app from a text app", zsh("Verbs"))
        self.assertIn("--set:Set one field, whatever --metadata says; repeat it for list items",
                      zsh("[A-Z][a-z]+", "edit"))
        self.assertTrue({"--output", "--help"} <= {line.split(":")[0] for line in zsh("[A-Z][a-z]+", "extract")})

    def test_the_thumbnailer_gives_the_apps_picture(self):
        entry = dict(line.split("=", 1) for line in
                     (SHARE / "desktop/qzapp.thumbnailer").read_text().splitlines() if "=" in line)
        types = [kind.get("type") for kind in ElementTree.parse(SHARE / "desktop/qzapp.xml").getroot()]
        self.assertEqual(entry["MimeType"], "".join(f"{name};" for name in types))
        for app in self.dir / self.create(), EXAMPLE / "heatfield.k":
            words = {"%i": str(app), "%o": str(self.dir / "thumbnail.png")}
            run(*(words.get(word, word) for word in shlex.split(entry["Exec"])))
            self.assertEqual(self.read("thumbnail.png"), (EXAMPLE / "screenshot.png").read_bytes())
        png = b"\x89PNG\r\n\x1a\n\0\0\0\rIHDR"
        jpeg = b"\xff\xd8\xff\xe0\0\x04JF\xff\xff\xc2\0\x0b\x08"
        scan = b"\xff\xda\0\x08\1\1\0\0\x3f\0data\xff\0\xff\xd0data"

        def gif(frames, size=b"\1\0\1\0"):
            return (b"GIF89a\1\0\1\0\x80\0\0" + bytes(6) + b"!\xff\x0bNETSCAPE2.0\3\1\0\0\0" +
                    (b"," + bytes(4) + size + b"\0\2\2D\1\0") * frames + b";")

        def chunk(kind, content):
            return struct.pack(">I", len(content)) + kind + content + struct.pack(">I", zlib.crc32(kind + content))
        small_png = png[:8] + chunk(b"IHDR", b"\0\0\0\x0a" * 2 + b"\x08\2\0\0\0")
        for why, image, is_given in [
            ("a drawing that may hold a script", b"<svg xmlns='http://www.w3.org/2000/svg'/>", False),
            ("another kind", b"RIFF\0\0\0\0WEBP", False),
            ("a size that a number holds and no memory", png + b"\0\1\0\0" * 2, False),
            ("no size", png, False),
            ("many bytes", png + b"\0\0\0\1" * (1 << 20), False),
            ("the largest size", png + b"\0\0\x20\0" * 2, True),
            ("a JPEG image", jpeg + b"\0\1\0\2", True),
            ("a JPEG image without width", jpeg + b"\0\1\0\0", False),
            ("a wide JPEG image", jpeg + b"\0\1\x20\1", False),
            ("a GIF image", b"GIF89a\1\0\1\0", True),
            ("a high GIF image", b"GIF89a\1\0\1\x20", False),
            ("a whole GIF image", gif(1), True),
            ("a GIF image of which a frame is wider than all of it", gif(1, b"\1\x20\1\0"), False),
            ("a GIF image of many large frames", gif(100, b"\0\x10\0\x10"), False),
            ("a whole JPEG image", jpeg + b"\0\1\0\2\1\1\x11\0" + scan + b"\xff\xd9\xff\xc0\0\x0b\x08" + bytes(4),
             True),
            ("a JPEG image with a second, wide frame behind a scan",
             jpeg + b"\0\1\0\2\1\1\x11\0" + scan + b"\xff\xc0\0\x0b\x08\0\1\x20\1", False),
            ("a PNG image with a small text", small_png + chunk(b"zTXt", bytes(900)) + chunk(b"IDAT", bytes(20)), True),
            ("a PNG image with a text that unpacks to much", small_png + chunk(b"zTXt", bytes(100_000)), False),
            ("a PNG image with more pixels than its size", small_png + chunk(b"IDAT", bytes(290_000)), False),
            ("an animation", small_png + chunk(b"acTL", bytes(8)), False),
        ]:
            self.write("shot.png", image)
            self.small("small.kvpkg", "--screenshot", "shot.png", "--force")
            (self.dir / "thumbnail.png").unlink(missing_ok=True)
            words = {"%i": str(self.dir / "small.kvpkg"), "%o": str(self.dir / "thumbnail.png")}
            command = [words.get(word, word) for word in shlex.split(entry["Exec"])]
            environment = {**os.environ, "PATH": f"{TOOL.parent}:{os.environ['PATH']}"}
            given = subprocess.run(command, env=environment, capture_output=True).returncode == 0
            self.assertEqual((given, (self.dir / "thumbnail.png").exists()), (is_given, is_given), why)

    def test_man_pages_say_what_the_help_says(self):
        """Sections, options and examples of each page, as a reader sees them on 80 columns."""
        pages = {"qzapp": ["qzapp"], "qzhost": ["qzhost"], **{f"qzapp-{verb}": ["qzapp", verb] for verb in bash("qzapp ")}}
        self.assertGreaterEqual(len(pages), 9)
        for name, command in pages.items():
            with self.subTest(name):
                lines = man_page(name)
                sections = [line for line in lines if re.fullmatch("[A-Z ]+", line)]
                self.assertEqual(sections[:3], ["NAME", "SYNOPSIS", "DESCRIPTION"])
                self.assertEqual([section for section in sections if section != "EXAMPLES"][-3:],
                                 ["EXIT STATUS", "ENVIRONMENT", "SEE ALSO"])
                self.assertTrue(lines[lines.index("NAME") + 1].startswith(f"       {name} - "))
                text = "\n".join(lines)
                help_text = run(*command, "--help")
                for option in re.findall(r"^  .*?(--[a-z-]+)", help_text, re.MULTILINE):
                    self.assertRegex(text, rf"\n +(-., )?{option}\b")
                examples = re.search(r"^Examples?:\n((?:  .*\n?)+)", help_text, re.MULTILINE)
                for example in examples[1].splitlines() if examples else ():
                    self.assertIn("     " + example, lines)
                others = set(re.findall(r"\b(qz[a-z-]+)\(1\)", text[text.index("SEE ALSO"):]))
                self.assertIn("qzhost" if name == "qzapp" else "qzapp", others)
                self.assertLessEqual(others, set(pages))
        # A verb's own statuses stand in the place of the tool's.
        for name, status in ("qzapp-diff", "       1      different"), ("qzapp-info", "       1      failed"):
            self.assertIn(status, man_page(name))
