#include <gtest/gtest.h>

#include <memory>
#include <set>
#include <string>
#include <utility>

#include "file/replacement.h"
#include "platform/os/os.h"
#include "tests/support/recording_sink.h"
#include "tests/unit/index_fixture.h"

// Renaming entries, in memory and with their files.

namespace {

using os::faults::Call;
using os::faults::Times;
using Peer = stg_index_test_peer;
using NameMap = STGIndex::NameMap;
using vu_host::trace_event;

class IndexRename : public IndexEntries {};

TEST_F(IndexRename, MovesTheDataToANewEntry) {
  folder.write("00000001.kdb", "bytes");
  folder.write("index", "00000001");
  folder.set_index("a.kdb_0000000001/00000001\n");
  recording_sink sink;
  {
    STGIndex index = Peer::load(folder.path());
    EXPECT_TRUE(Peer::_rename(index, "a.kdb", 1, "b.kdc", 2));
    EXPECT_EQ(index_traces(sink), create_texts() + rename_texts());
    EXPECT_TRUE(Peer::need_update(index));
    EXPECT_EQ(folder.read("00000002.kdc"), "bytes");
    // The old entry and its file stay until the save.
    EXPECT_EQ(folder.read("00000001.kdb"), "bytes");
    EXPECT_TRUE(Peer::_contains(index, "a.kdb", 1));
    EXPECT_EQ(Peer::pl(index),
              (NameMap{{"00000001", "a.kdb_0000000001"}, {"00000002", "b.kdc_0000000002"}}));
  }
  EXPECT_EQ(folder.index(), "b.kdc_0000000002/00000002\n");
  EXPECT_EQ(folder.names(), (Texts{"00000002.kdc", "index", "index.dat"}));
}

TEST_F(IndexRename, ReplacesAnEntryThatIsThere) {
  folder.write("00000001.kdb", "bytes of a");
  folder.write("00000002.kdb", "bytes of b");
  folder.write("index", "00000002");
  folder.set_index("a.kdb_0000000001/00000001\nb.kdb_0000000002/00000002\n");
  recording_sink sink;
  {
    STGIndex index = Peer::load(folder.path());
    EXPECT_TRUE(Peer::_rename(index, "a.kdb", 1, "b.kdb", 2));
    EXPECT_EQ(index_traces(sink), remove_texts() + create_texts() + rename_texts());
  }
  EXPECT_EQ(folder.index(), "b.kdb_0000000002/00000003\n");
  EXPECT_EQ(folder.read("00000003.kdb"), "bytes of a");
  EXPECT_EQ(folder.names(), (Texts{"00000003.kdb", "index", "index.dat"}));
}

TEST_F(IndexRename, HasTheOldEntriesOrTheNewOneAtEverySystemCall) {
  const auto write_old = [&] {
    folder.write("00000001.kdb", "bytes of a");
    folder.write("00000002.kdb", "bytes of b");
    folder.write("index", "00000002");
    folder.set_index("a.kdb_0000000001/00000001\nb.kdb_0000000002/00000002\n");
  };
  // The bytes of an entry for a reader at this moment.
  const auto found = [&](const std::string& name, long ts) {
    const std::string bytes = folder.index();
    std::string storage;
    NameMap lp;
    NameMap pl;
    plain_index::load(folder.path(), std::string(replacement::text_of(bytes, storage)), lp, pl);
    const auto it = lp.find(Peer::entryAndTS(name, ts));
    return it == lp.end() ? std::string("none") : folder.read(it->second + ".kdb");
  };
  std::set<std::string> seen;
  write_old();
  {
    bool is_looking = false;
    const auto look = [&] {
      if (std::exchange(is_looking, true)) return;
      seen.insert(found("a.kdb", 1) + ", " + found("b.kdb", 2));
      is_looking = false;
    };
    const auto hook = os::faults::before(Call::any, look, 1, Times::kLasting);
    STGIndex::rename(folder.path(), "a.kdb", 1, "b.kdb", 2);
    look();
  }
  EXPECT_EQ(seen, (std::set<std::string>{"bytes of a, bytes of b", "none, bytes of a"}));
  EXPECT_EQ(folder.names(), (Texts{"00000003.kdb", "index", "index.dat"}));
}

TEST_F(IndexRename, FlushesTheCopyBeforeTheSourceGoes) {
  folder.write("00000001.kdb", "bytes");
  folder.write("index", "00000001");
  folder.set_index("a.kdb_0000000001/00000001\n");
  bool has_source = false;
  const auto hook =
      os::faults::before(Call::flush_file, [&] { has_source = folder.has("00000001.kdb"); });
  STGIndex::rename(folder.path(), "a.kdb", 1, "b.kdb", 2);
  EXPECT_EQ(hook.hits(), 1U);
  EXPECT_TRUE(has_source);
  // A copy that cannot be flushed is discarded.
  const auto fault = os::faults::fail(Call::flush_file, kRefused);
  STGIndex::rename(folder.path(), "b.kdb", 2, "c.kdb", 3);
  EXPECT_EQ(folder.index(), "b.kdb_0000000002/00000002\n");
  EXPECT_EQ(folder.names(), (Texts{"00000002.kdb", "index", "index.dat"}));
}

TEST_F(IndexRename, RemovesNothingWhenTheIndexCannotBeSaved) {
  const std::string text = "a.kdb_0000000001/00000001\nb.kdb_0000000002/00000002\n";
  folder.write("00000001.kdb", "bytes of a");
  folder.write("00000002.kdb", "bytes of b");
  folder.write("index", "00000002");
  folder.set_index(text);
  // Write 1 is that of the counter, write 2 that of the index. The first open is that of the load.
  struct Trouble {
    Call call;
    std::uint64_t nth;
  };
  for (const Trouble& trouble : {Trouble{Call::write, 2}, Trouble{Call::open, 4}}) {
    const auto fault = os::faults::fail(trouble.call, kRefused, trouble.nth, Times::kLasting);
    STGIndex::rename(folder.path(), "a.kdb", 1, "b.kdb", 2);
    EXPECT_GE(fault.hits(), 1U);
    EXPECT_EQ(folder.index(), text);
    EXPECT_EQ(folder.read("00000001.kdb"), "bytes of a");
    EXPECT_EQ(folder.read("00000002.kdb"), "bytes of b");
  }
}

TEST_F(IndexRename, TakesANumberThatIsFreeWhenTheCounterIsLost) {
  folder.write("00000007.kdb", "bytes of a");
  folder.write("00000001.kdb", "bytes of b");
  folder.set_index("a.kdb_0000000001/00000007\nb.kdb_0000000001/00000001\n");
  STGIndex::rename(folder.path(), "a.kdb", 1, "b.kdb", 1);
  EXPECT_EQ(folder.index(), "b.kdb_0000000001/00000002\n");
  EXPECT_EQ(folder.read("00000002.kdb"), "bytes of a");
  EXPECT_EQ(folder.names(), (Texts{"00000002.kdb", "index", "index.dat"}));
}

TEST_F(IndexRename, TakesANumberThatIsFreeWhenAFoundFileHasTheNextOne) {
  folder.write("00000001.kdb", "bytes of a");
  folder.set_index("00000001.kdb_0000000000/00000001.kdb\n");
  STGIndex::rename(folder.path(), "00000001.kdb", 0, "a.kdb", 0);
  EXPECT_EQ(folder.index(), "a.kdb_0000000000/00000002\n");
  EXPECT_EQ(folder.read("00000002.kdb"), "bytes of a");
}

TEST_F(IndexRename, RemovesTheOldFilesUnderTheLockOfTheSave) {
  // Another process that merges before the files are removed would find their lines valid.
  folder.write("00000001.kdb", "bytes of a");
  folder.write("00000002.kdb", "bytes of b");
  folder.write("index", "00000002");
  folder.set_index("a.kdb_0000000001/00000001\nb.kdb_0000000001/00000002\n");
  int removals = 0;
  const auto hook = os::faults::before(
      Call::remove_file,
      [&] {
        ++removals;
        bool lock_failed = false;
        vu_file other(folder.path(), "index.dat");
        EXPECT_TRUE(other.try_open(vu_file::o_read, lock_failed, true));
        EXPECT_TRUE(lock_failed);
        EXPECT_EQ(folder.index(), "b.kdb_0000000001/00000003\n");
      },
      1, Times::kLasting);
  STGIndex::rename(folder.path(), "a.kdb", 1, "b.kdb", 1);
  EXPECT_EQ(removals, 2);
  EXPECT_EQ(folder.names(), (Texts{"00000003.kdb", "index", "index.dat"}));
}

TEST_F(IndexRename, KeepsTheSourceWhereAReplacedFileStays) {
  // The replaced file "n.kdb" stays. It has the new logical name, so it would hide the new file.
  folder.write("00000001.kdb", "bytes of a");
  folder.write("n.kdb", "bytes of n");
  folder.write("index", "00000001");
  folder.set_index("a.kdb_0000000001/00000001\nn.kdb_0000000000/n.kdb\n");
  for (const bool raises : {false, true}) {
    recording_sink sink;
    if (raises) {
      const auto fault = os::faults::throw_from(Call::remove_file, std::bad_alloc());
      EXPECT_NO_THROW(STGIndex::rename(folder.path(), "a.kdb", 1, "n.kdb", 0));
    } else {
      const auto fault = os::faults::fail(Call::remove_file, kRefused);
      STGIndex::rename(folder.path(), "a.kdb", 1, "n.kdb", 0);
      EXPECT_EQ(sink.count(trace_event::error,
                           "STGIndex: removal of file failed: " + folder.path("n.kdb")),
                1U);
    }
    EXPECT_EQ(folder.read("00000001.kdb"), "bytes of a");
    EXPECT_EQ(folder.read("n.kdb"), "bytes of n");
    EXPECT_NE(folder.index().find("a.kdb_0000000001/00000001\n"), std::string::npos);
  }
}

TEST_F(IndexRename, KeepsASecondLineOfTheOldKey) {
  folder.write("00000001.kdb", "bytes of a");
  folder.write("00000005.kdb", "other bytes");
  folder.write("index", "00000005");
  folder.set_index("a.kdb_0000000001/00000001\na.kdb_0000000001/00000005\n");
  STGIndex::rename(folder.path(), "a.kdb", 1, "b.kdb", 1);
  EXPECT_EQ(folder.index(), "a.kdb_0000000001/00000005\nb.kdb_0000000001/00000006\n");
}

TEST_F(IndexRename, CopiesOverNoFileOfAnEntryWhenTheCounterIsInTrouble) {
  // A negative counter returns the name 00000000; an unreadable counter returns 99999999.
  for (const std::string given : {"00000000", "99999999"}) {
    for (const std::string target : {"b.kdb", "c.kdb"}) {
      const index_folder place;
      const std::string text = "a.kdb_0000000001/00000007\nb.kdb_0000000001/" + given + "\n";
      place.write("00000007.kdb", "bytes of a");
      place.write(given + ".kdb", "bytes of b");
      place.write("index", "-3");
      place.set_index(text);
      recording_sink sink;
      {
        const auto fault = os::faults::fail(Call::open, kRefused, given == "99999999" ? 2 : 1000);
        STGIndex::rename(place.path(), "a.kdb", 1, target, 1);
      }
      EXPECT_EQ(sink.count(trace_event::error,
                           "STGIndex: rename: copy failed: " + place.path("00000007.kdb")),
                1U);
      EXPECT_EQ(place.index(), text);
      EXPECT_EQ(place.read("00000007.kdb"), "bytes of a");
      EXPECT_EQ(place.read(given + ".kdb"), "bytes of b");
    }
  }
}

TEST_F(IndexRename, KeepsASourceWhoseNameTheCounterGivesAgain) {
  folder.write("00000000.kdb", "bytes of a");
  folder.write("index", "-3");
  folder.set_index("a.kdb_0000000001/00000000\n");
  recording_sink sink;
  STGIndex::rename(folder.path(), "a.kdb", 1, "b.kdb", 1);
  EXPECT_EQ(sink.count(trace_event::error,
                       "STGIndex: rename: copy failed: " + folder.path("00000000.kdb")),
            1U);
  EXPECT_EQ(folder.index(), "a.kdb_0000000001/00000000\n");
  EXPECT_EQ(folder.read("00000000.kdb"), "bytes of a");
}

TEST_F(IndexRename, KeepsAReplacedFileOfTheVeryNameUntilTheIndexIsSaved) {
  const std::string text = "a.kdb_0000000001/00000001\nn.kdb_0000000000/n.kdb\n";
  const auto write_old = [&] {
    folder.write("00000001.kdb", "bytes of a");
    folder.write("n.kdb", "bytes of n");
    folder.write("index", "00000001");
    folder.set_index(text);
  };
  write_old();
  STGIndex::rename(folder.path(), "a.kdb", 1, "n.kdb", 0);
  EXPECT_EQ(folder.index(), "n.kdb_0000000000/00000002\n");
  EXPECT_EQ(folder.read("00000002.kdb"), "bytes of a");
  EXPECT_EQ(folder.names(), (Texts{"00000002.kdb", "index", "index.dat"}));

  // If the index is not saved, the replaced file stays. The counter is written earlier.
  for (const std::uint64_t nth : {2U, 3U}) {
    folder.erase("00000002.kdb");
    write_old();
    const auto fault =
        os::faults::fail(nth == 2 ? Call::write : Call::flush, kRefused, nth, Times::kLasting);
    STGIndex::rename(folder.path(), "a.kdb", 1, "n.kdb", 0);
    EXPECT_EQ(folder.index(), text);
    EXPECT_EQ(folder.read("n.kdb"), "bytes of n");
    EXPECT_EQ(folder.read("00000001.kdb"), "bytes of a");
  }
}

TEST_F(IndexRename, TakesAnEntryWithItThatLeadsToOneOfItsFiles) {
  const std::string a = "a.kdb_0000000001/00000001\n";
  const std::string n = "n.kdb_0000000001/00000002\n";
  for (const std::string other : {"00000001", "00000002"}) {
    folder.write("00000001.kdb", "bytes of a");
    folder.write("00000002.kdb", "bytes of n");
    folder.write("index", "00000002");
    folder.set_index(a + "m.kdb_0000000001/" + other + "\n" + n);
    STGIndex::rename(folder.path(), "a.kdb", 1, "n.kdb", 1);
    EXPECT_EQ(folder.index(), "n.kdb_0000000001/00000003\n");
    EXPECT_EQ(folder.names(), (Texts{"00000003.kdb", "index", "index.dat"}));
    EXPECT_EQ(folder.read("00000003.kdb"), "bytes of a");
  }
}

TEST_F(IndexRename, ReplacesAnEntryBesideAnUnknownEntryOfItsKey) {
  folder.write("00000001.kdb", "bytes of a");
  folder.write("00000002.kdb", "bytes of n");
  folder.write("index", "00000003");
  folder.set_index(
      "a.kdb_0000000001/00000001\nn.kdb_0000000001/00000002\nn.kdb_0000000001/00000003\n");
  // The first call checks the index, the second the file that the listing does not show.
  const auto fault = os::faults::fail(Call::probe_search, kRefused, 2);
  STGIndex::rename(folder.path(), "a.kdb", 1, "n.kdb", 1);
  EXPECT_EQ(fault.hits(), 1U);
  EXPECT_EQ(folder.names(), (Texts{"00000004.kdb", "index", "index.dat"}));
  EXPECT_EQ(folder.read("00000004.kdb"), "bytes of a");
  EXPECT_EQ(STGIndex::create(folder.path(), "n.kdb", 1), "00000004.kdb");
}

TEST_F(IndexRename, ReportsThatAnUnknownEntryStays) {
  folder.set_index("a.kdb_0000000001/00000001\n");
  const auto fault = os::faults::fail(Call::probe_search, kRefused, 2);
  STGIndex index = Peer::load(folder.path());
  EXPECT_EQ(fault.hits(), 1U);
  EXPECT_FALSE(Peer::_rename(index, "a.kdb", 1, "b.kdb", 1));
  EXPECT_FALSE(Peer::need_update(index));
}

TEST_F(IndexRename, LeavesUnknownEntries) {
  const std::string text = "a.kdb_0000000001/00000001\nb.kdb_0000000002/00000002\n";
  folder.write("index", "00000002");
  for (const bool old_is_there : {true, false}) {
    folder.set_index(text);
    folder.write(old_is_there ? "00000001.kdb" : "00000002.kdb", "bytes");
    // The first call checks the index, the second the file that the listing does not show.
    const auto fault = os::faults::fail(Call::probe_search, kRefused, 2);
    recording_sink sink;
    STGIndex::rename(folder.path(), "a.kdb", 1, "b.kdb", 2);
    EXPECT_EQ(fault.hits(), 1U);
    EXPECT_EQ(folder.index(), text);
    EXPECT_EQ(sink.count(trace_event::error), 1U);
    folder.erase(old_is_there ? "00000001.kdb" : "00000002.kdb");
  }
}

TEST_F(IndexRename, KeepsTheOldEntryWhenTheSystemCannotCheckItsFile) {
  folder.write("00000001.kdb", "bytes");
  folder.write("index", "00000001");
  folder.set_index("a.kdb_0000000001/00000001\n");
  std::unique_ptr<const os::faults::Fault> silence;
  const auto refusal = os::faults::fail(Call::remove_file, kRefused, 1, Times::kLasting);
  const auto hook = os::faults::before(Call::remove_file, [&] {
    silence.reset(new os::faults::Fault(os::faults::fail(Call::probe_search, kRefused)));
  });
  STGIndex::rename(folder.path(), "a.kdb", 1, "b.kdb", 1);
  EXPECT_EQ(silence->hits(), 1U);
  EXPECT_EQ(folder.index(), "a.kdb_0000000001/00000001\nb.kdb_0000000001/00000002\n");
}

TEST_F(IndexRename, DoesNothingForAnEntryThatIsMissing) {
  folder.write("00000002.kdb", "bytes");
  folder.set_index("b.kdb_0000000002/00000002\n");
  set_modify_time(folder.path("index.dat"), 1000);
  const auto before = folder.state();
  recording_sink sink;
  {
    STGIndex index = Peer::load(folder.path());
    EXPECT_TRUE(Peer::_rename(index, "a.kdb", 1, "b.kdb", 2));
    EXPECT_FALSE(Peer::need_update(index));
  }
  EXPECT_EQ(index_traces(sink), Texts{});
  EXPECT_EQ(folder.state(), before);
}

TEST_F(IndexRename, MovesAFoundFileToAGeneratedOne) {
  folder.write("Q1%20Sales.kdb", "bytes");
  folder.set_index("Q1%20Sales.kdb_0000000000/Q1%20Sales.kdb\n");
  {
    STGIndex index = Peer::load(folder.path());
    EXPECT_TRUE(Peer::_rename(index, "Q1%20Sales.kdb", 0, "Q1 Sales.kdb", 0));
  }
  EXPECT_EQ(folder.index(), "Q1 Sales.kdb_0000000000/00000001\n");
  EXPECT_EQ(folder.read("00000001.kdb"), "bytes");
  EXPECT_FALSE(folder.has("Q1%20Sales.kdb"));
}

TEST_F(IndexRename, MovesTheTimestampAlone) {
  folder.write("00000001.kdb", "bytes");
  folder.write("index", "00000001");
  folder.set_index("a.kdb_0000000001/00000001\n");
  {
    STGIndex index = Peer::load(folder.path());
    EXPECT_TRUE(Peer::_rename(index, "a.kdb", 1, "a.kdb", 2));
  }
  EXPECT_EQ(folder.index(), "a.kdb_0000000002/00000002\n");
  EXPECT_EQ(folder.read("00000002.kdb"), "bytes");
}

TEST_F(IndexRename, RemovesAReadOnlySource) {
  folder.write("00000001.kdb", "bytes");
  folder.write("index", "00000001");
  make_read_only(folder.path("00000001.kdb"));
  folder.set_index("a.kdb_0000000001/00000001\n");
  {
    STGIndex index = Peer::load(folder.path());
    EXPECT_TRUE(Peer::_rename(index, "a.kdb", 1, "b.kdb", 1));
  }
  EXPECT_FALSE(folder.has("00000001.kdb"));
  EXPECT_EQ(folder.index(), "b.kdb_0000000001/00000002\n");
}

TEST_F(IndexRename, KeepsTheModificationTime) {
  folder.write("00000001.kdb", "bytes");
  folder.write("index", "00000001");
  set_modify_time(folder.path("00000001.kdb"), 1000000000);
  folder.set_index("a.kdb_0000000001/00000001\n");
  STGIndex index = Peer::load(folder.path());
  EXPECT_TRUE(Peer::_rename(index, "a.kdb", 1, "b.kdb", 1));
  EXPECT_EQ(get_modify_time(folder.path("00000002.kdb")), 1000000000);
}

TEST_F(IndexRename, KeepsTheSourceWhenTheCopyFails) {
  folder.write("00000001.kdb", "bytes");
  folder.write("index", "00000001");
  folder.set_index("a.kdb_0000000001/00000001\n");
  recording_sink sink;
  {
    STGIndex index = Peer::load(folder.path());
    const auto fault = os::faults::fail(Call::copy, {112, os::Failure::kOther});
    EXPECT_FALSE(Peer::_rename(index, "a.kdb", 1, "b.kdb", 2));
    EXPECT_EQ(fault.hits(), 1U);
    EXPECT_EQ(Peer::lp(index), (NameMap{{"a.kdb_0000000001", "00000001"}}));
    EXPECT_EQ(Peer::pl(index), (NameMap{{"00000001", "a.kdb_0000000001"}}));
    EXPECT_EQ(index_traces(sink),
              create_texts() +
                  Texts{"Error: STGIndex: rename: copy failed: " + folder.path("00000001.kdb")} +
                  remove_texts());
  }
  EXPECT_EQ(folder.index(), "a.kdb_0000000001/00000001\n");
  EXPECT_EQ(folder.read("00000001.kdb"), "bytes");
  EXPECT_EQ(folder.names(), (Texts{"00000001.kdb", "index", "index.dat"}));
}

TEST_F(IndexRename, KeepsTheSourceWhenTheCopyRaises) {
  folder.write("00000001.kdb", "bytes");
  folder.write("index", "00000001");
  folder.set_index("a.kdb_0000000001/00000001\n");
  recording_sink sink;
  {
    STGIndex index = Peer::load(folder.path());
    const auto fault = os::faults::throw_from(Call::copy, std::bad_alloc());
    EXPECT_FALSE(Peer::_rename(index, "a.kdb", 1, "b.kdb", 2));
  }
  EXPECT_EQ(sink.count(trace_event::error,
                       "STGIndex: rename: copy failed: " + folder.path("00000001.kdb")),
            1U);
  EXPECT_EQ(folder.index(), "a.kdb_0000000001/00000001\n");
  EXPECT_EQ(folder.read("00000001.kdb"), "bytes");
}

TEST_F(IndexRename, EndsBeforeOrAfterWhereverAnExceptionStrikes) {
  for (const std::string target : {"", "n.kdb_0000000000/n.kdb\n", "n.kdb_0000000000/00000002\n"}) {
    const std::string text = "a.kdb_0000000001/00000001\n" + target;
    const std::string target_file = target.ends_with("2\n") ? "00000002.kdb" : "n.kdb";
    bool is_over = false;
    for (std::uint64_t nth = 1; !is_over; ++nth) {
      SCOPED_TRACE(testing::Message() << target << "call " << nth);
      const index_folder place;
      place.write("00000001.kdb", "bytes of a");
      if (!target.empty()) place.write(target_file, "bytes of n");
      place.write("index", "00000002");
      place.set_index(text);
      {
        STGIndex index = Peer::load(place.path());
        // As in a migration or after adoption: a save follows in any case.
        Peer::set_need_update(index);
        const auto fault = os::faults::throw_from(Call::system, std::bad_alloc(), nth);
        try {
          Peer::_rename(index, "a.kdb", 1, "n.kdb", 0);
        } catch (const std::bad_alloc&) {
        }
        is_over = fault.hits() == 0;
      }
      if (place.index() == text) {
        EXPECT_EQ(place.read("00000001.kdb"), "bytes of a");
        if (!target.empty()) {
          EXPECT_EQ(place.read(target_file), "bytes of n");
        }
        EXPECT_EQ(place.names().size(), target.empty() ? 3U : 4U) << "no file besides";
      } else {
        // A counter that fails returns the name 99999999.
        const std::string stored = place.has("99999999.kdb") ? "99999999" : "00000003";
        EXPECT_EQ(place.index(), "n.kdb_0000000000/" + stored + "\n");
        EXPECT_EQ(place.read(stored + ".kdb"), "bytes of a");
        EXPECT_EQ(place.names(), (Texts{stored + ".kdb", "index", "index.dat"}));
      }
    }
  }
}

TEST_F(IndexRename, KeepsTheEntryWhoseFileHasGone) {
  // There is nothing to copy. Both entries are dangling, and the save writes neither.
  folder.write("00000001.kdb");
  folder.write("index", "00000001");
  folder.set_index("a.kdb_0000000001/00000001\n");
  recording_sink sink;
  {
    STGIndex index = Peer::load(folder.path());
    folder.erase("00000001.kdb");
    EXPECT_FALSE(Peer::_rename(index, "a.kdb", 1, "b.kdb", 2));
    EXPECT_TRUE(Peer::_contains(index, "a.kdb", 1));
    EXPECT_FALSE(Peer::_contains(index, "b.kdb", 2));
  }
  EXPECT_EQ(sink.count(trace_event::error,
                       "STGIndex: rename: copy failed: " + folder.path("00000001.kdb")),
            1U);
  EXPECT_EQ(folder.index(), " ");
  EXPECT_EQ(folder.names(), (Texts{"index", "index.dat"}));
}

TEST_F(IndexRename, KeepsTheReplacedEntryWhenTheCopyFails) {
  folder.write("00000001.kdb", "bytes of a");
  folder.write("00000002.kdb", "bytes of b");
  folder.write("index", "00000002");
  folder.set_index("a.kdb_0000000001/00000001\nb.kdb_0000000002/00000002\n");
  {
    STGIndex index = Peer::load(folder.path());
    const auto fault = os::faults::fail(Call::copy, kRefused);
    EXPECT_FALSE(Peer::_rename(index, "a.kdb", 1, "b.kdb", 2));
  }
  EXPECT_EQ(folder.index(), "a.kdb_0000000001/00000001\nb.kdb_0000000002/00000002\n");
  EXPECT_EQ(folder.names(), (Texts{"00000001.kdb", "00000002.kdb", "index", "index.dat"}));
}

TEST_F(IndexRename, MakesNoFileForTheEntryThatItKeptInPlace) {
  // The copy fails, so the replaced entry is back. Then another program removes its file.
  folder.write("00000001.kdb", "bytes of a");
  folder.write("00000002.kdb", "bytes of b");
  folder.write("index", "00000002");
  folder.set_index("a.kdb_0000000001/00000001\nb.kdb_0000000002/00000002\n");
  {
    STGIndex index = Peer::load(folder.path());
    {
      const auto fault = os::faults::fail(Call::copy, kRefused);
      EXPECT_FALSE(Peer::_rename(index, "a.kdb", 1, "b.kdb", 2));
    }
    folder.erase("00000002.kdb");
  }
  EXPECT_EQ(folder.names(), (Texts{"00000001.kdb", "index", "index.dat"}));
}

TEST_F(IndexRename, KeepsBothEntriesWhenTheSourceCannotBeRemoved) {
  folder.write("00000001.kdb", "bytes");
  folder.write("index", "00000001");
  folder.set_index("a.kdb_0000000001/00000001\n");
  recording_sink sink;
  {
    const auto fault = os::faults::fail(Call::remove_file, kRefused);
    STGIndex::rename(folder.path(), "a.kdb", 1, "b.kdb", 2);
    EXPECT_EQ(fault.hits(), 1U);
  }
  EXPECT_EQ(sink.count(trace_event::error), 0U);
  EXPECT_EQ(folder.index(), "a.kdb_0000000001/00000001\nb.kdb_0000000002/00000002\n");
  EXPECT_EQ(folder.read("00000001.kdb"), "bytes");
  EXPECT_EQ(folder.read("00000002.kdb"), "bytes");
}

}  // namespace
