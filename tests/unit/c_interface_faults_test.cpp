#include <gtest/gtest.h>

#include <chrono>
#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "tests/support/recording_sink.h"
#include "tests/unit/c_interface_fixture.h"
#include "vu/storage.h"
#include "vu_file.h"

// What the C interface reports when a system call inside of it fails.

namespace {

class CInterfaceFaults : public CInterfaceTest {};

std::int32_t go_on(void*, const vu_entry*) { return 0; }
std::int32_t ask_for_what_is_refused(void* store, const vu_entry*) {
  const vu_document parent = document("..");
  EXPECT_EQ(vu_exists(static_cast<vu_store*>(store), &parent), VU_REFUSED);
  return 0;
}

}  // namespace

TEST_F(CInterfaceFaults, AStreamThatIsNotOnTheDeviceIsNotClosedWell) {
  vu_stream* stream = nullptr;
  ASSERT_EQ(vu_open(m_store, &m_document, VU_WRITE_OVER, &stream), VU_DONE);
  ASSERT_EQ(vu_stream_write(stream, "new", 3), VU_DONE);
  const auto fault = faults::fail(Call::flush, kRefused);
  EXPECT_EQ(vu_stream_close(stream), VU_FAILED);
  EXPECT_EQ(fault.hits(), 1U);
  EXPECT_EQ(last_error().system_code, 5);
  EXPECT_EQ(vu_stream_close(stream), VU_BAD_HANDLE);
}

TEST_F(CInterfaceFaults, AStatusIsTrueIfTheIndexIsLockedDuringTheCall) {
  vu_settings settings = VU_SETTINGS_INIT;
  settings.wait_ms = 5;
  vu_store* hurried = nullptr;
  ASSERT_EQ(vu_open_store(&settings, &hurried), VU_ALREADY);
  const vu_document next = document("b.txt");
  const auto change = [&](bool renames) {
    return renames ? vu_rename(hurried, &m_document, &next, 0)
                   : vu_put(hurried, &next, "old", 3, 0, nullptr);
  };
  const std::string folder = m_scratch.path("storage\\user\\anna");
  const std::size_t before = vu_file::filenames(folder).size();
  for (const bool renames : {true, false}) {
    for (FaultNumber nth;; ++nth) {
      std::thread holder;
      // Before the nth lock of the call, another handle locks the index for a longer time.
      const auto lock_index = [&] {
        auto index = std::make_shared<vu_file>(m_scratch.path("storage\\user\\anna"), "index.dat");
        bool lock_failed = true;
        if (!index->try_open(vu_file::o_append, lock_failed, true) || lock_failed) return;
        holder = std::thread([index] {
          std::this_thread::sleep_for(std::chrono::milliseconds(25));
          index->close();
        });
      };
      vu_status status = VU_FAILED;
      bool is_over = false;
      {
        const auto hook = faults::before(Call::lock, lock_index, nth);
        status = change(renames);
        is_over = hook.hits() == 0;
      }
      if (holder.joinable()) holder.join();
      const bool is_changed = status == VU_DONE || status == VU_PARTLY_DONE;
      EXPECT_TRUE(is_changed || status == VU_LOCK_TIMEOUT) << vu_status_name(status);
      EXPECT_EQ(content(next), is_changed ? "old" : "VU_NOTHING_MATCHED") << renames << nth;
      EXPECT_EQ(content(m_document), is_changed && renames ? "VU_NOTHING_MATCHED" : "old") << nth;
      put(m_document, "old", VU_REPLACE);
      vu_remove(m_store, &next);
      EXPECT_EQ(vu_file::filenames(folder).size(), before) << renames << nth;
      if (is_over) break;
      ASSERT_LT(nth, 100U);
    }
  }
  EXPECT_EQ(vu_close_store(hurried), VU_DONE);
}

TEST_F(CInterfaceFaults, AFailedReadReturnsNoSize) {
  // The reads of the index come before those of the file.
  for (FaultNumber nth;; ++nth) {
    const auto fault = faults::fail(Call::read, kRefused, nth);
    char bytes[100];
    std::size_t size = 77;
    const vu_status status = vu_read(m_store, &m_document, bytes, sizeof bytes, &size);
    if (fault.hits() == 0) break;
    EXPECT_NE(status, VU_DONE) << nth;
    EXPECT_EQ(size, 77U) << nth;
    ASSERT_LT(nth, 20U);
  }
}

TEST_F(CInterfaceFaults, WhatIsNotOnTheDeviceIsNotStored) {
  for (FaultNumber nth;; ++nth) {
    const auto fault = faults::fail(Call::flush, kRefused, nth);
    const vu_status status = put(m_document, "new", VU_REPLACE);
    if (fault.hits() == 0) break;
    EXPECT_NE(status, VU_DONE) << nth;
    EXPECT_EQ(content(m_document), status == VU_FAILED ? "old" : "new") << nth;
    ASSERT_EQ(put(m_document, "old", VU_REPLACE), VU_DONE);
  }
  const auto fault = faults::fail(Call::flush, kRefused);
  EXPECT_EQ(put(m_document, "new", VU_REPLACE | VU_IN_PLACE), VU_FAILED);
}

TEST_F(CInterfaceFaults, ACopyThatIsNotOnTheDeviceLeavesTheOldVersionAndNothingElse) {
  write_file(m_scratch.path("in"), "copy");
  const std::string in = native(m_scratch.path("in")).string();
  {
    const auto fault = faults::fail(Call::flush_file, kRefused);
    EXPECT_EQ(vu_copy_in(m_store, &m_document, in.c_str(), VU_REPLACE, nullptr), VU_FAILED);
    EXPECT_EQ(fault.hits(), 1U);
  }
  EXPECT_EQ(content(m_document), "old");
  EXPECT_EQ(files(), std::vector<std::string>{"a.txt"});
}

TEST_F(CInterfaceFaults, AVersionThatStaysAtItsOldPlaceIsReported) {
  const vu_document far = document("a.kdf", VU_AREA_DOCS);
  faults::reset();
  ASSERT_EQ(vu_rename(m_store, &m_document, &far, 0), VU_DONE);
  const std::uint64_t removals = faults::calls(Call::remove_file);
  ASSERT_EQ(vu_remove(m_store, &far), VU_DONE);
  ASSERT_EQ(put(m_document, "old", 0), VU_DONE);
  const auto fault = faults::fail(Call::remove_file, kRefused, removals);
  EXPECT_EQ(vu_rename(m_store, &m_document, &far, 0), VU_PARTLY_DONE);
  EXPECT_EQ(fault.hits(), 1U);
  EXPECT_EQ(content(far), "old");
  EXPECT_EQ(content(m_document), "old");
}

TEST_F(CInterfaceFaults, ASaveThatFailsStoresNothing) {
  // The n-th open fails: first that of the index for the entry, then for the name, and so on.
  for (FaultNumber nth;; ++nth) {
    const auto fault = faults::fail(Call::open, kRefused, nth);
    const vu_status status = put(document("b.txt"), "new", 0);
    if (fault.hits() == 0) break;
    const bool is_there = content(document("b.txt")) == "new";
    EXPECT_EQ(is_there, status == VU_DONE || status == VU_PARTLY_DONE)
        << nth << vu_status_name(status);
    const vu_document stored = document("b.txt");
    vu_remove(m_store, &stored);
  }
  EXPECT_EQ(content(m_document), "old");
}

TEST_F(CInterfaceFaults, AStorageWhoseFoldersCannotBeMadeIsNotOpened) {
  const scratch_folder other;
  const std::string root = native(other.path()).string();
  vu_storage_test_peer::reset();
  vu_settings settings = VU_SETTINGS_INIT;
  settings.root = root.c_str();
  vu_store* store = m_store;
  const auto fault = faults::fail(Call::create_directory, kRefused, 2, Times::kLasting);
  EXPECT_EQ(vu_open_store(&settings, &store), VU_FAILED);
  EXPECT_EQ(store, nullptr);
  EXPECT_NE(last_error().system_code, 0);
}

TEST_F(CInterfaceFaults, ARemovedStorageIsMadeAgainByTheNextOpen) {
  vu_file::recurseRemoveDir(m_scratch.path("storage"));
  ASSERT_EQ(vu_close_store(m_store), VU_DONE);
  const vu_settings settings = VU_SETTINGS_INIT;
  EXPECT_EQ(vu_open_store(&settings, &m_store), VU_ALREADY);
  EXPECT_STREQ(last_error().text, "the storage is open already; use this handle, and close it too");
  EXPECT_EQ(put(m_document, "new", 0), VU_DONE);
}

TEST_F(CInterfaceFaults, AMissingSourceMakesNoFolder) {
  vu_document next = document("b.txt");
  next.owner = "berta";
  const std::string source = native(m_scratch.path("missing")).string();
  EXPECT_EQ(vu_copy_in(m_store, &next, source.c_str(), 0, nullptr), VU_NOTHING_MATCHED);
  EXPECT_FALSE(file_exists(m_scratch.path("storage\\user\\berta")));
}

TEST_F(CInterfaceFaults, ErrorsBeforeACallbackAreReportedAtTheEnd) {
  const auto clean = [&](vu_entry_visitor visit) {
    const auto fault = faults::fail(Call::unlock, kRefused);
    const vu_status status = vu_clean(m_store, VU_AREA_USER, "anna", 0, VU_CLEAN_ALL | VU_DRY_RUN,
                                      visit, m_store, nullptr);
    EXPECT_EQ(fault.hits(), 1U);
    return status;
  };
  EXPECT_EQ(clean(go_on), VU_PARTLY_DONE);
  const std::string text = last_error().text;
  EXPECT_NE(text.find("unlock"), std::string::npos) << text;
  EXPECT_EQ(clean(ask_for_what_is_refused), VU_PARTLY_DONE);
  EXPECT_EQ(last_error().text, text);
  EXPECT_STREQ(last_error().operation, "vu_clean");
}

TEST_F(CInterfaceFaults, AKeyFileThatCannotBeCutKeepsItsLines) {
  const vu_document file = document("keys.txt");
  ASSERT_EQ(vu_key_set(m_store, &file, "a", "1"), VU_DONE);
  {
    const auto fault = faults::fail(Call::set_end, kRefused);
    EXPECT_EQ(vu_key_set(m_store, &file, "b", "2"), VU_FAILED);
    EXPECT_EQ(fault.hits(), 1U);
  }
  EXPECT_EQ(content(file), "a=1\n");
}

TEST_F(CInterfaceFaults, AnOwnerOfWhomSomethingStaysIsPartlyRemoved) {
  const auto fault = faults::fail(Call::remove_file, kRefused);
  EXPECT_EQ(vu_remove_owner(m_store, "anna"), VU_PARTLY_DONE);
  EXPECT_EQ(fault.hits(), 1U);
}

TEST_F(CInterfaceFaults, CategoryLinesThatStayAreReported) {
  const vu_document category = document("list.ctg");
  ASSERT_EQ(vu_key_set(m_store, &category, "a.txt", "1"), VU_DONE);
  bool is_told = false;
  for (FaultNumber nth;; ++nth) {
    const auto fault = faults::fail(Call::read, kRefused, nth);
    const vu_status status = put(m_document, "new", VU_REPLACE);
    if (fault.hits() == 0) break;
    is_told = is_told || status == VU_PARTLY_DONE;
    // If the last existence check fails, the save cannot tell which document is current.
    const std::string found = content(m_document);
    EXPECT_TRUE(found == "new" || (found == "old" && status == VU_FAILED)) << nth << found;
    const bool stays = vu_key_get(m_store, &category, "a.txt", nullptr, 0, nullptr) == VU_DONE;
    EXPECT_FALSE(stays && found == "new" && status == VU_DONE) << nth;
    ASSERT_EQ(put(m_document, "old", VU_REPLACE), VU_DONE);
  }
  EXPECT_TRUE(is_told);
}

TEST_F(CInterfaceFaults, AnIndexThatCannotBeOpenedIsNotAMissingDocument) {
  // For the index alone, a failed open is only a warning, and the document looks missing.
  const auto index_is_open_elsewhere = [] {
    return faults::fail(Call::open, kRefused, 1, Times::kLasting);
  };
  {
    const auto fault = index_is_open_elsewhere();
    EXPECT_EQ(vu_exists(m_store, &m_document), VU_FAILED);
    EXPECT_EQ(content(m_document), "VU_FAILED");
    EXPECT_EQ(put(m_document, "new", 0), VU_FAILED);
    EXPECT_EQ(last_error().system_code, 5);
  }
  EXPECT_EQ(put(m_document, "new", 0), VU_ALREADY);
  EXPECT_EQ(content(m_document), "old");
  {
    // Only the first look-up fails: the second one finds the document.
    const auto fault = faults::fail(Call::open, kRefused, 1);
    EXPECT_EQ(put(m_document, "new", 0), VU_ALREADY);
  }
  EXPECT_EQ(content(m_document), "old");
}

TEST_F(CInterfaceFaults, ANewDocumentNeverGetsTheFileOfAnother) {
  // While the counter cannot be used, all callers of the index get the name 99999999.
  const std::string folder = m_scratch.path("storage\\user\\anna");
  vu_file::remove(folder + "\\index");
  make_folder(folder + "\\index");
  write_file(folder + "\\99999999.txt", "of another");
  write_file(folder + "\\index.dat",
             read_file(folder + "\\index.dat") + "b.txt_0000000000/99999999\n");
  const vu_document other = document("b.txt");
  const vu_document next = document("c.txt");
  ASSERT_EQ(content(other), "of another");
  const auto expect_refused = [&](vu_status status, const char* what) {
    SCOPED_TRACE(what);
    EXPECT_EQ(status, VU_FAILED);
    EXPECT_TRUE(std::string(last_error().path).ends_with("index")) << last_error().path;
    EXPECT_EQ(content(other), "of another");
    EXPECT_EQ(content(m_document), "old");
    EXPECT_EQ(content(next), "VU_NOTHING_MATCHED");
  };
  vu_stream* stream = nullptr;
  expect_refused(put(next, "new", 0), "put");
  expect_refused(put(m_document, "new", VU_REPLACE), "put, replacing");
  expect_refused(put(next, "new", VU_IN_PLACE), "put, in place");
  expect_refused(vu_open(m_store, &next, VU_WRITE_NEW, &stream), "open, new");
  expect_refused(vu_open(m_store, &next, VU_WRITE_OVER, &stream), "open, over");
  expect_refused(vu_key_set(m_store, &next, "line", "value"), "key set");
  expect_refused(vu_rename(m_store, &m_document, &next, 0), "rename");
  EXPECT_EQ(stream, nullptr);
  vu_file::remove(folder + "\\index");
  EXPECT_EQ(put(next, "new", VU_REPLACE), VU_DONE);
  EXPECT_EQ(content(next), "new");
  EXPECT_EQ(content(other), "of another");
}

TEST_F(CInterfaceFaults, ANewDocumentSkipsTheNumbersOfCopiedFiles) {
  // These files were copied into the folder, and adopted. The counter does not know them.
  const std::string folder = m_scratch.path("storage\\user\\anna");
  const auto numbered = [](int number) { return "0000000" + std::to_string(number) + ".txt"; };
  const int last = std::stoi(read_file(folder + "\\index"));
  std::string lines = read_file(folder + "\\index.dat");
  for (int i = last + 1; i < last + 4; ++i) {
    write_file(folder + "\\" + numbered(i), "copied");
    lines += numbered(i) + "_0000000000/" + numbered(i) + "\n";
  }
  write_file(folder + "\\index.dat", lines);
  const vu_document next = document("c.txt");
  const vu_document key = document("k.txt");
  EXPECT_EQ(put(next, "new", 0), VU_DONE);
  EXPECT_EQ(vu_key_set(m_store, &key, "line", "value"), VU_DONE);
  EXPECT_EQ(content(next), "new");
  EXPECT_EQ(content(m_document), "old");
  for (int i = last + 1; i < last + 4; ++i)
    EXPECT_EQ(read_file(folder + "\\" + numbered(i)), "copied") << i;
}

TEST_F(CInterfaceFaults, ANewDocumentGetsTheNumberThatIsAlsoTheNameForTrouble) {
  const std::string folder = m_scratch.path("storage\\user\\anna");
  write_file(folder + "\\index", "99999998");
  const vu_document next = document("c.txt");
  EXPECT_EQ(put(next, "new", VU_IN_PLACE), VU_DONE);
  EXPECT_EQ(read_file(folder + "\\99999999.txt"), "new");
  const vu_document last = document("d.txt");
  EXPECT_EQ(put(last, "last", VU_IN_PLACE), VU_DONE);
  EXPECT_EQ(read_file(folder + "\\100000000.txt"), "last");
}

TEST_F(CInterfaceFaults, ANewDocumentIsNotTheOneThatItsCreationAdopts) {
  // The load that precedes the creation adopts this file as "c.txt".
  const std::string folder = m_scratch.path("storage\\user\\anna");
  const synchronisation on(true);
  write_file(folder + "\\c.TXT", "copied");
  const vu_document adopted = document("c.txt");
  vu_stream* stream = nullptr;
  EXPECT_EQ(vu_open(m_store, &adopted, VU_WRITE_NEW, &stream), VU_ALREADY);
  ASSERT_EQ(stream, nullptr);
  EXPECT_EQ(content(adopted), "copied");
  EXPECT_FALSE(vu_file::exists(folder + "\\c.txt.txt"));
}

TEST_F(CInterfaceFaults, AnEntryWithAnotherFileIsNotWritten) {
  // The line of "c.txt" is valid, because the other name that it can have is that of a file.
  const std::string folder = m_scratch.path("storage\\user\\anna");
  write_file(folder + "\\c.txt.txt", "a=of another\n");
  write_file(folder + "\\index.dat",
             read_file(folder + "\\index.dat") +
                 "c.txt.txt_0000000000/c.txt.txt\nc.txt_0000000000/c.txt\n");
  const vu_document without = document("c.txt");
  vu_stream* stream = nullptr;
  EXPECT_EQ(vu_key_set(m_store, &without, "line", "value"), VU_FAILED);
  EXPECT_EQ(vu_open(m_store, &without, VU_WRITE_NEW, &stream), VU_FAILED);
  EXPECT_EQ(vu_open(m_store, &without, VU_WRITE_OVER, &stream), VU_FAILED);
  EXPECT_NE(std::string(last_error().text).find("'stgctl check'"), std::string::npos);
  EXPECT_EQ(read_file(folder + "\\c.txt.txt"), "a=of another\n");
}

TEST_F(CInterfaceFaults, WhatCannotBeSavedLeavesNoFile) {
  const std::string folder = m_scratch.path("storage\\user\\anna");
  const vu_document next = document("c.txt");
  const std::vector<std::pair<const char*, std::function<vu_status()>>> changes = {
      {"key set", [&] { return vu_key_set(m_store, &next, "line", "value"); }},
      {"put", [&] { return put(next, "new", 0); }},
      {"put, in place", [&] { return put(next, "new", VU_IN_PLACE); }},
      {"put, replacing", [&] { return put(m_document, "new", VU_REPLACE); }},
      {"rename", [&] { return vu_rename(m_store, &m_document, &next, 0); }},
      {"open", [&] {
         vu_stream* stream = nullptr;
         const vu_status status = vu_open(m_store, &next, VU_WRITE_NEW, &stream);
         if (status == VU_DONE) vu_stream_close(stream);
         return status;
       }}};
  const std::size_t before = vu_file::filenames(folder).size();
  for (const auto& [name, change] : changes) {
    for (const Call call : {Call::write, Call::flush, Call::set_end}) {
      for (FaultNumber nth;; ++nth) {
        {
          const auto fault = faults::fail(call, kRefused, nth);
          change();
          if (fault.hits() == 0) break;
        }
        // A rename may have been made.
        if (content(m_document) == "VU_NOTHING_MATCHED") put(m_document, "old", 0);
        if (content(next) != "VU_NOTHING_MATCHED") vu_remove(m_store, &next);
        EXPECT_EQ(vu_file::filenames(folder).size(), before)
            << name << ", call " << static_cast<int>(call) << ", " << nth;
        ASSERT_LT(nth, 100U);
      }
      put(m_document, "old", VU_REPLACE);
      vu_remove(m_store, &next);
    }
  }
}

TEST_F(CInterfaceFaults, ANewFileIsOnTheDeviceBeforeTheIndexNamesIt) {
  const std::string folder = m_scratch.path("storage\\user\\anna");
  const vu_document next = document("c.txt");
  const std::size_t before = vu_file::filenames(folder).size();
  // The first flush is that of the counter.
  {
    const auto hook = faults::before(
        Call::flush,
        [&] {
          EXPECT_EQ(vu_file::filenames(folder).size(), before + 1);
          EXPECT_EQ(read_file(folder + "\\index.dat").find("c.txt"), std::string::npos);
        },
        2);
    EXPECT_EQ(vu_key_set(m_store, &next, "line", "value"), VU_DONE);
    EXPECT_EQ(hook.hits(), 1U);
  }
  ASSERT_EQ(vu_remove(m_store, &next), VU_DONE);
  const auto fault = faults::fail(Call::flush, kRefused, 2);
  EXPECT_EQ(vu_key_set(m_store, &next, "line", "value"), VU_FAILED);
  EXPECT_EQ(fault.hits(), 1U);
  EXPECT_EQ(vu_file::filenames(folder).size(), before);
  EXPECT_EQ(files(), std::vector<std::string>{"a.txt"});
}

TEST_F(CInterfaceFaults, ANewFileThatCannotBeRemovedAgainIsNamedAndSweptLater) {
  const vu_document next = document("c.txt");
  const std::size_t before = count_of_files();
  // Flush 2 is that of the new file. Write 2 is that of the index: then the file is there already.
  for (const Call call : {Call::flush, Call::write}) {
    std::string cause;
    std::vector<std::string> errors;
    {
      const auto refused = faults::fail(call, kRefused, 2);
      const auto stays = faults::fail(Call::remove_file, kRefused, 1, Times::kLasting);
      const recording_sink sink;
      EXPECT_EQ(vu_key_set(m_store, &next, "line", "value"), VU_FAILED);
      EXPECT_EQ(refused.hits(), 1U) << faults::name(call);
      EXPECT_GE(stays.hits(), 1U) << faults::name(call);
      cause = last_error().text;
      errors = sink.events(vu_host::trace_event::error);
    }
    EXPECT_EQ(count_of_files(), before + 1) << faults::name(call);
    EXPECT_NE(errors.front().find(cause), std::string::npos) << errors.front() << cause;
    EXPECT_TRUE(errors.back().starts_with(
        "the new file cannot be removed, no entry names it: " + m_folder + "\\0"))
        << errors.back();
    EXPECT_EQ(content(next), "VU_NOTHING_MATCHED") << faults::name(call);
    vu_clean(m_store, VU_AREA_USER, "anna", 100'000, 0, nullptr, nullptr, nullptr);
    EXPECT_EQ(count_of_files(), before) << faults::name(call);
  }
}

TEST_F(CInterfaceFaults, ALineIsNotLostByAFailureThatWasSurvived) {
  const vu_document file = document("keys.txt");
  ASSERT_EQ(vu_key_set(m_store, &file, "a", "1"), VU_DONE);
  for (const Call call : {Call::unlock, Call::close, Call::lock}) {
    for (FaultNumber nth;; ++nth) {
      vu_status status = VU_FAILED;
      {
        const auto fault = faults::fail(call, kRefused, nth);
        status = vu_key_set(m_store, &file, "b", "2");
        if (fault.hits() == 0) break;
      }
      const std::string lines = content(file);
      EXPECT_TRUE(lines.starts_with("a=1\n")) << static_cast<int>(call) << nth << lines;
      EXPECT_TRUE(!is_made(status) || lines == "a=1\nb=2\n") << static_cast<int>(call) << nth;
      vu_key_delete(m_store, &file, "b");
      ASSERT_LT(nth, 100U);
    }
  }
}

TEST_F(CInterfaceFaults, WhatAnotherProgramWritesIntoANewFileStays) {
  vu_settings settings = VU_SETTINGS_INIT;
  settings.wait_ms = VU_NO_WAIT;
  vu_store* hurried = nullptr;
  ASSERT_EQ(vu_open_store(&settings, &hurried), VU_ALREADY);
  const std::string folder = m_scratch.path("storage\\user\\anna");
  const vu_document next = document("c.txt");
  int times_written = 0;
  for (FaultNumber nth;; ++nth) {
    std::string file;
    // The other program writes when the call takes a lock and the index has the entry.
    const auto write_once = [&] {
      if (!file.empty() || read_file(folder + "\\index.dat").find("c.txt_") == std::string::npos)
        return;
      for (const std::string& name : vu_file::filenames(folder)) {
        if (name.ends_with(".txt") && read_file(folder + "\\" + name).empty())
          file = folder + "\\" + name;
      }
      if (!file.empty()) write_file(file, "other=1\n");
    };
    {
      const auto hook = faults::before(Call::lock, write_once, 1, Times::kLasting);
      const auto fault = faults::fail(Call::lock, os::Status(11, os::Failure::kLocked), nth);
      const vu_status status = vu_key_set(hurried, &next, "line", "value");
      EXPECT_TRUE(is_made(status) || status == VU_LOCK_TIMEOUT) << nth << vu_status_name(status);
      const std::string bytes = is_made(status) ? "other=1\nline=value\n" : "other=1\n";
      EXPECT_TRUE(file.empty() || read_file(file) == bytes) << nth;
      times_written += !file.empty() && status == VU_LOCK_TIMEOUT ? 1 : 0;
      if (fault.hits() == 0) break;
    }
    vu_remove(m_store, &next);
    ASSERT_LT(nth, 100U);
  }
  EXPECT_GT(times_written, 0);
  EXPECT_EQ(vu_close_store(hurried), VU_DONE);
}

TEST_F(CInterfaceFaults, AReadOnlyCopyThatCannotBeSavedIsRemoved) {
  const std::string folder = m_scratch.path("storage\\user\\anna");
  const vu_document next = document("c.txt");
  const std::string source = m_scratch.path("in");
  write_file(source, "copy");
  make_read_only(source);
  const std::string in = native(source).string();
  const std::size_t before = vu_file::filenames(folder).size();
  for (FaultNumber nth;; ++nth) {
    {
      const auto fault = faults::fail(Call::write, kRefused, nth);
      vu_copy_in(m_store, &next, in.c_str(), 0, nullptr);
      if (fault.hits() == 0) break;
    }
    if (vu_exists(m_store, &next) == VU_DONE) vu_remove(m_store, &next);
    EXPECT_EQ(vu_file::filenames(folder).size(), before) << nth;
    ASSERT_LT(nth, 100U);
  }
}

TEST_F(CInterfaceFaults, ASavedEntryStaysAlthoughALockWasRefusedBefore) {
  // Another program uses the new entry at once. The call may not remove it.
  vu_settings settings = VU_SETTINGS_INIT;
  settings.wait_ms = VU_NO_WAIT;
  vu_store* hurried = nullptr;
  ASSERT_EQ(vu_open_store(&settings, &hurried), VU_ALREADY);
  const std::string folder = m_scratch.path("storage\\user\\anna");
  const vu_document next = document("c.txt");
  const os::Status held(11, os::Failure::kLocked);
  const auto open = [&](const char*) {
    vu_stream* stream = nullptr;
    const vu_status status = vu_open(hurried, &next, VU_WRITE_NEW, &stream);
    EXPECT_EQ(stream != nullptr, status == VU_DONE);
    return stream != nullptr ? vu_stream_close(stream) : status;
  };
  const auto set = [&](const char*) { return vu_key_set(hurried, &next, "line", "value"); };
  const auto store = [&](const char*) { return vu_put(hurried, &next, "new", 3, 0, nullptr); };
  const std::vector<std::pair<const char*, std::function<vu_status(const char*)>>> changes = {
      {"open", open}, {"key set", set}, {"put", store}};
  const std::size_t before = vu_file::filenames(folder).size();
  for (const auto& [name, change] : changes) {
    for (FaultNumber nth;; ++nth) {
      vu_status status = VU_FAILED;
      {
        const auto fault = faults::fail(Call::lock, held, nth);
        status = change(name);
        if (fault.hits() == 0) break;
      }
      EXPECT_TRUE(is_made(status) || status == VU_LOCK_TIMEOUT)
          << name << nth << vu_status_name(status);
      const bool is_there = vu_exists(m_store, &next) == VU_DONE;
      EXPECT_TRUE(is_there || !is_made(status)) << name << nth;
      if (is_there) {
        EXPECT_EQ(vu_remove(m_store, &next), VU_DONE);
      }
      EXPECT_EQ(vu_file::filenames(folder).size(), before) << name << nth;
      ASSERT_LT(nth, 100U);
    }
    EXPECT_EQ(vu_remove(m_store, &next), VU_DONE) << name;
  }
  EXPECT_EQ(vu_close_store(hurried), VU_DONE);
}

TEST_F(CInterfaceFaults, WithinACallbackTheExportedClassesKeepTheirNames) {
  // A host that calls the classes from a callback gets what they document: 99999999.
  const std::string folder = m_scratch.path("storage\\user\\anna");
  vu_file::remove(folder + "\\index");
  make_folder(folder + "\\index");
  using Created = std::pair<std::string, std::string>;
  Created created(folder, "");
  const auto visit = [](void* context, const vu_entry*) -> std::int32_t {
    auto& [where, name] = *static_cast<Created*>(context);
    name = STGIndex::create(where, "c.txt", 0);
    return 1;
  };
  vu_each_document(m_store, VU_AREA_USER, "anna", 0, visit, &created);
  EXPECT_EQ(created.second, "99999999.txt");
}

TEST_F(CInterfaceFaults, AFolderThatTheSystemCannotCheckIsNotMissing) {
  for (FaultNumber nth;; ++nth) {
    const auto fault = faults::fail(Call::probe_search, kRefused, nth);
    const vu_status status = vu_exists(m_store, &m_document);
    if (fault.hits() == 0) break;
    EXPECT_NE(status, VU_NOTHING_MATCHED) << nth;
  }
}

TEST_F(CInterfaceFaults, ARenameRemovesNothingBeforeTheCopyIsOnTheDevice) {
  // The folder of another owner contains a file with the new name, so the copy is made in place.
  vu_document to = document("b.txt");
  to.owner = "bert";
  ASSERT_EQ(put(to, "", 0), VU_DONE);
  write_file(m_scratch.path("storage\\user\\bert\\b.txt"), "BBB");
  const auto fault = faults::fail(Call::flush, kRefused);
  EXPECT_EQ(vu_rename(m_store, &m_document, &to, VU_REPLACE), VU_FAILED);
  EXPECT_EQ(fault.hits(), 1U);
  EXPECT_EQ(content(m_document), "old");
}
