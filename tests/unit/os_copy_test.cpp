#include <gtest/gtest.h>

#include <cerrno>
#include <string>
#include <vector>

#include "platform/os/os.h"
#include "tests/support/scratch.h"
#include "tests/unit/os_test_kit.h"

// Copying files. What only one system knows: os_linux_copy_test.cpp.

namespace {

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

TEST_F(OsCopy, LeavesAnExistingTargetAloneWhenAsked) {
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

TEST_F(OsCopy, LeavesAReadOnlyTargetAloneWhoeverAsks) {
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
  // Whether a Windows system has cut the target by then is its own affair.
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
