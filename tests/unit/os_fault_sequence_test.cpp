#include <gtest/gtest.h>

#include <stdexcept>
#include <string>
#include <vector>

#include "platform/os/os.h"
#include "tests/support/os_faults.h"
#include "tests/support/os_recorder.h"
#include "tests/support/process.h"
#include "tests/support/scratch.h"
#include "tests/unit/os_test_kit.h"

// Faults by the number of a call, whichever function it is; ends of the process; and what a
// recorder writes down.

namespace {

namespace faults = os::faults;
using faults::Call;
using faults::Change;
using faults::Times;
using os::Failure;

const os::Status kPlanned(4711, Failure::kOther);
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
  static void write(os::Handle handle, const std::string& bytes) {
    std::size_t done = 0;
    EXPECT_TRUE(succeeds(os::write(handle, bytes.data(), bytes.size(), done)));
  }

  const scratch_folder m_scratch;
  const std::string m_path = m_scratch.path("file");
};

// ---- by number ----------------------------------------------------------------------------------

TEST_F(OsFaultSequence, TheCallsThatAskTheSystemAreListedInTheirOrder) {
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
  const os::Handle first = open(m_path);
  {
    const auto fault = faults::fail(Call::system, kPlanned);
    EXPECT_TRUE(fails(os::close(first), Failure::kOther, {4711, 4711}));
  }
  EXPECT_FALSE(os::close(first).ok());
  const os::Handle second = open(m_path);
  {
    const auto fault = faults::throw_from(Call::system, std::runtime_error("planned"));
    EXPECT_THROW(static_cast<void>(os::close(second)), std::runtime_error);
  }
  EXPECT_FALSE(os::close(second).ok());
}

TEST_F(OsFaultSequence, ACloseThatFailsByItsNameHasNot) {
  const os::Handle handle = open(m_path);
  {
    const auto fault = faults::fail(Call::close, kPlanned);
    EXPECT_FALSE(os::close(handle).ok());
  }
  EXPECT_TRUE(succeeds(os::close(handle)));
}

// ---- the end of the process ---------------------------------------------------------------------

/// args: a file; "before" or "after". Removes the file.
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

// ---- the recorder -------------------------------------------------------------------------------

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
  const auto cut = faults::cut_transfer(Call::write, 3, kPlanned);
  std::size_t done = 0;
  EXPECT_FALSE(os::write(other, "abcdef", 6, done).ok());
  EXPECT_TRUE(succeeds(os::close(other)));
  EXPECT_EQ(recorder.words(), (std::vector<std::string>{"write 3 at 0: file", "close: file"}));
}

TEST_F(OsFaultSequence, OtherFoldersAreNotRecorded) {
  const scratch_folder elsewhere;
  const faults::Recorder recorder(m_scratch.path());
  EXPECT_TRUE(succeeds(os::close(open(elsewhere.path("file")))));
  EXPECT_TRUE(succeeds(os::create_directory(elsewhere.path("folder"))));
  EXPECT_TRUE(recorder.changes().empty());
}

}  // namespace
