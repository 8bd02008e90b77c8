#pragma once

#include <gtest/gtest.h>

#include <string>

#include "tests/unit/index_fixture.h"

/// An index whose entries change, and what the changes trace.
class IndexEntries : public IndexTest {
 protected:
  /// The two records that a change ends with.
  Texts change(const std::string& kind, int blanks) const {
    return {
        "M:  STGIndex (" + kind + ": Set need update flag to true: index.dat will be updated",
        "M: " + std::string(static_cast<std::size_t>(blanks), ' ') + "folder : " + folder.path()};
  }
  Texts create_texts() const { return change("create)", 11); }
  Texts remove_texts() const { return change("remove) ", 12); }
  Texts rename_texts() const { return change("rename)", 11); }
};
