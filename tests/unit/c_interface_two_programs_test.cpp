#include <gtest/gtest.h>

#include <cstdint>
#include <iterator>
#include <memory>
#include <string>
#include <vector>

#include "tests/unit/c_interface_fixture.h"
#include "vu/storage.h"
#include "vu_file.h"

// Two programs store one version at once.

namespace {

class CInterfaceTwoPrograms : public CInterfaceTest {
 protected:
  ~CInterfaceTwoPrograms() override { vu_close_store(m_hurried); }

  vu_status move() { return vu_rename(m_store, &m_document, &m_far, VU_REPLACE); }

  const vu_document m_next = document("c.txt");
  const vu_document m_far = document("a.kdf", VU_AREA_DOCS);
  /// Does not wait for the locks of the call that it disturbs.
  vu_store* const m_hurried = hurried_store(VU_NO_WAIT);
};

}  // namespace

TEST_F(CInterfaceTwoPrograms, OfTwoThatMayNotReplaceOneStoresTheVersion) {
  const auto put_next = [&] { return put(m_next, "mine", 0); };
  const auto write_next = [&] {
    vu_stream* stream = nullptr;
    const vu_status status = vu_open(m_store, &m_next, VU_WRITE_NEW, &stream);
    if (status != VU_DONE) return status;
    EXPECT_EQ(vu_stream_write(stream, "mine", 4), VU_DONE);
    return vu_stream_close(stream);
  };
  const auto write_in_place = [&] { return put(m_next, "mine", VU_IN_PLACE); };
  const auto rename_to_next = [&] { return vu_rename(m_store, &m_document, &m_next, 0); };
  const char* const mine[] = {"mine", "mine", "mine", "old"};
  const Step changes[] = {put_next, write_next, write_in_place, rename_to_next};
  for (std::size_t way = 0; way < std::size(changes); ++way) {
    int times_other = 0;
    for (FaultNumber nth;; ++nth) {
      SCOPED_TRACE(std::to_string(way) + " " + std::to_string(nth));
      vu_remove(m_store, &m_next);
      ASSERT_EQ(put(m_document, "old", VU_REPLACE), VU_DONE);
      vu_status other = VU_FAILED;
      const auto store = [&] {
        other = elsewhere([&] { return vu_put(m_hurried, &m_next, "other", 5, 0, nullptr); });
      };
      vu_status status = VU_FAILED;
      bool is_over = false;
      {
        const auto hook = faults::before(Call::open, store, nth);
        status = changes[way]();
        is_over = hook.hits() == 0;
      }
      EXPECT_EQ(status, other == VU_DONE ? VU_ALREADY : VU_DONE) << last_error().text;
      EXPECT_EQ(content(m_next), other == VU_DONE ? "other" : mine[way]);
      EXPECT_EQ(content(m_document) == "old", other == VU_DONE || way != 3);
      EXPECT_EQ(orphans(), std::vector<std::string>());
      times_other += other == VU_DONE ? 1 : 0;
      if (is_over) break;
      ASSERT_LT(nth, 100U);
    }
    EXPECT_GT(times_other, 3) << way;
  }
}

TEST_F(CInterfaceTwoPrograms, OfTwoThatReplaceAVersionTheLaterSaveWins) {
  const auto put_again = [&] { return put(m_document, "mine", VU_REPLACE); };
  const auto rename_onto = [&] { return vu_rename(m_store, &m_next, &m_document, VU_REPLACE); };
  for (const Step& change : {Step(put_again), Step(rename_onto)}) {
    int times_other = 0;
    for (FaultNumber nth;; ++nth) {
      SCOPED_TRACE(nth);
      ASSERT_EQ(put(m_document, "old", VU_REPLACE), VU_DONE);
      ASSERT_EQ(put(m_next, "mine", VU_REPLACE), VU_DONE);
      vu_status other = VU_FAILED;
      const auto replace = [&] {
        other = elsewhere(
            [&] { return vu_put(m_hurried, &m_document, "other", 5, VU_REPLACE, nullptr); });
      };
      bool is_over = false;
      {
        const auto hook = faults::before(Call::open, replace, nth);
        EXPECT_EQ(change(), VU_DONE) << last_error().text;
        is_over = hook.hits() == 0;
      }
      const std::string bytes = content(m_document);
      EXPECT_TRUE(bytes == "mine" || (other == VU_DONE && bytes == "other")) << bytes;
      EXPECT_EQ(orphans(), std::vector<std::string>());
      times_other += other == VU_DONE ? 1 : 0;
      if (is_over) break;
      ASSERT_LT(nth, 100U);
    }
    EXPECT_GT(times_other, 3);
  }
}

TEST_F(CInterfaceTwoPrograms, WhatAnotherProgramWritesIntoANewVersionIsNotCleared) {
  // The other program opens the version as soon as the index has it, writes, and closes it.
  const auto write_next = [&] {
    vu_stream* stream = nullptr;
    const vu_status status = vu_open(m_store, &m_next, VU_WRITE_NEW, &stream);
    if (status != VU_DONE) return status;
    EXPECT_EQ(vu_stream_write(stream, "mine", 4), VU_DONE);
    return vu_stream_close(stream);
  };
  const auto write_in_place = [&] { return put(m_next, "mine", VU_IN_PLACE); };
  for (const Step& change : {Step(write_next), Step(write_in_place)}) {
    int times_other = 0;
    for (FaultNumber nth;; ++nth) {
      SCOPED_TRACE(nth);
      vu_remove(m_store, &m_next);
      vu_status other = VU_FAILED;
      const auto write_over = [&] {
        const std::uint32_t flags = VU_REPLACE | VU_IN_PLACE;
        other = elsewhere([&] { return vu_put(m_hurried, &m_next, "other", 5, flags, nullptr); });
      };
      vu_status status = VU_FAILED;
      bool is_over = false;
      {
        const auto hook = faults::before(Call::open, write_over, nth);
        status = change();
        is_over = hook.hits() == 0;
      }
      EXPECT_EQ(status, other == VU_DONE ? VU_ALREADY : VU_DONE) << last_error().text;
      EXPECT_EQ(content(m_next), other == VU_DONE ? "other" : "mine");
      EXPECT_EQ(orphans(), std::vector<std::string>());
      times_other += other == VU_DONE ? 1 : 0;
      if (is_over) break;
      ASSERT_LT(nth, 100U);
    }
    EXPECT_GT(times_other, 3);
  }
}

TEST_F(CInterfaceTwoPrograms, AVersionThatAnotherProgramRemovesAgainWasThere) {
  int times_both = 0;
  for (std::uint64_t first = 1;; ++first) {
    std::uint64_t hits = 0;
    for (std::uint64_t second = first + 1;; ++second) {
      SCOPED_TRACE(std::to_string(first) + " " + std::to_string(second));
      vu_remove(m_store, &m_next);
      vu_status other = VU_FAILED;
      vu_status removed = VU_FAILED;
      const auto store = [&] {
        other = elsewhere([&] { return vu_put(m_hurried, &m_next, "other", 5, 0, nullptr); });
      };
      const auto remove = [&] {
        removed = elsewhere([&] { return vu_remove(m_hurried, &m_next); });
      };
      const auto storing = faults::before(Call::lock, store, first);
      const auto removing = faults::before(Call::lock, remove, second);
      const vu_status status = put(m_next, "mine", 0);
      EXPECT_TRUE(status == VU_DONE || (status == VU_ALREADY && other == VU_DONE))
          << vu_status_name(status) << last_error().text;
      times_both += other == VU_DONE && removed == VU_DONE ? 1 : 0;
      hits = storing.hits();
      if (removing.hits() == 0) break;
      ASSERT_LT(second, 100U);
    }
    if (hits == 0) break;
    ASSERT_LT(first, 100U);
  }
  EXPECT_GT(times_both, 3);
}

TEST_F(CInterfaceTwoPrograms, APutThatIsMadeInPartTellsHowItStored) {
  const vu_document category = document("list.ctg");
  ASSERT_EQ(put(category, "a.txt=1\n", 0), VU_DONE);
  vu_stream* reader = nullptr;
  ASSERT_EQ(vu_open(m_store, &category, VU_READ_EXACT, &reader), VU_DONE);
  std::int32_t how = 0;
  EXPECT_EQ(vu_put(m_hurried, &m_document, "new", 3, VU_REPLACE, &how), VU_PARTLY_DONE);
  EXPECT_EQ(how, VU_STORED_AT_ONCE);
  vu_stream_close(reader);
  EXPECT_EQ(content(m_document), "new");
}

// ---- a rename to another folder: a copy, and the removal of the old version ---------------------

TEST_F(CInterfaceTwoPrograms, ARenameToAnotherFolderKeepsTheOldVersionWhileAReplacedFileStays) {
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

TEST_F(CInterfaceTwoPrograms, TheOldVersionStaysWithAFileThatAnotherProgramHasJustStored) {
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
    const std::string reason = std::string(last_error().text) + last_error().path;
    stays.reset();
    EXPECT_TRUE(is_made(status)) << vu_status_name(status) << last_error().text;
    const bool is_kept = !others_file.empty() && vu_file::exists(others_file);
    if (is_kept && content(m_far) == "old") {
      ++times_kept;
      EXPECT_EQ(status, VU_PARTLY_DONE);
      EXPECT_EQ(content(m_document), "old");
      const std::string file = others_file.substr(others_file.find_last_of("/\\") + 1);
      EXPECT_NE(reason.find(file), std::string::npos) << reason;
    }
    vu_file::remove(others_file);
    if (is_over) break;
    ASSERT_LT(nth, 100U);
  }
  EXPECT_GT(times_kept, 0);
}
