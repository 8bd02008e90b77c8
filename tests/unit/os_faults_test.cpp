// The fault layer itself. A fault that has no effect would make every test with it worthless.

#include <gtest/gtest.h>

#include <cerrno>
#include <chrono>
#include <cstdint>
#include <mutex>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "platform/os/os.h"
#include "tests/support/os_calls.h"
#include "tests/support/os_faults.h"
#include "tests/support/process.h"
#include "tests/support/scratch.h"
#include "tests/unit/test_kit.h"

namespace {

namespace faults = os::faults;
using faults::Call;
using faults::Times;
using os::Failure;

const os::Status kPlanned(4711, Failure::kOther);

class OsFaults : public testing::Test {
 protected:
  OsFaults() { write_file(m_path, "0123456789"); }

  bool is_found() const { return os::probe_search(m_path).ok(); }

  const scratch_folder m_scratch;
  const std::string m_path = m_scratch.path("file");
};

TEST_F(OsFaults, OneCallFailsAndTheNextIsMade) {
  const auto fault = faults::fail(Call::probe_search, kPlanned);
  EXPECT_TRUE(fails(os::probe_search(m_path), Failure::kOther, {4711, 4711}));
  EXPECT_TRUE(is_found());
  EXPECT_EQ(fault.hits(), 1U);
}

TEST_F(OsFaults, CountingStartsWithTheRule) {
  EXPECT_TRUE(is_found());
  const auto fault = faults::fail(Call::probe_search, kPlanned, 3);
  EXPECT_TRUE(is_found());
  EXPECT_TRUE(is_found());
  EXPECT_FALSE(is_found());
  EXPECT_TRUE(is_found());
}

TEST_F(OsFaults, ALastingFaultEndsWithItsScope) {
  {
    const auto fault = faults::fail(Call::probe_search, kPlanned, 2, Times::kLasting);
    EXPECT_TRUE(is_found());
    EXPECT_FALSE(is_found());
    EXPECT_FALSE(is_found());
    EXPECT_EQ(fault.hits(), 2U);
  }
  EXPECT_TRUE(is_found());
}

TEST_F(OsFaults, OtherFunctionsAreNotConcerned) {
  const auto fault = faults::fail(Call::probe_search, kPlanned, 1, Times::kLasting);
  os::FileStat data;
  EXPECT_TRUE(succeeds(os::stat(m_path, data)));
  EXPECT_EQ(fault.hits(), 0U);
}

TEST_F(OsFaults, AFailedCallDoesNothing) {
  const auto remove = faults::fail(Call::remove_file, kPlanned);
  EXPECT_FALSE(os::remove_file(m_path).ok());
  EXPECT_TRUE(file_exists(m_path));
  const auto open = faults::fail(Call::open, kPlanned);
  os::Handle handle = 77;
  EXPECT_FALSE(os::open(m_path, os::Access::kReadExisting, handle).ok());
  EXPECT_EQ(handle, os::kNoHandle);
}

TEST_F(OsFaults, TheLastErrorAgreesUntilTheNextCall) {
  const auto fault = faults::fail(Call::probe_search, kPlanned);
  EXPECT_FALSE(is_found());
  EXPECT_EQ(os::last_error(), 4711);
  EXPECT_EQ(os::last_error(), 4711);
  os::FileStat data;
  EXPECT_FALSE(os::stat(m_scratch.path("missing"), data).ok());
  EXPECT_NE(os::last_error(), 4711);
}

TEST_F(OsFaults, ACallThrowsWhatIsPlanned) {
  const auto fault = faults::throw_from(Call::flush, std::runtime_error("planned"), 2);
  OpenFile file(m_path, os::Access::kReadWriteCreate);
  EXPECT_TRUE(succeeds(os::flush(file.get())));
  try {
    (void)os::flush(file.get());
    FAIL() << "nothing was thrown";
  } catch (const std::runtime_error& error) {
    EXPECT_STREQ(error.what(), "planned");
  }
  EXPECT_TRUE(succeeds(os::flush(file.get())));
}

TEST_F(OsFaults, ATransferIsCutShortAndReportsWhatIsPlanned) {
  OpenFile file(m_path, os::Access::kReadWriteCreate);
  {
    const auto fault = faults::cut_transfer(Call::read, 4);
    EXPECT_EQ(file.read(10), "0123");
    EXPECT_EQ(file.read(3), "456");
  }
  const auto fault = faults::cut_transfer(Call::write, 2, kPlanned);
  std::size_t done = 0;
  EXPECT_TRUE(fails(os::write(file.get(), "abc", 3, done), Failure::kOther, {4711, 4711}));
  EXPECT_EQ(done, 2U);
  EXPECT_EQ(os::last_error(), 4711);
  EXPECT_EQ(read_file(m_path), "0123456ab9");
  const auto whole = faults::fail(Call::write, kPlanned, 1, faults::Times::kLasting);
  done = 77;
  EXPECT_FALSE(os::write(file.get(), "abc", 3, done).ok());
  EXPECT_EQ(done, 0U);
  done = 77;
  EXPECT_FALSE(os::write_at(file.get(), 0, "abc", 3, done).ok());
  EXPECT_EQ(done, 0U);
  EXPECT_EQ(read_file(m_path), "0123456ab9");
}

TEST_F(OsFaults, HooksRunAroundTheCallAndMayUseTheSeam) {
  std::vector<std::string> order;
  const auto before = faults::before(
      Call::remove_file, [&] { order.push_back(is_found() ? "before: there" : "before: gone"); });
  const auto after = faults::after(
      Call::remove_file, [&] { order.push_back(is_found() ? "after: there" : "after: gone"); });
  EXPECT_TRUE(succeeds(os::remove_file(m_path)));
  EXPECT_EQ(order, (std::vector<std::string>{"before: there", "after: gone"}));
}

TEST_F(OsFaults, AHookAndAFaultMeetInOneCall) {
  bool ran = false;
  const auto hook = faults::before(Call::remove_file, [&] { ran = true; });
  const auto fault = faults::fail(Call::remove_file, kPlanned);
  EXPECT_FALSE(os::remove_file(m_path).ok());
  EXPECT_TRUE(ran);
  EXPECT_TRUE(file_exists(m_path));
}

TEST_F(OsFaults, OfTwoFaultsTheOlderDecides) {
  const auto older = faults::fail(Call::probe_search, {1, Failure::kNotFound});
  const auto newer = faults::fail(Call::probe_search, {2, Failure::kOther}, 1, Times::kLasting);
  EXPECT_EQ(os::probe_search(m_path).code(), 1);
  EXPECT_EQ(os::probe_search(m_path).code(), 2);
}

TEST_F(OsFaults, AnyFunctionCanBeMeant) {
  const auto fault = faults::fail(Call::any, kPlanned, 3);
  EXPECT_TRUE(is_found());
  os::FileStat data;
  EXPECT_TRUE(succeeds(os::stat(m_path, data)));
  EXPECT_FALSE(os::remove_file(m_path).ok());
  EXPECT_TRUE(succeeds(os::remove_file(m_path)));
}

TEST_F(OsFaults, TheClockTheLeadBytesAndTheFamilyAreSet) {
  {
    const auto clock = faults::set_now(1'199'145'600);
    const auto bytes = faults::set_lead_bytes("\x81\xE0");
    const auto family = faults::set_nt_family(false);
    EXPECT_EQ(os::now(), 1'199'145'600);
    EXPECT_TRUE(os::is_lead_byte(0x81));
    EXPECT_TRUE(os::is_lead_byte(0xE0));
    EXPECT_FALSE(os::is_lead_byte('a'));
    EXPECT_FALSE(os::nt_family());
  }
  EXPECT_GT(os::now(), 1'199'145'600);
  EXPECT_TRUE(os::nt_family());
}

TEST_F(OsFaults, FunctionsWithoutAStatusAnswerPoorly) {
  const auto narrow_text = faults::fail(Call::to_narrow, kPlanned);
  const auto text = faults::fail(Call::error_text, kPlanned);
  const auto wide_text = faults::fail(Call::error_text_wide, kPlanned);
  const auto code = faults::fail(Call::last_error, kPlanned);
  EXPECT_EQ(os::to_narrow(ucs2string(u"a")), "");
  EXPECT_EQ(os::error_text(0), "");
  EXPECT_TRUE(os::error_text_wide(0).empty());
  EXPECT_EQ(os::last_error(), 4711);
}

TEST_F(OsFaults, CallsAreCounted) {
  faults::reset();
  EXPECT_EQ(faults::calls(Call::any), 0U);
  is_found();
  is_found();
  const auto fault = faults::fail(Call::stat, kPlanned);
  os::FileStat data;
  EXPECT_FALSE(os::stat(m_path, data).ok());
  EXPECT_EQ(faults::calls(Call::probe_search), 2U);
  EXPECT_EQ(faults::calls(Call::stat), 1U);
  EXPECT_EQ(faults::calls(Call::any), 3U);
  faults::reset();
  EXPECT_EQ(faults::calls(Call::any), 0U);
  EXPECT_STREQ(faults::name(Call::probe_search), "probe_search");
  EXPECT_STREQ(faults::name(Call::open), "open");
  EXPECT_STREQ(faults::name(Call::nt_family), "nt_family");
  EXPECT_STREQ(faults::name(Call::any), "any");
}

TEST_F(OsFaults, AnotherThreadIsHeldByAHook) {
  std::mutex gate;
  gate.lock();
  bool gone_on = false;
  const auto hook = faults::before(Call::remove_file, [&] { const std::scoped_lock wait(gate); });
  std::thread thread([&] {
    EXPECT_TRUE(succeeds(os::remove_file(m_path)));
    gone_on = true;
  });
  while (hook.hits() == 0) std::this_thread::yield();
  EXPECT_TRUE(is_found());
  gate.unlock();
  thread.join();
  EXPECT_TRUE(gone_on);
  EXPECT_FALSE(is_found());
}

// Faults by call number for every function, ends of the process, and the recorder.

namespace faults = os::faults;
using faults::Call;
using faults::Change;
using faults::Times;
using os::Failure;

constexpr std::int16_t kFromStart = 0;
constexpr std::int16_t kFromHere = 1;
constexpr std::int16_t kFromEnd = 2;

class OsFaultSequence : public testing::Test {
 protected:
  OsFaultSequence() { write_file(m_path, "0123456789"); }

  os::Handle open(const std::string& path) {
    os::Handle handle = os::kNoHandle;
    EXPECT_TRUE(succeeds(os::open(path, os::Access::kReadWriteCreate, handle)));
    return handle;
  }
  /// A new handle of the file, with an exclusive lock. No other handle has a lock then.
  os::Handle open_and_lock() {
    const os::Handle handle = open(m_path);
    alignas(os::kLockRegionAlign) unsigned char region[os::kLockRegionSize] = {};
    const std::uint32_t flags = os::kLockFailAtOnce | os::kLockExclusive;
    EXPECT_TRUE(succeeds(os::lock(handle, {flags, 0, 0xFFFFFFFF, 0xFFFFFFFF, region})));
    return handle;
  }
  static void write(os::Handle handle, const std::string& bytes) {
    std::size_t done = 0;
    EXPECT_TRUE(succeeds(os::write(handle, bytes.data(), bytes.size(), done)));
  }

  const scratch_folder m_scratch;
  const std::string m_path = m_scratch.path("file");
};

TEST_F(OsFaultSequence, CallsThatQueryTheSystemAreRecordedInOrder) {
  faults::begin_sequence();
  os::now();
  const os::Handle handle = open(m_path);
  os::is_lead_byte('a');
  write(handle, "x");
  EXPECT_TRUE(succeeds(os::close(handle)));
  EXPECT_EQ(faults::end_sequence(), (std::vector<Call>{Call::open, Call::write, Call::close}));
  os::now();
  faults::begin_sequence();
  EXPECT_EQ(faults::end_sequence(), std::vector<Call>{});
}

TEST_F(OsFaultSequence, TheNthOfThemFailsWhateverItIs) {
  const auto fault = faults::fail(Call::system, kPlanned, 2);
  const os::Handle handle = open(m_path);
  os::now();
  EXPECT_TRUE(fails(os::flush(handle), Failure::kOther, {4711, 4711}));
  EXPECT_TRUE(succeeds(os::flush(handle)));
  EXPECT_EQ(fault.hits(), 1U);
  EXPECT_TRUE(succeeds(os::close(handle)));
}

TEST_F(OsFaultSequence, FunctionsWithoutAStatusAreNotConcerned) {
  const auto fault = faults::fail(Call::system, kPlanned, 1, Times::kLasting);
  EXPECT_NE(os::now(), 0);
  EXPECT_EQ(fault.hits(), 0U);
  faults::reset();
  static_cast<void>(os::flush(os::kNoHandle));
  os::now();
  EXPECT_EQ(faults::calls(Call::system), 1U);
  EXPECT_EQ(faults::calls(Call::any), 2U);
  EXPECT_STREQ(faults::name(Call::system), "system");
}

TEST_F(OsFaultSequence, ACloseThatFailsByNumberHasClosed) {
  // The lock shows it. A second close could close another handle that has got the number since.
  const os::Handle first = open_and_lock();
  {
    const auto fault = faults::fail(Call::system, kPlanned);
    EXPECT_TRUE(fails(os::close(first), Failure::kOther, {4711, 4711}));
  }
  const os::Handle second = open_and_lock();
  {
    const auto fault = faults::throw_from(Call::system, std::runtime_error("planned"));
    EXPECT_THROW(static_cast<void>(os::close(second)), std::runtime_error);
  }
  EXPECT_TRUE(succeeds(os::close(open_and_lock())));
}

TEST_F(OsFaultSequence, ACloseThatFailsByItsNameHasNot) {
  const os::Handle handle = open(m_path);
  {
    const auto fault = faults::fail(Call::close, kPlanned);
    EXPECT_FALSE(os::close(handle).ok());
  }
  EXPECT_TRUE(succeeds(os::close(handle)));
}

/// args: a file; "before" or "after". Removes the file, with the end of the process before or after
/// that.
int remover_that_ends(const std::vector<std::string>& args) {
  const auto end = args.at(1) == "before" ? faults::end_process_before(Call::remove_file)
                                          : faults::end_process_after(Call::remove_file);
  static_cast<void>(os::remove_file(args.at(0)));
  return 0;
}
REGISTER_ROLE(remover_that_ends, remover_that_ends)

TEST_F(OsFaultSequence, TheProcessEndsBeforeTheCall) {
  child_process child("remover_that_ends", {m_path, "before"});
  EXPECT_EQ(child.wait(), faults::kEnded);
  EXPECT_TRUE(file_exists(m_path));
}

TEST_F(OsFaultSequence, TheProcessEndsAfterTheCall) {
  child_process child("remover_that_ends", {m_path, "after"});
  EXPECT_EQ(child.wait(), faults::kEnded);
  EXPECT_FALSE(file_exists(m_path));
}

TEST_F(OsFaultSequence, WritesAreRecordedWithTheirFileOffsetAndBytes) {
  const faults::Recorder recorder(m_scratch.path());
  const os::Handle handle = open(m_path);
  write(handle, "ab");
  EXPECT_TRUE(succeeds(os::seek(handle, 3, kFromHere)));
  write(handle, "c");
  EXPECT_TRUE(succeeds(os::seek(handle, -1, kFromEnd)));
  write(handle, "de");
  EXPECT_TRUE(succeeds(os::seek(handle, 1, kFromStart)));
  char buffer[4] = {};
  std::size_t done = 0;
  EXPECT_TRUE(succeeds(os::read(handle, buffer, sizeof buffer, done)));
  EXPECT_TRUE(succeeds(os::set_end(handle)));
  EXPECT_TRUE(succeeds(os::flush(handle)));
  EXPECT_TRUE(succeeds(os::close(handle)));
  EXPECT_EQ(recorder.words(), (std::vector<std::string>{"write 2 at 0: file", "write 1 at 5: file",
                                                        "write 2 at 9: file", "cut at 5: file",
                                                        "flush: file", "close: file"}));
  EXPECT_EQ(recorder.changes().at(2), (Change{Change::What::kWrite, "file", "", 9, "de"}));
}

TEST_F(OsFaultSequence, AFileIsMadeOnlyOnce) {
  const faults::Recorder recorder(m_scratch.path());
  for (int i = 0; i < 2; ++i) EXPECT_TRUE(succeeds(os::close(open(m_scratch.path("new")))));
  EXPECT_TRUE(succeeds(os::remove_file(m_scratch.path("new"))));
  EXPECT_TRUE(succeeds(os::close(open(m_scratch.path("new")))));
  EXPECT_EQ(recorder.words(),
            (std::vector<std::string>{"create: new", "close: new", "close: new", "remove: new",
                                      "create: new", "close: new"}));
}

TEST_F(OsFaultSequence, NamesAndFoldersAreRecorded) {
  const faults::Recorder recorder(m_scratch.path());
  EXPECT_TRUE(succeeds(os::create_directory(m_scratch.path("a"))));
  EXPECT_TRUE(succeeds(os::rename(m_path, m_scratch.path("a\\b"))));
  EXPECT_TRUE(succeeds(os::copy(m_scratch.path("a\\b"), m_scratch.path("c"), os::IfExists::kFail)));
  EXPECT_TRUE(succeeds(os::remove_file(m_scratch.path("a/b"))));
  EXPECT_TRUE(succeeds(os::remove_directory(m_scratch.path("a"))));
  EXPECT_EQ(recorder.words(),
            (std::vector<std::string>{"make folder: a", "rename: file to a/b", "create: c",
                                      "write 10 at 0: c", "remove: a/b", "remove folder: a"}));
}

TEST_F(OsFaultSequence, WhatFailsIsNotRecordedAndWhatIsCutShortIsAsFarAsItWent) {
  const os::Handle handle = open(m_path);
  const faults::Recorder recorder(m_scratch.path());
  const auto removal = faults::fail(Call::remove_file, kPlanned);
  EXPECT_FALSE(os::remove_file(m_path).ok());
  EXPECT_FALSE(os::create_directory(m_path).ok());
  EXPECT_TRUE(succeeds(os::close(handle)));
  const os::Handle other = open(m_path);
  const auto cut = faults::cut_transfer(Call::write, 3, kPlanned, 1, faults::Times::kLasting);
  std::size_t done = 0;
  EXPECT_FALSE(os::write(other, "abcdef", 6, done).ok());
  EXPECT_FALSE(os::write_at(other, 7, "abcdef", 6, done).ok());
  EXPECT_TRUE(succeeds(os::close(other)));
  EXPECT_EQ(recorder.words(),
            (std::vector<std::string>{"write 3 at 0: file", "write 3 at 7: file", "close: file"}));
}

TEST_F(OsFaultSequence, OtherFoldersAreNotRecorded) {
  const scratch_folder elsewhere;
  const faults::Recorder recorder(m_scratch.path());
  EXPECT_TRUE(succeeds(os::close(open(elsewhere.path("file")))));
  EXPECT_TRUE(succeeds(os::create_directory(elsewhere.path("folder"))));
  EXPECT_TRUE(recorder.changes().empty());
}

// A barrier stops the threads that make its call, and no other thread.

using namespace std::chrono_literals;
using os::faults::Barrier;
using os::faults::Call;

class OsBarrier : public testing::Test {
 protected:
  OsBarrier() {
    for (const char* const name : {"one", "two"}) write_file(m_scratch.path(name), "");
  }
  std::thread remover(const std::string& name) {
    return std::thread(
        [path = m_scratch.path(name)] { EXPECT_TRUE(succeeds(os::remove_file(path))); });
  }
  bool is_there(const std::string& name) const { return file_exists(m_scratch.path(name)); }

  const scratch_folder m_scratch;
};

TEST_F(OsBarrier, AThreadWaitsBeforeTheCallUntilItIsReleased) {
  Barrier barrier("before the removal", Call::remove_file);
  EXPECT_FALSE(barrier.is_reached(0ms));
  EXPECT_EQ(Barrier::waiting(), std::vector<std::string>{});
  std::thread thread = remover("one");
  ASSERT_TRUE(barrier.is_reached());
  EXPECT_TRUE(is_there("one"));
  EXPECT_EQ(Barrier::waiting(), std::vector<std::string>{"before the removal"});
  EXPECT_EQ(barrier.name(), "before the removal");
  barrier.let_go();
  thread.join();
  EXPECT_FALSE(is_there("one"));
  EXPECT_FALSE(barrier.is_reached(0ms));
  EXPECT_EQ(Barrier::waiting(), std::vector<std::string>{});
}

TEST_F(OsBarrier, OnlyTheNthCallIsHeld) {
  Barrier barrier("the second removal", Call::remove_file, 2);
  remover("one").join();
  EXPECT_FALSE(is_there("one"));
  std::thread thread = remover("two");
  ASSERT_TRUE(barrier.is_reached());
  EXPECT_TRUE(is_there("two"));
  barrier.let_go();
  thread.join();
}

TEST_F(OsBarrier, TwoBarriersAreDistinguishedByTheirNames) {
  Barrier first("first", Call::remove_file);
  Barrier second("second", Call::remove_file, 2);
  std::thread one = remover("one");
  ASSERT_TRUE(first.is_reached());
  std::thread two = remover("two");
  ASSERT_TRUE(second.is_reached());
  EXPECT_EQ(Barrier::waiting(), (std::vector<std::string>{"first", "second"}));
  first.let_go();
  one.join();
  EXPECT_FALSE(is_there("one"));
  EXPECT_TRUE(is_there("two"));
  EXPECT_EQ(Barrier::waiting(), std::vector<std::string>{"second"});
  second.let_go();
  two.join();
}

TEST_F(OsBarrier, ItsEndLetsEverybodyGo) {
  std::thread thread;
  {
    const Barrier barrier("gone soon", Call::remove_file);
    thread = remover("one");
    ASSERT_TRUE(barrier.is_reached());
  }
  thread.join();
  EXPECT_FALSE(is_there("one"));
}

}  // namespace
