"""The storage library for Python, through its C interface; nothing is compiled.

    import vu_storage

    with vu_storage.Store("/srv/data", make_root=True) as store:
        report = vu_storage.Key("docs", "anna", "report.kdf", 20240501)
        store.put(report, b"Hello")
        print(store.read(report))

Names and texts are str, contents of documents are bytes, paths are str, bytes or
os.PathLike. Failures are exceptions derived from StorageError. A missing document is not a failure:
the call returns None or False. A method that cannot return one of these raises NotThere.

Each method behaves as the C function of the same purpose. The head of vu/storage.h says which locks
a call waits for, which threads may call, and what a crash leaves. Do not call the library from
daemon threads: the process can abort when the interpreter ends during a long call.
"""

from __future__ import annotations

import atexit
import ctypes
import enum
import io
import os
import pathlib
import sys
from ctypes import byref
from dataclasses import dataclass
from datetime import datetime, timedelta, timezone
from typing import Any, Callable, Iterator, Optional, Union

from . import _library as _c

__all__ = [
    "LATEST", "AlreadyThere", "Entry", "File", "Info", "Key", "LockTimeout", "NotThere", "Outdated",
    "PartlyListed", "Refused", "StorageError", "Store", "Stored", "Trace", "set_trace", "version",
    "version_number",
]

#: For Key.version: the greatest version.
LATEST = -1

_AREAS = {"user": 1, "docs": 2, "mail": 3}
_AREA_NAMES = {number: name for name, number in _AREAS.items()}
_REPLACE, _IN_PLACE = 1, 2
_WITH_INFO = 1
_DRY_RUN, _BY_ACCESS, _CLEAN_ALL = 1, 2, 4

PathLike = Union[str, bytes, "os.PathLike[str]", "os.PathLike[bytes]"]
Buffer = Union[bytes, bytearray, memoryview]


class Stored(enum.IntEnum):
    """How a version was stored. Only NOT_STORED is false."""

    NOT_STORED = 0
    """It existed, and was kept."""
    AT_ONCE = 1
    """Atomically: readers get the old version or the new one, also after a crash."""
    IN_PLACE = 2
    """The file was emptied and written: an interruption can leave a part."""


class StorageError(Exception):
    """A failed call. Attributes: status (a number), name (of the status), operation (the call),
    text (what happened), path (or None), system_code (0 without a failure of the system).

    The status VU_PARTLY_DONE is an error as well, although the main change of the call is made.
    After put() and copy_in() stored then says how; otherwise it is Stored.NOT_STORED."""

    stored: Stored

    def __init__(self, status: int, operation: str, text: str, path: str, system_code: int,
                 system_text: str) -> None:
        self.status = status
        self.stored = Stored.NOT_STORED
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
        self._told = (status, operation, text, path, system_code, system_text)

    def __reduce__(self) -> tuple[Any, ...]:
        # The base class would pass its one text to __init__, which takes six arguments.
        return type(self), self._told, self.__dict__


class NotThere(StorageError):
    """Nothing in the storage matches the request."""


class LockTimeout(StorageError):
    """A lock was not obtained in time; for what has changed then see VU_LOCK_TIMEOUT."""


class Refused(StorageError):
    """The guard refuses the request, for example a name with a separator."""


class AlreadyThere(StorageError):
    """It exists already."""


class Outdated(StorageError):
    """It exists, but is older than requested."""


class PartlyListed(StorageError):
    """VU_PARTLY_DONE of a list: the system refused something. entries: what was listed."""

    entries: list[Entry]


_KINDS: dict[int, type[StorageError]] = {
    _c.NOTHING_MATCHED: NotThere, 11: LockTimeout, 12: Refused, _c.ALREADY: AlreadyThere,
    _c.OUTDATED: Outdated,
}


def version() -> str:
    """The version of the loaded library, for example "1.0.0"."""
    return _c.library.vu_version().decode()


def version_number() -> int:
    """The same as a number: 10203 is 1.2.3."""
    return int(_c.library.vu_version_number())


def _text(raw: Optional[bytes]) -> str:
    # Names on Linux are bytes: invalid UTF-8 survives both conversions.
    return (raw or b"").decode("utf-8", "surrogateescape")


def _raw(text: str) -> bytes:
    return _without_nul(text.encode("utf-8", "surrogateescape"))


def _without_nul(raw: bytes) -> bytes:
    if b"\0" in raw:
        raise ValueError("a name contains a NUL")
    return raw


def _number(value: int, bits: int = 64) -> int:
    """The value, if C's integer of that size can represent it: ctypes would cut it."""
    if not -(1 << (bits - 1)) <= value < 1 << (bits - 1):
        raise OverflowError(f"{value} needs more than {bits} bits")
    return value


def _flags(*chosen: tuple[object, int]) -> int:
    """The flags whose argument is true."""
    return sum(flag for wanted, flag in chosen if wanted)


def _bytes(data: Any) -> bytes:
    # bytes() alone would make seven NULs of the number 7.
    return data if isinstance(data, bytes) else bytes(memoryview(data))


def _path_text(raw: bytes) -> str:
    # As os.listdir() decodes it: that is not _text() if the locale is not UTF-8.
    return _text(raw) if sys.platform == "win32" else os.fsdecode(raw)


def _raw_path(path: PathLike) -> bytes:
    if sys.platform == "win32":
        return _raw(os.fsdecode(path))
    return _without_nul(os.fsencode(path))


def _error(answer: _c.Answer, kind: Optional[type[StorageError]] = None) -> StorageError:
    told = answer.problem
    assert told is not None
    kind = kind or _KINDS.get(answer.status, StorageError)
    return kind(told.status, _text(told.operation), _text(told.text), _path_text(told.path),
                told.system_code, _text(told.system_text))


def _check(answer: _c.Answer, *expected: int) -> bool:
    """Returns True for DONE and False for an expected status; raises an error otherwise."""
    if answer.status == _c.DONE:
        return True
    if answer.status in expected:
        return False
    raise _error(answer)


def _stored(answer: _c.Answer, how: ctypes.c_int32) -> Stored:
    stored = Stored(how.value)
    if answer.status not in (_c.DONE, _c.ALREADY):
        error = _error(answer)
        error.stored = stored
        raise error
    return stored


def _ask(ask: Callable[[Any, int, Any], _c.Answer], *expected: int) -> Optional[bytes]:
    """A text of any length: repeats the call with more room while the text grows."""
    room = 256
    while True:
        buffer = ctypes.create_string_buffer(room)
        size = ctypes.c_size_t()
        answer = ask(buffer, room, byref(size))
        if answer.status == _c.TOO_SHORT:
            room = size.value + 1
        elif _check(answer, *expected):
            return buffer.raw[: size.value]
        else:
            return None


def _ask_text(ask: Callable[[Any, int, Any], _c.Answer], *expected: int) -> Optional[str]:
    raw = _ask(ask, *expected)
    return None if raw is None else _text(raw)


def _ask_path(ask: Callable[[Any, int, Any], _c.Answer]) -> pathlib.Path:
    raw = _ask(ask)
    assert raw is not None
    return pathlib.Path(_path_text(raw))


@dataclass(frozen=True)
class Key:
    """Names a document and one version of it."""

    area: str
    """The area: "docs", "user" or "mail"."""
    owner: str
    """A user or a domain; empty where owners share folders."""
    name: str
    """The logical name, with its extension."""
    version: int = 0
    """0 to 2147483647, as the caller chooses; or LATEST. Calls raise StorageError for any other
    number, and OverflowError if it needs more than 64 bits."""

    def _document(self) -> _c.Document:
        return _c.Document(
            struct_size=ctypes.sizeof(_c.Document), area=_area(self.area), owner=_raw(self.owner),
            name=_raw(self.name), version=_number(self.version))


def _area(name: str) -> int:
    if name not in _AREAS:
        raise ValueError(f"there is no area {name!r}; use one of {', '.join(_AREAS)}")
    return _AREAS[name]


def _time(seconds: int) -> datetime:
    """The time as a datetime; a time out of its range becomes datetime.min or datetime.max."""
    try:
        return datetime(1970, 1, 1, tzinfo=timezone.utc) + timedelta(seconds=seconds)
    except OverflowError:
        return (datetime.max if seconds > 0 else datetime.min).replace(tzinfo=timezone.utc)


@dataclass(frozen=True)
class Info:
    """Size in bytes, and times in UTC, of a version."""

    version: int
    size: int
    modified: datetime
    accessed: datetime

    @property
    def age(self) -> timedelta:
        """The time since the last change."""
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
    """None unless it was requested and the system knows the size."""

    @classmethod
    def _of(cls, told: _c.Entry) -> "Entry":
        key = Key(_AREA_NAMES[told.area], _text(told.owner), _text(told.name), told.info.version)
        return cls(key, _text(told.file), Info._of(told.info) if told.info.size >= 0 else None)


class File(io.RawIOBase):
    """An open file of the storage: a binary file that holds its lock until it is closed. Use it in
    a with statement. Only one thread at a time may use it."""

    def __init__(self, handle: ctypes.c_void_p, writes: bool) -> None:
        super().__init__()
        self._process = os.getpid()
        self._handle: Optional[ctypes.c_void_p] = handle
        self._writes = writes
        # The library has no call that returns the position.
        self._position = 0

    def readable(self) -> bool:
        return not self._writes

    def writable(self) -> bool:
        return self._writes

    def seekable(self) -> bool:
        return True

    def readinto(self, buffer: Any) -> int:
        """Reads into a buffer and returns the number of bytes: less than its size only at the
        end of the file."""
        self._check_open()
        view = memoryview(buffer).cast("B")
        room = (ctypes.c_char * len(view)).from_buffer(view)
        size = ctypes.c_size_t()
        _check(_c.call("vu_stream_read", self._handle, room, len(view), byref(size)))
        self._position += size.value
        return size.value

    def write(self, data: Any) -> int:
        """Writes all bytes of an object with a buffer. close() flushes them to the device."""
        self._check_open()
        raw = _bytes(data)
        _check(_c.call("vu_stream_write", self._handle, raw, len(raw)))
        self._position += len(raw)
        return len(raw)

    def seek(self, offset: int, whence: int = io.SEEK_SET) -> int:
        """Moves the position and returns it."""
        self._check_open()
        origins = {io.SEEK_SET: 0, io.SEEK_CUR: self._position, io.SEEK_END: None}
        if whence not in origins:
            raise ValueError(f"there is no origin {whence!r}")
        origin = origins[whence]
        position = (self.size() if origin is None else origin) + offset
        if position < 0:
            raise ValueError("the position is before the start of the file")
        _check(_c.call("vu_stream_seek", self._handle, _number(offset), whence))
        self._position = position
        return position

    def size(self) -> int:
        """The size of the file in bytes."""
        self._check_open()
        number = ctypes.c_int64()
        _check(_c.call("vu_stream_size", self._handle, byref(number)))
        return number.value

    def close(self) -> None:
        """Flushes what was written, releases the lock and closes. A second close does nothing.
        While another thread uses the file, it raises an error and the file stays open. In a child
        of fork() the file of the parent stays open for the parent."""
        if self._handle is not None:
            answer = _c.close("vu_stream_close", self._handle, self._process)
            if answer.status != _c.BUSY:
                self._handle = None
                super().close()
            _check(answer)

    def __del__(self) -> None:
        # Not close(), as in the base class: a destructor can run inside another call.
        handle, self._handle = getattr(self, "_handle", None), None
        if handle is not None:
            _c.abandon("vu_stream_close", handle, self._process)

    def _check_open(self) -> None:
        if self._handle is None:
            raise ValueError("the file is closed")
        if self._process != os.getpid():
            raise ValueError("the file belongs to the process that opened it")


class _Collected:
    """Collects what a C call passes to its callback; keeps an exception until the call returns."""

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

    def finish(self, answer: _c.Answer, *expected: int) -> list[Any]:
        if self.raised is not None:
            raise self.raised
        if answer.status == _c.PARTLY_DONE:
            error = _error(answer, PartlyListed)
            assert isinstance(error, PartlyListed)
            error.entries = self.items
            raise error
        _check(answer, *expected)
        return self.items


def _made_of_entry(told: Any) -> Entry:
    return Entry._of(told.contents)


class Store:
    """A handle of the process's storage. Use it in a with statement, or call close()."""

    def __init__(self, root: Optional[PathLike] = None, *, make_root: bool = False,
                 shared_folders: bool = False, adoption: bool = True, guard: bool = True,
                 wait: Optional[timedelta] = None) -> None:
        """Initialises the storage below a root, or joins it if this process has opened it already.

        root: the parent of the folder "storage"; None joins the storage that is open.
        make_root: creates a missing root and its missing parents.
        shared_folders: all owners share the area folders; otherwise each has its own.
        adoption: orphans are adopted.
        guard: names that are not plain file names are refused, see vu_open_store().
        wait: the time limit of each call for locks; None: no limit, timedelta(0): VU_NO_WAIT.

        The attribute initialised says whether this call initialised the storage.
        """
        flags = _flags((make_root, 1), (shared_folders, 2), (not adoption, 4), (not guard, 8))
        wait_ms = 0
        if wait is not None:
            wait_ms = int(wait / timedelta(milliseconds=1)) or -1
        settings = _c.Settings(
            struct_size=ctypes.sizeof(_c.Settings),
            root=None if root is None else _raw_path(root), flags=flags, wait_ms=wait_ms)
        handle = ctypes.c_void_p()
        self.initialised: bool = _check(
            _c.call("vu_open_store", byref(settings), byref(handle)), _c.ALREADY)
        self._process = os.getpid()
        self._handle: Optional[ctypes.c_void_p] = handle

    def __enter__(self) -> "Store":
        return self

    def __exit__(self, *_: object) -> None:
        self.close()

    def close(self) -> None:
        """Closes the handle. The storage stays initialised, and files stay open. While a call uses
        the handle, it raises an error and the handle stays open."""
        if self._handle is not None:
            answer = _c.close("vu_close_store", self._handle, self._process)
            if answer.status != _c.BUSY:
                self._handle = None
            _check(answer)

    def __del__(self) -> None:
        handle, self._handle = getattr(self, "_handle", None), None
        if handle is not None:
            _c.abandon("vu_close_store", handle, self._process)

    def folder(self, area: Optional[str] = None) -> pathlib.Path:
        """The path of the folder "storage", or of an area folder in it."""
        number = 0 if area is None else _area(area)
        return _ask_path(lambda *out: _c.call("vu_folder", self._handle, number, *out))

    # ---- documents -----------------------------------------------------------------------------

    def exists(self, key: Key) -> bool:
        """Whether the version exists."""
        return _check(_c.call("vu_exists", self._handle, byref(key._document())),
                      _c.NOTHING_MATCHED)

    def read(self, key: Key) -> Optional[bytes]:
        """The bytes of exactly this version; None if it does not exist."""
        memory = ctypes.c_void_p()
        size = ctypes.c_size_t()
        answer = _c.call("vu_read_whole", self._handle, byref(key._document()), byref(memory),
                         byref(size))
        if not _check(answer, _c.NOTHING_MATCHED):
            return None
        try:
            return ctypes.string_at(memory, size.value)
        finally:
            _c.library.vu_free(memory)

    def read_text(self, key: Key, encoding: str = "utf-8") -> Optional[str]:
        """As read(), decoded."""
        raw = self.read(key)
        return None if raw is None else raw.decode(encoding)

    def readinto(self, key: Key, buffer: Any) -> Optional[int]:
        """Reads a version into a writable buffer and returns the number of bytes; None if the
        version does not exist. A buffer that is too small is an error and stays unchanged."""
        view = memoryview(buffer).cast("B")
        room = (ctypes.c_char * len(view)).from_buffer(view)
        size = ctypes.c_size_t()
        answer = _c.call("vu_read", self._handle, byref(key._document()), room, len(view),
                         byref(size))
        return size.value if _check(answer, _c.NOTHING_MATCHED) else None

    def put(self, key: Key, data: Union[Buffer, str], *, replace: bool = True,
            in_place: bool = False) -> Stored:
        """Stores a version from bytes or another object with a buffer; a str as UTF-8. Returns how:
        Stored.NOT_STORED, which is false, if the version exists and is kept.

        Storing is atomic: readers get the old version or the new one, also after a crash. With
        in_place the file is emptied and written instead: half the work, but not atomic. The same
        happens if the folder contains a file with the name of the document. Then put() returns
        Stored.IN_PLACE.
        """
        raw = data.encode() if isinstance(data, str) else _bytes(data)
        flags = _flags((replace, _REPLACE), (in_place, _IN_PLACE))
        how = ctypes.c_int32()
        return _stored(
            _c.call("vu_put", self._handle, byref(key._document()), raw, len(raw), flags,
                    byref(how)),
            how)

    def copy_in(self, key: Key, path: PathLike, *, replace: bool = True) -> Stored:
        """Stores a file, with its modification time. Atomic as put(), and returns how as put().
        Raises NotThere if there is no such file."""
        how = ctypes.c_int32()
        return _stored(
            _c.call("vu_copy_in", self._handle, byref(key._document()), _raw_path(path),
                    _flags((replace, _REPLACE)), byref(how)),
            how)

    def copy_out(self, key: Key, path: PathLike, *, replace: bool = True) -> bool:
        """Copies a version to a file, with its modification time. Returns False if the file exists
        and is kept; raises NotThere if the version does not exist. Not atomic: a copy that fails
        half-way loses the old file."""
        return _check(
            _c.call("vu_copy_out", self._handle, byref(key._document()), _raw_path(path),
                    _flags((replace, _REPLACE))),
            _c.ALREADY)

    def remove(self, key: Key) -> bool:
        """Removes a version. Returns False if it does not exist."""
        return _check(_c.call("vu_remove", self._handle, byref(key._document())),
                      _c.NOTHING_MATCHED)

    def rename(self, old: Key, new: Key, *, replace: bool = False) -> bool:
        """Changes the name, version, owner or area of a version. Returns False if the new one
        exists and is kept; raises NotThere if the old one does not exist."""
        return _check(
            _c.call("vu_rename", self._handle, byref(old._document()), byref(new._document()),
                    _flags((replace, _REPLACE))),
            _c.ALREADY)

    def info(self, key: Key) -> Optional[Info]:
        """Size and times; None if the version does not exist."""
        told = _c.Info(struct_size=ctypes.sizeof(_c.Info))
        answer = _c.call("vu_describe", self._handle, byref(key._document()), byref(told))
        return Info._of(told) if _check(answer, _c.NOTHING_MATCHED) else None

    def file_path(self, key: Key) -> pathlib.Path:
        """The path of the version's file; raises NotThere if the version does not exist."""
        document = key._document()
        return _ask_path(
            lambda *out: _c.call("vu_file_path", self._handle, byref(document), *out))

    def latest(self, key: Key) -> Optional[int]:
        """The greatest version of a name; None if there is none."""
        number = ctypes.c_int64()
        answer = _c.call("vu_latest", self._handle, byref(key._document()), byref(number))
        return number.value if _check(answer, _c.NOTHING_MATCHED) else None

    # ---- files ---------------------------------------------------------------------------------

    def open(self, key: Key, mode: str = "r") -> File:
        """Opens a version. Modes: "r" reads exactly this version, "s" reads under the rules of
        VU_READ_SERVED, "x" writes a version that must not exist, "w" empties and writes one.

        Raises NotThere if there is nothing to read, AlreadyThere for "x", Outdated for "s"."""
        modes = {"r": 1, "s": 2, "x": 3, "w": 4}
        if mode not in modes:
            raise ValueError(f"there is no mode {mode!r}; use one of {', '.join(modes)}")
        handle = ctypes.c_void_p()
        _check(_c.call("vu_open", self._handle, byref(key._document()), modes[mode],
                       byref(handle)))
        return File(handle, mode in "xw")

    def open_part(self, key: Key, rendition: str, part: str, mode: str = "r") -> File:
        """Opens a part of a document: "r" to read, "w" to empty and write it. "r" raises Outdated
        if the caller has to generate the part."""
        modes = {"r": 2, "w": 4}
        if mode not in modes:
            raise ValueError(f"there is no mode {mode!r}; use one of {', '.join(modes)}")
        handle = ctypes.c_void_p()
        _check(_c.call("vu_open_part", self._handle, byref(key._document()), _raw(rendition),
                       _raw(part), modes[mode], byref(handle)))
        return File(handle, mode == "w")

    # ---- lists ---------------------------------------------------------------------------------

    def documents(self, area: str, owner: str, *, with_info: bool = False) -> Iterator[Entry]:
        """The documents of an owner: folder by folder, within a folder in the order of the keys
        (name, underscore, version). The list is read by this call: later changes are not seen.
        Raises PartlyListed if a folder cannot be listed."""
        collected = _Collected()
        answer = _c.call("vu_each_document", self._handle, _area(area), _raw(owner),
                         _flags((with_info, _WITH_INFO)),
                         _c.EntryVisitor(collected.take(_made_of_entry)), None)
        return iter(collected.finish(answer))

    def versions(self, key: Key, *, with_info: bool = False) -> Iterator[Entry]:
        """The versions of a name, the oldest first. Raises PartlyListed if the folder cannot be
        listed."""
        collected = _Collected()
        answer = _c.call("vu_each_version", self._handle, byref(key._document()),
                         _flags((with_info, _WITH_INFO)),
                         _c.EntryVisitor(collected.take(_made_of_entry)), None)
        return iter(collected.finish(answer))

    def owners(self, area: str) -> Iterator[str]:
        """The owners that have a folder in an area."""
        collected = _Collected()
        answer = _c.call("vu_each_owner", self._handle, _area(area),
                         _c.NameVisitor(collected.take(_text)), None)
        return iter(collected.finish(answer))

    # ---- key files and profiles ----------------------------------------------------------------

    def key_value(self, key: Key, line: str) -> Optional[str]:
        """The value of a line of a key file; None if the line or the file does not exist."""
        document = key._document()
        return _ask_text(
            lambda *out: _c.call("vu_key_get", self._handle, byref(document), _raw(line), *out),
            _c.NOTHING_MATCHED)

    def set_key(self, key: Key, line: str, value: str) -> None:
        """Sets the value of a line; creates a missing line or file."""
        _check(_c.call("vu_key_set", self._handle, byref(key._document()), _raw(line),
                       _raw(value)))

    def remove_key(self, key: Key, line: str) -> bool:
        """Removes the lines with that name. Returns False if there is none."""
        return _check(_c.call("vu_key_delete", self._handle, byref(key._document()), _raw(line)),
                      _c.NOTHING_MATCHED)

    def keys(self, key: Key) -> list[tuple[str, str]]:
        """The lines in file order; empty if the file does not exist."""
        collected = _Collected()
        visit = _c.LineVisitor(collected.take(lambda name, value: (_text(name), _text(value))))
        return collected.finish(
            _c.call("vu_key_each", self._handle, byref(key._document()), visit, None),
            _c.NOTHING_MATCHED)

    def profile_value(self, owner: Optional[str], line: str,
                      file: Optional[str] = None) -> Optional[str]:
        """The value of a line of an owner's profile, or of the master profile for the owner None.
        For file see vu_profile_get()."""
        return _ask_text(
            lambda *out: _c.call("vu_profile_get", self._handle, _raw_or_none(owner),
                                 _raw_or_none(file), _raw(line), *out),
            _c.NOTHING_MATCHED)

    def set_profile(self, owner: Optional[str], line: str, value: str,
                    file: Optional[str] = None) -> None:
        """Sets the value of a line of a profile."""
        _check(_c.call("vu_profile_set", self._handle, _raw_or_none(owner), _raw_or_none(file),
                       _raw(line), _raw(value)))

    def remove_profile(self, owner: Optional[str], line: str, file: Optional[str] = None) -> bool:
        """Removes the lines with that name from a profile. Returns False if there is none."""
        return _check(
            _c.call("vu_profile_delete", self._handle, _raw_or_none(owner), _raw_or_none(file),
                    _raw(line)),
            _c.NOTHING_MATCHED)

    def profile(self, owner: Optional[str], file: Optional[str] = None) -> list[tuple[str, str]]:
        """The lines of a profile in file order; empty if the file does not exist."""
        collected = _Collected()
        visit = _c.LineVisitor(collected.take(lambda name, value: (_text(name), _text(value))))
        return collected.finish(
            _c.call("vu_profile_each", self._handle, _raw_or_none(owner), _raw_or_none(file), visit,
                    None),
            _c.NOTHING_MATCHED)

    # ---- owners and upkeep ---------------------------------------------------------------------

    def rename_owner(self, old: str, new: str) -> bool:
        """Renames an owner's folders except those of corporate documents. Returns False if a folder
        with the new name exists. Nobody else may use these folders during the call."""
        return _check(_c.call("vu_rename_owner", self._handle, _raw(old), _raw(new)), _c.ALREADY)

    def remove_owner(self, owner: str) -> bool:
        """Removes an owner's folders, with all files, except those of corporate documents. Returns
        False if there is none."""
        return _check(_c.call("vu_remove_owner", self._handle, _raw(owner)), _c.NOTHING_MATCHED)

    def outdated(self, area: str, owner: Optional[str], older_than: timedelta, *,
                 by_access: bool = False, everything: bool = False) -> list[Entry]:
        """The versions that clean() would remove."""
        collected = _Collected()
        answer = _c.call("vu_clean", self._handle, _area(area), _raw_or_none(owner),
                         _seconds(older_than), _DRY_RUN | _cleaning(by_access, everything),
                         _c.EntryVisitor(collected.take(_made_of_entry)), None, None)
        return collected.finish(answer)

    def clean(self, area: str, owner: Optional[str], older_than: timedelta, *,
              by_access: bool = False, everything: bool = False) -> int:
        """Removes the versions not changed for longer than older_than, sweeps the folders, and
        returns the number of versions removed. A StorageError does not tell it: some may be gone.

        owner: None for every owner.
        by_access: age is the time since the last access, not since the last change.
        everything: allows an older_than of 0, which removes all versions. Otherwise 0 is refused.
        """
        count = ctypes.c_int64()
        _check(_c.call("vu_clean", self._handle, _area(area), _raw_or_none(owner),
                       _seconds(older_than), _cleaning(by_access, everything),
                       _c.EntryVisitor(), None, byref(count)))
        return count.value

    def migrate_inbox(self, owner: str) -> bool:
        """Migrates an owner's mail folder. Returns False if there is none."""
        return _check(_c.call("vu_migrate_inbox", self._handle, _raw(owner)), _c.NOTHING_MATCHED)


def _raw_or_none(text: Optional[str]) -> Optional[bytes]:
    return None if text is None else _raw(text)


def _seconds(age: timedelta) -> int:
    # Rounded up: an age below one second must not become 0, which removes everything.
    return -int(-age // timedelta(seconds=1))


def _cleaning(by_access: bool, everything: bool) -> int:
    return _flags((by_access, _BY_ACCESS), (everything, _CLEAN_ALL))


@dataclass(frozen=True)
class Trace:
    """One trace record."""

    kind: str
    """"scope begin", "scope end", "message", "record", "done", "missing" or "failure"."""
    level: int
    """0 (most important) to 4 (most detailed); -1: no level."""
    source: str
    line: int
    signature: str
    text: str


_KINDS_OF_TRACES = ("scope begin", "scope end", "message", "record", "done", "missing", "failure")
_sink: Any = None


def set_trace(tell: Optional[Callable[[Trace], None]], level: int = 4) -> None:
    """Sends every trace of the library to a function; None for silence.

    level: the most detailed level to send, -1 (only events) to 4.

    Any thread may call the function, several at once. It must not call the library. An exception
    that leaves it is written to the standard error output and otherwise dropped. Call set_trace
    while no other thread is inside the library.
    """
    global _sink

    def hear(_context: Any, told: Any) -> None:
        one = told.contents
        text = ctypes.string_at(one.text, one.text_size)
        tell(Trace(_KINDS_OF_TRACES[one.kind - 1], one.level, _text(one.source), one.line,
                   _text(one.signature), text.decode("utf-8", "replace")))

    sink = _c.TraceSink() if tell is None else _c.TraceSink(hear)
    _check(_c.call("vu_set_trace", sink, None, _number(level, 32)))
    # The library keeps only the pointer: Python must keep the callback alive.
    _sink = sink


@atexit.register
def _clear_sink() -> None:
    # Keeps _sink: a daemon thread may be inside the callback.
    if _sink:
        _c.call("vu_set_trace", _c.TraceSink(), None, -1)
