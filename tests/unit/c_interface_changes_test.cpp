#include <gtest/gtest.h>

#include <memory>
#include <new>
#include <string>
#include <utility>
#include <vector>

#include "tests/unit/c_interface_fixture.h"
#include "vu/storage.h"
#include "vu_file.h"

// Changes by the C interface that are disturbed half-way: by a failure, or by another program. The
// status says whether the change is made. What another program stored stays.

namespace {

class CInterfaceChanges : public CInterfaceTest {
 protected:
  vu_status rename(const vu_document& from, const vu_document& to, std::uint32_t flags = 0) {
    return vu_rename(m_store, &from, &to, flags);
  }
  vu_status open_new(const vu_document& what, vu_store* store = nullptr) {
    vu_stream* stream = nullptr;
    const vu_status status =
        vu_open(store != nullptr ? store : m_store, &what, VU_WRITE_NEW, &stream);
    EXPECT_EQ(stream != nullptr, status == VU_DONE);
    if (stream != nullptr) vu_stream_close(stream);
    return status;
  }
  bool is_there(const vu_document& what) { return vu_exists(m_store, &what) == VU_DONE; }
  /// The document alone, with its old bytes.
  void start_anew() {
    for (const vu_document& other : {m_next, m_far}) {
      if (is_there(other)) vu_remove(m_store, &other);
    }
    if (content(m_document) != "old") {
      EXPECT_EQ(put(m_document, "old", VU_REPLACE), VU_DONE);
    }
  }
  std::string index_text() const { return read_file(m_folder + "\\index.dat"); }
  /// The line feed comes first because a temporary name may end in "c.txt".
  bool is_next_entered() const {
    return ("\n" + index_text()).find("\nc.txt_") != std::string::npos;
  }

  const vu_document m_next = document("c.txt");
  const vu_document m_far = document("a.kdf", VU_AREA_DOCS);
};

}  // namespace

// ---- what another program does during a call ----------------------------------------------------

TEST_F(CInterfaceChanges, ARenameToAnotherFolderRemovesOnlyWhatItCopied) {
  // The other program stores after the bytes were copied, and before the old version is removed.
  vu_status stored = VU_FAILED;
  {
    const auto hook = faults::after(Call::copy, [&] {
      stored = elsewhere([&] { return put(m_document, "other", VU_REPLACE); });
    });
    EXPECT_EQ(rename(m_document, m_far), VU_DONE) << last_error().text;
  }
  EXPECT_EQ(stored, VU_DONE);
  EXPECT_EQ(content(m_far), "old");
  EXPECT_EQ(content(m_document), "other");
}

TEST_F(CInterfaceChanges, WhatAnotherProgramStoresDuringARenameIsNotLost) {
  vu_store* const hurried = hurried_store(VU_NO_WAIT);
  for (const vu_document& to : {m_far, m_next}) {
    int times_stored = 0;
    for (FaultNumber nth;; ++nth) {
      vu_status stored = VU_FAILED;
      const auto store = [&] {
        stored = elsewhere(
            [&] { return vu_put(hurried, &m_document, "other", 5, VU_REPLACE, nullptr); });
      };
      {
        const auto hook = faults::before(Call::open, store, nth);
        const vu_status status = rename(m_document, to);
        if (hook.hits() == 0) break;
        EXPECT_TRUE(is_made(status)) << to.name << nth << vu_status_name(status);
      }
      const bool is_kept = content(m_document) == "other" || content(to) == "other";
      EXPECT_TRUE(is_kept || !is_made(stored)) << to.name << nth;
      times_stored += is_made(stored) ? 1 : 0;
      start_anew();
      ASSERT_LT(nth, 1000U);
    }
    EXPECT_GT(times_stored, 3) << to.name;
    start_anew();
  }
  EXPECT_EQ(vu_close_store(hurried), VU_DONE);
}

TEST_F(CInterfaceChanges, ARenameOfWhatAnotherProgramRemovesHasNothingToRename) {
  vu_store* const hurried = hurried_store(VU_NO_WAIT);
  for (const vu_document& to : {m_far, m_next}) {
    int times_removed = 0;
    for (FaultNumber nth;; ++nth) {
      vu_status removed = VU_FAILED;
      const auto remove = [&] {
        removed = elsewhere([&] { return vu_remove(hurried, &m_document); });
      };
      {
        const auto hook = faults::before(Call::open, remove, nth);
        const vu_status status = rename(m_document, to);
        if (hook.hits() == 0) break;
        EXPECT_TRUE(is_made(status) || status == VU_NOTHING_MATCHED)
            << to.name << nth << vu_status_name(status) << last_error().text;
        EXPECT_EQ(content(to), is_made(status) ? "old" : "VU_NOTHING_MATCHED") << to.name << nth;
      }
      times_removed += is_made(removed) ? 1 : 0;
      start_anew();
      ASSERT_LT(nth, 1000U);
    }
    EXPECT_GT(times_removed, 3) << to.name;
    start_anew();
  }
  EXPECT_EQ(vu_close_store(hurried), VU_DONE);
}

TEST_F(CInterfaceChanges, AWriteInPlaceMakesNoFileForAVersionThatIsGone) {
  // Another program replaces or removes the version before an open of the call.
  vu_store* const hurried = hurried_store(VU_NO_WAIT);
  const auto write = [&](int way) {
    if (way == 0) return vu_key_set(m_store, &m_document, "line", "value");
    if (way == 1) return vu_key_delete(m_store, &m_document, "old");
    if (way == 2) return put(m_document, "new", VU_REPLACE | VU_IN_PLACE);
    vu_stream* stream = nullptr;
    const vu_status status = vu_open(m_store, &m_document, VU_WRITE_OVER, &stream);
    return stream != nullptr ? vu_stream_close(stream) : status;
  };
  int times_disturbed = 0;
  for (int way = 0; way < 4; ++way) {
    for (const bool removes : {false, true}) {
      for (FaultNumber nth;; ++nth) {
        SCOPED_TRACE(std::to_string(way) + (removes ? ", removed " : ", replaced ") +
                     std::to_string(nth));
        ASSERT_EQ(put(m_document, "old=1\n", VU_REPLACE), VU_DONE);
        vu_status disturbed = VU_FAILED;
        const auto disturb = [&] {
          disturbed = elsewhere([&] {
            return removes ? vu_remove(hurried, &m_document)
                           : vu_put(hurried, &m_document, "other=1\n", 8, VU_REPLACE, nullptr);
          });
        };
        bool is_over = false;
        {
          const auto hook = faults::before(Call::open, disturb, nth);
          const vu_status status = write(way);
          is_over = hook.hits() == 0;
          EXPECT_TRUE(is_made(status) || (way == 1 && status == VU_NOTHING_MATCHED))
              << vu_status_name(status) << last_error().text;
        }
        times_disturbed += is_made(disturbed) ? 1 : 0;
        // A file without an entry would be adopted under its own name.
        const std::vector<std::string> names = files();
        EXPECT_TRUE(names.empty() || names == std::vector<std::string>{"a.txt"});
        EXPECT_EQ(count_of_files(), names.size() + 2);
        if (is_over) break;
        ASSERT_LT(nth, 100U);
      }
    }
  }
  EXPECT_GT(times_disturbed, 8);
  EXPECT_EQ(vu_close_store(hurried), VU_DONE);
}

TEST_F(CInterfaceChanges, AFailedCheckDoesNotMeanThatTheVersionIsStored) {
  vu_store* const hurried = hurried_store(VU_NO_WAIT);
  int times_stored = 0;
  for (FaultNumber nth;; ++nth) {
    // An open fails, for example that of the save. Another program creates the version. Then the
    // open of the check fails.
    std::unique_ptr<faults::Fault> next_fault;
    const auto store_and_fail = [&] {
      const vu_status stored =
          elsewhere([&] { return vu_put(hurried, &m_next, "other", 5, 0, nullptr); });
      times_stored += is_made(stored) ? 1 : 0;
      next_fault.reset(new faults::Fault(faults::fail(Call::open, kRefused)));
    };
    {
      const auto fault = faults::fail(Call::open, kRefused, nth);
      const auto hook = faults::after(Call::open, store_and_fail, nth);
      const vu_status status = put(m_next, "new", 0);
      next_fault.reset();
      if (hook.hits() == 0) break;
      if (is_made(status)) {
        EXPECT_EQ(content(m_next), "new") << nth;
      }
    }
    vu_remove(m_store, &m_next);
    ASSERT_LT(nth, 100U);
  }
  EXPECT_GT(times_stored, 3);
  EXPECT_EQ(vu_close_store(hurried), VU_DONE);
}

// ---- what fails after the change ----------------------------------------------------------------

TEST_F(CInterfaceChanges, TheStatusSaysWhetherTheChangeIsMade) {
  struct Change {
    const char* name;
    Step make;
    const vu_document& target;
    const char* bytes;  ///< of the target, if the change is made
  };
  const Change changes[] = {
      {"put", [&] { return put(m_next, "new", 0); }, m_next, "new"},
      {"put, replacing", [&] { return put(m_document, "new", VU_REPLACE); }, m_document, "new"},
      {"rename", [&] { return rename(m_document, m_next); }, m_next, "old"},
      {"rename to another folder", [&] { return rename(m_document, m_far); }, m_far, "old"}};
  for (const Change& change : changes) {
    for (const Call call : {Call::probe_search, Call::stat}) {
      for (FaultNumber nth;; ++nth) {
        {
          const auto fault = faults::throw_from(call, std::bad_alloc(), nth);
          const vu_status status = change.make();
          if (fault.hits() == 0) break;
          EXPECT_EQ(content(change.target) == change.bytes, is_made(status))
              << change.name << faults::name(call) << nth << vu_status_name(status);
        }
        for (const std::string& name : files()) EXPECT_FALSE(name.starts_with(".vu-")) << nth;
        start_anew();
        ASSERT_LT(nth, 1000U);
      }
      start_anew();
    }
  }
}

TEST_F(CInterfaceChanges, ARenameIsNotDoneIfItsTemporaryVersionStays) {
  // The system refuses to remove the temporary version. The second attempt, by the end of the call,
  // raises. No error tells either of them. A clean has swept the new file before the save, which
  // makes it again: that is a warning, and so the reason of the call.
  ASSERT_EQ(put(m_far, "other", 0), VU_DONE);
  char path[1000];
  ASSERT_EQ(vu_file_path(m_store, &m_far, path, sizeof path, nullptr), VU_DONE);
  const std::string folder(path, std::string(path).find_last_of("/\\"));
  int times_stayed = 0;
  for (FaultNumber nth;; ++nth) {
    vu_file::recurseRemoveDir(folder);
    vu_status status = VU_FAILED;
    bool is_over = false;
    {
      const auto refused = faults::fail(Call::remove_file, kRefused, 2);
      const auto raised = faults::throw_from(Call::open, std::bad_alloc(), nth);
      const auto sweep = faults::before(
          Call::flush_file, [&] { vu_file::remove(folder + "\\00000002.kdf"); }, 2);
      status = rename(m_document, m_far);
      is_over = raised.hits() == 0;
    }
    const std::string index = folder + "\\index.dat";
    const bool stays = vu_file::exists(index) && read_file(index).find(".vu-") != std::string::npos;
    times_stayed += stays && is_made(status) ? 1 : 0;
    EXPECT_FALSE(stays && status == VU_DONE) << nth;
    start_anew();
    if (is_over) break;
    ASSERT_LT(nth, 100U);
  }
  EXPECT_GT(times_stayed, 0);
}

TEST_F(CInterfaceChanges, ARenameWhoseOldVersionStaysIsPartlyDone) {
  const auto fault = faults::fail(Call::remove_file, kRefused, 1, Times::kLasting);
  EXPECT_EQ(rename(m_document, m_next), VU_PARTLY_DONE);
  EXPECT_EQ(content(m_next), "old");
  EXPECT_EQ(content(m_document), "old");
}

TEST_F(CInterfaceChanges, AVersionWhoseOldFileStaysIsStored) {
  const auto fault = faults::fail(Call::remove_file, kRefused, 1, Times::kLasting);
  EXPECT_EQ(put(m_document, "new", VU_REPLACE), VU_PARTLY_DONE);
  EXPECT_EQ(content(m_document), "new");
}

// ---- new versions that are not opened -----------------------------------------------------------

TEST_F(CInterfaceChanges, AVersionThatCannotBeOpenedIsThereOrLeavesNothing) {
  const std::size_t before = count_of_files();
  const std::pair<const char*, Step> changes[] = {
      {"open", [&] { return open_new(m_next); }},
      {"key set", [&] { return vu_key_set(m_store, &m_next, "line", "value"); }}};
  for (const auto& [name, change] : changes) {
    // Without Call::close: on Windows a file that stays open cannot be removed.
    for (const Call call : {Call::open, Call::lock, Call::unlock, Call::set_end}) {
      for (const bool throws : {true, false}) {
        for (FaultNumber nth;; ++nth) {
          vu_status status = VU_FAILED;
          {
            const auto fault = throws ? faults::throw_from(call, std::bad_alloc(), nth)
                                      : faults::fail(call, kRefused, nth);
            status = change();
            if (fault.hits() == 0) break;
          }
          // A version that was created is found by the next call; another program may use it.
          if (is_there(m_next)) {
            EXPECT_EQ(put(m_next, "new", VU_REPLACE), VU_DONE);
            EXPECT_EQ(content(m_next), "new");
          } else {
            EXPECT_FALSE(is_made(status)) << name << faults::name(call) << throws << nth;
          }
          vu_remove(m_store, &m_next);
          EXPECT_EQ(count_of_files(), before) << name << faults::name(call) << throws << nth;
          ASSERT_LT(nth, 100U);
        }
        vu_remove(m_store, &m_next);
      }
    }
  }
}

TEST_F(CInterfaceChanges, ASavedEntryIsFoundAlthoughTheFirstCheckRaises) {
  // An unlock fails, so the call checks whether its new entry is saved. The check gets no memory.
  const std::size_t before = count_of_files();
  for (FaultNumber nth;; ++nth) {
    std::unique_ptr<faults::Fault> next_fault;
    const auto raise_next = [&] {
      next_fault.reset(new faults::Fault(faults::throw_from(Call::open, std::bad_alloc())));
    };
    const auto fault = faults::fail(Call::unlock, kRefused, nth);
    const auto hook = faults::after(Call::unlock, raise_next, nth);
    const vu_status status = open_new(m_next);
    next_fault.reset();
    if (fault.hits() == 0) break;
    EXPECT_EQ(is_there(m_next), is_made(status)) << nth << vu_status_name(status);
    vu_remove(m_store, &m_next);
    EXPECT_EQ(count_of_files(), before) << nth;
    ASSERT_LT(nth, 100U);
  }
}

TEST_F(CInterfaceChanges, ASavedEntryKeepsItsFileIfTheSystemCannotTell) {
  const Step changes[] = {[&] { return open_new(m_next); }, [&] { return put(m_next, "new", 0); }};
  int times_saved = 0;
  for (const Step& change : changes) {
    for (FaultNumber nth;; ++nth) {
      std::unique_ptr<faults::Fault> lasting;
      const auto refuse_all = [&] {
        lasting.reset(new faults::Fault(faults::fail(Call::open, kRefused, 1, Times::kLasting)));
      };
      const auto fault = faults::fail(Call::unlock, kRefused, nth);
      const auto hook = faults::after(Call::unlock, refuse_all, nth);
      change();
      lasting.reset();
      if (fault.hits() == 0) break;
      const bool is_saved = is_next_entered();
      EXPECT_TRUE(is_there(m_next) || !is_saved) << nth;
      times_saved += is_saved ? 1 : 0;
      vu_remove(m_store, &m_next);
      ASSERT_LT(nth, 100U);
    }
    vu_remove(m_store, &m_next);
  }
  EXPECT_GT(times_saved, 1);
}

TEST_F(CInterfaceChanges, ANewVersionThatAnotherProgramUsesStays) {
  // The other program opens the new version as soon as the index has it.
  vu_store* const hurried = hurried_store(VU_NO_WAIT);
  vu_stream* of_other = nullptr;
  bool is_open = false;
  const auto open_elsewhere = [&] {
    if (is_open || !is_next_entered()) return;
    is_open = true;
    elsewhere([&] { return vu_open(hurried, &m_next, VU_WRITE_OVER, &of_other); });
  };
  {
    const auto hook = faults::before(Call::open, open_elsewhere, 1, Times::kLasting);
    EXPECT_EQ(open_new(m_next, hurried), VU_LOCK_TIMEOUT);
  }
  ASSERT_NE(of_other, nullptr);
  EXPECT_EQ(vu_stream_write(of_other, "other", 5), VU_DONE);
  EXPECT_EQ(vu_stream_close(of_other), VU_DONE);
  EXPECT_EQ(content(m_next), "other");
  EXPECT_EQ(vu_close_store(hurried), VU_DONE);
}

TEST_F(CInterfaceChanges, AKeyFileIsNotReadWithoutItsLock) {
  // Without the lock the lines could be those of a change that is not complete.
  const vu_document file = document("profile.txt");
  ASSERT_EQ(vu_key_set(m_store, &file, "a", "1"), VU_DONE);
  const auto line = [](void*, const char*, const char*) -> std::int32_t { return 0; };
  std::size_t size = 0;
  const Step reads[] = {[&] { return vu_key_get(m_store, &file, "a", nullptr, 0, &size); },
                        [&] { return vu_key_each(m_store, &file, line, nullptr); },
                        [&] { return vu_profile_each(m_store, "anna", nullptr, line, nullptr); }};
  for (const Step& read : reads) {
    faults::reset();
    ASSERT_EQ(read(), VU_DONE);
    // The lock of the file is the last one.
    const auto fault = faults::fail(Call::lock, kRefused, faults::calls(Call::lock));
    EXPECT_EQ(read(), VU_FAILED);
    EXPECT_EQ(fault.hits(), 1U);
    EXPECT_STREQ(last_error().text, "the lock was not granted");
    EXPECT_TRUE(std::string(last_error().path).ends_with(".txt")) << last_error().path;
  }
}

// ---- the last numbers of the counter ------------------------------------------------------------

TEST_F(CInterfaceChanges, AfterTheLastNumberNoFileOfAnotherIsWritten) {
  const auto change = [&](const vu_document& what, int way) {
    if (way == 0) return put(what, "new", 0);
    if (way == 1) return put(what, "new", VU_IN_PLACE);
    if (way == 2) return open_new(what);
    return vu_key_set(m_store, &what, "line", "value");
  };
  for (const char* const counter : {"2147483645", "2147483646", "2147483647", "2147483648", "-5"}) {
    for (int way = 0; way < 4; ++way) {
      SCOPED_TRACE(counter + std::string(", ") + std::to_string(way));
      const std::string names[] = {"2147483646", "2147483647", "00000000", "00000001", "00000002"};
      std::string lines;
      for (const std::string& name : names) {
        write_file(m_folder + "\\" + name + ".txt", "of another");
        lines.append("z").append(name).append(".txt_0000000000/").append(name).append("\n");
      }
      // This one is in no line: it was copied into the folder.
      write_file(m_folder + "\\00000003.txt", "copied");
      write_file(m_folder + "\\index.dat", lines);
      write_file(m_folder + "\\index", counter);
      for (const char* const name : {"b.txt", "c.txt"}) {
        const vu_document what = document(name);
        EXPECT_EQ(change(what, way), VU_DONE) << name << last_error().text;
        EXPECT_EQ(content(what), way < 2 ? "new" : way == 2 ? "" : "line=value\n") << name;
      }
      for (const std::string& name : names)
        EXPECT_EQ(read_file(m_folder + "\\" + name + ".txt"), "of another") << name;
      EXPECT_EQ(read_file(m_folder + "\\00000003.txt"), "copied");
      for (const std::string& name : vu_file::filenames(m_folder))
        vu_file::remove(m_folder + "\\" + name);
    }
  }
}

// ---- names with a line feed ---------------------------------------------------------------------

TEST_F(CInterfaceChanges, ANameWithALineFeedIsNotTwoEntries) {
  vu_settings settings = VU_SETTINGS_INIT;
  settings.flags = VU_NO_GUARD;
  vu_store* bare = nullptr;
  ASSERT_EQ(vu_open_store(&settings, &bare), VU_ALREADY);
  ASSERT_EQ(put(m_next, "of another", 0), VU_DONE);
  const std::string text = index_text();
  const vu_document two_lines = document("a\nc.txt");
  vu_stream* stream = nullptr;
  EXPECT_EQ(vu_open(bare, &two_lines, VU_WRITE_NEW, &stream), VU_USAGE);
  EXPECT_EQ(stream, nullptr);
  EXPECT_EQ(vu_put(bare, &two_lines, "new", 3, VU_REPLACE, nullptr), VU_USAGE);
  EXPECT_EQ(vu_key_set(bare, &two_lines, "line", "value"), VU_USAGE);
  EXPECT_EQ(vu_profile_set(bare, "anna", "a\nc.txt", "line", "value"), VU_USAGE);
  EXPECT_EQ(vu_rename(bare, &m_document, &two_lines, 0), VU_USAGE);
  EXPECT_EQ(index_text(), text);
  EXPECT_EQ(content(m_next), "of another");
  // A text in which the key would be found across two lines.
  write_file(m_folder + "\\00000099.txt", "of another");
  write_file(m_folder + "\\index.dat", "a\nc.txt_0000000000/00000099");
  EXPECT_EQ(content(m_next), "of another");
  EXPECT_EQ(vu_exists(bare, &two_lines), VU_USAGE);
  EXPECT_EQ(vu_remove(bare, &two_lines), VU_USAGE);
  EXPECT_EQ(vu_exists(m_store, &two_lines), VU_REFUSED);
  EXPECT_EQ(content(m_next), "of another");
  EXPECT_EQ(vu_close_store(bare), VU_DONE);
}

// ---- what a failure of the system leaves out ----------------------------------------------------

TEST_F(CInterfaceChanges, AFolderThatCannotBeListedIsReportedWhereItsOrphansCount) {
  std::vector<std::string> told;
  const auto collect = [](void* context, const vu_entry* entry) -> std::int32_t {
    static_cast<std::vector<std::string>*>(context)->emplace_back(entry->name);
    return 0;
  };
  const auto list = [&] {
    told.clear();
    return vu_each_document(m_store, VU_AREA_USER, "anna", 0, collect, &told);
  };
  {
    const auto fault = faults::fail(Call::list, kRefused, 1, Times::kLasting);
    EXPECT_EQ(list(), VU_DONE) << "without adoption orphans do not count";
    std::int64_t count = 0;
    EXPECT_EQ(vu_clean(m_store, VU_AREA_USER, "anna", 3600, 0, nullptr, nullptr, &count),
              VU_PARTLY_DONE);
  }
  STGIndex::setSynchronizeMode(true);
  const auto fault = faults::fail(Call::list, kRefused, 1, Times::kLasting);
  EXPECT_EQ(list(), VU_PARTLY_DONE);
  EXPECT_EQ(told, std::vector<std::string>{"a.txt"});
  EXPECT_STREQ(last_error().text, "the folder cannot be listed, so its orphans are not adopted");
  EXPECT_EQ(last_error().system_code, kRefused.code());
  EXPECT_EQ(vu_each_version(m_store, &m_document, 0, collect, &told), VU_PARTLY_DONE);
  // A missing folder has no orphans.
  EXPECT_EQ(vu_each_document(m_store, VU_AREA_USER, "nobody", 0, collect, &told), VU_DONE);
}

TEST_F(CInterfaceChanges, AForecastKeepsAFileWithoutAKnownTime) {
  std::string file;
  ASSERT_TRUE(STGIndex::exists(m_folder, "a.txt", 0, file));
  set_modify_time(m_folder + "\\" + file, os::now() - 7200);
  std::int64_t count = 0;
  const auto forecast = [&] {
    return vu_clean(m_store, VU_AREA_USER, "anna", 3600, VU_DRY_RUN, nullptr, nullptr, &count);
  };
  EXPECT_EQ(forecast(), VU_DONE);
  EXPECT_EQ(count, 1);
  bool is_kept = false;
  for (FaultNumber nth;; ++nth) {
    const auto fault = faults::fail(Call::stat, kRefused, nth);
    const vu_status status = forecast();
    if (fault.hits() == 0) break;
    EXPECT_TRUE(status != VU_DONE || count == 1) << nth;
    is_kept = is_kept || (status == VU_PARTLY_DONE && count == 0);
  }
  EXPECT_TRUE(is_kept);
}

TEST_F(CInterfaceChanges, AStoredCategoryFileKeepsItsOwnLines) {
  const vu_document category = document("list.ctg");
  ASSERT_EQ(put(category, "old", 0), VU_DONE);
  ASSERT_EQ(put(document("other.ctg"), "list.ctg=1\nb=2\n", 0), VU_DONE);
  EXPECT_EQ(put(category, "list.ctg=5\nb=2\n", VU_REPLACE), VU_DONE);
  EXPECT_EQ(content(category), "list.ctg=5\nb=2\n");
  EXPECT_EQ(content(document("other.ctg")), "b=2\n");
  ASSERT_EQ(put(m_document, "list.ctg=9\nz=1\n", VU_REPLACE), VU_DONE);
  EXPECT_EQ(rename(m_document, category, VU_REPLACE), VU_DONE);
  EXPECT_EQ(content(category), "list.ctg=9\nz=1\n");
}

// ---- names that files bear ----------------------------------------------------------------------

TEST_F(CInterfaceChanges, ARenamedVersionIsServedAlsoWhereAFileBearsItsName) {
  write_file(m_folder + "\\b.txt", "BBB");
  ASSERT_EQ(put(document("list.ctg"), "a.txt=1\n", 0), VU_DONE);
  vu_document to = document("b.txt");
  to.version = 5;
  EXPECT_EQ(rename(m_document, to), VU_ALREADY);
  EXPECT_EQ(content(m_document), "old");
  EXPECT_EQ(rename(m_document, to, VU_REPLACE), VU_DONE);
  EXPECT_EQ(content(to), "old");
  EXPECT_FALSE(is_there(m_document));
  EXPECT_EQ(content(document("list.ctg")), "a.txt=1\n");
}

TEST_F(CInterfaceChanges, AHiddenVersionIsNotRenamed) {
  write_file(m_folder + "\\a.txt", "another");
  EXPECT_EQ(rename(m_document, m_next), VU_REFUSED);
  EXPECT_EQ(rename(m_document, m_far), VU_REFUSED);
  EXPECT_FALSE(is_there(m_next));
  vu_file::remove(m_folder + "\\a.txt");
  EXPECT_EQ(content(m_document), "old");
}

TEST_F(CInterfaceChanges, AnAdoptedVersionGetsAnotherNumber) {
  write_file(m_folder + "\\b.txt", "BBB");
  STGIndex::setSynchronizeMode(true);
  vu_document from = document("b.txt");
  vu_document to = from;
  to.version = 5;
  EXPECT_EQ(rename(from, from), VU_DONE);
  EXPECT_EQ(rename(from, to), VU_DONE);
  EXPECT_EQ(content(to), "BBB");
  EXPECT_FALSE(is_there(from));
  std::int64_t latest = 0;
  EXPECT_EQ(vu_latest(m_store, &from, &latest), VU_DONE);
  EXPECT_EQ(latest, 5);
}
