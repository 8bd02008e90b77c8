#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "platform/os/os.h"

/// @file
/// The part of the seam that the library has no use for: it looks without leaving a trace, knows
/// more about files than the library asks, and tells of the system. Folders are walked name by
/// name, descriptions follow no link, and where the system lets us the time of the last access
/// stays. look_posix.cpp and look_windows.cpp each hold one system whole; programs that look are
/// built with one of them, the library with neither.
///
/// Paths and names are bytes, as the library's narrow paths are, with the system's own separator.
namespace os::look {

#if defined(_WIN32)
inline constexpr char kSeparator = '\\';
/// The longest path that the library's narrow calls take.
inline constexpr std::size_t kPathLimit = 259;
/// Whether a file can be replaced by another one while programs have it open.
inline constexpr bool kReplacesOpenFiles = false;
#else
inline constexpr char kSeparator = '/';
inline constexpr std::size_t kPathLimit = 4095;
inline constexpr bool kReplacesOpenFiles = true;
#endif

/// The longest name of a file that common file systems take.
inline constexpr std::size_t kNameLimit = 255;

enum class Kind : std::uint8_t {
  kMissing,
  kFile,
  kFolder,
  kLink,   ///< wherever it leads
  kOther,  ///< a device, a pipe
};

/// A file or folder. Times in seconds since 1970-01-01 UTC, size in bytes.
struct Info {
  Kind kind = Kind::kMissing;
  bool is_read_only = false;
  std::uint64_t size = 0;
  std::int64_t modify_time = 0;
  std::int64_t access_time = 0;
  /// When it changed last in any way, in the finest unit that the system has: for comparing alone.
  std::int64_t change_mark = 0;
};

/// One name of a folder. The name is followed by a NUL and lives until the next step.
struct Entry {
  std::string_view name;
  Kind kind = Kind::kMissing;
};

/// A folder that is walked once, "." and ".." left out, in the system's order. It holds one buffer,
/// however many names there are.
class Folder {
 public:
  Folder();
  ~Folder();
  Folder(Folder&&) noexcept;
  Folder& operator=(Folder&&) noexcept;

  os::Status open(const std::string& path);
  /// Opens the sub-folder that the last step gave; a link is not followed.
  os::Status open_below(const Folder& parent, const Entry& entry);
  /// Steps to the next name. False at the end, or when the listing broke off (see status()).
  bool next(Entry& entry);
  const os::Status& status() const { return m_status; }
  /// Describes the entry of the last step; kMissing when it has gone in the meantime.
  Info describe(const Entry& entry);

 private:
  struct Part;
  std::unique_ptr<Part> m_part;
  os::Status m_status;
};

/// Describes what a path names, without following a link in its last component.
Info describe(const std::string& path);

/// A plain file that is open for reading; of a link or anything else nothing is opened. Where that
/// is allowed, its access time does not move.
class QuietFile {
 public:
  QuietFile() = default;
  ~QuietFile() { close(); }
  QuietFile(const QuietFile&) = delete;
  QuietFile& operator=(const QuietFile&) = delete;

  os::Status open(const std::string& path);
  void close();
  /// Asks once for a shared lock over the whole file, as the library's readers take it.
  os::Status try_lock();
  os::Status ask_size(std::uint64_t& size);
  /// Reads on; @p done is 0 at the end.
  os::Status read(char* to, std::size_t count, std::size_t& done);

 private:
  static constexpr std::intptr_t kNone = -1;
  std::intptr_t m_file = kNone;  ///< a descriptor or a handle
};

/// Whether the calling user may change a file, or make and remove names in a folder, asked without
/// changing anything. A read-only file may not be changed, whoever asks.
os::Status probe_writable(const std::string& path);

/// Has all files of the file system that a path lies on on the device, where there is such a thing.
os::Status flush_file_system(const std::string& path);
/// From so many files on one flush of the file system costs less than theirs.
inline constexpr std::size_t kManyFlushes = 5;
/// Has files on the device, and the names in folders where those are a matter of their own; of
/// many, with one flush of their file system where there is such a thing.
os::Status flush_files(const std::vector<std::string>& files,
                       const std::vector<std::string>& folders);

/// Gives a file the owner and the permissions of another one. Fails where that would not be all:
/// the user may not, or the other one has permissions of more than that kind.
os::Status take_over_owner(const std::string& from, const std::string& to);
/// Puts a file in the place of another one, by one step: the name leads to either at any moment.
os::Status replace_file(const std::string& from, const std::string& to);

/// A lock on a file below a folder, and who holds it.
struct HeldLock {
  std::string path;
  bool is_exclusive = false;
  bool is_whole_file = true;
  std::int64_t process = 0;
  std::string command;  ///< the program's name, as far as the system tells
};

enum class Knowledge : std::uint8_t {
  kComplete,
  kPartial,  ///< processes of other users could not be looked into
  kNone,     ///< this system does not tell
};

/// The locks held on files below a folder (an absolute path).
Knowledge find_locks(const std::string& folder, std::vector<HeldLock>& locks);

/// The system a path lies on.
struct FileSystem {
  std::string type;  ///< "ext4", "NTFS"; empty when unknown
  bool is_read_only = false;
  bool is_network = false;
  std::uint64_t total_bytes = 0;
  std::uint64_t free_bytes = 0;
};
FileSystem file_system_of(const std::string& path);

/// "Linux 6.1.0 x86_64", "Windows 10.0.19045".
std::string system_name();
/// What narrow names mean here: "UTF-8", "ISO-8859-1", "code page 1252".
std::string narrow_encoding();
/// The absolute form of a path, links resolved where the system can; the path itself on a failure.
std::string absolute(const std::string& path);

/// A folder and a name in it.
inline std::string join(std::string_view folder, std::string_view name) {
  std::string path;
  path.reserve(folder.size() + name.size() + 1);
  path.append(folder);
  if (path.empty() || path.back() != kSeparator) path += kSeparator;
  return path.append(name);
}

}  // namespace os::look
