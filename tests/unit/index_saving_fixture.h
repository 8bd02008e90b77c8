#pragma once

#include <gtest/gtest.h>

#include "tests/unit/index_fixture.h"

/// An index that is written back, and what the writing traces.
class IndexSaving : public IndexTest {
 protected:
  /// Loads the folder's index and writes it back, changed or not.
  void rewrite() const {
    STGIndex index = stg_index_test_peer::load(folder.path());
    stg_index_test_peer::set_need_update(index);
  }

  Texts begin_texts() const {
    return {"M:  STGIndex: (begin) updating index.dat ...", "M:   folder : " + folder.path()};
  }
  Texts not_read_texts() const {
    return {"Error: STGIndex: index.dat is left as it is, for it cannot be read to its end: " +
            folder.path()};
  }
  Texts end_texts() const {
    return {"M:  STGIndex: (end) index.dat is uptodate", "M:   folder : " + folder.path()};
  }
};
