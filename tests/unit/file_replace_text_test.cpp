// Atomic replacement of the content of an open file.

#include "file/handle_core.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <fstream>
#include <string>
#include <utility>
#include <vector>

#include "file/replacement.h"
#include "tests/support/file_spellings.h"
#include "tests/support/recording_sink.h"
#include "tests/support/scratch.h"
#include "tests/unit/test_kit.h"

namespace {

namespace faults = os::faults;
using base = vu_file_base;
using faults::Call;
using vu_host::trace_event;
using list = std::vector<std::string>;

const std::string kOld = "a_0000000001/00000001\n";
const std::string kNew = "a_0000000001/00000001\nb_0000000001/00000002\n";

class ReplaceAndClose : public testing::Test {
 protected:
  ReplaceAndClose() : m_file(m_dir.path("f")) { open(kOld); }

  void open(const std::string& bytes) {
    m_file.close();
    write_file(m_dir.path("f"), bytes);
    m_file.open(base::o_append);
    m_bytes = bytes;
  }
  replacement::Holds replace(const std::string& text) {
    return replace_and_close(m_file, m_bytes, text);
  }
  std::string content() const { return read_file(m_dir.path("f")); }
  /// The content as the library reads it.
  std::string text() const {
    std::string storage;
    const std::string bytes = content();
    return std::string(replacement::text_of(bytes, storage));
  }
  list failure(const std::string& what) const {
    return {what + " : " + m_dir.path("f"), "Error message :" + os::error_text(5)};
  }

  scratch_folder m_dir;
  vu_file m_file;
  std::string m_bytes;
};

}  // namespace

TEST_F(ReplaceAndClose, LeavesExactlyTheNewTextAndAClosedFile) {
  std::string before = kOld;
  for (const std::string& after : {kNew, kOld, std::string(" "), kNew, std::string("x")}) {
    open(before);
    EXPECT_EQ(replace(after), replacement::Holds::kNewText);
    EXPECT_FALSE(m_file.is_open());
    EXPECT_EQ(content(), after);
    before = after;
  }
}

TEST_F(ReplaceAndClose, DoesNotDependOnThePosition) {
  std::string text;
  m_file.read(text, 4);
  replace(kNew);
  EXPECT_EQ(content(), kNew);
}

TEST_F(ReplaceAndClose, FlushesTheCopyAndTheTextAndNotTheCut) {
  std::vector<Call> order;
  const auto note = [&](Call call) {
    return faults::before(
        call, [&order, call] { order.push_back(call); }, 1, faults::Times::kLasting);
  };
  const auto reserve = note(Call::reserve);
  const auto write = note(Call::write);
  const auto flush = note(Call::flush);
  const auto set_end = note(Call::set_end);
  const auto unlock = note(Call::unlock);
  replace(kNew);
  EXPECT_EQ(order, (std::vector<Call>{Call::reserve, Call::write, Call::flush, Call::write,
                                      Call::flush, Call::set_end, Call::unlock}));
}

TEST_F(ReplaceAndClose, OfDigitsFlushesOnceAndCutsNothing) {
  open("00000041");
  faults::reset();
  replace("00000042");
  EXPECT_EQ(faults::calls(Call::write), 1U);
  EXPECT_EQ(faults::calls(Call::flush), 1U);
  EXPECT_EQ(faults::calls(Call::set_end), 0U);
  EXPECT_EQ(content(), "00000042");
}

TEST_F(ReplaceAndClose, ThatFailsInTheCopyIsTracedAndTakenBack) {
  for (const os::Status status : {kRefused, os::Status()}) {
    open(kOld);
    const auto fault = faults::cut_transfer(Call::write, 30, status);
    recording_sink sink;
    EXPECT_EQ(replace(kNew), replacement::Holds::kOldText);
    EXPECT_EQ(sink.count(trace_event::error, "write file : " + m_dir.path("f")), 1U);
    EXPECT_FALSE(m_file.is_open());
    EXPECT_EQ(content(), kOld);
  }
}

TEST_F(ReplaceAndClose, WhoseCopyIsNotFlushedIsTakenBack) {
  const auto fault = faults::fail(Call::flush, kRefused);
  recording_sink sink;
  EXPECT_EQ(replace(kNew), replacement::Holds::kOldText);
  EXPECT_EQ(sink.events(trace_event::error), failure("Can't flush buffers"));
  EXPECT_EQ(content(), kOld);
}

TEST_F(ReplaceAndClose, WhoseCopyIsNeitherFlushedNorTakenBackHoldsTheNewText) {
  const auto flush = faults::fail(Call::flush, kRefused);
  const auto cut = faults::fail(Call::set_end, kRefused);
  EXPECT_EQ(replace(kNew), replacement::Holds::kNewText);
  EXPECT_EQ(text(), kNew);
}

TEST_F(ReplaceAndClose, ThatFailsAfterTheCopyLeavesTheNewText) {
  for (std::size_t bytes = 0; bytes < kNew.size(); ++bytes) {
    open(kOld);
    const auto fault = faults::cut_transfer(Call::write, bytes, kRefused, 2);
    recording_sink sink;
    EXPECT_EQ(replace(kNew), replacement::Holds::kNewText);
    EXPECT_EQ(sink.events(trace_event::error), failure("write file"));
    EXPECT_EQ(text(), kNew);
  }
}

TEST_F(ReplaceAndClose, WhoseTextIsNotFlushedOrCutHoldsTheNewText) {
  {
    const auto fault = faults::fail(Call::flush, kRefused, 2);
    recording_sink sink;
    EXPECT_EQ(replace(kNew), replacement::Holds::kNewText);
    EXPECT_EQ(sink.events(trace_event::error), failure("Can't flush buffers"));
    EXPECT_EQ(text(), kNew);
  }
  open(kOld);
  const auto fault = faults::fail(Call::set_end, kRefused);
  recording_sink sink;
  EXPECT_EQ(replace(kNew), replacement::Holds::kNewText);
  EXPECT_EQ(sink.events(trace_event::error), failure("Can't truncate file "));
  EXPECT_EQ(text(), kNew);
  EXPECT_NE(content(), kNew);
}

TEST_F(ReplaceAndClose, CompletesAnInterruptedOneFirst) {
  {
    const auto fault = faults::cut_transfer(Call::write, 30, kRefused, 2);
    replace(kNew);
  }
  const std::string interrupted = content();
  ASSERT_NE(interrupted, kNew);

  // If the completion fails, the text of the copy remains the content.
  for (const Call call : {Call::write, Call::flush, Call::set_end}) {
    open(interrupted);
    const auto fault = faults::fail(call, kRefused);
    EXPECT_EQ(replace(kOld), replacement::Holds::kOldText);
    EXPECT_EQ(text(), kNew);
  }
  open(interrupted);
  EXPECT_EQ(replace(kOld), replacement::Holds::kNewText);
  EXPECT_EQ(content(), kOld);
}

TEST_F(ReplaceAndClose, ThatHasNoRoomIsTracedAndWritesNothing) {
  const auto fault = faults::fail(Call::reserve, kRefused);
  recording_sink sink;
  faults::reset();
  EXPECT_EQ(replace(kNew), replacement::Holds::kOldText);
  EXPECT_EQ(sink.events(trace_event::error), failure("write file"));
  EXPECT_EQ(faults::calls(Call::write), 0U);
  EXPECT_EQ(content(), kOld);
}

TEST_F(ReplaceAndClose, ThatCannotGoToItsEndIsNotCut) {
  const auto fault = faults::fail(Call::seek, kRefused);
  recording_sink sink;
  EXPECT_EQ(replace(kNew), replacement::Holds::kNewText);
  EXPECT_EQ(fault.hits(), 1U);
  EXPECT_EQ(sink.events(trace_event::error), failure("Can't truncate file "));
  EXPECT_EQ(text(), kNew);
  EXPECT_NE(content(), kNew);
}

TEST_F(ReplaceAndClose, RefusesAPlaceBeyondTheReachOfTheFilesPosition) {
  os::Handle handle = os::kNoHandle;
  ASSERT_TRUE(os::open(m_dir.path("g"), os::Access::kReadWriteCreate, handle).ok());
  EXPECT_TRUE(replacement::write_at(handle, 2, "cd").ok());
  for (const std::uint64_t place : {0x7FFFFFFFULL, 0x80000000ULL, 0x100000000ULL}) {
    ASSERT_FALSE(replacement::write_at(handle, place, "ab").ok()) << place;
  }
  EXPECT_TRUE(os::close(handle).ok());
  EXPECT_EQ(read_file(m_dir.path("g")), std::string("\0\0cd", 4));
}

TEST_F(ReplaceAndClose, OfDigitsThatFailsIsTakenBack) {
  open("00000199");
  const auto fault = faults::cut_transfer(Call::write, 6, kRefused);
  EXPECT_EQ(replace("00000200"), replacement::Holds::kOldText);
  EXPECT_EQ(content(), "00000199");
}

TEST_F(ReplaceAndClose, InTheWrongModeThrowsAsAWriteDoes) {
  m_file.close();
  m_file.open(base::o_read);
  EXPECT_EQ(thrown_text([&] { replace(kNew); }), narrow_spelling::kWrongWrite);
  vu_file never(m_dir.path("f"));
  EXPECT_EQ(thrown_text([&] { replace_and_close(never, "", "ab"); }), narrow_spelling::kWrongWrite);
  m_file.close();
  EXPECT_EQ(content(), kOld);
}

TEST_F(ReplaceAndClose, IsPrecededByAReadToTheEndOfAnySize) {
  for (const std::size_t size : {0U, 1U, 4095U, 4096U, 4097U, 300'000U, 5'000'000U}) {
    std::string bytes(size, 'x');
    for (std::size_t i = 0; i < size; i += 1000) bytes[i] = static_cast<char>(i % 251);
    open(bytes);
    EXPECT_TRUE(read_to_end(m_file).view() == bytes) << size;
  }
}

TEST_F(ReplaceAndClose, IsPrecededByAReadThatAsksForTheSizeOfALargeFileOnly) {
  using Counts = std::pair<std::uint64_t, std::uint64_t>;
  const auto calls_for = [&](std::size_t size) {
    open(std::string(size, 'x'));
    faults::reset();
    EXPECT_EQ(read_to_end(m_file).size, size);
    return Counts(faults::calls(Call::size), faults::calls(Call::read));
  };
  EXPECT_EQ(calls_for(0), Counts(0U, 1U));
  EXPECT_EQ(calls_for(4095), Counts(0U, 1U));
  EXPECT_EQ(calls_for(4096), Counts(1U, 2U));
  EXPECT_EQ(calls_for(300'000), Counts(1U, 2U));
}

TEST_F(ReplaceAndClose, IsPrecededByAReadThatNeedsNoSize) {
  const std::string bytes(300'000, 'x');
  open(bytes);
  {
    const auto fault = faults::fail(Call::size, kRefused, 1, faults::Times::kLasting);
    EXPECT_TRUE(read_to_end(m_file).view() == bytes);
    EXPECT_GT(fault.hits(), 1U);
  }
  // The file grows after it has told its size.
  open(bytes);
  const auto later = faults::after(Call::size, [&] {
    std::ofstream(native(m_dir.path("f")), std::ios::app | std::ios::binary) << bytes;
  });
  EXPECT_TRUE(read_to_end(m_file).view() == bytes + bytes);
  EXPECT_EQ(later.hits(), 1U);
}

TEST_F(ReplaceAndClose, IsPrecededByAReadThatThrowsWhereItFails) {
  for (const std::uint64_t nth : {1U, 2U}) {
    open(std::string(10'000, 'x'));
    const auto fault = faults::cut_transfer(Call::read, 5, kRefused, nth);
    recording_sink sink;
    EXPECT_EQ(thrown_text([&] { read_to_end(m_file); }), "throw exception on read");
    EXPECT_EQ(sink.events(trace_event::error), failure("read file"));
  }
}

// ---- writes at an offset ------------------------------------------------------------------------

TEST(OsWriteAt, WritesWhereItIsToldWhateverThePosition) {
  const scratch_folder scratch;
  write_file(scratch.path("file"), "0123456789");
  OpenFile file(scratch.path("file"), os::Access::kReadWriteCreate);
  EXPECT_EQ(file.read(5), "01234");
  std::size_t done = 0;
  EXPECT_TRUE(succeeds(os::write_at(file.get(), 2, "abc", 3, done)));
  EXPECT_EQ(done, 3U);
  EXPECT_TRUE(succeeds(os::write_at(file.get(), 12, "d", 1, done)));
  EXPECT_EQ(done, 1U);
  EXPECT_TRUE(succeeds(os::write_at(file.get(), 0, "", 0, done)));
  EXPECT_EQ(done, 0U);
  EXPECT_EQ(read_file(scratch.path("file")), std::string("01abc56789\0\0d", 13));
}

TEST(OsWriteAt, ReachesBeyondFourGigabytes) {
  const scratch_folder scratch;
  const std::string path = scratch.path("file");
  OpenFile file(path, os::Access::kReadWriteCreate);
  constexpr std::uint64_t kFarAway = 0x100000002ULL;
  std::size_t done = 0;
  EXPECT_TRUE(succeeds(os::write_at(file.get(), kFarAway, "xyz", 3, done)));
  std::uint64_t size = 0;
  EXPECT_TRUE(succeeds(os::size(file.get(), size)));
  EXPECT_EQ(size, kFarAway + 3);
  EXPECT_TRUE(succeeds(os::seek(file.get(), -3, 2)));
  EXPECT_EQ(file.read(3), "xyz");
}
