"""Writes zip files with Python's zipfile: `zipfile_writer.py VARIANT FILE`, or `... list`."""

import io
import itertools
import shutil
import sys
import zipapp
import zipfile

TREE = ["a.txt", "b.bin", "none", "sub", "sub/c d.txt", "sub/größe.txt"]


class Pipe(io.RawIOBase):
    """Cannot seek."""

    def __init__(self, stream):
        self.stream = stream

    def writable(self):
        return True

    def write(self, data):
        return self.stream.write(data)


def plain(file, method=zipfile.ZIP_DEFLATED, level=None, **options):
    with zipfile.ZipFile(file, "w", method, compresslevel=level, **options) as archive:
        for name in TREE:
            archive.write(name)


def piped(file, **options):
    with open(file, "wb") as stream:
        plain(Pipe(stream), **options)


def wide(file):
    with zipfile.ZipFile(file, "w", zipfile.ZIP_DEFLATED) as archive:
        with archive.open("a.txt", "w", force_zip64=True) as item:
            item.write(b"text" * 100)


def commented(file):
    with zipfile.ZipFile(file, "w") as archive:
        archive.comment = "ein Kommentar, größer".encode()
        info = zipfile.ZipInfo("a.txt", (2001, 1, 1, 0, 0, 0))
        info.comment, info.extra = b"of the item", b"\x07\x00\x02\x00ab"
        archive.writestr(info, "a")


def system(number, attributes):
    def write(file):
        with zipfile.ZipFile(file, "w") as archive:
            info = zipfile.ZipInfo("a.txt")
            info.create_system, info.external_attr = number, attributes
            archive.writestr(info, "a")
    return write


def appended(file):
    plain(file)
    with zipfile.ZipFile(file, "a") as archive:
        archive.writestr("more.txt", "more")


def folders(file):
    with zipfile.ZipFile(file, "w", zipfile.ZIP_DEFLATED) as archive:
        archive.write("sub")
        archive.writestr("sub/x", "x")
        archive.writestr("other/", "")


def application(file):
    with open("__main__.py", "w") as main:
        main.write("print(1)\n")
    zipapp.create_archive(".", file, interpreter="/usr/bin/env python3", filter=lambda path: path.name != "link",
                          compressed=True)


def archived(file):
    shutil.make_archive("made", "zip", "sub")
    shutil.move("made.zip", file)


def many(file):
    with zipfile.ZipFile(file, "w") as archive:
        for number in range(70000):
            archive.writestr(f"{number}", b"")


VARIANTS = {
    f"zipfile {name} {level}{' to a pipe' if is_piped else ''}":
        lambda file, method=method, level=level, is_piped=is_piped:
            (piped if is_piped else plain)(file, method=method, level=level)
    for (name, method), level, is_piped in itertools.product(
        (("stored", zipfile.ZIP_STORED), ("deflated", zipfile.ZIP_DEFLATED)), (None, 0, 1, 5, 9), (False, True))
} | {
    "zipfile without zip64": lambda file: plain(file, allowZip64=False),
    "zipfile with zip64": wide,
    "zipfile with comments and extra fields": commented,
    "zipfile, appended to": appended,
    "zipfile with folders": folders,
    "zipapp": application,
    "shutil": archived,
    "zipfile with 70,000 items": many,
    "refused: zipfile bzip2": lambda file: plain(file, method=zipfile.ZIP_BZIP2),
    "refused: zipfile lzma": lambda file: plain(file, method=zipfile.ZIP_LZMA),
} | {f"zipfile for system {number}": system(number, attributes)
     for number, attributes in ((0, 0x20), (3, 0o100600 << 16), (3, 0), (7, 0o100644 << 16), (10, 0x20), (11, 0x80),
                                (14, 0x20), (19, 0o100644 << 16))}

if sys.argv[1] == "list":
    print("\n".join(VARIANTS))
else:
    (VARIANTS.get(sys.argv[1]) or VARIANTS["refused: " + sys.argv[1]])(sys.argv[2])
