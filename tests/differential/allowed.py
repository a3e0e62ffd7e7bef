"""Differences between readers that do no harm, each with its reason. docs/format-kvpkg.md lists them."""


def reason(reader, what, file, ours, theirs):
    """Why it is allowed that `reader` sees something else in this file; None when it is not."""
    for applies, why in ROWS:
        if applies(reader, what, file, ours, theirs):
            return why
    return None


ROWS = []
