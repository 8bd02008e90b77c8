// The state of an index after a crash or a failed write during a save.

#include <gtest/gtest.h>

#include <filesystem>
#include <functional>
#include <memory>
#include <new>
#include <stdexcept>
#include <string>

#include "file/replacement.h"
#include "index/saving.h"
#include "platform/os/os.h"
#include "tests/support/recording_sink.h"
#include "tests/unit/index_fixture.h"

namespace {

using os::faults::Call;
using os::faults::Times;
using Peer = stg_index_test_peer;
using NameMap = STGIndex::NameMap;
using vu_host::trace_event;

/// Loads, changes and saves an index, with a check before and after every call of the seam.
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
// Windows blocks reads of a locked file.

/// Creates @p count entries with their files. @param skip an entry to leave out.
NameMap many_entries(const index_folder& folder, int count, int skip = 0) {
  NameMap entries;
  for (int i = 1; i <= count; ++i) {
    const std::string number = std::to_string(10000000 + i);
    if (!folder.has(number)) folder.write(number);
    if (i == skip) continue;
    // About forty entries fill one and a half pages. Their order differs from that of their files.
    entries[std::to_string(i % 7) + std::string(120, 'x') + number + "_0000000001"] = number;
  }
  return entries;
}

/// The text of the bytes as the library reads them.
std::string text_in(const std::string& bytes) {
  std::string storage;
  return std::string(replacement::text_of(bytes, storage));
}

/// Checks that the entries of a text are the old ones or the new ones.
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

/// Changes of all kinds: within a page and across pages, longer, shorter, at the front and at the
/// end.
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

/// Replaces the index by the new entries, under the current hooks and faults.
void rewrite_index(const index_folder& folder, const Rewrite& change) {
  folder.set_index(change.old_text);
  STGIndex index = Peer::load(folder.path());
  NameMap pl;
  for (const auto& [key, stored] : change.new_lp) pl.emplace(stored, key);
  Peer::set_maps(index, change.new_lp, pl);
  Peer::set_need_update(index);
}

/// A line that is missing in the new index means a removed entry. Its file must be removed, or the
/// merge restores the line.
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
    std::uint64_t nth = 1;
    for (;; ++nth) {
      const auto fault = os::faults::fail(Call::write, {28, os::Failure::kOther}, nth);
      EXPECT_NO_THROW(rewrite_index(folder, change));
      if (fault.hits() == 0) break;
      expect_old_or_new(folder, text_in(folder.index()), change.old_lp, change.new_lp);
      // The next save repairs it.
      rewrite();
      expect_old_or_new(folder, text_in(folder.index()), change.old_lp, change.new_lp);
    }
    EXPECT_EQ(nth > 1, folder.index() != change.old_text);
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

// A save that fails: its traces, and the exceptions that leave the destructor.

using os::faults::Call;
using Peer = stg_index_test_peer;
using vu_host::trace_event;

TEST_F(IndexSaving, WarnsWhenTheIndexCannotBeOpened) {
  folder.write("00000001.kdb");
  folder.set_index("a.kdb_0000000001/00000001\n");
  recording_sink sink;
  {
    // Earlier opens: the index, the counter, the new file.
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
  // The change of the index is lost; the change of the folder is not.
  EXPECT_TRUE(folder.has("00000001.kdb"));
  EXPECT_TRUE(folder.has("index"));
}

#if !defined(_WIN32)
// On Windows the effect of the attribute depends on the user and on Wine.
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

TEST_F(IndexSaving, LetsOtherExceptionsOfTheOpeningOut) {
  folder.set_index(" ");
  recording_sink sink;
  {
    // The first open is that of the load.
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
    const auto fault = os::faults::fail(Call::read, kRefused, 2);
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

struct Unwinding {};

TEST_F(IndexSaving, SwallowsAFailedReadWhileAnotherExceptionUnwinds) {
  folder.write("00000001");
  folder.set_index("a_0000000001/00000001\n");
  recording_sink sink;
  {
    const auto fault = os::faults::fail(Call::read, kRefused, 2);
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

/// Runs a function while an exception unwinds the stack.
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
    const auto fault = os::faults::fail(Call::read, kRefused, 2);
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

TEST_F(IndexSaving, FlushesBeforeItUnlocksWhenItsSecondTextIsNotWritten) {
  folder.write("00000001.kdb", "bytes");
  folder.write("index", "00000001");
  folder.set_index("a.kdb_0000000001/00000001\n");
  // The source stays, so the save writes a second text.
  std::unique_ptr<os::faults::Fault> broken;
  std::unique_ptr<os::faults::Fault> count;
  int flushes = 0;
  const auto hook = os::faults::before(Call::remove_file, [&] {
    broken.reset(new os::faults::Fault(os::faults::fail(Call::write, kRefused)));
    count.reset(new os::faults::Fault(os::faults::before(
        Call::flush, [&flushes] { ++flushes; }, 1, Times::kLasting)));
  });
  const auto fault = os::faults::fail(Call::remove_file, kRefused);
  STGIndex::rename(folder.path(), "a.kdb", 1, "b.kdb", 1);
  ASSERT_TRUE(broken);
  EXPECT_EQ(broken->hits(), 1U);
  EXPECT_GE(flushes, 1);
  EXPECT_EQ(folder.index(), "b.kdb_0000000001/00000002\n");
}

TEST_F(IndexSaving, HasWrittenAlsoWhenItsSecondTextRaisesAnException) {
  folder.write("00000001.kdb", "bytes");
  folder.write("index", "00000001");
  folder.set_index("a.kdb_0000000001/00000001\n");
  std::unique_ptr<os::faults::Fault> broken;
  const auto hook = os::faults::before(Call::remove_file, [&] {
    broken.reset(new os::faults::Fault(os::faults::fail(Call::read, kRefused)));
  });
  const auto fault = os::faults::fail(Call::remove_file, kRefused);
  const SaveWatch watch;
  EXPECT_THROW(STGIndex::rename(folder.path(), "a.kdb", 1, "b.kdb", 1), vu_file_except);
  ASSERT_TRUE(broken);
  EXPECT_EQ(broken->hits(), 1U);
  EXPECT_FALSE(watch.has_failed());
  EXPECT_TRUE(index_is_free());
  EXPECT_EQ(folder.index(), "b.kdb_0000000001/00000002\n");
}

}  // namespace
