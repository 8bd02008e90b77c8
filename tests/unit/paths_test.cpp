// Paths as text, equal on every system: the roots of Windows paths, and their POSIX form.

#include <gtest/gtest.h>

#include <cstddef>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "platform/os/path_root.h"
#include "platform/os/posix_path.h"
#include "tests/unit/test_kit.h"

namespace {

struct Row {
  std::u16string_view path;
  std::size_t root;
  std::size_t kept;  ///< length of the path without trailing separators
};

TEST(PathRoot, IsWhatNoPathMayLose) {
  const Row rows[] = {
      {u"", 0, 0},
      {u"a", 0, 1},
      {u"a\\", 0, 1},
      {u"a\\b//", 0, 3},
      {u"\\", 1, 1},
      {u"/", 1, 1},
      {u"\\a\\", 1, 2},
      {u"\\\\", 1, 1},
      {u"C:", 0, 2},
      {u"C:a\\", 0, 3},
      {u"C:\\", 3, 3},
      {u"C:/", 3, 3},
      {u"C:\\\\\\", 3, 3},
      {u"C:\\a\\", 3, 4},
      {u"\\\\server\\share", 14, 14},
      {u"\\\\server\\share\\", 15, 15},
      {u"\\\\server\\share\\\\", 15, 15},
      {u"\\\\server\\share\\a\\", 15, 16},
      {u"\\\\server", 8, 8},
      {u"\\\\?\\C:\\", 7, 7},
      {u"\\\\?\\C:\\a\\", 7, 8},
      {u"\\\\?\\C:", 4, 6},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(std::string(row.path.begin(), row.path.end()));
    EXPECT_EQ(os::root_length(row.path), row.root);
    EXPECT_EQ(os::length_without_separators(row.path), row.kept);
  }
}

}  // namespace

namespace posix = os::posix;

TEST(PosixPath, BothSeparatorsBecomeTheSlashAndThePrefixGoes) {
  const std::vector<std::pair<std::string, std::string>> cases = {
      {R"(a\b/c)", "a/b/c"},
      {R"(\tmp\x)", "/tmp/x"},
      {R"(\\?\C:\x)", "C:/x"},
      {R"(\\?\\tmp\x)", "/tmp/x"},
      {R"(\\?\\\server\share)", "//server/share"},
      {R"(\\server\share)", "//server/share"},
      {R"(\\?\)", ""},
      // Only this spelling is the prefix, and it is removed only once.
      {R"(//?/x)", "//?/x"},
      {R"(\\.\x)", "//./x"},
      {R"(\\?\\\?\x)", "//?/x"},
      {R"(a\\?\b)", "a//?/b"},
      {"", ""},
      {R"(trailing. \ )", "trailing. / "},
  };
  for (const auto& [given, expected] : cases) {
    EXPECT_EQ(posix::NativePath(given).text(), expected) << given;
  }
}

TEST(PosixPath, HasNoLimitOfItsLength) {
  for (std::size_t size = 0; size <= 600; ++size) {
    // Separators at changing distances, so that each position has one in some path.
    std::string given;
    std::string expected;
    for (std::size_t i = 0; i < size; ++i) {
      const bool is_separator = i % (size % 7 + 2) == 1;
      given += is_separator ? '\\' : 'a';
      expected += is_separator ? '/' : 'a';
    }
    posix::NativePath path(given);
    EXPECT_EQ(path.text(), expected);
    EXPECT_EQ(path.c_str(), expected);
    path.cut(size / 2);
    EXPECT_EQ(path.text(), expected.substr(0, size / 2));
    EXPECT_EQ(path.c_str(), expected.substr(0, size / 2));
  }
}

TEST(PosixPath, WideTextBecomesUtf8AndComesBack) {
  const std::vector<std::pair<std::u16string, std::string>> cases = {
      {u"", ""},
      {u"abc", "abc"},
      {u"\u00FC\u20AC\uFFFD", "\xC3\xBC\xE2\x82\xAC\xEF\xBF\xBD"},
      {u"\U0001F600", "\xF0\x9F\x98\x80"},
      // Unpaired surrogates: three bytes each, which occur in no valid text.
      {u"\xD83D", "\xED\xA0\xBD"},
      {u"\xDE00\xD83D", "\xED\xB8\x80\xED\xA0\xBD"},
      {u"a\xD83Dz", "a\xED\xA0\xBDz"},
      {u"\xD83D\xD83D\xDE00", "\xED\xA0\xBD\xF0\x9F\x98\x80"},
      {u"\xDFFF", "\xED\xBF\xBF"},
  };
  for (const auto& [text, bytes] : cases) {
    EXPECT_EQ(posix::to_bytes(text), bytes);
    std::u16string back = u"old";
    EXPECT_TRUE(posix::to_wide(bytes, back)) << bytes;
    EXPECT_EQ(back, text) << bytes;
  }
}

TEST(PosixPath, BytesThatAreNoUtf8HaveNoWideForm) {
  for (const std::string bytes : {"\xFF", "a\x80", "\xC3", "ok\xE2\x82", "\xC0\x80", "\xED\xA0"}) {
    std::u16string text;
    EXPECT_FALSE(posix::to_wide(bytes, text)) << testing::PrintToString(bytes);
  }
}

TEST(PosixPath, SeparatorsAtTheEndAreDroppedButTheRootStays) {
  const auto trimmed = [](const std::string& path) {
    const posix::Trimmed result = posix::trim_separators(path);
    return std::pair(std::string(result.path), result.had_separator);
  };
  EXPECT_EQ(trimmed("a"), std::pair(std::string("a"), false));
  EXPECT_EQ(trimmed("a/"), std::pair(std::string("a"), true));
  EXPECT_EQ(trimmed("a/b//"), std::pair(std::string("a/b"), true));
  EXPECT_EQ(trimmed("/"), std::pair(std::string("/"), true));
  EXPECT_EQ(trimmed("//"), std::pair(std::string("/"), true));
  EXPECT_EQ(trimmed(""), std::pair(std::string(), false));
}

TEST(PosixPath, SelfEntriesAtTheEndAreDropped) {
  const std::vector<std::pair<std::string, std::string>> cases = {
      {"a/.", "a"},       {"a//.", "a"}, {"a/./.", "a"}, {"/.", "/"},      {"//.", "/"},
      {"/./.", "/"},      {".", "."},    {"..", ".."},   {"a/..", "a/.."}, {"a.", "a."},
      {"a/.b/.", "a/.b"}, {"./.", "."},  {"", ""},       {"a", "a"},
  };
  for (const auto& [given, expected] : cases) {
    EXPECT_EQ(posix::trim_self_entries(given), expected) << given;
  }
}

TEST(PosixPath, TheLastComponentIsCutOff) {
  const auto split = [](const std::string& path) {
    const posix::Split result = posix::split_last(path);
    return std::pair(std::string(result.folder), std::string(result.name));
  };
  EXPECT_EQ(split("a/b/c"), std::pair(std::string("a/b/"), std::string("c")));
  EXPECT_EQ(split("c"), std::pair(std::string("."), std::string("c")));
  EXPECT_EQ(split("/c"), std::pair(std::string("/"), std::string("c")));
  EXPECT_EQ(split("a/"), std::pair(std::string("a/"), std::string()));
}

TEST(PosixPath, PatternsMatchAsTheWindowsSearchDoes) {
  for (const PatternCase& row : pattern_cases()) {
    for (const std::string& name : pattern_names()) {
      EXPECT_EQ(posix::matches(row.pattern, name), row.finds(name))
          << "pattern " << row.pattern << ", name " << name;
    }
  }
}

TEST(PosixPath, PatternsObserveLetterCase) {
  EXPECT_TRUE(posix::matches("Up*", "Up.TXT"));
  EXPECT_FALSE(posix::matches("up*", "Up.TXT"));
  EXPECT_FALSE(posix::matches("*.txt", "Up.TXT"));
}

TEST(PosixPath, OneQuestionMarkMatchesOneCharacterOfUtf8) {
  EXPECT_TRUE(posix::matches("?.x", "\xC3\xBC.x"));
  EXPECT_TRUE(posix::matches("??", "\xE2\x82\xAC\xF0\x9F\x98\x80"));
  EXPECT_FALSE(posix::matches("??.x", "\xC3\xBC.x"));
  EXPECT_TRUE(posix::matches("?", "\xFF"));
  EXPECT_TRUE(posix::matches("*?", "a"));
  EXPECT_FALSE(posix::matches("*?", ""));
}

TEST(PosixPath, OnlyStarAndQuestionMarkMakeAPattern) {
  EXPECT_TRUE(posix::is_pattern("a*"));
  EXPECT_TRUE(posix::is_pattern("?"));
  EXPECT_FALSE(posix::is_pattern("a[b]{c}.txt<>"));
  EXPECT_FALSE(posix::is_pattern(""));
}

// A matcher that tries every split of the name would practically never end here.
TEST(PosixPath, AHostilePatternCostsNoMoreThanTheProductOfTheLengths) {
  const std::string name(250, 'a');
  std::string pattern;
  for (int i = 0; i < 100; ++i) pattern += "a*";
  EXPECT_TRUE(posix::matches(pattern, name));
  EXPECT_FALSE(posix::matches(pattern + "b", name));
}

TEST(PosixPath, DotsAreFoldedAsText) {
  const std::vector<std::pair<std::string, std::string>> cases = {
      {"/", "/"},           {"/a", "/a"},          {"/a/", "/a/"},     {"//a//b", "/a/b"},
      {"/a/.", "/a"},       {"/a/./", "/a/"},      {"/a/..", "/"},     {"/a/b/..", "/a"},
      {"/a/b/../", "/a/"},  {"/..", "/"},          {"/../../a", "/a"}, {"/a/../../b", "/b"},
      {"/a/./b/", "/a/b/"}, {"/a/b/../c", "/a/c"}, {"/...", "/..."},   {"/a./b. ", "/a./b. "},
  };
  for (const auto& [given, expected] : cases) EXPECT_EQ(posix::fold(given), expected) << given;
}
