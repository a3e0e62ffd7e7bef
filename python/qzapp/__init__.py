"""Reads and writes the files of interactive apps: packaged apps (.kvpkg) and text apps (.k).

    open(source)     reads an app of either form
    edit(path)       changes a packaged app
    create(path)     makes a packaged app
    scan(folder)     reads the metadata of all apps below a folder, on all cores
    check(source)    finds what is wrong with a file

All failures are qzapp.Error, and an OSError or ValueError as well.
"""

from ._native import require_main_interpreter as _require_main_interpreter

_require_main_interpreter()

from ._apps import App, Draft, Model, Part, check, create, edit, open, scan  # noqa: E402
from ._errors import (  # noqa: E402
    AppWarning, BadFileError, Error, Exists, ExtensionCaseError, ExtensionError, IsADirectory, NotADirectory,
    NotFound, OutOfMemory, PermissionDenied, SystemFailure)
from ._records import Finding, Metadata, ScannedApp, Screenshot  # noqa: E402

__all__ = [
    "App", "AppWarning", "BadFileError", "Draft", "Error", "Exists", "ExtensionCaseError", "ExtensionError",
    "Finding", "IsADirectory", "Metadata", "Model", "NotADirectory", "NotFound", "OutOfMemory", "Part",
    "PermissionDenied", "ScannedApp", "Screenshot", "SystemFailure", "check", "create", "edit", "open", "scan",
]
