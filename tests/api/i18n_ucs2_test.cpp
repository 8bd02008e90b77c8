// ucs2string: a sequence of 16-bit units. Conversions read it as UTF-16.

#include <gtest/gtest.h>

#include <cstddef>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include "vu_i18n.h"

namespace {

using std::u16string;

constexpr std::size_t kNone = ucs2string::npos;

/// U+1F600 as two units.
constexpr char16_t kFace[] = u"\xD83D\xDE00";

struct Unpaired {
  const char* what;
  u16string units;
};

const std::vector<Unpaired>& unpaired_surrogates() {
  static const std::vector<Unpaired> texts = {
      {"a high one alone", {0xD83D}},
      {"a high one at the end", {u'a', 0xDBFF}},
      {"a high one before a letter", {0xD800, u'a'}},
      {"two high ones", {0xD83D, 0xD83D, 0xDE00}},
      {"a low one alone", {0xDE00}},
      {"a low one at the start", {0xDC00, u'a'}},
      {"a low one after a pair", {0xD83D, 0xDE00, 0xDFFF}},
      {"a pair the wrong way round", {0xDE00, 0xD83D}},
  };
  return texts;
}

}  // namespace

TEST(Ucs2String, IsEmptyAtFirst) {
  const ucs2string text;
  EXPECT_TRUE(text.empty());
  EXPECT_EQ(text.size(), 0U);
  EXPECT_EQ(text.str(), u"");
  EXPECT_EQ(text.c_str()[0], u'\0');
}

TEST(Ucs2String, TakesANullPointerForTheEmptyString) {
  EXPECT_TRUE(ucs2string(static_cast<const char16_t*>(nullptr)).empty());
}

TEST(Ucs2String, CountsUnitsNotCharacters) {
  EXPECT_EQ(ucs2string(u"\u00E9").size(), 1U);
  EXPECT_EQ(ucs2string(kFace).size(), 2U);
}

TEST(Ucs2String, KeepsEmbeddedNulsGivenAsAString) {
  const u16string units(u"a\0b", 3);
  const ucs2string text(units);
  EXPECT_EQ(text.size(), 3U);
  EXPECT_EQ(text.str(), units);
  EXPECT_EQ(text.c_str()[3], u'\0');
  EXPECT_EQ(ucs2string(u"a\0b").size(), 1U) << "a NUL ends what is given as a pointer";
}

TEST(Ucs2String, IsMadeImplicitlyFromUnits) {
  const auto size_of = [](const ucs2string& text) { return text.size(); };
  EXPECT_EQ(size_of(u"abc"), 3U);
  EXPECT_EQ(size_of(u16string(u"ab")), 2U);
}

TEST(Ucs2String, IsCopiedIndependently) {
  ucs2string original(u"abc");
  ucs2string copy(original);
  copy += u"def";
  EXPECT_EQ(original.str(), u"abc");
  EXPECT_EQ(copy.str(), u"abcdef");

  original = copy;
  copy.replace(u"abc", u"");
  EXPECT_EQ(original.str(), u"abcdef");
  EXPECT_EQ(copy.str(), u"def");

  const ucs2string& same = original;
  original = same;
  EXPECT_EQ(original.str(), u"abcdef");
}

TEST(Ucs2String, IsMoved) {
  const u16string long_text(100, u'x');
  ucs2string source(long_text);
  ucs2string target(std::move(source));
  EXPECT_EQ(target.str(), long_text);
  source = u"again";  // a moved-from string is usable
  EXPECT_EQ(source.str(), u"again");
  source = std::move(target);
  EXPECT_EQ(source.str(), long_text);
}

TEST(Ucs2String, GivesEachUnit) {
  const ucs2string text(u16string(u"a") + kFace);
  EXPECT_EQ(text.at(0), u'a');
  EXPECT_EQ(text.at(1), 0xD83D);
  EXPECT_EQ(text.at(2), 0xDE00);
}

TEST(Ucs2String, RefusesAnIndexThatIsNotBelowTheSize) {
  const ucs2string text(u"abc");
  EXPECT_THROW(text.at(3), vu_i18n_except);
  EXPECT_THROW(text.at(kNone), vu_i18n_except);
  EXPECT_THROW(ucs2string().at(0), vu_i18n_except);
}

TEST(Ucs2String, FindsTheFirstPlace) {
  const ucs2string text(u"docs\\user\\docs");
  EXPECT_EQ(text.find(u"docs"), 0U);
  EXPECT_EQ(text.find(u"docs", 1), 10U);
  EXPECT_EQ(text.find(u"docs", 10), 10U);
  EXPECT_EQ(text.find(u"docs", 11), kNone);
  EXPECT_EQ(text.find(u"docs", 15), kNone) << "beyond the end";
  EXPECT_EQ(text.find(u"docs", kNone), kNone);
  EXPECT_EQ(text.find(u"DOCS"), kNone);
}

TEST(Ucs2String, FindsTheEmptyStringEverywhere) {
  const ucs2string text(u"abc");
  EXPECT_EQ(text.find(ucs2string()), 0U);
  EXPECT_EQ(text.find(ucs2string(), 3), 3U);
  EXPECT_EQ(text.find(ucs2string(), 4), kNone);
  EXPECT_EQ(text.rfind(ucs2string()), 3U);
  EXPECT_EQ(ucs2string().find(text), kNone);
}

TEST(Ucs2String, FindsTheLastPlace) {
  EXPECT_EQ(ucs2string(u"a.b.kdb").rfind(u"."), 3U);
  EXPECT_EQ(ucs2string(u"a.b.kdb").rfind(u"/"), kNone);
  EXPECT_EQ(ucs2string(u"aaa").rfind(u"aa"), 1U);
}

TEST(Ucs2String, SearchesUnitsWithinAPair) {
  EXPECT_EQ(ucs2string(kFace).find(ucs2string(u16string{0xDE00})), 1U);
}

TEST(Ucs2String, GivesAPart) {
  const ucs2string text(u"abcdef");
  EXPECT_EQ(text.substr(0).str(), u"abcdef");
  EXPECT_EQ(text.substr(2, 3).str(), u"cde");
  EXPECT_EQ(text.substr(2, 0).str(), u"");
  EXPECT_EQ(text.substr(4, 100).str(), u"ef");
  EXPECT_EQ(text.substr(6).str(), u"");
  EXPECT_EQ(ucs2string(kFace).substr(1).str(), (u16string{0xDE00})) << "a pair can be cut";
}

TEST(Ucs2String, RefusesAPartThatBeginsBeyondTheEnd) {
  EXPECT_THROW(ucs2string(u"abc").substr(4), vu_i18n_except);
  EXPECT_THROW(ucs2string().substr(1), vu_i18n_except);
}

TEST(Ucs2String, ReplacesEveryOccurrence) {
  ucs2string text(u"a/b/c/");
  EXPECT_EQ(&text.replace(u"/", u"\\"), &text);
  EXPECT_EQ(text.str(), u"a\\b\\c\\");
  EXPECT_EQ(text.replace(u"z", u"!").str(), u"a\\b\\c\\");
  EXPECT_EQ(text.replace(u"", u"!").str(), u"a\\b\\c\\") << "an empty text is not replaced";
  EXPECT_EQ(ucs2string(u"aaaaa").replace(u"aa", u"b").str(), u"bba");
  EXPECT_EQ(ucs2string(u"aa").replace(u"a", u"aa").str(), u"aaaa");
  EXPECT_EQ(ucs2string(u"aabb").replace(u"ab", u"").str(), u"ab");
}

TEST(Ucs2String, CanBeReplacedByItself) {
  ucs2string text(u"abab");
  EXPECT_EQ(text.replace(u"ab", text).str(), u"abababab");
  EXPECT_EQ(text.replace(text, text).str(), u"abababab");
  EXPECT_EQ(text.replace(text, u"x").str(), u"x");
}

TEST(Ucs2String, IsJoined) {
  ucs2string text(u"a");
  EXPECT_EQ(&(text += u"b"), &text);
  text += text;
  EXPECT_EQ(text.str(), u"abab");
  EXPECT_EQ((text + u"c").str(), u"ababc");
  EXPECT_EQ(text.str(), u"abab");
  // Two halves form a character again.
  const ucs2string joined = ucs2string(u16string{0xD83D}) + ucs2string(u16string{0xDE00});
  EXPECT_EQ(vu_utf8string(joined).str(), "\xF0\x9F\x98\x80");
}

TEST(Ucs2String, ComparesUnitByUnit) {
  EXPECT_EQ(ucs2string(u"abc").compare(u"abc"), 0);
  EXPECT_LT(ucs2string(u"abc").compare(u"abd"), 0);
  EXPECT_GT(ucs2string(u"abd").compare(u"abc"), 0);
  EXPECT_LT(ucs2string(u"ab").compare(u"abc"), 0);
  EXPECT_LT(ucs2string(u"Z").compare(u"a"), 0) << "no letter case";
  EXPECT_GT(ucs2string(u"\uFFFD").compare(u"z"), 0) << "units have no sign";
  EXPECT_LT(ucs2string(kFace).compare(u"\uFFFD"), 0)
      << "a character outside the basic plane sorts by its first unit";
  EXPECT_LT(ucs2string(u16string(u"a\0a", 3)).compare(ucs2string(u16string(u"a\0b", 3))), 0);
}

TEST(Ucs2String, HasComparisonOperators) {
  const ucs2string a(u"a");
  const ucs2string b(u"b");
  EXPECT_TRUE(a == ucs2string(u"a"));
  EXPECT_FALSE(a == b);
  EXPECT_TRUE(a != b);
  EXPECT_FALSE(a != ucs2string(u"a"));
  EXPECT_TRUE(a < b);
  EXPECT_FALSE(b < a);
  EXPECT_FALSE(a < a);
}

TEST(Ucs2String, HoldsUnpairedSurrogatesAndRefusesToConvertThem) {
  for (const auto& [what, units] : unpaired_surrogates()) {
    const ucs2string text(units);
    EXPECT_EQ(text.str(), units) << what;
    EXPECT_THROW((vu_utf8string(text)), vu_i18n_except) << what;
    EXPECT_EQ(text.str(), units) << what;
  }
}

TEST(Ucs2String, ConvertsTheEdgesOfEverySequenceLength) {
  EXPECT_EQ(vu_utf8string(ucs2string(u"\u007F")).str(), "\x7F");
  EXPECT_EQ(vu_utf8string(ucs2string(u"\u0080")).str(), "\xC2\x80");
  EXPECT_EQ(vu_utf8string(ucs2string(u"\u07FF")).str(), "\xDF\xBF");
  EXPECT_EQ(vu_utf8string(ucs2string(u"\u0800")).str(), "\xE0\xA0\x80");
  EXPECT_EQ(vu_utf8string(ucs2string(u"\uD7FF")).str(), "\xED\x9F\xBF");
  EXPECT_EQ(vu_utf8string(ucs2string(u"\uE000")).str(), "\xEE\x80\x80");
  EXPECT_EQ(vu_utf8string(ucs2string(u"\uFFFF")).str(), "\xEF\xBF\xBF");
  EXPECT_EQ(vu_utf8string(ucs2string(u"\U00010000")).str(), "\xF0\x90\x80\x80");
  EXPECT_EQ(vu_utf8string(ucs2string(u"\U0010FFFF")).str(), "\xF4\x8F\xBF\xBF");
}

TEST(Ucs2String, ConvertsTheEmptyStringAndNuls) {
  EXPECT_TRUE(vu_utf8string(ucs2string()).empty());
  EXPECT_TRUE(ucs2string(vu_utf8string()).empty());
  EXPECT_EQ(vu_utf8string(ucs2string(u16string(u"a\0b", 3))).str(), std::string("a\0b", 3));
  EXPECT_EQ(ucs2string(vu_utf8string(std::string("a\0b", 3))).str(), u16string(u"a\0b", 3));
}

// Sequence: an ordered list read by index.

namespace {

using Names = Sequence<vu_utf8string>;

std::vector<std::string> contents(const Names& names) {
  std::vector<std::string> result;
  for (const vu_utf8string& each : names) result.push_back(each.str());
  return result;
}

}  // namespace

TEST(SequenceOfNames, IsEmptyAtFirst) {
  const Names names;
  EXPECT_TRUE(names.empty());
  EXPECT_EQ(names.size(), 0U);
  EXPECT_TRUE(names.begin() == names.end());
}

TEST(SequenceOfNames, TakesElementsInTheirOrder) {
  const Names names = {vu_utf8string("b"), vu_utf8string("a"), vu_utf8string("b")};
  EXPECT_FALSE(names.empty());
  EXPECT_EQ(names.size(), 3U);
  EXPECT_EQ(contents(names), (std::vector<std::string>{"b", "a", "b"}));
}

TEST(SequenceOfNames, IsReadAndChangedByIndex) {
  Names names = {vu_utf8string("a"), vu_utf8string("b")};
  names[1] = vu_utf8string("c");
  const Names& fixed = names;
  EXPECT_EQ(fixed[0].str(), "a");
  EXPECT_EQ(fixed[1].str(), "c");
}

TEST(SequenceOfNames, GrowsAtTheEnd) {
  Names names;
  for (int i = 0; i < 1000; ++i) names.push_back(vu_utf8string(std::to_string(i)));
  ASSERT_EQ(names.size(), 1000U);
  EXPECT_EQ(names[0].str(), "0");
  EXPECT_EQ(names[999].str(), "999");
}

TEST(SequenceOfNames, TakesAnElementOfItsOwn) {
  Names names = {vu_utf8string("a text too long to be kept inside the object itself")};
  for (int i = 0; i < 20; ++i) names.push_back(names[0]);
  EXPECT_EQ(names[20], names[0]);
}

TEST(SequenceOfNames, IsCleared) {
  Names names = {vu_utf8string("a")};
  names.clear();
  EXPECT_TRUE(names.empty());
  names.push_back(vu_utf8string("b"));
  EXPECT_EQ(contents(names), (std::vector<std::string>{"b"}));
}

TEST(SequenceOfNames, IsCopiedIndependently) {
  Names original = {vu_utf8string("a")};
  Names copy = original;
  copy[0] += vu_utf8string("x");
  copy.push_back(vu_utf8string("b"));
  EXPECT_EQ(contents(original), (std::vector<std::string>{"a"}));
  EXPECT_EQ(contents(copy), (std::vector<std::string>{"ax", "b"}));
  original = copy;
  EXPECT_EQ(contents(original), (std::vector<std::string>{"ax", "b"}));
}

TEST(SequenceOfNames, HoldsOtherTypesToo) {
  Sequence<int> numbers = {3, 1, 2};
  numbers.push_back(4);
  int sum = 0;
  for (const int each : numbers) sum += each;
  EXPECT_EQ(sum, 10);
  static_assert(std::is_same_v<Sequence<int>::value_type, int>);
}
