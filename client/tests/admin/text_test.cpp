#include "client/admin/text.h"

#include <gtest/gtest.h>

#include <random>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "client/admin/folder_view.h"

using admin::NameTable;

TEST(AdminText, TellsUtf8FromOtherBytes) {
  for (const std::string good :
       {"", "a", "Bericht \xC3\xA4.kdc", "\xE2\x82\xAC", "\xF0\x9F\x98\x80", "\xF4\x8F\xBF\xBF"})
    EXPECT_TRUE(admin::is_utf8(good)) << admin::to_hex(good);
  for (const std::string bad : {"\xE4", "\xC3", "a\x80", "\xC0\x80", "\xED\xA0\x80",
                                "\xF4\x90\x80\x80", "\xE2\x82", "\xFF"})
    EXPECT_FALSE(admin::is_utf8(bad)) << admin::to_hex(bad);
}

TEST(AdminText, ReplacesWhatIsNoUtf8ByteByByte) {
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

TEST(AdminNameTable, KeepsTheFirstNumberOfAName) {
  NameTable table;
  EXPECT_EQ(table.find("a"), NameTable::kNone);
  EXPECT_EQ(table.insert("a", 1), 1U);
  EXPECT_EQ(table.insert("a", 2), 1U);
  EXPECT_EQ(table.find("a"), 1U);
  EXPECT_EQ(table.size(), 1U);
}

TEST(AdminNameTable, ForgetsEverythingWhenClearedAfterManyAndAfterFewNames) {
  std::vector<std::string> names;
  for (int i = 0; i < 5000; ++i) names.push_back("name" + std::to_string(i));
  NameTable table;
  for (std::uint32_t i = 0; i < 5000; ++i) table.insert(names[i], i);
  table.clear();
  for (const std::string& name : names) ASSERT_EQ(table.find(name), NameTable::kNone) << name;

  // Few names in the table that has grown: other subsets each time, colliding in other ways.
  std::mt19937 random(7);
  for (int round = 0; round < 50; ++round) {
    std::set<std::uint32_t> chosen;
    while (chosen.size() < 100) chosen.insert(static_cast<std::uint32_t>(random() % 5000));
    for (const std::uint32_t i : chosen) ASSERT_EQ(table.insert(names[i], i), i);
    for (std::uint32_t i = 0; i < 5000; ++i)
      ASSERT_EQ(table.find(names[i]), chosen.count(i) ? i : NameTable::kNone);
    table.clear();
    for (const std::uint32_t i : chosen) ASSERT_EQ(table.find(names[i]), NameTable::kNone);
  }
}
