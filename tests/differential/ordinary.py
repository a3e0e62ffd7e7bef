"""Zip files by ordinary programs, with as many of their options as make a difference."""

import dataclasses
import itertools
import os
import pathlib
import random
import subprocess

HERE = pathlib.Path(__file__).resolve().parent
WRITERS = HERE / "writers"


@dataclasses.dataclass
class File:
    name: str
    path: pathlib.Path
    refused: bool


def tree(folder):
    """What is packed."""
    r = random.Random(1)
    (folder / "sub" / "empty").mkdir(parents=True)
    (folder / "a.txt").write_text("some text, and more of it\n" * 40)
    (folder / "b.bin").write_bytes(r.randbytes(70000))
    (folder / "none").write_bytes(b"")
    (folder / "sub" / "c d.txt").write_text("c")
    (folder / "sub" / "größe.txt").write_text("größe")
    (folder / "link").symlink_to("a.txt")


ALL = "a.txt b.bin none sub"


def zip_rows():
    for level, *more in itertools.product("0169", ["", "-X"], ["", "-D"], ["", "-fz"]):
        options = " ".join(each for each in more if each)
        yield f"zip -{level} {options}", f"zip -q -r -{level} {options} OUT {ALL}"
    for options in ("-j", "-k", "-l", "-ll", "-UN=UTF8", "-UN=Escape", "-fz-", "-o", "-y", "-n .txt",
                    "-t 2001-01-01", "-FS", "-db", "-nw"):
        yield f"zip {options}", f"zip -q -r {options} OUT {ALL}"
    for options in ("", "-fz-", "-0", "-X", "-9"):
        yield f"zip {options} from a pipe", f"cat a.txt | zip -q {options} OUT -"
        yield f"zip {options} to a pipe", f"zip -q -r {options} - {ALL} | cat >OUT"
        if options != "-0":  # which breaks its file
            yield f"zip {options} from a pipe to a pipe", f"cat a.txt | zip -q {options} | cat >OUT"
    yield "zip -fz from a pipe", f"cat a.txt | zip -q -fz OUT -"
    yield "refused: zip -fz to a pipe, without a locator", f"zip -q -r -fz - {ALL} | cat >OUT"
    yield "zip with a comment", f"echo comment | zip -q -z OUT {ALL}"
    yield "zip with comments of items", "printf 'one\\ntwo\\n' | zip -q -c OUT a.txt b.bin"
    yield "zip, changed", f"zip -q -r OUT {ALL} && touch a.txt && zip -q OUT a.txt && zip -q OUT none"
    yield "zip, deleted", f"zip -q -r OUT {ALL} && zip -q -d OUT a.txt"
    yield "zip, grown", "zip -q OUT a.txt && zip -q -g OUT b.bin"
    yield "zip, of itself", f"zip -q -0 inner.zip a.txt b.bin && zip -q -0 OUT inner.zip none"
    yield "zip, of a zip64 file", f"zip -q -fz inner64.zip a.txt && zip -q -9 OUT inner64.zip none"
    yield "zip behind a program", f"zip -q -r in.zip {ALL} && (printf '#!/bin/sh\\n' && cat in.zip) >OUT && zip -q -A OUT"
    yield "zip with zeros behind", f"zip -q -r OUT {ALL} && head -c 512 /dev/zero >>OUT"
    yield "zip of nothing left", "zip -q OUT a.txt && zip -q -d OUT a.txt; test -e OUT || printf 'PK\\5\\6%018d' 0 | tr 0 '\\0' >OUT"
    yield "refused: zip encrypted", f"zip -q -P secret OUT a.txt"
    yield "refused: zip with bzip2", f"zip -q -Z bzip2 OUT a.txt"
    yield "refused: zip of a link", f"zip -q -y OUT link"


def seven_rows():
    for level, options in itertools.product((0, 1, 5, 7, 9), ("", "-mcu=on", "-mcl=on", "-mtc=off", "-mmt=2")):
        yield f"7z -mx={level} {options}", f"7z a -bd -tzip -mx={level} {options} OUT {ALL}"
    for options in ("-mm=Copy", "-mm=Deflate", "-mfb=100", "-mpass=3", "-stl", "-ssc", "-r", "-spf2", "-sccUTF-8"):
        yield f"7z {options}", f"7z a -bd -tzip {options} OUT {ALL}"
    yield "7z from a pipe", "cat a.txt | 7z a -bd -tzip -sia.txt OUT"
    yield "7z from a pipe, stored", "cat b.bin | 7z a -bd -tzip -mx=0 -sib.bin OUT"
    yield "7z from a pipe to a pipe", "cat a.txt | 7z a -bd -tzip -sia.txt -so dummy | cat >OUT"
    yield "7z to a pipe", f"7z a -bd -tzip -so dummy {ALL} | cat >OUT"
    yield "7z, updated", f"7z a -bd -tzip OUT {ALL} && touch a.txt && 7z u -bd -tzip OUT a.txt"
    yield "7z, deleted", f"7z a -bd -tzip OUT {ALL} && 7z d -bd -tzip OUT a.txt"
    yield "7z, renamed", f"7z a -bd -tzip OUT {ALL} && 7z rn -bd -tzip OUT a.txt z.txt"
    for method in ("BZip2", "LZMA", "Deflate64", "PPMd"):
        yield f"refused: 7z {method}", f"7z a -bd -tzip -mm={method} OUT a.txt"
    for method in ("ZipCrypto", "AES256"):
        yield f"refused: 7z {method}", f"7z a -bd -tzip -psecret -mem={method} OUT a.txt"


def bsdtar_rows():
    for options in ("", "zip:compression=store", "zip:compression=deflate", "zip:compression-level=0",
                    "zip:compression-level=1", "zip:compression-level=9", "zip:zip64", "zip:!zip64",
                    "zip:hdrcharset=UTF-8", "zip:hdrcharset=CP437"):
        given = f"--options '{options}'" if options else ""
        yield f"bsdtar {options}", f"bsdtar -c --format zip {given} -f OUT {ALL}"
        yield f"bsdtar {options} to a pipe", f"bsdtar -c --format zip {given} -f - {ALL} | cat >OUT"
    yield "refused: bsdtar zip:experimental", f"bsdtar -c --format zip --options zip:experimental -f OUT {ALL}"
    yield "bsdtar of a tar", f"tar -c {ALL} | bsdtar -c --format zip -f OUT @-"
    yield "bsdtar of a folder", "bsdtar -c --format zip -f OUT sub"
    yield "bsdtar with owners", f"bsdtar -c --format zip --uid 70000 --gid 5 -f OUT {ALL}"
    yield "bsdtar -a", f"bsdtar -a -c -f x.zip {ALL} && mv x.zip OUT"


def script_rows(program, script):
    """One file for each variant that the script names."""
    command = [*program, WRITERS / script]
    listing = subprocess.run([*command, "list"], stdout=subprocess.PIPE, text=True, check=True).stdout
    words = " ".join(str(word) for word in command)
    for variant in listing.split("\n"):
        if variant:
            yield variant, f"{words} '{variant.removeprefix('refused: ')}' OUT"


def java_rows():
    for options in ("cf", "cf0", "cfM", "cfM0", "cfe"):
        main = " Main" if options == "cfe" else ""
        yield f"jar {options}", f"jar {options} OUT{main} {ALL}"
    yield "jar, updated", f"jar cf OUT {ALL} && jar uf OUT a.txt"
    yield "jar, twice", f"jar cf one.jar {ALL} && jar cf0 OUT one.jar"
    yield "jar with a release", f"jar --create --file OUT {ALL} --release 11 a.txt"
    yield "jar of a date", f"jar --create --date=2001-01-01T00:00:00Z --file OUT {ALL}"


def commands():
    yield from zip_rows()
    yield from seven_rows()
    yield from bsdtar_rows()
    yield from java_rows()
    yield from script_rows(["python3"], "zipfile_writer.py")
    yield from script_rows(["perl"], "perl_writer.pl")
    yield from script_rows(["ruby"], "rubyzip_writer.rb")
    yield from script_rows(["php"], "php_writer.php")
    yield from script_rows(["node"], "jszip_writer.js")
    yield from script_rows(["go", "run"], "go_writer.go")
    yield from script_rows(["java"], "JavaWriter.java")


def make(scratch):
    """The files, in a folder of `scratch`; programs that fail are named."""
    made = []
    for number, (name, command) in enumerate(commands()):
        work, path = scratch / "work", scratch / f"ordinary-{number}.zip"
        work.mkdir()
        tree(work)
        done = subprocess.run(["sh", "-e", "-c", command.replace("OUT", str(path))], cwd=work,
                              stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.STDOUT,
                              check=False, env=os.environ | {"LC_ALL": "C.UTF-8"})
        subprocess.run(["rm", "-rf", work], check=True)
        if done.returncode == 0 and path.is_file():
            made.append(File(name, path, name.startswith("refused: ")))
        else:
            print(f"not made: {name}: {done.stdout.decode(errors='replace').strip()[-100:]!r}")
    return made
