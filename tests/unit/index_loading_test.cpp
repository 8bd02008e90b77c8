// The content of a loaded index. Loading does not change the folder.

#include <gtest/gtest.h>

#include <cstdint>
#include <string>

#include "index/folder_files.h"
#include "index/index_reader.h"
#include "index/known_files.h"
#include "platform/os/os.h"
#include "tests/support/recording_sink.h"
#include "tests/support/scratch.h"
#include "tests/unit/index_fixture.h"

namespace {

using os::faults::Call;
using Peer = stg_index_test_peer;
using NameMap = STGIndex::NameMap;
using plain_index::shown;

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
    // Another reader can load at the same time.
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

TEST_F(IndexLoading, CreatesNoIndexIfThereIsNone) {
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

/// Fills a folder with entries and their files. @return the text of the index.
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
  // The check for index.dat.
  EXPECT_EQ(os::faults::calls(Call::probe_search), 1U);
  return os::faults::calls(Call::any);
}

TEST_F(IndexLoading, ListsTheFolderOnceAndChecksNoSingleFile) {
  EXPECT_EQ(calls_to_load(5, false), calls_to_load(60, false));
  EXPECT_EQ(calls_to_load(5, true), calls_to_load(60, true));
}

TEST_F(IndexLoading, WaitsForAWriterAndSeesWhatItWrote) {
  folder.set_index(" ");
  // The index is read after it is locked, so a change of another process before that is visible.
  const auto hook = os::faults::before(Call::lock, [&] {
    folder.write("00000009.kdb");
    folder.set_index("late.kdb_0000000001/00000009\n");
  });
  const STGIndex index = Peer::load(folder.path());
  EXPECT_EQ(Peer::lp(index), (NameMap{{"late.kdb_0000000001", "00000009"}}));
}

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
  // All three wrote the same text.
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
  // The first destructor closes it for both.
  EXPECT_TRUE(index_is_free());
}

// FolderFiles: the content of a folder at one moment, and whether the file of a line exists.

class FolderFilesOfAnIndex : public IndexTest {};
class IndexLineValidity : public IndexTest {};

bool is_valid(FolderFiles& files, std::string_view key, std::string_view stored) {
  return state_by_listing(key, stored, files) == LineState::kValid;
}

TEST_F(FolderFilesOfAnIndex, ListsAtTheFirstQueryAndNotAgain) {
  const std::string path = folder.path();
  FolderFiles files(path);
  folder.write("early");
  EXPECT_TRUE(is_valid(files, "k_0000000001", "early"));
  os::faults::reset();
  EXPECT_EQ(files.listing().size(), 1U);
  EXPECT_EQ(os::faults::calls(Call::list), 0U);
}

TEST_F(FolderFilesOfAnIndex, StillShowsAFileThatHasGoneSince) {
  const std::string path = folder.path();
  folder.write("gone");
  FolderFiles files(path);
  ASSERT_EQ(files.listing().size(), 1U);
  vu_file::remove(folder.path("gone"));
  EXPECT_TRUE(is_valid(files, "k_0000000001", "gone"));
  FolderFiles now(path);
  EXPECT_FALSE(is_valid(now, "k_0000000001", "gone"));
}

TEST_F(FolderFilesOfAnIndex, FindsAFileThatHasComeSinceByItself) {
  const std::string path = folder.path();
  FolderFiles files(path);
  ASSERT_TRUE(files.listing().empty());
  folder.write("late.kdb");
  EXPECT_TRUE(is_valid(files, "k.kdb_0000000001", "late"));
  EXPECT_FALSE(is_valid(files, "k.kdc_0000000001", "late"));
}

TEST_F(FolderFilesOfAnIndex, TakesNoKeyThatIsTooShort) {
  const std::string path = folder.path();
  folder.write("a");
  FolderFiles files(path);
  EXPECT_FALSE(is_valid(files, "", "a"));
  EXPECT_FALSE(is_valid(files, "0123456789", "a"));
  EXPECT_TRUE(is_valid(files, "0123456789a", "a"));
}

TEST_F(FolderFilesOfAnIndex, IsEmptyForAFolderThatIsMissing) {
  const std::string path = folder.path("missing");
  FolderFiles files(path);
  EXPECT_TRUE(files.listing().empty());
  EXPECT_FALSE(is_valid(files, "k_0000000001", ""));
  EXPECT_FALSE(is_valid(files, "k_0000000001", "a"));
}

TEST_F(FolderFilesOfAnIndex, GivesEachLineItsState) {
  const std::string path = folder.path();
  folder.write("00000001");
  folder.write("00000002");
  struct Worth {
    std::size_t lines;
    std::size_t missing;
    bool ascending;
    bool operator==(const Worth&) const = default;
  };
  const auto worth = [&path](const std::string& text) {
    FolderFiles files(path);
    const IndexReading reading(text, files);
    EXPECT_EQ(reading.unknown, 0U);
    return Worth{reading.lines.size(), reading.missing, reading.ascending && !reading.any_runs_on};
  };
  EXPECT_EQ(worth(""), (Worth{0, 0, true}));
  EXPECT_EQ(worth(" "), (Worth{0, 0, true}));
  EXPECT_EQ(worth("a_0000000001/00000001\nb_0000000001/00000002\n"), (Worth{2, 0, true}));
  EXPECT_EQ(worth("a_0000000001/00000001\nb_0000000001/00000001\n"), (Worth{2, 0, true}));
  EXPECT_EQ(worth("b_0000000001/00000002\na_0000000001/00000001"), (Worth{2, 0, false}));
  EXPECT_EQ(worth("a_0000000001/00000001\nb_0000000001/00000003\n"), (Worth{2, 1, true}));
  EXPECT_EQ(worth("b_0000000001/00000003\na_0000000001/00000001\n"), (Worth{2, 1, true}));
  EXPECT_EQ(worth("short/00000001\n"), (Worth{0, 0, true}));
  EXPECT_EQ(worth("a_0000000001/00000001\na_0000000001/00000002\n"), (Worth{2, 0, false}));
  EXPECT_EQ(worth("torn\na_0000000001/00000001\n"), (Worth{1, 0, false})) << "a line runs on";
  EXPECT_EQ(worth("torn\na_0000000001/00000001"), (Worth{2, 0, false}));
}

TEST_F(FolderFilesOfAnIndex, NamesTheUnknownEntries) {
  const std::string path = folder.path();
  folder.write("00000001.kdb");
  const std::string text =
      "a.kdb_0000000001/00000001\nb.kdb_0000000001/00000002\nc_0000000001/00000003\n"
      "torn\nd_0000000001/00000004";
  // Calls: two for the second line, one for the third; the listing is enough for the first.
  for (const std::uint64_t nth : {1U, 2U, 3U}) {
    // A result other than "found" and "not found" makes the entry unknown.
    const os::Failure failure = nth == 2 ? os::Failure::kLocked : os::Failure::kOther;
    const auto fault = os::faults::fail(os::faults::Call::probe_search, {5, failure}, nth);
    FolderFiles files(path);
    const IndexReading reading(text, files);
    EXPECT_EQ(fault.hits(), 1U);
    ASSERT_EQ(reading.unknown, 1U) << nth;
    EXPECT_EQ(reading.lines[nth < 3 ? 1 : 2].state, LineState::kUnknown);
    EXPECT_EQ(reading.lines[0].state, LineState::kValid);
  }
  // A line that continues over a line feed is not a line of the index until its file is found.
  const auto fault = os::faults::fail(os::faults::Call::probe_search, {5, os::Failure::kOther}, 4);
  FolderFiles files(path);
  EXPECT_EQ(IndexReading(text, files).unknown, 0U);
  EXPECT_EQ(fault.hits(), 1U);
}

TEST_F(FolderFilesOfAnIndex, AccountsForNoFileThatTheMapsDoNotKnow) {
  const std::string path = folder.path();
  for (const char* const name :
       {"a", "a.a", "b.a", "a.b", "00000001", "00000001.a", "a.a.a", "b.a.q"}) {
    folder.write(name);
  }
  make_folder(folder.path("d.a"));
  RandomTexts texts(
      815, {"a_0000000000/a\n", "a.a_0000000000/a.a\n", "b.a_0000000001/b\n", "x_0000000000/a.b\n",
            "x.a_0000000000/a.a\n", "y.a_0000000002/00000001\n", "a.b_0000000001/a.b\n",
            "z_0000000001/00000001\n", "d.a_0000000000/d.a\n", "e.a_0000000000/d\n", "short/a\n",
            "torn\n", "a.a_0000000000/a.a", "A.q_0000000001/b.a\n", "b.a_0000000000/b.a\n"});
  std::size_t accounted_for = 0;
  for (int i = 0; i < 1000; ++i) {
    const std::string text = texts.next(6);
    FolderFiles files(path);
    const IndexReading loaded(text, files);
    NameMap lp;
    NameMap pl;
    plain_index::load(path, text, lp, pl);
    if (loaded.ascending) {
      EXPECT_EQ(lp.size(), loaded.lines.size() - loaded.missing) << shown(text);
    }
    const KnownFiles known(loaded, files.listing().size());
    STGIndex index = Peer::empty();
    Peer::set_maps(index, lp, pl);
    for (std::size_t file = 0; file < files.listing().size(); ++file) {
      if (known.first_doubtful(file) == file) continue;
      ++accounted_for;
      const std::string name(files.listing()[file].name);
      EXPECT_TRUE(Peer::alreadyInMaps(index, name)) << shown(text) << ' ' << name;
    }
  }
  EXPECT_GT(accounted_for, 1000U);
}

TEST_F(FolderFilesOfAnIndex, ChecksSingleNamesWhenTheListingFails) {
  const std::string path = folder.path();
  folder.write("a");
  const auto fault = os::faults::fail(Call::list, {5, os::Failure::kOther});
  FolderFiles files(path);
  EXPECT_TRUE(is_valid(files, "k_0000000001", "a"));
  EXPECT_FALSE(is_valid(files, "k_0000000001", "b"));
  EXPECT_EQ(fault.hits(), 1U);
}

TEST_F(IndexLineValidity, ChecksTheStoredNameAndThenWithTheExtension) {
  folder.write("00000001.kdb");
  folder.write("notes.txt");
  EXPECT_TRUE(Peer::validIndexLine(folder.path(), "a.kdb_0000000001", "00000001"));
  EXPECT_TRUE(Peer::validIndexLine(folder.path(), "a.kdb_0000000001", "00000001.kdb"));
  EXPECT_TRUE(Peer::validIndexLine(folder.path(), "notes.txt_0000000000", "notes.txt"));
  EXPECT_TRUE(Peer::validIndexLine(folder.path(), "whatever_0000000009", "notes.txt"));
  EXPECT_FALSE(Peer::validIndexLine(folder.path(), "a.kdc_0000000001", "00000001"));
  EXPECT_FALSE(Peer::validIndexLine(folder.path(), "a.kdb_0000000001", "00000002"));
}

TEST_F(IndexLineValidity, NeedsTheKeyOnlyWhenTheStoredNameIsNotThere) {
  folder.write("a");
  EXPECT_TRUE(Peer::validIndexLine(folder.path(), "short", "a"));
  EXPECT_THROW(Peer::validIndexLine(folder.path(), "short", "b"), std::out_of_range);
}

}  // namespace
