#!/usr/bin/env python3
"""Writes appModel.kvd: a container of named arrays.

    "KVD\\1"  u32 count  then for each array:
    u16 length, name; u8 type ("d" float64, "u" uint8); u8 dimensions; u32 each; u64 offset; u32 CRC-32
    and the arrays, column by column, each on a multiple of 16 bytes. Everything little-endian.
"""

import pathlib
import struct
import zlib

import heat

HERE = pathlib.Path(__file__).resolve().parent


def doubles(rows):
    columns = zip(*rows)
    return b"".join(struct.pack("<d", value) for column in columns for value in column)


def arrays():
    t = heat.field(150)
    yield "temperature", "d", (heat.ROWS, heat.COLUMNS), doubles(t)
    yield "extent", "d", (1, 2), doubles([(0.36, 0.24)])
    yield "sources", "d", (len(heat.SOURCES), 3), doubles(heat.SOURCES)
    mask = bytes(int(value > heat.EDGE + 5) for column in zip(*t) for value in column)
    yield "warm", "u", (heat.ROWS, heat.COLUMNS), mask


def container(entries):
    entries = list(entries)
    directory_size = sum(2 + len(n) + 2 + 4 * len(d) + 12 for n, _, d, _ in entries)
    offset = -(-(8 + directory_size) // 16) * 16
    directory, body = b"", b""
    for name, kind, dims, data in entries:
        directory += struct.pack("<H", len(name)) + name.encode() + kind.encode()
        directory += struct.pack(f"<B{len(dims)}I", len(dims), *dims)
        directory += struct.pack("<QI", offset + len(body), zlib.crc32(data))
        body += data + bytes(-len(data) % 16)
    head = b"KVD\1" + struct.pack("<I", len(entries)) + directory
    return head + bytes(offset - len(head)) + body


(HERE / "appModel.kvd").write_bytes(container(arrays()))
