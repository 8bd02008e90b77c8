// Replacing the content of an open file without ever emptying it.

#include "file/handle_core.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

#include "tests/support/file_spellings.h"
#include "tests/support/recording_sink.h"
#include "tests/support/scratch.h"

namespace {

namespace faults = os::faults;
using base = vu_file_base;
using faults::Call;
using vu_host::trace_event;
using list = std::vector<std::string>;

constexpr os::Status kSomeFailure{5, os::Failure::kOther};

class ReplaceText : public testing::Test {
 protected:
  ReplaceText() : m_file(m_dir.path("f")) {
    write_file(m_dir.path("f"), "0123456789");
    m_file.open(base::o_append);
  }

  void replace(const std::string& text) { replace_text(m_file, "0123456789", text); }
  /// The content once the handle is closed.
  std::string content() {
    m_file.close();
    return read_file(m_dir.path("f"));
  }
  list failure(const std::string& what) const {
    return {what + " : " + m_dir.path("f"), "Error message :" + os::error_text(5)};
  }

  scratch_folder m_dir;
  vu_file m_file;
};

}  // namespace

TEST_F(ReplaceText, LeavesExactlyTheNewText) {
  std::string before = "0123456789";
  for (const std::string text : {"ab", "0123456789ABC", " ", "", "x"}) {
    replace_text(m_file, before, text);
    EXPECT_EQ(content(), text);
    m_file.open(base::o_append);
    before = text;
  }
}

TEST_F(ReplaceText, DoesNotDependOnThePosition) {
  std::string text;
  m_file.read(text, 4);
  replace("ab");
  EXPECT_EQ(content(), "ab");
}

TEST_F(ReplaceText, CutsBehindTheNewTextOnlyAndFlushesNothing) {
  std::uintmax_t size_before_cut = 0;
  const auto hook = faults::before(Call::set_end, [&] {
    size_before_cut = std::filesystem::file_size(native(m_dir.path("f")));
  });
  faults::reset();
  replace("ab");
  EXPECT_EQ(size_before_cut, 10U);
  EXPECT_EQ(faults::calls(Call::write), 1U);
  EXPECT_EQ(faults::calls(Call::set_end), 1U);
  EXPECT_EQ(faults::calls(Call::flush), 0U);
  EXPECT_EQ(content(), "ab");
}

TEST_F(ReplaceText, ThatCannotBeWrittenIsTracedAndTakenBack) {
  const auto fault = faults::cut_transfer(Call::write, 1, kSomeFailure);
  recording_sink sink;
  faults::reset();
  replace("ab");
  EXPECT_EQ(sink.events(trace_event::error), failure("write file"));
  EXPECT_EQ(faults::calls(Call::set_end), 0U);
  EXPECT_EQ(content(), "0123456789");
}

TEST_F(ReplaceText, ThatWasWrittenInPartWithoutAnErrorIsTakenBack) {
  const auto fault = faults::cut_transfer(Call::write, 1);
  recording_sink sink;
  faults::reset();
  replace("ab");
  EXPECT_EQ(sink.count(trace_event::error, "write file : " + m_dir.path("f")), 1U);
  EXPECT_EQ(faults::calls(Call::set_end), 0U);
  EXPECT_EQ(content(), "0123456789");
}

TEST_F(ReplaceText, ThatHasNoRoomIsTracedAndWritesNothing) {
  const auto fault = faults::fail(Call::reserve, kSomeFailure);
  recording_sink sink;
  faults::reset();
  replace("longer than the old text");
  EXPECT_EQ(sink.events(trace_event::error), failure("write file"));
  EXPECT_EQ(faults::calls(Call::write), 0U);
  EXPECT_EQ(content(), "0123456789");
}

TEST_F(ReplaceText, ThatCannotGoToItsPlaceWritesNothing) {
  const auto fault = faults::fail(Call::seek, kSomeFailure);
  recording_sink sink;
  replace("ab");
  EXPECT_EQ(sink.events(trace_event::error), failure("write file"));
  EXPECT_EQ(content(), "0123456789");
}

TEST_F(ReplaceText, ThatCannotBeCutIsTraced) {
  const auto fault = faults::fail(Call::set_end, kSomeFailure);
  recording_sink sink;
  replace("ab");
  EXPECT_EQ(sink.events(trace_event::error), failure("Can't truncate file "));
  EXPECT_EQ(content().substr(0, 2), "ab");
}

TEST_F(ReplaceText, OfManyPagesThatFailsOnTheWayLeavesTheOldText) {
  std::string old_text;
  std::string new_text;
  for (int i = 0; i < 2'000; ++i) {
    old_text += "key" + std::to_string(i) + "/old\n";
    new_text += "key" + std::to_string(i) + "/new\n";
  }
  m_file.close();
  write_file(m_dir.path("f"), old_text);
  m_file.open(base::o_append);
  const auto fault = faults::cut_transfer(Call::write, 5'000, kSomeFailure);
  recording_sink sink;
  replace_text(m_file, old_text, new_text);
  EXPECT_EQ(sink.events(trace_event::error), failure("write file"));
  EXPECT_TRUE(content() == old_text);
}

TEST_F(ReplaceText, InTheWrongModeThrowsAsAWriteDoes) {
  m_file.close();
  m_file.open(base::o_read);
  EXPECT_EQ(thrown_text([&] { replace("ab"); }), narrow_spelling::kWrongWrite);
  vu_file never(m_dir.path("f"));
  EXPECT_EQ(thrown_text([&] { replace_text(never, "", "ab"); }), narrow_spelling::kWrongWrite);
  EXPECT_EQ(content(), "0123456789");
}
