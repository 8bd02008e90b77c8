"""A storage of documents, over the C interface of the library: nothing is compiled.

    import vu_storage

    with vu_storage.Store("/srv/data", make_root=True) as store:
        report = vu_storage.Key("docs", "anna", "report.kdf", 20240501)
        store.put(report, b"Hello")
        print(store.read(report))

Names and texts are str, bytes of documents are bytes, paths are anything that pathlib takes.
Failures are exceptions derived from StorageError. Answers are none: a document that is missing is
None or False. What a call waits for is told in vu/storage.h.
"""

from __future__ import annotations

import ctypes
import io
import os
import pathlib
from ctypes import byref
from dataclasses import dataclass
from datetime import datetime, timedelta, timezone
from typing import Any, Callable, Iterator, Optional, Union

from . import _library as _c

__all__ = [
    "LATEST", "AlreadyThere", "Entry", "File", "Info", "Key", "LockTimeout", "NotThere", "Outdated",
    "Refused", "StorageError", "Store", "Trace", "set_trace", "version", "version_number",
]

#: For Key.version: the latest one that there is.
LATEST = -1

_AREAS = {"user": 1, "docs": 2, "mail": 3}
_AREA_NAMES = {number: name for name, number in _AREAS.items()}
_REPLACE, _IN_PLACE = 1, 2
_WITH_INFO = 1
_DRY_RUN, _BY_ACCESS, _CLEAN_ALL = 1, 2, 4

PathLike = Union[str, "os.PathLike[str]"]


class StorageError(Exception):
    """A call failed. The attributes tell why: status, name, text, path, system_code."""

    def __init__(self, status: int, operation: str, text: str, path: str, system_code: int,
                 system_text: str) -> None:
        self.status = status
        self.name: str = _c.library.vu_status_name(status).decode()
        self.operation = operation
        self.text = text
        self.path: Optional[pathlib.Path] = pathlib.Path(path) if path else None
        self.system_code = system_code
        parts = [f"{operation}: {text}"]
        if path:
            parts.append(f" ({path})")
        if system_text:
            parts.append(f": {system_text}")
        super().__init__("".join(parts) + f" [{self.name}]")


class NotThere(StorageError):
    """Nothing in the storage matches the request."""


class LockTimeout(StorageError):
    """A lock was not obtained in time; nothing was changed."""


class Refused(StorageError):
    """The guard refuses a name that would mean something else than a name."""


class AlreadyThere(StorageError):
    """It is there already."""


class Outdated(StorageError):
    """There is one, but older than was asked for."""


_KINDS: dict[int, type[StorageError]] = {
    _c.NOTHING_MATCHED: NotThere, 11: LockTimeout, 12: Refused, _c.ALREADY: AlreadyThere,
    _c.OUTDATED: Outdated,
}


def version() -> str:
    """The version of the library that is loaded."""
    return _c.library.vu_version().decode()


def version_number() -> int:
    """The same as a number: 10203 is 1.2.3."""
    return int(_c.library.vu_version_number())


def _text(raw: Optional[bytes]) -> str:
    # Names on Linux are bytes: what is no UTF-8 goes both ways unchanged.
    return (raw or b"").decode("utf-8", "surrogateescape")


def _raw(text: str) -> bytes:
    raw = text.encode("utf-8", "surrogateescape")
    if b"\0" in raw:
        raise ValueError("a name holds a NUL")
    return raw


def _raw_path(path: PathLike) -> bytes:
    return _raw(os.fspath(path))


def _last_error() -> StorageError:
    error = _c.Error(struct_size=ctypes.sizeof(_c.Error))
    _c.library.vu_last_error(byref(error))
    kind = _KINDS.get(error.status, StorageError)
    return kind(error.status, _text(error.operation), _text(error.text), _text(error.path),
                error.system_code, _text(error.system_text))


def _check(status: int, *answers: int) -> bool:
    """True when a call is done, False for an answer; raises otherwise."""
    if status == _c.DONE:
        return True
    if status in answers:
        return False
    raise _last_error()


def _ask_text(ask: Callable[[Any, int, Any], int], *answers: int) -> Optional[str]:
    """A text of any length: asked for again while it grows."""
    room = 256
    while True:
        buffer = ctypes.create_string_buffer(room)
        size = ctypes.c_size_t()
        status = ask(buffer, room, byref(size))
        if status == _c.TOO_SHORT:
            room = size.value + 1
        elif _check(status, *answers):
            return _text(buffer.raw[: size.value])
        else:
            return None


@dataclass(frozen=True)
class Key:
    """A document, in one of its versions."""

    area: str
    """What it belongs to: "docs", "user" or "mail"."""
    owner: str
    """A user or a domain; empty where owners share folders."""
    name: str
    """With its extension."""
    version: int = 0
    """Any stamp from 0 to 2147483647, or LATEST."""

    def _document(self) -> _c.Document:
        return _c.Document(
            struct_size=ctypes.sizeof(_c.Document), area=_area(self.area), owner=_raw(self.owner),
            name=_raw(self.name), version=self.version)


def _area(name: str) -> int:
    if name not in _AREAS:
        raise ValueError(f"there is no area {name!r}; say one of {', '.join(_AREAS)}")
    return _AREAS[name]


def _time(seconds: int) -> datetime:
    """A file may bear any time: what datetime cannot hold becomes its first or last one."""
    try:
        return datetime(1970, 1, 1, tzinfo=timezone.utc) + timedelta(seconds=seconds)
    except OverflowError:
        return (datetime.max if seconds > 0 else datetime.min).replace(tzinfo=timezone.utc)


@dataclass(frozen=True)
class Info:
    """Size and times of a version."""

    version: int
    size: int
    modified: datetime
    accessed: datetime

    @property
    def age(self) -> timedelta:
        """How long ago it was changed."""
        return datetime.now(timezone.utc) - self.modified

    @classmethod
    def _of(cls, told: _c.Info) -> "Info":
        return cls(told.version, told.size, _time(told.modified), _time(told.accessed))


@dataclass(frozen=True)
class Entry:
    """One version in a list."""

    key: Key
    file: str
    """The name of its file in the folder."""
    info: Optional[Info]
    """Where it was asked for."""

    @classmethod
    def _of(cls, told: _c.Entry) -> "Entry":
        key = Key(_AREA_NAMES[told.area], _text(told.owner), _text(told.name), told.info.version)
        return cls(key, _text(told.file), Info._of(told.info) if told.info.size >= 0 else None)


class File(io.RawIOBase):
    """An open file of the storage, with its lock: a binary file like others. Use it in a with."""

    def __init__(self, handle: ctypes.c_void_p, writes: bool) -> None:
        super().__init__()
        self._handle: Optional[ctypes.c_void_p] = handle
        self._writes = writes
        # The library does not tell it.
        self._position = 0

    def readable(self) -> bool:
        return not self._writes

    def writable(self) -> bool:
        return self._writes

    def seekable(self) -> bool:
        return True

    def readinto(self, buffer: Any) -> int:
        """Reads into a buffer; fewer bytes than it holds at the end of the file only."""
        self._check_open()
        view = memoryview(buffer).cast("B")
        room = (ctypes.c_char * len(view)).from_buffer(view)
        size = ctypes.c_size_t()
        _check(_c.library.vu_stream_read(self._handle, room, len(view), byref(size)))
        self._position += size.value
        return size.value

    def write(self, data: Any) -> int:
        """Writes all bytes."""
        self._check_open()
        raw = bytes(data)
        _check(_c.library.vu_stream_write(self._handle, raw, len(raw)))
        self._position += len(raw)
        return len(raw)

    def seek(self, offset: int, whence: int = io.SEEK_SET) -> int:
        """Moves the position, and tells the new one."""
        self._check_open()
        origins = {io.SEEK_SET: 0, io.SEEK_CUR: self._position, io.SEEK_END: None}
        if whence not in origins:
            raise ValueError(f"there is no origin {whence!r}")
        origin = origins[whence]
        position = (self.size() if origin is None else origin) + offset
        if position < 0:
            raise ValueError("a position before the beginning")
        _check(_c.library.vu_stream_seek(self._handle, offset, whence))
        self._position = position
        return position

    def size(self) -> int:
        """The size of the file in bytes."""
        self._check_open()
        number = ctypes.c_int64()
        _check(_c.library.vu_stream_size(self._handle, byref(number)))
        return number.value

    def close(self) -> None:
        """Closes the file, with everything on the device. Nothing when it is closed."""
        if self._handle is not None:
            handle, self._handle = self._handle, None
            super().close()
            _check(_c.library.vu_stream_close(handle))

    def _check_open(self) -> None:
        if self._handle is None:
            raise ValueError("the file is closed")


class _Collected:
    """What callbacks of C have told; their exceptions wait until C is left."""

    def __init__(self) -> None:
        self.items: list[Any] = []
        self.raised: Optional[BaseException] = None

    def take(self, make: Callable[..., Any]) -> Callable[..., int]:
        def visit(_context: Any, *told: Any) -> int:
            try:
                self.items.append(make(*told))
                return 0
            except BaseException as reason:  # pylint: disable=broad-except
                self.raised = reason
                return 1

        return visit

    def finish(self, status: int, *answers: int) -> list[Any]:
        if self.raised is not None:
            raise self.raised
        _check(status, *answers)
        return self.items


def _made_of_entry(told: Any) -> Entry:
    return Entry._of(told.contents)


class Store:
    """The storage of this process. Use it in a with, or call close()."""

    def __init__(self, root: Optional[PathLike] = None, *, make_root: bool = False,
                 shared_folders: bool = False, adoption: bool = True, guard: bool = True,
                 wait: Optional[timedelta] = None) -> None:
        """Opens the storage below a root, or joins it when this process has opened it before.

        root: the folder in which "storage" lies or is made; None to join.
        make_root: the root and its parents are made when they are missing.
        shared_folders: all owners share the folders, instead of having some of their own.
        adoption: files that appear behind the index are adopted into it.
        guard: names that would mean something else than a name are refused.
        wait: how long calls wait for locks; None for as long as it takes, 0 not at all.
        """
        flags = (make_root * 1) | (shared_folders * 2) | ((not adoption) * 4) | ((not guard) * 8)
        wait_ms = 0
        if wait is not None:
            wait_ms = int(wait / timedelta(milliseconds=1)) or -1
        settings = _c.Settings(
            struct_size=ctypes.sizeof(_c.Settings),
            root=None if root is None else _raw_path(root), flags=flags, wait_ms=wait_ms)
        handle = ctypes.c_void_p()
        self.initialised: bool = _check(
            _c.library.vu_open_store(byref(settings), byref(handle)), _c.ALREADY)
        self._handle: Optional[ctypes.c_void_p] = handle

    def __enter__(self) -> "Store":
        return self

    def __exit__(self, *_: object) -> None:
        self.close()

    def close(self) -> None:
        """Gives the handle back; the storage stays initialised."""
        if self._handle is not None:
            handle, self._handle = self._handle, None
            _check(_c.library.vu_close_store(handle))

    def folder(self, area: Optional[str] = None) -> pathlib.Path:
        """The folder of the storage, or of an area in it."""
        number = 0 if area is None else _area(area)
        path = _ask_text(lambda *out: _c.library.vu_folder(self._handle, number, *out))
        assert path is not None
        return pathlib.Path(path)

    # ---- documents -----------------------------------------------------------------------------

    def exists(self, key: Key) -> bool:
        """Whether a version exists."""
        return _check(_c.library.vu_exists(self._handle, byref(key._document())),
                      _c.NOTHING_MATCHED)

    def read(self, key: Key) -> Optional[bytes]:
        """The bytes of exactly that version; None when there is none."""
        memory = ctypes.c_void_p()
        size = ctypes.c_size_t()
        status = _c.library.vu_read_whole(self._handle, byref(key._document()), byref(memory),
                                          byref(size))
        if not _check(status, _c.NOTHING_MATCHED):
            return None
        try:
            return ctypes.string_at(memory, size.value)
        finally:
            _c.library.vu_free(memory)

    def read_text(self, key: Key, encoding: str = "utf-8") -> Optional[str]:
        """The same as text."""
        raw = self.read(key)
        return None if raw is None else raw.decode(encoding)

    def readinto(self, key: Key, buffer: Any) -> Optional[int]:
        """Reads a version into a buffer that can be written, and tells how many bytes there are;
        None when there is none. One that is too small is an error, and is left as it was."""
        view = memoryview(buffer).cast("B")
        room = (ctypes.c_char * len(view)).from_buffer(view)
        size = ctypes.c_size_t()
        status = _c.library.vu_read(self._handle, byref(key._document()), room, len(view),
                                    byref(size))
        return size.value if _check(status, _c.NOTHING_MATCHED) else None

    def put(self, key: Key, data: Union[bytes, str], *, replace: bool = True,
            in_place: bool = False) -> bool:
        """Stores a version; text as UTF-8. False when it is there and is to be kept.

        Whoever reads, and an interruption, meet the old version or the new one, unless in_place
        has the file cut and written.
        """
        raw = data.encode() if isinstance(data, str) else bytes(data)
        flags = (replace * _REPLACE) | (in_place * _IN_PLACE)
        return _check(
            _c.library.vu_put(self._handle, byref(key._document()), raw, len(raw), flags, None),
            _c.ALREADY)

    def copy_in(self, key: Key, path: PathLike, *, replace: bool = True) -> bool:
        """Stores a file with its time. False when the version is there and is to be kept."""
        return _check(
            _c.library.vu_copy_in(self._handle, byref(key._document()), _raw_path(path),
                                  replace * _REPLACE, None),
            _c.ALREADY)

    def copy_out(self, key: Key, path: PathLike, *, replace: bool = True) -> bool:
        """Copies a version to a file, with its time. False when that is there and is to be kept."""
        return _check(
            _c.library.vu_copy_out(self._handle, byref(key._document()), _raw_path(path),
                                   replace * _REPLACE),
            _c.ALREADY)

    def remove(self, key: Key) -> bool:
        """Removes a version. False when there is none."""
        return _check(_c.library.vu_remove(self._handle, byref(key._document())),
                      _c.NOTHING_MATCHED)

    def rename(self, old: Key, new: Key, *, replace: bool = False) -> bool:
        """Gives a version another name, version, owner or area. False when the new one is there."""
        return _check(
            _c.library.vu_rename(self._handle, byref(old._document()), byref(new._document()),
                                 replace * _REPLACE),
            _c.ALREADY)

    def info(self, key: Key) -> Optional[Info]:
        """Size and times; None when there is no such version."""
        told = _c.Info(struct_size=ctypes.sizeof(_c.Info))
        status = _c.library.vu_describe(self._handle, byref(key._document()), byref(told))
        return Info._of(told) if _check(status, _c.NOTHING_MATCHED) else None

    def file_path(self, key: Key) -> pathlib.Path:
        """The path of a version's file."""
        document = key._document()
        path = _ask_text(
            lambda *out: _c.library.vu_file_path(self._handle, byref(document), *out))
        assert path is not None
        return pathlib.Path(path)

    def latest(self, key: Key) -> Optional[int]:
        """The latest version of a name; None when there is none."""
        number = ctypes.c_int64()
        status = _c.library.vu_latest(self._handle, byref(key._document()), byref(number))
        return number.value if _check(status, _c.NOTHING_MATCHED) else None

    # ---- files ---------------------------------------------------------------------------------

    def open(self, key: Key, mode: str = "r") -> File:
        """Opens a version: "r" to read it, "s" to read what the stated interface serves, "x" to
        write one that must not exist, "w" to write over one."""
        modes = {"r": 1, "s": 2, "x": 3, "w": 4}
        if mode not in modes:
            raise ValueError(f"there is no mode {mode!r}; say one of {', '.join(modes)}")
        handle = ctypes.c_void_p()
        _check(_c.library.vu_open(self._handle, byref(key._document()), modes[mode],
                                  byref(handle)))
        return File(handle, mode in "xw")

    def open_part(self, key: Key, rendition: str, part: str, mode: str = "r") -> File:
        """Opens a part of a document: "r", which raises Outdated when it has to be made, or "w"."""
        modes = {"r": 2, "w": 4}
        if mode not in modes:
            raise ValueError(f"there is no mode {mode!r}; say one of {', '.join(modes)}")
        handle = ctypes.c_void_p()
        _check(_c.library.vu_open_part(self._handle, byref(key._document()), _raw(rendition),
                                       _raw(part), modes[mode], byref(handle)))
        return File(handle, mode == "w")

    # ---- lists ---------------------------------------------------------------------------------

    def documents(self, area: str, owner: str, *, with_info: bool = False) -> Iterator[Entry]:
        """The documents of an owner, those of one folder in the order of its index."""
        collected = _Collected()
        status = _c.library.vu_each_document(
            self._handle, _area(area), _raw(owner), with_info * _WITH_INFO,
            _c.EntryVisitor(collected.take(_made_of_entry)), None)
        return iter(collected.finish(status))

    def versions(self, key: Key, *, with_info: bool = False) -> Iterator[Entry]:
        """The versions of a name, the oldest first."""
        collected = _Collected()
        status = _c.library.vu_each_version(
            self._handle, byref(key._document()), with_info * _WITH_INFO,
            _c.EntryVisitor(collected.take(_made_of_entry)), None)
        return iter(collected.finish(status))

    def owners(self, area: str) -> Iterator[str]:
        """The owners that have a folder in an area."""
        collected = _Collected()
        status = _c.library.vu_each_owner(self._handle, _area(area),
                                          _c.NameVisitor(collected.take(_text)), None)
        return iter(collected.finish(status))

    # ---- key files and profiles ----------------------------------------------------------------

    def key_value(self, key: Key, line: str) -> Optional[str]:
        """The value of a line of a key file; None when there is no such line or file."""
        document = key._document()
        return _ask_text(
            lambda *out: _c.library.vu_key_get(self._handle, byref(document), _raw(line), *out),
            _c.NOTHING_MATCHED)

    def set_key(self, key: Key, line: str, value: str) -> None:
        """Gives a line a value; makes what is missing."""
        _check(_c.library.vu_key_set(self._handle, byref(key._document()), _raw(line),
                                     _raw(value)))

    def remove_key(self, key: Key, line: str) -> bool:
        """Drops the lines of that name. False when there is none."""
        return _check(_c.library.vu_key_delete(self._handle, byref(key._document()), _raw(line)),
                      _c.NOTHING_MATCHED)

    def keys(self, key: Key) -> list[tuple[str, str]]:
        """The lines in their order; none when there is no such file."""
        collected = _Collected()
        visit = _c.LineVisitor(collected.take(lambda name, value: (_text(name), _text(value))))
        return collected.finish(
            _c.library.vu_key_each(self._handle, byref(key._document()), visit, None),
            _c.NOTHING_MATCHED)

    def profile_value(self, owner: Optional[str], line: str,
                      file: Optional[str] = None) -> Optional[str]:
        """The value of a line of an owner's profile, or without an owner of the master profile;
        file for another one than the usual."""
        return _ask_text(
            lambda *out: _c.library.vu_profile_get(self._handle, _raw_or_none(owner),
                                                   _raw_or_none(file), _raw(line), *out),
            _c.NOTHING_MATCHED)

    def set_profile(self, owner: Optional[str], line: str, value: str,
                    file: Optional[str] = None) -> None:
        """Gives a line of a profile a value."""
        _check(_c.library.vu_profile_set(self._handle, _raw_or_none(owner), _raw_or_none(file),
                                         _raw(line), _raw(value)))

    def remove_profile(self, owner: Optional[str], line: str, file: Optional[str] = None) -> bool:
        """Drops a line of a profile. False when there is none."""
        return _check(
            _c.library.vu_profile_delete(self._handle, _raw_or_none(owner), _raw_or_none(file),
                                         _raw(line)),
            _c.NOTHING_MATCHED)

    def profile(self, owner: Optional[str], file: Optional[str] = None) -> list[tuple[str, str]]:
        """The lines of a profile in their order."""
        collected = _Collected()
        visit = _c.LineVisitor(collected.take(lambda name, value: (_text(name), _text(value))))
        return collected.finish(
            _c.library.vu_profile_each(self._handle, _raw_or_none(owner), _raw_or_none(file), visit,
                                       None),
            _c.NOTHING_MATCHED)

    # ---- owners and upkeep ---------------------------------------------------------------------

    def rename_owner(self, old: str, new: str) -> bool:
        """Renames an owner's folders, but for corporate documents. False when the name is taken."""
        return _check(_c.library.vu_rename_owner(self._handle, _raw(old), _raw(new)), _c.ALREADY)

    def remove_owner(self, owner: str) -> bool:
        """Removes an owner's folders, but for corporate documents. False when there is none."""
        return _check(_c.library.vu_remove_owner(self._handle, _raw(owner)), _c.NOTHING_MATCHED)

    def outdated(self, area: str, owner: Optional[str], older_than: timedelta, *,
                 by_access: bool = False, everything: bool = False) -> list[Entry]:
        """The versions that clean() would remove."""
        collected = _Collected()
        status = _c.library.vu_clean(
            self._handle, _area(area), _raw_or_none(owner), _seconds(older_than),
            _DRY_RUN | _cleaning(by_access, everything),
            _c.EntryVisitor(collected.take(_made_of_entry)), None, None)
        return collected.finish(status)

    def clean(self, area: str, owner: Optional[str], older_than: timedelta, *,
              by_access: bool = False, everything: bool = False) -> int:
        """Removes the versions that have not been changed for longer than that, and tells how many.

        owner: None for every owner.
        by_access: the last access counts, not the last change.
        everything: with an age of nothing all versions go, which is refused otherwise.
        """
        count = ctypes.c_int64()
        _check(_c.library.vu_clean(self._handle, _area(area), _raw_or_none(owner),
                                   _seconds(older_than), _cleaning(by_access, everything),
                                   _c.EntryVisitor(), None, byref(count)))
        return count.value

    def migrate_inbox(self, owner: str) -> bool:
        """Converts an owner's mail folder, once. False when there is none."""
        return _check(_c.library.vu_migrate_inbox(self._handle, _raw(owner)), _c.NOTHING_MATCHED)


def _raw_or_none(text: Optional[str]) -> Optional[bytes]:
    return None if text is None else _raw(text)


def _seconds(age: timedelta) -> int:
    # Rounded up: less than a second must not become "everything".
    return -int(-age // timedelta(seconds=1))


def _cleaning(by_access: bool, everything: bool) -> int:
    return (by_access * _BY_ACCESS) | (everything * _CLEAN_ALL)


@dataclass(frozen=True)
class Trace:
    """One trace record."""

    kind: str
    """"scope begin", "scope end", "message", "record", "done", "missing" or "failure"."""
    level: int
    """0 for the smallest circle of records to 4 for the widest; -1 for none."""
    source: str
    line: int
    signature: str
    text: str


_KINDS_OF_TRACES = ("scope begin", "scope end", "message", "record", "done", "missing", "failure")
_sink: Any = None


def set_trace(tell: Optional[Callable[[Trace], None]], level: int = 4) -> None:
    """Has every trace of the library told to a function; None for silence.

    level: up to which level records and scopes are told, -1 (events alone) to 4. The function may
    be called by any thread and must not call the library. Call this while no other thread is
    inside it.
    """
    global _sink

    def hear(_context: Any, told: Any) -> None:
        one = told.contents
        text = ctypes.string_at(one.text, one.text_size)
        tell(Trace(_KINDS_OF_TRACES[one.kind - 1], one.level, _text(one.source), one.line,
                   _text(one.signature), text.decode("utf-8", "replace")))

    sink = _c.TraceSink() if tell is None else _c.TraceSink(hear)
    _check(_c.library.vu_set_trace(sink, None, level))
    # The library keeps the pointer alone.
    _sink = sink
