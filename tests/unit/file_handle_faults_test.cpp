// Handles on a file of ten bytes, with fault injection.

#include <gtest/gtest.h>

#include <cerrno>
#include <cstdint>
#include <memory>
#include <new>
#include <stdexcept>
#include <string>
#include <vector>

#include "platform/os/os.h"
#include "tests/support/file_spellings.h"
#include "tests/support/recording_sink.h"
#include "tests/support/scratch.h"

#if defined(_WIN32)
inline constexpr std::int32_t kSomeCode = 5;  // access denied
#else
inline constexpr std::int32_t kSomeCode = EACCES;
#endif
inline constexpr os::Status kSomeFailure{kSomeCode, os::Failure::kOther};

template <class Spelling>
class handle_fault_test : public testing::Test {
 protected:
  using file_type = typename Spelling::file;

  handle_fault_test() { write_file(path(), "0123456789"); }

  std::string path() const { return m_dir.path("f"); }
  file_type handle() const { return file_type(Spelling::to_text(path())); }
  static std::string system_text() { return "Error message :" + os::error_text(kSomeCode); }
  /// The two records of a failure.
  std::vector<std::string> failure(const std::string& what) const {
    return {what + " : " + path(), system_text()};
  }
  bool can_be_locked() const {
    file_type other(Spelling::to_text(path()));
    bool lock_failed = true;
    return other.try_open(vu_file_base::o_write, lock_failed, true) && !lock_failed;
  }

  scratch_folder m_dir;
};

/// Declares a suite of these tests for both spellings.
#define HANDLE_FAULT_TESTS(suite)                      \
  template <class Spelling>                            \
  class suite : public handle_fault_test<Spelling> {}; \
  TYPED_TEST_SUITE(suite, file_spellings, spelling_names)

// Failures while the two file handles open, read or write.

namespace {

namespace faults = os::faults;
using base = vu_file_base;
using faults::Call;
using vu_host::trace_event;
using list = std::vector<std::string>;

}  // namespace

HANDLE_FAULT_TESTS(VuFileOpenFailure);

TYPED_TEST(VuFileOpenFailure, IsTracedWithTheCodeOfTheCallThatFailed) {
  for (const auto mode : kAllModes) {
    auto file = this->handle();
    const auto fault = faults::fail(Call::open, kSomeFailure);
    // Later error codes of the system must not change the trace.
    const auto other =
        faults::fail(Call::last_error, {1, os::Failure::kOther}, 1, faults::Times::kLasting);
    recording_sink sink;
    EXPECT_EQ(thrown_text([&] { file.open(mode); }), "throw exception on open");
    const bool reading = mode == base::o_read;
    EXPECT_EQ(sink.events(reading ? trace_event::warning : trace_event::error),
              this->failure("open o_read"));
    EXPECT_EQ(sink.count(reading ? trace_event::error : trace_event::warning), 0U);
    EXPECT_FALSE(file.is_open());
    EXPECT_FALSE(file.is_locked());
  }
}

TYPED_TEST(VuFileOpenFailure, OfAnUnknownModeIsTracedWithTheSystemsLastError) {
  auto file = this->handle();
  const auto last = faults::fail(Call::last_error, kSomeFailure, 1, faults::Times::kLasting);
  recording_sink sink;
  faults::reset();
  EXPECT_EQ(thrown_text([&] { file.open(static_cast<base::type_access>(1)); }),
            "throw exception on open");
  EXPECT_EQ(sink.events(trace_event::error),
            (list{" unknown open mode while opening file : " + this->path(),
                  "open o_read : " + this->path(), this->system_text()}));
  EXPECT_EQ(faults::calls(Call::open), 0U);
}

TYPED_TEST(VuFileOpenFailure, OfTheLockLeavesTheFileOpenAndUnlocked) {
  for (const auto mode : kAllModes) {
    auto file = this->handle();
    const auto fault = faults::fail(Call::lock, kSomeFailure);
    recording_sink sink;
    faults::reset();
    EXPECT_NO_THROW(file.open(mode));
    EXPECT_TRUE(file.is_open());
    EXPECT_FALSE(file.is_locked());
    EXPECT_EQ(sink.count(traced::kind_t::event), 0U);
    EXPECT_EQ(faults::calls(Call::set_end), 0U) << "not emptied without the lock";
    file.close();
    EXPECT_EQ(faults::calls(Call::unlock), 0U);
    EXPECT_EQ(faults::calls(Call::close), 1U);
  }
  EXPECT_EQ(read_file(this->path()), "0123456789");
}

TYPED_TEST(VuFileOpenFailure, OfTheLockIsToldByTryOpen) {
  auto file = this->handle();
  const auto fault = faults::fail(Call::lock, {kSomeCode, os::Failure::kLocked});
  bool lock_failed = false;
  EXPECT_TRUE(file.try_open(base::o_truncate, lock_failed, false));
  EXPECT_TRUE(lock_failed);
  EXPECT_TRUE(file.is_open());
  EXPECT_FALSE(file.is_locked());
}

TYPED_TEST(VuFileOpenFailure, ByTryOpenLeavesTheLockFlagAlone) {
  for (const bool before : {false, true}) {
    auto file = this->handle();
    const auto fault = faults::fail(Call::open, kSomeFailure);
    recording_sink sink;
    bool lock_failed = before;
    EXPECT_FALSE(file.try_open(base::o_write, lock_failed, false));
    EXPECT_EQ(lock_failed, before);
    EXPECT_EQ(sink.count(traced::kind_t::event), 0U);
  }
}

TYPED_TEST(VuFileOpenFailure, OfEmptyingIsTracedAndTheFileIsOpenAllTheSame) {
  auto file = this->handle();
  const auto fault = faults::fail(Call::set_end, kSomeFailure);
  recording_sink sink;
  EXPECT_NO_THROW(file.open(base::o_truncate));
  EXPECT_TRUE(file.is_locked());
  EXPECT_EQ(sink.events(trace_event::error), this->failure("Can't truncate file "));
}

TYPED_TEST(VuFileOpenFailure, ByAnExceptionPassesAndLeavesTheHandleClosed) {
  auto file = this->handle();
  const auto fault = faults::throw_from(Call::open, std::bad_alloc());
  EXPECT_THROW(file.open(base::o_read), std::bad_alloc);
  EXPECT_FALSE(file.is_open());
}

HANDLE_FAULT_TESTS(VuFileReadFailure);

TYPED_TEST(VuFileReadFailure, IsTracedAndThrown) {
  for (const auto mode : {base::o_read, base::o_append}) {
    auto file = this->handle();
    file.open(mode);
    const auto fault = faults::fail(Call::read, kSomeFailure);
    recording_sink sink;
    std::string text = "before";
    EXPECT_EQ(thrown_text([&] { file.read(text, 4); }), "throw exception on read");
    EXPECT_EQ(text, "");
    EXPECT_EQ(sink.events(trace_event::error), this->failure("read file"));
    EXPECT_EQ(sink.count(trace_event::warning), 0U);
    EXPECT_TRUE(file.is_open());
  }
}

TYPED_TEST(VuFileReadFailure, HalfWayGivesNothing) {
  auto file = this->handle();
  file.open(base::o_read);
  const auto fault = faults::cut_transfer(Call::read, 3, kSomeFailure);
  std::string text = "before";
  EXPECT_EQ(thrown_text([&] { file.read(text, 0); }), "throw exception on read");
  EXPECT_EQ(text, "");
}

TYPED_TEST(VuFileReadFailure, IntoABufferLeavesTheBuffer) {
  auto file = this->handle();
  file.open(base::o_read);
  const auto fault = faults::fail(Call::read, kSomeFailure);
  char buffer[] = "####";
  EXPECT_EQ(thrown_text([&] { file.read(buffer, 4); }), "throw exception on read");
  EXPECT_STREQ(buffer, "####");
}

TYPED_TEST(VuFileReadFailure, IsNoneWhenTheSystemGivesLess) {
  auto file = this->handle();
  file.open(base::o_read);
  const auto fault = faults::cut_transfer(Call::read, 3);
  std::string text;
  EXPECT_EQ(file.read(text, 0), 3);
  EXPECT_EQ(text, "012");
}

TYPED_TEST(VuFileReadFailure, OfTheSizeReadsNothing) {
  auto file = this->handle();
  file.open(base::o_read);
  const auto fault = faults::fail(Call::stat, kSomeFailure);
  recording_sink sink;
  faults::reset();
  std::string text = "before";
  EXPECT_EQ(file.read(text, 0), 0);
  EXPECT_EQ(text, "");
  EXPECT_EQ(faults::calls(Call::read), 0U);
  const bool narrow = std::is_same_v<TypeParam, narrow_spelling>;
  EXPECT_EQ(sink.events(trace_event::error),
            list{narrow ? "vu_file::size '" + this->path() + "': Problem getting information"
                        : this->path() + ": can't stat"});
}

TYPED_TEST(VuFileReadFailure, OfANegativeCountComesBeforeAnyCall) {
  auto file = this->handle();
  file.open(base::o_read);
  const auto last = faults::fail(Call::last_error, kSomeFailure, 1, faults::Times::kLasting);
  recording_sink sink;
  faults::reset();
  std::string text;
  EXPECT_EQ(thrown_text([&] { file.read(text, -2147483647 - 1); }), "throw exception on read");
  EXPECT_EQ(sink.events(trace_event::error), this->failure("read file"));
  EXPECT_EQ(faults::calls(Call::read), 0U);
  EXPECT_EQ(faults::calls(Call::stat), 0U);
}

class VuFileUtf8ReadBufferFailure : public handle_fault_test<utf8_spelling> {};

TEST_F(VuFileUtf8ReadBufferFailure, FreesTheBufferAndThrows) {
  vu_fileutf8 file = handle();
  file.open(base::o_read);
  const auto fault = faults::fail(Call::read, kSomeFailure);
  recording_sink sink;
  unsigned char* buffer = nullptr;
  unsigned int length = 4;
  EXPECT_EQ(thrown_text([&] { file.read(buffer, length); }), "throw exception on read");
  EXPECT_EQ(length, 0U);
  EXPECT_NE(buffer, nullptr) << "the pointer stays, although nothing is behind it";
  EXPECT_EQ(sink.events(trace_event::error), failure("read file"));
}

TEST_F(VuFileUtf8ReadBufferFailure, HandsThePointerOutBeforeItReads) {
  vu_fileutf8 file = handle();
  file.open(base::o_read);
  unsigned char* buffer = nullptr;
  unsigned char* seen = nullptr;
  const auto hook = faults::before(Call::read, [&] { seen = buffer; });
  unsigned int length = 0;
  file.read(buffer, length);
  const std::unique_ptr<unsigned char[]> owner(buffer);
  EXPECT_NE(seen, nullptr);
  EXPECT_EQ(seen, buffer);
  EXPECT_EQ(length, 10U);
}

TEST_F(VuFileUtf8ReadBufferFailure, OfTheSizeLeavesBothArguments) {
  vu_fileutf8 file = handle();
  file.open(base::o_read);
  const auto fault = faults::fail(Call::stat, kSomeFailure);
  unsigned char* buffer = nullptr;
  unsigned int length = 0;
  EXPECT_NO_THROW(file.read(buffer, length));
  EXPECT_EQ(buffer, nullptr);
  EXPECT_EQ(length, 0U);
}

TEST_F(VuFileUtf8ReadBufferFailure, WithAShortReadIsNotAFailure) {
  vu_fileutf8 file = handle();
  file.open(base::o_read);
  const auto fault = faults::cut_transfer(Call::read, 3);
  unsigned char* buffer = nullptr;
  unsigned int length = 0;
  file.read(buffer, length);
  const std::unique_ptr<unsigned char[]> owner(buffer);
  EXPECT_EQ(length, 3U);
  EXPECT_EQ(buffer[10], 0);
}

HANDLE_FAULT_TESTS(VuFileWriteFailure);

TYPED_TEST(VuFileWriteFailure, IsTracedAndTheNumberWrittenReturned) {
  for (const auto mode : kWritingModes) {
    auto file = this->handle();
    file.open(mode);
    recording_sink sink;
    {
      const auto fault = faults::fail(Call::write, kSomeFailure);
      EXPECT_EQ(file.write("abcdef"), 0);
    }
    {
      const auto fault = faults::cut_transfer(Call::write, 4, kSomeFailure);
      EXPECT_EQ(file.write("abcdef", 6), 4);
    }
    const list failure = this->failure("write file");
    EXPECT_EQ(sink.events(trace_event::error),
              (list{failure[0], failure[1], failure[0], failure[1]}));
  }
}

TYPED_TEST(VuFileWriteFailure, IsNoneWhenTheSystemTakesLess) {
  auto file = this->handle();
  file.open(base::o_write);
  const auto fault = faults::cut_transfer(Call::write, 2);
  recording_sink sink;
  EXPECT_EQ(file.write("abcdef"), 2);
  EXPECT_EQ(sink.count(traced::kind_t::event), 0U);
}

// Failures while the two file handles empty or close a file, and the cost of tracing a failure.

namespace {

namespace faults = os::faults;
using base = vu_file_base;
using faults::Call;
using vu_host::trace_event;
using list = std::vector<std::string>;

}  // namespace

HANDLE_FAULT_TESTS(VuFileClearFailure);

TYPED_TEST(VuFileClearFailure, OfTheMoveKeepsTheFileFromBeingCut) {
  auto file = this->handle();
  file.open(base::o_write);
  const auto fault = faults::fail(Call::seek, kSomeFailure);
  recording_sink sink;
  faults::reset();
  file.clear();
  EXPECT_EQ(sink.events(trace_event::error), this->failure("Can't truncate file "));
  EXPECT_EQ(faults::calls(Call::set_end), 0U);
  file.close();
  EXPECT_EQ(read_file(this->path()), "0123456789");
}

TYPED_TEST(VuFileClearFailure, OfTheCutIsTraced) {
  auto file = this->handle();
  file.open(base::o_append);
  const auto fault = faults::fail(Call::set_end, kSomeFailure);
  recording_sink sink;
  file.clear();
  EXPECT_EQ(sink.events(trace_event::error), this->failure("Can't truncate file "));
}

TYPED_TEST(VuFileClearFailure, ByAnExceptionIsTracedAndNotThrown) {
  for (const Call call : {Call::seek, Call::set_end}) {
    auto file = this->handle();
    file.open(base::o_write);
    const auto fault = faults::throw_from(call, std::runtime_error("planned"));
    const auto last = faults::fail(Call::last_error, kSomeFailure);
    recording_sink sink;
    file.clear();
    EXPECT_EQ(sink.events(trace_event::error), this->failure("Can't truncate file "));
  }
}

template <class Spelling>
class VuFileCloseFailure : public handle_fault_test<Spelling> {
 protected:
  using typename handle_fault_test<Spelling>::file_type;

  /// Closes the file while a call of the system fails. @return the errors.
  static list errors_when_failing(Call step, file_type& file) {
    const auto fault = faults::fail(step, kSomeFailure);
    return errors_of_close(file);
  }
  /// Closes the file while a call of the system throws. @return the errors.
  static list errors_when_throwing(Call step, file_type& file) {
    const auto fault = faults::throw_from(step, std::runtime_error("planned"));
    const auto last = faults::fail(Call::last_error, kSomeFailure);
    return errors_of_close(file);
  }

 private:
  static list errors_of_close(file_type& file) {
    recording_sink sink;
    file.close();
    EXPECT_FALSE(file.is_open());
    return sink.events(trace_event::error);
  }
};
TYPED_TEST_SUITE(VuFileCloseFailure, file_spellings, spelling_names);

TYPED_TEST(VuFileCloseFailure, OfTheFlushIsTracedAndTheRestFollows) {
  for (const auto mode : kWritingModes) {
    auto file = this->handle();
    file.open(mode);
    EXPECT_EQ(this->errors_when_failing(Call::flush, file), this->failure("Can't flush buffers"));
    EXPECT_FALSE(file.is_locked());
    EXPECT_TRUE(this->can_be_locked());
  }
}

TYPED_TEST(VuFileCloseFailure, OfTheFlushByAnExceptionHasItsOwnText) {
  auto file = this->handle();
  file.open(base::o_write);
  EXPECT_EQ(this->errors_when_throwing(Call::flush, file),
            this->failure("Catch exception while flusing buffer"));
  EXPECT_TRUE(this->can_be_locked());
}

TYPED_TEST(VuFileCloseFailure, OfTheUnlockIsTracedAndTheFileClosed) {
  auto file = this->handle();
  file.open(base::o_read);
  EXPECT_EQ(this->errors_when_failing(Call::unlock, file), this->failure("Can't unlock file"));
  EXPECT_TRUE(file.is_locked()) << "the negation of the unlocking's success";
  EXPECT_TRUE(this->can_be_locked()) << "the lock went with the system's handle";
}

TYPED_TEST(VuFileCloseFailure, OfTheUnlockByAnExceptionHasItsOwnText) {
  auto file = this->handle();
  file.open(base::o_read);
  EXPECT_EQ(this->errors_when_throwing(Call::unlock, file),
            this->failure("catch exception while unlocking file"));
}

TYPED_TEST(VuFileCloseFailure, OfTheHandleIsTracedAndTheHandleForgotten) {
  auto file = this->handle();
  file.open(base::o_read);
  auto copy = file;
  EXPECT_EQ(this->errors_when_failing(Call::close, file), this->failure("close file"));
  EXPECT_TRUE(copy.is_open()) << "closes what the fault has left open";
}

TYPED_TEST(VuFileCloseFailure, OfTheHandleByAnExceptionHasItsOwnText) {
  auto file = this->handle();
  file.open(base::o_read);
  auto copy = file;
  EXPECT_EQ(this->errors_when_throwing(Call::close, file),
            this->failure("catch exception closing file"));
  EXPECT_TRUE(copy.is_open()) << "closes what the fault has left open";
}

TYPED_TEST(VuFileCloseFailure, OfEveryStepIsTracedInTheOrderOfTheSteps) {
  auto file = this->handle();
  file.open(base::o_append);
  auto copy = file;
  const auto flush = faults::throw_from(Call::flush, std::runtime_error("planned"));
  const auto unlock = faults::fail(Call::unlock, kSomeFailure);
  const auto close = faults::fail(Call::close, kSomeFailure);
  recording_sink sink;
  file.close();
  const list errors = sink.events(trace_event::error);
  ASSERT_EQ(errors.size(), 6U);
  EXPECT_EQ(errors[0], "Catch exception while flusing buffer : " + this->path());
  EXPECT_EQ(errors[2], "Can't unlock file : " + this->path());
  EXPECT_EQ(errors[4], "close file : " + this->path());
}

TYPED_TEST(VuFileCloseFailure, InTheDestructorIsTracedAndNotThrown) {
  recording_sink sink;
  const auto close = faults::throw_from(Call::flush, std::runtime_error("planned"));
  {
    auto file = this->handle();
    file.open(base::o_write);
  }
  EXPECT_EQ(
      sink.count(trace_event::error, "Catch exception while flusing buffer : " + this->path()), 1U);
}

TYPED_TEST(VuFileCloseFailure, OfTheUnlockIsForgottenByTheNextOpen) {
  auto file = this->handle();
  file.open(base::o_read);
  {
    const auto fault = faults::fail(Call::unlock, kSomeFailure);
    file.close();
  }
  const auto fault = faults::fail(Call::lock, kSomeFailure);
  file.open(base::o_read);
  EXPECT_FALSE(file.is_locked());
}

HANDLE_FAULT_TESTS(VuFileFailureTrace);

TYPED_TEST(VuFileFailureTrace, ThatNobodyWantsBuildsNoText) {
  recording_sink sink;
  sink.want_everything(false);
  faults::reset();
  {
    auto file = this->handle();
    file.open(base::o_append);
    const auto read = faults::fail(Call::read, kSomeFailure);
    const auto write = faults::fail(Call::write, kSomeFailure);
    const auto flush = faults::fail(Call::flush, kSomeFailure);
    std::string text;
    EXPECT_EQ(thrown_text([&] { file.read(text, 1); }), "throw exception on read");
    EXPECT_EQ(file.write("x"), 0);
  }
  EXPECT_EQ(faults::calls(Call::error_text), 0U);
  EXPECT_EQ(faults::calls(Call::error_text_wide), 0U);
  EXPECT_EQ(sink.count(), 0U);
}

TYPED_TEST(VuFileFailureTrace, GoesOutWithoutTheSystemsTextWhenThatCannotBeHad) {
  auto file = this->handle();
  file.open(base::o_write);
  const auto flush = faults::fail(Call::flush, kSomeFailure);
  const auto narrow = faults::throw_from(Call::error_text, std::bad_alloc());
  const auto wide = faults::throw_from(Call::error_text_wide, std::bad_alloc());
  recording_sink sink;
  file.close();
  EXPECT_EQ(sink.events(trace_event::error),
            (list{"Can't flush buffers : " + this->path(), "Error message :"}));
}

TYPED_TEST(VuFileFailureTrace, IsEmptyBehindItsTextForACodeWithoutAMessage) {
  auto file = this->handle();
  file.open(base::o_write);
  const auto flush = faults::fail(Call::flush, {0x0FFFFFFF, os::Failure::kOther});
  recording_sink sink;
  file.close();
  EXPECT_EQ(sink.events(trace_event::error),
            (list{"Can't flush buffers : " + this->path(), "Error message :"}));
}

TYPED_TEST(VuFileFailureTrace, AsksForTheTextInItsOwnSpelling) {
  auto file = this->handle();
  file.open(base::o_write);
  const auto flush = faults::fail(Call::flush, kSomeFailure);
  recording_sink sink;
  faults::reset();
  file.close();
  const bool narrow = std::is_same_v<TypeParam, narrow_spelling>;
  EXPECT_EQ(faults::calls(narrow ? Call::error_text : Call::error_text_wide), 1U);
}
