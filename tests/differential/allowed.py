"""Differences between readers that do no harm, each with its reason. docs/format-kvpkg.md lists them, too."""

import collections
import pathlib
import struct

STREAMING = {"java-stream", "ruby-stream", "libarchive-pipe", "perl-uncompress"}


class Facts:
    """What is odd about a file that we open."""

    def __init__(self, file):
        data = pathlib.Path(file).read_bytes()
        end = data.rfind(b"PK\5\6")
        count, size, _, comment = struct.unpack("<HIIH", data[end + 10:end + 22])
        start = end - size
        if data[end - 20:end - 16] == b"PK\6\7":
            count, size = struct.unpack("<QQ", data[end - 76 + 32:end - 76 + 48])
            start = end - 76 - size
        self.has_front = data[:4] != b"PK\3\4"
        self.has_padding = end + 22 + comment < len(data)
        self.has_stored_descriptor = self.has_empty_descriptor = self.has_one_size = False
        self.has_wide_item = self.has_extra = False
        for _ in range(count):
            flags, method = struct.unpack("<HH", data[start + 8:start + 12])
            sizes = struct.unpack("<II", data[start + 20:start + 28])
            lengths = struct.unpack("<HHH", data[start + 28:start + 34])
            local = struct.unpack("<I", data[start + 42:start + 46])[0]
            self.has_extra |= local == 0xFFFFFFFF
            if data[local:local + 4] == b"PK\3\4":
                flags |= struct.unpack("<H", data[local + 6:local + 8])[0]
                self.has_extra |= data[local + 28:local + 30] != b"\0\0"
                given = struct.unpack("<II", data[local + 18:local + 26])
                self.has_one_size |= bool(flags & 8) and (given[0] == 0) != (given[1] == 0)
            self.has_stored_descriptor |= method == 0 and bool(flags & 8)
            self.has_empty_descriptor |= sizes[1] == 0 and bool(flags & 8)
            self.has_wide_item |= 0xFFFFFFFF in sizes
            start += 46 + sum(lengths)


def is_part(theirs, ours):
    """Whether they see nothing that we do not see. What we cannot read may have any content."""
    unread = {name for name, content in ours if content is None}
    more = collections.Counter(theirs) - collections.Counter(ours)
    return all(name in unread for name, _ in more)


def reason(reader, what, file, ours, theirs):
    """Why it is allowed that `reader` sees something else in this file; None when it is not."""
    facts = Facts(file)
    more = [item for item in theirs if item not in ours]
    if reader in STREAMING and facts.has_front and is_part(theirs, ours):
        return "a reader that starts at the front of the file sees no item where bytes are in front of the first"
    if reader == "java-stream" and facts.has_empty_descriptor and is_part(theirs, ours):
        return "ZipInputStream takes half of the wide descriptor of an empty item, and the rest for the end"
    if facts.has_stored_descriptor and (
            reader == "perl-uncompress" or (reader in STREAMING and is_part(theirs, ours))):
        return "a reader that starts at the front cannot tell where a stored item ends that a descriptor follows"
    if reader in STREAMING and is_part(theirs, ours) and any(content is None for _, content in ours):
        return "a reader that starts at the front ends at a damaged item, without a word"
    if reader == "ruby-stream" and is_part(theirs, ours) and (facts.has_extra or facts.has_one_size):
        return "rubyzip's InputStream ends at an extra field that it cannot read, and where a local header " \
            "gives one size only, without a word"
    if reader == "perl-uncompress" and facts.has_padding and [name for name, _ in more] == [b""]:
        return "IO::Uncompress::Unzip takes zeros after the end for an item without a name"
    if reader == "busybox" and facts.has_wide_item and is_part(theirs, ours):
        return "busybox unzip does not know zip64, and leaves such items out"
    return None
