"""The package against the library: every function, through the public interface."""

import array
import concurrent.futures
import copy
import ctypes
import datetime
import gc
import io
import os
import pathlib
import pickle
import re
import signal
import subprocess
import sys
import threading

import pytest

import vu_storage
from vu_storage import Key, _library

# ---- which functions of the C interface have succeeded in the tests ------------------------------

_succeeded = set()


class _Noted:
    """Calls a function of the library and notes its name when it succeeds."""

    def __init__(self, name, function):
        self._name = name
        self._function = function

    def __call__(self, *arguments):
        result = self._function(*arguments)
        if self._function.restype is not _library.c_int32 or result == _library.DONE \
                or self._name == "vu_version_number":
            _succeeded.add(self._name)
        return result


for _name in [*_library._FUNCTIONS, "vu_version", "vu_version_number", "vu_status_name", "vu_free"]:
    setattr(_library.library, _name, _Noted(_name, getattr(_library.library, _name)))


@pytest.fixture(scope="session")
def calls():
    """The names of the functions that have succeeded so far."""
    return _succeeded


# ---- the tests -----------------------------------------------------------------------------------

DAY = datetime.timedelta(days=1)


@pytest.fixture(scope="session")
def store(tmp_path_factory):
    root = tmp_path_factory.mktemp("root") / "made"
    with vu_storage.Store(root, make_root=True) as opened:
        assert opened.initialised
        yield opened


def test_the_version_is_that_of_the_package():
    major, minor, patch = (int(part) for part in vu_storage.version().split("."))
    assert vu_storage.version_number() == major * 10000 + minor * 100 + patch
    text = (pathlib.Path(__file__).parents[1] / "pyproject.toml").read_text()
    assert f'version = "{vu_storage.version()}"' in text


def test_on_windows_the_library_is_found_in_path(tmp_path, monkeypatch):
    for name in ("first", "second", "empty"):
        (tmp_path / name).mkdir()
    for name in ("first", "second"):
        (tmp_path / name / "vu_storage.dll").write_bytes(b"")
    monkeypatch.delenv("VU_STORAGE_LIBRARY", raising=False)
    monkeypatch.chdir(tmp_path)
    monkeypatch.setattr(sys, "platform", "win32")
    folders = ["", "second", tmp_path / "empty", f'"{tmp_path / "second"}"', tmp_path / "first"]
    monkeypatch.setenv("PATH", os.pathsep.join(str(folder) for folder in folders))
    assert _library._names() == [str(tmp_path / "second" / "vu_storage.dll"),
                                 str(tmp_path / "first" / "vu_storage.dll"), "vu_storage.dll"]
    monkeypatch.delenv("PATH")
    assert _library._names() == ["vu_storage.dll"]


def test_a_second_store_joins(store):
    with vu_storage.Store() as second:
        assert not second.initialised
        assert second.folder() == store.folder()
        assert second.folder("docs") == store.folder() / "docs"
    with pytest.raises(vu_storage.StorageError) as raised:
        second.exists(Key("docs", "anna", "a.kdf"))
    assert raised.value.name == "VU_BAD_HANDLE"


def test_a_store_is_closed_when_nothing_refers_to_it(store):
    handle = vu_storage.Store()._handle
    status = _library.library.vu_folder(handle, 0, None, 0, _library.c_size_t())
    assert vu_storage.StorageError(status, "", "", "", 0, "").name == "VU_BAD_HANDLE"
    # The storage itself stays open.
    assert store.folder().is_dir()


def test_another_root_is_refused(store, tmp_path):
    with pytest.raises(vu_storage.Refused) as raised:
        vu_storage.Store(tmp_path)
    assert raised.value.path == store.folder()


@pytest.mark.parametrize("area", ["docs", "user", "mail"])
@pytest.mark.parametrize("data", [b"", b"\0\n\xff", b"x" * 300_000])
def test_what_is_put_is_read(store, area, data):
    key = Key(area, "anna", f"größe-{len(data)}.kdf", 7)
    assert store.read(key) is None
    assert store.put(key, data)
    assert store.read(key) == data
    assert store.exists(key)
    assert not store.put(key, b"other", replace=False)
    assert store.read(key) == data
    assert store.put(key, "text ü", in_place=True)
    assert store.read_text(key) == "text ü"


def test_storing_tells_how(store, tmp_path):
    Stored = vu_storage.Stored
    source = tmp_path / "in"
    source.write_bytes(b"copied")
    key = Key("user", "anna", "how", 1)
    assert store.put(key, b"1") is Stored.AT_ONCE
    assert store.put(key, b"2") is Stored.AT_ONCE
    assert store.put(key, b"3", in_place=True) is Stored.IN_PLACE
    assert store.put(key, b"4", replace=False) is Stored.NOT_STORED
    assert store.copy_in(key, source) is Stored.AT_ONCE
    assert store.copy_in(key, source, replace=False) is Stored.NOT_STORED
    assert store.read(key) == b"copied"
    # A file with the name of the document is served for it, so only a write in place changes it.
    (store.folder("user") / "anna" / "own").write_bytes(b"own")
    own = Key("user", "anna", "own")
    assert store.put(own, b"bytes") is Stored.IN_PLACE
    assert store.copy_in(own, source) is Stored.IN_PLACE
    assert store.read(own) == b"copied"
    assert [bool(how) for how in Stored] == [False, True, True]
    with pytest.raises(vu_storage.Refused) as raised:
        store.put(Key("user", "anna", "..", 1), b"x")
    assert raised.value.stored is Stored.NOT_STORED


def test_an_error_tells_how_a_version_was_stored(store):
    key = Key("user", "anna", "line.txt", 1)
    category = Key("user", "anna", "list.ctg")
    store.put(key, b"old")
    store.put(category, b"line.txt=1\n")
    # Replacing the version removes its line from the category file, which is locked.
    with vu_storage.Store(wait=datetime.timedelta(0)) as hurried, store.open(category):
        with pytest.raises(vu_storage.StorageError) as raised:
            hurried.put(key, b"new")
    assert raised.value.name == "VU_PARTLY_DONE"
    assert raised.value.stored is vu_storage.Stored.AT_ONCE
    assert store.read(key) == b"new"


def test_only_bytes_and_texts_are_stored(store):
    key = Key("docs", "anna", "kinds.kdf", 1)
    store.put(key, b"old")
    for data in (7, [1, 2], None, True):
        with pytest.raises(TypeError):
            store.put(key, data)
    assert store.read(key) == b"old"
    for data in (bytearray(b"ab"), memoryview(b"xaxb")[1::2], array.array("H", [0x6261])):
        assert store.put(key, data)
        assert store.read(key) == b"ab"
    with store.open(key, "w") as file:
        for data in (3, [1], "text"):
            with pytest.raises(TypeError):
                file.write(data)
        assert file.write(array.array("H", [0x6261])) == 2
    assert store.read(key) == b"ab"


def test_a_version_is_described_renamed_and_removed(store):
    key = Key("user", "bert", "a.txt", 3)
    assert store.info(key) is None
    store.put(key, b"12345")
    info = store.info(Key("user", "bert", "a.txt", vu_storage.LATEST))
    assert (info.version, info.size) == (3, 5)
    assert -DAY < info.age < DAY
    assert store.file_path(key).read_bytes() == b"12345"
    other = Key("user", "bert", "b.txt", 4)
    assert store.rename(key, other)
    assert store.latest(other) == 4
    assert store.latest(key) is None
    store.put(key, b"new")
    assert not store.rename(key, other)
    assert store.rename(key, other, replace=True)
    assert store.read(other) == b"new"
    assert store.remove(other)
    assert not store.remove(other)
    with pytest.raises(vu_storage.NotThere):
        store.file_path(other)


def test_files_are_copied_in_and_out(store, tmp_path):
    source = tmp_path / "in"
    source.write_bytes(b"bytes")
    key = Key("docs", "carl", "a.kdf", 1)
    assert store.copy_in(key, source)
    assert not store.copy_in(key, str(source), replace=False)
    assert store.copy_out(key, tmp_path / "out")
    assert not store.copy_out(key, tmp_path / "out", replace=False)
    assert (tmp_path / "out").read_bytes() == b"bytes"
    with pytest.raises(vu_storage.NotThere):
        store.copy_in(key, tmp_path / "missing")


class _BytesPath:
    def __init__(self, raw):
        self._raw = raw

    def __fspath__(self):
        return self._raw


def test_paths_may_be_bytes(store, tmp_path):
    source = tmp_path / "größe"
    source.write_bytes(b"bytes")
    key = Key("docs", "carl", "bytes.kdf", 1)
    for path in (os.fsencode(source), _BytesPath(os.fsencode(source))):
        assert store.copy_in(key, path)
    assert store.copy_out(key, os.fsencode(tmp_path / "out"))
    assert (tmp_path / "out").read_bytes() == b"bytes"
    for path in ("a\0b", b"a\0b"):
        with pytest.raises(ValueError):
            store.copy_in(key, path)
    with pytest.raises(TypeError):
        store.copy_in(key, 7)


# Uses a storage in the folder that is in argv[1], by the paths that os and the package return.
_COPY_A_FOLDER = """
import os, pathlib, sys, vu_storage
assert sys.getfilesystemencoding() == sys.argv[2], sys.getfilesystemencoding()
folder = pathlib.Path(sys.argv[1])
[name] = os.listdir(folder)
with vu_storage.Store(folder / name, make_root=True) as store:
    (folder / name / name).write_bytes(b"bytes")
    key = vu_storage.Key("docs", "anna", "a.kdf", 1)
    store.copy_in(key, folder / name / name)
    assert store.folder() == folder / name / "storage", store.folder()
    assert store.file_path(key).read_bytes() == b"bytes"
    store.copy_out(key, folder / name / (name + "-out"))
    assert (folder / name / (name + "-out")).read_bytes() == b"bytes"
    try:
        store.copy_in(key, folder / name / (name + "-missing"))
    except vu_storage.NotThere as error:
        assert error.path == folder / name / (name + "-missing"), error.path
"""


@pytest.mark.skipif(sys.platform != "linux", reason="there a path is bytes")
@pytest.mark.parametrize("locale", ["C", "C.UTF-8", "de_DE.ISO-8859-1"])
def test_paths_are_those_of_the_locale(tmp_path, locale):
    environment = {**os.environ, "PYTHONPATH": str(pathlib.Path(__file__).parents[1]),
                   "PYTHONUTF8": "0", "PYTHONCOERCECLOCALE": "0", "LC_ALL": locale}
    if locale == "de_DE.ISO-8859-1":
        environment["LOCPATH"] = str(tmp_path)
        made = subprocess.run(["localedef", "-i", "de_DE", "-f", "ISO-8859-1", tmp_path / locale],
                              capture_output=True)
        if made.returncode != 0:
            pytest.skip("localedef cannot compile this locale")
    encoding = subprocess.run(
        [sys.executable, "-c", "import sys; print(sys.getfilesystemencoding())"],
        env=environment, check=True, capture_output=True, text=True).stdout.strip()
    folder = tmp_path / "files"
    (folder / "größe").mkdir(parents=True)
    ran = subprocess.run([sys.executable, "-c", _COPY_A_FOLDER, str(folder), encoding],
                         env=environment, capture_output=True, text=True)
    assert (ran.returncode, ran.stderr) == (0, "")


def test_an_open_version_is_a_file(store):
    key = Key("docs", "dora", "a.kdf", 1)
    with pytest.raises(vu_storage.NotThere):
        store.open(key)
    with store.open(key, "x") as file:
        assert file.writable() and not file.readable()
        file.write(b"0123456789")
        file.seek(2)
        file.write(bytearray(b"xy"))
        assert file.size() == 10
    with pytest.raises(ValueError):
        file.write(b"x")
    with pytest.raises(vu_storage.AlreadyThere):
        store.open(key, "x")
    with store.open(key) as file:
        assert io.BufferedReader(file, 4).read() == b"01xy456789"
    with store.open(key, "s") as file:
        assert file.read(3) == b"01x"
        file.seek(-2, os.SEEK_END)
        assert file.readall() == b"89"
    with store.open(key, "w") as file:
        file.write(b"over")
    assert store.read(key) == b"over"
    with pytest.raises(ValueError):
        store.open(key, "q")


def test_a_lock_is_waited_for_in_time(store):
    key = Key("docs", "emil", "a.kdf", 1)
    store.put(key, b"x")
    root = store.folder().parent
    with store.open(key, "w"):
        for wait in (datetime.timedelta(0), datetime.timedelta(milliseconds=50)):
            with vu_storage.Store(root, wait=wait) as hurried:
                with pytest.raises(vu_storage.LockTimeout) as raised:
                    hurried.read(key)
                assert raised.value.path is not None


def test_a_file_that_is_in_use_stays_open(store):
    key = Key("docs", "emil", "busy.kdf", 1)
    store.put(key, b"x")
    file = store.open(key)
    traces = []
    errors = []

    def close_in_another_thread(trace):
        traces.append(trace)
        if len(traces) > 1:
            return

        def close():
            try:
                file.close()
            except vu_storage.StorageError as error:
                errors.append(error.name)

        thread = threading.Thread(target=close)
        thread.start()
        thread.join()

    vu_storage.set_trace(close_in_another_thread)
    try:
        assert file.read(1) == b"x"
    finally:
        vu_storage.set_trace(None)
    assert errors == ["VU_BUSY"]
    assert not file.closed
    file.close()
    assert file.closed
    with store.open(key, "w"):
        pass


# Code that Python can run between a call and the reading of its error. Each gets the store, a file
# that nothing else refers to, and the current test's key.


def _collect_a_file(_store, file, _key):
    file.itself = file
    del file
    gc.collect()


def _collect_a_buffer(_store, file, _key):
    buffered = io.BufferedReader(file)
    file.itself = buffered
    del buffered, file
    gc.collect()


def _close_in_a_signal_handler(_store, file, _key):
    old = signal.signal(signal.SIGUSR1, lambda *_: file.close())
    try:
        signal.raise_signal(signal.SIGUSR1)
    finally:
        signal.signal(signal.SIGUSR1, old)


def _store_another(store, file, key):
    file.close()
    store.put(Key(key.area, key.owner, "another.kdf", 1), b"nested")


@pytest.mark.parametrize("interrupt", [_collect_a_file, _collect_a_buffer,
                                       _close_in_a_signal_handler, _store_another])
def test_an_error_is_that_of_its_call(store, monkeypatch, interrupt):
    owner = interrupt.__name__.lstrip("_")
    key = Key("docs", owner, "open.kdf", 1)
    missing = Key("docs", owner, "missing.kdf", 1)
    store.put(key, b"x")
    used = []
    made = _library.library.vu_file_path

    def interrupted(*arguments):
        status = made(*arguments)
        if not used:
            used.append(status)
            interrupt(store, store.open(key), missing)
        return status

    monkeypatch.setattr(_library.library, "vu_file_path", interrupted)
    with pytest.raises(vu_storage.NotThere) as raised:
        store.file_path(missing)
    assert used == [3]
    assert (raised.value.status, raised.value.operation) == (3, "vu_file_path")
    # The file is closed when the call has ended.
    with vu_storage.Store(wait=datetime.timedelta(0)) as hurried, hurried.open(key, "w"):
        pass
    if interrupt is _store_another:
        assert store.read(Key("docs", owner, "another.kdf", 1)) == b"nested"


def test_a_nested_call_reports_its_own_error(store, monkeypatch):
    errors = []
    made = _library.library.vu_latest

    def interrupted(*arguments):
        status = made(*arguments)
        with pytest.raises(vu_storage.Refused) as refused:
            store.remove(Key("docs", "nested", "..", 1))
        with pytest.raises(ctypes.ArgumentError) as wrong:
            _library.call("vu_remove", object(), None)
        errors.extend([refused.value.operation, wrong.type])
        return status

    monkeypatch.setattr(_library.library, "vu_latest", interrupted)
    assert store.latest(Key("docs", "nested", "a.kdf")) is None
    assert errors == ["vu_remove", ctypes.ArgumentError]


def test_a_file_is_closed_when_nothing_refers_to_it(store):
    key = Key("docs", "emil", "left.kdf", 1)
    store.open(key, "w").write(b"left")
    with vu_storage.Store(wait=datetime.timedelta(0)) as hurried:
        assert hurried.read(key) == b"left"


@pytest.mark.skipif(not hasattr(os, "fork"), reason="needs fork")
@pytest.mark.parametrize("end", ["leave", "close", "flush", "reopen"])
def test_a_forked_child_does_not_close_the_files_of_its_parent(store, end):
    key = Key("docs", "emil", f"forked-{end}.kdf", 1)
    file = store.open(key, "w")
    file.write(b"part one,")
    buffered = io.BufferedWriter(file)
    buffered.write(b"part two")
    child = os.fork()
    if child == 0:
        code = 1
        try:
            if end == "close":
                file.close()
                store.close()
                code = 0 if file.closed else 2
            elif end == "flush":
                try:
                    buffered.flush()
                except ValueError:
                    code = 0
            else:
                if end == "reopen":
                    with vu_storage.Store() as second:
                        second.put(Key("docs", "emil", "from-the-child.kdf", 1), b"child")
                del buffered, file
                gc.collect()
                code = 0
        finally:
            os._exit(code)
    assert os.waitpid(child, 0)[1] == 0
    # The lock of the parent is still there.
    told = subprocess.run(
        [sys.executable, "-c",
         "import datetime, sys, vu_storage\n"
         "store = vu_storage.Store(sys.argv[1], wait=datetime.timedelta(0))\n"
         "try:\n"
         "    print(store.read(vu_storage.Key('docs', 'emil', sys.argv[2], 1)))\n"
         "except vu_storage.LockTimeout:\n"
         "    print('locked')\n",
         str(store.folder().parent), key.name],
        check=True, capture_output=True, text=True).stdout
    assert told == "locked\n"
    buffered.close()
    assert store.read(key) == b"part one,part two"


def test_positions_are_those_of_other_files(store):
    key = Key("docs", "emma", "a.kdf", 1)
    store.put(key, b"0123456789")
    with store.open(key) as file:
        assert file.seek(4) == 4
        assert file.read(2) == b"45"
        assert file.tell() == 6
        assert file.seek(1, os.SEEK_CUR) == 7
        assert file.read(1) == b"7"
        assert file.seek(-1, os.SEEK_END) == 9
        with pytest.raises(ValueError):
            file.seek(-1)
        with pytest.raises(ValueError):
            file.seek(0, 7)
        assert file.read() == b"9"
        buffered = io.BufferedReader(file, 4)
        buffered.seek(-4, os.SEEK_END)
        assert buffered.read(2) == b"67"
        buffered.seek(-1, os.SEEK_CUR)
        assert buffered.read() == b"789"


def test_numbers_are_not_cut(store):
    key = Key("docs", "emma", "numbers.kdf", 9)
    store.put(key, b"0123456789")
    for version in (2**64 + 9, 2**64 - 1, 2**63, -(2**63) - 1):
        for call in (store.exists, store.read, store.remove, store.open, store.info):
            with pytest.raises(OverflowError):
                call(Key(key.area, key.owner, key.name, version))
    assert store.read(key) == b"0123456789"
    with store.open(key) as file:
        file.seek(3)
        for offset in (2**64, 2**63):
            with pytest.raises(OverflowError):
                file.seek(offset)
        with pytest.raises(vu_storage.StorageError):
            file.seek(2**40)
        assert file.tell() == 3
        assert file.read(1) == b"3"
    for level in (2**32, 2**64 + 1):
        with pytest.raises(OverflowError):
            vu_storage.set_trace(lambda _: None, level)


@pytest.mark.parametrize("wanted", [True, 2, 4, "yes"])
def test_every_true_value_sets_its_flag_alone(store, tmp_path, monkeypatch, wanted):
    flags = []
    for name, place in (("vu_put", 4), ("vu_copy_out", 3), ("vu_rename", 3),
                        ("vu_each_document", 3), ("vu_each_version", 2), ("vu_clean", 4)):
        def noted(*arguments, made=getattr(_library.library, name), place=place):
            flags.append(arguments[place])
            return made(*arguments)

        monkeypatch.setattr(_library.library, name, noted)
    key = Key("user", "emma", "flags", 1)
    store.put(key, b"x", replace=wanted)
    store.put(key, b"x", in_place=wanted, replace=0)
    store.copy_out(key, tmp_path / "out", replace=wanted)
    store.rename(key, key, replace=wanted)
    list(store.documents("user", "emma", with_info=wanted))
    list(store.versions(key, with_info=wanted))
    store.outdated("user", "emma", DAY, by_access=wanted)
    store.outdated("user", "emma", DAY, everything=wanted)
    assert flags == [1, 2, 1, 1, 1, 1, 1 | 2, 1 | 4]


def test_a_version_is_read_into_a_buffer(store):
    key = Key("docs", "erna", "a.kdf", 1)
    buffer = bytearray(8)
    assert store.readinto(key, buffer) is None
    store.put(key, b"12345")
    assert store.readinto(key, buffer) == 5
    assert buffer == b"12345\0\0\0"
    with pytest.raises(vu_storage.StorageError) as raised:
        store.readinto(key, bytearray(4))
    assert raised.value.name == "VU_TOO_SHORT"
    with pytest.raises(TypeError):
        store.readinto(key, b"cannot be written")


def test_any_time_of_a_file_is_told(store, tmp_path):
    source = tmp_path / "in"
    source.write_bytes(b"x")
    key = Key("user", "fritz", "old", 1)
    for seconds in (-5_000_000_000, 0, 8_000_000_000):
        os.utime(source, (seconds, seconds))
        store.copy_in(key, source)
        told = store.info(key).modified
        assert (told - datetime.datetime(1970, 1, 1, tzinfo=datetime.timezone.utc)
                == datetime.timedelta(seconds=int(source.stat().st_mtime)))
    from vu_storage import _time
    assert _time(2**62).year == 9999
    assert _time(-(2**62)).year == 1


def test_parts_are_made_when_they_are_not_up_to_date(store):
    key = Key("docs", "fritz", "a.kdf", 1)
    with pytest.raises(vu_storage.NotThere):
        store.open_part(key, "html@de", "1")
    store.put(key, b"document")
    with pytest.raises(vu_storage.Outdated):
        store.open_part(key, "html@de", "1")
    with store.open_part(key, "html@de", "1", "w") as part:
        part.write(b"part")
    with store.open_part(key, "html@de", "1") as part:
        assert part.readall() == b"part"


def test_lists_tell_keys(store):
    keys = [Key("user", "gerd", name, version) for name in "ab" for version in (2, 10)]
    for key in keys:
        store.put(key, b"1234")
    assert [entry.key for entry in store.documents("user", "gerd")] == keys
    assert [entry.info.size for entry in store.documents("user", "gerd", with_info=True)] == [4] * 4
    assert next(store.documents("user", "gerd")).info is None
    assert [entry.key.version for entry in store.versions(keys[0])] == [2, 10]
    assert "gerd" in store.owners("user")
    assert list(store.documents("user", "nobody")) == []


def test_an_error_can_be_pickled_and_copied(store):
    with pytest.raises(vu_storage.NotThere) as raised:
        store.file_path(Key("docs", "greta", "missing.kdf", 1))
    listed = vu_storage.PartlyListed(5, "vu_each_owner", "a text", "/a/path", 13, "refused")
    listed.entries = [vu_storage.Entry(Key("docs", "greta", "a.kdf", 1), "00000001", None)]
    for error in (raised.value, listed):
        error.note = "added later"
        copies = [pickle.loads(pickle.dumps(error, protocol))
                  for protocol in range(pickle.HIGHEST_PROTOCOL + 1)]
        for other in (*copies, copy.copy(error), copy.deepcopy(error)):
            assert type(other) is type(error)
            assert str(other) == str(error)
            assert vars(other) == vars(error)
            assert other.args == error.args
    assert (listed.path, listed.system_code) == (pathlib.Path("/a/path"), 13)


def _in_a_worker(_number):
    raise vu_storage.AlreadyThere(20, "vu_open", "it exists", "", 0, "")


def test_an_error_leaves_a_worker():
    with concurrent.futures.ProcessPoolExecutor(1) as pool:
        with pytest.raises(vu_storage.AlreadyThere) as raised:
            pool.submit(_in_a_worker, 1).result(timeout=60)
    assert (raised.value.name, raised.value.path) == ("VU_ALREADY", None)


@pytest.mark.skipif(sys.platform != "linux", reason="needs a limit of open files")
def test_an_error_has_the_part_that_was_listed(store):
    import resource  # pylint: disable=import-outside-toplevel

    key = Key("user", "greta", "a", 1)
    store.put(key, b"x")
    before = resource.getrlimit(resource.RLIMIT_NOFILE)
    resource.setrlimit(resource.RLIMIT_NOFILE, (256, before[1]))
    used = []
    try:
        with pytest.raises(OSError):
            while True:
                used.append(os.dup(0))
        # An index can be opened, but then its folder cannot be listed.
        os.close(used.pop())
        with pytest.raises(vu_storage.PartlyListed) as raised:
            store.documents("user", "greta")
        with pytest.raises(vu_storage.PartlyListed):
            store.versions(key)
    finally:
        for number in used:
            os.close(number)
        resource.setrlimit(resource.RLIMIT_NOFILE, before)
    assert raised.value.name == "VU_PARTLY_DONE"
    assert [entry.key for entry in raised.value.entries] == [key]


def test_key_files_and_profiles(store):
    key = Key("user", "hans", "settings.txt")
    assert store.key_value(key, "a") is None
    assert store.keys(key) == []
    store.set_key(key, "a", "v" * 5000)
    store.set_key(key, "b", "ü=2")
    assert store.key_value(key, "a") == "v" * 5000
    assert store.keys(key)[1] == ("b", "ü=2")
    assert store.remove_key(key, "a")
    assert not store.remove_key(key, "a")
    with pytest.raises(vu_storage.Refused):
        store.set_key(key, "a", "two\nlines")
    assert store.profile_value("hans", "lang") is None
    store.set_profile("hans", "lang", "de")
    assert store.profile_value("hans", "lang") == "de"
    assert store.profile("hans") == [("lang", "de")]
    assert store.remove_profile("hans", "lang")
    assert store.profile(None) == []
    store.set_profile("hans", "lang", "fr", "other.txt")
    assert store.profile_value("hans", "lang", "other.txt") == "fr"
    assert store.profile("hans", "other.txt") == [("lang", "fr")]
    assert store.remove_profile("hans", "lang", "other.txt")
    with pytest.raises(vu_storage.StorageError):
        store.set_profile(None, "lang", "de")
    assert not store.remove_profile(None, "lang")


def test_owners_and_upkeep(store, tmp_path):
    assert not store.remove_owner("ida")
    old = tmp_path / "old"
    old.write_bytes(b"x")
    os.utime(old, (1_500_000_000, 1_500_000_000))
    store.copy_in(Key("user", "ida", "old", 1), old)
    store.put(Key("user", "ida", "new", 1), b"x")
    assert [entry.key.name for entry in store.outdated("user", "ida", DAY)] == ["old"]
    assert store.clean("user", "ida", DAY) == 1
    assert [entry.key.name for entry in store.documents("user", "ida")] == ["new"]
    with pytest.raises(vu_storage.Refused):
        store.clean("user", "ida", datetime.timedelta(0))
    assert store.outdated("user", "ida", DAY, by_access=True) == []
    assert len(store.outdated("user", "ida", datetime.timedelta(0), everything=True)) == 1
    # An age below one second is not 0.
    assert store.outdated("user", "ida", datetime.timedelta(milliseconds=1)) == []
    assert not store.migrate_inbox("ida")
    assert store.rename_owner("ida", "jule")
    assert store.exists(Key("user", "jule", "new", 1))
    store.put(Key("user", "ida", "again", 1), b"x")
    assert not store.rename_owner("ida", "jule")
    assert store.remove_owner("jule")


def test_a_mail_folder_is_converted(store):
    folder = store.folder("mail") / "karl"
    folder.mkdir()
    (folder / "A%20B.kdb").write_bytes(b"mail")
    assert store.migrate_inbox("karl")
    assert store.read(Key("mail", "karl", "A B.kdb")) == b"mail"


def test_traces_are_told_while_they_are_wanted(store):
    told = []
    vu_storage.set_trace(told.append)
    store.put(Key("user", "lena", "a", 1), b"x")
    vu_storage.set_trace(None)
    before = len(told)
    store.put(Key("user", "lena", "a", 1), b"y")
    assert len(told) == before > 0
    assert {"scope begin", "scope end", "record"} <= {one.kind for one in told}
    assert all(one.source and one.line > 0 and one.signature for one in told)
    vu_storage.set_trace(told.append, -1)
    with pytest.raises(vu_storage.StorageError):
        vu_storage.set_trace(told.append, 7)
    vu_storage.set_trace(None)


def test_names_that_mean_something_else_are_refused(store):
    for owner, name in [("..", "a"), ("a/b", "a"), ("", "a"), ("a", ""), ("a", "index.dat"),
                        ("a", "x*"), ("a", "a\nb")]:
        with pytest.raises(vu_storage.Refused) as raised:
            store.put(Key("docs", owner, name), b"x")
        assert raised.value.operation == "vu_put"
        assert str(raised.value).endswith("[VU_REFUSED]")
    with pytest.raises(ValueError):
        store.exists(Key("docs", "a", "nul\0"))
    with pytest.raises(ValueError):
        store.exists(Key("elsewhere", "a", "b"))


def test_several_threads_use_one_store(store):
    def work(number):
        for version in range(10):
            store.put(Key("docs", f"thread-{number}", "a.kdf", version), str(version))

    threads = [threading.Thread(target=work, args=(number,)) for number in range(3)]
    for thread in threads:
        thread.start()
    for thread in threads:
        thread.join()
    for number in range(3):
        assert len(list(store.versions(Key("docs", f"thread-{number}", "a.kdf")))) == 10


_DAEMONS = """
import sys, threading, time, vu_storage
store = vu_storage.Store(sys.argv[1], make_root=True)
key = vu_storage.Key("user", "anna", "a", 1)
file = store.open(key, "w")
for version in range(30):
    store.put(vu_storage.Key("user", "anna", "b", version), b"x")
if sys.argv[2] == "trace":
    vu_storage.set_trace(lambda _: None)
works = {"trace": lambda: store.exists(key), "list": lambda: list(store.documents("user", "anna")),
         "wait": lambda: store.read(key)}

def work():
    while True:
        works[sys.argv[2]]()

for _ in range(3):
    threading.Thread(target=work, daemon=True).start()
time.sleep(0.1)
"""


@pytest.mark.parametrize("what", ["trace", "list", "wait"])
def test_a_process_with_daemon_threads_ends(tmp_path, what):
    environment = {**os.environ, "PYTHONPATH": str(pathlib.Path(__file__).parents[1])}
    for number in range(1 if what == "wait" else 3):
        ran = subprocess.run(
            [sys.executable, "-B", "-c", _DAEMONS, str(tmp_path / str(number)), what],
            env=environment, capture_output=True, text=True, timeout=60)
        assert (ran.returncode, ran.stderr) == (0, "")


def test_every_public_thing_has_a_docstring():
    for name in vu_storage.__all__:
        thing = getattr(vu_storage, name)
        if not callable(thing):
            continue
        assert thing.__doc__, name
        for member, value in vars(thing).items():
            if not callable(value) or member.startswith("_"):
                continue
            if value.__qualname__.startswith("Store."):
                assert value.__doc__, f"{name}.{member}"


def test_the_example_walks_a_tree(tmp_path):
    old = tmp_path / "old"
    old.write_bytes(b"x")
    age = 10 * DAY.total_seconds()
    os.utime(old, (old.stat().st_mtime - age,) * 2)
    package = pathlib.Path(__file__).parents[1]
    fill = (
        "import sys, vu_storage\n"
        "with vu_storage.Store(sys.argv[1]) as store:\n"
        "    store.copy_in(vu_storage.Key('docs', 'anna', 'a.kdf', 1), sys.argv[2])\n"
        "    store.put(vu_storage.Key('docs', 'anna', 'b.kdf', 1), 'x')\n"
    )
    environment = {**os.environ, "PYTHONPATH": str(package)}

    def run(*arguments):
        return subprocess.run([sys.executable, *arguments], env=environment, check=True,
                              capture_output=True, text=True).stdout

    run("-c", fill, str(tmp_path), str(old))
    told = run(str(package / "examples" / "ages.py"), str(tmp_path), "docs", "--text")
    assert told == "anna: 2 documents, the oldest 10 days\n"


def test_every_function_of_the_header_has_succeeded(calls, request):
    if any("::" in argument for argument in request.config.args) or request.config.option.keyword:
        pytest.skip("other tests are left out")
    header = pathlib.Path(__file__).parents[3] / "include" / "vu" / "storage.h"
    declared = re.findall(r"^VU_C_API [\w* ]*?(vu_\w+)\(", header.read_text(), re.MULTILINE)
    assert len(declared) > 40
    assert set(declared) - calls == set()
