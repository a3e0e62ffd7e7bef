"""add_parts.py PACKAGE COUNT TARGET: copies a package and adds small parts, whose content type is
the default of their extension."""

import sys
import zipfile

package, count, target = sys.argv[1:]
TYPE = b'<Default Extension="txt" ContentType="text/plain"/>'
with zipfile.ZipFile(package) as source, zipfile.ZipFile(target, "w") as copy:
    for item in source.infolist():
        content = source.read(item)
        if item.filename == "[Content_Types].xml":
            content = content.replace(b"</Types>", TYPE + b"</Types>")
        copy.writestr(item, content)
    for number in range(int(count)):
        copy.writestr(f"notes/{number:06}.txt", "one note")
