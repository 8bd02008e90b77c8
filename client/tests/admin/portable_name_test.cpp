#include "client/admin/text.h"

#include <gtest/gtest.h>

#include <set>
#include <utility>
#include <vector>

TEST(PortableName, KeepsWhatEverySystemKeeps) {
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

TEST(PortableName, CutsWhatIsTooLongAndKeepsItsExtension) {
  const std::string name = std::string(300, 'x') + ".kdc";
  const std::string made = admin::portable_name(name);
  EXPECT_EQ(made.size(), admin::kPortableNameLimit);
  EXPECT_TRUE(made.ends_with('~' + admin::checksum_of(name).substr(0, 16) + ".kdc")) << made;
  EXPECT_EQ(admin::portable_name(std::string(100, 'x')), std::string(100, 'x'));
  EXPECT_NE(admin::portable_name(std::string(300, 'x') + "1"),
            admin::portable_name(std::string(300, 'x') + "2"));
}

TEST(PortableName, IsPortableItselfWhateverTheBytes) {
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

TEST(PortableNames, AreUnlikeWhateverTheirLetters) {
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
