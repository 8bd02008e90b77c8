// The two file handles: permissions of the modes, reading, writing and emptying a file.

#include <gtest/gtest.h>

#include <cstring>
#include <filesystem>
#include <stdexcept>
#include <string>
#include <vector>

#include "tests/support/file_spellings.h"
#include "tests/support/recording_sink.h"
#include "tests/support/scratch.h"

namespace {

using base = vu_file_base;
using vu_host::trace_event;
using list = std::vector<std::string>;

}  // namespace

FILE_HANDLE_TESTS(VuFileMode);

TYPED_TEST(VuFileMode, NumbersAreThoseOfTheInterface) {
  EXPECT_EQ(base::o_read, 0x80000000U);
  EXPECT_EQ(base::o_write, 0x40000000U);
  EXPECT_EQ(base::o_append, 0xC0000000U);
  EXPECT_EQ(base::o_truncate, 5U);
}

TYPED_TEST(VuFileMode, WriteOverwritesFromTheStartAndKeepsTheTail) {
  write_file(this->m_dir.path("f"), "0123456789");
  auto file = this->named("f");
  file.open(base::o_write);
  EXPECT_EQ(file.write("ab"), 2);
  EXPECT_EQ(file.write("c"), 1);
  file.close();
  EXPECT_EQ(read_file(this->m_dir.path("f")), "abc3456789");
}

TYPED_TEST(VuFileMode, TruncateEmptiesTheFileFirst) {
  write_file(this->m_dir.path("f"), "0123456789");
  auto file = this->named("f");
  file.open(base::o_truncate);
  EXPECT_EQ(std::filesystem::file_size(native(this->m_dir.path("f"))), 0U);
  EXPECT_EQ(file.write("ab"), 2);
  file.close();
  EXPECT_EQ(read_file(this->m_dir.path("f")), "ab");
}

TYPED_TEST(VuFileMode, AppendWritesBehindTheOldContentWhereverThePositionIs) {
  write_file(this->m_dir.path("f"), "012");
  auto file = this->named("f");
  file.open(base::o_append);
  EXPECT_EQ(file.write("a"), 1);
  file.rewind();
  EXPECT_EQ(file.write("b", 1), 1);
  std::string text;
  file.rewind();
  EXPECT_EQ(file.read(text, 0), 5);
  EXPECT_EQ(text, "012ab");
  file.close();
  EXPECT_EQ(read_file(this->m_dir.path("f")), "012ab");
}

TYPED_TEST(VuFileMode, DecidesWhoMayRead) {
  write_file(this->m_dir.path("f"), "012");
  for (const auto mode : kAllModes) {
    auto file = this->named("f");
    file.open(mode);
    const bool allowed = mode == base::o_read || mode == base::o_append;
    const std::string expected = allowed ? "(nothing thrown)" : TypeParam::kWrongRead;
    std::string text = "before";
    EXPECT_EQ(thrown_text([&] { file.read(text, 1); }), expected) << mode;
    EXPECT_NE(text, "before") << "emptied before the mode is looked at";
    char bytes[1];
    EXPECT_EQ(thrown_text([&] { file.read(bytes, 1); }), expected) << mode;
  }
}

TYPED_TEST(VuFileMode, DecidesWhoMayWrite) {
  write_file(this->m_dir.path("f"), "012");
  for (const auto mode : kAllModes) {
    auto file = this->named("f");
    file.open(mode);
    const std::string expected = mode == base::o_read ? TypeParam::kWrongWrite : "(nothing thrown)";
    EXPECT_EQ(thrown_text([&] { file.write("x"); }), expected) << mode;
    EXPECT_EQ(thrown_text([&] { file.write("x", 1); }), expected) << mode;
  }
}

TYPED_TEST(VuFileMode, OfAHandleNeverOpenedAllowsNeither) {
  auto file = this->named("f");
  std::string text = "before";
  EXPECT_EQ(thrown_text([&] { file.read(text, 0); }), TypeParam::kWrongRead);
  EXPECT_EQ(text, "");
  EXPECT_EQ(thrown_text([&] { file.write("x"); }), TypeParam::kWrongWrite);
}

TYPED_TEST(VuFileMode, IsLookedAtBeforeTheDataIs) {
  write_file(this->m_dir.path("f"), "012");
  auto file = this->named("f");
  file.open(base::o_read);
  EXPECT_EQ(thrown_text([&] { file.write(std::string()); }), TypeParam::kWrongWrite);
  EXPECT_EQ(thrown_text([&] { file.write("", 0); }), TypeParam::kWrongWrite);
}

TYPED_TEST(VuFileMode, StaysWhenTheHandleIsClosed) {
  write_file(this->m_dir.path("f"), "012");
  auto file = this->named("f");
  file.open(base::o_read);
  file.close();
  std::string text;
  EXPECT_EQ(thrown_text([&] { file.read(text, 2); }), "throw exception on read");
  EXPECT_EQ(thrown_text([&] { file.write("x"); }), TypeParam::kWrongWrite);
}

FILE_HANDLE_TESTS(VuFileRead);

TYPED_TEST(VuFileRead, OfNoCountReadsTheWholeFile) {
  write_file(this->m_dir.path("f"), "0123456789");
  auto file = this->named("f");
  file.open(base::o_read);
  std::string text = "before";
  EXPECT_EQ(file.read(text, 0), 10);
  EXPECT_EQ(text, "0123456789");
}

TYPED_TEST(VuFileRead, OfNoCountInAnEmptyFileReadsNothing) {
  write_file(this->m_dir.path("f"), "");
  auto file = this->named("f");
  file.open(base::o_read);
  std::string text = "before";
  EXPECT_EQ(file.read(text, 0), 0);
  EXPECT_EQ(text, "");
}

TYPED_TEST(VuFileRead, OfNoCountAfterASeekReadsWhatRemains) {
  write_file(this->m_dir.path("f"), "0123456789");
  auto file = this->named("f");
  file.open(base::o_read);
  file.seek(7, 0);
  std::string text;
  EXPECT_EQ(file.read(text, 0), 3);
  EXPECT_EQ(text, "789");
}

TYPED_TEST(VuFileRead, OfACountGoesOnFromThePosition) {
  write_file(this->m_dir.path("f"), "0123456789");
  auto file = this->named("f");
  file.open(base::o_read);
  std::string text;
  EXPECT_EQ(file.read(text, 4), 4);
  EXPECT_EQ(text, "0123");
  EXPECT_EQ(file.read(text, 100), 6);
  EXPECT_EQ(text, "456789");
  EXPECT_EQ(file.read(text, 1), 0);
  EXPECT_EQ(text, "");
}

TYPED_TEST(VuFileRead, TakesBytesAsTheyAre) {
  const std::string bytes("a\0b\r\n\xff\x1a", 7);
  write_file(this->m_dir.path("f"), bytes);
  auto file = this->named("f");
  file.open(base::o_read);
  std::string text;
  EXPECT_EQ(file.read(text, 0), 7);
  EXPECT_EQ(text, bytes);
}

TYPED_TEST(VuFileRead, IntoABufferTouchesOnlyWhatWasRead) {
  write_file(this->m_dir.path("f"), "0123");
  auto file = this->named("f");
  file.open(base::o_read);
  char buffer[8];
  std::memset(buffer, '#', sizeof buffer);
  EXPECT_EQ(file.read(buffer, 3), 3);
  EXPECT_EQ(std::string(buffer, 8), "012#####");
  EXPECT_EQ(file.read(buffer, 8), 1);
  EXPECT_EQ(std::string(buffer, 8), "312#####");
  EXPECT_EQ(file.read(buffer, 8), 0);
  file.rewind();
  EXPECT_EQ(file.read(buffer, 0), 4);
  EXPECT_EQ(std::string(buffer, 8), "0123####");
}

TYPED_TEST(VuFileRead, OfANegativeCountFailsLikeAReadThatFailed) {
  write_file(this->m_dir.path("f"), "0123");
  auto file = this->named("f");
  file.open(base::o_read);
  recording_sink sink;
  std::string text = "before";
  EXPECT_EQ(thrown_text([&] { file.read(text, -1); }), "throw exception on read");
  EXPECT_EQ(text, "");
  const list errors = sink.events(trace_event::error);
  ASSERT_EQ(errors.size(), 2U);
  EXPECT_EQ(errors[0], "read file : " + this->m_dir.path("f"));
  EXPECT_EQ(errors[1].rfind("Error message :", 0), 0U);
}

TYPED_TEST(VuFileRead, OfAMillionBytesIsWhole) {
  std::string bytes;
  for (int i = 0; i < 1'000'000; ++i) bytes += static_cast<char>(i % 251);
  write_file(this->m_dir.path("f"), bytes);
  auto file = this->named("f");
  file.open(base::o_read);
  std::string text;
  EXPECT_EQ(file.read(text, 0), 1'000'000);
  EXPECT_TRUE(text == bytes);
}

TYPED_TEST(VuFileRead, SeekKnowsThreeOrigins) {
  write_file(this->m_dir.path("f"), "0123456789");
  auto file = this->named("f");
  file.open(base::o_read);
  std::string text;
  file.seek(4, 0);
  file.read(text, 1);
  EXPECT_EQ(text, "4");
  file.seek(2, 1);
  file.read(text, 1);
  EXPECT_EQ(text, "7");
  file.seek(-1, 2);
  file.read(text, 1);
  EXPECT_EQ(text, "9");
  file.seek(-100, 0);
  EXPECT_EQ(file.read(text, 1), 0) << "a seek that fails leaves the position";
  file.rewind();
  file.read(text, 1);
  EXPECT_EQ(text, "0");
}

FILE_HANDLE_TESTS(VuFileWrite);

TYPED_TEST(VuFileWrite, OfNothingIsNothingInEveryWritingMode) {
  for (const auto mode : kWritingModes) {
    auto file = this->named("f");
    file.open(mode);
    EXPECT_EQ(file.write(std::string()), 0);
    EXPECT_EQ(file.write("abc", 0), 0);
    EXPECT_EQ(file.write(nullptr, 0), 0);
  }
  EXPECT_EQ(read_file(this->m_dir.path("f")), "");
}

TYPED_TEST(VuFileWrite, OfBytesWritesThemAsTheyAre) {
  const std::string bytes("a\0b\r\n\xff\x1a", 7);
  auto file = this->named("f");
  file.open(base::o_truncate);
  EXPECT_EQ(file.write(bytes), 7);
  EXPECT_EQ(file.write(bytes.data(), 3), 3);
  file.close();
  EXPECT_EQ(read_file(this->m_dir.path("f")), bytes + bytes.substr(0, 3));
}

TYPED_TEST(VuFileWrite, OfANegativeCountIsALengthError) {
  auto file = this->named("f");
  file.open(base::o_truncate);
  EXPECT_THROW(file.write("abc", -1), std::length_error);
}

TYPED_TEST(VuFileWrite, BehindTheEndLeavesZeroBytesBetween) {
  auto file = this->named("f");
  file.open(base::o_write);
  file.seek(3, 0);
  file.write("x");
  file.close();
  EXPECT_EQ(read_file(this->m_dir.path("f")), std::string("\0\0\0x", 4));
}

TYPED_TEST(VuFileWrite, IsSeenByTheNextReader) {
  auto writer = this->named("f");
  writer.open(base::o_truncate);
  writer.write("one");
  writer.close();
  auto reader = this->named("f");
  reader.open(base::o_read);
  std::string text;
  reader.read(text, 0);
  EXPECT_EQ(text, "one");
}

FILE_HANDLE_TESTS(VuFileClear);

TYPED_TEST(VuFileClear, EmptiesTheFileAndGoesToItsStart) {
  for (const auto mode : kWritingModes) {
    write_file(this->m_dir.path("f"), "");
    auto file = this->named("f");
    file.open(mode);
    file.write("0123456789");
    file.clear();
    EXPECT_EQ(file.write("ab"), 2);
    file.close();
    EXPECT_EQ(read_file(this->m_dir.path("f")), "ab") << mode;
  }
}

TYPED_TEST(VuFileClear, ForReadingDoesNothing) {
  write_file(this->m_dir.path("f"), "012");
  auto file = this->named("f");
  file.open(base::o_read);
  std::string text;
  file.read(text, 2);
  recording_sink sink;
  file.clear();
  EXPECT_EQ(sink.count(trace_event::error), 0U);
  file.read(text, 1);
  EXPECT_EQ(text, "2") << "the position stays, too";
  EXPECT_EQ(read_file(this->m_dir.path("f")), "012");
}

TYPED_TEST(VuFileClear, OfAClosedHandleIsTracedAsAnErrorWithTwoBlanks) {
  auto file = this->named("f");
  recording_sink sink;
  file.clear();
  const list errors = sink.events(trace_event::error);
  ASSERT_EQ(errors.size(), 2U);
  EXPECT_EQ(errors[0], "Can't truncate file  : " + this->m_dir.path("f"));
  EXPECT_EQ(errors[1].rfind("Error message :", 0), 0U);
}

// Reading the non-empty lines of a file.

namespace {

using list = std::vector<std::string>;

template <class Spelling>
class VuFileLinesNotEmpty : public testing::Test {
 protected:
  list lines_of(const std::string& content) const {
    write_file(m_dir.path("f"), content);
    std::vector<typename Spelling::text> lines;
    Spelling::file::linesNotEmpty(Spelling::to_text(m_dir.path()), Spelling::to_text("f"), lines);
    return to_bytes<Spelling>(lines);
  }
  static std::string failure_of(const std::string& folder, const std::string& name) {
    std::vector<typename Spelling::text> lines;
    return thrown_text([&] {
      Spelling::file::linesNotEmpty(Spelling::to_text(folder), Spelling::to_text(name), lines);
    });
  }

  scratch_folder m_dir;
};
TYPED_TEST_SUITE(VuFileLinesNotEmpty, file_spellings, spelling_names);

}  // namespace

TYPED_TEST(VuFileLinesNotEmpty, LeavesBlankLinesAndCarriageReturnsOut) {
  EXPECT_EQ(this->lines_of("one\r\n\r\n\r\ntwo\r\nlast"), (list{"one", "two", "last"}));
}

TYPED_TEST(VuFileLinesNotEmpty, TakesEachPieceByTheSameRule) {
  const std::pair<const char*, list> rows[] = {
      {"", {}},
      {"\n", {}},
      {"\r\n", {}},
      {"\n\n\n", {}},
      {"a", {"a"}},
      {"a\n", {"a"}},
      {"\na", {"a"}},
      {"a\nb\n\nc\n", {"a", "b", "c"}},
      {"a\rb\n", {"a\rb"}},
      {"a\r\r\n", {"a\r"}},
      {"\r\r\n", {"\r"}},
      {"a\nb\r", {"a", "b\r"}},
      {"\r", {"\r"}},
      {"  \n\t\n", {"  ", "\t"}},
      {"d\xC3\xA9\n", {"d\xC3\xA9"}},
      {"\xff\xfe\n", {"\xff\xfe"}},
  };
  for (const auto& [content, expected] : rows)
    EXPECT_EQ(this->lines_of(content), expected) << testing::PrintToString(content);
}

TYPED_TEST(VuFileLinesNotEmpty, KeepsZeroBytes) {
  EXPECT_EQ(this->lines_of(std::string("a\0b\nc\0", 6)),
            (list{std::string("a\0b", 3), std::string("c\0", 2)}));
}

TYPED_TEST(VuFileLinesNotEmpty, AppendsToWhatIsThere) {
  write_file(this->m_dir.path("f"), "new\n");
  std::vector<typename TypeParam::text> lines{TypeParam::to_text("old")};
  TypeParam::file::linesNotEmpty(TypeParam::to_text(this->m_dir.path()), TypeParam::to_text("f"),
                                 lines);
  EXPECT_EQ(to_bytes<TypeParam>(lines), (list{"old", "new"}));
}

TYPED_TEST(VuFileLinesNotEmpty, OfAMissingFileThrowsWhatTheOpenThrows) {
  recording_sink sink;
  EXPECT_EQ(this->failure_of(this->m_dir.path(), "missing"), "throw exception on open");
  EXPECT_EQ(
      sink.count(vu_host::trace_event::warning, "open o_read : " + this->m_dir.path("missing")),
      1U);
}

TYPED_TEST(VuFileLinesNotEmpty, WithAnEmptyNameThrowsTheWrongModeOfItsRead) {
  recording_sink sink;
  EXPECT_EQ(this->failure_of("", "f"), TypeParam::kWrongRead);
  EXPECT_EQ(this->failure_of(this->m_dir.path(), ""), TypeParam::kWrongRead);
  EXPECT_EQ(sink.count(traced::kind_t::event), 0U);
}

TYPED_TEST(VuFileLinesNotEmpty, GivesTheFileFree) {
  this->lines_of("text\n");
  typename TypeParam::file file(TypeParam::to_text(this->m_dir.path("f")));
  bool lock_failed = true;
  EXPECT_TRUE(file.try_open(vu_file_base::o_write, lock_failed, true));
  EXPECT_FALSE(lock_failed);
}
