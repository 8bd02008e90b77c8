// The migration of a mail folder. The read list: index_read_list_test.cpp.

#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>
#include <memory>
#include <string>
#include <string_view>
#include <utility>

#include "file/lock_limit.h"
#include "platform/os/os.h"
#include "tests/support/host_services.h"
#include "tests/support/recording_sink.h"
#include "tests/support/storage_peer.h"
#include "tests/unit/index_fixture.h"

namespace {

using os::faults::Call;
using vu_host::trace_event;

constexpr const char* kNoUser = " Migration on inbox read need an non empty user ";

TEST_F(IndexMigration, RefusesAnEmptyUser) {
  const Texts before = list_folder(mail);
  recording_sink sink;
  os::faults::reset();
  STGIndex::migrateInboxRead("");
  EXPECT_EQ(index_traces(sink), (Texts{std::string("Warning: ") + kNoUser}));
  EXPECT_EQ(os::faults::calls(Call::any), 0U);
  EXPECT_EQ(list_folder(mail), before);
}

TEST_F(IndexMigration, RefusesAnEmptyUserBeforeItInitialises) {
  vu_storage_test_peer::reset();
  recording_sink sink;
  STGIndex::migrateInboxRead("");
  EXPECT_EQ(vu_storage_test_peer::init_done(), 0);
  EXPECT_EQ(sink.count(trace_event::warning, kNoUser), 1U);
}

TEST_F(IndexMigration, InitialisesTheStorageIfNoCallDid) {
  vu_storage_test_peer::reset();
  const scratch_folder elsewhere;
  fake_temporary_files temporary(elsewhere.path("server"));
  vu_host::services services;
  services.temp = &temporary;
  const recording_sink sink(services);
  migrate();
  EXPECT_TRUE(folder_exists(elsewhere.path("server\\mail\\joe")));
  EXPECT_EQ(vu_storage_test_peer::mail_path(), elsewhere.path("server\\mail"));
}

TEST_F(IndexMigration, MakesAnEmptyFolderForAUserWithoutOne) {
  recording_sink sink;
  migrate();
  EXPECT_TRUE(folder_exists(path()));
  EXPECT_EQ(names(), Texts{});
  EXPECT_EQ(index_traces(sink),
            (Texts{"Warning: User joe has an empty inbox read. No need migration);"}));
}

TEST_F(IndexMigration, ConvertsTheFolderThatItMadeAtTheNextCall) {
  migrate();
  migrate();
  EXPECT_TRUE(is_marked());
  EXPECT_EQ(index(), "k1mailboxcompliant_0000000000/00000002\nread.txt_0000000000/00000001\n");
}

TEST_F(IndexMigration, SaysTheSameWhenTheFolderCannotBeMade) {
  recording_sink sink;
  const auto fault = os::faults::fail(Call::create_directory, kRefused);
  EXPECT_NO_THROW(migrate());
  EXPECT_FALSE(folder_exists(path()));
  EXPECT_EQ(
      sink.count(trace_event::warning, "User joe has an empty inbox read. No need migration);"),
      1U);
}

TEST_F(IndexMigration, MovesAnEscapedFileToAnEntryOfItsUnescapedName) {
  make_mail_folder();
  write("Q1%20Sales.kdb", "sales");
  recording_sink sink;
  migrate();
  EXPECT_EQ(entry("Q1 Sales.kdb"), "sales");
  EXPECT_FALSE(has("Q1%20Sales.kdb"));
  EXPECT_TRUE(is_marked());
  EXPECT_EQ(index(),
            "Q1 Sales.kdb_0000000000/00000002\n"
            "k1mailboxcompliant_0000000000/00000003\n"
            "read.txt_0000000000/00000001\n");
  EXPECT_EQ(names(), (Texts{"00000001.txt", "00000002.kdb", "00000003", "index", "index.dat"}));
  EXPECT_EQ(sink.count(trace_event::warning) + sink.count(trace_event::error), 0U);
}

TEST_F(IndexMigration, OpensTheScopesOfTheMembersThatItCalls) {
  make_mail_folder();
  write("index.dat", " ");
  write("read.txt", "");
  write("a%20.kdb", "a");
  recording_sink sink;
  migrate();
  // Only the scopes below, as "(name ...)".
  std::string seen;
  for (const traced& each : sink.all()) {
    for (const std::string_view name :
         {"exists", "updateIndexFile", "getPhysicalName", "create", "STGIndex", "~STGIndex",
          "_rename", "_create", "saveIndexFile"}) {
      if (each.source != "stg_index" ||
          each.signature.find("STGIndex::" + std::string(name) + "(") == std::string::npos)
        continue;
      if (each.kind == traced::kind_t::scope) seen.append("(").append(name);
      if (each.kind == traced::kind_t::scope_end) seen += ")";
    }
  }
  EXPECT_EQ(seen,
            "(exists)"
            "(updateIndexFile(STGIndex)(~STGIndex(saveIndexFile)))"
            "(getPhysicalName(create(exists)))"
            "(STGIndex)(_rename(_create))(_create)(~STGIndex(saveIndexFile))");
}

TEST_F(IndexMigration, ConvertsInTheOrderOfTheKeys) {
  make_mail_folder();
  for (const char* const name : {"c%43.kdb", "a%41.kdb", "b%42"}) write(name, name);
  migrate();
  EXPECT_EQ(index(),
            "aA.kdb_0000000000/00000002\n"
            "bB_0000000000/00000003\n"
            "cC.kdb_0000000000/00000004\n"
            "k1mailboxcompliant_0000000000/00000005\n"
            "read.txt_0000000000/00000001\n");
  EXPECT_EQ(entry("aA.kdb"), "a%41.kdb");
  EXPECT_EQ(entry("bB"), "b%42");
  EXPECT_EQ(entry("cC.kdb"), "c%43.kdb");
}

TEST_F(IndexMigration, LeavesNamesAloneThatAreNotInTheEscapedForm) {
  make_mail_folder();
  for (const char* const name : {"Q1 Sales.kdb", "Q1 %41.kdb", "(%41).kdb", "a%41~.kdb"}) {
    write(name, name);
  }
  migrate();
  for (const char* const name : {"Q1 Sales.kdb", "Q1 %41.kdb", "(%41).kdb", "a%41~.kdb"}) {
    EXPECT_EQ(read(name), name);
    EXPECT_EQ(entry(name), name);
  }
  EXPECT_TRUE(is_marked());
}

TEST_F(IndexMigration, LeavesNamesAloneThatUnescapingDoesNotChange) {
  make_mail_folder();
  write("plain#name_1.kdb", "plain");
  write("noext", "noext");
  write("x.y%20", "extension");
  migrate();
  EXPECT_EQ(read("plain#name_1.kdb"), "plain");
  EXPECT_EQ(read("noext"), "noext");
  EXPECT_EQ(read("x.y%20"), "extension");
  EXPECT_EQ(index(),
            "k1mailboxcompliant_0000000000/00000002\n"
            "noext_0000000000/noext\n"
            "plain#name_1.kdb_0000000000/plain#name_1.kdb\n"
            "read.txt_0000000000/00000001\n"
            "x.y%20_0000000000/x.y%20\n");
}

TEST_F(IndexMigration, LeavesEntriesOfGeneratedFilesAlone) {
  make_mail_folder();
  write("00000007.kdb", "generated");
  write("index.dat", "a%20b.kdb_0000000000/00000007\n");
  migrate();
  EXPECT_EQ(entry("a%20b.kdb"), "generated");
  EXPECT_EQ(entry("a b.kdb"), "no such entry");
  EXPECT_EQ(read("00000007.kdb"), "generated");
}

TEST_F(IndexMigration, UnescapesANameOnce) {
  make_mail_folder();
  write("a%2520b.kdb", "twice escaped");
  migrate();
  EXPECT_EQ(entry("a%20b.kdb"), "twice escaped");
  EXPECT_EQ(entry("a b.kdb"), "no such entry");
}

TEST_F(IndexMigration, TakesTheExtensionInLowerCase) {
  make_mail_folder();
  write("Q1%20Sales.KDB", "sales");
  migrate();
  EXPECT_EQ(entry("Q1 Sales.kdb"), "sales");
  EXPECT_FALSE(has("Q1%20Sales.kdb"));
}

TEST_F(IndexMigration, TakesWhateverUnescapingMakesOfAName) {
  make_mail_folder();
  write("%4.kdb", "nothing but an extension");
  write("cut%4.kdb", "an incomplete escape");
  write("%", "an empty name");
  migrate();
  EXPECT_EQ(entry(".kdb"), "nothing but an extension");
  EXPECT_EQ(entry("cut.kdb"), "an incomplete escape");
  // The entry of the empty name is valid, because its name is the folder itself.
  EXPECT_EQ(index(),
            ".kdb_0000000000/00000002\n"
            "_0000000000/00000003\n"
            "cut.kdb_0000000000/00000004\n"
            "k1mailboxcompliant_0000000000/00000005\n"
            "read.txt_0000000000/00000001\n");
  EXPECT_EQ(read("00000003"), "an empty name");
}

TEST_F(IndexMigration, ReplacesAnEntryOfTheUnescapedName) {
  make_mail_folder();
  write("a b.kdb", "unescaped");
  write("a%20b.kdb", "escaped");
  migrate();
  EXPECT_EQ(entry("a b.kdb"), "escaped");
  EXPECT_FALSE(has("a b.kdb"));
  EXPECT_FALSE(has("a%20b.kdb"));
}

TEST_F(IndexMigration, KeepsTheLastOfTwoFilesWithOneUnescapedName) {
  make_mail_folder();
  write("a%20b.kdb", "first in the order of the keys");
  write("a+b.kdb", "last");
  migrate();
  EXPECT_EQ(entry("a b.kdb"), "last");
  EXPECT_TRUE(is_marked());
}

TEST_F(IndexMigration, FindsNoFilesThatTheIndexDoesNotKnowWithTheSwitchOff) {
  STGIndex::setSynchronizeMode(false);
  make_mail_folder();
  write("Q1%20Sales.kdb", "sales");
  migrate();
  EXPECT_TRUE(has("Q1%20Sales.kdb"));
  EXPECT_EQ(index(), "k1mailboxcompliant_0000000000/00000002\nread.txt_0000000000/00000001\n");
}

TEST_F(IndexMigration, ConvertsWhatTheIndexKnowsWithTheSwitchOff) {
  STGIndex::setSynchronizeMode(false);
  make_mail_folder();
  write("Q1%20Sales.kdb", "sales");
  write("index.dat", "Q1%20Sales.kdb_0000000000/Q1%20Sales.kdb\n");
  migrate();
  EXPECT_EQ(entry("Q1 Sales.kdb"), "sales");
  EXPECT_TRUE(is_marked());
}

TEST_F(IndexMigration, LeavesNamesAloneThatNoLineOfAnIndexCouldHold) {
  make_mail_folder();
  write("a%2Fb.kdb", "a slash");
  write("a%0Ab.kdb", "a line feed");
  write("ok%20.kdb", "converted");
  write("read.txt", "a\tx%2Fy\tB\ta\tb\tc\t\n");
  recording_sink sink;
  migrate();
  EXPECT_EQ(read("a%2Fb.kdb"), "a slash");
  EXPECT_EQ(read("a%0Ab.kdb"), "a line feed");
  EXPECT_EQ(entry("a%2Fb.kdb"), "a slash");
  EXPECT_EQ(entry("a%0Ab.kdb"), "a line feed");
  EXPECT_EQ(entry("ok .kdb"), "converted");
  const std::string warning =
      "STGIndex: migration: left as it is, no index line can hold its unescaped name: ";
  EXPECT_EQ(sink.events(trace_event::warning),
            (Texts{warning + path("a%0Ab.kdb"), warning + path("a%2Fb.kdb")}));
  EXPECT_TRUE(is_marked());
}

TEST_F(IndexMigration, LeavesNamesAloneWhoseExtensionNoFileCanHave) {
  const std::string warning =
      "STGIndex: migration: left as it is, no file can have the extension of its unescaped name: ";
  // The last one is possible on some systems only.
  const Texts left = {"a%2E%5Cevil", "a%2Eb%00c", "a%2Eb%3Ac"};
  make_mail_folder();
  for (const std::string& name : left) write(name, name);
  write("z%20.kdb", "z");
  recording_sink sink;
  {
    const auto fault = os::faults::fail(Call::probe_attributes, {123, os::Failure::kNoName});
    migrate();
  }
  EXPECT_EQ(sink.events(trace_event::warning),
            (Texts{warning + path(left[0]), warning + path(left[1]), warning + path(left[2])}));
  for (const std::string& name : left) EXPECT_EQ(entry(name), name);
  EXPECT_EQ(entry("z .kdb"), "z");
  EXPECT_TRUE(is_marked());
}

#if !defined(_WIN32)
TEST_F(IndexMigration, LeavesNamesAloneWhoseExtensionIsTooLongForAGeneratedName) {
  make_mail_folder();
  const std::string too_long(251, 'x');
  const std::string long_enough(246, 'x');
  write("%20." + too_long, "too long");
  write("%20." + long_enough, "long");
  write("b%2Ex%3Ay", "possible on this system");
  write("z%20.kdb", "z");
  migrate();
  EXPECT_EQ(entry("%20." + too_long), "too long");
  EXPECT_EQ(entry(" ." + long_enough), "long");
  EXPECT_EQ(entry("b.x:y"), "possible on this system");
  EXPECT_EQ(entry("z .kdb"), "z");
  EXPECT_TRUE(is_marked());
}
#endif

TEST_F(IndexMigration, LeavesAConvertedFolderAlone) {
  make_mail_folder();
  write("Q1%20Sales.kdb", "sales");
  write("read.txt", "x\t2\tB\ta\tf5\tf6\t\n");
  migrate();
  write("late%20file.kdb", "late");
  write("read.txt", "no name\n");
  const auto before = state();
  recording_sink sink;
  os::faults::reset();
  migrate();
  EXPECT_EQ(state(), before);
  EXPECT_EQ(index_traces(sink), Texts{});
  EXPECT_EQ(os::faults::calls(Call::write), 0U);
}

TEST_F(IndexMigration, TakesAFileOfTheMarkersNameForTheMarker) {
  make_mail_folder();
  write("k1mailboxcompliant", "");
  write("Q1%20Sales.kdb", "sales");
  migrate();
  EXPECT_EQ(names(), (Texts{"Q1%20Sales.kdb", "k1mailboxcompliant"}));
}

// A migration that fails or is interrupted.

using os::faults::Times;

TEST_F(IndexMigration, KeepsAFileThatCannotBeCopiedAndSetsNoMarker) {
  make_mail_folder();
  write("1#1#1#a%20.kdb", "a");
  write("1#1#1#b%20.kdb", "b");
  write("read.txt", "1\ta%20\tB\t1\t1\tf\t\n1\tb%20\tB\t1\t1\tf\t\n");
  recording_sink sink;
  {
    const auto fault = os::faults::fail(Call::copy, {112, os::Failure::kOther});
    EXPECT_NO_THROW(migrate());
    EXPECT_EQ(fault.hits(), 1U);
  }
  EXPECT_EQ(
      sink.count(trace_event::error, "STGIndex: rename: copy failed: " + path("1#1#1#a%20.kdb")),
      1U);
  EXPECT_EQ(read("1#1#1#a%20.kdb"), "a");
  EXPECT_EQ(entry("1#1#1#b .kdb"), "b");
  EXPECT_EQ(read("read.txt"), "1\ta%20\tB\t1\t1\tf\t\n1\tb \tB\t1\t1\tf\t\n");
  EXPECT_FALSE(is_marked());

  // The next call converts the rest.
  migrate();
  EXPECT_EQ(entry("1#1#1#a .kdb"), "a");
  EXPECT_EQ(entry("1#1#1#b .kdb"), "b");
  EXPECT_FALSE(has("1#1#1#a%20.kdb"));
  EXPECT_EQ(read("read.txt"), "1\ta \tB\t1\t1\tf\t\n1\tb \tB\t1\t1\tf\t\n");
  EXPECT_TRUE(is_marked());
}

TEST_F(IndexMigration, ContinuesAfterAFileThatCannotBeRemoved) {
  make_mail_folder();
  write("a%20.kdb", "a");
  const auto fault = os::faults::fail(Call::remove_file, kRefused);
  migrate();
  EXPECT_EQ(entry("a .kdb"), "a");
  EXPECT_EQ(read("a%20.kdb"), "a");
  EXPECT_TRUE(is_marked());
}

/// Creating the file of the second converted entry fails. Everything before it succeeds.
class BreakAtTheSecondEntry {
 private:
  // Opens after the first copy: the counter, then the file.
  std::unique_ptr<os::faults::Fault> m_broken;
  os::faults::Fault m_hook = os::faults::before(Call::copy, [this] {
    m_broken.reset(new os::faults::Fault(os::faults::fail(Call::open, kRefused, 2)));
  });
};

TEST_F(IndexMigration, KeepsWhatItHasDoneWhenItIsInterrupted) {
  make_mail_folder();
  write("1#1#1#a%20.kdb", "a");
  write("1#1#1#b%20.kdb", "b");
  write("1#1#1#c%20.kdb", "c");
  write("read.txt",
        "no name\n1\ta%20\tB\t1\t1\tf\t\n1\tb%20\tB\t1\t1\tf\t\n1\tc%20\tB\t1\t1\tf\t\n");
  {
    const BreakAtTheSecondEntry broken;
    try {
      migrate();
      ADD_FAILURE() << "nothing was raised";
    } catch (const vu_file_except& e) {
      EXPECT_EQ(e.what(), "throw exception on open");
    }
  }
  // The index and the read list were both saved when the exception left the migration.
  EXPECT_EQ(entry("1#1#1#a .kdb"), "a");
  EXPECT_FALSE(has("1#1#1#a%20.kdb"));
  EXPECT_EQ(read("1#1#1#b%20.kdb"), "b");
  EXPECT_EQ(read("1#1#1#c%20.kdb"), "c");
  EXPECT_EQ(read("read.txt"),
            "1\ta \tB\t1\t1\tf\t\n1\tb%20\tB\t1\t1\tf\t\n1\tc%20\tB\t1\t1\tf\t\n");
  EXPECT_FALSE(is_marked());

  migrate();
  for (const std::string name : {"a", "b", "c"}) {
    EXPECT_EQ(entry("1#1#1#" + name + " .kdb"), name);
    EXPECT_FALSE(has("1#1#1#" + name + "%20.kdb"));
  }
  EXPECT_EQ(read("read.txt"), "1\ta \tB\t1\t1\tf\t\n1\tb \tB\t1\t1\tf\t\n1\tc \tB\t1\t1\tf\t\n");
  EXPECT_TRUE(is_marked());
}

TEST_F(IndexMigration, NeverEndsTheHostWhenItsSavingFailsOnTheWayOut) {
  // The second entry's file is not created. Then the index or the list is not saved either.
  for (const bool is_index : {true, false}) {
    make_mail_folder();
    write("1#1#1#a%20.kdb", "a");
    write("1#1#1#b%20.kdb", "b");
    write("read.txt", "1\ta%20\tB\t1\t1\tf\t\n");
    recording_sink sink;
    {
      std::unique_ptr<os::faults::Fault> file;
      std::unique_ptr<os::faults::Fault> saving;
      const auto hook = os::faults::before(Call::copy, [&] {
        file.reset(new os::faults::Fault(os::faults::fail(Call::open, kRefused, 2)));
        saving.reset(new os::faults::Fault(
            os::faults::fail(Call::open, kRefused, is_index ? 3 : 4, Times::kLasting)));
      });
      EXPECT_THROW(migrate(), vu_file_except);
    }
    EXPECT_EQ(sink.count(trace_event::warning,
                         "STGIndex::~STGIndex(): Unable to create/update index.dat - please verify "
                         "that you have write access and disk is not full.\n Reason: throw "
                         "exception on open"),
              is_index ? 1U : 0U);
    EXPECT_EQ(sink.count(trace_event::error, "throw exception on open"), is_index ? 0U : 1U);
    EXPECT_EQ(read("read.txt"), "1\ta%20\tB\t1\t1\tf\t\n");
    EXPECT_EQ(has("1#1#1#a%20.kdb"), is_index);
    EXPECT_TRUE(has("1#1#1#b%20.kdb"));
    for (const std::string& name : names()) std::filesystem::remove(native(path(name)));
  }
}

TEST_F(IndexMigration, IsNotBegunWhereSomethingCannotBeReadForCertain) {
  const std::string list = "no name\n1\ta%20\tB\t1\t1\tf\t\n";
  const std::string text =
      "1#1#1#a%20.kdb_0000000000/1#1#1#a%20.kdb\nread.txt_0000000000/read.txt\n";
  make_mail_folder();
  std::size_t not_begun = 0;
  for (const Call call : {Call::probe_search, Call::read}) {
    std::uint64_t nth = 0;
    for (bool was_hit = true; was_hit;) {
      write("1#1#1#a%20.kdb", "a");
      write("read.txt", list);
      write("index.dat", text);
      recording_sink sink;
      {
        const auto fault = os::faults::fail(call, kRefused, ++nth);
        try {
          migrate();
        } catch (const vu_file_except&) {
        }
        was_hit = fault.hits() != 0;
      }
      if (sink.count(trace_event::error, not_begun_text()) != 0) {
        ++not_begun;
        EXPECT_EQ(read("1#1#1#a%20.kdb"), "a");
        EXPECT_EQ(read("read.txt"), list) << nth;
        EXPECT_EQ(index().find("k1mailboxcompliant"), std::string::npos);
      } else {
        EXPECT_EQ(entry("1#1#1#a .kdb") == "a", entry("1#1#1#a%20.kdb") != "a") << nth;
      }
      for (const std::string& name : names()) std::filesystem::remove(native(path(name)));
    }
  }
  // All reads of the index and of the read list.
  EXPECT_GE(not_begun, 5U);
}

TEST_F(IndexMigration, DoesNotStartBesideAnUnknownEntry) {
  const std::string list = "no name\n1\ta%20\tB\t1\t1\tf\t\n";
  make_mail_folder();
  write("1#1#1#a%20.kdb", "a");
  write("read.txt", list);
  write("index.dat",
        "1#1#1#a%20.kdb_0000000000/1#1#1#a%20.kdb\nread.txt_0000000000/read.txt\n"
        "z.kdb_0000000001/elsewhere\n");
  recording_sink sink;
  {
    const auto fault = os::faults::fail(Call::probe_search, kRefused, 1, Times::kLasting);
    migrate();
  }
  EXPECT_EQ(sink.count(trace_event::error, not_begun_text()), 1U);
  EXPECT_EQ(read("1#1#1#a%20.kdb"), "a");
  EXPECT_EQ(read("read.txt"), list);
  EXPECT_FALSE(is_marked());
  migrate();
  EXPECT_EQ(entry("1#1#1#a .kdb"), "a");
  EXPECT_TRUE(is_marked());
}

#if !defined(_WIN32)
// On Windows the effect of the attribute depends on the user and on Wine.
TEST_F(IndexMigration, IsNotBegunWhereTheIndexCannotBeWritten) {
  const std::string text = "a%20.kdb_0000000000/a%20.kdb\n";
  for (const bool has_list : {false, true}) {
    make_mail_folder();
    write("a%20.kdb", "a");
    if (has_list) write("read.txt", "no name\n");
    write("index.dat", text);
    make_read_only(path("index.dat"));
    const Texts before = names();
    recording_sink sink;
    migrate();
    EXPECT_EQ(
        sink.count(trace_event::error,
                   "STGIndex: migration: not begun, for its index cannot be written: " + path()),
        1U);
    EXPECT_EQ(names(), before);
    EXPECT_EQ(index(), text);
    if (has_list) {
      EXPECT_EQ(read("read.txt"), "no name\n");
    }
    vu_file::chmodW(path("index.dat"));
    migrate();
    EXPECT_EQ(entry("a .kdb"), "a");
    EXPECT_TRUE(is_marked());
    for (const std::string& name : names()) std::filesystem::remove(native(path(name)));
  }
}
#endif

TEST_F(IndexMigration, HasNoLockOnTheIndexWhileItWaitsForTheList) {
  make_mail_folder();
  write("a%20.kdb", "a");
  write("read.txt", "no name\n");
  vu_file list(path(), "read.txt");
  list.open(vu_file::o_write);
  // The last lock that the migration asks for is that of the list.
  bool was_free = false;
  bool is_asking = false;
  const auto hook = os::faults::before(
      Call::lock,
      [&] {
        if (std::exchange(is_asking, true)) return;
        vu_file other(path(), "index.dat");
        bool lock_failed = true;
        was_free = other.try_open(vu_file::o_append, lock_failed, true) && !lock_failed;
        other.close();
        is_asking = false;
      },
      1, Times::kLasting);
  const LockLimit limit(std::chrono::milliseconds(100));
  EXPECT_THROW(migrate(), vu_file_except);
  EXPECT_TRUE(was_free);
}

TEST_F(IndexMigration, HasNoLockOnTheIndexWhileItSavesTheListAfterAFailure) {
  make_mail_folder();
  write("read.txt", "no name\n");
  int times_failed = 0;
  for (FaultNumber nth;; ++nth) {
    bool is_locked = false;
    bool is_emptied = false;
    const auto look = [&] {
      if (!read("read.txt").empty()) return;
      is_emptied = true;
      vu_file other(path(), "index.dat");
      bool lock_failed = true;
      is_locked = other.try_open(vu_file::o_append, lock_failed, true) && lock_failed;
      other.close();
    };
    // The list is emptied before it is written.
    const auto hook = os::faults::after(Call::set_end, look, 1, Times::kLasting);
    const auto fault = os::faults::fail(Call::open, kRefused, nth);
    try {
      migrate();
    } catch (const vu_file_except&) {
      // The failure of the index; the list is saved all the same.
    }
    EXPECT_FALSE(is_locked) << nth;
    times_failed += fault.hits() != 0 && is_emptied ? 1 : 0;
    if (fault.hits() == 0) break;
    for (const std::string& name : names()) std::filesystem::remove(native(path(name)));
    write("read.txt", "no name\n");
  }
  EXPECT_GT(times_failed, 0) << "the list was saved after a failure";
}

}  // namespace
