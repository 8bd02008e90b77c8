#include "platform/os/os.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <iterator>
#include <memory>
#include <optional>
#include <string_view>
#include <utility>

#include "platform/os/posix_calls.h"
#include "platform/os/posix_handles.h"
#include "platform/os/posix_path.h"

// The functions of the seam have the names of system calls; "::" marks the system's functions.
namespace os::sys {

namespace {

using posix::Descriptor;
using posix::entry_info;
using posix::ErrnoKeeper;
using posix::fail;
using posix::FileInfo;
using posix::HandleTable;
using posix::info_of;
using posix::is_folder;
using posix::is_read_only;
using posix::is_same_file;
using posix::native;
using posix::NativePath;
using posix::no_answer;
using posix::read_fully;
using posix::result_of;
using posix::TransferGuard;
using posix::uninterrupted;
using posix::write_fully;
using posix::write_fully_at;

constexpr ::mode_t kPermissions = 07777;
constexpr ::mode_t kOwnerReadWrite = S_IRUSR | S_IWUSR;
constexpr ::mode_t kAllWrite = S_IWUSR | S_IWGRP | S_IWOTH;

struct FreeText {
  void operator()(char* text) const { std::free(text); }
};
using SystemText = std::unique_ptr<char, FreeText>;

// ---- listings ----------------------------------------------------------------------------------

/// Whether a name contains a backslash or a line feed. The library would take the backslash for a
/// separator, and the line feed would split a line of an index.
bool is_foreign(std::string_view name) {
  // Two searches for one character each cost a fraction of one search for either.
  return name.find('\\') != std::string_view::npos || name.find('\n') != std::string_view::npos;
}

/// Appends the entries that getdents64() has written, without "." and "..". Listing::kPiece bytes
/// after them must be readable.
void append_records(std::string_view records, Listing& entries) {
  entries.expect(records.size() / (offsetof(dirent64, d_name) + sizeof(std::uint64_t)));
  while (!records.empty()) {
    std::uint16_t length = 0;
    std::memcpy(&length, records.data() + offsetof(dirent64, d_reclen), sizeof length);
    const auto type = static_cast<unsigned char>(records[offsetof(dirent64, d_type)]);
    const std::string_view name(records.data() + offsetof(dirent64, d_name));
    records.remove_prefix(length);
    if (name[0] == '.' && (name.size() == 1 || name == "..")) continue;
    entries.append_readable(name, type == DT_DIR   ? EntryKind::kFolder
                                  : type == DT_REG ? EntryKind::kFile
                                                   : EntryKind::kUnknown);
  }
}

/// The listing, but without the foreign names among the entries from @p first on.
Listing without_foreign_names(const Listing& listing, std::size_t first) {
  Listing result;
  for (std::size_t i = 0; i < listing.size(); ++i) {
    const Entry entry = listing[i];
    if (i < first || !is_foreign(entry.name)) result.append(entry.name, entry.kind);
  }
  return result;
}

/// "." and ".." are entries of every folder, too.
Status probe_pattern(const posix::Split& split) {
  Listing entries;
  const Status listed = sys::list(std::string(split.folder), entries);
  if (!listed.ok()) return listed;
  for (const char* const own : {".", ".."}) entries.append(own, EntryKind::kFolder);
  for (const Entry entry : entries) {
    if (posix::matches(split.name, entry.name)) return {};
  }
  return fail(ENOENT);
}

// ---- handles -----------------------------------------------------------------------------------

/// Never destroyed: a static object may still close its file when the process ends.
HandleTable& handles() {
  static auto* const table = new HandleTable;
  return *table;
}

/// Where a path is looked up: by its whole text, or as a name in an open folder. The folder itself
/// has the name ".".
class Place {
 public:
  explicit Place(Path path) : m_path(native(path)), m_name(m_path.c_str()) {
    if (path.folder() == kNoHandle) return;
    const std::optional<HandleTable::File> folder = handles().find(path.folder());
    // An invalid handle has no descriptor: the system refuses -1.
    m_base = folder ? folder->descriptor : -1;
    const std::string_view name = posix::split_last(m_path.text()).name;
    m_name = name.empty() ? "." : name.data();  // both end in a NUL
  }

  int base() const { return m_base; }
  const char* name() const { return m_name; }
  /// @return whether there were separators at the end.
  bool drop_separators_at_the_end() {
    const posix::Trimmed trimmed = posix::trim_separators(m_path.text());
    m_path.cut(trimmed.path.size());
    return trimmed.had_separator;
  }
  std::optional<FileInfo> info() const { return info_of(m_name, m_base); }
  std::optional<FileInfo> entry() const { return entry_info(m_name, m_base); }

 private:
  NativePath m_path;
  const char* m_name;
  int m_base = AT_FDCWD;
};

/// Runs @p transfer on the handle's descriptor. Only a handle without a lock needs the guard, and
/// its two more system calls.
template <class Transfer>
Status guarded(Handle handle, int lock_type, Transfer transfer) {
  const std::optional<HandleTable::File> file = handles().find(handle);
  if (!file) return fail(EBADF);
  if (file->has_lock) return transfer(file->descriptor);
  const TransferGuard guard(file->descriptor, lock_type);
  return guard.refused() ? guard.refusal() : transfer(file->descriptor);
}

/// Fails only if there is no space. With any other code the file system cannot reserve any.
Status reserve_space(int descriptor, ::off_t size) {
  if (size <= 0) return {};
  const auto reserve_it = [&] { return ::fallocate(descriptor, FALLOC_FL_KEEP_SIZE, 0, size); };
  if (uninterrupted(reserve_it) == 0) return {};
  const bool is_full = errno == ENOSPC || errno == EDQUOT || errno == EFBIG;
  return is_full ? fail(errno) : Status();
}

// ---- opening files -----------------------------------------------------------------------------

/// Only a plain file can be a document, an index or a counter.
Status check_regular(const FileInfo& info) {
  if (is_folder(info)) return fail(EISDIR);
  return S_ISREG(info.st_mode) ? Status() : fail(EINVAL);
}

/// One try to open a file. The open of a pipe does not wait for its other end: in the place of an
/// index, it would stop every program of the storage.
Descriptor open_once(const char* path, int flags, ::mode_t mode = 0666) {
  const auto open = [&](int more) {
    return ::open(path, flags | more | O_CLOEXEC | O_NOCTTY, mode);
  };
  const int number = uninterrupted([&] { return open(O_NONBLOCK); });
  if (number >= 0) {
    Descriptor opened(number);
    // The number was that of a standard stream, and all others are in use. A new file goes again.
    const ErrnoKeeper keeper;
    if (!opened.valid() && (flags & O_EXCL) != 0) ::unlink(path);
    return opened;
  }
  if (errno != EWOULDBLOCK) return Descriptor();
  // Another program has a lease on the file (F_SETLEASE), and must release it now. Wait for that.
  const std::optional<FileInfo> info = info_of(path);
  if (info && S_ISREG(info->st_mode)) return Descriptor(uninterrupted([&] { return open(0); }));
  errno = EWOULDBLOCK;
  return Descriptor();
}

/// Opens a file, with the meaning of the flags O_CREAT and O_EXCL; the caller then refuses what is
/// not a plain file. @p is_new says whether this call has created the file.
Descriptor open_file(const char* path, int flags, bool& is_new) {
  is_new = false;
  const bool must_be_new = (flags & O_EXCL) != 0;
  if (!must_be_new) {
    Descriptor opened = open_once(path, flags & ~O_CREAT);
    if (opened.valid() || (flags & O_CREAT) == 0 || errno != ENOENT) return opened;
  }
  Descriptor opened = open_once(path, flags | O_EXCL);
  is_new = opened.valid();
  if (is_new || must_be_new || errno != EEXIST) return opened;
  // Another process has just created it, or it is a link whose target is missing.
  return open_once(path, flags);
}

/// Removes a new file again, unless it is kept.
class NewFile {
 public:
  /// @param path null if the file is not new.
  explicit NewFile(const char* path) : m_path(path) {}
  ~NewFile() {
    const ErrnoKeeper keeper;
    if (m_path != nullptr) ::unlink(m_path);
  }
  NewFile(const NewFile&) = delete;
  NewFile& operator=(const NewFile&) = delete;

  void keep() { m_path = nullptr; }

 private:
  const char* m_path;
};

// ---- renaming without replacing ----------------------------------------------------------------

/// Renames onto a stand-in: a file or folder that was created to take the new name.
Status rename_onto_stand_in(const char* from, const char* to) {
  if (::rename(from, to) == 0) return {};
  const Status failed = fail(errno);
  const ErrnoKeeper keeper;
  ::remove(to);
  return failed;
}

Status rename_by_link(const char* from, const char* to) {
  if (::link(from, to) == 0) {
    if (::unlink(from) == 0) return {};
    const Status failed = fail(errno);
    const ErrnoKeeper keeper;
    ::unlink(to);
    return failed;
  }
  // Links may not exist, or may be refused for a file of another owner.
  if (errno != EPERM && errno != EOPNOTSUPP && errno != ENOSYS) return fail(errno);
  const Descriptor stand_in = open_once(to, O_WRONLY | O_CREAT | O_EXCL, S_IRUSR);
  return stand_in.valid() ? rename_onto_stand_in(from, to) : fail(errno);
}

/// For file systems that cannot rename without replacing. A first step takes the new name, and
/// fails if it exists.
Status rename_in_two_steps(const char* from, const char* to, const FileInfo& source) {
  if (!is_folder(source)) return rename_by_link(from, to);
  if (::mkdir(to, S_IRWXU) != 0) return fail(errno);
  return rename_onto_stand_in(from, to);
}

// ---- copying -----------------------------------------------------------------------------------

/// A file of a copy and its lock. The system describes the file after the lock request, so that
/// info() includes what another process changed before. Example: a writer closes the source
/// between the open and the lock; the copy gets its bytes together with its time.
class LockedFile {
 public:
  /// Takes over a descriptor, or the errno of the failed open.
  Status lock(Descriptor opened, int type) {
    if (!opened.valid()) return fail(errno);
    m_descriptor = std::move(opened);
    m_guard.emplace(m_descriptor.get(), type);
    return result_of(::fstat(m_descriptor.get(), &m_info));
  }
  int get() const { return m_descriptor.get(); }
  const FileInfo& info() const { return m_info; }
  /// A failure if another handle has a conflicting lock; info() can change then.
  Status refusal() const { return m_guard->refused() ? m_guard->refusal() : Status(); }

 private:
  Descriptor m_descriptor;
  std::optional<TransferGuard> m_guard;  // released before the close
  FileInfo m_info{};
};

/// One copy of a file, run once. The destructor removes an incomplete copy and then releases the
/// locks.
class FileCopy {
 public:
  FileCopy(Path from, Path to, Flushed flushed)
      : m_from(native(from)), m_to(native(to)), m_flushed(flushed) {}
  ~FileCopy() {
    if (m_is_incomplete) remove_half_copy();
  }
  FileCopy(const FileCopy&) = delete;
  FileCopy& operator=(const FileCopy&) = delete;

  Status run(IfExists if_exists, CopiedTime& time) {
    if (const Status opened = open_source(); !opened.ok()) return opened;
    if (const Status opened = open_target(if_exists); !opened.ok()) return opened;
    if (const Status ready = empty_target(); !ready.ok()) return ready;
    Status status = copy_content();
    if (status.ok()) status = copy_properties(time);
    if (status.ok()) status = ask_for_late_failure();
    m_is_incomplete = !status.ok();
    return status;
  }

 private:
  Status open_source() {
    const Status locked = m_source.lock(open_once(m_from.c_str(), O_RDONLY), F_RDLCK);
    if (!locked.ok()) return locked;
    const Status regular = check_regular(m_source.info());
    return regular.ok() ? m_source.refusal() : regular;
  }

  /// Cuts nothing yet: the target may be the source.
  Status open_target(IfExists if_exists) {
    const bool replaces = if_exists == IfExists::kReplace;
    const int flags = O_WRONLY | O_CREAT | (replaces ? 0 : O_EXCL);
    bool is_new = false;
    Descriptor opened = open_file(m_to.c_str(), flags, is_new);
    m_existed = !is_new;
    if (const Status locked = m_target.lock(std::move(opened), F_WRLCK); !locked.ok())
      return locked;
    const FileInfo& info = m_target.info();
    if (is_new && info.st_size == 0) {
      const Status refusal = m_target.refusal();
      m_is_incomplete = refusal.ok();
      return refusal;
    }
    // A new file that has content: another process wrote it before the lock.
    if (!replaces) return fail(EEXIST);
    m_existed = true;
    if (is_same_file(m_source.info(), info)) return fail(EBUSY);
    if (is_read_only(info)) return fail(EACCES);
    const Status regular = check_regular(info);
    return regular.ok() ? m_target.refusal() : regular;
  }

  /// Prepares everything that can fail beforehand, and then cuts an existing target.
  Status empty_target() {
    if (m_flushed == Flushed::kNo) {
      // A close of the last descriptor would release the lock before its result is known.
      m_second = Descriptor(::fcntl(m_target.get(), F_DUPFD_CLOEXEC, 0));
      if (!m_second.valid()) return fail(errno);
    }
    if (!m_existed) return {};
    if (const Status allowed = check_owner(); !allowed.ok()) return allowed;
    const Status ready = make_room();
    m_is_incomplete = ready.ok();
    return ready;
  }

  /// A target of another account can be written but not made read-only. This is tested before the
  /// cut, by setting the permissions that the target already has.
  Status check_owner() const {
    if (!is_read_only(m_source.info())) return {};
    return result_of(::fchmod(m_target.get(), m_target.info().st_mode & kPermissions));
  }

  /// Cuts an existing target, but first makes sure that the disk has room for the copy. Reserves
  /// the space unless the cut frees enough.
  Status make_room() {
    constexpr ::off_t kBlock = 512;
    if (m_target.info().st_blocks * kBlock < m_source.info().st_size) {
      const Status reserved = reserve_space(m_target.get(), m_source.info().st_size);
      // An empty target needs no cut, which would release the space.
      if (!reserved.ok() || m_target.info().st_size == 0) return reserved;
    }
    return result_of(uninterrupted([&] { return ::ftruncate(m_target.get(), 0); }));
  }

  /// The kernel copies what it can; reading and writing copies the rest. Some file systems cannot
  /// copy, and some files have a size that is not that of their content.
  Status copy_content() {
    const auto copy_piece = [&] {
      return ::copy_file_range(m_source.get(), nullptr, m_target.get(), nullptr,
                               posix::kLargestPiece, 0);
    };
    for (::off_t copied = 0; copied < m_source.info().st_size;) {
      const ::ssize_t piece = uninterrupted(copy_piece);
      if (piece <= 0) break;
      copied += piece;
    }
    for (;;) {
      std::size_t filled = 0;
      const Status read = read_fully(m_source.get(), m_buffer.get(), kBuffer, filled);
      if (!read.ok()) return read;
      std::size_t written = 0;
      const Status write = write_fully(m_target.get(), m_buffer.get(), filled, written);
      if (!write.ok() || filled < kBuffer) return write;
    }
  }

  /// Sets the source's modification time and read-only state. The access time is now.
  Status copy_properties(CopiedTime& time) {
    const std::array<timespec, 2> times = {timespec{0, UTIME_NOW}, m_source.info().st_mtim};
    if (::futimens(m_target.get(), times.data()) != 0) {
      // Only the owner may set an older time. The content is complete, and the old content is gone.
      if (!m_existed || errno != EPERM) return fail(errno);
      time = CopiedTime::kRefused;
    }
    if (!is_read_only(m_source.info())) return {};
    const ::mode_t mode = m_target.info().st_mode & kPermissions & ~kAllWrite;
    return result_of(::fchmod(m_target.get(), mode));
  }

  /// A network file system may report only now that its disk is full: at a flush or, if there is
  /// none, at a close.
  Status ask_for_late_failure() {
    return result_of(m_flushed == Flushed::kYes ? ::fsync(m_target.get())
                                                : ::close(m_second.release()));
  }

  /// Removes an incomplete copy, unless another file has its name now. Through a link it removes
  /// the file, not the link. The file is still locked, so that nobody has written it since. It is
  /// cut first: a reader that waits for the lock must not take a part of it for the whole.
  void remove_half_copy() const {
    const ErrnoKeeper keeper;
    static_cast<void>(uninterrupted([&] { return ::ftruncate(m_target.get(), 0); }));
    std::array<char, PATH_MAX> room;  // not from the heap, which may be exhausted
    const char* const path = ::realpath(m_to.c_str(), room.data());
    if (path == nullptr) return;
    const std::optional<FileInfo> entry = entry_info(path);
    if (entry && is_same_file(*entry, m_target.info())) ::unlink(path);
  }

  static constexpr std::size_t kBuffer = std::size_t{1} << 15U;

  const NativePath m_from;
  const NativePath m_to;
  const Flushed m_flushed;
  /// Allocated before a target is cut. Not initialised: usually nothing is left to read.
  const std::unique_ptr<char[]> m_buffer{new char[kBuffer]};
  LockedFile m_source;
  LockedFile m_target;
  Descriptor m_second;  ///< of a target without a flush; its close reports what the last would
  bool m_existed = false;
  bool m_is_incomplete = false;  ///< the target contains a part of the copy, or nothing
};

// ---- names -------------------------------------------------------------------------------------

/// A name of the system as the library's text. Fails if its bytes are not UTF-8.
Status to_text(std::string_view bytes, ucs2string& result) {
  std::u16string text;
  if (!posix::to_wide(bytes, text)) return fail(EILSEQ);
  result = ucs2string(std::move(text));
  return {};
}

/// A path of the system in the form of the library.
Status to_library_path(std::string path, ucs2string& result) {
  std::replace(path.begin(), path.end(), '/', '\\');
  return to_text(path, result);
}

std::optional<std::string> working_folder() {
  const SystemText path(::getcwd(nullptr, 0));
  if (!path) return std::nullopt;
  return path.get();
}

}  // namespace

// ---- files -------------------------------------------------------------------------------------

Status open(Path path, Access access, Handle& handle) {
  handle = kNoHandle;
  const bool writing = access != Access::kReadExisting;
  const bool creates = writing && access != Access::kReadWriteExisting;
  const int rights = (writing ? O_RDWR : O_RDONLY) | (creates ? O_CREAT : 0);
  const bool is_new = access == Access::kCreateNew;
  const NativePath name = native(path);
  Descriptor descriptor = open_once(name.c_str(), rights | (is_new ? O_EXCL : 0));
  if (!descriptor.valid()) return fail(errno);
  // With kReadWriteCreate, another process may have written to the new file already.
  NewFile created(is_new ? name.c_str() : nullptr);
  FileInfo info{};
  if (::fstat(descriptor.get(), &info) != 0) return fail(errno);
  if (const Status regular = check_regular(info); !regular.ok()) return regular;
  if (writing && is_read_only(info)) return fail(EACCES);
  const std::optional<Handle> added = handles().add(descriptor.get());
  if (!added) return fail(EMFILE);
  descriptor.release();
  created.keep();
  handle = *added;
  return {};
}

Status close(Handle handle) {
  const std::optional<HandleTable::File> file = handles().remove(handle);
  if (!file) return fail(EBADF);
  // Not repeated after an interruption: the descriptor is closed then, and may be another file's.
  return result_of(::close(file->descriptor));
}

Status read(Handle handle, void* buffer, std::size_t count, std::size_t& done) {
  done = 0;
  return guarded(handle, F_RDLCK,
                 [&](int descriptor) { return read_fully(descriptor, buffer, count, done); });
}

Status write(Handle handle, const void* data, std::size_t count, std::size_t& done) {
  done = 0;
  return guarded(handle, F_WRLCK,
                 [&](int descriptor) { return write_fully(descriptor, data, count, done); });
}

Status write_at(Handle handle, std::uint64_t offset, const void* data, std::size_t count,
                std::size_t& done) {
  done = 0;
  return guarded(handle, F_WRLCK, [&](int descriptor) {
    return write_fully_at(descriptor, offset, data, count, done);
  });
}

Status seek(Handle handle, std::int32_t distance, std::int16_t method) {
  static_assert(SEEK_SET == 0 && SEEK_CUR == 1 && SEEK_END == 2);
  const std::optional<HandleTable::File> file = handles().find(handle);
  if (!file) return fail(EBADF);
  if (method < SEEK_SET || method > SEEK_END) return fail(EINVAL);
  return ::lseek(file->descriptor, distance, method) < 0 ? fail(errno) : Status();
}

Status set_end(Handle handle) {
  const std::optional<HandleTable::File> file = handles().find(handle);
  if (!file) return fail(EBADF);
  const ::off_t position = ::lseek(file->descriptor, 0, SEEK_CUR);
  if (position < 0) return fail(errno);
  return result_of(::ftruncate(file->descriptor, position));
}

Status size(Handle handle, std::uint64_t& bytes) {
  bytes = 0;
  const std::optional<HandleTable::File> file = handles().find(handle);
  if (!file) return fail(EBADF);
  struct ::stat info {};
  if (::fstat(file->descriptor, &info) != 0) return fail(errno);
  bytes = static_cast<std::uint64_t>(info.st_size);
  return {};
}

Status reserve(Handle handle, std::uint64_t size) {
  const std::optional<HandleTable::File> file = handles().find(handle);
  return file ? reserve_space(file->descriptor, static_cast<::off_t>(size)) : fail(EBADF);
}

Status take_time(Handle from, Handle to, CopiedTime& time) {
  time = CopiedTime::kKept;
  const std::optional<HandleTable::File> source = handles().find(from);
  const std::optional<HandleTable::File> target = handles().find(to);
  if (!source || !target) return fail(EBADF);
  FileInfo info{};
  if (::fstat(source->descriptor, &info) != 0) return fail(errno);
  const std::array<timespec, 2> times = {timespec{0, UTIME_NOW}, info.st_mtim};
  if (::futimens(target->descriptor, times.data()) == 0) return {};
  // Only the owner may set an older time.
  if (errno != EPERM) return fail(errno);
  time = CopiedTime::kRefused;
  return {};
}

Status flush(Handle handle) {
  const std::optional<HandleTable::File> file = handles().find(handle);
  // Not fdatasync(): the times decide whether a document is up to date.
  return file ? result_of(::fsync(file->descriptor)) : fail(EBADF);
}

Status lock(Handle handle, const LockRequest& request) {
  const std::optional<HandleTable::File> file = handles().find(handle);
  if (!file) return fail(EBADF);
  const int command = request.flags & kLockFailAtOnce ? F_OFD_SETLK : F_OFD_SETLKW;
  const int type = request.flags & kLockExclusive ? F_WRLCK : F_RDLCK;
  if (posix::set_whole_file_lock(file->descriptor, command, type) != 0) {
    return posix::is_refusal(errno) ? fail(errno, Failure::kLocked) : fail(errno);
  }
  handles().set_lock(handle, true);
  return {};
}

Status unlock(Handle handle) {
  const std::optional<HandleTable::File> file = handles().find(handle);
  if (!file) return fail(EBADF);
  // For a handle without a lock the system would report success.
  if (!file->has_lock) return fail(EINVAL);
  if (posix::set_whole_file_lock(file->descriptor, F_OFD_SETLK, F_UNLCK) != 0) return fail(errno);
  handles().set_lock(handle, false);
  return {};
}

// ---- queries ---------------------------------------------------------------------------------

Status probe_attributes(Path path) {
  return info_of(native(path).c_str()) ? Status() : no_answer(errno);
}

Status probe_search(Path path) {
  NativePath name = native(path);
  // A search finds entries. Such a path is not an entry; a root is found only as "/.".
  if (name.text().empty() || name.text().ends_with('/')) return fail(ENOENT);
  name.cut(posix::trim_self_entries(name.text()).size());
  // First without patterns: only here "why?." can be a name, whose dot a search would drop.
  if (entry_info(name.c_str())) return {};
  const int code = errno;
  const posix::Split split = posix::split_last(name.text());
  return posix::is_pattern(split.name) ? probe_pattern(split) : no_answer(code);
}

Status list(Path folder, Listing& entries) {
  const Place place(folder);
  const Descriptor descriptor(
      ::openat(place.base(), place.name(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (!descriptor.valid()) return fail(errno);
  // Not with readdir(): it makes two more system calls, and takes over half of the time per entry.
  constexpr std::size_t kBuffer = std::size_t{1} << 15U;
  const std::unique_ptr<char[]> records(new char[kBuffer + Listing::kPiece]);
  const std::size_t before = entries.size();
  for (;;) {
    const ::ssize_t count = ::getdents64(descriptor.get(), records.get(), kBuffer);
    if (count < 0) {
      const int error = errno;
      entries.cut(before);
      return fail(error);
    }
    if (count == 0) break;
    append_records({records.get(), static_cast<std::size_t>(count)}, entries);
  }
  if (is_foreign(entries.text())) entries = without_foreign_names(entries, before);
  return {};
}

Status stat(Path path, FileStat& result, Links links) {
  Place place(path);
  const bool had_separator = place.drop_separators_at_the_end();
  const auto info = links == Links::kKeep ? place.entry() : place.info();
  // One code for every missing file: the layer above chooses its trace by it.
  if (!info) return fail(errno == ENOTDIR ? ENOENT : errno);
  if (had_separator && !is_folder(*info)) return fail(ENOENT);
  result.access_time = info->st_atime;
  result.modify_time = info->st_mtime;
  result.is_directory = is_folder(*info);
  result.is_writable =
      S_ISREG(info->st_mode) && (info->st_mode & kOwnerReadWrite) == kOwnerReadWrite;
  // For a folder the system returns the size of its list of names.
  result.size = result.is_directory ? 0 : static_cast<std::uint64_t>(info->st_size);
  return {};
}

Status same_file(Path one, Path other, bool& is_same) {
  const std::optional<FileInfo> first = info_of(native(one).c_str());
  if (!first) return no_answer(errno);
  const std::optional<FileInfo> second = info_of(native(other).c_str());
  if (!second) return no_answer(errno);
  is_same = is_same_file(*first, *second);
  return {};
}

Status open_folder(Path path, Handle& folder) {
  folder = kNoHandle;
  Place place(path);
  // Otherwise the system would follow a link: "a/" is the target of the link "a".
  place.drop_separators_at_the_end();
  constexpr int kFlags = O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC;
  Descriptor descriptor(::openat(place.base(), place.name(), kFlags));
  if (!descriptor.valid()) return fail(errno);
  const std::optional<Handle> added = handles().add(descriptor.get());
  if (!added) return fail(EMFILE);
  descriptor.release();
  folder = *added;
  return {};
}

// ---- changes -----------------------------------------------------------------------------------

Status make_writable(Path path) {
  const NativePath name = native(path);
  const std::optional<FileInfo> info = info_of(name.c_str());
  const ::mode_t mode = info ? info->st_mode & kPermissions : 0;
  // chmod() would fail for a file of another account, which may be writable nevertheless.
  if ((mode & kOwnerReadWrite) == kOwnerReadWrite) return {};
  if (::chmod(name.c_str(), mode | kOwnerReadWrite) != 0) return fail(errno);
  // A network file system may report success and keep the permissions.
  const std::optional<FileInfo> changed = info_of(name.c_str());
  if (!changed) return fail(errno);
  return (changed->st_mode & kOwnerReadWrite) == kOwnerReadWrite ? Status() : fail(EACCES);
}

Status create_directory(Path path) { return result_of(::mkdir(native(path).c_str(), 0777)); }

Status remove_directory(Path path) {
  const Place place(path);
  if (::unlinkat(place.base(), place.name(), AT_REMOVEDIR) == 0) return {};
  const Status failed = fail(errno);
  // With ENOTDIR, the path itself may name a plain file, which exists.
  const ErrnoKeeper keeper;
  const bool is_there = failed.code() == ENOTDIR && place.entry();
  return is_there ? Status(ENOTDIR, Failure::kOther) : failed;
}

Status remove_file(Path path) {
  const Place place(path);
  const std::optional<FileInfo> info = place.entry();
  if (!info) return fail(errno);
  if (is_folder(*info)) return fail(EISDIR);
  if (is_read_only(*info)) return fail(EACCES);
  return result_of(::unlinkat(place.base(), place.name(), 0));
}

Status remove_file(Path path, const FileStat& found) {
  if (!found.is_writable) return sys::remove_file(path);
  const Place place(path);
  return result_of(::unlinkat(place.base(), place.name(), 0));
}

Status rename(Path from, Path to) {
  const NativePath old_path = native(from);
  const char* const old_name = old_path.c_str();
  const std::optional<FileInfo> source = entry_info(old_name);
  if (!source) return fail(errno);
  const NativePath new_path = native(to);
  const char* const new_name = new_path.c_str();
  const std::optional<FileInfo> target = entry_info(new_name);
  if (target && is_same_file(*source, *target)) return {};
  // The SMB client checks the new name and renames after that: two hosts can both succeed.
  const std::string folder(posix::split_last(old_path.text()).folder);
  if (posix::is_on_smb(folder.c_str(), *source))
    return rename_in_two_steps(old_name, new_name, *source);
  if (::renameat2(AT_FDCWD, old_name, AT_FDCWD, new_name, RENAME_NOREPLACE) == 0) return {};
  if (errno != EINVAL && errno != ENOSYS) return fail(errno);
  return rename_in_two_steps(old_name, new_name, *source);
}

Status copy(Path from, Path to, IfExists if_exists, CopiedTime* time, Flushed flushed) {
  CopiedTime copied_time = CopiedTime::kKept;
  const Status status = FileCopy(from, to, flushed).run(if_exists, copied_time);
  if (time != nullptr) *time = copied_time;
  return status;
}

Status flush_file(Path path) {
  const Descriptor descriptor = open_once(native(path).c_str(), O_RDONLY);
  return descriptor.valid() ? result_of(::fsync(descriptor.get())) : fail(errno);
}

// ---- names -------------------------------------------------------------------------------------

Status short_path(const ucs2string&, ucs2string&) { return fail(ENOTSUP); }

Status current_directory(ucs2string& result) {
  const std::optional<std::string> folder = working_folder();
  return folder ? to_library_path(*folder, result) : fail(errno);
}

Status full_path(const ucs2string& path, ucs2string& result) {
  std::string text(native(path).text());
  if (!text.starts_with('/')) {
    const std::optional<std::string> folder = working_folder();
    if (!folder) return fail(errno);
    text = text.empty() ? *folder : *folder + "/" + text;
  }
  return to_library_path(posix::fold(text), result);
}

Status program_folder(ucs2string& result) {
  std::string path(256, '\0');
  for (;;) {
    const ::ssize_t length = ::readlink("/proc/self/exe", path.data(), path.size());
    if (length < 0) return fail(errno);
    if (static_cast<std::size_t>(length) < path.size()) {
      path.resize(static_cast<std::size_t>(length));
      return to_text(posix::trim_separators(posix::split_last(path).folder).path, result);
    }
    path.resize(path.size() * 2);
  }
}

Status temporary_folder(ucs2string& result) {
  const char* const chosen = std::getenv("TMPDIR");
  const std::string folder = chosen != nullptr && *chosen != '\0' ? chosen : "/tmp";
  return to_text(posix::trim_separators(folder).path, result);
}

Status environment(const std::string& variable, ucs2string& value) {
  const char* const found = std::getenv(variable.c_str());
  return found != nullptr ? to_text(found, value) : fail(ENOENT);
}

std::string to_narrow(const ucs2string& text) { return posix::to_bytes(text.str()); }

bool narrow_of(const std::string& utf8, std::string& narrow) {
  narrow = utf8;
  return true;
}

std::string utf8_of(const std::string& narrow) { return narrow; }

std::string native_form(const std::string& narrow) {
  std::string path = narrow;
  std::replace(path.begin(), path.end(), '\\', '/');
  return path;
}

/// No byte of a UTF-8 character has the value of a separator.
bool is_lead_byte(unsigned char) { return false; }

// ---- the rest ----------------------------------------------------------------------------------

std::int32_t last_error() { return errno; }

std::string error_text(std::int32_t code) {
  // Not translated: a translation would be in the encoding of the host program's locale.
  const char* const text = ::strerrordesc_np(code);
  return text == nullptr ? std::string() : std::string(text) + "\r\n";
}

ucs2string error_text_wide(std::int32_t code) {
  const std::string text = error_text(code);
  return ucs2string(std::u16string(text.begin(), text.end()));
}

std::int64_t now() {
  // Not time(): its clock advances in ticks, but the times of files come from the exact clock. So
  // the time of a file just written could be one second after "now".
  timespec exact{};
  return ::clock_gettime(CLOCK_REALTIME, &exact) == 0 ? exact.tv_sec : std::time(nullptr);
}

bool nt_family() { return true; }

bool locks_belong_to_handles(Path folder) { return !posix::is_on_smb(native(folder).c_str()); }

}  // namespace os::sys
