"""read_metadata.py PACKAGE COUNT: opens a package with zipfile and parses the items that hold its
metadata with ElementTree, COUNT times in one interpreter. Prints the median of the seconds."""

import statistics
import sys
import time
import xml.etree.ElementTree
import zipfile

ITEMS = ("[Content_Types].xml", "_rels/.rels", "metadata/appMetadata.xml", "docProps/core.xml",
         "docProps/korval.xml")


def seconds(package):
    start = time.perf_counter()
    with zipfile.ZipFile(package) as archive:
        for item in ITEMS:
            xml.etree.ElementTree.fromstring(archive.read(item))
    return time.perf_counter() - start


times = [seconds(sys.argv[1]) for _ in range(int(sys.argv[2]))]
print(statistics.median(times))
