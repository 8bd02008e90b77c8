#include <gtest/gtest.h>

#include <filesystem>
#include <functional>
#include <string>

#include "file/replacement.h"
#include "platform/os/os.h"
#include "tests/support/recording_sink.h"
#include "tests/unit/index_saving_fixture.h"

// What a crash or a failed write leaves of an index that is being written back.

namespace {

using os::faults::Call;
using os::faults::Times;
using Peer = stg_index_test_peer;
using NameMap = STGIndex::NameMap;
using vu_host::trace_event;

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

}  // namespace
