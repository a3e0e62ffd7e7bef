"""Apps, and the functions that make them."""

from __future__ import annotations

import dataclasses
import errno
import io
import operator
import os
import warnings
from collections.abc import Iterator, Mapping
from types import TracebackType
from typing import IO, Any, TypeVar, Union

from . import _native
from ._errors import BadFileError, PermissionDenied
from ._records import FIELDS, FORMAT_NAMES, Finding, Metadata, ScannedApp, Screenshot

StrPath = Union[str, "os.PathLike[str]"]
Source = Union[StrPath, bytes, bytearray, memoryview, IO[bytes]]

_PIECE = 1 << 20
_MOST_THREADS = 1024
_Self = TypeVar("_Self", bound="App")


def _is_path(source: object) -> bool:
    return isinstance(source, (str, os.PathLike))


def _bytes_of(path: StrPath) -> bytes:
    try:
        return os.fsencode(path)
    except UnicodeEncodeError:
        shown, found, advice = ascii(os.fspath(path)), "the system has no bytes for this name", "choose another"
        raise BadFileError(f"{shown}: {found}; {advice}", shown, None, found, advice) from None


def _names_of(path: StrPath) -> tuple[bytes, bytes]:
    """The name of a file as it was given, and with the working directory of this moment before it."""
    if not _is_path(path):
        raise TypeError(f"expected the path of a file, found {type(path).__name__}")
    given = _bytes_of(path)
    return given, given if os.path.isabs(given) or not given else os.path.join(os.getcwdb(), given)


def _memory_file(source: object) -> _native.MemoryFile:
    memory = _native.MemoryFile()
    read = getattr(source, "read", None)
    if read is None:
        try:
            memory.append(memoryview(source))  # type: ignore[arg-type]
        except (TypeError, BufferError):
            raise TypeError("expected a path, a bytes-like object without gaps or a file object, found "
                            f"{type(source).__name__}") from None
        return memory
    while True:
        piece = read(_PIECE)
        if piece is None:
            raise BlockingIOError(errno.EAGAIN, "expected a file object that waits for bytes, found one that does not")
        if isinstance(piece, str):
            raise TypeError("expected a file object that was opened in binary mode, found one in text mode")
        if not piece:
            return memory
        memory.append(piece)


def _app_file(source: Source) -> _native.File:
    if _is_path(source):
        return _native.File.at(_bytes_of(source))  # type: ignore[arg-type]
    return _memory_file(source).app()


def _content_file(source: Source) -> _native.File:
    if _is_path(source):
        return _native.File.at(_bytes_of(source))  # type: ignore[arg-type]
    return _memory_file(source).content()


class _Raw(io.RawIOBase):
    """The bytes of a part, from front to back."""

    def __init__(self, stream: _native.Stream) -> None:
        self._stream = stream

    def readable(self) -> bool:
        return True

    def readinto(self, buffer: Any) -> int:
        if self.closed:
            raise ValueError("read of closed file")
        return self._stream.readinto(buffer)


class _Content:
    """Bytes in an app that may be larger than memory."""

    def _stream(self) -> _native.Stream:
        raise NotImplementedError

    def open(self) -> io.BufferedReader:
        """A file object that reads the bytes from front to back. It stays valid when the app is closed.

        If the bytes turn out to be damaged, the read that would complete them raises BadFileError."""
        return io.BufferedReader(_Raw(self._stream()), _PIECE)

    def read(self) -> bytes:
        """All of the bytes."""
        raw, all_bytes = _Raw(self._stream()), io.BytesIO()
        while piece := raw.read(_PIECE):
            all_bytes.write(piece)
        return all_bytes.getvalue()

    def __bytes__(self) -> bytes:
        return self.read()

    def save(self, path: StrPath) -> None:
        """Writes the bytes to a file, which is replaced as a whole or not at all."""
        _native.copy_to(self._stream(), *_names_of(path))


@dataclasses.dataclass(frozen=True, eq=False)
class Model(_Content):
    """The binary model of a packaged app: ``size`` bytes, to be read by open(), read() or save()."""

    size: int
    _file: _native.File = dataclasses.field(repr=False)

    def _stream(self) -> _native.Stream:
        return self._file.model()


@dataclasses.dataclass(frozen=True, eq=False)
class Part(_Content):
    """A part of a package, to be read by open(), read() or save()."""

    name: str
    content_type: str
    size: int
    compressed_size: int
    _file: _native.File = dataclasses.field(repr=False)

    def _stream(self) -> _native.Stream:
        return self._file.part(self.name)


class App:
    """An app that open() has opened, packaged or text, or that edit() or create() is going to save.

    The file is opened once: what takes its name later is not seen. close() lets go of it, as does the
    end of a ``with`` block; after that, using the app raises ValueError. Any thread may use it."""

    _KIND = "App"

    def __init__(self, file: _native.File, name: str) -> None:
        self._file: _native.File | None = file
        self._name = name

    def _open_file(self) -> _native.File:
        file = self._file
        if file is None:
            raise ValueError(f"{self._name}: the app is closed")
        return file

    def __repr__(self) -> str:
        return f"<qzapp.{self._KIND} {self._name!r}{' (closed)' if self.closed else ''}>"

    def __enter__(self: _Self) -> _Self:
        self._require_open()
        return self

    def __exit__(self, kind: type[BaseException] | None, error: BaseException | None,
                 trace: TracebackType | None) -> None:
        self.close()

    def _require_open(self) -> None:
        self._open_file()

    @property
    def closed(self) -> bool:
        """Whether the app cannot be used any more."""
        return self._file is None

    def close(self) -> None:
        """Closes the file. Closing twice does no harm."""
        self._file = None

    @property
    def form(self) -> str:
        """"packaged" or "text"."""
        return self._open_file().form()

    @property
    def metadata(self) -> Metadata:
        """The metadata as the file has it; a new record each time."""
        return Metadata._of(self._open_file().metadata())

    @property
    def code(self) -> str | None:
        """The source code, with its line ends as they are. For a text app this is the whole file, in
        which bytes that are not UTF-8 become U+FFFD."""
        return self._open_file().code().decode(errors="replace")

    @property
    def screenshot(self) -> Screenshot | None:
        """The screenshot, or None if there is none."""
        found = self._open_file().screenshot()
        return Screenshot(*found) if found else None

    @property
    def model(self) -> Model | None:
        """The model, which is read when it is asked for; None for a text app."""
        file = self._open_file()
        return Model(file.model_size(), file) if file.form() == "packaged" else None

    @property
    def parts(self) -> dict[str, Part]:
        """The parts of the package by name, in the order of the file; empty for a text app."""
        file = self._open_file()
        return {part[0]: Part(*part, file) for part in (file.parts() if file.form() == "packaged" else ())}


_UNSET: Any = object()


class Draft(App):
    """An app that is going to be saved: set ``metadata``, ``code``, ``model`` and ``screenshot``.

    The end of a ``with`` block saves what was set, whole or not at all; if the block raises, nothing is
    saved. Without a block, call save(). What is not set stays as it is.

    ``notes``  after the save, what you may not expect, a sentence each
    """

    _KIND = "Draft"

    def __init__(self, file: _native.File | None, name: str, names: tuple[bytes, bytes]) -> None:
        self._file = file
        self._name = name
        self._names = names
        self._process = _native.ProcessMark()
        self._is_done = False
        self._code: str | None = None
        self._model: _native.File | None = None
        self._screenshot: Any = _UNSET
        self.notes: list[str] = []
        self._before = Metadata._of(file.metadata()) if file is not None else Metadata()
        self._metadata = self._copy(self._before)

    @staticmethod
    def _copy(record: Metadata) -> Metadata:
        return Metadata(*(getattr(record, name) for name in FIELDS))

    @property
    def closed(self) -> bool:
        return self._is_done

    def _require_open(self) -> None:
        if self._is_done:
            raise ValueError(f"{self._name}: has been saved or closed already; open it again")

    def close(self) -> None:
        """Drops what was set."""
        self._is_done = True
        self._file = self._model = None

    def __del__(self) -> None:
        if not getattr(self, "_is_done", True):
            warnings.warn(f"{self._name}: was never saved; use a with block, or call save()",
                          ResourceWarning, source=self)

    def __exit__(self, kind: type[BaseException] | None, error: BaseException | None,
                 trace: TracebackType | None) -> None:
        if kind is None and not self._is_done:
            self._finish()
        self.close()

    def _changed_fields(self) -> dict[str, Any]:
        changed = {}
        for format_name, name in FORMAT_NAMES.items():
            value = getattr(self._metadata, name)
            setattr(self._metadata, name, value)  # checks the items that were added to a list
            if value == getattr(self._before, name):
                continue
            if value is None:
                raise TypeError(f"metadata.{name}: None would make it absent, and nothing in a file does that; "
                                f"{[] if FIELDS[name] else ''!r} makes it empty")
            changed[format_name] = value
        return changed

    def save(self) -> None:
        """Saves what was set, and closes the app, also if it fails; the file is then as it was."""
        self._finish()

    def _finish(self) -> None:
        self._require_open()
        try:
            if not self._process.is_of_this_process():
                found, advice = "was opened before this process was forked", "open it again to change it"
                raise PermissionDenied(f"{self._name}: {found}; {advice}", self._name, None, found, advice,
                                       errno.EPERM)
            screenshot = None if self._screenshot is _UNSET else self._screenshot
            self._save(self._changed_fields(), screenshot)
        finally:
            self.close()

    def _save(self, fields: dict[str, Any], screenshot: tuple[str, bytes] | None) -> None:
        raise NotImplementedError

    @property
    def metadata(self) -> Metadata:
        """The metadata that is going to be saved: set its fields, or replace it. Of a record that
        replaces it, fields that are None leave what is there."""
        self._require_open()
        return self._metadata

    @metadata.setter
    def metadata(self, record: Metadata | Mapping[str, Any]) -> None:
        self._require_open()
        given = {name: getattr(record, name) for name in FIELDS} if isinstance(record, Metadata) else dict(record)
        changed = self._copy(self._metadata)
        for name, value in given.items():
            if value is not None:
                setattr(changed, name, value)
        self._metadata = changed

    @property
    def code(self) -> str | None:
        """The source code, a str. None if a new app has none yet."""
        self._require_open()
        if self._code is not None or self._file is None:
            return self._code
        return self._file.code().decode(errors="replace")

    @code.setter
    def code(self, code: str) -> None:
        self._require_open()
        if not isinstance(code, str):
            raise TypeError(f"code: expected a str, found {type(code).__name__}; read the file first")
        self._code = code

    @property
    def screenshot(self) -> Screenshot | None:
        """The screenshot. It can be set to a Screenshot, a path, bytes or a file object; None removes it."""
        self._require_open()
        if self._screenshot is not _UNSET:
            return Screenshot(*self._screenshot) if self._screenshot else None
        found = self._file.screenshot() if self._file is not None else None
        return Screenshot(*found) if found else None

    @screenshot.setter
    def screenshot(self, image: Screenshot | Source | None) -> None:
        self._require_open()
        if image is None:
            self._screenshot = None
        elif isinstance(image, Screenshot):
            self._screenshot = image.format, image.data
        else:
            self._screenshot = _content_file(image).as_image()

    @property
    def model(self) -> Any:
        """The model that the file has. It can be set to a path, bytes or a file object; a file is opened at
        once and read at the save."""
        self._require_open()
        if self._model is not None:
            raise ValueError(f"{self._name}: the new model can be read after the save")
        return Model(self._file.model_size(), self._file) if self._file is not None else None

    @model.setter
    def model(self, model: Source) -> None:
        self._require_open()
        if model is None:
            raise TypeError("model: expected a path, bytes or a file object; an app always has a model, which may "
                            "be empty: b''")
        self._model = _content_file(model)

    @property
    def form(self) -> str:
        self._require_open()
        return "packaged"

    @property
    def parts(self) -> dict[str, Part]:
        self._require_open()
        return {part[0]: Part(*part, self._file) for part in self._file.parts()} if self._file else {}


class _Edit(Draft):
    def __init__(self, path: StrPath, drop_signature: bool) -> None:
        names = _names_of(path)
        _native.require_packaged(names[0])
        file = _native.File.at(names[0])
        file.require_app()
        super().__init__(file, os.fsdecode(path), names)
        self._drop_signature = drop_signature

    def _save(self, fields: dict[str, Any], screenshot: tuple[str, bytes] | None) -> None:
        assert self._file is not None
        removes = self._screenshot is None
        notes = _native.edit(*self._names, self._file, fields, self._code, self._model, screenshot, removes,
                             self._drop_signature)
        self.notes = notes or []


class _Create(Draft):
    def __init__(self, path: StrPath, overwrite: bool) -> None:
        names = _names_of(path)
        _native.require_packaged(names[0])
        _native.require_free(*names, overwrite)
        super().__init__(None, os.fsdecode(path), names)
        self._overwrite = overwrite

    def _save(self, fields: dict[str, Any], screenshot: tuple[str, bytes] | None) -> None:
        for what, value, empty in (("code", self._code, ""), ("model", self._model, b"")):
            if value is None:
                found, advice = f"no {what} was set, and an app has one", f"set it, to {empty!r} if it is empty"
                raise BadFileError(f"{self._name}: {found}; {advice}", self._name, None, found, advice)
        _native.create(*self._names, fields, self._code, self._model, screenshot, self._overwrite)


def open(source: Source) -> App:
    """Opens an app for reading: a packaged app (".kvpkg") or a text app (".k").

    ``source`` is a path, or a bytes-like object or a binary file object, which is copied into memory
    and whose form is that of its content. Raises FileNotFoundError and other OSErrors of this package,
    and BadFileError (a ValueError) for what is not an app; see qzapp.Error."""
    file = _app_file(source)
    file.require_app()
    return App(file, os.fsdecode(source) if _is_path(source) else "<bytes>")  # type: ignore[arg-type]


def edit(path: StrPath, *, drop_signature: bool = False) -> Draft:
    """Opens a packaged app to change it, best in a ``with`` block, at whose end it is saved::

        with qzapp.edit("atlas.kvpkg") as app:
            app.metadata.version = "2.1"
            app.screenshot = "new.png"

    The save takes place whole or not at all. It fails with an OSError (errno EBUSY) if the file has been
    changed since this call. If all is as asked already, the file is left alone. A signed app can only be
    changed with ``drop_signature=True``, which removes the signatures."""
    return _Edit(path, drop_signature)


def create(path: StrPath, *, metadata: Metadata | Mapping[str, Any] | None = None, code: str | None = None,
           model: Source | None = None, screenshot: Screenshot | Source | None = None,
           overwrite: bool = False) -> Draft:
    """Makes a packaged app, best in a ``with`` block, at whose end it is saved, or by save()::

        qzapp.create("atlas.kvpkg", metadata={"name": "Atlas"}, code="app = 1;", model=b"").save()

    An app needs code and a model, which may be empty; fields that are not set get their defaults. A file that
    exists is replaced only with ``overwrite=True``; otherwise that is a FileExistsError."""
    draft = _Create(path, overwrite)
    try:
        if metadata is not None:
            draft.metadata = metadata  # type: ignore[assignment]
        if code is not None:
            draft.code = code
        if model is not None:
            draft.model = model
        if screenshot is not None:
            draft.screenshot = screenshot  # type: ignore[assignment]
    except BaseException:
        draft.close()
        raise
    return draft


def scan(folder: StrPath, *, threads: int = 0) -> Iterator[ScannedApp]:
    """Reads the metadata of all apps below a folder, on all cores (or as many ``threads``), and yields a
    record for each, in the order of names.

    A file that cannot be read is a record with an ``error``, and so is a folder that cannot be listed. Links to
    folders, hidden files, and sources without app metadata are left out."""
    threads = operator.index(threads)
    if not 0 <= threads <= _MOST_THREADS:
        raise ValueError(f"threads: expected 0 to {_MOST_THREADS}, found {threads}")
    if not _is_path(folder):
        raise TypeError(f"expected the path of a folder, found {type(folder).__name__}")
    return _records_of(_native.Scan(*_names_of(folder), threads))


def _records_of(scan: _native.Scan) -> Iterator[ScannedApp]:
    while some := scan.next():
        for path, form, values, error in some:
            yield ScannedApp(path, form, Metadata._of(values) if values is not None else None, error)


def check(source: Source) -> list[Finding]:
    """Checks an app, or any other package, against all rules, and returns what it found, the most severe
    first. ``qzapp check --rules`` lists the rules."""
    return [Finding(*finding) for finding in _app_file(source).findings()]
