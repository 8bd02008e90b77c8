#include <gtest/gtest.h>

#include <filesystem>
#include <memory>
#include <string>

#include "platform/os/os.h"
#include "tests/support/recording_sink.h"
#include "tests/unit/index_migration_fixture.h"

// A conversion of a mail folder that fails or is interrupted on its way.

namespace {

using os::faults::Call;
using os::faults::Times;
using vu_host::trace_event;

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

  // The next call does what is left.
  migrate();
  EXPECT_EQ(entry("1#1#1#a .kdb"), "a");
  EXPECT_EQ(entry("1#1#1#b .kdb"), "b");
  EXPECT_FALSE(has("1#1#1#a%20.kdb"));
  EXPECT_EQ(read("read.txt"), "1\ta \tB\t1\t1\tf\t\n1\tb \tB\t1\t1\tf\t\n");
  EXPECT_TRUE(is_marked());
}

TEST_F(IndexMigration, GoesOnBehindAFileThatCannotBeRemoved) {
  make_mail_folder();
  write("a%20.kdb", "a");
  const auto fault = os::faults::fail(Call::remove_file, kRefused);
  migrate();
  EXPECT_EQ(entry("a .kdb"), "a");
  EXPECT_EQ(read("a%20.kdb"), "a");
  EXPECT_TRUE(is_marked());
}

/// Makes the making of the second converted entry's file fail: everything before it succeeds.
class BreakAtTheSecondEntry {
 private:
  // Opened from the first copy on: the counter, and then the file.
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
  // The index and the read list were both written on the way out.
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
  make_mail_folder();
  write("1#1#1#a%20.kdb", "a");
  write("1#1#1#b%20.kdb", "b");
  write("read.txt", "1\ta%20\tB\t1\t1\tf\t\n");
  recording_sink sink;
  {
    std::unique_ptr<os::faults::Fault> broken;
    // From the second entry's file on nothing can be opened: neither the index nor the list is
    // saved.
    const auto hook = os::faults::before(Call::copy, [&broken] {
      broken.reset(
          new os::faults::Fault(os::faults::fail(Call::open, kRefused, 2, Times::kLasting)));
    });
    EXPECT_THROW(migrate(), vu_file_except);
  }
  EXPECT_EQ(sink.count(trace_event::warning,
                       "STGIndex::~STGIndex(): Unable to create/update index.dat - please verify "
                       "that you have write access and disk is not full.\n Reason: throw exception "
                       "on open"),
            1U);
  EXPECT_EQ(sink.count(trace_event::error, "throw exception on open"), 1U);
  EXPECT_EQ(read("read.txt"), "1\ta%20\tB\t1\t1\tf\t\n");
}

TEST_F(IndexMigration, RaisesWhereTheListCannotBeRead) {
  make_mail_folder();
  write("a%20.kdb", "a");
  write("read.txt", "no name\n");
  write("index.dat", "a%20.kdb_0000000000/a%20.kdb\nread.txt_0000000000/read.txt\n");
  {
    // Read before: the index, by the question for the marker and by the forced rewrite (twice, and
    // whether that was all).
    const auto fault = os::faults::fail(Call::read, kRefused, 5);
    EXPECT_THROW(migrate(), vu_file_except);
    EXPECT_EQ(fault.hits(), 1U);
  }
  // A list that was not loaded is not saved.
  EXPECT_EQ(read("read.txt"), "no name\n");
  EXPECT_TRUE(has("a%20.kdb"));
  EXPECT_FALSE(is_marked());
  migrate();
  EXPECT_EQ(read("read.txt"), "");
  EXPECT_EQ(entry("a .kdb"), "a");
}

TEST_F(IndexMigration, RaisesWhereTheListCannotBeSaved) {
  make_mail_folder();
  write("read.txt", "x\t2\tB\ta\tf5\tf6\t\n");
  std::unique_ptr<os::faults::Fault> broken;
  {
    // The last opening of all is the list's; the marker's file is made before.
    int openings = 0;
    const auto count = os::faults::before(
        Call::open, [&openings] { ++openings; }, 1, Times::kLasting);
    migrate();
    ASSERT_GT(openings, 5);
    for (const std::string& name : names()) {
      if (name != "read.txt") std::filesystem::remove(native(path(name)));
    }
    broken.reset(new os::faults::Fault(
        os::faults::fail(Call::open, kRefused, static_cast<std::uint64_t>(openings))));
  }
  EXPECT_THROW(migrate(), vu_file_except);
  EXPECT_EQ(broken->hits(), 1U);
  EXPECT_TRUE(is_marked());
  EXPECT_EQ(read("read.txt"), "x\t2\tB\ta\tf5\tf6\t\n");
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
  // The reads of the index and of the list, each to its end.
  EXPECT_GT(not_begun, 5U);
}

TEST_F(IndexMigration, IsNotBegunBesideALineOfWhichTheSystemDoesNotTell) {
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

TEST_F(IndexMigration, SavesTheListAlsoWhenTheIndexCannotBeMerged) {
  make_mail_folder();
  write("1#1#1#a%20.kdb", "a");
  write("read.txt", "no name\n1\ta%20\tB\t1\t1\tf\t\n");
  write("index.dat", "1#1#1#a%20.kdb_0000000000/1#1#1#a%20.kdb\nread.txt_0000000000/read.txt\n");
  std::unique_ptr<os::faults::Fault> broken;
  const auto hook = os::faults::before(Call::copy, [&broken] {
    // Read from here on: the counter for the marker, to its end, and then the index to be merged.
    broken.reset(new os::faults::Fault(os::faults::fail(Call::read, kRefused, 3)));
  });
  EXPECT_THROW(migrate(), vu_file_except);
  ASSERT_TRUE(broken);
  EXPECT_EQ(broken->hits(), 1U);
  broken.reset();
  EXPECT_EQ(read("read.txt"), "1\ta \tB\t1\t1\tf\t\n");
}

}  // namespace
