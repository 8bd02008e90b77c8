// What the seam reports about names: probes, listings, stat.

#include <gtest/gtest.h>
#if defined(__linux__)
#include <dirent.h>
#include <sys/syscall.h>
#include <unistd.h>
#endif

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "platform/os/os.h"
#if defined(_WIN32)
#include "platform/os/windows_results.h"
#endif
#include "tests/support/scratch.h"
#include "tests/unit/test_kit.h"

namespace {

using os::EntryKind;
using os::Failure;

bool found(const std::string& path) {
  const bool is_found = os::probe_search(path).ok();
  EXPECT_EQ(os::probe_search(wide(path)).ok(), is_found) << path;
  return is_found;
}

std::vector<std::string> names_of(const os::Listing& entries) {
  std::vector<std::string> names;
  for (const os::Entry entry : entries) names.emplace_back(entry.name);
  std::sort(names.begin(), names.end());
  return names;
}

TEST(OsProbeSearch, FindsNamesAndSelfEntries) {
  const scratch_folder scratch;
  make_folder(scratch.path("folder"));
  write_file(scratch.path("file"), "");
  const std::vector<std::pair<std::string, bool>> cases = {
      {"file", true},      {"folder", true},      {"missing", false},       {"missing\\x", false},
      {"folder\\", false}, {"folder\\.", true},   {"folder\\..", true},     {"folder\\.\\.", true},
      {"file\\", false},   {"file\\.", true},     {"file\\.\\.", true},     {"missing\\.", false},
      {"folder/.", true},  {"folder\\\\.", true}, {"folder/../file", true}, {"folder\\file", false},
      {"", false},
  };
  for (const auto& [name, expected] : cases) {
    EXPECT_EQ(found(scratch.path(name)), expected) << name;
  }
  EXPECT_FALSE(found(""));
  EXPECT_FALSE(found("\\"));
  EXPECT_TRUE(found("."));
}

TEST(OsProbeSearch, RecognisesMissingNamesByTheirMeaning) {
  const scratch_folder scratch;
  write_file(scratch.path("file"), "");
  for (const std::string name : {"missing", "missing\\x", "missing\\*", "q*"}) {
    EXPECT_TRUE(fails(os::probe_search(scratch.path(name)), Failure::kNotFound)) << name;
  }
  const os::Status below_a_file = os::probe_search(scratch.path("file\\x"));
  // Windows has several codes for this, one of them for a malformed name.
  EXPECT_FALSE(below_a_file.ok());
  if (!kOnWindows) {
    EXPECT_TRUE(fails(below_a_file, Failure::kNotFound, {ENOTDIR, 0}));
  }
  EXPECT_TRUE(fails(os::probe_search(std::string()), Failure::kNotFound));
}

TEST(OsProbeSearch, PatternsInTheLastComponentMatch) {
  for (const std::string& name : pattern_names()) {
    if (name == "." || name == "..") continue;
    const scratch_folder scratch;
    write_file(scratch.path(name), "");
    for (const PatternCase& row : pattern_cases()) {
      const bool expected = row.finds(name) || row.finds(".") || row.finds("..");
      // Windows versions differ for "?" beside a dot or at the end of a name, and for a dot at the
      // end of a pattern.
      if (kOnWindows && (row.pattern.find('?') != std::string::npos || row.pattern.back() == '.'))
        continue;
      EXPECT_EQ(found(scratch.path(row.pattern)), expected)
          << "pattern " << row.pattern << ", name " << name;
    }
  }
}

TEST(OsProbeSearch, PatternsAboveTheLastComponentMatchNothing) {
  const scratch_folder scratch;
  make_folder(scratch.path("folder"));
  write_file(scratch.path("folder\\file"), "");
  EXPECT_FALSE(found(scratch.path("f*\\file")));
  EXPECT_FALSE(found(scratch.path("folde?\\file")));
  EXPECT_TRUE(found(scratch.path("folder\\f*")));
  // The "." is dropped first, so the pattern is the last component. Newer versions of Windows do
  // not drop it.
  if (!kOnWindows) {
    EXPECT_TRUE(found(scratch.path("f*\\.")));
  }
  EXPECT_FALSE(found(scratch.path("q*\\.")));
}

TEST(OsProbeSearch, LetterCaseCountsWhereTheSystemCountsIt) {
  const scratch_folder scratch;
  write_file(scratch.path("Up.TXT"), "");
  EXPECT_TRUE(found(scratch.path("Up.TXT")));
  EXPECT_TRUE(found(scratch.path("Up*")));
  // Names ignore the letter case on Windows and are bytes on other systems.
  EXPECT_EQ(found(scratch.path("up.txt")), kOnWindows);
  EXPECT_EQ(found(scratch.path("up*")), kOnWindows);
}

TEST(OsProbeSearch, DotsAndBlanksAtTheEndBelongToANameExceptOnWindows) {
  const scratch_folder scratch;
  write_file(scratch.path("c3"), "");
  EXPECT_EQ(found(scratch.path("c3.")), kOnWindows);
  EXPECT_EQ(found(scratch.path("c3 ")), kOnWindows);
}

TEST(OsProbeAttributes, KnowsFilesAndFolders) {
  const scratch_folder scratch;
  write_file(scratch.path("file"), "");
  EXPECT_TRUE(succeeds(os::probe_attributes(scratch.path("file"))));
  EXPECT_TRUE(succeeds(os::probe_attributes(wide(scratch.path("file")))));
  EXPECT_TRUE(succeeds(os::probe_attributes(scratch.path())));
  EXPECT_TRUE(
      fails(os::probe_attributes(scratch.path("missing")), Failure::kNotFound, {ENOENT, 2}));
  EXPECT_TRUE(
      fails(os::probe_attributes(scratch.path("missing\\x")), Failure::kNotFound, {ENOENT, 3}));
  EXPECT_FALSE(os::probe_attributes(scratch.path("f*")).ok());
}

TEST(OsList, GivesNamesAndKindsButNotTheFolderItself) {
  const scratch_folder scratch;
  make_folder(scratch.path("folder"));
  write_file(scratch.path("file"), "");
  write_file(scratch.path(".hidden"), "");
  for (const bool in_wide : {false, true}) {
    const std::string folder = scratch.path("");
    os::Listing entries;
    EXPECT_TRUE(succeeds(in_wide ? os::list(wide(folder), entries) : os::list(folder, entries)));
    std::map<std::string, EntryKind> kinds;
    for (const os::Entry entry : entries) kinds[std::string(entry.name)] = entry.kind;
    EXPECT_EQ(kinds, (std::map<std::string, EntryKind>{{"folder", EntryKind::kFolder},
                                                       {"file", EntryKind::kFile},
                                                       {".hidden", EntryKind::kFile}}));
    EXPECT_EQ(entries.size(), 3U);
  }
}

TEST(OsList, AppendsToWhatIsThere) {
  const scratch_folder scratch;
  write_file(scratch.path("file"), "");
  os::Listing entries;
  entries.append("before", EntryKind::kFolder);
  EXPECT_TRUE(succeeds(os::list(scratch.path(""), entries)));
  ASSERT_EQ(entries.size(), 2U);
  EXPECT_EQ(entries[0].name, "before");
  EXPECT_EQ(entries[1].name, "file");
}

TEST(OsList, AnEmptyFolderHasNothing) {
  const scratch_folder scratch;
  os::Listing entries;
  EXPECT_TRUE(succeeds(os::list(scratch.path(""), entries)));
  EXPECT_TRUE(entries.empty());
}

TEST(OsList, FailsWithoutAFolderAndLeavesTheEntriesAlone) {
  const scratch_folder scratch;
  write_file(scratch.path("file"), "");
  os::Listing entries;
  entries.append("before", EntryKind::kFile);
  EXPECT_TRUE(fails(os::list(scratch.path("missing\\"), entries), Failure::kNotFound));
  EXPECT_FALSE(os::list(scratch.path("file\\"), entries).ok());
  EXPECT_EQ(names_of(entries), std::vector<std::string>{"before"});
}

TEST(OsList, AWideListingGivesUtf8) {
  const scratch_folder scratch;
  const std::string name = "\xC3\x9C\xE2\x82\xAC\xF0\x9F\x98\x80";
  write_file(scratch.path(name), "");
  os::Listing entries;
  EXPECT_TRUE(succeeds(os::list(wide(scratch.path("")), entries)));
  EXPECT_EQ(names_of(entries), std::vector<std::string>{name});
}

TEST(OsList, SeesEveryNameOfALargeFolder) {
  const scratch_folder scratch;
  std::vector<std::string> expected;
  for (int i = 0; i < 1500; ++i) {
    expected.push_back(std::to_string(100'000 + i));
    write_file(scratch.path(expected.back()), "");
  }
  os::Listing entries;
  EXPECT_TRUE(succeeds(os::list(scratch.path(""), entries)));
  EXPECT_EQ(names_of(entries), expected);
}

#if defined(__linux__)
constexpr int kAll = -1;
/// How many pages of a listing can be read before one fails.
int g_pages_left = kAll;

}  // namespace

/// The same system call as that of the C library, unless it is to fail.
extern "C" ::ssize_t getdents64(int folder, void* records, std::size_t size) noexcept {
  if (g_pages_left != kAll && g_pages_left-- == 0) {
    errno = EIO;
    return -1;
  }
  return ::syscall(SYS_getdents64, folder, records, size);
}

namespace {

TEST(OsList, ThatBreaksOffAddsNoName) {
  const scratch_folder scratch;
  constexpr int kMoreThanAPage = 1500;
  for (int i = 0; i < kMoreThanAPage; ++i)
    write_file(scratch.path(std::to_string(100'000 + i)), "");
  os::Listing entries;
  entries.append("before", EntryKind::kFile);
  g_pages_left = 1;
  EXPECT_TRUE(fails(os::list(scratch.path(""), entries), Failure::kOther, {EIO, 0}));
  EXPECT_EQ(g_pages_left, kAll) << "the second page was read";
  EXPECT_EQ(names_of(entries), std::vector<std::string>{"before"});
}
#endif

/// Calls both forms and expects equal results.
os::Status stat_both(const std::string& path, os::FileStat& data) {
  os::FileStat other;
  data = other;
  const os::Status status = os::stat(path, data);
  const os::Status in_wide = os::stat(wide(path), other);
  EXPECT_EQ(status.failure(), in_wide.failure()) << path;
  EXPECT_EQ(status.code(), in_wide.code()) << path;
  EXPECT_EQ(data.size, other.size) << path;
  EXPECT_EQ(data.is_directory, other.is_directory) << path;
  EXPECT_EQ(data.modify_time, other.modify_time) << path;
  return status;
}

TEST(OsStat, ReturnsSizeTimesAndKind) {
  const scratch_folder scratch;
  const std::string path = scratch.path("file");
  write_file(path, "12345");
  set_modify_time(path, 1'199'145'600);
  set_access_time(path, 1'200'000'000);
  os::FileStat data;
  ASSERT_TRUE(succeeds(stat_both(path, data)));
  EXPECT_EQ(data.size, 5U);
  EXPECT_EQ(data.modify_time, 1'199'145'600);
  EXPECT_EQ(data.access_time, 1'200'000'000);
  EXPECT_FALSE(data.is_directory);
  ASSERT_TRUE(succeeds(stat_both(scratch.path(), data)));
  EXPECT_TRUE(data.is_directory);
}

TEST(OsStat, AFolderIsFoundWithSeparatorsAtTheEndAndAFileIsNot) {
  const scratch_folder scratch;
  make_folder(scratch.path("folder"));
  write_file(scratch.path("file"), "12345");
  for (const std::string end : {"", "\\", "/", "\\\\", "/\\/"}) {
    os::FileStat data;
    EXPECT_TRUE(succeeds(stat_both(scratch.path("folder") + end, data))) << end;
    EXPECT_TRUE(data.is_directory) << end;
    if (end.empty()) continue;
    EXPECT_TRUE(
        fails(stat_both(scratch.path("file") + end, data), Failure::kNotFound, {ENOENT, ENOENT}))
        << end;
  }
}

TEST(OsSameFile, TwoPathsLeadToOneFileOrToTwo) {
  const scratch_folder scratch;
  write_file(scratch.path("one"), "x");
  write_file(scratch.path("two"), "x");
  bool is_same = false;
  EXPECT_TRUE(succeeds(os::same_file(scratch.path("one"), scratch.path("one"), is_same)));
  EXPECT_TRUE(is_same);
  EXPECT_TRUE(succeeds(os::same_file(scratch.path("one"), scratch.path(".\\one"), is_same)));
  EXPECT_TRUE(is_same);
  EXPECT_TRUE(succeeds(os::same_file(scratch.path("one"), scratch.path("two"), is_same)));
  EXPECT_FALSE(is_same);
  EXPECT_TRUE(succeeds(os::same_file(scratch.path(), scratch.path("."), is_same)));
  EXPECT_TRUE(is_same);
  EXPECT_TRUE(succeeds(os::same_file(scratch.path(), scratch.path("one"), is_same)));
  EXPECT_FALSE(is_same);
  EXPECT_TRUE(fails(os::same_file(scratch.path("one"), scratch.path("missing"), is_same),
                    Failure::kNotFound, {ENOENT, 2}));
  EXPECT_TRUE(fails(os::same_file(scratch.path("missing"), scratch.path("one"), is_same),
                    Failure::kNotFound, {ENOENT, 2}));
#if !defined(_WIN32)
  std::filesystem::create_symlink("one", native(scratch.path("link")));
  std::filesystem::create_hard_link(native(scratch.path("two")), native(scratch.path("second")));
  EXPECT_TRUE(succeeds(os::same_file(scratch.path("link"), scratch.path("one"), is_same)));
  EXPECT_TRUE(is_same);
  EXPECT_TRUE(succeeds(os::same_file(scratch.path("two"), scratch.path("second"), is_same)));
  EXPECT_TRUE(is_same);
#endif
}

TEST(OsStat, TheRootIsAFolder) {
  os::FileStat data;
  EXPECT_TRUE(succeeds(os::stat(std::string("\\"), data)));
  EXPECT_TRUE(data.is_directory);
  EXPECT_TRUE(succeeds(os::stat(wide("\\"), data)));
  EXPECT_TRUE(data.is_directory);
}

// The traces of the file layer depend on this code.
TEST(OsStat, WhateverIsMissingHasOneCode) {
  const scratch_folder scratch;
  write_file(scratch.path("file"), "");
  for (const std::string name : {"missing", "missing\\x", "file\\x", "missing\\", ""}) {
    os::FileStat data;
    const std::string path = name.empty() ? name : scratch.path(name);
    EXPECT_TRUE(fails(stat_both(path, data), Failure::kNotFound, {ENOENT, ENOENT})) << name;
  }
}

#if defined(_WIN32)
TEST(OsStat, AShareThatDoesNotAnswerIsNoMissingFile) {
  const std::string path = R"(\\no-such-server\share\file)";
  os::FileStat data;
  for (const os::Status& status : {os::stat(path, data), os::stat(wide(path), data)}) {
    EXPECT_EQ(status.failure(), Failure::kOther);
    // The layer above chooses its trace by the code of the C runtime.
    EXPECT_EQ(status.code(), ENOENT);
  }
}

TEST(OsFailures, ALockRequestThatWouldHaveToWaitIsRefused) {
  constexpr std::uint32_t kLockViolation = 33;
  constexpr std::uint32_t kPending = 997;
  for (const std::uint32_t code : {kLockViolation, kPending})
    EXPECT_EQ(os::windows::fail(code).failure(), Failure::kLocked) << code;
}
#endif

TEST(OsStat, LeavesTheResultAloneWhenItFails) {
  const scratch_folder scratch;
  os::FileStat data;
  data.size = 77;
  EXPECT_FALSE(os::stat(scratch.path("missing"), data).ok());
  EXPECT_EQ(data.size, 77U);
}

TEST(OsStat, KeepingLinksChangesNothingForPlainFiles) {
  const scratch_folder scratch;
  write_file(scratch.path("file"), "12345");
  os::FileStat data;
  EXPECT_TRUE(succeeds(os::stat(scratch.path("file"), data, os::Links::kKeep)));
  EXPECT_EQ(data.size, 5U);
  EXPECT_FALSE(data.is_directory);
  EXPECT_TRUE(succeeds(os::stat(scratch.path(), data, os::Links::kKeep)));
  EXPECT_TRUE(data.is_directory);
  EXPECT_TRUE(fails(os::stat(scratch.path("missing"), data, os::Links::kKeep), Failure::kNotFound));
}

TEST(OsStat, ALargeSizeIsWholeInTheWideFormAndKeepsItsLowHalfInTheNarrowOne) {
  const scratch_folder scratch;
  const std::string path = scratch.path("file");
  constexpr std::uint64_t kSize = (std::uint64_t{1} << 32) + 1000;
  {
    OpenFile file(path, os::Access::kReadWriteCreate);
    EXPECT_TRUE(succeeds(os::seek(file.get(), 0x7FFFFFFF, 1)));
    EXPECT_TRUE(succeeds(os::seek(file.get(), 0x7FFFFFFF, 1)));
    EXPECT_TRUE(succeeds(os::seek(file.get(), 1002, 1)));
    EXPECT_TRUE(succeeds(os::set_end(file.get())));
  }
  os::FileStat data;
  EXPECT_TRUE(succeeds(os::stat(wide(path), data)));
  EXPECT_EQ(data.size, kSize);
  const os::Status status = os::stat(path, data);
  // Some Windows runtimes refuse such a file in the narrow form; then there is no size.
  if (status.ok()) {
    EXPECT_EQ(static_cast<std::uint32_t>(data.size), 1000U);
  } else {
    EXPECT_TRUE(kOnWindows);
    EXPECT_TRUE(fails(status, Failure::kOther));
  }
}

// Folders of the process, forms of paths, error texts, the clock.

using os::Failure;

/// With "/" only, so that the results of both systems are equal.
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

// A path longer than the classic limit must reach every call that takes the prefix.
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
  // A volume may have no short names; then the long one is returned.
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

TEST(OsErrorText, EndsWithCarriageReturnAndLineFeed) {
  const std::int32_t missing = Codes{ENOENT, 2}.here();
  const std::string text = os::error_text(missing);
  EXPECT_GT(text.size(), 5U);
  EXPECT_TRUE(text.ends_with("\r\n")) << text;
  EXPECT_EQ(narrow(os::error_text_wide(missing)), text);
}

TEST(OsErrorText, IsTheSystemsOwn) {
  if (kOnWindows) {
    // The text depends on the version and the language; at least two errors have different texts.
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

TEST(OsNow, IsTheClockOfTheSystemInSeconds) {
  const std::int64_t before = std::time(nullptr);
  const std::int64_t now = os::now();
  const std::int64_t after = std::time(nullptr);
  EXPECT_LE(before, now + 1);
  EXPECT_LE(now, after + 1);
}

TEST(OsNtFamily, IsTrueWhereverThisRuns) { EXPECT_TRUE(os::nt_family()); }

}  // namespace
