#include <gtest/gtest.h>

#include <cstdint>
#include <limits>
#include <random>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "client/admin/folder_view.h"
#include "client/admin/formatted.h"
#include "client/admin/key_files.h"
#include "client/admin/text.h"

TEST(AdminText, DistinguishesUtf8FromOtherBytes) {
  for (const std::string good :
       {"", "a", "Bericht \xC3\xA4.kdc", "\xE2\x82\xAC", "\xF0\x9F\x98\x80", "\xF4\x8F\xBF\xBF"})
    EXPECT_TRUE(admin::is_utf8(good)) << admin::to_hex(good);
  for (const std::string bad : {"\xE4", "\xC3", "a\x80", "\xC0\x80", "\xED\xA0\x80",
                                "\xF4\x90\x80\x80", "\xE2\x82", "\xFF"})
    EXPECT_FALSE(admin::is_utf8(bad)) << admin::to_hex(bad);
}

TEST(AdminText, ReplacesInvalidUtf8ByteByByte) {
  EXPECT_EQ(admin::to_utf8("a\xE4"
                           "b"),
            "a\xEF\xBF\xBD"
            "b");
  EXPECT_EQ(admin::to_utf8("\xE2\x82"), "\xEF\xBF\xBD\xEF\xBF\xBD");
  EXPECT_EQ(admin::to_utf8("a\tb"), "a\tb");
}

TEST(AdminText, LetsNoControlCharacterReachATerminal) {
  EXPECT_EQ(admin::printable("a\x1B[31mb"), "a\xEF\xBF\xBD[31mb");
  EXPECT_EQ(admin::printable("a\x7F"), "a\xEF\xBF\xBD");
  EXPECT_EQ(admin::printable("\xC2\x9B"), "\xEF\xBF\xBD");
  EXPECT_EQ(admin::printable("\xC3\xA4"), "\xC3\xA4");
}

TEST(AdminText, WritesBytesAsHex) { EXPECT_EQ(admin::to_hex("\x01z\xFF"), "017aff"); }

TEST(AdminText, FoldsLettersOfSeveralScripts) {
  const std::vector<std::pair<std::string, std::string>> cases = {
      {"Sales.KDC", "sales.kdc"},
      {"\xC3\x84", "\xC3\xA4"},                  // A with diaeresis
      {"\xC3\x97", "\xC3\x97"},                  // the multiplication sign has no case
      {"\xCE\xA9", "\xCF\x89"},                  // omega
      {"\xD0\x96\xD0\x81", "\xD0\xB6\xD1\x91"},  // zhe, io
      {"\xC5\xBD", "\xC5\xBD"},                  // outside of the ranges
      {"\xC5\x81", "\xC5\x82"},                  // L with stroke
      {"\xFFz", "\xFFz"}};
  std::string folded;
  for (const auto& [name, expected] : cases) {
    admin::fold_case(name, folded);
    EXPECT_EQ(folded, expected) << admin::to_hex(name);
  }
}

TEST(AdminText, SaysWhyANameIsNotPortable) {
  for (const char* good : {"00000001.kdc", "a b", "con1", "COM10.txt", ".hidden", "\xC3\xA4"})
    EXPECT_EQ(admin::why_not_portable(good), nullptr) << good;
  for (const char* bad :
       {"a:b", "a?", "a\\b", "x.", "x ", "CON", "con.txt", "Lpt1", "a\nb", "\xE4"})
    EXPECT_NE(admin::why_not_portable(bad), nullptr) << bad;
}

TEST(AdminText, SaysWhyALogicalNameIsNotSafe) {
  for (const char* good : {"a.kdc", "..a", "a b#c", "index.dat.kdc"})
    EXPECT_EQ(admin::why_not_safe(good), nullptr) << good;
  for (const char* bad : {"", ".", "..", "../a", "a\\b", "a*", "?", "index", "index.dat", "a\nb"})
    EXPECT_NE(admin::why_not_safe(bad), nullptr) << bad;
}

TEST(AdminText, MatchesShellPatterns) {
  struct Case {
    const char* pattern;
    const char* name;
    bool expected;
  };
  for (const Case& each :
       {Case{"*", "", true}, Case{"*.kdc", "a.kdc", true}, Case{"*.kdc", "a.KDC", false},
        Case{"a?c", "abc", true},
        Case{"a?c",
             "a\xC3\xA4"
             "c",
             true},
        Case{"a?c", "ac", false}, Case{"*a*b", "xaxaxb", true}, Case{"*a*b", "xaxaxbc", false},
        Case{"", "", true}, Case{"", "a", false}, Case{"a**", "a", true}, Case{"?", "", false}})
    EXPECT_EQ(admin::matches(each.pattern, each.name), each.expected)
        << each.pattern << " on " << each.name;
}

TEST(AdminText, SaysWhatEachStarMatches) {
  using Stars = std::vector<std::string_view>;
  const auto stars = [](std::string_view pattern, std::string_view name) {
    Stars found;
    EXPECT_TRUE(admin::matches(pattern, name, &found)) << pattern << " on " << name;
    return found;
  };
  EXPECT_EQ(stars("*", "abc"), (Stars{"abc"}));
  EXPECT_EQ(stars("a*", "a"), (Stars{""}));
  EXPECT_EQ(stars("*a*b", "xaxaxb"), (Stars{"x", "xax"}));
  EXPECT_EQ(stars("**.*", "a.b.c"), (Stars{"", "a", "b.c"}));
  EXPECT_EQ(stars("*?*", "\xC3\xA4\xE4"), (Stars{"", "\xE4"}));
  EXPECT_EQ(stars("a", "a"), Stars{});
  Stars unchanged = {"before"};
  EXPECT_FALSE(admin::matches("*a*b", "xaxa", &unchanged));
  EXPECT_EQ(unchanged, Stars{"before"});
}

TEST(AdminKeyLines, ChangesTheFirstLineOfAKeyAndDropsTheOthers) {
  std::string text = "a=1\nb=2\ta=3\r\na=4";
  EXPECT_EQ(admin::set_key(text, "a", "5"), admin::KeyEdit::kChanged);
  EXPECT_EQ(text, "a=5\nb=2\t");
  EXPECT_EQ(admin::set_key(text, "a", "5"), admin::KeyEdit::kUnchanged);
  EXPECT_EQ(admin::set_key(text, "c", ""), admin::KeyEdit::kChanged);
  EXPECT_EQ(text, "a=5\nb=2\tc=\n");
}

TEST(AdminKeyLines, EndsALastLineBeforeItAddsOne) {
  std::string text = "a=1";
  EXPECT_EQ(admin::set_key(text, "b", "2"), admin::KeyEdit::kChanged);
  EXPECT_EQ(text, "a=1\nb=2\n");
  std::string empty;
  EXPECT_EQ(admin::set_key(empty, "b", "2"), admin::KeyEdit::kChanged);
  EXPECT_EQ(empty, "b=2\n");
}

TEST(AdminKeyLines, TakesNoOtherKeyForTheOne) {
  std::string text = "ab=1\na\na b=2\n=a=3\n";
  const std::string before = text;
  EXPECT_EQ(admin::unset_key(text, "a"), admin::KeyEdit::kUnchanged);
  EXPECT_EQ(text, before);
}

TEST(AdminFirstLines, KeepTheFirstLineOfEachTextWhileTheyGrow) {
  std::vector<std::string> texts;
  for (std::size_t i = 0; i < 5000; ++i) texts.push_back("name " + std::to_string(i));
  admin::FirstLines lines;
  for (std::size_t i = 0; i < texts.size(); ++i) {
    ASSERT_EQ(lines.insert(texts[i], i + 1), i + 1);
    ASSERT_EQ(lines.insert(texts[i / 2], texts.size() + i), i / 2 + 1);
  }
}

TEST(PortableName, KeepsNamesThatEverySystemAccepts) {
  for (const char* const name :
       {"a.kdc", "Sales Report.kdb", "50%.txt", "A%20B+C.kdb", "\xc3\xa4\xc3\xb6.kdf", ".hidden",
        "console.txt", "f4#f5#x.kdb", "a~b"}) {
    EXPECT_EQ(admin::portable_name(name), name);
  }
}

TEST(PortableName, WritesRefusedBytesAsNumbers) {
  const std::vector<std::pair<std::string, std::string>> table = {{"a:b.kdc", "a%3ab.kdc"},
                                                                  {"a/b\\c", "a%2fb%5cc"},
                                                                  {"*?\"<>|", "%2a%3f%22%3c%3e%7c"},
                                                                  {"tab\there", "tab%09here"},
                                                                  {"dot.", "dot%2e"},
                                                                  {"blank ", "blank%20"},
                                                                  {"..", ".%2e"},
                                                                  {"\xff\xc3\xa4", "%ff%c3%a4"},
                                                                  {"con", "%63on"},
                                                                  {"COM1.txt", "%43OM1.txt"},
                                                                  {"", "%"}};
  for (const auto& [name, wanted] : table) EXPECT_EQ(admin::portable_name(name), wanted) << name;
}

TEST(PortableName, TruncatesLongNamesAndKeepsTheExtension) {
  const std::string name = std::string(300, 'x') + ".kdc";
  const std::string made = admin::portable_name(name);
  EXPECT_EQ(made.size(), admin::kPortableNameLimit);
  EXPECT_TRUE(made.ends_with('~' + admin::checksum_of(name).substr(0, 16) + ".kdc")) << made;
  EXPECT_EQ(admin::portable_name(std::string(100, 'x')), std::string(100, 'x'));
  EXPECT_NE(admin::portable_name(std::string(300, 'x') + "1"),
            admin::portable_name(std::string(300, 'x') + "2"));
}

TEST(PortableName, IsPortableForAnyBytes) {
  std::vector<std::string> names;
  for (int byte = 0; byte < 256; ++byte) {
    const auto c = static_cast<char>(byte);
    for (const std::size_t length : {std::size_t{1}, std::size_t{90}, std::size_t{260}})
      names.push_back(std::string(length, c) + "x" + c);
  }
  for (int length = 60; length < 160; ++length) {
    std::string text;
    while (text.size() < static_cast<std::size_t>(length)) text += "\xe2\x82\xac:";
    names.push_back(text);
  }
  for (const std::string& name : names) {
    const std::string made = admin::portable_name(name);
    EXPECT_EQ(admin::why_not_portable(made), nullptr) << made;
    EXPECT_TRUE(admin::is_utf8(made)) << made;
    EXPECT_LE(made.size(), admin::kPortableNameLimit);
    EXPECT_FALSE(made.empty());
  }
}

TEST(PortableNames, DifferEvenIfLetterCaseIsIgnored) {
  admin::PortableNames names;
  std::set<std::string> folded;
  const std::string trap = "a~" + admin::checksum_of("A.kdc").substr(0, 16) + ".kdc";
  for (const std::string& name :
       {std::string("a.kdc"), trap, std::string("A.kdc"), std::string("a:.kdc"),
        std::string("a%3a.kdc"), std::string("\xc3\x84"), std::string("\xc3\xa4")}) {
    std::string key;
    admin::fold_case(names.take(name), key);
    EXPECT_TRUE(folded.insert(key).second) << name << " gives " << key;
  }
  names.clear();
  EXPECT_EQ(names.take("A.kdc"), "A.kdc");
}

using admin::append_formatted;
using admin::formatted;

TEST(AdminFormatted, FillsInNumbersTextsAndCharacters) {
  const std::string text = "four";
  EXPECT_EQ(formatted("{} {} {} {} {}", 1, 2U, "three", text, '5'), "1 2 three four 5");
  EXPECT_EQ(formatted("{}", std::numeric_limits<std::int64_t>::min()), "-9223372036854775808");
  EXPECT_EQ(formatted("{}", std::numeric_limits<std::uint64_t>::max()), "18446744073709551615");
  EXPECT_EQ(formatted("{:.1f} {:04} {:x}", 2.25, std::int32_t{-7}, std::uint8_t{255}),
            "2.2 -007 ff");
}

TEST(AdminFormatted, AppliesWidthsAlsoFromArguments) {
  EXPECT_EQ(formatted("[{:>5}][{:<5}]", "ab", 12), "[   ab][12   ]");
  EXPECT_EQ(formatted("[{:<{}}]", "ab", 4), "[ab  ]");
}

TEST(AdminFormatted, PrintsDoubledBracesAsBraces) {
  EXPECT_EQ(formatted("{{}}"), "{}");
  EXPECT_EQ(formatted("{{{}}}", 1), "{1}");
}

TEST(AdminFormatted, AcceptsNumberedArguments) {
  EXPECT_EQ(formatted("{1} {0} {1}", "a", "b"), "b a b");
}

TEST(AdminFormatted, AppendsToAText) {
  std::string line = "a";
  append_formatted(line, "-{}", "b");
  EXPECT_EQ(line, "a-b");
}

TEST(AdminFormatted, CountsTheArgumentsOfAPattern) {
  EXPECT_EQ(admin::arguments_wanted("none {{}}"), 0U);
  EXPECT_EQ(admin::arguments_wanted("{} {:>{}}"), 3U);
  EXPECT_EQ(admin::arguments_wanted("{2} {0}"), 3U);
}
