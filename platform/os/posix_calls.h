#pragma once

#include <fcntl.h>
#include <linux/magic.h>
#include <sys/stat.h>
#include <sys/statfs.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <utility>

#include "platform/os/os.h"
#include "platform/os/posix_path.h"

/// @file
/// System calls for the POSIX sides of the seam. They return the seam's results, continue after an
/// interruption, and release what they opened.
namespace os::posix {

using FileInfo = struct ::stat;

/// Linux moves at most 0x7ffff000 bytes per call; other systems refuse counts above 2^31 - 1.
inline constexpr std::size_t kLargestPiece = std::size_t{1} << 30;

// ---- owners ------------------------------------------------------------------------------------

/// Preserves errno during a clean-up, so that it still describes the call that failed.
class ErrnoKeeper {
 public:
  ErrnoKeeper() = default;
  ~ErrnoKeeper() { errno = m_value; }
  ErrnoKeeper(const ErrnoKeeper&) = delete;
  ErrnoKeeper& operator=(const ErrnoKeeper&) = delete;

 private:
  int m_value = errno;
};

/// A descriptor that is closed at the end of its scope; -1 means none.
///
/// It is never one of a standard stream. Example: a program is started without standard error
/// ("2>&-"). The next open() returns 2, and each message of the program would go into a document.
class Descriptor {
 public:
  /// Takes over a new descriptor, or -1. If it cannot leave the numbers of the standard streams, it
  /// is closed, valid() is false and errno is set, as after a failed open().
  explicit Descriptor(int number = -1) : m_number(number) {
    if (number < 0 || number > STDERR_FILENO) return;
    m_number = ::fcntl(number, F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
    const ErrnoKeeper keeper;
    ::close(number);
  }
  Descriptor(Descriptor&& other) noexcept : m_number(other.release()) {}
  Descriptor& operator=(Descriptor&& other) noexcept {
    if (this != &other) {
      close_quietly();
      m_number = other.release();
    }
    return *this;
  }
  ~Descriptor() { close_quietly(); }

  bool valid() const { return m_number >= 0; }
  int get() const { return m_number; }
  int release() { return std::exchange(m_number, -1); }

 private:
  void close_quietly() {
    const ErrnoKeeper keeper;
    if (m_number >= 0) ::close(release());
  }

  int m_number;
};

// ---- results -----------------------------------------------------------------------------------

/// Sets errno as well, so that last_error() agrees with the status also for failures found here.
inline Status fail(int code, Failure failure) {
  errno = code;
  return {code, failure};
}

inline Status fail(int code) {
  switch (code) {
    case ENOENT:
    case ENOTDIR:  // a plain file instead of a folder: nothing of that name can exist
      return fail(code, Failure::kNotFound);
    case EEXIST: return fail(code, Failure::kAlreadyExists);
    case ENAMETOOLONG:
    case ELOOP: return fail(code, Failure::kNoName);
    default: return fail(code, Failure::kOther);
  }
}

/// The failure of a query about a name. Some file systems return EINVAL or EILSEQ for a name that
/// they cannot store.
inline Status no_answer(int code) {
  return code == EINVAL || code == EILSEQ ? fail(code, Failure::kNoName) : fail(code);
}

inline Status result_of(int returned) { return returned == 0 ? Status() : fail(errno); }

/// Repeats a call while a signal interrupts it.
template <class SystemCall>
auto uninterrupted(SystemCall call) {
  auto returned = call();
  while (returned == -1 && errno == EINTR) returned = call();
  return returned;
}

// ---- paths and their entries -------------------------------------------------------------------

inline NativePath native(Path path) {
  return path.is_wide() ? NativePath(to_bytes(path.wide())) : NativePath(path.narrow());
}

/// Describes what a path leads to. @param base the open folder of a relative path.
inline std::optional<FileInfo> info_of(const char* path, int base = AT_FDCWD, int flags = 0) {
  FileInfo info{};
  if (::fstatat(base, path, &info, flags) != 0) return std::nullopt;
  return info;
}

/// Describes a link itself, not its target.
inline std::optional<FileInfo> entry_info(const char* path, int base = AT_FDCWD) {
  return info_of(path, base, AT_SYMLINK_NOFOLLOW);
}

inline bool is_folder(const FileInfo& info) { return S_ISDIR(info.st_mode); }
inline bool is_link(const FileInfo& info) { return S_ISLNK(info.st_mode); }

/// The counterpart of the read-only attribute. It applies to every user, even the superuser.
inline bool is_read_only(const FileInfo& info) {
  return !is_link(info) && !(info.st_mode & S_IWUSR);
}

inline bool is_same_file(const FileInfo& one, const FileInfo& other) {
  return one.st_dev == other.st_dev && one.st_ino == other.st_ino;
}

// ---- locks -------------------------------------------------------------------------------------

/// A lock of the open file description: unlike a classic one it conflicts within a process and ends
/// only with its own handle.
inline int set_whole_file_lock(int descriptor, int command, int type) {
  struct ::flock request {};
  request.l_type = static_cast<short>(type);
  request.l_whence = SEEK_SET;  // start 0, length 0: the whole file at any size
  return uninterrupted([&] { return ::fcntl(descriptor, command, &request); });
}

inline bool is_refusal(int code) { return code == EAGAIN || code == EACCES; }

/// Emulates mandatory locks during a transfer: a handle without a lock must not reach what another
/// handle has locked. If the file system has no such locks, nothing is checked.
class TransferGuard {
 public:
  TransferGuard(int descriptor, int type) : m_descriptor(descriptor) {
    m_locked = set_whole_file_lock(descriptor, F_OFD_SETLK, type) == 0;
    if (!m_locked && is_refusal(errno)) m_refusal = errno;
  }
  ~TransferGuard() {
    const ErrnoKeeper keeper;
    if (m_locked) set_whole_file_lock(m_descriptor, F_OFD_SETLK, F_UNLCK);
  }
  TransferGuard(const TransferGuard&) = delete;
  TransferGuard& operator=(const TransferGuard&) = delete;

  bool refused() const { return m_refusal != 0; }
  Status refusal() const { return fail(m_refusal, Failure::kLocked); }

 private:
  int m_descriptor;
  bool m_locked = false;
  int m_refusal = 0;
};

// ---- transfers ---------------------------------------------------------------------------------

/// Moves @p count bytes by calls of @p move_piece(offset, length), which returns like read(). A 0
/// ends the transfer early.
template <class MovePiece>
inline Status transfer(std::size_t count, std::size_t& done, MovePiece move_piece) {
  while (done < count) {
    const ::ssize_t moved =
        uninterrupted([&] { return move_piece(done, std::min(count - done, kLargestPiece)); });
    if (moved < 0) return fail(errno);
    if (moved == 0) break;
    done += static_cast<std::size_t>(moved);
  }
  return {};
}

/// Some file systems take the flag O_NONBLOCK of a file seriously, and refuse a read or write that
/// would have to wait. Files are opened with that flag, so that no open waits for a pipe.
/// @return whether it was set, and is cleared now.
inline bool clear_nonblocking(int descriptor) {
  const int flags = ::fcntl(descriptor, F_GETFL);
  return flags != -1 && (flags & O_NONBLOCK) != 0 &&
         ::fcntl(descriptor, F_SETFL, flags & ~O_NONBLOCK) == 0;
}

/// Makes a read or write, and repeats it if it was refused only because it would have to wait.
template <class Call>
inline ::ssize_t waiting(int descriptor, Call call) {
  const ::ssize_t moved = call();
  return moved < 0 && errno == EAGAIN && clear_nonblocking(descriptor) ? call() : moved;
}

inline Status read_fully(int descriptor, void* buffer, std::size_t count, std::size_t& done) {
  char* const bytes = static_cast<char*>(buffer);
  return transfer(count, done, [&](std::size_t offset, std::size_t length) {
    return waiting(descriptor, [&] { return ::read(descriptor, bytes + offset, length); });
  });
}

inline Status write_fully(int descriptor, const void* data, std::size_t count, std::size_t& done) {
  const char* const bytes = static_cast<const char*>(data);
  return transfer(count, done, [&](std::size_t offset, std::size_t length) {
    return waiting(descriptor, [&] { return ::write(descriptor, bytes + offset, length); });
  });
}

inline Status write_fully_at(int descriptor, std::uint64_t at, const void* data, std::size_t count,
                             std::size_t& done) {
  const char* const bytes = static_cast<const char*>(data);
  return transfer(count, done, [&](std::size_t offset, std::size_t length) {
    return waiting(descriptor, [&] {
      return ::pwrite(descriptor, bytes + offset, length, static_cast<::off_t>(at + offset));
    });
  });
}

// ---- SMB mounts --------------------------------------------------------------------------------
// On a mount of the SMB client of Linux a lock does not belong to its handle, and a rename that
// must not replace a file can replace one: docs/network-shares.md.

inline bool is_on_smb(const char* path) {
  struct ::statfs found {};
  if (::statfs(path, &found) != 0) return false;
  // The kernel keeps the number in 32 bits, and statfs() may extend its sign.
  switch (static_cast<std::uint32_t>(found.f_type)) {
    case SMB_SUPER_MAGIC:
    case CIFS_SUPER_MAGIC:
    case SMB2_SUPER_MAGIC: return true;
    default: return false;
  }
}

/// The same, faster, if @p info is known: every SMB mount has the major device number 0.
inline bool is_on_smb(const char* path, const FileInfo& info) {
  return major(info.st_dev) == 0 && is_on_smb(path);
}

}  // namespace os::posix
