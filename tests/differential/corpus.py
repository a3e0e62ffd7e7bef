"""Zip files as nobody would write them: whole ones whose records were changed, doubled, moved and mixed.

Each file is made from a number, so that any of them can be made again.
"""

import dataclasses
import random
import struct
import zlib

LOCAL, CENTRAL, END = b"PK\3\4", b"PK\1\2", b"PK\5\6"
WIDE_END, LOCATOR, DESCRIPTOR = b"PK\6\6", b"PK\6\7", b"PK\7\10"
NAMES = ["a", "b.txt", "model.kvd", "code.k", "docProps/core.xml", "[Content_Types].xml", "x/y", "x/z"]
NUMBERS = [0, 1, 2, 4, 21, 22, 0x2D, 0x7FFF, 0xFFFE, 0xFFFF, 0x10000, 0x7FFFFFFF, 0xFFFFFFFE, 0xFFFFFFFF]


def little(number, size):
    return (number & ((1 << 8 * size) - 1)).to_bytes(size, "little")


def field(identifier, content):
    return struct.pack("<HH", identifier & 0xFFFF, len(content) & 0xFFFF) + content


@dataclasses.dataclass
class Item:
    """`own` holds fields of the directory's record that are not what they should be, `local` those of the
    local header: name, flags, method, crc, compressed, size, extra; version and offset; attributes."""
    name: bytes
    content: bytes = b""
    method: int = 0
    flags: int = 0
    descriptor: int = 0
    wide: bool = False
    extra: bytes = b""
    local_extra: bytes = b""
    comment: bytes = b""
    before: bytes = b""
    behind: bytes = b""        # between data and descriptor
    listed: bool = True
    own: dict = dataclasses.field(default_factory=dict)
    local: dict = dataclasses.field(default_factory=dict)

    def data(self):
        if self.method != 8:
            return self.content
        deflater = zlib.compressobj(6, zlib.DEFLATED, -15)
        return deflater.compress(self.content) + deflater.flush()


@dataclasses.dataclass
class Zip:
    items: list
    comment: bytes = b""
    front: bytes = b""
    is_front_counted: bool = True
    before_directory: bytes = b""
    behind_directory: bytes = b""
    before_end: bytes = b""
    behind_end: bytes = b""
    wide: bool = False
    end: dict = dataclasses.field(default_factory=dict)
    wide_end: dict = dataclasses.field(default_factory=dict)
    locator: dict = dataclasses.field(default_factory=dict)
    order: list = None         # of the directory's records


def local_header(item, data):
    facts = {"version": 20, "flags": item.flags | (8 if item.descriptor else 0), "method": item.method,
             "time": 0, "date": 0x5821, "crc": zlib.crc32(item.content), "compressed": len(data),
             "size": len(item.content), "name": item.name, "extra": item.local_extra}
    if item.descriptor:
        facts |= {"crc": 0, "compressed": 0, "size": 0}
    if item.wide:
        facts["extra"] += field(1, little(facts["size"], 8) + little(facts["compressed"], 8))
        facts |= {"compressed": 0xFFFFFFFF, "size": 0xFFFFFFFF}
    facts |= item.local
    header = LOCAL
    for name, size in (("version", 2), ("flags", 2), ("method", 2), ("time", 2), ("date", 2), ("crc", 4),
                       ("compressed", 4), ("size", 4)):
        header += little(facts[name], size)
    header += little(facts.get("name_length", len(facts["name"])), 2)
    header += little(facts.get("extra_length", len(facts["extra"])), 2)
    return header + facts["name"] + facts["extra"]


def descriptor(item, data):
    if not item.descriptor:
        return b""
    width = 8 if item.descriptor >= 20 else 4
    return ((DESCRIPTOR if item.descriptor in (16, 24) else b"") + little(zlib.crc32(item.content), 4) +
            little(len(data), width) + little(len(item.content), width))


def central_record(item, data, offset):
    facts = {"made_by": 20, "version": 20, "flags": item.flags | (8 if item.descriptor else 0),
             "method": item.method, "time": 0, "date": 0x5821, "crc": zlib.crc32(item.content),
             "compressed": len(data), "size": len(item.content), "disk": 0, "internal": 0, "attributes": 0,
             "offset": offset, "name": item.name, "extra": item.extra, "comment": item.comment}
    facts |= {name: value for name, value in item.own.items() if name != "shift"}
    facts["offset"] += item.own.get("shift", 0)
    if item.wide:
        facts["extra"] = field(1, b"".join(little(facts[n], 8) for n in ("size", "compressed", "offset"))) \
            + facts["extra"]
        facts |= {"compressed": 0xFFFFFFFF, "size": 0xFFFFFFFF, "offset": 0xFFFFFFFF}
    record = CENTRAL
    for name, size in (("made_by", 2), ("version", 2), ("flags", 2), ("method", 2), ("time", 2), ("date", 2),
                       ("crc", 4), ("compressed", 4), ("size", 4)):
        record += little(facts[name], size)
    for name in ("name", "extra", "comment"):
        record += little(facts.get(f"{name}_length", len(facts[name])), 2)
    for name, size in (("disk", 2), ("internal", 2), ("attributes", 4), ("offset", 4)):
        record += little(facts[name], size)
    return record + facts["name"] + facts["extra"] + facts["comment"]


def end_record(count, size, offset, comment=b"", changed=None, **more):
    facts = {"disk": 0, "directory_disk": 0, "count_here": min(count, 0xFFFF), "count": min(count, 0xFFFF),
             "size": size, "offset": offset, "comment_length": len(comment)} | (changed or {}) | more
    return (END + b"".join(little(facts[name], width) for name, width in
                           (("disk", 2), ("directory_disk", 2), ("count_here", 2), ("count", 2), ("size", 4),
                            ("offset", 4), ("comment_length", 2))) + comment)


def wide_records(count, size, offset, at, wide_end=None, locator=None):
    facts = {"rest": 44, "made_by": 45, "version": 45, "disk": 0, "directory_disk": 0, "count_here": count,
             "count": count, "size": size, "offset": offset, "behind": b""} | (wide_end or {})
    record = WIDE_END + b"".join(little(facts[name], width) for name, width in
                                 (("rest", 8), ("made_by", 2), ("version", 2), ("disk", 4),
                                  ("directory_disk", 4), ("count_here", 8), ("count", 8), ("size", 8),
                                  ("offset", 8))) + facts["behind"]
    where = {"disk": 0, "at": at, "disks": 1} | (locator or {})
    return record + LOCATOR + little(where["disk"], 4) + little(where["at"], 8) + little(where["disks"], 4)


def build(zip_file):
    """The bytes, and where its records are."""
    out = bytearray(zip_file.front)
    base = 0 if zip_file.is_front_counted else len(zip_file.front)
    records = []
    for item in zip_file.items:
        out += item.before
        data = item.data()
        if item.listed:
            records.append(central_record(item, data, len(out) - base))
        out += local_header(item, data) + data + item.behind + descriptor(item, data)
    out += zip_file.before_directory
    if zip_file.order:
        records = [records[i] for i in zip_file.order if i < len(records)]
    directory = b"".join(records)
    offset = len(out) - base
    out += directory + zip_file.behind_directory
    wide = {}
    if zip_file.wide:
        out += wide_records(len(records), len(directory), offset, len(out) - base, zip_file.wide_end,
                            zip_file.locator)
        wide = {"count": 0xFFFF, "count_here": 0xFFFF, "size": 0xFFFFFFFF, "offset": 0xFFFFFFFF}
    out += zip_file.before_end
    out += end_record(len(records), len(directory), offset, zip_file.comment, wide | zip_file.end)
    return bytes(out + zip_file.behind_end)


def positions(data):
    """Where records seem to start."""
    found = []
    at = data.find(b"PK")
    while at >= 0:
        if data[at:at + 4] in (LOCAL, CENTRAL, END, WIDE_END, LOCATOR, DESCRIPTOR):
            found.append(at)
        at = data.find(b"PK", at + 1)
    return found


class Maker:
    """Makes one file, from one number."""

    def __init__(self, seed):
        self.r = random.Random(seed)
        self.did = []

    def pick(self, *choices):
        return self.r.choice(choices)

    def chance(self, part):
        return self.r.random() < part

    def make(self):
        kind = self.r.choices([self.changed, self.doubled, self.second_list, self.spliced, self.nested, self.named,
                               self.bytes_changed, self.kinds], [4, 1, 7, 2, 2, 2, 3, 1])[0]
        self.did.append(kind.__name__)
        return kind()

    # What is good.

    def text(self, size=None):
        size = self.r.choice([0, 1, 5, 40, 300]) if size is None else size
        return bytes(self.r.choice(b"abcdefgh ") for _ in range(size))

    def item(self, name):
        item = Item(name.encode(), self.text(), self.pick(0, 8))
        if self.chance(0.15):
            item.descriptor = self.pick(12, 16, 20, 24)
        if self.chance(0.1):
            item.wide = not item.descriptor
        if self.chance(0.1):
            item.comment = self.text(9)
        if self.chance(0.1):
            item.extra = item.local_extra = field(0x5455, b"\1" + little(0x65000000, 4))
        return item

    def good(self, names=NAMES, most=4):
        count = self.r.randint(1, most)
        result = Zip([self.item(name) for name in self.r.sample(names, count)])
        result.wide = self.chance(0.15)
        if self.chance(0.1):
            result.comment = self.text(12)
        if self.chance(0.05):
            result.front = b"#!/bin/sh\n"
        return result

    def other(self):
        """With names and content of its own, and some of the same names."""
        result = self.good(["model.kvd", "code.k", "evil", "b.txt"], 2)
        for item in result.items:
            item.content = b"evil" + self.text(4)
        return result

    # What is not.

    def number(self, *near):
        some = list(near) * 3 + NUMBERS + [self.r.randrange(1 << 16), self.r.randrange(400)]
        return self.r.choice(some) + self.pick(0, 0, 0, 0, 1, -1, 22, -22, 56, 76)

    def strange(self, end=0):
        """Bytes to be put where none belong; `end` is about where."""
        kind = self.pick("zeros", "text", "header", "record", "end", "wide", "locator", "archive", "piece",
                         "descriptor")
        self.did.append(kind)
        item = Item(b"evil", b"evil")
        if kind == "zeros":
            return bytes(self.r.choice([1, 3, 4, 16, 22, 100]))
        if kind == "text":
            return self.text(self.r.choice([1, 2, 4, 30]))
        if kind == "header":
            return local_header(item, b"evil") + self.pick(b"", b"evil")
        if kind == "record":
            return central_record(item, b"evil", self.number(0, end))
        if kind == "end":
            return end_record(self.pick(0, 1, 2), self.number(0, 50), self.number(0, end),
                              comment_length=self.number(0, 22), disk=self.pick(0, 0, 0xFFFF))
        if kind == "wide":
            return wide_records(self.pick(0, 1), self.number(50), self.number(end), self.number(end),
                                locator={"disks": self.pick(0, 1, 2)})
        if kind == "locator":
            return LOCATOR + little(0, 4) + little(self.number(end), 8) + little(1, 4)
        if kind == "descriptor":
            return descriptor(Item(b"", self.text(3), descriptor=self.pick(12, 16, 20, 24)), b"abc")
        archive = build(self.other())
        if kind == "archive":
            return archive
        start = self.r.choice([0] + positions(archive))
        return archive[start:self.r.choice([len(archive)] + positions(archive))]

    def extra_field(self, end=0):
        kind = self.pick(1, 1, 0x7075, 0x6375, 0x6C78, 0x5455, 0x7875, 0x000A, 0x000D, 0xA220, 0xD935, 0xCAFE,
                         0x9901, 7)
        self.did.append(f"extra {kind:04x}")
        content = {
            1: lambda: b"".join(little(self.number(end, 4), 8) for _ in range(self.r.randint(0, 4))),
            0x7075: lambda: b"\1" + little(zlib.crc32(b"a"), 4) + self.pick(b"a", b"model.kvd", b"evil"),
            0x6375: lambda: b"\1" + little(0, 4) + self.text(3),
            7: lambda: self.strange(end),
        }.get(kind, lambda: self.text(self.pick(0, 2, 5, 12)))()
        return field(kind, content) + (bytes(self.r.randint(1, 4)) if self.chance(0.1) else b"")

    def change_item(self, zip_file, item):
        what = self.pick("before", "behind", "extra", "comment", "number", "name", "flags", "method", "both",
                         "descriptor", "listed", "version", "time", "stored")
        self.did.append(what)
        end = len(build(zip_file))
        if what == "before":
            item.before = self.strange(end)
        elif what == "behind":
            item.behind = self.strange(end)
        elif what == "extra":
            extra = self.extra_field(end)
            where = self.pick("local", "directory", "both")
            if where != "local":
                item.extra += extra
            if where != "directory":
                item.local_extra += extra
        elif what == "comment":
            item.comment = self.strange(end)
        elif what == "number":
            name = self.pick("crc", "compressed", "size", "offset", "disk", "shift", "internal", "attributes",
                             "name_length", "extra_length", "comment_length")
            target = self.pick(item.own, item.local) if name in ("crc", "compressed", "size") else item.own
            target[name] = self.number(len(item.content), len(item.data()))
        elif what == "name":
            self.pick(item.own, item.local)["name"] = self.pick(b"evil", item.name + b"/", b"", item.name.upper())
        elif what == "flags":
            flags = 1 << self.r.randrange(16)
            target = self.pick("both", "own", "local")
            if target == "both":
                item.flags |= flags
            else:
                getattr(item, target)["flags"] = item.flags | flags
        elif what == "method":
            self.pick(item.own, item.local)["method"] = self.pick(0, 8, 1, 9, 12, 99)
        elif what == "both":
            for name in self.r.sample(["crc", "compressed", "size", "method", "name"], self.r.randint(1, 3)):
                value = {"name": b"evil", "method": self.pick(0, 8)}.get(
                    name, self.number(len(item.content), len(item.data())))
                item.own[name] = item.local[name] = value
        elif what == "descriptor":
            item.descriptor = self.pick(12, 16, 20, 24)
            item.local |= {self.pick("crc", "compressed", "size"): self.number(len(item.content))}
        elif what == "listed":
            item.listed = False
        elif what in ("version", "time"):
            item.own[what] = item.local[what] = self.number(45)
        elif what == "stored":
            item.method = 0
            item.content = self.strange(end)

    def change_zip(self, zip_file):
        what = self.pick("front", "before_directory", "behind_directory", "before_end", "behind_end", "comment",
                         "end", "wide_end", "locator", "order", "wide", "front_uncounted")
        self.did.append(what)
        end = len(build(zip_file))
        if what in ("front", "before_directory", "behind_directory", "before_end", "behind_end", "comment"):
            setattr(zip_file, what, self.strange(end))
        elif what == "front_uncounted":
            zip_file.front, zip_file.is_front_counted = self.strange(end), False
        elif what == "end":
            zip_file.end[self.pick("disk", "directory_disk", "count_here", "count", "size", "offset",
                                   "comment_length")] = self.number(len(zip_file.items), end)
        elif what == "wide_end":
            zip_file.wide = True
            zip_file.wide_end[self.pick("rest", "version", "disk", "directory_disk", "count_here", "count", "size",
                                        "offset")] = self.number(len(zip_file.items), end, 44)
            if self.chance(0.3):
                zip_file.wide_end["behind"] = self.strange(end)
                zip_file.wide_end["rest"] = 44 + len(zip_file.wide_end["behind"])
        elif what == "locator":
            zip_file.wide = True
            zip_file.locator[self.pick("disk", "at", "disks")] = self.number(1, end)
        elif what == "order":
            zip_file.order = self.r.sample(range(len(zip_file.items)), len(zip_file.items))
        elif what == "wide":
            zip_file.wide = True
            for name, value in (("count", 0xFFFF), ("count_here", 0xFFFF), ("size", 0xFFFFFFFF),
                                ("offset", 0xFFFFFFFF)):
                if self.chance(0.5):
                    zip_file.end[name] = self.number(value)

    def changed(self):
        zip_file = self.good()
        for _ in range(self.r.choice([1, 1, 1, 2, 2, 3])):
            if self.chance(0.6):
                self.change_item(zip_file, self.r.choice(zip_file.items))
            else:
                self.change_zip(zip_file)
        return build(zip_file)

    def doubled(self):
        """Two items of one name, or in one place."""
        zip_file = self.good()
        first = self.r.choice(zip_file.items)
        second = dataclasses.replace(first, content=b"evil" + self.text(3), own={}, local={})
        zip_file.items.insert(self.r.randint(0, len(zip_file.items)), second)
        if self.chance(0.7):
            setattr(second, self.pick("listed", "listed"), False)
        if self.chance(0.3):
            second.local["name"] = b"x" + first.name
        return build(zip_file)

    def kinds(self):
        """Attributes, with the system that they are for."""
        zip_file = self.good()
        item = self.r.choice(zip_file.items)
        mode = self.pick(0, 0o100644, 0o040755, 0o010644, 0o120777, 0o020644, 0o060644, 0o140644,
                         self.r.randrange(1 << 16))
        item.own["attributes"] = mode << 16 | self.pick(0, 0, 0x20, 0x08, 0x10, 0x18, self.r.randrange(256))
        item.own["made_by"] = self.pick(0, 1, 2, 3, 6, 7, 10, 11, 14, 18, 19, 20) << 8 | 20
        if self.chance(0.3):
            item.name = item.name + self.pick(b"/", b"\\", b":")
        if self.chance(0.3):
            item.content = b""
        self.did.append(f"{item.own['made_by'] >> 8} {item.own['attributes']:08x}")
        return build(zip_file)

    # A second list of items, and something that leads to it.

    def leads(self, count, size, directory, at, end, start):
        """Records that lead to the directory, to stand at `at`; `start` is what other offsets may count from."""
        count, base = self.pick(count, count, 0xFFFF), self.pick(0, 0, 0, start)
        how = self.pick("end", "end", "end wide", "locator", "disk", "wide alone")
        self.did.append(how)
        reach = max(0, end - at - 22)
        length = self.pick(0, reach, reach, reach + self.r.randint(-3, 3), self.r.randrange(300)) & 0xFFFF
        if how == "end":
            return end_record(count, size, directory - base, comment_length=length)
        if how == "disk":
            return end_record(count, size, directory - base, comment_length=length, disk=0xFFFF,
                              directory_disk=self.pick(0, 0xFFFF))
        wide = wide_records(1, size, directory - base, at - base)
        if how == "end wide":
            length = self.pick(0, max(0, reach - 76)) & 0xFFFF
            return wide + end_record(0xFFFF, 0xFFFFFFFF, 0xFFFFFFFF, comment_length=length)
        if how == "locator":
            return wide
        return wide[:56]

    def second_list(self):
        """In two rounds: sizes do not depend on offsets."""
        zip_file = self.good()
        if self.chance(0.3):
            zip_file.behind_end = bytes(self.r.choice([0, 1, 4, 22, 100]))
        if self.chance(0.2):
            zip_file.front = self.text(10)
        if self.chance(0.15):
            zip_file.end |= {"disk": 0xFFFF} | ({"directory_disk": 0xFFFF} if self.chance(0.5) else {})
            self.did.append("FFFF")
        evil = Item(self.pick(b"evil", zip_file.items[0].name, b"model.kvd"), b"evil data")
        places = ["front", "before", "stored", "stored last", "extra", "local extra", "item comment", "comment",
                  "before_directory", "behind_directory", "before_end", "behind_end"]
        split = self.chance(0.4)
        first_place, second_place = self.pick(*places), self.pick(*places)
        self.did.append(first_place + (" and " + second_place if split else ""))
        state = self.r.getstate()
        did = list(self.did)
        # Marks show where the pieces come to stand.
        marks = (b"\xA5" * 4 + b"one!", b"\xA5" * 4 + b"two!")
        sizes = None
        for _ in range(3):
            self.r.setstate(state)
            self.did = list(did)
            header = local_header(evil, evil.content) + evil.content
            at_list, at_lead, end, header_at = (0, 0, 0, 0) if sizes is None else sizes
            record = central_record(evil, evil.content, header_at)
            pad = self.text(self.r.choice([0, 0, 0, 3, 22]))
            has_header = self.chance(0.6)
            if not has_header:
                header, record = b"", central_record(evil, evil.content, 0)
            piece = header + record + pad
            lead = self.leads(1, len(record), at_list + len(header), at_lead if split else at_list + len(piece),
                              end, at_list)
            trial = dataclasses.replace(zip_file, items=[dataclasses.replace(i) for i in zip_file.items])
            blocks = [(first_place, marks[0] + piece + (b"" if split else lead))]
            if split:
                blocks.append((second_place, marks[1] + lead))
            for place, block in blocks:
                self.put(trial, place, block)
            whole = build(trial)
            one, two = whole.find(marks[0]), whole.find(marks[1])
            # Without the marks, which are as long as each other.
            at_list = one - (8 if split and 0 <= two < one else 0)
            at_lead = two - (8 if split and 0 <= one < two else 0)
            sizes = at_list, at_lead, len(whole) - (16 if split else 8), at_list
            final = dataclasses.replace(zip_file, items=[dataclasses.replace(i) for i in zip_file.items])
            for place, block in blocks:
                self.put(final, place, block[8:])
        return build(final)

    def put(self, zip_file, place, block):
        if place in ("front", "before_directory", "behind_directory", "before_end", "behind_end", "comment"):
            setattr(zip_file, place, getattr(zip_file, place) + block)
        elif place == "before":
            zip_file.items[-1].before += block
        elif place == "stored":
            zip_file.items.insert(0, Item(b"held", block))
        elif place == "stored last":
            zip_file.items.append(Item(b"held", block))
        elif place == "extra":
            zip_file.items[-1].extra += field(7, block)
        elif place == "local extra":
            zip_file.items[-1].local_extra += field(7, block)
        elif place == "item comment":
            zip_file.items[-1].comment += block

    # Two files in one.

    def spliced(self):
        first, second = build(self.good()), build(self.other())
        how = self.pick("behind", "within", "cut", "mixed", "padded")
        self.did.append(how)
        if how == "behind":
            return first + second
        if how == "padded":
            return first + second + bytes(self.r.choice([1, 4, 22, 70000]))
        if how == "within":
            at = self.r.choice(positions(first))
            return first[:at] + second + first[at:]
        if how == "cut":
            return first[:self.r.choice(positions(first))] + second[self.r.choice(positions(second)):]
        pieces = []
        for _ in range(self.r.randint(2, 4)):
            of = self.pick(first, second)
            start, stop = sorted(self.r.sample([0] + positions(of) + [len(of)], 2))
            pieces.append(of[start:stop])
        return b"".join(pieces) + first[self.r.choice(positions(first)):]

    def nested(self):
        inner = self.other()
        inner.wide = self.chance(0.5)
        if self.chance(0.2):
            inner.comment = bytes(self.r.choice([10, 200, 2000]))
        if self.chance(0.3):
            inner.end["comment_length"] = self.r.randrange(600)
        content = build(inner)
        if self.chance(0.2):
            content = content[:self.r.choice(positions(content))]
        if self.chance(0.2):
            content += bytes(30)
        zip_file = self.good()
        held = Item(self.pick(b"model.kvd", b"held.zip"), content, self.pick(0, 0, 0, 8))
        zip_file.items = [item for item in zip_file.items if item.name != held.name]
        zip_file.items.insert(self.r.randint(0, len(zip_file.items)), held)
        if self.chance(0.3):
            held.descriptor = self.pick(12, 16, 20, 24)
        if self.chance(0.5):
            zip_file.behind_end = self.pick(b"\0", bytes(22), bytes(3000), b"x", b"PK")
        if self.chance(0.3):
            self.change_zip(zip_file)
        return build(zip_file)

    def named(self):
        """Two names that a reader may hold for one, in two items."""
        zip_file = self.good()
        name = self.r.choice(["model.kvd", "x/y"])
        tricks = [name.upper(), "./" + name, "/" + name, name + "/", name + "\x7f", "\x01" + name, name + ";1",
                  "C:" + name, "c:/" + name, "//?/c:/" + name, "\ufeff" + name, name + ".", name + " ",
                  name.replace("e", "\u00e9"), name.replace("e", "e\u0301"), "", name.replace("/", "\\"),
                  name + "/z", "x", name + ":a", name + "\t", name.replace("o", "%6f"), "\u212a" + name, name + "\n",
                  name.replace("m", "\uff4d"), "../" + name, "a/../" + name, name + "\u200b", name + "*", name + "?"]
        pair = [name, self.r.choice(tricks)] if self.chance(0.8) else self.r.sample(tricks, 2)
        self.did.append(repr(pair))
        zip_file.items = [item for item in zip_file.items if item.name.decode() not in pair]
        for text in pair:
            raw = text.encode(self.pick("utf-8", "utf-8", "cp437"), "replace")
            item = Item(raw, self.text(5) + b"!", flags=0x800 if self.chance(0.5) else 0)
            if raw.endswith(b"/") and self.chance(0.7):
                item.content = b""
            zip_file.items.append(item)
        if self.chance(0.2):
            item = self.r.choice(zip_file.items)
            item.name, item.flags = bytes(self.r.randrange(128, 256) for _ in range(3)), 0x800
        self.r.shuffle(zip_file.items)
        return build(zip_file)

    def bytes_changed(self):
        """Numbers and bytes changed near the records, also several of one item together."""
        source = self.good() if self.chance(0.7) else self.other()
        data = bytearray(build(source))
        for _ in range(self.r.choice([1, 1, 2, 3])):
            records = positions(data)
            if not records:
                break
            at = self.r.choice(records) + self.r.randrange(4, 60)
            size = self.pick(1, 1, 2, 2, 4)
            if at + size > len(data):
                continue
            if self.chance(0.5):
                data[at] ^= 1 << self.r.randrange(8)
            else:
                old = int.from_bytes(data[at:at + size], "little")
                data[at:at + size] = little(self.number(old, len(data)), size)
        return bytes(data)


def make(seed, number):
    maker = Maker(f"{seed}/{number}")
    return maker.make(), maker.did
