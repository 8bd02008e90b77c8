#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <string>
#include <utility>
#include <vector>

#include "platform/os/os.h"
#include "tests/support/scratch.h"
#include "tests/unit/os_test_kit.h"

// Folders of the process, forms of paths, texts of errors, the clock.

namespace {

using os::Failure;

/// With "/" alone, so that both systems' results read the same.
std::string slashes(std::string text) {
  std::replace(text.begin(), text.end(), '\\', '/');
  return text;
}

std::string working_folder() {
  ucs2string folder;
  EXPECT_TRUE(succeeds(os::current_directory(folder)));
  return slashes(narrow(folder));
}

TEST(OsCurrentDirectory, IsThatOfTheProcess) {
  const std::u8string expected = std::filesystem::current_path().generic_u8string();
  EXPECT_EQ(working_folder(), std::string(expected.begin(), expected.end()));
}

TEST(OsFullPath, FoldsDotsAsTextAndLooksNothingUp) {
  const std::string here = working_folder();
  const std::string parent = here.substr(0, here.rfind('/'));
  ASSERT_NE(parent.find('/'), std::string::npos) << "the tests want a folder below the root";
  const std::vector<std::pair<std::string, std::string>> cases = {
      {"", here},
      {"a", here + "/a"},
      {"a\\", here + "/a/"},
      {"a\\.", here + "/a"},
      {"a\\.\\", here + "/a/"},
      {"a\\..", here},
      {"a\\..\\", here + "/"},
      {".", here},
      {"..", parent},
      {".\\a", here + "/a"},
      {"a\\\\b", here + "/a/b"},
      {"a/b", here + "/a/b"},
      {"missing\\b\\..\\c", here + "/missing/c"},
      {here + "/x/../y", here + "/y"},
  };
  for (const auto& [given, expected] : cases) {
    ucs2string result;
    EXPECT_TRUE(succeeds(os::full_path(wide(given), result))) << given;
    EXPECT_EQ(slashes(narrow(result)), expected) << given;
  }
}

TEST(OsFullPath, ARootStaysARoot) {
  ucs2string root;
  EXPECT_TRUE(succeeds(os::full_path(wide("\\"), root)));
  for (const std::string given : {"\\..", "\\.", "\\a\\..\\..\\", "/"}) {
    ucs2string result;
    EXPECT_TRUE(succeeds(os::full_path(wide(given), result))) << given;
    EXPECT_EQ(slashes(narrow(result)), slashes(narrow(root))) << given;
  }
  EXPECT_EQ(slashes(narrow(root)), kOnWindows ? working_folder().substr(0, 3) : "/");
}

TEST(OsProgramFolder, HoldsTheRunningProgram) {
  ucs2string folder;
  ASSERT_TRUE(succeeds(os::program_folder(folder)));
  const std::string text = slashes(narrow(folder));
  EXPECT_FALSE(text.ends_with('/'));
  const std::string program = slashes(testing::internal::GetArgvs().at(0));
  const std::string name = program.substr(program.rfind('/') + 1);
  EXPECT_TRUE(file_exists(text + "/" + name) || file_exists(text + "/" + name + ".exe"))
      << text << " " << name;
}

TEST(OsTemporaryFolder, IsAFolderWithoutASeparatorAtItsEnd) {
  ucs2string folder;
  ASSERT_TRUE(succeeds(os::temporary_folder(folder)));
  const std::string text = slashes(narrow(folder));
  EXPECT_FALSE(text.ends_with('/'));
  EXPECT_TRUE(folder_exists(text)) << text;
}

// A path beyond the classic limit reaches every call that takes the prefix.
TEST(OsLongPath, WorksWithThePrefix) {
  const scratch_folder scratch;
  std::string folder = scratch.path();
  std::replace(folder.begin(), folder.end(), '/', '\\');
  folder.insert(0, R"(\\?\)");
  for (int i = 0; i < 4; ++i) {
    folder += "\\" + std::string(100, static_cast<char>('a' + i));
    ASSERT_TRUE(succeeds(os::create_directory(wide(folder))));
  }
  const std::string path = folder + "\\file";
  os::Handle handle = os::kNoHandle;
  ASSERT_TRUE(succeeds(os::open(wide(path), os::Access::kReadWriteCreate, handle)));
  EXPECT_TRUE(succeeds(os::close(handle)));
  EXPECT_TRUE(succeeds(os::probe_search(wide(path))));
  EXPECT_TRUE(succeeds(os::probe_search(wide(folder + "\\f*"))));
  os::FileStat data;
  EXPECT_TRUE(succeeds(os::stat(wide(path), data)));
  EXPECT_FALSE(data.is_directory);
  EXPECT_TRUE(succeeds(os::stat(wide(folder), data)));
  EXPECT_TRUE(data.is_directory);
  os::Listing entries;
  EXPECT_TRUE(succeeds(os::list(wide(folder + "\\"), entries)));
  EXPECT_EQ(entries.size(), 1U);
  EXPECT_TRUE(succeeds(os::copy(wide(path), wide(path + "2"), os::IfExists::kFail)));
  EXPECT_TRUE(succeeds(os::rename(wide(path), wide(path + "3"))));
  EXPECT_TRUE(succeeds(os::remove_file(wide(path + "2"))));
  EXPECT_TRUE(succeeds(os::remove_file(wide(path + "3"))));
  EXPECT_TRUE(succeeds(os::remove_directory(wide(folder))));
}

TEST(OsShortPath, LeadsToTheFileWhereThereIsOne) {
  const scratch_folder scratch;
  const std::string path = scratch.path("a long name with blanks.text");
  write_file(path, "text");
  ucs2string result = wide("unchanged");
  const os::Status status = os::short_path(wide(path), result);
  if (!kOnWindows) {
    EXPECT_TRUE(fails(status, Failure::kOther, {ENOTSUP, 0}));
    EXPECT_EQ(narrow(result), "unchanged");
    return;
  }
  // A volume may be set up without short names, and then gives the long one.
  ASSERT_TRUE(succeeds(status));
  EXPECT_EQ(read_file(narrow(result)), "text");
}

TEST(OsShortPath, OfAMissingFileFails) {
  const scratch_folder scratch;
  ucs2string result;
  EXPECT_FALSE(os::short_path(wide(scratch.path("missing")), result).ok());
}

TEST(OsToNarrow, KeepsAsciiOnEverySystem) {
  EXPECT_EQ(os::to_narrow(ucs2string(u"C:\\a b/~.x")), "C:\\a b/~.x");
  EXPECT_EQ(os::to_narrow(ucs2string()), "");
}

TEST(OsIsLeadByte, NoAsciiByteIsOne) {
  for (int byte = 0; byte < 128; ++byte) {
    EXPECT_FALSE(os::is_lead_byte(static_cast<unsigned char>(byte))) << byte;
  }
}

// ---- texts of errors ---------------------------------------------------------------------------

TEST(OsErrorText, EndsWithCarriageReturnAndLineFeed) {
  const std::int32_t missing = Codes{ENOENT, 2}.here();
  const std::string text = os::error_text(missing);
  EXPECT_GT(text.size(), 5U);
  EXPECT_TRUE(text.ends_with("\r\n")) << text;
  EXPECT_EQ(narrow(os::error_text_wide(missing)), text);
}

TEST(OsErrorText, IsTheSystemsOwn) {
  if (kOnWindows) {
    // Its words depend on the version and the language; two errors at least have two texts.
    EXPECT_NE(os::error_text(2), os::error_text(5));
  } else {
    EXPECT_EQ(os::error_text(ENOENT), std::string(std::strerror(ENOENT)) + "\r\n");
    EXPECT_EQ(os::error_text(EACCES), std::string(std::strerror(EACCES)) + "\r\n");
  }
}

TEST(OsErrorText, OfAnUnknownCodeIsEmpty) {
  for (const std::int32_t code : {123'456'789, -7}) {
    EXPECT_EQ(os::error_text(code), "") << code;
    EXPECT_TRUE(os::error_text_wide(code).empty()) << code;
  }
}

TEST(OsErrorText, OfSuccessIsAText) {
  EXPECT_TRUE(os::error_text(0).ends_with("\r\n"));
  EXPECT_EQ(narrow(os::error_text_wide(0)), os::error_text(0));
}

// ---- the rest ----------------------------------------------------------------------------------

TEST(OsNow, IsTheClockOfTheSystemInSeconds) {
  const std::int64_t before = std::time(nullptr);
  const std::int64_t now = os::now();
  const std::int64_t after = std::time(nullptr);
  EXPECT_LE(before, now + 1);
  EXPECT_LE(now, after + 1);
}

TEST(OsNtFamily, IsTrueWhereverThisRuns) { EXPECT_TRUE(os::nt_family()); }

}  // namespace
