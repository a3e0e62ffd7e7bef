#!/usr/bin/env python3
"""Lets other programs read zip files that we read, and tells where they see something else. scripts/differential
starts this.

    scripts/differential                  100,000 files, made from the seed 1
    scripts/differential --files 300      fewer
    scripts/differential --seed 2         others
    scripts/differential --make 2/17 FILE     makes the file with this number again
    scripts/differential --ordinary       files by ordinary programs, with many of their options: all are to be opened

What we open, whoever else opens it has to read as the same items with the same bytes. A difference that is none
stands in allowed.py, with the reason. Others are kept in build/differential/found, and the exit status is 1.
Readers that are not installed are named; eight have to be there.
"""

import argparse
import collections
import concurrent.futures
import pathlib
import shutil
import sys
import tempfile
import time

import allowed
import compare
import corpus
import ordinary
import others

TOP = pathlib.Path(__file__).resolve().parent.parent.parent
HOME = TOP / "build" / "differential"
BATCH = 500
FEWEST_READERS = 8


class Comparison:
    def __init__(self, ours, readers):
        self.ours, self.readers = ours, readers
        self.counts = collections.Counter()
        self.per_reader = {reader.name: collections.Counter() for reader in readers}
        self.classes = collections.defaultdict(list)   # of differences: files
        self.allowed = collections.Counter()

    def run(self, files, told):
        """`told` says of each file how it was made."""
        answers = self.ours.read(files)
        mine = [others.parse(answer) for answer in answers]
        opened = [i for i, items in enumerate(mine) if items is not None]
        self.counts["files"] += len(files)
        self.counts["opened"] += len(opened)
        asked = [files[i] for i in opened]
        with concurrent.futures.ThreadPoolExecutor(len(self.readers)) as pool:
            results = pool.map(lambda reader: reader.read(asked), self.readers)
            for reader, answers in zip(self.readers, results):
                for i, answer in zip(opened, answers):
                    self.settle(reader, files[i], told[i], mine[i], others.parse(answer))

    def settle(self, reader, file, told, mine, theirs):
        counts = self.per_reader[reader.name]
        if theirs is None:
            return
        counts["both"] += 1
        what = compare.difference(mine, theirs)
        if what is None:
            return
        reason = allowed.reason(reader.name, what, file, mine, theirs)
        if reason:
            self.allowed[reason] += 1
            return
        counts["differ"] += 1
        self.classes[what, reader.name].append((file, told))
        self.counts["differences"] += 1
        shutil.copy(file, HOME / "found" / pathlib.Path(file).name)

    def print(self):
        print(f"{self.counts['files']:,} files; we open {self.counts['opened']:,}")
        for name, counts in self.per_reader.items():
            print(f"    {name:22} opens {counts['both']:>7,} of these; sees something else in {counts['differ']}")
        for reason, count in self.allowed.most_common():
            print(f"allowed, {count} times: {reason}")
        for (what, name), files in sorted(self.classes.items()):
            print(f"{name}: {what}, {len(files)} times, such as")
            for file, told in files[:5]:
                print(f"    {pathlib.Path(file).name}: {', '.join(told)}")


def batches(total):
    for start in range(0, total, BATCH):
        yield range(start, min(start + BATCH, total))


def run_corpus(arguments, comparison, scratch):
    hostile = sorted(pathlib.Path(arguments.hostile).resolve().glob("*.kvpkg")) if arguments.hostile else []
    if hostile:
        comparison.run([str(file) for file in hostile], [["hostile"]] * len(hostile))
    begun = time.time()
    for numbers in batches(arguments.files):
        files, told = [], []
        for number in numbers:
            data, did = corpus.make(arguments.seed, number)
            file = scratch / f"{arguments.seed}-{number}.zip"
            file.write_bytes(data)
            files.append(str(file))
            told.append(did)
        comparison.run(files, told)
        for file in files:
            pathlib.Path(file).unlink()
        if arguments.progress:
            print(f"{numbers.stop:,} files in {time.time() - begun:.0f} s, "
                  f"{comparison.counts['differences']} differences", file=sys.stderr, flush=True)


def run_ordinary(comparison, scratch):
    files = ordinary.make(scratch)
    refused = 0
    for file, answer in zip(files, comparison.ours.read([str(file.path) for file in files])):
        if answer.startswith("+") == file.refused:
            refused += 1
            print(f"{'opened' if file.refused else 'refused'}: {file.name}: {answer[:200]}")
    comparison.run([str(file.path) for file in files], [[file.name] for file in files])
    expected = sum(file.refused for file in files)
    print(f"{len(files)} files by ordinary programs; {expected} of kinds that packages do not allow; "
          f"{refused} wrong")
    return refused


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--ours", required=True, help=argparse.SUPPRESS)
    parser.add_argument("--hostile", help=argparse.SUPPRESS)
    parser.add_argument("--files", type=int, default=100000)
    parser.add_argument("--seed", type=int, default=1)
    parser.add_argument("--make", nargs=2, metavar=("SEED/NUMBER", "FILE"))
    parser.add_argument("--ordinary", action="store_true")
    parser.add_argument("--progress", action="store_true", help="to standard error, every few hundred files")
    arguments = parser.parse_args()
    if arguments.make:
        seed, number = arguments.make[0].split("/")
        data, did = corpus.make(int(seed), int(number))
        pathlib.Path(arguments.make[1]).write_bytes(data)
        print(", ".join(did))
        return 0
    shutil.rmtree(HOME / "found", ignore_errors=True)
    (HOME / "found").mkdir(parents=True)
    memory = pathlib.Path("/dev/shm")
    with tempfile.TemporaryDirectory(prefix="qz-differential-", dir=memory if memory.is_dir() else None) as name:
        scratch = pathlib.Path(name)
        readers, missing = others.find_readers(HOME, scratch)
        print(f"{len(readers)} readers: {', '.join(reader.name for reader in readers)}")
        if missing:
            print(f"not installed: {', '.join(missing)}")
        if len(readers) < FEWEST_READERS:
            print(f"at least {FEWEST_READERS} readers are needed")
            return 2
        ours = others.Worker("ours", [arguments.ours])
        comparison = Comparison(ours, readers)
        wrong = 0
        try:
            if arguments.ordinary:
                wrong = run_ordinary(comparison, scratch)
            else:
                run_corpus(arguments, comparison, scratch)
        finally:
            for reader in (ours, *readers):
                reader.stop()
        comparison.print()
        if ours.ended:
            print(f"ours crashed or hung {ours.ended} times")
        return 1 if wrong or comparison.counts["differences"] or ours.ended else 0


if __name__ == "__main__":
    sys.exit(main())
