#include <gtest/gtest.h>

#include <map>
#include <string>
#include <vector>

#include "index/index_format.h"
#include "tests/unit/index_fixture.h"
#include "tests/unit/index_text_kit.h"

// The lines of a text: which there are. Which of them count: index_text_test.cpp.

namespace {

using index_format::Line;
using index_format::Lines;
using PlainLine = plain_index::line;
using plain_index::shown;

std::vector<PlainLine> lines_of(const std::string& text) {
  std::vector<PlainLine> result;
  Lines lines(text);
  Line line;
  while (lines.next(line)) {
    EXPECT_LT(line.separator, text.size()) << shown(text);
    EXPECT_EQ(line.key.data() + line.key.size(), text.data() + line.separator) << shown(text);
    EXPECT_EQ(line.stored.data(), text.data() + line.separator + 1) << shown(text);
    EXPECT_EQ(line.runs_on, line.key.find('\n') != std::string_view::npos) << shown(text);
    result.push_back({std::string(line.key), std::string(line.stored)});
  }
  EXPECT_FALSE(lines.next(line)) << shown(text);
  return result;
}

/// Compares every walk over a text with the plain one.
void expect_the_plain_lines(const std::string& text) {
  const std::vector<PlainLine> expected = plain_index::lines(text);
  ASSERT_EQ(lines_of(text).size(), expected.size()) << shown(text);
  ASSERT_TRUE(lines_of(text) == expected) << shown(text);

  std::map<std::string, std::vector<PlainLine>> by_key = {
      {"", {}}, {"a", {}}, {"b", {}}, {"a/a", {}}, {"\n", {}}};
  for (const PlainLine& line : expected) by_key[line.key].push_back(line);
  for (const auto& [key, lines] : by_key) {
    ASSERT_TRUE(lines_of_key(text, key) == lines) << shown(text) << " key " << shown(key);
  }
}

// ---- which lines there are ---------------------------------------------------------------------

TEST(IndexLines, AreThePlainOnesInEveryShortText) {
  constexpr const char* kCharacters = "a/\n";
  for (std::size_t length = 0; length <= 9; ++length) {
    std::size_t texts = 1;
    for (std::size_t i = 0; i < length; ++i) texts *= 3;
    for (std::size_t number = 0; number < texts; ++number) {
      std::string text;
      for (std::size_t rest = number; text.size() < length; rest /= 3)
        text += kCharacters[rest % 3];
      expect_the_plain_lines(text);
      if (HasFatalFailure()) return;
    }
  }
}

TEST(IndexLines, AreThePlainOnesInRandomTexts) {
  RandomTexts texts(20240117, {"a", "b", "/", "\n", "_", "0", "1", ".", "a_0000000001", "/\n",
                               "\n\n", "b.a_0000000002/00000001\n"});
  for (int i = 0; i < 20000; ++i) {
    expect_the_plain_lines(texts.next(24));
    if (HasFatalFailure()) return;
  }
}

TEST(IndexLines, EndWithTheLastSlash) {
  EXPECT_TRUE(lines_of("").empty());
  EXPECT_TRUE(lines_of(" ").empty());
  EXPECT_TRUE(lines_of("\n\n\n").empty());
  EXPECT_TRUE(lines_of("abc\ndef").empty());
  EXPECT_EQ(lines_of("a/b\nccc\nddd").size(), 1U);
}

TEST(IndexLines, NeedNoLineFeedAtTheEnd) {
  const std::vector<PlainLine> expected = {{"k_0000000001", "00000001"}};
  EXPECT_EQ(lines_of("k_0000000001/00000001"), expected);
  EXPECT_EQ(lines_of("k_0000000001/00000001\n"), expected);
}

TEST(IndexLines, SeparateAtTheirFirstSlashOnly) {
  const std::vector<PlainLine> expected = {{"a", "b/c"}, {"", "/d"}, {"e", ""}};
  EXPECT_EQ(lines_of("a/b/c\n//d\ne/\n"), expected);
}

TEST(IndexLines, KeepACarriageReturnInThePhysicalName) {
  const std::vector<PlainLine> expected = {{"a", "b\r"}, {"c", "d"}};
  EXPECT_EQ(lines_of("a/b\r\nc/d\n"), expected);
}

TEST(IndexLines, RunOnToTheNextSlashWithTheRestOfTheTextAsName) {
  const std::vector<PlainLine> expected = {{"x\ny\nkey", "phys\nkey2/phys2\n"},
                                           {"y\nkey", "phys\nkey2/phys2\n"},
                                           {"key", "phys"},
                                           {"key2", "phys2"}};
  EXPECT_EQ(lines_of("x\ny\nkey/phys\nkey2/phys2\n"), expected);
}

}  // namespace
