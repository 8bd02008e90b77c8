#include "storage/key_text.h"

#include <gtest/gtest.h>

#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "stg_types.h"

// The text form of key files, without any file.

namespace {

using Pairs = std::vector<std::pair<std::string, std::string>>;

STG::NameValueSeq sequence_of(const Pairs& pairs) {
  STG::NameValueSeq seq;
  for (const auto& [name, value] : pairs) seq.push_back({name, value});
  return seq;
}

Pairs pairs_in(const std::string& text, key_text::Separator separator) {
  Pairs pairs;
  key_text::Lines lines(text);
  std::string_view line;
  while (lines.next(line)) {
    if (const auto pair = key_text::split(line, separator))
      pairs.emplace_back(std::string(pair->name), std::string(pair->value));
  }
  return pairs;
}

TEST(KeyText, ALineIsSplitAtItsFirstOrItsLastSeparator) {
  struct Case {
    const char* line;
    std::pair<const char*, const char*> first;
    std::pair<const char*, const char*> last;
  };
  for (const Case& c : {
           Case{"a=b", {"a", "b"}, {"a", "b"}},
           Case{"a=b=c", {"a", "b=c"}, {"a=b", "c"}},
           Case{"=x", {"", "x"}, {"", "x"}},
           Case{"x=", {"x", ""}, {"x", ""}},
           Case{"=", {"", ""}, {"", ""}},
           Case{"==", {"", "="}, {"=", ""}},
           Case{"a = b", {"a ", " b"}, {"a ", " b"}},
           Case{"#x=1", {"#x", "1"}, {"#x", "1"}},
           Case{"\"a=b\"", {"\"a", "b\""}, {"\"a", "b\""}},
           Case{"a\\=b=c", {"a\\", "b=c"}, {"a\\=b", "c"}},
       }) {
    SCOPED_TRACE(c.line);
    const auto first = key_text::split(c.line, key_text::Separator::kFirst);
    const auto last = key_text::split(c.line, key_text::Separator::kLast);
    ASSERT_TRUE(first && last);
    EXPECT_EQ(first->name, c.first.first);
    EXPECT_EQ(first->value, c.first.second);
    EXPECT_EQ(last->name, c.last.first);
    EXPECT_EQ(last->value, c.last.second);
  }
}

TEST(KeyText, ALineWithoutASeparatorGivesNothing) {
  for (const char* line : {"", "abc", " ", "a:b"}) {
    SCOPED_TRACE(line);
    EXPECT_FALSE(key_text::split(line, key_text::Separator::kFirst));
    EXPECT_FALSE(key_text::split(line, key_text::Separator::kLast));
  }
}

TEST(KeyText, CarriageReturnLineFeedAndTabEndALineAndRunsOfThemAreOneBoundary) {
  struct Case {
    std::string text;
    Pairs pairs;
  };
  const std::string nul("n\0=v\0w", 6);
  for (const Case& c : {
           Case{"", {}},
           Case{"\n", {}},
           Case{"\r\n\t", {}},
           Case{"a=b\n", {{"a", "b"}}},
           Case{"a=b", {{"a", "b"}}},
           Case{"a=b\tc=d", {{"a", "b"}, {"c", "d"}}},
           Case{"k=a\tw", {{"k", "a"}}},
           Case{"\r\n\r\nk=v\r\n", {{"k", "v"}}},
           Case{"a=1\rb=2\r\nc=3\n\rd=4\t\t\te=5",
                {{"a", "1"}, {"b", "2"}, {"c", "3"}, {"d", "4"}, {"e", "5"}}},
           Case{"a=1\n \nb=2\n", {{"a", "1"}, {"b", "2"}}},
           Case{"a=1\na=1\na=2\n", {{"a", "1"}, {"a", "1"}, {"a", "2"}}},
           Case{"b=1\na=2\n", {{"b", "1"}, {"a", "2"}}},
           Case{"a=\v1\f\n", {{"a", "\v1\f"}}},
           Case{"\xEF\xBB\xBFk=\xFC\n", {{"\xEF\xBB\xBFk", "\xFC"}}},
           Case{nul + "\n", {{std::string("n\0", 2), std::string("v\0w", 3)}}},
       }) {
    SCOPED_TRACE(testing::PrintToString(c.text));
    EXPECT_EQ(pairs_in(c.text, key_text::Separator::kFirst), c.pairs);
  }
}

TEST(KeyText, ASequenceBecomesOneLineForEachElementAndReadsBack) {
  EXPECT_EQ(key_text::join({}), "");
  const Pairs pairs = {{"a", "1"}, {"b", "2"}};
  EXPECT_EQ(key_text::join(sequence_of(pairs)), "a=1\nb=2\n");
  EXPECT_EQ(pairs_in("a=1\nb=2\n", key_text::Separator::kFirst), pairs);
  EXPECT_EQ(key_text::join(sequence_of({{"", ""}, {"z", "x=y"}, {"a", ""}, {"a", ""}})),
            "=\nz=x=y\na=\na=\n");
}

TEST(KeyText, WhatALineCannotHoldIsWrittenAsItStands) {
  const std::string text = key_text::join(sequence_of({{"a", "1\t2"}, {"b=c", "3"}}));
  EXPECT_EQ(text, "a=1\t2\nb=c=3\n");
  EXPECT_EQ(pairs_in(text, key_text::Separator::kFirst), (Pairs{{"a", "1"}, {"b", "c=3"}}));
  EXPECT_EQ(pairs_in(text, key_text::Separator::kLast), (Pairs{{"a", "1"}, {"b=c", "3"}}));
}

TEST(KeyText, CuttingTakesTheFirstOccurrenceAndTheRestOfItsLine) {
  struct Case {
    const char* text;
    const char* entry;
    bool found;
    const char* left;
  };
  for (
      const Case& c : {
          Case{"a=1\nb=2\n", "a", true, "b=2\n"},
          Case{"a=1\nb=2\n", "b", true, "a=1\n"},
          // Inside another line's name: that line keeps what stands before, and its line feed goes.
          Case{"ab=1\nb=2\n", "b", true, "ab=2\n"},
          Case{"x=b\nb=2\n", "b", true, "x=b=2\n"},
          Case{"a=1\nb=2\na=3\n", "a", true, "b=2\na=3\n"},
          Case{"a=1\n", "a", true, ""},
          Case{"a=1", "a", true, ""},
          Case{"a=1\nb=2", "b", true, "a=1\n"},
          Case{"a=1\nb=2\n", "c", false, "a=1\nb=2\n"},
          Case{"", "c", false, ""},
          Case{"a=1\r\nb=2\r\n", "a", true, "b=2\r\n"},
          // Only a line feed ends what is cut.
          Case{"a=1\tb=2\nc=3\n", "a", true, "c=3\n"},
          // An entry that spans lines is cut from its begin to the first line feed in it.
          Case{"a=1\nb=2\n", "1\nb", true, "a=b=2\n"},
          Case{"a=1\nb=2\n", "", true, "b=2\n"},
          Case{"", "", true, ""},
          Case{"\n", "", true, ""},
      }) {
    SCOPED_TRACE(testing::PrintToString(c.text) + " without " + testing::PrintToString(c.entry));
    std::string text = c.text;
    EXPECT_EQ(key_text::cut_line(text, c.entry), c.found);
    EXPECT_EQ(text, c.left);
  }
}

}  // namespace
