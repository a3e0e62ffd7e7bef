"""read_metadata.py PACKAGE COUNT: prints how many seconds zipfile and ElementTree take, in a warm
interpreter, to open a package and parse the items that its metadata stand in; the median of COUNT."""

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
