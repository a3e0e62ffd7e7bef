"""The values that apps are read into."""

from __future__ import annotations

import dataclasses
from collections.abc import Iterable, Iterator, Mapping
from typing import Any, Generic, TypeVar, overload

_Value = TypeVar("_Value")


class _FormatName(Generic[_Value]):
    """A field of a record under its name in the format."""

    def __init__(self, attribute: str) -> None:
        self.attribute = attribute

    @overload
    def __get__(self, record: None, owner: type) -> _FormatName[_Value]: ...
    @overload
    def __get__(self, record: object, owner: type) -> _Value: ...
    def __get__(self, record: object | None, owner: type) -> _FormatName[_Value] | _Value:
        if record is None:
            return self
        value: _Value = getattr(record, self.attribute)
        return value

    def __set__(self, record: object, value: _Value) -> None:
        setattr(record, self.attribute, value)


_Text = _FormatName["str | None"]
_List = _FormatName["list[str] | None"]


@dataclasses.dataclass
class Metadata:
    """What an app says about itself: eleven texts and three lists of texts, None where absent.

    Each field has its name in Python's spelling (``minimum_supported_korval_release``) and in that of
    the format (``MinimumSupportedKORVALRelease``). ``dict(metadata)`` has the names of the format, as
    the tool's JSON has, and ``json.dumps(dict(metadata))`` works. Records are equal if all fields are.

    A record that was read from an app has no absent field: readers have a default for each.
    """

    name: str | None = None
    summary: str | None = None
    author: str | None = None
    version: str | None = None
    description: str | None = None
    screenshot_mode: str | None = None
    kvpkg_version: str | None = None
    minimum_supported_korval_release: str | None = None
    korval_release: str | None = None
    uuid: str | None = None
    app_type: str | None = None
    required_products: list[str] | None = None
    user_components: list[str] | None = None
    image_relative_paths: list[str] | None = None

    Name = _Text("name")
    Summary = _Text("summary")
    Author = _Text("author")
    Version = _Text("version")
    Description = _Text("description")
    ScreenshotMode = _Text("screenshot_mode")
    KVPKGVersion = _Text("kvpkg_version")
    MinimumSupportedKORVALRelease = _Text("minimum_supported_korval_release")
    KORVALRelease = _Text("korval_release")
    Uuid = _Text("uuid")
    AppType = _Text("app_type")
    RequiredProducts = _List("required_products")
    UserComponents = _List("user_components")
    ImageRelativePaths = _List("image_relative_paths")

    @classmethod
    def _of(cls, values: Iterable[Any]) -> Metadata:
        """The record of values that need no check, such as those of a file."""
        record = cls.__new__(cls)
        record.__dict__.update(zip(FIELDS, values))
        return record

    def __setattr__(self, name: str, value: object) -> None:
        object.__setattr__(self, name, _checked(name, value))

    def keys(self) -> Iterator[str]:
        """The names of the fields in the format, in its order."""
        return iter(FORMAT_NAMES)

    def __getitem__(self, name: str) -> str | list[str] | None:
        if name not in FORMAT_NAMES and name not in FIELDS:
            raise KeyError(name)
        value: str | list[str] | None = getattr(self, name)
        return value


FORMAT_NAMES = {name: field.attribute for name, field in vars(Metadata).items() if isinstance(field, _FormatName)}
FIELDS = {field.name: "list" in str(field.type) for field in dataclasses.fields(Metadata)}


def _checked(name: str, value: object) -> object:
    """The value of a field of Metadata; raises for a name or a type that it cannot have."""
    if name in FORMAT_NAMES:
        return value  # its descriptor sets the field
    if name not in FIELDS:
        raise AttributeError(f"there is no field {name!r}; the fields are {', '.join(FIELDS)}")
    if value is None or (not FIELDS[name] and isinstance(value, str)):
        return value
    if not FIELDS[name]:
        raise TypeError(f"{name}: expected a str or None, found {value!r:.100}")
    if isinstance(value, (list, tuple)) and all(isinstance(item, str) for item in value):
        return list(value)
    raise TypeError(f"{name}: expected a list of str or None, found {value!r:.100}")


class ScannedApp(Mapping[str, Any]):
    """An app that scan() found: where it is, its form, and its metadata or why it cannot be read.

    It is also a mapping of these and all fields of the metadata, by their names in Python, so that
    ``pandas.DataFrame(qzapp.scan(folder))`` has a column for each."""

    # No dataclass: pandas would take its fields for the columns.
    def __init__(self, path: str, form: str | None, metadata: Metadata | None, error: Exception | None) -> None:
        self.path, self.form, self.metadata, self.error = path, form, metadata, error

    def __repr__(self) -> str:
        return f"ScannedApp(path={self.path!r}, {self.metadata if self.error is None else self.error!r})"

    def __getitem__(self, name: str) -> Any:
        if name in FIELDS:
            return getattr(self.metadata, name) if self.metadata is not None else None
        if name in ("path", "form", "error"):
            return getattr(self, name)
        raise KeyError(name)

    def __iter__(self) -> Iterator[str]:
        return iter(("path", "form", "error", *FIELDS))

    def __len__(self) -> int:
        return 3 + len(FIELDS)


@dataclasses.dataclass(frozen=True)
class Screenshot:
    """An encoded image. A notebook shows it if it is a PNG or JPEG image."""

    format: str
    data: bytes = dataclasses.field(repr=False)

    def __bytes__(self) -> bytes:
        return self.data

    def _repr_png_(self) -> bytes | None:
        return self.data if self.format.lower() == "png" else None

    def _repr_jpeg_(self) -> bytes | None:
        return self.data if self.format.lower() in ("jpg", "jpeg") else None


@dataclasses.dataclass(frozen=True)
class Finding:
    """Something that check() found.

    ``severity``  "error": readers refuse the file, or a part of it; "warning": they read it, but
                  perhaps not as it was meant; "note": it is allowed, and good to know
    ``rule``      a name that does not change, for scripts
    ``part``      a part, an item or a section; empty if it is about the whole file
    ``text``      what was found
    ``fix``       what to do about it, empty if there is nothing to do
    ``count``     more than 1 for findings that were only counted
    """

    rule: str
    severity: str
    part: str
    text: str
    fix: str
    count: int = 1
