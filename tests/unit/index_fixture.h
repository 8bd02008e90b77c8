#pragma once

#include <gtest/gtest.h>

#include <string>

#include "stg_index.h"
#include "tests/support/index_peer.h"
#include "tests/unit/test_kit.h"
#include "vu_file.h"

enum class UnknownFiles { kStay, kAreAdopted };

/// A fresh folder for an index.
class IndexTest : public testing::Test {
 protected:
  explicit IndexTest(UnknownFiles unknown_files = UnknownFiles::kStay)
      : m_switch(unknown_files == UnknownFiles::kAreAdopted) {}

  /// Whether nobody holds a lock on a file of the folder.
  bool is_free(const std::string& name) const {
    vu_file file(folder.path(), name);
    bool lock_failed = true;
    EXPECT_TRUE(file.try_open(vu_file::o_append, lock_failed, true));
    return !lock_failed;
  }
  bool index_is_free() const { return is_free("index.dat"); }

  index_folder folder;

 private:
  synchronisation m_switch;
};
