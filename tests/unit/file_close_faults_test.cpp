// What the two file handles do when the system fails them while they empty or close a file, and
// what tracing a failure costs.

#include <gtest/gtest.h>

#include <new>
#include <stdexcept>
#include <string>
#include <vector>

#include "tests/support/recording_sink.h"
#include "tests/unit/file_handle_faults.h"

namespace {

namespace faults = os::faults;
using base = vu_file_base;
using faults::Call;
using vu_host::trace_event;
using list = std::vector<std::string>;

}  // namespace

// ---- clearing ----------------------------------------------------------------------------------

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

// ---- closing -----------------------------------------------------------------------------------

HANDLE_FAULT_TESTS(VuFileCloseFailure);

TYPED_TEST(VuFileCloseFailure, OfTheFlushIsTracedAndTheRestFollows) {
  for (const auto mode : kWritingModes) {
    auto file = this->handle();
    file.open(mode);
    const auto fault = faults::fail(Call::flush, kSomeFailure);
    recording_sink sink;
    file.close();
    EXPECT_EQ(sink.events(trace_event::error), this->failure("Can't flush buffers"));
    EXPECT_FALSE(file.is_open());
    EXPECT_FALSE(file.is_locked());
    EXPECT_TRUE(this->can_be_locked());
  }
}

TYPED_TEST(VuFileCloseFailure, OfTheFlushByAnExceptionHasItsOwnText) {
  auto file = this->handle();
  file.open(base::o_write);
  const auto fault = faults::throw_from(Call::flush, std::runtime_error("planned"));
  const auto last = faults::fail(Call::last_error, kSomeFailure);
  recording_sink sink;
  file.close();
  EXPECT_EQ(sink.events(trace_event::error), this->failure("Catch exception while flusing buffer"));
  EXPECT_FALSE(file.is_open());
  EXPECT_TRUE(this->can_be_locked());
}

TYPED_TEST(VuFileCloseFailure, OfTheUnlockIsTracedAndTheFileClosed) {
  auto file = this->handle();
  file.open(base::o_read);
  const auto fault = faults::fail(Call::unlock, kSomeFailure);
  recording_sink sink;
  file.close();
  EXPECT_EQ(sink.events(trace_event::error), this->failure("Can't unlock file"));
  EXPECT_FALSE(file.is_open());
  EXPECT_TRUE(file.is_locked()) << "the negation of the unlocking's success";
  EXPECT_TRUE(this->can_be_locked()) << "the lock went with the system's handle";
}

TYPED_TEST(VuFileCloseFailure, OfTheUnlockByAnExceptionHasItsOwnText) {
  auto file = this->handle();
  file.open(base::o_read);
  const auto fault = faults::throw_from(Call::unlock, std::runtime_error("planned"));
  const auto last = faults::fail(Call::last_error, kSomeFailure);
  recording_sink sink;
  file.close();
  EXPECT_EQ(sink.events(trace_event::error), this->failure("catch exception while unlocking file"));
  EXPECT_FALSE(file.is_open());
}

TYPED_TEST(VuFileCloseFailure, OfTheHandleIsTracedAndTheHandleForgotten) {
  auto file = this->handle();
  file.open(base::o_read);
  auto copy = file;
  const auto fault = faults::fail(Call::close, kSomeFailure);
  recording_sink sink;
  file.close();
  EXPECT_EQ(sink.events(trace_event::error), this->failure("close file"));
  EXPECT_FALSE(file.is_open());
  EXPECT_TRUE(copy.is_open()) << "closes what the fault has left open";
}

TYPED_TEST(VuFileCloseFailure, OfTheHandleByAnExceptionHasItsOwnText) {
  auto file = this->handle();
  file.open(base::o_read);
  auto copy = file;
  const auto fault = faults::throw_from(Call::close, std::runtime_error("planned"));
  const auto last = faults::fail(Call::last_error, kSomeFailure);
  recording_sink sink;
  file.close();
  EXPECT_EQ(sink.events(trace_event::error), this->failure("catch exception closing file"));
  EXPECT_FALSE(file.is_open());
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

// ---- tracing itself ----------------------------------------------------------------------------

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
