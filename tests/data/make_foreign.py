#!/usr/bin/env python3
"""Makes foreign.kvpkg: a packaged app as another program might write it, for the tests to read.

It uses what this library never writes itself: data descriptors, stored items, the content types in the
last item, types by extension, relative and percent-encoded targets, UTF-16 and byte-order marks, a
directory item and an archive comment.
"""

import io
import pathlib
import zipfile

BASE = "http://schemas.quorvane.com/lumenForge/app"
PACKAGE = "http://schemas.openxmlformats.org/package/2006"

CONTENT_TYPES = f"""<?xml version="1.0" encoding="UTF-8"?>
<Types xmlns="{PACKAGE}/content-types">
  <Default Extension="RELS" ContentType="application/vnd.openxmlformats-package.relationships+xml"/>
  <Default Extension="xml" ContentType="application/vnd.quorvane.korval.lumenForge.appMetadata+xml"/>
  <Default Extension="KVD" ContentType="application/vnd.quorvane.korval.lumenForge.appModel+kvd"/>
  <Default Extension="JPEG" ContentType="image/jpeg"/>
  <Default Extension="k" ContentType="text/plain;charset=utf-8"/>
  <Override PartName="/Properties/Core.xml"
            ContentType="application/vnd.openxmlformats-package.core-properties+xml"/>
  <Override PartName="/not/here.bin" ContentType="application/octet-stream"/>
</Types>
"""

RELATIONSHIPS = f"""<?xml version="1.0" standalone="yes"?>
<r:Relationships xmlns:r="{PACKAGE}/relationships">
  <r:Relationship Target="Properties/Core.xml" Id="core"
      Type="{PACKAGE}/relationships/metadata/core-properties"/>
  <r:Relationship Target="pictures/./old/../screen%20shot.JPEG" Id="shot"
      Type="{BASE}/2017/relationships/appScreenshot"/>
  <r:Relationship Target="lumenforge/%61ppModel.kvd" Id="model"
      Type="{BASE}/2014/relationships/appModel"/>
  <r:Relationship Target="./source/main.k" Id="code"
      Type="http://schemas.quorvane.com/korval/2026/relationships/code"/>
  <r:Relationship Target="/about/app.xml" Id="meta" TargetMode="Internal"
      Type="{BASE}/2017/relationships/appMetadata"/>
  <r:Relationship Target="https://example.com/help" Id="help" TargetMode="External"
      Type="https://example.com/relationships/help"/>
</r:Relationships>
"""

CORE = """<?xml version="1.0" encoding="UTF-8"?>
<coreProperties xmlns="http://schemas.openxmlformats.org/package/2006/metadata/core-properties"
    xmlns:d="http://purl.org/dc/elements/1.1/" xmlns:t="http://purl.org/dc/terms/"
    xmlns:i="http://www.w3.org/2001/XMLSchema-instance">
  <keywords>tides</keywords>
  <d:creator>Jos\u00e9 \u4e2d\u6587</d:creator>
  <t:created i:type="t:W3CDTF">2021-03-04T05:06:07Z</t:created>
  <d:title>Foreign &amp; \U0001F30A</d:title>
</coreProperties>
"""

METADATA = f"""<?xml version="1.0" encoding="UTF-16"?>
<!-- another order, another prefix, and elements that nobody knows -->
<a:metadata xmlns:a="{BASE}/2017/appMetadata">
  <a:userComponents><a:userComponent class="Gauge"/><!-- c --><a:userComponent class="G&amp;&#10;T"/></a:userComponents>
  <a:future><a:uuid>not this one</a:uuid></a:future>
  <a:uuid>7b1c</a:uuid>
  <a:AppType><![CDATA[Special]]></a:AppType>
  <a:description> D\u00e9j\u00e0 &lt;vu&gt; \U0001F30A
second line </a:description>
  <a:componentProducts/>
  <a:screenshotMode>manual</a:screenshotMode>
</a:metadata>
"""

CODE = "% d\u00e9j\u00e0 \U0001F30A\r\nx = 1;\n"
MODEL = bytes(range(256)) * 64
IMAGE = b"\xff\xd8\xff\xe0 a picture"
TIME = (2021, 3, 4, 5, 6, 8)


class Pipe(io.RawIOBase):
    """A file that cannot seek, so that zipfile writes data descriptors."""

    def __init__(self):
        self.bytes = bytearray()

    def writable(self):
        return True

    def write(self, data):
        self.bytes += data
        return len(data)


def add(archive, name, content, method=zipfile.ZIP_DEFLATED):
    info = zipfile.ZipInfo(name, TIME)
    info.compress_type = method
    info.create_system = 0
    with archive.open(info, "w") as item:
        item.write(content)


def main():
    pipe = Pipe()
    with zipfile.ZipFile(pipe, "w") as archive:
        archive.comment = b"made elsewhere"
        add(archive, "pictures/", b"", zipfile.ZIP_STORED)
        add(archive, "about/app.xml", METADATA.encode("utf-16"))  # with a byte-order mark
        add(archive, "pictures/screen%20shot.JPEG", IMAGE, zipfile.ZIP_STORED)
        add(archive, "lumenforge/appModel.kvd", MODEL)
        add(archive, "Properties/Core.xml", CORE.encode("utf-8-sig"))
        add(archive, "source/main.k", CODE.encode("utf-8"))
        add(archive, "_rels/.rels", RELATIONSHIPS.encode("utf-8"))
        add(archive, "[Content_Types].xml", CONTENT_TYPES.encode("utf-8-sig"))
    pathlib.Path(__file__).with_name("foreign.kvpkg").write_bytes(pipe.bytes)


if __name__ == "__main__":
    main()
