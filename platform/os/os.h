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
/// Values go in, values come out: nothing here throws (but for memory running out), traces, retries
/// or decides. Reads and writes are the one exception to "asked once": they go on after an
/// interruption or a short transfer until the count, the end of the file or an error is reached.
/// os_windows.cpp and os_posix.cpp each hold one system whole. The Windows side is the reference;
/// what the POSIX side does to give equal results is told in docs/porting.md.
///
/// Text conventions of both sides: paths arrive with "\" or "/" as separators, maybe with the
/// prefix "\\?\".
namespace os {

/// Why a call failed, as far as anybody above the seam asks.
enum class Failure : std::uint8_t {
  kNone,           ///< it succeeded
  kNotFound,       ///< the path, or a folder on the way to it, does not exist (or is a plain file)
  kAlreadyExists,  ///< the name to be made is taken
  kLocked,         ///< another handle holds a conflicting lock
  kNoName,  ///< no file can bear such a name here (too long, a character that is not allowed)
  kOther,   ///< anything else; after a question: the system could not tell
};

/// The outcome of a call: success, or the system's own error code (a Windows error number there, an
/// errno value on POSIX systems and where a C runtime function is called) with its meaning.
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

/// An open file. On Windows it is the system's handle (whose upper half is only sign extension), on
/// POSIX systems a tagged number (slot and generation) that never equals a descriptor's and fails
/// once closed, even when the descriptor behind it has been given to another file.
using Handle = std::int32_t;
inline constexpr Handle kNoHandle = -1;

/// A path on its way to the system. It borrows the string it is made from, and knows whether that
/// is narrow (the process's ANSI code page on Windows, bytes on POSIX systems) or wide (UTF-16).
class Path {
 public:
  // Implicit, so that a call takes either text as it is. NOLINTBEGIN(google-explicit-constructor)
  // A name with a NUL in it is no name, and not what stands before the NUL: nothing is found.
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

  /// The same path, of which only the last component is looked up, in a folder that open_folder()
  /// has opened; a path that ends in a separator is that folder itself. For list(), stat(),
  /// open_folder(), remove_file() and remove_directory() alone. kNoHandle changes nothing.
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
  kReadExisting,     ///< read; the file must exist
  kReadWriteCreate,  ///< read and write; the file is made when missing, never cut
};

/// Flags of a lock request.
inline constexpr std::uint32_t kLockFailAtOnce = 1;
inline constexpr std::uint32_t kLockExclusive = 2;

/// The system part of a lock record: zeroed, sized and aligned for the Windows overlapped record.
inline constexpr std::size_t kLockRegionSize = 32;
inline constexpr std::size_t kLockRegionAlign = 8;

/// One request for a lock over a range that begins where `region` says (0 when zeroed).
struct LockRequest {
  /// kLockExclusive, else shared; kLockFailAtOnce, else wait without limit.
  std::uint32_t flags = 0;
  std::uint32_t reserved = 0;
  std::uint32_t length_low = 0;
  std::uint32_t length_high = 0;
  void* region = nullptr;  ///< kLockRegionSize bytes; not used on POSIX systems
};

enum class EntryKind : std::uint8_t {
  kFile,
  kFolder,
  kUnknown,  ///< the listing does not say (a link, say): ask stat()
};

/// One name of a listing: narrow for a narrow folder, UTF-8 for a wide one.
struct Entry {
  std::string_view name;
  EntryKind kind = EntryKind::kUnknown;

  bool operator==(const Entry&) const = default;
};

/// The entries of a folder in the system's order. All names lie in one piece of memory.
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
  /// The names, one behind the other.
  std::string_view text() const { return {m_names.get(), m_used}; }
  /// Whether a name ends in what a search on Windows drops. (Also when that one was cut off since.)
  bool has_dot_or_blank_at_an_end() const { return m_has_dot_or_blank_at_an_end; }
  /// The name is valid until the listing changes.
  Entry operator[](std::size_t entry) const {
    const Bounds& bounds = m_bounds[entry];
    return {{m_names.get() + bounds.begin, bounds.length}, bounds.kind};
  }
  Iterator begin() const { return {*this, 0}; }
  Iterator end() const { return {*this, size()}; }

  /// @p name is not empty.
  void append(std::string_view name, EntryKind kind) {
    begin_name(name, kind);
    std::copy(name.begin(), name.end(), m_names.get() + m_used);
    m_used += name.size();
  }
  /// The same for a name behind which kPiece bytes may be read, whatever they are. A copy of a
  /// fixed size, which is all that most names need, costs a fraction of one of any size.
  [[gnu::always_inline]] void append_readable(std::string_view name, EntryKind kind) {
    begin_name(name, kind);
    char* const to = m_names.get() + m_used;
    std::memcpy(to, name.data(), kPiece);
    if (name.size() > kPiece) std::memcpy(to + kPiece, name.data() + kPiece, name.size() - kPiece);
    m_used += name.size();
  }
  static constexpr std::size_t kPiece = 32;
  /// So many more are likely to come.
  void expect(std::size_t more) {
    if (m_bounds.capacity() - m_bounds.size() < more)
      m_bounds.reserve(std::max(m_bounds.size() + more, kGrowth * m_bounds.capacity()));
  }
  /// Drops all entries but the first ones.
  void cut(std::size_t size) {
    if (size >= m_bounds.size()) return;
    m_used = m_bounds[size].begin;
    m_bounds.resize(size);
  }

 private:
  /// What is not used is not touched, so it takes no memory.
  static constexpr std::size_t kGrowth = 4;

  /// Where a name stands among the others.
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
    // Nobody clears what is written anyway.
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

/// Times in seconds since 1970-01-01 UTC, size in bytes (of a folder 0).
struct FileStat {
  std::int64_t access_time = 0;
  std::int64_t modify_time = 0;
  std::uint64_t size = 0;
  bool is_directory = false;
};

enum class Links : std::uint8_t {
  kFollow,  ///< describe what the link leads to
  kKeep,    ///< a link to a folder counts as a plain file (used where things are removed)
};

enum class IfExists : std::uint8_t { kReplace, kFail };

/// Whether a copy bears the modification time of its source.
enum class CopiedTime : std::uint8_t {
  kKept,
  kRefused,  ///< the target belongs to another account; it is dated by the copy itself
};

/// The functions as the system gives them. Everybody calls them as os::open() and so on. A layer
/// with functions of the same names may stand in between: its own os.h is found first, defines
/// VU_OS_LAYER and includes this one.
namespace sys {

// ---- files -----------------------------------------------------------------------------------

/// Opens or makes a file, shared with readers, writers and removers alike. A folder cannot be
/// opened, and a read-only file not for writing, whoever asks. @p handle is kNoHandle on failure.
Status open(Path path, Access access, Handle& handle);
/// Closes the handle, which gives up its lock; never repeated. A handle that was closed before
/// fails.
Status close(Handle handle);
/// Reads at the current position up to @p count bytes; fewer only at the end of the file (success,
/// @p done below @p count, 0 at the end) or on an error. On a handle without a lock of its own it
/// fails with Failure::kLocked while another handle holds an exclusive lock.
Status read(Handle handle, void* buffer, std::size_t count, std::size_t& done);
/// Writes at the current position; @p done tells how many bytes were written, also on an error. On
/// a handle without a lock of its own it fails with Failure::kLocked while another handle holds any
/// lock.
Status write(Handle handle, const void* data, std::size_t count, std::size_t& done);
/// Moves the file position by @p distance from the start (0), the position (1) or the end (2).
Status seek(Handle handle, std::int32_t distance, std::int16_t method);
/// Cuts or extends the file to the current position.
Status set_end(Handle handle);
/// The size in bytes of the open file itself, whatever its name stands for by now.
Status size(Handle handle, std::uint64_t& bytes);
/// Makes sure of space on the device for a file of @p size bytes, as far as the file system can
/// promise it. Neither the content nor the size of the file change. Fails when there is none; a
/// file system that cannot tell is no failure.
Status reserve(Handle handle, std::uint64_t size);
/// Writes the file's buffers and its times to the device.
Status flush(Handle handle);
/// Takes a lock that belongs to this open handle, conflicts with those of every other handle (of
/// this process too) and ends with close() or the end of the process.
Status lock(Handle handle, const LockRequest& request);
/// Gives the whole-file lock back; fails when the handle holds none.
Status unlock(Handle handle);

// ---- questions -------------------------------------------------------------------------------

/// Whether the system knows attributes of the path (used for network paths).
Status probe_attributes(Path path);
/// Whether a directory search with the path as pattern finds something: "*" and "?" in the last
/// component match as patterns; links are found as such, dangling ones included; a path that ends
/// in "\." is found when what stands before exists, be it a root; the empty path and one ending in
/// a separator are not.
Status probe_search(Path path);
/// Lists every entry of a folder except "." and "..", in the system's order. @p folder ends in a
/// separator. Appends to @p entries; on a failure nothing.
Status list(Path folder, Listing& entries);
/// Describes a file or folder. A trailing separator is dropped first (a root keeps its own), but
/// then only a folder is found.
Status stat(Path path, FileStat& result, Links links = Links::kFollow);

/// Opens a folder itself, never what a link of its name leads to, so that nobody can put another
/// one in its place while what is in it is listed and removed (Path::in()). close() ends it. On
/// Windows nothing is held: @p folder is kNoHandle, and what is in a folder is named by its whole
/// path.
Status open_folder(Path path, Handle& folder);

// ---- changes ---------------------------------------------------------------------------------

/// Makes a file readable and writable for its owner (clears the read-only attribute). A file that
/// is so already is a success for whoever asks.
Status make_writable(Path path);
/// Makes one folder; a taken name (whatever it is) is Failure::kAlreadyExists.
Status create_directory(Path path);
/// Removes one empty folder (or, on Windows, a link to a folder).
Status remove_directory(Path path);
/// Removes one file or link. A read-only file stays, whoever asks.
Status remove_file(Path path);
/// Renames a file or folder; fails when the new name is taken, but succeeds onto itself.
Status rename(Path from, Path to);
/// Copies a file with its modification time and read-only state. Fails on a folder, onto itself, on
/// a read-only target and against a foreign lock; what it cannot complete it removes. A target of
/// another account that may be written but not dated keeps the copy, and @p time tells (when it is
/// not null).
Status copy(Path from, Path to, IfExists if_exists, CopiedTime* time = nullptr);

/// Writes the buffers and the times of a file that nobody here has open to the device, a read-only
/// one included.
Status flush_file(Path path);

// ---- names -----------------------------------------------------------------------------------

/// The short (8.3) form of a path, where the system has one; a buffer of 32,767 characters.
Status short_path(const ucs2string& path, ucs2string& result);
/// The current directory, with backslashes.
Status current_directory(ucs2string& result);
/// The absolute form of a path, "." and ".." folded as text, with backslashes; nothing is looked
/// up.
Status full_path(const ucs2string& path, ucs2string& result);
/// The folder of the running program, without a trailing separator.
Status program_folder(ucs2string& result);
/// The folder for temporary files, without a trailing separator.
Status temporary_folder(ucs2string& result);
/// The value of an environment variable; Failure::kNotFound when it is not set.
Status environment(const std::string& variable, ucs2string& value);
/// A wide text in the narrow encoding of paths.
std::string to_narrow(const ucs2string& text);
/// A UTF-8 text in the narrow encoding of paths; false, with @p narrow as it was, when it has no
/// place there.
bool narrow_of(const std::string& utf8, std::string& narrow);
/// A text in the narrow encoding of paths as UTF-8.
std::string utf8_of(const std::string& narrow);
/// A path as UTF-8 with the system's own separators, for others than this library.
std::string native_form(const std::string& narrow);
/// Whether a byte begins a two-byte character in the narrow encoding.
bool is_lead_byte(unsigned char byte);

// ---- the rest --------------------------------------------------------------------------------

/// The calling thread's last error code.
std::int32_t last_error();
/// The system's text for an error code, in its default language, ended by CR LF; empty when it has
/// none.
std::string error_text(std::int32_t code);
/// The same, asked for in wide characters.
ucs2string error_text_wide(std::int32_t code);
/// Seconds since 1970-01-01 UTC.
std::int64_t now();
/// Whether the system is of the NT family.
bool nt_family();
/// Whether a lock on a file below @p folder belongs to the handle that took it, and to no other one
/// of its host. The SMB client of Linux lets handles share one: false on its mounts. True where
/// nobody can tell.
bool locks_belong_to_handles(Path folder);

}  // namespace sys

#if !defined(VU_OS_LAYER)
using namespace sys;  // NOLINT(google-build-using-namespace): each name is in one list already
#endif

}  // namespace os
