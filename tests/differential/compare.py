"""Whether another reader sees in a file what we see."""

import collections
import re

PLAIN = re.compile(rb"[A-Za-z0-9_\[\]-][A-Za-z0-9_.\[\]-]*(/[A-Za-z0-9_\[\]-][A-Za-z0-9_.\[\]-]*)*")


def is_folder(name, content):
    return name.endswith((b"/", b"\\")) and content in (None, "0:00000000")


def files_of(items):
    return [(name, content) for name, content in items if not is_folder(name, content)]


def difference(ours, theirs):
    """None when both see the same items with the same bytes; else in short what differs.

    Names that are not plain may look otherwise: others decode them, or make file names of them, each in
    their own way. Their items are compared by what they hold.
    """
    ours, theirs = files_of(ours), files_of(theirs)
    # What somebody does not let be read is not compared.
    unread = {name for name, content in ours + theirs if content is None}
    mine = collections.Counter((name, None if name in unread else content) for name, content in ours)
    other = collections.Counter((name, None if name in unread else content) for name, content in theirs)
    mine, other = mine - other, other - mine
    if not mine and not other:
        return None
    if {name for name, _ in mine} & {name for name, _ in other}:
        return "another content"
    if sum(mine.values()) != sum(other.values()):
        return "fewer items" if sum(mine.values()) > sum(other.values()) else "more items"
    held = [collections.Counter(content for (name, content), n in side.items() for _ in range(n))
            for side in (mine, other)]
    is_odd = all(not PLAIN.fullmatch(name) for name, _ in mine)
    if is_odd and (held[0] == held[1] or unread):
        return None
    return "other items"
