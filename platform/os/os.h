#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "vu_i18n.h"

/// @file
/// The seam between the library and the operating system.
///
/// Values go in, values come out. The functions throw only std::bad_alloc, and never trace, retry
/// or decide. Reads and writes continue after an interruption or a short transfer, until the count,
/// the end of the file or an error is reached. The files os_windows.cpp and os_posix.cpp each
/// contain one system completely. The Windows side is the reference; docs/porting.md describes what
/// the POSIX side does for equal results.
///
/// Both sides accept "\" and "/" as separators in a path, and the prefix "\\?\".
namespace os {

/// Why a call failed, as far as callers need to know.
enum class Failure : std::uint8_t {
  kNone,           ///< it succeeded
  kNotFound,       ///< the path, or a folder on the way to it, does not exist (or is a plain file)
  kAlreadyExists,  ///< the new name is taken
  kLocked,         ///< another handle has a conflicting lock
  kNoName,  ///< no file can have such a name here (too long, a character that is not allowed)
  kOther,   ///< anything else; after a query: the system could not tell
};

/// The result of a call: success, or the system's error code with its meaning. The code is a
/// Windows error number. On POSIX systems, and after a call of a C runtime function, it is an errno
/// value.
class [[nodiscard]] Status {
 public:
  constexpr Status() = default;
  constexpr Status(std::int32_t code, Failure failure) : m_code(code), m_failure(failure) {}

  constexpr bool ok() const { return m_failure == Failure::kNone; }
  constexpr std::int32_t code() const { return m_code; }
  constexpr Failure failure() const { return m_failure; }

 private:
  std::int32_t m_code = 0;
  Failure m_failure = Failure::kNone;
};

/// An open file. On Windows it is the system's handle, whose upper half is only sign extension;
/// after close() the next file can get the same one. On POSIX systems it is a tagged number (slot
/// and generation), which never equals a descriptor; a closed one fails in every call.
using Handle = std::int32_t;
inline constexpr Handle kNoHandle = -1;

/// A path on its way to the system. It borrows its string, which must outlive it. The string is
/// narrow (the process's ANSI code page on Windows, bytes on POSIX systems) or wide (UTF-16).
class Path {
 public:
  // Implicit, so that a call takes either text as it is. NOLINTBEGIN(google-explicit-constructor)
  // A text with a NUL becomes the empty path, which names nothing. The system would cut the text.
  Path(const std::string& narrow)
      : m_narrow(narrow.find('\0') == std::string::npos ? narrow.c_str() : "") {}
  Path(const ucs2string& wide)
      : m_wide(wide.str().find(u'\0') == std::u16string::npos ? wide.c_str() : u"") {}
  // NOLINTEND(google-explicit-constructor)

  bool is_wide() const { return m_wide != nullptr; }
  /// Null for a wide path.
  const char* narrow() const { return m_narrow; }
  /// Null for a narrow path.
  const char16_t* wide() const { return m_wide; }

  /// The same path, but only its last component is looked up, in a folder that open_folder() has
  /// opened. A path that ends in a separator is that folder itself. Only for list(), stat(),
  /// open_folder(), remove_file() and remove_directory(). kNoHandle changes nothing.
  Path in(Handle folder) const {
    Path path = *this;
    path.m_folder = folder;
    return path;
  }
  Handle folder() const { return m_folder; }

 private:
  const char* m_narrow = nullptr;
  const char16_t* m_wide = nullptr;
  Handle m_folder = kNoHandle;
};

enum class Access : std::uint8_t {
  kReadExisting,       ///< read; the file must exist
  kReadWriteExisting,  ///< read and write; the file must exist
  kReadWriteCreate,    ///< read and write; a missing file is created, an existing one never cut
  kCreateNew,          ///< read and write; the file must not exist, else Failure::kAlreadyExists
};

/// Flags of a lock request.
inline constexpr std::uint32_t kLockFailAtOnce = 1;
inline constexpr std::uint32_t kLockExclusive = 2;

/// The system part of a lock record: zeroed, with the size and alignment of the Windows record.
inline constexpr std::size_t kLockRegionSize = 32;
inline constexpr std::size_t kLockRegionAlign = 8;

/// A request for a lock on a range that begins where `region` says (0 if zeroed). POSIX systems
/// always lock the whole file.
struct LockRequest {
  /// kLockExclusive, otherwise shared; kLockFailAtOnce, otherwise wait without limit.
  std::uint32_t flags = 0;
  std::uint32_t reserved = 0;
  std::uint32_t length_low = 0;
  std::uint32_t length_high = 0;
  void* region = nullptr;  ///< kLockRegionSize bytes; not used on POSIX systems
};

enum class EntryKind : std::uint8_t {
  kFile,
  kFolder,
  kUnknown,  ///< the listing does not say (for example for a link): call stat()
};

/// One name of a listing: narrow if the folder's path is narrow, UTF-8 if it is wide.
struct Entry {
  std::string_view name;
  EntryKind kind = EntryKind::kUnknown;

  bool operator==(const Entry&) const = default;
};

/// The entries of a folder in the system's order. All names are in one piece of memory.
class Listing {
 public:
  class Iterator {
   public:
    Iterator(const Listing& listing, std::size_t at) : m_listing(&listing), m_at(at) {}
    Entry operator*() const { return (*m_listing)[m_at]; }
    Iterator& operator++() {
      ++m_at;
      return *this;
    }
    bool operator!=(const Iterator& other) const { return m_at != other.m_at; }

   private:
    const Listing* m_listing;
    std::size_t m_at;
  };

  std::size_t size() const { return m_bounds.size(); }
  bool empty() const { return m_bounds.empty(); }
  /// The names, one after the other.
  std::string_view text() const { return {m_names.get(), m_used}; }
  /// Whether a name ends in a dot or blank, which a search on Windows drops. Stays true after
  /// cut().
  bool has_dot_or_blank_at_an_end() const { return m_has_dot_or_blank_at_an_end; }
  /// The name is valid until the listing changes.
  Entry operator[](std::size_t entry) const {
    const Bounds& bounds = m_bounds[entry];
    return {{m_names.get() + bounds.begin, bounds.length}, bounds.kind};
  }
  Iterator begin() const { return {*this, 0}; }
  Iterator end() const { return {*this, size()}; }

  /// @param name not empty.
  void append(std::string_view name, EntryKind kind) {
    begin_name(name, kind);
    std::copy(name.begin(), name.end(), m_names.get() + m_used);
    m_used += name.size();
  }
  /// The same for a name after which kPiece bytes are readable, whatever they are. Copying a fixed
  /// number of bytes is enough for most names, and costs a fraction of copying a variable number.
  [[gnu::always_inline]] void append_readable(std::string_view name, EntryKind kind) {
    begin_name(name, kind);
    char* const to = m_names.get() + m_used;
    std::memcpy(to, name.data(), kPiece);
    if (name.size() > kPiece) std::memcpy(to + kPiece, name.data() + kPiece, name.size() - kPiece);
    m_used += name.size();
  }
  static constexpr std::size_t kPiece = 32;
  /// Reserves memory for @p more further names.
  void expect(std::size_t more) {
    if (m_bounds.capacity() - m_bounds.size() < more)
      m_bounds.reserve(std::max(m_bounds.size() + more, kGrowth * m_bounds.capacity()));
  }
  /// Removes all entries except the first @p size ones.
  void cut(std::size_t size) {
    if (size >= m_bounds.size()) return;
    m_used = m_bounds[size].begin;
    m_bounds.resize(size);
  }

 private:
  /// Large, because reserved memory that is not touched costs nothing.
  static constexpr std::size_t kGrowth = 4;

  /// The place of a name in m_names.
  struct Bounds {
    std::size_t begin = 0;
    std::uint32_t length = 0;
    EntryKind kind = EntryKind::kUnknown;
  };

  [[gnu::always_inline]] void begin_name(std::string_view name, EntryKind kind) {
    if (m_room - m_used < name.size() + kPiece) make_room(name.size() + kPiece);
    m_bounds.push_back({m_used, static_cast<std::uint32_t>(name.size()), kind});
    m_has_dot_or_blank_at_an_end |= name.back() == '.' || name.back() == ' ';
  }
  [[gnu::noinline]] void make_room(std::size_t size) {
    constexpr std::size_t kLeast = 1024;
    const std::size_t room = std::max({kLeast, kGrowth * m_room, m_used + size});
    // new char[] does not clear memory that is overwritten anyway.
    std::unique_ptr<char[]> names(new char[room]);
    std::copy_n(m_names.get(), m_used, names.get());
    m_names = std::move(names);
    m_room = room;
  }

  std::unique_ptr<char[]> m_names;
  std::size_t m_used = 0;
  std::size_t m_room = 0;
  std::vector<Bounds> m_bounds;
  bool m_has_dot_or_blank_at_an_end = false;
};

/// Times in seconds since 1970-01-01 UTC, size in bytes (0 for a folder).
struct FileStat {
  std::int64_t access_time = 0;
  std::int64_t modify_time = 0;
  std::uint64_t size = 0;
  bool is_directory = false;
  bool is_writable = false;  ///< a plain file that make_writable() would leave as it is
};

enum class Links : std::uint8_t {
  kFollow,  ///< describe the target of a link
  kKeep,    ///< treat a link to a folder as a plain file (for removals)
};

enum class IfExists : std::uint8_t { kReplace, kFail };

/// Whether a copy has the modification time of its source.
enum class CopiedTime : std::uint8_t {
  kKept,
  kRefused,  ///< the target belongs to another account: its time is that of the copy
};

/// Whether a copy waits until its bytes are on the device.
enum class Flushed : std::uint8_t { kNo, kYes };

/// The functions of the system. Callers use them as os::open() and so on. Tests insert a layer with
/// functions of the same names. The compiler finds the layer's os.h first; that file defines
/// VU_OS_LAYER and includes this one.
namespace sys {

// ---- files -----------------------------------------------------------------------------------

/// Opens or creates a file, shared with readers, writers and removers. No user can open a folder, a
/// pipe or a device, or a read-only file for writing. It does not wait for the other end of a pipe.
/// With kCreateNew a call that fails leaves no file. @p handle is kNoHandle on failure.
Status open(Path path, Access access, Handle& handle);
/// Closes the handle and releases its lock. Do not repeat it after a failure: see Handle.
Status close(Handle handle);
/// Reads up to @p count bytes at the current position. @p done is smaller only on an error, or at
/// the end of the file, which is a success. A handle without a lock fails with Failure::kLocked
/// while another handle has an exclusive lock.
Status read(Handle handle, void* buffer, std::size_t count, std::size_t& done);
/// Writes at the current position. @p done is the number of bytes written, also on an error. A
/// handle without a lock fails with Failure::kLocked while another handle has any lock.
Status write(Handle handle, const void* data, std::size_t count, std::size_t& done);
/// The same at an offset from the start. Where the position is afterwards depends on the system.
Status write_at(Handle handle, std::uint64_t offset, const void* data, std::size_t count,
                std::size_t& done);
/// Moves the file position by @p distance from the start (0), the position (1) or the end (2).
Status seek(Handle handle, std::int32_t distance, std::int16_t method);
/// Cuts or extends the file to the current position.
Status set_end(Handle handle);
/// The size in bytes of the open file itself, even if another file has its name now.
Status size(Handle handle, std::uint64_t& bytes);
/// Reserves space on the device for a file of @p size bytes. The content and the size of the file
/// do not change. Fails if there is no space. Succeeds on a file system that cannot reserve.
Status reserve(Handle handle, std::uint64_t size);
/// Gives an open file the modification time of another one; no later write of this handle changes
/// it on Windows. A file of another account may refuse it: then @p time is kRefused.
Status take_time(Handle from, Handle to, CopiedTime& time);
/// Writes the file's buffers and its times to the device.
Status flush(Handle handle);
/// Takes a lock that belongs to this open handle. Handles of one process exclude each other like
/// handles of two processes. The lock ends with unlock(), with close() or with the process.
Status lock(Handle handle, const LockRequest& request);
/// Releases the whole-file lock; fails if the handle has none.
Status unlock(Handle handle);

// ---- queries ---------------------------------------------------------------------------------

/// Whether the system knows attributes of the path (used for network paths).
Status probe_attributes(Path path);
/// Whether a directory search with the path as pattern finds something. "*" and "?" in the last
/// component match as patterns, and as themselves. A link is found as such, even a dangling one. A
/// path that ends in "\." is found if the part before it exists, even if that is a root. The empty
/// path and a path that ends in a separator are not found.
Status probe_search(Path path);
/// Lists all entries of a folder except "." and "..", in the system's order. POSIX systems omit
/// names with "\" or a line feed. @p folder ends in a separator. On a failure nothing is appended.
Status list(Path folder, Listing& entries);
/// Describes a file or folder. A separator at the end is dropped first (a root keeps its own); then
/// only a folder is found. On Windows the code is that of the C runtime: ENOENT after all failures
/// that it does not distinguish. Only Failure::kNotFound means that nothing has the name.
Status stat(Path path, FileStat& result, Links links = Links::kFollow);

/// Whether two paths lead to one file or folder, for example by a link. Fails if one of them cannot
/// be found.
Status same_file(Path one, Path other, bool& is_same);

/// Opens a folder itself, never the target of a link, until close(). Calls with Path::in() reach
/// this folder, even if another one gets its name. On Windows nothing is opened: @p folder is
/// kNoHandle, and entries are addressed by their whole path.
Status open_folder(Path path, Handle& folder);

// ---- changes ---------------------------------------------------------------------------------

/// Makes a file readable and writable for its owner (clears the read-only attribute). If it is
/// already, the call succeeds for every user.
Status make_writable(Path path);
/// Creates one folder; a taken name (of a file or a folder) is Failure::kAlreadyExists.
Status create_directory(Path path);
/// Removes one empty folder (or, on Windows, a link to a folder).
Status remove_directory(Path path);
/// Removes one file or link. Fails for a read-only file, for every user.
Status remove_file(Path path);
/// The same, if stat() has just described the file. Saves a system call for a writable one.
Status remove_file(Path path, const FileStat& found);
/// Renames a file or folder. Fails if the new name is taken, but succeeds onto itself.
Status rename(Path from, Path to);
/// Copies a file with its modification time and read-only state. Fails for a folder, onto itself,
/// onto a read-only target and against the lock of another handle. On POSIX systems the old target
/// then stays, also if the disk is full. Any other failure removes the copy. A target of another
/// account may allow writing, but not setting the time. Then @p time (unless null) is kRefused.
Status copy(Path from, Path to, IfExists if_exists, CopiedTime* time = nullptr,
            Flushed flushed = Flushed::kNo);

/// Writes the buffers and times of a file to the device; the caller needs no handle. The file may
/// be read-only.
Status flush_file(Path path);

// ---- names -----------------------------------------------------------------------------------

/// The short (8.3) form of a path, if the system has one; at most 32,767 characters.
Status short_path(const ucs2string& path, ucs2string& result);
/// The current directory, with backslashes.
Status current_directory(ucs2string& result);
/// The absolute form of a path, with "." and ".." folded as text and with backslashes. Nothing is
/// looked up.
Status full_path(const ucs2string& path, ucs2string& result);
/// The folder of the running program, without a trailing separator.
Status program_folder(ucs2string& result);
/// The folder for temporary files, without a trailing separator.
Status temporary_folder(ucs2string& result);
/// The value of an environment variable; Failure::kNotFound if it is not set.
Status environment(const std::string& variable, ucs2string& value);
/// A wide text in the narrow encoding of paths.
std::string to_narrow(const ucs2string& text);
/// A UTF-8 text in the narrow encoding of paths. If that encoding cannot represent it, returns
/// false and leaves @p narrow as it is.
bool narrow_of(const std::string& utf8, std::string& narrow);
/// A text in the narrow encoding of paths as UTF-8.
std::string utf8_of(const std::string& narrow);
/// A path as UTF-8 with the system's own separators, for use outside of this library.
std::string native_form(const std::string& narrow);
/// Whether a byte begins a two-byte character in the narrow encoding.
bool is_lead_byte(unsigned char byte);

// ---- the rest --------------------------------------------------------------------------------

/// The calling thread's last error code.
std::int32_t last_error();
/// The system's text for an error code, in its default language, ended by CR LF; empty if there is
/// none.
std::string error_text(std::int32_t code);
/// The same, requested in wide characters.
ucs2string error_text_wide(std::int32_t code);
/// Seconds since 1970-01-01 UTC.
std::int64_t now();
/// Whether this is a Windows of the NT family; always true on POSIX systems.
bool nt_family();
/// Whether a lock on a file below @p folder belongs only to the handle that took it. False on
/// mounts of the SMB client of Linux, where handles of one host share a lock. True if the system
/// cannot tell.
bool locks_belong_to_handles(Path folder);

}  // namespace sys

#if !defined(VU_OS_LAYER)
using namespace sys;  // NOLINT(google-build-using-namespace): each name is in one list already
#endif

}  // namespace os
