#include <gtest/gtest.h>

#include <atomic>
#include <filesystem>
#include <functional>
#include <new>
#include <random>
#include <stdexcept>
#include <string>
#include <thread>

#include "file/replacement.h"
#include "platform/os/os.h"
#include "tests/support/index_peer.h"
#include "tests/support/recording_sink.h"

// An index that is written back: when, what, merged with what, and what happens when that fails.

namespace {

using os::faults::Call;
using os::faults::Times;
using Peer = stg_index_test_peer;
using NameMap = STGIndex::NameMap;
using Texts = std::vector<std::string>;
using vu_host::trace_event;
using vu_host::trace_level;

const os::Status kRefused(5, os::Failure::kOther);

class IndexSaving : public testing::Test {
 protected:
  bool index_is_free() const {
    vu_file file(folder.path(), "index.dat");
    bool lock_failed = true;
    EXPECT_TRUE(file.try_open(vu_file::o_append, lock_failed, true));
    return !lock_failed;
  }

  /// Loads the folder's index and writes it back, changed or not.
  void rewrite() const {
    STGIndex index = Peer::load(folder.path());
    Peer::set_need_update(index);
  }

  Texts begin_texts() const {
    return {"M:  STGIndex: (begin) updating index.dat ...", "M:   folder : " + folder.path()};
  }
  Texts not_read_texts() const {
    return {"Error: STGIndex: index.dat is left as it is, for it cannot be read to its end: " +
            folder.path()};
  }
  Texts end_texts() const {
    return {"M:  STGIndex: (end) index.dat is uptodate", "M:   folder : " + folder.path()};
  }

  index_folder folder;
  synchronisation off{false};
};

Texts operator+(Texts left, const Texts& right) {
  left.insert(left.end(), right.begin(), right.end());
  return left;
}

// ---- what is written ---------------------------------------------------------------------------

TEST_F(IndexSaving, HappensOnlyAfterAChange) {
  folder.write("00000001.kdb");
  folder.set_index("a.kdb_0000000001/00000001\n\n\ntorn");
  set_modify_time(folder.path("index.dat"), 1000);
  const auto before = folder.state();
  os::faults::reset();
  {
    STGIndex index = Peer::load(folder.path());
    EXPECT_TRUE(Peer::_contains(index, "a.kdb", 1));
  }
  EXPECT_EQ(folder.state(), before);
  EXPECT_EQ(os::faults::calls(Call::write), 0U);
  EXPECT_EQ(os::faults::calls(Call::set_end), 0U);
}

TEST_F(IndexSaving, WritesOneLinePerEntryInTheOrderOfTheKeys) {
  folder.write("00000001.kdb");
  folder.write("00000002.kdc");
  folder.write("notes.txt");
  folder.set_index(
      "notes.txt_0000000000/notes.txt\n"
      "budget.kdc_0000000042/00000002\n"
      "Sales Report.kdb_1199145600/00000001");
  rewrite();
  EXPECT_EQ(folder.index(),
            "Sales Report.kdb_1199145600/00000001\n"
            "budget.kdc_0000000042/00000002\n"
            "notes.txt_0000000000/notes.txt\n");
}

TEST_F(IndexSaving, OrdersKeysByTheirBytes) {
  const std::string text =
      "\x01_0000000001/f\n"
      " _0000000001/f\n"
      "A_0000000001/f\n"
      "a_0000000001/f\n"
      "a_0000000002/f\n"
      "aa_0000000001/f\n"
      "\x7F_0000000001/f\n"
      "\x80_0000000001/f\n"
      "\xFF_0000000001/f\n";
  folder.write("f");
  folder.set_index(text);
  rewrite();
  EXPECT_EQ(folder.index(), text);
}

TEST_F(IndexSaving, IsTakenBackUnchangedByLoading) {
  folder.write("f");
  folder.set_index("b_0000000001/f\na\r_0000000002/f\n_0000000000/f\n");
  NameMap lp;
  {
    STGIndex index = Peer::load(folder.path());
    lp = Peer::lp(index);
    Peer::set_need_update(index);
  }
  ASSERT_EQ(lp.size(), 3U);
  const std::string text = folder.index();
  {
    STGIndex index = Peer::load(folder.path());
    EXPECT_EQ(Peer::lp(index), lp);
    Peer::set_need_update(index);
  }
  EXPECT_EQ(folder.index(), text);
}

TEST_F(IndexSaving, WritesOneBlankForAnIndexWithoutEntries) {
  rewrite();
  EXPECT_EQ(folder.index(), " ");
  rewrite();
  EXPECT_EQ(folder.index(), " ");
  EXPECT_EQ(folder.names(), (Texts{"index.dat"}));
}

TEST_F(IndexSaving, WritesOneBlankWhenNoLineIsValidAnyMore) {
  folder.set_index("a.kdb_0000000001/00000001\nb.kdb_0000000001/00000002\n");
  rewrite();
  EXPECT_EQ(folder.index(), " ");
}

TEST_F(IndexSaving, CutsTheFileBehindAShorterText) {
  folder.write("00000001");
  folder.set_index("a_0000000001/00000001\n" + std::string(100000, 'x'));
  rewrite();
  EXPECT_EQ(folder.index(), "a_0000000001/00000001\n");
}

TEST_F(IndexSaving, DropsWhatIsInvalid) {
  folder.write("00000001");
  folder.set_index("a_0000000001/00000001\nb_0000000001/gone\nshort/00000001\nno slash\n");
  rewrite();
  EXPECT_EQ(folder.index(), "a_0000000001/00000001\n");
}

TEST_F(IndexSaving, KeepsEntriesThatShareAPhysicalName) {
  folder.write("00000001");
  folder.set_index("a_0000000001/00000001\nb_0000000001/00000001\n");
  rewrite();
  EXPECT_EQ(folder.index(), "a_0000000001/00000001\nb_0000000001/00000001\n");
}

TEST_F(IndexSaving, WritesTheFirstOfTwoLinesWithOneKey) {
  folder.write("00000001");
  folder.write("00000002");
  folder.set_index("a_0000000001/00000002\na_0000000001/00000001\n");
  rewrite();
  EXPECT_EQ(folder.index(), "a_0000000001/00000002\n");
}

TEST_F(IndexSaving, LosesAnEntryWhoseLogicalNameHoldsASlash) {
  // Written, but read back as another key, whose file would have to be named
  // "b_0000000001/00000001".
  {
    STGIndex index = Peer::load(folder.path());
    Peer::_create(index, "a/b", 1);
    Peer::_create(index, "other", 1);
  }
  EXPECT_EQ(folder.index(), "a/b_0000000001/00000001\nother_0000000001/00000002\n");
  rewrite();
  EXPECT_EQ(folder.index(), "other_0000000001/00000002\n");
}

TEST_F(IndexSaving, KeepsALineOfWhichTheSystemDoesNotTellAndSavesTheRest) {
  folder.write("00000001");
  // The file of the second line lies where nobody looks into; the third line's is missing.
  const std::string text = "a_0000000001/00000001\nb_0000000001/00000002\nc_0000000001/00000003\n";
  folder.set_index(text);
  recording_sink sink;
  {
    const auto fault = os::faults::fail(Call::probe_search, kRefused, 2);
    STGIndex index = Peer::load(folder.path());
    EXPECT_EQ(fault.hits(), 1U);
    EXPECT_FALSE(Peer::_contains(index, "b", 1)) << "a question takes it for missing";
    Peer::insert(index, "d_0000000001", "00000001");
    Peer::set_need_update(index);
  }
  EXPECT_EQ(folder.index(),
            "a_0000000001/00000001\nb_0000000001/00000002\nd_0000000001/00000001\n");
  EXPECT_EQ(
      sink.events(trace_event::error),
      Texts{"STGIndex: a line stays, for the system does not tell whether its file is there: " +
            folder.path("index.dat") + ": b_0000000001/00000002"});
  EXPECT_TRUE(index_is_free());
  rewrite();
  EXPECT_EQ(folder.index(), "a_0000000001/00000001\nd_0000000001/00000001\n")
      << "the next one can tell";
}

TEST_F(IndexSaving, KeepsLinesThatOthersWroteAndOfWhichTheSystemDoesNotTell) {
  folder.write("00000001");
  folder.set_index("a_0000000001/00000001\n");
  {
    STGIndex index = Peer::load(folder.path());
    folder.set_index("a_0000000001/00000001\nb_0000000001/00000002\n");
    Peer::insert(index, "c_0000000001", "00000001");
    Peer::set_need_update(index);
    const auto fault = os::faults::fail(Call::probe_search, kRefused, 1, Times::kLasting);
    const auto listing = os::faults::fail(Call::list, kRefused, 1, Times::kLasting);
    Peer::saveIndexFile(index);
    Peer::clear_need_update(index);
  }
  EXPECT_EQ(folder.index(),
            "a_0000000001/00000001\nb_0000000001/00000002\nc_0000000001/00000001\n");
}

TEST_F(IndexSaving, KeepsBothMapsInStepWithWhatItMerges) {
  folder.write("00000001");
  folder.write("00000002");
  folder.set_index("a_0000000001/00000001\nb_0000000001/00000002\n");
  {
    STGIndex index = Peer::load(folder.path());
    Peer::insert(index, "own_0000000001", "00000003");
    folder.write("00000003");
    // Somebody makes one entry anew and another one besides.
    folder.erase("00000001");
    folder.write("00000004");
    folder.write("00000005");
    folder.set_index("a_0000000001/00000004\nb_0000000001/00000002\nc_0000000001/00000005\n");
    Peer::saveIndexFile(index);
    EXPECT_EQ(Peer::lp(index), (STGIndex::NameMap{{"a_0000000001", "00000004"},
                                                  {"b_0000000001", "00000002"},
                                                  {"c_0000000001", "00000005"},
                                                  {"own_0000000001", "00000003"}}));
    EXPECT_EQ(Peer::pl(index), (STGIndex::NameMap{{"00000002", "b_0000000001"},
                                                  {"00000003", "own_0000000001"},
                                                  {"00000004", "a_0000000001"},
                                                  {"00000005", "c_0000000001"}}));
  }
}

TEST_F(IndexSaving, NamesALineThatItFindsOutNothingAbout) {
  folder.write("00000001.kdb");
  folder.set_index("a.kdb_0000000001/00000001\n");
  recording_sink sink;
  {
    STGIndex index = Peer::load(folder.path());
    Peer::_remove(index, "a.kdb", 1);
    const auto fault = os::faults::fail(Call::probe_search, kRefused, 1, Times::kLasting);
    Peer::saveIndexFile(index);
    Peer::clear_need_update(index);
  }
  EXPECT_EQ(folder.index(), "a.kdb_0000000001/00000001\n");
  EXPECT_EQ(sink.count(trace_event::error,
                       "STGIndex: a line stays, for the system does not tell whether its file is "
                       "there: " +
                           folder.path("index.dat") + ": a.kdb_0000000001/00000001"),
            1U);
}

TEST_F(IndexSaving, KeepsTheOrderOfTwoLinesOfOneKeyOfWhichOneIsNotKnown) {
  folder.write("00000001");
  folder.write("00000003");
  for (const bool unknown_first : {true, false}) {
    const std::string known = "b_0000000001/00000001\n";
    const std::string unknown = "b_0000000001/00000002\n";
    const std::string text = unknown_first ? unknown + known : known + unknown;
    folder.set_index("a_0000000001/00000003\n" + text);
    const auto fault = os::faults::fail(Call::probe_search, kRefused, 2);
    rewrite();
    EXPECT_EQ(fault.hits(), 1U);
    EXPECT_EQ(folder.index(), "a_0000000001/00000003\n" + text);
  }
}

TEST_F(IndexSaving, PutsLinesOfWhichTheSystemDoesNotTellIntoOrder) {
  folder.write("00000001");
  folder.set_index("c_0000000001/00000002\na_0000000001/00000003\nb_0000000001/00000001\n");
  {
    const auto fault = os::faults::fail(Call::probe_search, kRefused, 1, Times::kLasting);
    rewrite();
  }
  EXPECT_EQ(folder.index(),
            "a_0000000001/00000003\nb_0000000001/00000001\nc_0000000001/00000002\n");
}

TEST_F(IndexSaving, KeepsBothLinesOfAKeyWhereNobodyKnowsWhetherMineStillCounts) {
  folder.write("00000001");
  folder.write("00000002");
  folder.set_index("a_0000000001/00000001\n");
  {
    STGIndex index = Peer::load(folder.path());
    // Somebody removes the entry and makes it anew; then the system does not tell of the old one.
    folder.erase("00000001");
    folder.set_index("a_0000000001/00000002\n");
    Peer::set_need_update(index);
    const auto fault = os::faults::fail(Call::probe_search, kRefused, 2, Times::kLasting);
    Peer::saveIndexFile(index);
    Peer::clear_need_update(index);
    EXPECT_GE(fault.hits(), 1U);
  }
  EXPECT_EQ(folder.index(), "a_0000000001/00000001\na_0000000001/00000002\n");
  rewrite();
  EXPECT_EQ(folder.index(), "a_0000000001/00000002\n");
}

TEST_F(IndexSaving, IsNotStoppedByALineThatLeadsWhereNobodyMayLook) {
  // Whatever a line holds that this library did not write: other entries are saved.
  folder.write("00000001.kdb");
  const std::string odd = "zzz.kdb_0000000001/..\\priv\\x\n";
  folder.set_index("a.kdb_0000000001/00000001\n" + odd);
  const auto fault = os::faults::fail(Call::probe_search, kRefused, 4, Times::kLasting);
  // Asked for before: the logical name and the index, by the question and by the loading.
  EXPECT_EQ(STGIndex::create(folder.path(), "b.kdb", 1), "00000002.kdb");
  EXPECT_GE(fault.hits(), 1U);
  EXPECT_EQ(folder.index(), "a.kdb_0000000001/00000001\nb.kdb_0000000001/00000002\n" + odd);
}

TEST_F(IndexSaving, IsSureWithoutAListingWhenEachFileCanBeAskedFor) {
  folder.write("00000001");
  folder.set_index("a_0000000001/00000001\nb_0000000001/gone\n");
  const auto listings = os::faults::fail(Call::list, kRefused, 1, Times::kLasting);
  rewrite();
  EXPECT_EQ(folder.index(), "a_0000000001/00000001\n");
}

TEST_F(IndexSaving, DropsALineWhoseFileNoSystemCouldName) {
  folder.write("00000001");
  folder.set_index("a_0000000001/00000001\nb_0000000001/" + std::string(5000, 'x') +
                   "\nc_0000000001/00000001\\below\n");
  rewrite();
  EXPECT_EQ(folder.index(), "a_0000000001/00000001\n");
}

TEST_F(IndexSaving, WritesInPlaceUnderOneLock) {
  folder.write("00000001");
  folder.set_index("a_0000000001/00000001\nb_0000000001/gone\n");
  bool was_locked = false;
  const auto hook = os::faults::before(
      Call::write,
      [&] {
        vu_file reader(folder.path(), "index.dat");
        EXPECT_TRUE(reader.try_open(vu_file::o_read, was_locked, true));
        EXPECT_TRUE(was_locked);
      },
      1, Times::kLasting);
  os::faults::reset();
  rewrite();
  EXPECT_TRUE(was_locked);
  EXPECT_EQ(os::faults::calls(Call::write), 2U) << "the copy, and the text";
  EXPECT_EQ(os::faults::calls(Call::flush), 2U);
  EXPECT_EQ(os::faults::calls(Call::rename), 0U);
  EXPECT_EQ(os::faults::calls(Call::remove_file), 0U);
  EXPECT_TRUE(index_is_free());
  EXPECT_EQ(folder.names(), (Texts{"00000001", "index.dat"}));
}

TEST_F(IndexSaving, WritesNothingWhereTheTextIsTheSame) {
  folder.write("00000001");
  folder.set_index("a_0000000001/00000001\n");
  os::faults::reset();
  rewrite();
  EXPECT_EQ(os::faults::calls(Call::write), 0U);
  EXPECT_EQ(os::faults::calls(Call::set_end), 0U);
  EXPECT_EQ(os::faults::calls(Call::flush), 0U);
  EXPECT_EQ(folder.index(), "a_0000000001/00000001\n");
  EXPECT_TRUE(index_is_free());
  EXPECT_EQ(folder.names(), (Texts{"00000001", "index.dat"}));
}

TEST_F(IndexSaving, TracesItsBeginAndItsEnd) {
  recording_sink sink;
  rewrite();
  EXPECT_EQ(index_traces(sink), begin_texts() + end_texts());
  sink.clear();
  { const STGIndex index = Peer::load(folder.path()); }
  EXPECT_EQ(index_traces(sink), Texts{});
}

// ---- what a crash on the way leaves ------------------------------------------------------------

/// Loads, changes and saves a folder's index, with a check before and after every call of the seam.
void save_with_a_check_at_every_call(const index_folder& folder, const std::function<void()>& check,
                                     const std::function<void(STGIndex&)>& change) {
  const auto before = os::faults::before(Call::any, check, 1, Times::kLasting);
  const auto after = os::faults::after(Call::any, check, 1, Times::kLasting);
  STGIndex index = Peer::load(folder.path());
  change(index);
  Peer::set_need_update(index);
}

TEST_F(IndexSaving, NeverLeavesTheFileEmptyOnTheWay) {
  folder.write("00000001");
  const std::string line = "a_0000000001/00000001\n";
  for (const std::string& text : {line, line + std::string(9000, 'x'), std::string("x")}) {
    folder.set_index(text);
    int checks = 0;
    int empty = 0;
    const auto check = [&] {
      ++checks;
      if (std::filesystem::file_size(native(folder.path("index.dat"))) == 0) ++empty;
    };
    save_with_a_check_at_every_call(
        folder, check, [](STGIndex& index) { Peer::insert(index, "a_0000000001", "00000001"); });
    EXPECT_GT(checks, 20);
    EXPECT_EQ(empty, 0) << text.size();
    EXPECT_EQ(folder.index(), line) << text.size();
  }
}

#if !defined(_WIN32)
// Windows keeps other handles from reading what is locked.

/// So many entries with their files. @param skip one that is left out.
NameMap many_entries(const index_folder& folder, int count, int skip = 0) {
  NameMap entries;
  for (int i = 1; i <= count; ++i) {
    const std::string number = std::to_string(10000000 + i);
    if (!folder.has(number)) folder.write(number);
    if (i == skip) continue;
    // Some forty of them fill a page and a half; in another order than their files.
    entries[std::to_string(i % 7) + std::string(120, 'x') + number + "_0000000001"] = number;
  }
  return entries;
}

/// The bytes of an index as the library takes them.
std::string text_in(const std::string& bytes) {
  std::string storage;
  return std::string(replacement::text_of(bytes, storage));
}

/// The entries of a text are those of the old index or those of the new one.
void expect_old_or_new(const index_folder& folder, const std::string& text, const NameMap& old_lp,
                       const NameMap& new_lp) {
  NameMap lp;
  NameMap pl;
  plain_index::load(folder.path(), text, lp, pl);
  EXPECT_TRUE(lp == old_lp || lp == new_lp) << plain_index::shown(text);
}

struct Rewrite {
  std::string what;
  NameMap old_lp;
  NameMap new_lp;
  std::string old_text;
};

/// Rewrites of all kinds: within a page and beyond, longer, shorter, from the front and from the
/// back.
std::vector<Rewrite> rewrites(const index_folder& folder) {
  std::vector<Rewrite> result;
  const auto add = [&](const std::string& what, const NameMap& old_lp, const NameMap& new_lp,
                       const std::string& invalid_line = "") {
    result.push_back(
        {what, old_lp, new_lp, invalid_line + plain_index::text_of(folder.path(), old_lp)});
  };
  add("the first entry", {}, many_entries(folder, 1));
  add("the first page", {}, many_entries(folder, 40));
  add("one more, small", many_entries(folder, 3, 3), many_entries(folder, 3));
  add("one less, small", many_entries(folder, 3), many_entries(folder, 3, 1));
  add("one more, in front", many_entries(folder, 40, 7), many_entries(folder, 40));
  add("one more, behind", many_entries(folder, 40, 38), many_entries(folder, 40));
  add("one less, in front", many_entries(folder, 40), many_entries(folder, 40, 7));
  add("one less, behind", many_entries(folder, 40), many_entries(folder, 40, 38));
  add("fewer pages", many_entries(folder, 80), many_entries(folder, 20));
  add("to nothing", many_entries(folder, 40), {});
  add("no change", many_entries(folder, 40), many_entries(folder, 40));
  add("behind a line that is invalid", many_entries(folder, 40), many_entries(folder, 40),
      "a_0000000001/none\n");
  return result;
}

/// Replaces the index by the new entries, with whatever hooks and faults are in force.
void rewrite_index(const index_folder& folder, const Rewrite& change) {
  folder.set_index(change.old_text);
  STGIndex index = Peer::load(folder.path());
  NameMap pl;
  for (const auto& [key, stored] : change.new_lp) pl.emplace(stored, key);
  Peer::set_maps(index, change.new_lp, pl);
  Peer::set_need_update(index);
}

/// A line of the old index that the new one has not got counts as removed: its file has to go, or
/// the merge brings it back.
void remove_files_that_go(const index_folder& folder, const Rewrite& change) {
  for (const auto& [key, stored] : change.old_lp) {
    if (!change.new_lp.contains(key) && folder.has(stored)) folder.erase(stored);
  }
}

TEST_F(IndexSaving, LeavesOldLinesOrNewOnesAtEveryCallOfTheSystem) {
  for (const Rewrite& change : rewrites(folder)) {
    SCOPED_TRACE(change.what);
    many_entries(folder, 80);
    std::vector<std::string> seen;
    {
      const auto look = [&] { seen.push_back(folder.index()); };
      const auto before = os::faults::before(Call::any, look, 1, Times::kLasting);
      const auto after = os::faults::after(Call::any, look, 1, Times::kLasting);
      folder.set_index(change.old_text);
      remove_files_that_go(folder, change);
      rewrite_index(folder, change);
    }
    EXPECT_GT(seen.size(), 20U);
    for (const std::string& bytes : seen)
      expect_old_or_new(folder, text_in(bytes), change.old_lp, change.new_lp);
    EXPECT_EQ(folder.index(), plain_index::text_of(folder.path(), change.new_lp));
  }
}

TEST_F(IndexSaving, LeavesOldLinesOrNewOnesWhicheverWriteFails) {
  for (const Rewrite& change : rewrites(folder)) {
    SCOPED_TRACE(change.what);
    many_entries(folder, 80);
    remove_files_that_go(folder, change);
    for (std::uint64_t nth = 1;; ++nth) {
      const auto fault = os::faults::fail(Call::write, {28, os::Failure::kOther}, nth);
      EXPECT_NO_THROW(rewrite_index(folder, change));
      if (fault.hits() == 0) break;
      expect_old_or_new(folder, text_in(folder.index()), change.old_lp, change.new_lp);
      // The next one puts it right.
      rewrite();
      expect_old_or_new(folder, text_in(folder.index()), change.old_lp, change.new_lp);
    }
    EXPECT_EQ(folder.index(), plain_index::text_of(folder.path(), change.new_lp));
  }
}
#endif

TEST_F(IndexSaving, KeepsTheOldTextWhenNothingCanBeWritten) {
  folder.write("00000001");
  folder.set_index("b_0000000001/00000001\nc_0000000001/gone\n");
  recording_sink sink;
  {
    const auto fault = os::faults::fail(Call::write, {28, os::Failure::kOther});
    EXPECT_NO_THROW(rewrite());
  }
  EXPECT_EQ(sink.count(trace_event::error, "write file : " + folder.path("index.dat")), 1U);
  EXPECT_EQ(folder.index(), "b_0000000001/00000001\nc_0000000001/gone\n");
  EXPECT_TRUE(index_is_free());
}

TEST_F(IndexSaving, PutsTheOldTextBackWhereTheDeviceTookAPartOfTheNewOne) {
  const std::string text = "b_0000000001/00000001\nc_0000000001/00000001\n";
  folder.write("00000001");
  for (const std::size_t taken : {1U, 30U, 60U}) {
    for (const Times times : {Times::kOnce, Times::kLasting}) {
      folder.set_index(text);
      recording_sink sink;
      const auto fault =
          os::faults::cut_transfer(Call::write, taken, {28, os::Failure::kOther}, 1, times);
      {
        STGIndex index = Peer::load(folder.path());
        Peer::insert(index, "a_0000000001", "00000001");
        Peer::set_need_update(index);
      }
      EXPECT_GE(fault.hits(), 1U);
      EXPECT_EQ(folder.index(), text) << taken << " bytes";
      EXPECT_EQ(sink.count(trace_event::error, "write file : " + folder.path("index.dat")), 1U);
    }
  }
}

TEST_F(IndexSaving, KeepsTheOldTextWhenThereIsNoRoomForTheNewOne) {
  folder.write("00000001");
  folder.set_index("b_0000000001/00000001\n");
  recording_sink sink;
  const auto fault = os::faults::fail(Call::reserve, {28, os::Failure::kOther});
  os::faults::reset();
  {
    STGIndex index = Peer::load(folder.path());
    Peer::insert(index, "a_0000000001", "00000001");
    Peer::set_need_update(index);
  }
  EXPECT_EQ(fault.hits(), 1U);
  EXPECT_EQ(os::faults::calls(Call::write), 0U);
  EXPECT_EQ(sink.count(trace_event::error, "write file : " + folder.path("index.dat")), 1U);
  EXPECT_EQ(folder.index(), "b_0000000001/00000001\n");
}

TEST_F(IndexSaving, ReadsOnWhereAReadEndsEarlyOrTheSizeIsNotTold) {
  const std::string text = "a_0000000001/00000001\nb_0000000001/00000001\n";
  folder.write("00000001");
  // Of the load and of the save: the size, the text, the end.
  const auto disturbances = {
      +[](std::uint64_t nth) { return os::faults::cut_transfer(Call::read, 5, {}, 2 * nth - 1); },
      +[](std::uint64_t nth) { return os::faults::fail(Call::stat, kRefused, nth + 1); }};
  for (const auto& disturb : disturbances) {
    for (const std::uint64_t nth : {1U, 2U}) {
      folder.set_index(text);
      const auto fault = disturb(nth);
      {
        STGIndex index = Peer::load(folder.path());
        Peer::insert(index, "c_0000000001", "00000001");
        Peer::set_need_update(index);
      }
      EXPECT_EQ(fault.hits(), 1U);
      EXPECT_EQ(folder.index(), text + "c_0000000001/00000001\n");
    }
  }
  EXPECT_TRUE(index_is_free());
}

TEST_F(IndexSaving, KeepsWhatAnotherInstanceWroteMeanwhile) {
  recording_sink sink;
  {
    STGIndex first = Peer::load(folder.path());
    Peer::_create(first, "first.kdb", 1);
    {
      // There is no index yet, so that neither waits for the other's lock.
      STGIndex second = Peer::load(folder.path());
      Peer::_create(second, "second.kdb", 1);
    }
    EXPECT_EQ(folder.index(), "second.kdb_0000000001/00000002\n");
    sink.clear();
  }
  EXPECT_EQ(folder.index(), "first.kdb_0000000001/00000001\nsecond.kdb_0000000001/00000002\n");
  EXPECT_EQ(
      index_traces(sink),
      begin_texts() + Texts{"M:  add in my maps second.kdb_0000000001/00000002"} + end_texts());
}

TEST_F(IndexSaving, ReconcilesTwoThreadsThatLoadedTheSameIndex) {
  folder.write("00000005");
  folder.set_index("old_0000000001/00000005\n");
  std::atomic<int> loaded = 0;
  const auto create = [&](const std::string& logical) {
    STGIndex index = Peer::load(folder.path());
    ++loaded;
    while (loaded < 2) std::this_thread::yield();
    Peer::_create(index, logical, 1);
  };
  std::thread first(create, "a.kdb");
  std::thread second(create, "b.kdb");
  first.join();
  second.join();

  const STGIndex index = Peer::load(folder.path());
  EXPECT_EQ(Peer::lp(index).size(), 3U);
  EXPECT_TRUE(Peer::_contains(index, "a.kdb", 1));
  EXPECT_TRUE(Peer::_contains(index, "b.kdb", 1));
  EXPECT_TRUE(Peer::_contains(index, "old", 1));
  EXPECT_EQ(Peer::pl(index).size(), 3U);
}

TEST_F(IndexSaving, MergesWhatIsOnDiskBetweenItsTwoLocks) {
  folder.write("00000001");
  folder.write("00000002");
  folder.write("00000003");
  folder.set_index("a_0000000001/00000001\n");
  recording_sink sink;
  {
    // At the second opening the reader's lock has been given back and the writer's is not taken
    // yet.
    const auto other = [&] { folder.set_index("a_0000000001/00000001\nb_0000000001/00000002\n"); };
    const auto hook = os::faults::before(Call::open, other, 2);
    STGIndex index = Peer::load(folder.path());
    Peer::insert(index, "c_0000000001", "00000003");
    Peer::set_need_update(index);
    EXPECT_FALSE(Peer::_contains(index, "b", 1));
  }
  EXPECT_EQ(folder.index(),
            "a_0000000001/00000001\nb_0000000001/00000002\nc_0000000001/00000003\n");
  EXPECT_EQ(index_traces(sink),
            begin_texts() + Texts{"M:  add in my maps b_0000000001/00000002"} + end_texts());
}

TEST_F(IndexSaving, PrefersItsOwnPhysicalNameForAKey) {
  folder.write("00000001");
  folder.write("00000002");
  {
    STGIndex index = Peer::load(folder.path());
    Peer::insert(index, "a_0000000001", "00000001");
    Peer::set_need_update(index);
    folder.set_index("a_0000000001/00000002\n");
  }
  EXPECT_EQ(folder.index(), "a_0000000001/00000001\n");
}

TEST_F(IndexSaving, TakesAnEntryThatAnotherInstanceRemovedAndMadeAnew) {
  folder.write("00000001");
  folder.set_index("a_0000000001/00000001\n");
  const auto other = [&] {
    folder.erase("00000001");
    folder.write("00000002", "made anew");
    folder.set_index("a_0000000001/00000002\n");
  };
  recording_sink sink;
  {
    const auto hook = os::faults::before(Call::open, other, 2);
    STGIndex index = Peer::load(folder.path());
    Peer::insert(index, "b_0000000001", "00000002");
    Peer::set_need_update(index);
  }
  EXPECT_EQ(folder.index(), "a_0000000001/00000002\nb_0000000001/00000002\n");
  EXPECT_EQ(index_traces(sink),
            begin_texts() + Texts{"M:  add in my maps a_0000000001/00000002"} + end_texts());
}

TEST_F(IndexSaving, KeepsAnEntryOutThatIsGoneHereAndOnDisk) {
  folder.write("00000001");
  folder.set_index("a_0000000001/00000001\nb_0000000001/00000003\n");
  recording_sink sink;
  {
    STGIndex index = Peer::load(folder.path());
    folder.erase("00000001");
    // Somebody else saves in between, and drops the line.
    folder.set_index(" ");
    Peer::set_need_update(index);
  }
  EXPECT_EQ(folder.index(), " ");
  EXPECT_EQ(index_traces(sink), begin_texts() + end_texts());
}

TEST_F(IndexSaving, TakesAMergedEntryWhosePhysicalNameIsTaken) {
  folder.write("00000001");
  {
    STGIndex index = Peer::load(folder.path());
    Peer::insert(index, "a_0000000001", "00000001");
    Peer::set_need_update(index);
    folder.set_index("b_0000000001/00000001\n");
  }
  EXPECT_EQ(folder.index(), "a_0000000001/00000001\nb_0000000001/00000001\n");
}

TEST_F(IndexSaving, TakesNoLineOfAFileThatItIsAboutToRemove) {
  // Another key's line, written meanwhile, that leads to the renamed entry's old file.
  folder.write("00000001.kdb", "bytes of a");
  folder.write("00000002.kdb", "bytes of b");
  folder.write("index", "00000002");
  const std::string text = "a.kdb_0000000001/00000001\nb.kdb_0000000001/00000002\n";
  folder.set_index(text);
  recording_sink sink;
  {
    STGIndex index = Peer::load(folder.path());
    EXPECT_TRUE(Peer::_rename(index, "a.kdb", 1, "c.kdb", 1));
    folder.set_index(text + "z.kdb_0000000001/00000001\n");
    sink.clear();
  }
  EXPECT_EQ(folder.index(), "b.kdb_0000000001/00000002\nc.kdb_0000000001/00000003\n");
  EXPECT_FALSE(folder.has("00000001.kdb"));
  EXPECT_EQ(index_traces(sink), begin_texts() + end_texts());
}

TEST_F(IndexSaving, DoesNotBringBackWhatItRemoved) {
  folder.write("00000001.kdb");
  folder.write("00000002.kdb");
  folder.set_index("a.kdb_0000000001/00000001\nb.kdb_0000000001/00000002\n");
  {
    STGIndex index = Peer::load(folder.path());
    Peer::_remove(index, "a.kdb", 1);
  }
  EXPECT_EQ(folder.index(), "b.kdb_0000000001/00000002\n");
}

TEST_F(IndexSaving, BringsBackAnEntryWhoseFileCouldNotBeRemoved) {
  folder.write("00000001.kdb");
  folder.set_index("a.kdb_0000000001/00000001\n");
  recording_sink sink;
  {
    STGIndex index = Peer::load(folder.path());
    const auto fault = os::faults::fail(Call::remove_file, kRefused);
    Peer::_remove(index, "a.kdb", 1);
    EXPECT_FALSE(Peer::_contains(index, "a.kdb", 1));
  }
  EXPECT_EQ(folder.index(), "a.kdb_0000000001/00000001\n");
  EXPECT_EQ(sink.count(trace_level::m, " add in my maps a.kdb_0000000001/00000001"), 1U);
}

TEST_F(IndexSaving, TakesLinesThatHaveBecomeValidSinceLoading) {
  folder.write("00000001");
  folder.set_index("a_0000000001/00000001\nb_0000000001/00000002\n");
  {
    STGIndex index = Peer::load(folder.path());
    EXPECT_FALSE(Peer::_contains(index, "b", 1));
    folder.write("00000002");
    Peer::set_need_update(index);
  }
  EXPECT_EQ(folder.index(), "a_0000000001/00000001\nb_0000000001/00000002\n");
}

TEST_F(IndexSaving, DropsLinesThatHaveBecomeInvalidSinceLoading) {
  folder.write("00000001");
  folder.write("00000002");
  folder.set_index("a_0000000001/00000001\nb_0000000001/00000002\n");
  {
    STGIndex index = Peer::load(folder.path());
    folder.erase("00000002");
    EXPECT_TRUE(Peer::_contains(index, "b", 1));
    folder.set_index("a_0000000001/00000001\n");
    Peer::set_need_update(index);
  }
  EXPECT_EQ(folder.index(), "a_0000000001/00000001\n");
}

TEST_F(IndexSaving, JudgesEachLineOnceWhereNobodyElseHasSaved) {
  folder.write("00000001");
  folder.write("00000002");
  folder.set_index("a_0000000001/00000001\nb_0000000001/00000002\nc_0000000001/gone\n");
  os::faults::reset();
  rewrite();
  EXPECT_EQ(os::faults::calls(Call::list), 1U);
  EXPECT_EQ(folder.index(), "a_0000000001/00000001\nb_0000000001/00000002\n");
}

TEST_F(IndexSaving, JudgesTheLinesAgainThatLeadToAFileItHasRemoved) {
  folder.write("00000001.kdb");
  folder.write("notes.kdb");
  folder.set_index(
      "a.kdb_0000000001/00000001\nb.kdb_0000000001/00000001\nc_0000000001/00000001.kdb\n"
      "d_0000000001/.\\00000001.kdb\ne_0000000001/notes.kdb\n");
  STGIndex::remove(folder.path(), "a.kdb", 1);
  EXPECT_EQ(folder.index(), "e_0000000001/notes.kdb\n");
}

TEST_F(IndexSaving, WritesWhatMergingEveryLineWouldGive) {
  // Whatever happens between loading and saving: to the maps, to the files and to the index on
  // disk.
  std::mt19937 random(1234567);
  const auto one_of = [&random](const Texts& texts) { return texts[random() % texts.size()]; };
  const Texts lines = {
      "a_0000000001/f1\n",   "a_0000000001/f2\n",   "b_0000000001/f1\n", "b_0000000001/f2\n",
      "c.x_0000000001/f3\n", "d_0000000001/none\n", "short/f1\n",        "torn\n",
      "e_0000000001/\n"};
  const auto random_text = [&] {
    std::string text;
    for (std::size_t left = random() % 5; left != 0; --left) text += one_of(lines);
    return text;
  };
  std::size_t merged = 0;
  for (int round = 0; round < 300; ++round) {
    for (const char* const name : {"f1", "f2", "f3", "f3.x", "f4"}) {
      if (folder.has(name)) folder.erase(name);
      if (random() % 3 != 0) folder.write(name);
    }
    const std::string text = random_text();
    folder.set_index(text);
    NameMap expected;
    NameMap on_disk;
    NameMap unused;
    std::string history;
    const auto meanwhile = [&] {
      if (random() % 3 == 0) folder.set_index(random_text());
      history += "on disk " + plain_index::shown(folder.index());
      if (random() % 3 == 0) folder.write(one_of({"f1", "f2", "f3", "f4"}));
      // Where nobody else has saved, the lines that were valid at the loading stay.
      const std::string gone = one_of({"f1", "f2", "f3", "f4"});
      if (random() % 2 == 0 && folder.index() != text && folder.has(gone)) folder.erase(gone);
      plain_index::load(folder.path(), folder.index(), on_disk, unused);
    };
    {
      // The second opening is that for saving.
      const auto hook = os::faults::before(Call::open, meanwhile, 2);
      STGIndex index = Peer::load(folder.path());
      const std::string removed = one_of({"a", "b", "c.x", "d"});
      if (random() % 2 == 0) {
        Peer::_remove(index, removed, 1);
        history += "removed " + removed + " ";
      }
      if (random() % 3 == 0) Peer::insert(index, one_of({"a", "b", "g"}) + "_0000000001", "f4");
      Peer::set_need_update(index);
      expected = Peer::lp(index);
    }
    for (const auto& [key, stored] : on_disk) {
      const auto mine = expected.find(key);
      if (mine == expected.end()) ++merged;
      // A line of its own counts less than another one only when its file is gone.
      if (mine != expected.end() && plain_index::is_valid(folder.path(), key, mine->second))
        continue;
      expected[key] = stored;
    }
    ASSERT_EQ(folder.index(), plain_index::text_of(folder.path(), expected))
        << plain_index::shown(text) << " " << history;
  }
  EXPECT_GT(merged, 40U);
}

TEST_F(IndexSaving, DoesNotBringBackAnEntryMadeAndRemovedSinceTheLoading) {
  folder.write("00000001.kdb");
  folder.set_index("a.kdb_0000000001/00000001\n");
  {
    STGIndex index = Peer::load(folder.path());
    Peer::_create(index, "b.kdb", 1);
    const auto fault = os::faults::fail(Call::remove_file, kRefused);
    Peer::_remove(index, "b.kdb", 1);
    EXPECT_EQ(fault.hits(), 1U);
  }
  EXPECT_EQ(folder.index(), "a.kdb_0000000001/00000001\n");
}

TEST_F(IndexSaving, BringsBackARemovedEntryWhoseFileStays) {
  for (const int entries : {2, 20}) {
    const index_folder several;
    std::string text;
    for (int i = 10; i < 10 + entries; ++i) {
      several.write(std::to_string(i) + ".kdb");
      text += "doc" + std::to_string(i) + ".kdb_0000000001/" + std::to_string(i) + "\n";
    }
    several.set_index(text);
    {
      STGIndex index = Peer::load(several.path());
      const auto fault = os::faults::fail(Call::remove_file, kRefused, 2);
      for (int i = 10; i < 10 + entries; ++i) {
        Peer::_remove(index, "doc" + std::to_string(i) + ".kdb", 1);
      }
      EXPECT_EQ(fault.hits(), 1U);
    }
    EXPECT_EQ(several.index(), "doc11.kdb_0000000001/11\n");
  }
}

TEST_F(IndexSaving, JudgesWhatItHasRemovedAlsoBesideANewEntryOfSomebodyElse) {
  folder.write("00000001.kdb");
  folder.write("00000002.kdb");
  const std::string text = "a.kdb_0000000001/00000001\nb.kdb_0000000001/00000002\n";
  folder.set_index(text);
  {
    STGIndex index = Peer::load(folder.path());
    Peer::_remove(index, "a.kdb", 1);
    folder.write("foreign");
    folder.set_index(text + "foreign_0000000001/foreign\n");
    const recording_sink sink;
    Peer::saveIndexFile(index);
    Peer::clear_need_update(index);
    const Texts traces = index_traces(sink);
    const auto told = [&](const std::string& line) {
      return std::count(traces.begin(), traces.end(), "M:  add in my maps " + line);
    };
    EXPECT_EQ(told("foreign_0000000001/foreign"), 1);
    EXPECT_EQ(told("a.kdb_0000000001/00000001"), 0) << "its file is gone";
  }
  EXPECT_EQ(folder.index(), "b.kdb_0000000001/00000002\nforeign_0000000001/foreign\n");
}

TEST_F(IndexSaving, JudgesAgainWhatNoListingShowsWhenSomebodyElseHasSaved) {
  make_folder(folder.path("sub"));
  folder.write("sub\\one");
  folder.write("sub\\two");
  const std::string text = "a_0000000001/sub\\one\nb_0000000001/sub\\two\n";
  folder.set_index(text);
  {
    STGIndex index = Peer::load(folder.path());
    ASSERT_EQ(Peer::lp(index).size(), 2U);
    Peer::set_need_update(index);
    folder.erase("sub\\one");
    folder.write("foreign");
    folder.set_index(text + "foreign_0000000001/foreign\n");
  }
  EXPECT_EQ(folder.index(), "b_0000000001/sub\\two\nforeign_0000000001/foreign\n");
}

enum class Since { kNothing, kRemoval, kForeignEntry, kManyForeignEntries };

/// @param since what happened between the loading and the saving.
std::uint64_t calls_to_save(int entries, Since since) {
  const index_folder folder;
  std::string text;
  for (int i = 1; i <= entries; ++i) {
    const std::string number = std::to_string(10000000 + i);
    folder.write(number + ".kdb");
    text += "doc" + number + ".kdb_0000000001/" + number + "\n";
  }
  folder.set_index(text);
  {
    STGIndex index = Peer::load(folder.path());
    Peer::set_need_update(index);
    if (since == Since::kRemoval) Peer::_remove(index, "doc10000001.kdb", 1);
    const int foreign = since == Since::kForeignEntry         ? 1
                        : since == Since::kManyForeignEntries ? 40
                                                              : 0;
    for (int i = 10; i < 10 + foreign; ++i) {
      const std::string name = "foreign" + std::to_string(i);
      folder.write(name);
      text += name + "_0000000001/" + name + "\n";
    }
    if (foreign != 0) folder.set_index(text);
    os::faults::reset();
  }
  EXPECT_EQ(folder.index(), since == Since::kRemoval ? text.substr(text.find('\n') + 1) : text);
  // The loading has judged the lines that stand there still. Of a few others the files are asked
  // for, of many the folder is listed.
  EXPECT_EQ(os::faults::calls(Call::list), since == Since::kManyForeignEntries ? 1U : 0U);
  EXPECT_EQ(os::faults::calls(Call::probe_search), since == Since::kRemoval        ? 2U
                                                   : since == Since::kForeignEntry ? 1U
                                                                                   : 0U);
  return os::faults::calls(Call::any);
}

TEST_F(IndexSaving, AsksForAsManyFilesInALargeFolderAsInASmallOne) {
  for (const Since since :
       {Since::kNothing, Since::kRemoval, Since::kForeignEntry, Since::kManyForeignEntries}) {
    EXPECT_EQ(calls_to_save(5, since), calls_to_save(60, since));
  }
}

// ---- an index that cannot be opened ------------------------------------------------------------

TEST_F(IndexSaving, WarnsWhenTheIndexCannotBeOpened) {
  folder.write("00000001.kdb");
  folder.set_index("a.kdb_0000000001/00000001\n");
  recording_sink sink;
  {
    // Opened before: the index, the counter, the new file.
    const auto fault = os::faults::fail(Call::open, kRefused, 4);
    STGIndex index = Peer::load(folder.path());
    Peer::_create(index, "b.kdb", 1);
    sink.clear();
  }
  EXPECT_EQ(
      index_traces(sink),
      begin_texts() + Texts{"Warning: STGIndex::~STGIndex(): Unable to create/update index.dat - "
                            "please verify that you have write access and disk is not full.\n"
                            " Reason: throw exception on open"});
  EXPECT_EQ(folder.index(), "a.kdb_0000000001/00000001\n");
  // The change of the index is lost, that of the folder is not.
  EXPECT_TRUE(folder.has("00000001.kdb"));
  EXPECT_TRUE(folder.has("index"));
}

#if !defined(_WIN32)
// On Windows it depends on the user (and the emulator) whether the attribute keeps a writer out.
TEST_F(IndexSaving, WarnsWhenTheIndexIsReadOnly) {
  folder.set_index("a.kdb_0000000001/gone\n");
  make_read_only(folder.path("index.dat"));
  recording_sink sink;
  {
    STGIndex index = Peer::load(folder.path());
    Peer::_create(index, "b.kdb", 1);
  }
  EXPECT_EQ(sink.count(trace_event::warning,
                       "STGIndex::~STGIndex(): Unable to create/update index.dat - please verify "
                       "that you have write access and disk is not full.\n Reason: throw exception "
                       "on open"),
            1U);
  EXPECT_EQ(folder.index(), "a.kdb_0000000001/gone\n");
  EXPECT_TRUE(folder.has("00000001.kdb"));
}
#endif

TEST_F(IndexSaving, WarnsWhenTheFolderIsMissing) {
  const std::string missing = folder.path("missing");
  recording_sink sink;
  {
    STGIndex index = Peer::load(missing);
    Peer::set_need_update(index);
    sink.clear();
  }
  EXPECT_EQ(index_traces(sink),
            (Texts{"M:  STGIndex: (begin) updating index.dat ...", "M:   folder : " + missing,
                   "Warning: STGIndex::~STGIndex(): Unable to create/update index.dat - "
                   "please verify that you have write access and disk is not full.\n"
                   " Reason: throw exception on open"}));
  EXPECT_FALSE(folder.has("missing"));
}

TEST_F(IndexSaving, TracesTheTextOfTheExceptionThatTheOpeningRaised) {
  recording_sink sink;
  {
    const auto fault = os::faults::throw_from(Call::open, vu_file_except("the reason", 3));
    EXPECT_NO_THROW(rewrite());
  }
  EXPECT_EQ(sink.count(trace_event::warning,
                       "STGIndex::~STGIndex(): Unable to create/update index.dat - please verify "
                       "that you have write access and disk is not full.\n Reason: the reason"),
            1U);
  EXPECT_FALSE(folder.has_index());
}

// ---- exceptions that leave the destructor ------------------------------------------------------

TEST_F(IndexSaving, LetsOtherExceptionsOfTheOpeningOut) {
  folder.set_index(" ");
  recording_sink sink;
  {
    // The first opening loads.
    const auto fault = os::faults::throw_from(Call::open, std::bad_alloc(), 2);
    EXPECT_THROW(rewrite(), std::bad_alloc);
  }
  EXPECT_EQ(index_traces(sink), begin_texts());
  EXPECT_TRUE(index_is_free());
  EXPECT_EQ(folder.index(), " ");
}

TEST_F(IndexSaving, LetsAFailedReadOut) {
  folder.write("00000001");
  folder.set_index("a_0000000001/00000001\nb_0000000001/gone\n");
  recording_sink sink;
  {
    const auto fault = os::faults::fail(Call::read, kRefused, 3);
    try {
      rewrite();
      ADD_FAILURE() << "nothing was raised";
    } catch (const vu_file_except& e) {
      EXPECT_EQ(e.what(), "throw exception on read");
    }
    EXPECT_EQ(fault.hits(), 1U);
  }
  EXPECT_EQ(index_traces(sink), begin_texts() + not_read_texts());
  EXPECT_TRUE(index_is_free());
  EXPECT_EQ(folder.index(), "a_0000000001/00000001\nb_0000000001/gone\n");
}

TEST_F(IndexSaving, LetsExceptionsOfMergingOut) {
  folder.write("00000001");
  folder.set_index("a_0000000001/00000001\n");
  {
    const auto hook = os::faults::before(
        Call::open, [&] { folder.set_index("a_0000000001/00000001\nb_0000000001/00000001\n"); }, 2);
    const auto fault = os::faults::throw_from(Call::probe_search, std::runtime_error("merge"), 2);
    EXPECT_THROW(rewrite(), std::runtime_error);
    EXPECT_EQ(fault.hits(), 1U);
  }
  EXPECT_TRUE(index_is_free());
  EXPECT_EQ(folder.index(), "a_0000000001/00000001\nb_0000000001/00000001\n");
}

TEST_F(IndexSaving, LetsExceptionsOfWritingOut) {
  folder.write("00000001");
  folder.set_index("a_0000000001/00000001\nb_0000000001/gone\n");
  {
    const auto fault = os::faults::throw_from(Call::write, std::runtime_error("write"));
    EXPECT_THROW(rewrite(), std::runtime_error);
    EXPECT_EQ(fault.hits(), 1U);
  }
  EXPECT_TRUE(index_is_free());
  EXPECT_EQ(folder.index(), "a_0000000001/00000001\nb_0000000001/gone\n");
}

TEST_F(IndexSaving, LetsAVuFileExceptOfWritingOutToo) {
  folder.write("00000001");
  folder.set_index("a_0000000001/00000001\nb_0000000001/gone\n");
  recording_sink sink;
  {
    const auto fault = os::faults::throw_from(Call::write, vu_file_except("not guarded", 0));
    EXPECT_THROW(rewrite(), vu_file_except);
  }
  EXPECT_EQ(sink.count(trace_event::warning), 0U);
}

// ---- exceptions while another one unwinds ------------------------------------------------------

struct Unwinding {};

TEST_F(IndexSaving, SwallowsAFailedReadWhileAnotherExceptionUnwinds) {
  folder.write("00000001");
  folder.set_index("a_0000000001/00000001\n");
  recording_sink sink;
  {
    const auto fault = os::faults::fail(Call::read, kRefused, 3);
    EXPECT_THROW(
        {
          STGIndex index = Peer::load(folder.path());
          Peer::set_need_update(index);
          throw Unwinding();
        },
        Unwinding);
    EXPECT_EQ(fault.hits(), 1U);
  }
  EXPECT_EQ(index_traces(sink),
            begin_texts() + not_read_texts() + Texts{"Error: throw exception on read"});
  EXPECT_TRUE(index_is_free());
  EXPECT_EQ(folder.index(), "a_0000000001/00000001\n");
}

TEST_F(IndexSaving, TracesTheTextOfWhateverItSwallows) {
  const auto swallowed = [this](const std::exception_ptr& exception) {
    folder.set_index("b_0000000001/gone\n");
    recording_sink sink;
    const auto fault = os::faults::fail_with(Call::write, exception);
    EXPECT_THROW(
        {
          STGIndex index = Peer::load(folder.path());
          Peer::set_need_update(index);
          throw Unwinding();
        },
        Unwinding);
    EXPECT_EQ(fault.hits(), 1U);
    Texts errors;
    for (const std::string& text : index_traces(sink)) {
      if (text.starts_with("Error: ")) errors.push_back(text);
    }
    return errors;
  };
  EXPECT_EQ(swallowed(std::make_exception_ptr(std::runtime_error("of the library"))),
            (Texts{"Error: of the library"}));
  EXPECT_EQ(swallowed(std::make_exception_ptr(vu_file_except("of the file", 1))),
            (Texts{"Error: of the file"}));
  EXPECT_EQ(swallowed(std::make_exception_ptr(42)), (Texts{"Error: unknown exception"}));
}

TEST_F(IndexSaving, StillWritesWhileAnotherExceptionUnwinds) {
  EXPECT_THROW(
      {
        STGIndex index = Peer::load(folder.path());
        Peer::_create(index, "a.kdb", 1);
        throw Unwinding();
      },
      Unwinding);
  EXPECT_EQ(folder.index(), "a.kdb_0000000001/00000001\n");
}

TEST_F(IndexSaving, WarnsOnlyWhenTheIndexCannotBeOpenedWhileAnotherExceptionUnwinds) {
  recording_sink sink;
  EXPECT_THROW(
      {
        STGIndex index = Peer::load(folder.path("missing"));
        Peer::set_need_update(index);
        throw Unwinding();
      },
      Unwinding);
  EXPECT_EQ(index_traces(sink).back(),
            "Warning: STGIndex::~STGIndex(): Unable to create/update index.dat - "
            "please verify that you have write access and disk is not full.\n"
            " Reason: throw exception on open");
}

/// Runs something while an exception unwinds through it.
class AtUnwinding {
 public:
  explicit AtUnwinding(std::function<void()> action) : m_action(std::move(action)) {}
  ~AtUnwinding() { m_action(); }
  AtUnwinding(const AtUnwinding&) = delete;
  AtUnwinding& operator=(const AtUnwinding&) = delete;

 private:
  std::function<void()> m_action;
};

TEST_F(IndexSaving, LetsExceptionsOutWhenTheUnwindingBeganBeforeTheInstance) {
  folder.set_index(" ");
  recording_sink sink;
  bool raised = false;
  const auto action = [&] {
    const auto fault = os::faults::fail(Call::read, kRefused, 3);
    try {
      rewrite();
    } catch (const vu_file_except&) {
      raised = true;
    }
  };
  EXPECT_THROW(
      {
        const AtUnwinding at_unwinding(action);
        throw Unwinding();
      },
      Unwinding);
  EXPECT_TRUE(raised);
  EXPECT_EQ(index_traces(sink), begin_texts() + not_read_texts());
}

}  // namespace
