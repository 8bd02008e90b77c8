#include <gtest/gtest.h>

#include <cstdint>
#include <string>

#include "index/folder_files.h"
#include "index/index_reader.h"
#include "index/known_files.h"
#include "platform/os/os.h"
#include "tests/support/scratch.h"
#include "tests/unit/index_fixture.h"
#include "tests/unit/index_text_kit.h"

// What a folder holds at one moment, and whether a line's file is there.

namespace {

using os::faults::Call;
using Peer = stg_index_test_peer;
using NameMap = STGIndex::NameMap;
using plain_index::shown;

// ---- the folder at one moment ------------------------------------------------------------------

bool is_valid(FolderFiles& files, std::string_view key, std::string_view stored) {
  return state_by_listing(key, stored, files) == LineState::kValid;
}

TEST(FolderFilesOfAnIndex, ListsWhenFirstAskedAndNotAgain) {
  const scratch_folder folder;
  const std::string path = folder.path();
  FolderFiles files(path);
  write_file(folder.path("early"), "");
  EXPECT_TRUE(is_valid(files, "k_0000000001", "early"));
  os::faults::reset();
  EXPECT_EQ(files.entries().size(), 1U);
  EXPECT_EQ(os::faults::calls(Call::list), 0U);
}

TEST(FolderFilesOfAnIndex, StillShowsAFileThatHasGoneSince) {
  const scratch_folder folder;
  const std::string path = folder.path();
  write_file(folder.path("gone"), "");
  FolderFiles files(path);
  ASSERT_EQ(files.entries().size(), 1U);
  vu_file::remove(folder.path("gone"));
  EXPECT_TRUE(is_valid(files, "k_0000000001", "gone"));
  FolderFiles now(path);
  EXPECT_FALSE(is_valid(now, "k_0000000001", "gone"));
}

TEST(FolderFilesOfAnIndex, FindsAFileThatHasComeSinceByItself) {
  const scratch_folder folder;
  const std::string path = folder.path();
  FolderFiles files(path);
  ASSERT_TRUE(files.entries().empty());
  write_file(folder.path("late.kdb"), "");
  EXPECT_TRUE(is_valid(files, "k.kdb_0000000001", "late"));
  EXPECT_FALSE(is_valid(files, "k.kdc_0000000001", "late"));
}

TEST(FolderFilesOfAnIndex, TakesNoKeyThatIsTooShort) {
  const scratch_folder folder;
  const std::string path = folder.path();
  write_file(folder.path("a"), "");
  FolderFiles files(path);
  EXPECT_FALSE(is_valid(files, "", "a"));
  EXPECT_FALSE(is_valid(files, "0123456789", "a"));
  EXPECT_TRUE(is_valid(files, "0123456789a", "a"));
}

TEST(FolderFilesOfAnIndex, IsEmptyForAFolderThatIsMissing) {
  const scratch_folder folder;
  const std::string path = folder.path("missing");
  FolderFiles files(path);
  EXPECT_TRUE(files.entries().empty());
  EXPECT_FALSE(is_valid(files, "k_0000000001", ""));
  EXPECT_FALSE(is_valid(files, "k_0000000001", "a"));
}

TEST(FolderFilesOfAnIndex, GivesEachLineItsState) {
  const scratch_folder folder;
  const std::string path = folder.path();
  write_file(folder.path("00000001"), "");
  write_file(folder.path("00000002"), "");
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

TEST(FolderFilesOfAnIndex, SaysOfWhichLinesTheSystemDoesNotTell) {
  const scratch_folder folder;
  const std::string path = folder.path();
  write_file(folder.path("00000001.kdb"), "");
  const std::string text =
      "a.kdb_0000000001/00000001\nb.kdb_0000000001/00000002\nc_0000000001/00000003\n"
      "torn\nd_0000000001/00000004";
  // Two questions for the second line, one for the third; the listing answers for the first.
  for (const std::uint64_t nth : {1U, 2U, 3U}) {
    // Whatever is neither "found" nor "not found" is no answer.
    const os::Failure failure = nth == 2 ? os::Failure::kLocked : os::Failure::kOther;
    const auto fault = os::faults::fail(os::faults::Call::probe_search, {5, failure}, nth);
    FolderFiles files(path);
    const IndexReading reading(text, files);
    EXPECT_EQ(fault.hits(), 1U);
    ASSERT_EQ(reading.unknown, 1U) << nth;
    EXPECT_EQ(reading.lines[nth < 3 ? 1 : 2].state, LineState::kUnknown);
    EXPECT_EQ(reading.lines[0].state, LineState::kValid);
  }
  // A line that runs on is none until its file is found.
  const auto fault = os::faults::fail(os::faults::Call::probe_search, {5, os::Failure::kOther}, 4);
  FolderFiles files(path);
  EXPECT_EQ(IndexReading(text, files).unknown, 0U);
  EXPECT_EQ(fault.hits(), 1U);
}

TEST(FolderFilesOfAnIndex, AccountsForNoFileThatTheMapsDoNotKnow) {
  const scratch_folder folder;
  const std::string path = folder.path();
  for (const char* const name :
       {"a", "a.a", "b.a", "a.b", "00000001", "00000001.a", "a.a.a", "b.a.q"}) {
    write_file(folder.path(name), "");
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
    const KnownFiles known(loaded, files.entries().size());
    STGIndex index = Peer::empty();
    Peer::set_maps(index, lp, pl);
    for (std::size_t entry = 0; entry < files.entries().size(); ++entry) {
      if (known.first_doubtful(entry) == entry) continue;
      ++accounted_for;
      const std::string name(files.entries()[entry].name);
      EXPECT_TRUE(Peer::alreadyInMaps(index, name)) << shown(text) << ' ' << name;
    }
  }
  EXPECT_GT(accounted_for, 1000U);
}

TEST(FolderFilesOfAnIndex, AsksByItselfWhenTheListingFails) {
  const scratch_folder folder;
  const std::string path = folder.path();
  write_file(folder.path("a"), "");
  const auto fault = os::faults::fail(Call::list, {5, os::Failure::kOther});
  FolderFiles files(path);
  EXPECT_TRUE(is_valid(files, "k_0000000001", "a"));
  EXPECT_FALSE(is_valid(files, "k_0000000001", "b"));
  EXPECT_EQ(fault.hits(), 1U);
}

// ---- one line ----------------------------------------------------------------------------------

TEST(IndexLineValidity, AsksForTheStoredNameAndThenWithTheExtension) {
  const scratch_folder folder;
  write_file(folder.path("00000001.kdb"), "");
  write_file(folder.path("notes.txt"), "");
  EXPECT_TRUE(Peer::validIndexLine(folder.path(), "a.kdb_0000000001", "00000001"));
  EXPECT_TRUE(Peer::validIndexLine(folder.path(), "a.kdb_0000000001", "00000001.kdb"));
  EXPECT_TRUE(Peer::validIndexLine(folder.path(), "notes.txt_0000000000", "notes.txt"));
  EXPECT_TRUE(Peer::validIndexLine(folder.path(), "whatever_0000000009", "notes.txt"));
  EXPECT_FALSE(Peer::validIndexLine(folder.path(), "a.kdc_0000000001", "00000001"));
  EXPECT_FALSE(Peer::validIndexLine(folder.path(), "a.kdb_0000000001", "00000002"));
}

TEST(IndexLineValidity, NeedsTheKeyOnlyWhenTheStoredNameIsNotThere) {
  const scratch_folder folder;
  write_file(folder.path("a"), "");
  EXPECT_TRUE(Peer::validIndexLine(folder.path(), "short", "a"));
  EXPECT_THROW(Peer::validIndexLine(folder.path(), "short", "b"), std::out_of_range);
}

}  // namespace
