"""Notes which functions of the C interface have succeeded in the tests."""

import pytest

from vu_storage import _library

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
