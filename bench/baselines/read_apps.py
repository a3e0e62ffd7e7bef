"""read_apps.py zipfile|open|scan|scan-all FOLDER: reads the metadata of all packaged apps in a folder: as
programs do it that have only python3 (zipfile and ElementTree over the items that hold metadata), with
qzapp.open() one by one, or with qzapp.scan() in one thread or on all cores. Prints the seconds, without those of
importing."""

import os
import pathlib
import sys
import time

from read_metadata import read


def read_all(way, folder):
    """The number of apps."""
    if way == "zipfile":
        return sum(1 for path in sorted(pathlib.Path(folder).iterdir()) if read(path))
    if way == "open":
        return sum(1 for path in sorted(os.listdir(folder)) if qzapp.open(os.path.join(folder, path)).metadata)
    return sum(1 for app in qzapp.scan(folder, threads=1 if way == "scan" else 0) if app.metadata.name is not None)


way, folder = sys.argv[1:]
if way != "zipfile":
    import qzapp
start = time.perf_counter()
count = read_all(way, folder)
seconds = time.perf_counter() - start
assert count == len(os.listdir(folder)), count
print(seconds)
