// Opening, reading, writing and positions. Of two expected codes the first is that of POSIX
// systems.

#include <gtest/gtest.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "platform/os/os.h"
#include "tests/support/process.h"
#include "tests/support/scratch.h"
#include "tests/unit/test_kit.h"

namespace {

using os::Access;
using os::Failure;

os::Status open_and_close(const std::string& path, Access access) {
  os::Handle handle = 12345;
  const os::Status status = os::open(path, access, handle);
  EXPECT_EQ(handle == os::kNoHandle, !status.ok());
  if (!status.ok()) return status;
  EXPECT_TRUE(succeeds(os::close(handle)));
  return status;
}

TEST(OsOpen, ReadingWantsAnExistingFile) {
  const scratch_folder scratch;
  const std::string path = scratch.path("missing");
  EXPECT_TRUE(fails(open_and_close(path, Access::kReadExisting), Failure::kNotFound, {ENOENT, 2}));
  EXPECT_FALSE(file_exists(path));
  write_file(path, "");
  EXPECT_TRUE(succeeds(open_and_close(path, Access::kReadExisting)));
}

TEST(OsOpen, WritingMakesTheFileAndNeverCutsIt) {
  const scratch_folder scratch;
  const std::string path = scratch.path("file");
  EXPECT_TRUE(succeeds(open_and_close(path, Access::kReadWriteCreate)));
  EXPECT_EQ(read_file(path), "");
  write_file(path, "text");
  EXPECT_TRUE(succeeds(open_and_close(path, Access::kReadWriteCreate)));
  EXPECT_EQ(read_file(path), "text");
}

TEST(OsOpen, WritingAnExistingFileMakesNone) {
  const scratch_folder scratch;
  const std::string path = scratch.path("file");
  EXPECT_TRUE(
      fails(open_and_close(path, Access::kReadWriteExisting), Failure::kNotFound, {ENOENT, 2}));
  EXPECT_FALSE(file_exists(path));
  write_file(path, "text");
  OpenFile(path, Access::kReadWriteExisting).write("more");
  EXPECT_EQ(read_file(path), "more");
}

TEST(OsOpen, CreatesANewFileOnlyWhereNothingIs) {
  const scratch_folder scratch;
  write_file(scratch.path("file"), "bytes");
  make_folder(scratch.path("folder"));
  os::Handle handle = os::kNoHandle;
  for (const char* const taken : {"file", "folder"}) {
    const os::Status status = os::open(scratch.path(taken), Access::kCreateNew, handle);
    EXPECT_EQ(status.failure(), os::Failure::kAlreadyExists) << taken;
    EXPECT_EQ(handle, os::kNoHandle) << taken;
  }
  EXPECT_EQ(read_file(scratch.path("file")), "bytes");
  ASSERT_TRUE(os::open(scratch.path("new"), Access::kCreateNew, handle).ok());
  EXPECT_TRUE(os::close(handle).ok());
  EXPECT_EQ(read_file(scratch.path("new")), "");
}

TEST(OsOpen, AMissingFolderOnTheWayIsNotFound) {
  const scratch_folder scratch;
  for (const Access access : {Access::kReadExisting, Access::kReadWriteCreate}) {
    EXPECT_TRUE(fails(open_and_close(scratch.path("missing\\file"), access), Failure::kNotFound,
                      {ENOENT, 3}));
  }
}

TEST(OsOpen, APlainFileInPlaceOfAFolderOnTheWayIsNotFound) {
  const scratch_folder scratch;
  write_file(scratch.path("plain"), "");
  for (const Access access : {Access::kReadExisting, Access::kReadWriteCreate}) {
    EXPECT_TRUE(fails(open_and_close(scratch.path("plain\\file"), access), Failure::kNotFound,
                      {ENOTDIR, 3}));
  }
}

TEST(OsOpen, TheEmptyPathIsNotFound) {
  EXPECT_TRUE(fails(open_and_close("", Access::kReadExisting), Failure::kNotFound, {ENOENT, 3}));
}

TEST(OsOpen, AFolderIsNotAFile) {
  const scratch_folder scratch;
  make_folder(scratch.path("folder"));
  for (const Access access : {Access::kReadExisting, Access::kReadWriteCreate}) {
    EXPECT_TRUE(
        fails(open_and_close(scratch.path("folder"), access), Failure::kOther, {EISDIR, 5}));
  }
}

#if defined(_WIN32)
/// The system takes such a name for the device in every folder. OsLinuxHandles has the counterpart.
TEST(OsOpen, ADeviceIsNotAFile) {
  const scratch_folder scratch;
  for (const Access access :
       {Access::kReadExisting, Access::kReadWriteExisting, Access::kReadWriteCreate})
    EXPECT_TRUE(fails(open_and_close(scratch.path("NUL"), access), Failure::kOther, {0, 5}));
}
#endif

TEST(OsOpen, AReadOnlyFileOpensForReadingAlone) {
  const scratch_folder scratch;
  const std::string path = scratch.path("file");
  write_file(path, "text");
  make_read_only(path);
  EXPECT_TRUE(succeeds(open_and_close(path, Access::kReadExisting)));
  NEEDS_A_REAL_KERNEL("a read-only file is refused for writing, whoever asks");
  EXPECT_TRUE(fails(open_and_close(path, Access::kReadWriteCreate), Failure::kOther, {EACCES, 5}));
}

TEST(OsOpen, BothSeparatorsAndThePrefixLeadToTheFile) {
  const scratch_folder scratch;
  make_folder(scratch.path("a"));
  const std::string path = scratch.path("a\\file");
  write_file(path, "");
  std::string slashes = path;
  for (char& character : slashes) character = character == '\\' ? '/' : character;
  std::string backslashes = path;
  for (char& character : backslashes) character = character == '/' ? '\\' : character;
  const std::string prefixed = R"(\\?\)" + backslashes;
  for (const std::string& spelling :
       {slashes, backslashes, scratch.path("a/file"), scratch.path("a\\\\file"), prefixed}) {
    EXPECT_TRUE(succeeds(open_and_close(spelling, Access::kReadExisting))) << spelling;
    os::Handle handle = os::kNoHandle;
    EXPECT_TRUE(succeeds(os::open(wide(spelling), Access::kReadExisting, handle))) << spelling;
    EXPECT_TRUE(succeeds(os::close(handle)));
  }
}

TEST(OsOpen, AWidePathNamesAnyCharacter) {
  const scratch_folder scratch;
  const std::string path = scratch.path("\xC3\x9C\xE2\x82\xAC\xF0\x9F\x98\x80");
  os::Handle handle = os::kNoHandle;
  ASSERT_TRUE(succeeds(os::open(wide(path), Access::kReadWriteCreate, handle)));
  EXPECT_TRUE(succeeds(os::close(handle)));
  EXPECT_TRUE(file_exists(path));
}

TEST(OsOpen, FindsNothingUnderANameWithANul) {
  const scratch_folder scratch;
  write_file(scratch.path("file"), "bytes");
  const std::string path = scratch.path("file") + std::string("\0tail", 5);
  EXPECT_FALSE(succeeds(open_and_close(path, Access::kReadWriteCreate)));
  EXPECT_EQ(os::probe_search(path).failure(), os::Failure::kNotFound);
  EXPECT_FALSE(os::remove_file(path).ok());
  EXPECT_FALSE(os::create_directory(path).ok());
  EXPECT_FALSE(os::rename(path, scratch.path("other")).ok());
  EXPECT_FALSE(os::rename(scratch.path("file"), path).ok());
  const ucs2string wide{vu_utf8string(path)};
  EXPECT_EQ(os::probe_search(wide).failure(), os::Failure::kNotFound);
  os::FileStat found;
  EXPECT_EQ(os::stat(path, found).failure(), os::Failure::kNotFound);
  os::Listing entries;
  EXPECT_FALSE(os::list(path + "\\", entries).ok()) << "not the current folder";
  EXPECT_FALSE(os::list(wide, entries).ok());
  EXPECT_TRUE(entries.empty());
  EXPECT_EQ(list_folder(scratch.path()), std::vector<std::string>{"file"});
  EXPECT_EQ(read_file(scratch.path("file")), "bytes");
}

TEST(OsOpen, AnOpenFileIsSharedWithReadersWritersAndRemovers) {
  const scratch_folder scratch;
  const std::string path = scratch.path("file");
  OpenFile writer(path, Access::kReadWriteCreate);
  OpenFile second_writer(path, Access::kReadWriteCreate);
  OpenFile reader(path, Access::kReadExisting);
  writer.write("text");
  EXPECT_EQ(reader.read(10), "text");
  EXPECT_TRUE(succeeds(os::rename(path, scratch.path("renamed"))));
  EXPECT_TRUE(succeeds(os::remove_file(scratch.path("renamed"))));
  // Some systems keep the name of a removed file until its last handle is closed.
  writer.close();
  second_writer.close();
  reader.close();
  EXPECT_EQ(list_folder(scratch.path()), std::vector<std::string>{});
}

TEST(OsRead, StopsAtTheEndOfTheFile) {
  const scratch_folder scratch;
  write_file(scratch.path("file"), "0123456789");
  OpenFile file(scratch.path("file"), Access::kReadExisting);
  EXPECT_EQ(file.read(4), "0123");
  EXPECT_EQ(file.read(100), "456789");
  EXPECT_EQ(file.read(100), "");
  EXPECT_EQ(file.read(0), "");
}

TEST(OsRead, SaysNothingWasReadWhenItFails) {
  const scratch_folder scratch;
  OpenFile file(scratch.path("file"), Access::kReadWriteCreate);
  const os::Handle handle = file.get();
  file.close();
  char byte = 'x';
  std::size_t done = 77;
  EXPECT_TRUE(fails(os::read(handle, &byte, 1, done), Failure::kOther, {EBADF, 6}));
  EXPECT_EQ(done, 0U);
  EXPECT_EQ(byte, 'x');
}

TEST(OsWrite, GoesOnAtThePositionThatReadingUsesToo) {
  const scratch_folder scratch;
  write_file(scratch.path("file"), "0123456789");
  OpenFile file(scratch.path("file"), Access::kReadWriteCreate);
  EXPECT_EQ(file.read(2), "01");
  file.write("ab");
  EXPECT_EQ(file.read(2), "45");
  EXPECT_EQ(read_file(scratch.path("file")), "01ab456789");
}

TEST(OsWrite, FailsThroughAHandleForReading) {
  const scratch_folder scratch;
  write_file(scratch.path("file"), "text");
  OpenFile file(scratch.path("file"), Access::kReadExisting);
  EXPECT_TRUE(fails(file.try_write(), Failure::kOther, {EBADF, 5}));
  EXPECT_EQ(read_file(scratch.path("file")), "text");
}

TEST(OsWrite, MovesMegabytesInOneCall) {
  const scratch_folder scratch;
  std::string bytes(5'000'000, '\0');
  for (std::size_t i = 0; i < bytes.size(); ++i) bytes[i] = static_cast<char>(i % 251);
  OpenFile file(scratch.path("file"), Access::kReadWriteCreate);
  file.write(bytes);
  EXPECT_TRUE(succeeds(os::seek(file.get(), 0, 0)));
  EXPECT_TRUE(file.read(bytes.size() + 1) == bytes);
}

TEST(OsFlush, SucceedsOnAFileThatIsWritten) {
  const scratch_folder scratch;
  OpenFile file(scratch.path("file"), Access::kReadWriteCreate);
  file.write("text");
  EXPECT_TRUE(succeeds(os::flush(file.get())));
}

TEST(OsFlush, IsRefusedForAReaderOnWindowsAlone) {
  const scratch_folder scratch;
  write_file(scratch.path("file"), "text");
  OpenFile file(scratch.path("file"), Access::kReadExisting);
  const os::Status status = os::flush(file.get());
  if (kOnWindows) {
    EXPECT_TRUE(fails(status, Failure::kOther, {0, 5}));
  } else {
    // Another handle may have written the file, so the flush is allowed.
    EXPECT_TRUE(succeeds(status));
  }
}

TEST(OsSeek, MovesFromTheStartThePositionAndTheEnd) {
  const scratch_folder scratch;
  write_file(scratch.path("file"), "0123456789");
  OpenFile file(scratch.path("file"), Access::kReadExisting);
  EXPECT_TRUE(succeeds(os::seek(file.get(), 3, 0)));
  EXPECT_EQ(file.read(1), "3");
  EXPECT_TRUE(succeeds(os::seek(file.get(), -2, 1)));
  EXPECT_EQ(file.read(1), "2");
  EXPECT_TRUE(succeeds(os::seek(file.get(), -1, 2)));
  EXPECT_EQ(file.read(5), "9");
}

TEST(OsSeek, KeepsThePositionWhenTheNewOneLiesBeforeTheStart) {
  const scratch_folder scratch;
  write_file(scratch.path("file"), "0123456789");
  OpenFile file(scratch.path("file"), Access::kReadExisting);
  EXPECT_EQ(file.read(5), "01234");
  EXPECT_TRUE(fails(os::seek(file.get(), -1, 0), Failure::kOther, {EINVAL, 131}));
  EXPECT_TRUE(fails(os::seek(file.get(), -6, 1), Failure::kOther, {EINVAL, 131}));
  EXPECT_TRUE(fails(os::seek(file.get(), -11, 2), Failure::kOther, {EINVAL, 131}));
  EXPECT_EQ(file.read(1), "5");
}

TEST(OsSeek, RefusesAnUnknownMethod) {
  const scratch_folder scratch;
  OpenFile file(scratch.path("file"), Access::kReadWriteCreate);
  file.write("text");
  // On Linux 3 and 4 mean the next data and the next hole.
  for (const std::int16_t method : {std::int16_t{-1}, std::int16_t{3}, std::int16_t{4}}) {
    EXPECT_FALSE(os::seek(file.get(), 0, method).ok()) << method;
  }
  EXPECT_EQ(file.read(1), "");
}

TEST(OsSeek, WritingBeyondTheEndLeavesZeroBytesBetween) {
  const scratch_folder scratch;
  OpenFile file(scratch.path("file"), Access::kReadWriteCreate);
  file.write("ab");
  EXPECT_TRUE(succeeds(os::seek(file.get(), 2, 2)));
  EXPECT_EQ(read_file(scratch.path("file")).size(), 2U);
  file.write("c");
  EXPECT_EQ(read_file(scratch.path("file")), std::string("ab\0\0c", 5));
}

TEST(OsSeek, ReachesTheEndOfAFileBeyondFourGigabytes) {
  const scratch_folder scratch;
  const std::string path = scratch.path("file");
  OpenFile file(path, Access::kReadWriteCreate);
  for (int i = 0; i < 3; ++i) EXPECT_TRUE(succeeds(os::seek(file.get(), 0x7FFFFFFF, 1)));
  EXPECT_TRUE(succeeds(os::set_end(file.get())));
  EXPECT_TRUE(succeeds(os::seek(file.get(), 0, 0)));
  EXPECT_TRUE(succeeds(os::seek(file.get(), -1, 2)));
  file.write("xyz");
  os::FileStat data;
  EXPECT_TRUE(succeeds(os::stat(wide(path), data)));
  EXPECT_EQ(data.size, 3 * std::uint64_t{0x7FFFFFFF} + 2);
}

TEST(OsSetEnd, CutsAtThePosition) {
  const scratch_folder scratch;
  write_file(scratch.path("file"), "0123456789");
  OpenFile file(scratch.path("file"), Access::kReadWriteCreate);
  EXPECT_EQ(file.read(4), "0123");
  EXPECT_TRUE(succeeds(os::set_end(file.get())));
  EXPECT_EQ(read_file(scratch.path("file")), "0123");
  EXPECT_TRUE(succeeds(os::seek(file.get(), 6, 0)));
  EXPECT_TRUE(succeeds(os::set_end(file.get())));
  EXPECT_EQ(read_file(scratch.path("file")), std::string("0123\0\0", 6));
}

TEST(OsSetEnd, FailsThroughAHandleForReading) {
  const scratch_folder scratch;
  write_file(scratch.path("file"), "text");
  OpenFile file(scratch.path("file"), Access::kReadExisting);
  // Windows returns 5, Wine 87.
  EXPECT_TRUE(fails(os::set_end(file.get()), Failure::kOther));
  EXPECT_EQ(read_file(scratch.path("file")), "text");
}

TEST(OsSize, IsThatOfTheOpenFileWhateverItsName) {
  const scratch_folder scratch;
  write_file(scratch.path("file"), "0123456789");
  OpenFile file(scratch.path("file"), Access::kReadWriteCreate);
  EXPECT_TRUE(succeeds(os::rename(scratch.path("file"), scratch.path("old"))));
  write_file(scratch.path("file"), "new");
  std::uint64_t size = 0;
  EXPECT_TRUE(succeeds(os::size(file.get(), size)));
  EXPECT_EQ(size, 10U);
  EXPECT_TRUE(succeeds(os::seek(file.get(), 4, 0)));
  EXPECT_TRUE(succeeds(os::set_end(file.get())));
  EXPECT_TRUE(succeeds(os::size(file.get(), size)));
  EXPECT_EQ(size, 4U);
  const os::Handle handle = file.get();
  file.close();
  EXPECT_TRUE(fails(os::size(handle, size), Failure::kOther, {EBADF, 6}));
  EXPECT_EQ(size, 0U);
}

TEST(OsReserve, ChangesNeitherTheContentNorTheSizeNorThePosition) {
  const scratch_folder scratch;
  write_file(scratch.path("file"), "0123456789");
  OpenFile file(scratch.path("file"), Access::kReadWriteCreate);
  EXPECT_EQ(file.read(4), "0123");
  for (const std::uint64_t size : {std::uint64_t{0}, std::uint64_t{4}, std::uint64_t{100'000}}) {
    EXPECT_TRUE(succeeds(os::reserve(file.get(), size))) << size;
    EXPECT_EQ(read_file(scratch.path("file")), "0123456789") << size;
  }
  EXPECT_EQ(file.read(1), "4");
}

TEST(OsReserve, FailsOnAClosedHandle) {
  const scratch_folder scratch;
  OpenFile file(scratch.path("file"), Access::kReadWriteCreate);
  const os::Handle handle = file.get();
  file.close();
  EXPECT_TRUE(fails(os::reserve(handle, 10), Failure::kOther, {EBADF, 6}));
}

TEST(OsClose, FailsTheSecondTime) {
  const scratch_folder scratch;
  OpenFile file(scratch.path("file"), Access::kReadWriteCreate);
  const os::Handle handle = file.get();
  file.close();
  EXPECT_TRUE(fails(os::close(handle), Failure::kOther, {EBADF, 6}));
}

TEST(OsClose, ManyFilesAreOpenAtOnceUnderDifferentHandles) {
  const scratch_folder scratch;
  std::vector<std::unique_ptr<OpenFile>> files;
  for (int i = 0; i < 200; ++i) {
    const std::string name = std::to_string(i);
    files.push_back(std::make_unique<OpenFile>(scratch.path(name), Access::kReadWriteCreate));
    files.back()->write(name);
  }
  for (int i = 0; i < 200; ++i)
    EXPECT_EQ(read_file(scratch.path(std::to_string(i))), std::to_string(i));
}

TEST(OsLastError, AgreesWithTheStatusOfTheCallBefore) {
  const scratch_folder scratch;
  os::Handle handle = os::kNoHandle;
  const std::string missing = scratch.path("missing");
  const os::Status status = os::open(missing, Access::kReadExisting, handle);
  EXPECT_EQ(os::last_error(), status.code());
  const std::string folder = scratch.path();
  const os::Status on_folder = os::open(folder, Access::kReadExisting, handle);
  EXPECT_EQ(os::last_error(), on_folder.code());
  EXPECT_NE(status.code(), on_folder.code());
}

// Whole-file locks. On POSIX systems they belong to the open file description.

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
  // Windows returns 158, Wine 33.
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
  std::size_t done = 77;
  EXPECT_TRUE(fails(os::write_at(other.get(), 0, "x", 1, done), Failure::kLocked, kRefused));
  EXPECT_EQ(done, 0U);
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
