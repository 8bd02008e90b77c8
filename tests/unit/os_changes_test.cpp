// Creating, removing and renaming. The test support has functions with similar names; "os::" marks
// the function under test.

#include <gtest/gtest.h>
#if defined(__linux__)
#include <sys/stat.h>
#include <unistd.h>
#endif

#include <cerrno>
#include <cstdint>
#include <string>
#include <vector>

#include "platform/os/os.h"
#include "tests/support/recording_sink.h"
#include "tests/support/scratch.h"
#include "tests/unit/test_kit.h"
#include "vu_file.h"
#include "vu_fileutf8.h"

namespace {

using os::Access;
using os::Failure;

TEST(OsCreateDirectory, MakesOneFolder) {
  const scratch_folder scratch;
  EXPECT_TRUE(succeeds(os::create_directory(scratch.path("narrow"))));
  EXPECT_TRUE(succeeds(os::create_directory(wide(scratch.path("wide")))));
  EXPECT_TRUE(succeeds(os::create_directory(scratch.path("with separator\\"))));
  EXPECT_TRUE(folder_exists(scratch.path("narrow")));
  EXPECT_TRUE(folder_exists(scratch.path("wide")));
  EXPECT_TRUE(folder_exists(scratch.path("with separator")));
}

TEST(OsCreateDirectory, ReportsATakenNameWhateverItIs) {
  const scratch_folder scratch;
  make_folder(scratch.path("folder"));
  write_file(scratch.path("file"), "text");
  for (const std::string name : {"folder", "folder\\", "file"}) {
    EXPECT_TRUE(
        fails(os::create_directory(scratch.path(name)), Failure::kAlreadyExists, {EEXIST, 183}))
        << name;
  }
  EXPECT_EQ(read_file(scratch.path("file")), "text");
}

TEST(OsCreateDirectory, WantsTheParent) {
  const scratch_folder scratch;
  write_file(scratch.path("file"), "");
  EXPECT_TRUE(
      fails(os::create_directory(scratch.path("missing\\x")), Failure::kNotFound, {ENOENT, 3}));
  EXPECT_TRUE(
      fails(os::create_directory(scratch.path("file\\x")), Failure::kNotFound, {ENOTDIR, 3}));
  EXPECT_TRUE(fails(os::create_directory(std::string()), Failure::kNotFound, {ENOENT, 3}));
}

TEST(OsRemoveDirectory, RemovesAnEmptyFolderOnly) {
  const scratch_folder scratch;
  make_folder(scratch.path("full\\inner"));
  EXPECT_TRUE(fails(os::remove_directory(scratch.path("full")), Failure::kOther, {ENOTEMPTY, 145}));
  EXPECT_TRUE(succeeds(os::remove_directory(scratch.path("full\\inner"))));
  EXPECT_TRUE(succeeds(os::remove_directory(wide(scratch.path("full")))));
  EXPECT_FALSE(folder_exists(scratch.path("full")));
}

TEST(OsRemoveDirectory, LeavesAFileAlone) {
  const scratch_folder scratch;
  write_file(scratch.path("file"), "text");
  EXPECT_TRUE(fails(os::remove_directory(scratch.path("file")), Failure::kOther, {ENOTDIR, 267}));
  EXPECT_EQ(read_file(scratch.path("file")), "text");
  EXPECT_TRUE(
      fails(os::remove_directory(scratch.path("missing")), Failure::kNotFound, {ENOENT, 2}));
}

TEST(OsRemoveFile, RemovesAFile) {
  const scratch_folder scratch;
  write_file(scratch.path("a"), "");
  write_file(scratch.path("b"), "");
  EXPECT_TRUE(succeeds(os::remove_file(scratch.path("a"))));
  EXPECT_TRUE(succeeds(os::remove_file(wide(scratch.path("b")))));
  EXPECT_TRUE(list_folder(scratch.path()).empty());
  EXPECT_TRUE(fails(os::remove_file(scratch.path("a")), Failure::kNotFound, {ENOENT, 2}));
  EXPECT_EQ(os::last_error(), (Codes{ENOENT, 2}.here()));
}

TEST(OsRemoveFile, LeavesAFolderAlone) {
  const scratch_folder scratch;
  make_folder(scratch.path("folder"));
  EXPECT_TRUE(fails(os::remove_file(scratch.path("folder")), Failure::kOther, {EISDIR, 5}));
  EXPECT_EQ(os::last_error(), (Codes{EISDIR, 5}.here()));
  EXPECT_TRUE(folder_exists(scratch.path("folder")));
}

TEST(OsRemoveFile, LeavesAReadOnlyFileUnchangedForEveryUser) {
  const scratch_folder scratch;
  const std::string path = scratch.path("file");
  write_file(path, "text");
  make_read_only(path);
  EXPECT_TRUE(fails(os::remove_file(path), Failure::kOther, {EACCES, 5}));
  EXPECT_EQ(read_file(path), "text");
}

TEST(OsMakeWritable, LetsAReadOnlyFileBeWrittenAndRemoved) {
  const scratch_folder scratch;
  for (const bool in_wide : {false, true}) {
    const std::string path = scratch.path("file");
    write_file(path, "text");
    make_read_only(path);
    EXPECT_FALSE(is_writable(path));
    EXPECT_TRUE(succeeds(in_wide ? os::make_writable(wide(path)) : os::make_writable(path)));
    EXPECT_TRUE(is_writable(path));
    OpenFile(path, Access::kReadWriteCreate).write("more");
    EXPECT_TRUE(succeeds(os::remove_file(path)));
  }
  EXPECT_TRUE(
      fails(os::make_writable(scratch.path("missing")), Failure::kNotFound, {ENOENT, ENOENT}));
}

TEST(OsRename, MovesFilesAndFolders) {
  const scratch_folder scratch;
  make_folder(scratch.path("folder"));
  write_file(scratch.path("file"), "text");
  EXPECT_TRUE(succeeds(os::rename(scratch.path("file"), scratch.path("folder\\moved"))));
  EXPECT_TRUE(succeeds(os::rename(wide(scratch.path("folder")), wide(scratch.path("other")))));
  EXPECT_EQ(list_folder(scratch.path()), std::vector<std::string>{"other"});
  EXPECT_EQ(read_file(scratch.path("other\\moved")), "text");
}

TEST(OsRename, LeavesATakenNameAlone) {
  const scratch_folder scratch;
  write_file(scratch.path("from"), "new");
  write_file(scratch.path("file"), "old");
  make_folder(scratch.path("folder"));
  make_folder(scratch.path("from folder"));
  const auto refused = [&](const std::string& from, const std::string& to) {
    return fails(os::rename(scratch.path(from), scratch.path(to)), Failure::kAlreadyExists,
                 {EEXIST, EEXIST});
  };
  EXPECT_TRUE(refused("from", "file"));
  EXPECT_TRUE(refused("from", "folder"));
  EXPECT_TRUE(refused("from folder", "folder"));
  EXPECT_TRUE(refused("from folder", "file"));
  EXPECT_EQ(read_file(scratch.path("from")), "new");
  EXPECT_EQ(read_file(scratch.path("file")), "old");
  EXPECT_TRUE(folder_exists(scratch.path("folder")));
  EXPECT_TRUE(folder_exists(scratch.path("from folder")));
}

TEST(OsRename, OntoItselfSucceedsHoweverItIsSpelled) {
  const scratch_folder scratch;
  make_folder(scratch.path("folder"));
  write_file(scratch.path("file"), "text");
  for (const std::string name : {"file", ".\\file", "folder\\..\\file", "folder/../file"}) {
    EXPECT_TRUE(succeeds(os::rename(scratch.path("file"), scratch.path(name)))) << name;
  }
  EXPECT_TRUE(succeeds(os::rename(scratch.path("folder"), scratch.path("folder"))));
  EXPECT_EQ(read_file(scratch.path("file")), "text");
}

TEST(OsRename, AMissingSourceFailsEvenOntoItself) {
  const scratch_folder scratch;
  const std::string missing = scratch.path("missing");
  EXPECT_TRUE(fails(os::rename(missing, missing), Failure::kNotFound, {ENOENT, ENOENT}));
  EXPECT_TRUE(
      fails(os::rename(missing, scratch.path("new")), Failure::kNotFound, {ENOENT, ENOENT}));
}

TEST(OsRename, WantsTheFolderOfTheNewName) {
  const scratch_folder scratch;
  write_file(scratch.path("file"), "text");
  EXPECT_TRUE(fails(os::rename(scratch.path("file"), scratch.path("missing\\file")),
                    Failure::kNotFound, {ENOENT, ENOENT}));
  EXPECT_EQ(read_file(scratch.path("file")), "text");
}

TEST(OsRename, MovesReadOnlyAndLockedFilesToo) {
  const scratch_folder scratch;
  write_file(scratch.path("read-only"), "text");
  make_read_only(scratch.path("read-only"));
  EXPECT_TRUE(succeeds(os::rename(scratch.path("read-only"), scratch.path("moved"))));
  EXPECT_FALSE(is_writable(scratch.path("moved")));
  OpenFile file(scratch.path("locked"), Access::kReadWriteCreate);
  EXPECT_TRUE(succeeds(file.lock_exclusive()));
  EXPECT_TRUE(succeeds(os::rename(scratch.path("locked"), scratch.path("moved too"))));
}

TEST(OsRename, ChangesLetterCaseAlone) {
  NEEDS_A_REAL_KERNEL("a rename that changes nothing but letter case takes effect");
  const scratch_folder scratch;
  write_file(scratch.path("Report.KDB"), "text");
  EXPECT_TRUE(succeeds(os::rename(scratch.path("Report.KDB"), scratch.path("Report.kdb"))));
  EXPECT_EQ(list_folder(scratch.path()), std::vector<std::string>{"Report.kdb"});
}

// Copying files. Linux only: os_linux_names_test.cpp.

using os::Access;
using os::Failure;
using os::IfExists;

class OsCopy : public testing::Test {
 protected:
  const scratch_folder m_scratch;
  const std::string m_from = m_scratch.path("from");
  const std::string m_to = m_scratch.path("to");
};

TEST_F(OsCopy, CopiesEveryByte) {
  std::string large(300'000, '\0');
  for (std::size_t i = 0; i < large.size(); ++i) large[i] = static_cast<char>(i * 7 % 251);
  for (const std::string& content :
       {std::string(), std::string("x"), std::string("\0\n\r\x1A", 4), large}) {
    write_file(m_from, content);
    EXPECT_TRUE(succeeds(os::copy(m_from, m_to, IfExists::kReplace)));
    EXPECT_TRUE(read_file(m_to) == content);
    EXPECT_TRUE(succeeds(os::remove_file(m_to)));
    EXPECT_TRUE(succeeds(os::copy(wide(m_from), wide(m_to), IfExists::kFail)));
    EXPECT_TRUE(read_file(m_to) == content);
  }
}

TEST_F(OsCopy, KeepsTheModificationTime) {
  write_file(m_from, "text");
  set_modify_time(m_from, 1'199'145'600);
  EXPECT_TRUE(succeeds(os::copy(m_from, m_to, IfExists::kReplace)));
  EXPECT_EQ(get_modify_time(m_to), 1'199'145'600);
  set_modify_time(m_from, 1'099'145'600);
  EXPECT_TRUE(succeeds(os::copy(m_from, m_to, IfExists::kReplace)));
  EXPECT_EQ(get_modify_time(m_to), 1'099'145'600);
}

TEST_F(OsCopy, KeepsTheReadOnlyState) {
  write_file(m_from, "text");
  make_read_only(m_from);
  EXPECT_TRUE(succeeds(os::copy(m_from, m_to, IfExists::kReplace)));
  EXPECT_EQ(read_file(m_to), "text");
  EXPECT_FALSE(is_writable(m_to));
}

TEST_F(OsCopy, ReplacesALongerFileWhole) {
  write_file(m_from, "short");
  write_file(m_to, std::string(100'000, 'x'));
  EXPECT_TRUE(succeeds(os::copy(m_from, m_to, IfExists::kReplace)));
  EXPECT_EQ(read_file(m_to), "short");
}

TEST_F(OsCopy, LeavesAnExistingTargetUnchangedOnRequest) {
  write_file(m_from, "new");
  write_file(m_to, "old");
  EXPECT_TRUE(
      fails(os::copy(m_from, m_to, IfExists::kFail), Failure::kAlreadyExists, {EEXIST, 80}));
  EXPECT_EQ(read_file(m_to), "old");
}

TEST_F(OsCopy, OntoItselfFailsAndChangesNothing) {
  write_file(m_from, "text");
  EXPECT_TRUE(fails(os::copy(m_from, m_from, IfExists::kReplace), Failure::kOther, {EBUSY, 32}));
  EXPECT_TRUE(
      fails(os::copy(m_from, m_scratch.path(".\\from"), IfExists::kReplace), Failure::kOther));
  EXPECT_EQ(read_file(m_from), "text");
}

TEST_F(OsCopy, TakesNoFolderForAFile) {
  make_folder(m_scratch.path("folder"));
  write_file(m_from, "text");
  EXPECT_FALSE(os::copy(m_scratch.path("folder"), m_to, IfExists::kReplace).ok());
  EXPECT_FALSE(file_exists(m_to));
  EXPECT_FALSE(os::copy(m_from, m_scratch.path("folder"), IfExists::kReplace).ok());
  EXPECT_TRUE(folder_exists(m_scratch.path("folder")));
}

TEST_F(OsCopy, NamesWhatIsMissing) {
  EXPECT_TRUE(fails(os::copy(m_from, m_to, IfExists::kReplace), Failure::kNotFound, {ENOENT, 2}));
  EXPECT_FALSE(file_exists(m_to));
  write_file(m_from, "text");
  EXPECT_TRUE(fails(os::copy(m_from, m_scratch.path("missing\\to"), IfExists::kReplace),
                    Failure::kNotFound, {ENOENT, 3}));
}

TEST_F(OsCopy, LeavesAReadOnlyTargetUnchangedForEveryUser) {
  NEEDS_A_REAL_KERNEL("a read-only file is refused as a target, whoever asks");
  write_file(m_from, "new");
  write_file(m_to, "old");
  make_read_only(m_to);
  EXPECT_TRUE(fails(os::copy(m_from, m_to, IfExists::kReplace), Failure::kOther, {EACCES, 5}));
  EXPECT_EQ(read_file(m_to), "old");
}

TEST_F(OsCopy, DoesNotReadWhatAnotherHandleHoldsExclusively) {
  NEEDS_A_REAL_KERNEL("copying from a locked file fails");
  OpenFile source(m_from, Access::kReadWriteCreate);
  source.write("text");
  EXPECT_TRUE(succeeds(source.lock_exclusive()));
  EXPECT_TRUE(fails(os::copy(m_from, m_to, IfExists::kReplace), Failure::kLocked, {EAGAIN, 33}));
  EXPECT_FALSE(file_exists(m_to));
}

TEST_F(OsCopy, DoesNotWriteWhatAnotherHandleHolds) {
  NEEDS_A_REAL_KERNEL("copying onto a locked file fails");
  write_file(m_from, "new");
  write_file(m_to, "old");
  OpenFile reader(m_to, Access::kReadExisting);
  EXPECT_TRUE(succeeds(reader.lock_shared()));
  EXPECT_TRUE(fails(os::copy(m_from, m_to, IfExists::kReplace), Failure::kLocked, {EAGAIN, 33}));
  // Windows may have truncated the target before the failure.
  if (!kOnWindows) {
    EXPECT_EQ(read_file(m_to), "old");
  }
}

TEST_F(OsCopy, ReadsBesideAReaderAndLeavesNoLockBehind) {
  write_file(m_from, "text");
  OpenFile reader(m_from, Access::kReadExisting);
  EXPECT_TRUE(succeeds(reader.lock_shared()));
  EXPECT_TRUE(succeeds(os::copy(m_from, m_to, IfExists::kReplace)));
  reader.close();
  OpenFile source(m_from, Access::kReadWriteCreate);
  EXPECT_TRUE(succeeds(source.lock_exclusive()));
  OpenFile target(m_to, Access::kReadWriteCreate);
  EXPECT_TRUE(succeeds(target.lock_exclusive()));
}

}  // namespace

#if defined(__linux__)

// One tree, two accounts: each can change what the other created with write permission for it.
// Needs the superuser, who can act as both.

namespace {

using os::CopiedTime;
using os::IfExists;
using vu_host::trace_event;
using list = std::vector<std::string>;

constexpr ::uid_t kOther = 65534;
constexpr std::int64_t kOld = 1'000'000'000;

/// Acts as another account during its lifetime, without the superuser's permissions.
class AsOther {
 public:
  AsOther() { EXPECT_EQ(::seteuid(kOther), 0); }
  ~AsOther() { EXPECT_EQ(::seteuid(0), 0); }
  AsOther(const AsOther&) = delete;
  AsOther& operator=(const AsOther&) = delete;
};

class OsLinuxAccounts : public testing::Test {
 protected:
  void SetUp() override {
    if (::geteuid() != 0) GTEST_SKIP() << "only the superuser can be two accounts";
    ASSERT_EQ(::chmod(native(m_scratch.path()).c_str(), 0777), 0);
    write_file(m_from, "new");
    set_modify_time(m_from, kOld);
    write_file(m_to, "the old content");
    ASSERT_EQ(::chmod(native(m_to).c_str(), 0666), 0);
  }
  void check_copied() const {
    EXPECT_EQ(read_file(m_to), "new");
    EXPECT_GT(get_modify_time(m_to), kOld);
  }

  const scratch_folder m_scratch;
  const std::string m_from = m_scratch.path("from");
  const std::string m_to = m_scratch.path("to");
};

TEST_F(OsLinuxAccounts, ACopyOntoAnothersFileStaysAndSaysThatItsTimeIsNotTheSources) {
  CopiedTime time = CopiedTime::kKept;
  {
    const AsOther other;
    EXPECT_TRUE(succeeds(os::copy(m_from, m_to, IfExists::kReplace, &time)));
    EXPECT_TRUE(succeeds(os::copy(m_from, m_to, IfExists::kReplace)));
  }
  EXPECT_EQ(time, CopiedTime::kRefused);
  check_copied();
}

TEST_F(OsLinuxAccounts, ACopyOntoAFileOfOnesOwnKeepsTheTime) {
  CopiedTime time = CopiedTime::kRefused;
  EXPECT_TRUE(succeeds(os::copy(m_from, m_to, IfExists::kReplace, &time)));
  EXPECT_EQ(time, CopiedTime::kKept);
  EXPECT_EQ(get_modify_time(m_to), kOld);
}

TEST_F(OsLinuxAccounts, WhatAnotherMayNotWriteIsNotCut) {
  ASSERT_EQ(::chmod(native(m_to).c_str(), 0644), 0);
  {
    const AsOther other;
    EXPECT_TRUE(fails(os::copy(m_from, m_to, IfExists::kReplace), Failure::kOther, {EACCES, 5}));
  }
  EXPECT_EQ(read_file(m_to), "the old content");
}

TEST_F(OsLinuxAccounts, AReadOnlySourceIsRefusedBeforeTheCut) {
  ASSERT_EQ(::chmod(native(m_from).c_str(), 0444), 0);
  {
    const AsOther other;
    EXPECT_TRUE(fails(os::copy(m_from, m_to, IfExists::kReplace), Failure::kOther, {EPERM, 5}));
  }
  EXPECT_EQ(read_file(m_to), "the old content");
}

TEST_F(OsLinuxAccounts, AFileThatItsOwnerMayWriteIsWritableForEveryUser) {
  {
    const AsOther other;
    EXPECT_TRUE(succeeds(os::make_writable(m_to)));
    EXPECT_TRUE(vu_file::chmodW(m_to));
    EXPECT_TRUE(vu_fileutf8::chmodW(vu_utf8string(m_to)));
  }
  ASSERT_EQ(::chmod(native(m_to).c_str(), 0466), 0);
  const AsOther other;
  EXPECT_TRUE(fails(os::make_writable(m_to), Failure::kOther, {EPERM, 5}));
}

TEST_F(OsLinuxAccounts, BothFormsOfACopyWarnOfTheTime) {
  recording_sink sink;
  {
    const AsOther other;
    EXPECT_TRUE(vu_file::copyFile(m_from, m_to, true));
    EXPECT_TRUE(vu_fileutf8::copyFile(vu_utf8string(m_from), vu_utf8string(m_to), true));
  }
  check_copied();
  EXPECT_EQ(sink.events(trace_event::warning),
            (list{"vu_file::copyFile : cannot set the time of " + m_to,
                  "vu_fileutf8::copyFile : cannot set the time of " + m_to}));
}

}  // namespace

#endif
