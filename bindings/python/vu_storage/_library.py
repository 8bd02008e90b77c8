"""The C interface in ctypes: finding the library, its structures, its functions, calling them."""

from __future__ import annotations

import _thread
import atexit
import collections
import ctypes
import os
import sys
import time
from ctypes import (
    CFUNCTYPE,
    POINTER,
    Structure,
    c_char_p,
    c_int32,
    c_int64,
    c_size_t,
    c_uint32,
    c_void_p,
)
from typing import Any, NamedTuple, Optional

DONE = 0
NOTHING_MATCHED = 3
PARTLY_DONE = 5
ALREADY = 20
BUSY = 23
TOO_SHORT = 21
OUTDATED = 26
INTERRUPTED = 130


def _structure(name, /, **fields):
    """A structure of the C interface: its own size, then these fields."""
    return type(name, (Structure,), {"_fields_": [("struct_size", c_size_t), *fields.items()]})


Error = _structure(
    "Error", status=c_int32, system_code=c_int32, operation=c_char_p, text=c_char_p,
    path=c_char_p, system_text=c_char_p)
Settings = _structure(
    "Settings", root=c_char_p, flags=c_uint32, reserved=c_uint32, wait_ms=c_int64)
Document = _structure(
    "Document", area=c_int32, reserved=c_uint32, owner=c_char_p, name=c_char_p, version=c_int64)
Info = _structure("Info", version=c_int64, size=c_int64, modified=c_int64, accessed=c_int64)
Entry = _structure(
    "Entry", area=c_int32, reserved=c_uint32, owner=c_char_p, name=c_char_p, file=c_char_p,
    info=Info)
Trace = _structure(
    "Trace", kind=c_int32, level=c_int32, source=c_char_p, line=c_int32, reserved=c_uint32,
    signature=c_char_p, text=c_void_p, text_size=c_size_t)

EntryVisitor = CFUNCTYPE(c_int32, c_void_p, POINTER(Entry))
NameVisitor = CFUNCTYPE(c_int32, c_void_p, c_char_p)
LineVisitor = CFUNCTYPE(c_int32, c_void_p, c_char_p, c_char_p)
TraceSink = CFUNCTYPE(None, c_void_p, POINTER(Trace))

_SIZE = POINTER(c_size_t)
_STREAM = POINTER(c_void_p)
_DOCUMENT = POINTER(Document)
_TEXT_OUT = [c_char_p, c_size_t, _SIZE]

#: Each function with its argument types; the result is a status.
_FUNCTIONS = {
    "vu_last_error": [POINTER(Error)],
    "vu_open_store": [POINTER(Settings), POINTER(c_void_p)],
    "vu_close_store": [c_void_p],
    "vu_folder": [c_void_p, c_int32, *_TEXT_OUT],
    "vu_exists": [c_void_p, _DOCUMENT],
    "vu_describe": [c_void_p, _DOCUMENT, POINTER(Info)],
    "vu_file_path": [c_void_p, _DOCUMENT, *_TEXT_OUT],
    "vu_read": [c_void_p, _DOCUMENT, c_void_p, c_size_t, _SIZE],
    "vu_read_whole": [c_void_p, _DOCUMENT, POINTER(c_void_p), _SIZE],
    "vu_put": [c_void_p, _DOCUMENT, c_char_p, c_size_t, c_uint32, POINTER(c_int32)],
    "vu_copy_in": [c_void_p, _DOCUMENT, c_char_p, c_uint32, POINTER(c_int32)],
    "vu_copy_out": [c_void_p, _DOCUMENT, c_char_p, c_uint32],
    "vu_remove": [c_void_p, _DOCUMENT],
    "vu_rename": [c_void_p, _DOCUMENT, _DOCUMENT, c_uint32],
    "vu_latest": [c_void_p, _DOCUMENT, POINTER(c_int64)],
    "vu_open": [c_void_p, _DOCUMENT, c_int32, _STREAM],
    "vu_open_part": [c_void_p, _DOCUMENT, c_char_p, c_char_p, c_int32, _STREAM],
    "vu_stream_read": [c_void_p, c_void_p, c_size_t, _SIZE],
    "vu_stream_write": [c_void_p, c_char_p, c_size_t],
    "vu_stream_seek": [c_void_p, c_int64, c_int32],
    "vu_stream_size": [c_void_p, POINTER(c_int64)],
    "vu_stream_close": [c_void_p],
    "vu_each_document": [c_void_p, c_int32, c_char_p, c_uint32, EntryVisitor, c_void_p],
    "vu_each_version": [c_void_p, _DOCUMENT, c_uint32, EntryVisitor, c_void_p],
    "vu_each_owner": [c_void_p, c_int32, NameVisitor, c_void_p],
    "vu_key_get": [c_void_p, _DOCUMENT, c_char_p, *_TEXT_OUT],
    "vu_key_set": [c_void_p, _DOCUMENT, c_char_p, c_char_p],
    "vu_key_delete": [c_void_p, _DOCUMENT, c_char_p],
    "vu_key_each": [c_void_p, _DOCUMENT, LineVisitor, c_void_p],
    "vu_profile_get": [c_void_p, c_char_p, c_char_p, c_char_p, *_TEXT_OUT],
    "vu_profile_set": [c_void_p, c_char_p, c_char_p, c_char_p, c_char_p],
    "vu_profile_delete": [c_void_p, c_char_p, c_char_p, c_char_p],
    "vu_profile_each": [c_void_p, c_char_p, c_char_p, LineVisitor, c_void_p],
    "vu_rename_owner": [c_void_p, c_char_p, c_char_p],
    "vu_remove_owner": [c_void_p, c_char_p],
    "vu_clean": [
        c_void_p, c_int32, c_char_p, c_int64, c_uint32, EntryVisitor, c_void_p, POINTER(c_int64),
    ],
    "vu_migrate_inbox": [c_void_p, c_char_p],
    "vu_set_trace": [TraceSink, c_void_p, c_int32],
}


def _names() -> list[str]:
    """Names of the library to try: VU_STORAGE_LIBRARY, or the name for the system's loader. On
    Windows the folder "bin" of the installation that contains this file comes first, then PATH: the
    system does not search PATH for the DLLs of Python."""
    named = os.environ.get("VU_STORAGE_LIBRARY")
    if named:
        return [os.path.abspath(named) if os.path.exists(named) else named]
    if sys.platform != "win32":
        return ["libvu_storage.so.1"]
    tree = os.path.abspath(os.path.join(os.path.dirname(__file__), *[os.pardir] * 4))
    folders = [os.path.join(tree, "bin")]
    for folder in os.environ.get("PATH", "").split(os.pathsep):
        folder = folder.strip('"')
        # Not a relative one: it would load a DLL from the current folder.
        if os.path.isabs(folder):
            folders.append(folder)
    found = [os.path.join(folder, "vu_storage.dll") for folder in folders]
    return [*filter(os.path.exists, found), "vu_storage.dll"]


def load() -> ctypes.CDLL:
    """Loads the library and declares its functions."""
    library = None
    reasons = []
    for name in _names():
        try:
            library = ctypes.CDLL(name)
            break
        except OSError as reason:
            reasons.append(str(reason))
    if library is None:
        raise ImportError(
            "cannot find the storage library; set VU_STORAGE_LIBRARY to its path: "
            + "; ".join(reasons)
        )
    for name, arguments in _FUNCTIONS.items():
        function = getattr(library, name)
        function.argtypes = arguments
        function.restype = c_int32
    library.vu_version.argtypes = []
    library.vu_version.restype = c_char_p
    library.vu_version_number.argtypes = []
    library.vu_version_number.restype = c_int32
    library.vu_status_name.argtypes = [c_int32]
    library.vu_status_name.restype = c_char_p
    library.vu_free.argtypes = [c_void_p]
    library.vu_free.restype = None
    return library


library = load()

# ---- calls ---------------------------------------------------------------------------------------


class Problem(NamedTuple):
    """A copy of vu_error, with texts in the encoding of the library."""

    status: int
    operation: bytes
    text: bytes
    path: bytes
    system_code: int
    system_text: bytes


class Answer(NamedTuple):
    """The result of a call; without a problem for DONE."""

    status: int
    problem: Optional[Problem] = None


_DONE = Answer(DONE)

#: The threads that are between the start of a call and the end of reading its error.
_inside: set[int] = set()

#: The thread that ends the interpreter. All others that still exist are daemon threads.
_ending: Optional[int] = None

#: Handles to close: the name of the function, the handle, and the process that opened it.
_abandoned: collections.deque[tuple[str, Any, int]] = collections.deque()


def _problem() -> Problem:
    error = Error(struct_size=ctypes.sizeof(Error))
    library.vu_last_error(ctypes.byref(error))
    return Problem(error.status, error.operation, error.text, error.path, error.system_code,
                   error.system_text)


def _call_here(name: str, *arguments: Any, may_stop: bool = False) -> Answer:
    thread = _thread.get_ident()
    try:
        _inside.add(thread)
        if may_stop and _ending not in (None, thread):
            _inside.discard(thread)
            _stop_this_thread()
        status = getattr(library, name)(*arguments)
        return _DONE if status == DONE else Answer(status, _problem())
    finally:
        _inside.discard(thread)


def _call_elsewhere(name: str, *arguments: Any) -> Answer:
    """Calls a function on a thread of its own. Takes no lock of the module threading: the code that
    was interrupted may hold it."""
    answers: list[Answer] = []
    reasons: list[BaseException] = []
    done = _thread.allocate_lock()

    def work() -> None:
        try:
            answers.append(_call_here(name, *arguments))
        except BaseException as reason:  # pylint: disable=broad-except
            reasons.append(reason)
        finally:
            done.release()

    done.acquire()
    _thread.start_new_thread(work, ())
    done.acquire()
    if reasons:
        raise reasons[0]
    return answers[0]


def call(name: str, *arguments: Any) -> Answer:
    """Calls a function of the library.

    vu_last_error() reports the thread's last call. Python can run a signal handler or a destructor
    between a call and the reading of its error. Calls of such code run on another thread, so they
    never replace that error."""
    if _thread.get_ident() in _inside:
        return _call_elsewhere(name, *arguments)
    close_abandoned()
    answer = _call_here(name, *arguments, may_stop=True)
    close_abandoned()
    return answer


def close_abandoned() -> None:
    """Closes the handles of destroyed objects. Drops those that another process has opened: after
    a fork() they belong to the parent."""
    while _abandoned:
        try:
            name, handle, process = _abandoned.popleft()
        except IndexError:
            return  # Another thread was faster.
        if process == os.getpid():
            _call_here(name, handle)


def abandon(name: str, handle: Any, process: int) -> None:
    """For destructors, which can run at any time: closes the handle, or if this thread is inside a
    call, leaves that to the end of the call."""
    _abandoned.append((name, handle, process))
    if _thread.get_ident() not in _inside:
        close_abandoned()


def close(name: str, handle: Any, process: int) -> Answer:
    """Closes a handle that this process has opened. Inside another call of this thread the handle
    is closed at the end of that call: the library may hold locks now."""
    if process != os.getpid():
        return _DONE
    if _thread.get_ident() in _inside:
        abandon(name, handle, process)
        return _DONE
    return call(name, handle)


def _forked() -> None:
    # Only the thread that forked exists in the child.
    _inside.intersection_update({_thread.get_ident()})
    _abandoned.clear()


def _stop_this_thread() -> None:
    never = _thread.allocate_lock()
    never.acquire()
    never.acquire()


def _end() -> None:
    """Python ends a daemon thread when a callback of the library needs the interpreter, and the
    process then aborts. So no daemon thread starts a call now, and those inside a call get a second
    to leave it: a wait for a lock can be endless."""
    global _ending
    _ending = _thread.get_ident()
    last = time.monotonic() + 1
    while _inside - {_ending} and time.monotonic() < last:
        time.sleep(0.001)
    close_abandoned()


if hasattr(os, "register_at_fork"):
    os.register_at_fork(after_in_child=_forked)
atexit.register(_end)
