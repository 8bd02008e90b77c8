#include <gtest/gtest.h>

#include <cstdint>
#include <memory>
#include <string>

#include "tests/unit/c_interface_fixture.h"
#include "vu/storage.h"
#include "vu_file.h"

// Renames to another folder: the version is copied, and then the old one is removed.

namespace {

class CInterfaceMoves : public CInterfaceTest {
 protected:
  ~CInterfaceMoves() override { vu_close_store(m_hurried); }

  vu_status move() { return vu_rename(m_store, &m_document, &m_far, VU_REPLACE); }

  const vu_document m_far = document("a.kdf", VU_AREA_DOCS);
  /// Does not wait for the locks of the call that it disturbs.
  vu_store* const m_hurried = hurried_store(VU_NO_WAIT);
};

}  // namespace

TEST_F(CInterfaceMoves, ARenameToAnotherFolderKeepsTheOldVersionWhileAReplacedFileStays) {
  ASSERT_EQ(put(m_far, "replaced", 0), VU_DONE);
  char path[1000];
  ASSERT_EQ(vu_file_path(m_store, &m_far, path, sizeof path, nullptr), VU_DONE);
  const std::string folder(path, std::string(path).find_last_of("/\\"));
  {
    // Another program loads the index before the rename, and saves it afterwards.
    STGIndex other = stg_index_test_peer::load(folder);
    other.close();
    stg_index_test_peer::_create(other, "other.kdf", 0);
    const auto fault = faults::fail(Call::remove_file, kRefused);
    EXPECT_EQ(move(), VU_PARTLY_DONE);
    EXPECT_EQ(fault.hits(), 1U);
    EXPECT_EQ(content(m_far), "old");
  }
  EXPECT_EQ(content(m_far), "replaced");
  EXPECT_EQ(content(m_document), "old");
}

TEST_F(CInterfaceMoves, TheOldVersionStaysWithAFileThatAnotherProgramHasJustStored) {
  // The other program stores the new name before the save of the call, which then replaces its
  // version. The system keeps the file of that version.
  int times_kept = 0;
  for (FaultNumber nth;; ++nth) {
    SCOPED_TRACE(nth);
    vu_remove(m_store, &m_far);
    ASSERT_EQ(put(m_document, "old", VU_REPLACE), VU_DONE);
    std::string others_file;
    std::unique_ptr<faults::Fault> stays;
    const auto store = [&] {
      const vu_status stored =
          elsewhere([&] { return vu_put(m_hurried, &m_far, "other", 5, VU_REPLACE, nullptr); });
      if (stored != VU_DONE) return;
      char path[1000];
      EXPECT_EQ(vu_file_path(m_hurried, &m_far, path, sizeof path, nullptr), VU_DONE);
      others_file = path;
      stays.reset(new faults::Fault(faults::fail(Call::remove_file, kRefused)));
    };
    vu_status status = VU_FAILED;
    bool is_over = false;
    {
      const auto hook = faults::before(Call::open, store, nth);
      status = move();
      is_over = hook.hits() == 0;
    }
    const std::string reason = last_error().path;
    stays.reset();
    EXPECT_TRUE(is_made(status)) << vu_status_name(status) << last_error().text;
    const bool is_kept = !others_file.empty() && vu_file::exists(others_file);
    if (is_kept && content(m_far) == "old") {
      ++times_kept;
      EXPECT_EQ(status, VU_PARTLY_DONE);
      EXPECT_EQ(content(m_document), "old");
      EXPECT_FALSE(reason.empty());
      EXPECT_TRUE(others_file.starts_with(reason)) << reason;
    }
    vu_file::remove(others_file);
    if (is_over) break;
    ASSERT_LT(nth, 100U);
  }
  EXPECT_GT(times_kept, 0);
}
