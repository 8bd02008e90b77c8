#if defined(__linux__)

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <string>
#include <vector>

#include "platform/os/os.h"
#include "tests/support/scratch.h"
#include "tests/unit/os_linux_kit.h"
#include "tests/unit/os_test_kit.h"

// Copying on Linux: the kernel's copy and what stands in for it, permissions, and copies that fail
// half way.

namespace {

namespace fs = std::filesystem;
using os::Failure;
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
  /// The same for a copy that has to fail with the code.
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

TEST_F(OsLinuxCopy, CopiesWhatASizeOfZeroDoesNotTell) {
  const std::string status = "/proc/self/status";
  ASSERT_EQ(info_of(status).st_size, 0);
  EXPECT_TRUE(succeeds(os::copy(status, m_to, IfExists::kReplace)));
  EXPECT_EQ(read_file(m_to).compare(0, 5, "Name:"), 0);
}

TEST_F(OsLinuxCopy, CopiesBetweenFileSystems) {
  // The test's own folder may be in memory; the one that tests are started in is on a disk.
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

/// Mounts a file system of one megabyte that only this process sees; a plain user first becomes the
/// superuser of a world of its own.
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

TEST_F(OsLinuxCopy, RemovesTheHalfCopyBehindALinkAndNotTheLink) {
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

}  // namespace

#endif
