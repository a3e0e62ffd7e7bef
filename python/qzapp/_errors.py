"""The exceptions of the package."""

from __future__ import annotations

import errno as _errno
from typing import Any


class Error(Exception):
    """A failure with an app. ``str()`` is the whole message; the attributes are its pieces.

    ``file``    the file as the program named it; ``"<bytes>"`` for bytes and file objects
    ``place``   the part, item or section of the file, or None if it is about the whole file
    ``found``   what is wrong there
    ``advice``  what to do about it, or None
    """

    file: str
    place: str | None
    found: str
    advice: str | None

    def __init__(self, message: str, file: str = "", place: str | None = None, found: str = "",
                 advice: str | None = None, code: int | None = None) -> None:
        Exception.__init__(self, message)
        self.file, self.place, self.found, self.advice = file, place, found or message, advice
        self._message, self._code = message, code

    def __str__(self) -> str:
        return self._message

    def __reduce__(self) -> tuple[Any, ...]:
        return type(self), (self._message, self.file, self.place, self.found, self.advice, self._code)


class BadFileError(Error, ValueError):
    """What the file holds, or what it was asked to hold, is wrong; another try does not help."""


class ExtensionError(BadFileError):
    """The name of the file does not end in ".kvpkg" or ".k"."""


class ExtensionCaseError(ExtensionError):
    """The extension is not in lower case, as in "app.KVPKG"."""


class SystemFailure(Error, OSError):
    """The system could not do what was asked for; ``errno`` says why, as for any OSError.

    With the errno EBUSY, another program has changed the file meanwhile: open it again."""

    def __init__(self, message: str, file: str = "", place: str | None = None, found: str = "",
                 advice: str | None = None, code: int | None = None) -> None:
        super().__init__(message, file, place, found, advice, code)
        self.errno: int | None = code  # type: ignore[assignment]  # None if it was not a system call
        self.strerror, self.filename = self.found, file


class NotFound(SystemFailure, FileNotFoundError):
    """There is no such file."""


class Exists(SystemFailure, FileExistsError):
    """A new app would replace a file."""


class PermissionDenied(SystemFailure, PermissionError):
    """The file may not be read or written."""


class IsADirectory(SystemFailure, IsADirectoryError):
    """The name is that of a directory."""


class NotADirectory(SystemFailure, NotADirectoryError):
    """A directory was expected."""


class OutOfMemory(Error, MemoryError):
    """There is not enough memory for the file."""


class AppWarning(UserWarning):
    """A value that was set makes no sense, though an app can hold it."""


_BY_ERRNO: dict[int, type[Error]] = {
    _errno.ENOENT: NotFound,
    _errno.EEXIST: Exists,
    _errno.EACCES: PermissionDenied,
    _errno.EPERM: PermissionDenied,
    _errno.EISDIR: IsADirectory,
    _errno.ENOTDIR: NotADirectory,
    _errno.ENOMEM: OutOfMemory,
}
_BY_KIND: dict[str, type[Error]] = {
    "content": BadFileError,
    "extension": ExtensionError,
    "case": ExtensionCaseError,
}


def from_library(kind: str, message: str, file: str, code: int, place: str | None, found: str,
                 advice: str | None) -> Error:
    """The exception for an error of the library; the module calls this."""
    made = _BY_ERRNO.get(code, SystemFailure) if kind == "system" else _BY_KIND[kind]
    return made(message, file, place, found, advice, code or None)
