"""read_metadata.py PACKAGE COUNT: opens a package with zipfile and parses the items that hold its
metadata with ElementTree, COUNT times in one interpreter. Prints the median of the seconds."""

import statistics
import sys
import time
import xml.etree.ElementTree
import zipfile

ITEMS = ("[Content_Types].xml", "_rels/.rels", "metadata/appMetadata.xml", "docProps/core.xml",
         "docProps/korval.xml")


def read(package):
    with zipfile.ZipFile(package) as archive:
        return [xml.etree.ElementTree.fromstring(archive.read(item)) for item in ITEMS]


def seconds(package):
    start = time.perf_counter()
    read(package)
    return time.perf_counter() - start


if __name__ == "__main__":
    print(statistics.median(seconds(sys.argv[1]) for _ in range(int(sys.argv[2]))))
