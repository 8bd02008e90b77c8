#include <gtest/gtest.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <string>
#include <thread>
#include <vector>

#include "platform/os/os.h"
#include "tests/support/process.h"
#include "tests/support/scratch.h"
#include "tests/unit/os_test_kit.h"

// Locks over whole files. On POSIX systems they belong to the open file description.

namespace {

using os::Access;
using os::Failure;

constexpr Codes kRefused = {EAGAIN, 33};

class OsLocks : public testing::Test {
 protected:
  OsLocks() { write_file(m_path, "text"); }

  const scratch_folder m_scratch;
  const std::string m_path = m_scratch.path("file");
};

TEST_F(OsLocks, TwoHandlesOfOneProcessExcludeEachOther) {
  OpenFile one(m_path, Access::kReadWriteCreate);
  OpenFile other(m_path, Access::kReadWriteCreate);
  EXPECT_TRUE(succeeds(one.lock_exclusive()));
  EXPECT_TRUE(fails(other.lock_exclusive(), Failure::kLocked, kRefused));
  EXPECT_TRUE(fails(other.lock_shared(), Failure::kLocked, kRefused));
}

TEST_F(OsLocks, ReadersShareAndKeepAWriterOut) {
  OpenFile one(m_path, Access::kReadExisting);
  OpenFile other(m_path, Access::kReadExisting);
  OpenFile writer(m_path, Access::kReadWriteCreate);
  EXPECT_TRUE(succeeds(one.lock_shared()));
  EXPECT_TRUE(succeeds(other.lock_shared()));
  EXPECT_TRUE(fails(writer.lock_exclusive(), Failure::kLocked, kRefused));
  one.close();
  EXPECT_TRUE(fails(writer.lock_exclusive(), Failure::kLocked, kRefused));
  other.close();
  EXPECT_TRUE(succeeds(writer.lock_exclusive()));
}

TEST_F(OsLocks, ClosingAnotherHandleOfTheFileLeavesALockInForce) {
  OpenFile holder(m_path, Access::kReadWriteCreate);
  EXPECT_TRUE(succeeds(holder.lock_exclusive()));
  OpenFile(m_path, Access::kReadExisting).close();
  OpenFile third(m_path, Access::kReadExisting);
  EXPECT_TRUE(fails(third.lock_shared(), Failure::kLocked, kRefused));
}

TEST_F(OsLocks, ALockEndsWithItsHandle) {
  OpenFile holder(m_path, Access::kReadWriteCreate);
  EXPECT_TRUE(succeeds(holder.lock_exclusive()));
  holder.close();
  OpenFile next(m_path, Access::kReadWriteCreate);
  EXPECT_TRUE(succeeds(next.lock_exclusive()));
}

TEST_F(OsLocks, UnlockingGivesTheFileBackOnce) {
  OpenFile holder(m_path, Access::kReadWriteCreate);
  OpenFile next(m_path, Access::kReadWriteCreate);
  EXPECT_TRUE(succeeds(holder.lock_exclusive()));
  EXPECT_TRUE(succeeds(os::unlock(holder.get())));
  // Windows says 158, its emulation 33.
  EXPECT_FALSE(os::unlock(holder.get()).ok());
  EXPECT_TRUE(succeeds(next.lock_exclusive()));
}

TEST_F(OsLocks, TheLockCoversWhatTheFileGrowsBy) {
  OpenFile holder(m_path, Access::kReadWriteCreate);
  EXPECT_TRUE(succeeds(holder.lock_exclusive()));
  holder.write(std::string(100'000, 'x'));
  OpenFile other(m_path, Access::kReadExisting);
  EXPECT_TRUE(fails(other.lock_shared(), Failure::kLocked, kRefused));
}

TEST_F(OsLocks, ALockFollowsTheFileWhenItIsRenamed) {
  OpenFile holder(m_path, Access::kReadWriteCreate);
  EXPECT_TRUE(succeeds(holder.lock_exclusive()));
  const std::string renamed = m_scratch.path("renamed");
  EXPECT_TRUE(succeeds(os::rename(m_path, renamed)));
  OpenFile other(renamed, Access::kReadExisting);
  EXPECT_TRUE(fails(other.lock_shared(), Failure::kLocked, kRefused));
}

TEST_F(OsLocks, AWaitingRequestIsGrantedWhenTheHolderIsDone) {
  OpenFile holder(m_path, Access::kReadWriteCreate);
  OpenFile waiter(m_path, Access::kReadWriteCreate);
  EXPECT_TRUE(succeeds(holder.lock_exclusive()));
  std::atomic<bool> granted = false;
  std::thread thread([&] {
    EXPECT_TRUE(succeeds(waiter.lock(os::kLockExclusive)));
    granted = true;
  });
  std::this_thread::sleep_for(std::chrono::milliseconds(100));
  EXPECT_FALSE(granted);
  EXPECT_TRUE(succeeds(os::unlock(holder.get())));
  thread.join();
  EXPECT_TRUE(granted);
  EXPECT_TRUE(fails(holder.lock_shared(), Failure::kLocked, kRefused));
}

// ---- reading and writing against a lock --------------------------------------------------------

TEST_F(OsLocks, AHandleWithoutALockDoesNotReadWhatAnotherHoldsExclusively) {
  NEEDS_A_REAL_KERNEL("a read inside of a foreign lock fails");
  OpenFile holder(m_path, Access::kReadWriteCreate);
  OpenFile other(m_path, Access::kReadExisting);
  EXPECT_TRUE(succeeds(holder.lock_exclusive()));
  EXPECT_TRUE(fails(other.try_read(), Failure::kLocked, kRefused));
  EXPECT_EQ(os::last_error(), kRefused.here());
  holder.close();
  EXPECT_EQ(other.read(10), "text");
}

TEST_F(OsLocks, AHandleWithoutALockDoesNotWriteWhatAnotherHoldsAtAll) {
  NEEDS_A_REAL_KERNEL("a write inside of a foreign lock fails");
  OpenFile holder(m_path, Access::kReadWriteCreate);
  OpenFile other(m_path, Access::kReadWriteCreate);
  EXPECT_TRUE(succeeds(holder.lock_exclusive()));
  EXPECT_TRUE(fails(other.try_write(), Failure::kLocked, kRefused));
  holder.close();
  OpenFile reader(m_path, Access::kReadExisting);
  EXPECT_TRUE(succeeds(reader.lock_shared()));
  EXPECT_TRUE(fails(other.try_write(), Failure::kLocked, kRefused));
  EXPECT_EQ(read_file(m_path), "text");
}

TEST_F(OsLocks, AHandleWithoutALockReadsBesideOtherReaders) {
  OpenFile holder(m_path, Access::kReadExisting);
  OpenFile other(m_path, Access::kReadExisting);
  EXPECT_TRUE(succeeds(holder.lock_shared()));
  EXPECT_EQ(other.read(10), "text");
}

TEST_F(OsLocks, ReadingAndWritingWithoutALockLeavesNoneBehind) {
  OpenFile other(m_path, Access::kReadWriteCreate);
  EXPECT_EQ(other.read(2), "te");
  other.write("x");
  OpenFile writer(m_path, Access::kReadWriteCreate);
  EXPECT_TRUE(succeeds(writer.lock_exclusive()));
}

TEST_F(OsLocks, TheHolderOfALockReadsAndWrites) {
  OpenFile holder(m_path, Access::kReadWriteCreate);
  EXPECT_TRUE(succeeds(holder.lock_exclusive()));
  EXPECT_EQ(holder.read(2), "te");
  holder.write("st");
  EXPECT_TRUE(succeeds(os::unlock(holder.get())));
  EXPECT_EQ(read_file(m_path), "test");
}

// ---- between processes -------------------------------------------------------------------------

int hold_file(const std::vector<std::string>& args) {
  OpenFile file(args.at(0), Access::kReadWriteCreate);
  if (!file.lock_exclusive().ok()) return 1;
  say("locked");
  hear();
  return 0;
}
REGISTER_ROLE(os_hold_file, hold_file)

TEST_F(OsLocks, ALockOfAnotherProcessCountsUntilThatProcessIsDone) {
  child_process child("os_hold_file", {m_path});
  ASSERT_TRUE(child.hears("locked"));
  OpenFile file(m_path, Access::kReadWriteCreate);
  EXPECT_TRUE(fails(file.lock_exclusive(), Failure::kLocked, kRefused));
  child.close_input();
  EXPECT_EQ(child.wait(), 0);
  EXPECT_TRUE(succeeds(file.lock(os::kLockExclusive)));
}

TEST_F(OsLocks, ALockDiesWithItsProcess) {
  child_process child("os_hold_file", {m_path});
  ASSERT_TRUE(child.hears("locked"));
  OpenFile file(m_path, Access::kReadWriteCreate);
  EXPECT_TRUE(fails(file.lock_exclusive(), Failure::kLocked, kRefused));
  child.kill();
  EXPECT_TRUE(succeeds(file.lock(os::kLockExclusive)));
  EXPECT_EQ(child.wait(), child_process::kKilled);
}

}  // namespace
