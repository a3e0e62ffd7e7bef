"""coverage.py DATA [FILE...]: prints what `llvm-cov export` found, as a table by folder or, for these files, the
lines that are not covered."""
import collections
import json
import os
import sys

FOLDERS = ("metadata", "package", "textapp", "host", "platform", "app", "tools")
GOALS = {"lines": 95, "branches": 85}  # per cent of all except the tools


def covered_lines(file):
    """The number of runs of each line that holds code."""
    segments = collections.defaultdict(list)  # line, column, count, has a count, is entry, is gap
    for segment in file["segments"]:
        segments[segment[0]].append(segment)
    lines = {}
    around = None
    for line in range(1, max(segments, default=0) + 1):
        here = segments[line]
        entries = [s[2] for s in here if s[3] and s[4] and not s[5]]
        skipped = bool(here) and not here[0][3] and here[0][4]
        if not skipped and (entries or (around is not None and around[3])):
            lines[line] = max(entries + ([around[2]] if around is not None and around[3] else []))
        if here:
            around = here[-1]
    return lines


def branches(file):
    """How often each of the two ways of each condition was taken, by line and column."""
    ways = collections.defaultdict(lambda: [0, 0])
    for branch in file["branches"]:
        for way in (0, 1):
            ways[branch[0], branch[1], branch[2], branch[3]][way] += branch[4 + way]
    return ways


def folder_of(name):
    parts = name.split("/")
    return "/".join(parts[:2]) if parts[0] in ("platform", "tools") else parts[0]


def own_files(data, root):
    for file in data["data"][0]["files"]:
        name = os.path.relpath(file["filename"], root)
        if name.split("/")[0] in FOLDERS:
            yield name, file


def count(file):
    lines = covered_lines(file).values()
    ways = [way for both in branches(file).values() for way in both]
    return {"lines": (sum(n > 0 for n in lines), len(lines)),
            "branches": (sum(n > 0 for n in ways), len(ways))}


def per_cent(covered, all_):
    return 100 * covered / all_ if all_ else 100


def row(name, counts):
    cells = ["%6d of %6d  %5.1f %%" % (*counts[k], per_cent(*counts[k])) for k in GOALS]
    print("%-24s %s" % (name, "  ".join(cells)))


def print_table(data, root):
    totals = collections.defaultdict(lambda: {k: (0, 0) for k in GOALS})
    for name, file in own_files(data, root):
        counts = count(file)
        for group in (folder_of(name), "tools" if name.startswith("tools") else "library and platform"):
            totals[group] = {k: tuple(map(sum, zip(totals[group][k], counts[k]))) for k in GOALS}
    sums = [totals.pop(k) for k in ("library and platform", "tools")]
    print("%-24s %25s  %25s" % ("", "lines", "branches"))
    for folder in sorted(totals, key=lambda f: (FOLDERS.index(f.split("/")[0]), f)):
        row(folder, totals[folder])
    row("all but the tools", sums[0])
    row("the tools", sums[1])
    missed = [k for k, goal in GOALS.items() if per_cent(*sums[0][k]) < goal]
    for k in missed:
        print("the goal of %d %% of %s is not met" % (GOALS[k], k), file=sys.stderr)
    return 1 if missed else 0


def print_uncovered(name, file):
    lines = covered_lines(file)
    half = collections.defaultdict(list)
    for (line, column, *_), ways in sorted(branches(file).items()):
        for truth, runs in zip(("true", "false"), ways):
            if lines.get(line, 0) > 0 and runs == 0:
                half[line].append("column %d never %s" % (column, truth))
    with open(file["filename"], encoding="utf-8") as source:
        for number, text in enumerate(source, 1):
            if lines.get(number, 1) == 0 or number in half:
                print("%s:%d: %s" % (name, number, text.rstrip()))
            for note in half.get(number, []):
                print("    " + note)


def main():
    root = os.getcwd()
    with open(sys.argv[1], encoding="utf-8") as stream:
        data = json.load(stream)
    if len(sys.argv) == 2:
        return print_table(data, root)
    known = dict(own_files(data, root))
    for name in sys.argv[2:]:
        if os.path.normpath(name) not in known:
            sys.exit("%s: the coverage data has no such file; give its path from the top of the tree" % name)
        print_uncovered(name, known[os.path.normpath(name)])
    return 0


sys.exit(main())
