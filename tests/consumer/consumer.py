"""A program outside of this project, with the package as it was installed: consumer.py FOLDER."""

import sys

import vu_storage

with vu_storage.Store(sys.argv[1], make_root=True) as store:
    report = vu_storage.Key("docs", "anna", "report.kdf", 20240501)
    assert store.put(report, "Hello")
    assert store.read_text(report) == "Hello"
    assert [entry.key for entry in store.documents("docs", "anna")] == [report]
    try:
        store.put(vu_storage.Key("docs", "..", "report.kdf"), "Hello")
    except vu_storage.Refused as refused:
        assert refused.name == "VU_REFUSED"
    else:
        sys.exit("an owner that is a parent folder was not refused")
print("consumer: passed")
