#include <gtest/gtest.h>

#include <string>

#include "platform/os/os.h"
#include "tests/support/recording_sink.h"
#include "tests/unit/index_fixture.h"

// An index that is loaded: what it holds, and what loading does to the folder (nothing).

namespace {

using os::faults::Call;
using Peer = stg_index_test_peer;
using NameMap = STGIndex::NameMap;

class IndexLoading : public IndexTest {
 protected:
};

TEST_F(IndexLoading, ReadsTheEntriesOfTheFolder) {
  folder.write("00000001.kdb");
  folder.write("notes.txt");
  folder.set_index(
      "a.kdb_0000000007/00000001\nnotes.txt_0000000000/notes.txt\nx_0000000001/gone\n");
  const STGIndex index = Peer::load(folder.path());
  EXPECT_EQ(Peer::folder(index), folder.path());
  EXPECT_EQ(Peer::lp(index),
            (NameMap{{"a.kdb_0000000007", "00000001"}, {"notes.txt_0000000000", "notes.txt"}}));
  EXPECT_EQ(Peer::pl(index),
            (NameMap{{"00000001", "a.kdb_0000000007"}, {"notes.txt", "notes.txt_0000000000"}}));
  EXPECT_FALSE(Peer::need_update(index));
}

TEST_F(IndexLoading, KeepsTheIndexOpenForReadingUntilItGoes) {
  folder.set_index(" ");
  {
    const STGIndex index = Peer::load(folder.path());
    EXPECT_TRUE(index.is_open());
    EXPECT_TRUE(index.is_locked());
    EXPECT_FALSE(index_is_free());
    // Another reader does not mind.
    const STGIndex other = Peer::load(folder.path());
    EXPECT_TRUE(other.is_locked());
  }
  EXPECT_TRUE(index_is_free());
}

TEST_F(IndexLoading, TakesABlankForAnIndexWithoutEntries) {
  folder.write("00000001.kdb");
  folder.set_index(" ");
  const STGIndex index = Peer::load(folder.path());
  EXPECT_TRUE(Peer::lp(index).empty());
  EXPECT_TRUE(Peer::pl(index).empty());
}

TEST_F(IndexLoading, TakesAnEmptyFileForAnIndexWithoutEntries) {
  folder.set_index("");
  const STGIndex index = Peer::load(folder.path());
  EXPECT_TRUE(Peer::lp(index).empty());
  EXPECT_FALSE(Peer::need_update(index));
}

TEST_F(IndexLoading, MakesNoIndexWhereThereIsNone) {
  {
    const STGIndex index = Peer::load(folder.path());
    EXPECT_TRUE(Peer::lp(index).empty());
    EXPECT_FALSE(index.is_open());
    EXPECT_FALSE(Peer::need_update(index));
  }
  EXPECT_EQ(folder.names(), Texts{});
}

TEST_F(IndexLoading, ChangesNothingInTheFolder) {
  folder.write("00000001.kdb", "data");
  folder.write("stranger.TXT", "data");
  folder.set_index("x_0000000001/gone\na.kdb_0000000007/00000001\n");
  set_modify_time(folder.path("index.dat"), 1000);
  const auto before = folder.state();
  { const STGIndex index = Peer::load(folder.path()); }
  EXPECT_EQ(folder.state(), before);
}

TEST_F(IndexLoading, SaysThatTheFolderIsMissingAndGoesOn) {
  const std::string missing = folder.path("missing");
  for (const bool on : {false, true}) {
    const synchronisation mode(on);
    recording_sink sink;
    {
      const STGIndex index = Peer::load(missing);
      EXPECT_EQ(Peer::folder(index), missing);
      EXPECT_TRUE(Peer::lp(index).empty());
      EXPECT_FALSE(Peer::need_update(index));
    }
    EXPECT_EQ(index_traces(sink), (Texts{"Error: STGIndex::STGIndex() : the folder " + missing +
                                         " doesn't exist !!!"}));
    EXPECT_FALSE(folder.has("missing"));
  }
}

TEST_F(IndexLoading, TakesAPlainFileForNoFolder) {
  folder.write("plain");
  recording_sink sink;
  { const STGIndex index = Peer::load(folder.path("plain")); }
  EXPECT_EQ(index_traces(sink), (Texts{"Error: STGIndex::STGIndex() : the folder " +
                                       folder.path("plain") + " doesn't exist !!!"}));
}

TEST_F(IndexLoading, TracesNothingInAFolderThatIsThere) {
  folder.write("00000001.kdb");
  folder.set_index("a.kdb_0000000007/00000001\n");
  recording_sink sink;
  { const STGIndex index = Peer::load(folder.path()); }
  EXPECT_EQ(index_traces(sink), Texts{});
}

TEST_F(IndexLoading, OpensItsScopesUnderItsOwnSource) {
  recording_sink sink;
  { const STGIndex index = Peer::load(folder.path()); }
  bool constructor = false;
  bool destructor = false;
  for (const traced& each : sink.all()) {
    if (each.kind != traced::kind_t::scope || each.source != "stg_index") continue;
    EXPECT_GT(each.line, 0);
    constructor |= each.signature.find("STGIndex::STGIndex(") != std::string::npos;
    destructor |= each.signature.find("STGIndex::~STGIndex(") != std::string::npos;
  }
  EXPECT_TRUE(constructor);
  EXPECT_TRUE(destructor);
  EXPECT_EQ(sink.count(traced::kind_t::scope), sink.count(traced::kind_t::scope_end));
}

TEST_F(IndexLoading, LetsAnIndexThatCannotBeOpenedRaise) {
  folder.set_index("a.kdb_0000000007/00000001\n");
  const auto fault = os::faults::fail(Call::open, kRefused);
  try {
    const STGIndex index = Peer::load(folder.path());
    ADD_FAILURE() << "it was loaded";
  } catch (const vu_file_except& e) {
    EXPECT_EQ(e.what(), "throw exception on open");
  }
}

TEST_F(IndexLoading, LetsAFolderOfTheIndexsNameRaise) {
  make_folder(folder.path("index.dat"));
  EXPECT_THROW({ const STGIndex index = Peer::load(folder.path()); }, vu_file_except);
}

TEST_F(IndexLoading, LetsAnIndexThatCannotBeReadRaiseAndGivesItsLockBack) {
  folder.set_index("a.kdb_0000000007/00000001\n");
  {
    const auto fault = os::faults::fail(Call::read, kRefused);
    try {
      const STGIndex index = Peer::load(folder.path());
      ADD_FAILURE() << "it was loaded";
    } catch (const vu_file_except& e) {
      EXPECT_EQ(e.what(), "throw exception on read");
    }
  }
  EXPECT_TRUE(index_is_free());
  EXPECT_EQ(folder.index(), "a.kdb_0000000007/00000001\n");
}

TEST_F(IndexLoading, LetsOtherExceptionsPass) {
  folder.set_index("a.kdb_0000000007/00000001\n");
  {
    const auto fault = os::faults::throw_from(Call::list, std::bad_alloc());
    EXPECT_THROW({ const STGIndex index = Peer::load(folder.path()); }, std::bad_alloc);
    EXPECT_EQ(fault.hits(), 1U);
  }
  EXPECT_TRUE(index_is_free());
}

TEST_F(IndexLoading, GoesOnWithoutALockThatTheSystemRefuses) {
  folder.write("00000001.kdb");
  folder.set_index("a.kdb_0000000007/00000001\n");
  const auto fault = os::faults::fail(Call::lock, kRefused);
  const STGIndex index = Peer::load(folder.path());
  EXPECT_EQ(Peer::lp(index).size(), 1U);
  EXPECT_TRUE(index.is_open());
  EXPECT_FALSE(index.is_locked());
}

TEST_F(IndexLoading, ReadsAllOfALargeIndex) {
  std::string text;
  for (int i = 0; i < 20000; ++i) {
    text += "a rather long logical name of a document.kdb_" + std::to_string(1000000000 + i) +
            "/00000001\n";
  }
  folder.write("00000001.kdb");
  folder.set_index(text);
  const STGIndex index = Peer::load(folder.path());
  EXPECT_EQ(Peer::lp(index).size(), 20000U);
  EXPECT_EQ(Peer::pl(index).size(), 1U);
}

/// Fills a folder with entries and their files. @return the text of its index.
std::string fill(const index_folder& folder, int entries) {
  std::string text;
  for (int i = 1; i <= entries; ++i) {
    const std::string number = std::to_string(10000000 + i);
    folder.write(number + ".kdb");
    text += "doc" + number + ".kdb_0000000001/" + number + "\n";
  }
  folder.set_index(text);
  return text;
}

std::uint64_t calls_to_load(int entries, bool synchronize) {
  const index_folder folder;
  const synchronisation mode(synchronize);
  fill(folder, entries);
  os::faults::reset();
  const STGIndex index = Peer::load(folder.path());
  EXPECT_EQ(Peer::lp(index).size(), static_cast<std::size_t>(entries));
  EXPECT_FALSE(Peer::need_update(index));
  EXPECT_EQ(os::faults::calls(Call::list), 1U);
  // For index.dat itself.
  EXPECT_EQ(os::faults::calls(Call::probe_search), 1U);
  return os::faults::calls(Call::any);
}

TEST_F(IndexLoading, ListsTheFolderOnceAndAsksForNoFileByItself) {
  EXPECT_EQ(calls_to_load(5, false), calls_to_load(60, false));
  EXPECT_EQ(calls_to_load(5, true), calls_to_load(60, true));
}

TEST_F(IndexLoading, WaitsForAWriterAndSeesWhatItWrote) {
  folder.set_index(" ");
  // The index is read once it has been locked: what a writer leaves until then counts.
  const auto hook = os::faults::before(Call::lock, [&] {
    folder.write("00000009.kdb");
    folder.set_index("late.kdb_0000000001/00000009\n");
  });
  const STGIndex index = Peer::load(folder.path());
  EXPECT_EQ(Peer::lp(index), (NameMap{{"late.kdb_0000000001", "00000009"}}));
}

// ---- copies, and the instance of no folder -----------------------------------------------------

TEST_F(IndexLoading, OfNoFolderHasNoEntriesAndWritesNothing) {
  recording_sink sink;
  os::faults::reset();
  {
    const STGIndex index = Peer::empty();
    EXPECT_EQ(Peer::folder(index), "");
    EXPECT_TRUE(Peer::lp(index).empty());
    EXPECT_TRUE(Peer::pl(index).empty());
    EXPECT_FALSE(Peer::need_update(index));
    EXPECT_FALSE(index.is_open());
  }
  EXPECT_EQ(os::faults::calls(Call::any), 0U);
  EXPECT_EQ(index_traces(sink), Texts{});
}

TEST_F(IndexLoading, IsCopiedMemberByMember) {
  {
    STGIndex index = Peer::load(folder.path());
    Peer::_create(index, "a.kdb", 1);
    const STGIndex copy(index);
    EXPECT_EQ(Peer::folder(copy), folder.path());
    EXPECT_EQ(Peer::lp(copy), Peer::lp(index));
    EXPECT_EQ(Peer::pl(copy), Peer::pl(index));
    EXPECT_TRUE(Peer::need_update(copy));
    EXPECT_EQ(copy.getFilePath(), folder.path("index.dat"));

    STGIndex assigned = Peer::empty();
    assigned = index;
    EXPECT_EQ(Peer::folder(assigned), folder.path());
    EXPECT_EQ(Peer::lp(assigned), Peer::lp(index));
    EXPECT_EQ(Peer::pl(assigned), Peer::pl(index));
    EXPECT_TRUE(Peer::need_update(assigned));
    EXPECT_EQ(assigned.getFilePath(), folder.path("index.dat"));
  }
  // All three have written the same.
  EXPECT_EQ(folder.index(), "a.kdb_0000000001/00000001\n");
}

TEST_F(IndexLoading, SharesItsHandleWithACopy) {
  folder.set_index(" ");
  const STGIndex index = Peer::load(folder.path());
  {
    const STGIndex copy(index);
    EXPECT_TRUE(copy.is_open());
    EXPECT_TRUE(copy.is_locked());
  }
  // Whichever goes first closes it for both.
  EXPECT_TRUE(index_is_free());
}

}  // namespace
