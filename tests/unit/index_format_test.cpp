// Keys, timestamps, numbers and escaped names.

#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <map>
#include <random>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "index/index_format.h"
#include "index/name_order.h"
#include "index/scan.h"
#include "tests/support/index_peer.h"
#include "tests/unit/index_fixture.h"

namespace {

using Peer = stg_index_test_peer;
using NameMap = STGIndex::NameMap;

TEST(IndexKey, EndsWithAnUnderscoreAndTenDigits) {
  EXPECT_EQ(Peer::entryAndTS("a.kdb", 7), "a.kdb_0000000007");
  EXPECT_EQ(Peer::entryAndTS("Sales Report.kdb", 1199145600), "Sales Report.kdb_1199145600");
  EXPECT_EQ(Peer::entryAndTS("a_b_c", 42), "a_b_c_0000000042");
  EXPECT_EQ(Peer::entryAndTS("", 0), "_0000000000");
  EXPECT_EQ(Peer::entryAndTS("x", 2147483647), "x_2147483647");
}

TEST(IndexKey, KeepsTheBytesOfTheNameAsTheyAre) {
  const std::string name("\xC3\xA9\x80\xFF /\n\0x", 9);
  EXPECT_EQ(Peer::entryAndTS(name, 1), name + "_0000000001");
}

TEST(IndexKey, HoldsANegativeTimestampInItsUnsignedForm) {
  EXPECT_EQ(Peer::entryAndTS("a", -1), "a_4294967295");
  EXPECT_EQ(Peer::entryAndTS("a", -2147483647L - 1), "a_2147483648");
}

TEST(IndexKey, ClampsATimestampThatIsWiderThan32Bits) {
  // Where `long` has 32 bits, these are its limits and nothing is clamped.
  EXPECT_EQ(Peer::entryAndTS("a", std::numeric_limits<long>::max()), "a_2147483647");
  EXPECT_EQ(Peer::entryAndTS("a", std::numeric_limits<long>::min()), "a_2147483648");
}

TEST(IndexKey, GivesItsLogicalNameBack) {
  EXPECT_EQ(Peer::entryOnly("a.kdb_0000000007"), "a.kdb");
  EXPECT_EQ(Peer::entryOnly("a_b_c_0000000042"), "a_b_c");
  EXPECT_EQ(Peer::entryOnly("_0000000000"), "");
  // The last eleven characters are removed without a check.
  EXPECT_EQ(Peer::entryOnly("abcdefghijkl"), "a");
}

TEST(IndexKey, GivesItsTimestampBack) {
  EXPECT_EQ(Peer::tsOnly("a.kdb_0000000007"), 7);
  EXPECT_EQ(Peer::tsOnly("a.kdb_0000000000"), 0);
  EXPECT_EQ(Peer::tsOnly("a.kdb_2147483647"), 2147483647);
  EXPECT_EQ(Peer::tsOnly("0000000012"), 12);
}

TEST(IndexKey, DoesNotGiveANegativeTimestampBack) {
  EXPECT_EQ(Peer::tsOnly(Peer::entryAndTS("a", -1)), 2147483647);
  EXPECT_EQ(Peer::tsOnly("a_4294967295"), 2147483647);
  EXPECT_EQ(Peer::tsOnly("a_9999999999"), 2147483647);
}

TEST(IndexKey, HasTimestampZeroWhenItEndsInNoNumber) {
  EXPECT_EQ(Peer::tsOnly("name_abcdefghij"), 0);
  EXPECT_EQ(Peer::tsOnly("name_12abcdefgh"), 12);
  EXPECT_EQ(Peer::tsOnly("name_      -0031"), -31);
}

TEST(IndexKey, IsRefusedWhenItIsTooShort) {
  EXPECT_THROW(Peer::entryOnly(""), std::out_of_range);
  EXPECT_THROW(Peer::entryOnly("0123456789"), std::out_of_range);
  EXPECT_NO_THROW(Peer::entryOnly("_0123456789"));
  EXPECT_THROW(Peer::tsOnly(""), std::out_of_range);
  EXPECT_THROW(Peer::tsOnly("012345678"), std::out_of_range);
  EXPECT_NO_THROW(Peer::tsOnly("0123456789"));
}

TEST(IndexKey, GivesTheSameToTheTextFunctions) {
  EXPECT_EQ(index_format::key_of("a.kdb", 7), "a.kdb_0000000007");
  EXPECT_EQ(index_format::key_of("a", -1), "a_4294967295");
  EXPECT_EQ(index_format::logical_of("a.kdb_0000000007"), "a.kdb");
  EXPECT_EQ(index_format::timestamp_of("a.kdb_0000000007"), 7);
  EXPECT_EQ(index_format::timestamp_of("a_4294967295"), 2147483647);
}

TEST(IndexExtension, ReachesFromTheLastDotToTheEnd) {
  const std::vector<std::pair<std::string, std::string>> table = {
      {"a.kdb", ".kdb"}, {"README", ""},           {"", ""},        {".", "."},
      {"a.", "."},       {".profile", ".profile"}, {"a.b.c", ".c"}, {"dir.old\\file", ".old\\file"},
      {"R.KDB", ".KDB"}};
  for (const auto& [name, extension] : table) {
    EXPECT_EQ(Peer::extension(name), extension) << name;
    EXPECT_EQ(index_format::extension_of(name), extension) << name;
  }
}

TEST(IndexPhysicalName, IsTheStoredNameAloneForAFileFoundInTheFolder) {
  EXPECT_EQ(index_format::file_name_of("notes.txt_0000000000", "notes.txt"), "notes.txt");
  EXPECT_EQ(index_format::file_name_of("README_0000000000", "README"), "README");
}

TEST(IndexPhysicalName, IsTheStoredNameWithTheLogicalNamesExtensionOtherwise) {
  EXPECT_EQ(index_format::file_name_of("a.kdb_0000000007", "00000012"), "00000012.kdb");
  EXPECT_EQ(index_format::file_name_of("README_0000000007", "00000012"), "00000012");
  // Also at timestamp 0, if the physical name is not the logical name.
  EXPECT_EQ(index_format::file_name_of("read.txt_0000000000", "00000001"), "00000001.txt");
  // With the same name at another timestamp the extension is appended to it again.
  EXPECT_EQ(index_format::file_name_of("notes.txt_0000000001", "notes.txt"), "notes.txt.txt");
}

TEST(IndexPhysicalName, TreatsAnInvalidTimestampAsZero) {
  EXPECT_EQ(index_format::file_name_of("notes.txt_abcdefghij", "notes.txt"), "notes.txt");
}

TEST(IndexAccessors, DeriveTheirValuesFromTheElement) {
  const NameMap entries = {{"Sales Report.kdb_1199145600", "00000001"},
                           {"budget.kdc_0000000042", "00000002"},
                           {"notes.txt_0000000000", "notes.txt"}};
  auto it = entries.begin();
  EXPECT_EQ(Peer::lName(it), "Sales Report.kdb");
  EXPECT_EQ(Peer::ts(it), 1199145600);
  EXPECT_EQ(Peer::pName(it), "00000001.kdb");
  ++it;
  EXPECT_EQ(Peer::lName(it), "budget.kdc");
  EXPECT_EQ(Peer::ts(it), 42);
  EXPECT_EQ(Peer::pName(it), "00000002.kdc");
  ++it;
  EXPECT_EQ(Peer::lName(it), "notes.txt");
  EXPECT_EQ(Peer::ts(it), 0);
  EXPECT_EQ(Peer::pName(it), "notes.txt");
}

TEST(IndexNumber, IsReadLikeAWhole32BitNumber) {
  const std::vector<std::pair<std::string, std::int32_t>> table = {{"", 0},
                                                                   {"0", 0},
                                                                   {"00000041", 41},
                                                                   {"7x9", 7},
                                                                   {"x7", 0},
                                                                   {"12 13", 12},
                                                                   {" \t\n\v\f\r 15", 15},
                                                                   {"+16", 16},
                                                                   {"-17", -17},
                                                                   {"  -18", -18},
                                                                   {"- 19", 0},
                                                                   {"--20", 0},
                                                                   {"+-21", 0},
                                                                   {"-", 0},
                                                                   {"+", 0},
                                                                   {"   ", 0},
                                                                   {"0x10", 0},
                                                                   {"1.9", 1},
                                                                   {"-0", 0}};
  for (const auto& [text, number] : table) {
    EXPECT_EQ(index_format::parse_decimal(text), number) << '"' << text << '"';
  }
  EXPECT_EQ(index_format::parse_decimal(std::string_view("4\0002", 3)), 4);
}

TEST(IndexNumber, StopsAtTheEndsOfItsRange) {
  constexpr auto kMost = std::numeric_limits<std::int32_t>::max();
  constexpr auto kLeast = std::numeric_limits<std::int32_t>::min();
  EXPECT_EQ(index_format::parse_decimal("2147483646"), kMost - 1);
  EXPECT_EQ(index_format::parse_decimal("2147483647"), kMost);
  EXPECT_EQ(index_format::parse_decimal("2147483648"), kMost);
  EXPECT_EQ(index_format::parse_decimal("4294967295"), kMost);
  EXPECT_EQ(index_format::parse_decimal("4294967296"), kMost);
  EXPECT_EQ(index_format::parse_decimal("18446744073709551616"), kMost);
  EXPECT_EQ(index_format::parse_decimal(std::string(1000, '9')), kMost);
  EXPECT_EQ(index_format::parse_decimal("-2147483647"), -kMost);
  EXPECT_EQ(index_format::parse_decimal("-2147483648"), kLeast);
  EXPECT_EQ(index_format::parse_decimal("-2147483649"), kLeast);
  EXPECT_EQ(index_format::parse_decimal("-" + std::string(1000, '9')), kLeast);
  EXPECT_EQ(index_format::parse_decimal(std::string(1000, '0') + "5"), 5);
}

TEST(EscapedForm, HoldsLettersDigitsAndSevenMoreCharacters) {
  const std::string allowed =
      "0123456789abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ-_+%./#";
  EXPECT_TRUE(STGIndex::iSsambaOrT101(allowed));
  for (int code = 0; code < 256; ++code) {
    const char character = static_cast<char>(static_cast<unsigned char>(code));
    const bool is_allowed = allowed.find(character) != std::string::npos;
    EXPECT_EQ(STGIndex::iSsambaOrT101(std::string(1, character)), is_allowed) << code;
    EXPECT_EQ(STGIndex::iSsambaOrT101("Q1" + std::string(1, character) + "a"), is_allowed) << code;
  }
}

TEST(EscapedForm, IsThatOfTheEmptyName) { EXPECT_TRUE(STGIndex::iSsambaOrT101("")); }

TEST(EscapedForm, DiffersFromABlankInTheName) {
  EXPECT_TRUE(STGIndex::iSsambaOrT101("Q1+Sales%2Fdoc.kdb"));
  EXPECT_FALSE(STGIndex::iSsambaOrT101("Q1 Sales.kdb"));
}

std::string unescaped(std::string name) {
  STGIndex::UnescapeVU(name);
  return name;
}

TEST(Unescape, DecodesBytesAndBlanksUpToTheExtension) {
  const std::vector<std::pair<std::string, std::string>> table = {
      {"My%20Report+1.kdb", "My Report 1.kdb"},
      {"x%41.y%20", "xA.y%20"},
      {"Q1%20Sales.kdb", "Q1 Sales.kdb"},
      {"plain.kdb", "plain.kdb"},
      {"plain", "plain"},
      {"", ""},
      {".+%20", ".+%20"},
      {"+", " "},
      {"a+b+c", "a b c"},
      {"a.b+c.d+", "a.b c.d+"},
      {"%2Fetc", "/etc"},
      {"%2fetc", "/etc"},
      {"%0A", "\n"},
      {"%25%32%35", "%25"},
      {"%2525", "%25"},
      {"a/b+#.x", "a/b #.x"}};
  for (const auto& [escaped, name] : table) EXPECT_EQ(unescaped(escaped), name) << escaped;
}

TEST(Unescape, DropsAnIncompleteEscapeAndWhatFollowsIt) {
  EXPECT_EQ(unescaped("a%4"), "a");
  EXPECT_EQ(unescaped("a%"), "a");
  EXPECT_EQ(unescaped("%"), "");
  EXPECT_EQ(unescaped("a%4.kdb"), "a.kdb");
  EXPECT_EQ(unescaped("a%.kdb"), "a.kdb");
  EXPECT_EQ(unescaped("a%20%4.kdb"), "a .kdb");
  EXPECT_EQ(unescaped("%%4"), "T");  // complete: "%" is accepted as a digit
}

TEST(Unescape, TakesLettersOfBothCasesAsDigits) {
  for (int value = 0; value < 256; ++value) {
    constexpr const char* kLower = "0123456789abcdef";
    constexpr const char* kUpper = "0123456789ABCDEF";
    const std::string byte(1, static_cast<char>(static_cast<unsigned char>(value)));
    for (const char* const high : {kLower, kUpper}) {
      for (const char* const low : {kLower, kUpper}) {
        const std::string escaped = {'%', high[value / 16], low[value % 16]};
        EXPECT_EQ(unescaped(escaped), byte) << escaped;
      }
    }
  }
}

/// The value of a character: below "A" its code minus 48, else its code without bit 0x20, minus 55.
/// Characters are signed.
int counts_as(int byte) {
  const int code = byte < 128 ? byte : byte - 256;
  if (code < 65) return code - 48;
  return (code & ~0x20) - 55;
}

TEST(Unescape, DoesNotValidateDigits) {
  EXPECT_EQ(unescaped("%G1"), "\x01");
  EXPECT_EQ(unescaped("%/1"), "\xF1");  // -1 times 16
  EXPECT_EQ(unescaped("%0/"), "\xFF");  // -1
  EXPECT_EQ(unescaped("%0`"), "\x09");
  EXPECT_EQ(unescaped("%++"), "\xFB");
  for (int high = 0; high < 256; ++high) {
    for (int low = 0; low < 256; ++low) {
      // A dot would begin the extension.
      if (high == '.' || low == '.') continue;
      const std::string escaped = {'%', static_cast<char>(static_cast<unsigned char>(high)),
                                   static_cast<char>(static_cast<unsigned char>(low))};
      const int value = ((counts_as(high) * 16) & 0xFF) | counts_as(low);
      const std::string byte(1, static_cast<char>(static_cast<unsigned char>(value & 0xFF)));
      ASSERT_EQ(unescaped(escaped), byte) << high << ' ' << low;
    }
  }
}

TEST(Unescape, KeepsBytesAbove127) {
  EXPECT_EQ(unescaped("\xC3\xA9+\xFF.\x80+"), "\xC3\xA9 \xFF.\x80+");
}

// Splitting a text into lines. Which lines are valid: index_text_test.cpp.

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

/// Compares every function that walks over a text with the reference model.
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

// The loops that process many bytes at a time, compared with simple loops.

std::string some_text(std::mt19937& random, std::size_t size) {
  // Few different bytes, so that each search finds some; some are above 127.
  constexpr std::string_view kBytes("ab/\n\x80\xff\0", 7);
  std::string text(size, '\0');
  for (char& each : text) each = kBytes[random() % (random() % 8 == 0 ? kBytes.size() : 2)];
  return text;
}

TEST(IndexScan, FindsTheFirstOfTwoCharacters) {
  std::mt19937 random(1);
  for (int round = 0; round < 20000; ++round) {
    const std::size_t size = random() % 80;
    const std::string text = some_text(random, size + scan::kBehind);
    const std::size_t from = random() % (size + 1);
    const char* const last = text.data() + size;
    const bool two = random() % 2 == 0;
    const char* const expected = std::find_if(
        text.data() + from, last, [&](char c) { return c == '\n' || (two && c == '/'); });
    ASSERT_EQ(scan::first_of(text.data() + from, last, two ? '/' : '\n', '\n'),
              expected == last ? nullptr : expected)
        << "from " << from << " of " << size;
  }
}

TEST(IndexScan, OrdersAsStringsDo) {
  std::mt19937 random(2);
  for (int round = 0; round < 20000; ++round) {
    const std::string one = some_text(random, random() % 30);
    std::string other = one;
    if (!other.empty() && random() % 4 != 0) other[random() % other.size()] = "a\xff"[random() % 2];
    other.resize(other.size() - random() % (other.size() + 1) * (random() % 2));
    ASSERT_EQ(scan::stands_before(one, other), one < other);
    ASSERT_EQ(scan::stands_before(other, one), other < one);
  }
}

// ---- the order of names ------------------------------------------------------------------------

using Names = std::vector<std::string>;

template <std::size_t Words>
std::vector<std::size_t> order_of(const Names& names) {
  NameOrder<Words> order;
  for (std::size_t i = 0; i < names.size(); ++i) order.add(names[i], i);
  order.sort([&](std::size_t position) { return std::string_view(names[position]); });
  std::vector<std::size_t> result;
  for (const auto& element : order.sorted()) result.push_back(element.position);
  return result;
}

/// The same by whole names.
std::vector<std::size_t> expected_order(const Names& names) {
  std::vector<std::pair<std::string, std::size_t>> all;
  for (std::size_t i = 0; i < names.size(); ++i) all.emplace_back(names[i], i);
  std::sort(all.begin(), all.end());
  std::vector<std::size_t> result;
  for (const auto& [name, position] : all) result.push_back(position);
  return result;
}

TEST(NameOrder, IsByteWiseWhereverNamesDiffer) {
  std::mt19937 random(1);
  for (std::size_t round = 0; round < 300; ++round) {
    // Few different bytes and a common beginning, so that names are equal for a while.
    const std::string begin(round % 20, 'a');
    const std::string bytes("\0\1a\x7f\x80\xff", 6);
    Names names;
    for (std::size_t i = 0; i < 40; ++i) {
      names.push_back(begin);
      for (std::size_t size = random() % 6; size != 0; --size)
        names.back() += bytes[random() % bytes.size()];
    }
    EXPECT_EQ(order_of<1>(names), expected_order(names)) << round;
    EXPECT_EQ(order_of<2>(names), expected_order(names)) << round;
  }
}

}  // namespace
