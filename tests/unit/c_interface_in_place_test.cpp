#include <gtest/gtest.h>

#include <cstdint>
#include <iterator>
#include <new>
#include <string>
#include <vector>

#include "tests/support/os_calls.h"
#include "tests/support/real_kernel.h"
#include "tests/unit/c_interface_fixture.h"
#include "vu/storage.h"
#include "vu_file.h"

// Writes in place, and other changes, while another program uses or stores the same version.

namespace {

class CInterfaceInPlace : public CInterfaceTest {
 protected:
  CInterfaceInPlace() { write_file(m_source, "new"); }
  ~CInterfaceInPlace() override { vu_close_store(m_hurried); }

  vu_status copy_in_place(const vu_document& what) {
    return vu_copy_in(m_store, &what, m_source.c_str(), VU_REPLACE | VU_IN_PLACE, nullptr);
  }

  const std::string m_source = m_scratch.path("source");
  const std::string m_index = m_folder + "\\index.dat";
  const vu_document m_next = document("c.txt");
  /// Does not wait for the locks of the call that it disturbs.
  vu_store* const m_hurried = hurried_store(VU_NO_WAIT);
};

}  // namespace

TEST_F(CInterfaceInPlace, AStoreThatFailsLeavesNeitherFileNorLine) {
  const auto fault = faults::fail(Call::write, kRefused, 3);
  EXPECT_EQ(put(m_next, "new", 0), VU_FAILED);
  EXPECT_EQ(fault.hits(), 1U);
  EXPECT_EQ(orphans(), std::vector<std::string>());
  EXPECT_EQ(read_file(m_folder + "\\index.dat").find(".vu-storing-"), std::string::npos);
}

TEST_F(CInterfaceInPlace, AnAdoptedFileOfOnesOwnIsNoOtherVersion) {
  // The name of the document is the number that is drawn for its file. Another program adopts the
  // file before it has its line.
  STGIndex::setSynchronizeMode(true);
  int times_adopted = 0;
  for (const std::uint32_t flags : {0U, std::uint32_t{VU_REPLACE}}) {
    for (FaultNumber nth;; ++nth) {
      SCOPED_TRACE(std::to_string(flags) + " " + std::to_string(nth));
      // The first number of a call is that of its temporary version.
      const int number = std::stoi(read_file(m_folder + "\\index")) + 2;
      std::string name = std::to_string(number) + ".txt";
      name.insert(0, 12 - name.size(), '0');
      const vu_document own = document(name.c_str());
      bool is_over = false;
      const auto adopt = [&] {
        elsewhere([&] {
          const auto visit = [](void*, const vu_entry*) { return std::int32_t{0}; };
          return vu_each_document(m_hurried, VU_AREA_USER, "anna", 0, visit, nullptr);
        });
        times_adopted += read_file(m_index).find(name + "_0000000000/" + name) != std::string::npos;
      };
      {
        const auto hook = faults::before(Call::open, adopt, nth);
        EXPECT_EQ(put(own, "mine", flags), VU_DONE) << last_error().text;
        is_over = hook.hits() == 0;
      }
      EXPECT_EQ(content(own), "mine");
      if (is_over) break;
      ASSERT_LT(nth, 100U);
    }
  }
  STGIndex::setSynchronizeMode(false);
  EXPECT_GT(times_adopted, 0);
}

#if defined(__linux__)  // Windows writes no file that is locked.
TEST_F(CInterfaceInPlace, AReplacementRemovesNoFileOfAnotherEntry) {
  // After the load, and before the save, the version and another one get lines with one file.
  write_file(m_folder + "\\00000070.txt", "shared");
  const auto change = [&] {
    write_file(m_index,
               "c.txt_0000000000/00000070\n" + read_file(m_index) + "e.txt_0000000000/00000070\n");
  };
  {
    const auto hook = faults::before(Call::copy, change);
    EXPECT_EQ(put(m_next, "mine", VU_REPLACE), VU_DONE) << last_error().text;
    EXPECT_EQ(hook.hits(), 1U);
  }
  EXPECT_EQ(content(m_next), "mine");
  EXPECT_EQ(content(document("e.txt")), "shared");
}

TEST_F(CInterfaceInPlace, AReplacementKeepsTheFileOfASecondLineThatItHasLoaded) {
  ASSERT_EQ(put(m_next, "mine", 0), VU_DONE);
  write_file(m_folder + "\\00000070.txt", "second");
  write_file(m_index, read_file(m_index) + "a.txt_0000000000/00000070\n");
  // The save reads all lines again, because another line has come.
  const auto change = [&] { write_file(m_index, read_file(m_index) + "e.txt_0000000000/5\n"); };
  {
    const auto hook = faults::before(Call::copy, change);
    EXPECT_EQ(vu_rename(m_store, &m_next, &m_document, VU_REPLACE), VU_DONE) << last_error().text;
    EXPECT_EQ(hook.hits(), 1U);
  }
  EXPECT_EQ(content(m_document), "mine");
  EXPECT_EQ(read_file(m_folder + "\\00000070.txt"), "second");
}
#endif

// ---- copies -------------------------------------------------------------------------------------

TEST_F(CInterfaceInPlace, ACopyMakesNoFileForAVersionThatIsGone) {
  NEEDS_A_REAL_KERNEL("a rename that cannot copy a locked file");
  // Another program renames or removes the version at some moment of the copy.
  const auto rename = [&] { return vu_rename(m_hurried, &m_document, &m_next, 0); };
  const auto remove = [&] { return vu_remove(m_hurried, &m_document); };
  int times_disturbed = 0;
  for (const Step& other : {Step(rename), Step(remove)}) {
    for (const Call call : {Call::open, Call::lock, Call::write, Call::unlock}) {
      for (FaultNumber nth;; ++nth) {
        SCOPED_TRACE(faults::name(call) + std::to_string(nth));
        vu_remove(m_store, &m_next);
        ASSERT_EQ(put(m_document, "old", VU_REPLACE), VU_DONE);
        vu_status disturbed = VU_FAILED;
        bool is_over = false;
        {
          const auto hook = faults::before(
              call, [&] { disturbed = elsewhere(other); }, nth);
          EXPECT_EQ(copy_in_place(m_document), VU_DONE) << last_error().text;
          is_over = hook.hits() == 0;
        }
        times_disturbed += is_made(disturbed) ? 1 : 0;
        // A file without an entry would be adopted under its own name.
        const std::vector<std::string> names = files();
        EXPECT_EQ(count_of_files(), names.size() + 2);
        for (const std::string& name : names) {
          const std::string bytes = content(document(name.c_str()));
          EXPECT_TRUE(bytes == "old" || bytes == "new") << name << ": " << bytes;
        }
        if (is_over) break;
        ASSERT_LT(nth, 100U);
      }
    }
  }
  EXPECT_GT(times_disturbed, 10);
}

TEST_F(CInterfaceInPlace, ACopyHasTheTimeOfItsSourceBeforeAReaderGetsIt) {
  set_modify_time(m_source, 1'000'000'000);
  std::string file;
  ASSERT_TRUE(STGIndex::exists(m_folder, "a.txt", 0, file));
  const std::string path = m_folder + "\\" + file;
  faults::reset();
  ASSERT_EQ(copy_in_place(m_document), VU_DONE);
  // The last lock that the call gives back is that of the version.
  const std::uint64_t last = faults::calls(Call::unlock);
  std::int64_t time_at_unlock = 0;
  {
    const auto look = [&] { time_at_unlock = vu_file::modify_time(path); };
    const auto hook = faults::before(Call::unlock, look, last);
    ASSERT_EQ(copy_in_place(m_document), VU_DONE);
  }
  EXPECT_EQ(time_at_unlock, 1'000'000'000);
  EXPECT_EQ(vu_file::modify_time(path), 1'000'000'000);
  EXPECT_EQ(content(m_document), "new");
}

TEST_F(CInterfaceInPlace, ACopyThatFailsLeavesAnEmptyVersion) {
  // A part of the bytes would look like a document.
  for (const Call call : {Call::read, Call::write, Call::take_time}) {
    int times_empty = 0;
    for (FaultNumber nth;; ++nth) {
      SCOPED_TRACE(faults::name(call) + std::to_string(nth));
      ASSERT_EQ(put(m_document, "old", VU_REPLACE), VU_DONE);
      vu_status status = VU_DONE;
      bool is_over = false;
      {
        const auto fault = faults::fail(call, kRefused, nth);
        status = copy_in_place(m_document);
        is_over = fault.hits() == 0;
      }
      const std::string bytes = content(m_document);
      EXPECT_EQ(bytes == "new", status == VU_DONE) << vu_status_name(status);
      EXPECT_TRUE(bytes == "new" || bytes == "old" || bytes.empty()) << bytes;
      times_empty += bytes.empty() ? 1 : 0;
      if (is_over) break;
      ASSERT_LT(nth, 100U);
    }
    EXPECT_GT(times_empty, 0) << faults::name(call);
  }
}

// ---- waits --------------------------------------------------------------------------------------

TEST_F(CInterfaceInPlace, AWriterThatHadToWaitWritesTheFileThatTheVersionHasNow) {
  // A reader keeps the writer waiting. Meanwhile another program stores the version again.
  vu_store* const patient = hurried_store(60'000);
  const auto write = [&](vu_store* store, int way) {
    if (way == 0) return vu_key_set(store, &m_document, "b", "2");
    if (way == 1) return vu_key_delete(store, &m_document, "a");
    const std::uint32_t flags = VU_REPLACE | VU_IN_PLACE;
    if (way == 2) return vu_put(store, &m_document, "new", 3, flags, nullptr);
    if (way == 3) return vu_copy_in(store, &m_document, m_source.c_str(), flags, nullptr);
    vu_stream* stream = nullptr;
    const vu_status status = vu_open(store, &m_document, VU_WRITE_OVER, &stream);
    if (status != VU_DONE) return status;
    EXPECT_EQ(vu_stream_write(stream, "new", 3), VU_DONE);
    return vu_stream_close(stream);
  };
  for (vu_store* const store : {m_store, patient}) {
    for (int way = 0; way < 5; ++way) {
      SCOPED_TRACE(std::to_string(way) + (store == patient ? ", with a limit" : ""));
      ASSERT_EQ(put(m_document, "a=1\n", VU_REPLACE), VU_DONE);
      vu_stream* reader = nullptr;
      ASSERT_EQ(vu_open(m_store, &m_document, VU_READ_EXACT, &reader), VU_DONE);
      // Without patience a writer ends at the lock of the version's file.
      faults::reset();
      ASSERT_EQ(write(m_hurried, way), VU_LOCK_TIMEOUT);
      std::uint64_t nth = faults::calls(Call::lock);
      // Without a limit a stored user document loses its category lines before.
      if (store != patient && way > 1) ++nth;
      vu_status stored = VU_FAILED;
      const auto store_and_let_go = [&] {
        stored = elsewhere(
            [&] { return vu_put(m_hurried, &m_document, "a=5\nc=3\n", 8, VU_REPLACE, nullptr); });
        EXPECT_EQ(vu_stream_close(reader), VU_DONE);
      };
      {
        const auto hook = faults::after(Call::lock, store_and_let_go, nth);
        EXPECT_EQ(write(store, way), VU_DONE) << last_error().text;
        EXPECT_EQ(hook.hits(), 1U);
      }
      // Windows keeps the replaced file while the reader has it open.
      EXPECT_TRUE(is_made(stored)) << stored;
      const char* const texts[] = {"a=5\nc=3\nb=2\n", "c=3\n", "new", "new", "new"};
      EXPECT_EQ(content(m_document), texts[way]);
      EXPECT_EQ(count_of_files(), files().size() + 2);
    }
  }
  EXPECT_EQ(vu_close_store(patient), VU_DONE);
}

#if defined(__linux__)  // Windows removes no file that a reader has open.
TEST_F(CInterfaceInPlace, AWriterThatHadToWaitForARemovedVersionStoresItAgain) {
  vu_stream* reader = nullptr;
  faults::reset();
  ASSERT_EQ(put(m_document, "old", VU_REPLACE | VU_IN_PLACE), VU_DONE);
  const std::uint64_t last = faults::calls(Call::lock);
  ASSERT_EQ(vu_open(m_store, &m_document, VU_READ_EXACT, &reader), VU_DONE);
  const auto remove_and_let_go = [&] {
    EXPECT_EQ(elsewhere([&] { return vu_remove(m_hurried, &m_document); }), VU_DONE);
    EXPECT_EQ(vu_stream_close(reader), VU_DONE);
  };
  const auto hook = faults::after(Call::lock, remove_and_let_go, last);
  EXPECT_EQ(put(m_document, "new", VU_REPLACE | VU_IN_PLACE), VU_DONE) << last_error().text;
  EXPECT_EQ(hook.hits(), 1U);
  EXPECT_EQ(content(m_document), "new");
  EXPECT_EQ(count_of_files(), files().size() + 2);
}
#endif

TEST_F(CInterfaceInPlace, AWriterThatDoesNotWaitLooksOnce) {
  // One lock of the index and one of the file; no other call looks at the version again.
  faults::reset();
  ASSERT_EQ(vu_key_set(m_store, &m_document, "b", "2"), VU_DONE);
  EXPECT_EQ(faults::calls(Call::lock), 2U);
  EXPECT_EQ(faults::calls(Call::open), 2U);
}

// ---- what another program removes meanwhile -----------------------------------------------------

TEST_F(CInterfaceInPlace, AVersionThatIsCleanedWhileItIsStoredLeavesNoFile) {
  const auto put_next = [&] { return put(m_next, "new", 0); };
  const auto copy_next = [&] { return vu_copy_in(m_store, &m_next, m_source.c_str(), 0, nullptr); };
  int times_failed = 0;
  for (const Step& store : {Step(put_next), Step(copy_next)}) {
    for (const Call call : {Call::open, Call::copy, Call::flush_file}) {
      for (FaultNumber nth;; ++nth) {
        SCOPED_TRACE(faults::name(call) + std::to_string(nth));
        vu_remove(m_store, &m_next);
        const auto clean = [&] {
          elsewhere([&] {
            return vu_clean(m_hurried, VU_AREA_USER, "anna", 0, VU_CLEAN_ALL, nullptr, nullptr,
                            nullptr);
          });
        };
        const auto hook = faults::before(call, clean, nth);
        const vu_status status = store();
        if (hook.hits() == 0) break;
        times_failed += is_made(status) ? 0 : 1;
        EXPECT_EQ(orphans(), std::vector<std::string>());
        ASSERT_LT(nth, 100U);
      }
    }
  }
  EXPECT_GT(times_failed, 4);
}

TEST_F(CInterfaceInPlace, ACategoryFileThatIsRemovedMeanwhileIsNotMadeAgain) {
  const vu_document category = document("list.ctg");
  vu_store* const patient = hurried_store(60'000);
  int times_removed = 0;
  for (FaultNumber nth;; ++nth) {
    ASSERT_EQ(put(m_document, "old", VU_REPLACE), VU_DONE);
    ASSERT_EQ(put(category, "a.txt=1\nother=2\n", VU_REPLACE), VU_DONE);
    vu_status removed = VU_FAILED;
    const auto remove = [&] {
      removed = elsewhere([&] { return vu_remove(m_hurried, &category); });
    };
    bool is_over = false;
    {
      const auto hook = faults::before(Call::open, remove, nth);
      const vu_status status =
          vu_put(patient, &m_document, "new", 3, VU_REPLACE | VU_IN_PLACE, nullptr);
      EXPECT_TRUE(is_made(status)) << last_error().text;
      is_over = hook.hits() == 0;
    }
    times_removed += is_made(removed) ? 1 : 0;
    EXPECT_EQ(orphans(), std::vector<std::string>()) << nth;
    EXPECT_EQ(content(m_document), "new");
    if (is_over) break;
    ASSERT_LT(nth, 100U);
  }
  EXPECT_GT(times_removed, 3);
  EXPECT_EQ(vu_close_store(patient), VU_DONE);
}

TEST_F(CInterfaceInPlace, AProfileThatIsRemovedMeanwhileIsMissing) {
  const scratch_folder config;
  vu_storage_test_peer::set_config_dir_path(config.path());
  const std::string master = config.path("master.txt");
  const auto visit = [](void*, const char*, const char*) { return std::int32_t{0}; };
  const Step uses[] = {
      [&] { return vu_profile_get(m_store, nullptr, "master.txt", "a", nullptr, 0, nullptr); },
      [&] { return vu_profile_each(m_store, nullptr, "master.txt", visit, nullptr); },
      [&] { return vu_profile_delete(m_store, nullptr, "master.txt", "a"); }};
  for (const Step& use : uses) {
    write_file(master, "a=1\n");
    const auto hook = faults::before(Call::open, [&] { vu_file::remove(master); });
    EXPECT_EQ(use(), VU_NOTHING_MATCHED) << last_error().text;
    EXPECT_EQ(hook.hits(), 1U);
    EXPECT_STREQ(last_error().text, "there is no such key file");
    EXPECT_FALSE(vu_file::exists(master));
  }
}

// ---- a cut that the system refuses --------------------------------------------------------------

TEST_F(CInterfaceInPlace, ACategoryFileThatCannotBeCutKeepsItsLines) {
  const vu_document category = document("list.ctg");
  vu_store* const patient = hurried_store(60'000);
  for (FaultNumber nth;; ++nth) {
    ASSERT_EQ(put(m_document, "old", VU_REPLACE), VU_DONE);
    ASSERT_EQ(put(category, "a.txt=1\nother=2\n", VU_REPLACE), VU_DONE);
    const auto fault = faults::fail(Call::set_end, kRefused, nth);
    const vu_status status =
        vu_put(patient, &m_document, "new", 3, VU_REPLACE | VU_IN_PLACE, nullptr);
    EXPECT_EQ(status == VU_DONE, fault.hits() == 0) << nth;
    const std::string lines = content(category);
    EXPECT_TRUE(lines == "other=2\n" || lines == "a.txt=1\nother=2\n") << nth << lines;
    EXPECT_EQ(content(m_document), status == VU_DONE ? "new" : "old") << nth;
    if (fault.hits() == 0) break;
    ASSERT_LT(nth, 100U);
  }
  EXPECT_EQ(vu_close_store(patient), VU_DONE);
}

// ---- parts that are refreshed from a preload copy -----------------------------------------------

namespace {

class CInterfaceParts : public CInterfaceInPlace {
 protected:
  CInterfaceParts() {
    EXPECT_EQ(put(m_owner, "document", 0), VU_DONE);
    char path[1000];
    EXPECT_EQ(vu_file_path(m_store, &m_owner, path, sizeof path, nullptr), VU_DONE);
    const std::string root = std::string(path) + "_\\html";
    m_parts = root + "\\de";
    m_part = m_parts + "\\1";
    m_preload = root + "\\preload\\1";
    make_folder(m_parts);
    make_folder(root + "\\preload");
    make_outdated();
  }

  void make_outdated() const {
    write_file(m_part, "old");
    write_file(m_preload, "preloaded");
    set_modify_time(m_part, 2'000'000'000);
    set_modify_time(m_preload, 2'000'000'010);
  }
  std::string read_part() {
    vu_stream* stream = nullptr;
    const vu_status status =
        vu_open_part(m_store, &m_owner, "html@de", "1", VU_READ_SERVED, &stream);
    if (status != VU_DONE) return vu_status_name(status);
    char bytes[100];
    std::size_t size = 0;
    EXPECT_EQ(vu_stream_read(stream, bytes, sizeof bytes, &size), VU_DONE);
    EXPECT_EQ(vu_stream_close(stream), VU_DONE);
    return {bytes, size};
  }
  vu_status write_part() const {
    vu_stream* stream = nullptr;
    const vu_status status =
        vu_open_part(m_hurried, &m_owner, "html@de", "1", VU_WRITE_OVER, &stream);
    if (status != VU_DONE) return status;
    EXPECT_EQ(vu_stream_write(stream, "generated", 9), VU_DONE);
    return vu_stream_close(stream);
  }

  const vu_document m_owner = document("b.kdc", VU_AREA_DOCS);
  std::string m_parts;
  std::string m_part;
  std::string m_preload;
};

}  // namespace

TEST_F(CInterfaceParts, ARefreshedPartHasTheBytesAndTheTimeOfThePreloadCopy) {
  EXPECT_EQ(read_part(), "preloaded");
  EXPECT_EQ(vu_file::modify_time(m_part), 2'000'000'010);
  EXPECT_EQ(list_folder(m_parts), std::vector<std::string>{"1"});
}

TEST_F(CInterfaceParts, ARefreshThatFailsIsMadeAgain) {
  int times_interrupted = 0;
  for (const Call call : {Call::open, Call::lock, Call::copy, Call::stat}) {
    for (FaultNumber nth;; ++nth) {
      SCOPED_TRACE(faults::name(call) + std::to_string(nth));
      make_outdated();
      std::string bytes;
      {
        const auto fault = faults::fail(call, kRefused, nth);
        bytes = read_part();
        if (fault.hits() == 0) break;
      }
      // A preload copy without a known time is not newer.
      const bool is_known = bytes == "preloaded" || bytes == "VU_FAILED" || bytes == "VU_OUTDATED";
      EXPECT_TRUE(is_known || (bytes == "old" && call == Call::stat)) << bytes;
      times_interrupted += bytes == "VU_FAILED" ? 1 : 0;
      const std::string left = file_exists(m_part) ? read_file(m_part) : "missing";
      EXPECT_TRUE(left == "old" || left == "preloaded" || left == "missing") << left;
      EXPECT_LE(list_folder(m_parts).size(), 1U);
      EXPECT_EQ(read_part(), "preloaded");
      ASSERT_LT(nth, 100U);
    }
  }
  EXPECT_GT(times_interrupted, 5);
}

TEST_F(CInterfaceParts, ARefreshedPartCanBeRefreshedAgain) {
  make_read_only(m_preload);
  EXPECT_EQ(read_part(), "preloaded");
  make_writable(m_preload);
  write_file(m_preload, "preloaded again");
  set_modify_time(m_preload, 2'000'000'020);
  EXPECT_EQ(read_part(), "preloaded again");
}

TEST_F(CInterfaceParts, APartThatCannotBeCutIsNotWritten) {
  write_file(m_part, "a part that is longer than the generated one");
  for (const Call call : {Call::set_end, Call::seek}) {
    const auto fault = faults::fail(call, kRefused);
    EXPECT_EQ(write_part(), VU_FAILED) << faults::name(call);
    EXPECT_EQ(fault.hits(), 1U);
    EXPECT_EQ(read_file(m_part), "a part that is longer than the generated one");
  }
  EXPECT_EQ(write_part(), VU_DONE);
  EXPECT_EQ(read_file(m_part), "generated");
}

TEST_F(CInterfaceParts, AnOldPartIsNotServedIfATimeCannotBeAskedFor) {
  int times_failed = 0;
  for (FaultNumber nth;; ++nth) {
    make_outdated();
    const auto shortage = [] { throw std::bad_alloc(); };
    const auto fault = faults::before(Call::stat, shortage, nth);
    const std::string bytes = read_part();
    if (fault.hits() == 0) break;
    EXPECT_NE(bytes, "old") << nth;
    times_failed += bytes == "preloaded" ? 0 : 1;
    ASSERT_LT(nth, 100U);
  }
  EXPECT_GT(times_failed, 1);
}
