// Reading the non-empty lines of a file.

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tests/support/file_spellings.h"
#include "tests/support/recording_sink.h"
#include "tests/support/scratch.h"

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
