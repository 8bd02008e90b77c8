#if defined(__linux__)

#include <fcntl.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <optional>
#include <set>
#include <string>
#include <system_error>
#include <thread>
#include <utility>
#include <vector>

#include "platform/os/os.h"
#include "platform/os/posix_calls.h"
#include "platform/os/posix_handles.h"
#include "tests/support/scratch.h"
#include "tests/unit/os_linux_kit.h"
#include "tests/unit/test_kit.h"

// What the seam adds on Linux because only Windows does it by itself: handles, permissions, locks,
// interruptions.

namespace {

namespace fs = std::filesystem;
using os::Access;
using os::Failure;

std::string path_text(const std::string& path) { return native(path).string(); }

::mode_t mode_of(const std::string& path) {
  struct ::stat info = {};
  EXPECT_EQ(::lstat(path_text(path).c_str(), &info), 0) << path;
  return info.st_mode & 07777;
}

/// The descriptors of this process that are open on a file.
std::vector<int> descriptors_of(const std::string& path) {
  std::vector<int> numbers;
  for (const auto& entry : fs::directory_iterator("/proc/self/fd")) {
    std::error_code gone;
    const fs::path target = fs::read_symlink(entry.path(), gone);
    if (!gone && target == fs::canonical(native(path))) {
      numbers.push_back(std::stoi(entry.path().filename().string()));
    }
  }
  return numbers;
}

TEST(OsLinuxHandles, AStaleHandleNeverReachesTheNextFile) {
  const scratch_folder scratch;
  OpenFile first(scratch.path("first"), Access::kReadWriteCreate);
  const os::Handle stale = first.get();
  const std::vector<int> old_descriptors = descriptors_of(scratch.path("first"));
  first.close();
  OpenFile next(scratch.path("next"), Access::kReadWriteCreate);
  ASSERT_EQ(descriptors_of(scratch.path("next")), old_descriptors) << "the trap is not set";
  next.write("text");
  EXPECT_TRUE(succeeds(next.lock_exclusive()));

  char byte = 0;
  std::size_t done = 0;
  const auto refused = [](os::Status status) { return fails(status, Failure::kOther, {EBADF, 6}); };
  EXPECT_TRUE(refused(os::read(stale, &byte, 1, done)));
  EXPECT_TRUE(refused(os::write(stale, "x", 1, done)));
  EXPECT_TRUE(refused(os::write_at(stale, 0, "x", 1, done)));
  EXPECT_TRUE(refused(os::seek(stale, 0, 0)));
  EXPECT_TRUE(refused(os::set_end(stale)));
  EXPECT_TRUE(refused(os::reserve(stale, 10)));
  EXPECT_TRUE(refused(os::flush(stale)));
  EXPECT_TRUE(refused(os::lock(stale, {})));
  EXPECT_TRUE(refused(os::unlock(stale)));
  EXPECT_TRUE(refused(os::close(stale)));

  OpenFile third(scratch.path("next"), Access::kReadExisting);
  EXPECT_TRUE(fails(third.lock_shared(), Failure::kLocked)) << "the lock must be untouched";
  next.write(" more");
  EXPECT_EQ(read_file(scratch.path("next")), "text more");
}

TEST(OsLinuxHandles, AHandleIsNotADescriptorAndNumbersAreNotReusedSoon) {
  const scratch_folder scratch;
  const std::string path = scratch.path("file");
  std::set<os::Handle> seen;
  for (int i = 0; i < 20'000; ++i) {
    os::Handle handle = os::kNoHandle;
    ASSERT_TRUE(succeeds(os::open(path, Access::kReadWriteCreate, handle)));
    EXPECT_GT(handle, 1 << 20);
    EXPECT_TRUE(seen.insert(handle).second) << "after " << i;
    ASSERT_TRUE(succeeds(os::close(handle)));
  }
}

TEST(OsLinuxHandles, NumbersThatWereNeverGivenOutFail) {
  for (const os::Handle handle : {-1, 0, 1, 2, 3, 1 << 20, 0x7FFFFFFF, -0x7FFFFFFF - 1}) {
    EXPECT_TRUE(fails(os::close(handle), Failure::kOther, {EBADF, 6})) << handle;
  }
}

TEST(OsLinuxHandles, ThreadsOpenAndCloseAtOnce) {
  const scratch_folder scratch;
  const auto work = [&](const std::string& name) {
    for (int i = 0; i < 2'000; ++i) {
      OpenFile file(scratch.path(name), Access::kReadWriteCreate);
      file.write(name);
      EXPECT_TRUE(succeeds(os::seek(file.get(), 0, 0)));
      EXPECT_EQ(file.read(10), name);
    }
  };
  std::thread one(work, "one");
  std::thread other(work, "two");
  one.join();
  other.join();
}

TEST(OsLinuxHandles, DescriptorsAreClosedOnExec) {
  const scratch_folder scratch;
  OpenFile file(scratch.path("file"), Access::kReadWriteCreate);
  OpenFile reader(scratch.path("file"), Access::kReadExisting);
  const std::vector<int> descriptors = descriptors_of(scratch.path("file"));
  EXPECT_EQ(descriptors.size(), 2U);
  for (const int descriptor : descriptors) {
    EXPECT_NE(::fcntl(descriptor, F_GETFD) & FD_CLOEXEC, 0);
  }
}

TEST(OsLinuxHandles, DescriptorsOfClosedStandardStreamsAreNotUsed) {
  const scratch_folder scratch;
  write_file(scratch.path("from"), "text");
  EXPECT_SILENT_CHILD(in_child_without({}, [&] {
    for (const int stream : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) ::close(stream);
    std::string all;
    const auto expect_closed = [&all](const char* when) {
      for (const int stream : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
        if (::fcntl(stream, F_GETFD) != -1) all += std::string(when) + " uses a stream. ";
      }
    };
    {
      OpenFile file(scratch.path("file"), Access::kReadWriteCreate);
      os::Handle folder = os::kNoHandle;
      all += complaint("open_folder", os::open_folder(scratch.path(), folder));
      expect_closed("open");
      file.write("whole");
      all += complaint("close", os::close(folder));
    }
    // Before the removal of the lock of its target, a copy has all its files open.
    const BeforeLockRequest end(F_UNLCK, [&] { expect_closed("copy"); });
    all += complaint("copy",
                     os::copy(scratch.path("from"), scratch.path("to"), os::IfExists::kReplace));
    expect_closed("the end");
    return all;
  }));
  EXPECT_EQ(read_file(scratch.path("file")), "whole");
  EXPECT_EQ(read_file(scratch.path("to")), "text");
}

/// Everything but a plain file or a folder that can have a name.
TEST(OsLinuxHandles, AnOpenRefusesAPipeSocketOrDeviceAndWaitsForNone) {
  const scratch_folder scratch;
  ASSERT_EQ(::mkfifo(path_text(scratch.path("pipe")).c_str(), 0666), 0);
  ASSERT_EQ(::mknod(path_text(scratch.path("socket")).c_str(), S_IFSOCK | 0666, 0), 0);
  const std::pair<std::string, int> rows[] = {
      {scratch.path("pipe"), EINVAL}, {scratch.path("socket"), ENXIO}, {"/dev/full", EINVAL}};
  EXPECT_SILENT_CHILD(in_child_without({}, [&] {
    ::alarm(10);  // ends a child that waits
    std::string all;
    for (const auto& [path, code] : rows) {
      for (const Access access :
           {Access::kReadExisting, Access::kReadWriteExisting, Access::kReadWriteCreate}) {
        os::Handle handle = 12345;
        all += complaint("open", os::open(path, access, handle), Failure::kOther, code);
        if (handle != os::kNoHandle) all += " a handle of " + path;
      }
      // A device has no buffers to flush, and neither has a pipe.
      if (os::flush_file(path).ok()) all += " flushes " + path;
    }
    return all;
  }));
  EXPECT_TRUE(descriptors_of(scratch.path("pipe")).empty());
}

/// Standard input is closed, and no descriptor above the standard streams is free.
TEST(OsLinuxHandles, ACallWithoutADescriptorLeavesNoNewFile) {
  const scratch_folder scratch;
  const std::string from = scratch.path("from");
  write_file(from, "text");
  write_file(scratch.path("old"), "old");
  EXPECT_SILENT_CHILD(in_child_without({}, [&] {
    const ::rlimit few = {64, 64};
    if (::setrlimit(RLIMIT_NOFILE, &few) != 0) return std::string("setrlimit() failed");
    int last = -1;
    for (int next = ::dup(STDERR_FILENO); next != -1; next = ::dup(STDERR_FILENO)) last = next;
    ::close(STDIN_FILENO);
    std::string all;
    os::Handle handle = os::kNoHandle;
    all += complaint("open", os::open(scratch.path("new"), Access::kCreateNew, handle),
                     Failure::kOther, EMFILE);
    ::close(last);  // for the source of a copy
    for (const auto& [name, if_exists] :
         {std::pair("new", os::IfExists::kFail), std::pair("new", os::IfExists::kReplace),
          std::pair("old", os::IfExists::kReplace)})
      all +=
          complaint("copy", os::copy(from, scratch.path(name), if_exists), Failure::kOther, EMFILE);
    return all;
  }));
  EXPECT_FALSE(file_exists(scratch.path("new")));
  EXPECT_EQ(read_file(scratch.path("old")), "old");
}

TEST(OsLinuxHandles, AReadWaitsWhereTheFileSystemHonoursTheFlagOfTheOpen) {
  int ends[2] = {};
  ASSERT_EQ(::pipe2(ends, O_NONBLOCK | O_CLOEXEC), 0);
  std::thread writer([&] {
    // The reader has been refused once, and waits now.
    while ((::fcntl(ends[0], F_GETFL) & O_NONBLOCK) != 0) std::this_thread::yield();
    EXPECT_EQ(::write(ends[1], "text", 4), 4);
  });
  char text[4] = {};
  std::size_t done = 0;
  EXPECT_TRUE(os::posix::read_fully(ends[0], text, sizeof text, done).ok());
  writer.join();
  EXPECT_EQ(std::string(text, done), "text");
  for (const int end : ends) ::close(end);
}

TEST(OsLinuxHandles, AFailedOpenLeavesNoDescriptorBehind) {
  const scratch_folder scratch;
  write_file(scratch.path("file"), "");
  make_read_only(scratch.path("file"));
  os::Handle handle = os::kNoHandle;
  EXPECT_FALSE(os::open(scratch.path("file"), Access::kReadWriteCreate, handle).ok());
  EXPECT_FALSE(os::open(scratch.path(), Access::kReadExisting, handle).ok());
  EXPECT_TRUE(descriptors_of(scratch.path("file")).empty());
  EXPECT_TRUE(descriptors_of(scratch.path()).empty());
}

TEST(OsLinuxHandles, CleaningUpDoesNotHideTheLastError) {
  const scratch_folder scratch;
  const std::string words = in_child_without({{SYS_close, EIO}}, [&] {
    os::Handle handle = os::kNoHandle;
    const std::string all = complaint(
        "open", os::open(scratch.path(), Access::kReadExisting, handle), Failure::kOther, EISDIR);
    const std::int32_t last = os::last_error();
    return last == EISDIR ? all : all + " last error is " + std::to_string(last);
  });
  EXPECT_SILENT_CHILD(words);
}

constexpr std::uint32_t kSlotOfHandle = (1U << 18) - 1;

TEST(OsLinuxHandleTable, AFreedSlotRestsWhileAThousandOthersAreUsed) {
  os::posix::HandleTable table;
  std::vector<std::uint32_t> slots;
  for (int i = 0; i < 5'000; ++i) {
    const std::optional<os::Handle> handle = table.add(5);
    ASSERT_TRUE(handle);
    slots.push_back(static_cast<std::uint32_t>(*handle) & kSlotOfHandle);
    ASSERT_TRUE(table.remove(*handle));
  }
  for (std::size_t i = 0; i + 1'000 <= slots.size(); i += 100) {
    const auto from = slots.begin() + static_cast<std::ptrdiff_t>(i);
    EXPECT_EQ(std::set<std::uint32_t>(from, from + 1'000).size(), 1'000U) << i;
  }
}

TEST(OsLinuxHandleTable, AFullTableTakesNoMoreUntilSomethingIsClosed) {
  os::posix::HandleTable table;
  std::vector<os::Handle> handles;
  while (const std::optional<os::Handle> handle = table.add(5)) handles.push_back(*handle);
  EXPECT_EQ(handles.size(), std::size_t{kSlotOfHandle} + 1);
  EXPECT_TRUE(
      std::all_of(handles.begin(), handles.end(), [](os::Handle each) { return each > 0; }));
  EXPECT_TRUE(table.remove(handles.front()));
  EXPECT_FALSE(table.remove(handles.front()));
  const std::optional<os::Handle> next = table.add(6);
  ASSERT_TRUE(next);
  EXPECT_NE(*next, handles.front());
  EXPECT_EQ(table.find(*next)->descriptor, 6);
  EXPECT_FALSE(table.find(handles.front()));
}

TEST(OsLinuxHandleTable, NumbersStayValidWhenTheGenerationsBeginAgain) {
  os::posix::HandleTable table;
  std::vector<os::Handle> held;
  // All slots except one stay in use, so that this one uses up its generations quickly.
  while (held.size() < kSlotOfHandle) held.push_back(*table.add(5));
  os::Handle last = os::kNoHandle;
  for (int i = 0; i < 10'000; ++i) {
    const os::Handle handle = *table.add(6);
    EXPECT_GT(handle, 1 << 20) << i;
    EXPECT_NE(handle, last) << i;
    EXPECT_FALSE(table.find(last)) << i;
    EXPECT_TRUE(table.remove(handle)) << i;
    last = handle;
  }
}

TEST(OsLinuxModes, FilesAndFoldersAreMadeForEverybodyLessTheMask) {
  const scratch_folder scratch;
  const ::mode_t old_mask = ::umask(027);
  { OpenFile file(scratch.path("file"), Access::kReadWriteCreate); }
  EXPECT_TRUE(succeeds(os::create_directory(scratch.path("folder"))));
  ::umask(old_mask);
  EXPECT_EQ(mode_of(scratch.path("file")), ::mode_t{0640});
  EXPECT_EQ(mode_of(scratch.path("folder")), ::mode_t{0750});
}

TEST(OsLinuxModes, AFileThatTheMaskMakesReadOnlyIsNotMade) {
  const scratch_folder scratch;
  const ::mode_t old_mask = ::umask(0222);
  os::Handle handle = os::kNoHandle;
  EXPECT_TRUE(fails(os::open(scratch.path("file"), Access::kCreateNew, handle), Failure::kOther,
                    {EACCES, 5}));
  EXPECT_FALSE(file_exists(scratch.path("file")));
  ::umask(old_mask);
}

TEST(OsLinuxModes, TheOwnersWriteBitAloneIsTheReadOnlyState) {
  const scratch_folder scratch;
  const std::string path = scratch.path("file");
  write_file(path, "text");
  ASSERT_EQ(::chmod(path_text(path).c_str(), 0466), 0);
  os::Handle handle = os::kNoHandle;
  EXPECT_TRUE(
      fails(os::open(path, Access::kReadWriteCreate, handle), Failure::kOther, {EACCES, 5}));
  EXPECT_TRUE(fails(os::remove_file(path), Failure::kOther, {EACCES, 5}));
  EXPECT_TRUE(succeeds(os::make_writable(path)));
  EXPECT_EQ(mode_of(path), ::mode_t{0666});
}

TEST(OsLinuxModes, MakingWritableAddsTheOwnersBitsAndNoOthers) {
  const scratch_folder scratch;
  const std::string path = scratch.path("file");
  write_file(path, "text");
  ASSERT_EQ(::chmod(path_text(path).c_str(), 0054), 0);
  EXPECT_TRUE(succeeds(os::make_writable(path)));
  EXPECT_EQ(mode_of(path), ::mode_t{0654});
}

/// Example: a network file system that keeps the permissions of its mount.
TEST(OsLinuxModes, MakingWritableFailsWhereTheSystemSaysYesAndChangesNothing) {
  const scratch_folder scratch;
  const std::string path = scratch.path("file");
  write_file(path, "text");
  ASSERT_EQ(::chmod(path_text(path).c_str(), 0444), 0);
  EXPECT_SILENT_CHILD(in_child_without({{SYS_chmod, 0}, {SYS_fchmodat, 0}}, [&] {
    const os::Status status = os::make_writable(path);
    if (status.ok()) return std::string("it says that the file can be written");
    return status.code() == EACCES ? std::string() : "code " + std::to_string(status.code());
  }));
  EXPECT_EQ(mode_of(path), ::mode_t{0444});
}

TEST(OsLinuxLocks, AFileSystemWithoutLocksLetsUnlockedHandlesReadAndWrite) {
  const scratch_folder scratch;
  write_file(scratch.path("file"), "text");
  const std::string words =
      in_child_without({{SYS_fcntl, ENOLCK, F_OFD_SETLK}, {SYS_fcntl, ENOLCK, F_OFD_SETLKW}}, [&] {
        OpenFile file(scratch.path("file"), Access::kReadWriteCreate);
        std::string all = complaint("lock", file.lock_exclusive(), Failure::kOther, ENOLCK);
        all += complaint("unlock", os::unlock(file.get()), Failure::kOther, EINVAL);
        all += complaint("read", file.try_read());
        all += complaint("write", file.try_write());
        return all;
      });
  EXPECT_SILENT_CHILD(words);
  EXPECT_EQ(read_file(scratch.path("file")), "txxt");
}

TEST(OsLinuxLocks, AHandleWithALockRequestsNoOther) {
  const scratch_folder scratch;
  write_file(scratch.path("file"), "text");
  OpenFile file(scratch.path("file"), Access::kReadWriteCreate);
  EXPECT_TRUE(succeeds(file.lock_exclusive()));
  // A lock request would be refused.
  const std::string words = in_child_without({{SYS_fcntl, EAGAIN, F_OFD_SETLK}}, [&] {
    return complaint("read", file.try_read()) + complaint("write", file.try_write());
  });
  EXPECT_SILENT_CHILD(words);
}

TEST(OsLinuxLocks, AWaitingRequestGoesOnAfterASignal) {
  const scratch_folder scratch;
  const std::string path = scratch.path("file");
  OpenFile holder(path, Access::kReadWriteCreate);
  OpenFile waiter(path, Access::kReadWriteCreate);
  EXPECT_TRUE(succeeds(holder.lock_exclusive()));
  struct ::sigaction quiet = {};
  struct ::sigaction before = {};
  quiet.sa_handler = [](int) {};
  ASSERT_EQ(::sigaction(SIGUSR1, &quiet, &before), 0);
  std::atomic<bool> granted = false;
  std::thread thread([&] {
    EXPECT_TRUE(succeeds(waiter.lock(os::kLockExclusive)));
    granted = true;
  });
  for (int i = 0; i < 20; ++i) {
    ::pthread_kill(thread.native_handle(), SIGUSR1);
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
  EXPECT_FALSE(granted);
  holder.close();
  thread.join();
  EXPECT_TRUE(granted);
  ::sigaction(SIGUSR1, &before, nullptr);
}

// A pipe returns the available bytes; only the end of a file is the end. The seam opens no pipe, so
// this is the transfer below it.
TEST(OsLinuxTransfers, ReadingGoesOnAfterShortTransfersAndSignals) {
  struct ::sigaction quiet = {};
  struct ::sigaction before = {};
  quiet.sa_handler = [](int) {};
  ASSERT_EQ(::sigaction(SIGUSR1, &quiet, &before), 0);
  int ends[2] = {-1, -1};
  ASSERT_EQ(::pipe2(ends, O_CLOEXEC), 0);
  const ::pthread_t reader = ::pthread_self();
  std::thread writer([&] {
    for (const std::string piece : {"one ", "two ", "three"}) {
      std::this_thread::sleep_for(std::chrono::milliseconds(10));
      ::pthread_kill(reader, SIGUSR1);
      std::this_thread::sleep_for(std::chrono::milliseconds(10));
      EXPECT_EQ(::write(ends[1], piece.data(), piece.size()), static_cast<::ssize_t>(piece.size()));
    }
  });
  std::string text(13, '\0');
  std::size_t done = 0;
  EXPECT_TRUE(succeeds(os::posix::read_fully(ends[0], text.data(), text.size(), done)));
  EXPECT_EQ(text.substr(0, done), "one two three");
  writer.join();
  for (const int end : ends) ::close(end);
  ::sigaction(SIGUSR1, &before, nullptr);
}

TEST(OsLinuxTransfers, AFullDiskIsAnError) {
  const scratch_folder scratch;
  OpenFile file(scratch.path("file"), Access::kReadWriteCreate);
  EXPECT_SILENT_CHILD(in_child_without({{SYS_write, ENOSPC}}, [&] {
    std::size_t done = 77;
    const os::Status status = os::write(file.get(), "text", 4, done);
    return complaint("write", status, Failure::kOther, ENOSPC) + (done == 0 ? "" : " some bytes");
  }));
}

TEST(OsLinuxTransfers, CloseIsNotRepeated) {
  const scratch_folder scratch;
  OpenFile file(scratch.path("file"), Access::kReadWriteCreate);
  const std::string words = in_child_without({{SYS_close, EINTR}}, [&] {
    const std::string first = complaint("close", os::close(file.get()), Failure::kOther, EINTR);
    return first + complaint("second close", os::close(file.get()), Failure::kOther, EBADF);
  });
  EXPECT_SILENT_CHILD(words);
}

TEST(OsLinuxTransfers, OnlyLackOfSpaceMakesAReservationFail) {
  const scratch_folder scratch;
  OpenFile file(scratch.path("file"), Access::kReadWriteCreate);
  for (const int code : {ENOSPC, EDQUOT, EFBIG}) {
    EXPECT_SILENT_CHILD(in_child_without({{SYS_fallocate, code}}, [&] {
      return complaint("reserve", os::reserve(file.get(), 10), Failure::kOther, code);
    }));
  }
  for (const int code : {EOPNOTSUPP, ENOSYS, EINVAL}) {
    EXPECT_SILENT_CHILD(in_child_without({{SYS_fallocate, code}}, [&] {
      return complaint("reserve", os::reserve(file.get(), 10));
    }));
  }
}

TEST(OsLinuxTransfers, FlushReportsTheDevicesError) {
  const scratch_folder scratch;
  OpenFile file(scratch.path("file"), Access::kReadWriteCreate);
  const std::string words = in_child_without({{SYS_fsync, EIO}}, [&] {
    return complaint("flush", os::flush(file.get()), Failure::kOther, EIO);
  });
  EXPECT_SILENT_CHILD(words);
}

/// The lease of another program, for example of a file server. An open without waiting fails; the
/// other program is asked for the file, and releases it some time later.
class Lease {
 public:
  explicit Lease(const std::string& path)
      : m_before(::signal(SIGIO, SIG_IGN)),
        m_file(::open(path_text(path).c_str(), O_RDWR | O_CLOEXEC)),
        m_is_taken(::fcntl(m_file, F_SETLEASE, F_WRLCK) == 0),
        m_holder([this] {
          std::this_thread::sleep_for(std::chrono::milliseconds(100));
          ::fcntl(m_file, F_SETLEASE, F_UNLCK);
        }) {}
  ~Lease() {
    m_holder.join();
    ::close(m_file);
    ::signal(SIGIO, m_before);
  }
  Lease(const Lease&) = delete;
  Lease& operator=(const Lease&) = delete;

  bool is_taken() const { return m_is_taken; }

 private:
  void (*const m_before)(int);
  const int m_file;
  const bool m_is_taken;
  std::thread m_holder;
};

TEST(OsLinuxLeases, ACopyWaitsForThemAsAnOpenDoes) {
  const scratch_folder scratch;
  write_file(scratch.path("from"), "new");
  write_file(scratch.path("to"), "the old content");
  for (const std::string name : {"from", "to"}) {
    const Lease lease(scratch.path(name));
    if (!lease.is_taken()) GTEST_SKIP() << "this file system has no leases";
    EXPECT_TRUE(
        succeeds(os::copy(scratch.path("from"), scratch.path("to"), os::IfExists::kReplace)))
        << name;
  }
  EXPECT_EQ(read_file(scratch.path("to")), "new");
  const Lease lease(scratch.path("from"));
  OpenFile file(scratch.path("from"), Access::kReadExisting);
  EXPECT_EQ(file.read(3), "new");
}

TEST(OsLinuxLeases, AnOpenGoesOnWaitingAfterASignal) {
  const scratch_folder scratch;
  write_file(scratch.path("file"), "content");
  struct ::sigaction quiet = {};
  struct ::sigaction before = {};
  quiet.sa_handler = [](int) {};
  ASSERT_EQ(::sigaction(SIGUSR1, &quiet, &before), 0);
  const Lease lease(scratch.path("file"));
  const ::pthread_t opener = ::pthread_self();
  std::thread signals([&] {
    for (int i = 0; i < 10; ++i) {
      std::this_thread::sleep_for(std::chrono::milliseconds(5));
      ::pthread_kill(opener, SIGUSR1);
    }
  });
  {
    OpenFile file(scratch.path("file"), Access::kReadExisting);
    EXPECT_EQ(file.read(7), "content");
  }
  signals.join();
  ::sigaction(SIGUSR1, &before, nullptr);
  if (!lease.is_taken()) GTEST_SKIP() << "this file system has no leases";
}

}  // namespace

#endif
