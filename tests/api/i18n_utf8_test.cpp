// vu_utf8string: a sequence of bytes. Only conversions check the encoding.

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "vu_i18n.h"

namespace {

using std::string;

constexpr std::size_t kNone = vu_utf8string::npos;

vu_utf8string utf8(const char* text) { return vu_utf8string(text); }

/// The UTF-8 form of one code point.
string encoded(std::uint32_t c) {
  const auto tail = [c](unsigned shift) { return static_cast<char>(0x80U | (c >> shift & 0x3FU)); };
  if (c < 0x80) return {static_cast<char>(c)};
  if (c < 0x800) return {static_cast<char>(0xC0U | c >> 6U), tail(0)};
  if (c < 0x10000) return {static_cast<char>(0xE0U | c >> 12U), tail(6), tail(0)};
  return {static_cast<char>(0xF0U | c >> 18U), tail(12), tail(6), tail(0)};
}

/// The UTF-16 form of one code point.
std::u16string units_of(std::uint32_t c) {
  if (c < 0x10000) return {static_cast<char16_t>(c)};
  return {static_cast<char16_t>(0xD800U + ((c - 0x10000U) >> 10U)),
          static_cast<char16_t>(0xDC00U + ((c - 0x10000U) & 0x3FFU))};
}

struct Invalid {
  const char* what;
  string bytes;
};

const std::vector<Invalid>& invalid_texts() {
  static const std::vector<Invalid> texts = {
      {"a continuation byte alone", "\x80"},
      {"a continuation byte too many", "\xC3\xA9\xA9"},
      {"a lead byte at the end", "abc\xC3"},
      {"a three-byte sequence cut after two", "\xE2\x82"},
      {"a three-byte sequence broken by a letter", "\xE2\x82z"},
      {"a four-byte sequence cut after three", "\xF0\x9F\x98"},
      {"an overlong NUL", "\xC0\x80"},
      {"an overlong slash in two bytes", "\xC0\xAF"},
      {"an overlong slash in three bytes", "\xE0\x80\xAF"},
      {"an overlong slash in four bytes", "\xF0\x80\x80\xAF"},
      {"an overlong U+07FF", "\xE0\x9F\xBF"},
      {"an overlong U+FFFF", "\xF0\x8F\xBF\xBF"},
      {"a high surrogate as three bytes", "\xED\xA0\x80"},
      {"a low surrogate as three bytes", "\xED\xBF\xBF"},
      {"a pair of surrogates as six bytes", "\xED\xA0\xBD\xED\xB8\x80"},
      {"the first number beyond the last character", "\xF4\x90\x80\x80"},
      {"a lead byte of five", "\xF8\x88\x80\x80\x80"},
      {"a lead byte of six", "\xFC\x84\x80\x80\x80\x80"},
      {"the byte FE", "\xFE"},
      {"the byte FF in the middle", "ab\xFFyz"},
      {"Latin-1", "caf\xE9"},
  };
  return texts;
}

}  // namespace

TEST(Utf8String, IsEmptyAtFirst) {
  const vu_utf8string text;
  EXPECT_TRUE(text.empty());
  EXPECT_EQ(text.size(), 0U);
  EXPECT_EQ(text.str(), "");
  EXPECT_STREQ(text.c_str(), "");
  EXPECT_TRUE(text.is_valid());
}

TEST(Utf8String, TakesANullPointerForTheEmptyString) {
  EXPECT_TRUE(vu_utf8string(static_cast<const char*>(nullptr)).empty());
}

TEST(Utf8String, CountsBytesNotCharacters) {
  EXPECT_EQ(utf8("\xC3\xA9").size(), 2U);
  EXPECT_EQ(utf8("\xF0\x9F\x98\x80").size(), 4U);
}

TEST(Utf8String, KeepsEmbeddedNulsGivenAsAString) {
  const vu_utf8string text(string("a\0b", 3));
  EXPECT_EQ(text.size(), 3U);
  EXPECT_EQ(text.str(), string("a\0b", 3));
  EXPECT_STREQ(text.c_str(), "a");
  EXPECT_EQ(utf8("a\0b").size(), 1U) << "a NUL ends what is given as a pointer";
}

TEST(Utf8String, StoresBytesThatAreNotUtf8Unchanged) {
  for (const auto& [what, bytes] : invalid_texts()) {
    const vu_utf8string text(bytes);
    EXPECT_EQ(text.str(), bytes) << what;
    EXPECT_EQ(text, vu_utf8string(bytes)) << what;
    EXPECT_EQ((text + text).str(), bytes + bytes) << what;
  }
}

TEST(Utf8String, IsCopiedIndependently) {
  vu_utf8string original("abc");
  vu_utf8string copy(original);
  copy += utf8("def");
  EXPECT_EQ(original.str(), "abc");
  EXPECT_EQ(copy.str(), "abcdef");

  original = copy;
  copy.replace(utf8("abc"), utf8(""));
  EXPECT_EQ(original.str(), "abcdef");
  EXPECT_EQ(copy.str(), "def");
}

TEST(Utf8String, SurvivesAssignmentToItself) {
  vu_utf8string text("a text that is too long to be kept inside the object itself");
  const vu_utf8string& same = text;
  text = same;
  EXPECT_EQ(text.str(), "a text that is too long to be kept inside the object itself");
}

TEST(Utf8String, IsMoved) {
  const string long_text(100, 'x');
  vu_utf8string source(long_text);
  vu_utf8string target(std::move(source));
  EXPECT_EQ(target.str(), long_text);
  source = utf8("again");  // a moved-from string is usable
  EXPECT_EQ(source.str(), "again");
  source = std::move(target);
  EXPECT_EQ(source.str(), long_text);
}

TEST(Utf8String, GivesEachByte) {
  const vu_utf8string text("a\xC3\xA9");
  EXPECT_EQ(text.at(0), 'a');
  EXPECT_EQ(text.at(1), '\xC3');
  EXPECT_EQ(text.at(2), '\xA9');
}

TEST(Utf8String, RefusesAnIndexThatIsNotBelowTheSize) {
  const vu_utf8string text("abc");
  EXPECT_THROW(text.at(3), vu_i18n_except);
  EXPECT_THROW(text.at(kNone), vu_i18n_except);
  EXPECT_THROW(vu_utf8string().at(0), vu_i18n_except);
}

TEST(Utf8String, FindsTheFirstPlace) {
  const vu_utf8string text("docs\\user\\docs");
  EXPECT_EQ(text.find(utf8("docs")), 0U);
  EXPECT_EQ(text.find(utf8("\\")), 4U);
  EXPECT_EQ(text.find(utf8("DOCS")), kNone);
  EXPECT_EQ(text.find(utf8("docs\\user\\docs\\")), kNone) << "longer than the text";
}

TEST(Utf8String, FindsFromAPositionOn) {
  const vu_utf8string text("abcabc");
  EXPECT_EQ(text.find(utf8("abc"), 0), 0U);
  EXPECT_EQ(text.find(utf8("abc"), 1), 3U);
  EXPECT_EQ(text.find(utf8("abc"), 3), 3U);
  EXPECT_EQ(text.find(utf8("abc"), 4), kNone);
  EXPECT_EQ(text.find(utf8("abc"), 6), kNone);
  EXPECT_EQ(text.find(utf8("abc"), 7), kNone) << "beyond the end";
  EXPECT_EQ(text.find(utf8("abc"), kNone), kNone);
}

TEST(Utf8String, FindsTheEmptyStringEverywhere) {
  const vu_utf8string text("abc");
  EXPECT_EQ(text.find(vu_utf8string()), 0U);
  EXPECT_EQ(text.find(vu_utf8string(), 2), 2U);
  EXPECT_EQ(text.find(vu_utf8string(), 3), 3U);
  EXPECT_EQ(text.find(vu_utf8string(), 4), kNone);
  EXPECT_EQ(text.rfind(vu_utf8string()), 3U);
  EXPECT_EQ(vu_utf8string().find(vu_utf8string()), 0U);
  EXPECT_EQ(vu_utf8string().find(text), kNone);
}

TEST(Utf8String, FindsTheLastPlace) {
  const vu_utf8string text("a.b.kdb");
  EXPECT_EQ(text.rfind(utf8(".")), 3U);
  EXPECT_EQ(text.rfind(utf8("a")), 0U);
  EXPECT_EQ(text.rfind(utf8("/")), kNone);
  EXPECT_EQ(utf8("aaa").rfind(utf8("aa")), 1U);
}

TEST(Utf8String, SearchesBytesAcrossCharacters) {
  // U+00E9 and U+00C9 have the same second byte.
  EXPECT_EQ(utf8("\xC3\xA9").find(utf8("\xA9")), 1U);
  EXPECT_EQ(vu_utf8string(string("a\0b\0c", 5)).find(vu_utf8string(string("\0c", 2))), 3U);
}

TEST(Utf8String, GivesAPart) {
  const vu_utf8string text("abcdef");
  EXPECT_EQ(text.substr(0).str(), "abcdef");
  EXPECT_EQ(text.substr(2).str(), "cdef");
  EXPECT_EQ(text.substr(2, 3).str(), "cde");
  EXPECT_EQ(text.substr(2, 0).str(), "");
  EXPECT_EQ(text.substr(4, 100).str(), "ef");
  EXPECT_EQ(text.substr(6).str(), "");
}

TEST(Utf8String, RefusesAPartThatBeginsBeyondTheEnd) {
  EXPECT_THROW(utf8("abc").substr(4), vu_i18n_except);
  EXPECT_THROW(utf8("abc").substr(kNone, 0), vu_i18n_except);
  EXPECT_EQ(vu_utf8string().substr(0).str(), "");
  EXPECT_THROW(vu_utf8string().substr(1), vu_i18n_except);
}

TEST(Utf8String, ReplacesEveryOccurrence) {
  vu_utf8string text("a/b/c/");
  EXPECT_EQ(&text.replace(utf8("/"), utf8("\\")), &text);
  EXPECT_EQ(text.str(), "a\\b\\c\\");
  EXPECT_EQ(text.replace(utf8("\\"), vu_utf8string()).str(), "abc");
  EXPECT_EQ(text.replace(utf8("z"), utf8("!")).str(), "abc");
  EXPECT_EQ(text.replace(utf8("abc"), utf8("x")).str(), "x");
  EXPECT_EQ(vu_utf8string().replace(utf8("a"), utf8("b")).str(), "");
}

TEST(Utf8String, ReplacesNothingForTheEmptyString) {
  vu_utf8string text("abc");
  EXPECT_EQ(text.replace(vu_utf8string(), utf8("x")).str(), "abc");
  EXPECT_EQ(vu_utf8string().replace(vu_utf8string(), utf8("x")).str(), "");
}

TEST(Utf8String, ReplacesFromLeftToRightWithoutOverlap) {
  EXPECT_EQ(utf8("aaaaa").replace(utf8("aa"), utf8("b")).str(), "bba");
}

TEST(Utf8String, DoesNotReplaceWhatTheReplacementBrings) {
  EXPECT_EQ(utf8("aa").replace(utf8("a"), utf8("aa")).str(), "aaaa");
  EXPECT_EQ(utf8("ab").replace(utf8("a"), utf8("xab")).str(), "xabb");
  // The text on both sides of a replacement can form a new occurrence, which stays.
  EXPECT_EQ(utf8("aabb").replace(utf8("ab"), vu_utf8string()).str(), "ab");
}

TEST(Utf8String, CanBeReplacedByItself) {
  vu_utf8string text("abab");
  EXPECT_EQ(text.replace(utf8("ab"), text).str(), "abababab");
  EXPECT_EQ(text.replace(text, text).str(), "abababab");
  EXPECT_EQ(text.replace(text, utf8("x")).str(), "x");
}

TEST(Utf8String, ComparesByteByByte) {
  EXPECT_EQ(utf8("abc").compare(utf8("abc")), 0);
  EXPECT_LT(utf8("abc").compare(utf8("abd")), 0);
  EXPECT_GT(utf8("abd").compare(utf8("abc")), 0);
  EXPECT_LT(utf8("ab").compare(utf8("abc")), 0);
  EXPECT_LT(vu_utf8string().compare(utf8("a")), 0);
  EXPECT_LT(utf8("Z").compare(utf8("a")), 0) << "no letter case";
  EXPECT_GT(utf8("\xC3\xA9").compare(utf8("z")), 0) << "bytes from 80 on come last";
  EXPECT_LT(vu_utf8string(string("a\0a", 3)).compare(vu_utf8string(string("a\0b", 3))), 0)
      << "a NUL does not end the comparison";
}

TEST(Utf8String, HasComparisonOperators) {
  EXPECT_TRUE(utf8("a") == utf8("a"));
  EXPECT_FALSE(utf8("a") == utf8("b"));
  EXPECT_TRUE(utf8("a") != utf8("b"));
  EXPECT_FALSE(utf8("a") != utf8("a"));
  EXPECT_TRUE(utf8("a") < utf8("b"));
  EXPECT_FALSE(utf8("b") < utf8("a"));
  EXPECT_FALSE(utf8("a") < utf8("a"));
  EXPECT_TRUE(utf8("z") < utf8("\xC3\xA9"));
  EXPECT_FALSE(vu_utf8string(string("a\0", 2)) == utf8("a"));
}

TEST(Utf8String, IsJoined) {
  vu_utf8string text("a");
  EXPECT_EQ(&(text += utf8("b")), &text);
  EXPECT_EQ(text.str(), "ab");
  text += text;
  EXPECT_EQ(text.str(), "abab");
  text += vu_utf8string();
  EXPECT_EQ(text.str(), "abab");
  EXPECT_EQ((text + utf8("c")).str(), "ababc");
  EXPECT_EQ(text.str(), "abab");
  EXPECT_EQ((vu_utf8string(string("\0", 1)) + utf8("x")).str(), string("\0x", 2));
}

TEST(Utf8String, DistinguishesValidFromInvalid) {
  for (const auto& [what, bytes] : invalid_texts()) {
    EXPECT_FALSE(vu_utf8string(bytes).is_valid()) << what;
  }
  for (const char* const good : {"", "abc", "\xC3\xA9", "\xE2\x82\xAC", "\xF0\x9F\x98\x80",
                                 "\xF4\x8F\xBF\xBF", "\xEF\xBF\xBE", "\xEF\xBB\xBFmark"}) {
    EXPECT_TRUE(utf8(good).is_valid()) << good;
  }
  EXPECT_TRUE(vu_utf8string(string("a\0b", 3)).is_valid());
}

TEST(Utf8String, RefusesToConvertWhatIsNotUtf8) {
  for (const auto& [what, bytes] : invalid_texts()) {
    const vu_utf8string text(bytes);
    EXPECT_THROW((ucs2string(text)), vu_i18n_except) << what;
    EXPECT_EQ(text.str(), bytes) << what;
  }
}

TEST(Utf8String, ConvertsEveryCharacterThereIsAndBack) {
  // One code point at a time, so that a failure names it. Surrogates are not characters.
  for (std::uint32_t c = 0; c <= 0x10FFFF; ++c) {
    if (c == 0xD800) c = 0xE000;
    const vu_utf8string text(encoded(c));
    ASSERT_TRUE(text.is_valid()) << std::hex << c;
    const ucs2string wide(text);
    ASSERT_EQ(wide.str(), units_of(c)) << std::hex << c;
    ASSERT_EQ(vu_utf8string(wide), text) << std::hex << c;
  }
}

TEST(Utf8String, ConvertsMixedTextOfAnyLength) {
  string bytes;
  std::u16string units;
  for (int repeat = 0; repeat < 500; ++repeat) {
    for (const std::uint32_t c : {0x41U, 0xE9U, 0x20ACU, 0x1F600U, 0U, 0xFFFFU, 0x10000U}) {
      bytes += encoded(c);
      units += units_of(c);
    }
  }
  EXPECT_EQ(ucs2string(vu_utf8string(bytes)).str(), units);
  EXPECT_EQ(vu_utf8string(ucs2string(units)).str(), bytes);
}

TEST(Utf8String, KeepsAByteOrderMarkAsACharacter) {
  EXPECT_EQ(ucs2string(utf8("\xEF\xBB\xBFz")).str(), u"\uFEFFz");
  EXPECT_EQ(vu_utf8string(ucs2string(u"\uFEFFz")).str(), "\xEF\xBB\xBFz");
}

TEST(I18nException, CarriesItsTextAndIsCopied) {
  const vu_i18n_except original("a text");
  EXPECT_STREQ(original.what(), "a text");
  vu_i18n_except copy(original);
  EXPECT_STREQ(copy.what(), "a text");
  const vu_i18n_except other("another text");
  copy = other;
  EXPECT_STREQ(copy.what(), "another text");
  EXPECT_STREQ(other.what(), "another text");
}

TEST(I18nException, IsAStandardException) {
  // The exception is thrown in the library and caught here, so the type must be the same on both
  // sides.
  try {
    utf8("abc").at(99);
    FAIL() << "nothing was thrown";
  } catch (const std::exception& e) {
    EXPECT_STRNE(e.what(), "");
    EXPECT_NE(dynamic_cast<const vu_i18n_except*>(&e), nullptr);
  }
}
