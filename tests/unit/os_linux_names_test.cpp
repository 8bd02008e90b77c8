#if defined(__linux__)

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstdlib>
#include <filesystem>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "platform/os/os.h"
#include "tests/support/scratch.h"
#include "tests/unit/os_linux_kit.h"
#include "tests/unit/test_kit.h"

// What the seam adds on Linux because only Windows does it by itself: names, links, renaming, the
// folders of the process.

namespace {

namespace fs = std::filesystem;
using os::Access;
using os::Failure;

std::string path_text(const std::string& path) { return native(path).string(); }

TEST(OsLinuxNames, ForeignNamesAreLeftOutOfListingsAndSearches) {
  const scratch_folder scratch;
  for (const std::string name : {"a\\b", "line\nfeed", "plain"}) {
    const int made = ::creat((path_text(scratch.path()) + "/" + name).c_str(), 0666);
    ASSERT_GE(made, 0);
    ::close(made);
  }
  os::Listing entries;
  EXPECT_TRUE(succeeds(os::list(scratch.path(""), entries)));
  ASSERT_EQ(entries.size(), 1U);
  EXPECT_EQ(entries[0].name, "plain");
  EXPECT_FALSE(os::probe_search(scratch.path("line*")).ok());
  EXPECT_FALSE(os::probe_search(scratch.path("a?b")).ok());
}

TEST(OsLinuxNames, AreBytes) {
  const scratch_folder scratch;
  const std::string name = "\xFF\xE4 : ";
  { OpenFile file(scratch.path(name), Access::kReadWriteCreate); }
  EXPECT_TRUE(succeeds(os::probe_search(scratch.path(name))));
  os::Listing entries;
  EXPECT_TRUE(succeeds(os::list(scratch.path(""), entries)));
  ASSERT_EQ(entries.size(), 1U);
  EXPECT_EQ(entries[0].name, name);
}

TEST(OsLinuxNames, ALoneSurrogateNamesAFileOfItsOwn) {
  const scratch_folder scratch;
  const ucs2string folder = wide(scratch.path(""));
  os::Handle handle = os::kNoHandle;
  ASSERT_TRUE(succeeds(os::open(folder + ucs2string(u"\xD800"), Access::kReadWriteCreate, handle)));
  EXPECT_TRUE(succeeds(os::close(handle)));
  EXPECT_FALSE(os::probe_search(folder + ucs2string(u"\xD801")).ok());
  EXPECT_EQ(list_folder(scratch.path()), std::vector<std::string>{"\xED\xA0\x80"});
  EXPECT_EQ(os::to_narrow(ucs2string(u"\u00FC\xD800")), "\xC3\xBC\xED\xA0\x80");
}

TEST(OsLinuxNames, NoByteBeginsATwoByteCharacter) {
  for (int byte = 128; byte < 256; ++byte) {
    EXPECT_FALSE(os::is_lead_byte(static_cast<unsigned char>(byte))) << byte;
  }
}

TEST(OsLinuxNames, ADriveLetterIsAPlainName) {
  const scratch_folder scratch;
  EXPECT_FALSE(os::probe_search(scratch.path("C:")).ok());
  EXPECT_TRUE(succeeds(os::create_directory(scratch.path("C:"))));
  EXPECT_TRUE(succeeds(os::probe_search(scratch.path("C:"))));
}

TEST(OsLinuxNames, SearchingTheRoot) {
  EXPECT_FALSE(os::probe_search(std::string("/")).ok());
  EXPECT_TRUE(succeeds(os::probe_search(std::string("/."))));
  EXPECT_TRUE(succeeds(os::probe_search(std::string("/*"))));
  EXPECT_TRUE(succeeds(os::probe_search(std::string("/proc"))));
}

TEST(OsLinuxNames, ANetworkPathIsAnAbsoluteOne) {
  const scratch_folder scratch;
  write_file(scratch.path("file"), "");
  std::string path = scratch.path("file");
  std::replace(path.begin(), path.end(), '/', '\\');
  EXPECT_TRUE(succeeds(os::probe_attributes("\\" + path)));
  EXPECT_TRUE(fails(os::probe_attributes("\\" + path + "\\x"), Failure::kNotFound));
}

class OsLinuxLinks : public testing::Test {
 protected:
  OsLinuxLinks() {
    make_folder(m_scratch.path("folder"));
    write_file(m_scratch.path("folder\\inner"), "inner");
    write_file(m_scratch.path("file"), "12345");
    fs::create_symlink("folder", native(m_scratch.path("to folder")));
    fs::create_symlink("file", native(m_scratch.path("to file")));
    fs::create_symlink("nowhere", native(m_scratch.path("dangling")));
  }

  const scratch_folder m_scratch;
};

TEST_F(OsLinuxLinks, ASearchFindsTheLinkItself) {
  for (const std::string name : {"to folder", "to file", "dangling", "dang*"}) {
    EXPECT_TRUE(succeeds(os::probe_search(m_scratch.path(name)))) << name;
  }
}

TEST_F(OsLinuxLinks, AListingDoesNotSayWhatALinkIs) {
  os::Listing entries;
  EXPECT_TRUE(succeeds(os::list(m_scratch.path(""), entries)));
  int links = 0;
  for (const os::Entry entry : entries) links += entry.kind == os::EntryKind::kUnknown ? 1 : 0;
  EXPECT_EQ(links, 3);
}

TEST_F(OsLinuxLinks, StatFollowsThemUnlessTheyAreToBeKept) {
  os::FileStat data;
  EXPECT_TRUE(succeeds(os::stat(m_scratch.path("to folder"), data)));
  EXPECT_TRUE(data.is_directory);
  EXPECT_TRUE(succeeds(os::stat(m_scratch.path("to folder\\"), data)));
  EXPECT_TRUE(data.is_directory);
  EXPECT_TRUE(succeeds(os::stat(m_scratch.path("to folder"), data, os::Links::kKeep)));
  EXPECT_FALSE(data.is_directory);
  EXPECT_TRUE(succeeds(os::stat(m_scratch.path("to file"), data)));
  EXPECT_EQ(data.size, 5U);
  EXPECT_TRUE(fails(os::stat(m_scratch.path("dangling"), data), Failure::kNotFound));
  EXPECT_TRUE(succeeds(os::stat(m_scratch.path("dangling"), data, os::Links::kKeep)));
  EXPECT_FALSE(data.is_directory);
}

TEST_F(OsLinuxLinks, RemovingALinkLeavesWhatItLeadsTo) {
  for (const std::string name : {"to folder", "to file", "dangling"}) {
    EXPECT_TRUE(succeeds(os::remove_file(m_scratch.path(name)))) << name;
  }
  EXPECT_EQ(read_file(m_scratch.path("folder\\inner")), "inner");
  EXPECT_EQ(read_file(m_scratch.path("file")), "12345");
  EXPECT_EQ(list_folder(m_scratch.path()), (std::vector<std::string>{"file", "folder"}));
}

TEST_F(OsLinuxLinks, ALinkWithASeparatorIsNotRemoved) {
  EXPECT_FALSE(os::remove_file(m_scratch.path("to folder\\")).ok());
  EXPECT_FALSE(os::remove_directory(m_scratch.path("to folder")).ok());
  EXPECT_TRUE(file_exists(m_scratch.path("to folder")));
  EXPECT_EQ(read_file(m_scratch.path("folder\\inner")), "inner");
}

TEST_F(OsLinuxLinks, OpeningADanglingLinkForWritingMakesItsTarget) {
  { OpenFile file(m_scratch.path("dangling"), Access::kReadWriteCreate); }
  EXPECT_TRUE(file_exists(m_scratch.path("nowhere")));
}

TEST_F(OsLinuxLinks, AFolderCannotTakeTheNameOfADanglingLink) {
  EXPECT_TRUE(fails(os::create_directory(m_scratch.path("dangling")), Failure::kAlreadyExists));
}

TEST_F(OsLinuxLinks, RenamingOntoAnotherNameOfTheSameFileChangesNothing) {
  fs::create_hard_link(native(m_scratch.path("file")), native(m_scratch.path("twin")));
  EXPECT_TRUE(succeeds(os::rename(m_scratch.path("file"), m_scratch.path("twin"))));
  EXPECT_TRUE(file_exists(m_scratch.path("file")));
  EXPECT_TRUE(file_exists(m_scratch.path("twin")));
}

TEST_F(OsLinuxLinks, RenamingALinkMovesTheLinkAndATakenNameCountsThoughItDangles) {
  EXPECT_TRUE(fails(os::rename(m_scratch.path("to file"), m_scratch.path("dangling")),
                    Failure::kAlreadyExists));
  EXPECT_TRUE(succeeds(os::rename(m_scratch.path("dangling"), m_scratch.path("moved"))));
  EXPECT_TRUE(fs::is_symlink(native(m_scratch.path("moved"))));
}

/// Renames in a child process in which these calls fail.
std::string rename_without(const std::vector<BarredCall>& calls, const std::string& from,
                           const std::string& to, std::optional<int> expected_code = {}) {
  return in_child_without(calls, [&] {
    const os::Status status = os::rename(from, to);
    if (!expected_code) return complaint("rename", status);
    return status.code() == *expected_code ? std::string()
                                           : "rename gave code " + std::to_string(status.code());
  });
}

/// The calls that fail in a run of the tests below.
struct Restriction {
  const char* name;
  std::vector<BarredCall> calls;
};

class OsLinuxRenameFallback : public testing::TestWithParam<Restriction> {
 protected:
  OsLinuxRenameFallback() {
    write_file(m_scratch.path("from"), "new");
    make_folder(m_scratch.path("folder"));
    write_file(m_scratch.path("folder\\inner"), "inner");
  }

  const scratch_folder m_scratch;
};

TEST_P(OsLinuxRenameFallback, MovesAFile) {
  EXPECT_SILENT_CHILD(
      rename_without(GetParam().calls, m_scratch.path("from"), m_scratch.path("to")));
  EXPECT_EQ(list_folder(m_scratch.path()), (std::vector<std::string>{"folder", "to"}));
  EXPECT_EQ(read_file(m_scratch.path("to")), "new");
}

TEST_P(OsLinuxRenameFallback, MovesAFolder) {
  EXPECT_SILENT_CHILD(
      rename_without(GetParam().calls, m_scratch.path("folder"), m_scratch.path("to")));
  EXPECT_EQ(list_folder(m_scratch.path()), (std::vector<std::string>{"from", "to"}));
  EXPECT_EQ(read_file(m_scratch.path("to\\inner")), "inner");
}

TEST_P(OsLinuxRenameFallback, LeavesATakenNameAlone) {
  write_file(m_scratch.path("to"), "old");
  make_folder(m_scratch.path("empty"));
  for (const auto& [from, to] : std::vector<std::pair<std::string, std::string>>{
           {"from", "to"}, {"from", "empty"}, {"folder", "to"}, {"folder", "empty"}}) {
    EXPECT_SILENT_CHILD(
        rename_without(GetParam().calls, m_scratch.path(from), m_scratch.path(to), EEXIST));
  }
  EXPECT_EQ(read_file(m_scratch.path("from")), "new");
  EXPECT_EQ(read_file(m_scratch.path("to")), "old");
  EXPECT_EQ(read_file(m_scratch.path("folder\\inner")), "inner");
}

TEST_P(OsLinuxRenameFallback, LeavesNothingBehindWhenItFails) {
  EXPECT_SILENT_CHILD(rename_without(GetParam().calls, m_scratch.path("folder"),
                                     m_scratch.path("folder\\below itself"), EINVAL));
  EXPECT_EQ(list_folder(m_scratch.path("folder")), std::vector<std::string>{"inner"});
}

const std::vector<Restriction> kRestrictions = {
    {"FlagRefused", {{SYS_renameat2, EINVAL}}},
    {"CallMissing", {{SYS_renameat2, ENOSYS}}},
    {"LinksMissingToo", {{SYS_renameat2, EINVAL}, {SYS_link, EPERM}, {SYS_linkat, EPERM}}},
};
INSTANTIATE_TEST_SUITE_P(WithoutTheFlag, OsLinuxRenameFallback, testing::ValuesIn(kRestrictions),
                         [](const auto& each) { return std::string(each.param.name); });

TEST(OsLinuxFolders, TheTemporaryFolderIsThatOfTheEnvironment) {
  const char* const old = std::getenv("TMPDIR");
  const std::optional<std::string> kept = old ? std::optional<std::string>(old) : std::nullopt;
  const auto answer = [](const char* value) {
    ::setenv("TMPDIR", value, 1);
    ucs2string folder;
    EXPECT_TRUE(succeeds(os::temporary_folder(folder)));
    return narrow(folder);
  };
  EXPECT_EQ(answer("/some/where"), "/some/where");
  EXPECT_EQ(answer("/some/where//"), "/some/where");
  EXPECT_EQ(answer("/"), "/");
  EXPECT_EQ(answer(""), "/tmp");
  ::setenv("TMPDIR", "/no\xFF", 1);
  ucs2string folder = wide("unchanged");
  EXPECT_TRUE(fails(os::temporary_folder(folder), Failure::kOther, {EILSEQ, 0}));
  EXPECT_EQ(narrow(folder), "unchanged");
  ::unsetenv("TMPDIR");
  EXPECT_TRUE(succeeds(os::temporary_folder(folder)));
  EXPECT_EQ(narrow(folder), "/tmp");
  if (kept) ::setenv("TMPDIR", kept->c_str(), 1);
}

TEST(OsLinuxFolders, AWorkingFolderThatIsGoneOrNoTextIsAnError) {
  const scratch_folder scratch;
  const std::string words = in_child_without({}, [&] {
    ucs2string folder;
    fs::create_directory(fs::path(path_text(scratch.path()) + "/\xFF"));
    if (::chdir((path_text(scratch.path()) + "/\xFF").c_str()) != 0) return std::string("chdir");
    std::string all = complaint("no text", os::current_directory(folder), Failure::kOther, EILSEQ);
    if (::rmdir((path_text(scratch.path()) + "/\xFF").c_str()) != 0) return std::string("rmdir");
    all += complaint("gone", os::current_directory(folder), Failure::kNotFound, ENOENT);
    all += complaint("relative", os::full_path(wide("a"), folder), Failure::kNotFound, ENOENT);
    return all + complaint("absolute", os::full_path(wide("/a"), folder));
  });
  EXPECT_SILENT_CHILD(words);
}

}  // namespace

// Copying on Linux: the kernel's copy and its replacement, permissions, copies that fail halfway,
// and other processes that come between two steps of a copy.

/// The same system call as that of the C library; a test can act before it.
extern "C" int fcntl(int descriptor, int command, ...) {
  std::va_list arguments;
  va_start(arguments, command);
  void* const argument = va_arg(arguments, void*);
  va_end(arguments);
  if (command == F_OFD_SETLK)
    BeforeLockRequest::arrives(static_cast<const struct ::flock*>(argument)->l_type);
  return static_cast<int>(::syscall(SYS_fcntl, descriptor, command, argument));
}

namespace {

using os::IfExists;

class OsLinuxCopy : public testing::Test {
 protected:
  OsLinuxCopy() {
    for (std::size_t i = 0; i < m_content.size(); ++i) m_content[i] = static_cast<char>(i % 251);
    write_file(m_from, m_content);
  }

  std::string copy_without(const std::vector<BarredCall>& calls) {
    return in_child_without(
        calls, [&] { return complaint("copy", os::copy(m_from, m_to, IfExists::kReplace)); });
  }
  /// The same for a copy that must fail with this code.
  std::string copy_fails_without(const std::vector<BarredCall>& calls, int code) {
    return in_child_without(calls, [&] {
      return complaint("copy", os::copy(m_from, m_to, IfExists::kReplace), Failure::kOther, code);
    });
  }
  static struct ::stat info_of(const std::string& path) {
    struct ::stat info = {};
    EXPECT_EQ(::stat(native(path).c_str(), &info), 0) << path;
    return info;
  }

  const scratch_folder m_scratch;
  const std::string m_from = m_scratch.path("from");
  const std::string m_to = m_scratch.path("to");
  std::string m_content = std::string(200'001, '\0');
};

TEST_F(OsLinuxCopy, ReadsAndWritesWhereTheKernelCannotCopy) {
  for (const int code : {ENOSYS, EXDEV, EINVAL, EOPNOTSUPP, EPERM}) {
    EXPECT_SILENT_CHILD(copy_without({{SYS_copy_file_range, code}}));
    EXPECT_TRUE(read_file(m_to) == m_content) << code;
    fs::remove(native(m_to));
  }
}

TEST_F(OsLinuxCopy, CopiesAFileWhoseReportedSizeIsZero) {
  const std::string status = "/proc/self/status";
  ASSERT_EQ(info_of(status).st_size, 0);
  EXPECT_TRUE(succeeds(os::copy(status, m_to, IfExists::kReplace)));
  EXPECT_EQ(read_file(m_to).compare(0, 5, "Name:"), 0);
}

TEST_F(OsLinuxCopy, CopiesBetweenFileSystems) {
  // The folder of the test may be in memory, and the current folder on a disk.
  for (const std::string& away : {std::string("/dev/shm"), fs::current_path().string()}) {
    if (!fs::is_directory(away) || info_of(away).st_dev == info_of(m_from).st_dev) continue;
    const std::string target = away + "/vu_copy_" + std::to_string(::getpid());
    EXPECT_TRUE(succeeds(os::copy(m_from, target, IfExists::kReplace)));
    EXPECT_TRUE(read_file(target) == m_content);
    EXPECT_TRUE(succeeds(os::remove_file(target)));
    return;
  }
  GTEST_SKIP() << "there is no second file system";
}

TEST_F(OsLinuxCopy, KeepsTheTimeToTheNanosecond) {
  const ::timespec times[2] = {{1'199'145'600, 0}, {1'199'145'600, 123'456'789}};
  ASSERT_EQ(::utimensat(AT_FDCWD, native(m_from).c_str(), times, 0), 0);
  EXPECT_TRUE(succeeds(os::copy(m_from, m_to, IfExists::kReplace)));
  EXPECT_EQ(info_of(m_to).st_mtim.tv_sec, 1'199'145'600);
  EXPECT_EQ(info_of(m_to).st_mtim.tv_nsec, 123'456'789);
  EXPECT_GT(info_of(m_to).st_atim.tv_sec, 1'199'145'600) << "the copy was read just now";
}

TEST_F(OsLinuxCopy, TheModeIsThatOfANewFileButForTheReadOnlyState) {
  const ::mode_t old_mask = ::umask(022);
  ASSERT_EQ(::chmod(native(m_from).c_str(), 0700), 0);
  EXPECT_TRUE(succeeds(os::copy(m_from, m_to, IfExists::kReplace)));
  EXPECT_EQ(info_of(m_to).st_mode & 07777, ::mode_t{0644});
  ASSERT_EQ(::chmod(native(m_from).c_str(), 0577), 0);
  ASSERT_EQ(::chmod(native(m_to).c_str(), 0666), 0);
  EXPECT_TRUE(succeeds(os::copy(m_from, m_to, IfExists::kReplace)));
  EXPECT_EQ(info_of(m_to).st_mode & 07777, ::mode_t{0444});
  ::umask(old_mask);
}

TEST_F(OsLinuxCopy, OntoAnotherNameOfTheSourceFailsAndKeepsIt) {
  fs::create_hard_link(native(m_from), native(m_to));
  EXPECT_TRUE(fails(os::copy(m_from, m_to, IfExists::kReplace), Failure::kOther, {EBUSY, 32}));
  fs::remove(native(m_to));
  fs::create_symlink("from", native(m_to));
  EXPECT_TRUE(fails(os::copy(m_from, m_to, IfExists::kReplace), Failure::kOther, {EBUSY, 32}));
  EXPECT_TRUE(read_file(m_from) == m_content);
}

TEST_F(OsLinuxCopy, FollowsALinkToItsTarget) {
  write_file(m_scratch.path("target"), "old");
  fs::create_symlink("target", native(m_to));
  EXPECT_TRUE(succeeds(os::copy(m_from, m_to, IfExists::kReplace)));
  EXPECT_TRUE(fs::is_symlink(native(m_to)));
  EXPECT_TRUE(read_file(m_scratch.path("target")) == m_content);
}

TEST_F(OsLinuxCopy, TakesNoPipeForAFileAndDoesNotWaitForOne) {
  const std::string pipe = m_scratch.path("pipe");
  ASSERT_EQ(::mkfifo(native(pipe).c_str(), 0666), 0);
  EXPECT_TRUE(fails(os::copy(pipe, m_to, IfExists::kReplace), Failure::kOther, {EINVAL, 0}));
  EXPECT_FALSE(file_exists(m_to));
  EXPECT_TRUE(fails(os::copy(m_from, pipe, IfExists::kReplace), Failure::kOther, {ENXIO, 0}));
}

TEST_F(OsLinuxCopy, AFullDiskLeavesAnExistingTargetAsItWas) {
  write_file(m_to, "old");
  EXPECT_SILENT_CHILD(copy_fails_without({{SYS_fallocate, ENOSPC}}, ENOSPC));
  EXPECT_EQ(read_file(m_to), "old");
}

/// Mounts a file system of one megabyte that only this process sees. A plain user first becomes the
/// superuser of a new user namespace.
bool mount_small_disk(const std::string& folder) {
  const ::uid_t user = ::geteuid();
  const ::gid_t group = ::getegid();
  if (::unshare(CLONE_NEWNS) != 0) {
    if (::unshare(CLONE_NEWUSER | CLONE_NEWNS) != 0) return false;
    write_file("/proc/self/uid_map", "0 " + std::to_string(user) + " 1");
    write_file("/proc/self/setgroups", "deny");
    write_file("/proc/self/gid_map", "0 " + std::to_string(group) + " 1");
  }
  return ::mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0 &&
         ::mount("none", folder.c_str(), "tmpfs", 0, "size=1m") == 0;
}

constexpr const char* kCannotMount = "no small file system can be mounted here";

TEST_F(OsLinuxCopy, AReallyFullDiskLeavesAnExistingTargetAsItWas) {
  write_file(m_from, std::string(600'000, 'n'));
  make_folder(m_scratch.path("disk"));
  const std::string words = in_child_without({}, [&] {
    const std::string disk = native(m_scratch.path("disk")).string();
    if (!mount_small_disk(disk)) return std::string(kCannotMount);
    write_file(disk + "/old", std::string(300'000, 'o'));
    write_file(disk + "/filler", std::string(600'000, 'f'));
    std::string all = complaint("copy onto", os::copy(m_from, disk + "/old", IfExists::kReplace),
                                Failure::kOther, ENOSPC);
    if (read_file(disk + "/old") != std::string(300'000, 'o')) all += " the old text is gone";
    all += complaint("copy beside", os::copy(m_from, disk + "/new", IfExists::kReplace),
                     Failure::kOther, ENOSPC);
    if (file_exists(disk + "/new")) all += " half a copy is left";
    fs::remove(disk + "/filler");
    all += complaint("copy", os::copy(m_from, disk + "/old", IfExists::kReplace));
    if (read_file(disk + "/old") != std::string(600'000, 'n')) all += " the copy is not whole";
    return all;
  });
  if (words == kCannotMount) GTEST_SKIP() << kCannotMount;
  EXPECT_SILENT_CHILD(words);
}

TEST_F(OsLinuxCopy, AFileSystemThatCannotReserveIsWrittenAllTheSame) {
  write_file(m_to, "old");
  EXPECT_SILENT_CHILD(copy_without({{SYS_fallocate, EOPNOTSUPP}}));
  EXPECT_TRUE(read_file(m_to) == m_content);
}

TEST_F(OsLinuxCopy, RemovesWhatItCannotComplete) {
  const std::vector<BarredCall> no_writing = {{SYS_copy_file_range, EIO}, {SYS_write, EIO}};
  EXPECT_SILENT_CHILD(copy_fails_without(no_writing, EIO));
  EXPECT_FALSE(file_exists(m_to));
  EXPECT_SILENT_CHILD(copy_fails_without({{SYS_utimensat, EPERM}}, EPERM));
  EXPECT_FALSE(file_exists(m_to));
  write_file(m_to, "old");
  EXPECT_SILENT_CHILD(copy_fails_without(no_writing, EIO));
  EXPECT_FALSE(file_exists(m_to));
  EXPECT_TRUE(read_file(m_from) == m_content);
}

TEST_F(OsLinuxCopy, RemovesTheUnfinishedTargetOfALinkAndNotTheLink) {
  write_file(m_scratch.path("target"), "old");
  fs::create_symlink("target", native(m_to));
  EXPECT_SILENT_CHILD(copy_fails_without({{SYS_utimensat, EIO}}, EIO));
  EXPECT_TRUE(fs::is_symlink(native(m_to)));
  EXPECT_FALSE(file_exists(m_scratch.path("target")));
}

TEST_F(OsLinuxCopy, WhatIsRefusedBeforeTheFirstByteStays) {
  write_file(m_to, "old");
  EXPECT_SILENT_CHILD(copy_fails_without({{SYS_ftruncate, EIO}}, EIO));
  EXPECT_EQ(read_file(m_to), "old");
}

TEST_F(OsLinuxCopy, AFileSystemWithoutLocksIsCopiedAllTheSame) {
  EXPECT_SILENT_CHILD(copy_without({{SYS_fcntl, EINVAL, F_OFD_SETLK}}));
  EXPECT_TRUE(read_file(m_to) == m_content);
}

TEST_F(OsLinuxCopy, ADeviceThatFailsAtTheFlushOrTheCloseLeavesNoCopy) {
  EXPECT_SILENT_CHILD(copy_fails_without({{SYS_close, EIO}}, EIO));
  EXPECT_FALSE(file_exists(m_to));
  EXPECT_SILENT_CHILD(copy_without({{SYS_fsync, EIO}}));
  EXPECT_SILENT_CHILD(in_child_without({{SYS_fsync, EIO}}, [&] {
    return complaint("copy", os::copy(m_from, m_to, IfExists::kReplace, nullptr, os::Flushed::kYes),
                     Failure::kOther, EIO);
  }));
  EXPECT_FALSE(file_exists(m_to));
}

/// Another writer: it locks the file as the library does, replaces the content and closes.
void replace_locked(const std::string& path, const std::string& text) {
  OpenFile file(path, Access::kReadWriteCreate);
  EXPECT_TRUE(succeeds(file.lock_exclusive()));
  EXPECT_TRUE(succeeds(os::set_end(file.get())));
  file.write(text);
}

TEST_F(OsLinuxCopy, CutsWhatAnotherWritesIntoTheTargetBeforeTheLock) {
  for (const std::string before : {"", "empty", "full"}) {
    fs::remove(native(m_to));
    if (!before.empty()) write_file(m_to, before == "full" ? before : "");
    const BeforeLockRequest other(F_WRLCK,
                                  [&] { replace_locked(m_to, std::string(300'000, 'w')); });
    EXPECT_TRUE(succeeds(os::copy(m_from, m_to, IfExists::kReplace)));
    EXPECT_TRUE(other.has_acted());
    EXPECT_TRUE(read_file(m_to) == m_content) << before;
  }
}

TEST_F(OsLinuxCopy, ThatMustNotReplaceLeavesWhatAnotherWritesBeforeTheLock) {
  const BeforeLockRequest other(F_WRLCK, [&] { replace_locked(m_to, "theirs"); });
  EXPECT_TRUE(fails(os::copy(m_from, m_to, IfExists::kFail), Failure::kAlreadyExists, {EEXIST, 0}));
  EXPECT_EQ(read_file(m_to), "theirs");
}

TEST_F(OsLinuxCopy, LeavesATargetThatIsMadeReadOnlyBeforeTheLock) {
  write_file(m_to, "theirs");
  const BeforeLockRequest other(F_WRLCK, [&] { make_read_only(m_to); });
  EXPECT_TRUE(fails(os::copy(m_from, m_to, IfExists::kReplace), Failure::kOther, {EACCES, 0}));
  EXPECT_EQ(read_file(m_to), "theirs");
}

TEST_F(OsLinuxCopy, HasTheTimeAndStateThatTheSourceHasUnderTheLock) {
  set_modify_time(m_from, 1'000'000'000);
  const BeforeLockRequest other(F_RDLCK, [&] {
    replace_locked(m_from, "new");
    make_read_only(m_from);
  });
  EXPECT_TRUE(succeeds(os::copy(m_from, m_to, IfExists::kReplace)));
  EXPECT_EQ(read_file(m_to), "new");
  EXPECT_GT(get_modify_time(m_to), 1'000'000'000);
  EXPECT_FALSE(is_writable(m_to));
}

TEST_F(OsLinuxCopy, HoldsBothLocksUntilTheCopyIsComplete) {
  set_modify_time(m_from, 1'000'000'000);
  const BeforeLockRequest end(F_UNLCK, [&] {
    EXPECT_EQ(get_modify_time(m_to), 1'000'000'000);
    EXPECT_TRUE(
        fails(OpenFile(m_from, Access::kReadWriteCreate).lock_exclusive(), Failure::kLocked));
    EXPECT_TRUE(fails(OpenFile(m_to, Access::kReadExisting).lock_shared(), Failure::kLocked));
  });
  EXPECT_TRUE(succeeds(os::copy(m_from, m_to, IfExists::kReplace)));
  EXPECT_TRUE(end.has_acted());
}

TEST_F(OsLinuxCopy, RemovesAnIncompleteTargetBeforeAnotherCanLockIt) {
  EXPECT_SILENT_CHILD(in_child_without({{SYS_utimensat, EIO}}, [&] {
    std::string words = "the lock is not released";
    const BeforeLockRequest end(F_UNLCK, [&] { words = file_exists(m_to) ? "it is there" : ""; });
    const os::Status copied = os::copy(m_from, m_to, IfExists::kReplace);
    return words + complaint("copy", copied, Failure::kOther, EIO);
  }));
}

TEST_F(OsLinuxCopy, ThatFailsLeavesNoBytesToAReaderThatWaitsForTheTarget) {
  write_file(m_to, "old");
  OpenFile reader(m_to, Access::kReadExisting);
  EXPECT_SILENT_CHILD(copy_fails_without({{SYS_utimensat, EIO}}, EIO));
  EXPECT_FALSE(file_exists(m_to));
  EXPECT_EQ(reader.read(1), "");
}

TEST_F(OsLinuxCopy, ThatFailsLeavesAnotherFileThatGotItsName) {
  write_file(m_to, "old");
  EXPECT_SILENT_CHILD(in_child_without({{SYS_utimensat, EIO}}, [&] {
    const BeforeLockRequest other(F_WRLCK, [&] {
      fs::rename(native(m_to), native(m_scratch.path("moved")));
      write_file(m_to, "theirs");
    });
    return complaint("copy", os::copy(m_from, m_to, IfExists::kReplace), Failure::kOther, EIO);
  }));
  EXPECT_EQ(read_file(m_to), "theirs");
}

}  // namespace

#endif
