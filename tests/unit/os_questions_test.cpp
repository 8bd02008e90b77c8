#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "platform/os/os.h"
#include "tests/support/scratch.h"
#include "tests/unit/os_test_kit.h"
#include "tests/unit/pattern_table.h"

// What the seam answers about names: probes, listings, stat.

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

// ---- probes ------------------------------------------------------------------------------------

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

TEST(OsProbeSearch, TellsMissingNamesByTheirMeaning) {
  const scratch_folder scratch;
  write_file(scratch.path("file"), "");
  for (const std::string name : {"missing", "missing\\x", "missing\\*", "q*"}) {
    EXPECT_TRUE(fails(os::probe_search(scratch.path(name)), Failure::kNotFound)) << name;
  }
  const os::Status below_a_file = os::probe_search(scratch.path("file\\x"));
  // Windows systems have several codes for this, among them one for a malformed name.
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
      // Windows systems differ in what "?" matches beside a dot or at the end of a name, and in
      // what a dot at the end of a pattern does.
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
  // The "." is dropped first, and then the pattern is the last component; newer Windows systems
  // drop nothing.
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
  // By nature: names are case-blind on Windows and bytes elsewhere.
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

// ---- listings ----------------------------------------------------------------------------------

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

// ---- stat --------------------------------------------------------------------------------------

/// Asks in both forms and expects one answer.
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

TEST(OsStat, TellsSizeTimesAndKind) {
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

TEST(OsStat, TheRootIsAFolder) {
  os::FileStat data;
  EXPECT_TRUE(succeeds(os::stat(std::string("\\"), data)));
  EXPECT_TRUE(data.is_directory);
  EXPECT_TRUE(succeeds(os::stat(wide("\\"), data)));
  EXPECT_TRUE(data.is_directory);
}

// The file layer words its trace by this code.
TEST(OsStat, WhateverIsMissingHasOneCode) {
  const scratch_folder scratch;
  write_file(scratch.path("file"), "");
  for (const std::string name : {"missing", "missing\\x", "file\\x", "missing\\", ""}) {
    os::FileStat data;
    const std::string path = name.empty() ? name : scratch.path(name);
    EXPECT_TRUE(fails(stat_both(path, data), Failure::kNotFound, {ENOENT, ENOENT})) << name;
  }
}

TEST(OsStat, LeavesTheResultAloneWhenItFails) {
  const scratch_folder scratch;
  os::FileStat data;
  data.size = 77;
  EXPECT_FALSE(os::stat(scratch.path("missing"), data).ok());
  EXPECT_EQ(data.size, 77U);
}

TEST(OsStat, KeepingLinksChangesNothingForWhatIsNone) {
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
  // Some runtimes of Windows refuse such a file in the narrow form; then there is no size at all.
  if (status.ok()) {
    EXPECT_EQ(static_cast<std::uint32_t>(data.size), 1000U);
  } else {
    EXPECT_TRUE(kOnWindows);
    EXPECT_TRUE(fails(status, Failure::kOther));
  }
}

}  // namespace
