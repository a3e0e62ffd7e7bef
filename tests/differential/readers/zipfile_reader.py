"""Reads zip files with Python's zipfile: `zipfile_reader.py items`, or `zipfile_reader.py names`, which asks by name."""

import sys
import zipfile
import zlib


def raw(info):
    encoding = "utf-8" if info.flag_bits & 0x800 else "cp437"
    return info.orig_filename.encode(encoding, "surrogateescape")


def content(archive, wanted):
    size, checksum = 0, 0
    try:
        with archive.open(wanted) as stream:
            while piece := stream.read(65536):
                size += len(piece)
                checksum = zlib.crc32(piece, checksum)
    except Exception:
        return "!"
    return f"{size}:{checksum:08x}"


def read(file, by_name):
    try:
        with zipfile.ZipFile(file) as archive:
            items = "+"
            for info in archive.infolist():
                items += f" {raw(info).hex()}:{content(archive, info.filename if by_name else info)}"
            return items
    except Exception as refusal:
        return f"- {type(refusal).__name__}: {refusal}".replace("\n", " ")


for line in sys.stdin:
    print(read(line.rstrip("\n"), sys.argv[1] == "names"), flush=True)
