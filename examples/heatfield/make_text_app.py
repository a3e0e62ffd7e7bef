#!/usr/bin/env python3
"""Writes heatfield.k, the text form of the same app: the code with its appendix."""

import base64
import json
import pathlib

HERE = pathlib.Path(__file__).resolve().parent


def escaped(text):
    return text.replace("&", "&amp;").replace("<", "&lt;").replace(">", "&gt;")


def element(name, text):
    return f"<{name}>{escaped(text)}</{name}>\n"


def elements(name, item, texts):
    return f"<{name}>\n" + "".join("    " + element(item, text) for text in texts) + f"</{name}>\n"


def section(name, remark, body):
    return f"\n%[{name}]\n% {remark}\n%{{\n{body}%}}\n"


def appendix(metadata, image):
    details = "".join(element(name, metadata[name])
                      for name in ("Name", "Author", "Summary", "Description", "Version"))
    internal = (element("AppId", metadata["Uuid"])
                + element("AppType", metadata["AppType"])
                + element("MinimumSupportedKORVALRelease", metadata["MinimumSupportedKORVALRelease"])
                + element("KORVALRelease", "R2026a")
                + elements("RequiredProducts", "Product", metadata["RequiredProducts"])
                + elements("UserComponents", "Component", metadata["UserComponents"])
                + elements("ImageRelativePaths", "Path", metadata["ImageRelativePaths"]))
    uri = "data:image/png;base64," + base64.b64encode(image).decode()
    return (section("app:appDetails", "What people see of the app.", details)
            + section("app:internalData", "What the host needs to know.", internal)
            + section("app:thumbnail", "The picture, on one line.",
                      f"<Thumbnail autoCapture='false'>{uri}</Thumbnail>\n"))


code = (HERE / "code.k").read_text(encoding="utf-8")
record = json.loads((HERE / "metadata.json").read_text(encoding="utf-8"))
picture = (HERE / "screenshot.png").read_bytes()
(HERE / "heatfield.k").write_text(code + appendix(record, picture), encoding="utf-8", newline="\n")
